#include "Maintctl/EventParser.h"

#include <utility>

namespace Maintctl {

void EventParser::take( std::string_view bytes, const std::function< void( const SentEvent & ) > & event ) {
   rest_ += bytes;
   std::size_t begin = 0;
   for ( std::size_t end; ( end = rest_.find( '\n', begin ) ) != std::string::npos; begin = end + 1 ) {
      const bool carriageReturn = end > begin && rest_[end - 1] == '\r';
      takeLine( std::string_view( rest_ ).substr( begin, end - begin - carriageReturn ), event );
   }
   rest_.erase( 0, begin );
}

void EventParser::takeLine(
   std::string_view line, const std::function< void( const SentEvent & ) > & event ) {
   if ( line.empty() ) {
      SentEvent complete = std::exchange( event_, {} );
      if ( complete.type.empty() )
         complete.type = "message";
      if ( std::exchange( hasData_, false ) )
         event( complete );
      return;
   }
   const std::size_t colon = line.find( ':' );
   const std::string_view name = line.substr( 0, colon );
   std::string_view value = colon == std::string_view::npos ? "" : line.substr( colon + 1 );
   if ( value.starts_with( ' ' ) )
      value.remove_prefix( 1 );
   if ( name == "id" )
      event_.id = value;
   else if ( name == "event" )
      event_.type = value;
   else if ( name == "data" ) {
      if ( std::exchange( hasData_, true ) )
         event_.data += '\n';
      event_.data += value;
   }
}

} // namespace Maintctl
