// On the real kernel, in network namespaces of their own.

#include "DataPlane/Linux/NamespaceTest.h"

#include <array>
#include <iostream>

#include <linux/capability.h>
#include <sys/syscall.h>

namespace DataPlane::Linux {
namespace {

class LinuxSwitch : public InNamespace {};

/// Takes the right to administer the network from this thread as long as it lives. Whoever is not root has none.
class WithoutTheRight {
 public:
   WithoutTheRight() {
      call( SYS_capget, had_ );
      Rights less = had_;
      less[0].effective &= ~( 1u << CAP_NET_ADMIN );
      call( SYS_capset, less );
   }
   ~WithoutTheRight() { call( SYS_capset, had_ ); }

 private:
   using Rights = std::array< __user_cap_data_struct, _LINUX_CAPABILITY_U32S_3 >;
   static void call( long number, Rights & rights ) {
      __user_cap_header_struct header{ _LINUX_CAPABILITY_VERSION_3, 0 };
      EXPECT_EQ( 0, syscall( number, &header, rights.data() ) );
   }
   Rights had_{};
};

/// Without a namespace, for it changes nothing, and users other than root cannot make one.
TEST( LinuxSwitchRight, isMissedByWhoHasNone ) {
   const WithoutTheRight without;
   const auto loop = Vel::make< Cog::EventLoop >( Vel::make< Cog::RealTime >( 0 ) );
   RecordingListener listener;
   const Vel::Ptr< Switch > made = switchNewLinux( loop );
   const Outcome outcome = made->start( listener );
   ASSERT_TRUE( outcome.ok() ) << outcome.text();
   EXPECT_TRUE( listener.link( "lo" ) ) << "they are read all the same";
   EXPECT_FALSE( listener.health.degraded );
   EXPECT_TRUE( listener.health.text.starts_with( "no link can be set up or down: " ) )
      << listener.health.text;
}

TEST_F( LinuxSwitch, missesNoRightThatItHas ) {
   started();
   EXPECT_EQ( "", listener.health.text );
}

TEST_F( LinuxSwitch, startTellsAllLinksAtOnce ) {
   veth( "et1", "p1" );
   veth( "et2", "p2" );
   up( "et1" );
   up( "p1" );
   ip( "link add br0 type bridge" );
   const Outcome outcome = made->start( listener );
   ASSERT_TRUE( outcome.ok() ) << outcome.text();
   EXPECT_TRUE( listener.up( "et1" ) );
   EXPECT_FALSE( listener.link( "et2" )->adminUp );
   EXPECT_EQ( Wire::IntfId::other( "lo" ), listener.link( "lo" )->intf );
   EXPECT_EQ( Wire::IntfId( Wire::CpuIntfId( "br0" ) ), listener.link( "br0" )->intf );
   EXPECT_EQ( 6u, listener.links.size() );
   EXPECT_TRUE( made->tellsMembership() );
   EXPECT_FALSE( listener.health.degraded );
}

TEST_F( LinuxSwitch, linkThatIsAddedAndDeletedIsTold ) {
   started();
   veth( "et1", "p1" );
   until( [&] { return listener.link( "et1" ) && listener.link( "p1" ); } );
   ip( "link del et1" );
   until( [&] { return !listener.link( "et1" ) && !listener.link( "p1" ); } );
}

TEST_F( LinuxSwitch, linkIsUpWithTheCarrierAndDownWithoutIt ) {
   veth( "et1", "p1" );
   up( "et1" );
   started();
   EXPECT_TRUE( listener.link( "et1" )->adminUp );
   EXPECT_FALSE( listener.up( "et1" ) );
   up( "p1" );
   untilUp( "et1" );
   ip( "link set p1 down" );
   until( [&] { return !listener.up( "et1" ); } );
   EXPECT_TRUE( listener.link( "et1" )->adminUp );
   ip( "link set et1 down" );
   until( [&] { return !listener.link( "et1" )->adminUp; } );
}

TEST_F( LinuxSwitch, renamedLinkIsAnotherLink ) {
   veth( "et1", "p1" );
   started();
   const Vel::U32 ifIndex = listener.link( "et1" )->ifIndex;
   ip( "link set et1 name et9" );
   until( [&] { return listener.link( "et9" ) != nullptr; } );
   EXPECT_EQ( "-et1, et9 admin-down", listener.take() );
   EXPECT_EQ( ifIndex, listener.link( "et9" )->ifIndex );
}

TEST_F( LinuxSwitch, linkMadeAgainHasAnotherNumber ) {
   veth( "et1", "p1" );
   started();
   const Vel::U32 ifIndex = listener.link( "et1" )->ifIndex;
   ip( "link del et1" );
   veth( "et1", "p1" );
   until( [&] { return listener.link( "et1" ) && listener.link( "et1" )->ifIndex != ifIndex; } );
}

TEST_F( LinuxSwitch, portThatLeavesItsBridgeStays ) {
   veth( "et1", "p1" );
   ip( "link add br0 type bridge" );
   ip( "link set et1 master br0" );
   started();
   ip( "link set et1 nomaster" );
   // The bridge "removes" the link, in its own family, before this one's news.
   ip( "link set p1 up" );
   until( [&] { return listener.link( "p1" )->adminUp; } );
   EXPECT_TRUE( listener.link( "et1" ) );
}

TEST_F( LinuxSwitch, kindsAreThoseOfTheKernel ) {
   struct Row {
      const char * type;
      const char * arguments;
      Wire::IntfId intf;
   };
   ip( "link add br0 type bridge" );
   veth( "et1", "p1" );
   const Row rows[] = {
      { "bond", "link add bond0 type bond", Wire::PortChannelIntfId( "bond0" ) },
      { "team", "link add team0 type team", Wire::PortChannelIntfId( "team0" ) },
      { "vlan", "link add link br0 name v10 type vlan id 10", Wire::VlanIntfId( "v10", 10 ) },
      { "vlan", "link add link et1 name et1.5 type vlan id 5", Wire::SubIntfId( "et1.5" ) },
      { "dummy", "link add d0 type dummy", eth( "d0" ) },
   };
   started();
   for ( const Row & row : rows ) {
      SCOPED_TRACE( row.arguments );
      if ( !tryIp( row.arguments ) ) {
         std::cout << "this kernel has no links of type " << row.type << "; not tested\n";
         continue;
      }
      const Vel::String name( row.intf.name() );
      until( [&] { return listener.link( name ) != nullptr; } );
      EXPECT_EQ( row.intf, listener.link( name )->intf );
   }
}

TEST_F( LinuxSwitch, linkIsSetDownAndUpAndAcknowledgedAfterItsChange ) {
   veth( "et1", "p1" );
   up( "et1" );
   up( "p1" );
   started();
   EXPECT_TRUE( set( "et1", false ).link.ok() );
   EXPECT_FALSE( listener.link( "et1" )->adminUp );
   EXPECT_NE( Vel::String::npos, ipSays( "link show et1" ).find( "state DOWN" ) );
   EXPECT_TRUE( set( "et1", true ).link.ok() );
   EXPECT_TRUE( listener.link( "et1" )->adminUp );
   untilUp( "et1" );
}

TEST_F( LinuxSwitch, linkThatIsNotThereCannotBeSet ) {
   started();
   EXPECT_EQ( "there is no link \"et9\"", set( "et9", false ).link.text() );
}

TEST_F( LinuxSwitch, kernelsRefusalIsTheResult ) {
   veth( "et1", "p1" );
   started();
   // Gone, but we have not heard yet.
   ip( "link del et1" );
   const LinkSetResult result = set( "et1", false );
   EXPECT_EQ( "No such device", result.link.text() );
}

TEST_F( LinuxSwitch, hundredsOfLinksAreSetTogether ) {
   constexpr int count = 200;
   Vel::String links;
   for ( int i = 0; i < count; ++i )
      links += Vel::text( "link add et", i, " type veth peer name p", i, "\n" );
   burst( links );
   started();
   for ( RequestId i = 0; i < count; ++i )
      made->linkSet( 1000 + i, eth( Vel::text( "et", i ) ), true, {} );
   until( [&] { return listener.results.size() == count; } );
   for ( const auto & [id, result] : listener.results )
      EXPECT_TRUE( result.link.ok() ) << result.link.text();
   EXPECT_TRUE( listener.link( "et199" )->adminUp );
}

TEST_F( LinuxSwitch, stopEndsWhatIsTold ) {
   veth( "et1", "p1" );
   started();
   made->stop();
   ip( "link del et1" );
   bool turned = false;
   loop->post( [&] { turned = true; } );
   until( [&] { return turned; } );
   EXPECT_EQ( "", listener.take() );
   RecordingListener other;
   ASSERT_TRUE( made->start( other ).ok() );
   EXPECT_EQ( 1u, other.links.size() );
}

TEST_F( LinuxSwitch, bootIdIsThatOfTheNamespace ) {
   started();
   const Vel::String first = made->bootId();
   RecordingListener again, other;
   ASSERT_TRUE( made->start( again ).ok() );
   EXPECT_EQ( first, made->bootId() );
   ASSERT_EQ( 0, unshare( CLONE_NEWNET ) );
   ASSERT_TRUE( made->start( other ).ok() );
   EXPECT_NE( first, made->bootId() );
}

} // namespace
} // namespace DataPlane::Linux
