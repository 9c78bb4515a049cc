#pragma once

#include "MaintenancePlugin/PluginRig.h"
#include "MaintenancePlugin/Recorded.h"

#include <deque>

/// Purpose: the traces of unit monitors or of interface monitors and, between them, what they do to everything around
/// them.
namespace MaintenanceMode {

inline Lines joined( std::initializer_list< Lines > parts ) {
   Lines all;
   for ( const Lines & part : parts )
      all.insert( all.end(), part.begin(), part.end() );
   return all;
}

class MonitorSequence : public Sequence {
   using IntfId = Wire::IntfId;
   template < class R >
   using Watches = std::deque< Vel::Watch< R > >;

 public:
   /// Sees the monitors, samplers and published sets of all interfaces, those that are shut, and the counters.
   MonitorSequence( const char * facility, const PluginRig & rig ) : Sequence( facility ), rig_( rig ) {
      watch( roots_, rig.root );
      watch( samplerDirs_, rig.root->monIntfDir() );
      watch( recordDirs_, rig.monIntfStatusDir );
      watch( causes_, rig.cause );
      watch( counters_, rig.root->counters() );
   }
   /// Sees the interface's record too.
   void watchRecord( const IntfId & intf ) { watch( records_, Vel::Ptr( rig_.record( intf ) ) ); }
   /// Sees the interface's sampler too, and holds it: its record stays as long as this.
   void watchSampler( const IntfId & intf ) {
      watch( samplers_, Vel::Ptr( rig_.root->monIntfDir()->monitoredIntf( intf ) ) );
   }
   /// Sees the profile that the interface's monitor holds too.
   void watchMonitor( const IntfId & intf ) { watch( monitors_, Vel::Ptr( rig_.root->intfMon( intf ) ) ); }
   /// Sees the unit's violations and its sets too.
   void watchUnit( const Vel::String & unitName ) {
      watch( units_, Vel::Ptr( rig_.unitStatusDir->status( unitName ) ) );
      watch( monitored_, Vel::Ptr( rig_.root->unitMonIntfInput()->unitIntfInputIs( unitName ) ) );
      watch( drained_, Vel::Ptr( rig_.root->unitDrainedIntf()->unitIntfInputIs( unitName ) ) );
   }

   struct VelRoot final : Vel::ReactorTo< MonitorSequence, DrainWatchSm > {
      using ReactorTo::ReactorTo;
      void onIntfMon( const IntfId & intf ) override {
         sm()->note( "monitor of ", intf, entity()->intfMon( intf ) ? "" : " gone" );
      }
   };
   struct VelSamplerDir final : Vel::ReactorTo< MonitorSequence, MonitoredIntfDir > {
      using ReactorTo::ReactorTo;
      void onMonitoredIntf( const IntfId & intf ) override {
         sm()->note( "sampler of ", intf, entity()->monitoredIntf( intf ) ? "" : " gone" );
      }
   };
   struct VelRecordDir final : Vel::ReactorTo< MonitorSequence, Maintenance::MonIntfStatusDir > {
      using ReactorTo::ReactorTo;
      void onMonIntfStatus( const IntfId & intf ) override {
         sm()->note( "record of ", intf, entity()->monIntfStatus( intf ) ? "" : " gone" );
      }
      void onMonIntfEnterMaint( const IntfId & intf ) override {
         sm()->noteEntry( "monIntfEnterMaint", intf, entity()->monIntfEnterMaint( intf ) );
      }
      void onMonIntfUnderMaint( const IntfId & intf ) override {
         sm()->noteEntry( "monIntfUnderMaint", intf, entity()->monIntfUnderMaint( intf ) );
      }
      void onMonIntfSpikeUnderMaint( const IntfId & intf ) override {
         sm()->noteEntry( "monIntfSpikeUnderMaint", intf, entity()->monIntfSpikeUnderMaint( intf ) );
      }
   };
   struct VelCause final : Vel::ReactorTo< MonitorSequence, Errdisable::CauseStatus > {
      using ReactorTo::ReactorTo;
      void onIntfStatus( const IntfId & intf ) override {
         sm()->note( entity()->intfStatus( intf ) ? "shut " : "brought back ", intf );
      }
   };
   struct VelCounters final : Vel::ReactorTo< MonitorSequence, DrainWatchSmDebugCounters > {
      using ReactorTo::ReactorTo;
      void onNumIntfMonInitialStatePassive() override { sm()->note( "numIntfMonInitialStatePassive" ); }
      void onNumIntfMonIntfNotSupported() override { sm()->note( "numIntfMonIntfNotSupported" ); }
      void onNumIntfMonNoIntfStatus() override { sm()->note( "numIntfMonNoIntfStatus" ); }
      void onNumIntfMonIntfOperNotUp() override { sm()->note( "numIntfMonIntfOperNotUp" ); }
      void onNumIntfMonProfileChange() override { sm()->note( "numIntfMonProfileChange" ); }
   };
   struct VelRecord final : Vel::ReactorTo< MonitorSequence, Maintenance::MonIntfStatus > {
      using ReactorTo::ReactorTo;
      void onState() override { sm()->note( "state ", entity()->state() ); }
      void onStateTime() override { sm()->note( "stateTime" ); }
      void onCurRates() override { sm()->note( "curRates" ); }
      void onTotalSamples() override { sm()->note( "totalSamples" ); }
      void onNumConsecutiveDrainedSamples() override { sm()->note( "numConsecutiveDrainedSamples" ); }
      void onNumSamplesAboveThresholdPreMaint() override { sm()->note( "numSamplesAboveThresholdPreMaint" ); }
      void onNumSamplesBelowThresholdPreMaint() override { sm()->note( "numSamplesBelowThresholdPreMaint" ); }
      void onNumSamplesAboveThresholdPostMaint() override {
         sm()->note( "numSamplesAboveThresholdPostMaint" );
      }
      void onNumSamplesBelowThresholdPostMaint() override {
         sm()->note( "numSamplesBelowThresholdPostMaint" );
      }
      void onSpikeUnderMaint() override { sm()->note( "spikeUnderMaint ", entity()->spikeUnderMaint() ); }
   };
   struct VelSampler final : Vel::ReactorTo< MonitorSequence, MonitoredIntf > {
      using ReactorTo::ReactorTo;
      void onDependentUnit( const Vel::String & unitName ) override {
         sm()->noteEntry( "dependentUnit", unitName, entity()->dependentUnit( unitName ) );
      }
      void onProfileName() override { sm()->note( "profileName ", entity()->profileName() ); }
   };
   struct VelMonitor final : Vel::ReactorTo< MonitorSequence, IntfMonSm > {
      using ReactorTo::ReactorTo;
      void onIntfProfile() override { sm()->note( "intfProfile ", entity()->intfProfile()->name() ); }
      void onOldProfileName() override { sm()->note( "oldProfileName ", entity()->oldProfileName() ); }
   };
   struct VelUnit final : Vel::ReactorTo< MonitorSequence, Maintenance::Unit::Status > {
      using ReactorTo::ReactorTo;
      void onIntfsViolatingTrafficThreshold( const IntfId & intf ) override {
         sm()->noteEntry(
            Vel::text( entity()->unitName(), " violating" ), intf,
            entity()->intfsViolatingTrafficThreshold( intf ) );
      }
      void onTotalIntfTrafficViolations() override {
         sm()->note( entity()->unitName(), " violations ", entity()->totalIntfTrafficViolations() );
      }
   };
   struct VelMonitored final : Vel::ReactorTo< MonitorSequence, UnitIntfInput > {
      using ReactorTo::ReactorTo;
      void onIntf( const IntfId & intf ) override {
         sm()->noteEntry( Vel::text( entity()->name(), " monitored" ), intf, entity()->intf( intf ) );
      }
   };
   struct VelDrained final : Vel::ReactorTo< MonitorSequence, UnitIntfInput > {
      using ReactorTo::ReactorTo;
      void onIntf( const IntfId & intf ) override {
         sm()->noteEntry( Vel::text( entity()->name(), " drained" ), intf, entity()->intf( intf ) );
      }
   };

 private:
   template < class R, class E >
   void watch( Watches< R > & watches, const Vel::Ptr< E > & entity ) {
      if ( entity )
         watches.emplace_back().is( entity, this ).hasNotificationActiveIs( true );
   }
   /// "what + key", "what - key"; an entry that is there and says false shows as "what 0 key".
   template < class What, class Key >
   void noteEntry( const What & what, const Key & key, const bool * entry ) {
      note( what, !entry ? " - " : *entry ? " + " : " 0 ", key );
   }

   const PluginRig & rig_;
   Watches< VelRoot > roots_;
   Watches< VelSamplerDir > samplerDirs_;
   Watches< VelRecordDir > recordDirs_;
   Watches< VelCause > causes_;
   Watches< VelCounters > counters_;
   Watches< VelRecord > records_;
   Watches< VelSampler > samplers_;
   Watches< VelMonitor > monitors_;
   Watches< VelUnit > units_;
   Watches< VelMonitored > monitored_;
   Watches< VelDrained > drained_;
};

} // namespace MaintenanceMode
