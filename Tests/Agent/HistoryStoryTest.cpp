#include "Api/Values.h"
#include "Tests/Agent/CrashSweepTest.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <set>

namespace {

using nlohmann::json;
using Tests::AgentRig;

const char * const configuration =
   "settle: 5s\n"
   "profiles:\n"
   "  fast: {threshold: 100kbps, load-interval: 10s, shutdown: true}\n"
   "  late: {threshold: 100kbps, load-interval: 10s, shutdown: true, shutdown-max-delay: 30s}\n"
   "  watch: {threshold: 1Mbps, load-interval: 10s}\n"
   "default-profile: fast\n"
   "groups:\n"
   "  uplinks: {interfaces: [et1, et2]}\n"
   "  shared: {interfaces: [et2]}\n"
   "  busy: {interfaces: [et3], profile: late}\n"
   "  tenants: {vlans: [10], profile: watch}\n"
   "units:\n"
   "  u1: {groups: [uplinks]}\n"
   "  u2: {groups: [shared]}\n"
   "  u3: {groups: [busy]}\n"
   "  u4: {groups: [tenants]}\n";

/// Seconds since the beginning; -1: null.
double seconds( const json & time ) {
   return time.is_null() ? -1 : Api::timeOf( time.get< std::string >() ).value() - 1.7e9;
}

class HistoryStory : public testing::Test {
 protected:
   HistoryStory() : rig( configuration ) {}

   void enterAt( double time, const std::string & unit ) {
      rig.at( time, [=, this] { rig.post( "units/" + unit + "/enter", R"({"reason":"swap"})" ); } );
   }
   void exitAt( double time, const std::string & unit ) {
      rig.at( time, [=, this] { rig.post( "units/" + unit + "/exit", R"({"reason":"done"})" ); } );
   }
   void trafficAt( double time, const std::string & port, double bps ) {
      rig.at( time, [=, this] { rig.traffic( port, bps ); } );
   }
   void run( double until ) {
      if ( !rig.running() )
         rig.start();
      rig.runUntil( until );
   }
   json list( const std::string & query = "" ) { return json::parse( rig.get( "history" + query ) ); }
   json record( int id ) { return json::parse( rig.get( "history/" + std::to_string( id ) ) ); }
   /// Of a record with one interface.
   json intf( int id ) { return record( id ).at( "interfaces" ).at( 0 ); }
   bool filed( int id ) {
      return std::filesystem::exists( rig.folder() + "/state/history/" + std::to_string( id ) + ".json" );
   }

   AgentRig rig;
};

TEST_F( HistoryStory, naturalDrainIsWrittenDownFromEnterToNormal ) {
   rig.traffic( "et1", 5e6 );
   enterAt( 2, "u1" );
   trafficAt( 20, "et1", 0 );
   exitAt( 75, "u1" );
   run( 100 );
   ASSERT_TRUE( filed( 1 ) );
   const json whole = record( 1 );
   EXPECT_EQ( 1, whole.at( "id" ) );
   EXPECT_EQ( "u1", whole.at( "unit" ) );
   EXPECT_EQ( 1, whole.at( "generation" ) );
   EXPECT_EQ( "completed", whole.at( "outcome" ) );
   EXPECT_EQ( "swap", whole.at( "reason" ) );
   EXPECT_EQ( "tester", whole.at( "by" ) );
   EXPECT_EQ( "done", whole.at( "exit-reason" ) );
   EXPECT_EQ( "tester", whole.at( "exit-by" ) );
   EXPECT_EQ( 2, seconds( whole.at( "began" ) ) );
   EXPECT_NEAR( 40, seconds( whole.at( "in-maintenance" ) ), 5 );
   EXPECT_EQ( 75, seconds( whole.at( "exit-began" ) ) );
   EXPECT_EQ( 75, seconds( whole.at( "ended" ) ) );
   EXPECT_EQ( json::parse( R"({"drained":2,"forced":0,"interfaces":2,"spikes":0})" ), whole.at( "counts" ) );

   ASSERT_EQ( 2u, whole.at( "stages" ).size() );
   EXPECT_EQ( "enter", whole.at( "stages" ).at( 0 ).at( "way" ) );
   EXPECT_EQ( "drainwatch", whole.at( "stages" ).at( 0 ).at( "name" ) );
   EXPECT_EQ( "complete", whole.at( "stages" ).at( 0 ).at( "state" ) );
   EXPECT_EQ( 2, seconds( whole.at( "stages" ).at( 0 ).at( "began" ) ) );
   EXPECT_EQ( "exit", whole.at( "stages" ).at( 1 ).at( "way" ) );
   EXPECT_EQ( "complete", whole.at( "stages" ).at( 1 ).at( "state" ) );

   ASSERT_EQ( 2u, whole.at( "interfaces" ).size() );
   const json & et1 = whole.at( "interfaces" ).at( 0 );
   EXPECT_EQ( "et1", et1.at( "name" ) );
   EXPECT_EQ( "fast", et1.at( "profile" ).at( "name" ) );
   EXPECT_EQ( 1e5, et1.at( "profile" ).at( "threshold-bps" ) );
   EXPECT_EQ( 10, et1.at( "profile" ).at( "load-interval-seconds" ) );
   EXPECT_EQ( true, et1.at( "profile" ).at( "shutdown" ) );
   EXPECT_TRUE( et1.at( "profile" ).at( "shutdown-max-delay-seconds" ).is_null() );
   EXPECT_NEAR( 5e6, et1.at( "first-in-bps" ).get< double >(), 5e4 );
   EXPECT_EQ( "natural", et1.at( "shutdown" ) );
   EXPECT_NEAR( 32, seconds( et1.at( "drained" ) ), 3 );
   EXPECT_EQ( et1.at( "drained" ), et1.at( "shut" ) );
   EXPECT_EQ( 75, seconds( et1.at( "raised" ) ) );
   EXPECT_EQ( 75, seconds( et1.at( "released" ) ) );
   EXPECT_NEAR( 12, seconds( whole.at( "interfaces" ).at( 1 ).at( "drained" ) ), 3 );
}

TEST_F( HistoryStory, shutdownBeforeItHasDrainedIsForced ) {
   rig.traffic( "et3", 5e6 );
   enterAt( 2, "u3" );
   exitAt( 75, "u3" );
   run( 100 );
   EXPECT_EQ( "forced", intf( 1 ).at( "shutdown" ) );
   EXPECT_NEAR( 32, seconds( intf( 1 ).at( "shut" ) ), 3 );
   EXPECT_TRUE( intf( 1 ).at( "drained" ).is_null() );
   EXPECT_EQ(
      json::parse( R"({"drained":0,"forced":1,"interfaces":1,"spikes":0})" ), record( 1 ).at( "counts" ) );
}

TEST_F( HistoryStory, shutdownOfWhatDrainedBeforeTheLatestTimeIsNatural ) {
   rig.traffic( "et3", 0 );
   enterAt( 2, "u3" );
   run( 30 );
   EXPECT_EQ( "natural", intf( 1 ).at( "shutdown" ) );
}

TEST_F( HistoryStory, spikesUnderMaintenanceAreWrittenDownWithTheirPeaks ) {
   enterAt( 2, "u4" );
   trafficAt( 40, "et5", 3e6 );
   trafficAt( 50, "et5", 8e6 );
   trafficAt( 70, "et5", 0 );
   trafficAt( 110, "et5", 2e6 );
   run( 130 );
   EXPECT_EQ( "open", record( 1 ).at( "outcome" ) );
   EXPECT_EQ( 2, intf( 1 ).at( "total-spikes" ) );
   const json spikes = intf( 1 ).at( "spikes" );
   ASSERT_EQ( 2u, spikes.size() );
   EXPECT_NEAR( 45, seconds( spikes.at( 0 ).at( "began" ) ), 8 );
   EXPECT_NEAR( 80, seconds( spikes.at( 0 ).at( "ended" ) ), 8 );
   EXPECT_NEAR( 8e6, spikes.at( 0 ).at( "peak-bps" ).get< double >(), 1e5 );
   EXPECT_TRUE( spikes.at( 1 ).at( "ended" ).is_null() );
   EXPECT_NEAR( 8e6, intf( 1 ).at( "peak-in-bps" ).get< double >(), 1e5 );
   EXPECT_TRUE( intf( 1 ).at( "shutdown" ).is_null() );
   // What is filed says the same, and that a spike was over when nobody watched any more.
   const json open = intf( 1 );
   rig.post( "units/u4/exit" );
   run( 140 );
   ASSERT_TRUE( filed( 1 ) );
   json filedSpikes = intf( 1 ).at( "spikes" );
   ASSERT_EQ( 2u, filedSpikes.size() );
   EXPECT_NEAR( 131, seconds( filedSpikes.at( 1 ).at( "ended" ) ), 5 );
   filedSpikes.at( 1 )["ended"] = nullptr;
   EXPECT_EQ( open.at( "spikes" ), filedSpikes );
   EXPECT_EQ( open.at( "peak-in-bps" ), intf( 1 ).at( "peak-in-bps" ) );
}

TEST_F( HistoryStory, exitDuringTheEnterIsACancelledMaintenance ) {
   rig.traffic( "et1", 5e6 );
   enterAt( 2, "u1" );
   exitAt( 20, "u1" );
   run( 40 );
   const json whole = record( 1 );
   EXPECT_EQ( "cancelled", whole.at( "outcome" ) );
   EXPECT_TRUE( whole.at( "in-maintenance" ).is_null() );
   EXPECT_EQ( "cancelled", whole.at( "stages" ).at( 0 ).at( "state" ) );
   EXPECT_TRUE( whole.at( "stages" ).at( 0 ).at( "ended" ).is_null() );
}

TEST_F( HistoryStory, unitThatEntersAgainHasARecordForEachTime ) {
   enterAt( 2, "u1" );
   exitAt( 40, "u1" );
   enterAt( 50, "u1" );
   run( 60 );
   const json both = list();
   ASSERT_EQ( 2u, both.size() );
   EXPECT_EQ( 2, both.at( 0 ).at( "id" ) );
   EXPECT_EQ( "open", both.at( 0 ).at( "outcome" ) );
   EXPECT_EQ( 1, both.at( 1 ).at( "id" ) );
   EXPECT_EQ( "completed", both.at( 1 ).at( "outcome" ) );
}

TEST_F( HistoryStory, interfaceOfTwoUnitsIsInTheRecordsOfBoth ) {
   enterAt( 2, "u1" );
   enterAt( 40, "u2" );
   exitAt( 60, "u1" );
   exitAt( 80, "u2" );
   run( 100 );
   const json first = record( 1 ).at( "interfaces" ).at( 1 ), second = intf( 2 );
   EXPECT_EQ( "et2", first.at( "name" ) );
   EXPECT_EQ( "et2", second.at( "name" ) );
   EXPECT_EQ( 40, seconds( second.at( "began" ) ) );
   EXPECT_EQ( 40, seconds( second.at( "drained" ) ) );
   EXPECT_EQ( "natural", second.at( "shutdown" ) );
   // The other unit goes on with it.
   EXPECT_TRUE( first.at( "released" ).is_null() );
   EXPECT_EQ( 80, seconds( second.at( "released" ) ) );
   EXPECT_EQ( 80, seconds( second.at( "raised" ) ) );
}

TEST_F( HistoryStory, listIsOfOneUnitOrOfAllAndNoLongerThanAskedFor ) {
   enterAt( 2, "u1" );
   enterAt( 3, "u2" );
   exitAt( 40, "u1" );
   run( 50 );
   EXPECT_EQ( 2u, list().size() );
   EXPECT_EQ( 1u, list( "?limit=1" ).size() );
   EXPECT_EQ( 1u, list( "?unit=u1" ).size() );
   EXPECT_EQ( 0u, list( "?unit=u4" ).size() );
}

TEST_F( HistoryStory, fileThatCannotBeWrittenIsAProblemThatIsShownAndTriedAgain ) {
   std::filesystem::create_directories( rig.folder() + "/state" );
   std::ofstream( rig.folder() + "/state/history" ) << "in the way";
   enterAt( 2, "u1" );
   exitAt( 40, "u1" );
   run( 50 );
   EXPECT_EQ( "\"normal\"", rig.fact( "units/u1", "state" ) );
   EXPECT_NE( std::string::npos, rig.get( "agent" ).find( R"("what":"history")" ) );
   EXPECT_EQ( "completed", record( 1 ).at( "outcome" ) );
   // Nothing is held up by it.
   EXPECT_EQ( 202, rig.post( "units/u2/enter" ) );
   std::filesystem::remove( rig.folder() + "/state/history" );
   run( 110 );
   EXPECT_TRUE( filed( 1 ) );
   EXPECT_EQ( std::string::npos, rig.get( "agent" ).find( R"("what":"history")" ) );
   EXPECT_EQ( "completed", record( 1 ).at( "outcome" ) );
}

TEST_F( HistoryStory, recordHoldsWhatItsInterfacesCarriedAndWhyTheyWaited ) {
   rig.traffic( "et1", 5e6 );
   enterAt( 30, "u1" );
   trafficAt( 60, "et1", 0 );
   exitAt( 100, "u1" );
   run( 120 );
   ASSERT_TRUE( filed( 1 ) );
   const json et1 = record( 1 ).at( "interfaces" ).at( 0 );
   ASSERT_FALSE( et1.at( "curve" ).is_null() );
   const json rates = et1.at( "curve" ).at( "in-bps" );
   EXPECT_LE( rates.size(), 300u );
   // Of the time when it was still busy.
   const double start = seconds( et1.at( "curve" ).at( "start" ) );
   const auto step = static_cast< std::size_t >( ( 50 - start ) / 5 );
   ASSERT_EQ( 5, et1.at( "curve" ).at( "step-seconds" ) );
   ASSERT_LT( step, rates.size() );
   EXPECT_NEAR( 5e6, rates.at( step ).get< double >(), 1e5 );
   std::set< std::string > codes;
   for ( const json & reason : et1.at( "reasons" ) )
      codes.insert( reason.at( "code" ) );
   EXPECT_TRUE( codes.count( "above-threshold" ) ) << et1.at( "reasons" );
   ASSERT_FALSE( codes.empty() );
   EXPECT_EQ( "shut", et1.at( "reasons" ).back().at( "code" ) );
   EXPECT_NEAR( 70, seconds( et1.at( "reasons" ).back().at( "time" ) ), 8 );
}

/// What an operator is told of all maintenances, apart from curves, whose newest samples need not be on disk.
json told( AgentRig & rig ) {
   json result = json::array();
   for ( const json & summary : json::parse( rig.get( "history" ) ) ) {
      json record = json::parse( rig.get( "history/" + summary.at( "id" ).dump() ) );
      for ( json & intf : record.at( "interfaces" ) )
         intf.erase( "curve" );
      for ( const auto & [key, value] : summary.items() )
         EXPECT_EQ( value, record.at( key ) ) << key;
      result.push_back( std::move( record ) );
   }
   return result;
}

/// How a record differs from that of an agent that was never ended, apart from what a later sample may change: times and
/// rates. Of what is sampled, a time may be as much later as it takes an agent to sample again.
void compare(
   const std::string & where, const json & expected, const json & found, std::string & differences ) {
   constexpr double laterSample = 11;
   const auto differs = [&] {
      differences += where + ": " + found.dump() + ", not " + expected.dump() + "\n";
   };
   if ( expected.type() != found.type() && !( expected.is_number() && found.is_number() ) )
      return differs();
   if ( expected.is_object() ) {
      for ( const auto & [key, value] : expected.items() )
         if ( found.contains( key ) )
            compare( where + "/" + key, value, found.at( key ), differences );
         else
            differences += where + "/" + key + ": missing\n";
   } else if ( where.ends_with( "/reasons" ) && !expected.empty() && !found.empty() ) {
      // In between an agent that has just begun may be calmer.
      compare( where + "/first", expected.front(), found.front(), differences );
      compare( where + "/last", expected.back(), found.back(), differences );
   } else if ( expected.is_array() ) {
      if ( expected.size() != found.size() )
         return differs();
      for ( std::size_t i = 0; i < expected.size(); ++i )
         compare( where + "/" + std::to_string( i ), expected[i], found[i], differences );
   } else if ( expected.is_string() && Api::timeOf( expected.get< std::string >() ) ) {
      const auto time = Api::timeOf( found.get< std::string >() );
      if ( !time || std::abs( *time - *Api::timeOf( expected.get< std::string >() ) ) > laterSample )
         differs();
   } else if ( !where.ends_with( "-bps" ) && expected != found ) {
      differs();
   }
}
std::string differences( const json & expected, const json & found ) {
   std::string result;
   compare( "", expected, found, result );
   return result;
}

/// One unit is shut before it has drained, the other has a spike.
struct CrashedHistory {
   CrashedHistory() : rig( configuration ) {
      rig.traffic( "et3", 5e6 );
      rig.at( 2, [this] { rig.post( "units/u4/enter", R"({"reason":"swap"})" ); } );
      rig.at( 3, [this] { rig.post( "units/u3/enter" ); } );
      rig.at( 32, [this] { rig.traffic( "et5", 3e6 ); } );
      rig.at( 60, [this] { rig.traffic( "et5", 0 ); } );
      rig.at( 82, [this] { rig.post( "units/u4/exit", R"({"reason":"done"})" ); } );
      rig.at( 84, [this] { rig.post( "units/u3/exit" ); } );
      rig.start();
   }
   static constexpr double end = 90;
   AgentRig rig;
};

/// A command brings the traffic back before links are raised; it takes two seconds.
struct CrashedWayBack {
   CrashedWayBack()
      : rig(
           std::string( configuration ) + "stages:\n"
                                          "  steer: {enter: /bin/steer enter, exit: /bin/steer exit}\n"
                                          "enter: [drainwatch]\n"
                                          "exit: [steer, drainwatch]\n" ) {
      using Child = Agent::FakeChildren::Child;
      rig.children().onGo = [this]( Child & child ) {
         rig.at( rig.time() + 2, [this, &child] {
            if ( child.phase == Agent::FakeChildren::Phase::going )
               rig.children().ends( child, 0 );
         } );
      };
      rig.children().onTerminate = [this]( Child & child ) {
         rig.soon( [this, &child] { rig.children().ends( child, 0, 15 ); } );
      };
      rig.at( 2, [this] { rig.post( "units/u1/enter" ); } );
      rig.at( 30, [this] { rig.post( "units/u1/exit" ); } );
      rig.start();
   }
   static constexpr double end = 50;
   AgentRig rig;
};

using HistoryAfterEachTurn = Tests::CrashTest;

template < class Story >
json toldAtTheEnd() {
   Story whole;
   whole.rig.runUntil( Story::end );
   return told( whole.rig );
}

/// Plays a story with an agent that ends after each of its turns, and compares whole records: what has been told before
/// stands as it was, and in the end there is what there is without a crash.
template < class Story >
void sweep( AgentRig::Effects effects ) {
   const json expected = toldAtTheEnd< Story >();
   json before;
   Tests::CrashSweep< Story > sweep;
   sweep.before = [&]( Story & story, unsigned turn ) {
      story.rig.turnHookIs( [&before, &story, turn] {
         if ( story.rig.turns() == turn )
            before = told( story.rig );
      } );
   };
   sweep.down = []( Story & story, unsigned ) { story.rig.turnHookIs( {} ); };
   sweep.back = [&]( Story & story ) { EXPECT_EQ( before, told( story.rig ) ); };
   sweep.over = [&]( Story & story ) { EXPECT_EQ( "", differences( expected, told( story.rig ) ) ); };
   sweep.run( effects );
}

TEST_P( HistoryAfterEachTurn, isAsItWasAndEndsAsItWouldHave ) { sweep< CrashedHistory >( GetParam() ); }

TEST_P( HistoryAfterEachTurn, isAsItWasOnALongWayBack ) { sweep< CrashedWayBack >( GetParam() ); }

INSTANTIATE_TEST_SUITE_P( HistoryStory, HistoryAfterEachTurn, Tests::allCrashes(), Tests::crashName );

/// One agent after the other ends after so many turns.
template < class Story >
void chain( unsigned each ) {
   SCOPED_TRACE( "a crash after each " + std::to_string( each ) + " turns" );
   const json expected = toldAtTheEnd< Story >();
   Story story;
   json before;
   story.rig.turnHookIs( [&] { before = told( story.rig ); } );
   unsigned crashes = 0;
   for ( ;; ++crashes ) {
      const auto effects = crashes % 2 ? AgentRig::Effects::out : AgentRig::Effects::lost;
      story.rig.crashAfterTurnIs( story.rig.turns() + each, effects );
      story.rig.runUntil( Story::end );
      if ( story.rig.running() )
         break;
      story.rig.start();
      ASSERT_EQ( before, told( story.rig ) ) << "crash " << crashes;
   }
   EXPECT_GE( crashes, 2u );
   const json found = told( story.rig );
   ASSERT_EQ( expected.size(), found.size() );
   for ( std::size_t i = 0; i < found.size(); ++i )
      for ( const char * member :
            { "id", "unit", "generation", "began", "by", "reason", "exit-by", "exit-reason" } )
         EXPECT_EQ( expected[i].at( member ), found[i].at( member ) ) << member;
}

TEST( HistoryStoryOfCrashes, loseNothingHoweverManyThereAre ) {
   for ( const unsigned each : { 9, 13, 20 } ) {
      chain< CrashedHistory >( each );
      chain< CrashedWayBack >( each );
   }
}

/// All that is told of shutdowns by events, against records: interfaces and whether they were forced.
TEST_F( HistoryStory, eventsSayTheSameOfShutdownsAsRecords ) {
   rig.traffic( "et3", 5e6 );
   enterAt( 2, "u3" );
   enterAt( 2, "u1" );
   enterAt( 2, "u4" );
   // u4 has drained by a short interval before a longer one asks for the shutdown.
   rig.at( 40, [this] {
      std::string text = configuration;
      const std::string before = "1Mbps, load-interval: 10s}";
      text.replace( text.find( before ), before.size(), "1Mbps, load-interval: 600s, shutdown: true}" );
      rig.reload( text );
   } );
   run( 60 );
   std::set< std::string > events, records;
   const json all = json::parse( rig.get( "events/recent?limit=4096" ) );
   for ( const json & event : all.at( "events" ) )
      if ( event.at( "what" ) == "shut" )
         events.insert( event.at( "subject" ).get< std::string >() + " " + event.at( "forced" ).dump() );
   for ( int id = 1; id <= 3; ++id ) {
      const json whole = record( id );
      for ( const json & intf : whole.at( "interfaces" ) )
         records.insert(
            intf.at( "name" ).get< std::string >() +
            ( intf.at( "shutdown" ) == "forced" ? " true" : " false" ) );
   }
   EXPECT_EQ( ( std::set< std::string >{ "et1 false", "et2 false", "et3 true", "vlan10 false" } ), records );
   EXPECT_EQ( records, events );
}

TEST_F( HistoryStory, enterThatAStageHasEndedIsAnAbortedMaintenance ) {
   rig.configurationIs(
      std::string( configuration ) + "stages:\n"
                                     "  steer: {enter: /bin/steer enter, exit: /bin/steer exit}\n"
                                     "enter: [steer, drainwatch]\n"
                                     "exit: [drainwatch, steer]\n" );
   rig.children().onGo = [this]( Agent::FakeChildren::Child & child ) {
      const bool enter = child.program.input.find( R"("operation":"enter")" ) != std::string::npos;
      rig.soon( [this, &child, enter] {
         if ( enter )
            rig.children().says( child, "no such neighbor\n", Agent::Children::Stream::errors );
         rig.children().ends( child, enter ? 3 : 0 );
      } );
   };
   enterAt( 2, "u1" );
   run( 20 );
   ASSERT_TRUE( filed( 1 ) );
   const json whole = record( 1 );
   EXPECT_EQ( "aborted", whole.at( "outcome" ) );
   EXPECT_EQ( "maintd", whole.at( "exit-by" ) );
   EXPECT_EQ( "stage steer failed: ended with 3: no such neighbor", whole.at( "exit-reason" ) );
   EXPECT_TRUE( whole.at( "in-maintenance" ).is_null() );
   ASSERT_LE( 2u, whole.at( "stages" ).size() );
   EXPECT_EQ( "failed", whole.at( "stages" ).at( 0 ).at( "state" ) );
   EXPECT_EQ( "ended with 3: no such neighbor", whole.at( "stages" ).at( 0 ).at( "failure" ) );
   EXPECT_EQ( "complete", whole.at( "stages" ).back().at( "state" ) );
}

} // namespace
