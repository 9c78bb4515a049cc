#pragma once

#include "Agent/Model/Insight.h"
#include "Platform/Model/IntfMaintenanceProfile.h"
#include "Platform/Model/Maintenance.h"

#include <nlohmann/json_fwd.hpp>
#include <set>
#include <string>

/// Purpose: what is said of interfaces in events.
namespace Agent::InterfaceWords {

/// Names, separated by blanks.
std::string joined( const std::set< std::string > & names );
std::set< std::string > split( const std::string & names );
/// "u1", "u1 and u2", "no unit".
std::string list( const std::set< std::string > & units );
nlohmann::json orNull( const std::string & text );

std::string stateSentence( const std::string & name, const std::string & state );
/// \param state  "up", "down", "gone"
std::string link( const std::string & name, const std::string & state, Vel::U32 changes );
/// ", after 5 changes"; nothing for a single one.
std::string afterChanges( Vel::U32 changes );
/// \param from     the reason before, as text; empty: none
/// \param profile  may be null
std::string reasonSentence(
   const std::string & name, Reason reason, const std::string & from,
   const Maintenance::MonIntfStatus & record, const IntfMaintenanceProfile::Status * profile );
std::string driftSentence( const std::string & name, const std::string & drift );
/// "in 812 kbps, out 12 bps".
std::string ratesText( const Maintenance::MonIntfStatus & record );
/// in-bps and out-bps, null before the first sample.
nlohmann::json rates( const Maintenance::MonIntfStatus & record );

} // namespace Agent::InterfaceWords
