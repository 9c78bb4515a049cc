#include "Bench/RealLinks.h"
#include "Bench/WholeAgent.h"

#include <iostream>

/// What one sample of one real link costs the whole agent: the kernel's counters, the sample from its timer to its next
/// timer, the change in the store, its commit. All links belong to one unit that waits for its traffic to go.
/// Floor: the bare dump of the counters, octets read and dropped.
/// Time is virtual, so that periods follow each other; links, kernel and files are real.
namespace {

constexpr int links = 2000;
constexpr double period = 5;
constexpr int periods = 12; ///< a minute: what is written once a minute counts as often as it comes

/// The agent with all links in a unit that is entering and never quiet for long enough.
class Entering : public Bench::WholeAgent {
 public:
   Entering() : WholeAgent( Bench::configuration( links, "linux" ) ) {
      enter();
      // Files of samples are made within the first minute, once.
      for ( int i = 0; i < 2 * periods; ++i )
         advance( period );
   }
   /// Samples of a link so far.
   long samples() {
      const std::string text = ask( "GET", "interfaces/et" + std::to_string( links - 1 ) );
      const auto at = text.find( "\"samples\":" );
      return at == std::string::npos ? 0 : std::atol( text.c_str() + text.find_first_of( "0123456789", at ) );
   }
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
   benchmark::RegisterBenchmark( ( row + "/ours" ).c_str(), ours )
      ->Iterations( periods )
      ->MeasureProcessCPUTime();
   benchmark::Initialize( &argc, argv );
   benchmark::RunSpecifiedBenchmarks();
}
