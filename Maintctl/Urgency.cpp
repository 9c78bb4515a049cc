#include "Maintctl/Urgency.h"

#include "Api/Names.h"
#include "Maintctl/Text.h"

#include <map>

namespace Maintctl {

namespace {

/// Nobody watches an interface that has stopped: a unit that is entering waits for it in vain.
Urgency urgencyOfStopped( const Api::Unit * unit ) {
   return unit && unit->state == Api::UnitState::entering ? Urgency::stuck : Urgency::done;
}

bool isQuiet( const Api::Reason & reason ) {
   return reason.rateBps && reason.thresholdBps && *reason.rateBps < *reason.thresholdBps;
}

Urgency urgencyOf( const Api::Reason & reason, const Api::Unit * unit ) {
   static const std::map< std::string, Urgency > known = {
      { "above-threshold", Urgency::busy },
      { "timing", Urgency::quiet },
      { "stalled", Urgency::stuck },
      { "oscillating", Urgency::stuck },
      { "starved", Urgency::stuck },
      { "drained", Urgency::done },
      { "shut", Urgency::done },
      { "spike", Urgency::back } };
   if ( reason.code == "stopped" )
      return urgencyOfStopped( unit );
   if ( reason.unwatchedSince )
      return Urgency::stuck;
   const auto found = known.find( reason.code );
   // A newer agent may have more words; whoever reads them shall see them.
   const Urgency urgency = found == known.end() ? Urgency::busy : found->second;
   // What has stalled is called so for a while when it is over already.
   if ( urgency == Urgency::stuck && reason.etaSeconds )
      return isQuiet( reason ) ? Urgency::quiet : Urgency::busy;
   return urgency;
}

} // namespace

Urgency urgencyOf( const Api::Interface & intf, std::optional< double > threshold, const Api::Unit * unit ) {
   if ( intf.shutProblem )
      return Urgency::stuck;
   if ( intf.reason )
      return urgencyOf( *intf.reason, unit );
   if ( !intf.state || *intf.state == "idle" )
      return Urgency::none;
   if ( intf.spike )
      return Urgency::back;
   if ( *intf.state == "stopped" )
      return urgencyOfStopped( unit );
   if ( *intf.state != "enter-maint" )
      return Urgency::done;
   const auto rate = ratesOf( intf ).busiest();
   return rate && threshold && *rate < *threshold ? Urgency::quiet : Urgency::busy;
}

std::string sentenceOf( const Api::Unit & unit ) {
   if ( !unit.sentence.empty() || unit.state == Api::UnitState::normal )
      return unit.sentence;
   return drainedText( unit.drained, unit.total ) + ( unit.settlingSince ? "; settling" : "" );
}

std::string reasonOf( const Api::Interface & intf, Urgency urgency ) {
   if ( intf.reason )
      return intf.reason->text.empty() ? intf.reason->code : intf.reason->text;
   switch ( urgency ) {
   case Urgency::back:
      return "traffic is back";
   case Urgency::stuck:
      return "stopped";
   case Urgency::busy:
      return "above the threshold";
   case Urgency::quiet:
      return "below the threshold";
   case Urgency::done:
      return intf.shut ? "drained, shut" : intf.state == "stopped" ? "stopped" : "drained";
   case Urgency::none:
      return "not monitored";
   }
   return "";
}

} // namespace Maintctl
