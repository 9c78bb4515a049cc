#include "Bench/WholeAgent.h"

#include <benchmark/benchmark.h>
#include <nlohmann/json.hpp>

#include <string>

/// What the control API answers, a byte of it, of 2,000 interfaces that are monitored.
/// Floor: a text of the same size, ready made, written as JSON.
namespace {

constexpr int links = 2000;
/// Of which the page asks for the curves: seconds, and interfaces at a time (Web/src/model.js, filling.js).
constexpr int span = 600, together = 64;

Bench::WholeAgent & agent() {
   static Bench::WholeAgent * const made = [] {
      auto * const agent = new Bench::WholeAgent( Bench::configuration( links, "simulated" ) );
      agent->enter();
      agent->advance( span + 10 );
      return agent;
   }();
   return *made;
}

using Paths = std::vector< std::string >;

/// What the page asks for when it is opened on the unit of all links.
Paths pageOfUnit() {
   Paths paths = { "units", "agent", "profiles", "events/recent?limit=200", "interfaces?unit=u" };
   for ( int i = 0; i < links; ++i ) {
      if ( i % together == 0 )
         paths.push_back( "samples?last=" + std::to_string( span ) );
      paths.back() += "&interface=et" + std::to_string( i );
   }
   return paths;
}

std::size_t answer( const Paths & paths ) {
   std::size_t size = 0;
   for ( const std::string & path : paths )
      size += agent().ask( "GET", path ).size();
   return size;
}

void floorOf( benchmark::State & state, const Paths & paths ) {
   const nlohmann::json ready( std::string( answer( paths ), 'x' ) );
   for ( auto _ : state )
      benchmark::DoNotOptimize( ready.dump( -1, ' ', false, nlohmann::json::error_handler_t::replace ) );
   state.SetItemsProcessed( state.iterations() );
}

void ours( benchmark::State & state, const Paths & paths, const char * limit ) {
   for ( const std::string & path : paths )
      if ( const std::string text = agent().ask( "GET", path );
           text.empty() || text.starts_with( "{\"error\"" ) )
         return state.SkipWithError( ( "refused: " + path + " " + text ).c_str() );
   if ( answer( paths ) < links * 100 )
      state.SkipWithError( "interfaces are missing from the answers" );
   for ( auto _ : state )
      benchmark::DoNotOptimize( answer( paths ) );
   state.SetItemsProcessed( state.iterations() );
   state.SetLabel( limit );
}

} // namespace

int main( int argc, char ** argv ) {
   const struct {
      const char * name;
      Paths paths;
      const char * limit;
   } rows[] = {
      { "data of the page, 2,000 interfaces", pageOfUnit(), "at most 10 x" },
      { "metrics, 2,000 interfaces", { "metrics" }, "at most 10 x" } };
   for ( const auto & row : rows ) {
      const std::string name = row.name;
      benchmark::RegisterBenchmark( ( name + "/floor" ).c_str(), floorOf, row.paths );
      benchmark::RegisterBenchmark( ( name + "/ours" ).c_str(), ours, row.paths, row.limit );
   }
   benchmark::Initialize( &argc, argv );
   benchmark::RunSpecifiedBenchmarks();
}
