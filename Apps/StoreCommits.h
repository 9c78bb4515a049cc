#pragma once

#include "Platform/Cog/Scheduler.h"
#include "Platform/Cog/TimerWheel.h"
#include "Platform/Ledger/FallbackEngine.h"
#include "Platform/Ledger/Persistence.h"

#include <optional>
#include <string>
#include <vector>

/// Purpose: commits what each turn has changed to the stores, and knows whether that works.
/// Owner: the agent.
///
/// While the state store cannot be written, what it should hold is kept in a file in the runtime folder (FallbackEngine):
/// an agent that is killed or stopped then is gone on with as if the store had taken it, as long as the machine runs.
///
/// What is to leave the process after a turn waits for one of three things:
/// 1. The end of the turn (Scheduler::effectIs()): answers, links that are set up. While what has changed can be written
///    neither to the state store nor to that file, these wait for one more try and are let out then, counted from when the
///    second of the two has failed: whoever wants his links back must not wait for a disk.
/// 2. That it is kept in one of the two (whenKept()): what must not be done unless the agent that comes after a crash knows
///    of it, such as shutting a link, which loses what only the journal knows then. While neither can be written, these
///    wait.
/// 3. A commit that has succeeded (whenStored()): what must not be known, or taken away, unless it is known after a start
///    of the machine, too. While the stores fail, these wait for as long as that lasts; a crash takes them along.
namespace Apps {

class StoreCommits {
 public:
   using Task = Cog::Scheduler::Task;

   /// Seconds after which a store that has failed is tried again, also when nothing else happens, as long as anything
   /// waits for it.
   static constexpr double retryAfter = 1;

   /// All outlive it. `fallback` is what `persistence` has for the state folder.
   StoreCommits(
      Cog::Scheduler & scheduler, const Vel::Ptr< Cog::TimerWheel > & wheel,
      Ledger::Persistence & persistence, Ledger::FallbackEngine & fallback );
   StoreCommits( const StoreCommits & ) = delete;
   StoreCommits & operator=( const StoreCommits & ) = delete;

   /// To be called once at the end of each turn, when nothing is written any more. Whether effects may be let out.
   bool commit();
   /// The same before the process ends, which lets nothing out any more. What is wrong with the stores, and where it is
   /// kept what they lack; empty: all is stored.
   std::string commitAtEnd() { return commitNow().problem; }
   /// The same for whom it is enough that the next agent knows: empty also if it is kept in the file.
   std::string keepAtEnd() {
      const Stored now = commitNow();
      return now.kept ? "" : now.problem;
   }
   /// Calls back, with the effects of a turn, when all that has been written until now stands in the state store or is
   /// kept in the file.
   void whenKept( Task call ) { wait( waitForKept_, std::move( call ) ); }
   /// Calls back, with the effects of a turn, when all that has been written until now stands in the stores. Whoever
   /// asks again and again keeps one call waiting, not one for each time.
   void whenStored( Task call ) { wait( waitForStored_, std::move( call ) ); }
   /// Seconds of the clock; 0: the last commit succeeded.
   double failedSince() const { return failedSince_; }
   /// What the store that failed says; empty: none has.
   const std::string & problem() const { return problem_; }

 private:
   /// The turns of others may be far.
   struct Tick final : Cog::TimerReactor< StoreCommits > {
      using TimerReactor::TimerReactor;
      void onTime() override {} // its turn commits
   };
   struct Stored {
      bool kept = false;    ///< what the state store should hold is there, or in the file
      bool allKept = false; ///< and the runtime store has what it should hold
      std::string problem;  ///< empty: all is in the stores
   };

   Stored commitNow();
   void wait( std::vector< Task > & waiting, Task call );
   void letGo( std::vector< Task > & waiting );

   Cog::Scheduler & scheduler_;
   Ledger::Persistence & persistence_;
   Ledger::FallbackEngine & fallback_;
   std::vector< Task > waitForKept_, waitForStored_;
   double failedSince_ = 0;
   std::optional< double > lostSince_; ///< since when something that has changed is kept nowhere
   std::string problem_;
   Vel::Watch< Tick > tick_;
};

} // namespace Apps
