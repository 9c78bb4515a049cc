#include "Maintctl/Width.h"

#include "Api/Utf8.h"

#include <algorithm>

namespace Maintctl {

namespace {

bool isIn( char32_t code, const CharacterRange * table, std::size_t count ) {
   const CharacterRange * const end = table + count;
   const CharacterRange * const found = std::lower_bound(
      table, end, code, []( const CharacterRange & range, char32_t c ) { return range.last < c; } );
   return found != end && code >= found->first;
}

bool isBetween( char32_t code, char32_t first, char32_t last ) { return code >= first && code <= last; }

} // namespace

Character firstCharacter( std::string_view text ) {
   const std::size_t length = Api::characterSize( text );
   if ( length == 0 )
      return {};
   const auto byte = [&]( std::size_t i ) { return static_cast< unsigned char >( text[i] ); };
   char32_t code = length == 1 ? byte( 0 ) : byte( 0 ) & ( 0x7FU >> length );
   for ( std::size_t i = 1; i < length; ++i )
      code = code << 6 | ( byte( i ) & 0x3FU );
   return { code, length };
}

std::size_t width( char32_t code ) {
   if ( code < 0x300 )
      return 1;
   if ( isIn( code, noColumn, noColumnCount ) )
      return 0;
   return isIn( code, twoColumns, twoColumnsCount ) ? 2 : 1;
}

bool isControl( char32_t code ) {
   if ( code < 0x20 || isBetween( code, 0x7F, 0x9F ) )
      return true;
   return code == 0x61C || code == 0x200E || code == 0x200F || isBetween( code, 0x2028, 0x202E ) ||
          isBetween( code, 0x2066, 0x206F ) || code == 0xFEFF || isBetween( code, 0xFFF9, 0xFFFB ) ||
          isBetween( code, 0xE0000, 0xE007F );
}

} // namespace Maintctl
