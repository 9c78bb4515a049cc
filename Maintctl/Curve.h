#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <string>
#include <vector>

/// Purpose: what the rates of an interface were lately, and how that is drawn.
namespace Maintctl {

/// Bits per second; nothing where nobody knows.
struct RatePoint {
   std::optional< double > inBps, outBps;

   /// The larger of the two: what a threshold is held against.
   std::optional< double > busiest() const;
};

/// The rates of one interface, one point for each step of time. A point is what was seen last in its step; steps in
/// which nobody looked have none. What goes back in time by more than a step (a clock was set) begins anew.
class Curve {
 public:
   static constexpr double leastStep = 5; ///< seconds: how often the agent takes samples
   static constexpr std::size_t mostPoints = 120;

   /// \param step  seconds, above 0
   explicit Curve( double step = leastStep ) : step_( step ) {}

   /// \param time  seconds of the agent's clock
   void see( double time, const RatePoint & point );
   /// The newest last; shorter while there are not so many.
   std::vector< RatePoint > last( std::size_t count ) const;
   bool empty() const { return points_.empty(); }

 private:
   double step_;
   double newest_ = 0; ///< the step of the last point, counted from time 0
   std::deque< RatePoint > points_;
};

/// One character a point on a logarithmic scale: the two lowest steps are below the threshold, the others from it up to
/// ten times it or the largest point; a blank where there is no point. Without a threshold all steps lie between the
/// smallest and the largest point.
/// \param utf8  block characters; otherwise `_.-=+*#@`
std::string curveText(
   const std::vector< std::optional< double > > & points, std::optional< double > threshold, bool utf8 );

/// The same on several rows, the topmost first, each as wide as there are points. Rows of a logarithmic scale.
struct Chart {
   std::vector< std::string > rows;
   double top = 0, bottom = 0; ///< bits per second at its edges
   std::optional< std::size_t >
      thresholdRow; ///< where the threshold lies; drawn as a line where there is nothing else
};
/// \param height  rows, at least 1
Chart chartOf(
   const std::vector< std::optional< double > > & points, std::optional< double > threshold,
   std::size_t height, bool utf8 );

} // namespace Maintctl
