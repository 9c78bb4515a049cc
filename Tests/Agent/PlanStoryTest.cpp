#include "Tests/Agent/AgentRig.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <fstream>
#include <functional>
#include <sstream>

namespace {

using nlohmann::json;
using Tests::AgentRig;

/// Two units that stand in for each other, with a port each; et3 and et4 are in the port-channel pc1.
const char * const configuration = R"(
settle: 5s
profiles:
  fast: {threshold: 100kbps, load-interval: 10s, shutdown: true, shutdown-max-delay: 5m}
  watch: {threshold: 1kbps, load-interval: 10s}
default-profile: fast
groups:
  a: {interfaces: [et1]}
  b: {interfaces: [et2]}
  c: {interfaces: [pc1], profile: watch}
  d: {interfaces: [pc1], profile: fast}
  e: {interfaces: [et3], profile: fast}
  f: {interfaces: [et4], profile: fast}
  g: {interfaces: [missing]}
units:
  u1: {groups: [a]}
  u2: {groups: [b]}
  u3: {groups: [c, d]}
  u4: {groups: [a], enter: [steer, drainwatch], exit: [drainwatch, steer]}
  u5: {groups: [e]}
  u7: {groups: [a], enter: [drainwatch, steer], exit: [steer, drainwatch]}
  u6: {groups: [f]}
  u9: {groups: [a, g]}
  u8: {groups: [a], enter: [ticket, drainwatch], exit: [drainwatch, ticket]}
stages:
  steer: {enter: /bin/true, exit: /bin/true, steers: true}
  ticket: {enter: /bin/true, exit: /bin/true}
redundancy-groups:
  spines: {units: [u1, u2]}
)";

const std::vector< DataPlane::Simulated::Route > routes = {
   { "0.0.0.0/0", { "et1", "et2" } },
   { "10.0.0.0/8", { "et1" } },
   { "10.1.0.0/16", { "et1" }, 10 },
   { "10.1.0.0/16", { "et2" }, 20 },
   { "2001:db8::/32", { "pc1" } } };

/// Where nothing leads through one unit alone.
const std::vector< DataPlane::Simulated::Route > quietRoutes = { { "0.0.0.0/0", { "et1", "et2" }, 0 } };

class PlanStory : public testing::Test {
 protected:
   explicit PlanStory( const std::vector< DataPlane::Simulated::Route > & given = routes )
      : rig( configuration, given, { { "et1", 1e9 }, { "et2", 1e9 }, { "et3", 1e9 }, { "et4", 1e9 } } ) {
      for ( const char * port : { "et1", "et2" } )
         rig.traffic( port, 1e8 );
      rig.start();
      rig.runUntil( 20 );
   }
   json plan( const std::string & unit, const std::string & session = "" ) {
      const auto answer =
         rig.ask( "GET", "units/" + unit + "/plan" + ( session.empty() ? "" : "?session=" + session ) );
      EXPECT_EQ( 200, answer->status ) << answer->body;
      return json::parse( answer->body );
   }
   /// "code severity, ..." in order.
   static std::string findings( const json & plan ) {
      std::string result;
      for ( const json & finding : plan.at( "findings" ) )
         result += ( result.empty() ? "" : ", " ) + finding.at( "code" ).get< std::string >() + " " +
                   finding.at( "severity" ).get< std::string >();
      return result;
   }
   std::string state( const std::string & unit ) { return rig.fact( "units/" + unit, "state" ); }
   static std::string content( const std::string & path ) {
      std::ostringstream text;
      text << std::ifstream( path, std::ios::binary ).rdbuf();
      return text.str();
   }
   AgentRig rig;
};

class QuietPlanStory : public PlanStory {
 protected:
   QuietPlanStory() : PlanStory( quietRoutes ) {}
};

TEST_F( PlanStory, tellsOfEachInterfaceWhatItCarriesAndWhatWouldBeDone ) {
   const json interfaces = plan( "u9" ).at( "interfaces" );
   ASSERT_EQ( 2u, interfaces.size() );
   const json & et1 = interfaces.at( 0 );
   EXPECT_EQ( "et1", et1.at( "name" ) );
   EXPECT_NEAR( 1e8, et1.at( "current" ).at( "in-bps" ).get< double >(), 1e3 );
   EXPECT_NEAR( 1e8, et1.at( "high" ).at( "out-bps" ).get< double >(), 1e3 );
   EXPECT_EQ( "fast", et1.at( "profile" ) );
   EXPECT_EQ( "the default, as group a names none", et1.at( "profile-why" ) );
   EXPECT_EQ( "shut-at-latest", et1.at( "action" ) );
   EXPECT_EQ( 300, et1.at( "shutdown-max-delay-seconds" ) );
   EXPECT_EQ( "missing", interfaces.at( 1 ).at( "name" ) );
   EXPECT_EQ( "does not exist", interfaces.at( 1 ).at( "not-watched" ) );
   const json pc1 = plan( "u3" ).at( "interfaces" ).at( 0 );
   EXPECT_EQ( "watch", pc1.at( "profile" ) );
   EXPECT_EQ(
      "the strictest of watch (group c) and fast (group d): lowest threshold", pc1.at( "profile-why" ) );
   EXPECT_EQ( "watched", pc1.at( "action" ) );
   EXPECT_EQ( "named by group e", plan( "u5" ).at( "interfaces" ).at( 0 ).at( "profile-why" ) );
}

TEST_F( PlanStory, knowsTheHighRatesOfTheLastTenMinutes ) {
   rig.traffic( "et1", 3e8 );
   rig.runUntil( 120 );
   rig.traffic( "et1", 0 );
   rig.runUntil( 300 );
   const json et1 = plan( "u1" ).at( "interfaces" ).at( 0 );
   EXPECT_EQ( 0, et1.at( "current" ).at( "in-bps" ).get< double >() );
   EXPECT_NEAR( 3e8, et1.at( "high" ).at( "in-bps" ).get< double >(), 1e6 );
   EXPECT_NEAR( 300, et1.at( "high" ).at( "known-seconds" ).get< double >(), 10 );
   rig.runUntil( 900 );
   EXPECT_NEAR(
      600, plan( "u1" ).at( "interfaces" ).at( 0 ).at( "high" ).at( "known-seconds" ).get< double >(), 10 );
   EXPECT_EQ( 0, plan( "u1" ).at( "interfaces" ).at( 0 ).at( "high" ).at( "in-bps" ).get< double >() );
}

TEST_F( PlanStory, findsTheLastPathsAndThatAMemberOfAPortChannelIsNone ) {
   const json u1 = plan( "u1" );
   EXPECT_EQ( "last-path blocking, no-steering warning, unknown-session info", findings( u1 ) );
   EXPECT_EQ(
      "last-path blocking, no-steering warning, not-watched warning, unknown-session info",
      findings( plan( "u9" ) ) );
   EXPECT_EQ( "10.0.0.0/8 has no other way than et1", u1.at( "findings" ).at( 0 ).at( "text" ) );
   EXPECT_TRUE( u1.at( "needs-force" ).get< bool >() );
   EXPECT_EQ(
      "last-path blocking, no-steering warning, low-threshold warning, unknown-session info",
      findings( plan( "u3" ) ) );
   EXPECT_EQ( "no-steering warning, unknown-session info", findings( plan( "u5" ) ) );
   EXPECT_EQ( "last-path warning, unknown-session info", findings( plan( "u4" ) ) );
   // What is done once the traffic is gone has not moved it.
   EXPECT_EQ( "last-path blocking, no-steering warning, unknown-session info", findings( plan( "u7" ) ) );
   EXPECT_EQ( "last-path blocking, no-steering warning, unknown-session info", findings( plan( "u8" ) ) );
}

TEST_F( PlanStory, findsThatTheSessionWouldBeCutOff ) {
   // Then the default route is taken, over et2.
   EXPECT_EQ( "last-path warning, unknown-session warning", findings( plan( "u4", "10.2.3.4" ) ) );
   EXPECT_EQ( "10.2.3.4", plan( "u4", "10.2.3.4" ).at( "session" ) );
   EXPECT_EQ( "last-path warning", findings( plan( "u4", "192.0.2.1" ) ) );
   EXPECT_EQ( "last-path warning, unknown-session warning", findings( plan( "u4", "2001:db9::1" ) ) );
   EXPECT_EQ( "lock-out blocking, last-path warning", findings( plan( "u4", "fe80::1%et1" ) ) );
   EXPECT_EQ( "fe80::1%et1", plan( "u4", "fe80::1%et1" ).at( "session" ) );
   EXPECT_EQ( "last-path warning, unknown-session warning", findings( plan( "u4", "fe80::1%nonesuch" ) ) );
   EXPECT_EQ( 400, rig.ask( "GET", "units/u4/plan?session=nobody" )->status );
}

TEST_F( QuietPlanStory, findsThatWhatRemainsIsTooSmall ) {
   EXPECT_EQ( "no-steering warning, unknown-session info", findings( plan( "u1" ) ) );
   rig.traffic( "et2", 9.5e8 );
   rig.runUntil( 40 );
   const json crowded = plan( "u1" );
   EXPECT_EQ( "capacity blocking, no-steering warning, unknown-session info", findings( crowded ) );
   EXPECT_NEAR(
      1e8, crowded.at( "findings" ).at( 0 ).at( "numbers" ).at( "moved-in-bps" ).get< double >(), 1e3 );
   EXPECT_NEAR(
      5e7, crowded.at( "findings" ).at( 0 ).at( "numbers" ).at( "free-in-bps" ).get< double >(), 1e3 );
}

TEST_F( QuietPlanStory, asksOnlyThePortsForTheirSpeedThatHaveToCarryMore ) {
   plan( "u1" );
   const std::map< Vel::String, unsigned > once = { { "et2", 1 } };
   EXPECT_EQ( once, rig.watched().speedsAsked() );
   // The other member of its port-channel.
   plan( "u5" );
   const std::map< Vel::String, unsigned > both = { { "et2", 1 }, { "et4", 1 } };
   EXPECT_EQ( both, rig.watched().speedsAsked() );
   // Those who ask at a time share what is known, each in his own plan.
   rig.soon( [&] {
      for ( const char * session : { "10.0.0.1", "10.0.0.2", "10.0.0.3" } )
         rig.ask( "GET", std::string( "units/u1/plan?session=" ) + session );
   } );
   rig.runUntil( rig.time() );
   const std::map< Vel::String, unsigned > again = { { "et2", 2 }, { "et4", 1 } };
   EXPECT_EQ( again, rig.watched().speedsAsked() );
}

TEST_F( QuietPlanStory, findsThatTheUnitThatStandsInIsOut ) {
   EXPECT_EQ( 202, rig.post( "units/u2/enter" ) );
   rig.runUntil( 21 );
   EXPECT_EQ( 428, rig.post( "units/u1/enter" ) );
   EXPECT_EQ( "\"normal\"", state( "u1" ) );
   EXPECT_EQ(
      "last-path blocking, degraded blocking, no-steering warning, unknown-session info",
      findings( plan( "u1" ) ) );
   EXPECT_EQ( 202, rig.post( "units/u2/exit" ) );
   rig.runUntil( 60 );
   EXPECT_EQ( 202, rig.post( "units/u1/enter" ) );
}

TEST_F( PlanStory, refusesTheUnitThatWouldTakeTheLastWayWithWhatIsOnItsWayOut ) {
   rig.traffic( "et3", 1e8 );
   EXPECT_EQ( "no-steering warning, unknown-session info", findings( plan( "u6" ) ) );
   EXPECT_EQ( 202, rig.post( "units/u5/enter" ) );
   // It has traffic, so it stays up for minutes; but not for ever.
   rig.runUntil( 60 );
   EXPECT_EQ( "\"entering\"", state( "u5" ) );
   EXPECT_EQ( 428, rig.post( "units/u6/enter" ) );
   EXPECT_EQ(
      "2001:db8::/32 has no other way than et4; et3 is on its way out with u5",
      plan( "u6" ).at( "findings" ).at( 0 ).at( "text" ) );
   EXPECT_EQ( 202, rig.post( "units/u5/exit" ) );
   rig.runUntil( 61 );
   EXPECT_EQ( 202, rig.post( "units/u6/enter" ) );
}

TEST_F( QuietPlanStory, tellsWhatIsShutForAnotherUnitAlready ) {
   for ( const char * port : { "et1", "et2" } )
      rig.traffic( port, 0 );
   EXPECT_EQ( 202, rig.post( "units/u1/enter" ) );
   rig.runUntil( 60 );
   EXPECT_EQ( "\"maintenance\"", state( "u1" ) );
   const json u4 = plan( "u4" );
   EXPECT_EQ( "unknown-session info, already-shut info", findings( u4 ) );
   EXPECT_EQ( "et1 is held down already, for u1", u4.at( "findings" ).at( 1 ).at( "text" ) );
   EXPECT_TRUE( u4.at( "interfaces" ).at( 0 ).at( "not-watched" ).is_null() );
}

TEST_F( PlanStory, warnsWhenCountersOrRoutesAreNotKnown ) {
   rig.simulation().countersFaultIs( "no answer" );
   rig.simulation().routesFaultIs( "out of order" );
   rig.runUntil( 60 );
   EXPECT_EQ(
      "unknown-capacity warning, no-steering warning, unknown-routes warning, stale-counters warning, "
      "unknown-session info",
      findings( plan( "u1" ) ) );
}

TEST_F( PlanStory, enterIsRefusedWithTheFindingsAndChangesNothing ) {
   const std::string before = rig.picture();
   const auto refused = rig.ask( "POST", "units/u1/enter", R"({"reason": "upgrade"})" );
   EXPECT_EQ( 428, refused->status );
   const json error = json::parse( refused->body ).at( "error" );
   EXPECT_EQ( "needs-force", error.at( "code" ) );
   EXPECT_EQ( plan( "u1" ).at( "findings" ), error.at( "findings" ) );
   rig.runUntil( 40 );
   EXPECT_EQ( before, rig.picture() );
   EXPECT_TRUE( json::parse( rig.get( "history" ) ).empty() );
}

TEST_F( PlanStory, enterThatIsForcedIsWrittenDownWithWhatSpokeAgainstIt ) {
   EXPECT_EQ( 400, rig.post( "units/u1/enter", R"({"force": true})" ) );
   EXPECT_EQ( 202, rig.post( "units/u1/enter", R"({"force": true, "reason": "fire"})" ) );
   rig.runUntil( 30 );
   EXPECT_EQ( "\"entering\"", state( "u1" ) );
   const json expected = json::array( { "last-path: 10.0.0.0/8 has no other way than et1" } );
   EXPECT_EQ( expected, json::parse( rig.get( "history/1" ) ).at( "overridden" ) );
   EXPECT_NE( std::string::npos, rig.get( "events/recent" ).find( "10.0.0.0/8 has no other way than et1" ) );
   // Also when the agent was not there when the maintenance ended.
   rig.crash();
   rig.start();
   EXPECT_EQ( 202, rig.post( "units/u1/exit" ) );
   rig.runUntil( 60 );
   EXPECT_EQ( "\"normal\"", state( "u1" ) );
   EXPECT_EQ( expected, json::parse( rig.get( "history/1" ) ).at( "overridden" ) );
}

TEST_F( PlanStory, enterOfAUnitUnderWayIsNotJudgedAgain ) {
   EXPECT_EQ( 202, rig.post( "units/u1/enter", R"({"force": true, "reason": "fire"})" ) );
   rig.runUntil( 30 );
   EXPECT_EQ( 202, rig.post( "units/u1/enter" ) );
}

TEST_F( PlanStory, enterGoesOnWhenTheSwitchDoesNotTellItsRoutes ) {
   rig.simulation().routesFaultIs( "out of order" );
   EXPECT_EQ( 202, rig.post( "units/u1/enter" ) );
}

TEST_F( PlanStory, aThousandPlansChangeNothing ) {
   rig.runUntil( 21 );
   const std::vector< std::string > stores = {
      rig.folder() + "/state/state.mdb", rig.folder() + "/run/runtime.mdb" };
   std::vector< std::string > before;
   for ( const std::string & store : stores ) {
      before.push_back( content( store ) );
      ASSERT_FALSE( before.back().empty() ) << store;
   }
   const std::string picture = rig.picture(), events = rig.get( "events/recent" );
   const std::size_t moves = rig.moves().size();
   const json first = plan( "u1", "10.2.3.4" );
   for ( int i = 0; i < 1000; ++i )
      ASSERT_EQ( first, plan( "u1", "10.2.3.4" ) );
   EXPECT_EQ( picture, rig.picture() );
   EXPECT_EQ( events, rig.get( "events/recent" ) );
   EXPECT_EQ( moves, rig.moves().size() );
   for ( std::size_t i = 0; i < stores.size(); ++i )
      EXPECT_TRUE( before[i] == content( stores[i] ) ) << stores[i];
}

TEST_F( PlanStory, manyPlansAtATimeAreAllAnsweredAPlanATurn ) {
   std::vector< std::shared_ptr< const Agent::HttpReply > > answers;
   rig.soon( [&] {
      for ( int i = 0; i < 200; ++i )
         answers.push_back( rig.ask( "GET", "units/u1/plan?session=10.2.0." + std::to_string( i ) ) );
   } );
   const unsigned turns = rig.turns();
   rig.runUntil( rig.time() );
   ASSERT_EQ( 200u, answers.size() );
   for ( const auto & answer : answers )
      EXPECT_EQ( 200, answer->status );
   EXPECT_GE( rig.turns() - turns, 200u );
}

TEST_F( PlanStory, whoAsksForTheSameAtATimeHasTheSamePlan ) {
   std::vector< std::shared_ptr< const Agent::HttpReply > > answers;
   rig.soon( [&] {
      for ( int i = 0; i < 200; ++i )
         answers.push_back( rig.ask( "GET", "units/u1/plan" ) );
   } );
   const unsigned turns = rig.turns();
   rig.runUntil( rig.time() );
   ASSERT_EQ( 200u, answers.size() );
   for ( const auto & answer : answers )
      EXPECT_EQ( 200, answer->status );
   // Four in each turn, while a plan of his own for each would take two turns and more.
   EXPECT_LT( rig.turns() - turns, 100u );
}

TEST_F( PlanStory, isToldToAFewOfThoseWhoShareItInEachTurn ) {
   std::vector< std::shared_ptr< const Agent::HttpReply > > answers;
   std::ptrdiff_t before = 0, most = 0;
   rig.soon( [&] {
      for ( int i = 0; i < 40; ++i )
         answers.push_back( rig.ask( "GET", "units/u1/plan" ) );
   } );
   rig.turnHookIs( [&] {
      const auto now = std::count_if(
         answers.begin(), answers.end(), []( const auto & answer ) { return answer->status != 0; } );
      most = std::max( most, now - before );
      before = now;
   } );
   rig.runUntil( rig.time() );
   rig.turnHookIs( {} );
   EXPECT_EQ( 40, before );
   EXPECT_EQ( 4, most );
}

TEST_F( PlanStory, ofOneOnThisMachineIsMadeHoweverManyAskOverTheWeb ) {
   std::vector< std::shared_ptr< const Agent::HttpReply > > web;
   std::shared_ptr< const Agent::HttpReply > own;
   const auto answered = [&]( int status ) {
      return std::count_if(
         web.begin(), web.end(), [=]( const auto & answer ) { return answer->status == status; } );
   };
   std::ptrdiff_t before = -1;
   rig.soon( [&] {
      rig.local = false;
      for ( int i = 0; i < 100; ++i )
         web.push_back( rig.ask( "GET", "units/u1/plan?session=10.2.0." + std::to_string( i ) ) );
      rig.local = true;
      own = rig.ask( "GET", "units/u1/plan" );
   } );
   rig.turnHookIs( [&] {
      if ( own && own->status != 0 && before < 0 )
         before = answered( 200 );
   } );
   rig.runUntil( rig.time() );
   rig.turnHookIs( {} );
   EXPECT_EQ( 200, own->status );
   EXPECT_GE( before, 0 );
   EXPECT_LT( before, 10 );
   EXPECT_EQ( 64, answered( 200 ) );
   EXPECT_EQ( 36, answered( 503 ) );
}

TEST_F( QuietPlanStory, isNotMadeForAnEnterOfWhatHasBegunMeanwhile ) {
   std::vector< std::shared_ptr< const Agent::HttpReply > > answers;
   rig.soon( [&] {
      for ( int i = 0; i < 40; ++i )
         answers.push_back( rig.ask( "POST", "units/u1/enter" ) );
   } );
   const unsigned turns = rig.turns();
   rig.runUntil( rig.time() );
   for ( const auto & answer : answers )
      EXPECT_EQ( 202, answer->status );
   // One each but for the first, while a plan takes two.
   EXPECT_LT( rig.turns() - turns, 60u );
}

TEST_F( QuietPlanStory, anEnterIsJudgedBeforeThoseWhoOnlyLook ) {
   std::vector< std::shared_ptr< const Agent::HttpReply > > looks;
   std::shared_ptr< const Agent::HttpReply > enter;
   rig.soon( [&] {
      for ( int i = 0; i < 200; ++i )
         looks.push_back( rig.ask( "GET", "units/u5/plan?session=10.2.0." + std::to_string( i ) ) );
      enter = rig.ask( "POST", "units/u1/enter" );
   } );
   const auto answered = [&] {
      return std::count_if(
         looks.begin(), looks.end(), []( const auto & look ) { return look->status != 0; } );
   };
   std::ptrdiff_t before = -1;
   std::function< void() > watch = [&] {
      if ( enter && enter->status != 0 && before < 0 )
         before = answered();
      if ( before < 0 )
         rig.soon( watch );
   };
   rig.soon( watch );
   rig.runUntil( rig.time() );
   ASSERT_TRUE( enter );
   EXPECT_EQ( 202, enter->status );
   EXPECT_EQ( 200, answered() );
   EXPECT_GE( before, 0 );
   EXPECT_LT( before, 20 );
}

TEST_F( PlanStory, turnsAwayWhoLooksWhenTooManyDo ) {
   std::vector< std::shared_ptr< const Agent::HttpReply > > answers;
   rig.soon( [&] {
      for ( int i = 0; i < 300; ++i )
         answers.push_back( rig.ask( "GET", "units/u1/plan" ) );
   } );
   rig.runUntil( rig.time() );
   const auto with = [&]( int status ) {
      return std::count_if(
         answers.begin(), answers.end(), [=]( const auto & answer ) { return answer->status == status; } );
   };
   EXPECT_EQ( 256, with( 200 ) );
   EXPECT_EQ( 44, with( 503 ) );
   EXPECT_EQ( 200, rig.ask( "GET", "units/u1/plan" )->status );
}

} // namespace
