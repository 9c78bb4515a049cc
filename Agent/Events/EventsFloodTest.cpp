#include "Agent/Events/EventsTest.h"

#include <nlohmann/json.hpp>

namespace Agent {

namespace {

using Maintenance::Unit::UnitState;

/// The keys of the log that a commit would have to write.
struct WrittenKeys {
   struct VelSlots final : Vel::ReactorTo< WrittenKeys, EventLog > {
      using ReactorTo::ReactorTo;
      void onSlot( const Vel::U64 & key ) override { sm()->keys.insert( key ); }
   };
   std::set< Vel::U64 > keys;
};

/// What would flood the log.
using EventsFlood = EventsTest;

TEST_F( EventsFlood, aLinkThatGoesDownAndUpInOneTurnIsTold ) {
   linkIs( et1, false );
   linkIs( et1, true );
   turn();
   EXPECT_EQ( Lines{ "interface et1 link" }, told() );
   EXPECT_EQ( "up", last().at( "link-state" ) );
   EXPECT_EQ( 2, last().at( "changes" ) );
}

TEST_F( EventsFlood, aLinkThatFlapsForAnHourIsToldOnceAMinuteWithEveryChangeCounted ) {
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

/// An interface is watched only while its link is up.
TEST_F( EventsFlood, aLinkThatFlapsWhileItIsWatchedIsToldOnceAMinuteInTheEnd ) {
   enter();
   record( et1, 5e8 ).stateIs( Maintenance::monIntfStateEnterMaint );
   insights->intfIs( et1 )->reasonIs( Reason::aboveThreshold );
   turn();
   told();
   for ( int i = 0; i < 1801; ++i ) {
      const bool up = i % 2;
      linkIs( et1, up );
      if ( up ) {
         record( et1, 5e8 ).stateIs( Maintenance::monIntfStateEnterMaint );
         insights->intfIs( et1 )->reasonIs( i % 4 == 1 ? Reason::aboveThreshold : Reason::timing );
      } else {
         records->monIntfStatusDel( et1 );
         insights->intfDel( et1 );
      }
      clock->advance( 1 );
   }
   clock->advance( 120 );
   EXPECT_LT( log->last() - seen, 3u * 45 ) << "states, reasons and links";
   const Told states = toldOf( "state" );
   EXPECT_EQ( 1801u, states.changes );
   EXPECT_LT( states.events, 45u );
   record( et1, 5e8 ).stateIs( Maintenance::monIntfStateEnterMaint );
   insights->intfIs( et1 )->reasonIs( Reason::aboveThreshold );
   clock->advance( 61 );
   EXPECT_EQ( ( Lines{ "interface et1 state", "interface et1 reason" } ), told() );
   EXPECT_EQ( "above-threshold", last().at( "reason" ) );
}

TEST_F( EventsFlood, anInterfaceThatHasDrainedAfterItsLinkFlappedIsToldAtOnce ) {
   enter();
   record( et1, 5e8 ).stateIs( Maintenance::monIntfStateEnterMaint );
   turn();
   told();
   for ( int i = 0; i < 5; ++i ) {
      records->monIntfStatusDel( et1 );
      record( et1, 5e8 ).stateIs( Maintenance::monIntfStateEnterMaint );
      clock->advance( 0.1 );
   }
   EXPECT_EQ( Lines{}, told() );
   records->monIntfStatus( et1 )->stateIs( Maintenance::monIntfStateUnderMaint );
   turn();
   EXPECT_EQ( Lines{ "interface et1 state" }, told() );
   EXPECT_EQ( "under-maint", last().at( "state" ) );
   EXPECT_EQ( 11, last().at( "changes" ) );
   clock->advance( 120 );
   EXPECT_EQ( Lines{}, told() );
}

TEST_F( EventsFlood, aUnitThatSettlesAndDoesNotIsToldOnceAMinuteWithEveryChangeCounted ) {
   enter();
   turn();
   told();
   for ( int i = 0; i < 1801; ++i ) {
      settling = i % 2 == 0;
      clock->post( [] {} );
      clock->advance( 1 );
   }
   clock->advance( 120 );
   settling = false;
   turn();
   const Told of = toldOf( "settling" );
   EXPECT_EQ( 1802u, of.changes );
   EXPECT_LT( of.events, 45u );
   EXPECT_EQ( "settling-ended", last().at( "what" ) );
}

TEST_F( EventsFlood, aStormOfLinksWritesInFewTurnsAndTellsOfEveryOne ) {
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
   EXPECT_LE( writing, 10 * ( Pace< Wire::IntfId >::directTurns + 2 ) );
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

TEST_F( EventsFlood, aUnitOfThousandsOfInterfacesLeavesTheLogToOtherEvents ) {
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

TEST_F( EventsFlood, whatIsToldOfManyTogetherHasNoNumberThatIsNotTheSameEverywhere ) {
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

TEST_F( EventsFlood, asManyInterfacesAsMayBeAreToldOneByOne ) {
   for ( const Wire::IntfId & intf : joinMany( AlikeEvents::most ) )
      record( intf, 0 );
   turn();
   EXPECT_EQ( AlikeEvents::most, told().size() );
   EXPECT_FALSE( last().contains( "count" ) );
}

TEST_F( EventsFlood, aStormOfDriftIsLookedAtOnceATurn ) {
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

TEST_F( EventsFlood, aLinkThatIsFoughtOverIsToldOnceAMinuteWithEveryChangeCounted ) {
   for ( int i = 0; i < 36001; ++i ) {
      drift = i % 2 ? "" : "raised";
      events->driftChanged();
      clock->advance( 0.1 );
   }
   clock->advance( 120 );
   drift = "";
   events->driftChanged();
   turn();
   const Told of = toldOf( "drift" );
   EXPECT_EQ( 36002u, of.changes );
   EXPECT_LT( of.events, 80u );
   EXPECT_EQ( nullptr, last().at( "drift" ) );
}

TEST_F( EventsFlood, trafficThatComesAndGoesIsToldOfTheUnitOnceAMinuteWithEveryChangeCounted ) {
   record( et1, 5e6 ).stateIs( Maintenance::monIntfStateUnderMaint );
   auto & unit = *units->status( "u1" );
   for ( int i = 0; i < 361; ++i ) {
      if ( i % 2 )
         unit.intfsViolatingTrafficThresholdDel( et1 );
      else
         unit.intfsViolatingTrafficThresholdIs( et1, true );
      clock->advance( 10 );
   }
   clock->advance( 120 );
   unit.intfsViolatingTrafficThresholdDel( et1 );
   turn();
   const Told of = toldOf( "violations-" );
   EXPECT_EQ( 362u, of.changes );
   EXPECT_LT( of.events, 70u );
}

TEST_F( EventsFlood, countersThatComeAndGoAreToldOnceAMinuteWithEveryChangeCounted ) {
   record( et1, 5e6 );
   IntfInsight & insight = *insights->intfIs( et1 );
   insight.reasonIs( Reason::timing );
   turn();
   told();
   for ( int i = 0; i < 361; ++i ) {
      insight.reasonIs( i % 2 ? Reason::timing : Reason::starved );
      clock->advance( 10 );
   }
   clock->advance( 120 );
   insight.reasonIs( Reason::timing );
   turn();
   const Told of = toldOf( "reason" );
   EXPECT_EQ( 362u, of.changes );
   EXPECT_LT( of.events, 70u );
   EXPECT_EQ( "timing", last().at( "reason" ) );
}

TEST_F( EventsFlood, anInterfaceThatComesAndGoesIsToldOnceAMinuteInTheEnd ) {
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

TEST_F( EventsFlood, aProblemWhoseTextChangesIsToldOnceAMinuteInTheEnd ) {
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

TEST_F( EventsFlood, aLogThatCannotBeWrittenForLongHasNoMoreToWriteThanItKeeps ) {
   WrittenKeys written;
   Vel::Watch< WrittenKeys::VelSlots > watch;
   watch.is( log, &written ).hasNotificationActiveIs( true );
   for ( Vel::U64 i = 0; i < 3 * EventLog::kept; ++i )
      events->configurationRefused( "again" );
   EXPECT_EQ( EventLog::kept, written.keys.size() );
}

} // namespace

} // namespace Agent
