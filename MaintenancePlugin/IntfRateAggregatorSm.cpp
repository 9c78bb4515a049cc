#include "MaintenancePlugin/IntfRateAggregatorSm.h"

#include "MaintenancePlugin/PluginTrace.h"
#include "Platform/Vel/Clock.h"

#include <cmath>

namespace MaintenanceMode {

using Interface::IntfRates;
using Maintenance::Unit::TrafficRates;

namespace {
Vel::TraceFacility trace( "IntfRateAggregatorSm" );

/// Whole bits per second, rounded half away from zero. Rates that no counter can give have one fixed value each, so
/// that what was added can be subtracted again.
Vel::U64 rounded( double rate ) {
   constexpr double half = 9223372036854775808.0; // 2^63
   if ( std::isnan( rate ) )
      return Vel::U64( 1 ) << 63;
   const double whole = std::round( rate );
   if ( whole >= 2 * half || whole < -half )
      return 0;
   if ( whole < 0 )
      return Vel::U64( 0 ) - static_cast< Vel::U64 >( -whole );
   return static_cast< Vel::U64 >( whole );
}

Maintenance::Unit::Status *
unitStatus( const IntfRateAggregatorSm & aggregator, const Vel::String & unitName ) {
   return aggregator.unitStatusDir() ? aggregator.unitStatusDir()->status( unitName ) : nullptr;
}
} // namespace

IntfRateAggregatorSm::IntfRateAggregatorSm(
   const Vel::Ptr< const MonitoredIntfDir > & monIntfDir,
   const Vel::Ptr< const Maintenance::MonIntfStatusDir > & monIntfStatusDir,
   const Vel::Ptr< Maintenance::Unit::StatusDir > & unitStatusDir )
   : monIntfDir_( monIntfDir ), monIntfStatusDir_( monIntfStatusDir ), unitStatusDir_( unitStatusDir ) {
   if ( monIntfDir_ ) {
      monIntfDirReactor_.is( monIntfDir_, this ).hasNotificationActiveIs( true );
      for ( const auto & [intf, monitored] : monIntfDir_->monitoredIntfRange() )
         monitoredIntfIs( intf, monitored );
   }
   if ( monIntfStatusDir_ ) {
      monIntfStatusDirReactor_.is( monIntfStatusDir_, this ).hasNotificationActiveIs( true );
      for ( const auto & [intf, record] : monIntfStatusDir_->monIntfStatusRange() )
         monIntfStatusIs( intf, record );
   }
}

IntfRateAggregatorSm::~IntfRateAggregatorSm() = default;

void IntfRateAggregatorSm::handleInitialized() {
   TRACE( 5, "IntfRateAggregatorSm started" );
   if ( unitStatusDir() )
      for ( const auto & [unit, status] : unitStatusDir()->statusRange() ) {
         TRACE( 9, "Resetting the aggregate rate for unit:", unit );
         status->aggTrafficRateIs( TrafficRates() );
      }
   if ( monIntfDir() )
      for ( const auto & [intf, intfIter] : monIntfDir()->monitoredIntfRange() ) {
         VEL_ASSERT( intfIter->monIntfStatus(), "intfIter->monIntfStatus()" );
         const IntfRates rates = intfIter->monIntfStatus()->curRates();
         for ( const auto & [unit, value] : intfIter->dependentUnitRange() )
            if ( auto * status = unitStatus( *this, unit ) )
               status->aggTrafficRateIs(
                  calculateNewAggregate( unit, intf, status->aggTrafficRate(), IntfRates(), rates ) );
      }
   initializedIs( true );
   TRACE( 4, "IntfRateAggregatorSm - initialized" );
}

void IntfRateAggregatorSm::handleMonitoredIntf( const Wire::IntfId & intfId ) {
   const MonitoredIntf * const monitored = monIntfDir()->monitoredIntf( intfId );
   if ( VelMonIntfStatus * const record = monIntfStatus( intfId ) )
      record->monitoredIntf = monitored;
   if ( monitored )
      monitoredIntfIs( intfId, monitored );
   else
      monitoredIntfDel( intfId );
}

void IntfRateAggregatorSm::handleMonIntfStatus( const Wire::IntfId & intfId ) {
   if ( const auto * record = monIntfStatusDir()->monIntfStatus( intfId ) )
      monIntfStatusIs( intfId, record );
   else
      monIntfStatusDel( intfId );
}

TrafficRates IntfRateAggregatorSm::calculateNewAggregate(
   const Vel::String & unitName, const Wire::IntfId & intfId, const TrafficRates & curAgg,
   const IntfRates & ratesToSub, const IntfRates & ratesToAdd ) const {
   const Vel::U64 subIn = rounded( ratesToSub.inBitsRate );
   const Vel::U64 subOut = rounded( ratesToSub.outBitsRate );
   const Vel::U64 addIn = rounded( ratesToAdd.inBitsRate );
   const Vel::U64 addOut = rounded( ratesToAdd.outBitsRate );

   if ( subIn > curAgg.inRate ) {
      TRACE(
         1, "Underflow while subtracting rateToSubInRate from curAggInRate.", " Unit:", unitName,
         " IntfId:", intfId, " ratesToSubInRate:", subIn, " curAggInRate:", curAgg.inRate );
      // The label of the subtracted value is what tools look for.
      FASTLOG(
         "Underflow while subtracting ratesToSubInRate from", " curAggInRate. Unit:", unitName,
         " IntfId:", intfId, " ratesToAddInRate:", subIn, " curAggInRate:", curAgg.inRate );
      VEL_ASSERT( false, "0" );
   }
   if ( subOut > curAgg.outRate ) {
      TRACE(
         1, "Underflow while subtracting rateToSubOutRate from curAggOutRate.", " Unit:", unitName,
         " IntfId:", intfId, " ratesToSubOutRate:", subOut, " curAggOutRate:", curAgg.outRate );
      FASTLOG(
         "Underflow while subtracting ratesToSubOutRate from", " curAggOutRate. Unit:", unitName,
         " IntfId:", intfId, " ratesToSubOutRate:", subOut, " curAggOutRate:", curAgg.outRate );
      VEL_ASSERT( false, "0" );
   }
   const Vel::U64 sumIn = curAgg.inRate + addIn;
   if ( sumIn < curAgg.inRate ) {
      TRACE(
         1, "Overflow while adding ratesToAddInRate to curAggInRate.", " Unit:", unitName, " IntfId:", intfId,
         " ratesToAddInRate:", addIn, " curAggInRate:", curAgg.inRate );
      FASTLOG(
         "Overflow while adding ratesToAddInRate to", " curAggInRate. Unit:", unitName, " IntfId:", intfId,
         " ratesToAddInRate:", addIn, " curAggInRate:", curAgg.inRate, " sumIn:", sumIn );
      VEL_ASSERT( false, "0" );
   }
   const Vel::U64 sumOut = curAgg.outRate + addOut;
   if ( sumOut < curAgg.outRate ) {
      TRACE(
         1, "Overflow while adding ratesToAddOutRate to ", "curAggOutRate.", " Unit:", unitName,
         " IntfId:", intfId, " ratesToAddOutRate:", addOut, " curAggOutRate:", curAgg.outRate );
      FASTLOG(
         "Overflow while adding ratesToAddOutRate to", " curAggOutRate. Unit:", unitName, " IntfId:", intfId,
         " ratesToAddOutRate:", addOut, " curAggOutRate:", curAgg.outRate, " sumOut:", sumOut );
      VEL_ASSERT( false, "0" );
   }
   const TrafficRates newAgg{ sumOut - subOut, sumIn - subIn, Vel::System::currentTime() };
   TRACE(
      4, "unit:", unitName, " intfId:", intfId, " curAggInRate: ", curAgg.inRate, " ratesToSubInRate:", subIn,
      " ratesToAddInRate:", addIn, " newAggInRate:", newAgg.inRate, ". curAggOutRate:", curAgg.outRate,
      " ratesToSubOutRate", subOut, " ratesToAddOutRate: ", addOut, " newAggOutRate:", newAgg.outRate );
   return newAgg;
}

IntfRateAggregatorSm::VelMonIntfStatus::VelMonIntfStatus(
   Vel::Ptr< const Maintenance::MonIntfStatus > record, IntfRateAggregatorSm * owner )
   : ReactorTo( std::move( record ), owner ) {
   if ( owner->monIntfDir() )
      monitoredIntf = owner->monIntfDir()->monitoredIntf( entity()->intfId() );
}

void IntfRateAggregatorSm::VelMonIntfStatus::handleMonIntfStatusRateChange() {
   const Maintenance::MonIntfStatus & record = *entity();
   const Wire::IntfId & intf = record.intfId();
   TRACE( 4, intf );
   if ( !monitoredIntf ) {
      TRACE( 4, "ERROR:MonitoredIntf object does not exist for the interface ", intf, " whose rate changed" );
      return;
   }
   TRACE( 4, "Rates changed for interface:", intf );
   for ( const auto & [unit, value] : monitoredIntf->dependentUnitRange() ) {
      auto * status = unitStatus( *sm(), unit );
      if ( !status ) {
         TRACE(
            1, "Error:Unit Status object does not exist for a dependent unit.IntfId:", intf, " Unit:", unit );
         VEL_ASSERT( false, "0" );
      }
      status->aggTrafficRateIs( sm()->calculateNewAggregate(
         unit, intf, status->aggTrafficRate(), record.prevRates(), record.curRates() ) );
   }
}

void IntfRateAggregatorSm::VelMonitoredIntf::handleMonitoredIntfConfigChange( const Vel::String & unitName ) {
   const Wire::IntfId & intf = entity()->intfId();
   TRACE( 4, intf, " ", unitName );
   auto * status = unitStatus( *sm(), unitName );
   if ( !status ) {
      TRACE(
         4, "UnitStatus object does not exist. Nothing to do. Early return.", "UnitName:", unitName,
         " IntfId:", intf );
      return;
   }
   const auto & record = entity()->monIntfStatus();
   VEL_ASSERT( record, "monitoredIntf()->monIntfStatus()" );
   const bool * belongs = entity()->dependentUnit( unitName );
   if ( belongs && *belongs ) {
      TRACE(
         4, "IntfId:", intf, " was added to Unit:", unitName, ". Adding the intf rate to unit's aggregate." );
      status->aggTrafficRateIs( sm()->calculateNewAggregate(
         unitName, intf, status->aggTrafficRate(), IntfRates(), record->curRates() ) );
      return;
   }
   TRACE(
      4, "IntfId:", intf, " was removed from the Unit:", unitName,
      ". Subtracting the intf rate from unit's aggregate" );
   status->aggTrafficRateIs( sm()->calculateNewAggregate(
      unitName, intf, status->aggTrafficRate(), record->curRates(), IntfRates() ) );
}

} // namespace MaintenanceMode
