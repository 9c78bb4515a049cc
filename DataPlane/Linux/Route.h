#pragma once

#include "DataPlane/Linux/IpAddress.h"
#include "DataPlane/Linux/Message.h"

#include <set>

/// Purpose: routes over a link that the kernel drops when it goes down, of both versions of IP.
///
/// Left out are those that come back by themselves: the kernel's own (they follow the addresses), those that a router
/// announces, and those of routing daemons. A daemon watches links and knows better than an old picture which of its
/// routes still hold.
namespace DataPlane::Linux {

/// An attribute that is kept as it is.
struct RawAttribute {
   Vel::U16 number = 0;
   Vel::String payload;

   friend bool operator==( const RawAttribute &, const RawAttribute & ) = default;
};

/// One way that a route takes.
struct Leg {
   Vel::String device;                 ///< the kernel's name; empty: none
   std::optional< IpAddress > gateway; ///< may be of the other version
   Vel::U8 weight = 0;                 ///< one less than the number of shares
   Vel::U8 flags = 0;                  ///< only those that can be set
   std::vector< RawAttribute > others; ///< encapsulation, realms

   friend bool operator==( const Leg &, const Leg & ) = default;
};

struct Route {
   Vel::U8 family = 0;
   IpAddress destination, source;
   Vel::U8 destinationLength = 0, sourceLength = 0;
   Vel::U8 tos = 0;
   Vel::U32 table = 0;
   Vel::U8 protocol = 0;
   Vel::U8 scope = 0;
   Vel::U8 type = 0;
   Vel::U32 priority = 0;
   std::optional< Vel::U32 > expires;  ///< seconds left
   std::vector< RawAttribute > others; ///< metrics, preferred source and the like
   std::vector< Leg > legs;            ///< at least one

   /// Whether the kernel takes the two for the same route.
   bool sameKey( const Route & other ) const;
   friend bool operator==( const Route &, const Route & ) = default;
};

/// The kernel's name of a link's number; empty: not known.
using NameOfLink = std::function< Vel::String( Vel::U32 ifIndex ) >;
/// The number of a link's name; 0: there is none.
using LinkOfName = std::function< Vel::U32( const Vel::String & name ) >;

/// A route of whatever kind; absent for other messages and malformed ones, and for what is no entry of a table (cached
/// routes, multicast).
std::optional< Route > parseRoute( const nlmsghdr & message, const NameOfLink & nameOf );
/// Whether the route of a message may be one that is lost with a link: a quick look, for those of which there are many
/// (a routing daemon's) are not.
bool mayBeLost( const nlmsghdr & message );
/// Whether it would be lost for good when those links go down.
bool isLost( const Route & route, const std::set< Vel::String > & devices );
/// Whether whoever has the kernel's number `protocol` sets what is lost with a link again without being asked.
bool comesBackByItself( Vel::U8 protocol );

/// Routes of one version of IP that use a link, and of one protocol; 0: any.
Bytes routeDumpRequest( Vel::U8 family, Vel::U32 ifIndex, Vel::U8 protocol );

enum class RouteSet {
   ifAbsent, ///< fails if there is one with the same key
   replace   ///< takes the place of the one with the same key
};
/// Sets it, to be acknowledged. Absent if a device of it is not there.
std::optional< Bytes > routeRequest( const Route & route, RouteSet how, const LinkOfName & linkOf );

} // namespace DataPlane::Linux
