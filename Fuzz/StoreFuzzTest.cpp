// Records of the two stores, as an earlier agent or a damaged disk has left them: the agent says which store it cannot
// take, and what is wrong with it, and writes nothing to it; or takes it, and the next agent takes what this one writes.

#include "Apps/MaintdEntities.h"
#include "Fuzz/Input.h"
#include "Platform/Ledger/MemoryEngine.h"
#include "Platform/Ledger/Persistence.h"

namespace {

using Fuzz::require;
using Ledger::MemoryDisk;

/// One agent's start.
struct Process {
   Process( MemoryDisk & stateDisk, MemoryDisk & runtimeDisk )
      : state( "state store", stateDisk ), runtime( "runtime store", runtimeDisk ) {}

   std::deque< std::function< void() > > posted;
   Ledger::MemoryEngine state, runtime;
   Vel::Ptr< Ledger::EntityManager > entityManager = Vel::make< Ledger::EntityManager >(
      [this]( std::function< void() > call ) { posted.push_back( std::move( call ) ); } );
   Ledger::Persistence persistence{
      entityManager, state, runtime, Apps::Maintd::Entities::kept(), Apps::Maintd::Entities::leftOut() };
};

void fill( Fuzz::Input input, MemoryDisk & state, MemoryDisk & runtime ) {
   while ( !input.empty() ) {
      MemoryDisk & disk = input.byte() % 2 ? runtime : state;
      const std::string_view key = input.bytes( input.byte() );
      const std::string_view value = input.sized();
      if ( !key.empty() )
         disk.records[Vel::String( key )] = value;
   }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput( const std::uint8_t * data, std::size_t size ) {
   MemoryDisk state, runtime;
   fill( Fuzz::Input( data, size ), state, runtime );
   const MemoryDisk stateBefore = state, runtimeBefore = runtime;
   {
      Process first( state, runtime );
      const Ledger::Status started = first.persistence.start();
      if ( !started.ok() ) {
         const Vel::String & text = started.text();
         require(
            text.starts_with( "state store" ) || text.starts_with( "runtime store" ), "names the store",
            text );
         require(
            state.records == stateBefore.records && runtime.records == runtimeBefore.records,
            "nothing is written to what cannot be taken", text );
         return 0;
      }
      const Apps::Maintd::Entities entities( *first.entityManager );
      entities.latestTime();
      entities.isAnyUnderWay();
      // Some is changed, some goes, some comes.
      first.persistence.documentIs( "note", "taken" );
      entities.historyDir->lastIdIs( entities.historyDir->lastId() / 2 + 1 );
      entities.unitRunDir->unitRunIs( "new" )->reasonIs( "fresh" );
      entities.unitRunDir->unitRunDel( "u1" );
      const Ledger::Status committed = first.persistence.commit();
      require( committed.ok(), "is committed", committed.text() );
   }
   Process second( state, runtime );
   const Ledger::Status again = second.persistence.start();
   require( again.ok(), "what was written is taken again", again.text() );
   const Vel::String * const note = second.persistence.document( "note" );
   require( note && *note == "taken", "with what was written last" );
   return 0;
}
