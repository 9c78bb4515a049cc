#include "Agent/Plan/JudgementRigTest.h"

/// Sessions that come over a bridge, or a device that stands on one.
namespace Agent {

namespace {

/// et1, et2 and wg0 are ports of br0, with vlan10 on top; et9 stands by itself.
struct JudgementOfBridges : Judgement {
   JudgementOfBridges() {
      for ( const char * name : { "et1", "et2", "wg0", "et9" } )
         rig.port( name );
      rig.over( "br0", { { "et1", "et2", "wg0" } } );
      rig.over( "vlan10", { { "br0" }, { "et1", "et2", "wg0" } } );
      rig.inUnit( "et1" );
      rig.facts.session = "192.0.2.7";
   }
   DataPlane::NextHop behind( const std::string & port, const std::string & unseen = "" ) {
      ports.push_back( { port, unseen } );
      return { "vlan10", 1, true, static_cast< std::uint16_t >( ports.size() ) };
   }
   void way( const DataPlane::Choices & choices ) {
      rig.facts.way = { "", false, "192.0.2.0/24", choices, "", std::exchange( ports, {} ) };
   }
   /// Both findings of sessions.
   std::string said() const { return rig.said( "lock-out" ) + rig.said( "unknown-session" ); }

   std::vector< DataPlane::BehindPort > ports; ///< of the next way
};

} // namespace

TEST_F( JudgementOfBridges, blocksWhenTheSessionIsBehindAPortOfTheUnit ) {
   way( { { behind( "et1" ) } } );
   EXPECT_EQ(
      "blocking: the way to 192.0.2.7, from where this session comes, leaves through et1 only", said() );
   EXPECT_EQ( ( std::vector< std::string >{ "et1" } ), rig.find( rig.judged(), "lock-out" )->interfaces );
}

TEST_F( JudgementOfBridges, saysNothingWhenTheSessionIsBehindAnotherPort ) {
   way( { { behind( "et2" ) } } );
   EXPECT_EQ( "", said() );
}

TEST_F( JudgementOfBridges, doubtsWhenNobodyKnowsBehindWhichPortTheSessionIsAndSaysWhy ) {
   way( { { behind( "", "br0 has not seen it" ) } } );
   EXPECT_EQ(
      "warning: whether this session would be cut off is not known: 192.0.2.7 is reached over vlan10, "
      "perhaps through et1: br0 has not seen it",
      said() );
   // Whichever it is, it stays.
   rig.facts.interfaces.clear();
   rig.inUnit( "et9" );
   EXPECT_EQ( "", said() );
}

/// The bridge stays up, so its route does.
TEST_F( JudgementOfBridges, blocksThoughThereIsALessPreferredWay ) {
   way( { { behind( "et1" ) }, rig.via( { "et9" } ) } );
   EXPECT_EQ(
      "blocking: the way to 192.0.2.7, from where this session comes, leaves through et1 only", said() );
   // Without any of its ports it is down.
   rig.inUnit( "et2" );
   rig.inUnit( "wg0" );
   EXPECT_EQ( "", said() );
}

TEST_F( JudgementOfBridges, doubtsWhenOneOfSeveralEqualWaysEndsAtTheBridge ) {
   way( { { behind( "et1" ), { "et9" } } } );
   EXPECT_EQ(
      "warning: whether this session would be cut off is not known: 192.0.2.7 is reached over vlan10 too, "
      "and there through et1",
      said() );
}

TEST_F( JudgementOfBridges, namesAllPortsOfTheUnitThroughWhichEqualWaysLead ) {
   rig.inUnit( "et2" );
   way( { { behind( "et1" ), behind( "et2" ) } } );
   EXPECT_EQ(
      "blocking: the way to 192.0.2.7, from where this session comes, leaves through et1 and et2 only",
      said() );
}

TEST_F( JudgementOfBridges, takesWhatIsLeftWhenTheFirstWayGoesForAWayThroughThePort ) {
   rig.inUnit( "et9" );
   way( { rig.via( { "et9" } ), { behind( "et1" ) } } );
   EXPECT_EQ(
      "blocking: the way to 192.0.2.7, from where this session comes, leaves through et1 and et9 only",
      said() );
   way( { rig.via( { "et9" } ), { behind( "et2" ) } } );
   EXPECT_EQ( "", said() );
}

TEST_F( JudgementOfBridges, doesNotBlameTheUnitForAPortThatLeavesWithAnother ) {
   way( { { behind( "et2" ) } } );
   rig.facts.leavingToo = { { "et2", "u2" } };
   EXPECT_EQ(
      "warning: the way to 192.0.2.7, from where this session comes, leaves through et2 only; et2 is on its "
      "way out with u2",
      said() );
}

TEST_F( JudgementOfBridges, takesAPortThatIsDownAlreadyForNone ) {
   rig.port( "et3", 1e9, false );
   way( { { behind( "et3" ) } } );
   EXPECT_EQ(
      "warning: whether this session would be cut off is not known: 192.0.2.7 is reached over vlan10, "
      "perhaps through et1",
      said() );
}

TEST_F( JudgementOfBridges, doubtsTheTunnelThatIsTheVeryPortAndNoOther ) {
   rig.routes.links[2].tunnel = true;
   way( { { behind( "wg0" ) } } );
   EXPECT_EQ(
      "warning: whether this session would be cut off is not known: 192.0.2.7 is reached over vlan10, and "
      "nobody knows over which links wg0 sends its packets",
      said() );
   way( { { behind( "et2" ) } } );
   EXPECT_EQ( "", said() );
}

} // namespace Agent
