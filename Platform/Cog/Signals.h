#pragma once

#include "Platform/Cog/EventLoop.h"

#include <csignal>
#include <initializer_list>

/// Purpose: signals as events of the loop instead of interruptions.
namespace Cog {

/// While it lives, the signals are blocked in this thread and come in through the loop. Make it before any other
/// thread is started, so that none of them takes the signals. A plain object; the loop outlives it.
class Signals {
 public:
   using Handler = std::function< void( int signal ) >;

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
