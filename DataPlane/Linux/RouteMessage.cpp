#include "DataPlane/Linux/RouteMessage.h"

#include "Platform/Vel/Text.h"

#include <tuple>

#include <linux/fib_rules.h>
#include <linux/nexthop.h>
#include <linux/rtnetlink.h>

namespace DataPlane::Linux {

namespace {

bool isUsable( unsigned flags ) { return !( flags & ( RTNH_F_DEAD | RTNH_F_LINKDOWN ) ); }

/// Calls `take` with each hop and the attributes behind it. False: it is malformed.
template < class Take >
bool forEachHop( std::string_view payload, const Take & take ) {
   while ( payload.size() >= sizeof( rtnexthop ) ) {
      rtnexthop header;
      __builtin_memcpy( &header, payload.data(), sizeof header );
      if ( header.rtnh_len < sizeof header || header.rtnh_len > payload.size() )
         return false;
      take( header, payload.substr( sizeof header, header.rtnh_len - sizeof header ) );
      payload.remove_prefix( std::min< std::size_t >( RTNH_ALIGN( header.rtnh_len ), payload.size() ) );
   }
   return true;
}

/// Empty if it is malformed.
RouteHops parseHops( std::string_view payload ) {
   RouteHops hops;
   const bool whole = forEachHop( payload, [&]( const rtnexthop & header, std::string_view ) {
      hops.push_back(
         { static_cast< Vel::U32 >( header.rtnh_ifindex ), header.rtnh_hops + 1U,
           isUsable( header.rtnh_flags ) } );
   } );
   return whole ? hops : RouteHops();
}

std::optional< IpAddress > gatewayIn( const Attributes & attributes, Vel::U8 family ) {
   const std::optional< std::string_view > via = attributes.payload( RTA_VIA );
   if ( !via || via->size() <= sizeof( rtvia ) )
      return addressFrom( family, attributes.payload( RTA_GATEWAY ) );
   rtvia header;
   __builtin_memcpy( &header, via->data(), sizeof header );
   return addressFrom( static_cast< Vel::U8 >( header.rtvia_family ), via->substr( sizeof header ) );
}

RouteEntry::Kind kindOf( const rtmsg & header, bool hasGateway ) {
   using Kind = RouteEntry::Kind;
   switch ( header.rtm_type ) {
   case RTN_UNICAST:
      break;
   case RTN_BLACKHOLE:
   case RTN_UNREACHABLE:
   case RTN_PROHIBIT:
   case RTN_THROW:
      return Kind::refusal;
   default:
      return Kind::local;
   }
   if ( hasGateway )
      return Kind::path;
   // The kernel itself makes those of addresses; a router announces what is on the link and what is behind it.
   if ( header.rtm_protocol == RTPROT_KERNEL || header.rtm_protocol == RTPROT_RA )
      return Kind::connected;
   // Others say so of single hosts and whole networks. (Of version 6 the kernel does not tell how far one reaches.)
   return header.rtm_family == AF_INET6 || header.rtm_scope == RT_SCOPE_LINK ? Kind::onLink : Kind::path;
}

} // namespace

bool operator<( const RouteKey & a, const RouteKey & b ) {
   const auto tied = []( const RouteKey & key ) {
      return std::tie(
         key.destination.family, key.destination.bytes, key.length, key.source.bytes, key.sourceLength,
         key.tos, key.table );
   };
   return tied( a ) < tied( b );
}

Vel::String stringValue( const RouteKey & key ) {
   Vel::String text = Vel::text( stringValue( key.destination ), "/", unsigned( key.length ) );
   if ( key.sourceLength != 0 )
      text += Vel::text( " from ", stringValue( key.source ), "/", unsigned( key.sourceLength ) );
   if ( key.tos != 0 )
      text += Vel::text( " tos ", unsigned( key.tos ) );
   if ( key.table != RT_TABLE_MAIN )
      text += Vel::text( " table ", key.table );
   return text;
}

std::optional< RouteEntry > parseRouteEntry( const nlmsghdr & message ) {
   const std::optional< rtmsg > header = fixedHeader< rtmsg >( message );
   if ( message.nlmsg_type != RTM_NEWROUTE || !header || ( header->rtm_flags & RTM_F_CLONED ) )
      return {};
   const unsigned longest = maxPrefix( header->rtm_family );
   if (
      longest == 0 || header->rtm_dst_len > longest || header->rtm_src_len > longest ||
      header->rtm_type == RTN_MULTICAST )
      return {};
   const Attributes attributes( message, sizeof( rtmsg ) );
   if ( attributes.at( RTA_IIF ) )
      return {};
   RouteEntry route;
   route.key.destination = addressFrom( header->rtm_family, attributes.payload( RTA_DST ) )
                              .value_or( anyAddress( header->rtm_family ) );
   route.key.length = header->rtm_dst_len;
   route.key.source = addressFrom( header->rtm_family, attributes.payload( RTA_SRC ) )
                         .value_or( anyAddress( header->rtm_family ) );
   route.key.sourceLength = header->rtm_src_len;
   route.key.tos = header->rtm_tos;
   route.key.table = attributes.u32( RTA_TABLE ).value_or( header->rtm_table );
   route.metric = attributes.u32( RTA_PRIORITY ).value_or( 0 );
   const bool hasGateway =
      attributes.at( RTA_GATEWAY ) || attributes.at( RTA_VIA ) || attributes.at( RTA_MULTIPATH );
   route.kind = kindOf( *header, hasGateway );
   if ( route.kind == RouteEntry::Kind::refusal )
      return route;
   if ( const auto several = attributes.payload( RTA_MULTIPATH ) ) {
      route.hops = parseHops( *several );
      if ( route.hops.empty() )
         return {};
   } else if ( const auto link = attributes.u32( RTA_OIF ) ) {
      route.hops.push_back( { *link, 1, isUsable( header->rtm_flags ) } );
   } else {
      route.nextHopId = attributes.u32( RTA_NH_ID ).value_or( 0 );
      // Of what a kernel does not tell more of, it is not even known to be connected.
      if ( route.nextHopId == 0 && route.kind != RouteEntry::Kind::local )
         return {};
      if ( route.kind == RouteEntry::Kind::connected || route.kind == RouteEntry::Kind::onLink )
         route.kind = RouteEntry::Kind::path;
   }
   return route;
}

std::vector< std::optional< IpAddress > > parseGateways( const nlmsghdr & message ) {
   std::vector< std::optional< IpAddress > > result;
   const std::optional< rtmsg > header = fixedHeader< rtmsg >( message );
   if ( !header )
      return result;
   const Attributes attributes( message, sizeof( rtmsg ) );
   if ( const auto several = attributes.payload( RTA_MULTIPATH ) )
      forEachHop( *several, [&]( const rtnexthop &, std::string_view behind ) {
         result.push_back( gatewayIn( Attributes( behind.data(), behind.size() ), header->rtm_family ) );
      } );
   else
      result.push_back( gatewayIn( attributes, header->rtm_family ) );
   return result;
}

std::optional< NextHopObject > parseNextHop( const nlmsghdr & message ) {
   const std::optional< nhmsg > header = fixedHeader< nhmsg >( message );
   if ( message.nlmsg_type != RTM_NEWNEXTHOP || !header )
      return {};
   const Attributes attributes( message, sizeof( nhmsg ) );
   NextHopObject result;
   result.id = attributes.u32( NHA_ID ).value_or( 0 );
   if ( result.id == 0 )
      return {};
   if ( const auto group = attributes.payload( NHA_GROUP ) )
      for ( std::size_t at = 0; at + sizeof( nexthop_grp ) <= group->size(); at += sizeof( nexthop_grp ) ) {
         nexthop_grp member;
         __builtin_memcpy( &member, group->data() + at, sizeof member );
         result.group.push_back( { member.id, member.weight + 1U } );
      }
   else if ( const auto link = attributes.u32( NHA_OIF ) ) {
      result.hops.push_back( { *link, 1, isUsable( header->nh_flags ) } );
      result.gateway = addressFrom( header->nh_family, attributes.payload( NHA_GATEWAY ) );
   }
   return result;
}

namespace {

/// Of a rule that is for packets of the machine's own. What comes in over a link is none.
std::optional< fib_rule_hdr > ruleForOwn( const nlmsghdr & message ) {
   const std::optional< fib_rule_hdr > header = fixedHeader< fib_rule_hdr >( message );
   if ( message.nlmsg_type != RTM_NEWRULE || !header )
      return {};
   const Attributes attributes( message, sizeof( fib_rule_hdr ) );
   return !attributes.at( FRA_IIFNAME ) || attributes.text( FRA_IIFNAME ) == "lo" ? header : std::nullopt;
}

} // namespace

int parseSuppressedLength( const nlmsghdr & message ) {
   const std::optional< fib_rule_hdr > header = ruleForOwn( message );
   if ( !header )
      return -1;
   const Attributes attributes( message, sizeof( fib_rule_hdr ) );
   if ( attributes.at( FRA_SUPPRESS_IFGROUP ) )
      return static_cast< int >( maxPrefix( header->family ) );
   // The kernel says of each rule how long, and -1 of those that leave out nothing.
   return static_cast< int >( attributes.u32( FRA_SUPPRESS_PREFIXLEN ).value_or( 0xffffffffu ) );
}

RuleBasis parseRuleBasis( const nlmsghdr & message ) {
   const std::optional< fib_rule_hdr > header = ruleForOwn( message );
   if ( !header )
      return RuleBasis::nothing;
   const Attributes attributes( message, sizeof( fib_rule_hdr ) );
   for ( const Vel::U16 selector :
         { FRA_OIFNAME, FRA_FWMARK, FRA_UID_RANGE, FRA_IP_PROTO, FRA_SPORT_RANGE, FRA_DPORT_RANGE,
           FRA_L3MDEV } )
      if ( attributes.at( selector ) )
         return RuleBasis::more;
   if ( header->tos != 0 )
      return RuleBasis::more;
   return header->src_len != 0 ? RuleBasis::source : RuleBasis::nothing;
}

Bytes ruleDumpRequest( Vel::U8 family ) {
   fib_rule_hdr header{};
   header.family = family;
   return MessageBuilder( RTM_GETRULE, NLM_F_REQUEST | NLM_F_DUMP ).header( header ).take();
}

Bytes nextHopDumpRequest() {
   return MessageBuilder( RTM_GETNEXTHOP, NLM_F_REQUEST | NLM_F_DUMP ).header( nhmsg{} ).take();
}

Bytes routeLookUpRequest( const IpAddress & address, const std::optional< IpAddress > & source ) {
   rtmsg header{};
   header.rtm_family = address.family;
   header.rtm_dst_len = static_cast< Vel::U8 >( maxPrefix( address.family ) );
   // Of version 6 the kernel always tells the table, and refuses to be asked for it.
   header.rtm_flags = RTM_F_FIB_MATCH | ( address.family == AF_INET ? RTM_F_LOOKUP_TABLE : 0u );
   if ( source )
      header.rtm_src_len = static_cast< Vel::U8 >( maxPrefix( source->family ) );
   MessageBuilder message( RTM_GETROUTE, NLM_F_REQUEST );
   message.header( header );
   message.attribute( RTA_DST, address.payload() );
   if ( source )
      message.attribute( RTA_SRC, source->payload() );
   return message.take();
}

} // namespace DataPlane::Linux
