#include "Tests/Reference/Rules.h"

#include <cmath>
#include <limits>

namespace Reference {

namespace {
constexpr double never = std::numeric_limits< double >::infinity();
/// A turn that is so little late for a tick takes the tick's time.
constexpr double maxLateness = 0.025;
} // namespace

// ---- timers: on ticks of a second, those of one tick in the order in which they were set

double Model::Rules::firstTick() const { return timers_.empty() ? never : std::get< 0 >( *timers_.begin() ); }

void Model::Rules::setTimer( IntfMon & mon, double time ) {
   disarmTimer( mon );
   mon.shown->timer = time;
   mon.timer = { std::ceil( time ), ++timersSet_, mon.intf };
   timers_.insert( mon.timer );
}

void Model::Rules::disarmTimer( IntfMon & mon ) {
   mon.shown->timer.reset();
   timers_.erase( mon.timer );
}

/// Those that are due now; not those that one of these disarms or sets again.
void Model::Rules::fireTimers() {
   std::vector< Timer > due;
   for ( const Timer & timer : timers_ ) {
      if ( std::get< 0 >( timer ) > now_ )
         break;
      due.push_back( timer );
   }
   for ( const Timer & timer : due ) {
      if ( timers_.count( timer ) == 0 )
         continue;
      IntfMon & mon = *intfMons_.find( std::get< Intf >( timer ) );
      disarmTimer( mon );
      handleTimeout( mon );
   }
}

// ---- the loop

void Model::Rules::turn() {
   const double due = firstTick();
   now_ = std::max( now_, due <= live_ && live_ - due <= maxLateness ? due : live_ );
   fireTimers();
   processBacklog();
}

/// Turns now, at each tick at which something is due, and at the end, each with those that it asks for.
void Model::Rules::runTo( double target ) {
   target_ = std::max( target_, target );
   do
      turn();
   while ( waitUntil( published.backlog.empty() ? firstTick() : 0 ) );
}

/// Lets time go on to what is due or to the target. False if both have passed.
bool Model::Rules::waitUntil( double due ) {
   if ( due <= live_ )
      return true;
   if ( due > target_ && live_ >= target_ )
      return false;
   live_ = std::min( due, target_ );
   return true;
}

// ---- the backlog: interfaces whose links, groups or selections have changed

void Model::Rules::addToBacklog( Intf intf ) {
   if ( running_ )
      published.backlog.insert( intf );
}

/// One run. It goes around from the bookmark and pauses when its slice of live time is spent, but not before the first.
void Model::Rules::processBacklog() {
   std::set< Intf > & backlog = published.backlog;
   if ( backlog.empty() )
      return;
   const double deadline = live_ + world_.backlogQuantum;
   bool first = true;
   Intf from = published.bookmark;
   while ( !backlog.empty() ) {
      auto next = backlog.lower_bound( from );
      if ( next == backlog.end() )
         next = backlog.begin();
      const Intf intf = *next;
      if ( !first && live_ >= deadline ) {
         published.bookmark = intf;
         return;
      }
      backlog.erase( next );
      processIntf( intf );
      first = false;
      from = intf;
   }
   published.bookmark = none;
}

/// An interface that is down because it is shut for maintenance counts as up: it goes on being monitored.
void Model::Rules::processIntf( Intf intf ) {
   if ( !isSupported( intf ) ) {
      count( numIntfMonIntfNotSupported );
      return;
   }
   const Entry * const entry = find( inputs_.entries, intf );
   const bool maintIntf = entry && entry->selected && *entry->selected != none;
   const bool * const link = find( inputs_.links, intf );
   const bool intfUp = link && ( *link || published.shut.count( intf ) != 0 );
   live_ += world_.itemCost;
   if ( maintIntf && intfUp ) {
      if ( IntfMon * const mon = intfMons_.find( intf ) )
         handOver( *mon, selectedProfile( intf ) );
      startIntfMonInUnits( intf );
   } else {
      stopIntfMonInUnits( intf );
   }
}

void Model::Rules::startIntfMonInUnits( Intf intf ) {
   count( numStartIntfMonInUnits );
   for ( const Group group : inputs_.entries[intf].groups )
      if ( const Sequence< Unit > * const units = find( inputs_.unitsOfGroup, group ) )
         for ( const Unit unit : *units )
            if ( UnitMon * const unitMon = unitMons_.find( unit ) )
               monitoredAdd( *unitMon, intf );
}

/// Also in units that it does not belong to any more.
void Model::Rules::stopIntfMonInUnits( Intf intf ) {
   count( numStopIntfMonInUnits );
   for ( const Unit unit : unitMons_.keys() )
      monitoredDel( *unitMons_.find( unit ), intf );
}

/// The interface or one of its groups has left the unit.
void Model::Rules::removeIfNoMember( Intf intf, Unit unit ) {
   UnitMon * const unitMon = unitMons_.find( unit );
   if ( unitMon && !inputs_.isMember( intf, unit ) )
      monitoredDel( *unitMon, intf );
}

} // namespace Reference
