#pragma once

#include "Maintctl/Invocation.h"
#include "Maintctl/Remote.h"

#include <string>

namespace Maintctl {

/// The last line of a wait: `a is under maintenance after 11s`, and behind it what whoever waited may take for granted
/// and must not: stages that have failed, interfaces that nobody has waited for, links that stay shut for other units.
/// Asks the agent for it; what it cannot say is left out. Throws Failure if it is interrupted.
/// \param unit  the body that said that the unit is there
std::string
arrivalText( const std::string & unit, Operate::Operation operation, double seconds, Remote & remote );

} // namespace Maintctl
