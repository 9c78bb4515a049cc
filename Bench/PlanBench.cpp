#include "Agent/Plan/Judgement.h"

#include <benchmark/benchmark.h>

#include <string>
#include <unordered_map>

/// What it costs to judge a plan in a turn, with as many different ways as a switch tells apart: 4096 of 64 equal hops over
/// 200 VLAN interfaces of a bridge with 1000 ports, of which the unit has one.
/// Floor: the link of each hop is looked up by its name, in each of the three pictures of the switch.
namespace {

constexpr unsigned ports = 1000, vlans = 200, classes = 4096, hops = 64;

std::shared_ptr< const DataPlane::RouteTable > table() {
   DataPlane::RouteTable result;
   std::vector< std::string > members;
   for ( unsigned i = 0; i < ports; ++i ) {
      members.push_back( "et" + std::to_string( i ) );
      result.links.push_back( { members.back(), true, false, {} } );
   }
   result.links.push_back( { "br0", true, false, { members } } );
   for ( unsigned i = 0; i < vlans; ++i )
      result.links.push_back( { "vlan" + std::to_string( i ), true, false, { { "br0" }, members } } );
   for ( unsigned i = 0; i < classes; ++i ) {
      DataPlane::EqualHops ways = { { "et" + std::to_string( i % 10 ) } };
      for ( unsigned j = 1; j < hops; ++j )
         ways.push_back( { "vlan" + std::to_string( ( i * 7 + j ) % vlans ), 1 + i % 3 } );
      result.classes.push_back( { { ways }, 1, { std::to_string( i ) } } );
   }
   return std::make_shared< const DataPlane::RouteTable >( std::move( result ) );
}

void planFloor( benchmark::State & state ) {
   const auto routes = table();
   std::unordered_map< std::string, const DataPlane::RoutedLink * > links;
   for ( const auto & link : routes->links )
      links.emplace( link.name, &link );
   for ( auto _ : state )
      for ( int pictures = 0; pictures < 3; ++pictures )
         for ( const auto & each : routes->classes )
            for ( const auto & hop : each.choices.front() )
               benchmark::DoNotOptimize( links.find( hop.link ) );
   state.SetItemsProcessed( state.iterations() * classes * hops );
}
BENCHMARK( planFloor )->Name( "plan of the largest table/floor" )->Unit( benchmark::kMillisecond );

void planOurs( benchmark::State & state ) {
   Agent::PlanFacts facts;
   facts.unit = "u1";
   facts.state = "normal";
   facts.routes = table();
   const Agent::PlanLoad load{ Agent::PlanRates{ 1e8, 1e8 }, Agent::PlanRates{ 1e8, 1e8 } };
   Agent::PlanInterface & interface = facts.interfaces.emplace_back();
   interface.name = "et0";
   interface.load = load;
   for ( const auto & link : facts.routes->links ) {
      facts.loads.emplace( link.name, load );
      facts.speeds.emplace( link.name, 1e9 );
   }
   for ( auto _ : state )
      benchmark::DoNotOptimize( judge( facts ) );
   state.SetItemsProcessed( state.iterations() * classes * hops );
   state.SetLabel( "at most 20 x" );
}
BENCHMARK( planOurs )->Name( "plan of the largest table/ours" )->Unit( benchmark::kMillisecond );

} // namespace
