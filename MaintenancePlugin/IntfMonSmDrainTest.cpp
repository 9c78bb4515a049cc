#include "MaintenancePlugin/IntfMonSm.h"

#include "MaintenancePlugin/IntfMonSmRig.h"

#include <gtest/gtest.h>

#include <limits>

namespace MaintenanceMode {
namespace {

constexpr double nan = std::numeric_limits< double >::quiet_NaN();
constexpr double infinity = std::numeric_limits< double >::infinity();

class IntfMonSmDrain : public testing::Test, protected IntfMonSmRig {};

// ---- the threshold

TEST_F( IntfMonSmDrain, aSampleIsQuietIfBothRatesAreBelowTheThreshold ) {
   struct Case {
      const char * what;
      double thresholdKbps, in, out;
      bool below;
   };
   IntfMonSm & intfMon = monitor();
   for ( const Case & c : {
            Case{ "silence", 100, 0, 0, true },
            Case{ "one below", 1000, 999999, 999999, true },
            Case{ "in at the threshold of a megabit", 1000, 1000000, 0, false },
            Case{ "out one above it", 1000, 0, 1000001, false },
            Case{ "just below", 100, 99999.9, 99999.9, true },
            Case{ "in at the threshold", 100, 100000, 0, false },
            Case{ "out at the threshold", 100, 0, 100000, false },
            Case{ "in above", 100, 100001, 0, false },
            Case{ "out above", 100, 0, 100001, false },
            Case{ "both above", 100, 1e9, 1e9, false },
            Case{ "a broken threshold", 0.5, 499, 499, true },
            Case{ "at a broken threshold", 0.5, 500, 0, false },
            Case{ "nothing is below zero", 0, 0, 0, false },
            Case{ "in is no number", 100, nan, 0, false },
            Case{ "out is no number", 100, 0, nan, false },
            Case{ "the threshold is no number", nan, 0, 0, false },
            Case{ "no threshold at all", infinity, 1e18, 1e18, true },
            Case{ "a rate without bound", infinity, infinity, 0, false },
         } ) {
      SCOPED_TRACE( c.what );
      p->drainWatchThresholdInKbpsIs( c.thresholdKbps );
      ratesAre( c.in, c.out );
      EXPECT_EQ( c.below, intfMon.isTrafficBelowThreshold() );
   }
}

// ---- counting

TEST_F( IntfMonSmDrain, countsASampleByItsStateAndItsTraffic ) {
   struct Counts {
      Vel::U32 consecutive, belowPre, abovePre, belowPost, abovePost;
   };
   struct Case {
      State state;
      bool below;
      Counts counts; ///< all begin at 3
   };
   IntfMonSm & intfMon = monitor();
   for ( const Case & c : {
            Case{ enterMaint, true, { 4, 4, 3, 3, 3 } },
            Case{ enterMaint, false, { 0, 3, 4, 3, 3 } },
            Case{ underMaint, true, { 3, 3, 3, 4, 3 } },
            Case{ underMaint, false, { 3, 3, 3, 3, 4 } },
            Case{ stopped, true, { 3, 3, 3, 4, 3 } },
            Case{ stopped, false, { 3, 3, 3, 3, 4 } },
            Case{ idle, true, { 3, 3, 3, 4, 3 } },
            Case{ idle, false, { 3, 3, 3, 3, 4 } },
         } ) {
      SCOPED_TRACE( Vel::text( c.state, c.below ? " quiet" : " busy" ) );
      auto & r = record();
      r.totalSamplesIs( 3 );
      r.numConsecutiveDrainedSamplesIs( 3 );
      r.numSamplesBelowThresholdPreMaintIs( 3 );
      r.numSamplesAboveThresholdPreMaintIs( 3 );
      r.numSamplesBelowThresholdPostMaintIs( 3 );
      r.numSamplesAboveThresholdPostMaintIs( 3 );
      ratesAre( c.below ? 0 : 100000, 0 );
      intfMon.stateIs( c.state );
      intfMon.updateCounters();
      EXPECT_EQ( 4u, r.totalSamples() );
      EXPECT_EQ( c.counts.consecutive, r.numConsecutiveDrainedSamples() );
      EXPECT_EQ( c.counts.belowPre, r.numSamplesBelowThresholdPreMaint() );
      EXPECT_EQ( c.counts.abovePre, r.numSamplesAboveThresholdPreMaint() );
      EXPECT_EQ( c.counts.belowPost, r.numSamplesBelowThresholdPostMaint() );
      EXPECT_EQ( c.counts.abovePost, r.numSamplesAboveThresholdPostMaint() );
   }
}

TEST_F( IntfMonSmDrain, countsTheSampleFirstAndTheQuietRunBeforeItsKind ) {
   struct Observer {
      struct VelRecord final : Vel::ReactorTo< Observer, Maintenance::MonIntfStatus > {
         using ReactorTo::ReactorTo;
         void onTotalSamples() override { sm()->order += "total "; }
         void onNumConsecutiveDrainedSamples() override { sm()->order += "run "; }
         void onNumSamplesBelowThresholdPreMaint() override { sm()->order += "below "; }
         void onNumSamplesAboveThresholdPreMaint() override { sm()->order += "above "; }
      };
      Vel::String order;
      Vel::Watch< VelRecord > record;
   } observer;
   IntfMonSm & intfMon = monitor();
   observer.record.is( &record(), &observer ).hasNotificationActiveIs( true );
   intfMon.updateCounters();
   ratesAre( 1e6, 0 );
   intfMon.updateCounters();
   EXPECT_EQ( "total run below total run above ", observer.order );
}

TEST_F( IntfMonSmDrain, theQuietRunStaysAsItIsUnderMaintenance ) {
   monitor();
   rig.advance( 10 );
   EXPECT_EQ( underMaint, record().state() );
   EXPECT_EQ( 2u, record().numConsecutiveDrainedSamples() );
   rig.advance( 10 );
   rig.trafficIs( et1, busy );
   rig.advance( 20 );
   EXPECT_EQ( 2u, record().numConsecutiveDrainedSamples() );
   EXPECT_EQ( 5u, record().totalSamples() );
   EXPECT_EQ( 1u, record().numSamplesBelowThresholdPostMaint() );
   EXPECT_EQ( 2u, record().numSamplesAboveThresholdPostMaint() );
}

// ---- drained

TEST_F( IntfMonSmDrain, hasDrainedWhenItsQuietRunIsAsLongAsTheLoadInterval ) {
   constexpr Vel::U32 most = std::numeric_limits< Vel::U32 >::max();
   struct Case {
      Vel::U32 loadInterval, run;
      bool below, drained;
   };
   IntfMonSm & intfMon = monitor();
   for ( const Case & c : {
            Case{ 12, 2, true, false },
            Case{ 12, 3, true, true },
            Case{ 10, 1, true, false },
            Case{ 10, 2, true, true },
            Case{ 5, 1, true, true },
            Case{ 6, 1, true, false },
            Case{ 1, 1, true, true },
            Case{ 0, 1, true, true },
            Case{ 0, 0, false, false },
            Case{ 10, 100, false, false },
            Case{ 0, 100, false, false },
            Case{ most, most / 5, true, true },
            Case{ most, most / 5 - 1, true, false },
            Case{ most, most, true, true },
            Case{ most / 2 + 1, 1, true, false },
            Case{ most, 1, true, false },
         } ) {
      SCOPED_TRACE( Vel::text( c.run, " samples of ", c.loadInterval, " s, ", c.below ? "quiet" : "busy" ) );
      p->drainWatchLoadIntervalIs( c.loadInterval );
      record().numConsecutiveDrainedSamplesIs( c.run );
      ratesAre( 0, c.below ? 0 : 1e6 );
      EXPECT_EQ( c.drained, intfMon.hasTrafficDrained() );
   }
}

TEST_F( IntfMonSmDrain, tellsWhatItsVerdictRestsOn ) {
   p->drainWatchThresholdInKbpsIs( 123 );
   IntfMonSm & intfMon = monitor();
   record().numConsecutiveDrainedSamplesIs( 2 );
   record().totalSamplesIs( 7 );
   const auto startTime = Vel::text( "hasTrafficDrained:     startTime ", record().startTime() );
   for ( const bool quietNow : { true, false } ) {
      SCOPED_TRACE( quietNow ? "quiet" : "busy" );
      ratesAre( quietNow ? 300 : 123000, 400 );
      IntfMonSequence sequence( rig );
      EXPECT_EQ( quietNow, intfMon.hasTrafficDrained() );
      EXPECT_EQ(
         ( Lines{
            quietNow ? "hasTrafficDrained: intf et1, traffic drained - true"
                     : "hasTrafficDrained: intf et1, traffic drained - false",
            Vel::text(
               "hasTrafficDrained:     threshold 123000, cur inBitsRates ", quietNow ? 300 : 123000,
               ", cur outBitsRates 400" ),
            "hasTrafficDrained:     numConsecutiveDrainedSamples 2, totalSamples 7",
            startTime + ( quietNow ? ", drainInterval 10, drainWatchLoadInterval 10"
                                   : ", drainInterval 0, drainWatchLoadInterval 10" ),
         } ),
         sequence.lines() );
      EXPECT_EQ( Lines{}, sequence.logged() );
   }
}

TEST_F( IntfMonSmDrain, oneBusySampleBeginsTheQuietRunAnew ) {
   rig.profileIs( "p", 100, 12, false, 0 );
   monitor();
   rig.advance( 10 );
   EXPECT_EQ( 2u, record().numConsecutiveDrainedSamples() );
   rig.trafficIs( et1, { 0, 1e5 } );
   rig.advance( 5 );
   EXPECT_EQ( 0u, record().numConsecutiveDrainedSamples() );
   rig.trafficIs( et1, quiet );
   rig.advance( 10 );
   EXPECT_EQ( enterMaint, record().state() );
   rig.advance( 5 );
   EXPECT_EQ( underMaint, record().state() );
   EXPECT_EQ( 6u, record().totalSamples() );
}

TEST_F( IntfMonSmDrain, withoutALoadIntervalTheFirstQuietSampleDecides ) {
   rig.profileIs( "p", 100, 0, false, 0 );
   rig.trafficIs( et1, busy );
   monitor();
   rig.advance( 20 );
   EXPECT_EQ( enterMaint, record().state() );
   rig.trafficIs( et1, quiet );
   rig.advance( 5 );
   EXPECT_EQ( underMaint, record().state() );
}

TEST_F( IntfMonSmDrain, withAThresholdOfZeroNothingDrains ) {
   rig.profileIs( "p", 0, 0, false, 0 );
   monitor();
   rig.advance( 60 );
   EXPECT_EQ( enterMaint, record().state() );
   EXPECT_EQ( 12u, record().numSamplesAboveThresholdPreMaint() );
}

TEST_F( IntfMonSmDrain, anInterfaceWithoutCountersKeepsItsLastRates ) {
   rig.trafficIs( et1, busy );
   monitor();
   rig.advance( 5 );
   rig.countersDel( et1 );
   rig.advance( 60 );
   EXPECT_EQ( enterMaint, record().state() );
   // One that never had any reads as quiet.
   rig.countersDel( et2 );
   monitor( et2, enterMaint );
   rig.advance( 10 );
   EXPECT_EQ( underMaint, rig.record( et2 )->state() );
}

/// The credit is counted in samples, so time that passed unwatched neither adds to it nor takes from it.
TEST_F( IntfMonSmDrain, theQuietRunOfAnEarlierRunGoesOn ) {
   recorded( enterMaint, rig.now() - 1000 ).numConsecutiveDrainedSamplesIs( 1 );
   monitor();
   EXPECT_EQ( enterMaint, record().state() );
   rig.advance( 5 );
   EXPECT_EQ( underMaint, record().state() );
   EXPECT_EQ( 2u, record().numConsecutiveDrainedSamples() );
}

// ---- shutting down

TEST_F( IntfMonSmDrain, isShutAsProfileAndTimeSay ) {
   struct Case {
      const char * what;
      bool shutdown, drained;
      double maxDelay, elapsed;
      bool shut;
   };
   for ( const Case & c : {
            Case{ "no shutdown, drained", false, true, 0, 0, false },
            Case{ "no shutdown, the delay is over", false, false, 10, 20, false },
            Case{ "drained before the delay is over", true, true, 1e9, 0, true },
            Case{ "drained, the delay is no number", true, true, nan, 0, true },
            Case{ "not drained, no delay", true, false, 0, 0, true },
            Case{ "not drained, before the delay is over", true, false, 30, 29, false },
            Case{ "not drained, when the delay is over", true, false, 30, 30, true },
            Case{ "not drained, just before the delay is over", true, false, 60, 59.9, false },
            Case{ "not drained, a minute of a minute is over", true, false, 60, 60, true },
            Case{ "not drained, after the delay is over", true, false, 30, 31, true },
            Case{ "not drained, the delay is no number", true, false, nan, 1e9, false },
            Case{ "not drained, the delay is for ever", true, false, infinity, 1e9, false },
            // The record is of an earlier run, and the clock has been set back since.
            Case{ "not drained, no delay, before the beginning", true, false, 0, -100, true },
            Case{ "not drained, before the beginning", true, false, 30, -100, false },
            Case{
               "not drained, before a delay that lies before the beginning", true, false, -50, -100, false },
            Case{ "not drained, after a delay that lies before the beginning", true, false, -50, 0, true },
         } )
      for ( const bool wasShut : { false, true } ) {
         SCOPED_TRACE( Vel::text( c.what, wasShut ? ", was shut" : "" ) );
         PluginRig world;
         world.linkIs( et1 );
         const Vel::Ptr< Profile > profile( world.profileIs( "p", 100, 10, false, 0 ) );
         world.start();
         world.monIntfStatusDir->monIntfStatusIs( et1, "p", world.now() - c.elapsed );
         const auto intfMon = world.root->intfMonIs(
            et1, world.root->timerWheel(), profile, world.root.get(),
            world.root->monIntfDir()->monitoredIntfIs( et1, world.root.get(), "p" ), enterMaint );
         world.profileIs( "p", 100, 10, c.shutdown, c.maxDelay );
         if ( wasShut )
            world.cause->intfStatusIs( et1, 17 );
         EXPECT_EQ( c.shut, intfMon->doMaintenanceShutdown( c.drained ) );
         EXPECT_EQ( c.shut, world.shut( et1 ) );
         // One that is shut again is shut as of now.
         if ( const double * since = world.cause->intfStatus( et1 ) ) {
            EXPECT_EQ( world.now(), *since );
         }
         EXPECT_EQ( enterMaint, intfMon->state() );
      }
}

TEST_F( IntfMonSmDrain, tellsWhyItIsShut ) {
   struct Case {
      bool drained;
      double maxDelay;
      const char * text;
   };
   IntfMonSm & intfMon = monitor();
   rig.advance( 4 );
   for ( const Case & c : {
            Case{ true, 3.5, "doMaintenanceShutdown: intfId et1 shutting down because traffic has drained" },
            Case{ true, 0, "doMaintenanceShutdown: intfId et1 shutting down because traffic has drained" },
            Case{
               false, 3.5,
               "doMaintenanceShutdown: intfId et1 shutting down because max-delay of 3.5 seconds has elapsed "
               "(4)" },
            Case{
               false, 0,
               "doMaintenanceShutdown: intfId et1 shutting down because max-delay of 0 seconds has elapsed "
               "(4)" },
         } )
      for ( const bool wasShut : { false, true } ) {
         SCOPED_TRACE( Vel::text( c.text, wasShut ? ", was shut" : "" ) );
         rig.profileIs( "p", 100, 10, true, c.maxDelay );
         rig.cause->intfStatusDel( et1 );
         if ( wasShut )
            rig.cause->intfStatusIs( et1, 17 );
         IntfMonSequence sequence( rig );
         EXPECT_TRUE( intfMon.doMaintenanceShutdown( c.drained ) );
         EXPECT_EQ( ( Lines{ c.text, "shut et1" } ), sequence.lines() );
         EXPECT_EQ( ( Lines{ "maint-down for intf et1" } ), sequence.logged() );
         EXPECT_TRUE( sequence.traced( c.text, 4 ) );
         EXPECT_EQ( rig.now(), *rig.cause->intfStatus( et1 ) );
      }
}

/// Whatever the reason of a decision against a shutdown.
TEST_F( IntfMonSmDrain, tellsThatItIsBroughtBackOnlyIfItWasShut ) {
   struct Case {
      const char * what;
      bool shutdown;
      double maxDelay;
      bool drained;
   };
   IntfMonSm & intfMon = monitor();
   for ( const Case & c : {
            Case{ "no shutdown, drained", false, 0, true },
            Case{ "no shutdown, not drained", false, 0, false },
            Case{ "not drained, the delay is not over", true, 30, false },
            Case{ "not drained, the delay is no number", true, nan, false },
         } ) {
      SCOPED_TRACE( c.what );
      rig.profileIs( "p", 100, 10, c.shutdown, c.maxDelay );
      rig.cause->intfStatusIs( et1, rig.now() );
      IntfMonSequence sequence( rig );
      EXPECT_FALSE( intfMon.doMaintenanceShutdown( c.drained ) );
      EXPECT_EQ(
         ( Lines{
            "doMaintenanceShutdown: intf et1 bringing it out of maint-down state", "brought back et1" } ),
         sequence.lines() );
      EXPECT_EQ( ( Lines{ "bring intf et1 out maint-down state" } ), sequence.logged() );
      EXPECT_TRUE( sequence.traced( "bringing it out", 4 ) );
      sequence.clear();
      EXPECT_FALSE( intfMon.doMaintenanceShutdown( c.drained ) );
      EXPECT_EQ( Lines{}, sequence.lines() );
      EXPECT_EQ( Lines{}, sequence.logged() );
   }
}

TEST_F( IntfMonSmDrain, bringsBackOnlyItsOwnInterface ) {
   IntfMonSm & intfMon = monitor();
   rig.cause->intfStatusIs( et2, rig.now() );
   EXPECT_FALSE( intfMon.doMaintenanceShutdown( true ) );
   EXPECT_TRUE( rig.shut( et2 ) );
}

TEST_F( IntfMonSmDrain, withoutAProfileNothingIsShutOrBroughtBack ) {
   IntfMonSm & intfMon = monitor();
   intfMon.intfProfileIs( nullptr );
   EXPECT_FALSE( intfMon.doMaintenanceShutdown( true ) );
   EXPECT_FALSE( rig.shut( et1 ) );
   rig.cause->intfStatusIs( et1, 17 );
   EXPECT_FALSE( intfMon.doMaintenanceShutdown( true ) );
   EXPECT_EQ( 17, *rig.cause->intfStatus( et1 ) );
}

/// Nothing can be shut, so an interface is never taken for shut either.
TEST( IntfMonSmWithoutCause, watchesOnly ) {
   PluginRig rig;
   rig.cause = nullptr;
   const auto et1 = PluginRig::port( "et1" );
   rig.linkIs( et1 );
   const Vel::Ptr< const IntfMaintenanceProfile::Status > p( rig.profileIs( "p", 100, 10, true, 0 ) );
   rig.start();
   const auto intfMon = rig.root->intfMonIs(
      et1, rig.root->timerWheel(), p, rig.root.get(),
      rig.root->monIntfDir()->monitoredIntfIs( et1, rig.root.get(), "p" ),
      Maintenance::monIntfStateEnterMaint );
   EXPECT_EQ( Maintenance::monIntfStateEnterMaint, intfMon->state() );
   rig.advance( 20 );
   EXPECT_EQ( Maintenance::monIntfStateUnderMaint, intfMon->state() );
   EXPECT_EQ( 3u, rig.record( et1 )->totalSamples() );
}

} // namespace
} // namespace MaintenanceMode
