#include "Config/Utf8.h"

namespace Config {

namespace {

bool continuesCharacter( char c ) { return ( static_cast< unsigned char >( c ) & 0xc0 ) == 0x80; }

} // namespace

Character Character::at( std::string_view text, std::size_t at ) {
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
      if ( shift < 8 || code >> 8 )
         result.append( 1, "0123456789abcdef"[code >> shift & 0xf] );
   return result;
}

} // namespace Config
