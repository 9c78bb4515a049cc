#include "Maintctl/Csv.h"

namespace Maintctl {

namespace {

std::string field( const std::string & text ) {
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
