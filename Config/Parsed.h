#pragma once

#include <optional>
#include <string>
#include <utility>

namespace Config {

/// A value that was read from text, or why the text gives none. Exactly one of the two is there.
template < typename T >
struct Parsed {
   std::optional< T > value;
   std::string error; ///< one line that names the text and says what to write instead

   static Parsed of( T value ) { return { std::move( value ), {} }; }
   static Parsed refused( std::string error ) { return { std::nullopt, std::move( error ) }; }

   explicit operator bool() const { return value.has_value(); }
};

} // namespace Config
