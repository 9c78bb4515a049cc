#include "Tests/Agent/AgentRig.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace {

using nlohmann::json;
using Tests::AgentRig;
using Outcome = Apps::Released::Outcome;

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
   EXPECT_EQ( "", rig.releaseAll().problem );
   EXPECT_EQ( downAndUp, sorted( rig.moves() ) );
}

TEST_F( ReleaseAll, hasNothingToDoTheSecondTime ) {
   rig.crash();
   EXPECT_EQ( "", rig.releaseAll().problem );
   EXPECT_EQ( "", rig.releaseAll().problem );
   EXPECT_EQ( downAndUp, sorted( rig.moves() ) );
}

TEST_F( ReleaseAll, isRefusedWhileAnAgentRuns ) {
   const auto released = rig.releaseAll();
   EXPECT_EQ( Outcome::inUse, released.outcome );
   EXPECT_NE( std::string::npos, released.problem.find( rig.folder() + "/state: in use by another process" ) )
      << released.problem;
   EXPECT_EQ( down, sorted( rig.moves() ) );
}

TEST_F( ReleaseAll, saysWhichLinksAndThatTheUnitStaysAsItIs ) {
   rig.crash();
   const auto released = rig.releaseAll();
   EXPECT_EQ( Outcome::done, released.outcome );
   EXPECT_EQ( ( std::vector< std::string >{ "et1", "et2", "pc1" } ), sorted( released.links ) );
   EXPECT_TRUE( released.held.empty() );
   EXPECT_EQ(
      std::vector< std::string >{ "unit u1 is not normal (maintenance), and stays so" }, released.left );
}

TEST_F( ReleaseAll, saysWhichLinksAreStillHeld ) {
   rig.crash();
   rig.simulation().linkSetFaultIs( "the device is busy" );
   const auto released = rig.releaseAll();
   EXPECT_EQ( Outcome::held, released.outcome );
   EXPECT_EQ( ( std::vector< std::string >{ "et1", "et2", "pc1" } ), sorted( released.held ) );
   EXPECT_NE( std::string::npos, released.problem.find( "the device is busy" ) ) << released.problem;
   rig.simulation().linkSetFaultIs( "" );
   EXPECT_EQ( Outcome::done, rig.releaseAll().outcome );
}

/// The unit is normal, and nothing is held.
TEST_F( ReleaseAll, needsNoConfigurationWhenNothingIsHeld ) {
   rig.post( "units/u1/exit" );
   rig.runUntil( 60 );
   rig.crash();
   std::filesystem::remove( rig.folder() + "/maintd.yaml" );
   rig.simulation().healthFaultIs( "the switch does not answer" );
   const auto released = rig.releaseAll();
   EXPECT_EQ( Outcome::done, released.outcome ) << released.problem;
   EXPECT_TRUE( released.links.empty() );
   EXPECT_TRUE( released.left.empty() );
}

TEST_F( ReleaseAll, saysThatItCannotTellWhenTheStoreCannotBeRead ) {
   rig.crash();
   std::ofstream( rig.folder() + "/state/state.mdb" ) << "no store";
   const auto released = rig.releaseAll();
   EXPECT_EQ( Outcome::unknown, released.outcome );
   EXPECT_NE( "", released.problem );
}

TEST_F( ReleaseAll, leavesWhatIsHeldInAnotherNetworkOfTheMachine ) {
   rig.crash();
   rig.watched().bootIdIs( "machine.1" );
   rig.start(); // holds them anew
   rig.runUntil( 60 );
   rig.crash();
   rig.watched().bootIdIs( "machine.2" );
   auto released = rig.releaseAll();
   EXPECT_EQ( Outcome::held, released.outcome );
   EXPECT_EQ( 3u, released.held.size() );
   EXPECT_NE( std::string::npos, released.problem.find( "is held in another network namespace" ) )
      << released.problem;
   rig.watched().bootIdIs( "machine.1" );
   released = rig.releaseAll();
   EXPECT_EQ( Outcome::done, released.outcome ) << released.problem;
   EXPECT_EQ( ( std::vector< std::string >{ "et1", "et2", "pc1" } ), sorted( released.links ) );
}

/// The unit is normal, and et1, which has no carrier, lacks a route.
class ReleaseAllAfterwards : public ReleaseAll {
 protected:
   ReleaseAllAfterwards() {
      EXPECT_TRUE( rig.simulation().linkIs( "et1", false ).ok() );
      rig.watched().leavesIs( Wire::EthIntfId( "et1" ), "route 10.0.0.0/8\nroute 10.1.0.0/16\n" );
   }
   const std::vector< std::string > waits{
      "et1: 1 of 2 waits for its carrier; an agent that runs gives it back when it can:",
      "   route 10.0.0.0/8", "   route 10.1.0.0/16" };
};

TEST_F( ReleaseAllAfterwards, namesWhatStillWaitsForACarrier ) {
   rig.post( "units/u1/exit" );
   rig.runUntil( 60 );
   rig.crash();
   for ( int time = 0; time < 2; ++time ) {
      const auto released = rig.releaseAll();
      EXPECT_EQ( Outcome::done, released.outcome ) << released.problem;
      EXPECT_TRUE( released.links.empty() );
      EXPECT_EQ( waits, released.left );
   }
}

TEST_F( ReleaseAllAfterwards, namesWhatTheLinksThatItRaisesLack ) {
   rig.crash();
   const auto released = rig.releaseAll();
   EXPECT_EQ( Outcome::done, released.outcome ) << released.problem;
   EXPECT_EQ( downAndUp, sorted( rig.moves() ) );
   auto lines = waits;
   lines.insert( lines.begin(), "unit u1 is not normal (maintenance), and stays so" );
   EXPECT_EQ( lines, released.left );
}

TEST( ReleaseAllBefore, makesNothingWhereNoAgentHasEverRun ) {
   AgentRig rig( configuration );
   EXPECT_EQ( Outcome::done, rig.releaseAll().outcome );
   EXPECT_FALSE( std::filesystem::exists( rig.folder() + "/state" ) );
   EXPECT_FALSE( std::filesystem::exists( rig.folder() + "/run" ) );
}

TEST_F( ReleaseAll, worksWithAConfigurationThatIsBroken ) {
   rig.crash();
   std::ofstream( rig.folder() + "/maintd.yaml" ) << "version: [\n";
   EXPECT_EQ( "", rig.releaseAll().problem );
   EXPECT_EQ( downAndUp, sorted( rig.moves() ) );
}

TEST_F( ReleaseAll, leavesTheUnitToTheNextAgent ) {
   rig.crash();
   EXPECT_EQ( "", rig.releaseAll().problem );
   rig.start();
   rig.runUntil( 100 );
   EXPECT_EQ( "\"maintenance\"", rig.fact( "units/u1", "state" ) );
   rig.post( "units/u1/exit" );
   rig.runUntil( 110 );
   EXPECT_EQ( "\"normal\"", rig.fact( "units/u1", "state" ) );
   EXPECT_EQ( "\"up\"", rig.fact( "interfaces/et1", "link-state" ) );
   EXPECT_EQ( "false", rig.fact( "interfaces/et1", "shut" ) );
}

TEST_F( ReleaseAll, holdsForTheNextAgentUntilTheUnitIsNormal ) {
   rig.crash();
   EXPECT_EQ( "", rig.releaseAll().problem );
   rig.start();
   rig.runUntil( 200 );
   EXPECT_EQ( "\"maintenance\"", rig.fact( "units/u1", "state" ) );
   EXPECT_EQ( downAndUp, sorted( rig.moves() ) )
      << "the plug-in finds its interfaces drained, and decides to shut";
   EXPECT_EQ( "false", rig.fact( "interfaces/et1", "shut" ) );
   rig.post( "units/u1/exit" );
   rig.runUntil( 210 );
   rig.post( "units/u1/enter" );
   rig.runUntil( 260 );
   EXPECT_EQ( "\"maintenance\"", rig.fact( "units/u1", "state" ) );
   EXPECT_EQ( downAndUp.size() + down.size(), rig.moves().size() ) << "another maintenance shuts them";
}

TEST_F( ReleaseAll, holdsWhenTheLinksHadBeenReleasedAlready ) {
   for ( const char * const link : { "et1", "et2", "pc1" } )
      rig.post( std::string( "interfaces/" ) + link + "/release", R"({"force": true})" );
   rig.runUntil( 60 );
   rig.crash();
   EXPECT_TRUE( rig.releaseAll().links.empty() );
   rig.start();
   rig.runUntil( 100 );
   EXPECT_EQ( downAndUp, sorted( rig.moves() ) );
}

/// Of one link; the others stay shut.
class ReleaseByHand : public ReleaseAll {
 protected:
   ReleaseByHand() {
      rig.post( "interfaces/et1/release", R"({"force": true})" );
      rig.runUntil( 60 );
      EXPECT_EQ( released, sorted( rig.moves() ) );
   }
   /// What has happened to the link, in order.
   std::string happened() {
      std::string result;
      const json all = json::parse( rig.get( "events/recent?limit=200" ) );
      for ( const auto & event : all.at( "events" ) )
         if ( event.at( "subject" ) == "et1" )
            result += event.at( "what" ).get< std::string >() + " ";
      return result;
   }
   const std::vector< std::string > released{ "et1 down", "et1 up", "et2 down", "pc1 down" };
};

TEST_F( ReleaseByHand, holdsOverARestart ) {
   const std::string before = happened();
   EXPECT_NE( std::string::npos, before.find( "shut" ) ) << before;
   rig.crash();
   rig.start();
   rig.runUntil( 200 );
   EXPECT_EQ( released, sorted( rig.moves() ) );
   EXPECT_EQ( "false", rig.fact( "interfaces/et1", "shut" ) );
   EXPECT_EQ( "true", rig.fact( "interfaces/et2", "shut" ) );
   EXPECT_EQ( before, happened() ) << "nobody is told that it is shut";
}

TEST_F( ReleaseByHand, isWrittenDownWithTheMaintenanceOnce ) {
   const auto written = [this] {
      const json record = json::parse( rig.get( "history/1" ) );
      for ( const auto & intf : record.at( "interfaces" ) )
         if ( intf.at( "name" ) == "et1" )
            return intf.at( "shut" ).dump() + " " + intf.at( "raised" ).dump();
      return std::string();
   };
   const std::string before = written();
   EXPECT_EQ( std::string::npos, before.find( "null" ) ) << before;
   rig.crash();
   rig.start();
   rig.runUntil( 200 );
   EXPECT_EQ( before, written() );
}

TEST_F( ReleaseByHand, holdsWhenTheProfileIsChanged ) {
   const auto configurationIs = [this]( const std::string & shutdown ) {
      std::string text = configuration;
      text.replace( text.find( "shutdown: true" ), 14, "shutdown: " + shutdown );
      rig.configurationIs( text );
      EXPECT_EQ( 200, rig.post( "reload" ) );
   };
   configurationIs( "false" );
   rig.runUntil( 80 );
   EXPECT_EQ( downAndUp, sorted( rig.moves() ) );
   configurationIs( "true" );
   rig.runUntil( 100 );
   EXPECT_EQ( downAndUp.size() + 2, rig.moves().size() ) << "et2 and pc1 are shut again";
   EXPECT_EQ( "false", rig.fact( "interfaces/et1", "shut" ) );
}

TEST_F( ReleaseByHand, isOverWhenTheUnitIsNormal ) {
   rig.post( "units/u1/exit" );
   rig.runUntil( 80 );
   rig.post( "units/u1/enter" );
   rig.runUntil( 140 );
   EXPECT_EQ( "true", rig.fact( "interfaces/et1", "shut" ) );
}

} // namespace
