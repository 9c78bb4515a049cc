#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

/// Purpose: what the tests of this folder share: a directory of their own, and processes that may die.
namespace FastLog {

class TempDir {
 public:
   TempDir() {
      std::string name = testing::TempDir() + "fastlogXXXXXX";
      path_ = ::mkdtemp( name.data() );
   }
   ~TempDir() { std::filesystem::remove_all( path_ ); }
   TempDir( const TempDir & ) = delete;
   TempDir & operator=( const TempDir & ) = delete;

   std::string file( const std::string & name = "ring" ) const { return path_ + '/' + name; }

 private:
   std::string path_;
};

/// Starts a process that does the work and then ends with 0, or with 1 if a check in it failed or it threw.
template < class Work >
pid_t childStarted( Work work ) {
   const pid_t child = ::fork();
   if ( child == 0 ) {
      try {
         work();
      } catch ( const std::exception & error ) {
         ADD_FAILURE() << error.what();
      }
      ::fflush( stdout );
      ::_exit( testing::Test::HasFailure() );
   }
   return child;
}

/// What waitpid() says of it.
inline int statusOf( pid_t child ) {
   int status = -1;
   EXPECT_EQ( ::waitpid( child, &status, 0 ), child );
   return status;
}

/// Does the work in another process, so that what it does to the one log of a process does not stay.
template < class Work >
void inChild( Work work ) {
   EXPECT_EQ( statusOf( childStarted( work ) ), 0 );
}

} // namespace FastLog
