// What has happened, and what happens.

#include "Agent/Control/ControlApi.h"
#include "Api/Values.h"

#include <algorithm>

namespace Agent {

using Api::ErrorCode;

namespace {

constexpr Vel::U64 recentEvents = 100;

/// A number of a query, nothing if it is not given.
std::optional< Vel::U64 > numberOf( const HttpRequest & request, const char * name ) {
   const auto it = request.query.find( name );
   if ( it == request.query.end() )
      return std::nullopt;
   if ( const auto number = Api::counterOf( it->second ) )
      return number;
   throw Api::Error{ ErrorCode::badRequest, "\"" + std::string( name ) + "\" is not a number", name };
}

/// Where a reader goes on: one that was cut off says so in a header, whatever it had asked for at first.
std::optional< Vel::U64 > placeOf( const HttpRequest & request ) {
   const auto it = request.headers.find( "last-event-id" );
   if ( it == request.headers.end() || it->second.empty() )
      return numberOf( request, "after" );
   if ( const auto number = Api::counterOf( it->second ) )
      return number;
   throw Api::Error{
      ErrorCode::badRequest, "\"Last-Event-ID\" is not the number of an event", "Last-Event-ID" };
}

bool wantsRates( const HttpRequest & request ) {
   const auto it = request.query.find( "rates" );
   if ( it == request.query.end() || it->second == "0" )
      return false;
   if ( it->second != "1" )
      throw Api::Error{ ErrorCode::badRequest, "\"rates\" is 0 or 1", "rates" };
   return true;
}

} // namespace

void ControlApi::getEvents( const Call & call ) {
   HttpReply reply;
   reply.contentType = EventStreams::contentType;
   reply.stream = events_.stream( placeOf( call.request ), wantsRates( call.request ) );
   call.answer( std::move( reply ) );
}

void ControlApi::getRecentEvents( const Call & call ) {
   call.answer(
      { 200, events_.recent(
                numberOf( call.request, "after" ),
                numberOf( call.request, "limit" ).value_or( recentEvents ) ) } );
}

} // namespace Agent
