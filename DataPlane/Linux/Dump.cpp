#include "DataPlane/Linux/Dump.h"

#include <cerrno>
#include <cstring>

#include <linux/netlink.h>

namespace DataPlane::Linux {

namespace {

/// A text that is given with an error stands behind what the answer refers to.
Vel::String kernelText( const nlmsghdr & message, const nlmsgerr & error ) {
   if ( !( message.nlmsg_flags & NLM_F_ACK_TLVS ) )
      return {};
   std::size_t before = sizeof( nlmsgerr );
   if ( !( message.nlmsg_flags & NLM_F_CAPPED ) && error.msg.nlmsg_len > sizeof( nlmsghdr ) )
      before += error.msg.nlmsg_len - sizeof( nlmsghdr );
   return Attributes( message, before ).text( NLMSGERR_ATTR_MSG ).value_or( Vel::String() );
}

} // namespace

int errnoOf( int told ) {
   // INT_MIN has no counterpart.
   return told == INT32_MIN ? EPROTO : std::abs( told );
}

int endOf( const nlmsghdr & done ) { return errnoOf( fixedHeader< int >( done ).value_or( 0 ) ); }

std::optional< KernelAnswer > parseAnswer( const nlmsghdr & message ) {
   const std::optional< nlmsgerr > error = fixedHeader< nlmsgerr >( message );
   if ( message.nlmsg_type != NLMSG_ERROR || !error )
      return {};
   KernelAnswer answer;
   if ( error->error == 0 )
      return answer;
   answer.code = errnoOf( error->error );
   answer.text = std::strerror( answer.code );
   const Vel::String more = kernelText( message, *error );
   if ( !more.empty() )
      answer.text += " (" + more + ")";
   return answer;
}

namespace {

/// Sends the request and takes its answer, which ends with what the kernel thinks of the request.
DumpOutcome converse(
   Channel & channel, Bytes request, Vel::U16 flags, const char * what,
   const std::function< void( const nlmsghdr & ) > & handle ) {
   const auto failed = [what]( const Vel::String & why ) {
      return DumpOutcome{ .outcome = Outcome::failed( Vel::text( what, ": ", why ) ) };
   };
   nlmsghdr & header = messageIn( request );
   header.nlmsg_flags |= flags;
   header.nlmsg_seq = channel.nextSequence();
   const Outcome sent = channel.send( request );
   if ( !sent.ok() )
      return failed( sent.text() );

   DumpOutcome result;
   bool done = false;
   int code = 0;
   const auto take = [&]( const nlmsghdr & message ) {
      if ( message.nlmsg_seq != header.nlmsg_seq || message.nlmsg_pid != channel.port() )
         return true;
      result.interrupted |= ( message.nlmsg_flags & NLM_F_DUMP_INTR ) != 0;
      if ( message.nlmsg_type == NLMSG_DONE ) {
         done = true;
         code = endOf( message );
      } else if ( message.nlmsg_type == NLMSG_ERROR ) {
         const std::optional< KernelAnswer > answer = parseAnswer( message );
         done = true;
         code = answer ? answer->code : EPROTO;
      } else if ( message.nlmsg_type >= NLMSG_MIN_TYPE ) {
         handle( message );
      }
      return !done;
   };
   while ( !done ) {
      const Channel::Received received = channel.receive();
      if ( received.got == Channel::Got::nothing )
         return failed( "the kernel has not answered" );
      if ( received.got == Channel::Got::lost )
         return failed( "the answer has run over the buffer" );
      if ( received.got == Channel::Got::failed )
         return failed( received.error );
      forEachMessage( received.begin, received.size, take );
   }
   if ( code != 0 ) {
      result = failed( std::strerror( code ) );
      result.code = code;
   }
   return result;
}

} // namespace

DumpOutcome dump(
   Channel & channel, Bytes request, const char * what,
   const std::function< void( const nlmsghdr & ) > & handle ) {
   return converse( channel, std::move( request ), NLM_F_REQUEST | NLM_F_DUMP, what, handle );
}

DumpOutcome lookUp(
   Channel & channel, Bytes request, const char * what,
   const std::function< void( const nlmsghdr & ) > & handle ) {
   return converse( channel, std::move( request ), NLM_F_REQUEST | NLM_F_ACK, what, handle );
}

Outcome Dumps::open( const char * what ) {
   if ( channel_ )
      return {};
   Opened opened = kernel_.open( false );
   if ( !opened.channel )
      return Outcome::failed( Vel::text( what, ": ", opened.outcome.text() ) );
   channel_ = std::move( opened.channel );
   return {};
}

Outcome Dumps::whole(
   const Bytes & request, const char * what, const std::function< void() > & begin,
   const std::function< void( const nlmsghdr & ) > & handle ) {
   return repeat( request, what, begin, handle, [] { return true; } );
}

Outcome Dumps::agreed(
   const Bytes & request, const char * what, const std::function< void() > & begin,
   const std::function< void( const nlmsghdr & ) > & handle, const std::function< bool() > & same ) {
   bool hasOther = false, isEmpty = true;
   return repeat(
      request, what,
      [&] {
         isEmpty = true;
         begin();
      },
      [&]( const nlmsghdr & message ) {
         isEmpty = false;
         handle( message );
      },
      [&] { return isEmpty || ( std::exchange( hasOther, true ) && same() ); } );
}

/// Until `enough` says so of a dump that was not interrupted.
Outcome Dumps::repeat(
   const Bytes & request, const char * what, const std::function< void() > & begin,
   const std::function< void( const nlmsghdr & ) > & handle, const std::function< bool() > & enough ) {
   code_ = 0;
   if ( const Outcome opened = open( what ); !opened.ok() )
      return opened;
   for ( int tries = 0; tries < maxTries; ++tries ) {
      begin();
      const DumpOutcome result = dump( *channel_, request, what, handle );
      code_ = result.code;
      if ( !result.outcome.ok() )
         channel_.reset();
      if ( !result.outcome.ok() || ( !result.interrupted && enough() ) )
         return result.outcome;
   }
   return Outcome::failed( Vel::text( what, ": they change faster than they can be read" ) );
}

Outcome Dumps::one(
   const Bytes & request, const char * what, const std::function< void( const nlmsghdr & ) > & handle ) {
   code_ = 0;
   if ( const Outcome opened = open( what ); !opened.ok() )
      return opened;
   const DumpOutcome result = lookUp( *channel_, request, what, handle );
   code_ = result.code;
   if ( !result.outcome.ok() )
      channel_.reset();
   return result.outcome;
}

} // namespace DataPlane::Linux
