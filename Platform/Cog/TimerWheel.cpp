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

inline double TimerWheel::secondsOf( Tick tick ) const {
   // Signed, because that is what the machine converts in one step.
   return static_cast< double >( static_cast< std::int64_t >( tick * tickMsecs_ ) ) / 1000.0;
}

inline TimerWheel::Tick TimerWheel::tickAtOrAfter( double seconds ) const {
   if ( !( seconds > 0 ) )
      return 0;
   Tick tick = static_cast< Tick >( static_cast< std::int64_t >( seconds * ticksPerSecond_ ) );
   // The product may have been rounded down to the tick before.
   while ( secondsOf( tick ) < seconds )
      ++tick;
   return tick;
}

inline TimerWheel::Tick TimerWheel::tickAtOrBefore( double seconds ) const {
   if ( !( seconds > 0 ) )
      return 0;
   Tick tick = static_cast< Tick >( std::min( seconds, timeLimit ) * ticksPerSecond_ ) + 1;
   while ( secondsOf( tick ) > seconds )
      --tick;
   return tick;
}

/// By the highest digit in which the tick differs from the base. As time goes on a tick keeps its bucket until the
/// base agrees with it in that digit too; that is when moveTo() spreads the bucket.
inline std::size_t TimerWheel::slotOf( Tick tick ) const {
   const Tick difference = tick ^ base_;
   if ( difference <= slotMask_ )
      return tick & slotMask_;
   const unsigned level =
      ( static_cast< unsigned >( std::bit_width( difference ) ) - 1 - slotBits_ ) / upperBits;
   return slotMask_ + 1 + level * upperSlots + ( tick >> ( slotBits_ + level * upperBits ) ) % upperSlots;
}

Timer::Timer( Vel::Ptr< const TimerWheel > wheel ) : wheel_( std::move( Vel::validPtr( wheel ) ) ) {}

Timer::~Timer() { hasNotificationActiveIs( false ); }

/// Neither a time whose place is remembered nor infinity, or switched off.
void Timer::timeMinIsOther( double absoluteSeconds ) {
   VEL_ASSERT( absoluteSeconds == absoluteSeconds, "!std::isnan( absoluteSeconds )" );
   if ( next ) {
      wheel_->cancel( *this );
      standAlone();
   }
   timeMin_ = absoluteSeconds;
   if ( next )
      wheel_->arm( *this );
}

void Timer::hasNotificationActiveIs( bool active ) {
   if ( active == hasNotificationActive() )
      return;
   if ( active ) {
      standAlone();
      wheel_->arm( *this );
   } else {
      wheel_->cancel( *this );
      next = nullptr;
   }
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
   const std::size_t slots = std::bit_ceil( std::clamp( initialMaxTicks, minSlots, maxSlots ) );
   slotMask_ = slots - 1;
   slotBits_ = static_cast< unsigned >( std::countr_zero( slots ) );
   const std::size_t levels = ( tickBits - slotBits_ ) / upperBits + 1;
   const std::size_t allSlots = slots + levels * upperSlots;
   heads_ = std::make_unique< TimerLink[] >( allSlots );
   for ( std::size_t slot = 0; slot < allSlots; ++slot )
      heads_[slot] = { &heads_[slot], &heads_[slot] };
   occupied_ = std::make_unique< Vel::U64[] >( allSlots / 64 );
   overdue_ = { &overdue_, &overdue_ };
   const double now = clock_->currentTime();
   base_ = tickAtOrBefore( now );
   const Vel::U64 step =
      std::bit_cast< Vel::U64 >( now + tickMsecs / 1000.0 ) - std::bit_cast< Vel::U64 >( now );
   placeShift_ = static_cast< unsigned >( std::bit_width( step | 1 ) ) - 1;
   clock_->drivenIs( *this, Vel::Clock::Phase::timers );
}

TimerWheel::~TimerWheel() { clock_->drivenDel( *this ); }

double TimerWheel::dueTime() const {
   if ( !empty( overdue_ ) )
      return secondsOf( base_ );
   dueTick();
   return dueSeconds_;
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
      timer.standAlone();
      timer.timeMin_ = Timer::never;
      timer.onTime();
   }
}

/// Moves all timers up to the limit to the end of the overdue ones. From then on whatever is armed is later than
/// the limit, which is why nobody fires twice in a turn.
void TimerWheel::takeDue( Tick limit ) {
   for ( Tick tick = dueTick(); tick <= limit; tick = dueTick() ) {
      moveTo( tick );
      TimerLink & head = heads_[tick & slotMask_];
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

/// Lets ticks go by. There is no timer between the old base and the new one, though there may be one at it. The only
/// timers that get nearer are those that share a bucket with the new base.
void TimerWheel::moveTo( Tick tick ) {
   const std::size_t slot = slotOf( tick );
   base_ = tick;
   placesDel();
   if ( slot > slotMask_ )
      spread( slot );
}

/// The timers of this bucket go to nearer ones, in their order.
void TimerWheel::spread( std::size_t slot ) {
   TimerLink & head = heads_[slot];
   TimerLink * link = head.next;
   head = { &head, &head };
   while ( link != &head ) {
      Timer & timer = static_cast< Timer & >( *link );
      link = link->next;
      const std::size_t nearer = slotOf( std::max( tickAtOrAfter( timer.timeMin_ ), base_ ) );
      occupied_[nearer / 64] |= Vel::U64( 1 ) << nearer % 64;
      linkBefore( heads_[nearer], timer );
   }
}

void TimerWheel::arm( Timer & timer ) const {
   if ( !( timer.timeMin_ < timeLimit ) )
      return;
   const Vel::U64 bits = std::bit_cast< Vel::U64 >( timer.timeMin_ );
   Place & place = placeOf( bits );
   if ( place.timeBits != bits )
      find( timer.timeMin_, place );
   linkBefore( *place.head, timer );
}

/// Finds the place of a time for which a timer is about to be armed, and notes that there will be one.
void TimerWheel::find( double seconds, Place & place ) const {
   const Tick tick = std::max( tickAtOrAfter( seconds ), base_ + 1 );
   if ( tick <= due_ )
      dueTickIs( tick );
   const std::size_t slot = slotOf( tick );
   occupied_[slot / 64] |= Vel::U64( 1 ) << slot % 64;
   place = { std::bit_cast< Vel::U64 >( seconds ), &heads_[slot] };
}

void TimerWheel::placesDel() const {
   for ( Place & place : places_ )
      place = Place();
}

TimerWheel::Tick TimerWheel::dueTick() const {
   if ( dueStale_ ) {
      placesDel();
      dueTickIs( findDueTick() );
   }
   return due_;
}

void TimerWheel::dueTickIs( Tick tick ) const {
   due_ = tick;
   dueSeconds_ = tick == noTick ? Timer::never : secondsOf( tick );
   dueStale_ = false;
}

TimerWheel::Tick TimerWheel::findDueTick() const {
   std::size_t first = slotMask_ + 1;
   if ( const std::size_t slot = nextOccupied( ( base_ & slotMask_ ) + 1, first ); slot != first )
      return ( base_ & ~Tick( slotMask_ ) ) | slot;
   for ( unsigned shift = slotBits_; shift < tickBits; shift += upperBits, first += upperSlots ) {
      const std::size_t end = first + upperSlots;
      const std::size_t slot = nextOccupied( first + ( base_ >> shift ) % upperSlots + 1, end );
      if ( slot == end )
         continue;
      Tick tick = noTick;
      for ( const TimerLink * link = heads_[slot].next; link != &heads_[slot]; link = link->next )
         tick = std::min( tick, tickOf( static_cast< const Timer & >( *link ) ) );
      return tick;
   }
   return noTick;
}

TimerWheel::Tick TimerWheel::tickOf( const Timer & timer ) const {
   return std::max( tickAtOrAfter( timer.timeMin_ ), base_ + 1 );
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
