#pragma once

#include "Platform/Vel/Declare.h"

/// Purpose: a directory of named entities of any type. Owner of its entries.
namespace Vel {

class Dir final : public Entity {
   VEL_ENTITY( Dir );
   VEL_CHILDREN( String, Entity, entry, onEntry );

   /// Makes an entry by the name of its type. An entry of that name and type that is there is kept and
   /// returned. Throws NameInUse if the entry is of another type, InternalException if the type is unknown.
   Ptr< Entity > entryIs( const String & name, const String & typeName );
   /// Null if absent.
   Ptr< Entity > entityRef( const String & name ) const { return Ptr< Entity >( entry( name ) ); }
};

} // namespace Vel
