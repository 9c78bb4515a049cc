#include "Platform/Vel/Declare.h"
#include "Platform/Vel/Trace.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <unordered_map>
#include <vector>

/// What an entity costs: setting an attribute, changing a collection, memory, counted pointers, a trace that is off.
/// Floor: the least code that could do it, a bare intrusive list with a virtual call and an unordered_map.
/// Not in the unnamed namespace: there the compiler would know every override and call none of them virtually.
struct BareReactor {
   virtual void onSpeed() = 0;
   BareReactor * next = nullptr;

 protected:
   ~BareReactor() = default;
};
struct PlainReactor final : BareReactor {
   void onSpeed() override { ++told; }
   unsigned told = 0;
};
struct OtherReactor final : BareReactor {
   void onSpeed() override { told += 2; }
   unsigned told = 0;
};

namespace {

constexpr int keys = 10000;

// ---- the floor

struct BareEntity {
   double speed = 0;
   bool marked = false;
   BareReactor * first = nullptr;
};

[[gnu::noinline]] void speedIs( BareEntity & entity, double speed ) {
   if ( entity.speed == speed )
      return;
   entity.speed = speed;
   entity.marked = true;
   for ( BareReactor * reactor = entity.first; reactor; reactor = reactor->next )
      reactor->onSpeed();
}

/// The count that a pointer which never needs atomic operations would use.
class BarePtr {
 public:
   explicit BarePtr( unsigned & count ) : count_( &count ) { ++*count_; }
   BarePtr( const BarePtr & other ) : count_( other.count_ ) { ++*count_; }
   BarePtr & operator=( const BarePtr & ) = delete;
   ~BarePtr() {
      if ( --*count_ == 0 )
         std::abort();
   }

 private:
   unsigned * count_;
};

// ---- ours

class Port final : public Vel::Entity {
   VEL_ENTITY( Port );
   VEL_ATTR( double, speed, onSpeed );
   VEL_ATTR( double, a, onA );
   VEL_ATTR( double, b, onB );
   VEL_ATTR( double, c, onC );
   VEL_ATTR( double, d, onD );
   VEL_ATTR( double, e, onE );
   VEL_ATTR( double, f, onF );
   VEL_ATTR( double, g, onG );
   VEL_ATTR( double, h, onH );
   VEL_ATTR( double, i, onI );
};

class Table final : public Vel::Entity {
   VEL_ENTITY( Table );
   VEL_MAP( int, int, row, onRow );
};

struct Watcher {
   struct VelPort final : Vel::ReactorTo< Watcher, Port > {
      using ReactorTo::ReactorTo;
      void onSpeed() override { ++sm()->told; }
   };
   struct VelTable final : Vel::ReactorTo< Watcher, Table > {
      using ReactorTo::ReactorTo;
      void onRow( const int & ) override { ++sm()->told; }
   };
   unsigned told = 0;
};

[[gnu::noinline]] void speedIs( Port & port, double speed ) { port.speedIs( speed ); }

/// A store's note of the first change since the last commit.
struct Notes final : Vel::Changes {
   void entityChanged( Vel::Entity & ) override {}
   void keyChanged( Vel::Entity &, unsigned, std::string_view ) override {}
   void childAdded( Vel::Entity &, unsigned, std::string_view, Vel::Entity & ) override {}
   void childRemoved( Vel::Entity &, Vel::Entity & ) override {}
};

// ---- rows

void setFloor( benchmark::State & state, unsigned reactors ) {
   BareEntity entity;
   std::vector< PlainReactor > list( reactors );
   for ( unsigned i = 0; i < reactors; ++i ) {
      list[i].next = i + 1 < reactors ? &list[i + 1] : nullptr;
      entity.first = &list[0];
   }
   double speed = 0;
   for ( auto _ : state )
      speedIs( entity, ++speed );
   state.SetItemsProcessed( state.iterations() );
}

void setOurs( benchmark::State & state, unsigned reactors, const char * limit ) {
   Notes notes;
   const auto port = Vel::make< Port >();
   port->velStoredIs( &notes, 1 );
   Watcher watcher;
   std::vector< Vel::Watch< Watcher::VelPort > > list( reactors );
   for ( auto & watch : list )
      watch.is( port, &watcher ).hasNotificationActiveIs( true );
   double speed = 0;
   for ( auto _ : state )
      speedIs( *port, ++speed );
   state.SetItemsProcessed( state.iterations() );
   state.SetLabel( limit );
   list.clear();
   port->velStoredIs( nullptr, 0 );
}

void updateFloor( benchmark::State & state ) {
   std::unordered_map< int, int > table;
   for ( int key = 0; key < keys; ++key )
      table[key] = 0;
   PlainReactor reactor;
   BareReactor * const told = &reactor;
   unsigned random = 1;
   int value = 0;
   for ( auto _ : state ) {
      random = random * 1664525 + 1013904223;
      table.find( static_cast< int >( random % keys ) )->second = ++value;
      benchmark::DoNotOptimize( told );
      told->onSpeed();
   }
   state.SetItemsProcessed( state.iterations() );
}

void updateOurs( benchmark::State & state ) {
   const auto table = Vel::make< Table >();
   for ( int key = 0; key < keys; ++key )
      table->rowIs( key, 0 );
   Watcher watcher;
   Vel::Watch< Watcher::VelTable > watch;
   watch.is( table, &watcher ).hasNotificationActiveIs( true );
   unsigned random = 1;
   int value = 0;
   for ( auto _ : state ) {
      random = random * 1664525 + 1013904223;
      table->rowIs( static_cast< int >( random % keys ), ++value );
   }
   state.SetItemsProcessed( state.iterations() );
   state.SetLabel( "at most 2 x" );
}

void addFloor( benchmark::State & state ) {
   std::unordered_map< int, int > table;
   for ( int key = 0; key < keys; ++key )
      table[key] = 0;
   PlainReactor reactor;
   BareReactor * const told = &reactor;
   int key = keys;
   for ( auto _ : state ) {
      ++key;
      table.try_emplace( key, key );
      benchmark::DoNotOptimize( told );
      told->onSpeed();
      table.erase( key );
      told->onSpeed();
   }
   state.SetItemsProcessed( state.iterations() );
}

void addOurs( benchmark::State & state ) {
   const auto table = Vel::make< Table >();
   for ( int key = 0; key < keys; ++key )
      table->rowIs( key, 0 );
   Watcher watcher;
   Vel::Watch< Watcher::VelTable > watch;
   watch.is( table, &watcher ).hasNotificationActiveIs( true );
   int key = keys;
   for ( auto _ : state ) {
      ++key;
      table->rowIs( key, key );
      table->rowDel( key );
   }
   state.SetItemsProcessed( state.iterations() );
   state.SetLabel( "at most 2 x" );
}

void pointerFloor( benchmark::State & state ) {
   unsigned count = 1;
   const BarePtr pointer( count );
   for ( auto _ : state ) {
      const BarePtr copy( pointer );
      benchmark::DoNotOptimize( copy );
   }
   state.SetItemsProcessed( state.iterations() );
}

void pointerOurs( benchmark::State & state ) {
   const auto port = Vel::make< Port >();
   for ( auto _ : state ) {
      const Vel::Ptr< Port > copy( port );
      benchmark::DoNotOptimize( copy );
   }
   state.SetItemsProcessed( state.iterations() );
   state.SetLabel( "at most 1.5 x" );
}

Vel::TraceFacility trace( "VelBench" );

void traceFloor( benchmark::State & state ) {
   int level = -1;
   benchmark::DoNotOptimize( level );
   for ( auto _ : state ) {
      if ( level >= 4 )
         benchmark::ClobberMemory();
      benchmark::DoNotOptimize( level );
   }
   state.SetItemsProcessed( state.iterations() );
}

void traceOurs( benchmark::State & state ) {
   const Vel::String name = "et1";
   for ( auto _ : state ) {
      VEL_TRACE( trace, 4, "intf ", name );
      benchmark::DoNotOptimize( trace );
   }
   state.SetItemsProcessed( state.iterations() );
   state.SetLabel( "at most 1 ns" );
}

/// Bytes instead of nanoseconds: what an entity needs besides its ten attributes.
void memoryFloor( benchmark::State & state ) {
   for ( auto _ : state )
      state.SetIterationTime( 64e-9 );
   state.SetItemsProcessed( state.iterations() );
}

void memoryOurs( benchmark::State & state ) {
   for ( auto _ : state )
      state.SetIterationTime( ( sizeof( Port ) - 10 * sizeof( double ) ) * 1e-9 );
   state.SetItemsProcessed( state.iterations() );
   state.SetLabel( "at most 96 bytes" );
}

const char * const setLimit = "at most 1.5 x or floor + 1 ns";
BENCHMARK_CAPTURE( setFloor, 0, 0 )->Name( "attribute, 0 reactors/floor" );
BENCHMARK_CAPTURE( setOurs, 0, 0, setLimit )->Name( "attribute, 0 reactors/ours" );
BENCHMARK_CAPTURE( setFloor, 1, 1 )->Name( "attribute, 1 reactor/floor" );
BENCHMARK_CAPTURE( setOurs, 1, 1, setLimit )->Name( "attribute, 1 reactor/ours" );
BENCHMARK_CAPTURE( setFloor, 2, 2 )->Name( "attribute, 2 reactors/floor" );
BENCHMARK_CAPTURE( setOurs, 2, 2, setLimit )->Name( "attribute, 2 reactors/ours" );
BENCHMARK_CAPTURE( setFloor, 8, 8 )->Name( "attribute, 8 reactors/floor" );
BENCHMARK_CAPTURE( setOurs, 8, 8, setLimit )->Name( "attribute, 8 reactors/ours" );
BENCHMARK( updateFloor )->Name( "collection of 10,000, update/floor" );
BENCHMARK( updateOurs )->Name( "collection of 10,000, update/ours" );
BENCHMARK( addFloor )->Name( "collection of 10,000, add and remove/floor" );
BENCHMARK( addOurs )->Name( "collection of 10,000, add and remove/ours" );
BENCHMARK( pointerFloor )->Name( "counted pointer, copy and drop/floor" );
BENCHMARK( pointerOurs )->Name( "counted pointer, copy and drop/ours" );
BENCHMARK( traceFloor )->Name( "trace that is off/floor" );
BENCHMARK( traceOurs )->Name( "trace that is off/ours" );
BENCHMARK( memoryFloor )
   ->Name( "memory of an entity besides its data/floor" )
   ->UseManualTime()
   ->Iterations( 1 );
BENCHMARK( memoryOurs )
   ->Name( "memory of an entity besides its data/ours" )
   ->UseManualTime()
   ->Iterations( 1 );

} // namespace
