#include "Platform/Cog/RealTime.h"

#include <algorithm>
#include <ctime>

namespace Cog {

namespace {
double read( clockid_t clock ) {
   timespec time{};
   const int failed = clock_gettime( clock, &time );
   VEL_ASSERT( !failed, "!failed" );
   return static_cast< double >( time.tv_sec ) + static_cast< double >( time.tv_nsec ) * 1e-9;
}
} // namespace

double RealTime::waitFor( double due ) { return std::max( due - now(), 0.0 ); }

double RealTime::timeSinceBoot() { return read( CLOCK_BOOTTIME ); }
double RealTime::wallTime() { return read( CLOCK_REALTIME ); }

} // namespace Cog
