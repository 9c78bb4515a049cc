#pragma once

#include "Api/Shapes.h"

#include <optional>
#include <string>

namespace Maintctl {

/// "2026-11-22T14:02:10.000Z, 1m30s left, or restore"; there is a deadline.
std::string deadlineText( const Api::UnitTimes & times );
/// What is to become of a unit at its deadline: ", or restore", or nothing, since it goes on otherwise.
std::string orRestoreText( const std::optional< std::string > & onOverrun );
/// "2026-11-22T16:00:00.000Z, in 1h58m"; there is a time to go back.
std::string revertText( const Api::UnitTimes & times );
/// What there is to be said once when a unit is too late: "a is not under maintenance by its deadline, and goes on".
std::string overrunText( const Api::Unit & unit );

} // namespace Maintctl
