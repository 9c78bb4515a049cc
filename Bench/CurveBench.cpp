#include "Agent/Samples/Samples.h"
#include "Agent/Samples/SamplesRig.h"
#include "Bench/RealLinks.h"
#include "Platform/Cog/ManualClock.h"

#include <fcntl.h>
#include <unistd.h>

#include <memory>

/// What a tick of the samples costs: the rates of all interfaces from counters that are there, and their files, until the
/// last one is written. Floor: a block of each file, which was found and opened for it, written and nothing else.
namespace {

constexpr int interfaces = 2000;

std::string nameOf( int i ) { return "et" + std::to_string( i ); }

void floorOf( benchmark::State & state ) {
   const Bench::Folder folder;
   const int descriptor = open( folder.path.c_str(), O_RDONLY | O_DIRECTORY );
   std::vector< std::string > names;
   const std::string zeros( Agent::sampleFileSize, '\0' );
   for ( int i = 0; i < interfaces; ++i ) {
      names.push_back( nameOf( i ) );
      std::ofstream( folder.path + "/" + nameOf( i ) ) << zeros;
   }
   const Agent::SampleBlock block;
   off_t place = 0;
   for ( auto _ : state ) {
      for ( const std::string & name : names ) {
         const int file = openat( descriptor, name.c_str(), O_RDWR | O_CLOEXEC );
         if ( pwrite( file, &block, sizeof block, place * 128 ) != sizeof block )
            return state.SkipWithError( "cannot be written" );
         close( file );
      }
      place = ( place + 1 ) % 61;
   }
   close( descriptor );
   state.SetItemsProcessed( state.iterations() * interfaces );
}

void ours( benchmark::State & state ) {
   const Bench::Folder folder;
   const auto clock = Vel::make< Cog::ManualClock >( 1'700'000'100.0 );
   Agent::SamplesRig rig;
   for ( int i = 0; i < interfaces; ++i )
      rig.intfIs( Wire::EthIntfId( nameOf( i ) ) );
   Vel::U64 octets = 0;
   const auto carry = [&] {
      octets += 1'000'000;
      for ( int i = 0; i < interfaces; ++i )
         rig.countsAre( Wire::EthIntfId( nameOf( i ) ), octets, octets / 2 );
   };
   Agent::Samples samples(
      clock, Vel::make< Cog::TimerWheel >( Vel::Ptr< Vel::Clock >( clock ), 1000u, 60u, true, 16u ),
      rig.model(), folder.path,
      Agent::Samples::Hooks{ [] { return true; }, []( double time ) { return time; }, "clock" } );
   // The files are there, and have been seen to be good.
   for ( int tick = 0; tick < 3; ++tick ) {
      carry();
      clock->advance( 5 );
   }
   for ( auto _ : state ) {
      state.PauseTiming();
      carry();
      state.ResumeTiming();
      clock->advance( 5 );
   }
   const auto curve =
      samples.curve( nameOf( interfaces - 1 ), clock->currentTime() - 5, clock->currentTime() );
   if ( samples.problem() || curve.in.size() != 1 || curve.in[0] != 1.6e6f )
      state.SkipWithError( "not sampled as it should be" );
   state.SetItemsProcessed( state.iterations() * interfaces );
   state.SetLabel( "at most 4 x" );
}

bool registered = [] {
   const std::string row = "sampled interface: rates and file, 2,000 interfaces";
   benchmark::RegisterBenchmark( ( row + "/floor" ).c_str(), floorOf );
   benchmark::RegisterBenchmark( ( row + "/ours" ).c_str(), ours );
   return true;
}();

} // namespace
