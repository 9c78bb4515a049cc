#include "Platform/Cog/Signals.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>

#include <sys/time.h>
#include <unistd.h>

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
   const Cog::Signals signals( *loop, { SIGTERM, SIGUSR1 }, [this]( const Cog::Signals::Signal & signal ) {
      EXPECT_TRUE( loop->inTurn() );
      seen.push_back( signal.number );
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

TEST_F( Signals, tellWhoseProcessHasSentThemUnlessTheKernelHas ) {
   std::vector< std::optional< uid_t > > senders;
   const Cog::Signals signals( *loop, { SIGUSR1, SIGALRM }, [&]( const Cog::Signals::Signal & signal ) {
      senders.push_back( signal.sender );
      loop->stop();
   } );
   raise( SIGUSR1 );
   loop->run();
   // The kernel's own timer.
   const itimerval soon{ { 0, 0 }, { 0, 1 } };
   ASSERT_EQ( 0, setitimer( ITIMER_REAL, &soon, nullptr ) );
   sigset_t pending;
   do
      sigpending( &pending );
   while ( sigismember( &pending, SIGALRM ) != 1 );
   loop->run();
   EXPECT_EQ( ( std::vector< std::optional< uid_t > >{ getuid(), std::nullopt } ), senders );
}

TEST_F( Signals, areBlockedOnlyWhileItLives ) {
   {
      const Cog::Signals signals( *loop, { SIGUSR1 }, []( const Cog::Signals::Signal & ) {} );
      EXPECT_TRUE( blocked( SIGUSR1 ) );
      EXPECT_FALSE( blocked( SIGUSR2 ) );
   }
   EXPECT_FALSE( blocked( SIGUSR1 ) );
}

TEST_F( Signals, handlerMayDestroyIt ) {
   std::unique_ptr< Cog::Signals > signals;
   const std::string text( 100, 'x' );
   signals = std::make_unique< Cog::Signals >(
      *loop, std::initializer_list< int >{ SIGUSR1 }, [&, text]( const Cog::Signals::Signal & ) {
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
