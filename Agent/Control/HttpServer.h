#pragma once

#include "Api/Error.h"
#include "Platform/Cog/EventLoop.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

/// Purpose: HTTP on the agent's event loop: takes requests, hands them to a handler, sends replies when they are given.
/// Owner: the agent. One thread; a request never blocks the loop.
namespace Agent {

struct HttpRequest {
   std::string method;
   std::string path; ///< without the query
   std::map< std::string, std::string > query;
   std::string body;
   std::string by;     ///< who asks: user and process of the peer on the local socket, its address otherwise
   bool local = false; ///< came over the local socket, where everything is allowed
};

struct HttpReply {
   int status = 200;
   std::string body;
   std::string contentType = "application/json";
};

class HttpServer {
 public:
   /// Gives the reply of a request, once, now or in a later turn. After the client or the server is gone it does
   /// nothing.
   using Answer = std::function< void( HttpReply ) >;
   using Handler = std::function< void( const HttpRequest &, Answer ) >;
   /// Makes the body of a refusal that the server gives by itself (a request that is too large).
   using Refusal = std::function< HttpReply( const Api::Error & ) >;

   /// The longest body of a request, in bytes.
   static constexpr std::size_t maxBody = 64 * 1024;
   /// Seconds after which a connection on which nothing happens is closed.
   static constexpr unsigned idleTimeout = 60;

   HttpServer( Vel::Ptr< Cog::EventLoop > loop, Handler handler, Refusal refusal );
   ~HttpServer();
   HttpServer( const HttpServer & ) = delete;
   HttpServer & operator=( const HttpServer & ) = delete;

   /// Listens on a local socket with mode 0660. One that a process before us has left is replaced; one that answers is
   /// refused. The reason is returned, none: it listens.
   std::optional< std::string > listenLocal( const std::string & path );
   /// Listens on a TCP address.
   std::optional< std::string > listenWeb( const std::string & host, unsigned port );
   /// The port that a web listener got; 0: none.
   unsigned webPort() const;

 private:
   struct Listener;
   struct Exchange;
   friend struct ServerCallbacks;
   std::optional< std::string > start( int descriptor, bool local );

   Vel::Ptr< Cog::EventLoop > loop_;
   Handler handler_;
   Refusal refusal_;
   std::string localPath_;
   std::map< int, std::unique_ptr< Listener > > listeners_; ///< by listening descriptor
};

} // namespace Agent
