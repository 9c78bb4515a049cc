#include "MaintenancePlugin/PluginRig.h"
#include "MaintenancePlugin/Recorded.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace MaintenanceMode {
namespace {

using Maintenance::Unit::UnitState;

struct DrainWatchSmRestart : testing::Test {
   PluginRig rig;
   const Wire::IntfId et1 = PluginRig::port( "et1" );
   const Wire::IntfId et2 = PluginRig::port( "et2" );
   const Wire::IntfId et3 = PluginRig::port( "et3" );

   DrainWatchSmRestart() {
      for ( const auto & intf : { et1, et2, et3 } ) {
         rig.linkIs( intf );
         rig.trafficIs( intf, { 1e9, 1e9 } );
      }
      rig.profileIs( "p", 100, 10, false, 0 );
      rig.defaultProfileIs( "p" );
   }
   /// What an earlier run has left of an interface: its record, a shutdown, its memberships.
   void leftover( const Wire::IntfId & intf ) {
      auto * record = rig.monIntfStatusDir->monIntfStatusIs( intf, "p", 1.0 );
      record->totalSamplesIs( 7 );
      rig.cause->intfStatusIs( intf, 1.0 );
      rig.monIntfStatusDir->monIntfEnterMaintIs( intf, true );
      rig.monIntfStatusDir->monIntfUnderMaintIs( intf, true );
      rig.monIntfStatusDir->monIntfSpikeUnderMaintIs( intf, true );
   }
   Maintenance::Unit::Status &
   unitIn( const Vel::String & unitName, UnitState state, const char * instanceName ) {
      auto & status = rig.unit( unitName );
      status.stateIs( state );
      status.genIdIs( 4 );
      if ( state == UnitState::exitInProgress )
         status.maintExitInstanceNameIs( instanceName );
      else
         status.maintEnterInstanceNameIs( instanceName );
      return status;
   }
   /// What the root tells of its start itself, without what it asks units and monitors to do.
   static Lines told( Sequence & sequence ) {
      Lines lines = sequence.lines();
      std::erase_if(
         lines, []( const Vel::String & line ) { return !line.starts_with( "handleInitialized: " ); } );
      return lines;
   }
   /// The same for a start that finds and releases no records, with what it tells of units.
   static Lines startWith( const Lines & ofUnits ) {
      Lines lines{
         "handleInitialized: called", "handleInitialized: marked 0 entries as stale in MonIntfStatusDir." };
      lines.insert( lines.end(), ofUnits.begin(), ofUnits.end() );
      lines.push_back( "handleInitialized: deleted 0 stale entries from MonIntfStatusDir." );
      lines.push_back( "handleInitialized: DrainWatchSm - initialized" );
      return lines;
   }
   void stageIs( PluginRig::StageClass & stageClass, const Vel::Name & instanceName, Vel::U32 stageStatus ) {
      stageClass.progressDir->progressIs( instanceName )->stageStatusIs( stageName, stageStatus );
      stageClass.completionStatus->statusIs( instanceName, Stage::stageRunning );
   }
};

TEST_F( DrainWatchSmRestart, aFirstStartFindsNothing ) {
   Sequence sequence( "DrainWatchSm", 4 );
   rig.start();
   EXPECT_EQ( startWith( {} ), told( sequence ) );
   EXPECT_EQ(
      ( Lines{
         "restart: num monIntfStatusDir entries marked as stale 0",
         "restart: deleted stale entries from monIntfStatusDir 0", "DrainWatchSm - initialized" } ),
      sequence.logged() );
}

TEST_F( DrainWatchSmRestart, whatNoRestoredUnitMonitorsIsReleased ) {
   rig.unitIs( "u1", { et1 } );
   unitIn( "u1", UnitState::maintenance, "u1#4" );
   rig.unit( "u2" ).intfsViolatingTrafficThresholdIs( et2, true );
   for ( const char * unitName : { "u1", "u2" } )
      for ( const auto & intf : { et1, et3 } )
         rig.unit( unitName ).intfsViolatingTrafficThresholdIs( intf, true );
   for ( const auto & intf : { et1, et2, et3 } )
      leftover( intf );
   rig.record( et1 )->stateIs( Maintenance::monIntfStateUnderMaint );
   Sequence sequence( "DrainWatchSm", 4 );
   rig.start();

   ASSERT_TRUE( rig.record( et1 ) );
   EXPECT_FALSE( rig.record( et1 )->stale() );
   EXPECT_EQ( 7u, rig.record( et1 )->totalSamples() );
   EXPECT_FALSE( rig.record( et2 ) );
   EXPECT_FALSE( rig.record( et3 ) );
   EXPECT_FALSE( rig.shut( et2 ) );
   EXPECT_FALSE( rig.shut( et3 ) );
   EXPECT_TRUE( rig.unit( "u1" ).intfsViolatingTrafficThreshold( et1 ) );
   EXPECT_TRUE( rig.unit( "u2" ).intfsViolatingTrafficThreshold( et1 ) );
   EXPECT_EQ( 1u, rig.unit( "u1" ).intfsViolatingTrafficThresholds() );
   EXPECT_EQ( 1u, rig.unit( "u2" ).intfsViolatingTrafficThresholds() );
   EXPECT_EQ(
      ( Lines{
         "handleInitialized: called", "handleInitialized: marked 3 entries as stale in MonIntfStatusDir.",
         "handleInitialized: Processing unit=u1 state=3",
         "handleInitialized: Unit state =3, putting this unit in maintenance ",
         "handleInitialized: Processing unit=u2 state=1",
         "handleInitialized: deleted stale MonIntfStatusDir entry for intf et2",
         "handleInitialized: deleted stale MonIntfStatusDir entry for intf et3",
         "handleInitialized: deleted 2 stale entries from MonIntfStatusDir.",
         "handleInitialized: DrainWatchSm - initialized" } ),
      told( sequence ) );
}

/// Of each interface the record goes first: nobody may take a released interface for a monitored one.
TEST_F( DrainWatchSmRestart, aStaleRecordGoesBeforeItsShutdownAndThatBeforeItsViolations ) {
   leftover( et1 );
   leftover( et2 );
   for ( const auto & intf : { et1, et2 } )
      rig.unit( "u1" ).intfsViolatingTrafficThresholdIs( intf, true );
   Sequence seen( "DrainWatchSm", 4 );
   struct VelRecords final : Vel::ReactorTo< Sequence, Maintenance::MonIntfStatusDir > {
      using ReactorTo::ReactorTo;
      void onMonIntfStatus( const Wire::IntfId & intf ) override { sm()->note( "record ", intf ); }
   };
   struct VelCause final : Vel::ReactorTo< Sequence, Errdisable::CauseStatus > {
      using ReactorTo::ReactorTo;
      void onIntfStatus( const Wire::IntfId & intf ) override { sm()->note( "shutdown ", intf ); }
   };
   struct VelUnit final : Vel::ReactorTo< Sequence, Maintenance::Unit::Status > {
      using ReactorTo::ReactorTo;
      void onIntfsViolatingTrafficThreshold( const Wire::IntfId & intf ) override {
         sm()->note( "violation ", intf );
      }
   };
   Vel::Watch< VelRecords > records;
   Vel::Watch< VelCause > cause;
   Vel::Watch< VelUnit > unit;
   records.is( rig.monIntfStatusDir, &seen ).hasNotificationActiveIs( true );
   cause.is( rig.cause, &seen ).hasNotificationActiveIs( true );
   unit.is( &rig.unit( "u1" ), &seen ).hasNotificationActiveIs( true );
   rig.begin();
   EXPECT_EQ(
      ( Lines{
         "handleInitialized: called", "handleInitialized: marked 2 entries as stale in MonIntfStatusDir.",
         "handleInitialized: Processing unit=u1 state=1", "record et1",
         "handleInitialized: deleted stale MonIntfStatusDir entry for intf et1", "shutdown et1",
         "violation et1", "record et2",
         "handleInitialized: deleted stale MonIntfStatusDir entry for intf et2", "shutdown et2",
         "violation et2", "handleInitialized: deleted 2 stale entries from MonIntfStatusDir.",
         "handleInitialized: DrainWatchSm - initialized" } ),
      seen.lines() );
}

/// What adopts a record clears its mark, so all are marked before the first unit is taken up.
TEST_F( DrainWatchSmRestart, everyRecordIsMarkedAndTheSetsAreEmptyBeforeTheFirstUnitIsTakenUp ) {
   rig.unitIs( "u1", { et1 } );
   unitIn( "u1", UnitState::maintenance, "u1#4" );
   leftover( et1 );
   leftover( et2 );
   struct Seen {
      const PluginRig & rig;
      Vel::String found;
   } seen{ rig, {} };
   struct VelRecord final : Vel::ReactorTo< Seen, Maintenance::MonIntfStatus > {
      using ReactorTo::ReactorTo;
      void onStale() override {
         const auto & dir = *sm()->rig.monIntfStatusDir;
         if ( !entity()->stale() )
            sm()->found = Vel::text(
               sm()->rig.record( PluginRig::port( "et2" ) )->stale(), dir.monIntfEnterMaints(),
               dir.monIntfUnderMaints(), dir.monIntfSpikeUnderMaints() );
      }
   };
   Vel::Watch< VelRecord > watch;
   watch.is( rig.record( et1 ), &seen ).hasNotificationActiveIs( true );
   rig.start();
   EXPECT_EQ( "1000", seen.found );
}

TEST_F( DrainWatchSmRestart, theSetsOfInterfacesAreThoseOfTheRestoredMonitors ) {
   rig.unitIs( "u1", { et1 } );
   unitIn( "u1", UnitState::maintenance, "u1#4" );
   leftover( et1 );
   leftover( et2 );
   rig.record( et1 )->stateIs( Maintenance::monIntfStateUnderMaint );
   rig.start();
   const auto & dir = *rig.monIntfStatusDir;
   EXPECT_EQ( 0u, dir.monIntfEnterMaints() );
   EXPECT_EQ( 1u, dir.monIntfUnderMaints() );
   EXPECT_TRUE( dir.monIntfUnderMaint( et1 ) );
   EXPECT_EQ( 0u, dir.monIntfSpikeUnderMaints() );
}

TEST_F( DrainWatchSmRestart, aUnitInMaintenanceIsTakenUpWithoutALookAtItsStage ) {
   rig.unitIs( "u1", { et1 } );
   unitIn( "u1", UnitState::maintenance, "u1#4" );
   Sequence sequence( "DrainWatchSm", 4 );
   rig.start();
   ASSERT_TRUE( rig.root->unitMon( "u1" ) );
   EXPECT_EQ( 4u, rig.root->unitMon( "u1" )->genId() );
   EXPECT_EQ( 1u, rig.root->unitMon( "u1" )->drainedIntf()->intfs() );
   EXPECT_EQ(
      startWith(
         { "handleInitialized: Processing unit=u1 state=3",
           "handleInitialized: Unit state =3, putting this unit in maintenance " } ),
      told( sequence ) );
   // Then as if the framework had just asked for the stage.
   const Lines & lines = sequence.lines();
   const auto putting =
      std::ranges::find( lines, "handleInitialized: Unit state =3, putting this unit in maintenance " );
   ASSERT_LE( 2, lines.end() - putting );
   EXPECT_EQ( "doStageForInstance: unit u1, genId 4, stage drainwatch, op 1", putting[1] );
}

TEST_F( DrainWatchSmRestart, aUnitThatEntersIsTakenUpWhileItsStageIsOn ) {
   rig.unitIs( "u1", { et1 } );
   unitIn( "u1", UnitState::enterInProgress, "u1#4" );
   stageIs( rig.enterClass, "u1#4", Stage::stageRunning );
   leftover( et1 );
   rig.record( et1 )->stateIs( Maintenance::monIntfStateEnterMaint );
   Sequence sequence( "DrainWatchSm", 4 );
   rig.start();
   ASSERT_TRUE( rig.root->unitMon( "u1" ) );
   EXPECT_TRUE( rig.record( et1 ) );
   EXPECT_EQ( 1u, rig.monIntfStatusDir->monIntfEnterMaints() );
   EXPECT_EQ(
      ( Lines{
         "handleInitialized: called", "handleInitialized: marked 1 entries as stale in MonIntfStatusDir.",
         "handleInitialized: Processing unit=u1 state=2",
         "handleInitialized: Unit state =2, putting this unit in maintenance ",
         "handleInitialized: deleted 0 stale entries from MonIntfStatusDir.",
         "handleInitialized: DrainWatchSm - initialized" } ),
      told( sequence ) );
   EXPECT_EQ( 1u, rig.counters().numMaintEnter() );
}

TEST_F( DrainWatchSmRestart, aUnitWithNothingToDrainCompletesWhileItIsTakenUp ) {
   rig.unitIs( "u1", {} );
   unitIn( "u1", UnitState::enterInProgress, "u1#4" );
   stageIs( rig.enterClass, "u1#4", Stage::stageRunning );
   rig.start();
   EXPECT_TRUE( rig.enterComplete( "u1" ) );
}

TEST_F( DrainWatchSmRestart, aUnitThatEntersIsPassedOverWhileItsStageIsNotOn ) {
   struct Case {
      const char * what;
      bool listed;
      Vel::U32 stageStatus;
   };
   for ( const Case & c : { Case{ "not listed", false, 0 }, Case{ "not on", true, Stage::stageInactive } } ) {
      SCOPED_TRACE( c.what );
      for ( const UnitState state : { UnitState::enterInProgress, UnitState::exitInProgress } ) {
         PluginRig world;
         auto & stageClass = state == UnitState::enterInProgress ? world.enterClass : world.exitClass;
         auto & status = world.unit( "u1" );
         status.stateIs( state );
         status.genIdIs( 4 );
         status.maintEnterInstanceNameIs( "u1#4" );
         status.maintExitInstanceNameIs( "u1#4" );
         auto * progress = stageClass.progressDir->progressIs( "u1#4" );
         progress->stageStatusIs( "other", Stage::stageRunning );
         if ( c.listed )
            progress->stageStatusIs( stageName, c.stageStatus );
         world.start();
         EXPECT_EQ( 0u, world.root->unitMons() );
         EXPECT_EQ( 0u, world.exitClass.agentStatus->completes() );
      }
   }
}

TEST_F( DrainWatchSmRestart, aUnitWhoseInstanceIsNotListedIsPassedOverWithATrace ) {
   unitIn( "u1", UnitState::enterInProgress, "u1#4" );
   unitIn( "u2", UnitState::exitInProgress, "u2#4" );
   // Each class has its own instances.
   stageIs( rig.exitClass, "u1#4", Stage::stageRunning );
   stageIs( rig.enterClass, "u2#4", Stage::stageRunning );
   Sequence sequence( "DrainWatchSm", 4 );
   rig.start();
   EXPECT_EQ( 0u, rig.root->unitMons() );
   EXPECT_EQ( 0u, rig.exitClass.agentStatus->completes() );
   EXPECT_EQ(
      startWith(
         { "handleInitialized: Processing unit=u1 state=2",
           "handleInitialized: InstanceStatus not found for unit u1#4",
           "handleInitialized: Processing unit=u2 state=5",
           "handleInitialized: InstanceStatus not found for unit u2#4" } ),
      told( sequence ) );
}

TEST_F( DrainWatchSmRestart, aUnitThatIsNotListedIsNotParsed ) {
   unitIn( "u1", UnitState::enterInProgress, "malformed" );
   EXPECT_NO_THROW( rig.start() );
}

TEST_F( DrainWatchSmRestart, aUnitThatExitsIsCompletedAtOnceAndLosesItsRecords ) {
   rig.unitIs( "u1", { et1 } );
   unitIn( "u1", UnitState::exitInProgress, "u1#4" );
   stageIs( rig.exitClass, "u1#4", Stage::stageRunning );
   leftover( et1 );
   Sequence sequence( "DrainWatchSm", 4 );
   struct VelAgentStatus final : Vel::ReactorTo< Sequence, Stage::AgentStatus > {
      using ReactorTo::ReactorTo;
      void onComplete( const Stage::AgentStatusKey & ) override {
         sm()->note( "handleInitialized: [the stage is complete]" );
      }
   };
   Vel::Watch< VelAgentStatus > watch;
   watch.is( rig.exitClass.agentStatus, &sequence ).hasNotificationActiveIs( true );
   rig.start();
   watch.del();
   EXPECT_TRUE( rig.exitComplete( "u1" ) );
   EXPECT_EQ( 0u, rig.root->unitMons() );
   EXPECT_FALSE( rig.record( et1 ) );
   EXPECT_FALSE( rig.shut( et1 ) );
   EXPECT_EQ(
      ( Lines{
         "handleInitialized: called", "handleInitialized: marked 1 entries as stale in MonIntfStatusDir.",
         "handleInitialized: Processing unit=u1 state=5",
         "handleInitialized: Unit state =5, completing the stage for this unit",
         "handleInitialized: [the stage is complete]",
         "handleInitialized: deleted stale MonIntfStatusDir entry for intf et1",
         "handleInitialized: deleted 1 stale entries from MonIntfStatusDir.",
         "handleInitialized: DrainWatchSm - initialized" } ),
      told( sequence ) );
   // Past the checks and the counter.
   EXPECT_EQ( 0u, rig.counters().numNotifyStageCompletion() );
   EXPECT_EQ( 0u, rig.counters().numMaintExit() );
}

TEST_F( DrainWatchSmRestart, aUnitOfAnotherGenerationIsPassedOverSilently ) {
   unitIn( "u1", UnitState::maintenance, "u1#3" );
   unitIn( "u2", UnitState::enterInProgress, "u2#3" );
   stageIs( rig.enterClass, "u2#3", Stage::stageRunning );
   unitIn( "u3", UnitState::exitInProgress, "u3#3" );
   stageIs( rig.exitClass, "u3#3", Stage::stageRunning );
   // Later than the unit's own is another one too.
   unitIn( "u4", UnitState::maintenance, "u4#5" );
   unitIn( "u5", UnitState::enterInProgress, "u5#5" );
   stageIs( rig.enterClass, "u5#5", Stage::stageRunning );
   unitIn( "u6", UnitState::exitInProgress, "u6#5" );
   stageIs( rig.exitClass, "u6#5", Stage::stageRunning );
   Sequence sequence( "DrainWatchSm", 4 );
   rig.start();
   EXPECT_EQ( 0u, rig.root->unitMons() );
   EXPECT_EQ( 0u, rig.exitClass.agentStatus->completes() );
   EXPECT_EQ(
      startWith(
         { "handleInitialized: Processing unit=u1 state=3", "handleInitialized: Processing unit=u2 state=2",
           "handleInitialized: Processing unit=u3 state=5", "handleInitialized: Processing unit=u4 state=3",
           "handleInitialized: Processing unit=u5 state=2",
           "handleInitialized: Processing unit=u6 state=5" } ),
      told( sequence ) );
}

TEST_F( DrainWatchSmRestart, unitsInOtherStatesAreLeftAlone ) {
   for ( const Vel::U32 state : { 0u, 1u, 4u, 6u, 99u } ) {
      const Vel::String unitName = Vel::text( "u", state );
      const Vel::String instanceName = unitName + "#4";
      unitIn( unitName, static_cast< UnitState >( state ), instanceName.c_str() );
      rig.unit( unitName ).maintExitInstanceNameIs( instanceName );
      stageIs( rig.enterClass, instanceName, Stage::stageRunning );
      stageIs( rig.exitClass, instanceName, Stage::stageRunning );
   }
   Sequence sequence( "DrainWatchSm", 4 );
   rig.start();
   EXPECT_EQ( 0u, rig.root->unitMons() );
   EXPECT_EQ( 0u, rig.exitClass.agentStatus->completes() );
   EXPECT_EQ(
      startWith(
         { "handleInitialized: Processing unit=u0 state=0", "handleInitialized: Processing unit=u1 state=1",
           "handleInitialized: Processing unit=u4 state=4", "handleInitialized: Processing unit=u6 state=6",
           "handleInitialized: Processing unit=u99 state=99" } ),
      told( sequence ) );
}

/// Another stage may run by then, and the unit is still to be monitored when it gets into maintenance.
TEST_F( DrainWatchSmRestart, aUnitWhoseStageIsOverButStillSetIsTakenUp ) {
   rig.unitIs( "u1", { et1 } );
   unitIn( "u1", UnitState::enterInProgress, "u1#4" );
   stageIs( rig.enterClass, "u1#4", Stage::stageComplete );
   unitIn( "u2", UnitState::exitInProgress, "u2#4" );
   stageIs( rig.exitClass, "u2#4", Stage::stageComplete );
   unitIn( "u3", UnitState::enterInProgress, "u3#4" );
   stageIs( rig.enterClass, "u3#4", 9 );
   rig.start();
   EXPECT_TRUE( rig.root->unitMon( "u1" ) );
   EXPECT_TRUE( rig.root->unitMon( "u3" ) );
   EXPECT_TRUE( rig.exitComplete( "u2" ) );
}

/// Its key is a fresh one, without a generation. The framework gives every unit in these states an instance.
TEST_F( DrainWatchSmRestart, aUnitWithoutInstanceAndGenerationIsTakenUpUnderAnEmptyName ) {
   unitIn( "u0", UnitState::maintenance, "u0#4" );
   unitIn( "u1", UnitState::maintenance, "" ).genIdIs( 0 );
   rig.start();
   ASSERT_TRUE( rig.root->unitMon( "" ) );
   EXPECT_EQ( 0u, rig.root->unitMon( "" )->genId() );
   EXPECT_FALSE( rig.root->unitMon( "u1" ) );
}

TEST_F( DrainWatchSmRestart, aMalformedInstanceNameKeepsTheRootFromBeingBuilt ) {
   unitIn( "u1", UnitState::maintenance, "u1" );
   EXPECT_THROW( rig.start(), Vel::InternalException );
}

/// The stage that stands in the record is not replayed, or the unit would be entered twice.
TEST_F( DrainWatchSmRestart, aUnitIsEnteredOnceAfterARestart ) {
   rig.unitIs( "u1", { et1 } );
   rig.start();
   rig.enter( "u1" );
   rig.advance( 7 );
   rig.crashAndRestart();
   EXPECT_EQ( 1u, rig.counters().numMaintEnter() );
   EXPECT_EQ( 0u, rig.counters().numMaintEnterUnitMonPresent() );
   EXPECT_FALSE( rig.enterComplete( "u1" ) );
   EXPECT_EQ( 1u, rig.record( et1 )->totalSamples() );
   rig.trafficIs( et1, {} );
   rig.advance( 30 );
   EXPECT_TRUE( rig.enterComplete( "u1" ) );
}

/// Only what is up is monitored again. Where a shutdown shows in the link's state its interface is released and shut
/// anew; the agent shows it as it was before.
TEST_F( DrainWatchSmRestart, anInterfaceWhoseShutdownShowsIsReleasedAndShutAgain ) {
   PluginRig world( PluginRig::ShutLinks::goDown );
   world.profileIs( "p", 100, 10, true, 1000 );
   world.defaultProfileIs( "p" );
   world.linkIs( et1 );
   world.unitIs( "u1", { et1 } );
   world.start();
   world.enter( "u1" );
   world.advance( 30 );
   ASSERT_TRUE( world.shut( et1 ) );
   ASSERT_NE( Interface::operUp, world.allIntfStatusDir->intfStatus( et1 )->operStatus() );
   world.entered( "u1" );
   const double started = world.record( et1 )->startTime();
   Vel::TraceCapture traces;
   world.crashAndRestart();
   world.settle();
   EXPECT_TRUE( traces.has( "deleted stale MonIntfStatusDir entry for intf et1" ) );
   EXPECT_EQ( 1u, world.counters().numIntfMonIntfOperNotUp() );
   EXPECT_EQ( 1u, world.counters().numIntfMonInitialStatePassive() );
   EXPECT_TRUE( world.shut( et1 ) );
   EXPECT_LT( started, world.record( et1 )->startTime() );
}

TEST_F( DrainWatchSmRestart, aShutInterfaceOfAUnitInMaintenanceIsAdoptedUntouched ) {
   rig.profileIs( "p", 100, 10, true, 1000 );
   rig.trafficIs( et1, {} );
   rig.unitIs( "u1", { et1 } );
   rig.start();
   rig.enter( "u1" );
   rig.advance( 30 );
   ASSERT_TRUE( rig.shut( et1 ) );
   rig.entered( "u1" );
   const double started = rig.record( et1 )->startTime();
   Vel::TraceCapture traces;
   rig.crashAndRestart();
   EXPECT_FALSE( traces.has( "deleted stale MonIntfStatusDir entry" ) );
   EXPECT_TRUE( rig.shut( et1 ) );
   EXPECT_EQ( started, rig.record( et1 )->startTime() );
   EXPECT_EQ( 1u, rig.root->unitMon( "u1" )->drainedIntf()->intfs() );
}

TEST_F( DrainWatchSmRestart, theFastLogTellsWhatWasLeftAndReleased ) {
   leftover( et1 );
   leftover( et2 );
   const Sequence sequence;
   rig.start();
   EXPECT_EQ(
      ( Lines{
         "restart: num monIntfStatusDir entries marked as stale 2",
         "restart: deleted stale monIntfStatus for intf et1",
         "restart: deleted stale monIntfStatus for intf et2",
         "restart: deleted stale entries from monIntfStatusDir 2", "DrainWatchSm - initialized" } ),
      sequence.logged() );
}

/// The plug-in knows of interfaces by their records only; such an entry is the agent's to remove.
TEST_F( DrainWatchSmRestart, aShutdownWithoutARecordStays ) {
   rig.cause->intfStatusIs( et1, 1.0 );
   rig.start();
   EXPECT_TRUE( rig.shut( et1 ) );
}

} // namespace
} // namespace MaintenanceMode
