#include "Apps/Maintd.h"
#include "Bench/RealLinks.h"
#include "Platform/Cog/TimeSource.h"

#include <iostream>
#include <memory>

/// What one sample of one real link costs the whole agent: the kernel's counters, the sample from its timer to its next
/// timer, the change in the store, its commit. All links belong to one unit that waits for its traffic to go.
/// Floor: the bare dump of the counters, octets read and dropped.
/// Time is virtual, so that periods follow each other; links, kernel and files are real.
namespace {

constexpr int links = 2000;
constexpr double period = 5;

/// The agent with all links in a unit that is entering and never quiet for long enough.
class Entering {
 public:
   Entering() : time_( Vel::make< Cog::VirtualTime >( 1.7e9 ) ) {
      std::ofstream config( folder_.path + "/maintd.yaml" );
      config << "version: 1\nswitch: linux\nprofiles: {p: {threshold: 1bps, load-interval: 720h}}\n"
             << "default-profile: p\ngroups:\n  all: {interfaces: [";
      for ( int i = 0; i < links; ++i )
         config << ( i ? ", et" : "et" ) << i;
      config << "]}\nunits:\n  u: {groups: [all]}\n";
      config.close();
      Apps::MaintdOptions options;
      options.config = folder_.path + "/maintd.yaml";
      options.stateDir = folder_.path + "/state";
      options.runtimeDir = folder_.path + "/run";
      options.pluginDir = MAINT_BENCH_PLUGIN_DIR;
      Apps::MaintdWorld world;
      world.time = time_;
      agent_ = std::make_unique< Apps::Maintd >( options, world );
      if ( const std::string problem = agent_->start(); !problem.empty() )
         throw std::runtime_error( problem );
      time_->reachedIs( [this] { agent_->loop().stop(); } );
      advance( 1 );
      agent_->loop().post( [this] { ask( "POST", "units/u/enter" ); } );
      advance( 3 * period );
   }
   Entering( const Entering & ) = delete;
   Entering & operator=( const Entering & ) = delete;

   void advance( double seconds ) {
      time_->targetIs( time_->target() + seconds );
      agent_->loop().run();
   }
   /// Samples of a link so far.
   long samples() {
      const std::string text = ask( "GET", "interfaces/et" + std::to_string( links - 1 ) );
      const auto at = text.find( "\"samples\":" );
      return at == std::string::npos ? 0 : std::atol( text.c_str() + text.find_first_of( "0123456789", at ) );
   }

 private:
   std::string ask( const char * method, const std::string & path ) {
      Agent::HttpRequest request;
      request.method = method;
      request.path = "/api/v1/" + path;
      request.local = true;
      const auto body = std::make_shared< std::string >();
      agent_->api().handle( request, [body]( const Agent::HttpReply & reply ) { *body = reply.body; } );
      return *body;
   }

   const Bench::Folder folder_;
   Vel::Ptr< Cog::VirtualTime > time_;
   std::unique_ptr< Apps::Maintd > agent_;
};

void floorOf( benchmark::State & state ) {
   Bench::BareDump dump( Bench::BareDump::Of::counters );
   int seen = 0;
   for ( auto _ : state )
      seen = dump.run();
   if ( seen < links )
      state.SkipWithError( "links are missing from the dump" );
   state.SetItemsProcessed( state.iterations() * links );
}

void ours( benchmark::State & state ) {
   Entering entering;
   const long before = entering.samples();
   for ( auto _ : state )
      entering.advance( period );
   if ( entering.samples() != before + state.iterations() )
      state.SkipWithError( "not each period had its sample" );
   state.SetItemsProcessed( state.iterations() * links );
   state.SetLabel( "at most 8 x" );
}

} // namespace

int main( int argc, char ** argv ) {
   const std::string row = "whole agent on Linux: link and sample, 2,000 links";
   Bench::RealLinks made;
   if ( !made.begin() ) {
      std::cout << "skipped: " << row << ": needs the right to make a network namespace\n";
      return 0;
   }
   made.countIs( links );
   benchmark::RegisterBenchmark( ( row + "/floor" ).c_str(), floorOf )->MeasureProcessCPUTime();
   benchmark::RegisterBenchmark( ( row + "/ours" ).c_str(), ours )->MeasureProcessCPUTime();
   benchmark::Initialize( &argc, argv );
   benchmark::RunSpecifiedBenchmarks();
}
