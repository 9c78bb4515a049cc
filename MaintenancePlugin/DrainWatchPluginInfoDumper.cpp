#include "MaintenancePlugin/DrainWatchPluginInfoDumper.h"

#include "MaintenancePlugin/DrainWatchSmLoader.h"

#include <cstdio>

namespace MaintenanceMode {

DrainWatchPluginInfoDumper::DrainWatchPluginInfoDumper( const Vel::String & name ) : DumpPluginInfo( name ) {}

void DrainWatchPluginInfoDumper::dump( unsigned fd ) const {
   const int descriptor = static_cast< int >( fd );
   dprintf( descriptor, "Drain Watch information\n" );
   if ( !context() ) {
      dprintf( descriptor, "DrainWatchSmLoader not initialized\n" );
      return;
   }
   // Until the mounts are complete there is a loader without a root.
   if ( const auto & root = context()->drainWatchSm() )
      root->dump( descriptor, 0 );
}

} // namespace MaintenanceMode
