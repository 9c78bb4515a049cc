#include "Agent/Times/Moment.h"

#include <gtest/gtest.h>

namespace Agent {
namespace {

constexpr double hour = 3600, day = 86400;
const Moment noted{ "a", 1000, 1.7e9, 1.8e9 };

TEST( Moment, withinABootOnlyTheKernelsTimeCounts ) {
   for ( const double step : { -10 * day, -hour, 0.0, hour, 100 * day } ) {
      SCOPED_TRACE( step );
      const Passed result = passed( noted, { "a", 1000 + hour, 5, noted.wall + hour + step } );
      EXPECT_EQ( hour, result.seconds );
      EXPECT_EQ( Doubt::none, result.doubt );
   }
}

TEST( Moment, overABootItIsWallTimeThatTells ) {
   const Passed result = passed( noted, { "b", 30, 1.9e9, noted.wall + 2 * hour } );
   EXPECT_EQ( 2 * hour, result.seconds );
   EXPECT_EQ( Doubt::none, result.doubt );
}

TEST( Moment, wallTimeThatIsBehindLeavesWhatIsCertain ) {
   for ( const double step : { -10 * day, -hour, -10.0 } ) {
      SCOPED_TRACE( step );
      const Passed result = passed( noted, { "b", 600, 1.9e9, noted.wall + step } );
      EXPECT_EQ( 600, result.seconds );
      EXPECT_EQ( Doubt::behind, result.doubt );
   }
}

TEST( Moment, wallTimeThatIsFarAheadLeavesWhatIsCertain ) {
   const Passed result = passed( noted, { "b", 600, 1.9e9, noted.wall + longestOff + 700 } );
   EXPECT_EQ( 600, result.seconds );
   EXPECT_EQ( Doubt::ahead, result.doubt );
}

TEST( Moment, machineMayHaveBeenOffForAsLongAsIsBelieved ) {
   const Passed result = passed( noted, { "b", 600, 1.9e9, noted.wall + longestOff + 500 } );
   EXPECT_EQ( longestOff + 500, result.seconds );
   EXPECT_EQ( Doubt::none, result.doubt );
}

TEST( Moment, machineThatHasBeenUpForLongBeforeItIsAskedIsNotAheadForThat ) {
   const Passed result = passed( noted, { "b", 30 * day, 1.9e9, noted.wall + 30 * day + hour } );
   EXPECT_EQ( 30 * day + hour, result.seconds );
   EXPECT_EQ( Doubt::none, result.doubt );
}

TEST( Moment, someSecondsBehindAreNoDoubt ) {
   const Passed result = passed( noted, { "b", 20, 1.9e9, noted.wall + 17 } );
   EXPECT_EQ( 20, result.seconds );
   EXPECT_EQ( Doubt::none, result.doubt );
}

TEST( Moment, timeNeverGoesBack ) {
   EXPECT_EQ( 0, passed( noted, { "a", 900, 1.7e9, noted.wall } ).seconds );
   EXPECT_EQ( 0, passed( noted, { "b", 0, 1.7e9, noted.wall - 1 } ).seconds );
}

} // namespace
} // namespace Agent
