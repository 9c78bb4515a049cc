#include "Agent/Samples/SampleBlocks.h"
#include "Bench/RealLinks.h"
#include "Bench/WholeAgent.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>

/// What one sample of one real link costs the whole agent: the kernel's counters, the sample from its timer to its next
/// timer, the change in the store, its commit; the curve that is kept of the link, and the reason why it has not drained.
/// All links belong to one unit that waits for its traffic to go.
/// Floor: a program of one loop that does the same for arrays. It dumps the counters, makes rates of them, compares them
/// with the threshold and what was before, notes the busiest rates and the reason, writes all records to a file that takes
/// the place of the one before, all rates to a journal, and a block of 128 bytes to a twelfth of the files, each opened
/// for it: a minute of a link in its file.
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

/// What is known of a link, as the floor keeps it.
struct Record {
   std::uint64_t in = 0, out = 0; ///< octets, as of the last sample
   double inBps = 0, outBps = 0, peakInBps = 0, peakOutBps = 0;
   double quietSince = 0, lastSample = 0, reasonSince = 0;
   std::uint64_t samples = 0;
   unsigned reason = 0;
};

class PlainAgent {
 public:
   PlainAgent()
      : directory_( open( folder_.path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC ) ),
        journal_( openat( directory_, "journal", O_RDWR | O_CREAT | O_CLOEXEC, 0644 ) ) {
      for ( int i = 0; i < links; ++i ) {
         names_.push_back( "et" + std::to_string( i ) );
         std::ofstream( folder_.path + "/" + names_.back() ) << std::string( Agent::sampleFileSize, '\0' );
      }
   }
   ~PlainAgent() {
      close( journal_ );
      close( directory_ );
   }
   PlainAgent( const PlainAgent & ) = delete;
   PlainAgent & operator=( const PlainAgent & ) = delete;

   /// False if something could not be read or written.
   bool tick() {
      now_ += period;
      if ( dump_.run( &counts_ ) < links )
         return false;
      sample();
      return writeRecords() && writeJournal() && writeFiles();
   }

 private:
   void sample() {
      constexpr double threshold = 1;
      for ( const auto & counts : counts_ ) {
         const auto i = static_cast< std::size_t >( counts.link );
         if ( i >= records_.size() ) {
            records_.resize( i + 1 );
            column_.resize( i + 1 );
         }
         Record & record = records_[i];
         record.inBps = static_cast< double >( counts.in - record.in ) * 8 / period;
         record.outBps = static_cast< double >( counts.out - record.out ) * 8 / period;
         record.in = counts.in;
         record.out = counts.out;
         record.peakInBps = std::max( record.peakInBps, record.inBps );
         record.peakOutBps = std::max( record.peakOutBps, record.outBps );
         const bool quiet = record.inBps < threshold && record.outBps < threshold;
         record.quietSince = !quiet ? 0 : record.quietSince > 0 ? record.quietSince : now_;
         const unsigned reason = quiet ? 1 : record.inBps > record.outBps ? 2 : 3;
         if ( reason != record.reason )
            record.reasonSince = now_;
         record.reason = reason;
         record.lastSample = now_;
         ++record.samples;
         column_[i] = { static_cast< float >( record.inBps ), static_cast< float >( record.outBps ) };
      }
   }
   bool writeRecords() {
      const int file = openat( directory_, "records.new", O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644 );
      const bool good = isWritten( file, records_.data(), records_.size() * sizeof( Record ), 0 );
      close( file );
      return good && renameat( directory_, "records.new", directory_, "records" ) == 0;
   }
   bool writeJournal() {
      const std::size_t size = column_.size() * sizeof( Agent::Sample );
      return isWritten( journal_, column_.data(), size, ticks_++ % periods * size );
   }
   bool writeFiles() {
      bool good = true;
      for ( int i = 0; i < links / periods; ++i ) {
         const int file = openat( directory_, names_[next_].c_str(), O_RDWR | O_CLOEXEC );
         good = isWritten( file, &block_, sizeof block_, ticks_ % Agent::fineRing.blocks * sizeof block_ ) &&
                good;
         close( file );
         next_ = ( next_ + 1 ) % names_.size();
      }
      return good;
   }
   static bool isWritten( int file, const void * bytes, std::size_t size, std::size_t offset ) {
      return pwrite( file, bytes, size, static_cast< off_t >( offset ) ) == static_cast< ssize_t >( size );
   }

   const Bench::Folder folder_;
   const int directory_, journal_;
   Bench::BareDump dump_{ Bench::BareDump::Of::counters };
   std::vector< std::string > names_;
   std::vector< Bench::BareDump::Counts > counts_;
   std::vector< Record > records_;       ///< by the indices of links
   std::vector< Agent::Sample > column_; ///< the same
   const Agent::SampleBlock block_;
   double now_ = 1.7e9;
   std::size_t next_ = 0, ticks_ = 0;
};

void floorOf( benchmark::State & state ) {
   PlainAgent agent;
   for ( auto _ : state )
      if ( !agent.tick() )
         return state.SkipWithError( "links are missing, or a file cannot be written" );
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
   state.SetLabel( "at most 6 x" );
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
   benchmark::RegisterBenchmark( ( row + "/floor" ).c_str(), floorOf )
      ->Iterations( 10 * periods )
      ->MeasureProcessCPUTime();
   benchmark::RegisterBenchmark( ( row + "/ours" ).c_str(), ours )
      ->Iterations( periods )
      ->MeasureProcessCPUTime();
   benchmark::Initialize( &argc, argv );
   benchmark::RunSpecifiedBenchmarks();
}
