#include "Platform/Cog/TimerWheel.h"
#include "Platform/Cog/ManualClock.h"
#include "Platform/Cog/RingerRig.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>

namespace {

using Cog::Ringer;

constexpr double start = Cog::ManualClock::defaultStartTime;

class TimerWheel : public testing::Test {
 protected:
   TimerWheel() { Vel::System::clockIs( clock ); }
   ~TimerWheel() override { Vel::System::clockIs( nullptr ); }

   Vel::Ptr< Cog::TimerWheel > wheelIs( Vel::U32 tickMsecs = 1000, Vel::U32 ticks = 1800 ) {
      return Vel::make< Cog::TimerWheel >( clock, tickMsecs, ticks, true, 1024 );
   }
   std::unique_ptr< Ringer > ringerIs( const std::string & name ) {
      return std::make_unique< Ringer >( wheel, name, log );
   }

   const Vel::Ptr< Cog::ManualClock > clock = Vel::make< Cog::ManualClock >();
   Vel::Ptr< Cog::TimerWheel > wheel = wheelIs();
   std::string log;
   std::unique_ptr< Ringer > a = ringerIs( "a" );
   std::unique_ptr< Ringer > b = ringerIs( "b" );
   std::unique_ptr< Ringer > c = ringerIs( "c" );
};

TEST_F( TimerWheel, firesAtTheFirstTickAtOrAfterTheTime ) {
   struct Row {
      double set;
      double fires;
   };
   for ( const Row & row :
         { Row{ 5, 5 }, Row{ 5.25, 6 }, Row{ 4.999, 5 }, Row{ 0.001, 1 }, Row{ 60.5, 61 } } ) {
      SCOPED_TRACE( row.set );
      const double base = clock->currentTime();
      a->timer->timeMinIs( base + row.set );
      clock->timeIs( base + row.fires - 0.001 );
      EXPECT_EQ( 0u, a->rings );
      clock->timeIs( base + row.fires );
      EXPECT_EQ( 1u, std::exchange( a->rings, 0 ) );
      EXPECT_EQ( base + row.fires, a->rangAt );
   }
}

TEST_F( TimerWheel, ticksAreMultiplesOfTheTickLengthWheneverTheWheelWasMade ) {
   clock->advance( 0.4 );
   wheel = wheelIs( 10000 );
   a = ringerIs( "a" );
   a->timer->timeMinIs( clock->currentTime() + 0.1 );
   clock->advance( 30 );
   EXPECT_EQ( start + 10, a->rangAt );
}

TEST_F( TimerWheel, firesInTheOrderSetWithinOneTick ) {
   c->timer->timeMinIs( start + 4.9 );
   a->timer->timeMinIs( start + 4.2 );
   b->timer->timeMinIs( start + 5 );
   clock->advance( 5 );
   EXPECT_EQ( "cab", log );
}

TEST_F( TimerWheel, settingAgainReplacesTheTime ) {
   a->timer->timeMinIs( start + 5 );
   a->timer->timeMinIs( start + 8 );
   b->timer->timeMinIs( start + 8 );
   b->timer->timeMinIs( start + 5 );
   clock->advance( 20 );
   EXPECT_EQ( "ba", log );
   EXPECT_EQ( start + 8, a->rangAt );
}

TEST_F( TimerWheel, settingAgainToTheSameTimeIsSettingLater ) {
   a->timer->timeMinIs( start + 5 );
   b->timer->timeMinIs( start + 5 );
   a->timer->timeMinIs( start + 5 );
   clock->advance( 5 );
   EXPECT_EQ( "ba", log );
}

TEST_F( TimerWheel, infinityDisarms ) {
   a->timer->timeMinIs( start + 5 );
   a->timer->timeMinIs( Cog::Timer::never );
   clock->advance( 100 );
   EXPECT_EQ( "", log );
   EXPECT_EQ( Cog::Timer::never, a->timer->timeMin() );
}

TEST_F( TimerWheel, isDisarmedFromTheMomentItFires ) {
   double seen = 0;
   a->act = [&] { seen = a->timer->timeMin(); };
   a->timer->timeMinIs( start + 5 );
   EXPECT_EQ( start + 5, a->timer->timeMin() );
   clock->advance( 100 );
   EXPECT_EQ( Cog::Timer::never, seen );
   EXPECT_EQ( "a", log );
}

TEST_F( TimerWheel, notANumberIsAnAssertion ) {
   const Vel::AssertionsThrow assertions;
   EXPECT_THROW( a->timer->timeMinIs( std::nan( "" ) ), Vel::AssertionFailed );
   EXPECT_EQ( Cog::Timer::never, a->timer->timeMin() );
}

TEST_F( TimerWheel, valueSetBeforeSwitchingOnCounts ) {
   a->timer.is( wheel, a.get() );
   a->timer->timeMinIs( start + 5 );
   clock->advance( 2 );
   a->timer.hasNotificationActiveIs( true );
   clock->advance( 3 );
   EXPECT_EQ( "a", log );
}

TEST_F( TimerWheel, doesNotFireUnlessSwitchedOn ) {
   a->timer.is( wheel, a.get() );
   a->timer->timeMinIs( start + 5 );
   b->timer->timeMinIs( start + 5 );
   b->timer.hasNotificationActiveIs( false );
   clock->advance( 100 );
   EXPECT_EQ( "", log );
}

TEST_F( TimerWheel, keepsItsTimeWhileSwitchedOff ) {
   a->timer->timeMinIs( start + 5 );
   a->timer->hasNotificationActiveIs( false );
   EXPECT_EQ( start + 5, a->timer->timeMin() );
   clock->advance( 7 );
   a->timer->hasNotificationActiveIs( true );
   clock->advance( 0.5 );
   EXPECT_EQ( "", log );
   clock->advance( 0.5 );
   EXPECT_EQ( "a", log );
}

TEST_F( TimerWheel, switchingOnTwiceKeepsThePlace ) {
   a->timer->timeMinIs( start + 5 );
   b->timer->timeMinIs( start + 5 );
   a->timer->hasNotificationActiveIs( true );
   clock->advance( 5 );
   EXPECT_EQ( "ab", log );
}

TEST_F( TimerWheel, firesOnlyOnce ) {
   a->timer->timeMinIs( start + 5 );
   clock->advance( 1000 );
   EXPECT_EQ( "a", log );
}

TEST_F( TimerWheel, periodOfFiveSecondsIsFiveTicks ) {
   a->act = [&] { a->timer->timeMinIs( clock->currentTime() + 5 ); };
   a->timer->timeMinIs( start + 5 );
   clock->advance( 100 );
   EXPECT_EQ( 20u, a->rings );
   EXPECT_EQ( start + 100, a->rangAt );
}

TEST_F( TimerWheel, timerDisarmedByAHandlerOfTheSameTickDoesNotFire ) {
   a->act = [&] { b->timer->timeMinIs( Cog::Timer::never ); };
   for ( Ringer * ringer : { a.get(), b.get(), c.get() } )
      ringer->timer->timeMinIs( start + 5 );
   clock->advance( 50 );
   EXPECT_EQ( "ac", log );
}

TEST_F( TimerWheel, timerSetAgainByAHandlerOfTheSameTickFiresThen ) {
   a->act = [&] { b->timer->timeMinIs( start + 9 ); };
   for ( Ringer * ringer : { a.get(), b.get(), c.get() } )
      ringer->timer->timeMinIs( start + 5 );
   clock->advance( 50 );
   EXPECT_EQ( "acb", log );
   EXPECT_EQ( start + 9, b->rangAt );
}

TEST_F( TimerWheel, timerSwitchedOffByAHandlerOfTheSameTickDoesNotFire ) {
   a->act = [&] { b->timer->hasNotificationActiveIs( false ); };
   for ( Ringer * ringer : { a.get(), b.get(), c.get() } )
      ringer->timer->timeMinIs( start + 5 );
   clock->advance( 50 );
   EXPECT_EQ( "ac", log );
}

TEST_F( TimerWheel, timerDestroyedByAHandlerOfTheSameTickDoesNotFire ) {
   a->act = [&] { b.reset(); };
   for ( Ringer * ringer : { a.get(), b.get(), c.get() } )
      ringer->timer->timeMinIs( start + 5 );
   clock->advance( 50 );
   EXPECT_EQ( "ac", log );
}

TEST_F( TimerWheel, timerThatIsDestroyedBeforeItsTickNeverFires ) {
   a->timer->timeMinIs( start + 5 );
   b->timer->timeMinIs( start + 5 );
   clock->advance( 2 );
   a.reset();
   clock->advance( 50 );
   EXPECT_EQ( "b", log );
   EXPECT_EQ( Cog::Timer::never, wheel->dueTime() );
}

TEST_F( TimerWheel, timerMayDestroyItselfWhileItFires ) {
   a->act = [&] { a->timer.del(); };
   a->timer->timeMinIs( start + 5 );
   b->timer->timeMinIs( start + 5 );
   clock->advance( 50 );
   EXPECT_EQ( "ab", log );
}

TEST_F( TimerWheel, nobodyFiresTwiceInOneTurn ) {
   for ( const double again : { 0.0, start + 5, -Cog::Timer::never } ) {
      SCOPED_TRACE( again );
      log.clear();
      const double base = clock->currentTime();
      a->act = [&] {
         if ( a->rings < 3 )
            a->timer->timeMinIs( again );
      };
      a->rings = 0;
      a->timer->timeMinIs( base + 5 );
      clock->advance( 5 );
      EXPECT_EQ( "a", log );
      clock->advance( 1 );
      EXPECT_EQ( "aa", log );
      clock->advance( 1 );
      EXPECT_EQ( "aaa", log );
      clock->advance( 10 );
      EXPECT_EQ( "aaa", log );
   }
}

TEST_F( TimerWheel, overdueTicksFireInOneTurnInTheirOrderWithTheSameTime ) {
   b->timer->timeMinIs( start + 3 );
   a->timer->timeMinIs( start + 2 );
   c->timer->timeMinIs( start + 1 );
   a->act = [&] { b->act = nullptr; };
   clock->spend( 3.5 );
   clock->runTurn();
   EXPECT_EQ( "cab", log );
   for ( const Ringer * ringer : { a.get(), b.get(), c.get() } )
      EXPECT_EQ( start + 3.5, ringer->rangAt );
}

TEST_F( TimerWheel, handlerOfAnOverdueTickCannotAddToALaterOverdueTick ) {
   a->timer->timeMinIs( start + 1 );
   b->timer->timeMinIs( start + 3 );
   a->act = [&] { c->timer->timeMinIs( start + 3 ); };
   clock->spend( 3.5 );
   clock->runTurn();
   EXPECT_EQ( "ab", log );
   clock->advance( 0.5 );
   EXPECT_EQ( "abc", log );
   EXPECT_EQ( start + 4, c->rangAt );
}

TEST_F( TimerWheel, timeThatHasPassedMeansTheNextTick ) {
   clock->advance( 100.25 );
   a->timer->timeMinIs( start + 50 );
   b->timer->timeMinIs( 0 );
   clock->advance( 0.5 );
   EXPECT_EQ( "", log );
   clock->advance( 0.25 );
   EXPECT_EQ( "ab", log );
   EXPECT_EQ( start + 101, a->rangAt );
}

TEST_F( TimerWheel, timersNeverFireInsideTheCallThatSetsThem ) {
   clock->advance( 10 );
   a->timer->timeMinIs( 0 );
   a->timer->timeMinIs( clock->currentTime() );
   EXPECT_EQ( "", log );
}

TEST_F( TimerWheel, orderWithinATickIsKeptBeyondTheSpan ) {
   wheel = wheelIs( 1000, 64 );
   a = ringerIs( "a" );
   b = ringerIs( "b" );
   c = ringerIs( "c" );
   for ( const double far : { 64.0, 65.0, 5000.0, 4096.0 * 64, 1.0e7 } ) {
      SCOPED_TRACE( far );
      log.clear();
      const double base = clock->currentTime();
      b->timer->timeMinIs( base + far );
      clock->timeIs( base + far - 63 );
      c->timer->timeMinIs( base + far );
      clock->timeIs( base + far - 1 );
      a->timer->timeMinIs( base + far - 0.5 );
      EXPECT_EQ( "", log );
      clock->timeIs( base + far );
      EXPECT_EQ( "bca", log );
      EXPECT_EQ( base + far, b->rangAt );
   }
}

TEST_F( TimerWheel, farTimesKeepTheirExactTick ) {
   wheel = wheelIs( 10, 64 );
   a = ringerIs( "a" );
   const double far = start + 123456789.12;
   a->timer->timeMinIs( far );
   EXPECT_EQ( far, wheel->dueTime() );
   clock->timeIs( far - 0.01 );
   EXPECT_EQ( "", log );
   clock->timeIs( far + 0.01 );
   EXPECT_EQ( far, a->rangAt );
}

TEST_F( TimerWheel, timesBeyondAllTicksNeverFireButAreRemembered ) {
   a->timer->timeMinIs( 1e300 );
   EXPECT_EQ( 1e300, a->timer->timeMin() );
   EXPECT_EQ( Cog::Timer::never, wheel->dueTime() );
   a->timer->timeMinIs( 8.9e12 );
   EXPECT_EQ( 8.9e12, wheel->dueTime() );
}

TEST_F( TimerWheel, tellsWhenItIsDue ) {
   EXPECT_EQ( Cog::Timer::never, wheel->dueTime() );
   a->timer->timeMinIs( start + 5000 );
   EXPECT_EQ( start + 5000, wheel->dueTime() );
   b->timer->timeMinIs( start + 4000.5 );
   EXPECT_EQ( start + 4001, wheel->dueTime() );
   c->timer->timeMinIs( start + 3 );
   EXPECT_EQ( start + 3, wheel->dueTime() );
   c->timer->timeMinIs( Cog::Timer::never );
   EXPECT_EQ( start + 4001, wheel->dueTime() );
   b.reset();
   EXPECT_EQ( start + 5000, wheel->dueTime() );
   a->timer->hasNotificationActiveIs( false );
   EXPECT_EQ( Cog::Timer::never, wheel->dueTime() );
}

TEST_F( TimerWheel, turnsHappenOnlyAtTicksWithATimer ) {
   a->timer->timeMinIs( start + 7000 );
   const Vel::U64 before = clock->turns();
   clock->advance( 10000 );
   EXPECT_EQ( 3u, clock->turns() - before ); // the first, the tick's, the last
}

TEST_F( TimerWheel, goesOnAfterALongStandstill ) {
   a->timer->timeMinIs( start + 5 );
   clock->spend( 1e9 );
   clock->runTurn();
   EXPECT_EQ( start + 1e9, a->rangAt );
   a->timer->timeMinIs( start + 1e9 + 3 );
   b->timer->timeMinIs( start + 5 );
   clock->advance( 1 );
   EXPECT_EQ( "ab", log );
   clock->advance( 2 );
   EXPECT_EQ( "aba", log );
}

TEST_F( TimerWheel, exceptionPassesAndTheOthersFireInTheNextTurn ) {
   a->act = [] { throw Vel::InternalException( "a" ); };
   for ( Ringer * ringer : { a.get(), b.get(), c.get() } )
      ringer->timer->timeMinIs( start + 5 );
   EXPECT_THROW( clock->advance( 5 ), Vel::InternalException );
   EXPECT_EQ( "a", log );
   EXPECT_EQ( Cog::Timer::never, a->timer->timeMin() );
   EXPECT_EQ( start + 5, wheel->dueTime() );
   c.reset();
   clock->runTurn();
   EXPECT_EQ( "ab", log );
   EXPECT_EQ( Cog::Timer::never, wheel->dueTime() );
}

TEST_F( TimerWheel, timersHoldTheirWheel ) {
   a->timer->timeMinIs( start + 5 );
   b.reset();
   c.reset();
   wheel = nullptr;
   clock->advance( 5 );
   EXPECT_EQ( "a", log );
}

TEST_F( TimerWheel, wheelLeavesTheClockWithItsLastHolder ) {
   for ( std::unique_ptr< Ringer > * ringer : { &a, &b, &c } )
      ringer->reset();
   EXPECT_EQ( 2u, clock->getRefCount() - 1 ); // the test, the wheel; one more is the process's clock
   wheel = nullptr;
   EXPECT_EQ( 1u, clock->getRefCount() - 1 );
   clock->advance( 10 );
}

TEST_F( TimerWheel, handlerMayDropTheLastHolderOfTheWheel ) {
   b.reset();
   c.reset();
   wheel = nullptr;
   a->act = [&] { a->timer.del(); };
   a->timer->timeMinIs( start + 5 );
   clock->advance( 10 );
   EXPECT_EQ( "a", log );
   EXPECT_EQ( 1u, clock->getRefCount() - 1 );
}

TEST_F( TimerWheel, showsWhatItWasMadeWith ) {
   EXPECT_EQ( clock, wheel->clock() );
   EXPECT_EQ( 1000u, wheel->tickMsecs() );
   EXPECT_EQ( 1800u, wheel->initialMaxTicks() );
   EXPECT_TRUE( wheel->preserveOrder() );
   EXPECT_EQ( 1024u, wheel->defaultBucketSize() );
   EXPECT_EQ( wheel.get(), a->timer->entity() );
}

TEST_F( TimerWheel, keepsTheOrderAlsoWhenNotAskedTo ) {
   wheel = Vel::make< Cog::TimerWheel >( clock, 1000, 0, false, 0 );
   a = ringerIs( "a" );
   b = ringerIs( "b" );
   b->timer->timeMinIs( start + 5 );
   a->timer->timeMinIs( start + 5 );
   clock->advance( 5 );
   EXPECT_EQ( "ba", log );
}

TEST_F( TimerWheel, cannotBeMadeWithoutAClockOrATick ) {
   EXPECT_THROW( Vel::make< Cog::TimerWheel >( nullptr, 1000, 1800, true, 1024 ), Vel::RangeError );
   EXPECT_THROW( Ringer::VelClock( nullptr, a.get() ), Vel::RangeError );
   const Vel::AssertionsThrow assertions;
   EXPECT_THROW( wheelIs( 0 ), Vel::AssertionFailed );
}

} // namespace
