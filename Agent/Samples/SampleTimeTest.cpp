#include "Agent/Samples/SampleTime.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using Agent::SampleTime;

constexpr double start = 1.7e9;

TEST( SampleTime, isThatOfTheClockAtFirst ) {
   const SampleTime time = SampleTime::begin( std::nullopt, "boot 1", start, start + 1e6, 0 );
   EXPECT_EQ( 0, time.base );
   EXPECT_EQ( start, time.now() );
   EXPECT_EQ( "boot 1", time.clock );
}

TEST( SampleTime, goesOnWithTheClockWhateverIsDoneToWallTime ) {
   const SampleTime kept{ "boot 1", 35, start, start };
   for ( const double wall : { 0.0, start, 2 * start } )
      EXPECT_EQ( 35, SampleTime::begin( kept, "boot 1", start + 100, wall, 0 ).base ) << wall;
}

TEST( SampleTime, goesOnWithWallTimeWhenTheClockHasBegunAnew ) {
   // The clock was 1,000 s behind wall time at last, and is right now.
   const SampleTime kept{ "boot 1", 0, start, start + 1000 };
   const SampleTime time = SampleTime::begin( kept, "boot 2", start + 1500, start + 1500, 0 );
   EXPECT_EQ( -1000, time.base );
   EXPECT_EQ( start + 500, time.now() );
   // Wall time that is set meanwhile moves nothing but is what the next boot reckons with.
   const SampleTime next = SampleTime::begin(
      SampleTime{ "boot 2", -1000, start + 1600, start + 1700 }, "boot 3", start + 3000, start + 3000, 0 );
   EXPECT_EQ( -1100, next.base );
}

TEST( SampleTime, staysOnTheGridOfSteps ) {
   const SampleTime kept{ "boot 1", 0, start, start + 13 };
   EXPECT_EQ( -15, SampleTime::begin( kept, "boot 2", start + 500, start + 500, 0 ).base );
   EXPECT_EQ( 0, SampleTime::begin( kept, "boot 2", start + 500, start + 511, 0 ).base );
}

TEST( SampleTime, neverGoesBack ) {
   const SampleTime kept{ "boot 1", 0, start, start };
   const SampleTime time = SampleTime::begin( kept, "boot 2", start - 5000, 0, 0 );
   EXPECT_GE( time.now(), start + SampleTime::noteMargin );
   EXPECT_LT( time.now(), start + SampleTime::noteMargin + SampleTime::grid );
   // A clock that is moved by hand may begin earlier under its old name.
   EXPECT_EQ( start, SampleTime::begin( kept, "boot 1", start - 5000, start - 5000, 0 ).now() );
   EXPECT_EQ( start + 500, SampleTime::begin( std::nullopt, "boot 1", start, start, start + 500 ).now() );
   EXPECT_EQ( start, SampleTime::begin( std::nullopt, "boot 1", start, start, start - 500 ).now() );
}

TEST( SampleTime, isReadAsItWasWritten ) {
   const SampleTime time{ "boot 1 1700000000.25", -1005, 1700000012.0625, 1.8e9 };
   const auto read = SampleTime::parse( time.text() );
   ASSERT_TRUE( read );
   EXPECT_EQ( time.clock, read->clock );
   EXPECT_EQ( time.base, read->base );
   EXPECT_EQ( time.clockTime, read->clockTime );
   EXPECT_EQ( time.wallTime, read->wallTime );
}

TEST( SampleTime, isNotReadFromAnythingElse ) {
   const std::string whole = SampleTime{ "boot", 5, 1.7e9, 1.7e9 }.text();
   for ( std::size_t length = 0; length < whole.size(); ++length )
      EXPECT_FALSE( SampleTime::parse( whole.substr( 0, length ) ) ) << length;
   for ( const char * text :
         { "boot\n5 1e9\n", "boot\n5 1e9 x\n", "boot\n3 1e9 1e9\n", "boot\n5e11 1e9 1e9\n",
           "boot\n5 1e300 1e9\n", "boot\n5 1e9 nan\n", "boot\n-2000000000 1e9 1e9\n",
           "boot\n5 1e9 1e9 7\n" } )
      EXPECT_FALSE( SampleTime::parse( text ) ) << text;
}

} // namespace
