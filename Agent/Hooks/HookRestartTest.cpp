// What an agent that ends leaves to the next one.

#include "Agent/Hooks/HookRigTest.h"

namespace {

using Agent::EventLog;

TEST_F( HookStory, repeatsWhatTheEndOfTheAgentCutShort ) {
   enters();
   restart();
   ASSERT_EQ( ( Lines{ "1", "1" } ), eventsOf() );
   EXPECT_NE( std::string::npos, children.last().program.input.find( "\"rerun\":true" ) );
   ends();
   restart();
   EXPECT_EQ( ( Lines{ "1", "1" } ), eventsOf() );
   EXPECT_EQ( 1u, kept().runs() );
}

TEST_F( HookStory, repeatsNothingForEver ) {
   enters();
   enters();
   for ( int i = 0; i < 3; ++i )
      restart();
   EXPECT_EQ( ( Lines{ "1", "1", "1", "2" } ), eventsOf() );
   ASSERT_EQ( 1u, failures.size() );
   EXPECT_EQ( "the agent has ended 3 times before its program had", failures[0].error );
   EXPECT_NE( std::string::npos, children.last().program.input.find( "\"rerun\":false" ) );
}

TEST_F( HookStory, doesNotRepeatWhatHasFailed ) {
   enters();
   ends( 1 );
   restart();
   EXPECT_EQ( Lines{ "1" }, eventsOf() );
   EXPECT_EQ( 1u, runner->problems().size() ) << "it is still known";
}

TEST_F( HookStory, forgetsAFailureInAnHourAlsoIfTheClockWasAheadBeforeABoot ) {
   enters();
   ends( 1 );
   hookDir->hook( "h" )->failedSinceIs( clock->currentTime() + 1e6 );
   restart();
   ASSERT_EQ( 1u, runner->problems().size() );
   EXPECT_EQ( clock->currentTime(), runner->problems()[0].since );
   clock->advance( Agent::HookRunner::problemFor + 1 );
   EXPECT_TRUE( runner->problems().empty() );
}

TEST_F( HookStory, endsWhatAnEarlierAgentHasLeftBeforeItBeginsAnew ) {
   enters();
   children.remnantsAre( 2 );
   children.taken();
   restart();
   EXPECT_EQ( Lines{ "1" }, eventsOf() );
   clock->advance( 2 );
   EXPECT_EQ(
      ( Lines{
         "remnants of 101, MAINTD_RUN=hook h 1 1", "remnants of 101, MAINTD_RUN=hook h 1 1",
         "remnants of 101, MAINTD_RUN=hook h 1 1", "begins /bin/page a" } ),
      children.taken() );
   EXPECT_EQ( "MAINTD_RUN=hook h 1 2", kept().mark() );
}

TEST_F( HookStory, saysWhenWhatAnEarlierAgentHasLeftDoesNotEnd ) {
   enters();
   children.remnantsAre( 20 );
   restart();
   clock->advance( 9 );
   EXPECT_TRUE( runner->problems().empty() );
   clock->advance( 2 );
   ASSERT_EQ( 1u, runner->problems().size() );
   EXPECT_EQ( "hook h cannot be called: its program does not end", runner->problems()[0].text );
   clock->advance( 10 );
   EXPECT_TRUE( runner->problems().empty() );
}

TEST_F( HookStory, endsWhatAnEarlierAgentHasLeftOfAHookThatHasGone ) {
   enters();
   children.remnantsAre( 1 );
   configured.clear();
   restart();
   EXPECT_NE( nullptr, hookDir->hook( "h" ) );
   clock->advance( 1 );
   EXPECT_EQ( nullptr, hookDir->hook( "h" ) );
   EXPECT_EQ( 1u, children.all().size() );
}

TEST_F( HookStory, goesOnWithWhatWaitedUnderAnEarlierAgent ) {
   enters();
   enters();
   write( "stage" );
   enters();
   restart();
   EXPECT_EQ( 2u, runner->facts().at( 0 ).waiting );
   for ( int i = 0; i < 3; ++i )
      ends();
   EXPECT_EQ( ( Lines{ "1", "1", "2", "4" } ), eventsOf() );
}

/// Somebody edits the file and starts the agent again: what is long over is not told.
TEST_F( HookStory, isNotToldOfThePastByAHookThatWasEditedWhileNoAgentRan ) {
   write( "state", "exiting" );
   clock->runUntilIdle();
   configured["h"].at = { Moment::exit };
   restart();
   EXPECT_EQ( Lines(), eventsOf() );
}

TEST_F( HookStory, doesNotRepeatWhatItsHookDoesNotWaitForAnyMore ) {
   enters();
   configured["h"].at = { Moment::exit };
   restart();
   EXPECT_EQ( Lines{ "1" }, eventsOf() );
   EXPECT_EQ( 0u, kept().running() );
   EXPECT_EQ( 1u, kept().done() );
}

TEST_F( HookStory, countsWhatWasCutShortAndHasLeftTheLog ) {
   enters();
   for ( Vel::U64 i = 0; i < EventLog::kept; ++i )
      write( "stage" );
   clock->runUntilIdle();
   EXPECT_EQ( 0u, missed["h"] ) << "it runs";
   restart();
   EXPECT_EQ( 1u, missed["h"] );
   EXPECT_EQ( Lines{ "1" }, eventsOf() );
}

/// Killed while the process waits for the store: nothing of the turn is known to the next agent.
TEST_F( HookStory, forgetsWhatWasNotStoredWithTheAgentThatBeganIt ) {
   storeWorks = false;
   enters();
   restart();
   storeWorks = true;
   clock->runUntilIdle();
   EXPECT_EQ( 1u, children.running() );
}

} // namespace
