#include "MaintenancePlugin/IntfMonSm.h"

#include "MaintenancePlugin/IntfMonSmRig.h"

#include <gtest/gtest.h>

namespace MaintenanceMode {
namespace {

class IntfMonSmTest : public testing::Test, protected IntfMonSmRig {};

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
      const auto & dir = *rig.monIntfStatusDir;
      EXPECT_EQ( state == enterMaint, dir.monIntfEnterMaint( intf ) != nullptr );
      EXPECT_EQ( state == underMaint, dir.monIntfUnderMaint( intf ) != nullptr );
      EXPECT_FALSE( dir.monIntfSpikeUnderMaint( intf ) );
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

TEST_F( IntfMonSmTest, beginsToWaitForItsTrafficToGo ) {
   IntfMonSequence sequence( rig );
   rig.root->monIntfDir()->monitoredIntfIs( et1, rig.root.get(), p->name() );
   sequence.watchRecord( et1 );
   sequence.clear();
   monitor();
   EXPECT_EQ(
      ( Lines{
         "IntfMonSm::handleInitialized intf et1, initial state monIntfStateEnterMaint, profile p",
         "handleInitialized: intf et1, effectiveState monIntfStateEnterMaint",
         "IntfMonSm::handleState intf et1, state monIntfStateEnterMaint",
         "state monIntfStateEnterMaint",
         "stateTime",
         "setMonitoringTimer: intf et1, state monIntfStateEnterMaint",
         "monIntfEnterMaint + et1",
         "monitor of et1",
      } ),
      sequence.lines() );
   EXPECT_EQ( Lines{}, sequence.logged() );
   EXPECT_TRUE( sequence.traced( "IntfMonSm::handleInitialized", 4 ) );
   EXPECT_TRUE( sequence.traced( "effectiveState", 4 ) );
   EXPECT_TRUE( sequence.traced( "IntfMonSm::handleState", 4 ) );
   EXPECT_EQ( 5, due() );
}

TEST_F( IntfMonSmTest, isShutBeforeItIsUnderMaintenanceFromTheBeginning ) {
   rig.profileIs( "p", 100, 10, true, 1e9 );
   IntfMonSequence sequence( rig );
   rig.root->monIntfDir()->monitoredIntfIs( et1, rig.root.get(), p->name() );
   sequence.watchRecord( et1 );
   sequence.clear();
   monitor( underMaint );
   EXPECT_EQ(
      ( Lines{
         "IntfMonSm::handleInitialized intf et1, initial state monIntfStateUnderMaint, profile p",
         "handleInitialized: intf et1, effectiveState monIntfStateUnderMaint",
         "doMaintenanceShutdown: intfId et1 shutting down because traffic has drained",
         "shut et1",
         "IntfMonSm::handleState intf et1, state monIntfStateUnderMaint",
         "state monIntfStateUnderMaint",
         "stateTime",
         "setMonitoringTimer: intf et1, state monIntfStateUnderMaint",
         "monIntfUnderMaint + et1",
         "monitor of et1",
      } ),
      sequence.lines() );
   EXPECT_EQ( ( Lines{ "maint-down for intf et1" } ), sequence.logged() );
   EXPECT_EQ( never, due() );
}

TEST_F( IntfMonSmTest, isInitializedOnceItsStateIsPublished ) {
   struct Observer {
      struct VelRecord final : Vel::ReactorTo< Observer, Maintenance::MonIntfStatus > {
         using ReactorTo::ReactorTo;
         void onState() override { sm()->initialized = sm()->intfMon->initialized(); }
      };
      Vel::Ptr< IntfMonSm > intfMon;
      bool initialized = true;
      Vel::Watch< VelRecord > record;
   } observer;
   auto * sampler = rig.root->monIntfDir()->monitoredIntfIs( et1, rig.root.get(), "p" );
   observer.intfMon = Vel::make< IntfMonSm >(
      et1, rig.root->timerWheel(), Vel::Ptr< const Profile >( p ), rig.root.get(),
      Vel::Ptr< MonitoredIntf >( sampler ), enterMaint );
   observer.record.is( Vel::Ptr( &record() ), &observer ).hasNotificationActiveIs( true );
   observer.intfMon->handleInitialized();
   EXPECT_FALSE( observer.initialized );
   EXPECT_TRUE( observer.intfMon->initialized() );
}

/// The profile under which it was recorded does not matter.
TEST_F( IntfMonSmTest, resumesUnderMaintenanceWithoutEnteringAgain ) {
   auto * record = rig.monIntfStatusDir->monIntfStatusIs( et1, "old", rig.now() - 100 );
   record->stateIs( underMaint );
   record->stateTimeIs( 17 );
   IntfMonSequence sequence( rig );
   sequence.watchRecord( et1 );
   const IntfMonSm & intfMon = monitor();
   EXPECT_EQ(
      ( Lines{
         "sampler of et1",
         "IntfMonSm::handleInitialized intf et1, initial state monIntfStateEnterMaint, profile p",
         "handleInitialized: intf et1, effectiveState monIntfStateUnderMaint",
         "IntfMonSm::handleState intf et1, state monIntfStateUnderMaint",
         "setMonitoringTimer: intf et1, state monIntfStateUnderMaint",
         "monIntfUnderMaint + et1",
         "monitor of et1",
      } ),
      sequence.lines() );
   EXPECT_EQ( "p", intfMon.oldProfileName() );
   EXPECT_EQ( 17, record->stateTime() );
   EXPECT_FALSE( entering() || spiking() );
   EXPECT_EQ( 10, due() );
   EXPECT_EQ( Times( { 10, 20 } ), sampleTimes( 20 ) );
}

TEST_F( IntfMonSmTest, isInitializedOnce ) {
   IntfMonSm & intfMon = monitor();
   IntfMonSequence sequence( rig );
   EXPECT_EQ( "!initialized()", Vel::failedAssertion( [&] { intfMon.handleInitialized(); } ) );
   EXPECT_EQ( Lines{}, sequence.lines() );
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
         EXPECT_EQ( state == enterMaint ? 5 : state == underMaint ? 10 : never, due() );
         EXPECT_EQ( state, record().state() );
         EXPECT_EQ( 17, record().stateTime() );
         EXPECT_EQ( rig.now() - 100, record().startTime() );
         EXPECT_EQ( 7u, record().totalSamples() );
         EXPECT_EQ( 1u, record().numConsecutiveDrainedSamples() );
         rig.root->monIntfDir()->monitoredIntfDel( et1 );
         rig.root->intfMonDel( et1 );
      }
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
   IntfMonSequence sequence( rig );
   EXPECT_EQ( underMaint, monitor().state() );
   EXPECT_EQ(
      ( Lines{
         "sampler of et1",
         "IntfMonSm::handleInitialized intf et1, initial state monIntfStateEnterMaint, profile p",
         "handleInitialized: intf et1, effectiveState monIntfStateStopped",
         "doMaintenanceShutdown: intfId et1 shutting down because max-delay of 30 seconds has elapsed (30)",
         "shut et1",
         "IntfMonSm::handleState intf et1, state monIntfStateUnderMaint",
         "setMonitoringTimer: intf et1, state monIntfStateUnderMaint",
         "monIntfUnderMaint + et1",
         "monitor of et1",
      } ),
      sequence.lines() );
   EXPECT_EQ( never, due() );
}

TEST_F( IntfMonSmTest, isShutAtOnceIfItsProfileAllowsNoDelay ) {
   rig.profileIs( "p", 100, 10, true, 0 );
   rig.trafficIs( et1, busy );
   IntfMonSequence sequence( rig );
   EXPECT_EQ( underMaint, monitor().state() );
   EXPECT_EQ(
      ( Lines{
         "record of et1",
         "sampler of et1",
         "IntfMonSm::handleInitialized intf et1, initial state monIntfStateEnterMaint, profile p",
         "handleInitialized: intf et1, effectiveState monIntfStateEnterMaint",
         "doMaintenanceShutdown: intfId et1 shutting down because max-delay of 0 seconds has elapsed (0)",
         "shut et1",
         "IntfMonSm::handleState intf et1, state monIntfStateUnderMaint",
         "setMonitoringTimer: intf et1, state monIntfStateUnderMaint",
         "monIntfUnderMaint + et1",
         "monitor of et1",
      } ),
      sequence.lines() );
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

/// What is published for others is not missed where there is no place for it.
TEST( IntfMonSmWithoutRecords, watchesWithARecordOfItsOwn ) {
   PluginRig rig;
   rig.monIntfStatusDir = nullptr;
   const auto et1 = PluginRig::port( "et1" );
   rig.linkIs( et1 );
   rig.trafficIs( et1, { 1e6, 1e6 } );
   const Vel::Ptr< const IntfMaintenanceProfile::Status > p( rig.profileIs( "p", 100, 10, false, 0 ) );
   rig.start();
   auto * sampler = rig.root->monIntfDir()->monitoredIntfIs( et1, rig.root.get(), "p" );
   const auto record = Vel::make< Maintenance::MonIntfStatus >( et1, "p", rig.now() );
   sampler->monIntfStatusIs( record );
   rig.root->intfMonIs(
      et1, rig.root->timerWheel(), p, rig.root.get(), sampler, Maintenance::monIntfStateUnderMaint );
   rig.advance( 10 );
   EXPECT_EQ( Maintenance::monIntfStateUnderMaint, record->state() );
   EXPECT_EQ( 1u, record->numSamplesAboveThresholdPostMaint() );
   EXPECT_TRUE( record->spikeUnderMaint() );
}

// ---- states

TEST_F( IntfMonSmTest, publishesAStateThenItsTimeThenSetsItsTimerThenItsSets ) {
   IntfMonSm & intfMon = monitor();
   rig.advance( 3 );
   IntfMonSequence sequence( rig );
   sequence.watchRecord( et1 );
   intfMon.stateIs( underMaint );
   EXPECT_EQ(
      ( Lines{
         "IntfMonSm::handleState intf et1, state monIntfStateUnderMaint",
         "state monIntfStateUnderMaint",
         "stateTime",
         "setMonitoringTimer: intf et1, state monIntfStateUnderMaint",
         "monIntfEnterMaint - et1",
         "monIntfUnderMaint + et1",
      } ),
      sequence.lines() );
   EXPECT_EQ( underMaint, record().state() );
   EXPECT_EQ( rig.now(), record().stateTime() );
   EXPECT_EQ( 10, due() );
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
   IntfMonSm & intfMon = monitor();
   record().spikeUnderMaintIs( true );
   IntfMonSequence sequence( rig );
   intfMon.stateIs( underMaint );
   EXPECT_EQ(
      ( Lines{
         "IntfMonSm::handleState intf et1, state monIntfStateUnderMaint",
         "setMonitoringTimer: intf et1, state monIntfStateUnderMaint",
         "monIntfEnterMaint - et1",
         "monIntfUnderMaint + et1",
         "monIntfSpikeUnderMaint + et1",
      } ),
      sequence.lines() );
}

TEST_F( IntfMonSmTest, isAmongTheSpikesOnlyUnderMaintenance ) {
   recorded( enterMaint, rig.now() ).spikeUnderMaintIs( true );
   monitor();
   EXPECT_FALSE( spiking() );
}

TEST_F( IntfMonSmTest, staysInItsSetsWhenItIsStopped ) {
   IntfMonSm & intfMon = monitor();
   for ( const State state : { enterMaint, underMaint } ) {
      SCOPED_TRACE( Vel::text( state ) );
      intfMon.stateIs( state );
      rig.monIntfStatusDir->monIntfSpikeUnderMaintIs( et1, true );
      rig.advance( 1 );
      IntfMonSequence sequence( rig );
      sequence.watchRecord( et1 );
      intfMon.stateIs( stopped );
      EXPECT_EQ(
         ( Lines{
            "IntfMonSm::handleState intf et1, state monIntfStateStopped",
            "state monIntfStateStopped",
            "stateTime",
            "setMonitoringTimer: intf et1, state monIntfStateStopped",
         } ),
         sequence.lines() );
      EXPECT_EQ( rig.now(), record().stateTime() );
      EXPECT_EQ( never, due() );
      EXPECT_EQ( state == enterMaint, entering() );
      EXPECT_EQ( state == underMaint, under() );
      EXPECT_TRUE( spiking() );
   }
   intfMon.stateIs( enterMaint );
   EXPECT_TRUE( entering() && under() && spiking() );
}

TEST_F( IntfMonSmTest, aStateThatItHasAlreadyDoesNothing ) {
   IntfMonSm & intfMon = monitor();
   rig.advance( 3 );
   for ( const State state : { enterMaint, underMaint } ) {
      SCOPED_TRACE( Vel::text( state ) );
      intfMon.stateIs( state );
      record().stateIs( stopped );
      rig.monIntfStatusDir->monIntfEnterMaintDel( et1 );
      rig.monIntfStatusDir->monIntfUnderMaintDel( et1 );
      const double before = due();
      rig.advance( 1 );
      IntfMonSequence sequence( rig );
      sequence.watchRecord( et1 );
      intfMon.stateIs( state );
      EXPECT_EQ( Lines{}, sequence.lines() );
      EXPECT_EQ( before - 1, due() );
   }
}

TEST_F( IntfMonSmTest, aStateThatThereIsNotIsFatal ) {
   IntfMonSm & intfMon = monitor();
   EXPECT_EQ( "0", Vel::failedAssertion( [&] { intfMon.stateIs( State( 4 ) ); } ) );
   EXPECT_EQ( State( 4 ), record().state() );
   EXPECT_EQ( "0", Vel::failedAssertion( [&] { intfMon.setMonitoringTimer(); } ) );
}

} // namespace
} // namespace MaintenanceMode
