#include "Api/Utf8.h"

namespace Api {

std::size_t characterSize( std::string_view text ) {
   if ( text.empty() )
      return 0;
   const auto at = [&]( std::size_t i ) { return static_cast< unsigned char >( text[i] ); };
   const unsigned char first = at( 0 );
   const std::size_t size = first < 0x80                    ? 1
                            : first >= 0xc2 && first < 0xe0 ? 2
                            : first >= 0xe0 && first < 0xf0 ? 3
                            : first >= 0xf0 && first < 0xf5 ? 4
                                                            : 0;
   if ( size == 0 || size > text.size() )
      return 0;
   for ( std::size_t i = 1; i < size; ++i )
      if ( ( at( i ) & 0xc0 ) != 0x80 )
         return 0;
   // Forms that are longer than they need be, surrogates, beyond the last character.
   if (
      ( first == 0xe0 && at( 1 ) < 0xa0 ) || ( first == 0xed && at( 1 ) > 0x9f ) ||
      ( first == 0xf0 && at( 1 ) < 0x90 ) || ( first == 0xf4 && at( 1 ) > 0x8f ) )
      return 0;
   return size;
}

std::string_view beginning( std::string_view text, std::size_t most ) {
   if ( text.size() <= most )
      return text;
   constexpr std::size_t longestCharacter = 4;
   for ( std::size_t back = 1; back < longestCharacter && back <= most; ++back )
      if ( characterSize( text.substr( most - back ) ) > back )
         return text.substr( 0, most - back );
   return text.substr( 0, most );
}

} // namespace Api
