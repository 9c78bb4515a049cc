#include "Agent/Control/ControlApiRigTest.h"
#include "Agent/Control/Exposition.h"

#include <limits>
#include <set>
#include <sstream>

namespace Agent {

namespace {

using Maintenance::Unit::UnitState;

class MetricsTest : public ControlApiRig {
 protected:
   /// The samples, one a line, of the metrics whose names begin so.
   std::string samples( const std::string & beginning ) {
      EXPECT_EQ( 200, ask( "GET", "/metrics" ) );
      std::istringstream lines( reply.body );
      std::string result;
      for ( std::string line; std::getline( lines, line ); )
         if ( line.rfind( beginning, 0 ) == 0 )
            result += line + "\n";
      return result;
   }
   /// The names of all metrics that have samples.
   std::multiset< std::string > told( const std::string & what ) {
      samples( "" );
      std::istringstream lines( reply.body );
      std::multiset< std::string > result;
      std::string hash, word, name, rest;
      for ( std::string line; std::getline( lines, line ); ) {
         std::istringstream words( line );
         if ( words >> hash >> word >> name; hash == "#" && word == what )
            result.insert( name );
      }
      return result;
   }
   /// One unit in the middle of everything.
   void everything() {
      rig.unit( "u1" ).stateIs( UnitState::enterInProgress );
      rig.runs->unitRun( "u1" )->deadlineIs( now - 1 );
      UnitTimes & times = *rig.times->unitIs( "u1" );
      times.deadlineIs( now - 2 );
      times.overrunIs( now - 1 );
      times.revertAtIs( now + 60 );
      progress = { "drainwatch", 3, 2, now - 1, 10, "" };
      progress.stages = { { "steer", "failed", now - 9, "/bin/a", 60, "no", true, false } };
      auto & record = rig.record( rig.et2, Maintenance::monIntfStateEnterMaint );
      rig.sample( record, 800, 1600, 3 );
      facts.problems = { { "store", now - 5, "full" } };
      facts.countersRead = now - 2;
      facts.started = now - 1000;
      counted = Vel::make< Counted >();
   }
};

TEST_F( MetricsTest, areAnsweredAtTheTopAndBelowTheRootInTheirOwnForm ) {
   EXPECT_EQ( 200, ask( "GET", "/metrics" ) );
   EXPECT_EQ( Exposition::contentType, reply.contentType );
   const std::string top = reply.body;
   EXPECT_EQ( 200, ask( "GET", "/api/v1/metrics" ) );
   EXPECT_EQ( top, reply.body );
   EXPECT_EQ( 404, ask( "GET", "/units" ) );
   EXPECT_EQ( 405, ask( "POST", "/metrics" ) );
   local = false;
   EXPECT_EQ( 200, ask( "GET", "/metrics" ) );
}

TEST_F( MetricsTest, tellHelpAndTypeOfEachOnce ) {
   everything();
   const auto names = told( "HELP" );
   EXPECT_EQ( names, told( "TYPE" ) );
   for ( const std::string & name : names ) {
      SCOPED_TRACE( name );
      EXPECT_EQ( 1u, names.count( name ) );
      EXPECT_EQ( 0u, name.find( "maint_" ) );
   }
}

TEST_F( MetricsTest, haveASampleForEachStateOfAUnit ) {
   rig.unit( "u1" ).stateIs( UnitState::maintenance );
   EXPECT_EQ(
      "maint_unit_state{unit=\"u1\",state=\"normal\"} 0\n"
      "maint_unit_state{unit=\"u1\",state=\"entering\"} 0\n"
      "maint_unit_state{unit=\"u1\",state=\"maintenance\"} 1\n"
      "maint_unit_state{unit=\"u1\",state=\"exiting\"} 0\n"
      "maint_unit_state{unit=\"u2\",state=\"normal\"} 1\n"
      "maint_unit_state{unit=\"u2\",state=\"entering\"} 0\n"
      "maint_unit_state{unit=\"u2\",state=\"maintenance\"} 0\n"
      "maint_unit_state{unit=\"u2\",state=\"exiting\"} 0\n",
      samples( "maint_unit_state{" ) );
   rig.unit( "u1" ).stateIs( UnitState::none );
   EXPECT_NE( "", samples( "maint_unit_state{unit=\"u1\",state=\"normal\"} 1" ) );
}

TEST_F( MetricsTest, tellTheProgressOfAUnit ) {
   everything();
   EXPECT_EQ( "maint_unit_interfaces{unit=\"u1\"} 3\n", samples( "maint_unit_interfaces{unit=\"u1\"}" ) );
   EXPECT_EQ(
      "maint_unit_monitored_interfaces{unit=\"u1\"} 3\nmaint_unit_monitored_interfaces{unit=\"u2\"} 0\n",
      samples( "maint_unit_monitored_interfaces{" ) );
   EXPECT_EQ(
      "maint_unit_drained_interfaces{unit=\"u1\"} 2\nmaint_unit_drained_interfaces{unit=\"u2\"} 0\n",
      samples( "maint_unit_drained_interfaces{" ) );
   EXPECT_EQ(
      "maint_unit_settling{unit=\"u1\"} 1\nmaint_unit_settling{unit=\"u2\"} 0\n",
      samples( "maint_unit_settling{" ) );
   EXPECT_EQ(
      "maint_unit_overdue{unit=\"u1\"} 1\nmaint_unit_overdue{unit=\"u2\"} 0\n",
      samples( "maint_unit_overdue{" ) );
   EXPECT_EQ(
      "maint_unit_overrun{unit=\"u1\"} 1\nmaint_unit_overrun{unit=\"u2\"} 0\n",
      samples( "maint_unit_overrun{" ) );
   EXPECT_EQ(
      "maint_unit_deadline_timestamp_seconds{unit=\"u1\"} 1700003598\n",
      samples( "maint_unit_deadline_timestamp_seconds{" ) );
   EXPECT_EQ(
      "maint_unit_revert_timestamp_seconds{unit=\"u1\"} 1700003660\n",
      samples( "maint_unit_revert_timestamp_seconds{" ) );
   EXPECT_EQ(
      "maint_unit_stage_state{unit=\"u1\",name=\"steer\",state=\"failed\"} 1\n",
      samples( "maint_unit_stage_state" ) );
   EXPECT_EQ(
      "maint_unit_failed_stages{unit=\"u1\"} 1\nmaint_unit_failed_stages{unit=\"u2\"} 0\n",
      samples( "maint_unit_failed_stages" ) );
}

TEST_F( MetricsTest, tellTimesAsTheWorldOutsideHasThem ) {
   everything();
   // Since 100 seconds ago; the world is an hour ahead.
   EXPECT_EQ(
      "maint_unit_state_timestamp_seconds{unit=\"u1\"} 1700003500\n",
      samples( "maint_unit_state_timestamp_seconds{unit=\"u1\"}" ) );
   EXPECT_EQ( "maint_agent_clock_timestamp_seconds 1700003600\n", samples( "maint_agent_clock" ) );
   EXPECT_EQ( "maint_agent_start_timestamp_seconds 1700002600\n", samples( "maint_agent_start" ) );
   EXPECT_EQ( "maint_counters_read_timestamp_seconds 1700003598\n", samples( "maint_counters_read" ) );
}

TEST_F( MetricsTest, haveNoSampleForATimeThatIsNotKnown ) {
   rig.runs->unitRunDel( "u2" );
   EXPECT_EQ( "", samples( "maint_unit_state_timestamp_seconds{unit=\"u2\"}" ) );
   EXPECT_EQ( "", samples( "maint_counters_read" ) );
   EXPECT_EQ( 1u, told( "HELP" ).count( "maint_counters_read_timestamp_seconds" ) );
}

TEST_F( MetricsTest, tellTheTrafficOfAUnitInBytes ) {
   auto & unit = rig.unit( "u1" );
   unit.aggTrafficRateIs( { 2000, 1500, now } );
   unit.intfsViolatingTrafficThresholdIs( rig.et2, true );
   unit.totalIntfTrafficViolationsIs( 3 );
   EXPECT_EQ(
      "maint_unit_rate_bytes_per_second{unit=\"u1\",direction=\"in\"} 187.5\n"
      "maint_unit_rate_bytes_per_second{unit=\"u1\",direction=\"out\"} 250\n",
      samples( "maint_unit_rate_bytes_per_second{unit=\"u1\"" ) );
   EXPECT_EQ(
      "maint_unit_violating_interfaces{unit=\"u1\"} 1\n",
      samples( "maint_unit_violating_interfaces{unit=\"u1\"" ) );
   EXPECT_EQ(
      "maint_unit_violations_total{unit=\"u1\"} 3\n", samples( "maint_unit_violations_total{unit=\"u1\"" ) );
}

TEST_F( MetricsTest, tellWhichInterfaceBelongsToWhichUnit ) {
   EXPECT_EQ(
      "maint_unit_member{unit=\"u1\",interface=\"et1\"} 1\n"
      "maint_unit_member{unit=\"u1\",interface=\"et2\"} 1\n"
      "maint_unit_member{unit=\"u1\",interface=\"vlan10\"} 1\n"
      "maint_unit_member{unit=\"u2\",interface=\"et2\"} 1\n",
      samples( "maint_unit_member{" ) );
}

TEST_F( MetricsTest, tellOfAnInterfaceOnlyTheStateItIsIn ) {
   everything();
   rig.record( rig.et1, Maintenance::monIntfStateUnderMaint ).spikeUnderMaintIs( true );
   EXPECT_EQ(
      "maint_interface_state{interface=\"et1\",state=\"under-maint\"} 1\n"
      "maint_interface_state{interface=\"et2\",state=\"enter-maint\"} 1\n",
      samples( "maint_interface_state{" ) );
   EXPECT_EQ(
      "maint_interface_spike{interface=\"et1\"} 1\n"
      "maint_interface_spike{interface=\"et2\"} 0\n"
      "maint_interface_spike{interface=\"vlan10\"} 0\n",
      samples( "maint_interface_spike{" ) );
}

TEST_F( MetricsTest, tellTheRatesOfAnInterfaceThatHasBeenSampled ) {
   everything();
   rig.record( rig.et1, Maintenance::monIntfStateEnterMaint );
   EXPECT_EQ(
      "maint_interface_rate_bytes_per_second{interface=\"et2\",direction=\"in\"} 100\n"
      "maint_interface_rate_bytes_per_second{interface=\"et2\",direction=\"out\"} 200\n",
      samples( "maint_interface_rate_bytes_per_second{" ) );
   EXPECT_EQ(
      "maint_interface_quiet_seconds{interface=\"et1\"} 0\nmaint_interface_quiet_seconds{interface=\"et2\"} "
      "15\n",
      samples( "maint_interface_quiet_seconds{" ) );
   rig.record( rig.et1, Maintenance::monIntfStateUnderMaint );
   EXPECT_EQ(
      "maint_interface_quiet_seconds{interface=\"et2\"} 15\n", samples( "maint_interface_quiet_seconds{" ) )
      << "of one that has drained the record keeps how it did";
   EXPECT_EQ(
      "maint_interface_samples_total{interface=\"et1\"} 0\nmaint_interface_samples_total{interface=\"et2\"} "
      "1\n",
      samples( "maint_interface_samples_total{" ) );
   rig.sample( *rig.records->monIntfStatus( rig.et2 ), std::numeric_limits< double >::quiet_NaN(), 80, 0 );
   EXPECT_EQ(
      "maint_interface_rate_bytes_per_second{interface=\"et2\",direction=\"out\"} 10\n",
      samples( "maint_interface_rate_bytes_per_second{" ) );
   now += 60;
   EXPECT_EQ( "", samples( "maint_interface_rate_bytes_per_second{" ) ) << "nobody knows what it carries now";
}

TEST_F( MetricsTest, tellWhyAnInterfaceIsNotDoneAndWhenItWillBe ) {
   everything();
   progress = { "drainwatch", 1, 0, std::nullopt, 10, "" };
   auto & insight = *rig.insights->intfIs( rig.et2 );
   insight.sinceIs( now - 20 );
   insight.etaIs( now + 40 );
   insight.reasonIs( Reason::timing );
   EXPECT_EQ(
      "maint_interface_reason{interface=\"et2\",reason=\"timing\"} 1\n",
      samples( "maint_interface_reason{" ) );
   EXPECT_EQ(
      "maint_interface_reason_timestamp_seconds{interface=\"et2\"} 1700003580\n",
      samples( "maint_interface_reason_timestamp_seconds{" ) );
   EXPECT_EQ(
      "maint_interface_eta_timestamp_seconds{interface=\"et2\"} 1700003640\n",
      samples( "maint_interface_eta_timestamp_seconds{" ) );
   // And it has to stay so for the settle time.
   EXPECT_EQ(
      "maint_unit_eta_timestamp_seconds{unit=\"u1\"} 1700003650\n",
      samples( "maint_unit_eta_timestamp_seconds{" ) );
   insight.etaIs( 0 );
   insight.reasonIs( Reason::stalled );
   EXPECT_EQ(
      "maint_interface_reason{interface=\"et2\",reason=\"stalled\"} 1\n",
      samples( "maint_interface_reason{" ) );
   EXPECT_EQ( "", samples( "maint_interface_eta_timestamp_seconds{" ) );
   EXPECT_EQ( "", samples( "maint_unit_eta_timestamp_seconds{" ) );
}

TEST_F( MetricsTest, countEventsAndWhatTheirReadersMiss ) {
   for ( unsigned i = 0; i < 3; ++i )
      rig.eventLog->add( { EventType::agent, "{}" } );
   EXPECT_EQ( "maint_events_total 0\n", samples( "maint_events_total" ) ) << "not committed yet";
   EXPECT_EQ( "maint_events_total 3\n", samples( "maint_events_total" ) );
   EXPECT_EQ( "maint_event_readers 0\n", samples( "maint_event_readers" ) );
   EXPECT_EQ( 200, ask( "GET", "/api/v1/events" ) );
   const auto reader = reply.stream;
   EXPECT_EQ( "maint_event_readers 1\n", samples( "maint_event_readers" ) );
   EXPECT_EQ( "maint_events_dropped_total 0\n", samples( "maint_events_dropped_total" ) );
   for ( unsigned i = 0; i < EventLog::kept + 5; ++i )
      rig.eventLog->add( { EventType::agent, "{}" } );
   commit();
   reader->next(); // how soon to come back
   reader->next(); // what it has missed
   EXPECT_EQ( "maint_events_dropped_total 5\n", samples( "maint_events_dropped_total" ) );
}

TEST_F( MetricsTest, tellTheProfileThatAnInterfaceRunsUnder ) {
   EXPECT_EQ(
      "maint_interface_threshold_bytes_per_second{interface=\"et1\"} 12500\n"
      "maint_interface_threshold_bytes_per_second{interface=\"et2\"} 12500\n"
      "maint_interface_threshold_bytes_per_second{interface=\"vlan10\"} 125000\n",
      samples( "maint_interface_threshold_bytes_per_second{" ) );
   EXPECT_EQ(
      "maint_interface_load_interval_seconds{interface=\"vlan10\"} 30\n",
      samples( "maint_interface_load_interval_seconds{interface=\"vlan10\"}" ) );
}

TEST_F( MetricsTest, tellWhenALinkWillBeShutInAnyCaseWhileItDrains ) {
   everything(); // et2 began 60 seconds ago
   rig.record( rig.et1, Maintenance::monIntfStateUnderMaint );
   rig.record( rig.vlan10, Maintenance::monIntfStateEnterMaint ); // its profile shuts nothing
   EXPECT_EQ(
      "maint_interface_forced_shutdown_timestamp_seconds{interface=\"et2\"} 1700003840\n",
      samples( "maint_interface_forced_shutdown_timestamp_seconds{" ) );
}

TEST_F( MetricsTest, tellWhatIsDoneToLinksAndWhatTheyAre ) {
   rig.cause->intfStatusIs( rig.et1, now );
   rig.journal->entryIs( rig.et2 );
   EXPECT_EQ(
      "maint_interface_shut{interface=\"et1\"} 1\nmaint_interface_shut{interface=\"et2\"} 0\n"
      "maint_interface_shut{interface=\"vlan10\"} 0\n",
      samples( "maint_interface_shut{" ) );
   EXPECT_EQ(
      "maint_interface_held{interface=\"et1\"} 0\nmaint_interface_held{interface=\"et2\"} 1\n"
      "maint_interface_held{interface=\"vlan10\"} 0\n",
      samples( "maint_interface_held{" ) );
   EXPECT_EQ(
      "maint_interface_up{interface=\"et1\"} 0\nmaint_interface_up{interface=\"et2\"} 1\n"
      "maint_interface_up{interface=\"vlan10\"} 1\n",
      samples( "maint_interface_up{" ) );
   EXPECT_EQ(
      "maint_interface_drift{interface=\"et1\",drift=\"raised\"} 1\n", samples( "maint_interface_drift{" ) );
}

TEST_F( MetricsTest, tellHowHooksFare ) {
   EXPECT_EQ( "", samples( "maint_hook" ) );
   facts.hooks = { { "desk", true, 5, 2, 3, 4, 17, "" }, { "pager", false, 1, 0, 0, 0, 0, "no" } };
   EXPECT_EQ(
      "maint_hook_runs_total{hook=\"desk\"} 5\n"
      "maint_hook_runs_total{hook=\"pager\"} 1\n"
      "maint_hook_failures_total{hook=\"desk\"} 2\n"
      "maint_hook_failures_total{hook=\"pager\"} 0\n"
      "maint_hook_missed_events_total{hook=\"desk\"} 3\n"
      "maint_hook_missed_events_total{hook=\"pager\"} 0\n"
      "maint_hook_waiting_events{hook=\"desk\"} 4\n"
      "maint_hook_waiting_events{hook=\"pager\"} 0\n"
      "maint_hook_running{hook=\"desk\"} 1\n"
      "maint_hook_running{hook=\"pager\"} 0\n",
      samples( "maint_hook" ) );
}

TEST_F( MetricsTest, countTheProblemsOfEachKind ) {
   EXPECT_EQ( "maint_agent_degraded 0\n", samples( "maint_agent_degraded" ) );
   EXPECT_EQ( "maint_store_ok 1\n", samples( "maint_store_ok" ) );
   facts.problems = {
      { "stage", now, "a" }, { "stage", now, "b" }, { "store", now, "full" }, { "new", now, "c" } };
   EXPECT_EQ( "maint_agent_degraded 1\n", samples( "maint_agent_degraded" ) );
   EXPECT_EQ( "maint_store_ok 0\n", samples( "maint_store_ok" ) );
   EXPECT_EQ(
      "maint_agent_problems{kind=\"configuration\"} 0\n"
      "maint_agent_problems{kind=\"counters\"} 0\n"
      "maint_agent_problems{kind=\"fastlog\"} 0\n"
      "maint_agent_problems{kind=\"history\"} 0\n"
      "maint_agent_problems{kind=\"hook\"} 0\n"
      "maint_agent_problems{kind=\"new\"} 1\n"
      "maint_agent_problems{kind=\"plug-in\"} 0\n"
      "maint_agent_problems{kind=\"samples\"} 0\n"
      "maint_agent_problems{kind=\"stage\"} 2\n"
      "maint_agent_problems{kind=\"store\"} 1\n"
      "maint_agent_problems{kind=\"switch\"} 0\n"
      "maint_agent_problems{kind=\"web\"} 0\n",
      samples( "maint_agent_problems{" ) );
}

TEST_F( MetricsTest, tellWhatTheAgentIsAndHowItsLoopDoes ) {
   facts.version = "1.2";
   facts.switchKind = "linux";
   facts.pluginName = "P";
   facts.pluginProblem = "gone";
   facts.configurationErrors = { "a" };
   facts.switchDegraded = true;
   facts.switchOverruns = 4;
   facts.turns = 1000;
   facts.turnSeconds = 2.5;
   facts.longestTurn = 0.125;
   EXPECT_EQ( "maint_build_info{version=\"1.2\"} 1\n", samples( "maint_build_info" ) );
   EXPECT_EQ( "maint_switch_info{kind=\"linux\"} 1\n", samples( "maint_switch_info" ) );
   EXPECT_EQ( "maint_plugin_loaded{plugin=\"P\"} 0\n", samples( "maint_plugin_loaded" ) );
   EXPECT_EQ( "maint_configuration_accepted 0\n", samples( "maint_configuration_accepted" ) );
   EXPECT_EQ( "maint_switch_degraded 1\n", samples( "maint_switch_degraded" ) );
   EXPECT_EQ( "maint_switch_overruns_total 4\n", samples( "maint_switch_overruns_total" ) );
   EXPECT_EQ(
      "maint_turns_total 1000\nmaint_turn_seconds_total 2.5\nmaint_turn_longest_seconds 0.125\n",
      samples( "maint_turn" ) );
}

TEST_F( MetricsTest, countTheRestartsOfAnAgentThatIsSupervised ) {
   EXPECT_EQ( "", samples( "maint_agent_restarts_total" ) );
   facts.restarts = 3;
   EXPECT_EQ( "maint_agent_restarts_total 3\n", samples( "maint_agent_restarts_total" ) );
}

TEST_F( MetricsTest, tellTheCountersOfAPlugInThatIsThere ) {
   EXPECT_EQ( "", samples( "maint_plugin_events_total" ) );
   counted = Vel::make< Counted >();
   counted->numFooBarIs( 3 );
   EXPECT_EQ(
      "maint_plugin_events_total{event=\"num-foo-bar\"} 3\nmaint_plugin_events_total{event=\"num-other\"} "
      "0\n",
      samples( "maint_plugin_events_total" ) );
}

} // namespace

} // namespace Agent
