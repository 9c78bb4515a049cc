#include "Tests/Agent/AgentRig.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

using Tests::AgentRig;

const char * const configuration = "settle: 5s\n"
                                   "profiles:\n"
                                   "  fast: {threshold: 100kbps, load-interval: 10s, shutdown: true}\n"
                                   "  watch: {threshold: 1Mbps, load-interval: 10s}\n"
                                   "default-profile: fast\n"
                                   "groups:\n"
                                   "  uplinks: {interfaces: [et1, et2, pc1]}\n"
                                   "  shared: {interfaces: [et2]}\n"
                                   "  tenants: {vlans: [10], profile: watch}\n"
                                   "units:\n"
                                   "  u1: {groups: [uplinks, tenants]}\n"
                                   "  u2: {groups: [shared]}\n";

/// Two units share et2. Traffic leaves et1 only after 20 s; u2 is still under maintenance when u1 goes back.
class Story {
 public:
   Story() : rig( configuration ) {
      rig.traffic( "et1", 5e6 );
      rig.at( 2, [this] { rig.post( "units/u1/enter", R"({"reason":"swap"})" ); } );
      rig.at( 20, [this] { rig.traffic( "et1", 0 ); } );
      rig.at( 50, [this] { rig.post( "units/u2/enter" ); } );
      rig.at( 75, [this] { rig.post( "units/u1/exit" ); } );
      rig.at( 90, [this] { rig.post( "units/u2/exit" ); } );
      rig.start();
   }
   static constexpr double end = 110;
   AgentRig rig;
};

const std::vector< std::string > expectedMoves{ "et1 down", "et1 up",   "et2 down",
                                                "et2 up",   "pc1 down", "pc1 up" };

std::vector< std::string > sorted( std::vector< std::string > list ) {
   std::sort( list.begin(), list.end() );
   return list;
}

TEST( CrashStory, withoutACrashEachLinkGoesDownAndUpOnce ) {
   Story story;
   story.rig.runUntil( 45 );
   EXPECT_EQ( "\"maintenance\"", story.rig.fact( "units/u1", "state" ) );
   story.rig.runUntil( Story::end );
   EXPECT_EQ( expectedMoves, sorted( story.rig.moves() ) );
   EXPECT_EQ( "\"normal\"", story.rig.fact( "units/u1", "state" ) );
   EXPECT_EQ( "\"normal\"", story.rig.fact( "units/u2", "state" ) );
   EXPECT_GE( story.rig.timeOf( "et1 down" ), 30 );
   EXPECT_LE( story.rig.timeOf( "et2 up" ), 92 );
   EXPECT_GE( story.rig.timeOf( "et2 up" ), 90 );
}

class CrashAfterEachTurn : public testing::TestWithParam< AgentRig::Effects > {};

TEST_P( CrashAfterEachTurn, changesNothingAndTheStoryEndsTheSameWay ) {
   unsigned turns = 0;
   {
      Story whole;
      whole.rig.runUntil( Story::end );
      turns = whole.rig.turns();
   }
   ASSERT_GE( turns, 40u );
   for ( unsigned turn = 1; turn < turns && !testing::Test::HasFailure(); ++turn ) {
      SCOPED_TRACE( "crash after turn " + std::to_string( turn ) );
      Story story;
      std::string before;
      story.rig.turnHookIs( [&] {
         if ( story.rig.turns() == turn )
            before = story.rig.picture();
      } );
      story.rig.crashAfterTurnIs( turn, GetParam() );
      story.rig.runUntil( Story::end );
      ASSERT_FALSE( story.rig.running() );
      story.rig.turnHookIs( {} );
      story.rig.start();
      EXPECT_EQ( before, story.rig.picture() );
      story.rig.runUntil( Story::end );
      EXPECT_EQ( expectedMoves, sorted( story.rig.moves() ) );
      EXPECT_GE( story.rig.timeOf( "et1 down" ), 30 ) << "shut while there was traffic";
      EXPECT_LE( story.rig.timeOf( "et1 down" ), 75 );
      EXPECT_GE( story.rig.timeOf( "et2 up" ), 90 ) << "raised while a unit was under maintenance";
      EXPECT_EQ( "\"normal\"", story.rig.fact( "units/u1", "state" ) );
      EXPECT_EQ( "\"normal\"", story.rig.fact( "units/u2", "state" ) );
   }
}

INSTANTIATE_TEST_SUITE_P(
   CrashStory, CrashAfterEachTurn, testing::Values( AgentRig::Effects::out, AgentRig::Effects::lost ),
   []( const auto & crash ) {
      return crash.param == AgentRig::Effects::out ? "whoseEffectsAreOut" : "whoseEffectsAreLost";
   } );

} // namespace
