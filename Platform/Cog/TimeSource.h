#pragma once

#include "Platform/Vel/Ptr.h"

#include <functional>
#include <utility>

/// Purpose: where a scheduler takes the moving time from, and how it waits for a time to come.
namespace Cog {

class TimeSource : public Vel::PtrInterface {
 public:
   /// The moving time in seconds; never goes back.
   virtual double now() = 0;
   /// How many seconds of real time to wait for `due` to come: 0 when it has come, infinity when only an event
   /// from outside can help. `due` may be 0 (at once) or infinity (nothing is due).
   virtual double waitFor( double due ) = 0;
};

/// Time that moves only when told to: up to a target that is set, in steps from one due time to the next, and
/// while something is being done, by what that is said to cost.
class VirtualTime final : public TimeSource {
 public:
   explicit VirtualTime( double now );

   double now() override;
   /// Goes on to `due` if it is not after the target, otherwise once to the target itself; 0 both times. After that
   /// infinity, or 0 when there is somebody to call.
   double waitFor( double due ) override;

   /// Time may go on to here; one that has passed changes nothing.
   void targetIs( double target );
   double target() const { return target_; }
   /// Called each time when there is nothing left to do up to the target, instead of waiting; none: waits.
   void reachedIs( std::function< void() > reached ) { reached_ = std::move( reached ); }
   /// Seconds that something has taken, at least 0.
   void spend( double seconds );
   /// Seconds by which each look at the time moves it, at least 0.
   void costPerReadIs( double seconds );

 private:
   double now_;
   double target_;
   double costPerRead_ = 0;
   std::function< void() > reached_;
};

} // namespace Cog
