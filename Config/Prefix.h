#pragma once

#include "Config/Parsed.h"

#include <string>
#include <string_view>

namespace Config {

/// Reads a destination of routes, `10.0.0.0/8` or `2001:db8::/32`, and gives it in its one canonical form. Bits behind
/// the length must be zero, so that nobody means another network than he gets.
Parsed< std::string > parsePrefix( std::string_view text );

} // namespace Config
