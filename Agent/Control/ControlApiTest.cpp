#include "Agent/Control/ControlApiRigTest.h"

#include <nlohmann/json.hpp>

#include <unistd.h>

namespace Agent {

namespace {

using Maintenance::Unit::UnitState;
using nlohmann::json;

class ControlApiTest : public ControlApiRig {
 protected:
   json get( const std::string & path ) { return json::parse( got( path ) ); }
   json body() const { return json::parse( reply.body ); }
};

// ---- what is shown

TEST_F( ControlApiTest, showsAUnitInFull ) {
   auto & unit = rig.unit( "u1" );
   unit.stateIs( UnitState::enterInProgress );
   unit.genIdIs( 7 );
   unit.aggTrafficRateIs( { 2000, 1500, rig.now } );
   unit.intfsViolatingTrafficThresholdIs( rig.et2, true );
   unit.totalIntfTrafficViolationsIs( 3 );
   auto & run = *rig.runs->unitRun( "u1" );
   run.sinceIs( rig.now - 10 );
   run.reasonIs( "upgrade" );
   run.byIs( "ann" );
   run.deadlineIs( rig.now + 60 );
   progress = { "drainwatch", 3, 2, rig.now - 1, 10, "" };
   progress.stages = { { "steer", "failed", rig.now - 9, "/bin/a", 60, "no", true, false } };
   EXPECT_EQ(
      json::parse( R"({"name":"u1","state":"entering","stage":"drainwatch","generation":7,
         "stages":[{"name":"steer","state":"failed","since":"2023-11-14T23:13:11.000Z","command":"/bin/a",
            "limit-seconds":60.0,"deadline":null,"failure":"no","text":"failed: no; the next stage began all the same"}],
         "since":"2023-11-14T23:13:10.000Z","reason":"upgrade","by":"ann",
         "deadline":"2023-11-14T23:14:20.000Z","overdue":false,
         "times":{"deadline":null,"deadline-left-seconds":null,"on-overrun":null,"overrun":null,"revert-at":null,
            "revert-left-seconds":null,"doubt":null},
         "interfaces":{"total":3,"drained":2},"rates":{"in-bps":1500,"out-bps":2000},
         "violating":["et2"],"total-violations":3,"settling-since":"2023-11-14T23:13:19.000Z",
         "not-shut":[],"groups":["tenants","uplinks"],"sentence":"2 of 3 drained; settling, 9s left",
         "eta-seconds":9.0,"operation":null,"with":{}})" ),
      get( "units/u1" ) );
   now += 61;
   EXPECT_EQ( true, get( "units/u1" ).at( "overdue" ) );
}

TEST_F( ControlApiTest, leavesNothingOutOfAUnitOfWhichNothingIsKnown ) {
   rig.runs->unitRunDel( "u2" );
   EXPECT_EQ(
      json::parse(
         R"({"name":"u2","state":"normal","stage":null,"stages":[],"generation":0,"since":null,"reason":null,
         "by":null,"deadline":null,"overdue":false,
         "times":{"deadline":null,"deadline-left-seconds":null,"on-overrun":null,"overrun":null,"revert-at":null,
            "revert-left-seconds":null,"doubt":null},
         "interfaces":{"total":0,"drained":0},
         "rates":{"in-bps":0,"out-bps":0},"violating":[],"total-violations":0,"settling-since":null,
         "not-shut":[],"groups":["shared"],"sentence":"normal","eta-seconds":null,"operation":null,"with":{}})" ),
      get( "units/u2" ) );
}

TEST_F( ControlApiTest, listsUnits ) {
   const json list = get( "units" );
   ASSERT_EQ( 2u, list.size() );
   EXPECT_EQ( "u1", list[0].at( "name" ) );
   EXPECT_EQ( get( "units/u2" ), list[1] );
}

TEST_F( ControlApiTest, showsOnlyTheFieldsOfInterfacesThatAreAskedFor ) {
   rig.record( rig.et1, Maintenance::monIntfStateUnderMaint );
   rig.insight( rig.et1, Reason::shut );
   EXPECT_EQ(
      json::parse(
         R"([{"name":"et1","reason":{"code":"shut","text":"shut since 23:12"},"state":"under-maint"},
         {"name":"et2","reason":null,"state":null},{"name":"vlan10","reason":null,"state":null}])" ),
      get( "interfaces?unit=u1&fields=reason.text,state,reason.code" ) );
   const json whole = get( "interfaces/et1" );
   EXPECT_EQ(
      json( { { "name", "et1" }, { "reason", whole["reason"] } } ), get( "interfaces?fields=reason" )[0] );
   EXPECT_EQ( json( { { "name", "et1" } } ), get( "interfaces?fields=name" )[0] );
   // Each by itself gives what all together give.
   for ( const auto & [name, value] : whole.items() )
      EXPECT_EQ( value, get( "interfaces?fields=" + name )[0].at( name ) ) << name;
   for ( const auto & [name, value] : whole["reason"].items() )
      EXPECT_EQ( json( { { name, value } } ), get( "interfaces?fields=reason." + name )[0]["reason"] )
         << name;
}

TEST_F( ControlApiTest, refusesFieldsThatInterfacesDoNotHave ) {
   for ( const char * list :
         { "", "speed", "state,", ",state", "reason.", "reason.rate", "name,reason.text.x" } ) {
      EXPECT_EQ( 400, ask( "GET", std::string( "/api/v1/interfaces?fields=" ) + list ) ) << list;
      EXPECT_EQ( R"(bad-request "fields")", refused() ) << list;
   }
}

TEST_F( ControlApiTest, refusesParametersThatARouteDoesNotHave ) {
   for ( const char * path :
         { "units", "units/u1", "units/u1/explain", "units/u1/plan", "interfaces", "interfaces/et1",
           "samples", "history", "history/1", "profiles", "groups", "counters", "agent", "events",
           "events/recent", "trace", "dump" } ) {
      EXPECT_EQ( 400, ask( "GET", std::string( "/api/v1/" ) + path + "?feilds=name" ) ) << path;
      EXPECT_EQ( R"(bad-request "feilds")", refused() ) << path;
   }
   EXPECT_EQ( 400, ask( "GET", "/api/v1/interfaces?unit=u1&unit=u1" ) );
   EXPECT_EQ( R"(bad-request "unit")", refused() );
   // No name of a parameter reaches over two of them.
   EXPECT_EQ( 400, ask( "GET", "/api/v1/interfaces?unit+fields=u1" ) );
   // Those that watch many programs may have something of their own in each address.
   EXPECT_EQ( 200, ask( "GET", "/healthz?from=probe" ) );
}

TEST_F( ControlApiTest, showsAnInterfaceInFull ) {
   auto & record = rig.record( rig.et1, Maintenance::monIntfStateUnderMaint );
   rig.sample( record, 1.5, 2.5, 4294967295 );
   record.spikeUnderMaintIs( true );
   rig.cause->intfStatusIs( rig.et1, rig.now );
   rig.insight( rig.et1, Reason::shut );
   EXPECT_EQ(
      json::parse( R"({"name":"et1","kind":"ethernet","units":["u1"],"profile":"fast","state":"under-maint",
         "in-bps":null,"out-bps":null,"samples":"1","consecutive-drained-samples":"4294967295","spike":true,
         "shut":true,"shut-problem":null,"link-state":"down","drift":"raised","start-time":"2023-11-14T23:12:20.000Z",
         "reason":{"code":"shut","since":"2023-11-14T23:12:50.000Z","rate-bps":null,"threshold-bps":100000.0,
            "quiet-seconds":21474836475.0,"load-interval-seconds":10.0,"eta-seconds":null,"shutdown-at":null,
            "unwatched-since":null,"trend":null,"text":"shut since 23:12"},
         "state-time":"2023-11-14T23:12:30.000Z","last-sample-time":"2023-11-14T23:13:18.000Z"})" ),
      get( "interfaces/et1" ) );
}

TEST_F( ControlApiTest, saysWhereverAShutLinkIsShownThatItCouldNotBeShut ) {
   rig.record( rig.et1, Maintenance::monIntfStateUnderMaint );
   rig.cause->intfStatusIs( rig.et1, rig.now );
   rig.insight( rig.et1, Reason::shut );
   rig.units->status( "u1" )->stateIs( Maintenance::Unit::UnitState::maintenance );
   shutProblem = "Operation not permitted";
   const json shown = get( "interfaces/et1" );
   EXPECT_EQ( true, shown.at( "shut" ) );
   EXPECT_EQ( "Operation not permitted", shown.at( "shut-problem" ) );
   EXPECT_EQ( "shut", shown.at( "reason" ).at( "code" ) );
   EXPECT_EQ( "not shut: Operation not permitted", shown.at( "reason" ).at( "text" ) );
   const json notShut = json::parse( R"([{"interface":"et1","problem":"Operation not permitted"}])" );
   EXPECT_EQ( notShut, get( "units/u1" ).at( "not-shut" ) );
   EXPECT_EQ( notShut, get( "units/u1/explain" ).at( "not-shut" ) );
   EXPECT_EQ( json::array(), get( "units/u2" ).at( "not-shut" ) );
   const std::string sentence = get( "units/u1" ).at( "sentence" );
   EXPECT_NE( std::string::npos, sentence.find( "; et1 could not be shut: Operation not permitted" ) )
      << sentence;
}

TEST_F( ControlApiTest, leavesNothingOutOfAnInterfaceWithoutARecord ) {
   EXPECT_EQ(
      json::parse( R"({"name":"et9","kind":"ethernet","units":[],"profile":null,"state":null,"in-bps":null,
         "out-bps":null,"samples":null,"consecutive-drained-samples":null,"spike":false,"shut":false,
         "shut-problem":null,"link-state":"up","drift":null,"reason":null,"start-time":null,"state-time":null,"last-sample-time":null})" ),
      get( "interfaces/et9" ) );
}

TEST_F( ControlApiTest, showsNoRatesBeforeTheFirstSample ) {
   rig.record( rig.et1, Maintenance::monIntfStateEnterMaint );
   const json shown = get( "interfaces/et1" );
   EXPECT_EQ( nullptr, shown.at( "in-bps" ) );
   EXPECT_EQ( nullptr, shown.at( "last-sample-time" ) );
   EXPECT_EQ( "0", shown.at( "samples" ) );
}

TEST_F( ControlApiTest, listsInterfacesOfAllUnitsOrOfOne ) {
   const auto names = [&]( const std::string & path ) {
      std::string result;
      for ( const json & intf : get( path ) )
         result += intf.at( "name" ).get< std::string >() + " ";
      return result;
   };
   EXPECT_EQ( "et1 et2 vlan10 ", names( "interfaces" ) );
   EXPECT_EQ( "et2 ", names( "interfaces?unit=u2" ) );
   EXPECT_EQ( 404, ask( "GET", "/api/v1/interfaces?unit=nobody" ) );
   EXPECT_EQ( "not-found \"nobody\"", refused() );
}

TEST_F( ControlApiTest, showsProfilesAsResolved ) {
   EXPECT_EQ(
      json::parse( R"([{"name":"fast","threshold-bps":100000.0,"load-interval-seconds":10,"shutdown":true,
         "shutdown-max-delay-seconds":300.0,"default":true},
         {"name":"watch","threshold-bps":1000000.0,"load-interval-seconds":30,"shutdown":false,
         "shutdown-max-delay-seconds":null,"default":false}])" ),
      get( "profiles" ) );
}

TEST_F( ControlApiTest, showsGroupsWithTheirProfileAlsoThoseOfNoUnit ) {
   EXPECT_EQ(
      json::parse( R"([{"name":"shared","profile":null,"interfaces":["et2"],"units":["u2"]},
         {"name":"tenants","profile":"watch","interfaces":["vlan10"],"units":["u1"]},
         {"name":"unused","profile":"fast","interfaces":[],"units":[]},
         {"name":"uplinks","profile":null,"interfaces":["et1","et2"],"units":["u1"]}])" ),
      get( "groups" ) );
}

TEST_F( ControlApiTest, showsTheCountersOfThePluginIfThereIsOne ) {
   EXPECT_EQ( json::object(), get( "counters" ) );
   counted = Vel::make< Counted >();
   counted->numFooBarInc( 4 );
   EXPECT_EQ( json::parse( R"({"num-foo-bar":4,"num-other":0})" ), get( "counters" ) );
}

TEST_F( ControlApiTest, showsTheAgent ) {
   facts.version = "1.2.3";
   facts.switchKind = "simulated";
   facts.switchOverruns = 3;
   facts.configurationFile = "/etc/x.yaml";
   facts.fastLog = "/run/fastlog";
   facts.pluginName = "Plugin";
   facts.started = rig.now - 5;
   json expected = json::parse( R"({"version":"1.2.3","started":"2023-11-14T23:13:15.000Z","state":"ok",
      "problems":[],"plugin":{"name":"Plugin","state":"loaded","text":null},
      "configuration":{"file":"/etc/x.yaml","state":"accepted","errors":[]},"switch":"simulated","switch-overruns":3,
      "clock":"2023-11-14T23:13:20.000Z","fast-log":"/run/fastlog","hooks":[],"restarts":null,
      "restart-reason":null})" );
   expected["pid"] = getpid();
   EXPECT_EQ( expected, get( "agent" ) );
   facts.restarts = 2;
   facts.restartReason = "ended by signal 6 (Aborted)";
   expected["restarts"] = 2;
   expected["restart-reason"] = facts.restartReason;
   EXPECT_EQ( expected, get( "agent" ) );
}

TEST_F( ControlApiTest, showsWhatIsWrongWithTheAgent ) {
   facts.pluginProblem = "no such file";
   facts.configurationErrors = { "x.yaml:1:2: error: bad" };
   facts.problems = { { "store", rig.now - 1, "disk full" } };
   const json agent = get( "agent" );
   EXPECT_EQ( "degraded", agent.at( "state" ) );
   EXPECT_EQ(
      json::parse( R"([{"what":"store","since":"2023-11-14T23:13:19.000Z","text":"disk full"}])" ),
      agent.at( "problems" ) );
   EXPECT_EQ( "missing", agent.at( "plugin" ).at( "state" ) );
   EXPECT_EQ( "no such file", agent.at( "plugin" ).at( "text" ) );
   EXPECT_EQ( "last-accepted", agent.at( "configuration" ).at( "state" ) );
   EXPECT_EQ( json( facts.configurationErrors ), agent.at( "configuration" ).at( "errors" ) );
}

TEST_F( ControlApiTest, tellsItsHealthToWhoeverWatches ) {
   for ( const char * path : { "/healthz", "/api/v1/healthz" } ) {
      facts.problems.clear();
      EXPECT_EQ( 200, ask( "GET", path ) );
      EXPECT_EQ( json::parse( R"({"status":"ok","problems":[]})" ), body() );
      facts.problems = { { "store", 0, "disk full" } };
      EXPECT_EQ( 503, ask( "GET", path ) );
      EXPECT_EQ(
         json::parse(
            R"({"status":"degraded","problems":[{"what":"store","since":null,"text":"disk full"}]})" ),
         body() );
   }
}

TEST_F( ControlApiTest, givesTheDiagnosticTextAsText ) {
   EXPECT_EQ( 200, ask( "GET", "/api/v1/dump" ) );
   EXPECT_EQ( "diagnostic\ntext\n", reply.body );
   EXPECT_EQ( "text/plain; charset=utf-8", reply.contentType );
}

TEST_F( ControlApiTest, showsNamesThatNeedEscaping ) {
   const std::string name = "a\"b\\c\n\xff";
   rig.units->statusIs( name )->stateIs( UnitState::normal );
   EXPECT_EQ( "a\"b\\c\n\xEF\xBF\xBD", get( "units/" + name ).at( "name" ) );
   EXPECT_EQ( 404, ask( "GET", "/api/v1/units/\"\xff" ) );
   EXPECT_EQ( "\"\xEF\xBF\xBD", body().at( "error" ).at( "where" ) );
}

// ---- explain

TEST_F( ControlApiTest, explainsWhatAUnitWaitsFor ) {
   rig.unit( "u1" ).stateIs( UnitState::enterInProgress );
   rig.sample( rig.record( rig.et1, Maintenance::monIntfStateEnterMaint ), 5e4, 0, 1 );
   rig.record( rig.et2, Maintenance::monIntfStateUnderMaint );
   progress = { "drainwatch", 2, 1, std::nullopt, 10, "" };
   rig.insight( rig.et1, Reason::timing ).etaIs( rig.now + 3 );
   EXPECT_EQ(
      json::parse( R"({"unit":"u1","state":"entering","stage":"drainwatch","settle-remaining-seconds":null,
         "stuck":false,"stuck-reason":null,"not-shut":[],"reason":null,"stages":[],"ending-earlier-command":false,
         "waiting":[{"interface":"et1","state":"enter-maint","profile":"fast","in-bps":50000.0,"out-bps":0.0,
            "threshold-bps":100000.0,"load-interval-seconds":10,"quiet-seconds":5.0,"samples":"1",
            "next-sample":"2023-11-14T23:13:23.000Z","shutdown-at":"2023-11-14T23:17:20.000Z",
            "reason":"50.0 kbps, quiet for 5s of 10s",
            "insight":{"code":"timing","since":"2023-11-14T23:12:50.000Z","rate-bps":50000.0,
               "threshold-bps":100000.0,"quiet-seconds":5.0,"load-interval-seconds":10.0,"eta-seconds":3.0,
               "shutdown-at":"2023-11-14T23:17:20.000Z","unwatched-since":null,"trend":null,
               "text":"5 of 10 s quiet"}}],
         "skipped":[{"interface":"vlan10","reason":"is not monitored yet"},
            {"interface":"missing","reason":"does not exist"},
            {"interface":"vlan 11","reason":"does not exist"}]})" ),
      get( "units/u1/explain" ) );
}

TEST_F( ControlApiTest, explainsACommandThatRuns ) {
   rig.unit( "u1" ).stateIs( UnitState::enterInProgress );
   rig.runs->unitRun( "u1" )->reasonIs( "upgrade" );
   progress = { "steer", 0, 0, std::nullopt, 10, "" };
   progress.stages = {
      { "steer", "running", rig.now - 9, "/bin/steer enter", 60, "", false, false },
      { "drainwatch", "pending", 0, "", 0, "", false, false } };
   const json explained = get( "units/u1/explain" );
   EXPECT_EQ( "upgrade", explained.at( "reason" ) );
   EXPECT_EQ( "2023-11-14T23:14:11.000Z", explained.at( "stages" )[0].at( "deadline" ) );
   EXPECT_EQ( false, explained.at( "ending-earlier-command" ) );
   progress.stages[0].waitsFor = "one of 64 commands to end";
   EXPECT_EQ( json(), get( "units/u1/explain" ).at( "stages" )[0].at( "deadline" ) );
   progress.stages[0].waitsFor = "";
   // It is not the watching that is stuck.
   now = rig.now + 50;
   EXPECT_EQ( false, get( "units/u1/explain" ).at( "stuck" ) );
   progress.stage = "drainwatch";
   progress.stages[0].state = "complete";
   progress.stages[1].since = now - 14;
   EXPECT_EQ( false, get( "units/u1/explain" ).at( "stuck" ) );
   now += 1;
   EXPECT_EQ( true, get( "units/u1/explain" ).at( "stuck" ) );
   progress.stage = "";
   progress.busy = true;
   EXPECT_EQ( true, get( "units/u1/explain" ).at( "ending-earlier-command" ) );
}

TEST_F( ControlApiTest, explainsThatAUnitSettles ) {
   rig.unit( "u1" ).stateIs( UnitState::enterInProgress );
   progress = { "drainwatch", 1, 1, rig.now - 4, 10, "" };
   EXPECT_EQ( 6.0, get( "units/u1/explain" ).at( "settle-remaining-seconds" ) );
   now += 60;
   EXPECT_EQ( 0.0, get( "units/u1/explain" ).at( "settle-remaining-seconds" ) );
   EXPECT_EQ( false, get( "units/u1/explain" ).at( "stuck" ) );
}

TEST_F( ControlApiTest, callsAUnitStuckAfter15SecondsOfEqualCounts ) {
   rig.unit( "u1" ).stateIs( UnitState::enterInProgress );
   rig.record( rig.et1, Maintenance::monIntfStateUnderMaint ).stateTimeIs( rig.now );
   progress = { "drainwatch", 1, 1, std::nullopt, 10, "" };
   now = rig.now + 14.9;
   EXPECT_EQ( false, get( "units/u1/explain" ).at( "stuck" ) );
   now = rig.now + 15;
   EXPECT_EQ( true, get( "units/u1/explain" ).at( "stuck" ) );
   EXPECT_EQ(
      "all interfaces have drained, but stage drainwatch has not been reported complete",
      get( "units/u1/explain" ).at( "stuck-reason" ) );
   progress.blocked = "the agent is degraded: disk full";
   EXPECT_EQ( progress.blocked, get( "units/u1/explain" ).at( "stuck-reason" ) );
   progress.drained = 0;
   EXPECT_EQ( false, get( "units/u1/explain" ).at( "stuck" ) );
}

TEST_F( ControlApiTest, explainsThatAUnitWaitsForWhatNobodyCanCount ) {
   rig.unit( "u1" ).stateIs( UnitState::enterInProgress );
   rig.interfaces->intfStatusDel( rig.vlan10 );
   uncountedVlan = "bridge \"br0\" does not filter VLANs";
   progress = { "drainwatch", 0, 0, std::nullopt, 10, "" };
   const json explained = get( "units/u1/explain" );
   EXPECT_EQ(
      json::parse( R"([{"interface":"vlan10","state":null,"profile":"watch","in-bps":null,"out-bps":null,
         "threshold-bps":null,"load-interval-seconds":null,"quiet-seconds":null,"samples":null,
         "next-sample":null,"shutdown-at":null,"insight":null,
         "reason":"is up, and nobody can say what it carries: bridge \"br0\" does not filter VLANs"}])" ),
      explained.at( "waiting" ) );
   EXPECT_EQ( true, explained.at( "stuck" ) );
   EXPECT_EQ(
      "vlan10 is up, and nobody can say what it carries: bridge \"br0\" does not filter VLANs",
      explained.at( "stuck-reason" ) );
   for ( const json & skipped : explained.at( "skipped" ) )
      EXPECT_NE( "vlan10", skipped.at( "interface" ) );
   rig.unit( "u1" ).stateIs( UnitState::normal );
   EXPECT_EQ( json::array(), get( "units/u1/explain" ).at( "waiting" ) );
}

TEST_F( ControlApiTest, waitsForNothingInAUnitThatIsNormal ) {
   // Another unit has it monitored.
   rig.record( rig.et2, Maintenance::monIntfStateEnterMaint );
   const json explained = get( "units/u2/explain" );
   EXPECT_EQ( json::array(), explained.at( "waiting" ) );
   EXPECT_EQ( false, explained.at( "stuck" ) );
}

} // namespace

} // namespace Agent
