#pragma once

#include "Platform/Cog/ManualClock.h"
#include "Platform/Ledger/Cell.h"
#include "Platform/Maintenance/PluginContext.h"
#include "Platform/Model/Bridging.h"
#include "Platform/Model/Errdisable.h"
#include "Platform/Model/Interface.h"
#include "Platform/Model/IntfGroup.h"
#include "Platform/Model/IntfMaintenance.h"
#include "Platform/Model/IntfMaintenanceProfile.h"
#include "Platform/Model/Lag.h"
#include "Platform/Model/Stage.h"

/// Purpose: a state store with everything that the plug-in mounts, for tests of its loading. Without the plug-in itself,
/// so that a test may open it as a library.
namespace MaintenanceMode {

struct PluginStore {
   Vel::Ptr< Cog::ManualClock > clock = Vel::make< Cog::ManualClock >();
   /// What waits in the clock holds the store, so the store does not hold the clock.
   Vel::Ptr< Ledger::EntityManager > store = Vel::make< Ledger::EntityManager >(
      [c = clock.get()]( std::function< void() > call ) { c->post( std::move( call ) ); } );
   Vel::Ptr< VelPool::EntityManager > pool = Vel::make< VelPool::EntityManager >();
   Vel::Ptr< Maintenance::PluginContext > context = Vel::make< Maintenance::PluginContext >( store, pool );

   PluginStore() {
      Vel::System::clockIs( clock );
      put< Vel::Dir >( "interface/ethIntfCounter/writerStatus" );
      put< Interface::EthLagIntfConfigDir >( "interface/config/eth/lag" );
      put< Lag::Config >( "lag/config" );
      put< Vel::Dir >( "lag/input/config" );
      put< Bridging::VlanStatusDir >( "bridging/vlan/status" );
      put< Interface::AllIntfStatusDir >( "interface/status/all" );
      put< Maintenance::Unit::StatusDir >( "maintenance/unit/status" );
      put< Maintenance::MaintenanceGroup::ConfigDir >( "maintenance/group/config" );
      put< IntfGroup::StatusDir >( "group/status/interface" );
      put< IntfMaintenanceProfile::StatusDir >( "maintenance/profile/status/interface" );
      put< IntfMaintenance::IntfToGroupDir >( "maintenance/mapping/member/interface" );
      put< Maintenance::GroupToUnitDir >( "maintenance/mapping/group" );
      put< Maintenance::MonIntfStatusDir >( "maintenance/interface/status/drainwatch" );
      put< Maintenance::Profile::DefaultProfile >( "maintenance/profile/config/default/interface" );
      for ( const Vel::String stageClass : { "maintEnter", "maintExit" } ) {
         putInCell< Stage::AgentConfig >(
            "stageInput/" + stageClass + "/MaintenanceMode", "MaintenanceMode" );
         putInCell< Stage::AgentStatus >(
            "stageAgentStatus/" + stageClass + "/MaintenanceMode", "MaintenanceMode" );
         putInCell< Stage::ProgressDir >( "stage/" + stageClass + "/progress" );
         putInCell< Stage::CompletionStatusDir >( "stage/" + stageClass + "/completionstatus" );
      }
   }
   ~PluginStore() {
      // The entries hold the context and the context holds them.
      context->entityDir()->entryDelAll();
      Vel::System::clockIs( outerClock_ );
   }

   template < class T, class... Args >
   void put( const Vel::String & path, const Args &... args ) {
      store->entityIs( path, Vel::make< T >( args... ) );
   }
   template < class T, class... Args >
   void putInCell( const Vel::String & path, const Args &... args ) {
      put< T >( Cell::path( path, 0 ), args... );
   }
   /// The entity of a path; null if there is none of that type.
   template < class T >
   Vel::Ptr< T > get( const Vel::String & path ) const {
      return Vel::ptrCast< T >( store->getEntity( path ) );
   }
   template < class T >
   Vel::Ptr< T > getInCell( const Vel::String & path ) const {
      return get< T >( Cell::path( path, 0 ) );
   }
   void settle() { clock->runUntilIdle(); }

 private:
   Vel::Ptr< Vel::Clock > outerClock_ = Vel::System::clock();
};

} // namespace MaintenanceMode
