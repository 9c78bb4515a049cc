#include "DataPlane/Linux/RouteBytesTest.h"

#include <linux/nexthop.h>

namespace DataPlane::Linux {

namespace {

using Kind = RouteEntry::Kind;

Bytes nextHopBytes( Vel::U32 id, Vel::U32 ifIndex, const std::vector< nexthop_grp > & group = {} ) {
   MessageBuilder message( RTM_NEWNEXTHOP, 0 );
   message.header( nhmsg{} );
   message.attribute( NHA_ID, id );
   if ( ifIndex != 0 )
      message.attribute( NHA_OIF, ifIndex );
   if ( !group.empty() )
      message.attribute(
         NHA_GROUP,
         std::string_view(
            reinterpret_cast< const char * >( group.data() ), group.size() * sizeof( nexthop_grp ) ) );
   return message.take();
}

/// The links from 100 on are point-to-point.
bool hasNeighbours( Vel::U32 ifIndex ) { return ifIndex < 100; }

RouteFold folded( const std::vector< TestRoute > & routes ) {
   RouteFold fold( hasNeighbours );
   for ( const TestRoute & route : routes )
      fold.take( parsed( route ) );
   fold.end();
   return fold;
}

Vel::String nameOf( Vel::U32 ifIndex ) { return Vel::text( "et", ifIndex ); }

using Classes = std::vector< RouteClass >;

} // namespace

// ---- one route

TEST( RouteMessage, tellsPathsFromWhatIsConnectedLocalOrRefused ) {
   EXPECT_EQ( Kind::path, parsed( { "10.0.0.0/8", { { 1 } } } ).kind );
   EXPECT_EQ(
      Kind::path, parsed( { .destination = "10.0.0.0/8", .hops = { { 1 } }, .gateway = false } ).kind );
   EXPECT_EQ(
      Kind::connected,
      parsed(
         { .destination = "10.0.0.0/8", .hops = { { 1 } }, .protocol = RTPROT_KERNEL, .gateway = false } )
         .kind );
   EXPECT_EQ(
      Kind::path, parsed( { .destination = "::/0", .hops = { { 1 } }, .protocol = RTPROT_RA } ).kind );
   EXPECT_EQ(
      Kind::local, parsed( { .destination = "10.0.0.1/32", .hops = { { 1 } }, .type = RTN_LOCAL } ).kind );
   for ( const Vel::U8 type : { RTN_BLACKHOLE, RTN_UNREACHABLE, RTN_PROHIBIT, RTN_THROW } )
      EXPECT_EQ( Kind::refusal, parsed( { .destination = "10.0.0.0/8", .hops = {}, .type = type } ).kind );
}

TEST( RouteMessage, readsWeightsAndWaysThatAreDown ) {
   const RouteEntry route =
      parsed( { "10.0.0.0/8", { { 1, 3 }, { 2, 1, RTNH_F_DEAD }, { 3, 256, RTNH_F_LINKDOWN } } } );
   EXPECT_EQ( ( RouteHops{ { 1, 3, true }, { 2, 1, false }, { 3, 256, false } } ), route.hops );
}

TEST( RouteMessage, doesNoHarmWhenItIsCutShort ) {
   Bytes bytes = routeBytes( { "10.0.0.0/8", { { 1, 3 }, { 2, 1 } } } );
   const Vel::U32 whole = messageIn( bytes ).nlmsg_len;
   for ( Vel::U32 length = 0; length < whole; ++length ) {
      messageIn( bytes ).nlmsg_len = length;
      parseRouteEntry( messageIn( bytes ) );
      parseNextHop( messageIn( bytes ) );
   }
}

TEST( RuleMessage, tellsByWhatAPacketOfTheMachinesOwnIsSent ) {
   const auto basis = []( const Bytes & bytes ) { return parseRuleBasis( messageIn( bytes ) ); };
   for ( const Vel::U32 table : { 255u, 254u, 253u, 100u } )
      EXPECT_EQ( RuleBasis::nothing, basis( ruleBytes( table ) ) ) << table;
   EXPECT_EQ( RuleBasis::nothing, basis( ruleBytes( 100, []( fib_rule_hdr & h ) { h.dst_len = 8; } ) ) );
   EXPECT_EQ( RuleBasis::source, basis( ruleBytes( 254, []( fib_rule_hdr & h ) { h.src_len = 32; } ) ) );
   EXPECT_EQ( RuleBasis::more, basis( ruleBytes( 254, []( fib_rule_hdr & h ) { h.tos = 8; } ) ) );
   EXPECT_EQ( RuleBasis::more, basis( ruleBytes( 254, {}, FRA_FWMARK ) ) );
   EXPECT_EQ( RuleBasis::more, basis( ruleBytes( 0, {}, FRA_L3MDEV ) ) );
   EXPECT_EQ( RuleBasis::nothing, basis( routeBytes( { "10.0.0.0/8", { { 1 } } } ) ) );
}

// ---- classes

TEST( RouteFold, putsDestinationsThatAreReachedAlikeIntoOneClass ) {
   const Classes expected = {
      { { { { "et1" } } }, 2, { "10.0.0.0/8", "2001:db8::/32" } },
      { { { { "et1" }, { "et2", 2 } } }, 1, { "11.0.0.0/8 table 100" } } };
   EXPECT_EQ(
      expected, folded( { { "10.0.0.0/8", { { 1 } } },
                          { .destination = "11.0.0.0/8", .hops = { { 2, 2 }, { 1 } }, .table = 100 },
                          { "2001:db8::/32", { { 1 } } } } )
                   .classes( nameOf ) );
}

TEST( RouteFold, ordersTheWaysToADestinationByTheirMetric ) {
   const Classes expected = { { { { { "et1" } }, { { "et2" } }, {} }, 1, { "10.0.0.0/8" } } };
   EXPECT_EQ(
      expected, folded( { { "10.0.0.0/8", { { 2 } }, 20 },
                          { "10.0.0.0/8", { { 1 } }, 10 },
                          { .destination = "10.0.0.0/8", .hops = {}, .metric = 30, .type = RTN_BLACKHOLE },
                          { "10.0.0.0/8", { { 3 } }, 40 } } )
                   .classes( nameOf ) );
}

TEST( RouteFold, joinsWaysOfOneMetricThatAreToldByThemselves ) {
   const Classes expected = { { { { { "et1" }, { "et2" } } }, 1, { "2001:db8::/32" } } };
   EXPECT_EQ(
      expected, folded( { { "2001:db8::/32", { { 2 } }, 1024 }, { "2001:db8::/32", { { 1 } }, 1024 } } )
                   .classes( nameOf ) );
}

TEST( RouteFold, leavesOutWhatLeadsToNobodyElse ) {
   EXPECT_EQ(
      Classes(),
      folded( { { .destination = "10.0.0.0/8", .hops = {}, .type = RTN_UNREACHABLE },
                { .destination = "10.1.0.1/32", .hops = { { 1 } }, .type = RTN_LOCAL, .table = 255 },
                { .destination = "10.1.0.0/24",
                  .hops = { { 1 } },
                  .protocol = RTPROT_KERNEL,
                  .gateway = false } } )
         .classes( nameOf ) );
}

TEST( RouteFold, resolvesSharedNextHopsAndGroupsWithinGroups ) {
   RouteFold fold( hasNeighbours );
   const auto add = [&]( Bytes bytes ) { fold.nextHopIs( parseNextHop( messageIn( bytes ) ).value() ); };
   add( nextHopBytes( 1, 1 ) );
   add( nextHopBytes( 2, 2 ) );
   add( nextHopBytes( 10, 0, { { 1, 2, 0, 0 }, { 2, 0, 0, 0 } } ) );
   add( nextHopBytes( 11, 0, { { 10, 1, 0, 0 }, { 2, 4, 0, 0 } } ) );
   for ( const auto & [destination, id] :
         { std::pair( "10.1.0.0/16", 1u ), std::pair( "10.2.0.0/16", 10u ),
           std::pair( "10.3.0.0/16", 11u ) } )
      fold.take( parsed( { .destination = destination, .hops = {}, .nextHopId = id } ) );
   fold.end();
   const Classes expected = {
      { { { { "et1" } } }, 1, { "10.1.0.0/16" } },
      { { { { "et1", 3 }, { "et2", 1 } } }, 1, { "10.2.0.0/16" } },
      { { { { "et1", 6 }, { "et2", 2 }, { "et2", 5 } } }, 1, { "10.3.0.0/16" } } };
   EXPECT_EQ( expected, fold.classes( nameOf ) );
   EXPECT_FALSE( fold.unresolved() );
}

TEST( RouteFold, takesSharedNextHopsThatNobodyKnowsForWaysThatDoNotWorkAndForNoRefusal ) {
   RouteFold fold( hasNeighbours );
   const auto add = [&]( Bytes bytes ) { fold.nextHopIs( parseNextHop( messageIn( bytes ) ).value() ); };
   add( nextHopBytes( 1, 1 ) );
   add( nextHopBytes( 10, 0, { { 1, 0, 0, 0 }, { 7, 0, 0, 0 } } ) );
   add( nextHopBytes( 12, 0, { { 12, 0, 0, 0 } } ) ); // a circle
   fold.take( parsed( { .destination = "10.1.0.0/16", .hops = {}, .metric = 10, .nextHopId = 7 } ) );
   fold.take( parsed( { "10.1.0.0/16", { { 2 } }, 20 } ) );
   EXPECT_TRUE( fold.unresolved() );
   fold.take( parsed( { .destination = "10.2.0.0/16", .hops = {}, .nextHopId = 10 } ) );
   fold.take( parsed( { .destination = "10.3.0.0/16", .hops = {}, .nextHopId = 12 } ) );
   fold.end();
   const NextHop unknown{ "et0", 1, false };
   const Classes expected = {
      { { { unknown } }, 1, { "10.3.0.0/16" } },
      { { { unknown }, { { "et2" } } }, 1, { "10.1.0.0/16" } },
      { { { unknown, { "et1" } } }, 1, { "10.2.0.0/16" } } };
   EXPECT_EQ( expected, fold.classes( nameOf ) );
}

TEST( RouteFold, comesToAnEndWithAGroupThatIsManyTimesItself ) {
   RouteFold fold( hasNeighbours );
   const std::vector< nexthop_grp > sixteen( 16, { 12, 255, 0, 0 } );
   fold.nextHopIs( parseNextHop( messageIn( nextHopBytes( 12, 0, sixteen ) ) ).value() );
   fold.take( parsed( { .destination = "10.0.0.0/8", .hops = {}, .nextHopId = 12 } ) );
   fold.end();
   EXPECT_TRUE( fold.unresolved() );
   const Classes classes = fold.classes( nameOf );
   ASSERT_EQ( 1u, classes.size() );
   EXPECT_GT( 20000u, classes[0].choices.at( 0 ).size() );
   EXPECT_LT( 0u, classes[0].choices.at( 0 ).at( 0 ).weight );
}

TEST( RouteFold, leavesOutADestinationOfWhichNotAllWasRead ) {
   RouteFold fold( hasNeighbours );
   fold.take( parsed( { "10.0.0.0/8", { { 1 } } } ) );
   fold.take( parsed( { "11.0.0.0/8", { { 1 } } } ) );
   fold.drop();
   fold.end();
   EXPECT_EQ( ( Classes{ { { { { "et1" } } }, 1, { "10.0.0.0/8" } } } ), fold.classes( nameOf ) );
}

TEST( RouteFold, takesWhoIsOnALinkForConnectedWhoeverSaysSo ) {
   // As who is given an address makes it for his gateway; and a tunnel, where there is nobody but at its end.
   const Classes expected = { { { { { "et100" } } }, 1, { "10.2.0.0/16" } } };
   EXPECT_EQ(
      expected,
      folded(
         { { .destination = "192.0.2.1/32",
             .hops = { { 1 } },
             .protocol = RTPROT_DHCP,
             .gateway = false,
             .scope = RT_SCOPE_LINK },
           { .destination = "2001:db8::/64", .hops = { { 1 } }, .gateway = false },
           { .destination = "10.2.0.0/16", .hops = { { 100 } }, .gateway = false, .scope = RT_SCOPE_LINK } } )
         .classes( nameOf ) );
}

TEST( RouteFold, tellsRoutesForSomeSourcesFromThoseForAll ) {
   const Classes expected = {
      { { { { "et1" } } }, 1, { "::/0 from 2001:db8::/64" } }, { { { { "et2" } } }, 1, { "::/0" } } };
   EXPECT_EQ(
      expected, folded( { { .destination = "::/0", .hops = { { 1 } }, .source = "2001:db8::/64" },
                          { "::/0", { { 2 } } } } )
                   .classes( nameOf ) );
}

TEST( RouteFold, keepsTheWaysToADestinationThatIsWantedWhateverItIs ) {
   RouteFold fold( hasNeighbours );
   const RouteEntry route = parsed(
      { .destination = "10.1.0.0/24", .hops = { { 7 } }, .protocol = RTPROT_KERNEL, .gateway = false } );
   fold.want( route.key );
   fold.take( route );
   fold.end();
   EXPECT_EQ( ( std::vector< RouteWays >{ { { { 7 }, std::nullopt } } } ), fold.wanted( route.key ) );
   EXPECT_EQ( Classes(), fold.classes( nameOf ) );
}

TEST( RouteFold, tellsNoMoreClassesApartThanItHasRoomFor ) {
   RouteFold fold( hasNeighbours );
   for ( Vel::U32 i = 1; i <= RouteFold::mostClasses + 10; ++i ) {
      RouteEntry route = parsed( { "10.0.0.0/8", { { i } } } );
      route.key.table = i;
      fold.take( route );
   }
   fold.end();
   EXPECT_TRUE( fold.overfull() );
   EXPECT_EQ( RouteFold::mostClasses, fold.classes( nameOf ).size() );
}

// ---- questions

class Routes : public LinuxFault {
 protected:
   RouteAnswer asked( const Vel::String & address = "", const Vel::String & source = "" ) {
      std::optional< RouteAnswer > result;
      made->routesAsk( { address, source }, [&]( const RouteAnswer & answer ) {
         EXPECT_FALSE( result ) << "answered twice";
         result = answer;
      } );
      EXPECT_FALSE( result );
      for ( int i = 0; i < 100 && !result; ++i )
         turn();
      EXPECT_TRUE( result );
      return result.value_or( RouteAnswer() );
   }
};

TEST_F( Routes, areToldWithTheLinksBelowThem ) {
   kernel->links[3] = { .ifIndex = 3, .name = "bond0", .kind = "bond", .bondMode = 4 };
   kernel->links[2].master = 3;
   kernel->links[2].slaveKind = "bond";
   kernel->links[4] = { .ifIndex = 4, .name = "et1.7", .kind = "vlan", .lower = 1, .vlanId = 7 };
   kernel->nextHops = { nextHopBytes( 5, 3 ) };
   kernel->routes = {
      routeBytes( { "0.0.0.0/0", { { 1 } } } ),
      routeBytes( { .destination = "10.0.0.0/8", .hops = {}, .nextHopId = 5 } ),
      routeBytes( { "2001:db8::/32", { { 4 } } } ) };
   started();
   const RouteAnswer answer = asked();
   EXPECT_EQ( "", answer.table->problem );
   const Classes classes = {
      { { { { "et1" } } }, 1, { "0.0.0.0/0" } },
      { { { { "bond0" } } }, 1, { "10.0.0.0/8" } },
      { { { { "et1.7" } } }, 1, { "2001:db8::/32" } } };
   EXPECT_EQ( classes, answer.table->classes );
   const std::vector< RoutedLink > links = {
      { "et1", true, false, {} },
      { "et2", true, false, {} },
      { "bond0", true, true, { { "et2" } } },
      { "et1.7", true, false, { { "et1" } }, Sharing::together, false, false, true } };
   EXPECT_EQ( links, answer.table->links );
   EXPECT_FALSE( answer.way );
}

TEST_F( Routes, leadOverPortsOfWhichThoseThatAreUpSayHowFastTheyAre ) {
   kernel->links[2].flags = 0;
   kernel->links[3] = { .ifIndex = 3, .name = "bond0", .kind = "bond" };
   kernel->speeds = { { "et1", 1e9 }, { "et2", 1e9 }, { "bond0", 2e9 }, { "nonesuch", 1e9 } };
   started();
   EXPECT_EQ( 1e9, made->portSpeed( "et1" ) );
   for ( const char * other : { "et2", "bond0", "nonesuch" } )
      EXPECT_EQ( std::nullopt, made->portSpeed( other ) ) << other;
   asked();
   made->stop();
   EXPECT_EQ( std::nullopt, made->portSpeed( "et1" ) );
}

TEST_F( Routes, tellHowABondUsesItsMembers ) {
   struct Row {
      const char * kind;
      std::optional< Vel::U8 > mode;
      Sharing sharing;
   };
   const std::vector< Row > rows = {
      { "bond", 0, Sharing::together },
      { "bond", 1, Sharing::oneAtATime },
      { "bond", 3, Sharing::copied },
      { "bond", 4, Sharing::together },
      { "bond", std::nullopt, Sharing::unknown },
      { "team", std::nullopt, Sharing::unknown } };
   for ( Vel::U32 i = 0; i < rows.size(); ++i ) {
      const Vel::U32 member = 10 + i, bond = 20 + i;
      kernel->links[member] = {
         .ifIndex = member, .name = Vel::text( "et", member ), .master = bond, .slaveKind = rows[i].kind };
      kernel->links[member].slaveState = Vel::U8( i % 2 );
      kernel->links[bond] = {
         .ifIndex = bond, .name = Vel::text( "bond", i ), .kind = rows[i].kind, .bondMode = rows[i].mode };
   }
   started();
   const RouteAnswer answer = asked();
   ASSERT_EQ( 2 + 2 * rows.size(), answer.table->links.size() );
   for ( std::size_t i = 0; i < rows.size(); ++i ) {
      SCOPED_TRACE( i );
      const RoutedLink &member = answer.table->links[2 + i], &bond = answer.table->links[2 + rows.size() + i];
      EXPECT_TRUE( bond.aggregate );
      EXPECT_EQ( rows[i].sharing, bond.sharing );
      EXPECT_EQ( i == 1 || i == 3, member.standby );
   }
}

TEST_F( Routes, leadThroughTheMembersOfAVlanOfABridge ) {
   kernel->links[3] = { .ifIndex = 3, .name = "br0", .kind = "bridge", .vlanFiltering = true };
   kernel->links[4] = { .ifIndex = 4, .name = "br0.10", .kind = "vlan", .lower = 3, .vlanId = 10 };
   for ( const Vel::U32 port : { 1u, 2u } ) {
      kernel->links[port].master = 3;
      kernel->links[port].slaveKind = "bridge";
   }
   kernel->vlans = { { 1, { { 10, 10 } } }, { 2, { { 20, 20 } } }, { 3, { { 10, 10 } } } };
   started();
   const RouteAnswer answer = asked();
   ASSERT_EQ( 4u, answer.table->links.size() );
   EXPECT_EQ( ( RoutedLink{ "br0", true, false, { { "et1", "et2" } } } ), answer.table->links[2] );
   EXPECT_EQ(
      ( RoutedLink{ "br0.10", true, false, { { "et1", "et2" }, { "et1" } } } ), answer.table->links[3] );
}

TEST_F( Routes, goWithTheLinkBelowAVlanDeviceThatIsBoundToIt ) {
   kernel->links[3] = { .ifIndex = 3, .name = "br0", .kind = "bridge" };
   kernel->links[4] = { .ifIndex = 4, .name = "et1.7", .kind = "vlan", .lower = 1, .vlanId = 7 };
   kernel->links[5] = kernel->links[4];
   kernel->links[5].ifIndex = 5;
   kernel->links[5].name = "loose";
   kernel->links[5].looseBinding = true;
   kernel->links[6] = { .ifIndex = 6, .name = "mac0", .kind = "macvlan", .lower = 1 };
   kernel->links[7] = { .ifIndex = 7, .name = "br0.7", .kind = "vlan", .lower = 3, .vlanId = 7 };
   started();
   std::set< std::string > bound;
   const RouteAnswer answer = asked();
   for ( const RoutedLink & link : answer.table->links )
      if ( link.setDownWithBelow )
         bound.insert( link.name );
   EXPECT_EQ( std::set< std::string >{ "et1.7" }, bound );
}

TEST_F( Routes, leadThroughTheBridgesOwnVlanWithoutATagThatItKnows ) {
   constexpr Vel::U16 own = 30;
   kernel->links[3] = {
      .ifIndex = 3, .name = "br0", .kind = "bridge", .vlanFiltering = true, .vlanProtocol = ETH_P_8021AD };
   kernel->links[4] = { .ifIndex = 4, .name = "mac0", .kind = "macvlan", .lower = 3 };
   // The bridge takes a tag of the other kind for none.
   kernel->links[5] = { .ifIndex = 5, .name = "br0.20", .kind = "vlan", .lower = 3, .vlanId = 20 };
   kernel->links[6] = { .ifIndex = 6, .name = "mac0.20", .kind = "vlan", .lower = 4, .vlanId = 20 };
   for ( const Vel::U32 port : { 1u, 2u } ) {
      kernel->links[port].master = 3;
      kernel->links[port].slaveKind = "bridge";
   }
   kernel->vlans = { { 1, { { own, own } } }, { 2, { { 20, 20 } } }, { 3, { { own, own, true } } } };
   started();
   const RouteAnswer answer = asked();
   ASSERT_EQ( 6u, answer.table->links.size() );
   const std::vector< std::vector< std::string > > needs = { { "et1", "et2" }, { "et1" } };
   for ( const std::size_t bridgeOrOnIt : { 2u, 3u, 4u } )
      EXPECT_EQ( needs, answer.table->links[bridgeOrOnIt].needs ) << answer.table->links[bridgeOrOnIt].name;
   EXPECT_EQ(
      ( RoutedLink{ "mac0.20", true, false, { { "mac0" } }, Sharing::together, false, false, true } ),
      answer.table->links[5] );
}

TEST_F( Routes, leadThroughAnyPortOfABridgeWhoseOwnVlanHasNone ) {
   kernel->links[3] = { .ifIndex = 3, .name = "br0", .kind = "bridge", .vlanFiltering = true };
   for ( const Vel::U32 port : { 1u, 2u } ) {
      kernel->links[port].master = 3;
      kernel->links[port].slaveKind = "bridge";
   }
   kernel->vlans = { { 1, { { 20, 20 } } }, { 2, { { 20, 20 } } } };
   started();
   EXPECT_EQ( ( RoutedLink{ "br0", true, false, { { "et1", "et2" } } } ), asked().table->links.at( 2 ) );
}

TEST_F( Routes, giveTheWayToAnAddressWithAllItsPreferences ) {
   kernel->routes = {
      routeBytes( { "10.0.0.0/8", { { 1 } }, 10 } ), routeBytes( { "10.0.0.0/8", { { 2 } }, 20 } ) };
   kernel->ways = {
      { "10.1.2.3", kernel->routes.front() },
      { "10.9.9.9", routeBytes( { .destination = "10.9.9.9/32", .hops = { { 1 } }, .type = RTN_LOCAL } ) },
      { "11.0.0.1", routeBytes( { "11.0.0.0/8", { { 2 } } } ) } };
   started();
   AddressWay way = asked( "10.1.2.3" ).way.value();
   EXPECT_EQ( ( AddressWay{ "", false, "10.0.0.0/8", { { { "et1" } }, { { "et2" } } } } ), way );
   EXPECT_TRUE( asked( "10.9.9.9" ).way->local );
   // It has gone since.
   way = asked( "11.0.0.1" ).way.value();
   EXPECT_EQ( ( AddressWay{ "", false, "11.0.0.0/8", { { { "et2" } } } } ), way );
   way = asked( "12.0.0.1" ).way.value();
   EXPECT_TRUE( way.problem.starts_with( "there is no route to 12.0.0.1 (" ) ) << way.problem;
   EXPECT_EQ( "\"nobody\" is no address", asked( "nobody" ).way->problem );
}

TEST_F( Routes, tellWhyThereIsNoWayWhereARouteDropsPackets ) {
   kernel->refusals = { { "10.1.2.3", EINVAL }, { "2001:db8::1", EHOSTUNREACH }, { "10.1.2.4", EACCES } };
   started();
   EXPECT_EQ( "a blackhole route drops what is sent to 10.1.2.3", asked( "10.1.2.3" ).way->problem );
   EXPECT_EQ(
      "a blackhole route drops what is sent to 10.1.2.3", asked( "10.1.2.3", "192.0.2.1" ).way->problem );
   EXPECT_EQ(
      "an unreachable route turns back what is sent to 2001:db8::1", asked( "2001:db8::1" ).way->problem );
   EXPECT_EQ( "a prohibit route turns back what is sent to 10.1.2.4", asked( "10.1.2.4" ).way->problem );
}

TEST_F( Routes, giveAWayWithDoubtWhereRulesChoose ) {
   kernel->routes = { routeBytes( { "10.0.0.0/8", { { 1 } } } ) };
   kernel->ways = {
      { "10.1.2.3", kernel->routes.front() }, { "10.1.2.3 from 192.0.2.1", kernel->routes.front() } };
   kernel->rules = { ruleBytes( 255 ), ruleBytes( 254 ), ruleBytes( 253 ) };
   started();
   EXPECT_EQ( "", asked( "10.1.2.3" ).way->doubt );
   kernel->rules.push_back( ruleBytes( 100, []( fib_rule_hdr & header ) { header.src_len = 32; } ) );
   const AddressWay way = asked( "10.1.2.3" ).way.value();
   EXPECT_EQ(
      "rules choose between routing tables by the source of its packets, which is not known", way.doubt );
   EXPECT_EQ( ( Choices{ { { "et1" } } } ), way.choices );
   EXPECT_EQ( "", asked( "10.1.2.3", "192.0.2.1" ).way->doubt );
   kernel->rules.push_back( ruleBytes( 100, {}, FRA_FWMARK ) );
   EXPECT_EQ(
      "rules choose between routing tables by more than the addresses of its packets",
      asked( "10.1.2.3", "192.0.2.1" ).way->doubt );
}

TEST_F( Routes, giveTheWayFromTheSourceIfThereIsOne ) {
   kernel->routes = { routeBytes( { "10.0.0.0/8", { { 1 } } } ), routeBytes( { "0.0.0.0/0", { { 2 } } } ) };
   kernel->ways = {
      { "10.1.2.3", kernel->routes.front() }, { "10.1.2.3 from 192.0.2.1", kernel->routes.back() } };
   started();
   EXPECT_EQ( "10.0.0.0/8", asked( "10.1.2.3" ).way->destination );
   EXPECT_EQ( "0.0.0.0/0", asked( "10.1.2.3", "192.0.2.1" ).way->destination );
   EXPECT_EQ( "10.0.0.0/8", asked( "10.1.2.3", "192.0.2.9" ).way->destination );
   EXPECT_EQ( "10.0.0.0/8", asked( "10.1.2.3", "2001:db8::1" ).way->destination );
}

TEST_F( Routes, areKnownWhereSharedNextHopsAreNot ) {
   kernel->routes = { routeBytes( { "0.0.0.0/0", { { 1 } } } ) };
   kernel->refused = []( const nlmsghdr & request ) {
      return request.nlmsg_type == RTM_GETNEXTHOP ? EOPNOTSUPP : 0;
   };
   started();
   EXPECT_EQ( "", asked().table->problem );
   EXPECT_EQ( 1u, asked().table->classes.size() );
}

TEST_F( Routes, thatCannotBeReadAreMissingAndTheOthersThere ) {
   kernel->routes = { routeBytes( { "0.0.0.0/0", { { 1 } } } ) };
   kernel->refused = []( const nlmsghdr & request ) {
      const auto header = fixedHeader< rtmsg >( request );
      return request.nlmsg_type == RTM_GETROUTE && header->rtm_family == AF_INET6 ? ENOMEM : 0;
   };
   started();
   const RouteAnswer answer = asked();
   EXPECT_EQ( "Cannot allocate memory", answer.table->problem );
   EXPECT_EQ( 1u, answer.table->classes.size() );
   EXPECT_EQ( 2u, answer.table->links.size() );
}

TEST_F( Routes, areMissingWhenSharedNextHopsCannotBeRead ) {
   kernel->refused = []( const nlmsghdr & request ) {
      return request.nlmsg_type == RTM_GETNEXTHOP ? ENOMEM : 0;
   };
   started();
   EXPECT_EQ( "Cannot allocate memory", asked().table->problem );
}

TEST_F( Routes, areMissingWhenASharedNextHopIsNotKnown ) {
   kernel->routes = { routeBytes( { .destination = "10.0.0.0/8", .hops = {}, .nextHopId = 5 } ) };
   started();
   EXPECT_EQ( "not all next hops that they share are known", asked().table->problem );
}

TEST_F( Routes, doNotGiveAWayOfWhichTheRestCouldNotBeRead ) {
   kernel->routes = { routeBytes( { "10.0.0.0/8", { { 1 } }, 10 } ) };
   kernel->ways = { { "10.1.2.3", kernel->routes.front() } };
   kernel->refused = []( const nlmsghdr & request ) {
      const auto header = fixedHeader< rtmsg >( request );
      return request.nlmsg_type == RTM_GETROUTE && ( request.nlmsg_flags & NLM_F_DUMP ) != 0 &&
                   header->rtm_family == AF_INET
                ? ENOMEM
                : 0;
   };
   started();
   EXPECT_EQ( "Cannot allocate memory", asked( "10.1.2.3" ).way->problem );
}

TEST_F( Routes, areAnsweredWhenThereIsNoChannel ) {
   started();
   kernel->opens = false;
   const RouteAnswer answer = asked( "10.0.0.1" );
   EXPECT_EQ( "cannot open a netlink socket: Too many open files", answer.table->problem );
   EXPECT_FALSE( answer.way->problem.empty() );
}

TEST_F( Routes, sayThatTheyHaveChangedMeanwhileWhenTheKernelSaysSoEachTime ) {
   started();
   kernel->interruptedDumps = 1000;
   EXPECT_EQ( "they have changed while they were read", asked().table->problem );
   EXPECT_EQ( 2 * RouteReader::mostReads, kernel->dumps[RTM_GETROUTE] );
   EXPECT_EQ( RouteReader::mostReads, kernel->dumps[RTM_GETNEXTHOP] );
   kernel->interruptedDumps = 1;
   EXPECT_EQ( "", asked().table->problem );
}

TEST_F( Routes, areGivenUpWhenTheKernelDoesNotAnswer ) {
   started();
   kernel->answers = false;
   std::optional< RouteAnswer > answer;
   made->routesAsk( { "" }, [&]( const RouteAnswer & given ) { answer = given; } );
   runFor( Switch::routePatience - 0.5 );
   EXPECT_FALSE( answer );
   runFor( 1 );
   ASSERT_TRUE( answer );
   EXPECT_EQ( "they cannot be read within 3 s", answer->table->problem );
   EXPECT_EQ( 2u, answer->table->links.size() );
   kernel->answers = true;
   EXPECT_EQ( "", asked().table->problem );
}

TEST_F( Routes, areReadOnceForAllWhoAskMeanwhile ) {
   started();
   int answers = 0;
   for ( int i = 0; i < 100; ++i )
      made->routesAsk( { "" }, [&]( const RouteAnswer & ) { ++answers; } );
   for ( int i = 0; i < 20; ++i )
      turn();
   EXPECT_EQ( 100, answers );
   EXPECT_EQ( 2, kernel->dumps[RTM_GETROUTE] );
}

TEST_F( Routes, areReadAPartInEachTurn ) {
   for ( int i = 0; i < 1000; ++i )
      kernel->routes.push_back( routeBytes( { "10.0.0.0/8", { { 1 } } } ) );
   started();
   bool answered = false;
   made->routesAsk( { "" }, [&]( const RouteAnswer & ) { answered = true; } );
   int turns = 0;
   for ( ; !answered && turns < 1000; ++turns )
      turn();
   // The fake kernel gives a route a datagram.
   EXPECT_GE( turns, 1000 / RouteReader::datagramsPerTurn );
   EXPECT_LT( turns, 200 );
}

TEST_F( Routes, areOfNoConcernAfterTheEnd ) {
   started();
   made->routesAsk( { "" }, []( const RouteAnswer & ) { ADD_FAILURE() << "somebody is answered"; } );
   turn();
   made->stop();
   for ( int i = 0; i < 10; ++i )
      turn();
}

} // namespace DataPlane::Linux
