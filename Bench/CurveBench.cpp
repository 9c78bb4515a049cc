#include "Agent/Samples/Samples.h"
#include "Agent/Samples/SamplesRig.h"
#include "Bench/RealLinks.h"
#include "Platform/Cog/ManualClock.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <numeric>

/// What the samples of many interfaces cost.
///
/// A tick: the rates of all interfaces from counters that are there, the journal, and the files of those whose minute is
/// over, until the last one is written; so a twelfth of them in the mean. Floor: a sample of each interface written to one
/// file, and a block each to a twelfth of the files, which were found and opened for it.
/// A start: what an earlier agent has left is taken over, in the one turn in which everybody waits for it. Floor: each file
/// is opened.
/// Trunks: VLAN interfaces of which each has all of the same ports as its members. Floor: the rates of these ports, once,
/// and the larger of two numbers in each direction for each member of each
/// VLAN.
namespace {

constexpr int vlans = 500, trunks = 64;
constexpr unsigned ticksPerMinute = 12;

std::string nameOf( int i ) { return "et" + std::to_string( i ); }

/// A folder with the files of many interfaces, and their names.
struct Files {
   explicit Files( int count ) : descriptor( open( folder.path.c_str(), O_RDONLY | O_DIRECTORY ) ) {
      const std::string zeros( Agent::sampleFileSize, '\0' );
      for ( int i = 0; i < count; ++i ) {
         names.push_back( nameOf( i ) );
         std::ofstream( folder.path + "/" + nameOf( i ) ) << zeros;
      }
   }
   ~Files() { close( descriptor ); }
   Files( const Files & ) = delete;
   Files & operator=( const Files & ) = delete;

   const Bench::Folder folder;
   const int descriptor;
   std::vector< std::string > names;
};

void tickFloor( benchmark::State & state, int interfaces ) {
   const Files files( interfaces );
   const int journal = openat( files.descriptor, "journal", O_RDWR | O_CREAT | O_CLOEXEC, 0644 );
   const std::vector< Agent::Sample > column( static_cast< std::size_t >( interfaces ) );
   const auto size = static_cast< ssize_t >( column.size() * sizeof( Agent::Sample ) );
   const Agent::SampleBlock block;
   std::size_t next = 0;
   off_t tick = 0;
   for ( auto _ : state ) {
      bool good =
         pwrite( journal, column.data(), column.size() * sizeof( Agent::Sample ), tick * size ) == size;
      tick = ( tick + 1 ) % ticksPerMinute;
      for ( std::size_t i = 0; i < files.names.size() / ticksPerMinute; ++i ) {
         const int file = openat( files.descriptor, files.names[next].c_str(), O_RDWR | O_CLOEXEC );
         good = good && pwrite( file, &block, sizeof block, tick * 128 ) == sizeof block;
         close( file );
         next = ( next + 1 ) % files.names.size();
      }
      if ( !good )
         return state.SkipWithError( "cannot be written" );
   }
   close( journal );
   state.SetItemsProcessed( state.iterations() * interfaces );
}

/// Ports that carry something, and an agent that samples them.
struct World {
   explicit World( int count ) : interfaces( count ) {
      for ( int i = 0; i < interfaces; ++i )
         rig.intfIs( Wire::EthIntfId( nameOf( i ) ) );
   }
   void carry() {
      octets += 1'000'000;
      for ( int i = 0; i < interfaces; ++i )
         rig.countsAre( Wire::EthIntfId( nameOf( i ) ), octets, octets / 2 );
   }
   void start() {
      samples = std::make_unique< Agent::Samples >(
         clock, Vel::make< Cog::TimerWheel >( Vel::Ptr< Vel::Clock >( clock ), 1000u, 60u, true, 16u ),
         rig.model(), folder.path,
         Agent::Samples::Hooks{ [] { return true; }, []( double time ) { return time; }, "clock" } );
   }
   void tick() { clock->advance( 5 ); }
   /// Whether the last ticks of the last interface are there.
   bool good( std::size_t ticks ) const {
      const auto curve = samples->curve(
         nameOf( interfaces - 1 ), clock->currentTime() - 5 * static_cast< double >( ticks ),
         clock->currentTime() );
      return !samples->problem() && curve.in == std::vector< float >( ticks, 1.6e6f );
   }

   const int interfaces;
   const Bench::Folder folder;
   const Vel::Ptr< Cog::ManualClock > clock = Vel::make< Cog::ManualClock >( 1'700'000'100.0 );
   Agent::SamplesRig rig;
   Vel::U64 octets = 0;
   std::unique_ptr< Agent::Samples > samples;
};

void tick( benchmark::State & state, int interfaces ) {
   World world( interfaces );
   world.start();
   const auto run = [&]( bool measured ) {
      if ( measured )
         state.PauseTiming();
      world.carry();
      if ( measured )
         state.ResumeTiming();
      world.tick();
   };
   // The files are there, and have been seen to be good.
   for ( unsigned i = 0; i < 2 * ticksPerMinute + 2; ++i )
      run( false );
   for ( auto _ : state )
      for ( unsigned i = 0; i < ticksPerMinute; ++i )
         run( true );
   if ( !world.good( 15 ) )
      state.SkipWithError( "not sampled as it should be" );
   state.SetItemsProcessed( state.iterations() * ticksPerMinute * interfaces );
   state.SetLabel( "at most 4 x" );
}

void startFloor( benchmark::State & state, int interfaces ) {
   const Files files( interfaces );
   for ( auto _ : state )
      for ( const std::string & name : files.names )
         close( openat( files.descriptor, name.c_str(), O_RDWR | O_CLOEXEC ) );
   state.SetItemsProcessed( state.iterations() * interfaces );
}

void start( benchmark::State & state, int interfaces ) {
   World world( interfaces );
   world.start();
   for ( unsigned i = 0; i < 2 * ticksPerMinute; ++i ) {
      world.carry();
      world.tick();
   }
   for ( auto _ : state ) {
      state.PauseTiming();
      world.samples.reset();
      state.ResumeTiming();
      world.start();
   }
   if ( !world.good( 5 ) )
      state.SkipWithError( "not taken over as it should be" );
   state.SetItemsProcessed( state.iterations() * interfaces );
   state.SetLabel( "at most 2 x" );
}

/// Ports that are trunks of all VLANs.
struct Trunks {
   explicit Trunks( bool withVlans ) : world( trunks ) {
      for ( int i = 1; withVlans && i <= vlans; ++i ) {
         const auto id = static_cast< Vel::U16 >( i );
         world.rig.intfIs( Wire::VlanIntfId( "vlan" + std::to_string( i ), id ) );
         for ( int port = 0; port < trunks; ++port )
            world.rig.vlanMemberIs( id, Wire::EthIntfId( nameOf( port ) ) );
      }
   }
   void read( benchmark::State & state ) {
      state.PauseTiming();
      world.carry();
      state.ResumeTiming();
      rates.read( now += 5 );
   }

   World world;
   Agent::RateReader rates{ world.rig.model() };
   double now = 1.7e9;
};

void trunksFloor( benchmark::State & state ) {
   Trunks ports( false );
   const std::vector< int > members = [] {
      std::vector< int > all( static_cast< std::size_t >( trunks ) );
      std::iota( all.begin(), all.end(), 0 );
      return all;
   }();
   std::vector< Interface::IntfRates > busiest( static_cast< std::size_t >( vlans ) );
   for ( auto _ : state ) {
      ports.read( state );
      const auto & all = ports.rates.all();
      if ( all.empty() )
         continue;
      for ( auto & of : busiest )
         for ( const int member : members ) {
            const auto & rates = all[static_cast< std::size_t >( member )].second;
            of.inBitsRate = std::max( of.inBitsRate, rates.inBitsRate );
            of.outBitsRate = std::max( of.outBitsRate, rates.outBitsRate );
         }
      benchmark::DoNotOptimize( busiest.data() );
   }
   state.SetItemsProcessed( state.iterations() * vlans * trunks );
}

void trunksOurs( benchmark::State & state ) {
   Trunks ports( true );
   for ( auto _ : state )
      ports.read( state );
   const auto * const rate = ports.rates.rate( Wire::VlanIntfId( "vlan9", 9 ) );
   if ( state.iterations() > 1 && ( !rate || rate->inBitsRate != 1.6e6 ) )
      state.SkipWithError( "not sampled as it should be" );
   state.SetItemsProcessed( state.iterations() * vlans * trunks );
   state.SetLabel( "at most 5 x" );
}

bool registered = [] {
   const auto row = []( const std::string & name, auto floor, auto ours ) {
      benchmark::RegisterBenchmark( ( name + "/floor" ).c_str(), floor );
      benchmark::RegisterBenchmark( ( name + "/ours" ).c_str(), ours );
   };
   for ( const int interfaces : { 2000, 8000 } ) {
      const std::string many = interfaces == 2000 ? "2,000 interfaces" : "8,000 interfaces";
      row(
         "samples, a tick of " + many, [=]( auto & state ) { tickFloor( state, interfaces ); },
         [=]( auto & state ) { tick( state, interfaces ); } );
   }
   row(
      "samples, a start with 8,000 interfaces", []( auto & state ) { startFloor( state, 8000 ); },
      []( auto & state ) { start( state, 8000 ); } );
   row( "samples, 500 VLANs of 64 trunks", trunksFloor, trunksOurs );
   return true;
}();

} // namespace
