#pragma once

#include "Platform/Vel/String.h"

#include <gtest/gtest.h>

#include <csignal>
#include <optional>
#include <sys/wait.h>
#include <unistd.h>

/// A process of its own that writes step after step, from `step` on, and is killed some time after it has reported
/// `reports` of them, wherever it is then. The last step that it has reported; none, and a failure of the test, if it
/// came to another end. `writer()` is called once, in that process; what it gives is called with each step and says
/// whether that is written.
template < class Writer >
std::optional< Vel::U64 > lastOfAKilledWriter( Vel::U64 step, unsigned reports, Writer writer ) {
   int ends[2];
   if ( pipe( ends ) != 0 ) {
      ADD_FAILURE() << "no pipe";
      return std::nullopt;
   }
   const pid_t child = fork();
   if ( child == 0 ) {
      auto writes = writer();
      for ( ;; ++step )
         if ( !writes( step ) || write( ends[1], &step, sizeof step ) != sizeof step )
            _exit( 1 );
   }
   close( ends[1] );
   Vel::U64 last = 0;
   bool reported = child > 0;
   for ( ; reported && reports > 0; --reports )
      reported = read( ends[0], &last, sizeof last ) == sizeof last;
   if ( child > 0 )
      kill( child, SIGKILL );
   while ( read( ends[0], &last, sizeof last ) == sizeof last )
      ;
   close( ends[0] );
   int status = 0;
   if ( !reported || waitpid( child, &status, 0 ) != child || !WIFSIGNALED( status ) ) {
      ADD_FAILURE() << "the writer has ended by itself";
      return std::nullopt;
   }
   return last;
}
