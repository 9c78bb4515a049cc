#include "Agent/Executor/ExecutorRigTest.h"

/// When a link that was let go of is back.
namespace {

using namespace Agent;

class BackStory : public ExecutorStory {
 protected:
   /// Held and let go of; to set it up has been asked for.
   void letGo() {
      held();
      bringBack();
      clock->runUntilIdle();
   }
   bool comesBack() const { return executor->comesBack( et1 ); }
   /// The request has ended, with the link up and this carrier.
   void setUp( bool carrier, const DataPlane::LinkSetResult & result = {} ) {
      fake->link( et1, true, carrier );
      fake->listener->linkSetDone( fake->requests.back().id, result );
      clock->runUntilIdle();
   }
};

TEST_F( BackStory, aLinkIsNotOnItsWayBackBeforeItIsLetGoOf ) {
   EXPECT_FALSE( comesBack() );
   shut();
   clock->runUntilIdle();
   EXPECT_FALSE( comesBack() );
   fake->done( 0 );
   clock->runUntilIdle();
   EXPECT_FALSE( comesBack() );
}

TEST_F( BackStory, aLinkIsOnItsWayBackFromTheWriteThatLetsGoOfItUntilTheRequestHasEnded ) {
   held();
   bringBack();
   EXPECT_TRUE( comesBack() ) << "nobody has asked for it yet";
   clock->runUntilIdle();
   fake->link( et1, true, true );
   clock->runUntilIdle();
   EXPECT_TRUE( comesBack() ) << "it is up, and has yet to get back what it has lost";
   setUp( true );
   EXPECT_FALSE( comesBack() );
}

TEST_F( BackStory, aLinkThatIsHeldAgainIsNotOnItsWayBack ) {
   letGo();
   shut();
   EXPECT_FALSE( comesBack() );
   clock->runUntilIdle();
   EXPECT_FALSE( comesBack() );
}

TEST_F( BackStory, aCarrierIsWaitedForLongerThanTheStatusIsHeld ) {
   letGo();
   setUp( false );
   EXPECT_TRUE( comesBack() );
   clock->advance( 2 * Executor::releaseGrace - 1 );
   EXPECT_TRUE( comesBack() );
   clock->advance( 2 );
   EXPECT_FALSE( comesBack() );
}

TEST_F( BackStory, nobodyWaitsForTheCarrierOfALinkThatSomebodySetsDown ) {
   letGo();
   setUp( false );
   fake->link( et1, false, false );
   EXPECT_FALSE( comesBack() );
}

TEST_F( BackStory, aLinkThatCouldNotBeSetDownNorUpHasBeenThereAllTheTime ) {
   shut();
   clock->runUntilIdle();
   fake->fail( 0, "refused" );
   clock->runUntilIdle();
   bringBack();
   clock->runUntilIdle();
   ASSERT_EQ( 2u, fake->requests.size() );
   fake->fail( 1, "refused" );
   clock->runUntilIdle();
   EXPECT_FALSE( comesBack() );
}

TEST_F( BackStory, aLinkIsBackWithItsCarrier ) {
   letGo();
   setUp( false );
   fake->link( et1, true, true );
   EXPECT_FALSE( comesBack() );
}

TEST_F( BackStory, aLinkIsBackWhenItHasGotWhatWaitedForItsCarrier ) {
   letGo();
   setUp( false, { {}, Outcome::failed( "1 of et1 waits for its carrier" ), "a route" } );
   fake->link( et1, true, true );
   clock->runUntilIdle();
   ASSERT_EQ( 1u, fake->restores.size() );
   EXPECT_TRUE( comesBack() );
   fake->listener->linkSetDone( fake->restores[0].id, {} );
   EXPECT_FALSE( comesBack() );
}

TEST_F( BackStory, aLinkThatCannotBeGivenBackWhatItHasLostIsOnItsWayBackBetweenTriesToo ) {
   letGo();
   setUp( true, { {}, Outcome::failed( "1 of et1: not permitted" ), "a route" } );
   ASSERT_EQ( 0u, fake->restores.size() );
   EXPECT_TRUE( comesBack() );
   clock->advance( Executor::retryAfter + 1 );
   ASSERT_EQ( 1u, fake->restores.size() );
   EXPECT_TRUE( comesBack() );
   fake->listener->linkSetDone( fake->restores[0].id, {} );
   EXPECT_FALSE( comesBack() );
}

TEST_F( BackStory, aLinkThatCannotBeSetUpIsOnItsWayBackBetweenTriesToo ) {
   letGo();
   fake->fail( fake->requests.size() - 1, "refused" );
   clock->runUntilIdle();
   EXPECT_TRUE( comesBack() );
}

TEST_F( BackStory, aLinkThatOthersSetUpInOurPlaceIsOnItsWayBackUntilItHasACarrier ) {
   letGo();
   fake->link( et1, true, false );
   fake->fail( fake->requests.size() - 1, "refused" );
   clock->runUntilIdle();
   EXPECT_TRUE( comesBack() );
   fake->link( et1, true, true );
   EXPECT_FALSE( comesBack() );
}

TEST_F( BackStory, aLinkIsOnItsWayBackWithAnAgentThatIsStartedAgain ) {
   letGo();
   restart();
   EXPECT_TRUE( comesBack() );
   setUp( true );
   EXPECT_FALSE( comesBack() );
}

TEST_F( BackStory, aLinkThatSomebodyHasReleasedByHandIsOnItsWayBack ) {
   held();
   underWay.insert( et1 );
   EXPECT_TRUE( executor->release( "et1" ).changed );
   EXPECT_TRUE( comesBack() );
   shut();
   EXPECT_TRUE( comesBack() ) << "whatever is decided meanwhile";
   clock->runUntilIdle();
   setUp( true );
   shut();
   EXPECT_FALSE( comesBack() ) << "it is not shut again";
}

TEST_F( BackStory, nobodyWaitsForALinkThatIsLeftDown ) {
   fake->link( et1, false, false );
   shut();
   clock->runUntilIdle();
   bringBack();
   EXPECT_FALSE( comesBack() );
   clock->runUntilIdle();
   EXPECT_FALSE( comesBack() );
}

TEST_F( BackStory, nobodyWaitsForALinkThatIsGone ) {
   letGo();
   fake->linkGone( et1 );
   EXPECT_FALSE( comesBack() );
   EXPECT_FALSE( executor->comesBack( Wire::EthIntfId( "et9" ) ) );
}

} // namespace
