#include "Agent/Commands/Ending.h"

#include <cstring>

namespace Agent {

Vel::String endingText( const Children::Ending & ending, const Vel::String & lastError ) {
   Vel::String text;
   if ( !ending.known )
      text = "has ended in a way that is not known";
   else if ( ending.signal != 0 ) {
      const char * const name = sigabbrev_np( ending.signal );
      text = Vel::text( "was ended by signal ", ending.signal, name ? Vel::text( " (SIG", name, ")" ) : "" );
   } else if ( ending.status != 0 )
      text = Vel::text( "ended with ", ending.status );
   else
      return "";
   return lastError.empty() ? text : text + ": " + lastError;
}

} // namespace Agent
