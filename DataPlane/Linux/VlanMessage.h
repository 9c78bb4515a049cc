#pragma once

#include "DataPlane/Linux/Message.h"

#include <bitset>

/// Purpose: what the kernel says of the VLANs of bridges and their ports, and how it is asked.
namespace DataPlane::Linux {

constexpr Vel::U16 firstVlan = 1;
constexpr Vel::U16 lastVlan = 4094;

/// By VLAN id; 0 and what is above `lastVlan` are never in it.
using VlanSet = std::bitset< lastVlan + 1 >;

/// What one message tells of the VLANs of one link. All that it does not name are as they were, as far as that is told.
struct VlanEvent {
   bool removed = false; ///< the link is not in these VLANs any more; else it is
   Vel::U32 ifIndex = 0; ///< of a port of a bridge, or of a bridge: the VLANs that the switch itself is in
   VlanSet vlans;
   /// The one of them that is the link's default; 0: none is. `VlanTable` says what follows from that.
   Vel::U16 defaultId = 0;
};

/// Absent for other types. Ranges and ids that are no VLAN are left out, and so is what concerns the bridge as a whole
/// rather than one of its links.
std::optional< VlanEvent > parseVlan( const nlmsghdr & message );

Bytes vlanDumpRequest();

} // namespace DataPlane::Linux
