#include "Tests/Agent/AgentRig.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <cmath>
#include <filesystem>
#include <fstream>

/// What interfaces carry is sampled all the time, whatever becomes of units and of the agent.
namespace {

using nlohmann::json;
using Tests::AgentRig;

const char * const configuration = "settle: 5s\n"
                                   "profiles:\n"
                                   "  watch: {threshold: 100kbps, load-interval: 10s}\n"
                                   "default-profile: watch\n"
                                   "groups:\n"
                                   "  g1: {interfaces: [et1, et2, pc1]}\n"
                                   "  g2: {vlans: [10]}\n"
                                   "units:\n"
                                   "  u1: {groups: [g1, g2]}\n";

/// The rates in, in kbps: "- 1000 1000".
std::string curve( AgentRig & rig, const std::string & intf, unsigned seconds ) {
   const json answer =
      json::parse( rig.get( "samples?interface=" + intf + "&last=" + std::to_string( seconds ) ) );
   std::string result;
   for ( const json & rate : answer.at( "interfaces" ).at( intf ).at( "in-bps" ) )
      result += ( result.empty() ? "" : " " ) +
                ( rate.is_null() ? "-" : std::to_string( std::lround( rate.get< double >() / 1000 ) ) );
   return result;
}

std::string rate( AgentRig & rig, const std::string & intf ) {
   const std::string text = rig.fact( "interfaces/" + intf, "in-bps" );
   return text == "null" ? text : std::to_string( std::lround( std::stod( text ) / 1000 ) );
}

TEST( SamplesStory, curveSurvivesAnAgentThatIsKilled ) {
   AgentRig rig( configuration );
   rig.traffic( "et1", 1e6 );
   rig.start();
   rig.runUntil( 21 );
   rig.traffic( "et1", 2e6 );
   rig.runUntil( 31 );
   EXPECT_EQ( "- 1000 1000 1000 1800 2000", curve( rig, "et1", 30 ) );
   rig.crash();
   rig.pass( 10 );
   rig.start();
   EXPECT_EQ( "- 1000 1000 1000 1800 2000 - -", curve( rig, "et1", 40 ) );
   rig.runUntil( 55 );
   EXPECT_EQ( "- 1000 1000 1000 1800 2000 - - - 2000 2000", curve( rig, "et1", 55 ) );
   EXPECT_EQ( "60", json::parse( rig.get( "samples?unit=u1&last=2h" ) ).at( "step-seconds" ).dump() );
   // A minute of the clock begins 40 s after the story.
   EXPECT_TRUE( curve( rig, "et1", 3900 ).ends_with( "- 1360 2000" ) ) << curve( rig, "et1", 3900 );
}

TEST( SamplesStory, portChannelsAndVlanInterfacesAreWhatTheirMembersCarry ) {
   AgentRig rig( configuration );
   rig.traffic( "et3", 1e6 );
   rig.traffic( "et4", 2e6 );
   rig.traffic( "et5", 4e6 );
   rig.start();
   rig.runUntil( 10 );
   EXPECT_EQ( "- 3000", curve( rig, "pc1", 10 ) );
   EXPECT_EQ( "- 4000", curve( rig, "vlan10", 10 ) );
}

TEST( SamplesStory, ratesAreShownWhereNothingIsMonitored ) {
   AgentRig rig( configuration );
   rig.traffic( "et1", 1e6 );
   rig.start();
   rig.runUntil( 6 );
   EXPECT_EQ( "null", rate( rig, "et1" ) );
   rig.runUntil( 11 );
   EXPECT_EQ( "1000", rate( rig, "et1" ) );
   EXPECT_EQ( "0", rate( rig, "et2" ) );
   // Its record has no sample yet.
   EXPECT_EQ( 202, rig.post( "units/u1/enter" ) );
   EXPECT_EQ( "1000", rate( rig, "et1" ) );
   rig.traffic( "et1", 2e6 );
   rig.runUntil( 17 );
   EXPECT_EQ( "2000", rate( rig, "et1" ) );
}

TEST( SamplesStory, countersAreReadOnceForATick ) {
   AgentRig rig( configuration );
   rig.start();
   rig.runUntil( 2 );
   const unsigned before = rig.watched().refreshes();
   rig.runUntil( 502 );
   EXPECT_EQ( 100u, rig.watched().refreshes() - before );
}

TEST( SamplesStory, nothingDependsOnThem ) {
   AgentRig rig( configuration );
   std::filesystem::create_directories( rig.folder() + "/state" );
   std::ofstream( rig.folder() + "/state/samples" ) << "a file";
   rig.start();
   EXPECT_EQ( 202, rig.post( "units/u1/enter" ) );
   rig.runUntil( 60 );
   EXPECT_EQ( "\"maintenance\"", rig.fact( "units/u1", "state" ) );
   const json problems = json::parse( rig.get( "agent" ) ).at( "problems" );
   ASSERT_EQ( 1u, problems.size() );
   EXPECT_EQ( "samples", problems[0].at( "what" ) );
   EXPECT_EQ( rig.folder() + "/state/samples: Not a directory", problems[0].at( "text" ) );
   EXPECT_EQ( 202, rig.post( "units/u1/exit" ) );
   rig.runUntil( 70 );
   EXPECT_EQ( "\"normal\"", rig.fact( "units/u1", "state" ) );
   EXPECT_EQ( 202, rig.post( "units/u1/enter" ) ) << "an agent that cannot keep samples enters all the same";
}

TEST( SamplesStory, aLinkThatIsMadeAgainHasAGapAndNoAbsurdRate ) {
   AgentRig rig( configuration );
   rig.traffic( "et1", 1e6 );
   rig.start();
   rig.runUntil( 11 );
   ASSERT_TRUE( rig.simulation().linkDel( "et1" ).ok() );
   rig.runUntil( 21 );
   ASSERT_TRUE( rig.simulation().linkNew( "et1" ).ok() );
   rig.runUntil( 36 );
   EXPECT_EQ( "- 1000 - - - 1000 1000", curve( rig, "et1", 35 ) );
}

} // namespace
