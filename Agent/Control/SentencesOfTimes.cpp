#include "Agent/Control/Sentences.h"
#include "Api/Values.h"

#include <cmath>

namespace Agent {

using Maintenance::Unit::UnitState;

namespace {

/// " in 1h12m"
std::string in( double time, const ControlCommands & commands ) {
   const double left = std::ceil( time - commands.now() );
   return left > 0 ? " in " + Api::spanText( left ) : " now";
}

/// Of a unit that is not there yet.
std::string deadlineText( const UnitTimes & times, const ControlCommands & commands ) {
   if ( times.overrun() > 0 )
      return "too late by " + Api::spanText( commands.now() - times.deadline() );
   return ( times.restore() ? "goes back if it is not there" : "to be there" ) +
          in( times.deadline(), commands );
}

} // namespace

std::string timesText( const UnitFacts & facts, const ControlCommands & commands ) {
   std::string text;
   if ( !facts.times )
      return text;
   if ( facts.times->deadline() > 0 && facts.state == UnitState::enterInProgress )
      text = deadlineText( *facts.times, commands );
   if ( facts.times->revertAt() > 0 )
      text += ( text.empty() ? "" : "; " ) + ( "goes back" + in( facts.times->revertAt(), commands ) );
   return text;
}

} // namespace Agent
