#pragma once

#include "Agent/Plan/Planner.h"

#include <string>

/// Purpose: plans as JSON text, as the control API and records have them.
namespace Agent {

/// \param time  wall time of the plan, seconds since 1970
std::string planJson( const Plan & plan, double time );
std::string findingsJson( const std::vector< PlanFinding > & findings );

} // namespace Agent
