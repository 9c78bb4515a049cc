#include "Agent/History/TimesRecorder.h"

namespace Agent {

using Maintenance::Unit::UnitState;

namespace {

/// The one of a unit that is not closed, or null.
HistoryRecord * openRecord( HistoryDir & dir, const Vel::String & unit ) {
   for ( const auto & [id, record] : dir.recordRange() )
      if ( record->unitName() == unit && record->ended() == 0 )
         return record.get();
   return nullptr;
}

} // namespace

TimesRecorder::TimesRecorder( Model model ) : model_( std::move( model ) ) {
   dir_.is( model_.unitTimesDir, this ).hasNotificationActiveIs( true );
   for ( const auto & [unit, times] : model_.unitTimesDir->unitRange() )
      handleUnit( unit );
}

void TimesRecorder::handleUnit( const Vel::String & unit ) {
   times_.erase( unit );
   if ( const UnitTimes * const times = model_.unitTimesDir->unit( unit ) )
      times_[unit].is( Vel::Ptr< const UnitTimes >( times ), this ).hasNotificationActiveIs( true );
   take( unit );
}

void TimesRecorder::take( const Vel::String & unit ) {
   HistoryRecord * const record = openRecord( *model_.historyDir, unit );
   const auto * const status = model_.unitStatusDir->status( unit );
   if ( !record || !status )
      return;
   const UnitTimes * const times = model_.unitTimesDir->unit( unit );
   const bool enters = status->state() == UnitState::enterInProgress;
   const bool hasDeadline = times && times->deadline() > 0;
   // What is not set any more was taken away; but not what has served its purpose, nor that it was too late.
   if ( hasDeadline || ( enters && record->overrun() == 0 ) ) {
      record->deadlineIs( times ? times->deadline() : 0 );
      record->restoreIs( times && times->restore() );
      record->overrunIs( times ? times->overrun() : 0 );
   }
   if ( enters || status->state() == UnitState::maintenance )
      record->revertAtIs( times ? times->revertAt() : 0 );
}

} // namespace Agent
