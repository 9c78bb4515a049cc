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
   shut = 6,    ///< we hold the link down
   spike = 7,   ///< drained, and traffic has been back since, whether or not it is now
   stopped = 8, ///< released by a unit while another one holds it: nobody samples it any more
};
/// "above-threshold", "timing", ...
inline Vel::String stringValue( Reason reason ) {
   const char * const texts[] = { "above-threshold", "timing", "stalled", "oscillating", "starved",
                                  "drained",         "shut",   "spike",   "stopped" };
   const auto ordinal = static_cast< Vel::U32 >( reason );
   return ordinal < std::size( texts ) ? texts[ordinal] : Vel::text( "Reason(", ordinal, ")" );
}

/// How the traffic of an interface that is above its threshold develops. Ordinals are part of the stored form.
enum class Trend : Vel::U32 { unknown = 0, falling = 1, flat = 2, rising = 3 };
/// "unknown", "falling", "flat", "rising".
inline Vel::String stringValue( Trend trend ) {
   const char * const texts[] = { "unknown", "falling", "flat", "rising" };
   const auto ordinal = static_cast< Vel::U32 >( trend );
   return ordinal < std::size( texts ) ? texts[ordinal] : Vel::text( "Trend(", ordinal, ")" );
}

/// One interface that has a record. Written by Insight only, which writes `reason` last of what changes together.
class IntfInsight final : public Vel::Entity {
   VEL_ENTITY( IntfInsight );
   explicit IntfInsight( const Wire::IntfId & intfId ) : intfId_( intfId ) {}
   VEL_PARAM( Wire::IntfId, intfId );
   VEL_ATTR( double, since, onSince ); ///< seconds of the agent's clock, of the reason
   /// When it will have drained if it goes on like this, seconds of that clock; 0: cannot be said.
   VEL_ATTR( double, eta, onEta );
   VEL_ATTR( Trend, trend, onTrend );
   VEL_ATTR( Reason, reason, onReason );
};

class InsightDir final : public Vel::Entity {
   VEL_ENTITY( InsightDir );
   VEL_CHILDREN( Wire::IntfId, IntfInsight, intf, onIntf );
};

} // namespace Agent
