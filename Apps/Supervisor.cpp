#include "Apps/Supervisor.h"

#include <algorithm>
#include <csignal>
#include <cstring>

namespace Apps {

namespace {

bool asksForTheEnd( int signal ) { return signal == SIGTERM || signal == SIGINT || signal == SIGQUIT; }

std::string secondsText( double seconds ) { return std::to_string( static_cast< int >( seconds ) ) + " s"; }

} // namespace

std::string text( const ProcessEnd & end ) {
   if ( !end.bySignal )
      return "ended with status " + std::to_string( end.number );
   const char * const name = strsignal( end.number );
   return "ended by signal " + std::to_string( end.number ) +
          ( name ? " (" + std::string( name ) + ")" : "" );
}

int Supervisor::run() {
   startedAt_ = agent_.now();
   running_ = agent_.start( 0, "" );
   if ( !running_ )
      return 1;
   while ( true ) {
      const AgentProcess::Event event = agent_.wait( std::nullopt );
      if ( event.kind == AgentProcess::Event::Kind::started )
         hasRun_ = true;
      else if ( event.kind == AgentProcess::Event::Kind::signal )
         handleSignal( event.signal );
      else if ( event.kind == AgentProcess::Event::Kind::ended )
         if ( const auto status = handleEnd( event.end ) )
            return *status;
   }
}

void Supervisor::handleSignal( int signal ) {
   if ( asksForTheEnd( signal ) )
      asked_ = signal;
   if ( running_ )
      agent_.pass( signal );
}

/// The exit status, if nothing is to be started again.
std::optional< int > Supervisor::handleEnd( const ProcessEnd & end ) {
   constexpr int signalled = 128;
   running_ = false;
   if ( asked_ )
      return !end.bySignal ? end.number : end.number == *asked_ ? 0 : signalled + end.number;
   if ( !end.bySignal && ( end.number == 0 || !hasRun_ ) )
      return end.number;
   if ( !hasRun_ ) {
      agent_.say( "the agent " + text( end ) + " before it has started" );
      return 1;
   }
   if ( agent_.now() - startedAt_ >= goodWhile )
      delay_ = firstDelay;
   reason_ = text( end );
   do
      if ( !waitForDelay() )
         return 0;
   while ( !startAgain() );
   return std::nullopt;
}

/// False: somebody has asked for the end instead.
bool Supervisor::waitForDelay() {
   agent_.say(
      "the agent " + reason_ + "; it is started again in " + secondsText( delay_ ) + ", restart " +
      std::to_string( restarts_ + 1 ) );
   const double until = agent_.now() + delay_;
   delay_ = std::min( delay_ * 2, longestDelay );
   for ( double left = until - agent_.now(); left > 0; left = until - agent_.now() ) {
      const AgentProcess::Event event = agent_.wait( left );
      if ( event.kind == AgentProcess::Event::Kind::signal )
         handleSignal( event.signal );
      if ( asked_ )
         return false;
   }
   return true;
}

bool Supervisor::startAgain() {
   startedAt_ = agent_.now();
   running_ = agent_.start( ++restarts_, reason_ );
   if ( !running_ )
      reason_ = "could not be started";
   return running_;
}

} // namespace Apps
