#include "Platform/Cog/ManualClock.h"

namespace Cog {

ManualClock::ManualClock( double startTime ) : Scheduler( Vel::make< VirtualTime >( startTime ) ) {}

Vel::U64 ManualClock::runUntilIdle() {
   const Vel::U64 before = turns();
   runTo( currentTime() );
   return turns() - before;
}

void ManualClock::timeIs( double seconds ) {
   VEL_ASSERT( seconds >= currentTime(), "seconds >= currentTime()" );
   runTo( seconds );
}

void ManualClock::runTo( double target ) {
   virtualTime().targetIs( target );
   Vel::U64 turnsAtOneTime = 0;
   do {
      const double before = currentTime();
      turn();
      turnsAtOneTime = currentTime() > before ? 0 : turnsAtOneTime + 1;
      VEL_ASSERT( turnsAtOneTime < maxTurnsWithoutRest, "turnsAtOneTime < maxTurnsWithoutRest" );
   } while ( virtualTime().waitFor( dueTime() ) == 0 );
}

} // namespace Cog
