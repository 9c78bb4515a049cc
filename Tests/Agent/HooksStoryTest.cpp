#include "Tests/Agent/CrashSweepTest.h"

#include <nlohmann/json.hpp>

#include <algorithm>

/// A maintenance, and somebody who is told of its moments.
namespace {

using Agent::FakeChildren;
using nlohmann::json;
using Tests::AgentRig;

const char * const configuration = "settle: 5s\n"
                                   "profiles:\n"
                                   "  fast: {threshold: 100kbps, load-interval: 10s, shutdown: true}\n"
                                   "  late: {threshold: 100kbps, load-interval: 10s, shutdown: true, "
                                   "shutdown-max-delay: 20s}\n"
                                   "  watch: {threshold: 100kbps, load-interval: 10s}\n"
                                   "default-profile: fast\n"
                                   "groups:\n"
                                   "  quiet: {interfaces: [et1]}\n"
                                   "  busy: {interfaces: [et2], profile: late}\n"
                                   "units:\n"
                                   "  u1: {groups: [quiet, busy]}\n"
                                   "hooks:\n"
                                   "  pager:\n"
                                   "    at: [enter, drained, shut, spike, completed, exit, normal, overrun]\n"
                                   "    command: /bin/page\n"
                                   "  desk: {at: [exit], url: \"http://desk/\", time-limit: 5s}\n";

/// Takes two seconds for each call. Calls for one event may come twice where an agent has ended between.
class Pager {
 public:
   explicit Pager( AgentRig & rig ) : rig_( rig ) {
      rig_.children().onGo = [this]( FakeChildren::Child & child ) {
         const json told = json::parse( child.program.input );
         if ( told.at( "hook" ) != "pager" )
            return;
         rig_.at( rig_.time() + 2, [this, &child, told] {
            if ( child.phase != FakeChildren::Phase::going )
               return;
            const auto sequence = told.at( "sequence" ).get< unsigned >();
            if ( sequence <= last )
               wrong.push_back( "event " + std::to_string( sequence ) + " after " + std::to_string( last ) );
            last = sequence;
            did.push_back(
               told.at( "moment" ).get< std::string >() + " " + told.at( "subject" ).get< std::string >() );
            rig_.children().ends( child, 0 );
         } );
      };
      // What is ended by force ends.
      rig_.children().onKill = [this]( FakeChildren::Child & child ) {
         rig_.soon( [this, &child] { rig_.children().ends( child, 0, 9 ); } );
      };
   }

   std::vector< std::string > did, wrong;
   unsigned last = 0;

 private:
   AgentRig & rig_;
};

class Story {
 public:
   Story() : rig( configuration ), pager( rig ) {
      rig.traffic( "et2", 5e6 );
      rig.at( 2, [this] { rig.post( "units/u1/enter", R"({"reason":"swap; $(reboot) \"now\""})" ); } );
      rig.at( 60, [this] { rig.post( "units/u1/exit", R"({"reason":"done"})" ); } );
      rig.start();
   }
   static constexpr double end = 90;
   AgentRig rig;
   Pager pager;
};

const std::vector< std::string > moments{ "enter u1",     "drained et1", "shut et1", "shut et2",
                                          "completed u1", "exit u1",     "normal u1" };

TEST( HooksStory, tellsEachMomentOnceAndInOrder ) {
   Story story;
   story.rig.runUntil( Story::end );
   EXPECT_EQ( moments, story.pager.did );
   EXPECT_EQ( std::vector< std::string >(), story.pager.wrong );
   // That server never answers.
   const json hooks = json::parse( story.rig.fact( "agent", "hooks" ) );
   ASSERT_EQ( 2u, hooks.size() );
   EXPECT_EQ(
      json::parse( R"({"event":null,"failure":"ran into its time limit of 5 s","failures":"1","kind":"url",)"
                   R"("missed":"0","name":"desk","runs":"1","waiting":0})" ),
      hooks[0] );
   EXPECT_EQ( "7", hooks[1].at( "runs" ) );
   EXPECT_EQ( nullptr, hooks[1].at( "failure" ) );
   const std::string problems = story.rig.fact( "agent", "problems" );
   EXPECT_NE( std::string::npos, problems.find( "hook desk failed: ran into its time limit of 5 s" ) )
      << problems;
}

TEST( HooksStory, tellsThatAUnitIsTooLateBeforeItGoesBackForThat ) {
   AgentRig rig( configuration );
   Pager pager( rig );
   rig.traffic( "et1", 5e6 );
   rig.at( 2, [&rig] { rig.post( "units/u1/enter", R"({"deadline":"9s","on-overrun":"restore"})" ); } );
   rig.start();
   rig.runUntil( 30 );
   EXPECT_EQ( ( std::vector< std::string >{ "enter u1", "overrun u1", "exit u1", "normal u1" } ), pager.did );
   EXPECT_EQ( std::vector< std::string >(), pager.wrong );
}

TEST( HooksStory, tellsTrafficThatComesBack ) {
   std::string staysUp = configuration;
   staysUp.replace(
      staysUp.find( "quiet: {interfaces: [et1]" ), 25, "quiet: {interfaces: [et1], profile: watch" );
   AgentRig rig( staysUp );
   Pager pager( rig );
   rig.at( 2, [&] { rig.post( "units/u1/enter" ); } );
   rig.at( 60, [&] { rig.traffic( "et1", 5e6 ); } );
   rig.start();
   rig.runUntil( 90 );
   EXPECT_EQ( 1, std::count( pager.did.begin(), pager.did.end(), "spike et1" ) );
}

TEST( HooksStory, tellsAFailureAsAnEvent ) {
   Story story;
   story.rig.runUntil( Story::end );
   const json events = json::parse( story.rig.get( "events/recent?limit=4096" ) ).at( "events" );
   const auto failed = std::find_if(
      events.begin(), events.end(), []( const json & e ) { return e.at( "what" ) == "hook-failed"; } );
   ASSERT_NE( events.end(), failed );
   EXPECT_EQ( "desk", failed->at( "hook" ) );
   EXPECT_EQ( "exit", failed->at( "moment" ) );
   EXPECT_EQ( json{ "u1" }, failed->at( "units" ) );
   const auto of = std::find_if( events.begin(), events.end(), [&]( const json & e ) {
      return e.at( "sequence" ) == failed->at( "event" );
   } );
   ASSERT_NE( events.end(), of );
   EXPECT_EQ( "exiting", of->at( "state" ) );
}

/// A hook that hangs for ever, and cannot be killed either, is nobody's business but its own.
TEST( HooksStory, holdsUpNothingWhateverAHookDoes ) {
   const auto timesWith = []( bool hang ) {
      Story story;
      if ( hang )
         story.rig.children().onGo = story.rig.children().onKill = nullptr;
      story.rig.runUntil( Story::end );
      EXPECT_EQ( hang ? 0u : moments.size(), story.pager.did.size() );
      std::vector< std::pair< std::string, double > > times;
      for ( const std::string & move : story.rig.moves() )
         times.emplace_back( move, story.rig.timeOf( move ) );
      EXPECT_EQ( "\"normal\"", story.rig.fact( "units/u1", "state" ) );
      return times;
   };
   const auto without = timesWith( false );
   EXPECT_EQ( 4u, without.size() );
   EXPECT_EQ( without, timesWith( true ) );
}

TEST( HooksStory, reloadEndsWhatRunsForAHookThatHasGone ) {
   Story story;
   story.rig.runUntil( 61 );
   ASSERT_EQ( 2u, story.rig.children().running() );
   std::string without = configuration;
   without.resize( without.find( "  desk:" ) );
   EXPECT_EQ( 200, story.rig.reload( without ) );
   story.rig.runUntil( 62 );
   EXPECT_EQ( 1, json::parse( story.rig.fact( "agent", "hooks" ) ).size() );
   story.rig.runUntil( Story::end );
   EXPECT_EQ( moments, story.pager.did );
   EXPECT_EQ( "[]", story.rig.fact( "agent", "problems" ) );
}

using HooksCrash = Tests::CrashTest;

/// Each moment is told at least once and in order, wherever the agent ends, and what was told to the end is not told
/// again unless the agent has ended before it could write that down.
TEST_P( HooksCrash, afterAnyTurnForgetsNothing ) {
   Tests::CrashSweep< Story > sweep;
   sweep.more = 30;
   sweep.down = []( Story & story, unsigned turn ) {
      story.pager.last = 0;
      story.rig.children().remnantsAre( turn % 3 );
   };
   sweep.over = []( Story & story ) {
      EXPECT_EQ( std::vector< std::string >(), story.pager.wrong );
      std::vector< std::string > did = story.pager.did;
      EXPECT_LE( did.size(), moments.size() + 1 );
      did.erase( std::unique( did.begin(), did.end() ), did.end() );
      EXPECT_EQ( moments, did );
   };
   sweep.run( GetParam() );
}

/// A hook that fails at once, each time.
class FailingStory {
 public:
   FailingStory()
      : rig( "settle: 5s\n"
             "profiles:\n"
             "  fast: {threshold: 100kbps, load-interval: 10s, shutdown: true}\n"
             "default-profile: fast\n"
             "groups:\n"
             "  quiet: {interfaces: [et1]}\n"
             "units:\n"
             "  u1: {groups: [quiet]}\n"
             "hooks:\n"
             "  pager: {at: [enter, drained, shut, completed, exit, normal], command: /bin/page}\n" ) {
      rig.children().onGo = [this]( FakeChildren::Child & child ) {
         rig.soon( [this, &child] { rig.children().ends( child, 1 ); } );
      };
      rig.at( 2, [this] { rig.post( "units/u1/enter" ); } );
      rig.at( 30, [this] { rig.post( "units/u1/exit" ); } );
      rig.start();
   }
   static constexpr double end = 32;
   AgentRig rig;
};

/// Failures by the events of the log.
unsigned failuresTold( AgentRig & rig ) {
   unsigned result = 0;
   const json events = json::parse( rig.get( "events/recent?limit=4096" ) ).at( "events" );
   for ( const json & event : events )
      if ( event.at( "what" ) == "hook-failed" )
         result += event.at( "count" ).get< unsigned >();
   return result;
}

unsigned failuresOf( AgentRig & rig ) {
   const std::string failures = json::parse( rig.fact( "agent", "hooks" ) ).at( 0 ).at( "failures" );
   return static_cast< unsigned >( std::stoul( failures ) );
}

TEST( HooksStory, countsFailuresThatFollowEachOtherAndTellsThemLater ) {
   FailingStory story;
   story.rig.runUntil( FailingStory::end );
   EXPECT_EQ( 6u, failuresOf( story.rig ) );
   EXPECT_LT( failuresTold( story.rig ), 6u ) << "the last one follows too closely";
   story.rig.runUntil( FailingStory::end + 70 );
   EXPECT_EQ( 6u, failuresTold( story.rig ) );
}

/// Each failure is in an event, wherever the agent ends, also when it was yet to be told then.
TEST_P( HooksCrash, afterAnyTurnTellsEachFailure ) {
   Tests::CrashSweep< FailingStory > sweep;
   sweep.more = 70;
   sweep.over = []( FailingStory & story ) {
      EXPECT_GE( failuresOf( story.rig ), 5u );
      EXPECT_EQ( failuresOf( story.rig ), failuresTold( story.rig ) );
   };
   sweep.run( GetParam() );
}

INSTANTIATE_TEST_SUITE_P( HooksStory, HooksCrash, Tests::allCrashes(), Tests::crashName );

} // namespace
