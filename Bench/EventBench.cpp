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
/// 5 seconds, 20 small units of which all go into maintenance in one turn and back in another one of each period, so that
/// a hundred events and more come at once, and 100 readers of events and rates who have asked for all that is kept. A
/// third of them takes nothing at all, a third 2 kB every 5 seconds, so that both fall behind, and a third all there is.
/// Floor: the same agent without readers. An item is one period of 5 seconds; its time is that of its longest turn.
/// Time is virtual, so that periods follow each other; sockets and files are real.
namespace {

constexpr int ports = 500, smallUnits = 20, readers = 100;
/// Events that a period has at least: each of the small units goes in, is in its stage, goes back and is normal.
constexpr long burst = 4 * smallUnits;
constexpr double period = 5;

class Reader {
 public:
   /// \param appetite  bytes that it takes at a time
   Reader( const std::string & path, std::size_t appetite ) : appetite_( appetite ) {
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
      for ( std::size_t left = appetite_; left > 0; ) {
         char buffer[2048];
         const ssize_t got = recv( descriptor_, buffer, std::min( left, sizeof buffer ), MSG_DONTWAIT );
         if ( got <= 0 )
            return;
         received_ += got;
         left -= static_cast< std::size_t >( got );
      }
   }
   long received() const { return received_; }

 private:
   const std::size_t appetite_;
   int descriptor_;
   long received_ = 0;
};

class BusyAgent {
 public:
   BusyAgent() : time_( Vel::make< Cog::VirtualTime >( 1.7e9 ) ) {
      std::ofstream config( folder_.path + "/maintd.yaml" );
      std::string names, described;
      for ( int i = 0; i < ports + smallUnits; ++i ) {
         const std::string name = "et" + std::to_string( i );
         if ( i < ports )
            names += ( i ? ", " : "" ) + name;
         described += ( i ? ", " : "" ) + name + ": {traffic: [{for: 200h, in: 4Mbps, out: 1Mbps}]}";
      }
      config << "version: 1\nswitch: simulated\nprofiles: {p: {threshold: 1kbps, load-interval: 720h}}\n"
             << "default-profile: p\ngroups:\n  all: {interfaces: [" << names << "]}\n";
      for ( int i = 0; i < smallUnits; ++i )
         config << "  g" << i << ": {interfaces: [et" << ports + i << "]}\n";
      config << "units:\n  u: {groups: [all]}\n";
      for ( int i = 0; i < smallUnits; ++i )
         config << "  " << smallUnit( i ) << ": {groups: [g" << i << "]}\n";
      config << "simulated:\n  clock: virtual\n  ports: {" << described << "}\n";
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
      agent_->loop().post( [this] { ask( "u", "enter" ); } );
      advance( 3 * period );
   }
   BusyAgent( const BusyAgent & ) = delete;
   BusyAgent & operator=( const BusyAgent & ) = delete;

   /// All small units go into maintenance, or back, in one turn.
   void burstOf( const char * operation ) {
      agent_->loop().post( [this, operation] {
         for ( int i = 0; i < smallUnits; ++i )
            ask( smallUnit( i ), operation );
      } );
   }
   /// Events until now.
   long events() {
      Agent::HttpRequest request;
      request.method = "GET";
      request.path = "/api/v1/events/recent";
      request.query.emplace( "limit", "0" );
      std::string body;
      agent_->api().handle( request, [&]( const Agent::HttpReply & reply ) { body = reply.body; } );
      const std::string before = "\"last\":";
      return std::stol( body.substr( body.find( before ) + before.size() ) );
   }
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
   static std::string smallUnit( int number ) { return "small" + std::to_string( number ); }
   void ask( const std::string & unit, const char * operation ) {
      Agent::HttpRequest request;
      request.method = "POST";
      request.path = "/api/v1/units/" + unit + "/" + operation;
      request.local = true;
      agent_->api().handle( request, []( const Agent::HttpReply & ) {} );
   }

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
      constexpr std::size_t appetites[] = { 0, 2048, 1 << 20 };
      all.push_back( std::make_unique< Reader >( agent.socket(), appetites[i % 3] ) );
      agent.turns( 5 );
   }
   const long before = agent.events();
   for ( auto _ : state ) {
      agent.burstOf( "enter" );
      double longest = agent.advance( period / 2 );
      agent.burstOf( "exit" );
      longest = std::max( longest, agent.advance( period / 2 ) );
      state.SetIterationTime( longest );
      for ( const auto & reader : all )
         reader->read();
   }
   const long events = agent.events() - before;
   if ( events < burst * static_cast< long >( state.iterations() ) )
      state.SkipWithError( "too little happens" );
   constexpr long bytesOfEvent = 100;
   for ( std::size_t i = 2; i < all.size(); i += 3 )
      if ( all[i]->received() < events * bytesOfEvent )
         state.SkipWithError( "a reader has not got what has happened" );
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
