#include "Agent/Plan/FactsRig.h"
#include "Agent/Plan/Topology.h"

#include <gtest/gtest.h>

namespace Agent {

namespace {

struct Judgement : testing::Test {
   FactsRig rig;

   /// et1 and et2, of which the unit has et1.
   void twoPorts() {
      rig.port( "et1" );
      rig.port( "et2" );
      rig.inUnit( "et1" );
      rig.carries( "et2", 0 );
   }
};

using Names = std::vector< std::string >;

} // namespace

// ---- last path

TEST_F( Judgement, blocksWhenAllWaysOfARouteLeaveThroughTheUnit ) {
   twoPorts();
   rig.route( "10.0.0.0/8", { rig.via( { "et1" } ) } );
   rig.route( "0.0.0.0/0", { rig.via( { "et1", "et2" } ) } );
   EXPECT_EQ( "blocking: 10.0.0.0/8 has no other way than et1", rig.said( "last-path" ) );
   const auto findings = rig.judged();
   EXPECT_EQ( Names{ "et1" }, findings.front().interfaces );
   EXPECT_EQ( 1, findings.front().numbers.at( 0 ).second );
   EXPECT_TRUE( isBlocked( findings ) );
}

TEST_F( Judgement, onlyWarnsOfALastPathThatAStageMovesAway ) {
   twoPorts();
   rig.facts.steering = { "steer" };
   rig.route( "10.0.0.0/8", { rig.via( { "et1" } ) } );
   EXPECT_EQ(
      "warning: 10.0.0.0/8 has no other way than et1; stage steer asks the neighbours to take others, "
      "which cannot be seen from here",
      rig.said( "last-path" ) );
   EXPECT_FALSE( isBlocked( rig.judged() ) );
}

TEST_F( Judgement, namesAFewOfManyRoutes ) {
   twoPorts();
   rig.facts.routes.classes = { { { rig.via( { "et1" } ) }, 12, { "a", "b", "c", "d", "e" } } };
   EXPECT_EQ( "blocking: a, b, c and 9 more have no other way than et1", rig.said( "last-path" ) );
   rig.facts.routes.classes = { { { rig.via( { "et1" } ) }, 2, { "a", "b" } } };
   EXPECT_EQ( "blocking: a and b have no other way than et1", rig.said( "last-path" ) );
   rig.facts.routes.classes = { { { rig.via( { "et1" } ) }, 4, { "a", "b", "c", "d" } } };
   EXPECT_EQ( "blocking: a, b, c and d have no other way than et1", rig.said( "last-path" ) );
}

TEST_F( Judgement, takesALessPreferredRouteForAnotherWay ) {
   twoPorts();
   rig.route( "10.0.0.0/8", { rig.via( { "et1" } ), rig.via( { "et2" } ) } );
   EXPECT_EQ( "", rig.said( "last-path" ) );
}

TEST_F( Judgement, takesARefusalForNoWay ) {
   twoPorts();
   rig.route( "10.0.0.0/8", { rig.via( { "et1" } ), {}, rig.via( { "et2" } ) } );
   EXPECT_EQ( "blocking: 10.0.0.0/8 has no other way than et1", rig.said( "last-path" ) );
   // What is refused already loses nothing.
   rig.facts.routes.classes = { { { {}, rig.via( { "et1" } ) }, 1, { "10.0.0.0/8" } } };
   EXPECT_EQ( "", rig.said( "last-path" ) );
}

TEST_F( Judgement, takesAWayThatIsDownForNone ) {
   twoPorts();
   rig.port( "et3", 1e9, false );
   rig.route( "10.0.0.0/8", { rig.via( { "et1", "et3" } ) } );
   rig.route( "11.0.0.0/8", { { { "et1" }, { "et2", 1, false } } } );
   rig.route( "12.0.0.0/8", { rig.via( { "et3" } ) } );
   EXPECT_EQ( "blocking: 10.0.0.0/8 and 11.0.0.0/8 have no other way than et1", rig.said( "last-path" ) );
}

TEST_F( Judgement, doesNotTakeAPortChannelAwayWithOneOfItsMembers ) {
   for ( const char * name : { "et1", "et2", "et3" } )
      rig.port( name );
   rig.bond( "bond0", { "et1", "et2" } );
   rig.carries( "bond0", 0 );
   rig.inUnit( "et1" );
   rig.route( "10.0.0.0/8", { rig.via( { "bond0" } ) } );
   EXPECT_EQ( "", rig.said( "last-path" ) );
   rig.inUnit( "et2" );
   EXPECT_EQ( "blocking: 10.0.0.0/8 has no other way than et1 and et2", rig.said( "last-path" ) );
}

TEST_F( Judgement, seesTheUnitBelowVlansAndSubInterfaces ) {
   for ( const char * name : { "et1", "et2", "et3" } )
      rig.port( name );
   rig.over( "br0", { { "et1", "et2" } } );
   rig.over( "vlan10", { { "br0" }, { "et1" } } );
   rig.over( "et1.5", { { "et1" } } );
   rig.inUnit( "et1" );
   rig.route( "10.0.0.0/8", { rig.via( { "vlan10" } ) } );
   rig.route( "11.0.0.0/8", { rig.via( { "et1.5" } ) } );
   rig.route( "12.0.0.0/8", { rig.via( { "br0" } ) } );
   EXPECT_EQ( "blocking: 10.0.0.0/8 and 11.0.0.0/8 have no other way than et1", rig.said( "last-path" ) );
}

TEST_F( Judgement, saysThatRoutesAreNotAllKnown ) {
   rig.facts.routes.problem = "there are too many";
   EXPECT_EQ( "warning: not all routes are known: there are too many", rig.said( "unknown-routes" ) );
   EXPECT_FALSE( isBlocked( rig.judged() ) );
}

// ---- the session

TEST_F( Judgement, blocksWhenTheSessionLeavesThroughTheUnit ) {
   twoPorts();
   rig.facts.session = "192.0.2.7";
   rig.facts.steering = { "steer" };
   rig.facts.way = { "", false, "192.0.2.0/24", { rig.via( { "et1" } ) } };
   EXPECT_EQ(
      "blocking: the way to 192.0.2.7, from where this session comes, leaves through et1 only",
      rig.said( "lock-out" ) );
   rig.facts.way->choices = { rig.via( { "et1", "et2" } ) };
   EXPECT_EQ( "", rig.said( "lock-out" ) );
   rig.facts.way->choices = { rig.via( { "et2" } ) };
   EXPECT_EQ( "", rig.said( "lock-out" ) );
}

TEST_F( Judgement, doesNotFearForASessionFromTheSwitchItself ) {
   twoPorts();
   rig.facts.session = "192.0.2.1";
   rig.facts.way = { "", true, "192.0.2.1/32", { rig.via( { "et1" } ) } };
   EXPECT_EQ( "", rig.said( "lock-out" ) );
   EXPECT_EQ( "", rig.said( "unknown-session" ) );
}

TEST_F( Judgement, warnsWhenTheWayOfTheSessionIsNotKnown ) {
   twoPorts();
   rig.facts.session = "192.0.2.7";
   rig.facts.way = DataPlane::AddressWay();
   rig.facts.way->problem = "no answer";
   EXPECT_EQ(
      "warning: whether this session would be cut off is not known: no answer",
      rig.said( "unknown-session" ) );
   rig.facts.way->problem = "";
   EXPECT_EQ(
      "warning: whether this session would be cut off is not known: no way to 192.0.2.7 is known",
      rig.said( "unknown-session" ) );
}

// ---- capacity

TEST_F( Judgement, blocksWhenWhatRemainsCannotCarryWhatIsMoved ) {
   rig.port( "et1" );
   rig.port( "et2", 1e9 );
   rig.inUnit( "et1", 5e8 );
   rig.carries( "et2", 6e8 );
   rig.route( "0.0.0.0/0", { rig.via( { "et1", "et2" } ) } );
   EXPECT_EQ(
      "blocking: 500 Mbps in and 500 Mbps out are to be moved from et1, and et2 has 400 Mbps in and 400 Mbps "
      "out left",
      rig.said( "capacity" ) );
   rig.carries( "et2", 5e8 );
   EXPECT_EQ( "", rig.said( "capacity" ) );
}

TEST_F( Judgement, looksAtEachDirectionByItself ) {
   twoPorts();
   rig.facts.interfaces.front().load.current = PlanRates{ 0, 6e8 };
   rig.facts.loads["et2"].current = PlanRates{ 9e8, 3e8 };
   rig.route( "0.0.0.0/0", { rig.via( { "et1", "et2" } ) } );
   EXPECT_EQ( "", rig.said( "capacity" ) );
   rig.facts.loads["et2"].current = PlanRates{ 0, 5e8 };
   EXPECT_NE( "", rig.said( "capacity" ) );
}

TEST_F( Judgement, movesTrafficToWhatIsLessPreferred ) {
   rig.port( "et1" );
   rig.port( "et2", 1e8 );
   rig.inUnit( "et1", 5e8 );
   rig.carries( "et2", 0 );
   rig.route( "0.0.0.0/0", { rig.via( { "et1" } ), rig.via( { "et2" } ) } );
   EXPECT_TRUE( isBlocked( rig.judged() ) );
}

TEST_F( Judgement, warnsWhenTheLastTenMinutesWouldNotHaveFitted ) {
   twoPorts();
   rig.facts.interfaces.front().load = { PlanRates{ 0, 0 }, PlanRates{ 9e8, 9e8 } };
   rig.facts.loads["et2"] = { PlanRates{ 0, 0 }, PlanRates{ 5e8, 5e8 } };
   rig.route( "0.0.0.0/0", { rig.via( { "et1", "et2" } ) } );
   EXPECT_TRUE( rig.said( "capacity" ).starts_with( "warning: now it fits, but" ) ) << rig.said( "capacity" );
}

TEST_F( Judgement, warnsWhenWeightsPutTooMuchOnOneOfThoseThatRemain ) {
   for ( const char * name : { "et1", "et2", "et3" } )
      rig.port( name );
   rig.inUnit( "et1", 6e8 );
   rig.carries( "et2", 5e8 );
   rig.carries( "et3", 5e8 );
   rig.route( "0.0.0.0/0", { { { "et1", 1 }, { "et2", 9 }, { "et3", 1 } } } );
   EXPECT_EQ(
      "warning: as routes share it, et2 would have to carry 540 Mbps in and 540 Mbps out more, and has 500 "
      "Mbps in and 500 Mbps out left",
      rig.said( "capacity" ) );
   rig.facts.routes.classes.front().choices = { rig.via( { "et1", "et2", "et3" } ) };
   EXPECT_EQ( "", rig.said( "capacity" ) );
}

TEST_F( Judgement, saysWhenCapacityCannotBeKnown ) {
   rig.port( "et1" );
   rig.port( "et2", std::nullopt );
   rig.port( "et3" );
   rig.inUnit( "et1", 5e8 );
   rig.carries( "et2", 0 );
   rig.carries( "et3", 9e8 );
   rig.route( "0.0.0.0/0", { rig.via( { "et1", "et2", "et3" } ) } );
   EXPECT_EQ(
      "warning: whether et2 and et3 can carry what et1 carries is not known: the rate or the speed of et2 is "
      "not",
      rig.said( "unknown-capacity" ) );
   // What is known may be enough.
   rig.carries( "et3", 1e8 );
   EXPECT_EQ( "", rig.said( "unknown-capacity" ) );
   EXPECT_EQ( "", rig.said( "capacity" ) );
}

TEST_F( Judgement, asksWhetherAPortChannelCanDoWithoutAMember ) {
   rig.port( "et1" );
   rig.port( "et2" );
   rig.bond( "bond0", { "et1", "et2" } );
   rig.inUnit( "et1", 6e8 );
   rig.carries( "bond0", 12e8 );
   EXPECT_EQ(
      "blocking: bond0 carries 1.20 Gbps in and 1.20 Gbps out, and without et1 has 1.00 Gbps",
      rig.said( "capacity" ) );
   rig.carries( "bond0", 9e8 );
   EXPECT_EQ( "", rig.said( "capacity" ) );
   EXPECT_EQ( std::set< std::string >{ "bond0" }, interfacesInQuestion( rig.facts ) );
   rig.facts.loads.clear();
   EXPECT_EQ(
      "warning: whether bond0 can do without et1 is not known: what it carries is not",
      rig.said( "unknown-capacity" ) );
}

TEST_F( Judgement, countsOnlyWhatIsLeftOfAPortChannelThatTakesOver ) {
   for ( const char * name : { "et1", "et2", "et3" } )
      rig.port( name );
   rig.bond( "bond0", { "et2", "et3" } );
   rig.inUnit( "et1", 9e8 );
   rig.inUnit( "et2", 1e8 );
   rig.carries( "bond0", 2e8 );
   rig.route( "0.0.0.0/0", { rig.via( { "et1", "bond0" } ) } );
   EXPECT_EQ(
      "blocking: 900 Mbps in and 900 Mbps out are to be moved from et1, and bond0 has 800 Mbps in and 800 "
      "Mbps out left",
      rig.said( "capacity" ) );
}

TEST_F( Judgement, takesTheRedundancyGroupForWhatRemainsWhenNoRouteSaysSo ) {
   rig.port( "et1" );
   rig.port( "et2", 1e9 );
   rig.inUnit( "et1", 5e8 );
   rig.carries( "et2", 6e8 );
   EXPECT_EQ( "", rig.said( "capacity" ) );
   rig.facts.redundancy = { { "spines", 1, {}, { "et2" } } };
   EXPECT_TRUE( rig.said( "capacity" ).starts_with( "blocking: 500 Mbps in" ) ) << rig.said( "capacity" );
   EXPECT_EQ( std::set< std::string >{ "et2" }, interfacesInQuestion( rig.facts ) );
}

// ---- the unit and its interfaces

TEST_F( Judgement, blocksWhenTooManyOfARedundancyGroupAreOut ) {
   rig.facts.redundancy = { { "spines", 1, { "u2" }, {} }, { "rows", 3, { "u2", "u3" }, {} } };
   EXPECT_EQ(
      "blocking: of redundancy group spines no more than 1 may be out, and u2 is already",
      rig.said( "degraded" ) );
   rig.facts.redundancy.front().out.clear();
   EXPECT_EQ( "", rig.said( "degraded" ) );
}

TEST_F( Judgement, warnsOfStaleCounters ) {
   rig.inUnit( "et1", std::nullopt );
   rig.inUnit( "et2", 0 ).uncounted = "a member has no counters";
   rig.inUnit( "et3", 0 );
   EXPECT_EQ(
      "warning: what et1 and et2 carry now is not known: there are no fresh counters",
      rig.said( "stale-counters" ) );
}

TEST_F( Judgement, warnsOfAThresholdBelowTheControlPlane ) {
   rig.facts.controlPlaneFloorBps = 1e4;
   rig.inUnit( "et1" ).thresholdBps = 9999;
   rig.inUnit( "et2" ).thresholdBps = 1e4;
   rig.facts.interfaces.back().profile = "enough";
   EXPECT_EQ(
      "warning: the threshold of profile fast, 10.0 kbps, is below the 10.0 kbps that the control plane "
      "itself may send: et1 may never count as drained",
      rig.said( "low-threshold" ) );
}

TEST_F( Judgement, tellsWhatIsShutForAnotherUnit ) {
   rig.inUnit( "et1" ).shutFor = { "u2", "u3" };
   EXPECT_EQ( "info: et1 is held down already, for u2 and u3", rig.said( "already-shut" ) );
}

TEST_F( Judgement, warnsOfAUnitThatNoStageSteers ) {
   EXPECT_EQ(
      "warning: no stage of the unit moves traffic away; somebody else has to", rig.said( "no-steering" ) );
   rig.facts.steering = { "steer" };
   EXPECT_EQ( "", rig.said( "no-steering" ) );
}

TEST_F( Judgement, putsWhatBlocksFirst ) {
   twoPorts();
   rig.facts.redundancy = { { "spines", 1, { "u2" }, {} } };
   rig.facts.interfaces.front().shutFor = { "u2" };
   std::string order;
   for ( const PlanFinding & finding : rig.judged() )
      order += finding.code + " ";
   EXPECT_EQ( "degraded no-steering already-shut ", order );
}

TEST_F( Judgement, doesNotTakeAwayWhatIsNeverMonitored ) {
   twoPorts();
   rig.route( "10.0.0.0/8", { rig.via( { "et1" } ) } );
   rig.facts.interfaces.front().leaves = false;
   EXPECT_EQ( "", rig.said( "last-path" ) );
}

TEST( PlanAction, isAsTheProfileSays ) {
   PlanInterface interface;
   EXPECT_STREQ( "watched", stringValue( actionOf( interface ) ) );
   interface.shutdown = true;
   EXPECT_STREQ( "shut-when-drained", stringValue( actionOf( interface ) ) );
   interface.shutdownMaxDelaySeconds = 300;
   EXPECT_STREQ( "shut-at-latest", stringValue( actionOf( interface ) ) );
   interface.notWatched = "it is down";
   EXPECT_STREQ( "not-watched", stringValue( actionOf( interface ) ) );
}

TEST( Topology, doesNotLetLinksCarryEachOther ) {
   const std::vector< DataPlane::RoutedLink > links = {
      { "a", true, false, std::nullopt, { { "b", "c" } } },
      { "b", true, false, std::nullopt, { { "a", "d" } } },
      { "c", true, false, std::nullopt, { { "c" } } },
      { "d", true, false, std::nullopt, {} } };
   const Topology all( links, {} ), without( links, { "d" } );
   EXPECT_TRUE( all.works( "a" ) && all.works( "b" ) );
   EXPECT_FALSE( all.works( "c" ) );
   EXPECT_FALSE( without.works( "a" ) || without.works( "b" ) );
}

} // namespace Agent
