#include "Platform/Ledger/FallbackEngine.h"
#include "Platform/Ledger/Records.h"
#include "Platform/Ledger/StoreWorldTest.h"
#include "Platform/Ledger/TempFolderTest.h"
#include "Platform/Vel/Text.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <random>

/// Entities that are kept in a store that fails, with a file to fall back on, over processes that are killed.
namespace {

using Ledger::FaultEngine;
using StoreTest::statePath;

struct FallbackPersistence : testing::Test {
   TempFolder folder;
   Ledger::MemoryDisk stateDisk, runtimeDisk;
   Ledger::MemoryEngine stateMemory{ "state store", stateDisk };
   Ledger::MemoryEngine runtimeMemory{ "runtime store", runtimeDisk };
   FaultEngine state{ stateMemory };
   std::unique_ptr< Ledger::FallbackEngine > fallback;
   std::unique_ptr< StoreTest::Process > process;

   FallbackPersistence() { restart(); }
   void restart() {
      process = nullptr;
      stateMemory.abort();
      runtimeMemory.abort();
      fallback = std::make_unique< Ledger::FallbackEngine >( state, folder.path() + "/unstored" );
      process = std::make_unique< StoreTest::Process >( *fallback, runtimeMemory );
      ASSERT_EQ( "", process->persistence.start().text() );
   }
   Ledger::Status commit() { return process->persistence.commit(); }
   void fileFails() { std::filesystem::create_directory( folder.path() + "/unstored.new" ); }
   void fileWorks() { std::filesystem::remove( folder.path() + "/unstored.new" ); }
};

TEST_F( FallbackPersistence, entitiesComeBackThatTheStoreHasNotTaken ) {
   process->treeIs( statePath )->titleIs( "oak" );
   ASSERT_TRUE( commit().ok() );
   state.faultIs( 0, 1000000 );
   process->tree( statePath )->titleIs( "ash" );
   process->tree( statePath )->branchIs( 1 )->leafIs( "l" )->spotIs( "s" );
   ASSERT_TRUE( commit().ok() );
   const Vel::String text = process->text();
   state.faultDel();
   restart();
   EXPECT_EQ( text, process->text() );
   ASSERT_TRUE( fallback->settle().ok() );
   restart();
   EXPECT_EQ( text, process->text() );
}

TEST_F( FallbackPersistence, recordsGoOnToTheRuntimeStore ) {
   state.faultIs( 0, 1000000 );
   process->treeIs( statePath )->titleIs( "oak" );
   process->treeIs( StoreTest::runtimePath )->titleIs( "grass" );
   ASSERT_TRUE( commit().ok() );
   const Vel::String text = process->text();
   state.faultDel();
   restart();
   EXPECT_EQ( text, process->text() );
   EXPECT_EQ( Ledger::Persistence::RuntimeAge::same, process->persistence.runtimeAge() );
}

/// The folder of the file is shared by agents with a store each, one after the other.
TEST_F( FallbackPersistence, aFileIsTakenByTheStoreOfWhichItIsAndByNoOther ) {
   process->treeIs( statePath )->titleIs( "oak" );
   ASSERT_TRUE( commit().ok() );
   state.faultIs( 0, 1000000 );
   process->tree( statePath )->titleIs( "ash" );
   ASSERT_TRUE( commit().ok() );
   const Vel::String text = process->stateText();
   state.faultDel();

   Ledger::MemoryDisk otherDisk, otherRuntimeDisk;
   Ledger::MemoryEngine otherMemory( "another store", otherDisk ),
      otherRuntime( "runtime", otherRuntimeDisk );
   const auto other = [&] {
      Ledger::FallbackEngine engine( otherMemory, folder.path() + "/unstored" );
      return StoreTest::Process( engine, otherRuntime ).persistence.start();
   };
   EXPECT_TRUE( other().isUnusable() ) << "an empty one";
   {
      StoreTest::Process fresh( otherMemory, otherRuntime );
      ASSERT_TRUE( fresh.persistence.start().ok() );
      // As far as the file is, and further.
      for ( const char * const title : { "fir", "elm", "yew", "lime" } ) {
         fresh.treeIs( statePath )->titleIs( title );
         ASSERT_TRUE( fresh.persistence.commit().ok() );
         const Ledger::Status status = other();
         EXPECT_TRUE( status.isUnusable() );
         EXPECT_EQ(
            "another store: " + folder.path() +
               "/unstored holds what could not be written to another store, state store: go on with that "
               "one, or "
               "remove the file",
            status.text() );
      }
   }
   restart();
   EXPECT_EQ( text, process->stateText() );
}

TEST_F( FallbackPersistence, aStoreThatHasNoIdYetGetsItWithWhatIsInTheFile ) {
   process->treeIs( statePath )->titleIs( "oak" );
   ASSERT_TRUE( commit().ok() );
   const Vel::String key{ std::string_view( Ledger::RecordKey::storeId() ) };
   ASSERT_EQ( 1u, stateDisk.records.erase( key ) ) << "an earlier version has begun it";
   restart();
   state.faultIs( 0, 1000000 );
   process->tree( statePath )->titleIs( "ash" );
   ASSERT_TRUE( commit().ok() );
   const Vel::String text = process->stateText();
   state.faultDel();
   restart();
   EXPECT_EQ( text, process->stateText() );
   EXPECT_EQ( 0u, stateDisk.records.count( key ) );
   ASSERT_TRUE( fallback->settle().ok() );
   EXPECT_EQ( 1u, stateDisk.records.count( key ) );
   restart();
   EXPECT_EQ( text, process->stateText() );
}

TEST_F( FallbackPersistence, aFileStaysBesideAStoreThatIsRefused ) {
   process->treeIs( statePath )->titleIs( "oak" );
   ASSERT_TRUE( commit().ok() );
   state.faultIs( 0, 1000000 );
   process->tree( statePath )->titleIs( "ash" );
   ASSERT_TRUE( commit().ok() );
   state.faultDel();
   Vel::String & header = stateDisk.records[Vel::String( std::string_view( Ledger::RecordKey::header() ) )];
   const Vel::String before = header;
   header.clear();
   Ledger::writeValue( header, Ledger::storeSchema + 1 );
   Ledger::writeValue( header, ~Vel::U64( 0 ) );
   process = nullptr;
   {
      Ledger::FallbackEngine engine( state, folder.path() + "/unstored" );
      EXPECT_EQ(
         "state store: was written by a newer version of this program (format 2; this one reads 1)",
         StoreTest::Process( engine, runtimeMemory ).persistence.start().text() );
   }
   header = before;
   restart();
   EXPECT_EQ( "ash", process->tree( statePath )->title() );
}

void change( StoreTest::Process & process, std::mt19937 & dice ) {
   const auto tree = process.treeIs( dice() % 2 ? statePath : StoreTest::otherStatePath );
   const int number = static_cast< int >( dice() % 4 );
   switch ( dice() % 8 ) {
   case 0:
      tree->branchDel( number );
      break;
   case 1:
      tree->branchIs( number )
         ->leafIs( Vel::text( "l", dice() % 3 ) )
         ->spotIs( Vel::text( "s", dice() % 3 ) );
      break;
   case 2:
      tree->ringIs( number );
      break;
   case 3:
      tree->ringDel( number );
      break;
   case 4:
      tree->nestIs( Vel::String( 600, static_cast< char >( 'a' + number ) ), number );
      break;
   case 5:
      tree->nestDel( Vel::String( 600, static_cast< char >( 'a' + number ) ) );
      break;
   case 6:
      process.em->entityDel( dice() % 4 ? "none" : StoreTest::otherStatePath );
      break;
   default:
      tree->stormsInc( 1 );
   }
}

/// Whatever fails, and in whatever order: a process that is killed has left what its last commit that succeeded held, or
/// what one held that has failed since.
TEST_F( FallbackPersistence, noOrderOfFailuresLosesWhatACommitHasKept ) {
   for ( unsigned seed = 1; seed <= 300 && !HasFatalFailure(); ++seed ) {
      SCOPED_TRACE( Vel::text( "seed ", seed ) );
      std::mt19937 dice( seed );
      std::set< Vel::String > mayBe{ process->stateText() };
      for ( int step = 0; step < 60; ++step ) {
         switch ( dice() % 8 ) {
         case 0:
            // Any operation of the transactions to come fails, or its commit does and was done all the same.
            state.faultIs(
               dice() % 30, dice() % 3 ? 1000000 : 1 + dice() % 3,
               dice() % 2 ? FaultEngine::Commit::done : FaultEngine::Commit::undone );
            break;
         case 1:
            state.faultDel();
            break;
         case 2:
            fileFails();
            break;
         case 3:
            fileWorks();
            break;
         case 4:
            state.faultDel();
            restart();
            ASSERT_EQ( 1u, mayBe.count( process->stateText() ) ) << "step " << step;
            mayBe = { process->stateText() };
            break;
         default:
            for ( unsigned changes = dice() % 4; changes; --changes )
               change( *process, dice );
            if ( commit().ok() )
               mayBe.clear();
            mayBe.insert( process->stateText() );
            static_cast< void >( fallback->settle() );
         }
      }
      state.faultDel();
      fileWorks();
      ASSERT_TRUE( commit().ok() );
      ASSERT_TRUE( fallback->settle().ok() );
      const Vel::String text = process->stateText();
      ASSERT_FALSE( std::filesystem::exists( folder.path() + "/unstored" ) );
      restart();
      ASSERT_EQ( text, process->stateText() );
   }
}

} // namespace
