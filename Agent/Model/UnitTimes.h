#pragma once

#include "Platform/Vel/Declare.h"

#include <cmath>
#include <limits>
#include <optional>

/// Purpose: the times that operators set for a maintenance: until when the unit is to be under maintenance, and when it
/// is to go back of its own accord. Kept across restarts and boots, in the same commit as the enter that they came with.
namespace Agent {

/// What an enter asks for. What is left out stays as it is.
struct AskedTimes {
   /// Takes away what was set.
   static constexpr double never = std::numeric_limits< double >::infinity();
   static constexpr double least = 1, most = 720 * 3600;

   std::optional< double > deadline = {}; ///< seconds from the enter on, `least` to `most`, or `never`
   bool restore = false;                  ///< the unit goes back if it comes too late; with a deadline only
   std::optional< double > revertAfter = {}; ///< as `deadline`

   bool empty() const { return !deadline && !revertAfter; }
};

/// Those of one unit that enters or is under maintenance. Written by Times only. Times are seconds of the agent's clock;
/// 0: there is none.
class UnitTimes final : public Vel::Entity {
   VEL_ENTITY( UnitTimes );
   explicit UnitTimes( const Vel::String & unitName ) : unitName_( unitName ) {}
   VEL_PARAM( Vel::String, unitName );
   VEL_ATTR( double, deadlineAfter, onDeadlineAfter ); ///< seconds, as asked for; 0: there is no deadline
   VEL_ATTR( double, deadline, onDeadline );
   VEL_ATTR( bool, restore, onRestore );   ///< go back when it is over
   VEL_ATTR( double, overrun, onOverrun ); ///< when it was seen that the unit is too late
   VEL_ATTR( Vel::String, deadlineBy, onDeadlineBy );
   VEL_ATTR( double, revertAfter, onRevertAfter ); ///< seconds, as asked for; 0: the unit stays
   VEL_ATTR( double, revertAt, onRevertAt );
   VEL_ATTR( Vel::String, revertBy, onRevertBy );
   /// Why the time for which the machine was off is not known: "behind", "ahead" of what is possible is wall time;
   /// empty: it is known, or was not off.
   VEL_ATTR( Vel::String, doubt, onDoubt );
};

/// The times of all units, and a moment by all clocks, by which the next boot can tell how much time has passed.
class UnitTimesDir final : public Vel::Entity {
   VEL_ENTITY( UnitTimesDir );
   VEL_CHILDREN( Vel::String, UnitTimes, unit, onUnit );
   VEL_ATTR( Vel::String, boot, onBoot ); ///< empty: nothing is noted
   VEL_ATTR( double, sinceBoot, onSinceBoot );
   VEL_ATTR( double, clockTime, onClockTime );
   VEL_ATTR( double, wallTime, onWallTime );
};

} // namespace Agent
