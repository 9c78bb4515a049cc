#include "MaintenancePlugin/DrainWatchSm.h"
#include "MaintenancePlugin/PluginTrace.h"

#include <limits>

namespace MaintenanceMode {

namespace {
Vel::TraceFacility trace( "IntfMonSm" );

/// Seconds as an unsigned number, truncated. The largest count of samples gives more than there is room for.
Vel::U32 truncated( double seconds ) {
   constexpr double limit = std::numeric_limits< Vel::U32 >::max();
   return seconds >= limit ? std::numeric_limits< Vel::U32 >::max() : static_cast< Vel::U32 >( seconds );
}
} // namespace

bool IntfMonSm::isTrafficBelowThreshold() const {
   const double threshold = intfProfile()->drainWatchThresholdInKbps() * 1000.0;
   const Interface::IntfRates & rates = monitoredIntf()->monIntfStatus()->curRates();
   return threshold > rates.outBitsRate && threshold > rates.inBitsRate;
}

void IntfMonSm::updateCounters() {
   Maintenance::MonIntfStatus & record = *monitoredIntf()->monIntfStatus();
   record.totalSamplesInc( 1 );
   if ( !intfProfile() )
      return;
   const bool below = isTrafficBelowThreshold();
   const bool entering = state() == Maintenance::monIntfStateEnterMaint;
   if ( below && entering ) {
      record.numConsecutiveDrainedSamplesInc( 1 );
      record.numSamplesBelowThresholdPreMaintInc( 1 );
   } else if ( below )
      record.numSamplesBelowThresholdPostMaintInc( 1 );
   else if ( entering ) {
      record.numConsecutiveDrainedSamplesIs( 0 );
      record.numSamplesAboveThresholdPreMaintInc( 1 );
   } else
      record.numSamplesAboveThresholdPostMaintInc( 1 );
}

bool IntfMonSm::hasTrafficDrained() const {
   const Maintenance::MonIntfStatus & record = *monitoredIntf()->monIntfStatus();
   Vel::U32 drainInterval = 0;
   bool drained = false;
   if ( isTrafficBelowThreshold() ) {
      drainInterval = truncated( record.numConsecutiveDrainedSamples() * thresholdSamplePeriod );
      drained = drainInterval >= intfProfile()->drainWatchLoadInterval();
   }
   TRACE_TEXT( 4, "hasTrafficDrained: intf ", intf(), ", traffic drained - ", Vel::boolText( drained ) );
   TRACE(
      9, "    threshold ", intfProfile()->drainWatchThresholdInKbps() * 1000.0, ", cur inBitsRates ",
      record.curRates().inBitsRate, ", cur outBitsRates ", record.curRates().outBitsRate );
   TRACE(
      9, "    numConsecutiveDrainedSamples ", record.numConsecutiveDrainedSamples(), ", totalSamples ",
      record.totalSamples() );
   TRACE(
      9, "    startTime ", record.startTime(), ", drainInterval ", drainInterval, ", drainWatchLoadInterval ",
      intfProfile()->drainWatchLoadInterval() );
   return drained;
}

bool IntfMonSm::doMaintenanceShutdown( bool drained ) {
   const auto & cause = rootSm()->errDisableCauseStatus();
   if ( !intfProfile() || !cause )
      return false;
   if ( intfProfile()->shutdown() && mustShut( drained ) ) {
      cause->intfStatusIs( intf(), Vel::System::currentTime() );
      FASTLOG( "maint-down for intf ", intf() );
      return true;
   }
   // Every decision against a shutdown undoes one that is left, whoever has left it.
   if ( cause->intfStatus( intf() ) ) {
      TRACE_TEXT( 4, "doMaintenanceShutdown: intf ", intf(), " bringing it out of maint-down state" );
      FASTLOG( "bring intf ", intf(), " out maint-down state" );
      cause->intfStatusDel( intf() );
   }
   return false;
}

bool IntfMonSm::mustShut( bool drained ) const {
   if ( drained ) {
      TRACE_TEXT( 4, "doMaintenanceShutdown: intfId ", intf(), " shutting down because traffic has drained" );
      return true;
   }
   const double elapsed = Vel::System::currentTime() - monitoredIntf()->monIntfStatus()->startTime();
   const double maxDelay = intfProfile()->shutdownMaxDelay();
   if ( maxDelay != 0 && !( elapsed >= maxDelay ) )
      return false;
   TRACE_TEXT(
      4, "doMaintenanceShutdown: intfId ", intf(), " shutting down because max-delay of ", maxDelay,
      " seconds has elapsed (", elapsed, ")" );
   return true;
}

} // namespace MaintenanceMode
