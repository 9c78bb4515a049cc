#include "Agent/Commands/CommandsRigTest.h"

/// The agent ends, and the next one finds what is kept.
namespace {

using Agent::CommandState;

TEST_F( CommandsStory, runsACommandAgainWhoseEndIsNotKnown ) {
   enter();
   says( "{\"was\":1}\n" );
   taken();
   restart();
   EXPECT_EQ( ( Lines{ "remnants of 101, MAINTD_RUN=u1#1/steer", "begins /bin/steer enter" } ), taken() );
   EXPECT_TRUE( inputHas( R"("recorded":{"was":1},"rerun":true)" ) ) << input();
   ends();
   EXPECT_EQ( UnitState::maintenance, state() );
}

TEST_F( CommandsStory, doesNotRunACommandAgainThatHasEnded ) {
   drains = false;
   enter();
   ends();
   taken();
   restart();
   EXPECT_EQ( Lines{}, taken() );
   EXPECT_EQ( "steer complete, drainwatch running", shown() );
}

TEST_F( CommandsStory, waitsUntilNothingIsLeftOfAnEarlierRun ) {
   enter();
   taken();
   children.remnantsAre( 2 );
   stop();
   start();
   EXPECT_EQ( Lines{ "remnants of 101, MAINTD_RUN=u1#1/steer" }, taken() );
   EXPECT_TRUE( commands->facts( "u1", "steer" ).waits );
   advance( 1 );
   EXPECT_EQ( Lines{ "remnants of 101, MAINTD_RUN=u1#1/steer" }, taken() );
   advance( 1 );
   EXPECT_EQ( ( Lines{ "remnants of 101, MAINTD_RUN=u1#1/steer", "begins /bin/steer enter" } ), taken() );
   EXPECT_FALSE( commands->facts( "u1", "steer" ).waits );
   advance( 60 );
   EXPECT_EQ( Lines{ "is asked to end" }, taken() );
}

TEST_F( CommandsStory, waitsForThemOnTheWayBackToo ) {
   enter();
   exit();
   children.remnantsAre( 1 );
   stop();
   taken();
   start();
   EXPECT_EQ( "drainwatch pending, steer pending", shown() );
   advance( 1 );
   EXPECT_EQ( "drainwatch complete, steer running", shown() );
   EXPECT_TRUE( inputHas( R"("operation":"exit")" ) );
   EXPECT_TRUE( inputHas( R"("rerun":false)" ) );
}

/// The end of the command is kept and what follows from it is not.
TEST_F( CommandsStory, takesTheUnitBackAfterARestartIfItDidNotGetThatFar ) {
   enter();
   children.ends( children.last(), 3 );
   ASSERT_EQ( CommandState::failed, kept().state() );
   ASSERT_EQ( UnitState::enterInProgress, state() );
   taken();
   restart();
   EXPECT_EQ( UnitState::exitInProgress, state() );
   EXPECT_EQ( "stage steer failed: ended with 3", run().reason() );
   EXPECT_EQ( Lines{ "begins /bin/steer exit" }, taken() );
}

TEST_F( CommandsStory, runsTheWayBackAgainWithItsRecord ) {
   toMaintenance( "{\"was\":1}" );
   restart();
   EXPECT_EQ( Lines{}, taken() );
   exit();
   restart();
   EXPECT_TRUE( inputHas( R"("operation":"exit","reason":"done","recorded":{"was":1},"rerun":true)" ) )
      << input();
   ends();
   EXPECT_EQ( UnitState::normal, state() );
}

/// Committed and not begun: nobody has done anything, and the next agent cannot know that.
TEST_F( CommandsStory, isSaidToRunAgainIfTheAgentEndedBeforeItBegan ) {
   enterIsHeld();
   stop();
   EXPECT_EQ( Lines{}, taken() );
   storeWorks = true;
   start();
   advance( 1 );
   EXPECT_TRUE( inputHas( R"("rerun":true)" ) );
}

TEST_F( CommandsStory, endsWhatIsLeftBeforeItIsResumedAndRunsNothing ) {
   enter();
   stop();
   taken();
   commands = std::make_unique< Agent::Commands >(
      clock, wheel, children, commandsModel(),
      Agent::Commands::Hooks{
         {},
         [] {},
         []( const Vel::String & ) { return "[]"; },
         []( const std::string & ) {},
         [] { return true; } } );
   advance( 100 );
   EXPECT_EQ( Lines{}, taken() );
   children.remnantsAre( 1 );
   commands->endRemnants();
   clock->advance( 100 );
   const std::string look = "remnants of 101, MAINTD_RUN=u1#1/steer";
   EXPECT_EQ( ( Lines{ look, look } ), taken() );
   EXPECT_EQ( CommandState::running, kept().state() );
   EXPECT_EQ( "the agent to take up what was under way", commands->facts( "u1", "steer" ).waitsFor );
   commands->resume();
   clock->advance( 1 );
   EXPECT_EQ( Lines{ "begins /bin/steer enter" }, taken() );
   EXPECT_TRUE( inputHas( R"("rerun":true)" ) ) << input();
}

} // namespace
