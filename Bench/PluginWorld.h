#pragma once

#include "MaintenancePlugin/DrainWatchSm.h"
#include "Platform/Cog/Scheduler.h"

#include <string>

/// Purpose: the plug-in's root over models in memory, with as many ports as a benchmark wants.
/// Owner: the benchmark, which also owns the clock and turns it.
namespace PluginBench {

using Vel::U32;
using Vel::U64;
using Wire::IntfId;

constexpr int intfsPerUnit = 100;
constexpr double thresholdKbps = 1;

inline IntfId port( int i ) {
   return Wire::EthIntfId( "Ethernet" + std::to_string( i / 64 + 1 ) + '/' + std::to_string( i % 64 + 1 ) );
}
inline std::string unitName( int u ) { return "unit" + std::to_string( u ); }

class PluginWorld {
   using CounterDir = Interface::IntfCounterMasquerade::AllEthIntfCounterPtrDir;
   using ProfileType = Maintenance::Profile::ProfileType;

 public:
   /// The clock is the system's for as long as this lives.
   explicit PluginWorld( const Vel::Ptr< Vel::Clock > & clock ) {
      Vel::System::clockIs( clock );
      auto profile = Vel::make< IntfMaintenanceProfile::Status >( "default" );
      profile->drainWatchThresholdInKbpsIs( thresholdKbps );
      profile->drainWatchLoadIntervalIs( 10 );
      profiles->statusPut( "default", profile );
      defaultProfile->profileNameIs( "default" );
   }
   ~PluginWorld() {
      root = nullptr;
      Vel::System::clockIs( nullptr );
   }
   PluginWorld( const PluginWorld & ) = delete;
   PluginWorld & operator=( const PluginWorld & ) = delete;

   /// A port that is up.
   void portIs( int i ) {
      counters->intfCounterDirIs( port( i ) )->counterIs( "current" );
      links->intfStatusIs( port( i ) )->operStatusIs( Interface::operUp );
   }
   /// A port that is up, in the group of its unit.
   void portOfUnitIs( int i ) {
      portIs( i );
      const std::string unit = unitName( i / intfsPerUnit );
      const Maintenance::GroupKey group{ Maintenance::GroupType::interfaceGroup, unit };
      auto * entry = intfToGroup->intfToGroupIs( port( i ) );
      entry->selectedProfileIs(
         ProfileType::interfaceProfile,
         { ProfileType::interfaceProfile, Maintenance::Profile::defaultProfileName } );
      entry->groupIs( group );
      groups->statusIs( group )->intfIs( port( i ) );
      groupToUnit->mappingIs( group, unit );
   }
   void start() {
      root = MaintenanceMode::DrainWatchSm::DrainWatchSmIs(
         readOnly( counters ), Vel::Ptr< const Lag::Config >(), Vel::Ptr< const Bridging::VlanStatusDir >(),
         readOnly( links ), units, Vel::Ptr< const Maintenance::MaintenanceGroup::ConfigDir >(),
         readOnly( groups ), readOnly( profiles ), readOnly( intfToGroup ), readOnly( groupToUnit ), cause,
         records, readOnly( defaultProfile ), readOnly( enterCompletion ),
         Vel::Ptr< const Stage::CompletionStatusDir >(), Vel::Ptr< Stage::AgentConfig >(),
         Vel::Ptr< Stage::AgentConfig >(), Vel::Ptr< Stage::AgentStatus >(), Vel::Ptr< Stage::AgentStatus >(),
         readOnly( enterProgress ), Vel::Ptr< const Stage::ProgressDir >() );
   }
   /// The unit enters maintenance.
   void enter( const std::string & unit ) {
      const std::string instance = unit + "#1";
      auto * status = units->statusIs( unit );
      status->stateIs( Maintenance::Unit::UnitState::enterInProgress );
      status->genIdIs( 1 );
      status->maintEnterInstanceNameIs( instance );
      auto * progress = enterProgress->progressIs( instance );
      progress->stageStatusIs( MaintenanceMode::stageName, Stage::stageRunning );
      enterCompletion->statusIs( instance, Stage::stageRunning );
      progress->stageIs( MaintenanceMode::stageName );
   }

   template < class T >
   using Owned = const Vel::Ptr< T >;
   Owned< CounterDir > counters = Vel::make< CounterDir >();
   Owned< Interface::AllIntfStatusDir > links = Vel::make< Interface::AllIntfStatusDir >();
   Owned< Maintenance::Unit::StatusDir > units = Vel::make< Maintenance::Unit::StatusDir >();
   Owned< IntfGroup::StatusDir > groups = Vel::make< IntfGroup::StatusDir >();
   Owned< IntfMaintenanceProfile::StatusDir > profiles = Vel::make< IntfMaintenanceProfile::StatusDir >();
   Owned< IntfMaintenance::IntfToGroupDir > intfToGroup = Vel::make< IntfMaintenance::IntfToGroupDir >();
   Owned< Maintenance::GroupToUnitDir > groupToUnit = Vel::make< Maintenance::GroupToUnitDir >();
   Owned< Errdisable::CauseStatus > cause = Vel::make< Errdisable::CauseStatus >( "maintenance-shutdown" );
   Owned< Maintenance::MonIntfStatusDir > records = Vel::make< Maintenance::MonIntfStatusDir >();
   Owned< Maintenance::Profile::DefaultProfile > defaultProfile =
      Vel::make< Maintenance::Profile::DefaultProfile >();
   Owned< Stage::CompletionStatusDir > enterCompletion = Vel::make< Stage::CompletionStatusDir >();
   Owned< Stage::ProgressDir > enterProgress = Vel::make< Stage::ProgressDir >();
   Vel::Ptr< MaintenanceMode::DrainWatchSm > root;

 private:
   template < class T >
   static Vel::Ptr< const T > readOnly( const Vel::Ptr< T > & entity ) {
      return entity;
   }
};

} // namespace PluginBench
