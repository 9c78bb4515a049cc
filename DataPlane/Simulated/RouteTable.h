#pragma once

#include "DataPlane/Routes.h"
#include "DataPlane/Simulated/Description.h"

/// Purpose: the routes of a simulated switch, as described. Pure.
namespace DataPlane::Simulated {

/// Whether it is a network, "10.0.0.0/8" or "2001:db8::/32".
bool isPrefix( const Vel::String & text );

/// Destinations that are reached in the same ways, in the order of the description.
std::vector< RouteClass > classesOf( const std::vector< Route > & routes );
/// The way to an address: of the longest network that it is in, and behind it of the others.
AddressWay wayTo( const Vel::String & address, const std::vector< Route > & routes );

} // namespace DataPlane::Simulated
