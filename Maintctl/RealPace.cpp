#include "Maintctl/RealPace.h"

#include "Maintctl/RealDisplay.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <ctime>

namespace Maintctl {

namespace {

volatile std::sig_atomic_t interruptedFlag = 0;

extern "C" void noteInterrupt( int signal ) {
   if ( interruptedFlag ) {
      RealDisplay::leave();
      std::signal( signal, SIG_DFL );
      std::raise( signal ); // when we return
   }
   interruptedFlag = 1;
}

} // namespace

RealPace::RealPace() {
   struct sigaction action {};
   action.sa_handler = noteInterrupt;
   sigfillset( &action.sa_mask ); // the terminal is left by one handler at a time
   // Waiting must end at once, so nothing is restarted.
   sigaction( SIGINT, &action, nullptr );
}

double RealPace::now() {
   timespec time{};
   clock_gettime( CLOCK_MONOTONIC, &time );
   return static_cast< double >( time.tv_sec ) + static_cast< double >( time.tv_nsec ) / 1e9;
}

bool RealPace::sleep( double seconds ) {
   const double end = now() + seconds;
   while ( !interrupted() ) {
      const double left = end - now();
      if ( left <= 0 )
         return true;
      // In short pieces: a signal just before the call would not end it.
      const double piece = std::min( left, 0.2 );
      timespec time{};
      time.tv_nsec = static_cast< long >( piece * 1e9 );
      clock_nanosleep( CLOCK_MONOTONIC, 0, &time, nullptr );
   }
   return false;
}

bool RealPace::interrupted() { return interruptedFlag != 0; }

} // namespace Maintctl
