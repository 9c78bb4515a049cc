#pragma once

#include "Platform/Cog/Scheduler.h"

/// Purpose: the clock of tests: the turns of the event loop in time that moves only when told to.
namespace Cog {

/// Between turns, whatever a test does counts as what happened outside: the next turn acts on it.
class ManualClock final : public Scheduler {
 public:
   static constexpr double defaultStartTime = 1.7e9;

   explicit ManualClock( double startTime = defaultStartTime );

   /// Runs one turn at the present time.
   void runTurn() { turn(); }
   /// Runs a turn at the present time, and more until nothing is left to do at it. Returns how many there were.
   Vel::U64 runUntilIdle();
   /// Runs a turn at the present time, then a turn for each time until `seconds` at which something is due, and
   /// one at that time itself, each followed by the turns that it asks for. Asserts that time does not go back.
   /// If spend() has moved the time beyond, what is due at the end has still run.
   void timeIs( double seconds );
   /// timeIs( currentTime() + seconds ).
   void advance( double seconds ) { timeIs( currentTime() + seconds ); }

   /// The moving time goes on by this many seconds: what is being done just now takes that long.
   void spend( double seconds ) { virtualTime().spend( seconds ); }
   /// Each look at the moving time makes it go on by this many seconds.
   void costPerReadIs( double seconds ) { virtualTime().costPerReadIs( seconds ); }

 private:
   /// Turns at one and the same time after which something asks for turns for ever.
   static constexpr Vel::U64 maxTurnsWithoutRest = 100000;

   VirtualTime & virtualTime() const { return static_cast< VirtualTime & >( time() ); }
   void runTo( double target );
};

} // namespace Cog
