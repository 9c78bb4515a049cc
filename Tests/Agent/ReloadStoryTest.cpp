#include "Agent/Control/AccountName.h"
#include "Tests/Agent/CrashSweepTest.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <csignal>
#include <memory>
#include <unistd.h>

/// What changes at once: the configuration, and links that are released by hand.
namespace {

using nlohmann::json;
using Tests::AgentRig;

const char * const first = R"(
settle: 5s
profiles:
  fast: {threshold: 100kbps, load-interval: 10s, shutdown: true}
default-profile: fast
groups:
  a: {interfaces: [et1, et2]}
units:
  u1: {groups: [a]}
)";

/// With another unit, profile and hook.
const char * const second = R"(
settle: 5s
profiles:
  fast: {threshold: 100kbps, load-interval: 10s, shutdown: true}
  watch: {threshold: 1Mbps, load-interval: 10s}
default-profile: fast
groups:
  a: {interfaces: [et1, et2]}
  b: {interfaces: [et5], profile: watch}
units:
  u1: {groups: [a]}
  u2: {groups: [b]}
hooks:
  pager: {at: [exit], command: /bin/page}
)";

/// Without u1.
const char * const third = R"(
settle: 5s
profiles:
  fast: {threshold: 100kbps, load-interval: 10s, shutdown: true}
default-profile: fast
groups:
  b: {interfaces: [et5]}
units:
  u2: {groups: [b]}
)";

std::vector< std::string > names( AgentRig & rig, const std::string & path ) {
   std::vector< std::string > result;
   for ( const json & each : json::parse( rig.get( path ) ) )
      result.push_back( each.at( "name" ) );
   return result;
}

/// Events of this kind, the last one first.
std::vector< json > events( AgentRig & rig, const std::string & what ) {
   std::vector< json > result;
   const json recent = json::parse( rig.get( "events/recent?limit=1000" ) ).at( "events" );
   for ( const json & event : recent )
      if ( event.at( "what" ) == what )
         result.insert( result.begin(), event );
   return result;
}

json operations( AgentRig & rig ) { return json::parse( rig.get( "operations" ) ); }

using Names = std::vector< std::string >;

class ReloadBySignal : public testing::Test {
 protected:
   ReloadBySignal() : rig( first ) { rig.start(); }
   void signalled( const std::string & configuration ) {
      rig.configurationIs( configuration );
      rig.signal( SIGHUP );
   }
   std::string problems() { return rig.fact( "agent", "problems" ); }

   AgentRig rig;
};

TEST_F( ReloadBySignal, isAnOperationOfWhoeverHasSentTheSignal ) {
   signalled( second );
   EXPECT_EQ( ( Names{ "u1", "u2" } ), names( rig, "units" ) );
   json list = operations( rig );
   ASSERT_EQ( 1u, list.size() );
   EXPECT_EQ( list[0].at( "begun" ), list[0].at( "ended" ) );
   for ( const char * const time : { "begun", "ended" } )
      list[0].erase( time );
   EXPECT_EQ(
      ( json{
         { "id", 1 },
         { "kind", "reload" },
         { "unit", nullptr },
         { "interface", nullptr },
         { "state", "done" },
         { "by", Agent::accountName( geteuid() ) },
         { "reason", "it was told so by a signal" },
         { "with", json::object() },
         { "request-key", nullptr },
         { "ended-by", nullptr },
         { "text", "profile \"watch\" added and 3 more" } } ),
      list[0] );
   rig.crash();
   rig.start();
   EXPECT_EQ( 1u, operations( rig ).size() );
}

TEST_F( ReloadBySignal, isNoneWhereNothingChanges ) {
   signalled( first );
   EXPECT_EQ( 0u, operations( rig ).size() );
   EXPECT_EQ( "[]", problems() );
}

TEST_F( ReloadBySignal, isNoneWhereTheFileIsRefusedAndThatIsAProblem ) {
   signalled( "units: [\n" );
   EXPECT_EQ( 0u, operations( rig ).size() );
   EXPECT_EQ( Names{ "u1" }, names( rig, "units" ) );
   EXPECT_NE( std::string::npos, problems().find( "maintd.yaml:" ) ) << problems();
   EXPECT_EQ( 1u, events( rig, "configuration-refused" ).size() );
   rig.post( "units/u1/enter" );
   signalled( third );
   EXPECT_EQ( 1u, operations( rig ).size() ) << "the enter's";
   EXPECT_NE( std::string::npos, problems().find( "unit u1 is not normal and cannot be removed" ) );
   EXPECT_EQ( Names{ "u1" }, names( rig, "units" ) );
   signalled( second );
   EXPECT_EQ( 2u, events( rig, "configuration-refused" ).size() );
   EXPECT_EQ( "[]", problems() );
   EXPECT_EQ( 2u, operations( rig ).size() );
   EXPECT_EQ( "reload", operations( rig ).at( 0 ).at( "kind" ) );
}

// ---- its text

/// The text of the operation that makes a hook run another command, which has so many characters of two bytes.
class TextOfAReload : public testing::Test {
 protected:
   std::string textOf( const std::string & hook, unsigned characters ) {
      std::string word;
      for ( unsigned i = 0; i < characters; ++i )
         word += "\xc3\xa4";
      const auto configuration = [&]( const std::string & command ) {
         return first + ( "hooks:\n  " + hook ) + ": {at: [exit], command: [" + command + "]}\n";
      };
      AgentRig rig( configuration( "/a" ) );
      rig.start();
      const auto answer = rig.reload( configuration( "/" + word ) );
      EXPECT_EQ( 200, answer );
      whole = events( rig, "configuration-taken" ).at( 0 ).at( "changes" ).at( 0 );
      return operations( rig ).at( 0 ).at( "text" );
   }

   std::string whole;
};

TEST_F( TextOfAReload, isTheWholeChangeWhereItIsShort ) {
   EXPECT_EQ( whole, textOf( "h", 10 ) );
   EXPECT_EQ( std::string::npos, whole.find( "..." ) );
}

TEST_F( TextOfAReload, isCutAfter300BytesBetweenTwoCharactersAndSaysSo ) {
   std::vector< std::size_t > sizes;
   for ( const char * const hook : { "h", "hh" } ) {
      SCOPED_TRACE( hook );
      const std::string text = textOf( hook, 200 );
      ASSERT_GT( whole.size(), 300u );
      ASSERT_TRUE( text.ends_with( "\xc3\xa4..." ) ) << text;
      EXPECT_EQ( whole.substr( 0, text.size() - 3 ) + "...", text );
      sizes.push_back( text.size() - 3 );
   }
   std::sort( sizes.begin(), sizes.end() );
   EXPECT_EQ( ( std::vector< std::size_t >{ 299, 300 } ), sizes )
      << "one of them would have ended in the middle";
}

// ---- the agent ends meanwhile

/// A link is released and configurations come and go while a unit is under maintenance. Each file is written a second
/// before it is asked for, as people do.
class Story {
 public:
   using Answer = std::shared_ptr< const Agent::HttpReply >;

   Story() : rig( first ) {
      // What is ended by force ends.
      rig.children().onKill = [this]( Agent::FakeChildren::Child & child ) {
         rig.soon( [this, &child] { rig.children().ends( child, 0, 9 ); } );
      };
      rig.at( 2, [this] { rig.post( "units/u1/enter" ); } );
      rig.at( 20, [this] { release = rig.ask( "POST", "interfaces/et1/release", releaseBody ); } );
      fileIs( 21, second );
      rig.at( 22, [this] { taken = rig.ask( "POST", "reload", takenBody ); } );
      fileIs( 23, third );
      rig.at( 24, [this] { refused = rig.ask( "POST", "reload", refusedBody ); } );
      rig.at( 25, [this] { rig.post( "units/u1/exit" ); } );
      // Its program for the exit runs still.
      fileIs( 28, first );
      rig.at( 29, [this] { rig.signal( SIGHUP ); } );
      rig.start();
   }
   static constexpr double end = 33;
   static constexpr const char * releaseBody = R"({"force":true,"request-key":"r1","with":{"ticket":"17"}})";
   static constexpr const char * takenBody = R"({"reason":"more","request-key":"c1"})";
   static constexpr const char * refusedBody = R"({"request-key":"c2"})";

   AgentRig rig;
   Answer release, taken, refused;

 private:
   void fileIs( double time, const char * configuration ) {
      rig.at( time, [this, configuration] { rig.configurationIs( configuration ); } );
   }
};

/// What is kept of operations, without times; their numbers are without gaps.
std::string kept( AgentRig & rig ) {
   std::string result;
   json list = operations( rig );
   for ( std::size_t i = 0; i < list.size(); ++i ) {
      EXPECT_EQ( list.size() - i, list[i].at( "id" ) );
      EXPECT_EQ( list[i].at( "state" ) == "running", list[i].at( "ended" ).is_null() );
      list[i].erase( "begun" );
      list[i].erase( "ended" );
      result += list[i].dump() + "\n";
   }
   return result;
}

/// Those that have this key.
std::vector< json > withKey( AgentRig & rig, const std::string & key ) {
   std::vector< json > result;
   for ( const json & operation : operations( rig ) )
      if ( operation.at( "request-key" ) == key )
         result.push_back( operation );
   return result;
}

/// The operation that an answer names, by now and when it is asked for again.
void isTheSame( AgentRig & rig, const Story::Answer & answer, const std::string & path, const char * body ) {
   const json told = json::parse( answer->body ), again = json::parse( rig.ask( "POST", path, body )->body );
   EXPECT_EQ( told.at( "operation" ), again.at( "operation" ) );
   EXPECT_EQ( true, again.at( "repeated" ) );
   EXPECT_EQ( false, again.at( "changed" ) );
}

std::vector< std::string > sorted( std::vector< std::string > list ) {
   std::sort( list.begin(), list.end() );
   return list;
}

std::string timesOf( AgentRig & rig ) {
   std::string result;
   for ( const auto & move : rig.watched().moves() )
      result += move.what + " at " + std::to_string( move.time ) + "\n";
   return result;
}

/// \param takenByStart  whether the second file may have been taken by the start of an agent, so that nothing was left
///                      for the reload to change; the same of the last one and the signal
void isAsItMustBe( Story & story, bool takenByStart ) {
   AgentRig & rig = story.rig;
   ASSERT_EQ( 202, story.release->status ) << story.release->body;
   const auto released = withKey( rig, "r1" );
   ASSERT_EQ( 1u, released.size() );
   EXPECT_EQ( released[0].at( "id" ), json::parse( story.release->body ).at( "operation" ) );
   EXPECT_EQ( "done", released[0].at( "state" ) );
   EXPECT_EQ( "et1 is to be raised", released[0].at( "text" ) );
   EXPECT_EQ( ( json{ { "ticket", "17" } } ), released[0].at( "with" ) );
   isTheSame( rig, story.release, "interfaces/et1/release", Story::releaseBody );

   ASSERT_EQ( 200, story.taken->status ) << story.taken->body;
   const auto taken = withKey( rig, "c1" );
   ASSERT_LE( taken.size(), 1u );
   const json operation = json::parse( story.taken->body ).at( "operation" );
   if ( taken.empty() ) {
      EXPECT_TRUE( takenByStart );
      EXPECT_EQ( nullptr, operation );
   } else {
      EXPECT_EQ( taken[0].at( "id" ), operation );
      EXPECT_EQ( "done", taken[0].at( "state" ) );
      EXPECT_EQ( "profile \"watch\" added and 3 more", taken[0].at( "text" ) );
   }
   isTheSame( rig, story.taken, "reload", Story::takenBody );
   EXPECT_EQ( 409, story.refused->status ) << story.refused->body;
   EXPECT_EQ( 0u, withKey( rig, "c2" ).size() );

   std::map< std::string, unsigned > kinds;
   for ( const json & each : operations( rig ) ) {
      ++kinds[each.at( "kind" )];
      EXPECT_EQ( "done", each.at( "state" ) ) << each;
   }
   EXPECT_EQ( 1u, kinds["enter"] );
   EXPECT_EQ( 1u, kinds["exit"] );
   EXPECT_EQ( 1u, kinds["release"] );
   const unsigned reloads = kinds["reload"] - static_cast< unsigned >( taken.size() );
   EXPECT_LE( reloads, 1u );
   EXPECT_TRUE( reloads == 1 || takenByStart );

   EXPECT_EQ( ( Names{ "et1 down", "et1 up", "et2 down", "et2 up" } ), sorted( rig.moves() ) )
      << timesOf( rig );
   EXPECT_LT( rig.timeOf( "et1 up" ), 25 ) << "released before the unit goes back";
   EXPECT_GE( rig.timeOf( "et2 up" ), 25 );
   EXPECT_EQ( Names{ "u1" }, names( rig, "units" ) );
   EXPECT_EQ( Names{ "fast" }, names( rig, "profiles" ) );
   EXPECT_EQ( "[]", rig.fact( "agent", "hooks" ) );
   EXPECT_EQ( 0u, rig.children().running() );
   EXPECT_EQ( "\"normal\"", rig.fact( "units/u1", "state" ) );
   EXPECT_EQ( "[]", rig.fact( "agent", "problems" ) );
}

TEST( ReloadStory, withoutACrashEachFileIsTakenOrRefusedByItsRequest ) {
   Story story;
   story.rig.runUntil( 24.5 );
   EXPECT_EQ( ( Names{ "u1", "u2" } ), names( story.rig, "units" ) );
   EXPECT_EQ( "\"maintenance\"", story.rig.fact( "units/u1", "state" ) );
   story.rig.runUntil( 26 );
   EXPECT_EQ( 1u, story.rig.children().running() );
   story.rig.runUntil( Story::end );
   isAsItMustBe( story, false );
   EXPECT_EQ( 5u, operations( story.rig ).size() );
}

using ReloadCrash = Tests::CrashTest;

TEST_P( ReloadCrash, afterAnyTurnLeavesEachOperationOnceAndWithItsEnd ) {
   std::string seen;
   bool asked = false;
   Tests::CrashSweep< Story > sweep;
   sweep.before = [&]( Story & story, unsigned turn ) {
      seen.clear();
      story.rig.turnHookIs( [&, turn] {
         if ( story.rig.turns() == turn ) {
            seen = kept( story.rig );
            // A file that lies there and is not asked for yet is taken by whoever starts.
            const double time = story.rig.time();
            asked = !( time >= 21 && time < 22.5 ) && !( time >= 28 && time < 29.5 );
         }
      } );
   };
   sweep.down = []( Story & story, unsigned turn ) {
      story.rig.turnHookIs( {} );
      story.rig.children().remnantsAre( turn % 3 );
   };
   sweep.back = [&]( Story & story ) { EXPECT_EQ( seen, kept( story.rig ) ); };
   sweep.over = [&]( Story & story ) { isAsItMustBe( story, !asked ); };
   sweep.more = 3;
   sweep.run( GetParam() );
}

INSTANTIATE_TEST_SUITE_P( ReloadStory, ReloadCrash, Tests::allCrashes(), Tests::crashName );

} // namespace
