#include "MaintenancePlugin/UnitMonSmRigTest.h"

namespace MaintenanceMode {
namespace {

using Maintenance::Unit::UnitState;

class UnitMonSmTest : public UnitMonSmRig {
 protected:
   UnitMonSmTest() : UnitMonSmRig( PluginRig::ShutLinks::keepTheirStatus, false, 0 ) {}
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
   rig.enter( "u1" );
   for ( const auto & intf : { et1, pc1, vlan10 } ) {
      SCOPED_TRACE( Vel::text( intf ) );
      ASSERT_TRUE( monIntf().intf( intf ) );
      EXPECT_TRUE( *monIntf().intf( intf ) );
      const IntfMonSm * intfMon = rig.root->intfMon( intf );
      ASSERT_TRUE( intfMon );
      EXPECT_EQ( intf, intfMon->intf() );
      EXPECT_EQ( rig.root->timerWheel(), intfMon->clock() );
      EXPECT_EQ( p, intfMon->intfProfile().get() );
      EXPECT_EQ( rig.root.get(), intfMon->rootSm() );
      EXPECT_EQ( Maintenance::monIntfStateEnterMaint, intfMon->initialState() );
      const MonitoredIntf * sampler = intfMon->monitoredIntf().get();
      EXPECT_EQ( rig.root->monIntfDir()->monitoredIntf( intf ), sampler );
      EXPECT_EQ( "p", sampler->profileName() );
      EXPECT_EQ( 1u, sampler->dependentUnits() );
      ASSERT_TRUE( sampler->dependentUnit( "u1" ) );
      EXPECT_TRUE( *sampler->dependentUnit( "u1" ) );
   }
   EXPECT_EQ( 3u, monIntf().intfs() );
   EXPECT_EQ( 0u, drained().intfs() );
   EXPECT_TRUE( unitMon().initialized() );
}

/// What it does to its own sets while it begins, it is not told of.
TEST_F( UnitMonSmTest, beginsWithItsGroupsInterfaceByInterface ) {
   busy( et1 );
   rig.linkIs( et2, false );
   rig.unitIs( "u1", { et1, et2 } );
   rig.start();
   UnitMonSequence sequence( rig );
   sequence.watchUnit( "u1" );
   rig.enter( "u1" );
   EXPECT_EQ(
      ( Lines{
         "UnitMonSm::handleInitialized for unit u1",
         "handleInitialized: processing group u1",
         "startIntfMon: unit u1 intf et1",
         "record of et1",
         "sampler of et1",
         "monIntfEnterMaint + et1",
         "monitor of et1",
         "startIntfMon: created intf monitor for intf et1, initial state monIntfStateEnterMaint, profile p",
         "u1 monitored + et1",
         "startIntfMon: unit u1 intf et2",
         "startIntfMon: Intf et2 operStatus is operDown, ignoring as it is not operUp",
         "numIntfMonIntfOperNotUp",
         "handleInitialized: for unit u1, num monitored intfs 1, drainedIntfs 0",
      } ),
      sequence.lines() );
   EXPECT_EQ( ( Lines{ "unitMonSm for unit u1" } ), sequence.logged() );
   EXPECT_TRUE( sequence.traced( "UnitMonSm::handleInitialized", 4 ) );
   EXPECT_TRUE( sequence.traced( "processing group", 4 ) );
   EXPECT_TRUE( sequence.traced( "startIntfMon: unit u1 intf et1", 4 ) );
   EXPECT_TRUE( sequence.traced( "created intf monitor", 4 ) );
   EXPECT_TRUE( sequence.traced( "num monitored intfs", 4 ) );
}

TEST_F( UnitMonSmTest, anInterfaceOfTwoOfItsGroupsIsStartedTwiceAndMonitoredOnce ) {
   busy( et1 );
   rig.unitIs( "u1", { et1 } );
   rig.groupMemberIs( "g2", et1 );
   rig.mappingIs( "g2", "u1" );
   rig.start();
   UnitMonSequence sequence( rig );
   sequence.watchUnit( "u1" );
   rig.enter( "u1" );
   EXPECT_EQ(
      ( Lines{
         "UnitMonSm::handleInitialized for unit u1",
         "handleInitialized: processing group u1",
         "startIntfMon: unit u1 intf et1",
         "record of et1",
         "sampler of et1",
         "monIntfEnterMaint + et1",
         "monitor of et1",
         "startIntfMon: created intf monitor for intf et1, initial state monIntfStateEnterMaint, profile p",
         "u1 monitored + et1",
         "handleInitialized: processing group g2",
         "startIntfMon: unit u1 intf et1",
         "handleInitialized: for unit u1, num monitored intfs 1, drainedIntfs 0",
      } ),
      sequence.lines() );
   EXPECT_EQ( 1u, monIntf().intfs() );
   EXPECT_EQ( 1u, rig.root->intfMon( et1 )->monitoredIntf()->dependentUnits() );
   rig.advance( 5 );
   EXPECT_EQ( 1e9, rig.record( et1 )->curRates().inBitsRate );
   EXPECT_EQ( 1000000000u, rig.unit( "u1" ).aggTrafficRate().inRate );
   EXPECT_EQ( 1000000000u, rig.unit( "u1" ).aggTrafficRate().outRate );
}

TEST_F( UnitMonSmTest, passesOverGroupsOfAnotherTypeInSilence ) {
   busy( et1 );
   rig.groupMemberIs( "elsewhere", et1 );
   for ( const int type : { 0, 2, 3 } ) {
      const Maintenance::GroupKey other{ Maintenance::GroupType( type ), "g" };
      rig.intfGroupStatusDir->statusIs( other )->intfIs( et1 );
      rig.groupToUnitDir->mappingIs( other, "u1" );
      // One that has no status is not missed either.
      rig.groupToUnitDir->mappingIs( { Maintenance::GroupType( type ), "none" }, "u1" );
   }
   rig.unit( "u1" );
   rig.start();
   UnitMonSequence sequence( rig );
   rig.enter( "u1" );
   EXPECT_EQ(
      ( Lines{
         "UnitMonSm::handleInitialized for unit u1",
         "handleInitialized: for unit u1, num monitored intfs 0, drainedIntfs 0",
         "checkDrainedIntfsAndReport: unit u1 notifying completion.",
      } ),
      sequence.lines() );
   EXPECT_EQ( 0u, monIntf().intfs() );
}

TEST_F( UnitMonSmTest, passesOverAGroupThatHasNoStatus ) {
   rig.mappingIs( "missing", "u1" );
   busy( et1 );
   rig.unitIs( "u1", { et1 } );
   rig.start();
   UnitMonSequence sequence( rig );
   rig.enter( "u1" );
   const auto & lines = sequence.lines();
   ASSERT_LE( 4u, lines.size() );
   EXPECT_EQ( "UnitMonSm::handleInitialized for unit u1", lines[0] );
   EXPECT_EQ(
      "handleInitialized: Group status missing for group missing, unit u1. Ignoring the group.", lines[1] );
   EXPECT_EQ( "handleInitialized: processing group u1", lines[2] );
   EXPECT_EQ( "startIntfMon: unit u1 intf et1", lines[3] );
   EXPECT_TRUE( sequence.traced( "Group status missing", 4 ) );
   EXPECT_TRUE( monIntf().intf( et1 ) );
}

TEST_F( UnitMonSmTest, ofAUnitWithoutGroupsCompletesAtOnce ) {
   rig.unit( "u1" );
   rig.start();
   ASSERT_FALSE( rig.groupToUnitDir->unitToGroup( "u1" ) );
   UnitMonSequence sequence( rig );
   const CounterChanges changes( rig.counters() );
   rig.enter( "u1" );
   EXPECT_EQ(
      ( Lines{
         "UnitMonSm::handleInitialized for unit u1",
         "handleInitialized: for unit u1, num monitored intfs 0, drainedIntfs 0",
         "checkDrainedIntfsAndReport: unit u1 notifying completion.",
      } ),
      sequence.lines() );
   EXPECT_EQ( ( Lines{ "unitMonSm for unit u1" } ), sequence.logged() );
   EXPECT_TRUE( sequence.traced( "notifying completion.", 4 ) );
   EXPECT_TRUE( rig.enterComplete( "u1" ) );
   EXPECT_EQ( 1u, rig.enterClass.agentStatus->completes() );
   EXPECT_EQ( 0u, rig.exitClass.agentStatus->completes() );
   EXPECT_EQ( "numMaintEnter 1, numNotifyStageCompletion 1", changes.text() );
}

TEST_F( UnitMonSmTest, isInitializedAfterItsFirstCheck ) {
   struct Observer {
      struct VelCounters final : Vel::ReactorTo< Observer, DrainWatchSmDebugCounters > {
         using ReactorTo::ReactorTo;
         void onNumNoNotifyNoStageInput() override { sm()->atCheck = sm()->unitMon->initialized(); }
      };
      Vel::Ptr< UnitMonSm > unitMon;
      bool atCheck = true;
      Vel::Watch< VelCounters > counters;
   } observer;
   rig.start();
   observer.unitMon = Vel::make< UnitMonSm >(
      "u9", 1, rig.root.get(), Vel::make< UnitIntfInput >( "u9" ), Vel::make< UnitIntfInput >( "u9" ) );
   observer.counters.is( rig.root->counters(), &observer ).hasNotificationActiveIs( true );
   observer.unitMon->handleInitialized();
   EXPECT_FALSE( observer.atCheck );
   EXPECT_TRUE( observer.unitMon->initialized() );
}

TEST_F( UnitMonSmTest, isInitializedOnce ) {
   enterEmpty();
   UnitMonSequence sequence( rig );
   EXPECT_EQ( "!initialized()", Vel::failedAssertion( [&] { unitMon().handleInitialized(); } ) );
   EXPECT_EQ( Lines{}, sequence.lines() );
}

TEST_F( UnitMonSmTest, beginsWithEmptySetsOnly ) {
   rig.start();
   const auto empty = Vel::make< UnitIntfInput >( "u1" );
   const auto filled = Vel::make< UnitIntfInput >( "u1" );
   filled->intfIs( et1, true );
   const auto make = [&]( const Vel::Ptr< UnitIntfInput > & mon, const Vel::Ptr< UnitIntfInput > & drain ) {
      return Vel::failedAssertion( [&] { UnitMonSm::UnitMonSmIs( "u1", 1, rig.root.get(), mon, drain ); } );
   };
   EXPECT_EQ( "drainedIntf()->intfs() == 0", make( empty, filled ) );
   EXPECT_EQ( "", make( empty, empty ) );
   EXPECT_EQ( "monIntf()->intfs() == 0", make( filled, empty ) );
   UnitMonSequence sequence( rig );
   EXPECT_EQ( "monIntf()->intfs() == 0", make( filled, filled ) );
   EXPECT_EQ( ( Lines{ "UnitMonSm::handleInitialized for unit u1" } ), sequence.lines() );
   EXPECT_EQ( ( Lines{ "unitMonSm for unit u1" } ), sequence.logged() );
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
   enterEmpty();
   for ( const auto & intf :
         { Wire::IntfId( Wire::SubIntfId( "et1.5" ) ), Wire::IntfId( Wire::CpuIntfId( "cpu" ) ),
           Wire::IntfId::other( "lo" ) } ) {
      SCOPED_TRACE( Vel::text( intf ) );
      rig.linkIs( intf );
      UnitMonSequence sequence( rig );
      const CounterChanges changes( rig.counters() );
      // It has no profile either, which nobody asks for.
      unitMon().startIntfMon( intf );
      EXPECT_EQ(
         ( Lines{
            Vel::text( "startIntfMon: unit u1 intf ", intf ),
            Vel::text( "startIntfMon: intf ", intf, " - is not not supported" ),
            "numIntfMonIntfNotSupported",
         } ),
         sequence.lines() );
      EXPECT_TRUE( sequence.traced( "is not not supported", 4 ) );
      EXPECT_EQ( "numIntfMonIntfNotSupported 1", changes.text() );
      EXPECT_EQ( 0u, monIntf().intfs() );
      EXPECT_EQ( 0u, drained().intfs() );
      EXPECT_FALSE( rig.root->intfMon( intf ) );
   }
}

TEST_F( UnitMonSmTest, aSubInterfaceOfAGroupIsLeftAlone ) {
   const Wire::IntfId sub = Wire::SubIntfId( "et1.5" );
   rig.linkIs( sub );
   rig.unitIs( "u1", { sub } );
   rig.start();
   const CounterChanges changes( rig.counters() );
   rig.enter( "u1" );
   EXPECT_EQ( "numMaintEnter 1, numNotifyStageCompletion 1, numIntfMonIntfNotSupported 1", changes.text() );
   EXPECT_EQ( 0u, monIntf().intfs() );
   EXPECT_FALSE( rig.root->intfMon( sub ) );
   EXPECT_TRUE( rig.enterComplete( "u1" ) );
}

TEST_F( UnitMonSmTest, leavesAnInterfaceWithoutStatusAlone ) {
   enterEmpty();
   rig.groupMemberIs( "u1", et1 );
   rig.settle();
   UnitMonSequence sequence( rig );
   const CounterChanges changes( rig.counters() );
   unitMon().startIntfMon( et1 );
   EXPECT_EQ(
      ( Lines{
         "startIntfMon: unit u1 intf et1",
         "startIntfMon: Could not find intfStatus for intf et1. Ignoring this interface",
         "numIntfMonNoIntfStatus",
      } ),
      sequence.lines() );
   EXPECT_TRUE( sequence.traced( "Could not find intfStatus", 4 ) );
   EXPECT_EQ( "numIntfMonNoIntfStatus 1", changes.text() );
   EXPECT_EQ( 0u, monIntf().intfs() );
   EXPECT_EQ( 0u, rig.root->intfMons() );
}

TEST_F( UnitMonSmTest, leavesAnInterfaceThatIsNotUpAlone ) {
   enterEmpty();
   rig.groupMemberIs( "u1", et1 );
   for ( const auto status :
         { Interface::operDown, Interface::operUnknown, Interface::IntfOperStatus( 9 ) } ) {
      SCOPED_TRACE( Vel::text( status ) );
      rig.allIntfStatusDir->intfStatusIs( et1 )->operStatusIs( status );
      rig.settle();
      UnitMonSequence sequence( rig );
      const CounterChanges changes( rig.counters() );
      unitMon().startIntfMon( et1 );
      EXPECT_EQ(
         ( Lines{
            "startIntfMon: unit u1 intf et1",
            Vel::text( "startIntfMon: Intf et1 operStatus is ", status, ", ignoring as it is not operUp" ),
            "numIntfMonIntfOperNotUp",
         } ),
         sequence.lines() );
      EXPECT_TRUE( sequence.traced( "operStatus is", 4 ) );
      EXPECT_EQ( "numIntfMonIntfOperNotUp 1", changes.text() );
      EXPECT_EQ( 0u, monIntf().intfs() );
      EXPECT_EQ( 0u, drained().intfs() );
   }
}

TEST_F( UnitMonSmTest, whoseOnlyInterfaceIsDownCompletesAtOnce ) {
   rig.linkIs( et1, false );
   rig.unitIs( "u1", { et1 } );
   rig.start();
   const CounterChanges changes( rig.counters() );
   rig.enter( "u1" );
   EXPECT_TRUE( rig.enterComplete( "u1" ) );
   EXPECT_EQ( 0u, monIntf().intfs() );
   EXPECT_EQ( 0u, drained().intfs() );
   EXPECT_EQ( "numMaintEnter 1, numNotifyStageCompletion 1, numIntfMonIntfOperNotUp 1", changes.text() );
}

/// The configuration always selects a profile, and the start comes before a look at the link.
TEST_F( UnitMonSmTest, anInterfaceWithoutAProfileIsFatalEvenIfItIsDownOrUnknown ) {
   enterEmpty();
   UnitMonSequence sequence( rig );
   EXPECT_EQ( "intfProfile", Vel::failedAssertion( [&] { unitMon().startIntfMon( et1 ); } ) );
   rig.linkIs( et1, false );
   EXPECT_EQ( "intfProfile", Vel::failedAssertion( [&] { unitMon().startIntfMon( et1 ); } ) );
   EXPECT_EQ(
      ( Lines{ "startIntfMon: unit u1 intf et1", "startIntfMon: unit u1 intf et1" } ), sequence.lines() );
}

TEST_F( UnitMonSmTest, startsPassivelyOnlyInAUnitThatIsInMaintenance ) {
   for ( const unsigned state : { 0u, 1u, 2u, 3u, 4u, 5u, 6u } ) {
      SCOPED_TRACE( state );
      PluginRig world;
      world.linkIs( et1 );
      world.profileIs( "p", 100, 10, false, 0 );
      world.defaultProfileIs( "p" );
      world.unitIs( "u1", { et1 } );
      world.start();
      world.unit( "u1" ).stateIs( UnitState( state ) );
      UnitMonSequence sequence( world );
      sequence.watchUnit( "u1" );
      world.root->handleUnitMaintenanceEnter( "u1", 1 );
      const Lines begin{
         "UnitMonSm::handleInitialized for unit u1", "handleInitialized: processing group u1",
         "startIntfMon: unit u1 intf et1" };
      const Lines active{
         "record of et1",
         "sampler of et1",
         "monIntfEnterMaint + et1",
         "monitor of et1",
         "startIntfMon: created intf monitor for intf et1, initial state monIntfStateEnterMaint, profile p",
         "u1 monitored + et1",
         "handleInitialized: for unit u1, num monitored intfs 1, drainedIntfs 0" };
      const Lines passive{
         "numIntfMonInitialStatePassive",
         "record of et1",
         "sampler of et1",
         "monIntfUnderMaint + et1",
         "monitor of et1",
         "startIntfMon: created intf monitor for intf et1, initial state monIntfStateUnderMaint, profile p",
         "u1 drained + et1",
         "u1 monitored + et1",
         "handleInitialized: for unit u1, num monitored intfs 1, drainedIntfs 1",
         "checkDrainedIntfsAndReport: unit u1 notifying completion." };
      EXPECT_EQ( joined( { begin, state == 3 ? passive : active } ), sequence.lines() );
      EXPECT_EQ(
         state == 3 ? Maintenance::monIntfStateUnderMaint : Maintenance::monIntfStateEnterMaint,
         world.root->intfMon( et1 )->initialState() );
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
   busy( et1 );
   rig.unitIs( "u1", { et1 } );
   rig.start();
   UnitMonSequence sequence( rig );
   sequence.watchUnit( "u1" );
   rig.enter( "u1" );
   EXPECT_EQ(
      ( Lines{
         "UnitMonSm::handleInitialized for unit u1",
         "handleInitialized: processing group u1",
         "startIntfMon: unit u1 intf et1",
         "record of et1",
         "sampler of et1",
         "shut et1",
         "monIntfUnderMaint + et1",
         "monitor of et1",
         "startIntfMon: created intf monitor for intf et1, initial state monIntfStateEnterMaint, profile p",
         "u1 drained + et1",
         "u1 monitored + et1",
         "handleInitialized: for unit u1, num monitored intfs 1, drainedIntfs 1",
         "checkDrainedIntfsAndReport: unit u1 notifying completion.",
      } ),
      sequence.lines() );
   EXPECT_TRUE( rig.enterComplete( "u1" ) );
   EXPECT_EQ( 1u, reports() );
}

TEST_F( UnitMonSmTest, countsAnInterfaceThatHasDrainedForAnotherUnitAtOnce ) {
   enter( { "u1" }, { et1 } );
   rig.unitIs( "u2", { et1 } );
   rig.advance( 10 );
   ASSERT_TRUE( rig.enterComplete( "u1" ) );
   IntfMonSm * const intfMon = rig.root->intfMon( et1 );
   UnitMonSequence sequence( rig );
   sequence.watchSampler( et1 );
   sequence.watchUnit( "u2" );
   rig.enter( "u2" );
   EXPECT_EQ(
      ( Lines{
         "UnitMonSm::handleInitialized for unit u2",
         "handleInitialized: processing group u2",
         "startIntfMon: unit u2 intf et1",
         "u2 drained + et1",
         "dependentUnit + u2",
         "u2 monitored + et1",
         "handleInitialized: for unit u2, num monitored intfs 1, drainedIntfs 1",
         "checkDrainedIntfsAndReport: unit u2 notifying completion.",
      } ),
      sequence.lines() );
   EXPECT_EQ( intfMon, rig.root->intfMon( et1 ) );
   EXPECT_EQ( 2u, intfMon->monitoredIntf()->dependentUnits() );
   EXPECT_TRUE( rig.enterComplete( "u2" ) );
   EXPECT_EQ( 0u, rig.counters().numIntfMonInitialStatePassive() );
}

TEST_F( UnitMonSmTest, joinsTheMonitorOfAnotherUnitWithTheProfileThatAppliesNow ) {
   enterBusy( { "u1" }, { et1 } );
   rig.unitIs( "u2", { et1 } );
   // One that comes back under its name reaches the monitors that are there only with the next decision.
   rig.profileDel( "p" );
   auto * again = rig.profileIs( "p", 100, 10, false, 0 );
   IntfMonSm * const intfMon = rig.root->intfMon( et1 );
   ASSERT_NE( again, intfMon->intfProfile().get() );
   UnitMonSequence sequence( rig );
   sequence.watchMonitor( et1 );
   sequence.watchSampler( et1 );
   sequence.watchUnit( "u2" );
   rig.enter( "u2" );
   EXPECT_EQ(
      ( Lines{
         "UnitMonSm::handleInitialized for unit u2",
         "handleInitialized: processing group u2",
         "startIntfMon: unit u2 intf et1",
         "intfProfile p",
         "numIntfMonProfileChange",
         "dependentUnit + u2",
         "u2 monitored + et1",
         "handleInitialized: for unit u2, num monitored intfs 1, drainedIntfs 0",
      } ),
      sequence.lines() );
   EXPECT_EQ( intfMon, rig.root->intfMon( et1 ) );
   EXPECT_EQ( again, intfMon->intfProfile().get() );
   EXPECT_TRUE( intfMon->monitoredIntf()->dependentUnit( "u1" ) );
   EXPECT_FALSE( rig.enterComplete( "u2" ) );
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

// ---- mistakes of our own

TEST_F( UnitMonSmTest, thereIsAPlaceForSamplers ) {
   enterEmpty();
   busy( et1 );
   rig.groupMemberIs( "u1", et1 );
   rig.root->monIntfDirDel();
   EXPECT_EQ( "rootSm()->monIntfDir()", Vel::failedAssertion( [&] { unitMon().startIntfMon( et1 ); } ) );
   EXPECT_FALSE( rig.root->intfMon( et1 ) );
   EXPECT_EQ( 0u, monIntf().intfs() );
   rig.root->monIntfDirIs();
}

TEST_F( UnitMonSmTest, aMonitorHasASampler ) {
   enterBusy( { "u1" }, { et1 } );
   const WithoutSampler none( *rig.root->intfMon( et1 ) );
   EXPECT_EQ( "intfMonSm->monitoredIntf()", Vel::failedAssertion( [&] { unitMon().startIntfMon( et1 ); } ) );
}

} // namespace
} // namespace MaintenanceMode
