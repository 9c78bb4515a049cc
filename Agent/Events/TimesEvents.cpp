#include "Agent/Events/TimesEvents.h"

#include "Api/Values.h"

#include <nlohmann/json.hpp>

#include <cmath>

namespace Agent {

using Maintenance::Unit::UnitState;
using nlohmann::json;

namespace {

/// What was asked for, so that a boot, which gives the same time another number, is no change.
Vel::String deadlineKey( const UnitTimes * times ) {
   if ( !times || times->deadline() == 0 )
      return "";
   return Vel::text( times->deadlineAfter(), times->restore() ? " restore " : " keep ", times->doubt() );
}

Vel::String revertKey( const UnitTimes * times ) {
   return times && times->revertAt() > 0 ? Vel::text( times->revertAfter(), " ", times->doubt() ) : "";
}

const char * onOverrun( const UnitTimes & times ) { return times.restore() ? "restore" : "keep"; }

EventWriter::About
about( const std::string & unit, const char * what, std::string text, bool wrong = false ) {
   return { EventType::unit, unit, what, { unit }, std::move( text ), wrong };
}

} // namespace

std::string TimesEvents::wallTime( double time ) const {
   return Api::timeText( hooks_.wallTime() - hooks_.now() + time );
}

void TimesEvents::look() {
   for ( const auto & [unit, told] : model_.told->unitRange() )
      lookAt( *told );
}

void TimesEvents::lookAt( ToldUnit & told ) {
   const Vel::String & unit = told.name();
   const auto * const status = model_.unitStatusDir->status( unit );
   const UnitState state = status ? status->state() : UnitState::none;
   const UnitTimes * const times = model_.unitTimesDir->unit( unit );
   const Vel::String deadline = deadlineKey( times ), revert = revertKey( times );
   // That a deadline was met, and that all of it is over with the maintenance, the states tell.
   const bool enters = state == UnitState::enterInProgress;
   const bool changed = ( enters && deadline != told.deadline() ) ||
                        ( ( enters || state == UnitState::maintenance ) && revert != told.revert() );
   told.deadlineIs( deadline );
   told.revertIs( revert );
   if ( changed )
      tellTimes( unit, times );
   const bool overrun = times && times->overrun() > 0;
   if ( overrun && !told.overrun() )
      tellOverrun( *times );
   told.overrunIs( overrun );
}

void TimesEvents::tellTimes( const Vel::String & unit, const UnitTimes * times ) {
   const bool limited = times && times->deadline() > 0, reverts = times && times->revertAt() > 0;
   std::string text;
   if ( limited )
      text = " is to be under maintenance by " + wallTime( times->deadline() ) +
             ( times->restore() ? " or else goes back" : "" );
   if ( reverts )
      text += ( limited ? ", and goes back at " : " goes back at " ) + wallTime( times->revertAt() );
   if ( text.empty() )
      text = " has no times set any more";
   else if ( !times->doubt().empty() )
      text += "; wall time was " + times->doubt() +
              " when the machine started, and the time for which it was off is not counted";
   writer_.write(
      about( unit, "times", unit + text ),
      { { "deadline", limited ? json( wallTime( times->deadline() ) ) : json( nullptr ) },
        { "on-overrun", limited ? json( onOverrun( *times ) ) : json( nullptr ) },
        { "revert-at", reverts ? json( wallTime( times->revertAt() ) ) : json( nullptr ) },
        { "doubt", times && !times->doubt().empty() ? json( times->doubt() ) : json( nullptr ) } } );
}

void TimesEvents::tellOverrun( const UnitTimes & times ) {
   const Vel::String & unit = times.unitName();
   const auto * const status = model_.unitStatusDir->status( unit );
   writer_.write(
      about(
         unit, "overrun",
         unit + " is not under maintenance within " + Api::spanText( times.deadlineAfter() ) +
            ( times.restore() ? ", and goes back" : ", and goes on" ),
         true ),
      { { "deadline", wallTime( times.deadline() ) },
        { "on-overrun", onOverrun( times ) },
        { "generation", status ? status->genId() : 0 } } );
}

} // namespace Agent
