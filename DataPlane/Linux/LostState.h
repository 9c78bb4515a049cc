#pragma once

#include "DataPlane/Linux/LinkAddress.h"
#include "DataPlane/Linux/Neighbour.h"
#include "DataPlane/Linux/Route.h"
#include "DataPlane/Switch.h"

/// Purpose: what a link loses when it goes down, and what hangs on it with it, as a text that can be kept, read by
/// people, and restored from.
///
/// A line for each: "address ADDRESS/LENGTH key=value ...", "neighbour ADDRESS key=value ..." and "route inet|inet6
/// DESTINATION/LENGTH key=value ...". What belongs to one way of a route follows its "leg=DEVICE". Attributes that have
/// no name of their own are kept as their number and hexadecimal bytes. "follower DEVICE index=NUMBER" begins a VLAN
/// device above the link, the addresses and neighbours behind it are its; with "down" it had been set down by itself. If
/// anything has a lifetime, a first line "at SECONDS" says when it was counted.
namespace DataPlane::Linux {

/// What one device loses.
struct LostOfDevice {
   std::vector< LinkAddress > addresses; ///< in the kernel's order
   std::vector< Neighbour > neighbours;

   bool empty() const { return addresses.empty() && neighbours.empty(); }
   friend bool operator==( const LostOfDevice &, const LostOfDevice & ) = default;
};

/// A VLAN device that the kernel takes down with the link, and sets up with it whether it was up before or not.
struct Follower {
   Vel::String name; ///< which routes say
   Vel::U32 ifIndex = 0;
   bool wasDown = false; ///< and is to be set down again
   LostOfDevice lost;

   friend bool operator==( const Follower &, const Follower & ) = default;
};

struct LostState {
   double at = 0;                     ///< seconds of the agent's clock at which lifetimes were counted
   LostOfDevice own;                  ///< of the link itself
   std::vector< Follower > followers; ///< lower ones first
   std::vector< Route > routes;       ///< of all of them

   friend bool operator==( const LostState &, const LostState & ) = default;
};

/// The text; empty if nothing is lost. Of followers only those are kept that lose something.
Vel::String textOf( const LostState & state );

struct LostStateRead {
   Outcome outcome; ///< if it failed: the line and what is wrong with it
   LostState state;
};
/// Reads a text that textOf() has made.
LostStateRead lostStateFrom( const Vel::String & text );

/// The state as it is to be restored at a time: lifetimes are shorter by what has gone by since, and what has not lived
/// as long is left out.
LostState restoredAt( LostState state, double now );

/// Both together, of the same time; what is in both is there once. Down is what was when the later one was taken.
LostState joined( LostState earlier, const LostState & later );

} // namespace DataPlane::Linux
