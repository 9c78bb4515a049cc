#include "Agent/Plan/JudgementRigTest.h"
#include "Agent/Plan/Topology.h"

namespace Agent {

namespace {

using Names = std::vector< std::string >;

PlanInterface missing( const std::string & name ) {
   PlanInterface result;
   result.name = name;
   result.leaves = false;
   result.notWatched = "does not exist";
   return result;
}

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
      "warning: 10.0.0.0/8 has no other way than et1; stage steer says that it leads traffic over others, "
      "which cannot be seen from here",
      rig.said( "last-path" ) );
   EXPECT_FALSE( isBlocked( rig.judged() ) );
}

TEST_F( Judgement, namesAFewOfManyRoutes ) {
   twoPorts();
   rig.routes.classes = { { { rig.via( { "et1" } ) }, 12, { "a", "b", "c", "d", "e" } } };
   EXPECT_EQ( "blocking: a, b, c and 9 more have no other way than et1", rig.said( "last-path" ) );
   rig.routes.classes = { { { rig.via( { "et1" } ) }, 2, { "a", "b" } } };
   EXPECT_EQ( "blocking: a and b have no other way than et1", rig.said( "last-path" ) );
   rig.routes.classes = { { { rig.via( { "et1" } ) }, 4, { "a", "b", "c", "d" } } };
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
   rig.routes.classes = { { { {}, rig.via( { "et1" } ) }, 1, { "10.0.0.0/8" } } };
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
   rig.routes.problem = "there are too many";
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

TEST_F( Judgement, doubtsThatASessionOverABridgeSurvivesTheLossOfAPort ) {
   for ( const char * name : { "et1", "et2", "et3", "et4" } )
      rig.port( name );
   rig.over( "br0", { { "et1", "et2" } } );
   rig.over( "vlan10", { { "br0" }, { "et1", "et2" } } );
   rig.bond( "bond0", { "et3", "et4" } );
   rig.carries( "bond0", 0 );
   rig.inUnit( "et1" );
   rig.facts.session = "192.0.2.7";
   rig.facts.way = { "", false, "192.0.2.0/24", { rig.via( { "vlan10" } ) } };
   EXPECT_EQ(
      "warning: whether this session would be cut off is not known: 192.0.2.7 is reached over vlan10, "
      "perhaps "
      "through et1",
      rig.said( "unknown-session" ) );
   rig.facts.interfaces.clear();
   rig.inUnit( "et3" );
   EXPECT_EQ( "", rig.said( "unknown-session" ) );
   // A port-channel brings all it carries through any of its members.
   rig.facts.way->choices = { rig.via( { "bond0" } ) };
   EXPECT_EQ( "", rig.said( "unknown-session" ) );
}

TEST_F( Judgement, warnsWhenRoutesRefuseTheSession ) {
   twoPorts();
   rig.facts.session = "192.0.2.7";
   rig.facts.way = { "", false, "192.0.2.0/24", { {}, rig.via( { "et1" } ) } };
   EXPECT_EQ(
      "warning: whether this session would be cut off is not known: routes refuse what is sent to 192.0.2.7",
      rig.said( "unknown-session" ) );
   // Behind the unit's way it is no other way.
   rig.facts.way->choices = { rig.via( { "et1" } ), {}, rig.via( { "et2" } ) };
   EXPECT_EQ(
      "blocking: the way to 192.0.2.7, from where this session comes, leaves through et1 only",
      rig.said( "lock-out" ) );
}

TEST_F( Judgement, doubtsThatALessSpecificRouteLeadsToTheSession ) {
   twoPorts();
   rig.facts.session = "10.1.2.3";
   rig.facts.way = { "", false, "10.1.0.0/16", { rig.via( { "et1" } ), rig.via( { "et2" } ) }, "", {} };
   rig.facts.way->lessSpecific = { { "0.0.0.0/0", 1 } };
   EXPECT_EQ(
      "warning: whether this session would be cut off is not known: without et1 the less specific route "
      "0.0.0.0/0 over et2 is taken, which need not lead to 10.1.2.3",
      rig.said( "unknown-session" ) );
   EXPECT_EQ( "", rig.said( "lock-out" ) );
   EXPECT_FALSE( isBlocked( rig.judged() ) );
   rig.facts.way->doubt = "rules choose";
   EXPECT_TRUE( rig.said( "unknown-session" ).ends_with( "lead to 10.1.2.3; rules choose" ) );
   // As long as its own route is left, that is taken.
   rig.facts.way->doubt = "";
   rig.facts.way->choices.front() = rig.via( { "et1", "et2" } );
   EXPECT_EQ( "", rig.said( "unknown-session" ) );
}

TEST_F( Judgement, takesNoLessSpecificRouteAsLongAsTheOtherOneIsLeftWithoutACarrier ) {
   twoPorts();
   rig.bond( "bond0", { "et1" } );
   rig.over( "et1.5", { { "et1" } } );
   rig.facts.session = "10.1.2.3";
   const auto routedOver = [this]( const char * link ) {
      rig.facts.way = { "", false, "10.1.0.0/16", { rig.via( { link } ), rig.via( { "et2" } ) }, "", {} };
      rig.facts.way->lessSpecific = { { "0.0.0.0/0", 1 } };
      return rig.said( "lock-out" );
   };
   const char * const locked =
      "blocking: the way to 10.1.2.3, from where this session comes, leaves through et1 only";
   EXPECT_EQ( locked, routedOver( "bond0" ) );
   EXPECT_EQ( locked, routedOver( "et1.5" ) );
   rig.routes.links.back().setDownWithBelow = true;
   EXPECT_EQ( "", routedOver( "et1.5" ) );
   EXPECT_NE( "", rig.said( "unknown-session" ) );
   // The port-channel itself.
   rig.facts.interfaces.clear();
   rig.inUnit( "bond0" );
   EXPECT_EQ( "", routedOver( "bond0" ) );
   // One that is without a carrier by then stays as well.
   rig.port( "et3", 1e9, false );
   rig.facts.way->choices.front() = rig.via( { "bond0", "et3" } );
   EXPECT_NE( "", rig.said( "lock-out" ) );
}

TEST_F( Judgement, namesOfTheLessSpecificRouteWhatWorksAndOfTheOtherOneWhatHasWorked ) {
   twoPorts();
   rig.port( "et3", 1e9, false );
   rig.inUnit( "et3" );
   rig.port( "et4", 1e9, false );
   rig.facts.session = "10.1.2.3";
   rig.facts.way = { "", false, "10.1.0.0/16", { rig.via( { "et1", "et3" } ), rig.via( { "et2", "et4" } ) },
                     "", {} };
   rig.facts.way->lessSpecific = { { "0.0.0.0/0", 1 } };
   EXPECT_EQ(
      "warning: whether this session would be cut off is not known: without et1 the less specific route "
      "0.0.0.0/0 over et2 is taken, which need not lead to 10.1.2.3",
      rig.said( "unknown-session" ) );
}

TEST_F( Judgement, blamesOtherUnitsForARouteThatTheyLeaveWithoutACarrier ) {
   twoPorts();
   rig.port( "et3" );
   rig.bond( "bond0", { "et3" } );
   rig.facts.leavingToo = { { "et3", "u2" } };
   rig.facts.session = "10.1.2.3";
   rig.facts.way = { "", false, "10.1.0.0/16", { rig.via( { "bond0" } ), rig.via( { "et2" } ) }, "", {} };
   rig.facts.way->lessSpecific = { { "0.0.0.0/0", 1 } };
   EXPECT_EQ(
      "warning: the way to 10.1.2.3, from where this session comes, leaves through et3 only; et3 is on its "
      "way out with u2",
      rig.said( "lock-out" ) );
}

TEST_F( Judgement, takesNoLessSpecificRouteBehindOneThatRefuses ) {
   twoPorts();
   rig.facts.session = "10.1.2.3";
   rig.facts.way = { "", false, "10.1.0.0/16", { rig.via( { "et1" } ), {}, rig.via( { "et2" } ) }, "", {} };
   rig.facts.way->lessSpecific = { { "10.0.0.0/8", 1 }, { "0.0.0.0/0", 2 } };
   EXPECT_EQ(
      "blocking: the way to 10.1.2.3, from where this session comes, leaves through et1 only",
      rig.said( "lock-out" ) );
}

TEST_F( Judgement, countsLessSpecificRoutesOverWhatLeavesWithOthersAsGone ) {
   twoPorts();
   rig.port( "et3" );
   rig.carries( "et3", 0 );
   rig.facts.session = "10.1.2.3";
   rig.facts.way = {
      "", false, "10.1.0.0/16", { rig.via( { "et1" } ), rig.via( { "et2" } ), rig.via( { "et3" } ) },
      "", {} };
   rig.facts.way->lessSpecific = { { "10.0.0.0/8", 1 }, { "0.0.0.0/0", 2 } };
   rig.facts.leavingToo = { { "et2", "u2" } };
   EXPECT_EQ(
      "warning: whether this session would be cut off is not known: without et1 and et2 the less specific "
      "route 0.0.0.0/0 over et3 is taken, which need not lead to 10.1.2.3; et2 is on its way out with u2",
      rig.said( "unknown-session" ) );
   rig.facts.leavingToo["et3"] = "u2";
   EXPECT_EQ(
      "blocking: the way to 10.1.2.3, from where this session comes, leaves through et1 only; et2 and et3 "
      "are "
      "on their way out with u2",
      rig.said( "lock-out" ) );
}

TEST_F( Judgement, doesNotTakeALessSpecificRouteForTheWayOfNow ) {
   twoPorts();
   rig.port( "et3", 1e9, false );
   rig.facts.session = "10.1.2.3";
   rig.facts.way = { "", false, "10.1.0.0/16", { rig.via( { "et3" } ), rig.via( { "et2" } ) }, "", {} };
   rig.facts.way->lessSpecific = { { "0.0.0.0/0", 1 } };
   EXPECT_EQ(
      "warning: whether this session would be cut off is not known: its route 10.1.0.0/16 leads over links "
      "that do not work",
      rig.said( "unknown-session" ) );
}

TEST_F( Judgement, doubtsWhereATunnelLeads ) {
   twoPorts();
   rig.port( "wg0" );
   rig.over( "wg0.5", { { "wg0" } } );
   rig.routes.links[2].tunnel = true;
   rig.facts.session = "192.0.2.7";
   rig.facts.way = { "", false, "192.0.2.0/24", { rig.via( { "wg0.5" } ) } };
   EXPECT_EQ(
      "warning: whether this session would be cut off is not known: 192.0.2.7 is reached over wg0.5, and "
      "nobody knows over which links wg0 sends its packets",
      rig.said( "unknown-session" ) );
}

TEST_F( Judgement, doubtsAWayThatTheSwitchDoubts ) {
   twoPorts();
   rig.facts.session = "192.0.2.7";
   rig.facts.way = { "", false, "192.0.2.0/24", { rig.via( { "et2" } ) }, "rules choose" };
   EXPECT_EQ(
      "warning: whether this session would be cut off is not known: rules choose",
      rig.said( "unknown-session" ) );
   rig.facts.way->choices = { rig.via( { "et1" } ) };
   EXPECT_EQ( "", rig.said( "unknown-session" ) );
   EXPECT_EQ(
      "blocking: the way to 192.0.2.7, from where this session comes, leaves through et1 only; but rules "
      "choose",
      rig.said( "lock-out" ) );
}

TEST_F( Judgement, saysThatNobodyHasSaidFromWhereTheSessionComes ) {
   rig.facts.session.clear();
   rig.facts.way.reset();
   EXPECT_EQ(
      "info: nobody has said from where this session comes; whether it would be cut off is not judged",
      rig.said( "unknown-session" ) );
}

TEST_F( Judgement, takesALinkThatNobodyHasDescribedForNoWay ) {
   twoPorts();
   rig.facts.session = "fe80::7%nonesuch";
   rig.facts.way = { "", false, "fe80::7%nonesuch", { rig.via( { "nonesuch" } ) } };
   EXPECT_EQ(
      "warning: whether this session would be cut off is not known: no way to fe80::7%nonesuch is known",
      rig.said( "unknown-session" ) );
   // One that went while routes were read has no name any more.
   rig.route( "10.0.0.0/8", { rig.via( { "et1", "" } ) } );
   EXPECT_EQ( "blocking: 10.0.0.0/8 has no other way than et1", rig.said( "last-path" ) );
}

// ---- what leaves with other units

TEST_F( Judgement, countsWhatLeavesWithOtherUnitsAsGone ) {
   twoPorts();
   rig.route( "0.0.0.0/0", { rig.via( { "et1", "et2" } ) } );
   rig.facts.session = "192.0.2.7";
   rig.facts.way = { "", false, "0.0.0.0/0", { rig.via( { "et1", "et2" } ) } };
   EXPECT_EQ( "", rig.said( "last-path" ) );
   rig.facts.leavingToo = { { "et2", "u2" } };
   EXPECT_EQ(
      "blocking: 0.0.0.0/0 has no other way than et1; et2 is on its way out with u2",
      rig.said( "last-path" ) );
   EXPECT_EQ(
      "blocking: the way to 192.0.2.7, from where this session comes, leaves through et1 only; et2 is on its "
      "way out with u2",
      rig.said( "lock-out" ) );
}

TEST_F( Judgement, doesNotBlameTheUnitForWhatAnotherOneCutsOff ) {
   twoPorts();
   rig.route( "10.0.0.0/8", { rig.via( { "et2" } ) } );
   rig.facts.session = "192.0.2.7";
   rig.facts.way = { "", false, "10.0.0.0/8", { rig.via( { "et2" } ) } };
   rig.facts.leavingToo = { { "et2", "u2" } };
   EXPECT_EQ( "", rig.said( "last-path" ) );
   EXPECT_EQ(
      "warning: the way to 192.0.2.7, from where this session comes, leaves through et2 only; et2 is on its "
      "way out with u2",
      rig.said( "lock-out" ) );
}

TEST_F( Judgement, movesWhatOtherUnitsStillCarryAsWell ) {
   for ( const char * name : { "et1", "et2", "et3" } )
      rig.port( name );
   rig.inUnit( "et1", 4e8 );
   rig.carries( "et2", 4e8 );
   rig.carries( "et3", 4e8 );
   rig.route( "0.0.0.0/0", { rig.via( { "et1", "et2", "et3" } ) } );
   EXPECT_EQ( "", rig.said( "capacity" ) );
   rig.facts.leavingToo = { { "et2", "u2" } };
   EXPECT_EQ(
      "blocking: 800 Mbps in and 800 Mbps out are to be moved from et1 and et2, and et3 has 600 Mbps in and "
      "600 Mbps out left; et2 is on its way out with u2",
      rig.said( "capacity" ) );
   // What the other one moves by itself is not the unit's fault.
   rig.routes.classes.clear();
   rig.route( "0.0.0.0/0", { rig.via( { "et2" } ), rig.via( { "et3" } ) } );
   rig.carries( "et2", 9e8 );
   EXPECT_EQ( "", rig.said( "capacity" ) );
}

TEST_F( Judgement, takesAPortChannelAwayWhenAnotherUnitHasItsOtherMember ) {
   twoPorts();
   rig.bond( "bond0", { "et1", "et2" } );
   rig.carries( "bond0", 0 );
   rig.route( "10.0.0.0/8", { rig.via( { "bond0" } ) } );
   EXPECT_EQ( "", rig.said( "last-path" ) );
   rig.facts.leavingToo = { { "et2", "u2" } };
   EXPECT_EQ(
      "blocking: 10.0.0.0/8 has no other way than et1; et2 is on its way out with u2",
      rig.said( "last-path" ) );
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
   rig.inUnit( "et2" ).thresholdBps = 10001;
   rig.facts.interfaces.back().profile = "enough";
   EXPECT_EQ(
      "warning: the threshold of profile fast, 9999 bps, is below the 10.0 kbps that the control plane "
      "itself may "
      "send: et1 may never count as drained",
      rig.said( "low-threshold" ) );
   // Drained is less than the threshold.
   rig.facts.interfaces.front().thresholdBps = 1e4;
   EXPECT_EQ(
      "warning: the threshold of profile fast, 10.0 kbps, is no more than the 10.0 kbps that the control "
      "plane "
      "itself may send: et1 may never count as drained",
      rig.said( "low-threshold" ) );
   rig.facts.interfaces.front().thresholdBps = 5e3;
   EXPECT_NE( std::string::npos, rig.said( "low-threshold" ).find( "5.00 kbps, is below the 10.0 kbps" ) )
      << rig.said( "low-threshold" );
}

TEST_F( Judgement, tellsWhatIsShutForAnotherUnit ) {
   rig.inUnit( "et1" ).shutFor = { "u2", "u3" };
   EXPECT_EQ( "info: et1 is held down already, for u2 and u3", rig.said( "already-shut" ) );
}

TEST_F( Judgement, warnsOfAUnitThatNoStageSteers ) {
   EXPECT_EQ(
      "warning: no stage of the unit says that it steers traffic away; somebody else has to",
      rig.said( "no-steering" ) );
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

TEST_F( Judgement, warnsOfWhatNothingWaitsFor ) {
   twoPorts();
   EXPECT_EQ( "", rig.said( "not-watched" ) );
   rig.facts.interfaces.push_back( missing( "eth99" ) );
   EXPECT_EQ( "warning: eth99 does not exist; nothing waits for it", rig.said( "not-watched" ) );
   rig.facts.interfaces.push_back( missing( "eth98" ) );
   EXPECT_EQ( "warning: eth99 and eth98 do not exist; nothing waits for them", rig.said( "not-watched" ) );
   EXPECT_FALSE( isBlocked( rig.judged() ) );
}

TEST_F( Judgement, tellsOfVlansThatAreStillToCome ) {
   twoPorts();
   rig.facts.interfaces.push_back( missing( "vlan 20" ) );
   EXPECT_EQ( "info: vlan 20 does not exist; nothing waits for it", rig.said( "not-watched" ) );
}

TEST_F( Judgement, warnsOfAKindThatIsNeverMonitored ) {
   twoPorts();
   PlanInterface bridge = missing( "br0" );
   bridge.kind = "bridge";
   bridge.notWatched = "is never monitored: bridge";
   rig.facts.interfaces.push_back( bridge );
   EXPECT_EQ( "warning: br0 is never monitored: bridge; nothing waits for it", rig.said( "not-watched" ) );
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

TEST( Topology, takesNoLinkThatStandsInACircleForSetDown ) {
   std::vector< DataPlane::RoutedLink > links = {
      { "a", true, false, { { "b" } } }, { "b", true, false, { { "a" } } } };
   for ( auto & link : links )
      link.setDownWithBelow = true;
   EXPECT_FALSE( Topology( links, {} ).isSetDown( "a" ) );
   EXPECT_TRUE( Topology( links, { "b" } ).isSetDown( "a" ) );
   EXPECT_FALSE( Topology( links, {} ).isSetDown( "nonesuch" ) );
}

TEST( Topology, doesNotLetLinksCarryEachOther ) {
   const std::vector< DataPlane::RoutedLink > links = {
      { "a", true, false, { { "b", "c" } } },
      { "b", true, false, { { "a", "d" } } },
      { "c", true, false, { { "c" } } },
      { "d", true, false, {} } };
   const Topology all( links, {} ), without( links, { "d" } );
   EXPECT_TRUE( all.works( "a" ) && all.works( "b" ) );
   EXPECT_FALSE( all.works( "c" ) );
   EXPECT_FALSE( without.works( "a" ) || without.works( "b" ) );
}

} // namespace Agent
