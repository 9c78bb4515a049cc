#include "MaintenancePlugin/IntfMonSm.h"

#include "MaintenancePlugin/IntfMonSmRig.h"
#include "Platform/Vel/Trace.h"

#include <gtest/gtest.h>

namespace MaintenanceMode {
namespace {

class IntfMonSmTest : public testing::Test, protected IntfMonSmRig {
 protected:
   bool entering() { return rig.monIntfStatusDir->monIntfEnterMaint( et1 ); }
   bool under() { return rig.monIntfStatusDir->monIntfUnderMaint( et1 ); }
   bool spiking() { return rig.monIntfStatusDir->monIntfSpikeUnderMaint( et1 ); }
   /// Times of the next samples, in whole seconds from now.
   std::vector< int > sampleTimes( int seconds ) {
      std::vector< int > times;
      for ( int second = 1; second <= seconds; ++second ) {
         const auto before = samples();
         rig.advance( 1 );
         if ( samples() != before )
            times.push_back( second );
      }
      return times;
   }
};
using Times = std::vector< int >;

// ---- the beginning

TEST_F( IntfMonSmTest, beginsInItsInitialState ) {
   const double start = rig.now();
   for ( const State state : { enterMaint, underMaint } ) {
      SCOPED_TRACE( Vel::text( state ) );
      const auto & intf = state == enterMaint ? et1 : et2;
      const IntfMonSm & intfMon = monitor( intf, state );
      EXPECT_TRUE( intfMon.initialized() );
      EXPECT_EQ( state, intfMon.initialState() );
      EXPECT_EQ( state, intfMon.state() );
      EXPECT_EQ( "p", intfMon.oldProfileName() );
      EXPECT_EQ( state, rig.record( intf )->state() );
      EXPECT_EQ( start, rig.record( intf )->stateTime() );
   }
}

TEST_F( IntfMonSmTest, isIdleUntilItIsInitialized ) {
   auto * sampler = rig.root->monIntfDir()->monitoredIntfIs( et1, rig.root.get(), "p" );
   const auto intfMon = Vel::make< IntfMonSm >(
      et1, rig.root->timerWheel(), Vel::Ptr< const Profile >( p ), rig.root.get(),
      Vel::Ptr< MonitoredIntf >( sampler ), underMaint );
   EXPECT_EQ( idle, intfMon->state() );
   EXPECT_FALSE( intfMon->initialized() );
   EXPECT_EQ( "", intfMon->oldProfileName() );
   EXPECT_EQ( idle, record().state() );
}

TEST_F( IntfMonSmTest, tellsHowItBegins ) {
   recorded( underMaint, rig.now() );
   Vel::TraceCapture traces;
   monitor();
   EXPECT_TRUE( traces.has(
      "IntfMonSm::handleInitialized intf et1, initial state monIntfStateEnterMaint, profile p", 4 ) );
   EXPECT_TRUE( traces.has( "handleInitialized: intf et1, effectiveState monIntfStateUnderMaint", 4 ) );
   EXPECT_TRUE( traces.has( "IntfMonSm::handleState intf et1, state monIntfStateUnderMaint", 4 ) );
   EXPECT_TRUE( traces.has( "setMonitoringTimer: intf et1, state monIntfStateUnderMaint" ) );
}

TEST_F( IntfMonSmTest, isInitializedOnce ) {
   IntfMonSm & intfMon = monitor();
   EXPECT_EQ( "!initialized()", Vel::failedAssertion( [&] { intfMon.handleInitialized(); } ) );
}

/// Stopped included: what another unit's exit has stopped stays so across a restart.
TEST_F( IntfMonSmTest, goesOnInTheRecordedStateWhateverItIs ) {
   for ( const State state : { enterMaint, underMaint, stopped } )
      for ( const State initialState : { enterMaint, underMaint } ) {
         SCOPED_TRACE( Vel::text( state, " instead of ", initialState ) );
         recorded( state, rig.now() - 100 );
         record().stateTimeIs( 17 );
         record().totalSamplesIs( 7 );
         record().numConsecutiveDrainedSamplesIs( 1 );
         EXPECT_EQ( state, monitor( initialState ).state() );
         EXPECT_EQ( state, record().state() );
         EXPECT_EQ( 17, record().stateTime() );
         EXPECT_EQ( rig.now() - 100, record().startTime() );
         EXPECT_EQ( 7u, record().totalSamples() );
         EXPECT_EQ( 1u, record().numConsecutiveDrainedSamples() );
         rig.root->monIntfDir()->monitoredIntfDel( et1 );
         rig.root->intfMonDel( et1 );
      }
}

TEST_F( IntfMonSmTest, resumesUnderMaintenanceWithoutEnteringAgain ) {
   struct Observer {
      struct VelDir final : Vel::ReactorTo< Observer, Maintenance::MonIntfStatusDir > {
         using ReactorTo::ReactorTo;
         void onMonIntfEnterMaint( const Wire::IntfId & ) override { ++sm()->entered; }
      };
      unsigned entered = 0;
      Vel::Watch< VelDir > dir;
   } observer;
   observer.dir.is( rig.monIntfStatusDir, &observer ).hasNotificationActiveIs( true );
   recorded( underMaint, rig.now() );
   monitor();
   EXPECT_EQ( 0u, observer.entered );
   EXPECT_TRUE( under() );
   EXPECT_EQ( Times( { 10, 20 } ), sampleTimes( 20 ) );
}

TEST_F( IntfMonSmTest, thatWasStoppedIsNotSampledAfterARestart ) {
   recorded( stopped, rig.now() );
   monitor();
   EXPECT_EQ( Times(), sampleTimes( 30 ) );
   EXPECT_FALSE( entering() || under() );
}

TEST_F( IntfMonSmTest, thatWasStoppedIsShutAfterARestartOnceItsDelayIsOver ) {
   rig.profileIs( "p", 100, 10, true, 30 );
   recorded( stopped, rig.now() - 30 );
   EXPECT_EQ( underMaint, monitor().state() );
   EXPECT_TRUE( rig.shut( et1 ) );
}

TEST_F( IntfMonSmTest, isShutAtOnceIfItsProfileAllowsNoDelay ) {
   rig.profileIs( "p", 100, 10, true, 0 );
   rig.trafficIs( et1, busy );
   EXPECT_EQ( underMaint, monitor().state() );
   EXPECT_TRUE( rig.shut( et1 ) );
   EXPECT_FALSE( entering() );
   EXPECT_TRUE( under() );
   EXPECT_EQ( Times(), sampleTimes( 30 ) );
}

TEST_F( IntfMonSmTest, thatIsStillToDrainIsNotShutBeforeItsDelayIsOver ) {
   rig.profileIs( "p", 100, 10, true, 30 );
   EXPECT_EQ( enterMaint, monitor().state() );
   EXPECT_FALSE( rig.shut( et1 ) );
}

TEST_F( IntfMonSmTest, thatBeginsUnderMaintenanceIsShutAsDrained ) {
   rig.profileIs( "p", 100, 10, true, 1e9 );
   EXPECT_EQ( underMaint, monitor( underMaint ).state() );
   EXPECT_TRUE( rig.shut( et1 ) );
}

TEST_F( IntfMonSmTest, restoredUnderMaintenanceShutsAgainAsOfNow ) {
   rig.profileIs( "p", 100, 10, true, 1e9 );
   rig.cause->intfStatusIs( et1, 17 );
   recorded( underMaint, rig.now() );
   monitor();
   ASSERT_TRUE( rig.shut( et1 ) );
   EXPECT_EQ( rig.now(), *rig.cause->intfStatus( et1 ) );
}

TEST_F( IntfMonSmTest, restoredUnderMaintenanceComesBackIfItsProfileShutsNoMore ) {
   rig.cause->intfStatusIs( et1, 17 );
   recorded( underMaint, rig.now() );
   EXPECT_EQ( underMaint, monitor().state() );
   EXPECT_FALSE( rig.shut( et1 ) );
   EXPECT_EQ( Times( { 10 } ), sampleTimes( 10 ) );
}

/// Other agents rely on the record, so a world without the place for it is a mistake.
TEST( IntfMonSmWithoutRecords, isFatal ) {
   PluginRig rig;
   rig.monIntfStatusDir = nullptr;
   const auto et1 = PluginRig::port( "et1" );
   rig.linkIs( et1 );
   const Vel::Ptr< const IntfMaintenanceProfile::Status > p( rig.profileIs( "p", 100, 10, false, 0 ) );
   rig.start();
   auto * sampler = rig.root->monIntfDir()->monitoredIntfIs( et1, rig.root.get(), "p" );
   Vel::AssertionsThrow throwing;
   try {
      rig.root->intfMonIs(
         et1, rig.root->timerWheel(), p, rig.root.get(), sampler, Maintenance::monIntfStateEnterMaint );
      FAIL();
   } catch ( const Vel::AssertionFailed & failed ) {
      EXPECT_STREQ( "monIntfStatus", failed.what() );
   }
}

// ---- states

TEST_F( IntfMonSmTest, publishesAStateWithItsTime ) {
   IntfMonSm & intfMon = monitor();
   rig.advance( 3 );
   intfMon.stateIs( underMaint );
   EXPECT_EQ( underMaint, record().state() );
   EXPECT_EQ( rig.now(), record().stateTime() );
}

TEST_F( IntfMonSmTest, keepsTheTimeOfAStateThatTheRecordHasAlready ) {
   IntfMonSm & intfMon = monitor();
   record().stateIs( underMaint );
   record().stateTimeIs( 17 );
   rig.advance( 3 );
   intfMon.stateIs( underMaint );
   EXPECT_EQ( 17, record().stateTime() );
}

TEST_F( IntfMonSmTest, movesBetweenTheSetsOfInterfaces ) {
   IntfMonSm & intfMon = monitor();
   EXPECT_TRUE( entering() );
   EXPECT_FALSE( under() );
   intfMon.stateIs( underMaint );
   EXPECT_FALSE( entering() );
   EXPECT_TRUE( under() );
   EXPECT_FALSE( spiking() );
   EXPECT_TRUE( *rig.monIntfStatusDir->monIntfUnderMaint( et1 ) );
}

TEST_F( IntfMonSmTest, isAmongTheSpikesAgainIfItsRecordHasOne ) {
   recorded( underMaint, rig.now() ).spikeUnderMaintIs( true );
   monitor();
   EXPECT_TRUE( spiking() );
}

TEST_F( IntfMonSmTest, isAmongTheSpikesOnlyUnderMaintenance ) {
   recorded( enterMaint, rig.now() ).spikeUnderMaintIs( true );
   monitor();
   EXPECT_FALSE( spiking() );
}

TEST_F( IntfMonSmTest, staysInItsSetsWhenItIsStopped ) {
   IntfMonSm & enteringMon = monitor();
   enteringMon.stateIs( stopped );
   EXPECT_TRUE( entering() );
   EXPECT_FALSE( under() );
   enteringMon.stateIs( underMaint );
   rig.monIntfStatusDir->monIntfSpikeUnderMaintIs( et1, true );
   enteringMon.stateIs( stopped );
   EXPECT_TRUE( under() );
   EXPECT_TRUE( spiking() );
   enteringMon.stateIs( enterMaint );
   EXPECT_TRUE( entering() );
   EXPECT_TRUE( under() );
   EXPECT_TRUE( spiking() );
}

TEST_F( IntfMonSmTest, aStateThatItHasAlreadyDoesNothing ) {
   IntfMonSm & intfMon = monitor();
   record().stateIs( stopped );
   rig.advance( 3 );
   Vel::TraceCapture traces;
   intfMon.stateIs( enterMaint );
   EXPECT_TRUE( traces.lines().empty() );
   EXPECT_EQ( stopped, record().state() );
   EXPECT_EQ( Times( { 2, 7 } ), sampleTimes( 9 ) );
}

TEST_F( IntfMonSmTest, aStateThatThereIsNotIsFatal ) {
   IntfMonSm & intfMon = monitor();
   EXPECT_EQ( "0", Vel::failedAssertion( [&] { intfMon.stateIs( State( 4 ) ); } ) );
   EXPECT_EQ( State( 4 ), record().state() );
   EXPECT_EQ( "0", Vel::failedAssertion( [&] { intfMon.setMonitoringTimer(); } ) );
}

// ---- the timer

TEST_F( IntfMonSmTest, isSampledEveryFiveSecondsUntilItHasDrained ) {
   rig.trafficIs( et1, busy );
   monitor();
   EXPECT_EQ( Times( { 5, 10, 15, 20 } ), sampleTimes( 20 ) );
}

TEST_F( IntfMonSmTest, isSampledEveryTenSecondsUnderMaintenance ) {
   rig.trafficIs( et1, busy );
   monitor( underMaint );
   EXPECT_EQ( Times( { 10, 20, 30 } ), sampleTimes( 30 ) );
}

TEST_F( IntfMonSmTest, countsItsPeriodsFromTheChangeOfItsState ) {
   rig.trafficIs( et1, busy );
   IntfMonSm & intfMon = monitor();
   rig.advance( 3 );
   intfMon.stateIs( underMaint );
   EXPECT_EQ( Times( { 10 } ), sampleTimes( 12 ) );
   intfMon.stateIs( enterMaint );
   EXPECT_EQ( Times( { 5, 10 } ), sampleTimes( 10 ) );
}

TEST_F( IntfMonSmTest, isNotSampledWhileItIsShut ) {
   IntfMonSm & intfMon = monitor();
   rig.cause->intfStatusIs( et1, rig.now() );
   intfMon.stateIs( underMaint );
   EXPECT_EQ( Times(), sampleTimes( 30 ) );
   // Nobody watches the entries: one that somebody else removes is seen with the next decision.
   rig.cause->intfStatusDel( et1 );
   EXPECT_EQ( Times(), sampleTimes( 30 ) );
   intfMon.setMonitoringTimer();
   EXPECT_EQ( Times( { 10, 20 } ), sampleTimes( 25 ) );
}

TEST_F( IntfMonSmTest, isNotSampledOnceItIsStopped ) {
   IntfMonSm & intfMon = monitor();
   intfMon.stateIs( stopped );
   EXPECT_EQ( Times(), sampleTimes( 30 ) );
}

TEST_F( IntfMonSmTest, whenItBecomesIdleItsTimerStaysAsItWas ) {
   IntfMonSm & intfMon = monitor();
   rig.advance( 1 );
   intfMon.stateIs( idle );
   rig.advance( 3 );
   EXPECT_EQ( "0", Vel::failedAssertion( [&] { rig.advance( 1 ); } ) );
}

TEST_F( IntfMonSmTest, aSampleInAStateWithoutATimerIsFatal ) {
   IntfMonSm & intfMon = monitor();
   for ( const State state : { idle, stopped } ) {
      SCOPED_TRACE( Vel::text( state ) );
      intfMon.stateIs( state );
      const auto before = samples();
      EXPECT_EQ( "0", Vel::failedAssertion( [&] { intfMon.handleTimeout(); } ) );
      EXPECT_EQ( before + 1, samples() );
   }
}

TEST_F( IntfMonSmTest, whoIsStoppedByAnotherOfTheSameTickIsNotSampled ) {
   struct Observer {
      struct VelDrained final : Vel::ReactorTo< Observer, UnitIntfInput > {
         using ReactorTo::ReactorTo;
         void onIntf( const Wire::IntfId & ) override { sm()->other->stateIs( stopped ); }
      };
      IntfMonSm * other;
      Vel::Watch< VelDrained > drained;
   } observer;
   rig.profileIs( "p", 100, 0, false, 0 );
   monitor( et1, enterMaint );
   observer.other = &monitor( et2, enterMaint );
   observer.drained.is( &dependentUnit( "u1" ), &observer ).hasNotificationActiveIs( true );
   rig.advance( 5 );
   EXPECT_EQ( underMaint, record().state() );
   EXPECT_EQ( 0u, rig.record( et2 )->totalSamples() );
}

TEST_F( IntfMonSmTest, isNotSampledWhileItIsSwitchedOff ) {
   rig.trafficIs( et1, busy );
   IntfMonSm & intfMon = monitor();
   intfMon.hasNotificationActiveIs( false );
   EXPECT_EQ( Times(), sampleTimes( 3 ) );
   intfMon.hasNotificationActiveIs( true );
   EXPECT_EQ( Times( { 2, 7 } ), sampleTimes( 10 ) );
}

TEST_F( IntfMonSmTest, movesToAnotherWheelWithItsTime ) {
   rig.trafficIs( et1, busy );
   IntfMonSm & intfMon = monitor();
   rig.advance( 1 );
   const auto other = Vel::make< Cog::TimerWheel >( rig.clock, 1000, 1800, true, 1024 );
   intfMon.clockIs( other );
   EXPECT_EQ( other, intfMon.clock() );
   EXPECT_EQ( Times( { 4, 9 } ), sampleTimes( 9 ) );
   EXPECT_EQ( rig.now() + 5, other->dueTime() );
   intfMon.clockIs( rig.root->timerWheel() );
   EXPECT_EQ( Cog::Timer::never, other->dueTime() );
   EXPECT_EQ( Times( { 5 } ), sampleTimes( 5 ) );
}

TEST_F( IntfMonSmTest, isNotSampledWithoutAWheel ) {
   IntfMonSm & intfMon = monitor();
   intfMon.clockIs( nullptr );
   intfMon.stateIs( underMaint );
   EXPECT_EQ( Times(), sampleTimes( 30 ) );
}

// ---- samples

TEST_F( IntfMonSmTest, tellsOfEachSample ) {
   monitor();
   Vel::TraceCapture traces;
   rig.advance( 5 );
   EXPECT_EQ( 1u, traces.count( "handleTimeout: intf et1", 9 ) );
}

TEST_F( IntfMonSmTest, looksAtTheRatesOfThisSample ) {
   rig.trafficIs( et1, busy );
   monitor();
   rig.advance( 5 );
   EXPECT_EQ( 1e6, record().curRates().inBitsRate );
   EXPECT_EQ( 1u, record().numSamplesAboveThresholdPreMaint() );
   rig.trafficIs( et1, quiet );
   rig.advance( 5 );
   EXPECT_EQ( 0, record().curRates().inBitsRate );
   EXPECT_EQ( 1u, record().numSamplesBelowThresholdPreMaint() );
}

/// So that a unit is complete before the record says that its last interface is under maintenance.
TEST_F( IntfMonSmTest, tellsItsUnitsThatItHasDrainedBeforeItPublishesIt ) {
   struct Observer {
      struct VelDrained final : Vel::ReactorTo< Observer, UnitIntfInput > {
         using ReactorTo::ReactorTo;
         void onIntf( const Wire::IntfId & intf ) override {
            sm()->recordedState = sm()->rig.record( intf )->state();
            sm()->entering = sm()->rig.monIntfStatusDir->monIntfEnterMaint( intf );
         }
      };
      PluginRig & rig;
      State recordedState = idle;
      bool entering = false;
      Vel::Watch< VelDrained > drained;
   } observer{ rig, idle, false, {} };
   rig.profileIs( "p", 100, 0, false, 0 );
   monitor();
   observer.drained.is( &dependentUnit( "u1" ), &observer ).hasNotificationActiveIs( true );
   rig.advance( 5 );
   EXPECT_EQ( enterMaint, observer.recordedState );
   EXPECT_TRUE( observer.entering );
   EXPECT_EQ( underMaint, record().state() );
   EXPECT_EQ( rig.now(), record().stateTime() );
   EXPECT_EQ( 1u, samples() );
}

TEST_F( IntfMonSmTest, thatHasNotDrainedStaysAsItIs ) {
   rig.trafficIs( et1, busy );
   monitor();
   UnitIntfInput & drained = dependentUnit( "u1" );
   rig.advance( 60 );
   EXPECT_EQ( enterMaint, record().state() );
   EXPECT_EQ( 0u, drained.intfs() );
   EXPECT_EQ( 12u, samples() );
}

TEST_F( IntfMonSmTest, isShutWhenItHasDrainedIfItsProfileSaysSo ) {
   rig.profileIs( "p", 100, 10, true, 1e9 );
   monitor();
   rig.advance( 10 );
   EXPECT_EQ( underMaint, record().state() );
   EXPECT_TRUE( rig.shut( et1 ) );
   EXPECT_EQ( Times(), sampleTimes( 30 ) );
}

TEST_F( IntfMonSmTest, thatHasDrainedWithoutBeingShutIsSampledOn ) {
   monitor();
   rig.advance( 10 );
   EXPECT_EQ( underMaint, record().state() );
   EXPECT_FALSE( rig.shut( et1 ) );
   EXPECT_EQ( Times( { 10, 20 } ), sampleTimes( 20 ) );
}

TEST_F( IntfMonSmTest, isShutBusyAtTheFirstSampleAfterItsDelayAndCountsAsDrained ) {
   rig.profileIs( "p", 100, 10, true, 12 );
   rig.trafficIs( et1, busy );
   monitor();
   UnitIntfInput & drained = dependentUnit( "u1" );
   rig.advance( 14 );
   EXPECT_EQ( enterMaint, record().state() );
   rig.advance( 1 );
   EXPECT_EQ( underMaint, record().state() );
   EXPECT_TRUE( rig.shut( et1 ) );
   EXPECT_TRUE( drained.intf( et1 ) );
   // Nothing samples it any more, so its last rates stay.
   rig.advance( 60 );
   EXPECT_EQ( 1e6, record().curRates().inBitsRate );
   EXPECT_EQ( 1e6, rig.unit( "u1" ).aggTrafficRate().inRate );
}

TEST_F( IntfMonSmTest, thatMustNotStayShutIsBroughtBackAtTheNextSample ) {
   rig.trafficIs( et1, busy );
   monitor();
   rig.cause->intfStatusIs( et1, rig.now() );
   rig.advance( 5 );
   EXPECT_FALSE( rig.shut( et1 ) );
   EXPECT_EQ( enterMaint, record().state() );
}

TEST_F( IntfMonSmTest, marksASpikeUnderMaintenanceForGood ) {
   monitor( underMaint );
   rig.advance( 10 );
   EXPECT_FALSE( record().spikeUnderMaint() );
   EXPECT_FALSE( spiking() );
   rig.trafficIs( et1, busy );
   rig.advance( 10 );
   EXPECT_TRUE( record().spikeUnderMaint() );
   EXPECT_TRUE( spiking() );
   rig.trafficIs( et1, quiet );
   rig.advance( 60 );
   EXPECT_TRUE( record().spikeUnderMaint() );
   EXPECT_TRUE( spiking() );
   EXPECT_EQ( underMaint, record().state() );
   EXPECT_EQ( 1u, record().numSamplesAboveThresholdPostMaint() );
}

TEST_F( IntfMonSmTest, marksASpikeBeforeItsUnitsAreTold ) {
   struct Observer {
      struct VelUnit final : Vel::ReactorTo< Observer, Maintenance::Unit::Status > {
         using ReactorTo::ReactorTo;
         void onIntfsViolatingTrafficThreshold( const Wire::IntfId & intf ) override {
            sm()->marked = sm()->rig.record( intf )->spikeUnderMaint() &&
                           sm()->rig.monIntfStatusDir->monIntfSpikeUnderMaint( intf );
         }
      };
      PluginRig & rig;
      bool marked = false;
      Vel::Watch< VelUnit > unit;
   } observer{ rig, false, {} };
   rig.trafficIs( et1, busy );
   monitor( underMaint );
   dependentUnit( "u1" );
   rig.entered( "u1" );
   observer.unit.is( &rig.unit( "u1" ), &observer ).hasNotificationActiveIs( true );
   rig.advance( 10 );
   EXPECT_TRUE( observer.marked );
}

TEST_F( IntfMonSmTest, decidesNothingUnderMaintenanceAboutBeingShut ) {
   monitor( underMaint );
   rig.advance( 5 );
   // While it is switched off it does not see its profile change.
   rig.root->intfMon( et1 )->hasNotificationActiveIs( false );
   p->shutdownIs( true );
   rig.root->intfMon( et1 )->hasNotificationActiveIs( true );
   rig.advance( 30 );
   EXPECT_FALSE( rig.shut( et1 ) );
   EXPECT_EQ( 3u, samples() );
}

// ---- without a profile

TEST_F( IntfMonSmTest, isSampledButNotJudgedWhileItHasNoProfile ) {
   for ( const State state : { enterMaint, underMaint } ) {
      SCOPED_TRACE( Vel::text( state ) );
      const auto & intf = state == enterMaint ? et1 : et2;
      rig.trafficIs( intf, busy );
      IntfMonSm & intfMon = monitor( intf, state );
      UnitIntfInput & drained = dependentUnit( "u1", intf );
      rig.entered( "u1" );
      rig.cause->intfStatusIs( intf, 17 );
      intfMon.intfProfileIs( nullptr );
      rig.advance( state == enterMaint ? 5 : 10 );
      const auto & record = *rig.record( intf );
      EXPECT_EQ( 1u, record.totalSamples() );
      EXPECT_EQ( 1e6, record.curRates().inBitsRate );
      EXPECT_EQ(
         0u, record.numSamplesAboveThresholdPreMaint() + record.numSamplesBelowThresholdPreMaint() +
                record.numSamplesAboveThresholdPostMaint() + record.numSamplesBelowThresholdPostMaint() );
      EXPECT_EQ( state, intfMon.state() );
      EXPECT_FALSE( record.spikeUnderMaint() );
      EXPECT_EQ( 0u, drained.intfs() );
      EXPECT_EQ( 0u, rig.unit( "u1" ).intfsViolatingTrafficThresholds() );
      EXPECT_EQ( 17, *rig.cause->intfStatus( intf ) );
   }
}

TEST_F( IntfMonSmTest, keepsItsPeriodWhileItHasNoProfileAndGoesOnWhenOneArrives ) {
   IntfMonSm & intfMon = monitor();
   intfMon.intfProfileIs( nullptr );
   EXPECT_EQ( Times( { 5, 10, 15 } ), sampleTimes( 17 ) );
   intfMon.intfProfileIs( Vel::Ptr< const Profile >( p ) );
   EXPECT_EQ( Times( { 5, 10 } ), sampleTimes( 10 ) );
   EXPECT_EQ( underMaint, record().state() );
   EXPECT_EQ( 5u, samples() );
   EXPECT_EQ( 2u, record().numConsecutiveDrainedSamples() );
}

TEST_F( IntfMonSmTest, beginsWithoutAProfileInItsInitialState ) {
   auto * sampler = rig.root->monIntfDir()->monitoredIntfIs( et1, rig.root.get(), "" );
   const auto intfMon =
      rig.root->intfMonIs( et1, rig.root->timerWheel(), nullptr, rig.root.get(), sampler, enterMaint );
   EXPECT_EQ( enterMaint, intfMon->state() );
   EXPECT_EQ( "", intfMon->oldProfileName() );
}

} // namespace
} // namespace MaintenanceMode
