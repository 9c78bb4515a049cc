#pragma once

#include "Api/Plan.h"
#include "Maintctl/Table.h"

#include <string>

namespace Maintctl {

/// What would come of taking a unit out of service: a line for each interface, what was found below.
std::string planText( const Api::Plan & plan, std::size_t room = endless );
/// One finding on one line: `blocking: 10.0.0.0/8 has no other way than et1`.
std::string findingText( const Api::Finding & finding );

} // namespace Maintctl
