#pragma once

#include "Config/Configuration.h"
#include "Config/Diagnostics.h"

namespace Config {

/// Warns of what an accepted configuration says without any effect: it is not what somebody has meant. What may be meant
/// is not warned of, however strange it is.
/// \param root  of all files, of which the configuration was made
void hint( const Configuration & configuration, const Node & root, Diagnostics & diagnostics );

} // namespace Config
