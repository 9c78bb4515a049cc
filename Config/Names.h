#pragma once

#include <string>
#include <string_view>

namespace Config {

/// Whether text may name a profile, group or unit: [A-Za-z0-9][A-Za-z0-9._-]{0,62}.
bool isName( std::string_view text );

/// Why text cannot be the name of a network interface of the kernel, as the rest of a sentence that begins with the
/// name; empty if it can: 1 to 15 bytes, no blank or control character, no "/" or ":", not "." or "..".
std::string interfaceNameError( std::string_view text );

} // namespace Config
