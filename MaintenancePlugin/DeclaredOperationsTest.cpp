#include "MaintenancePlugin/DeclaredTest.h"
#include "MaintenancePlugin/PluginRig.h"

#include <limits>

/// What every declared attribute and collection promises, type by type: a write tells once, an equal one is silent, so is
/// the deletion of what is not there; what a handler throws reaches the writer after the change.
namespace MaintenanceMode {
namespace {

struct DeclaredOperations : testing::Test {
   DeclaredOperations() {
      for ( const IntfId & intf : { et1, et2 } )
         rig.linkIs( intf );
      rig.start();
   }
   Ptr< MonitoredIntf > sampler( const IntfId & intf ) {
      return Vel::make< MonitoredIntf >( intf, rig.root.get(), "p" );
   }

   const IntfId et1 = PluginRig::port( "Ethernet1" );
   const IntfId et2 = PluginRig::port( "Ethernet2" );
   PluginRig rig;
};

template < class T >
void expectType( const Ptr< T > & entity ) {
   const Vel::Entity & base = *entity;
   EXPECT_EQ( Vel::typeName< T >(), base.typeInfo().name() );
   EXPECT_EQ( &Vel::typeInfoOf< T >(), &base.typeInfo() );
}

TEST_F( DeclaredOperations, everyEntityTellsItsType ) {
   const DrainWatchSm & root = *rig.root;
   const auto input = Vel::make< UnitIntfInput >( "u1" );
   expectType( rig.root );
   expectType( root.counters() );
   expectType( root.intfStatusSm() );
   expectType( root.intfRateAggSm() );
   expectType( root.maintEnterStageHelper() );
   expectType( root.monIntfDir() );
   expectType( root.unitMonIntfInput() );
   expectType( input );
   expectType( sampler( et1 ) );
   expectType( Vel::make< IntfCounterInfo >( et1 ) );
   expectType( Vel::make< UnitMonSm >( "u1", 1u, rig.root.get(), input, input ) );
}

TEST_F( DeclaredOperations, everyCounterTellsOfAChangeAndWraps ) {
   const auto counters = Vel::make< DrainWatchSmDebugCounters >();
   U32 rows = 0;
#define COUNTER( name, handler )                                                                             \
   do {                                                                                                      \
      EXPECT_ATTRIBUTE( DrainWatchSmDebugCounters, counters, name, handler, 1u, 2u );                        \
      TOLD( DrainWatchSmDebugCounters, counters, handler() );                                                \
      EXPECT_EQ( 1u, told( [&] { counters->name##Inc( 3 ); } ) );                                            \
      EXPECT_EQ( 5u, counters->name() );                                                                     \
      EXPECT_EQ( 0u, told( [&] { counters->name##Inc( 0 ); } ) );                                            \
      counters->name##Is( std::numeric_limits< U32 >::max() );                                               \
      counters->name##Inc( 2 );                                                                              \
      EXPECT_EQ( 1u, counters->name() );                                                                     \
      ++rows;                                                                                                \
   } while ( false )
   COUNTER( numMaintEnter, onNumMaintEnter );
   COUNTER( numMaintExit, onNumMaintExit );
   COUNTER( numMaintExitNoUnitMon, onNumMaintExitNoUnitMon );
   COUNTER( numMaintEnterUnitMonPresent, onNumMaintEnterUnitMonPresent );
   COUNTER( numMaintExitInMaintModeEnter, onNumMaintExitInMaintModeEnter );
   COUNTER( numNotifyStageCompletion, onNumNotifyStageCompletion );
   COUNTER( numUnitStatusDel, onNumUnitStatusDel );
   COUNTER( numNoVlanStatus, onNumNoVlanStatus );
   COUNTER( numNoIntfCounter, onNumNoIntfCounter );
   COUNTER( numNoNotifyNoStageInput, onNumNoNotifyNoStageInput );
   COUNTER( numNoNotifyActiveStageMismatch, onNumNoNotifyActiveStageMismatch );
   COUNTER( numNoNotifyAlreadyNotified, onNumNoNotifyAlreadyNotified );
   COUNTER( numNoNotifyNoUnitStatus, onNumNoNotifyNoUnitStatus );
   COUNTER( numIntfMonInitialStatePassive, onNumIntfMonInitialStatePassive );
   COUNTER( numStartIntfMonInUnits, onNumStartIntfMonInUnits );
   COUNTER( numStopIntfMonInUnits, onNumStopIntfMonInUnits );
   COUNTER( numIntfMonProfileChange, onNumIntfMonProfileChange );
   COUNTER( numIntfMonProfileDelete, onNumIntfMonProfileDelete );
   COUNTER( numIntfMonPendingProfileResolved, onNumIntfMonPendingProfileResolved );
   COUNTER( numIntfMonDefProfileUpdate, onNumIntfMonDefProfileUpdate );
   COUNTER( numIntfMonIntfNotSupported, onNumIntfMonIntfNotSupported );
   COUNTER( numIntfMonNoIntfStatus, onNumIntfMonNoIntfStatus );
   COUNTER( numIntfMonIntfOperNotUp, onNumIntfMonIntfOperNotUp );
#undef COUNTER
   EXPECT_EQ( Vel::typeInfoOf< DrainWatchSmDebugCounters >().attributes().size(), rows )
      << "a counter has no row";
}

TEST_F( DeclaredOperations, theRootsAttributesTellOfChangesOnly ) {
   const auto & root = rig.root;
   EXPECT_ATTRIBUTE( DrainWatchSm, root, initialized, onInitialized, true, false );
   EXPECT_ATTRIBUTE(
      DrainWatchSm, root, unitStatusDir, onUnitStatusDir, rig.unitStatusDir,
      Ptr< Maintenance::Unit::StatusDir >( nullptr ) );
   EXPECT_ATTRIBUTE(
      DrainWatchSm, root, intfProfileStatusDir, onIntfProfileStatusDir, rig.intfProfileStatusDir,
      Ptr< const IntfMaintenanceProfile::StatusDir >( nullptr ) );
   EXPECT_ATTRIBUTE(
      DrainWatchSm, root, defaultIntfProfile, onDefaultIntfProfile, rig.defaultProfile,
      Ptr< const Maintenance::Profile::DefaultProfile >( nullptr ) );
}

TEST_F( DeclaredOperations, theRootHasGivenAnInputUpWhenItTells ) {
   const auto & root = rig.root;
#define GIVEN_UP( name, handler )                                                                            \
   do {                                                                                                      \
      SCOPED_TRACE( #name );                                                                                 \
      THROWN( DrainWatchSm, root, handler() );                                                               \
      ASSERT_TRUE( root->name() );                                                                           \
      EXPECT_TRUE( thrown( [&] { root->name##Del(); } ) );                                                   \
      EXPECT_FALSE( root->name() );                                                                          \
   } while ( false )
   GIVEN_UP( unitStatusDir, onUnitStatusDir );
   GIVEN_UP( intfProfileStatusDir, onIntfProfileStatusDir );
   GIVEN_UP( defaultIntfProfile, onDefaultIntfProfile );
#undef GIVEN_UP
}

TEST_F( DeclaredOperations, theRootReleasesEachOfItsChildrenOnce ) {
   const auto & root = rig.root;
   EXPECT_RELEASED_ONCE( DrainWatchSm, root, maintEnterStageHelper, onMaintEnterStageHelper );
   EXPECT_RELEASED_ONCE( DrainWatchSm, root, maintExitStageHelper, onMaintExitStageHelper );
   EXPECT_RELEASED_ONCE( DrainWatchSm, root, intfStatusSm, onIntfStatusSm );
   EXPECT_RELEASED_ONCE( DrainWatchSm, root, timerWheel, onTimerWheel );
   EXPECT_RELEASED_ONCE( DrainWatchSm, root, unitMonIntfInput, onUnitMonIntfInput );
   EXPECT_RELEASED_ONCE( DrainWatchSm, root, unitDrainedIntf, onUnitDrainedIntf );
   EXPECT_RELEASED_ONCE( DrainWatchSm, root, intfRateAggSm, onIntfRateAggSm );
   EXPECT_RELEASED_ONCE( DrainWatchSm, root, monIntfDir, onMonIntfDir );
   EXPECT_RELEASED_ONCE( DrainWatchSm, root, counters, onCounters );
}

TEST_F( DeclaredOperations, aUnitMonitorTellsOfChangesOnly ) {
   const auto input = Vel::make< UnitIntfInput >( "u1" );
   const auto unitMonSm = Vel::make< UnitMonSm >( "u1", 1u, rig.root.get(), input, input );
   EXPECT_ATTRIBUTE( UnitMonSm, unitMonSm, genId, onGenId, 2u, 3u );
   EXPECT_ATTRIBUTE( UnitMonSm, unitMonSm, initialized, onInitialized, true, false );
}

TEST_F( DeclaredOperations, anInterfaceMonitorTellsOfChangesOnly ) {
   const auto profile = Vel::make< Profile >( "p" );
   const auto other = Vel::make< Profile >( "q" );
   const auto & wheel = rig.root->timerWheel();
   const auto intfMonSm = Vel::make< IntfMonSm >(
      et1, wheel, profile, rig.root.get(), sampler( et1 ), Maintenance::monIntfStateEnterMaint );
   EXPECT_ATTRIBUTE( IntfMonSm, intfMonSm, initialized, onInitialized, true, false );
   EXPECT_ATTRIBUTE( IntfMonSm, intfMonSm, oldProfileName, onOldProfileName, "p", "q" );
   EXPECT_ATTRIBUTE( IntfMonSm, intfMonSm, intfProfile, onIntfProfile, profile, other );
   EXPECT_ATTRIBUTE(
      IntfMonSm, intfMonSm, state, onState, Maintenance::monIntfStateUnderMaint,
      Maintenance::monIntfStateStopped );
   EXPECT_ATTRIBUTE( IntfMonSm, intfMonSm, clock, onClock, wheel, Ptr< const Cog::TimerWheel >( nullptr ) );
   EXPECT_EQ( Cog::Timer::never, intfMonSm->timeMin() ) << "without a clock nothing is due";
}

TEST_F( DeclaredOperations, aSamplerTellsOfChangesOnly ) {
   const auto monitoredIntf = sampler( et1 );
   const auto record = Vel::make< Maintenance::MonIntfStatus >( et1, "p", 1.0 );
   EXPECT_ATTRIBUTE( MonitoredIntf, monitoredIntf, initialized, onInitialized, false, true );
   EXPECT_ATTRIBUTE( MonitoredIntf, monitoredIntf, profileName, onProfileName, "q", "r" );
   EXPECT_ATTRIBUTE(
      MonitoredIntf, monitoredIntf, monIntfStatus, onMonIntfStatus, record,
      Ptr< Maintenance::MonIntfStatus >( nullptr ) );
   EXPECT_MAP( MonitoredIntf, monitoredIntf, dependentUnit, onDependentUnit, String, "u1", "u2" );
   monitoredIntf->memberTrafficCountersDelAll();
   EXPECT_CHILDREN(
      MonitoredIntf, monitoredIntf, memberTrafficCounters, onMemberTrafficCounters, IntfId, et1, et2,
      Vel::make< IntfCounterInfo >, monitoredIntf->memberTrafficCountersIs );
}

TEST_F( DeclaredOperations, aPortsSnapshotTellsOfChangesOnly ) {
   const auto info = Vel::make< IntfCounterInfo >( et1 );
   const OctetCounts counts{ 7, {} };
   const Interface::IntfRates rates{ 1, 2, 3 };
   EXPECT_ATTRIBUTE( IntfCounterInfo, info, prevStats, onPrevStats, OctetCounts(), counts );
   EXPECT_ATTRIBUTE( IntfCounterInfo, info, lastUpdateTime, onLastUpdateTime, 1.0, 2.0 );
   EXPECT_ATTRIBUTE( IntfCounterInfo, info, rates, onRates, Interface::IntfRates(), rates );
}

TEST_F( DeclaredOperations, theSamplersAreChildrenOfTheirDirectory ) {
   const auto dir = Vel::make< MonitoredIntfDir >();
   const auto made = [this]( const IntfId & intf ) { return sampler( intf ); };
   const auto madeIs = [&]( const IntfId & intf ) {
      return dir->monitoredIntfIs( intf, rig.root.get(), "p" );
   };
   EXPECT_CHILDREN( MonitoredIntfDir, dir, monitoredIntf, onMonitoredIntf, IntfId, et1, et2, made, madeIs );
}

TEST_F( DeclaredOperations, theInterfacesOfAUnitAreAMapAndTheUnitsChildrenOfTheirDirectory ) {
   const auto input = Vel::make< UnitIntfInput >( "u1" );
   EXPECT_MAP( UnitIntfInput, input, intf, onIntf, IntfId, et1, et2 );
   const auto dir = Vel::make< UnitIntfInputDir >();
   const String u1 = "u1";
   const String u2 = "u2";
   EXPECT_CHILDREN(
      UnitIntfInputDir, dir, unitIntfInput, onUnitIntfInput, String, u1, u2, Vel::make< UnitIntfInput >,
      dir->unitIntfInputIs );
}

TEST_F( DeclaredOperations, theAggregatorHasReactorsToSamplersAndRecords ) {
   const auto aggregator = Vel::make< IntfRateAggregatorSm >( nullptr, nullptr, nullptr );
   const auto sampler1 = sampler( et1 );
   const auto sampler2 = sampler( et2 );
   const auto record1 = Vel::make< Maintenance::MonIntfStatus >( et1, "p", 1.0 );
   const auto record2 = Vel::make< Maintenance::MonIntfStatus >( et2, "p", 1.0 );
   EXPECT_ATTRIBUTE( IntfRateAggregatorSm, aggregator, initialized, onInitialized, true, false );
   EXPECT_REACTORS( IntfRateAggregatorSm, aggregator, monitoredIntf, et1, sampler1, et2, sampler2 );
   EXPECT_REACTORS( IntfRateAggregatorSm, aggregator, monIntfStatus, et1, record1, et2, record2 );
}

TEST_F( DeclaredOperations, theTrackerHasReactorsToInterfacesTheirGroupsAndTheUnitsOfGroups ) {
   const auto tracker = rig.root->intfStatusSm();
   const auto status1 = Vel::make< Interface::IntfStatus >( et1 );
   const auto status2 = Vel::make< Interface::IntfStatus >( et2 );
   const auto entry1 = Vel::make< IntfMaintenance::IntfToGroup >( et1 );
   const auto entry2 = Vel::make< IntfMaintenance::IntfToGroup >( et2 );
   const auto g1 = PluginRig::group( "g1" );
   const auto g2 = PluginRig::group( "g2" );
   const auto units1 = Vel::make< Maintenance::GroupToUnit >( g1 );
   const auto units2 = Vel::make< Maintenance::GroupToUnit >( g2 );
   tracker->intfStatusDelAll();
   EXPECT_ATTRIBUTE( IntfStatusSm, tracker, bookmark, onBookmark, et1, et2 );
   EXPECT_REACTORS( IntfStatusSm, tracker, intfStatus, et1, status1, et2, status2 );
   EXPECT_REACTORS( IntfStatusSm, tracker, intfToGroup, et1, entry1, et2, entry2 );
   EXPECT_REACTORS( IntfStatusSm, tracker, groupToUnit, g1, units1, g2, units2 );
}

TEST_F( DeclaredOperations, theStageHelperHasReactorsToProgressRecords ) {
   const auto helper = rig.root->maintEnterStageHelper();
   const Vel::Name one = "one";
   const Vel::Name other = "other";
   const auto progress1 = Vel::make< Stage::Progress >( one );
   const auto progress2 = Vel::make< Stage::Progress >( other );
   EXPECT_ATTRIBUTE( MaintStageHelperSm, helper, initialized, onInitialized, false, true );
   EXPECT_REACTORS( MaintStageHelperSm, helper, progress, one, progress1, other, progress2 );
}

} // namespace
} // namespace MaintenanceMode
