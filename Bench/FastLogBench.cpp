#include "Platform/FastLog/FastLog.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <vector>

/// What a line of the fast log costs that holds a string and two numbers.
/// Floor: the time of the turn, the two numbers and 16 bytes for the string copied into a ring of the same size,
/// without anything that would tell a reader what they are, how long they are, or whether they are complete.
namespace {

constexpr std::size_t ringBytes = 1024 * 1024;

/// Names of interfaces, not all of one length.
std::vector< std::string > names() {
   std::vector< std::string > out;
   for ( int module = 1; module <= 8; ++module )
      for ( int port = 1; port <= 32; ++port )
         out.push_back( "Ethernet" + std::to_string( module ) + '/' + std::to_string( port ) );
   return out;
}

struct BareRing {
   struct Line {
      double time;
      std::uint64_t in, out;
      char name[16];
   };
   Line lines[ringBytes / sizeof( Line )];
   std::size_t next = 0;
   double time = 0;
};

[[gnu::noinline]] void
bareLine( BareRing & ring, const std::string & name, std::uint64_t in, std::uint64_t out ) {
   BareRing::Line & line = ring.lines[ring.next];
   line.time = ring.time;
   line.in = in;
   line.out = out;
   // The names have room for as much.
   std::memcpy( line.name, name.data(), sizeof line.name );
   ring.next = ring.next + 1 == std::size( ring.lines ) ? 0 : ring.next + 1;
}

[[gnu::noinline]] void ourLine( const std::string & name, std::uint64_t in, std::uint64_t out ) {
   FASTLOG( "intf ", name, " in ", in, " out ", out );
}

void lineFloor( benchmark::State & state ) {
   auto name = names();
   for ( std::string & each : name )
      each.resize( sizeof BareRing::Line::name );
   const auto ring = std::make_unique< BareRing >();
   std::uint64_t i = 0;
   for ( auto _ : state ) {
      bareLine( *ring, name[i % name.size()], i, i + 1 );
      ++i;
   }
   state.SetItemsProcessed( state.iterations() );
}

void logLines( benchmark::State & state ) {
   const auto name = names();
   std::uint64_t i = 0;
   for ( auto _ : state ) {
      ourLine( name[i % name.size()], i, i + 1 );
      ++i;
   }
   state.SetItemsProcessed( state.iterations() );
   state.SetLabel( "at most 4 x" );
}

void lineOurs( benchmark::State & state ) {
   FastLog::memoryIs( ringBytes );
   logLines( state );
}

void lineInFile( benchmark::State & state ) {
   std::string dir = std::filesystem::temp_directory_path() / "fastlogXXXXXX";
   if ( !::mkdtemp( dir.data() ) )
      return state.SkipWithError( "cannot make a directory" );
   FastLog::fileIs( dir + "/ring", ringBytes );
   logLines( state );
   FastLog::memoryIs( ringBytes );
   std::filesystem::remove_all( dir );
}

BENCHMARK( lineFloor )->Name( "fast-log line, string and two numbers/floor" );
BENCHMARK( lineOurs )->Name( "fast-log line, string and two numbers/ours" );
BENCHMARK( lineFloor )->Name( "fast-log line, ring in a file/floor" );
BENCHMARK( lineInFile )->Name( "fast-log line, ring in a file/ours" );

} // namespace
