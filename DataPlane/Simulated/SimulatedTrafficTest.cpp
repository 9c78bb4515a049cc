#include "DataPlane/Simulated/SimulatedRigTest.h"

#include <random>

namespace DataPlane::Simulated {
namespace {

class SimulatedTraffic : public SimulatedRig {};

TEST_F( SimulatedTraffic, scriptIsCountedExactly ) {
   struct Row {
      double time;
      Vel::U64 in, out;
   };
   const Row rows[] = {
      { 0, 0, 0 },
      { 5, 250'000'000, 50'000'000 },
      { 20, 1'000'000'000, 200'000'000 },
      { 32, 1'480'000'000, 296'000'000 },
      { 50, 1'750'000'000, 350'000'000 },
      { 5000, 1'750'000'000, 350'000'000 } };
   for ( const Row & row : rows ) {
      SCOPED_TRACE( row.time );
      clock->timeIs( Cog::ManualClock::defaultStartTime + row.time );
      EXPECT_EQ( row.in, in( "et1" ) );
      EXPECT_EQ( row.out, out( "et1" ) );
   }
}

TEST_F( SimulatedTraffic, countersDoNotDriftOverManyOddSteps ) {
   traffic( "et2", 123'456'789, 1, 0 );
   std::mt19937_64 dice( 7 );
   Vel::U64 before = 0;
   const auto port = eth( "et2" );
   for ( int i = 0; i < 200'000; ++i ) {
      clock->spend( static_cast< double >( dice() % 10'000'000 ) * 1e-9 );
      clock->runTurn();
      if ( i % 10 == 0 ) {
         refresh();
         const Vel::U64 now = pool->intfCounterDir( port )->counter( "current" )->statistics().inOctets;
         ASSERT_GE( now, before );
         before = now;
      }
   }
   const double elapsed = clock->currentTime() - Cog::ManualClock::defaultStartTime;
   EXPECT_GT( elapsed, 900 );
   EXPECT_NEAR( elapsed * 123'456'789 / 8, static_cast< double >( in( "et2" ) ), 123'456'789 / 8 * 1e-6 + 1 );
}

TEST_F( SimulatedTraffic, sumOverManyFlapsLosesLessThanAnOctet ) {
   started();
   traffic( "et2", 1'000'003, 0, 0 );
   for ( int i = 0; i < 10'000; ++i ) {
      carrierIs( "et2", i % 2 == 1 );
      clock->runTurn();
      clock->advance( 0.0625 );
   }
   // Up for every second sixteenth of a second.
   EXPECT_EQ( static_cast< Vel::U64 >( 1'000'003 / 8.0 * 0.0625 * 5000 ), in( "et2" ) );
}

TEST_F( SimulatedTraffic, linkThatIsDownCountsNothing ) {
   started();
   clock->advance( 5 );
   carrierIs( "et1", false );
   clock->runTurn();
   clock->advance( 5 );
   EXPECT_EQ( 250'000'000u, in( "et1" ) );
   carrierIs( "et1", true );
   clock->runTurn();
   clock->advance( 1 );
   EXPECT_EQ( 300'000'000u, in( "et1" ) );
}

TEST_F( SimulatedTraffic, linkThatWeSetDownCountsNothingFromTheNextTurnOn ) {
   started();
   clock->advance( 5 );
   sw().linkSet( 1, eth( "et1" ), false, {} );
   clock->advance( 5 );
   EXPECT_EQ( 250'000'000u, in( "et1" ) );
}

TEST_F( SimulatedTraffic, trafficIsReplacedAtRunTime ) {
   clock->advance( 10 );
   traffic( "et1", 0, 160e6, 10 );
   clock->advance( 10 );
   // 50 MB/s for 10 s, then down to nothing over 10 s; out from 10 MB/s up to 20 MB/s.
   EXPECT_EQ( 500'000'000u + 250'000'000u, in( "et1" ) );
   EXPECT_EQ( 100'000'000u + 150'000'000u, out( "et1" ) );
   clock->advance( 10 );
   EXPECT_EQ( 750'000'000u, in( "et1" ) );
   EXPECT_EQ( 450'000'000u, out( "et1" ) );
}

TEST_F( SimulatedTraffic, membersOfAPortChannelShareItsTraffic ) {
   started();
   traffic( "pc1", 16e6, 8e6, 0 );
   traffic( "et3", 8e6, 0, 0 );
   clock->advance( 10 );
   EXPECT_EQ( 20'000'000u, in( "et3" ) );
   EXPECT_EQ( 10'000'000u, in( "et4" ) );
   EXPECT_EQ( 5'000'000u, out( "et4" ) );
}

TEST_F( SimulatedTraffic, remainingMembersTakeOverTheShareOfOneThatIsDown ) {
   started();
   traffic( "pc1", 16e6, 0, 0 );
   clock->advance( 10 );
   carrierIs( "et3", false );
   clock->runTurn();
   clock->advance( 10 );
   EXPECT_EQ( 10'000'000u, in( "et3" ) );
   EXPECT_EQ( 30'000'000u, in( "et4" ) );
}

TEST_F( SimulatedTraffic, membersCarryNothingWhileTheirPortChannelIsSetDown ) {
   started();
   traffic( "pc1", 16e6, 0, 0 );
   traffic( "et3", 8e6, 0, 0 );
   sw().linkSet( 1, Wire::PortChannelIntfId( "pc1" ), false, {} );
   clock->advance( 10 );
   EXPECT_EQ( 0u, in( "et3" ) );
   EXPECT_TRUE( listener.up( "et3" ) );
   EXPECT_FALSE( listener.up( "pc1" ) );
}

TEST_F( SimulatedTraffic, linkMadeAgainCountsOn ) {
   started();
   clock->advance( 5 );
   remove( "et1" );
   clock->runTurn();
   refresh();
   EXPECT_FALSE( pool->intfCounterDir( eth( "et1" ) ) );
   clock->advance( 5 );
   makeAgain( "et1" );
   clock->runTurn();
   EXPECT_EQ( 250'000'000u, in( "et1" ) );
   clock->advance( 1 );
   EXPECT_EQ( 300'000'000u, in( "et1" ) );
}

TEST_F( SimulatedTraffic, onlyPortsHaveCounters ) {
   refresh();
   EXPECT_EQ( 4u, pool->intfCounterDirs() );
}

TEST_F( SimulatedTraffic, refreshFailsWhileTheFaultLasts ) {
   clock->advance( 1 );
   refresh();
   simulation().countersFaultIs( "no answer" );
   clock->advance( 1 );
   EXPECT_EQ( "no answer", sw().countersRefresh( *pool ).text() );
   EXPECT_EQ(
      50'000'000u, pool->intfCounterDir( eth( "et1" ) )->counter( "current" )->statistics().inOctets );
   simulation().countersFaultIs( "" );
   EXPECT_EQ( 100'000'000u, in( "et1" ) );
}

TEST_F( SimulatedTraffic, countersStandStillWithinATurn ) {
   clock->post( [&] {
      const Vel::U64 first = in( "et1" );
      clock->spend( 1 );
      EXPECT_EQ( first, in( "et1" ) );
   } );
   clock->advance( 3 );
}

TEST_F( SimulatedTraffic, sameCallsMakeTheSameStory ) {
   const auto story = [] {
      const auto time = Vel::make< Cog::ManualClock >();
      const auto counters = Vel::make< VelPool::EntityManager >();
      const SimulatedSwitchMade one = switchNewSimulated( time, description() );
      RecordingListener heard;
      EXPECT_TRUE( one.made->start( heard ).ok() );
      std::mt19937_64 dice( 3 );
      Vel::String result;
      for ( int i = 0; i < 200; ++i ) {
         const Vel::String port = Vel::text( "et", dice() % 4 + 1 );
         const Vel::U64 what = dice() % 5;
         if ( what == 0 )
            EXPECT_TRUE( one.simulation->linkIs( port, dice() % 2 ).ok() );
         else if ( what == 1 )
            EXPECT_TRUE(
               one.simulation->trafficIs( port, 1e6 * static_cast< double >( dice() % 1000 ), 1, 2 ).ok() );
         else if ( what == 2 )
            EXPECT_TRUE( one.simulation->linkDel( port ).ok() );
         else if ( what == 3 )
            EXPECT_TRUE( one.simulation->linkNew( port ).ok() );
         else
            one.made->linkSet( static_cast< RequestId >( i ), Wire::EthIntfId( port ), dice() % 2, {} );
         time->advance( 0.37 );
         EXPECT_TRUE( one.made->countersRefresh( *counters ).ok() );
         for ( const auto & [intf, dir] : counters->intfCounterDirRange() )
            result += Vel::text( intf, " ", dir->counter( "current" )->statistics(), ";" );
         result += heard.take() + "\n";
      }
      EXPECT_EQ( std::vector< Vel::String >{}, heard.broken );
      return result;
   };
   EXPECT_EQ( story(), story() );
}

TEST_F( SimulatedTraffic, ratesAndRampsOutOfRangeAreRefused ) {
   const double nan = std::nan( "" );
   EXPECT_FALSE( simulation().trafficIs( "et1", -1, 0, 0 ).ok() );
   EXPECT_FALSE( simulation().trafficIs( "et1", 0, nan, 0 ).ok() );
   EXPECT_FALSE( simulation().trafficIs( "et1", 2e13, 0, 0 ).ok() );
   EXPECT_FALSE( simulation().trafficIs( "et1", 0, 0, -1 ).ok() );
   EXPECT_FALSE( simulation().trafficIs( "et1", 0, 0, 1e6 ).ok() );
   EXPECT_FALSE( simulation().trafficIs( "vlan10", 0, 0, 0 ).ok() );
   clock->advance( 5 );
   EXPECT_EQ( 250'000'000u, in( "et1" ) );
}

} // namespace
} // namespace DataPlane::Simulated
