#pragma once

#include "Platform/Cog/TimeSource.h"

/// Purpose: the one place that reads the clocks of the machine.
namespace Cog {

/// The kernel's time since boot, which no administrator sets, plus an offset that the caller fixes once per boot,
/// so that it is comparable with times from before a restart of the process.
class RealTime final : public TimeSource {
 public:
   /// `offset` in seconds; wallTime() - timeSinceBoot() at the first start after a boot makes it look like wall
   /// time.
   explicit RealTime( double offset ) : offset_( offset ) {}

   double now() override { return timeSinceBoot() + offset_; }
   double waitFor( double due ) override;

   /// Seconds since the machine was booted, time asleep included.
   static double timeSinceBoot();
   /// Seconds since 1970, as somebody has set them: for choosing an offset and for display only.
   static double wallTime();

 private:
   double offset_;
};

} // namespace Cog
