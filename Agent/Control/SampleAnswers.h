#pragma once

#include "Agent/Control/ControlModel.h"

#include <map>
#include <string>

/// Purpose: the answer to what interfaces have carried.
namespace Agent {

/// What all interfaces of one answer may have together, in steps; a request for more is refused.
inline constexpr std::size_t mostSamples = 150000;

/// `{"step-seconds", "start", "interfaces": {NAME: {"in-bps": [...], "out-bps": [...]}}}` as text; null where nothing is
/// known. `query`: `interface` (any number of them) or `unit`, `last` (seconds or a time as in the configuration, an hour
/// if it is missing), `until` (a time, now if it is missing or yet to come). Throws Api::Error: bad request for arguments
/// that make no sense or ask for too much, not found for names that are not there, unavailable if nobody samples.
std::string sampleAnswer(
   const ControlModel & model, const ControlCommands & commands,
   const std::multimap< std::string, std::string > & query );

} // namespace Agent
