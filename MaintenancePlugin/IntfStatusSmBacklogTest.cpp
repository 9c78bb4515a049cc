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
      Decisions decisions;
      rig.clock->runTurn();
      return processed( decisions.lines() );
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
   EXPECT_LT( rig.now(), tracker().clockReactorTimeMin() );
   queue( { et1 } );
   EXPECT_EQ( 0, tracker().clockReactorTimeMin() );
   EXPECT_EQ( 1u, tracker().backlogSize() );
   EXPECT_EQ( 0u, rig.counters().numStopIntfMonInUnits() );
   EXPECT_EQ( "et1", turn() );
   EXPECT_EQ( 0u, tracker().backlogSize() );
   EXPECT_EQ( 1u, rig.counters().numStopIntfMonInUnits() );
}

TEST_F( Backlog, everyChangeAsksForARunAtOnce ) {
   queue( { et1 } );
   tracker().clockReactorTimeMinIs( rig.now() + 100 );
   queue( { et2 } );
   EXPECT_EQ( 0, tracker().clockReactorTimeMin() );
   tracker().clockReactorTimeMinIs( rig.now() + 100 );
   queue( { et2 } );
   EXPECT_EQ( 0, tracker().clockReactorTimeMin() );
}

TEST_F( Backlog, processesAnInterfaceOnceHoweverManyChangesWereReported ) {
   queue( { et1, et1, et1, et1, et1 } );
   EXPECT_EQ( 1u, tracker().backlogSize() );
   EXPECT_EQ( "et1", backlog() );
   EXPECT_EQ( 1u, rig.counters().numStopIntfMonInUnits() );
   EXPECT_EQ( 5u, tracker().updatesSeen() );
   EXPECT_EQ( 1u, tracker().updatesProcessed() );
   EXPECT_EQ( 4u, tracker().updatesCoalesced() );
}

TEST_F( Backlog, goesInTheOrderOfInterfaces ) {
   queue( { et10, PluginRig::vlan( "vlan1", 1 ), et2, PluginRig::portChannel( "po1" ), et1 } );
   EXPECT_EQ( "et1 et2 et10 po1 vlan1", turn() );
   EXPECT_EQ( 1u, tracker().dispatchCount() );
   EXPECT_EQ( IntfId(), tracker().bookmark() );
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
   Details details;
   const FastLog::Capture log;
   EXPECT_EQ( 2u, tracker().processBacklog( rig.now() ) );
   const Vel::String start = Vel::text( "processBacklog: startTime ", rig.now() );
   EXPECT_EQ(
      ( Lines{
         start, "processBacklog: intf et1", "processIntf: intf et1, maintIntf 0, intfUp 0, intfMon no",
         "processBacklog: intf et2", "processIntf: intf et2, maintIntf 0, intfUp 0, intfMon no",
         "processBacklog: processed 2 items" } ),
      details.lines() );
   EXPECT_EQ(
      ( Lines{
         "DrainWatch::IntfStatusSm codef backlog processing", start,
         "processBacklog: num items processed 2" } ),
      details.logged() );
   EXPECT_EQ( FastLog::Kind::profile, log.lines()[0].kind );
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
   EXPECT_EQ( "et1 et2", turn() );
   EXPECT_EQ( et3, tracker().bookmark() );
   EXPECT_EQ( 2u, tracker().backlogSize() );
   EXPECT_EQ( 0.5, tracker().timeUsed() );
   EXPECT_EQ( "et3 et10", turn() );
   EXPECT_EQ( IntfId(), tracker().bookmark() );
   EXPECT_EQ( 0u, tracker().backlogSize() );
}

TEST_F( Backlog, tellsWhereARunPaused ) {
   tracker().backlogQuantumIs( 0.5 );
   const Processing processing( rig, [&] { rig.clock->spend( 0.25 ); } );
   queue( { et1, et2, et3 } );
   const Vel::String start = Vel::text( "processBacklog: startTime ", rig.now() );
   Decisions decisions;
   rig.clock->runTurn();
   EXPECT_EQ(
      ( Lines{
         start, "processBacklog: intf et1", "processBacklog: intf et2",
         "processBacklog: Pausing backlog processing at et3", "processBacklog: processed 2 items" } ),
      decisions.lines() );
   EXPECT_EQ(
      ( Lines{
         "DrainWatch::IntfStatusSm codef backlog processing", start,
         "processBacklog: Pausing backlog processing at et3", "processBacklog: num items processed 2" } ),
      decisions.logged() );
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
      "  IntfStatusSm codef details:\n"
      "  bookmark: \n"
      "  backlogSize: 0\n"
      "  backlogQuantum: 0.250000\n"
      "  updatesSeen: 6\n"
      "  updatesProcessed: 4\n"
      "  warm: true\n"
      "  updatesCoalesced: 2\n"
      "  timeUsed: 0.500000\n"
      "  dispatchCount: 2\n"
      "  yieldBeforeFinishingCount: 1\n",
      dumped( 2 ) );
}

} // namespace
} // namespace MaintenanceMode
