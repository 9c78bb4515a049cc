#include "Tests/Agent/AgentRig.h"

#include <gtest/gtest.h>

#include <fstream>

namespace {

using Tests::AgentRig;

std::string
configuration( const std::string & groups, const std::string & units, const std::string & threshold ) {
   return "settle: 5s\n"
          "profiles:\n"
          "  fast: {threshold: " +
          threshold +
          ", load-interval: 10s, shutdown: true}\n"
          "  watch: {threshold: 10Mbps, load-interval: 10s}\n"
          "default-profile: fast\n"
          "groups:\n" +
          groups + "units:\n" + units;
}

const char * const twoGroups = "  g1: {interfaces: [et1, et2]}\n"
                               "  g2: {interfaces: [et3]}\n";
const char * const oneUnit = "  u1: {groups: [g1, g2]}\n";

/// The world of a unit that is under way changes.
class ChangeStory : public testing::Test {
 protected:
   ChangeStory() : rig( configuration( twoGroups, oneUnit, "100kbps" ) ) {
      rig.traffic( "et1", 1e6 );
      rig.start();
      EXPECT_EQ( 202, rig.post( "units/u1/enter" ) );
      rig.runUntil( 20 );
      EXPECT_EQ( R"({"drained":2,"total":3})", rig.fact( "units/u1", "interfaces" ) );
   }
   AgentRig rig;
};

TEST_F( ChangeStory, thresholdThatIsRaisedLetsTheInterfaceDrain ) {
   EXPECT_EQ( 200, rig.reload( configuration( twoGroups, oneUnit, "2Mbps" ) ) );
   rig.runUntil( 40 );
   EXPECT_EQ( "\"maintenance\"", rig.fact( "units/u1", "state" ) );
   EXPECT_EQ( ( std::vector< std::string >{ "et2 down", "et3 down", "et1 down" } ), rig.moves() );
}

TEST_F( ChangeStory, interfaceThatMovesBetweenGroupsOfAUnitIsNotStartedAgain ) {
   const std::string before = rig.fact( "interfaces/et2", "start-time" );
   EXPECT_EQ(
      200, rig.reload( configuration(
              "  g1: {interfaces: [et1]}\n"
              "  g2: {interfaces: [et2, et3]}\n",
              oneUnit, "100kbps" ) ) );
   rig.runUntil( 25 );
   EXPECT_EQ( before, rig.fact( "interfaces/et2", "start-time" ) );
   EXPECT_EQ( "\"under-maint\"", rig.fact( "interfaces/et2", "state" ) );
   EXPECT_EQ( ( std::vector< std::string >{ "et2 down", "et3 down" } ), rig.moves() );
}

TEST_F( ChangeStory, interfaceThatLeavesItsGroupIsReleased ) {
   EXPECT_EQ(
      200, rig.reload( configuration(
              "  g1: {interfaces: [et1, et2]}\n  g2: {interfaces: [et4]}\n", oneUnit, "100kbps" ) ) );
   rig.runUntil( 25 );
   EXPECT_EQ( "et3 up", rig.moves().back() );
   rig.runUntil( 35 );
   EXPECT_EQ( "et4 down", rig.moves().back() );
}

TEST_F( ChangeStory, profileOfAGroupThatChangesIsApplied ) {
   EXPECT_EQ(
      200, rig.reload( configuration(
              "  g1: {interfaces: [et1, et2], profile: watch}\n"
              "  g2: {interfaces: [et3]}\n",
              oneUnit, "100kbps" ) ) );
   rig.runUntil( 40 );
   EXPECT_EQ( "\"watch\"", rig.fact( "interfaces/et2", "profile" ) );
   EXPECT_EQ( "\"maintenance\"", rig.fact( "units/u1", "state" ) );
   EXPECT_EQ( ( std::vector< std::string >{ "et2 down", "et3 down", "et2 up" } ), rig.moves() );
}

TEST_F( ChangeStory, unitThatIsNotNormalIsNotRemoved ) {
   EXPECT_EQ( 409, rig.reload( configuration( twoGroups, "  u2: {groups: [g1]}\n", "100kbps" ) ) );
   EXPECT_EQ( "\"entering\"", rig.fact( "units/u1", "state" ) );
}

/// Each says something else too, which could be taken by itself.
TEST_F( ChangeStory, fileThatNeedsARestartIsRefusedAsAWhole ) {
   const std::string head = "version: 1\nswitch: simulated\n";
   const std::string tail = "simulated:\n  clock: virtual\n  ports: {et1: {}}\n";
   const std::string secondUnit = "  u2: {groups: [g2]}\n";
   struct Row {
      std::string head, units, tail, why;
   };
   for ( const Row & row :
         { Row{
              "version: 1\nswitch: linux\n", oneUnit + secondUnit, "",
              "a change of the switch needs a restart" },
           Row{
              head, oneUnit + secondUnit, "simulated:\n  clock: virtual\n  ports: {et1: {}, et2: {}}\n",
              "a change of the switch needs a restart" },
           Row{
              head, oneUnit + secondUnit, "simulated:\n  clock: real\n  ports: {et1: {}}\n",
              "a change of the switch needs a restart" },
           Row{
              head + "listen: {web: \"127.0.0.1:8080\"}\n", oneUnit + secondUnit, tail,
              R"(a change of \"listen: web\" needs a restart)" },
           Row{ head, secondUnit, tail, "unit u1 is not normal and cannot be removed" } } ) {
      SCOPED_TRACE( row.head + row.units + row.tail );
      std::ofstream( rig.folder() + "/maintd.yaml" )
         << row.head << configuration( twoGroups, row.units, "2Mbps" ) << row.tail;
      const auto answer = rig.ask( "POST", "reload", "{}" );
      EXPECT_EQ( 409, answer->status );
      EXPECT_NE( std::string::npos, answer->body.find( row.why + "; nothing is changed" ) ) << answer->body;
      EXPECT_NE( std::string::npos, rig.fact( "agent", "problems" ).find( row.why ) );
      rig.runUntil( rig.time() + 20 );
      EXPECT_EQ( "\"entering\"", rig.fact( "units/u1", "state" ) );
      EXPECT_EQ( std::string::npos, rig.get( "units" ).find( "\"u2\"" ) );
      EXPECT_EQ( 200, rig.reload( configuration( twoGroups, oneUnit, "100kbps" ) ) );
      EXPECT_EQ( "[]", rig.fact( "agent", "problems" ) );
   }
   EXPECT_EQ( 200, rig.reload( configuration( twoGroups, oneUnit + secondUnit, "2Mbps" ) ) );
   rig.runUntil( rig.time() + 20 );
   EXPECT_EQ( "\"maintenance\"", rig.fact( "units/u1", "state" ) );
   EXPECT_EQ( "\"normal\"", rig.fact( "units/u2", "state" ) );
}

TEST_F( ChangeStory, namesOfTheAddressNeedNoRestart ) {
   EXPECT_EQ(
      200, rig.reload(
              "listen: {names: [switch.example.net]}\n" + configuration( twoGroups, oneUnit, "100kbps" ) ) );
}

TEST_F( ChangeStory, configurationWithErrorsLeavesTheRunningOne ) {
   EXPECT_EQ( 400, rig.reload( configuration( twoGroups, oneUnit, "fast" ) ) );
   EXPECT_EQ( "\"fast\"", rig.fact( "interfaces/et1", "profile" ) );
   rig.runUntil( 40 );
   EXPECT_EQ( "\"entering\"", rig.fact( "units/u1", "state" ) );
}

TEST_F( ChangeStory, linkThatIsDeletedNoLongerKeepsTheUnitFromCompleting ) {
   ASSERT_TRUE( rig.simulation().linkDel( "et1" ).ok() );
   rig.runUntil( 40 );
   EXPECT_EQ( "\"maintenance\"", rig.fact( "units/u1", "state" ) );
   EXPECT_EQ( R"({"drained":2,"total":2})", rig.fact( "units/u1", "interfaces" ) );
}

TEST_F( ChangeStory, linkThatComesBackIsMonitoredAgain ) {
   ASSERT_TRUE( rig.simulation().linkDel( "et1" ).ok() );
   rig.runUntil( 22 );
   ASSERT_TRUE( rig.simulation().linkNew( "et1" ).ok() );
   rig.runUntil( 60 );
   EXPECT_EQ( "\"entering\"", rig.fact( "units/u1", "state" ) );
   EXPECT_EQ( "\"enter-maint\"", rig.fact( "interfaces/et1", "state" ) );
   EXPECT_EQ( R"({"drained":2,"total":3})", rig.fact( "units/u1", "interfaces" ) );
}

TEST_F( ChangeStory, trafficThatComesBackBeforeTheEndOfTheSettleTimeIsSeen ) {
   rig.traffic( "et1", 0 );
   rig.runUntil( 33 );
   EXPECT_EQ( "\"entering\"", rig.fact( "units/u1", "state" ) );
   EXPECT_EQ( R"({"drained":3,"total":3})", rig.fact( "units/u1", "interfaces" ) );
   ASSERT_TRUE( rig.simulation().linkDel( "et1" ).ok() );
   rig.runUntil( 34 );
   ASSERT_TRUE( rig.simulation().linkNew( "et1" ).ok() );
   rig.runUntil( 41 );
   EXPECT_EQ( "\"entering\"", rig.fact( "units/u1", "state" ) ) << "completed in spite of a new link";
}

/// A VLAN with traffic, in the middle of whose drain nobody can say any more what it carries.
class UncountedStory : public testing::Test {
 protected:
   UncountedStory() : rig( configuration( "  g1: {vlans: [10]}\n", "  u1: {groups: [g1]}\n", "100kbps" ) ) {
      rig.traffic( "et5", 1e6 );
      rig.start();
      EXPECT_EQ( 202, rig.post( "units/u1/enter" ) );
      rig.runUntil( 20 );
      EXPECT_EQ( R"({"drained":0,"total":1})", rig.fact( "units/u1", "interfaces" ) );
   }
   void uncounted( const char * why ) {
      rig.at( rig.time(), [this, why] { rig.watched().uncountedIs( vlan10, why ); } );
   }
   /// The unit waits for long, and says what for.
   void waitsBecause( const std::string & why ) {
      rig.runUntil( rig.time() + 40 );
      EXPECT_EQ( R"({"drained":0,"total":0})", rig.fact( "units/u1", "interfaces" ) );
      EXPECT_EQ( "\"entering\"", rig.fact( "units/u1", "state" ) );
      EXPECT_EQ(
         "\"vlan10 is up, and nobody can say what it carries: " + why + "\"",
         rig.fact( "units/u1/explain", "stuck-reason" ) );
   }
   void drainsWhenItIsCountedAgain() {
      rig.runUntil( rig.time() + 20 );
      EXPECT_EQ( "\"entering\"", rig.fact( "units/u1", "state" ) );
      EXPECT_EQ( "\"enter-maint\"", rig.fact( "interfaces/vlan10", "state" ) );
      rig.traffic( "et5", 0 );
      rig.runUntil( rig.time() + 40 );
      EXPECT_EQ( "\"maintenance\"", rig.fact( "units/u1", "state" ) );
      EXPECT_EQ( std::vector< std::string >{ "vlan10 down" }, rig.moves() );
   }
   const Wire::IntfId vlan10 = Wire::VlanIntfId( "vlan10", 10 );
   AgentRig rig;
};

TEST_F( UncountedStory, unitDoesNotCompleteWhileAVlanCannotBeCounted ) {
   uncounted( "its bridge does not filter" );
   waitsBecause( "its bridge does not filter" );
   uncounted( "" );
   drainsWhenItIsCountedAgain();
}

TEST_F( UncountedStory, unitDoesNotCompleteWhileAMemberHasNoCounters ) {
   rig.watched().withoutCountersIs( { Wire::EthIntfId( "et5" ) } );
   waitsBecause( R"(the switch has no counters of its member \"et5\")" );
   rig.watched().withoutCountersIs( {} );
   drainsWhenItIsCountedAgain();
}

TEST_F( UncountedStory, agentThatIsStartedAgainWaitsToo ) {
   uncounted( "its bridge does not filter" );
   rig.runUntil( 30 );
   rig.crash();
   rig.start();
   waitsBecause( "its bridge does not filter" );
}

TEST_F( UncountedStory, unitThatWaitsForWhatCannotBeCountedGoesBackWhenAsked ) {
   uncounted( "its bridge does not filter" );
   rig.runUntil( 40 );
   EXPECT_EQ( 202, rig.post( "units/u1/exit" ) );
   rig.runUntil( 45 );
   EXPECT_EQ( "\"normal\"", rig.fact( "units/u1", "state" ) );
   EXPECT_EQ( std::vector< std::string >{}, rig.moves() );
}

/// Two units with profiles of their own share et2, which runs under the stricter one.
TEST( SharedStory, interfaceIsReleasedByTheLastUnitThatLeaves ) {
   AgentRig rig( configuration(
      "  g1: {interfaces: [et1, et2]}\n"
      "  g2: {interfaces: [et2, et3], profile: watch}\n",
      "  u1: {groups: [g1]}\n  u2: {groups: [g2]}\n", "100kbps" ) );
   rig.traffic( "et2", 1e6 );
   rig.start();
   EXPECT_EQ( 202, rig.post( "units/u1/enter" ) );
   EXPECT_EQ( 202, rig.post( "units/u2/enter" ) );
   rig.runUntil( 40 );
   // Quiet enough for its own group, but not for the other.
   EXPECT_EQ( "\"entering\"", rig.fact( "units/u2", "state" ) );
   EXPECT_EQ( "\"fast\"", rig.fact( "interfaces/et2", "profile" ) );
   rig.traffic( "et2", 0 );
   rig.runUntil( 70 );
   EXPECT_EQ( "\"maintenance\"", rig.fact( "units/u1", "state" ) );
   EXPECT_EQ( "\"maintenance\"", rig.fact( "units/u2", "state" ) );
   EXPECT_EQ( 202, rig.post( "units/u1/exit" ) );
   rig.runUntil( 80 );
   EXPECT_EQ( "\"normal\"", rig.fact( "units/u1", "state" ) );
   EXPECT_EQ( ( std::vector< std::string >{ "et1 down", "et2 down", "et1 up" } ), rig.moves() );
   EXPECT_EQ( 202, rig.post( "units/u2/exit" ) );
   rig.runUntil( 90 );
   EXPECT_EQ( ( std::vector< std::string >{ "et1 down", "et2 down", "et1 up", "et2 up" } ), rig.moves() );
}

TEST( SharedStory, groupOfAnotherUnitThatGoesLeavesTheInterfaceUnderItsOwnProfile ) {
   const std::string units = "  u1: {groups: [g1]}\n";
   AgentRig rig( configuration(
      "  g1: {interfaces: [et2], profile: watch}\n"
      "  g2: {interfaces: [et2]}\n",
      units + "  u2: {groups: [g2]}\n", "100kbps" ) );
   rig.traffic( "et2", 1e6 );
   rig.start();
   EXPECT_EQ( 202, rig.post( "units/u1/enter" ) );
   rig.runUntil( 20 );
   EXPECT_EQ( "\"entering\"", rig.fact( "units/u1", "state" ) );
   EXPECT_EQ(
      200, rig.reload( configuration( "  g1: {interfaces: [et2], profile: watch}\n", units, "100kbps" ) ) );
   rig.runUntil( 40 );
   EXPECT_EQ( "\"maintenance\"", rig.fact( "units/u1", "state" ) );
   EXPECT_EQ( "\"watch\"", rig.fact( "interfaces/et2", "profile" ) );
   EXPECT_TRUE( rig.moves().empty() );
}

// ---- a unit of which nothing is there

class EmptyUnitStory : public testing::Test {
 protected:
   EmptyUnitStory()
      : rig( configuration( "  g1: {interfaces: [nix]}\n", "  u1: {groups: [g1]}\n", "1Mbps" ) ) {
      rig.start();
      EXPECT_EQ( 202, rig.post( "units/u1/enter" ) );
   }
   std::string state() { return rig.fact( "units/u1", "state" ); }
   AgentRig rig;
};

TEST_F( EmptyUnitStory, isUnderMaintenanceAfterTheSettleTimeAndBackAtOnce ) {
   rig.runUntil( 4 );
   EXPECT_EQ( "\"entering\"", state() );
   rig.runUntil( 6 );
   EXPECT_EQ( "\"maintenance\"", state() );
   EXPECT_EQ( R"({"drained":0,"total":0})", rig.fact( "units/u1", "interfaces" ) );
   EXPECT_EQ( 202, rig.post( "units/u1/exit" ) );
   EXPECT_EQ( "\"normal\"", state() );
   EXPECT_EQ( std::vector< std::string >(), rig.moves() );
}

TEST_F( EmptyUnitStory, settlesAnewWithAnAgentThatIsStartedAgain ) {
   rig.runUntil( 4 );
   rig.crash();
   rig.start();
   rig.runUntil( 8 );
   EXPECT_EQ( "\"entering\"", state() );
   rig.runUntil( 10 );
   EXPECT_EQ( "\"maintenance\"", state() );
   rig.crash();
   rig.start();
   EXPECT_EQ( "\"maintenance\"", state() );
}

} // namespace
