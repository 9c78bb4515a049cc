#include "MaintenancePlugin/UnitMonSmRigTest.h"

namespace MaintenanceMode {
namespace {

/// What a unit monitor does once it has begun.
class UnitMonSmChange : public UnitMonSmRig {
 protected:
   UnitMonSmChange() : UnitMonSmRig( PluginRig::ShutLinks::keepTheirStatus, false, 0 ) {}
};

// ---- what comes and goes

TEST_F( UnitMonSmChange, startsAnInterfaceThatIsAddedToItsSet ) {
   enterEmpty();
   busy( et1 );
   rig.groupMemberIs( "u1", et1 );
   UnitMonSequence sequence( rig );
   monIntf().intfIs( et1, true );
   EXPECT_EQ(
      ( Lines{
         "handleMonIntf: unit u1, starting intf mon for intf et1",
         "startIntfMon: unit u1 intf et1",
         "record of et1",
         "sampler of et1",
         "monIntfEnterMaint + et1",
         "monitor of et1",
         "startIntfMon: created intf monitor for intf et1, initial state monIntfStateEnterMaint, profile p",
      } ),
      sequence.lines() );
   EXPECT_EQ( Lines{}, sequence.logged() );
   EXPECT_TRUE( sequence.traced( "handleMonIntf: unit u1, starting", 5 ) );
   EXPECT_TRUE( rig.root->intfMon( et1 )->monitoredIntf()->dependentUnit( "u1" ) );
}

/// It is a member already, so that it comes up changes nothing, and the unit waits for it until it leaves.
TEST_F( UnitMonSmChange, anInterfaceThatIsAddedAndCannotBeMonitoredStaysAMember ) {
   enterEmpty();
   rig.linkIs( et1, false );
   rig.groupMemberIs( "u1", et1 );
   rig.settle();
   const auto before = reports();
   UnitMonSequence sequence( rig );
   monIntf().intfIs( et1, true );
   EXPECT_EQ(
      ( Lines{
         "handleMonIntf: unit u1, starting intf mon for intf et1",
         "startIntfMon: unit u1 intf et1",
         "startIntfMon: Intf et1 operStatus is operDown, ignoring as it is not operUp",
         "numIntfMonIntfOperNotUp",
      } ),
      sequence.lines() );
   EXPECT_TRUE( monIntf().intf( et1 ) );
   EXPECT_EQ( 0u, drained().intfs() );
   rig.allIntfStatusDir->intfStatus( et1 )->operStatusIs( Interface::operUp );
   rig.advance( 60 );
   EXPECT_FALSE( rig.root->intfMon( et1 ) );
   EXPECT_EQ( 1u, monIntf().intfs() );
   EXPECT_EQ( before, reports() );
   monIntf().intfDel( et1 );
   EXPECT_EQ( before + 1, reports() );
}

TEST_F( UnitMonSmChange, stopsAnInterfaceThatIsRemovedFromItsSet ) {
   enterBusy( { "u1" }, { et1, et2 } );
   UnitMonSequence sequence( rig );
   monIntf().intfDel( et1 );
   ASSERT_FALSE( sequence.lines().empty() );
   EXPECT_EQ( "handleMonIntf: unit u1, stopping intf mon for intf et1", sequence.lines().front() );
   EXPECT_TRUE( sequence.traced( "handleMonIntf: unit u1, stopping", 5 ) );
   EXPECT_FALSE( sequence.traced( "notifying completion", 4 ) );
   EXPECT_FALSE( rig.root->intfMon( et1 ) );
   EXPECT_TRUE( rig.root->intfMon( et2 ) );
   EXPECT_FALSE( rig.enterComplete( "u1" ) );
}

TEST_F( UnitMonSmChange, isCheckedAfterItsOnlyInterfaceIsStopped ) {
   enterBusy( { "u1" }, { et1 } );
   UnitMonSequence sequence( rig );
   sequence.watchUnit( "u1" );
   monIntf().intfDel( et1 );
   EXPECT_EQ(
      ( Lines{
         "handleMonIntf: unit u1, stopping intf mon for intf et1",
         "stopIntfMon: unit u1 intf et1",
         "stopIntfMon: deleting intf monitor for intf et1",
         "sampler of et1 gone",
         "stopIntfMon: Un-applying the current profile before the intfMon is deleted. intfId:et1 unitName:u1",
         "unApplyCurrentProfile: unit:u1intfId:et1",
         "monitor of et1 gone",
         "record of et1 gone",
         "monIntfEnterMaint - et1",
         "checkDrainedIntfsAndReport: unit u1 notifying completion.",
         "u1 monitored - et1",
      } ),
      sequence.lines() );
   EXPECT_EQ( Lines{}, sequence.logged() );
   EXPECT_TRUE( rig.enterComplete( "u1" ) );
   EXPECT_EQ( 1u, reports() );
}

TEST_F( UnitMonSmChange, completesWhenItsLastUndrainedInterfaceIsRemoved ) {
   enterBusy( { "u1" }, { et1, et2 } );
   rig.trafficIs( et1, {} );
   rig.advance( 10 );
   EXPECT_EQ( 1u, drained().intfs() );
   EXPECT_FALSE( rig.enterComplete( "u1" ) );
   monIntf().intfDel( et2 );
   EXPECT_TRUE( rig.enterComplete( "u1" ) );
}

/// The completion stands although the traffic is there again: the protocol has no way to take one back.
TEST_F( UnitMonSmChange, completesWhenItsOnlyInterfaceGoesDownForAMoment ) {
   enterBusy( { "u1" }, { et1 } );
   rig.linkIs( et1, false );
   rig.settle();
   EXPECT_TRUE( rig.enterComplete( "u1" ) );
   rig.linkIs( et1 );
   rig.advance( 10 );
   EXPECT_EQ( 1u, monIntf().intfs() );
   EXPECT_EQ( 0u, drained().intfs() );
   EXPECT_EQ( Maintenance::monIntfStateEnterMaint, rig.record( et1 )->state() );
   EXPECT_TRUE( rig.enterComplete( "u1" ) );
}

TEST_F( UnitMonSmChange, reactsOnlyOnceItIsInitialized ) {
   enterBusy( { "u1" }, { et1 } );
   unitMon().initializedIs( false );
   Vel::TraceCapture traces;
   monIntf().intfIs( et2, true );
   drained().intfIs( et1, true );
   drained().intfIs( et2, true );
   drained().intfDel( et2 );
   monIntf().intfDel( et2 );
   EXPECT_TRUE( traces.lines().empty() );
   EXPECT_EQ( 0u, reports() );
   unitMon().initializedIs( true );
}

// ---- completion

/// Counts are compared, not interfaces.
TEST_F( UnitMonSmChange, completesWhenAsManyInterfacesHaveDrainedAsAreMonitored ) {
   enterBusy( { "u1" }, { et1, et2 } );
   UnitMonSequence sequence( rig );
   drained().intfIs( et1, true );
   EXPECT_EQ( 0u, reports() );
   drained().intfIs( et3, true );
   EXPECT_EQ(
      ( Lines{
         "handleDrainedIntf: unit u1, drainedIntf( et1 ) - added, num drained intfs 1, num monitored intfs 2",
         "handleDrainedIntf: unit u1, drainedIntf( et3 ) - added, num drained intfs 2, num monitored intfs 2",
         "checkDrainedIntfsAndReport: unit u1 notifying completion.",
      } ),
      sequence.lines() );
   EXPECT_TRUE( sequence.traced( "handleDrainedIntf", 5 ) );
   EXPECT_TRUE( sequence.traced( "checkDrainedIntfsAndReport", 4 ) );
   EXPECT_TRUE( rig.enterComplete( "u1" ) );
   EXPECT_EQ( 1u, reports() );
   drained().intfDel( et3 );
}

/// So what looks at the record of its last interface when the unit is complete finds it entering.
TEST_F( UnitMonSmChange, completesInsideTheSampleThatFindsItsLastInterfaceDrained ) {
   struct Observer {
      struct VelStatus final : Vel::ReactorTo< Observer, Stage::AgentStatus > {
         using ReactorTo::ReactorTo;
         void onComplete( const Stage::AgentStatusKey & key ) override {
            sm()->log += Vel::text( key.instanceName, " ", sm()->rig.record( sm()->intf )->state(), "; " );
         }
      };
      PluginRig & rig;
      Wire::IntfId intf;
      Vel::String log;
      Vel::Watch< VelStatus > status;
   } observer{ rig, et2, {}, {} };
   enter( { "u1" }, { et1, et2 } );
   observer.status.is( rig.enterClass.agentStatus, &observer ).hasNotificationActiveIs( true );
   UnitMonSequence sequence( rig );
   rig.advance( 10 );
   EXPECT_EQ( "u1#1 monIntfStateEnterMaint; ", observer.log );
   EXPECT_EQ(
      ( Lines{
         "handleDrainedIntf: unit u1, drainedIntf( et1 ) - added, num drained intfs 1, num monitored intfs 2",
         "monIntfEnterMaint - et1",
         "monIntfUnderMaint + et1",
         "handleDrainedIntf: unit u1, drainedIntf( et2 ) - added, num drained intfs 2, num monitored intfs 2",
         "checkDrainedIntfsAndReport: unit u1 notifying completion.",
         "monIntfEnterMaint - et2",
         "monIntfUnderMaint + et2",
      } ),
      sequence.lines() );
}

/// Also when the counts are equal then.
TEST_F( UnitMonSmChange, anInterfaceThatHasDrainedNoMoreReportsNothing ) {
   enterBusy( { "u1" }, { et1 } );
   drained().intfIs( et1, true );
   drained().intfIs( et2, true );
   const auto before = reports();
   UnitMonSequence sequence( rig );
   drained().intfDel( et2 );
   EXPECT_EQ(
      ( Lines{ "handleDrainedIntf: unit u1, drainedIntf( et2 ) - deleted, num drained intfs 1, num "
               "monitored intfs 1" } ),
      sequence.lines() );
   EXPECT_EQ( before, reports() );
}

TEST_F( UnitMonSmChange, anEntryThatSaysNotDrainedReportsNothing ) {
   enterBusy( { "u1" }, { et1 } );
   UnitMonSequence sequence( rig );
   drained().intfIs( et1, false );
   EXPECT_EQ(
      ( Lines{ "handleDrainedIntf: unit u1, drainedIntf( et1 ) - added, num drained intfs 1, num monitored "
               "intfs 1" } ),
      sequence.lines() );
   EXPECT_EQ( 0u, reports() );
   drained().intfIs( et1, true );
   EXPECT_EQ( 1u, reports() );
}

TEST_F( UnitMonSmChange, reportsAsOftenAsItFindsTheCountsEqual ) {
   enterBusy( { "u1" }, { et1 } );
   drained().intfIs( et1, true );
   unitMon().checkDrainedIntfsAndReport();
   drained().intfIs( et1, false );
   drained().intfIs( et1, true );
   EXPECT_EQ( 3u, reports() );
   EXPECT_EQ( 1u, rig.enterClass.agentStatus->completes() );
}

TEST_F( UnitMonSmChange, reportsTheGenerationThatItHasNow ) {
   enterBusy( { "u1" }, { et1 } );
   unitMon().genIdIs( 7 );
   Vel::TraceCapture traces;
   drained().intfIs( et1, true );
   EXPECT_TRUE( traces.has( "No instance found for genId 7 unitName u1" ) );
   EXPECT_FALSE( rig.enterComplete( "u1" ) );
}

TEST_F( UnitMonSmChange, isNotToldWhileItIsSwitchedOff ) {
   enterBusy( { "u1" }, { et1 } );
   unitMon().hasNotificationActiveIs( false );
   drained().intfIs( et1, true );
   EXPECT_EQ( 0u, reports() );
   unitMon().hasNotificationActiveIs( true );
   EXPECT_EQ( 0u, reports() );
   drained().intfIs( et1, false );
   drained().intfIs( et1, true );
   EXPECT_EQ( 1u, reports() );
}

// ---- dump

TEST_F( UnitMonSmChange, dumpsItsCounts ) {
   enterBusy( { "u1" }, { et1, et2 } );
   drained().intfIs( et1, true );
   unitMon().genIdIs( 4 );
   const auto dump = [&]( unsigned indent ) {
      return PluginRig::written( [&]( int fd ) { unitMon().dump( fd, indent ); } );
   };
   EXPECT_EQ(
      "    Unit: u1\n"
      "      initialized: true\n"
      "      genId: 4\n"
      "      Num monIntf entries: 2\n"
      "      Num drainedIntf entries: 1\n",
      dump( 4 ) );
   unitMon().initializedIs( false );
   EXPECT_EQ(
      "Unit: u1\n"
      "  initialized: false\n"
      "  genId: 4\n"
      "  Num monIntf entries: 2\n"
      "  Num drainedIntf entries: 1\n",
      dump( 0 ) );
   unitMon().initializedIs( true );
}

} // namespace
} // namespace MaintenanceMode
