#pragma once

#include "Platform/Vel/Ptr.h"

/// Purpose: the one time base. Seconds as double, around 1.7e9, monotonic, surviving restarts of the process.
namespace Vel {

/// A source of time and whatever is driven by it. The event loop owns the real one, a test the manual one.
class Clock : public PtrInterface {
 public:
   /// The time of the present turn of the event loop: it stands still while handlers run.
   virtual double currentTime() const = 0;
   /// The moving time, for measuring how long something took and for time slices. Never below currentTime().
   virtual double liveTime() const = 0;

   /// Something that is due at times of this clock. Registered for as long as it wants to be driven.
   class Driven {
    public:
      /// When it wants to run next, in seconds; infinity: not at all; 0 or anything past: as soon as
      /// possible.
      virtual double dueTime() const = 0;
      /// Does what is due at the time of the present turn.
      virtual void run( double currentTime ) = 0;

    protected:
      ~Driven() = default;
   };
   /// Timers run before deferred tasks in every turn; within each, in the order of registration.
   enum class Phase { timers, tasks };
   virtual void drivenIs( Driven & driven, Phase phase ) = 0;
   virtual void drivenDel( Driven & driven ) = 0;
};

/// Process-wide access to the clock, for code that is not handed one.
class System {
 public:
   /// The time of the present turn in seconds; 0 before a clock is set.
   static double currentTime();
   static const Ptr< Clock > & clock();
   /// Null takes it away.
   static void clockIs( Ptr< Clock > clock );
};

} // namespace Vel
