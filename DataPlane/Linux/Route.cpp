#include "DataPlane/Linux/Route.h"

#include <algorithm>

#include <linux/rtnetlink.h>

namespace DataPlane::Linux {

namespace {

constexpr Vel::U32 settableFlags = RTNH_F_ONLINK | RTNH_F_PERVASIVE;
/// The kernel counts lifetimes of routes in these.
constexpr Vel::U32 clockTicks = 100;

bool isOneOf( unsigned number, std::initializer_list< unsigned > numbers ) {
   return std::find( numbers.begin(), numbers.end(), number ) != numbers.end();
}

/// Belongs to a way, be it the only one or one of several.
bool ofLeg( unsigned number ) { return isOneOf( number, { RTA_ENCAP, RTA_ENCAP_TYPE, RTA_FLOW } ); }

/// Has a field of its own, or says something that is not part of the route. A shared next hop (RTA_NH_ID) goes with its
/// link; what it stands for is in the other attributes.
bool hasField( unsigned number ) {
   return isOneOf(
      number, { RTA_DST, RTA_SRC, RTA_OIF, RTA_GATEWAY, RTA_VIA, RTA_PRIORITY, RTA_MULTIPATH, RTA_CACHEINFO,
                RTA_TABLE, RTA_NH_ID, RTA_UID, RTA_EXPIRES, RTA_PAD } );
}

std::vector< RawAttribute > rawOnes( const Attributes & attributes, bool ( *wanted )( unsigned ) ) {
   std::vector< RawAttribute > result;
   for ( const nlattr * attribute : attributes.all() )
      if ( wanted( number( *attribute ) ) )
         result.push_back(
            { static_cast< Vel::U16 >( number( *attribute ) ), Vel::String( payload( *attribute ) ) } );
   return result;
}

Leg parseLeg( const Attributes & attributes, Vel::U8 family, const Vel::String & device, Vel::U32 flags ) {
   Leg leg;
   leg.device = device;
   leg.flags = static_cast< Vel::U8 >( flags & settableFlags );
   leg.gateway = addressFrom( family, attributes.payload( RTA_GATEWAY ) );
   if ( const std::optional< std::string_view > via = attributes.payload( RTA_VIA );
        via && via->size() > sizeof( rtvia ) ) {
      rtvia header;
      __builtin_memcpy( &header, via->data(), sizeof header );
      leg.gateway =
         addressFrom( static_cast< Vel::U8 >( header.rtvia_family ), via->substr( sizeof header ) );
   }
   leg.others = rawOnes( attributes, ofLeg );
   return leg;
}

/// Empty if it is malformed.
std::vector< Leg > parseLegs( std::string_view payload, Vel::U8 family, const NameOfLink & nameOf ) {
   std::vector< Leg > legs;
   while ( payload.size() >= sizeof( rtnexthop ) ) {
      rtnexthop header;
      __builtin_memcpy( &header, payload.data(), sizeof header );
      if ( header.rtnh_len < sizeof header || header.rtnh_len > payload.size() )
         return {};
      const Attributes attributes( payload.data() + sizeof header, header.rtnh_len - sizeof header );
      legs.push_back( parseLeg(
         attributes, family, nameOf( static_cast< Vel::U32 >( header.rtnh_ifindex ) ), header.rtnh_flags ) );
      legs.back().weight = header.rtnh_hops;
      payload.remove_prefix( std::min< std::size_t >( RTNH_ALIGN( header.rtnh_len ), payload.size() ) );
   }
   return legs;
}

/// Numbers that routing daemons have taken without the kernel's header knowing them. Their owners set such routes again,
/// or have been told meanwhile not to.
enum : unsigned {
   protocolOvn = 84,
   protocolRipng = 190,
   protocolNhrp = 191,
   protocolLdp = 193,
   protocolSharp = 194,
   protocolPolicy = 195,
   protocolDaemonStatic = 196,
   protocolOpenFabric = 197,
   protocolSegmentRouting = 198
};

} // namespace

bool comesBackByItself( Vel::U8 protocol ) {
   return isOneOf(
      protocol, { RTPROT_REDIRECT,    RTPROT_KERNEL,         RTPROT_RA,      RTPROT_GATED,
                  RTPROT_MRT,         RTPROT_ZEBRA,          RTPROT_BIRD,    RTPROT_XORP,
                  RTPROT_MROUTED,     RTPROT_KEEPALIVED,     RTPROT_BABEL,   RTPROT_OPENR,
                  RTPROT_BGP,         RTPROT_ISIS,           RTPROT_OSPF,    RTPROT_RIP,
                  RTPROT_EIGRP,       protocolOvn,           protocolRipng,  protocolNhrp,
                  protocolLdp,        protocolSharp,         protocolPolicy, protocolDaemonStatic,
                  protocolOpenFabric, protocolSegmentRouting } );
}

bool Route::sameKey( const Route & other ) const {
   return family == other.family && destination == other.destination &&
          destinationLength == other.destinationLength && source == other.source &&
          sourceLength == other.sourceLength && tos == other.tos && table == other.table &&
          priority == other.priority;
}

std::optional< Route > parseRoute( const nlmsghdr & message, const NameOfLink & nameOf ) {
   const std::optional< rtmsg > header = fixedHeader< rtmsg >( message );
   if ( message.nlmsg_type != RTM_NEWROUTE || !header || ( header->rtm_flags & RTM_F_CLONED ) )
      return {};
   const unsigned longest = maxPrefix( header->rtm_family );
   if ( longest == 0 || header->rtm_dst_len > longest || header->rtm_src_len > longest )
      return {};
   const Attributes attributes( message, sizeof( rtmsg ) );
   if ( attributes.at( RTA_IIF ) )
      return {};
   Route route;
   route.family = header->rtm_family;
   const auto address = [&]( unsigned number ) {
      return addressFrom( route.family, attributes.payload( number ) ).value_or( anyAddress( route.family ) );
   };
   route.destination = address( RTA_DST );
   route.destinationLength = header->rtm_dst_len;
   route.source = address( RTA_SRC );
   route.sourceLength = header->rtm_src_len;
   route.tos = header->rtm_tos;
   route.table = attributes.u32( RTA_TABLE ).value_or( header->rtm_table );
   route.protocol = header->rtm_protocol;
   route.scope = header->rtm_scope;
   route.type = header->rtm_type;
   route.priority = attributes.u32( RTA_PRIORITY ).value_or( 0 );
   if ( const auto times = attributes.value< rta_cacheinfo >( RTA_CACHEINFO );
        times && times->rta_expires > 0 )
      route.expires = static_cast< Vel::U32 >( times->rta_expires ) / clockTicks;
   route.others =
      rawOnes( attributes, []( unsigned number ) { return !hasField( number ) && !ofLeg( number ); } );
   if ( const auto several = attributes.payload( RTA_MULTIPATH ) )
      route.legs = parseLegs( *several, route.family, nameOf );
   else
      route.legs.push_back( parseLeg(
         attributes, route.family, nameOf( attributes.u32( RTA_OIF ).value_or( 0 ) ), header->rtm_flags ) );
   if ( route.legs.empty() )
      return {};
   return route;
}

bool mayBeLost( const nlmsghdr & message ) {
   const std::optional< rtmsg > header = fixedHeader< rtmsg >( message );
   return header && !comesBackByItself( header->rtm_protocol );
}

bool isLost( const Route & route, const std::set< Vel::String > & devices ) {
   return !comesBackByItself( route.protocol ) &&
          std::any_of( route.legs.begin(), route.legs.end(), [&]( const Leg & leg ) {
             return devices.count( leg.device ) > 0;
          } );
}

Bytes routeDumpRequest( Vel::U8 family, Vel::U32 ifIndex, Vel::U8 protocol ) {
   rtmsg header{};
   header.rtm_family = family;
   header.rtm_protocol = protocol;
   MessageBuilder message( RTM_GETROUTE, NLM_F_REQUEST | NLM_F_DUMP );
   message.header( header );
   if ( ifIndex != 0 )
      message.attribute( RTA_OIF, ifIndex );
   return message.take();
}

namespace {

void putLeg( MessageBuilder & message, const Leg & leg, Vel::U8 family ) {
   if ( leg.gateway && leg.gateway->family == family )
      message.attribute( RTA_GATEWAY, leg.gateway->payload() );
   else if ( leg.gateway ) {
      const Vel::U16 other = leg.gateway->family;
      Vel::String via( reinterpret_cast< const char * >( &other ), sizeof other );
      message.attribute( RTA_VIA, via += leg.gateway->payload() );
   }
   for ( const RawAttribute & attribute : leg.others )
      message.attribute( attribute.number, attribute.payload );
}

} // namespace

std::optional< Bytes > routeRequest( const Route & route, RouteSet how, const LinkOfName & linkOf ) {
   rtmsg header{};
   header.rtm_family = route.family;
   header.rtm_dst_len = route.destinationLength;
   header.rtm_src_len = route.sourceLength;
   header.rtm_tos = route.tos;
   header.rtm_table = route.table < 256 ? static_cast< Vel::U8 >( route.table ) : Vel::U8( RT_TABLE_UNSPEC );
   header.rtm_protocol = route.protocol;
   header.rtm_scope = route.scope;
   header.rtm_type = route.type;
   const bool several = route.legs.size() > 1;
   if ( !several )
      header.rtm_flags = route.legs.front().flags;
   MessageBuilder message(
      RTM_NEWROUTE, static_cast< Vel::U16 >(
                       NLM_F_REQUEST | NLM_F_ACK | NLM_F_CREATE |
                       ( how == RouteSet::replace ? NLM_F_REPLACE : NLM_F_EXCL ) ) );
   message.header( header );
   if ( route.destinationLength > 0 )
      message.attribute( RTA_DST, route.destination.payload() );
   if ( route.sourceLength > 0 )
      message.attribute( RTA_SRC, route.source.payload() );
   message.attribute( RTA_TABLE, route.table );
   if ( route.priority != 0 )
      message.attribute( RTA_PRIORITY, route.priority );
   if ( route.expires )
      message.attribute( RTA_EXPIRES, *route.expires );
   for ( const RawAttribute & attribute : route.others )
      message.attribute( attribute.number, attribute.payload );

   std::vector< Vel::U32 > devices;
   for ( const Leg & leg : route.legs ) {
      devices.push_back( leg.device.empty() ? 0 : linkOf( leg.device ) );
      if ( devices.back() == 0 && !leg.device.empty() )
         return {};
   }
   if ( !several ) {
      if ( devices.front() != 0 )
         message.attribute( RTA_OIF, devices.front() );
      putLeg( message, route.legs.front(), route.family );
      return message.take();
   }
   message.nested( RTA_MULTIPATH, [&] {
      for ( std::size_t i = 0; i < route.legs.size(); ++i ) {
         const std::size_t begin = message.size();
         rtnexthop hop{};
         hop.rtnh_flags = route.legs[i].flags;
         hop.rtnh_hops = route.legs[i].weight;
         hop.rtnh_ifindex = static_cast< int >( devices[i] );
         message.append( &hop, sizeof hop );
         putLeg( message, route.legs[i], route.family );
         message.u16At( begin, message.size() - begin );
      }
   } );
   return message.take();
}

} // namespace DataPlane::Linux
