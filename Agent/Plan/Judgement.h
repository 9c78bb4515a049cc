#pragma once

#include "DataPlane/Routes.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

/// Purpose: what would come of taking a unit out of service, judged from plain facts: no state, no clock, no switch. The
/// same facts give the same findings.
///
/// A way leaves through the unit if it does not work any more with the unit's interfaces away. So a port that is one of
/// several members of a port-channel takes nothing away with it, and the last one does. Interfaces of other units that are
/// entering or under maintenance count as gone, though they may still be up: they will not stay.
namespace Agent {

/// Bits per second.
struct PlanRates {
   double in = 0, out = 0;

   friend bool operator==( const PlanRates &, const PlanRates & ) = default;
};

/// What one interface carries.
struct PlanLoad {
   std::optional< PlanRates > current; ///< not older than what counts as fresh
   std::optional< PlanRates > high;    ///< that it had no more than for 95 % of the last ten minutes
   double highSeconds = 0;             ///< of those ten minutes, of how many that is known
};

/// One interface of the unit, as it is configured.
struct PlanInterface {
   std::string name, kind;
   bool leaves = true;     ///< it exists, and is of a kind that is taken out of service
   std::string notWatched; ///< why it would not be watched; empty: it would
   std::string uncounted;  ///< why nobody can say what it carries; empty: it can be said
   PlanLoad load;
   /// The profile in force; an empty name: none.
   std::string profile;
   std::string profileWhy; ///< why this one, for people
   std::optional< double > thresholdBps, loadIntervalSeconds;
   bool shutdown = false;
   std::optional< double > shutdownMaxDelaySeconds; ///< nothing: never
   /// Other units for which it is held down already.
   std::vector< std::string > shutFor;
};

/// A redundancy group that the unit is in.
struct PlanRedundancy {
   std::string name;
   std::uint32_t maxOut = 1;
   std::vector< std::string > out; ///< other units of it that are not normal
   /// The interfaces of its other units that are normal.
   std::vector< std::string > others;
};

struct PlanFacts {
   std::string unit;
   std::string state; ///< of the unit
   std::vector< std::string > stages;
   std::vector< std::string > steering; ///< those of `stages` that say so, before traffic is watched
   std::vector< PlanInterface > interfaces;
   std::vector< PlanRedundancy > redundancy;
   double controlPlaneFloorBps = 0;
   /// Interfaces of other units that are on their way out or out, with the unit's name. They count as gone.
   std::map< std::string, std::string > leavingToo;
   std::string session; ///< the address from which the operator comes; empty: not known
   /// Not null.
   std::shared_ptr< const DataPlane::RouteTable > routes = std::make_shared< const DataPlane::RouteTable >();
   std::optional< DataPlane::AddressWay > way; ///< to the session
   std::map< std::string, PlanLoad > loads;    ///< of other interfaces
   std::map< std::string, double > speeds; ///< bits per second, of ports; one that is not in it is not known
};

enum class PlanSeverity { blocking, warning, info };
/// "blocking", "warning", "info".
const char * stringValue( PlanSeverity severity );

struct PlanFinding {
   std::string code; ///< see below
   PlanSeverity severity = PlanSeverity::info;
   std::vector< std::string > interfaces; ///< none: it is about the unit
   std::string text;
   std::vector< std::pair< std::string, double > > numbers; ///< by their key in JSON

   friend bool operator==( const PlanFinding &, const PlanFinding & ) = default;
};

namespace PlanCode {
inline constexpr char lastPath[] = "last-path"; ///< destinations that are reached through the unit only
inline constexpr char capacity[] = "capacity";  ///< what remains cannot carry what is to be moved
inline constexpr char lockOut[] = "lock-out";   ///< the operator's own session leaves through the unit only
inline constexpr char degraded[] = "degraded";  ///< too many units of a redundancy group would be out
inline constexpr char staleCounters[] = "stale-counters";
inline constexpr char lowThreshold[] = "low-threshold"; ///< below what the control plane itself sends
inline constexpr char notWatched[] =
   "not-watched"; ///< nothing waits for what does not exist, or is of another kind
inline constexpr char alreadyShut[] = "already-shut";
inline constexpr char noSteering[] = "no-steering";
// What could not be found out.
inline constexpr char unknownRoutes[] = "unknown-routes";
inline constexpr char unknownSession[] = "unknown-session";
inline constexpr char unknownCapacity[] = "unknown-capacity";
} // namespace PlanCode

/// What would be done to an interface.
enum class PlanAction { none, watch, shutWhenDrained, shutAtLatest };
/// "not-watched", "watched", "shut-when-drained", "shut-at-latest".
const char * stringValue( PlanAction action );
PlanAction actionOf( const PlanInterface & interface );

/// The most severe ones first, in the order of the codes above.
std::vector< PlanFinding > judge( const PlanFacts & facts );
bool isBlocked( const std::vector< PlanFinding > & findings );

/// Names as people list them, the first few of them: "et1", "et1 and et2", "et1, et2, et3 and 4 more".
std::string planList( const std::vector< std::string > & names );

/// What the judgement would look at, going by the routes.
struct PlanQuestions {
   std::set< std::string >
      loads; ///< of these interfaces, none of them the unit's own: what may have to carry more
   std::set< std::string > speeds; ///< of these ports
};
PlanQuestions questionsOf( const PlanFacts & facts );

} // namespace Agent
