#include "Config/Error.h"

namespace Config {

std::string Error::text( const char * severity ) const {
   std::string result = file;
   if ( line )
      result.append( ":" ).append( std::to_string( line ) ).append( ":" ).append( std::to_string( column ) );
   return result.append( ": " ).append( severity ).append( ": " ).append( message );
}

} // namespace Config
