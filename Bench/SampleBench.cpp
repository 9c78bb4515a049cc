#include "Bench/BareWorld.h"
#include "Bench/PluginWorld.h"
#include "Platform/Cog/ManualClock.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

/// What one sample of an Ethernet port costs from its timer to its next timer, while its unit waits for the traffic to
/// go: timer, counters, rates, record, the unit's aggregate, threshold, drain test, shutdown decision, traces that are
/// off, re-arming. All interfaces are due in the same turn, as they are when their units enter together.
/// Floor: the same work on plain structs, made one by one as interfaces come and go, with a look-up by name wherever
/// one part is known to another by name only: the port's counters, the interface whose rates have changed, its unit,
/// the shut interfaces.
/// A second pair of rows, without a limit, shows the least that could ever do it: one array of structs, in the order
/// of the timers, all pointers resolved once, nothing looked up but the counters.
namespace {

using namespace PluginBench;

// ---- ours

/// All units entering.
class World {
   using Counter = Interface::IntfCounterMasquerade::EthIntfCounter;

 public:
   explicit World( int count ) {
      for ( int i = 0; i < count; ++i ) {
         world_.portOfUnitIs( i );
         current_.push_back( world_.counters->intfCounterDir( port( i ) )->counter( "current" ) );
      }
      world_.start();
      for ( int u = 0; u * intfsPerUnit < count; ++u )
         world_.enter( unitName( u ) );
      clock_->runUntilIdle();
   }

   void traffic( U64 round ) {
      for ( int i = 0; Counter * counter : current_ ) {
         auto statistics = counter->statistics();
         statistics.inOctets += octets( i, round );
         statistics.outOctets = Cog::MaybeU63( statistics.outOctets.value() + octets( i, round ) / 2 );
         ++i;
         counter->statisticsIs( statistics );
      }
   }
   void goOn() { clock_->advance( period ); }
   U64 inRate() const {
      return world_.units->status( unitName( ( ports() - 1 ) / intfsPerUnit ) )->aggTrafficRate().inRate;
   }
   U32 samples() const { return world_.records->monIntfStatus( port( ports() - 1 ) )->totalSamples(); }

 private:
   int ports() const { return static_cast< int >( current_.size() ); }

   const Vel::Ptr< Cog::ManualClock > clock_ = Vel::make< Cog::ManualClock >();
   PluginWorld world_{ clock_ };
   std::vector< Counter * > current_;
};

/// A world is made once for all runs of its benchmark; it is large, so there is one at a time.
template < class W >
W & worldOf( int count ) {
   static int made = 0;
   static std::unique_ptr< W > world;
   if ( made != count ) {
      world = nullptr;
      world = std::make_unique< W >( count );
      made = count;
   }
   return *world;
}

U64 expectedInRate( int count, U64 round ) {
   U64 sum = 0;
   for ( int i = count - intfsPerUnit; i < count; ++i )
      sum += static_cast< U64 >( static_cast< double >( octets( i, round ) * 8 ) / period + 0.5 );
   return sum;
}

template < class W >
void samples( benchmark::State & state, int count, const char * limit ) {
   W & world = worldOf< W >( count );
   for ( auto _ : state ) {
      state.PauseTiming();
      const U64 round = world.samples();
      world.traffic( round );
      state.ResumeTiming();
      world.goOn();
      state.PauseTiming();
      if ( world.samples() != round + 1 || world.inRate() != expectedInRate( count, round ) )
         return state.SkipWithError( "not sampled as it should be" );
      state.ResumeTiming();
   }
   state.SetItemsProcessed( state.iterations() * count );
   state.SetLabel( limit );
}

bool registered = [] {
   const auto add = []( const std::string & name, auto run, int count, const char * limit ) {
      benchmark::RegisterBenchmark( name.c_str(), run, count, limit );
   };
   for ( const int count : { 1000, 10000, 100000 } ) {
      const std::string row = "sample of a port, " + std::to_string( count ) + " monitored";
      add( row + "/floor", samples< BareWorld< Parts::lookedUp > >, count, "" );
      add( row + "/ours", samples< World >, count, count == 10000 ? "at most 3 x" : "" );
   }
   for ( const int count : { 1000, 10000, 100000 } ) {
      const std::string row = "the same beside one array, " + std::to_string( count );
      add( row + "/floor", samples< BareWorld< Parts::resolved > >, count, "" );
      add( row + "/ours", samples< World >, count, "" );
   }
   return true;
}();

} // namespace
