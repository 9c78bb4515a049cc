#include "DataPlane/Linux/BehindBridge.h"
#include "DataPlane/Linux/LinuxFaultTest.h"

#include <linux/nexthop.h>

namespace DataPlane::Linux {

namespace {

constexpr std::string_view hardware( "\x02\0\0\0\0\x07", 6 );

NeighbourEntry parsed( const Bytes & bytes ) { return parseNeighbour( messageIn( bytes ) ).value(); }

} // namespace

// ---- messages

TEST( NeighbourMessage, tellsTheHardwareAddressAsLongAsItCounts ) {
   const HardwareAddress expected{ 2, 0, 0, 0, 0, 7 };
   EXPECT_EQ( "02:00:00:00:00:07", stringValue( expected ) );
   for ( const Vel::U16 state :
         { NUD_REACHABLE, NUD_STALE, NUD_DELAY, NUD_PROBE, NUD_PERMANENT, NUD_NOARP } ) {
      const NeighbourEntry entry = parsed( seenBytes( AF_INET, 4, hardware, state ) );
      EXPECT_FALSE( entry.ofBridge );
      EXPECT_EQ( 4u, entry.ifIndex );
      EXPECT_EQ( expected, entry.hardware );
   }
   for ( const Vel::U16 state : { NUD_INCOMPLETE, NUD_FAILED } )
      EXPECT_FALSE( parsed( seenBytes( AF_INET6, 4, hardware, state ) ).hardware );
   for ( const std::string_view other : { hardware.substr( 1 ), std::string_view() } )
      EXPECT_FALSE( parsed( seenBytes( AF_INET, 4, other ) ).hardware );
   EXPECT_EQ( expected, parsed( seenBytes( AF_BRIDGE, 4, hardware, NUD_NOARP ) ).hardware );
   EXPECT_TRUE( parsed( seenBytes( AF_BRIDGE, 4, hardware ) ).ofBridge );
}

TEST( NeighbourMessage, isNoneOfAnotherKindOrCutShort ) {
   Bytes bytes = seenBytes( AF_DECnet, 4, hardware );
   EXPECT_FALSE( parseNeighbour( messageIn( bytes ) ) );
   bytes = seenBytes( AF_INET, 0, hardware );
   EXPECT_FALSE( parseNeighbour( messageIn( bytes ) ) );
   bytes = linkBytes( { .name = "et1" } );
   EXPECT_FALSE( parseNeighbour( messageIn( bytes ) ) );
   bytes = seenBytes( AF_INET, 4, hardware );
   const Vel::U32 padding = 2, whole = messageIn( bytes ).nlmsg_len - padding;
   for ( Vel::U32 length = 0; length < whole; ++length ) {
      messageIn( bytes ).nlmsg_len = length;
      const auto entry = parseNeighbour( messageIn( bytes ) );
      EXPECT_FALSE( entry && entry->hardware );
   }
}

// ---- the bridge below a link

class BridgeBelowTest : public testing::Test {
 protected:
   void add( const TestLink & link ) { links.linkIs( linkMessage( link ) ); }
   void filters( Vel::U16 ownDefault, Vel::U16 protocol = ETH_P_8021Q ) {
      add(
         { .ifIndex = 9, .name = "br0", .kind = "bridge", .vlanFiltering = true, .vlanProtocol = protocol } );
      VlansOfLinks all;
      all[9].vlans.set( ownDefault );
      all[9].defaultId = ownDefault;
      vlans.dumpIs( all );
   }
   BridgeBelow below( Vel::U32 ifIndex ) { return bridgeBelow( links, vlans, ifIndex ); }

   LinkTable links;
   VlanTable vlans;
};

TEST_F( BridgeBelowTest, isNoneOfAPortAndOfADeviceOnOne ) {
   add( { .ifIndex = 1, .name = "et1", .master = 9, .slaveKind = "bridge" } );
   add( { .ifIndex = 4, .name = "et1.7", .kind = "vlan", .lower = 1, .vlanId = 7 } );
   filters( 1 );
   for ( const Vel::U32 ifIndex : { 1u, 4u, 77u } )
      EXPECT_EQ( BridgeBelow(), below( ifIndex ) );
}

TEST_F( BridgeBelowTest, hasTheVlanOfTheDeviceOnItOrItsOwnDefault ) {
   filters( 3 );
   add( { .ifIndex = 4, .name = "vlan7", .kind = "vlan", .lower = 9, .vlanId = 7 } );
   add( { .ifIndex = 5, .name = "mac7", .kind = "macvlan", .lower = 4 } );
   add( { .ifIndex = 6, .name = "inner", .kind = "vlan", .lower = 4, .vlanId = 8 } );
   EXPECT_EQ( ( BridgeBelow{ 9, 3 } ), below( 9 ) );
   for ( const Vel::U32 ifIndex : { 4u, 5u, 6u } )
      EXPECT_EQ( ( BridgeBelow{ 9, 7 } ), below( ifIndex ) );
}

TEST_F( BridgeBelowTest, takesATagOfAnotherKindForNone ) {
   filters( 3, ETH_P_8021AD );
   add( { .ifIndex = 4, .name = "vlan7", .kind = "vlan", .lower = 9, .vlanId = 7 } );
   EXPECT_EQ( ( BridgeBelow{ 9, 3 } ), below( 4 ) );
}

TEST_F( BridgeBelowTest, seesNoTagThatIsEncrypted ) {
   filters( 3 );
   add( { .ifIndex = 4, .name = "ms0", .kind = "macsec", .lower = 9 } );
   add( { .ifIndex = 5, .name = "ms0.20", .kind = "vlan", .lower = 4, .vlanId = 20 } );
   EXPECT_EQ( ( BridgeBelow{ 9, 3 } ), below( 5 ) );
   // One around it is.
   add( { .ifIndex = 6, .name = "vlan7", .kind = "vlan", .lower = 9, .vlanId = 7 } );
   add( { .ifIndex = 4, .name = "ms0", .kind = "macsec", .lower = 6 } );
   EXPECT_EQ( ( BridgeBelow{ 9, 7 } ), below( 5 ) );
}

TEST_F( BridgeBelowTest, tellsNoVlansApartIfTheBridgeDoesNotFilter ) {
   add( { .ifIndex = 9, .name = "br0", .kind = "bridge" } );
   add( { .ifIndex = 4, .name = "vlan7", .kind = "vlan", .lower = 9, .vlanId = 7 } );
   EXPECT_EQ( ( BridgeBelow{ 9, 0 } ), below( 4 ) );
}

TEST_F( BridgeBelowTest, isNoneInACircle ) {
   add( { .ifIndex = 4, .name = "a", .kind = "macvlan", .lower = 5 } );
   add( { .ifIndex = 5, .name = "b", .kind = "macvlan", .lower = 4 } );
   EXPECT_EQ( BridgeBelow(), below( 4 ) );
}

// ---- who is behind which port

class Behind : public LinuxFault {
 protected:
   Behind() {
      kernel->links[3] = { .ifIndex = 3, .name = "br0", .kind = "bridge", .vlanFiltering = true };
      kernel->links[4] = { .ifIndex = 4, .name = "vlan7", .kind = "vlan", .lower = 3, .vlanId = 7 };
      for ( const Vel::U32 port : { 1u, 2u } ) {
         kernel->links[port].master = 3;
         kernel->links[port].slaveKind = "bridge";
      }
      kernel->vlans = { { 1, { { 7, 7 } } }, { 2, { { 7, 7 } } }, { 3, { { 7, 7 } } } };
      // 10.0.7.2 and 2001:db8::2 are at one hardware address, which is behind et2.
      kernel->seen = {
         { "10.0.7.2 on 4", seenBytes( AF_INET, 4, hardware ) },
         { "2001:db8::2 on 4", seenBytes( AF_INET6, 4, hardware, NUD_STALE ) },
         { "02:00:00:00:00:07 7 on 3", seenBytes( AF_BRIDGE, 2, hardware, NUD_NOARP ) } };
   }
   /// The way to an address over a link, or as the kernel finds it.
   AddressWay way( const Vel::String & address, const Vel::String & link = "" ) {
      std::optional< RouteAnswer > result;
      made->routesAsk( { address, "", link }, [&]( const RouteAnswer & answer ) { result = answer; } );
      for ( int i = 0; i < 100 && !result; ++i )
         turn();
      EXPECT_TRUE( result && result->way );
      EXPECT_EQ( "", result->way->problem );
      return *result->way;
   }
   /// Of each of its hops.
   std::vector< BehindPort > all( const Vel::String & address ) {
      const AddressWay to = way( address );
      std::vector< BehindPort > result;
      for ( const NextHop & hop : to.choices.at( 0 ) )
         result.push_back( hop.behind != 0 ? to.behind.at( hop.behind - 1U ) : BehindPort() );
      return result;
   }
   BehindPort only( const Vel::String & address ) {
      const std::vector< BehindPort > ports = all( address );
      EXPECT_EQ( 1u, ports.size() );
      return ports.at( 0 );
   }
   /// A route over vlan7, on the link itself or with gateways, that is found for the address.
   void routeIs( const Vel::String & found, const std::vector< const char * > & gateways ) {
      rtmsg header{};
      header.rtm_family = address( found.c_str() ).family;
      header.rtm_dst_len = 16;
      header.rtm_type = RTN_UNICAST;
      MessageBuilder message( RTM_NEWROUTE, 0 );
      message.header( header );
      message.attribute( RTA_TABLE, Vel::U32( RT_TABLE_MAIN ) );
      message.attribute( RTA_DST, address( found.c_str() ).payload() );
      if ( gateways.size() < 2 )
         message.attribute( RTA_OIF, Vel::U32( 4 ) );
      if ( gateways.size() == 1 )
         put( message, header.rtm_family, gateways[0] );
      if ( gateways.size() > 1 )
         message.nested( RTA_MULTIPATH, [&] {
            for ( const char * gateway : gateways ) {
               const std::size_t begin = message.size();
               rtnexthop next{};
               next.rtnh_ifindex = 4;
               message.append( &next, sizeof next );
               put( message, header.rtm_family, gateway );
               message.u16At( begin, message.size() - begin );
            }
         } );
      kernel->routes = { message.take() };
      kernel->ways = { { found, kernel->routes.front() } };
   }
   static void put( MessageBuilder & message, Vel::U8 family, const char * gateway ) {
      const IpAddress by = address( gateway );
      const Vel::U16 other = by.family;
      const Vel::String via = Vel::String( reinterpret_cast< const char * >( &other ), sizeof other );
      if ( other == family )
         message.attribute( RTA_GATEWAY, by.payload() );
      else
         message.attribute( RTA_VIA, via + Vel::String( by.payload() ) );
   }
};

TEST_F( Behind, whichPortWhoIsOnTheLinkItselfIs ) {
   routeIs( "10.0.7.2", {} );
   started();
   EXPECT_EQ(
      ( AddressWay{ "", false, "10.0.7.2/16", { { { "vlan7", 1, true, 1 } } }, "", { { "et2", "" } } } ),
      way( "10.0.7.2" ) );
}

TEST_F( Behind, whichPortTheGatewayIs ) {
   routeIs( "10.1.2.3", { "10.0.7.2" } );
   started();
   EXPECT_EQ( "et2", only( "10.1.2.3" ).port );
   routeIs( "10.1.2.3", { "2001:db8::2" } );
   EXPECT_EQ( "et2", only( "10.1.2.3" ).port );
   routeIs( "2001:db8:1::3", { "2001:db8::2" } );
   EXPECT_EQ( "et2", only( "2001:db8:1::3" ).port );
}

TEST_F( Behind, whichPortEachOfSeveralGatewaysOnOneLinkIs ) {
   routeIs( "10.1.2.3", { "10.0.7.2", "10.0.7.3", "10.0.7.4" } );
   kernel->seen["10.0.7.3 on 4"] = seenBytes( AF_INET, 4, std::string_view( "\x02\0\0\0\0\x08", 6 ) );
   kernel->seen["02:00:00:00:00:08 7 on 3"] = seenBytes( AF_BRIDGE, 1, hardware );
   started();
   const std::vector< BehindPort > expected = {
      { "et2", "" }, { "et1", "" }, { "", "the kernel knows no hardware address of 10.0.7.4 on vlan7" } };
   EXPECT_EQ( expected, all( "10.1.2.3" ) );
}

TEST_F( Behind, whichPortTheGatewayOfASharedNextHopIs ) {
   nhmsg header{};
   header.nh_family = AF_INET;
   MessageBuilder object( RTM_NEWNEXTHOP, 0 );
   object.header( header );
   object.attribute( NHA_ID, Vel::U32( 5 ) ).attribute( NHA_OIF, Vel::U32( 4 ) );
   object.attribute( NHA_GATEWAY, address( "10.0.7.2" ).payload() );
   kernel->nextHops = { object.take() };
   routeIs( "10.1.2.3", {} );
   rtmsg route{};
   route.rtm_family = AF_INET;
   route.rtm_dst_len = 16;
   route.rtm_type = RTN_UNICAST;
   MessageBuilder message( RTM_NEWROUTE, 0 );
   message.header( route ).attribute( RTA_TABLE, Vel::U32( RT_TABLE_MAIN ) );
   message.attribute( RTA_DST, address( "10.1.0.0" ).payload() ).attribute( RTA_NH_ID, Vel::U32( 5 ) );
   kernel->routes = { message.take() };
   kernel->ways = { { "10.1.2.3", kernel->routes.front() } };
   started();
   EXPECT_EQ( "et2", only( "10.1.2.3" ).port );
}

TEST_F( Behind, whichPortAnAddressOfTheLinkOnlyIs ) {
   kernel->seen["fe80::2 on 4"] = seenBytes( AF_INET6, 4, hardware );
   started();
   EXPECT_EQ(
      ( AddressWay{ "", false, "fe80::2%vlan7", { { { "vlan7", 1, true, 1 } } }, "", { { "et2", "" } } } ),
      way( "fe80::2", "vlan7" ) );
   EXPECT_EQ( ( AddressWay{ "", false, "fe80::2%et1", { { { "et1" } } } } ), way( "fe80::2", "et1" ) );
   EXPECT_EQ( ( AddressWay{ "", false, "fe80::2%none", { { { "" } } } } ), way( "fe80::2", "none" ) );
}

TEST_F( Behind, isNotKnownWhenTheKernelOrTheBridgeHasNotSeenHim ) {
   routeIs( "10.0.7.2", {} );
   started();
   const Bytes learned = kernel->seen["02:00:00:00:00:07 7 on 3"];
   kernel->seen.erase( "02:00:00:00:00:07 7 on 3" );
   EXPECT_EQ(
      ( BehindPort{ "", "br0 does not know behind which port 02:00:00:00:00:07 is in VLAN 7" } ),
      only( "10.0.7.2" ) );
   // The bridge's own address.
   kernel->seen["02:00:00:00:00:07 7 on 3"] = seenBytes( AF_BRIDGE, 3, hardware );
   EXPECT_NE( "", only( "10.0.7.2" ).unseen );
   // A port of which we have not heard.
   kernel->seen["02:00:00:00:00:07 7 on 3"] = seenBytes( AF_BRIDGE, 77, hardware );
   EXPECT_NE( "", only( "10.0.7.2" ).unseen );
   kernel->seen["02:00:00:00:00:07 7 on 3"] = learned;
   EXPECT_EQ( "", only( "10.0.7.2" ).unseen );
   kernel->seen["10.0.7.2 on 4"] = seenBytes( AF_INET, 4, hardware, NUD_FAILED );
   EXPECT_EQ( "the kernel knows no hardware address of 10.0.7.2 on vlan7", only( "10.0.7.2" ).unseen );
}

TEST_F( Behind, isAskedOfABridgeThatDoesNotFilterWithoutAVlan ) {
   kernel->links[3].vlanFiltering = false;
   kernel->seen["02:00:00:00:00:07 0 on 3"] = seenBytes( AF_BRIDGE, 1, hardware );
   routeIs( "10.0.7.2", {} );
   started();
   EXPECT_EQ( "et1", only( "10.0.7.2" ).port );
}

TEST_F( Behind, isFollowedForAFewWaysOnly ) {
   routeIs( "10.1.2.3", std::vector< const char * >( RouteReader::mostFollowed + 3, "10.0.7.2" ) );
   started();
   const std::vector< BehindPort > ports = all( "10.1.2.3" );
   ASSERT_EQ( RouteReader::mostFollowed + 3, ports.size() );
   EXPECT_EQ( "et2", ports[RouteReader::mostFollowed - 1].port );
   for ( std::size_t i = RouteReader::mostFollowed; i < ports.size(); ++i )
      EXPECT_EQ( ( BehindPort{ "", "there are more than 16 ways" } ), ports[i] );
}

} // namespace DataPlane::Linux
