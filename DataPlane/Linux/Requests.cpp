#include "DataPlane/Linux/Requests.h"

#include <cerrno>

namespace DataPlane::Linux {

void Requests::channelIs( Channel * channel ) {
   if ( channel == channel_ )
      return;
   failUnderWay( "the kernel's answer was lost" );
   channel_ = channel;
}

void Requests::clear() {
   channel_ = nullptr;
   underWay_.clear();
   waiting_.clear();
   unsent_.clear();
}

void Requests::ask( Bytes request, Done done ) {
   if ( taking_ || underWay_.size() >= maxUnderWay )
      waiting_.push_back( { std::move( request ), std::move( done ) } );
   else
      send( std::move( request ), std::move( done ) );
}

void Requests::send( Bytes request, Done done ) {
   if ( !channel_ )
      return fail( std::move( done ), "there is no connection to the kernel" );
   const Vel::U32 sequence = channel_->nextSequence();
   messageIn( request ).nlmsg_seq = sequence;
   const Outcome sent = channel_->send( request );
   if ( sent.ok() )
      underWay_.emplace( sequence, std::move( done ) );
   else
      fail( std::move( done ), sent.text() );
}

void Requests::fail( Done done, const Vel::String & why ) {
   unsent_.push_back( { std::move( done ), { EIO, why } } );
   wake_();
}

Outcome Requests::takeAnswers() {
   taking_ = true;
   handOutUnsent();
   Outcome outcome;
   while ( channel_ ) {
      const Channel::Received received = channel_->receive();
      if ( received.got == Channel::Got::nothing )
         break;
      if ( received.got == Channel::Got::messages ) {
         forEachMessage( received.begin, received.size, [this]( const nlmsghdr & message ) {
            take( message );
            return true;
         } );
         continue;
      }
      failUnderWay( "the kernel's answer was lost" );
      if ( received.got == Channel::Got::failed ) {
         outcome = Outcome::failed( received.error );
         channel_ = nullptr;
      }
   }
   taking_ = false;
   sendWaiting();
   return outcome;
}

/// Those that fail while this goes on are left for the next time.
void Requests::handOutUnsent() {
   for ( std::size_t left = unsent_.size(); left > 0; --left ) {
      const Unsent unsent = std::move( unsent_.front() );
      unsent_.pop_front();
      unsent.done( unsent.answer );
   }
}

void Requests::take( const nlmsghdr & message ) {
   const std::optional< KernelAnswer > answer = parseAnswer( message );
   const auto at = underWay_.find( message.nlmsg_seq );
   if ( !answer || at == underWay_.end() )
      return;
   const Done done = std::move( at->second );
   underWay_.erase( at );
   done( *answer );
}

void Requests::sendWaiting() {
   while ( !waiting_.empty() && underWay_.size() < maxUnderWay ) {
      Waiting next = std::move( waiting_.front() );
      waiting_.pop_front();
      send( std::move( next.request ), std::move( next.done ) );
   }
}

void Requests::failUnderWay( const Vel::String & why ) {
   for ( auto & [sequence, done] : std::exchange( underWay_, {} ) )
      fail( std::move( done ), why );
}

} // namespace DataPlane::Linux
