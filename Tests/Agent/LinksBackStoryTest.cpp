#include "Tests/Agent/CrashSweepTest.h"

#include <string>
#include <vector>

/// On the way back, what comes behind the watching finds the links of the unit.
namespace {

using Agent::FakeChildren;
using Tests::AgentRig;

const char * const configuration = "settle: 5s\n"
                                   "profiles:\n"
                                   "  fast: {threshold: 100kbps, load-interval: 10s, shutdown: true}\n"
                                   "default-profile: fast\n"
                                   "groups:\n"
                                   "  uplinks: {interfaces: [et1, et2]}\n"
                                   "  others: {interfaces: [et2]}\n"
                                   "units:\n"
                                   "  u1: {groups: [uplinks], exit: [drainwatch, steer]}\n"
                                   "  u2: {groups: [others]}\n"
                                   "stages:\n"
                                   "  steer: {exit: /bin/steer exit}\n";

/// u1 is under maintenance, with both links shut, and goes back at 60.
class Story {
 public:
   Story() : rig( configuration ) {
      rig.children().onGo = [this]( FakeChildren::Child & child ) {
         begun.push_back( rig.time() );
         if ( rig.fact( "interfaces/et1", "link-state" ) != "\"up\"" )
            wrong.push_back( "steers over et1, which is down" );
         rig.soon( [this, &child] { rig.children().ends( child, 0 ); } );
      };
      rig.at( 2, [this] { rig.post( "units/u1/enter", R"({"reason":"swap"})" ); } );
      rig.at( 60, [this] { exit(); } );
      rig.start();
   }
   void exit() { rig.post( "units/u1/exit", R"({"reason":"done"})" ); }
   void carrierIs( double time, const char * port, bool has ) {
      rig.at( time, [this, port, has] { ASSERT_TRUE( rig.simulation().linkIs( port, has ).ok() ); } );
   }
   static constexpr double end = 90;
   AgentRig rig;
   std::vector< double > begun; ///< when the command was, seconds
   std::vector< std::string > wrong;
};

class LinksBackStory : public testing::Test {
 protected:
   std::string state( const char * unit = "u1" ) {
      return story.rig.fact( std::string( "units/" ) + unit, "state" );
   }
   std::string sentence() { return story.rig.fact( "units/u1", "sentence" ); }
   bool wasLate() { return story.rig.get( "events/recent" ).find( "\"links-late\"" ) != std::string::npos; }
   Story story;
};

TEST_F( LinksBackStory, aStageBehindBeginsWhenTheLastCarrierIsThere ) {
   story.carrierIs( 40, "et1", false );
   story.carrierIs( 63, "et1", true );
   story.rig.runUntil( 62 );
   EXPECT_EQ( "\"exiting\"", state() );
   EXPECT_EQ( "\"drainwatch\"", story.rig.fact( "units/u1", "stage" ) );
   EXPECT_EQ( "\"going back; links come back: et1\"", sentence() );
   EXPECT_NE(
      std::string::npos,
      story.rig.fact( "units/u1/explain", "stages" ).find( R"("text":"links come back: et1")" ) );
   EXPECT_EQ( std::vector< double >(), story.begun );
   story.rig.runUntil( Story::end );
   EXPECT_EQ( "\"normal\"", state() );
   EXPECT_EQ( std::vector< double >{ 63 }, story.begun );
   EXPECT_EQ( std::vector< std::string >(), story.wrong );
   EXPECT_NE(
      std::string::npos,
      story.rig.fact( "units/u1", "stages" )
         .find( R"("name":"drainwatch","since":"2023-11-14T22:14:23.000Z","state":"complete")" ) )
      << story.rig.fact( "units/u1", "stages" );
   EXPECT_FALSE( wasLate() );
}

TEST_F( LinksBackStory, nothingTakesLongerWhereLinksComeBackAtOnce ) {
   story.rig.runUntil( 60 );
   EXPECT_EQ( "\"normal\"", state() );
   EXPECT_EQ( std::vector< double >{ 60 }, story.begun );
   EXPECT_EQ( std::vector< std::string >(), story.wrong );
}

TEST_F( LinksBackStory, theWayBackGoesOnWithoutALinkThatCannotBeSetUpAndNamesIt ) {
   story.rig.at( 59, [this] { story.rig.simulation().linkSetFaultIs( "refused" ); } );
   story.rig.runUntil( 69 );
   EXPECT_EQ( "\"exiting\"", state() );
   EXPECT_EQ( "\"going back; links come back: et1, et2\"", sentence() );
   story.rig.runUntil( 71 );
   EXPECT_EQ( "\"normal\"", state() );
   EXPECT_TRUE( wasLate() );
   EXPECT_NE(
      std::string::npos,
      story.rig.get( "events/recent" )
         .find( "u1 goes on with its way back, and not all of its links are back yet: et1, et2" ) );
   story.rig.simulation().linkSetFaultIs( "" );
   story.rig.runUntil( Story::end );
   EXPECT_GE( story.rig.timeOf( "et1 up" ), 71 );
}

TEST_F( LinksBackStory, theWayBackNamesALinkWhoseCarrierHasNotCome ) {
   story.carrierIs( 50, "et2", false );
   story.rig.runUntil( 69 );
   EXPECT_EQ( "\"going back; links come back: et2\"", sentence() );
   story.rig.runUntil( 71 );
   EXPECT_EQ( "\"normal\"", state() );
   EXPECT_NE(
      std::string::npos,
      story.rig.get( "events/recent" )
         .find( "u1 goes on with its way back, and not all of its links are back yet: et2" ) );
}

TEST_F( LinksBackStory, nobodyWaitsForLinksThatCouldNeverBeShut ) {
   story.rig.simulation().linkSetFaultIs( "refused" );
   story.rig.runUntil( 61 );
   EXPECT_EQ( "\"normal\"", state() );
   EXPECT_FALSE( wasLate() );
}

TEST_F( LinksBackStory, theWayBackGoesOnInTimeAlsoWithoutCounters ) {
   story.rig.at( 59, [this] {
      story.rig.simulation().linkSetFaultIs( "refused" );
      story.rig.simulation().countersFaultIs( "broken" );
   } );
   story.rig.runUntil( 72 );
   EXPECT_EQ( "\"normal\"", state() );
   EXPECT_TRUE( wasLate() );
}

TEST_F( LinksBackStory, nobodyWaitsForALinkThatAnotherUnitHolds ) {
   story.rig.at( 20, [this] { story.rig.post( "units/u2/enter" ); } );
   story.rig.runUntil( 60 );
   ASSERT_EQ( "\"maintenance\"", state( "u2" ) );
   EXPECT_EQ( "\"normal\"", state() );
   EXPECT_EQ( "\"down\"", story.rig.fact( "interfaces/et2", "link-state" ) );
   EXPECT_FALSE( wasLate() );
}

TEST_F( LinksBackStory, nobodyWaitsForALinkThatIsGone ) {
   story.rig.at( 50, [this] { ASSERT_TRUE( story.rig.simulation().linkDel( "et2" ).ok() ); } );
   story.rig.runUntil( 60 );
   EXPECT_EQ( "\"normal\"", state() );
}

TEST_F( LinksBackStory, aCancelledEnterWaitsForTheLinksThatItHasShut ) {
   story.rig.traffic( "et1", 5e6 );
   story.rig.at( 25, [this] { EXPECT_EQ( "\"down\"", story.rig.fact( "interfaces/et2", "link-state" ) ); } );
   story.carrierIs( 25, "et2", false );
   story.rig.at( 30, [this] { story.exit(); } );
   story.carrierIs( 34, "et2", true );
   story.rig.runUntil( 33 );
   EXPECT_EQ( "\"going back; links come back: et2\"", sentence() );
   EXPECT_EQ( 409, story.rig.post( "units/u1/enter" ) );
   story.rig.runUntil( 34 );
   EXPECT_EQ( "\"normal\"", state() );
   EXPECT_EQ( std::vector< double >{ 34 }, story.begun );
}

TEST_F( LinksBackStory, theNextAgentWaitsOn ) {
   story.rig.at( 59, [this] { story.rig.simulation().linkSetFaultIs( "refused" ); } );
   story.rig.runUntil( 63 );
   story.rig.crash();
   story.rig.start();
   story.rig.runUntil( 66 );
   EXPECT_EQ( "\"going back; links come back: et1, et2\"", sentence() );
   story.rig.simulation().linkSetFaultIs( "" );
   story.rig.runUntil( Story::end );
   EXPECT_EQ( "\"normal\"", state() );
   ASSERT_EQ( 1u, story.begun.size() );
   EXPECT_GE( story.begun[0], story.rig.timeOf( "et2 up" ) );
   EXPECT_EQ( std::vector< std::string >(), story.wrong );
   EXPECT_FALSE( wasLate() );
}

using LinksBackCrash = Tests::CrashTest;

TEST_P( LinksBackCrash, afterAnyTurnTheStageBehindFindsTheLinks ) {
   Tests::CrashSweep< Story > sweep;
   sweep.more = 10;
   sweep.over = []( Story & story ) {
      EXPECT_EQ( "\"normal\"", story.rig.fact( "units/u1", "state" ) );
      EXPECT_EQ( std::vector< std::string >(), story.wrong );
      EXPECT_GE( story.begun.size(), 1u );
      EXPECT_EQ( 4u, story.rig.moves().size() );
      EXPECT_EQ( std::string::npos, story.rig.get( "events/recent" ).find( "\"links-late\"" ) );
   };
   sweep.run( GetParam() );
}

INSTANTIATE_TEST_SUITE_P( LinksBackStory, LinksBackCrash, Tests::allCrashes(), Tests::crashName );

} // namespace
