#include "Agent/Events/HookEvents.h"

#include <nlohmann/json.hpp>

#include <utility>

namespace Agent {

namespace {

const char * const agentName = "maintd";

} // namespace

void HookEvents::failed( const HookFailure & failure ) {
   Hook & hook = hooks_[failure.hook];
   const Vel::U32 before = hook.failure ? hook.failure->count : 0;
   hook.failure = failure;
   hook.failure->count += before;
}

void HookEvents::look( double now ) {
   for ( auto & [name, hook] : hooks_ ) {
      if ( hook.failure && now >= hook.failureDamper.notBefore() ) {
         hook.failureDamper.told( now );
         const HookFailure failure = *std::exchange( hook.failure, std::nullopt );
         std::string text = "hook " + name + " has failed for " + failure.moment + ": " + failure.error;
         if ( failure.count > 1 )
            text += "; it is the last of " + std::to_string( failure.count ) + " failures";
         writer_.write(
            { EventType::agent, agentName, "hook-failed", failure.units, text },
            { { "hook", name },
              { "moment", failure.moment },
              { "event", failure.event },
              { "error", failure.error },
              { "count", failure.count } } );
      }
      if ( hook.missed != 0 && now >= hook.missedDamper.notBefore() ) {
         hook.missedDamper.told( now );
         const Vel::U64 count = std::exchange( hook.missed, 0 );
         writer_.write(
            { EventType::agent,
              agentName,
              "hook-missed",
              {},
              "hook " + name + " has missed " + std::to_string( count ) +
                 " events, which had left the log before it came to them" },
            { { "hook", name }, { "count", count } } );
      }
   }
}

} // namespace Agent
