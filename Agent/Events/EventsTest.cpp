#include "Agent/Events/Events.h"

#include "Platform/Cog/ManualClock.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace Agent {

namespace {

using Maintenance::GroupKey;
using Maintenance::GroupType;
using Maintenance::Profile::ProfileType;
using Maintenance::Unit::UnitState;
using nlohmann::json;
using Lines = std::vector< std::string >;

/// The keys of the log that a commit would have to write.
struct WrittenKeys {
   struct VelSlots final : Vel::ReactorTo< WrittenKeys, EventLog > {
      using ReactorTo::ReactorTo;
      void onSlot( const Vel::U64 & key ) override { sm()->keys.insert( key ); }
   };
   std::set< Vel::U64 > keys;
};

/// Entities as the rest of the agent writes them, by hand: a unit "u1" with et1 and et2.
class EventsTest : public testing::Test {
 protected:
   EventsTest() {
      Vel::System::clockIs( clock );
      profile( "fast", 100 );
      defaultProfile->profileNameIs( "fast" );
      groupToUnit->mappingIs( uplinks, "u1" );
      join( et1 );
      join( et2 );
      units->statusIs( "u1" )->stateIs( UnitState::normal );
      runs->unitRunIs( "u1" );
      clock->commitHookIs( [this] {
         if ( events )
            events->turnEnds();
         return true;
      } );
      start();
      told();
   }
   ~EventsTest() override {
      events.reset();
      Vel::System::clockIs( nullptr );
   }

   /// The agent is started anew over what is kept.
   void start() {
      events.reset();
      wheel = Vel::make< Cog::TimerWheel >( clock, 1000u, 1800u, true, 1024u );
      events = std::make_unique< Events >(
         wheel,
         Events::Model{
            units, runs, commands, statuses, intfToGroup, groupToUnit, defaultProfile, profiles, records,
            insights, cause, log, kept },
         Events::Hooks{
            [this] { return clock->currentTime(); }, [this] { return clock->currentTime() + 3600; },
            [this]( const std::string & unit ) { return unit == "u1" ? stage : ""; },
            [this]( const std::string & unit ) { return unit == "u1" && settling; },
            [this]( const Wire::IntfId & intf ) {
               ++driftAsked;
               return intf == et1 ? drift : "";
            },
            [this]( const Wire::IntfId & intf ) { return intf == et1; }, [this] { return problems; } } );
      events->started( "1.2.3" );
      turn();
   }
   void turn() { clock->runUntilIdle(); }
   void profile( const std::string & name, double kbps ) {
      auto & status = *profiles->statusIs( name );
      status.drainWatchThresholdInKbpsIs( kbps );
      status.drainWatchLoadIntervalIs( 10 );
   }
   void join( const Wire::IntfId & intf ) {
      auto & entry = *intfToGroup->intfToGroupIs( intf );
      entry.groupIs( uplinks );
      entry.selectedProfileIs(
         ProfileType::interfaceProfile,
         { ProfileType::interfaceProfile, Maintenance::Profile::defaultProfileName } );
      linkIs( intf, true );
   }
   void leave( const Wire::IntfId & intf ) {
      intfToGroup->intfToGroupDel( intf );
      statuses->intfStatusDel( intf );
   }
   /// "port0", ... in the unit, and nothing told of it.
   std::vector< Wire::IntfId > joinMany( int count ) {
      std::vector< Wire::IntfId > result;
      for ( int i = 0; i < count; ++i ) {
         result.push_back( Wire::EthIntfId( "port" + std::to_string( i ) ) );
         join( result.back() );
      }
      turn();
      told();
      return result;
   }
   void linkIs( const Wire::IntfId & intf, bool up ) {
      auto * status = statuses->intfStatus( intf );
      if ( !status )
         status = statuses->intfStatusIs( intf );
      status->operStatusIs( up ? Interface::operUp : Interface::operDown );
   }
   void enter() {
      auto & run = *runs->unitRun( "u1" );
      run.byIs( "ann" );
      run.reasonIs( "optics" );
      units->status( "u1" )->genIdIs( 1 );
      units->status( "u1" )->stateIs( UnitState::enterInProgress );
      stage = "drainwatch";
   }
   Maintenance::MonIntfStatus & record( const Wire::IntfId & intf, double bps ) {
      auto & made = *records->monIntfStatusIs( intf, "fast", clock->currentTime() );
      Interface::IntfRates rates;
      rates.inBitsRate = bps;
      rates.sampleTime = clock->currentTime();
      made.curRatesIs( rates );
      return made;
   }
   json event( Vel::U64 sequence ) const {
      const Event * const found = log->event( sequence );
      return found ? json::parse( found->json ) : json();
   }
   json last() const { return event( log->last() ); }
   /// "unit u1 state", ... of what has happened since the last look.
   Lines told() {
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

   const Wire::IntfId et1 = Wire::EthIntfId( "et1" ), et2 = Wire::EthIntfId( "et2" ),
                      et3 = Wire::EthIntfId( "et3" );
   const GroupKey uplinks{ GroupType::interfaceGroup, "uplinks" };
   const Vel::Ptr< Cog::ManualClock > clock = Vel::make< Cog::ManualClock >();
   Vel::Ptr< Cog::TimerWheel > wheel;
   const Vel::Ptr< Maintenance::Unit::StatusDir > units = Vel::make< Maintenance::Unit::StatusDir >();
   const Vel::Ptr< UnitRunDir > runs = Vel::make< UnitRunDir >();
   const Vel::Ptr< UnitCommandsDir > commands = Vel::make< UnitCommandsDir >();
   const Vel::Ptr< Interface::AllIntfStatusDir > statuses = Vel::make< Interface::AllIntfStatusDir >();
   const Vel::Ptr< IntfMaintenance::IntfToGroupDir > intfToGroup =
      Vel::make< IntfMaintenance::IntfToGroupDir >();
   const Vel::Ptr< Maintenance::GroupToUnitDir > groupToUnit = Vel::make< Maintenance::GroupToUnitDir >();
   const Vel::Ptr< Maintenance::Profile::DefaultProfile > defaultProfile =
      Vel::make< Maintenance::Profile::DefaultProfile >();
   const Vel::Ptr< IntfMaintenanceProfile::StatusDir > profiles =
      Vel::make< IntfMaintenanceProfile::StatusDir >();
   const Vel::Ptr< Maintenance::MonIntfStatusDir > records = Vel::make< Maintenance::MonIntfStatusDir >();
   const Vel::Ptr< InsightDir > insights = Vel::make< InsightDir >();
   const Vel::Ptr< Errdisable::CauseStatus > cause =
      Vel::make< Errdisable::CauseStatus >( "maintenance-shutdown" );
   const Vel::Ptr< EventLog > log = Vel::make< EventLog >();
   const Vel::Ptr< EventsTold > kept = Vel::make< EventsTold >();
   std::string stage, drift;
   unsigned driftAsked = 0;
   bool settling = false;
   std::vector< std::pair< std::string, std::string > > problems;
   Vel::U64 seen = 0;
   std::unique_ptr< Events > events;
};

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
   turn();
   EXPECT_EQ( Lines{ "unit u1 settling-ended" }, told() );
   settling = true;
   turn();
   settling = false;
   stage = "";
   units->status( "u1" )->stateIs( UnitState::maintenance );
   turn();
   EXPECT_EQ( ( Lines{ "unit u1 settling", "unit u1 state" } ), told() );
   EXPECT_EQ( "u1 is under maintenance", last().at( "text" ) );
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

TEST_F( EventsTest, linksThatNobodyHasConfiguredAreNotTold ) {
   linkIs( et3, true );
   linkIs( et3, false );
   turn();
   EXPECT_EQ( Lines(), told() );
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
   records->monIntfStatusDel( et1 );
   insights->intfDel( et1 );
   turn();
   EXPECT_EQ( Lines{ "interface et1 state" }, told() );
   EXPECT_EQ( nullptr, last().at( "state" ) );
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

TEST_F( EventsTest, driftIsTold ) {
   drift = "lowered";
   events->driftChanged();
   turn();
   EXPECT_EQ( Lines{ "interface et1 drift" }, told() );
   EXPECT_EQ( "lowered", last().at( "drift" ) );
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

// ---- what would flood the log

TEST_F( EventsTest, aLinkThatGoesDownAndUpInOneTurnIsTold ) {
   linkIs( et1, false );
   linkIs( et1, true );
   turn();
   EXPECT_EQ( Lines{ "interface et1 link" }, told() );
   EXPECT_EQ( "up", last().at( "link-state" ) );
   EXPECT_EQ( 2, last().at( "changes" ) );
}

TEST_F( EventsTest, aLinkThatFlapsForAnHourIsToldOnceAMinuteWithEveryChangeCounted ) {
   unsigned changes = 0;
   for ( int i = 0; i < 36000; ++i ) {
      linkIs( et1, i % 2 );
      clock->advance( 0.1 );
   }
   clock->advance( 120 );
   while ( seen < log->last() )
      changes += event( ++seen ).at( "changes" ).get< unsigned >();
   EXPECT_EQ( 36000u, changes );
   EXPECT_LT( log->last(), 80u );
   EXPECT_EQ( "up", last().at( "link-state" ) );
}

TEST_F( EventsTest, aStormOfLinksWritesInFewTurnsAndTellsOfEveryOne ) {
   constexpr unsigned count = AlikeEvents::most;
   const std::vector< Wire::IntfId > all = joinMany( count );
   clock->advance( 1.5 );
   unsigned writing = 0;
   Vel::U64 before = log->last();
   // All go down and up again and again for ten seconds, each in a turn of its own.
   for ( int round = 0; round < 20; ++round )
      for ( const Wire::IntfId & intf : all ) {
         linkIs( intf, round % 2 );
         clock->advance( 0.001 );
         writing += log->last() != before;
         before = log->last();
      }
   clock->advance( 60 );
   EXPECT_LE( writing, 10 * ( InterfaceEvents::directTurns + 2 ) );
   EXPECT_LT( log->last() - seen, count * 6 );
   std::map< std::string, std::string > state;
   unsigned changes = 0;
   while ( seen < log->last() ) {
      const json e = event( ++seen );
      state[e.at( "subject" )] = e.at( "link-state" );
      changes += e.at( "changes" ).get< unsigned >();
   }
   EXPECT_EQ( count, state.size() );
   EXPECT_EQ( 20 * count, changes );
   for ( const auto & [name, is] : state )
      EXPECT_EQ( "up", is ) << name;
}

TEST_F( EventsTest, aUnitOfThousandsOfInterfacesLeavesTheLogToOtherEvents ) {
   const Vel::U64 before = log->last();
   const std::vector< Wire::IntfId > all = joinMany( 6000 );
   EXPECT_EQ( before + 1, log->last() );
   EXPECT_EQ( "joined", last().at( "what" ) );
   enter();
   for ( const Wire::IntfId & intf : all ) {
      record( intf, 5e6 ).stateIs( Maintenance::monIntfStateEnterMaint );
      insights->intfIs( intf )->reasonIs( Reason::aboveThreshold );
   }
   record( et1, 5e6 ).stateIs( Maintenance::monIntfStateEnterMaint );
   for ( const Wire::IntfId & intf : all )
      linkIs( intf, false );
   turn();
   EXPECT_EQ( "ann", event( log->first() + before + 1 ).at( "by" ) );
   EXPECT_EQ(
      ( Lines{
         "unit u1 state", "unit u1 stage", "interface  state", "interface  reason", "interface  link" } ),
      told() );
   const json state = event( log->last() - 2 );
   EXPECT_EQ( "enter-maint", state.at( "state" ) );
   EXPECT_EQ( nullptr, state.at( "from" ) );
   EXPECT_EQ( 6001, state.at( "count" ) );
   EXPECT_EQ( json{ "u1" }, state.at( "units" ) );
   EXPECT_EQ( AlikeEvents::mostNames, state.at( "interfaces" ).size() );
   EXPECT_EQ( "et1", state.at( "interfaces" )[0] );
   EXPECT_EQ(
      "et1 is watched: it waits for its traffic to leave; likewise 6000 more interfaces",
      state.at( "text" ) );
   const json reason = event( log->last() - 1 );
   EXPECT_EQ( 6000, reason.at( "count" ) );
   EXPECT_EQ( 5e6, reason.at( "in-bps" ) ) << "is the same everywhere";
   EXPECT_EQ( 6000, last().at( "changes" ) );
}

TEST_F( EventsTest, whatIsToldOfManyTogetherHasNoNumberThatIsNotTheSameEverywhere ) {
   const std::vector< Wire::IntfId > all = joinMany( AlikeEvents::most + 1 );
   double rate = 1e6;
   for ( const Wire::IntfId & intf : all ) {
      record( intf, rate += 1000 );
      insights->intfIs( intf )->reasonIs( Reason::aboveThreshold );
   }
   turn();
   EXPECT_EQ( ( Lines{ "interface  state", "interface  reason" } ), told() );
   EXPECT_EQ( nullptr, last().at( "in-bps" ) );
   EXPECT_EQ( 100000, last().at( "threshold-bps" ) );
   EXPECT_EQ( "above-threshold", last().at( "reason" ) );
}

TEST_F( EventsTest, asManyInterfacesAsMayBeAreToldOneByOne ) {
   for ( const Wire::IntfId & intf : joinMany( AlikeEvents::most ) )
      record( intf, 0 );
   turn();
   EXPECT_EQ( AlikeEvents::most, told().size() );
   EXPECT_FALSE( last().contains( "count" ) );
}

TEST_F( EventsTest, aStormOfDriftIsLookedAtOnceATurn ) {
   constexpr unsigned count = 5000;
   joinMany( count );
   clock->advance( 1 );
   driftAsked = 0;
   drift = "raised";
   for ( unsigned i = 0; i < count; ++i )
      events->driftChanged();
   turn();
   EXPECT_EQ( Lines{ "interface et1 drift" }, told() );
   EXPECT_LT( driftAsked, 2 * count );
}

TEST_F( EventsTest, anInterfaceThatComesAndGoesIsToldOnceAMinuteInTheEnd ) {
   clock->advance( 0.5 );
   const Vel::U64 before = log->last();
   for ( int i = 0; i < 3600; ++i ) {
      join( et3 );
      clock->advance( 0.5 );
      leave( et3 );
      clock->advance( 0.5 );
   }
   EXPECT_LT( log->last() - before, 200u );
   clock->advance( 120 );
   told();
   EXPECT_EQ( "left", last().at( "what" ) );
   EXPECT_EQ( "et3", last().at( "subject" ) );
   join( et3 );
   clock->advance( 61 );
   EXPECT_EQ( "interface et3 joined", told().back() );
}

TEST_F( EventsTest, aProblemWhoseTextChangesIsToldOnceAMinuteInTheEnd ) {
   const Vel::U64 before = log->last();
   for ( int i = 0; i < 3600; ++i ) {
      problems = { { "history", "cannot be written, try " + std::to_string( i ) } };
      if ( i % 7 == 0 )
         problems.clear();
      clock->advance( 1 );
   }
   EXPECT_LT( log->last() - before, 80u );
   problems = { { "history", "the last" } };
   clock->advance( 61 );
   EXPECT_NE( std::string::npos, last().at( "text" ).get< std::string >().find( "the last" ) );
   problems = { { "store", "another one" } };
   clock->advance( 1 );
   EXPECT_EQ( "store", last().at( "problem" ) ) << "waits for no other";
}

TEST_F( EventsTest, aLogThatCannotBeWrittenForLongHasNoMoreToWriteThanItKeeps ) {
   WrittenKeys written;
   Vel::Watch< WrittenKeys::VelSlots > watch;
   watch.is( log, &written ).hasNotificationActiveIs( true );
   for ( Vel::U64 i = 0; i < 3 * EventLog::kept; ++i )
      events->configurationRefused( "again" );
   EXPECT_EQ( EventLog::kept, written.keys.size() );
}

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
