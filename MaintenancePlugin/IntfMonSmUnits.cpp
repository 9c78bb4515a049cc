#include "MaintenancePlugin/DrainWatchSm.h"
#include "MaintenancePlugin/PluginTrace.h"

namespace MaintenanceMode {

namespace {
Vel::TraceFacility trace( "IntfMonSm" );
}

void IntfMonSm::notifyDependentUnits() {
   VEL_ASSERT( monitoredIntf(), "monitoredIntf()" );
   Vel::U32 count = 0;
   for ( const auto & [unit, value] : monitoredIntf()->dependentUnitRange() ) {
      TRACE_TEXT( 4, "notifyDependentUnits: intfMonSm( ", intf(), ") notifying unit ", unit );
      if ( UnitIntfInput * drained = rootSm()->unitDrainedIntf()->unitIntfInput( unit ) ) {
         drained->intfIs( intf(), true );
         ++count;
      }
   }
   TRACE_TEXT( 4, "notifyDependentUnits: intfMonSm(", intf(), ") notified ", count, " units" );
}

void IntfMonSm::updateDependentUnitStatus( bool belowThreshold ) {
   VEL_ASSERT( monitoredIntf(), "monitoredIntf()" );
   const auto & unitStatusDir = rootSm()->unitStatusDir();
   for ( const auto & [unit, value] : monitoredIntf()->dependentUnitRange() ) {
      Maintenance::Unit::Status * status = unitStatusDir ? unitStatusDir->status( unit ) : nullptr;
      if ( !status || status->state() != Maintenance::Unit::UnitState::maintenance )
         continue;
      if ( belowThreshold )
         status->intfsViolatingTrafficThresholdDel( intf() );
      else {
         status->intfsViolatingTrafficThresholdIs( intf(), true );
         status->totalIntfTrafficViolationsInc( 1 );
      }
   }
}

} // namespace MaintenanceMode
