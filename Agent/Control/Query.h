#pragma once

#include "Platform/Vel/Text.h"

#include <charconv>
#include <optional>
#include <string>

/// Purpose: parameters of requests.
namespace Agent {

/// Decimal digits only, from 1 to `most`; nothing: it is something else.
inline std::optional< Vel::U32 > positiveNumber( const std::string & text, Vel::U32 most ) {
   Vel::U32 value = 0;
   const char * const end = text.data() + text.size();
   const auto [stop, error] = std::from_chars( text.data(), end, value );
   if ( error != std::errc() || stop != end || value == 0 || value > most )
      return std::nullopt;
   return value;
}

} // namespace Agent
