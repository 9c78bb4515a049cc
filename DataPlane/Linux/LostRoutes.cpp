#include "DataPlane/Linux/LostRoutes.h"

#include <sys/socket.h>

namespace DataPlane::Linux {

Outcome LostRoutes::read( Vel::U32 ifIndex, std::vector< Route > & routes ) {
   std::vector< Route > alone;
   if ( ++reads_ == 1 ) {
      const Outcome outcome = dump( ifIndex, alone );
      if ( !outcome.ok() )
         return outcome;
   } else if ( !all_ ) {
      std::vector< Route > all;
      const Outcome outcome = dump( 0, all );
      if ( !outcome.ok() )
         return outcome;
      all_ = std::move( all );
   }
   // Kernels that do not know how to leave others out tell all routes anyway.
   for ( const Route & route : reads_ == 1 ? alone : *all_ )
      if ( isLost( route, links_.name( ifIndex ) ) )
         routes.push_back( route );
   return {};
}

void LostRoutes::forget() {
   reads_ = 0;
   all_.reset();
}

Outcome LostRoutes::dump( Vel::U32 ifIndex, std::vector< Route > & routes ) {
   const NameOfLink nameOf = [this]( Vel::U32 index ) { return links_.name( index ); };
   for ( const Vel::U8 family : { Vel::U8( AF_INET ), Vel::U8( AF_INET6 ) } ) {
      const std::size_t before = routes.size();
      const Outcome outcome = dumps_.whole(
         routeDumpRequest( family, ifIndex, 0 ), "cannot read the routes", [&] { routes.resize( before ); },
         [&]( const nlmsghdr & message ) {
            if ( !mayBeLost( message ) )
               return;
            if ( std::optional< Route > route = parseRoute( message, nameOf ) )
               routes.push_back( std::move( *route ) );
         } );
      if ( !outcome.ok() )
         return outcome;
   }
   return {};
}

} // namespace DataPlane::Linux
