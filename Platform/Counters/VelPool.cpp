#include "Platform/Counters/VelPool.h"

namespace VelPool {

Interface::IntfCounterMasquerade::EthIntfCounter *
EntityManager::intfCountersIs( const Wire::IntfId & intf, Vel::U64 inOctets, Cog::MaybeU63 outOctets ) {
   const auto countsOf = [&]( EthIntfCounterDir & dir ) {
      auto * const counter = dir.counterIs( "current" );
      counter->statisticsIs( { inOctets, outOctets } );
      return counter;
   };
   if ( EthIntfCounterDir * dir = intfCounterDir( intf ) )
      return countsOf( *dir );
   const auto dir = Vel::make< EthIntfCounterDir >( intf );
   auto * const counter = countsOf( *dir );
   intfCounterDirStore( intf, dir );
   return counter;
}

} // namespace VelPool
