#include "MaintenancePlugin/DrainWatchSm.h"

#include "MaintenancePlugin/PluginTrace.h"
#include "MaintenancePlugin/Reinstantiation.h"
#include "Platform/Cog/ActivityManager.h"

namespace MaintenanceMode {

const Vel::String stageName = "drainwatch";
const Vel::String maintEnterClass = "maintEnter";
const Vel::String maintExitClass = "maintExit";

namespace {
Vel::TraceFacility trace( "DrainWatchSm" );
}

/// If initialisation throws, the members go in the reverse order of their declaration: reactors, children, inputs. Units
/// restored until then are dropped and report nothing.
DrainWatchSm::DrainWatchSm(
   const ReadOnly< AllEthIntfCounterPtrDir > & phyCounterDir, const ReadOnly< Lag::Config > & lagConfigDir,
   const ReadOnly< Bridging::VlanStatusDir > & vlanStatusDir,
   const ReadOnly< Interface::AllIntfStatusDir > & allIntfStatusDir,
   const Writable< Maintenance::Unit::StatusDir > & unitStatusDir,
   const ReadOnly< Maintenance::MaintenanceGroup::ConfigDir > & maintenanceGroupDir,
   const ReadOnly< IntfGroup::StatusDir > & intfGroupStatusDir,
   const ReadOnly< IntfMaintenanceProfile::StatusDir > & intfProfileStatusDir,
   const ReadOnly< IntfMaintenance::IntfToGroupDir > & intfToGroupDir,
   const ReadOnly< Maintenance::GroupToUnitDir > & groupToUnitDir,
   const Writable< Errdisable::CauseStatus > & errDisableCauseStatus,
   const Writable< Maintenance::MonIntfStatusDir > & monIntfStatusDir,
   const ReadOnly< Maintenance::Profile::DefaultProfile > & defaultIntfProfile,
   const ReadOnly< Stage::CompletionStatusDir > & maintEnterCompletionStatus,
   const ReadOnly< Stage::CompletionStatusDir > & maintExitCompletionStatus,
   const Writable< Stage::AgentConfig > & maintEnterAgentConfig,
   const Writable< Stage::AgentConfig > & maintExitAgentConfig,
   const Writable< Stage::AgentStatus > & maintEnterAgentStatus,
   const Writable< Stage::AgentStatus > & maintExitAgentStatus,
   const ReadOnly< Stage::ProgressDir > & maintEnterProgressDir,
   const ReadOnly< Stage::ProgressDir > & maintExitProgressDir )
   : phyCounterDir_( phyCounterDir ),
     lagConfigDir_( lagConfigDir ),
     vlanStatusDir_( vlanStatusDir ),
     allIntfStatusDir_( allIntfStatusDir ),
     maintenanceGroupDir_( maintenanceGroupDir ),
     intfGroupStatusDir_( intfGroupStatusDir ),
     intfToGroupDir_( intfToGroupDir ),
     groupToUnitDir_( groupToUnitDir ),
     errDisableCauseStatus_( errDisableCauseStatus ),
     monIntfStatusDir_( monIntfStatusDir ),
     maintEnterCompletionStatus_( maintEnterCompletionStatus ),
     maintExitCompletionStatus_( maintExitCompletionStatus ),
     maintEnterAgentConfig_( maintEnterAgentConfig ),
     maintExitAgentConfig_( maintExitAgentConfig ),
     maintEnterAgentStatus_( maintEnterAgentStatus ),
     maintExitAgentStatus_( maintExitAgentStatus ),
     maintEnterProgressDir_( maintEnterProgressDir ),
     maintExitProgressDir_( maintExitProgressDir ) {
   unitStatusDirIs( unitStatusDir );
   intfProfileStatusDirIs( intfProfileStatusDir );
   defaultIntfProfileIs( defaultIntfProfile );
   handleInitialized();
}

DrainWatchSm::~DrainWatchSm() {
   prepareToDie();
   velDoZombieReactors( true );
   // The helpers go first: what the units still report while they are emptied must reach nobody.
   maintEnterStageHelperDel();
   maintExitStageHelperDel();
   unitMonDelAll();
   intfMonDelAll();
   intfStatusSmDel();
   timerWheelDel();
   unitMonIntfInputDel();
   unitDrainedIntfDel();
   countersDel();
   monIntfDirDel();
   intfRateAggSmDel();
}

void DrainWatchSm::prepareToDie() { TRACE( 4, "called" ); }

void DrainWatchSm::hasNotificationActiveIs( bool active ) {
   notificationActive_ = active;
   velDoZombieReactors( !active );
}

void DrainWatchSm::velDoZombieReactors( bool on ) {
   const bool active = notificationActive_ && !on;
   unitStatusDirReactor_.hasNotificationActiveIs( active );
   intfProfileStatusDirReactor_.hasNotificationActiveIs( active );
   defaultIntfProfileReactor_.hasNotificationActiveIs( active );
}

void DrainWatchSm::handleInitialized() {
   TRACE( 4, "called" );
   VEL_ASSERT( !initialized(), "!initialized()" );
   const auto clock = Cog::activityManager().clock();
   timerWheelIs( clock, 1000, 1800, true, 1024 );
   countersIs();
   unitMonIntfInputIs();
   unitDrainedIntfIs();
   monIntfDirIs();
   maintEnterStageHelperIs(
      maintEnterClass, maintEnterProgressDir(), maintEnterCompletionStatus(), maintEnterAgentConfig(),
      maintEnterAgentStatus(), this );
   maintExitStageHelperIs(
      maintExitClass, maintExitProgressDir(), maintExitCompletionStatus(), maintExitAgentConfig(),
      maintExitAgentStatus(), this );

   markRecordsStale();
   restoreUnits();
   deleteStaleRecords();

   intfStatusSmIs(
      clock, allIntfStatusDir(), intfToGroupDir(), groupToUnitDir(), unitMonIntfInput(), intfGroupStatusDir(),
      this );
   intfRateAggSmIs( monIntfDir(), monIntfStatusDir(), unitStatusDir() );
   TRACE( 4, "DrainWatchSm - initialized" );
   FASTLOG( "DrainWatchSm - initialized" );
   initializedIs( true );
}

// ---- the inputs that may be replaced

void DrainWatchSm::unitStatusDirIs( const Writable< Maintenance::Unit::StatusDir > & dir ) {
   if ( dir == unitStatusDir() )
      return;
   if ( dir )
      unitStatusDirReactor_.is( dir, this ).hasNotificationActiveIs( notificationActive_ );
   else
      unitStatusDirReactor_.del();
   unitStatusDirStore( dir );
}

void DrainWatchSm::intfProfileStatusDirIs( const ReadOnly< IntfMaintenanceProfile::StatusDir > & dir ) {
   if ( dir == intfProfileStatusDir() )
      return;
   if ( dir )
      intfProfileStatusDirReactor_.is( dir, this ).hasNotificationActiveIs( notificationActive_ );
   else
      intfProfileStatusDirReactor_.del();
   intfProfileStatusDirStore( dir );
}

void DrainWatchSm::defaultIntfProfileIs( const ReadOnly< Maintenance::Profile::DefaultProfile > & profile ) {
   if ( profile == defaultIntfProfile() )
      return;
   if ( profile )
      defaultIntfProfileReactor_.is( profile, this ).hasNotificationActiveIs( notificationActive_ );
   else
      defaultIntfProfileReactor_.del();
   defaultIntfProfileStore( profile );
}

} // namespace MaintenanceMode
