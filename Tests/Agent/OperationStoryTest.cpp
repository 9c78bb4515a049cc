#include "Tests/Agent/CrashSweepTest.h"

#include <nlohmann/json.hpp>

#include <csignal>
#include <map>
#include <memory>
#include <set>

namespace {

using nlohmann::json;
using Tests::AgentRig;

const char * const configuration = R"(
settle: 5s
profiles:
  fast: {threshold: 100kbps, load-interval: 10s, shutdown: true}
default-profile: fast
groups:
  a: {interfaces: [et1]}
  b: {interfaces: [et2]}
stages:
  steer: {enter: /bin/steer}
units:
  u1: {groups: [a]}
  u2: {groups: [b]}
  u3: {groups: [b], enter: [steer, drainwatch], exit: [drainwatch]}
)";

class OperationStory : public testing::Test {
 protected:
   OperationStory() : rig( configuration ) { rig.start(); }

   /// The answer to a request that is taken.
   json post( const std::string & path, const std::string & body = "{}" ) {
      const auto answer = rig.ask( "POST", path, body );
      EXPECT_EQ( 202, answer->status ) << answer->body;
      return json::parse( answer->body );
   }
   /// The error of one that is not.
   json refused( int status, const std::string & path, const std::string & body = "{}" ) {
      const auto answer = rig.ask( "POST", path, body );
      EXPECT_EQ( status, answer->status ) << answer->body;
      return json::parse( answer->body ).at( "error" );
   }
   json operation( unsigned id ) { return json::parse( rig.get( "operations/" + std::to_string( id ) ) ); }
   json operations( const std::string & query = "" ) {
      return json::parse( rig.get( "operations" + query ) );
   }
   std::string state( unsigned id ) { return operation( id ).at( "state" ); }

   AgentRig rig;
};

TEST_F( OperationStory, aChangeIsFollowedByItsNumberFromTheAnswerToTheRecord ) {
   const json answer = post( "units/u1/enter", R"({"reason":"swap","with":{"ticket":"17","job":"x=y"}})" );
   EXPECT_EQ( 1, answer.at( "operation" ) );
   EXPECT_EQ( true, answer.at( "changed" ) );
   const json pairs{ { "job", "x=y" }, { "ticket", "17" } };
   const json running = operation( 1 );
   EXPECT_EQ( "running", running.at( "state" ) );
   EXPECT_EQ( "enter", running.at( "kind" ) );
   EXPECT_EQ( "tester", running.at( "by" ) );
   EXPECT_EQ( "swap", running.at( "reason" ) );
   EXPECT_EQ( pairs, running.at( "with" ) );
   EXPECT_EQ( nullptr, running.at( "ended" ) );
   rig.runUntil( 60 );
   EXPECT_EQ( "done", state( 1 ) );
   EXPECT_EQ( 2, post( "units/u1/exit", R"({"with":{"result":"ok"}})" ).at( "operation" ) );
   rig.runUntil( 120 );
   EXPECT_EQ( "done", state( 2 ) );
   EXPECT_EQ( "2", rig.fact( "units/u1", "operation" ) );

   const json record = json::parse( rig.get( "history" ) ).at( 0 );
   EXPECT_EQ( 1, record.at( "operation" ) );
   EXPECT_EQ( 2, record.at( "exit-operation" ) );
   EXPECT_EQ( pairs, record.at( "with" ) );
   EXPECT_EQ( json( { { "result", "ok" } } ), record.at( "exit-with" ) );
   std::map< std::string, std::set< unsigned > > states;
   const json events = json::parse( rig.get( "events/recent?limit=1000" ) ).at( "events" );
   for ( const json & event : events )
      if ( event.at( "what" ) == "state" && event.at( "subject" ) == "u1" ) {
         states[event.at( "state" )].insert( event.at( "operation" ).get< unsigned >() );
         if ( event.at( "state" ) == "maintenance" ) {
            EXPECT_EQ( pairs, event.at( "with" ) );
         }
      }
   const std::map< std::string, std::set< unsigned > > expected{
      { "entering", { 1 } }, { "maintenance", { 1 } }, { "exiting", { 2 } }, { "normal", { 2 } } };
   EXPECT_EQ( expected, states );
}

TEST_F( OperationStory, aScriptThatRunsTwiceReportsNoChangeTheSecondTime ) {
   const auto script = [&] {
      std::vector< bool > changes;
      for ( const char * unit : { "u1", "u2" } )
         changes.push_back(
            post( "units/" + std::string( unit ) + "/enter", R"({"reason":"job 7"})" ).at( "changed" ) );
      rig.runUntil( rig.time() + 60 );
      for ( const char * unit : { "u1", "u2" } )
         EXPECT_EQ( "\"maintenance\"", rig.fact( "units/" + std::string( unit ), "state" ) );
      return changes;
   };
   EXPECT_EQ( ( std::vector< bool >{ true, true } ), script() );
   const std::string before = rig.picture(), told = rig.get( "operations" );
   EXPECT_EQ( ( std::vector< bool >{ false, false } ), script() );
   EXPECT_EQ( before, rig.picture() );
   EXPECT_EQ( told, rig.get( "operations" ) );
   EXPECT_EQ( true, post( "units/u1/exit" ).at( "changed" ) );
   EXPECT_EQ( false, post( "units/u1/exit" ).at( "changed" ) );
   rig.runUntil( rig.time() + 60 );
   const json last = post( "units/u1/exit" );
   EXPECT_EQ( false, last.at( "changed" ) );
   EXPECT_EQ( 3, last.at( "operation" ) ) << "the exit that has made it so";
}

TEST_F( OperationStory, anExitCancelsAnEnterAndAnEnterDuringAnExitIsRefusedWithItsNumber ) {
   rig.traffic( "et1", 1e8 );
   post( "units/u1/enter" );
   rig.runUntil( 7 );
   EXPECT_EQ( 2, post( "units/u1/exit" ).at( "operation" ) );
   EXPECT_EQ( "cancelled", state( 1 ) );
   EXPECT_EQ( 2, operation( 1 ).at( "ended-by" ) );
   // A stage that does not end keeps the other one on its way.
   post( "units/u3/enter" );
   post( "units/u3/exit" );
   const json error = refused( 409, "units/u3/enter" );
   EXPECT_EQ( 4, error.at( "operation" ) );
   EXPECT_EQ(
      "unit u3 is on its way back (operation 4); wait until it is normal",
      error.at( "message" ).get< std::string >() );
   EXPECT_EQ( 4u, operations().size() );
}

/// A unit enters through a command, which takes three seconds, until it has drained and settled; at any time of that
/// somebody wants it back.
class Cancelled {
 public:
   explicit Cancelled( double exitTime ) : rig( configurationOfIt() ) {
      rig.children().onGo = [this]( Agent::FakeChildren::Child & child ) {
         rig.at( rig.time() + 3, [this, &child] {
            if ( child.phase == Agent::FakeChildren::Phase::going )
               rig.children().ends( child, 0 );
         } );
      };
      rig.children().onTerminate = [this]( Agent::FakeChildren::Child & child ) {
         rig.soon( [this, &child] { rig.children().ends( child, 0, SIGTERM ); } );
      };
      rig.at( 2, [this] { rig.post( "units/u3/enter" ); } );
      rig.at( exitTime, [this] {
         before = rig.fact( "units/u3", "state" );
         stage = rig.fact( "units/u3", "stage" );
         exit = rig.ask( "POST", "units/u3/exit" );
         enters.push_back( rig.ask( "POST", "units/u3/enter" ) );
      } );
      for ( const double later : { 0.5, 1.0, 2.0 } )
         rig.at( exitTime + later, [this] {
            if ( rig.fact( "units/u3", "state" ) == "\"exiting\"" )
               enters.push_back( rig.ask( "POST", "units/u3/enter" ) );
         } );
      rig.start();
      rig.runUntil( exitTime + 20 );
   }
   AgentRig rig;
   std::string before, stage; ///< when the exit was asked for
   std::shared_ptr< const Agent::HttpReply > exit;
   std::vector< std::shared_ptr< const Agent::HttpReply > > enters; ///< after it

 private:
   static std::string configurationOfIt() {
      std::string result = configuration;
      const std::string stage = "{enter: /bin/steer}", way = "exit: [drainwatch]";
      result.replace( result.find( stage ), stage.size(), "{enter: /bin/steer, exit: /bin/steer}" );
      return result.replace( result.find( way ), way.size(), "exit: [drainwatch, steer]" );
   }
};

TEST( OperationAtAnyTime, anExitCancelsAnEnterAndWhoEntersThenIsRefusedWithItsNumber ) {
   std::map< std::string, unsigned > stages;
   unsigned cancelled = 0, refused = 0;
   for ( double time = 2.5; time < 25 && !testing::Test::HasFailure(); time += 1 ) {
      SCOPED_TRACE( "exit at " + std::to_string( time ) );
      Cancelled story( time );
      ASSERT_EQ( 202, story.exit->status ) << story.exit->body;
      const json told = json::parse( story.exit->body );
      EXPECT_EQ( 2, told.at( "operation" ) );
      EXPECT_EQ( true, told.at( "changed" ) );
      const json list = json::parse( story.rig.get( "operations" ) );
      ASSERT_EQ( 2u, list.size() );
      EXPECT_EQ( "done", list[0].at( "state" ) );
      if ( story.before == "\"maintenance\"" ) {
         EXPECT_EQ( "done", list[1].at( "state" ) );
      } else {
         ++cancelled;
         ++stages[story.stage];
         EXPECT_EQ( "\"entering\"", story.before );
         EXPECT_EQ( "cancelled", list[1].at( "state" ) );
         EXPECT_EQ( 2, list[1].at( "ended-by" ) );
         EXPECT_EQ( "cancelled by operation 2, for tester", list[1].at( "text" ) );
      }
      for ( const auto & enter : story.enters ) {
         ++refused;
         ASSERT_EQ( 409, enter->status ) << enter->body;
         EXPECT_EQ( 2, json::parse( enter->body ).at( "error" ).at( "operation" ) );
      }
      EXPECT_EQ( "\"normal\"", story.rig.fact( "units/u3", "state" ) );
      EXPECT_EQ( "false", story.rig.fact( "interfaces/et2", "shut" ) );
      EXPECT_EQ( 0u, story.rig.children().running() );
   }
   EXPECT_GE( stages["\"steer\""], 3u );
   EXPECT_GE( stages["\"drainwatch\""], 12u ) << "while it drains and while it settles";
   EXPECT_LT( cancelled, 23u ) << "some come after the enter is done";
   EXPECT_GE( refused, 2 * 23u );
}

TEST_F( OperationStory, anEnterThatAStageHasEndedHasFailed ) {
   post( "units/u3/enter" );
   rig.runUntil( 2 );
   rig.soon( [this] { rig.children().ends( rig.children().last(), 1 ); } );
   rig.runUntil( 30 );
   EXPECT_EQ( "failed", state( 1 ) );
   EXPECT_EQ( 2, operation( 1 ).at( "ended-by" ) );
   EXPECT_NE( std::string::npos, operation( 1 ).at( "text" ).get< std::string >().find( "steer" ) );
   EXPECT_EQ( "maintd", operation( 2 ).at( "by" ) );
   EXPECT_EQ( "done", state( 2 ) );
}

TEST_F( OperationStory, aRequestKeyGivesTheSameOperationAlsoWhenItIsOverAndAfterACrash ) {
   const char * const body = R"({"reason":"swap","request-key":"change-17"})";
   const json first = post( "units/u1/enter", body );
   EXPECT_EQ( false, first.at( "repeated" ) );
   rig.runUntil( 60 );
   post( "units/u1/exit" );
   rig.runUntil( 120 );
   for ( unsigned i = 0; i < 2; ++i ) {
      const json again =
         post( "units/u1/enter", R"({"request-key":"change-17","reason":"swap","timeout":null})" );
      EXPECT_EQ( 1, again.at( "operation" ) );
      EXPECT_EQ( true, again.at( "repeated" ) );
      EXPECT_EQ( false, again.at( "changed" ) );
      EXPECT_EQ( "normal", again.at( "state" ) );
      rig.crash();
      rig.start();
   }
   for ( const auto & [path, other] :
         { std::pair( "units/u1/enter", R"({"reason":"swap it","request-key":"change-17"})" ),
           std::pair( "units/u2/enter", body ), std::pair( "units/u1/exit", body ) } ) {
      SCOPED_TRACE( path );
      EXPECT_EQ( 1, refused( 409, path, other ).at( "operation" ) );
   }
   EXPECT_EQ( 2u, operations().size() );
   EXPECT_EQ( 3, post( "units/u1/enter", R"({"request-key":"change-18"})" ).at( "operation" ) );
}

/// That are in one turn of the agent.
std::vector< std::shared_ptr< const Agent::HttpReply > >
together( AgentRig & rig, unsigned count, const std::string & body ) {
   std::vector< std::shared_ptr< const Agent::HttpReply > > answers;
   rig.soon( [&] {
      for ( unsigned i = 0; i < count; ++i )
         answers.push_back( rig.ask( "POST", "units/u1/enter", body ) );
   } );
   rig.runUntil( rig.time() + 5 );
   return answers;
}

TEST_F( OperationStory, aThousandIdenticalRequestsAtOnceMakeOneOperation ) {
   rig.traffic( "et1", 1e8 );
   for ( const char * body : { "{}", R"({"request-key":"k"})" } ) {
      SCOPED_TRACE( body );
      const auto answers = together( rig, 1000, body );
      ASSERT_EQ( 1000u, answers.size() );
      const unsigned expected = body == std::string( "{}" ) ? 1 : 3;
      unsigned changed = 0;
      for ( const auto & answer : answers ) {
         ASSERT_EQ( 202, answer->status );
         const json told = json::parse( answer->body );
         EXPECT_EQ( expected, told.at( "operation" ) );
         changed += told.at( "changed" ).get< bool >();
      }
      EXPECT_EQ( 1u, changed );
      EXPECT_EQ( expected, operations().size() );
      post( "units/u1/exit" );
      rig.runUntil( rig.time() + 60 );
   }
}

TEST_F( OperationStory, aThousandIdenticalRequestsOfAnyOtherKindMakeOneOperationToo ) {
   post( "units/u1/enter" );
   rig.runUntil( 60 );
   rig.configurationIs( std::string( configuration ) + "  u4: {groups: [a]}\n" );
   unsigned expected = 1;
   for ( const auto & [path, body] :
         { std::pair( "interfaces/et1/release", R"({"force":true})" ), std::pair( "units/u1/exit", "{}" ),
           std::pair( "reload", "{}" ) } ) {
      SCOPED_TRACE( path );
      std::vector< std::shared_ptr< const Agent::HttpReply > > answers;
      rig.soon( [&, path = path, body = body] {
         for ( unsigned i = 0; i < 1000; ++i )
            answers.push_back( rig.ask( "POST", path, body ) );
      } );
      rig.runUntil( rig.time() + 20 );
      ++expected;
      unsigned changed = 0;
      for ( const auto & answer : answers ) {
         ASSERT_LT( answer->status, 300 ) << answer->body;
         changed += json::parse( answer->body ).at( "changed" ).get< bool >();
      }
      EXPECT_EQ( 1000u, answers.size() );
      EXPECT_EQ( 1u, changed );
      EXPECT_EQ( expected, operations().size() );
      EXPECT_EQ( "done", state( expected ) );
   }
}

TEST_F( OperationStory, linksThatAreReleasedAndReloadsAreOperationsToo ) {
   post( "units/u1/enter" );
   rig.runUntil( 60 );
   const std::string release = R"({"force":true,"reason":"must","with":{"ticket":"17"},"request-key":"k"})";
   for ( const bool repeated : { false, true } ) {
      const json answer = post( "interfaces/et1/release", release );
      EXPECT_EQ( 2, answer.at( "operation" ) );
      EXPECT_EQ( !repeated, answer.at( "changed" ) );
      EXPECT_EQ( repeated, answer.at( "repeated" ) );
   }
   EXPECT_EQ( 2, refused( 409, "reload", R"({"request-key":"k"})" ).at( "operation" ) );
   rig.reload( std::string( configuration ) + "  u4: {groups: [a]}\n" );
   rig.reload( std::string( configuration ) + "  u4: {groups: [a]}\n" );
   rig.crash();
   rig.start();
   EXPECT_EQ( 3u, operations().size() ) << "a reload that changes nothing is none";
   json released = operation( 2 );
   EXPECT_EQ( released.at( "begun" ), released.at( "ended" ) );
   for ( const char * const time : { "begun", "ended" } )
      released.erase( time );
   EXPECT_EQ(
      json::parse( R"({"id":2,"kind":"release","unit":null,"interface":"et1","state":"done","by":"tester",)"
                   R"("reason":"must","with":{"ticket":"17"},"request-key":"k","ended-by":null,)"
                   R"("text":"et1 is to be raised"})" ),
      released );
   EXPECT_EQ( "reload", operation( 3 ).at( "kind" ) );
   EXPECT_NE( std::string::npos, operation( 3 ).at( "text" ).get< std::string >().find( "u4" ) );
   EXPECT_EQ( 1u, operations( "?unit=u1" ).size() );
}

TEST_F( OperationStory, listsWhatIsAskedForNewestFirst ) {
   rig.traffic( "et1", 1e8 );
   post( "units/u1/enter" );
   post( "units/u2/enter" );
   rig.runUntil( 60 );
   post( "units/u2/exit" );
   rig.runUntil( 120 );
   const auto ids = [&]( const std::string & query ) {
      std::string result;
      for ( const json & operation : operations( query ) )
         result += operation.at( "id" ).dump() + " ";
      return result;
   };
   EXPECT_EQ( "3 2 1 ", ids( "" ) );
   EXPECT_EQ( "3 2 ", ids( "?unit=u2" ) );
   EXPECT_EQ( "1 ", ids( "?state=running" ) );
   EXPECT_EQ( "3 2 ", ids( "?state=done&unit=u2" ) );
   EXPECT_EQ( "3 ", ids( "?limit=1" ) );
   EXPECT_EQ( "", ids( "?unit=u3" ) );
   for ( const auto & [path, status] :
         { std::pair( "operations?unit=nobody", 404 ), std::pair( "operations/9", 404 ),
           std::pair( "operations/x", 400 ), std::pair( "operations/0", 400 ),
           std::pair( "operations?state=over", 400 ), std::pair( "operations?limit=0", 400 ),
           std::pair( "operations?limit=1001", 400 ), std::pair( "operations?name=x", 400 ),
           std::pair( "operations?unit=", 400 ), std::pair( "operations?unit=u1&unit=u2", 400 ) } )
      EXPECT_EQ( status, rig.ask( "GET", path )->status ) << path;
}

/// An enter with a key that an exit cancels, and an enter that comes to its end.
class Story {
 public:
   Story() : rig( configuration ) {
      rig.traffic( "et1", 5e6 );
      rig.at( 2, [this] { ask( "u1/enter", R"({"request-key":"k1","with":{"a":"b"}})" ); } );
      rig.at( 3, [this] { ask( "u2/enter", R"({"reason":"swap"})" ); } );
      rig.at( 20, [this] { ask( "u1/exit", R"({"request-key":"k2"})" ); } );
      rig.at( 40, [this] { ask( "u2/exit", "{}" ); } );
      rig.start();
   }
   void ask( const std::string & path, const std::string & body ) {
      answers.push_back( rig.ask( "POST", "units/" + path, body ) );
   }
   static constexpr double end = 60;
   AgentRig rig;
   std::vector< std::shared_ptr< const Agent::HttpReply > > answers;
};

/// What is kept of operations, without times, and whether it fits what the units and records say.
std::string kept( AgentRig & rig ) {
   std::string result;
   std::map< std::string, json > running;
   std::map< unsigned, std::string > units;
   json operations = json::parse( rig.get( "operations" ) );
   for ( json & operation : operations ) {
      units[operation.at( "id" )] = operation.at( "unit" );
      if ( operation.at( "state" ) == "running" ) {
         EXPECT_TRUE( running.emplace( operation.at( "unit" ), operation ).second );
      }
      operation.erase( "begun" );
      operation.erase( "ended" );
      result += operation.dump() + "\n";
   }
   for ( const json & unit : json::parse( rig.get( "units" ) ) ) {
      const std::string name = unit.at( "name" ), state = unit.at( "state" );
      const bool onItsWay = state == "entering" || state == "exiting";
      EXPECT_EQ( onItsWay, running.count( name ) == 1 ) << name << " is " << state;
      if ( onItsWay && running.count( name ) ) {
         EXPECT_EQ( running[name].at( "kind" ), state == "entering" ? "enter" : "exit" );
         EXPECT_EQ( running[name].at( "id" ), unit.at( "operation" ) );
      }
      if ( !unit.at( "operation" ).is_null() ) {
         EXPECT_EQ( name, units[unit.at( "operation" )] ) << "there is no such operation";
      }
   }
   for ( const json & record : json::parse( rig.get( "history" ) ) )
      EXPECT_EQ( record.at( "unit" ), units[record.at( "operation" ).get< unsigned >()] );
   return result;
}

using OperationsOverCrashes = Tests::CrashTest;

TEST_P( OperationsOverCrashes, areKeptWithTheirChangesOrNeither ) {
   std::string seen;
   Tests::CrashSweep< Story > sweep;
   sweep.before = [&seen]( Story & story, unsigned turn ) {
      seen.clear();
      story.rig.turnHookIs( [&seen, &story, turn] {
         if ( story.rig.turns() == turn )
            seen = kept( story.rig );
      } );
   };
   sweep.down = []( Story & story, unsigned ) { story.rig.turnHookIs( {} ); };
   sweep.back = [&seen]( Story & story ) { EXPECT_EQ( seen, kept( story.rig ) ); };
   sweep.over = []( Story & story ) {
      const json operations = json::parse( story.rig.get( "operations" ) );
      ASSERT_EQ( 4u, operations.size() );
      kept( story.rig );
      const std::pair< const char *, const char * > expected[] = {
         { "exit", "done" }, { "exit", "done" }, { "enter", "done" }, { "enter", "cancelled" } };
      for ( unsigned i = 0; i < 4; ++i ) {
         EXPECT_EQ( expected[i].first, operations[i].at( "kind" ) );
         EXPECT_EQ( expected[i].second, operations[i].at( "state" ) );
         EXPECT_EQ( 4 - i, operations[i].at( "id" ) );
      }
      ASSERT_EQ( 4u, story.answers.size() );
      for ( unsigned i = 0; i < 4; ++i ) {
         ASSERT_EQ( 202, story.answers[i]->status ) << "request " << i;
         EXPECT_EQ( i + 1, json::parse( story.answers[i]->body ).at( "operation" ) );
      }
   };
   sweep.run( GetParam() );
}

INSTANTIATE_TEST_SUITE_P( OperationStory, OperationsOverCrashes, Tests::allCrashes(), Tests::crashName );

} // namespace
