#pragma once

#include "Platform/Cog/TimerWheel.h"

#include <functional>
#include <string>
#include <utility>

namespace Cog {

/// Owner of a timer, for tests; what it does when it fires is up to the test.
struct Ringer {
   struct VelClock final : Cog::TimerReactor< Ringer > {
      using TimerReactor::TimerReactor;
      void onTime() override { sm()->handleTimeout(); }
   };

   Ringer( const Vel::Ptr< Cog::TimerWheel > & wheel, std::string ringerName, std::string & ringerLog )
      : name( std::move( ringerName ) ), log( ringerLog ) {
      timer.is( wheel, this ).hasNotificationActiveIs( true );
   }
   void handleTimeout() {
      ++rings;
      rangAt = Vel::System::currentTime();
      log += name;
      if ( act )
         act();
   }

   std::string name;
   std::string & log;
   std::function< void() > act;
   unsigned rings = 0;
   double rangAt = 0;
   Cog::TimerWatch< VelClock > timer;
};

} // namespace Cog
