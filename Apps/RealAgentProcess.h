#pragma once

#include "Apps/Supervisor.h"

#include <csignal>
#include <functional>

#include <sys/types.h>

namespace Apps {

/// The agent as a process of the kernel: a child that goes on in this very program. Made before the program has anything
/// that must not be there twice. While it lives, the signals that are passed on and SIGCHLD are blocked in this process,
/// and nobody else may wait for its children.
class RealAgentProcess final : public AgentProcess {
 public:
   /// `inAgent` is called in the child, with the signals as they were before, and does all that the agent does; the child
   /// ends with what it returns. `started` is called in this process after each start, `say` tells the operator.
   RealAgentProcess(
      std::function< int( unsigned restarts, const std::string & reason ) > inAgent,
      std::function< void() > started, std::function< void( const std::string & line ) > say );
   ~RealAgentProcess() override;
   RealAgentProcess( const RealAgentProcess & ) = delete;
   RealAgentProcess & operator=( const RealAgentProcess & ) = delete;

   double now() override;
   bool start( unsigned restarts, const std::string & reason ) override;
   void pass( int signal ) override;
   Event wait( std::optional< double > seconds ) override;
   void say( const std::string & line ) override { say_( line ); }

 private:
   std::function< int( unsigned, const std::string & ) > inAgent_;
   std::function< void() > started_;
   std::function< void( const std::string & ) > say_;
   sigset_t watched_;
   sigset_t before_;
   pid_t process_ = 0; ///< 0: none runs
};

} // namespace Apps
