#include "Maintctl/RigTest.h"

#include <gtest/gtest.h>

namespace Maintctl {

namespace {

class RunTest : public testing::Test {
 protected:
   /// The agent's clock, which ages are told by.
   void clock() {
      rig.client.answers( "GET /api/v1/agent", R"({"state":"ok","clock":"2023-11-14T22:15:20.000Z"})" );
   }
   std::vector< std::string > requests() { return std::exchange( rig.client.requests, {} ); }
   static std::vector< std::string > only( const std::string & request ) { return { request }; }

   Rig rig;
};

constexpr char unitA[] = R"({"name":"spine-a","state":"entering","stage":"drainwatch","generation":3,
   "since":"2023-11-14T22:13:20.000Z","reason":"new optics","by":"ann","interfaces":{"total":5,"drained":3},
   "rates":{"in-bps":1250000,"out-bps":900},"violating":["et1","pc1"],"total-violations":7,
   "settling-since":null,"groups":["uplinks","tenants"],
   "sentence":"3 of 5 drained; et1 1.25 Mbit/s, about 40 s","eta-seconds":50})";
constexpr char unitB[] =
   R"({"name":"b","state":"normal","stage":null,"generation":0,"since":null,"reason":null,
   "by":null,"interfaces":{"total":0,"drained":0},"rates":{"in-bps":0,"out-bps":0},"violating":[],
   "total-violations":0,"settling-since":null,"groups":[]})";
constexpr char interfaceEt1[] = R"({"name":"et1","kind":"ethernet","units":["spine-a"],"profile":"fast",
   "state":"under-maint","in-bps":0,"out-bps":1250000,"samples":"18446744073709551615",
   "consecutive-drained-samples":"4","spike":true,"shut":true,"link-state":"down","drift":"raised",
   "start-time":"2023-11-14T22:13:20.000Z","state-time":"2023-11-14T22:15:00.000Z",
   "last-sample-time":"2023-11-14T22:15:15.000Z",
   "reason":{"code":"spike","text":"1.25 Mbit/s, traffic is back since 22:15"}})";
constexpr char interfaceNotShut[] = R"({"name":"et1","kind":"ethernet","units":["spine-a"],"profile":"fast",
   "state":"under-maint","shut":true,"shut-problem":"Operation not permitted","link-state":"up",
   "reason":{"code":"shut","text":"not shut: Operation not permitted"}})";
constexpr char interfaceNone[] = R"({"name":"et9","kind":"ethernet","units":[],"profile":null,"state":null,
   "in-bps":null,"out-bps":null,"samples":null,"consecutive-drained-samples":null,"spike":false,"shut":false,
   "link-state":"up","start-time":null,"state-time":null,"last-sample-time":null})";

std::string listOf( const std::string & first, const std::string & second ) {
   return "[" + first + "," + second + "]";
}

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

TEST_F( RunTest, showUnitSaysWhenItShouldBeThere ) {
   rig.client.answers(
      "GET /api/v1/units/a",
      R"({"name":"a","state":"entering","deadline":"2023-11-14T22:13:20.000Z","overdue":true})" );
   EXPECT_EQ( rig.run( { "show", "unit", "a" } ), ExitStatus::done );
   EXPECT_NE( rig.out.find( "Expected by:     2023-11-14T22:13:20.000Z, overdue\n" ), std::string::npos )
      << rig.out;
}

TEST_F( RunTest, showUnitsGivesALineForEach ) {
   clock();
   rig.client.answers( "GET /api/v1/units", listOf( unitA, unitB ) );
   EXPECT_EQ( rig.run( { "show", "units" } ), ExitStatus::done );
   EXPECT_EQ( requests(), only( "GET /api/v1/units" ) );
   EXPECT_EQ(
      rig.out,
      "UNIT     STATE     STAGE       DRAINED         IN      OUT  VIOLATING    FOR  BY   REASON\n"
      "spine-a  entering  drainwatch      3/5  1.25 Mbps  900 bps  et1, pc1   2m00s  ann  new optics\n"
      "b        normal    -               0/0      0 bps    0 bps  -              -  -    -\n" );
}

TEST_F( RunTest, showUnitsGivesTimesIfTheClockIsUnknown ) {
   rig.client.answers( "GET /api/v1/units", listOf( unitA, unitB ) );
   EXPECT_EQ( rig.run( { "show", "units" } ), ExitStatus::done );
   EXPECT_NE( rig.out.find( "SINCE" ), std::string::npos );
   EXPECT_NE( rig.out.find( "2023-11-14T22:13:20.000Z" ), std::string::npos );
}

TEST_F( RunTest, showUnitGivesItInFull ) {
   clock();
   rig.client.answers( "GET /api/v1/units/spine-a", unitA );
   EXPECT_EQ( rig.run( { "show", "unit", "spine-a" } ), ExitStatus::done );
   EXPECT_EQ(
      rig.out, "Unit:            spine-a\n"
               "State:           entering, stage drainwatch\n"
               "Now:             3 of 5 drained; et1 1.25 Mbit/s, about 40 s\n"
               "Generation:      3\n"
               "Since:           2023-11-14T22:13:20.000Z (2m00s ago)\n"
               "By:              ann\n"
               "Reason:          new optics\n"
               "Groups:          uplinks, tenants\n"
               "Interfaces:      3 of 5 drained\n"
               "Ready in:        about 50s\n"
               "Settling since:  -\n"
               "Rates:           in 1.25 Mbps, out 900 bps\n"
               "Violating:       et1, pc1\n"
               "Violations:      7 in total\n" );
}

TEST_F( RunTest, showInterfacesGivesALineForEach ) {
   clock();
   rig.client.answers( "GET /api/v1/interfaces", listOf( interfaceEt1, interfaceNone ) );
   EXPECT_EQ( rig.run( { "show", "interfaces" } ), ExitStatus::done );
   EXPECT_EQ(
      rig.out,
      "INTERFACE  KIND      LINK  SHUT  DRIFT   STATE        FOR     IN        OUT               SAMPLES  "
      "QUIET  SPIKE  "
      "PROFILE  UNITS    WHY (UTC)\n"
      "et1        ethernet  down  yes   raised  under-maint  20s  0 bps  1.25 Mbps  18446744073709551615    "
      "  4  yes    "
      "fast     spine-a  1.25 Mbit/s, traffic is back since 22:15\n"
      "et9        ethernet  up    no    -       -              -      -          -                     -    "
      "  -  no     "
      "-        -        -\n" );
}

TEST_F( RunTest, showInterfacesAsksOnlyForWhatItShows ) {
   rig.client.answers( "GET /api/v1/interfaces", "[]" );
   rig.client.answers( "GET /api/v1/interfaces?unit=a", "[]" );
   rig.run( { "show", "interfaces" } );
   EXPECT_TRUE( requests().back().starts_with( "GET /api/v1/interfaces?fields=kind,link-state," ) );
   rig.run( { "show", "interfaces", "a" } );
   EXPECT_TRUE( requests().back().starts_with( "GET /api/v1/interfaces?unit=a&fields=kind,link-state," ) );
   rig.run( { "show", "interfaces", "-j" } );
   EXPECT_EQ( requests().back(), "GET /api/v1/interfaces" );
}

TEST_F( RunTest, showInterfacesTakesAUnit ) {
   rig.client.answers( "GET /api/v1/interfaces?unit=spine-a", "[]" );
   EXPECT_EQ( rig.run( { "show", "interfaces", "spine-a" } ), ExitStatus::done );
   EXPECT_EQ( rig.out, "There are no interfaces.\n" );
}

TEST_F( RunTest, showInterfaceGivesItInFull ) {
   clock();
   rig.client.answers( "GET /api/v1/interfaces/et1", interfaceEt1 );
   EXPECT_EQ( rig.run( { "show", "interface", "et1" } ), ExitStatus::done );
   EXPECT_EQ(
      rig.out, "Interface:        et1\n"
               "Kind:             ethernet\n"
               "Link:             down\n"
               "Shut by us:       yes\n"
               "Drift:            raised, somebody else has set it up\n"
               "Units:            spine-a\n"
               "Profile:          fast\n"
               "State:            under-maint\n"
               "State since:      2023-11-14T22:15:00.000Z (20s ago)\n"
               "Why (UTC):        1.25 Mbit/s, traffic is back since 22:15\n"
               "Monitored since:  2023-11-14T22:13:20.000Z (2m00s ago)\n"
               "Rates:            in 0 bps, out 1.25 Mbps\n"
               "Samples:          18446744073709551615\n"
               "Quiet samples:    4 in a row\n"
               "Last sample:      2023-11-14T22:15:15.000Z (5s ago)\n"
               "Spike:            yes, traffic came back under maintenance\n" );
}

TEST_F( RunTest, showInterfaceSaysThatALinkIsNotShutYet ) {
   rig.client.answers( "GET /api/v1/interfaces/et1", interfaceNotShut );
   rig.run( { "show", "interface", "et1" } );
   EXPECT_NE( rig.out.find( "Shut by us:       not yet\n" ), std::string::npos ) << rig.out;
   EXPECT_NE( rig.out.find( "not shut: Operation not permitted\n" ), std::string::npos ) << rig.out;
   rig.client.answers( "GET /api/v1/interfaces", "[" + std::string( interfaceNotShut ) + "]" );
   rig.run( { "show", "interfaces" } );
   EXPECT_NE( rig.out.find( "  not yet  " ), std::string::npos ) << rig.out;
}

TEST_F( RunTest, showProfilesSaysWhenLinksAreShut ) {
   rig.client.answers(
      "GET /api/v1/profiles",
      R"([{"name":"fast","threshold-bps":100000,"load-interval-seconds":10,"shutdown":true,
           "shutdown-max-delay-seconds":300,"default":true},
          {"name":"now","threshold-bps":1,"load-interval-seconds":90,"shutdown":true,
           "shutdown-max-delay-seconds":0,"default":false},
          {"name":"calm","threshold-bps":1,"load-interval-seconds":90,"shutdown":true,
           "shutdown-max-delay-seconds":null,"default":false},
          {"name":"watch","threshold-bps":1000000,"load-interval-seconds":30,"shutdown":false,
           "shutdown-max-delay-seconds":null,"default":false}])" );
   EXPECT_EQ( rig.run( { "show", "profiles" } ), ExitStatus::done );
   EXPECT_EQ(
      rig.out, "PROFILE  DEFAULT  THRESHOLD  LOAD INTERVAL  SHUTDOWN  AT THE LATEST AFTER\n"
               "fast     yes       100 kbps            10s  yes       5m00s\n"
               "now      -            1 bps          1m30s  yes       at once\n"
               "calm     -            1 bps          1m30s  yes       never\n"
               "watch    -        1.00 Mbps            30s  no        -\n" );
}

TEST_F( RunTest, showGroupsSaysWhichTakeTheDefaultProfile ) {
   rig.client.answers(
      "GET /api/v1/groups",
      R"([{"name":"uplinks","profile":null,"interfaces":["et1","et2"],"units":["a","b"]},
          {"name":"tenants","profile":"watch","interfaces":[],"units":[]}])" );
   EXPECT_EQ( rig.run( { "show", "groups" } ), ExitStatus::done );
   EXPECT_EQ(
      rig.out, "GROUP    PROFILE    UNITS  INTERFACES\n"
               "uplinks  (default)  a, b   et1, et2\n"
               "tenants  watch      -      -\n" );
}

TEST_F( RunTest, showCountersGivesEach ) {
   rig.client.answers( "GET /api/v1/counters", R"({"num-maint-enter":12,"num-maint-exit":3})" );
   EXPECT_EQ( rig.run( { "show", "counters" } ), ExitStatus::done );
   EXPECT_EQ( rig.out, "COUNTER          VALUE\nnum-maint-enter     12\nnum-maint-exit       3\n" );
}

TEST_F( RunTest, showAgentGivesItsHealth ) {
   rig.client.answers(
      "GET /api/v1/agent",
      R"({"version":"1.0","pid":17,"started":"2023-11-14T22:13:20.000Z","state":"degraded",
          "problems":[{"what":"store","since":"2023-11-14T22:15:00.000Z","text":"disk full"}],
          "plugin":{"name":"drainwatch","state":"missing","text":"no such file"},
          "configuration":{"file":"/etc/x.yaml","state":"last-accepted","errors":["x.yaml:1:2: error: y"]},
          "switch":"simulated","switch-overruns":1,"clock":"2023-11-14T22:15:20.000Z",
          "fast-log":"/run/maintd/fastlog","restarts":2,"restart-reason":"ended with status 1",
          "hooks":[{"name":"desk","kind":"url","runs":"7","failures":"2","missed":"1","waiting":3,"event":12,"failure":"x"},
                   {"name":"page","kind":"command","runs":"0","failures":"0","missed":"0","waiting":0,"event":null}]})" );
   EXPECT_EQ( rig.run( { "show", "agent" } ), ExitStatus::done );
   EXPECT_EQ(
      rig.out, "State:          degraded\n"
               "Version:        1.0\n"
               "Process:        17\n"
               "Started:        2023-11-14T22:13:20.000Z (2m00s ago)\n"
               "Restarts:       2; the one before ended with status 1\n"
               "Plug-in:        drainwatch, missing: no such file\n"
               "Configuration:  /etc/x.yaml, last-accepted\n"
               "Switch:         simulated, 1 overrun\n"
               "Clock:          2023-11-14T22:15:20.000Z\n"
               "Fast log:       /run/maintd/fastlog\n"
               "\n"
               "The configuration file was not taken:\n"
               "  x.yaml:1:2: error: y\n"
               "\n"
               "Problems:\n"
               "  WHAT   FOR  PROBLEM\n"
               "  store  20s  disk full\n"
               "\n"
               "Hooks:\n"
               "  HOOK  KIND     NOW       WAITING  RUNS  FAILED  MISSED  LAST FAILURE\n"
               "  desk  url      event 12        3     7       2       1  x\n"
               "  page  command  -               0     0       0       0  -\n" );
}

TEST_F( RunTest, everyShowGivesTheAnswerAsJson ) {
   const struct {
      std::vector< std::string > words;
      std::string path;
   } rows[] = {
      { { "show", "units" }, "/api/v1/units" },
      { { "show", "unit", "a" }, "/api/v1/units/a" },
      { { "show", "interfaces" }, "/api/v1/interfaces" },
      { { "show", "interfaces", "a" }, "/api/v1/interfaces?unit=a" },
      { { "show", "interface", "et1" }, "/api/v1/interfaces/et1" },
      { { "show", "profiles" }, "/api/v1/profiles" },
      { { "show", "groups" }, "/api/v1/groups" },
      { { "show", "counters" }, "/api/v1/counters" },
      { { "show", "agent" }, "/api/v1/agent" },
      { { "explain", "a" }, "/api/v1/units/a/explain" },
      { { "trace" }, "/api/v1/trace" } };
   for ( const auto & row : rows ) {
      SCOPED_TRACE( row.path );
      // What a newer agent says goes through as it is.
      rig.client.answers( "GET " + row.path, R"({"zeta":1,"alpha":[null,"x",18446744073709551615]})" );
      std::vector< std::string > words = row.words;
      words.push_back( "--json" );
      EXPECT_EQ( rig.run( words ), ExitStatus::done );
      EXPECT_EQ(
         rig.out,
         "{\n  \"zeta\": 1,\n  \"alpha\": [\n    null,\n    \"x\",\n    18446744073709551615\n  ]\n}\n" );
   }
}

TEST_F( RunTest, explainGivesEachInterfaceThatIsWaitedFor ) {
   clock();
   rig.client.answers(
      "GET /api/v1/units/a/explain",
      R"({"unit":"a","state":"entering","stage":"drainwatch","settle-remaining-seconds":null,"stuck":false,
          "stuck-reason":null,"waiting":[{"interface":"et1","state":"enter-maint","profile":"fast","in-bps":5000000,
          "out-bps":0,"threshold-bps":100000,"load-interval-seconds":10,"quiet-seconds":5,"samples":"3",
          "next-sample":"2023-11-14T22:15:22.500Z","shutdown-at":null,"reason":"is busy"},
          {"interface":"et3","reason":"is quiet","insight":{"code":"timing","text":"5 of 10 s quiet"}}],
          "skipped":[{"interface":"et2","reason":"is down"}]})" );
   EXPECT_EQ( rig.run( { "explain", "a" } ), ExitStatus::done );
   EXPECT_EQ(
      rig.out,
      "a is entering, stage drainwatch; it waits for 2 interfaces.\n"
      "\n"
      "INTERFACE  STATE               IN    OUT  THRESHOLD  QUIET FOR  NEXT SAMPLE  SHUTDOWN  PROFILE  WHY\n"
      "et1        enter-maint  5.00 Mbps  0 bps   100 kbps  5s of 10s  in 3s        -         fast     is "
      "busy\n"
      "et3        -                    -      -          -     - of -  -            -         -        5 of "
      "10 "
      "s quiet\n"
      "\n"
      "Not waited for:\n"
      "  INTERFACE  WHY\n"
      "  et2        is down\n" );
}

TEST_F( RunTest, explainNamesSettlingAndWhatIsStuck ) {
   rig.client.answers(
      "GET /api/v1/units/a/explain",
      R"({"unit":"a","state":"entering","stage":null,"settle-remaining-seconds":7.2,"waiting":[],"skipped":[]})" );
   rig.run( { "explain", "a" } );
   EXPECT_EQ( rig.out, "a is entering; all interfaces have drained, and must stay so for another 8s.\n" );
   rig.client.answers(
      "GET /api/v1/units/b/explain",
      R"({"unit":"b","state":"entering","stuck":true,"stuck-reason":"no completion came","waiting":[],"skipped":[]})" );
   rig.run( { "explain", "b" } );
   EXPECT_EQ( rig.out, "b is entering; it waits for no interface.\nSTUCK: no completion came\n" );
}

TEST_F( RunTest, explainNamesLinksThatCouldNotBeShut ) {
   rig.client.answers(
      "GET /api/v1/units/a/explain",
      R"({"unit":"a","state":"maintenance","not-shut":[{"interface":"et1","problem":"Operation not permitted"}],
         "waiting":[],"skipped":[]})" );
   rig.run( { "explain", "a" } );
   EXPECT_EQ(
      rig.out, "a is under maintenance.\nNOT SHUT: et1 could not be shut: Operation not permitted\n" );
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
