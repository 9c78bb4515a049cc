#include "Platform/Cog/ManualClock.h"
#include "Platform/Cog/RingerRig.h"
#include "Platform/Cog/TimerWheel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

using Cog::Ringer;

constexpr double start = Cog::ManualClock::defaultStartTime;

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
