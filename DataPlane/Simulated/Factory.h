#pragma once

#include "DataPlane/Simulated/Description.h"
#include "DataPlane/Simulation.h"
#include "Platform/Cog/Scheduler.h"

namespace DataPlane {

/// What switchNewSimulated() gives.
struct SimulatedSwitchMade {
   Outcome outcome; ///< if it failed: what is wrong with the description, and there is no switch
   Vel::Ptr< Switch > made;
   Simulation * simulation = nullptr; ///< the same object; lives as long as it
};

/// Makes a switch in memory: all its links are up, its traffic begins now. It lives in the turns of the scheduler and in
/// its time, real or virtual, and makes the same story of the same calls.
SimulatedSwitchMade switchNewSimulated(
   const Vel::Ptr< Cog::Scheduler > & scheduler, const Simulated::Description & description );

} // namespace DataPlane
