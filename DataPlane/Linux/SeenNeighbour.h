#pragma once

#include "DataPlane/Linux/IpAddress.h"
#include "DataPlane/Linux/Message.h"

/// Purpose: what the kernel says of one neighbour on a link, and of the port of a bridge behind which somebody is, and how
/// bridges are asked. Whole tables are never read: they may have a hundred thousand entries.
namespace DataPlane::Linux {

using HardwareAddress = std::array< Vel::U8, 6 >;
/// "02:00:00:00:00:07"
Vel::String stringValue( const HardwareAddress & address );

struct NeighbourEntry {
   bool ofBridge = false; ///< an entry of a bridge's table, else one of a link's neighbours
   Vel::U32 ifIndex = 0; ///< the link; of a bridge's the port, or the bridge itself for an address of its own
   /// Nothing: the kernel has asked for it in vain, or is still asking, or it is no address of Ethernet.
   std::optional< HardwareAddress > hardware;
};
/// Absent for other messages and malformed ones.
std::optional< NeighbourEntry > parseNeighbour( const nlmsghdr & message );

/// The port of a bridge behind which it has seen the address; `vlanId` is 0 of a bridge that does not filter.
Bytes bridgePortRequest( Vel::U32 bridge, const HardwareAddress & address, Vel::U16 vlanId );

} // namespace DataPlane::Linux
