#include "Agent/Samples/Samples.h"

#include "Agent/Samples/SampleFileTest.h"
#include "Agent/Samples/SamplesRig.h"
#include "Platform/Cog/ManualClock.h"

#include <sys/stat.h>
#include <unistd.h>

namespace {

using Agent::SampleCurve;

const Wire::EthIntfId et1( "et1" ), et2( "et2" );

/// Agents one after the other in one folder. A port carries its rate in and half of it out.
class Samples : public testing::Test, protected Agent::SamplesRig {
 protected:
   ~Samples() override {
      std::error_code ignored;
      std::filesystem::remove_all( path, ignored );
   }

   void portIs( const Wire::IntfId & port, double bps ) {
      intfIs( port );
      bpsOf[port] = bps;
   }
   void start() {
      samples = std::make_unique< Agent::Samples >(
         clock, Vel::make< Cog::TimerWheel >( Vel::Ptr< Vel::Clock >( clock ), 1000u, 60u, true, 16u ),
         model(), path + "/samples",
         Agent::Samples::Hooks{
            [this] { return count(); }, [this]( double time ) { return time + wallAhead; }, clockName } );
      bornAt = clock->currentTime();
   }
   /// The agent is gone at once.
   void stop() { samples.reset(); }
   /// The machine is started again; the clock begins at a time of its own.
   void reboot( double time ) {
      stop();
      clock = Vel::make< Cog::ManualClock >( time );
      clockName += "'";
   }
   /// Time goes by in one turn, and then a minute as it should.
   void goOn( double seconds ) {
      clock->spend( seconds );
      clock->runTurn();
      clock->advance( 60 );
   }
   double now() const { return clock->currentTime(); }

   /// The last steps of a curve: "8000/4000 - 8000/4000".
   std::string last( const std::string & name, unsigned steps, unsigned step = 5 ) const {
      const double length = step == 5 ? steps * 5 : std::max( 3700u, steps * 60 );
      const SampleCurve curve = samples->curve( name, now() - length, now() );
      EXPECT_EQ( step, curve.step );
      EXPECT_EQ( curve.in.size(), curve.out.size() );
      EXPECT_LE( steps, curve.in.size() );
      std::string result;
      for ( std::size_t i = curve.in.size() - std::min< std::size_t >( steps, curve.in.size() );
            i < curve.in.size(); ++i )
         result +=
            ( result.empty() ? "" : " " ) +
            ( std::isnan( curve.in[i] ) ? "-" : std::string( Vel::text( curve.in[i], "/", curve.out[i] ) ) );
      return result;
   }
   std::string problem() const { return samples->problem() ? samples->problem()->text : ""; }
   bool exists( const std::string & name ) const {
      return std::filesystem::exists( path + "/samples/" + name );
   }

   Vel::Ptr< Cog::ManualClock > clock = Vel::make< Cog::ManualClock >( 1'700'000'100.0 );
   std::string path = newFolder();
   std::map< Wire::IntfId, double > bpsOf;
   std::unique_ptr< Agent::Samples > samples;
   std::string clockName = "boot";
   double wallAhead = 0;
   double bornAt = 0;
   bool fresh = true;

 private:
   static std::string newFolder() {
      std::string name = std::filesystem::temp_directory_path() / "samplesXXXXXX";
      EXPECT_NE( nullptr, mkdtemp( name.data() ) );
      return name;
   }
   bool count() {
      for ( const auto & [port, bps] : fresh ? bpsOf : std::map< Wire::IntfId, double >() ) {
         const double octets = bps / 8 * ( now() - 1.6e9 );
         countsAre( port, static_cast< Vel::U64 >( octets ), static_cast< Vel::U64 >( octets / 2 ) );
      }
      return fresh;
   }
};

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
   clock->timeIs( bornAt + 9 );
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
   clock->advance( 30 );
   EXPECT_EQ( path + "/samples/et1.samples: Is a directory", problem() );
   EXPECT_EQ( "800/400 800/400", last( "et2", 2 ) );
   EXPECT_EQ( "8000/4000 8000/4000", last( "et1", 2 ) ) << "they are in memory";
   std::filesystem::remove( path + "/samples/et1.samples" );
   clock->advance( 5 );
   EXPECT_EQ( "", problem() );
   stop();
   start();
   EXPECT_EQ( "8000/4000 8000/4000 8000/4000", last( "et1", 3 ) );
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

} // namespace
