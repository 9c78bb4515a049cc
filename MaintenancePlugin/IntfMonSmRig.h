#pragma once

#include "MaintenancePlugin/MonitorSequence.h"
#include "Platform/Vel/FailedAssertion.h"

/// Purpose: one interface monitor by itself, base of its tests: no unit starts it, so that a test chooses its state, its
/// record and its profile.
namespace MaintenanceMode {

class IntfMonSmRig {
 protected:
   using State = Maintenance::MonIntfState;
   using Profile = IntfMaintenanceProfile::Status;
   static constexpr State idle = Maintenance::monIntfStateIdle;
   static constexpr State enterMaint = Maintenance::monIntfStateEnterMaint;
   static constexpr State underMaint = Maintenance::monIntfStateUnderMaint;
   static constexpr State stopped = Maintenance::monIntfStateStopped;
   /// Above the threshold of the profile "p", and below it.
   static constexpr Traffic busy{ 1e6, 1e6 };
   static constexpr Traffic quiet{};

   /// The profile "p": 100 kbit/s, 10 s, no shutdown.
   IntfMonSmRig() : p( rig.profileIs( "p", 100, 10, false, 0 ) ) {
      rig.defaultProfileIs( "p" );
      for ( const auto & intf : { et1, et2 } )
         rig.linkIs( intf );
      rig.start();
   }

   /// The interface's record, as an earlier run has left it.
   Maintenance::MonIntfStatus & recorded( State state, double startTime ) {
      auto * record = rig.monIntfStatusDir->monIntfStatusIs( et1, "p", startTime );
      record->stateIs( state );
      return *record;
   }
   IntfMonSm & monitor( const Wire::IntfId & intf, State initialState ) {
      auto * sampler = rig.root->monIntfDir()->monitoredIntfIs( intf, rig.root.get(), p->name() );
      return *rig.root->intfMonIs(
         intf, rig.root->timerWheel(), Vel::Ptr< const Profile >( p ), rig.root.get(), sampler,
         initialState );
   }
   IntfMonSm & monitor( State initialState = enterMaint ) { return monitor( et1, initialState ); }
   /// A unit that holds the interface, with its set of drained interfaces.
   UnitIntfInput & dependentUnit( const Vel::String & unitName, const Wire::IntfId & intf ) {
      rig.unit( unitName );
      rig.root->monIntfDir()->monitoredIntf( intf )->dependentUnitIs( unitName, true );
      return *rig.root->unitDrainedIntf()->unitIntfInputIs( unitName );
   }
   UnitIntfInput & dependentUnit( const Vel::String & unitName ) { return dependentUnit( unitName, et1 ); }
   Maintenance::MonIntfStatus & record() { return *rig.record( et1 ); }
   Vel::U32 samples() { return record().totalSamples(); }
   bool entering() { return rig.monIntfStatusDir->monIntfEnterMaint( et1 ); }
   bool under() { return rig.monIntfStatusDir->monIntfUnderMaint( et1 ); }
   bool spiking() { return rig.monIntfStatusDir->monIntfSpikeUnderMaint( et1 ); }
   /// Seconds until a timer is due; infinite when none is set.
   double due() { return rig.root->timerWheel()->dueTime() - rig.now(); }
   static constexpr double never = Cog::Timer::never;
   /// Times of the next samples, in whole seconds from now.
   using Times = std::vector< int >;
   Times sampleTimes( int seconds ) {
      Times times;
      for ( int second = 1; second <= seconds; ++second ) {
         const auto before = samples();
         rig.advance( 1 );
         if ( samples() != before )
            times.push_back( second );
      }
      return times;
   }
   /// Bits per second of the last sample.
   void ratesAre( double in, double out ) {
      Interface::IntfRates rates;
      rates.inBitsRate = in;
      rates.outBitsRate = out;
      record().curRatesIs( rates );
   }
   PluginRig rig;
   const Wire::IntfId et1 = PluginRig::port( "et1" );
   const Wire::IntfId et2 = PluginRig::port( "et2" );
   IntfMaintenanceProfile::Status * p;
};

/// What the interface monitors do, seen from the outside.
struct IntfMonSequence : MonitorSequence {
   explicit IntfMonSequence( const PluginRig & rig ) : MonitorSequence( "IntfMonSm", rig ) {}
};

} // namespace MaintenanceMode
