#include "Maintctl/RealDisplay.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sched.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <pthread.h>
#include <string>
#include <string_view>
#include <termios.h>
#include <thread>
#include <unistd.h>

namespace Maintctl {

namespace {

/// A terminal whose other side is ours.
class Terminal {
 public:
   Terminal() : other_( posix_openpt( O_RDWR | O_NOCTTY ) ) {
      EXPECT_EQ( grantpt( other_ ), 0 );
      EXPECT_EQ( unlockpt( other_ ), 0 );
      descriptor = open( ptsname( other_ ), O_RDWR | O_NOCTTY );
      EXPECT_GE( descriptor, 0 );
      termios mode{};
      tcgetattr( descriptor, &mode );
      mode.c_oflag &= ~static_cast< tcflag_t >( OPOST ); // bytes come out as they go in
      tcsetattr( descriptor, TCSANOW, &mode );
   }
   ~Terminal() {
      close( descriptor );
      close( other_ );
   }
   Terminal( const Terminal & ) = delete;
   Terminal & operator=( const Terminal & ) = delete;

   /// Writes until it takes no more. Gives the number of bytes.
   std::size_t fill() const {
      const int flags = fcntl( descriptor, F_GETFL );
      fcntl( descriptor, F_SETFL, flags | O_NONBLOCK );
      std::size_t size = 0;
      for ( ssize_t taken = 0; ( taken = write( descriptor, "x", 1 ) ) > 0; )
         size += static_cast< std::size_t >( taken );
      fcntl( descriptor, F_SETFL, flags );
      return size;
   }
   /// So many bytes of what was written, waiting for them.
   std::string take( std::size_t size ) const {
      std::string bytes( size, '\0' );
      std::size_t taken = 0;
      while ( taken < size ) {
         const ssize_t got = read( other_, &bytes[taken], size - taken );
         if ( got <= 0 )
            break;
         taken += static_cast< std::size_t >( got );
      }
      bytes.resize( taken );
      return bytes;
   }
   /// What was written and not taken yet, up to this, which the system hands on in its own time.
   std::string until( std::string_view end ) const {
      constexpr int patience = 10'000; // milliseconds
      std::string bytes;
      pollfd ready{ other_, POLLIN, 0 };
      for ( char byte = 0; !bytes.ends_with( end ) && poll( &ready, 1, patience ) == 1; bytes += byte )
         if ( read( other_, &byte, 1 ) != 1 )
            break;
      return bytes;
   }
   bool echoes() const {
      termios mode{};
      tcgetattr( descriptor, &mode );
      return mode.c_lflag & ECHO;
   }

   int descriptor = -1;

 private:
   const int other_;
};

bool isAsleep( pid_t thread ) {
   std::ifstream file( "/proc/self/task/" + std::to_string( thread ) + "/stat" );
   std::string number, name, state;
   file >> number >> name >> state;
   return state == "S";
}

/// Ends the display of a terminal that takes nothing at first; meanwhile the signal comes.
void endInterruptedBy( int signal, const Terminal & terminal ) {
   RealDisplay display( terminal.descriptor, {} );
   display.begin( "goodbye" );
   const std::size_t before = terminal.fill();
   const pthread_t us = pthread_self();
   const pid_t ourNumber = gettid();
   std::thread other( [&] {
      sigset_t all;
      sigfillset( &all );
      pthread_sigmask( SIG_BLOCK, &all, nullptr );
      while ( !isAsleep( ourNumber ) )
         sched_yield();
      pthread_kill( us, signal );
      terminal.take( before );
   } );
   display.end();
   other.join();
   // Not reached if the signal came in time.
   std::exit( 0 );
}

TEST( RealDisplayDeathTest, givesTheTerminalBackWholeWhenASignalComesMeanwhile ) {
   for ( const int signal : { SIGTERM, SIGHUP } ) {
      SCOPED_TRACE( signal );
      const Terminal terminal;
      ASSERT_TRUE( terminal.echoes() );
      EXPECT_EXIT( endInterruptedBy( signal, terminal ), testing::KilledBySignal( signal ), "" );
      EXPECT_TRUE( terminal.until( "goodbye" ).ends_with( "goodbye" ) );
      EXPECT_TRUE( terminal.echoes() );
   }
}

TEST( RealDisplay, hidesKeysUntilItsEnd ) {
   const Terminal terminal;
   RealDisplay display( terminal.descriptor, {} );
   display.begin( "goodbye" );
   EXPECT_FALSE( terminal.echoes() );
   display.end();
   EXPECT_TRUE( terminal.echoes() );
   EXPECT_EQ( terminal.until( "goodbye" ), "goodbye" );
}

TEST( Abilities, areWhatTheTerminalAndTheOperatorAllow ) {
   const struct {
      const char * what;
      bool terminal, wanted;
      TerminalEnvironment environment;
      bool draws, colours, utf8;
   } rows[] = {
      { "a terminal", true, true, { "", "xterm", "C.UTF-8" }, true, true, true },
      { "no terminal", false, true, { "", "xterm", "C.UTF-8" }, false, false, true },
      { "--no-progress", true, false, { "", "xterm", "C.UTF-8" }, false, false, true },
      { "NO_COLOR", true, true, { "1", "xterm", "C.UTF-8" }, true, false, true },
      { "TERM=dumb", true, true, { "", "dumb", "C.UTF-8" }, false, false, true },
      { "no TERM", true, true, { "", "", "C.UTF-8" }, false, false, true },
      { "another locale", true, true, { "", "xterm", "de_DE.ISO-8859-1" }, true, true, false },
      { "no locale", true, true, { "", "xterm", "" }, true, true, false },
      { "a locale spelled otherwise", true, true, { "", "xterm", "en_US.utf8" }, true, true, true } };
   for ( const auto & row : rows ) {
      SCOPED_TRACE( row.what );
      const Display::Abilities abilities = abilitiesOf( row.terminal, row.wanted, row.environment );
      EXPECT_EQ( abilities.terminal, row.terminal );
      EXPECT_EQ( abilities.draws, row.draws );
      EXPECT_EQ( abilities.colours, row.colours );
      EXPECT_EQ( abilities.utf8, row.utf8 );
   }
}

} // namespace
} // namespace Maintctl
