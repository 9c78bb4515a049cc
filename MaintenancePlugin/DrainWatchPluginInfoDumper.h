#pragma once

#include "Platform/Maintenance/DumpPluginInfo.h"

namespace MaintenanceMode {

class DrainWatchSmLoader;

/// Purpose: the plug-in's answer to the framework's request for its diagnostic text.
/// Owner: the loader; known to the plug-in context for as long as it lives.
class DrainWatchPluginInfoDumper final : public Maintenance::DumpPluginInfo {
   VEL_SUBENTITY( DrainWatchPluginInfoDumper, Maintenance::DumpPluginInfo );
   explicit DrainWatchPluginInfoDumper( const Vel::String & name );

   VEL_ATTR( DrainWatchSmLoader *, context, onContext ); ///< plain pointer: the loader owns the dumper

   void dump( unsigned fd ) const override;
};

} // namespace MaintenanceMode
