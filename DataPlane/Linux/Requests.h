#pragma once

#include "DataPlane/Linux/Dump.h"

#include <deque>
#include <map>

/// Purpose: requests to the kernel whose answers are read in a later turn.
///
/// Order: answers are handed out in the order of the requests, and only by takeAnswers(): never inside ask(), and what is
/// asked for while answers are taken is answered by a later call. No more requests are sent at a time than the receive
/// buffer can hold answers for.
namespace DataPlane::Linux {

class Requests {
 public:
   using Done = std::function< void( const KernelAnswer & answer ) >;
   static constexpr std::size_t maxUnderWay = 256;

   /// `wake` is called when takeAnswers() has something to do that the channel does not show.
   explicit Requests( std::function< void() > wake ) : wake_( std::move( wake ) ) {}
   Requests( const Requests & ) = delete;
   Requests & operator=( const Requests & ) = delete;

   /// The channel to use; it outlives its use. Null: none, whatever is asked for fails. Requests that are under way on
   /// another channel fail.
   void channelIs( Channel * channel );
   /// Sends a request that is to be acknowledged, now or when there is room. `done` is called once, with the answer or
   /// with why there is none; it may ask again.
   void ask( Bytes request, Done done );
   /// Takes the answers that are there; to be called when the channel is readable, and after `wake`. Fails if the
   /// channel is of no use any more; then there is none.
   Outcome takeAnswers();
   /// Forgets everything without telling anybody; there is no channel then.
   void clear();

 private:
   struct Waiting {
      Bytes request;
      Done done;
   };
   struct Unsent {
      Done done;
      KernelAnswer answer;
   };
   void send( Bytes request, Done done );
   void sendWaiting();
   void take( const nlmsghdr & message );
   void handOutUnsent();
   void failUnderWay( const Vel::String & why );
   void fail( Done done, const Vel::String & why );

   Channel * channel_ = nullptr;
   std::function< void() > wake_;
   std::map< Vel::U32, Done > underWay_; ///< by sequence number
   std::deque< Waiting > waiting_;
   std::deque< Unsent > unsent_; ///< have failed, which is still to be handed out
   bool taking_ = false;
};

} // namespace DataPlane::Linux
