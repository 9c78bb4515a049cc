#pragma once

#include "Platform/Vel/Clock.h"
#include "Platform/Vel/Declare.h"

#include <bit>
#include <limits>
#include <memory>

/// Purpose: timers for hundreds of thousands of state machines that all fire on common ticks.
///
/// A tick is a multiple of the wheel's tick length in absolute time, whenever the wheel was made. A timer set at
/// time t fires at the first tick at or after t.
///
/// Invariants:
/// 1. Never early: the turn in which a timer fires has a time at or after the time that was set.
/// 2. Within one tick timers fire in the order in which they were set; setting again is setting later, also to
///    the same time. A value set while the timer is switched off counts as set when it is switched on.
/// 3. A timer that a handler disarms, sets again, switches off or destroys does not fire any more in that turn,
///    even if it was due.
/// 4. Nobody fires twice in one turn. Ticks that are overdue fire in one turn, in their order, with its time.
/// 5. A tick goes by with the first turn at or after it, whether or not anything was due. A timer that is set to
///    a time whose tick has gone by fires at the next tick that has not.
/// 6. Any finite time keeps its exact tick and its place, however far away it is.
/// 7. Arming and cancelling cost O(1) and never allocate.
/// 8. An exception from a handler passes through; the timers behind it fire in the next turn.
/// 9. A timer holds its wheel: if the wheel's owner lets go of it first, the timers that are left go on.
namespace Cog {

class TimerWheel;

/// Neighbours in a circular list.
struct TimerLink {
   TimerLink * next = nullptr;
   TimerLink * previous = nullptr;
};

/// One timer of a wheel, which it holds. Belongs to whoever reacts; destroying it cancels it.
class Timer : private TimerLink {
 public:
   static constexpr double never = std::numeric_limits< double >::infinity();

   Timer( const Timer & ) = delete;
   Timer & operator=( const Timer & ) = delete;

   /// Fire once, at the first tick at or after this time in seconds; replaces what was set before. Infinity
   /// disarms. NaN is an assertion.
   void timeMinIs( double absoluteSeconds );
   /// The time that is set; infinity when disarmed, and from the moment it fires.
   double timeMin() const { return timeMin_; }

   /// Switches the timer on or off; idempotent. It is made switched off, and keeps its time while it is off.
   void hasNotificationActiveIs( bool active );
   bool hasNotificationActive() const { return next != nullptr; }

   /// Runs in the timers' phase of the event loop, disarmed; it may set the timer again or destroy it.
   virtual void onTime() = 0;

   const TimerWheel * entity() const { return wheel_.get(); }

 protected:
   /// Throws RangeError "null ValidPtr" without a wheel.
   explicit Timer( Vel::Ptr< const TimerWheel > wheel );
   virtual ~Timer();

 private:
   friend class TimerWheel;
   void timeMinIsOther( double absoluteSeconds );

   bool armed() const { return next != this; }
   /// Switched on but not armed.
   void standAlone() { next = previous = this; }

   // Without neighbours it is switched off, as its own neighbour it is disarmed.
   Vel::Ptr< const TimerWheel > wheel_;
   double timeMin_ = never;
};

/// The wheel registers with the clock that it is given and is driven by it.
///
/// Inside, the timers of the near future have a bucket for each tick; those farther away share buckets, each of
/// which is spread over nearer ones when time comes to its beginning, before anything can be added there. So all
/// timers of one tick are in one bucket at any time, in the order in which they were set.
class TimerWheel final : public Vel::Entity, private Vel::Clock::Driven {
   VEL_ENTITY( TimerWheel );
   /// `tickMsecs`: length of a tick, above 0. `initialMaxTicks`: how many ticks have a bucket of their own (up
   /// to 4096 are); timers may be set to any time. `preserveOrder`: order within a tick is kept in any case.
   /// `defaultBucketSize`: buckets are lists through the timers and need no size.
   /// Throws RangeError "null ValidPtr" without a clock.
   TimerWheel(
      Vel::Ptr< Vel::Clock > clock, Vel::U32 tickMsecs, Vel::U32 initialMaxTicks, bool preserveOrder,
      Vel::U32 defaultBucketSize );
   ~TimerWheel() override;

   VEL_PARAM( Vel::Ptr< Vel::Clock >, clock );
   VEL_PARAM( Vel::U32, tickMsecs );
   VEL_PARAM( Vel::U32, initialMaxTicks );
   VEL_PARAM( bool, preserveOrder );
   VEL_PARAM( Vel::U32, defaultBucketSize );

   /// The time of the first tick for which a timer is armed; infinity when there is none. Timers that an
   /// exception kept from firing are due at the last tick that has gone by.
   double dueTime() const override;

 private:
   friend class Timer;
   using Tick = Vel::U64;
   static constexpr Tick noTick = ~Tick( 0 );
   /// Seconds; ticks and milliseconds below it are exact in a double. A timer beyond never fires.
   static constexpr double timeLimit = 9.0e12;
   static constexpr unsigned places = 16;
   static constexpr Vel::U64 neverBits = std::bit_cast< Vel::U64 >( Timer::never );
   /// The bucket of a time, given as bits, which compare faster.
   struct Place {
      Vel::U64 timeBits = neverBits; ///< infinity has no place: this one is free
      TimerLink * head = nullptr;
   };
   static constexpr unsigned upperBits = 6;
   static constexpr unsigned upperSlots = 1u << upperBits;

   void run( double currentTime ) override;

   double secondsOf( Tick tick ) const;
   Tick tickAtOrAfter( double seconds ) const;
   Tick tickAtOrBefore( double seconds ) const;
   /// The tick for which the timer is armed. A time whose tick had gone by means the first that had not, which is
   /// still the first, because a timer is taken out as soon as its tick goes by.
   Tick tickOf( const Timer & timer ) const;
   /// The first tick with a timer, noTick if there is none.
   Tick dueTick() const;
   void dueTickIs( Tick tick ) const;
   Tick findDueTick() const;
   std::size_t nextOccupied( std::size_t slot, std::size_t end ) const;

   std::size_t slotOf( Tick tick ) const;
   void arm( Timer & timer ) const;
   /// The place that is remembered for this time, or that of another time.
   Place & placeOf( Vel::U64 timeBits ) const { return places_[timeBits >> placeShift_ & ( places - 1 )]; }
   void find( double seconds, Place & place ) const;
   void placesDel() const;
   /// Takes it out of its list; it has its old neighbours still.
   void cancel( Timer & timer ) const;
   void takeDue( Tick limit );
   void moveTo( Tick tick );
   void spread( std::size_t slot );

   static void linkBefore( TimerLink & head, TimerLink & link );
   static void unlink( TimerLink & link );
   static bool empty( const TimerLink & head ) { return head.next == &head; }

   double ticksPerSecond_ = 0;
   unsigned slotBits_ = 0;
   /// One less than the number of buckets for single ticks; each further level has upperSlots buckets.
   std::size_t slotMask_ = 0;
   Tick base_ = 0; ///< the last tick that has gone by; all armed timers are later
   // Timers arm themselves on a wheel that others only read.
   mutable Tick due_ = noTick; ///< no timer is earlier; one is at it unless stale
   mutable double dueSeconds_ = Timer::never;
   mutable bool dueStale_ = false;
   // Most timers are armed for a few times: so many seconds from now. The places found are remembered as long as the
   // base is the same, `due_` is not later than any of them and their buckets are noted as occupied.
   mutable Place places_[places];
   unsigned placeShift_ = 0; ///< so that the times of neighbouring ticks are remembered side by side
   std::unique_ptr< TimerLink[] > heads_;
   std::unique_ptr< Vel::U64[] > occupied_; ///< a bit a bucket: clear means empty
   TimerLink overdue_;                      ///< taken out of their buckets and about to fire
};

/// Base of the nested timer classes: bound to one wheel (counted) and to its owner (plain).
///
///     struct VelClock final : Cog::TimerReactor< IntfMonSm > {
///        using TimerReactor::TimerReactor;
///        void onTime() override { sm()->handleTimeout(); }
///     };
template < class Owner >
class TimerReactor : public Timer {
 public:
   using Watched = TimerWheel;
   TimerReactor( Vel::Ptr< const TimerWheel > wheel, Owner * owner )
      : Timer( std::move( wheel ) ), owner_( owner ) {}
   Owner * sm() const { return owner_; }
   /// For Vel::Watch: a timer has no attributes to choose from.
   void velInterestIs( Vel::U64 ) {}

 private:
   Owner * owner_;
};

/// Holds at most one timer in place.
template < class R >
using TimerWatch = Vel::Watch< R >;

inline void Timer::timeMinIs( double absoluteSeconds ) {
   const Vel::U64 bits = std::bit_cast< Vel::U64 >( absoluteSeconds );
   if ( bits == TimerWheel::neverBits ) {
      if ( next ) {
         wheel_->cancel( *this );
         standAlone();
      }
      timeMin_ = never;
   } else if ( const TimerWheel::Place & place = wheel_->placeOf( bits ); place.timeBits == bits && next ) {
      if ( armed() )
         wheel_->cancel( *this );
      timeMin_ = absoluteSeconds;
      TimerWheel::linkBefore( *place.head, *this );
   } else {
      timeMinIsOther( absoluteSeconds );
   }
}

inline void TimerWheel::linkBefore( TimerLink & head, TimerLink & link ) {
   TimerLink & last = *head.previous;
   link.next = &head;
   link.previous = &last;
   last.next = &link;
   head.previous = &link;
}

inline void TimerWheel::unlink( TimerLink & link ) {
   link.previous->next = link.next;
   link.next->previous = link.previous;
}

inline void TimerWheel::cancel( Timer & timer ) const {
   if ( timer.timeMin_ <= dueSeconds_ )
      dueStale_ = true;
   unlink( timer );
}

} // namespace Cog
