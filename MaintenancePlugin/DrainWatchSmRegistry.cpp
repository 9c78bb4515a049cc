#include "MaintenancePlugin/DrainWatchSm.h"
#include "MaintenancePlugin/PluginTrace.h"
#include "MaintenancePlugin/Reinstantiation.h"

namespace MaintenanceMode {

namespace {
Vel::TraceFacility trace( "DrainWatchSm" );
}

Vel::Ptr< IntfMonSm > DrainWatchSm::intfMonIs(
   const Wire::IntfId & intf, const Vel::Ptr< const Cog::TimerWheel > & clock,
   const ReadOnly< Profile > & intfProfile, DrainWatchSm * rootSm,
   const Vel::Ptr< MonitoredIntf > & monitoredIntf, MonIntfState initialState ) {
   if ( const Vel::Ptr< IntfMonSm > present{ intfMon( intf ) } ) {
      requireBuiltFrom( "_clock", clock, present->clock() );
      requireBuiltFrom( "_rootSm", rootSm, present->rootSm() );
      requireBuiltFrom( "_monitoredIntf", monitoredIntf, present->monitoredIntf() );
      requireBuiltFrom( "_initialState", initialState, present->initialState() );
      present->intfProfileIs( intfProfile );
      return present;
   }
   const auto intfMonSm = Vel::validPtr(
      IntfMonSm::IntfMonSmIs( intf, clock, intfProfile, rootSm, monitoredIntf, initialState ) );
   intfMonStore( intf, intfMonSm );
   intfMonSm->hasNotificationActiveIs( true );
   return intfMonSm;
}

void DrainWatchSm::intfMonDel( const Wire::IntfId & intf ) { intfMonTake( intf ); }

void DrainWatchSm::intfMonDelAll() {
   while ( const Wire::IntfId * intf = intfMonFirst() )
      intfMonDel( *intf );
}

void DrainWatchSm::startIntfMonInUnits( const Wire::IntfId & intf ) {
   TRACE( 4, "intf ", intf );
   counters()->numStartIntfMonInUnitsInc( 1 );
   const auto * entry = intfToGroupDir() ? intfToGroupDir()->intfToGroup( intf ) : nullptr;
   if ( !entry )
      return;
   for ( const auto & [group, none] : entry->groupRange() ) {
      const auto * groupToUnit = groupToUnitDir() ? groupToUnitDir()->groupToUnit( group ) : nullptr;
      if ( !groupToUnit )
         continue;
      for ( const auto & [unitName, nothing] : groupToUnit->unitNameRange() ) {
         UnitIntfInput * input = unitMonIntfInput()->unitIntfInput( unitName );
         if ( !input )
            continue;
         TRACE( 4, "Starting intf mon for intf ", intf, " in unit ", unitName, ", group ", group );
         FASTLOG( "starting intf mon for intf ", intf, " in unit ", unitName, ", group ", group );
         input->intfIs( intf, true );
      }
   }
}

void DrainWatchSm::stopIntfMonInUnits( const Wire::IntfId & intf ) {
   TRACE( 4, "intf ", intf );
   counters()->numStopIntfMonInUnitsInc( 1 );
   unitMonIntfIndex_->intfDel( intf );
}

void DrainWatchSm::delFromViolatingIntfsCollection( const Wire::IntfId & intf ) {
   if ( !unitStatusDir() )
      return;
   for ( const auto & [unitName, status] : unitStatusDir()->statusRange() )
      status->intfsViolatingTrafficThresholdDel( intf );
}

} // namespace MaintenanceMode
