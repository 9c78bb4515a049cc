#include "Platform/Ledger/FallbackEngine.h"
#include "Platform/Ledger/FaultEngine.h"
#include "Platform/Ledger/MemoryEngine.h"
#include "Platform/Ledger/Records.h"
#include "Platform/Ledger/TempFolderTest.h"
#include "Platform/Vel/Text.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>

/// What the engine does beyond the promises of every engine, which StoreEngineTest holds it to.
namespace {

using Ledger::FaultEngine;
using Ledger::RecordKey;
using Records = std::map< Vel::String, Vel::String >;

struct FallbackEngine : testing::Test {
   TempFolder folder;
   Ledger::MemoryDisk disk;
   Ledger::MemoryEngine memory{ "state store", disk };
   FaultEngine store{ memory };
   const Vel::String file = folder.path() + "/unstored";
   std::unique_ptr< Ledger::FallbackEngine > engine;
   Vel::String id =
      "the id of it all"; ///< that the store gets with its first commit; empty: it is as old as to have none

   FallbackEngine() { reopen(); }
   static void ok( const Ledger::Status & status ) { ASSERT_EQ( "", status.text() ); }
   Ledger::Status opened() {
      memory.abort();
      engine = std::make_unique< Ledger::FallbackEngine >( store, file );
      return engine->open();
   }
   /// As the next process does.
   void reopen() { ok( opened() ); }
   void storeFails( FaultEngine::Commit commit = FaultEngine::Commit::undone ) {
      store.faultIs( 0, 1000000, commit );
   }
   /// Only the next commit itself fails, of a transaction with so many records, its header included.
   void commitFails( unsigned records, FaultEngine::Commit commit ) {
      store.faultIs( 1 + records, 1, commit );
   }
   void storeWorks() { store.faultDel(); }
   void fileFails() { std::filesystem::create_directory( file + ".new" ); }
   void fileWorks() { std::filesystem::remove( file + ".new" ); }
   bool fileIsThere() const { return std::filesystem::exists( file ); }

   /// A transaction as Persistence makes one: its number, an id if the store has none yet, and this record; an empty value
   /// deletes it.
   Ledger::Status commit( Vel::U64 number, const Vel::String & key, const Vel::String & value ) {
      ok( engine->begin() );
      Vel::String header;
      Ledger::writeValue( header, Ledger::storeSchema );
      Ledger::writeValue( header, number );
      if ( !id.empty() && storeId().empty() )
         ok( engine->put( RecordKey::storeId(), id ) );
      ok( engine->put( RecordKey::header(), header ) );
      ok( value.empty() ? engine->del( key ) : engine->put( key, value ) );
      return engine->commit();
   }
   /// What is there but for the header and the id.
   static Records of( Ledger::StoreEngine & walked ) {
      Records result;
      ok( walked.walk( "", [&]( std::string_view key, std::string_view value ) {
         if (
            key != std::string_view( RecordKey::header() ) &&
            key != std::string_view( RecordKey::storeId() ) )
            result[Vel::String( key )] = Vel::String( value );
         return true;
      } ) );
      return result;
   }
   Vel::String storeId() const {
      const auto stored = disk.records.find( Vel::String( std::string_view( RecordKey::storeId() ) ) );
      return stored == disk.records.end() ? Vel::String() : stored->second;
   }
   Records records() { return of( *engine ); }
   Records stored() { return of( memory ); }
   Vel::String content() const {
      std::ostringstream text;
      text << std::ifstream( file ).rdbuf();
      return text.str();
   }
   void contentIs( const Vel::String & text ) const { std::ofstream( file ) << text; }
   /// The same, with the checksum that belongs behind it.
   void summedContentIs( Vel::String text ) const {
      Vel::U64 sum = 0xcbf29ce484222325;
      for ( const char byte : text )
         sum = ( sum ^ static_cast< unsigned char >( byte ) ) * 0x100000001b3;
      Ledger::writeValue( text, sum );
      contentIs( text );
   }
   /// As an earlier version has written it, which did not say for which store it is.
   void becomesOfTheFirstForm() const {
      Vel::String text = content();
      text.resize( text.size() - sizeof( Vel::U64 ) );
      const auto form = text.find( '\n' ) - 1;
      text[form] = '1';
      const auto store = form + 2 + 2 * sizeof( Vel::U64 );
      Vel::ByteReader reader( std::string_view( text ).substr( store ) );
      const auto bytes = Ledger::readSized( reader ).size() + Ledger::readSized( reader ).size();
      text.erase( store, bytes + 2 * sizeof( Vel::U32 ) );
      summedContentIs( text );
   }
   /// Another store is there instead, which has come as far; the former one is given back.
   Ledger::MemoryDisk anotherStoreAt( Vel::U64 number, const Vel::String & itsId ) {
      Ledger::MemoryDisk former = std::exchange( disk, {} );
      const Vel::String left = content();
      std::filesystem::remove( file );
      reopen();
      id = itsId;
      if ( number != 0 )
         ok( commit( number, "another", "1" ) );
      contentIs( left );
      return former;
   }
   void expectRefused( const Vel::String & text ) {
      const Vel::String before = content();
      const Ledger::Status status = opened();
      EXPECT_TRUE( status.isUnusable() );
      EXPECT_EQ( text, status.text() );
      EXPECT_EQ( before, content() );
   }
};

TEST_F( FallbackEngine, leavesNoFileWhileTheEngineWorks ) {
   ok( commit( 1, "a", "1" ) );
   EXPECT_FALSE( fileIsThere() );
   EXPECT_EQ( ( Records{ { "a", "1" } } ), stored() );
}

TEST_F( FallbackEngine, keepsWhatTheEngineRefusesForTheNextProcess ) {
   ok( commit( 1, "a", "1" ) );
   storeFails();
   ok( commit( 2, "a", "2" ) );
   ok( commit( 3, "b", "3" ) );
   EXPECT_EQ( ( Records{ { "a", "1" } } ), stored() );
   storeWorks();
   reopen();
   EXPECT_EQ( ( Records{ { "a", "2" }, { "b", "3" } } ), records() );
   EXPECT_EQ( ( Records{ { "a", "1" } } ), stored() );
}

TEST_F( FallbackEngine, deletesForTheNextProcessWhatTheEngineStillHas ) {
   ok( commit( 1, "a", "1" ) );
   storeFails();
   ok( commit( 2, "a", "" ) );
   storeWorks();
   reopen();
   EXPECT_EQ( Records(), records() );
}

TEST_F( FallbackEngine, bringsItAllWithTheNextTransactionThatTheEngineTakes ) {
   storeFails();
   ok( commit( 1, "a", "1" ) );
   storeWorks();
   ok( commit( 2, "b", "2" ) );
   EXPECT_EQ( ( Records{ { "a", "1" }, { "b", "2" } } ), stored() );
   EXPECT_FALSE( fileIsThere() );
}

TEST_F( FallbackEngine, settlesWithoutATransactionOnceTheEngineWorks ) {
   storeFails();
   ok( commit( 1, "a", "1" ) );
   EXPECT_EQ( "state store: cannot begin: fault of the test", engine->settle().text() );
   storeWorks();
   ok( engine->settle() );
   EXPECT_EQ( ( Records{ { "a", "1" } } ), stored() );
   EXPECT_FALSE( fileIsThere() );
}

TEST_F( FallbackEngine, settlesInTheNextProcess ) {
   storeFails();
   ok( commit( 1, "a", "1" ) );
   storeWorks();
   reopen();
   ok( engine->settle() );
   EXPECT_EQ( ( Records{ { "a", "1" } } ), stored() );
   EXPECT_FALSE( fileIsThere() );
}

TEST_F( FallbackEngine, triesTheEngineOnceATurn ) {
   storeFails();
   ok( commit( 1, "a", "1" ) );
   const unsigned tries = store.faults();
   EXPECT_FALSE( engine->settle().ok() );
   EXPECT_EQ( tries, store.faults() ) << "the commit has just done so";
   EXPECT_FALSE( engine->settle().ok() );
   EXPECT_LT( tries, store.faults() );
}

TEST_F( FallbackEngine, goesOnFromTheFileWhenTheEngineFailsInTheNextProcessToo ) {
   storeFails();
   ok( commit( 1, "a", "1" ) );
   storeWorks();
   reopen();
   storeFails();
   ok( commit( 2, "b", "2" ) );
   storeWorks();
   reopen();
   EXPECT_EQ( ( Records{ { "a", "1" }, { "b", "2" } } ), records() );
}

TEST_F( FallbackEngine, failsWhenTheFileCannotBeWrittenEitherAndSaysBoth ) {
   storeFails();
   fileFails();
   EXPECT_EQ(
      "state store: cannot begin: fault of the test; nor is it kept meanwhile: " + file +
         ": cannot write: Is a directory",
      commit( 1, "a", "1" ).text() );
   EXPECT_FALSE( engine->committed() );
   fileWorks();
   ok( commit( 1, "a", "2" ) );
   EXPECT_TRUE( engine->committed() );
   storeWorks();
   reopen();
   EXPECT_EQ( ( Records{ { "a", "2" } } ), records() );
}

TEST_F( FallbackEngine, keepsTheFileAsItWasWhenItCannotBeWrittenAgain ) {
   storeFails();
   ok( commit( 1, "a", "1" ) );
   fileFails();
   EXPECT_FALSE( commit( 2, "a", "2" ).ok() );
   storeWorks();
   EXPECT_EQ( ( Records{ { "a", "1" } } ), records() );
   reopen();
   EXPECT_EQ( ( Records{ { "a", "1" } } ), records() );
}

TEST_F( FallbackEngine, aFileThatWasLeftBehindBringsNothingBack ) {
   storeFails();
   ok( commit( 1, "held", "1" ) );
   const Vel::String left = content();
   storeWorks();
   ok( commit( 2, "held", "" ) );
   contentIs( left );
   reopen();
   EXPECT_EQ( Records(), records() );
   EXPECT_TRUE( fileIsThere() ) << "nobody has found the store to be whole yet";
   ok( engine->settle() );
   EXPECT_EQ( Records(), records() );
   EXPECT_FALSE( fileIsThere() );
}

TEST_F( FallbackEngine, aFileThatWasLeftRightAfterItHadSettledIsAsGoodAsTheEngine ) {
   storeFails();
   ok( commit( 1, "a", "1" ) );
   EXPECT_FALSE( engine->settle().ok() );
   const Vel::String left = content();
   storeWorks();
   ok( engine->settle() );
   contentIs( left );
   reopen();
   EXPECT_EQ( ( Records{ { "a", "1" } } ), records() );
   ok( commit( 2, "a", "" ) );
   EXPECT_EQ( Records(), stored() );
   EXPECT_FALSE( fileIsThere() );
}

TEST_F( FallbackEngine, theFileIsNewerThanACommitThatFailedButWasDone ) {
   ok( commit( 1, "a", "1" ) );
   fileFails();
   commitFails( 2, FaultEngine::Commit::done );
   EXPECT_FALSE( commit( 2, "a", "2" ).ok() );
   fileWorks();
   storeFails();
   ok( commit( 2, "b", "2" ) );
   storeWorks();
   EXPECT_EQ( ( Records{ { "a", "2" } } ), stored() );
   reopen();
   EXPECT_EQ( ( Records{ { "a", "2" }, { "b", "2" } } ), records() );
}

TEST_F( FallbackEngine, aCommitThatFailedButWasDoneIsNewerThanTheFileBefore ) {
   storeFails();
   ok( commit( 1, "a", "1" ) );
   fileFails();
   commitFails( 3, FaultEngine::Commit::done );
   EXPECT_FALSE( commit( 2, "a", "2" ).ok() );
   storeWorks();
   reopen();
   EXPECT_EQ( ( Records{ { "a", "2" } } ), records() );
   ok( engine->settle() );
   EXPECT_FALSE( fileIsThere() );
}

TEST_F( FallbackEngine, deletesWhatACommitHasWrittenThatFailedButWasDone ) {
   ok( commit( 1, "a", "1" ) );
   commitFails( 2, FaultEngine::Commit::done );
   ok( commit( 2, "b", "2" ) );
   storeFails();
   ok( commit( 3, "b", "" ) );
   storeWorks();
   EXPECT_EQ( 1u, stored().count( "b" ) );
   reopen();
   EXPECT_EQ( ( Records{ { "a", "1" } } ), records() );
}

/// Numbers below those of the file, among them, and above.
TEST_F( FallbackEngine, aFileOfAnotherStoreIsRefusedAndLeftWhateverTheNumbersAre ) {
   ok( commit( 7, "a", "1" ) );
   storeFails();
   ok( commit( 8, "held", "1" ) );
   storeWorks();
   for ( const Vel::U64 number : { 0, 1, 7, 8, 20 } ) {
      SCOPED_TRACE( number );
      const Ledger::MemoryDisk former = anotherStoreAt( number, "another one's id" );
      expectRefused(
         "state store: " + file +
         " holds what could not be written to another store that was in its place: put that back, or remove "
         "the "
         "file" );
      disk = former;
      reopen();
      EXPECT_EQ( ( Records{ { "a", "1" }, { "held", "1" } } ), records() );
   }
}

TEST_F( FallbackEngine, theStoreThatAFileIsOfIsNamed ) {
   ok( commit( 1, "a", "1" ) );
   storeFails();
   ok( commit( 2, "held", "1" ) );
   Ledger::MemoryDisk otherDisk;
   Ledger::MemoryEngine other( "another state store", otherDisk );
   Ledger::FallbackEngine withIt( other, file );
   EXPECT_EQ(
      "another state store: " + file +
         " holds what could not be written to another store, state store: go on with that one, or remove the "
         "file",
      withIt.open().text() );
   EXPECT_TRUE( fileIsThere() );
}

TEST_F( FallbackEngine, theNameStandsForAStoreThatHasTakenNothingYet ) {
   storeFails();
   ok( commit( 1, "held", "1" ) );
   Ledger::MemoryDisk otherDisk;
   Ledger::MemoryEngine other( "another state store", otherDisk );
   Ledger::FallbackEngine withIt( other, file );
   EXPECT_FALSE( withIt.open().ok() );
   storeWorks();
   reopen();
   EXPECT_EQ( ( Records{ { "held", "1" } } ), records() );
}

TEST_F( FallbackEngine, aFileIsOfTheStoreThatHasTheIdWhichItWasToBring ) {
   commitFails( 3, FaultEngine::Commit::done );
   ok( commit( 1, "a", "1" ) );
   ASSERT_EQ( id, storeId() );
   storeFails();
   ok( commit( 2, "a", "2" ) );
   storeWorks();
   reopen();
   EXPECT_EQ( ( Records{ { "a", "2" } } ), records() );
   const Ledger::MemoryDisk former = anotherStoreAt( 1, "another one's id" );
   EXPECT_TRUE( opened().isUnusable() );
}

TEST_F( FallbackEngine, aFileForALaterStateOfItsStoreIsNamedAndLeft ) {
   ok( commit( 7, "a", "1" ) );
   const Ledger::MemoryDisk yesterday = disk;
   ok( commit( 8, "a", "2" ) );
   storeFails();
   ok( commit( 9, "held", "1" ) );
   storeWorks();
   const Ledger::MemoryDisk today = std::exchange( disk, yesterday );
   expectRefused(
      "state store: " + file +
      ", which holds what could not be written to it, is of this one as it was later: put that back, or "
      "remove the "
      "file" );
   disk = today;
   reopen();
   EXPECT_EQ( ( Records{ { "a", "2" }, { "held", "1" } } ), records() );
}

TEST_F( FallbackEngine, aFileOfTheFirstFormIsTakenUpByItsNumbers ) {
   id.clear();
   ok( commit( 7, "a", "1" ) );
   storeFails();
   ok( commit( 8, "held", "1" ) );
   storeWorks();
   becomesOfTheFirstForm();
   const Vel::String former = content();
   reopen();
   EXPECT_EQ( ( Records{ { "a", "1" }, { "held", "1" } } ), records() );
   ok( engine->settle() );
   EXPECT_FALSE( fileIsThere() );
   EXPECT_EQ( ( Records{ { "a", "1" }, { "held", "1" } } ), stored() );
   contentIs( former );
   disk = {};
   expectRefused(
      "state store: " + file +
      ", which holds what could not be written to it, is of another store, or of this one as it was later: "
      "put that "
      "back, or remove the file" );
}

TEST_F( FallbackEngine, aFileOfTheFirstFormBecomesOneOfThisForm ) {
   id.clear();
   storeFails();
   ok( commit( 1, "a", "1" ) );
   becomesOfTheFirstForm();
   storeWorks();
   reopen();
   storeFails();
   id = "the id of it all";
   ok( commit( 2, "held", "1" ) );
   storeWorks();
   const Ledger::MemoryDisk former = anotherStoreAt( 2, "another one's id" );
   EXPECT_TRUE( opened().isUnusable() );
   disk = former;
   reopen();
   EXPECT_EQ( ( Records{ { "a", "1" }, { "held", "1" } } ), records() );
}

/// Whoever uses the engine refuses it, and says why.
TEST_F( FallbackEngine, aFileIsLeftAloneBesideAStoreWhoseHeaderIsNotOfThisVersion ) {
   storeFails();
   ok( commit( 1, "held", "1" ) );
   const Vel::String left = content();
   storeWorks();
   ok( commit( 9, "a", "1" ) );
   contentIs( left );
   Vel::String header;
   Ledger::writeValue( header, Ledger::storeSchema + 1 );
   for ( const Vel::String & other :
         { header, header + "something else than a number", Vel::String( "H" ) } ) {
      disk.records[Vel::String( std::string_view( RecordKey::header() ) )] = other;
      reopen();
      EXPECT_EQ( ( Records{ { "a", "1" }, { "held", "1" } } ), records() ) << "what the store itself has";
      EXPECT_EQ( left, content() );
   }
}

TEST_F( FallbackEngine, doesNotGrowWithWhatComesAndGoesWhileTheEngineFails ) {
   ok( commit( 1, "a", "1" ) );
   storeFails();
   ok( commit( 2, "a", "2" ) );
   store.onlyWritesFail();
   const auto size = content().size();
   for ( Vel::U64 number = 3; number < 40; number += 2 ) {
      const Vel::String key = Vel::text( "event ", number );
      ok( commit( number, key, "it has happened" ) );
      ok( commit( number + 1, key, "" ) );
      EXPECT_EQ( size, content().size() );
   }
}

TEST_F( FallbackEngine, aDamagedFileIsNamedAndNothingOfItIsTaken ) {
   storeFails();
   ok( commit( 1, "a", "1" ) );
   ok( commit( 2, "b", "2" ) );
   storeWorks();
   const Vel::String whole = content();
   const auto expectDamaged = [&]( const Vel::String & text ) {
      contentIs( text );
      const Ledger::Status status = opened();
      EXPECT_TRUE( status.isUnusable() );
      EXPECT_TRUE( status.text().starts_with(
         "state store: " + file + ", which holds what could not be written to it, is damaged: " ) )
         << status.text();
      EXPECT_EQ( text, content() );
   };
   for ( std::size_t at = 0; at < whole.size(); ++at ) {
      SCOPED_TRACE( at );
      expectDamaged( whole.substr( 0, at ) );
      Vel::String changed = whole;
      changed[at] = static_cast< char >( changed[at] ^ 0x20 );
      expectDamaged( changed );
   }
   expectDamaged( whole + " " );
   contentIs( whole );
   reopen();
   EXPECT_EQ( ( Records{ { "a", "1" }, { "b", "2" } } ), records() );
}

/// Somebody has made it who knows how.
TEST_F( FallbackEngine, aFileWithNonsenseBehindARightChecksumIsTakenAsAWholeOrNamed ) {
   storeFails();
   ok( commit( 1, "a", "1" ) );
   ok( commit( 2, "b", "2" ) );
   storeWorks();
   const Vel::String whole = content().substr( 0, content().size() - sizeof( Vel::U64 ) );
   int refused = 0;
   const auto open = [&]( const Vel::String & text ) {
      summedContentIs( text );
      const Ledger::Status status = opened();
      refused += status.isUnusable();
      EXPECT_EQ( status.ok(), !status.isUnusable() ) << status.text();
   };
   open( whole );
   EXPECT_EQ( 0, refused );
   EXPECT_EQ( ( Records{ { "a", "1" }, { "b", "2" } } ), records() );
   for ( std::size_t at = 0; at < whole.size(); ++at ) {
      SCOPED_TRACE( at );
      open( whole.substr( 0, at ) );
      for ( const int bits : { 0x01, 0x80, 0xff } ) {
         Vel::String changed = whole;
         changed[at] = static_cast< char >( changed[at] ^ bits );
         open( changed );
      }
   }
   EXPECT_GT( refused, static_cast< int >( whole.size() ) );
}

TEST_F( FallbackEngine, aFileThatCannotBeReadIsNamed ) {
   std::filesystem::create_directory( file );
   const Ledger::Status status = opened();
   EXPECT_FALSE( status.isUnusable() );
   EXPECT_EQ(
      "state store: cannot read " + file + ", which holds what could not be written to it: Is a directory",
      status.text() );
}

TEST_F( FallbackEngine, aFileThatWasNotFinishedIsOfNoAccount ) {
   ok( commit( 1, "a", "1" ) );
   std::ofstream( file + ".new" ) << "drainwatch, not in";
   reopen();
   EXPECT_EQ( ( Records{ { "a", "1" } } ), records() );
   storeFails();
   ok( commit( 2, "a", "2" ) );
   storeWorks();
   reopen();
   EXPECT_EQ( ( Records{ { "a", "2" } } ), records() );
}

} // namespace
