#include "Maintctl/Text.h"

#include "Api/Names.h"
#include "Api/Values.h"
#include "Maintctl/Width.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace Maintctl {

std::string rateText( std::optional< double > bps ) {
   return bps && std::isfinite( *bps ) ? Api::rateText( *bps ) : nothing;
}

std::string spanText( double seconds ) { return Api::spanText( seconds ); }

std::string ageText( std::optional< double > time, std::optional< double > now ) {
   if ( !time )
      return nothing;
   return now ? spanText( *now - *time ) : Api::timeText( *time );
}

std::string aheadText( std::optional< double > time, std::optional< double > now ) {
   if ( !time )
      return nothing;
   if ( !now )
      return "at " + Api::timeText( *time );
   return *time <= *now ? "now" : "in " + spanText( std::ceil( *time - *now ) );
}

std::string drainedText( std::uint64_t drained, std::uint64_t total ) {
   return std::to_string( drained ) + " of " + std::to_string( total ) + " drained";
}

std::string countText( std::size_t count, std::string_view what ) {
   return std::to_string( count ) + " " + std::string( what ) + ( count == 1 ? "" : "s" );
}

std::string listText( const std::vector< std::string > & names ) {
   std::string result;
   for ( const std::string & name : names )
      result += ( result.empty() ? "" : ", " ) + name;
   return result.empty() ? nothing : result;
}

std::string orNothing( const std::optional< std::string > & text ) {
   return text && !text->empty() ? *text : nothing;
}

const char * yesNo( bool value ) { return value ? "yes" : "no"; }

std::string stateText( const std::string & state ) {
   return state == Api::UnitState::maintenance ? "under maintenance" : state;
}

namespace {

/// Most texts are: one column a character, nothing that could fool anybody.
bool isPlain( std::string_view text ) {
   return std::all_of( text.begin(), text.end(), []( char c ) { return c >= 0x20 && c < 0x7F; } );
}

} // namespace

const char * utcOf( std::string_view words ) {
   const auto digit = []( char c ) { return c >= '0' && c <= '9'; };
   for ( std::size_t at = words.find( ':' ); at != words.npos; at = words.find( ':', at + 1 ) )
      if (
         at >= 3 && at + 2 < words.size() && words[at - 3] == ' ' && digit( words[at - 2] ) &&
         digit( words[at - 1] ) && digit( words[at + 1] ) && digit( words[at + 2] ) )
         return " (UTC)";
   return "";
}

std::string printable( std::string_view text ) {
   if ( isPlain( text ) )
      return std::string( text );
   std::string result;
   while ( !text.empty() ) {
      const Character character = firstCharacter( text );
      const std::size_t length = std::max< std::size_t >( character.length, 1 );
      if ( character.length > 0 && !isControl( character.code ) )
         result += text.substr( 0, length );
      else
         for ( const char c : text.substr( 0, length ) ) {
            char hex[8];
            std::snprintf( hex, sizeof hex, "\\x%02X", static_cast< unsigned char >( c ) );
            result += hex;
         }
      text.remove_prefix( length );
   }
   return result;
}

std::size_t columns( std::string_view text ) {
   if ( isPlain( text ) )
      return text.size();
   std::size_t result = 0;
   while ( !text.empty() ) {
      const Character character = firstCharacter( text );
      result += character.length ? width( character.code ) : 1;
      text.remove_prefix( std::max< std::size_t >( character.length, 1 ) );
   }
   return result;
}

std::string cut( std::string_view text, std::size_t most ) {
   std::size_t end = 0;
   for ( std::size_t shown = 0; end < text.size(); ) {
      const Character character = firstCharacter( text.substr( end ) );
      shown += character.length ? width( character.code ) : 1;
      if ( shown > most )
         break;
      end += std::max< std::size_t >( character.length, 1 );
   }
   return std::string( text.substr( 0, end ) );
}

std::string ascii( std::string_view text ) {
   std::string result;
   while ( !text.empty() ) {
      const Character character = firstCharacter( text );
      if ( character.length == 1 )
         result += text[0];
      else
         result.append( character.length ? width( character.code ) : 1, '?' );
      text.remove_prefix( std::max< std::size_t >( character.length, 1 ) );
   }
   return result;
}

} // namespace Maintctl
