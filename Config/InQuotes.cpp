#include "Config/InQuotes.h"

#include "Config/Utf8.h"

#include <algorithm>

namespace Config {

namespace {

constexpr std::size_t maxLength = 64;

/// What is not seen, or makes what stands around it look different.
bool isInvisible( std::uint32_t code ) {
   return code == 0xa0 || code == 0xad || code == 0x61c || code == 0x180e ||
          ( 0x2000 <= code && code <= 0x200f ) || ( 0x2028 <= code && code <= 0x202f ) ||
          ( 0x205f <= code && code <= 0x206f ) || code == 0x3000 || code == 0xfeff;
}

std::string escaped( std::string_view text, Character character ) {
   if ( character.size == 0 )
      return "\\x" + hex( static_cast< unsigned char >( text[0] ) );
   if ( character.code == '"' || character.code == '\\' )
      return std::string( "\\" ).append( text.substr( 0, 1 ) );
   if ( character.code == '\n' )
      return "\\n";
   if ( character.code == '\t' )
      return "\\t";
   if ( character.code < 0x80 && character.isControl() )
      return "\\x" + hex( character.code );
   if ( character.isControl() || isInvisible( character.code ) )
      return ( character.code < 0x100 ? "\\u00" : "\\u" ) + hex( character.code );
   return std::string( text.substr( 0, character.size ) );
}

} // namespace

std::string inQuotes( std::string_view text ) {
   std::string result = "\"";
   std::size_t length = 0;
   while ( !text.empty() ) {
      if ( ++length > maxLength ) {
         result.append( "..." );
         break;
      }
      const Character character = Character::at( text, 0 );
      result.append( escaped( text, character ) );
      text.remove_prefix( std::max< std::size_t >( character.size, 1 ) );
   }
   return result.append( 1, '"' );
}

} // namespace Config
