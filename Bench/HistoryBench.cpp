#include "Agent/History/Archive.h"
#include "Agent/History/Recorder.h"
#include "Bench/Folder.h"
#include "Bench/PluginWorld.h"
#include "Platform/Cog/ManualClock.h"

#include <benchmark/benchmark.h>
#include <nlohmann/json.hpp>

#include <fstream>
#include <memory>
#include <sstream>
#include <vector>

/// What it costs to write maintenances down.
/// While they go on: a pass of samples of 8,000 interfaces in 80 units under way, beside the same pass without a recorder.
/// Afterwards: a record of 2,000 interfaces with their curves, an hour of samples each. Its filing, beside writing a text of
/// the same size, ready made, as JSON into a file; its answer from the file, beside reading that file; its answer while it
/// is open, beside writing that text as JSON.
namespace {

using namespace PluginBench;

class World {
   using Counter = Interface::IntfCounterMasquerade::EthIntfCounter;

 public:
   World( int count, bool written ) {
      for ( int i = 0; i < count; ++i ) {
         world_.portOfUnitIs( i );
         current_.push_back( world_.counters->intfCounterDir( port( i ) )->counter( "current" ) );
      }
      world_.start();
      if ( written )
         recorder_ = std::make_unique< Agent::Recorder >(
            clock_, Vel::make< Cog::TimerWheel >( clock_, 1000u, 1800u, true, 1024u ),
            Agent::Recorder::Model{
               world_.units, runs_, Vel::make< Agent::UnitCommandsDir >(), world_.records,
               Vel::make< Agent::InsightDir >(), world_.intfToGroup, world_.groups, world_.groupToUnit,
               world_.profiles, world_.defaultProfile, world_.cause, Vel::make< Agent::LinkJournal >(),
               history_, peaks_ },
            Agent::Recorder::Hooks{
               []( double time ) { return time; }, []( const Wire::IntfId & ) { return std::string(); },
               [] {} } );
      for ( int u = 0; u * intfsPerUnit < count; ++u )
         world_.enter( unitName( u ) );
      clock_->runUntilIdle();
   }

   void carry() {
      for ( U64 i = 0; Counter * counter : current_ ) {
         auto statistics = counter->statistics();
         statistics.inOctets += 100000 + i++;
         counter->statisticsIs( statistics );
      }
      ++round_;
   }
   void goOn() { clock_->advance( 5 ); }
   bool isWritten() const {
      const int last = static_cast< int >( current_.size() ) - 1;
      if ( world_.records->monIntfStatus( port( last ) )->totalSamples() != round_ )
         return false;
      const auto * record =
         recorder_ ? history_->record( static_cast< U32 >( last / intfsPerUnit + 1 ) ) : nullptr;
      return !recorder_ || ( record && record->intf( port( last ) )->firstRates().sampleTime > 0 );
   }

 private:
   const Vel::Ptr< Cog::ManualClock > clock_ = Vel::make< Cog::ManualClock >();
   PluginWorld world_{ clock_ };
   const Vel::Ptr< Agent::UnitRunDir > runs_ = Vel::make< Agent::UnitRunDir >();
   const Vel::Ptr< Agent::HistoryDir > history_ = Vel::make< Agent::HistoryDir >();
   const Vel::Ptr< Agent::HistoryPeaksDir > peaks_ = Vel::make< Agent::HistoryPeaksDir >();
   std::unique_ptr< Agent::Recorder > recorder_;
   std::vector< Counter * > current_;
   U64 round_ = 0;
};

void pass( benchmark::State & state, bool written ) {
   constexpr int count = 8000;
   World world( count, written );
   for ( int i = 0; i < 4; ++i ) {
      world.carry();
      world.goOn();
   }
   for ( auto _ : state ) {
      state.PauseTiming();
      world.carry();
      state.ResumeTiming();
      world.goOn();
      state.PauseTiming();
      if ( !world.isWritten() )
         return state.SkipWithError( "not sampled, or not written down" );
      state.ResumeTiming();
   }
   state.SetItemsProcessed( state.iterations() * count );
   if ( written )
      state.SetLabel( "at most 8 x" );
}

/// An archive of a record of many interfaces.
class Filed {
 public:
   static constexpr int intfs = 2000;

   Filed() {
      curve_ = { 1e9, 5, {}, {} };
      for ( int i = 0; i < 720; ++i ) {
         curve_.in.push_back( static_cast< float >( 1000 + 7919 * i % 5000 ) );
         curve_.out.push_back( static_cast< float >( 100 * i ) );
      }
      archive_ = std::make_unique< Agent::Archive >(
         clock_, Vel::make< Cog::TimerWheel >( clock_, 1000u, 1800u, true, 1024u ), folder_.path + "/history",
         history_, Vel::make< Agent::HistoryPeaksDir >(),
         Agent::Archive::Hooks{
            []( double time ) { return time; },
            [this]( const std::string &, double, double ) { return curve_; },
            []( const std::function< void() > & call ) { call(); } } );
      clock_->runUntilIdle();
      recordNew();
   }

   /// One more that is open; the one before has been filed.
   void recordNew() {
      Agent::HistoryRecord & record = *history_->recordIs( ++last_, "unit" );
      record.beganIs( 1e9 );
      for ( int i = 0; i < intfs; ++i ) {
         Agent::HistoryIntf & intf = *record.intfIs( port( i ) );
         intf.beganIs( 1e9 );
         intf.profileIs( { "default", 1e5, 10, true, 300 } );
         for ( int r = 0; r < 5; ++r )
            intf.reasonIs( 1e9 + r, { r % 2 ? Agent::Reason::timing : Agent::Reason::aboveThreshold, 1e6 } );
         intf.drainedIs( 1e9 + 40 );
         intf.shutIs( 1e9 + 40 );
         intf.raisedIs( 1e9 + 4000 );
         intf.releasedIs( 1e9 + 4000 );
      }
   }
   void file() {
      history_->record( last_ )->endedIs( 1e9 + 4000 );
      archive_->look();
      clock_->runUntilIdle();
   }
   bool isFiled() const { return history_->records() == 0 && history_->summary( last_ ); }
   std::string path() const { return folder_.path + "/history/" + std::to_string( last_ ) + ".json"; }
   /// The size of the answer.
   std::size_t answer() const {
      std::size_t size = 0;
      const Agent::Archive::Pieces pieces = archive_->record( last_ );
      for ( std::string piece = pieces(); !piece.empty(); piece = pieces() )
         size += piece.size();
      return size;
   }

 private:
   const Bench::Folder folder_;
   Agent::SampleCurve curve_;
   const Vel::Ptr< Cog::ManualClock > clock_ = Vel::make< Cog::ManualClock >();
   const Vel::Ptr< Agent::HistoryDir > history_ = Vel::make< Agent::HistoryDir >();
   std::unique_ptr< Agent::Archive > archive_;
   U32 last_ = 0;
};

std::string jsonText( std::size_t size ) {
   static const nlohmann::json ready( std::string( size, 'x' ) );
   return ready.dump( -1, ' ', false, nlohmann::json::error_handler_t::replace );
}

void filing( benchmark::State & state, bool ours ) {
   Filed filed;
   const std::size_t size = filed.answer();
   const Bench::Folder folder;
   for ( auto _ : state ) {
      if ( !ours ) {
         Agent::WholeFile file( folder.path + "/file" );
         if ( !file.open().empty() || !file.append( jsonText( size ) ).empty() || !file.finish().empty() )
            return state.SkipWithError( "cannot be written" );
         continue;
      }
      filed.file();
      state.PauseTiming();
      if ( !filed.isFiled() || filed.answer() < size )
         return state.SkipWithError( "not filed, or not all of it" );
      filed.recordNew();
      state.ResumeTiming();
   }
   state.SetItemsProcessed( state.iterations() * Filed::intfs );
   if ( ours )
      state.SetLabel( "at most 25 x" );
}

void filedAnswer( benchmark::State & state, bool ours ) {
   Filed filed;
   filed.file();
   const std::size_t size = filed.answer();
   for ( auto _ : state ) {
      std::ostringstream text;
      if ( !ours )
         text << std::ifstream( filed.path() ).rdbuf();
      if ( ( ours ? filed.answer() : text.str().size() ) != size || size < 1000 * Filed::intfs )
         return state.SkipWithError( "not all of it" );
   }
   state.SetItemsProcessed( state.iterations() );
   if ( ours )
      state.SetLabel( "at most 2 x" );
}

void openAnswer( benchmark::State & state, bool ours ) {
   Filed filed;
   const std::size_t size = filed.answer();
   for ( auto _ : state )
      benchmark::DoNotOptimize( ours ? filed.answer() : jsonText( size ).size() );
   state.SetItemsProcessed( state.iterations() );
   if ( ours )
      state.SetLabel( "at most 25 x" );
}

bool registered = [] {
   const struct {
      const char * row;
      void ( *run )( benchmark::State &, bool );
   } rows[] = {
      { "sample written down, 8,000 interfaces of 80 units", pass },
      { "record of 2,000 interfaces filed", filing },
      { "record of 2,000 interfaces answered from its file", filedAnswer },
      { "record of 2,000 interfaces answered while it is open", openAnswer } };
   for ( const auto & [row, run] : rows )
      for ( const bool ours : { false, true } )
         benchmark::RegisterBenchmark(
            ( std::string( row ) + ( ours ? "/ours" : "/floor" ) ).c_str(), run, ours );
   return true;
}();

} // namespace
