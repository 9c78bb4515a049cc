#pragma once

#include "DataPlane/Linux/LinkAddress.h"
#include "DataPlane/Linux/LinkMessage.h"
#include "DataPlane/Linux/Neighbour.h"
#include "DataPlane/Linux/Route.h"
#include "DataPlane/Linux/VlanMessage.h"
#include "Platform/Vel/Text.h"

#include <linux/if_addr.h>
#include <linux/if_bridge.h>
#include <linux/if_ether.h>
#include <linux/if_link.h>
#include <linux/if_vlan.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netinet/in.h>

/// Purpose: messages as the kernel would send them, for tests.
namespace DataPlane::Linux {

constexpr unsigned lowerUp = 1u << 16;
constexpr unsigned upAndRunning = IFF_UP | IFF_RUNNING | lowerUp;

/// A link as a test describes it.
struct TestLink {
   Vel::U32 ifIndex = 1;
   Vel::String name = {};
   unsigned flags = upAndRunning;
   Vel::String kind = {};
   Vel::U32 lower = 0;
   Vel::U16 vlanId = 0;
   Vel::U32 master = 0;
   bool lowerElsewhere = false;
   Vel::String slaveKind = {};
   bool vlanFiltering = false;
   Vel::U16 vlanProtocol = ETH_P_8021Q; ///< of VLAN devices and bridges
   Vel::U8 operState = 0;               ///< operational: 0 unknown, 2 down, 3 down below, 5 dormant, 6 up
   Vel::U32 carrierChanges = 0;
   std::optional< Vel::U8 > bondMode = {};
   std::optional< Vel::U8 > slaveState = {}; ///< of a bond's member
   bool looseBinding = false;                ///< of VLAN devices
};

inline Bytes linkBytes( const TestLink & link, Vel::U16 type = RTM_NEWLINK, Vel::U8 family = AF_UNSPEC ) {
   ifinfomsg header{};
   header.ifi_family = family;
   header.ifi_index = static_cast< int >( link.ifIndex );
   header.ifi_flags = link.flags;
   MessageBuilder message( type, 0 );
   message.header( header );
   message.attribute( IFLA_IFNAME, std::string_view( link.name.c_str(), link.name.size() + 1 ) );
   message.attribute( IFLA_MTU, Vel::U32( 1500 ) );
   message.attribute( IFLA_OPERSTATE, link.operState );
   message.attribute( IFLA_CARRIER_CHANGES, link.carrierChanges );
   if ( link.lower != 0 )
      message.attribute( IFLA_LINK, link.lower );
   if ( link.lowerElsewhere )
      message.attribute( IFLA_LINK_NETNSID, Vel::U32( 0 ) );
   if ( link.master != 0 )
      message.attribute( IFLA_MASTER, link.master );
   if ( !link.kind.empty() || !link.slaveKind.empty() )
      message.nested( IFLA_LINKINFO, [&] {
         if ( !link.kind.empty() )
            message.attribute( IFLA_INFO_KIND, link.kind );
         if ( link.vlanId != 0 )
            message.nested( IFLA_INFO_DATA, [&] {
               message.attribute( IFLA_VLAN_ID, link.vlanId );
               message.attribute( IFLA_VLAN_PROTOCOL, htons( link.vlanProtocol ) );
               const ifla_vlan_flags vlan{
                  link.looseBinding ? VLAN_FLAG_LOOSE_BINDING : VLAN_FLAG_REORDER_HDR, ~0u };
               message.attribute(
                  IFLA_VLAN_FLAGS,
                  std::string_view( reinterpret_cast< const char * >( &vlan ), sizeof vlan ) );
            } );
         if ( link.kind == "bridge" )
            message.nested( IFLA_INFO_DATA, [&] {
               message.attribute( IFLA_BR_VLAN_FILTERING, Vel::U8( link.vlanFiltering ) );
               message.attribute( IFLA_BR_VLAN_PROTOCOL, htons( link.vlanProtocol ) );
            } );
         if ( link.bondMode )
            message.nested( IFLA_INFO_DATA, [&] { message.attribute( IFLA_BOND_MODE, *link.bondMode ); } );
         if ( !link.slaveKind.empty() )
            message.attribute( IFLA_INFO_SLAVE_KIND, link.slaveKind );
         if ( link.slaveState )
            message.nested(
               IFLA_INFO_SLAVE_DATA, [&] { message.attribute( IFLA_BOND_SLAVE_STATE, *link.slaveState ); } );
      } );
   return message.take();
}

/// VLANs from the first to the last.
struct TestVlans {
   Vel::U16 first;
   Vel::U16 last;
   bool isDefault = false;
};

inline Bytes vlanBytes(
   Vel::U32 ifIndex, const std::vector< TestVlans > & ranges, Vel::U16 type = RTM_NEWVLAN,
   Vel::U16 flags = 0 ) {
   br_vlan_msg header{};
   header.family = AF_BRIDGE;
   header.ifindex = ifIndex;
   MessageBuilder message( type, 0 );
   message.header( header );
   for ( const TestVlans & range : ranges )
      message.nested( BRIDGE_VLANDB_ENTRY, [&] {
         const unsigned all = flags | ( range.isDefault ? BRIDGE_VLAN_INFO_PVID : 0 );
         const bridge_vlan_info info{ static_cast< Vel::U16 >( all ), range.first };
         message.attribute(
            BRIDGE_VLANDB_ENTRY_INFO,
            std::string_view( reinterpret_cast< const char * >( &info ), sizeof info ) );
         if ( range.last != range.first )
            message.attribute( BRIDGE_VLANDB_ENTRY_RANGE, range.last );
         message.attribute( BRIDGE_VLANDB_ENTRY_STATE, Vel::U8( 3 ) );
      } );
   return message.take();
}

/// As it is parsed.
inline LinkMessage linkMessage( const TestLink & link ) {
   const Bytes bytes = linkBytes( link );
   return parseLink( messageIn( bytes ) ).value().link;
}

inline Bytes statsBytes( Vel::U32 ifIndex, Vel::U64 in, Vel::U64 out ) {
   if_stats_msg header{};
   header.ifindex = ifIndex;
   rtnl_link_stats64 stats{};
   stats.rx_bytes = in;
   stats.tx_bytes = out;
   MessageBuilder message( RTM_NEWSTATS, 0 );
   message.header( header );
   return message
      .attribute(
         IFLA_STATS_LINK_64, std::string_view( reinterpret_cast< const char * >( &stats ), sizeof stats ) )
      .take();
}

/// An answer to a request; 0 in `code`: an acknowledgement.
inline Bytes answerBytes( Vel::U32 sequence, int code ) {
   nlmsgerr error{};
   error.error = -code;
   Bytes bytes = MessageBuilder( NLMSG_ERROR, NLM_F_CAPPED ).header( error ).take();
   messageIn( bytes ).nlmsg_seq = sequence;
   return bytes;
}

/// An entry of a neighbour table.
inline Bytes neighbourBytes(
   Vel::U32 ifIndex, const IpAddress & address, Vel::U16 state, Vel::U8 flags = 0, Vel::U8 protocol = 0,
   Vel::U32 moreFlags = 0 ) {
   ndmsg header{};
   header.ndm_family = address.family;
   header.ndm_ifindex = static_cast< int >( ifIndex );
   header.ndm_state = state;
   header.ndm_flags = flags;
   MessageBuilder message( RTM_NEWNEIGH, 0 );
   message.header( header );
   message.attribute( NDA_DST, address.payload() );
   if ( !( flags & NTF_PROXY ) )
      message.attribute( NDA_LLADDR, std::string_view( "\2\0\0\0\0\7", 6 ) );
   if ( protocol != 0 )
      message.attribute( NDA_PROTOCOL, protocol );
   if ( moreFlags != 0 )
      message.attribute( NDA_FLAGS_EXT, moreFlags );
   return message.take();
}

/// An entry of a link's neighbours as it is told to who asks for one, or with AF_BRIDGE of a bridge's table.
inline Bytes
seenBytes( Vel::U8 family, Vel::U32 ifIndex, std::string_view hardware, Vel::U16 state = NUD_REACHABLE ) {
   ndmsg header{};
   header.ndm_family = family;
   header.ndm_ifindex = static_cast< int >( ifIndex );
   header.ndm_state = state;
   MessageBuilder message( RTM_NEWNEIGH, 0 );
   message.header( header );
   if ( !hardware.empty() )
      message.attribute( NDA_LLADDR, hardware );
   return message.take();
}

inline IpAddress address( const char * text ) { return addressFromText( text ).value(); }

/// A route to one address over the link N: 10.0.0.N, from N = 256 on 10.0.1.0 and so on.
inline Bytes routeOver( Vel::U32 ifIndex, Vel::U8 protocol = RTPROT_STATIC ) {
   rtmsg header{};
   header.rtm_family = AF_INET;
   header.rtm_dst_len = 32;
   header.rtm_table = RT_TABLE_MAIN;
   header.rtm_protocol = protocol;
   header.rtm_type = RTN_UNICAST;
   MessageBuilder message( RTM_NEWROUTE, 0 );
   message.header( header );
   message.attribute(
      RTA_DST, address( Vel::text( "10.0.", ifIndex / 256, ".", ifIndex % 256 ).c_str() ).payload() );
   return message.attribute( RTA_OIF, ifIndex ).take();
}

} // namespace DataPlane::Linux
