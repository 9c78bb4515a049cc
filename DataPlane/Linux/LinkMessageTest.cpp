#include "DataPlane/Linux/MessagesTest.h"

#include <gtest/gtest.h>

namespace DataPlane::Linux {
namespace {

std::optional< LinkEvent > parsed( const Bytes & bytes ) { return parseLink( messageIn( bytes ) ); }

TEST( LinkMessage, describesALink ) {
   const LinkMessage link = linkMessage(
      { .ifIndex = 7,
        .name = "vlan10",
        .kind = "vlan",
        .lower = 3,
        .vlanId = 10,
        .master = 9,
        .slaveKind = "bond" } );
   EXPECT_EQ( 7u, link.ifIndex );
   EXPECT_EQ( "vlan10", link.name );
   EXPECT_TRUE( link.adminUp && link.lowerUp && !link.loopback );
   EXPECT_EQ( "vlan", link.kind );
   EXPECT_EQ( 3u, link.lower );
   EXPECT_EQ( 10, link.vlanId );
   EXPECT_EQ( htons( ETH_P_8021Q ), link.vlanProtocol );
   EXPECT_EQ( 9u, link.master );
   EXPECT_EQ( "bond", link.slaveKind );
   EXPECT_FALSE( link.vlanFiltering );
}

TEST( LinkMessage, vlanDeviceTellsWhetherItIsBoundLoosely ) {
   for ( const bool loose : { false, true } )
      EXPECT_EQ(
         loose, linkMessage( { .name = "et1.5", .kind = "vlan", .vlanId = 5, .looseBinding = loose } )
                   .looseBinding );
}

TEST( LinkMessage, bridgeTellsWhetherItFiltersAndByWhichProtocol ) {
   const LinkMessage plain = linkMessage( { .name = "br0", .kind = "bridge" } );
   EXPECT_FALSE( plain.vlanFiltering );
   EXPECT_EQ( htons( ETH_P_8021Q ), plain.vlanProtocol );
   const LinkMessage filtering =
      linkMessage( { .name = "br0", .kind = "bridge", .vlanFiltering = true, .vlanProtocol = ETH_P_8021AD } );
   EXPECT_TRUE( filtering.vlanFiltering );
   EXPECT_EQ( htons( ETH_P_8021AD ), filtering.vlanProtocol );
   EXPECT_EQ( 0, filtering.vlanId );
   EXPECT_EQ( "", filtering.slaveKind );
}

TEST( LinkMessage, tellsTheCarrierChangesOfBridgesOnly ) {
   EXPECT_EQ( 3u, linkMessage( { .name = "br0", .kind = "bridge", .carrierChanges = 3 } ).carrierChanges );
   EXPECT_EQ( 0u, linkMessage( { .name = "et1", .carrierChanges = 3 } ).carrierChanges );
}

TEST( LinkMessage, dataOfOtherKindsMeansSomethingElse ) {
   ifinfomsg header{};
   header.ifi_index = 5;
   MessageBuilder message( RTM_NEWLINK, 0 );
   message.header( header ).attribute( IFLA_IFNAME, std::string_view( "bond0" ) );
   message.nested( IFLA_LINKINFO, [&] {
      message.attribute( IFLA_INFO_KIND, std::string_view( "bond" ) );
      message.nested( IFLA_INFO_DATA, [&] {
         message.attribute( IFLA_BR_VLAN_FILTERING, Vel::U8( 1 ) );
         message.attribute( IFLA_VLAN_ID, Vel::U16( 10 ) );
      } );
   } );
   const auto event = parsed( message.take() );
   ASSERT_TRUE( event );
   EXPECT_FALSE( event->link.vlanFiltering );
   EXPECT_EQ( 0, event->link.vlanId );
   EXPECT_EQ( 0, event->link.vlanProtocol );
}

TEST( LinkMessage, idThatIsNoVlansIsNone ) {
   const auto idOf = []( Vel::U16 told ) {
      return linkMessage( { .name = "et1.10", .kind = "vlan", .lower = 3, .vlanId = told } ).vlanId;
   };
   EXPECT_EQ( 1, idOf( 1 ) );
   EXPECT_EQ( 4094, idOf( 4094 ) );
   for ( const Vel::U16 none : { 0, 4095, 4096, 32266, 65535 } ) {
      SCOPED_TRACE( none );
      EXPECT_EQ( 0, idOf( none ) );
   }
}

TEST( LinkMessage, carrierCountsNotTheOperationalState ) {
   // It follows up to a second later, and links that do not keep it are "unknown" for ever.
   for ( const Vel::U8 state : { 0, 2, 3, 5, 6 } ) {
      SCOPED_TRACE( int( state ) );
      const auto parsedWith = [&]( unsigned flags ) {
         return linkMessage( { .name = "et1", .flags = flags, .operState = state } );
      };
      EXPECT_TRUE( parsedWith( IFF_UP | lowerUp ).lowerUp );
      EXPECT_FALSE( parsedWith( IFF_UP | IFF_RUNNING ).lowerUp );
      EXPECT_FALSE( parsedWith( lowerUp ).adminUp );
   }
}

TEST( LinkMessage, linkBelowOfAnotherNamespaceIsNotOneOfOurs ) {
   EXPECT_EQ(
      0u,
      linkMessage( { .name = "v", .kind = "vlan", .lower = 3, .vlanId = 1, .lowerElsewhere = true } ).lower );
}

TEST( LinkMessage, removalTellsTheNumber ) {
   const auto event = parsed( linkBytes( { .ifIndex = 7, .name = "et1" }, RTM_DELLINK ) );
   ASSERT_TRUE( event );
   EXPECT_TRUE( event->removed );
   EXPECT_EQ( 7u, event->link.ifIndex );
}

TEST( LinkMessage, bridgesNewsOfItsPortsAreNoNewsOfLinks ) {
   EXPECT_FALSE( parsed( linkBytes( { .name = "et1" }, RTM_DELLINK, AF_BRIDGE ) ) );
   EXPECT_FALSE( parsed( linkBytes( { .name = "et1" }, RTM_NEWLINK, AF_BRIDGE ) ) );
}

TEST( LinkMessage, wirelessNewsAreNoNewsOfLinks ) {
   ifinfomsg header{};
   header.ifi_index = 5;
   MessageBuilder message( RTM_NEWLINK, 0 );
   message.header( header )
      .attribute( IFLA_IFNAME, std::string_view( "wl0" ) )
      .attribute( IFLA_WIRELESS, Vel::U32( 1 ) );
   EXPECT_FALSE( parsed( message.take() ) );
}

TEST( LinkMessage, namesThatTheKernelCannotHaveAreRefused ) {
   EXPECT_FALSE( parsed( linkBytes( { .name = "" } ) ) );
   EXPECT_FALSE( parsed( linkBytes( { .name = "a-name-too-long-" } ) ) );
   EXPECT_TRUE( parsed( linkBytes( { .name = "a-name-15-bytes" } ) ) );
   EXPECT_FALSE( parsed( linkBytes( { .ifIndex = 0, .name = "et1" } ) ) );
   EXPECT_FALSE( parsed( linkBytes( { .ifIndex = 0x80000000, .name = "et1" } ) ) );
}

TEST( LinkMessage, otherTypesAreNoLinks ) {
   EXPECT_FALSE( parsed( linkBytes( { .name = "et1" }, RTM_NEWADDR ) ) );
   EXPECT_FALSE( parsed( MessageBuilder( RTM_NEWLINK, 0 ).take() ) );
}

TEST( LinkMessage, unknownAttributesAreSkipped ) {
   ifinfomsg header{};
   header.ifi_index = 5;
   MessageBuilder message( RTM_NEWLINK, 0 );
   message.header( header );
   for ( const unsigned number : { 1000u, 95u, 96u, 0x3fffu } )
      message.attribute( number, Vel::U64( 0 ) );
   message.attribute( IFLA_IFNAME, std::string_view( "et1" ) );
   const auto event = parsed( message.take() );
   ASSERT_TRUE( event );
   EXPECT_EQ( "et1", event->link.name );
}

TEST( LinkMessage, attributesThatAreTooShortAreAbsent ) {
   ifinfomsg header{};
   header.ifi_index = 5;
   MessageBuilder message( RTM_NEWLINK, 0 );
   message.header( header ).attribute( IFLA_IFNAME, std::string_view( "et1" ) );
   message.attribute( IFLA_MASTER, Vel::U16( 3 ) ).attribute( IFLA_LINK, std::string_view() );
   message.nested( IFLA_LINKINFO, [&] {
      message.attribute( IFLA_INFO_KIND, std::string_view( "vlan" ) );
      message.attribute( IFLA_INFO_DATA, std::string_view( "x" ) );
   } );
   const auto event = parsed( message.take() );
   ASSERT_TRUE( event );
   EXPECT_EQ( 0u, event->link.master );
   EXPECT_EQ( 0u, event->link.lower );
   EXPECT_EQ( 0, event->link.vlanId );
}

TEST( StatsMessage, tellsOctets ) {
   const Bytes bytes = statsBytes( 3, 1ull << 63, 5 );
   const auto stats = parseStats( messageIn( bytes ) );
   ASSERT_TRUE( stats );
   EXPECT_EQ( 3u, stats->ifIndex );
   EXPECT_EQ( 1ull << 63, stats->inOctets );
   EXPECT_EQ( 5u, stats->outOctets );
}

TEST( StatsMessage, linkWithoutCountersIsAbsent ) {
   if_stats_msg header{};
   header.ifindex = 3;
   const Bytes without = MessageBuilder( RTM_NEWSTATS, 0 ).header( header ).take();
   EXPECT_FALSE( parseStats( messageIn( without ) ) );
   MessageBuilder cut( RTM_NEWSTATS, 0 );
   const Bytes shortOne =
      cut.header( header ).attribute( IFLA_STATS_LINK_64, std::string_view( "1234567890123456" ) ).take();
   EXPECT_FALSE( parseStats( messageIn( shortOne ) ) );
}

TEST( Messages, walkTellsWhatIsNoWholeMessageAtTheEnd ) {
   Bytes bytes = statsBytes( 1, 2, 3 );
   const Bytes second = statsBytes( 2, 2, 3 );
   const std::size_t firstSize = bytes.size() * 4;
   bytes.insert( bytes.end(), second.begin(), second.end() );
   unsigned count = 0;
   const auto counting = [&]( const nlmsghdr & ) {
      ++count;
      return true;
   };
   EXPECT_TRUE( forEachMessage( bytes.data(), bytes.size() * 4, counting ) );
   EXPECT_EQ( 2u, count );
   EXPECT_FALSE( forEachMessage( bytes.data(), bytes.size() * 4 - 4, counting ) );
   EXPECT_EQ( 3u, count );
   EXPECT_FALSE( forEachMessage( bytes.data(), firstSize + 3, counting ) );
   EXPECT_TRUE( forEachMessage( bytes.data(), 0, counting ) );
   EXPECT_EQ( 4u, count );
   EXPECT_TRUE( forEachMessage( bytes.data(), bytes.size() * 4, []( const nlmsghdr & ) { return false; } ) );
}

TEST( Messages, builderNestsAndPads ) {
   MessageBuilder message( RTM_NEWLINK, 0 );
   message.header( ifinfomsg{} ).nested( 5, [&] {
      message.attribute( 1, Vel::U8( 7 ) );
      message.nested( 2, [&] { message.attribute( 3, std::string_view( "abcde" ) ); } );
   } );
   message.attribute( 6, Vel::U32( 9 ) );
   const Bytes bytes = message.take();
   const Attributes outer( messageIn( bytes ), sizeof( ifinfomsg ) );
   const Attributes inner( outer.at( 5 ) );
   EXPECT_EQ( Vel::U8( 7 ), inner.u8( 1 ) );
   EXPECT_EQ( "abcde", Attributes( inner.at( 2 ) ).text( 3 ) );
   EXPECT_EQ( 9u, outer.u32( 6 ) );
   EXPECT_EQ( bytes.size() * 4, messageIn( bytes ).nlmsg_len );
}

} // namespace
} // namespace DataPlane::Linux
