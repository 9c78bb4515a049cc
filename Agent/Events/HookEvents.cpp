#include "Agent/Events/HookEvents.h"

#include <nlohmann/json.hpp>

#include <iterator>
#include <set>
#include <sstream>

namespace Agent {

namespace {

const char * const agentName = "maintd";

} // namespace

void HookEvents::failed( const HookFailure & failure ) {
   UntoldHook & hook = *told_->hookIs( failure.hook );
   hook.failuresIs( hook.failures() + failure.count );
   hook.momentIs( failure.moment );
   hook.eventIs( failure.event );
   std::string units;
   for ( const std::string & unit : failure.units )
      units += ( units.empty() ? "" : " " ) + unit;
   hook.unitsIs( units );
   hook.errorIs( failure.error );
}

void HookEvents::missed( const std::string & hook, Vel::U64 count ) {
   UntoldHook & untold = *told_->hookIs( hook );
   untold.missedIs( untold.missed() + count );
}

void HookEvents::look( double now ) {
   for ( const auto & [key, hook] : told_->hookRange() ) {
      const Vel::String name = key;
      Dampers & dampers = dampers_[name];
      if ( hook->failures() != 0 && now >= dampers.failure.notBefore() ) {
         dampers.failure.told( now );
         tellFailures( *hook );
         hook->failuresIs( 0 );
      }
      if ( hook->missed() != 0 && now >= dampers.missed.notBefore() ) {
         dampers.missed.told( now );
         tellMissed( *hook );
         hook->missedIs( 0 );
      }
      if ( hook->failures() == 0 && hook->missed() == 0 )
         told_->hookDel( name );
   }
}

void HookEvents::tellFailures( const UntoldHook & hook ) {
   std::string text = "hook " + hook.name() + " has failed for " + hook.moment() + ": " + hook.error();
   if ( hook.failures() > 1 )
      text += "; it is the last of " + std::to_string( hook.failures() ) + " failures";
   std::istringstream units( hook.units() );
   writer_.write(
      { EventType::agent, agentName, "hook-failed",
        std::set< std::string >( std::istream_iterator< std::string >( units ), {} ), text },
      { { "hook", hook.name() },
        { "moment", hook.moment() },
        { "event", hook.event() },
        { "error", hook.error() },
        { "count", hook.failures() } } );
}

void HookEvents::tellMissed( const UntoldHook & hook ) {
   writer_.write(
      { EventType::agent,
        agentName,
        "hook-missed",
        {},
        "hook " + hook.name() + " has missed " + std::to_string( hook.missed() ) +
           " events, which had left the log before it came to them" },
      { { "hook", hook.name() }, { "count", hook.missed() } } );
}

} // namespace Agent
