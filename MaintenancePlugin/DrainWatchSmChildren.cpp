#include "MaintenancePlugin/DrainWatchSm.h"
#include "MaintenancePlugin/Reinstantiation.h"

/// The makers of the root's own children, of which there is one each. Unit and interface monitors: DrainWatchSmUnits.cpp,
/// DrainWatchSmRegistry.cpp.
namespace MaintenanceMode {

namespace {

/// The helper that is there if it was built from these values, else a new one.
Vel::Ptr< MaintStageHelperSm > stageHelper(
   const Vel::Ptr< MaintStageHelperSm > & present, const Vel::String & stageClass,
   const Vel::Ptr< const Stage::ProgressDir > & progressDir,
   const Vel::Ptr< const Stage::CompletionStatusDir > & completionStatus,
   const Vel::Ptr< Stage::AgentConfig > & agentConfig, const Vel::Ptr< Stage::AgentStatus > & agentStatus,
   DrainWatchSm * root ) {
   if ( present ) {
      requireBuiltFrom( "_stageClass", stageClass, present->stageClass() );
      requireBuiltFrom( "_progressDir", progressDir, present->progressDir() );
      requireBuiltFrom(
         "_maintStageCompletionStatus", completionStatus, present->maintStageCompletionStatus() );
      requireBuiltFrom( "_agentConfig", agentConfig, present->agentConfig() );
      requireBuiltFrom( "_agentStatus", agentStatus, present->agentStatus() );
      requireBuiltFrom( "_root", root, present->root() );
      return present;
   }
   auto helper = Vel::make< MaintStageHelperSm >(
      stageClass, progressDir, completionStatus, agentConfig, agentStatus, root );
   helper->handleInitialized();
   return helper;
}

} // namespace

Vel::Ptr< MaintStageHelperSm > DrainWatchSm::maintEnterStageHelperIs(
   const Vel::String & stageClass, const ReadOnly< Stage::ProgressDir > & progressDir,
   const ReadOnly< Stage::CompletionStatusDir > & completionStatus,
   const Writable< Stage::AgentConfig > & agentConfig, const Writable< Stage::AgentStatus > & agentStatus,
   DrainWatchSm * root ) {
   maintEnterStageHelperStore( stageHelper(
      maintEnterStageHelper(), stageClass, progressDir, completionStatus, agentConfig, agentStatus, root ) );
   maintEnterStageHelper()->hasNotificationActiveIs( true );
   return maintEnterStageHelper();
}

void DrainWatchSm::maintEnterStageHelperDel() { maintEnterStageHelperStore( nullptr ); }

Vel::Ptr< MaintStageHelperSm > DrainWatchSm::maintExitStageHelperIs(
   const Vel::String & stageClass, const ReadOnly< Stage::ProgressDir > & progressDir,
   const ReadOnly< Stage::CompletionStatusDir > & completionStatus,
   const Writable< Stage::AgentConfig > & agentConfig, const Writable< Stage::AgentStatus > & agentStatus,
   DrainWatchSm * root ) {
   maintExitStageHelperStore( stageHelper(
      maintExitStageHelper(), stageClass, progressDir, completionStatus, agentConfig, agentStatus, root ) );
   maintExitStageHelper()->hasNotificationActiveIs( true );
   return maintExitStageHelper();
}

void DrainWatchSm::maintExitStageHelperDel() { maintExitStageHelperStore( nullptr ); }

Vel::Ptr< IntfStatusSm > DrainWatchSm::intfStatusSmIs(
   const Vel::Ptr< Vel::Clock > & clock, const ReadOnly< Interface::AllIntfStatusDir > & allIntfStatusDir,
   const ReadOnly< IntfMaintenance::IntfToGroupDir > & intfToGroupDir,
   const ReadOnly< Maintenance::GroupToUnitDir > & groupToUnitDir,
   const Vel::Ptr< UnitIntfInputDir > & unitMonIntfInput,
   const ReadOnly< IntfGroup::StatusDir > & intfGroupStatusDir, DrainWatchSm * root ) {
   if ( const auto & present = intfStatusSm() ) {
      requireBuiltFrom( "_clock", clock, present->clock() );
      requireBuiltFrom( "_allIntfStatusDir", allIntfStatusDir, present->allIntfStatusDir() );
      requireBuiltFrom( "_intfToGroupDir", intfToGroupDir, present->intfToGroupDir() );
      requireBuiltFrom( "_groupToUnitDir", groupToUnitDir, present->groupToUnitDir() );
      requireBuiltFrom( "_unitMonIntfInput", unitMonIntfInput, present->unitMonIntfInput() );
      requireBuiltFrom( "_intfGroupStatusDir", intfGroupStatusDir, present->intfGroupStatusDir() );
      requireBuiltFrom( "_drainWatchSm", root, present->drainWatchSm() );
      return present;
   }
   intfStatusSmStore( Vel::make< IntfStatusSm >(
      clock, allIntfStatusDir, intfToGroupDir, groupToUnitDir, unitMonIntfInput, intfGroupStatusDir, root ) );
   intfStatusSm()->hasNotificationActiveIs( true );
   return intfStatusSm();
}

void DrainWatchSm::intfStatusSmDel() { intfStatusSmStore( nullptr ); }

Vel::Ptr< Cog::TimerWheel > DrainWatchSm::timerWheelIs(
   const Vel::Ptr< Vel::Clock > & clock, Vel::U32 tickMsecs, Vel::U32 initialMaxTicks, bool preserveOrder,
   Vel::U32 defaultBucketSize ) {
   if ( const auto & present = timerWheel() ) {
      requireBuiltFrom( "_clock", clock, present->clock() );
      requireBuiltFrom( "_tickMsecs", tickMsecs, present->tickMsecs() );
      requireBuiltFrom( "_initialMaxTicks", initialMaxTicks, present->initialMaxTicks() );
      requireBuiltFrom( "_preserveOrder", preserveOrder, present->preserveOrder() );
      requireBuiltFrom( "_defaultBucketSize", defaultBucketSize, present->defaultBucketSize() );
      return present;
   }
   timerWheelStore(
      Vel::make< Cog::TimerWheel >( clock, tickMsecs, initialMaxTicks, preserveOrder, defaultBucketSize ) );
   return timerWheel();
}

void DrainWatchSm::timerWheelDel() { timerWheelStore( nullptr ); }

Vel::Ptr< UnitIntfInputDir > DrainWatchSm::unitMonIntfInputIs() {
   if ( !unitMonIntfInput() ) {
      const auto dir = Vel::make< UnitIntfInputDir >();
      unitMonIntfIndex_ = std::make_unique< UnitIntfIndex >( dir );
      unitMonIntfInputStore( dir );
   }
   return unitMonIntfInput();
}

void DrainWatchSm::unitMonIntfInputDel() {
   unitMonIntfIndex_ = nullptr;
   unitMonIntfInputStore( nullptr );
}

Vel::Ptr< UnitIntfInputDir > DrainWatchSm::unitDrainedIntfIs() {
   if ( !unitDrainedIntf() )
      unitDrainedIntfStore( Vel::make< UnitIntfInputDir >() );
   return unitDrainedIntf();
}

void DrainWatchSm::unitDrainedIntfDel() { unitDrainedIntfStore( nullptr ); }

Vel::Ptr< DrainWatchSmDebugCounters > DrainWatchSm::countersIs() {
   if ( !counters() )
      countersStore( Vel::make< DrainWatchSmDebugCounters >() );
   return counters();
}

void DrainWatchSm::countersDel() { countersStore( nullptr ); }

Vel::Ptr< MonitoredIntfDir > DrainWatchSm::monIntfDirIs() {
   if ( !monIntfDir() )
      monIntfDirStore( Vel::make< MonitoredIntfDir >() );
   return monIntfDir();
}

void DrainWatchSm::monIntfDirDel() { monIntfDirStore( nullptr ); }

Vel::Ptr< IntfRateAggregatorSm > DrainWatchSm::intfRateAggSmIs(
   const Vel::Ptr< const MonitoredIntfDir > & monIntfDir,
   const Vel::Ptr< const Maintenance::MonIntfStatusDir > & monIntfStatusDir,
   const Writable< Maintenance::Unit::StatusDir > & unitStatusDir ) {
   if ( const auto & present = intfRateAggSm() ) {
      requireBuiltFrom( "_monIntfDir", monIntfDir, present->monIntfDir() );
      requireBuiltFrom( "_monIntfStatusDir", monIntfStatusDir, present->monIntfStatusDir() );
      requireBuiltFrom( "_unitStatusDir", unitStatusDir, present->unitStatusDir() );
      return present;
   }
   auto aggregator = Vel::make< IntfRateAggregatorSm >( monIntfDir, monIntfStatusDir, unitStatusDir );
   aggregator->handleInitialized();
   intfRateAggSmStore( aggregator );
   return intfRateAggSm();
}

void DrainWatchSm::intfRateAggSmDel() { intfRateAggSmStore( nullptr ); }

} // namespace MaintenanceMode
