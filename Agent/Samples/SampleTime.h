#pragma once

#include <optional>
#include <string>

/// Purpose: the time by which samples are kept on disk, in seconds: that of the agent's clock plus a base.
///
/// The clock goes on evenly while the machine runs, whatever is done to wall time, and so do the samples. With another
/// boot it begins anew; the base makes the time of the samples go on from where it was, by as much as wall time says that
/// has passed meanwhile. It never goes back, also if wall time has: what was sampled stays before what is.
namespace Agent {

struct SampleTime {
   /// Which clock it is, in one line: differs if the clock has begun anew.
   std::string clock;
   double base = 0; ///< of the samples' time, a multiple of `grid`
   /// One moment by the clock and by wall time, as they were noted last.
   double clockTime = 0;
   double wallTime = 0;

   /// Bases are multiples, so that steps of 5 s stay those.
   static constexpr double grid = 5;
   /// Longer than the time from one note to the next.
   static constexpr double noteMargin = 120;

   double now() const { return clockTime + base; }

   /// What holds from now on. `kept`: what was noted last; nothing: there is no note, and no sample is later than
   /// `newest` in the samples' time.
   static SampleTime begin(
      const std::optional< SampleTime > & kept, const std::string & clock, double clockTime, double wallTime,
      double newest );

   /// One line for each; nothing if it is none of these texts.
   std::string text() const;
   static std::optional< SampleTime > parse( const std::string & text );
};

} // namespace Agent
