#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

/// Purpose: one line of what is drawn, before anybody knows how a terminal shows colours.
namespace Maintctl {

/// What a piece of text is to look like. It never says anything that the text does not say too.
enum class Tone { plain, strong, faint, good, warning, bad };

struct Span {
   std::string text; ///< printable
   Tone tone = Tone::plain;

   friend bool operator==( const Span &, const Span & ) = default;
};

/// Invariant: holds nothing that could act on a terminal, whatever was added.
class Line {
 public:
   Line() = default;
   explicit Line( std::string_view text, Tone tone = Tone::plain ) { add( text, tone ); }

   Line & add( std::string_view text, Tone tone = Tone::plain );
   /// Text in a field of so many columns: cut if it is too long, filled up with blanks behind it.
   Line & field( std::string_view text, std::size_t width, Tone tone = Tone::plain );
   /// A name in such a field. Names of one kind often differ at their ends only, so what is too long is left out in the
   /// middle, which `…` (or `~`) shows.
   Line & nameField( std::string_view name, std::size_t width, bool utf8, Tone tone = Tone::plain );
   /// The blanks before it.
   Line & rightField( std::string_view text, std::size_t width, Tone tone = Tone::plain );
   Line & add( const Line & line );

   std::size_t columns() const { return columns_; }
   const std::vector< Span > & spans() const { return spans_; }
   /// Without tones.
   std::string text() const;

   /// At most so many columns of it, blanks at its end removed, and in ASCII if the terminal knows nothing else. What was
   /// cut ends with `…` (or `~`), where there is room for more than that.
   Line fitted( std::size_t width, bool utf8 ) const;

   friend bool operator==( const Line &, const Line & ) = default;

 private:
   static Line withoutBlanksAtItsEnd( Line line );

   std::vector< Span > spans_;
   std::size_t columns_ = 0;
};

using Lines = std::vector< Line >;

/// Text on lines of at most so many columns, broken at blanks; words that are longer are broken where the line ends.
/// \param most  lines, at least 1; the last one ends with `...` (or `…`) if there was more
std::vector< std::string > wrapped( std::string_view text, std::size_t width, std::size_t most, bool utf8 );

} // namespace Maintctl
