#pragma once

#include <string>
#include <string_view>

namespace Config {

/// Text of a file as it may stand in a message: in double quotes, control characters and quotes escaped, cut after
/// 64 characters. The text is UTF-8.
std::string inQuotes( std::string_view text );

} // namespace Config
