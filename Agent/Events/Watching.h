#pragma once

#include "Platform/Vel/Reactor.h"

#include <map>
#include <memory>

/// Purpose: reactors to the children of a collection, one a child, kept equal to what is there.
namespace Agent {

/// Replaces the reactor of a key by one to that entity, switched on; none for null. The reactor, or null.
template < class R, class Key, class Owner >
R * watch(
   std::map< Key, std::unique_ptr< Vel::Watch< R > > > & reactors, const Key & key,
   const typename R::Watched * entity, Owner * owner ) {
   reactors.erase( key );
   if ( !entity )
      return nullptr;
   auto & held = reactors[key] = std::make_unique< Vel::Watch< R > >();
   held->is( Vel::Ptr< const typename R::Watched >( entity ), owner ).hasNotificationActiveIs( true );
   return held->get();
}

} // namespace Agent
