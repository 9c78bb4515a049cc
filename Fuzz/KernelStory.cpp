#include "Fuzz/KernelStory.h"

#include <linux/if.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>

namespace Fuzz {

Table StoryKernel::tableOf( const nlmsghdr & request ) {
   const bool dump = ( request.nlmsg_flags & NLM_F_DUMP ) == NLM_F_DUMP;
   switch ( request.nlmsg_type ) {
   case RTM_GETLINK:
      return dump ? links : oneLink;
   case RTM_GETVLAN:
      return vlans;
   case RTM_GETSTATS:
      return counters;
   case RTM_GETADDR:
      return addresses;
   case RTM_GETROUTE:
      return dump ? routes : oneRoute;
   case RTM_GETNEXTHOP:
      return nextHops;
   case RTM_GETNEIGH:
      return dump ? neighbours : oneNeighbour;
   default:
      return tableCount;
   }
}

namespace {

/// The messages bear the marks of answers to the request. Whatever they hold besides stays as it is.
Vel::String addressed( Vel::String datagram, const nlmsghdr & request, Vel::U16 flags ) {
   for ( std::size_t at = 0; at + sizeof( nlmsghdr ) <= datagram.size(); ) {
      nlmsghdr header;
      std::memcpy( &header, datagram.data() + at, sizeof header );
      // A few bear those of another answer.
      if ( header.nlmsg_seq == 0 ) {
         header.nlmsg_seq = request.nlmsg_seq;
         header.nlmsg_pid = StoryKernel::port;
      }
      header.nlmsg_flags |= flags;
      std::memcpy( datagram.data() + at, &header, sizeof header );
      if ( header.nlmsg_len < sizeof header )
         break;
      at += ( std::size_t( header.nlmsg_len ) + 3 ) / 4 * 4;
   }
   return datagram;
}

template < class Payload >
Vel::String message( const nlmsghdr & request, Vel::U16 type, const Payload & payload ) {
   const Bytes bytes = DataPlane::Linux::MessageBuilder( type, 0 ).header( payload ).take();
   const auto * const begin = reinterpret_cast< const char * >( bytes.data() );
   return addressed( Vel::String( begin, bytes.size() * sizeof( Vel::U32 ) ), request, 0 );
}

Vel::String result( const nlmsghdr & request, int code ) {
   nlmsgerr error{};
   error.error = -code;
   return message( request, NLMSG_ERROR, error );
}

/// What a datagram says first, of the link with that number; null: something else.
ifinfomsg * linkIn( Vel::String & datagram, int ifIndex ) {
   if ( datagram.size() < sizeof( nlmsghdr ) + sizeof( ifinfomsg ) )
      return nullptr;
   auto * const header = reinterpret_cast< nlmsghdr * >( datagram.data() );
   auto * const link = reinterpret_cast< ifinfomsg * >( header + 1 );
   return header->nlmsg_type == RTM_NEWLINK && link->ifi_index == ifIndex ? link : nullptr;
}

} // namespace

void StoryKernel::linkIsSet( const nlmsghdr & request ) {
   const auto wanted = DataPlane::Linux::fixedHeader< ifinfomsg >( request ).value();
   for ( Vel::String & datagram : tables[links] )
      if ( ifinfomsg * const link = linkIn( datagram, wanted.ifi_index ) )
         link->ifi_flags = ( link->ifi_flags & ~IFF_UP ) | ( wanted.ifi_flags & IFF_UP );
}

void StoryKernel::lookUp( const nlmsghdr & request, Inbox & into ) {
   const auto wanted = DataPlane::Linux::fixedHeader< ifinfomsg >( request ).value();
   for ( Vel::String & datagram : tables[links] )
      if ( linkIn( datagram, wanted.ifi_index ) )
         into.push( Channel::Got::messages, addressed( datagram, request, 0 ) );
}

void StoryKernel::answer( const nlmsghdr & request, Inbox & into ) {
   if ( request.nlmsg_type == RTM_NEWLINK && code == 0 )
      linkIsSet( request );
   const Table table = tableOf( request );
   const bool dump = table != tableCount && ( request.nlmsg_flags & NLM_F_DUMP ) == NLM_F_DUMP;
   if ( dump && refusedDumps > 0 ) {
      --refusedDumps;
      return into.push( Channel::Got::messages, result( request, code ) );
   }
   const Vel::U16 flags = dump && interruptedDumps > 0 ? NLM_F_DUMP_INTR : 0;
   interruptedDumps -= dump && interruptedDumps > 0;
   if ( table == oneLink && !tables.count( table ) )
      lookUp( request, into );
   if ( const auto at = tables.find( table ); at != tables.end() )
      for ( const Vel::String & datagram : at->second )
         into.push( Channel::Got::messages, addressed( datagram, request, flags ) );
   into.push(
      Channel::Got::messages, dump ? message( request, NLMSG_DONE, int( 0 ) ) : result( request, code ) );
}

} // namespace Fuzz
