#include "MaintenancePlugin/PublicSurface.h"

/// The operations that others may rely on: what each takes and gives. All of it is checked while this is compiled.
namespace MaintenanceMode {
namespace {

/// An operation as the types of what it takes and gives, whether by value or by reference.
template < class F >
struct Shape;
template < class R, class... A >
struct Shape< R ( * )( A... ) > {
   using Type = std::remove_cvref_t< R >( std::remove_cvref_t< A >... );
};
template < class R, class T, class... A >
struct Shape< R ( T::* )( A... ) > : Shape< R ( * )( A... ) > {};
template < class R, class T, class... A >
struct Shape< R ( T::* )( A... ) const > {
   using Type = std::remove_cvref_t< R >( std::remove_cvref_t< A >... ) const;
};

/// OPERATION( Type::name, Result( Arguments... ) const )
#define OPERATION( name, ... )                                                                               \
   static_assert( std::is_same_v< Shape< decltype( &name ) >::Type, __VA_ARGS__ > )
/// A value: read, and set by the operation named after it.
#define VALUE( name, ... )                                                                                   \
   OPERATION( name, __VA_ARGS__() const );                                                                   \
   OPERATION( name##Is, void( __VA_ARGS__ ) )
/// A child: read, and released by the operation named after it. It is made by one of its own.
#define CHILD( name, ... )                                                                                   \
   OPERATION( name, Ptr< __VA_ARGS__ >() const );                                                            \
   OPERATION( name##Del, void() )
#define COUNTER( name )                                                                                      \
   VALUE( name, U32 );                                                                                       \
   OPERATION( name##Inc, void( U32 ) )

template < class... Inputs >
using MakesRoot = Ptr< DrainWatchSm >( Inputs... );

namespace PlugIn {
OPERATION( DrainWatchPlugin::init, void( Maintenance::PluginContext * ) );
static_assert( std::is_base_of_v< Maintenance::PluginBase< Maintenance::PluginContext >, DrainWatchPlugin > );
} // namespace PlugIn

namespace Loader {
using T = DrainWatchSmLoader;
static_assert( std::is_base_of_v< Ledger::Mounter, T > );
VALUE( T::ethIntfCounterWriterStatusDir, Ptr< const Vel::Dir > );
CHILD( T::ethIntfCounterReaderSm, Interface::EthIntfCounterReaderSm );
VALUE( T::phyCounterDir, Ptr< const AllEthIntfCounterPtrDir > );
VALUE( T::lagConfigDir, Ptr< const Lag::Config > );
VALUE( T::vlanStatusDir, Ptr< const Bridging::VlanStatusDir > );
VALUE( T::allIntfStatusDir, Ptr< const Interface::AllIntfStatusDir > );
VALUE( T::unitStatusDir, Ptr< Maintenance::Unit::StatusDir > );
VALUE( T::maintenanceGroupDir, Ptr< const Maintenance::MaintenanceGroup::ConfigDir > );
VALUE( T::intfGroupStatusDir, Ptr< const IntfGroup::StatusDir > );
VALUE( T::intfProfileStatusDir, Ptr< const IntfMaintenanceProfile::StatusDir > );
VALUE( T::intfToGroupDir, Ptr< const IntfMaintenance::IntfToGroupDir > );
VALUE( T::groupToUnitDir, Ptr< const Maintenance::GroupToUnitDir > );
VALUE( T::errDisableCauseStatus, Ptr< Errdisable::CauseStatus > );
VALUE( T::monIntfStatusDir, Ptr< Maintenance::MonIntfStatusDir > );
VALUE( T::defaultIntfProfile, Ptr< const Maintenance::Profile::DefaultProfile > );
VALUE( T::maintEnterCompletionStatus, CompletionStatusDir );
VALUE( T::maintExitCompletionStatus, CompletionStatusDir );
VALUE( T::maintEnterProgressDir, ProgressDir );
VALUE( T::maintExitProgressDir, ProgressDir );
VALUE( T::maintEnterAgentConfig, AgentConfig );
VALUE( T::maintExitAgentConfig, AgentConfig );
VALUE( T::maintEnterAgentStatus, AgentStatus );
VALUE( T::maintExitAgentStatus, AgentStatus );
CHILD( T::drainWatchSm, DrainWatchSm );
CHILD( T::pluginInfoDumper, DrainWatchPluginInfoDumper );
VALUE( T::context, Ptr< Maintenance::PluginContext > );
OPERATION(
   T::ethIntfCounterReaderSmIs,
   Ptr< Interface::EthIntfCounterReaderSm >( Ptr< VelPool::EntityManager >, Ptr< const Vel::Dir > ) );
OPERATION( T::drainWatchSmIs, RootInputs< MakesRoot > );
OPERATION( T::pluginInfoDumperIs, Ptr< DrainWatchPluginInfoDumper >( String ) );
OPERATION( T::init, void( Ptr< Maintenance::PluginContext > ) );
OPERATION( T::doMountsComplete, void( Ledger::MountStatus, Ptr< Ledger::EntityManager > ) );
OPERATION( T::initErrdisableEntity, void( Ptr< Ledger::EntityManager > ) );
OPERATION( T::prepareToDie, void() );
} // namespace Loader

namespace Dumper {
using T = DrainWatchPluginInfoDumper;
static_assert( std::is_base_of_v< Maintenance::DumpPluginInfo, T > );
OPERATION( T::name, String() const );
OPERATION( T::context, DrainWatchSmLoader *() const );
OPERATION( T::contextIs, void( DrainWatchSmLoader * ) );
OPERATION( T::dump, void( unsigned ) const );
} // namespace Dumper

namespace StageHelper {
using T = MaintStageHelperSm;
OPERATION( T::stageClass, String() const );
OPERATION( T::progressDir, ProgressDir() const );
OPERATION( T::maintStageCompletionStatus, CompletionStatusDir() const );
OPERATION( T::agentConfig, AgentConfig() const );
OPERATION( T::agentStatus, AgentStatus() const );
OPERATION( T::root, DrainWatchSm *() const );
OPERATION( T::progress, T::VelProgress *( Vel::Name ) const );
OPERATION( T::progressIs, T::VelProgress *(Vel::Name, Ptr< const Stage::Progress >));
OPERATION( T::progressDel, bool( Vel::Name ) );
VALUE( T::initialized, bool );
OPERATION( T::handleInitialized, void() );
OPERATION( T::doStageCompleteForInstance, void( String, Vel::Name ) );
OPERATION( T::handleMaintInstStatusDel, void( Vel::Name ) );
OPERATION( T::VelProgressDir::onProgress, void( Vel::Name ) );
OPERATION( T::VelProgress::onStage, void() );
OPERATION( T::VelProgress::handleStage, void( String ) );
OPERATION( T::VelMaintStageCompletionStatus::onStatus, void( Vel::Name ) );
OPERATION( setStageEventComplete, void( AgentStatus, String, Vel::Name, bool ) );
} // namespace StageHelper

namespace Root {
using T = DrainWatchSm;
OPERATION( T::phyCounterDir, Ptr< const AllEthIntfCounterPtrDir >() const );
OPERATION( T::lagConfigDir, Ptr< const Lag::Config >() const );
OPERATION( T::vlanStatusDir, Ptr< const Bridging::VlanStatusDir >() const );
OPERATION( T::allIntfStatusDir, Ptr< const Interface::AllIntfStatusDir >() const );
VALUE( T::unitStatusDir, Ptr< Maintenance::Unit::StatusDir > );
OPERATION( T::unitStatusDirDel, void() );
OPERATION( T::maintenanceGroupDir, Ptr< const Maintenance::MaintenanceGroup::ConfigDir >() const );
OPERATION( T::intfGroupStatusDir, Ptr< const IntfGroup::StatusDir >() const );
VALUE( T::intfProfileStatusDir, Ptr< const IntfMaintenanceProfile::StatusDir > );
OPERATION( T::intfProfileStatusDirDel, void() );
OPERATION( T::intfToGroupDir, Ptr< const IntfMaintenance::IntfToGroupDir >() const );
OPERATION( T::groupToUnitDir, Ptr< const Maintenance::GroupToUnitDir >() const );
OPERATION( T::errDisableCauseStatus, Ptr< Errdisable::CauseStatus >() const );
OPERATION( T::monIntfStatusDir, Ptr< Maintenance::MonIntfStatusDir >() const );
VALUE( T::defaultIntfProfile, Ptr< const Maintenance::Profile::DefaultProfile > );
OPERATION( T::defaultIntfProfileDel, void() );
OPERATION( T::maintEnterCompletionStatus, CompletionStatusDir() const );
OPERATION( T::maintExitCompletionStatus, CompletionStatusDir() const );
OPERATION( T::maintEnterAgentConfig, AgentConfig() const );
OPERATION( T::maintExitAgentConfig, AgentConfig() const );
OPERATION( T::maintEnterAgentStatus, AgentStatus() const );
OPERATION( T::maintExitAgentStatus, AgentStatus() const );
OPERATION( T::maintEnterProgressDir, ProgressDir() const );
OPERATION( T::maintExitProgressDir, ProgressDir() const );
VALUE( T::initialized, bool );
OPERATION( T::handleInitialized, void() );
OPERATION( T::prepareToDie, void() );
OPERATION( T::hasNotificationActiveIs, void( bool ) );
OPERATION( T::velDoZombieReactors, void( bool ) );
OPERATION( T::getRefCount, U32() const );

using MakesHelper = Ptr< MaintStageHelperSm >(
   String, ProgressDir, CompletionStatusDir, AgentConfig, AgentStatus, DrainWatchSm * );
CHILD( T::maintEnterStageHelper, MaintStageHelperSm );
OPERATION( T::maintEnterStageHelperIs, MakesHelper );
CHILD( T::maintExitStageHelper, MaintStageHelperSm );
OPERATION( T::maintExitStageHelperIs, MakesHelper );
CHILD( T::intfStatusSm, IntfStatusSm );
OPERATION(
   T::intfStatusSmIs,
   Ptr< IntfStatusSm >(
      Ptr< Vel::Clock >, Ptr< const Interface::AllIntfStatusDir >,
      Ptr< const IntfMaintenance::IntfToGroupDir >, Ptr< const Maintenance::GroupToUnitDir >,
      Ptr< UnitIntfInputDir >, Ptr< const IntfGroup::StatusDir >, DrainWatchSm * ) );
CHILD( T::timerWheel, Cog::TimerWheel );
OPERATION( T::timerWheelIs, Ptr< Cog::TimerWheel >( Ptr< Vel::Clock >, U32, U32, bool, U32 ) );
CHILD( T::unitMonIntfInput, UnitIntfInputDir );
OPERATION( T::unitMonIntfInputIs, Ptr< UnitIntfInputDir >() );
CHILD( T::unitDrainedIntf, UnitIntfInputDir );
OPERATION( T::unitDrainedIntfIs, Ptr< UnitIntfInputDir >() );
CHILD( T::counters, DrainWatchSmDebugCounters );
OPERATION( T::countersIs, Ptr< DrainWatchSmDebugCounters >() );
CHILD( T::monIntfDir, MonitoredIntfDir );
OPERATION( T::monIntfDirIs, Ptr< MonitoredIntfDir >() );
CHILD( T::intfRateAggSm, IntfRateAggregatorSm );
OPERATION(
   T::intfRateAggSmIs, Ptr< IntfRateAggregatorSm >(
                          Ptr< const MonitoredIntfDir >, Ptr< const Maintenance::MonIntfStatusDir >,
                          Ptr< Maintenance::Unit::StatusDir > ) );

OPERATION( T::VelUnitStatusDir::onStatus, void( Vel::Name ) );
OPERATION( T::VelIntfProfileStatusDir::onStatus, void( String ) );
OPERATION( T::VelDefaultIntfProfile::onProfileName, void() );

OPERATION( T::doStageForInstance, void( String, String, Vel::Name ) );
OPERATION( T::handleUnitMaintenanceEnter, void( String, U32 ) );
OPERATION( T::handleUnitMaintenanceExit, void( String, U32 ) );
OPERATION( T::handleUnitStatus, void( String ) );
OPERATION( T::notifyStageCompletion, void( String, U32, Maintenance::Unit::MaintenanceOp ) );
OPERATION( T::unitMon, UnitMonSm *( String ) const );
OPERATION(
   T::unitMonIs,
   Ptr< UnitMonSm >( String, U32, DrainWatchSm *, Ptr< UnitIntfInput >, Ptr< UnitIntfInput > ) );
OPERATION( T::unitMonDel, void( String ) );
OPERATION( T::unitMonDelAll, void() );

OPERATION( T::getIntfProfileName, String( IntfId ) const );
OPERATION( T::getIntfProfile, Ptr< const Profile >( IntfId ) const );
OPERATION( T::usingDefaultProfile, bool( IntfId ) const );
OPERATION( T::handleIntfProfileStatus, void( String ) );
OPERATION( T::handleDefaultIntfProfile, void() );

OPERATION( T::intfMon, IntfMonSm *( IntfId ) const );
OPERATION(
   T::intfMonIs, Ptr< IntfMonSm >(
                    IntfId, Ptr< const Cog::TimerWheel >, Ptr< const Profile >, DrainWatchSm *,
                    Ptr< MonitoredIntf >, MonIntfState ) );
OPERATION( T::intfMonDel, void( IntfId ) );
OPERATION( T::intfMonDelAll, void() );
OPERATION( T::startIntfMonInUnits, void( IntfId ) );
OPERATION( T::stopIntfMonInUnits, void( IntfId ) );
OPERATION( T::delFromViolatingIntfsCollection, void( IntfId ) );
OPERATION( T::dump, void( int, unsigned ) const );
} // namespace Root

namespace Counters {
using T = DrainWatchSmDebugCounters;
COUNTER( T::numMaintEnter );
COUNTER( T::numMaintExit );
COUNTER( T::numMaintExitNoUnitMon );
COUNTER( T::numMaintEnterUnitMonPresent );
COUNTER( T::numMaintExitInMaintModeEnter );
COUNTER( T::numNotifyStageCompletion );
COUNTER( T::numUnitStatusDel );
COUNTER( T::numNoVlanStatus );
COUNTER( T::numNoIntfCounter );
COUNTER( T::numNoNotifyNoStageInput );
COUNTER( T::numNoNotifyActiveStageMismatch );
COUNTER( T::numNoNotifyAlreadyNotified );
COUNTER( T::numNoNotifyNoUnitStatus );
COUNTER( T::numIntfMonInitialStatePassive );
COUNTER( T::numStartIntfMonInUnits );
COUNTER( T::numStopIntfMonInUnits );
COUNTER( T::numIntfMonProfileChange );
COUNTER( T::numIntfMonProfileDelete );
COUNTER( T::numIntfMonPendingProfileResolved );
COUNTER( T::numIntfMonDefProfileUpdate );
COUNTER( T::numIntfMonIntfNotSupported );
COUNTER( T::numIntfMonNoIntfStatus );
COUNTER( T::numIntfMonIntfOperNotUp );
} // namespace Counters

namespace UnitMonitor {
using T = UnitMonSm;
OPERATION( T::unitName, String() const );
VALUE( T::genId, U32 );
OPERATION( T::rootSm, DrainWatchSm *() const );
OPERATION( T::monIntf, Ptr< UnitIntfInput >() const );
OPERATION( T::drainedIntf, Ptr< UnitIntfInput >() const );
VALUE( T::initialized, bool );
OPERATION(
   T::UnitMonSmIs,
   Ptr< UnitMonSm >( String, U32, DrainWatchSm *, Ptr< UnitIntfInput >, Ptr< UnitIntfInput > ) );
OPERATION( T::handleInitialized, void() );
OPERATION( T::startIntfMon, void( IntfId ) );
OPERATION( T::stopIntfMon, void( IntfId ) );
OPERATION( T::handleMonIntf, void( IntfId ) );
OPERATION( T::handleDrainedIntf, void( IntfId ) );
OPERATION( T::checkDrainedIntfsAndReport, void() );
OPERATION( T::prepareToDie, void() );
OPERATION( T::dump, void( int, unsigned ) const );
OPERATION( T::unApplyCurrentProfile, void( String, IntfId, Ptr< IntfMonSm >, DrainWatchSm * ) );
OPERATION( T::VelMonIntf::onIntf, void( IntfId ) );
OPERATION( T::VelDrainedIntf::onIntf, void( IntfId ) );
} // namespace UnitMonitor

namespace IntfMonitor {
using T = IntfMonSm;
OPERATION( T::intf, IntfId() const );
VALUE( T::clock, Ptr< const Cog::TimerWheel > );
VALUE( T::intfProfile, Ptr< const Profile > );
OPERATION( T::rootSm, DrainWatchSm *() const );
OPERATION( T::monitoredIntf, Ptr< MonitoredIntf >() const );
OPERATION( T::initialState, MonIntfState() const );
VALUE( T::state, MonIntfState );
VALUE( T::initialized, bool );
VALUE( T::oldProfileName, String );
OPERATION(
   T::IntfMonSmIs, Ptr< IntfMonSm >(
                      IntfId, Ptr< const Cog::TimerWheel >, Ptr< const Profile >, DrainWatchSm *,
                      Ptr< MonitoredIntf >, MonIntfState ) );
OPERATION( T::handleInitialized, void() );
OPERATION( T::handleState, void() );
OPERATION( T::setMonitoringTimer, void() );
OPERATION( T::setThresholdMonitoringTimeout, void() );
OPERATION( T::setPassiveMonitoringTimeout, void() );
OPERATION( T::stopTimer, void() );
OPERATION( T::handleTimeout, void() );
OPERATION( T::isTrafficBelowThreshold, bool() const );
OPERATION( T::updateCounters, void() );
OPERATION( T::hasTrafficDrained, bool() const );
OPERATION( T::doMaintenanceShutdown, bool( bool ) );
OPERATION( T::notifyDependentUnits, void() );
OPERATION( T::updateDependentUnitStatus, void( bool ) );
OPERATION( T::handleProfile, void() );
OPERATION( T::handleProfileUpdate, void() );
OPERATION( T::processProfileUpdate, void() );
OPERATION( T::dump, void( int, unsigned ) const );
OPERATION( T::VelClock::onTime, void() );
OPERATION( T::VelIntfProfile::onShutdown, void() );
} // namespace IntfMonitor

namespace Sampler {
using T = MonitoredIntf;
OPERATION( T::intfId, IntfId() const );
OPERATION( T::drainWatchSm, DrainWatchSm *() const );
VALUE( T::profileName, String );
VALUE( T::monIntfStatus, Ptr< Maintenance::MonIntfStatus > );
OPERATION( T::dependentUnit, const bool *( String ) const );
OPERATION( T::dependentUnitIs, void( String, bool ) );
OPERATION( T::dependentUnitDel, bool( String ) );
OPERATION( T::memberTrafficCounters, IntfCounterInfo *( IntfId ) const );
OPERATION( T::memberTrafficCountersDelAll, void() );
VALUE( T::initialized, bool );
OPERATION( T::handleInitialized, void() );
OPERATION( T::handleProfileName, void() );
OPERATION( T::prepareToDie, void() );
OPERATION( T::updateTrafficRates, void() );
OPERATION( T::getEthPhyIntfTrafficCounters, Interface::IntfRates( IntfId ) );
OPERATION( T::getLagIntfTrafficCounters, Interface::IntfRates( IntfId ) );
OPERATION( T::getVlanIntfTrafficCounters, Interface::IntfRates( IntfId ) );
OPERATION( T::setCurRates, void( Ptr< Maintenance::MonIntfStatus >, Interface::IntfRates ) );
OPERATION( T::dump, void( int, unsigned ) const );
OPERATION( isSupportedIntf, bool( IntfId ) );

OPERATION( MonitoredIntfDir::monitoredIntf, MonitoredIntf *( IntfId ) const );
OPERATION( MonitoredIntfDir::monitoredIntfDel, bool( IntfId ) );
static_assert(
   requires( MonitoredIntfDir & dir, const IntfId & intf, DrainWatchSm * root, const String & p ) {
      { dir.monitoredIntfIs( intf, root, p ) } -> std::same_as< MonitoredIntf * >;
   } );

OPERATION( IntfCounterInfo::intfId, IntfId() const );
VALUE( IntfCounterInfo::prevStats, OctetCounts );
static_assert( std::is_same_v< U64, decltype( OctetCounts::inOctets ) > );
static_assert( std::is_same_v< Cog::MaybeU63, decltype( OctetCounts::outOctets ) > );
VALUE( IntfCounterInfo::lastUpdateTime, double );
VALUE( IntfCounterInfo::rates, Interface::IntfRates );
} // namespace Sampler

namespace Aggregator {
using T = IntfRateAggregatorSm;
OPERATION( T::monIntfDir, Ptr< const MonitoredIntfDir >() const );
OPERATION( T::monIntfStatusDir, Ptr< const Maintenance::MonIntfStatusDir >() const );
OPERATION( T::unitStatusDir, Ptr< Maintenance::Unit::StatusDir >() const );
OPERATION( T::monitoredIntf, T::VelMonitoredIntf *( IntfId ) const );
OPERATION( T::monitoredIntfIs, T::VelMonitoredIntf *(IntfId, Ptr< const MonitoredIntf >));
OPERATION( T::monitoredIntfDel, bool( IntfId ) );
OPERATION( T::monIntfStatus, T::VelMonIntfStatus *( IntfId ) const );
OPERATION( T::monIntfStatusIs, T::VelMonIntfStatus *(IntfId, Ptr< const Maintenance::MonIntfStatus >));
OPERATION( T::monIntfStatusDel, bool( IntfId ) );
VALUE( T::initialized, bool );
OPERATION( T::handleInitialized, void() );
using Maintenance::Unit::TrafficRates;
OPERATION(
   T::calculateNewAggregate,
   TrafficRates( String, IntfId, TrafficRates, Interface::IntfRates, Interface::IntfRates ) const );
OPERATION( T::VelMonIntfDir::onMonitoredIntf, void( IntfId ) );
OPERATION( T::VelMonIntfStatusDir::onMonIntfStatus, void( IntfId ) );
OPERATION( T::VelMonitoredIntf::onDependentUnit, void( String ) );
OPERATION( T::VelMonitoredIntf::handleMonitoredIntfConfigChange, void( String ) );
OPERATION( T::VelMonIntfStatus::onCurRates, void() );
OPERATION( T::VelMonIntfStatus::handleMonIntfStatusRateChange, void() );
} // namespace Aggregator

namespace Inputs {
OPERATION( UnitIntfInput::name, String() const );
OPERATION( UnitIntfInput::intf, const bool *( IntfId ) const );
OPERATION( UnitIntfInput::intfIs, void( IntfId, bool ) );
OPERATION( UnitIntfInput::intfDel, bool( IntfId ) );
OPERATION( UnitIntfInput::intfDelAll, void() );
OPERATION( UnitIntfInput::intfs, U32() const );
OPERATION( UnitIntfInputDir::unitIntfInput, UnitIntfInput *( String ) const );
OPERATION( UnitIntfInputDir::unitIntfInputDel, bool( String ) );
static_assert( requires( UnitIntfInputDir & dir, const String & unitName ) {
   { dir.unitIntfInputIs( unitName ) } -> std::same_as< UnitIntfInput * >;
} );
} // namespace Inputs

namespace Tracker {
using T = IntfStatusSm;
static_assert( std::is_base_of_v< Cog::CodefBase, T > );
OPERATION( T::clock, Ptr< Vel::Clock >() const );
OPERATION( T::allIntfStatusDir, Ptr< const Interface::AllIntfStatusDir >() const );
OPERATION( T::intfToGroupDir, Ptr< const IntfMaintenance::IntfToGroupDir >() const );
OPERATION( T::groupToUnitDir, Ptr< const Maintenance::GroupToUnitDir >() const );
OPERATION( T::unitMonIntfInput, Ptr< UnitIntfInputDir >() const );
OPERATION( T::intfGroupStatusDir, Ptr< const IntfGroup::StatusDir >() const );
OPERATION( T::drainWatchSm, DrainWatchSm *() const );
VALUE( T::bookmark, IntfId );
OPERATION( T::backlogSize, U64() const );
VALUE( T::backlogQuantum, double );
OPERATION( T::updatesSeen, U64() const );
OPERATION( T::updatesProcessed, U64() const );
OPERATION( T::updatesCoalesced, U64() const );
OPERATION( T::dispatchCount, U64() const );
OPERATION( T::yieldBeforeFinishingCount, U64() const );
OPERATION( T::warm, bool() const );
OPERATION( T::timeUsed, double() const );
OPERATION( T::addToBacklog, void( IntfId ) );
OPERATION( T::processBacklog, U64( double ) );
OPERATION( T::processIntf, void( IntfId ) );
OPERATION( T::processProfileChange, void( IntfId ) );
OPERATION( T::dump, void( int, unsigned ) const );
OPERATION( T::VelAllIntfStatusDir::onIntfStatus, void( IntfId ) );
OPERATION( T::VelIntfStatus::onOperStatus, void() );
OPERATION( T::VelIntfStatus::handleInitialized, void() );
OPERATION( T::VelIntfStatus::handleIntfOperStatus, void() );
OPERATION( T::VelIntfStatus::handleIntfStatusDel, void() );
OPERATION( T::VelIntfToGroupDir::onIntfToGroup, void( IntfId ) );
OPERATION( T::VelIntfToGroup::onGroup, void( Maintenance::GroupKey ) );
OPERATION( T::VelIntfToGroup::onSelectedProfile, void( Maintenance::Profile::ProfileType ) );
OPERATION( T::VelIntfToGroup::handleInitialized, void() );
OPERATION( T::VelIntfToGroup::handleIntfToGroupMembershipChange, void( Maintenance::GroupKey ) );
OPERATION( T::VelIntfToGroup::handleSelectedProfile, void( Maintenance::Profile::ProfileType ) );
OPERATION( T::VelIntfToGroup::handleIntfToGroupDel, void() );
OPERATION( T::VelGroupToUnitDir::onGroupToUnit, void( Maintenance::GroupKey ) );
OPERATION( T::VelGroupToUnit::onUnitName, void( String ) );
OPERATION( T::VelGroupToUnit::handleGroupToUnitMembershipChange, void( String ) );
OPERATION(
   isIntfMemberOfUnit, bool(
                          IntfId, String, Ptr< const IntfMaintenance::IntfToGroupDir >,
                          Ptr< const Maintenance::GroupToUnitDir > ) );
} // namespace Tracker

} // namespace
} // namespace MaintenanceMode
