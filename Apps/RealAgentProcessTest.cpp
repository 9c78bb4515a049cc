#include "Apps/RealAgentProcess.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <csignal>
#include <functional>
#include <memory>

namespace {

using Apps::RealAgentProcess;
using Kind = Apps::AgentProcess::Event::Kind;

/// Children that do what a test says, and end without what tests do at their end.
class RealAgent : public testing::Test {
 protected:
   using Start = RealAgentProcess::Start;
   std::unique_ptr< RealAgentProcess > made( std::function< void( const Start & ) > inAgent ) {
      return std::make_unique< RealAgentProcess >( RealAgentProcess::Calls{
         [inAgent = std::move( inAgent )]( const Start & start ) -> int {
            inAgent( start );
            _exit( 0 );
         },
         [this] { ++madeCalls; }, [this] { ++startedCalls; }, []( const std::string & ) {} } );
   }
   /// Waits for what comes next, and fails if nothing does.
   static Apps::AgentProcess::Event next( RealAgentProcess & process ) {
      const auto event = process.wait( patience );
      EXPECT_NE( Kind::timeUp, event.kind );
      return event;
   }
   static constexpr double patience = 30;
   int madeCalls = 0, startedCalls = 0;
};

TEST_F( RealAgent, isSaidToHaveStartedWhenItSaysSo ) {
   const auto process = made( []( const Start & start ) {
      start.runs();
      _exit( 3 );
   } );
   ASSERT_TRUE( process->start( 0, "" ) );
   EXPECT_EQ( 1, madeCalls );
   EXPECT_EQ( Kind::started, next( *process ).kind );
   EXPECT_EQ( 1, startedCalls );
   const auto event = next( *process );
   ASSERT_EQ( Kind::ended, event.kind );
   EXPECT_FALSE( event.end.bySignal );
   EXPECT_EQ( 3, event.end.number );
}

TEST_F( RealAgent, isNotSaidToHaveStartedWhenItEndsBefore ) {
   const auto process = made( []( const Start & ) { raise( SIGKILL ); } );
   ASSERT_TRUE( process->start( 0, "" ) );
   const auto event = next( *process );
   ASSERT_EQ( Kind::ended, event.kind );
   EXPECT_TRUE( event.end.bySignal );
   EXPECT_EQ( SIGKILL, event.end.number );
   EXPECT_EQ( 0, startedCalls );
}

TEST_F( RealAgent, isToldWhichStartItIsAndWhy ) {
   const auto process =
      made( []( const Start & start ) { _exit( start.restarts == 7 && start.reason == "why" ? 5 : 6 ); } );
   ASSERT_TRUE( process->start( 7, "why" ) );
   EXPECT_EQ( 5, next( *process ).end.number );
}

/// Whoever starts us may ignore the end of children, which the kernel then says nothing of.
TEST_F( RealAgent, isHeardToEndAlsoIfEndsOfChildrenWereIgnored ) {
   const auto before = signal( SIGCHLD, SIG_IGN );
   {
      const auto process = made( []( const Start & ) { _exit( 4 ); } );
      ASSERT_TRUE( process->start( 0, "" ) );
      EXPECT_EQ( 4, next( *process ).end.number );
   }
   signal( SIGCHLD, before );
}

TEST_F( RealAgent, isNotMistakenForAnotherChild ) {
   const auto process = made( []( const Start & ) { pause(); } );
   ASSERT_TRUE( process->start( 0, "" ) );
   const pid_t other = fork();
   if ( other == 0 )
      _exit( 9 );
   // It has been collected when nobody is there any more to send a signal to.
   while ( kill( other, 0 ) == 0 )
      EXPECT_EQ( Kind::timeUp, process->wait( 0.01 ).kind );
   process->pass( SIGKILL );
   EXPECT_EQ( SIGKILL, next( *process ).end.number );
}

TEST_F( RealAgent, getsSignalsThatWeAreSent ) {
   const auto process = made( []( const Start & ) { pause(); } );
   ASSERT_TRUE( process->start( 0, "" ) );
   kill( getpid(), SIGTERM );
   const auto event = next( *process );
   ASSERT_EQ( Kind::signal, event.kind );
   EXPECT_EQ( SIGTERM, event.signal );
   process->pass( event.signal );
   EXPECT_EQ( SIGTERM, next( *process ).end.number );
}

TEST_F( RealAgent, isWaitedForNoLongerThanIsAsked ) {
   const auto process = made( []( const Start & ) { pause(); } );
   ASSERT_TRUE( process->start( 0, "" ) );
   const double before = process->now();
   EXPECT_EQ( Kind::timeUp, process->wait( 0.05 ).kind );
   EXPECT_LE( before + 0.05, process->now() );
   process->pass( SIGKILL );
   next( *process );
}

} // namespace
