#include "DataPlane/Simulated/SimulatedRigTest.h"

namespace DataPlane::Simulated {
namespace {

class SimulatedSwitch : public SimulatedRig {};

TEST_F( SimulatedSwitch, startTellsLinksBeforeTheirMemberships ) {
   ASSERT_TRUE( sw().start( listener ).ok() );
   EXPECT_EQ(
      "et1 up, et2 up, et3 up, et4 up, pc1 up, vlan10 up, et3 in pc1, et4 in pc1, 10+et1, 10+pc1",
      listener.take() );
   EXPECT_EQ( 1u, listener.link( "et1" )->ifIndex );
   EXPECT_EQ( Wire::IntfId( Wire::VlanIntfId( "vlan10", 10 ) ), listener.link( "vlan10" )->intf );
   EXPECT_TRUE( sw().tellsMembership() );
   EXPECT_EQ( "simulated", sw().bootId() );
}

TEST_F( SimulatedSwitch, portOfAPortChannelIsNotListedInItsVlan ) {
   started();
   EXPECT_FALSE( listener.vlanMembers.count( { 10, "et3" } ) );
   remove( "pc1" );
   clock->runTurn();
   EXPECT_EQ( "10-pc1, et3 in none, et4 in none, -pc1, 10+et3", listener.take() );
   makeAgain( "pc1" );
   clock->runTurn();
   EXPECT_EQ( "10-et3, pc1 up, et3 in pc1, et4 in pc1, 10+pc1", listener.take() );
}

TEST_F( SimulatedSwitch, linkSetTakesEffectAndIsAcknowledgedInTheNextTurn ) {
   started();
   sw().linkSet( 7, eth( "et1" ), false, {} );
   EXPECT_EQ( "", listener.take() );
   clock->runTurn();
   EXPECT_EQ( "et1 admin-down, 7 done", listener.take() );
   EXPECT_TRUE( listener.results.at( 7 ).link.ok() && listener.results.at( 7 ).restore.ok() );
   sw().linkSet( 8, eth( "et1" ), true, {} );
   clock->runTurn();
   EXPECT_EQ( "et1 up, 8 done", listener.take() );
}

TEST_F( SimulatedSwitch, linkSetAsAnEffectOfATurnIsAcknowledgedInALaterTurn ) {
   started();
   clock->effectIs( [&] { sw().linkSet( 7, eth( "et1" ), false, {} ); } );
   clock->runTurn();
   EXPECT_EQ( "", listener.take() );
   clock->runTurn();
   EXPECT_EQ( "et1 admin-down, 7 done", listener.take() );
}

TEST_F( SimulatedSwitch, linkThatIsAsWantedIsASuccess ) {
   started();
   sw().linkSet( 1, eth( "et1" ), true, {} );
   clock->runTurn();
   EXPECT_EQ( "1 done", listener.take() );
}

TEST_F( SimulatedSwitch, linkSetOfALinkThatIsNotThereFailsLater ) {
   started();
   const Wire::IntfId ids[] = { eth( "et9" ), Wire::PortChannelIntfId( "et1" ), {} };
   for ( RequestId id = 0; id < 3; ++id )
      sw().linkSet( id, ids[id], false, {} );
   remove( "et2" );
   clock->runTurn();
   sw().linkSet( 3, eth( "et2" ), false, {} );
   clock->runTurn();
   EXPECT_EQ( "0 failed, 1 failed, 2 failed, -et2, 3 failed", listener.take() );
   EXPECT_EQ( "the simulated switch has no link \"et9\"", listener.results.at( 0 ).link.text() );
}

TEST_F( SimulatedSwitch, carrierComesAndGoes ) {
   started();
   carrierIs( "et1", false );
   EXPECT_EQ( "", listener.take() );
   clock->runTurn();
   EXPECT_EQ( "et1 down", listener.take() );
   carrierIs( "et1", true );
   clock->runTurn();
   EXPECT_EQ( "et1 up", listener.take() );
}

TEST_F( SimulatedSwitch, flapWithinATurnIsSeen ) {
   started();
   carrierIs( "et1", false );
   carrierIs( "et1", true );
   clock->runTurn();
   EXPECT_EQ( "et1 down, et1 up", listener.take() );
}

TEST_F( SimulatedSwitch, carrierDoesNotRaiseALinkThatIsSetDown ) {
   started();
   sw().linkSet( 1, eth( "et1" ), false, {} );
   carrierIs( "et1", false );
   carrierIs( "et1", true );
   clock->runTurn();
   EXPECT_EQ( "et1 admin-down, 1 done", listener.take() );
}

TEST_F( SimulatedSwitch, portChannelIsUpWhileAMemberIs ) {
   started();
   carrierIs( "et3", false );
   clock->runTurn();
   EXPECT_EQ( "et3 down", listener.take() );
   carrierIs( "et4", false );
   carrierIs( "et1", false );
   clock->runTurn();
   EXPECT_EQ( "et4 down, pc1 down, et1 down, vlan10 down", listener.take() );
   carrierIs( "et3", true );
   clock->runTurn();
   EXPECT_EQ( "et3 up, pc1 up, vlan10 up", listener.take() );
}

TEST_F( SimulatedSwitch, linkMadeAgainHasAnotherNumber ) {
   started();
   remove( "et1" );
   clock->runTurn();
   EXPECT_EQ( "10-et1, -et1", listener.take() );
   makeAgain( "et1" );
   clock->runTurn();
   EXPECT_EQ( "et1 up, 10+et1", listener.take() );
   EXPECT_EQ( 7u, listener.link( "et1" )->ifIndex );
}

TEST_F( SimulatedSwitch, linkThatWasSetDownComesBackUpWhenItIsMadeAgain ) {
   started();
   sw().linkSet( 1, eth( "et2" ), false, {} );
   remove( "et2" );
   makeAgain( "et2" );
   clock->runTurn();
   EXPECT_EQ( "et2 admin-down, 1 done, -et2, et2 up", listener.take() );
}

TEST_F( SimulatedSwitch, linkIsKeptAcrossAnotherStart ) {
   started();
   sw().linkSet( 1, eth( "et2" ), false, {} );
   sw().stop();
   clock->runTurn();
   RecordingListener other;
   ASSERT_TRUE( sw().start( other ).ok() );
   EXPECT_EQ( "", listener.take() );
   EXPECT_FALSE( other.up( "et2" ) );
   EXPECT_TRUE( other.up( "et1" ) );
   EXPECT_EQ( 6u, other.links.size() );
}

TEST_F( SimulatedSwitch, resultOfARequestFromBeforeAnotherStartIsNotTold ) {
   started();
   simulation().linkSetDelayIs( 2 );
   sw().linkSet( 1, eth( "et2" ), false, {} );
   clock->runTurn();
   RecordingListener other;
   ASSERT_TRUE( sw().start( other ).ok() );
   other.take();
   clock->runUntilIdle();
   EXPECT_EQ( "", other.take() );
   EXPECT_EQ( "et2 admin-down", listener.take() );
}

TEST_F( SimulatedSwitch, switchMayEndBeforeWhatWasPosted ) {
   started();
   sw().linkSet( 1, eth( "et2" ), false, {} );
   carrierIs( "et1", false );
   made = {};
   clock->runUntilIdle();
   EXPECT_EQ( "", listener.take() );
}

TEST_F( SimulatedSwitch, addressesAreLostOnDownAndRestoredAfterUp ) {
   started();
   addresses( "et2", "2001:db8::1/64" );
   const LinkSnapshot snapshot = sw().linkSnapshot( eth( "et2" ) );
   ASSERT_TRUE( snapshot.outcome.ok() );
   EXPECT_EQ( "2001:db8::1/64", snapshot.text );
   sw().linkSet( 1, eth( "et2" ), false, {} );
   clock->runTurn();
   EXPECT_EQ( "", simulation().addresses( "et2" ) );
   sw().linkSet( 2, eth( "et2" ), true, snapshot.text );
   clock->runTurn();
   EXPECT_EQ( "2001:db8::1/64", simulation().addresses( "et2" ) );
}

TEST_F( SimulatedSwitch, addressesThatAreThereAgainAreLeftAsTheyAre ) {
   started();
   addresses( "et2", "2001:db8::2/64" );
   sw().linkSet( 1, eth( "et2" ), true, "2001:db8::1/64" );
   clock->runTurn();
   EXPECT_EQ( "2001:db8::2/64", simulation().addresses( "et2" ) );
}

TEST_F( SimulatedSwitch, leavesNothingToBeRestoredLater ) {
   started();
   EXPECT_EQ( "2001:db8::1/64", sw().raisedByOthers( "2001:db8::1/64" ) );
   EXPECT_EQ( "2001:db8::1/64", sw().snapshotsJoined( "", "2001:db8::1/64" ) );
   EXPECT_EQ( "2001:db8::1/64", sw().snapshotsJoined( "2001:db8::1/64", "2001:db8::2/64" ) );
   sw().linkRestore( 3, eth( "et2" ), "2001:db8::1/64" );
   EXPECT_EQ( "", listener.take() );
   clock->runTurn();
   EXPECT_EQ( "3 done", listener.take() );
   sw().linkRestore( 4, eth( "et2" ), "2001:db8::1/64" );
   sw().stop();
   clock->runUntilIdle();
   EXPECT_EQ( "", listener.take() );
}

TEST_F( SimulatedSwitch, snapshotOfALinkThatIsNotThereFails ) {
   EXPECT_FALSE( sw().linkSnapshot( eth( "et9" ) ).outcome.ok() );
}

TEST_F( SimulatedSwitch, requestsFailWhileTheFaultLasts ) {
   started();
   simulation().linkSetFaultIs( "device busy" );
   sw().linkSet( 1, eth( "et1" ), false, {} );
   clock->runTurn();
   EXPECT_EQ( "1 failed", listener.take() );
   EXPECT_EQ( "device busy", listener.results.at( 1 ).link.text() );
   simulation().linkSetFaultIs( "" );
   sw().linkSet( 2, eth( "et1" ), false, {} );
   clock->runTurn();
   EXPECT_EQ( "et1 admin-down, 2 done", listener.take() );
}

TEST_F( SimulatedSwitch, resultIsDelayedBySoManyTurns ) {
   started();
   simulation().linkSetDelayIs( 2 );
   sw().linkSet( 1, eth( "et1" ), false, {} );
   for ( const char * expected : { "et1 admin-down", "", "1 done" } ) {
      clock->runTurn();
      EXPECT_EQ( expected, listener.take() );
   }
}

TEST_F( SimulatedSwitch, healthFaultIsToldAndTakenBack ) {
   started();
   simulation().healthFaultIs( "no contact" );
   clock->runTurn();
   EXPECT_TRUE( listener.health.degraded );
   EXPECT_EQ( "no contact", listener.health.text );
   simulation().healthFaultIs( "" );
   clock->runTurn();
   EXPECT_EQ( "degraded, healthy", listener.take() );
}

TEST_F( SimulatedSwitch, healthFaultIsToldAtStart ) {
   simulation().healthFaultIs( "no contact" );
   clock->runTurn();
   ASSERT_TRUE( sw().start( listener ).ok() );
   EXPECT_TRUE( listener.health.degraded );
}

TEST_F( SimulatedSwitch, unknownNamesAreRefused ) {
   const Outcome outcomes[] = {
      simulation().linkIs( "et9", true ), simulation().linkDel( "" ), simulation().linkNew( "ET1" ),
      simulation().trafficIs( "et9", 0, 0, 0 ), simulation().addressesIs( "et9", "x" ) };
   for ( const Outcome & outcome : outcomes )
      EXPECT_NE( Vel::String::npos, outcome.text().find( "the simulated switch has no link" ) );
   EXPECT_FALSE( simulation().linkIs( "pc1", false ).ok() );
   EXPECT_EQ( "", simulation().addresses( "et9" ) );
}

TEST_F( SimulatedSwitch, thousandsOfLinksAreSetInOneTurn ) {
   Description big;
   for ( int i = 0; i < 5000; ++i )
      big.ports.push_back( { Vel::text( "et", i ), {} } );
   made = switchNewSimulated( clock, big );
   started();
   for ( RequestId i = 0; i < 5000; ++i )
      sw().linkSet( i, eth( Vel::text( "et", i ) ), false, {} );
   clock->runTurn();
   EXPECT_EQ( 5000u, listener.results.size() );
   EXPECT_FALSE( listener.up( "et4999" ) );
}

} // namespace
} // namespace DataPlane::Simulated
