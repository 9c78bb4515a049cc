#pragma once

#include "DataPlane/Linux/FakeKernelTest.h"
#include "DataPlane/Linux/LinuxSwitch.h"
#include "DataPlane/RecordingListenerTest.h"
#include "Platform/Cog/TimerWheel.h"

#include <gtest/gtest.h>

#include <algorithm>

/// Purpose: the switch on a kernel that does what a test wants, in virtual time.
namespace DataPlane::Linux {

class LinuxFault : public testing::Test {
 protected:
   LinuxFault() {
      auto owned = std::make_unique< FakeKernel >();
      kernel = owned.get();
      made = Vel::make< LinuxSwitch >( loop, std::move( owned ) );
      kernel->links[1] = { .ifIndex = 1, .name = "et1" };
      kernel->links[2] = { .ifIndex = 2, .name = "et2" };
      kernel->stats[1] = { 1, 100, 200 };
      alarm.is( wheel, this ).hasNotificationActiveIs( true );
   }
   void TearDown() override { EXPECT_EQ( std::vector< Vel::String >{}, listener.broken ); }

   void started() {
      const Outcome outcome = made->start( listener );
      ASSERT_TRUE( outcome.ok() ) << outcome.text();
      listener.take();
   }
   /// One turn, at the present time.
   void turn() {
      loop->post( [this] { loop->stop(); } );
      loop->run();
   }
   Vel::String toldInTurn() {
      turn();
      return listener.take();
   }
   /// In small steps, since virtual time does not wait for descriptors.
   void runFor( double seconds ) {
      constexpr double step = 0.125; // exact, as are its multiples
      const double end = loop->currentTime() + seconds;
      for ( turn(); loop->currentTime() < end; turn() ) {
         const double next = std::min( end, loop->currentTime() + step );
         time->targetIs( next );
         alarm->timeMinIs( next );
         loop->run();
      }
   }
   static Wire::EthIntfId eth( std::string_view name ) { return Wire::EthIntfId( name ); }

   struct VelAlarm final : Cog::TimerReactor< LinuxFault > {
      using TimerReactor::TimerReactor;
      void onTime() override { sm()->loop->stop(); }
   };
   const Vel::Ptr< Cog::VirtualTime > time = Vel::make< Cog::VirtualTime >( 1.7e9 );
   const Vel::Ptr< Cog::EventLoop > loop = Vel::make< Cog::EventLoop >( time );
   const Vel::Ptr< Cog::TimerWheel > wheel = Vel::make< Cog::TimerWheel >( loop, 125, 1800, true, 1024 );
   const Vel::Ptr< VelPool::EntityManager > pool = Vel::make< VelPool::EntityManager >();
   Cog::TimerWatch< VelAlarm > alarm;
   FakeKernel * kernel;
   RecordingListener listener;
   Vel::Ptr< LinuxSwitch > made;
};

} // namespace DataPlane::Linux
