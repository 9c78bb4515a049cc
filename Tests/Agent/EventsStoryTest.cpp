#include "Platform/Ledger/FaultEngine.h"
#include "Tests/Agent/CrashSweepTest.h"

#include <nlohmann/json.hpp>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <deque>
#include <string_view>

/// What the agent tells of its work, also when it is ended on the way.
namespace {

using nlohmann::json;
using Tests::AgentRig;
using Lines = std::vector< std::string >;

const char * const configuration = "settle: 5s\n"
                                   "profiles:\n"
                                   "  fast: {threshold: 100kbps, load-interval: 10s, shutdown: true}\n"
                                   "default-profile: fast\n"
                                   "groups:\n"
                                   "  uplinks: {interfaces: [et1, et2]}\n"
                                   "units:\n"
                                   "  u1: {groups: [uplinks]}\n";

/// All that is kept, or what came after an event.
json events( AgentRig & rig, unsigned after = 0 ) {
   return json::parse( rig.get( "events/recent?after=" + std::to_string( after ) + "&limit=4096" ) );
}

/// "u1 state entering", ... of the events that tell of lasting states.
Lines milestones( const json & all ) {
   Lines result;
   for ( const json & event : all.at( "events" ) ) {
      const std::string what = event.at( "what" );
      if ( what == "state" )
         result.push_back( event.at( "subject" ).get< std::string >() + " " + event.at( "state" ).dump() );
      else if ( what == "shut" || what == "released" )
         result.push_back( event.at( "subject" ).get< std::string >() + " " + what );
   }
   return result;
}

class Story {
 public:
   Story() : rig( configuration ) {
      rig.traffic( "et1", 5e6 );
      rig.at( 2, [this] { rig.post( "units/u1/enter", R"({"reason":"swap"})" ); } );
      rig.at( 20, [this] { rig.traffic( "et1", 0 ); } );
      rig.at( 60, [this] { rig.post( "units/u1/exit" ); } );
      rig.start();
   }
   static constexpr double end = 80;
   AgentRig rig;
};

const Lines told{
   "u1 \"entering\"",
   "et1 \"enter-maint\"",
   "et2 \"enter-maint\"",
   "et2 \"under-maint\"",
   "et2 shut",
   "et1 \"under-maint\"",
   "et1 shut",
   "u1 \"maintenance\"",
   "u1 \"exiting\"",
   "et1 null",
   "et1 released",
   "et2 null",
   "et2 released",
   "u1 \"normal\"" };

Lines sorted( Lines list ) {
   std::sort( list.begin(), list.end() );
   return list;
}

TEST( EventsStory, aMaintenanceIsToldFromStartToEnd ) {
   Story story;
   story.rig.runUntil( Story::end );
   const json all = events( story.rig );
   EXPECT_EQ( sorted( told ), sorted( milestones( all ) ) ) << all.dump( 1 );
   EXPECT_EQ( "started", all.at( "events" ).at( 0 ).at( "what" ) );
   for ( unsigned i = 0; i < all.at( "events" ).size(); ++i )
      EXPECT_EQ( i + 1, all.at( "events" ).at( i ).at( "sequence" ) );
}

using EventsAfterEachTurn = Tests::CrashTest;

TEST_P( EventsAfterEachTurn, nothingIsToldTwiceOrLeftOutByACrash ) {
   json before;
   Tests::CrashSweep< Story > sweep;
   sweep.before = [&]( Story & story, unsigned turn ) {
      before = json::array();
      story.rig.turnHookIs( [&before, &story, turn] {
         if ( story.rig.turns() == turn )
            before = events( story.rig ).at( "events" );
      } );
   };
   sweep.down = []( Story & story, unsigned ) { story.rig.turnHookIs( {} ); };
   sweep.over = [&]( Story & story ) {
      const json all = events( story.rig ).at( "events" );
      for ( unsigned i = 0; i < all.size(); ++i )
         ASSERT_EQ( i + 1, all.at( i ).at( "sequence" ) );
      // What somebody may have read is as it was.
      for ( unsigned i = 0; i < before.size(); ++i )
         ASSERT_EQ( before.at( i ), all.at( i ) );
      EXPECT_EQ( sorted( told ), sorted( milestones( { { "events", all } } ) ) );
   };
   sweep.run( GetParam() );
}

INSTANTIATE_TEST_SUITE_P( EventsStory, EventsAfterEachTurn, Tests::allCrashes(), Tests::crashName );

// ---- readers

/// A client of the agent's own socket. Takes nothing unless told to.
class Client {
 public:
   Client( AgentRig & rig, const std::string & path ) {
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
      ( rig.folder() + "/run/control.sock" ).copy( address.sun_path, sizeof address.sun_path - 1 );
      descriptor_ = socket( AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0 );
      EXPECT_EQ( 0, connect( descriptor_, reinterpret_cast< sockaddr * >( &address ), sizeof address ) );
      const std::string request = "GET " + path + " HTTP/1.1\r\nHost: agent\r\n\r\n";
      EXPECT_EQ(
         ssize_t( request.size() ), send( descriptor_, request.data(), request.size(), MSG_NOSIGNAL ) );
   }
   ~Client() { close( descriptor_ ); }
   Client( const Client & ) = delete;
   Client & operator=( const Client & ) = delete;

   /// All that is there.
   const std::string & take() {
      char buffer[4096];
      for ( ssize_t got; ( got = recv( descriptor_, buffer, sizeof buffer, MSG_DONTWAIT ) ) > 0; )
         received_.append( buffer, static_cast< std::size_t >( got ) );
      return received_;
   }

 private:
   int descriptor_;
   std::string received_;
};

/// The events that a reader has been sent in full, by their numbers.
std::map< unsigned, json > eventsIn( const std::string & received ) {
   std::map< unsigned, json > result;
   const std::string begin = "\ndata: ";
   for ( std::size_t at = 0; ( at = received.find( begin, at ) ) != std::string::npos; ) {
      at += begin.size();
      const json data = json::parse( received.substr( at, received.find( '\n', at ) - at ), nullptr, false );
      if ( data.is_object() && data.contains( "sequence" ) )
         result[data.at( "sequence" )] = data;
   }
   return result;
}

/// A story in which the store of the first agent fails for good while a unit drains.
class StoryOfAFullDisk : public Story {
 public:
   StoryOfAFullDisk() {
      // The first agent is there already, so its store is the one that fails after this.
      rig.crash();
      rig.storeUsedIs( [this]( Ledger::StoreEngine & engine ) -> Ledger::StoreEngine & {
         if ( store || !engine.name().starts_with( "state" ) )
            return engine;
         store = std::make_unique< Ledger::FaultEngine >( engine );
         return *store;
      } );
      rig.start();
      rig.at( 10, [this] { store->faultIs( 0, 1000000 ); } );
   }
   ~StoryOfAFullDisk() { rig.crash(); }
   std::unique_ptr< Ledger::FaultEngine > store; ///< of the first agent
};

TEST( EventsStory, eventsAreHeldBackWhileTheStoreFailsAndToldWhenItWorksAgain ) {
   StoryOfAFullDisk story;
   Client reader( story.rig, "/api/v1/events?after=0" );
   story.rig.runUntil( 40 );
   EXPECT_EQ( 2u, story.rig.moves().size() );
   for ( const auto & [sequence, event] : eventsIn( reader.take() ) )
      EXPECT_NE( "shut", event.at( "what" ) );
   EXPECT_EQ( eventsIn( reader.take() ).size(), events( story.rig ).at( "last" ) );
   story.store->faultDel();
   story.rig.runUntil( 50 );
   const json all = events( story.rig );
   const auto seen = eventsIn( reader.take() );
   EXPECT_EQ( all.at( "events" ).size(), seen.size() );
   for ( const json & event : all.at( "events" ) )
      EXPECT_EQ( event, seen.at( event.at( "sequence" ) ) );
   EXPECT_EQ( 2, std::count_if( seen.begin(), seen.end(), []( const auto & event ) {
                 return event.second.at( "what" ) == "shut";
              } ) );
}

TEST( EventsStory, noNumberIsGivenTwiceWhenTheAgentIsKilledWhileItsStoreFails ) {
   StoryOfAFullDisk story;
   std::map< unsigned, json > seen;
   {
      Client reader( story.rig, "/api/v1/events?after=0" );
      story.rig.runUntil( 40 );
      seen = eventsIn( reader.take() );
   }
   ASSERT_FALSE( seen.empty() );
   const unsigned last = seen.rbegin()->first;
   story.rig.crash();
   story.rig.start();
   Client resumed( story.rig, "/api/v1/events?after=" + std::to_string( last ) );
   story.rig.runUntil( Story::end );
   const json all = events( story.rig );
   for ( const auto & [sequence, event] : seen )
      EXPECT_EQ( event, all.at( "events" ).at( sequence - 1 ) );
   seen.merge( eventsIn( resumed.take() ) );
   // Whoever was cut off and came back has seen each event once.
   ASSERT_EQ( all.at( "last" ), seen.size() );
   for ( const json & event : all.at( "events" ) )
      EXPECT_EQ( event, seen.at( event.at( "sequence" ) ) );
   EXPECT_EQ( std::string::npos, resumed.take().find( "event: dropped" ) );
}

/// Everything that happens in the story, with its time.
std::string timesOf( const json & all ) {
   std::string result;
   for ( const json & event : all.at( "events" ) )
      if ( event.at( "type" ) != "agent" )
         result +=
            event.at( "time" ).get< std::string >() + " " + event.at( "text" ).get< std::string >() + "\n";
   return result;
}

TEST( EventsStory, aHundredReadersWhoTakeNothingChangeNothingOfWhatHappens ) {
   std::string expected;
   std::vector< double > times;
   unsigned turnsAlone = 0;
   const char * const moves[] = { "et1 down", "et2 down", "et1 up", "et2 up" };
   {
      Story alone;
      alone.rig.runUntil( Story::end );
      turnsAlone = alone.rig.turns();
      expected = timesOf( events( alone.rig ) );
      for ( const char * move : moves )
         times.push_back( alone.rig.timeOf( move ) );
   }

   Story story;
   std::deque< Client > stuck;
   for ( int i = 0; i < 100; ++i ) {
      stuck.emplace_back( story.rig, "/api/v1/events?after=0&rates=1" );
      for ( int turns = 0; turns < 5; ++turns )
         story.rig.turn();
   }
   const unsigned turnsBefore = story.rig.turns();
   story.rig.runUntil( 40 );
   Client other( story.rig, "/api/v1/units/u1" );
   for ( int turns = 0; turns < 5; ++turns )
      story.rig.turn();
   EXPECT_NE( std::string::npos, other.take().find( "HTTP/1.1 200 OK" ) );
   EXPECT_NE( std::string::npos, other.take().find( "\"drained\":2" ) ) << other.take();
   story.rig.runUntil( Story::end );
   // After a turn with news all of them are told in so many more, and then the agent does nothing for them.
   using Agent::HttpServer;
   constexpr unsigned more = 1 + 100 * HttpServer::maxStreamBytes / HttpServer::maxTurnBytes;
   EXPECT_LE( story.rig.turns() - turnsBefore, ( 1 + more ) * turnsAlone );
   EXPECT_EQ( expected, timesOf( events( story.rig ) ) );
   for ( std::size_t i = 0; i < times.size(); ++i )
      EXPECT_EQ( times[i], story.rig.timeOf( moves[i] ) ) << moves[i];
   // They were being told all the time.
   for ( Client & client : stuck )
      EXPECT_NE( std::string::npos, client.take().find( "goes into maintenance" ) );
}

TEST( EventsStory, aHundredReadersWhoAreFarBehindAreGivenALimitedAmountInATurn ) {
   constexpr unsigned happened = 400;
   constexpr std::size_t readers = 100, most = 2 * Agent::HttpServer::maxTurnBytes;
   Story story;
   AgentRig & rig = story.rig;
   rig.runUntil( 1 );
   rig.configurationIs( "nonsense: [" );
   rig.soon( [&] {
      for ( unsigned i = 0; i < happened; ++i )
         rig.post( "reload" );
   } );
   rig.turn();
   std::deque< Client > all;
   std::size_t before = 0, largest = 0;
   const auto received = [&] {
      std::size_t sum = 0;
      for ( Client & client : all )
         sum += client.take().size();
      return sum;
   };
   // Whoever takes all there is, at once, is given as much as anybody can be.
   rig.turnHookIs( [&] {
      const std::size_t now = received();
      largest = std::max( largest, now - before );
      before = now;
   } );
   // Each is taken in before the next one comes: so many do not fit into the queue of those who knock.
   for ( std::size_t i = 0; i < readers; ++i ) {
      all.emplace_back( rig, "/api/v1/events?after=0" );
      rig.turn();
   }
   Client other( rig, "/api/v1/units/u1" );
   unsigned answeredAfter = 0;
   const std::string last = "\nid: " + events( rig ).at( "last" ).dump() + "\n";
   const auto hasAll = [&]( Client & client ) {
      const std::string_view text = client.take();
      return text.substr( text.size() - std::min< std::size_t >( text.size(), 4096 ) ).find( last ) !=
             std::string_view::npos;
   };
   bool allHaveAll = false;
   for ( unsigned turns = 0; turns < 10000 && !allHaveAll; ++turns ) {
      rig.turn();
      allHaveAll = std::all_of( all.begin(), all.end(), hasAll );
      if ( answeredAfter == 0 && other.take().find( "HTTP/1.1 200 OK" ) != std::string::npos )
         answeredAfter = turns + 1;
   }
   rig.turnHookIs( {} );
   EXPECT_TRUE( allHaveAll );
   EXPECT_GT( before, 10 * most );
   EXPECT_LE( largest, most );
   EXPECT_GT( answeredAfter, 0u );
   EXPECT_LT( answeredAfter, 50u );
}

TEST( EventsStory, aReloadIsToldWithWhatItChanges ) {
   AgentRig rig( configuration );
   rig.start();
   rig.runUntil( 1 );
   const unsigned last = events( rig ).at( "last" );
   std::string other = configuration;
   other.replace( other.find( "100kbps" ), 7, "200kbps" );
   EXPECT_EQ( 200, rig.reload( other ) );
   EXPECT_EQ( 400, rig.reload( "nonsense: [" ) );
   const json news = events( rig, last ).at( "events" );
   Lines seen;
   for ( const json & event : news )
      seen.push_back(
         event.at( "type" ).get< std::string >() + " " + event.at( "what" ).get< std::string >() );
   ASSERT_GE( seen.size(), 3u );
   seen.resize( 3 );
   EXPECT_EQ(
      ( Lines{ "agent configuration-taken", "profile edited", "agent configuration-refused" } ), seen );
}

TEST( EventsStory, linksThatOthersChangeAreTold ) {
   AgentRig rig( configuration );
   rig.start();
   rig.runUntil( 5.5 );
   ASSERT_TRUE( rig.simulation().linkIs( "et1", false ).ok() );
   rig.runUntil( 6.2 );
   json last = events( rig ).at( "events" ).back();
   EXPECT_EQ( "link", last.at( "what" ) );
   EXPECT_EQ( "down", last.at( "link-state" ) );
   rig.crash();
   rig.withoutAgent( [&] { ASSERT_TRUE( rig.simulation().linkIs( "et1", true ).ok() ); } );
   rig.start();
   rig.runUntil( 8 );
   last = events( rig ).at( "events" ).back();
   EXPECT_EQ( "link", last.at( "what" ) ) << last;
   EXPECT_EQ( "up", last.at( "link-state" ) );
   EXPECT_EQ( 1, last.at( "changes" ) ) << "that it is put anew is none";
   rig.runUntil( 20 );
   ASSERT_TRUE( rig.simulation().linkIs( "et1", false ).ok() );
   rig.runUntil( 21 );
   last = events( rig ).at( "events" ).back();
   EXPECT_EQ( "down", last.at( "link-state" ) ) << last;
   EXPECT_EQ( 1, last.at( "changes" ) );
}

} // namespace
