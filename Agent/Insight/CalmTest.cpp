#include "Agent/Insight/SeriesRig.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cmath>

namespace Agent {

namespace {

/// A series that says something else every so often: levels, noise about the threshold, bursts, silence, decays.
double randomRate( std::mt19937 & random, double & level, int & kind ) {
   std::uniform_real_distribution< double > unit( 0, 1 );
   if ( unit( random ) < 0.05 ) {
      kind = static_cast< int >( unit( random ) * 6 );
      level = 1e5 * std::pow( 10, 4 * unit( random ) - 2 );
   }
   switch ( kind ) {
   case 0: // about the threshold
      return 1e5 * ( 0.8 + 0.4 * unit( random ) );
   case 1: // bursts
      return unit( random ) < 0.3 ? 1e7 : 0;
   case 2: // steps
      return level;
   case 3: // a decay, or growth
      return level *= 0.7 + 0.5 * unit( random );
   case 4: // noise of every size
      return 1e5 * std::pow( 10, 4 * unit( random ) - 2 );
   default:
      return 0;
   }
}

} // namespace

RC_GTEST_PROP( ClassifierProperty, changesAReasonThatItConcludesOnceAMinuteAtMost, () ) {
   std::mt19937 random( *rc::gen::noShrink( rc::gen::arbitrary< unsigned >() ) );
   const double missing = *rc::gen::element( 0.0, 0.02, 0.2 );
   Series series( 1e5, *rc::gen::element( 0U, 10U, 30U, 300U ) );
   double level = 1e6;
   int kind = *rc::gen::inRange( 0, 6 );
   Reason reason = series.now().reason;
   double changed = -1e9;
   const auto look = [&]( const Classifier::Conclusion & now ) {
      if ( now.reason == reason )
         return;
      RC_ASSERT( now.since == series.time );
      // That counters are missing, and that they are back, shows at once.
      if ( isConcluded( reason ) && isConcluded( now.reason ) )
         RC_ASSERT( series.time - changed >= 60 );
      reason = now.reason;
      changed = series.time;
   };
   for ( int i = 0; i < 1000; ++i ) {
      if ( std::uniform_real_distribution< double >( 0, 1 )( random ) < missing ) {
         series.time += 17;
         look( series.now() );
         RC_ASSERT( reason == Reason::starved );
      }
      const double in = randomRate( random, level, kind );
      look( series.sample( in, in / 3 ) );
      RC_ASSERT( isConcluded( reason ) );
   }
   RC_ASSERT( changed > 0 );
}

RC_GTEST_PROP( ClassifierProperty, expectsAnEndOnlyOfWhatFallsOrIsQuiet, () ) {
   std::mt19937 random( *rc::gen::noShrink( rc::gen::arbitrary< unsigned >() ) );
   Series series( 1e5, 30 );
   double level = 1e6;
   int kind = *rc::gen::inRange( 0, 6 );
   for ( int i = 0; i < 300; ++i ) {
      const double in = randomRate( random, level, kind );
      const auto & now = series.sample( in, in / 3 );
      if ( now.eta == 0 )
         continue;
      RC_ASSERT( now.eta > series.time );
      RC_ASSERT( in < 1e5 || now.trend == Trend::falling );
   }
}

} // namespace Agent
