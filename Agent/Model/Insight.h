#pragma once

#include "Platform/Model/Wire.h"
#include "Platform/Vel/Declare.h"

/// Purpose: why each monitored interface is not done yet, or that it is: worked out by the agent from the published
/// records, and published for all that shows, tells or writes down what happens. Kept across restarts of the agent, so
/// that "since" stays true.
namespace Agent {

/// Ordinals are part of the stored form.
enum class Reason : Vel::U32 {
   aboveThreshold = 0, ///< traffic is above the threshold
   timing = 1,         ///< it is below and has to stay there
   stalled = 2,        ///< above, and not falling
   oscillating = 3,    ///< it crosses the threshold again and again
   starved = 4,        ///< there are no fresh counters
   drained = 5,
   shut = 6,    ///< the link is set down
   spike = 7,   ///< drained, and traffic is back
   stopped = 8, ///< nobody monitors it any more
};
/// "above-threshold", "timing", ...
inline Vel::String stringValue( Reason reason ) {
   const char * const texts[] = { "above-threshold", "timing", "stalled", "oscillating", "starved",
                                  "drained",         "shut",   "spike",   "stopped" };
   const auto ordinal = static_cast< Vel::U32 >( reason );
   return ordinal < std::size( texts ) ? texts[ordinal] : Vel::text( "Reason(", ordinal, ")" );
}

/// One interface that has a record. Written by Insight only, which writes `reason` last of what changes together.
class IntfInsight final : public Vel::Entity {
   VEL_ENTITY( IntfInsight );
   explicit IntfInsight( const Wire::IntfId & intfId ) : intfId_( intfId ) {}
   VEL_PARAM( Wire::IntfId, intfId );
   VEL_ATTR( double, since, onSince ); ///< seconds of the agent's clock, of the reason
   VEL_ATTR( double, eta, onEta ); ///< when it will have drained, seconds of that clock; 0: cannot be said
   VEL_ATTR( Reason, reason, onReason );
};

class InsightDir final : public Vel::Entity {
   VEL_ENTITY( InsightDir );
   VEL_CHILDREN( Wire::IntfId, IntfInsight, intf, onIntf );
};

} // namespace Agent
