#include "Agent/Insight/SeriesRig.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace Agent {

TEST( Classifier, expectsTheEndOfADecayWithinAFifthAfterThirtySeconds ) {
   for ( const double start : { 1e8, 4e8, 1e10, 1e11 } )
      for ( const double threshold : { 1e5, 1e6 } )
         for ( const unsigned loadInterval : { 0U, 10U, 60U } )
            for ( const double noise : { 0.0, 0.02, 0.05 } )
               for ( unsigned seed = 0; seed < 20; ++seed ) {
                  SCOPED_TRACE(
                     testing::Message() << start << " to " << threshold << " bps, load interval "
                                        << loadInterval << " s, noise " << noise << ", seed " << seed );
                  Series series( threshold, loadInterval );
                  const auto & now = series.until( 30, noisy( decay( start, 10 ), noise, seed ) );
                  EXPECT_EQ( Reason::aboveThreshold, now.reason );
                  EXPECT_EQ( Trend::falling, now.trend );
                  const double left = series.drainTime( decay( start, 10 ) ) - series.time;
                  EXPECT_GE( left, 30 );
                  EXPECT_NEAR( left, now.eta - series.time, left / 5 );
               }
}

TEST( Classifier, expectsTheEndOfASlowDecay ) {
   Series series( 1e5, 10 );
   const auto rates = noisy( decay( 4e6, 120 ), 0.05, 1 );
   const auto & now = series.until( 180, rates );
   EXPECT_EQ( Trend::falling, now.trend );
   const double left = series.drainTime( decay( 4e6, 120 ) ) - series.time;
   EXPECT_NEAR( left, now.eta - series.time, left / 5 );
}

TEST( Classifier, waitsForTheDirectionThatFallsMoreSlowly ) {
   Series series( 1e5, 10 );
   // In is by far the larger one at first.
   const auto rates = []( double seconds ) {
      return std::pair( 1e10 * std::exp2( -seconds / 5 ), 1e7 * std::exp2( -seconds / 60 ) );
   };
   const auto & now = series.until( 40, rates );
   EXPECT_GT( rates( 40 ).first, 3 * rates( 40 ).second );
   EXPECT_NEAR( series.drainTime( rates ), now.eta, 5 );
}

TEST( Classifier, doesNotExpectAnEndWhileOneDirectionStays ) {
   Series series;
   const auto & now =
      series.until( 60, []( double seconds ) { return std::pair( 1e9 * std::exp2( -seconds / 10 ), 2e5 ); } );
   EXPECT_EQ( Reason::stalled, now.reason );
   EXPECT_EQ( 0, now.eta );
}

TEST( Classifier, expectsTheEndOfTheLoadIntervalWhileItIsQuiet ) {
   Series series( 1e5, 12 );
   series.samples( 4, 1e7 );
   EXPECT_EQ( 10, series.sample( 9e4 ).eta - series.time );
   EXPECT_EQ( 5, series.sample( 0 ).eta - series.time );
}

TEST( Classifier, expectsAnEndWithTheNextSampleWhenTheLoadIntervalIsOverAlready ) {
   Series series( 1e5, 60 );
   series.samples( 4, 1e4 );
   series.inputs.loadInterval = 10;
   EXPECT_EQ( 5, series.now().eta - series.time );
}

TEST( Classifier, expectsTheEndOfWhatIsQuietAlsoWhileItIsCalledStalled ) {
   Series series( 1e5, 60 );
   const auto & now =
      series.until( 70, []( double seconds ) { return std::pair( seconds > 50 ? 0 : 8e5, 0.0 ); } );
   EXPECT_EQ( Reason::stalled, now.reason );
   EXPECT_EQ( 40, now.eta - series.time );
}

TEST( Classifier, expectsTheEndOfWhatFallsAlsoWhileItIsCalledStalled ) {
   Series series( 1e5, 10 );
   const auto rates = []( double seconds ) {
      const double rate = 1e9 * std::exp2( std::min( 0.0, ( 40 - seconds ) / 10 ) );
      return std::pair( rate, rate );
   };
   const auto & now = series.until( 95, rates );
   EXPECT_EQ( Reason::stalled, now.reason );
   EXPECT_EQ( Trend::falling, now.trend );
   const double left = series.drainTime( rates ) - series.time;
   EXPECT_NEAR( left, now.eta - series.time, left / 5 );
}

TEST( Classifier, drawsNoTrendAcrossAGap ) {
   Series series( 1e5, 10 );
   series.samples( 12, 1e8 );
   series.time += 600;
   for ( int i = 0; i < 20; ++i ) {
      const auto & now = series.sample( 2e5 );
      EXPECT_EQ( i < 3 ? Trend::unknown : Trend::flat, now.trend ) << i;
      EXPECT_EQ( 0, now.eta ) << i;
   }
}

TEST( Classifier, hasNoTrendOfThreeRates ) {
   Series series;
   series.sample( 8e6 );
   series.sample( 4e6 );
   EXPECT_EQ( Trend::unknown, series.sample( 2e6 ).trend );
   EXPECT_EQ( Trend::falling, series.sample( 1e6 ).trend );
}

TEST( Classifier, doesNotTakeOneRateThatIsFarOffForATrend ) {
   for ( const unsigned more : { 3U, 6U, 11U } ) {
      SCOPED_TRACE( more );
      Series first, last;
      first.sample( 1e12 );
      EXPECT_EQ( Trend::flat, first.samples( more, 1e6 ).trend );
      last.samples( more, 1e12 );
      EXPECT_EQ( Trend::flat, last.sample( 1e6 ).trend );
   }
}

TEST( Classifier, doesNotExpectAnEndHalfAMinuteAfterAStep ) {
   Series series;
   series.samples( 12, 1e8 );
   const auto & now = series.samples( 6, 1e6 );
   EXPECT_EQ( Trend::flat, now.trend );
   EXPECT_EQ( 0, now.eta );
}

TEST( Classifier, takesWhatWasQuietInBetweenForNoDeeperThanATenthOfTheThreshold ) {
   Series silent, low;
   for ( const double rate : { 4e6, 2e6, 0.0, 1e6, 5e5 } ) {
      silent.sample( rate );
      low.sample( rate > 0 ? rate : 1e4 );
   }
   EXPECT_EQ( low.now().trend, silent.now().trend );
   EXPECT_EQ( low.now().eta, silent.now().eta );
}

TEST( Classifier, tellsNoTrendOfRatesThatAreNoNumbers ) {
   for ( const double odd :
         { std::numeric_limits< double >::quiet_NaN(), std::numeric_limits< double >::infinity() } ) {
      Series series;
      for ( double rate = 1e9; rate > 1e7; rate /= 2 )
         series.sample( rate );
      EXPECT_EQ( Trend::falling, series.now().trend );
      EXPECT_EQ( Trend::unknown, series.sample( odd ).trend );
      EXPECT_EQ( 0, series.now().eta );
      EXPECT_EQ( Reason::aboveThreshold, series.now().reason );
   }
}

TEST( Classifier, saysNothingOfTheEndWithoutAProfile ) {
   Series series( 0, 0 );
   for ( double rate = 1e9; rate > 1e3; rate /= 2 )
      series.sample( rate );
   EXPECT_EQ( Trend::unknown, series.now().trend );
   EXPECT_EQ( 0, series.now().eta );
   EXPECT_EQ( Reason::aboveThreshold, series.now().reason );
}

} // namespace Agent
