#include "MaintenancePlugin/IntfMonSm.h"

#include "MaintenancePlugin/DrainWatchSm.h"
#include "MaintenancePlugin/PluginTrace.h"

namespace MaintenanceMode {

using Maintenance::monIntfStateEnterMaint;
using Maintenance::monIntfStateIdle;
using Maintenance::monIntfStateStopped;
using Maintenance::monIntfStateUnderMaint;

namespace {
Vel::TraceFacility trace( "IntfMonSm" );
}

IntfMonSm::IntfMonSm(
   const Wire::IntfId & intf, const Vel::Ptr< Cog::TimerWheel > & clock,
   const Vel::Ptr< const Profile > & intfProfile, DrainWatchSm * rootSm,
   const Vel::Ptr< MonitoredIntf > & monitoredIntf, Maintenance::MonIntfState initialState )
   : intf_( intf ),
     clock_( clock ),
     intfProfile_( intfProfile ),
     rootSm_( rootSm ),
     monitoredIntf_( monitoredIntf ),
     initialState_( initialState ),
     state_( monIntfStateIdle ) {
   timer_.is( clock_, this );
   if ( intfProfile_ )
      profileReactor_.is( intfProfile_, this );
}

Vel::Ptr< IntfMonSm > IntfMonSm::IntfMonSmIs(
   const Wire::IntfId & intf, const Vel::Ptr< Cog::TimerWheel > & clock,
   const Vel::Ptr< const Profile > & intfProfile, DrainWatchSm * rootSm,
   const Vel::Ptr< MonitoredIntf > & monitoredIntf, Maintenance::MonIntfState initialState ) {
   auto intfMon = Vel::make< IntfMonSm >( intf, clock, intfProfile, rootSm, monitoredIntf, initialState );
   intfMon->handleInitialized();
   return intfMon;
}

void IntfMonSm::hasNotificationActiveIs( bool active ) {
   notificationActive_ = active;
   timer_.hasNotificationActiveIs( active );
   profileReactor_.hasNotificationActiveIs( active );
}

void IntfMonSm::clockIs( const Vel::Ptr< Cog::TimerWheel > & clock ) {
   if ( !clockStore( clock ) )
      return;
   timer_.del();
   if ( clock )
      timer_.is( clock, this ).hasNotificationActiveIs( notificationActive_ );
}

void IntfMonSm::handleInitialized() {
   VEL_ASSERT( !initialized(), "!initialized()" );
   TRACE_TEXT(
      4, "IntfMonSm::handleInitialized intf ", intf(), ", initial state ", initialState(), ", profile ",
      profileName() );
   oldProfileNameIs( profileName() );
   // A state that an earlier run has recorded goes on, whatever it is.
   const Maintenance::MonIntfState recorded = monitoredIntf()->monIntfStatus()->state();
   const Maintenance::MonIntfState effectiveState = recorded != monIntfStateIdle ? recorded : initialState();
   TRACE( 4, "intf ", intf(), ", effectiveState ", effectiveState );
   const bool shut = doMaintenanceShutdown( effectiveState == monIntfStateUnderMaint );
   stateIs( shut ? monIntfStateUnderMaint : effectiveState );
   initializedIs( true );
}

void IntfMonSm::stateIs( Maintenance::MonIntfState state ) {
   if ( stateStore( state ) )
      handleState();
}

void IntfMonSm::handleState() {
   TRACE_TEXT( 4, "IntfMonSm::handleState intf ", intf(), ", state ", state() );
   Maintenance::MonIntfStatus & record = *monitoredIntf()->monIntfStatus();
   if ( record.state() != state() ) {
      record.stateIs( state() );
      record.stateTimeIs( Vel::System::currentTime() );
   }
   setMonitoringTimer();
   const auto & dir = rootSm()->monIntfStatusDir();
   if ( !dir )
      return;
   if ( state() == monIntfStateEnterMaint )
      dir->monIntfEnterMaintIs( intf(), true );
   else if ( state() == monIntfStateUnderMaint ) {
      dir->monIntfEnterMaintDel( intf() );
      dir->monIntfUnderMaintIs( intf(), true );
      if ( record.spikeUnderMaint() )
         dir->monIntfSpikeUnderMaintIs( intf(), true );
   }
}

void IntfMonSm::setMonitoringTimer() {
   TRACE_TEXT( 9, "setMonitoringTimer: intf ", intf(), ", state ", state() );
   switch ( state() ) {
   case monIntfStateIdle:
      break;
   case monIntfStateEnterMaint:
      setThresholdMonitoringTimeout();
      break;
   case monIntfStateUnderMaint:
      setPassiveMonitoringTimeout();
      break;
   case monIntfStateStopped:
      stopTimer();
      break;
   default:
      VEL_ASSERT( false, "0" );
   }
}

void IntfMonSm::setThresholdMonitoringTimeout() {
   timer_->timeMinIs( Vel::System::currentTime() + thresholdSamplePeriod );
}

void IntfMonSm::setPassiveMonitoringTimeout() {
   const auto & cause = rootSm()->errDisableCauseStatus();
   // An interface that is shut carries nothing to sample.
   if ( cause && cause->intfStatus( intf() ) )
      stopTimer();
   else
      timer_->timeMinIs( Vel::System::currentTime() + passiveSamplePeriod );
}

void IntfMonSm::stopTimer() { timer_->timeMinIs( Cog::Timer::never ); }

void IntfMonSm::handleTimeout() {
   TRACE_TEXT( 9, "handleTimeout: intf ", intf() );
   monitoredIntf()->updateTrafficRates();
   updateCounters();
   if ( !intfProfile() ) {
      // Without a profile there is nothing to decide by; sampling goes on until one arrives.
      setMonitoringTimer();
      return;
   }
   if ( state() == monIntfStateEnterMaint ) {
      const bool drained = hasTrafficDrained();
      const bool shut = doMaintenanceShutdown( drained );
      if ( !drained && !shut ) {
         setThresholdMonitoringTimeout();
         return;
      }
      notifyDependentUnits();
      stateIs( monIntfStateUnderMaint );
   } else if ( state() == monIntfStateUnderMaint ) {
      const bool below = isTrafficBelowThreshold();
      if ( !below ) {
         monitoredIntf()->monIntfStatus()->spikeUnderMaintIs( true );
         if ( const auto & dir = rootSm()->monIntfStatusDir() )
            dir->monIntfSpikeUnderMaintIs( intf(), true );
      }
      updateDependentUnitStatus( below );
      setPassiveMonitoringTimeout();
   } else
      VEL_ASSERT( false, "0" );
}

} // namespace MaintenanceMode
