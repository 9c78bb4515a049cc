#pragma once

#include "MaintenancePlugin/DrainWatchPluginInfoDumper.h"
#include "MaintenancePlugin/DrainWatchSm.h"
#include "Platform/Counters/EthIntfCounterReaderSm.h"
#include "Platform/Ledger/Mounter.h"
#include "Platform/Maintenance/PluginContext.h"
#include "Platform/Vel/Dir.h"

namespace MaintenanceMode {

/// Purpose: the spine of the plug-in: mounts everything that the monitor reads and writes, prepares the
/// error-disable cause and the counter reader, and builds the root when the mounts are complete. Owner: the
/// entity directory of the plug-in context and the plug-in object.
///
/// Order: the cause exists before the root can read it, the counter reader runs before the root samples, and
/// the root is built last. On release: counter reader, root, dumper, then the inputs.
class DrainWatchSmLoader final : public Ledger::Mounter {
   template < class T >
   using ReadOnly = Vel::Ptr< const T >;
   template < class T >
   using Writable = Vel::Ptr< T >;
   using AllEthIntfCounterPtrDir = Interface::IntfCounterMasquerade::AllEthIntfCounterPtrDir;

   VEL_SUBENTITY( DrainWatchSmLoader, Ledger::Mounter );
   explicit DrainWatchSmLoader( const Vel::String & name );
   ~DrainWatchSmLoader() override;

   VEL_ATTR( ReadOnly< Vel::Dir >, ethIntfCounterWriterStatusDir, onEthIntfCounterWriterStatusDir );
   VEL_STATE(
      Vel::Ptr< Interface::EthIntfCounterReaderSm >, ethIntfCounterReaderSm, onEthIntfCounterReaderSm );
   VEL_ATTR( ReadOnly< AllEthIntfCounterPtrDir >, phyCounterDir, onPhyCounterDir );
   VEL_ATTR( ReadOnly< Lag::Config >, lagConfigDir, onLagConfigDir );
   VEL_ATTR( ReadOnly< Bridging::VlanStatusDir >, vlanStatusDir, onVlanStatusDir );
   VEL_ATTR( ReadOnly< Interface::AllIntfStatusDir >, allIntfStatusDir, onAllIntfStatusDir );
   VEL_ATTR( Writable< Maintenance::Unit::StatusDir >, unitStatusDir, onUnitStatusDir );
   VEL_ATTR(
      ReadOnly< Maintenance::MaintenanceGroup::ConfigDir >, maintenanceGroupDir, onMaintenanceGroupDir );
   VEL_ATTR( ReadOnly< IntfGroup::StatusDir >, intfGroupStatusDir, onIntfGroupStatusDir );
   VEL_ATTR( ReadOnly< IntfMaintenanceProfile::StatusDir >, intfProfileStatusDir, onIntfProfileStatusDir );
   VEL_ATTR( ReadOnly< IntfMaintenance::IntfToGroupDir >, intfToGroupDir, onIntfToGroupDir );
   VEL_ATTR( ReadOnly< Maintenance::GroupToUnitDir >, groupToUnitDir, onGroupToUnitDir );
   VEL_ATTR( Writable< Errdisable::CauseStatus >, errDisableCauseStatus, onErrDisableCauseStatus );
   VEL_ATTR( Writable< Maintenance::MonIntfStatusDir >, monIntfStatusDir, onMonIntfStatusDir );
   VEL_ATTR( ReadOnly< Maintenance::Profile::DefaultProfile >, defaultIntfProfile, onDefaultIntfProfile );
   VEL_ATTR(
      ReadOnly< Stage::CompletionStatusDir >, maintEnterCompletionStatus, onMaintEnterCompletionStatus );
   VEL_ATTR( ReadOnly< Stage::CompletionStatusDir >, maintExitCompletionStatus, onMaintExitCompletionStatus );
   VEL_ATTR( ReadOnly< Stage::ProgressDir >, maintEnterProgressDir, onMaintEnterProgressDir );
   VEL_ATTR( ReadOnly< Stage::ProgressDir >, maintExitProgressDir, onMaintExitProgressDir );
   VEL_ATTR( Writable< Stage::AgentConfig >, maintEnterAgentConfig, onMaintEnterAgentConfig );
   VEL_ATTR( Writable< Stage::AgentConfig >, maintExitAgentConfig, onMaintExitAgentConfig );
   VEL_ATTR( Writable< Stage::AgentStatus >, maintEnterAgentStatus, onMaintEnterAgentStatus );
   VEL_ATTR( Writable< Stage::AgentStatus >, maintExitAgentStatus, onMaintExitAgentStatus );
   VEL_STATE( Vel::Ptr< DrainWatchSm >, drainWatchSm, onDrainWatchSm );
   VEL_STATE( Vel::Ptr< DrainWatchPluginInfoDumper >, pluginInfoDumper, onPluginInfoDumper );
   VEL_ATTR( Vel::Ptr< Maintenance::PluginContext >, context, onContext );

   /// What init() requests, in that order.
   static std::vector< Ledger::Mount > mounts();

   /// Requests all mounts; doMountsComplete() follows from the event loop.
   void init( const Vel::Ptr< Maintenance::PluginContext > & context );
   void doMountsComplete(
      Ledger::MountStatus mountStatus, const Vel::Ptr< Ledger::EntityManager > & entityManager ) override;
   void initErrdisableEntity( const Vel::Ptr< Ledger::EntityManager > & entityManager );
   void prepareToDie();

   // The owned children: built from the arguments unless the present one was built from equal ones.
   Vel::Ptr< Interface::EthIntfCounterReaderSm > ethIntfCounterReaderSmIs(
      const Vel::Ptr< VelPool::EntityManager > & pool, const ReadOnly< Vel::Dir > & writerStatusDir );
   void ethIntfCounterReaderSmDel();
   Vel::Ptr< DrainWatchPluginInfoDumper > pluginInfoDumperIs( const Vel::String & name );
   void pluginInfoDumperDel();
   Vel::Ptr< DrainWatchSm > drainWatchSmIs(
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
      const ReadOnly< Stage::ProgressDir > & maintExitProgressDir );
   void drainWatchSmDel();

 private:
   void inputsFrom( const Vel::Ptr< Ledger::EntityManager > & entityManager );
};

} // namespace MaintenanceMode
