#include "Apps/ClockOffset.h"

#include <gtest/gtest.h>

namespace {

using Apps::clockOffset;
using Apps::clockOffsetText;

TEST( ClockOffset, beginsWithWallTime ) {
   EXPECT_EQ( 1.8e9 - 100, clockOffset( "", "boot", 100, 1.8e9, 0 ) );
}

TEST( ClockOffset, isKeptForABootAlsoWhenWallTimeIsSet ) {
   const double offset = 1799999900.123456;
   const std::string kept = clockOffsetText( "boot", offset );
   EXPECT_EQ( offset, clockOffset( kept, "boot", 500, 1.9e9, 1.8e9 ) );
}

TEST( ClockOffset, isChosenAnewForAnotherBoot ) {
   const std::string kept = clockOffsetText( "boot", 1.75e9 );
   EXPECT_EQ( 1.8e9 - 10, clockOffset( kept, "other", 10, 1.8e9, 0 ) );
}

TEST( ClockOffset, neverGoesBehindWhatIsKept ) {
   // The machine was started again and its wall time was put back by a day.
   const double latest = 1.8e9 + 86400;
   EXPECT_EQ( latest - 10, clockOffset( clockOffsetText( "boot", 1.75e9 ), "other", 10, 1.8e9, latest ) );
   EXPECT_EQ( latest - 10, clockOffset( clockOffsetText( "boot", 1.75e9 ), "boot", 10, 1.8e9, latest ) );
}

TEST( ClockOffset, isLargeOnAMachineThatDoesNotKnowTheTime ) {
   EXPECT_EQ( Apps::earliestClock, 10 + clockOffset( "", "boot", 10, 60, 0 ) );
}

TEST( ClockOffset, isChosenAnewWhenWhatIsKeptIsDamaged ) {
   for ( const char * kept : { "boot", "boot ", "boot nan\n", "boot inf\n", "boot 17", "boot x\n", "\n" } ) {
      SCOPED_TRACE( kept );
      EXPECT_EQ( 1.8e9 - 10, clockOffset( kept, "boot", 10, 1.8e9, 0 ) );
   }
}

} // namespace
