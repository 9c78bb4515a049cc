#include "MaintenancePlugin/TrackerTest.h"

namespace MaintenanceMode {
namespace {

// ---- one interface

/// Units in maintenance, with a profile for their interfaces.
struct BacklogDecision : TrackerTest {
   BacklogDecision() {
      rig.profileIs( "p", 100, 10, false, 0 );
      rig.profileIs( "q", 200, 20, false, 0 );
      rig.defaultProfileIs( "p" );
   }
   Vel::U32 starts() { return rig.counters().numStartIntfMonInUnits(); }
   Vel::U32 stops() { return rig.counters().numStopIntfMonInUnits(); }
   /// Unit u1 with et1, both monitored.
   void monitor() {
      rig.linkIs( et1 );
      rig.trafficIs( et1, { 1e9, 1e9 } );
      rig.unitIs( "u1", { et1 } );
      rig.start();
      rig.enter( "u1" );
   }
};

TEST_F( BacklogDecision, anInterfaceIsStartedWhenItHasAProfileAndIsUpOrShutByUs ) {
   const struct {
      const char * what;
      const char * profile; ///< null: no entry; empty: none selected
      bool status, up, shut, started;
   } rows[] = {
      { "with all it needs", "p", true, true, false, true },
      { "with a profile that does not exist", "none", true, true, false, true },
      { "shut by us", "p", true, false, true, true },
      { "up and shut by us", "p", true, true, true, true },
      { "down", "p", true, false, false, false },
      { "unknown, but shut by us", "p", false, false, true, false },
      { "unknown", "p", false, false, false, false },
      { "without a selection", "", true, true, false, false },
      { "without an entry", nullptr, true, true, false, false },
   };
   rig.start();
   for ( const auto & row : rows ) {
      SCOPED_TRACE( row.what );
      if ( row.profile )
         rig.selectIs( et1, row.profile );
      if ( row.status )
         rig.linkIs( et1, row.up );
      if ( row.shut )
         rig.cause->intfStatusIs( et1, rig.now() );
      rig.settle();
      const Vel::U32 startsBefore = starts();
      const Vel::U32 stopsBefore = stops();
      Details details;
      tracker().processIntf( et1 );
      EXPECT_EQ( startsBefore + ( row.started ? 1 : 0 ), starts() );
      EXPECT_EQ( stopsBefore + ( row.started ? 0 : 1 ), stops() );
      EXPECT_EQ(
         Lines{ Vel::text(
            "processIntf: intf et1, maintIntf ", row.profile && *row.profile, ", intfUp ",
            row.status && ( row.up || row.shut ), ", intfMon no" ) },
         details.lines() );
      EXPECT_TRUE( details.traced( "processIntf: ", 9 ) );
      rig.linkDel( et1 );
      rig.intfToGroupDir->intfToGroupDel( et1 );
      rig.cause->intfStatusDel( et1 );
   }
}

TEST_F( BacklogDecision, aSelectionOfAnotherTypeIsNoProfileOfAnInterface ) {
   using Maintenance::Profile::ProfileType;
   rig.start();
   rig.linkIs( et1 );
   rig.intfToGroupDir->intfToGroupIs( et1 )->selectedProfileIs(
      ProfileType::unitProfile, { ProfileType::unitProfile, "p" } );
   rig.settle();
   EXPECT_EQ( 0u, starts() );
}

TEST_F( BacklogDecision, anInterfaceThatCannotBeSampledIsCountedAndGoesNoFurther ) {
   rig.start();
   Decisions decisions;
   const IntfId subIntf = Wire::SubIntfId( "et1.5" );
   const IntfId cpu = Wire::CpuIntfId( "cpu" );
   // With all that another interface is started for.
   for ( const IntfId & intf : { subIntf, cpu } ) {
      rig.allIntfStatusDir->intfStatusIs( intf )->operStatusIs( Interface::operUp );
      rig.unitIs( "u1", { intf } );
   }
   rig.settle();
   EXPECT_EQ( 2u, rig.counters().numIntfMonIntfNotSupported() );
   EXPECT_EQ( 0u, starts() );
   EXPECT_EQ( 0u, stops() );
   const auto ofThemselves = []( Lines lines ) {
      std::erase_if( lines, []( const Vel::String & line ) { return !line.starts_with( "processIntf" ); } );
      return lines;
   };
   const Lines notSupported{
      "processIntf: intf et1.5 - is not not supported", "processIntf: intf cpu - is not not supported" };
   EXPECT_EQ( notSupported, ofThemselves( decisions.lines() ) );
   EXPECT_EQ( notSupported, ofThemselves( decisions.logged() ) );
}

TEST_F( BacklogDecision, worksWithoutCausesAndWithoutGroups ) {
   rig.cause = nullptr;
   rig.intfToGroupDir = nullptr;
   rig.linkIs( et1, false );
   rig.start();
   EXPECT_EQ( 1u, stops() );
}

TEST_F( BacklogDecision, anInterfaceThatComesUpJoinsTheUnitInMaintenance ) {
   rig.linkIs( et1, false );
   rig.unitIs( "u1", { et1 } );
   rig.start();
   rig.enter( "u1" );
   EXPECT_EQ( 0u, rig.root->intfMons() );
   rig.linkIs( et1 );
   EXPECT_EQ( 0u, rig.root->intfMons() );
   rig.settle();
   EXPECT_TRUE( rig.root->intfMon( et1 ) );
   EXPECT_TRUE( input( "u1" ).intf( et1 ) );
}

TEST_F( BacklogDecision, anInterfaceThatGoesDownLeavesItsUnits ) {
   monitor();
   rig.linkIs( et1, false );
   EXPECT_TRUE( rig.root->intfMon( et1 ) );
   rig.settle();
   EXPECT_FALSE( rig.root->intfMon( et1 ) );
   EXPECT_FALSE( input( "u1" ).intf( et1 ) );
}

TEST_F( BacklogDecision, anInterfaceThatIsDownBecauseWeShutItIsMonitoredOn ) {
   PluginRig world( PluginRig::ShutLinks::goDown );
   world.profileIs( "p", 100, 10, true, 1000 );
   world.defaultProfileIs( "p" );
   world.linkIs( et1 );
   world.unitIs( "u1", { et1 } );
   world.start();
   world.enter( "u1" );
   world.advance( 15 );
   ASSERT_TRUE( world.shut( et1 ) );
   ASSERT_EQ( Interface::operDown, world.allIntfStatusDir->intfStatus( et1 )->operStatus() );
   EXPECT_TRUE( world.root->intfMon( et1 ) );
   EXPECT_TRUE( world.enterComplete( "u1" ) );
}

/// Whoever is down when a unit enters is not enrolled; what makes it a member later finds it up, because we hold it
/// down, and a member is not started a second time.
TEST_F( BacklogDecision, anInterfaceThatAnotherUnitHasShutBecomesAMemberWithoutBeingEnrolled ) {
   PluginRig world( PluginRig::ShutLinks::goDown );
   world.profileIs( "p", 100, 10, true, 1000 );
   world.defaultProfileIs( "p" );
   world.linkIs( et1 );
   world.linkIs( et2 );
   world.trafficIs( et2, { 1e9, 1e9 } );
   world.unitIs( "u1", { et1 } );
   world.unitIs( "u2", { et1, et2 } );
   world.start();
   world.enter( "u1" );
   world.advance( 15 );
   world.enter( "u2" );
   world.settle();
   const auto & members = *world.root->unitMonIntfInput()->unitIntfInput( "u2" );
   EXPECT_FALSE( members.intf( et1 ) );
   world.root->intfStatusSm()->addToBacklog( et1 );
   world.settle();
   // The start finds it down and refuses it.
   EXPECT_TRUE( members.intf( et1 ) );
   EXPECT_EQ( nullptr, world.root->intfMon( et1 )->monitoredIntf()->dependentUnit( "u2" ) );
   EXPECT_FALSE( world.root->unitDrainedIntf()->unitIntfInput( "u2" )->intf( et1 ) );
   world.trafficIs( et2, {} );
   world.advance( 60 );
   EXPECT_FALSE( world.enterComplete( "u2" ) );
}

// ---- its profile

TEST_F( BacklogDecision, aMonitorGetsTheProfileThatIsSelectedNow ) {
   monitor();
   const auto changes = rig.counters().numIntfMonProfileChange();
   rig.selectIs( et1, "q" );
   EXPECT_EQ( "p", rig.root->intfMon( et1 )->intfProfile()->name() );
   Details details;
   tracker().processIntf( et1 );
   EXPECT_EQ( "q", rig.root->intfMon( et1 )->intfProfile()->name() );
   EXPECT_EQ( changes + 1, rig.counters().numIntfMonProfileChange() );
   EXPECT_EQ(
      ( Lines{
         "processIntf: intf et1, maintIntf 1, intfUp 1, intfMon yes", "processProfileChange: intf et1" } ),
      details.lines() );
}

TEST_F( BacklogDecision, aMonitorThatHoldsItsProfileAlreadyIsLeftAlone ) {
   monitor();
   const auto changes = rig.counters().numIntfMonProfileChange();
   const auto * held = rig.root->intfMon( et1 )->intfProfile().get();
   const Vel::TraceCapture traces;
   tracker().processProfileChange( et1 );
   EXPECT_EQ( changes, rig.counters().numIntfMonProfileChange() );
   EXPECT_EQ( held, rig.root->intfMon( et1 )->intfProfile().get() );
   EXPECT_EQ( 0u, traces.count( "handleProfile" ) );
}

TEST_F( BacklogDecision, aMonitorGetsTheProfileThatHasReplacedItsOwnUnderTheSameName ) {
   monitor();
   const Vel::Ptr< const IntfMaintenanceProfile::Status > old = rig.root->intfMon( et1 )->intfProfile();
   rig.profileDel( "p" );
   const auto * fresh = rig.profileIs( "p", 300, 30, false, 0 );
   EXPECT_EQ( old, rig.root->intfMon( et1 )->intfProfile() );
   tracker().processProfileChange( et1 );
   EXPECT_EQ( fresh, rig.root->intfMon( et1 )->intfProfile().get() );
}

TEST_F( BacklogDecision, aMonitorGetsNoProfileWhereThereIsNoneOfTheSelectedName ) {
   monitor();
   rig.selectIs( et1, "none" );
   rig.settle();
   EXPECT_FALSE( rig.root->intfMon( et1 )->intfProfile() );
}

TEST_F( BacklogDecision, anInterfaceThatIsNotMonitoredGetsNoProfile ) {
   rig.start();
   const Vel::TraceCapture traces( 4 );
   tracker().processProfileChange( et1 );
   ASSERT_EQ( 1u, traces.lines().size() );
   EXPECT_EQ( "processProfileChange: intf et1", traces.lines()[0].text );
}

TEST_F( BacklogDecision, theProfileIsHandedOverBeforeTheInterfaceIsStarted ) {
   monitor();
   rig.selectIs( et1, "q" );
   Vel::TraceCapture traces;
   rig.settle();
   Vel::String order;
   for ( const auto & line : traces.lines() )
      for ( const char * step : { "processIntf: ", "processProfileChange: ", "startIntfMonInUnits: intf " } )
         if ( line.text.starts_with( step ) )
            order += step;
   EXPECT_EQ( "processIntf: processProfileChange: startIntfMonInUnits: intf ", order );
}

} // namespace
} // namespace MaintenanceMode
