#include "Platform/Cog/EventLoop.h"

#include "Platform/Vel/Text.h"

#include <cerrno>
#include <cmath>
#include <cstring>

#include <sys/epoll.h>
#include <unistd.h>

namespace Cog {

namespace {
constexpr int maxReady = 64;
constexpr double maxWait = 3600;

[[noreturn]] void fail( const Vel::String & what ) {
   throw Vel::InternalException( Vel::text( what, ": ", std::strerror( errno ) ) );
}

Vel::U32 epollEvents( Vel::U32 interest ) {
   return ( interest & EventLoop::readable ? Vel::U32( EPOLLIN ) : 0 ) |
          ( interest & EventLoop::writable ? Vel::U32( EPOLLOUT ) : 0 );
}

Vel::U32 loopEvents( Vel::U32 events ) {
   return ( events & EPOLLIN ? Vel::U32( EventLoop::readable ) : 0 ) |
          ( events & EPOLLOUT ? Vel::U32( EventLoop::writable ) : 0 ) |
          ( events & ( EPOLLERR | EPOLLHUP ) ? Vel::U32( EventLoop::failed ) : 0 );
}

/// Milliseconds for the kernel, never less than asked for; negative: no limit.
int milliseconds( double seconds ) {
   if ( std::isinf( seconds ) )
      return -1;
   return static_cast< int >( std::ceil( std::fmin( seconds, maxWait ) * 1000 ) );
}
} // namespace

EventLoop::EventLoop( Vel::Ptr< TimeSource > time )
   : Scheduler( std::move( time ) ), epoll_( epoll_create1( EPOLL_CLOEXEC ) ) {
   if ( epoll_ < 0 )
      fail( "cannot make an event queue" );
}

EventLoop::~EventLoop() { close( epoll_ ); }

void EventLoop::descriptorIs( int descriptor, Vel::U32 interest, DescriptorHandler handler ) {
   const Vel::U32 generation = ++generation_;
   const bool known = watched_.count( descriptor ) != 0;
   control( known ? EPOLL_CTL_MOD : EPOLL_CTL_ADD, descriptor, interest, generation );
   watched_[descriptor] = std::make_shared< Watched >( Watched{ generation, std::move( handler ) } );
}

void EventLoop::descriptorInterestIs( int descriptor, Vel::U32 interest ) {
   const auto at = watched_.find( descriptor );
   VEL_ASSERT( at != watched_.end(), "the descriptor is watched" );
   control( EPOLL_CTL_MOD, descriptor, interest, at->second->generation );
}

bool EventLoop::descriptorDel( int descriptor ) {
   if ( watched_.erase( descriptor ) == 0 )
      return false;
   // Fails only if it has been closed already, which has removed it.
   epoll_ctl( epoll_, EPOLL_CTL_DEL, descriptor, nullptr );
   return true;
}

void EventLoop::control( int operation, int descriptor, Vel::U32 interest, Vel::U32 generation ) {
   epoll_event event{};
   event.events = epollEvents( interest );
   event.data.u64 = Vel::U64( generation ) << 32 | static_cast< Vel::U32 >( descriptor );
   if ( epoll_ctl( epoll_, operation, descriptor, &event ) != 0 )
      fail( Vel::text( "cannot watch descriptor ", descriptor ) );
}

void EventLoop::run() {
   try {
      while ( !stopped_ ) {
         wait();
         const double began = time().now();
         turn();
         const double ended = time().now();
         turnTimes_.turnEnds( ended, ended - began );
      }
   } catch ( ... ) {
      if ( escapedHook_ )
         escapedHook_( std::current_exception() );
      throw;
   }
   stopped_ = false;
}

void EventLoop::wait() {
   epoll_event events[maxReady];
   const int count = epoll_wait( epoll_, events, maxReady, milliseconds( time().waitFor( dueTime() ) ) );
   if ( count < 0 && errno != EINTR )
      fail( "cannot wait for events" );
   ready_.clear();
   for ( int i = 0; i < count; ++i ) {
      const Vel::U64 data = events[i].data.u64;
      ready_.push_back(
         { static_cast< int >( data & 0xffffffffu ), static_cast< Vel::U32 >( data >> 32 ),
           loopEvents( events[i].events ) } );
   }
}

void EventLoop::bringIn() {
   for ( const Ready & ready : ready_ ) {
      const auto at = watched_.find( ready.descriptor );
      if ( at == watched_.end() || at->second->generation != ready.generation )
         continue;
      // Held, because the handler may remove itself.
      const std::shared_ptr< Watched > watched = at->second;
      watched->handler( ready.events );
   }
}

} // namespace Cog
