#include "MaintenancePlugin/UnitMonSmRigTest.h"

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
   rig.advance( 1 );
   ASSERT_TRUE( rig.shut( et1 ) );
   rig.unit( "u1" ).intfsViolatingTrafficThresholdIs( et1, true );
   UnitMonSequence sequence( rig );
   sequence.watchUnit( "u1" );
   sequence.watchRecord( et1 );
   monIntf().intfDel( et1 );
   // Whoever looks at the record sees that the monitor has stopped before the record goes with the sampler, which the
   // monitor holds longer than the directory does.
   EXPECT_EQ(
      ( Lines{
         "handleMonIntf: unit u1, stopping intf mon for intf et1",
         "stopIntfMon: unit u1 intf et1",
         "u1 violating - et1",
         "handleDrainedIntf: unit u1, drainedIntf( et1 ) - deleted, num drained intfs 0, num monitored intfs "
         "0",
         "u1 drained - et1",
         "stopIntfMon: deleting intf monitor for intf et1",
         "sampler of et1 gone",
         "stopIntfMon: Un-applying the current profile before the intfMon is deleted. intfId:et1 unitName:u1",
         "unApplyCurrentProfile: unit:u1intfId:et1",
         "state monIntfStateStopped",
         "stateTime",
         "brought back et1",
         "monitor of et1 gone",
         "record of et1 gone",
         "monIntfUnderMaint - et1",
         "checkDrainedIntfsAndReport: unit u1 notifying completion.",
         "u1 monitored - et1",
      } ),
      sequence.lines() );
   EXPECT_TRUE( sequence.traced( "stopIntfMon: unit u1 intf et1", 4 ) );
   EXPECT_TRUE( sequence.traced( "deleting intf monitor", 4 ) );
   EXPECT_TRUE( sequence.traced( "before the intfMon is deleted", 4 ) );
   EXPECT_TRUE( sequence.traced( "unApplyCurrentProfile", 4 ) );
   EXPECT_FALSE( rig.root->intfMon( et1 ) );
   EXPECT_FALSE( rig.record( et1 ) );
   EXPECT_FALSE( rig.shut( et1 ) );
   EXPECT_EQ( 0u, rig.unit( "u1" ).intfsViolatingTrafficThresholds() );
}

TEST_F( UnitMonSmStop, theLastUnitToLeaveAppliesTheProfileBeforeItWithdrawsIt ) {
   drain( { "u1" }, { et1 } );
   rig.profileDel( "p" );
   rig.profileIs( "p", 100, 10, false, 1e9 );
   UnitMonSequence sequence( rig );
   unitMon().stopIntfMon( et1 );
   EXPECT_EQ(
      ( Lines{
         "stopIntfMon: unit u1 intf et1",
         "handleDrainedIntf: unit u1, drainedIntf( et1 ) - deleted, num drained intfs 0, num monitored intfs "
         "1",
         "numIntfMonProfileChange",
         "brought back et1",
         "stopIntfMon: deleting intf monitor for intf et1",
         "sampler of et1 gone",
         "stopIntfMon: Un-applying the current profile before the intfMon is deleted. intfId:et1 unitName:u1",
         "unApplyCurrentProfile: unit:u1intfId:et1",
         "monitor of et1 gone",
         "record of et1 gone",
         "monIntfUnderMaint - et1",
      } ),
      sequence.lines() );
   EXPECT_EQ( 1u, rig.counters().numIntfMonProfileChange() );
}

TEST_F( UnitMonSmStop, anInterfaceThatIsDownIsUnappliedTwice ) {
   enter( { "u1" }, { et1 } );
   rig.advance( 1 );
   rig.allIntfStatusDir->intfStatus( et1 )->operStatusIs( Interface::operDown );
   UnitMonSequence sequence( rig );
   sequence.watchRecord( et1 );
   unitMon().stopIntfMon( et1 );
   EXPECT_EQ(
      ( Lines{
         "stopIntfMon: unit u1 intf et1",
         "stopIntfMon: Un-applying the current profile because intfProfile was Null or  intf was down. "
         "IntfId:et1 unit:u1",
         "unApplyCurrentProfile: unit:u1intfId:et1",
         "state monIntfStateStopped",
         "stateTime",
         "stopIntfMon: deleting intf monitor for intf et1",
         "sampler of et1 gone",
         "stopIntfMon: Un-applying the current profile before the intfMon is deleted. intfId:et1 unitName:u1",
         "unApplyCurrentProfile: unit:u1intfId:et1",
         "monitor of et1 gone",
         "record of et1 gone",
         "monIntfEnterMaint - et1",
      } ),
      sequence.lines() );
   EXPECT_TRUE( sequence.traced( "because intfProfile was Null or  intf was down", 4 ) );
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
   rig.cause->intfStatusIs( et2, 17 );
   UnitMonSequence sequence( rig );
   sequence.watchUnit( "u1" );
   unitMon().stopIntfMon( et2 );
   EXPECT_EQ( ( Lines{ "stopIntfMon: unit u1 intf et2", "u1 violating - et2" } ), sequence.lines() );
   EXPECT_EQ( ( Lines{ "could not find intfMonSm for intf et2" } ), sequence.logged() );
   EXPECT_TRUE( drained().intf( et2 ) );
   EXPECT_TRUE( rig.shut( et2 ) );
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
   rig.unit( "u2" ).intfsViolatingTrafficThresholdIs( et1, true );
   // One that comes back under its name reaches the monitors that are there only with the next decision.
   rig.profileDel( "p" );
   auto * again = rig.profileIs( "p", 100, 10, true, 1e9 );
   rig.advance( 1 );
   UnitMonSequence sequence( rig );
   sequence.watchUnit( "u2" );
   sequence.watchSampler( et1 );
   sequence.watchRecord( et1 );
   unitMon( "u2" ).stopIntfMon( et1 );
   EXPECT_EQ(
      ( Lines{
         "stopIntfMon: unit u2 intf et1",
         "u2 violating - et1",
         "handleDrainedIntf: unit u2, drainedIntf( et1 ) - deleted, num drained intfs 0, num monitored intfs "
         "1",
         "u2 drained - et1",
         "dependentUnit - u2",
         "numIntfMonProfileChange",
         "shut et1",
      } ),
      sequence.lines() );
   EXPECT_EQ( intfMon, rig.root->intfMon( et1 ) );
   EXPECT_EQ( again, intfMon->intfProfile().get() );
   EXPECT_EQ( monIntfStateUnderMaint, intfMon->state() );
   EXPECT_TRUE( intfMon->monitoredIntf()->dependentUnit( "u1" ) );
   EXPECT_TRUE( drained( "u1" ).intf( et1 ) );
   EXPECT_EQ( rig.now(), *rig.cause->intfStatus( et1 ) );
   monIntf( "u2" ).intfDel( et1 );
}

TEST_F( UnitMonSmStop, theSecondUnitToLeaveReleasesASharedInterface ) {
   drain( { "u1", "u2" }, { et1 } );
   monIntf( "u2" ).intfDel( et1 );
   ASSERT_TRUE( rig.root->intfMon( et1 ) );
   ASSERT_TRUE( rig.record( et1 ) );
   ASSERT_TRUE( rig.shut( et1 ) );
   monIntf( "u1" ).intfDel( et1 );
   EXPECT_FALSE( rig.root->intfMon( et1 ) );
   EXPECT_FALSE( rig.record( et1 ) );
   EXPECT_FALSE( rig.shut( et1 ) );
}

TEST_F( UnitMonSmStop, anInterfaceThatHasNoProfileOrIsNotUpIsStoppedForTheOtherUnitsToo ) {
   for ( const char * what : { "down", "unknown", "another value", "without status", "without profile" } ) {
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
      world.advance( 11 );
      ASSERT_TRUE( world.shut( et1 ) );
      // The membership has not dealt with it yet when the unit stops the interface.
      if ( what == Vel::String( "down" ) )
         world.allIntfStatusDir->intfStatus( et1 )->operStatusIs( Interface::operDown );
      else if ( what == Vel::String( "unknown" ) )
         world.allIntfStatusDir->intfStatus( et1 )->operStatusIs( Interface::operUnknown );
      else if ( what == Vel::String( "another value" ) )
         world.allIntfStatusDir->intfStatus( et1 )->operStatusIs( Interface::IntfOperStatus( 9 ) );
      else if ( what == Vel::String( "without status" ) )
         world.allIntfStatusDir->intfStatusDel( et1 );
      else
         world.profileDel( "p" );
      IntfMonSm * const intfMon = world.root->intfMon( et1 );
      ASSERT_TRUE( intfMon );
      UnitMonSequence sequence( world );
      sequence.watchSampler( et1 );
      sequence.watchRecord( et1 );
      world.root->unitMon( "u2" )->stopIntfMon( et1 );
      EXPECT_EQ(
         ( Lines{
            "stopIntfMon: unit u2 intf et1",
            "handleDrainedIntf: unit u2, drainedIntf( et1 ) - deleted, num drained intfs 0, num monitored "
            "intfs 1",
            "dependentUnit - u2",
            "stopIntfMon: Un-applying the current profile because intfProfile was Null or  intf was down. "
            "IntfId:et1 unit:u2",
            "unApplyCurrentProfile: unit:u2intfId:et1",
            "state monIntfStateStopped",
            "stateTime",
            "brought back et1",
         } ),
         sequence.lines() );
      EXPECT_EQ( intfMon, world.root->intfMon( et1 ) );
      EXPECT_EQ( monIntfStateStopped, intfMon->state() );
      EXPECT_TRUE( intfMon->monitoredIntf()->dependentUnit( "u1" ) );
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
      UnitMonSequence sequence( rig );
      sequence.watchRecord( et1 );
      UnitMonSm::unApplyCurrentProfile( "u1", et1, intfMon, rig.root.get() );
      Lines expected{ "unApplyCurrentProfile: unit:u1intfId:et1", "state monIntfStateStopped" };
      if ( c.wasShut && !c.isShut )
         expected.push_back( "brought back et1" );
      EXPECT_EQ( expected, sequence.lines() );
      EXPECT_EQ( Lines{}, sequence.logged() );
      EXPECT_EQ( monIntfStateStopped, intfMon->state() );
      EXPECT_EQ( c.isShut, rig.shut( et1 ) );
      EXPECT_TRUE( rig.shut( et2 ) );
   }
   intfMon->intfProfileIs( held );
}

TEST_F( UnitMonSmStop, anInterfaceIsNotSampledAfterItsProfileIsWithdrawn ) {
   enter( { "u1" }, { et1 } );
   rig.advance( 4 );
   UnitMonSm::unApplyCurrentProfile( "u1", et1, rig.root->intfMon( et1 ), rig.root.get() );
   EXPECT_EQ( Cog::Timer::never, rig.root->timerWheel()->dueTime() );
   rig.advance( 30 );
   EXPECT_EQ( 0u, rig.record( et1 )->totalSamples() );
}

TEST_F( UnitMonSmStop, withdrawingAProfileThatShutsNeedsNoPlaceForShutdowns ) {
   p->shutdownIs( true );
   rig.cause = nullptr;
   enter( { "u1" }, { et1 } );
   IntfMonSm * const intfMon = rig.root->intfMon( et1 );
   ASSERT_TRUE( intfMon );
   UnitMonSm::unApplyCurrentProfile( "u1", et1, intfMon, rig.root.get() );
   EXPECT_EQ( monIntfStateStopped, intfMon->state() );
   rig.root = nullptr;
}

TEST_F( UnitMonSmStop, withdrawingAProfileNeedsAMonitor ) {
   rig.start();
   UnitMonSequence sequence( rig );
   EXPECT_EQ( "intfMonSm", Vel::failedAssertion( [&] {
                 UnitMonSm::unApplyCurrentProfile( "u1", et1, nullptr, rig.root.get() );
              } ) );
   EXPECT_EQ( ( Lines{ "unApplyCurrentProfile: unit:u1intfId:et1" } ), sequence.lines() );
}

// ---- mistakes of our own

TEST_F( UnitMonSmStop, thereIsAPlaceThatTheSamplerLeaves ) {
   enter( { "u1" }, { et1 } );
   rig.root->monIntfDirDel();
   EXPECT_EQ( "rootSm()->monIntfDir()", Vel::failedAssertion( [&] { unitMon().stopIntfMon( et1 ); } ) );
   EXPECT_TRUE( rig.root->intfMon( et1 ) );
   rig.root->monIntfDirIs();
}

TEST_F( UnitMonSmStop, aMonitorThatIsStoppedHasASampler ) {
   enter( { "u1" }, { et1 } );
   const WithoutSampler none( *rig.root->intfMon( et1 ) );
   EXPECT_EQ( "intfMonSm->monitoredIntf()", Vel::failedAssertion( [&] { unitMon().stopIntfMon( et1 ); } ) );
}

// ---- the end

/// The enter has been retired by then, so what each removal that leaves equal counts reports is refused.
TEST_F( UnitMonSmStop, preparesToDieByStoppingItsInterfacesOneByOneAndReportingTheExit ) {
   drain( { "u1" }, { et1, et2, et3 } );
   rig.unit( "u1" ).intfsViolatingTrafficThresholdIs( et2, true );
   UnitMonSequence sequence( rig );
   const CounterChanges changes( rig.counters() );
   rig.exit( "u1" );
   Lines expected{ "prepareToDie: unit u1, genId 2" };
   for ( const auto & [intf, left] : { std::pair{ et1, 2 }, std::pair{ et2, 1 }, std::pair{ et3, 0 } } )
      for ( const auto & line : {
               Vel::text( "handleMonIntf: unit u1, stopping intf mon for intf ", intf ),
               Vel::text( "stopIntfMon: unit u1 intf ", intf ),
               Vel::text(
                  "handleDrainedIntf: unit u1, drainedIntf( ", intf, " ) - deleted, num drained intfs ", left,
                  ", num monitored intfs ", left ),
               Vel::text( "stopIntfMon: deleting intf monitor for intf ", intf ),
               Vel::text( "sampler of ", intf, " gone" ),
               Vel::text(
                  "stopIntfMon: Un-applying the current profile before the intfMon is deleted. intfId:", intf,
                  " unitName:u1" ),
               Vel::text( "unApplyCurrentProfile: unit:u1intfId:", intf ),
               Vel::text( "brought back ", intf ),
               Vel::text( "monitor of ", intf, " gone" ),
               Vel::text( "record of ", intf, " gone" ),
               Vel::text( "monIntfUnderMaint - ", intf ),
               Vel::String( "checkDrainedIntfsAndReport: unit u1 notifying completion." ),
            } )
         expected.push_back( line );
   EXPECT_EQ( expected, sequence.lines() );
   EXPECT_TRUE( sequence.traced( "prepareToDie", 4 ) );
   EXPECT_EQ( Lines{}, sequence.logged() );
   EXPECT_EQ( "numMaintExit 1, numNotifyStageCompletion 1, numNoNotifyNoStageInput 3", changes.text() );
   EXPECT_EQ( 0u, rig.root->intfMons() );
   EXPECT_EQ( 0u, rig.unit( "u1" ).intfsViolatingTrafficThresholds() );
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
