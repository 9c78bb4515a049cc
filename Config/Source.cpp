#include "Config/Source.h"

#include <cstdint>

namespace Config {

namespace {

constexpr std::string_view byteOrderMark = "\xef\xbb\xbf";

bool continuesCharacter( char c ) { return ( static_cast< unsigned char >( c ) & 0xc0 ) == 0x80; }

/// One character of UTF-8.
struct Character {
   std::uint32_t code = 0;
   std::size_t size = 0; ///< in bytes; 0: this is not UTF-8
};

Character characterAt( std::string_view text, std::size_t at ) {
   const auto first = static_cast< unsigned char >( text[at] );
   if ( first < 0x80 )
      return { first, 1 };
   const std::size_t size = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
   if ( first < 0xc0 || first >= 0xf8 || text.size() - at < size )
      return {};
   std::uint32_t code = first & ( 0x7fU >> size );
   for ( std::size_t i = 1; i < size; ++i ) {
      if ( !continuesCharacter( text[at + i] ) )
         return {};
      code = code << 6 | ( static_cast< unsigned char >( text[at + i] ) & 0x3fU );
   }
   // Longer than needed, half of a pair, behind the last: not characters.
   constexpr std::uint32_t least[] = { 0, 0, 0x80, 0x800, 0x10000 };
   if ( code < least[size] || ( 0xd800 <= code && code <= 0xdfff ) || code > 0x10ffff )
      return {};
   return { code, size };
}

std::string hex( std::uint32_t code ) {
   std::string result;
   for ( int shift = 12; shift >= 0; shift -= 4 )
      if ( shift < 8 || code >> shift )
         result.append( 1, "0123456789abcdef"[code >> shift & 0xf] );
   return result;
}

bool isControl( std::uint32_t code ) { return code < 0x20 || ( 0x7f <= code && code < 0xa0 ); }

} // namespace

Source::Source( std::string_view text, unsigned file )
   : text_( text ), file_( file ), lines_( { 0 } ), lastPlace_{ file, 1, 1 } {
   if ( text_.starts_with( byteOrderMark ) )
      text_.remove_prefix( byteOrderMark.size() );
   for ( std::size_t at = text_.find( '\n' ); at != text_.npos; at = text_.find( '\n', at + 1 ) )
      lines_.push_back( at + 1 );
}

std::string_view Source::line( std::size_t index ) const {
   const std::size_t begin = lines_[index];
   return text_.substr( begin, text_.find( '\n', begin ) - begin );
}

Place Source::place( std::size_t line, std::size_t offset ) {
   line = std::min( line, lines_.size() - 1 );
   offset = std::clamp( offset, lines_[line], text_.size() );
   const auto number = static_cast< unsigned >( line + 1 );
   if ( lastPlace_.line != number ) {
      lastOffset_ = lines_[line];
      lastPlace_ = { file_, number, 1 };
   }
   for ( ; lastOffset_ < offset; ++lastOffset_ )
      lastPlace_.column += !continuesCharacter( text_[lastOffset_] );
   for ( ; lastOffset_ > offset; --lastOffset_ )
      lastPlace_.column -= !continuesCharacter( text_[lastOffset_ - 1] );
   return lastPlace_;
}

bool Source::check( Diagnostics & diagnostics ) const {
   return checkCharacters( diagnostics ) && checkLines( diagnostics );
}

bool Source::checkCharacters( Diagnostics & diagnostics ) const {
   Place place{ file_, 1, 1 };
   for ( std::size_t at = 0; at < text_.size(); ) {
      const Character character = characterAt( text_, at );
      if ( character.size == 0 ) {
         diagnostics.error(
            place, "byte 0x" + hex( static_cast< unsigned char >( text_[at] ) ) + " is not UTF-8 text" );
         return false;
      }
      at += character.size;
      const bool endsLine =
         character.code == '\n' || ( character.code == '\r' && text_.substr( at, 1 ) == "\n" );
      if ( isControl( character.code ) && character.code != '\t' && !endsLine ) {
         diagnostics.error( place, "control character 0x" + hex( character.code ) + " is not allowed" );
         return false;
      }
      ++place.column;
      if ( character.code == '\n' )
         place = { file_, place.line + 1, 1 };
   }
   return true;
}

bool Source::checkLines( Diagnostics & diagnostics ) const {
   bool good = true;
   for ( std::size_t i = 0; i < lines_.size(); ++i ) {
      const std::string_view text = line( i );
      const auto number = static_cast< unsigned >( i + 1 );
      const std::size_t indent = text.find_first_not_of( " \t\r" );
      if ( indent == text.npos || text[indent] == '#' )
         continue;
      const std::size_t tab = text.find( '\t' );
      if ( tab < indent ) {
         diagnostics.error(
            { file_, number, static_cast< unsigned >( tab + 1 ) }, "a tab in the indentation; use blanks" );
         good = false;
      }
      if ( text[0] == '%' ) {
         diagnostics.error( { file_, number, 1 }, "directives are not allowed" );
         good = false;
      }
   }
   return good;
}

} // namespace Config
