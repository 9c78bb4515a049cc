#include "Config/Configuration.h"

#include "Config/InQuotes.h"

#include <arpa/inet.h>

#include <algorithm>

namespace Config {

namespace {

std::string example() { return "; examples: localhost:8080, [::1]:8080"; }

bool isHostNameCharacter( char c ) {
   return ( 'A' <= c && c <= 'Z' ) || ( 'a' <= c && c <= 'z' ) || ( '0' <= c && c <= '9' ) || c == '-';
}

bool isNameOfHost( std::string_view host ) {
   if ( host.empty() || host.size() > 253 )
      return false;
   while ( true ) {
      const std::size_t dot = host.find( '.' );
      const std::string_view label = host.substr( 0, dot );
      if (
         label.empty() || label.size() > 63 || label.front() == '-' || label.back() == '-' ||
         !std::all_of( label.begin(), label.end(), isHostNameCharacter ) )
         return false;
      if ( dot == host.npos )
         return true;
      host.remove_prefix( dot + 1 );
   }
}

/// Text of digits and dots can only be meant as an address.
bool isHost( const std::string & host ) {
   if ( host.find_first_not_of( "0123456789." ) != host.npos )
      return isNameOfHost( host );
   in_addr address{};
   return inet_pton( AF_INET, host.c_str(), &address ) == 1;
}

/// The canonical form; empty if it is no address.
std::string canonicalV6( const std::string & host ) {
   in6_addr address{};
   char buffer[INET6_ADDRSTRLEN];
   if (
      inet_pton( AF_INET6, host.c_str(), &address ) != 1 ||
      !inet_ntop( AF_INET6, &address, buffer, sizeof( buffer ) ) )
      return {};
   return buffer;
}

std::uint16_t portOf( std::string_view text ) {
   if (
      text.empty() || text.size() > 5 || text.find_first_not_of( "0123456789" ) != text.npos ||
      text[0] == '0' )
      return 0;
   unsigned port = 0;
   for ( const char c : text )
      port = port * 10 + static_cast< unsigned >( c - '0' );
   return port <= 65535 ? static_cast< std::uint16_t >( port ) : 0;
}

} // namespace

bool isHostName( const std::string & text ) {
   return text.find_first_not_of( "0123456789." ) != text.npos && isNameOfHost( text );
}

Parsed< Endpoint > Endpoint::parse( std::string_view text ) {
   using Result = Parsed< Endpoint >;
   const std::size_t colon = text.rfind( ':' );
   const std::size_t bracket = text.rfind( ']' );
   if ( colon == text.npos || ( bracket != text.npos && bracket > colon ) )
      return Result::refused( inQuotes( text ) + " has no port" + example() );
   std::string host( text.substr( 0, colon ) );
   const bool bracketed = host.size() >= 2 && host.front() == '[' && host.back() == ']';
   if ( host.find( '\0' ) != host.npos ) // would end the text for the address functions
      host.clear();
   else if ( bracketed )
      host = canonicalV6( host.substr( 1, host.size() - 2 ) );
   if ( host.empty() || ( !bracketed && !isHost( host ) ) ) {
      const bool bare = !bracketed && !canonicalV6( host ).empty();
      return Result::refused(
         inQuotes( text ) + ( bare ? " needs brackets around its IPv6 address" : " has no valid host" ) +
         example() );
   }
   const std::uint16_t port = portOf( text.substr( colon + 1 ) );
   if ( port == 0 )
      return Result::refused( inQuotes( text ) + " has no valid port (1 to 65535)" + example() );
   return Result::of( { std::move( host ), port } );
}

std::string Endpoint::text() const {
   const bool v6 = host.find( ':' ) != host.npos;
   return ( v6 ? "[" + host + "]" : host ) + ":" + std::to_string( port );
}

const char * text( SwitchKind kind ) { return kind == SwitchKind::linuxKernel ? "linux" : "simulated"; }

const char * text( OnFailure onFailure ) { return onFailure == OnFailure::abort ? "abort" : "continue"; }

std::vector< std::string > builtInStages() { return { drainwatchStage }; }

} // namespace Config
