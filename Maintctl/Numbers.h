#pragma once

#include <CLI/CLI.hpp>

#include <charconv>
#include <cstdint>
#include <limits>
#include <string>

/// Purpose: what numbers of the command line may be. Those of CLI11 take what is no whole number, and tell limits nobody
/// can read.
namespace Maintctl {

/// A whole number within these.
inline CLI::Validator number( std::uint64_t from, std::uint64_t to ) {
   return CLI::Validator(
      [from, to]( std::string & text ) {
         std::uint64_t value = 0;
         const char * const end = text.data() + text.size();
         const auto read = std::from_chars( text.data(), end, value );
         if ( read.ec == std::errc() && read.ptr == end && value >= from && value <= to )
            return std::string();
         return "\"" + text + "\" is no number from " + std::to_string( from ) + " to " +
                std::to_string( to );
      },
      "" );
}

/// One of something that is numbered from 1 on.
inline CLI::Validator id() { return number( 1, std::numeric_limits< std::uint32_t >::max() ); }

} // namespace Maintctl
