#pragma once

#include "DataPlane/Linux/Dump.h"
#include "DataPlane/Linux/LinkTable.h"
#include "DataPlane/Linux/SeenNeighbour.h"
#include "DataPlane/Linux/VlanTable.h"
#include "DataPlane/Routes.h"

/// Purpose: finds the port of a bridge behind which a neighbour is that is reached over the bridge, or over a device that
/// stands on it. Asks the kernel for two entries; changes nothing, and makes nobody ask on the network.
namespace DataPlane::Linux {

/// The bridge on which a link stands, and in which of its VLANs.
struct BridgeBelow {
   Vel::U32 bridge = 0; ///< its number; 0: the link stands on none
   Vel::U16 vlanId = 0; ///< 0: it does not tell VLANs apart, or what it sends itself is in none

   friend bool operator==( const BridgeBelow &, const BridgeBelow & ) = default;
};
/// Pure.
BridgeBelow bridgeBelow( const LinkTable & links, const VlanTable & vlans, Vel::U32 ifIndex );
/// The kinds of links whose packets leave over the one link that they are made on.
bool standsOnLower( const LinkMessage & link );

class BehindBridge {
 public:
   /// All outlive it.
   BehindBridge( Dumps & lookUps, const LinkTable & links, const VlanTable & vlans )
      : lookUps_( lookUps ), links_( links ), vlans_( vlans ) {}

   /// Nothing: no bridge is below the link.
   std::optional< BehindPort > find( Vel::U32 ifIndex, const IpAddress & neighbour );

 private:
   /// Nothing if the kernel has none.
   std::optional< NeighbourEntry > one( const Bytes & request, bool ofBridge );

   Dumps & lookUps_;
   const LinkTable & links_;
   const VlanTable & vlans_;
};

} // namespace DataPlane::Linux
