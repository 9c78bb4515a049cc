#pragma once

#include "Config/Configuration.h"

#include <set>
#include <string>

namespace Agent {

/// Why an interface has the profile that it has, for people: "named by group a", "the default, as group a names none",
/// "the strictest of watch (group c) and fast (the default of group d): lowest threshold". Empty if there is no group.
/// \param configuration  an accepted one
/// \param groups         names of the interface's groups; those that it does not know are left out
std::string profileWhy( const Config::Configuration & configuration, const std::set< std::string > & groups );

} // namespace Agent
