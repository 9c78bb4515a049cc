#include "Agent/Stages/StagesRigTest.h"

#include <set>

namespace {

using Agent::Stages;
using Agent::StagesStory;
using Maintenance::Unit::UnitState;

TEST_F( StagesStory, beginsWithUnitsThatAreNormal ) { EXPECT_EQ( UnitState::normal, unit().state() ); }

/// Whoever carries out the stage may complete it inside the write of the stage, so all else must be there.
TEST_F( StagesStory, writesTheStageLastWhenARunStarts ) {
   Stage::StageWrites writes;
   watch( writes );
   enter();
   EXPECT_EQ(
      ( std::vector< Vel::String >{
         "generation 1",
         "enter instance \"u1#1\"",
         "state enterInProgress",
         "enter: + u1#1",
         "enter: status of drainwatch 1",
         "enter: completion status + u1#1",
         "enter: stage drainwatch",
      } ),
      writes.taken() );
}

TEST_F( StagesStory, keepsWhoAndWhyAndSinceWhen ) {
   clock->advance( 5 );
   enter();
   EXPECT_EQ( "upgrade", run().reason() );
   EXPECT_EQ( "ann", run().by() );
   EXPECT_EQ( clock->currentTime(), run().since() );
   EXPECT_EQ( Agent::Wanted::maintenance, run().wanted() );
}

TEST_F( StagesStory, waitsForTheStage ) {
   enter();
   clock->advance( 100 );
   EXPECT_EQ( UnitState::enterInProgress, unit().state() );
   EXPECT_EQ( "drainwatch", stages->stage( "u1" ) );
}

TEST_F( StagesStory, reachesMaintenanceWhenTheSettleTimeIsOver ) {
   enter();
   complete();
   clock->advance( 9 );
   EXPECT_EQ( UnitState::enterInProgress, unit().state() );
   clock->advance( 2 );
   EXPECT_EQ( UnitState::maintenance, unit().state() );
}

TEST_F( StagesStory, neverActsInsideTheWriteOfACompletion ) {
   stages->settleTimeIs( 0 );
   enter();
   complete();
   EXPECT_EQ( UnitState::enterInProgress, unit().state() );
   clock->runTurn();
   EXPECT_EQ( UnitState::maintenance, unit().state() );
}

TEST_F( StagesStory, startsTheSettleTimeAgainWhenAMemberIsNotDrained ) {
   auto * record = member( "et1" );
   record->stateIs( Maintenance::monIntfStateUnderMaint );
   enter();
   complete();
   clock->advance( 8 );
   record->stateIs( Maintenance::monIntfStateEnterMaint );
   clock->advance( 3 );
   EXPECT_EQ( UnitState::enterInProgress, unit().state() );
   record->stateIs( Maintenance::monIntfStateUnderMaint );
   clock->advance( 9 );
   EXPECT_EQ( UnitState::enterInProgress, unit().state() );
   clock->advance( 3 );
   EXPECT_EQ( UnitState::maintenance, unit().state() );
}

TEST_F( StagesStory, keepsTheStageStatusUntilTheUnitIsInMaintenance ) {
   toMaintenance();
   const auto * progress = model.enter.progressDir->progress( "u1#1" );
   ASSERT_NE( nullptr, progress );
   EXPECT_EQ( Stage::stageRunning, *progress->stageStatus( "drainwatch" ) );
}

TEST_F( StagesStory, changesNothingWhenEnterIsAskedForAgain ) {
   enter();
   EXPECT_FALSE( stages->enter( "u1", { "other", "eve" } ) );
   EXPECT_EQ( 1u, unit().genId() );
   EXPECT_EQ( "ann", run().by() );
   complete();
   clock->advance( 11 );
   EXPECT_FALSE( enter() );
   EXPECT_EQ( UnitState::maintenance, unit().state() );
}

TEST_F( StagesStory, keepsADeadlineUntilTheUnitIsThere ) {
   const double begin = clock->currentTime();
   ASSERT_FALSE( stages->enter( "u1", { "upgrade", "ann", 60 } ) );
   EXPECT_EQ( begin + 60, run().deadline() );
   // It goes on when it is late, and a second request changes nothing.
   clock->advance( 90 );
   EXPECT_FALSE( stages->enter( "u1", { "again", "bob", 600 } ) );
   EXPECT_EQ( begin + 60, run().deadline() );
   EXPECT_EQ( UnitState::enterInProgress, unit().state() );
   complete();
   clock->advance( 11 );
   EXPECT_EQ( UnitState::maintenance, unit().state() );
   EXPECT_EQ( 0, run().deadline() );
}

TEST_F( StagesStory, forgetsTheDeadlineOfAnEnterThatIsCancelled ) {
   ASSERT_FALSE( stages->enter( "u1", { "upgrade", "ann", 60 } ) );
   ASSERT_FALSE( exit() );
   EXPECT_EQ( 0, run().deadline() );
}

TEST_F( StagesStory, refusesAnEnterDuringAnExit ) {
   toMaintenance();
   exit();
   const auto refused = enter();
   ASSERT_TRUE( refused );
   EXPECT_EQ( Api::ErrorCode::conflict, refused->code );
   EXPECT_EQ( UnitState::exitInProgress, unit().state() );
}

TEST_F( StagesStory, changesNothingWhenANormalUnitIsToExit ) {
   EXPECT_FALSE( exit() );
   EXPECT_EQ( UnitState::normal, unit().state() );
   EXPECT_EQ( 0u, unit().genId() );
}

TEST_F( StagesStory, retiresTheEnterBeforeTheExitStarts ) {
   toMaintenance();
   Stage::StageWrites writes;
   watch( writes );
   exit();
   EXPECT_EQ(
      ( std::vector< Vel::String >{
         "enter: - u1#1",
         "enter: completion status - u1#1",
         "generation 2",
         "enter instance \"\"",
         "exit instance \"u1#2\"",
         "state exitInProgress",
         "exit: + u1#2",
         "exit: status of drainwatch 1",
         "exit: completion status + u1#2",
         "exit: stage drainwatch",
      } ),
      writes.taken() );
}

TEST_F( StagesStory, isNormalAndRetiredWhenTheExitIsComplete ) {
   toMaintenance();
   exit();
   complete();
   clock->runUntilIdle();
   EXPECT_EQ( UnitState::normal, unit().state() );
   EXPECT_EQ( 0u, model.exit.progressDir->progresss() );
   EXPECT_EQ( 0u, model.exit.completionStatus->statuss() );
}

TEST_F( StagesStory, cancelsAnEnter ) {
   enter();
   EXPECT_FALSE( exit() );
   EXPECT_EQ( UnitState::exitInProgress, unit().state() );
   complete();
   clock->runUntilIdle();
   EXPECT_EQ( UnitState::normal, unit().state() );
   EXPECT_EQ( "bob", run().by() );
}

TEST_F( StagesStory, ignoresACompletionOfAnOlderRun ) {
   enter();
   exit();
   complete();
   clock->runUntilIdle();
   enter();
   model.enter.agentStatus->completeIs( { "MaintenanceMode", "drainwatch", "u1#1" }, true );
   clock->advance( 20 );
   EXPECT_EQ( UnitState::enterInProgress, unit().state() );
}

TEST_F( StagesStory, runsStagesOneAfterAnother ) {
   stages->unitIs( "u1", { { "steer", "drainwatch" }, { "drainwatch", "steer" } } );
   enter();
   EXPECT_EQ( "steer", stages->stage( "u1" ) );
   complete( "steer" );
   clock->runUntilIdle();
   EXPECT_EQ( "drainwatch", stages->stage( "u1" ) );
   complete( "drainwatch" );
   clock->advance( 11 );
   EXPECT_EQ( UnitState::maintenance, unit().state() );
}

TEST_F( StagesStory, finishesARunWithTheStagesThatItBeganWith ) {
   enter();
   stages->unitIs( "u1", { { "drainwatch", "other" }, {} } );
   complete();
   clock->advance( 11 );
   EXPECT_EQ( UnitState::maintenance, unit().state() );
}

TEST_F( StagesStory, goesBackTheWayThatWasConfiguredWhenItEntered ) {
   stages->unitIs( "u1", { { "drainwatch" }, { "drainwatch", "steer" } } );
   toMaintenance();
   stages->unitIs( "u1", { { "drainwatch" }, { "drainwatch" } } );
   exit();
   complete();
   clock->runUntilIdle();
   EXPECT_EQ( "steer", stages->stage( "u1" ) );
}

TEST_F( StagesStory, goesBackTheConfiguredWayIfAnEarlierVersionHasKeptNone ) {
   toMaintenance();
   run().exitStagesIs( "" );
   stages->unitIs( "u1", { { "drainwatch" }, { "steer", "drainwatch" } } );
   exit();
   EXPECT_EQ( "steer", stages->stage( "u1" ) );
}

TEST_F( StagesStory, passesOverWhatTheEnterHadNotComeToButNeverOverDrainwatch ) {
   stages->unitIs( "u1", { { "a", "drainwatch", "b" }, { "b", "drainwatch", "other", "a" } } );
   enter();
   exit();
   for ( const char * stage : { "drainwatch", "other", "a" } ) {
      EXPECT_EQ( stage, stages->stage( "u1" ) );
      complete( stage );
      clock->runUntilIdle();
   }
   EXPECT_EQ( UnitState::normal, unit().state() );
   EXPECT_EQ( Stages::StageState::skipped, stages->stages( "u1" ).at( 0 ).state );
   // The next run knows nothing of that.
   enter();
   EXPECT_EQ( Stages::StageState::pending, stages->stages( "u1" ).at( 2 ).state );
}

TEST_F( StagesStory, isBackAtOnceIfThereIsNothingToTakeBack ) {
   stages->unitIs( "u1", { { "a", "b" }, { "b" } } );
   enter();
   exit();
   clock->runUntilIdle();
   EXPECT_EQ( UnitState::normal, unit().state() );
}

TEST_F( StagesStory, isNotBackBeforeWhatRanOnTheWayInHasEnded ) {
   bool busy = false;
   stages->busyIs( [&]( const Vel::String & ) { return busy; } );
   stages->unitIs( "u1", { { "a", "b" }, { "b" } } );
   enter();
   busy = true;
   exit();
   clock->advance( 100 );
   EXPECT_EQ( UnitState::exitInProgress, unit().state() );
   busy = false;
   stages->look();
   clock->runUntilIdle();
   EXPECT_EQ( UnitState::normal, unit().state() );
}

TEST_F( StagesStory, beginsNoStageWhileSomethingOfAnEarlierOneRuns ) {
   bool busy = true;
   stages->busyIs( [&]( const Vel::String & ) { return busy; } );
   enter();
   EXPECT_EQ( UnitState::enterInProgress, unit().state() );
   EXPECT_EQ( "", stages->stage( "u1" ) );
   clock->advance( 100 );
   EXPECT_EQ( "", stages->stage( "u1" ) );
   busy = false;
   stages->look();
   clock->runUntilIdle();
   EXPECT_EQ( "drainwatch", stages->stage( "u1" ) );
   busy = true;
   exit();
   clock->runUntilIdle();
   EXPECT_EQ( "", stages->stage( "u1" ) );
   busy = false;
   restart();
   EXPECT_EQ( "drainwatch", stages->stage( "u1" ) );
}

TEST_F( StagesStory, tellsOfAnEnterBeforeItsFirstStageBegins ) {
   Stages::Lists told;
   stages->entersIs( [&]( const Vel::String & unitName, const Stages::Lists & lists ) {
      EXPECT_EQ( "u1", unitName );
      EXPECT_EQ( "", stages->stage( "u1" ) );
      told = lists;
   } );
   enter();
   EXPECT_EQ( ( Stages::Lists{ { "drainwatch" }, { "drainwatch" } } ), told );
}

TEST_F( StagesStory, showsAllStagesOfTheRunAndSinceWhen ) {
   using State = Stages::StageState;
   const auto shown = [this]( std::size_t i ) {
      const auto stage = stages->stages( "u1" ).at( i );
      return std::tuple( stage.name, stage.state, stage.since == 0 ? 0 : clock->currentTime() - stage.since );
   };
   EXPECT_TRUE( stages->stages( "u1" ).empty() );
   EXPECT_TRUE( stages->stages( "nobody" ).empty() );
   stages->unitIs( "u1", { { "steer", "drainwatch" }, { "drainwatch" } } );
   enter();
   clock->advance( 5 );
   EXPECT_EQ( std::tuple( "steer", State::running, 5 ), shown( 0 ) );
   EXPECT_EQ( std::tuple( "drainwatch", State::pending, 0 ), shown( 1 ) );
   complete( "steer" );
   clock->advance( 3 );
   EXPECT_EQ( std::tuple( "steer", State::complete, 3 ), shown( 0 ) );
   EXPECT_EQ( std::tuple( "drainwatch", State::running, 3 ), shown( 1 ) );
   complete();
   clock->advance( 20 );
   EXPECT_EQ( std::tuple( "drainwatch", State::complete, 20 ), shown( 1 ) );
   exit();
   complete();
   clock->advance( 1 );
   // What was is shown until there is something else.
   EXPECT_EQ( UnitState::normal, unit().state() );
   EXPECT_EQ( std::tuple( "drainwatch", State::complete, 1 ), shown( 0 ) );
   EXPECT_EQ( 1u, stages->stages( "u1" ).size() );
}

TEST_F( StagesStory, takesACompletionOfCommandsToo ) {
   const auto commandStatus = Vel::make< Stage::AgentStatus >( "Commands" );
   model.enter.commandStatus = commandStatus;
   stages.reset();
   restart();
   stages->unitIs( "u1", { { "steer", "drainwatch" }, { "drainwatch" } } );
   enter();
   commandStatus->completeIs( { "Commands", "steer", "u1#1" }, true );
   clock->runUntilIdle();
   EXPECT_EQ( "drainwatch", stages->stage( "u1" ) );
}

TEST_F( StagesStory, refusesAnEnterWhileHeld ) {
   stages->holdIs( [] { return Api::Error{ Api::ErrorCode::unavailable, "no store", "" }; } );
   const auto refused = enter();
   ASSERT_TRUE( refused );
   EXPECT_EQ( "no store", refused->message );
   EXPECT_EQ( UnitState::normal, unit().state() );
}

TEST_F( StagesStory, doesNotReachMaintenanceWhileHeldButLetsUnitsBack ) {
   bool held = false;
   stages->holdIs( [&]() -> Stages::Result {
      return held ? Stages::Result( Api::Error{ Api::ErrorCode::unavailable, "no store", "" } )
                  : std::nullopt;
   } );
   enter();
   complete();
   held = true;
   clock->advance( 60 );
   EXPECT_EQ( UnitState::enterInProgress, unit().state() );
   EXPECT_FALSE( exit() );
   EXPECT_EQ( UnitState::exitInProgress, unit().state() );
}

TEST_F( StagesStory, refusesAnEnterWhoseStageCannotBeCarriedOut ) {
   stages->stageCheckIs( []( const Vel::String & stage ) {
      return Api::Error{ Api::ErrorCode::unavailable, "no plug-in for stage " + stage, stage };
   } );
   const auto refused = enter();
   ASSERT_TRUE( refused );
   EXPECT_EQ( "no plug-in for stage drainwatch", refused->message );
}

TEST_F( StagesStory, refusesAnUnknownUnit ) {
   const auto refused = stages->enter( "nobody", {} );
   ASSERT_TRUE( refused );
   EXPECT_EQ( Api::ErrorCode::notFound, refused->code );
   EXPECT_EQ( "nobody", refused->where );
   EXPECT_TRUE( stages->exit( "nobody", {} ) );
}

TEST_F( StagesStory, takesUpARunAfterARestart ) {
   enter();
   complete();
   stages.reset();
   restart();
   clock->advance( 11 );
   EXPECT_EQ( UnitState::maintenance, unit().state() );
   EXPECT_EQ( "upgrade", run().reason() );
}

TEST_F( StagesStory, refusesToRemoveAUnitThatIsNotNormal ) {
   enter();
   ASSERT_TRUE( stages->unitDel( "u1" ) );
   EXPECT_TRUE( stages->unit( "u1" ) );
   exit();
   complete();
   clock->runUntilIdle();
   EXPECT_FALSE( stages->unitDel( "u1" ) );
   EXPECT_FALSE( stages->unit( "u1" ) );
}

TEST_F( StagesStory, letsAUnitBackThatIsNotConfiguredAnyMoreAndThenForgetsIt ) {
   enter();
   stages = std::make_unique< Stages >( clock, wheel, model );
   stages->resume();
   clock->runUntilIdle();
   ASSERT_TRUE( stages->unit( "u1" ) );
   EXPECT_FALSE( exit() );
   EXPECT_EQ( "drainwatch", stages->stage( "u1" ) );
   complete();
   clock->runUntilIdle();
   EXPECT_FALSE( stages->unit( "u1" ) );
   EXPECT_EQ( nullptr, model.unitRunDir->unitRun( "u1" ) );
   EXPECT_EQ( Api::ErrorCode::notFound, enter()->code );
}

TEST_F( StagesStory, usesEachGenerationOnceAndNever0 ) {
   unit().genIdIs( 0xfffffffe );
   enter();
   EXPECT_EQ( "u1#4294967295", unit().maintEnterInstanceName() );
   exit();
   EXPECT_EQ( "u1#1", unit().maintExitInstanceName() );
   complete();
   clock->runUntilIdle();
   EXPECT_EQ( UnitState::normal, unit().state() );
}

TEST_F( StagesStory, drivesHundredsOfUnits ) {
   const auto name = []( unsigned i ) { return Vel::text( "unit", i ); };
   for ( unsigned i = 0; i < 500; ++i ) {
      stages->unitIs( name( i ), { { "drainwatch" }, { "drainwatch" } } );
      ASSERT_FALSE( stages->enter( name( i ), {} ) );
      model.enter.agentStatus->completeIs( { "MaintenanceMode", "drainwatch", name( i ) + "#1" }, true );
   }
   clock->advance( 12 );
   for ( unsigned i = 0; i < 500; ++i )
      ASSERT_EQ( UnitState::maintenance, model.unitStatusDir->status( name( i ) )->state() ) << name( i );
}

TEST_F( StagesStory, countsMembersWithARecordOnceEach ) {
   member( "et1" )->stateIs( Maintenance::monIntfStateUnderMaint );
   member( "et2" );
   const Maintenance::GroupKey second{ Maintenance::GroupType::interfaceGroup, "h" };
   intfGroupStatusDir->statusIs( second )->intfIs( Wire::EthIntfId( "et1" ) );
   intfGroupStatusDir->statusIs( second )->intfIs( Wire::EthIntfId( "et3" ) );
   groupToUnitDir->mappingIs( second, "u1" );
   const auto counts = stages->counts( "u1" );
   EXPECT_EQ( 2u, counts.total );
   EXPECT_EQ( 1u, counts.drained );
}

/// The stage is complete, since nothing is monitored that cannot be counted.
TEST_F( StagesStory, doesNotSettleWhileNobodyCanTellWhatAMemberCarries ) {
   std::set< Wire::IntfId > uncounted{ Wire::EthIntfId( "et1" ) };
   stages->uncountedIs( [&]( const Wire::IntfId & intf ) { return uncounted.count( intf ) > 0; } );
   member( "et1" );
   member( "et2" )->stateIs( Maintenance::monIntfStateUnderMaint );
   records->monIntfStatusDel( Wire::EthIntfId( "et1" ) );
   ASSERT_FALSE( enter() );
   complete();
   clock->advance( 60 );
   EXPECT_EQ( UnitState::enterInProgress, unit().state() );
   EXPECT_EQ( std::nullopt, stages->settlingSince( "u1" ) );
   EXPECT_EQ( 1u, stages->counts( "u1" ).uncounted );
   uncounted.clear();
   clock->advance( 9 );
   EXPECT_EQ( UnitState::enterInProgress, unit().state() ) << "the settle time begins anew";
   clock->advance( 3 );
   EXPECT_EQ( UnitState::maintenance, unit().state() );
}

TEST_F( StagesStory, beginsNoStageAfterTheWatchingWhileNobodyCanTellWhatAMemberCarries ) {
   bool uncounted = true;
   stages->unitIs( "u1", { { "steer", "drainwatch", "power-off" }, { "drainwatch" } } );
   stages->uncountedIs( [&]( const Wire::IntfId & ) { return uncounted; } );
   member( "et1" );
   ASSERT_FALSE( enter() );
   complete( "steer" );
   clock->advance( 60 );
   EXPECT_EQ( "drainwatch", stages->stage( "u1" ) ) << "what comes before it does not wait";
   complete();
   clock->advance( 60 );
   EXPECT_EQ( "drainwatch", stages->stage( "u1" ) );
   uncounted = false;
   clock->advance( 2 );
   EXPECT_EQ( "power-off", stages->stage( "u1" ) );
}

TEST_F( StagesStory, leavesAlsoWhileNobodyCanTellWhatAMemberCarries ) {
   stages->uncountedIs( []( const Wire::IntfId & ) { return true; } );
   member( "et1" );
   ASSERT_FALSE( enter() );
   complete();
   clock->advance( 60 );
   ASSERT_FALSE( exit() );
   complete();
   clock->advance( 2 );
   EXPECT_EQ( UnitState::normal, unit().state() );
}

} // namespace
