#include "Agent/Samples/SampleFileTest.h"

#include "Agent/Samples/KilledWriterTest.h"
#include "Agent/Samples/SampleFolder.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <random>

namespace {

using Agent::fineRing;
using Agent::minuteRing;
using Agent::Sample;
using Agent::SampleFile;

using SampleFileStory = Agent::SampleFileTest;

TEST_F( SampleFileStory, whatIsAddedIsReadBeforeAndAfterItIsWritten ) {
   SampleFile file( "et1" );
   file.add( first, sampleOf( first ) );
   EXPECT_TRUE( file.waits() );
   EXPECT_EQ( "0", known( file, fineRing, first, 3 ) );
   ASSERT_EQ( "", file.write( folder.descriptor() ) );
   EXPECT_FALSE( file.waits() );
   EXPECT_EQ( "0", known( file, fineRing, first, 3 ) );
   file.add( first + 2, sampleOf( first + 2 ) );
   EXPECT_EQ( "0 2", known( file, fineRing, first, 3 ) );
   EXPECT_EQ( "0", known( SampleFile( "et1" ), fineRing, first, 3 ) ) << "it is not written yet";
   ASSERT_EQ( "", file.write( folder.descriptor() ) );
   EXPECT_EQ( "0 2", known( SampleFile( "et1" ), fineRing, first, 3 ) );
   EXPECT_EQ( 94080u, size( "et1.samples" ) );
}

TEST_F( SampleFileStory, keepsAnHourOfSamplesAndAWeekOfMinutes ) {
   fill( first, weekOfSteps + 24001 );
   const Vel::U64 end = first + weekOfSteps + 24000;
   SampleFile file( "et1" );
   EXPECT_EQ( 720u, count( file, fineRing, end - 720, 720 ) );
   EXPECT_LE( count( file, fineRing, end - 2000, 2000 ), 732u );
   EXPECT_EQ( weekOfSteps / 12, count( file, minuteRing, ( end - weekOfSteps ) / 12, weekOfSteps / 12 ) );
   EXPECT_LE( count( file, minuteRing, first / 12, weekOfSteps / 12 + 2000 ), weekOfSteps / 12 + 15 );
   EXPECT_EQ( 94080u, size( "et1.samples" ) );
}

TEST_F( SampleFileStory, aMinuteIsTheMeanOfItsKnownSamples ) {
   SampleFile file( "et1" );
   file.add( first + 1, { 10, 1 } );
   file.add( first + 5, { 20, 2 } );
   std::vector< Sample > minute( 1 );
   file.read( folder.descriptor(), minuteRing, first / 12, minute );
   EXPECT_EQ( 15, minute[0].in ) << "of what there is of the minute that goes on";
   ASSERT_EQ( "", file.write( folder.descriptor() ) );
   file.add( first + 11, { 60, 6 } );
   file.read( folder.descriptor(), minuteRing, first / 12, minute );
   EXPECT_EQ( 30, minute[0].in );
   file.add( first + 12, { 1, 1 } );
   ASSERT_EQ( "", file.write( folder.descriptor() ) );
   SampleFile( "et1" ).read( folder.descriptor(), minuteRing, first / 12, minute );
   EXPECT_EQ( 30, minute[0].in );
   EXPECT_EQ( 3, minute[0].out );
}

TEST_F( SampleFileStory, aMinuteInWhichTheProcessHasEndedGoesOnWithTheNext ) {
   fill( first, 4 );
   fill( first + 8, 4 );
   EXPECT_EQ( "0 1 2 3 8 9 10 11", known( SampleFile( "et1" ), fineRing, first, 12 ) );
   fill( first + 12, 1 );
   EXPECT_EQ( "0", known( SampleFile( "et1" ), minuteRing, first / 12, 3, 1 ) );
}

TEST_F( SampleFileStory, aMinuteInWhichTheProcessHasEndedIsWrittenByTheNextHoweverLate ) {
   fill( first, 4 );
   fill( first + 600, 1 );
   EXPECT_EQ( "0", known( SampleFile( "et1" ), minuteRing, first / 12, 50, 1 ) );
}

TEST_F( SampleFileStory, aMinuteAfterWhichThereAreNoSamplesIsWrittenInTheEnd ) {
   SampleFile file( "et1" );
   EXPECT_EQ( "", file.finish( folder.descriptor() ) ) << "there is nothing to finish";
   file.add( first, sampleOf( first ) );
   ASSERT_EQ( "", file.write( folder.descriptor() ) );
   EXPECT_EQ( "", known( SampleFile( "et1" ), minuteRing, first / 12, 1, 1 ) );
   ASSERT_EQ( "", file.finish( folder.descriptor() ) );
   EXPECT_EQ( "0", known( SampleFile( "et1" ), minuteRing, first / 12, 1, 1 ) );
}

TEST_F( SampleFileStory, whatIsLeftOfAnEarlierLapIsNotShown ) {
   fill( first, 720 );
   // The places of the next hour are still those of the hour before.
   EXPECT_EQ( "", known( SampleFile( "et1" ), fineRing, first + 732, 720 ) );
   fill( first + 61 * 12 * 3 + 5, 1 );
   EXPECT_EQ( "5", known( SampleFile( "et1" ), fineRing, first + 61 * 12 * 3, 720 ) );
}

TEST_F( SampleFileStory, whatIsNotLaterIsNotTaken ) {
   SampleFile file( "et1" );
   file.add( first + 1, { 1, 1 } );
   file.add( first + 1, { 2, 2 } );
   file.add( first, { 3, 3 } );
   EXPECT_EQ( first + 1, file.lastStep() );
   std::vector< Sample > samples( 2 );
   file.read( folder.descriptor(), fineRing, first, samples );
   EXPECT_FALSE( samples[0].known() );
   EXPECT_EQ( 1, samples[1].in );
}

TEST_F( SampleFileStory, saysBehindWhatItHoldsNothing ) {
   EXPECT_FALSE( SampleFile( "et1" ).newest( folder.descriptor() ) );
   fill( first, 30 );
   const auto newest = SampleFile( "et1" ).newest( folder.descriptor() );
   ASSERT_TRUE( newest );
   EXPECT_GE( *newest, first + 30 );
   EXPECT_LE( *newest, first + 30 + 180 );
}

TEST_F( SampleFileStory, writesWhatIsOfTheTimeBeforeAStepAndKeepsTheRest ) {
   SampleFile file( "et1" );
   for ( Vel::U64 step = first; step < first + 15; ++step )
      file.add( step, sampleOf( step ) );
   EXPECT_FALSE( file.waits( first ) );
   EXPECT_TRUE( file.waits( first + 12 ) );
   ASSERT_EQ( "", file.write( folder.descriptor(), first + 12 ) );
   EXPECT_FALSE( file.waits( first + 12 ) );
   EXPECT_TRUE( file.waits() );
   EXPECT_EQ( 12u, count( SampleFile( "et1" ), fineRing, first, 30 ) );
   EXPECT_EQ( 15u, count( file, fineRing, first, 30 ) );
   EXPECT_EQ( "0 1", known( file, minuteRing, first / 12, 3, true ) );
}

TEST_F( SampleFileStory, whatWasKeptElsewhereAndIsOldDoesNotReplaceWhatHasBeenWrittenSince ) {
   // Its place in the ring is that of the newest block.
   const Vel::U64 old = first + Vel::U64( 2000 ) / 12 * 12 - Vel::U64( fineRing.blocks ) * 12;
   fill( first + 1992, 12 );
   SampleFile file( "et1" );
   file.add( old, sampleOf( old ) );
   ASSERT_EQ( "", file.write( folder.descriptor() ) );
   EXPECT_EQ( 12u, count( SampleFile( "et1" ), fineRing, first + 1992, 12 ) );
   // What belongs to the last minute of the file is added to it.
   SampleFile next( "et1" );
   next.add( first + 2004, sampleOf( first + 2004 ) );
   ASSERT_EQ( "", next.write( folder.descriptor() ) );
   EXPECT_EQ( 13u, count( SampleFile( "et1" ), fineRing, first + 1992, 30 ) );
}

TEST_F( SampleFileStory, readsAnyRangeAlsoOverTheEndOfARing ) {
   fill( first, weekOfSteps );
   const Vel::U64 end = first + weekOfSteps;
   // Some of these ranges go over the end of the ring.
   for ( const Vel::U64 begin : { end - 720, end - 300, end - 61, end - 12 } ) {
      SCOPED_TRACE( end - begin );
      EXPECT_EQ( std::min< Vel::U64 >( 60, end - begin ), count( SampleFile( "et1" ), fineRing, begin, 60 ) );
      EXPECT_EQ( 1u, count( SampleFile( "et1" ), fineRing, begin, 1 ) );
   }
   for ( Vel::U64 begin = ( end - weekOfSteps ) / 12; begin + 700 < end / 12; begin += 500 )
      EXPECT_EQ( 700u, count( SampleFile( "et1" ), minuteRing, begin, 700 ) ) << begin;
}

// ---- damage

TEST_F( SampleFileStory, aFileThatIsCutOffAnywhereKeepsWhatIsLeftAndIsMended ) {
   fill( first, weekOfSteps );
   const std::string whole = bytes( "et1.samples" );
   const Vel::U64 end = first + weekOfSteps;
   std::vector< std::size_t > lengths;
   for ( std::size_t length = 0; length < whole.size(); ++length )
      if ( length < 300 || ( length / 128 % 9 == 0 && ( length % 128 < 2 || length % 128 == 127 ) ) )
         lengths.push_back( length );
   for ( const std::size_t length : lengths ) {
      SCOPED_TRACE( length );
      bytesAre( "et1.samples", whole.substr( 0, length ) );
      const std::size_t blocks = length / 128;
      const auto minutes =
         count( SampleFile( "et1" ), minuteRing, ( end - weekOfSteps ) / 12, weekOfSteps / 12 );
      const std::size_t left = blocks > 62 ? blocks - 62 : 0;
      // One block of the ring has not been in use yet.
      ASSERT_LE( minutes, left * 15 );
      ASSERT_GE( minutes + 15 + 15, left * 15 );
      if ( length % 5 )
         continue;
      SampleFile file( "et1" );
      file.add( end + 12, sampleOf( end + 12 ) );
      ASSERT_EQ( "", file.write( folder.descriptor() ) );
      ASSERT_EQ( whole.size(), size( "et1.samples" ) );
      ASSERT_EQ( whole.substr( 0, 128 ), bytes( "et1.samples" ).substr( 0, 128 ) );
      ASSERT_EQ( "0", known( SampleFile( "et1" ), fineRing, end + 12, 1 ) );
      ASSERT_GE(
         count( SampleFile( "et1" ), minuteRing, ( end - weekOfSteps ) / 12, weekOfSteps / 12 ) + 30,
         minutes );
   }
}

TEST_F( SampleFileStory, garbageCostsTheBlocksThatItHitsAndIsNeverShown ) {
   fill( first, weekOfSteps );
   const std::string whole = bytes( "et1.samples" );
   const Vel::U64 begin = first / 12;
   const std::size_t before = count( SampleFile( "et1" ), minuteRing, begin, weekOfSteps / 12 );
   std::mt19937 seeded( 1 );
   for ( int round = 0; round < 200; ++round ) {
      const std::size_t at = seeded() % whole.size();
      const std::size_t length = 1 + seeded() % ( round % 2 ? 5000 : 8 );
      SCOPED_TRACE( testing::Message() << round << ": " << length << " bytes at " << at );
      std::string spoilt = whole;
      for ( std::size_t i = at; i < std::min( at + length, whole.size() ); ++i )
         spoilt[i] = static_cast< char >( seeded() );
      bytesAre( "et1.samples", spoilt );
      // Each sample that is shown is compared with the one that was added.
      ASSERT_GE(
         count( SampleFile( "et1" ), minuteRing, begin, weekOfSteps / 12 ) + ( length / 128 + 2 ) * 15,
         before );
      count( SampleFile( "et1" ), fineRing, first + weekOfSteps - 720, 720 );
   }
}

TEST_F( SampleFileStory, anythingElseUnderTheNameIsOverwrittenAndNotShown ) {
   std::mt19937 seeded( 1 );
   std::string noise( 200000, '\0' );
   for ( char & byte : noise )
      byte = static_cast< char >( seeded() );
   for ( const std::string & found : { std::string( "text" ), noise, std::string( 94080, '\0' ) } ) {
      bytesAre( "et1.samples", found );
      EXPECT_EQ( "", known( SampleFile( "et1" ), fineRing, first, 720 ) );
      fill( first, 1 );
      EXPECT_EQ( "0", known( SampleFile( "et1" ), fineRing, first, 720 ) );
      EXPECT_EQ( 94080u, size( "et1.samples" ) );
   }
}

TEST_F( SampleFileStory, theFileOfAnotherInterfaceIsNotTakenForThisOnes ) {
   fill( first, 30 );
   bytesAre( "et2.samples", bytes( "et1.samples" ) );
   EXPECT_EQ( 0u, count( SampleFile( "et2" ), fineRing, first, 30 ) );
}

TEST_F( SampleFileStory, aFileThatIsRemovedOrCutOffWhileItIsUsedComesBack ) {
   SampleFile file( "et1" );
   file.add( first, sampleOf( first ) );
   ASSERT_EQ( "", file.write( folder.descriptor() ) );
   ASSERT_EQ( 0, unlinkat( folder.descriptor(), "et1.samples", 0 ) );
   file.add( first + 1, sampleOf( first + 1 ) );
   ASSERT_EQ( "", file.write( folder.descriptor() ) );
   EXPECT_EQ( "0 1", known( SampleFile( "et1" ), fineRing, first, 3 ) );
   bytesAre( "et1.samples", "" );
   file.add( first + 2, sampleOf( first + 2 ) );
   ASSERT_EQ( "", file.write( folder.descriptor() ) );
   EXPECT_EQ( "0 1 2", known( SampleFile( "et1" ), fineRing, first, 3 ) );
   EXPECT_EQ( 94080u, size( "et1.samples" ) );
}

TEST_F( SampleFileStory, whatCannotBeWrittenWaitsTwoMinutesAndIsReadAllTheSame ) {
   ASSERT_EQ( 0, mkdirat( folder.descriptor(), "et1.samples", 0755 ) );
   SampleFile file( "et1" );
   for ( Vel::U64 step = first; step < first + 30; ++step ) {
      file.add( step, sampleOf( step ) );
      ASSERT_EQ( "et1.samples: Is a directory", file.write( folder.descriptor() ) );
   }
   EXPECT_EQ( 24u, count( file, fineRing, first, 30 ) );
   ASSERT_EQ( 0, unlinkat( folder.descriptor(), "et1.samples", AT_REMOVEDIR ) );
   ASSERT_EQ( "", file.write( folder.descriptor() ) );
   EXPECT_EQ( 24u, count( SampleFile( "et1" ), fineRing, first, 30 ) );
   EXPECT_EQ( "0 1", known( SampleFile( "et1" ), minuteRing, first / 12, 2, true ) );
}

TEST_F( SampleFileStory, whatIsNoFileIsLeftAlone ) {
   ASSERT_EQ( 0, mkfifoat( folder.descriptor(), "et1.samples", 0644 ) );
   ASSERT_EQ( 0, symlinkat( "elsewhere", folder.descriptor(), "et2.samples" ) );
   SampleFile fifo( "et1" ), link( "et2" );
   for ( SampleFile * file : { &fifo, &link } ) {
      file->add( first, sampleOf( first ) );
      EXPECT_NE( "", file->write( folder.descriptor() ) );
   }
   EXPECT_FALSE( folder.has( "elsewhere" ) );
}

TEST_F( SampleFileStory, withoutRoomNothingIsLeftOfANewFile ) {
   const auto handler = std::signal( SIGXFSZ, SIG_IGN );
   rlimit before{};
   getrlimit( RLIMIT_FSIZE, &before );
   const rlimit small{ 1000, before.rlim_max };
   setrlimit( RLIMIT_FSIZE, &small );
   SampleFile file( "et1" );
   file.add( first, sampleOf( first ) );
   const std::string problem = file.write( folder.descriptor() );
   setrlimit( RLIMIT_FSIZE, &before );
   std::signal( SIGXFSZ, handler );
   EXPECT_EQ( "et1.samples: File too large", problem );
   EXPECT_FALSE( folder.has( "et1.samples" ) );
   EXPECT_EQ( "", file.write( folder.descriptor() ) ) << "there is room again";
   EXPECT_EQ( "0", known( SampleFile( "et1" ), fineRing, first, 1 ) );
}

TEST_F( SampleFileStory, aProcessThatIsKilledAtAnyMomentLosesNothingThatItHasWritten ) {
   std::mt19937 seeded( 1 );
   Vel::U64 step = first;
   for ( int round = 0; round < 60; ++round ) {
      const auto written = lastOfAKilledWriter( step, 1 + seeded() % 100, [this] {
         return [this, file = SampleFile( "et1" )]( Vel::U64 next ) mutable {
            file.add( next, sampleOf( next ) );
            return file.write( folder.descriptor() ).empty();
         };
      } );
      ASSERT_TRUE( written );
      const Vel::U64 steps = std::min< Vel::U64 >( *written - step + 1, 720 );
      ASSERT_EQ( steps, count( SampleFile( "et1" ), fineRing, *written + 1 - steps, steps ) ) << round;
      if ( steps >= 36 ) {
         const auto minutes = steps / 12 - 2;
         ASSERT_EQ( minutes, count( SampleFile( "et1" ), minuteRing, *written / 12 - minutes, minutes ) )
            << round;
      }
      step = *written + 2;
   }
}

// ---- names

TEST_F( SampleFileStory, eachNameHasAFileOfItsOwnWhateverItsBytes ) {
   for ( const std::string & name :
         { std::string( "et1" ), std::string( "." ), std::string( ".." ), std::string( "a b" ),
           std::string( "%41" ), std::string( "A" ), std::string( "\xff\n\t" ), std::string( "<script>" ),
           std::string( "../up" ) } ) {
      const std::string file = SampleFile::fileName( name );
      EXPECT_EQ( std::string::npos, file.find( '/' ) ) << file;
      EXPECT_NE( '%', file[0] == '.' ? '.' : 'x' ) << file;
      EXPECT_EQ( name, SampleFile::interfaceOf( file ) );
   }
   EXPECT_EQ( "%2541.samples", SampleFile::fileName( "%41" ) );
   for ( const char * other :
         { "time", "time.new", "a b.samples", "%4.samples", "%zz.samples", "et1.samples.new" } )
      EXPECT_FALSE( SampleFile::interfaceOf( other ) ) << other;
}

} // namespace
