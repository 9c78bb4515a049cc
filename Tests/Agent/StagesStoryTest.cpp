#include "Tests/Agent/CrashSweepTest.h"

#include <nlohmann/json.hpp>

#include <algorithm>

/// A unit whose traffic is steered away by a command, watched, and brought back by another.
namespace {

using Agent::FakeChildren;
using Tests::AgentRig;

const char * const configuration = "settle: 5s\n"
                                   "profiles:\n"
                                   "  fast: {threshold: 100kbps, load-interval: 10s, shutdown: true}\n"
                                   "default-profile: fast\n"
                                   "groups:\n"
                                   "  uplinks: {interfaces: [et1, et2]}\n"
                                   "units:\n"
                                   "  u1: {groups: [uplinks]}\n"
                                   "stages:\n"
                                   "  steer: {enter: /bin/steer enter, exit: /bin/steer exit, timeout: 30s}\n"
                                   "enter: [steer, drainwatch]\n"
                                   "exit: [drainwatch, steer]\n";

/// A router whose metric the command raises: it records what there was, waits until that is safe, and then changes it.
/// It takes two seconds for each step. What it does wrong is remembered.
class Router {
 public:
   explicit Router( AgentRig & rig ) : rig_( rig ) {
      rig_.children().onGo = [this]( FakeChildren::Child & child ) { begins( child ); };
      rig_.children().onKept = [this]( FakeChildren::Child & child ) { applies( child ); };
      rig_.children().onTerminate = [this]( FakeChildren::Child & child ) {
         rig_.soon( [this, &child] { rig_.children().ends( child, 0, 15 ); } );
      };
   }

   unsigned metric = 20;
   std::vector< std::string > did;
   std::vector< std::string > wrong;

 private:
   static bool has( const FakeChildren::Child & child, const std::string & text ) {
      return child.program.input.find( text ) != std::string::npos;
   }
   void later( FakeChildren::Child & child, std::function< void() > step ) {
      rig_.at( rig_.time() + 2, [&child, step = std::move( step )] {
         if ( child.phase == FakeChildren::Phase::going )
            step();
      } );
   }
   void begins( FakeChildren::Child & child ) {
      if ( rig_.children().running() != 1 )
         wrong.push_back( "two commands at a time" );
      const bool enter = has( child, R"("operation":"enter")" );
      const bool recorded = has( child, R"("recorded":{"metric":20})" );
      did.push_back( enter ? "enter" : "exit" );
      if ( !enter )
         return later( child, [this, &child, recorded] {
            if ( recorded )
               metric = 20;
            else if ( metric != 20 )
               wrong.push_back( "nothing to go back to" );
            rig_.children().ends( child, 0 );
         } );
      later( child, [this, &child, recorded] {
         // What was recorded before is what there was; what there is now may be its own doing.
         const unsigned was = recorded ? 20 : metric;
         rig_.children().says( child, "{\"metric\":" + std::to_string( was ) + "}\n" );
      } );
   }
   void applies( FakeChildren::Child & child ) {
      metric = 65535;
      rig_.traffic( "et1", 0 );
      later( child, [this, &child] { rig_.children().ends( child, 0 ); } );
   }

   AgentRig & rig_;
};

class Story {
 public:
   Story() : rig( configuration ), router( rig ) {
      rig.traffic( "et1", 5e6 );
      rig.at( 2, [this] { rig.post( "units/u1/enter", R"({"reason":"swap"})" ); } );
      rig.at( 60, [this] { rig.post( "units/u1/exit", R"({"reason":"done"})" ); } );
      rig.start();
   }
   static constexpr double end = 100;
   AgentRig rig;
   Router router;
};

class StagesStory : public testing::Test {
 protected:
   std::string state() { return story.rig.fact( "units/u1", "state" ); }
   Story story;
};

TEST_F( StagesStory, steersWatchesShutsAndBringsAllBack ) {
   story.rig.runUntil( 3 );
   EXPECT_EQ( "\"steer\"", story.rig.fact( "units/u1", "stage" ) );
   EXPECT_EQ( 20u, story.router.metric );
   story.rig.runUntil( 50 );
   EXPECT_EQ( "\"maintenance\"", state() );
   EXPECT_EQ( 65535u, story.router.metric );
   EXPECT_EQ( 2u, story.rig.moves().size() );
   story.rig.runUntil( Story::end );
   EXPECT_EQ( "\"normal\"", state() );
   EXPECT_EQ( 20u, story.router.metric );
   EXPECT_EQ( ( std::vector< std::string >{ "enter", "exit" } ), story.router.did );
   EXPECT_EQ( std::vector< std::string >(), story.router.wrong );
   // The links come back before the traffic does.
   EXPECT_LE( story.rig.timeOf( "et1 up" ), 61 );
}

/// Both commands run where nothing is monitored: the one before the watching begins, the other after it has ended.
TEST( StagesRates, commandsAreToldWhatTheirInterfacesCarryOnBothWays ) {
   std::string staysUp = configuration;
   staysUp.replace( staysUp.find( "shutdown: true" ), 14, "shutdown: false" );
   AgentRig rig( staysUp );
   std::vector< nlohmann::json > told;
   rig.children().onGo = [&]( FakeChildren::Child & child ) {
      told.push_back( nlohmann::json::parse( child.program.input ) );
      rig.at( rig.time() + 2, [&] { rig.children().ends( child, 0 ); } );
   };
   const auto traffic = [&]( double inBps, double outBps ) {
      EXPECT_TRUE( rig.simulation().trafficIs( "et1", inBps, outBps, 0 ).ok() );
   };
   traffic( 5e6, 1e6 );
   rig.at( 20, [&] { rig.post( "units/u1/enter" ); } );
   rig.at( 25, [&] { traffic( 0, 0 ); } );
   rig.at( 60, [&] {
      EXPECT_EQ( "\"maintenance\"", rig.fact( "units/u1", "state" ) );
      traffic( 2e6, 3e6 );
   } );
   rig.at( 80, [&] { rig.post( "units/u1/exit" ); } );
   rig.start();
   rig.runUntil( 120 );
   ASSERT_EQ( 2u, told.size() );
   const struct {
      const char * operation;
      double in, out;
   } rows[] = { { "enter", 5e6, 1e6 }, { "exit", 2e6, 3e6 } };
   for ( std::size_t run = 0; run < told.size(); ++run ) {
      const nlohmann::json & input = told[run];
      SCOPED_TRACE( input.dump() );
      EXPECT_EQ( rows[run].operation, input.at( "operation" ) );
      ASSERT_EQ( 2u, input.at( "interfaces" ).size() );
      for ( const nlohmann::json & intf : input.at( "interfaces" ) ) {
         const bool carries = intf.at( "name" ) == "et1";
         ASSERT_TRUE( intf.at( "in-bps" ).is_number() && intf.at( "out-bps" ).is_number() );
         EXPECT_NEAR( carries ? rows[run].in : 0, intf.at( "in-bps" ).get< double >(), 1e3 );
         EXPECT_NEAR( carries ? rows[run].out : 0, intf.at( "out-bps" ).get< double >(), 1e3 );
      }
   }
}

TEST_F( StagesStory, showsWhatRunsForHowLongAndWhatComesNext ) {
   story.rig.runUntil( 3 );
   const std::string stages = story.rig.fact( "units/u1", "stages" );
   EXPECT_EQ(
      R"([{"command":"/bin/steer enter","deadline":"2023-11-14T22:13:52.000Z","failure":null,"limit-seconds":30.0,)"
      R"("name":"steer","since":"2023-11-14T22:13:22.000Z","state":"running",)"
      R"("text":"runs /bin/steer enter, for at most 30s; if it fails, the unit goes back"},)"
      R"({"command":null,"deadline":null,"failure":null,"limit-seconds":null,"name":"drainwatch","since":null,)"
      R"("state":"pending","text":"has yet to begin"}])",
      stages );
   story.rig.runUntil( 20 );
   EXPECT_EQ( "false", story.rig.fact( "units/u1/explain", "stuck" ) );
}

/// The agent ends after any turn, with what the turn lets out or without it, and what it has started ends with it.
using StagesCrash = Tests::CrashTest;

TEST_P( StagesCrash, afterAnyTurnChangesNothingInTheEnd ) {
   Tests::CrashSweep< Story > sweep;
   sweep.more = 10; // what is left of commands takes its time
   sweep.down = []( Story & story, unsigned turn ) { story.rig.children().remnantsAre( turn % 3 ); };
   sweep.over = []( Story & story ) {
      EXPECT_EQ( "\"normal\"", story.rig.fact( "units/u1", "state" ) );
      EXPECT_EQ( 20u, story.router.metric );
      EXPECT_EQ( std::vector< std::string >(), story.router.wrong );
      EXPECT_LE( story.router.did.size(), 3u ) << "one of them was run again";
      EXPECT_GE( story.rig.timeOf( "et1 down" ), 15 ) << "shut while there was traffic";
      EXPECT_EQ( 4u, story.rig.moves().size() );
   };
   sweep.run( GetParam() );
}

INSTANTIATE_TEST_SUITE_P( StagesStory, StagesCrash, Tests::allCrashes(), Tests::crashName );

// ---- failures and changes of mind

TEST_F( StagesStory, failureTakesTheUnitBackAndSaysWhy ) {
   story.rig.children().onKept = [this]( FakeChildren::Child & child ) {
      story.rig.soon( [this, &child] {
         story.rig.children().says( child, "no such neighbor\n", Agent::Children::Stream::errors );
         story.rig.children().ends( child, 1 );
      } );
   };
   story.rig.runUntil( 20 );
   EXPECT_EQ( "\"normal\"", state() );
   EXPECT_EQ(
      "\"stage steer failed: ended with 1: no such neighbor\"", story.rig.fact( "units/u1", "reason" ) );
   EXPECT_EQ( ( std::vector< std::string >{ "enter", "exit" } ), story.router.did );
   EXPECT_EQ( 20u, story.router.metric );
   EXPECT_TRUE( story.rig.moves().empty() );
}

TEST_F( StagesStory, exitEndsTheCommandAndGoesBackWithWhatItHasRecorded ) {
   story.rig.at( 5, [this] { story.rig.post( "units/u1/exit", R"({"reason":"stop"})" ); } );
   story.rig.runUntil( 20 );
   EXPECT_EQ( "\"normal\"", state() );
   EXPECT_EQ( 20u, story.router.metric );
   EXPECT_EQ( std::vector< std::string >(), story.router.wrong );
   EXPECT_TRUE( story.rig.moves().empty() );
}

TEST_F( StagesStory, failureOnTheWayBackIsAProblemUntilTheNextEnter ) {
   story.rig.runUntil( 50 );
   story.rig.children().onGo = [this]( FakeChildren::Child & child ) {
      story.rig.soon( [this, &child] { story.rig.children().ends( child, 4 ); } );
   };
   story.rig.runUntil( 70 );
   EXPECT_EQ( "\"normal\"", state() );
   const std::string problem = "unit u1 went back although stage steer failed: ended with 4";
   EXPECT_NE( std::string::npos, story.rig.get( "agent" ).find( problem ) ) << story.rig.get( "agent" );
   EXPECT_NE(
      std::string::npos, story.rig.fact( "units/u1", "stages" ).find( R"("failure":"ended with 4")" ) );
   story.rig.children().onGo = nullptr;
   EXPECT_EQ( 202, story.rig.post( "units/u1/enter" ) );
   EXPECT_EQ( "[]", story.rig.fact( "agent", "problems" ) );
}

TEST_F( StagesStory, reloadChangesTheNextRunAndLeavesTheWayBack ) {
   story.rig.runUntil( 50 );
   std::string without = configuration;
   without.resize( without.find( "stages:" ) );
   EXPECT_EQ( 200, story.rig.reload( without ) );
   story.rig.crash();
   story.rig.start();
   story.rig.runUntil( Story::end );
   EXPECT_EQ( ( std::vector< std::string >{ "enter", "exit" } ), story.router.did );
   EXPECT_EQ( 20u, story.router.metric );
   EXPECT_EQ( 202, story.rig.post( "units/u1/enter" ) );
   story.rig.runUntil( Story::end + 40 );
   EXPECT_EQ( "\"maintenance\"", state() );
   EXPECT_EQ( 2u, story.router.did.size() );
}

TEST_F( StagesStory, releaseOfAllLinksAsksNoStage ) {
   story.rig.runUntil( 50 );
   story.rig.crash();
   const auto released = story.rig.releaseAll();
   EXPECT_EQ( "", released.problem );
   ASSERT_EQ( 2u, released.left.size() );
   EXPECT_EQ( "unit u1 is not normal (maintenance), and stays so", released.left[0] );
   EXPECT_NE(
      std::string::npos,
      released.left[1].find( "unit u1: what its stage steer has done stays; it has recorded {" ) )
      << released.left[1];
   EXPECT_EQ( 4u, story.rig.moves().size() );
   EXPECT_EQ( std::vector< std::string >{ "enter" }, story.router.did );
   EXPECT_EQ( 65535u, story.router.metric );
}

} // namespace
