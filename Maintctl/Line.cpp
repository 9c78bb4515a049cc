#include "Maintctl/Line.h"

#include "Maintctl/Text.h"
#include "Maintctl/Width.h"

#include <algorithm>

namespace Maintctl {

namespace {

std::string blanks( std::size_t count ) { return std::string( count, ' ' ); }

/// One column wide.
const char * cutMark( bool utf8 ) { return utf8 ? "…" : "~"; }

std::size_t missing( std::string_view text, std::size_t width ) {
   const std::size_t taken = columns( text );
   return taken < width ? width - taken : 0;
}

} // namespace

Line & Line::add( std::string_view text, Tone tone ) {
   std::string shown = printable( text );
   if ( shown.empty() )
      return *this;
   columns_ += Maintctl::columns( shown );
   if ( !spans_.empty() && spans_.back().tone == tone )
      spans_.back().text += shown;
   else
      spans_.push_back( { std::move( shown ), tone } );
   return *this;
}

Line & Line::field( std::string_view text, std::size_t width, Tone tone ) {
   const std::string shown = cut( printable( text ), width );
   return add( shown, tone ).add( blanks( missing( shown, width ) ) );
}

Line & Line::nameField( std::string_view name, std::size_t width, bool utf8, Tone tone ) {
   const std::string shown = printable( name );
   if ( Maintctl::columns( shown ) <= width || width < 3 )
      return field( shown, width, tone );
   const std::string begin = cut( shown, ( width - 1 ) / 2 );
   std::string_view end = shown;
   while ( Maintctl::columns( end ) > width - 1 - Maintctl::columns( begin ) )
      end.remove_prefix( std::max< std::size_t >( firstCharacter( end ).length, 1 ) );
   return field( begin + cutMark( utf8 ) + std::string( end ), width, tone );
}

Line & Line::rightField( std::string_view text, std::size_t width, Tone tone ) {
   const std::string shown = cut( printable( text ), width );
   return add( blanks( missing( shown, width ) ) ).add( shown, tone );
}

Line & Line::add( const Line & line ) {
   for ( const Span & span : line.spans_ )
      add( span.text, span.tone );
   return *this;
}

std::string Line::text() const {
   std::string result;
   for ( const Span & span : spans_ )
      result += span.text;
   return result;
}

Line Line::fitted( std::size_t width, bool utf8 ) const {
   const Line whole = withoutBlanksAtItsEnd( *this );
   const bool tooLong = whole.columns_ > width;
   const bool marked = tooLong && width > 1;
   Line result;
   for ( const Span & span : whole.spans_ ) {
      const std::string shown = utf8 ? span.text : ascii( span.text );
      const std::string kept = cut( shown, width - marked - result.columns() );
      result.add( kept, span.tone );
      if ( kept.size() < shown.size() ) {
         if ( marked )
            result.add( cutMark( utf8 ), span.tone );
         break;
      }
   }
   return withoutBlanksAtItsEnd( std::move( result ) );
}

Line Line::withoutBlanksAtItsEnd( Line result ) {
   while ( !result.spans_.empty() ) {
      std::string & last = result.spans_.back().text;
      const std::size_t end = last.find_last_not_of( ' ' ) + 1;
      result.columns_ -= last.size() - end;
      last.resize( end );
      if ( end > 0 )
         break;
      result.spans_.pop_back();
   }
   return result;
}

std::vector< std::string > wrapped( std::string_view whole, std::size_t width, std::size_t most, bool utf8 ) {
   const std::string clean = printable( whole );
   std::string_view text = clean;
   const char * const more = utf8 ? "…" : "...";
   std::vector< std::string > result;
   while ( !text.empty() && width > 0 ) {
      std::string line = cut( text, width );
      if ( line.empty() )
         break; // not even one character fits
      const bool last = line.size() == text.size();
      if ( !last && result.size() + 1 == most ) {
         line = cut( text, width - std::min( width, columns( more ) ) );
         line.resize( line.find_last_not_of( ' ' ) + 1 );
         result.push_back( line + more );
         break;
      }
      if ( !last && text[line.size()] != ' ' )
         if ( const std::size_t blank = line.rfind( ' ' ); blank != std::string::npos && blank > 0 )
            line.resize( blank );
      text.remove_prefix( line.size() );
      text.remove_prefix( std::min( text.find_first_not_of( ' ' ), text.size() ) );
      line.resize( line.find_last_not_of( ' ' ) + 1 );
      result.push_back( line );
   }
   return result;
}

} // namespace Maintctl
