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
   const Wire::IntfId & intf, const Vel::Ptr< const Cog::TimerWheel > & clock,
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
   const Wire::IntfId & intf, const Vel::Ptr< const Cog::TimerWheel > & clock,
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

void IntfMonSm::clockIs( const Vel::Ptr< const Cog::TimerWheel > & clock ) {
   if ( !clockStore( clock ) )
      return;
   const double due = timeMin();
   timer_.del();
   if ( !clock )
      return;
   timer_.is( clock, this ).timeMinIs( due );
   timer_.hasNotificationActiveIs( notificationActive_ );
}

void IntfMonSm::timeMinIs( double seconds ) {
   if ( timer_ )
      timer_->timeMinIs( seconds );
}

void IntfMonSm::handleInitialized() {
   VEL_ASSERT( !initialized(), "!initialized()" );
   TRACE_TEXT(
      4, "IntfMonSm::handleInitialized intf ", intf(), ", initial state ", initialState(), ", profile ",
      profileName() );
   oldProfileNameIs( profileName() );
   VEL_ASSERT( monitoredIntf()->monIntfStatus(), "monIntfStatus" );
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
   timeMinIs( Vel::System::currentTime() + thresholdSamplePeriod );
}

void IntfMonSm::setPassiveMonitoringTimeout() {
   const auto & cause = rootSm()->errDisableCauseStatus();
   // An interface that is shut carries nothing to sample.
   if ( cause && cause->intfStatus( intf() ) )
      stopTimer();
   else
      timeMinIs( Vel::System::currentTime() + passiveSamplePeriod );
}

void IntfMonSm::stopTimer() { timeMinIs( Cog::Timer::never ); }

void IntfMonSm::handleTimeout() {
   TRACE_TEXT( 9, "handleTimeout: intf ", intf() );
   monitoredIntf()->updateTrafficRates();
   updateCounters();
   VEL_ASSERT( state() == monIntfStateEnterMaint || state() == monIntfStateUnderMaint, "0" );
   if ( !intfProfile() )
      // There is nothing to decide by; sampling goes on until a profile arrives.
      setMonitoringTimer();
   else if ( state() == monIntfStateEnterMaint )
      awaitDrain();
   else
      watchForSpikes();
}

void IntfMonSm::awaitDrain() {
   const bool drained = hasTrafficDrained();
   // Asked at every sample: the delay may be over, or an interface be left shut that must not be.
   const bool shut = doMaintenanceShutdown( drained );
   if ( !drained && !shut ) {
      setThresholdMonitoringTimeout();
      return;
   }
   notifyDependentUnits();
   stateIs( monIntfStateUnderMaint );
}

void IntfMonSm::watchForSpikes() {
   const bool below = isTrafficBelowThreshold();
   if ( !below ) {
      // Neither is taken back: they tell that there was traffic, not that there is.
      monitoredIntf()->monIntfStatus()->spikeUnderMaintIs( true );
      if ( const auto & dir = rootSm()->monIntfStatusDir() )
         dir->monIntfSpikeUnderMaintIs( intf(), true );
   }
   updateDependentUnitStatus( below );
   setPassiveMonitoringTimeout();
}

} // namespace MaintenanceMode
