#include "DataPlane/Linux/LostState.h"
#include "DataPlane/Linux/MessagesTest.h"

#include <gtest/gtest.h>

#include <random>

namespace DataPlane::Linux {
namespace {

const NameOfLink names = []( Vel::U32 ifIndex ) {
   return ifIndex == 0 ? Vel::String() : Vel::text( "et", ifIndex );
};
const LinkOfName numbers = []( const Vel::String & name ) {
   return name.rfind( "et", 0 ) == 0 ? static_cast< Vel::U32 >( std::stoul( name.substr( 2 ) ) ) : 0;
};

Route route( const char * destination, Vel::U8 length, std::vector< Leg > legs ) {
   Route result;
   result.destination = address( destination );
   result.family = result.destination.family;
   result.destinationLength = length;
   result.source = anyAddress( result.family );
   result.table = 254;
   result.protocol = RTPROT_BOOT;
   result.type = RTN_UNICAST;
   result.legs = std::move( legs );
   return result;
}

Leg leg( const char * device, const char * gateway = nullptr ) {
   Leg result;
   result.device = device;
   if ( gateway )
      result.gateway = address( gateway );
   return result;
}

LinkAddress linkAddress( const char * text ) {
   LinkAddress result;
   result.address = address( text );
   result.prefixLength = 64;
   return result;
}

/// Routes with everything that a route may have.
std::vector< Route > allRoutes() {
   Route full = route( "2001:db8::", 32, { leg( "et1", "fe80::1" ) } );
   full.source = address( "2001:db8:1::" );
   full.sourceLength = 48;
   full.table = 1000;
   full.tos = 16;
   full.priority = 77;
   full.expires = 300;
   full.scope = 0;
   full.others = {
      { RTA_PREFSRC, Vel::String( "0123456789abcdef" ) }, { RTA_METRICS, Vel::String( "\0\xff\x01 ", 4 ) } };
   full.legs[0].flags = RTNH_F_ONLINK;
   full.legs[0].others = {
      { RTA_ENCAP_TYPE, Vel::String( "\1\0", 2 ) }, { RTA_ENCAP, Vel::String( "abcd" ) } };
   Route several =
      route( "10.0.0.0", 8, { leg( "et1", "192.0.2.1" ), leg( "et2", "fe80::9" ), leg( "et3" ) } );
   several.legs[1].weight = 4;
   several.legs[2].flags = RTNH_F_ONLINK;
   several.legs[2].others = { { RTA_FLOW, Vel::String( "\1\2\3\4" ) } };
   return {
      full, several, route( "0.0.0.0", 0, { leg( "et1", "192.0.2.1" ) } ), route( "::", 0, { leg( "et1" ) } ),
      route( "10.9.0.0", 16, { leg( "" ) } ) };
}

TEST( Route, isTheSameAfterARoundThroughAMessage ) {
   for ( const Route & before : allRoutes() ) {
      SCOPED_TRACE( Vel::text( before.destination, "/", before.destinationLength ) );
      const auto request = routeRequest( before, RouteSet::ifAbsent, numbers );
      ASSERT_TRUE( request );
      EXPECT_EQ( NLM_F_EXCL, messageIn( *request ).nlmsg_flags & ( NLM_F_EXCL | NLM_F_REPLACE ) );
      std::optional< Route > after = parseRoute( messageIn( *request ), names );
      ASSERT_TRUE( after );
      // The kernel tells the time that is left in another attribute than it is told it.
      after->expires = before.expires;
      EXPECT_EQ( before, *after );
   }
}

TEST( Route, replacementTakesThePlaceOfWhatIsThere ) {
   const auto request = routeRequest( allRoutes()[1], RouteSet::replace, numbers );
   EXPECT_EQ( NLM_F_REPLACE, messageIn( *request ).nlmsg_flags & ( NLM_F_EXCL | NLM_F_REPLACE ) );
}

TEST( Route, cannotBeSetWithoutOneOfItsLinks ) {
   EXPECT_FALSE( routeRequest( route( "10.0.0.0", 8, { leg( "gone" ) } ), RouteSet::ifAbsent, numbers ) );
   EXPECT_FALSE(
      routeRequest( route( "10.0.0.0", 8, { leg( "et1" ), leg( "gone" ) } ), RouteSet::ifAbsent, numbers ) );
}

TEST( Route, lifetimeIsInTicksOfTheKernel ) {
   rtmsg header{};
   header.rtm_family = AF_INET6;
   rta_cacheinfo times{};
   times.rta_expires = 12345;
   MessageBuilder message( RTM_NEWROUTE, 0 );
   message.header( header ).attribute( RTA_OIF, Vel::U32( 1 ) );
   message.attribute(
      RTA_CACHEINFO, std::string_view( reinterpret_cast< const char * >( &times ), sizeof times ) );
   const Bytes bytes = message.take();
   EXPECT_EQ( 123u, parseRoute( messageIn( bytes ), names )->expires );
}

TEST( Route, sharedNextHopIsReplacedByWhatItStandsFor ) {
   rtmsg header{};
   header.rtm_family = AF_INET;
   MessageBuilder message( RTM_NEWROUTE, 0 );
   message.header( header ).attribute( RTA_NH_ID, Vel::U32( 9 ) ).attribute( RTA_OIF, Vel::U32( 1 ) );
   const Bytes bytes = message.take();
   EXPECT_TRUE( parseRoute( messageIn( bytes ), names )->others.empty() );
}

TEST( Route, marksOfTheMomentAreNotKept ) {
   rtmsg header{};
   header.rtm_family = AF_INET;
   header.rtm_flags = RTNH_F_DEAD | RTNH_F_LINKDOWN | RTNH_F_ONLINK | RTM_F_NOTIFY;
   const Bytes bytes =
      MessageBuilder( RTM_NEWROUTE, 0 ).header( header ).attribute( RTA_OIF, Vel::U32( 1 ) ).take();
   EXPECT_EQ( RTNH_F_ONLINK, parseRoute( messageIn( bytes ), names )->legs[0].flags );
}

TEST( Route, whatIsNoEntryOfATableIsNoRoute ) {
   const auto parsed = []( Vel::U16 type, Vel::U8 family, unsigned flags, unsigned attribute,
                           Vel::U8 length = 0 ) {
      rtmsg header{};
      header.rtm_family = family;
      header.rtm_flags = flags;
      header.rtm_dst_len = length;
      const Bytes bytes =
         MessageBuilder( type, 0 ).header( header ).attribute( attribute, Vel::U32( 1 ) ).take();
      return parseRoute( messageIn( bytes ), names ).has_value();
   };
   EXPECT_TRUE( parsed( RTM_NEWROUTE, AF_INET, 0, RTA_OIF ) );
   EXPECT_FALSE( parsed( RTM_NEWROUTE, AF_INET, RTM_F_CLONED, RTA_OIF ) );
   EXPECT_FALSE( parsed( RTM_NEWROUTE, AF_INET, 0, RTA_IIF ) );
   EXPECT_FALSE( parsed( RTM_NEWROUTE, AF_INET, 0, RTA_MULTIPATH ) );
   EXPECT_FALSE( parsed( RTM_NEWROUTE, AF_BRIDGE, 0, RTA_OIF ) );
   EXPECT_FALSE( parsed( RTM_NEWROUTE, AF_INET, 0, RTA_OIF, 33 ) );
   EXPECT_FALSE( parsed( RTM_DELROUTE, AF_INET, 0, RTA_OIF ) );
}

TEST( Route, isLostUnlessItComesBackByItself ) {
   Route one = route( "10.0.0.0", 8, { leg( "et1" ), leg( "et2" ) } );
   EXPECT_TRUE( isLost( one, { "et1" } ) && isLost( one, { "et2" } ) );
   EXPECT_FALSE( isLost( one, { "et3" } ) );
   for ( const Vel::U8 protocol : { 0, RTPROT_BOOT, RTPROT_STATIC, RTPROT_DHCP, 77, 250 } ) {
      one.protocol = protocol;
      EXPECT_TRUE( isLost( one, { "et1" } ) ) << int( protocol );
   }
   for ( const Vel::U8 protocol :
         { RTPROT_KERNEL, RTPROT_REDIRECT, RTPROT_RA, RTPROT_ZEBRA, RTPROT_BGP, RTPROT_OSPF, 84, 190, 191,
           193, 194, 195, 196, 197, 198 } ) {
      one.protocol = protocol;
      EXPECT_FALSE( isLost( one, { "et1" } ) ) << int( protocol );
   }
}

TEST( LinkAddress, isTheSameAfterARoundThroughAMessage ) {
   LinkAddress full = linkAddress( "2001:db8::1" );
   full.peer = address( "2001:db8::2" );
   full.flags = IFA_F_NODAD | IFA_F_NOPREFIXROUTE;
   full.valid = 1000;
   full.preferred = 0;
   full.metric = 5;
   full.protocol = 9;
   for ( const LinkAddress & before : { full, linkAddress( "2001:db8::7" ), linkAddress( "fe80::1" ) } ) {
      const Bytes bytes = addressRequest( before, 3 );
      EXPECT_EQ( before, parseLostAddress( messageIn( bytes ), 3 ) );
      EXPECT_FALSE( parseLostAddress( messageIn( bytes ), 4 ) );
   }
}

TEST( LinkAddress, marksOfTheMomentAreNotKept ) {
   LinkAddress given = linkAddress( "2001:db8::1" );
   given.flags = IFA_F_PERMANENT | IFA_F_TENTATIVE | IFA_F_DEPRECATED | IFA_F_NODAD;
   const Bytes bytes = addressRequest( given, 3 );
   EXPECT_EQ( Vel::U32( IFA_F_NODAD ), parseLostAddress( messageIn( bytes ), 3 )->flags );
}

TEST( LinkAddress, thoseThatTheKernelMakesAreNotLost ) {
   for ( const Vel::U8 protocol : { IFAPROT_KERNEL_LO, IFAPROT_KERNEL_RA, IFAPROT_KERNEL_LL } ) {
      LinkAddress made = linkAddress( "2001:db8::1" );
      made.protocol = protocol;
      const Bytes bytes = addressRequest( made, 3 );
      EXPECT_FALSE( parseLostAddress( messageIn( bytes ), 3 ) );
   }
   LinkAddress temporary = linkAddress( "2001:db8::1" );
   temporary.flags = IFA_F_TEMPORARY;
   const Bytes bytes = addressRequest( temporary, 3 );
   EXPECT_FALSE( parseLostAddress( messageIn( bytes ), 3 ) );
}

TEST( LinkAddress, thoseOfVersion4StayWithTheirLink ) {
   LinkAddress stays = linkAddress( "192.0.2.1" );
   stays.prefixLength = 24;
   const Bytes bytes = addressRequest( stays, 3 );
   EXPECT_FALSE( parseLostAddress( messageIn( bytes ), 3 ) );
}

LostState everything() {
   LinkAddress full = linkAddress( "2001:db8::1" );
   full.peer = address( "2001:db8::2" );
   full.scope = 253;
   full.flags = 512;
   full.valid = 1000;
   full.preferred = 500;
   full.metric = 5;
   full.protocol = 9;
   Neighbour neighbour;
   neighbour.address = address( "192.0.2.7" );
   neighbour.linkAddress = Vel::String( "\2\0\0\0\0\7", 6 );
   neighbour.state = NUD_PERMANENT;
   Neighbour proxy;
   proxy.address = address( "2001:db8::9" );
   proxy.flags = NTF_PROXY | NTF_ROUTER;
   proxy.protocol = 77;
   Neighbour managed;
   managed.address = address( "192.0.2.8" );
   managed.moreFlags = NTF_EXT_MANAGED;
   return {
      1700000000.25,
      { { full, linkAddress( "2001:db8::7" ) }, { neighbour, proxy } },
      { { "et1.100", 7, false, { { linkAddress( "2001:db8:1::1" ) }, { managed } } },
        { "et1.200", 8, true, {} } },
      allRoutes() };
}

TEST( LostState, isTheSameAfterARoundThroughItsText ) {
   const LostStateRead read = lostStateFrom( textOf( everything() ) );
   ASSERT_TRUE( read.outcome.ok() ) << read.outcome.text();
   EXPECT_EQ( everything(), read.state );
}

TEST( LostState, textCanBeRead ) {
   LostState state = everything();
   state.at = 1700000000;
   state.own.addresses = { linkAddress( "2001:db8::1" ) };
   state.routes = { route( "10.0.0.0", 8, { leg( "et1", "192.0.2.1" ) } ) };
   EXPECT_EQ(
      "address 2001:db8::1/64 scope=0 flags=0 valid=forever preferred=forever protocol=0\n"
      "neighbour 192.0.2.7 lladdr=020000000007 state=128 protocol=0\n"
      "neighbour 2001:db8::9 state=0 flags=136 protocol=77\n"
      "follower et1.100 index=7\n"
      "address 2001:db8:1::1/64 scope=0 flags=0 valid=forever preferred=forever protocol=0\n"
      "neighbour 192.0.2.8 state=0 moreflags=1 protocol=0\n"
      "follower et1.200 index=8 down\n"
      "route inet 10.0.0.0/8 table=254 protocol=3 scope=0 type=1 leg=et1 via=192.0.2.1\n",
      textOf( state ) );
   state.routes[0].expires = 60;
   EXPECT_EQ( 0u, textOf( state ).find( "at 1.7e+09\n" ) );
}

TEST( LostState, nothingIsTheEmptyText ) {
   EXPECT_EQ( "", textOf( { 5, {}, {}, {} } ) );
   EXPECT_EQ( "", textOf( { 5, {}, { { "et1.100", 7, false, {} } }, {} } ) );
   EXPECT_TRUE( lostStateFrom( "" ).outcome.ok() );
}

TEST( LostState, textThatIsNoneIsRefusedWithItsLine ) {
   struct Row {
      const char * text;
      const char * error;
   };
   const Vel::String good = "route inet 10.0.0.0/8 table=254 leg=et1\n";
   const Row rows[] = {
      { "nonsense\n", "cannot read \"nonsense\"" },
      { "at never\n", "cannot read \"never\"" },
      { "address\n", "cannot read \"\"" },
      { "address 2001:db8::1\n", "cannot read \"\"" },
      { "address 2001:db8::1/129\n", "cannot read \"2001:db8::1/129\"" },
      { "address 2001:db8::1/64 metric=-1\n", "cannot read \"-1\"" },
      { "address 2001:db8::1/64 scope=256\n", "cannot read \"256\"" },
      { "address 2001:db8::1/64 color=red\n", "cannot read \"color=red\"" },
      { "neighbour nowhere\n", "cannot read \"nowhere\"" },
      { "neighbour 192.0.2.1 lladdr=0\n", "cannot read \"0\"" },
      { "neighbour 192.0.2.1 state=65536\n", "cannot read \"65536\"" },
      { "neighbour 192.0.2.1 up\n", "cannot read \"up\"" },
      { "follower et1.100\n", "cannot read \"follower without a name or a number\"" },
      { "follower et1.100 index=0\n", "cannot read \"follower without a name or a number\"" },
      { "follower et1.100 index=5 up\n", "cannot read \"up\"" },
      { "route 10.0.0.0/8 leg=et1\n", "cannot read \"10.0.0.0/8\"" },
      { "route inet 2001:db8::/32 leg=et1\n", "cannot read \"inet\"" },
      { "route inet 10.0.0.0/8 from=2001:db8::/32 leg=et1\n", "cannot read \"inet\"" },
      { "route inet 10.0.0.0/8\n", "cannot read \"route without a leg\"" },
      { "route inet 10.0.0.0/8 a7=0 leg=et1\n", "cannot read \"0\"" },
      { "route inet 10.0.0.0/8 a7=0g leg=et1\n", "cannot read \"0g\"" },
      { "route inet 10.0.0.0/8 a0=00 leg=et1\n", "cannot read \"00\"" },
      { "route inet 10.0.0.0/8 leg=et1 table=4\n", "cannot read \"table=4\"" },
      { "route inet 10.0.0.0/8 leg=et1 via=nowhere\n", "cannot read \"nowhere\"" } };
   for ( const Row & row : rows ) {
      SCOPED_TRACE( row.text );
      EXPECT_EQ(
         Vel::text( "line 2 of the saved state: ", row.error ),
         lostStateFrom( good + row.text ).outcome.text() );
   }
}

TEST( LostState, damagedTextIsReadOrRefusedButDoesNoHarm ) {
   std::mt19937 dice( 5 );
   const Vel::String whole = textOf( everything() );
   for ( int i = 0; i < 20000; ++i ) {
      Vel::String text = whole.substr( 0, dice() % whole.size() );
      for ( unsigned changes = dice() % 4; changes > 0 && !text.empty(); --changes )
         text[dice() % text.size()] = static_cast< char >( dice() % 256 );
      const LostStateRead read = lostStateFrom( text );
      for ( const Route & one : read.state.routes )
         routeRequest( one, RouteSet::ifAbsent, []( const Vel::String & ) { return Vel::U32( 1 ); } );
      for ( const LinkAddress & one : read.state.own.addresses )
         addressRequest( one, 1 );
      for ( const Neighbour & one : read.state.own.neighbours )
         neighbourRequest( one, 1, NeighbourSet::replace );
   }
}

TEST( LostState, lifetimesAreShorterByWhatHasGoneBy ) {
   LostState state{
      1000,
      { { linkAddress( "2001:db8::1" ), linkAddress( "2001:db8::2" ), linkAddress( "2001:db8::3" ) }, {} },
      { { "et1.100", 7, false, { { linkAddress( "2001:db8:1::1" ) }, {} } } },
      { route( "10.0.0.0", 8, { leg( "et1" ) } ), route( "11.0.0.0", 8, { leg( "et1" ) } ) } };
   state.own.addresses[1].valid = 100;
   state.own.addresses[1].preferred = 50;
   state.own.addresses[2].valid = 60;
   state.own.addresses[2].preferred = 60;
   state.routes[1].expires = 30;
   state.followers[0].lost.addresses[0].valid = 100;
   const LostState restored = restoredAt( state, 1060 );
   EXPECT_EQ( 40u, restored.followers[0].lost.addresses[0].valid );
   EXPECT_EQ( 40u, restoredAt( restored, 1060 ).followers[0].lost.addresses[0].valid );
   ASSERT_EQ( 2u, restored.own.addresses.size() );
   EXPECT_EQ( state.own.addresses[0], restored.own.addresses[0] );
   EXPECT_EQ( 40u, restored.own.addresses[1].valid );
   EXPECT_EQ( 0u, restored.own.addresses[1].preferred );
   ASSERT_EQ( 1u, restored.routes.size() );
   EXPECT_EQ( 100u, restoredAt( state, 900 ).own.addresses[1].valid );
}

/// As it was written before there were neighbours and followers.
TEST( LostState, textOfAnEarlierVersionIsOfTheLinkItself ) {
   const LostStateRead read =
      lostStateFrom( "at 1700000000.5\n"
                     "address 2001:db8::1/64 scope=0 flags=2 valid=1000 preferred=500 protocol=0\n"
                     "route inet 10.0.0.0/8 table=254 protocol=3 scope=0 type=1 leg=et1 via=192.0.2.1\n" );
   ASSERT_TRUE( read.outcome.ok() ) << read.outcome.text();
   EXPECT_EQ( 1u, read.state.own.addresses.size() );
   EXPECT_EQ( 1u, read.state.routes.size() );
   EXPECT_TRUE( read.state.followers.empty() && read.state.own.neighbours.empty() );
}

TEST( LostState, twoTogetherHoldEachThingOnce ) {
   LostState later = everything();
   later.own.addresses.push_back( linkAddress( "2001:db8::8" ) );
   later.followers[1].wasDown = false;
   later.followers[1].lost.addresses.push_back( linkAddress( "2001:db8:2::1" ) );
   later.followers.push_back( { "et1.300", 9, true, {} } );
   later.routes.push_back( route( "10.10.0.0", 16, { leg( "et1" ) } ) );
   EXPECT_EQ( later, joined( everything(), later ) );
   EXPECT_EQ( everything(), joined( { everything().at, {}, {}, {} }, everything() ) );
}

/// One that is not in the later one is up without anything to lose, or has gone.
TEST( LostState, twoTogetherAreDownWhereTheLaterOneIs ) {
   LostState upBoth = everything();
   upBoth.followers[1].wasDown = false;
   EXPECT_EQ( upBoth, joined( everything(), {} ) );
   EXPECT_EQ( everything(), joined( upBoth, everything() ) );
}

TEST( Neighbour, isTheSameAfterARoundThroughAMessage ) {
   const LostState state = everything();
   for ( const Neighbour & before :
         { state.own.neighbours[0], state.own.neighbours[1], state.followers[0].lost.neighbours[0] } ) {
      const Bytes bytes = neighbourRequest( before, 5, NeighbourSet::ifAbsent );
      EXPECT_EQ( NLM_F_EXCL, messageIn( bytes ).nlmsg_flags & ( NLM_F_EXCL | NLM_F_REPLACE ) );
      const auto after = parseLostNeighbour( messageIn( bytes ) );
      ASSERT_TRUE( after );
      EXPECT_EQ( 5u, after->ifIndex );
      EXPECT_EQ( before, after->neighbour );
   }
   const Bytes bytes = neighbourRequest( state.own.neighbours[0], 5, NeighbourSet::replace );
   EXPECT_EQ( NLM_F_REPLACE, messageIn( bytes ).nlmsg_flags & ( NLM_F_EXCL | NLM_F_REPLACE ) );
}

TEST( Neighbour, isLostIfSomebodyHasSetItToStay ) {
   struct Row {
      const char * what;
      Vel::U16 state;
      Vel::U8 flags, protocol;
      Vel::U32 moreFlags;
      bool lost;
   };
   const Row rows[] = {
      { "set to stay", NUD_PERMANENT, 0, 0, 0, true },
      { "set to stay by a program", NUD_PERMANENT, 0, RTPROT_STATIC, 0, true },
      { "proxy", 0, NTF_PROXY, 0, 0, true },
      { "to be looked after", NUD_STALE, 0, 0, NTF_EXT_MANAGED, true },
      { "learned", NUD_REACHABLE, NTF_ROUTER, 0, 0, false },
      { "group", NUD_NOARP, 0, 0, 0, false },
      { "of a daemon", NUD_PERMANENT, NTF_EXT_LEARNED, RTPROT_ZEBRA, 0, false } };
   for ( const Row & row : rows ) {
      SCOPED_TRACE( row.what );
      const Bytes bytes =
         neighbourBytes( 5, address( "192.0.2.1" ), row.state, row.flags, row.protocol, row.moreFlags );
      EXPECT_EQ( row.lost, parseLostNeighbour( messageIn( bytes ) ).has_value() );
   }
}

} // namespace
} // namespace DataPlane::Linux
