#include "Agent/Control/ProblemTimes.h"

#include <gtest/gtest.h>

namespace {

TEST( ProblemTimes, tellWhenAProblemWasSeenFirst ) {
   Agent::ProblemTimes times;
   EXPECT_EQ( 100, times.since( "switch", 100 ) );
   times.allAsked();
   EXPECT_EQ( 100, times.since( "switch", 110 ) );
   EXPECT_EQ( 110, times.since( "configuration", 110 ) );
}

TEST( ProblemTimes, beginAnewWithAProblemThatWasOver ) {
   Agent::ProblemTimes times;
   times.since( "switch", 100 );
   times.allAsked();
   times.allAsked();
   EXPECT_EQ( 120, times.since( "switch", 120 ) );
}

} // namespace
