#include "Agent/Control/ControlApiRigTest.h"

#include <nlohmann/json.hpp>

namespace Agent {

namespace {

using Maintenance::Unit::UnitState;
using nlohmann::json;

/// Whose unit u1 is at a command, which has been running or waiting for 9 seconds.
class StuckCommandTest : public ControlApiRig {
 protected:
   StuckCommandTest() {
      rig.unit( "u1" ).stateIs( UnitState::enterInProgress );
      progress = { "steer", 0, 0, std::nullopt, 10, "" };
      progress.stages = {
         { "steer", "running", rig.now - 9, "/bin/steer enter", 60, "", false, false },
         { "drainwatch", "pending", 0, "", 0, "", false, false } };
   }
   /// Seconds after the command began, or began to wait; "" if the unit gets on.
   std::string reasonAfter( double seconds ) {
      now = rig.now - 9 + seconds;
      const json explained = json::parse( got( "units/u1/explain" ) );
      const json reason = explained.at( "stuck-reason" );
      EXPECT_EQ( !reason.is_null(), explained.at( "stuck" ) );
      return reason.is_null() ? "" : reason.get< std::string >();
   }
   ControlCommands::Stage & steer() { return progress.stages[0]; }
};

TEST_F( StuckCommandTest, aCommandThatRunsTakesItsTime ) {
   progress.blocked = "the agent is degraded: disk full"; // which is no matter until all stages are complete
   EXPECT_EQ( "", reasonAfter( 59 ) );
   EXPECT_EQ( "", reasonAfter( 76 ) );
}

TEST_F( StuckCommandTest, aCommandThatIsToldToEndIsStuckWhenItHasNotEndedSoonAfterwardsAlsoBeforeItsLimit ) {
   steer().waitsFor = "the end of its processes, because it wrote a line that begins with {";
   EXPECT_EQ( "", reasonAfter( 14.9 ) );
   EXPECT_EQ(
      "the command of stage steer waits for the end of its processes, because it wrote a line that begins "
      "with {",
      reasonAfter( 15 ) );
}

TEST_F( StuckCommandTest, aCommandThatWaitsForWhatIsLeftOfItIsStuck ) {
   steer().waits = true;
   EXPECT_EQ( "", reasonAfter( 14.9 ) );
   EXPECT_EQ(
      "the command of stage steer waits for what is left of its earlier run to end", reasonAfter( 15 ) );
}

TEST_F( StuckCommandTest, aCommandThatWaitsForAPlaceIsStuck ) {
   steer().waitsFor = "one of 64 commands to end";
   EXPECT_EQ( "", reasonAfter( 14.9 ) );
   EXPECT_EQ( "the command of stage steer waits for one of 64 commands to end", reasonAfter( 15 ) );
}

TEST_F( StuckCommandTest, aCommandThatTheAgentHoldsIsStuckWithTheAgentsReason ) {
   steer().waitsFor = "the agent to take up what was under way";
   progress.blocked = "the agent is degraded: cannot read the counters";
   EXPECT_EQ(
      "the command of stage steer waits for the agent to take up what was under way; the agent is degraded: "
      "cannot read the counters",
      reasonAfter( 15 ) );
}

TEST_F( StuckCommandTest, theTimeBeforeTheAgentWasStartedDoesNotCount ) {
   steer().waits = true;
   facts.started = rig.now;
   EXPECT_EQ( "", reasonAfter( 9 + 14.9 ) );
   EXPECT_NE( "", reasonAfter( 9 + 15 ) );
}

TEST_F( StuckCommandTest, aCommandOnTheWayBackIsStuckInTheSameWay ) {
   rig.unit( "u1" ).stateIs( UnitState::exitInProgress );
   steer().waitsFor = "the system: Too many open files";
   EXPECT_EQ( "the command of stage steer waits for the system: Too many open files", reasonAfter( 15 ) );
}

TEST_F( StuckCommandTest, aUnitThatGoesBackIsStuckWhileAnEarlierCommandDoesNotEnd ) {
   rig.unit( "u1" ).stateIs( UnitState::exitInProgress );
   rig.runs->unitRun( "u1" )->sinceIs( rig.now - 9 );
   progress.stage = "";
   progress.stages = { { "drainwatch", "pending", 0, "", 0, "", false, false } };
   progress.busy = true;
   EXPECT_EQ( "", reasonAfter( 14.9 ) );
   EXPECT_EQ( "a command of an earlier stage has been told to end and has not", reasonAfter( 15 ) );
   progress.busy = false;
   EXPECT_EQ( "", reasonAfter( 15 ) );
}

TEST_F( StuckCommandTest, anAgentThatLetsNoUnitCompleteKeepsAUnitWhoseLastStageIsACommand ) {
   progress.stages = {
      { "drainwatch", "complete", rig.now - 20, "", 0, "", false, false },
      { "steer", "complete", rig.now - 9, "/bin/steer enter", 60, "", false, false } };
   progress.blocked = "the agent is degraded: disk full";
   rig.runs->unitRun( "u1" )->sinceIs( rig.now - 30 );
   EXPECT_EQ( "", reasonAfter( 14.9 ) );
   EXPECT_EQ( progress.blocked, reasonAfter( 15 ) );
   progress.blocked = "";
   EXPECT_EQ( "all stages are complete, but the unit does not settle", reasonAfter( 15 ) );
   uncountedVlan = "no members";
   EXPECT_EQ( "vlan10 is up, and nobody can say what it carries: no members", reasonAfter( 15 ) );
   progress.settlingSince = rig.now;
   EXPECT_EQ( "", reasonAfter( 15 ) );
}

} // namespace

} // namespace Agent
