#include "Apps/StoreCommits.h"
#include "Platform/Cog/ManualClock.h"
#include "Platform/Ledger/FaultEngine.h"
#include "Platform/Ledger/MemoryEngine.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

namespace {

struct StoreCommits : testing::Test {
   StoreCommits() {
      std::string name = std::filesystem::temp_directory_path() / "commitsXXXXXX";
      folder = mkdtemp( name.data() );
      fallback = std::make_unique< Ledger::FallbackEngine >( state, folder + "/unstored" );
      persistence = std::make_unique< Ledger::Persistence >(
         Vel::make< Ledger::EntityManager >( []( std::function< void() > ) {} ), *fallback, runtime,
         std::vector< Ledger::Persistence::Kept >{} );
      EXPECT_TRUE( persistence->start().ok() );
      commits = std::make_unique< Apps::StoreCommits >( *clock, wheel, *persistence, *fallback );
      clock->commitHookIs( [this] { return commits->commit(); } );
   }
   ~StoreCommits() override {
      commits.reset();
      std::error_code ignored;
      std::filesystem::remove_all( folder, ignored );
   }
   /// Something changes, and these three wait for what becomes of it.
   void change() {
      clock->post( [this] {
         persistence->documentIs( "number", std::to_string( ++number ) );
         clock->effectIs( [this] { out += "effect "; } );
         commits->whenKept( [this] { out += "kept "; } );
         commits->whenStored( [this] { out += "stored "; } );
      } );
      clock->runUntilIdle();
   }
   void storeFails() { state.faultIs( 0, 1000000 ); }
   void storeWorks() { state.faultDel(); }
   void fileFails() { std::filesystem::create_directory( folder + "/unstored.new" ); }
   void fileWorks() { std::filesystem::remove( folder + "/unstored.new" ); }
   void pass( double seconds ) { clock->advance( seconds ); }

   std::string folder, out;
   int number = 0;
   Ledger::MemoryDisk stateDisk, runtimeDisk;
   Ledger::MemoryEngine stateMemory{ "state store", stateDisk };
   Ledger::MemoryEngine runtimeMemory{ "runtime store", runtimeDisk };
   Ledger::FaultEngine state{ stateMemory }, runtime{ runtimeMemory };
   Vel::Ptr< Cog::ManualClock > clock = Vel::make< Cog::ManualClock >();
   Vel::Ptr< Cog::TimerWheel > wheel = Vel::make< Cog::TimerWheel >( clock, 1000u, 1800u, true, 1024u );
   std::unique_ptr< Ledger::FallbackEngine > fallback;
   std::unique_ptr< Ledger::Persistence > persistence;
   std::unique_ptr< Apps::StoreCommits > commits;
};

TEST_F( StoreCommits, letsAllOutWithATurnThatIsStored ) {
   change();
   EXPECT_EQ( "effect kept stored ", out );
   EXPECT_EQ( 0, commits->failedSince() );
   EXPECT_EQ( "", commits->problem() );
}

TEST_F( StoreCommits, whatIsKeptInTheFileIsNotStored ) {
   storeFails();
   change();
   EXPECT_EQ( "effect kept ", out );
   EXPECT_GT( commits->failedSince(), 0 );
   EXPECT_EQ(
      "state store: cannot begin: fault of the test; what it lacks is kept in " + folder +
         "/unstored meanwhile",
      commits->problem() );
   storeWorks();
   pass( 2 );
   EXPECT_EQ( "effect kept stored ", out );
   EXPECT_EQ( 0, commits->failedSince() );
   EXPECT_EQ( "", commits->problem() );
}

TEST_F( StoreCommits, whatIsKeptNowhereWaitsAndEffectsDoForOneMoreTry ) {
   storeFails();
   fileFails();
   change();
   EXPECT_EQ( "", out );
   pass( 2 );
   EXPECT_EQ( "effect ", out );
   EXPECT_TRUE( commits->problem().ends_with( "; links that are to be shut wait for one of them" ) )
      << commits->problem();
   pass( 20 );
   EXPECT_EQ( "effect ", out );
   fileWorks();
   pass( 2 );
   EXPECT_EQ( "effect kept ", out );
   storeWorks();
   pass( 2 );
   EXPECT_EQ( "effect kept stored ", out );
}

TEST_F( StoreCommits, effectsWaitForOneMoreTryWheneverTheFileFailsToo ) {
   storeFails();
   change();
   pass( 1000 );
   for ( int time = 0; time < 2; ++time ) {
      out.clear();
      fileFails();
      change();
      EXPECT_EQ( "", out );
      pass( 2 );
      EXPECT_EQ( "effect ", out );
      out.clear();
      change();
      EXPECT_EQ( "effect ", out ) << "there has been one more try";
      fileWorks();
      pass( 2 );
      EXPECT_EQ( "effect kept kept ", out );
      pass( 1000 );
   }
}

TEST_F( StoreCommits, effectsAreLetOutByTheTryThatKeepsThem ) {
   storeFails();
   change();
   pass( 1000 );
   out.clear();
   fileFails();
   change();
   fileWorks();
   pass( 2 );
   EXPECT_EQ( "effect kept ", out );
}

TEST_F( StoreCommits, theRuntimeStoreKeepsOnlyWhatIsToBeStored ) {
   runtime.faultIs( 0, 1000000 );
   change();
   pass( 2 );
   EXPECT_EQ( "effect kept ", out );
   EXPECT_EQ( "runtime store: cannot begin: fault of the test", commits->problem() );
   runtime.faultDel();
   pass( 2 );
   EXPECT_EQ( "effect kept stored ", out );
}

TEST_F( StoreCommits, atTheEndSaysWhatIsNotStoredAndWhereItIs ) {
   EXPECT_EQ( "", commits->commitAtEnd() );
   storeFails();
   persistence->documentIs( "number", "one" );
   EXPECT_EQ(
      "state store: cannot begin: fault of the test; what it lacks is kept in " + folder +
         "/unstored meanwhile",
      commits->commitAtEnd() );
   EXPECT_TRUE( std::filesystem::exists( folder + "/unstored" ) );
}

TEST_F( StoreCommits, atTheEndSaysWhatIsKeptNowhere ) {
   storeFails();
   runtime.faultIs( 0, 1000000 );
   persistence->documentIs( "number", "one" );
   EXPECT_EQ( "", commits->keepAtEnd() );
   fileFails();
   persistence->documentIs( "number", "two" );
   EXPECT_EQ(
      "state store: cannot begin: fault of the test; nor is it kept meanwhile: " + folder +
         "/unstored: cannot write: Is a directory",
      commits->keepAtEnd() );
   storeWorks();
   EXPECT_EQ( "", commits->keepAtEnd() );
}

} // namespace
