#include "Config/Rate.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

namespace {

using Config::Rate;

std::uint64_t bpsOf( std::string_view text ) {
   const Config::Parsed< Rate > rate = Rate::parse( text );
   EXPECT_TRUE( rate ) << rate.error;
   return rate ? rate.value->bps() : ~0ULL;
}

TEST( Rate, readsEveryUnit ) {
   EXPECT_EQ( 0u, bpsOf( "0bps" ) );
   EXPECT_EQ( 7u, bpsOf( "7bps" ) );
   EXPECT_EQ( 100'000u, bpsOf( "100kbps" ) );
   EXPECT_EQ( 1'000'000u, bpsOf( "1Mbps" ) );
   EXPECT_EQ( 400'000'000'000u, bpsOf( "400Gbps" ) );
}

TEST( Rate, readsDecimalFractionsThatAreWholeBitsPerSecond ) {
   EXPECT_EQ( 1'500'000u, bpsOf( "1.5Mbps" ) );
   EXPECT_EQ( 1u, bpsOf( "0.001kbps" ) );
   EXPECT_EQ( 2'000'000'001u, bpsOf( "2.000000001Gbps" ) );
   EXPECT_EQ( 1'000u, bpsOf( "1.00000kbps" ) );
}

TEST( Rate, readsUpToItsMaximumAndNoFurther ) {
   EXPECT_EQ( Rate::max().bps(), bpsOf( "1000000Gbps" ) );
   EXPECT_EQ( Rate::max().bps(), bpsOf( "1000000000000000bps" ) );
   EXPECT_FALSE( Rate::parse( "1000000000000001bps" ) );
   EXPECT_FALSE( Rate::parse( "1000000.000000001Gbps" ) );
}

TEST( Rate, suggestsWhatWasMeant ) {
   EXPECT_NE( std::string::npos, Rate::parse( "10 MBit/s" ).error.find( "did you mean \"10Mbps\"?" ) );
   EXPECT_NE( std::string::npos, Rate::parse( "1.5g" ).error.find( "did you mean \"1.5Gbps\"?" ) );
   EXPECT_EQ( std::string::npos, Rate::parse( "10 furlongs" ).error.find( "did you mean" ) );
}

TEST( Rate, isShownInTheLargestUnitOfWhichThereIsOne ) {
   EXPECT_EQ( "0bps", Rate().text() );
   EXPECT_EQ( "999bps", Rate::fromBps( 999 ).text() );
   EXPECT_EQ( "1kbps", Rate::fromBps( 1'000 ).text() );
   EXPECT_EQ( "1.5Mbps", Rate::fromBps( 1'500'000 ).text() );
   EXPECT_EQ( "1.000001Gbps", Rate::fromBps( 1'000'001'000 ).text() );
   EXPECT_EQ( "1000000Gbps", Rate::max().text() );
}

TEST( Rate, isInKilobitsPerSecondForTheProfile ) { EXPECT_EQ( 1.5, Rate::fromBps( 1'500 ).kbps() ); }

RC_GTEST_PROP( Rate, isReadBackFromItsText, () ) {
   const Rate rate = Rate::fromBps( *rc::gen::inRange< std::uint64_t >( 0, Rate::max().bps() + 1 ) );
   RC_ASSERT( Rate::parse( rate.text() ).value == rate );
}

} // namespace
