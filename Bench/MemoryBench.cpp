#include "Bench/BareWorld.h"

#include <benchmark/benchmark.h>

#include <malloc.h>

/// Bytes instead of nanoseconds: how much more memory is in use for each interface more that is monitored, all told
/// (link, counters, group, monitor, sampler, record, sets of its unit, what watches each of them), with what the
/// allocator adds. Floor: the plain structs on which the same work is done.
namespace {

using namespace PluginBench;

struct World {
   explicit World( int count ) {
      for ( int i = 0; i < count; ++i )
         plugin.portOfUnitIs( i );
      plugin.start();
      for ( int u = 0; u * intfsPerUnit < count; ++u )
         plugin.enter( unitName( u ) );
      clock->runUntilIdle();
      clock->advance( 3 * period );
      if ( plugin.root->intfMons() != static_cast< U32 >( count ) )
         std::abort();
   }
   Vel::Ptr< Cog::ManualClock > clock = Vel::make< Cog::ManualClock >();
   PluginWorld plugin{ clock };
};

double bytesInUse() {
   const struct mallinfo2 info = mallinfo2();
   return static_cast< double >( info.uordblks + info.hblkhd );
}

template < class W >
double bytesOf( int count ) {
   const double before = bytesInUse();
   const auto world = std::make_unique< W >( count );
   return bytesInUse() - before;
}

template < class W >
void memory( benchmark::State & state, const char * limit ) {
   // From one number to the double of it, so that tables that double are as full in the end as at the beginning.
   constexpr int intfs = 10000;
   const double bytes = ( bytesOf< W >( 2 * intfs ) - bytesOf< W >( intfs ) ) / intfs;
   for ( auto _ : state )
      state.SetIterationTime( bytes * 1e-9 );
   state.SetItemsProcessed( state.iterations() );
   state.SetLabel( limit );
}

void floor( benchmark::State & state ) { memory< BareWorld< Parts::lookedUp > >( state, "" ); }
void ours( benchmark::State & state ) { memory< World >( state, "at most 2048 bytes" ); }

BENCHMARK( floor )->Name( "memory of a monitored interface/floor" )->UseManualTime()->Iterations( 1 );
BENCHMARK( ours )->Name( "memory of a monitored interface/ours" )->UseManualTime()->Iterations( 1 );

} // namespace
