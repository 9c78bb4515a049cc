#pragma once

#include "Platform/Vel/Log.h"

namespace MaintenanceMode {

/// An interface monitor was given another profile. Arguments: interface, new profile, old profile.
extern const Vel::LogHandle MMODE_INTF_PROFILE_CHANGE;

} // namespace MaintenanceMode
