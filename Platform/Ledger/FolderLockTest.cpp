#include "Platform/Ledger/FolderLock.h"
#include "Platform/Ledger/TempFolderTest.h"

#include <gtest/gtest.h>

#include <fstream>
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
