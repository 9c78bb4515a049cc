#pragma once

#include "DataPlane/Linux/Message.h"

/// Purpose: what the kernel says of links and their counters, and how it is asked.
namespace DataPlane::Linux {

/// A link as the kernel describes it.
struct LinkMessage {
   Vel::U32 ifIndex = 0; ///< above 0
   Vel::String name;     ///< 1 to 15 bytes
   bool loopback = false;
   bool adminUp = false;
   bool lowerUp = false; ///< has a carrier; at once, where the operational state follows up to a second later
   Vel::String kind;     ///< "bond", "vlan"; empty for plain devices
   Vel::U32 lower = 0;   ///< the link below it, of this namespace; 0: none
   Vel::U32 master = 0;  ///< the bond, team or bridge that it belongs to; 0: none
   Vel::String slaveKind;             ///< the kind of its master; empty: it has none
   Vel::U16 vlanId = 0;               ///< of VLAN devices; 0: what is told is no VLAN's id
   Vel::U16 vlanProtocol = 0;         ///< of VLAN devices and bridges, in network order; 0: not told
   bool looseBinding = false;         ///< of VLAN devices: it does not go down and up with the link below it
   bool vlanFiltering = false;        ///< of bridges: each port carries only the VLANs that it is in
   std::optional< Vel::U8 > bondMode; ///< of bonds, by the kernel's numbers; absent: not told
   bool standby = false;              ///< of members of bonds: it is not in use
   bool pointToPoint = false;         ///< nobody is on the link itself: a tunnel and the like
   Vel::U32 carrierChanges = 0;       ///< of bridges, since they were made; 0: not told, or none

   friend bool operator==( const LinkMessage &, const LinkMessage & ) = default;
};

/// What one message on links tells.
struct LinkEvent {
   bool removed = false;
   LinkMessage link; ///< if removed: only ifIndex counts
};

/// Absent for messages that are no use here: other types, those of the bridge about its ports (which also "remove" a
/// link that only leaves the bridge), those of wireless devices that describe no link, and whatever is malformed.
std::optional< LinkEvent > parseLink( const nlmsghdr & message );

/// Octets of one link since it was made.
struct StatsMessage {
   Vel::U32 ifIndex = 0;
   Vel::U64 inOctets = 0;
   Vel::U64 outOctets = 0;
};
/// Absent for other types and for a link without counters.
std::optional< StatsMessage > parseStats( const nlmsghdr & message );

Bytes linkDumpRequest();
/// One link.
Bytes linkRequest( Vel::U32 ifIndex );
Bytes statsDumpRequest();
/// Sets a link up or down, to be acknowledged.
Bytes linkSetRequest( Vel::U32 ifIndex, bool up );

} // namespace DataPlane::Linux
