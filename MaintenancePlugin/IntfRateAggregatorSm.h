#pragma once

#include "MaintenancePlugin/MonitoredIntf.h"
#include "Platform/Model/Maintenance.h"

namespace MaintenanceMode {

/// Purpose: keeps each unit's aggregate rate equal to the sum of the current rates of the interfaces that it
/// holds. Owner: the root.
///
/// Invariants:
/// 1. A unit's aggregate is changed by exactly what an interface contributes now and contributed before, in
///    whole bits per second; subtracting more than there is, or wrapping, is fatal.
/// 2. The same double is always converted to the same integer, or what was added could not be taken away
///    again.
class IntfRateAggregatorSm final : public Vel::Entity {
   VEL_ENTITY( IntfRateAggregatorSm );
   IntfRateAggregatorSm(
      const Vel::Ptr< const MonitoredIntfDir > & monIntfDir,
      const Vel::Ptr< const Maintenance::MonIntfStatusDir > & monIntfStatusDir,
      const Vel::Ptr< Maintenance::Unit::StatusDir > & unitStatusDir );
   ~IntfRateAggregatorSm() override;

   struct VelMonitoredIntf final : Vel::ReactorTo< IntfRateAggregatorSm, MonitoredIntf > {
      using ReactorTo::ReactorTo;
      void onDependentUnit( const Vel::String & unitName ) override {
         handleMonitoredIntfConfigChange( unitName );
      }
      void handleMonitoredIntfConfigChange( const Vel::String & unitName );
   };
   struct VelMonIntfStatus final : Vel::ReactorTo< IntfRateAggregatorSm, Maintenance::MonIntfStatus > {
      VelMonIntfStatus( Vel::Ptr< const Maintenance::MonIntfStatus > record, IntfRateAggregatorSm * owner );
      /// The interface's entry in monIntfDir, null while there is none. Kept, for it is wanted at every sample.
      const MonitoredIntf * monitoredIntf = nullptr;
      void onCurRates() override { handleMonIntfStatusRateChange(); }
      void handleMonIntfStatusRateChange();
   };
   struct VelMonIntfDir final : Vel::ReactorTo< IntfRateAggregatorSm, MonitoredIntfDir > {
      using ReactorTo::ReactorTo;
      void onMonitoredIntf( const Wire::IntfId & intfId ) override { sm()->handleMonitoredIntf( intfId ); }
   };
   struct VelMonIntfStatusDir final : Vel::ReactorTo< IntfRateAggregatorSm, Maintenance::MonIntfStatusDir > {
      using ReactorTo::ReactorTo;
      void onMonIntfStatus( const Wire::IntfId & intfId ) override { sm()->handleMonIntfStatus( intfId ); }
   };

   VEL_PARAM( Vel::Ptr< const MonitoredIntfDir >, monIntfDir );
   VEL_PARAM( Vel::Ptr< const Maintenance::MonIntfStatusDir >, monIntfStatusDir );
   VEL_PARAM( Vel::Ptr< Maintenance::Unit::StatusDir >, unitStatusDir );
   VEL_REACTORS( Wire::IntfId, VelMonitoredIntf, monitoredIntf );
   VEL_REACTORS( Wire::IntfId, VelMonIntfStatus, monIntfStatus );
   VEL_ATTR( bool, initialized, onInitialized );

   /// Rebuilds every unit's aggregate from zero.
   void handleInitialized();
   void handleMonitoredIntf( const Wire::IntfId & intfId );
   void handleMonIntfStatus( const Wire::IntfId & intfId );

   /// The aggregate with one contribution replaced by another; time = now. Ends the agent on underflow and wrap.
   Maintenance::Unit::TrafficRates calculateNewAggregate(
      const Vel::String & unitName, const Wire::IntfId & intfId,
      const Maintenance::Unit::TrafficRates & curAgg, const Interface::IntfRates & ratesToSub,
      const Interface::IntfRates & ratesToAdd ) const;

 private:
   Vel::Watch< VelMonIntfDir > monIntfDirReactor_;
   Vel::Watch< VelMonIntfStatusDir > monIntfStatusDirReactor_;
};

} // namespace MaintenanceMode
