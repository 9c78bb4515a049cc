#include "MaintenancePlugin/TrackerTest.h"

namespace MaintenanceMode {
namespace {

/// A plug-in that knows no interface yet; whatever is queued is stopped in all units, which does nothing.
struct Backlog : TrackerTest {
   const IntfId et10 = PluginRig::port( "et10" );

   Backlog() { rig.start(); }
   void queue( std::initializer_list< IntfId > intfs ) {
      for ( const IntfId & intf : intfs )
         tracker().addToBacklog( intf );
   }
   /// What one turn processes.
   Vel::String turn() {
      const Vel::TraceCapture traces;
      rig.clock->runTurn();
      return processed( traces );
   }
};

/// Does something each time that an interface is processed.
struct Processing {
   struct VelCounters final : Vel::ReactorTo< Processing, DrainWatchSmDebugCounters > {
      using ReactorTo::ReactorTo;
      void onNumStopIntfMonInUnits() override { sm()->action(); }
   };
   Processing( PluginRig & rig, std::function< void() > what ) : action( std::move( what ) ) {
      counters.is( rig.root->counters(), this ).hasNotificationActiveIs( true );
   }
   std::function< void() > action;
   Vel::Watch< VelCounters > counters;
};

// ---- what waits

TEST_F( Backlog, isWorkedOffByTheEventLoopOnly ) {
   queue( { et1 } );
   EXPECT_EQ( 1u, tracker().backlogSize() );
   EXPECT_EQ( 0u, rig.counters().numStopIntfMonInUnits() );
   EXPECT_EQ( "et1", turn() );
   EXPECT_EQ( 0u, tracker().backlogSize() );
   EXPECT_EQ( 1u, rig.counters().numStopIntfMonInUnits() );
}

TEST_F( Backlog, processesAnInterfaceOnceHoweverManyChangesWereReported ) {
   queue( { et1, et1, et1, et1, et1 } );
   EXPECT_EQ( 1u, tracker().backlogSize() );
   EXPECT_EQ( "et1", backlog() );
   EXPECT_EQ( 5u, tracker().updatesSeen() );
   EXPECT_EQ( 1u, tracker().updatesProcessed() );
   EXPECT_EQ( 4u, tracker().updatesCoalesced() );
}

TEST_F( Backlog, goesInTheOrderOfInterfaces ) {
   queue( { et10, PluginRig::vlan( "vlan1", 1 ), et2, PluginRig::portChannel( "po1" ), et1 } );
   EXPECT_EQ( "et1 et2 et10 po1 vlan1", turn() );
   EXPECT_EQ( 1u, tracker().dispatchCount() );
}

TEST_F( Backlog, takesAnInterfaceAgainThatIsQueuedWhileItIsProcessed ) {
   bool again = true;
   const Processing processing( rig, [&] {
      if ( std::exchange( again, false ) )
         queue( { et1, et2 } );
   } );
   queue( { et1, et3 } );
   EXPECT_EQ( "et1 et2 et3 et1", turn() );
   EXPECT_EQ( 4u, tracker().updatesProcessed() );
}

TEST_F( Backlog, isDiscardedWithTheTracker ) {
   queue( { et1 } );
   rig.root->intfStatusSmDel();
   Vel::TraceCapture traces;
   rig.settle();
   EXPECT_EQ( 0u, traces.lines().size() );
   EXPECT_EQ( 0u, rig.counters().numStopIntfMonInUnits() );
}

// ---- slices

TEST_F( Backlog, aRunWithoutWorkDoesNothing ) {
   Vel::TraceCapture traces;
   FastLog::Capture log;
   EXPECT_EQ( 0u, tracker().processBacklog( rig.now() ) );
   EXPECT_EQ( 0u, traces.lines().size() );
   EXPECT_EQ( 0u, log.lines().size() );
}

TEST_F( Backlog, tellsWhatARunDid ) {
   queue( { et1, et2 } );
   Vel::TraceCapture traces;
   FastLog::Capture log;
   EXPECT_EQ( 2u, tracker().processBacklog( rig.now() ) );
   ASSERT_LE( 2u, log.lines().size() );
   EXPECT_EQ( FastLog::Kind::profile, log.lines()[0].kind );
   EXPECT_EQ( "DrainWatch::IntfStatusSm codef backlog processing", log.lines()[0].text );
   const Vel::String start = Vel::text( "processBacklog: startTime ", rig.now() );
   EXPECT_EQ( start, log.lines()[1].text );
   EXPECT_EQ( "processBacklog: num items processed 2", log.lines().back().text );
   EXPECT_EQ( start, traces.lines().front().text );
   EXPECT_EQ( "processBacklog: processed 2 items", traces.lines().back().text );
}

TEST_F( Backlog, aQuantumOfNothingTakesOneInterfaceARunInOrderAndFromTheStartAgain ) {
   tracker().backlogQuantumIs( 0 );
   queue( { et1, et2, et3 } );
   EXPECT_EQ( "et1", turn() );
   EXPECT_EQ( et2, tracker().bookmark() );
   EXPECT_EQ( "et2", turn() );
   EXPECT_EQ( et3, tracker().bookmark() );
   queue( { et1, et2 } );
   EXPECT_EQ( "et3", turn() );
   EXPECT_EQ( et1, tracker().bookmark() );
   EXPECT_EQ( "et1", turn() );
   EXPECT_EQ( "et2", turn() );
   EXPECT_EQ( IntfId(), tracker().bookmark() );
   EXPECT_EQ( "", turn() );
   EXPECT_EQ( 5u, tracker().dispatchCount() );
   EXPECT_EQ( 4u, tracker().yieldBeforeFinishingCount() );
}

TEST_F( Backlog, aRunEndsWhenItsSliceIsSpent ) {
   tracker().backlogQuantumIs( 0.5 );
   const Processing processing( rig, [&] { rig.clock->spend( 0.25 ); } );
   queue( { et1, et2, et3, et10 } );
   Vel::TraceCapture traces;
   FastLog::Capture log;
   rig.clock->runTurn();
   EXPECT_EQ( "et1 et2", processed( traces ) );
   EXPECT_EQ( et3, tracker().bookmark() );
   EXPECT_EQ( 2u, tracker().backlogSize() );
   EXPECT_EQ( 0.5, tracker().timeUsed() );
   EXPECT_TRUE( traces.has( "processBacklog: Pausing backlog processing at et3", 4 ) );
   EXPECT_TRUE( traces.has( "processBacklog: processed 2 items", 4 ) );
   EXPECT_TRUE( log.has( "processBacklog: Pausing backlog processing at et3" ) );
   EXPECT_TRUE( log.has( "processBacklog: num items processed 2" ) );
   traces.clear();
   rig.clock->runTurn();
   EXPECT_EQ( "et3 et10", processed( traces ) );
   EXPECT_FALSE( traces.has( "Pausing" ) );
}

TEST_F( Backlog, aRunGoesOnWhileItsSliceIsNotSpent ) {
   tracker().backlogQuantumIs( 0.5 );
   const Processing processing( rig, [&] { rig.clock->spend( 0.125 ); } );
   queue( { et1, et2, et3, et10 } );
   EXPECT_EQ( "et1 et2 et3 et10", turn() );
   EXPECT_EQ( 0u, tracker().yieldBeforeFinishingCount() );
}

TEST_F( Backlog, aSliceBeginsWithTheRunAndTheFirstInterfaceIsAlwaysTaken ) {
   queue( { et1, et2 } );
   EXPECT_EQ( 1u, tracker().processBacklog( rig.now() - 1 ) );
   EXPECT_EQ( et2, tracker().bookmark() );
}

TEST_F( Backlog, aRunGoesOnAtTheBookmarkOrBehindItOrFromTheStart ) {
   const struct {
      const char * what;
      IntfId bookmark;
      const char * order;
   } rows[] = {
      { "at it", et2, "et2 et10 et1" },
      { "behind it, for it is not there any more", et3, "et10 et1 et2" },
      { "from the start, for there is nothing behind it", PluginRig::port( "et11" ), "et1 et2 et10" },
   };
   for ( const auto & row : rows ) {
      SCOPED_TRACE( row.what );
      queue( { et1, et2, et10 } );
      tracker().bookmarkIs( row.bookmark );
      EXPECT_EQ( row.order, turn() );
      EXPECT_EQ( IntfId(), tracker().bookmark() );
   }
}

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
      Vel::TraceCapture traces;
      tracker().processIntf( et1 );
      EXPECT_EQ( row.started, starts() - startsBefore == 1 );
      EXPECT_EQ( !row.started, stops() - stopsBefore == 1 );
      EXPECT_TRUE( traces.has(
         Vel::text(
            "processIntf: intf et1, maintIntf ", row.profile && *row.profile, ", intfUp ",
            row.status && ( row.up || row.shut ), ", intfMon no" ),
         9 ) );
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
   Vel::TraceCapture traces;
   FastLog::Capture log;
   tracker().addToBacklog( Wire::SubIntfId( "et1.5" ) );
   tracker().addToBacklog( Wire::CpuIntfId( "cpu" ) );
   rig.settle();
   EXPECT_EQ( 2u, rig.counters().numIntfMonIntfNotSupported() );
   EXPECT_EQ( 0u, starts() );
   EXPECT_EQ( 0u, stops() );
   EXPECT_TRUE( traces.has( "processIntf: intf et1.5 - is not not supported", 4 ) );
   EXPECT_TRUE( log.has( "processIntf: intf et1.5 - is not not supported" ) );
   EXPECT_FALSE( traces.has( "processIntf: intf et1.5, maintIntf" ) );
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
   Vel::TraceCapture traces;
   rig.settle();
   EXPECT_EQ( "q", rig.root->intfMon( et1 )->intfProfile()->name() );
   EXPECT_EQ( changes + 1, rig.counters().numIntfMonProfileChange() );
   EXPECT_TRUE( traces.has( "processIntf: intf et1, maintIntf 1, intfUp 1, intfMon yes" ) );
   EXPECT_TRUE( traces.has( "processProfileChange: intf et1", 4 ) );
}

TEST_F( BacklogDecision, aMonitorThatHoldsItsProfileAlreadyIsLeftAlone ) {
   monitor();
   const auto changes = rig.counters().numIntfMonProfileChange();
   tracker().processProfileChange( et1 );
   EXPECT_EQ( changes, rig.counters().numIntfMonProfileChange() );
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
   Vel::TraceCapture traces;
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

// ---- dump

TEST_F( Backlog, isShownWithItsStatistics ) {
   tracker().backlogQuantumIs( 0.25 );
   const Processing processing( rig, [&] { rig.clock->spend( 0.125 ); } );
   queue( { et1, et2, et3, et10, et1, et1 } );
   turn();
   const auto dumped = [&]( unsigned indent ) {
      return PluginRig::written( [&]( int fd ) { tracker().dump( fd, indent ); } );
   };
   EXPECT_EQ(
      "IntfStatusSm codef details:\n"
      "bookmark: et3\n"
      "backlogSize: 2\n"
      "backlogQuantum: 0.250000\n"
      "updatesSeen: 6\n"
      "updatesProcessed: 2\n"
      "warm: false\n"
      "updatesCoalesced: 0\n"
      "timeUsed: 0.250000\n"
      "dispatchCount: 1\n"
      "yieldBeforeFinishingCount: 1\n",
      dumped( 0 ) );
   backlog();
   EXPECT_EQ(
      "    IntfStatusSm codef details:\n"
      "    bookmark: \n"
      "    backlogSize: 0\n"
      "    backlogQuantum: 0.250000\n"
      "    updatesSeen: 6\n"
      "    updatesProcessed: 4\n"
      "    warm: true\n"
      "    updatesCoalesced: 2\n"
      "    timeUsed: 0.500000\n"
      "    dispatchCount: 2\n"
      "    yieldBeforeFinishingCount: 1\n",
      dumped( 4 ) );
}

} // namespace
} // namespace MaintenanceMode
