#include "Agent/Executor/DriftRigTest.h"

namespace Agent {
namespace {

/// A VLAN interface on a bridge.
class BridgeStory : public DriftStory {
 protected:
   BridgeStory() {
      fake->bridges[vlan10] = br0;
      underWay.insert( vlan10 );
      for ( const Wire::IntfId & intf : { br0, vlan10 } )
         fake->link( intf, true, true );
      fake->listener->vlanMemberIs( 10, et1 );
      clock->runUntilIdle();
   }
   void vlanHeld() {
      model.cause->intfStatusIs( vlan10, clock->currentTime() );
      clock->runUntilIdle();
      fake->done( 0 );
      clock->runUntilIdle();
   }
   void set( const Wire::IntfId & intf, bool up ) {
      clock->post( [this, intf, up] { fake->link( intf, up, up ); } );
      clock->runUntilIdle();
   }
   /// While nobody looks: the bridge's carrier has changed so often by then, and the VLAN interface is so.
   void become( Vel::U32 carrierChanges, bool vlanUp ) {
      fake->links[br0].carrierChanges = carrierChanges;
      fake->links[vlan10].adminUp = fake->links[vlan10].operUp = vlanUp;
   }
   /// All links are read again in one turn, for news of them were lost.
   void tell() {
      clock->post( [this] {
         fake->listener->rereadIs( true );
         tellBoth();
         fake->listener->rereadIs( false );
         fake->listener->resynchronised();
      } );
      clock->runUntilIdle();
      std::erase_if( notes, []( const Vel::String & line ) { return line.find( "switch: " ) == 0; } );
   }
   /// They are told as they change, in one turn.
   void change() {
      clock->post( [this] { tellBoth(); } );
      clock->runUntilIdle();
   }
   void tellBoth() {
      for ( const Wire::IntfId & intf : { br0, vlan10 } )
         fake->listener->linkIs( fake->links[intf] );
   }
   void isShutAgain() {
      EXPECT_EQ(
         "vlan10: has come up with its bridge br0 while we hold it down; it is set down again", noted() );
      EXPECT_EQ( "none", vlanDrift() );
      ASSERT_EQ( 2u, fake->requests.size() );
      EXPECT_FALSE( fake->requests[1].up );
      fake->done( 1 );
      clock->runUntilIdle();
   }
   void isLeftUp() {
      EXPECT_EQ( "raised", vlanDrift() );
      EXPECT_EQ( 1u, fake->requests.size() );
   }
   std::string vlanDrift() { return stringValue( executor->drift( vlan10 ) ); }

   const Wire::IntfId br0 = Wire::CpuIntfId( "br0" );
   const Wire::IntfId vlan10 = Wire::VlanIntfId( "vlan10", 10 );
};

TEST_F( BridgeStory, heldVlanInterfaceThatComesUpWithItsBridgeIsSetDownAgain ) {
   vlanHeld();
   const auto * const before = model.allIntfStatusDir->intfStatus( vlan10 );
   for ( std::size_t bounce = 1; bounce <= 2; ++bounce ) {
      SCOPED_TRACE( bounce );
      set( br0, false );
      clock->advance( 30 );
      set( br0, true );
      set( vlan10, true );
      EXPECT_EQ(
         "vlan10: has come up with its bridge br0 while we hold it down; it is set down again", noted() );
      EXPECT_EQ( "none", vlanDrift() );
      ASSERT_EQ( 1 + bounce, fake->requests.size() );
      EXPECT_FALSE( fake->requests.back().up );
      EXPECT_FALSE( model.journal->entry( vlan10 )->acknowledged() );
      fake->done( bounce );
      EXPECT_EQ( "down", executor->linkState( vlan10 ) );
      EXPECT_EQ( before, model.allIntfStatusDir->intfStatus( vlan10 ) );
      EXPECT_EQ( Interface::operUp, before->operStatus() ) << "our own shutdown is not shown";
   }
   // It is given back what it had lost the first time.
   model.cause->intfStatusDel( vlan10 );
   clock->runUntilIdle();
   ASSERT_EQ( 4u, fake->requests.size() );
   EXPECT_TRUE( fake->requests[3].up );
   EXPECT_EQ( "addresses of vlan10", fake->requests[3].restore );
}

TEST_F( BridgeStory, heldVlanInterfaceThatSomebodyRaisesAfterItsBridgeIsLeftUp ) {
   vlanHeld();
   set( br0, false );
   set( br0, true );
   set( vlan10, true );
   fake->done( 1 );
   noted();
   set( vlan10, true );
   EXPECT_EQ( "raised", vlanDrift() );
   EXPECT_EQ( 2u, fake->requests.size() );
}

TEST_F( BridgeStory, heldVlanInterfaceThatSomebodyRaisesMuchLaterIsLeftUp ) {
   vlanHeld();
   set( br0, false );
   set( br0, true );
   clock->advance( 2 );
   set( vlan10, true );
   EXPECT_EQ( "raised", vlanDrift() );
   EXPECT_EQ( 1u, fake->requests.size() );
}

TEST_F( BridgeStory, vlanInterfaceThatSomebodyHasRaisedStaysUpWhenItsBridgeComesBack ) {
   vlanHeld();
   set( vlan10, true );
   noted();
   set( br0, false );
   set( vlan10, false );
   EXPECT_EQ( "raised", vlanDrift() );
   set( br0, true );
   set( vlan10, true );
   EXPECT_EQ( "raised", vlanDrift() );
   EXPECT_EQ( "", noted() );
   EXPECT_EQ( 1u, fake->requests.size() );
}

TEST_F( BridgeStory, heldVlanInterfaceThatCameUpWithItsBridgeWhileNewsWereLostIsSetDownAgainOnce ) {
   become( 4, true );
   tell();
   vlanHeld();
   become( 6, true );
   tell();
   isShutAgain();
   become( 6, true );
   tell();
   EXPECT_EQ( "raised", vlanDrift() );
   EXPECT_EQ( 2u, fake->requests.size() );
}

TEST_F( BridgeStory, heldVlanInterfaceThatCameUpWithItsBridgeWithoutAnAgentIsSetDownAgainOnce ) {
   become( 4, true );
   tell();
   vlanHeld();
   become( 5, true ); // its ports have yet to forward
   restart();
   isShutAgain();
   // That they do by and by is no other bounce.
   become( 6, false );
   tell();
   become( 6, true );
   restart();
   EXPECT_EQ( "raised", vlanDrift() );
   EXPECT_EQ( 2u, fake->requests.size() );
}

TEST_F( BridgeStory, heldVlanInterfaceThatSomebodyRaisesWithoutAnAgentIsLeftUpIfItsBridgeHasNotBounced ) {
   become( 4, true );
   tell();
   vlanHeld();
   become( 4, true );
   restart();
   isLeftUp();
}

TEST_F( BridgeStory, heldVlanInterfaceThatSomebodyRaisesAfterPortsOfItsBridgeCameAndWentIsLeftUp ) {
   become( 4, true );
   tell();
   vlanHeld();
   become( 6, false );
   tell();
   become( 6, true );
   tell();
   isLeftUp();
}

TEST_F( BridgeStory, heldVlanInterfaceThatSomebodyRaisesJustAfterAPortOfItsBridgeCameIsLeftUp ) {
   become( 4, true );
   change();
   vlanHeld();
   become( 5, true );
   change();
   isLeftUp();
}

TEST_F( BridgeStory, newsAreWholeAgainAfterTheyWereLost ) {
   become( 4, true );
   tell();
   vlanHeld();
   become( 4, false );
   tell();
   become( 5, true );
   change();
   isLeftUp();
}

TEST_F( BridgeStory, newsAreWholeOnceTheAgentHasStarted ) {
   become( 4, true );
   change();
   vlanHeld();
   become( 4, false );
   restart();
   become( 5, true );
   change();
   isLeftUp();
}

TEST_F( BridgeStory, heldVlanInterfaceOnABridgeWhoseCarrierNobodyKnowsIsLeftUp ) {
   vlanHeld();
   become( 0, true );
   restart();
   isLeftUp();
}

TEST_F( BridgeStory, vlanInterfaceThatSomebodyHasRaisedStaysUpThroughABounceThatNobodySaw ) {
   become( 4, true );
   tell();
   vlanHeld();
   become( 4, true );
   tell();
   noted();
   become( 6, true );
   tell();
   isLeftUp();
   restart();
   isLeftUp();
}

TEST_F( BridgeStory, vlanInterfaceThatSomebodyHasRaisedStaysUpWhenTheAgentIsAwayAsItsBridgeComesBack ) {
   become( 4, true );
   change();
   vlanHeld();
   become( 4, true );
   change();
   fake->links[br0].adminUp = false;
   become( 5, false );
   change();
   EXPECT_EQ( "raised", vlanDrift() );
   fake->links[br0].adminUp = true;
   become( 6, true );
   restart();
   isLeftUp();
}

TEST_F( BridgeStory, vlanInterfaceThatSomebodyHasRaisedStaysUpWhenItsBridgeComesBackAfterAStart ) {
   vlanHeld();
   set( vlan10, true );
   set( br0, false );
   set( vlan10, false );
   restart();
   set( br0, true );
   set( vlan10, true );
   isLeftUp();
}

TEST_F( BridgeStory, vlanInterfaceThatSomebodyHasRaisedAndSetDownWithoutAnAgentIsShutAgainAfterItsBridge ) {
   vlanHeld();
   set( vlan10, true );
   become( 0, false );
   restart();
   noted();
   set( br0, false );
   set( br0, true );
   set( vlan10, true );
   isShutAgain();
}

TEST_F( BridgeStory, vlanInterfaceThatIsHeldAgainIsShutAgainAlthoughItWasRaisedBefore ) {
   vlanHeld();
   set( vlan10, true );
   model.cause->intfStatusDel( vlan10 );
   clock->runUntilIdle();
   fake->done( 1 );
   clock->runUntilIdle();
   fake->requests.clear();
   vlanHeld();
   noted();
   set( br0, false );
   set( br0, true );
   set( vlan10, true );
   isShutAgain();
}

TEST_F( BridgeStory, watchedVlanInterfaceThatGoesDownWithItsBridgeHasNotDrifted ) {
   set( br0, false );
   set( vlan10, false );
   EXPECT_EQ( "none", vlanDrift() );
   monitored.insert( vlan10 );
   restart();
   EXPECT_EQ( "none", vlanDrift() );
   set( br0, true );
   set( vlan10, true );
   EXPECT_EQ( "none", vlanDrift() );
   EXPECT_EQ( "", noted() );
   set( vlan10, false );
   EXPECT_EQ( "lowered", vlanDrift() );
}

} // namespace
} // namespace Agent
