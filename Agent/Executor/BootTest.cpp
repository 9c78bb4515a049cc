#include "Agent/Executor/ExecutorRigTest.h"

/// The executor on a machine that was started again, and sets its links up by itself.
namespace Agent {
namespace {

/// The next boot, with et1 as it is at the time when the agent starts.
struct AfterABoot : ExecutorStory {
   void boot( bool et1IsUp ) {
      monitored.insert( et1 );
      underWay.insert( et1 );
      fake->boot += " again";
      fake->links[et1] = { et1, 1, et1IsUp, et1IsUp };
      restart();
   }
   void raised() {
      clock->post( [this] { fake->link( et1, true, true ); } );
      clock->runUntilIdle();
   }
};

TEST_F( AfterABoot, setsALinkDownAgainThatTheMachineSetsUpLater ) {
   held();
   boot( false );
   EXPECT_EQ( 1u, fake->requests.size() );
   EXPECT_EQ( Interface::operUp, status() ) << "apart from what we want";
   EXPECT_TRUE( notes.empty() ) << "nobody has set it down";
   raised();
   ASSERT_EQ( 2u, fake->requests.size() );
   EXPECT_FALSE( fake->requests[1].up );
   fake->done( 1 );
   bringBack();
   clock->runUntilIdle();
   ASSERT_EQ( 3u, fake->requests.size() );
   EXPECT_TRUE( fake->requests[2].up );
   EXPECT_EQ( "addresses of et1", fake->requests[2].restore );
}

TEST_F( AfterABoot, setsALinkDownAgainThatTheMachineSetsUpWhileNoAgentRuns ) {
   held();
   boot( false );
   fake->links[et1] = { et1, 1, true, true };
   restart();
   ASSERT_EQ( 2u, fake->requests.size() );
   EXPECT_FALSE( fake->requests[1].up );
}

TEST_F( AfterABoot, setsALinkDownThatAppearsLaterAndIsSetUpThen ) {
   held();
   fake->boot = "boot 2";
   fake->links.clear();
   restart();
   restart();
   fake->link( et1, false, false );
   clock->runUntilIdle();
   EXPECT_EQ( 1u, fake->requests.size() );
   raised();
   ASSERT_EQ( 2u, fake->requests.size() );
   EXPECT_FALSE( fake->requests[1].up );
}

TEST_F( AfterABoot, leavesALinkUpThatIsSetUpASecondTime ) {
   for ( const bool upAtTheStart : { false, true } ) {
      SCOPED_TRACE( upAtTheStart );
      fake->link( et1, true, true );
      held();
      boot( upAtTheStart );
      if ( !upAtTheStart )
         raised();
      fake->done( fake->requests.size() - 1 );
      clock->runUntilIdle();
      const auto before = fake->requests.size();
      raised();
      EXPECT_EQ( before, fake->requests.size() );
      EXPECT_EQ( Drift::raised, executor->drift( et1 ) );
      bringBack();
      clock->runUntilIdle();
      fake->done( fake->requests.size() - 1 );
      clock->runUntilIdle();
      EXPECT_EQ( nullptr, entry() );
   }
}

TEST_F( AfterABoot, leavesALinkUpThatNeedNotBeHeldAnyMore ) {
   held();
   boot( false );
   bringBack();
   clock->runUntilIdle();
   EXPECT_EQ( Interface::operDown, status() );
   raised();
   EXPECT_EQ( 1u, fake->requests.size() );
   EXPECT_EQ( 0u, model.journal->awaiteds() );
}

TEST_F( AfterABoot, showsNoChangeOfALinkThatTheMachineSetsUpBeforeItHasACarrier ) {
   held();
   boot( false );
   clock->post( [this] { fake->link( et1, true, false ); } );
   clock->runUntilIdle();
   EXPECT_EQ( Interface::operUp, status() );
   ASSERT_EQ( 2u, fake->requests.size() );
   fake->done( 1 );
   clock->advance( 60 );
   EXPECT_EQ( Interface::operUp, status() );
   EXPECT_NE( nullptr, model.cause->intfStatus( et1 ) );
}

} // namespace
} // namespace Agent
