#include "Platform/Ledger/FallbackEngine.h"
#include "Platform/Ledger/LmdbEngine.h"
#include "Platform/Ledger/MemoryEngine.h"
#include "Platform/Ledger/TempFolderTest.h"
#include "Platform/Vel/Text.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>

namespace {

using Records = std::map< Vel::String, Vel::String >;

/// The engines, each with what outlives it. All of them keep the same promises.
struct InMemory {
   Ledger::MemoryDisk disk;
   std::unique_ptr< Ledger::StoreEngine > engineNew() {
      return std::make_unique< Ledger::MemoryEngine >( "store", disk );
   }
};
template < Ledger::LmdbEngine::Durability durability >
struct InFile {
   TempFolder folder;
   std::unique_ptr< Ledger::StoreEngine > engineNew() {
      return std::make_unique< Ledger::LmdbEngine >( "store", folder.path() + "/file", durability );
   }
};
using Synced = InFile< Ledger::LmdbEngine::Durability::synced >;
using Unsynced = InFile< Ledger::LmdbEngine::Durability::unsynced >;

template < class Place >
struct StoreEngine : testing::Test {
   Place place;
   std::unique_ptr< Ledger::StoreEngine > engine = place.engineNew();

   StoreEngine() { ok( engine->open() ); }
   static void ok( const Ledger::Status & status ) { ASSERT_EQ( "", status.text() ); }
   void reopen() {
      engine = nullptr;
      engine = place.engineNew();
      ok( engine->open() );
   }
   void put( const Records & records ) {
      for ( const auto & [key, value] : records )
         ok( engine->put( key, value ) );
   }
   void commit( const Records & records ) {
      ok( engine->begin() );
      put( records );
      ok( engine->commit() );
   }
   Records records( std::string_view prefix = "" ) {
      Records result;
      Vel::String last;
      ok( engine->walk( prefix, [&]( std::string_view key, std::string_view value ) {
         EXPECT_LT( last, key );
         last = key;
         result[Vel::String( key )] = Vel::String( value );
         return true;
      } ) );
      return result;
   }
};
/// An engine that reads, and begins no transaction unless it is to.
class RefusingEngine final : public Ledger::StoreEngine {
 public:
   RefusingEngine( Ledger::StoreEngine & engine, bool takes ) : engine_( engine ), takes_( takes ) {}
   const Vel::String & name() const override { return engine_.name(); }
   Ledger::Status open() override { return engine_.open(); }
   Ledger::Status begin() override {
      return takes_ ? engine_.begin() : Ledger::Status::failure( "store: cannot begin: the disk is full" );
   }
   Ledger::Status put( std::string_view key, std::string_view value ) override {
      return engine_.put( key, value );
   }
   Ledger::Status del( std::string_view key ) override { return engine_.del( key ); }
   Ledger::Status delAll( std::string_view prefix ) override { return engine_.delAll( prefix ); }
   Ledger::Status commit() override { return engine_.commit(); }
   void abort() override { engine_.abort(); }
   Ledger::Status walk( std::string_view prefix, const Visit & visit ) override {
      return engine_.walk( prefix, visit );
   }

 private:
   Ledger::StoreEngine & engine_;
   const bool takes_;
};

/// Behind an engine that takes everything, or nothing.
template < bool takes >
struct InFallback {
   TempFolder folder;
   Ledger::MemoryDisk disk;
   Ledger::MemoryEngine memory{ "store", disk };
   RefusingEngine refusing{ memory, takes };
   std::unique_ptr< Ledger::StoreEngine > engineNew() {
      memory.abort();
      return std::make_unique< Ledger::FallbackEngine >( refusing, folder.path() + "/unstored" );
   }
};
using Engines = testing::Types< InMemory, Synced, Unsynced, InFallback< true >, InFallback< false > >;
TYPED_TEST_SUITE( StoreEngine, Engines );

TYPED_TEST( StoreEngine, keepsWhatIsCommitted ) {
   const Records records{
      { "a", "1" },
      { Vel::String( "\0\xff", 2 ), "" },
      { Vel::String( 511, 'k' ), Vel::String( 9000, 'v' ) } };
   this->commit( records );
   EXPECT_EQ( records, this->records() );
   this->reopen();
   EXPECT_EQ( records, this->records() );
}

TYPED_TEST( StoreEngine, isEmptyAtFirst ) {
   EXPECT_EQ( Records(), this->records() );
   this->reopen();
   EXPECT_EQ( Records(), this->records() );
}

TYPED_TEST( StoreEngine, dropsWhatIsAborted ) {
   this->commit( { { "a", "1" } } );
   this->ok( this->engine->begin() );
   this->put( { { "a", "2" }, { "b", "2" } } );
   this->ok( this->engine->del( "a" ) );
   this->engine->abort();
   EXPECT_EQ( ( Records{ { "a", "1" } } ), this->records() );
   this->commit( { { "c", "3" } } );
   EXPECT_EQ( ( Records{ { "a", "1" }, { "c", "3" } } ), this->records() );
}

TYPED_TEST( StoreEngine, dropsWhatIsNotCommittedWhenItEnds ) {
   this->commit( { { "a", "1" } } );
   this->ok( this->engine->begin() );
   this->put( { { "b", "2" } } );
   this->reopen();
   EXPECT_EQ( ( Records{ { "a", "1" } } ), this->records() );
}

TYPED_TEST( StoreEngine, deletesRecordsAndDoesNotMindAbsentOnes ) {
   this->commit( { { "a", "1" }, { "b", "2" } } );
   this->ok( this->engine->begin() );
   this->ok( this->engine->del( "a" ) );
   this->ok( this->engine->del( "absent" ) );
   this->ok( this->engine->delAll( "absent" ) );
   this->ok( this->engine->commit() );
   EXPECT_EQ( ( Records{ { "b", "2" } } ), this->records() );
}

TYPED_TEST( StoreEngine, deletesAllThatBeginsAlike ) {
   Records records{ { "a", "" }, { "b", "" }, { "p", "" }, { Vel::String( "o\xff" ), "" }, { "q", "" } };
   Records others = records;
   others.erase( "p" );
   for ( int i = 0; i < 1000; ++i )
      records[Vel::text( "p", i )] = Vel::String( 50, 'v' );
   this->commit( records );
   this->ok( this->engine->begin() );
   this->put( { { "p-new", "" } } );
   this->ok( this->engine->delAll( "p" ) );
   this->put( { { "p-late", "" } } );
   this->ok( this->engine->commit() );
   others["p-late"] = "";
   EXPECT_EQ( others, this->records() );
}

TYPED_TEST( StoreEngine, deletesTheLastRecords ) {
   this->commit( { { "a", "" }, { "p1", "" }, { "p2", "" } } );
   this->ok( this->engine->begin() );
   this->ok( this->engine->delAll( "p" ) );
   this->ok( this->engine->delAll( "" ) );
   this->ok( this->engine->commit() );
   EXPECT_EQ( Records(), this->records() );
}

TYPED_TEST( StoreEngine, walksWhatBeginsAlike ) {
   this->commit( { { "a", "1" }, { "b", "2" }, { "b1", "3" }, { "b\xff", "4" }, { "c", "5" } } );
   EXPECT_EQ( ( Records{ { "b", "2" }, { "b1", "3" }, { "b\xff", "4" } } ), this->records( "b" ) );
}

TYPED_TEST( StoreEngine, walksAsFarAsItIsAskedTo ) {
   this->commit( { { "a", "" }, { "b", "" }, { "c", "" } } );
   int visited = 0;
   this->ok( this->engine->walk( "", [&]( std::string_view, std::string_view ) { return ++visited < 2; } ) );
   EXPECT_EQ( 2, visited );
}

TYPED_TEST( StoreEngine, refusesAKeyThatDoesNotFitAndGoesOn ) {
   for ( const Vel::String & key : { Vel::String(), Vel::String( 512, 'k' ) } ) {
      this->ok( this->engine->begin() );
      const Ledger::Status status = this->engine->put( key, "v" );
      EXPECT_TRUE( status.text().starts_with( this->engine->name() + ": cannot write: " ) ) << status.text();
      this->engine->abort();
   }
   this->commit( { { "a", "1" } } );
   EXPECT_EQ( ( Records{ { "a", "1" } } ), this->records() );
}

TYPED_TEST( StoreEngine, agreesWithAPlainMap ) {
   std::mt19937 dice( 1 );
   Records model;
   const auto key = [&] { return Vel::text( dice() % 7, "/", dice() % 300 ); };
   for ( int transaction = 0; transaction < 40; ++transaction ) {
      Records next = model;
      this->ok( this->engine->begin() );
      for ( unsigned n = dice() % 60; n; --n ) {
         if ( dice() % 3 ) {
            const Vel::String k = key();
            next[k] = Vel::String( dice() % 400, 'v' );
            this->ok( this->engine->put( k, next[k] ) );
         } else if ( dice() % 8 ) {
            const Vel::String k = key();
            next.erase( k );
            this->ok( this->engine->del( k ) );
         } else {
            const Vel::String prefix = Vel::text( dice() % 7, "/", dice() % 30 );
            std::erase_if( next, [&]( const auto & record ) { return record.first.starts_with( prefix ); } );
            this->ok( this->engine->delAll( prefix ) );
         }
      }
      if ( dice() % 4 ) {
         this->ok( this->engine->commit() );
         model = next;
      } else
         this->engine->abort();
      if ( dice() % 4 == 0 )
         this->reopen();
      ASSERT_EQ( model, this->records() );
   }
}

} // namespace
