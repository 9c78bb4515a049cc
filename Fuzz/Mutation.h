#pragma once

#include "Fuzz/Values.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// Purpose: changes that leave an input what it is. Bytes that are changed anywhere hardly ever get behind the first thing
/// that is read: most texts are no YAML or JSON any more then. These change what one says: its words, and its parts.
namespace Fuzz {

/// How words of a text are kept apart.
struct TextForm {
   std::string_view between; ///< characters, each of which is no part of a word
   bool nested = false;      ///< of YAML and JSON: with lines below others, lists, maps and quotes
   bool quoted = false;      ///< of JSON: what is no number is in quotes
};
constexpr TextForm yaml{ "{}[],\n\"'", true };
constexpr TextForm json{ "{}[],\n\"", true, true };
constexpr TextForm query{ "/?&=" };
constexpr TextForm blanks{ " \n" };

/// Some of its words or parts become others, go, come twice or many times.
void changeText( std::string & text, const TextForm & form, Dice & dice );
/// Into another value, a longer one, one with a strange character.
void changeWord( std::string & word, Dice & dice );
/// A part of another text becomes one of this.
void takePart( std::string & text, std::string_view other, Dice & dice );
/// A number somewhere becomes another one; of 1, 2, 4 or 8 bytes, or with decimals. The size stays.
void changeNumber( std::string & bytes, Dice & dice );
/// The whole, as the fuzzer itself does it: any bytes, words of the dictionary, what it has seen being compared.
void changeAnything( std::string & bytes, std::size_t most );

/// What libFuzzer asks for: an input after a change, cut off where it is too large. It must not be empty.
template < class Change >
std::size_t changed(
   const std::uint8_t * data, std::size_t size, std::uint8_t * out, std::size_t most,
   const Change & change ) {
   std::string bytes( reinterpret_cast< const char * >( data ), size );
   change( bytes );
   if ( bytes.empty() )
      bytes = "0";
   return bytes.copy( reinterpret_cast< char * >( out ), most );
}

} // namespace Fuzz
