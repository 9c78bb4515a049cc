#include "DataPlane/Simulated/Flow.h"

#include <gtest/gtest.h>

#include <random>

namespace DataPlane::Simulated {
namespace {

constexpr Micros second = 1'000'000;

Vel::U64 octets( Amount amount ) { return static_cast< Vel::U64 >( amount / amountPerOctet ); }

TEST( Flow, constantRateIsExact ) {
   const Flow flow( 0, 400e6 );
   EXPECT_EQ( 0u, octets( flow.amount( 0 ) ) );
   EXPECT_EQ( 50u, octets( flow.amount( 1 ) ) );
   EXPECT_EQ( 50'000'000ul * 86'400, octets( flow.amount( 86'400 * second ) ) );
}

TEST( Flow, rampIsExactAtEveryPartOfItsWay ) {
   Flow flow( 0, 400e6 );
   flow.continueWith( 20 * second, true, 0, 30 );
   // 50 MB/s for 20 s, then down over 30 s: after a part p of the way, 50e6 * 30 * ( p - p^2 / 2 ) more.
   EXPECT_EQ( 1'000'000'000u, octets( flow.amount( 20 * second ) ) );
   EXPECT_EQ( 1'000'000'000u + 480'000'000u, octets( flow.amount( 32 * second ) ) );
   EXPECT_EQ( 1'000'000'000u + 750'000'000u, octets( flow.amount( 50 * second ) ) );
   EXPECT_EQ( 1'000'000'000u + 750'000'000u, octets( flow.amount( 5000 * second ) ) );
}

TEST( Flow, longestRampAtTheHighestRateDoesNotOverflow ) {
   Flow flow( 0, 0 );
   flow.continueWith( 0, true, maxRate, maxSegment );
   const auto end = static_cast< Micros >( maxSegment * 1e6 );
   EXPECT_EQ( static_cast< Vel::U64 >( maxRate / 8 * maxSegment / 2 ), octets( flow.amount( end ) ) );
   Flow down( 0, maxRate );
   down.continueWith( 0, true, 0, maxSegment );
   EXPECT_EQ( flow.amount( end ), down.amount( end ) );
}

TEST( Flow, differencesOverAMillionOddStepsAddUpExactly ) {
   Flow flow( 0, 123'456'789 );
   flow.continueWith( 100 * second, true, 987'654'321, 1000 );
   flow.continueWith( 2000 * second, true, 7, 333.333333 );
   std::mt19937_64 dice( 1 );
   Micros time = 0;
   Amount sum = 0;
   for ( int i = 0; i < 1'000'000; ++i ) {
      const Micros next = time + dice() % 5'003;
      const Amount step = flow.amount( next ) - flow.amount( time );
      ASSERT_GE( step, 0 );
      sum += step;
      time = next;
   }
   EXPECT_GT( time, 2400 * second );
   EXPECT_EQ( flow.amount( time ), sum );
}

TEST( Flow, rateFollowsTheRamp ) {
   Flow flow( 0, 100 );
   flow.continueWith( 10 * second, true, 200, 10 );
   EXPECT_EQ( 100, flow.rate( 0 ) );
   EXPECT_EQ( 100, flow.rate( 10 * second ) );
   EXPECT_EQ( 150, flow.rate( 15 * second ) );
   EXPECT_EQ( 200, flow.rate( 20 * second ) );
   EXPECT_EQ( 200, flow.rate( 21 * second ) );
}

TEST( Flow, continuingInTheMiddleOfARampStartsFromTheRateThere ) {
   Flow flow( 0, 100 );
   flow.continueWith( 0, true, 200, 10 );
   flow.continueWith( 5 * second, true, 0, 10 );
   EXPECT_EQ( 150, flow.rate( 5 * second ) );
   EXPECT_EQ( 75, flow.rate( 10 * second ) );
   EXPECT_EQ( 0, flow.rate( 15 * second ) );
}

TEST( Flow, scriptTakesItsPiecesOneAfterTheOther ) {
   const std::vector< TrafficSegment > script{
      { false, 20, 400e6, 380e6 }, { true, 30, 0, 0 }, { false, 0.5, 8e6, 0 }, { true, 0, 16e6, 0 } };
   const Flow in = scriptFlow( script, &TrafficSegment::inBps );
   EXPECT_EQ( 400e6, in.rate( 19 * second ) );
   EXPECT_EQ( 200e6, in.rate( 35 * second ) );
   EXPECT_EQ( 8e6, in.rate( 50 * second ) );
   EXPECT_EQ( 16e6, in.rate( 51 * second ) );
   EXPECT_EQ( 1'750'000'000u + 500'000u, octets( in.amount( 50'500'000 ) ) );
   const Flow out = scriptFlow( script, &TrafficSegment::outBps );
   EXPECT_EQ( 190e6, out.rate( 35 * second ) );
   EXPECT_EQ( 0, out.rate( 60 * second ) );
}

TEST( Flow, timeIsCountedFromTheStart ) {
   EXPECT_EQ( 0u, microsSince( 1.7e9, 1.7e9 - 1 ) );
   EXPECT_EQ( 5 * second, microsSince( 1.7e9, 1.7e9 + 5 ) );
   EXPECT_EQ( 1000u, microsSince( 1.7e9, 1.7e9 + 0.001 ) );
}

} // namespace
} // namespace DataPlane::Simulated
