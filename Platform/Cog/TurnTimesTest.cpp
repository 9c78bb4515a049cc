#include "Platform/Cog/TurnTimes.h"

#include <gtest/gtest.h>

namespace {

constexpr double start = 1.7e9;

TEST( TurnTimes, sumUpAllTurns ) {
   Cog::TurnTimes times;
   EXPECT_EQ( 0, times.total() );
   times.turnEnds( start, 0.25 );
   times.turnEnds( start + 500, 0.5 );
   EXPECT_EQ( 0.75, times.total() );
}

TEST( TurnTimes, tellTheLongestOfTheLastSpanAndForgetItAfterTwo ) {
   Cog::TurnTimes times;
   EXPECT_EQ( 0, times.longest( start ) );
   times.turnEnds( start, 0.1 );
   times.turnEnds( start + 50, 0.5 );
   times.turnEnds( start + 55, 0.2 );
   EXPECT_EQ( 0.5, times.longest( start + 59 ) );
   times.turnEnds( start + 61, 0.3 );
   EXPECT_EQ( 0.5, times.longest( start + 109 ) );
   times.turnEnds( start + 122, 0.01 );
   EXPECT_EQ( 0.3, times.longest( start + 122 ) );
   times.turnEnds( start + 183, 0.01 );
   EXPECT_EQ( 0.01, times.longest( start + 183 ) );
}

TEST( TurnTimes, tellNothingOfALoopThatHasRestedForTwoSpans ) {
   Cog::TurnTimes times;
   times.turnEnds( start, 0.1 );
   EXPECT_EQ( 0.1, times.longest( start + 119 ) );
   EXPECT_EQ( 0, times.longest( start + 121 ) );
   times.turnEnds( start + 300, 0.01 );
   EXPECT_EQ( 0.01, times.longest( start + 300 ) );
}

TEST( TurnTimes, takeATimeThatWentBackForNoTimeAtAll ) {
   Cog::TurnTimes times;
   times.turnEnds( start, -3 );
   EXPECT_EQ( 0, times.total() );
   EXPECT_EQ( 0, times.longest( start ) );
}

} // namespace
