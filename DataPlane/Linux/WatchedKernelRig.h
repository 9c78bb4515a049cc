#pragma once

#include "DataPlane/Linux/Kernel.h"

#include <functional>
#include <map>

/// Purpose: the real kernel, with a hook between it and the switch, so that something can happen at a moment that matters.
namespace DataPlane::Linux {

/// The kernel, with a hook on each of its channels.
class WatchedKernel final : public Kernel {
 public:
   /// Called with each new channel for events.
   std::function< void( const Channel & ) > eventsOpened;
   /// Called with each datagram of messages that another channel has received, after it has left the kernel, and with the
   /// type of the last request there.
   std::function< void( Vel::U16 asked ) > received;
   std::map< Vel::U16, int > asked; ///< by type of message

   Opened open( bool toldOfLinks ) override {
      Opened opened = kernel_->open( toldOfLinks );
      if ( !opened.channel )
         return opened;
      if ( toldOfLinks && eventsOpened )
         eventsOpened( *opened.channel );
      if ( !toldOfLinks )
         opened.channel = std::make_unique< Watched >( *this, std::move( opened.channel ) );
      return opened;
   }
   Opened openRouteNews( Vel::U8 family ) override { return kernel_->openRouteNews( family ); }
   std::optional< double > speed( const Vel::String & link ) override { return kernel_->speed( link ); }
   LinkSnapshot bootId() override { return kernel_->bootId(); }

 private:
   class Watched final : public Channel {
    public:
      Watched( WatchedKernel & owner, std::unique_ptr< Channel > inner )
         : owner_( owner ), inner_( std::move( inner ) ) {}
      int descriptor() const override { return inner_->descriptor(); }
      Vel::U32 port() const override { return inner_->port(); }
      Received receive() override {
         const Received result = inner_->receive();
         if ( result.got == Got::messages && owner_.received )
            owner_.received( asked_ );
         return result;
      }
      Outcome send( const Bytes & message ) override {
         asked_ = messageIn( message ).nlmsg_type;
         ++owner_.asked[asked_];
         return inner_->send( message );
      }

    private:
      WatchedKernel & owner_;
      Vel::U16 asked_ = 0;
      std::unique_ptr< Channel > inner_;
   };
   std::unique_ptr< Kernel > kernel_ = kernelNew();
};

} // namespace DataPlane::Linux
