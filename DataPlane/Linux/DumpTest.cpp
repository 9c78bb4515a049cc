#include "DataPlane/Linux/Dump.h"
#include "DataPlane/Linux/FakeKernelTest.h"

#include <gtest/gtest.h>

namespace DataPlane::Linux {
namespace {

class Dump : public testing::Test {
 protected:
   Dump() {
      kernel.links[1] = { .ifIndex = 1, .name = "et1" };
      kernel.links[2] = { .ifIndex = 2, .name = "et2" };
   }
   Outcome links() {
      return dumps.whole(
         linkDumpRequest(), "links", [&] { names.clear(); },
         [&]( const nlmsghdr & message ) { names += parseLink( message ).value().link.name + " "; } );
   }

   /// Until two are the same.
   Outcome agreedLinks() {
      Vel::String before;
      return dumps.agreed(
         linkDumpRequest(), "links",
         [&] {
            before = std::exchange( names, {} );
            if ( changing )
               kernel.links[1].name += "x";
         },
         [&]( const nlmsghdr & message ) { names += parseLink( message ).value().link.name + " "; },
         [&] { return names == before; } );
   }

   FakeKernel kernel;
   Dumps dumps{ kernel };
   Vel::String names;
   bool changing = false;
};

TEST_F( Dump, bringsEverything ) {
   EXPECT_TRUE( links().ok() );
   EXPECT_EQ( "et1 et2 ", names );
}

TEST_F( Dump, ofNothingIsASuccess ) {
   kernel.links.clear();
   EXPECT_TRUE( links().ok() );
}

TEST_F( Dump, isRepeatedWhenItWasInterrupted ) {
   kernel.interruptedDumps = 2;
   EXPECT_TRUE( links().ok() );
   EXPECT_EQ( "et1 et2 ", names );
}

TEST_F( Dump, failsWhenItIsInterruptedEachTime ) {
   kernel.interruptedDumps = 100;
   EXPECT_EQ( "links: they change faster than they can be read", links().text() );
}

TEST_F( Dump, thatBearsNoMarksIsRepeatedUntilTwoAreTheSame ) {
   EXPECT_TRUE( agreedLinks().ok() );
   EXPECT_EQ( "et1 et2 ", names );
   EXPECT_EQ( 2, kernel.dumps[RTM_GETLINK] );
   changing = true;
   EXPECT_EQ( "links: they change faster than they can be read", agreedLinks().text() );
}

TEST_F( Dump, thatBearsNoMarksAndBringsNothingIsNotRepeated ) {
   kernel.links.clear();
   EXPECT_TRUE( agreedLinks().ok() );
   EXPECT_EQ( 1, kernel.dumps[RTM_GETLINK] );
}

TEST_F( Dump, kernelsErrorIsTheReason ) {
   kernel.failingDumps = 1;
   EXPECT_EQ( "links: Cannot allocate memory", links().text() );
   EXPECT_TRUE( links().ok() );
}

TEST_F( Dump, isMadeOnANewChannelAfterAFailure ) {
   EXPECT_TRUE( links().ok() && links().ok() );
   EXPECT_EQ( 1, kernel.opened );
   kernel.failingDumps = 1;
   EXPECT_FALSE( links().ok() );
   EXPECT_TRUE( links().ok() );
   EXPECT_EQ( 2, kernel.opened );
}

TEST_F( Dump, failsWithoutAnAnswer ) {
   kernel.answers = false;
   EXPECT_EQ( "links: the kernel has not answered", links().text() );
}

TEST_F( Dump, failsWhenNothingCanBeSentOrOpened ) {
   kernel.sends = false;
   EXPECT_EQ( "links: No buffer space available", links().text() );
   kernel.opens = false;
   EXPECT_EQ( "links: cannot open a netlink socket: Too many open files", links().text() );
}

TEST_F( Dump, lookUpBringsOneLink ) {
   const auto look = [this]( Vel::U32 ifIndex ) {
      names.clear();
      return dumps.one( linkRequest( ifIndex ), "link", [&]( const nlmsghdr & message ) {
         names += parseLink( message ).value().link.name + " ";
      } );
   };
   EXPECT_TRUE( look( 2 ).ok() );
   EXPECT_EQ( "et2 ", names );
   EXPECT_EQ( "link: No such device", look( 3 ).text() );
   EXPECT_TRUE( links().ok() && look( 1 ).ok() );
   EXPECT_EQ( "et1 ", names );
}

/// A channel on which everything is put by hand.
class ByHand final : public InboxChannel {
 public:
   ByHand() : InboxChannel( std::make_shared< Inbox >() ) {}
   void put( Bytes bytes, Vel::U32 sequence, Vel::U32 toPort = FakeKernel::port ) {
      messageIn( bytes ).nlmsg_seq = sequence;
      messageIn( bytes ).nlmsg_pid = toPort;
      inbox->push( bytes );
   }
   void end( Vel::U32 sequence, int code = 0 ) {
      put( MessageBuilder( NLMSG_DONE, 0 ).header( -code ).take(), sequence );
   }
};

Vel::String dumped( ByHand & channel, DumpOutcome & outcome ) {
   Vel::String names;
   outcome = dump( channel, linkDumpRequest(), "links", [&]( const nlmsghdr & message ) {
      names += parseLink( message ).value().link.name + " ";
   } );
   return names;
}

TEST( DumpByHand, answersToOthersAreSkipped ) {
   ByHand channel;
   channel.put( linkBytes( { .name = "old" } ), 77 );
   channel.end( 77 );
   channel.put( linkBytes( { .name = "foreign" } ), 1, 9999 );
   channel.put( linkBytes( { .name = "et1" } ), 1 );
   channel.end( 1 );
   DumpOutcome outcome;
   EXPECT_EQ( "et1 ", dumped( channel, outcome ) );
   EXPECT_TRUE( outcome.outcome.ok() );
}

TEST( DumpByHand, errorAtItsEndFailsIt ) {
   ByHand channel;
   channel.put( linkBytes( { .name = "et1" } ), 1 );
   channel.end( 1, ENODEV );
   DumpOutcome outcome;
   dumped( channel, outcome );
   EXPECT_EQ( "links: No such device", outcome.outcome.text() );
}

TEST( DumpByHand, lostOrBrokenChannelFailsIt ) {
   const std::pair< Channel::Got, const char * > rows[] = {
      { Channel::Got::lost, "links: the answer has run over the buffer" },
      { Channel::Got::failed, "links: device trouble" } };
   for ( const auto & [got, error] : rows ) {
      ByHand channel;
      channel.inbox->push( got );
      DumpOutcome outcome;
      dumped( channel, outcome );
      EXPECT_EQ( error, outcome.outcome.text() );
   }
}

TEST( KernelAnswer, tellsTheKernelsOwnText ) {
   nlmsgerr error{};
   error.error = -EINVAL;
   error.msg.nlmsg_len = sizeof( nlmsghdr ) + 8;
   MessageBuilder whole( NLMSG_ERROR, NLM_F_ACK_TLVS );
   whole.header( error ).append( "request ", 8 );
   const Bytes uncapped = whole.attribute( NLMSGERR_ATTR_MSG, std::string_view( "no such thing" ) ).take();
   EXPECT_EQ( "Invalid argument (no such thing)", parseAnswer( messageIn( uncapped ) )->text );
   MessageBuilder capped( NLMSG_ERROR, NLM_F_ACK_TLVS | NLM_F_CAPPED );
   const Bytes bytes =
      capped.header( error ).attribute( NLMSGERR_ATTR_MSG, std::string_view( "no such thing" ) ).take();
   EXPECT_EQ( "Invalid argument (no such thing)", parseAnswer( messageIn( bytes ) )->text );
   EXPECT_EQ( EINVAL, parseAnswer( messageIn( bytes ) )->code );
}

TEST( KernelAnswer, hasACodeForEachNumber ) {
   EXPECT_EQ( 0, errnoOf( 0 ) );
   EXPECT_EQ( EPERM, errnoOf( -EPERM ) );
   EXPECT_EQ( EPERM, errnoOf( EPERM ) );
   EXPECT_EQ( EPROTO, errnoOf( std::numeric_limits< int >::min() ) );
}

TEST( KernelAnswer, acknowledgementHasCodeNoneAndNoText ) {
   const Bytes bytes = answerBytes( 5, 0 );
   EXPECT_EQ( 0, parseAnswer( messageIn( bytes ) )->code );
   EXPECT_EQ( "", parseAnswer( messageIn( bytes ) )->text );
   const Bytes other = linkBytes( { .name = "et1" } );
   EXPECT_FALSE( parseAnswer( messageIn( other ) ) );
}

} // namespace
} // namespace DataPlane::Linux
