// Links that the switch does not set.

#include "Agent/Executor/ExecutorRigTest.h"

namespace Agent {
namespace {

using Lines = std::vector< Vel::String >;

TEST_F( ExecutorStory, saysWhyALinkIsNotShutUntilItIs ) {
   shut();
   clock->runUntilIdle();
   EXPECT_EQ( "", executor->shutProblem( et1 ) ) << "it has just been asked for";
   fake->fail( 0, "Operation not permitted" );
   EXPECT_EQ( "Operation not permitted", executor->shutProblem( et1 ) );
   EXPECT_EQ( "", executor->shutProblem( et2 ) );
   clock->advance( 6 );
   ASSERT_EQ( 2u, fake->requests.size() );
   EXPECT_EQ( "Operation not permitted", executor->shutProblem( et1 ) ) << "until there is another answer";
   fake->done( 1 );
   EXPECT_EQ( "", executor->shutProblem( et1 ) );
}

TEST_F( ExecutorStory, saysWhyALinkIsNotShutWhoseAddressesCannotBeRead ) {
   fake->snapshotOutcome = Outcome::failed( "no memory" );
   shut();
   clock->runUntilIdle();
   EXPECT_EQ( "no memory", executor->shutProblem( et1 ) );
}

TEST_F( ExecutorStory, saysThatALinkIsNotShutBecauseThatIsNotStored ) {
   keeps = false;
   shut();
   clock->runUntilIdle();
   EXPECT_EQ( "", executor->shutProblem( et1 ) ) << "that takes a moment in any case";
   clock->advance( Executor::journalPatience );
   EXPECT_EQ( "it is not stored yet that it is to be held", executor->shutProblem( et1 ) );
}

TEST_F( ExecutorStory, saysNothingOfALinkThatNeedNotBeShutOrThatOthersHaveSetUp ) {
   shut();
   clock->runUntilIdle();
   fake->fail( 0, "Operation not permitted" );
   bringBack();
   clock->runUntilIdle();
   EXPECT_EQ( "", executor->shutProblem( et1 ) );
   fake->done( 1 );
   held();
   fake->link( et1, true, true );
   EXPECT_EQ( "", executor->shutProblem( et1 ) ) << "that is drift";
}

TEST_F( ExecutorStory, notesOnceWhyALinkCannotBeSetAndThatItCouldBeInTheEnd ) {
   shut();
   clock->runUntilIdle();
   fake->fail( 0, "Operation not permitted" );
   EXPECT_EQ( Lines{ "cannot set et1 down: Operation not permitted" }, notes );
   clock->advance( 6 );
   fake->fail( 1, "Operation not permitted" );
   EXPECT_EQ( 1u, notes.size() ) << "the same answer";
   clock->advance( 6 );
   fake->fail( 2, "device is busy" );
   EXPECT_EQ( 2u, notes.size() );
   clock->advance( 6 );
   fake->done( 3 );
   ASSERT_EQ( 3u, notes.size() );
   EXPECT_EQ( "et1: has been set down, after that had failed", notes.back() );
}

TEST_F( ExecutorStory, notesNotThatALinkHasBeenSetUpOfWhichOnlyTheOtherWayHadFailed ) {
   shut();
   clock->runUntilIdle();
   fake->fail( 0, "Operation not permitted" );
   bringBack();
   clock->runUntilIdle();
   fake->done( 1 );
   EXPECT_EQ( Lines{ "cannot set et1 down: Operation not permitted" }, notes );
}

} // namespace
} // namespace Agent
