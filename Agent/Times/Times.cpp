#include "Agent/Times/Times.h"

#include "Config/Duration.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace Agent {

using Maintenance::Unit::UnitState;

namespace {

/// Seconds by which a time may move before it counts as another one.
constexpr double still = 0.001;
/// Seconds by which wall time may run ahead of the clock, or behind it, before it counts as set.
constexpr double steady = 1;

bool isUnderWay( UnitState state ) {
   return state == UnitState::enterInProgress || state == UnitState::maintenance;
}

/// "1h30m"
Vel::String text( double seconds ) {
   return Config::Duration::fromSeconds( static_cast< std::uint32_t >( std::lround( seconds ) ) ).text();
}

Vel::String asAsked( const Vel::String & by ) { return by.empty() ? "" : ", as " + by + " has asked"; }

} // namespace

Times::Times(
   Vel::Ptr< Cog::Scheduler > scheduler, const Vel::Ptr< Cog::TimerWheel > & wheel, Model model, Hooks hooks )
   : scheduler_( std::move( scheduler ) ),
     model_( std::move( model ) ),
     hooks_( std::move( hooks ) ),
     self_( std::make_shared< Times * >( this ) ) {
   unitDir_.is( model_.unitStatusDir, this ).hasNotificationActiveIs( true );
   for ( const auto & [unitName, status] : model_.unitStatusDir->statusRange() )
      handleUnit( unitName );
   wakeup_.is( wheel, this ).hasNotificationActiveIs( true );
}

Times::~Times() { *self_ = nullptr; }

// ---- what is asked for

bool Times::ask( const Vel::String & unitName, const AskedTimes & asked, const Vel::String & by ) {
   const bool enters = state( unitName ) == UnitState::enterInProgress;
   if ( !isUnderWay( state( unitName ) ) )
      return false;
   const auto sets = []( const std::optional< double > & time ) { return time && std::isfinite( *time ); };
   UnitTimes * times = model_.timesDir->unit( unitName );
   if ( !times && !( enters && sets( asked.deadline ) ) && !sets( asked.revertAfter ) )
      return false;
   if ( !times )
      times = model_.timesDir->unitIs( unitName );
   bool changed = enters && deadlineIs( *times, asked, by );
   changed |= revertIs( *times, asked, by );
   if ( changed )
      times->doubtIs( "" );
   if ( restores( *times ) )
      exitSoon( unitName );
   if ( times->deadline() == 0 && times->revertAt() == 0 )
      model_.timesDir->unitDel( unitName );
   note();
   wakeUp();
   return changed;
}

bool Times::deadlineIs( UnitTimes & times, const AskedTimes & asked, const Vel::String & by ) {
   if ( !asked.deadline )
      return false;
   const double after = std::isfinite( *asked.deadline ) ? *asked.deadline : 0;
   const bool restore = after > 0 && asked.restore;
   if ( times.deadlineAfter() == after && times.restore() == restore )
      return false;
   if ( times.deadlineAfter() != after ) {
      times.deadlineAfterIs( after );
      times.deadlineIs( after > 0 ? now() + after : 0 );
      times.overrunIs( 0 );
   }
   times.restoreIs( restore );
   times.deadlineByIs( after > 0 ? by : "" );
   return true;
}

bool Times::revertIs( UnitTimes & times, const AskedTimes & asked, const Vel::String & by ) {
   if ( !asked.revertAfter )
      return false;
   const double after = std::isfinite( *asked.revertAfter ) ? *asked.revertAfter : 0;
   if ( times.revertAfter() == after )
      return false;
   times.revertAfterIs( after );
   times.revertAtIs( after > 0 ? now() + after : 0 );
   times.revertByIs( after > 0 ? by : "" );
   return true;
}

// ---- units

UnitState Times::state( const Vel::String & unitName ) const {
   const auto * const status = model_.unitStatusDir->status( unitName );
   return status ? status->state() : UnitState::none;
}

void Times::handleUnit( const Vel::String & unitName ) {
   units_.erase( unitName );
   if ( const auto * const status = model_.unitStatusDir->status( unitName ) )
      units_[unitName]
         .is( Vel::Ptr< const Maintenance::Unit::Status >( status ), this )
         .hasNotificationActiveIs( true );
   handleState( unitName );
}

void Times::handleState( const Vel::String & unitName ) {
   UnitTimes * const times = model_.timesDir->unit( unitName );
   if ( !times )
      return;
   const UnitState state = this->state( unitName );
   // What was met in time is of no interest any more; what was not is, for as long as the maintenance.
   if ( state == UnitState::maintenance && times->overrun() == 0 ) {
      times->deadlineAfterIs( 0 );
      times->deadlineIs( 0 );
      times->restoreIs( false );
      times->deadlineByIs( "" );
   }
   if ( !isUnderWay( state ) || ( times->deadline() == 0 && times->revertAt() == 0 ) )
      model_.timesDir->unitDel( Vel::String( unitName ) );
}

// ---- what is due

bool Times::restores( const UnitTimes & times ) const {
   return times.overrun() > 0 && times.restore() && state( times.unitName() ) == UnitState::enterInProgress;
}

bool Times::reverts( const UnitTimes & times ) const {
   return times.revertAt() > 0 && now() >= times.revertAt() && isUnderWay( state( times.unitName() ) );
}

bool Times::isLate( const UnitTimes & times ) const {
   return times.deadline() > 0 && times.overrun() == 0 && now() >= times.deadline() &&
          state( times.unitName() ) == UnitState::enterInProgress;
}

void Times::handleDue() {
   if ( now() < started_ + patience )
      return wakeUp();
   for ( const auto & [unitName, times] : model_.timesDir->unitRange() )
      handleDue( *times );
   if ( model_.timesDir->units() > 0 ) {
      const Moment moment = hooks_.moment();
      const UnitTimesDir & noted = *model_.timesDir;
      const double set = moment.wall - moment.clock - ( noted.wallTime() - noted.clockTime() );
      if ( std::abs( set ) > steady || moment.clock - noted.clockTime() >= notePeriod )
         note();
   }
   wakeUp();
}

void Times::handleDue( UnitTimes & times ) {
   if ( isLate( times ) )
      times.overrunIs( now() );
   if ( restores( times ) || reverts( times ) )
      exitSoon( times.unitName() );
}

void Times::exitSoon( const Vel::String & unitName ) {
   scheduler_->post( [self = self_, unitName] {
      if ( Times * const times = *self )
         times->exit( unitName );
   } );
}

void Times::exit( const Vel::String & unitName ) {
   const UnitTimes * const times = model_.timesDir->unit( unitName );
   if ( times && ( restores( *times ) || reverts( *times ) ) )
      hooks_.exit( unitName, reason( *times ), !reverts( *times ) );
}

Vel::String Times::reason( const UnitTimes & times ) const {
   const Vel::String away = "; no agent ran when that was over";
   if ( reverts( times ) )
      return "reverts after " + text( times.revertAfter() ) + asAsked( times.revertBy() ) +
             ( times.revertAt() < started_ ? away : "" );
   return "not under maintenance within " + text( times.deadlineAfter() ) + ", and restores then" +
          asAsked( times.deadlineBy() ) + ( times.deadline() < started_ ? away : "" );
}

void Times::wakeUp() {
   double next = Cog::Timer::never;
   const auto at = [&]( double time ) {
      if ( time > now() )
         next = std::min( next, time );
   };
   for ( const auto & [unitName, times] : model_.timesDir->unitRange() ) {
      at( now() + lookPeriod );
      at( started_ + patience );
      at( times->deadline() );
      at( times->revertAt() );
   }
   wakeup_->timeMinIs( next );
}

// ---- restarts and boots

void Times::start() {
   started_ = now();
   carryOver();
   std::vector< Vel::String > kept;
   for ( const auto & [unitName, times] : model_.timesDir->unitRange() )
      kept.push_back( unitName );
   for ( const Vel::String & unitName : kept )
      handleState( unitName );
   note();
   wakeUp();
}

void Times::carryOver() {
   UnitTimesDir & dir = *model_.timesDir;
   if ( dir.boot().empty() || dir.units() == 0 )
      return;
   const Moment moment = hooks_.moment();
   const Passed passed =
      Agent::passed( { dir.boot(), dir.sinceBoot(), dir.clockTime(), dir.wallTime() }, moment );
   const double shift = moment.clock - dir.clockTime() - passed.seconds;
   const auto shifted = [shift]( double time ) { return time > 0 ? time + shift : 0; };
   if ( std::abs( shift ) >= still )
      for ( const auto & [unitName, times] : dir.unitRange() ) {
         times->deadlineIs( shifted( times->deadline() ) );
         times->overrunIs( shifted( times->overrun() ) );
         times->revertAtIs( shifted( times->revertAt() ) );
      }
   if ( passed.doubt == Doubt::none )
      return;
   const Vel::String doubt = stringValue( passed.doubt );
   for ( const auto & [unitName, times] : dir.unitRange() )
      times->doubtIs( doubt );
   hooks_.say(
      "wall time is " + doubt +
      ", so nobody can tell for how long the machine was off; times of maintenances go on as if it had not "
      "been" );
}

void Times::note() {
   UnitTimesDir & dir = *model_.timesDir;
   if ( dir.units() == 0 )
      return dir.bootIs( "" );
   const Moment moment = hooks_.moment();
   dir.bootIs( moment.boot );
   dir.sinceBootIs( moment.sinceBoot );
   dir.clockTimeIs( moment.clock );
   dir.wallTimeIs( moment.wall );
}

void Times::stopped() { note(); }

} // namespace Agent
