#include "Platform/Cog/ManualClock.h"
#include "Platform/Cog/ActingRig.h"
#include "Platform/Cog/ActivityManager.h"

#include <gtest/gtest.h>

namespace {

using Cog::Alarm;

TEST( ManualClock, startsWhereItIsTold ) {
   EXPECT_EQ( 1.7e9, Vel::make< Cog::ManualClock >()->currentTime() );
   const auto clock = Vel::make< Cog::ManualClock >( 1000.5 );
   EXPECT_EQ( 1000.5, clock->currentTime() );
   EXPECT_EQ( 1000.5, clock->liveTime() );
}

TEST( ManualClock, eachDueTickHasATurnOfItsOwn ) {
   const auto clock = Vel::make< Cog::ManualClock >( 1000 );
   const auto wheel = Vel::make< Cog::TimerWheel >( clock, 1000, 1800, true, 1024 );
   std::vector< std::pair< double, Vel::U64 > > seen;
   Alarm alarm;
   alarm.act = [&] {
      seen.push_back( { clock->currentTime(), clock->turns() } );
      alarm.timer->timeMinIs( clock->currentTime() + 5 );
   };
   alarm.timer.is( wheel, &alarm ).hasNotificationActiveIs( true );
   alarm.timer->timeMinIs( 1005 );
   clock->advance( 17 );
   EXPECT_EQ(
      ( std::vector< std::pair< double, Vel::U64 > >{ { 1005, 2 }, { 1010, 3 }, { 1015, 4 } } ), seen );
   EXPECT_EQ( 1017, clock->currentTime() );
   EXPECT_EQ( 5u, clock->turns() );
}

TEST( ManualClock, endsWithATurnAtTheTimeAskedFor ) {
   const auto clock = Vel::make< Cog::ManualClock >( 1000 );
   std::vector< double > commits;
   clock->commitHookIs( [&] {
      commits.push_back( clock->currentTime() );
      return true;
   } );
   clock->timeIs( 1003.5 );
   EXPECT_EQ( ( std::vector< double >{ 1000, 1003.5 } ), commits );
   clock->advance( 0 );
   EXPECT_EQ( 3u, commits.size() );
}

TEST( ManualClock, whatIsPostedRunsAtThePresentTime ) {
   const auto clock = Vel::make< Cog::ManualClock >( 1000 );
   std::vector< double > times;
   clock->post( [&] {
      times.push_back( clock->currentTime() );
      clock->post( [&] { times.push_back( clock->currentTime() ); } );
   } );
   clock->advance( 10 );
   EXPECT_EQ( ( std::vector< double >{ 1000, 1000 } ), times );
}

TEST( ManualClock, runUntilIdleDoesNotMoveTheTime ) {
   const auto clock = Vel::make< Cog::ManualClock >( 1000 );
   const auto wheel = Vel::make< Cog::TimerWheel >( clock, 1000, 1800, true, 1024 );
   Alarm alarm;
   unsigned rings = 0;
   alarm.act = [&] { ++rings; };
   alarm.timer.is( wheel, &alarm ).hasNotificationActiveIs( true );
   alarm.timer->timeMinIs( 1001 );
   unsigned posts = 0;
   std::function< void() > again = [&] {
      if ( ++posts < 3 )
         clock->post( again );
   };
   clock->post( again );
   EXPECT_EQ( 3u, clock->runUntilIdle() );
   EXPECT_EQ( 3u, posts );
   EXPECT_EQ( 0u, rings );
   EXPECT_EQ( 1000, clock->currentTime() );
   EXPECT_EQ( 1u, clock->runUntilIdle() );
}

TEST( ManualClock, cannotGoBack ) {
   const auto clock = Vel::make< Cog::ManualClock >( 1000 );
   const Vel::AssertionsThrow assertions;
   EXPECT_THROW( clock->timeIs( 999 ), Vel::AssertionFailed );
   EXPECT_THROW( clock->spend( -1 ), Vel::AssertionFailed );
   EXPECT_THROW( clock->costPerReadIs( -1 ), Vel::AssertionFailed );
}

TEST( ManualClock, spendingMovesOnlyTheLiveTime ) {
   const auto clock = Vel::make< Cog::ManualClock >( 1000 );
   clock->spend( 2 );
   EXPECT_EQ( 1000, clock->currentTime() );
   EXPECT_EQ( 1002, clock->liveTime() );
   clock->advance( 1 );
   EXPECT_EQ( 1002, clock->currentTime() );
   clock->advance( 1 );
   EXPECT_EQ( 1003, clock->currentTime() );
}

TEST( ManualClock, eachReadMayCost ) {
   const auto clock = Vel::make< Cog::ManualClock >( 1000 );
   clock->costPerReadIs( 0.5 );
   EXPECT_EQ( 1000.5, clock->liveTime() );
   EXPECT_EQ( 1001, clock->liveTime() );
   EXPECT_EQ( 1000, clock->currentTime() );
}

TEST( ManualClock, findsWhatNeverComesToRest ) {
   const auto clock = Vel::make< Cog::ManualClock >( 1000 );
   std::function< void() > again = [&] { clock->post( again ); };
   clock->post( again );
   const Vel::AssertionsThrow assertions;
   EXPECT_THROW( clock->runUntilIdle(), Vel::AssertionFailed );
}

TEST( ActivityManager, hasTheClockOfTheProcess ) {
   EXPECT_EQ( nullptr, Cog::activityManager().clock() );
   const auto clock = Vel::make< Cog::ManualClock >();
   Vel::System::clockIs( clock );
   EXPECT_EQ( clock, Cog::activityManager().clock() );
   Vel::System::clockIs( nullptr );
}

} // namespace
