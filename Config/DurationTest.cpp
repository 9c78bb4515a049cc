#include "Config/Duration.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

namespace {

using Config::Duration;

std::uint32_t secondsOf( std::string_view text ) {
   const Config::Parsed< Duration > duration = Duration::parse( text );
   EXPECT_TRUE( duration ) << duration.error;
   return duration ? duration.value->seconds() : ~0U;
}

TEST( Duration, readsEveryUnit ) {
   EXPECT_EQ( 0u, secondsOf( "0s" ) );
   EXPECT_EQ( 90u, secondsOf( "90s" ) );
   EXPECT_EQ( 300u, secondsOf( "5m" ) );
   EXPECT_EQ( 7200u, secondsOf( "2h" ) );
}

TEST( Duration, readsUnitsAfterEachOther ) {
   EXPECT_EQ( 5400u, secondsOf( "1h30m" ) );
   EXPECT_EQ( 3601u, secondsOf( "1h1s" ) );
   EXPECT_EQ( 3661u, secondsOf( "1h1m1s" ) );
   EXPECT_EQ( 9000u, secondsOf( "1h90m" ) );
}

TEST( Duration, readsUpToItsMaximumAndNoFurther ) {
   EXPECT_EQ( Duration::max().seconds(), secondsOf( "720h" ) );
   EXPECT_EQ( Duration::max().seconds(), secondsOf( "2592000s" ) );
   EXPECT_FALSE( Duration::parse( "2592001s" ) );
   EXPECT_FALSE( Duration::parse( "720h1s" ) );
}

TEST( Duration, suggestsWhatWasMeant ) {
   EXPECT_NE( std::string::npos, Duration::parse( "5 min" ).error.find( "did you mean \"5m\"?" ) );
   EXPECT_NE( std::string::npos, Duration::parse( "2H" ).error.find( "did you mean \"2h\"?" ) );
   EXPECT_EQ( std::string::npos, Duration::parse( "3 days" ).error.find( "did you mean" ) );
}

TEST( Duration, isShownInHoursMinutesAndSeconds ) {
   EXPECT_EQ( "0s", Duration().text() );
   EXPECT_EQ( "59s", Duration::fromSeconds( 59 ).text() );
   EXPECT_EQ( "5m", Duration::fromSeconds( 300 ).text() );
   EXPECT_EQ( "1h1s", Duration::fromSeconds( 3601 ).text() );
   EXPECT_EQ( "1h30m", Duration::fromSeconds( 5400 ).text() );
}

RC_GTEST_PROP( Duration, isReadBackFromItsText, () ) {
   const Duration duration =
      Duration::fromSeconds( *rc::gen::inRange< std::uint32_t >( 0, Duration::max().seconds() + 1 ) );
   RC_ASSERT( Duration::parse( duration.text() ).value == duration );
}

} // namespace
