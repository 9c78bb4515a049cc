// Counters, and the status of what they can be told of: ports, port-channels and VLAN interfaces with members that count.

#include "Agent/Executor/ExecutorRigTest.h"

namespace Agent {
namespace {

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

TEST_F( ExecutorStory, hasNoStatusForAPortChannelWhoseMembersTheSwitchDoesNotTell ) {
   fake->membership = false;
   fake->link( pc1, true, true );
   EXPECT_EQ( nullptr, model.allIntfStatusDir->intfStatus( pc1 ) );
   EXPECT_EQ( "up", executor->linkState( pc1 ) );
   clock->advance( 6 );
   EXPECT_EQ( nullptr, model.allIntfStatusDir->intfStatus( pc1 ) );
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
