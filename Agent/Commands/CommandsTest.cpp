#include "Agent/Commands/CommandsRigTest.h"

#include <csignal>

namespace {

using Agent::CommandState;
using Stream = Agent::Children::Stream;

TEST_F( CommandsStory, runsTheCommandOfAStageAndThenTheNextStage ) {
   drains = false;
   enter();
   EXPECT_EQ( Lines{ "begins /bin/steer enter" }, taken() );
   EXPECT_EQ( "steer running, drainwatch pending", shown() );
   ends();
   EXPECT_EQ( "steer complete, drainwatch running", shown() );
   EXPECT_EQ(
      ( Lines{ "u1/steer: runs: /bin/steer enter, for at most 60 s", "u1/steer: is done after 0 s" } ), log );
   drains = true;
   settle();
   EXPECT_EQ( UnitState::maintenance, state() );
   exit();
   EXPECT_EQ( Lines{ "begins /bin/steer exit" }, taken() );
   EXPECT_EQ( "drainwatch complete, steer running", shown() );
   ends();
   EXPECT_EQ( UnitState::normal, state() );
   EXPECT_EQ( "drainwatch complete, steer complete", shown() );
}

TEST_F( CommandsStory, tellsTheCommandWhatItIsAbout ) {
   enter();
   EXPECT_EQ(
      R"({"by":"ann","generation":1,"interfaces":[{"name":"et1"}],"operation":"enter","reason":"swap",)"
      R"("recorded":null,"rerun":false,"stage":"steer","unit":"u1"})"
      "\n",
      input() );
   EXPECT_EQ( "MAINTD_RUN=u1#1/steer", children.last().program.environment.front() );
}

/// What nobody has begun yet can be forgotten; what has begun must be known to the next agent.
TEST_F( CommandsStory, makesTheProcessKnownBeforeItsCommandBegins ) {
   bool committed = false;
   clock->commitHookIs( [&] {
      if ( !children.all().empty() && children.last().phase == Agent::FakeChildren::Phase::held ) {
         committed = true;
         EXPECT_EQ( children.last().process, kept().process() );
         EXPECT_EQ( CommandState::running, kept().state() );
      }
      return true;
   } );
   enter();
   EXPECT_TRUE( committed );
   EXPECT_EQ( Lines{ "begins /bin/steer enter" }, taken() );
}

TEST_F( CommandsStory, doesNotBeginWhileNothingCanBeCommitted ) {
   enterIsHeld();
   EXPECT_EQ( Lines{}, taken() );
   storeWorks = true;
   advance( 2 );
   EXPECT_EQ( Lines{ "begins /bin/steer enter" }, taken() );
}

/// A store that has failed for a while does not hold up the way back, but nothing new may be changed.
TEST_F( CommandsStory, beginsOnTheWayInOnlyWhenItIsKnownForGood ) {
   durable = false;
   enter();
   EXPECT_EQ( Lines{}, taken() );
   EXPECT_EQ( "", commands->facts( "u1", "steer" ).waitsFor ) << "each command is held up for a moment";
   advance( 100 );
   EXPECT_EQ( Lines{}, taken() );
   EXPECT_EQ(
      "the store, in which its process has to be kept before it begins",
      commands->facts( "u1", "steer" ).waitsFor );
   durable = true;
   advance( 1 );
   EXPECT_EQ( Lines{ "begins /bin/steer enter" }, taken() );
   // Its time begins with it.
   EXPECT_EQ( "", commands->facts( "u1", "steer" ).waitsFor );
   EXPECT_NEAR( clock->currentTime(), commands->facts( "u1", "steer" ).since, 1 );
   advance( 59 );
   EXPECT_EQ( Lines{}, taken() );
   ends();
   durable = false;
   exit();
   EXPECT_EQ( Lines{ "begins /bin/steer exit" }, taken() );
}

TEST_F( CommandsStory, isNotToldThatARecordIsSafeWhichIsNot ) {
   enter();
   taken();
   durable = false;
   says( "{\"was\": 1}\n" );
   advance( 10 );
   EXPECT_EQ( Lines{}, taken() );
   durable = true;
   advance( 1 );
   EXPECT_EQ( Lines{ "is safe" }, taken() );
   advance( 10 );
   EXPECT_EQ( Lines{}, taken() );
}

// ---- what is recorded

TEST_F( CommandsStory, saysThatARecordIsSafeWhenItIsCommitted ) {
   enter();
   taken();
   children.says( children.last(), "{\"was\": 1}\n" );
   EXPECT_EQ( "{\"was\": 1}", kept().recorded() );
   EXPECT_EQ( Lines{}, taken() );
   settle();
   EXPECT_EQ( Lines{ "is safe" }, taken() );
}

TEST_F( CommandsStory, saysSoOnceForEachRecordAndKeepsTheLast ) {
   enter();
   taken();
   says( "{\"a\":1}\n{\"a\":1}\nplain\n{\"a\":" );
   EXPECT_EQ( ( Lines{ "is safe", "is safe" } ), taken() );
   EXPECT_EQ( "{\"a\":1}", kept().recorded() );
   says( "2}\n" );
   EXPECT_EQ( Lines{ "is safe" }, taken() );
   EXPECT_EQ( "{\"a\":2}", kept().recorded() );
}

TEST_F( CommandsStory, handsTheRecordToTheWayBackAndForgetsItThen ) {
   toMaintenance( "{\"was\":[1,null]}" );
   exit();
   EXPECT_TRUE( inputHas( R"("recorded":{"was":[1,null]})" ) ) << input();
   EXPECT_TRUE( inputHas( R"("operation":"exit")" ) );
   EXPECT_EQ( "{\"was\":[1,null]}", kept().recorded() );
   ends();
   EXPECT_EQ( "", kept().recorded() );
   enter();
   EXPECT_TRUE( inputHas( R"("recorded":null)" ) );
}

TEST_F( CommandsStory, takesTheLastRecordWithoutALineFeed ) {
   enter();
   says( "{\"a\":3}" );
   ends();
   EXPECT_EQ( "{\"a\":3}", kept().recorded() );
   EXPECT_EQ( UnitState::maintenance, state() );
}

TEST_F( CommandsStory, failsOverALineThatOnlyBeginsLikeARecord ) {
   enter();
   taken();
   says( "{oops\n" );
   EXPECT_EQ( Lines{ "is asked to end" }, taken() );
   ends( 0, 15 );
   EXPECT_EQ( UnitState::exitInProgress, state() );
   EXPECT_EQ(
      "stage steer failed: wrote a line that begins with { and is no JSON object: {oops", run().reason() );
}

TEST_F( CommandsStory, failsOverSuchALineAlsoWhenItIsTheLastThingThatItDoes ) {
   enter();
   children.says( children.last(), "{oops" );
   ends();
   EXPECT_EQ( UnitState::exitInProgress, state() );
}

TEST_F( CommandsStory, failsOverARecordThatIsTooLong ) {
   enter();
   says( "{\"a\":\"" + std::string( 300'000, 'x' ) + "\"}\n" );
   ends( 0, 15 );
   EXPECT_NE( std::string::npos, run().reason().find( "is longer than 262144 bytes: {\"a\":\"xxx" ) )
      << run().reason();
   EXPECT_LT( run().reason().size(), 500u );
}

// ---- the log

TEST_F( CommandsStory, logsWhatItSaysWithUnitAndStage ) {
   enter();
   log.clear();
   says( "hello\x1b[31m\n" );
   says( "careful\n", Stream::errors );
   EXPECT_EQ( ( Lines{ "u1/steer: hello\\x1b[31m", "u1/steer: careful" } ), log );
}

TEST_F( CommandsStory, cutsWhatLooksLikeARecordOnItsStandardError ) {
   enter();
   log.clear();
   says( "{" + std::string( 5'000, 'x' ) + "\n", Stream::errors );
   ASSERT_EQ( 1u, log.size() );
   EXPECT_LT( log[0].size(), 1'100u );
   ends();
   EXPECT_EQ( UnitState::maintenance, state() );
}

TEST_F( CommandsStory, stopsLoggingWhenItSaysTooMuch ) {
   enter();
   log.clear();
   for ( int i = 0; i < 100; ++i ) {
      std::string many;
      for ( int j = 0; j < 1000; ++j )
         many += "y\n";
      says( many );
   }
   ASSERT_EQ( Agent::Commands::mostLines + 1, log.size() );
   EXPECT_EQ( "u1/steer: says more than is logged", log.back() );
   ends();
   EXPECT_EQ( UnitState::maintenance, state() );
}

// ---- failures

TEST_F( CommandsStory, takesTheUnitBackWhenAStageFailsOnTheWayIn ) {
   enter();
   taken();
   says( "first\nno route\n\n", Stream::errors );
   ends( 3 );
   EXPECT_EQ( UnitState::exitInProgress, state() );
   EXPECT_EQ( "stage steer failed: ended with 3: no route", run().reason() );
   EXPECT_EQ( "maintd", run().by() );
   EXPECT_EQ( Lines{ "begins /bin/steer exit" }, taken() );
   ends();
   EXPECT_EQ( UnitState::normal, state() );
   EXPECT_TRUE( commands->failures().empty() );
}

TEST_F( CommandsStory, saysHowACommandHasEnded ) {
   for ( const auto & [status, signal, text] : std::vector< std::tuple< int, int, std::string > >{
            { 1, 0, "ended with 1" },
            { 127, 0, "ended with 127" },
            { 0, 9, "was ended by signal 9 (SIGKILL)" },
            { 0, 11, "was ended by signal 11 (SIGSEGV)" } } ) {
      SCOPED_TRACE( text );
      enter();
      ends( status, signal );
      EXPECT_EQ( "stage steer failed: " + text, run().reason() );
      ends();
      ASSERT_EQ( UnitState::normal, state() );
   }
}

TEST_F( CommandsStory, goesOnWithTheNextStageWhereAFailureDoesNotMatter ) {
   steerIs( "/bin/steer enter", "/bin/steer exit", true );
   drains = false;
   enter();
   ends( 1 );
   EXPECT_EQ( UnitState::enterInProgress, state() );
   EXPECT_EQ( "steer complete, drainwatch running", shown() );
   EXPECT_EQ( CommandState::failed, commands->facts( "u1", "steer" ).state );
   EXPECT_EQ( "ended with 1", commands->facts( "u1", "steer" ).failure );
   EXPECT_TRUE( commands->failures().empty() );
}

TEST_F( CommandsStory, goesOnWithTheWayBackWhenAStageOfItFailsAndSaysSoUntilTheNextEnter ) {
   lists.exit = { "steer", "drainwatch" };
   restart();
   toMaintenance( "{\"metric\":20}" );
   exit();
   ends( 7 );
   EXPECT_EQ( UnitState::normal, state() );
   ASSERT_EQ( 1u, commands->failures().size() );
   EXPECT_EQ( "steer", commands->failures()[0].stage );
   EXPECT_EQ( "ended with 7", commands->failures()[0].text );
   // For whoever has to put it back by hand now.
   EXPECT_NE( log.end(), std::find( log.begin(), log.end(), "u1/steer: had recorded: {\"metric\":20}" ) );
   restart();
   ASSERT_EQ( 1u, commands->failures().size() );
   EXPECT_EQ( "{\"metric\":20}", commands->failures()[0].recorded );
   enter();
   EXPECT_TRUE( inputHas( R"("recorded":null)" ) ) << input();
   EXPECT_TRUE( commands->failures().empty() );
}

TEST_F( CommandsStory, failsWhenItCannotBeStarted ) {
   children.problemIs( "no more processes" );
   enter();
   // The way back cannot run its command either, and is over all the same.
   EXPECT_EQ( UnitState::normal, state() );
   EXPECT_EQ( "stage steer failed: cannot be started: no more processes", run().reason() );
   ASSERT_EQ( 1u, commands->failures().size() );
}

TEST_F( CommandsStory, hasFailedIfNobodyKnowsHowItHasEnded ) {
   enter();
   static_cast< Agent::Children::Listener * >( children.last().listener )
      ->childEnded( children.last().id, { 0, 0, false } );
   children.last().phase = Agent::FakeChildren::Phase::ended;
   settle();
   EXPECT_EQ( "stage steer failed: has ended in a way that is not known", run().reason() );
}

// ---- commands that cannot begin yet

/// The way back would be over with nothing undone.
TEST_F( CommandsStory, waitsOnTheWayBackWhileTheSystemHasNoRoomForIt ) {
   toMaintenance( "{\"was\":1}" );
   children.problemIs( "Too many open files", true );
   exit();
   EXPECT_EQ( UnitState::exitInProgress, state() );
   EXPECT_EQ( "the system: Too many open files", commands->facts( "u1", "steer" ).waitsFor );
   advance( 30 );
   EXPECT_EQ( Lines{ "u1/steer: waits for the system: Too many open files" }, log );
   children.problemIs( "" );
   advance( 1 );
   EXPECT_EQ( Lines{ "begins /bin/steer exit" }, taken() );
   EXPECT_TRUE( inputHas( R"("recorded":{"was":1},"rerun":false)" ) ) << input();
   EXPECT_EQ( "", commands->facts( "u1", "steer" ).waitsFor );
   ends();
   EXPECT_EQ( UnitState::normal, state() );
}

TEST_F( CommandsStory, waitsForTheSystemUntilItsLimit ) {
   children.problemIs( "Too many open files", true );
   enter();
   advance( 59 );
   EXPECT_EQ( UnitState::enterInProgress, state() );
   advance( 2 );
   EXPECT_EQ( "stage steer failed: cannot be started: Too many open files", run().reason() );
   EXPECT_EQ( UnitState::exitInProgress, state() );
   children.problemIs( "" );
   advance( 1 );
   EXPECT_EQ( Lines{ "begins /bin/steer exit" }, taken() );
}

TEST_F( CommandsStory, doesNotWaitOnWhenItsUnitGoesBack ) {
   lists.exit = { "drainwatch" };
   restart();
   children.problemIs( "Too many open files", true );
   enter();
   exit();
   EXPECT_EQ( UnitState::normal, state() );
   EXPECT_EQ( "", commands->facts( "u1", "steer" ).waitsFor );
   children.problemIs( "" );
   advance( 5 );
   EXPECT_EQ( Lines{}, taken() );
}

TEST_F( CommandsStory, waitsWhileAsManyCommandsRunAsMay ) {
   for ( int i = 2; i <= Agent::Commands::mostAtOnce + 1; ++i )
      stages->unitIs( "u" + std::to_string( i ), lists );
   for ( int i = 2; i <= Agent::Commands::mostAtOnce + 1; ++i )
      ASSERT_FALSE( stages->enter( "u" + std::to_string( i ), { "swap", "ann" } ) );
   settle();
   enter();
   EXPECT_EQ( unsigned( Agent::Commands::mostAtOnce ), children.running() );
   EXPECT_EQ( "one of 64 commands to end", commands->facts( "u1", "steer" ).waitsFor );
   taken();
   advance( 20 );
   EXPECT_EQ( Lines{}, taken() );
   ASSERT_FALSE( stages->exit( "u2", {} ) );
   settle();
   children.ends( children.all().front(), 0, SIGTERM );
   settle();
   EXPECT_EQ( ( Lines{ "is asked to end", "begins /bin/steer enter", "begins /bin/steer exit" } ), taken() );
   const auto & all = children.all();
   EXPECT_NE( std::string::npos, std::prev( all.end(), 2 )->program.input.find( R"("unit":"u1")" ) );
   EXPECT_EQ( "", commands->facts( "u1", "steer" ).waitsFor );
   // Its limit begins with it.
   advance( 50 );
   EXPECT_EQ( UnitState::enterInProgress, state() );
}

// ---- limits

TEST_F( CommandsStory, isEndedAtItsLimitFirstByRequestThenByForce ) {
   enter();
   taken();
   advance( 59 );
   EXPECT_EQ( Lines{}, taken() );
   advance( 1 );
   EXPECT_EQ( Lines{ "is asked to end" }, taken() );
   advance( 1 );
   EXPECT_EQ( Lines{}, taken() );
   advance( 1 );
   EXPECT_EQ( Lines{ "is ended by force" }, taken() );
   EXPECT_EQ( UnitState::enterInProgress, state() );
   const auto facts = commands->facts( "u1", "steer" );
   EXPECT_EQ( clock->currentTime() - 2, facts.since );
   EXPECT_EQ( "the end of its processes, because it ran into its limit of 60 s", facts.waitsFor );
   ends( 0, 9 );
   EXPECT_EQ( "", commands->facts( "u1", "steer" ).waitsFor );
   EXPECT_EQ( "stage steer failed: ran into its limit of 60 s", run().reason() );
   EXPECT_EQ( UnitState::exitInProgress, state() );
}

TEST_F( CommandsStory, hasFailedAtItsLimitAlsoIfItThenEndsWell ) {
   enter();
   advance( 60 );
   ends( 0 );
   EXPECT_EQ( "stage steer failed: ran into its limit of 60 s", run().reason() );
}

TEST_F( CommandsStory, goesOnWithTheWayBackAfterALimit ) {
   toMaintenance();
   exit();
   advance( 60 );
   ends( 0, 15 );
   EXPECT_EQ( UnitState::normal, state() );
   EXPECT_EQ( "ran into its limit of 60 s", commands->failures().at( 0 ).text );
}

TEST_F( CommandsStory, keepsItsLimitWhileTimersMayNotRun ) {
   enter();
   taken();
   clock->timersMayRunIs( [this] {
      commands->handleDue();
      return false;
   } );
   clock->advance( 61 );
   EXPECT_EQ( Lines{ "is asked to end" }, taken() );
}

// ---- going back on the way in

TEST_F( CommandsStory, endsTheCommandBeforeTheWayBackBegins ) {
   enter();
   taken();
   exit();
   EXPECT_EQ( Lines{ "is asked to end" }, taken() );
   EXPECT_EQ( "drainwatch pending, steer pending", shown() );
   says( "{\"half\":true}\n" );
   advance( 2 );
   EXPECT_EQ( ( Lines{ "is safe", "is ended by force" } ), taken() );
   EXPECT_EQ( "drainwatch pending, steer pending", shown() );
   ends( 0, 9 );
   EXPECT_EQ( Lines{ "begins /bin/steer exit" }, taken() );
   EXPECT_EQ( "drainwatch complete, steer running", shown() );
   EXPECT_TRUE( inputHas( R"("recorded":{"half":true},"rerun":false)" ) ) << input();
   EXPECT_EQ( "done", run().reason() );
   ends();
   EXPECT_EQ( UnitState::normal, state() );
}

TEST_F( CommandsStory, passesOverWhatTheEnterHasNotComeTo ) {
   configured["late"] = configured["steer"];
   configured["only-back"] = configured["steer"];
   lists = { { "steer", "drainwatch", "late" }, { "late", "drainwatch", "steer", "only-back" } };
   drains = false;
   restart();
   enter();
   ends();
   exit();
   EXPECT_EQ( "late skipped, drainwatch running, steer pending, only-back pending", shown() );
   drains = true;
   settle();
   EXPECT_EQ( "steer", children.last().program.environment.front().substr( 16 ) );
   ends();
   EXPECT_EQ( "only-back", children.last().program.environment.front().substr( 16 ) );
   ends();
   EXPECT_EQ( UnitState::normal, state() );
}

// ---- sides that are missing

TEST_F( CommandsStory, hasNothingToDoOnASideThatIsMissing ) {
   steerIs( "", "/bin/steer exit" );
   enter();
   EXPECT_EQ( UnitState::maintenance, state() );
   EXPECT_TRUE( children.all().empty() );
   exit();
   EXPECT_EQ( Lines{ "begins /bin/steer exit" }, taken() );
   ends();
   steerIs( "/bin/steer enter", "" );
   enter();
   ends();
   exit();
   EXPECT_EQ( UnitState::normal, state() );
}

// ---- changes of the configuration

TEST_F( CommandsStory, takesAChangedCommandWithItsNextStart ) {
   enter();
   steerIs( "/bin/other enter", "/bin/other exit" );
   taken();
   ends();
   EXPECT_EQ( Lines{}, taken() );
   exit();
   EXPECT_EQ( Lines{ "begins /bin/other exit" }, taken() );
}

TEST_F( CommandsStory, goesBackThroughAStageThatHasGoneFromTheConfiguration ) {
   toMaintenance( "{\"was\":1}" );
   configured.clear();
   commands->configurationIs( configured );
   stages->unitIs( "u1", { { "drainwatch" }, { "drainwatch" } } );
   lists = { { "drainwatch" }, { "drainwatch" } };
   restart();
   exit();
   EXPECT_EQ( Lines{ "begins /bin/steer exit" }, taken() );
   EXPECT_TRUE( inputHas( R"("recorded":{"was":1})" ) );
   ends();
   EXPECT_EQ( UnitState::normal, state() );
}

TEST_F( CommandsStory, saysThatAStageIsNotConfigured ) {
   EXPECT_FALSE( commands->check( "steer" ) );
   const auto missing = commands->check( "stear" );
   ASSERT_TRUE( missing );
   EXPECT_EQ( "stage stear is not in the configuration", missing->message );
}

TEST_F( CommandsStory, forgetsAUnitThatIsRemoved ) {
   toMaintenance();
   exit();
   ends();
   ASSERT_NE( nullptr, unitCommandsDir->unit( "u1" ) );
   stages->unitDel( "u1" );
   settle();
   EXPECT_EQ( nullptr, unitCommandsDir->unit( "u1" ) );
   EXPECT_EQ( 0u, enterClass.commandStatus->completes() );
   EXPECT_EQ( 0u, exitClass.commandStatus->completes() );
}

} // namespace
