#include "Platform/Ledger/LmdbEngine.h"
#include "Platform/Ledger/StoreWorldTest.h"
#include "Platform/Ledger/TempFolderTest.h"

#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using Durability = Ledger::LmdbEngine::Durability;

struct LmdbEngine : testing::Test {
   TempFolder folder;
   Vel::String file = folder.path() + "/state.mdb";

   static void ok( const Ledger::Status & status ) { ASSERT_EQ( "", status.text() ); }
   /// Writes records of 1,000 bytes in one transaction.
   static Ledger::Status fill( Ledger::StoreEngine & engine, int records ) {
      Ledger::Status status = engine.begin();
      for ( int i = 0; status.ok() && i < records; ++i )
         status = engine.put( Vel::text( "key ", i ), Vel::String( 1000, 'v' ) );
      if ( status.ok() )
         return engine.commit();
      engine.abort();
      return status;
   }
   static int count( Ledger::StoreEngine & engine ) {
      int result = 0;
      ok( engine.walk( "", [&]( std::string_view, std::string_view ) { return ++result; } ) );
      return result;
   }
};

TEST_F( LmdbEngine, namesKindAndFile ) {
   EXPECT_EQ( "state store " + file, Ledger::LmdbEngine( "state store", file, Durability::synced ).name() );
}

TEST_F( LmdbEngine, doesNotOpenAFileInAMissingFolder ) {
   Ledger::LmdbEngine engine( "state store", folder.path() + "/missing/state.mdb", Durability::synced );
   const Ledger::Status status = engine.open();
   EXPECT_EQ( engine.name() + ": cannot open: No such file or directory", status.text() );
   EXPECT_FALSE( status.isUnusable() );
}

TEST_F( LmdbEngine, doesNotOpenAFileThatIsNoStore ) {
   std::ofstream( file ) << Vel::String( 10000, 'x' );
   Ledger::LmdbEngine engine( "state store", file, Durability::synced );
   const Ledger::Status status = engine.open();
   EXPECT_TRUE( status.text().starts_with( engine.name() + ": cannot open: " ) ) << status.text();
   EXPECT_TRUE( status.isUnusable() );
}

TEST_F( LmdbEngine, opensAfterTheCauseOfAFailureIsGone ) {
   std::ofstream( file ) << Vel::String( 10000, 'x' );
   Ledger::LmdbEngine engine( "state store", file, Durability::synced );
   EXPECT_FALSE( engine.open().ok() );
   std::filesystem::remove( file );
   ok( engine.open() );
   ok( fill( engine, 1 ) );
}

TEST_F( LmdbEngine, findsTwiceTheRoomAfterItWasFull ) {
   Ledger::LmdbEngine engine( "state store", file, Durability::synced, 1 << 18 );
   ok( engine.open() );
   ok( fill( engine, 10 ) );
   const Ledger::Status status = fill( engine, 300 );
   EXPECT_TRUE( status.text().starts_with( engine.name() + ": cannot write: MDB_MAP_FULL" ) )
      << status.text();
   EXPECT_EQ( 10, count( engine ) );
   for ( int tries = 0; tries < 3 && count( engine ) == 10; ++tries )
      static_cast< void >( fill( engine, 300 ) );
   EXPECT_EQ( 300, count( engine ) );
}

TEST_F( LmdbEngine, reopensAFileThatHasGrown ) {
   {
      Ledger::LmdbEngine engine( "state store", file, Durability::synced, 1 << 22 );
      ok( engine.open() );
      ok( fill( engine, 1000 ) );
   }
   Ledger::LmdbEngine engine( "state store", file, Durability::synced, 1 << 18 );
   ok( engine.open() );
   EXPECT_EQ( 1000, count( engine ) );
}

/// While it lives, no file of this process grows beyond a size, as if the disk were full.
struct SmallDisk {
   explicit SmallDisk( rlim_t size ) {
      getrlimit( RLIMIT_FSIZE, &before );
      previous = std::signal( SIGXFSZ, SIG_IGN );
      rlimit limit = before;
      limit.rlim_cur = size;
      setrlimit( RLIMIT_FSIZE, &limit );
   }
   ~SmallDisk() {
      setrlimit( RLIMIT_FSIZE, &before );
      std::signal( SIGXFSZ, previous );
   }
   rlimit before;
   void ( *previous )( int );
};

TEST_F( LmdbEngine, failsOnAFullDiskAndGoesOnWhenThereIsRoomAgain ) {
   for ( const Durability durability : { Durability::synced, Durability::unsynced } ) {
      SCOPED_TRACE( durability == Durability::synced ? "synced" : "unsynced" );
      Ledger::LmdbEngine engine(
         "state store", file + ( durability == Durability::synced ? "1" : "2" ), durability );
      ok( engine.open() );
      ok( fill( engine, 10 ) );
      Ledger::Status failed;
      {
         SmallDisk smallDisk( 100000 );
         failed = fill( engine, 1000 );
      }
      EXPECT_TRUE( failed.text().starts_with( engine.name() + ": cannot commit: " ) ) << failed.text();
      ok( fill( engine, 1000 ) );
      EXPECT_EQ( 1000, count( engine ) );
   }
}

// A file that was cut off or is spoilt

TEST_F( LmdbEngine, doesNotOpenAFileThatWasCutOff ) {
   {
      Ledger::LmdbEngine engine( "state store", file, Durability::synced );
      ok( engine.open() );
      ok( fill( engine, 1000 ) );
   }
   const auto size = std::filesystem::file_size( file );
   for ( const std::uintmax_t left :
         { size - 4096, size / 2, std::uintmax_t( 12288 ), std::uintmax_t( 8192 ) } ) {
      SCOPED_TRACE( left );
      std::filesystem::resize_file( file, left );
      Ledger::LmdbEngine engine( "state store", file, Durability::synced );
      const Ledger::Status status = engine.open();
      EXPECT_EQ( engine.name() + ": damaged: it is cut off or spoilt", status.text() );
      EXPECT_TRUE( status.isUnusable() );
   }
}

TEST_F( LmdbEngine, doesNotOpenAFileOfWhichAPageIsSpoilt ) {
   constexpr std::streamoff page = 4096;
   {
      Ledger::LmdbEngine engine( "state store", file, Durability::synced );
      ok( engine.open() );
      ok( fill( engine, 1000 ) );
   }
   const auto pages = static_cast< std::streamoff >( std::filesystem::file_size( file ) ) / page;
   const Vel::String copy = file + ".spoilt";
   int refused = 0;
   for ( std::streamoff at = 2; at < pages; at += pages / 16 )
      for ( const char with : { '\0', '\xff', 'x' } ) {
         SCOPED_TRACE( Vel::text( "page ", at, " with ", int( with ) ) );
         std::filesystem::copy_file( file, copy, std::filesystem::copy_options::overwrite_existing );
         std::fstream( copy, std::ios::in | std::ios::out | std::ios::binary ).seekp( at * page )
            << Vel::String( page, with );
         Ledger::LmdbEngine engine( "state store", copy, Durability::synced );
         const Ledger::Status status = engine.open();
         if ( status.ok() )
            EXPECT_EQ( 1000, count( engine ) ); // a page that nothing is in
         else
            EXPECT_TRUE( status.isUnusable() ) << status.text();
         refused += !status.ok();
      }
   EXPECT_GT( refused, 24 );
}

// A file that was taken away

struct TakenAway : LmdbEngine {
   TakenAway() {
      ok( engine.open() );
      ok( fill( engine, 10 ) );
   }
   void takenAway() { std::filesystem::rename( file, away ); }
   void putBack() { std::filesystem::rename( away, file ); }
   /// The disk is full, and the engine has closed the file.
   void failed() {
      const SmallDisk smallDisk( 100000 );
      EXPECT_FALSE( fill( engine, 1000 ).ok() );
   }
   void expectRefused( const Vel::String & why ) {
      const Ledger::Status status = fill( engine, 20 );
      EXPECT_TRUE( status.text().starts_with( engine.name() + ": " + why + ": put it back" ) )
         << status.text();
      EXPECT_FALSE( status.isUnusable() );
   }
   void expectGoesOn() {
      ok( fill( engine, 30 ) );
      EXPECT_EQ( 30, count( engine ) );
   }

   const Vel::String away = file + ".away";
   Ledger::LmdbEngine engine{ "state store", file, Durability::synced };
};

TEST_F( TakenAway, isNotBegunAnewAfterAFailure ) {
   failed();
   takenAway();
   expectRefused( "is gone" );
   EXPECT_FALSE( std::filesystem::exists( file ) );
   putBack();
   expectGoesOn();
}

TEST_F( TakenAway, isNotWrittenOnWhileItIsElsewhere ) {
   takenAway();
   expectRefused( "is gone" );
   EXPECT_FALSE( std::filesystem::exists( file ) );
   putBack();
   expectGoesOn();
}

TEST_F( TakenAway, isNotReplacedByAnother ) {
   for ( const bool afterFailure : { false, true } ) {
      SCOPED_TRACE( afterFailure );
      if ( afterFailure )
         failed();
      takenAway();
      {
         Ledger::LmdbEngine other( "state store", file, Durability::synced );
         ok( other.open() );
         for ( int i = 0; i < 20; ++i )
            ok( fill( other, 1 ) );
      }
      expectRefused( "is not what was written" );
      expectRefused( "is not what was written" );
      std::filesystem::remove( file );
      putBack();
      expectGoesOn();
   }
}

TEST_F( TakenAway, isNotReplacedByWhatItWasBefore ) {
   std::filesystem::copy_file( file, away );
   ok( fill( engine, 20 ) );
   failed();
   const Vel::String now = file + ".now";
   std::filesystem::rename( file, now );
   putBack();
   expectRefused( "is not what was written" );
   std::filesystem::rename( now, file );
   expectGoesOn();
}

TEST_F( TakenAway, mayComeBackAsACopy ) {
   takenAway();
   std::filesystem::copy_file( away, file );
   expectGoesOn();
   Ledger::LmdbEngine next( "state store", file, Durability::synced );
   ok( next.open() );
   EXPECT_EQ( 30, count( next ) );
}

/// A process that is killed, as in a crash, with the whole of the store.
struct Killed : LmdbEngine {
   /// Runs `play` in a process of its own until that kills itself.
   template < class Play >
   static void inAProcessThatIsKilled( Play play ) {
      const pid_t child = fork();
      if ( child == 0 ) {
         play();
         _exit( 1 ); // should not get here
      }
      int status = 0;
      waitpid( child, &status, 0 );
      ASSERT_TRUE( WIFSIGNALED( status ) && WTERMSIG( status ) == SIGKILL ) << "status " << status;
   }
   struct Stores {
      explicit Stores( const Vel::String & folder )
         : state( "state store", folder + "/state.mdb", Durability::synced ),
           runtime( "runtime store", folder + "/runtime.mdb", Durability::unsynced ) {}
      Ledger::LmdbEngine state, runtime;
   };
   static void change( StoreTest::Process & process, int turn ) {
      for ( const char * path : { StoreTest::statePath, StoreTest::runtimePath } ) {
         process.treeIs( path )->stormsInc( 1 );
         process.treeIs( path )->ringIs( turn );
         process.treeIs( path )->branchIs( turn )->leafIs( "l" );
         process.treeIs( path )->branchDel( turn - 2 );
      }
   }
};

TEST_F( Killed, aProcessKilledAfterACommitLosesNothing ) {
   inAProcessThatIsKilled( [&] {
      Stores stores( folder.path() );
      StoreTest::Process process( stores.state, stores.runtime );
      if ( !process.persistence.start().ok() )
         return;
      for ( int turn = 0; turn < 5; ++turn ) {
         change( process, turn );
         if ( !process.persistence.commit().ok() )
            return;
      }
      change( process, 5 );
      kill( getpid(), SIGKILL );
   } );
   Stores stores( folder.path() );
   StoreTest::Process process( stores.state, stores.runtime );
   ok( process.persistence.start() );
   EXPECT_EQ( Ledger::Persistence::RuntimeAge::same, process.persistence.runtimeAge() );
   for ( const char * path : { StoreTest::statePath, StoreTest::runtimePath } ) {
      SCOPED_TRACE( path );
      ASSERT_TRUE( process.tree( path ) );
      EXPECT_EQ( 5u, process.tree( path )->storms() );
      EXPECT_EQ( 2u, process.tree( path )->branchs() );
   }
}

/// Kills the process at an operation of an engine.
struct KillingEngine final : Ledger::StoreEngine {
   KillingEngine( Ledger::StoreEngine & engine, int operations ) : engine_( engine ), left_( operations ) {}
   const Vel::String & name() const override { return engine_.name(); }
   Ledger::Status open() override { return engine_.open(); }
   Ledger::Status begin() override { return step(), engine_.begin(); }
   Ledger::Status put( std::string_view key, std::string_view value ) override {
      return step(), engine_.put( key, value );
   }
   Ledger::Status del( std::string_view key ) override { return step(), engine_.del( key ); }
   Ledger::Status delAll( std::string_view prefix ) override { return step(), engine_.delAll( prefix ); }
   Ledger::Status commit() override { return step(), engine_.commit(); }
   void abort() override { engine_.abort(); }
   Ledger::Status walk( std::string_view prefix, const Visit & visit ) override {
      return engine_.walk( prefix, visit );
   }
   void step() {
      if ( left_-- == 0 )
         kill( getpid(), SIGKILL );
   }
   Ledger::StoreEngine & engine_;
   int left_;
};

TEST_F( Killed, aProcessKilledWithinACommitComesBackToATurn ) {
   for ( int operation = 0; operation < 40; operation += 3 ) {
      SCOPED_TRACE( operation );
      const Vel::String here = folder.path() + "/" + std::to_string( operation );
      std::filesystem::create_directory( here );
      inAProcessThatIsKilled( [&] {
         Stores stores( here );
         KillingEngine state( stores.state, operation );
         StoreTest::Process process( state, stores.runtime );
         if ( !process.persistence.start().ok() )
            return;
         for ( int turn = 0; turn < 100; ++turn ) {
            change( process, turn );
            static_cast< void >( process.persistence.commit() );
         }
      } );
      Stores stores( here );
      StoreTest::Process process( stores.state, stores.runtime );
      ok( process.persistence.start() );
      const auto tree = process.tree( StoreTest::statePath );
      if ( !tree )
         continue;
      const int turn = static_cast< int >( tree->storms() );
      EXPECT_EQ( static_cast< unsigned >( turn ), tree->rings() );
      EXPECT_TRUE( tree->branch( turn - 1 ) );
      EXPECT_FALSE( tree->branch( turn - 3 ) );
      ASSERT_TRUE( process.tree( StoreTest::runtimePath ) );
      EXPECT_EQ( tree->storms(), process.tree( StoreTest::runtimePath )->storms() );
   }
}

} // namespace
