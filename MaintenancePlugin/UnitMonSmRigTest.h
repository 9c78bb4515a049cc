#pragma once

#include "MaintenancePlugin/MonitorSequence.h"
#include "Platform/Vel/FailedAssertion.h"

#include <gtest/gtest.h>

namespace MaintenanceMode {

/// Unit monitors in a world of their own, all of whose interfaces have the profile "p".
class UnitMonSmRig : public testing::Test {
 protected:
   UnitMonSmRig( PluginRig::ShutLinks shutLinks, bool shutdown, double shutdownMaxDelay )
      : rig( shutLinks ), p( rig.profileIs( "p", 100, 10, shutdown, shutdownMaxDelay ) ) {
      rig.defaultProfileIs( "p" );
   }
   /// Begins with units that all hold these interfaces, and enters them.
   void enter( std::initializer_list< const char * > units, std::initializer_list< Wire::IntfId > intfs ) {
      for ( const auto & intf : intfs )
         rig.linkIs( intf );
      for ( const char * unitName : units )
         rig.unitIs( unitName, intfs );
      rig.start();
      for ( const char * unitName : units )
         rig.enter( unitName );
   }
   void busy( const Wire::IntfId & intf ) {
      rig.linkIs( intf );
      rig.trafficIs( intf, { 1e9, 1e9 } );
   }
   /// As enter, and all interfaces are busy.
   void
   enterBusy( std::initializer_list< const char * > units, std::initializer_list< Wire::IntfId > intfs ) {
      for ( const auto & intf : intfs )
         busy( intf );
      enter( units, intfs );
   }
   /// Begins with a unit that holds nothing, and enters it.
   void enterEmpty() { enter( { "u1" }, {} ); }
   Vel::U32 reports() { return rig.counters().numNotifyStageCompletion(); }
   UnitMonSm & unitMon( const Vel::String & unitName = "u1" ) { return *rig.root->unitMon( unitName ); }
   UnitIntfInput & monIntf( const Vel::String & unitName = "u1" ) { return *unitMon( unitName ).monIntf(); }
   UnitIntfInput & drained( const Vel::String & unitName = "u1" ) {
      return *unitMon( unitName ).drainedIntf();
   }

   PluginRig rig;
   IntfMaintenanceProfile::Status * p;
   const Wire::IntfId et1 = PluginRig::port( "et1" );
   const Wire::IntfId et2 = PluginRig::port( "et2" );
   const Wire::IntfId et3 = PluginRig::port( "et3" );
};

/// While it lives, a monitor is without its sampler: what no request can bring about.
class WithoutSampler {
 public:
   explicit WithoutSampler( IntfMonSm & intfMon ) {
      for ( const auto & attribute : intfMon.typeInfo().attributes() )
         if ( attribute.name == Vel::String( "monitoredIntf" ) )
            place_ = static_cast< Vel::Ptr< MonitoredIntf > * >( attribute.raw( intfMon ) );
      std::swap( *place_, sampler_ );
   }
   ~WithoutSampler() { std::swap( *place_, sampler_ ); }
   WithoutSampler( const WithoutSampler & ) = delete;
   WithoutSampler & operator=( const WithoutSampler & ) = delete;

 private:
   Vel::Ptr< MonitoredIntf > * place_ = nullptr;
   Vel::Ptr< MonitoredIntf > sampler_;
};

/// What the unit monitors do, seen from the outside.
struct UnitMonSequence : MonitorSequence {
   explicit UnitMonSequence( const PluginRig & rig ) : MonitorSequence( "UnitMonSm", rig ) {}
};

} // namespace MaintenanceMode
