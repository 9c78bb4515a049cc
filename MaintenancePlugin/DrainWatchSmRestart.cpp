#include "MaintenancePlugin/DrainWatchSm.h"
#include "MaintenancePlugin/PluginTrace.h"

/// What the root does at start with what an earlier run has left: published records, units in maintenance, shutdowns.
namespace MaintenanceMode {

namespace {
Vel::TraceFacility trace( "DrainWatchSm" );

using Maintenance::Unit::UnitState;

/// A unit's state is told by its number, as it is stored.
Vel::U32 number( UnitState state ) { return static_cast< Vel::U32 >( state ); }
} // namespace

/// These are chapters of one operation, whose name stands in front of their traces.
#define TRACE_START( ... ) TRACE_TEXT( 4, "handleInitialized: ", __VA_ARGS__ )

void DrainWatchSm::markRecordsStale() {
   Vel::U32 marked = 0;
   if ( monIntfStatusDir() )
      for ( const auto & [intf, record] : monIntfStatusDir()->monIntfStatusRange() ) {
         record->staleIs( true );
         ++marked;
      }
   TRACE_START( "marked ", marked, " entries as stale in MonIntfStatusDir." );
   FASTLOG( "restart: num monIntfStatusDir entries marked as stale ", marked );
   if ( !monIntfStatusDir() )
      return;
   // Interfaces that are monitored again come back with their monitors.
   monIntfStatusDir()->monIntfEnterMaintDelAll();
   monIntfStatusDir()->monIntfUnderMaintDelAll();
   monIntfStatusDir()->monIntfSpikeUnderMaintDelAll();
}

void DrainWatchSm::restoreUnits() {
   if ( !unitStatusDir() )
      return;
   for ( const auto & [unitName, status] : unitStatusDir()->statusRange() ) {
      TRACE_START( "Processing unit=", unitName, " state=", number( status->state() ) );
      restoreUnit( *status );
   }
}

void DrainWatchSm::restoreUnit( const Maintenance::Unit::Status & status ) {
   const UnitState state = status.state();
   const bool exiting = state == UnitState::exitInProgress;
   const bool entering = state == UnitState::enterInProgress;
   if ( !exiting && !entering && state != UnitState::maintenance )
      return;
   const Vel::Name instanceName = exiting ? status.maintExitInstanceName() : status.maintEnterInstanceName();

   // A unit in maintenance has its stages behind it; one on its way is ours only while our stage is on.
   const Stage::Progress * instance = nullptr;
   if ( exiting || entering ) {
      const auto & progressDir = exiting ? maintExitProgressDir() : maintEnterProgressDir();
      instance = progressDir ? progressDir->progress( instanceName ) : nullptr;
      if ( !instance ) {
         TRACE_START( "InstanceStatus not found for unit ", instanceName );
         return;
      }
   }
   Maintenance::Unit::StageMgrInstKey key;
   key.instanceNameIs( instanceName );
   if ( key.genId() != status.genId() )
      return;
   if ( instance ) {
      const Vel::U32 * stageStatus = instance->stageStatus( stageName );
      if ( !stageStatus || *stageStatus == Stage::stageInactive )
         return;
   }
   if ( exiting ) {
      // Its monitors died with the run before, so there is nothing left to stop.
      TRACE_START( "Unit state =", number( state ), ", completing the stage for this unit" );
      maintExitStageHelper()->doStageCompleteForInstance( stageName, instanceName );
      return;
   }
   TRACE_START( "Unit state =", number( state ), ", putting this unit in maintenance " );
   doStageForInstance( maintEnterClass, stageName, instanceName );
}

void DrainWatchSm::deleteStaleRecords() {
   Vel::U32 deleted = 0;
   if ( monIntfStatusDir() )
      for ( const auto & [intf, record] : monIntfStatusDir()->monIntfStatusRange() ) {
         if ( !record->stale() )
            continue;
         monIntfStatusDir()->monIntfStatusDel( intf );
         TRACE_START( "deleted stale MonIntfStatusDir entry for intf ", intf );
         FASTLOG( "restart: deleted stale monIntfStatus for intf ", intf );
         if ( errDisableCauseStatus() )
            errDisableCauseStatus()->intfStatusDel( intf );
         delFromViolatingIntfsCollection( intf );
         ++deleted;
      }
   TRACE_START( "deleted ", deleted, " stale entries from MonIntfStatusDir." );
   FASTLOG( "restart: deleted stale entries from monIntfStatusDir ", deleted );
}

} // namespace MaintenanceMode
