#include "Agent/Executor/ExecutorRigTest.h"

/// Links are shut only when the next agent would know of it.
namespace {

using namespace Agent;

class KeptStory : public ExecutorStory {
 protected:
   void keepAll() {
      keeps = true;
      for ( auto & call : std::exchange( waiting, {} ) )
         clock->effectIs( std::move( call ) );
      clock->runUntilIdle();
   }
};

TEST_F( KeptStory, aLinkIsNotShutBeforeItsLineOfTheJournalIsKept ) {
   keeps = false;
   shut();
   clock->runUntilIdle();
   ASSERT_NE( nullptr, entry() );
   EXPECT_EQ( "addresses of et1", entry()->snapshot() );
   EXPECT_TRUE( fake->requests.empty() );
   keepAll();
   ASSERT_EQ( 1u, fake->requests.size() );
   EXPECT_FALSE( fake->requests[0].up );
   fake->done( 0 );
   clock->runUntilIdle();
   EXPECT_TRUE( entry()->acknowledged() );
}

TEST_F( KeptStory, aLinkIsReadAgainBeforeItIsShutLaterThanItWasAskedFor ) {
   keeps = false;
   shut();
   clock->runUntilIdle();
   clock->advance( 3600 );
   fake->snapshot = "what it has by now";
   keepAll();
   ASSERT_EQ( 1u, fake->requests.size() );
   EXPECT_EQ( "what it has by now", entry()->snapshot() );
}

TEST_F( KeptStory, aLinkThatSomebodySetsDownWhileOursWaitsStaysDown ) {
   keeps = false;
   shut();
   clock->runUntilIdle();
   fake->link( et1, false, false );
   clock->runUntilIdle();
   keepAll();
   bringBack();
   clock->runUntilIdle();
   EXPECT_TRUE( fake->requests.empty() );
   EXPECT_EQ( nullptr, entry() );
   EXPECT_EQ( nullptr, model.journal->unrestored( et1 ) ) << "he has taken what it has lost, not we";
}

TEST_F( KeptStory, aLinkIsSetUpWhateverIsKept ) {
   held();
   keeps = false;
   bringBack();
   clock->runUntilIdle();
   ASSERT_EQ( 2u, fake->requests.size() );
   EXPECT_TRUE( fake->requests[1].up );
   EXPECT_EQ( "addresses of et1", fake->requests[1].restore );
}

TEST_F( KeptStory, aRequestThatWaitsIsNotMadeOnceItsLinkIsWantedUp ) {
   keeps = false;
   shut();
   clock->runUntilIdle();
   bringBack();
   clock->runUntilIdle();
   EXPECT_EQ( nullptr, entry() );
   keepAll();
   EXPECT_TRUE( fake->requests.empty() ) << "it has never been down, and may have lost an address since then";
   EXPECT_EQ( nullptr, model.journal->unrestored( et1 ) );
}

TEST_F( KeptStory, nothingIsGivenBackToALinkThatOthersHaveSetDownAndUpWhileOursWaited ) {
   keeps = false;
   shut();
   clock->runUntilIdle();
   fake->link( et1, false, false );
   clock->runUntilIdle();
   fake->link( et1, true, true );
   clock->runUntilIdle();
   bringBack();
   clock->runUntilIdle();
   keepAll();
   EXPECT_TRUE( fake->requests.empty() );
   EXPECT_EQ( nullptr, entry() );
   EXPECT_EQ( nullptr, model.journal->unrestored( et1 ) );
}

TEST_F( KeptStory, aLinkIsSetUpThatMayHaveBeenShutByAnEarlierAgent ) {
   shut();
   clock->runUntilIdle();
   ASSERT_EQ( 1u, fake->requests.size() );
   keeps = false;
   restart();
   bringBack();
   clock->runUntilIdle();
   ASSERT_EQ( 2u, fake->requests.size() );
   EXPECT_TRUE( fake->requests[1].up );
}

TEST_F( KeptStory, aRequestThatWaitsIsNotMadeForALinkThatHasGone ) {
   keeps = false;
   shut();
   clock->runUntilIdle();
   fake->linkGone( et1 );
   keepAll();
   EXPECT_TRUE( fake->requests.empty() );
}

TEST_F( KeptStory, aRequestThatWaitsIsNotMadeForAnAgentThatHasEnded ) {
   keeps = false;
   shut();
   clock->runUntilIdle();
   executor.reset();
   for ( const auto & call : std::exchange( waiting, {} ) )
      call();
   EXPECT_TRUE( fake->requests.empty() );
   keeps = true;
   restart();
   EXPECT_EQ( 1u, fake->requests.size() ) << "the next one asks for it";
}

} // namespace
