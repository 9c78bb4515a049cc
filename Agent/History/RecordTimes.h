#pragma once

#include "Agent/Model/History.h"

/// Purpose: the times in records of maintenances.
namespace Agent {

/// The latest time that a record holds, seconds of the agent's clock; 0: there is none. The clock of the next boot may
/// not be behind it: what is written down later would come before what is there.
double latestTime( const HistoryDir & historyDir );

} // namespace Agent
