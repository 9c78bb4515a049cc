#pragma once

#include <optional>
#include <string>

/// Purpose: keeps an agent running where no service manager does: starts it again when it has aborted, after 1, 2, 4, 8,
/// 16 and then always 30 seconds, and never gives up. Links and units are not touched by that: an agent that is started
/// again goes on where the one before has been.
///
/// It ends when the agent has ended by itself with 0, or in whatever way after somebody has asked for the end. If no agent
/// has ever come to run, in whatever way the first one has ended, it is not tried again either: somebody is there who reads
/// why.
namespace Apps {

/// How a process has ended.
struct ProcessEnd {
   bool bySignal = false;
   int number = 0; ///< the signal, or the exit status
};
/// "ended by signal 6 (Aborted)", "ended with status 1".
std::string text( const ProcessEnd & end );

/// What there is to supervise, and the time. Real, or played by a test.
class AgentProcess {
 public:
   struct Event {
      enum class Kind { started, ended, signal, timeUp } kind = Kind::timeUp; ///< started: the agent runs
      ProcessEnd end = {};                                                    ///< of the agent
      int signal = 0;                                                         ///< that was sent to us
   };
   virtual ~AgentProcess() = default;
   /// Seconds that never go back.
   virtual double now() = 0;
   /// Starts the agent and tells it which restart it is (0: the first start), and why. False: no process could be made.
   virtual bool start( unsigned restarts, const std::string & reason ) = 0;
   /// Sends a signal to the agent that runs.
   virtual void pass( int signal ) = 0;
   /// Waits for the next event, at most so many seconds; without a limit if none is given.
   virtual Event wait( std::optional< double > seconds ) = 0;
   /// Tells the operator.
   virtual void say( const std::string & line ) = 0;
};

class Supervisor {
 public:
   static constexpr double firstDelay = 1;
   static constexpr double longestDelay = 30;
   /// Seconds after which an agent has run well: the next delay is the first one again.
   static constexpr double goodWhile = 300;

   explicit Supervisor( AgentProcess & agent ) : agent_( agent ) {}

   /// Starts the agent, and returns the exit status of the program when nothing is to be started again.
   int run();

 private:
   std::optional< int > handleEnd( const ProcessEnd & end );
   bool startAgain();
   bool waitForDelay();
   void handleSignal( int signal );

   AgentProcess & agent_;
   bool running_ = false;
   bool hasRun_ = false;        ///< some agent has said that it has started
   std::optional< int > asked_; ///< the signal by which somebody has asked for the end
   unsigned restarts_ = 0;
   double delay_ = firstDelay; ///< before the next restart
   double startedAt_ = 0;
   std::string reason_; ///< why the agent is started again
};

} // namespace Apps
