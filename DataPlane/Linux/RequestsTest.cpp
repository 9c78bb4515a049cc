#include "DataPlane/Linux/Requests.h"
#include "DataPlane/Linux/FakeKernelTest.h"

#include <gtest/gtest.h>

namespace DataPlane::Linux {
namespace {

class Requests : public testing::Test {
 protected:
   Requests() : channel( kernel.open( false ).channel ) {
      kernel.links[1] = { .ifIndex = 1, .name = "et1" };
      requests.channelIs( channel.get() );
   }
   void ask( int number ) {
      requests.ask( linkSetRequest( 1, true ), [this, number]( const KernelAnswer & answer ) {
         log += Vel::text( number, answer.code == 0 ? Vel::String() : ":" + answer.text, " " );
      } );
   }
   Vel::String taken() {
      outcome = requests.takeAnswers();
      return std::exchange( log, {} );
   }

   FakeKernel kernel;
   std::unique_ptr< Channel > channel;
   Vel::String log;
   int wakes = 0;
   Outcome outcome;
   Linux::Requests requests{ [this] { ++wakes; } };
};

TEST_F( Requests, answersAreHandedOutInOrderWhenTheyAreTaken ) {
   ask( 1 );
   ask( 2 );
   EXPECT_EQ( "", log );
   EXPECT_EQ( "1 2 ", taken() );
   EXPECT_EQ( "", taken() );
   EXPECT_TRUE( outcome.ok() );
}

TEST_F( Requests, refusalIsTheAnswer ) {
   kernel.code = []( const nlmsghdr & ) { return EPERM; };
   ask( 1 );
   EXPECT_EQ( "1:Operation not permitted ", taken() );
}

TEST_F( Requests, whatIsAskedForWhileAnswersAreTakenIsAnsweredLater ) {
   requests.ask( linkSetRequest( 1, true ), [this]( const KernelAnswer & ) { ask( 2 ); } );
   EXPECT_EQ( "", taken() );
   EXPECT_EQ( 2u, kernel.asked.size() );
   EXPECT_EQ( "2 ", taken() );
}

TEST_F( Requests, noMoreAreUnderWayThanThereIsRoomFor ) {
   constexpr int count = Linux::Requests::maxUnderWay + 10;
   for ( int i = 0; i < count; ++i )
      ask( i );
   EXPECT_EQ( Linux::Requests::maxUnderWay, kernel.asked.size() );
   taken();
   EXPECT_EQ( std::size_t( count ), kernel.asked.size() );
   EXPECT_EQ( "256 257 258 259 260 261 262 263 264 265 ", taken() );
}

TEST_F( Requests, requestThatCannotBeSentFailsLater ) {
   kernel.sends = false;
   ask( 1 );
   EXPECT_EQ( "", log );
   EXPECT_EQ( 1, wakes );
   EXPECT_EQ( "1:No buffer space available ", taken() );
}

TEST_F( Requests, answersThatWereLostAreFailures ) {
   kernel.answers = false;
   ask( 1 );
   kernel.requests->push( Channel::Got::lost );
   EXPECT_EQ( "", taken() );
   EXPECT_EQ( "1:the kernel's answer was lost ", taken() );
   EXPECT_TRUE( outcome.ok() );
}

TEST_F( Requests, channelThatFailsFailsAllAndIsNotUsedAgain ) {
   kernel.answers = false;
   ask( 1 );
   kernel.requests->push( Channel::Got::failed );
   taken();
   EXPECT_EQ( "device trouble", outcome.text() );
   ask( 2 );
   EXPECT_EQ( "1:the kernel's answer was lost 2:there is no connection to the kernel ", taken() );
}

TEST_F( Requests, newChannelIsUsedFromThenOn ) {
   kernel.answers = false;
   ask( 1 );
   kernel.answers = true;
   const std::unique_ptr< Channel > other = kernel.open( false ).channel;
   requests.channelIs( other.get() );
   ask( 2 );
   EXPECT_EQ( "1:the kernel's answer was lost 2 ", taken() );
}

TEST_F( Requests, clearedOnesAreNotAnswered ) {
   ask( 1 );
   requests.clear();
   EXPECT_EQ( "", taken() );
}

} // namespace
} // namespace DataPlane::Linux
