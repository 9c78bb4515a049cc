#pragma once

/// Purpose: time as waiting sees it: the seam that lets tests wait in no time.
namespace Maintctl {

class Pace {
 public:
   virtual ~Pace() = default;

   /// Seconds from any beginning; never goes back.
   virtual double now() = 0;
   /// Waits so many seconds. False: the operator has interrupted us; at once if that was before.
   virtual bool sleep( double seconds ) = 0;
};

} // namespace Maintctl
