#include "Apps/Supervisor.h"

#include <gtest/gtest.h>

#include <csignal>
#include <deque>
#include <functional>
#include <utility>
#include <vector>

namespace {

using Apps::AgentProcess;
using Apps::ProcessEnd;
using Apps::Supervisor;
using Kind = AgentProcess::Event::Kind;

/// A process and a time that a test plays. When the script is at its end the agent ends with 0.
class PlayedAgent final : public AgentProcess {
 public:
   /// So many seconds after the event before it.
   void later( double seconds, Event event ) { script_.push_back( { seconds, event } ); }
   void endsAfter( double seconds, ProcessEnd end ) { later( seconds, { Kind::ended, end, 0 } ); }
   void abortsAfter( double seconds ) { endsAfter( seconds, { true, SIGABRT } ); }
   void failAfter( unsigned starts, int times ) {
      goodStarts = starts;
      failures = times;
   }
   void signalAfter( double seconds, int signal ) { later( seconds, { Kind::signal, {}, signal } ); }

   double now() override { return now_; }
   bool start( unsigned restarts, const std::string & reason ) override {
      EXPECT_FALSE( runs );
      if ( failures > 0 && starts.size() >= goodStarts ) {
         --failures;
         return false;
      }
      runs = true;
      toSay = comesToRun;
      starts.push_back( { now_, restarts, reason } );
      return true;
   }
   void pass( int signal ) override {
      EXPECT_TRUE( runs );
      passed.push_back( signal );
   }
   Event wait( std::optional< double > seconds ) override {
      if ( std::exchange( toSay, false ) )
         return { Kind::started, {}, 0 };
      const bool empty = script_.empty();
      const bool needsAgent = !empty && script_.front().event.kind == Kind::ended;
      // Of an agent that does not run nothing is heard; only time and signals go on.
      if ( seconds && ( empty || ( needsAgent && !runs ) || script_.front().after > *seconds ) ) {
         if ( !empty && !needsAgent )
            script_.front().after -= *seconds;
         now_ += *seconds;
         return {};
      }
      if ( empty ) {
         runs = false;
         return { Kind::ended, { false, 0 }, 0 };
      }
      const Step step = script_.front();
      script_.pop_front();
      now_ += step.after;
      if ( step.event.kind == Kind::ended )
         runs = false;
      return step.event;
   }
   void say( const std::string & line ) override { said.push_back( line ); }

   struct Start {
      double time;
      unsigned restarts;
      std::string reason;
   };
   std::vector< Start > starts;
   std::vector< int > passed;
   std::vector< std::string > said;
   bool runs = false;
   bool comesToRun = true; ///< an agent that is started says that it runs
   bool toSay = false;
   unsigned goodStarts = 0;
   int failures = 0; ///< so many starts fail, once there have been good ones

 private:
   struct Step {
      double after;
      Event event;
   };
   double now_ = 1000;
   std::deque< Step > script_;
};

class Supervised : public testing::Test {
 protected:
   int run() { return Supervisor( agent ).run(); }
   /// Seconds from each end of the agent to its next start, when each agent has run so long.
   std::vector< double > delays( const std::vector< double > & runTimes ) {
      for ( const double time : runTimes )
         agent.abortsAfter( time );
      EXPECT_EQ( 0, run() );
      std::vector< double > result;
      for ( std::size_t i = 1; i < agent.starts.size(); ++i )
         result.push_back( agent.starts[i].time - agent.starts[i - 1].time - runTimes[i - 1] );
      return result;
   }
   PlayedAgent agent;
};

TEST_F( Supervised, isStartedOnceIfItEndsWithZero ) {
   EXPECT_EQ( 0, run() );
   ASSERT_EQ( 1u, agent.starts.size() );
   EXPECT_EQ( 0u, agent.starts[0].restarts );
   EXPECT_TRUE( agent.said.empty() );
}

TEST_F( Supervised, isStartedAgainAfterOneTwoFourAndAtMostThirtySeconds ) {
   EXPECT_EQ( ( std::vector< double >{ 1, 2, 4, 8, 16, 30, 30, 30 } ), delays( { 5, 5, 5, 5, 5, 5, 5, 5 } ) );
}

TEST_F( Supervised, isNeverGivenUp ) {
   for ( int i = 0; i < 10000; ++i )
      agent.abortsAfter( 0.1 );
   EXPECT_EQ( 0, run() );
   ASSERT_EQ( 10001u, agent.starts.size() );
   EXPECT_EQ( 10000u, agent.starts.back().restarts );
}

TEST_F( Supervised, isStartedAgainSoonWhenItHasRunWellForAGoodWhile ) {
   EXPECT_EQ( ( std::vector< double >{ 1, 2, 4, 1, 2 } ), delays( { 5, 5, 5, Supervisor::goodWhile, 5 } ) );
}

TEST_F( Supervised, keepsItsDelayWhenItHasRunForLess ) {
   EXPECT_EQ( ( std::vector< double >{ 1, 2, 4 } ), delays( { 5, Supervisor::goodWhile - 1, 5 } ) );
}

TEST_F( Supervised, isToldWhichRestartItIsAndWhy ) {
   agent.abortsAfter( 5 );
   agent.endsAfter( 5, { true, SIGKILL } );
   run();
   ASSERT_EQ( 3u, agent.starts.size() );
   EXPECT_EQ( "", agent.starts[0].reason );
   EXPECT_EQ( 1u, agent.starts[1].restarts );
   EXPECT_EQ( "ended by signal 6 (Aborted)", agent.starts[1].reason );
   EXPECT_EQ( 2u, agent.starts[2].restarts );
   EXPECT_EQ( "ended by signal 9 (Killed)", agent.starts[2].reason );
   EXPECT_EQ(
      ( std::vector< std::string >{
         "the agent ended by signal 6 (Aborted); it is started again in 1 s, restart 1",
         "the agent ended by signal 9 (Killed); it is started again in 2 s, restart 2" } ),
      agent.said );
}

TEST_F( Supervised, getsTheSignalsThatAreSent ) {
   agent.signalAfter( 1, SIGHUP );
   agent.signalAfter( 1, SIGTERM );
   agent.endsAfter( 1, { false, 0 } );
   EXPECT_EQ( 0, run() );
   EXPECT_EQ( ( std::vector< int >{ SIGHUP, SIGTERM } ), agent.passed );
   EXPECT_EQ( 1u, agent.starts.size() );
}

TEST_F( Supervised, isNotStartedAgainWhenItsEndWasAskedFor ) {
   for ( const int signal : { SIGTERM, SIGINT, SIGQUIT } ) {
      SCOPED_TRACE( signal );
      PlayedAgent other;
      other.signalAfter( 1, signal );
      other.endsAfter( 1, { true, signal } );
      EXPECT_EQ( 0, Supervisor( other ).run() );
      EXPECT_EQ( 1u, other.starts.size() );
   }
}

TEST_F( Supervised, endsAsItDidWhenItsEndWasAskedFor ) {
   agent.signalAfter( 1, SIGTERM );
   agent.endsAfter( 1, { false, 1 } );
   EXPECT_EQ( 1, run() );
   PlayedAgent other;
   other.signalAfter( 1, SIGTERM );
   other.endsAfter( 1, { true, SIGABRT } );
   EXPECT_EQ( 128 + SIGABRT, Supervisor( other ).run() );
}

TEST_F( Supervised, isStartedAgainAfterASignalThatAsksForSomethingElse ) {
   agent.signalAfter( 1, SIGHUP );
   agent.abortsAfter( 1 );
   run();
   EXPECT_EQ( 2u, agent.starts.size() );
}

TEST_F( Supervised, isNotStartedAgainWhenTheEndIsAskedForMeanwhile ) {
   agent.abortsAfter( 5 );
   agent.signalAfter( 0.25, SIGHUP );
   agent.signalAfter( 0.25, SIGTERM );
   EXPECT_EQ( 0, run() );
   EXPECT_EQ( 1u, agent.starts.size() );
   EXPECT_TRUE( agent.passed.empty() ) << "nobody is there";
   EXPECT_EQ( 1005.5, agent.now() );
}

TEST_F( Supervised, waitsForTheWholeDelayWhenSignalsComeMeanwhile ) {
   agent.abortsAfter( 5 );
   agent.signalAfter( 0.25, SIGHUP );
   agent.signalAfter( 0.25, SIGHUP );
   run();
   ASSERT_EQ( 2u, agent.starts.size() );
   EXPECT_EQ( 1006, agent.starts[1].time );
}

TEST_F( Supervised, isNotTriedAgainIfItsFirstStartFails ) {
   agent.comesToRun = false;
   agent.endsAfter( 1, { false, 78 } );
   EXPECT_EQ( 78, run() );
   EXPECT_EQ( 1u, agent.starts.size() );
}

TEST_F( Supervised, isNotTriedAgainIfItAbortsBeforeItHasEverRun ) {
   agent.comesToRun = false;
   agent.abortsAfter( 1 );
   EXPECT_EQ( 1, run() );
   EXPECT_EQ( 1u, agent.starts.size() );
   EXPECT_EQ(
      ( std::vector< std::string >{ "the agent ended by signal 6 (Aborted) before it has started" } ),
      agent.said );
}

TEST_F( Supervised, isTriedAgainIfTheFirstOneEndsWithAFailureAfterItHasRun ) {
   agent.endsAfter( 7 * 86400, { false, 1 } );
   EXPECT_EQ( 0, run() );
   ASSERT_EQ( 2u, agent.starts.size() );
   EXPECT_EQ( "ended with status 1", agent.starts[1].reason );
}

TEST_F( Supervised, isTriedAgainIfALaterStartFails ) {
   agent.abortsAfter( 5 );
   agent.endsAfter( 0, { false, 1 } );
   agent.endsAfter( 0, { false, 1 } );
   EXPECT_EQ( 0, run() );
   ASSERT_EQ( 4u, agent.starts.size() );
   EXPECT_EQ( "ended with status 1", agent.starts[3].reason );
}

TEST_F( Supervised, isNotTriedAgainIfNoFirstProcessCanBeMade ) {
   agent.failures = 1;
   EXPECT_EQ( 1, run() );
   EXPECT_TRUE( agent.starts.empty() );
}

TEST_F( Supervised, isTriedAgainIfNoLaterProcessCanBeMade ) {
   agent.abortsAfter( 5 );
   agent.failAfter( 1, 2 );
   run();
   ASSERT_EQ( 2u, agent.starts.size() );
   EXPECT_EQ( 1005 + 1 + 2 + 4, agent.starts[1].time );
   EXPECT_EQ( 3u, agent.starts[1].restarts );
   EXPECT_EQ( "could not be started", agent.starts[1].reason );
}

} // namespace
