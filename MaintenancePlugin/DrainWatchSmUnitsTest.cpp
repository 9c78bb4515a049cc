#include "MaintenancePlugin/PluginRig.h"
#include "Platform/FastLog/Capture.h"
#include "Platform/Vel/Trace.h"

#include <gtest/gtest.h>

namespace MaintenanceMode {
namespace {

using Maintenance::Unit::MaintenanceOp;
using Maintenance::Unit::UnitState;

struct DrainWatchSmUnits : testing::Test {
   PluginRig rig;
   const Wire::IntfId et1 = PluginRig::port( "et1" );
   const Wire::IntfId et2 = PluginRig::port( "et2" );

   DrainWatchSmUnits() {
      rig.profileIs( "p", 100, 10, false, 0 );
      rig.defaultProfileIs( "p" );
   }
   void busy( const Wire::IntfId & intf ) {
      rig.linkIs( intf );
      rig.trafficIs( intf, { 1e9, 1e9 } );
   }
   /// An instance whose stage is on, without its start: nobody is told.
   void listInstance( PluginRig::StageClass & stageClass, const Vel::Name & instanceName ) {
      stageClass.progressDir->progressIs( instanceName )->stageStatusIs( stageName, Stage::stageRunning );
      stageClass.completionStatus->statusIs( instanceName, Stage::stageRunning );
   }
   static bool complete( const PluginRig::StageClass & stageClass, const Vel::Name & instanceName ) {
      return stageClass.agentStatus->complete( { stageClass.agentStatus->name(), stageName, instanceName } );
   }
};

// ---- requests

TEST_F( DrainWatchSmUnits, aStageOfAnotherNameIsOnlyTraced ) {
   rig.start();
   Vel::TraceCapture traces;
   rig.root->doStageForInstance( maintEnterClass, "other", "u1#3" );
   EXPECT_EQ( 1u, traces.lines().size() );
   EXPECT_TRUE( traces.has( "doStageForInstance: unit u1, genId 3, stage other, op enter", 4 ) );
   EXPECT_EQ( 0u, rig.counters().numMaintEnter() );
   EXPECT_EQ( 0u, rig.root->unitMons() );
}

TEST_F( DrainWatchSmUnits, anUnknownStageClassIsOnlyTraced ) {
   rig.start();
   Vel::TraceCapture traces;
   rig.root->doStageForInstance( "maintPause", stageName, "u1#3" );
   EXPECT_EQ( 1u, traces.lines().size() );
   EXPECT_TRUE( traces.has( "Invalid maintenance class: maintPause for instanceName: u1#3", 1 ) );
   EXPECT_EQ( 0u, rig.counters().numMaintEnter() );
   EXPECT_EQ( 0u, rig.counters().numMaintExit() );
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
   rig.root->doStageForInstance( maintEnterClass, stageName, "u1#3" );
   rig.root->doStageForInstance( maintEnterClass, stageName, "" );
   ASSERT_TRUE( rig.root->unitMon( "" ) );
   EXPECT_EQ( 0u, rig.root->unitMon( "" )->genId() );
   EXPECT_EQ( 0u, rig.counters().numMaintEnterUnitMonPresent() );
}

// ---- enter

TEST_F( DrainWatchSmUnits, enterMonitorsTheUnitUnderItsGeneration ) {
   busy( et1 );
   rig.unitIs( "u1", { et1 } );
   rig.start();
   Vel::TraceCapture traces;
   rig.enter( "u1" );
   ASSERT_TRUE( rig.root->unitMon( "u1" ) );
   EXPECT_EQ( 1u, rig.root->unitMon( "u1" )->genId() );
   EXPECT_EQ(
      rig.root->unitMonIntfInput()->unitIntfInput( "u1" ), rig.root->unitMon( "u1" )->monIntf().get() );
   EXPECT_EQ(
      rig.root->unitDrainedIntf()->unitIntfInput( "u1" ), rig.root->unitMon( "u1" )->drainedIntf().get() );
   EXPECT_EQ( 1u, rig.counters().numMaintEnter() );
   EXPECT_FALSE( rig.enterComplete( "u1" ) );
   EXPECT_TRUE( traces.has( "handleUnitMaintenanceEnter: unit - u1, genId 1", 4 ) );
   EXPECT_TRUE( traces.has( "handleUnitMaintenanceEnter: started traffic monitoring for unit u1", 4 ) );
}

TEST_F( DrainWatchSmUnits, theMonitorOfAUnitIsSwitchedOn ) {
   busy( et1 );
   rig.unitIs( "u1", { et1 } );
   rig.start();
   rig.enter( "u1" );
   rig.root->unitMonIntfInput()->unitIntfInput( "u1" )->intfDel( et1 );
   EXPECT_EQ( 0u, rig.root->intfMons() );
}

TEST_F( DrainWatchSmUnits, aSecondEnterExitsTheOldCycleFirst ) {
   rig.unitIs( "u1", {} );
   rig.start();
   rig.root->doStageForInstance( maintEnterClass, stageName, "u1#3" );
   Vel::TraceCapture traces;
   rig.root->doStageForInstance( maintEnterClass, stageName, "u1#4" );
   EXPECT_EQ( 2u, rig.counters().numMaintEnter() );
   EXPECT_EQ( 1u, rig.counters().numMaintEnterUnitMonPresent() );
   EXPECT_EQ( 1u, rig.counters().numMaintExit() );
   EXPECT_EQ( 0u, rig.counters().numMaintExitInMaintModeEnter() );
   EXPECT_EQ( 1u, rig.root->unitMons() );
   EXPECT_EQ( 4u, rig.root->unitMon( "u1" )->genId() );
   EXPECT_TRUE( traces.has( "Unit u1 (genId 3) exists. Exiting maintenance", 4 ) );
   // The old monitor has reported the exit of generation 4, of which there is no instance.
   EXPECT_TRUE( traces.has( "No instance found for genId 4 unitName u1" ) );
   EXPECT_EQ( 0u, rig.exitClass.agentStatus->completes() );
}

TEST_F( DrainWatchSmUnits, theOldCycleOfASecondEnterCompletesTheExitOfItsGenerationIfThatIsListed ) {
   rig.unitIs( "u1", {} );
   listInstance( rig.exitClass, "u1#4" );
   rig.start();
   rig.root->doStageForInstance( maintEnterClass, stageName, "u1#3" );
   rig.root->doStageForInstance( maintEnterClass, stageName, "u1#4" );
   EXPECT_TRUE( complete( rig.exitClass, "u1#4" ) );
}

TEST_F( DrainWatchSmUnits, aSecondEnterOfAnEnteringUnitCountsAsAnExitThatInterrupts ) {
   rig.unitIs( "u1", {} );
   rig.unit( "u1" ).stateIs( UnitState::enterInProgress );
   rig.start();
   rig.root->doStageForInstance( maintEnterClass, stageName, "u1#3" );
   rig.root->doStageForInstance( maintEnterClass, stageName, "u1#4" );
   EXPECT_EQ( 1u, rig.counters().numMaintExitInMaintModeEnter() );
}

/// The removals by which the old monitor is emptied are checked like any other, under the new generation. The framework
/// never enters a unit twice without an exit.
TEST_F( DrainWatchSmUnits, aSecondEnterOfABusyUnitIsCompletedByTheReleaseOfTheFirst ) {
   busy( et1 );
   rig.unitIs( "u1", { et1 } );
   rig.start();
   rig.root->doStageForInstance( maintEnterClass, stageName, "u1#3" );
   listInstance( rig.enterClass, "u1#4" );
   EXPECT_FALSE( complete( rig.enterClass, "u1#4" ) );
   rig.root->doStageForInstance( maintEnterClass, stageName, "u1#4" );
   EXPECT_TRUE( complete( rig.enterClass, "u1#4" ) );
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
   {
      Vel::AssertionsThrow assertionsThrow;
      try {
         rig.root->handleUnitMaintenanceEnter( "u1", 4 );
         FAIL();
      } catch ( const Vel::AssertionFailed & failure ) {
         EXPECT_STREQ( "!unitMon( unitName )", failure.what() );
      }
   }
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

TEST_F( DrainWatchSmUnits, exitReleasesTheMonitorAndReportsItsOwnGeneration ) {
   busy( et1 );
   rig.unitIs( "u1", { et1 } );
   rig.start();
   rig.enter( "u1" );
   rig.entered( "u1" );
   Vel::TraceCapture traces;
   rig.exit( "u1" );
   EXPECT_EQ( 0u, rig.root->unitMons() );
   EXPECT_EQ( 0u, rig.root->intfMons() );
   EXPECT_EQ( 0u, rig.root->unitMonIntfInput()->unitIntfInputs() );
   EXPECT_EQ( 0u, rig.root->unitDrainedIntf()->unitIntfInputs() );
   EXPECT_TRUE( rig.exitComplete( "u1" ) );
   EXPECT_TRUE( complete( rig.exitClass, "u1#2" ) );
   EXPECT_EQ( 1u, rig.counters().numMaintExit() );
   EXPECT_EQ( 0u, rig.counters().numMaintExitInMaintModeEnter() );
   EXPECT_TRUE( traces.has( "handleUnitMaintenanceExit: unit - u1, genId 2", 4 ) );
   EXPECT_TRUE( traces.has( "prepareToDie: unit u1, genId 2" ) );
   EXPECT_EQ( 1u, traces.count( "prepareToDie: unit u1" ) );
   EXPECT_TRUE( traces.has( "handleUnitMaintenanceExit: done with traffic monitoring for unit u1", 4 ) );
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
   const auto refused = rig.counters().numNoNotifyNoStageInput();
   const auto completed = rig.counters().numNotifyStageCompletion();
   rig.exit( "u1" );
   EXPECT_EQ( 4u, rig.counters().numNoNotifyNoStageInput() - refused );
   EXPECT_EQ( 1u, rig.counters().numNotifyStageCompletion() - completed );
}

/// The framework retires the enter instance and takes a new generation, which keeps this out of reach.
TEST_F( DrainWatchSmUnits, anExitUnderTheGenerationOfAnEnterThatIsStillListedCompletesThatEnter ) {
   busy( et1 );
   rig.unitIs( "u1", { et1 } );
   rig.start();
   rig.enter( "u1" );
   rig.root->doStageForInstance( maintExitClass, stageName, "u1#1" );
   EXPECT_TRUE( complete( rig.enterClass, "u1#1" ) );
}

TEST_F( DrainWatchSmUnits, theExitOfAUnitThatIsNotMonitoredCompletesAllTheSame ) {
   rig.unitIs( "u1", {} );
   rig.start();
   Vel::TraceCapture traces;
   rig.exit( "u1" );
   EXPECT_TRUE( rig.exitComplete( "u1" ) );
   EXPECT_EQ( 1u, rig.counters().numMaintExitNoUnitMon() );
   EXPECT_EQ( 1u, rig.counters().numNotifyStageCompletion() );
   EXPECT_TRUE(
      traces.has( "Got maintenance exit notification when unitMonSm does not exist - unit u1", 4 ) );
   EXPECT_TRUE( traces.has( "  notifying stage completion anyway.", 4 ) );
}

TEST_F( DrainWatchSmUnits, anExitThatInterruptsAnEnterIsCountedAndGoesOnAsUsual ) {
   busy( et1 );
   rig.unitIs( "u1", { et1 } );
   rig.start();
   rig.enter( "u1" );
   listInstance( rig.exitClass, "u1#2" );
   rig.root->doStageForInstance( maintExitClass, stageName, "u1#2" );
   EXPECT_EQ( 1u, rig.counters().numMaintExitInMaintModeEnter() );
   EXPECT_EQ( 0u, rig.root->unitMons() );
   EXPECT_TRUE( complete( rig.exitClass, "u1#2" ) );
}

// ---- the unit's status

TEST_F( DrainWatchSmUnits, deletingAUnitsStatusReleasesItsMonitor ) {
   rig.unitIs( "u1", {} );
   rig.start();
   rig.enter( "u1" );
   Vel::TraceCapture traces;
   rig.unitStatusDir->statusDel( "u1" );
   EXPECT_EQ( 0u, rig.root->unitMons() );
   EXPECT_EQ( 1u, rig.counters().numUnitStatusDel() );
   EXPECT_TRUE( traces.has( "handleUnitStatus: u1", 5 ) );
   EXPECT_TRUE( traces.has( "Deleted unitMonSm for unit u1", 4 ) );
   const auto refused = rig.counters().numNoNotifyNoUnitStatus();
   rig.root->notifyStageCompletion( "u1", 1, MaintenanceOp::enter );
   EXPECT_EQ( refused + 1, rig.counters().numNoNotifyNoUnitStatus() );
}

TEST_F( DrainWatchSmUnits, aUnitThatIsDeletedIsCountedBeforeItsMonitorGoes ) {
   rig.unitIs( "u1", {} );
   rig.start();
   rig.enter( "u1" );
   struct Seen {
      Vel::U32 deletions = 0;
   } seen;
   struct VelRoot final : Vel::ReactorTo< Seen, DrainWatchSm > {
      using ReactorTo::ReactorTo;
      void onUnitMon( const Vel::String & ) override {
         sm()->deletions = entity()->counters()->numUnitStatusDel();
      }
   };
   Vel::Watch< VelRoot > watch;
   watch.is( rig.root, &seen ).hasNotificationActiveIs( true );
   rig.unitStatusDir->statusDel( "u1" );
   EXPECT_EQ( 1u, seen.deletions );
}

TEST_F( DrainWatchSmUnits, deletingTheStatusOfAUnitThatIsNotMonitoredDoesNothing ) {
   rig.unitIs( "u1", {} );
   rig.start();
   rig.unitStatusDir->statusDel( "u1" );
   EXPECT_EQ( 0u, rig.counters().numUnitStatusDel() );
}

TEST_F( DrainWatchSmUnits, aUnitsStatusDoesNotStartOrStopAnything ) {
   rig.unitIs( "u1", {} );
   rig.start();
   rig.unit( "u1" ).stateIs( UnitState::enterInProgress );
   rig.unit( "u2" );
   EXPECT_EQ( 0u, rig.root->unitMons() );
   rig.enter( "u1" );
   rig.unit( "u1" ).stateIs( UnitState::exitInProgress );
   EXPECT_EQ( 1u, rig.root->unitMons() );
}

// ---- completion

TEST_F( DrainWatchSmUnits, completionIsRefusedWhereItHasNoPlace ) {
   struct Case {
      const char * what;
      MaintenanceOp op;
      bool instance, listed, running, unit;
      const char * trace;
      Vel::U32 ( DrainWatchSmDebugCounters::*counter )() const;
   };
   const char * const noInstance = "No instance found for genId 7 unitName u1";
   const char * const notActive = "Unit u1, genId 7 - DrainWatch not among active stages. Not notifying ";
   const char * const noUnit = "Unit u1 ,genId 7does not exit in unit status directory";
   const auto counterNoInstance = &DrainWatchSmDebugCounters::numNoNotifyNoStageInput;
   const auto counterNotActive = &DrainWatchSmDebugCounters::numNoNotifyActiveStageMismatch;
   const auto counterNoUnit = &DrainWatchSmDebugCounters::numNoNotifyNoUnitStatus;
   const auto enter = MaintenanceOp::enter;
   const auto exit = MaintenanceOp::exit;
   for ( const Case & c : {
            Case{ "nothing at all", enter, false, false, false, false, noInstance, counterNoInstance },
            Case{ "no instance", enter, false, false, false, true, noInstance, counterNoInstance },
            Case{ "no exit instance", exit, false, false, false, true, noInstance, counterNoInstance },
            Case{ "another stage", enter, true, false, false, true, notActive, counterNotActive },
            Case{ "stage not on", enter, true, true, false, true, notActive, counterNotActive },
            Case{ "stage not on, no unit", exit, true, true, false, false, notActive, counterNotActive },
            Case{ "no unit", enter, true, true, true, false, noUnit, counterNoUnit },
            Case{ "no unit at exit", exit, true, true, true, false, noUnit, counterNoUnit },
         } ) {
      SCOPED_TRACE( c.what );
      PluginRig world;
      PluginRig::StageClass & stageClass = c.op == enter ? world.enterClass : world.exitClass;
      if ( c.instance ) {
         auto * progress = stageClass.progressDir->progressIs( "u1#7" );
         progress->stageStatusIs( "other", Stage::stageRunning );
         if ( c.listed )
            progress->stageStatusIs( stageName, c.running ? Stage::stageRunning : Stage::stageInactive );
      }
      if ( c.unit )
         world.unit( "u1" );
      world.start();
      Vel::TraceCapture traces;
      world.root->notifyStageCompletion( "u1", 7, c.op );
      EXPECT_EQ( 1u, traces.lines().size() );
      EXPECT_TRUE( traces.has( c.trace, 4 ) );
      EXPECT_EQ( 1u, ( world.counters().*c.counter )() );
      EXPECT_EQ( 0u, world.counters().numNotifyStageCompletion() );
      EXPECT_EQ( 0u, world.enterClass.agentStatus->completes() );
      EXPECT_EQ( 0u, world.exitClass.agentStatus->completes() );
   }
}

TEST_F( DrainWatchSmUnits, completionIsReportedToTheHelperOfItsOperation ) {
   rig.unit( "u1" );
   listInstance( rig.enterClass, "u1#7" );
   listInstance( rig.exitClass, "u1#7" );
   rig.start();
   Vel::TraceCapture traces;
   rig.root->notifyStageCompletion( "u1", 7, MaintenanceOp::enter );
   EXPECT_TRUE( complete( rig.enterClass, "u1#7" ) );
   EXPECT_FALSE( complete( rig.exitClass, "u1#7" ) );
   EXPECT_TRUE( traces.has( "notifyStageCompletion: Unit - u1, genId 7, op enter, stage drainwatch ", 4 ) );
   rig.root->notifyStageCompletion( "u1", 7, MaintenanceOp::exit );
   EXPECT_TRUE( complete( rig.exitClass, "u1#7" ) );
   EXPECT_EQ( 2u, rig.counters().numNotifyStageCompletion() );
}

TEST_F( DrainWatchSmUnits, aStageThatIsOverButStillSetMayBeCompleted ) {
   rig.unit( "u1" );
   listInstance( rig.enterClass, "u1#7" );
   rig.enterClass.progressDir->progress( "u1#7" )->stageStatusIs( stageName, Stage::stageComplete );
   rig.start();
   rig.root->notifyStageCompletion( "u1", 7, MaintenanceOp::enter );
   EXPECT_TRUE( complete( rig.enterClass, "u1#7" ) );
}

TEST_F( DrainWatchSmUnits, aCompletionIsCountedOnceItIsWritten ) {
   rig.unit( "u1" );
   listInstance( rig.enterClass, "u1#7" );
   rig.start();
   struct Seen {
      const PluginRig & rig;
      Vel::U32 completions = 99;
   } seen{ rig };
   struct VelAgentStatus final : Vel::ReactorTo< Seen, Stage::AgentStatus > {
      using ReactorTo::ReactorTo;
      void onComplete( const Stage::AgentStatusKey & ) override {
         sm()->completions = sm()->rig.counters().numNotifyStageCompletion();
      }
   };
   Vel::Watch< VelAgentStatus > watch;
   watch.is( rig.enterClass.agentStatus, &seen ).hasNotificationActiveIs( true );
   rig.root->notifyStageCompletion( "u1", 7, MaintenanceOp::enter );
   EXPECT_EQ( 0u, seen.completions );
   EXPECT_EQ( 1u, rig.counters().numNotifyStageCompletion() );
}

TEST_F( DrainWatchSmUnits, aRepeatedCompletionIsCountedAndStaysOneEntry ) {
   rig.unit( "u1" );
   listInstance( rig.enterClass, "u1#7" );
   rig.start();
   rig.root->notifyStageCompletion( "u1", 7, MaintenanceOp::enter );
   rig.root->notifyStageCompletion( "u1", 7, MaintenanceOp::enter );
   EXPECT_EQ( 2u, rig.counters().numNotifyStageCompletion() );
   EXPECT_EQ( 0u, rig.counters().numNoNotifyAlreadyNotified() );
   EXPECT_EQ( 1u, rig.enterClass.agentStatus->completes() );
}

TEST_F( DrainWatchSmUnits, aCompletionEndsQuietlyAfterItsChecksOnceTheHelperIsReleased ) {
   rig.unit( "u1" );
   listInstance( rig.enterClass, "u1#7" );
   rig.start();
   rig.root->maintEnterStageHelperDel();
   Vel::TraceCapture traces;
   rig.root->notifyStageCompletion( "u1", 7, MaintenanceOp::enter );
   EXPECT_TRUE( traces.lines().empty() );
   EXPECT_EQ( 0u, rig.counters().numNotifyStageCompletion() );
   EXPECT_EQ( 0u, rig.enterClass.agentStatus->completes() );
   // The checks come first: they count without a helper too.
   rig.root->notifyStageCompletion( "u1", 8, MaintenanceOp::enter );
   EXPECT_EQ( 1u, rig.counters().numNoNotifyNoStageInput() );
}

TEST_F( DrainWatchSmUnits, theFastLogTellsWhatBecameOfAUnit ) {
   rig.unitIs( "u1", {} );
   rig.start();
   FastLog::Capture log;
   rig.root->doStageForInstance( maintEnterClass, stageName, "u1#3" );
   EXPECT_TRUE( log.has( "unit u1, genId 3, stage drainwatch, op enter" ) );
   EXPECT_TRUE( log.has( "started traffic monitoring for unit u1" ) );
   listInstance( rig.enterClass, "u1#4" );
   rig.root->doStageForInstance( maintEnterClass, stageName, "u1#4" );
   EXPECT_TRUE( log.has( "Unit u1 (genId 3) exists. Exiting maintenance" ) );
   EXPECT_TRUE( log.has( "Notifying stage completion - unit u1 ,genId 4, stage drainwatch, op enter" ) );
   EXPECT_TRUE( log.has( " agentStatus=MaintenanceMode stage=drainwatch instanceName=u1#4 del=0" ) );
   rig.root->doStageForInstance( maintExitClass, stageName, "u1#5" );
   EXPECT_TRUE( log.has( "done with traffic monitoring for unit u1" ) );
   rig.root->doStageForInstance( maintExitClass, stageName, "u1#6" );
   EXPECT_TRUE( log.has( "notifying stage completion for non-existent unitMonSm u1" ) );
   rig.root->doStageForInstance( maintEnterClass, stageName, "u1#7" );
   rig.unitStatusDir->statusDel( "u1" );
   EXPECT_TRUE( log.has( "Deleted unitMonSm for unit u1" ) );
}

// ---- the collection

struct DrainWatchSmUnitMon : DrainWatchSmUnits {
   Vel::Ptr< UnitIntfInput > monIntf = Vel::make< UnitIntfInput >( "u1" );
   Vel::Ptr< UnitIntfInput > drainedIntf = Vel::make< UnitIntfInput >( "u1" );
   Vel::Ptr< UnitIntfInput > other = Vel::make< UnitIntfInput >( "u2" );

   Vel::String refusal(
      DrainWatchSm * root, const Vel::Ptr< UnitIntfInput > & mon,
      const Vel::Ptr< UnitIntfInput > & drained ) {
      try {
         rig.root->unitMonIs( "u1", 9, root, mon, drained );
      } catch ( const Vel::NameInUse & error ) {
         return error.what();
      }
      return "not refused";
   }
   static Vel::String text( const char * attribute, const char * newValue, const char * current ) {
      return Vel::text(
         "Reinstantiating the pointer interface where constructor parameter attribute ", attribute,
         " has a different value of ", newValue, " than the current value of ", current, " not allowed" );
   }
};

TEST_F( DrainWatchSmUnitMon, isTheOneThatIsThereWithTheNewGeneration ) {
   rig.start();
   const auto first = rig.root->unitMonIs( "u1", 3, rig.root.get(), monIntf, drainedIntf );
   const auto second = rig.root->unitMonIs( "u1", 4, rig.root.get(), monIntf, drainedIntf );
   EXPECT_EQ( first, second );
   EXPECT_EQ( 4u, first->genId() );
   EXPECT_EQ( 1u, rig.root->unitMons() );
   // Without its entries in the root's directories the monitor could not be released in the ordinary way.
   rig.root->unitMonIntfInput()->unitIntfInputPut( "u1", monIntf );
   rig.root->unitDrainedIntf()->unitIntfInputPut( "u1", drainedIntf );
}

TEST_F( DrainWatchSmUnitMon, isRefusedIfItWasBuiltFromOtherObjects ) {
   rig.start();
   rig.root->unitMonIntfInput()->unitIntfInputPut( "u1", monIntf );
   rig.root->unitDrainedIntf()->unitIntfInputPut( "u1", drainedIntf );
   rig.root->unitMonIs( "u1", 3, rig.root.get(), monIntf, drainedIntf );
   const char * const u1 = "MaintenanceMode::UnitIntfInput u1";
   const char * const u2 = "MaintenanceMode::UnitIntfInput u2";
   EXPECT_EQ(
      text( "_rootSm", "null", "MaintenanceMode::DrainWatchSm" ), refusal( nullptr, monIntf, drainedIntf ) );
   EXPECT_EQ( text( "_monIntf", u2, u1 ), refusal( rig.root.get(), other, drainedIntf ) );
   EXPECT_EQ( text( "_drainedIntf", u2, u1 ), refusal( rig.root.get(), monIntf, other ) );
   EXPECT_EQ( text( "_drainedIntf", "null", u1 ), refusal( rig.root.get(), monIntf, nullptr ) );
   EXPECT_EQ( 3u, rig.root->unitMon( "u1" )->genId() );
}

TEST_F( DrainWatchSmUnitMon, preparesToDieOnceHoweverItIsReleased ) {
   rig.start();
   for ( const char * unitName : { "u1", "u2", "u3" } )
      rig.root->handleUnitMaintenanceEnter( unitName, 1 );
   Vel::TraceCapture traces;
   rig.root->unitMonDel( "u2" );
   EXPECT_EQ( 1u, traces.count( "prepareToDie: unit u2, genId 1" ) );
   rig.root->unitMonDel( "u2" );
   rig.root->unitMonDelAll();
   for ( const char * unitName : { "u1", "u2", "u3" } ) {
      SCOPED_TRACE( unitName );
      EXPECT_EQ( 1u, traces.count( Vel::text( "prepareToDie: unit ", unitName ) ) );
   }
   EXPECT_EQ( 0u, rig.root->unitMons() );
}

} // namespace
} // namespace MaintenanceMode
