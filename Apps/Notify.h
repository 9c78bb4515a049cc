#pragma once

#include "Platform/Cog/EventLoop.h"

#include <functional>
#include <optional>
#include <string>

/// Purpose: tells whoever has started the agent how it is: that it has started, takes its configuration again, ends, one
/// line about what it does, and that its loop still turns. Spoken to a service manager that gives a socket in the
/// environment (NOTIFY_SOCKET); without one nothing is said, and nothing here does anything.
/// Owner: the program; the loop it is given outlives it.
///
/// Invariants:
/// 1. Nothing here waits. What the other side has no room for is said again at the next tick.
/// 2. The watchdog is fed by a tick of the loop itself: a loop that hangs, in whatever it does, feeds nothing. The tick
///    is real time's, whatever clock the agent has, and goes on when counters or the store fail.
namespace Apps {

class Notify {
 public:
   /// What the environment says.
   struct Address {
      std::string socket; ///< a path, or a name behind "@"; empty: nobody wants to know
      std::optional< double >
         watchdog; ///< seconds in which the watchdog wants to be fed; none: there is none
   };
   /// Takes the values of NOTIFY_SOCKET, WATCHDOG_USEC and WATCHDOG_PID, null if they are not set, for the process of
   /// that id. A watchdog that is another process's, or whose time is no number above 0, is none.
   static Address
   address( const char * socket, const char * watchdogMicroseconds, const char * watchdogPid, long pid );
   /// Takes it from this process's environment and removes it there, so that no command of ours speaks for us.
   static Address takeFromEnvironment();

   explicit Notify( Address address );
   ~Notify();
   Notify( const Notify & ) = delete;
   Notify & operator=( const Notify & ) = delete;

   /// The agent has started and listens. From now on the watchdog is fed, and what `status` gives, one line, is told
   /// when it has changed. Throws Vel::InternalException when the system has no more descriptors.
   void ready( Cog::EventLoop & loop, std::function< std::string() > status );
   /// The configuration is read again, from here to reloaded(). Not before ready().
   void reloading();
   void reloaded();
   /// The agent ends, by the wish of somebody.
   void stopping();

   /// Seconds between two ticks: a quarter of what the watchdog grants, and never more than this.
   static constexpr double longestTick = 5;
   double tick() const;

 private:
   void handleTick();
   void say( const std::string & lines );

   const Address address_;
   int socket_ = -1;
   int timer_ = -1;
   Cog::EventLoop * loop_ = nullptr;
   std::function< std::string() > status_;
   std::string told_;   ///< the line that was told last
   std::string unsaid_; ///< what there was no room for
};

} // namespace Apps
