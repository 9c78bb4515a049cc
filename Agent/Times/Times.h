#pragma once

#include "Agent/Model/UnitTimes.h"
#include "Agent/Times/Moment.h"
#include "Platform/Cog/Scheduler.h"
#include "Platform/Cog/TimerWheel.h"
#include "Platform/Model/MaintenanceUnit.h"

#include <functional>
#include <map>
#include <memory>
#include <vector>

/// Purpose: keeps the times that operators set for maintenances: notices when a unit is not under maintenance by its
/// deadline, and brings it back if that was asked for, or when its time is over.
/// Owner: the agent, which calls ask() in the turn of the enter, handleDue() where timers do not run, and stopped().
///
/// Invariants:
/// 1. Only a unit that enters or is under maintenance has times. They go inside the write with which it leaves.
/// 2. An overrun is noted once for each deadline, in a turn before the one in which the unit is brought back for it, so
///    that it is told in any case. Bringing back compares what is with what was asked for, so a crash in between loses
///    nothing.
/// 3. While the machine runs only the kernel's time since boot counts. Over a boot passed() tells how much time has
///    passed; the moment that it needs is noted with every change, every `notePeriod` seconds, when wall time has been
///    set, and when the agent ends.
/// 4. What was due while no agent ran is done `patience` seconds after start().
namespace Agent {

class Times {
 public:
   static constexpr double lookPeriod = 10, notePeriod = 300;
   static constexpr double patience = 2;

   struct Model {
      Vel::Ptr< const Maintenance::Unit::StatusDir > unitStatusDir;
      Vel::Ptr< UnitTimesDir > timesDir;
   };
   /// All given. They do not throw.
   struct Hooks {
      /// Asks for the way back of a unit, in the name of the agent; `tooLate`: because its deadline is over.
      std::function< void( const Vel::String & unitName, const Vel::String & reason, bool tooLate ) > exit;
      std::function< Moment() > moment;                      ///< now
      std::function< void( const Vel::String & line ) > say; ///< for the log
   };

   Times(
      Vel::Ptr< Cog::Scheduler > scheduler, const Vel::Ptr< Cog::TimerWheel > & wheel, Model model,
      Hooks hooks );
   ~Times();
   Times( const Times & ) = delete;
   Times & operator=( const Times & ) = delete;

   /// Sets times of a unit that enters or is under maintenance; of another one it changes nothing. What is as it was asked
   /// for already goes on; what is not begins now. A deadline of a unit that is under maintenance says nothing.
   /// Whether anything has changed.
   bool ask( const Vel::String & unitName, const AskedTimes & asked, const Vel::String & by );
   /// Takes up what an earlier run has kept. Called once, before the loop runs.
   void start();
   /// Does what is due by now.
   void handleDue();
   /// The agent ends in an orderly way.
   void stopped();

 private:
   struct VelUnitDir final : Vel::ReactorTo< Times, Maintenance::Unit::StatusDir > {
      using ReactorTo::ReactorTo;
      void onStatus( const Vel::String & unit ) override { sm()->handleUnit( unit ); }
   };
   struct VelUnit final : Vel::ReactorTo< Times, Maintenance::Unit::Status > {
      using ReactorTo::ReactorTo;
      void onState() override { sm()->handleState( entity()->unitName() ); }
   };
   struct Wakeup final : Cog::TimerReactor< Times > {
      using TimerReactor::TimerReactor;
      void onTime() override { sm()->handleDue(); }
   };

   void handleUnit( const Vel::String & unitName );
   void handleState( const Vel::String & unitName );
   void carryOver();
   void note();
   bool deadlineIs( UnitTimes & times, const AskedTimes & asked, const Vel::String & by );
   bool revertIs( UnitTimes & times, const AskedTimes & asked, const Vel::String & by );
   void handleDue( UnitTimes & times );
   void exitSoon( const Vel::String & unitName );
   void exit( const Vel::String & unitName );
   Vel::String reason( const UnitTimes & times ) const;
   Maintenance::Unit::UnitState state( const Vel::String & unitName ) const;
   bool isLate( const UnitTimes & times ) const;
   bool reverts( const UnitTimes & times ) const;
   bool restores( const UnitTimes & times ) const;
   void wakeUp();
   double now() const { return scheduler_->currentTime(); }

   Vel::Ptr< Cog::Scheduler > scheduler_;
   const Model model_;
   const Hooks hooks_;
   double started_ = 0;
   /// Shared with posted tasks, which may outlive this object.
   std::shared_ptr< Times * > self_;
   Vel::Watch< VelUnitDir > unitDir_;
   std::map< Vel::String, Vel::Watch< VelUnit > > units_;
   Vel::Watch< Wakeup > wakeup_;
};

} // namespace Agent
