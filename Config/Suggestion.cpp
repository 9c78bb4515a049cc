#include "Config/Suggestion.h"

#include "Config/InQuotes.h"

#include <algorithm>
#include <array>

namespace Config {

namespace {

/// Names are no longer than this; what is longer is near to none of them.
constexpr std::size_t maxLength = 64;

/// Comparing many wrong names with many right ones must not hold up anybody.
constexpr std::size_t maxCandidates = 1000;

char lower( char c ) { return 'A' <= c && c <= 'Z' ? static_cast< char >( c | 0x20 ) : c; }

bool equalButCase( std::string_view a, std::string_view b ) {
   return std::equal(
      a.begin(), a.end(), b.begin(), b.end(), []( char x, char y ) { return lower( x ) == lower( y ); } );
}

std::string withoutDigits( std::string_view text ) {
   std::string result;
   for ( const char c : text )
      if ( c < '0' || c > '9' )
         result.append( 1, c );
   return result;
}

/// Edit distance with swaps of neighbours, row by row. Both texts are at most maxLength long.
std::size_t distance( std::string_view a, std::string_view b ) {
   using Row = std::array< std::size_t, maxLength + 1 >;
   Row beforeLast{};
   Row last{};
   Row current{};
   for ( std::size_t j = 0; j <= b.size(); ++j )
      last[j] = j;
   for ( std::size_t i = 1; i <= a.size(); ++i ) {
      current[0] = i;
      for ( std::size_t j = 1; j <= b.size(); ++j ) {
         const std::size_t change = last[j - 1] + ( a[i - 1] != b[j - 1] );
         current[j] = std::min( { last[j] + 1, current[j - 1] + 1, change } );
         if ( i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1] )
            current[j] = std::min( current[j], beforeLast[j - 2] + 1 );
      }
      beforeLast = last;
      last = current;
   }
   return last[b.size()];
}

} // namespace

std::string nearest( std::string_view text, const std::vector< std::string > & candidates ) {
   std::string result;
   if ( text.empty() || text.size() > maxLength || candidates.size() > maxCandidates )
      return result;
   const std::string letters = withoutDigits( text );
   std::size_t best = 4;
   for ( const std::string & candidate : candidates ) {
      if ( candidate.size() > maxLength || withoutDigits( candidate ) == letters )
         continue;
      const std::size_t allowed = std::min< std::size_t >( candidate.size() / 3, 3 );
      const std::size_t mistakes = equalButCase( text, candidate ) ? 0 : distance( text, candidate );
      if ( mistakes <= allowed && mistakes < best ) {
         best = mistakes;
         result = candidate;
      }
   }
   return result;
}

std::string didYouMean( std::string_view text, const std::vector< std::string > & candidates ) {
   std::string name = nearest( text, candidates );
   // What was meant may have come with characters that nobody sees.
   std::string seen( text );
   std::erase_if( seen, []( char c ) { return static_cast< unsigned char >( c ) >= 0x80; } );
   if (
      name.empty() && seen != text &&
      std::find( candidates.begin(), candidates.end(), seen ) != candidates.end() )
      name = seen;
   return name.empty() ? name : "; did you mean " + inQuotes( name ) + "?";
}

} // namespace Config
