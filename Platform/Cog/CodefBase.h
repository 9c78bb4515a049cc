#pragma once

#include "Platform/Vel/Clock.h"

/// Purpose: cooperative deferred work: a backlog that is worked off from the event loop, a time slice at a time.
namespace Cog {

/// Base beside Vel::Entity for a class that has a backlog. It holds the clock and is driven by it, in the phase
/// of deferred tasks, never inside the call that asks for a run.
///
/// 1. A run that is asked for by an event or a timer is in the same turn; one that is asked for by a deferred
///    task, or that a paused run still needs, is in the next turn, which does not wait.
/// 2. Each run calls processBacklog() once. While work remains, runs follow, a turn each.
/// 3. Destroying the object cancels it, also from within its own run or another's.
/// 4. An exception passes through; the run is counted, its items are not, and remaining work stays asked for.
class CodefBase : private Vel::Clock::Driven {
 public:
   CodefBase( const CodefBase & ) = delete;
   CodefBase & operator=( const CodefBase & ) = delete;

   /// The work. `startTime` is the live time at which the run began; the slice ends at startTime +
   /// backlogQuantum() of liveTime(). Returns how many items were processed.
   virtual Vel::U64 processBacklog( double startTime ) = 0;
   /// How many items wait.
   virtual Vel::U64 backlogSize() const = 0;

   /// Asks for a run in the first turn at or after this time in seconds; 0: as soon as possible; infinity: takes
   /// the request back. Replaces what was asked for before. NaN is an assertion.
   void clockReactorTimeMinIs( double absoluteSeconds );
   double clockReactorTimeMin() const { return timeMin_; }

   const Vel::Ptr< Vel::Clock > & clock() const { return clock_; }
   /// The moving time in seconds, for the test whether the slice is spent.
   double liveTime() const { return clock_->liveTime(); }

   /// Time slice of one run in seconds; at least 0.
   double backlogQuantum() const { return backlogQuantum_; }
   void backlogQuantumIs( double seconds );

   /// Changes reported, counted by whoever adds to the backlog.
   Vel::U64 updatesSeen() const { return updatesSeen_; }
   void updatesSeenInc( Vel::U64 amount = 1 ) { updatesSeen_ += amount; }
   /// Items processed: the sum of what processBacklog() returned.
   Vel::U64 updatesProcessed() const { return updatesProcessed_; }
   /// Changes that found their item waiting already: those seen without being processed, as of the last time the
   /// backlog was empty.
   Vel::U64 updatesCoalesced() const { return updatesCoalesced_; }
   /// Number of runs.
   Vel::U64 dispatchCount() const { return dispatchCount_; }
   /// Number of runs that left work behind.
   Vel::U64 yieldBeforeFinishingCount() const { return yieldBeforeFinishingCount_; }
   /// Seconds of live time that the runs took.
   double timeUsed() const { return timeUsed_; }
   /// Whether a run has emptied the backlog since the start: the first burst is over.
   bool warm() const { return warm_; }

 protected:
   /// Throws RangeError "null ValidPtr" without a clock.
   explicit CodefBase( Vel::Ptr< Vel::Clock > clock );
   virtual ~CodefBase();

 private:
   /// Accounts a run, however it ends.
   class Run;

   double dueTime() const final { return timeMin_; }
   void run( double currentTime ) final;

   Vel::Ptr< Vel::Clock > clock_;
   double timeMin_;
   double backlogQuantum_ = 0.010;
   double timeUsed_ = 0;
   Vel::U64 updatesSeen_ = 0;
   Vel::U64 updatesProcessed_ = 0;
   Vel::U64 updatesCoalesced_ = 0;
   Vel::U64 dispatchCount_ = 0;
   Vel::U64 yieldBeforeFinishingCount_ = 0;
   Run * run_ = nullptr; ///< that is going on
   bool warm_ = false;
};

} // namespace Cog
