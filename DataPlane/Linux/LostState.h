#pragma once

#include "DataPlane/Linux/LinkAddress.h"
#include "DataPlane/Linux/Route.h"
#include "DataPlane/Switch.h"

/// Purpose: what a link loses when it goes down, as a text that can be kept, read by people, and restored from.
///
/// A line for each: "address ADDRESS/LENGTH key=value ..." and "route inet|inet6 DESTINATION/LENGTH key=value ...".
/// What belongs to one way of a route follows its "leg=DEVICE". Attributes that have no name of their own are kept as
/// their number and hexadecimal bytes. If anything has a lifetime, a first line "at SECONDS" says when it was counted.
namespace DataPlane::Linux {

struct LostState {
   double at = 0;                        ///< seconds of the agent's clock at which lifetimes were counted
   std::vector< LinkAddress > addresses; ///< in the kernel's order
   std::vector< Route > routes;

   friend bool operator==( const LostState &, const LostState & ) = default;
};

/// The text; empty if nothing is lost.
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

} // namespace DataPlane::Linux
