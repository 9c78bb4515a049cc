#pragma once

#include <cstddef>
#include <string_view>

/// Purpose: characters of UTF-8 and the columns that a terminal gives them.
namespace Maintctl {

struct Character {
   char32_t code = 0;
   std::size_t length = 0; ///< bytes; 0: the text begins with no well-formed character
};

/// What the text, which is not empty, begins with. Overlong forms, surrogates and codes above U+10FFFF are not
/// well-formed.
Character firstCharacter( std::string_view text );

/// 0 for what joins the character before it, 2 for wide ones, 1 for the others. Those of ambiguous width count 1.
std::size_t width( char32_t code );

/// Whether it can change how other text is shown: controls, line separators, marks that turn the direction of writing.
bool isControl( char32_t code );

/// First and last code, ascending; see Tools/make-widths.
struct CharacterRange {
   char32_t first, last;
};
extern const CharacterRange noColumn[], twoColumns[];
extern const std::size_t noColumnCount, twoColumnsCount;

} // namespace Maintctl
