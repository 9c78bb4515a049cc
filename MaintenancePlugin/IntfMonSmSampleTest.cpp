#include "MaintenancePlugin/IntfMonSm.h"

#include "MaintenancePlugin/IntfMonSmRig.h"

#include <gtest/gtest.h>

namespace MaintenanceMode {
namespace {

/// When an interface monitor takes its samples, and what comes of one.
class IntfMonSmSample : public testing::Test, protected IntfMonSmRig {
 protected:
   /// What hasTrafficDrained() tells of a sample of the first interface.
   Lines verdict( bool drained, unsigned run, unsigned total, unsigned seconds, double rate = 0 ) {
      return {
         Vel::text( "hasTrafficDrained: intf et1, traffic drained - ", Vel::boolText( drained ) ),
         Vel::text(
            "hasTrafficDrained:     threshold ", 100000.0, ", cur inBitsRates ", rate, ", cur outBitsRates ",
            rate ),
         Vel::text( "hasTrafficDrained:     numConsecutiveDrainedSamples ", run, ", totalSamples ", total ),
         Vel::text(
            "hasTrafficDrained:     startTime ", record().startTime(), ", drainInterval ", seconds,
            ", drainWatchLoadInterval ", p->drainWatchLoadInterval() ),
      };
   }
   /// What the change to UnderMaint shows as.
   static Lines becomesUnderMaint() {
      return {
         "IntfMonSm::handleState intf et1, state monIntfStateUnderMaint",
         "state monIntfStateUnderMaint",
         "stateTime",
         "setMonitoringTimer: intf et1, state monIntfStateUnderMaint",
         "monIntfEnterMaint - et1",
         "monIntfUnderMaint + et1",
      };
   }
   /// What the monitor and everything around it do until then, with the unit "u1".
   Lines seenAfter( double seconds ) {
      IntfMonSequence sequence( rig );
      sequence.watchRecord( et1 );
      sequence.watchUnit( "u1" );
      rig.advance( seconds );
      logged = sequence.logged();
      return sequence.lines();
   }
   Lines logged;
};

// ---- the timer

TEST_F( IntfMonSmSample, itsTimerIsSetByItsState ) {
   struct Case {
      State state;
      bool shut;
      double due; ///< seconds from now
   };
   IntfMonSm & intfMon = monitor();
   // Ticks are whole seconds: a period shows to the fraction if it is set at two places of a second.
   for ( const double ahead : { 0.0, 0.75 } ) {
      if ( ahead != 0 )
         rig.advance( 1 - ahead );
      for ( const Case & c : {
               Case{ idle, false, 3 + ahead },
               Case{ idle, true, 3 + ahead },
               Case{ enterMaint, false, 5 + ahead },
               Case{ enterMaint, true, 5 + ahead },
               Case{ underMaint, false, 10 + ahead },
               Case{ underMaint, true, never },
               Case{ stopped, false, never },
               Case{ stopped, true, never },
            } ) {
         SCOPED_TRACE( Vel::text( c.state, c.shut ? ", shut" : "", ", ", ahead, " before a tick" ) );
         intfMon.stateIs( c.state );
         intfMon.setThresholdMonitoringTimeout();
         rig.advance( 2 );
         rig.cause->intfStatusDel( et1 );
         if ( c.shut )
            rig.cause->intfStatusIs( et1, 17 );
         IntfMonSequence sequence( rig );
         intfMon.setMonitoringTimer();
         EXPECT_EQ(
            ( Lines{ Vel::text( "setMonitoringTimer: intf et1, state ", c.state ) } ), sequence.lines() );
         EXPECT_EQ( c.due, due() );
      }
   }
}

TEST_F( IntfMonSmSample, isSampledEveryFiveSecondsUntilItHasDrained ) {
   rig.trafficIs( et1, busy );
   monitor();
   EXPECT_EQ( Times( { 5, 10, 15, 20 } ), sampleTimes( 20 ) );
}

TEST_F( IntfMonSmSample, isSampledEveryTenSecondsUnderMaintenance ) {
   rig.trafficIs( et1, busy );
   monitor( underMaint );
   EXPECT_EQ( Times( { 10, 20, 30 } ), sampleTimes( 30 ) );
}

TEST_F( IntfMonSmSample, countsItsPeriodsFromTheChangeOfItsState ) {
   rig.trafficIs( et1, busy );
   IntfMonSm & intfMon = monitor();
   rig.advance( 3 );
   intfMon.stateIs( underMaint );
   EXPECT_EQ( Times( { 10 } ), sampleTimes( 12 ) );
   intfMon.stateIs( enterMaint );
   EXPECT_EQ( Times( { 5, 10 } ), sampleTimes( 10 ) );
}

TEST_F( IntfMonSmSample, isNotSampledWhileItIsShut ) {
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

TEST_F( IntfMonSmSample, isNotSampledOnceItIsStopped ) {
   IntfMonSm & intfMon = monitor();
   intfMon.stateIs( stopped );
   EXPECT_EQ( Times(), sampleTimes( 30 ) );
}

TEST_F( IntfMonSmSample, whenItBecomesIdleItsTimerStaysAsItWas ) {
   IntfMonSm & intfMon = monitor();
   rig.advance( 1 );
   intfMon.stateIs( idle );
   rig.advance( 3 );
   EXPECT_EQ( "0", Vel::failedAssertion( [&] { rig.advance( 1 ); } ) );
}

TEST_F( IntfMonSmSample, aSampleInAStateWithoutATimerIsFatalOnceItIsTakenAndCounted ) {
   IntfMonSm & intfMon = monitor();
   for ( const State state : { idle, stopped, State( 4 ) } ) {
      SCOPED_TRACE( Vel::text( state ) );
      Vel::failedAssertion( [&] { intfMon.stateIs( state ); } );
      rig.advance( 1 );
      IntfMonSequence sequence( rig );
      sequence.watchRecord( et1 );
      EXPECT_EQ( "0", Vel::failedAssertion( [&] { intfMon.handleTimeout(); } ) );
      EXPECT_EQ(
         ( Lines{
            "handleTimeout: intf et1", "curRates", "totalSamples", "numSamplesBelowThresholdPostMaint" } ),
         sequence.lines() );
   }
}

TEST_F( IntfMonSmSample, whoIsStoppedByAnotherOfTheSameTickIsNotSampled ) {
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

TEST_F( IntfMonSmSample, isNotSampledOnceItsMonitorHasGone ) {
   monitor();
   const Vel::Ptr< MonitoredIntf > sampler( rig.root->monIntfDir()->monitoredIntf( et1 ) );
   EXPECT_EQ( 5, due() );
   rig.root->intfMonDel( et1 );
   EXPECT_EQ( never, due() );
   rig.advance( 20 );
   EXPECT_EQ( 0u, samples() );
   EXPECT_EQ( 0, record().lastSampleTime() );
}

TEST_F( IntfMonSmSample, isNotSampledWhileItIsSwitchedOff ) {
   rig.trafficIs( et1, busy );
   IntfMonSm & intfMon = monitor();
   intfMon.hasNotificationActiveIs( false );
   EXPECT_EQ( Times(), sampleTimes( 3 ) );
   intfMon.hasNotificationActiveIs( true );
   EXPECT_EQ( Times( { 2, 7 } ), sampleTimes( 10 ) );
}

TEST_F( IntfMonSmSample, movesToAnotherWheelWithItsTime ) {
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

/// Those of one tick are sampled in the order in which their timers were set.
TEST_F( IntfMonSmSample, theWheelThatItHasAlreadyLeavesItInItsPlace ) {
   IntfMonSm & first = monitor( et1, enterMaint );
   monitor( et2, enterMaint );
   first.clockIs( rig.root->timerWheel() );
   const Vel::TraceCapture traces;
   rig.advance( 5 );
   Lines sampled;
   for ( const auto & line : traces.lines() )
      if ( line.text.starts_with( "handleTimeout" ) )
         sampled.push_back( line.text );
   EXPECT_EQ( ( Lines{ "handleTimeout: intf et1", "handleTimeout: intf et2" } ), sampled );
}

TEST_F( IntfMonSmSample, isNotSampledWithoutAWheel ) {
   IntfMonSm & intfMon = monitor();
   intfMon.clockIs( nullptr );
   intfMon.stateIs( underMaint );
   EXPECT_EQ( Times(), sampleTimes( 30 ) );
}

// ---- samples

TEST_F( IntfMonSmSample, readsTheRatesThenCountsTheSampleThenDecides ) {
   rig.profileIs( "p", 100, 10, false, 0 );
   monitor();
   dependentUnit( "u1" );
   EXPECT_EQ(
      joined(
         { { "handleTimeout: intf et1", "curRates", "totalSamples", "numConsecutiveDrainedSamples",
             "numSamplesBelowThresholdPreMaint" },
           verdict( false, 1, 1, 5 ) } ),
      seenAfter( 5 ) );
   EXPECT_EQ( Lines{}, logged );
   EXPECT_EQ( 5, due() );
}

TEST_F( IntfMonSmSample, aSampleOfABusyInterfaceEndsItsQuietRun ) {
   monitor();
   dependentUnit( "u1" );
   rig.advance( 5 );
   rig.trafficIs( et1, busy );
   EXPECT_EQ(
      joined(
         { { "handleTimeout: intf et1", "curRates", "totalSamples", "numConsecutiveDrainedSamples",
             "numSamplesAboveThresholdPreMaint" },
           verdict( false, 0, 2, 0, 1e6 ) } ),
      seenAfter( 5 ) );
   EXPECT_EQ( 5, due() );
}

TEST_F( IntfMonSmSample, tellsTheLevelOfItsTraces ) {
   monitor();
   Vel::TraceCapture traces;
   rig.advance( 5 );
   EXPECT_EQ( 1u, traces.count( "handleTimeout: intf et1", 9 ) );
   EXPECT_EQ( 1u, traces.count( "hasTrafficDrained: intf et1", 4 ) );
   EXPECT_EQ( 1u, traces.count( "hasTrafficDrained:     threshold ", 9 ) );
   EXPECT_EQ( 1u, traces.count( "hasTrafficDrained:     numConsecutiveDrainedSamples ", 9 ) );
   EXPECT_EQ( 1u, traces.count( "hasTrafficDrained:     startTime ", 9 ) );
}

TEST_F( IntfMonSmSample, looksAtTheRatesOfThisSample ) {
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
TEST_F( IntfMonSmSample, tellsItsUnitsThatItHasDrainedBeforeItPublishesIt ) {
   rig.profileIs( "p", 100, 0, false, 0 );
   monitor();
   dependentUnit( "u1" );
   EXPECT_EQ(
      joined(
         { { "handleTimeout: intf et1", "curRates", "totalSamples", "numConsecutiveDrainedSamples",
             "numSamplesBelowThresholdPreMaint" },
           verdict( true, 1, 1, 5 ),
           { "notifyDependentUnits: intfMonSm( et1) notifying unit u1", "u1 drained + et1",
             "notifyDependentUnits: intfMonSm(et1) notified 1 units" },
           becomesUnderMaint() } ),
      seenAfter( 5 ) );
   EXPECT_EQ( Lines{}, logged );
   EXPECT_EQ( rig.now(), record().stateTime() );
   EXPECT_EQ( 10, due() );
}

TEST_F( IntfMonSmSample, thatHasNotDrainedStaysAsItIs ) {
   rig.trafficIs( et1, busy );
   monitor();
   UnitIntfInput & drained = dependentUnit( "u1" );
   rig.advance( 60 );
   EXPECT_EQ( enterMaint, record().state() );
   EXPECT_EQ( 0u, drained.intfs() );
   EXPECT_EQ( 12u, samples() );
}

/// It is drained that shuts it, also if the delay is over as well.
TEST_F( IntfMonSmSample, isShutWhenItHasDrainedBeforeItsUnitsAreTold ) {
   rig.profileIs( "p", 100, 10, true, 10 );
   monitor();
   dependentUnit( "u1" );
   rig.advance( 5 );
   EXPECT_EQ(
      joined(
         { { "handleTimeout: intf et1", "curRates", "totalSamples", "numConsecutiveDrainedSamples",
             "numSamplesBelowThresholdPreMaint" },
           verdict( true, 2, 2, 10 ),
           { "doMaintenanceShutdown: intfId et1 shutting down because traffic has drained", "shut et1",
             "notifyDependentUnits: intfMonSm( et1) notifying unit u1", "u1 drained + et1",
             "notifyDependentUnits: intfMonSm(et1) notified 1 units" },
           becomesUnderMaint() } ),
      seenAfter( 5 ) );
   EXPECT_EQ( ( Lines{ "maint-down for intf et1" } ), logged );
   EXPECT_EQ( rig.now(), *rig.cause->intfStatus( et1 ) );
   EXPECT_EQ( Times(), sampleTimes( 30 ) );
}

TEST_F( IntfMonSmSample, thatHasDrainedWithoutBeingShutIsSampledOn ) {
   monitor();
   rig.advance( 10 );
   EXPECT_EQ( underMaint, record().state() );
   EXPECT_FALSE( rig.shut( et1 ) );
   EXPECT_EQ( Times( { 10, 20 } ), sampleTimes( 20 ) );
}

TEST_F( IntfMonSmSample, isShutBusyAtTheFirstSampleAfterItsDelayAndCountsAsDrained ) {
   rig.profileIs( "p", 100, 10, true, 12 );
   rig.trafficIs( et1, busy );
   monitor();
   dependentUnit( "u1" );
   rig.advance( 14 );
   EXPECT_EQ( enterMaint, record().state() );
   EXPECT_FALSE( rig.shut( et1 ) );
   EXPECT_EQ(
      joined(
         { { "handleTimeout: intf et1", "curRates", "totalSamples", "numSamplesAboveThresholdPreMaint" },
           verdict( false, 0, 3, 0, 1e6 ),
           { "doMaintenanceShutdown: intfId et1 shutting down because max-delay of 12 seconds has elapsed "
             "(15)",
             "shut et1", "notifyDependentUnits: intfMonSm( et1) notifying unit u1", "u1 drained + et1",
             "notifyDependentUnits: intfMonSm(et1) notified 1 units" },
           becomesUnderMaint() } ),
      seenAfter( 1 ) );
   EXPECT_EQ( ( Lines{ "maint-down for intf et1" } ), logged );
   EXPECT_EQ( never, due() );
   // Nothing samples it any more, so its last rates stay.
   rig.advance( 60 );
   EXPECT_EQ( 1e6, record().curRates().inBitsRate );
   EXPECT_EQ( 1e6, rig.unit( "u1" ).aggTrafficRate().inRate );
}

TEST_F( IntfMonSmSample, thatMustNotStayShutIsBroughtBackAtTheNextSample ) {
   rig.trafficIs( et1, busy );
   monitor();
   dependentUnit( "u1" );
   rig.cause->intfStatusIs( et1, rig.now() );
   EXPECT_EQ(
      joined(
         { { "handleTimeout: intf et1", "curRates", "totalSamples", "numSamplesAboveThresholdPreMaint" },
           verdict( false, 0, 1, 0, 1e6 ),
           { "doMaintenanceShutdown: intf et1 bringing it out of maint-down state", "brought back et1" } } ),
      seenAfter( 5 ) );
   EXPECT_EQ( ( Lines{ "bring intf et1 out maint-down state" } ), logged );
   EXPECT_EQ( enterMaint, record().state() );
   EXPECT_EQ( 5, due() );
}

TEST_F( IntfMonSmSample, marksASpikeUnderMaintenanceForGood ) {
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

TEST_F( IntfMonSmSample, marksASpikeBeforeItsUnitsAreTold ) {
   rig.trafficIs( et1, busy );
   monitor( underMaint );
   dependentUnit( "u1" );
   rig.entered( "u1" );
   EXPECT_EQ(
      ( Lines{
         "handleTimeout: intf et1", "curRates", "totalSamples", "numSamplesAboveThresholdPostMaint",
         "spikeUnderMaint 1", "monIntfSpikeUnderMaint + et1", "u1 violating + et1", "u1 violations 1" } ),
      seenAfter( 10 ) );
   // The next one is a violation again, but nothing new for the record.
   EXPECT_EQ(
      ( Lines{
         "handleTimeout: intf et1", "curRates", "totalSamples", "numSamplesAboveThresholdPostMaint",
         "u1 violations 2" } ),
      seenAfter( 10 ) );
   rig.trafficIs( et1, quiet );
   EXPECT_EQ(
      ( Lines{
         "handleTimeout: intf et1", "curRates", "totalSamples", "numSamplesBelowThresholdPostMaint",
         "u1 violating - et1" } ),
      seenAfter( 10 ) );
   EXPECT_EQ(
      ( Lines{ "handleTimeout: intf et1", "curRates", "totalSamples", "numSamplesBelowThresholdPostMaint" } ),
      seenAfter( 10 ) );
   EXPECT_EQ( 10, due() );
}

TEST_F( IntfMonSmSample, setsItsTimerAfterItsUnitsAreTold ) {
   struct Observer {
      struct VelUnit final : Vel::ReactorTo< Observer, Maintenance::Unit::Status > {
         using ReactorTo::ReactorTo;
         void onTotalIntfTrafficViolations() override {
            sm()->dueTime = sm()->rig.root->timerWheel()->dueTime();
         }
      };
      PluginRig & rig;
      double dueTime = 0;
      Vel::Watch< VelUnit > unit;
   } observer{ rig, 0, {} };
   rig.trafficIs( et1, busy );
   monitor( underMaint );
   dependentUnit( "u1" );
   rig.entered( "u1" );
   observer.unit.is( &rig.unit( "u1" ), &observer ).hasNotificationActiveIs( true );
   rig.advance( 10 );
   EXPECT_EQ( never, observer.dueTime );
   EXPECT_EQ( 10, due() );
}

TEST_F( IntfMonSmSample, decidesNothingUnderMaintenanceAboutBeingShut ) {
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

TEST_F( IntfMonSmSample, isSampledButNotJudgedWhileItHasNoProfile ) {
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

TEST_F( IntfMonSmSample, keepsItsPeriodWhileItHasNoProfileAndGoesOnWhenOneArrives ) {
   IntfMonSm & intfMon = monitor();
   intfMon.intfProfileIs( nullptr );
   EXPECT_EQ( Times( { 5, 10, 15 } ), sampleTimes( 17 ) );
   intfMon.intfProfileIs( Vel::Ptr< const Profile >( p ) );
   EXPECT_EQ( Times( { 5, 10 } ), sampleTimes( 10 ) );
   EXPECT_EQ( underMaint, record().state() );
   EXPECT_EQ( 5u, samples() );
   EXPECT_EQ( 2u, record().numConsecutiveDrainedSamples() );
}

TEST_F( IntfMonSmSample, beginsWithoutAProfileInItsInitialState ) {
   auto * sampler = rig.root->monIntfDir()->monitoredIntfIs( et1, rig.root.get(), "" );
   IntfMonSequence sequence( rig );
   const auto intfMon =
      rig.root->intfMonIs( et1, rig.root->timerWheel(), nullptr, rig.root.get(), sampler, enterMaint );
   EXPECT_EQ(
      ( Lines{
         "IntfMonSm::handleInitialized intf et1, initial state monIntfStateEnterMaint, profile ",
         "handleInitialized: intf et1, effectiveState monIntfStateEnterMaint",
         "IntfMonSm::handleState intf et1, state monIntfStateEnterMaint",
         "setMonitoringTimer: intf et1, state monIntfStateEnterMaint",
         "monIntfEnterMaint + et1",
         "monitor of et1",
      } ),
      sequence.lines() );
   EXPECT_EQ( enterMaint, intfMon->state() );
   EXPECT_EQ( "", intfMon->oldProfileName() );
}

} // namespace
} // namespace MaintenanceMode
