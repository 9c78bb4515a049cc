#pragma once

#include "Platform/FastLog/Layout.h"

#include <string>

/// Purpose: a line that somebody has read.
namespace FastLog {

/// What follows a text that was cut.
inline constexpr char cutMark[] = "[...]";

struct Line {
   std::uint64_t sequence = 0;
   double time = 0; ///< seconds
   Kind kind = Kind::event;
   std::string file; ///< from the root of the tree
   unsigned line = 0;
   std::string function;
   std::string text;
};

/// For a person: "17 1700000000.250 MaintenancePlugin/IntfMonSm.cpp:42 handleTimer: TEXT"; the text of a profiling
/// point begins with "[profile] ". Control characters, which could fool a terminal, are shown as "\xHH".
std::string formatted( const Line & line );

} // namespace FastLog
