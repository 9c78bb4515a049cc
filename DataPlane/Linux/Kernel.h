#pragma once

#include "DataPlane/Linux/Message.h"
#include "DataPlane/Switch.h"

#include <memory>

/// Purpose: the door to the kernel, so that everything behind it can be tested without one.
namespace DataPlane::Linux {

/// A netlink socket. Neither sending nor receiving ever waits for the other side: the kernel works on a request while it
/// is being sent.
class Channel {
 public:
   /// What receiving gave.
   enum class Got {
      messages, ///< `size` bytes of whole messages
      nothing,  ///< there is nothing (any more)
      lost,     ///< the buffer has run over: messages are missing, what comes next is sound
      failed    ///< the channel is of no use any more
   };
   struct Received {
      Got got = Got::nothing;
      const void * begin = nullptr; ///< valid until the next receive()
      std::size_t size = 0;
      Vel::String error; ///< if it has failed: the system's reason
   };

   virtual ~Channel() = default;
   /// To be watched for being readable.
   virtual int descriptor() const = 0;
   /// The channel's own address, which answers to its requests carry.
   virtual Vel::U32 port() const = 0;
   virtual Received receive() = 0;
   /// Fails with the system's reason.
   virtual Outcome send( const Bytes & message ) = 0;

   /// Tells the requests of this channel apart, so that the rest of one that failed is not taken for the next.
   Vel::U32 nextSequence() { return ++sequence_; }

 private:
   Vel::U32 sequence_ = 0;
};

struct Opened {
   Outcome outcome;
   std::unique_ptr< Channel > channel; ///< null if it failed
};

class Kernel {
 public:
   virtual ~Kernel() = default;
   /// Opens a channel that is told of the links of this process's network namespace and of their VLANs, or of nothing.
   virtual Opened open( bool toldOfLinks ) = 0;
   /// Opens a channel that is told of changes of the routes of one version of IP, and of nothing else.
   virtual Opened openRouteNews( Vel::U8 family ) = 0;
   /// What a link can carry in each direction, bits per second; absent: its driver does not say.
   virtual std::optional< double > speed( const Vel::String & link ) = 0;
   /// What tells this start of the machine and this network namespace from others.
   virtual LinkSnapshot bootId() = 0;
};

/// The real one.
std::unique_ptr< Kernel > kernelNew();

} // namespace DataPlane::Linux
