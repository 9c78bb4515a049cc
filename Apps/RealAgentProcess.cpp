#include "Apps/RealAgentProcess.h"

#include "Platform/Vel/Error.h"
#include "Platform/Vel/Text.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <utility>

namespace Apps {

RealAgentProcess::RealAgentProcess( Calls calls ) : calls_( std::move( calls ) ) {
   // Whoever has started us may ignore it, and then the kernel would say nothing of a child's end.
   ::signal( SIGCHLD, SIG_DFL );
   sigemptyset( &watched_ );
   for ( const int signal : { SIGTERM, SIGINT, SIGQUIT, SIGHUP, SIGCHLD } )
      sigaddset( &watched_, signal );
   sigprocmask( SIG_BLOCK, &watched_, &before_ );
   signals_ = signalfd( -1, &watched_, SFD_CLOEXEC | SFD_NONBLOCK );
   if ( signals_ < 0 ) {
      const int error = errno;
      sigprocmask( SIG_SETMASK, &before_, nullptr );
      throw Vel::InternalException( Vel::text( "signals cannot be read: ", std::strerror( error ) ) );
   }
}

RealAgentProcess::~RealAgentProcess() {
   runsDel();
   close( signals_ );
   sigprocmask( SIG_SETMASK, &before_, nullptr );
}

double RealAgentProcess::now() {
   timespec time{};
   clock_gettime( CLOCK_BOOTTIME, &time );
   return static_cast< double >( time.tv_sec ) + static_cast< double >( time.tv_nsec ) * 1e-9;
}

bool RealAgentProcess::start( unsigned restarts, const std::string & reason ) {
   int ends[2] = { -1, -1 };
   process_ = pipe2( ends, O_CLOEXEC | O_NONBLOCK ) == 0 ? fork() : -1;
   if ( process_ == 0 ) {
      close( ends[0] );
      runAgent( restarts, reason, ends[1] );
   }
   if ( process_ < 0 ) {
      const int error = errno;
      for ( const int end : ends )
         if ( end >= 0 )
            close( end );
      process_ = 0;
      calls_.say( std::string( "no process can be made: " ) + std::strerror( error ) );
      return false;
   }
   close( ends[1] );
   runs_ = ends[0];
   calls_.made();
   return true;
}

void RealAgentProcess::runAgent( unsigned restarts, const std::string & reason, int runs ) {
   close( std::exchange( signals_, -1 ) );
   sigprocmask( SIG_SETMASK, &before_, nullptr );
   std::exit( calls_.inAgent( { restarts, reason, [runs] {
                                  // Nobody reads it if the supervisor is gone; the agent goes on without it.
                                  [[maybe_unused]] const ssize_t written = write( runs, "", 1 );
                                  close( runs );
                               } } ) );
}

void RealAgentProcess::pass( int signal ) {
   if ( process_ != 0 )
      kill( process_, signal );
}

void RealAgentProcess::runsDel() {
   if ( runs_ >= 0 )
      close( std::exchange( runs_, -1 ) );
}

/// Whether the agent has said that it has started, since it was asked last.
std::optional< AgentProcess::Event > RealAgentProcess::heard() {
   char word = 0;
   const ssize_t got = runs_ < 0 ? -1 : read( runs_, &word, 1 );
   if ( got >= 0 )
      runsDel();
   if ( got != 1 )
      return std::nullopt;
   calls_.started();
   return Event{ Event::Kind::started, {}, 0 };
}

/// The agent's end, if it has come. Of other children nobody wants to know.
std::optional< AgentProcess::Event > RealAgentProcess::reaped() {
   int status = 0;
   pid_t process;
   while ( ( process = waitpid( -1, &status, WNOHANG ) ) > 0 )
      if ( process == process_ ) {
         process_ = 0;
         return Event{
            Event::Kind::ended,
            WIFSIGNALED( status ) ? ProcessEnd{ true, WTERMSIG( status ) }
                                  : ProcessEnd{ false, WEXITSTATUS( status ) },
            0 };
      }
   return std::nullopt;
}

AgentProcess::Event RealAgentProcess::wait( std::optional< double > seconds ) {
   const double until = seconds ? now() + *seconds : 0;
   while ( true ) {
      // It may have said so just before it ended.
      if ( auto event = heard() )
         return *event;
      if ( auto event = reaped() )
         return *event;
      signalfd_siginfo info{};
      if ( read( signals_, &info, sizeof info ) == static_cast< ssize_t >( sizeof info ) ) {
         if ( info.ssi_signo == static_cast< unsigned >( SIGCHLD ) )
            continue;
         return Event{ Event::Kind::signal, {}, static_cast< int >( info.ssi_signo ) };
      }
      const double left = seconds ? until - now() : 0;
      if ( seconds && left <= 0 )
         return {};
      constexpr double longest = 1e6;
      pollfd watched[] = { { signals_, POLLIN, 0 }, { runs_, POLLIN, 0 } };
      ::poll( watched, 2, seconds ? static_cast< int >( std::ceil( std::min( left, longest ) * 1e3 ) ) : -1 );
   }
}

} // namespace Apps
