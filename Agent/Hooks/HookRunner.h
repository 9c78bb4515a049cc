#pragma once

#include "Agent/Commands/Children.h"
#include "Agent/Commands/Lines.h"
#include "Agent/Hooks/HookEvent.h"
#include "Agent/Model/HookRecord.h"
#include "Platform/Cog/Scheduler.h"
#include "Platform/Cog/TimerWheel.h"

#include <deque>
#include <functional>
#include <map>
#include <memory>

/// Purpose: calls hooks: for each event of the log that one of them waits for, a program is run.
/// Owner: the agent. Watches, and decides nothing; nothing that decides waits for it.
///
/// Invariants:
/// 1. At most one program runs for a hook, and a hook gets its events in their order. What an earlier program has left,
///    of this agent or of one before it, has ended before the next begins. Hooks do not wait for each other.
/// 2. That a program was begun for an event is in the store before it begins, and its end with all that follows of it.
///    So an event is dealt with once, unless the agent ends while the program runs: then once more by the next agent,
///    at most `mostStarts` times altogether. One that has failed is not repeated.
/// 3. What waits is in the log and nowhere else, so it takes no memory of its own. Events that leave the log before
///    their hook comes to them are counted and told.
namespace Agent {

class HookRunner final : private Children::Listener {
 public:
   static constexpr Vel::U32 mostStarts = 3;
   /// Programs that are begun in one turn: each costs a fork.
   static constexpr unsigned beginsATurn = 4;
   /// Seconds from one try to the next: to end what does not end, and to begin when the system has run out of something.
   static constexpr double againAfter = 1;
   /// Seconds for which a program that was ended by force may linger before that is a problem.
   static constexpr double patience = 10;
   /// Seconds for which a failure is a problem, unless the hook succeeds meanwhile.
   static constexpr double problemFor = 3600;
   /// Bytes that a program may write, and lines of it that are written to the log.
   static constexpr std::size_t mostOutput = 1024 * 1024;
   static constexpr unsigned mostLines = 100;

   struct Model {
      Vel::Ptr< const EventLog > log;
      Vel::Ptr< HookDir > hookDir;
   };
   /// All given. Called in a turn.
   struct Outside {
      /// Posts its input to MAINTD_URL; an absolute path.
      std::string httpProgram;
      /// Calls back when all that has been written until now is in the store.
      std::function< void( std::function< void() > ) > whenStored;
      std::function< void( const HookFailure & ) > failed;
      std::function< void( const std::string & hook, Vel::U64 count ) > missed;
      std::function< void( const std::string & line ) > log;
   };
   struct Facts {
      std::string name;
      bool isUrl = false;
      Vel::U64 runs = 0, failures = 0, missed = 0;
      std::size_t waiting = 0; ///< events, without the one that it runs for
      Vel::U64 running = 0;    ///< event; 0: none
      std::string failure;     ///< of the last run; empty: it has not failed
   };
   struct Problem {
      double since = 0; ///< seconds of the clock
      std::string text;
   };

   HookRunner(
      Vel::Ptr< Cog::Scheduler > scheduler, Vel::Ptr< Cog::TimerWheel > wheel, Children & children,
      Model model, Outside outside );
   ~HookRunner();
   HookRunner( const HookRunner & ) = delete;
   HookRunner & operator=( const HookRunner & ) = delete;

   /// A hook that is new is told of what happens from now on. A program that runs for one that has gone is ended; one
   /// that was edited goes on, and what comes later takes the new definition.
   void configurationIs( const std::map< std::string, Config::Hook > & hooks );
   /// To be called in each turn when all its events are written and before it is committed.
   void turnEnds();
   /// Does what is due, for a turn in which timers do not run.
   void handleDue();

   std::vector< Facts > facts() const; ///< by name
   std::vector< Problem > problems() const;

 private:
   struct Wakeup final : Cog::TimerReactor< HookRunner > {
      using TimerReactor::TimerReactor;
      void onTime() override { sm()->handleDue(); }
   };
   /// A hook that is configured.
   struct Hook {
      Config::Hook definition;
      std::deque< Vel::U64 > waiting;      ///< events
      std::optional< double > scarceSince; ///< seconds, since when it cannot begin for want of something
      double notBefore = 0;                ///< seconds, when it is tried again
   };
   /// What runs for a hook, or has to end before something may.
   struct Job {
      enum class Phase { remnants, held, running, killed };
      Phase phase = Phase::held;
      Children::Id id = 0;
      HookCall call;
      bool retired = false; ///< the hook has gone: its end is told to nobody
      double limit = 0;     ///< seconds
      double due = Cog::Timer::never;
      double killedSince = 0;
      std::string problem; ///< why it is ended by force
      Lines output = Lines( false ), errors = Lines( false );
      std::string lastError;
      unsigned lines = 0;
      std::size_t bytes = 0;
   };
   using Jobs = std::map< std::string, Job >;

   void childSays( Children::Id id, Children::Stream stream, std::string_view bytes ) override;
   void childEnded( Children::Id id, const Children::Ending & ending ) override;

   // HookRunner.cpp
   void retire( const std::string & name );
   void takeUp( const std::string & name, Hook & hook );
   void recordDel( const std::string & name );
   void scan();
   void missedDel( const std::string & name, Hook & hook );
   void doneIs( const std::string & name, const Hook & hook );
   void wakeupIs();

   // HookRuns.cpp
   void begin();
   void begin( const std::string & name, Hook & hook );
   void goes( Children::Id id );
   void endByForce( const std::string & name, Job & job, const std::string & problem );
   void killAgain( Children::Id id );
   void remnantsEnd( const std::string & name );
   void handleRemnants( const std::string & name, bool left );
   void handleDue( const std::string & name, Job & job );
   void takeLine( const std::string & name, Job & job, const std::string & line, bool isError );
   void concluded( const std::string & name, const HookCall & call, const std::string & failure );
   Jobs::iterator jobOf( Children::Id id );
   void log( const std::string & name, const std::string & text ) const;

   HookRecord * record( const std::string & name ) const { return model_.hookDir->hook( name ); }
   double now() const { return scheduler_->currentTime(); }

   Vel::Ptr< Cog::Scheduler > scheduler_;
   Children & children_;
   Model model_;
   Outside outside_;
   std::map< std::string, Hook > hooks_;
   Jobs jobs_;               ///< by hook
   Vel::U64 seen_;           ///< the last event that was looked at
   bool configured_ = false; ///< what an earlier agent has left was taken up
   Children::Id lastId_;
   /// Shared with what may be called when this object has gone.
   std::shared_ptr< HookRunner * > self_;
   Vel::Watch< Wakeup > wakeup_;
};

} // namespace Agent
