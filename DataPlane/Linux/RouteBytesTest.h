#pragma once

#include "DataPlane/Linux/LinuxFaultTest.h"
#include "DataPlane/Linux/RouteMessage.h"

#include <linux/fib_rules.h>

/// Purpose: routes and rules as a test describes them, in the words of the kernel.
namespace DataPlane::Linux {

/// A way as a test describes it.
struct TestHop {
   Vel::U32 ifIndex;
   Vel::U32 weight = 1;
   unsigned flags = 0;
};

/// A route as a test describes it.
struct TestRoute {
   const char * destination;
   std::vector< TestHop > hops;
   Vel::U32 metric = 0;
   Vel::U32 nextHopId = 0;
   Vel::U8 type = RTN_UNICAST;
   Vel::U8 protocol = RTPROT_STATIC;
   Vel::U32 table = RT_TABLE_MAIN;
   bool gateway = true;
   Vel::U8 scope = RT_SCOPE_UNIVERSE;
   const char * source = nullptr; ///< a prefix
};

inline Bytes routeBytes( const TestRoute & route ) {
   const Vel::String text = route.destination;
   const IpAddress destination = address( text.substr( 0, text.find( '/' ) ).c_str() );
   rtmsg header{};
   header.rtm_family = destination.family;
   header.rtm_dst_len = static_cast< Vel::U8 >( std::stoi( text.substr( text.find( '/' ) + 1 ) ) );
   header.rtm_type = route.type;
   header.rtm_protocol = route.protocol;
   header.rtm_scope = route.scope;
   const Vel::String source = route.source ? route.source : "";
   if ( route.source )
      header.rtm_src_len = static_cast< Vel::U8 >( std::stoi( source.substr( source.find( '/' ) + 1 ) ) );
   if ( route.hops.size() == 1 )
      header.rtm_flags = route.hops[0].flags;
   MessageBuilder message( RTM_NEWROUTE, 0 );
   message.header( header );
   message.attribute( RTA_TABLE, route.table );
   if ( header.rtm_dst_len > 0 )
      message.attribute( RTA_DST, destination.payload() );
   if ( route.source )
      message.attribute( RTA_SRC, address( source.substr( 0, source.find( '/' ) ).c_str() ).payload() );
   if ( route.metric != 0 )
      message.attribute( RTA_PRIORITY, route.metric );
   if ( route.nextHopId != 0 )
      message.attribute( RTA_NH_ID, route.nextHopId );
   if ( route.hops.size() == 1 ) {
      message.attribute( RTA_OIF, route.hops[0].ifIndex );
      if ( route.gateway )
         message.attribute( RTA_GATEWAY, destination.payload() );
   }
   if ( route.hops.size() > 1 )
      message.nested( RTA_MULTIPATH, [&] {
         for ( const TestHop & hop : route.hops ) {
            const std::size_t begin = message.size();
            rtnexthop next{};
            next.rtnh_hops = static_cast< Vel::U8 >( hop.weight - 1 );
            next.rtnh_ifindex = static_cast< int >( hop.ifIndex );
            next.rtnh_flags = static_cast< Vel::U8 >( hop.flags );
            message.append( &next, sizeof next );
            message.attribute( RTA_GATEWAY, destination.payload() );
            message.u16At( begin, message.size() - begin );
         }
      } );
   return message.take();
}

inline Bytes ruleBytes(
   Vel::U32 table, const std::function< void( fib_rule_hdr & ) > & change = {}, Vel::U16 selector = 0,
   Vel::U32 value = 1 ) {
   fib_rule_hdr header{};
   header.family = AF_INET;
   header.action = FR_ACT_TO_TBL;
   if ( change )
      change( header );
   MessageBuilder message( RTM_NEWRULE, 0 );
   message.header( header );
   message.attribute( FRA_TABLE, table );
   if ( selector != 0 )
      message.attribute( selector, value );
   return message.take();
}

inline RouteEntry parsed( const TestRoute & route ) {
   const Bytes bytes = routeBytes( route );
   return parseRouteEntry( messageIn( bytes ) ).value();
}

} // namespace DataPlane::Linux
