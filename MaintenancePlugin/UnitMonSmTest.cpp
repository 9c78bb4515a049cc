#include "MaintenancePlugin/UnitMonSmRigTest.h"

namespace MaintenanceMode {
namespace {

using Maintenance::Unit::UnitState;

class UnitMonSmTest : public UnitMonSmRig {
 protected:
   UnitMonSmTest() : UnitMonSmRig( PluginRig::ShutLinks::keepTheirStatus, false, 0 ) {}
   void busy( const Wire::IntfId & intf ) {
      rig.linkIs( intf );
      rig.trafficIs( intf, { 1e9, 1e9 } );
   }
   /// As enter, and all interfaces are busy.
   void
   enterBusy( std::initializer_list< const char * > units, std::initializer_list< Wire::IntfId > intfs ) {
      for ( const auto & intf : intfs )
         busy( intf );
      enter( units, intfs );
   }
   Vel::U32 reports() { return rig.counters().numNotifyStageCompletion(); }

   const Wire::IntfId et3 = PluginRig::port( "et3" );
};

// ---- the beginning

TEST_F( UnitMonSmTest, monitorsTheInterfacesOfAllItsGroups ) {
   const auto pc1 = PluginRig::portChannel( "pc1" );
   const auto vlan10 = PluginRig::vlan( "vlan10", 10 );
   busy( et1 );
   for ( const auto & intf : { pc1, vlan10 } )
      rig.linkIs( intf );
   rig.groupMemberIs( "g1", et1 );
   rig.groupMemberIs( "g1", pc1 );
   rig.groupMemberIs( "g2", vlan10 );
   for ( const char * group : { "g1", "g2" } )
      rig.mappingIs( group, "u1" );
   rig.unit( "u1" );
   rig.start();
   Vel::TraceCapture traces;
   FastLog::Capture log;
   rig.enter( "u1" );
   for ( const auto & intf : { et1, pc1, vlan10 } ) {
      SCOPED_TRACE( Vel::text( intf ) );
      ASSERT_TRUE( monIntf().intf( intf ) );
      EXPECT_TRUE( *monIntf().intf( intf ) );
      ASSERT_TRUE( rig.root->intfMon( intf ) );
      EXPECT_TRUE( rig.root->intfMon( intf )->monitoredIntf()->dependentUnit( "u1" ) );
      EXPECT_EQ(
         rig.root->monIntfDir()->monitoredIntf( intf ), rig.root->intfMon( intf )->monitoredIntf().get() );
   }
   EXPECT_EQ( 3u, monIntf().intfs() );
   EXPECT_EQ( 0u, drained().intfs() );
   EXPECT_TRUE( unitMon().initialized() );
   EXPECT_TRUE( traces.has( "UnitMonSm::handleInitialized for unit u1", 4 ) );
   EXPECT_TRUE( log.has( "unitMonSm for unit u1" ) );
   EXPECT_TRUE( traces.has( "processing group g1", 4 ) );
   EXPECT_TRUE( traces.has( "processing group g2", 4 ) );
   EXPECT_TRUE( traces.has( "handleInitialized: for unit u1, num monitored intfs 3, drainedIntfs 0", 4 ) );
   EXPECT_TRUE( traces.has( "startIntfMon: unit u1 intf et1", 4 ) );
   EXPECT_TRUE( traces.has(
      "startIntfMon: created intf monitor for intf et1, initial state monIntfStateEnterMaint, profile p",
      4 ) );
   // What it does to its own sets while it begins, it is not told of.
   EXPECT_FALSE( traces.has( "handleMonIntf" ) );
}

TEST_F( UnitMonSmTest, monitorsAnInterfaceOfTwoOfItsGroupsOnce ) {
   busy( et1 );
   rig.unitIs( "u1", { et1 } );
   rig.groupMemberIs( "g2", et1 );
   rig.mappingIs( "g2", "u1" );
   rig.start();
   rig.enter( "u1" );
   EXPECT_EQ( 1u, monIntf().intfs() );
   EXPECT_EQ( 1u, rig.root->intfMon( et1 )->monitoredIntf()->dependentUnits() );
}

TEST_F( UnitMonSmTest, passesOverGroupsOfAnotherType ) {
   busy( et1 );
   const Maintenance::GroupKey other{ Maintenance::GroupType( 2 ), "g" };
   rig.unitIs( "u1", {} );
   rig.groupMemberIs( "elsewhere", et1 );
   rig.intfGroupStatusDir->statusIs( other )->intfIs( et1 );
   rig.groupToUnitDir->mappingIs( other, "u1" );
   rig.start();
   Vel::TraceCapture traces;
   rig.enter( "u1" );
   EXPECT_EQ( 0u, monIntf().intfs() );
   EXPECT_EQ( 1u, traces.count( "handleInitialized: Group status missing for group u1" ) );
   EXPECT_EQ( 1u, traces.count( " group " ) );
}

TEST_F( UnitMonSmTest, passesOverAGroupThatHasNoStatus ) {
   busy( et1 );
   rig.mappingIs( "missing", "u1" );
   rig.unitIs( "u1", { et1 } );
   rig.start();
   Vel::TraceCapture traces;
   rig.enter( "u1" );
   EXPECT_TRUE( traces.has( "Group status missing for group missing, unit u1. Ignoring the group.", 4 ) );
   EXPECT_FALSE( traces.has( "processing group missing" ) );
   EXPECT_TRUE( monIntf().intf( et1 ) );
}

TEST_F( UnitMonSmTest, ofAUnitWithoutGroupsCompletesAtOnce ) {
   rig.unit( "u1" );
   rig.start();
   Vel::TraceCapture traces;
   rig.enter( "u1" );
   EXPECT_TRUE( rig.enterComplete( "u1" ) );
   EXPECT_EQ( 1u, reports() );
   EXPECT_TRUE( traces.has( "handleInitialized: for unit u1, num monitored intfs 0, drainedIntfs 0", 4 ) );
   EXPECT_TRUE( traces.has( "checkDrainedIntfsAndReport: unit u1 notifying completion.", 4 ) );
}

TEST_F( UnitMonSmTest, isInitializedOnce ) {
   rig.unitIs( "u1", {} );
   rig.start();
   rig.enter( "u1" );
   EXPECT_EQ( "!initialized()", Vel::failedAssertion( [&] { unitMon().handleInitialized(); } ) );
}

TEST_F( UnitMonSmTest, beginsWithEmptySetsOnly ) {
   rig.start();
   const auto empty = Vel::make< UnitIntfInput >( "u1" );
   const auto filled = Vel::make< UnitIntfInput >( "u1" );
   filled->intfIs( et1, true );
   const auto make = [&]( const Vel::Ptr< UnitIntfInput > & mon, const Vel::Ptr< UnitIntfInput > & drain ) {
      return Vel::failedAssertion( [&] { UnitMonSm::UnitMonSmIs( "u1", 1, rig.root.get(), mon, drain ); } );
   };
   EXPECT_EQ( "monIntf()->intfs() == 0", make( filled, empty ) );
   EXPECT_EQ( "drainedIntf()->intfs() == 0", make( empty, filled ) );
   EXPECT_EQ( "", make( empty, empty ) );
}

TEST_F( UnitMonSmTest, withoutTheDirectoriesHasNothingToMonitor ) {
   for ( const char * without : { "interface status", "group status", "mapping" } ) {
      SCOPED_TRACE( without );
      PluginRig world;
      world.linkIs( et1 );
      world.profileIs( "p", 100, 10, false, 0 );
      world.defaultProfileIs( "p" );
      world.unitIs( "u1", { et1 } );
      if ( without == Vel::String( "interface status" ) )
         world.allIntfStatusDir = nullptr;
      else if ( without == Vel::String( "group status" ) )
         world.intfGroupStatusDir = nullptr;
      else {
         world.allIntfStatusDir = nullptr; // nothing for the membership to look up
         world.groupToUnitDir = nullptr;
      }
      world.start();
      Vel::TraceCapture traces;
      world.enter( "u1" );
      EXPECT_TRUE( world.enterComplete( "u1" ) );
      EXPECT_EQ( 0u, world.root->unitMon( "u1" )->monIntf()->intfs() );
      EXPECT_EQ(
         without == Vel::String( "interface status" ) ? 1u : 0u, world.counters().numIntfMonNoIntfStatus() );
      EXPECT_EQ(
         without == Vel::String( "group status" ), traces.has( "Group status missing for group u1" ) );
   }
}

// ---- starting

TEST_F( UnitMonSmTest, leavesInterfacesOfOtherKindsAlone ) {
   rig.unitIs( "u1", {} );
   rig.start();
   rig.enter( "u1" );
   Vel::U32 expected = 0;
   for ( const auto & intf :
         { Wire::IntfId( Wire::SubIntfId( "et1.5" ) ), Wire::IntfId( Wire::CpuIntfId( "cpu" ) ),
           Wire::IntfId::other( "lo" ) } ) {
      SCOPED_TRACE( Vel::text( intf ) );
      rig.linkIs( intf );
      Vel::TraceCapture traces;
      // Without a profile too: whether it has one does not matter.
      unitMon().startIntfMon( intf );
      EXPECT_EQ( ++expected, rig.counters().numIntfMonIntfNotSupported() );
      EXPECT_TRUE( traces.has( Vel::text( "startIntfMon: intf ", intf, " - is not not supported" ), 4 ) );
      EXPECT_EQ( 0u, monIntf().intfs() );
      EXPECT_FALSE( rig.root->intfMon( intf ) );
   }
}

TEST_F( UnitMonSmTest, leavesAnInterfaceWithoutStatusAlone ) {
   rig.unitIs( "u1", { et1 } );
   rig.start();
   Vel::TraceCapture traces;
   rig.enter( "u1" );
   EXPECT_EQ( 1u, rig.counters().numIntfMonNoIntfStatus() );
   EXPECT_EQ( 0u, rig.counters().numIntfMonIntfOperNotUp() );
   EXPECT_TRUE(
      traces.has( "startIntfMon: Could not find intfStatus for intf et1. Ignoring this interface", 4 ) );
   EXPECT_EQ( 0u, monIntf().intfs() );
   EXPECT_EQ( 0u, rig.root->intfMons() );
}

TEST_F( UnitMonSmTest, leavesAnInterfaceThatIsNotUpAlone ) {
   rig.unitIs( "u1", { et1 } );
   rig.start();
   Vel::U32 expected = 0;
   rig.enter( "u1" );
   for ( const auto status :
         { Interface::operDown, Interface::operUnknown, Interface::IntfOperStatus( 9 ) } ) {
      SCOPED_TRACE( Vel::text( status ) );
      rig.allIntfStatusDir->intfStatusIs( et1 )->operStatusIs( status );
      Vel::TraceCapture traces;
      unitMon().startIntfMon( et1 );
      EXPECT_EQ( ++expected, rig.counters().numIntfMonIntfOperNotUp() );
      EXPECT_TRUE( traces.has(
         Vel::text( "startIntfMon: Intf et1 operStatus is ", status, ", ignoring as it is not operUp" ),
         4 ) );
      EXPECT_EQ( 0u, monIntf().intfs() );
   }
}

TEST_F( UnitMonSmTest, whoseOnlyInterfaceIsDownCompletesAtOnce ) {
   rig.linkIs( et1, false );
   rig.unitIs( "u1", { et1 } );
   rig.start();
   rig.enter( "u1" );
   EXPECT_TRUE( rig.enterComplete( "u1" ) );
   EXPECT_EQ( 0u, monIntf().intfs() );
   EXPECT_EQ( 0u, drained().intfs() );
}

/// The configuration always selects a profile, and the start comes before a look at the link.
TEST_F( UnitMonSmTest, anInterfaceWithoutAProfileIsFatalEvenIfItIsDown ) {
   rig.linkIs( et1, false );
   rig.unitIs( "u1", {} );
   rig.start();
   rig.enter( "u1" );
   EXPECT_EQ( "intfProfile", Vel::failedAssertion( [&] { unitMon().startIntfMon( et1 ); } ) );
}

TEST_F( UnitMonSmTest, startsPassivelyOnlyInAUnitThatIsInMaintenance ) {
   for ( const auto state :
         { UnitState::none, UnitState::normal, UnitState::enterInProgress, UnitState::maintenance,
           UnitState::exitInProgress } ) {
      SCOPED_TRACE( Vel::text( state ) );
      PluginRig world;
      world.linkIs( et1 );
      world.profileIs( "p", 100, 10, false, 0 );
      world.defaultProfileIs( "p" );
      world.unitIs( "u1", { et1 } );
      world.start();
      world.unit( "u1" ).stateIs( state );
      Vel::TraceCapture traces;
      world.root->handleUnitMaintenanceEnter( "u1", 1 );
      const bool passive = state == UnitState::maintenance;
      const auto initialState =
         passive ? Maintenance::monIntfStateUnderMaint : Maintenance::monIntfStateEnterMaint;
      EXPECT_EQ( initialState, world.root->intfMon( et1 )->initialState() );
      EXPECT_EQ( passive ? 1u : 0u, world.counters().numIntfMonInitialStatePassive() );
      EXPECT_EQ( passive ? 1u : 0u, world.root->unitMon( "u1" )->drainedIntf()->intfs() );
      EXPECT_TRUE( traces.has( Vel::text( "for intf et1, initial state ", initialState, ", profile p" ) ) );
   }
}

TEST_F( UnitMonSmTest, startsActivelyInAUnitWithoutStatus ) {
   rig.linkIs( et1 );
   rig.groupMemberIs( "g", et1 );
   rig.mappingIs( "g", "u1" );
   rig.start();
   rig.root->handleUnitMaintenanceEnter( "u1", 1 );
   EXPECT_EQ( Maintenance::monIntfStateEnterMaint, rig.root->intfMon( et1 )->initialState() );
   EXPECT_EQ( 0u, rig.counters().numIntfMonInitialStatePassive() );
}

TEST_F( UnitMonSmTest, anInterfaceThatIsShutFromTheBeginningIsDrainedAtOnce ) {
   rig.profileIs( "p", 100, 10, true, 0 );
   enterBusy( { "u1" }, { et1 } );
   EXPECT_TRUE( rig.shut( et1 ) );
   EXPECT_TRUE( drained().intf( et1 ) );
   EXPECT_TRUE( rig.enterComplete( "u1" ) );
   EXPECT_EQ( 0u, rig.counters().numIntfMonInitialStatePassive() );
   EXPECT_EQ( 1u, reports() );
}

TEST_F( UnitMonSmTest, countsAnInterfaceThatHasDrainedForAnotherUnitAtOnce ) {
   rig.linkIs( et1 );
   rig.unitIs( "u1", { et1 } );
   rig.unitIs( "u2", { et1 } );
   rig.start();
   rig.enter( "u1" );
   rig.advance( 10 );
   ASSERT_TRUE( rig.enterComplete( "u1" ) );
   IntfMonSm * const intfMon = rig.root->intfMon( et1 );
   rig.enter( "u2" );
   EXPECT_EQ( intfMon, rig.root->intfMon( et1 ) );
   EXPECT_EQ( 2u, intfMon->monitoredIntf()->dependentUnits() );
   ASSERT_TRUE( drained( "u2" ).intf( et1 ) );
   EXPECT_TRUE( *drained( "u2" ).intf( et1 ) );
   EXPECT_TRUE( rig.enterComplete( "u2" ) );
   EXPECT_EQ( 0u, rig.counters().numIntfMonInitialStatePassive() );
}

TEST_F( UnitMonSmTest, givesTheMonitorOfAnotherUnitTheProfileThatAppliesNow ) {
   enterBusy( { "u1" }, { et1 } );
   rig.unitIs( "u2", { et1 } );
   // One that comes back under its name reaches the monitors that are there only with the next decision.
   rig.profileDel( "p" );
   auto * again = rig.profileIs( "p", 100, 10, false, 0 );
   ASSERT_NE( again, rig.root->intfMon( et1 )->intfProfile().get() );
   Vel::TraceCapture traces;
   rig.enter( "u2" );
   EXPECT_EQ( again, rig.root->intfMon( et1 )->intfProfile().get() );
   EXPECT_FALSE( traces.has( "created intf monitor" ) );
   EXPECT_FALSE( drained( "u2" ).intf( et1 ) );
   EXPECT_TRUE( monIntf( "u2" ).intf( et1 ) );
}

/// Nothing starts a stopped monitor again, so an enter that finds one waits until the interface leaves the unit.
TEST_F( UnitMonSmTest, aStoppedMonitorOfAnotherUnitDoesNotCountAsDrained ) {
   enterBusy( { "u1" }, { et1 } );
   rig.unitIs( "u2", { et1 } );
   rig.root->intfMon( et1 )->stateIs( Maintenance::monIntfStateStopped );
   rig.trafficIs( et1, {} );
   rig.enter( "u2" );
   rig.advance( 60 );
   EXPECT_EQ( 1u, monIntf( "u2" ).intfs() );
   EXPECT_EQ( 0u, drained( "u2" ).intfs() );
   EXPECT_FALSE( rig.enterComplete( "u2" ) );
}

TEST_F( UnitMonSmTest, aSharedInterfaceIsShutWhenTheDelaySinceItsFirstUnitIsOver ) {
   rig.profileIs( "p", 100, 10, true, 30 );
   enterBusy( { "u1" }, { et1 } );
   rig.unitIs( "u2", { et1 } );
   rig.advance( 20 );
   rig.enter( "u2" );
   rig.advance( 9 );
   EXPECT_FALSE( rig.shut( et1 ) );
   rig.advance( 1 );
   EXPECT_TRUE( rig.shut( et1 ) );
   EXPECT_TRUE( rig.enterComplete( "u1" ) );
   EXPECT_TRUE( rig.enterComplete( "u2" ) );
}

TEST_F( UnitMonSmTest, startsAnInterfaceInTheOrderDrainedDependentMonitored ) {
   struct Observer {
      struct VelMon final : Vel::ReactorTo< Observer, UnitIntfInput > {
         using ReactorTo::ReactorTo;
         void onIntf( const Wire::IntfId & ) override { sm()->note( "monitored" ); }
      };
      struct VelDrained final : Vel::ReactorTo< Observer, UnitIntfInput > {
         using ReactorTo::ReactorTo;
         void onIntf( const Wire::IntfId & ) override { sm()->note( "drained" ); }
      };
      void note( const char * what ) {
         const auto * sampler = rig.root->monIntfDir()->monitoredIntf( intf );
         log += Vel::text( what, sampler->dependentUnit( "u1" ) ? " dependent; " : " not dependent; " );
      }
      PluginRig & rig;
      Wire::IntfId intf;
      Vel::String log;
      Vel::Watch< VelMon > mon;
      Vel::Watch< VelDrained > drained;
   } observer{ rig, et1, {}, {}, {} };
   rig.profileIs( "p", 100, 10, true, 0 );
   busy( et1 );
   rig.unitIs( "u1", { et1 } );
   rig.start();
   observer.mon.is( rig.root->unitMonIntfInput()->unitIntfInputIs( "u1" ), &observer )
      .hasNotificationActiveIs( true );
   observer.drained.is( rig.root->unitDrainedIntf()->unitIntfInputIs( "u1" ), &observer )
      .hasNotificationActiveIs( true );
   rig.enter( "u1" );
   EXPECT_EQ( "drained not dependent; monitored dependent; ", observer.log );
}

// ---- what comes and goes

TEST_F( UnitMonSmTest, startsAnInterfaceThatIsAddedToItsSet ) {
   busy( et1 );
   rig.unitIs( "u1", {} );
   rig.start();
   rig.enter( "u1" );
   rig.groupMemberIs( "u1", et1 );
   Vel::TraceCapture traces;
   monIntf().intfIs( et1, true );
   ASSERT_TRUE( rig.root->intfMon( et1 ) );
   EXPECT_TRUE( rig.root->intfMon( et1 )->monitoredIntf()->dependentUnit( "u1" ) );
   EXPECT_TRUE( traces.has( "handleMonIntf: unit u1, starting intf mon for intf et1", 5 ) );
   EXPECT_EQ( 1u, traces.count( "startIntfMon: unit u1 intf et1" ) );
}

TEST_F( UnitMonSmTest, anInterfaceThatIsAddedAndCannotBeMonitoredStaysAMember ) {
   rig.unitIs( "u1", {} );
   rig.start();
   rig.enter( "u1" );
   rig.linkIs( et1, false );
   rig.groupMemberIs( "u1", et1 );
   monIntf().intfIs( et1, true );
   EXPECT_TRUE( monIntf().intf( et1 ) );
   EXPECT_FALSE( rig.root->intfMon( et1 ) );
   // It is a member already, so that it comes up changes nothing.
   rig.allIntfStatusDir->intfStatus( et1 )->operStatusIs( Interface::operUp );
   rig.settle();
   EXPECT_FALSE( rig.root->intfMon( et1 ) );
}

TEST_F( UnitMonSmTest, stopsAnInterfaceThatIsRemovedFromItsSet ) {
   enterBusy( { "u1" }, { et1, et2 } );
   Vel::TraceCapture traces;
   monIntf().intfDel( et1 );
   EXPECT_FALSE( rig.root->intfMon( et1 ) );
   EXPECT_TRUE( rig.root->intfMon( et2 ) );
   EXPECT_TRUE( traces.has( "handleMonIntf: unit u1, stopping intf mon for intf et1", 5 ) );
   EXPECT_FALSE( rig.enterComplete( "u1" ) );
}

TEST_F( UnitMonSmTest, completesWhenItsLastUndrainedInterfaceIsRemoved ) {
   enterBusy( { "u1" }, { et1, et2 } );
   rig.trafficIs( et1, {} );
   rig.advance( 10 );
   EXPECT_EQ( 1u, drained().intfs() );
   EXPECT_FALSE( rig.enterComplete( "u1" ) );
   monIntf().intfDel( et2 );
   EXPECT_TRUE( rig.enterComplete( "u1" ) );
}

/// The completion stands although the traffic is there again: the protocol has no way to take one back.
TEST_F( UnitMonSmTest, completesWhenItsOnlyInterfaceGoesDownForAMoment ) {
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

TEST_F( UnitMonSmTest, reactsOnlyOnceItIsInitialized ) {
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

TEST_F( UnitMonSmTest, completesWhenAsManyInterfacesHaveDrainedAsAreMonitored ) {
   enterBusy( { "u1" }, { et1, et2 } );
   Vel::TraceCapture traces;
   drained().intfIs( et1, true );
   EXPECT_TRUE( traces.has(
      "handleDrainedIntf: unit u1, drainedIntf( et1 ) - added, num drained intfs 1, num monitored intfs 2",
      5 ) );
   EXPECT_FALSE( traces.has( "checkDrainedIntfsAndReport" ) );
   EXPECT_EQ( 0u, reports() );
   // Counts are compared, not interfaces.
   drained().intfIs( et3, true );
   EXPECT_TRUE( traces.has( "checkDrainedIntfsAndReport: unit u1 notifying completion.", 4 ) );
   EXPECT_TRUE( rig.enterComplete( "u1" ) );
   EXPECT_EQ( 1u, reports() );
   drained().intfDel( et3 );
}

TEST_F( UnitMonSmTest, anInterfaceThatHasDrainedNoMoreReportsNothing ) {
   enterBusy( { "u1" }, { et1 } );
   drained().intfIs( et1, true );
   drained().intfIs( et2, true );
   const auto before = reports();
   Vel::TraceCapture traces;
   drained().intfDel( et2 );
   EXPECT_TRUE( traces.has(
      "handleDrainedIntf: unit u1, drainedIntf( et2 ) - deleted, num drained intfs 1, num monitored intfs 1",
      5 ) );
   EXPECT_EQ( 1u, traces.lines().size() );
   EXPECT_EQ( before, reports() );
}

TEST_F( UnitMonSmTest, anEntryThatSaysNotDrainedReportsNothing ) {
   enterBusy( { "u1" }, { et1 } );
   drained().intfIs( et1, false );
   EXPECT_EQ( 0u, reports() );
   drained().intfIs( et1, true );
   EXPECT_EQ( 1u, reports() );
}

TEST_F( UnitMonSmTest, reportsAsOftenAsItFindsTheCountsEqual ) {
   enterBusy( { "u1" }, { et1 } );
   drained().intfIs( et1, true );
   unitMon().checkDrainedIntfsAndReport();
   drained().intfIs( et1, false );
   drained().intfIs( et1, true );
   EXPECT_EQ( 3u, reports() );
   EXPECT_EQ( 1u, rig.enterClass.agentStatus->completes() );
}

TEST_F( UnitMonSmTest, reportsItsOwnGeneration ) {
   enterBusy( { "u1" }, { et1 } );
   unitMon().genIdIs( 7 );
   Vel::TraceCapture traces;
   drained().intfIs( et1, true );
   EXPECT_TRUE( traces.has( "No instance found for genId 7 unitName u1" ) );
   EXPECT_FALSE( rig.enterComplete( "u1" ) );
}

TEST_F( UnitMonSmTest, isNotToldWhileItIsSwitchedOff ) {
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

TEST_F( UnitMonSmTest, dumpsItsCounts ) {
   enterBusy( { "u1" }, { et1, et2 } );
   drained().intfIs( et1, true );
   const auto dump = [&]( unsigned indent ) {
      return PluginRig::written( [&]( int fd ) { unitMon().dump( fd, indent ); } );
   };
   EXPECT_EQ(
      "Unit: u1\n"
      "  initialized: true\n"
      "  genId: 1\n"
      "  Num monIntf entries: 2\n"
      "  Num drainedIntf entries: 1\n",
      dump( 0 ) );
   unitMon().initializedIs( false );
   EXPECT_EQ(
      "    Unit: u1\n"
      "      initialized: false\n"
      "      genId: 1\n"
      "      Num monIntf entries: 2\n"
      "      Num drainedIntf entries: 1\n",
      dump( 4 ) );
   unitMon().initializedIs( true );
}

} // namespace
} // namespace MaintenanceMode
