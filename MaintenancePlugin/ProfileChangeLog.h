#pragma once

#include "Platform/Vel/Log.h"

namespace MaintenanceMode {

/// An interface monitor was given another profile. Arguments: interface, new profile, old profile. Defined beside
/// the plug-in's static object, DrainWatchPlugin.cpp.
extern const Vel::LogHandle MMODE_INTF_PROFILE_CHANGE;

} // namespace MaintenanceMode
