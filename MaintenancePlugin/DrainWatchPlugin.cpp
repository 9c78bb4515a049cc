#include "MaintenancePlugin/DrainWatchPlugin.h"

#include "MaintenancePlugin/DrainWatchSmLoader.h"
#include "Platform/Maintenance/PluginInterface.h"
#include "Platform/Maintenance/PluginLoader.h"

MAINT_PLUGIN_DECLARE();

namespace MaintenanceMode {

// The static objects of this file are made in the order in which they stand here and go in the reverse one: the loader
// is made by the name of its type, and the plug-in takes all its work down before the types leave the registry.
namespace {

const Vel::TypeRegistration< UnitMonSm > unitMonSmType;
const Vel::TypeRegistration< IntfMonSm > intfMonSmType;
const Vel::TypeRegistration< DrainWatchSmLoader > drainWatchSmLoaderType;
const Vel::TypeRegistration< DrainWatchSmDebugCounters > drainWatchSmDebugCountersType;
const Vel::TypeRegistration< IntfStatusSm > intfStatusSmType;
const Vel::TypeRegistration< DrainWatchPluginInfoDumper > drainWatchPluginInfoDumperType;
const Vel::TypeRegistration< IntfRateAggregatorSm > intfRateAggregatorSmType;
const Vel::TypeRegistration< UnitIntfInputDir > unitIntfInputDirType;
const Vel::TypeRegistration< MaintStageHelperSm > maintStageHelperSmType;
const Vel::TypeRegistration< UnitIntfInput > unitIntfInputType;
const Vel::TypeRegistration< IntfCounterInfo > intfCounterInfoType;
const Vel::TypeRegistration< DrainWatchSm > drainWatchSmType;
const Vel::TypeRegistration< MonitoredIntfDir > monitoredIntfDirType;
const Vel::TypeRegistration< MonitoredIntf > monitoredIntfType;

} // namespace

const Vel::LogHandle MMODE_INTF_PROFILE_CHANGE(
   "MMODE_INTF_PROFILE_CHANGE", Vel::LogSeverity::notice,
   "For interface %s, interface profile changed to %s (was %s)",
   "A different interface profile was picked based on precedence because the same same interface was part of "
   "multiple units.",
   Vel::NoActionRequired, 0.0, 1.0, 0 );

DrainWatchPlugin::DrainWatchPlugin() {
   auto & pluginLoader = Maintenance::DefaultPluginLoader();
   pluginLoader.registerPlugin(
      "DrainWatchPlugin", pluginLoader.name(), "", "", Maintenance::InitCaller( this ) );
}

DrainWatchPlugin::~DrainWatchPlugin() = default;

void DrainWatchPlugin::init( Maintenance::PluginContext * context ) {
   const Vel::Ptr< Maintenance::PluginContext > contextPtr( context );
   Vel::Dir & dir = *Vel::validPtr( contextPtr )->entityDir();
   dir.entryIs( "drainWatchPlugin", "MaintenanceMode::DrainWatchSmLoader" );
   const Vel::Ptr< Vel::Entity > entityPtr = dir.entityRef( "drainWatchPlugin" );
   VEL_ASSERT( entityPtr, "entityPtr" );
   loader_ = Vel::ptrCast< DrainWatchSmLoader >( entityPtr );
   loader_->init( contextPtr );
}

namespace {
DrainWatchPlugin plugin;
}

} // namespace MaintenanceMode
