#include "Agent/Control/HttpServer.h"

#include "Platform/Vel/Error.h"

#include <microhttpd.h>
#include <netdb.h>
#include <netinet/in.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <set>
#include <utility>

namespace Agent {

/// One request and what comes of it. Shared by the server's callbacks and the answer that is given later.
struct HttpServer::Exchange {
   HttpRequest request;
   Listener * listener = nullptr;
   MHD_Connection * connection = nullptr; ///< null: the client or the server is gone, the listener with it
   std::optional< HttpReply > reply;
   bool handed = false;
   bool tooLarge = false;
};

/// One listening socket with its server. The server waits with an epoll descriptor, which our loop watches.
struct HttpServer::Listener {
   /// Connections that have become idle are closed when the server runs, and nothing on a descriptor makes it run then.
   struct Idle final : Cog::TimerReactor< Listener > {
      using TimerReactor::TimerReactor;
      void onTime() override { sm()->run(); }
   };

   HttpServer & server;
   bool local;
   int descriptor;
   MHD_Daemon * daemon = nullptr;
   int epoll = -1;
   std::set< Exchange * > suspended; ///< those that wait for a reply of ours
   std::exception_ptr escaped;       ///< what the handler threw
   std::shared_ptr< bool > alive = std::make_shared< bool >( true );
   Vel::Watch< Idle > idle;

   Listener( HttpServer & itsServer, bool isLocal, int listening )
      : server( itsServer ), local( isLocal ), descriptor( listening ) {
      idle.is( server.wheel_, this ).hasNotificationActiveIs( true );
   }
   ~Listener();

   /// Does what there is to do. The library may have more to do than a descriptor tells, and says so by a time limit
   /// of 0; then it runs again, a turn later at the latest.
   void run() {
      MHD_UNSIGNED_LONG_LONG wait = 0;
      for ( unsigned round = 0; round < maxRounds; ++round ) {
         MHD_run( daemon );
         if ( escaped )
            std::rethrow_exception( std::exchange( escaped, nullptr ) );
         if ( MHD_get_timeout( daemon, &wait ) != MHD_YES )
            return idle->timeMinIs( Cog::Timer::never );
         if ( wait > 0 )
            return idle->timeMinIs( server.loop_->currentTime() + static_cast< double >( wait ) / 1000 );
      }
      runSoon();
   }
   void runSoon() {
      server.loop_->post( [weak = std::weak_ptr( alive ), this] {
         if ( !weak.expired() )
            run();
      } );
   }

   static constexpr unsigned maxRounds = 16;
};

namespace {

std::string peerOf( int descriptor, bool local ) {
   if ( local ) {
      ucred peer{};
      socklen_t size = sizeof peer;
      if ( getsockopt( descriptor, SOL_SOCKET, SO_PEERCRED, &peer, &size ) != 0 )
         return "unknown";
      char buffer[1024];
      passwd entry{}, *found = nullptr;
      if ( getpwuid_r( peer.uid, &entry, buffer, sizeof buffer, &found ) == 0 && found )
         return found->pw_name;
      return "uid " + std::to_string( peer.uid );
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

MHD_Result send( MHD_Connection * connection, const HttpReply & reply ) {
   MHD_Response * const response = MHD_create_response_from_buffer(
      reply.body.size(), const_cast< char * >( reply.body.data() ), MHD_RESPMEM_MUST_COPY );
   MHD_add_response_header( response, "Content-Type", reply.contentType.c_str() );
   // Texts of operators and commands stand in the replies; no browser may guess that one is a page or a script.
   MHD_add_response_header( response, "X-Content-Type-Options", "nosniff" );
   MHD_add_response_header( response, "Cache-Control", reply.cacheControl.c_str() );
   for ( const auto & [name, value] : reply.headers )
      MHD_add_response_header( response, name.c_str(), value.c_str() );
   if ( !reply.allow.empty() )
      MHD_add_response_header( response, "Allow", reply.allow.c_str() );
   const MHD_Result result =
      MHD_queue_response( connection, static_cast< unsigned >( reply.status ), response );
   MHD_destroy_response( response );
   return result;
}

} // namespace

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
      if ( !exchange->handed )
         hand( listener, exchange );
      if ( exchange->reply )
         return send( exchange->connection, *exchange->reply );
      listener.suspended.insert( exchange.get() );
      MHD_suspend_connection( exchange->connection );
      return MHD_YES;
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
         if ( exchange->connection && exchange->listener->suspended.erase( exchange.get() ) ) {
            MHD_resume_connection( exchange->connection );
            // The library looks at it when it runs next, and nothing on a descriptor makes it run.
            exchange->listener->runSoon();
         }
      } );
   }

   static void completed( void *, MHD_Connection *, void ** perConnection, MHD_RequestTerminationCode ) {
      auto * exchange = static_cast< std::shared_ptr< Exchange > * >( *perConnection );
      if ( !exchange )
         return;
      ( *exchange )->listener->suspended.erase( exchange->get() );
      ( *exchange )->connection = nullptr;
      delete exchange;
      *perConnection = nullptr;
   }
};

HttpServer::Listener::~Listener() {
   if ( !daemon )
      return;
   server.loop_->descriptorDel( epoll );
   // The library stops only when no connection is suspended.
   for ( const Exchange * exchange : suspended )
      MHD_resume_connection( exchange->connection );
   MHD_stop_daemon( daemon );
}

HttpServer::HttpServer(
   Vel::Ptr< Cog::EventLoop > loop, Vel::Ptr< Cog::TimerWheel > wheel, Handler handler, Refusal refusal,
   unsigned idleTimeout )
   : loop_( std::move( loop ) ),
     wheel_( std::move( wheel ) ),
     handler_( std::move( handler ) ),
     refusal_( std::move( refusal ) ),
     idleTimeout_( idleTimeout ) {}

HttpServer::~HttpServer() {
   listeners_.clear();
   if ( !localPath_.empty() )
      unlink( localPath_.c_str() );
}

std::optional< std::string > HttpServer::start( int descriptor, bool local ) {
   auto listener = std::make_unique< Listener >( *this, local, descriptor );
   listener->daemon = MHD_start_daemon(
      MHD_USE_EPOLL | MHD_ALLOW_SUSPEND_RESUME, 0, nullptr, nullptr, ServerCallbacks::access, listener.get(),
      MHD_OPTION_LISTEN_SOCKET, descriptor, MHD_OPTION_NOTIFY_COMPLETED, ServerCallbacks::completed, nullptr,
      MHD_OPTION_CONNECTION_TIMEOUT, idleTimeout_, MHD_OPTION_CONNECTION_LIMIT, maxConnections,
      MHD_OPTION_END );
   if ( !listener->daemon ) {
      close( descriptor );
      return "the HTTP server does not start";
   }
   listener->epoll = MHD_get_daemon_info( listener->daemon, MHD_DAEMON_INFO_EPOLL_FD )->epoll_fd;
   Listener * const raw = listener.get();
   loop_->descriptorIs( raw->epoll, Cog::EventLoop::readable, [raw]( Vel::U32 ) { raw->run(); } );
   listeners_[descriptor] = std::move( listener );
   return std::nullopt;
}

std::optional< std::string > HttpServer::listenLocal( const std::string & path ) {
   const auto failed = [&]( const std::string & what ) { return path + ": " + what; };
   sockaddr_un address{};
   address.sun_family = AF_UNIX;
   if ( path.size() >= sizeof address.sun_path )
      return failed( "the path is too long for a socket" );
   std::memcpy( address.sun_path, path.c_str(), path.size() + 1 );
   const int descriptor = socket( AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0 );
   if ( descriptor < 0 )
      return failed( std::strerror( errno ) );
   const auto * name = reinterpret_cast< const sockaddr * >( &address );
   struct stat there {};
   if ( lstat( path.c_str(), &there ) == 0 && !S_ISSOCK( there.st_mode ) ) {
      close( descriptor );
      return failed( "is not a socket" );
   }
   // Somebody who answers is alive; a socket that nobody answers on is left from a process that is gone.
   // One who is too busy to answer is alive as well.
   const int probe = socket( AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0 );
   const bool answered = probe >= 0 && ( connect( probe, name, sizeof address ) == 0 || errno == EAGAIN );
   if ( probe >= 0 )
      close( probe );
   if ( answered ) {
      close( descriptor );
      return failed( "another agent answers there" );
   }
   unlink( path.c_str() );
   if (
      bind( descriptor, name, sizeof address ) != 0 || chmod( path.c_str(), 0660 ) != 0 ||
      listen( descriptor, 64 ) != 0 ) {
      const std::string reason = std::strerror( errno );
      close( descriptor );
      return failed( reason );
   }
   localPath_ = path;
   return start( descriptor, true );
}

std::optional< std::string > HttpServer::listenWeb( const std::string & host, unsigned port ) {
   addrinfo hints{};
   hints.ai_socktype = SOCK_STREAM;
   hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
   addrinfo * found = nullptr;
   const std::string where = host + ":" + std::to_string( port );
   if ( const int error = getaddrinfo( host.c_str(), std::to_string( port ).c_str(), &hints, &found ) )
      return where + ": " + gai_strerror( error );
   std::string reason = "no address";
   for ( const addrinfo * a = found; a; a = a->ai_next ) {
      const int descriptor = socket( a->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0 );
      const int on = 1;
      if (
         descriptor >= 0 && setsockopt( descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on ) == 0 &&
         bind( descriptor, a->ai_addr, a->ai_addrlen ) == 0 && listen( descriptor, 64 ) == 0 ) {
         freeaddrinfo( found );
         return start( descriptor, false );
      }
      reason = std::strerror( errno );
      if ( descriptor >= 0 )
         close( descriptor );
   }
   freeaddrinfo( found );
   return where + ": " + reason;
}

unsigned HttpServer::webPort() const {
   for ( const auto & [descriptor, listener] : listeners_ )
      if ( !listener->local ) {
         sockaddr_storage address{};
         socklen_t size = sizeof address;
         getsockname( descriptor, reinterpret_cast< sockaddr * >( &address ), &size );
         return ntohs(
            address.ss_family == AF_INET6 ? reinterpret_cast< sockaddr_in6 * >( &address )->sin6_port
                                          : reinterpret_cast< sockaddr_in * >( &address )->sin_port );
      }
   return 0;
}

} // namespace Agent
