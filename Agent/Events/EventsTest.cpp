#include "Agent/Events/EventsTest.h"

#include <nlohmann/json.hpp>

namespace Agent {

json EventsTest::event( Vel::U64 sequence ) const {
   const Event * const found = log->event( sequence );
   return found ? json::parse( found->json ) : json();
}

json EventsTest::last() const { return event( log->last() ); }

Lines EventsTest::told() {
   Lines result;
   while ( seen < log->last() ) {
      const json e = event( ++seen );
      result.push_back(
         e.at( "type" ).get< std::string >() + " " + e.at( "subject" ).get< std::string >() + " " +
         e.at( "what" ).get< std::string >() );
      EXPECT_EQ( seen, e.at( "sequence" ) );
      EXPECT_EQ( stringValue( log->event( seen )->type ), e.at( "type" ) );
      EXPECT_FALSE( e.at( "text" ).get< std::string >().empty() );
   }
   return result;
}

EventsTest::Told EventsTest::toldOf( const std::string & word ) {
   Told result;
   while ( seen < log->last() )
      if ( const json e = event( ++seen ); e.at( "what" ).get< std::string >().starts_with( word ) ) {
         ++result.events;
         result.changes += e.value( "changes", 1u );
      }
   return result;
}

namespace {

using Maintenance::Unit::UnitState;

// ---- the agent

TEST_F( EventsTest, theFirstEventIsTheStartAndWhatWasFoundIsNone ) {
   EXPECT_EQ( 1u, log->last() );
   EXPECT_EQ( "started", event( 1 ).at( "what" ) );
   EXPECT_EQ( "1.2.3", event( 1 ).at( "version" ) );
   EXPECT_EQ( false, event( 1 ).at( "killed" ) );
   EXPECT_EQ( "2023-11-14T23:13:20.000Z", event( 1 ).at( "time" ) );
   EXPECT_EQ( json::array(), event( 1 ).at( "units" ) );
}

TEST_F( EventsTest, anAgentThatWasKilledIsToldOfByTheNext ) {
   start();
   EXPECT_EQ( Lines{ "agent maintd started" }, told() );
   EXPECT_EQ( true, last().at( "killed" ) );
   events->stopped();
   events->stopped();
   EXPECT_EQ( Lines{ "agent maintd stopped" }, told() );
   start();
   EXPECT_EQ( Lines{ "agent maintd started" }, told() );
   EXPECT_EQ( false, last().at( "killed" ) );
}

TEST_F( EventsTest, whatHasChangedWhileNoAgentRanIsToldByTheNext ) {
   events.reset();
   linkIs( et1, false );
   profile( "fast", 200 );
   enter();
   start();
   EXPECT_EQ(
      ( Lines{
         "agent maintd started", "profile fast edited", "unit u1 state", "unit u1 stage",
         "interface et1 link" } ),
      told() );
}

TEST_F( EventsTest, problemsAreToldWhenTheyBeginAndEnd ) {
   clock->advance( Events::problemsFound );
   problems = { { "store", "no space" } };
   clock->advance( 1 );
   EXPECT_EQ( Lines{ "agent maintd problem-begin" }, told() );
   EXPECT_EQ( "store", last().at( "problem" ) );
   clock->advance( 5 );
   EXPECT_EQ( Lines(), told() );
   problems.clear();
   clock->advance( 1 );
   EXPECT_EQ( Lines{ "agent maintd problem-end" }, told() );
}

TEST_F( EventsTest, theLogSaysOnceThatAProblemBeginsIsAnotherOneAndEnds ) {
   clock->advance( Events::problemsFound );
   problems = { { "store", "no space" } };
   clock->advance( 60 );
   problems = { { "store", "no folder" } };
   clock->advance( 60 );
   problems.clear();
   clock->advance( 60 );
   EXPECT_EQ(
      ( Lines{
         "error a problem with \"store\": no space", "error a problem with \"store\": no folder",
         "info the problem with \"store\" is over" } ),
      noted );
}

TEST_F( EventsTest, theLogOfTheNextAgentHasAProblemThatWasToldBefore ) {
   clock->advance( Events::problemsFound );
   problems = { { "samples", "no space" } };
   clock->advance( 1 );
   told();
   start();
   clock->advance( 60 );
   EXPECT_EQ( Lines{ "agent maintd started" }, told() );
   EXPECT_EQ( Lines( 2, "error a problem with \"samples\": no space" ), noted );
}

TEST_F( EventsTest, aProblemThatTheNextAgentFindsAfterAWhileHasNeverBeenOver ) {
   problems = { { "samples", "no space" } };
   clock->advance( 1 );
   events.reset();
   problems.clear();
   told();
   start();
   clock->advance( 5 );
   problems = { { "samples", "no space" } };
   clock->advance( 60 );
   EXPECT_EQ( Lines{ "agent maintd started" }, told() );
   problems.clear();
   clock->advance( 1 );
   EXPECT_EQ( Lines{ "agent maintd problem-end" }, told() );
}

TEST_F( EventsTest, aProblemThatTheNextAgentDoesNotFindIsOver ) {
   problems = { { "samples", "no space" } };
   clock->advance( 1 );
   events.reset();
   problems.clear();
   told();
   start();
   clock->advance( Events::problemsFound );
   EXPECT_EQ( ( Lines{ "agent maintd started", "agent maintd problem-end" } ), told() );
}

TEST_F( EventsTest, configurationsThatAreTakenAndRefusedAreTold ) {
   events->configurationTaken( {} );
   EXPECT_EQ( Lines(), told() );
   events->configurationTaken( { "unit \"u2\" added", "settle 5s" } );
   EXPECT_EQ( Lines{ "agent maintd configuration-taken" }, told() );
   EXPECT_EQ( 2u, last().at( "changes" ).size() );
   events->configurationRefused( "maintd.yaml:1:2: error" );
   EXPECT_EQ( Lines{ "agent maintd configuration-refused" }, told() );
   EXPECT_EQ( "maintd.yaml:1:2: error", last().at( "error" ) );
}

// ---- units

TEST_F( EventsTest, aUnitIsToldOfOnItsWayInAndBack ) {
   enter();
   turn();
   EXPECT_EQ( ( Lines{ "unit u1 state", "unit u1 stage" } ), told() );
   const json state = event( 2 );
   EXPECT_EQ( "entering", state.at( "state" ) );
   EXPECT_EQ( "normal", state.at( "from" ) );
   EXPECT_EQ( 1, state.at( "generation" ) );
   EXPECT_EQ( "ann", state.at( "by" ) );
   EXPECT_EQ( json{ "u1" }, state.at( "units" ) );
   EXPECT_EQ( "u1 goes into maintenance, as ann has asked: optics", state.at( "text" ) );

   settling = true;
   turn();
   EXPECT_EQ( Lines{ "unit u1 settling" }, told() );
   settling = false;
   clock->advance( 2 );
   EXPECT_EQ( Lines{ "unit u1 settling-ended" }, told() );
   settling = true;
   clock->advance( 5 );
   settling = false;
   stage = "";
   units->status( "u1" )->stateIs( UnitState::maintenance );
   turn();
   EXPECT_EQ( ( Lines{ "unit u1 settling", "unit u1 state" } ), told() );
   EXPECT_EQ( "u1 is under maintenance", last().at( "text" ) );
}

TEST_F( EventsTest, whatAnEnterOverridesIsTold ) {
   runs->unitRun( "u1" )->overriddenIs( "last-path: no other way\ncapacity: too much" );
   enter();
   turn();
   EXPECT_EQ(
      "u1 goes into maintenance, as ann has asked: optics; forced, although last-path: no other way; "
      "capacity: too much",
      event( 2 ).at( "text" ) );
   EXPECT_EQ( ( json{ "last-path: no other way", "capacity: too much" } ), event( 2 ).at( "overridden" ) );
}

TEST_F( EventsTest, theLogSaysWhatIsDoneToUnitsAndLinks ) {
   join( et1 );
   join( et2 );
   turn();
   enter();
   record( et1, 0 );
   turn();
   cause->intfStatusIs( et1, 1 );
   cause->intfStatusIs( et2, 1 );
   turn();
   cause->intfStatusDel( et1 );
   units->status( "u1" )->stateIs( UnitState::maintenance );
   stage = "";
   turn();
   events->linksLate( "u1", { "et1" } );
   events->configurationTaken( { "settle 5s" } );
   EXPECT_EQ(
      ( Lines{
         "info u1 goes into maintenance, as ann has asked: optics", "info u1 is in stage drainwatch",
         "warning et1 is to be shut although it has not drained: its time is over",
         "info et2 is to be shut: it has drained", "info u1 is under maintenance", "info et1 is released",
         "warning u1 goes on with its way back, and not all of its links are back yet: et1",
         "info the configuration is taken: settle 5s" } ),
      deeds );
}

TEST_F( EventsTest, theLogWarnsOfWhatSomebodyShouldLookAt ) {
   enter();
   turn();
   auto & command = *commands->unitIs( "u1" )->stageIs( "bgp" );
   command.failureIs( "exit status 3" );
   command.sinceIs( 7 );
   command.stateIs( CommandState::failed );
   turn();
   units->status( "u1" )->stateIs( UnitState::maintenance );
   units->status( "u1" )->intfsViolatingTrafficThresholdIs( et1, true );
   turn();
   clock->advance( 5 );
   units->status( "u1" )->intfsViolatingTrafficThresholdDel( et1 );
   turn();
   clock->advance( 60 );
   deeds.erase( deeds.begin(), deeds.begin() + 2 );
   EXPECT_EQ(
      ( Lines{
         "warning stage bgp of u1 has failed: exit status 3", "info u1 is under maintenance",
         "warning u1 carries traffic although it is under maintenance, on et1",
         "info u1 carries no traffic above a threshold any more" } ),
      deeds );
}

TEST_F( EventsTest, aStageWhoseCommandFailsIsToldOnce ) {
   auto & command = *commands->unitIs( "u1" )->stageIs( "bgp" );
   command.stateIs( CommandState::running );
   turn();
   EXPECT_EQ( Lines(), told() );
   command.failureIs( "exit status 3" );
   command.sinceIs( 7 );
   command.stateIs( CommandState::failed );
   turn();
   turn();
   EXPECT_EQ( Lines{ "unit u1 stage-failed" }, told() );
   EXPECT_EQ( "bgp", last().at( "stage" ) );
   EXPECT_EQ( "exit status 3", last().at( "error" ) );
   start();
   EXPECT_EQ( Lines{ "agent maintd started" }, told() );
}

TEST_F( EventsTest, linksWithoutWhichAWayBackGoesOnAreNamed ) {
   events->linksLate( "u1", { "et1", "et2" } );
   EXPECT_EQ(
      "u1 goes on with its way back, and not all of its links are back yet: et1, et2", last().at( "text" ) );
   EXPECT_EQ( Lines{ "unit u1 links-late" }, told() );
   EXPECT_EQ( ( json{ "et1", "et2" } ), last().at( "interfaces" ) );
   std::set< std::string > many;
   for ( char letter = 'a'; letter < 'l'; ++letter )
      many.insert( std::string( 1, letter ) );
   events->linksLate( "u1", many );
   EXPECT_EQ(
      "u1 goes on with its way back, and not all of its links are back yet: a, b, c, d, e, f, g, h and 3 "
      "more",
      last().at( "text" ) );
   EXPECT_EQ( 11u, last().at( "interfaces" ).size() );
}

TEST_F( EventsTest, unitsThatComeAndGoWithAConfigurationAreTold ) {
   units->statusIs( "u2" )->stateIs( UnitState::normal );
   turn();
   EXPECT_EQ( Lines{ "unit u2 added" }, told() );
   units->statusDel( "u2" );
   turn();
   EXPECT_EQ( Lines{ "unit u2 removed" }, told() );
}

TEST_F( EventsTest, violationsAreToldOfTheUnitAndTheInterface ) {
   record( et1, 5e6 ).stateIs( Maintenance::monIntfStateUnderMaint );
   turn();
   told();
   auto & unit = *units->status( "u1" );
   unit.intfsViolatingTrafficThresholdIs( et1, true );
   unit.totalIntfTrafficViolationsIs( 1 );
   turn();
   EXPECT_EQ( ( Lines{ "unit u1 violations-begin", "interface et1 spike-begin" } ), told() );
   EXPECT_EQ( 5e6, last().at( "in-bps" ) );
   EXPECT_EQ( json{ "et1" }, event( log->last() - 1 ).at( "interfaces" ) );
   clock->advance( 10 );
   unit.intfsViolatingTrafficThresholdDel( et1 );
   turn();
   EXPECT_EQ( ( Lines{ "unit u1 violations-end", "interface et1 spike-end" } ), told() );
}

TEST_F( EventsTest, trafficThatComesBackIsOneChangeInHoweverManyUnits ) {
   groupToUnit->mappingIs( uplinks, "u2" );
   units->statusIs( "u2" )->stateIs( UnitState::maintenance );
   record( et1, 5e6 ).stateIs( Maintenance::monIntfStateUnderMaint );
   turn();
   told();
   units->status( "u1" )->intfsViolatingTrafficThresholdIs( et1, true );
   units->status( "u2" )->intfsViolatingTrafficThresholdIs( et1, true );
   turn();
   EXPECT_EQ( 3u, told().size() );
   EXPECT_EQ( "spike-begin", last().at( "what" ) );
   EXPECT_EQ( 1, last().at( "changes" ) );
}

// ---- interfaces

TEST_F( EventsTest, interfacesThatJoinAndLeaveAreTold ) {
   join( et3 );
   turn();
   EXPECT_EQ( Lines{ "interface et3 joined" }, told() );
   EXPECT_EQ( json{ "u1" }, last().at( "units" ) );
   clock->advance( 1 );
   leave( et3 );
   turn();
   EXPECT_EQ( "interface et3 left", told().back() );
   EXPECT_EQ( "et3 has left u1: it does not exist any more", last().at( "text" ) );
}

TEST_F( EventsTest, anInterfaceThatComesBackIsComparedWithNothingOfBefore ) {
   linkIs( et1, false );
   drift = "raised";
   events->driftChanged();
   turn();
   clock->advance( 1 );
   leave( et1 );
   turn();
   clock->advance( 1 );
   told();
   drift = "";
   join( et1 );
   events->driftChanged();
   clock->advance( 5 );
   EXPECT_EQ( Lines{ "interface et1 joined" }, told() );
   drift = "lowered";
   events->driftChanged();
   turn();
   EXPECT_EQ( Lines{ "interface et1 drift" }, told() );
   EXPECT_EQ( 1, last().at( "changes" ) );
}

TEST_F( EventsTest, linksThatNobodyHasConfiguredAreNotTold ) {
   linkIs( et3, true );
   linkIs( et3, false );
   turn();
   EXPECT_EQ( Lines(), told() );
}

TEST_F( EventsTest, statusesThatAreThereAnewAfterARestartAreNoChange ) {
   events.reset();
   statuses->intfStatusDel( et1 );
   make();
   linkIs( et1, true );
   events->started( "1.2.3" );
   turn();
   clock->advance( 60 );
   EXPECT_EQ( Lines{ "agent maintd started" }, told() );
   linkIs( et1, false );
   turn();
   EXPECT_EQ( Lines{ "interface et1 link" }, told() );
   EXPECT_EQ( 1, last().at( "changes" ) );
   EXPECT_EQ( "et1 is down", last().at( "text" ) );
}

TEST_F( EventsTest, theRecordAndTheReasonAreToldWithNumbers ) {
   record( et1, 812000 ).stateIs( Maintenance::monIntfStateEnterMaint );
   insights->intfIs( et1 )->reasonIs( Reason::stalled );
   turn();
   EXPECT_EQ( ( Lines{ "interface et1 state", "interface et1 reason" } ), told() );
   EXPECT_EQ( "stalled", last().at( "reason" ) );
   EXPECT_EQ( nullptr, last().at( "from" ) );
   EXPECT_EQ( 812000, last().at( "in-bps" ) );
   EXPECT_EQ( 100000, last().at( "threshold-bps" ) );
   clock->advance( 2 );
   records->monIntfStatusDel( et1 );
   insights->intfDel( et1 );
   turn();
   EXPECT_EQ( Lines{ "interface et1 state" }, told() );
   EXPECT_EQ( nullptr, last().at( "state" ) );
}

TEST_F( EventsTest, anInterfaceWithoutARateIsNotSaidToBeAboveItsThreshold ) {
   records->monIntfStatusIs( et1, "fast", clock->currentTime() )
      ->stateIs( Maintenance::monIntfStateEnterMaint );
   insights->intfIs( et1 )->reasonIs( Reason::aboveThreshold );
   turn();
   EXPECT_EQ( "above-threshold", last().at( "reason" ) );
   EXPECT_EQ( "et1 waits for its first rate", last().at( "text" ) );
}

TEST_F( EventsTest, whatIsLetGoOfIsNotToldToHaveDrainedJustThen ) {
   record( et1, 0 ).stateIs( Maintenance::monIntfStateUnderMaint );
   insights->intfIs( et1 )->reasonIs( Reason::drained );
   turn();
   EXPECT_EQ( "et1 has drained", last().at( "text" ) );
   clock->advance( 2 );
   insights->intfIs( et1 )->reasonIs( Reason::shut );
   turn();
   EXPECT_EQ( "et1 is to be set down", last().at( "text" ) );
   clock->advance( 2 );
   insights->intfIs( et1 )->reasonIs( Reason::drained );
   turn();
   EXPECT_EQ( "et1 is not set down any more, and still counts as drained", last().at( "text" ) );
   EXPECT_EQ( "shut", last().at( "from" ) );
}

TEST_F( EventsTest, aShutdownSaysWhetherItWasForced ) {
   record( et1, 5e6 );
   cause->intfStatusIs( et1, 1 );
   turn();
   EXPECT_EQ( ( Lines{ "interface et1 state", "interface et1 shut" } ), told() );
   EXPECT_EQ( true, last().at( "forced" ) );
   cause->intfStatusDel( et1 );
   turn();
   EXPECT_EQ( Lines{ "interface et1 released" }, told() );
   record( et2, 0 );
   cause->intfStatusIs( et2, 1 );
   turn();
   EXPECT_EQ( false, last().at( "forced" ) );
}

TEST_F( EventsTest, aStateSaysWhetherItCameByAShutdownThatWasForced ) {
   record( et1, 5e6 ).stateIs( Maintenance::monIntfStateUnderMaint );
   cause->intfStatusIs( et1, 1 );
   record( et2, 0 ).stateIs( Maintenance::monIntfStateUnderMaint );
   cause->intfStatusIs( et2, 1 );
   turn();
   std::map< std::string, bool > forced;
   for ( Vel::U64 sequence = log->first(); sequence <= log->last(); ++sequence )
      if ( const json each = event( sequence );
           each.at( "what" ) == "state" && each.at( "type" ) == "interface" )
         forced[each.at( "subject" )] = each.at( "forced" );
   EXPECT_EQ( ( std::map< std::string, bool >{ { "et1", true }, { "et2", false } } ), forced );
}

TEST_F( EventsTest, driftIsTold ) {
   drift = "lowered";
   events->driftChanged();
   turn();
   EXPECT_EQ( Lines{ "interface et1 drift" }, told() );
   EXPECT_EQ( "lowered", last().at( "drift" ) );
   clock->advance( 1 );
   drift = "";
   events->driftChanged();
   turn();
   EXPECT_EQ( nullptr, last().at( "drift" ) );
}

// ---- profiles

TEST_F( EventsTest, profilesThatAConfigurationChangesAreTold ) {
   profile( "slow", 1000 );
   defaultProfile->profileNameIs( "slow" );
   profile( "fast", 50 );
   events->configurationTaken( { "something" } );
   turn();
   EXPECT_EQ(
      ( Lines{
         "agent maintd configuration-taken", "profile fast edited", "profile slow added",
         "profile slow default", "profile et1 selected", "profile et2 selected" } ),
      told() );
   EXPECT_EQ( "slow", last().at( "profile" ) );
   EXPECT_EQ( "fast", last().at( "from" ) );
   EXPECT_EQ( 50000, event( log->last() - 4 ).at( "threshold-bps" ) );
   profiles->statusDel( "fast" );
   events->configurationTaken( { "something" } );
   turn();
   EXPECT_EQ( "profile fast removed", told().back() );
}

// ---- the log

TEST_F( EventsTest, theLogKeepsTheLastWithoutGapsAndNeverCountsBack ) {
   for ( int i = 0; i < 5000; ++i )
      events->configurationRefused( std::to_string( i ) );
   EXPECT_EQ( 5001u, log->last() );
   EXPECT_EQ( EventLog::kept, log->slots() );
   EXPECT_EQ( 5001u - EventLog::kept + 1, log->first() );
   for ( Vel::U64 sequence = log->first(); sequence <= log->last(); ++sequence )
      ASSERT_EQ( sequence, event( sequence ).at( "sequence" ) );
   EXPECT_EQ( nullptr, log->event( log->first() - 1 ) );
   start();
   EXPECT_EQ( 5002u, log->last() );
}

TEST_F( EventsTest, textsOfOthersCannotBreakALine ) {
   events->configurationRefused( "a\nb\r\n\"c\" \xff" );
   EXPECT_EQ( std::string::npos, log->event( log->last() )->json.find( '\n' ) );
   EXPECT_EQ( "a\nb\r\n\"c\" \xef\xbf\xbd", last().at( "error" ) );
}

} // namespace

} // namespace Agent
