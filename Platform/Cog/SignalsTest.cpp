#include "Platform/Cog/Signals.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

class Signals : public testing::Test {
 protected:
   static bool blocked( int signal ) {
      sigset_t mask;
      pthread_sigmask( SIG_SETMASK, nullptr, &mask );
      return sigismember( &mask, signal ) == 1;
   }

   const Vel::Ptr< Cog::EventLoop > loop =
      Vel::make< Cog::EventLoop >( Vel::make< Cog::VirtualTime >( 1.7e9 ) );
   std::vector< int > seen;
};

TEST_F( Signals, comeInThroughTheLoop ) {
   const Cog::Signals signals( *loop, { SIGTERM, SIGUSR1 }, [this]( int signal ) {
      EXPECT_TRUE( loop->inTurn() );
      seen.push_back( signal );
      if ( seen.size() == 2 )
         loop->stop();
   } );
   raise( SIGTERM );
   raise( SIGUSR1 );
   EXPECT_TRUE( seen.empty() );
   loop->run();
   std::sort( seen.begin(), seen.end() );
   EXPECT_EQ( ( std::vector< int >{ SIGUSR1, SIGTERM } ), seen );
}

TEST_F( Signals, areBlockedOnlyWhileItLives ) {
   {
      const Cog::Signals signals( *loop, { SIGUSR1 }, []( int ) {} );
      EXPECT_TRUE( blocked( SIGUSR1 ) );
      EXPECT_FALSE( blocked( SIGUSR2 ) );
   }
   EXPECT_FALSE( blocked( SIGUSR1 ) );
}

TEST_F( Signals, handlerMayDestroyIt ) {
   std::unique_ptr< Cog::Signals > signals;
   const std::string text( 100, 'x' );
   signals =
      std::make_unique< Cog::Signals >( *loop, std::initializer_list< int >{ SIGUSR1 }, [&, text]( int ) {
         signals.reset();
         EXPECT_EQ( 100u, text.size() );
         loop->stop();
      } );
   raise( SIGUSR1 );
   loop->run();
   EXPECT_FALSE( signals );
   EXPECT_FALSE( blocked( SIGUSR1 ) );
}

} // namespace
