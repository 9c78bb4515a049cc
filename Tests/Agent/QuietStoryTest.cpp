#include "Tests/Agent/AgentRig.h"

#include <gtest/gtest.h>

/// Nothing is under maintenance for a long time, so nothing is monitored; counters are read for the samples only.
namespace {

using Tests::AgentRig;

std::string configuration( const std::string & settle ) {
   return "settle: " + settle +
          "\n"
          "profiles:\n"
          "  watch: {threshold: 100kbps, load-interval: 10s}\n"
          "default-profile: watch\n"
          "groups:\n"
          "  g1: {interfaces: [et1, et2]}\n"
          "  g2: {interfaces: [et5]}\n"
          "units:\n"
          "  u1: {groups: [g1]}\n"
          "  u2: {groups: [g2]}\n";
}

double rate( AgentRig & rig, const std::string & intf ) {
   return std::stod( rig.fact( "interfaces/" + intf, "in-bps" ) );
}

TEST( QuietStory, firstRateIsThatOfThePortAndNotOfAllItHasCarriedBefore ) {
   AgentRig rig( configuration( "5s" ) );
   rig.traffic( "et1", 1e6 );
   rig.start();
   rig.runUntil( 36000 );
   EXPECT_EQ( 202, rig.post( "units/u1/enter" ) );
   rig.runUntil( 36006 );
   EXPECT_NEAR( 1e6, rate( rig, "et1" ), 1e4 );
}

TEST( QuietStory, interfaceThatJoinsByAConfigurationBeginsWithWhatItHasCarriedByThen ) {
   std::string text = configuration( "0s" );
   text.replace( text.find( "[et5]" ), 5, "[nowhere]" );
   AgentRig rig( text );
   rig.traffic( "et3", 1e6 );
   rig.start();
   // Under maintenance without an interface: nothing is monitored.
   EXPECT_EQ( 202, rig.post( "units/u2/enter" ) );
   rig.runUntil( 36000 );
   EXPECT_EQ( "\"maintenance\"", rig.fact( "units/u2", "state" ) );
   text.replace( text.find( "[nowhere]" ), 9, "[et3]" );
   EXPECT_EQ( 200, rig.reload( text ) );
   rig.runUntil( 36011 );
   EXPECT_NEAR( 1e6, rate( rig, "et3" ), 1e4 );
}

TEST( QuietStory, linkThatAppearsIsWaitedForByAnEnterRightAfter ) {
   AgentRig rig( configuration( "0s" ) );
   rig.traffic( "et5", 1e6 );
   rig.start();
   ASSERT_TRUE( rig.simulation().linkDel( "et5" ).ok() );
   // The last time that anything is sampled.
   EXPECT_EQ( 202, rig.post( "units/u1/enter" ) );
   rig.runUntil( 30 );
   EXPECT_EQ( 202, rig.post( "units/u1/exit" ) );
   rig.runUntil( 3600 );
   ASSERT_TRUE( rig.simulation().linkNew( "et5" ).ok() );
   rig.runUntil( 3601 );
   EXPECT_EQ( 202, rig.post( "units/u2/enter" ) );
   rig.runUntil( 3700 );
   EXPECT_EQ( "\"entering\"", rig.fact( "units/u2", "state" ) );
   EXPECT_EQ( R"({"drained":0,"total":1})", rig.fact( "units/u2", "interfaces" ) );
}

TEST( QuietStory, linkThatGoesUpAndDownCostsNoReadOfCountersWhileAllUnitsAreNormal ) {
   AgentRig rig( configuration( "5s" ) );
   rig.start();
   rig.runUntil( 10 );
   const auto flaps = [&] {
      const unsigned before = rig.watched().refreshes();
      for ( int i = 0; i < 10; ++i ) {
         EXPECT_TRUE( rig.simulation().linkIs( "et1", i % 2 ).ok() );
         rig.turn();
      }
      return rig.watched().refreshes() - before;
   };
   EXPECT_EQ( 0u, flaps() );
   EXPECT_EQ( 202, rig.post( "units/u1/enter" ) );
   rig.runUntil( 12 );
   EXPECT_GT( flaps(), 0u ) << "a monitor begins each time that the link comes up";
}

} // namespace
