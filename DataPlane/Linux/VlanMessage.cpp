#include "DataPlane/Linux/VlanMessage.h"

#include <linux/if_bridge.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

namespace DataPlane::Linux {

namespace {

/// One entry is one VLAN, or the first of a range whose last one stands beside it.
void add( VlanEvent & event, const Attributes & entry ) {
   const auto info = entry.value< bridge_vlan_info >( BRIDGE_VLANDB_ENTRY_INFO );
   if ( !info )
      return;
   const Vel::U16 last = entry.u16( BRIDGE_VLANDB_ENTRY_RANGE ).value_or( info->vid );
   if ( info->vid < firstVlan || last > lastVlan )
      return;
   for ( unsigned id = info->vid; id <= last; ++id )
      event.vlans.set( id );
   if ( info->flags & BRIDGE_VLAN_INFO_PVID )
      event.defaultId = last;
}

} // namespace

std::optional< VlanEvent > parseVlan( const nlmsghdr & message ) {
   const bool removed = message.nlmsg_type == RTM_DELVLAN;
   const std::optional< br_vlan_msg > header = fixedHeader< br_vlan_msg >( message );
   if ( ( message.nlmsg_type != RTM_NEWVLAN && !removed ) || !header )
      return {};
   if ( header->family != AF_BRIDGE || header->ifindex == 0 )
      return {};
   VlanEvent event;
   event.removed = removed;
   event.ifIndex = header->ifindex;
   const Attributes attributes( message, sizeof( br_vlan_msg ) );
   for ( const nlattr * attribute : attributes.all() )
      if ( number( *attribute ) == BRIDGE_VLANDB_ENTRY )
         add( event, Attributes( attribute ) );
   return event;
}

Bytes vlanDumpRequest() {
   br_vlan_msg header{};
   header.family = AF_BRIDGE;
   return MessageBuilder( RTM_GETVLAN, NLM_F_REQUEST | NLM_F_DUMP ).header( header ).take();
}

} // namespace DataPlane::Linux
