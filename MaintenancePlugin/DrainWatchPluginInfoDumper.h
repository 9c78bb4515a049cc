#pragma once

#include "Platform/Maintenance/DumpPluginInfo.h"

namespace MaintenanceMode {

class DrainWatchSmLoader;

/// Purpose: the plug-in's answer to the framework's request for its diagnostic text.
/// Owner: the loader; known to the plug-in context for as long as it lives.
class DrainWatchPluginInfoDumper final : public Maintenance::DumpPluginInfo {
   VEL_SUBENTITY( DrainWatchPluginInfoDumper, Maintenance::DumpPluginInfo );
   explicit DrainWatchPluginInfoDumper( const Vel::String & name );

   DrainWatchSmLoader * context() const { return context_; }
   /// Plain pointer: the loader owns the dumper.
   void contextIs( DrainWatchSmLoader * loader ) { context_ = loader; }

   void dump( unsigned fd ) const override;

 private:
   DrainWatchSmLoader * context_ = nullptr;
};

} // namespace MaintenanceMode
