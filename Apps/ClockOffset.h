#pragma once

#include <string>

namespace Apps {

/// What the agent's clock adds to the seconds since boot. Chosen once for each boot and kept, so that the clock does not
/// jump when wall time is set and goes on over restarts of the agent.
///
/// `kept` is the text that clockOffsetText() has given, or anything else if there is none. A boot that has none begins with
/// wall time, but never before `latestTime`, the latest time that the stores hold: what happened earlier would lie in the
/// future, and delays that are counted from it would never end. Nor before `earliestClock`, for machines that do not know
/// the time when they start.
double clockOffset(
   const std::string & kept, const std::string & bootId, double sinceBoot, double wallTime,
   double latestTime );
std::string clockOffsetText( const std::string & bootId, double offset );

/// Seconds. The clock is never earlier: the rates of interfaces that join late are small only because time is large.
inline constexpr double earliestClock = 1.7e9;

} // namespace Apps
