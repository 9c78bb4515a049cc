#include "Maintctl/Csv.h"

#include "Maintctl/Text.h"

#include <algorithm>
#include <charconv>
#include <string_view>

namespace Maintctl {

namespace {

bool isNumber( const std::string & text ) {
   double value = 0;
   const char * const end = text.data() + text.size();
   const auto [stop, error] = std::from_chars( text.data(), end, value );
   return error == std::errc() && stop == end;
}

/// Text that can do nothing to whoever shows it.
std::string harmless( const std::string & text ) {
   constexpr std::string_view beginsFormula = "=+-@", lineEnds = "\r\n";
   std::string result;
   for ( std::size_t begin = 0; begin < text.size(); ) {
      const std::size_t end = std::min( text.find_first_of( lineEnds, begin ), text.size() );
      result += printable( std::string_view( text ).substr( begin, end - begin ) );
      if ( end < text.size() )
         result += text[end];
      begin = end + 1;
   }
   // Blanks and line ends before it do not make it anything else.
   const std::size_t first = result.find_first_not_of( " \r\n" );
   const bool formula =
      first != std::string::npos && beginsFormula.find( result[first] ) != std::string::npos;
   return formula && !isNumber( result ) ? "'" + result : result;
}

std::string field( const std::string & given ) {
   const std::string text = harmless( given );
   // Some readers take blanks at the ends away unless they are quoted.
   const bool blanks = !text.empty() && ( text.front() == ' ' || text.back() == ' ' );
   if ( !blanks && text.find_first_of( ",\"\r\n" ) == std::string::npos )
      return text;
   std::string result = "\"";
   for ( const char c : text )
      result += c == '"' ? "\"\"" : std::string( 1, c );
   return result + "\"";
}

} // namespace

std::string csvRow( const std::vector< std::string > & fields ) {
   std::string result;
   for ( const std::string & text : fields )
      result += ( &text == &fields.front() ? "" : "," ) + field( text );
   return result + "\r\n";
}

} // namespace Maintctl
