#include "Bench/PluginWorld.h"
#include "Platform/Cog/RealTime.h"

#include <benchmark/benchmark.h>

#include <map>
#include <memory>

/// What it costs to work off a backlog of 100,000 interfaces in slices of 10 ms of real time, from the first turn
/// until nothing waits: the order, the time that a slice has left, the bookmark, and the decision about each
/// interface. What puts the interfaces into the backlog is not measured.
/// Floor: a map from which the keys are taken in slices of the same number, each from a bookmark on.
namespace {

using namespace PluginBench;

constexpr int intfs = 100000;

/// Turns without waiting. Timers wait for ever: their work is no part of this.
class RealClock final : public Cog::Scheduler {
 public:
   RealClock() : Scheduler( Vel::make< Cog::RealTime >( 1.7e9 ) ) {
      timersMayRunIs( [] { return false; } );
   }
   void runUntilIdle() {
      do
         turn();
      while ( dueTime() == 0 );
   }
};

void floor( benchmark::State & state, int keysPerSlice ) {
   std::map< IntfId, bool > backlog;
   U64 taken = 0;
   for ( auto _ : state ) {
      state.PauseTiming();
      for ( int i = 0; i < intfs; ++i )
         backlog[port( i )] = true;
      state.ResumeTiming();
      IntfId bookmark;
      while ( !backlog.empty() ) {
         auto next = backlog.lower_bound( bookmark );
         for ( int key = 0; key < keysPerSlice && next != backlog.end(); ++key ) {
            next = backlog.erase( next );
            ++taken;
         }
         bookmark = next == backlog.end() ? IntfId() : next->first;
      }
   }
   state.SetItemsProcessed( static_cast< std::int64_t >( taken ) );
}

struct World {
   Vel::Ptr< RealClock > clock = Vel::make< RealClock >();
   PluginWorld plugin{ clock };
};

void workOff( benchmark::State & state, World & world ) {
   MaintenanceMode::IntfStatusSm & tracker = *world.plugin.root->intfStatusSm();
   const U64 processed = tracker.updatesProcessed();
   const U64 paused = tracker.yieldBeforeFinishingCount();
   for ( auto _ : state ) {
      state.PauseTiming();
      for ( int i = 0; i < intfs; ++i )
         tracker.addToBacklog( port( i ) );
      state.ResumeTiming();
      world.clock->runUntilIdle();
      if ( tracker.backlogSize() )
         return state.SkipWithError( "something still waits" );
   }
   const U64 items = tracker.updatesProcessed() - processed;
   if (
      items != static_cast< U64 >( state.iterations() ) * intfs ||
      tracker.yieldBeforeFinishingCount() == paused )
      return state.SkipWithError( "not worked off in slices" );
   state.SetItemsProcessed( static_cast< std::int64_t >( items ) );
   state.SetLabel( "at most 30 x" );
}

/// Every interface is monitored for a unit and stays so, as after a burst of changes of links.
void monitored( benchmark::State & state ) {
   World world;
   for ( int i = 0; i < intfs; ++i )
      world.plugin.portOfUnitIs( i );
   world.plugin.start();
   for ( int u = 0; u * intfsPerUnit < intfs; ++u )
      world.plugin.enter( unitName( u ) );
   world.clock->runUntilIdle();
   workOff( state, world );
}

/// A fifth of the interfaces is monitored for 200 units, the others are in no group.
void aFifth( benchmark::State & state ) {
   World world;
   for ( int i = 0; i < intfs; ++i )
      i / intfsPerUnit % 5 ? world.plugin.portIs( i ) : world.plugin.portOfUnitIs( i );
   world.plugin.start();
   for ( int u = 0; u * intfsPerUnit < intfs; u += 5 )
      world.plugin.enter( unitName( u ) );
   world.clock->runUntilIdle();
   workOff( state, world );
}

BENCHMARK_CAPTURE( floor, 1000, 1000 )->Name( "backlog of 100,000, all monitored/floor" );
BENCHMARK( monitored )->Name( "backlog of 100,000, all monitored/ours" );
BENCHMARK_CAPTURE( floor, 1000, 1000 )->Name( "backlog of 100,000, a fifth monitored/floor" );
BENCHMARK( aFifth )->Name( "backlog of 100,000, a fifth monitored/ours" );

} // namespace
