#pragma once

#include "Platform/Cog/EventLoop.h"

#include <csignal>
#include <initializer_list>
#include <optional>

#include <sys/types.h>

/// Purpose: signals as events of the loop instead of interruptions.
namespace Cog {

/// While it lives, the signals are blocked in this thread and come in through the loop. Make it before any other
/// thread is started, so that none of them takes the signals. A plain object; the loop outlives it.
class Signals {
 public:
   struct Signal {
      int number = 0;
      std::optional< uid_t > sender; ///< the user whose process has sent it; none: the kernel has
   };
   using Handler = std::function< void( const Signal & signal ) >;

   /// Throws InternalException with the system's reason.
   Signals( EventLoop & loop, std::initializer_list< int > signals, Handler handler );
   ~Signals();
   Signals( const Signals & ) = delete;
   Signals & operator=( const Signals & ) = delete;

 private:
   void handleReadable();
   void release();

   EventLoop & loop_;
   Handler handler_;
   sigset_t before_;
   int descriptor_;
};

} // namespace Cog
