#include "Maintctl/RealDisplay.h"

#include <sys/ioctl.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <termios.h>
#include <unistd.h>
#include <utility>

namespace Maintctl {

namespace {

/// The terminal that is drawn on. Signal handlers read it, so it is plain memory that changes only while they are kept
/// away.
struct Drawn {
   volatile std::sig_atomic_t active = 0, left = 0;
   int descriptor = -1;
   std::array< char, 256 > goodbye{};
   std::size_t goodbyeSize = 0;
   bool keysHidden = false;
   termios before{};
};
Drawn drawn;

/// Those that end us.
constexpr int deadly[] = { SIGTERM, SIGHUP, SIGQUIT, SIGABRT };
struct sigaction actionsBefore[std::size( deadly )], stopBefore;
bool signalsWatched = false; ///< also while we are stopped

bool isForeground( int descriptor ) {
   const pid_t group = tcgetpgrp( descriptor );
   return group < 0 || group == getpgrp();
}

void put( int descriptor, const char * bytes, std::size_t size ) {
   while ( size > 0 ) {
      const ssize_t taken = ::write( descriptor, bytes, size );
      if ( taken < 0 && errno != EINTR )
         return; // it is gone
      if ( taken > 0 ) {
         bytes += taken;
         size -= static_cast< std::size_t >( taken );
      }
   }
}

extern "C" void leaveAndDie( int signal ) {
   RealDisplay::leave();
   std::signal( signal, SIG_DFL );
   std::raise( signal ); // when we return
}

/// Ctrl-Z: the shell gets its terminal back, and we begin anew when we go on.
extern "C" void leaveAndStop( int ) {
   const int before = errno;
   RealDisplay::leave();
   std::raise( SIGSTOP );
   drawn.left = 1;
   errno = before;
}

/// While there is one no handler runs.
class Undisturbed {
 public:
   Undisturbed() {
      sigset_t all;
      sigfillset( &all );
      sigprocmask( SIG_BLOCK, &all, &before_ );
   }
   ~Undisturbed() { sigprocmask( SIG_SETMASK, &before_, nullptr ); }
   Undisturbed( const Undisturbed & ) = delete;
   Undisturbed & operator=( const Undisturbed & ) = delete;

 private:
   sigset_t before_;
};

void watchSignals() {
   if ( std::exchange( signalsWatched, true ) )
      return;
   struct sigaction action {};
   sigfillset( &action.sa_mask ); // one leaves at a time
   action.sa_handler = leaveAndDie;
   for ( std::size_t i = 0; i < std::size( deadly ); ++i )
      sigaction( deadly[i], &action, &actionsBefore[i] );
   action.sa_handler = leaveAndStop;
   sigaction( SIGTSTP, &action, &stopBefore );
   // Under nohup and in shells without job control these stay ignored.
   for ( std::size_t i = 0; i < std::size( deadly ); ++i )
      if ( actionsBefore[i].sa_handler == SIG_IGN )
         sigaction( deadly[i], &actionsBefore[i], nullptr );
   if ( stopBefore.sa_handler == SIG_IGN )
      sigaction( SIGTSTP, &stopBefore, nullptr );
}

void forgetSignals() {
   if ( !std::exchange( signalsWatched, false ) )
      return;
   for ( std::size_t i = 0; i < std::size( deadly ); ++i )
      sigaction( deadly[i], &actionsBefore[i], nullptr );
   sigaction( SIGTSTP, &stopBefore, nullptr );
}

std::string variable( const char * name ) {
   const char * value = std::getenv( name );
   return value ? value : "";
}

} // namespace

TerminalEnvironment TerminalEnvironment::ofProcess() {
   TerminalEnvironment environment{ variable( "NO_COLOR" ), variable( "TERM" ), "" };
   for ( const char * name : { "LC_ALL", "LC_CTYPE", "LANG" } )
      if ( environment.locale.empty() )
         environment.locale = variable( name );
   return environment;
}

Display::Abilities abilitiesOf( bool terminal, bool wanted, const TerminalEnvironment & environment ) {
   Display::Abilities result;
   result.terminal = terminal;
   result.draws = terminal && wanted && environment.term != "dumb" && !environment.term.empty();
   result.colours = result.draws && environment.noColor.empty();
   std::string locale = environment.locale;
   std::transform(
      locale.begin(), locale.end(), locale.begin(), []( unsigned char c ) { return std::tolower( c ); } );
   result.utf8 = locale.find( "utf-8" ) != std::string::npos || locale.find( "utf8" ) != std::string::npos;
   return result;
}

Size RealDisplay::size() {
   Size size;
   winsize known{};
   if ( ioctl( descriptor_, TIOCGWINSZ, &known ) == 0 && known.ws_col > 0 && known.ws_row > 0 )
      size = { known.ws_col, known.ws_row };
   return size;
}

bool RealDisplay::isOurs() { return isForeground( descriptor_ ); }

bool RealDisplay::wasLeft() {
   const bool left = drawn.left != 0;
   drawn.left = 0;
   return left;
}

void RealDisplay::begin( std::string_view goodbye ) {
   const Undisturbed undisturbed;
   const bool first = drawn.active == 0;
   drawn.descriptor = descriptor_;
   drawn.goodbyeSize = std::min( goodbye.size(), drawn.goodbye.size() );
   std::copy_n( goodbye.begin(), drawn.goodbyeSize, drawn.goodbye.begin() );
   if ( first ) {
      drawn.keysHidden = isForeground( descriptor_ ) && tcgetattr( descriptor_, &drawn.before ) == 0;
      if ( drawn.keysHidden ) {
         termios silent = drawn.before;
         silent.c_lflag &= ~static_cast< tcflag_t >( ECHO );
         tcsetattr( descriptor_, TCSANOW, &silent );
      }
      watchSignals();
   }
   drawn.active = 1;
}

void RealDisplay::end() {
   if ( drawn.descriptor != descriptor_ )
      return;
   // An impatient operator's second Ctrl-C ends us when the terminal has been given back, not halfway.
   const Undisturbed undisturbed;
   leave();
   forgetSignals();
}

void RealDisplay::write( std::string_view bytes ) { put( descriptor_, bytes.data(), bytes.size() ); }

void RealDisplay::leave() {
   if ( drawn.active == 0 )
      return;
   put( drawn.descriptor, drawn.goodbye.data(), drawn.goodbyeSize );
   if ( drawn.keysHidden && isForeground( drawn.descriptor ) )
      tcsetattr( drawn.descriptor, TCSANOW, &drawn.before );
   drawn.active = 0;
}

} // namespace Maintctl
