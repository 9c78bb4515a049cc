#include "Platform/Ledger/FolderLock.h"
#include "Platform/Ledger/TempFolderTest.h"

#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <fstream>
#include <functional>
#include <sys/inotify.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

struct FolderLock : testing::Test {
   TempFolder temp;
   Vel::String folder = temp.path() + "/lib/maintd";
};

TEST_F( FolderLock, createsTheFolderAndSaysWhoseItIs ) {
   Ledger::FolderLock lock;
   EXPECT_EQ( "", lock.lock( folder ).text() );
   pid_t id = 0;
   std::ifstream( folder + "/lock" ) >> id;
   EXPECT_EQ( getpid(), id );
}

TEST_F( FolderLock, keepsASecondOneAwayAndNamesTheFirst ) {
   Ledger::FolderLock first, second;
   EXPECT_TRUE( first.lock( folder ).ok() );
   EXPECT_EQ(
      "folder " + folder + ": in use by another process (" + std::to_string( getpid() ) + ")",
      second.lock( folder ).text() );
}

/// As if the disk were full.
TEST_F( FolderLock, isHadAlsoWhereItCannotSayWhose ) {
   std::filesystem::create_directories( folder );
   std::ofstream( folder + "/lock" ) << "999999999\n";
   rlimit before{};
   getrlimit( RLIMIT_FSIZE, &before );
   const auto previous = std::signal( SIGXFSZ, SIG_IGN );
   const rlimit none{ 0, before.rlim_max };
   setrlimit( RLIMIT_FSIZE, &none );
   Ledger::FolderLock lock, second;
   const Vel::String text = lock.lock( folder ).text();
   setrlimit( RLIMIT_FSIZE, &before );
   std::signal( SIGXFSZ, previous );
   EXPECT_EQ( "", text );
   EXPECT_EQ( "folder " + folder + ": in use by another process", second.lock( folder ).text() );
}

TEST_F( FolderLock, letsTheFolderGoWhenItIsDestroyed ) {
   { EXPECT_TRUE( Ledger::FolderLock().lock( folder ).ok() ); }
   Ledger::FolderLock second;
   EXPECT_EQ( "", second.lock( folder ).text() );
}

TEST_F( FolderLock, mayBeTriedAgain ) {
   Ledger::FolderLock second;
   {
      Ledger::FolderLock first;
      EXPECT_TRUE( first.lock( folder ).ok() );
      EXPECT_FALSE( second.lock( folder ).ok() );
   }
   EXPECT_TRUE( second.lock( folder ).ok() );
}

TEST_F( FolderLock, goesWithItsProcess ) {
   const pid_t child = fork();
   if ( child == 0 ) {
      Ledger::FolderLock lock;
      _exit( lock.lock( folder ).ok() ? 0 : 1 ); // no destructor runs
   }
   int status = -1;
   waitpid( child, &status, 0 );
   EXPECT_EQ( 0, status );
   Ledger::FolderLock lock;
   EXPECT_EQ( "", lock.lock( folder ).text() );
   Vel::String content;
   std::ifstream( folder + "/lock" ) >> content;
   EXPECT_EQ( std::to_string( getpid() ), content );
}

/// A process locks the folder, makes another one that inherits the lock, and ends.
class InheritedLock : public FolderLock {
 protected:
   /// \param heir  what the other one does before it ends
   void leftTo( const std::function< void() > & heir ) {
      ASSERT_EQ( 0, pipe( ready.data() ) );
      const pid_t first = fork();
      if ( first == 0 ) {
         Ledger::FolderLock lock;
         const bool ok = lock.lock( folder ).ok();
         if ( ok && fork() == 0 ) {
            heir();
            _exit( 0 );
         }
         _exit( ok ? 0 : 1 );
      }
      int status = -1;
      waitpid( first, &status, 0 );
      ASSERT_EQ( 0, status );
      ASSERT_EQ( ssize_t( sizeof second ), read( ready[0], &second, sizeof second ) );
   }
   void isReady() const {
      const pid_t self = getpid();
      if ( write( ready[1], &self, sizeof self ) != sizeof self )
         _exit( 1 );
   }
   std::array< int, 2 > ready{};
   pid_t second = 0;
};

TEST_F( InheritedLock, isWaitedForUntilTheOtherOneHasRun ) {
   leftTo( [this] {
      const int watched = inotify_init();
      inotify_add_watch( watched, ( folder + "/lock" ).c_str(), IN_OPEN );
      isReady();
      std::array< char, 4096 > event{};
      [[maybe_unused]] const ssize_t opened = read( watched, event.data(), event.size() );
   } );
   Ledger::FolderLock lock;
   EXPECT_EQ( "", lock.lock( folder ).text() );
}

TEST_F( InheritedLock, isNotWaitedForForEver ) {
   leftTo( [this] {
      isReady();
      pause();
   } );
   EXPECT_NE(
      std::string::npos, Ledger::FolderLock().lock( folder ).text().find( "in use by another process" ) );
   kill( second, SIGKILL );
}

TEST_F( FolderLock, saysWhyAFolderCannotBeUsed ) {
   std::ofstream( temp.path() + "/file" ) << "x";
   Ledger::FolderLock lock;
   EXPECT_EQ(
      "folder " + temp.path() + "/file/sub: cannot create it: Not a directory",
      lock.lock( temp.path() + "/file/sub" ).text() );
   std::filesystem::create_directories( temp.path() + "/dir/lock" );
   EXPECT_EQ(
      "folder " + temp.path() + "/dir: cannot open its lock file: Is a directory",
      lock.lock( temp.path() + "/dir" ).text() );
}

} // namespace
