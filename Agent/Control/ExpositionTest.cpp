#include "Agent/Control/Exposition.h"

#include <gtest/gtest.h>

#include <limits>

namespace Agent {

namespace {

using Type = Exposition::Type;

std::string number( double value ) {
   Exposition exposition;
   exposition.metric( "m", Type::gauge, "h" );
   exposition.sample( value );
   return std::move( exposition ).text().substr( std::string( "# HELP m h\n# TYPE m gauge\n" ).size() );
}

std::string label( std::string_view value ) {
   Exposition exposition;
   exposition.metric( "m", Type::gauge, "h" );
   exposition.sample( 1, { { "l", value } } );
   const std::string text = std::move( exposition ).text();
   const auto begin = text.find( '{' );
   return text.substr( begin, text.rfind( '}' ) + 1 - begin );
}

TEST( Exposition, tellsHelpAndTypeOnceBeforeTheSamplesOfAMetric ) {
   Exposition exposition;
   exposition.metric( "maint_a", Type::gauge, "What it is." );
   exposition.sample( 1, { { "unit", "u1" }, { "state", "normal" } } );
   exposition.sample( 0, { { "unit", "u2" }, { "state", "normal" } } );
   exposition.metric( "maint_b_total", Type::counter, "Another." );
   exposition.sample( 7 );
   EXPECT_EQ(
      "# HELP maint_a What it is.\n"
      "# TYPE maint_a gauge\n"
      "maint_a{unit=\"u1\",state=\"normal\"} 1\n"
      "maint_a{unit=\"u2\",state=\"normal\"} 0\n"
      "# HELP maint_b_total Another.\n"
      "# TYPE maint_b_total counter\n"
      "maint_b_total 7\n",
      std::move( exposition ).text() );
}

TEST( Exposition, tellsOfAMetricAlsoWhileItHasNoSamples ) {
   Exposition exposition;
   exposition.metric( "maint_a", Type::gauge, "What it is." );
   EXPECT_EQ( "# HELP maint_a What it is.\n# TYPE maint_a gauge\n", std::move( exposition ).text() );
}

TEST( Exposition, writesEachNumberExactly ) {
   EXPECT_EQ( "m 0\n", number( 0 ) );
   EXPECT_EQ( "m 0.1\n", number( 0.1 ) );
   EXPECT_EQ( "m -2.5\n", number( -2.5 ) );
   EXPECT_EQ( "m 1.7e+09\n", number( 1.7e9 ) );
   EXPECT_EQ( "m 1700000000.125\n", number( 1700000000.125 ) );
   EXPECT_EQ( "m 9007199254740991\n", number( 9007199254740991.0 ) );
   EXPECT_EQ( "m NaN\n", number( std::numeric_limits< double >::quiet_NaN() ) );
   EXPECT_EQ( "m +Inf\n", number( std::numeric_limits< double >::infinity() ) );
   EXPECT_EQ( "m -Inf\n", number( -std::numeric_limits< double >::infinity() ) );
}

TEST( Exposition, escapesWhatWouldEndTheValueOfALabel ) {
   EXPECT_EQ( R"({l=""})", label( "" ) );
   EXPECT_EQ( R"({l="a b{}=,"})", label( "a b{}=," ) );
   EXPECT_EQ( R"({l="\"\\\n"})", label( "\"\\\n" ) );
   EXPECT_EQ( "{l=\"\xc3\xa4\"}", label( "\xc3\xa4" ) );
}

TEST( Exposition, showsBytesThatAreNoCharacter ) {
   EXPECT_EQ(
      R"({l="a\\xff\\x80b"})", label( "a\xff\x80"
                                      "b" ) );
   EXPECT_EQ( R"({l="\\xc3"})", label( "\xc3" ) );
}

} // namespace

} // namespace Agent
