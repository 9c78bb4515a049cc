#pragma once

#include "Agent/Control/HostNames.h"
#include "Agent/Control/HttpStream.h"
#include "Api/Error.h"
#include "Platform/Cog/EventLoop.h"
#include "Platform/Cog/TimerWheel.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

/// Purpose: HTTP on the agent's event loop: takes requests, hands them to a handler, sends replies when they are given.
/// Owner: the agent. One thread; a request never blocks the loop, and a client that is slow or goes away costs a
/// connection at most, until the idle timeout. What a turn answers is limited, too.
///
/// A reply may be a stream (HttpStream.h). What all streams together send in a turn is limited; who comes too late
/// goes on in the next one, and those who wait take turns.
namespace Agent {

struct HttpRequest {
   std::string method;
   std::string path;                                ///< without the query
   std::multimap< std::string, std::string > query; ///< those of one name in their order
   std::map< std::string, std::string > headers;    ///< by name in lower case; of equal names the last one
   std::string body;
   std::string by;     ///< who asks: the user of the peer on the local socket, its address otherwise
   bool local = false; ///< came over the local socket, where everything is allowed
};

struct HttpReply {
   int status = 200;
   std::string body;
   std::string contentType = "application/json";
   /// Methods that are allowed, in a refusal of the one that was used.
   std::string allow = {};
   /// What whoever keeps the reply may do with it.
   std::string cacheControl = "no-store";
   std::map< std::string, std::string > headers = {}; ///< more of them
   /// Where the body comes from; null: it is `body`.
   std::shared_ptr< HttpStream > stream = {};
   /// Bytes that it counts for in what a turn answers, if making it has cost more than its body tells.
   std::size_t effort = 0;
};

class HttpServer {
 public:
   /// Gives the reply of a request, once, now or in a later turn. After the client or the server is gone, and the
   /// second time, it does nothing.
   using Answer = std::function< void( HttpReply ) >;
   /// What it throws comes out of the event loop.
   using Handler = std::function< void( const HttpRequest &, Answer ) >;
   /// Makes the body of a refusal that the server gives by itself (a request that is too large).
   using Refusal = std::function< HttpReply( const Api::Error & ) >;

   /// The longest body of a request, in bytes.
   static constexpr std::size_t maxBody = 64 * 1024;
   /// Connections of a listener that are open at a time; more wait for one of them to end.
   static constexpr unsigned maxConnections = 256;
   /// The last part, of so many, of the descriptors that the process may have is not for connections over the web address:
   /// however many ask there, whoever asks on this machine is answered, and hooks and commands are run.
   static constexpr unsigned descriptorParts = 4;
   /// Streams without an end that are open at a time, so that there are always connections for requests; more are refused.
   static constexpr unsigned maxStreams = 128;
   /// Those of them that may come over the web address: however many read there, an operator on this machine has a place.
   static constexpr unsigned maxWebStreams = 96;
   /// Long answers, which come to their end, that are under way at a time; more are refused.
   static constexpr unsigned maxLongAnswers = 64, maxWebLongAnswers = 48;
   /// The longest body that is given to whoever asks over the web address at once; a longer one is a long answer.
   static constexpr std::size_t maxWebBody = 32 * 1024;
   /// Bytes that all long answers may have that are under way over the web address, or a single one: readers who take
   /// nothing cost no more memory.
   static constexpr std::size_t maxWebBytes = 32 << 20;
   /// Bytes of bodies after which a turn answers no more requests: they wait for the next one.
   static constexpr std::size_t maxTurnBody = 256 * 1024;
   /// Bytes, or effort that counts for so many, that one stream, and all of them, give in a turn, or one piece more.
   static constexpr std::size_t maxStreamBytes = 16 * 1024, maxTurnBytes = 256 * 1024;

   /// `idleTimeout`: seconds of real time after which a connection on which nothing happens is closed, unless it waits
   /// for a reply of ours or for what a stream gives next. `heartbeatAfter`: seconds after which a stream that has been
   /// silent gives its heartbeat.
   HttpServer(
      Vel::Ptr< Cog::EventLoop > loop, Vel::Ptr< Cog::TimerWheel > wheel, Handler handler, Refusal refusal,
      unsigned idleTimeout = 60, double heartbeatAfter = 15 );
   ~HttpServer();
   HttpServer( const HttpServer & ) = delete;
   HttpServer & operator=( const HttpServer & ) = delete;

   /// Listens on a local socket with mode 0660. One that a process before us has left is replaced; one that answers,
   /// and a file of another kind, is left alone. Returns why it does not listen; none: it listens.
   std::optional< std::string > listenLocal( const std::string & path );
   /// Listens on a TCP address.
   std::optional< std::string > listenWeb( const std::string & host, unsigned port );
   /// Requests over the web address for any other host are refused from now on. Until this is called all are served.
   void webNamesAre( HostNames names ) { webNames_ = std::move( names ); }
   /// As long as this is so, something has been asked for that is not stored yet. What is shown in that turn tells of it, and
   /// leaves only when it is. Until this is called every reply leaves at once.
   void uncommittedWhile( std::function< bool() > isUncommitted ) {
      isUncommitted_ = std::move( isUncommitted );
   }
   /// The port that a web listener got; 0: none.
   unsigned webPort() const;

   /// Those that are open, with and without an end.
   unsigned streams() const;
   /// Sends what the streams have left to give to those who take it at once: for the end of the agent, after all streams
   /// have been told to end.
   void flushStreams();

 private:
   struct Listener;
   struct Door;
   struct Exchange;
   friend struct ServerCallbacks;
   friend struct StreamCallbacks;
   struct Streams;
   struct Turns;
   std::optional< std::string > start( int descriptor, bool local );

   Vel::Ptr< Cog::EventLoop > loop_;
   Vel::Ptr< Cog::TimerWheel > wheel_;
   Handler handler_;
   Refusal refusal_;
   unsigned idleTimeout_;
   double heartbeatAfter_;
   std::string localPath_;
   std::optional< HostNames > webNames_;
   std::function< bool() > isUncommitted_;
   std::unique_ptr< Streams > streams_;
   std::unique_ptr< Turns > turns_;
   std::map< int, std::unique_ptr< Listener > > listeners_; ///< by listening descriptor
};

} // namespace Agent
