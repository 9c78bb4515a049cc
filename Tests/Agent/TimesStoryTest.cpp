#include "Api/Values.h"
#include "Tests/Agent/CrashSweepTest.h"

#include <nlohmann/json.hpp>

/// The times that operators set for maintenances, over everything that happens to an agent and its clocks.
namespace {

using nlohmann::json;
using Tests::AgentRig;

const char * const units = "settle: 5s\n"
                           "profiles:\n"
                           "  fast: {threshold: 100kbps, load-interval: 10s, shutdown: true}\n"
                           "default-profile: fast\n"
                           "groups:\n"
                           "  uplinks: {interfaces: [et1, et2]}\n"
                           "  other: {interfaces: [et3]}\n"
                           "units:\n"
                           "  u1: {groups: [uplinks]}\n"
                           "  u2: {groups: [other]}\n";
constexpr double minute = 60, hour = 3600, day = 86400;

json eventsOf( AgentRig & rig ) {
   return json::parse( rig.get( "events/recent?after=0&limit=4096" ) ).at( "events" );
}

class TimesStory : public testing::Test {
 protected:
   TimesStory() : rig( units ) { rig.start(); }
   int enter( const std::string & body ) { return rig.post( "units/u1/enter", body ); }
   /// Traffic keeps the unit from getting there.
   void busy() { rig.traffic( "et1", 5e6 ); }
   std::string state() { return rig.fact( "units/u1", "state" ); }
   json unit() { return json::parse( rig.get( "units/u1" ) ); }
   json times() { return unit().at( "times" ); }
   double left() { return times().at( "revert-left-seconds" ).get< double >(); }
   /// The reason of the last maintenance's way back, and who has asked for it.
   std::string exitReason() {
      const json record = json::parse( rig.get( "history" ) ).at( 0 );
      return record.at( "exit-by" ).dump() + " " + record.at( "exit-reason" ).dump();
   }

   AgentRig rig;
};

TEST_F( TimesStory, unitGoesBackByItselfAndTheLinksComeUp ) {
   EXPECT_EQ( 202, enter( R"({"revert-after":"2m","reason":"swap"})" ) );
   rig.runUntil( 119 );
   EXPECT_EQ( "\"maintenance\"", state() );
   rig.runUntil( 125 );
   EXPECT_EQ( "\"normal\"", state() );
   EXPECT_EQ( R"("maintd" "reverts after 2m, as tester has asked")", exitReason() );
   EXPECT_EQ( "up", json::parse( rig.get( "interfaces/et1" ) ).at( "link-state" ) );
   EXPECT_TRUE( times().at( "revert-at" ).is_null() );
}

TEST_F( TimesStory, unitThatIsTooLateIsKept ) {
   busy();
   EXPECT_EQ( 202, enter( R"({"deadline":"1m"})" ) );
   rig.runUntil( 5 * minute );
   EXPECT_EQ( "\"entering\"", state() );
   EXPECT_EQ( "2023-11-14T22:14:20.000Z", times().at( "overrun" ) );
   rig.traffic( "et1", 0 );
   rig.runUntil( 6 * minute );
   EXPECT_EQ( "\"maintenance\"", state() );
   EXPECT_FALSE( times().at( "overrun" ).is_null() );
}

TEST_F( TimesStory, unitThatIsTooLateGoesBackIfAskedTo ) {
   busy();
   EXPECT_EQ( 202, enter( R"({"deadline":"1m","on-overrun":"restore"})" ) );
   rig.runUntil( minute + 5 );
   EXPECT_EQ( "\"normal\"", state() );
   EXPECT_EQ(
      R"("maintd" "not under maintenance within 1m, and restores then, as tester has asked")", exitReason() );
}

TEST_F( TimesStory, exitByHandTakesTheTimesAwayForTheNextMaintenanceToo ) {
   EXPECT_EQ( 202, enter( R"({"revert-after":"2m"})" ) );
   rig.runUntil( 60 );
   EXPECT_EQ( 202, rig.post( "units/u1/exit" ) );
   rig.runUntil( 70 );
   EXPECT_EQ( 202, enter( "{}" ) );
   rig.runUntil( 10 * minute );
   EXPECT_EQ( "\"maintenance\"", state() );
}

TEST_F( TimesStory, exitDuringAnEnterTakesThemAway ) {
   busy();
   EXPECT_EQ( 202, enter( R"({"deadline":"1m","on-overrun":"restore"})" ) );
   rig.runUntil( 20 );
   EXPECT_EQ( 202, rig.post( "units/u1/exit", R"({"reason":"mine"})" ) );
   rig.runUntil( 5 * minute );
   EXPECT_EQ( R"("tester" "mine")", exitReason() );
   EXPECT_EQ( 1u, json::parse( rig.get( "history" ) ).size() );
}

TEST_F( TimesStory, secondEnterChangesWhatItAsksFor ) {
   EXPECT_EQ( 202, enter( R"({"revert-after":"2m"})" ) );
   rig.runUntil( 60 );
   EXPECT_EQ( 202, enter( R"({"revert-after":"2m"})" ) );
   EXPECT_EQ( 60, left() ) << "the same goes on";
   EXPECT_EQ( 202, enter( R"({"revert-after":"5m"})" ) );
   EXPECT_EQ( 300, left() );
   rig.runUntil( 60 + 299 );
   EXPECT_EQ( "\"maintenance\"", state() );
   EXPECT_EQ( 202, enter( R"({"revert-after":"never"})" ) );
   rig.runUntil( 20 * minute );
   EXPECT_EQ( "\"maintenance\"", state() );
}

TEST_F( TimesStory, enterThatIsRefusedSetsNone ) {
   EXPECT_EQ( 400, enter( R"({"revert-after":"0s"})" ) );
   EXPECT_EQ( 404, rig.post( "units/u9/enter", R"({"revert-after":"1m"})" ) );
   EXPECT_EQ( "\"normal\"", state() );
   EXPECT_EQ( 202, enter( R"({"revert-after":"10m"})" ) );
   int status = 0;
   rig.at( 60, [&] {
      rig.post( "units/u1/exit" );
      status = enter( R"({"revert-after":"1m"})" );
   } );
   rig.runUntil( 61 );
   EXPECT_EQ( 409, status );
   EXPECT_TRUE( times().at( "revert-at" ).is_null() );
}

TEST_F( TimesStory, enterThatFailsTakesItsTimesAlong ) {
   rig.children().onGo = [this]( Agent::FakeChildren::Child & child ) {
      rig.soon( [this, &child] { rig.children().ends( child, 1 ); } );
   };
   ASSERT_EQ(
      200, rig.reload(
              std::string( units ) + "stages:\n"
                                     "  steer: {enter: /bin/steer enter}\n"
                                     "enter: [steer, drainwatch]\n" ) );
   EXPECT_EQ( 202, enter( R"({"deadline":"1m","revert-after":"2m"})" ) );
   rig.runUntil( 30 );
   EXPECT_EQ( "\"normal\"", state() );
   EXPECT_TRUE( times().at( "deadline" ).is_null() );
   EXPECT_TRUE( times().at( "revert-at" ).is_null() );
   rig.runUntil( 5 * minute );
   EXPECT_EQ( 1u, json::parse( rig.get( "history" ) ).size() );
   EXPECT_EQ( std::string::npos, rig.get( "events/recent?after=0&limit=4096" ).find( "\"overrun\"" ) );
}

TEST_F( TimesStory, recordTellsWhatWasSetAndWhatCameOfIt ) {
   busy();
   EXPECT_EQ( 202, enter( R"({"deadline":"1m","revert-after":"5m"})" ) );
   rig.runUntil( 2 * minute );
   rig.traffic( "et1", 0 );
   rig.runUntil( 6 * minute );
   EXPECT_EQ(
      json::parse(
         R"({"deadline":"2023-11-14T22:14:20.000Z","on-overrun":"keep","overrun":"2023-11-14T22:14:20.000Z",
             "revert-at":"2023-11-14T22:18:20.000Z"})" ),
      json::parse( rig.get( "history/1" ) ).at( "times" ) );
}

TEST_F( TimesStory, recordTellsOfADeadlineThatWasMissedAlsoWhenItWasTakenAwayThen ) {
   busy();
   EXPECT_EQ( 202, enter( R"({"deadline":"1m"})" ) );
   rig.runUntil( 2 * minute );
   EXPECT_EQ( 202, enter( R"({"deadline":"never"})" ) );
   EXPECT_TRUE( times().at( "overrun" ).is_null() );
   rig.traffic( "et1", 0 );
   rig.runUntil( 6 * minute );
   EXPECT_EQ( "\"maintenance\"", state() );
   EXPECT_EQ(
      json::parse(
         R"({"deadline":"2023-11-14T22:14:20.000Z","on-overrun":"keep","overrun":"2023-11-14T22:14:20.000Z",
             "revert-at":null})" ),
      json::parse( rig.get( "history/1" ) ).at( "times" ) );
}

TEST_F( TimesStory, eventsTellOfThemInOrder ) {
   busy();
   EXPECT_EQ( 202, enter( R"({"deadline":"1m","on-overrun":"restore"})" ) );
   rig.runUntil( 2 * minute );
   std::string told;
   for ( const json & event : eventsOf( rig ) )
      if ( event.at( "type" ) == "unit" && event.at( "what" ) != "stage" )
         told += event.at( "what" ).get< std::string >() + " " + event.value( "state", "" ) + "; ";
   EXPECT_EQ( "state entering; times ; overrun ; state exiting; state normal; ", told );
}

TEST_F( TimesStory, unitThatIsNotConfiguredAnyMoreGoesBackAllTheSame ) {
   EXPECT_EQ( 202, enter( R"({"revert-after":"2m"})" ) );
   rig.runUntil( 60 );
   EXPECT_EQ(
      409, rig.reload( "profiles:\n"
                       "  fast: {threshold: 100kbps, load-interval: 10s, shutdown: true}\n"
                       "default-profile: fast\n"
                       "groups:\n"
                       "  other: {interfaces: [et3]}\n"
                       "units:\n"
                       "  u2: {groups: [other]}\n" ) );
   rig.runUntil( 130 );
   EXPECT_EQ( "\"normal\"", state() );
}

TEST_F( TimesStory, countersThatCannotBeReadKeepNobodyUnderMaintenance ) {
   EXPECT_EQ( 202, enter( R"({"revert-after":"2m"})" ) );
   rig.runUntil( 60 );
   rig.simulation().countersFaultIs( "no counters" );
   rig.runUntil( 125 );
   EXPECT_EQ( "\"normal\"", state() );
}

// ---- restarts, boots and clocks

TEST_F( TimesStory, timesGoOnOverARestart ) {
   EXPECT_EQ( 202, enter( R"({"revert-after":"10m"})" ) );
   rig.runUntil( 60 );
   rig.crash();
   rig.pass( 2 * minute );
   rig.start();
   EXPECT_EQ( 7 * minute, left() );
   rig.runUntil( 10 * minute - 1 );
   EXPECT_EQ( "\"maintenance\"", state() );
   rig.runUntil( 10 * minute + 5 );
   EXPECT_EQ( "\"normal\"", state() );
   EXPECT_EQ( R"("maintd" "reverts after 10m, as tester has asked")", exitReason() );
}

TEST_F( TimesStory, whatWasDueWhileNoAgentRanHappensSoonAfterTheStartAndIsSaid ) {
   EXPECT_EQ( 202, enter( R"({"revert-after":"10m"})" ) );
   rig.runUntil( 60 );
   rig.crash();
   rig.pass( hour );
   rig.start();
   rig.runUntil( hour + 60 );
   EXPECT_EQ( "\"maintenance\"", state() );
   rig.runUntil( hour + 60 + 10 );
   EXPECT_EQ( "\"normal\"", state() );
   EXPECT_EQ(
      R"("maintd" "reverts after 10m, as tester has asked; no agent ran when that was over")", exitReason() );
}

TEST_F( TimesStory, stepsOfWallTimeChangeNothing ) {
   for ( const double step : { -3 * day, 3 * day } ) {
      SCOPED_TRACE( step );
      const double begin = rig.time();
      EXPECT_EQ( 202, enter( R"({"revert-after":"10m"})" ) );
      rig.runUntil( begin + 60 );
      rig.wallTimeStep( step );
      rig.runUntil( begin + 120 );
      rig.crash();
      rig.start();
      EXPECT_EQ( 8 * minute, left() );
      rig.runUntil( begin + 10 * minute - 1 );
      EXPECT_EQ( "\"maintenance\"", state() );
      rig.runUntil( begin + 10 * minute + 30 );
      EXPECT_EQ( "\"normal\"", state() );
   }
}

TEST_F( TimesStory, timesGoOnOverABootByWallTime ) {
   EXPECT_EQ( 202, enter( R"({"revert-after":"10h"})" ) );
   rig.runUntil( hour );
   rig.reboot( 2 * hour );
   rig.start();
   EXPECT_NEAR( 7 * hour, left(), 1 );
   EXPECT_TRUE( times().at( "doubt" ).is_null() );
   rig.runUntil( 3 * hour + 7 * hour - 2 );
   EXPECT_EQ( "\"maintenance\"", state() );
   rig.runUntil( 3 * hour + 7 * hour + 10 );
   EXPECT_EQ( "\"normal\"", state() );
}

TEST_F( TimesStory, stepBeforeABootIsNotTakenForTimeThatHasPassed ) {
   EXPECT_EQ( 202, enter( R"({"revert-after":"10h"})" ) );
   rig.runUntil( 60 );
   rig.wallTimeStep( 3 * day );
   rig.runUntil( hour );
   rig.reboot( 2 * hour );
   rig.start();
   EXPECT_NEAR( 7 * hour, left(), 60 );
}

TEST_F( TimesStory, wallTimeThatCannotBeRightAfterABootBringsNobodyBackEarly ) {
   for ( const double step : { -30 * day, 30 * day } ) {
      SCOPED_TRACE( step );
      EXPECT_EQ( 202, enter( R"({"revert-after":"10h"})" ) );
      rig.runUntil( rig.time() + hour );
      rig.reboot( 2 * hour, step );
      rig.start();
      EXPECT_GE( left(), 9 * hour - 1 );
      EXPECT_LE( left(), 9 * hour + 5 * minute + 1 );
      EXPECT_EQ( step < 0 ? "behind" : "ahead", times().at( "doubt" ) );
      EXPECT_EQ( 202, rig.post( "units/u1/exit" ) );
      rig.runUntil( rig.time() + 60 );
   }
}

// ---- crashes

/// u1 is too late and goes on; its time is over while it is under maintenance. u2 is too late and goes back.
class Story {
 public:
   Story() : rig( units ) {
      rig.traffic( "et1", 5e6 );
      rig.traffic( "et3", 5e6 );
      rig.at( 2, [this] { rig.post( "units/u1/enter", R"({"deadline":"8s","revert-after":"48s"})" ); } );
      rig.at( 3, [this] { rig.post( "units/u2/enter", R"({"deadline":"12s","on-overrun":"restore"})" ); } );
      rig.at( 12, [this] { rig.traffic( "et1", 0 ); } );
      rig.start();
   }
   static constexpr double end = 56;
   AgentRig rig;
};

using TimesCrash = Tests::CrashTest;

TEST_P( TimesCrash, losesNoTimeAndDoesNothingTwice ) {
   Tests::CrashSweep< Story > sweep;
   sweep.more = 8;
   sweep.over = []( Story & story ) {
      const json history = json::parse( story.rig.get( "history" ) );
      ASSERT_EQ( 2u, history.size() );
      for ( const json & record : history ) {
         const bool first = record.at( "unit" ) == "u1";
         EXPECT_EQ( "maintd", record.at( "exit-by" ) );
         EXPECT_EQ( first ? "completed" : "cancelled", record.at( "outcome" ) );
         const double ended = Api::timeOf( record.at( "exit-began" ).get< std::string >() ).value() - 1.7e9;
         EXPECT_GE( ended, first ? 50 : 15 );
         EXPECT_LE( ended, first ? 56 : 21 );
      }
      int overruns = 0;
      for ( const json & event : eventsOf( story.rig ) )
         overruns += event.at( "what" ) == "overrun";
      EXPECT_EQ( 2, overruns );
   };
   sweep.run( GetParam() );
}

INSTANTIATE_TEST_SUITE_P( TimesStory, TimesCrash, Tests::allCrashes(), Tests::crashName );

} // namespace
