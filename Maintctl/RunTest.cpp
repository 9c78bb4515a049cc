#include "Maintctl/RunTest.h"

namespace Maintctl {

namespace {

TEST_F( RunTest, enterSaysWhereTheUnitIsNow ) {
   rig.client.answers(
      "POST /api/v1/units/spine-a/enter", R"({"unit":"spine-a","generation":3,"state":"entering"})", 202 );
   EXPECT_EQ( rig.run( { "enter", "spine-a", "--reason", "new \"optics\"" } ), ExitStatus::done );
   EXPECT_EQ( requests(), only( R"(POST /api/v1/units/spine-a/enter {"reason":"new \"optics\""})" ) );
   EXPECT_EQ( rig.out, "spine-a is entering, generation 3\n" );
   EXPECT_EQ( rig.err, "" );
}

TEST_F( RunTest, exitGivesTheAnswerAsJson ) {
   rig.client.answers(
      "POST /api/v1/units/spine-a/exit", R"({"unit":"spine-a","generation":4,"state":"exiting"})", 202 );
   EXPECT_EQ( rig.run( { "-j", "exit", "spine-a" } ), ExitStatus::done );
   EXPECT_EQ( requests(), only( "POST /api/v1/units/spine-a/exit {}" ) );
   EXPECT_EQ( at( rig.out, "/state" ), "\"exiting\"" );
   EXPECT_EQ( at( rig.out, "/generation" ), "4" );
}

TEST_F( RunTest, escapesNames ) {
   rig.run( { "show", "unit", "../agent?x" } );
   EXPECT_EQ( requests(), only( "GET /api/v1/units/..%2Fagent%3Fx" ) );
}

TEST_F( RunTest, anEnterTellsTheAgentHowLongItMayTake ) {
   rig.client.answers(
      "POST /api/v1/units/a/enter", R"({"unit":"a","generation":1,"state":"entering"})", 202 );
   rig.client.answers( "GET /api/v1/units/a", R"({"name":"a","state":"maintenance"})" );
   EXPECT_EQ( rig.run( { "enter", "a", "--timeout", "5m" } ), ExitStatus::done );
   EXPECT_EQ( requests()[0], R"(POST /api/v1/units/a/enter {"timeout":300})" );
   rig.client.requests.clear();
   EXPECT_EQ( rig.run( { "enter", "a", "--timeout", "0s" } ), ExitStatus::done );
   EXPECT_EQ( requests()[0], "POST /api/v1/units/a/enter {}" );
}

TEST_F( RunTest, anOperationSaysWhereTheUnitIsThen ) {
   rig.client.answers(
      "POST /api/v1/units/a/enter", R"({"unit":"a","generation":3,"state":"maintenance"})", 202 );
   EXPECT_EQ( rig.run( { "enter", "a" } ), ExitStatus::done );
   EXPECT_EQ( rig.out, "a is under maintenance, generation 3\n" );
}

TEST_F( RunTest, dumpGivesTheTextAsItIs ) {
   rig.client.answers( "GET /api/v1/dump", "DrainWatch\n  units: 2" );
   EXPECT_EQ( rig.run( { "dump" } ), ExitStatus::done );
   EXPECT_EQ( rig.out, "DrainWatch\n  units: 2\n" );
   EXPECT_EQ( rig.run( { "dump", "-j" } ), ExitStatus::done );
   EXPECT_EQ( at( rig.out, "/text" ), R"("DrainWatch\n  units: 2")" );
}

TEST_F( RunTest, dumpIsValidJsonWhateverTheTextHolds ) {
   rig.client.answers( "GET /api/v1/dump", "broken \xFF\033[2J" );
   EXPECT_EQ( rig.run( { "dump", "-j" } ), ExitStatus::done );
   EXPECT_TRUE( isJson( rig.out ) );
}

TEST_F( RunTest, traceShowsTheLevels ) {
   rig.client.answers(
      "GET /api/v1/trace", R"([{"name":"DrainWatch","level":3},{"name":"Cog","level":-1}])" );
   EXPECT_EQ( rig.run( { "trace" } ), ExitStatus::done );
   EXPECT_EQ( rig.out, "NAME        LEVEL\nDrainWatch      3\nCog           off\n" );
}

TEST_F( RunTest, traceSetsOneLevelAfterTheOther ) {
   rig.client.answers( "POST /api/v1/trace", R"([{"name":"A","level":9}])" );
   rig.client.answers( "POST /api/v1/trace", R"([{"name":"A","level":9},{"name":"B","level":-1}])" );
   EXPECT_EQ( rig.run( { "trace", "A=9", "B=off" } ), ExitStatus::done );
   EXPECT_EQ(
      requests(), ( std::vector< std::string >{
                     R"(POST /api/v1/trace {"name":"A","level":9})",
                     R"(POST /api/v1/trace {"name":"B","level":-1})" } ) );
   EXPECT_EQ( rig.out, "NAME  LEVEL\nA         9\nB       off\n" );
}

TEST_F( RunTest, traceStopsAtTheFirstRefusal ) {
   rig.client.refuses( "POST /api/v1/trace", 404, "not-found", "there is no trace facility A", "A" );
   EXPECT_EQ( rig.run( { "trace", "A=9", "B=0" } ), ExitStatus::failed );
   EXPECT_EQ( requests().size(), 1 );
   EXPECT_EQ( rig.err, "maintctl: there is no trace facility A\n" );
}

TEST_F( RunTest, releaseNeedsForce ) {
   rig.client.refuses(
      "POST /api/v1/interfaces/et1/release", 428, "needs-force", "it raises the link", "et1" );
   EXPECT_EQ( rig.run( { "release", "et1" } ), ExitStatus::needsForce );
   EXPECT_EQ( requests(), only( R"(POST /api/v1/interfaces/et1/release {"force":false})" ) );
   EXPECT_EQ( rig.err, "maintctl: et1: it raises the link; --force does it\n" );
   EXPECT_EQ( rig.run( { "release", "et1", "-j" } ), ExitStatus::needsForce );
   EXPECT_EQ( at( rig.out, "/error/code" ), "\"needs-force\"" );
}

TEST_F( RunTest, releaseWithForceIsDone ) {
   rig.client.answers( "POST /api/v1/interfaces/et1/release", R"({"interface":"et1"})", 202 );
   EXPECT_EQ( rig.run( { "release", "et1", "--force" } ), ExitStatus::done );
   EXPECT_EQ( requests(), only( R"(POST /api/v1/interfaces/et1/release {"force":true})" ) );
   EXPECT_EQ( rig.out, "et1 is released\n" );
}

TEST_F( RunTest, reloadGivesWhatHasChanged ) {
   rig.client.answers( "POST /api/v1/reload", R"({"changes":["profile fast changed","unit b added"]})" );
   EXPECT_EQ( rig.run( { "reload" } ), ExitStatus::done );
   EXPECT_EQ( requests(), only( "POST /api/v1/reload {}" ) );
   EXPECT_EQ( rig.out, "profile fast changed\nunit b added\n" );
}

TEST_F( RunTest, reloadOfAnUnchangedFileChangesNothing ) {
   rig.client.answers( "POST /api/v1/reload", R"({"changes":[]})" );
   EXPECT_EQ( rig.run( { "reload" } ), ExitStatus::done );
   EXPECT_EQ( rig.out, "nothing has changed\n" );
   EXPECT_EQ( rig.run( { "reload", "-j" } ), ExitStatus::done );
   EXPECT_EQ( at( rig.out, "/changes" ), "[]" );
}

constexpr char badFile[] =
   R"({"error":{"code":"bad-request","message":"the configuration has 2 errors","where":"/e.yaml"},
       "errors":[{"file":"/e.yaml","line":3,"column":4,"message":"unknown key"},
                 {"file":"/maintd.d/x.yaml","line":0,"column":0,"message":"cannot be read"}]})";

TEST_F( RunTest, reloadGivesAllErrorsOfTheFile ) {
   rig.client.answers( "POST /api/v1/reload", badFile, 400 );
   EXPECT_EQ( rig.run( { "reload" } ), ExitStatus::failed );
   EXPECT_EQ( rig.out, "" );
   EXPECT_EQ(
      rig.err, "/e.yaml:3:4: error: unknown key\n"
               "/maintd.d/x.yaml: error: cannot be read\n"
               "maintctl: /e.yaml: the configuration has 2 errors\n" );
}

TEST_F( RunTest, reloadGivesAllErrorsOfTheFileAsJson ) {
   rig.client.answers( "POST /api/v1/reload", badFile, 400 );
   EXPECT_EQ( rig.run( { "reload", "-j" } ), ExitStatus::failed );
   EXPECT_EQ( at( rig.out, "/error/where" ), "\"/e.yaml\"" );
   EXPECT_EQ( at( rig.out, "/errors/0/line" ), "3" );
   EXPECT_EQ( at( rig.out, "/errors/1/file" ), "\"/maintd.d/x.yaml\"" );
}

constexpr char goodConfiguration[] = "version: 1\n"
                                     "profiles: {fast: {threshold: 100kbps, load-interval: 10s}}\n"
                                     "default-profile: fast\n";
constexpr char badConfiguration[] = "version: 1\n"
                                    "profiles: {fast: {threshold: 100, load-interval: 10s}}\n"
                                    "default-profile: fsat\n"
                                    "colour: red\n";

TEST_F( RunTest, validateNeedsNoAgent ) {
   rig.client.reachableIs( false );
   rig.files.content["/c.yaml"] = goodConfiguration;
   EXPECT_EQ( rig.run( { "validate", "/c.yaml" } ), ExitStatus::done );
   EXPECT_EQ( rig.out, "" );
   EXPECT_EQ( rig.err, "/c.yaml: no errors\n" );
   EXPECT_EQ( rig.run( { "validate", "/c.yaml", "-j" } ), ExitStatus::done );
   EXPECT_EQ( at( rig.out, "/file" ), "\"/c.yaml\"" );
   EXPECT_EQ( at( rig.out, "/errors" ), "[]" );
   EXPECT_EQ( at( rig.out, "/warnings" ), "[]" );
}

TEST_F( RunTest, validateWarnsOfWhatHasNoEffectAndAcceptsIt ) {
   rig.files.content["/c.yaml"] = goodConfiguration;
   rig.files.content["/maintd.d/more.yaml"] = "units:\n  u1: {}\n";
   const std::string message =
      "unit \"u1\" has no interfaces: nothing is watched when it is put into maintenance";
   EXPECT_EQ( rig.run( { "validate", "/c.yaml" } ), ExitStatus::done );
   EXPECT_EQ( rig.out, "/maintd.d/more.yaml:2:3: warning: " + message + "\n" );
   EXPECT_EQ( rig.err, "/c.yaml: no errors, 1 warning\n" );
   EXPECT_EQ( rig.run( { "validate", "/c.yaml", "-j" } ), ExitStatus::done );
   EXPECT_EQ( at( rig.out, "/errors" ), "[]" );
   EXPECT_EQ( at( rig.out, "/warnings/0/file" ), "\"/maintd.d/more.yaml\"" );
   EXPECT_EQ( at( rig.out, "/warnings/0/line" ), "2" );
   EXPECT_EQ( at( rig.out, "/warnings/0/column" ), "3" );
   EXPECT_NE( at( rig.out, "/warnings/0/message" ), "" );
}

TEST_F( RunTest, validateGivesAllErrorsInOneRun ) {
   rig.files.content["/c.yaml"] = badConfiguration;
   rig.files.content["/maintd.d/more.yaml"] = "units: [\n";
   EXPECT_EQ( rig.run( { "validate", "/c.yaml" } ), ExitStatus::failed );
   const auto lines = linesOf( rig.out );
   ASSERT_GE( lines.size(), 3 ) << rig.out;
   EXPECT_TRUE( lines.front().starts_with( "/c.yaml:2:30: error: " ) ) << lines.front();
   EXPECT_TRUE( lines.back().starts_with( "/maintd.d/more.yaml:" ) ) << lines.back();
   EXPECT_EQ( rig.err, "maintctl: /c.yaml: " + std::to_string( lines.size() ) + " errors\n" );
}

TEST_F( RunTest, validateGivesAllErrorsAsJson ) {
   rig.files.content["/c.yaml"] = badConfiguration;
   EXPECT_EQ( rig.run( { "-j", "validate", "/c.yaml" } ), ExitStatus::failed );
   EXPECT_EQ( at( rig.out, "/error/code" ), "\"invalid-configuration\"" );
   EXPECT_EQ( at( rig.out, "/errors/0/line" ), "2" );
   EXPECT_EQ( at( rig.out, "/errors/0/column" ), "30" );
   EXPECT_NE( at( rig.out, "/errors/2/message" ), "" );
}

TEST_F( RunTest, validateNamesAFileThatCannotBeRead ) {
   EXPECT_EQ( rig.run( { "validate", "/none.yaml" } ), ExitStatus::failed );
   EXPECT_EQ( rig.out, "/none.yaml: error: the file cannot be read: No such file or directory\n" );
}

TEST_F( RunTest, simulatedTrafficSaysTheTimeOfTheSwitch ) {
   rig.client.answers( "POST /api/v1/simulated/traffic", R"({"time":"2023-11-14T22:13:20.000Z"})" );
   EXPECT_EQ(
      rig.run( { "simulated", "traffic", "et1", "--in", "400Mbps", "--out", "1kbps", "--ramp", "30s" } ),
      ExitStatus::done );
   EXPECT_EQ( rig.run( { "simulated", "traffic", "et1", "--to", "0bps" } ), ExitStatus::done );
   EXPECT_EQ(
      requests(),
      ( std::vector< std::string >{
         R"(POST /api/v1/simulated/traffic {"interface":"et1","in-bps":400000000,"out-bps":1000,"ramp-seconds":30})",
         R"(POST /api/v1/simulated/traffic {"interface":"et1","in-bps":0,"out-bps":0})" } ) );
   EXPECT_EQ( rig.out, "the switch's time is 2023-11-14T22:13:20.000Z\n" );
}

TEST_F( RunTest, simulatedLinkAndAdvanceAreAskedFor ) {
   rig.client.answers( "POST /api/v1/simulated/link", R"({"time":"2023-11-14T22:13:20.000Z"})" );
   rig.client.answers( "POST /api/v1/simulated/advance", R"({"time":"2023-11-14T22:15:20.000Z"})" );
   EXPECT_EQ( rig.run( { "simulated", "link", "et1", "down" } ), ExitStatus::done );
   EXPECT_EQ( rig.run( { "simulated", "advance", "2m", "-j" } ), ExitStatus::done );
   EXPECT_EQ(
      requests(), ( std::vector< std::string >{
                     R"(POST /api/v1/simulated/link {"interface":"et1","up":false})",
                     R"(POST /api/v1/simulated/advance {"seconds":120})" } ) );
   EXPECT_EQ( at( rig.out, "/time" ), "\"2023-11-14T22:15:20.000Z\"" );
}

/// Every verb that asks the agent, with the request that it begins with.
const struct {
   std::vector< std::string > words;
   std::string request;
} askingVerbs[] = {
   { { "enter", "a" }, "POST /api/v1/units/a/enter" },
   { { "exit", "a" }, "POST /api/v1/units/a/exit" },
   { { "wait", "a", "--for=normal" }, "GET /api/v1/units/a" },
   { { "show", "units" }, "GET /api/v1/units" },
   { { "show", "unit", "a" }, "GET /api/v1/units/a" },
   { { "show", "interfaces" }, "GET /api/v1/interfaces" },
   { { "show", "interface", "a" }, "GET /api/v1/interfaces/a" },
   { { "show", "profiles" }, "GET /api/v1/profiles" },
   { { "show", "groups" }, "GET /api/v1/groups" },
   { { "show", "counters" }, "GET /api/v1/counters" },
   { { "show", "agent" }, "GET /api/v1/agent" },
   { { "explain", "a" }, "GET /api/v1/units/a/explain" },
   { { "dump" }, "GET /api/v1/dump" },
   { { "trace" }, "GET /api/v1/trace" },
   { { "trace", "a=1" }, "POST /api/v1/trace" },
   { { "release", "a", "--force" }, "POST /api/v1/interfaces/a/release" },
   { { "reload" }, "POST /api/v1/reload" },
   { { "simulated", "traffic", "a", "--to", "1bps" }, "POST /api/v1/simulated/traffic" },
   { { "simulated", "link", "a", "up" }, "POST /api/v1/simulated/link" },
   { { "simulated", "advance", "1s" }, "POST /api/v1/simulated/advance" } };

std::vector< std::string > withJson( std::vector< std::string > words ) {
   words.push_back( "-j" );
   return words;
}

TEST_F( RunTest, everyRefusalIsToldInTheWordsOfTheAgent ) {
   const std::pair< int, std::string > refusals[] = { { 400, "bad-request" }, { 404, "not-found" },
                                                      { 409, "conflict" },    { 413, "too-large" },
                                                      { 503, "unavailable" }, { 500, "internal" } };
   for ( const auto & verb : askingVerbs )
      for ( const auto & [httpStatus, code] : refusals ) {
         SCOPED_TRACE( verb.request + " " + code );
         Rig each;
         each.client.refuses( verb.request, httpStatus, code, "it cannot be", "a" );
         EXPECT_EQ( each.run( verb.words ), ExitStatus::failed );
         EXPECT_EQ( each.out, "" );
         EXPECT_EQ( each.err, "maintctl: a: it cannot be\n" );
         EXPECT_EQ( each.run( withJson( verb.words ) ), ExitStatus::failed );
         EXPECT_EQ(
            at( each.out, "/error" ), R"({"code":")" + code + R"(","message":"it cannot be","where":"a"})" );
      }
}

TEST_F( RunTest, everyVerbSaysThatTheAgentCannotBeReached ) {
   rig.client.reachableIs( false );
   for ( const auto & verb : askingVerbs ) {
      SCOPED_TRACE( verb.request );
      EXPECT_EQ( rig.run( verb.words ), ExitStatus::notReachable );
      EXPECT_EQ( rig.out, "" );
      EXPECT_EQ(
         rig.err, "maintctl: /run/maintd/control.sock: the agent cannot be reached: Connection refused\n" );
      EXPECT_EQ( rig.run( withJson( verb.words ) ), ExitStatus::notReachable );
      EXPECT_EQ( at( rig.out, "/error/code" ), "\"not-reachable\"" );
   }
}

TEST_F( RunTest, everyVerbCanBeInterrupted ) {
   for ( const auto & verb : askingVerbs ) {
      SCOPED_TRACE( verb.request );
      rig.client.interruptNext();
      EXPECT_EQ( rig.run( verb.words ), ExitStatus::interrupted );
      EXPECT_EQ( rig.err, "maintctl: interrupted\n" );
   }
}

TEST_F( RunTest, everyVerbRefusesAnAnswerThatMakesNoSense ) {
   for ( const auto & verb : askingVerbs ) {
      if ( verb.words[0] == "dump" ) // any text will do
         continue;
      SCOPED_TRACE( verb.request );
      Rig each;
      each.client.answers( verb.request, "<html>" );
      EXPECT_EQ( each.run( verb.words ), ExitStatus::failed );
      EXPECT_EQ( each.err, "maintctl: the agent's answer makes no sense: it is no JSON\n" );
      EXPECT_EQ( each.run( withJson( verb.words ) ), ExitStatus::failed );
      EXPECT_EQ( at( each.out, "/error/code" ), "\"internal\"" );
   }
}

TEST_F( RunTest, aRefusalWithoutReasonIsToldAsSuch ) {
   rig.client.answers( "GET /api/v1/units", "<html>", 502 );
   EXPECT_EQ( rig.run( { "show", "units" } ), ExitStatus::failed );
   EXPECT_EQ( rig.err, "maintctl: /api/v1/units: the agent answers with status 502 and gives no reason\n" );
}

TEST_F( RunTest, textOfOthersCannotFoolTheTerminal ) {
   rig.client.refuses( "GET /api/v1/units/a", 404, "not-found", "no \033[2Junit", "" );
   rig.run( { "show", "unit", "a" } );
   EXPECT_EQ( rig.err, "maintctl: no \\x1B[2Junit\n" );
}

} // namespace
} // namespace Maintctl
