#include "MaintenancePlugin/DrainWatchSm.h"
#include "MaintenancePlugin/PluginRig.h"
#include "MaintenancePlugin/Recorded.h"

#include <gtest/gtest.h>

#include <functional>

namespace MaintenanceMode {
namespace {

struct DrainWatchSmLife : testing::Test {
   PluginRig rig;
   const Wire::IntfId et1 = PluginRig::port( "et1" );
   const Wire::IntfId et2 = PluginRig::port( "et2" );

   DrainWatchSmLife() {
      for ( const auto & intf : { et1, et2 } ) {
         rig.linkIs( intf );
         rig.trafficIs( intf, { 1e9, 1e9 } );
      }
      rig.profileIs( "p", 100, 10, false, 0 );
      rig.defaultProfileIs( "p" );
   }
   /// What every input is watched by and held by, as one number each.
   std::vector< Vel::U32 > inputUse() {
      std::vector< Vel::U32 > use;
      const auto add = [&]( const auto & input ) {
         use.push_back( input->getRefCount() );
         use.push_back( input->velReactors() );
      };
      add( rig.phyCounterDir );
      add( rig.lagConfig );
      add( rig.vlanStatusDir );
      add( rig.allIntfStatusDir );
      add( rig.unitStatusDir );
      add( rig.maintenanceGroupDir );
      add( rig.intfGroupStatusDir );
      add( rig.intfProfileStatusDir );
      add( rig.intfToGroupDir );
      add( rig.groupToUnitDir );
      add( rig.cause );
      add( rig.monIntfStatusDir );
      add( rig.defaultProfile );
      for ( const auto & stageClass : { rig.enterClass, rig.exitClass } ) {
         add( stageClass.completionStatus );
         add( stageClass.agentConfig );
         add( stageClass.agentStatus );
         add( stageClass.progressDir );
      }
      for ( const auto & [intf, status] : rig.allIntfStatusDir->intfStatusRange() )
         add( status );
      for ( const auto & [intf, entry] : rig.intfToGroupDir->intfToGroupRange() )
         add( entry );
      for ( const auto & [group, entry] : rig.groupToUnitDir->groupToUnitRange() )
         add( entry );
      for ( const auto & [name, profile] : rig.intfProfileStatusDir->statusRange() )
         add( profile );
      return use;
   }
};

// ---- initialisation

TEST_F( DrainWatchSmLife, hasAllItsChildrenWhenItIsInitialised ) {
   rig.begin();
   DrainWatchSm & root = *rig.root;
   EXPECT_TRUE( root.initialized() );
   EXPECT_TRUE( root.timerWheel() );
   ASSERT_TRUE( root.counters() );
   for ( const auto & attribute : root.counters()->typeInfo().attributes() )
      EXPECT_EQ( 0u, *static_cast< Vel::U32 * >( attribute.raw( *root.counters() ) ) ) << attribute.name;
   EXPECT_EQ( 0u, root.unitMonIntfInput()->unitIntfInputs() );
   EXPECT_EQ( 0u, root.unitDrainedIntf()->unitIntfInputs() );
   EXPECT_NE( root.unitMonIntfInput(), root.unitDrainedIntf() );
   EXPECT_EQ( 0u, root.monIntfDir()->monitoredIntfs() );
   EXPECT_EQ( 0u, root.unitMons() + root.intfMons() );
   EXPECT_TRUE( root.intfStatusSm() );
   EXPECT_TRUE( root.intfRateAggSm() && root.intfRateAggSm()->initialized() );
   ASSERT_TRUE( root.maintEnterStageHelper() );
   EXPECT_EQ( "maintEnter", root.maintEnterStageHelper()->stageClass() );
   EXPECT_EQ( rig.enterClass.progressDir, root.maintEnterStageHelper()->progressDir() );
   EXPECT_EQ( rig.enterClass.completionStatus, root.maintEnterStageHelper()->maintStageCompletionStatus() );
   EXPECT_EQ( rig.enterClass.agentConfig, root.maintEnterStageHelper()->agentConfig() );
   EXPECT_EQ( rig.enterClass.agentStatus, root.maintEnterStageHelper()->agentStatus() );
   ASSERT_TRUE( root.maintExitStageHelper() );
   EXPECT_EQ( "maintExit", root.maintExitStageHelper()->stageClass() );
   EXPECT_EQ( rig.exitClass.progressDir, root.maintExitStageHelper()->progressDir() );
   EXPECT_EQ( rig.exitClass.completionStatus, root.maintExitStageHelper()->maintStageCompletionStatus() );
   EXPECT_EQ( rig.exitClass.agentConfig, root.maintExitStageHelper()->agentConfig() );
   EXPECT_EQ( rig.exitClass.agentStatus, root.maintExitStageHelper()->agentStatus() );
}

TEST_F( DrainWatchSmLife, isHeldByNoneOfItsChildren ) {
   rig.unitIs( "u1", { et1 } );
   rig.start();
   rig.enter( "u1" );
   EXPECT_EQ( 1u, rig.root->getRefCount() );
   const Vel::Ptr< DrainWatchSm > another = rig.root;
   EXPECT_EQ( 2u, rig.root->getRefCount() );
}

TEST_F( DrainWatchSmLife, itsTrackerAndItsAggregatorHaveTheInputsOfTheRoot ) {
   rig.start();
   const DrainWatchSm & root = *rig.root;
   const IntfStatusSm & tracker = *root.intfStatusSm();
   EXPECT_EQ( rig.clock.get(), tracker.clock().get() );
   EXPECT_EQ( rig.allIntfStatusDir, tracker.allIntfStatusDir() );
   EXPECT_EQ( rig.intfToGroupDir, tracker.intfToGroupDir() );
   EXPECT_EQ( rig.groupToUnitDir, tracker.groupToUnitDir() );
   EXPECT_EQ( root.unitMonIntfInput(), tracker.unitMonIntfInput() );
   EXPECT_EQ( rig.intfGroupStatusDir, tracker.intfGroupStatusDir() );
   EXPECT_EQ( &root, tracker.drainWatchSm() );
   const IntfRateAggregatorSm & aggregator = *root.intfRateAggSm();
   EXPECT_EQ( root.monIntfDir(), aggregator.monIntfDir() );
   EXPECT_EQ( rig.monIntfStatusDir, aggregator.monIntfStatusDir() );
   EXPECT_EQ( rig.unitStatusDir, aggregator.unitStatusDir() );
}

/// The tracker's first look queues every interface, and the aggregator sums up what the records say: both come when
/// the restored monitors exist. Being initialised is the last of all.
TEST_F( DrainWatchSmLife, tellsOfItsStartInTheOrderInWhichItIsMade ) {
   rig.unitIs( "u1", { et1 } );
   auto & status = rig.unit( "u1" );
   status.stateIs( Maintenance::Unit::UnitState::maintenance );
   status.genIdIs( 1 );
   status.maintEnterInstanceNameIs( "u1#1" );
   rig.enterClass.agentStatus->completeIs( { "MaintenanceMode", stageName, "gone#1" }, true );
   rig.monIntfStatusDir->monIntfStatusIs( et2, "p", 1.0 );
   Vel::TraceCapture traces;
   rig.start();
   std::vector< Vel::String > begins{ "" };
   for ( const auto & line : traces.lines() ) {
      const bool child = line.facility == "IntfStatusSm" || line.facility == "IntfRateAggregatorSm";
      if ( child && begins.back() != line.facility )
         begins.push_back( line.facility );
      for ( const char * begin :
            { "handleInitialized: called", "handleInitialized: marked", "handleInitialized: Processing",
              "handleUnitMaintenanceEnter: started", "handleInitialized: deleted stale",
              "handleInitialized: deleted 1", "handleInitialized: DrainWatchSm - initialized" } )
         if ( !child && line.text.starts_with( begin ) )
            begins.push_back( Vel::text( line.facility, "|", begin ) );
      // What follows are the first turns.
      if ( line.text == "handleInitialized: DrainWatchSm - initialized" )
         break;
   }
   EXPECT_EQ(
      ( std::vector< Vel::String >{
         "", "DrainWatchSm|handleInitialized: called", "MaintStageHelperSm|handleInitialized: called",
         "MaintStageHelperSm|handleInitialized: called", "DrainWatchSm|handleInitialized: marked",
         "DrainWatchSm|handleInitialized: Processing", "DrainWatchSm|handleUnitMaintenanceEnter: started",
         "DrainWatchSm|handleInitialized: deleted stale", "DrainWatchSm|handleInitialized: deleted 1",
         "IntfStatusSm", "IntfRateAggregatorSm",
         "DrainWatchSm|handleInitialized: DrainWatchSm - initialized" } ),
      begins );
   EXPECT_EQ( 0u, rig.enterClass.agentStatus->completes() );
}

TEST_F( DrainWatchSmLife, itsTrackerFollowsWhatHappensAfterTheStart ) {
   rig.unitIs( "u1", { et1 } );
   rig.start();
   rig.enter( "u1" );
   rig.groupMemberIs( "u1", et2 );
   rig.settle();
   EXPECT_TRUE( rig.root->intfMon( et2 ) );
}

TEST_F( DrainWatchSmLife, itsWheelHasOneSecondTicksInTheOrderOfSetting ) {
   rig.start();
   const Cog::TimerWheel & wheel = *rig.root->timerWheel();
   EXPECT_EQ( rig.clock.get(), wheel.clock().get() );
   EXPECT_EQ( 1000u, wheel.tickMsecs() );
   EXPECT_EQ( 1800u, wheel.initialMaxTicks() );
   EXPECT_TRUE( wheel.preserveOrder() );
   EXPECT_EQ( 1024u, wheel.defaultBucketSize() );
}

TEST_F( DrainWatchSmLife, isInitialisedOnce ) {
   rig.start();
   Vel::AssertionsThrow assertionsThrow;
   try {
      rig.root->handleInitialized();
      FAIL();
   } catch ( const Vel::AssertionFailed & failure ) {
      EXPECT_STREQ( "!initialized()", failure.what() );
   }
}

/// What is there already is the restart's to take up.
TEST_F( DrainWatchSmLife, isToldOfWhatChangesFromItsStartOnAndOfNothingBefore ) {
   rig.unit( "u1" );
   Sequence told;
   rig.begin();
   rig.unitStatusDir->statusDel( "u1" );
   rig.profileIs( "q", 100, 10, false, 0 );
   rig.defaultProfileIs( "q" );
   EXPECT_EQ(
      ( Lines{
         "handleInitialized: called", "handleInitialized: marked 0 entries as stale in MonIntfStatusDir.",
         "handleInitialized: Processing unit=u1 state=1",
         "handleInitialized: deleted 0 stale entries from MonIntfStatusDir.",
         "handleInitialized: DrainWatchSm - initialized", "handleUnitStatus: u1",
         "handleIntfProfileStatus: [add] intf profile q",
         "handleDefaultIntfProfile: default intf profile q" } ),
      told.lines() );
}

TEST_F( DrainWatchSmLife, isToldOfNothingBeforeItsNotificationsAreSwitchedOn ) {
   rig.start();
   rig.root->handleUnitMaintenanceEnter( "u1", 1 );
   rig.unit( "u1" );
   rig.root->hasNotificationActiveIs( false );
   rig.unitStatusDir->statusDel( "u1" );
   EXPECT_EQ( 0u, rig.counters().numUnitStatusDel() );
   rig.unit( "u1" );
   rig.root->hasNotificationActiveIs( true );
   rig.unitStatusDir->statusDel( "u1" );
   EXPECT_EQ( 1u, rig.counters().numUnitStatusDel() );
}

// ---- release

TEST_F( DrainWatchSmLife, leavesItsInputsAsNobodyWatchesOrHoldsThem ) {
   rig.unitIs( "u1", { et1, et2 } );
   rig.unit( "u1" );
   const auto before = inputUse();
   rig.start();
   rig.enter( "u1" );
   rig.advance( 12 );
   EXPECT_NE( before, inputUse() );
   rig.stop();
   EXPECT_EQ( before, inputUse() );
}

TEST_F( DrainWatchSmLife, releasesWhatItHasShutAndPublished ) {
   rig.profileIs( "p", 100, 10, true, 0 );
   rig.unitIs( "u1", { et1 } );
   rig.start();
   rig.enter( "u1" );
   ASSERT_TRUE( rig.shut( et1 ) );
   ASSERT_TRUE( rig.record( et1 ) );
   rig.stop();
   EXPECT_FALSE( rig.shut( et1 ) );
   EXPECT_FALSE( rig.record( et1 ) );
   EXPECT_EQ( 0u, rig.monIntfStatusDir->monIntfUnderMaints() );
   EXPECT_EQ( Maintenance::Unit::TrafficRates().inRate, rig.unit( "u1" ).aggTrafficRate().inRate );
}

/// Emptying the units reports completion on the way; that must reach nobody.
TEST_F( DrainWatchSmLife, itsReleaseCompletesNoStage ) {
   rig.unitIs( "u1", { et1, et2 } );
   rig.start();
   const Vel::String instanceName = rig.enter( "u1" );
   rig.exitClass.progressDir->progressIs( instanceName )->stageStatusIs( stageName, Stage::stageRunning );
   ASSERT_FALSE( rig.enterComplete( "u1" ) );
   const Vel::Ptr< DrainWatchSmDebugCounters > counters = rig.root->counters();
   const auto refused = counters->numNoNotifyNoStageInput();
   rig.stop();
   EXPECT_EQ( 0u, rig.enterClass.agentStatus->completes() );
   EXPECT_EQ( 0u, rig.exitClass.agentStatus->completes() );
   EXPECT_EQ( 0u, counters->numNotifyStageCompletion() );
   EXPECT_EQ( refused, counters->numNoNotifyNoStageInput() );
}

TEST_F( DrainWatchSmLife, preparesToDieOnceBeforeItsChildrenGo ) {
   rig.unitIs( "u1", { et1 } );
   rig.unitIs( "u2", { et1 } );
   rig.start();
   rig.enter( "u1" );
   rig.enter( "u2" );
   struct Sink {
      std::vector< Vel::String > lines;
      static void add( void * sink, const Vel::TraceFacility & facility, int, std::string_view text ) {
         static_cast< Sink * >( sink )->lines.push_back( Vel::text( facility.name(), "|", text ) );
      }
   } sink;
   Vel::TraceFacility::levelIs( "*", 4 );
   Vel::traceSinkIs( Sink::add, &sink );
   rig.stop();
   Vel::traceSinkIs( nullptr, nullptr );
   Vel::TraceFacility::levelIs( "*", -1 );

   std::vector< Vel::String > deaths;
   for ( const auto & line : sink.lines )
      if ( line.find( "prepareToDie" ) != Vel::String::npos )
         deaths.push_back( line );
   EXPECT_EQ(
      ( std::vector< Vel::String >{
         "DrainWatchSm|prepareToDie: called", "UnitMonSm|prepareToDie: unit u1, genId 1",
         "UnitMonSm|prepareToDie: unit u2, genId 1", "MonitoredIntf|MonitoredIntf::prepareToDie et1" } ),
      deaths );
}

TEST_F( DrainWatchSmLife, preparesToDieAndThenItsChildrenGoInTheirOrder ) {
   rig.unitIs( "u1", { et1 } );
   rig.start();
   rig.enter( "u1" );
   Sequence seen;
   struct VelRoot final : Vel::ReactorTo< Sequence, DrainWatchSm > {
      using ReactorTo::ReactorTo;
      void add( const char * name, bool there ) { sm()->note( there ? "+" : "-", name ); }
      void onMaintEnterStageHelper() override { add( "enter", bool( entity()->maintEnterStageHelper() ) ); }
      void onMaintExitStageHelper() override { add( "exit", bool( entity()->maintExitStageHelper() ) ); }
      void onUnitMon( const Vel::String & unitName ) override {
         add( unitName.c_str(), entity()->unitMon( unitName ) );
      }
      void onIntfMon( const Wire::IntfId & intf ) override {
         add( Vel::text( intf ).c_str(), entity()->intfMon( intf ) );
      }
      void onIntfStatusSm() override { add( "tracker", bool( entity()->intfStatusSm() ) ); }
      void onTimerWheel() override { add( "wheel", bool( entity()->timerWheel() ) ); }
      void onUnitMonIntfInput() override { add( "input", bool( entity()->unitMonIntfInput() ) ); }
      void onUnitDrainedIntf() override { add( "drained", bool( entity()->unitDrainedIntf() ) ); }
      void onCounters() override { add( "counters", bool( entity()->counters() ) ); }
      void onMonIntfDir() override { add( "monIntfDir", bool( entity()->monIntfDir() ) ); }
      void onIntfRateAggSm() override { add( "aggregator", bool( entity()->intfRateAggSm() ) ); }
   };
   Vel::Watch< VelRoot > watch;
   watch.is( rig.root, &seen ).hasNotificationActiveIs( true );
   // A monitor that no unit holds.
   rig.root->intfMonIs(
      et2, rig.root->timerWheel(), rig.intfProfileStatusDir->status( "p" ), rig.root.get(),
      rig.root->monIntfDir()->monitoredIntfIs( et2, rig.root.get(), "p" ),
      Maintenance::monIntfStateEnterMaint );
   seen.clear();
   // A reactor holds what it watches; without that reference it sees the root go.
   rig.root->velUnref();
   rig.stop();
   EXPECT_EQ(
      ( Lines{
         "prepareToDie: called", "-enter", "-exit", "getIntfProfile: intf et1, profile p", "-et1",
         "notifyStageCompletion: No instance found for genId 1 unitName u1", "-u1", "-et2", "-tracker",
         "-wheel", "-input", "-drained", "-counters", "-monIntfDir", "-aggregator" } ),
      seen.lines() );
   EXPECT_TRUE( seen.traced( "prepareToDie: called", 4 ) );
}

TEST_F( DrainWatchSmLife, itsOwnReactorsAreOffBeforeItsChildrenGo ) {
   rig.start();
   ASSERT_EQ( 1u, rig.intfProfileStatusDir->velReactors() );
   struct Seen {
      const PluginRig & rig;
      Vel::U32 reactors = 99;
   } seen{ rig };
   struct VelRoot final : Vel::ReactorTo< Seen, DrainWatchSm > {
      using ReactorTo::ReactorTo;
      void onMaintEnterStageHelper() override {
         sm()->reactors = sm()->rig.intfProfileStatusDir->velReactors();
      }
   };
   Vel::Watch< VelRoot > watch;
   watch.is( rig.root, &seen ).hasNotificationActiveIs( true );
   // A reactor holds what it watches; without that reference it sees the root go.
   rig.root->velUnref();
   rig.stop();
   EXPECT_EQ( 0u, seen.reactors );
}

TEST_F( DrainWatchSmLife, itsZombiesAreItsOwnReactorsOnly ) {
   rig.unitIs( "u1", { et1 } );
   rig.start();
   rig.enter( "u1" );
   rig.root->velDoZombieReactors( true );
   rig.unitStatusDir->statusDel( "u1" );
   EXPECT_TRUE( rig.root->unitMon( "u1" ) );
   rig.root->unitMonIntfInput()->unitIntfInput( "u1" )->intfDel( et1 );
   EXPECT_FALSE( rig.root->intfMon( et1 ) );
   rig.root->velDoZombieReactors( false );
   rig.unit( "u1" );
   rig.unitStatusDir->statusDel( "u1" );
   EXPECT_FALSE( rig.root->unitMon( "u1" ) );
}

TEST_F( DrainWatchSmLife, aFailureWhileItIsBuiltReleasesEverything ) {
   rig.unitIs( "u1", { et1, et2 } );
   rig.start();
   rig.enter( "u1" );
   rig.advance( 7 );
   rig.stop();
   rig.unit( "u2" ).maintEnterInstanceNameIs( "malformed" );
   rig.unit( "u2" ).stateIs( Maintenance::Unit::UnitState::maintenance );
   rig.settle();
   const auto before = inputUse();
   // The first unit is restored, with monitors and timers; the second cannot be.
   try {
      rig.start();
      FAIL();
   } catch ( const Vel::InternalException & error ) {
      EXPECT_STREQ( "Unexpected instanceName format", error.what() );
   }
   EXPECT_FALSE( rig.root );
   EXPECT_EQ( before, inputUse() );
   rig.advance( 60 );

   rig.unit( "u2" ).maintEnterInstanceNameIs( "" );
   rig.unit( "u2" ).genIdIs( 1 );
   rig.start();
   EXPECT_TRUE( rig.root->unitMon( "u1" ) );
   EXPECT_EQ( 2u, rig.root->intfMons() );
}

// ---- inputs that are absent

TEST_F( DrainWatchSmLife, anAbsentInputIsAnEmptyOne ) {
   struct Case {
      const char * name;
      std::function< void( PluginRig & ) > take;
   };
   const auto none = []( auto & pointer ) { pointer = nullptr; };
   for ( const Case & c : std::vector< Case >{
            { "phyCounterDir", [&]( PluginRig & r ) { none( r.phyCounterDir ); } },
            { "lagConfigDir", [&]( PluginRig & r ) { none( r.lagConfig ); } },
            { "vlanStatusDir", [&]( PluginRig & r ) { none( r.vlanStatusDir ); } },
            { "allIntfStatusDir", [&]( PluginRig & r ) { none( r.allIntfStatusDir ); } },
            { "unitStatusDir", [&]( PluginRig & r ) { none( r.unitStatusDir ); } },
            { "maintenanceGroupDir", [&]( PluginRig & r ) { none( r.maintenanceGroupDir ); } },
            { "intfGroupStatusDir", [&]( PluginRig & r ) { none( r.intfGroupStatusDir ); } },
            { "intfProfileStatusDir", [&]( PluginRig & r ) { none( r.intfProfileStatusDir ); } },
            { "intfToGroupDir", [&]( PluginRig & r ) { none( r.intfToGroupDir ); } },
            { "groupToUnitDir", [&]( PluginRig & r ) { none( r.groupToUnitDir ); } },
            { "errDisableCauseStatus", [&]( PluginRig & r ) { none( r.cause ); } },
            { "monIntfStatusDir", [&]( PluginRig & r ) { none( r.monIntfStatusDir ); } },
            { "defaultIntfProfile", [&]( PluginRig & r ) { none( r.defaultProfile ); } },
            { "maintEnterCompletionStatus", [&]( PluginRig & r ) { none( r.enterClass.completionStatus ); } },
            { "maintExitCompletionStatus", [&]( PluginRig & r ) { none( r.exitClass.completionStatus ); } },
            { "maintEnterAgentConfig", [&]( PluginRig & r ) { none( r.enterClass.agentConfig ); } },
            { "maintExitAgentConfig", [&]( PluginRig & r ) { none( r.exitClass.agentConfig ); } },
            { "maintEnterAgentStatus", [&]( PluginRig & r ) { none( r.enterClass.agentStatus ); } },
            { "maintExitAgentStatus", [&]( PluginRig & r ) { none( r.exitClass.agentStatus ); } },
            { "maintEnterProgressDir", [&]( PluginRig & r ) { none( r.enterClass.progressDir ); } },
            { "maintExitProgressDir", [&]( PluginRig & r ) { none( r.exitClass.progressDir ); } },
         } ) {
      SCOPED_TRACE( c.name );
      PluginRig world;
      // A unit without interfaces, one in maintenance, one that exits, a record and a shutdown left behind.
      world.unitIs( "u1", {} );
      world.unit( "u2" ).stateIs( Maintenance::Unit::UnitState::maintenance );
      world.unit( "u2" ).genIdIs( 1 );
      world.unit( "u2" ).maintEnterInstanceNameIs( "u2#1" );
      world.unit( "u3" ).stateIs( Maintenance::Unit::UnitState::exitInProgress );
      world.unit( "u3" ).genIdIs( 1 );
      world.unit( "u3" ).maintExitInstanceNameIs( "u3#1" );
      world.exitClass.progressDir->progressIs( "u3#1" )->stageStatusIs( stageName, Stage::stageRunning );
      world.monIntfStatusDir->monIntfStatusIs( et1, "p", 1.0 );
      world.cause->intfStatusIs( et1, 1.0 );
      c.take( world );
      world.start();
      EXPECT_TRUE( world.root->initialized() );
      world.root->doStageForInstance( maintEnterClass, stageName, "u1#1" );
      EXPECT_TRUE( world.root->unitMon( "u1" ) );
      world.root->handleUnitStatus( "u1" );
      world.root->startIntfMonInUnits( et1 );
      world.root->stopIntfMonInUnits( et1 );
      world.root->handleIntfProfileStatus( "p" );
      world.root->handleDefaultIntfProfile();
      EXPECT_EQ( "", world.root->getIntfProfileName( et1 ) );
      EXPECT_FALSE( world.root->getIntfProfile( et1 ) );
      world.root->doStageForInstance( maintExitClass, stageName, "u1#2" );
      EXPECT_FALSE( world.root->unitMon( "u1" ) );
      EXPECT_NE( "", PluginRig::written( [&]( int fd ) { world.root->dump( fd, 0 ); } ) );
      world.root = nullptr;
   }
}

TEST_F( DrainWatchSmLife, withoutAnyInputThereIsNothingToDo ) {
   const auto root = DrainWatchSm::DrainWatchSmIs(
      nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
      nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr );
   EXPECT_TRUE( root->initialized() );
   root->doStageForInstance( maintEnterClass, stageName, "u1#1" );
   root->doStageForInstance( maintExitClass, stageName, "u1#2" );
   EXPECT_EQ( 2u, root->counters()->numNoNotifyNoStageInput() );
   EXPECT_EQ( 0u, root->counters()->numNotifyStageCompletion() );
}

// ---- inputs that are replaced

TEST_F( DrainWatchSmLife, anInputThatIsReplacedTakesItsReactorAlong ) {
   rig.start();
   DrainWatchSm & root = *rig.root;
   root.handleUnitMaintenanceEnter( "u1", 1 );
   const auto units = Vel::make< Maintenance::Unit::StatusDir >();
   units->statusIs( "u1" );
   root.unitStatusDirIs( units );
   EXPECT_EQ( units, root.unitStatusDir() );
   EXPECT_EQ( 1u, units->velReactors() );
   rig.unit( "u1" );
   rig.unitStatusDir->statusDel( "u1" );
   EXPECT_TRUE( root.unitMon( "u1" ) );
   units->statusDel( "u1" );
   EXPECT_FALSE( root.unitMon( "u1" ) );

   const auto profiles = Vel::make< IntfMaintenanceProfile::StatusDir >();
   root.intfProfileStatusDirIs( profiles );
   EXPECT_EQ( 1u, profiles->velReactors() );
   EXPECT_EQ( 0u, rig.intfProfileStatusDir->velReactors() );
   const auto defaultProfile = Vel::make< Maintenance::Profile::DefaultProfile >();
   root.defaultIntfProfileIs( defaultProfile );
   EXPECT_EQ( 1u, defaultProfile->velReactors() );
   EXPECT_EQ( 0u, rig.defaultProfile->velReactors() );
}

TEST_F( DrainWatchSmLife, anInputThatIsDeletedGoesWithItsReactor ) {
   rig.start();
   DrainWatchSm & root = *rig.root;
   const auto reactors = rig.unitStatusDir->velReactors();
   root.unitStatusDirDel();
   root.intfProfileStatusDirDel();
   root.defaultIntfProfileDel();
   EXPECT_FALSE( root.unitStatusDir() || root.intfProfileStatusDir() || root.defaultIntfProfile() );
   EXPECT_EQ( reactors - 1, rig.unitStatusDir->velReactors() );
   EXPECT_EQ( 0u, rig.intfProfileStatusDir->velReactors() );
   EXPECT_EQ( 0u, rig.defaultProfile->velReactors() );
   root.unitStatusDirIs( rig.unitStatusDir );
   EXPECT_EQ( reactors, rig.unitStatusDir->velReactors() );
}

TEST_F( DrainWatchSmLife, anInputThatIsGivenAgainIsLeftAsItIs ) {
   rig.start();
   struct Seen {
      unsigned count = 0;
   } seen;
   struct VelRoot final : Vel::ReactorTo< Seen, DrainWatchSm > {
      using ReactorTo::ReactorTo;
      void onUnitStatusDir() override { ++sm()->count; }
   };
   Vel::Watch< VelRoot > watch;
   watch.is( rig.root, &seen ).hasNotificationActiveIs( true );
   rig.root->unitStatusDirIs( rig.unitStatusDir );
   EXPECT_EQ( 0u, seen.count );
   rig.root->unitStatusDirDel();
   EXPECT_EQ( 1u, seen.count );
}

} // namespace
} // namespace MaintenanceMode
