#include "Config/Hooks.h"

#include "Config/Configuration.h"
#include "Config/InQuotes.h"

#include <algorithm>

namespace Config {

namespace {

constexpr std::size_t longestUrl = 2000;

/// Of a URL as it is sent: everything else has to be escaped.
bool isUrlCharacter( char c ) {
   return '!' <= c && c <= '~' && std::string_view( "\"<>\\^`{|}" ).find( c ) == std::string_view::npos;
}

} // namespace

const char * text( Moment moment ) {
   switch ( moment ) {
   case Moment::enter:
      return "enter";
   case Moment::drained:
      return "drained";
   case Moment::shut:
      return "shut";
   case Moment::spike:
      return "spike";
   case Moment::completed:
      return "completed";
   case Moment::exit:
      return "exit";
   case Moment::normal:
      return "normal";
   case Moment::overrun:
      break;
   }
   return "overrun";
}

std::vector< Moment > allMoments() {
   return { Moment::enter,     Moment::drained, Moment::shut,   Moment::spike,
            Moment::completed, Moment::exit,    Moment::normal, Moment::overrun };
}

/// Messages do not repeat the text: it may hold a password.
Parsed< std::string > parseUrl( std::string_view text ) {
   using Result = Parsed< std::string >;
   const std::string example = "; example: https://hooks.example.net:8443/maintenance?from=spine-a";
   const std::size_t scheme = text.find( "://" );
   if ( scheme == text.npos || ( text.substr( 0, scheme ) != "http" && text.substr( 0, scheme ) != "https" ) )
      return Result::refused( "the URL does not begin with http:// or https://" + example );
   if ( text.size() > longestUrl )
      return Result::refused( "the URL is longer than " + std::to_string( longestUrl ) + " bytes" );
   if ( const auto bad = std::find_if_not( text.begin(), text.end(), isUrlCharacter ); bad != text.end() )
      return Result::refused(
         "the URL has a character that has to be escaped, at " + std::to_string( bad - text.begin() + 1 ) );
   if ( text.find( '#' ) != text.npos )
      return Result::refused( "the URL has a \"#\"; what is behind it would not be sent" );
   const std::string_view rest = text.substr( scheme + 3 );
   std::string_view authority = rest.substr( 0, rest.find_first_of( "/?" ) );
   if ( const std::size_t at = authority.rfind( '@' ); at != authority.npos )
      authority.remove_prefix( at + 1 );
   const std::size_t colon = authority.rfind( ':' );
   const std::size_t bracket = authority.rfind( ']' );
   const bool hasPort = colon != authority.npos && ( bracket == authority.npos || bracket < colon );
   const Parsed< Endpoint > endpoint = Endpoint::parse( std::string( authority ) + ( hasPort ? "" : ":80" ) );
   if ( !endpoint )
      return Result::refused(
         "the URL has no valid host" + std::string( hasPort ? " and port" : "" ) + example );
   return Result::of( std::string( text ) );
}

} // namespace Config
