#include "Platform/Cog/ActingRig.h"
#include "Platform/Cog/ManualClock.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

constexpr double start = Cog::ManualClock::defaultStartTime;
constexpr double never = std::numeric_limits< double >::infinity();

using Cog::Alarm;
using Cog::Chore;

class Scheduler : public testing::Test {
 protected:
   Scheduler() {
      alarm.timer.is( wheel, &alarm ).hasNotificationActiveIs( true );
      alarm.act = [this] { log += "timer "; };
   }
   std::function< void() > logs( std::string text ) {
      return [this, text] { log += text + " "; };
   }

   const Vel::Ptr< Cog::ManualClock > clock = Vel::make< Cog::ManualClock >();
   const Vel::Ptr< Cog::TimerWheel > wheel = Vel::make< Cog::TimerWheel >( clock, 1000, 1800, true, 1024 );
   std::string log;
   Alarm alarm;
   Chore chore{ clock, [this] { log += "task "; } };
};

TEST_F( Scheduler, turnGoesThroughItsPhasesInOrder ) {
   clock->commitHookIs( [this] {
      log += "commit ";
      return true;
   } );
   clock->effectIs( logs( "effect" ) );
   chore.clockReactorTimeMinIs( 0 );
   alarm.timer->timeMinIs( start + 1 );
   clock->post( logs( "posted" ) );
   clock->spend( 1 );
   clock->runTurn();
   EXPECT_EQ( "posted timer task commit effect ", log );
}

TEST_F( Scheduler, postedTasksRunInTheirOrder ) {
   clock->post( logs( "1" ) );
   clock->post( logs( "2" ) );
   clock->post( logs( "3" ) );
   clock->runTurn();
   EXPECT_EQ( "1 2 3 ", log );
}

TEST_F( Scheduler, taskPostedDuringATurnRunsInTheNextWhichDoesNotWait ) {
   struct Row {
      const char * phase;
      std::function< void( std::function< void() > ) > during;
   };
   const Row rows[] = {
      { "posted", [this]( auto act ) { clock->post( act ); } },
      { "timer",
        [this]( auto act ) {
           alarm.act = act;
           alarm.timer->timeMinIs( clock->currentTime() );
           clock->spend( 1 );
        } },
      { "effect", [this]( auto act ) { clock->effectIs( act ); } },
   };
   for ( const Row & row : rows ) {
      SCOPED_TRACE( row.phase );
      log.clear();
      row.during( [this] { clock->post( logs( "posted" ) ); } );
      clock->runTurn();
      EXPECT_EQ( "", log );
      EXPECT_EQ( 0, clock->dueTime() );
      clock->runTurn();
      EXPECT_EQ( "posted ", log );
      EXPECT_EQ( never, clock->dueTime() );
   }
}

TEST_F( Scheduler, timeStandsStillDuringATurn ) {
   std::vector< double > seen;
   const auto look = [&] {
      clock->spend( 0.5 );
      seen.push_back( clock->currentTime() );
   };
   Chore looker( clock, look );
   looker.clockReactorTimeMinIs( 0 );
   clock->post( look );
   alarm.act = look;
   alarm.timer->timeMinIs( start );
   clock->spend( 1 );
   clock->runTurn();
   EXPECT_EQ( ( std::vector< double >{ start + 1, start + 1, start + 1 } ), seen );
   EXPECT_EQ( start + 2.5, clock->liveTime() );
   clock->runTurn();
   EXPECT_EQ( start + 2.5, clock->currentTime() );
}

TEST_F( Scheduler, turnThatIsALittleLateForATimerTakesItsTime ) {
   struct Row {
      double late;
      double time;
   };
   for ( const Row & row : { Row{ 0, 0 }, Row{ 0.0249, 0 }, Row{ 0.0251, 0.0251 }, Row{ 0.9, 0.9 } } ) {
      SCOPED_TRACE( row.late );
      const double due = std::floor( clock->currentTime() ) + 5;
      clock->timeIs( due - 1 );
      alarm.timer->timeMinIs( due );
      clock->spend( 1 + row.late );
      clock->runTurn();
      EXPECT_EQ( "timer ", std::exchange( log, "" ) );
      EXPECT_NEAR( due + row.time, clock->currentTime(), 1e-6 );
      EXPECT_GE( clock->liveTime(), clock->currentTime() );
      clock->advance( 2 );
   }
}

TEST_F( Scheduler, periodIsFiveTicksAsLongAsTurnsAreNotTooLate ) {
   std::vector< double > times;
   alarm.act = [&] {
      times.push_back( clock->currentTime() - start );
      alarm.timer->timeMinIs( clock->currentTime() + 5 );
   };
   alarm.timer->timeMinIs( start + 5 );
   clock->spend( 5.02 );
   clock->runTurn();
   clock->spend( 5.02 - 0.02 );
   clock->runTurn();
   clock->spend( 5.1 - 0.02 );
   clock->runTurn();
   clock->advance( 6 );
   ASSERT_EQ( 4u, times.size() );
   EXPECT_EQ( 5, times[0] );
   EXPECT_EQ( 10, times[1] );
   EXPECT_NEAR( 15.1, times[2], 1e-6 );
   EXPECT_EQ( 21, times[3] ); // too late for its tick: this period is 6 ticks
}

TEST_F( Scheduler, turnWithoutADueTimerTakesTheRealTime ) {
   alarm.timer->timeMinIs( start + 5 );
   clock->spend( 4.999 );
   clock->runTurn();
   EXPECT_EQ( "", log );
   EXPECT_NEAR( start + 4.999, clock->currentTime(), 1e-6 );
}

TEST_F( Scheduler, timeNeverGoesBack ) {
   clock->advance( 0.99 );
   clock->spend( 0.02 );
   clock->runTurn();
   const double before = clock->currentTime();
   ASSERT_GT( before, start + 1 );
   // A second wheel has not seen that tick go by.
   const auto other = Vel::make< Cog::TimerWheel >( clock, 1000, 1800, true, 1024 );
   alarm.timer->timeMinIs( start + 1 );
   clock->runTurn();
   EXPECT_EQ( before, clock->currentTime() );
}

TEST_F( Scheduler, timersThatMayNotRunAreOverdueInTheNextTurn ) {
   bool mayRun = false;
   unsigned asked = 0;
   clock->timersMayRunIs( [&] {
      ++asked;
      return mayRun;
   } );
   alarm.act = [this] { log += Vel::text( clock->currentTime() - start, " " ); };
   clock->runTurn();
   EXPECT_EQ( 0u, asked ); // nothing is due
   alarm.timer->timeMinIs( start + 5 );
   clock->advance( 5 );
   EXPECT_EQ( 1u, asked );
   EXPECT_EQ( "", log );
   mayRun = true;
   clock->spend( 0.25 );
   clock->runTurn();
   EXPECT_EQ( "5.25 ", log );
}

TEST_F( Scheduler, timersThatMayNotRunAreTriedAgainAfterAWhile ) {
   unsigned asked = 0;
   clock->timersMayRunIs( [&] { return ++asked == 4; } );
   alarm.timer->timeMinIs( start + 5 );
   clock->advance( 5 );
   EXPECT_EQ( 1u, asked );
   EXPECT_EQ( start + 6, clock->dueTime() );
   chore.clockReactorTimeMinIs( 0 ); // the rest of the turn is not held
   clock->advance( 0.5 );
   EXPECT_EQ( "task ", log );
   clock->advance( 10 );
   EXPECT_EQ( 4u, asked );
   EXPECT_EQ( "task timer ", log );
   EXPECT_EQ( never, clock->dueTime() );
}

TEST_F( Scheduler, hookBeforeTasksRunsOnceInATurnWithATaskThatIsDue ) {
   clock->beforeTasksIs( logs( "before" ) );
   clock->runTurn();
   EXPECT_EQ( "", log ); // nothing is due
   chore.clockReactorTimeMinIs( 0 );
   clock->runTurn();
   EXPECT_EQ( "before task ", log );
}

TEST_F( Scheduler, effectsAreLetOutOnlyAfterTheCommitSucceeded ) {
   bool durable = false;
   clock->commitHookIs( [&] { return durable; } );
   clock->effectIs( logs( "1" ) );
   clock->runTurn();
   clock->effectIs( logs( "2" ) );
   clock->runTurn();
   EXPECT_EQ( "", log );
   EXPECT_EQ( start + 1, clock->dueTime() );
   durable = true;
   clock->advance( 1 );
   EXPECT_EQ( "1 2 ", log );
   EXPECT_EQ( never, clock->dueTime() );
}

TEST_F( Scheduler, commitStopsAtTheFirstHookThatFails ) {
   bool first = false;
   clock->commitHookIs( [&] {
      log += "first ";
      return first;
   } );
   clock->commitHookIs( [&] {
      log += "second ";
      return true;
   } );
   clock->runTurn();
   EXPECT_EQ( "first ", std::exchange( log, "" ) );
   first = true;
   clock->runTurn();
   EXPECT_EQ( "first second ", log );
}

TEST_F( Scheduler, effectThatAnEffectQueuesWaitsForTheNextCommit ) {
   clock->commitHookIs( [this] {
      log += "commit ";
      return true;
   } );
   clock->effectIs( [this] { clock->effectIs( logs( "late" ) ); } );
   clock->runTurn();
   EXPECT_EQ( "commit ", log );
   EXPECT_EQ( 0, clock->dueTime() );
   clock->runTurn();
   EXPECT_EQ( "commit commit late ", log );
}

TEST_F( Scheduler, exceptionEndsTheTurnBeforeItsCommit ) {
   clock->commitHookIs( [this] {
      log += "commit ";
      return true;
   } );
   clock->effectIs( logs( "effect" ) );
   clock->post( [] { throw Vel::InternalException( "posted" ); } );
   clock->post( logs( "posted" ) );
   EXPECT_THROW( clock->runTurn(), Vel::InternalException );
   EXPECT_EQ( "", log );
   EXPECT_FALSE( clock->inTurn() );
   clock->runTurn();
   EXPECT_EQ( "posted commit effect ", log );
}

TEST_F( Scheduler, exceptionOfACommitKeepsTheEffects ) {
   bool fail = true;
   clock->commitHookIs( [&]() -> bool {
      if ( fail )
         throw Vel::InternalException( "commit" );
      return true;
   } );
   clock->effectIs( logs( "effect" ) );
   EXPECT_THROW( clock->runTurn(), Vel::InternalException );
   EXPECT_EQ( "", log );
   fail = false;
   clock->runTurn();
   EXPECT_EQ( "effect ", log );
}

TEST_F( Scheduler, turnWithinATurnIsAnAssertion ) {
   const Vel::AssertionsThrow assertions;
   clock->post( [this] { clock->runTurn(); } );
   EXPECT_THROW( clock->runTurn(), Vel::AssertionFailed );
}

TEST_F( Scheduler, wheelsMayComeAndGoDuringATurn ) {
   Vel::Ptr< Cog::TimerWheel > other;
   Alarm second;
   second.act = logs( "second" );
   alarm.act = [&] {
      log += "timer ";
      other = Vel::make< Cog::TimerWheel >( clock, 1000, 1800, true, 1024 );
      second.timer.is( other, &second ).hasNotificationActiveIs( true );
      second.timer->timeMinIs( 0 );
   };
   alarm.timer->timeMinIs( start + 1 );
   clock->advance( 1 );
   EXPECT_EQ( "timer ", log );
   clock->advance( 1 );
   EXPECT_EQ( "timer second ", log );
   alarm.act = [&] {
      log += "timer ";
      second.timer.del();
      other = nullptr;
   };
   alarm.timer->timeMinIs( start + 3 );
   second.timer->timeMinIs( start + 3 );
   clock->advance( 1 );
   EXPECT_EQ( "timer second timer ", log );
}

TEST_F( Scheduler, leavingWithoutHavingComeIsAnAssertion ) {
   struct Stranger final : Vel::Clock::Driven {
      double dueTime() const override { return 0; }
      void run( double ) override {}
   } stranger;
   const Vel::AssertionsThrow assertions;
   EXPECT_THROW( clock->drivenDel( stranger ), Vel::AssertionFailed );
}

} // namespace
