#include "DataPlane/Linux/LinkMessage.h"

#include "DataPlane/Linux/VlanMessage.h"

#include <linux/if_link.h>
#include <linux/if_vlan.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

namespace DataPlane::Linux {

namespace {

/// Not in <net/if.h>, and <linux/if.h> cannot be had beside it.
constexpr unsigned lowerUpFlag = 1u << 16;
/// Of a bond's member, from <linux/if_bonding.h>, for which the same holds.
constexpr Vel::U8 stateBackup = 1;

/// What only links of some kinds have.
void parseInfo( LinkMessage & link, const Attributes & info ) {
   link.kind = info.text( IFLA_INFO_KIND ).value_or( Vel::String() );
   link.slaveKind = info.text( IFLA_INFO_SLAVE_KIND ).value_or( Vel::String() );
   const Attributes data( info.at( IFLA_INFO_DATA ) );
   if ( link.kind == "vlan" ) {
      if ( const auto id = data.u16( IFLA_VLAN_ID ); id && *id >= firstVlan && *id <= lastVlan )
         link.vlanId = *id;
      link.vlanProtocol = data.u16( IFLA_VLAN_PROTOCOL ).value_or( 0 );
      if ( const auto vlan = data.value< ifla_vlan_flags >( IFLA_VLAN_FLAGS ) )
         link.looseBinding = ( vlan->flags & VLAN_FLAG_LOOSE_BINDING ) != 0;
   } else if ( link.kind == "bridge" ) {
      link.vlanFiltering = data.u8( IFLA_BR_VLAN_FILTERING ).value_or( 0 ) != 0;
      link.vlanProtocol = data.u16( IFLA_BR_VLAN_PROTOCOL ).value_or( 0 );
   } else if ( link.kind == "bond" ) {
      link.bondMode = data.u8( IFLA_BOND_MODE );
   }
   if ( link.slaveKind == "bond" ) {
      const Attributes slave( info.at( IFLA_INFO_SLAVE_DATA ) );
      link.standby = slave.u8( IFLA_BOND_SLAVE_STATE ) == stateBackup;
   }
}

} // namespace

std::optional< LinkEvent > parseLink( const nlmsghdr & message ) {
   const bool removed = message.nlmsg_type == RTM_DELLINK;
   const std::optional< ifinfomsg > header = fixedHeader< ifinfomsg >( message );
   if ( ( message.nlmsg_type != RTM_NEWLINK && !removed ) || !header )
      return {};
   if ( header->ifi_family != AF_UNSPEC || header->ifi_index <= 0 )
      return {};
   LinkEvent event;
   event.removed = removed;
   LinkMessage & link = event.link;
   link.ifIndex = static_cast< Vel::U32 >( header->ifi_index );
   if ( removed )
      return event;

   const Attributes attributes( message, sizeof( ifinfomsg ) );
   link.name = attributes.text( IFLA_IFNAME ).value_or( Vel::String() );
   if ( link.name.empty() || link.name.size() >= IF_NAMESIZE || attributes.at( IFLA_WIRELESS ) )
      return {};
   link.loopback = ( header->ifi_flags & IFF_LOOPBACK ) != 0;
   link.adminUp = ( header->ifi_flags & IFF_UP ) != 0;
   link.lowerUp = ( header->ifi_flags & lowerUpFlag ) != 0;
   link.pointToPoint = ( header->ifi_flags & ( IFF_POINTOPOINT | IFF_NOARP ) ) != 0;
   link.master = attributes.u32( IFLA_MASTER ).value_or( 0 );
   // The number below may be of another namespace, where it is another link's.
   if ( !attributes.at( IFLA_LINK_NETNSID ) )
      link.lower = attributes.u32( IFLA_LINK ).value_or( 0 );
   parseInfo( link, Attributes( attributes.at( IFLA_LINKINFO ) ) );
   if ( link.kind == "bridge" )
      link.carrierChanges = attributes.u32( IFLA_CARRIER_CHANGES ).value_or( 0 );
   return event;
}

std::optional< StatsMessage > parseStats( const nlmsghdr & message ) {
   const std::optional< if_stats_msg > header = fixedHeader< if_stats_msg >( message );
   if ( message.nlmsg_type != RTM_NEWSTATS || !header )
      return {};
   const std::optional< std::string_view > bytes =
      payloadIn( message, sizeof( if_stats_msg ), IFLA_STATS_LINK_64 );
   // Later kernels append to the record; older ones end it early, but never before these.
   constexpr std::size_t needed = offsetof( rtnl_link_stats64, tx_bytes ) + sizeof( Vel::U64 );
   if ( !bytes || bytes->size() < needed )
      return {};
   StatsMessage result;
   result.ifIndex = header->ifindex;
   __builtin_memcpy(
      &result.inOctets, bytes->data() + offsetof( rtnl_link_stats64, rx_bytes ), sizeof( Vel::U64 ) );
   __builtin_memcpy(
      &result.outOctets, bytes->data() + offsetof( rtnl_link_stats64, tx_bytes ), sizeof( Vel::U64 ) );
   return result;
}

Bytes linkDumpRequest() {
   MessageBuilder message( RTM_GETLINK, NLM_F_REQUEST | NLM_F_DUMP );
   message.header( ifinfomsg{} );
   return message.attribute( IFLA_EXT_MASK, Vel::U32( RTEXT_FILTER_SKIP_STATS ) ).take();
}

Bytes linkRequest( Vel::U32 ifIndex ) {
   ifinfomsg header{};
   header.ifi_index = static_cast< int >( ifIndex );
   return MessageBuilder( RTM_GETLINK, NLM_F_REQUEST )
      .header( header )
      .attribute( IFLA_EXT_MASK, Vel::U32( RTEXT_FILTER_SKIP_STATS ) )
      .take();
}

Bytes statsDumpRequest() {
   if_stats_msg header{};
   header.filter_mask = IFLA_STATS_FILTER_BIT( IFLA_STATS_LINK_64 );
   return MessageBuilder( RTM_GETSTATS, NLM_F_REQUEST | NLM_F_DUMP ).header( header ).take();
}

Bytes linkSetRequest( Vel::U32 ifIndex, bool up ) {
   ifinfomsg header{};
   header.ifi_index = static_cast< int >( ifIndex );
   header.ifi_change = IFF_UP;
   header.ifi_flags = up ? IFF_UP : 0;
   return MessageBuilder( RTM_NEWLINK, NLM_F_REQUEST | NLM_F_ACK ).header( header ).take();
}

} // namespace DataPlane::Linux
