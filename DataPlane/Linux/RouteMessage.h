#pragma once

#include "DataPlane/Linux/IpAddress.h"
#include "DataPlane/Linux/Message.h"

/// Purpose: what the kernel says of routes to somebody who only has to know which links they lead over. Of a million
/// routes no more is read than that; Route.h reads whole ones.
namespace DataPlane::Linux {

/// Tells destinations apart: a route of each preference may lead to one.
struct RouteKey {
   IpAddress destination;
   IpAddress source; ///< only for packets from there
   Vel::U8 length = 0, sourceLength = 0;
   Vel::U8 tos = 0;
   Vel::U32 table = 0;

   friend bool operator==( const RouteKey &, const RouteKey & ) = default;
   friend bool operator<( const RouteKey & a, const RouteKey & b );
};
/// "10.0.0.0/8", "10.0.0.0/8 table 100", "::/0 from 2001:db8::/32"
Vel::String stringValue( const RouteKey & key );

/// One way out, by the number of the link.
struct RouteHop {
   Vel::U32 ifIndex = 0;
   Vel::U32 weight = 1;
   bool usable = true;

   friend bool operator==( const RouteHop &, const RouteHop & ) = default;
   friend auto operator<=>( const RouteHop &, const RouteHop & ) = default;
};
using RouteHops = std::vector< RouteHop >;

/// One way out, with whom on the link it leads to.
struct RouteWay {
   RouteHop hop;
   std::optional< IpAddress > gateway; ///< may be of the other version; nothing: the destination itself

   friend bool operator==( const RouteWay &, const RouteWay & ) = default;
};
using RouteWays = std::vector< RouteWay >;

struct RouteEntry {
   enum class Kind {
      path,      ///< leads to others
      connected, ///< to who is on the link itself
      onLink,    ///< the same if there is anybody on the link itself, and else a path
      refusal,   ///< drops what it is for, or leaves it to another table
      local      ///< the machine's own addresses, and those of everybody
   };
   RouteKey key;
   Kind kind = Kind::path;
   Vel::U32 metric = 0;    ///< the lowest is preferred
   Vel::U32 nextHopId = 0; ///< of the next hop that stands for `hops`, if that has none; 0: there is no such
   RouteHops hops;
   std::vector< std::optional< IpAddress > > gateways = {}; ///< of each of the hops, for who asks for them
};
/// Absent for other messages and malformed ones, and for what is no entry of a table (cached routes, multicast). Without
/// gateways: few are interested in them.
std::optional< RouteEntry > parseRouteEntry( const nlmsghdr & message );
/// The gateway of each hop of a message that is a route entry.
std::vector< std::optional< IpAddress > > parseGateways( const nlmsghdr & message );

/// A next hop that routes share, or a group of them.
struct NextHopObject {
   Vel::U32 id = 0;
   RouteHops hops;                          ///< one, unless it is a group; none: it drops
   std::optional< IpAddress > gateway = {}; ///< of that one
   struct Member {
      Vel::U32 id;
      Vel::U32 weight;
   };
   std::vector< Member > group;
};
std::optional< NextHopObject > parseNextHop( const nlmsghdr & message );

/// By what a rule that chooses between tables does so, besides the address that a packet of the machine's own goes to.
enum class RuleBasis { nothing, source, more };
/// Nothing for what is no rule.
RuleBasis parseRuleBasis( const nlmsghdr & message );

/// A rule may leave its table's answer out if the prefix is no longer than this; -1: it does not.
int parseSuppressedLength( const nlmsghdr & message );

Bytes nextHopDumpRequest();
Bytes ruleDumpRequest( Vel::U8 family );
/// Which entry of which table the kernel would take for a packet to that address, from a source of its own or of any.
Bytes routeLookUpRequest( const IpAddress & address, const std::optional< IpAddress > & source );

} // namespace DataPlane::Linux
