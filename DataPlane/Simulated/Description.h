#pragma once

#include "Platform/Vel/String.h"

#include <optional>
#include <vector>

/// Purpose: plain description of a simulated switch.
namespace DataPlane::Simulated {

/// One piece of traffic, after the one before it.
struct TrafficSegment {
   bool ramp = false; ///< linear from the rates at the end of the segment before to these; otherwise constant
   double seconds = 0; ///< length, at least 0, at most ten days
   double inBps = 0;   ///< bits per second received by the port, 0 to 10 Tbit/s
   double outBps = 0;  ///< bits per second transmitted by the port
};

struct Port {
   Vel::String name;
   /// From the start of the switch; the rates at its end stay. None: no traffic.
   std::vector< TrafficSegment > traffic;
   std::optional< double > speedBps = {}; ///< of the link, above 0
};

struct PortChannel {
   Vel::String name;
   std::vector< Vel::String > members; ///< ports, each in one port-channel at most
};

struct Vlan {
   Vel::U16 id = 0;  ///< 1 to 4094
   Vel::String name; ///< of the VLAN's interface
   /// Ports and port-channels. A port that is in a port-channel is a member as part of that only, so while the
   /// port-channel exists the port itself is not listed.
   std::vector< Vel::String > members;
};

/// A route. Several to one destination differ in their metric.
struct Route {
   Vel::String to;                 ///< "10.0.0.0/8"
   std::vector< Vel::String > via; ///< ports, port-channels and VLAN interfaces that share its traffic evenly
   Vel::U32 metric = 0;            ///< the lowest is preferred
};

/// Names are all different and have 1 to 27 bytes.
struct Description {
   std::vector< Port > ports;
   std::vector< PortChannel > portChannels;
   std::vector< Vlan > vlans;
   Vel::String bootId; ///< of this run of the switch; empty: "simulated"
   std::vector< Route > routes = {};
};

} // namespace DataPlane::Simulated
