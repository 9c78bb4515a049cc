#include "Platform/Ledger/StoreWorldTest.h"

#include <gtest/gtest.h>

#include <algorithm>

/// What becomes of records that nobody of this version has written.
namespace {

using Ledger::RecordKey;
using StoreTest::runtimePath;
using StoreTest::statePath;

constexpr const char * treeForm = "height 8,green 1,storms 4,title *";

struct StoreDamage : testing::Test, StoreTest::World {
   StoreDamage() {
      EXPECT_TRUE( process->persistence.start().ok() );
      const auto tree = treeIs( statePath );
      tree->titleIs( "oak" );
      tree->stormsIs( 5 );
      tree->ringIs( 7 );
      tree->nestIs( "n", 2 );
      tree->branchIs( 1 )->leafIs( "l" )->spotIs( "s" );
      treeIs( runtimePath )->titleIs( "grass" );
      EXPECT_TRUE( commit().ok() );
      // Ids of the state store: 2 the tree, 4 its branch, 6 the leaf.
   }
   Vel::String failure() { return restart().text(); }
   Vel::String & record( std::string_view key ) {
      const auto it = stateDisk.records.find( Vel::String( key ) );
      if ( it == stateDisk.records.end() )
         throw std::runtime_error( "the test expects this record" );
      return it->second;
   }
   Vel::String & place( Vel::U64 id ) { return record( RecordKey::place( id ) ); }
   Vel::String & values( Vel::U64 id ) { return record( RecordKey::values( id ) ); }
   Vel::String & text( std::string_view text ) {
      for ( auto & [key, value] : stateDisk.records )
         if ( key[0] == 'N' && value == text )
            return value;
      throw std::runtime_error( "the test expects this text" );
   }
   Vel::U16 number( std::string_view text ) const {
      for ( const auto & [key, value] : stateDisk.records )
         if ( key[0] == 'N' && value == text )
            return static_cast< Vel::U16 >(
               static_cast< unsigned char >( key[1] ) * 256 + static_cast< unsigned char >( key[2] ) );
      return 0;
   }
   Vel::String key( Vel::U64 id, std::string_view attribute, std::string_view bytes ) const {
      bool tooLong;
      return Vel::String( RecordKey::ofKey( id, number( attribute ), bytes, tooLong ) );
   }
   static Vel::String bytes( int value ) {
      Vel::String result;
      Ledger::writeValue( result, value );
      return result;
   }
   void headerIs( Vel::U32 schema ) {
      Vel::String header;
      Ledger::writeValue( header, schema );
      Ledger::writeValue( header, Vel::U64( 1 ) );
      record( RecordKey::header() ) = header;
   }
};

TEST_F( StoreDamage, isNotSeenWhereThereIsNone ) { EXPECT_EQ( "", failure() ); }

// Versions

TEST_F( StoreDamage, refusesAStoreOfANewerVersion ) {
   headerIs( 2 );
   EXPECT_EQ(
      "state store: was written by a newer version of this program (format 2; this one reads 1)", failure() );
}

TEST_F( StoreDamage, refusesANewerStoreWhateverItsHeaderLooksLike ) {
   record( RecordKey::header() ) = bytes( 3 ) + "something else";
   EXPECT_EQ(
      "state store: was written by a newer version of this program (format 3; this one reads 1)", failure() );
}

TEST_F( StoreDamage, refusesARuntimeStoreOfANewerVersion ) {
   runtimeDisk.records[Vel::String( RecordKey::header() )] = bytes( 9 );
   EXPECT_EQ(
      "runtime store: was written by a newer version of this program (format 9; this one reads 1)",
      failure() );
}

TEST_F( StoreDamage, isUnusableUntilSomebodyActs ) {
   headerIs( 2 );
   EXPECT_TRUE( restart().isUnusable() );
   headerIs( 1 );
   values( 2 ) += "too much";
   EXPECT_TRUE( restart().isUnusable() );
}

TEST_F( StoreDamage, writesNothingToAStoreThatItRefuses ) {
   headerIs( 2 );
   const auto before = stateDisk.records;
   const auto runtimeBefore = runtimeDisk.records;
   EXPECT_FALSE( restart().ok() );
   process = nullptr;
   EXPECT_EQ( before, stateDisk.records );
   EXPECT_EQ( runtimeBefore, runtimeDisk.records );
}

TEST_F( StoreDamage, refusesAStoreWithoutHeader ) {
   stateDisk.records.erase( Vel::String( RecordKey::header() ) );
   EXPECT_EQ( "state store: damaged: its header cannot be read", failure() );
}

TEST_F( StoreDamage, refusesAHeaderThatIsCutShort ) {
   record( RecordKey::header() ).pop_back();
   EXPECT_EQ( "state store: damaged: its header cannot be read", failure() );
}

TEST_F( StoreDamage, refusesAnIdThatIsCutShort ) {
   record( RecordKey::storeId() ).pop_back();
   EXPECT_EQ( "state store: damaged: its id cannot be read", failure() );
   EXPECT_TRUE( restart().isUnusable() );
}

TEST_F( StoreDamage, dropsAttributesThatTheTypeDoesNotHaveAnyMore ) {
   text( treeForm ) = "height 8,green 1,storms 4,formerTitle *";
   text( "ring" ) = "formerRing";
   text( "nest" ) = "formerNest";
   EXPECT_EQ( "", failure() );
   EXPECT_EQ( "", tree( statePath )->title() );
   EXPECT_EQ( 0u, tree( statePath )->rings() );
   EXPECT_EQ( 0u, tree( statePath )->nests() );
   EXPECT_TRUE( tree( statePath )->branch( 1 ) );
   EXPECT_EQ( 5u, tree( statePath )->storms() );
   tree( statePath )->titleIs( "ash" );
   EXPECT_TRUE( commit().ok() );
   EXPECT_EQ( "", failure() );
   EXPECT_EQ( "ash", tree( statePath )->title() );
}

TEST_F( StoreDamage, leavesAttributesAsTheyAreMadeThatTheRecordDoesNotHaveYet ) {
   text( treeForm ) = "storms 4";
   Vel::String & record = values( 2 );
   record = record.substr( 0, 2 ) + bytes( 8 );
   EXPECT_EQ( "", failure() );
   EXPECT_EQ( 8u, tree( statePath )->storms() );
   EXPECT_EQ( "", tree( statePath )->title() );
}

TEST_F( StoreDamage, dropsChildrenThatTheTypeDoesNotHaveAnyMoreAndTheirRecords ) {
   text( "branch" ) = "formerBranch";
   EXPECT_EQ( "", failure() );
   EXPECT_EQ( 0u, tree( statePath )->branchs() );
   EXPECT_TRUE( commit().ok() );
   EXPECT_FALSE( stateDisk.records.contains( Vel::String( RecordKey::place( 4 ) ) ) );
   EXPECT_FALSE( stateDisk.records.contains( Vel::String( RecordKey::place( 6 ) ) ) );
   EXPECT_EQ( "", failure() );
}

TEST_F( StoreDamage, dropsPathsThatAreNotKeptAnyMoreAndTheirRecords ) {
   process = nullptr;
   const auto em = Vel::make< Ledger::EntityManager >( []( std::function< void() > ) {} );
   Ledger::Persistence persistence(
      em, state, runtime, { { runtimePath, Ledger::Persistence::Folder::runtime } } );
   EXPECT_TRUE( persistence.start().ok() );
   EXPECT_EQ( 1u, em->entitys() );
   EXPECT_TRUE( persistence.commit().ok() );
   for ( const auto & [key, value] : stateDisk.records )
      EXPECT_TRUE( std::string_view( "HIN" ).find( key[0] ) != std::string_view::npos ) << key;
}

// Records that cannot be read

TEST_F( StoreDamage, namesStorePathEntityAndAttribute ) {
   Vel::String & record = values( 2 );
   const std::size_t title = record.find( "oak" );
   record[title - 4] = 100; // the length of the text
   EXPECT_EQ(
      "state store: damaged: forest/a: entity 2 (StoreTest::Tree): attribute title cannot be read",
      failure() );
}

TEST_F( StoreDamage, namesEntityAndAttributeOfAKey ) {
   stateDisk.records[key( 2, "nest", "not a text" )] = "";
   EXPECT_EQ(
      "state store: damaged: forest/a: entity 2 (StoreTest::Tree): a key of nest cannot be read", failure() );
}

TEST_F( StoreDamage, namesTheEntityBelowAPath ) {
   values( 6 ).pop_back();
   EXPECT_EQ(
      "state store: damaged: forest/a: entity 6 (StoreTest::Leaf): attribute speed is cut short", failure() );
}

TEST_F( StoreDamage, seesThatAPlaceIsMissing ) {
   const auto intact = stateDisk.records;
   stateDisk.records.erase( Vel::String( RecordKey::place( 4 ) ) );
   EXPECT_EQ( "state store: damaged: entity 6: its parent 4 is missing", failure() );
   stateDisk.records = intact;
   stateDisk.records.erase( Vel::String( RecordKey::place( 6 ) ) );
   EXPECT_EQ( "state store: damaged: entity 6: its place is missing", failure() );
   stateDisk.records.erase( Vel::String( RecordKey::values( 6 ) ) );
   EXPECT_EQ( "state store: damaged: entity 6: its place is missing", failure() ) << "it has keys";
}

TEST_F( StoreDamage, seesAnEntityThatIsThereTwice ) {
   stateDisk.records[Vel::String( RecordKey::place( 8 ) )] = place( 4 );
   EXPECT_EQ( "state store: damaged: forest/a: entity 8: its key in branch is taken", failure() );
   stateDisk.records[Vel::String( RecordKey::place( 8 ) )] = place( 2 );
   EXPECT_EQ( "state store: damaged: forest/a: entity 8: the path is taken", failure() );
}

TEST_F( StoreDamage, seesAnotherType ) {
   text( "StoreTest::Leaf" ) = "StoreTest::Flower";
   EXPECT_EQ(
      "state store: damaged: forest/a: entity 6: is a StoreTest::Flower, but should be a StoreTest::Leaf",
      failure() );
   text( "StoreTest::Tree" ) = "StoreTest::Bush";
   EXPECT_EQ( "state store: damaged: forest/a: entity 2: unknown type StoreTest::Bush", failure() );
}

TEST_F( StoreDamage, namesAnEntityOfAPathThatIsOfAnotherType ) {
   process = nullptr;
   const auto em = Vel::make< Ledger::EntityManager >( []( std::function< void() > ) {} );
   Ledger::Persistence persistence(
      em, state, runtime, { { statePath, Ledger::Persistence::Folder::state, "Vel::Dir" } } );
   EXPECT_EQ(
      "state store: damaged: forest/a is a StoreTest::Tree, but should be a Vel::Dir",
      persistence.start().text() );
}

TEST_F( StoreDamage, seesTextsThatAreThereTwice ) {
   const Vel::U16 later = std::max( number( "ring" ), number( "nest" ) );
   text( "ring" ) = "nest";
   EXPECT_EQ( Vel::text( "state store: damaged: text ", later ), failure() );
}

TEST_F( StoreDamage, seesATextThatIsMissing ) {
   stateDisk.records.erase( Vel::String( RecordKey::text( 1 ) ) );
   EXPECT_EQ( "state store: damaged: text 2", failure() );
}

TEST_F( StoreDamage, seesAFormThatIsNone ) {
   const Vel::String form = Vel::text( "unknown form number ", number( treeForm ) );
   for ( const char * bad : { "height", "height x", "height 0", "height 8x", " 8", "height 8,,storms 4" } ) {
      SCOPED_TRACE( bad );
      const auto intact = stateDisk.records;
      text( treeForm ) = bad;
      EXPECT_EQ( "state store: damaged: forest/a: entity 2 (StoreTest::Tree): " + form, failure() );
      stateDisk.records = intact;
   }
}

TEST_F( StoreDamage, seesBytesBehindTheAttributes ) {
   values( 6 ) += "x";
   EXPECT_EQ(
      "state store: damaged: forest/a: entity 6 (StoreTest::Leaf): there is more than its attributes",
      failure() );
}

TEST_F( StoreDamage, seesAnIdOfTheOtherStore ) {
   stateDisk.records[Vel::String( RecordKey::place( 9 ) )] = place( 2 );
   EXPECT_EQ( "state store: damaged: entity 9: no id of this store", failure() );
}

TEST_F( StoreDamage, seesANumberThatStandsForNothing ) {
   const Vel::String spot = "K" + Vel::String( RecordKey::place( 6 ) ).substr( 1 );
   stateDisk.records[spot + "\x7f\x7f"] = "";
   EXPECT_EQ(
      "state store: damaged: forest/a: entity 6 (StoreTest::Leaf): a key of unknown attribute number 32639",
      failure() );
   place( 4 )[10] = '\x7f';
   place( 4 )[11] = '\x7f';
   EXPECT_EQ( "state store: damaged: entity 4: unknown type number 32639", failure() );
}

/// Every record of an entity cut at every place, one after the other: refused with the store's name, or
/// (where a key is left that could have been written) read, but never worse.
TEST_F( StoreDamage, everyCutIsSeenOrHarmless ) {
   const auto intact = stateDisk.records;
   unsigned refused = 0;
   for ( const auto & [key, value] : intact ) {
      if ( std::string_view( "HIN" ).find( key[0] ) != std::string_view::npos )
         continue;
      for ( std::size_t size = 0; size < value.size(); ++size ) {
         stateDisk.records = intact;
         stateDisk.records[key] = value.substr( 0, size );
         const Vel::String text = failure();
         if ( text.empty() )
            continue;
         ++refused;
         ASSERT_TRUE( text.starts_with( "state store: damaged: " ) ) << text;
      }
      for ( std::size_t size = 1; size < key.size(); ++size ) {
         stateDisk.records = intact;
         stateDisk.records.erase( key );
         stateDisk.records[key.substr( 0, size )] = value;
         const Vel::String text = failure();
         ASSERT_TRUE( text.empty() || text.starts_with( "state store: damaged: " ) ) << text;
         refused += !text.empty();
      }
   }
   EXPECT_GT( refused, 100u );
}

} // namespace
