#pragma once

#include "Apps/Supervisor.h"

#include <csignal>
#include <functional>

#include <sys/types.h>

namespace Apps {

/// The agent as a process of the kernel: a child that goes on in this very program. Made before the program has anything
/// that must not be there twice. While it lives, the signals that are passed on and SIGCHLD are blocked in this process,
/// and nobody else may wait for its children: it collects all of them, also those that it has inherited as the first
/// process of a container.
class RealAgentProcess final : public AgentProcess {
 public:
   /// How the agent is begun, and why; it calls `runs` when it has started.
   struct Start {
      unsigned restarts;
      const std::string & reason;
      std::function< void() > runs;
   };
   struct Calls {
      /// Called in the child, with the signals as they were before, and does all that the agent does; the child ends with
      /// what it returns.
      std::function< int( const Start & ) > inAgent;
      /// Called in this process: a child was made; it has called `runs`.
      std::function< void() > made, started;
      /// Tells the operator.
      std::function< void( const std::string & line ) > say;
   };
   /// All given. Throws Vel::InternalException when the system has no more descriptors.
   explicit RealAgentProcess( Calls calls );
   ~RealAgentProcess() override;
   RealAgentProcess( const RealAgentProcess & ) = delete;
   RealAgentProcess & operator=( const RealAgentProcess & ) = delete;

   double now() override;
   bool start( unsigned restarts, const std::string & reason ) override;
   void pass( int signal ) override;
   Event wait( std::optional< double > seconds ) override;
   void say( const std::string & line ) override { calls_.say( line ); }

 private:
   [[noreturn]] void runAgent( unsigned restarts, const std::string & reason, int runs );
   std::optional< Event > reaped();
   std::optional< Event > heard();
   void runsDel();

   Calls calls_;
   sigset_t watched_;
   sigset_t before_;
   int signals_ = -1;  ///< where they are read
   int runs_ = -1;     ///< where the agent says that it has started; -1: it has, or there is none
   pid_t process_ = 0; ///< 0: none runs
};

} // namespace Apps
