#include "DataPlane/Linux/Neighbour.h"

#include "DataPlane/Linux/Route.h"

#include <linux/neighbour.h>
#include <linux/rtnetlink.h>

namespace DataPlane::Linux {

namespace {

constexpr Vel::U8 settableFlags = NTF_PROXY | NTF_ROUTER | NTF_EXT_LEARNED | NTF_STICKY;
constexpr Vel::U32 settableMoreFlags = NTF_EXT_MANAGED;

ndmsg headerOf( const IpAddress & address, Vel::U32 ifIndex ) {
   ndmsg header{};
   header.ndm_family = address.family;
   header.ndm_ifindex = static_cast< int >( ifIndex );
   return header;
}

} // namespace

bool Neighbour::isProxy() const { return ( flags & NTF_PROXY ) != 0; }

std::optional< NeighbourOfLink > parseLostNeighbour( const nlmsghdr & message ) {
   const std::optional< ndmsg > header = fixedHeader< ndmsg >( message );
   if ( message.nlmsg_type != RTM_NEWNEIGH || !header || header->ndm_ifindex <= 0 )
      return {};
   const Attributes attributes( message, sizeof( ndmsg ) );
   const auto address = addressFrom( header->ndm_family, attributes.payload( NDA_DST ) );
   NeighbourOfLink result;
   Neighbour & neighbour = result.neighbour;
   neighbour.flags = header->ndm_flags & settableFlags;
   neighbour.moreFlags = attributes.u32( NDA_FLAGS_EXT ).value_or( 0 ) & settableMoreFlags;
   neighbour.protocol = attributes.u8( NDA_PROTOCOL ).value_or( 0 );
   const bool kept = neighbour.isProxy() || ( header->ndm_state & NUD_PERMANENT ) || neighbour.moreFlags != 0;
   if ( !address || !kept || comesBackByItself( neighbour.protocol ) )
      return {};
   result.ifIndex = static_cast< Vel::U32 >( header->ndm_ifindex );
   neighbour.address = *address;
   // Where a managed one is just now, the kernel finds out.
   neighbour.state = header->ndm_state & NUD_PERMANENT;
   if ( neighbour.state != 0 )
      neighbour.linkAddress = Vel::String( attributes.payload( NDA_LLADDR ).value_or( std::string_view() ) );
   return result;
}

Bytes neighbourDumpRequest( Vel::U8 family, NeighbourKind kind, Vel::U32 ifIndex ) {
   ndmsg header{};
   header.ndm_family = family;
   header.ndm_flags = kind == NeighbourKind::proxy ? NTF_PROXY : 0;
   MessageBuilder message( RTM_GETNEIGH, NLM_F_REQUEST | NLM_F_DUMP );
   message.header( header );
   if ( ifIndex != 0 )
      message.attribute( NDA_IFINDEX, ifIndex );
   return message.take();
}

Bytes neighbourRequest( const IpAddress & address, Vel::U32 ifIndex ) {
   return MessageBuilder( RTM_GETNEIGH, NLM_F_REQUEST )
      .header( headerOf( address, ifIndex ) )
      .attribute( NDA_DST, address.payload() )
      .take();
}

Bytes neighbourRequest( const Neighbour & neighbour, Vel::U32 ifIndex, NeighbourSet how ) {
   ndmsg header = headerOf( neighbour.address, ifIndex );
   header.ndm_state = neighbour.state;
   header.ndm_flags = neighbour.flags;
   MessageBuilder message(
      RTM_NEWNEIGH, static_cast< Vel::U16 >(
                       NLM_F_REQUEST | NLM_F_ACK | NLM_F_CREATE |
                       ( how == NeighbourSet::replace ? NLM_F_REPLACE : NLM_F_EXCL ) ) );
   message.header( header );
   message.attribute( NDA_DST, neighbour.address.payload() );
   if ( !neighbour.linkAddress.empty() )
      message.attribute( NDA_LLADDR, neighbour.linkAddress );
   if ( neighbour.protocol != 0 )
      message.attribute( NDA_PROTOCOL, neighbour.protocol );
   if ( neighbour.moreFlags != 0 )
      message.attribute( NDA_FLAGS_EXT, neighbour.moreFlags );
   return message.take();
}

} // namespace DataPlane::Linux
