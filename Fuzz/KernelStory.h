#pragma once

#include "DataPlane/Linux/Kernel.h"
#include "Fuzz/Input.h"

#include <deque>
#include <map>
#include <memory>

#include <sys/eventfd.h>
#include <unistd.h>

/// Purpose: a kernel that answers with whatever bytes it was given. It knows two things more, for nothing would go far
/// otherwise: a link that is set is so from then on, and who asks for one link gets it, unless there are bytes for that too.
namespace Fuzz {

using DataPlane::Outcome;
using DataPlane::Linux::Bytes;

/// What is asked of a kernel at once, each with an answer of its own.
enum Table : unsigned { links, vlans, counters, addresses, routes, nextHops, oneLink, oneRoute, tableCount };

/// Datagrams that a channel gives, in memory of exactly their size.
class Datagrams {
 public:
   using Channel = DataPlane::Linux::Channel;
   Datagrams() : descriptor_( eventfd( 0, EFD_CLOEXEC | EFD_NONBLOCK ) ) {}
   ~Datagrams() { close( descriptor_ ); }
   Datagrams( const Datagrams & ) = delete;
   Datagrams & operator=( const Datagrams & ) = delete;

   void push( Channel::Got got, std::string_view bytes = {} ) {
      entries_.push_back( { got, std::make_unique< Exactly >( bytes ) } );
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
      return { last_.got, last_.bytes->data(), last_.bytes->size(), "device trouble" };
   }
   int descriptor() const { return descriptor_; }

 private:
   struct Entry {
      Channel::Got got = Channel::Got::nothing;
      std::unique_ptr< Exactly > bytes;
   };
   int descriptor_;
   std::deque< Entry > entries_;
   Entry last_;
};

class StoryKernel final : public DataPlane::Linux::Kernel {
 public:
   static constexpr Vel::U32 port = 4711;

   std::map< Table, std::vector< Vel::String > > tables; ///< datagrams of the answer to each question
   int code = 0;                                         ///< with which the next requests end
   int refusedDumps = 0;                                 ///< so many end with the code too
   int interruptedDumps = 0;
   std::weak_ptr< Datagrams > events; ///< of the channel that is told of links

   DataPlane::Linux::Opened open( bool toldOfLinks ) override {
      const auto datagrams = std::make_shared< Datagrams >();
      if ( toldOfLinks )
         events = datagrams;
      return { {}, std::make_unique< StoryChannel >( *this, datagrams ) };
   }
   std::optional< double > speed( const Vel::String & link ) override {
      return link.size() % 2 ? std::optional( 1e9 ) : std::nullopt;
   }
   DataPlane::LinkSnapshot bootId() override { return { {}, "boot 1" }; }

 private:
   class StoryChannel final : public DataPlane::Linux::Channel {
    public:
      StoryChannel( StoryKernel & kernel, std::shared_ptr< Datagrams > datagrams )
         : kernel_( kernel ), datagrams_( std::move( datagrams ) ) {}
      int descriptor() const override { return datagrams_->descriptor(); }
      Vel::U32 port() const override { return StoryKernel::port; }
      Received receive() override { return datagrams_->take(); }
      Outcome send( const Bytes & message ) override {
         kernel_.answer( DataPlane::Linux::messageIn( message ), *datagrams_ );
         return {};
      }

    private:
      StoryKernel & kernel_;
      std::shared_ptr< Datagrams > datagrams_;
   };

   static Table tableOf( const nlmsghdr & request );
   void answer( const nlmsghdr & request, Datagrams & into );
   void linkIsSet( const nlmsghdr & request );
   void lookUp( const nlmsghdr & request, Datagrams & into );
};

} // namespace Fuzz
