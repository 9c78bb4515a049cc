#include "Maintctl/RigTest.h"

#include <gtest/gtest.h>

namespace Maintctl {

namespace {

const std::string running =
   R"("stages":[{"name":"steer","state":"running","since":"2023-11-14T22:15:08.000Z","command":"/bin/steer enter",
      "limit-seconds":60.0,"deadline":"2023-11-14T22:16:08.000Z","failure":null,"text":"runs /bin/steer"},
      {"name":"drainwatch","state":"pending","since":null,"command":null,"limit-seconds":null,"deadline":null,
      "failure":null,"text":"has yet to begin"}])";
const std::string runningText = "Stages:\n"
                                "  STAGE       STATE    FOR  LIMIT  WHAT\n"
                                "  steer       running  12s  1m00s  runs /bin/steer\n"
                                "  drainwatch  pending    -      -  has yet to begin\n";

class ShowStagesTest : public testing::Test {
 protected:
   ShowStagesTest() {
      rig.client.replaces(
         "GET /api/v1/agent", R"({"version":"1","pid":2,"state":"ok","clock":"2023-11-14T22:15:20.000Z"})" );
   }
   bool shows( const std::string & text ) const { return rig.out.find( text ) != std::string::npos; }
   Rig rig;
};

TEST_F( ShowStagesTest, showUnitListsStagesWithTheirLimits ) {
   rig.client.replaces(
      "GET /api/v1/units/a", R"({"name":"a","state":"entering","stage":"steer",)" + running + "}" );
   EXPECT_EQ( rig.run( { "show", "unit", "a" } ), ExitStatus::done );
   EXPECT_TRUE( shows( "\n\n" + runningText ) ) << rig.out;
}

TEST_F( ShowStagesTest, showUnitSaysNothingOfOneStageThatHasNoCommand ) {
   rig.client.replaces(
      "GET /api/v1/units/a",
      R"({"name":"a","state":"entering","stages":[{"name":"drainwatch","state":"running","text":"waits"}]})" );
   EXPECT_EQ( rig.run( { "show", "unit", "a" } ), ExitStatus::done );
   EXPECT_FALSE( shows( "Stages" ) ) << rig.out;
}

TEST_F( ShowStagesTest, explainSaysHowLongTheCommandHasRunAndWhatComesNext ) {
   rig.client.replaces(
      "GET /api/v1/units/a/explain",
      R"({"unit":"a","state":"entering","stage":"steer","reason":"upgrade",)" + running + "}" );
   EXPECT_EQ( rig.run( { "explain", "a" } ), ExitStatus::done );
   EXPECT_EQ(
      "a is entering, stage steer; its command has run for 12s of at most 1m00s.\n"
      "Reason: upgrade\n"
      "\n" +
         runningText,
      rig.out );
}

TEST_F( ShowStagesTest, explainSaysThatAnEarlierCommandHasToEndFirst ) {
   rig.client.replaces(
      "GET /api/v1/units/a/explain",
      R"({"unit":"a","state":"exiting","stage":null,"ending-earlier-command":true})" );
   EXPECT_EQ( rig.run( { "explain", "a" } ), ExitStatus::done );
   EXPECT_EQ( "a is exiting; it waits until an earlier command has ended.\n", rig.out );
}

TEST_F( ShowStagesTest, explainSaysWhatACommandWaitsForThatDoesNotRun ) {
   rig.client.replaces(
      "GET /api/v1/units/a/explain",
      R"({"unit":"a","state":"entering","stage":"steer","stages":[{"name":"steer","state":"running",
         "command":"/bin/steer","limit-seconds":60,"deadline":null,"text":"waits for room"}]})" );
   EXPECT_EQ( rig.run( { "explain", "a" } ), ExitStatus::done );
   EXPECT_EQ( 0u, rig.out.find( "a is entering, stage steer; it waits for room.\n" ) ) << rig.out;
}

TEST_F( ShowStagesTest, whatACommandHasSaidCannotActOnTheTerminal ) {
   rig.client.replaces(
      "GET /api/v1/units/a/explain",
      R"({"unit":"a","state":"exiting","reason":"\u001b[2J","stages":[{"name":"steer","state":"failed",
         "failure":"\u001b[2J","text":"failed: \u001b[2J"}]})" );
   EXPECT_EQ( rig.run( { "explain", "a" } ), ExitStatus::done );
   EXPECT_EQ( std::string::npos, rig.out.find( '\033' ) );
}

TEST_F( ShowStagesTest, waitingNamesTheStageThatRuns ) {
   rig.client.replaces(
      "GET /api/v1/units/a", R"({"name":"a","state":"entering","stage":"steer",)" + running + "}" );
   rig.pace.at( 3, [this] {
      rig.client.replaces( "GET /api/v1/units/a", R"({"name":"a","state":"maintenance","generation":1})" );
   } );
   EXPECT_EQ( rig.run( { "wait", "a", "--for=maintenance" } ), ExitStatus::done );
   EXPECT_EQ( "a entering, stage steer, at most 1m00s\n", rig.err );
}

} // namespace

} // namespace Maintctl
