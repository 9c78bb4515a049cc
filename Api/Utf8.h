#pragma once

#include <cstddef>
#include <string_view>

/// Purpose: which bytes of a text from outside are characters: names of links may be any bytes.
namespace Api {

/// Bytes of the character of UTF-8 that a text begins with, as the standard has it: no form longer than it need be, no
/// surrogate, nothing beyond the last character. 0: it begins with none, or is empty.
std::size_t characterSize( std::string_view text );

} // namespace Api
