#include "Agent/Insight/SeriesRig.h"

#include <gtest/gtest.h>

#include <cmath>

namespace Agent {

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
   for ( const int crossings : { 3, 4 } ) {
      SCOPED_TRACE( crossings );
      Series series( 1e5, 30 );
      const auto & now = series.until( 65, [=]( double seconds ) {
         const int crossed = std::min( static_cast< int >( seconds / 5 ) - 1, crossings );
         return std::pair( crossed % 2 ? 1e4 : 1e6, 0.0 );
      } );
      // Timing has been said at 10 s, when it was quiet for the first time.
      EXPECT_EQ( Reason::timing, now.reason );
      series.sample( crossings % 2 ? 1e4 : 1e6, 0 );
      EXPECT_EQ( crossings == 4 ? Reason::oscillating : Reason::timing, now.reason );
      EXPECT_EQ( crossings == 4, now.eta == 0 );
   }
}

TEST( Classifier, goesOnCallingSlowBurstsOscillatingWhenTheLoadIntervalIsLong ) {
   Series series( 1e5, 120 );
   for ( double end = 300; end <= 900; end += 5 ) {
      const auto & now = series.until(
         end, []( double seconds ) { return std::pair( std::fmod( seconds, 100 ) < 20 ? 1e6 : 1e3, 0.0 ); } );
      EXPECT_EQ( Reason::oscillating, now.reason ) << end;
   }
}

TEST( Classifier, doesNotCallItOscillatingAnyMoreWhenItIsQuietForLongerThanItHasBeen ) {
   Series series( 1e5, 300 );
   series.until( 100, fast );
   ASSERT_EQ( Reason::oscillating, series.now().reason );
   ASSERT_EQ( Series::begin + 65, series.now().since );
   EXPECT_EQ( 0, series.sample( 1e4 ).eta );
   // What is held for a minute does not hide when it will end.
   EXPECT_EQ( Series::begin + 400, series.sample( 1e4 ).eta );
   EXPECT_EQ( Reason::oscillating, series.samples( 2, 1e4 ).reason );
   EXPECT_EQ( Reason::timing, series.sample( 1e4 ).reason );
   EXPECT_EQ( Series::begin + 125, series.now().since );
}

TEST( Classifier, doesNotCallItOscillatingAnyMoreWhenItIsQuietForHalfOfTheLoadInterval ) {
   Series series( 1e5, 60 );
   const auto rates = []( double seconds ) {
      return std::pair( seconds < 325 && std::fmod( seconds - 5, 110 ) < 100 ? 1e6 : 1e3, 0.0 );
   };
   EXPECT_EQ( Reason::oscillating, series.until( 345, rates ).reason );
   EXPECT_EQ( 5, series.inputs.quietSamples );
   EXPECT_EQ( Reason::timing, series.until( 350, rates ).reason );
}

TEST( Classifier, doesNotCallANoisyTailOscillatingThatIsOverAlready ) {
   Series series( 1e5, 300 );
   const auto rates = []( double seconds ) {
      return std::pair( seconds < 55 && ( seconds < 35 || std::fmod( seconds, 10 ) < 5 ) ? 1e6 : 1e3, 0.0 );
   };
   for ( double end = 60; end <= 350; end += 5 )
      EXPECT_EQ( Reason::timing, series.until( end, rates ).reason ) << end;
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

TEST( Classifier, tellsSinceWhenTheTrafficIsBackThatWasGoneInBetween ) {
   Series series;
   series.inputs.state = Maintenance::monIntfStateUnderMaint;
   series.samples( 3, 1e3 );
   series.inputs.spike = true;
   const double first = series.samples( 1, 1e7 ).since;
   EXPECT_EQ( series.time, first );
   EXPECT_EQ( first, series.samples( 5, 1e6 ).since );
   EXPECT_EQ( first, series.samples( 50, 1e3 ).since );
   const double again = series.sample( 1e7 ).since;
   EXPECT_EQ( series.time, again );
   series.samples( 5, 1e7 );
   EXPECT_EQ( again, series.samples( 5, 1e3 ).since );
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

TEST( Classifier, staysStarvedAfterARestartUntilASampleComes ) {
   Series series;
   series.classifier = Classifier( Series::begin, Reason::starved, Series::begin - 1000 );
   series.time += 10;
   EXPECT_EQ( Reason::starved, series.now().reason );
   EXPECT_EQ( Series::begin - 1000, series.now().since );
   EXPECT_EQ( Reason::aboveThreshold, series.sample( 1e7 ).reason );
}

TEST( Classifier, givesUpKeptOscillationWhenItIsQuietForHalfOfTheLoadInterval ) {
   Series series( 1e5, 60 );
   series.classifier = Classifier( Series::begin, Reason::oscillating, Series::begin - 1000 );
   EXPECT_EQ( Reason::oscillating, series.samples( 5, 1e3 ).reason );
   EXPECT_EQ( Reason::timing, series.sample( 1e3 ).reason );
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

} // namespace Agent
