// What a link could not get back without a carrier, and what a link gets back that somebody else has raised.

#include "Agent/Executor/ExecutorRigTest.h"

namespace Agent {
namespace {

class LeftStory : public ExecutorStory {
 protected:
   /// Released; the link is up without a carrier, and something waits for it.
   void left( const char * text = "a route" ) {
      held();
      bringBack();
      clock->runUntilIdle();
      doneWithout( text );
   }
   void doneWithout( const char * text ) {
      fake->link( et1, true, false );
      fake->listener->linkSetDone(
         fake->requests.back().id, { {}, Outcome::failed( "1 of et1 waits for its carrier" ), text } );
      clock->runUntilIdle();
   }
   void carrierIs( bool has ) {
      fake->link( et1, true, has );
      clock->runUntilIdle();
   }
   void restored( const DataPlane::LinkSetResult & result = {} ) {
      fake->listener->linkSetDone( fake->restores.back().id, result );
      clock->runUntilIdle();
   }
   UnrestoredLink * unrestored() { return model.journal->unrestored( et1 ); }
};

TEST_F( LeftStory, isKeptAndShownUntilThereIsACarrier ) {
   left();
   EXPECT_EQ( nullptr, entry() );
   ASSERT_TRUE( unrestored() );
   EXPECT_EQ( "a route", unrestored()->left() );
   EXPECT_EQ( "1 of et1 waits for its carrier", executor->problem() );
   clock->advance( 100000 );
   clock->runUntilIdle();
   EXPECT_EQ( 0u, fake->restores.size() );
   EXPECT_TRUE( unrestored() );
   carrierIs( true );
   ASSERT_EQ( 1u, fake->restores.size() );
   EXPECT_EQ( et1, fake->restores[0].intf );
   EXPECT_EQ( "a route", fake->restores[0].restore );
   EXPECT_TRUE( unrestored() ) << "it may be killed now";
   restored();
   EXPECT_FALSE( unrestored() );
   EXPECT_EQ( "", executor->problem() );
   EXPECT_EQ( "et1: what waited for its carrier is restored", notes.back() );
   EXPECT_EQ( 2u, fake->requests.size() ) << "nothing is set up or down";
}

TEST_F( LeftStory, isRestoredByAnAgentThatIsStartedAgain ) {
   left();
   restart();
   EXPECT_EQ( "1 of et1 waits for its carrier", executor->problem() );
   EXPECT_EQ( 0u, fake->restores.size() );
   carrierIs( true );
   EXPECT_EQ( 1u, fake->restores.size() );
   // It is killed before the answer.
   restart();
   EXPECT_EQ( 2u, fake->restores.size() );
   restored();
   EXPECT_FALSE( unrestored() );
}

TEST_F( LeftStory, isForgottenWithItsLink ) {
   left();
   fake->linkGone( et1 );
   EXPECT_FALSE( unrestored() );
}

TEST_F( LeftStory, isForgottenWithTheBootOfTheSwitch ) {
   left();
   fake->boot = "boot 2";
   fake->link( et1, true, true );
   restart();
   EXPECT_FALSE( unrestored() );
   EXPECT_EQ( 0u, fake->restores.size() );
}

TEST_F( LeftStory, isForgottenIfTheLinkWasMadeAnewMeanwhile ) {
   left();
   unrestored()->ifIndexIs( 77 );
   fake->link( et1, true, true );
   restart();
   EXPECT_FALSE( unrestored() );
   EXPECT_EQ( 0u, fake->restores.size() );
}

TEST_F( LeftStory, isToldWhenItIsRefusedWithACarrierToo ) {
   left();
   carrierIs( true );
   restored( { {}, Outcome::failed( "1 of et1 is not restored" ) } );
   EXPECT_FALSE( unrestored() );
   EXPECT_EQ( "1 of et1 is not restored", executor->problem() );
   EXPECT_EQ( "et1: 1 of et1 is not restored", notes.back() );
   EXPECT_EQ( 1u, fake->restores.size() );
}

TEST_F( LeftStory, waitsOnWhenTheCarrierWasTooShort ) {
   left();
   carrierIs( true );
   carrierIs( false );
   restored( { {}, Outcome::failed( "1 of et1 waits for its carrier" ), "the rest" } );
   ASSERT_TRUE( unrestored() );
   EXPECT_EQ( "the rest", unrestored()->left() );
   EXPECT_EQ( 1u, fake->restores.size() );
   carrierIs( true );
   ASSERT_EQ( 2u, fake->restores.size() );
   EXPECT_EQ( "the rest", fake->restores[1].restore );
}

TEST_F( LeftStory, waitsWhileTheLinkIsHeldOnceMore ) {
   left();
   held();
   ASSERT_TRUE( unrestored() );
   bringBack();
   clock->runUntilIdle();
   doneWithout( "another" );
   EXPECT_EQ( "a route and another", unrestored()->left() );
   carrierIs( true );
   ASSERT_EQ( 1u, fake->restores.size() );
   EXPECT_EQ( "a route and another", fake->restores[0].restore );
}

TEST_F( LeftStory, isLeftAgainWhenTheLinkIsShutWhileItIsRestored ) {
   left();
   carrierIs( true );
   shut();
   clock->runUntilIdle();
   restored( { {}, Outcome::failed( "a later request took its place" ) } );
   ASSERT_TRUE( unrestored() );
   fake->done( fake->requests.size() - 1 );
   bringBack();
   clock->runUntilIdle();
   EXPECT_EQ( 1u, fake->restores.size() );
   fake->done( fake->requests.size() - 1 );
   clock->runUntilIdle();
   EXPECT_EQ( 2u, fake->restores.size() );
   restored();
   EXPECT_FALSE( unrestored() );
}

TEST_F( LeftStory, isLeftAsItIsWhileSomebodyElseHasSetTheLinkDown ) {
   left();
   fake->link( et1, false, false );
   clock->runUntilIdle();
   EXPECT_TRUE( unrestored() );
   EXPECT_EQ( 2u, fake->requests.size() ) << "it is not raised";
   carrierIs( true );
   EXPECT_EQ( 1u, fake->restores.size() );
}

TEST_F( LeftStory, isTriedAgainInAWhileWhenItIsNotTheCarrierThatIsMissing ) {
   left();
   carrierIs( true );
   const auto noted = notes.size();
   for ( unsigned tries = 1; tries < 4; ++tries ) {
      ASSERT_EQ( tries, fake->restores.size() );
      restored( { {}, Outcome::failed( "1 of et1: not permitted" ), "a route" } );
      ASSERT_TRUE( unrestored() );
      EXPECT_EQ( "a route", unrestored()->left() );
      EXPECT_EQ( "1 of et1: not permitted", executor->problem() );
      clock->advance( Executor::retryAfter - 1 );
      fake->link( et1, true, true );
      clock->runUntilIdle();
      EXPECT_EQ( tries, fake->restores.size() );
      clock->advance( 2 );
   }
   EXPECT_EQ( noted + 1, notes.size() ) << "it is told once";
   restored();
   EXPECT_FALSE( unrestored() );
   EXPECT_EQ( "", executor->problem() );
   clock->advance( 100 );
   EXPECT_EQ( 4u, fake->restores.size() );
}

TEST_F( LeftStory, isTriedAgainInAWhileAfterTheRequestThatHasRaisedTheLink ) {
   held();
   bringBack();
   clock->runUntilIdle();
   fake->link( et1, true, true );
   fake->listener->linkSetDone(
      fake->requests.back().id, { {}, Outcome::failed( "1 of et1: not permitted" ), "a route" } );
   clock->runUntilIdle();
   EXPECT_TRUE( fake->restores.empty() );
   clock->advance( Executor::retryAfter + 1 );
   EXPECT_EQ( 1u, fake->restores.size() );
}

TEST_F( LeftStory, isTriedWithANewCarrierAtOnce ) {
   left();
   carrierIs( true );
   restored( { {}, Outcome::failed( "1 of et1: not permitted" ), "a route" } );
   carrierIs( false );
   EXPECT_EQ( 1u, fake->restores.size() );
   carrierIs( true );
   EXPECT_EQ( 2u, fake->restores.size() );
}

TEST_F( LeftStory, isNotTriedInBetweenForALinkThatIsHeldOnceMore ) {
   left();
   carrierIs( true );
   restored( { {}, Outcome::failed( "1 of et1: not permitted" ), "a route" } );
   shut();
   clock->runUntilIdle();
   clock->advance( Executor::retryAfter + 1 );
   EXPECT_EQ( 1u, fake->restores.size() );
   EXPECT_TRUE( unrestored() );
}

/// What our shutdown has taken, of a link that somebody else has set up and down again while it was held.
class LoweredStory : public LeftStory {
 protected:
   void raisedAndLowered() {
      fake->link( et1, true, true );
      clock->runUntilIdle();
      fake->link( et1, false, false );
      clock->runUntilIdle();
   }
};

TEST_F( LoweredStory, waitsUntilTheLinkIsUp ) {
   held();
   raisedAndLowered();
   bringBack();
   clock->runUntilIdle();
   EXPECT_EQ( 1u, fake->requests.size() ) << "it is not raised";
   EXPECT_EQ( nullptr, entry() );
   ASSERT_TRUE( unrestored() );
   EXPECT_EQ( "addresses of et1, raised", unrestored()->left() );
   EXPECT_EQ(
      "what et1 has lost while it was held waits until it is up: somebody else has set it down",
      executor->problem() );
   restart();
   EXPECT_TRUE( unrestored() );
   carrierIs( true );
   ASSERT_EQ( 1u, fake->restores.size() );
   EXPECT_EQ( "addresses of et1, raised", fake->restores[0].restore );
   restored();
   EXPECT_FALSE( unrestored() );
}

TEST_F( LoweredStory, isNothingIfTheLinkWasDownBeforeItWasHeld ) {
   fake->link( et1, false, false );
   clock->runUntilIdle();
   shut();
   clock->runUntilIdle();
   raisedAndLowered();
   bringBack();
   clock->runUntilIdle();
   EXPECT_EQ( nullptr, entry() );
   EXPECT_FALSE( unrestored() );
}

TEST_F( LoweredStory, isNothingIfItCouldNotBeSetDown ) {
   shut();
   clock->runUntilIdle();
   fake->fail( 0, "not permitted" );
   fake->link( et1, false, false );
   clock->runUntilIdle();
   bringBack();
   clock->runUntilIdle();
   EXPECT_EQ( nullptr, entry() );
   EXPECT_FALSE( unrestored() );
}

TEST_F( LoweredStory, waitsWhenTheLinkCouldNotBeSetUp ) {
   held();
   bringBack();
   clock->runUntilIdle();
   fake->fail( 1, "not permitted" );
   raisedAndLowered();
   EXPECT_EQ( nullptr, entry() );
   ASSERT_TRUE( unrestored() );
   EXPECT_EQ( "addresses of et1, raised", unrestored()->left() );
}

TEST_F( LoweredStory, waitsWhenItIsSetDownBeforeItIsSeenToBeUp ) {
   held();
   bringBack();
   clock->runUntilIdle();
   raisedAndLowered();
   fake->fail( 1, "the link is not up" );
   clock->runUntilIdle();
   EXPECT_EQ( nullptr, entry() );
   EXPECT_TRUE( unrestored() );
}

/// What came up with a link that was let go of is down again, and the rest is being given back.
class RestoringStory : public LoweredStory {
 protected:
   void restoring() {
      held();
      bringBack();
      clock->runUntilIdle();
      fake->link( et1, true, false );
      fake->listener->linkSetRestores( fake->requests.back().id );
      clock->runUntilIdle();
   }
};

TEST_F( RestoringStory, nothingIsSetDownASecondTimeByTheNextAgent ) {
   restoring();
   EXPECT_EQ( "addresses of et1", fake->requests.back().restore );
   restart();
   ASSERT_EQ( 3u, fake->requests.size() );
   EXPECT_TRUE( fake->requests[2].up );
   EXPECT_EQ( "addresses of et1, raised", fake->requests[2].restore );
   fake->done( 2 );
   EXPECT_EQ( nullptr, entry() );
}

TEST_F( RestoringStory, whatIsNotKnownToBeDownIsSetDownByTheNextAgent ) {
   held();
   bringBack();
   clock->runUntilIdle();
   fake->link( et1, true, false );
   clock->runUntilIdle();
   restart();
   ASSERT_EQ( 3u, fake->requests.size() );
   EXPECT_EQ( "addresses of et1", fake->requests[2].restore );
}

TEST_F( RestoringStory, linkThatIsSetDownWhileNoAgentRunsStaysDown ) {
   underWay = { et1 };
   restoring();
   fake->links[et1].adminUp = false;
   restart();
   EXPECT_EQ( 2u, fake->requests.size() );
   EXPECT_EQ( nullptr, entry() );
   EXPECT_EQ( Drift::lowered, executor->drift( et1 ) );
   ASSERT_TRUE( unrestored() ) << "for when he sets it up";
   EXPECT_EQ( "addresses of et1, raised", unrestored()->left() );
}

TEST_F( RestoringStory, linkThatIsNotKnownToHaveBeenUpIsRaisedByTheNextAgent ) {
   held();
   bringBack();
   clock->runUntilIdle();
   restart();
   ASSERT_EQ( 3u, fake->requests.size() );
   EXPECT_TRUE( fake->requests[2].up );
}

TEST_F( RestoringStory, whatTheLinkHasByNowIsKnownWhenItIsHeldOnceMore ) {
   restoring();
   fake->snapshot = "an address of somebody";
   held();
   EXPECT_EQ( "addresses of et1 and an address of somebody", entry()->snapshot() );
   bringBack();
   clock->runUntilIdle();
   EXPECT_EQ( "addresses of et1 and an address of somebody", fake->requests.back().restore )
      << "it comes up with the link once more";
   restart();
   EXPECT_EQ( "addresses of et1 and an address of somebody", fake->requests.back().restore );
}

TEST_F( RestoringStory, lateNewsSayNothingOfALinkThatIsHeldOnceMore ) {
   restoring();
   const auto id = fake->requests.back().id;
   held();
   fake->listener->linkSetRestores( id );
   EXPECT_FALSE( entry()->restoring() );
   bringBack();
   clock->runUntilIdle();
   fake->listener->linkSetRestores( id );
   EXPECT_FALSE( entry()->restoring() );
}

TEST_F( RestoringStory, linkIsHeldOnceMoreOnlyWhenItCanBeReadWhatItHas ) {
   restoring();
   fake->snapshotOutcome = Outcome::failed( "the kernel does not answer" );
   shut();
   clock->runUntilIdle();
   EXPECT_EQ( 2u, fake->requests.size() );
   EXPECT_EQ( "cannot set et1 down: the kernel does not answer", executor->problem() );
   fake->snapshotOutcome = {};
   clock->advance( Executor::retryAfter + 1 );
   ASSERT_EQ( 3u, fake->requests.size() );
   EXPECT_FALSE( fake->requests[2].up );
}

TEST_F( LeftStory, ofNothingIsNoted ) {
   held();
   bringBack();
   clock->runUntilIdle();
   fake->link( et1, true, true );
   fake->listener->linkSetDone( fake->requests.back().id, { {}, Outcome::failed( "2 are not restored" ) } );
   EXPECT_FALSE( unrestored() );
   EXPECT_EQ( "et1: 2 are not restored", notes.back() );
}

TEST_F( LeftStory, whatSomebodyElseHasRaisedWithTheLinkStaysUp ) {
   held();
   fake->link( et1, true, true );
   bringBack();
   clock->runUntilIdle();
   EXPECT_EQ( "addresses of et1, raised", fake->requests.back().restore );
   EXPECT_EQ( "addresses of et1, raised", entry()->snapshot() ) << "also if it is asked for again";
}

TEST_F( LeftStory, isKnownAnewWhenALinkCouldNotBeSetDown ) {
   model.cause->intfStatusIs( et1, clock->currentTime() );
   clock->runUntilIdle();
   fake->fail( 0, "not permitted" );
   fake->snapshot = "more";
   clock->advance( Executor::retryAfter + 1 );
   ASSERT_EQ( 2u, fake->requests.size() );
   EXPECT_EQ( "more", entry()->snapshot() );
   fake->snapshotOutcome = Outcome::failed( "the kernel does not answer" );
   fake->fail( 1, "not permitted" );
   clock->advance( Executor::retryAfter + 1 );
   EXPECT_EQ( 2u, fake->requests.size() );
   EXPECT_EQ( "cannot set et1 down: the kernel does not answer", executor->problem() );
   fake->snapshotOutcome = {};
   clock->advance( Executor::retryAfter + 1 );
   EXPECT_EQ( 3u, fake->requests.size() );
}

TEST_F( LeftStory, lowersNothingAboveALinkThatHasNeverBeenDown ) {
   model.cause->intfStatusIs( et1, clock->currentTime() );
   clock->runUntilIdle();
   fake->fail( 0, "not permitted" );
   bringBack();
   clock->runUntilIdle();
   ASSERT_EQ( 2u, fake->requests.size() );
   EXPECT_EQ( "addresses of et1, raised", fake->requests[1].restore );
}

} // namespace
} // namespace Agent
