#include "Platform/FastLog/Pass.h"

#include "Platform/FastLog/ChildTest.h"
#include "Platform/FastLog/State.h"

using namespace FastLog;

namespace {

std::string snapshot() { return { ring().base(), ring().bytes() }; }

void writeLines( unsigned count ) {
   for ( ; count; --count ) {
      const std::uint64_t number = detail::cursor.sequence;
      FASTLOG( "line ", number, " has ", std::string( number % 30, 'x' ), " and ", number * 3 );
   }
}

std::string expectedText( std::uint64_t number ) {
   return "line " + std::to_string( number ) + " has " + std::string( number % 30, 'x' ) + " and " +
          std::to_string( number * 3 );
}

/// A ring whose writer goes on from one state to another during one of the reads: that read gets its first bytes from
/// the one and the others from the other. Words of 8 bytes are never torn, as in the real memory.
class WrittenMeanwhile final : public Source {
 public:
   WrittenMeanwhile(
      const std::string & before, const std::string & after, unsigned during, unsigned eighths )
      : before_( before ), after_( after ), during_( during ), eighths_( eighths ) {}

   void read( std::size_t at, void * out, std::size_t bytes ) const override {
      const std::size_t old = reads_ < during_ ? bytes : reads_ > during_ ? 0 : bytes / 8 * eighths_ / 8 * 8;
      std::memcpy( out, before_.data() + at, old );
      std::memcpy( static_cast< char * >( out ) + old, after_.data() + at + old, bytes - old );
      ++reads_;
   }
   unsigned reads() const { return reads_; }

 private:
   const std::string & before_;
   const std::string & after_;
   unsigned during_;
   unsigned eighths_;
   mutable unsigned reads_ = 0;
};

/// Whether all lines are whole, in order, and without damage.
void expectWhole( const Contents & contents ) {
   ASSERT_EQ( contents.damage, std::vector< std::string >() );
   std::uint64_t last = 0;
   for ( const Line & line : contents.lines ) {
      ASSERT_GT( line.sequence, last );
      last = line.sequence;
      ASSERT_EQ( line.text, expectedText( last ) );
   }
}

} // namespace

TEST( FastLogPass, givesOnlyWholeLinesWhereverTheWriterGoesOn ) {
   inChild( [] {
      constexpr std::uint32_t blocks = 3;
      memoryIs( blocks * blockBytes );
      writeLines( 300 );
      std::size_t seen = 0;
      for ( const unsigned more : { 1u, 3u, 30u, 60u, 100u, 150u, 200u, 500u } ) {
         const std::string before = snapshot();
         const std::uint64_t lastBefore = detail::cursor.sequence - 1;
         writeLines( more );
         const std::string after = snapshot();
         unsigned reads = ~0u;
         for ( unsigned during = 0; during < reads; ++during )
            for ( unsigned eighths = 0; eighths < 8; ++eighths ) {
               SCOPED_TRACE(
                  testing::Message() << more << " lines in read " << during << ", " << eighths << "/8" );
               const WrittenMeanwhile source( before, after, during, eighths );
               const Contents contents = readRing( source, blocks, allLines, 0 );
               expectWhole( contents );
               if ( testing::Test::HasFailure() )
                  return;
               // While less than a block is written, none of the newest lines is missing.
               if ( more <= 30 ) {
                  ASSERT_GE( contents.lines.back().sequence, lastBefore );
               }
               seen += contents.lines.size();
               reads = source.reads();
            }
      }
      EXPECT_GT( seen, 10000u );
   } );
}

TEST( FastLogPass, leavesOutTheBlockThatIsBeingStarted ) {
   inChild( [] {
      constexpr std::uint32_t blocks = 3;
      memoryIs( blocks * blockBytes );
      writeLines( 300 );
      std::string bytes = snapshot();
      const auto whole = readRing( WrittenMeanwhile( bytes, bytes, 0, 0 ), blocks, allLines, 0 );
      const std::size_t slot = 1;
      std::memset(
         bytes.data() + headBytes + siteTableBytes + slot * blockBytes, 0, sizeof( std::uint64_t ) );
      const auto started = readRing( WrittenMeanwhile( bytes, bytes, 0, 0 ), blocks, allLines, 0 );
      expectWhole( started );
      EXPECT_LT( started.lines.size(), whole.lines.size() );
      EXPECT_GT( started.lines.size(), 0u );
   } );
}
