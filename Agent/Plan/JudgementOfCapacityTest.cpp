#include "Agent/Plan/JudgementRigTest.h"

namespace Agent {

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
   rig.routes.classes.front().choices = { rig.via( { "et1", "et2", "et3" } ) };
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
   EXPECT_EQ( std::set< std::string >{ "bond0" }, rig.questions().loads );
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
   EXPECT_EQ( std::set< std::string >{ "et2" }, rig.questions().loads );
}

TEST_F( Judgement, doesNotCountRoomThatTheTrafficCannotReach ) {
   rig.port( "et1" );
   rig.port( "et5" );
   rig.port( "et2", 1e8 );
   rig.port( "et6", 1e10 );
   rig.inUnit( "et1", 9e8 );
   rig.inUnit( "et5", 0 );
   rig.carries( "et2", 0 );
   rig.carries( "et6", 0 );
   rig.route( "0.0.0.0/0", { rig.via( { "et1" } ), rig.via( { "et2" } ) } );
   rig.routes.classes.push_back(
      { { rig.via( { "et5" } ), rig.via( { "et6" } ) }, 1000, { "10.0.0.0/24" } } );
   EXPECT_EQ(
      "blocking: 900 Mbps in and 900 Mbps out are to be moved from et1, and et2 has 100 Mbps in and 100 Mbps "
      "out left",
      rig.said( "capacity" ) );
   // Whatever part of it is for the other prefixes: that is not known.
   rig.routes.classes.push_back( { { rig.via( { "et1" } ), rig.via( { "et6" } ) }, 1, { "10.9.0.0/24" } } );
   EXPECT_EQ(
      "warning: as routes share it, et2 would have to carry 450 Mbps in and 450 Mbps out more, and has 100 "
      "Mbps in and 100 Mbps out left",
      rig.said( "capacity" ) );
}

TEST_F( Judgement, sharesOutWhatALinkCarriesAmongItsOwnRoutes ) {
   for ( const char * name : { "et1", "et3", "et5" } )
      rig.port( name );
   rig.port( "et2", 4e8 );
   rig.inUnit( "et1", 5e8 );
   rig.inUnit( "et5", 0 );
   rig.carries( "et2", 0 );
   rig.carries( "et3", 0 );
   rig.route( "0.0.0.0/0", { rig.via( { "et1" } ), { { "et2", 9 }, { "et3", 1 } } } );
   rig.routes.classes.push_back(
      { { rig.via( { "et5" } ), rig.via( { "et3" } ) }, 1000, { "10.0.0.0/24" } } );
   EXPECT_EQ(
      "warning: as routes share it, et2 would have to carry 450 Mbps in and 450 Mbps out more, and has 400 "
      "Mbps in and 400 Mbps out left",
      rig.said( "capacity" ) );
}

TEST_F( Judgement, doesNotMoveWhatStaysOnTheSamePort ) {
   rig.port( "et1" );
   rig.port( "et2" );
   rig.over( "br0", { { "et1" } } );
   rig.over( "vlan10", { { "br0" }, { "et1" } } );
   rig.over( "vlan20", { { "br0" }, { "et1" } } );
   rig.inUnit( "vlan10", 5e8 );
   rig.carries( "et1", 6e8 );
   rig.carries( "et2", 6e8 );
   rig.route( "0.0.0.0/0", { rig.via( { "vlan10" } ), rig.via( { "vlan20" } ) } );
   for ( const char * code : { "capacity", "unknown-capacity" } )
      EXPECT_EQ( "", rig.said( code ) );
   // To another port no more is moved than the VLAN interface has.
   rig.routes.classes.front().choices = { rig.via( { "vlan10" } ), rig.via( { "et2" } ) };
   EXPECT_EQ(
      "blocking: 500 Mbps in and 500 Mbps out are to be moved from vlan10, and et2 has 400 Mbps in and 400 "
      "Mbps out left",
      rig.said( "capacity" ) );
   rig.carries( "et2", 5e8 );
   EXPECT_EQ( "", rig.said( "capacity" ) );
}

TEST_F( Judgement, letsTheOtherPortsOfABridgeCarryWhatOneOfThemDid ) {
   rig.port( "et1" );
   rig.port( "et2" );
   rig.port( "et3", 1e8 );
   rig.over( "br0", { { "et1", "et2" } } );
   rig.over( "et1.5", { { "et1" } } );
   rig.inUnit( "et1", 8e8 );
   rig.carries( "et2", 0 );
   rig.carries( "et3", 0 );
   rig.route( "0.0.0.0/0", { rig.via( { "br0" } ) } );
   rig.route( "10.0.0.0/8", { rig.via( { "et1.5" } ), rig.via( { "et3" } ) } );
   EXPECT_FALSE( isBlocked( rig.judged() ) ) << rig.said( "capacity" );
   rig.carries( "et2", 5e8 );
   EXPECT_TRUE( isBlocked( rig.judged() ) );
}

TEST_F( Judgement, knowsThatASlowLinkIsTooSlowWhateverItCarries ) {
   rig.port( "et1" );
   rig.port( "eth0", 1e8 );
   rig.inUnit( "et1", 5e8 );
   rig.route( "0.0.0.0/0", { rig.via( { "et1" } ), rig.via( { "eth0" } ) } );
   EXPECT_EQ(
      "blocking: 500 Mbps in and 500 Mbps out are to be moved from et1, and eth0 has no more than 100 Mbps "
      "in "
      "and 100 Mbps out left",
      rig.said( "capacity" ) );
   // It may fit, or not.
   rig.facts.interfaces.front().load.current = PlanRates{ 9e7, 9e7 };
   EXPECT_EQ( "", rig.said( "capacity" ) );
   EXPECT_EQ(
      "warning: whether eth0 can carry what et1 carries is not known: the rate or the speed of eth0 is not",
      rig.said( "unknown-capacity" ) );
}

TEST_F( Judgement, leavesToTheRedundancyGroupWhatNoRouteMoves ) {
   for ( const char * name : { "et1", "et2", "et3", "et5" } )
      rig.port( name );
   rig.inUnit( "et1", 1e8 ); // routed
   rig.inUnit( "et5", 9e8 ); // bridged
   rig.carries( "et2", 0 );
   rig.carries( "et3", 5e8 );
   rig.route( "0.0.0.0/0", { rig.via( { "et1", "et2" } ) } );
   rig.facts.redundancy = { { "spines", 1, {}, { "et3" } } };
   EXPECT_EQ(
      "blocking: 900 Mbps in and 900 Mbps out are to be moved from et5, and et3 has 500 Mbps in and 500 Mbps "
      "out left",
      rig.said( "capacity" ) );
}

TEST_F( Judgement, warnsOfAPortChannelThatTheLastTenMinutesWouldHaveBeenTooMuchFor ) {
   rig.port( "et1" );
   rig.port( "et2" );
   rig.bond( "bond0", { "et1", "et2" } );
   rig.inUnit( "et1", 6e8 );
   rig.facts.loads["bond0"] = { PlanRates{ 9e8, 9e8 }, PlanRates{ 19e8, 1e8 } };
   EXPECT_EQ(
      "warning: now it fits, but going by the last ten minutes bond0 carries 1.90 Gbps in and 100 Mbps out, "
      "and "
      "without et1 has 1.00 Gbps",
      rig.said( "capacity" ) );
}

TEST_F( Judgement, givesAPortChannelTheSpeedThatItReallyHas ) {
   using DataPlane::Sharing;
   rig.port( "et1", 2e9 );
   rig.port( "et2", 1e9 );
   rig.port( "et3", 4e8 );
   rig.bond( "bond0", { "et2", "et3" } );
   rig.inUnit( "et1", 12e8 );
   rig.carries( "bond0", 0 );
   rig.route( "0.0.0.0/0", { rig.via( { "et1" } ), rig.via( { "bond0" } ) } );
   DataPlane::RoutedLink & bond = rig.routes.links.back();
   EXPECT_EQ( "", rig.said( "capacity" ) );
   const auto left = [&] {
      for ( const PlanFinding & finding : rig.judged() )
         if ( finding.code == "capacity" )
            return finding.numbers.at( 2 ).second;
      return 0.0;
   };
   bond.sharing = Sharing::oneAtATime;
   EXPECT_EQ( 1e9, left() );
   bond.sharing = Sharing::copied;
   EXPECT_EQ( 4e8, left() );
   bond.sharing = Sharing::unknown;
   EXPECT_NE( "", rig.said( "unknown-capacity" ) );
   // A member that is up and not used until the others fail.
   bond.sharing = Sharing::together;
   rig.routes.links[1].standby = true;
   EXPECT_EQ( 4e8, left() );
   rig.routes.links[2].up = false;
   EXPECT_EQ( 1e9, left() );
}

} // namespace Agent
