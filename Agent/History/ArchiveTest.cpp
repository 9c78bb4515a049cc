#include "Agent/History/HistoryRig.h"
#include "Api/Error.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cmath>
#include <fstream>
#include <set>

namespace Agent {

namespace {

using nlohmann::json;

struct ArchiveTest : testing::Test {
   json record( Vel::U32 id ) { return json::parse( rig.text( id ) ); }
   json list( const std::string & unit = "", std::size_t limit = 1000 ) {
      return json::parse( rig.archive->list( unit, limit ) );
   }
   bool filed( Vel::U32 id ) { return std::filesystem::exists( rig.path( id ) ); }
   /// The text of a file; nothing if it cannot be read.
   std::optional< std::string > content( const std::string & path ) {
      auto file = FilePieces::open( path );
      if ( !file )
         return std::nullopt;
      std::string whole;
      for ( auto piece = file->next(); !piece || !piece->empty(); piece = file->next() ) {
         if ( !piece )
            return std::nullopt;
         whole += *piece;
      }
      return whole;
   }
   std::set< std::string > files() {
      std::set< std::string > names;
      for ( const auto & entry : std::filesystem::directory_iterator( rig.folder + "/history" ) )
         names.insert( entry.path().filename() );
      return names;
   }
   /// Interfaces p0, p1, ... that are watched.
   void many( Vel::U32 count ) {
      for ( Vel::U32 i = 0; i < count; ++i ) {
         const Wire::IntfId intf = Wire::EthIntfId( Vel::text( "p", i ) );
         rig.member( intf );
         rig.monIntfs->monIntfStatusIs( intf, "fast", rig.now() );
      }
   }
   /// A maintenance of et1 that has ended, and is not filed yet.
   void closed() {
      rig.enter();
      rig.watch( rig.et1 );
      rig.drain( rig.et1 );
      rig.exit();
      rig.normal();
   }

   HistoryRig rig;
};

TEST_F( ArchiveTest, closedRecordBecomesAFileAndASummary ) {
   closed();
   EXPECT_FALSE( filed( 1 ) );
   const std::string open = rig.text( 1 );
   rig.clock->runUntilIdle();
   EXPECT_TRUE( filed( 1 ) );
   EXPECT_EQ( 0u, rig.dir->records() );
   ASSERT_EQ( 1u, rig.dir->summarys() );
   EXPECT_EQ( open, rig.text( 1 ) );
   EXPECT_EQ( open, content( rig.path( 1 ) ) );
}

TEST_F( ArchiveTest, timesOfWhatIsFiledAreWallTime ) {
   const double began = rig.now();
   closed();
   rig.clock->runUntilIdle();
   EXPECT_EQ( began + HistoryRig::wallOffset, rig.dir->summary( 1 )->began() );
}

TEST_F( ArchiveTest, crashBeforeTheFileIsWrittenFilesItAtTheNextStart ) {
   closed();
   const std::string before = rig.text( 1 );
   rig.stop();
   rig.start();
   EXPECT_EQ( before, content( rig.path( 1 ) ) );
   EXPECT_EQ( 1u, rig.dir->summarys() );
}

TEST_F( ArchiveTest, crashAfterTheFileIsWrittenEndsInTheSame ) {
   closed();
   while ( !filed( 1 ) )
      rig.clock->runTurn();
   const std::string before = *content( rig.path( 1 ) );
   rig.stop();
   // What the turn had written is lost, its file is not.
   rig.dir->summaryDelAll();
   rig.start();
   EXPECT_EQ( before, content( rig.path( 1 ) ) );
   EXPECT_EQ( 1u, rig.dir->summarys() );
   EXPECT_EQ( 0u, rig.dir->records() );
}

TEST_F( ArchiveTest, unfinishedFilesAreRemovedAtTheNextStartAndNoOthers ) {
   rig.maintenance();
   rig.stop();
   for ( const char * name :
         { "77.json", "1.json.new", "notes.json", "7x.json", "readme", "9999999999.json" } )
      std::ofstream( rig.folder + "/history/" + name ) << "{}";
   rig.start();
   EXPECT_EQ(
      ( std::set< std::string >{
         "1.json", "77.json", "7x.json", "9999999999.json", "notes.json", "readme" } ),
      files() );
   EXPECT_EQ( 77u, rig.dir->lastId() );
}

TEST_F( ArchiveTest, newStoreTakesInTheFilesOfTheOldOne ) {
   closed();
   rig.clock->runUntilIdle();
   rig.maintenance();
   const json before = list();
   const std::string text = rig.text( 1 );
   rig.stop();
   rig.forgetAll();
   rig.start();
   EXPECT_EQ( before, list() );
   EXPECT_EQ( text, rig.text( 1 ) );
   rig.enter();
   EXPECT_TRUE( rig.dir->record( 3 ) ) << "an id was given that is that of a file";
}

TEST_F( ArchiveTest, idsAreNotThoseOfFilesAlsoIfAUnitIsUnderWayWhenTheStoreIsNew ) {
   rig.maintenance();
   rig.state( Maintenance::Unit::UnitState::maintenance, "ann", "upgrade" );
   rig.stop();
   rig.forgetAll();
   rig.start();
   ASSERT_EQ( 1u, rig.dir->records() );
   EXPECT_EQ( "upgrade", rig.record( 2 ).reason() );
   EXPECT_EQ( 2u, list().size() );
}

TEST_F( ArchiveTest, newStoreKeepsNoMoreFilesThanAnOldOne ) {
   for ( Vel::U32 i = 0; i < HistoryDir::mostFinished; ++i )
      rig.maintenance();
   rig.stop();
   std::filesystem::copy( rig.path( 1 ), rig.path( 1000 ) );
   rig.forgetAll();
   rig.start();
   EXPECT_EQ( HistoryDir::mostFinished, rig.dir->summarys() );
   // What it says is not what it is called after.
   EXPECT_TRUE( filed( 1000 ) );
   EXPECT_TRUE( filed( 1 ) );
   rig.maintenance();
   EXPECT_TRUE( filed( 1001 ) );
   EXPECT_FALSE( filed( 1 ) );
}

TEST_F( ArchiveTest, fileWhoseSummaryIsForgottenIsRemovedOnceThatIsCommitted ) {
   for ( Vel::U32 i = 0; i < HistoryDir::mostFinished; ++i )
      rig.maintenance();
   rig.storing = false;
   rig.maintenance();
   EXPECT_FALSE( rig.dir->summary( 1 ) );
   EXPECT_TRUE( filed( 1 ) );
   rig.stored();
   EXPECT_FALSE( filed( 1 ) );
}

TEST_F( ArchiveTest, fileThatACrashHasLeftIsRemovedAtTheNextStart ) {
   for ( Vel::U32 i = 0; i < HistoryDir::mostFinished; ++i )
      rig.maintenance();
   rig.storing = false;
   rig.maintenance();
   rig.stop();
   rig.whenStored.clear();
   rig.start();
   EXPECT_FALSE( filed( 1 ) );
   EXPECT_EQ( HistoryDir::mostFinished, rig.dir->summarys() );
}

TEST_F( ArchiveTest, fileThatBearsTheIdOfAnOpenRecordIsMovedAside ) {
   rig.enter();
   rig.stop();
   std::ofstream( rig.path( 1 ) ) << "another's";
   rig.start();
   EXPECT_EQ( "another's", content( rig.path( 1 ) + Archive::othersEnding ) );
   rig.exit();
   rig.normal();
   rig.clock->runUntilIdle();
   EXPECT_EQ( "cancelled", record( 1 ).at( "outcome" ) );
   EXPECT_EQ( "another's", content( rig.path( 1 ) + Archive::othersEnding ) );
}

TEST_F( ArchiveTest, lastOnesAreKeptAndOlderFilesAreRemoved ) {
   for ( Vel::U32 i = 0; i < HistoryDir::mostFinished + 2; ++i )
      rig.maintenance();
   EXPECT_EQ( HistoryDir::mostFinished, rig.dir->summarys() );
   EXPECT_FALSE( filed( 1 ) );
   EXPECT_FALSE( filed( 2 ) );
   EXPECT_TRUE( filed( 3 ) );
   EXPECT_TRUE( filed( HistoryDir::mostFinished + 2 ) );
   EXPECT_THROW( (void)rig.archive->record( 1 ), Api::Error );
}

TEST_F( ArchiveTest, fileThatCannotBeWrittenIsTriedAgainAndTold ) {
   std::filesystem::remove( rig.folder + "/history" );
   std::ofstream( rig.folder + "/history" ) << "in the way";
   closed();
   rig.clock->runUntilIdle();
   ASSERT_TRUE( rig.archive->trouble() );
   const double since = rig.now();
   EXPECT_EQ( since, rig.archive->trouble()->since );
   EXPECT_NE( std::string::npos, rig.archive->trouble()->text.find( rig.path( 1 ) ) );
   rig.advance( Archive::againAfter );
   ASSERT_TRUE( rig.archive->trouble() );
   EXPECT_EQ( since, rig.archive->trouble()->since );
   EXPECT_EQ( "cancelled", list().at( 0 ).at( "outcome" ) );
   std::filesystem::remove( rig.folder + "/history" );
   rig.advance( Archive::againAfter );
   EXPECT_FALSE( rig.archive->trouble() );
   EXPECT_TRUE( filed( 1 ) );
}

TEST_F( ArchiveTest, ofTooManyThatWaitForAFileTheOldestGoesWithoutOne ) {
   std::filesystem::remove( rig.folder + "/history" );
   std::ofstream( rig.folder + "/history" ) << "in the way";
   for ( Vel::U32 i = 0; i < Archive::mostWaiting + 2; ++i )
      rig.maintenance();
   EXPECT_EQ( Archive::mostWaiting, rig.dir->records() );
   EXPECT_EQ( 2u, rig.dir->summarys() );
   EXPECT_EQ( Archive::mostWaiting + 2, list().size() );
   EXPECT_THROW( (void)rig.archive->record( 1 ), Api::Error );
}

TEST_F( ArchiveTest, damagedFileIsToldAndNotHandedOn ) {
   rig.maintenance();
   std::ofstream( rig.path( 1 ) ) << "{\"id\":1,";
   try {
      rig.archive->record( 1 );
      ADD_FAILURE() << "it was handed on";
   } catch ( const Api::Error & error ) {
      EXPECT_EQ( Api::ErrorCode::internal, error.code );
      EXPECT_EQ( rig.path( 1 ), error.where );
   }
}

TEST_F( ArchiveTest, fileThatBreaksOffWhileItIsReadIsNotTakenForWhole ) {
   rig.enter();
   many( 300 );
   rig.exit();
   rig.normal();
   rig.clock->runUntilIdle();
   ASSERT_GT( std::filesystem::file_size( rig.path( 1 ) ), 2 * FilePieces::pieceSize );
   const Archive::Pieces pieces = rig.archive->record( 1 );
   EXPECT_EQ( FilePieces::pieceSize, pieces().size() );
   std::filesystem::resize_file( rig.path( 1 ), FilePieces::pieceSize + 10 );
   EXPECT_EQ( 10u, pieces().size() );
   EXPECT_THROW( pieces(), Api::Error );
}

TEST_F( ArchiveTest, listIsNewestFirstAndOfOneUnitIfAskedFor ) {
   rig.maintenance();
   rig.maintenance();
   rig.enter();
   ASSERT_EQ( 3u, list().size() );
   EXPECT_EQ( 3, list().at( 0 ).at( "id" ) );
   EXPECT_EQ( "open", list().at( 0 ).at( "outcome" ) );
   EXPECT_EQ( 1, list().at( 2 ).at( "id" ) );
   EXPECT_EQ( 2u, list( "", 2 ).size() );
   EXPECT_EQ( 3u, list( "u1" ).size() );
   EXPECT_EQ( 0u, list( "u2" ).size() );
   EXPECT_TRUE( rig.archive->hasUnit( "u1" ) );
   EXPECT_FALSE( rig.archive->hasUnit( "u2" ) );
}

TEST_F( ArchiveTest, recordOfAnInterfaceHasItsCurve ) {
   rig.curve = { rig.now() - 60, 5, { 1e6F, NAN, 0.4F }, { 2e6F, NAN, 0 } };
   closed();
   rig.clock->runUntilIdle();
   const json curve = record( 1 ).at( "interfaces" ).at( 0 ).at( "curve" );
   EXPECT_EQ( 5, curve.at( "step-seconds" ) );
   EXPECT_EQ( json::parse( "[1000000,null,0]" ), curve.at( "in-bps" ) );
   EXPECT_EQ( json::parse( "[2000000,null,0]" ), curve.at( "out-bps" ) );
}

TEST_F( ArchiveTest, recordOfManyInterfacesIsFiledAndTakenDownOverSeveralTurns ) {
   rig.curve = { rig.now() - 60, 5, { 1, 2 }, { 3, 4 } };
   rig.enter();
   const Vel::U32 count = 3 * Archive::filedAtOnce + 1;
   many( count );
   rig.exit();
   rig.normal();
   const unsigned before = rig.curvesRead;
   for ( unsigned turn = 1; !filed( 1 ); ++turn ) {
      ASSERT_LT( turn, 10u );
      EXPECT_EQ( 0u, rig.dir->summarys() );
      rig.clock->runTurn();
      EXPECT_LE( rig.curvesRead, before + turn * Archive::filedAtOnce );
   }
   const json whole = record( 1 );
   ASSERT_EQ( count, whole.at( "interfaces" ).size() );
   for ( const json & intf : whole.at( "interfaces" ) )
      EXPECT_EQ( json::parse( "[3,4]" ), intf.at( "curve" ).at( "out-bps" ) );
   EXPECT_EQ( "p0", whole.at( "interfaces" ).at( 0 ).at( "name" ) );
   EXPECT_EQ( "p1", whole.at( "interfaces" ).at( 1 ).at( "name" ) );
   EXPECT_EQ( "p10", whole.at( "interfaces" ).at( 2 ).at( "name" ) );
   // What is left of it is seen by nobody, and goes a part at a time.
   EXPECT_EQ( 1u, list().size() );
   for ( Vel::U32 left = rig.record().intfs(); left > 0; ) {
      rig.clock->runTurn();
      const Vel::U32 now = rig.dir->records() ? rig.record().intfs() : 0;
      EXPECT_LE( left - now, Archive::takenDownAtOnce );
      ASSERT_LT( now, left );
      left = now;
   }
   EXPECT_EQ( 0u, rig.dir->records() );
   EXPECT_EQ( whole, record( 1 ) );
}

TEST_F( ArchiveTest, crashWhileARecordIsTakenDownDoesNotFileWhatIsLeft ) {
   rig.enter();
   many( 2 * Archive::takenDownAtOnce );
   rig.exit();
   rig.normal();
   while ( !rig.dir->summarys() || rig.record().intfs() == 2 * Archive::takenDownAtOnce )
      rig.clock->runTurn();
   const std::string whole = rig.text( 1 );
   rig.stop();
   ASSERT_EQ( Archive::takenDownAtOnce, rig.record().intfs() );
   rig.start();
   EXPECT_EQ( 0u, rig.dir->records() );
   EXPECT_EQ( whole, rig.text( 1 ) );
   EXPECT_EQ( 2 * Archive::takenDownAtOnce, rig.dir->summary( 1 )->intfs() );
}

TEST_F( ArchiveTest, recordThatIsClosedWhileAnotherIsFiledWaitsForIt ) {
   rig.enter();
   many( 2 * Archive::filedAtOnce );
   // One with a lower id, which ends later.
   rig.dir->lastIdIs( 5 );
   HistoryRecord & older = *rig.dir->recordIs( 0, "u0" );
   older.beganIs( rig.now() );
   rig.exit();
   rig.normal();
   rig.clock->runTurn();
   older.outcomeToBeIs( Outcome::aborted );
   older.endedIs( rig.now() );
   rig.clock->runUntilIdle();
   EXPECT_EQ( 2 * Archive::filedAtOnce, record( 1 ).at( "interfaces" ).size() );
   EXPECT_EQ( "cancelled", record( 1 ).at( "outcome" ) );
   EXPECT_EQ( "aborted", record( 0 ).at( "outcome" ) );
   EXPECT_EQ( "aborted", list().at( 1 ).at( "outcome" ) );
}

TEST_F( ArchiveTest, openRecordIsGivenAPieceAtATimeAndReadsNoCurvesInAdvance ) {
   rig.curve = { rig.now() - 60, 5, { 1, 2 }, { 3, 4 } };
   rig.enter();
   many( 300 );
   const unsigned before = rig.curvesRead;
   const Archive::Pieces pieces = rig.archive->record( 1 );
   EXPECT_EQ( before, rig.curvesRead );
   std::string whole;
   unsigned count = 0;
   for ( std::string piece = pieces(); !piece.empty(); piece = pieces() ) {
      EXPECT_LE( rig.curvesRead, before + count++ );
      whole += piece;
   }
   EXPECT_EQ( 300u, json::parse( whole ).at( "interfaces" ).size() );
   EXPECT_FALSE( json::parse( whole ).at( "interfaces" ).at( 299 ).at( "curve" ).is_null() );
}

TEST_F( ArchiveTest, recordCanBeReadToItsEndAlthoughItIsFiledOrForgottenMeanwhile ) {
   rig.enter();
   many( 300 );
   const Archive::Pieces open = rig.archive->record( 1 );
   std::string first = open();
   rig.exit();
   rig.normal();
   rig.clock->runUntilIdle();
   ASSERT_TRUE( filed( 1 ) );
   for ( std::string piece = open(); !piece.empty(); piece = open() )
      first += piece;
   EXPECT_EQ( 300u, json::parse( first ).at( "interfaces" ).size() );
   const std::string whole = rig.text( 1 );
   ASSERT_GT( whole.size(), 2 * FilePieces::pieceSize );
   const Archive::Pieces filedOne = rig.archive->record( 1 );
   std::string second = filedOne();
   EXPECT_EQ( FilePieces::pieceSize, second.size() );
   std::filesystem::remove( rig.path( 1 ) );
   for ( std::string piece = filedOne(); !piece.empty(); piece = filedOne() )
      second += piece;
   EXPECT_EQ( whole, second );
}

TEST_F( ArchiveTest, whatPeopleSayNeedNotBeText ) {
   rig.state( Maintenance::Unit::UnitState::enterInProgress, "ann", "\xFF \" \n" );
   EXPECT_EQ( "\xEF\xBF\xBD \" \n", record( 1 ).at( "reason" ) );
}

SampleCurve curveOf( std::size_t steps, float value ) {
   return { 0, 5, std::vector< float >( steps, value ), std::vector< float >( steps, value ) };
}

TEST( Thinned, shortCurveStaysAsItIs ) { EXPECT_EQ( 300u, thinned( curveOf( 300, 1 ), 300 ).in.size() ); }

TEST( Thinned, longCurveHasLongerSteps ) {
   const SampleCurve curve = thinned( curveOf( 720, 1 ), 300 );
   EXPECT_EQ( 15u, curve.step );
   EXPECT_EQ( 240u, curve.in.size() );
   EXPECT_EQ( 240u, curve.out.size() );
}

TEST( Thinned, spikeOfOneStepIsKept ) {
   SampleCurve curve = curveOf( 720, 0 );
   curve.in[100] = 7;
   curve.out[101] = 9;
   const SampleCurve few = thinned( curve, 300 );
   EXPECT_EQ( 7, few.in[33] );
   EXPECT_EQ( 9, few.out[33] );
}

TEST( Thinned, stepIsUnknownOnlyIfAllOfItIs ) {
   SampleCurve curve = curveOf( 4, NAN );
   curve.in[1] = 3;
   const SampleCurve few = thinned( curve, 2 );
   EXPECT_EQ( 3, few.in[0] );
   EXPECT_TRUE( std::isnan( few.in[1] ) );
}

TEST_F( ArchiveTest, fileIsThereAsAWholeOrStaysAsItWas ) {
   const std::string path = rig.folder + "/some/file";
   const auto written = [&]( const char * text ) {
      WholeFile file( path );
      std::string problem = file.open();
      if ( problem.empty() )
         problem = file.append( text );
      return problem.empty() ? file.finish() : problem;
   };
   EXPECT_EQ( "", written( "first" ) );
   EXPECT_EQ( "", written( "second" ) );
   EXPECT_EQ( "second", content( path ) );
   {
      WholeFile file( path );
      EXPECT_EQ( "", file.open() );
      EXPECT_EQ( "", file.append( "thi" ) );
   }
   EXPECT_EQ( "second", content( path ) );
   EXPECT_FALSE( std::filesystem::exists( path + WholeFile::unfinishedEnding ) );
   std::filesystem::create_directory( path + WholeFile::unfinishedEnding );
   EXPECT_NE( "", written( "third" ) );
   EXPECT_EQ( "second", content( path ) );
   EXPECT_FALSE( content( rig.folder + "/nothing" ) );
   EXPECT_FALSE( content( rig.folder ) );
}

} // namespace

} // namespace Agent
