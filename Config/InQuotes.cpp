#include "Config/InQuotes.h"

namespace Config {

namespace {

constexpr std::size_t maxLength = 64;

bool continuesCharacter( char c ) { return ( static_cast< unsigned char >( c ) & 0xc0 ) == 0x80; }

void appendEscaped( std::string & result, unsigned char c ) {
   const char digits[] = "0123456789abcdef";
   if ( c == '"' || c == '\\' )
      result.append( 1, '\\' ).append( 1, static_cast< char >( c ) );
   else if ( c == '\n' )
      result.append( "\\n" );
   else if ( c == '\t' )
      result.append( "\\t" );
   else if ( c < 0x20 || c == 0x7f )
      result.append( "\\x" ).append( 1, digits[c >> 4] ).append( 1, digits[c & 0xf] );
   else
      result.append( 1, static_cast< char >( c ) );
}

} // namespace

std::string inQuotes( std::string_view text ) {
   std::string result = "\"";
   std::size_t length = 0;
   for ( const char c : text ) {
      if ( !continuesCharacter( c ) && ++length > maxLength ) {
         result.append( "..." );
         break;
      }
      appendEscaped( result, static_cast< unsigned char >( c ) );
   }
   return result.append( 1, '"' );
}

} // namespace Config
