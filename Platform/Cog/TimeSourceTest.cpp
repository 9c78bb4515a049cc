#include "Platform/Cog/TimeSource.h"
#include "Platform/Cog/RealTime.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

constexpr double never = std::numeric_limits< double >::infinity();

TEST( VirtualTime, goesToDueTimesUpToTheTargetAndOnceToTheTarget ) {
   Cog::VirtualTime time( 100 );
   EXPECT_EQ( never, time.waitFor( 105 ) );
   EXPECT_EQ( 100, time.now() );
   time.targetIs( 110 );
   EXPECT_EQ( 0, time.waitFor( 105 ) );
   EXPECT_EQ( 105, time.now() );
   EXPECT_EQ( 0, time.waitFor( 0 ) );
   EXPECT_EQ( 105, time.now() );
   EXPECT_EQ( 0, time.waitFor( 110.5 ) );
   EXPECT_EQ( 110, time.now() );
   EXPECT_EQ( never, time.waitFor( 110.5 ) );
   EXPECT_EQ( never, time.waitFor( never ) );
   EXPECT_EQ( 110, time.now() );
}

TEST( VirtualTime, dueTimeAtTheTargetIsReachedOnlyOnce ) {
   Cog::VirtualTime time( 100 );
   time.targetIs( 110 );
   EXPECT_EQ( 0, time.waitFor( 110 ) );
   EXPECT_EQ( never, time.waitFor( never ) );
}

TEST( VirtualTime, callsInsteadOfWaiting ) {
   Cog::VirtualTime time( 100 );
   int calls = 0;
   time.reachedIs( [&] { ++calls; } );
   time.targetIs( 110 );
   EXPECT_EQ( 0, time.waitFor( 105 ) );
   EXPECT_EQ( 0, time.waitFor( never ) );
   EXPECT_EQ( 110, time.now() );
   EXPECT_EQ( 0, calls );
   EXPECT_EQ( 0, time.waitFor( never ) );
   EXPECT_EQ( 1, calls );
}

TEST( VirtualTime, targetThatHasPassedChangesNothing ) {
   Cog::VirtualTime time( 100 );
   time.targetIs( 110 );
   time.targetIs( 50 );
   EXPECT_EQ( 110, time.target() );
}

TEST( RealTime, isTheTimeSinceBootPlusTheOffset ) {
   Cog::RealTime time( 1000 );
   const double before = Cog::RealTime::timeSinceBoot();
   const double now = time.now();
   const double after = Cog::RealTime::timeSinceBoot();
   EXPECT_LE( before + 1000, now );
   EXPECT_LE( now, after + 1000 );
   EXPECT_GT( before, 0 );
   EXPECT_GT( Cog::RealTime::wallTime(), 1.6e9 );
}

TEST( RealTime, waitsUntilTheDueTime ) {
   Cog::RealTime time( 0 );
   const double wait = time.waitFor( time.now() + 100 );
   EXPECT_LE( wait, 100 );
   EXPECT_GT( wait, 0 );
   EXPECT_EQ( 0, time.waitFor( 0 ) );
   EXPECT_EQ( 0, time.waitFor( time.now() - 1 ) );
   EXPECT_EQ( never, time.waitFor( never ) );
}

} // namespace
