#include "Platform/Cog/TimerWheel.h"
#include "Platform/Cog/ManualClock.h"

#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <memory>
#include <random>

namespace {

constexpr double start = Cog::ManualClock::defaultStartTime;

/// Owner of a timer; what it does when it fires is up to the test.
struct Ringer {
   struct VelClock final : Cog::TimerReactor< Ringer > {
      using TimerReactor::TimerReactor;
      void onTime() override { sm()->handleTimeout(); }
   };

   Ringer( const Vel::Ptr< Cog::TimerWheel > & wheel, std::string ringerName, std::string & ringerLog )
      : name( std::move( ringerName ) ), log( ringerLog ) {
      timer.is( wheel, this ).hasNotificationActiveIs( true );
   }
   void handleTimeout() {
      ++rings;
      rangAt = Vel::System::currentTime();
      log += name;
      if ( act )
         act();
   }

   std::string name;
   std::string & log;
   std::function< void() > act;
   unsigned rings = 0;
   double rangAt = 0;
   Cog::TimerWatch< VelClock > timer;
};

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

/// A clock whose turns are the wheel's runs and nothing else.
class StepClock final : public Vel::Clock {
 public:
   double currentTime() const override { return now; }
   double liveTime() const override { return now; }
   void drivenIs( Driven & wheel, Phase phase ) override {
      ASSERT_EQ( Phase::timers, phase );
      driven = &wheel;
   }
   void drivenDel( Driven & ) override { driven = nullptr; }

   double now = start;
   Driven * driven = nullptr;
};

TEST( TimerWheelTicks, firesAtTheExactTickForAnyTickLength ) {
   for ( const Vel::U32 tickMsecs : { 1u, 3u, 7u, 10u, 33u, 100u, 333u, 1500u, 60000u } ) {
      SCOPED_TRACE( tickMsecs );
      const auto clock = Vel::make< StepClock >();
      const auto wheel = Vel::make< Cog::TimerWheel >( clock, tickMsecs, 1800, true, 1024 );
      std::string log;
      Ringer ringer( wheel, "x", log );
      const Vel::U64 first = static_cast< Vel::U64 >( start * 1000 ) / tickMsecs + 1;
      for ( Vel::U64 tick = first; tick < first + 200; ++tick ) {
         const double seconds = static_cast< double >( tick * tickMsecs ) / 1000.0;
         const double before = std::nextafter( seconds, 0 );
         const double after = std::nextafter( seconds, 1e12 );
         const double next = static_cast< double >( ( tick + 1 ) * tickMsecs ) / 1000.0;
         ringer.timer->timeMinIs( before );
         EXPECT_EQ( seconds, wheel->dueTime() );
         ringer.timer->timeMinIs( after );
         EXPECT_EQ( next, wheel->dueTime() );
         ringer.timer->timeMinIs( seconds );
         EXPECT_EQ( seconds, wheel->dueTime() );
         clock->driven->run( before );
         EXPECT_EQ( "", log );
         clock->driven->run( seconds );
         EXPECT_EQ( "x", log );
         log.clear();
      }
   }
}

/// Random operations on a wheel and on a plain list of what should happen, from inside and outside of handlers.
class Model {
 public:
   Model( unsigned seed, Vel::U32 ticks ) : random_( seed ) {
      wheel_ = Vel::make< Cog::TimerWheel >( clock_, 1000, ticks, true, 1024 );
      for ( unsigned i = 0; i < 60; ++i )
         timers_.push_back( std::make_unique< Member >( *this, i ) );
   }

   void play( unsigned turns ) {
      for ( unsigned turn = 0; turn < turns && !testing::Test::HasFailure(); ++turn ) {
         for ( unsigned i = pick( 12 ); i > 0; --i )
            operate();
         EXPECT_EQ( expectedDueTime(), wheel_->dueTime() );
         clock_->now += step();
         runTurn();
      }
      EXPECT_GT( fired_, turns );
   }

 private:
   struct Member {
      struct VelClock final : Cog::TimerReactor< Member > {
         using TimerReactor::TimerReactor;
         void onTime() override { sm()->model.handleTimeout( *sm() ); }
      };
      Member( Model & owner, unsigned number ) : model( owner ), id( number ) {
         timer.is( model.wheel_, this );
      }

      Model & model;
      unsigned id;
      Cog::TimerWatch< VelClock > timer;
      bool active = false;
      double time = Cog::Timer::never;
      // The place of an armed member: by tick, then by when it was set. 0: not armed.
      Vel::U64 tick = 0;
      Vel::U64 sequence = 0;
   };
   using Place = std::pair< Vel::U64, Vel::U64 >;

   unsigned pick( unsigned below ) { return static_cast< unsigned >( random_() % below ); }

   double step() {
      switch ( pick( 8 ) ) {
      case 0:
         return 0;
      case 1:
         return 0.1 * pick( 30 );
      case 2:
         return pick( 300 );
      case 3:
         return pick( 20 ) == 0 ? 1e6 + pick( 1000000 ) : 3;
      default:
         return 1;
      }
   }

   double someTime() {
      const double now = clock_->now;
      switch ( pick( 10 ) ) {
      case 0:
         return Cog::Timer::never;
      case 1:
         return now - pick( 100 );
      case 2:
         return now + 0.1 * pick( 50 );
      case 3:
         return now + pick( 3000 );
      case 4:
         return now + 64.0 * pick( 10000 );
      case 5:
         return pick( 4 ) == 0 ? now + 1e6 * pick( 1000000 ) : 0;
      default:
         return std::floor( now ) + pick( 6 );
      }
   }

   void place( Member & member ) {
      member.tick = 0;
      if ( !member.active || !( member.time < 9e12 ) )
         return;
      const Vel::U64 tick = static_cast< Vel::U64 >( std::ceil( std::max( member.time, 0.0 ) ) );
      member.tick = std::max( tick, gone_ + 1 );
      member.sequence = ++sequence_;
   }

   void operate() {
      Member & member = *timers_[pick( static_cast< unsigned >( timers_.size() ) )];
      switch ( pick( 8 ) ) {
      case 0:
         member.timer->hasNotificationActiveIs( false );
         member.active = false;
         member.tick = 0;
         break;
      case 1:
         // Destroyed and made again under the same number.
         if ( &member != firing_ ) {
            member.timer.is( wheel_, &member );
            member.active = false;
            member.time = Cog::Timer::never;
            member.tick = 0;
         }
         break;
      case 2:
      case 3:
         member.timer->hasNotificationActiveIs( true );
         if ( !std::exchange( member.active, true ) )
            place( member );
         break;
      default:
         member.time = someTime();
         member.timer->timeMinIs( member.time );
         place( member );
      }
   }

   double expectedDueTime() const {
      double due = Cog::Timer::never;
      for ( const auto & member : timers_ )
         if ( member->tick != 0 )
            due = std::min( due, static_cast< double >( member->tick ) );
      return due;
   }

   void runTurn() {
      const Vel::U64 limit = static_cast< Vel::U64 >( std::floor( clock_->now ) );
      expected_.clear();
      for ( const auto & member : timers_ )
         if ( member->tick != 0 && member->tick <= limit )
            expected_[{ member->tick, member->sequence }] = member->id;
      gone_ = std::max( gone_, limit );
      clock_->driven->run( clock_->now );
      for ( const auto & [place, id] : expected_ )
         EXPECT_NE( place, Place( timers_[id]->tick, timers_[id]->sequence ) ) << id << " did not fire";
   }

   void handleTimeout( Member & member ) {
      // Those in front that were changed by a handler are not to fire any more.
      while ( !expected_.empty() ) {
         const auto [place, id] = *expected_.begin();
         if ( place == Place( timers_[id]->tick, timers_[id]->sequence ) )
            break;
         expected_.erase( expected_.begin() );
      }
      ASSERT_FALSE( expected_.empty() ) << member.id << " fired though nothing is due";
      ASSERT_EQ( expected_.begin()->second, member.id );
      expected_.erase( expected_.begin() );
      ASSERT_GE( clock_->now, member.time );
      member.tick = 0;
      member.time = Cog::Timer::never;
      EXPECT_EQ( Cog::Timer::never, member.timer->timeMin() );
      ++fired_;
      firing_ = &member;
      for ( unsigned i = pick( 4 ); i > 0; --i )
         operate();
      firing_ = nullptr;
   }

   std::mt19937 random_;
   const Vel::Ptr< StepClock > clock_ = Vel::make< StepClock >();
   Vel::Ptr< Cog::TimerWheel > wheel_;
   std::vector< std::unique_ptr< Member > > timers_;
   std::map< Place, unsigned > expected_;
   Member * firing_ = nullptr;
   Vel::U64 gone_ = static_cast< Vel::U64 >( start );
   Vel::U64 sequence_ = 0;
   unsigned fired_ = 0;
};

TEST( TimerWheelModel, randomOperationsFireWhatASortedListFires ) {
   for ( const Vel::U32 ticks : { 64u, 1800u } )
      for ( unsigned seed = 1; seed <= 20 && !testing::Test::HasFailure(); ++seed ) {
         SCOPED_TRACE( testing::Message() << "seed " << seed << ", ticks " << ticks );
         Model( seed, ticks ).play( 500 );
      }
}

} // namespace
