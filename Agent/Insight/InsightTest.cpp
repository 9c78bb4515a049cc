#include "Agent/Insight/Insight.h"

#include "Platform/Cog/ManualClock.h"

#include <gtest/gtest.h>

namespace Agent {

namespace {

using Maintenance::monIntfStateEnterMaint;
using Maintenance::monIntfStateUnderMaint;

/// Records as the plug-in writes them, by hand.
class InsightTest : public testing::Test {
 protected:
   InsightTest() {
      Vel::System::clockIs( clock );
      wheel = Vel::make< Cog::TimerWheel >( clock, 1000u, 1800u, true, 1024u );
      auto & profile = *profiles->statusIs( "fast" );
      profile.drainWatchThresholdInKbpsIs( 100 );
      profile.drainWatchLoadIntervalIs( 10 );
      clock->commitHookIs( [this] {
         if ( room )
            room->turnEnds();
         return true;
      } );
      start();
   }
   ~InsightTest() override {
      room.reset();
      Vel::System::clockIs( nullptr );
   }

   void start() {
      room.reset();
      room = std::make_unique< Insight >( wheel, Insight::Model{ records, profiles, cause, insights } );
   }
   Maintenance::MonIntfStatus & record( const Wire::IntfId & intf ) {
      if ( auto * known = records->monIntfStatus( intf ) )
         return *known;
      auto & made = *records->monIntfStatusIs( intf, "fast", clock->currentTime() );
      made.stateIs( monIntfStateEnterMaint );
      return made;
   }
   void sample( const Wire::IntfId & intf, double bps ) {
      Maintenance::MonIntfStatus & r = record( intf );
      r.prevRatesIs( r.curRates() );
      Interface::IntfRates rates;
      rates.inBitsRate = bps;
      rates.outBitsRate = bps / 2;
      r.curRatesIs( rates );
      r.lastSampleTimeIs( clock->currentTime() );
      r.totalSamplesInc( 1 );
      r.numConsecutiveDrainedSamplesIs( bps < 1e5 ? r.numConsecutiveDrainedSamples() + 1 : 0 );
   }
   void samples( unsigned count, const Wire::IntfId & intf, double bps ) {
      for ( unsigned i = 0; i < count; ++i ) {
         clock->advance( 5 );
         sample( intf, bps );
         clock->runTurn();
      }
   }
   std::string reason( const Wire::IntfId & intf ) const {
      const IntfInsight * insight = insights->intf( intf );
      return insight ? stringValue( insight->reason() ) : "none";
   }

   const Wire::IntfId et1 = Wire::EthIntfId( "et1" ), et2 = Wire::EthIntfId( "et2" );
   const Vel::Ptr< Cog::ManualClock > clock = Vel::make< Cog::ManualClock >();
   Vel::Ptr< Cog::TimerWheel > wheel;
   const Vel::Ptr< Maintenance::MonIntfStatusDir > records = Vel::make< Maintenance::MonIntfStatusDir >();
   const Vel::Ptr< IntfMaintenanceProfile::StatusDir > profiles =
      Vel::make< IntfMaintenanceProfile::StatusDir >();
   const Vel::Ptr< Errdisable::CauseStatus > cause =
      Vel::make< Errdisable::CauseStatus >( "maintenance-shutdown" );
   const Vel::Ptr< InsightDir > insights = Vel::make< InsightDir >();
   std::unique_ptr< Insight > room;
};

/// Sees what others of the agent see of an insight.
struct Onlooker {
   struct VelInsight final : Vel::ReactorTo< Onlooker, IntfInsight > {
      using ReactorTo::ReactorTo;
      void onSince() override { sm()->log += "since "; }
      void onEta() override { sm()->log += "eta "; }
      void onTrend() override { sm()->log += "trend "; }
      void onReason() override { sm()->log += "reason "; }
   };
   struct VelDir final : Vel::ReactorTo< Onlooker, InsightDir > {
      using ReactorTo::ReactorTo;
      void onIntf( const Wire::IntfId & intf ) override {
         const IntfInsight * insight = entity()->intf( intf );
         sm()->log += insight ? Vel::text( "came ", insight->reason(), " " ) : Vel::text( "went " );
      }
   };
   std::string log;
   Vel::Watch< VelInsight > insight;
   Vel::Watch< VelDir > dir;
};

} // namespace

TEST_F( InsightTest, saysNothingBeforeTheTurnEnds ) {
   record( et1 );
   EXPECT_EQ( "none", reason( et1 ) );
   clock->runTurn();
   EXPECT_EQ( "above-threshold", reason( et1 ) );
   EXPECT_EQ( clock->currentTime(), insights->intf( et1 )->since() );
}

TEST_F( InsightTest, followsTheSamples ) {
   samples( 3, et1, 1e7 );
   EXPECT_EQ( "above-threshold", reason( et1 ) );
   samples( 9, et1, 1e7 );
   EXPECT_EQ( "stalled", reason( et1 ) );
   EXPECT_EQ( Trend::flat, insights->intf( et1 )->trend() );
   samples( 15, et1, 1e3 );
   EXPECT_EQ( "timing", reason( et1 ) );
   EXPECT_EQ( Trend::unknown, insights->intf( et1 )->trend() );
}

TEST_F( InsightTest, publishesWhenAFallingRateWillHaveDrained ) {
   double rate = 7e6;
   for ( int i = 0; i < 5; ++i )
      samples( 1, et1, rate /= 2 );
   // 219 kbit/s: the second sample from now on is the first quiet one, and there have to be two.
   EXPECT_EQ( Trend::falling, insights->intf( et1 )->trend() );
   EXPECT_NEAR( clock->currentTime() + 15, insights->intf( et1 )->eta(), 1 );
}

TEST_F( InsightTest, tellsOfAnExpectedTimeOnlyWhenItChanges ) {
   double rate = 1e9;
   for ( int i = 0; i < 5; ++i )
      samples( 1, et1, rate /= 1.5 );
   Onlooker onlooker;
   onlooker.insight.is( insights->intf( et1 ), &onlooker ).hasNotificationActiveIs( true );
   for ( int i = 0; i < 5; ++i )
      samples( 1, et1, rate /= 1.5 );
   EXPECT_EQ( "", onlooker.log );
}

TEST_F( InsightTest, writesTheReasonLast ) {
   samples( 3, et1, 1e7 );
   Onlooker onlooker;
   onlooker.insight.is( insights->intf( et1 ), &onlooker ).hasNotificationActiveIs( true );
   samples( 1, et1, 1e3 );
   EXPECT_EQ( "since eta reason ", onlooker.log );
}

TEST_F( InsightTest, showsAnInsightOnlyWhenItIsWhole ) {
   Onlooker onlooker;
   onlooker.dir.is( insights, &onlooker ).hasNotificationActiveIs( true );
   samples( 1, et1, 1e3 );
   EXPECT_EQ( "came timing ", onlooker.log );
}

TEST_F( InsightTest, saysAtOnceWhatTheRecordAndTheCauseSay ) {
   samples( 2, et1, 1e3 );
   record( et1 ).stateIs( monIntfStateUnderMaint );
   record( et1 ).stateTimeIs( clock->currentTime() );
   clock->runTurn();
   EXPECT_EQ( "drained", reason( et1 ) );
   record( et1 ).spikeUnderMaintIs( true );
   clock->runTurn();
   EXPECT_EQ( "spike", reason( et1 ) );
   cause->intfStatusIs( et1, clock->currentTime() );
   cause->intfStatusIs( et2, clock->currentTime() );
   clock->runTurn();
   EXPECT_EQ( "shut", reason( et1 ) );
   EXPECT_EQ( "none", reason( et2 ) );
   record( et1 ).stateIs( Maintenance::monIntfStateStopped );
   clock->runTurn();
   EXPECT_EQ( "stopped", reason( et1 ) );
}

TEST_F( InsightTest, looksAtTheNewProfileOfAnInterface ) {
   auto & watch = *profiles->statusIs( "watch" );
   watch.drainWatchThresholdInKbpsIs( 1e6 );
   samples( 3, et1, 1e7 );
   record( et1 ).profileNameIs( "watch" );
   clock->runTurn();
   EXPECT_EQ( "timing", reason( et1 ) );
}

TEST_F( InsightTest, forgetsAnInterfaceWithItsRecord ) {
   samples( 20, et1, 1e7 );
   Onlooker onlooker;
   onlooker.dir.is( insights, &onlooker ).hasNotificationActiveIs( true );
   records->monIntfStatusDel( et1 );
   clock->runTurn();
   EXPECT_EQ( "went ", onlooker.log );
   EXPECT_EQ( 0u, insights->intfs() );
}

TEST_F( InsightTest, beginsAnewWithARecordThatComesBackInTheSameTurn ) {
   samples( 20, et1, 1e7 );
   sample( et1, 1e7 );
   records->monIntfStatusDel( et1 );
   record( et1 );
   clock->runTurn();
   EXPECT_EQ( "above-threshold", reason( et1 ) );
   EXPECT_EQ( clock->currentTime(), insights->intf( et1 )->since() );
   samples( 3, et1, 1e7 );
   EXPECT_EQ( "above-threshold", reason( et1 ) );
}

// ---- missing counters

TEST_F( InsightTest, wakesTheLoopToSayThatNoSampleComes ) {
   samples( 2, et1, 1e7 );
   const double last = clock->currentTime();
   clock->advance( 60 );
   EXPECT_EQ( "starved", reason( et1 ) );
   EXPECT_EQ( last + Classifier::starvedAfter, insights->intf( et1 )->since() );
}

TEST_F( InsightTest, saysThatNoSampleComesWhenNoTimerRuns ) {
   clock->timersMayRunIs( [] { return false; } );
   samples( 2, et1, 1e7 );
   const double last = clock->currentTime();
   for ( int i = 0; i < 20; ++i ) {
      EXPECT_EQ( i > 16 ? "starved" : "above-threshold", reason( et1 ) ) << i;
      clock->timeIs( last + i );
   }
}

TEST_F( InsightTest, saysOfEachInterfaceByItselfThatNoSampleComes ) {
   samples( 1, et1, 1e7 );
   for ( int i = 0; i < 10; ++i )
      samples( 1, et2, 1e7 );
   EXPECT_EQ( "starved", reason( et1 ) );
   EXPECT_EQ( "stalled", reason( et2 ) );
   samples( 1, et1, 1e7 );
   EXPECT_EQ( "above-threshold", reason( et1 ) );
   clock->advance( 60 );
   EXPECT_EQ( "starved", reason( et1 ) );
   EXPECT_EQ( "starved", reason( et2 ) );
}

TEST_F( InsightTest, doesNotWakeTheLoopForWhatHasDrained ) {
   samples( 2, et1, 1e3 );
   record( et1 ).stateIs( monIntfStateUnderMaint );
   clock->advance( 60 );
   EXPECT_EQ( "drained", reason( et1 ) );
   EXPECT_EQ( Cog::Timer::never, clock->dueTime() );
}

// ---- restart

TEST_F( InsightTest, goesOnWithWhatWasKept ) {
   samples( 20, et1, 1e7 );
   const double since = insights->intf( et1 )->since();
   clock->advance( 3 );
   start();
   clock->runTurn();
   EXPECT_EQ( "stalled", reason( et1 ) );
   samples( 5, et1, 1e7 );
   EXPECT_EQ( "stalled", reason( et1 ) );
   EXPECT_EQ( since, insights->intf( et1 )->since() );
}

TEST_F( InsightTest, forgetsWhatWasKeptOfAnInterfaceWithoutARecord ) {
   room.reset();
   insights->intfIs( et2 );
   start();
   EXPECT_EQ( "none", reason( et2 ) );
}

TEST_F( InsightTest, takesUpRecordsOfWhichNothingWasKept ) {
   room.reset();
   record( et1 ).stateIs( monIntfStateUnderMaint );
   record( et1 ).stateTimeIs( clock->currentTime() + 40 );
   clock->advance( 100 );
   start();
   clock->runTurn();
   EXPECT_EQ( "drained", reason( et1 ) );
   EXPECT_EQ( record( et1 ).stateTime(), insights->intf( et1 )->since() );
}

} // namespace Agent
