#include "DataPlane/Linux/Membership.h"
#include "DataPlane/Linux/MessagesTest.h"
#include "DataPlane/RecordingListenerTest.h"

#include <gtest/gtest.h>

namespace DataPlane::Linux {
namespace {

class Membership : public testing::Test {
 protected:
   Membership() {
      links.listenerIs( &membership );
      membership.listenerIs( &listener );
      vlans.dumpIs( {} );
   }
   void TearDown() override { EXPECT_EQ( std::vector< Vel::String >{}, listener.broken ); }

   void add( const TestLink & link ) { links.linkIs( linkMessage( link ) ); }
   void remove( Vel::U32 ifIndex ) {
      links.linkDel( ifIndex );
      vlans.linkDel( ifIndex );
   }
   void vlan( Vel::U32 ifIndex, std::vector< TestVlans > ranges, Vel::U16 type = RTM_NEWVLAN ) {
      const Bytes bytes = vlanBytes( ifIndex, ranges, type );
      vlans.eventIs( parseVlan( messageIn( bytes ) ).value() );
   }
   /// What is told when the changes are settled, the story till then included.
   Vel::String told() {
      membership.settle();
      return listener.take();
   }
   Vel::String membersOf( Vel::U16 vlanId ) {
      membership.settle();
      Vel::String result;
      for ( const auto & [id, member] : listener.vlanMembers )
         if ( id == vlanId )
            result += ( result.empty() ? "" : " " ) + member;
      return result;
   }
   Vel::String uncounted() {
      membership.settle();
      return membership.uncounted();
   }

   RecordingListener listener;
   Linux::LinkTable links;
   Linux::VlanTable vlans;
   Linux::Membership membership{ links, vlans };
};

TestLink port( Vel::U32 ifIndex, const char * name ) { return { .ifIndex = ifIndex, .name = name }; }
TestLink slave( const char * kind, Vel::U32 ifIndex, const char * name, Vel::U32 master ) {
   return { .ifIndex = ifIndex, .name = name, .master = master, .slaveKind = kind };
}
TestLink bonded( Vel::U32 ifIndex, const char * name, Vel::U32 master ) {
   return slave( "bond", ifIndex, name, master );
}
TestLink bridged( Vel::U32 ifIndex, const char * name, Vel::U32 master ) {
   return slave( "bridge", ifIndex, name, master );
}
TestLink bond( Vel::U32 ifIndex, const char * name ) {
   return { .ifIndex = ifIndex, .name = name, .kind = "bond" };
}
TestLink bridge( Vel::U32 ifIndex, const char * name, bool filtering = true ) {
   return { .ifIndex = ifIndex, .name = name, .kind = "bridge", .vlanFiltering = filtering };
}
TestLink vlanIntf( Vel::U32 ifIndex, const char * name, Vel::U32 lower, Vel::U16 id ) {
   return { .ifIndex = ifIndex, .name = name, .kind = "vlan", .lower = lower, .vlanId = id };
}

// Port-channels.

TEST_F( Membership, portJoinsAndLeavesAPortChannel ) {
   add( bond( 9, "bond0" ) );
   add( port( 1, "et1" ) );
   EXPECT_EQ( "bond0 up, et1 up", told() );
   add( bonded( 1, "et1", 9 ) );
   EXPECT_EQ( "et1 in bond0", told() );
   add( port( 1, "et1" ) );
   EXPECT_EQ( "et1 in none", told() );
}

TEST_F( Membership, severalNewsOfOneEnslavementAreToldOnce ) {
   add( bond( 9, "bond0" ) );
   add( port( 1, "et1" ) );
   told();
   add( bonded( 1, "et1", 9 ) );
   add( bonded( 1, "et1", 9 ) );
   EXPECT_EQ( "et1 in bond0", told() );
   add( bonded( 1, "et1", 9 ) );
   add( bond( 9, "bond0" ) );
   EXPECT_EQ( "", told() );
}

TEST_F( Membership, teamIsAPortChannelToo ) {
   add( { .ifIndex = 9, .name = "team0", .kind = "team" } );
   add( slave( "team", 1, "et1", 9 ) );
   EXPECT_EQ( "team0 up, et1 up, et1 in team0", told() );
}

TEST_F( Membership, memberThatIsDownIsAMember ) {
   add( bond( 9, "bond0" ) );
   TestLink member = bonded( 1, "et1", 9 );
   member.flags = 0;
   add( member );
   EXPECT_EQ( "bond0 up, et1 admin-down, et1 in bond0", told() );
}

TEST_F( Membership, memberMayBeToldBeforeItsPortChannel ) {
   add( bonded( 1, "et1", 9 ) );
   EXPECT_EQ( "et1 up", told() );
   add( bond( 9, "bond0" ) );
   EXPECT_EQ( "bond0 up, et1 in bond0", told() );
}

TEST_F( Membership, memberGoesBeforeItsLink ) {
   add( bond( 9, "bond0" ) );
   add( bonded( 1, "et1", 9 ) );
   add( bonded( 2, "et2", 9 ) );
   told();
   remove( 1 );
   EXPECT_EQ( "et1 in none, -et1", told() );
   add( bonded( 5, "et1", 9 ) );
   EXPECT_EQ( "et1 up, et1 in bond0", told() );
}

TEST_F( Membership, membersLeaveBeforeTheirPortChannelGoes ) {
   add( bond( 9, "bond0" ) );
   add( bonded( 1, "et1", 9 ) );
   add( bonded( 2, "et2", 9 ) );
   told();
   remove( 9 );
   EXPECT_EQ( "et1 in none, et2 in none, -bond0", told() );
   add( port( 1, "et1" ) );
   add( port( 2, "et2" ) );
   EXPECT_EQ( "", told() );
}

TEST_F( Membership, renamingTellsMembershipsAnew ) {
   add( bond( 9, "bond0" ) );
   add( bonded( 1, "et1", 9 ) );
   told();
   add( bonded( 1, "et7", 9 ) );
   EXPECT_EQ( "et1 in none, -et1, et7 up, et7 in bond0", told() );
   add( bond( 9, "bond7" ) );
   EXPECT_EQ( "et7 in none, -bond0, bond7 up, et7 in bond7", told() );
}

TEST_F( Membership, portMovesFromOnePortChannelToAnother ) {
   add( bond( 8, "bond0" ) );
   add( bond( 9, "bond1" ) );
   add( bonded( 1, "et1", 8 ) );
   told();
   add( bonded( 1, "et1", 9 ) );
   EXPECT_EQ( "et1 in bond1", told() );
}

TEST_F( Membership, otherMastersAreNoPortChannels ) {
   add( { .ifIndex = 9, .name = "red", .kind = "vrf" } );
   add( slave( "vrf", 1, "et1", 9 ) );
   add( bridge( 8, "br0", false ) );
   add( bonded( 2, "et2", 8 ) ); // whatever that may be
   told();
   EXPECT_TRUE( listener.portChannels.empty() );
   EXPECT_EQ( "br0", membersOf( 1 ) );
}

TEST_F( Membership, portChannelWithAMemberThatCannotBeCountedHasNone ) {
   add( bond( 9, "bond0" ) );
   add( port( 1, "et1" ) );
   add( bonded( 2, "et2", 9 ) );
   told();
   TestLink tagged = vlanIntf( 3, "et1.5", 1, 5 );
   tagged.master = 9;
   tagged.slaveKind = "bond";
   add( tagged );
   EXPECT_EQ( "et1.5 up, et2 in none", told() );
   EXPECT_EQ(
      "port-channel \"bond0\" cannot be counted: its member \"et1.5\" is no Ethernet port", uncounted() );
   remove( 3 );
   EXPECT_EQ( "-et1.5, et2 in bond0", told() );
   EXPECT_EQ( "", uncounted() );
}

// VLANs.

TEST_F( Membership, portIsInTheVlansThatTheKernelTells ) {
   add( bridge( 9, "br0" ) );
   add( bridged( 1, "et1", 9 ) );
   told();
   vlan( 1, { { 1, 1 }, { 10, 12 } } );
   EXPECT_EQ( "1+et1, 10+et1, 11+et1, 12+et1", told() );
   vlan( 1, { { 11, 11 } }, RTM_DELVLAN );
   vlan( 1, { { 1, 1 } }, RTM_DELVLAN );
   EXPECT_EQ( "1-et1, 11-et1", told() );
   vlan( 9, { { 10, 10 } } );
   EXPECT_EQ( "10+br0", told() );
   vlan( 9, { { 10, 10 } }, RTM_DELVLAN );
   EXPECT_EQ( "10-br0", told() );
}

TEST_F( Membership, vlansMayBeToldBeforeTheLinksAndTheEnslavement ) {
   vlan( 9, { { 1, 1 } } );
   vlan( 1, { { 1, 1 } } );
   EXPECT_EQ( "", told() );
   add( port( 1, "et1" ) );
   add( bridge( 9, "br0" ) );
   EXPECT_EQ( "et1 up, br0 up, 1+br0", told() );
   add( bridged( 1, "et1", 9 ) );
   EXPECT_EQ( "1+et1", told() );
}

TEST_F( Membership, bridgeWithoutFilteringIsInVlanOneWithAllItsPorts ) {
   add( bridge( 9, "br0", false ) );
   add( bridged( 1, "et1", 9 ) );
   vlan( 9, { { 1, 1 }, { 10, 10 } } );
   vlan( 1, { { 20, 20 } } );
   EXPECT_EQ( "br0 up, et1 up, 1+et1, 1+br0", told() );
   add( bridge( 9, "br0", true ) );
   EXPECT_EQ( "1-et1, 20+et1, 10+br0", told() );
   add( bridge( 9, "br0", false ) );
   EXPECT_EQ( "20-et1, 10-br0, 1+et1", told() );
}

TEST_F( Membership, kernelsWithoutVlansHaveVlanOne ) {
   vlans.clear();
   add( bridge( 9, "br0", false ) );
   add( bridged( 1, "et1", 9 ) );
   add( vlanIntf( 20, "v1", 9, 1 ) );
   EXPECT_EQ( "br0 up, et1 up, v1 up, 1+et1, 1+br0", told() );
   EXPECT_EQ( "", uncounted() );
}

TEST_F( Membership, portLeavesItsBridge ) {
   add( bridge( 9, "br0" ) );
   add( bridged( 1, "et1", 9 ) );
   vlan( 1, { { 1, 2 } } );
   told();
   add( port( 1, "et1" ) );
   EXPECT_EQ( "1-et1, 2-et1", told() );
   vlan( 1, { { 1, 2 } }, RTM_DELVLAN );
   EXPECT_EQ( "", told() );
}

TEST_F( Membership, portMovesFromOneBridgeToAnother ) {
   add( bridge( 8, "br0" ) );
   add( bridge( 9, "br1" ) );
   add( bridged( 1, "et1", 8 ) );
   add( bridged( 2, "et2", 9 ) );
   vlan( 1, { { 1, 1 }, { 10, 10 } } );
   vlan( 2, { { 1, 1 }, { 20, 20 } } );
   told();
   add( port( 1, "et1" ) );
   vlan( 1, { { 1, 1 } }, RTM_DELVLAN );
   vlan( 1, { { 10, 10 } }, RTM_DELVLAN );
   add( bridged( 1, "et1", 9 ) );
   vlan( 1, { { 1, 1 } } );
   vlan( 1, { { 20, 20 } } );
   told();
   EXPECT_EQ( "et1 et2", membersOf( 1 ) );
   EXPECT_EQ( "", membersOf( 10 ) );
   EXPECT_EQ( "et1 et2", membersOf( 20 ) );
}

TEST_F( Membership, membersGoWithTheirBridge ) {
   add( bridge( 9, "br0" ) );
   add( bridged( 1, "et1", 9 ) );
   vlan( 9, { { 10, 10 } } );
   vlan( 1, { { 10, 10 } } );
   told();
   remove( 9 );
   EXPECT_EQ( "10-br0, -br0, 10-et1", told() );
}

TEST_F( Membership, memberLeavesItsVlansBeforeItsLinkGoes ) {
   add( bridge( 9, "br0" ) );
   add( bridged( 1, "et1", 9 ) );
   vlan( 1, { { 10, 11 } } );
   told();
   remove( 1 );
   EXPECT_EQ( "10-et1, 11-et1, -et1", told() );
   EXPECT_EQ( 0u, vlans.size() );
}

TEST_F( Membership, portLeavesItsVlansBeforeItJoinsAPortChannel ) {
   add( bridge( 9, "br0" ) );
   add( bond( 8, "bond0" ) );
   add( bridged( 1, "et1", 9 ) );
   vlan( 1, { { 10, 10 } } );
   told();
   add( bonded( 1, "et1", 8 ) );
   EXPECT_EQ( "10-et1, et1 in bond0", told() );
   add( bridged( 1, "et1", 9 ) );
   EXPECT_EQ( "et1 in none, 10+et1", told() );
}

TEST_F( Membership, portChannelIsAMemberAndItsPortsAreNot ) {
   add( bridge( 9, "br0" ) );
   TestLink channel = bond( 8, "bond0" );
   channel.master = 9;
   channel.slaveKind = "bridge";
   add( channel );
   add( bonded( 1, "et1", 8 ) );
   vlan( 8, { { 10, 10 } } );
   vlan( 1, { { 10, 10 } } ); // nonsense
   told();
   EXPECT_EQ( "bond0", membersOf( 10 ) );
}

TEST_F( Membership, vlanBelongsToTheBridgeBelowItsInterface ) {
   add( bridge( 8, "br0" ) );
   add( bridge( 9, "br1" ) );
   add( bridged( 1, "et1", 8 ) );
   add( bridged( 2, "et2", 9 ) );
   for ( const Vel::U32 ifIndex : { 1, 2, 8, 9 } )
      vlan( ifIndex, { { 10, 10 } } );
   EXPECT_EQ( "br0 et1", membersOf( 10 ) ) << "the first bridge, if there is no interface";
   add( vlanIntf( 20, "v10", 9, 10 ) );
   EXPECT_EQ( "br1 et2", membersOf( 10 ) );
   add( vlanIntf( 21, "v10b", 8, 10 ) );
   EXPECT_EQ( "br1 et2", membersOf( 10 ) ) << "the second interface is refused";
   remove( 20 );
   EXPECT_EQ( "br0 et1", membersOf( 10 ) );
   remove( 21 );
   vlan( 1, { { 10, 10 } }, RTM_DELVLAN );
   vlan( 8, { { 10, 10 } }, RTM_DELVLAN );
   EXPECT_EQ( "br1 et2", membersOf( 10 ) );
}

TEST_F( Membership, interfaceOfAVlanThatABridgeDoesNotFilterCannotBeCounted ) {
   add( bridge( 9, "br0", false ) );
   add( bridged( 1, "et1", 9 ) );
   add( vlanIntf( 20, "v10", 9, 10 ) );
   add( vlanIntf( 21, "v1", 9, 1 ) );
   EXPECT_EQ( "", membersOf( 10 ) );
   EXPECT_EQ( "br0 et1", membersOf( 1 ) );
   EXPECT_EQ( "VLAN interface \"v10\" cannot be counted: bridge \"br0\" does not filter VLANs", uncounted() );
   EXPECT_EQ( "bridge \"br0\" does not filter VLANs", membership.uncounted( Wire::VlanIntfId( "v10", 10 ) ) );
   EXPECT_EQ( "", membership.uncounted( Wire::VlanIntfId( "v1", 1 ) ) );
   add( bridge( 9, "br0", true ) );
   EXPECT_EQ( "", uncounted() );
}

TEST_F( Membership, vlansThatTheKernelDoesNotTellCannotBeCounted ) {
   vlans.clear();
   add( bridge( 9, "br0" ) );
   add( bridged( 1, "et1", 9 ) );
   add( vlanIntf( 20, "v1", 9, 1 ) );
   EXPECT_EQ( "", membersOf( 1 ) );
   EXPECT_EQ(
      "VLAN interface \"v1\" cannot be counted: the kernel does not tell the VLANs of ports", uncounted() );
   vlan( 1, { { 1, 1 } } );
   EXPECT_EQ( "", uncounted() );
   EXPECT_EQ( "et1", membersOf( 1 ) );
}

TEST_F( Membership, vlansOfAnotherProtocolCannotBeCounted ) {
   TestLink provider = bridge( 9, "br0" );
   provider.vlanProtocol = ETH_P_8021AD;
   add( provider );
   add( bridged( 1, "et1", 9 ) );
   vlan( 1, { { 10, 10 } } );
   TestLink inner = vlanIntf( 20, "v10", 9, 10 );
   add( inner );
   EXPECT_EQ( "", membersOf( 10 ) );
   EXPECT_EQ(
      "VLAN interface \"v10\" cannot be counted: the VLANs of bridge \"br0\" are of another protocol",
      uncounted() );
   inner.vlanProtocol = ETH_P_8021AD;
   add( inner );
   EXPECT_EQ( "et1", membersOf( 10 ) );
   EXPECT_EQ( "", uncounted() );
}

TEST_F( Membership, vlanWithAMemberThatCannotBeCountedHasNone ) {
   add( bridge( 9, "br0" ) );
   add( bridged( 1, "et1", 9 ) );
   add( vlanIntf( 20, "v10", 9, 10 ) );
   add( vlanIntf( 21, "v11", 9, 11 ) );
   TestLink tagged = vlanIntf( 3, "et7.5", 7, 5 );
   tagged.master = 9;
   tagged.slaveKind = "bridge";
   add( tagged );
   vlan( 1, { { 10, 11 } } );
   vlan( 3, { { 11, 12 } } );
   EXPECT_EQ( "et1", membersOf( 10 ) );
   EXPECT_EQ( "", membersOf( 11 ) );
   EXPECT_EQ( "", membersOf( 12 ) );
   EXPECT_EQ(
      "VLAN interface \"v11\" cannot be counted: its member \"et7.5\" cannot be counted", uncounted() );
   vlan( 3, { { 11, 11 } }, RTM_DELVLAN );
   EXPECT_EQ( "et1", membersOf( 11 ) );
}

TEST_F( Membership, vlanWithAPortChannelThatCannotBeCountedHasNone ) {
   add( bridge( 9, "br0", false ) );
   add( bridged( 1, "et1", 9 ) );
   TestLink inner = bond( 7, "bond1" );
   inner.master = 8;
   inner.slaveKind = "bond";
   TestLink outer = bond( 8, "bond0" );
   outer.master = 9;
   outer.slaveKind = "bridge";
   add( outer );
   add( vlanIntf( 20, "v1", 9, 1 ) );
   EXPECT_EQ( "bond0 br0 et1", membersOf( 1 ) );
   add( inner );
   EXPECT_EQ( "", membersOf( 1 ) );
   EXPECT_EQ(
      "port-channel \"bond0\" cannot be counted: its member \"bond1\" is no Ethernet port; "
      "VLAN interface \"v1\" cannot be counted: its member \"bond0\" cannot be counted",
      uncounted() );
}

TEST_F( Membership, manyThatCannotBeCountedAreNotAllNamed ) {
   add( bridge( 9, "br0", false ) );
   for ( Vel::U16 id = 2; id <= 40; ++id )
      add( vlanIntf( 100u + id, Vel::text( "v", id ).c_str(), 9, id ) );
   const Vel::String text = uncounted();
   EXPECT_NE( Vel::String::npos, text.find( "\"v5\"" ) );
   EXPECT_EQ( Vel::String::npos, text.find( "\"v6\"" ) );
   EXPECT_NE( Vel::String::npos, text.find( "; and 35 more" ) );
}

// Telling.

TEST_F( Membership, linksThatOnlyGoUpAndDownChangeNoMembership ) {
   add( bridge( 9, "br0" ) );
   TestLink member = bridged( 1, "et1", 9 );
   add( member );
   vlan( 1, { { 1, 1 } } );
   told();
   const Vel::U64 before = links.revision();
   member.flags = 0;
   add( member );
   member.flags = IFF_UP;
   add( member );
   EXPECT_EQ( before, links.revision() );
   EXPECT_EQ( "et1 admin-down, et1 down", told() );
}

TEST_F( Membership, anotherListenerIsToldEverythingAnew ) {
   add( bond( 9, "bond0" ) );
   add( bonded( 1, "et1", 9 ) );
   told();
   membership.listenerIs( nullptr );
   add( port( 2, "et2" ) );
   remove( 2 );
   membership.settle();
   links.clear();
   membership.listenerIs( &listener );
   listener.links.clear();
   listener.portChannels.clear();
   add( bond( 9, "bond0" ) );
   add( bonded( 1, "et1", 9 ) );
   EXPECT_EQ( "bond0 up, et1 up, et1 in bond0", told() );
}

} // namespace
} // namespace DataPlane::Linux
