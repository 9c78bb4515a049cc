#pragma once

#include "MaintenancePlugin/DrainWatchSmDebugCounters.h"
#include "MaintenancePlugin/IntfMonSm.h"
#include "MaintenancePlugin/IntfRateAggregatorSm.h"
#include "MaintenancePlugin/IntfStatusSm.h"
#include "MaintenancePlugin/MaintStageHelperSm.h"
#include "MaintenancePlugin/MonitoredIntf.h"
#include "MaintenancePlugin/UnitIntfIndex.h"
#include "MaintenancePlugin/UnitIntfInput.h"
#include "MaintenancePlugin/UnitMonSm.h"
#include "Platform/Cog/TimerWheel.h"
#include "Platform/Model/Bridging.h"
#include "Platform/Model/Errdisable.h"
#include "Platform/Model/IntfGroup.h"
#include "Platform/Model/IntfMaintenance.h"
#include "Platform/Model/IntfMaintenanceProfile.h"
#include "Platform/Model/Lag.h"
#include "Platform/Model/Maintenance.h"
#include "Platform/Model/Stage.h"

#include <memory>

namespace MaintenanceMode {

/// The stage that this plug-in carries out, in both stage classes.
extern const Vel::String stageName;
extern const Vel::String maintEnterClass;
extern const Vel::String maintExitClass;

/// Purpose: the root state machine. Owns every other state machine, reconciles published state after a
/// restart, turns stage requests into unit monitors, resolves profiles and keeps the one registry of
/// interface monitors. Owner: the loader. Children hold plain pointers to the root, so none may outlive it.
///
/// Order of initialisation (handleInitialized): what others count in or hang on exists before them; stale
/// marking precedes the restoring of units and stale deletion follows it, so that only what no restored unit
/// monitors is released; tracker and aggregator start last, when the restored monitors exist.
class DrainWatchSm final : public Vel::Entity {
   template < class T >
   using ReadOnly = Vel::Ptr< const T >;
   template < class T >
   using Writable = Vel::Ptr< T >;
   using AllEthIntfCounterPtrDir = Interface::IntfCounterMasquerade::AllEthIntfCounterPtrDir;
   using Profile = IntfMaintenanceProfile::Status;
   using MonIntfState = Maintenance::MonIntfState;

   VEL_ENTITY( DrainWatchSm );
   /// Any input may be null, and is then as good as empty; only who enters a unit that has interfaces needs
   /// `monIntfStatusDir`, and who changes groups all three that say what they hold. Runs handleInitialized().
   DrainWatchSm(
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
   ~DrainWatchSm() override;

   /// Makes the root and switches its notifications on. Takes the constructor's arguments.
   template < class... Inputs >
   static Vel::Ptr< DrainWatchSm > DrainWatchSmIs( const Inputs &... inputs ) {
      auto root = Vel::make< DrainWatchSm >( inputs... );
      root->hasNotificationActiveIs( true );
      return root;
   }

   VEL_PARAM( ReadOnly< AllEthIntfCounterPtrDir >, phyCounterDir );
   VEL_PARAM( ReadOnly< Lag::Config >, lagConfigDir );
   VEL_PARAM( ReadOnly< Bridging::VlanStatusDir >, vlanStatusDir );
   VEL_PARAM( ReadOnly< Interface::AllIntfStatusDir >, allIntfStatusDir );
   VEL_STATE( Writable< Maintenance::Unit::StatusDir >, unitStatusDir, onUnitStatusDir );
   VEL_PARAM( ReadOnly< Maintenance::MaintenanceGroup::ConfigDir >, maintenanceGroupDir );
   VEL_PARAM( ReadOnly< IntfGroup::StatusDir >, intfGroupStatusDir );
   VEL_STATE( ReadOnly< IntfMaintenanceProfile::StatusDir >, intfProfileStatusDir, onIntfProfileStatusDir );
   VEL_PARAM( ReadOnly< IntfMaintenance::IntfToGroupDir >, intfToGroupDir );
   VEL_PARAM( ReadOnly< Maintenance::GroupToUnitDir >, groupToUnitDir );
   VEL_PARAM( Writable< Errdisable::CauseStatus >, errDisableCauseStatus );
   VEL_PARAM( Writable< Maintenance::MonIntfStatusDir >, monIntfStatusDir );
   VEL_STATE( ReadOnly< Maintenance::Profile::DefaultProfile >, defaultIntfProfile, onDefaultIntfProfile );
   VEL_PARAM( ReadOnly< Stage::CompletionStatusDir >, maintEnterCompletionStatus );
   VEL_PARAM( ReadOnly< Stage::CompletionStatusDir >, maintExitCompletionStatus );
   VEL_PARAM( Writable< Stage::AgentConfig >, maintEnterAgentConfig );
   VEL_PARAM( Writable< Stage::AgentConfig >, maintExitAgentConfig );
   VEL_PARAM( Writable< Stage::AgentStatus >, maintEnterAgentStatus );
   VEL_PARAM( Writable< Stage::AgentStatus >, maintExitAgentStatus );
   VEL_PARAM( ReadOnly< Stage::ProgressDir >, maintEnterProgressDir );
   VEL_PARAM( ReadOnly< Stage::ProgressDir >, maintExitProgressDir );

   // children and local state
   VEL_STATE( Vel::Ptr< MaintStageHelperSm >, maintEnterStageHelper, onMaintEnterStageHelper );
   VEL_STATE( Vel::Ptr< MaintStageHelperSm >, maintExitStageHelper, onMaintExitStageHelper );
   VEL_OWNED( Vel::String, UnitMonSm, unitMon, onUnitMon );
   VEL_OWNED( Wire::IntfId, IntfMonSm, intfMon, onIntfMon );
   VEL_STATE( Vel::Ptr< IntfStatusSm >, intfStatusSm, onIntfStatusSm );
   VEL_STATE( Vel::Ptr< Cog::TimerWheel >, timerWheel, onTimerWheel );
   VEL_STATE( Vel::Ptr< UnitIntfInputDir >, unitMonIntfInput, onUnitMonIntfInput );
   VEL_STATE( Vel::Ptr< UnitIntfInputDir >, unitDrainedIntf, onUnitDrainedIntf );
   VEL_STATE( Vel::Ptr< DrainWatchSmDebugCounters >, counters, onCounters );
   VEL_STATE( Vel::Ptr< MonitoredIntfDir >, monIntfDir, onMonIntfDir );
   VEL_STATE( Vel::Ptr< IntfRateAggregatorSm >, intfRateAggSm, onIntfRateAggSm );
   VEL_ATTR( bool, initialized, onInitialized );

   struct VelUnitStatusDir final : Vel::ReactorTo< DrainWatchSm, Maintenance::Unit::StatusDir > {
      using ReactorTo::ReactorTo;
      void onStatus( const Vel::Name & unitName ) override { sm()->handleUnitStatus( unitName ); }
   };
   struct VelIntfProfileStatusDir final : Vel::ReactorTo< DrainWatchSm, IntfMaintenanceProfile::StatusDir > {
      using ReactorTo::ReactorTo;
      void onStatus( const Vel::String & profileName ) override {
         sm()->handleIntfProfileStatus( profileName );
      }
   };
   struct VelDefaultIntfProfile final : Vel::ReactorTo< DrainWatchSm, Maintenance::Profile::DefaultProfile > {
      using ReactorTo::ReactorTo;
      void onProfileName() override { sm()->handleDefaultIntfProfile(); }
   };

   // life: DrainWatchSm.cpp
   void hasNotificationActiveIs( bool active );
   /// Concerns the root's own three reactors only: the children are still to react while they are released.
   void velDoZombieReactors( bool on ) override;
   void handleInitialized();
   void prepareToDie();
   /// These three inputs may be replaced; their reactors move with them. Null takes input and reactor away.
   void unitStatusDirIs( const Writable< Maintenance::Unit::StatusDir > & dir );
   void unitStatusDirDel() { unitStatusDirIs( nullptr ); }
   void intfProfileStatusDirIs( const ReadOnly< IntfMaintenanceProfile::StatusDir > & dir );
   void intfProfileStatusDirDel() { intfProfileStatusDirIs( nullptr ); }
   void defaultIntfProfileIs( const ReadOnly< Maintenance::Profile::DefaultProfile > & profile );
   void defaultIntfProfileDel() { defaultIntfProfileIs( nullptr ); }

   // the children's makers: each makes the child, stores and returns it; `...Del` releases it. A child that is there
   // is returned, or Vel::NameInUse thrown if it was built from other values: DrainWatchSmChildren.cpp
   Vel::Ptr< MaintStageHelperSm > maintEnterStageHelperIs(
      const Vel::String & stageClass, const ReadOnly< Stage::ProgressDir > & progressDir,
      const ReadOnly< Stage::CompletionStatusDir > & completionStatus,
      const Writable< Stage::AgentConfig > & agentConfig, const Writable< Stage::AgentStatus > & agentStatus,
      DrainWatchSm * root );
   void maintEnterStageHelperDel();
   Vel::Ptr< MaintStageHelperSm > maintExitStageHelperIs(
      const Vel::String & stageClass, const ReadOnly< Stage::ProgressDir > & progressDir,
      const ReadOnly< Stage::CompletionStatusDir > & completionStatus,
      const Writable< Stage::AgentConfig > & agentConfig, const Writable< Stage::AgentStatus > & agentStatus,
      DrainWatchSm * root );
   void maintExitStageHelperDel();
   Vel::Ptr< IntfStatusSm > intfStatusSmIs(
      const Vel::Ptr< Vel::Clock > & clock, const ReadOnly< Interface::AllIntfStatusDir > & allIntfStatusDir,
      const ReadOnly< IntfMaintenance::IntfToGroupDir > & intfToGroupDir,
      const ReadOnly< Maintenance::GroupToUnitDir > & groupToUnitDir,
      const Vel::Ptr< UnitIntfInputDir > & unitMonIntfInput,
      const ReadOnly< IntfGroup::StatusDir > & intfGroupStatusDir, DrainWatchSm * root );
   void intfStatusSmDel();
   Vel::Ptr< Cog::TimerWheel > timerWheelIs(
      const Vel::Ptr< Vel::Clock > & clock, Vel::U32 tickMsecs, Vel::U32 initialMaxTicks, bool preserveOrder,
      Vel::U32 defaultBucketSize );
   void timerWheelDel();
   Vel::Ptr< UnitIntfInputDir > unitMonIntfInputIs();
   void unitMonIntfInputDel();
   Vel::Ptr< UnitIntfInputDir > unitDrainedIntfIs();
   void unitDrainedIntfDel();
   Vel::Ptr< DrainWatchSmDebugCounters > countersIs();
   void countersDel();
   Vel::Ptr< MonitoredIntfDir > monIntfDirIs();
   void monIntfDirDel();
   Vel::Ptr< IntfRateAggregatorSm > intfRateAggSmIs(
      const Vel::Ptr< const MonitoredIntfDir > & monIntfDir,
      const Vel::Ptr< const Maintenance::MonIntfStatusDir > & monIntfStatusDir,
      const Writable< Maintenance::Unit::StatusDir > & unitStatusDir );
   void intfRateAggSmDel();

   // units: DrainWatchSmUnits.cpp
   /// Called by the stage helpers when a stage starts for an instance ("unit#generation"), and after a
   /// restart. Throws Vel::InternalException for a malformed instance name.
   void doStageForInstance(
      const Vel::String & stageClass, const Vel::String & stage, const Vel::Name & instanceName );
   /// Makes the unit's sets and its monitor; one of an earlier enter exits first.
   void handleUnitMaintenanceEnter( const Vel::String & unitName, Vel::U32 genId );
   void handleUnitMaintenanceExit( const Vel::String & unitName, Vel::U32 genId );
   void handleUnitStatus( const Vel::String & unitName );
   /// Reports the stage complete if instance, stage and unit still stand; each refusal is traced and counted.
   void
   notifyStageCompletion( const Vel::String & unitName, Vel::U32 genId, Maintenance::Unit::MaintenanceOp op );
   /// The unit's monitor, made if there is none. Throws Vel::NameInUse if it was built from other values.
   Vel::Ptr< UnitMonSm > unitMonIs(
      const Vel::String & unitName, Vel::U32 genId, DrainWatchSm * rootSm,
      const Vel::Ptr< UnitIntfInput > & monIntf, const Vel::Ptr< UnitIntfInput > & drainedIntf );
   /// Lets the monitor stop its interfaces and report the exit, then releases it.
   void unitMonDel( const Vel::String & unitName );
   void unitMonDelAll();

   // profiles: DrainWatchSmProfiles.cpp
   /// The name selected for the interface, the default's where that is selected; empty when none.
   Vel::String getIntfProfileName( const Wire::IntfId & intf ) const;
   /// Null when nothing is selected or the profile does not exist (yet).
   ReadOnly< Profile > getIntfProfile( const Wire::IntfId & intf ) const;
   /// Whether the default is what is selected for the interface, whatever it names.
   bool usingDefaultProfile( const Wire::IntfId & intf ) const;
   /// The profile has come or gone: monitors that have waited for it get it, and those that hold one that has gone get what
   /// is selected now, if that exists.
   void handleIntfProfileStatus( const Vel::String & profileName );
   void handleDefaultIntfProfile();

   // interface monitors: DrainWatchSmRegistry.cpp
   /// The interface's monitor, made if there is none; the profile is replaced if there is. Throws
   /// Vel::NameInUse if it was built from other values.
   Vel::Ptr< IntfMonSm > intfMonIs(
      const Wire::IntfId & intf, const ReadOnly< Cog::TimerWheel > & clock,
      const ReadOnly< Profile > & intfProfile, DrainWatchSm * rootSm,
      const Vel::Ptr< MonitoredIntf > & monitoredIntf, MonIntfState initialState );
   void intfMonDel( const Wire::IntfId & intf );
   void intfMonDelAll();
   /// Adds the interface to the set of every monitored unit that contains it.
   void startIntfMonInUnits( const Wire::IntfId & intf );
   /// Removes the interface from the set of every monitored unit, member of its groups or not.
   void stopIntfMonInUnits( const Wire::IntfId & intf );
   void delFromViolatingIntfsCollection( const Wire::IntfId & intf );

   /// Diagnostic text; the root's own lines have 2 blanks whatever `indent` is. DrainWatchSmDump.cpp
   void dump( int fd, unsigned indent ) const;

 private:
   // restart: DrainWatchSmRestart.cpp
   void markRecordsStale();
   void restoreUnits();
   void restoreUnit( const Maintenance::Unit::Status & status );
   void deleteStaleRecords();

   std::unique_ptr< UnitIntfIndex > unitMonIntfIndex_; ///< of unitMonIntfInput
   bool notificationActive_ = false;
   Vel::Watch< VelUnitStatusDir > unitStatusDirReactor_;
   Vel::Watch< VelIntfProfileStatusDir > intfProfileStatusDirReactor_;
   Vel::Watch< VelDefaultIntfProfile > defaultIntfProfileReactor_;
};

} // namespace MaintenanceMode
