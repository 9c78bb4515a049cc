#include "Apps/Maintd.h"
#include "Bench/RealLinks.h"
#include "Platform/Cog/RealTime.h"

#include <benchmark/benchmark.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

/// What readers of events do to the longest turn of the agent: a unit of 500 simulated interfaces that is sampled every
/// 5 seconds, and 100 readers of events and rates who have asked for all that is kept, of which every other one takes
/// nothing at all and the rest 2 kB every 5 seconds.
/// Floor: the same agent without readers. An item is one period of 5 seconds; its time is that of its longest turn.
/// Time is virtual, so that periods follow each other; sockets and files are real.
namespace {

constexpr int ports = 500, readers = 100;
constexpr double period = 5;

class Reader {
 public:
   Reader( const std::string & path, bool stuck ) : stuck_( stuck ) {
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
      path.copy( address.sun_path, sizeof address.sun_path - 1 );
      descriptor_ = socket( AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0 );
      const std::string request = "GET /api/v1/events?after=0&rates=1 HTTP/1.1\r\nHost: agent\r\n\r\n";
      if (
         connect( descriptor_, reinterpret_cast< sockaddr * >( &address ), sizeof address ) != 0 ||
         send( descriptor_, request.data(), request.size(), 0 ) < 0 )
         throw std::runtime_error( "cannot reach the agent" );
   }
   ~Reader() { close( descriptor_ ); }
   Reader( const Reader & ) = delete;
   Reader & operator=( const Reader & ) = delete;

   void read() {
      char buffer[2048];
      if ( !stuck_ )
         received_ += std::max< ssize_t >( recv( descriptor_, buffer, sizeof buffer, MSG_DONTWAIT ), 0 );
   }
   long received() const { return received_; }

 private:
   const bool stuck_;
   int descriptor_;
   long received_ = 0;
};

class BusyAgent {
 public:
   BusyAgent() : time_( Vel::make< Cog::VirtualTime >( 1.7e9 ) ) {
      std::ofstream config( folder_.path + "/maintd.yaml" );
      std::string names, described;
      for ( int i = 0; i < ports; ++i ) {
         const std::string name = "et" + std::to_string( i );
         names += ( i ? ", " : "" ) + name;
         described += ( i ? ", " : "" ) + name + ": {traffic: [{for: 200h, in: 4Mbps, out: 1Mbps}]}";
      }
      config << "version: 1\nswitch: simulated\nprofiles: {p: {threshold: 1kbps, load-interval: 720h}}\n"
             << "default-profile: p\ngroups:\n  all: {interfaces: [" << names
             << "]}\nunits:\n  u: {groups: [all]}\nsimulated:\n  clock: virtual\n  ports: {" << described
             << "}\n";
      config.close();
      Apps::MaintdOptions options;
      options.config = folder_.path + "/maintd.yaml";
      options.stateDir = folder_.path + "/state";
      options.runtimeDir = folder_.path + "/run";
      options.pluginDir = MAINT_BENCH_PLUGIN_DIR;
      socket_ = options.runtimeDir + "/control.sock";
      Apps::MaintdWorld world;
      world.time = time_;
      agent_ = std::make_unique< Apps::Maintd >( options, world );
      if ( const std::string problem = agent_->start(); !problem.empty() )
         throw std::runtime_error( problem );
      time_->reachedIs( [this] { agent_->loop().stop(); } );
      // In virtual time nothing is waited for, so a turn takes from the end of the one before to its own.
      agent_->loop().commitHookIs( [this] {
         const double now = Cog::RealTime::timeSinceBoot();
         longest_ = std::max( longest_, now - turnEnd_ );
         turnEnd_ = now;
         return true;
      } );
      advance( 1 );
      agent_->loop().post( [this] {
         Agent::HttpRequest request;
         request.method = "POST";
         request.path = "/api/v1/units/u/enter";
         request.local = true;
         agent_->api().handle( request, []( const Agent::HttpReply & ) {} );
      } );
      advance( 3 * period );
   }
   BusyAgent( const BusyAgent & ) = delete;
   BusyAgent & operator=( const BusyAgent & ) = delete;

   /// Lets time pass; seconds that the longest turn took.
   double advance( double seconds ) {
      time_->targetIs( time_->target() + seconds );
      longest_ = 0;
      turnEnd_ = Cog::RealTime::timeSinceBoot();
      agent_->loop().run();
      return longest_;
   }
   void turns( int count ) {
      for ( int i = 0; i < count; ++i ) {
         agent_->loop().post( [this] { agent_->loop().stop(); } );
         agent_->loop().run();
      }
   }
   const std::string & socket() const { return socket_; }

 private:
   const Bench::Folder folder_;
   std::string socket_;
   Vel::Ptr< Cog::VirtualTime > time_;
   std::unique_ptr< Apps::Maintd > agent_;
   double turnEnd_ = Cog::RealTime::timeSinceBoot();
   double longest_ = 0; ///< seconds
};

void run( benchmark::State & state, int count ) {
   BusyAgent agent;
   std::vector< std::unique_ptr< Reader > > all;
   for ( int i = 0; i < count; ++i ) {
      all.push_back( std::make_unique< Reader >( agent.socket(), i % 2 == 0 ) );
      agent.turns( 5 );
   }
   for ( auto _ : state ) {
      state.SetIterationTime( agent.advance( period ) );
      for ( const auto & reader : all )
         reader->read();
   }
   for ( int i = 1; i < count; i += 2 )
      if ( all[static_cast< std::size_t >( i )]->received() == 0 )
         state.SkipWithError( "a reader has got nothing" );
   state.SetItemsProcessed( state.iterations() );
}

void floorOf( benchmark::State & state ) { run( state, 0 ); }

void ours( benchmark::State & state ) {
   run( state, readers );
   state.SetLabel( "at most 2 x" );
}

BENCHMARK( floorOf )->Name( "longest turn, 500 interfaces, 100 slow event readers/floor" )->UseManualTime();
BENCHMARK( ours )->Name( "longest turn, 500 interfaces, 100 slow event readers/ours" )->UseManualTime();

} // namespace
