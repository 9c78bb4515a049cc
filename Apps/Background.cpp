#include "Apps/Background.h"

#include <spdlog/spdlog.h>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

namespace Apps {

std::optional< int > Background::begin() {
   int ends[2];
   const pid_t process = pipe2( ends, O_CLOEXEC ) == 0 ? fork() : -1;
   if ( process < 0 ) {
      std::perror( "maintd: cannot go to the background" );
      return 1;
   }
   if ( process == 0 ) {
      close( ends[0] );
      report_ = ends[1];
      setsid();
      return std::nullopt;
   }
   close( ends[1] );
   char word = 0;
   ssize_t got;
   do
      got = read( ends[0], &word, 1 );
   while ( got < 0 && errno == EINTR );
   if ( got == 1 )
      return 0;
   int status = 0;
   pid_t ended;
   do
      ended = waitpid( process, &status, 0 );
   while ( ended < 0 && errno == EINTR );
   return ended == process && WIFEXITED( status ) && WEXITSTATUS( status ) != 0 ? WEXITSTATUS( status ) : 1;
}

void Background::forget() {
   if ( report_ >= 0 )
      close( std::exchange( report_, -1 ) );
}

void Background::leave() {
   if ( const int nowhere = open( "/dev/null", O_RDWR ); nowhere >= 0 ) {
      for ( const int standard : { STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO } )
         dup2( nowhere, standard );
      if ( nowhere > STDERR_FILENO )
         close( nowhere );
   }
   if ( chdir( "/" ) != 0 )
      spdlog::warn( "the folder cannot be left: {}", std::strerror( errno ) );
}

void Background::started() {
   leave();
   if ( report_ >= 0 && write( report_, "", 1 ) != 1 && errno != EPIPE )
      spdlog::warn( "whoever has started this was not told: {}", std::strerror( errno ) );
   forget();
}

} // namespace Apps
