#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// Purpose: where things are in the control API: paths, and the keys of what is sent.
namespace Api {

/// Below this everything has its version.
inline constexpr char root[] = "/api/v1";

namespace Path {
inline constexpr char units[] = "/api/v1/units";
inline constexpr char interfaces[] = "/api/v1/interfaces";
inline constexpr char history[] = "/api/v1/history";
inline constexpr char operations[] = "/api/v1/operations";
inline constexpr char profiles[] = "/api/v1/profiles";
inline constexpr char groups[] = "/api/v1/groups";
inline constexpr char counters[] = "/api/v1/counters";
inline constexpr char agent[] = "/api/v1/agent";
inline constexpr char dump[] = "/api/v1/dump";
inline constexpr char trace[] = "/api/v1/trace";
inline constexpr char reload[] = "/api/v1/reload";
inline constexpr char simulatedTraffic[] = "/api/v1/simulated/traffic";
inline constexpr char simulatedLink[] = "/api/v1/simulated/link";
inline constexpr char simulatedAdvance[] = "/api/v1/simulated/advance";

/// `/api/v1/units/NAME`; the name is escaped.
std::string unit( std::string_view name );
/// \param operation  "enter", "exit", "explain"
std::string unit( std::string_view name, std::string_view operation );
std::string interface( std::string_view name );
std::string interfaceRelease( std::string_view name );
/// Records of maintenances, newest first.
/// \param unit  empty: of all units
std::string historyOf( std::string_view unit, std::uint64_t limit );
std::string historyRecord( std::uint64_t id );
/// Operations, newest first.
/// \param unit, state  empty: all
std::string operationsOf( std::string_view unit, std::string_view state, std::uint64_t limit );
std::string operation( std::uint64_t id );
/// What would come of an enter of a unit.
/// \param session  the address from which the operator comes; empty: not known
std::string planOf( std::string_view unit, std::string_view session );
/// The interfaces of one unit: `/api/v1/interfaces?unit=NAME`.
std::string interfacesOf( std::string_view unit );
/// One of those two, with these fields of each only: `...fields=NAME,NAME`.
std::string withFields( const std::string & interfaces, std::string_view fields );
/// What these interfaces have carried: `/api/v1/samples?last=SECONDS&interface=NAME&interface=...`.
std::string samplesOf( const std::vector< std::string > & interfaces, unsigned lastSeconds );
} // namespace Path

/// Keys of the bodies of requests.
namespace Key {
inline constexpr char reason[] = "reason";
inline constexpr char timeout[] = "timeout";
inline constexpr char deadline[] = "deadline";
inline constexpr char onOverrun[] = "on-overrun";
inline constexpr char revertAfter[] = "revert-after";
inline constexpr char force[] = "force";
inline constexpr char session[] = "session";
inline constexpr char requestKey[] = "request-key";
inline constexpr char with[] = "with";
inline constexpr char name[] = "name";
inline constexpr char level[] = "level";
inline constexpr char interface[] = "interface";
inline constexpr char inBps[] = "in-bps";
inline constexpr char outBps[] = "out-bps";
inline constexpr char rampSeconds[] = "ramp-seconds";
inline constexpr char up[] = "up";
inline constexpr char seconds[] = "seconds";
} // namespace Key

/// Who has asked for what the agent does of its own accord.
inline constexpr char agentName[] = "maintd";

/// In the place of a time: none.
inline constexpr char never[] = "never";

/// What becomes of a unit that is not under maintenance by its deadline.
namespace OnOverrun {
inline constexpr char keep[] = "keep";
inline constexpr char restore[] = "restore";
} // namespace OnOverrun

/// States of a unit.
namespace UnitState {
inline constexpr char normal[] = "normal";
inline constexpr char entering[] = "entering";
inline constexpr char maintenance[] = "maintenance";
inline constexpr char exiting[] = "exiting";
} // namespace UnitState

/// Text as one segment of a path or one value of a query: all but letters, digits, "-", ".", "_" and "~" as %XX.
std::string escaped( std::string_view text );

} // namespace Api
