#include "Platform/Counters/VelPool.h"

namespace VelPool {

void EntityManager::intfCountersIs( const Wire::IntfId & intf, Vel::U64 inOctets, Cog::MaybeU63 outOctets ) {
   const Interface::IntfCounterMasquerade::EthIntfStatistics statistics{ inOctets, outOctets };
   if ( EthIntfCounterDir * dir = intfCounterDir( intf ) ) {
      dir->counterIs( "current" )->statisticsIs( statistics );
      return;
   }
   const auto dir = Vel::make< EthIntfCounterDir >( intf );
   dir->counterIs( "current" )->statisticsIs( statistics );
   intfCounterDirStore( intf, dir );
}

} // namespace VelPool
