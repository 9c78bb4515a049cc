#include "Agent/Times/Times.h"

#include "Platform/Cog/ManualClock.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace Agent {
namespace {

using Maintenance::Unit::UnitState;
constexpr double minute = 60, hour = 3600;

class TimesTest : public testing::Test {
 protected:
   /// Counts how often a moment is noted.
   struct Counter final : Vel::ReactorTo< TimesTest, UnitTimesDir > {
      using ReactorTo::ReactorTo;
      void onClockTime() override { ++sm()->notes; }
   };

   TimesTest() {
      Vel::System::clockIs( clock );
      for ( const char * unit : { "u1", "u2" } )
         units->statusIs( unit )->stateIs( UnitState::normal );
      start();
   }
   ~TimesTest() override {
      stop();
      Vel::System::clockIs( nullptr );
   }
   void start() {
      times = std::make_unique< Times >(
         clock, wheel, Times::Model{ units, dir },
         Times::Hooks{
            [this]( const Vel::String & unit, const Vel::String & reason, bool tooLate ) {
               EXPECT_EQ( reason.find( "not under" ) == 0, tooLate );
               exits.push_back( unit + ": " + reason );
               units->status( unit )->stateIs( UnitState::exitInProgress );
            },
            [this] {
               const double now = clock->currentTime();
               return Moment{ boot, now - bootClock, now, now + wallOffset };
            },
            [this]( const Vel::String & line ) { said.push_back( line ); } } );
      times->start();
   }
   void stop() { times.reset(); }
   void restart() {
      stop();
      start();
   }
   /// Another boot begins after the machine has been off for so long, by wall time that is set by `step` meanwhile. The
   /// agent's clock begins anew, with wall time.
   void reboot( double off, double step = 0 ) {
      stop();
      const double wall = clock->currentTime() + wallOffset + off + step;
      boot += "+";
      clock->spend( std::max( 1000.0, wall - clock->currentTime() ) );
      clock->runUntilIdle();
      bootClock = clock->currentTime();
      wallOffset = wall - bootClock;
      start();
   }
   void state( UnitState state ) { units->status( "u1" )->stateIs( state ); }
   bool enter( const AskedTimes & asked, const Vel::String & by = "ann" ) {
      if ( units->status( "u1" )->state() == UnitState::normal )
         state( UnitState::enterInProgress );
      return times->ask( "u1", asked, by );
   }
   const UnitTimes * kept() const { return dir->unit( "u1" ); }
   void advance( double seconds ) { clock->advance( seconds ); }

   Vel::Ptr< Cog::ManualClock > clock = Vel::make< Cog::ManualClock >();
   Vel::Ptr< Cog::TimerWheel > wheel = Vel::make< Cog::TimerWheel >( clock, 1000u, 1800u, true, 16u );
   Vel::Ptr< Maintenance::Unit::StatusDir > units = Vel::make< Maintenance::Unit::StatusDir >();
   Vel::Ptr< UnitTimesDir > dir = Vel::make< UnitTimesDir >();
   std::string boot = "first";
   double bootClock = 1.7e9 - 5000;
   double wallOffset = 0;
   std::vector< std::string > exits, said;
   unsigned notes = 0;
   std::unique_ptr< Times > times;
};

// ---- deadline

TEST_F( TimesTest, unitThatIsNotThereByItsDeadlineIsOverrunOnceAndKept ) {
   EXPECT_TRUE( enter( { 10 * minute } ) );
   advance( 10 * minute - 1 );
   EXPECT_EQ( 0, kept()->overrun() );
   advance( 1 );
   EXPECT_EQ( 1.7e9 + 600, kept()->overrun() );
   advance( hour );
   EXPECT_EQ( 1.7e9 + 600, kept()->overrun() );
   EXPECT_TRUE( exits.empty() );
}

TEST_F( TimesTest, unitThatIsThereInTimeIsNotOverrun ) {
   enter( { 10 * minute, true } );
   advance( 5 * minute );
   state( UnitState::maintenance );
   EXPECT_EQ( nullptr, kept() );
   advance( hour );
   EXPECT_TRUE( exits.empty() );
}

TEST_F( TimesTest, overrunStaysToBeSeenUnderMaintenanceAndGoesWithIt ) {
   enter( { 10 * minute } );
   advance( 11 * minute );
   state( UnitState::maintenance );
   ASSERT_NE( nullptr, kept() );
   EXPECT_GT( kept()->overrun(), 0 );
   state( UnitState::exitInProgress );
   EXPECT_EQ( nullptr, kept() );
}

TEST_F( TimesTest, overrunRestoresIfThatWasAskedFor ) {
   enter( { 10 * minute, true } );
   advance( 10 * minute );
   EXPECT_EQ(
      std::vector< std::string >{
         "u1: not under maintenance within 10m, and restores then, as ann has asked" },
      exits );
   EXPECT_EQ( nullptr, kept() );
}

TEST_F( TimesTest, overrunIsNotedInATurnBeforeTheUnitIsBroughtBack ) {
   enter( { 10 * minute, true } );
   advance( 10 * minute - 1 );
   clock->spend( 1 );
   clock->runTurn();
   ASSERT_NE( nullptr, kept() );
   EXPECT_GT( kept()->overrun(), 0 );
   EXPECT_TRUE( exits.empty() );
   clock->runTurn();
   EXPECT_EQ( 1u, exits.size() );
}

TEST_F( TimesTest, unitIsBroughtBackAlsoIfTheAgentEndedAfterTheOverrunWasNoted ) {
   enter( { 10 * minute, true } );
   advance( 10 * minute - 1 );
   clock->spend( 1 );
   clock->runTurn();
   restart();
   EXPECT_TRUE( exits.empty() );
   advance( Times::patience );
   EXPECT_EQ( 1u, exits.size() );
}

TEST_F( TimesTest, unitThatGetsThereAfterAnOverrunIsNotBroughtBackForThat ) {
   enter( { 10 * minute, false } );
   advance( 11 * minute );
   state( UnitState::maintenance );
   EXPECT_FALSE( enter( { 10 * minute, true } ) );
   advance( hour );
   EXPECT_TRUE( exits.empty() );
}

// ---- revert

TEST_F( TimesTest, unitGoesBackWhenItsTimeIsOver ) {
   EXPECT_TRUE( enter( { .revertAfter = 2 * hour } ) );
   state( UnitState::maintenance );
   advance( 2 * hour - 1 );
   EXPECT_TRUE( exits.empty() );
   advance( 1 );
   EXPECT_EQ( std::vector< std::string >{ "u1: reverts after 2h, as ann has asked" }, exits );
   EXPECT_EQ( nullptr, kept() );
   advance( 3 * hour );
   EXPECT_EQ( 1u, exits.size() );
}

TEST_F( TimesTest, unitGoesBackAlsoWhileItEnters ) {
   enter( { .revertAfter = minute } );
   advance( minute );
   EXPECT_EQ( 1u, exits.size() );
}

TEST_F( TimesTest, exitOfSomebodyElseTakesTheTimesAway ) {
   enter( { 10 * minute, true, 2 * hour } );
   state( UnitState::exitInProgress );
   EXPECT_EQ( nullptr, kept() );
   state( UnitState::normal );
   advance( 3 * hour );
   EXPECT_TRUE( exits.empty() );
}

TEST_F( TimesTest, unitThatGoesTakesItsTimesAlong ) {
   enter( { .revertAfter = hour } );
   units->statusDel( "u1" );
   EXPECT_EQ( nullptr, kept() );
   advance( 2 * hour );
   EXPECT_TRUE( exits.empty() );
}

TEST_F( TimesTest, timesAreDoneAlsoWhereTimersDoNotRun ) {
   enter( { .revertAfter = hour } );
   clock->timersMayRunIs( [this] {
      times->handleDue();
      return false;
   } );
   advance( hour + 1 );
   EXPECT_EQ( 1u, exits.size() );
}

// ---- asked for again

TEST_F( TimesTest, sameTimesAskedForAgainGoOn ) {
   enter( { 10 * minute, true, 2 * hour } );
   const double deadline = kept()->deadline(), revertAt = kept()->revertAt();
   advance( minute );
   EXPECT_FALSE( enter( { 10 * minute, true, 2 * hour }, "bob" ) );
   EXPECT_EQ( deadline, kept()->deadline() );
   EXPECT_EQ( revertAt, kept()->revertAt() );
   EXPECT_EQ( "ann", kept()->revertBy() );
}

TEST_F( TimesTest, othersBeginWhenTheyAreAskedFor ) {
   enter( { 10 * minute, true, 2 * hour } );
   advance( minute );
   EXPECT_TRUE( enter( { 20 * minute, true, 3 * hour }, "bob" ) );
   EXPECT_EQ( clock->currentTime() + 20 * minute, kept()->deadline() );
   EXPECT_EQ( clock->currentTime() + 3 * hour, kept()->revertAt() );
   EXPECT_EQ( "bob", kept()->revertBy() );
}

TEST_F( TimesTest, whatIsLeftOutStays ) {
   enter( { 10 * minute, true, 2 * hour } );
   EXPECT_FALSE( enter( {} ) );
   EXPECT_TRUE( enter( { .revertAfter = 3 * hour } ) );
   EXPECT_EQ( 10 * minute, kept()->deadlineAfter() );
   EXPECT_TRUE( kept()->restore() );
}

TEST_F( TimesTest, neverTakesATimeAway ) {
   enter( { 10 * minute, true, 2 * hour } );
   EXPECT_TRUE( enter( { .deadline = AskedTimes::never } ) );
   EXPECT_EQ( 0, kept()->deadline() );
   EXPECT_FALSE( kept()->restore() );
   EXPECT_TRUE( enter( { .revertAfter = AskedTimes::never } ) );
   EXPECT_EQ( nullptr, kept() );
   EXPECT_FALSE( enter( { .revertAfter = AskedTimes::never } ) );
   advance( 3 * hour );
   EXPECT_TRUE( exits.empty() );
}

TEST_F( TimesTest, otherDeadlineAfterAnOverrunCanBeOverrunAgain ) {
   enter( { 10 * minute } );
   advance( 11 * minute );
   EXPECT_TRUE( enter( { 5 * minute } ) );
   EXPECT_EQ( 0, kept()->overrun() );
   advance( 5 * minute );
   EXPECT_EQ( 1.7e9 + 16 * minute, kept()->overrun() );
}

TEST_F( TimesTest, restoreThatIsAskedForAfterTheOverrunIsDone ) {
   enter( { 10 * minute } );
   advance( 11 * minute );
   EXPECT_TRUE( enter( { 10 * minute, true } ) );
   clock->runUntilIdle();
   EXPECT_EQ( 1u, exits.size() );
}

TEST_F( TimesTest, deadlineOfAUnitUnderMaintenanceSaysNothing ) {
   enter( {} );
   state( UnitState::maintenance );
   EXPECT_FALSE( enter( { minute, true } ) );
   EXPECT_EQ( nullptr, kept() );
   EXPECT_TRUE( enter( { minute, true, hour } ) );
   EXPECT_EQ( 0, kept()->deadline() );
}

TEST_F( TimesTest, unitThatIsNotOnItsWayGetsNoTimes ) {
   EXPECT_FALSE( times->ask( "u1", { .revertAfter = hour }, "ann" ) );
   state( UnitState::exitInProgress );
   EXPECT_FALSE( times->ask( "u1", { .revertAfter = hour }, "ann" ) );
   EXPECT_FALSE( times->ask( "nowhere", { .revertAfter = hour }, "ann" ) );
   EXPECT_EQ( 0u, dir->units() );
}

// ---- restarts

TEST_F( TimesTest, timesGoOnOverARestart ) {
   enter( { .revertAfter = hour } );
   advance( 30 * minute );
   stop();
   clock->spend( 10 * minute );
   clock->runUntilIdle();
   start();
   EXPECT_EQ( 1.7e9 + hour, kept()->revertAt() );
   advance( 20 * minute - 1 );
   EXPECT_TRUE( exits.empty() );
   advance( 2 );
   EXPECT_EQ( std::vector< std::string >{ "u1: reverts after 1h, as ann has asked" }, exits );
}

TEST_F( TimesTest, whatWasDueWhileNoAgentRanIsDoneSoonAndSaid ) {
   enter( { .revertAfter = hour } );
   state( UnitState::maintenance );
   stop();
   clock->spend( 2 * hour );
   clock->runUntilIdle();
   start();
   clock->runUntilIdle();
   times->handleDue();
   clock->runUntilIdle();
   EXPECT_TRUE( exits.empty() ) << "before anybody could see the agent";
   advance( Times::patience + 1 );
   EXPECT_EQ(
      std::vector< std::string >{ "u1: reverts after 1h, as ann has asked; no agent ran when that was over" },
      exits );
}

TEST_F( TimesTest, deadlineThatWasOverWhileNoAgentRanIsOverrun ) {
   enter( { hour, true } );
   stop();
   clock->spend( 2 * hour );
   clock->runUntilIdle();
   start();
   advance( Times::patience + 1 );
   EXPECT_EQ(
      std::vector< std::string >{ "u1: not under maintenance within 1h, and restores then, as ann has asked; "
                                  "no agent ran when that was "
                                  "over" },
      exits );
}

TEST_F( TimesTest, timesOfAUnitThatHasNoneAnyMoreAreForgottenAtTheStart ) {
   enter( { .revertAfter = hour } );
   stop();
   state( UnitState::normal );
   start();
   EXPECT_EQ( nullptr, kept() );
}

// ---- clocks

TEST_F( TimesTest, stepsOfWallTimeChangeNothingWhileTheMachineRuns ) {
   for ( const double step : { -30 * 86400.0, 30 * 86400.0 } ) {
      SCOPED_TRACE( step );
      exits.clear();
      state( UnitState::normal );
      enter( { .revertAfter = hour } );
      advance( 20 * minute );
      wallOffset += step;
      advance( 20 * minute );
      restart();
      advance( 20 * minute - 1 );
      EXPECT_TRUE( exits.empty() );
      advance( 2 );
      EXPECT_EQ( 1u, exits.size() );
   }
}

TEST_F( TimesTest, wallTimeTellsForHowLongTheMachineWasOff ) {
   enter( { .revertAfter = 3 * hour } );
   advance( hour );
   times->stopped();
   reboot( hour );
   EXPECT_NEAR( clock->currentTime() + hour, kept()->revertAt(), 0.01 );
   EXPECT_EQ( "", kept()->doubt() );
   advance( hour + 1 );
   EXPECT_EQ( 1u, exits.size() );
}

TEST_F( TimesTest, stepOfWallTimeBeforeABootIsNotTakenForTimeThatPassed ) {
   enter( { .revertAfter = 3 * hour } );
   advance( minute );
   wallOffset += 5 * 86400;
   advance( hour );
   reboot( hour );
   EXPECT_NEAR( clock->currentTime() + hour - minute, kept()->revertAt(), Times::lookPeriod );
}

TEST_F( TimesTest, machineThatWasCutOffForgetsNoMoreThanTheTimeSinceTheLastNote ) {
   enter( { .revertAfter = 3 * hour } );
   advance( 2 * hour );
   reboot( 0, -10 * 86400 );
   EXPECT_LE( kept()->revertAt(), clock->currentTime() + hour + Times::notePeriod + Times::lookPeriod );
   EXPECT_GE( kept()->revertAt(), clock->currentTime() + hour - 1 );
}

TEST_F( TimesTest, wallTimeThatIsBehindAfterABootBringsNobodyBackEarly ) {
   enter( { .revertAfter = 3 * hour } );
   advance( hour );
   times->stopped();
   reboot( hour, -30 * 86400 );
   EXPECT_NEAR( clock->currentTime() + 2 * hour, kept()->revertAt(), 0.01 );
   EXPECT_EQ( "behind", kept()->doubt() );
   EXPECT_EQ( 1u, said.size() );
}

TEST_F( TimesTest, wallTimeThatIsFarAheadAfterABootBringsNobodyBackEarly ) {
   enter( { .revertAfter = 3 * hour } );
   advance( hour );
   times->stopped();
   reboot( hour, 400 * 86400.0 );
   EXPECT_NEAR( clock->currentTime() + 2 * hour, kept()->revertAt(), 0.01 );
   EXPECT_EQ( "ahead", kept()->doubt() );
   advance( hour );
   EXPECT_TRUE( exits.empty() );
   advance( hour + 1 );
   EXPECT_EQ( 1u, exits.size() );
}

TEST_F( TimesTest, whatHasOverrunIsOverrunOnceOverABootToo ) {
   enter( { hour } );
   advance( 2 * hour );
   times->stopped();
   reboot( hour );
   EXPECT_NEAR( clock->currentTime() - 2 * hour, kept()->overrun(), 0.01 );
   advance( hour );
   EXPECT_NEAR( clock->currentTime() - 3 * hour, kept()->overrun(), 0.01 );
}

TEST_F( TimesTest, clockThatIsLostInTheSameBootTakesTheTimesAlong ) {
   enter( { .revertAfter = 3 * hour } );
   advance( hour );
   times->stopped();
   stop();
   // An hour goes by; the clock is another one that is a day ahead of it.
   clock->spend( hour + 86400 );
   clock->runUntilIdle();
   bootClock += 86400;
   wallOffset -= 86400;
   start();
   EXPECT_NEAR( clock->currentTime() + hour, kept()->revertAt(), 0.01 );
}

TEST_F( TimesTest, whatIsKeptIsWrittenSeldom ) {
   enter( { .revertAfter = 24 * hour } );
   Vel::Watch< Counter > counter;
   counter.is( dir, this ).hasNotificationActiveIs( true );
   advance( hour );
   EXPECT_LE( notes, 12u );
   EXPECT_GE( notes, 11u );
}

} // namespace
} // namespace Agent
