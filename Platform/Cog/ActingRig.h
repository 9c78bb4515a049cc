#pragma once

#include "Platform/Cog/CodefBase.h"
#include "Platform/Cog/TimerWheel.h"

#include <functional>
#include <utility>

namespace Cog {

/// Owner of a timer, for tests, which say what it does when that fires and put it on a wheel.
struct Alarm {
   struct VelClock final : TimerReactor< Alarm > {
      using TimerReactor::TimerReactor;
      void onTime() override { sm()->act(); }
   };
   std::function< void() > act;
   TimerWatch< VelClock > timer;
};

/// A deferred task that does what a test says, each time in one slice.
class Chore final : public CodefBase {
 public:
   Chore( const Vel::Ptr< Vel::Clock > & clock, std::function< void() > act )
      : CodefBase( clock ), act_( std::move( act ) ) {}
   Vel::U64 backlogSize() const override { return 0; }
   Vel::U64 processBacklog( double ) override {
      act_();
      return 0;
   }

 private:
   std::function< void() > act_;
};

} // namespace Cog
