#include "Agent/Samples/SamplesTest.h"

namespace {

using Agent::SampleCurve;
using Samples = Agent::SamplesTest;

// ---- trouble

TEST_F( Samples, withoutAFolderAreNotKeptAndSayWhy ) {
   std::ofstream( path + "/samples" ) << "a file";
   portIs( et1, 8000 );
   start();
   EXPECT_EQ( path + "/samples: Not a directory", problem() );
   clock->advance( 10 );
   EXPECT_EQ( path + "/samples: Not a directory", problem() );
   EXPECT_EQ( bornAt, samples->problem()->since );
   EXPECT_TRUE( samples->rate( et1 ) ) << "everything else goes on";
   EXPECT_EQ( "", last( "et1", 0 ) );
   std::filesystem::remove( path + "/samples" );
   clock->advance( 10 );
   EXPECT_EQ( "", problem() );
   EXPECT_EQ( "8000/4000", last( "et1", 1 ) );
}

TEST_F( Samples, sayWhichFileCannotBeWrittenUntilItCan ) {
   std::filesystem::create_directories( path + "/samples/et1.samples" );
   portIs( et1, 8000 );
   portIs( et2, 800 );
   start();
   std::string seen;
   samples->whenTicked( [&] { seen += samples->problem() ? '!' : '.'; } );
   clock->advance( 140 );
   EXPECT_EQ( ".............!!!!!!!!!!!!!!!", seen.substr( 0, 28 ) ) << "it does not come and go";
   EXPECT_EQ( path + "/samples/et1.samples: Is a directory", problem() );
   EXPECT_EQ( bornAt + 65, samples->problem()->since );
   EXPECT_EQ( "800/400 800/400", last( "et2", 2 ) );
   EXPECT_EQ( "8000/4000 8000/4000", last( "et1", 2 ) ) << "they are in memory";
   std::filesystem::remove( path + "/samples/et1.samples" );
   clock->advance( 5 );
   EXPECT_EQ( "", problem() );
   stop();
   start();
   EXPECT_EQ( 24, std::ranges::count( last( "et1", 24 ), '/' ) );
}

TEST_F( Samples, ofAnInterfaceThatIsGoneWaitUntilTheyCanBeWritten ) {
   std::filesystem::create_directories( path + "/samples/et1.samples" );
   portIs( et1, 8000 );
   start();
   clock->advance( 30 );
   portIsGone( et1 );
   clock->advance( 300 );
   EXPECT_EQ( path + "/samples/et1.samples: Is a directory", problem() );
   std::filesystem::remove( path + "/samples/et1.samples" );
   clock->advance( 5 );
   EXPECT_EQ( "", problem() );
   EXPECT_TRUE( exists( "et1.samples" ) );
   EXPECT_EQ( 5, std::ranges::count( last( "et1", 80 ), '/' ) );
}

TEST_F( Samples, ofAnInterfaceThatIsGoneWaitAnHourAtMost ) {
   std::filesystem::create_directories( path + "/samples/et1.samples" );
   portIs( et1, 8000 );
   start();
   clock->advance( 30 );
   portIsGone( et1 );
   clock->advance( 3500 );
   EXPECT_EQ( path + "/samples/et1.samples: Is a directory", problem() );
   clock->advance( 200 );
   EXPECT_EQ( "", problem() );
}

TEST_F( Samples, ofAnInterfaceThatIsGoneWaitAnHourAtMostForAFolderThatCannotBeOpened ) {
   portIs( et1, 8000 );
   portIs( et2, 800 );
   start();
   clock->advance( 10 );
   std::filesystem::rename( path + "/samples", path + "/away" );
   std::ofstream( path + "/samples" ) << "a file";
   clock->advance( 30 );
   portIsGone( et1 );
   clock->advance( 3500 );
   EXPECT_TRUE( samples->has( "et1" ) );
   clock->advance( 200 );
   EXPECT_FALSE( samples->has( "et1" ) );
   EXPECT_EQ( "800/400 800/400", last( "et2", 2 ) ) << "one that is there stays";
   EXPECT_EQ( path + "/samples: Not a directory", problem() );
   std::filesystem::remove( path + "/samples" );
   std::filesystem::rename( path + "/away", path + "/samples" );
   clock->advance( 10 );
   EXPECT_EQ( "", problem() );
   EXPECT_EQ( 25, std::ranges::count( last( "et2", 30 ), '/' ) ) << "two minutes, and what has come since";
   EXPECT_FALSE( exists( "et1.samples" ) );
}

TEST_F( Samples, begunAnewWhereSomebodyHasRemovedTheFolder ) {
   portIs( et1, 8000 );
   start();
   clock->advance( 10 );
   std::filesystem::remove_all( path + "/samples" );
   clock->advance( 60 );
   EXPECT_EQ( "", problem() );
   EXPECT_TRUE( exists( "et1.samples" ) );
   EXPECT_EQ( "8000/4000", last( "et1", 1 ) );
}

TEST_F( Samples, waitAMinuteForAFolderThatCannotBeOpened ) {
   portIs( et1, 8000 );
   start();
   clock->advance( 10 );
   std::filesystem::rename( path + "/samples", path + "/away" );
   std::ofstream( path + "/samples" ) << "a file";
   clock->advance( 30 );
   EXPECT_EQ( path + "/samples: Not a directory", problem() );
   EXPECT_EQ( bornAt + 15, samples->problem()->since );
   std::filesystem::remove( path + "/samples" );
   std::filesystem::rename( path + "/away", path + "/samples" );
   clock->advance( 10 );
   EXPECT_EQ( "", problem() );
   stop();
   start();
   EXPECT_EQ( "- 8000/4000 8000/4000 8000/4000", last( "et1", 10 ).substr( 0, 31 ) );
   EXPECT_EQ( 9, std::ranges::count( last( "et1", 10 ), '/' ) );
}

} // namespace
