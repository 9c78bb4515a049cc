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

TEST_F( ExecutorStory, readsTheCountersOfAPortThatAppearsWhileNothingIsSampled ) {
   fake->link( et2, true, true );
   EXPECT_EQ( nullptr, model.allIntfStatusDir->intfStatus( et2 ) );
   clock->runUntilIdle();
   ASSERT_NE( nullptr, model.allIntfStatusDir->intfStatus( et2 ) );
   EXPECT_EQ( Interface::operUp, model.allIntfStatusDir->intfStatus( et2 )->operStatus() );
}

TEST_F( ExecutorStory, readsTheCountersOfAPortThatAppearsRightAfterThoseOfOthersWereRead ) {
   // In the turn in which they are to be read for et2, and before that.
   clock->post( [this] {
      executor->countersFresh();
      fake->link( Wire::EthIntfId( "et3" ), true, true );
   } );
   fake->link( et2, true, true );
   clock->runUntilIdle();
   EXPECT_NE( nullptr, model.allIntfStatusDir->intfStatus( Wire::EthIntfId( "et3" ) ) );
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

TEST_F( ExecutorStory, hasNoStatusForAPortChannelWhoseMembersTheSwitchDoesNotTell ) {
   fake->membership = false;
   fake->link( pc1, true, true );
   EXPECT_EQ( nullptr, model.allIntfStatusDir->intfStatus( pc1 ) );
   EXPECT_EQ( "up", executor->linkState( pc1 ) );
   clock->advance( 6 );
   EXPECT_EQ( nullptr, model.allIntfStatusDir->intfStatus( pc1 ) );
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

TEST_F( ExecutorStory, readsTheCountersOnceATurn ) {
   const unsigned before = fake->refreshes;
   clock->post( [this] {
      executor->countersFresh();
      executor->countersFresh();
   } );
   clock->runTurn();
   EXPECT_EQ( before + 1, fake->refreshes );
}

TEST_F( ExecutorStory, countsAndTimeStandStillDuringATurn ) {
   const auto octets = [this] {
      return model.pool->intfCounterDir( et1 )->counter( "current" )->statistics().inOctets;
   };
   const Vel::U64 before = octets();
   clock->post( [&] {
      ASSERT_TRUE( executor->countersFresh() );
      const Vel::U64 first = octets();
      const double time = Vel::System::currentTime();
      clock->spend( 3 );
      ASSERT_TRUE( executor->countersFresh() );
      EXPECT_EQ( before + 1, first );
      EXPECT_EQ( first, octets() );
      EXPECT_EQ( time, Vel::System::currentTime() );
   } );
   clock->runTurn();
}

TEST_F( ExecutorStory, letsNoTimerRunWithoutFreshCounters ) {
   struct Tick final : Cog::TimerReactor< int > {
      using TimerReactor::TimerReactor;
      void onTime() override { ++*sm(); }
   };
   int ticks = 0;
   Vel::Watch< Tick > tick;
   tick.is( wheel, &ticks ).hasNotificationActiveIs( true );
   tick->timeMinIs( clock->currentTime() + 1 );
   fake->countersOutcome = Outcome::failed( "no counters" );
   clock->advance( 5 );
   EXPECT_EQ( 0, ticks );
   EXPECT_EQ( "no counters", executor->countersProblem() );
   EXPECT_TRUE( executor->countersFailedSince() );
   const double read = executor->countersRead();
   fake->countersOutcome = {};
   clock->advance( 2 );
   EXPECT_EQ( 1, ticks );
   EXPECT_FALSE( executor->countersFailedSince() );
   EXPECT_LT( read, executor->countersRead() );
   EXPECT_GE( clock->currentTime(), executor->countersRead() );
}

TEST_F( ExecutorStory, hasNoStatusForAPortWithoutCounters ) {
   fake->withoutCounters.insert( et1 );
   clock->post( [this] { executor->countersFresh(); } );
   clock->runTurn();
   EXPECT_EQ( nullptr, model.allIntfStatusDir->intfStatus( et1 ) );
   fake->withoutCounters.clear();
   clock->post( [this] { executor->countersFresh(); } );
   clock->runTurn();
   EXPECT_EQ( Interface::operUp, status() );
}

TEST_F( ExecutorStory, hasNoStatusForAPortChannelOrVlanWithAPortWithoutCounters ) {
   const Wire::IntfId vlan10 = Wire::VlanIntfId( "vlan10", 10 ), vlan20 = Wire::VlanIntfId( "vlan20", 20 );
   for ( const Wire::IntfId & intf : { pc1, vlan10, vlan20 } )
      fake->link( intf, true, true );
   fake->link( et2, true, true );
   fake->listener->portChannelIs( et1, pc1 );
   fake->listener->vlanMemberIs( 10, pc1 );
   fake->listener->vlanMemberIs( 20, et2 );
   const auto counters = [this] {
      clock->post( [this] { executor->countersFresh(); } );
      clock->runUntilIdle();
   };
   fake->withoutCounters.insert( et1 );
   counters();
   EXPECT_EQ( nullptr, model.allIntfStatusDir->intfStatus( pc1 ) );
   EXPECT_EQ( nullptr, model.allIntfStatusDir->intfStatus( vlan10 ) );
   EXPECT_NE( nullptr, model.allIntfStatusDir->intfStatus( vlan20 ) );
   fake->withoutCounters.clear();
   counters();
   EXPECT_NE( nullptr, model.allIntfStatusDir->intfStatus( pc1 ) );
   EXPECT_NE( nullptr, model.allIntfStatusDir->intfStatus( vlan10 ) );
}

TEST_F( ExecutorStory, keepsTheStatusOfAPortChannelThatGetsANewPort ) {
   fake->link( pc1, true, true );
   fake->listener->portChannelIs( et1, pc1 );
   clock->runUntilIdle();
   const auto * const before = model.allIntfStatusDir->intfStatus( pc1 );
   ASSERT_NE( nullptr, before );
   fake->link( et2, true, true );
   fake->listener->portChannelIs( et2, pc1 );
   fake->link( pc1, true, true );
   clock->runUntilIdle();
   EXPECT_EQ( before, model.allIntfStatusDir->intfStatus( pc1 ) );
}

TEST_F( ExecutorStory, publishesPortChannelsAndVlans ) {
   fake->link( pc1, true, true );
   fake->listener->portChannelIs( et1, pc1 );
   clock->runUntilIdle();
   EXPECT_NE( nullptr, model.allIntfStatusDir->intfStatus( pc1 ) );
   EXPECT_EQ( pc1, model.lagConfig->phyIntf( et1 )->portChannel() );
   fake->listener->vlanMemberIs( 10, pc1 );
   EXPECT_NE( nullptr, model.vlanStatusDir->vlanStatus( 10 )->vlanPortStatus( pc1 ) );
   fake->listener->vlanMemberDel( 10, pc1 );
   EXPECT_EQ( nullptr, model.vlanStatusDir->vlanStatus( 10 ) );
}

TEST_F( ExecutorStory, portChannelHasAStatusWhileItHasMembers ) {
   const auto shown = [this] {
      clock->runUntilIdle();
      return model.allIntfStatusDir->intfStatus( pc1 ) != nullptr;
   };
   fake->link( pc1, true, true );
   EXPECT_FALSE( shown() );
   fake->listener->portChannelIs( et1, pc1 );
   EXPECT_TRUE( shown() );
   fake->listener->portChannelIs( et1, {} );
   EXPECT_FALSE( shown() );
}

TEST_F( ExecutorStory, vlanHasAStatusWhileItHasMembersOtherThanTheSwitchItself ) {
   const Wire::IntfId vlan10 = Wire::VlanIntfId( "vlan10", 10 ), br0 = Wire::CpuIntfId( "br0" );
   const auto shown = [&] {
      clock->runUntilIdle();
      return model.allIntfStatusDir->intfStatus( vlan10 ) != nullptr;
   };
   for ( const Wire::IntfId & intf : { vlan10, br0, pc1 } )
      fake->link( intf, true, true );
   fake->listener->vlanMemberIs( 10, br0 );
   EXPECT_FALSE( shown() );
   fake->listener->vlanMemberIs( 10, pc1 );
   EXPECT_TRUE( shown() ) << "a port-channel without ports carries nothing";
   fake->listener->vlanMemberIs( 10, et1 );
   fake->listener->vlanMemberDel( 10, pc1 );
   EXPECT_TRUE( shown() );
   fake->listener->vlanMemberDel( 10, et1 );
   EXPECT_FALSE( shown() );
}

TEST_F( ExecutorStory, portChannelThatIsHeldDownKeepsItsStatusWithoutMembers ) {
   const auto shown = [this] {
      clock->runUntilIdle();
      const auto * const status = model.allIntfStatusDir->intfStatus( pc1 );
      return status && status->operStatus() == Interface::operUp;
   };
   fake->link( pc1, true, true );
   fake->listener->portChannelIs( et1, pc1 );
   clock->runUntilIdle();
   model.cause->intfStatusIs( pc1, clock->currentTime() );
   clock->runUntilIdle();
   fake->done( 0 );
   fake->listener->portChannelIs( et1, {} );
   EXPECT_TRUE( shown() );
   restart();
   EXPECT_TRUE( shown() );
   // Somebody else raises it, so it may carry what nobody counts.
   fake->link( pc1, true, true );
   EXPECT_FALSE( shown() );
}

TEST_F( ExecutorStory, saysWhyNobodyCanTellWhatALinkThatIsUpCarries ) {
   const Wire::IntfId vlan10 = Wire::VlanIntfId( "vlan10", 10 );
   for ( const Wire::IntfId & intf : { et2, pc1, vlan10 } )
      fake->link( intf, true, true );
   fake->listener->portChannelIs( et2, pc1 );
   fake->listener->vlanMemberIs( 10, pc1 );
   const auto all = [&] {
      clock->post( [this] { executor->countersFresh(); } );
      clock->runUntilIdle();
      Vel::String result;
      for ( const Wire::IntfId & intf : { et1, et2, pc1, vlan10 } )
         result += Vel::text( intf, "[", executor->uncounted( intf ), "]" );
      return result;
   };
   EXPECT_EQ( "et1[]et2[]pc1[]vlan10[]", all() );
   fake->withoutCounters.insert( et2 );
   EXPECT_EQ(
      "et1[]et2[the switch has no counters of it]"
      "pc1[the switch has no counters of its member \"et2\"]"
      "vlan10[the switch has no counters of its member \"et2\"]",
      all() );
   fake->withoutCounters.clear();
   fake->uncountedWhy[vlan10] = "nobody filters";
   EXPECT_EQ( "et1[]et2[]pc1[]vlan10[nobody filters]", all() );
   fake->membership = false;
   EXPECT_EQ(
      "et1[]et2[]pc1[the switch does not tell its members]vlan10[the switch does not tell its members]",
      all() );
}

TEST_F( ExecutorStory, saysNothingOfALinkThatCarriesNothing ) {
   const Wire::IntfId vlan10 = Wire::VlanIntfId( "vlan10", 10 ), sub = Wire::SubIntfId( "et1.5" );
   fake->link( sub, true, true );
   fake->link( pc1, true, true );
   fake->link( vlan10, true, false );
   fake->uncountedWhy[vlan10] = "nobody filters";
   clock->runUntilIdle();
   EXPECT_EQ( "", executor->uncounted( sub ) ) << "is counted with its parent";
   EXPECT_EQ( "", executor->uncounted( pc1 ) ) << "has no members";
   EXPECT_EQ( "", executor->uncounted( vlan10 ) ) << "is down";
   EXPECT_EQ( "", executor->uncounted( Wire::EthIntfId( "none" ) ) );
   fake->link( vlan10, true, true );
   EXPECT_EQ( "nobody filters", executor->uncounted( vlan10 ) );
}

} // namespace
} // namespace Agent
