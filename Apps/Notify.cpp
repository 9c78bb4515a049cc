#include "Apps/Notify.h"

#include "Api/Utf8.h"
#include "Platform/Vel/Text.h"

#include <sys/socket.h>
#include <sys/timerfd.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace Apps {

namespace {

/// Bytes that wait for room. What is newest counts.
constexpr std::size_t mostUnsaid = 2048;

/// What is told of the agent is one line of at most so many bytes; whole characters of it.
std::string cut( std::string line ) {
   constexpr std::size_t longest = 500;
   std::replace( line.begin(), line.end(), '\n', ' ' );
   line.resize( Api::beginning( line, longest ).size() );
   return line;
}

std::optional< long > number( const char * text ) {
   long result = 0;
   const char * const end = text + std::strlen( text );
   const auto [at, error] = std::from_chars( text, end, result );
   return error == std::errc() && at == end ? std::optional( result ) : std::nullopt;
}

timespec timeOf( double seconds ) {
   timespec result{};
   result.tv_sec = static_cast< time_t >( seconds );
   result.tv_nsec = static_cast< long >( ( seconds - std::floor( seconds ) ) * 1e9 );
   return result;
}

/// The time that the service manager compares with its own, in microseconds.
long long monotonicMicroseconds() {
   timespec now{};
   clock_gettime( CLOCK_MONOTONIC, &now );
   return static_cast< long long >( now.tv_sec ) * 1000000 + now.tv_nsec / 1000;
}

} // namespace

Notify::Address Notify::address(
   const char * socket, const char * watchdogMicroseconds, const char * watchdogPid, long pid ) {
   Address result;
   if ( socket && ( socket[0] == '/' || socket[0] == '@' ) && socket[1] )
      result.socket = socket;
   if ( result.socket.empty() || !watchdogMicroseconds )
      return result;
   if ( watchdogPid && number( watchdogPid ) != pid )
      return result;
   if ( const auto microseconds = number( watchdogMicroseconds ); microseconds && *microseconds > 0 )
      result.watchdog = static_cast< double >( *microseconds ) / 1e6;
   return result;
}

Notify::Address Notify::takeFromEnvironment() {
   const auto result =
      address( getenv( "NOTIFY_SOCKET" ), getenv( "WATCHDOG_USEC" ), getenv( "WATCHDOG_PID" ), getpid() );
   for ( const char * name : { "NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID" } )
      unsetenv( name );
   return result;
}

Notify::Notify( Address address ) : address_( std::move( address ) ) {
   if ( !address_.socket.empty() )
      socket_ = socket( AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0 );
}

Notify::~Notify() {
   if ( timer_ >= 0 ) {
      loop_->descriptorDel( timer_ );
      close( timer_ );
   }
   if ( socket_ >= 0 )
      close( socket_ );
}

double Notify::tick() const {
   return address_.watchdog ? std::min( *address_.watchdog / 4, longestTick ) : longestTick;
}

void Notify::ready( Cog::EventLoop & loop, std::function< std::string() > status ) {
   if ( socket_ < 0 )
      return;
   loop_ = &loop;
   status_ = std::move( status );
   timer_ = timerfd_create( CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC );
   const itimerspec times{ timeOf( tick() ), timeOf( tick() ) };
   if ( timer_ < 0 || timerfd_settime( timer_, 0, &times, nullptr ) != 0 )
      throw Vel::InternalException( Vel::text( "no timer for the watchdog: ", std::strerror( errno ) ) );
   loop.descriptorIs( timer_, Cog::EventLoop::readable, [this]( Vel::U32 ) { handleTick(); } );
   told_ = cut( status_() );
   say( "READY=1\nSTATUS=" + told_ + "\n" );
}

void Notify::reloading() {
   say( "RELOADING=1\nMONOTONIC_USEC=" + std::to_string( monotonicMicroseconds() ) + "\n" );
}

void Notify::reloaded() { say( "READY=1\n" ); }

void Notify::stopping() { say( "STOPPING=1\n" ); }

void Notify::handleTick() {
   Vel::U64 expired = 0;
   if ( read( timer_, &expired, sizeof expired ) != static_cast< ssize_t >( sizeof expired ) )
      return;
   const std::string status = cut( status_() );
   std::string lines = address_.watchdog ? "WATCHDOG=1\n" : "";
   if ( status != told_ )
      lines += "STATUS=" + status + "\n";
   told_ = status;
   if ( !lines.empty() || !unsaid_.empty() )
      say( lines );
}

void Notify::say( const std::string & lines ) {
   if ( socket_ < 0 )
      return;
   sockaddr_un to{};
   to.sun_family = AF_UNIX;
   if ( address_.socket.size() >= sizeof to.sun_path )
      return;
   std::memcpy( to.sun_path, address_.socket.data(), address_.socket.size() );
   if ( to.sun_path[0] == '@' )
      to.sun_path[0] = '\0'; // a name of no file
   const auto size = static_cast< socklen_t >( offsetof( sockaddr_un, sun_path ) + address_.socket.size() );
   unsaid_ += lines;
   if ( unsaid_.size() > mostUnsaid )
      unsaid_.erase( 0, unsaid_.find( '\n', unsaid_.size() - mostUnsaid ) + 1 );
   if (
      sendto(
         socket_, unsaid_.data(), unsaid_.size(), MSG_NOSIGNAL, reinterpret_cast< const sockaddr * >( &to ),
         size ) >= 0 )
      unsaid_.clear();
   else if ( errno == EAGAIN || errno == ENOBUFS ) {
      // A feed that comes late is none: the next tick has one of its own.
      if ( const auto feed = unsaid_.rfind( "WATCHDOG=1\n" ); feed != std::string::npos )
         unsaid_.erase( feed, std::strlen( "WATCHDOG=1\n" ) );
   } else
      unsaid_.clear(); // nobody is there
}

} // namespace Apps
