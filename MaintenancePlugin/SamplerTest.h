#pragma once

#include "MaintenancePlugin/PluginRig.h"
#include "Platform/FastLog/Capture.h"
#include "Platform/Vel/FailedAssertion.h"
#include "Platform/Vel/Trace.h"

#include <gtest/gtest.h>

/// Purpose: what the tests of sampling and of aggregation share: samplers without monitors, so that a sample is taken
/// only when the test says so.
namespace MaintenanceMode {

struct SamplerTest : testing::Test {
   using IntfId = Wire::IntfId;
   using IntfRates = Interface::IntfRates;
   using MaybeU63 = Cog::MaybeU63;

   PluginRig rig;
   const IntfId et1 = PluginRig::port( "et1" );
   const IntfId et2 = PluginRig::port( "et2" );
   const IntfId et3 = PluginRig::port( "et3" );
   const IntfId po1 = PluginRig::portChannel( "po1" );
   const IntfId po2 = PluginRig::portChannel( "po2" );
   const IntfId vlan10 = PluginRig::vlan( "vlan10", 10 );

   SamplerTest() {
      for ( const IntfId & port : { et1, et2, et3 } )
         rig.linkIs( port );
      rig.start();
   }
   /// Starts the plug-in anew, for a test that has taken one of its inputs away.
   void startAgain() {
      rig.stop();
      rig.start();
   }

   /// The interface's sampler, made as a unit's monitor makes it.
   MonitoredIntf & monitored( const IntfId & intf, const Vel::String & profileName = "p" ) {
      return *rig.root->monIntfDir()->monitoredIntfIs( intf, rig.root.get(), profileName );
   }
   /// What the port counts from now on, whatever it has counted so far.
   void countersAre( const IntfId & port, Vel::U64 in, MaybeU63 out ) {
      rig.phyCounterDir->intfCounterDirIs( port )->counterIs( "current" )->statisticsIs( { in, out } );
   }
   /// What is published after some seconds.
   IntfRates sampledAfter( double seconds, MonitoredIntf & sampler ) {
      rig.advance( seconds );
      sampler.updateTrafficRates();
      return sampler.monIntfStatus()->curRates();
   }
   static IntfRates rates( double in, double out, double sampleTime ) {
      return { 0, 0, out, in, sampleTime };
   }
};

} // namespace MaintenanceMode
