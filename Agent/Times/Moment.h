#pragma once

#include <string>

/// Purpose: how much time has passed, told by the most trustworthy clock that there is.
namespace Agent {

/// One moment by all clocks, in seconds.
struct Moment {
   std::string boot;     ///< which one it is of
   double sinceBoot = 0; ///< of the kernel: goes on evenly while the machine runs
   double clock = 0;     ///< of the agent: goes on evenly, and may be another one after a boot
   double wall = 0;      ///< since 1970, as somebody has set it
};

/// No machine is off for longer than this while somebody waits for it: wall time that says so is not believed. Seconds.
inline constexpr double longestOff = 7 * 86400;

enum class Doubt {
   none,
   behind, ///< wall time is earlier than it can be
   ahead   ///< wall time would have the machine off for longer than `longestOff`
};
/// "behind", "ahead"; empty: none.
inline const char * stringValue( Doubt doubt ) {
   return doubt == Doubt::behind ? "behind" : doubt == Doubt::ahead ? "ahead" : "";
}

struct Passed {
   double seconds = 0;
   Doubt doubt = Doubt::none;
};

/// While the machine runs that is what the kernel says, whatever is done to wall time. Over a boot only wall time can
/// tell; where it cannot be right, no more has passed than is certain, the time since the boot: what waits for a time
/// rather comes late than to somebody who still has his hands in the machine.
Passed passed( const Moment & from, const Moment & to );

} // namespace Agent
