// Connections that are taken.

#include "Agent/Control/HttpListener.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

namespace Agent {

HttpServer::Door::Door( Listener & itsListener, int listening )
   : listener_( itsListener ), descriptor_( listening ) {
   again_.is( listener_.server.wheel_, this ).hasNotificationActiveIs( true );
   Cog::EventLoop & loop = *listener_.server.loop_;
   loop.descriptorIs( descriptor_, Cog::EventLoop::readable, [this]( Vel::U32 ) { take(); } );
   // Timers rest while counters cannot be read; there are turns all the same.
   loop.commitHookIs( [weak = std::weak_ptr( alive_ ), this] {
      if ( !weak.expired() && listener_.server.loop_->currentTime() >= againTime_ )
         restingIs( false );
      return true;
   } );
}

HttpServer::Door::~Door() {
   listener_.server.loop_->descriptorDel( descriptor_ );
   close( descriptor_ );
}

void HttpServer::Door::look() {
   if ( resting_ && connections() < connectionsThen_ )
      restingIs( false );
}

void HttpServer::Door::take() {
   for ( unsigned taken = 0; taken < maxTaken; ++taken ) {
      if ( !mayTake() )
         return restingIs( true );
      sockaddr_storage address{};
      socklen_t size = sizeof address;
      auto * const name = reinterpret_cast< sockaddr * >( &address );
      const int connection = accept4( descriptor_, name, &size, SOCK_NONBLOCK | SOCK_CLOEXEC );
      // Refused or not, it is the library's.
      if ( connection >= 0 )
         MHD_add_connection( listener_.daemon, connection, name, size );
      else if ( errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM )
         return restingIs( true );
      else if ( errno == EAGAIN )
         return;
      // Otherwise whoever came first has gone again.
   }
}

bool HttpServer::Door::mayTake() const {
   return connections() < maxConnections && ( listener_.local || leavesDescriptors() );
}

bool HttpServer::Door::leavesDescriptors() const {
   rlimit limit{};
   getrlimit( RLIMIT_NOFILE, &limit );
   // A new one is the lowest that is free: all below are in use.
   const int lowest = fcntl( descriptor_, F_DUPFD_CLOEXEC, 0 );
   if ( lowest < 0 )
      return false;
   close( lowest );
   return static_cast< rlim_t >( lowest ) < limit.rlim_cur - limit.rlim_cur / descriptorParts;
}

void HttpServer::Door::restingIs( bool resting ) {
   resting_ = resting;
   connectionsThen_ = connections();
   againTime_ = resting ? listener_.server.loop_->currentTime() + retryAfter : Cog::Timer::never;
   again_->timeMinIs( againTime_ );
   listener_.server.loop_->descriptorInterestIs( descriptor_, resting ? 0u : Cog::EventLoop::readable );
}

unsigned HttpServer::Door::connections() const {
   return MHD_get_daemon_info( listener_.daemon, MHD_DAEMON_INFO_CURRENT_CONNECTIONS )->num_connections;
}

} // namespace Agent
