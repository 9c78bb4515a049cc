#include "Platform/FastLog/Line.h"

#include <cstdio>

namespace FastLog {

namespace {

std::string printable( const std::string & text ) {
   std::string out;
   for ( const char c : text ) {
      if ( ( c >= 0 && c < ' ' ) || c == 0x7f ) {
         char escaped[5];
         std::snprintf( escaped, sizeof escaped, "\\x%02x", static_cast< unsigned >( c ) );
         out += escaped;
      } else {
         out += c;
      }
   }
   return out;
}

} // namespace

std::string formatted( const Line & line ) {
   // The longest double has 309 digits before the point.
   char time[400];
   std::snprintf( time, sizeof time, "%.3f", line.time );
   return std::to_string( line.sequence ) + ' ' + time + ' ' + printable( line.file ) + ':' +
          std::to_string( line.line ) + ' ' + printable( line.function ) + ": " +
          ( line.kind == Kind::profile ? "[profile] " : "" ) + printable( line.text );
}

} // namespace FastLog
