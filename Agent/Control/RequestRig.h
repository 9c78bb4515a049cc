#pragma once

#include "Agent/Control/HttpServer.h"

#include <algorithm>

/// Purpose: requests of tests, without a socket.
namespace Agent {

/// `target` is a path with a query, if any, in which nothing is escaped: "/api/v1/interfaces?unit=u1".
inline HttpRequest requestOf( const std::string & method, const std::string & target ) {
   HttpRequest request;
   request.method = method;
   const auto question = std::min( target.find( '?' ), target.size() );
   request.path = target.substr( 0, question );
   for ( auto begin = question + 1; begin < target.size(); ) {
      const auto end = std::min( target.find( '&', begin ), target.size() );
      const auto equals = std::min( target.find( '=', begin ), end );
      request.query.emplace(
         target.substr( begin, equals - begin ),
         equals < end ? target.substr( equals + 1, end - equals - 1 ) : "" );
      begin = end + 1;
   }
   return request;
}

/// All of a reply, also of one that goes on, which has to have an end.
inline std::string wholeBody( const HttpReply & reply ) {
   std::string body = reply.body;
   for ( bool more = reply.stream != nullptr; more; ) {
      const HttpStream::Piece piece = reply.stream->next();
      if ( piece.text )
         body += *piece.text;
      more = piece.text && !piece.last;
   }
   return body;
}

} // namespace Agent
