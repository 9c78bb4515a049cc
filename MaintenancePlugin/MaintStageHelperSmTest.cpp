#include "MaintenancePlugin/PluginRig.h"
#include "MaintenancePlugin/Recorded.h"

#include <gtest/gtest.h>

namespace MaintenanceMode {
namespace {

struct MaintStageHelper : testing::Test {
   PluginRig rig;

   Stage::Progress & record( const Vel::Name & instanceName ) {
      return *rig.enterClass.progressDir->progressIs( instanceName );
   }
   Stage::AgentStatus & agentStatus() { return *rig.enterClass.agentStatus; }
   Stage::AgentStatusKey key( const Vel::Name & instanceName, const Vel::String & stage = stageName ) {
      return { agentStatus().name(), stage, instanceName };
   }
   MaintStageHelperSm & helper() { return *rig.root->maintEnterStageHelper(); }
   /// How many enters have reached the root.
   Vel::U32 enters() { return rig.counters().numMaintEnter(); }
};

TEST_F( MaintStageHelper, callsTheRootOnceForEachChangeToOurStage ) {
   rig.start();
   record( "u1#1" ).stageIs( stageName );
   EXPECT_EQ( 1u, enters() );
   record( "u1#1" ).stageIs( stageName );
   EXPECT_EQ( 1u, enters() );
   record( "u1#1" ).stageIs( "other" );
   record( "u1#1" ).stageIs( stageName );
   EXPECT_EQ( 2u, enters() );
}

TEST_F( MaintStageHelper, handsOverItsStageClassTheStageAndTheRecordsName ) {
   rig.start();
   Sequence sequence( "MaintStageHelperSm" );
   rig.exitClass.progressDir->progressIs( "u1#7" )->stageIs( stageName );
   EXPECT_EQ( 0u, enters() );
   EXPECT_EQ( 1u, rig.counters().numMaintExit() );
   EXPECT_EQ( Lines{ "handleStage:  stageClass= maintExit, stage=drainwatch" }, sequence.lines() );
   EXPECT_TRUE( sequence.traced( "doStageForInstance: unit u1, genId 7, stage drainwatch, op 2", 4 ) );
}

TEST_F( MaintStageHelper, ignoresTheStagesOfOthers ) {
   rig.start();
   Sequence sequence( "MaintStageHelperSm" );
   record( "u1#1" ).stageIs( "other" );
   EXPECT_EQ( 0u, enters() );
   EXPECT_EQ( Lines{ "handleStage:  stageClass= maintEnter, stage=other" }, sequence.lines() );
   EXPECT_TRUE( sequence.traced( "handleStage:", 9 ) );
   EXPECT_FALSE( sequence.traced( "doStageForInstance", 4 ) );
}

TEST_F( MaintStageHelper, ignoresStagesWhileTheRootIsNotInitialised ) {
   rig.start();
   rig.root->initializedIs( false );
   Sequence sequence( "MaintStageHelperSm" );
   record( "u1#1" ).stageIs( stageName );
   EXPECT_EQ( 0u, enters() );
   EXPECT_EQ( Lines{ "handleStage:  stageClass= maintEnter, stage=drainwatch" }, sequence.lines() );
   rig.root->initializedIs( true );
   EXPECT_EQ( 0u, enters() );
}

TEST_F( MaintStageHelper, ignoresStagesOfExitsWhileTheRootIsNotInitialised ) {
   rig.start();
   rig.root->initializedIs( false );
   rig.exitClass.progressDir->progressIs( "u1#7" )->stageIs( stageName );
   EXPECT_EQ( 0u, rig.counters().numMaintExit() );
}

TEST_F( MaintStageHelper, removesItsCompletionWhileTheRootIsNotInitialisedToo ) {
   rig.start();
   rig.enterClass.completionStatus->statusIs( "u1#1", Stage::stageRunning );
   agentStatus().completeIs( key( "u1#1" ), true );
   rig.root->initializedIs( false );
   rig.enterClass.completionStatus->statusDel( "u1#1" );
   EXPECT_EQ( 0u, agentStatus().completes() );
}

TEST_F( MaintStageHelper, watchesItsDirectoriesAndEachRecordThatWasThereBefore ) {
   record( "u1#1" );
   record( "u2#1" );
   rig.start();
   EXPECT_EQ( 1u, rig.enterClass.progressDir->velReactors() );
   EXPECT_EQ( 1u, rig.enterClass.completionStatus->velReactors() );
   EXPECT_EQ( 2u, helper().progresss() );
   EXPECT_EQ( 1u, record( "u2#1" ).velReactors() );
   ASSERT_TRUE( helper().progress( "u1#1" ) );
   EXPECT_EQ( &record( "u1#1" ), helper().progress( "u1#1" )->entity() );
   record( "u1#1" ).stageIs( stageName );
   EXPECT_EQ( 1u, enters() );
}

TEST_F( MaintStageHelper, isNotToldAgainOfTheStageThatARecordHadBefore ) {
   record( "u1#1" ).stageIs( stageName );
   rig.start();
   EXPECT_EQ( 0u, enters() );
}

TEST_F( MaintStageHelper, leavesARecordThatHasGone ) {
   rig.start();
   const Vel::Ptr< Stage::Progress > gone( &record( "u1#1" ) );
   rig.enterClass.progressDir->progressDel( "u1#1" );
   EXPECT_EQ( 0u, helper().progresss() );
   EXPECT_EQ( 0u, gone->velReactors() );
   gone->stageIs( stageName );
   EXPECT_EQ( 0u, enters() );
}

TEST_F( MaintStageHelper, followsARecordThatReplacesAnother ) {
   rig.start();
   record( "u1#1" );
   rig.enterClass.progressDir->progressPut( "u1#1", Vel::make< Stage::Progress >( "u1#1" ) );
   record( "u1#1" ).stageIs( stageName );
   EXPECT_EQ( 1u, enters() );
}

TEST_F( MaintStageHelper, forgetsARecordThatVanishedBeforeItWasLookedUp ) {
   rig.start();
   record( "u1#1" );
   helper().handleProgress( "u2#1" );
   EXPECT_FALSE( helper().progress( "u2#1" ) );
   EXPECT_TRUE( helper().progress( "u1#1" ) );
}

TEST_F( MaintStageHelper, refusesToWatchNoRecord ) {
   rig.start();
   try {
      helper().progressIs( "u1#1", nullptr );
      FAIL();
   } catch ( const Vel::RangeError & error ) {
      EXPECT_STREQ(
         "null _progress parameter to mutator for MaintenanceMode::MaintStageHelperSm::progress not allowed",
         error.what() );
   }
}

TEST_F( MaintStageHelper, recordsACompletionOnce ) {
   rig.start();
   helper().doStageCompleteForInstance( stageName, "u1#1" );
   helper().doStageCompleteForInstance( stageName, "u1#1" );
   ASSERT_EQ( 1u, agentStatus().completes() );
   ASSERT_TRUE( agentStatus().complete( key( "u1#1" ) ) );
   EXPECT_TRUE( *agentStatus().complete( key( "u1#1" ) ) );
}

TEST_F( MaintStageHelper, tellsOfACompletionEntryThatItMakes ) {
   rig.start();
   Sequence sequence( "MaintStageHelperSm" );
   helper().doStageCompleteForInstance( stageName, "u1#1" );
   const Vel::String fields = " agentStatus=MaintenanceMode stage=drainwatch instanceName=u1#1 del=0";
   EXPECT_EQ(
      ( Lines{
         "doStageCompleteForInstance:  stageClass=maintEnter, stage=drainwatch, instanceName=u1#1",
         "setStageEventComplete: " + fields } ),
      sequence.lines() );
   EXPECT_TRUE( sequence.traced( "doStageCompleteForInstance: ", 9 ) );
   EXPECT_TRUE( sequence.traced( "setStageEventComplete: ", 9 ) );
   EXPECT_EQ( Lines{ fields }, sequence.logged() );
}

TEST_F( MaintStageHelper, tellsOfACompletionEntryThatItRemoves ) {
   rig.start();
   Sequence sequence( "MaintStageHelperSm" );
   helper().handleMaintInstStatusDel( "u1#1" );
   const Vel::String fields = " agentStatus=MaintenanceMode stage=drainwatch instanceName=u1#1 del=1";
   EXPECT_EQ(
      ( Lines{
         "void MaintenanceMode::MaintStageHelperSm::handleMaintInstStatusDel(const Vel::Name&):  "
         "instanceName: u1#1",
         "setStageEventComplete: " + fields } ),
      sequence.lines() );
   EXPECT_TRUE( sequence.traced( "handleMaintInstStatusDel(", 9 ) );
   EXPECT_EQ( Lines{ fields }, sequence.logged() );
}

TEST_F( MaintStageHelper, withoutAnAgentStatusThereIsATraceAndNothingElse ) {
   rig.start();
   Sequence sequence( "MaintStageHelperSm" );
   setStageEventComplete( nullptr, stageName, "u1#1", false );
   const Vel::String fields = " agentStatus=null stage=drainwatch instanceName=u1#1 del=0";
   EXPECT_EQ( Lines{ "setStageEventComplete: " + fields }, sequence.lines() );
   EXPECT_EQ( Lines{ fields }, sequence.logged() );
   EXPECT_EQ( 0u, agentStatus().completes() );
}

TEST_F( MaintStageHelper, removesItsCompletionWhenTheFrameworkHasFinishedWithTheInstance ) {
   rig.start();
   auto & status = *rig.enterClass.completionStatus;
   status.statusIs( "u1#1", Stage::stageRunning );
   status.statusIs( "u2#1", Stage::stageRunning );
   agentStatus().completeIs( key( "u1#1" ), true );
   agentStatus().completeIs( key( "u2#1" ), true );
   agentStatus().completeIs( key( "u1#1", "other" ), true );
   status.statusDel( "u1#1" );
   EXPECT_FALSE( agentStatus().complete( key( "u1#1" ) ) );
   EXPECT_TRUE( agentStatus().complete( key( "u2#1" ) ) );
   EXPECT_TRUE( agentStatus().complete( key( "u1#1", "other" ) ) );
}

TEST_F( MaintStageHelper, keepsItsCompletionWhileTheInstanceIsKnown ) {
   rig.start();
   auto & status = *rig.enterClass.completionStatus;
   status.statusIs( "u1#1", Stage::stageRunning );
   agentStatus().completeIs( key( "u1#1" ), true );
   Sequence sequence( "MaintStageHelperSm" );
   status.statusIs( "u1#1", Stage::stageComplete );
   EXPECT_TRUE( agentStatus().complete( key( "u1#1" ) ) );
   ASSERT_EQ( 2u, sequence.lines().size() );
   EXPECT_EQ( "handleMaintInstStatusDel: InstanceName: u1#1 is added to InstStatus", sequence.lines()[1] );
   EXPECT_TRUE( sequence.traced( "handleMaintInstStatusDel: InstanceName: ", 9 ) );
}

TEST_F( MaintStageHelper, deletesCompletionsOfUnknownInstancesAtStartWhateverTheirStage ) {
   rig.enterClass.completionStatus->statusIs( "known#1", Stage::stageRunning );
   for ( const char * instanceName : { "known#1", "unknown#1" } )
      for ( const char * stage : { "drainwatch", "other" } )
         agentStatus().completeIs( key( instanceName, stage ), true );
   rig.start();
   EXPECT_EQ( 2u, agentStatus().completes() );
   EXPECT_TRUE( agentStatus().complete( key( "known#1" ) ) );
   EXPECT_TRUE( agentStatus().complete( key( "known#1", "other" ) ) );
}

TEST_F( MaintStageHelper, deletesCompletionsOfUnknownInstancesAtStartWhoeverMadeThemAndWhateverTheySay ) {
   agentStatus().completeIs( { "former", stageName, "unknown#1" }, true );
   agentStatus().completeIs( key( "unknown#1" ), false );
   rig.start();
   EXPECT_EQ( 0u, agentStatus().completes() );
}

TEST_F( MaintStageHelper, takesAbsentInputsForEmptyOnes ) {
   rig.start();
   agentStatus().completeIs( key( "u1#1" ), true );
   auto withoutAnything =
      Vel::make< MaintStageHelperSm >( "maintEnter", nullptr, nullptr, nullptr, nullptr, rig.root.get() );
   withoutAnything->handleInitialized();
   withoutAnything->hasNotificationActiveIs( true );
   withoutAnything->doStageCompleteForInstance( stageName, "u1#1" );
   withoutAnything->handleMaintInstStatusDel( "u1#1" );
   EXPECT_EQ( 1u, agentStatus().completes() );

   auto withoutInstances = Vel::make< MaintStageHelperSm >(
      "maintEnter", nullptr, nullptr, nullptr, rig.enterClass.agentStatus, rig.root.get() );
   withoutInstances->handleInitialized();
   EXPECT_EQ( 0u, agentStatus().completes() );
}

TEST_F( MaintStageHelper, aCompletionStatusThatAppearsIsOnlyTraced ) {
   rig.start();
   agentStatus().completeIs( key( "u1#1" ), true );
   Sequence sequence( "MaintStageHelperSm" );
   rig.enterClass.completionStatus->statusIs( "u1#1", Stage::stageRunning );
   EXPECT_TRUE( agentStatus().complete( key( "u1#1" ) ) );
   EXPECT_EQ(
      ( Lines{
         "void MaintenanceMode::MaintStageHelperSm::handleMaintInstStatusDel(const Vel::Name&):  "
         "instanceName: u1#1",
         "handleMaintInstStatusDel: InstanceName: u1#1 is added to InstStatus" } ),
      sequence.lines() );
   EXPECT_EQ( Lines(), sequence.logged() );
}

TEST_F( MaintStageHelper, tellsOfItsStart ) {
   Sequence sequence( "MaintStageHelperSm" );
   const auto other = Vel::make< MaintStageHelperSm >( "x", nullptr, nullptr, nullptr, nullptr, nullptr );
   other->handleInitialized();
   EXPECT_EQ( Lines{ "handleInitialized: called" }, sequence.lines() );
   EXPECT_TRUE( sequence.traced( "handleInitialized: ", 9 ) );
}

TEST_F( MaintStageHelper, nobodyNeedsToKnowWhetherItIsInitialised ) {
   rig.start();
   EXPECT_FALSE( helper().initialized() );
}

TEST_F( MaintStageHelper, leavesNoReactorBehind ) {
   record( "u1#1" );
   rig.start();
   rig.stop();
   EXPECT_EQ( 0u, record( "u1#1" ).velReactors() );
   EXPECT_EQ( 0u, rig.enterClass.progressDir->velReactors() );
   EXPECT_EQ( 0u, rig.enterClass.completionStatus->velReactors() );
}

} // namespace
} // namespace MaintenanceMode
