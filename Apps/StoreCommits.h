#pragma once

#include "Platform/Cog/Scheduler.h"
#include "Platform/Ledger/Persistence.h"

#include <string>
#include <vector>

/// Purpose: commits what each turn has changed to the stores, and knows whether that works.
/// Owner: the agent.
///
/// What is to leave the process after a turn waits for one of two things:
/// 1. The end of the turn (Scheduler::effectIs()): requests to the switch, answers. While the stores fail, these wait for
///    one more try and are let out then, so that links are released and shut all the same.
/// 2. A commit that has succeeded (whenStored()): what must not be known, or taken away, unless the agent that comes
///    after a crash knows of it too. While the stores fail, these wait for as long as that lasts; a crash takes them
///    along with what they were waiting for.
namespace Apps {

class StoreCommits {
 public:
   using Task = Cog::Scheduler::Task;

   /// Both outlive it.
   StoreCommits( Cog::Scheduler & scheduler, Ledger::Persistence & persistence )
      : scheduler_( scheduler ), persistence_( persistence ) {}
   StoreCommits( const StoreCommits & ) = delete;
   StoreCommits & operator=( const StoreCommits & ) = delete;

   /// To be called once at the end of each turn, when nothing is written any more. Whether effects may be let out.
   bool commit();
   /// Calls back, with the effects of a turn, when all that has been written until now stands in the stores. Whoever
   /// asks again and again keeps one call waiting, not one for each time.
   void whenStored( Task call );
   /// Seconds of the clock; 0: the last commit succeeded.
   double failedSince() const { return failedSince_; }
   /// What the store that failed says; empty: none has.
   const std::string & problem() const { return problem_; }

 private:
   Cog::Scheduler & scheduler_;
   Ledger::Persistence & persistence_;
   std::vector< Task > waiting_; ///< for a commit that succeeds
   double failedSince_ = 0;
   std::string problem_;
};

} // namespace Apps
