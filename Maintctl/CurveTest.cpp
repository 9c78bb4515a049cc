#include "Maintctl/Curve.h"

#include <gtest/gtest.h>

#include <cmath>

namespace Maintctl {

namespace {

using Points = std::vector< std::optional< double > >;

Points busiestOf( const Curve & curve, std::size_t count = 99 ) {
   Points result;
   for ( const RatePoint & point : curve.last( count ) )
      result.push_back( point.busiest() );
   return result;
}

TEST( Curve, hasAPointForEachStepAsItWasSeenLast ) {
   Curve curve( 5 );
   curve.see( 100, { 1, 2 } );
   curve.see( 104.9, { 7, 3 } );
   curve.see( 105, { 4, 5 } );
   EXPECT_EQ( busiestOf( curve ), ( Points{ 7, 5 } ) );
   EXPECT_EQ( busiestOf( curve, 1 ), Points{ 5 } );
}

TEST( Curve, hasNoPointsWhereNobodyLooked ) {
   Curve curve( 5 );
   curve.see( 100, { 1, 1 } );
   curve.see( 116, { 2, 2 } );
   EXPECT_EQ( busiestOf( curve ), ( Points{ 1, {}, {}, 2 } ) );
}

TEST( Curve, hasNoPointWhereNobodyKnows ) {
   Curve curve( 5 );
   curve.see( 100, {} );
   curve.see( 105, { NAN, 3 } );
   curve.see( 110, { INFINITY, NAN } );
   curve.see( 115, { -5, 0 } );
   EXPECT_EQ( busiestOf( curve ), ( Points{ {}, 3, {}, 0 } ) );
}

TEST( Curve, beginsAnewWhenTheClockIsSet ) {
   Curve curve( 5 );
   curve.see( 1000, { 1, 1 } );
   curve.see( 996, { 2, 2 } ); // a little: the same point
   EXPECT_EQ( busiestOf( curve ), Points{ 2 } );
   curve.see( 100, { 3, 3 } );
   EXPECT_EQ( busiestOf( curve ), Points{ 3 } );
   curve.see( 1e12, { 4, 4 } );
   EXPECT_EQ( busiestOf( curve ), Points{ 4 } );
}

TEST( Curve, keepsOnlySoMany ) {
   Curve curve( 1 );
   for ( std::size_t i = 0; i < Curve::mostPoints + 50; ++i )
      curve.see( double( i ), { double( i ), 0 } );
   EXPECT_EQ( busiestOf( curve, 9999 ).size(), Curve::mostPoints );
   EXPECT_EQ( busiestOf( curve, 1 ), Points{ double( Curve::mostPoints + 49 ) } );
}

TEST( CurveText, showsWhereTheThresholdIs ) {
   const Points points{ {}, 0, 9e3, 10e3, 99e3, 100e3, 300e3, 1e6 };
   EXPECT_EQ( curveText( points, 100e3, true ), " ▁▁▂▂▃▅█" );
   EXPECT_EQ( curveText( points, 100e3, false ), " __..-+@" );
}

TEST( CurveText, reachesToTheLargestPoint ) {
   EXPECT_EQ( curveText( { 1e5, 1e6, 1e7, 1e8, 1e9, 1e10 }, 1e5, true ), "▃▄▅▆▇█" );
}

TEST( CurveText, liesBetweenItsPointsWithoutAThreshold ) {
   EXPECT_EQ( curveText( { 0, 1e3, 1e6, 1e9 }, {}, true ), "▁▁▅█" );
   EXPECT_EQ( curveText( { 0, 0 }, {}, true ), "▁▁" );
   EXPECT_EQ( curveText( { 5e3, 5e3 }, {}, true ), "██" );
   EXPECT_EQ( curveText( {}, {}, true ), "" );
}

TEST( Chart, hasTheThresholdAsALine ) {
   const Chart chart = chartOf( { {}, 1e3, 1e4, 1e5, 1e6 }, 1e4, 3, true );
   EXPECT_EQ( chart.rows, ( std::vector< std::string >{ "    █", "┄┄┄██", " ▁███" } ) ); // 1e3 to 1e6
   EXPECT_EQ( chart.thresholdRow, 1 );
   EXPECT_EQ( chart.top, 1e6 );
   EXPECT_EQ( chart.bottom, 1e3 );
}

TEST( Chart, isDrawnInAsciiToo ) {
   EXPECT_EQ(
      chartOf( { {}, 1e3, 1e6 }, 1e4, 2, false ).rows, ( std::vector< std::string >{ "  #", "-.#" } ) );
}

TEST( Chart, ofNothingHasOnlyItsScale ) {
   const Chart chart = chartOf( { {}, {} }, {}, 2, true );
   EXPECT_EQ( chart.rows, ( std::vector< std::string >{ "  ", "  " } ) );
   EXPECT_FALSE( chart.thresholdRow );
   EXPECT_GT( chart.top, chart.bottom );
}

} // namespace
} // namespace Maintctl
