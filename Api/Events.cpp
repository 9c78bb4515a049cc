#include "Api/Events.h"

#include "Api/Error.h"

#include <nlohmann/json.hpp>

namespace Api {

using nlohmann::ordered_json;

namespace {

template < class Read >
auto reading( std::string_view text, Read read ) {
   try {
      return read( ordered_json::parse( text ) );
   } catch ( const ordered_json::exception & exception ) {
      throw Error{
         ErrorCode::internal, std::string( "the agent's answer makes no sense: " ) + exception.what(), "" };
   }
}

Event eventOf( const ordered_json & json ) {
   Event event;
   event.sequence = json.at( "sequence" ).get< std::uint64_t >();
   event.time = json.at( "time" ).get< std::string >();
   event.type = json.at( "type" ).get< std::string >();
   event.subject = json.at( "subject" ).get< std::string >();
   event.text = json.at( "text" ).get< std::string >();
   event.json = json.dump( -1, ' ', false, ordered_json::error_handler_t::replace );
   return event;
}

} // namespace

namespace Path {

std::string eventsAfter( std::uint64_t sequence ) {
   return "/api/v1/events?after=" + std::to_string( sequence );
}

std::string recentEventsAfter( std::uint64_t sequence, std::uint64_t limit ) {
   return std::string( recentEvents ) + "?after=" + std::to_string( sequence ) +
          "&limit=" + std::to_string( limit );
}

std::string recentEventsLast( std::uint64_t limit ) {
   return std::string( recentEvents ) + "?limit=" + std::to_string( limit );
}

} // namespace Path

Event readEvent( std::string_view json ) { return reading( json, eventOf ); }

RecentEvents readRecentEvents( std::string_view json ) {
   return reading( json, []( const ordered_json & answer ) {
      RecentEvents result;
      result.last = answer.at( "last" ).get< std::uint64_t >();
      for ( const ordered_json & event : answer.at( "events" ) )
         result.events.push_back( eventOf( event ) );
      return result;
   } );
}

DroppedEvents readDroppedEvents( std::string_view json ) {
   return reading( json, []( const ordered_json & answer ) {
      return DroppedEvents{
         answer.at( "dropped" ).get< std::uint64_t >(), answer.at( "next" ).get< std::uint64_t >() };
   } );
}

} // namespace Api
