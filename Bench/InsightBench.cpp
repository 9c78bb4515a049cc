#include "Agent/Insight/Insight.h"
#include "Bench/PluginWorld.h"
#include "Platform/Cog/ManualClock.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

/// What it costs to say why each of 8,000 interfaces is not done yet, beside what there is without it: a pass of
/// samples, as in SampleBench, of interfaces that are due in the same turn.
/// Two kinds of traffic: a constant one, of which nothing new is to be said, and a decay, of which a new end is expected
/// with each sample.
namespace {

using namespace PluginBench;

enum class Traffic { constant, noisyDecay };

class World {
   using Counter = Interface::IntfCounterMasquerade::EthIntfCounter;

 public:
   World( int count, Traffic traffic, bool withInsight ) : traffic_( traffic ) {
      for ( int i = 0; i < count; ++i ) {
         world_.portOfUnitIs( i );
         current_.push_back( world_.counters->intfCounterDir( port( i ) )->counter( "current" ) );
      }
      world_.start();
      if ( withInsight ) {
         insight_ = std::make_unique< Agent::Insight >(
            Vel::make< Cog::TimerWheel >( clock_, 1000u, 1800u, true, 1024u ),
            Agent::Insight::Model{ world_.records, world_.profiles, world_.cause, insights_ } );
         clock_->commitHookIs( [this] {
            insight_->turnEnds();
            return true;
         } );
      }
      for ( int u = 0; u * intfsPerUnit < count; ++u )
         world_.enter( unitName( u ) );
      clock_->runUntilIdle();
   }

   void carry() {
      ++round_;
      for ( U64 i = 0; Counter * counter : current_ ) {
         auto statistics = counter->statistics();
         statistics.inOctets += octets( i++ );
         counter->statisticsIs( statistics );
      }
   }
   void goOn() { clock_->advance( period ); }
   bool isSampled() const {
      const auto * record =
         world_.records->monIntfStatus( port( static_cast< int >( current_.size() ) - 1 ) );
      return record->totalSamples() == round_ && record->curRates().inBitsRate > 0;
   }
   bool isSaid() const {
      if ( !insight_ )
         return true;
      const auto * said = insights_->intf( port( static_cast< int >( current_.size() ) - 1 ) );
      if ( traffic_ == Traffic::constant )
         return said && said->reason() == Agent::Reason::stalled;
      return said && ( round_ % decaySamples < 24 || said->trend() == Agent::Trend::falling );
   }

 private:
   static constexpr double period = 5;
   /// Samples from the beginning of a decay until it is near the threshold and begins again.
   static constexpr U64 decaySamples = 600;

   U64 octets( U64 i ) const {
      if ( traffic_ == Traffic::constant )
         return 100000 + i;
      const double noise = 1 + 0.05 * static_cast< double >( ( i * 7 + round_ * 13 ) % 11 ) / 11;
      const double halvings = 0.05 * static_cast< double >( round_ % decaySamples );
      return static_cast< U64 >( 1e12 * std::exp2( -halvings ) * noise );
   }

   const Traffic traffic_;
   const Vel::Ptr< Cog::ManualClock > clock_ = Vel::make< Cog::ManualClock >();
   PluginWorld world_{ clock_ };
   const Vel::Ptr< Agent::InsightDir > insights_ = Vel::make< Agent::InsightDir >();
   std::unique_ptr< Agent::Insight > insight_;
   std::vector< Counter * > current_;
   U64 round_ = 0;
};

void pass( benchmark::State & state, Traffic traffic, bool withInsight, const char * limit ) {
   constexpr int count = 8000;
   World world( count, traffic, withInsight );
   for ( int i = 0; i < 12; ++i ) {
      world.carry();
      world.goOn();
   }
   for ( auto _ : state ) {
      state.PauseTiming();
      world.carry();
      state.ResumeTiming();
      world.goOn();
      state.PauseTiming();
      if ( !world.isSampled() || !world.isSaid() )
         return state.SkipWithError( "not sampled, or not said, as it should be" );
      state.ResumeTiming();
   }
   state.SetItemsProcessed( state.iterations() * count );
   state.SetLabel( limit );
}

bool registered = [] {
   for ( const auto & [traffic, name] :
         { std::pair( Traffic::constant, "constant" ), std::pair( Traffic::noisyDecay, "falling" ) } ) {
      const std::string row = std::string( "sample with its reason, 8000 " ) + name;
      benchmark::RegisterBenchmark( ( row + "/floor" ).c_str(), pass, traffic, false, "" );
      benchmark::RegisterBenchmark( ( row + "/ours" ).c_str(), pass, traffic, true, "at most 3 x" );
   }
   return true;
}();

} // namespace
