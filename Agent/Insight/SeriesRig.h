#pragma once

#include "Agent/Insight/Classifier.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>

/// Purpose: the classifier fed with a series of rates as monitoring would, one sample each five seconds.
namespace Agent {

struct Series {
   /// Rates of both directions, bits per second, by seconds since monitoring began.
   using Rates = std::function< std::pair< double, double >( double seconds ) >;
   static constexpr double begin = 1.7e9;
   static constexpr double period = Classifier::samplePeriod;

   explicit Series( double threshold = 1e5, Vel::U32 loadInterval = 10 ) {
      inputs.threshold = threshold;
      inputs.loadInterval = loadInterval;
   }

   const Classifier::Conclusion & sample( double in, double out ) {
      time += period;
      inputs.quietSamples = in < inputs.threshold && out < inputs.threshold ? inputs.quietSamples + 1 : 0;
      classifier.sample( time, in, out, inputs.threshold );
      return classifier.conclude( time, inputs );
   }
   const Classifier::Conclusion & sample( double rate ) { return sample( rate, rate / 10 ); }
   /// The last of so many samples of one rate.
   const Classifier::Conclusion & samples( unsigned count, double rate ) {
      for ( unsigned i = 1; i < count; ++i )
         sample( rate );
      return sample( rate );
   }
   /// What is concluded when so much time has passed, since the beginning.
   const Classifier::Conclusion & until( double seconds, const Rates & rates ) {
      while ( time + period <= begin + seconds ) {
         const auto [in, out] = rates( time + period - begin );
         sample( in, out );
      }
      return classifier.conclude( time, inputs );
   }
   const Classifier::Conclusion & now() { return classifier.conclude( time, inputs ); }
   /// When an interface that goes on like this will have drained, seconds of the clock.
   double drainTime( const Rates & rates ) const {
      const unsigned needed = std::max( 1U, ( inputs.loadInterval + 4 ) / static_cast< unsigned >( period ) );
      unsigned quiet = inputs.quietSamples;
      double t = time;
      while ( quiet < needed ) {
         t += period;
         const auto [in, out] = rates( t - begin );
         quiet = in < inputs.threshold && out < inputs.threshold ? quiet + 1 : 0;
      }
      return t;
   }

   Classifier classifier{ begin };
   Classifier::Inputs inputs;
   double time = begin;
};

/// Rates that a counter shows of this, each by up to so much off.
inline Series::Rates noisy( Series::Rates rates, double noise, unsigned seed ) {
   return [=]( double seconds ) {
      std::mt19937 random( seed + static_cast< unsigned >( seconds ) * 7919 );
      std::uniform_real_distribution< double > off( 1 - noise, 1 + noise );
      const auto [in, out] = rates( seconds );
      const double inOff = off( random );
      return std::pair( in * inOff, out * off( random ) );
   };
}

inline Series::Rates decay( double start, double halfLife ) {
   return [=]( double seconds ) {
      const double rate = start * std::exp2( -seconds / halfLife );
      return std::pair( rate, rate / 3 );
   };
}

/// Above a threshold of 1e5 and below it in turn.
inline std::pair< double, double > fast( double seconds ) {
   return { std::fmod( seconds, 10 ) < 5 ? 1e6 : 1e4, 0.0 };
}

inline Series::Rates constant( double rate ) {
   return [=]( double ) { return std::pair( rate / 7, rate ); };
}

} // namespace Agent
