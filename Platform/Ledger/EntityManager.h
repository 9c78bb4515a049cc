#pragma once

#include "Platform/Ledger/MountGroup.h"

#include <functional>

namespace Ledger {

/// Posts a callable to the event loop, which calls it in a later turn, in the order of posting. Handed in, so
/// that a test can hold the calls back.
using Later = std::function< void( std::function< void() > ) >;

/// Purpose: the state store: one entity a path. Agent and plug-ins meet here and nowhere else.
/// Owner: the agent, which fills it before it loads a plug-in.
///
/// A path is one or more names joined by "/", as "interface/status/all". A path does not own the paths that
/// begin with it: each entity stands by itself. Reactors are told the path.
class EntityManager final : public Vel::Entity {
   VEL_ENTITY( EntityManager );
   explicit EntityManager( Later later );
   /// In the order of paths. Gives `entity( path )`, the entity or null, `entitys()` and `entityRange()`.
   VEL_OWNED( Vel::String, Vel::Entity, entity, onEntity, Ordered );

   /// Whether the text is a path.
   static bool isPath( std::string_view path );

   /// Puts an entity under a path. Another one that is there is taken out first. Throws Vel::RangeError for a
   /// null entity or a malformed path.
   Vel::Ptr< Vel::Entity > entityIs( const Vel::String & path, const Vel::Ptr< Vel::Entity > & entity );
   /// Makes an entity by the name of its type; it is given the last name of the path. An entity of that type
   /// that is there is kept. Throws Vel::NameInUse if the entity is of another type, Vel::InternalException
   /// if the type is unknown or cannot be made by name, Vel::RangeError for a malformed path.
   Vel::Ptr< Vel::Entity > entityIs( const Vel::String & path, const Vel::String & typeName );
   /// Takes the entity of a path out; it lives on while somebody holds it. False: there was none.
   bool entityDel( const Vel::String & path ) { return entityTake( path ); }
   /// The entity of a path, whether anybody has mounted it or not; null if absent.
   Vel::Ptr< Vel::Entity > getEntity( const Vel::String & path ) const { return { entity( path ) }; }

   /// A new group whose mounter is told of completion. Throws Vel::RangeError if it is null.
   Vel::Ptr< MountGroup > getMountGroup( const Vel::Ptr< Mounter > & mounter );

   /// Posts a callable to the event loop.
   void later( std::function< void() > call ) const { later_( std::move( call ) ); }

 private:
   Later later_;
};

} // namespace Ledger
