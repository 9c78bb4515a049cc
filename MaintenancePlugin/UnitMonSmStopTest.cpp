#include "MaintenancePlugin/UnitMonSmRigTest.h"

#include <map>

namespace MaintenanceMode {
namespace {

using Maintenance::monIntfStateStopped;
using Maintenance::monIntfStateUnderMaint;

class UnitMonSmStop : public UnitMonSmRig {
 protected:
   explicit UnitMonSmStop( PluginRig::ShutLinks shutLinks = PluginRig::ShutLinks::keepTheirStatus )
      : UnitMonSmRig( shutLinks, true, 1e9 ) {}
   /// As enter, and all interfaces have drained and been shut.
   void drain( std::initializer_list< const char * > units, std::initializer_list< Wire::IntfId > intfs ) {
      enter( units, intfs );
      rig.advance( 10 );
      for ( const char * unitName : units )
         rig.entered( unitName );
   }
};

// ---- an interface that no other unit holds

TEST_F( UnitMonSmStop, theLastUnitOfAnInterfaceReleasesEverythingOfIt ) {
   drain( { "u1" }, { et1 } );
   ASSERT_TRUE( rig.shut( et1 ) );
   rig.unit( "u1" ).intfsViolatingTrafficThresholdIs( et1, true );
   Vel::TraceCapture traces;
   monIntf().intfDel( et1 );
   EXPECT_FALSE( rig.root->intfMon( et1 ) );
   EXPECT_FALSE( rig.root->monIntfDir()->monitoredIntf( et1 ) );
   EXPECT_FALSE( rig.record( et1 ) );
   EXPECT_FALSE( rig.monIntfStatusDir->monIntfUnderMaint( et1 ) );
   EXPECT_FALSE( rig.shut( et1 ) );
   EXPECT_EQ( 0u, drained().intfs() );
   EXPECT_EQ( 0u, rig.unit( "u1" ).intfsViolatingTrafficThresholds() );
   EXPECT_TRUE( traces.has( "stopIntfMon: unit u1 intf et1", 4 ) );
   EXPECT_TRUE( traces.has( "stopIntfMon: deleting intf monitor for intf et1", 4 ) );
   EXPECT_TRUE( traces.has(
      "stopIntfMon: Un-applying the current profile before the intfMon is deleted. intfId:et1 unitName:u1",
      4 ) );
   EXPECT_EQ( 1u, traces.count( "unApplyCurrentProfile: unit:u1intfId:et1", 4 ) );
}

/// Whoever looks at the record sees that the monitor has stopped before the record goes with the sampler, which the
/// monitor holds longer than the directory does.
TEST_F( UnitMonSmStop, theRecordSaysStoppedAfterTheSamplerHasLeftItsDirectory ) {
   struct Observer {
      struct VelRecord final : Vel::ReactorTo< Observer, Maintenance::MonIntfStatus > {
         using ReactorTo::ReactorTo;
         void onState() override {
            const auto & intf = entity()->intfId();
            sm()->log += Vel::text(
               entity()->state(), sm()->rig.root->monIntfDir()->monitoredIntf( intf ) ? ", sampler" : "",
               sm()->rig.root->intfMon( intf ) ? ", monitor" : "",
               sm()->rig.record( intf ) ? ", record" : "" );
         }
      };
      PluginRig & rig;
      Vel::String log;
      Vel::Watch< VelRecord > record;
   } observer{ rig, {}, {} };
   drain( { "u1" }, { et1 } );
   observer.record.is( rig.record( et1 ), &observer ).hasNotificationActiveIs( true );
   monIntf().intfDel( et1 );
   EXPECT_EQ( "monIntfStateStopped, monitor, record", observer.log );
   EXPECT_FALSE( rig.record( et1 ) );
}

TEST_F( UnitMonSmStop, theLastUnitToLeaveAppliesTheProfileBeforeItWithdrawsIt ) {
   drain( { "u1" }, { et1 } );
   rig.profileDel( "p" );
   rig.profileIs( "p", 100, 10, false, 1e9 );
   Vel::TraceCapture traces;
   monIntf().intfDel( et1 );
   EXPECT_EQ( 1u, rig.counters().numIntfMonProfileChange() );
   EXPECT_TRUE( traces.has( "doMaintenanceShutdown: intf et1 bringing it out of maint-down state" ) );
   EXPECT_FALSE( rig.shut( et1 ) );
   EXPECT_FALSE( rig.root->intfMon( et1 ) );
}

TEST_F( UnitMonSmStop, anInterfaceLeavesViolationsThenDrainedThenItsSampler ) {
   struct Observer {
      struct VelUnit final : Vel::ReactorTo< Observer, Maintenance::Unit::Status > {
         using ReactorTo::ReactorTo;
         void onIntfsViolatingTrafficThreshold( const Wire::IntfId & ) override {
            sm()->log += "violations ";
         }
      };
      struct VelDrained final : Vel::ReactorTo< Observer, UnitIntfInput > {
         using ReactorTo::ReactorTo;
         void onIntf( const Wire::IntfId & ) override { sm()->log += "drained "; }
      };
      struct VelSampler final : Vel::ReactorTo< Observer, MonitoredIntf > {
         using ReactorTo::ReactorTo;
         void onDependentUnit( const Vel::String & ) override { sm()->log += "dependent "; }
      };
      Vel::String log;
      Vel::Watch< VelUnit > unit;
      Vel::Watch< VelDrained > drained;
      Vel::Watch< VelSampler > sampler;
   } observer;
   drain( { "u1", "u2" }, { et1 } );
   rig.unit( "u1" ).intfsViolatingTrafficThresholdIs( et1, true );
   observer.unit.is( &rig.unit( "u1" ), &observer ).hasNotificationActiveIs( true );
   observer.drained.is( &drained(), &observer ).hasNotificationActiveIs( true );
   observer.sampler.is( rig.root->monIntfDir()->monitoredIntf( et1 ), &observer )
      .hasNotificationActiveIs( true );
   monIntf().intfDel( et1 );
   EXPECT_EQ( "violations drained dependent ", observer.log );
}

TEST_F( UnitMonSmStop, anInterfaceThatIsDownIsUnappliedTwice ) {
   enter( { "u1" }, { et1 } );
   rig.allIntfStatusDir->intfStatus( et1 )->operStatusIs( Interface::operDown );
   Vel::TraceCapture traces;
   unitMon().stopIntfMon( et1 );
   EXPECT_EQ( 2u, traces.count( "unApplyCurrentProfile: unit:u1intfId:et1" ) );
   EXPECT_FALSE( rig.root->intfMon( et1 ) );
}

TEST_F( UnitMonSmStop, aShutdownThatTheProfileDoesNotWantIsNotRemoved ) {
   p->shutdownIs( false );
   enter( { "u1" }, { et1 } );
   rig.cause->intfStatusIs( et1, 17 );
   monIntf().intfDel( et1 );
   EXPECT_TRUE( rig.shut( et1 ) );
   EXPECT_FALSE( rig.root->intfMon( et1 ) );
}

TEST_F( UnitMonSmStop, anInterfaceWithoutAMonitorOnlyLeavesTheViolations ) {
   enter( { "u1" }, { et1 } );
   drained().intfIs( et2, true );
   rig.unit( "u1" ).intfsViolatingTrafficThresholdIs( et2, true );
   FastLog::Capture log;
   unitMon().stopIntfMon( et2 );
   EXPECT_TRUE( log.has( "could not find intfMonSm for intf et2" ) );
   EXPECT_EQ( 0u, rig.unit( "u1" ).intfsViolatingTrafficThresholds() );
   EXPECT_TRUE( drained().intf( et2 ) );
   drained().intfDel( et2 );
}

TEST_F( UnitMonSmStop, leavesOnlyTheUnitsOwnViolations ) {
   enter( { "u1", "u2" }, { et1, et2 } );
   for ( const char * unitName : { "u1", "u2" } )
      for ( const auto & intf : { et1, et2 } )
         rig.unit( unitName ).intfsViolatingTrafficThresholdIs( intf, true );
   monIntf().intfDel( et1 );
   EXPECT_FALSE( rig.unit( "u1" ).intfsViolatingTrafficThreshold( et1 ) );
   EXPECT_TRUE( rig.unit( "u1" ).intfsViolatingTrafficThreshold( et2 ) );
   EXPECT_TRUE( rig.unit( "u2" ).intfsViolatingTrafficThreshold( et1 ) );
}

TEST_F( UnitMonSmStop, aUnitWithoutStatusStopsItsInterfacesAllTheSame ) {
   enter( { "u1" }, { et1 } );
   rig.root->unitStatusDirDel();
   monIntf().intfDel( et1 );
   EXPECT_FALSE( rig.root->intfMon( et1 ) );
}

// ---- an interface that another unit holds

TEST_F( UnitMonSmStop, theFirstUnitToLeaveOnlyAppliesTheProfileThatIsLeft ) {
   drain( { "u1", "u2" }, { et1 } );
   IntfMonSm * const intfMon = rig.root->intfMon( et1 );
   // One that comes back under its name reaches the monitors that are there only with the next decision.
   rig.profileDel( "p" );
   auto * again = rig.profileIs( "p", 100, 10, true, 1e9 );
   rig.advance( 1 );
   Vel::TraceCapture traces;
   monIntf( "u2" ).intfDel( et1 );
   EXPECT_EQ( intfMon, rig.root->intfMon( et1 ) );
   EXPECT_EQ( again, intfMon->intfProfile().get() );
   EXPECT_EQ( monIntfStateUnderMaint, intfMon->state() );
   EXPECT_TRUE( intfMon->monitoredIntf()->dependentUnit( "u1" ) );
   EXPECT_FALSE( intfMon->monitoredIntf()->dependentUnit( "u2" ) );
   EXPECT_FALSE( drained( "u2" ).intf( et1 ) );
   EXPECT_TRUE( drained( "u1" ).intf( et1 ) );
   ASSERT_TRUE( rig.shut( et1 ) );
   EXPECT_EQ( rig.now(), *rig.cause->intfStatus( et1 ) );
   EXPECT_TRUE( rig.record( et1 ) );
   EXPECT_FALSE( traces.has( "Un-applying" ) );
   monIntf( "u1" ).intfDel( et1 );
   EXPECT_FALSE( rig.root->intfMon( et1 ) );
   EXPECT_FALSE( rig.record( et1 ) );
   EXPECT_FALSE( rig.shut( et1 ) );
}

TEST_F( UnitMonSmStop, anInterfaceThatHasNoProfileOrIsNotUpIsStoppedForTheOtherUnitsToo ) {
   for ( const char * what : { "down", "without status", "without profile" } ) {
      SCOPED_TRACE( what );
      PluginRig world;
      world.profileIs( "p", 100, 10, true, 1e9 );
      world.defaultProfileIs( "p" );
      world.linkIs( et1 );
      for ( const char * unitName : { "u1", "u2" } )
         world.unitIs( unitName, { et1 } );
      world.start();
      for ( const char * unitName : { "u1", "u2" } )
         world.enter( unitName );
      world.advance( 10 );
      ASSERT_TRUE( world.shut( et1 ) );
      // The membership has not dealt with it yet when the unit stops the interface.
      if ( what == Vel::String( "down" ) )
         world.allIntfStatusDir->intfStatus( et1 )->operStatusIs( Interface::operDown );
      else if ( what == Vel::String( "without status" ) )
         world.allIntfStatusDir->intfStatusDel( et1 );
      else
         world.profileDel( "p" );
      IntfMonSm * const intfMon = world.root->intfMon( et1 );
      ASSERT_TRUE( intfMon );
      Vel::TraceCapture traces;
      world.root->unitMon( "u2" )->stopIntfMon( et1 );
      EXPECT_EQ( intfMon, world.root->intfMon( et1 ) );
      EXPECT_EQ( monIntfStateStopped, intfMon->state() );
      EXPECT_FALSE( world.shut( et1 ) );
      EXPECT_TRUE( intfMon->monitoredIntf()->dependentUnit( "u1" ) );
      EXPECT_EQ(
         1u,
         traces.count(
            "stopIntfMon: Un-applying the current profile because intfProfile was Null or  intf was down. "
            "IntfId:et1 unit:u2",
            4 ) );
      EXPECT_TRUE( traces.has( "unApplyCurrentProfile: unit:u2intfId:et1" ) );
      EXPECT_FALSE( traces.has( "deleting intf monitor" ) );
      // The sets of interfaces are left as they are.
      EXPECT_TRUE( world.monIntfStatusDir->monIntfUnderMaint( et1 ) );
   }
}

// ---- withdrawing a profile

TEST_F( UnitMonSmStop, withdrawingAProfileStopsTheMonitorAndUndoesItsShutdown ) {
   struct Case {
      const char * what;
      bool profile, shutdown, wasShut, isShut;
   };
   enter( { "u1" }, { et1, et2 } );
   IntfMonSm * const intfMon = rig.root->intfMon( et1 );
   const auto held = intfMon->intfProfile();
   for ( const Case & c : {
            Case{ "shut by a profile that shuts", true, true, true, false },
            Case{ "not shut", true, true, false, false },
            Case{ "shut, the profile does not shut", true, false, true, true },
            Case{ "shut, there is no profile", false, true, true, true },
         } ) {
      SCOPED_TRACE( c.what );
      p->shutdownIs( c.shutdown );
      intfMon->intfProfileIs( c.profile ? held : Vel::Ptr< const IntfMaintenanceProfile::Status >() );
      intfMon->stateIs( Maintenance::monIntfStateEnterMaint );
      rig.cause->intfStatusDel( et1 );
      if ( c.wasShut )
         rig.cause->intfStatusIs( et1, 17 );
      rig.cause->intfStatusIs( et2, 17 );
      Vel::TraceCapture traces;
      UnitMonSm::unApplyCurrentProfile( "u1", et1, intfMon, rig.root.get() );
      EXPECT_TRUE( traces.has( "unApplyCurrentProfile: unit:u1intfId:et1", 4 ) );
      EXPECT_EQ( monIntfStateStopped, intfMon->state() );
      EXPECT_EQ( c.isShut, rig.shut( et1 ) );
      EXPECT_TRUE( rig.shut( et2 ) );
   }
   intfMon->intfProfileIs( held );
}

TEST_F( UnitMonSmStop, withdrawingAProfileNeedsAMonitor ) {
   rig.start();
   EXPECT_EQ( "intfMonSm", Vel::failedAssertion( [&] {
                 UnitMonSm::unApplyCurrentProfile( "u1", et1, nullptr, rig.root.get() );
              } ) );
}

// ---- the end

TEST_F( UnitMonSmStop, preparesToDieByStoppingItsInterfacesAndReportingTheExit ) {
   drain( { "u1" }, { et1, et2 } );
   Vel::TraceCapture traces;
   rig.exit( "u1" );
   EXPECT_EQ( 1u, traces.count( "prepareToDie: unit u1, genId 2", 4 ) );
   EXPECT_TRUE( traces.has( "stopIntfMon: unit u1 intf et1" ) );
   EXPECT_TRUE( traces.has( "stopIntfMon: unit u1 intf et2" ) );
   EXPECT_EQ( 0u, rig.root->intfMons() );
   EXPECT_FALSE( rig.shut( et1 ) || rig.shut( et2 ) );
   EXPECT_TRUE( rig.exitComplete( "u1" ) );
   EXPECT_FALSE( rig.root->unitMonIntfInput()->unitIntfInput( "u1" ) );
   EXPECT_FALSE( rig.root->unitDrainedIntf()->unitIntfInput( "u1" ) );
}

TEST_F( UnitMonSmStop, reportsTheExitOnceItsSetsAreEmptyAndBeforeTheyGo ) {
   struct Observer {
      struct VelStatus final : Vel::ReactorTo< Observer, Stage::AgentStatus > {
         using ReactorTo::ReactorTo;
         void onComplete( const Stage::AgentStatusKey & ) override {
            const DrainWatchSm & root = *sm()->rig.root;
            const auto * monitored = root.unitMonIntfInput()->unitIntfInput( "u1" );
            const auto * drained = root.unitDrainedIntf()->unitIntfInput( "u1" );
            sm()->emptyAtReport = monitored && !monitored->intfs() && drained && !drained->intfs();
         }
      };
      PluginRig & rig;
      bool emptyAtReport = false;
      Vel::Watch< VelStatus > status;
   } observer{ rig, false, {} };
   drain( { "u1" }, { et1 } );
   observer.status.is( rig.exitClass.agentStatus, &observer ).hasNotificationActiveIs( true );
   rig.exit( "u1" );
   EXPECT_TRUE( observer.emptyAtReport );
}

TEST_F( UnitMonSmStop, leavesTheInterfacesOfOtherUnitsAlone ) {
   drain( { "u1", "u2" }, { et1, et2 } );
   rig.exit( "u1" );
   EXPECT_EQ( 2u, monIntf( "u2" ).intfs() );
   EXPECT_EQ( 2u, drained( "u2" ).intfs() );
   EXPECT_TRUE( rig.shut( et1 ) && rig.shut( et2 ) );
   EXPECT_EQ( 2u, rig.root->intfMons() );
}

/// What has drained without ever being monitored would stay behind: that must not go unseen.
TEST_F( UnitMonSmStop, aDrainedInterfaceThatStaysBehindIsFatal ) {
   enter( { "u1" }, { et1 } );
   const Vel::Ptr< UnitIntfInput > input( &drained() );
   input->intfIs( et2, true );
   EXPECT_EQ(
      "rootSm()->unitDrainedIntf()->unitIntfInput( unitName() )->intfs() == 0",
      Vel::failedAssertion( [&] { rig.exit( "u1" ); } ) );
   input->intfDel( et2 );
}

TEST_F( UnitMonSmStop, theSetsThatTheRootHasMustBeThereAndEmpty ) {
   rig.start();
   const char * const monitoredText =
      "rootSm()->unitMonIntfInput()->unitIntfInput( unitName() )->intfs() == 0";
   const char * const drainedText = "rootSm()->unitDrainedIntf()->unitIntfInput( unitName() )->intfs() == 0";
   const auto unitMonSm = UnitMonSm::UnitMonSmIs(
      "u9", 1, rig.root.get(), Vel::make< UnitIntfInput >( "u9" ), Vel::make< UnitIntfInput >( "u9" ) );
   const auto die = [&] { return Vel::failedAssertion( [&] { unitMonSm->prepareToDie(); } ); };
   EXPECT_EQ( monitoredText, die() );
   auto * monitored = rig.root->unitMonIntfInput()->unitIntfInputIs( "u9" );
   EXPECT_EQ( drainedText, die() );
   rig.root->unitDrainedIntf()->unitIntfInputIs( "u9" );
   monitored->intfIs( et1, true );
   EXPECT_EQ( monitoredText, die() );
   monitored->intfDel( et1 );
   EXPECT_EQ( "", die() );
}

// ---- links whose status falls when they are shut

class UnitMonSmStopShutLinks : public UnitMonSmStop {
 protected:
   UnitMonSmStopShutLinks() : UnitMonSmStop( PluginRig::ShutLinks::goDown ) {}
};

/// A unit that is not in maintenance any more gives the link back to all of them, and nothing watches it then. The
/// agent gives the plug-in the status apart from its own shutdown, which keeps this out of reach.
TEST_F( UnitMonSmStopShutLinks, theFirstUnitToLeaveStopsASharedInterfaceForAll ) {
   drain( { "u1", "u2" }, { et1 } );
   rig.settle();
   ASSERT_EQ( Interface::operDown, rig.allIntfStatusDir->intfStatus( et1 )->operStatus() );
   rig.exit( "u2" );
   ASSERT_TRUE( rig.root->intfMon( et1 ) );
   EXPECT_EQ( monIntfStateStopped, rig.root->intfMon( et1 )->state() );
   EXPECT_FALSE( rig.shut( et1 ) );
   rig.settle();
   EXPECT_EQ( Interface::operUp, rig.allIntfStatusDir->intfStatus( et1 )->operStatus() );
   EXPECT_TRUE( monIntf( "u1" ).intf( et1 ) );
}

TEST_F( UnitMonSmStopShutLinks, theExitOfAMemberThatWasNeverMonitoredStopsItForTheOther ) {
   drain( { "u1" }, { et1 } );
   rig.settle();
   rig.unitIs( "u2", { et1 } );
   rig.settle();
   rig.enter( "u2" );
   EXPECT_EQ( 0u, monIntf( "u2" ).intfs() );
   rig.root->startIntfMonInUnits( et1 );
   ASSERT_TRUE( monIntf( "u2" ).intf( et1 ) );
   EXPECT_FALSE( rig.root->intfMon( et1 )->monitoredIntf()->dependentUnit( "u2" ) );
   EXPECT_TRUE( rig.shut( et1 ) );
   rig.exit( "u2" );
   EXPECT_EQ( monIntfStateStopped, rig.root->intfMon( et1 )->state() );
   EXPECT_FALSE( rig.shut( et1 ) );
   EXPECT_TRUE( rig.root->intfMon( et1 )->monitoredIntf()->dependentUnit( "u1" ) );
}

} // namespace
} // namespace MaintenanceMode
