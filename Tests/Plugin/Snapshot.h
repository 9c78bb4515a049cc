#pragma once

#include "MaintenancePlugin/PluginRig.h"

/// Purpose: everything that the plug-in publishes, as text, so that a story compares all of it and not only what it is
/// about. Times are seconds since the start of the story, rates are bits per second; what is empty or 0 is left out of
/// sets and counters.
namespace Tests {

std::string snapshot( const MaintenanceMode::PluginRig & rig );

} // namespace Tests
