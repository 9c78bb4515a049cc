#pragma once

#include "Agent/Model/StageCommand.h"

#include <set>
#include <string>

/// Purpose: how far each hook has come in the log of events, and how it has fared. Kept across restarts: a call is known
/// here before it is made, and so is its end with all that follows of it.
namespace Agent {

/// One hook. Written by HookRunner only.
class HookRecord final : public Vel::Entity {
   VEL_ENTITY( HookRecord );
   explicit HookRecord( const Vel::String & name ) : name_( name ) {}
   VEL_PARAM( Vel::String, name );
   /// All events up to this one are dealt with.
   VEL_ATTR( Vel::U64, done, onDone );
   /// The event that it is being called for; 0: none.
   VEL_ATTR( Vel::U64, running, onRunning );
   VEL_ATTR( Vel::U32, starts, onStarts ); ///< of the call for it, by all agents together
   /// What has yet to end before it may be called again, and how it is told from other processes.
   VEL_ATTR( ProcessId, process, onProcess );
   VEL_ATTR( Vel::String, mark, onMark );
   // Since it was configured.
   VEL_ATTR( Vel::U64, runs, onRuns ); ///< that have come to their end
   VEL_ATTR( Vel::U64, failures, onFailures );
   VEL_ATTR( Vel::U64, missed, onMissed );         ///< events that had left the log before it came to them
   VEL_ATTR( Vel::String, failure, onFailure );    ///< of the last run; empty: it has not failed
   VEL_ATTR( double, failedSince, onFailedSince ); ///< seconds of the agent's clock
};

class HookDir final : public Vel::Entity {
   VEL_ENTITY( HookDir );
   VEL_CHILDREN( Vel::String, HookRecord, hook, onHook, Ordered );
};

/// What is told of a hook that has failed.
struct HookFailure {
   std::string hook, moment;
   Vel::U64 event = 0; ///< that it was called for
   std::set< std::string > units;
   std::string error;
   Vel::U32 count = 1; ///< failures that are told together; this is the last of them
};

} // namespace Agent
