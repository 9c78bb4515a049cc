#pragma once

#include "Platform/Cog/TimeSource.h"
#include "Platform/Vel/Clock.h"

#include <deque>
#include <vector>

/// Purpose: the order of one turn, shared by the event loop and by the manual clock of tests.
namespace Cog {

/// A clock that does its work in turns. One turn:
///
/// 1. The time is read once and stands still for the rest of the turn. If a timer is due and the turn is at most
///    `maxLateness` late for the first one, the time of the turn is that timer's time: a period of 5 s stays 5
///    ticks. Otherwise it is the real time. It never goes back.
/// 2. What happened outside is brought in (bringIn()), then the tasks that were posted before this turn run, in
///    their order. A task that is posted during a turn runs in the next one, which then does not wait: whoever
///    reacts to a write by posting reacts in a later turn, never inside the write.
/// 3. The timers that are due run, if timersMayRun allows it; otherwise none does and they are overdue in the
///    next turn, which comes after `retryAfter` at the latest.
/// 4. The deferred tasks that are due run, once each: those that ask to run while this phase is on wait for the
///    next turn. If there are any, the hook for it runs before the first.
/// 5. The commit hooks run, in the order in which they were set.
/// 6. If all of them succeeded, the effects that were queued before this phase are let out, in their order.
///    Otherwise they stay queued and the next turn, after `retryAfter` at the latest, tries again.
///
/// An exception from any of them passes through turn() and skips the rest of the turn, so nothing leaves that is
/// not committed; what has not run yet is still queued.
class Scheduler : public Vel::Clock {
 public:
   using Task = std::function< void() >;

   /// Seconds a turn may be late for a timer and still take the timer's time.
   static constexpr double maxLateness = 0.025;
   /// Seconds after which timers that were not allowed to run, or a commit that failed, are tried again.
   static constexpr double retryAfter = 1.0;

   double currentTime() const final { return now_; }
   /// Where the time of the turn is kept, for who reads it very often. Good for as long as the scheduler.
   const double * currentTimeKept() const { return &now_; }
   double liveTime() const final;
   void drivenIs( Driven & driven, Phase phase ) final;
   void drivenDel( Driven & driven ) final;

   /// Runs the task in a later turn. Tasks run in the order in which they were posted.
   void post( Task task ) { posted_.push_back( std::move( task ) ); }
   /// Queues something that leaves the process; it is let out when this turn is committed.
   void effectIs( Task effect ) { effects_.push_back( std::move( effect ) ); }
   /// Asked in each turn in which a timer is due; none set: timers always run.
   void timersMayRunIs( std::function< bool() > timersMayRun ) { timersMayRun_ = std::move( timersMayRun ); }
   /// Called in each turn in which a deferred task is due, before the first of them runs.
   void beforeTasksIs( std::function< void() > beforeTasks ) { beforeTasks_ = std::move( beforeTasks ); }
   /// Adds a hook that commits what the turn has changed; true: it is durable.
   void commitHookIs( std::function< bool() > commit ) { commits_.push_back( std::move( commit ) ); }

   /// Number of turns begun.
   Vel::U64 turns() const { return turns_; }
   bool inTurn() const { return inTurn_; }
   /// When the next turn is wanted: 0 at once, infinity only when something happens outside.
   double dueTime() const;

 protected:
   /// Throws RangeError "null ValidPtr" without a time source.
   explicit Scheduler( Vel::Ptr< TimeSource > time );
   /// Asserts that no turn is on.
   void turn();
   /// Phase 2, before the posted tasks.
   virtual void bringIn() {}
   TimeSource & time() const { return *time_; }

 private:
   struct Entry {
      Driven * driven; ///< null: has left during a turn
      bool due;
   };
   using Entries = std::vector< Entry >;

   class InTurn;
   static double firstDue( const Entries & entries );
   void readTime();
   void runPosted( std::size_t count );
   void runTimers();
   void runTasks();
   bool commit();
   void letEffectsOut();

   Vel::Ptr< TimeSource > time_;
   double now_;
   Entries timers_;
   Entries tasks_;
   std::deque< Task > posted_;
   std::deque< Task > effects_;
   std::vector< std::function< bool() > > commits_;
   std::function< bool() > timersMayRun_;
   std::function< void() > beforeTasks_;
   Vel::U64 turns_ = 0;
   double retryTime_ = 0;     ///< of what is held
   bool timersHeld_ = false;  ///< were due in the last turn but not allowed to run
   bool effectsHeld_ = false; ///< the last commit failed
   bool inTurn_ = false;
};

} // namespace Cog
