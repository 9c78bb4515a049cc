#pragma once

#include "DataPlane/Linux/Factory.h"
#include "DataPlane/RecordingListenerTest.h"
#include "Platform/Cog/RealTime.h"
#include "Platform/Cog/TimerWheel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <limits>

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

/// Purpose: a network namespace of its own for one test on the real kernel. It has no name, so it ends with its last
/// user, however the test ends.
namespace DataPlane::Linux {

class InNamespace : public testing::Test {
 protected:
   /// Seconds after which what was waited for is missing.
   static constexpr double patience = 10;

   void SetUp() override {
      if ( geteuid() != 0 )
         GTEST_SKIP() << "only root can make links; not tested: this on the real kernel";
      home_ = open( "/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC );
      if ( home_ < 0 || unshare( CLONE_NEWNET ) != 0 ) {
         closeHome();
         GTEST_SKIP() << "cannot make a network namespace here; not tested: this on the real kernel";
      }
      made = switchNewLinux( loop );
      loop->commitHookIs( [this] {
         if ( wanted_ && wanted_() ) {
            wanted_ = nullptr;
            loop->stop();
         }
         return true;
      } );
      alarm_.is( wheel, this ).hasNotificationActiveIs( true );
   }

   void TearDown() override {
      EXPECT_EQ( std::vector< Vel::String >{}, listener.broken );
      made = nullptr;
      if ( home_ >= 0 ) {
         EXPECT_EQ( 0, setns( home_, CLONE_NEWNET ) );
      }
      closeHome();
   }

   void started() {
      const Outcome outcome = made->start( listener );
      ASSERT_TRUE( outcome.ok() ) << outcome.text();
      listener.take();
   }
   /// Runs a command of iproute2, for example "link add a0 type veth peer name b0".
   static bool tryIp( const Vel::String & arguments ) {
      return std::system( ( "ip " + arguments + " 2>/dev/null" ).c_str() ) == 0;
   }
   static void ip( const Vel::String & arguments ) {
      EXPECT_EQ( 0, std::system( ( "ip " + arguments ).c_str() ) ) << "ip " << arguments;
   }
   /// What a command of iproute2 prints.
   static Vel::String ipSays( const Vel::String & arguments ) {
      Vel::String result;
      FILE * const pipe = popen( ( "ip " + arguments ).c_str(), "r" );
      EXPECT_TRUE( pipe );
      char buffer[4096];
      while ( const std::size_t size = pipe ? fread( buffer, 1, sizeof buffer, pipe ) : 0 )
         result.append( buffer, size );
      EXPECT_EQ( 0, pipe ? pclose( pipe ) : -1 ) << "ip " << arguments;
      return result;
   }
   /// Commands of iproute2, a line each, as one burst: nobody looks meanwhile.
   static void burst( const Vel::String & lines ) {
      FILE * const pipe = popen( "ip -batch -", "w" );
      ASSERT_TRUE( pipe );
      EXPECT_EQ( lines.size(), fwrite( lines.data(), 1, lines.size(), pipe ) );
      EXPECT_EQ( 0, pclose( pipe ) );
   }
   static void veth( const Vel::String & a, const Vel::String & b ) {
      ip( "link add " + a + " type veth peer name " + b );
   }
   /// A pair that nothing crosses but what is sent to 192.0.2.2, over `a`.
   static void quietPair( const Vel::String & a, const Vel::String & b ) {
      veth( a, b );
      for ( const Vel::String & link : { a, b } )
         std::ofstream( "/proc/sys/net/ipv6/conf/" + link + "/disable_ipv6" ) << "1";
      ip( "address add 192.0.2.1/24 dev " + a );
      up( a );
      up( b );
      ip( "neighbour add 192.0.2.2 lladdr 02:00:00:00:00:02 dev " + a );
   }
   static void up( const Vel::String & link ) { ip( "link set " + link + " up" ); }
   static Wire::EthIntfId eth( std::string_view name ) { return Wire::EthIntfId( name ); }

   /// Runs turns until it holds; fails the test if it does not come true in time.
   bool until( std::function< bool() > holds, double seconds = patience ) {
      bool held = holds();
      if ( held )
         return true;
      wanted_ = [&] { return held = holds(); };
      // From the first turn on: the loop's time is that of its last one, which may be long ago.
      within_ = seconds;
      end_ = std::numeric_limits< double >::infinity();
      alarm_->timeMinIs( loop->currentTime() );
      loop->run();
      alarm_->timeMinIs( std::numeric_limits< double >::infinity() );
      wanted_ = nullptr;
      EXPECT_TRUE( held ) << "has not come true within " << seconds << " s";
      return held;
   }
   bool untilUp( const Vel::String & name ) {
      return until( [&] { return listener.up( name ); } );
   }
   LinkSetResult set( std::string_view name, bool isUp, const Vel::String & restore = {} ) {
      const RequestId id = ++lastId_;
      made->linkSet( id, eth( name ), isUp, restore );
      EXPECT_FALSE( listener.results.count( id ) );
      until( [&] { return listener.results.count( id ) > 0; } );
      return listener.results[id];
   }
   Interface::IntfCounterMasquerade::EthIntfStatistics counter( std::string_view port ) {
      const Outcome outcome = made->countersRefresh( *pool );
      EXPECT_TRUE( outcome.ok() ) << outcome.text();
      const auto * dir = pool->intfCounterDir( eth( port ) );
      EXPECT_TRUE( dir ) << port;
      return dir ? dir->counter( "current" )->statistics()
                 : Interface::IntfCounterMasquerade::EthIntfStatistics();
   }

   const Vel::Ptr< Cog::EventLoop > loop = Vel::make< Cog::EventLoop >( Vel::make< Cog::RealTime >( 0 ) );
   const Vel::Ptr< Cog::TimerWheel > wheel = Vel::make< Cog::TimerWheel >( loop, 2, 1800, true, 1024 );
   const Vel::Ptr< VelPool::EntityManager > pool = Vel::make< VelPool::EntityManager >();
   RecordingListener listener;
   Vel::Ptr< Switch > made;

 private:
   struct VelAlarm final : Cog::TimerReactor< InNamespace > {
      using TimerReactor::TimerReactor;
      void onTime() override { sm()->handleAlarm(); }
   };
   /// What is waited for need not be anything that the loop is told of, so it is looked at now and then.
   void handleAlarm() {
      end_ = std::min( end_, loop->currentTime() + within_ );
      if ( loop->currentTime() >= end_ )
         loop->stop();
      else
         alarm_->timeMinIs( std::min( end_, loop->currentTime() + 0.02 ) );
   }
   void closeHome() {
      if ( home_ >= 0 )
         close( std::exchange( home_, -1 ) );
   }

   int home_ = -1;
   double within_ = 0, end_ = 0; ///< seconds, and when they are over
   RequestId lastId_ = 0;
   std::function< bool() > wanted_;
   Cog::TimerWatch< VelAlarm > alarm_;
};

} // namespace DataPlane::Linux
