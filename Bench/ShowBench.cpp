#include "Api/Names.h"
#include "Bench/WholeAgent.h"
#include "Maintctl/Show.h"

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <ctime>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

/// What an operator waits for: maintctl from its start to its end, over an agent with 500 interfaces that are monitored,
/// each in a process of its own. Each waits for the other, so it is what both take of a processor, user and system,
/// which does not depend on what else the machine does; how long it takes on a quiet machine is in the last row.
/// Floor: the smallest program that asks for the same with the same library.
namespace {

constexpr int links = 500;

/// Starts a program, without output.
pid_t start( const std::vector< std::string > & words ) {
   std::vector< char * > arguments;
   for ( const std::string & word : words )
      arguments.push_back( const_cast< char * >( word.c_str() ) );
   arguments.push_back( nullptr );
   posix_spawn_file_actions_t files;
   posix_spawn_file_actions_init( &files );
   for ( const int descriptor : { 0, 1, 2 } )
      posix_spawn_file_actions_addopen( &files, descriptor, "/dev/null", O_RDWR, 0 );
   pid_t pid = 0;
   const int error = posix_spawn( &pid, arguments[0], &files, nullptr, arguments.data(), environ );
   posix_spawn_file_actions_destroy( &files );
   if ( error != 0 )
      throw std::runtime_error( words[0] + ": " + std::strerror( error ) );
   return pid;
}

/// Seconds of a processor that it has taken; nothing if it has not ended well.
std::optional< double > run( const std::vector< std::string > & words ) {
   int status = 0;
   rusage usage{};
   if ( wait4( start( words ), &status, 0, &usage ) <= 0 || status != 0 )
      return std::nullopt;
   const auto seconds = []( const timeval & time ) {
      return static_cast< double >( time.tv_sec ) + static_cast< double >( time.tv_usec ) / 1e6;
   };
   return seconds( usage.ru_utime ) + seconds( usage.ru_stime );
}

/// maintd with all links in a unit that is entering.
class Program {
 public:
   Program() {
      std::ofstream( folder_.path + "/maintd.yaml" ) << Bench::configuration( links, "simulated" );
      agent_ = start(
         { MAINT_BENCH_BIN_DIR "/maintd", "--foreground", "--config", folder_.path + "/maintd.yaml",
           "--state-dir", folder_.path + "/state", "--runtime-dir", folder_.path + "/run", "--plugin-dir",
           MAINT_BENCH_PLUGIN_DIR } );
      for ( int tries = 0; !run( control( { "show", "agent" } ) ); ++tries )
         if ( tries == 1000 )
            throw std::runtime_error( "the agent does not answer" );
      if ( !run( control( { "enter", "u" } ) ) || !run( control( { "simulated", "advance", "30s" } ) ) )
         throw std::runtime_error( "the agent does not do what it is asked" );
   }
   ~Program() {
      kill( agent_, SIGKILL );
      waitpid( agent_, nullptr, 0 );
   }
   Program( const Program & ) = delete;
   Program & operator=( const Program & ) = delete;

   std::vector< std::string > control( const std::vector< std::string > & words ) const {
      std::vector< std::string > result{ MAINT_BENCH_BIN_DIR "/maintctl", "--socket", socketPath() };
      result.insert( result.end(), words.begin(), words.end() );
      return result;
   }
   std::vector< std::string > floorOf( const std::string & path ) const {
      return { MAINT_BENCH_BIN_DIR "/CurlFloor", socketPath(), path };
   }
   /// Seconds of a processor that the agent has taken since it began.
   double agentSeconds() const {
      clockid_t clock{};
      timespec time{};
      if ( clock_getcpuclockid( agent_, &clock ) != 0 || clock_gettime( clock, &time ) != 0 )
         throw std::runtime_error( "the agent is gone" );
      return static_cast< double >( time.tv_sec ) + static_cast< double >( time.tv_nsec ) / 1e9;
   }

 private:
   std::string socketPath() const { return folder_.path + "/run/control.sock"; }

   const Bench::Folder folder_;
   pid_t agent_ = 0;
};

void measure( benchmark::State & state, const Program & agent, const std::vector< std::string > & words ) {
   for ( auto _ : state ) {
      const double before = agent.agentSeconds();
      const auto taken = run( words );
      if ( !taken )
         return state.SkipWithError( "it has failed" );
      state.SetIterationTime( *taken + agent.agentSeconds() - before );
   }
   state.SetItemsProcessed( state.iterations() );
}

void inRealTime( benchmark::State & state, const std::vector< std::string > & words ) {
   for ( auto _ : state )
      if ( !run( words ) )
         return state.SkipWithError( "it has failed" );
   state.SetItemsProcessed( state.iterations() );
}

} // namespace

int main( int argc, char ** argv ) {
   const Program agent;
   const auto ours = agent.control( { "show", "interfaces" } ),
              least = agent.floorOf(
                 Api::Path::withFields( Api::Path::interfaces, Maintctl::interfacesTextFields ) );
   const auto row =
      [&]( const std::string & name, const std::vector< std::string > & words, const char * limit ) {
         benchmark::RegisterBenchmark( name.c_str(), [&agent, words, limit]( benchmark::State & state ) {
            measure( state, agent, words );
            state.SetLabel( limit );
         } )->UseManualTime();
      };
   const std::string show = "maintctl show interfaces, 500, with process start";
   row( show + "/floor", least, "" );
   row( show + "/ours", ours, "at most 20000000 ns" );
   row( "maintctl --version/floor", { "/bin/true" }, "" );
   row( "maintctl --version/ours", agent.control( { "--version" } ), "" );
   for ( const auto & [side, words] : { std::pair( "/floor", &least ), std::pair( "/ours", &ours ) } )
      benchmark::RegisterBenchmark(
         ( show + ", elapsed" + side ).c_str(),
         [words = words]( benchmark::State & state ) { inRealTime( state, *words ); } )
         ->UseRealTime();
   benchmark::Initialize( &argc, argv );
   benchmark::RunSpecifiedBenchmarks();
}
