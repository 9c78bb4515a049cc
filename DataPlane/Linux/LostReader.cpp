#include "DataPlane/Linux/LostReader.h"

#include "DataPlane/Linux/LinkMessage.h"

#include <algorithm>
#include <tuple>

#include <linux/if_addr.h>
#include <sys/socket.h>

namespace DataPlane::Linux {

bool LostReader::InOrder::operator()( const Neighbour & a, const Neighbour & b ) const {
   const auto key = []( const Neighbour & one ) {
      return std::tuple( one.address.family, one.isProxy(), one.address.bytes );
   };
   return key( a ) < key( b );
}

Outcome LostReader::read( Vel::U32 ifIndex, LostState & state ) {
   const Devices followers = links_.followers( ifIndex );
   Devices devices{ ifIndex };
   devices.insert( devices.end(), followers.begin(), followers.end() );
   const bool alone = ++reads_ == 1 && devices.size() <= maxAlone;
   Neighbours neighboursAlone;
   std::vector< Route > routesAlone;
   Outcome outcome = addresses_ ? Outcome() : readAddresses();
   if ( outcome.ok() && alone )
      outcome = readNeighbours( devices, neighboursAlone );
   else if ( outcome.ok() && !neighbours_ )
      outcome = readNeighbours( {}, neighbours_.emplace() );
   if ( outcome.ok() && alone )
      outcome = readRoutes( devices, routesAlone );
   else if ( outcome.ok() && !routes_ )
      outcome = readRoutes( {}, routes_.emplace() );
   if (
      outcome.ok() && !setUp_ && std::any_of( followers.begin(), followers.end(), [this]( Vel::U32 device ) {
         return !links_.adminUp( device );
      } ) )
      outcome = readSetUp();
   if ( !outcome.ok() ) {
      forget();
      return outcome;
   }
   const auto isDown = [this]( Vel::U32 device ) {
      return !links_.adminUp( device ) && setUp_->count( device ) == 0;
   };
   const auto lostOf = [&]( Vel::U32 device ) {
      LostOfDevice lost;
      if ( const auto at = addresses_->find( device ); at != addresses_->end() )
         lost.addresses = at->second;
      const Neighbours & neighbours = alone ? neighboursAlone : *neighbours_;
      if ( const auto at = neighbours.find( device ); at != neighbours.end() )
         lost.neighbours.assign( at->second.begin(), at->second.end() );
      return lost;
   };
   state.own = lostOf( ifIndex );
   std::set< Vel::String > names{ links_.name( ifIndex ) };
   for ( const Vel::U32 follower : followers ) {
      state.followers.push_back(
         { links_.name( follower ), follower, isDown( follower ), lostOf( follower ) } );
      names.insert( links_.name( follower ) );
   }
   for ( const Route & route : alone ? routesAlone : *routes_ )
      if ( isLost( route, names ) )
         state.routes.push_back( route );
   return {};
}

void LostReader::forget() {
   reads_ = 0;
   addresses_.reset();
   neighbours_.reset();
   routes_.reset();
   setUp_.reset();
}

/// The kernel raises the followers of a link one after the other, and may have come further than its news have.
Outcome LostReader::readSetUp() {
   std::set< Vel::U32 > setUp;
   const Outcome outcome = dumps_.whole(
      linkDumpRequest(), "cannot read the links", [&] { setUp.clear(); },
      [&]( const nlmsghdr & message ) {
         if ( const auto event = parseLink( message ); event && event->link.adminUp )
            setUp.insert( event->link.ifIndex );
      } );
   if ( outcome.ok() )
      setUp_ = std::move( setUp );
   return outcome;
}

Outcome LostReader::readAddresses() {
   Addresses addresses;
   const Outcome outcome = dumps_.whole(
      addressDumpRequest( 0 ), "cannot read the addresses", [&] { addresses.clear(); },
      [&]( const nlmsghdr & message ) {
         const std::optional< ifaddrmsg > header = fixedHeader< ifaddrmsg >( message );
         if ( !header )
            return;
         if ( std::optional< LinkAddress > address = parseLostAddress( message, header->ifa_index ) )
            addresses[header->ifa_index].push_back( std::move( *address ) );
      } );
   if ( outcome.ok() )
      addresses_ = std::move( addresses );
   return outcome;
}

Outcome LostReader::readNeighbours( const Devices & devices, Neighbours & neighbours ) {
   for ( const Vel::U32 device : devices.empty() ? Devices{ 0 } : devices )
      for ( const Vel::U8 family : { Vel::U8( AF_INET ), Vel::U8( AF_INET6 ) } )
         for ( const NeighbourKind kind : { NeighbourKind::ordinary, NeighbourKind::proxy } ) {
            const Outcome outcome =
               dumpNeighbours( neighbourDumpRequest( family, kind, device ), neighbours );
            if ( !outcome.ok() )
               return outcome;
         }
   return {};
}

/// The kernel does not mark it when they have changed meanwhile, which they do all the time.
Outcome LostReader::dumpNeighbours( const Bytes & request, Neighbours & neighbours ) {
   Neighbours read, before;
   const Outcome outcome = dumps_.agreed(
      request, "cannot read the neighbours", [&] { before = std::exchange( read, {} ); },
      [&]( const nlmsghdr & message ) {
         if ( std::optional< NeighbourOfLink > one = parseLostNeighbour( message ) )
            read[one->ifIndex].insert( std::move( one->neighbour ) );
      },
      [&] { return read == before; } );
   for ( auto & [ifIndex, ofLink] : read )
      neighbours[ifIndex].merge( ofLink );
   return outcome;
}

/// One of several ways is told for each of its links, and kernels that do not know how to leave others out tell all each
/// time. It counts where its first way is.
Outcome LostReader::readRoutes( const Devices & devices, std::vector< Route > & routes ) {
   std::set< Vel::String > names;
   for ( const Vel::U32 device : devices )
      names.insert( links_.name( device ) );
   const auto isOf = [&]( const Route & route, Vel::U32 device ) {
      const auto first = std::find_if( route.legs.begin(), route.legs.end(), [&]( const Leg & leg ) {
         return names.count( leg.device ) > 0;
      } );
      return first != route.legs.end() && first->device == links_.name( device );
   };
   for ( const Vel::U8 family : { Vel::U8( AF_INET ), Vel::U8( AF_INET6 ) } )
      for ( const Vel::U32 device : devices.empty() ? Devices{ 0 } : devices ) {
         std::vector< Route > told;
         const Outcome outcome = dumpRoutes( routeDumpRequest( family, device, 0 ), told );
         if ( !outcome.ok() )
            return outcome;
         for ( Route & route : told )
            if ( device == 0 || isOf( route, device ) )
               routes.push_back( std::move( route ) );
      }
   return {};
}

Outcome LostReader::dumpRoutes( const Bytes & request, std::vector< Route > & routes ) {
   const NameOfLink nameOf = [this]( Vel::U32 index ) { return links_.name( index ); };
   return dumps_.whole(
      request, "cannot read the routes", [&] { routes.clear(); },
      [&]( const nlmsghdr & message ) {
         if ( !mayBeLost( message ) )
            return;
         if ( std::optional< Route > route = parseRoute( message, nameOf ) )
            routes.push_back( std::move( *route ) );
      } );
}

} // namespace DataPlane::Linux
