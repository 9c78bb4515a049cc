#include "Apps/ClockOffset.h"

#include <algorithm>
#include <cmath>
#include <sstream>

namespace Apps {

double clockOffset(
   const std::string & kept, const std::string & bootId, double sinceBoot, double wallTime,
   double latestTime ) {
   std::istringstream in( kept );
   std::string keptBoot;
   double keptOffset = 0;
   const bool sameBoot =
      in >> keptBoot >> keptOffset && in.get() == '\n' && keptBoot == bootId && std::isfinite( keptOffset );
   const double begin = std::max( earliestClock, latestTime ) - sinceBoot;
   return std::max( sameBoot ? keptOffset : wallTime - sinceBoot, begin );
}

std::string clockOffsetText( const std::string & bootId, double offset ) {
   std::ostringstream out;
   out.precision( 17 );
   out << bootId << ' ' << offset << '\n';
   return out.str();
}

} // namespace Apps
