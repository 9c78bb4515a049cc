#include "Tests/Agent/AgentRig.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace {

using Tests::AgentRig;

const char * const configuration = "settle: 5s\n"
                                   "profiles:\n"
                                   "  fast: {threshold: 100kbps, load-interval: 10s, shutdown: true}\n"
                                   "default-profile: fast\n"
                                   "groups:\n"
                                   "  uplinks: {interfaces: [et1, et2, pc1]}\n"
                                   "units:\n"
                                   "  u1: {groups: [uplinks]}\n";

/// A unit is under maintenance, its links are shut, and the agent is gone.
class ReleaseAll : public testing::Test {
 protected:
   ReleaseAll() : rig( configuration ) {
      rig.at( 2, [this] { rig.post( "units/u1/enter" ); } );
      rig.start();
      rig.runUntil( 40 );
      EXPECT_EQ( "\"maintenance\"", rig.fact( "units/u1", "state" ) );
      EXPECT_EQ( down, sorted( rig.moves() ) );
   }
   static std::vector< std::string > sorted( std::vector< std::string > list ) {
      std::sort( list.begin(), list.end() );
      return list;
   }

   const std::vector< std::string > down{ "et1 down", "et2 down", "pc1 down" };
   const std::vector< std::string > downAndUp{ "et1 down", "et1 up",   "et2 down",
                                               "et2 up",   "pc1 down", "pc1 up" };
   AgentRig rig;
};

TEST_F( ReleaseAll, raisesEveryLinkThatIsHeld ) {
   rig.crash();
   EXPECT_EQ( "", rig.releaseAll() );
   EXPECT_EQ( downAndUp, sorted( rig.moves() ) );
}

TEST_F( ReleaseAll, hasNothingToDoTheSecondTime ) {
   rig.crash();
   EXPECT_EQ( "", rig.releaseAll() );
   EXPECT_EQ( "", rig.releaseAll() );
   EXPECT_EQ( downAndUp, sorted( rig.moves() ) );
}

TEST_F( ReleaseAll, isRefusedWhileAnAgentRuns ) {
   const std::string problem = rig.releaseAll();
   EXPECT_NE( std::string::npos, problem.find( rig.folder() + "/state: in use by another process" ) )
      << problem;
   EXPECT_EQ( down, sorted( rig.moves() ) );
}

TEST_F( ReleaseAll, worksWithAConfigurationThatIsBroken ) {
   rig.crash();
   std::ofstream( rig.folder() + "/maintd.yaml" ) << "version: [\n";
   EXPECT_EQ( "", rig.releaseAll() );
   EXPECT_EQ( downAndUp, sorted( rig.moves() ) );
}

TEST_F( ReleaseAll, leavesTheUnitToTheNextAgent ) {
   rig.crash();
   EXPECT_EQ( "", rig.releaseAll() );
   rig.start();
   rig.runUntil( 100 );
   EXPECT_EQ( "\"maintenance\"", rig.fact( "units/u1", "state" ) );
   rig.post( "units/u1/exit" );
   rig.runUntil( 110 );
   EXPECT_EQ( "\"normal\"", rig.fact( "units/u1", "state" ) );
   EXPECT_EQ( "\"up\"", rig.fact( "interfaces/et1", "link-state" ) );
   EXPECT_EQ( "false", rig.fact( "interfaces/et1", "shut" ) );
}

} // namespace
