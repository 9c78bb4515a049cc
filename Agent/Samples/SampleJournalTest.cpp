#include "Agent/Samples/SampleJournal.h"

#include "Agent/Samples/KilledWriterTest.h"
#include "Agent/Samples/SampleFileTest.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <random>

namespace {

using Agent::Sample;
using Agent::SampleJournal;

class SampleJournalStory : public Agent::SampleFileTest {
 protected:
   using Names = std::vector< std::string >;

   /// What interfaces carry in a step: each another multiple of what is known by the step.
   static SampleJournal::Rates ratesOf( const Names & names, Vel::U64 step ) {
      SampleJournal::Rates rates;
      for ( std::size_t i = 0; i < names.size(); ++i ) {
         const Sample sample = sampleOf( step + i );
         Interface::IntfRates each;
         each.inBitsRate = static_cast< double >( sample.in );
         each.outBitsRate = static_cast< double >( sample.out );
         rates.emplace_back( Wire::EthIntfId( names[i] ), each );
      }
      return rates;
   }
   std::string add( SampleJournal & journal, Vel::U64 step, const Names & names ) {
      return journal.add( folder.descriptor(), step, ratesOf( names, step ) );
   }
   /// What is in the journal: "0:et1,et2 1:et1", steps from the first on. Every sample has to be the one that was added;
   /// interfaces are those of `all`.
   std::string kept( SampleJournal & journal ) const {
      std::map< Vel::U64, Names > found;
      journal.read( folder.descriptor(), [&]( std::string_view name, const SampleJournal::Steps & samples ) {
         for ( const auto & [step, sample] : samples ) {
            EXPECT_EQ( sampleOf( step + found[step].size() ).in, sample.in );
            EXPECT_EQ( sampleOf( step + found[step].size() ).out, sample.out );
            found[step].emplace_back( name );
         }
      } );
      std::string result;
      for ( const auto & [step, names] : found ) {
         result += ( result.empty() ? "" : " " ) + std::to_string( step - first ) + ":";
         for ( std::size_t i = 0; i < names.size(); ++i )
            result += ( i ? "," : "" ) + names[i];
      }
      return result;
   }
   std::string kept() const {
      SampleJournal journal;
      return kept( journal );
   }
};

TEST_F( SampleJournalStory, keepsWhatWasAddedForTheNextProcess ) {
   SampleJournal journal;
   EXPECT_EQ( "", kept( journal ) );
   ASSERT_EQ( "", add( journal, first, { "et1", "et2" } ) );
   ASSERT_EQ( "", add( journal, first + 2, { "et1", "et2" } ) );
   EXPECT_EQ( "0:et1,et2 2:et1,et2", kept() );
}

TEST_F( SampleJournalStory, keepsTheMinuteThatGoesOnAndTheOneBefore ) {
   SampleJournal journal;
   for ( Vel::U64 step = first; step < first + 38; ++step )
      ASSERT_EQ( "", add( journal, step, { "et1" } ) );
   EXPECT_EQ(
      "24:et1 25:et1 26:et1 27:et1 28:et1 29:et1 30:et1 31:et1 32:et1 33:et1 34:et1 35:et1 36:et1 37:et1",
      kept() );
}

TEST_F( SampleJournalStory, takesInterfacesThatComeAndGo ) {
   SampleJournal journal;
   ASSERT_EQ( "", add( journal, first, {} ) );
   ASSERT_EQ( "", add( journal, first + 1, { "et1" } ) );
   ASSERT_EQ( "", add( journal, first + 2, { "et2", "et1" } ) );
   ASSERT_EQ( "", add( journal, first + 3, { "et2", "et1" } ) );
   ASSERT_EQ( "", add( journal, first + 4, { std::string( 27, 'x' ) } ) );
   EXPECT_EQ( "1:et1 2:et2,et1 3:et2,et1 4:" + std::string( 27, 'x' ), kept() );
}

TEST_F( SampleJournalStory, writesNamesOnceAMinuteAndOtherwiseSamplesOnly ) {
   SampleJournal journal;
   Names names;
   for ( int i = 0; i < 100; ++i )
      names.push_back( "et" + std::to_string( i ) );
   ASSERT_EQ( "", add( journal, first, names ) );
   const std::size_t begun = size( "present.1" );
   ASSERT_EQ( "", add( journal, first + 1, names ) );
   EXPECT_EQ( begun + 24 + 100 * sizeof( Sample ), size( "present.1" ) );
}

TEST_F( SampleJournalStory, goesOnInTheMinuteInWhichAProcessHasEnded ) {
   for ( Vel::U64 step = first + 10; step < first + 16; ++step ) {
      SampleJournal journal;
      kept( journal );
      ASSERT_EQ( "", add( journal, step, { "et1" } ) );
   }
   EXPECT_EQ( "10:et1 11:et1 12:et1 13:et1 14:et1 15:et1", kept() );
}

TEST_F( SampleJournalStory, whatIsOfAnEarlierMinuteIsNotTakenForThisOnes ) {
   SampleJournal journal;
   for ( Vel::U64 step = first; step < first + 12; ++step )
      ASSERT_EQ( "", add( journal, step, { "et1" } ) );
   // Columns of the same names lie behind it, where the next ones will be.
   ASSERT_EQ( "", add( journal, first + 24, { "et1" } ) );
   EXPECT_EQ( "24:et1", kept() );
}

TEST_F( SampleJournalStory, aFileThatIsCutOffAnywhereKeepsWhatIsWholeAndGoesOn ) {
   SampleJournal journal;
   for ( Vel::U64 step = first; step < first + 3; ++step )
      ASSERT_EQ( "", add( journal, step, { "et1", "et2" } ) );
   const std::string whole = bytes( "present.1" );
   for ( std::size_t length = 0; length < whole.size(); ++length ) {
      SCOPED_TRACE( length );
      bytesAre( "present.1", whole.substr( 0, length ) );
      SampleJournal next;
      const std::string left = kept( next );
      ASSERT_EQ( 0u, std::string( "0:et1,et2 1:et1,et2 2:et1,et2" ).find( left ) ) << left;
      ASSERT_EQ( "", add( next, first + 5, { "et1" } ) );
      ASSERT_EQ( left + ( left.empty() ? "5:et1" : " 5:et1" ), kept() );
   }
}

TEST_F( SampleJournalStory, garbageIsNeverShown ) {
   SampleJournal journal;
   for ( Vel::U64 step = first; step < first + 12; ++step )
      ASSERT_EQ( "", add( journal, step, { "et1", "et2" } ) );
   const std::string whole = bytes( "present.1" );
   std::mt19937 seeded( 1 );
   for ( int round = 0; round < 300; ++round ) {
      std::string spoilt = whole;
      const std::size_t at = seeded() % whole.size();
      for ( std::size_t i = at; i < std::min( whole.size(), at + 1 + seeded() % 40 ); ++i )
         spoilt[i] = static_cast< char >( seeded() );
      bytesAre( "present.1", spoilt );
      // Each sample that is shown is compared with the one that was added.
      kept();
   }
   bytesAre( "present.0", whole );
   bytesAre( "present.1", "" );
   EXPECT_EQ( "", kept() ) << "it is not the file of such minutes";
}

TEST_F( SampleJournalStory, aFileThatIsRemovedWhileItIsUsedBeginsAnew ) {
   SampleJournal journal;
   ASSERT_EQ( "", add( journal, first, { "et1" } ) );
   ASSERT_EQ( 0, unlinkat( folder.descriptor(), "present.1", 0 ) );
   ASSERT_EQ( "", add( journal, first + 1, { "et1" } ) );
   ASSERT_EQ( "", add( journal, first + 2, { "et1" } ) );
   EXPECT_EQ( "1:et1 2:et1", kept() );
}

TEST_F( SampleJournalStory, saysWhatCannotBeWrittenAndGoesOn ) {
   SampleJournal journal;
   ASSERT_EQ( 0, mkdirat( folder.descriptor(), "present.1", 0755 ) );
   EXPECT_EQ( "present.1: Is a directory", add( journal, first, { "et1" } ) );
   ASSERT_EQ( 0, unlinkat( folder.descriptor(), "present.1", AT_REMOVEDIR ) );
   ASSERT_EQ( 0, symlinkat( "elsewhere", folder.descriptor(), "present.1" ) );
   EXPECT_NE( "", add( journal, first + 1, { "et1" } ) );
   EXPECT_FALSE( folder.has( "elsewhere" ) );
   ASSERT_EQ( 0, unlinkat( folder.descriptor(), "present.1", 0 ) );
   EXPECT_EQ( "", add( journal, first + 2, { "et1" } ) );
   EXPECT_EQ( "2:et1", kept() );
}

TEST_F( SampleJournalStory, aProcessThatIsKilledAtAnyMomentLosesNothingThatItHasAdded ) {
   Names names;
   for ( int i = 0; i < 500; ++i )
      names.push_back( "et" + std::to_string( i ) );
   std::mt19937 seeded( 1 );
   Vel::U64 step = first;
   for ( int round = 0; round < 60; ++round ) {
      const auto added = lastOfAKilledWriter( step, 1 + seeded() % 30, [&] {
         const auto journal = std::make_shared< SampleJournal >();
         journal->read( folder.descriptor(), []( std::string_view, const SampleJournal::Steps & ) {} );
         return [&, journal]( Vel::U64 next ) {
            // Now and then with other names.
            names.resize( next % 5 == 0 ? 499 : 500, "other" );
            return add( *journal, next, names ).empty();
         };
      } );
      ASSERT_TRUE( added );
      std::map< Vel::U64, std::size_t > found;
      SampleJournal journal;
      journal.read( folder.descriptor(), [&]( std::string_view, const SampleJournal::Steps & samples ) {
         for ( const auto & [at, sample] : samples )
            ASSERT_EQ( sampleOf( at + found[at]++ ).in, sample.in );
      } );
      for ( Vel::U64 at = std::max( step, *added / 12 * 12 - 12 ); at <= *added; ++at )
         ASSERT_EQ( at % 5 == 0 ? 499u : 500u, found[at] ) << round << ": " << *added - at;
      step = *added + 2;
   }
}

} // namespace
