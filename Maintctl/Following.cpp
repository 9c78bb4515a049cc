#include "Maintctl/Following.h"

#include "Api/Error.h"
#include "Maintctl/Room.h"
#include "Maintctl/Table.h"
#include "Maintctl/Text.h"

namespace Maintctl {

std::string eventLine( const Api::Event & event, std::size_t room ) {
   constexpr std::size_t numberWidth = 6, typeWidth = 10;
   const std::string number = std::to_string( event.sequence );
   std::string line( number.size() < numberWidth ? numberWidth - number.size() : 0, ' ' );
   line += number + "  " + event.time + "  " + event.type;
   line.append( event.type.size() < typeWidth ? typeWidth - event.type.size() : 1, ' ' );
   return hanging( line + " ", event.text, room );
}

void Following::follow( const std::vector< Api::Event > & before, std::uint64_t after ) {
   output_.documentsAreLines();
   for ( const Api::Event & event : before )
      show( event );
   flush();
   at_ = after;
   for ( ;; ) {
      std::string why = "the agent does not answer; it may be starting again";
      try {
         EventParser parser;
         remote_.stream( Api::Path::eventsAfter( at_ ), [&]( std::string_view bytes ) {
            if ( !std::exchange( whyAway_, "" ).empty() )
               output_.message( "the agent is back" );
            reached_ = true;
            parser.take( bytes, [this]( const SentEvent & sent ) { take( sent ); } );
            flush();
         } );
      } catch ( const Failure & failure ) {
         // There may be too many readers at the moment; who was one of them waits for a place.
         const bool busy = failure.code == stringValue( Api::ErrorCode::unavailable );
         if ( !reached_ || ( failure.status != ExitStatus::notReachable && !busy ) )
            throw;
         if ( busy )
            why = "the agent serves nobody else now: " + failure.message;
      }
      if ( std::exchange( whyAway_, why ) != why )
         output_.message( why );
      if ( !pace_.sleep( period ) )
         throw Failure{ ExitStatus::interrupted, FailureCode::interrupted, "interrupted", "", {} };
   }
}

void Following::take( const SentEvent & sent ) {
   if ( sent.type == "dropped" ) {
      const Api::DroppedEvents dropped = Api::readDroppedEvents( sent.data );
      at_ = dropped.next - 1;
      output_.text(
         output_.json() ? sent.data + "\n"
                        : countText( dropped.dropped, "event" ) + " not kept any more; it goes on with " +
                             std::to_string( dropped.next ) + "\n" );
      return;
   }
   const Api::Event event = Api::readEvent( sent.data );
   if ( event.sequence <= at_ )
      return;
   at_ = event.sequence;
   show( event );
}

void Following::show( const Api::Event & event ) {
   output_.text( output_.json() ? event.json + "\n" : eventLine( event, roomOn( data_ ) ) );
}

void Following::flush() {
   if ( !output_.flush() )
      throw Failure{ ExitStatus::failed, FailureCode::failed, "the output could not be written", "", {} };
}

} // namespace Maintctl
