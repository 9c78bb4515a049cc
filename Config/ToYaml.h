#pragma once

#include "Config/Configuration.h"

#include <string>

namespace Config {

/// The configuration as the text of one file, with every default written out. Equal configurations give equal texts,
/// and parse() of the text of an accepted configuration gives an equal one.
std::string toYaml( const Configuration & configuration );

} // namespace Config
