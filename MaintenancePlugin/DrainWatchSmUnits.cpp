#include "MaintenancePlugin/DrainWatchSm.h"
#include "MaintenancePlugin/PluginTrace.h"
#include "MaintenancePlugin/Reinstantiation.h"

namespace MaintenanceMode {

namespace {
Vel::TraceFacility trace( "DrainWatchSm" );

using Maintenance::Unit::MaintenanceOp;
using Maintenance::Unit::StageMgrInstKey;

/// An operation is told by its number, as it is stored.
Vel::U32 number( MaintenanceOp op ) { return static_cast< Vel::U32 >( op ); }
} // namespace

void DrainWatchSm::doStageForInstance(
   const Vel::String & stageClass, const Vel::String & stage, const Vel::Name & instanceName ) {
   // A fresh key for each call: an empty name leaves a key as it is, and a malformed one changes half of it.
   StageMgrInstKey key;
   key.instanceNameIs( instanceName );
   MaintenanceOp op;
   if ( stageClass == maintEnterClass )
      op = MaintenanceOp::enter;
   else if ( stageClass == maintExitClass )
      op = MaintenanceOp::exit;
   else {
      TRACE( 1, "Invalid maintenance class: ", stageClass, " for instanceName: ", instanceName );
      return;
   }
   TRACE_FASTLOG(
      4, "unit ", key.unitName(), ", genId ", key.genId(), ", stage ", stage, ", op ", number( op ) );
   if ( stage != stageName )
      return;
   if ( op == MaintenanceOp::enter )
      handleUnitMaintenanceEnter( key.unitName(), key.genId() );
   else
      handleUnitMaintenanceExit( key.unitName(), key.genId() );
}

void DrainWatchSm::handleUnitMaintenanceEnter( const Vel::String & unitName, Vel::U32 genId ) {
   TRACE( 4, "unit - ", unitName, ", genId ", genId );
   counters()->numMaintEnterInc( 1 );
   if ( const UnitMonSm * present = unitMon( unitName ) ) {
      counters()->numMaintEnterUnitMonPresentInc( 1 );
      TRACE_FASTLOG( 4, "Unit ", unitName, " (genId ", present->genId(), ") exists. Exiting maintenance" );
      handleUnitMaintenanceExit( unitName, genId );
   }
   const Vel::Ptr< UnitIntfInput > monIntf( unitMonIntfInput()->unitIntfInputIs( unitName ) );
   const Vel::Ptr< UnitIntfInput > drainedIntf( unitDrainedIntf()->unitIntfInputIs( unitName ) );
   VEL_ASSERT( !unitMon( unitName ), "!unitMon( unitName )" );
   unitMonIs( unitName, genId, this, monIntf, drainedIntf );
   TRACE_FASTLOG( 4, "started traffic monitoring for unit ", unitName );
}

void DrainWatchSm::handleUnitMaintenanceExit( const Vel::String & unitName, Vel::U32 genId ) {
   TRACE( 4, "unit - ", unitName, ", genId ", genId );
   counters()->numMaintExitInc( 1 );
   const Vel::Ptr< UnitMonSm > present( unitMon( unitName ) );
   if ( !present ) {
      counters()->numMaintExitNoUnitMonInc( 1 );
      TRACE( 4, "Got maintenance exit notification when unitMonSm does not exist - unit ", unitName );
      TRACE( 4, "  notifying stage completion anyway." );
      FASTLOG( "notifying stage completion for non-existent unitMonSm ", unitName );
      notifyStageCompletion( unitName, genId, MaintenanceOp::exit );
      return;
   }
   const auto * status = unitStatusDir() ? unitStatusDir()->status( unitName ) : nullptr;
   if ( status && status->state() == Maintenance::Unit::UnitState::enterInProgress )
      counters()->numMaintExitInMaintModeEnterInc( 1 );
   // The monitor reports the exit itself while it is released, and must report it for this generation.
   present->genIdIs( genId );
   unitMonDel( unitName );
   TRACE_FASTLOG( 4, "done with traffic monitoring for unit ", unitName );
}

void DrainWatchSm::handleUnitStatus( const Vel::String & unitName ) {
   TRACE( 5, unitName );
   // Entering and leaving maintenance follow the stages alone, so only a unit that has gone matters here.
   if ( unitStatusDir() && unitStatusDir()->status( unitName ) )
      return;
   if ( !unitMon( unitName ) )
      return;
   counters()->numUnitStatusDelInc( 1 );
   unitMonDel( unitName );
   TRACE_FASTLOG( 4, "Deleted unitMonSm for unit ", unitName );
}

void DrainWatchSm::notifyStageCompletion( const Vel::String & unitName, Vel::U32 genId, MaintenanceOp op ) {
   const bool enter = op == MaintenanceOp::enter;
   const Vel::Name instanceName = StageMgrInstKey( unitName, genId ).instanceName();
   const auto & progressDir = enter ? maintEnterProgressDir() : maintExitProgressDir();
   const Stage::Progress * instance = progressDir ? progressDir->progress( instanceName ) : nullptr;
   if ( !instance ) {
      TRACE( 4, "No instance found for genId ", genId, " unitName ", unitName );
      counters()->numNoNotifyNoStageInputInc( 1 );
      return;
   }
   const Vel::U32 * stageStatus = instance->stageStatus( stageName );
   if ( !stageStatus || *stageStatus == Stage::stageInactive ) {
      TRACE(
         4, "Unit ", unitName, ", genId ", genId, " - DrainWatch not among active stages. Not notifying " );
      counters()->numNoNotifyActiveStageMismatchInc( 1 );
      return;
   }
   if ( !unitStatusDir() || !unitStatusDir()->status( unitName ) ) {
      TRACE( 4, "Unit ", unitName, " ,genId ", genId, "does not exit in unit status directory" );
      counters()->numNoNotifyNoUnitStatusInc( 1 );
      return;
   }
   const auto helper = enter ? maintEnterStageHelper() : maintExitStageHelper();
   // The root is being released, and its units are emptied: nothing of that has drained.
   if ( !helper )
      return;
   TRACE( 4, "Unit - ", unitName, ", genId ", genId, ", op ", number( op ), ", stage drainwatch " );
   FASTLOG(
      "Notifying stage completion - unit ", unitName, " ,genId ", genId, ", stage drainwatch, op ",
      number( op ) );
   helper->doStageCompleteForInstance( stageName, instanceName );
   counters()->numNotifyStageCompletionInc( 1 );
}

// ---- the collection of unit monitors

Vel::Ptr< UnitMonSm > DrainWatchSm::unitMonIs(
   const Vel::String & unitName, Vel::U32 genId, DrainWatchSm * rootSm,
   const Vel::Ptr< UnitIntfInput > & monIntf, const Vel::Ptr< UnitIntfInput > & drainedIntf ) {
   if ( const Vel::Ptr< UnitMonSm > present{ unitMon( unitName ) } ) {
      requireBuiltFrom( "_rootSm", rootSm, present->rootSm() );
      requireBuiltFrom( "_monIntf", monIntf, present->monIntf() );
      requireBuiltFrom( "_drainedIntf", drainedIntf, present->drainedIntf() );
      present->genIdIs( genId );
      return present;
   }
   const auto unitMonSm = UnitMonSm::UnitMonSmIs( unitName, genId, rootSm, monIntf, drainedIntf );
   unitMonStore( unitName, unitMonSm );
   unitMonSm->hasNotificationActiveIs( true );
   return unitMonSm;
}

void DrainWatchSm::unitMonDel( const Vel::String & unitName ) {
   const Vel::Ptr< UnitMonSm > unitMonSm( unitMon( unitName ) );
   if ( !unitMonSm )
      return;
   // While it is fully alive: its sets are emptied through its reactors.
   unitMonSm->prepareToDie();
   unitMonTake( unitMonSm->unitName() );
}

void DrainWatchSm::unitMonDelAll() {
   while ( const Vel::String * unitName = unitMonFirst() )
      unitMonDel( *unitName );
}

} // namespace MaintenanceMode
