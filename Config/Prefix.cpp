#include "Config/Prefix.h"

#include "Config/InQuotes.h"

#include <arpa/inet.h>

#include <charconv>

namespace Config {

namespace {

/// 0 to 128 without a leading zero; -1: something else.
int lengthOf( std::string_view text ) {
   int value = -1;
   const auto [stop, error] = std::from_chars( text.data(), text.data() + text.size(), value );
   const bool whole = error == std::errc() && stop == text.data() + text.size();
   return whole && ( text == "0" || text[0] != '0' ) && value >= 0 && value <= 128 ? value : -1;
}

bool isZeroBehind( const unsigned char * bytes, int all, int length ) {
   for ( int bit = length; bit < all; ++bit )
      if ( bytes[bit / 8] & ( 0x80 >> bit % 8 ) )
         return false;
   return true;
}

} // namespace

Parsed< std::string > parsePrefix( std::string_view text ) {
   using Result = Parsed< std::string >;
   const std::size_t slash = text.find( '/' );
   const std::string address( text.substr( 0, slash ) );
   unsigned char bytes[16];
   const int family = address.find( ':' ) == address.npos ? AF_INET : AF_INET6;
   const int all = family == AF_INET ? 32 : 128;
   const int length = slash == text.npos ? -1 : lengthOf( text.substr( slash + 1 ) );
   if (
      address.find( '\0' ) != address.npos || length < 0 || length > all ||
      inet_pton( family, address.c_str(), bytes ) != 1 )
      return Result::refused( inQuotes( text ) + " is no destination; examples: 10.0.0.0/8, 2001:db8::/32" );
   if ( !isZeroBehind( bytes, all, length ) )
      return Result::refused(
         inQuotes( text ) + " has bits behind its length of " + std::to_string( length ) );
   char buffer[INET6_ADDRSTRLEN];
   inet_ntop( family, bytes, buffer, sizeof buffer );
   return Result::of( buffer + ( "/" + std::to_string( length ) ) );
}

} // namespace Config
