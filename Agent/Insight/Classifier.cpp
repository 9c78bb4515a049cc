#include "Agent/Insight/Classifier.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace Agent {

namespace {

/// Rates that a trend needs, and those above the threshold after which it is no passing matter.
constexpr unsigned leastRates = 4, stalledRates = 8;
/// The slope in standard errors, and the change over all rates looked at as a logarithm (5 %), from which on there is
/// one. A single rate that is far off at either end gives 1.7 errors.
constexpr double leastErrors = 3, leastChange = 0.05;
/// Rates below a tenth of the threshold count as that: how deep a silence was says nothing of the way there.
const float depth = std::log( 10.0F );
/// It oscillates with four crossings, and does not stop before there are fewer than three, within a minute or, with long
/// load intervals, within so many of them; but as soon as it is calm.
constexpr double oscillationIntervals = 4;
constexpr double never = -std::numeric_limits< double >::infinity();

float logarithm( double rate ) {
   return std::isfinite( rate ) ? std::log( static_cast< float >( std::max( rate, 1.0 ) ) )
                                : std::numeric_limits< float >::quiet_NaN();
}

/// Quiet samples in a row after which an interface has drained.
Vel::U32 samplesFor( Vel::U32 loadInterval ) {
   constexpr auto period = static_cast< Vel::U32 >( Classifier::samplePeriod );
   return std::max( 1U, loadInterval / period + ( loadInterval % period ? 1 : 0 ) );
}

/// Of points ( x, y ), by least squares.
struct Line {
   Line( const double * x, const double * y, unsigned count ) {
      double sumX = 0, sumY = 0, xx = 0, xy = 0, yy = 0;
      for ( unsigned i = 0; i < count; ++i ) {
         sumX += x[i];
         sumY += y[i];
      }
      const double meanX = sumX / count, meanY = sumY / count;
      for ( unsigned i = 0; i < count; ++i ) {
         const double dx = x[i] - meanX, dy = y[i] - meanY;
         xx += dx * dx;
         xy += dx * dy;
         yy += dy * dy;
      }
      slope = xy / xx;
      error = std::sqrt( std::max( 0.0, yy - slope * xy ) / ( ( count - 2 ) * xx ) );
      last = meanY + slope * ( x[count - 1] - meanX );
   }
   double slope; ///< NaN where a point has none
   double error; ///< the slope's standard one
   double last;  ///< its y at the last point
};

} // namespace

Classifier::Classifier( double startTime ) : lastChange_( never ), lastHeard_( startTime ) {
   conclusion_.since = startTime;
   crossings_.fill( never );
}

Classifier::Classifier( double now, Reason reason, double since ) : lastChange_( since ), lastHeard_( now ) {
   conclusion_.reason = reason;
   conclusion_.since = since;
   // Where it has oscillated, it must be seen for a while not to.
   crossings_.fill( reason == Reason::oscillating ? now : never );
}

void Classifier::sample( double time, double in, double out, double threshold ) {
   const bool wasBelow = isBelow( threshold );
   lastIn_ = in;
   lastOut_ = out;
   if ( samples_ > 0 && isBelow( threshold ) != wasBelow ) {
      std::move( crossings_.begin() + 1, crossings_.end(), crossings_.begin() );
      crossings_.back() = time;
   }
   // What was before a gap says nothing of how the rate develops.
   if ( samples_ > 0 && time - lastSample_ > starvedAfter )
      samples_ = aboveRun_ = 0;
   aboveRun_ = isBelow( threshold ) ? 0 : aboveRun_ + 1;
   if ( samples_ == window ) {
      std::move( times_.begin() + 1, times_.end(), times_.begin() );
      std::move( in_.begin() + 1, in_.end(), in_.begin() );
      std::move( out_.begin() + 1, out_.end(), out_.begin() );
   } else
      ++samples_;
   times_[samples_ - 1] = lastSample_ = lastHeard_ = time;
   in_[samples_ - 1] = logarithm( in );
   out_[samples_ - 1] = logarithm( out );
}

const Classifier::Conclusion & Classifier::conclude( double now, const Inputs & inputs ) {
   const bool sameProfile = inputs.threshold == threshold_ && inputs.loadInterval == loadInterval_;
   if ( threshold_ != inputs.threshold )
      logThreshold_ = std::log( inputs.threshold );
   threshold_ = inputs.threshold;
   loadInterval_ = inputs.loadInterval;
   conclusion_.trend = Trend::unknown;
   conclusion_.eta = 0;
   const double stateSince = inputs.stateTime > conclusion_.since ? inputs.stateTime : now;
   if ( inputs.state == Maintenance::monIntfStateStopped )
      reasonIs( Reason::stopped, stateSince );
   else if ( inputs.shut )
      reasonIs( Reason::shut, now );
   else if ( inputs.state == Maintenance::monIntfStateUnderMaint )
      inputs.spike ? spikes( now, inputs ) : reasonIs( Reason::drained, stateSince );
   else if ( now >= starvedAt() )
      reasonIs( Reason::starved, now );
   else if (
      samples_ > 0 || !( isConcluded( conclusion_.reason ) || conclusion_.reason == Reason::starved ) ) {
      const Course course = this->course( inputs );
      const Reason reason = concluded( now, inputs, course.trend );
      const bool atOnce = !isConcluded( conclusion_.reason ) || !sameProfile;
      if ( reason != conclusion_.reason && ( atOnce || now - lastChange_ >= leastTime ) ) {
         reasonIs( reason, now );
         lastChange_ = now;
      }
      conclusion_.trend = course.trend;
      // Of what is so now, whatever is still said of it.
      if ( reason == Reason::aboveThreshold || reason == Reason::timing )
         conclusion_.eta = etaOf( inputs, course );
   }
   return conclusion_;
}

/// Each time that the traffic comes back is a new one.
void Classifier::spikes( double now, const Inputs & inputs ) {
   reasonIs( Reason::spike, now );
   if ( !isBelow( inputs.threshold ) )
      conclusion_.since = std::max( conclusion_.since, crossings_.back() );
}

void Classifier::reasonIs( Reason reason, double since ) {
   if ( reason == conclusion_.reason )
      return;
   conclusion_.reason = reason;
   conclusion_.since = since;
}

Reason Classifier::concluded( double now, const Inputs & inputs, Trend trend ) const {
   if ( samples_ == 0 )
      return Reason::aboveThreshold;
   if ( isOscillating( now, inputs ) )
      return Reason::oscillating;
   if ( isBelow( inputs.threshold ) )
      return Reason::timing;
   if ( trend == Trend::falling )
      return Reason::aboveThreshold;
   const bool stalls = aboveRun_ >= stalledRates && trend != Trend::unknown;
   return conclusion_.reason == Reason::stalled || stalls ? Reason::stalled : Reason::aboveThreshold;
}

bool Classifier::isOscillating( double now, const Inputs & inputs ) const {
   const double horizon = std::max( window * samplePeriod, oscillationIntervals * inputs.loadInterval );
   return now - crossings_[conclusion_.reason == Reason::oscillating ? 1 : 0] < horizon && !isCalm( inputs );
}

/// Whether it has been quiet for longer than it was before it rose again, and either than it has stayed on any side or
/// for half of what it takes.
bool Classifier::isCalm( const Inputs & inputs ) const {
   if ( !isBelow( inputs.threshold ) )
      return false;
   const double quiet = samplePeriod * inputs.quietSamples;
   const double before = crossings_[2] - crossings_[1];
   const double longest =
      std::max( { crossings_[1] - crossings_[0], before, crossings_[3] - crossings_[2] } );
   // After a restart nobody knows how long it stayed, until it crosses.
   return quiet > before && ( ( longest > 0 && quiet > longest ) || 2 * quiet >= inputs.loadInterval );
}

/// Of the directions that are not below the threshold.
Classifier::Course Classifier::course( const Inputs & inputs ) const {
   Course result;
   if ( samples_ < leastRates || !( inputs.threshold > 0 ) )
      return result;
   for ( const auto & [last, values] : { std::pair( lastIn_, &in_ ), std::pair( lastOut_, &out_ ) } ) {
      if ( last < inputs.threshold )
         continue;
      const Course one = courseOf( *values );
      if ( one.trend == Trend::unknown )
         return one;
      // What falls least decides.
      result.trend = std::max( result.trend, one.trend );
      result.secondsToThreshold = std::max( result.secondsToThreshold, one.secondsToThreshold );
   }
   return result;
}

/// Good while threshold_ is above 0.
Classifier::Course Classifier::courseOf( const Values & values ) const {
   const unsigned count = samples_;
   const float least = static_cast< float >( logThreshold_ ) - depth;
   double x[window], y[window];
   for ( unsigned i = 0; i < count; ++i ) {
      x[i] = times_[i] - lastSample_;
      y[i] = values[i] < least ? least : values[i];
   }
   const Line line( x, y, count );
   if ( std::isnan( line.slope ) )
      return {};
   const double change = line.slope * ( x[count - 1] - x[0] );
   if ( std::abs( change ) < leastChange || std::abs( line.slope ) < leastErrors * line.error )
      return { Trend::flat };
   if ( line.slope > 0 )
      return { Trend::rising };
   // A rate that has fallen and stays where it is has a slope, too, until the fall is a minute ago.
   const unsigned recent = count / 2;
   if (
      recent >= leastRates && Line( x + count - recent, y + count - recent, recent ).slope > line.slope / 3 )
      return { Trend::flat };
   return { Trend::falling, std::max( 0.0, ( line.last - logThreshold_ ) / -line.slope ) };
}

double Classifier::etaOf( const Inputs & inputs, const Course & course ) const {
   const Vel::U32 needed = samplesFor( inputs.loadInterval );
   if ( isBelow( inputs.threshold ) )
      return lastSample_ + samplePeriod * ( needed > inputs.quietSamples ? needed - inputs.quietSamples : 1 );
   if ( course.trend != Trend::falling )
      return 0;
   // The first sample below the threshold is the first of those that are needed.
   const double first = std::floor( course.secondsToThreshold / samplePeriod ) + 1;
   return lastSample_ + samplePeriod * ( first + needed - 1 );
}

} // namespace Agent
