#pragma once

#include <string>

namespace Maintctl {

/// What an operator can do about a local socket that he cannot connect to; empty: nobody knows.
/// \param number  of the system's error
std::string reachingHint( int number, const std::string & socket );

} // namespace Maintctl
