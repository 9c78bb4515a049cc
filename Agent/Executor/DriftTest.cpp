#include "Agent/Executor/DriftRigTest.h"

namespace Agent {
namespace {

TEST_F( DriftStory, thereIsNoneInWhatWeDoOurselves ) {
   held();
   EXPECT_EQ( "none", drift() );
   released();
   EXPECT_EQ( "none", drift() );
   EXPECT_EQ( "", noted() );
   EXPECT_TRUE( isUp() );
}

TEST_F( DriftStory, linkThatSomebodyElseRaisesIsToldAndLeftAlone ) {
   held();
   othersSet( true );
   clock->advance( 60 );
   EXPECT_EQ( "raised", drift() );
   EXPECT_EQ( raised, noted() );
   EXPECT_EQ( 1u, fake->requests.size() );
}

TEST_F( DriftStory, raisedLinkIsGivenBackWhatItHadLostWhenWeLetGo ) {
   held();
   othersSet( true );
   noted();
   released();
   EXPECT_EQ( "none", drift() );
   EXPECT_EQ( "et1: is not held any more; somebody else had set it up before", noted() );
   ASSERT_EQ( 2u, fake->requests.size() );
   EXPECT_EQ( "addresses of et1, raised", fake->requests[1].restore );
}

TEST_F( DriftStory, carrierIsNoDrift ) {
   held();
   fake->link( et1, true, false );
   fake->link( et1, true, true );
   fake->link( et1, true, false );
   EXPECT_EQ( raised, noted() );
   EXPECT_EQ( "raised", drift() );
}

TEST_F( DriftStory, watchedLinkThatSomebodyElseLowersIsTold ) {
   othersSet( false );
   EXPECT_EQ( "lowered", drift() );
   EXPECT_EQ( lowered, noted() );
   EXPECT_EQ( Interface::operDown, status() );
   othersSet( true );
   EXPECT_EQ( "none", drift() );
   EXPECT_EQ( "et1: has been set up again", noted() );
   EXPECT_EQ( 0u, fake->requests.size() );
}

TEST_F( DriftStory, linkThatIsLoweredWhileItsUnitIsNormalHasNotDrifted ) {
   underWay.clear();
   othersSet( false );
   EXPECT_EQ( "none", drift() );
   // The maintenance begins with the link down.
   underWay.insert( et1 );
   clock->advance( 5 );
   EXPECT_EQ( "none", drift() );
   EXPECT_EQ( "", noted() );
}

TEST_F( DriftStory, linkThatIsLoweredAfterItsReleaseHasDriftedUntilItsUnitIsNormal ) {
   held();
   released();
   othersSet( false );
   EXPECT_EQ( "lowered", drift() );
   EXPECT_EQ( lowered, noted() );
   underWay.clear();
   clock->advance( 1 );
   EXPECT_EQ( "none", drift() );
   EXPECT_EQ( "et1: stays down, as somebody else has set it", noted() );
   EXPECT_FALSE( isUp() );
}

TEST_F( DriftStory, lastWishOfOthersIsRespectedOnRelease ) {
   struct Row {
      std::vector< bool > set; ///< by others, while we hold the link
      bool upAfterwards;
      const char * drift; ///< meanwhile
   };
   for ( const Row & row :
         { Row{ {}, true, "none" }, Row{ { true }, true, "raised" }, Row{ { true, false }, false, "lowered" },
           Row{ { true, false, true }, true, "raised" } } ) {
      SCOPED_TRACE( row.set.size() );
      othersSet( true );
      held();
      for ( const bool up : row.set )
         othersSet( up );
      EXPECT_EQ( row.drift, drift() );
      released();
      EXPECT_EQ( row.upAfterwards, isUp() );
      EXPECT_EQ( nullptr, entry() );
   }
}

TEST_F( DriftStory, linkThatWasDownBeforeAndIsRaisedStaysUpOnRelease ) {
   othersSet( false );
   noted();
   shut();
   clock->runUntilIdle();
   EXPECT_EQ( 0u, fake->requests.size() );
   othersSet( true );
   EXPECT_EQ( "raised", drift() );
   EXPECT_EQ( raised, noted() );
   released();
   EXPECT_TRUE( isUp() );
}

TEST_F( DriftStory, heldLinkThatSomebodyHasLoweredShowsItsOwnStateAgain ) {
   held();
   EXPECT_EQ( Interface::operUp, status() );
   othersSet( true );
   othersSet( false );
   EXPECT_EQ( Interface::operDown, status() );
}

TEST_F( DriftStory, whatIsSetWhileARequestIsOnItsWayIsTakenForItsDoing ) {
   shut();
   clock->runUntilIdle();
   fake->link( et1, false, false );
   EXPECT_EQ( "none", drift() );
   fake->done( 0 );
   bringBack();
   clock->runUntilIdle();
   fake->link( et1, true, true );
   EXPECT_EQ( "none", drift() );
   EXPECT_EQ( "", noted() );
}

TEST_F( DriftStory, linkThatIsLoweredWhileItIsGivenBackWhatItHadLostHasDrifted ) {
   held();
   bringBack();
   clock->runUntilIdle();
   fake->link( et1, true, true );
   fake->link( et1, false, false );
   fake->listener->linkSetDone( fake->requests.at( 1 ).id, { {}, Outcome::failed( "the network is down" ) } );
   clock->runUntilIdle();
   EXPECT_EQ( "lowered", drift() );
   EXPECT_EQ( lowered, noted() );
   EXPECT_EQ( Interface::operDown, status() );
   clock->advance( 60 );
   EXPECT_EQ( 2u, fake->requests.size() );
}

TEST_F( DriftStory, acknowledgedShutdownIsNoDriftWhenItsNewsComeLate ) {
   shut();
   clock->runUntilIdle();
   fake->listener->healthIs( { true, "cannot read the links" } );
   fake->listener->linkSetDone( fake->requests.at( 0 ).id, {} );
   EXPECT_EQ( "down", executor->linkState( et1 ) );
   fake->link( et1, false, false );
   fake->listener->healthIs( {} );
   EXPECT_EQ( "none", drift() );
   released();
   EXPECT_TRUE( isUp() );
}

TEST_F( DriftStory, linkThatIsGoneHasNotDrifted ) {
   held();
   othersSet( true );
   fake->linkGone( et1 );
   EXPECT_EQ( "none", drift() );
   fake->link( et1, false, false );
   EXPECT_EQ( "none", drift() );
}

TEST_F( DriftStory, linkThatIsSetDownToBeDeletedHasNotDrifted ) {
   clock->post( [this] {
      fake->link( et1, false, false );
      fake->linkGone( et1 );
   } );
   clock->runUntilIdle();
   EXPECT_EQ( "", noted() );
   fake->link( et1, false, false );
   turn();
   EXPECT_EQ( "none", drift() );
}

TEST_F( DriftStory, raisedLinkThatIsSetDownAgainWhileItsUnitsAreNormalHasNotDrifted ) {
   held();
   underWay.clear();
   othersSet( true );
   EXPECT_EQ( raised, noted() );
   othersSet( false );
   EXPECT_EQ( "none", drift() );
   EXPECT_EQ( "et1: has been set down again", noted() );
}

TEST_F( DriftStory, subInterfaceThatGoesDownWithItsParentHasNotDrifted ) {
   const Wire::IntfId sub = Wire::SubIntfId( "et1.5" );
   underWay.insert( sub );
   fake->link( sub, true, true );
   held();
   fake->link( sub, false, false );
   EXPECT_EQ( Drift::none, executor->drift( sub ) );
   EXPECT_EQ( "", noted() );
}

// ---- over a restart

TEST_F( DriftStory, linkThatWasRaisedWhileTheAgentWasAwayIsTold ) {
   held();
   fake->links[et1].adminUp = fake->links[et1].operUp = true;
   restart();
   EXPECT_EQ( "raised", drift() );
   EXPECT_EQ( raised, noted() );
   EXPECT_EQ( 1u, fake->requests.size() );
}

TEST_F( DriftStory, loweredLinkStaysSoOverARestart ) {
   othersSet( false );
   noted();
   restart();
   EXPECT_EQ( "lowered", drift() );
   EXPECT_EQ( "", noted() );
}

TEST_F( DriftStory, whatIsKeptOfALoweredLinkIsDroppedWhenItIsNotThatLinkAnyMore ) {
   const std::pair< const char *, std::function< void() > > rows[] = {
      { "it is up", [this] { fake->links[et1].adminUp = true; } },
      { "it is another one", [this] { fake->links[et1].ifIndex = 7; } },
      { "it has gone", [this] { fake->links.clear(); } },
      { "the machine was started again", [this] { fake->boot = "boot 2"; } } };
   for ( const auto & [what, happens] : rows ) {
      SCOPED_TRACE( what );
      fake->link( et1, true, true );
      othersSet( false );
      EXPECT_EQ( "lowered", drift() );
      happens();
      restart();
      EXPECT_EQ( "none", drift() );
   }
}

TEST_F( DriftStory, watchedLinkThatWasLoweredWhileTheAgentWasAwayIsTold ) {
   monitored.insert( et1 );
   fake->links[et1].adminUp = fake->links[et1].operUp = false;
   restart();
   EXPECT_EQ( "lowered", drift() );
   EXPECT_EQ( lowered, noted() );
}

TEST_F( DriftStory, linkThatIsDownAtAStartAndWasNotWatchedHasNotDrifted ) {
   fake->links[et1].adminUp = fake->links[et1].operUp = false;
   restart();
   EXPECT_EQ( "none", drift() );
   underWay.clear();
   monitored.insert( et1 );
   restart();
   EXPECT_EQ( "none", drift() );
}

TEST_F( DriftStory, administratorsDownFromBeforeIsRespectedOverARestart ) {
   fake->link( et1, false, false );
   shut();
   clock->runUntilIdle();
   restart();
   released();
   EXPECT_FALSE( isUp() );
   EXPECT_EQ( 0u, fake->requests.size() );
}

TEST_F( DriftStory, ofAPortChannelAndAVlanInterfaceIsTheirOwn ) {
   const Wire::IntfId vlan10 = Wire::VlanIntfId( "vlan10", 10 );
   for ( const Wire::IntfId & intf : { pc1, vlan10 } ) {
      SCOPED_TRACE( intf.name() );
      underWay.insert( intf );
      fake->link( intf, true, true );
      model.cause->intfStatusIs( intf, clock->currentTime() );
      clock->runUntilIdle();
      EXPECT_EQ( intf, fake->requests.back().intf );
      fake->done( fake->requests.size() - 1 );
      fake->link( intf, true, true );
      EXPECT_EQ( Drift::raised, executor->drift( intf ) );
      fake->link( intf, false, false );
      turn();
      EXPECT_EQ( Drift::lowered, executor->drift( intf ) );
   }
}

// ---- overruns

TEST_F( DriftStory, eachOverrunIsCountedAndNotedOnce ) {
   EXPECT_EQ( 0u, executor->overruns() );
   fake->listener->resynchronised();
   EXPECT_EQ( 1u, executor->overruns() );
   EXPECT_EQ(
      "switch: news of links were lost, and all links have been read again (1 time so far)", noted() );
   fake->listener->resynchronised();
   EXPECT_EQ( 2u, executor->overruns() );
   EXPECT_EQ(
      "switch: news of links were lost, and all links have been read again (2 times so far)", noted() );
}

// ---- requests that fail

TEST_F( DriftStory, administratorsDownWhileOurShutdownFailsIsHis ) {
   shut();
   clock->runUntilIdle();
   fake->fail( 0, "device is busy" );
   noted();
   othersSet( false );
   EXPECT_EQ( "lowered", drift() );
   EXPECT_EQ( lowered, noted() );
   EXPECT_EQ( "", executor->problem() );
   clock->advance( 60 );
   released();
   EXPECT_EQ( 1u, fake->requests.size() );
   EXPECT_FALSE( isUp() );
   EXPECT_EQ( nullptr, entry() );
}

TEST_F( DriftStory, linkThatIsSetOtherwiseBeforeItIsReadBackIsNotFoughtOver ) {
   const Outcome isUpAgain = Outcome::failed( "the kernel has acknowledged it, but the link is not down" );
   const std::vector< std::pair< const char *, std::function< void() > > > rows{
      { "told before the result",
        [&] {
           fake->link( et1, false, false );
           fake->link( et1, true, true );
           fake->listener->linkSetDone( fake->requests.back().id, { isUpAgain, {} } );
        } },
      { "told after the result",
        [&] {
           fake->link( et1, false, false );
           fake->listener->linkSetDone( fake->requests.back().id, { isUpAgain, {} } );
           fake->link( et1, true, true );
        } },
      { "after it was read back", [&] {
          fake->link( et1, false, false );
          fake->link( et1, true, true );
          fake->listener->linkSetDone( fake->requests.back().id, {} );
       } } };
   for ( const auto & [when, happens] : rows ) {
      SCOPED_TRACE( when );
      shut();
      clock->runUntilIdle();
      const std::size_t before = fake->requests.size();
      clock->post( happens );
      clock->runUntilIdle();
      EXPECT_EQ( "raised", drift() );
      EXPECT_TRUE( noted().ends_with( raised ) ) << "perhaps behind what was answered to us";
      clock->advance( 60 );
      EXPECT_EQ( before, fake->requests.size() );
      EXPECT_EQ( "", executor->problem() );
      released();
      noted();
      EXPECT_EQ( "none", drift() );
      EXPECT_TRUE( isUp() );
   }
}

TEST_F( DriftStory, linkThatIsSetDownBeforeItsReleaseIsReadBackStaysDown ) {
   held();
   bringBack();
   clock->runUntilIdle();
   clock->post( [this] {
      fake->link( et1, true, true );
      fake->link( et1, false, false );
      fake->fail( 1, "the kernel has acknowledged it, but the link is not up" );
   } );
   clock->runUntilIdle();
   EXPECT_EQ( "lowered", drift() );
   EXPECT_EQ(
      Vel::text(
         "et1: what et1 has lost while it was held waits until it is up: somebody else has set it down; ",
         lowered ),
      noted() );
   EXPECT_EQ( nullptr, entry() );
   clock->advance( 60 );
   EXPECT_EQ( 2u, fake->requests.size() );
   EXPECT_FALSE( isUp() );
}

TEST_F( DriftStory, lateNewsOfAShutdownWhoseAnswerWasLostAreOurs ) {
   shut();
   clock->runUntilIdle();
   fake->listener->healthIs( { true, "cannot read the links" } );
   fake->fail( 0, "the kernel's answer was lost" );
   fake->link( et1, false, false );
   fake->listener->healthIs( {} );
   clock->advance( 6 );
   EXPECT_EQ( "none", drift() );
   ASSERT_EQ( 2u, fake->requests.size() );
   fake->done( 1 );
   released();
   EXPECT_TRUE( isUp() );
}

TEST_F( DriftStory, whatAnOvertakenRequestHasDoneIsOurs ) {
   shut();
   clock->runUntilIdle();
   bringBack();
   clock->runUntilIdle();
   shut();
   clock->runUntilIdle();
   clock->post( [this] {
      fake->link( et1, false, false );
      fake->link( et1, true, true );
      fake->fail( 2, "device is busy" );
   } );
   clock->advance( 6 );
   EXPECT_EQ( "none", drift() );
   EXPECT_EQ( 4u, fake->requests.size() );
}

TEST_F( DriftStory, shutdownThatHadNotLeftBeforeARestartIsNotTakenForRaised ) {
   shut();
   clock->runUntilIdle();
   restart();
   EXPECT_EQ( "none", drift() );
   ASSERT_EQ( 2u, fake->requests.size() );
   EXPECT_FALSE( fake->requests[1].up );
}

} // namespace
} // namespace Agent
