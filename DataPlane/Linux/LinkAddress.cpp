#include "DataPlane/Linux/LinkAddress.h"

#include <linux/if_addr.h>
#include <linux/rtnetlink.h>

namespace DataPlane::Linux {

namespace {

constexpr Vel::U32 settableFlags = IFA_F_NODAD | IFA_F_OPTIMISTIC | IFA_F_HOMEADDRESS | IFA_F_MANAGETEMPADDR |
                                   IFA_F_NOPREFIXROUTE | IFA_F_MCAUTOJOIN;

bool madeByKernel( Vel::U32 flags, Vel::U8 protocol ) {
   return ( flags & IFA_F_TEMPORARY ) || protocol == IFAPROT_KERNEL_LO || protocol == IFAPROT_KERNEL_RA ||
          protocol == IFAPROT_KERNEL_LL;
}

} // namespace

std::optional< LinkAddress > parseLostAddress( const nlmsghdr & message, Vel::U32 ifIndex ) {
   const std::optional< ifaddrmsg > header = fixedHeader< ifaddrmsg >( message );
   if (
      message.nlmsg_type != RTM_NEWADDR || !header || header->ifa_family != AF_INET6 ||
      header->ifa_index != ifIndex || header->ifa_prefixlen > maxPrefix( AF_INET6 ) )
      return {};
   const Attributes attributes( message, sizeof( ifaddrmsg ) );
   // With a peer, the link's own address has an attribute of its own.
   const auto first = addressFrom( AF_INET6, attributes.payload( IFA_ADDRESS ) );
   const auto local = addressFrom( AF_INET6, attributes.payload( IFA_LOCAL ) );
   const Vel::U32 flags = attributes.u32( IFA_FLAGS ).value_or( header->ifa_flags );
   LinkAddress result;
   result.protocol = attributes.u8( IFA_PROTO ).value_or( 0 );
   if ( !first || madeByKernel( flags, result.protocol ) )
      return {};
   result.address = local.value_or( *first );
   if ( local && *local != *first )
      result.peer = *first;
   result.prefixLength = header->ifa_prefixlen;
   result.scope = header->ifa_scope;
   result.flags = flags & settableFlags;
   if ( const auto times = attributes.value< ifa_cacheinfo >( IFA_CACHEINFO ) ) {
      result.valid = times->ifa_valid;
      result.preferred = times->ifa_prefered;
   }
   result.metric = attributes.u32( IFA_RT_PRIORITY );
   return result;
}

Bytes addressDumpRequest( Vel::U32 ifIndex ) {
   ifaddrmsg header{};
   header.ifa_family = AF_INET6;
   header.ifa_index = ifIndex;
   return MessageBuilder( RTM_GETADDR, NLM_F_REQUEST | NLM_F_DUMP ).header( header ).take();
}

Bytes addressRequest( const LinkAddress & address, Vel::U32 ifIndex ) {
   ifaddrmsg header{};
   header.ifa_family = address.address.family;
   header.ifa_prefixlen = address.prefixLength;
   header.ifa_scope = address.scope;
   header.ifa_index = ifIndex;
   MessageBuilder message( RTM_NEWADDR, NLM_F_REQUEST | NLM_F_ACK | NLM_F_CREATE | NLM_F_EXCL );
   message.header( header );
   message.attribute( IFA_LOCAL, address.address.payload() );
   message.attribute( IFA_ADDRESS, address.peer.value_or( address.address ).payload() );
   message.attribute( IFA_FLAGS, address.flags );
   ifa_cacheinfo times{};
   times.ifa_valid = address.valid;
   times.ifa_prefered = address.preferred;
   message.attribute(
      IFA_CACHEINFO, std::string_view( reinterpret_cast< const char * >( &times ), sizeof times ) );
   if ( address.metric )
      message.attribute( IFA_RT_PRIORITY, *address.metric );
   if ( address.protocol != 0 )
      message.attribute( IFA_PROTO, address.protocol );
   return message.take();
}

} // namespace DataPlane::Linux
