#include "Maintctl/RunTest.h"

/// What show and explain print.
namespace Maintctl {

namespace {

class RunShowTest : public RunTest {
 protected:
   /// The agent's clock, which ages are told by.
   void clock() {
      rig.client.answers( "GET /api/v1/agent", R"({"state":"ok","clock":"2023-11-14T22:15:20.000Z"})" );
   }
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

TEST_F( RunShowTest, showUnitSaysWhenItShouldBeThere ) {
   rig.client.answers(
      "GET /api/v1/units/a",
      R"({"name":"a","state":"entering","deadline":"2023-11-14T22:13:20.000Z","overdue":true})" );
   EXPECT_EQ( rig.run( { "show", "unit", "a" } ), ExitStatus::done );
   EXPECT_NE( rig.out.find( "Expected by:     2023-11-14T22:13:20.000Z, overdue\n" ), std::string::npos )
      << rig.out;
}

TEST_F( RunShowTest, showUnitsGivesALineForEach ) {
   clock();
   rig.client.answers( "GET /api/v1/units", listOf( unitA, unitB ) );
   EXPECT_EQ( rig.run( { "show", "units" } ), ExitStatus::done );
   EXPECT_EQ( requests(), only( "GET /api/v1/units" ) );
   EXPECT_EQ(
      rig.out,
      "UNIT     STATE     STAGE       DRAINED         IN      OUT  VIOLATING    FOR  BY   REASON\n"
      "spine-a  entering  drainwatch      3/5  1.25 Mbps  900 bps  et1, pc1   2m00s  ann  new optics\n"
      "b        normal    -               0/0          -        -  -              -  -    -\n" );
}

TEST_F( RunShowTest, showUnitsGivesTimesIfTheClockIsUnknown ) {
   rig.client.answers( "GET /api/v1/units", listOf( unitA, unitB ) );
   EXPECT_EQ( rig.run( { "show", "units" } ), ExitStatus::done );
   EXPECT_NE( rig.out.find( "SINCE" ), std::string::npos );
   EXPECT_NE( rig.out.find( "2023-11-14T22:13:20.000Z" ), std::string::npos );
}

TEST_F( RunShowTest, showUnitGivesItInFull ) {
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

TEST_F( RunShowTest, showInterfacesGivesALineForEach ) {
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

TEST_F( RunShowTest, showInterfacesAsksOnlyForWhatItShows ) {
   rig.client.answers( "GET /api/v1/interfaces", "[]" );
   rig.client.answers( "GET /api/v1/interfaces?unit=a", "[]" );
   rig.run( { "show", "interfaces" } );
   EXPECT_TRUE( requests().back().starts_with( "GET /api/v1/interfaces?fields=kind,link-state," ) );
   rig.run( { "show", "interfaces", "a" } );
   EXPECT_TRUE( requests().back().starts_with( "GET /api/v1/interfaces?unit=a&fields=kind,link-state," ) );
   rig.run( { "show", "interfaces", "-j" } );
   EXPECT_EQ( requests().back(), "GET /api/v1/interfaces" );
}

TEST_F( RunShowTest, showInterfacesTakesAUnit ) {
   rig.client.answers( "GET /api/v1/interfaces?unit=spine-a", "[]" );
   EXPECT_EQ( rig.run( { "show", "interfaces", "spine-a" } ), ExitStatus::done );
   EXPECT_EQ( rig.out, "There are no interfaces.\n" );
}

TEST_F( RunShowTest, showInterfaceGivesItInFull ) {
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

TEST_F( RunShowTest, showInterfaceSaysThatALinkIsNotShutYet ) {
   rig.client.answers( "GET /api/v1/interfaces/et1", interfaceNotShut );
   rig.run( { "show", "interface", "et1" } );
   EXPECT_NE( rig.out.find( "Shut by us:       not yet\n" ), std::string::npos ) << rig.out;
   EXPECT_NE( rig.out.find( "not shut: Operation not permitted\n" ), std::string::npos ) << rig.out;
   rig.client.answers( "GET /api/v1/interfaces", "[" + std::string( interfaceNotShut ) + "]" );
   rig.run( { "show", "interfaces" } );
   EXPECT_NE( rig.out.find( "  not yet  " ), std::string::npos ) << rig.out;
}

TEST_F( RunShowTest, showProfilesSaysWhenLinksAreShut ) {
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

TEST_F( RunShowTest, showGroupsSaysWhichTakeTheDefaultProfile ) {
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

TEST_F( RunShowTest, showCountersGivesEach ) {
   rig.client.answers( "GET /api/v1/counters", R"({"num-maint-enter":12,"num-maint-exit":3})" );
   EXPECT_EQ( rig.run( { "show", "counters" } ), ExitStatus::done );
   EXPECT_EQ( rig.out, "COUNTER          VALUE\nnum-maint-enter     12\nnum-maint-exit       3\n" );
}

TEST_F( RunShowTest, showAgentGivesItsHealth ) {
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

TEST_F( RunShowTest, everyShowGivesTheAnswerAsJson ) {
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

TEST_F( RunShowTest, explainGivesEachInterfaceThatIsWaitedFor ) {
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

TEST_F( RunShowTest, explainNamesSettlingAndWhatIsStuck ) {
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

TEST_F( RunShowTest, explainNamesLinksThatCouldNotBeShut ) {
   rig.client.answers(
      "GET /api/v1/units/a/explain",
      R"({"unit":"a","state":"maintenance","not-shut":[{"interface":"et1","problem":"Operation not permitted"}],
         "waiting":[],"skipped":[]})" );
   rig.run( { "explain", "a" } );
   EXPECT_EQ(
      rig.out, "a is under maintenance.\nNOT SHUT: et1 could not be shut: Operation not permitted\n" );
}

} // namespace

} // namespace Maintctl
