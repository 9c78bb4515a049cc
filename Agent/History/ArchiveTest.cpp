#include "Agent/History/HistoryRig.h"
#include "Agent/History/WholeFile.h"
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
   json record( Vel::U32 id ) { return json::parse( rig.archive->record( id ) ); }
   json list( const std::string & unit = "", std::size_t limit = 1000 ) {
      return json::parse( rig.archive->list( unit, limit ) );
   }
   bool filed( Vel::U32 id ) { return std::filesystem::exists( rig.path( id ) ); }
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
   const std::string open = rig.archive->record( 1 );
   rig.clock->runUntilIdle();
   EXPECT_TRUE( filed( 1 ) );
   EXPECT_EQ( 0u, rig.dir->records() );
   ASSERT_EQ( 1u, rig.dir->summarys() );
   EXPECT_EQ( open, rig.archive->record( 1 ) );
   EXPECT_EQ( open, readWhole( rig.path( 1 ) ) );
}

TEST_F( ArchiveTest, timesOfWhatIsFiledAreWallTime ) {
   const double began = rig.now();
   closed();
   rig.clock->runUntilIdle();
   EXPECT_EQ( began + HistoryRig::wallOffset, rig.dir->summary( 1 )->began() );
}

TEST_F( ArchiveTest, crashBeforeTheFileIsWrittenFilesItAtTheNextStart ) {
   closed();
   const std::string before = rig.archive->record( 1 );
   rig.stop();
   rig.start();
   EXPECT_EQ( before, readWhole( rig.path( 1 ) ) );
   EXPECT_EQ( 1u, rig.dir->summarys() );
}

TEST_F( ArchiveTest, crashAfterTheFileIsWrittenEndsInTheSame ) {
   closed();
   rig.stop();
   const auto whole = Vel::Ptr< HistoryRecord >( &rig.record() );
   rig.start();
   const std::string before = *readWhole( rig.path( 1 ) );
   // What the turn had written is lost, its file is not.
   rig.stop();
   rig.dir->summaryDelAll();
   rig.dir->recordPut( 1, whole );
   rig.start();
   EXPECT_EQ( before, readWhole( rig.path( 1 ) ) );
   EXPECT_EQ( 1u, rig.dir->summarys() );
   EXPECT_EQ( 0u, rig.dir->records() );
}

TEST_F( ArchiveTest, filesThatNobodyKnowsOfAreRemovedAtTheNextStartAndNoOthers ) {
   rig.maintenance();
   rig.stop();
   for ( const char * name : { "77.json", "1.json.new", "notes.json", "7x.json", "readme" } )
      std::ofstream( rig.folder + "/history/" + name ) << "{}";
   rig.start();
   std::set< std::string > names;
   for ( const auto & entry : std::filesystem::directory_iterator( rig.folder + "/history" ) )
      names.insert( entry.path().filename() );
   EXPECT_EQ( ( std::set< std::string >{ "1.json", "7x.json", "notes.json", "readme" } ), names );
}

TEST_F( ArchiveTest, lastOnesAreKeptAndOlderFilesAreRemoved ) {
   for ( Vel::U32 i = 0; i < HistoryDir::mostFinished + 2; ++i )
      rig.maintenance();
   EXPECT_EQ( HistoryDir::mostFinished, rig.dir->summarys() );
   EXPECT_FALSE( filed( 1 ) );
   EXPECT_FALSE( filed( 2 ) );
   EXPECT_TRUE( filed( 3 ) );
   EXPECT_TRUE( filed( HistoryDir::mostFinished + 2 ) );
   EXPECT_THROW( rig.archive->record( 1 ), Api::Error );
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
   EXPECT_THROW( rig.archive->record( 1 ), Api::Error );
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

TEST_F( ArchiveTest, curvesOfManyInterfacesAreReadOverSeveralTurns ) {
   rig.curve = { rig.now() - 60, 5, { 1, 2 }, { 3, 4 } };
   rig.enter();
   const Vel::U32 count = 3 * Archive::curvesAtOnce + 1;
   for ( Vel::U32 i = 0; i < count; ++i ) {
      const Wire::IntfId intf = Wire::EthIntfId( Vel::text( "p", i ) );
      rig.intfToGroup->intfToGroupIs( intf )->groupIs( rig.group );
      rig.monIntfs->monIntfStatusIs( intf, "fast", rig.now() );
   }
   rig.exit();
   rig.normal();
   for ( int turn = 0; turn < 3; ++turn ) {
      rig.clock->runTurn();
      EXPECT_FALSE( filed( 1 ) );
   }
   rig.clock->runTurn();
   ASSERT_TRUE( filed( 1 ) );
   const json whole = record( 1 );
   ASSERT_EQ( count, whole.at( "interfaces" ).size() );
   for ( const json & intf : whole.at( "interfaces" ) )
      EXPECT_EQ( json::parse( "[3,4]" ), intf.at( "curve" ).at( "out-bps" ) );
}

TEST_F( ArchiveTest, recordOfVeryManyInterfacesHasNoCurvesBeforeItIsFiled ) {
   rig.curve = { rig.now() - 60, 5, { 1, 2 }, { 3, 4 } };
   rig.enter();
   for ( Vel::U32 i = 0; i <= Archive::mostLiveCurves; ++i ) {
      const Wire::IntfId intf = Wire::EthIntfId( Vel::text( "p", i ) );
      rig.intfToGroup->intfToGroupIs( intf )->groupIs( rig.group );
      rig.monIntfs->monIntfStatusIs( intf, "fast", rig.now() );
   }
   EXPECT_TRUE( record( 1 ).at( "interfaces" ).at( 0 ).at( "curve" ).is_null() );
   rig.exit();
   rig.normal();
   rig.clock->runUntilIdle();
   EXPECT_FALSE( record( 1 ).at( "interfaces" ).at( 0 ).at( "curve" ).is_null() );
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

TEST( WholeFile, fileIsThereAsAWholeOrStaysAsItWas ) {
   HistoryRig rig;
   const std::string path = rig.folder + "/some/file";
   EXPECT_EQ( "", writeWhole( path, "first" ) );
   EXPECT_EQ( "", writeWhole( path, "second" ) );
   EXPECT_EQ( "second", readWhole( path ) );
   std::filesystem::create_directory( path + unfinishedEnding );
   EXPECT_NE( "", writeWhole( path, "third" ) );
   EXPECT_EQ( "second", readWhole( path ) );
   EXPECT_FALSE( readWhole( rig.folder + "/nothing" ) );
}

} // namespace

} // namespace Agent
