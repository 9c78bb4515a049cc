#include "Tests/Agent/AgentRig.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cmath>

/// What the agent says of why it waits, with the plug-in's own records. The clock begins at 22:13:20.
namespace {

using nlohmann::json;
using Tests::AgentRig;

const char * const configuration = "settle: 10s\n"
                                   "profiles:\n"
                                   "  watch: {threshold: 100kbps, load-interval: 10s}\n"
                                   "  long: {threshold: 100kbps, load-interval: 1m}\n"
                                   "  fast: {threshold: 100kbps, load-interval: 10s, shutdown: true,"
                                   " shutdown-max-delay: 5m}\n"
                                   "default-profile: watch\n"
                                   "groups:\n"
                                   "  uplinks: {interfaces: [et1, et2]}\n"
                                   "  slow: {interfaces: [et3], profile: long}\n"
                                   "  shutting: {interfaces: [et5], profile: fast}\n"
                                   "units:\n"
                                   "  u1: {groups: [uplinks]}\n"
                                   "  u2: {groups: [slow]}\n"
                                   "  u3: {groups: [shutting]}\n"
                                   "  u4: {groups: [uplinks, slow, shutting]}\n";

class InsightStory : public testing::Test {
 protected:
   InsightStory() { rig.start(); }

   void enter( const std::string & unit ) { EXPECT_EQ( 202, rig.post( "units/" + unit + "/enter" ) ); }
   json reason( const std::string & intf ) {
      return json::parse( rig.get( "interfaces/" + intf ) ).at( "reason" );
   }
   /// Empty: there is none.
   std::string code( const std::string & intf ) {
      const json why = reason( intf );
      return why.is_null() ? "" : why.at( "code" ).get< std::string >();
   }
   json unit( const std::string & name ) { return json::parse( rig.get( "units/" + name ) ); }
   std::string sentence( const std::string & name ) { return unit( name ).at( "sentence" ); }
   /// Traffic that halves every ten seconds, in steps of half a second, for 200 seconds from `from` on.
   void decays( const std::string & port, double bps, double from ) {
      for ( double t = 0; t < 200; t += 0.5 )
         rig.at( from + t, [=, this] { rig.traffic( port, bps * std::exp2( -t / 10 ) ); } );
   }

   AgentRig rig{ configuration };
};

TEST_F( InsightStory, givesNoReasonWhereNothingIsMonitored ) {
   rig.runUntil( 10 );
   EXPECT_EQ( json(), reason( "et1" ) );
   EXPECT_EQ( "normal since 22:13", sentence( "u1" ) );
   EXPECT_EQ( json(), unit( "u1" ).at( "eta-seconds" ) );
}

TEST_F( InsightStory, expectsTheEndOfADecay ) {
   decays( "et1", 4e8, 1 );
   rig.runUntil( 1 );
   enter( "u1" );
   rig.runUntil( 31 );
   EXPECT_EQ( "above-threshold", code( "et1" ) );
   EXPECT_EQ( "falling", reason( "et1" ).at( "trend" ) );
   const double drained = 31 + reason( "et1" ).at( "eta-seconds" ).get< double >();
   const double there = 31 + unit( "u1" ).at( "eta-seconds" ).get< double >();
   EXPECT_NE( std::string::npos, sentence( "u1" ).find( "1 of 2 drained; et1 " ) ) << sentence( "u1" );
   EXPECT_NE( std::string::npos, sentence( "u1" ).find( ", about " ) ) << sentence( "u1" );
   while ( rig.fact( "interfaces/et1", "state" ) != "\"under-maint\"" )
      rig.runUntil( rig.time() + 1 );
   EXPECT_NEAR( rig.time() - 31, drained - 31, 0.2 * ( rig.time() - 31 ) );
   while ( rig.fact( "units/u1", "state" ) != "\"maintenance\"" )
      rig.runUntil( rig.time() + 1 );
   EXPECT_NEAR( rig.time() - 31, there - 31, 0.2 * ( rig.time() - 31 ) );
}

TEST_F( InsightStory, callsAConstantRateStalledAndTellsWhenItIsShut ) {
   rig.traffic( "et5", 310000 );
   enter( "u3" );
   rig.runUntil( 10 );
   EXPECT_EQ( "above-threshold", code( "et5" ) );
   rig.runUntil( 60 );
   EXPECT_EQ( "stalled", code( "et5" ) );
   EXPECT_EQ( json(), reason( "et5" ).at( "eta-seconds" ) );
   EXPECT_EQ( json(), unit( "u3" ).at( "eta-seconds" ) );
   rig.runUntil( 110 );
   EXPECT_EQ(
      "0 of 1 drained; et5 stalled at 310 kbit/s since 22:14; forced shutdown of et5 in 3m10s",
      sentence( "u3" ) );
   rig.runUntil( 305 );
   EXPECT_EQ( "shut", code( "et5" ) );
   EXPECT_EQ( "shut since 22:18", reason( "et5" ).at( "text" ) );
}

TEST_F( InsightStory, tellsHowLongItHasBeenQuiet ) {
   enter( "u2" );
   rig.runUntil( 31 );
   EXPECT_EQ( "timing", code( "et3" ) );
   EXPECT_EQ( 30, reason( "et3" ).at( "quiet-seconds" ) );
   EXPECT_EQ( "0 of 1 drained; et3 30 of 60 s quiet", sentence( "u2" ) );
   EXPECT_EQ( 29, reason( "et3" ).at( "eta-seconds" ) );
   EXPECT_EQ( 39, unit( "u2" ).at( "eta-seconds" ) );
   rig.runUntil( 60 );
   EXPECT_EQ( "drained", code( "et3" ) );
   EXPECT_EQ( "1 of 1 drained; settling, 10s left", sentence( "u2" ) );
   EXPECT_EQ( 10, unit( "u2" ).at( "eta-seconds" ) );
   rig.runUntil( 71 );
   EXPECT_EQ( "in maintenance since 22:14; 1 of 1 drained", sentence( "u2" ) );
}

TEST_F( InsightStory, callsItOscillatingThatCrossesAgainAndAgain ) {
   for ( int i = 0; i < 20; ++i )
      rig.at( 1 + 10 * i, [=, this] { rig.traffic( "et3", i % 2 ? 0 : 1e6 ); } );
   enter( "u2" );
   rig.runUntil( 120 );
   EXPECT_EQ( "oscillating", code( "et3" ) );
   EXPECT_NE( std::string::npos, sentence( "u2" ).find( "et3 oscillating about 100 kbit/s since 22:14" ) )
      << sentence( "u2" );
}

TEST_F( InsightStory, isStarvedWhileCountersCannotBeRead ) {
   rig.traffic( "et3", 1e6 );
   enter( "u2" );
   rig.runUntil( 12 );
   rig.simulation().countersFaultIs( "no answer" );
   rig.runUntil( 20 );
   EXPECT_EQ( "above-threshold", code( "et3" ) );
   rig.runUntil( 28 );
   EXPECT_EQ( "starved", code( "et3" ) );
   EXPECT_EQ( "no fresh counters since 22:13", reason( "et3" ).at( "text" ) );
   rig.simulation().countersFaultIs( "" );
   rig.runUntil( 35 );
   EXPECT_EQ( "above-threshold", code( "et3" ) );
}

TEST_F( InsightStory, tellsOfASpikeUnderMaintenance ) {
   enter( "u1" );
   rig.runUntil( 40 );
   EXPECT_EQ( "drained", code( "et1" ) );
   rig.traffic( "et1", 1.25e6 );
   rig.runUntil( 65 );
   EXPECT_EQ( "spike", code( "et1" ) );
   EXPECT_EQ( "1.25 Mbit/s, traffic is back since 22:14", reason( "et1" ).at( "text" ) );
   EXPECT_EQ(
      "in maintenance since 22:13; 2 of 2 drained; traffic is back on et1 (1.25 Mbit/s)", sentence( "u1" ) );
   rig.traffic( "et1", 0 );
   rig.runUntil( 90 );
   EXPECT_EQ( "spike", code( "et1" ) );
   EXPECT_EQ( "in maintenance since 22:13; 2 of 2 drained; traffic was back on et1", sentence( "u1" ) );
}

TEST_F( InsightStory, tellsTheSameWhereverItIsAsked ) {
   rig.traffic( "et1", 310000 );
   enter( "u4" );
   rig.runUntil( 110 );
   const json explained = json::parse( rig.get( "units/u4/explain" ) );
   ASSERT_EQ( 1u, explained.at( "waiting" ).size() );
   EXPECT_EQ( reason( "et1" ), explained.at( "waiting" )[0].at( "insight" ) );
   EXPECT_NE(
      std::string::npos, sentence( "u4" ).find( "et1 " + reason( "et1" ).at( "text" ).get< std::string >() ) )
      << sentence( "u4" );
   EXPECT_EQ( unit( "u4" ), json::parse( rig.get( "units" ) )[3] );
}

TEST_F( InsightStory, forgetsItOnTheWayBack ) {
   enter( "u1" );
   rig.runUntil( 40 );
   EXPECT_EQ( 202, rig.post( "units/u1/exit" ) );
   rig.runUntil( 45 );
   EXPECT_EQ( json(), reason( "et1" ) );
   EXPECT_EQ( "normal since 22:14", sentence( "u1" ) );
}

TEST_F( InsightStory, keepsSinceOverARestart ) {
   rig.traffic( "et1", 310000 );
   enter( "u1" );
   rig.runUntil( 62 );
   const json before = reason( "et1" ), quiet = reason( "et2" );
   EXPECT_EQ( "stalled", before.at( "code" ) );
   EXPECT_EQ( "drained", quiet.at( "code" ) );
   for ( int restart = 0; restart < 2; ++restart ) {
      rig.crash();
      rig.pass( 33 );
      rig.start();
      rig.runUntil( rig.time() + 1 );
      for ( int i = 0; i < 4; ++i ) {
         EXPECT_EQ( before.at( "code" ), reason( "et1" ).at( "code" ) ) << i;
         EXPECT_EQ( before.at( "since" ), reason( "et1" ).at( "since" ) ) << i;
         EXPECT_EQ( quiet.at( "since" ), reason( "et2" ).at( "since" ) ) << i;
         rig.runUntil( rig.time() + 4 );
      }
   }
}

} // namespace
