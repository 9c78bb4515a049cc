#pragma once

#include "Agent/Events/Damper.h"
#include "Platform/Cog/TimerWheel.h"

#include <cmath>
#include <set>
#include <utility>
#include <vector>

/// Purpose: when what is damped may be told, of any number of units or interfaces: as their dampers say, and of the turns
/// of a second only the first few tell of it at once, since every turn that writes an event syncs the disk. What
/// comes later is told together at the next tick.
/// Owner: what tells of them, once a turn: begin(), then mayTell() any number of times, then end().
namespace Agent {

template < class Key >
class Pace {
 public:
   /// Turns of a second that tell at once of what is damped.
   static constexpr unsigned directTurns = 8;

   explicit Pace( Vel::Ptr< Cog::TimerWheel > wheel ) {
      wakeup_.is( std::move( wheel ), this ).hasNotificationActiveIs( true );
   }
   Pace( const Pace & ) = delete;
   Pace & operator=( const Pace & ) = delete;

   /// A turn begins at `now`, seconds of the clock. Those that were held back until now.
   std::vector< Key > begin( double now ) {
      now_ = now;
      if ( std::exchange( second_, std::floor( now ) ) != std::floor( now ) )
         directTurns_ = 0;
      direct_ = false;
      std::vector< Key > due;
      while ( !heldBack_.empty() && heldBack_.begin()->first <= now )
         due.push_back( heldBack_.extract( heldBack_.begin() ).value().second );
      return due;
   }
   /// The changes that may be told now, at least one; they count as told. None if it may not be told yet: then there
   /// will be a turn that begins with the key.
   Vel::U32 mayTell( const Key & key, Damper & damper ) {
      const bool atTick = now_ == std::floor( now_ );
      if ( now_ >= damper.notBefore() && !direct_ && !atTick && directTurns_ >= directTurns )
         damper.waitUntil( std::floor( now_ ) + 1 );
      if ( now_ < damper.notBefore() ) {
         heldBack_.emplace( damper.notBefore(), key );
         return 0;
      }
      direct_ = true;
      const Vel::U32 changes = std::max( damper.changes(), 1u );
      damper.told( now_ );
      // What is held back is told together.
      damper.waitUntil( std::ceil( damper.notBefore() ) );
      return changes;
   }
   void end() {
      directTurns_ += std::exchange( direct_, false );
      wakeup_->timeMinIs( heldBack_.empty() ? Cog::Timer::never : heldBack_.begin()->first );
   }

 private:
   /// Makes a turn in which what was held back is told.
   struct Wakeup final : Cog::TimerReactor< Pace > {
      using Cog::TimerReactor< Pace >::TimerReactor;
      void onTime() override {}
   };

   std::set< std::pair< double, Key > > heldBack_; ///< until when
   double now_ = 0;
   double second_ = 0;        ///< in which turns have told of damped changes
   unsigned directTurns_ = 0; ///< so many
   bool direct_ = false;      ///< this turn is one of them
   Vel::Watch< Wakeup > wakeup_;
};

} // namespace Agent
