#include "Config/Names.h"

#include <algorithm>

namespace Config {

namespace {

bool isAlphanumeric( char c ) {
   return ( 'A' <= c && c <= 'Z' ) || ( 'a' <= c && c <= 'z' ) || ( '0' <= c && c <= '9' );
}

bool isBlankOrControl( char c ) { return static_cast< unsigned char >( c ) <= 0x20 || c == 0x7f; }

} // namespace

bool isName( std::string_view text ) {
   return !text.empty() && text.size() <= 63 && isAlphanumeric( text[0] ) &&
          std::all_of( text.begin(), text.end(), []( char c ) {
             return isAlphanumeric( c ) || c == '.' || c == '_' || c == '-';
          } );
}

std::string interfaceNameError( std::string_view text ) {
   if ( text.empty() )
      return "is empty";
   if ( text.size() > 15 )
      return "is longer than 15 bytes";
   if ( text == "." || text == ".." )
      return "is reserved";
   if ( std::any_of( text.begin(), text.end(), isBlankOrControl ) )
      return "contains a blank or control character";
   if ( text.find( '\xa0' ) != text.npos ) // also as a part of a letter
      return "contains byte 0xa0, which the kernel takes for a blank";
   if ( text.find( '/' ) != text.npos )
      return "contains \"/\"";
   if ( text.find( ':' ) != text.npos )
      return "contains \":\"";
   return {};
}

} // namespace Config
