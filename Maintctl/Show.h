#pragma once

#include "Api/Shapes.h"
#include "Maintctl/Table.h"

#include <optional>
#include <string>
#include <vector>

/// Purpose: answers of the agent as text for people. A `now` is the agent's time; without one, times are given instead
/// of ages.
namespace Maintctl {

using Now = std::optional< double >;

std::string unitsText( const std::vector< Api::Unit > & units, Now now, std::size_t room = endless );
std::string unitText( const Api::Unit & unit, Now now, std::size_t room = endless );
/// The fields that it needs.
inline constexpr char interfacesTextFields[] =
   "kind,link-state,shut,shut-problem,drift,state,state-time,in-bps,out-bps,"
   "samples,consecutive-drained-samples,spike,profile,"
   "units,reason.code,reason.text";
std::string
interfacesText( const std::vector< Api::Interface > & interfaces, Now now, std::size_t room = endless );
std::string interfaceText( const Api::Interface & interface, Now now, std::size_t room = endless );
std::string profilesText( const std::vector< Api::Profile > & profiles, std::size_t room = endless );
std::string groupsText( const std::vector< Api::Group > & groups, std::size_t room = endless );
std::string countersText( const std::map< std::string, std::uint64_t > & counters );
std::string agentText( const Api::Agent & agent, std::size_t room = endless );
std::string explanationText( const Api::Explanation & explanation, Now now, std::size_t room = endless );
std::string traceLevelsText( const std::vector< Api::TraceLevel > & levels );

} // namespace Maintctl
