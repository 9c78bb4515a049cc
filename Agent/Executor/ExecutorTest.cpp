#include "Agent/Executor/ExecutorRigTest.h"

namespace Agent {
namespace {

TEST_F( ExecutorStory, publishesLinksAsTheyAre ) {
   EXPECT_EQ( Interface::operUp, status() );
   EXPECT_EQ( "+et1;", log );
   fake->link( et1, true, false );
   EXPECT_EQ( Interface::operDown, status() );
   fake->linkGone( et1 );
   EXPECT_EQ( nullptr, model.allIntfStatusDir->intfStatus( et1 ) );
   EXPECT_EQ( "+et1;-et1;", log );
}

TEST_F( ExecutorStory, asksForAShutdownInALaterTurnAndNotInsideTheWrite ) {
   shut();
   EXPECT_EQ( 0u, fake->requests.size() );
   clock->runTurn();
   ASSERT_EQ( 1u, fake->requests.size() );
   EXPECT_FALSE( fake->requests[0].up );
}

TEST_F( ExecutorStory, asksForNothingThatIsNotCommitted ) {
   commits = false;
   shut();
   clock->runTurn();
   EXPECT_EQ( 0u, fake->requests.size() );
   ASSERT_NE( nullptr, entry() );
   commits = true;
   clock->advance( 2 );
   EXPECT_EQ( 1u, fake->requests.size() );
}

TEST_F( ExecutorStory, writesTheJournalBeforeAndClosesItAfterTheAcknowledgement ) {
   shut();
   clock->runUntilIdle();
   ASSERT_NE( nullptr, entry() );
   EXPECT_TRUE( entry()->wasUp() );
   EXPECT_FALSE( entry()->wantedUp() );
   EXPECT_FALSE( entry()->acknowledged() );
   EXPECT_EQ( "boot 1", entry()->bootId() );
   EXPECT_EQ( "addresses of et1", entry()->snapshot() );
   fake->done( 0 );
   EXPECT_TRUE( entry()->acknowledged() );
   bringBack();
   clock->runUntilIdle();
   EXPECT_TRUE( entry()->wantedUp() );
   ASSERT_EQ( 2u, fake->requests.size() );
   EXPECT_TRUE( fake->requests[1].up );
   EXPECT_EQ( "addresses of et1", fake->requests[1].restore );
   fake->done( 1 );
   EXPECT_EQ( nullptr, entry() );
}

TEST_F( ExecutorStory, keepsTheStatusOfALinkThatWeHoldDown ) {
   held();
   EXPECT_EQ( "down", executor->linkState( et1 ) );
   EXPECT_EQ( Interface::operUp, status() );
}

TEST_F( ExecutorStory, showsALinkThatSomebodyElseRaisesAsItIs ) {
   held();
   fake->link( et1, true, true );
   EXPECT_EQ( Interface::operUp, status() );
   fake->link( et1, true, false );
   EXPECT_EQ( Interface::operDown, status() );
}

TEST_F( ExecutorStory, keepsTheStatusOfALinkThatSomebodyElseRaisesUntilItHasACarrier ) {
   held();
   fake->link( et1, true, false );
   EXPECT_EQ( Interface::operUp, status() );
}

TEST_F( ExecutorStory, hasNoStatusForALinkThatIsGoneWhileWeHoldIt ) {
   held();
   fake->linkGone( et1 );
   EXPECT_EQ( nullptr, model.allIntfStatusDir->intfStatus( et1 ) );
   EXPECT_EQ( nullptr, entry() );
}

TEST_F( ExecutorStory, holdsALinkAgainThatComesBackUnderItsName ) {
   held();
   fake->linkGone( et1 );
   fake->link( et1, true, true );
   clock->runUntilIdle();
   ASSERT_EQ( 2u, fake->requests.size() );
   EXPECT_FALSE( fake->requests[1].up );
}

TEST_F( ExecutorStory, forgetsALinkThatWasHeldAndHasGoneWhileTheAgentWasAway ) {
   held();
   fake->links.clear();
   restart();
   EXPECT_EQ( nullptr, entry() );
   // Another one of that name, which was never up.
   bringBack();
   fake->link( et1, false, false );
   clock->runUntilIdle();
   EXPECT_EQ( 1u, fake->requests.size() );
   EXPECT_EQ( Interface::operDown, status() );
}

TEST_F( ExecutorStory, holdsALinkAgainThatWasMadeAnewWhileTheAgentWasAway ) {
   held();
   fake->links[et1] = { et1, 7, true, true };
   restart();
   ASSERT_EQ( 2u, fake->requests.size() );
   EXPECT_FALSE( fake->requests[1].up );
   fake->done( 1 );
   EXPECT_EQ( Interface::operUp, status() );
}

TEST_F( ExecutorStory, doesNotHoldAnotherKindUnderTheNameOfALinkThatWasHeld ) {
   held();
   const Wire::IntfId bond = Wire::PortChannelIntfId( "et1" );
   fake->links.clear();
   fake->link( bond, true, true );
   restart();
   EXPECT_EQ( 0u, model.journal->entrys() );
   EXPECT_EQ( 1u, fake->requests.size() );
   EXPECT_EQ( "we do not hold et1", executor->release( "et1" ).refused->message );
}

TEST_F( ExecutorStory, keepsTheStatusOfAReleasedLinkUntilItIsUp ) {
   held();
   bringBack();
   clock->runUntilIdle();
   const auto id = fake->requests[1].id;
   fake->link( et1, true, false );
   fake->listener->linkSetDone( id, {} );
   clock->advance( 9 );
   EXPECT_EQ( Interface::operUp, status() );
   fake->link( et1, true, true );
   EXPECT_EQ( Interface::operUp, status() );
   fake->link( et1, true, false );
   EXPECT_EQ( Interface::operDown, status() );
}

TEST_F( ExecutorStory, showsAReleasedLinkDownWhenItIsNotUpAfterTenSeconds ) {
   held();
   bringBack();
   clock->runUntilIdle();
   const auto id = fake->requests[1].id;
   fake->link( et1, true, false );
   fake->listener->linkSetDone( id, {} );
   clock->advance( 11 );
   EXPECT_EQ( Interface::operDown, status() );
}

/// Notes every change of an interface's status that others see.
struct StatusChanges {
   struct VelStatus final : Vel::ReactorTo< StatusChanges, Interface::IntfStatus > {
      using ReactorTo::ReactorTo;
      void onOperStatus() override { sm()->seen.push_back( entity()->operStatus() ); }
   };
   explicit StatusChanges( const Vel::Ptr< Interface::IntfStatus > & status ) {
      reactor.is( status, this ).hasNotificationActiveIs( true );
   }
   std::vector< Interface::IntfOperStatus > seen;
   Vel::Watch< VelStatus > reactor;
};

TEST_F( ExecutorStory, showsNeitherAShutdownNorAReleaseOfALinkThatComesUpInTime ) {
   const StatusChanges changes( model.allIntfStatusDir->intfStatus( et1 ) );
   held();
   clock->advance( 60 );
   bringBack();
   clock->runUntilIdle();
   fake->link( et1, true, false );
   fake->listener->linkSetDone( fake->requests[1].id, {} );
   clock->advance( 9 );
   fake->link( et1, true, true );
   clock->advance( 60 );
   EXPECT_TRUE( changes.seen.empty() );
}

TEST_F( ExecutorStory, showsOnceThatAReleasedLinkHasNotComeUpInTime ) {
   const StatusChanges changes( model.allIntfStatusDir->intfStatus( et1 ) );
   held();
   bringBack();
   clock->runUntilIdle();
   fake->link( et1, true, false );
   fake->listener->linkSetDone( fake->requests[1].id, {} );
   clock->advance( 60 );
   EXPECT_EQ( std::vector{ Interface::operDown }, changes.seen );
}

TEST_F( ExecutorStory, leavesALinkAloneThatWasDownBefore ) {
   fake->link( et1, false, false );
   shut();
   clock->runUntilIdle();
   EXPECT_EQ( 0u, fake->requests.size() );
   EXPECT_EQ( Interface::operDown, status() );
   bringBack();
   clock->runUntilIdle();
   EXPECT_EQ( 0u, fake->requests.size() );
   EXPECT_EQ( nullptr, entry() );
}

TEST_F( ExecutorStory, saysWhatIsWrongWithTheSwitchAndWithALink ) {
   fake->listener->healthIs( { false, "no right" } );
   EXPECT_EQ( "no right", executor->problem() );
   shut();
   clock->runUntilIdle();
   fake->fail( 0, "not permitted" );
   EXPECT_EQ( "no right; cannot set et1 down: not permitted", executor->problem() );
   fake->listener->healthIs( { true, "cannot read the links" } );
   EXPECT_EQ( "cannot read the links", executor->problem() ) << "how they are is not known then";
}

TEST_F( ExecutorStory, asksAgainForWhatHasFailed ) {
   shut();
   clock->runUntilIdle();
   fake->fail( 0, "device is busy" );
   EXPECT_EQ( "cannot set et1 down: device is busy", executor->problem() );
   clock->advance( 6 );
   ASSERT_EQ( 2u, fake->requests.size() );
   fake->done( 1 );
   EXPECT_EQ( "", executor->problem() );
}

TEST_F( ExecutorStory, asksAgainForAReleaseThatHasFailedAlsoWhileCountersCannotBeRead ) {
   held();
   fake->countersOutcome = Outcome::failed( "no counters" );
   bringBack();
   clock->runUntilIdle();
   ASSERT_EQ( 2u, fake->requests.size() );
   fake->fail( 1, "device is busy" );
   clock->advance( 4 );
   EXPECT_EQ( 2u, fake->requests.size() );
   clock->advance( 3 );
   ASSERT_EQ( 3u, fake->requests.size() );
   EXPECT_TRUE( fake->requests[2].up );
}

TEST_F( ExecutorStory, showsAReleasedLinkDownAfterTenSecondsAlsoWhileCountersCannotBeRead ) {
   held();
   bringBack();
   clock->runUntilIdle();
   fake->link( et1, true, false );
   fake->countersOutcome = Outcome::failed( "no counters" );
   fake->listener->linkSetDone( fake->requests[1].id, {} );
   clock->advance( 12 );
   EXPECT_EQ( Interface::operDown, status() );
}

TEST_F( ExecutorStory, showsNoProblemOfALinkThatNeedNotBeShutAnyMore ) {
   fake->snapshotOutcome = Outcome::failed( "cannot read the addresses: no memory" );
   shut();
   clock->runUntilIdle();
   EXPECT_NE( "", executor->problem() );
   bringBack();
   clock->runUntilIdle();
   EXPECT_EQ( "", executor->problem() );
}

TEST_F( ExecutorStory, shutsNoLinkWhoseAddressesCannotBeRead ) {
   fake->snapshotOutcome = Outcome::failed( "cannot read the addresses: no memory" );
   shut();
   clock->runUntilIdle();
   EXPECT_EQ( 0u, fake->requests.size() );
   EXPECT_EQ( nullptr, entry() );
   EXPECT_EQ( "cannot set et1 down: cannot read the addresses: no memory", executor->problem() );
   fake->snapshotOutcome = {};
   clock->advance( 6 );
   ASSERT_EQ( 1u, fake->requests.size() );
   EXPECT_EQ( "addresses of et1", entry()->snapshot() );
   EXPECT_EQ( "", executor->problem() );
}

TEST_F( ExecutorStory, followsACauseThatChangesWhileARequestIsOnItsWay ) {
   shut();
   clock->runUntilIdle();
   bringBack();
   clock->runUntilIdle();
   ASSERT_EQ( 2u, fake->requests.size() );
   fake->done( 0 ); // overtaken
   ASSERT_NE( nullptr, entry() );
   fake->done( 1 );
   clock->runUntilIdle();
   EXPECT_EQ( nullptr, entry() );
   EXPECT_EQ( "up", executor->linkState( et1 ) );
}

TEST_F( ExecutorStory, movesNoLinkAtARestart ) {
   held();
   restart();
   EXPECT_EQ( 1u, fake->requests.size() );
   EXPECT_EQ( Interface::operUp, status() );
}

TEST_F( ExecutorStory, asksAgainAfterARestartForWhatWasNotAcknowledged ) {
   shut();
   clock->runUntilIdle();
   restart();
   ASSERT_EQ( 2u, fake->requests.size() );
   EXPECT_FALSE( fake->requests[1].up );
}

TEST_F( ExecutorStory, forgetsTheJournalOfAnotherBootAndHoldsAgainWhatIsShut ) {
   held();
   fake->boot = "boot 2";
   fake->links[et1] = { et1, 1, true, true };
   restart();
   ASSERT_EQ( 2u, fake->requests.size() );
   EXPECT_FALSE( fake->requests[1].up );
   EXPECT_EQ( "boot 2", entry()->bootId() );
}

TEST_F( ExecutorStory, releasesByHand ) {
   EXPECT_EQ( "we do not hold et1", executor->release( "et1" ).refused->message );
   held();
   const auto released = executor->release( "et1" );
   EXPECT_FALSE( released.refused );
   EXPECT_TRUE( released.changed );
   EXPECT_FALSE( executor->release( "et1" ).changed );
   EXPECT_EQ( nullptr, model.cause->intfStatus( et1 ) );
   clock->runUntilIdle();
   ASSERT_EQ( 2u, fake->requests.size() );
   EXPECT_TRUE( fake->requests[1].up );
}

TEST_F( ExecutorStory, whatIsReleasedByHandIsNotShutAgainBeforeItsUnitsAreNormal ) {
   underWay.insert( et1 );
   held();
   executor->release( "et1" );
   clock->runUntilIdle();
   fake->done( 1 );
   clock->runUntilIdle();
   model.cause->intfStatusIs( et1, 1 );
   clock->runUntilIdle();
   EXPECT_EQ( nullptr, model.cause->intfStatus( et1 ) );
   EXPECT_EQ(
      std::vector< Vel::String >{
         "et1: is not shut again: it has been released by hand, which holds until its units are normal" },
      notes );
   restart();
   model.cause->intfStatusIs( et1, 1 );
   clock->runUntilIdle();
   EXPECT_EQ( 2u, fake->requests.size() ) << "over restarts";
   underWay.clear();
   clock->runUntilIdle();
   clock->post( [] {} );
   clock->runUntilIdle();
   model.cause->intfStatusIs( et1, 1 );
   clock->runUntilIdle();
   ASSERT_EQ( 3u, fake->requests.size() );
   EXPECT_FALSE( fake->requests[2].up );
}

TEST_F( ExecutorStory, whatIsReleasedByHandStaysSoWhileTheLinkIsAway ) {
   anyUnderWay = true;
   held();
   executor->release( "et1" );
   fake->linkGone( et1 );
   clock->post( [] {} );
   clock->runUntilIdle();
   EXPECT_TRUE( model.journal->released( et1 ) );
   anyUnderWay = false;
   clock->post( [] {} );
   clock->runUntilIdle();
   EXPECT_FALSE( model.journal->released( et1 ) );
}

TEST_F( ExecutorStory, deletesEntriesThatBelongToNoRecord ) {
   held();
   executor->orphansDel( []( const Wire::IntfId & ) { return false; } );
   EXPECT_EQ( 0u, model.cause->intfStatuss() );
}

} // namespace
} // namespace Agent
