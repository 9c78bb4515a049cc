#include "DataPlane/Linux/SeenNeighbour.h"

#include <algorithm>

#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

namespace DataPlane::Linux {

namespace {

std::string_view payload( const HardwareAddress & address ) {
   return { reinterpret_cast< const char * >( address.data() ), address.size() };
}

} // namespace

Vel::String stringValue( const HardwareAddress & address ) {
   constexpr char digits[] = "0123456789abcdef";
   Vel::String text;
   for ( const Vel::U8 byte : address ) {
      text += text.empty() ? "" : ":";
      text += { digits[byte >> 4], digits[byte & 15] };
   }
   return text;
}

std::optional< NeighbourEntry > parseNeighbour( const nlmsghdr & message ) {
   const std::optional< ndmsg > header = fixedHeader< ndmsg >( message );
   if ( message.nlmsg_type != RTM_NEWNEIGH || !header || header->ndm_ifindex <= 0 )
      return {};
   NeighbourEntry entry;
   entry.ofBridge = header->ndm_family == AF_BRIDGE;
   if ( !entry.ofBridge && maxPrefix( header->ndm_family ) == 0 )
      return {};
   entry.ifIndex = static_cast< Vel::U32 >( header->ndm_ifindex );
   // What the last answer said may stand beside an entry that does not count any more.
   if ( !entry.ofBridge && ( header->ndm_state & ( NUD_INCOMPLETE | NUD_FAILED ) ) )
      return entry;
   const auto bytes = Attributes( message, sizeof( ndmsg ) ).payload( NDA_LLADDR );
   if ( bytes && bytes->size() == std::tuple_size_v< HardwareAddress > )
      std::copy( bytes->begin(), bytes->end(), entry.hardware.emplace().begin() );
   return entry;
}

Bytes bridgePortRequest( Vel::U32 bridge, const HardwareAddress & address, Vel::U16 vlanId ) {
   ndmsg header{};
   header.ndm_family = AF_BRIDGE;
   MessageBuilder message( RTM_GETNEIGH, NLM_F_REQUEST );
   message.header( header ).attribute( NDA_LLADDR, payload( address ) ).attribute( NDA_MASTER, bridge );
   if ( vlanId != 0 )
      message.attribute( NDA_VLAN, vlanId );
   return message.take();
}

} // namespace DataPlane::Linux
