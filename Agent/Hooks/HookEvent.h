#pragma once

#include "Agent/Model/EventLog.h"
#include "Config/Hooks.h"

#include <optional>
#include <set>
#include <string>
#include <vector>

/// Purpose: which events are moments that hooks are called at, and what a hook is told of one.
namespace Agent {

/// An event that is a moment.
struct HookEvent {
   Config::Moment moment;
   EventType type;
   std::string subject; ///< unit or interface; empty: many interfaces
   std::set< std::string > units;
};
/// Nothing if it is none.
std::optional< HookEvent > hookEventOf( const Event & event );

/// Whether a hook is to be called.
bool concerns( const Config::Hook & hook, const HookEvent & event );

/// One call of a hook.
struct HookCall {
   std::string hook;
   Vel::U64 sequence = 0; ///< of the event
   HookEvent event;
   Vel::U32 start = 1; ///< how often it was begun with this one; above 1: earlier ones were cut short
   std::string url;    ///< empty: it is a command
};
/// The event with `hook`, `moment` and `rerun`, one JSON object on one line, with its line feed.
std::string hookInput( const HookCall & call, const Event & event );
/// All of the environment. The first member tells this call from all others.
std::vector< std::string > hookEnvironment( const HookCall & call );

} // namespace Agent
