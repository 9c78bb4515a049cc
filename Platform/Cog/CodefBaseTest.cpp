#include "Platform/Cog/CodefBase.h"
#include "Platform/Cog/ActingRig.h"
#include "Platform/Cog/ManualClock.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>

namespace {

constexpr double start = Cog::ManualClock::defaultStartTime;

/// Works off a number of items, each of which takes some time.
class Digger final : public Vel::Entity, public Cog::CodefBase {
   VEL_ENTITY( Digger );
   Digger( const Vel::Ptr< Cog::ManualClock > & manualClock, std::string diggerName, std::string & diggerLog )
      : CodefBase( manualClock ), manual( manualClock ), name( std::move( diggerName ) ), log( diggerLog ) {}

   void add( Vel::U64 items ) {
      updatesSeenInc( items );
      backlog += items;
      clockReactorTimeMinIs( 0 );
   }
   Vel::U64 backlogSize() const override { return backlog; }
   Vel::U64 processBacklog( double startTime ) override {
      startTimes.push_back( startTime );
      runTurns.push_back( manual->turns() );
      log += name;
      if ( act )
         act();
      Vel::U64 count = 0;
      while ( backlog > 0 && ( count == 0 || liveTime() < startTime + backlogQuantum() ) ) {
         --backlog;
         ++count;
         manual->spend( costPerItem );
      }
      return count;
   }

   Vel::Ptr< Cog::ManualClock > manual;
   std::string name;
   std::string & log;
   std::function< void() > act;
   double costPerItem = 0;
   Vel::U64 backlog = 0;
   std::vector< double > startTimes;
   std::vector< Vel::U64 > runTurns;
};

using Cog::Alarm;

class CodefBase : public testing::Test {
 protected:
   Vel::Ptr< Digger > diggerIs( const std::string & name ) { return Vel::make< Digger >( clock, name, log ); }

   const Vel::Ptr< Cog::ManualClock > clock = Vel::make< Cog::ManualClock >();
   std::string log;
   Vel::Ptr< Digger > a = diggerIs( "a" );
   Vel::Ptr< Digger > b = diggerIs( "b" );
};

TEST_F( CodefBase, doesNotRunInsideTheCallThatAsksForIt ) {
   a->add( 1 );
   EXPECT_EQ( "", log );
   EXPECT_EQ( 1u, a->backlog );
}

TEST_F( CodefBase, doesNotRunUnlessAskedTo ) {
   a->backlog = 1;
   clock->advance( 10 );
   EXPECT_EQ( "", log );
}

TEST_F( CodefBase, runsOnceForSeveralRequests ) {
   for ( int i = 0; i < 5; ++i )
      a->add( 1 );
   clock->advance( 1 );
   EXPECT_EQ( "a", log );
   EXPECT_EQ( 0u, a->backlog );
}

TEST_F( CodefBase, requestOfAnEventRunsInTheSameTurn ) {
   clock->post( [this] { a->add( 1 ); } );
   clock->runTurn();
   EXPECT_EQ( "a", log );
}

TEST_F( CodefBase, requestOfATimerRunsInTheSameTurn ) {
   Alarm alarm;
   const auto wheel = Vel::make< Cog::TimerWheel >( clock, 1000, 1800, true, 1024 );
   alarm.timer.is( wheel, &alarm ).hasNotificationActiveIs( true );
   Vel::U64 turn = 0;
   alarm.act = [&] {
      a->add( 1 );
      turn = clock->turns();
   };
   alarm.timer->timeMinIs( start + 1 );
   clock->advance( 1 );
   EXPECT_EQ( std::vector< Vel::U64 >{ turn }, a->runTurns );
}

TEST_F( CodefBase, requestOfATaskRunsInTheNextTurnWithoutWaiting ) {
   a->act = [this] { b->add( 1 ); };
   b->act = [this] {
      a->act = nullptr;
      a->add( 1 );
   };
   a->add( 1 );
   clock->runTurn();
   EXPECT_EQ( "a", log );
   EXPECT_EQ( 0, clock->dueTime() );
   clock->runTurn();
   EXPECT_EQ( "ab", log );
   clock->runTurn();
   EXPECT_EQ( "aba", log );
   EXPECT_EQ( start, clock->currentTime() );
}

TEST_F( CodefBase, requestOfItselfRunsInTheNextTurn ) {
   a->act = [this] {
      if ( log.size() < 3 )
         a->clockReactorTimeMinIs( 0 );
   };
   a->add( 1 );
   clock->runTurn();
   EXPECT_EQ( "a", log );
   EXPECT_EQ( 2u, clock->runUntilIdle() );
   EXPECT_EQ( "aaa", log );
}

TEST_F( CodefBase, pausedRunGoesOnInTheNextTurnWithoutWaiting ) {
   a->costPerItem = 0.004;
   a->add( 7 );
   clock->runTurn();
   EXPECT_EQ( 4u, a->backlog ); // 4, 8, 12 ms: the slice of 10 ms is spent
   EXPECT_EQ( 0, clock->dueTime() );
   clock->runTurn();
   EXPECT_EQ( 1u, a->backlog );
   clock->runTurn();
   EXPECT_EQ( 0u, a->backlog );
   EXPECT_EQ( std::numeric_limits< double >::infinity(), clock->dueTime() );
   EXPECT_EQ( "aaa", log );
}

TEST_F( CodefBase, startTimeIsTheLiveTime ) {
   a->costPerItem = 0.004;
   a->add( 2 );
   b->add( 1 );
   clock->runTurn();
   EXPECT_EQ( std::vector< double >{ start }, a->startTimes );
   EXPECT_EQ( std::vector< double >{ start + 0.004 + 0.004 }, b->startTimes );
   EXPECT_EQ( start, clock->currentTime() );
}

TEST_F( CodefBase, sliceCanBeSet ) {
   EXPECT_EQ( 0.010, a->backlogQuantum() );
   a->costPerItem = 0.004;
   a->backlogQuantumIs( 0 );
   a->add( 3 );
   clock->runUntilIdle();
   EXPECT_EQ( "aaa", log );
   a->backlogQuantumIs( 1 );
   a->add( 100 );
   clock->runUntilIdle();
   EXPECT_EQ( "aaaa", log );
   const Vel::AssertionsThrow assertions;
   EXPECT_THROW( a->backlogQuantumIs( -0.001 ), Vel::AssertionFailed );
   EXPECT_THROW( a->backlogQuantumIs( std::nan( "" ) ), Vel::AssertionFailed );
}

TEST_F( CodefBase, keepsAccountOfItsRuns ) {
   EXPECT_FALSE( a->warm() );
   a->costPerItem = 0.004;
   a->add( 7 );
   a->updatesSeenInc(); // an item that waited already
   clock->runTurn();
   EXPECT_EQ( 8u, a->updatesSeen() );
   EXPECT_EQ( 3u, a->updatesProcessed() );
   EXPECT_EQ( 0u, a->updatesCoalesced() );
   EXPECT_EQ( 1u, a->dispatchCount() );
   EXPECT_EQ( 1u, a->yieldBeforeFinishingCount() );
   EXPECT_NEAR( 0.012, a->timeUsed(), 1e-6 );
   EXPECT_FALSE( a->warm() );
   clock->runUntilIdle();
   EXPECT_EQ( 7u, a->updatesProcessed() );
   EXPECT_EQ( 1u, a->updatesCoalesced() );
   EXPECT_EQ( 3u, a->dispatchCount() );
   EXPECT_EQ( 2u, a->yieldBeforeFinishingCount() );
   EXPECT_NEAR( 0.028, a->timeUsed(), 1e-6 );
   EXPECT_TRUE( a->warm() );
}

TEST_F( CodefBase, requestMayBeForALaterTime ) {
   a->backlog = 1;
   a->clockReactorTimeMinIs( start + 2.5 );
   EXPECT_EQ( start + 2.5, a->clockReactorTimeMin() );
   clock->advance( 2 );
   EXPECT_EQ( "", log );
   clock->advance( 1 );
   EXPECT_EQ( std::vector< double >{ start + 2.5 }, a->startTimes );
}

TEST_F( CodefBase, requestCanBeTakenBack ) {
   a->add( 1 );
   a->clockReactorTimeMinIs( std::numeric_limits< double >::infinity() );
   clock->advance( 1 );
   EXPECT_EQ( "", log );
   const Vel::AssertionsThrow assertions;
   EXPECT_THROW( a->clockReactorTimeMinIs( std::nan( "" ) ), Vel::AssertionFailed );
}

TEST_F( CodefBase, requestTakenBackByAnotherTaskOfTheSameTurnDoesNotRun ) {
   a->add( 1 );
   b->add( 1 );
   a->act = [this] { b->clockReactorTimeMinIs( std::numeric_limits< double >::infinity() ); };
   clock->advance( 1 );
   EXPECT_EQ( "a", log );
}

TEST_F( CodefBase, destroyingCancelsIt ) {
   a->add( 1 );
   a = nullptr;
   clock->advance( 1 );
   EXPECT_EQ( "", log );
}

TEST_F( CodefBase, mayBeDestroyedByAnotherTaskOfTheSameTurn ) {
   a->add( 1 );
   b->add( 1 );
   a->act = [this] { b = nullptr; };
   clock->advance( 1 );
   EXPECT_EQ( "a", log );
}

TEST_F( CodefBase, mayBeDestroyedByATimerOfTheSameTurn ) {
   a->add( 1 );
   clock->post( [this] { a = nullptr; } );
   clock->advance( 1 );
   EXPECT_EQ( "", log );
}

/// Is destroyed by the work it does.
class Suicide final : public Cog::CodefBase {
 public:
   Suicide( const Vel::Ptr< Vel::Clock > & clock, std::unique_ptr< Suicide > & self, bool fail )
      : CodefBase( clock ), self_( self ), fail_( fail ) {}
   Vel::U64 backlogSize() const override { return 1; }
   Vel::U64 processBacklog( double ) override {
      const bool fail = fail_;
      self_.reset();
      if ( fail )
         throw Vel::InternalException( "destroyed" );
      return 1;
   }

 private:
   std::unique_ptr< Suicide > & self_;
   bool fail_;
};

TEST_F( CodefBase, mayBeDestroyedByItsOwnRun ) {
   std::unique_ptr< Suicide > suicide;
   suicide = std::make_unique< Suicide >( clock, suicide, false );
   suicide->clockReactorTimeMinIs( 0 );
   clock->advance( 1 );
   EXPECT_FALSE( suicide );
   suicide = std::make_unique< Suicide >( clock, suicide, true );
   suicide->clockReactorTimeMinIs( 0 );
   EXPECT_THROW( clock->advance( 1 ), Vel::InternalException );
   EXPECT_FALSE( suicide );
   clock->advance( 1 );
}

TEST_F( CodefBase, exceptionPassesAndWorkThatIsLeftStaysAskedFor ) {
   a->add( 2 );
   a->act = [this] {
      a->act = nullptr;
      clock->spend( 0.5 );
      throw Vel::InternalException( "a" );
   };
   EXPECT_THROW( clock->advance( 1 ), Vel::InternalException );
   EXPECT_EQ( 1u, a->dispatchCount() );
   EXPECT_EQ( 0u, a->updatesProcessed() );
   EXPECT_NEAR( 0.5, a->timeUsed(), 1e-6 );
   clock->advance( 1 );
   EXPECT_EQ( 2u, a->updatesProcessed() );
   EXPECT_EQ( 0u, a->backlog );
}

TEST_F( CodefBase, runsInTheOrderInWhichTheTasksWereMade ) {
   b->add( 1 );
   a->add( 1 );
   clock->advance( 1 );
   EXPECT_EQ( "ab", log );
}

TEST_F( CodefBase, cannotBeMadeWithoutAClock ) {
   std::unique_ptr< Suicide > none;
   EXPECT_THROW( Suicide( nullptr, none, false ), Vel::RangeError );
}

} // namespace
