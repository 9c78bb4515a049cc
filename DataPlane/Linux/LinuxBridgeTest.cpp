// Plain bridges on the real kernel, in network namespaces of their own.

#include "DataPlane/Linux/NamespaceTest.h"

namespace DataPlane::Linux {
namespace {

/// A bridge with et1 and et2.
class LinuxBridge : public InNamespace {
 protected:
   void SetUp() override {
      InNamespace::SetUp();
      if ( IsSkipped() )
         return;
      for ( const char * n : { "1", "2" } )
         veth( Vel::text( "et", n ), Vel::text( "p", n ) );
      ip( "link add br0 type bridge" );
      ip( "link set et1 master br0" );
      ip( "link set et2 master br0" );
   }
   Vel::String members() const {
      Vel::String result;
      for ( const auto & [vlanId, member] : listener.vlanMembers )
         result += Vel::text( result.empty() ? "" : " ", vlanId, "+", member );
      return result;
   }
   void untilMembers( const Vel::String & wanted ) {
      until( [&] { return members() == wanted; } );
      EXPECT_EQ( wanted, members() );
   }
};

TEST_F( LinuxBridge, isInVlanOneWithAllItsPorts ) {
   started();
   EXPECT_EQ( "1+br0 1+et1 1+et2", members() );
   EXPECT_EQ( Health(), listener.health );
}

TEST_F( LinuxBridge, portsComeAndGo ) {
   started();
   ip( "link set et1 nomaster" );
   untilMembers( "1+br0 1+et2" );
   EXPECT_TRUE( listener.link( "et1" ) );
   ip( "link set et1 master br0" );
   untilMembers( "1+br0 1+et1 1+et2" );
   ip( "link del et2" );
   untilMembers( "1+br0 1+et1" );
   veth( "et2", "p2" );
   ip( "link set et2 master br0" );
   untilMembers( "1+br0 1+et1 1+et2" );
}

TEST_F( LinuxBridge, severalNewsOfOneEnslavementAreToldOnce ) {
   started();
   ip( "link set p1 master br0" );
   untilMembers( "1+br0 1+et1 1+et2 1+p1" );
   EXPECT_EQ( "1+p1", listener.take() );
}

TEST_F( LinuxBridge, portMovesToAnotherBridge ) {
   ip( "link add br1 type bridge" );
   started();
   ip( "link set et1 master br1" );
   // VLAN 1 is the first bridge's.
   untilMembers( "1+br0 1+et2" );
   ip( "link del br0" );
   untilMembers( "1+br1 1+et1" );
}

TEST_F( LinuxBridge, renamedPortIsAnotherMember ) {
   started();
   ip( "link set et1 name et7" );
   untilMembers( "1+br0 1+et2 1+et7" );
   EXPECT_EQ( "1-et1, -et1, et7 admin-down, 1+et7", listener.take() );
}

TEST_F( LinuxBridge, membersGoWithTheirBridge ) {
   started();
   ip( "link del br0" );
   until( [&] { return !listener.link( "br0" ); } );
   untilMembers( "" );
   EXPECT_TRUE( listener.link( "et1" ) );
}

} // namespace
} // namespace DataPlane::Linux
