#include "Agent/Samples/SamplesTest.h"

namespace {

using Agent::SampleCurve;
using Samples = Agent::SamplesTest;

// ---- what is over

TEST_F( Samples, ofAnInterfaceThatIsNotConfiguredAnyMoreAreForgottenAfterAWeek ) {
   portIs( et1, 8000 );
   portIs( et2, 800 );
   start();
   clock->advance( 300 );
   intfToGroupDir->intfToGroupDel( et2 );
   goOn( 3 * 86400 );
   EXPECT_TRUE( samples->has( "et2" ) );
   EXPECT_TRUE( exists( "et2.samples" ) );
   goOn( 3 * 86400 );
   EXPECT_TRUE( exists( "et2.samples" ) );
   goOn( 2 * 86400 );
   EXPECT_FALSE( samples->has( "et2" ) );
   EXPECT_FALSE( exists( "et2.samples" ) );
   EXPECT_TRUE( exists( "et1.samples" ) );
}

TEST_F( Samples, areForgottenAtTheStartIfTheyAreOverAWeekOld ) {
   portIs( et1, 8000 );
   portIs( et2, 800 );
   start();
   clock->advance( 300 );
   stop();
   intfToGroupDir->intfToGroupDel( et2 );
   std::ofstream( path + "/samples/other.samples" ) << "of another version";
   std::ofstream( path + "/samples/notes" ) << "of somebody";
   clock->advance( 8 * 86400 );
   wallAhead = -now();
   start();
   clock->advance( 300 );
   EXPECT_FALSE( exists( "et2.samples" ) );
   EXPECT_TRUE( exists( "et1.samples" ) );
   EXPECT_TRUE( exists( "other.samples" ) ) << "it was changed lately";
   stop();
   wallAhead = 4e9;
   start();
   clock->advance( 300 );
   EXPECT_FALSE( exists( "other.samples" ) );
   EXPECT_TRUE( exists( "notes" ) );
}

TEST_F( Samples, ofAnInterfaceThatGoesAwayHaveTheirLastMinute ) {
   portIs( et1, 8000 );
   start();
   clock->advance( 85 );
   statusDir->intfStatusDel( et1 );
   clock->advance( 200 );
   stop();
   start();
   EXPECT_EQ( "8000/4000 8000/4000 - - -", last( "et1", 5, 60 ) );
}

// ---- time

TEST_F( Samples, keepTheirTimesWhateverIsDoneToWallTime ) {
   portIs( et1, 8000 );
   start();
   clock->advance( 10 );
   wallAhead = 1e6;
   clock->advance( 5 );
   stop();
   wallAhead = -1e6;
   start();
   clock->advance( 5 );
   EXPECT_EQ( "- 8000/4000 8000/4000 -", last( "et1", 4 ) );
}

TEST_F( Samples, areAsOldAfterABootAsWallTimeSays ) {
   portIs( et1, 8000 );
   start();
   // The clock began a year before wall time, which was set later.
   wallAhead = 365 * 86400;
   clock->advance( 15 );
   // Four minutes later.
   const double wall = now() + wallAhead;
   reboot( wall + 240 );
   wallAhead = 0;
   start();
   clock->advance( 10 );
   const std::string text = last( "et1", 53 );
   EXPECT_EQ( 0u, text.find( "- 8000/4000 8000/4000 - " ) ) << text;
   EXPECT_TRUE( text.ends_with( "- - 8000/4000" ) ) << text;
   EXPECT_EQ( 3, std::count( text.begin(), text.end(), '/' ) ) << text;
}

TEST_F( Samples, comeBeforeWhatIsSampledAfterABootThatHasForgottenTheTime ) {
   portIs( et1, 8000 );
   start();
   clock->advance( 600 );
   // The clock begins where it began the last time, and wall time long before.
   reboot( bornAt );
   wallAhead = -bornAt;
   start();
   clock->advance( 10 );
   EXPECT_EQ( "8000/4000", last( "et1", 1 ) );
   const SampleCurve hour = samples->curve( "et1", now() - 3600, now() );
   EXPECT_EQ(
      120, std::count_if( hour.in.begin(), hour.in.end(), []( float in ) { return !std::isnan( in ); } ) );
   EXPECT_TRUE( std::isnan( hour.in[hour.in.size() - 2] ) );
   // And so on with the next agent.
   stop();
   start();
   const SampleCurve again = samples->curve( "et1", now() - 3600, now() );
   EXPECT_EQ(
      120, std::count_if( again.in.begin(), again.in.end(), []( float in ) { return !std::isnan( in ); } ) );
}

TEST_F( Samples, keepTheirOrderWithoutTheNoteOfTheirTime ) {
   portIs( et1, 8000 );
   start();
   clock->advance( 600 );
   reboot( bornAt );
   std::filesystem::remove( path + "/samples/time" );
   start();
   clock->advance( 10 );
   const SampleCurve hour = samples->curve( "et1", now() - 3600, now() );
   EXPECT_EQ(
      120, std::count_if( hour.in.begin(), hour.in.end(), []( float in ) { return !std::isnan( in ); } ) );
   EXPECT_EQ( "- 8000/4000", last( "et1", 2 ) );
}

TEST_F( Samples, withoutTheNoteOfTheirTimeAreLookedThroughInTurnsOfTheirOwn ) {
   for ( int i = 0; i < 200; ++i )
      portIs( Wire::EthIntfId( "x" + std::to_string( i ) ), 8000 );
   start();
   clock->advance( 130 );
   stop();
   std::filesystem::remove( path + "/samples/time" );
   start();
   const Vel::U64 turns = clock->turns();
   clock->advance( 1 );
   EXPECT_LE( turns + 4, clock->turns() );
   clock->advance( 9 );
   EXPECT_EQ( "", problem() );
   for ( int i = 0; i < 200; ++i )
      ASSERT_EQ( "- 8000/4000", last( "x" + std::to_string( i ), 2 ) ) << i;
}

} // namespace
