#include "MaintenancePlugin/DrainWatchSmLoader.h"

#include "MaintenancePlugin/PluginTrace.h"
#include "Platform/Ledger/Cell.h"
#include "Platform/Maintenance/ErrdisableLib.h"

#include <tuple>

namespace MaintenanceMode {

namespace {
Vel::TraceFacility trace( "DrainWatchSmLoader" );

const Vel::String maintenanceShutdown = "maintenance-shutdown";

/// The entity of a path, null if there is none or it is of another type.
template < class T >
Vel::Ptr< T > mounted( const Vel::Ptr< Ledger::EntityManager > & entityManager, const Vel::String & path ) {
   return Vel::ptrCast< T >( entityManager->getEntity( path ) );
}

template < class T >
Vel::Ptr< T > mountedInCell( const Vel::Ptr< Ledger::EntityManager > & entityManager, const char * path ) {
   return mounted< T >( entityManager, Cell::path( path, 0 ) );
}
} // namespace

DrainWatchSmLoader::DrainWatchSmLoader( const Vel::String & name ) : Mounter( name ) {}

DrainWatchSmLoader::~DrainWatchSmLoader() {
   prepareToDie();
   ethIntfCounterReaderSmDel();
   drainWatchSmDel();
   pluginInfoDumperDel();
}

void DrainWatchSmLoader::prepareToDie() { TRACE_SIGNATURE( 4, "called" ); }

std::vector< Ledger::Mount > DrainWatchSmLoader::mounts() {
   struct Row {
      const char * path;
      bool inCell;
      const char * typeName;
      const char * mode;
   };
   // The group configuration stands here twice, and some of these are mounted and never read: the list is what the
   // plug-in announces to the store.
   static constexpr Row rows[] = {
      { "interface/ethIntfCounter/writerStatus", false, "Vel::Dir", "ri" },
      { "interface/config/eth/lag", false, "Interface::EthLagIntfConfigDir", "r" },
      { "lag/config", false, "Lag::Config", "r" },
      { "lag/input/config", false, "Vel::Dir", "ri" },
      { "bridging/vlan/status", false, "Bridging::VlanStatusDir", "r" },
      { "maintenance/unit/status", false, "Maintenance::Unit::StatusDir", "r" },
      { "maintenance/group/config", false, "Maintenance::MaintenanceGroup::ConfigDir", "r" },
      { "group/status/interface", false, "IntfGroup::StatusDir", "r" },
      { "maintenance/profile/status/interface", false, "IntfMaintenanceProfile::StatusDir", "r" },
      { "maintenance/mapping/member/interface", false, "IntfMaintenance::IntfToGroupDir", "r" },
      { "maintenance/mapping/group", false, "Maintenance::GroupToUnitDir", "r" },
      { "interface/errdisable/cause/maintenance-shutdown", false, "Errdisable::CauseStatus", "wc" },
      { "interface/errdisable/causegroup/maintenance-shutdown", false, "Errdisable::CauseGroup", "wc" },
      { "maintenance/interface/status/drainwatch", false, "Maintenance::MonIntfStatusDir", "w" },
      { "maintenance/profile/config/default/interface", false, "Maintenance::Profile::DefaultProfile", "r" },
      { "maintenance/group/config", false, "Maintenance::MaintenanceGroup::ConfigDir", "r" },
      { "stageInput/maintEnter/MaintenanceMode", true, "Stage::AgentConfig", "r" },
      { "stageInput/maintExit/MaintenanceMode", true, "Stage::AgentConfig", "r" },
      { "stageAgentStatus/maintEnter/MaintenanceMode", true, "Stage::AgentStatus", "w" },
      { "stageAgentStatus/maintExit/MaintenanceMode", true, "Stage::AgentStatus", "w" },
      { "stage/maintEnter/progress", true, "Stage::ProgressDir", "r" },
      { "stage/maintExit/progress", true, "Stage::ProgressDir", "r" },
      { "stage/maintEnter/completionstatus", true, "Stage::CompletionStatusDir", "r" },
      { "stage/maintExit/completionstatus", true, "Stage::CompletionStatusDir", "r" },
   };
   std::vector< Ledger::Mount > result;
   for ( const Row & row : rows )
      result.emplace_back( row.inCell ? Cell::path( row.path, 0 ) : row.path, row.typeName, row.mode );
   return result;
}

void DrainWatchSmLoader::init( const Vel::Ptr< Maintenance::PluginContext > & context ) {
   TRACE_TEXT( 4, "DrainWatchSmLoader::init" );
   FASTLOG( "DrainWatchSmLoader - init" );
   contextIs( context );
   const auto dumper = pluginInfoDumperIs( "DrainWatchPlugin" );
   dumper->contextIs( this );
   context->dumpPluginInfoIs( dumper );

   const auto mountGroup = context->entityManager()->getMountGroup( this );
   for ( const Ledger::Mount & mount : mounts() )
      mountGroup->doMount( mount );
   mountGroup->doClose( false, "", 0.0 );
   TRACE_TEXT( 4, "DrainWatchSmLoader::init - completed all doMounts" );
   FASTLOG( "DrainWatchSmLoader::init - completed all doMounts" );
}

void DrainWatchSmLoader::doMountsComplete(
   Ledger::MountStatus mountStatus, const Vel::Ptr< Ledger::EntityManager > & entityManager ) {
   if ( mountStatus != Ledger::mountSuccess_ )
      TRACE( 1, mountStatus.text() );
   VEL_ASSERT( mountStatus == Ledger::mountSuccess_, "mountStatus == Ledger::mountSuccess_" );
   TRACE_TEXT( 4, "DrainWatchSmLoader::doMountsComplete" );
   FASTLOG( "DrainWatchSmLoader - doMountsComplete" );

   initErrdisableEntity( entityManager );
   ethIntfCounterWriterStatusDirIs(
      mounted< const Vel::Dir >( entityManager, "interface/ethIntfCounter/writerStatus" ) );
   const auto reader =
      ethIntfCounterReaderSmIs( context()->velPoolEntityManager(), ethIntfCounterWriterStatusDir() );
   reader->enableLegacyShmemManSupport();
   reader->handleInitialized();
   phyCounterDirIs( reader->allEthIntfCounterPtrDir() );
   inputsFrom( entityManager );

   drainWatchSmIs(
      phyCounterDir(), lagConfigDir(), vlanStatusDir(), allIntfStatusDir(), unitStatusDir(),
      maintenanceGroupDir(), intfGroupStatusDir(), intfProfileStatusDir(), intfToGroupDir(), groupToUnitDir(),
      errDisableCauseStatus(), monIntfStatusDir(), defaultIntfProfile(), maintEnterCompletionStatus(),
      maintExitCompletionStatus(), maintEnterAgentConfig(), maintExitAgentConfig(), maintEnterAgentStatus(),
      maintExitAgentStatus(), maintEnterProgressDir(), maintExitProgressDir() );
   TRACE_TEXT( 4, "DrainWatchSmLoader::doMountsComplete - done" );
   FASTLOG( "DrainWatchSmLoader::doMountsComplete - done" );
}

void DrainWatchSmLoader::initErrdisableEntity( const Vel::Ptr< Ledger::EntityManager > & entityManager ) {
   TRACE_TEXT( 4, "DrainWatchSmLoader::initErrdisableEntity" );
   ErrdisableLib::ErrdisableCauseGroupInit(
      entityManager, maintenanceShutdown, false, "Interface has been shut down for maintenance.", false, true,
      true, true, Errdisable::CauseGroupType::interfaceCause, Errdisable::CauseGroupPriority::normal,
      "maint-down" );
}

/// What is absent stays null, which the root takes for empty; without the cause links could not be shut.
void DrainWatchSmLoader::inputsFrom( const Vel::Ptr< Ledger::EntityManager > & em ) {
   lagConfigDirIs( mounted< const Lag::Config >( em, "lag/config" ) );
   vlanStatusDirIs( mounted< const Bridging::VlanStatusDir >( em, "bridging/vlan/status" ) );
   allIntfStatusDirIs( mounted< const Interface::AllIntfStatusDir >( em, "interface/status/all" ) );
   unitStatusDirIs( mounted< Maintenance::Unit::StatusDir >( em, "maintenance/unit/status" ) );
   maintenanceGroupDirIs(
      mounted< const Maintenance::MaintenanceGroup::ConfigDir >( em, "maintenance/group/config" ) );
   intfGroupStatusDirIs( mounted< const IntfGroup::StatusDir >( em, "group/status/interface" ) );
   intfProfileStatusDirIs(
      mounted< const IntfMaintenanceProfile::StatusDir >( em, "maintenance/profile/status/interface" ) );
   intfToGroupDirIs(
      mounted< const IntfMaintenance::IntfToGroupDir >( em, "maintenance/mapping/member/interface" ) );
   groupToUnitDirIs( mounted< const Maintenance::GroupToUnitDir >( em, "maintenance/mapping/group" ) );

   const auto msCause =
      mounted< Errdisable::CauseStatus >( em, "interface/errdisable/cause/maintenance-shutdown" );
   VEL_ASSERT( msCause, "msCause && \" errdisable cause maintenance-shutdown is NULL \"" );
   errDisableCauseStatusIs( msCause );

   monIntfStatusDirIs(
      mounted< Maintenance::MonIntfStatusDir >( em, "maintenance/interface/status/drainwatch" ) );
   defaultIntfProfileIs( mounted< const Maintenance::Profile::DefaultProfile >(
      em, "maintenance/profile/config/default/interface" ) );
   maintEnterCompletionStatusIs(
      mountedInCell< const Stage::CompletionStatusDir >( em, "stage/maintEnter/completionstatus" ) );
   maintExitCompletionStatusIs(
      mountedInCell< const Stage::CompletionStatusDir >( em, "stage/maintExit/completionstatus" ) );
   maintEnterProgressDirIs( mountedInCell< const Stage::ProgressDir >( em, "stage/maintEnter/progress" ) );
   maintExitProgressDirIs( mountedInCell< const Stage::ProgressDir >( em, "stage/maintExit/progress" ) );
   maintEnterAgentConfigIs(
      mountedInCell< Stage::AgentConfig >( em, "stageInput/maintEnter/MaintenanceMode" ) );
   maintExitAgentConfigIs(
      mountedInCell< Stage::AgentConfig >( em, "stageInput/maintExit/MaintenanceMode" ) );
   maintEnterAgentStatusIs(
      mountedInCell< Stage::AgentStatus >( em, "stageAgentStatus/maintEnter/MaintenanceMode" ) );
   maintExitAgentStatusIs(
      mountedInCell< Stage::AgentStatus >( em, "stageAgentStatus/maintExit/MaintenanceMode" ) );
}

// ---- the owned children

Vel::Ptr< Interface::EthIntfCounterReaderSm > DrainWatchSmLoader::ethIntfCounterReaderSmIs(
   const Vel::Ptr< VelPool::EntityManager > & pool, const ReadOnly< Vel::Dir > & writerStatusDir ) {
   const auto & present = ethIntfCounterReaderSm();
   if ( !present || present->pool() != pool || present->writerStatusDir() != writerStatusDir )
      ethIntfCounterReaderSmStore(
         Interface::EthIntfCounterReaderSm::EthIntfCounterReaderSmIs( pool, writerStatusDir ) );
   return ethIntfCounterReaderSm();
}

void DrainWatchSmLoader::ethIntfCounterReaderSmDel() { ethIntfCounterReaderSmStore( nullptr ); }

Vel::Ptr< DrainWatchPluginInfoDumper > DrainWatchSmLoader::pluginInfoDumperIs( const Vel::String & name ) {
   if ( !pluginInfoDumper() || pluginInfoDumper()->name() != name )
      pluginInfoDumperStore( Vel::make< DrainWatchPluginInfoDumper >( name ) );
   return pluginInfoDumper();
}

void DrainWatchSmLoader::pluginInfoDumperDel() { pluginInfoDumperStore( nullptr ); }

Vel::Ptr< DrainWatchSm > DrainWatchSmLoader::drainWatchSmIs(
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
   const ReadOnly< Stage::ProgressDir > & maintExitProgressDir ) {
   const auto inputs = std::tie(
      phyCounterDir, lagConfigDir, vlanStatusDir, allIntfStatusDir, unitStatusDir, maintenanceGroupDir,
      intfGroupStatusDir, intfProfileStatusDir, intfToGroupDir, groupToUnitDir, errDisableCauseStatus,
      monIntfStatusDir, defaultIntfProfile, maintEnterCompletionStatus, maintExitCompletionStatus,
      maintEnterAgentConfig, maintExitAgentConfig, maintEnterAgentStatus, maintExitAgentStatus,
      maintEnterProgressDir, maintExitProgressDir );
   if ( const auto & root = drainWatchSm() ) {
      const auto builtFrom = std::tie(
         root->phyCounterDir(), root->lagConfigDir(), root->vlanStatusDir(), root->allIntfStatusDir(),
         root->unitStatusDir(), root->maintenanceGroupDir(), root->intfGroupStatusDir(),
         root->intfProfileStatusDir(), root->intfToGroupDir(), root->groupToUnitDir(),
         root->errDisableCauseStatus(), root->monIntfStatusDir(), root->defaultIntfProfile(),
         root->maintEnterCompletionStatus(), root->maintExitCompletionStatus(), root->maintEnterAgentConfig(),
         root->maintExitAgentConfig(), root->maintEnterAgentStatus(), root->maintExitAgentStatus(),
         root->maintEnterProgressDir(), root->maintExitProgressDir() );
      if ( inputs == builtFrom )
         return root;
      // Before the new one is built: what it would adopt is what the old one takes down.
      drainWatchSmDel();
   }
   drainWatchSmStore( std::apply(
      []( const auto &... input ) { return DrainWatchSm::DrainWatchSmIs( input... ); }, inputs ) );
   drainWatchSm()->hasNotificationActiveIs( true );
   return drainWatchSm();
}

void DrainWatchSmLoader::drainWatchSmDel() { drainWatchSmStore( nullptr ); }

} // namespace MaintenanceMode
