#include "Agent/Events/Damper.h"

#include <gtest/gtest.h>

namespace Agent {

namespace {

/// Changes `every` so many seconds until `end`, and tells as soon as it may; how often it has told.
unsigned toldOf( double every, double end, Vel::U32 & changes ) {
   Damper damper;
   unsigned told = 0;
   for ( double now = 1000; now < 1000 + end; now += every ) {
      damper.change();
      if ( now < damper.notBefore() )
         continue;
      changes += damper.changes();
      damper.told( now );
      ++told;
   }
   return told;
}

TEST( Damper, letsTheFirstChangeBeToldAtOnce ) {
   Damper damper;
   damper.change();
   EXPECT_LE( damper.notBefore(), 0 );
   EXPECT_EQ( 1u, damper.changes() );
}

TEST( Damper, countsWhatFollowsWithinASecond ) {
   Damper damper;
   damper.change();
   damper.told( 100 );
   EXPECT_EQ( 101, damper.notBefore() );
   damper.change();
   damper.change();
   EXPECT_EQ( 2u, damper.changes() );
}

TEST( Damper, pausesLongerWhileItGoesOnAndLosesNoCount ) {
   Vel::U32 changes = 0;
   const unsigned told = toldOf( 0.1, 3600, changes );
   // 1, 2, 4, ... up to 60 seconds: 6 times in the first minute, then once a minute.
   EXPECT_LE( told, 68u );
   EXPECT_GE( told, 60u );
   EXPECT_GE( changes, 36000u - 600 );
}

TEST( Damped, knowsNothingMoreOfWhatHasGone ) {
   Damped< bool > damped;
   damped.valueIs( true, false );
   damped.valueDel();
   EXPECT_EQ( 0u, damped.changes() );
   damped.valueIs( false, false );
   EXPECT_EQ( 0u, damped.changes() );
}

TEST( Damper, beginsAnewAfterAQuietMinute ) {
   Damper damper;
   for ( double now = 100; now < 108; ++now ) {
      damper.change();
      if ( now >= damper.notBefore() )
         damper.told( now );
   }
   EXPECT_GT( damper.notBefore(), 109 );
   damper.told( 200 );
   EXPECT_EQ( 201, damper.notBefore() );
}

} // namespace

} // namespace Agent
