#include "Platform/Ledger/LmdbEngine.h"
#include "Platform/Ledger/Persistence.h"
#include "Platform/Model/Maintenance.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <lmdb.h>

/// What it costs to keep a turn's changes: 2,000 records of interfaces, each with one more sample.
/// Floor: the same number of records of 200 bytes, put into bare LMDB in one transaction. Both without sync,
/// so that the disk does not count.
namespace {

constexpr int records = 2000;
constexpr std::size_t recordSize = 200;

struct Folder {
   Folder() {
      Vel::String name = ( std::filesystem::temp_directory_path() / "drainwatch-XXXXXX" ).string();
      if ( mkdtemp( name.data() ) )
         path = name;
   }
   ~Folder() { std::filesystem::remove_all( path ); }
   Vel::String path;
};

void check( int error ) {
   if ( error ) {
      std::fprintf( stderr, "LedgerBench: %s\n", mdb_strerror( error ) );
      std::abort();
   }
}
void check( const Ledger::Status & status ) {
   if ( !status.ok() ) {
      std::fprintf( stderr, "LedgerBench: %s\n", status.text().c_str() );
      std::abort();
   }
}

void commitFloor( benchmark::State & state ) {
   const Folder folder;
   MDB_env * env = nullptr;
   check( mdb_env_create( &env ) );
   check( mdb_env_set_mapsize( env, Ledger::LmdbEngine::defaultSize ) );
   check( mdb_env_open( env, ( folder.path + "/bare.mdb" ).c_str(), MDB_NOSUBDIR | MDB_NOSYNC, 0600 ) );
   unsigned turn = 0;
   for ( auto _ : state ) {
      MDB_txn * txn = nullptr;
      MDB_dbi dbi = 0;
      check( mdb_txn_begin( env, nullptr, 0, &txn ) );
      check( mdb_dbi_open( txn, nullptr, 0, &dbi ) );
      Vel::String value( recordSize, static_cast< char >( ++turn ) );
      for ( int i = 0; i < records; ++i ) {
         // As wide as a key of ours: a tag, the record's number, a part.
         char key[10] = { 'E' };
         key[7] = static_cast< char >( i >> 8 );
         key[8] = static_cast< char >( i );
         MDB_val k{ sizeof key, key };
         MDB_val v{ value.size(), value.data() };
         check( mdb_put( txn, dbi, &k, &v, 0 ) );
      }
      check( mdb_txn_commit( txn ) );
   }
   mdb_env_close( env );
   state.SetItemsProcessed( state.iterations() * records );
}

void commitOurs( benchmark::State & state ) {
   const Folder folder;
   Ledger::LmdbEngine stateEngine(
      "state store", folder.path + "/state.mdb", Ledger::LmdbEngine::Durability::unsynced );
   Ledger::LmdbEngine runtimeEngine(
      "runtime store", folder.path + "/runtime.mdb", Ledger::LmdbEngine::Durability::unsynced );
   const auto em = Vel::make< Ledger::EntityManager >( []( std::function< void() > ) {} );
   Ledger::Persistence persistence(
      em, stateEngine, runtimeEngine, { { "records", Ledger::Persistence::Folder::runtime } } );
   check( persistence.start() );
   const auto dir = Vel::make< Maintenance::MonIntfStatusDir >();
   em->entityIs( "records", dir );
   const Vel::String profile( recordSize - 136, 'p' ); // a record is 136 bytes and this name
   std::vector< Maintenance::MonIntfStatus * > ours;
   for ( int i = 0; i < records; ++i )
      ours.push_back( dir->monIntfStatusIs( Wire::EthIntfId( "et" + std::to_string( i ) ), profile, 1.7e9 ) );
   check( persistence.commit() );
   check( runtimeEngine.walk( "V", [&]( std::string_view, std::string_view value ) {
      if ( value.size() != recordSize )
         check( Ledger::Status::failure( "a record has " + std::to_string( value.size() ) + " bytes" ) );
      return true;
   } ) );
   double now = 1.7e9;
   for ( auto _ : state ) {
      now += 5;
      // The writes are part of it: they note what has changed.
      for ( Maintenance::MonIntfStatus * record : ours ) {
         record->prevRatesIs( record->curRates() );
         record->curRatesIs( { 0, 0, now, now, now } );
         record->lastSampleTimeIs( now );
         record->totalSamplesInc( 1 );
      }
      check( persistence.commit() );
   }
   state.SetItemsProcessed( state.iterations() * records );
   state.SetLabel( "at most 1.5 x" );
}

BENCHMARK( commitFloor )->Name( "commit of a turn with 2,000 changed records/floor" );
BENCHMARK( commitOurs )->Name( "commit of a turn with 2,000 changed records/ours" );

} // namespace
