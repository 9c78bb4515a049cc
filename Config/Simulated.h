#pragma once

#include "Config/Duration.h"
#include "Config/Rate.h"
#include "Config/VlanSet.h"

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace Config {

/// One piece of the traffic of a simulated port.
struct TrafficSegment {
   enum class Kind {
      hold, ///< constant rates
      ramp  ///< linear, from the rates at its begin to these at its end
   };
   Kind kind = Kind::hold;
   Duration length; ///< at least 1s
   Rate in; ///< in effect: what the file leaves out is filled in from the segment before, 0 before the first
   Rate out;

   friend bool operator==( const TrafficSegment &, const TrafficSegment & ) = default;
};

struct SimulatedPort {
   /// One after the other, once, from the start of the switch; after the last its final rates stay. None: no traffic.
   std::vector< TrafficSegment > traffic;
   std::optional< Rate > speed; ///< of the link, above 0; nothing: nobody knows

   friend bool operator==( const SimulatedPort &, const SimulatedPort & ) = default;
};

struct SimulatedVlan {
   std::string name;                ///< of its VLAN interface
   std::set< std::string > members; ///< ports and port-channels

   friend bool operator==( const SimulatedVlan &, const SimulatedVlan & ) = default;
};

/// A route. Several to one destination differ in their metric; the lowest is preferred.
struct SimulatedRoute {
   std::string to;              ///< canonical: see parsePrefix()
   std::set< std::string > via; ///< interfaces that share its traffic evenly, at least one
   unsigned metric = 0;

   friend bool operator==( const SimulatedRoute &, const SimulatedRoute & ) = default;
};

/// The simulated switch.
///
/// Invariants of one that was accepted:
/// 1. the names of ports, port-channels and VLAN interfaces are all different
/// 2. members of port-channels are ports, each of one port-channel at most
/// 3. members of VLANs are port-channels and ports that are in no port-channel
/// 4. routes lead over ports, port-channels and VLAN interfaces
struct Simulated {
   enum class Clock {
      real,
      virtualTime ///< `virtual`: advanced by request only
   };
   Clock clock = Clock::real;
   std::map< std::string, SimulatedPort > ports;
   std::map< std::string, std::set< std::string > > portChannels; ///< members
   std::map< VlanId, SimulatedVlan > vlans;
   std::vector< SimulatedRoute > routes;

   friend bool operator==( const Simulated &, const Simulated & ) = default;
};

} // namespace Config
