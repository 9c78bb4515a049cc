// Port-channels and filtering bridges on a real kernel that has them, in network namespaces of their own.

#include "DataPlane/Linux/LinuxSwitch.h"
#include "DataPlane/Linux/NamespaceTest.h"
#include "DataPlane/Linux/WatchedKernelRig.h"

#include <linux/rtnetlink.h>

namespace DataPlane::Linux {
namespace {

class LinuxVlan : public InNamespace {
 protected:
   void SetUp() override {
      InNamespace::SetUp();
      if ( IsSkipped() )
         return;
      for ( const char * n : { "1", "2", "3", "4" } )
         veth( Vel::text( "et", n ), Vel::text( "p", n ) );
   }
   static void bridgeDo( const Vel::String & arguments ) {
      EXPECT_EQ( 0, std::system( ( "bridge " + arguments ).c_str() ) ) << "bridge " << arguments;
   }
   /// Waits for what is to be told; a switch that is started now tells the same.
   void untilMembers( const Vel::String & wanted ) {
      until( [&] { return listener.members() == wanted; } );
      EXPECT_EQ( wanted, listener.members() );
      RecordingListener fresh;
      const Vel::Ptr< Switch > other = switchNewLinux( loop );
      ASSERT_TRUE( other->start( fresh ).ok() );
      EXPECT_EQ( wanted, fresh.members() );
   }
};

TEST_F( LinuxVlan, portsJoinAndLeaveABond ) {
   started();
   ip( "link add bond0 type bond mode 802.3ad" );
   for ( const char * port : { "et1", "et2", "et3" } )
      ip( Vel::text( "link set ", port, " master bond0" ) );
   untilMembers( "et1 in bond0, et2 in bond0, et3 in bond0" );
   EXPECT_EQ( Wire::IntfId( Wire::PortChannelIntfId( "bond0" ) ), listener.link( "bond0" )->intf );
   ip( "link set et2 nomaster" );
   untilMembers( "et1 in bond0, et3 in bond0" );
   ip( "link del et3" );
   untilMembers( "et1 in bond0" );
   ip( "link set bond0 name uplink" );
   untilMembers( "et1 in uplink" );
   ip( "link del uplink" );
   untilMembers( "" );
   EXPECT_TRUE( listener.link( "et1" ) );
}

TEST_F( LinuxVlan, portsJoinAndLeaveATeam ) {
   started();
   ip( "link add team0 type team" );
   ip( "link set et1 master team0" );
   untilMembers( "et1 in team0" );
   ip( "link set et1 nomaster" );
   untilMembers( "" );
   ip( "link set et2 master team0" );
   untilMembers( "et2 in team0" );
   ip( "link del team0" );
   untilMembers( "" );
}

TEST_F( LinuxVlan, vlansOfPortsChange ) {
   ip( "link add br0 type bridge vlan_filtering 1" );
   started();
   ip( "link set et1 master br0" );
   untilMembers( "1+br0, 1+et1" );
   bridgeDo( "vlan add dev et1 vid 10-14" );
   bridgeDo( "vlan del dev et1 vid 12" );
   bridgeDo( "vlan del dev et1 vid 1" );
   untilMembers( "1+br0, 10+et1, 11+et1, 13+et1, 14+et1" );
   bridgeDo( "vlan add dev br0 vid 11-12 self" );
   bridgeDo( "vlan del dev et1 vid 10-20" );
   untilMembers( "1+br0, 11+br0, 12+br0" );
}

TEST_F( LinuxVlan, portsFollowTheDefaultVlan ) {
   ip( "link add br0 type bridge vlan_filtering 1" );
   ip( "link set et1 master br0" );
   started();
   ip( "link set br0 type bridge vlan_default_pvid 7" );
   untilMembers( "7+br0, 7+et1" );
   ip( "link set br0 type bridge vlan_default_pvid 0" );
   untilMembers( "" );
}

TEST_F( LinuxVlan, filteringIsSwitchedOnAndOff ) {
   ip( "link add br0 type bridge" );
   up( "br0" );
   ip( "link set et1 master br0" );
   started();
   bridgeDo( "vlan add dev et1 vid 10" );
   bridgeDo( "vlan del dev et1 vid 1" );
   untilMembers( "1+br0, 1+et1" );
   ip( "link set br0 type bridge vlan_filtering 1" );
   untilMembers( "1+br0, 10+et1" );
   ip( "link set br0 type bridge vlan_filtering 0" );
   untilMembers( "1+br0, 1+et1" );
}

TEST_F( LinuxVlan, filteringThatIsSwitchedWhileTheBridgeIsDownIsToldWhenItComesUp ) {
   ip( "link add br0 type bridge" );
   ip( "link set et1 master br0" );
   bridgeDo( "vlan del dev et1 vid 1" );
   started();
   ip( "link set br0 type bridge vlan_filtering 1" );
   up( "br0" );
   untilMembers( "1+br0" );
}

TEST_F( LinuxVlan, portMovesBetweenBridgesAndABond ) {
   ip( "link add br0 type bridge vlan_filtering 1" );
   ip( "link add br1 type bridge vlan_filtering 1 vlan_default_pvid 2" );
   ip( "link add bond0 type bond mode balance-xor" );
   ip( "link set et1 master br0" );
   bridgeDo( "vlan add dev et1 vid 10" );
   started();
   ip( "link set et1 master br1" );
   untilMembers( "1+br0, 2+br1, 2+et1" );
   ip( "link set et1 down" );
   ip( "link set et1 master bond0" );
   untilMembers( "et1 in bond0, 1+br0, 2+br1" );
   ip( "link set et1 master br0" );
   untilMembers( "1+br0, 1+et1, 2+br1" );
}

TEST_F( LinuxVlan, bondInABridgeIsAMemberAndItsPortsAreNot ) {
   started();
   ip( "link add br0 type bridge vlan_filtering 1" );
   ip( "link add bond0 type bond mode 802.3ad" );
   ip( "link set et1 master bond0" );
   ip( "link set bond0 master br0" );
   ip( "link set et2 master br0" );
   bridgeDo( "vlan add dev bond0 vid 10" );
   bridgeDo( "vlan add dev et2 vid 10" );
   untilMembers( "et1 in bond0, 1+bond0, 1+br0, 1+et2, 10+bond0, 10+et2" );
   ip( "link del bond0" );
   untilMembers( "1+br0, 1+et2, 10+et2" );
   ip( "link del br0" );
   untilMembers( "" );
}

TEST_F( LinuxVlan, interfaceOfAVlanTellsWhoseItIs ) {
   ip( "link add br0 type bridge vlan_filtering 1" );
   ip( "link add br1 type bridge vlan_filtering 1" );
   ip( "link set et1 master br0" );
   ip( "link set et2 master br1" );
   started();
   untilMembers( "1+br0, 1+et1" );
   ip( "link add link br1 name v1 type vlan id 1" );
   untilMembers( "1+br1, 1+et2" );
   EXPECT_EQ( Health(), listener.health );
}

TEST_F( LinuxVlan, vlanThatCannotBeCountedIsNamed ) {
   ip( "link add br0 type bridge" );
   ip( "link set et1 master br0" );
   up( "br0" );
   started();
   ip( "link add link br0 name v10 type vlan id 10" );
   until( [&] { return !listener.health.text.empty(); } );
   EXPECT_EQ(
      "VLAN interface \"v10\" cannot be counted: bridge \"br0\" does not filter VLANs",
      listener.health.text );
   EXPECT_FALSE( listener.health.degraded );
   ip( "link set br0 type bridge vlan_filtering 1" );
   until( [&] { return listener.health.text.empty(); } );
   ip( "link set br0 type bridge vlan_protocol 802.1ad" );
   until( [&] { return !listener.health.text.empty(); } );
   EXPECT_EQ(
      "VLAN interface \"v10\" cannot be counted: the VLANs of bridge \"br0\" are of another protocol",
      listener.health.text );
}

TEST_F( LinuxVlan, allVlansOfManyPortsAreToldAtOnce ) {
   ip( "link add br0 type bridge vlan_filtering 1" );
   started();
   for ( const char * port : { "et1", "et2", "et3", "et4" } ) {
      ip( Vel::text( "link set ", port, " master br0" ) );
      bridgeDo( Vel::text( "vlan add dev ", port, " vid 2-4094" ) );
   }
   until( [&] { return listener.vlanMembers.size() == 4 * 4094 + 1; } );
   RecordingListener fresh;
   const Vel::Ptr< Switch > other = switchNewLinux( loop );
   ASSERT_TRUE( other->start( fresh ).ok() );
   EXPECT_EQ( fresh.vlanMembers, listener.vlanMembers );
}

TEST_F( LinuxVlan, linkThatGoesWhileVlansAreReadHidesNone ) {
   // Ports whose VLANs take more than one datagram; et4 comes before them all.
   constexpr int pairs = 20;
   ip( "link add br0 type bridge vlan_filtering 1" );
   std::ofstream links( "links" ), vlans( "vlans" );
   for ( int i = 0; i < pairs; ++i ) {
      links << "link add x" << i << " type veth peer name y" << i << "\n";
      for ( const char * prefix : { "x", "y" } ) {
         links << "link set " << prefix << i << " master br0\n";
         // Scattered, for ranges are short.
         for ( int id = 2; id < 200; id += 2 )
            vlans << "vlan add dev " << prefix << i << " vid " << id << "\n";
      }
   }
   links.close();
   vlans.close();
   ip( "-batch links" );
   bridgeDo( "-batch vlans" );

   auto owned = std::make_unique< WatchedKernel >();
   WatchedKernel * const kernel = owned.get();
   made = Vel::make< LinuxSwitch >( loop, std::move( owned ) );
   int parts = 0;
   kernel->received = [&]( Vel::U16 asked ) {
      if ( asked == RTM_GETVLAN && ++parts == 1 )
         ip( "link del et4" );
   };
   started();
   EXPECT_GT( parts, 2 ) << "the dump was of one part";
   EXPECT_EQ( std::size_t( 2 * pairs * 100 + 1 ), listener.vlanMembers.size() );
   RecordingListener fresh;
   const Vel::Ptr< Switch > other = switchNewLinux( loop );
   ASSERT_TRUE( other->start( fresh ).ok() );
   EXPECT_EQ( fresh.vlanMembers, listener.vlanMembers );
}

TEST_F( LinuxVlan, vlansAreReadAgainOnlyWhenADefaultMoves ) {
   ip( "link add br0 type bridge vlan_filtering 1" );
   auto owned = std::make_unique< WatchedKernel >();
   WatchedKernel * const kernel = owned.get();
   made = Vel::make< LinuxSwitch >( loop, std::move( owned ) );
   started();
   const int before = kernel->asked[RTM_GETVLAN];
   for ( const char * port : { "et1", "et2", "et3" } )
      ip( Vel::text( "link set ", port, " master br0" ) );
   bridgeDo( "vlan add dev et1 vid 10-20" );
   ip( "link set et2 nomaster" );
   ip( "link set et2 master br0" );
   untilMembers( "1+br0, 1+et1, 1+et2, 1+et3, 10+et1, 11+et1, 12+et1, 13+et1, 14+et1, 15+et1, 16+et1, "
                 "17+et1, 18+et1, 19+et1, 20+et1" );
   EXPECT_EQ( before, kernel->asked[RTM_GETVLAN] );
   bridgeDo( "vlan del dev et1 vid 10-20" );
   bridgeDo( "vlan add dev et1 vid 30 pvid" );
   untilMembers( "1+br0, 1+et1, 1+et2, 1+et3, 30+et1" );
   EXPECT_GT( kernel->asked[RTM_GETVLAN], before );
}

} // namespace
} // namespace DataPlane::Linux
