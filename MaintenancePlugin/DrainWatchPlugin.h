#pragma once

#include "MaintenancePlugin/ProfileChangeLog.h"
#include "Platform/Maintenance/PluginBase.h"
#include "Platform/Vel/Ptr.h"

namespace Maintenance {
class PluginContext;
}

namespace MaintenanceMode {

class DrainWatchSmLoader;

/// Purpose: the plug-in as the agent's plug-in loader knows it. Owner: the library; there is one static object,
/// which registers itself when the library is loaded and leaves when it is unloaded.
///
/// Whoever unloads the library deletes the entry "drainWatchPlugin" of the context's directory first. The entry and
/// this object hold the loader between them, so its work ends, and is undone, when the second of them goes.
class DrainWatchPlugin final : public Maintenance::PluginBase< Maintenance::PluginContext > {
 public:
   DrainWatchPlugin();
   ~DrainWatchPlugin() override;

   /// Makes the loader in the context's entity directory and starts it. Throws Vel::RangeError without a context,
   /// Vel::NameInUse if the directory has another entry of that name.
   void init( Maintenance::PluginContext * context ) override;

 private:
   Vel::Ptr< DrainWatchSmLoader > loader_;
};

} // namespace MaintenanceMode
