#pragma once

#include "MaintenancePlugin/PluginRig.h"
#include "MaintenancePlugin/UnitMonSm.h"
#include "Platform/FastLog/Capture.h"
#include "Platform/Vel/FailedAssertion.h"
#include "Platform/Vel/Trace.h"

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
   UnitMonSm & unitMon( const Vel::String & unitName = "u1" ) { return *rig.root->unitMon( unitName ); }
   UnitIntfInput & monIntf( const Vel::String & unitName = "u1" ) { return *unitMon( unitName ).monIntf(); }
   UnitIntfInput & drained( const Vel::String & unitName = "u1" ) {
      return *unitMon( unitName ).drainedIntf();
   }

   PluginRig rig;
   IntfMaintenanceProfile::Status * p;
   const Wire::IntfId et1 = PluginRig::port( "et1" );
   const Wire::IntfId et2 = PluginRig::port( "et2" );
};

} // namespace MaintenanceMode
