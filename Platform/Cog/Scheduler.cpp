#include "Platform/Cog/Scheduler.h"

#include <algorithm>
#include <limits>

namespace Cog {

namespace {
constexpr double never = std::numeric_limits< double >::infinity();
}

/// Marks the turn as going on; at its end, however it ends, those that have left are taken off the lists.
class Scheduler::InTurn {
 public:
   explicit InTurn( Scheduler & scheduler ) : scheduler_( scheduler ) {
      VEL_ASSERT( !scheduler.inTurn_, "!inTurn()" );
      scheduler.inTurn_ = true;
   }
   ~InTurn() {
      for ( Entries * entries : { &scheduler_.timers_, &scheduler_.tasks_ } )
         std::erase_if( *entries, []( const Entry & entry ) { return !entry.driven; } );
      scheduler_.inTurn_ = false;
   }
   InTurn( const InTurn & ) = delete;
   InTurn & operator=( const InTurn & ) = delete;

 private:
   Scheduler & scheduler_;
};

Scheduler::Scheduler( Vel::Ptr< TimeSource > time ) : time_( std::move( time ) ) {
   now_ = Vel::validPtr( time_ )->now();
}

double Scheduler::liveTime() const { return std::max( now_, time_->now() ); }

void Scheduler::drivenIs( Driven & driven, Phase phase ) {
   ( phase == Phase::timers ? timers_ : tasks_ ).push_back( { &driven, false } );
}

void Scheduler::drivenDel( Driven & driven ) {
   for ( Entries * entries : { &timers_, &tasks_ } ) {
      const auto at = std::find_if(
         entries->begin(), entries->end(), [&]( const Entry & entry ) { return entry.driven == &driven; } );
      if ( at == entries->end() )
         continue;
      if ( inTurn_ )
         at->driven = nullptr;
      else
         entries->erase( at );
      return;
   }
   VEL_ASSERT( false, "the driven object is registered" );
}

double Scheduler::dueTime() const {
   if ( !posted_.empty() || ( !effects_.empty() && !effectsHeld_ ) )
      return 0;
   const double timersDue = firstDue( timers_ );
   const double due = std::min( firstDue( tasks_ ), effectsHeld_ ? retryTime_ : never );
   return std::min( due, timersHeld_ ? std::max( timersDue, retryTime_ ) : timersDue );
}

double Scheduler::firstDue( const Entries & entries ) {
   double due = never;
   for ( const Entry & entry : entries )
      if ( entry.driven )
         due = std::min( due, entry.driven->dueTime() );
   return due;
}

void Scheduler::turn() {
   const InTurn guard( *this );
   ++turns_;
   const std::size_t postedBefore = posted_.size();
   readTime();
   bringIn();
   runPosted( postedBefore );
   runTimers();
   runTasks();
   effectsHeld_ = !commit();
   if ( !effectsHeld_ )
      letEffectsOut();
   if ( timersHeld_ || effectsHeld_ )
      retryTime_ = now_ + retryAfter;
}

void Scheduler::readTime() {
   const double live = liveTime();
   const double due = firstDue( timers_ );
   now_ = std::max( now_, due <= live && live - due <= maxLateness ? due : live );
}

void Scheduler::runPosted( std::size_t count ) {
   for ( std::size_t left = count; left > 0; --left ) {
      const Task task = std::move( posted_.front() );
      posted_.pop_front();
      task();
   }
}

/// Timers are told of each turn, also when none is due: that is how ticks go by.
void Scheduler::runTimers() {
   timersHeld_ = firstDue( timers_ ) <= now_ && timersMayRun_ && !timersMayRun_();
   if ( timersHeld_ )
      return;
   const std::size_t count = timers_.size();
   for ( std::size_t i = 0; i < count; ++i )
      if ( Driven * const driven = timers_[i].driven )
         driven->run( now_ );
}

void Scheduler::runTasks() {
   if ( beforeTasks_ && firstDue( tasks_ ) <= now_ )
      beforeTasks_();
   const std::size_t count = tasks_.size();
   for ( std::size_t i = 0; i < count; ++i )
      tasks_[i].due = tasks_[i].driven && tasks_[i].driven->dueTime() <= now_;
   for ( std::size_t i = 0; i < count; ++i ) {
      // One that ran before may have taken this one's request back, or destroyed it.
      Driven * const driven = tasks_[i].driven;
      if ( tasks_[i].due && driven && driven->dueTime() <= now_ )
         driven->run( now_ );
   }
}

bool Scheduler::commit() {
   return std::all_of( commits_.begin(), commits_.end(), []( const auto & hook ) { return hook(); } );
}

void Scheduler::letEffectsOut() {
   for ( std::size_t left = effects_.size(); left > 0; --left ) {
      const Task effect = std::move( effects_.front() );
      effects_.pop_front();
      effect();
   }
}

} // namespace Cog
