#include "Maintctl/Text.h"

#include "Api/Names.h"
#include "Api/Utf8.h"
#include "Api/Values.h"

#include <cmath>
#include <cstdio>

namespace Maintctl {

namespace {

bool continues( char c ) { return ( static_cast< unsigned char >( c ) & 0xC0 ) == 0x80; }

/// Controls, also those of 0x80 to 0x9F.
bool isControl( std::string_view character ) {
   const auto first = static_cast< unsigned char >( character[0] );
   return first < 0x20 || first == 0x7F ||
          ( first == 0xC2 && static_cast< unsigned char >( character[1] ) < 0xA0 );
}

} // namespace

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

std::string printable( std::string_view text ) {
   std::string result;
   while ( !text.empty() ) {
      const std::size_t length = Api::characterSize( text );
      if ( length && !isControl( text ) ) {
         result += text.substr( 0, length );
         text.remove_prefix( length );
         continue;
      }
      char hex[8];
      std::snprintf( hex, sizeof hex, "\\x%02X", static_cast< unsigned char >( text[0] ) );
      result += hex;
      text.remove_prefix( 1 );
   }
   return result;
}

std::size_t columns( std::string_view text ) {
   std::size_t result = 0;
   for ( const char c : text )
      result += !continues( c );
   return result;
}

std::string cut( std::string_view text, std::size_t width ) {
   std::size_t end = 0;
   for ( std::size_t shown = 0; end < text.size(); ++end )
      if ( !continues( text[end] ) && shown++ == width )
         break;
   return std::string( text.substr( 0, end ) );
}

} // namespace Maintctl
