#include "Platform/Cog/TimerWheel.h"

#include <algorithm>
#include <bit>

namespace Cog {

namespace {
constexpr Vel::U32 minSlots = 64;
constexpr Vel::U32 maxSlots = 4096;
/// Ticks are below 2 to this power, see timeLimit.
constexpr unsigned tickBits = 54;
} // namespace

Timer::Timer( Vel::Ptr< const TimerWheel > wheel ) : wheel_( std::move( Vel::validPtr( wheel ) ) ) {}

Timer::~Timer() { hasNotificationActiveIs( false ); }

void Timer::hasNotificationActiveIs( bool active ) {
   if ( active == active_ )
      return;
   active_ = active;
   if ( active )
      wheel_->arm( *this );
   else if ( next )
      wheel_->cancel( *this );
}

TimerWheel::TimerWheel(
   Vel::Ptr< Vel::Clock > clock, Vel::U32 tickMsecs, Vel::U32 initialMaxTicks, bool preserveOrder,
   Vel::U32 defaultBucketSize )
   : clock_( std::move( clock ) ),
     tickMsecs_( tickMsecs ),
     initialMaxTicks_( initialMaxTicks ),
     preserveOrder_( preserveOrder ),
     defaultBucketSize_( defaultBucketSize ) {
   Vel::validPtr( clock_ );
   VEL_ASSERT( tickMsecs > 0, "tickMsecs > 0" );
   ticksPerSecond_ = 1000.0 / tickMsecs;
   if ( tickMsecs % 1000 == 0 )
      tickSeconds_ = tickMsecs / 1000;
   slots_ = std::bit_ceil( std::clamp( initialMaxTicks, minSlots, maxSlots ) );
   slotBits_ = static_cast< unsigned >( std::countr_zero( slots_ ) );
   const std::size_t levels = ( tickBits - slotBits_ ) / upperBits + 1;
   const std::size_t allSlots = slots_ + levels * upperSlots;
   heads_ = std::make_unique< TimerLink[] >( allSlots );
   for ( std::size_t slot = 0; slot < allSlots; ++slot )
      heads_[slot] = { &heads_[slot], &heads_[slot] };
   occupied_ = std::make_unique< Vel::U64[] >( allSlots / 64 );
   overdue_ = { &overdue_, &overdue_ };
   base_ = tickAtOrBefore( clock_->currentTime() );
   clock_->drivenIs( *this, Vel::Clock::Phase::timers );
}

TimerWheel::~TimerWheel() { clock_->drivenDel( *this ); }

double TimerWheel::dueTime() const {
   if ( !empty( overdue_ ) )
      return secondsOf( static_cast< const Timer * >( overdue_.next )->tick_ );
   const Tick tick = dueTick();
   return tick == noTick ? Timer::never : secondsOf( tick );
}

void TimerWheel::run( double currentTime ) {
   const Tick limit = tickAtOrBefore( currentTime );
   if ( limit <= base_ && empty( overdue_ ) )
      return;
   // A handler may drop the last other pointer to the wheel.
   const Vel::Ptr< const TimerWheel > self( this );
   takeDue( limit );
   while ( !empty( overdue_ ) ) {
      Timer & timer = static_cast< Timer & >( *overdue_.next );
      unlink( timer );
      timer.timeMin_ = Timer::never;
      timer.onTime();
   }
}

/// Moves all timers up to the limit to the end of the overdue ones. From then on whatever is armed is later than
/// the limit, which is why nobody fires twice in a turn.
void TimerWheel::takeDue( Tick limit ) {
   for ( Tick tick = dueTick(); tick <= limit; tick = dueTick() ) {
      moveTo( tick );
      TimerLink & head = heads_[tick & ( slots_ - 1 )];
      head.next->previous = overdue_.previous;
      overdue_.previous->next = head.next;
      head.previous->next = &overdue_;
      overdue_.previous = head.previous;
      head = { &head, &head };
      dueStale_ = true;
   }
   if ( limit > base_ )
      moveTo( limit );
}

/// Lets ticks go by. There is no timer between the old base and the new one, though there may be one at it.
void TimerWheel::moveTo( Tick tick ) {
   const Tick difference = tick ^ base_;
   base_ = tick;
   if ( difference < slots_ )
      return;
   const unsigned top =
      ( static_cast< unsigned >( std::bit_width( difference ) ) - 1 - slotBits_ ) / upperBits;
   for ( unsigned level = top + 1; level-- > 0; )
      spread( slots_ + level * upperSlots + ( tick >> ( slotBits_ + level * upperBits ) ) % upperSlots );
}

/// The timers of this bucket go to nearer ones, in their order.
void TimerWheel::spread( std::size_t slot ) {
   TimerLink & head = heads_[slot];
   TimerLink * link = head.next;
   head = { &head, &head };
   while ( link != &head ) {
      Timer & timer = static_cast< Timer & >( *link );
      link = link->next;
      place( timer );
   }
}

TimerWheel::Tick TimerWheel::tickAtOrBefore( double seconds ) const {
   if ( !( seconds > 0 ) )
      return 0;
   Tick tick = static_cast< Tick >( std::min( seconds, timeLimit ) * ticksPerSecond_ ) + 1;
   while ( secondsOf( tick ) > seconds )
      --tick;
   return tick;
}

std::size_t TimerWheel::upperSlotOf( Tick tick, Tick difference ) const {
   const unsigned level =
      ( static_cast< unsigned >( std::bit_width( difference ) ) - 1 - slotBits_ ) / upperBits;
   return slots_ + level * upperSlots + ( tick >> ( slotBits_ + level * upperBits ) ) % upperSlots;
}

TimerWheel::Tick TimerWheel::dueTick() const {
   if ( dueStale_ ) {
      due_ = findDueTick();
      dueStale_ = false;
   }
   return due_;
}

TimerWheel::Tick TimerWheel::findDueTick() const {
   if ( const std::size_t slot = nextOccupied( ( base_ & ( slots_ - 1 ) ) + 1, slots_ ); slot != slots_ )
      return static_cast< const Timer * >( heads_[slot].next )->tick_;
   for ( unsigned shift = slotBits_, first = slots_; shift < tickBits;
         shift += upperBits, first += upperSlots ) {
      const std::size_t end = first + upperSlots;
      const std::size_t slot = nextOccupied( first + ( base_ >> shift ) % upperSlots + 1, end );
      if ( slot == end )
         continue;
      Tick tick = noTick;
      for ( const TimerLink * link = heads_[slot].next; link != &heads_[slot]; link = link->next )
         tick = std::min( tick, static_cast< const Timer * >( link )->tick_ );
      return tick;
   }
   return noTick;
}

/// The first bucket in [slot, end) with a timer, else `end`, which begins a word. A bucket that was emptied by
/// cancelling is noted as empty only here, so that cancelling need not know its bucket.
std::size_t TimerWheel::nextOccupied( std::size_t slot, std::size_t end ) const {
   while ( slot < end ) {
      const Vel::U64 word = occupied_[slot / 64] >> slot % 64;
      if ( word == 0 ) {
         slot = ( slot / 64 + 1 ) * 64;
         continue;
      }
      slot += static_cast< std::size_t >( std::countr_zero( word ) );
      if ( !empty( heads_[slot] ) )
         return slot;
      occupied_[slot / 64] &= ~( Vel::U64( 1 ) << slot % 64 );
   }
   return end;
}

} // namespace Cog
