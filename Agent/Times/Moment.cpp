#include "Agent/Times/Moment.h"

#include <algorithm>

namespace Agent {

namespace {
/// Seconds by which wall time may seem to be behind without being set wrong: the note that it is compared with was
/// taken a moment before, and clocks of machines that are off run as they like.
constexpr double tolerance = 5;
} // namespace

Passed passed( const Moment & from, const Moment & to ) {
   if ( from.boot == to.boot )
      return { std::max( 0.0, to.sinceBoot - from.sinceBoot ) };
   const double certain = std::max( 0.0, to.sinceBoot ), byWall = to.wall - from.wall;
   if ( byWall < certain - tolerance )
      return { certain, Doubt::behind };
   if ( byWall - certain > longestOff )
      return { certain, Doubt::ahead };
   return { std::max( certain, byWall ) };
}

} // namespace Agent
