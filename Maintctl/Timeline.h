#pragma once

#include "Api/History.h"

#include <string>

/// Purpose: what happened in a maintenance, in order, as text for people.
namespace Maintctl {

/// Lines of it at most; what is too much is left out in the middle, and the text says how much that is.
inline constexpr std::size_t mostTimelineLines = 200;

/// A heading and the lines, each ended; begins with an empty line. Empty if nothing happened.
std::string timelineText( const Api::MaintenanceRecord & record );

/// `2026-03-01 12:00:00` and `12:00:00`, UTC.
std::string dayText( double time );
std::string clockText( double time );

} // namespace Maintctl
