#include "Platform/Cog/ManualClock.h"
#include "Platform/Cog/TimerWheel.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <new>

/// Counts what the whole test program allocates.
namespace {
unsigned allocations = 0;
}

[[gnu::noinline]] void * operator new( std::size_t size ) {
   ++allocations;
   if ( void * const memory = std::malloc( size ) )
      return memory;
   throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete( void * memory ) noexcept { std::free( memory ); }
[[gnu::noinline]] void operator delete( void * memory, std::size_t ) noexcept { std::free( memory ); }

namespace {

struct Sleeper {
   struct VelClock final : Cog::TimerReactor< Sleeper > {
      using TimerReactor::TimerReactor;
      void onTime() override {}
   };
   Cog::TimerWatch< VelClock > timer;
};

TEST( TimerWheelAllocation, armingCancellingAndFiringNeverAllocate ) {
   const double start = Cog::ManualClock::defaultStartTime;
   const auto clock = Vel::make< Cog::ManualClock >();
   const auto wheel = Vel::make< Cog::TimerWheel >( clock, 1000, 1800, true, 1024 );
   Sleeper a;
   Sleeper b;
   const unsigned before = allocations;
   a.timer.is( wheel, &a ).hasNotificationActiveIs( true );
   b.timer.is( wheel, &b ).hasNotificationActiveIs( true );
   for ( const double far : { 1.0, 5000.0, 1e7, 1e9, 8e12 } ) {
      a.timer->timeMinIs( start + far );
      b.timer->timeMinIs( start + far );
      a.timer->hasNotificationActiveIs( false );
      b.timer->timeMinIs( Cog::Timer::never );
      a.timer->hasNotificationActiveIs( true );
      EXPECT_EQ( start + far, wheel->dueTime() );
   }
   a.timer->timeMinIs( start + 1e7 );
   clock->advance( 1e7 );
   EXPECT_EQ( Cog::Timer::never, a.timer->timeMin() );
   EXPECT_EQ( before, allocations );
}

} // namespace
