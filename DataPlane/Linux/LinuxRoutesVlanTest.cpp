// Routes that lead over VLANs, bridges and port-channels of a real kernel that has them.

#include "DataPlane/Linux/RoutesInNamespaceTest.h"

namespace DataPlane::Linux {
namespace {

class LinuxVlanRoutes : public RoutesInNamespace {
 protected:
   using Needs = std::vector< std::vector< std::string > >;

   void SetUp() override {
      InNamespace::SetUp();
      if ( IsSkipped() )
         return;
      burst( addressedPair( "1" ) + addressedPair( "2" ) + addressedPair( "3" ) );
   }
   /// Commands, after which what is sent to 10.5.0.0/16 leaves over the link.
   static Vel::String carriesARoute( const Vel::String & name ) {
      return Vel::text(
         setUp( name ), "address add 10.0.7.1/24 dev ", name, "\nroute add 10.5.0.0/16 via 10.0.7.2\n" );
   }
   /// What is told of the link.
   RoutedLink told( const Vel::String & name ) {
      const RouteAnswer answer = asked();
      const RoutedLink * const found = link( answer, name );
      EXPECT_TRUE( found ) << name;
      return found ? *found : RoutedLink();
   }
};

TEST_F( LinuxVlanRoutes, leadOverADeviceThatStandsOnItsLink ) {
   burst( "link add link et2 name et2.7 type vlan id 7\n" + carriesARoute( "et2.7" ) );
   started();
   EXPECT_EQ( "et2.7*1", waysTo( asked(), "10.5.0.0/16" ) );
   EXPECT_EQ( ( Needs{ { "et2" } } ), told( "et2.7" ).needs );
}

TEST_F( LinuxVlanRoutes, leadOverADeviceThatStandsOnThePortsOfItsVlan ) {
   burst(
      "link add br0 type bridge vlan_filtering 1\n"
      "link set et1 master br0\n"
      "link set et2 master br0\n"
      "link set et3 master br0\n"
      "link add link br0 name br0.7 type vlan id 7\n"
      "link set br0 up\n" +
      carriesARoute( "br0.7" ) );
   ASSERT_EQ( 0, std::system( "bridge vlan add dev et1 vid 7 && bridge vlan add dev et3 vid 7" ) );
   started();
   EXPECT_EQ( "br0.7*1", waysTo( asked(), "10.5.0.0/16" ) );
   EXPECT_EQ( ( Needs{ { "br0" }, { "et1", "et3" } } ), told( "br0.7" ).needs );
   EXPECT_EQ( ( Needs{ { "et1", "et2", "et3" } } ), told( "br0" ).needs );
}

TEST_F( LinuxVlanRoutes, leadOverABondThatStandsOnItsMembersOfWhichOneMayWait ) {
   burst(
      "link add bond0 type bond mode active-backup miimon 10\n"
      "link set et1 down\n"
      "link set et2 down\n"
      "link set et1 master bond0\n"
      "link set et2 master bond0\n" +
      carriesARoute( "bond0" ) );
   started();
   EXPECT_EQ( "bond0*1", waysTo( asked(), "10.5.0.0/16" ) );
   const RoutedLink bond = told( "bond0" );
   EXPECT_TRUE( bond.aggregate );
   EXPECT_EQ( Sharing::oneAtATime, bond.sharing );
   EXPECT_EQ( ( Needs{ { "et1", "et2" } } ), bond.needs );
   EXPECT_NE( told( "et1" ).standby, told( "et2" ).standby );
}

} // namespace
} // namespace DataPlane::Linux
