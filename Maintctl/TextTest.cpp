#include "Maintctl/Text.h"

#include "Maintctl/Table.h"

#include <gtest/gtest.h>

#include <cmath>

namespace Maintctl {

namespace {

TEST( Text, showsRatesWithThreeDigitsAndTheLargestUnit ) {
   const struct {
      double bps;
      const char * text;
   } rows[] = { { 0, "0 bps" },           { 0.4, "0 bps" },         { -0.4, "0 bps" },
                { 1, "1 bps" },           { 999, "999 bps" },       { 999.9, "1.00 kbps" },
                { 1000, "1.00 kbps" },    { 1254, "1.25 kbps" },    { 12345, "12.3 kbps" },
                { 99960, "100 kbps" },    { 123456, "123 kbps" },   { 999600, "1.00 Mbps" },
                { 400e6, "400 Mbps" },    { 9.996e6, "10.0 Mbps" }, { 2.5e9, "2.50 Gbps" },
                { 1e15, "1000000 Gbps" }, { -2000, "-2.00 kbps" } };
   for ( const auto & row : rows )
      EXPECT_EQ( rateText( row.bps ), row.text ) << row.bps;
   EXPECT_EQ( rateText( std::nullopt ), "-" );
   EXPECT_EQ( rateText( NAN ), "-" );
   EXPECT_EQ( rateText( HUGE_VAL ), "-" );
}

TEST( Text, showsSpansInTwoUnits ) {
   EXPECT_EQ( spanText( -1 ), "0s" );
   EXPECT_EQ( spanText( 59.9 ), "59s" );
   EXPECT_EQ( spanText( 125 ), "2m05s" );
   EXPECT_EQ( spanText( 3600 ), "1h00m" );
   EXPECT_EQ( spanText( 86400 * 4 + 7300 ), "4d02h" );
   EXPECT_EQ( spanText( NAN ), "0s" );
}

TEST( Text, showsAgesIfItKnowsTheTimeAndTimesIfNot ) {
   EXPECT_EQ( ageText( 1700000000, 1700000042 ), "42s" );
   EXPECT_EQ( ageText( 1700000000, std::nullopt ), "2023-11-14T22:13:20.000Z" );
   EXPECT_EQ( ageText( std::nullopt, 1700000042 ), "-" );
   EXPECT_EQ( aheadText( 1700000010, 1700000000.5 ), "in 10s" );
   EXPECT_EQ( aheadText( 1700000000, 1700000000 ), "now" );
   EXPECT_EQ( aheadText( 1700000000, std::nullopt ), "at 2023-11-14T22:13:20.000Z" );
   EXPECT_EQ( aheadText( std::nullopt, std::nullopt ), "-" );
}

TEST( Text, makesVisibleWhatCouldFoolATerminal ) {
   EXPECT_EQ( printable( "et1 \xC3\xA4\xE2\x82\xAC" ), "et1 \xC3\xA4\xE2\x82\xAC" );
   EXPECT_EQ( printable( "a\033[2Jb\n\x7F" ), "a\\x1B[2Jb\\x0A\\x7F" );
   EXPECT_EQ(
      printable( "\xC2\x9B"
                 "1m" ),
      "\\xC2\\x9B"
      "1m" );
   EXPECT_EQ( printable( "a\xFF\xC3" ), "a\\xFF\\xC3" );
}

TEST( Text, countsAndCutsCharacters ) {
   EXPECT_EQ( columns( "a\xC3\xA4\xE2\x82\xAC" ), 3 );
   EXPECT_EQ(
      cut(
         "a\xC3\xA4"
         "b",
         2 ),
      "a\xC3\xA4" );
   EXPECT_EQ( cut( "ab", 5 ), "ab" );
   EXPECT_EQ( cut( "ab", 0 ), "" );
}

TEST( Text, countsThings ) {
   EXPECT_EQ( countText( 0, "error" ), "0 errors" );
   EXPECT_EQ( countText( 1, "error" ), "1 error" );
   EXPECT_EQ( countText( 2, "error" ), "2 errors" );
}

TEST( Table, alignsItsColumns ) {
   Table table( { { "NAME" }, { "RATE", Table::Align::right }, { "WHY" } } );
   table.row( { "a", "1.00 kbps", "" } );
   table.row( { "l\xC3\xA4nger", "-", "x\ty" } );
   EXPECT_EQ(
      table.text(), "NAME         RATE  WHY\n"
                    "a       1.00 kbps  -\n"
                    "l\xC3\xA4nger          -  x\\x09y\n" );
   EXPECT_EQ( table.text( 2 ).substr( 0, 8 ), "  NAME  " );
}

TEST( Table, goesOnBelowWhereALineHasNoRoomForAllColumns ) {
   Table table(
      { { "NAME" }, { "RATE", Table::Align::right }, { "SAMPLES", Table::Align::right }, { "WHY" } } );
   table.row( { "et1", "1.00 kbps", "7", "quiet" } );
   table.row( { "bond0", "-", "12345", "stalled at 310 kbit/s since 14:02; nobody knows why" } );
   EXPECT_EQ( "\n" + table.text( 0, 60 ), R"(
NAME        RATE  SAMPLES  WHY
et1    1.00 kbps        7  quiet
bond0          -    12345  stalled at 310 kbit/s since
                           14:02; nobody knows why
)" ) << "the last column is broken between words";
   EXPECT_EQ( "\n" + table.text( 1, 40 ), R"(
 NAME        RATE  SAMPLES
     WHY
 et1    1.00 kbps        7
     quiet
 bond0          -    12345
     stalled at 310 kbit/s since 14:02;
     nobody knows why
)" ) << "all rows at the same column";
   EXPECT_EQ( "\n" + table.text( 0, 10 ), R"(
NAME
         RATE
    SAMPLES
    WHY
et1
    1.00 kbps
          7
    quiet
bond0
            -
      12345
    stalle
    d at
    310
    kbit/s
    since
    14:02;
    nobody
    knows
    why
)" ) << "nothing is lost, however narrow it is";
   EXPECT_EQ( table.text( 0, 82 ), table.text() );
}

TEST( Table, breaksNoWordOfItsLastColumnWhileThereIsRoomForItBelow ) {
   Table table( { { "INTERFACE" }, { "TRAFFIC" } } );
   table.row( { "et1", std::string( 30, '#' ) } );
   EXPECT_EQ( table.text( 0, 40 ), "INTERFACE\n    TRAFFIC\net1\n    " + std::string( 30, '#' ) + "\n" );
}

TEST( Sheet, breaksLongValuesBetweenWordsAndKeepsThemAligned ) {
   Sheet sheet;
   sheet.line( "Unit", "a" );
   sheet.line( "Now", "2 of 7 drained; et2 9.72 Mbit/s, about 2 min" );
   EXPECT_EQ( sheet.text( 40 ), "Unit:  a\nNow:   2 of 7 drained; et2 9.72 Mbit/s,\n       about 2 min\n" );
   EXPECT_EQ( sheet.text( 26 ), "Unit:  a\nNow:   2 of 7 drained;\n    et2 9.72 Mbit/s, about\n    2 min\n" )
      << "there is no room for words beside the name";
}

TEST( Sheet, alignsItsValues ) {
   Sheet sheet;
   sheet.line( "Unit", "a" );
   sheet.line( "Total rate", "" );
   EXPECT_EQ( sheet.text(), "Unit:        a\nTotal rate:  -\n" );
}

} // namespace
} // namespace Maintctl
