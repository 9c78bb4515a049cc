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
   EXPECT_EQ( ( Needs{ { "et1", "et2", "et3" }, { "et1", "et3" } } ), told( "br0.7" ).needs );
   EXPECT_EQ( ( Needs{ { "et1", "et2", "et3" } } ), told( "br0" ).needs );
}

TEST_F( LinuxVlanRoutes, leadOverABridgeThatStandsOnThePortsOfItsOwnVlan ) {
   burst(
      "link add br0 type bridge vlan_filtering 1\n"
      "link set et1 master br0\n"
      "link set et2 master br0\n" +
      carriesARoute( "br0" ) );
   ASSERT_EQ(
      0, std::system( "bridge vlan del dev et1 vid 1 && bridge vlan add dev et1 vid 20 pvid untagged" ) );
   started();
   EXPECT_EQ( "br0*1", waysTo( asked(), "10.5.0.0/16" ) );
   EXPECT_EQ( ( Needs{ { "et1", "et2" }, { "et2" } } ), told( "br0" ).needs );
}

/// Ports et1 to et3 of br0, br0.7 upon it, and p1 to p3 at the other ends; somebody is at 10.0.7.2 and fe80::2, behind et2.
class LinuxBehindBridge : public LinuxVlanRoutes {
 protected:
   static constexpr char hardware[] = "02:00:00:00:00:07";
   void makeBridge( bool filters ) {
      burst(
         Vel::text( "link add br0 type bridge vlan_filtering ", filters ? 1 : 0, "\n" ) +
         "link set et1 master br0\n"
         "link set et2 master br0\n"
         "link set et3 master br0\n"
         "link add link br0 name br0.7 type vlan id 7\n"
         "link set br0 up\n" +
         carriesARoute( "br0.7" ) +
         Vel::text(
            "neighbour add 10.0.7.2 lladdr ", hardware, " dev br0.7\n", "neighbour add fe80::2 lladdr ",
            hardware, " dev br0.7\n" ) );
      if ( filters )
         bridge(
            "vlan add dev et2 vid 7 && bridge vlan add dev et3 vid 7 && bridge vlan add dev br0 vid 7 self" );
      bridge( Vel::text( "fdb add ", hardware, " dev et2 master static ", filters ? "vlan 7" : "" ) );
      started();
   }
   static void bridge( const Vel::String & arguments ) {
      EXPECT_EQ( 0, std::system( ( "bridge " + arguments ).c_str() ) ) << arguments;
   }
   /// Of the only hop of the way to an address, over a link or as the kernel finds it.
   BehindPort only( const Vel::String & address, const Vel::String & link = "" ) {
      const AddressWay way = asked( address, "", link ).way.value();
      EXPECT_EQ( "", way.problem );
      EXPECT_EQ( ( Choices{ { { "br0.7", 1, true, 1 } } } ), way.choices );
      return way.behind.at( 0 );
   }
};

TEST_F( LinuxBehindBridge, isWhoIsReachedOverADeviceInAVlanOfIt ) {
   makeBridge( true );
   const BehindPort expected{ "et2", "" };
   EXPECT_EQ( expected, only( "10.0.7.2" ) );
   EXPECT_EQ( expected, only( "10.5.1.1" ) );
   EXPECT_EQ( expected, only( "fe80::2", "br0.7" ) );
}

TEST_F( LinuxBehindBridge, isWhoIsReachedOverOneThatDoesNotFilter ) {
   makeBridge( false );
   EXPECT_EQ( "et2", only( "10.0.7.2" ).port );
}

TEST_F( LinuxBehindBridge, isNotKnownOfWhomTheKernelOrTheBridgeHasNotSeen ) {
   makeBridge( true );
   EXPECT_EQ( "the kernel knows no hardware address of 10.0.7.9 on br0.7", only( "10.0.7.9" ).unseen );
   bridge( Vel::text( "fdb del ", hardware, " dev et2 master vlan 7" ) );
   EXPECT_EQ(
      "br0 does not know behind which port 02:00:00:00:00:07 is in VLAN 7", only( "10.0.7.2" ).unseen );
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
