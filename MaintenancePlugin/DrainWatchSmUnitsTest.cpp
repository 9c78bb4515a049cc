#include "MaintenancePlugin/UnitsTest.h"

namespace MaintenanceMode {
namespace {

struct DrainWatchSmUnits : UnitsTest {};

// ---- requests

TEST_F( DrainWatchSmUnits, aStageOfAnotherNameIsOnlyTraced ) {
   rig.start();
   const CounterChanges changes( rig.counters() );
   UnitSequence sequence( rig );
   rig.root->doStageForInstance( maintEnterClass, "other", "u1#3" );
   rig.root->doStageForInstance( maintExitClass, "drainwatch2", "u1#4294967295" );
   EXPECT_EQ(
      ( Lines{
         "doStageForInstance: unit u1, genId 3, stage other, op 1",
         "doStageForInstance: unit u1, genId 4294967295, stage drainwatch2, op 2" } ),
      sequence.lines() );
   EXPECT_EQ(
      ( Lines{
         "unit u1, genId 3, stage other, op 1", "unit u1, genId 4294967295, stage drainwatch2, op 2" } ),
      sequence.logged() );
   EXPECT_EQ( "", changes.text() );
   EXPECT_EQ( 0u, rig.root->unitMons() );
}

TEST_F( DrainWatchSmUnits, anUnknownStageClassIsOnlyTraced ) {
   rig.start();
   const CounterChanges changes( rig.counters() );
   rig.root->doStageForInstance( "maintPause", "drainwatch", "u1#2" ); // nobody listens
   UnitSequence sequence( rig );
   rig.root->doStageForInstance( "maintPause", "drainwatch", "u1#3" );
   EXPECT_EQ(
      Lines{ "doStageForInstance: Invalid maintenance class: maintPause for instanceName: u1#3" },
      sequence.lines() );
   EXPECT_TRUE( sequence.traced( "Invalid maintenance class: ", 1 ) );
   EXPECT_EQ( Lines{}, sequence.logged() );
   EXPECT_EQ( "", changes.text() );
   EXPECT_EQ( 0u, rig.root->unitMons() );
}

TEST_F( DrainWatchSmUnits, theStageClassIsLookedAtBeforeTheStage ) {
   rig.start();
   UnitSequence sequence( rig );
   rig.root->doStageForInstance( "bogus", "other", "u1#3" );
   EXPECT_EQ(
      Lines{ "doStageForInstance: Invalid maintenance class: bogus for instanceName: u1#3" },
      sequence.lines() );
   EXPECT_TRUE( sequence.traced( "Invalid maintenance class: ", 1 ) );
}

TEST_F( DrainWatchSmUnits, aMalformedInstanceNameLeavesTheOperationBeforeAnythingIsDone ) {
   rig.start();
   const CounterChanges changes( rig.counters() );
   UnitSequence sequence( rig );
   for ( const char * stageClass : { "maintEnter", "maintExit", "bogus" } )
      for ( const char * name : { "u1", "#5", "u1#", "u1#0", "u1#x", "a#b#3" } ) {
         SCOPED_TRACE( Vel::text( stageClass, " ", name ) );
         EXPECT_THROW( rig.root->doStageForInstance( stageClass, stageName, name ), Vel::InternalException );
      }
   EXPECT_EQ( Lines{}, sequence.lines() );
   EXPECT_EQ( "", changes.text() );
   EXPECT_EQ( 0u, rig.root->unitMons() );
   EXPECT_EQ( 0u, rig.root->unitMonIntfInput()->unitIntfInputs() );
}

TEST_F( DrainWatchSmUnits, aMalformedInstanceNamePassesThroughToTheWriter ) {
   rig.start();
   for ( const char * name : { "u1", "#5", "u1#", "u1#0", "u1#x", "a#b#3" } ) {
      SCOPED_TRACE( name );
      EXPECT_THROW(
         rig.enterClass.progressDir->progressIs( name )->stageIs( stageName ), Vel::InternalException );
   }
   EXPECT_EQ( 0u, rig.counters().numMaintEnter() );
}

TEST_F( DrainWatchSmUnits, anEmptyInstanceNameCarriesNothingOverFromTheOneBefore ) {
   rig.start();
   enterRequested( "u1#3" );
   enterRequested( "" );
   ASSERT_TRUE( rig.root->unitMon( "" ) );
   EXPECT_EQ( 0u, rig.root->unitMon( "" )->genId() );
   EXPECT_EQ( 0u, rig.counters().numMaintEnterUnitMonPresent() );
}

// ---- enter

TEST_F( DrainWatchSmUnits, enterMonitorsTheUnitUnderItsGeneration ) {
   busy( et1 );
   rig.unitIs( "u1", { et1 } );
   rig.start();
   UnitSequence sequence( rig );
   enterRequested( "u1#3" );
   EXPECT_EQ(
      ( Lines{
         "doStageForInstance: unit u1, genId 3, stage drainwatch, op 1",
         "handleUnitMaintenanceEnter: unit - u1, genId 3", "numMaintEnter 1", "unitMonIntfInput u1",
         "unitDrainedIntf u1", "getIntfProfile: intf et1, profile p", "unitMon u1",
         "handleUnitMaintenanceEnter: started traffic monitoring for unit u1" } ),
      sequence.lines() );
   EXPECT_EQ(
      ( Lines{ "unit u1, genId 3, stage drainwatch, op 1", "started traffic monitoring for unit u1" } ),
      sequence.logged() );
   const UnitMonSm * unitMonSm = rig.root->unitMon( "u1" );
   ASSERT_TRUE( unitMonSm );
   EXPECT_EQ( "u1", unitMonSm->unitName() );
   EXPECT_EQ( 3u, unitMonSm->genId() );
   EXPECT_EQ( rig.root.get(), unitMonSm->rootSm() );
   EXPECT_EQ( rig.root->unitMonIntfInput()->unitIntfInput( "u1" ), unitMonSm->monIntf().get() );
   EXPECT_EQ( rig.root->unitDrainedIntf()->unitIntfInput( "u1" ), unitMonSm->drainedIntf().get() );
   EXPECT_NE( unitMonSm->monIntf(), unitMonSm->drainedIntf() );
}

TEST_F( DrainWatchSmUnits, enterDoesNotCompleteTheStageOfABusyUnit ) {
   busy( et1 );
   rig.unitIs( "u1", { et1 } );
   rig.start();
   rig.enter( "u1" );
   EXPECT_EQ( 0u, rig.enterClass.agentStatus->completes() );
   EXPECT_EQ( 0u, rig.counters().numNotifyStageCompletion() );
}

TEST_F( DrainWatchSmUnits, theMonitorOfAUnitIsSwitchedOn ) {
   busy( et1 );
   rig.unitIs( "u1", { et1 } );
   rig.start();
   rig.enter( "u1" );
   rig.root->unitMonIntfInput()->unitIntfInput( "u1" )->intfDel( et1 );
   EXPECT_EQ( 0u, rig.root->intfMons() );
}

/// The old monitor reports the exit of generation 4, of which there is no instance.
TEST_F( DrainWatchSmUnits, aSecondEnterExitsTheOldCycleFirst ) {
   rig.unitIs( "u1", {} );
   rig.start();
   enterRequested( "u1#3" );
   UnitSequence sequence( rig );
   enterRequested( "u1#4" );
   EXPECT_EQ(
      ( Lines{
         "doStageForInstance: unit u1, genId 4, stage drainwatch, op 1",
         "handleUnitMaintenanceEnter: unit - u1, genId 4",
         "numMaintEnter 2",
         "numMaintEnterUnitMonPresent 1",
         "handleUnitMaintenanceEnter: Unit u1 (genId 3) exists. Exiting maintenance",
         "handleUnitMaintenanceExit: unit - u1, genId 4",
         "numMaintExit 1",
         "genId 4",
         "notifyStageCompletion: No instance found for genId 4 unitName u1",
         "numNoNotifyNoStageInput 2",
         "unitMonIntfInput u1 gone",
         "unitDrainedIntf u1 gone",
         "unitMon u1 gone",
         "handleUnitMaintenanceExit: done with traffic monitoring for unit u1",
         "unitMonIntfInput u1",
         "unitDrainedIntf u1",
         "notifyStageCompletion: No instance found for genId 4 unitName u1",
         "numNoNotifyNoStageInput 3",
         "unitMon u1",
         "handleUnitMaintenanceEnter: started traffic monitoring for unit u1" } ),
      sequence.lines() );
   EXPECT_EQ(
      ( Lines{
         "unit u1, genId 4, stage drainwatch, op 1", "Unit u1 (genId 3) exists. Exiting maintenance",
         "done with traffic monitoring for unit u1", "started traffic monitoring for unit u1" } ),
      sequence.logged() );
   EXPECT_EQ( 1u, rig.root->unitMons() );
   EXPECT_EQ( 4u, rig.root->unitMon( "u1" )->genId() );
   EXPECT_EQ( 0u, rig.exitClass.agentStatus->completes() );
   EXPECT_EQ( 0u, rig.enterClass.agentStatus->completes() );
}

TEST_F( DrainWatchSmUnits, theOldCycleOfASecondEnterCompletesTheExitOfItsGenerationIfThatIsListed ) {
   rig.unitIs( "u1", {} );
   listInstance( rig.exitClass, "u1#4" );
   rig.start();
   enterRequested( "u1#3" );
   enterRequested( "u1#4" );
   EXPECT_TRUE( complete( rig.exitClass, "u1#4" ) );
   EXPECT_EQ( 1u, rig.exitClass.agentStatus->completes() );
}

TEST_F( DrainWatchSmUnits, aSecondEnterOfAnEnteringUnitCountsAsAnExitThatInterrupts ) {
   rig.unitIs( "u1", {} );
   rig.unit( "u1" ).stateIs( UnitState::enterInProgress );
   rig.start();
   enterRequested( "u1#3" );
   const CounterChanges changes( rig.counters() );
   enterRequested( "u1#4" );
   EXPECT_EQ(
      "numMaintEnter 1, numMaintExit 1, numMaintEnterUnitMonPresent 1, numMaintExitInMaintModeEnter 1, "
      "numNoNotifyNoStageInput 2",
      changes.text() );
}

/// The removals by which the old monitor is emptied are checked like any other, under the new generation. The framework
/// never enters a unit twice without an exit.
TEST_F( DrainWatchSmUnits, aSecondEnterOfABusyUnitIsCompletedByTheReleaseOfTheFirst ) {
   busy( et1 );
   rig.unitIs( "u1", { et1 } );
   rig.start();
   enterRequested( "u1#3" );
   listInstance( rig.enterClass, "u1#4" );
   EXPECT_FALSE( complete( rig.enterClass, "u1#4" ) );
   UnitSequence sequence( rig );
   enterRequested( "u1#4" );
   EXPECT_EQ(
      ( Lines{
         "doStageForInstance: unit u1, genId 4, stage drainwatch, op 1",
         "handleUnitMaintenanceEnter: unit - u1, genId 4",
         "numMaintEnter 2",
         "numMaintEnterUnitMonPresent 1",
         "handleUnitMaintenanceEnter: Unit u1 (genId 3) exists. Exiting maintenance",
         "handleUnitMaintenanceExit: unit - u1, genId 4",
         "numMaintExit 1",
         "genId 4",
         "getIntfProfile: intf et1, profile p",
         "notifyStageCompletion: Unit - u1, genId 4, op 1, stage drainwatch ",
         "enter complete u1#4",
         "numNotifyStageCompletion 1",
         "notifyStageCompletion: No instance found for genId 4 unitName u1",
         "numNoNotifyNoStageInput 1",
         "unitMonIntfInput u1 gone",
         "unitDrainedIntf u1 gone",
         "unitMon u1 gone",
         "handleUnitMaintenanceExit: done with traffic monitoring for unit u1",
         "unitMonIntfInput u1",
         "unitDrainedIntf u1",
         "getIntfProfile: intf et1, profile p",
         "unitMon u1",
         "handleUnitMaintenanceEnter: started traffic monitoring for unit u1" } ),
      sequence.lines() );
   EXPECT_EQ( 1u, rig.root->unitMon( "u1" )->monIntf()->intfs() );
   EXPECT_EQ( 0u, rig.root->unitMon( "u1" )->drainedIntf()->intfs() );
}

/// Somebody who makes a monitor while the old one goes breaks what the enter relies on.
TEST_F( DrainWatchSmUnits, aMonitorThatAppearsWhileTheOldCycleExitsIsFatal ) {
   rig.unitIs( "u1", {} );
   rig.start();
   rig.root->handleUnitMaintenanceEnter( "u1", 3 );
   struct VelRoot final : Vel::ReactorTo< DrainWatchSm, DrainWatchSm > {
      using ReactorTo::ReactorTo;
      void onUnitMon( const Vel::String & unitName ) override {
         if ( !sm()->unitMon( unitName ) )
            sm()->unitMonIs(
               unitName, 9, sm(), sm()->unitMonIntfInput()->unitIntfInputIs( unitName ),
               sm()->unitDrainedIntf()->unitIntfInputIs( unitName ) );
      }
   };
   Vel::Watch< VelRoot > watch;
   watch.is( rig.root, rig.root.get() ).hasNotificationActiveIs( true );
   EXPECT_EQ( "!unitMon( unitName )", Vel::failedAssertion( [&] {
                 rig.root->handleUnitMaintenanceEnter( "u1", 4 );
              } ) );
   watch.del();
}

TEST_F( DrainWatchSmUnits, aStageStatusThatIsWrittenAfterTheStageIsNeverLookedAtAgain ) {
   rig.unitIs( "u1", {} );
   rig.start();
   auto * progress = rig.enterClass.progressDir->progressIs( "u1#1" );
   progress->stageIs( stageName );
   EXPECT_EQ( 1u, rig.counters().numNoNotifyActiveStageMismatch() );
   progress->stageStatusIs( stageName, Stage::stageRunning );
   rig.advance( 60 );
   EXPECT_FALSE( complete( rig.enterClass, "u1#1" ) );
}

// ---- exit

TEST_F( DrainWatchSmUnits, exitReleasesTheMonitorWhichReportsTheExitsGeneration ) {
   rig.unitIs( "u1", {} );
   rig.start();
   enterRequested( "u1#3" );
   rig.entered( "u1" );
   listInstance( rig.exitClass, "u1#5" );
   UnitSequence sequence( rig );
   exitRequested( "u1#5" );
   EXPECT_EQ(
      ( Lines{
         "doStageForInstance: unit u1, genId 5, stage drainwatch, op 2",
         "handleUnitMaintenanceExit: unit - u1, genId 5", "numMaintExit 1", "genId 5",
         "notifyStageCompletion: Unit - u1, genId 5, op 2, stage drainwatch ", "exit complete u1#5",
         "numNotifyStageCompletion 1", "unitMonIntfInput u1 gone", "unitDrainedIntf u1 gone",
         "unitMon u1 gone", "handleUnitMaintenanceExit: done with traffic monitoring for unit u1" } ),
      sequence.lines() );
   EXPECT_EQ(
      ( Lines{
         "unit u1, genId 5, stage drainwatch, op 2",
         "Notifying stage completion - unit u1 ,genId 5, stage drainwatch, op 2",
         "done with traffic monitoring for unit u1" } ),
      sequence.logged() );
   EXPECT_EQ( 0u, rig.root->unitMons() );
}

TEST_F( DrainWatchSmUnits, exitStopsTheInterfacesOfTheUnit ) {
   busy( et1 );
   rig.unitIs( "u1", { et1 } );
   rig.start();
   rig.enter( "u1" );
   rig.entered( "u1" );
   rig.exit( "u1" );
   EXPECT_EQ( 0u, rig.root->intfMons() );
   EXPECT_EQ( 0u, rig.monIntfStatusDir->monIntfStatuss() );
   EXPECT_TRUE( complete( rig.exitClass, "u1#2" ) );
   EXPECT_EQ( 1u, rig.counters().numMaintExit() );
   EXPECT_EQ( 0u, rig.counters().numMaintExitInMaintModeEnter() );
}

/// Each removal by which the monitor is emptied reports the enter of a generation that only the exit has.
TEST_F( DrainWatchSmUnits, theExitOfAUnitWithFourDrainedInterfacesIsRefusedFourTimesAndCompletesOnce ) {
   rig.unitIs( "u1", {} );
   for ( const char * name : { "et1", "et2", "et3", "et4" } ) {
      rig.linkIs( PluginRig::port( name ) );
      rig.groupMemberIs( "u1", PluginRig::port( name ) );
   }
   rig.start();
   rig.enter( "u1" );
   rig.advance( 30 );
   ASSERT_TRUE( rig.enterComplete( "u1" ) );
   rig.entered( "u1" );
   const CounterChanges changes( rig.counters() );
   rig.exit( "u1" );
   EXPECT_EQ( "numMaintExit 1, numNotifyStageCompletion 1, numNoNotifyNoStageInput 4", changes.text() );
   EXPECT_TRUE( rig.exitComplete( "u1" ) );
}

/// The framework retires the enter instance and takes a new generation, which keeps this out of reach.
TEST_F( DrainWatchSmUnits, anExitUnderTheGenerationOfAnEnterThatIsStillListedCompletesThatEnter ) {
   busy( et1 );
   rig.unitIs( "u1", { et1 } );
   rig.start();
   rig.enter( "u1" );
   listInstance( rig.exitClass, "u1#1" );
   UnitSequence sequence( rig );
   exitRequested( "u1#1" );
   EXPECT_EQ(
      ( Lines{
         "doStageForInstance: unit u1, genId 1, stage drainwatch, op 2",
         "handleUnitMaintenanceExit: unit - u1, genId 1", "numMaintExit 1", "numMaintExitInMaintModeEnter 1",
         "getIntfProfile: intf et1, profile p",
         "notifyStageCompletion: Unit - u1, genId 1, op 1, stage drainwatch ", "enter complete u1#1",
         "numNotifyStageCompletion 1", "notifyStageCompletion: Unit - u1, genId 1, op 2, stage drainwatch ",
         "exit complete u1#1", "numNotifyStageCompletion 2", "unitMonIntfInput u1 gone",
         "unitDrainedIntf u1 gone", "unitMon u1 gone",
         "handleUnitMaintenanceExit: done with traffic monitoring for unit u1" } ),
      sequence.lines() );
}

TEST_F( DrainWatchSmUnits, theExitOfAUnitThatIsNotMonitoredCompletesAllTheSame ) {
   rig.unitIs( "u1", {} );
   listInstance( rig.exitClass, "u1#5" );
   rig.start();
   UnitSequence sequence( rig );
   exitRequested( "u1#5" );
   EXPECT_EQ(
      ( Lines{
         "doStageForInstance: unit u1, genId 5, stage drainwatch, op 2",
         "handleUnitMaintenanceExit: unit - u1, genId 5", "numMaintExit 1", "numMaintExitNoUnitMon 1",
         "handleUnitMaintenanceExit: Got maintenance exit notification when unitMonSm does not exist - "
         "unit u1",
         "handleUnitMaintenanceExit:   notifying stage completion anyway.",
         "notifyStageCompletion: Unit - u1, genId 5, op 2, stage drainwatch ", "exit complete u1#5",
         "numNotifyStageCompletion 1" } ),
      sequence.lines() );
   EXPECT_EQ(
      ( Lines{
         "unit u1, genId 5, stage drainwatch, op 2",
         "notifying stage completion for non-existent unitMonSm u1",
         "Notifying stage completion - unit u1 ,genId 5, stage drainwatch, op 2" } ),
      sequence.logged() );
}

/// Only a unit that is still entering is interrupted.
TEST_F( DrainWatchSmUnits, anExitThatInterruptsAnEnterIsCountedAndGoesOnAsUsual ) {
   for ( const Vel::U32 state : { 0u, 1u, 2u, 3u, 4u, 5u } ) {
      SCOPED_TRACE( state );
      PluginRig world;
      world.unitIs( "u1", {} );
      listInstance( world.exitClass, "u1#2" );
      world.start();
      world.root->handleUnitMaintenanceEnter( "u1", 1 );
      world.unit( "u1" ).stateIs( UnitState( state ) );
      const CounterChanges changes( world.counters() );
      world.root->handleUnitMaintenanceExit( "u1", 2 );
      EXPECT_EQ(
         state == 2 ? "numMaintExit 1, numMaintExitInMaintModeEnter 1, numNotifyStageCompletion 1"
                    : "numMaintExit 1, numNotifyStageCompletion 1",
         changes.text() );
      EXPECT_EQ( 0u, world.root->unitMons() );
      EXPECT_TRUE( complete( world.exitClass, "u1#2" ) );
   }
}

TEST_F( DrainWatchSmUnits, theExitOfAUnitWithoutStatusReleasesItsMonitorAndIsNotCompleted ) {
   listInstance( rig.exitClass, "u1#5" );
   rig.start();
   enterRequested( "u1#3" );
   UnitSequence sequence( rig );
   exitRequested( "u1#5" );
   EXPECT_EQ(
      ( Lines{
         "doStageForInstance: unit u1, genId 5, stage drainwatch, op 2",
         "handleUnitMaintenanceExit: unit - u1, genId 5", "numMaintExit 1", "genId 5",
         "notifyStageCompletion: Unit u1 ,genId 5does not exit in unit status directory",
         "numNoNotifyNoUnitStatus 1", "unitMonIntfInput u1 gone", "unitDrainedIntf u1 gone",
         "unitMon u1 gone", "handleUnitMaintenanceExit: done with traffic monitoring for unit u1" } ),
      sequence.lines() );
   EXPECT_EQ( 0u, rig.exitClass.agentStatus->completes() );
}

TEST_F( DrainWatchSmUnits, anExitWithoutTheUnitsDirectoryReleasesTheMonitor ) {
   rig.unitIs( "u1", {} );
   rig.start();
   rig.root->unitStatusDirDel();
   enterRequested( "u1#3" );
   const CounterChanges changes( rig.counters() );
   exitRequested( "u1#5" );
   EXPECT_EQ( "numMaintExit 1, numNoNotifyNoStageInput 1", changes.text() );
   EXPECT_EQ( 0u, rig.root->unitMons() );
}

// ---- the unit's status

TEST_F( DrainWatchSmUnits, deletingAUnitsStatusReleasesItsMonitor ) {
   rig.unitIs( "u1", {} );
   rig.start();
   rig.enter( "u1" );
   UnitSequence sequence( rig );
   rig.unitStatusDir->statusDel( "u1" );
   EXPECT_EQ(
      ( Lines{
         "handleUnitStatus: u1", "numUnitStatusDel 1",
         "notifyStageCompletion: No instance found for genId 1 unitName u1", "numNoNotifyNoStageInput 1",
         "unitMonIntfInput u1 gone", "unitDrainedIntf u1 gone", "unitMon u1 gone",
         "handleUnitStatus: Deleted unitMonSm for unit u1" } ),
      sequence.lines() );
   EXPECT_EQ( Lines{ "Deleted unitMonSm for unit u1" }, sequence.logged() );
   EXPECT_EQ( 0u, rig.root->unitMons() );
}

TEST_F( DrainWatchSmUnits, aUnitWhoseStatusIsGoneIsNotCompletedAnyMore ) {
   rig.unitIs( "u1", {} );
   listInstance( rig.enterClass, "u1#3" );
   rig.start();
   rig.root->handleUnitMaintenanceEnter( "u1", 3 );
   ASSERT_TRUE( complete( rig.enterClass, "u1#3" ) );
   rig.enterClass.agentStatus->completeDelAll();
   rig.unitStatusDir->statusDel( "u1" );
   UnitSequence sequence( rig );
   rig.root->notifyStageCompletion( "u1", 3, MaintenanceOp::enter );
   EXPECT_EQ(
      ( Lines{
         "notifyStageCompletion: Unit u1 ,genId 3does not exit in unit status directory",
         "numNoNotifyNoUnitStatus 1" } ),
      sequence.lines() );
   EXPECT_EQ( 0u, rig.enterClass.agentStatus->completes() );
}

TEST_F( DrainWatchSmUnits, deletingTheStatusOfAUnitThatIsNotMonitoredDoesNothing ) {
   rig.unitIs( "u1", {} );
   rig.unitIs( "u2", {} );
   rig.start();
   rig.enter( "u2" );
   const CounterChanges changes( rig.counters() );
   UnitSequence sequence( rig );
   rig.unitStatusDir->statusDel( "u1" );
   EXPECT_EQ( Lines{ "handleUnitStatus: u1" }, sequence.lines() );
   EXPECT_EQ( Lines{}, sequence.logged() );
   EXPECT_EQ( "", changes.text() );
   EXPECT_EQ( 1u, rig.root->unitMons() );
}

TEST_F( DrainWatchSmUnits, aUnitsStatusDoesNotStartOrStopAnything ) {
   rig.unitIs( "u1", {} );
   rig.start();
   rig.enter( "u1" );
   const CounterChanges changes( rig.counters() );
   UnitSequence sequence( rig );
   for ( const Vel::U32 state : { 2u, 3u, 5u, 1u } ) {
      rig.unit( "u1" ).stateIs( UnitState( state ) );
      rig.unit( Vel::text( "u", state + 1 ) ).stateIs( UnitState( state ) );
   }
   rig.root->handleUnitStatus( "u1" );
   EXPECT_EQ(
      ( Lines{
         "handleUnitStatus: u3", "handleUnitStatus: u4", "handleUnitStatus: u6", "handleUnitStatus: u2",
         "handleUnitStatus: u1" } ),
      sequence.lines() );
   EXPECT_EQ( "", changes.text() );
   EXPECT_EQ( 1u, rig.root->unitMons() );
}

TEST_F( DrainWatchSmUnits, withoutTheUnitsDirectoryEveryUnitIsGone ) {
   rig.unitIs( "u1", {} );
   rig.start();
   rig.enter( "u1" );
   rig.root->unitStatusDirDel();
   rig.root->handleUnitStatus( "u1" );
   EXPECT_EQ( 0u, rig.root->unitMons() );
   EXPECT_EQ( 1u, rig.counters().numUnitStatusDel() );
}

} // namespace
} // namespace MaintenanceMode
