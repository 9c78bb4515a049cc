#include "Apps/RealAgentProcess.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <utility>

namespace Apps {

RealAgentProcess::RealAgentProcess(
   std::function< int( unsigned, const std::string & ) > inAgent, std::function< void() > started,
   std::function< void( const std::string & ) > say )
   : inAgent_( std::move( inAgent ) ), started_( std::move( started ) ), say_( std::move( say ) ) {
   sigemptyset( &watched_ );
   for ( const int signal : { SIGTERM, SIGINT, SIGQUIT, SIGHUP, SIGCHLD } )
      sigaddset( &watched_, signal );
   sigprocmask( SIG_BLOCK, &watched_, &before_ );
}

RealAgentProcess::~RealAgentProcess() { sigprocmask( SIG_SETMASK, &before_, nullptr ); }

double RealAgentProcess::now() {
   timespec time{};
   clock_gettime( CLOCK_BOOTTIME, &time );
   return static_cast< double >( time.tv_sec ) + static_cast< double >( time.tv_nsec ) * 1e-9;
}

bool RealAgentProcess::start( unsigned restarts, const std::string & reason ) {
   process_ = fork();
   if ( process_ < 0 ) {
      say_( std::string( "no process can be made: " ) + std::strerror( errno ) );
      process_ = 0;
      return false;
   }
   if ( process_ == 0 ) {
      sigprocmask( SIG_SETMASK, &before_, nullptr );
      std::exit( inAgent_( restarts, reason ) );
   }
   started_();
   return true;
}

void RealAgentProcess::pass( int signal ) {
   if ( process_ != 0 )
      kill( process_, signal );
}

AgentProcess::Event RealAgentProcess::wait( std::optional< double > seconds ) {
   Event event;
   const double until = seconds ? now() + *seconds : 0;
   while ( true ) {
      int status = 0;
      if ( process_ != 0 && waitpid( process_, &status, WNOHANG ) == process_ ) {
         process_ = 0;
         event.kind = Event::Kind::ended;
         event.end = WIFSIGNALED( status ) ? ProcessEnd{ true, WTERMSIG( status ) }
                                           : ProcessEnd{ false, WEXITSTATUS( status ) };
         return event;
      }
      timespec limit{};
      if ( seconds ) {
         const double left = std::fmax( until - now(), 0 );
         limit.tv_sec = static_cast< time_t >( left );
         limit.tv_nsec = static_cast< long >( ( left - std::floor( left ) ) * 1e9 );
      }
      const int signal =
         seconds ? sigtimedwait( &watched_, nullptr, &limit ) : sigwaitinfo( &watched_, nullptr );
      if ( signal > 0 && signal != SIGCHLD ) {
         event.kind = Event::Kind::signal;
         event.signal = signal;
         return event;
      }
      if ( signal < 0 && errno == EAGAIN )
         return event;
   }
}

} // namespace Apps
