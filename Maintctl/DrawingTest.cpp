#include "Maintctl/Drawing.h"

#include "Maintctl/Width.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace Maintctl {

namespace {

/// A curve that falls by half with each point and ends at the rate.
std::vector< RatePoint > falling( double to, std::size_t points ) {
   std::vector< RatePoint > result;
   double rate = to;
   for ( std::size_t i = 0; i < points; ++i, rate *= 2 )
      result.push_back( { rate, rate / 3 } );
   std::reverse( result.begin(), result.end() );
   return result;
}

IntfPicture
intfOf( const char * name, double bps, Urgency urgency, std::optional< double > eta, const char * text ) {
   IntfPicture intf;
   intf.name = name;
   intf.rates = { bps, bps / 3 };
   intf.thresholdBps = 100e3;
   intf.etaSeconds = eta;
   intf.text = text;
   intf.urgency = urgency;
   intf.curve = falling( bps, 12 );
   return intf;
}

UnitPicture unitOf( const char * name, const char * state, unsigned drained, unsigned total ) {
   UnitPicture unit;
   unit.name = name;
   unit.state = state;
   unit.drained = drained;
   unit.total = total;
   unit.moving = unit.state == "entering" || unit.state == "exiting";
   return unit;
}

/// A unit that drains, one under maintenance with traffic that is back, and one that is normal.
Picture picture() {
   Picture picture;
   picture.title = "3 units";
   picture.clock = 1700000000.5;
   UnitPicture draining = unitOf( "spine-a", "entering", 5, 7 );
   draining.stage = "drainwatch";
   draining.sentence = "5 of 7 drained; et3 812 kbit/s, about 40 s; bond0 stalled at 310 kbit/s since 14:02; "
                       "forced shutdown of bond0 in 3m10s";
   draining.who = "uid 0: replace the fan";
   draining.forSeconds = 72;
   draining.urgency = Urgency::stuck;
   draining.interfaces = {
      intfOf( "bond0", 310e3, Urgency::stuck, {}, "stalled at 310 kbit/s since 14:02" ),
      intfOf( "et3", 812e3, Urgency::busy, 40.2, "812 kbit/s, about 40 s" ) };
   UnitPicture spiking = unitOf( "leaf-b", "maintenance", 4, 4 );
   spiking.sentence = "traffic is back on et9";
   spiking.urgency = Urgency::back;
   spiking.forSeconds = 4000;
   spiking.interfaces = { intfOf( "et9", 50e6, Urgency::back, {}, "spike of 50.0 Mbit/s" ) };
   UnitPicture normal = unitOf( "spine-c", "normal", 0, 0 );
   normal.sentence = "normal";
   picture.units = { draining, spiking, normal };
   return picture;
}

std::string textOf( const Lines & lines ) {
   std::string result;
   for ( const Line & line : lines )
      result += line.text() + "\n";
   return result;
}

std::string drawn( const Picture & picture, std::size_t columns, std::size_t rows, bool utf8 = true ) {
   return "\n" + textOf( draw( picture, { columns, rows }, utf8 ) );
}

TEST( Drawing, showsUnitsWithTheirSlowestInterfaces ) {
   EXPECT_EQ( drawn( picture(), 100, 24 ), R"(
3 units                                                                                 22:13:20 UTC

spine-a  entering     █████████████████▏░░░░░░  5/7  stage drainwatch  1m12s  uid 0: replace the fan
  5 of 7 drained; et3 812 kbit/s, about 40 s; bond0 stalled at 310 kbit/s since 14:02; forced
  shutdown of bond0 in 3m10s
  bond0   310 kbps > 100 kbps        -            ██▇▇▆▆▆▅▅▄▄▄  stalled at 310 kbit/s since 14:02
  et3     812 kbps > 100 kbps      41s            ██▇▇▇▆▆▆▅▅▄▄  812 kbit/s, about 40 s
leaf-b   maintenance  ████████████████████████  4/4  1h06m
  traffic is back on et9
  et9    50.0 Mbps > 100 kbps        -            ██▇▇▇▇▆▆▆▆▅▅  spike of 50.0 Mbit/s
spine-c  normal       ░░░░░░░░░░░░░░░░░░░░░░░░  0/0

Curves: 5s a column, the newest right; logarithmic, ▁▂ below the threshold.
)" );
}

TEST( Drawing, isTheSameInAscii ) {
   EXPECT_EQ( drawn( picture(), 80, 24, false ), R"(
3 units                                                             22:13:20 UTC

spine-a  entering     [############.....]  5/7  stage drainwatch  1m12s  uid 0:~
  5 of 7 drained; et3 812 kbit/s, about 40 s; bond0 stalled at 310 kbit/s since
  14:02; forced shutdown of bond0 in 3m10s
  bond0   310 kbps > 100 kbps        -  @@##***++===  stalled at 310 kbit/s
  et3     812 kbps > 100 kbps      41s  @@###***++==  812 kbit/s, about 40 s
leaf-b   maintenance  [#################]  4/4  1h06m
  traffic is back on et9
  et9    50.0 Mbps > 100 kbps        -  @@####****++  spike of 50.0 Mbit/s
spine-c  normal       [.................]  0/0

Curves: 5s a column, the newest right; logarithmic, _. below the threshold.
)" );
}

TEST( Drawing, fitsANarrowTerminal ) {
   EXPECT_EQ( drawn( picture(), 40, 24 ), R"(
3 units                     22:13:20 UTC

spine-a  entering     ███▌░  5/7  stage…
  5 of 7 drained; et3 812 kbit/s, about
  40 s; bond0 stalled at 310 kbit/s sin…
  bond0   310 kbps  stalled
  et3     812 kbps  about 40 s
leaf-b   maintenance  █████  4/4  1h06m
  traffic is back on et9
  et9    50.0 Mbps  spike of 50.0 Mbit/s
spine-c  normal       ░░░░░  0/0
)" );
}

TEST( Drawing, leavesOutTheLeastPressingOnAShortTerminal ) {
   EXPECT_EQ( drawn( picture(), 80, 7 ), R"(
3 units                                                             22:13:20 UTC

spine-a  entering     ████████████▏░░░░  5/7  (2 more)  stage drainwatch  1m12s…
  5 of 7 drained; et3 812 kbit/s, about 40 s; bond0 stalled at 310 kbit/s since…
leaf-b   maintenance  █████████████████  4/4  (1 more)  1h06m
  traffic is back on et9
and 1 more unit, normal
)" );
   EXPECT_EQ( drawn( picture(), 80, 5 ), R"(
3 units                                                             22:13:20 UTC

spine-a  entering     ████████████▏░░░░  5/7  (2 more)  stage drainwatch  1m12s…
leaf-b   maintenance  █████████████████  4/4  (1 more)  1h06m
and 1 more unit, normal
)" );
   EXPECT_EQ( drawn( picture(), 80, 4 ), R"(
3 units                                                             22:13:20 UTC

leaf-b   maintenance  █████████████████  4/4  (1 more)  1h06m
and 2 more units
)" );
}

TEST( Drawing, saysWhyInWholeWordsHoweverLittleRoomThereIs ) {
   const std::pair< const char *, const char * > texts[] = {
      { "812 kbit/s, about 40 s", "812 kbit/s, about 40 s" },
      { "stalled at 310 kbit/s since 14:02", "stalled at 310 kbit/s" },
      { "oscillating about 100 kbit/s since 14:02, now 40 kbit/s", "oscillating" },
      { "312 kbit/s, rising, threshold 100 kbit/s", "rising" },
      { "1.25 Gbit/s, traffic is back since 2026-11-21 14:02", "traffic is back" },
      { "5 of 10 s quiet", "5 of 10 s quiet" },
      { "drained since 14:02, not watched since 14:05", "drained, not watched" },
      { "no fresh counters since 14:02", "no fresh counters" } };
   Picture picture;
   for ( const auto & [text, shown] : texts ) {
      IntfPicture & intf = picture.interfaces.emplace_back();
      intf.name = "Ethernet-1-1-1-" + std::to_string( picture.interfaces.size() );
      intf.thresholdBps = 1e5;
      intf.text = text;
   }
   const std::string all = drawn( picture, 74, 24 );
   for ( const auto & [text, shown] : texts )
      EXPECT_NE( std::string::npos, all.find( std::string( "  " ) + shown + "\n" ) ) << shown << all;
   // The last line says how many more there are.
   const std::string less = drawn( picture, 74, 5 );
   EXPECT_NE( std::string::npos, less.find( "  rising  (4 more)\n" ) ) << less;
}

TEST( Drawing, saysHowManyInterfacesThereAreMore ) {
   Picture many = picture();
   many.title.clear();
   many.units.resize( 1 );
   for ( int i = 12; i > 0; --i )
      many.units[0].interfaces.push_back(
         intfOf( ( "et" + std::to_string( i ) ).c_str(), 1e6, Urgency::busy, 30 + i, "busy" ) );
   EXPECT_EQ( drawn( many, 80, 8 ), R"(
spine-a  entering     ████████████▏░░░░  5/7  stage drainwatch  1m12s  uid 0: r…
  5 of 7 drained; et3 812 kbit/s, about 40 s; bond0 stalled at 310 kbit/s since
  14:02; forced shutdown of bond0 in 3m10s
  bond0   310 kbps > 100 kbps        -  ██▇▇▆▆▆▅▅▄▄▄  stalled at 310 kbit/s
  et3     812 kbps > 100 kbps      41s  ██▇▇▇▆▆▆▅▅▄▄  812 kbit/s, about 40 s
  et10   1.00 Mbps > 100 kbps      40s  ██▇▇▇▆▆▆▅▅▅▄  busy
  et11   1.00 Mbps > 100 kbps      41s  ██▇▇▇▆▆▆▅▅▅▄  busy
  et12   1.00 Mbps > 100 kbps      42s  ██▇▇▇▆▆▆▅▅▅▄  busy  (9 more)
)" );
}

TEST( Drawing, saysSinceWhenItIsStale ) {
   Picture stale = picture();
   stale.stale = "the agent cannot be reached: Connection refused";
   const Lines lines = draw( stale, { 100, 24 }, true );
   EXPECT_EQ( lines[0].text(), "stale since 22:13:20 UTC: the agent cannot be reached: Connection refused" );
   for ( std::size_t i = 1; i < lines.size(); ++i )
      for ( const Span & span : lines[i].spans() )
         EXPECT_EQ( span.tone, Tone::faint ) << span.text;
   // The rest stands where it stood.
   Lines fresh = draw( picture(), { 100, 24 }, true );
   ASSERT_EQ( fresh.size(), lines.size() );
   for ( std::size_t i = 1; i < lines.size(); ++i )
      EXPECT_EQ( lines[i].text(), fresh[i].text() );
}

TEST( Drawing, saysWhenAUnitIsExpectedToBeReady ) {
   Picture expected = picture();
   expected.units[0].etaSeconds = 50.2;
   const std::string shown = drawn( expected, 80, 24, false );
   EXPECT_NE( shown.find( "  5/7, about 51s left  stage " ), std::string::npos ) << shown;
}

TEST( Drawing, showsInterfacesUnderAHeading ) {
   Picture interfaces;
   interfaces.title = "3 interfaces";
   interfaces.clock = 1700000000;
   IntfPicture idle = intfOf( "et10", 5e6, Urgency::none, {}, "not monitored" );
   idle.thresholdBps.reset();
   IntfPicture unknown = intfOf( "et2", 0, Urgency::quiet, 4, "quiet 6 of 10 s" );
   unknown.rates = {};
   unknown.curve = { { 5e3, 0 }, {}, {}, { 20e3, 0 } };
   interfaces.interfaces = { intfOf( "et1", 300, Urgency::quiet, 4, "quiet 6 of 10 s" ), unknown, idle };
   EXPECT_EQ( drawn( interfaces, 80, 12 ), R"(
3 interfaces                                                        22:13:20 UTC

NAME       RATE THRESHOLD       ETA         CURVE  WHY
et1     300 bps < 100 kbps       4s  ▇▅▄▂▂▂▁▁▁▁▁▁  quiet 6 of 10 s
et2           -   100 kbps       4s          ▁  ▂  quiet 6 of 10 s
et10  5.00 Mbps                   -  █▇▇▆▅▅▄▄▃▂▂▁  not monitored

Curves: 5s a column, the newest right; logarithmic, ▁▂ below the threshold.
)" );
   EXPECT_EQ( drawn( interfaces, 80, 2 ), R"(
et1     300 bps < 100 kbps       4s  ▇▅▄▂▂▂▁▁▁▁▁▁  quiet 6 of 10 s
et2           -   100 kbps       4s          ▁  ▂  quiet 6 of 10 s  (1 more)
)" );
}

TEST( Drawing, showsOneInterfaceWithLargeCurves ) {
   Picture one;
   one.title = "Interface et3";
   one.clock = 1700000000;
   one.facts = { { "State", "enter-maint" }, { "Why", "812 kbit/s, about 40 s" } };
   one.interfaces = { intfOf( "et3", 812e3, Urgency::busy, 40, "812 kbit/s, about 40 s" ) };
   EXPECT_EQ( drawn( one, 40, 14 ), R"(
Interface et3               22:13:20 UTC

State:  enter-maint
Why:    812 kbit/s, about 40 s
           in  812 kbps
 1.66 Gbps │                █▆▄▂▁
           │                █████▇▅▃▁
           │                █████████▇▆▄
  100 kbps │┄┄┄┄┄┄┄┄┄┄┄┄┄┄┄┄████████████
           out  271 kbps
  554 Mbps │                █▆▄▂
           │                █████▆▄▂
           │                █████████▆▄▂
  100 kbps │┄┄┄┄┄┄┄┄┄┄┄┄┄┄┄┄████████████
)" );
   EXPECT_EQ( drawn( one, 40, 14, false ), R"(
Interface et3               22:13:20 UTC

State:  enter-maint
Why:    812 kbit/s, about 40 s
           in  812 kbps
 1.66 Gbps |                #::..
           |                ######:..
           |                ##########::
  100 kbps |----------------############
           out  271 kbps
  554 Mbps |                #::.
           |                #####::.
           |                #########::.
  100 kbps |----------------############
)" );
   EXPECT_EQ( drawn( one, 40, 6 ), R"(
Interface et3               22:13:20 UTC

State:  enter-maint
Why:    812 kbit/s, about 40 s
in   812 kbps               ██▇▇▇▆▆▆▅▅▄▄
out  271 kbps               ██▇▇▆▆▆▅▅▄▄▄
)" );
}

TEST( Drawing, saysOfWhichUnitsNoInterfaceIsShown ) {
   Picture full = picture();
   full.units[0].interfaces.resize( 1 );
   // Rows for both interfaces, and for one of them.
   const auto shown = []( const Lines & lines, std::size_t row ) { return lines.at( row ).text(); };
   const Lines some = draw( full, { 100, 10 }, true );
   EXPECT_EQ( textOf( some ).find( " more)" ), std::string::npos ) << textOf( some );
   const Lines one = draw( full, { 100, 9 }, true );
   EXPECT_TRUE( shown( one, 2 ).starts_with( "spine-a" ) ) << textOf( one );
   EXPECT_NE( shown( one, 2 ).find( "  5/7  (1 more)  stage" ), std::string::npos ) << textOf( one );
   EXPECT_EQ( shown( one, 5 ).find( " more)" ), std::string::npos ) << textOf( one );
   EXPECT_TRUE( shown( one, 7 ).starts_with( "  et9" ) ) << textOf( one );
   // Not even heads for all.
   const Lines none = draw( full, { 100, 4 }, true );
   EXPECT_NE( textOf( none ).find( "  4/4  (1 more)" ), std::string::npos ) << textOf( none );
}

TEST( Drawing, makesRoomByUnitsThatAreNormal ) {
   Picture many = picture();
   for ( int i = 0; i < 20; ++i )
      many.units.push_back( unitOf( ( "leaf-" + std::to_string( i ) ).c_str(), "normal", 0, 0 ) );
   const Lines lines = draw( many, { 100, 12 }, true );
   EXPECT_EQ( textOf( lines ).find( "leaf-1" ), std::string::npos ) << textOf( lines );
   EXPECT_NE( textOf( lines ).find( "\n  et9" ), std::string::npos ) << textOf( lines );
   EXPECT_EQ( lines.back().text(), "and 21 more units, normal" );
}

TEST( Drawing, explainsCurvesOnlyIfThereAreAny ) {
   EXPECT_NE( textOf( draw( picture(), { 100, 14 }, true ) ).find( "Curves: " ), std::string::npos );
   // The rows of the explanation are needed for the interfaces.
   const std::string few = textOf( draw( picture(), { 100, 10 }, true ) );
   EXPECT_EQ( few.find( "Curves: " ), std::string::npos ) << few;
   EXPECT_NE( few.find( "\n  et9" ), std::string::npos ) << few;
}

TEST( Drawing, saysThatThereIsNothing ) {
   Picture empty;
   empty.title = "0 units";
   EXPECT_EQ( drawn( empty, 40, 6 ), "\n0 units\n\nThere is nothing to show.\n" );
}

TEST( Drawing, makesTextOfOthersHarmless ) {
   Picture evil = picture();
   evil.units.resize( 1 );
   UnitPicture & unit = evil.units[0];
   unit.name = unit.stage = unit.sentence = unit.who = unit.state = "a\033]0;x\a\r\n\x7F\xE2\x80\xAE";
   unit.interfaces[0].name = unit.interfaces[0].text = "\033[2J";
   evil.title = evil.stale = "\033[H";
   for ( const bool utf8 : { true, false } )
      for ( const Line & line : draw( evil, { 120, 24 }, utf8 ) ) {
         const std::string text = line.text();
         SCOPED_TRACE( text );
         for ( std::size_t at = 0; at < text.size(); ) {
            const auto character = firstCharacter( std::string_view( text ).substr( at ) );
            ASSERT_GT( character.length, 0 ) << "no UTF-8";
            EXPECT_FALSE( isControl( character.code ) ) << std::hex << unsigned( character.code );
            // What turns the order of letters around would tell something else.
            EXPECT_FALSE( character.code >= 0x202A && character.code <= 0x202E );
            at += character.length;
         }
      }
}

TEST( Drawing, alignsWideNames ) {
   Picture wide = picture();
   wide.units[0].name = "\xE4\xB8\xAD\xE6\x96\x87"; // two characters, four columns
   wide.units[0].interfaces[0].name = "\xE4\xB8\xAD";
   const Lines lines = draw( wide, { 100, 24 }, true );
   EXPECT_TRUE( lines[2].text().starts_with( "\xE4\xB8\xAD\xE6\x96\x87     entering" ) ) << lines[2].text();
   EXPECT_TRUE( lines[5].text().starts_with( "  \xE4\xB8\xAD     310 kbps" ) ) << lines[5].text();
}

TEST( Drawing, neverExceedsTheTerminalHoweverSmall ) {
   Picture pictures[] = { picture(), picture(), picture(), picture() };
   pictures[1].stale = "the agent cannot be reached";
   pictures[2].interfaces = picture().units[0].interfaces;
   pictures[2].units.clear();
   pictures[3].interfaces = picture().units[0].interfaces;
   pictures[3].units.clear();
   pictures[3].facts = { { "State", "enter-maint" }, { "Why", "because" } };
   for ( const Picture & any : pictures )
      for ( const bool utf8 : { true, false } )
         for ( const std::size_t columns :
               { 0, 1, 2, 3, 7, 11, 12, 13, 20, 39, 40, 47, 48, 50, 61, 80, 120 } )
            for ( const std::size_t rows : { 0, 1, 2, 3, 4, 5, 7, 8, 9, 13, 24 } ) {
               const Lines lines = draw( any, { columns, rows }, utf8 );
               ASSERT_LE( lines.size(), rows ) << columns << "x" << rows;
               for ( const Line & line : lines )
                  ASSERT_LE( line.columns(), columns ) << columns << "x" << rows << ": " << line.text();
            }
}

TEST( Drawing, fillsTheBarOnlyWhenAllHaveDrained ) {
   Picture bar;
   for ( const auto & [drained, total] : { std::pair{ 0U, 3U }, { 1U, 3U }, { 999U, 1000U }, { 3U, 3U } } )
      bar.units.push_back( unitOf( "a", "entering", drained, total ) );
   bar.units.push_back( unitOf( "a", "maintenance", 0, 0 ) ); // nothing to be monitored
   EXPECT_EQ( drawn( bar, 60, 24 ), R"(
a  entering     ░░░░░░░░░░░       0/3
a  entering     ███▋░░░░░░░       1/3
a  entering     ██████████▉  999/1000
a  entering     ███████████       3/3
a  maintenance  ███████████       0/0
)" );
   EXPECT_EQ( drawn( bar, 60, 24, false ), R"(
a  entering     [..........]       0/3
a  entering     [###.......]       1/3
a  entering     [#########.]  999/1000
a  entering     [##########]       3/3
a  maintenance  [##########]       0/0
)" );
}

} // namespace
} // namespace Maintctl
