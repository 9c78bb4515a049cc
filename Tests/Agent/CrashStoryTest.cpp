#include "Tests/Agent/CrashSweepTest.h"

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

using CrashAfterEachTurn = Tests::CrashTest;

TEST_P( CrashAfterEachTurn, changesNothingAndTheStoryEndsTheSameWay ) {
   std::string seen;
   Tests::CrashSweep< Story > sweep;
   sweep.before = [&seen]( Story & story, unsigned turn ) {
      seen.clear();
      story.rig.turnHookIs( [&seen, &story, turn] {
         if ( story.rig.turns() == turn )
            seen = story.rig.picture();
      } );
   };
   sweep.down = []( Story & story, unsigned ) { story.rig.turnHookIs( {} ); };
   sweep.back = [&seen]( Story & story ) { EXPECT_EQ( seen, story.rig.picture() ); };
   sweep.over = []( Story & story ) {
      EXPECT_EQ( expectedMoves, sorted( story.rig.moves() ) );
      EXPECT_GE( story.rig.timeOf( "et1 down" ), 30 ) << "shut while there was traffic";
      EXPECT_LE( story.rig.timeOf( "et1 down" ), 75 );
      EXPECT_GE( story.rig.timeOf( "et2 up" ), 90 ) << "raised while a unit was under maintenance";
      EXPECT_EQ( "\"normal\"", story.rig.fact( "units/u1", "state" ) );
      EXPECT_EQ( "\"normal\"", story.rig.fact( "units/u2", "state" ) );
   };
   sweep.run( GetParam() );
}

INSTANTIATE_TEST_SUITE_P( CrashStory, CrashAfterEachTurn, Tests::allCrashes(), Tests::crashName );

} // namespace
