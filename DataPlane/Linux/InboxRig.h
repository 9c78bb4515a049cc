#pragma once

#include "DataPlane/Linux/Kernel.h"

#include <algorithm>
#include <deque>
#include <functional>
#include <memory>
#include <string_view>

#include <sys/eventfd.h>
#include <unistd.h>

/// Purpose: channels of kernels that are made up.
namespace DataPlane::Linux {

/// What is to be received on a channel, in memory of exactly its size, so that a read behind it is seen. Its descriptor is
/// readable while there is something.
class Inbox {
 public:
   Inbox() : descriptor_( eventfd( 0, EFD_CLOEXEC | EFD_NONBLOCK ) ) {}
   ~Inbox() { close( descriptor_ ); }
   Inbox( const Inbox & ) = delete;
   Inbox & operator=( const Inbox & ) = delete;

   void push( const Bytes & messages ) {
      push(
         Channel::Got::messages,
         { reinterpret_cast< const char * >( messages.data() ), messages.size() * sizeof( Vel::U32 ) } );
   }
   void push( Channel::Got got, std::string_view bytes = {} ) {
      Entry entry{ got, std::unique_ptr< char[] >( new char[bytes.size()] ), bytes.size() };
      std::copy( bytes.begin(), bytes.end(), entry.memory.get() );
      entries_.push_back( std::move( entry ) );
      eventfd_write( descriptor_, 1 );
   }
   Channel::Received take() {
      if ( entries_.empty() ) {
         eventfd_t value;
         eventfd_read( descriptor_, &value );
         return {};
      }
      last_ = std::move( entries_.front() );
      entries_.pop_front();
      return { last_.got, last_.memory.get(), last_.size, "device trouble" };
   }
   int descriptor() const { return descriptor_; }

 private:
   struct Entry {
      Channel::Got got = Channel::Got::nothing;
      std::unique_ptr< char[] > memory; ///< aligned as `new` aligns
      std::size_t size = 0;
   };
   const int descriptor_;
   std::deque< Entry > entries_;
   Entry last_;
};

/// Gives what comes into the inbox, and hands on what is sent.
class InboxChannel : public Channel {
 public:
   static constexpr Vel::U32 ownPort = 4711;
   using Sent = std::function< Outcome( const Bytes & message ) >;

   explicit InboxChannel( std::shared_ptr< Inbox > to, Sent sent = {} )
      : inbox( std::move( to ) ), sent_( std::move( sent ) ) {}
   int descriptor() const override { return inbox->descriptor(); }
   Vel::U32 port() const override { return ownPort; }
   Received receive() override { return inbox->take(); }
   Outcome send( const Bytes & message ) override { return sent_ ? sent_( message ) : Outcome(); }

   const std::shared_ptr< Inbox > inbox;

 private:
   const Sent sent_;
};

} // namespace DataPlane::Linux
