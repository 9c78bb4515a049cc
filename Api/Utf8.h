#pragma once

#include <cstddef>
#include <string_view>

/// Purpose: which bytes of a text from outside are characters: names of links may be any bytes.
namespace Api {

/// Bytes of the character of UTF-8 that a text begins with, as the standard has it: no form longer than it need be, no
/// surrogate, nothing beyond the last character. 0: it begins with none, or is empty.
std::size_t characterSize( std::string_view text );

/// What a text begins with, of at most so many bytes and without a part of a character at its end. Bytes that are no
/// characters count each for itself.
std::string_view beginning( std::string_view text, std::size_t most );

} // namespace Api
