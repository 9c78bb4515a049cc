#include "Bench/WholeAgent.h"

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

/// What an operator waits for: maintctl from its start to its end, over an agent with 500 interfaces that are monitored,
/// each in a process of its own; real time.
/// Floor: the program that does nothing, and the same answer fetched by this process over the same socket.
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

/// Whether it has ended well.
bool run( const std::vector< std::string > & words ) {
   int status = 0;
   return waitpid( start( words ), &status, 0 ) > 0 && status == 0;
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
   /// The bytes of the answer to one request, on a connection of its own.
   std::size_t fetch( const std::string & path ) const {
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
      std::strncpy( address.sun_path, socketPath().c_str(), sizeof address.sun_path - 1 );
      const int connection = socket( AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0 );
      const std::string request = "GET " + path + " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n";
      std::size_t size = 0;
      if (
         connect( connection, reinterpret_cast< sockaddr * >( &address ), sizeof address ) == 0 &&
         write( connection, request.data(), request.size() ) == static_cast< ssize_t >( request.size() ) ) {
         char buffer[65536];
         for ( ssize_t got; ( got = read( connection, buffer, sizeof buffer ) ) > 0; )
            size += static_cast< std::size_t >( got );
      }
      close( connection );
      return size;
   }

 private:
   std::string socketPath() const { return folder_.path + "/run/control.sock"; }

   const Bench::Folder folder_;
   pid_t agent_ = 0;
};

void floorOf( benchmark::State & state, const Program & agent ) {
   for ( auto _ : state )
      if ( !run( { "/bin/true" } ) || agent.fetch( "/api/v1/interfaces" ) < links * 100 )
         return state.SkipWithError( "it has failed" );
   state.SetItemsProcessed( state.iterations() );
}

void ours( benchmark::State & state, const Program & agent ) {
   for ( auto _ : state )
      if ( !run( agent.control( { "show", "interfaces" } ) ) )
         return state.SkipWithError( "it has failed" );
   state.SetItemsProcessed( state.iterations() );
   state.SetLabel( "at most 20000000 ns" );
}

} // namespace

int main( int argc, char ** argv ) {
   const Program agent;
   const std::string row = "maintctl show interfaces, 500, with process start";
   benchmark::RegisterBenchmark( ( row + "/floor" ).c_str(), floorOf, std::cref( agent ) )->UseRealTime();
   benchmark::RegisterBenchmark( ( row + "/ours" ).c_str(), ours, std::cref( agent ) )->UseRealTime();
   benchmark::Initialize( &argc, argv );
   benchmark::RunSpecifiedBenchmarks();
}
