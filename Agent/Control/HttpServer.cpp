#include "Agent/Control/AccountName.h"
#include "Agent/Control/HttpListener.h"
#include "Agent/Control/ListeningSocket.h"

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

namespace Agent {

namespace {

std::string peerOf( int descriptor, bool local ) {
   if ( local ) {
      ucred peer{};
      socklen_t size = sizeof peer;
      if ( getsockopt( descriptor, SOL_SOCKET, SO_PEERCRED, &peer, &size ) != 0 )
         return "unknown";
      return accountName( peer.uid );
   }
   sockaddr_storage address{};
   socklen_t size = sizeof address;
   char host[NI_MAXHOST];
   if (
      getpeername( descriptor, reinterpret_cast< sockaddr * >( &address ), &size ) == 0 &&
      getnameinfo(
         reinterpret_cast< sockaddr * >( &address ), size, host, sizeof host, nullptr, 0, NI_NUMERICHOST ) ==
         0 )
      return host;
   return "unknown";
}

/// The value of a hexadecimal digit; nothing: it is none.
std::optional< int > digit( char c ) {
   if ( c >= '0' && c <= '9' )
      return c - '0';
   const char small = static_cast< char >( c | 0x20 );
   return small >= 'a' && small <= 'f' ? std::optional( small - 'a' + 10 ) : std::nullopt;
}

/// In place. What is no escape stays as it is, and so does that of a zero byte: texts of the library end there, and another
/// resource than the one that is asked for would be read or changed.
size_t unescape( void *, MHD_Connection *, char * text ) {
   char * to = text;
   for ( const char * from = text; *from; ) {
      const auto high = *from == '%' ? digit( from[1] ) : std::nullopt;
      const auto low = high ? digit( from[2] ) : std::nullopt;
      const int value = low ? *high * 16 + *low : 0;
      *to++ = value != 0 ? static_cast< char >( value ) : *from;
      from += value != 0 ? 3 : 1;
   }
   *to = '\0';
   return static_cast< size_t >( to - text );
}

MHD_Result addArgument( void * query, MHD_ValueKind, const char * key, const char * value ) {
   static_cast< std::multimap< std::string, std::string > * >( query )->emplace( key, value ? value : "" );
   return MHD_YES;
}

MHD_Result addHeader( void * headers, MHD_ValueKind, const char * key, const char * value ) {
   std::string name = key;
   for ( char & c : name )
      if ( c >= 'A' && c <= 'Z' )
         c = static_cast< char >( c - 'A' + 'a' );
   ( *static_cast< std::map< std::string, std::string > * >( headers ) )[name] = value ? value : "";
   return MHD_YES;
}

/// The body is given away: it is in memory once, until its reader has taken it.
MHD_Result send( MHD_Connection * connection, HttpReply reply ) {
   auto * const body = new std::string( std::move( reply.body ) );
   MHD_Response * const response = MHD_create_response_from_buffer_with_free_callback_cls(
      body->size(), body->data(), []( void * given ) { delete static_cast< std::string * >( given ); },
      body );
   addHeaders( *response, reply );
   const MHD_Result result =
      MHD_queue_response( connection, static_cast< unsigned >( reply.status ), response );
   MHD_destroy_response( response );
   return result;
}

/// A long body that is there already, sent no faster than a turn may send.
class BodyStream final : public HttpStream {
 public:
   explicit BodyStream( std::string body )
      : size_( body.size() ), body_( std::make_shared< const std::string >( std::move( body ) ) ) {}
   Piece next() override { return { std::move( body_ ), true }; }
   bool ends() const override { return true; }
   std::optional< std::size_t > size() const override { return size_; }
   std::string heartbeat() const override { return ""; }

 private:
   std::size_t size_;
   std::shared_ptr< const std::string > body_;
};

} // namespace

void addHeaders( MHD_Response & response, const HttpReply & reply ) {
   MHD_add_response_header( &response, "Content-Type", reply.contentType.c_str() );
   // Texts of operators and commands stand in the replies; no browser may guess that one is a page or a script.
   MHD_add_response_header( &response, "X-Content-Type-Options", "nosniff" );
   MHD_add_response_header( &response, "Cache-Control", reply.cacheControl.c_str() );
   for ( const auto & [name, value] : reply.headers )
      MHD_add_response_header( &response, name.c_str(), value.c_str() );
   // Whoever is refused a method learns which ones there are, also that there are none: the library takes no value that is
   // empty, and blanks around one are no part of it.
   if ( reply.status == MHD_HTTP_METHOD_NOT_ALLOWED )
      MHD_add_response_header( &response, "Allow", reply.allow.empty() ? " " : reply.allow.c_str() );
}

/// What the library calls.
struct ServerCallbacks {
   using Exchange = HttpServer::Exchange;
   using Listener = HttpServer::Listener;

   static MHD_Result access(
      void * context, MHD_Connection * connection, const char * url, const char * method, const char *,
      const char * upload, size_t * uploadSize, void ** perConnection ) {
      Listener & listener = *static_cast< Listener * >( context );
      if ( !*perConnection ) {
         auto * exchange = new std::shared_ptr< Exchange >( std::make_shared< Exchange >() );
         *perConnection = exchange;
         begin( listener, **exchange, connection, url, method );
         return MHD_YES;
      }
      const std::shared_ptr< Exchange > exchange =
         *static_cast< std::shared_ptr< Exchange > * >( *perConnection );
      if ( *uploadSize ) {
         take( *exchange, upload, *uploadSize );
         *uploadSize = 0;
         return MHD_YES;
      }
      try {
         return finish( listener, exchange );
      } catch ( ... ) {
         // It must not pass through the library, which is C; the connection is closed.
         listener.escaped = std::current_exception();
         return MHD_NO;
      }
   }

   /// The request is complete.
   static MHD_Result finish( Listener & listener, const std::shared_ptr< Exchange > & exchange ) {
      if ( exchange->tooLarge )
         return send(
            exchange->connection,
            listener.server.refusal_( Api::Error{
               Api::ErrorCode::tooLarge,
               "a request may have " + std::to_string( HttpServer::maxBody ) + " bytes", "body" } ) );
      const std::string host = listener.local ? "" : hostOf( exchange->request );
      if ( const auto & names = listener.server.webNames_; names && !names->serves( host ) )
         return send(
            exchange->connection,
            listener.server.refusal_( Api::Error{
               Api::ErrorCode::misdirected,
               "this is not \"" + host +
                  "\"; names of it are listed as \"names\" of \"listen\" in the configuration",
               host } ) );
      if ( !exchange->handed ) {
         if ( !listener.server.turns_->mayHand( exchange ) )
            return MHD_YES;
         hand( listener, exchange );
         if ( exchange->reply ) {
            listener.server.turns_->answered( costOf( *exchange->reply ) );
            if ( listener.server.isUncommitted_ && listener.server.isUncommitted_() )
               return sendWhenCommitted( listener, exchange );
         }
      }
      if ( !exchange->reply ) {
         listener.suspend( *exchange );
         return MHD_YES;
      }
      HttpReply & reply = *exchange->reply;
      if ( !reply.stream && !listener.local && reply.body.size() > HttpServer::maxWebBody )
         reply.stream = std::make_shared< BodyStream >( std::exchange( reply.body, "" ) );
      if ( !reply.stream )
         return send( exchange->connection, std::move( reply ) );
      HttpServer::Streams & streams = *listener.server.streams_;
      const std::string refusal = streams.refusal( *exchange );
      if ( refusal.empty() )
         return streams.open( exchange ) ? MHD_YES : MHD_NO;
      reply.stream = nullptr;
      return send(
         exchange->connection, listener.server.refusal_( Api::Error{
                                  Api::ErrorCode::unavailable, refusal, exchange->request.path } ) );
   }

   static MHD_Result sendWhenCommitted( Listener & listener, const std::shared_ptr< Exchange > & exchange ) {
      listener.suspend( *exchange );
      listener.server.loop_->effectIs( [exchange] { goOn( *exchange ); } );
      return MHD_YES;
   }

   /// There is a reply. Whoever asked may be gone, and the listener with it.
   static void goOn( Exchange & exchange ) {
      if ( exchange.connection && exchange.listener->resume( exchange ) )
         exchange.listener->runSoon();
   }

   /// Bytes that were made for it. A long answer has been begun by as much as is given at once.
   static std::size_t costOf( const HttpReply & reply ) {
      const bool begun = reply.stream && reply.stream->ends();
      return std::max( reply.effort, reply.body.size() + ( begun ? HttpServer::maxWebBody : 0 ) );
   }

   static std::string hostOf( const HttpRequest & request ) {
      const auto it = request.headers.find( "host" );
      return it == request.headers.end() ? "" : it->second;
   }

   static void begin(
      Listener & listener, Exchange & exchange, MHD_Connection * connection, const char * url,
      const char * method ) {
      exchange.listener = &listener;
      exchange.connection = connection;
      exchange.request.method = method;
      exchange.request.path = url;
      exchange.request.local = listener.local;
      MHD_get_connection_values( connection, MHD_GET_ARGUMENT_KIND, addArgument, &exchange.request.query );
      MHD_get_connection_values( connection, MHD_HEADER_KIND, addHeader, &exchange.request.headers );
      const auto * info = MHD_get_connection_info( connection, MHD_CONNECTION_INFO_CONNECTION_FD );
      exchange.request.by = info ? peerOf( info->connect_fd, listener.local ) : "unknown";
   }

   static void take( Exchange & exchange, const char * upload, size_t size ) {
      if ( exchange.request.body.size() + size > HttpServer::maxBody )
         exchange.tooLarge = true;
      if ( !exchange.tooLarge )
         exchange.request.body.append( upload, size );
   }

   static void hand( Listener & listener, const std::shared_ptr< Exchange > & exchange ) {
      exchange->handed = true;
      listener.server.handler_( exchange->request, [exchange]( HttpReply reply ) {
         if ( exchange->reply )
            return;
         exchange->reply = std::move( reply );
         goOn( *exchange );
      } );
   }

   static void completed( void *, MHD_Connection *, void ** perConnection, MHD_RequestTerminationCode ) {
      auto * exchange = static_cast< std::shared_ptr< Exchange > * >( *perConnection );
      if ( !exchange )
         return;
      ( *exchange )->listener->suspended.erase( exchange->get() );
      ( *exchange )->listener->server.streams_->closed( **exchange );
      ( *exchange )->connection = nullptr;
      // Nobody reads it any more.
      if ( ( *exchange )->reply )
         ( *exchange )->reply->stream = nullptr;
      delete exchange;
      *perConnection = nullptr;
   }
};

// ---- a listener

HttpServer::Listener::Listener( HttpServer & itsServer, bool isLocal )
   : server( itsServer ), local( isLocal ) {
   idle.is( server.wheel_, this ).hasNotificationActiveIs( true );
   // Timers rest while counters cannot be read; there are turns all the same.
   server.loop_->commitHookIs( [weak = std::weak_ptr( alive ), this] {
      if ( !weak.expired() && server.loop_->currentTime() >= idleTime )
         runSoon();
      return true;
   } );
}

HttpServer::Listener::~Listener() {
   if ( !daemon )
      return;
   door.reset();
   server.loop_->descriptorDel( epoll );
   // The library stops only when no connection is suspended.
   while ( !suspended.empty() )
      resume( **suspended.begin() );
   MHD_stop_daemon( daemon );
}

void HttpServer::Listener::run() {
   work();
   door->look();
}

void HttpServer::Listener::work() {
   MHD_UNSIGNED_LONG_LONG wait = 0;
   for ( unsigned round = 0; round < maxRounds; ++round ) {
      MHD_run( daemon );
      if ( escaped )
         std::rethrow_exception( std::exchange( escaped, nullptr ) );
      if ( MHD_get_timeout( daemon, &wait ) != MHD_YES )
         return idleTimeIs( Cog::Timer::never );
      if ( wait > 0 )
         return idleTimeIs( server.loop_->currentTime() + static_cast< double >( wait ) / 1000 );
   }
   runSoon();
}

void HttpServer::Listener::idleTimeIs( double time ) {
   idleTime = time;
   idle->timeMinIs( time );
}

void HttpServer::Listener::runSoon() {
   if ( !std::exchange( runPosted, true ) )
      server.loop_->post( [weak = std::weak_ptr( alive ), this] {
         if ( weak.expired() )
            return;
         runPosted = false;
         run();
      } );
}

void HttpServer::Listener::suspend( Exchange & exchange ) {
   suspended.insert( &exchange );
   MHD_suspend_connection( exchange.connection );
}

bool HttpServer::Listener::resume( Exchange & exchange ) {
   if ( suspended.erase( &exchange ) == 0 )
      return false;
   MHD_resume_connection( exchange.connection );
   return true;
}

// ---- the server

HttpServer::HttpServer(
   Vel::Ptr< Cog::EventLoop > loop, Vel::Ptr< Cog::TimerWheel > wheel, Handler handler, Refusal refusal,
   unsigned idleTimeout, double heartbeatAfter )
   : loop_( std::move( loop ) ),
     wheel_( std::move( wheel ) ),
     handler_( std::move( handler ) ),
     refusal_( std::move( refusal ) ),
     idleTimeout_( idleTimeout ),
     heartbeatAfter_( heartbeatAfter ),
     streams_( std::make_unique< Streams >( *this ) ),
     turns_( std::make_unique< Turns >( *this ) ) {}

HttpServer::~HttpServer() {
   listeners_.clear();
   if ( !localPath_.empty() )
      unlink( localPath_.c_str() );
}

std::optional< std::string > HttpServer::start( int descriptor, bool local ) {
   auto listener = std::make_unique< Listener >( *this, local );
   listener->daemon = MHD_start_daemon(
      MHD_USE_EPOLL | MHD_ALLOW_SUSPEND_RESUME | MHD_USE_NO_LISTEN_SOCKET, 0, nullptr, nullptr,
      ServerCallbacks::access, listener.get(), MHD_OPTION_NOTIFY_COMPLETED, ServerCallbacks::completed,
      nullptr, MHD_OPTION_CONNECTION_TIMEOUT, idleTimeout_, MHD_OPTION_CONNECTION_LIMIT, maxConnections,
      MHD_OPTION_UNESCAPE_CALLBACK, unescape, nullptr, MHD_OPTION_END );
   if ( !listener->daemon ) {
      close( descriptor );
      return "the HTTP server does not start";
   }
   listener->epoll = MHD_get_daemon_info( listener->daemon, MHD_DAEMON_INFO_EPOLL_FD )->epoll_fd;
   Listener * const raw = listener.get();
   loop_->descriptorIs( raw->epoll, Cog::EventLoop::readable, [raw]( Vel::U32 ) { raw->run(); } );
   raw->door = std::make_unique< Door >( *raw, descriptor );
   listeners_[descriptor] = std::move( listener );
   return std::nullopt;
}

std::optional< std::string > HttpServer::listenLocal( const std::string & path ) {
   const ListeningSocket socket = ListeningSocket::local( path );
   if ( !socket.problem.empty() )
      return socket.problem;
   localPath_ = path;
   return start( socket.descriptor, true );
}

std::optional< std::string > HttpServer::listenWeb( const std::string & host, unsigned port ) {
   const ListeningSocket socket = ListeningSocket::web( host, port );
   return socket.problem.empty() ? start( socket.descriptor, false ) : socket.problem;
}

unsigned HttpServer::webPort() const {
   for ( const auto & [descriptor, listener] : listeners_ )
      if ( !listener->local )
         return ListeningSocket::portOf( descriptor );
   return 0;
}

unsigned HttpServer::streams() const { return streams_->count(); }

void HttpServer::flushStreams() { streams_->flush(); }

} // namespace Agent
