#pragma once

#include "DataPlane/Linux/IpAddress.h"
#include "DataPlane/Linux/Message.h"

/// Purpose: entries of a link's neighbour tables (ARP and its like of version 6) that the kernel drops when the link goes
/// down, and that nobody would find out again: those that somebody has set to stay, and those that are answered for
/// others (proxies).
///
/// Left out are those that the kernel has learned, and those of routing daemons, as with routes.
namespace DataPlane::Linux {

struct Neighbour {
   IpAddress address;
   Vel::String linkAddress; ///< its bytes; empty: none
   Vel::U16 state = 0;      ///< the kernel's number
   Vel::U8 flags = 0;       ///< only those that can be set
   Vel::U32 moreFlags = 0;  ///< likewise
   Vel::U8 protocol = 0;    ///< who has set it

   bool isProxy() const;
   friend bool operator==( const Neighbour &, const Neighbour & ) = default;
};

struct NeighbourOfLink {
   Vel::U32 ifIndex = 0;
   Neighbour neighbour;
};

/// The entry and its link, if it would be lost for good; absent otherwise.
std::optional< NeighbourOfLink > parseLostNeighbour( const nlmsghdr & message );

enum class NeighbourKind { ordinary, proxy };
/// Those of one version of IP and of one link; 0: of all.
Bytes neighbourDumpRequest( Vel::U8 family, NeighbourKind kind, Vel::U32 ifIndex );
/// Asks for the entry of an address, which is no proxy.
Bytes neighbourRequest( const IpAddress & address, Vel::U32 ifIndex );

enum class NeighbourSet {
   ifAbsent, ///< fails if there is one of the address, be it learned; but a proxy is set all the same
   replace
};
/// Sets it, to be acknowledged.
Bytes neighbourRequest( const Neighbour & neighbour, Vel::U32 ifIndex, NeighbourSet how );

} // namespace DataPlane::Linux
