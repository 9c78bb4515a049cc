#include "Config/Source.h"

#include "Config/Utf8.h"

namespace Config {

namespace {

constexpr std::string_view byteOrderMark = "\xef\xbb\xbf";

bool continuesCharacter( char c ) { return ( static_cast< unsigned char >( c ) & 0xc0 ) == 0x80; }

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
      const Character character = Character::at( text_, at );
      if ( character.size == 0 && !diagnostics.acceptedBefore() ) {
         diagnostics.error(
            place, "byte 0x" + hex( static_cast< unsigned char >( text_[at] ) ) + " is not UTF-8 text" );
         return false;
      }
      at += std::max< std::size_t >( character.size, 1 );
      const bool endsLine =
         character.code == '\n' || ( character.code == '\r' && text_.substr( at, 1 ) == "\n" );
      const bool wasAllowed = diagnostics.acceptedBefore() && character.code >= 0x80;
      if (
         character.size != 0 && character.isControl() && character.code != '\t' && !endsLine &&
         !wasAllowed ) {
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
