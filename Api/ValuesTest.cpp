#include "Api/Values.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

TEST( TimeText, isUtcWithMilliseconds ) {
   EXPECT_EQ( Api::timeText( 0 ), "1970-01-01T00:00:00.000Z" );
   EXPECT_EQ( Api::timeText( 1700000000.25 ), "2023-11-14T22:13:20.250Z" );
   EXPECT_EQ( Api::timeText( 951782400 ), "2000-02-29T00:00:00.000Z" );
   EXPECT_EQ( Api::timeText( 4102444799.9996 ), "2100-01-01T00:00:00.000Z" );
}

TEST( TimeText, goesBelow1970 ) { EXPECT_EQ( Api::timeText( -0.5 ), "1969-12-31T23:59:59.500Z" ); }

TEST( TimeText, staysWithinFourDigitsOfAYear ) {
   EXPECT_EQ( Api::timeText( 1e300 ), "9999-12-31T23:59:59.999Z" );
   EXPECT_EQ( Api::timeText( -HUGE_VAL ), "0000-01-01T00:00:00.000Z" );
   EXPECT_EQ( Api::timeText( NAN ), "0000-01-01T00:00:00.000Z" );
}

TEST( TimeOf, takesOffsetsAndAnyNumberOfDecimals ) {
   EXPECT_EQ( Api::timeOf( "2023-11-14T22:13:20Z" ), 1700000000 );
   EXPECT_EQ( Api::timeOf( "2023-11-14T22:13:20.25Z" ), 1700000000.25 );
   EXPECT_EQ( Api::timeOf( "2023-11-15T00:13:20+02:00" ), 1700000000 );
   EXPECT_EQ( Api::timeOf( "2023-11-14T16:43:20-05:30" ), 1700000000 );
   EXPECT_EQ( Api::timeOf( "2016-12-31T23:59:60Z" ), 1483228800 );
}

TEST( TimeOf, refusesWhatIsNoTime ) {
   for ( const char * text :
         { "", "now", "2023-11-14", "2023-11-14T22:13:20", "2023-02-29T00:00:00Z", "2023-13-01T00:00:00Z",
           "2023-11-14T24:00:00Z", "2023-11-14T22:13:20.Z", "2023-11-14T22:13:20Zx",
           "2023-11-14T22:13:20+2:00", "-023-11-14T22:13:20Z", "1900-02-29T00:00:00Z" } )
      EXPECT_FALSE( Api::timeOf( text ) ) << text;
}

TEST( TimeOf, givesBackWhatTimeTextWrote ) {
   // Steps that meet all months, leap years and both sides of 1970.
   for ( double time = -6e10; time < 2.5e11; time += 123456789.125 )
      ASSERT_EQ( Api::timeOf( Api::timeText( time ) ), time ) << Api::timeText( time );
}

TEST( RateText, hasThreeDigitsAndTheLargestUnit ) {
   EXPECT_EQ( Api::rateText( 0 ), "0 bps" );
   EXPECT_EQ( Api::rateText( 999.9 ), "1.00 kbps" );
   EXPECT_EQ( Api::rateText( 400e6 ), "400 Mbps" );
   EXPECT_EQ( Api::rateText( 2.5e9 ), "2.50 Gbps" );
}

TEST( Counter, keepsAll64Bits ) {
   const auto most = std::numeric_limits< std::uint64_t >::max();
   EXPECT_EQ( Api::counterText( most ), "18446744073709551615" );
   EXPECT_EQ( Api::counterOf( "18446744073709551615" ), most );
   EXPECT_EQ( Api::counterOf( "0" ), 0 );
}

TEST( Counter, refusesWhatIsNoNumberOrDoesNotFit ) {
   for ( const char * text : { "", "-1", "+1", " 1", "1 ", "1.0", "0x1", "18446744073709551616" } )
      EXPECT_FALSE( Api::counterOf( text ) ) << text;
}

} // namespace
