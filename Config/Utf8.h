#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace Config {

/// One character of UTF-8.
struct Character {
   std::uint32_t code = 0;
   std::size_t size = 0; ///< in bytes; 0: this is not UTF-8

   /// \param at  before the end of text
   static Character at( std::string_view text, std::size_t at );
   /// ASCII's and those behind it, U+0080 to U+009F.
   bool isControl() const { return code < 0x20 || ( 0x7f <= code && code < 0xa0 ); }
};

/// In lower case: two digits, four from 0x100 on.
std::string hex( std::uint32_t code );

} // namespace Config
