// What the real kernel drops with a link: given back after it is up.

#include "DataPlane/Linux/RestoreInNamespaceTest.h"

namespace DataPlane::Linux {
namespace {

TEST_F( LinuxRestore, addressOfVersion6ComesBack ) {
   comesBack( { "address add 2001:db8::1/64 dev et1 nodad" } );
   EXPECT_NE( Vel::String::npos, ipSays( "-6 address show dev et1" ).find( "2001:db8::1/64" ) );
}

TEST_F( LinuxRestore, severalAddressesComeBackInTheirOrder ) {
   for ( const char * address : { "2001:db8::1/64", "2001:db8::2/64", "2001:db8:1::9/48", "2001:db8::3/64" } )
      ip( Vel::text( "address add ", address, " dev et1 nodad" ) );
   const Vel::String before = ipSays( "-6 address show dev et1 scope global" );
   downAndUp( "et1" );
   EXPECT_EQ( before, ipSays( "-6 address show dev et1 scope global" ) );
}

TEST_F( LinuxRestore, particularsOfAnAddressComeBack ) {
   comesBack(
      { "address add 2001:db8::1/64 dev et1 nodad noprefixroute",
        "address add 2001:db8:1::1/64 dev et1 nodad metric 77",
        "address add 2001:db8:2::1 peer 2001:db8:2::2/128 dev et1 nodad" } );
}

TEST_F( LinuxRestore, addressThatNeedsACheckForDuplicatesComesBack ) {
   comesBack( { "address add 2001:db8::1/64 dev et1" } );
}

TEST_F( LinuxRestore, linkLocalAddressThatSomebodySetComesBack ) {
   ip( "address add fe80::1/64 dev et1 nodad" );
   downAndUp( "et1" );
   EXPECT_NE( Vel::String::npos, ipSays( "-6 address show dev et1" ).find( "fe80::1/64" ) );
}

TEST_F( LinuxRestore, lifetimeGoesOn ) {
   ip( "address add 2001:db8::1/64 dev et1 nodad valid_lft 1000 preferred_lft 500" );
   downAndUp( "et1" );
   const Vel::String text = ipSays( "-6 address show dev et1 scope global" );
   EXPECT_TRUE(
      text.find( "valid_lft 1000sec" ) != Vel::String::npos ||
      text.find( "valid_lft 99" ) != Vel::String::npos )
      << text;
}

TEST_F( LinuxRestore, routesOfVersion4ComeBack ) {
   comesBack(
      { "address add 192.0.2.1/24 dev et1", "address add 198.51.100.1/24 dev et2",
        "route add 10.1.0.0/16 via 192.0.2.2", "route add 10.2.0.0/16 dev et1 scope link",
        "route add 10.3.0.0/16 via 192.0.2.2 metric 50 mtu 1400 advmss 1000 src 192.0.2.1",
        "route add default via 192.0.2.254 dev et1 table 100",
        "route add 10.4.0.0/16 via 203.0.113.9 dev et1 onlink",
        "route add 10.5.0.0/16 via 192.0.2.3 proto 77 tos 0x10", "route add 10.6.0.0/16 via 198.51.100.2" } );
}

TEST_F( LinuxRestore, routesOfVersion6ComeBack ) {
   comesBack(
      { "address add 2001:db8::1/64 dev et1 nodad", "-6 route add 2001:db8:1::/48 via 2001:db8::2",
        "-6 route add 2001:db8:2::/48 dev et1", "-6 route add default via fe80::9 dev et1",
        "-6 route add 2001:db8:3::/48 via 2001:db8::2 metric 50 mtu 1400 pref high",
        "-6 route add 2001:db8:4::/48 from 2001:db8::/64 via 2001:db8::2 table 1000" } );
}

TEST_F( LinuxRestore, routeThatNeedsAnotherComesBack ) {
   comesBack(
      { "address add 192.0.2.1/24 dev et1", "route add 10.9.0.0/16 via 192.0.2.2",
        "-6 route add 2001:db8:1::/64 dev et1", "-6 route add 2001:db8:0::/48 via 2001:db8:1::2 dev et1",
        "route add 172.16.0.0/24 dev et1 scope link", "route add 172.17.0.0/16 via 172.16.0.1" } );
}

TEST_F( LinuxRestore, routeOfVersion4ThroughAGatewayOfVersion6ComesBack ) {
   comesBack( { "address add 192.0.2.1/24 dev et1", "route add 10.1.0.0/16 via inet6 fe80::9 dev et1" } );
}

TEST_F( LinuxRestore, routeFromAnAddressThatIsStillCheckedForDuplicatesComesBack ) {
   ip( "address add 2001:db8::1/64 dev et1" );
   until( [] {
      return ipSays( "-6 address show dev et1 scope global" ).find( "tentative" ) == Vel::String::npos;
   } );
   comesBack( { "-6 route add 2001:db8:1::/48 via 2001:db8::2 src 2001:db8::1" } );
}

TEST_F( LinuxRestore, routeOfSeveralWaysLosesOneAndGetsItBack ) {
   comesBack(
      { "address add 192.0.2.1/24 dev et1", "address add 198.51.100.1/24 dev et2",
        "route add 10.1.0.0/16 nexthop via 192.0.2.2 weight 3 nexthop via 198.51.100.2",
        "address add 2001:db8:1::1/64 dev et1 nodad", "address add 2001:db8:2::1/64 dev et2 nodad",
        "-6 route add 2001:db8:9::/48 nexthop via 2001:db8:1::2 nexthop via 2001:db8:2::2" } );
}

TEST_F( LinuxRestore, routeOfSeveralWaysComesBackAfterAllWereLost ) {
   for ( const char * command :
         { "address add 192.0.2.1/24 dev et1", "address add 198.51.100.1/24 dev et2",
           "route add 10.1.0.0/16 nexthop via 192.0.2.2 weight 3 nexthop via 198.51.100.2",
           "address add 2001:db8:1::1/64 dev et1 nodad", "address add 2001:db8:2::1/64 dev et2 nodad",
           "-6 route add 2001:db8:9::/48 nexthop via 2001:db8:1::2 nexthop via 2001:db8:2::2" } )
      ip( command );
   const std::vector< Vel::String > before = everything();
   const Vel::String first = snapshot( "et1" );
   EXPECT_TRUE( set( "et1", false ).link.ok() );
   const Vel::String second = snapshot( "et2" );
   EXPECT_TRUE( set( "et2", false ).link.ok() );
   EXPECT_TRUE( set( "et1", true, first ).restore.ok() );
   EXPECT_NE( Vel::String::npos, ipSays( "route show 10.1.0.0/16" ).find( "192.0.2.2" ) );
   const LinkSetResult result = set( "et2", true, second );
   EXPECT_TRUE( result.restore.ok() ) << result.restore.text();
   EXPECT_EQ( before, everything() );
}

TEST_F( LinuxRestore, routeOfSeveralWaysThatSomebodyChangedMeanwhileIsLeftAlone ) {
   ip( "address add 192.0.2.1/24 dev et1" );
   ip( "address add 198.51.100.1/24 dev et2" );
   ip( "route add 10.1.0.0/16 nexthop via 192.0.2.2 nexthop via 198.51.100.2" );
   const Vel::String saved = snapshot( "et1" );
   EXPECT_TRUE( set( "et1", false ).link.ok() );
   ip( "route replace 10.1.0.0/16 via 198.51.100.77" );
   EXPECT_TRUE( set( "et1", true, saved ).restore.ok() );
   EXPECT_EQ( "10.1.0.0/16 via 198.51.100.77 dev et2 \n", ipSays( "route show 10.1.0.0/16" ) );
}

TEST_F( LinuxRestore, whatIsThereAgainIsLeftAsItIs ) {
   ip( "address add 192.0.2.1/24 dev et1" );
   ip( "address add 198.51.100.1/24 dev et2" );
   ip( "route add 10.1.0.0/16 via 192.0.2.2" );
   const Vel::String saved = snapshot( "et1" );
   EXPECT_TRUE( set( "et1", false ).link.ok() );
   ip( "route add 10.1.0.0/16 via 198.51.100.2" );
   EXPECT_TRUE( set( "et1", true, saved ).restore.ok() );
   EXPECT_EQ( "10.1.0.0/16 via 198.51.100.2 dev et2 \n", ipSays( "route show 10.1.0.0/16" ) );
}

TEST_F( LinuxRestore, restoringAgainChangesNothing ) {
   ip( "address add 2001:db8::1/64 dev et1 nodad" );
   ip( "-6 route add 2001:db8:1::/48 via 2001:db8::2" );
   const std::vector< Vel::String > before = everything();
   const Vel::String saved = snapshot( "et1" );
   for ( int i = 0; i < 2; ++i )
      EXPECT_TRUE( set( "et1", true, saved ).restore.ok() );
   EXPECT_EQ( before, everything() );
}

TEST_F( LinuxRestore, routesOfDaemonsAndRoutersAreNotSaved ) {
   ip( "address add 192.0.2.1/24 dev et1" );
   int table = 100;
   for ( const char * protocol : { "kernel", "ra", "bgp", "ospf", "babel" } )
      ip( Vel::text( "route add 10.1.0.0/16 via 192.0.2.2 proto ", protocol, " table ", ++table ) );
   EXPECT_EQ( "", snapshot( "et1" ) );
}

TEST_F( LinuxRestore, snapshotIsOfItsLinkOnly ) {
   ip( "address add 2001:db8::1/64 dev et1 nodad" );
   ip( "address add 2001:db8:2::1/64 dev et2 nodad" );
   EXPECT_EQ(
      "address 2001:db8::1/64 scope=0 flags=2 valid=forever preferred=forever protocol=0\n",
      snapshot( "et1" ) );
   EXPECT_FALSE( made->linkSnapshot( eth( "et9" ) ).outcome.ok() );
}

TEST_F( LinuxRestore, damagedSnapshotIsAFailureOfTheRestore ) {
   const LinkSetResult result = set( "et1", true, "address 2001:db8::1/64 scope=none\n" );
   EXPECT_TRUE( result.link.ok() );
   EXPECT_EQ( "line 1 of the saved state: cannot read \"none\"", result.restore.text() );
}

TEST_F( LinuxRestore, laterRequestTakesThePlaceOfOneThatIsStillRestoring ) {
   made->linkSet(
      100, eth( "et1" ), true,
      "route inet 10.1.0.0/16 table=254 protocol=3 scope=0 type=1 leg=et1 via=192.0.2.2\n" );
   until( [turn = 0]() mutable { return ++turn > 3; } );
   EXPECT_FALSE( listener.results.count( 100 ) );
   EXPECT_TRUE( set( "et1", false ).link.ok() );
   until( [&] { return listener.results.count( 100 ) > 0; } );
   EXPECT_FALSE( listener.results.at( 100 ).restore.ok() );
   EXPECT_FALSE( listener.link( "et1" )->adminUp );
}

TEST_F( LinuxRestore, neighboursThatWereSetComeBack ) {
   comesBack(
      { "address add 192.0.2.1/24 dev et1", "address add 2001:db8::1/64 dev et1 nodad",
        "neighbour add 192.0.2.2 lladdr 02:00:00:00:00:02 nud permanent dev et1",
        "-6 neighbour add 2001:db8::2 lladdr 02:00:00:00:00:02 nud permanent router dev et1",
        "neighbour add 192.0.2.3 lladdr 02:00:00:00:00:03 nud permanent protocol static dev et1",
        "neighbour add proxy 192.0.2.9 dev et1", "-6 neighbour add proxy 2001:db8::9 dev et1" } );
   EXPECT_NE( Vel::String::npos, ipSays( "neighbour show nud permanent dev et1" ).find( "192.0.2.2" ) );
   EXPECT_NE( Vel::String::npos, ipSays( "-6 neighbour show proxy dev et1" ).find( "2001:db8::9" ) );
}

TEST_F( LinuxRestore, neighbourThatTheKernelLooksAfterComesBack ) {
   ip( "address add 192.0.2.1/24 dev et1" );
   ip( "neighbour add 192.0.2.8 dev et1 managed" );
   downAndUp( "et1" );
   const Vel::String text = ipSays( "neighbour show dev et1" );
   EXPECT_NE( Vel::String::npos, text.find( "managed" ) ) << text;
}

TEST_F( LinuxRestore, neighbourTakesThePlaceOfWhatTheKernelHasLearnedMeanwhile ) {
   ip( "address add 192.0.2.1/24 dev et1" );
   ip( "neighbour add 192.0.2.2 lladdr 02:00:00:00:00:02 nud permanent dev et1" );
   const Vel::String saved = snapshot( "et1" );
   EXPECT_TRUE( set( "et1", false ).link.ok() );
   EXPECT_TRUE( set( "et1", true ).link.ok() );
   ip( "neighbour add 192.0.2.2 lladdr 02:00:00:00:00:99 nud reachable dev et1" );
   EXPECT_TRUE( set( "et1", true, saved ).restore.ok() );
   const Vel::String text = ipSays( "neighbour show dev et1" );
   EXPECT_NE( Vel::String::npos, text.find( "192.0.2.2 lladdr 02:00:00:00:00:02 PERMANENT" ) ) << text;
}

TEST_F( LinuxRestore, neighbourThatSomebodySetMeanwhileIsLeftAlone ) {
   ip( "address add 192.0.2.1/24 dev et1" );
   ip( "neighbour add 192.0.2.2 lladdr 02:00:00:00:00:02 nud permanent dev et1" );
   const Vel::String saved = snapshot( "et1" );
   EXPECT_TRUE( set( "et1", false ).link.ok() );
   EXPECT_TRUE( set( "et1", true ).link.ok() );
   ip( "neighbour add 192.0.2.2 lladdr 02:00:00:00:00:99 nud permanent dev et1" );
   EXPECT_TRUE( set( "et1", true, saved ).restore.ok() );
   const Vel::String text = ipSays( "neighbour show dev et1" );
   EXPECT_NE( Vel::String::npos, text.find( "02:00:00:00:00:99" ) ) << text;
}

/// The kernel refuses it until it has made sure of the address, for which it needs a carrier.
TEST_F( LinuxRestore, routeFromAnAddressComesBackWhenThereIsACarrier ) {
   ip( "address add 2001:db8::1/64 dev et1" );
   until( [] {
      return ipSays( "-6 address show dev et1 scope global" ).find( "tentative" ) == Vel::String::npos;
   } );
   ip( "-6 route add 2001:db8:1::/48 via 2001:db8::2 src 2001:db8::1" );
   const Vel::String saved = snapshot( "et1" );
   EXPECT_TRUE( set( "et1", false ).link.ok() );
   ip( "link set p1 down" );
   made->linkSet( 100, eth( "et1" ), true, saved );
   until( [&] { return listener.results.count( 100 ) > 0; }, 15 );
   const LinkSetResult result = listener.results.at( 100 );
   EXPECT_TRUE( result.link.ok() && !result.restore.ok() );
   EXPECT_EQ( 0u, result.left.find( "route inet6 2001:db8:1::/48" ) ) << result.left;
   EXPECT_NE( Vel::String::npos, ipSays( "-6 address show dev et1" ).find( "2001:db8::1/64" ) );
   up( "p1" );
   untilUp( "et1" );
   made->linkRestore( 101, eth( "et1" ), result.left );
   until( [&] { return listener.results.count( 101 ) > 0; } );
   EXPECT_TRUE( listener.results.at( 101 ).restore.ok() ) << listener.results.at( 101 ).restore.text();
   EXPECT_NE( Vel::String::npos, ipSays( "-6 route show 2001:db8:1::/48" ).find( "src 2001:db8::1" ) );
}

TEST_F( LinuxRestore, thousandRoutesComeBack ) {
   ip( "address add 192.0.2.1/24 dev et1" );
   Vel::String batch;
   for ( int i = 0; i < 1000; ++i )
      batch += Vel::text( "route add 10.", i / 256, ".", i % 256, ".0/24 via 192.0.2.2\n" );
   burst( batch );
   const std::vector< Vel::String > before = everything();
   EXPECT_GT( before.size(), 1000u );
   downAndUp( "et1" );
   EXPECT_EQ( before, everything() );
}

} // namespace
} // namespace DataPlane::Linux
