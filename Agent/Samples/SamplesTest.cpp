#include "Agent/Samples/SamplesTest.h"

namespace {

using Agent::SampleCurve;
using Samples = Agent::SamplesTest;

TEST_F( Samples, areTakenEveryFiveSecondsOfAllConfiguredInterfaces ) {
   portIs( et1, 8000 );
   portIs( et2, 800 );
   start();
   clock->advance( 20 );
   EXPECT_EQ( "- 8000/4000 8000/4000 8000/4000", last( "et1", 4 ) );
   EXPECT_EQ( "- 800/400 800/400 800/400", last( "et2", 4 ) );
   EXPECT_EQ( "- - - -", last( "et3", 4 ) );
   EXPECT_TRUE( samples->has( "et1" ) );
   EXPECT_FALSE( samples->has( "et3" ) );
   EXPECT_EQ( "", problem() );
}

TEST_F( Samples, areWhatWasCarriedBetweenTwoTicks ) {
   portIs( et1, 8000 );
   start();
   clock->advance( 10 );
   const SampleCurve curve = samples->curve( "et1", now() - 10, now() );
   EXPECT_EQ( now() - 10, curve.start );
   ASSERT_EQ( 2u, curve.in.size() );
   EXPECT_EQ( 8000, curve.in[1] );
   EXPECT_TRUE( std::isnan( curve.in[0] ) );
   // The step that is going on is yet to come.
   clock->advance( 3 );
   EXPECT_EQ( 2u, samples->curve( "et1", curve.start, now() ).in.size() );
   EXPECT_EQ( 2u, samples->curve( "et1", curve.start + 2, now() + 1000 ).in.size() );
   EXPECT_EQ( 1u, samples->curve( "et1", curve.start, curve.start + 5 ).in.size() );
   EXPECT_EQ( 0u, samples->curve( "et1", now() + 100, now() + 200 ).in.size() );
   EXPECT_EQ( 0u, samples->curve( "et1", now(), now() - 100 ).in.size() );
}

TEST_F( Samples, surviveTheAgentAndGoOnWithAGap ) {
   portIs( et1, 8000 );
   start();
   clock->advance( 15 );
   stop();
   clock->advance( 10 );
   start();
   EXPECT_EQ( "- 8000/4000 8000/4000 - -", last( "et1", 5 ) );
   clock->advance( 10 );
   EXPECT_EQ( "- 8000/4000 8000/4000 - - - 8000/4000", last( "et1", 7 ) );
}

TEST_F( Samples, areMinutesForAWeek ) {
   portIs( et1, 8000 );
   start();
   clock->advance( 7200 );
   stop();
   clock->advance( 7 * 86400 - 3600 - 7200 );
   start();
   clock->advance( 7200 );
   const SampleCurve week = samples->curve( "et1", now() - 8 * 86400, now() );
   EXPECT_EQ( 60u, week.step );
   ASSERT_EQ( 10080u, week.in.size() );
   EXPECT_EQ( now() - 7 * 86400, week.start );
   int known = 0;
   for ( std::size_t i = 0; i < week.in.size(); ++i )
      if ( !std::isnan( week.in[i] ) ) {
         EXPECT_EQ( 8000, week.in[i] );
         ++known;
      }
   EXPECT_NEAR( 60 + 120, known, 2 );
   EXPECT_EQ( 8000, week.in[0] );
   EXPECT_EQ( 8000, week.in[10079] );
   EXPECT_EQ( 720u, samples->curve( "et1", now() - 3600, now() ).in.size() );
   EXPECT_EQ( 94080u, std::filesystem::file_size( path + "/samples/et1.samples" ) );
}

TEST_F( Samples, haveAGapWhereCountersCannotBeRead ) {
   portIs( et1, 8000 );
   start();
   clock->advance( 10 );
   fresh = false;
   clock->advance( 10 );
   fresh = true;
   clock->advance( 10 );
   EXPECT_EQ( "- 8000/4000 - - 8000/4000 8000/4000", last( "et1", 6 ) );
   fresh = false;
   clock->advance( 20 );
   fresh = true;
   clock->advance( 10 );
   EXPECT_EQ( "- - - - - 8000/4000", last( "et1", 6 ) ) << "nobody knows what it carried in so long a time";
}

TEST_F( Samples, ofATickThatComesLateAreOverTheTimeThatHasPassed ) {
   portIs( et1, 8000 );
   start();
   clock->advance( 9 );
   clock->spend( 3 );
   clock->runTurn();
   EXPECT_EQ( bornAt + 12, now() );
   EXPECT_EQ( "- 8000/4000", last( "et1", 2 ) );
   clock->advance( 3 );
   EXPECT_EQ( "- 8000/4000 8000/4000", last( "et1", 3 ) );
   clock->advance( 4 );
   clock->spend( 4 );
   clock->runTurn();
   EXPECT_EQ( bornAt + 23, now() );
   clock->advance( 7 );
   EXPECT_EQ( "- 8000/4000 8000/4000 - 8000/4000 8000/4000", last( "et1", 6 ) ) << "a tick was missed";
}

TEST_F( Samples, giveTheLatestRateWhileItIsFresh ) {
   portIs( et1, 8000 );
   start();
   clock->advance( 5 );
   EXPECT_FALSE( samples->rate( et1 ) );
   clock->advance( 5 );
   ASSERT_TRUE( samples->rate( et1 ) );
   EXPECT_EQ( 8000, samples->rate( et1 )->inBitsRate );
   EXPECT_EQ( 4000, samples->rate( et1 )->outBitsRate );
   EXPECT_EQ( now(), samples->rate( et1 )->sampleTime );
   EXPECT_FALSE( samples->rate( et2 ) );
   fresh = false;
   clock->advance( 15 );
   EXPECT_TRUE( samples->rate( et1 ) );
   clock->advance( 1 );
   EXPECT_FALSE( samples->rate( et1 ) );
}

TEST_F( Samples, tellEachTickWhenItsSamplesAreThere ) {
   portIs( et1, 8000 );
   start();
   std::string told;
   samples->whenTicked( [&] {
      told += Vel::text(
         told.empty() ? "" : " ", now() - bornAt, ":", samples->rates().size(), ":", last( "et1", 1 ) );
   } );
   clock->advance( 15 );
   EXPECT_EQ( "5:0:- 10:1:8000/4000 15:1:8000/4000", told );
}

TEST_F( Samples, ofManyInterfacesAreWrittenInTurnsOfTheirOwn ) {
   for ( int i = 0; i < 200; ++i )
      portIs( Wire::EthIntfId( "x" + std::to_string( i ) ), 8000 );
   start();
   clock->timeIs( bornAt + 64 );
   const Vel::U64 turns = clock->turns();
   clock->advance( 1 );
   EXPECT_LE( turns + 4, clock->turns() );
   stop();
   start();
   for ( int i = 0; i < 200; ++i )
      ASSERT_EQ( "8000/4000", last( "x" + std::to_string( i ), 1 ) ) << i;
}

TEST_F( Samples, thatWaitToBeWrittenAreNotLostWithTheAgent ) {
   for ( int i = 0; i < 200; ++i )
      portIs( Wire::EthIntfId( "x" + std::to_string( i ) ), 8000 );
   start();
   clock->advance( 62 );
   samples->whenTicked( [this] { clock->post( [this] { stop(); } ); } );
   // The first of another minute: all files are to be written.
   clock->advance( 3 );
   ASSERT_FALSE( samples );
   start();
   for ( int i = 0; i < 200; ++i )
      ASSERT_EQ( "8000/4000 8000/4000 8000/4000", last( "x" + std::to_string( i ), 3 ) ) << i;
}

TEST_F( Samples, areWhatTheFilesHoldWhereTheMinuteThatGoesOnIsSpoilt ) {
   portIs( et1, 8000 );
   start();
   clock->advance( 85 );
   stop();
   std::ofstream( path + "/samples/present" ) << std::string( 1000, 'x' );
   start();
   EXPECT_EQ( "", problem() );
   const std::string text = last( "et1", 17 );
   EXPECT_LE( 11, std::ranges::count( text, '/' ) ) << text;
}

} // namespace
