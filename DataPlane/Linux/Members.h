#pragma once

#include "DataPlane/Linux/LinkTable.h"
#include "DataPlane/Linux/VlanTable.h"

/// Purpose: which ports are in which port-channels and which links in which VLANs, worked out from what the kernel has
/// said of links and VLANs. No state, no memory: the same tables give the same members, however they came to be so.
///
/// Port-channels: a link whose master is a bond or a team is a member of it, up or not.
/// VLANs: a port of a bridge that filters is in the VLANs that the kernel tells, and so is the bridge itself (as the CPU
/// port). On a bridge that does not filter, all ports and the bridge are in VLAN 1 and in no other.
/// A VLAN id belongs to one bridge: the one below the VLAN interface of that id that was told, or else the one with the
/// lowest number that has members in it. The members are that bridge's.
///
/// Invariants:
/// 1. What cannot be counted has no members, rather than too few: a port-channel with a member that is no Ethernet port,
///    for only those have counters; a VLAN with a member that is neither an Ethernet port nor a port-channel that can be
///    counted; a VLAN whose interface sees other frames than the bridge carries in it.
/// 2. All members are links that were told, and none is in a port-channel and in a VLAN.
namespace DataPlane::Linux {

struct Members {
   std::map< Wire::IntfId, Wire::IntfId > portChannels; ///< by member
   std::map< Wire::IntfId, VlanSet > vlans;             ///< by member; none of them empty
   /// Why port-channels and VLAN interfaces cannot be counted, for the operator; by the interface.
   std::map< Wire::IntfId, Vel::String > uncounted;
};

Members membersOf( const LinkTable & links, const VlanTable & vlans );

} // namespace DataPlane::Linux
