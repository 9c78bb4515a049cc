#include "Agent/Insight/SeriesRig.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cmath>
#include <limits>

namespace Agent {

namespace {

/// Rates that a counter shows of this, each by up to so much off.
Series::Rates noisy( Series::Rates rates, double noise, unsigned seed ) {
   return [=]( double seconds ) {
      std::mt19937 random( seed + static_cast< unsigned >( seconds ) * 7919 );
      std::uniform_real_distribution< double > off( 1 - noise, 1 + noise );
      const auto [in, out] = rates( seconds );
      const double inOff = off( random );
      return std::pair( in * inOff, out * off( random ) );
   };
}

Series::Rates decay( double start, double halfLife ) {
   return [=]( double seconds ) {
      const double rate = start * std::exp2( -seconds / halfLife );
      return std::pair( rate, rate / 3 );
   };
}

Series::Rates constant( double rate ) {
   return [=]( double ) { return std::pair( rate / 7, rate ); };
}

} // namespace

// ---- when it will end

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

// ---- why

TEST( Classifier, callsAConstantRateStalledWithinAMinute ) {
   for ( const double rate : { 1e5, 3.1e5, 1e8, 4e11 } )
      for ( const double noise : { 0.0, 0.01, 0.1 } )
         for ( unsigned seed = 0; seed < 50; ++seed ) {
            SCOPED_TRACE( testing::Message() << rate << " bps, noise " << noise << ", seed " << seed );
            Series series( 8e4 );
            const auto & now = series.until( 60, noisy( constant( rate ), noise, seed ) );
            EXPECT_EQ( Reason::stalled, now.reason );
            EXPECT_EQ( 0, now.eta );
            EXPECT_LE( now.since - Series::begin, 60 );
         }
}

TEST( Classifier, callsARateThatRisesStalledToo ) {
   Series series;
   const auto & now = series.until( 60, decay( 1e6, -20 ) );
   EXPECT_EQ( Reason::stalled, now.reason );
   EXPECT_EQ( Trend::rising, now.trend );
}

TEST( Classifier, callsItAboveTheThresholdAgainWhenWhatHasStalledFalls ) {
   Series series;
   series.samples( 40, 1e7 );
   EXPECT_EQ( Reason::stalled, series.now().reason );
   double rate = 1e7;
   for ( int i = 0; i < 6; ++i )
      series.sample( rate /= 1.5 );
   EXPECT_EQ( Reason::aboveThreshold, series.now().reason );
   EXPECT_GT( series.now().eta, series.time );
}

TEST( Classifier, isTimingFromTheFirstQuietSampleOn ) {
   Series series;
   series.samples( 4, 1e7 );
   const auto & now = series.sample( 9.9e4 );
   EXPECT_EQ( Reason::timing, now.reason );
   EXPECT_EQ( series.time, now.since );
}

TEST( Classifier, needsBothDirectionsBelowTheThreshold ) {
   Series series;
   EXPECT_EQ( Reason::aboveThreshold, series.sample( 0, 1e5 ).reason );
   EXPECT_EQ( Reason::aboveThreshold, series.sample( 1e5, 0 ).reason );
   EXPECT_EQ( Reason::timing, series.sample( 9e4, 9e4 ).reason );
}

TEST( Classifier, callsItOscillatingThatCrossesTheThresholdFourTimes ) {
   Series series( 1e5, 30 );
   for ( const double rate : { 1e6, 1e4, 1e6, 1e4 } )
      EXPECT_NE( Reason::oscillating, series.sample( rate ).reason );
   series.sample( 1e6 );
   series.until(
      120, []( double seconds ) { return std::pair( std::fmod( seconds, 10 ) < 5 ? 1e6 : 1e4, 0.0 ); } );
   EXPECT_EQ( Reason::oscillating, series.now().reason );
   EXPECT_EQ( 0, series.now().eta );
}

TEST( Classifier, callsSlowBurstsOscillatingWhenTheLoadIntervalIsLong ) {
   Series series( 1e5, 120 );
   const auto & now = series.until(
      400, []( double seconds ) { return std::pair( std::fmod( seconds, 100 ) < 20 ? 1e6 : 1e3, 0.0 ); } );
   EXPECT_EQ( Reason::oscillating, now.reason );
}

TEST( Classifier, doesNotCallItOscillatingAnyMoreWhenItHasBeenQuietForAWhile ) {
   Series series( 1e5, 600 );
   series.inputs.loadInterval = 15;
   series.until(
      100, []( double seconds ) { return std::pair( std::fmod( seconds, 10 ) < 5 ? 1e6 : 1e4, 0.0 ); } );
   ASSERT_EQ( Reason::oscillating, series.now().reason );
   series.samples( 5, 1e4 );
   EXPECT_EQ( Reason::oscillating, series.now().reason );
   EXPECT_EQ( Reason::timing, series.samples( 10, 1e4 ).reason );
}

TEST( Classifier, isStarvedWhenNoSampleComes ) {
   Series series;
   series.samples( 4, 1e7 );
   const double due = series.classifier.starvedAt();
   EXPECT_EQ( series.time + Classifier::starvedAfter, due );
   EXPECT_EQ( Reason::aboveThreshold, series.classifier.conclude( due - 0.5, series.inputs ).reason );
   const auto & now = series.classifier.conclude( due, series.inputs );
   EXPECT_EQ( Reason::starved, now.reason );
   EXPECT_EQ( due, now.since );
   EXPECT_EQ( 0, now.eta );
   series.time = due;
   EXPECT_EQ( Reason::timing, series.sample( 1e3 ).reason );
}

TEST( Classifier, isStarvedWhenNotEvenAFirstSampleComes ) {
   Series series;
   EXPECT_EQ(
      Reason::starved, series.classifier.conclude( series.classifier.starvedAt(), series.inputs ).reason );
}

TEST( Classifier, saysAtOnceWhatTheRecordSays ) {
   Series series;
   series.samples( 3, 1e3 );
   series.inputs.state = Maintenance::monIntfStateUnderMaint;
   series.inputs.stateTime = series.time;
   EXPECT_EQ( Reason::drained, series.now().reason );
   EXPECT_EQ( series.time, series.now().since );
   series.time += 3;
   series.inputs.shut = true;
   EXPECT_EQ( Reason::shut, series.now().reason );
   EXPECT_EQ( series.time, series.now().since );
   series.time += 3;
   series.inputs.shut = false;
   EXPECT_EQ( Reason::drained, series.now().reason );
   EXPECT_EQ( series.time, series.now().since );
   series.time += 3;
   series.inputs.spike = true;
   EXPECT_EQ( Reason::spike, series.now().reason );
   series.time += 3;
   series.inputs.state = Maintenance::monIntfStateStopped;
   series.inputs.stateTime = series.time;
   EXPECT_EQ( Reason::stopped, series.now().reason );
   EXPECT_EQ( series.time, series.now().since );
}

TEST( Classifier, doesNotCallItStarvedOnceItHasDrained ) {
   Series series;
   series.inputs.state = Maintenance::monIntfStateUnderMaint;
   series.time += 1000;
   EXPECT_EQ( Reason::drained, series.now().reason );
}

TEST( Classifier, keepsSinceWhileTheReasonIsTheSame ) {
   Series series;
   series.samples( 20, 1e7 );
   const double since = series.now().since;
   EXPECT_EQ( since, series.samples( 50, 1e7 ).since );
   EXPECT_EQ( Reason::stalled, series.now().reason );
}

TEST( Classifier, saysAtOnceWhatAnotherProfileMakesOfIt ) {
   Series series;
   series.samples( 2, 1e4 );
   ASSERT_EQ( Reason::timing, series.sample( 1e4 ).reason );
   series.inputs.threshold = 1e3;
   EXPECT_EQ( Reason::aboveThreshold, series.sample( 1e4 ).reason );
   series.inputs.threshold = 1e5;
   EXPECT_EQ( Reason::timing, series.sample( 1e4 ).reason );
}

// ---- after a restart

TEST( Classifier, goesOnWithAKeptReasonUntilThereIsEvidence ) {
   for ( const Reason reason :
         { Reason::aboveThreshold, Reason::timing, Reason::stalled, Reason::oscillating } ) {
      SCOPED_TRACE( stringValue( reason ) );
      Series series;
      series.classifier = Classifier( Series::begin, reason, Series::begin - 1000 );
      EXPECT_EQ( reason, series.now().reason );
      const auto & now = series.sample( reason == Reason::timing ? 1e3 : 1e7 );
      EXPECT_EQ( reason, now.reason );
      EXPECT_EQ( Series::begin - 1000, now.since );
   }
}

TEST( Classifier, givesUpAKeptReasonWhenThereIsEvidence ) {
   Series series;
   series.classifier = Classifier( Series::begin, Reason::stalled, Series::begin - 1000 );
   const auto & now = series.until( 30, decay( 1e9, 10 ) );
   EXPECT_EQ( Reason::aboveThreshold, now.reason );
   EXPECT_GT( now.since, Series::begin );
}

TEST( Classifier, doesNotCountTheTimeWithoutAnAgentAsStarved ) {
   Classifier classifier( Series::begin, Reason::stalled, Series::begin - 1000 );
   EXPECT_EQ( Series::begin + Classifier::starvedAfter, classifier.starvedAt() );
}

TEST( Classifier, keepsWhatIsKnownOfAnInterfaceThatHasDrained ) {
   Classifier::Inputs inputs;
   inputs.state = Maintenance::monIntfStateUnderMaint;
   inputs.stateTime = Series::begin - 2000;
   inputs.spike = true;
   Classifier classifier( Series::begin, Reason::spike, Series::begin - 1000 );
   EXPECT_EQ( Reason::spike, classifier.conclude( Series::begin, inputs ).reason );
   EXPECT_EQ( Series::begin - 1000, classifier.conclude( Series::begin, inputs ).since );
}

// ---- calm

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
   Series series( 1e5, *rc::gen::element( 0U, 10U, 30U, 300U ) );
   double level = 1e6;
   int kind = *rc::gen::inRange( 0, 6 );
   Reason reason = series.now().reason;
   double changed = -1e9;
   for ( int i = 0; i < 1000; ++i ) {
      const double in = randomRate( random, level, kind );
      const auto & now = series.sample( in, in / 3 );
      if ( now.reason == reason )
         continue;
      reason = now.reason;
      RC_ASSERT( now.since == series.time );
      RC_ASSERT( series.time - changed >= 60 );
      changed = series.time;
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
      RC_ASSERT( now.reason == Reason::aboveThreshold || now.reason == Reason::timing );
      RC_ASSERT( in < 1e5 || now.trend == Trend::falling );
   }
}

} // namespace Agent
