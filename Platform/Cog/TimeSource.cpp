#include "Platform/Cog/TimeSource.h"

#include <algorithm>
#include <limits>

namespace Cog {

VirtualTime::VirtualTime( double now ) : now_( now ), target_( now ) {}

double VirtualTime::now() {
   now_ += costPerRead_;
   return now_;
}

double VirtualTime::waitFor( double due ) {
   if ( due > now_ && due <= target_ )
      now_ = due;
   else if ( due > now_ && now_ < target_ )
      now_ = target_;
   else if ( due > now_ && reached_ )
      reached_();
   else if ( due > now_ )
      return std::numeric_limits< double >::infinity();
   return 0;
}

void VirtualTime::targetIs( double target ) { target_ = std::max( target_, target ); }

void VirtualTime::spend( double seconds ) {
   VEL_ASSERT( seconds >= 0, "seconds >= 0" );
   now_ += seconds;
}

void VirtualTime::costPerReadIs( double seconds ) {
   VEL_ASSERT( seconds >= 0, "seconds >= 0" );
   costPerRead_ = seconds;
}

} // namespace Cog
