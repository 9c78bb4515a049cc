#include "Platform/Counters/VelPool.h"

#include <gtest/gtest.h>

namespace {

using Interface::IntfCounterMasquerade::EthIntfStatistics;

const Wire::EthIntfId et1( "et1" );
const Wire::EthIntfId et2( "et2" );

struct Observer {
   struct VelPorts final : Vel::ReactorTo< Observer, VelPool::EntityManager > {
      using ReactorTo::ReactorTo;
      void onIntfCounterDir( const Wire::IntfId & intf ) override {
         const auto * dir = entity()->intfCounterDir( intf );
         sm()->log += dir ? Vel::text( "+", intf, " ", dir->counter( "current" )->statistics(), ";" )
                          : Vel::text( "-", intf, ";" );
      }
   };
   explicit Observer( const Vel::Ptr< VelPool::EntityManager > & pool ) {
      reactor.is( pool, this ).hasNotificationActiveIs( true );
   }
   Vel::Watch< VelPorts > reactor;
   Vel::String log;
};

TEST( VelPool, tellsOfAPortWhenItsCountsAreThere ) {
   const auto pool = Vel::make< VelPool::EntityManager >();
   Observer observer( pool );
   pool->intfCountersIs( et1, 100, Cog::MaybeU63( 200 ) );
   EXPECT_EQ( "+et1 in 100 out 200;", observer.log );
}

TEST( VelPool, tellsOfPortsAndNotOfCounts ) {
   const auto pool = Vel::make< VelPool::EntityManager >();
   pool->intfCountersIs( et1, 1, Cog::MaybeU63( 2 ) );
   Observer observer( pool );
   pool->intfCountersIs( et1, 100, Cog::MaybeU63( 200 ) );
   EXPECT_EQ( "", observer.log );
   EXPECT_EQ(
      ( EthIntfStatistics{ 100, Cog::MaybeU63( 200 ) } ),
      pool->intfCounterDir( et1 )->counter( "current" )->statistics() );
}

TEST( VelPool, hasNoEntryForAPortWithoutCounters ) {
   const auto pool = Vel::make< VelPool::EntityManager >();
   pool->intfCountersIs( et1, 1, Cog::MaybeU63( 2 ) );
   EXPECT_FALSE( pool->intfCounterDir( et2 ) );
   Observer observer( pool );
   EXPECT_TRUE( pool->intfDel( et1 ) );
   EXPECT_FALSE( pool->intfCounterDir( et1 ) );
   EXPECT_FALSE( pool->intfDel( et1 ) );
   EXPECT_EQ( "-et1;", observer.log );
}

TEST( VelPool, keepsTheAbsenceOfTransmittedOctets ) {
   const auto pool = Vel::make< VelPool::EntityManager >();
   pool->intfCountersIs( et1, 1, Cog::MaybeU63::none() );
   EXPECT_FALSE( pool->intfCounterDir( et1 )->counter( "current" )->statistics().outOctets.hasValue() );
}

} // namespace
