#pragma once

#include "Platform/Vel/Ptr.h"

/// Purpose: what has changed in the stored entities since the last commit.
namespace Vel {

class Entity;

/// Told by the entities that belong to one store. Called inside the write, so it only takes notes.
class Changes {
 public:
   /// First change of an attribute or counter of `entity` since its mark was last taken away (velMarkDel).
   virtual void entityChanged( Entity & entity ) = 0;
   /// A key of a set or map of `entity` was written or removed. `attribute` is the index within its type.
   virtual void keyChanged( Entity & entity, unsigned attribute, std::string_view key ) = 0;
   /// A child was put under a key of `entity`; the child is stored from now on.
   virtual void childAdded( Entity & entity, unsigned attribute, std::string_view key, Entity & child ) = 0;
   /// A child left `entity`; it and its descendants are to be forgotten. It may live on, but gets no further
   /// writes.
   virtual void childRemoved( Entity & entity, Entity & child ) = 0;

 protected:
   ~Changes() = default;
};

} // namespace Vel
