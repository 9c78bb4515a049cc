#pragma once

#include "Platform/Model/Wire.h"
#include "Platform/Vel/Declare.h"

/// Purpose: what the last events have told of each unit, interface and profile, so that exactly the differences are told,
/// also of what has changed while no agent ran; and what is left to tell later. Kept and committed with the log. Written by Events only.
namespace Agent {

class ToldUnit final : public Vel::Entity {
   VEL_ENTITY( ToldUnit );
   explicit ToldUnit( const Vel::String & name ) : name_( name ) {}
   VEL_PARAM( Vel::String, name );
   VEL_ATTR( Vel::String, state, onState );
   VEL_ATTR( Vel::U32, generation, onGeneration );
   VEL_ATTR( Vel::String, stage, onStage ); ///< that is running; empty: none
   VEL_ATTR( bool, settling, onSettling );
   VEL_ATTR( bool, violated, onViolated );
   VEL_ATTR( Vel::String, deadline, onDeadline ); ///< as it was asked for; empty: there was none
   VEL_ATTR( Vel::String, revert, onRevert );     ///< the same of when it goes back
   VEL_ATTR( bool, overrun, onOverrun );
   /// When the command of a stage failed, seconds of the agent's clock, by stage.
   VEL_MAP( Vel::String, double, failed, onFailed );
};

class ToldInterface final : public Vel::Entity {
   VEL_ENTITY( ToldInterface );
   explicit ToldInterface( const Wire::IntfId & intfId ) : intfId_( intfId ) {}
   VEL_PARAM( Wire::IntfId, intfId );
   VEL_ATTR( Vel::String, units, onUnits ); ///< separated by blanks
   VEL_ATTR( Vel::String, profile, onProfile );
   VEL_ATTR( Vel::String, link, onLink );     ///< "up", "down", "gone"; empty: nothing is known yet
   VEL_ATTR( Vel::String, state, onState );   ///< of its record; empty: there is none
   VEL_ATTR( Vel::String, reason, onReason ); ///< empty: there is none
   VEL_ATTR( bool, shut, onShut );
   VEL_ATTR( Vel::String, drift, onDrift );
   VEL_ATTR( bool, spike, onSpike );
};

class ToldProfile final : public Vel::Entity {
   VEL_ENTITY( ToldProfile );
   explicit ToldProfile( const Vel::String & name ) : name_( name ) {}
   VEL_PARAM( Vel::String, name );
   VEL_ATTR( Vel::String, contents, onContents ); ///< in words
};

/// What has yet to be told of a hook that fails again and again. There while there is such.
class UntoldHook final : public Vel::Entity {
   VEL_ENTITY( UntoldHook );
   explicit UntoldHook( const Vel::String & name ) : name_( name ) {}
   VEL_PARAM( Vel::String, name );
   VEL_ATTR( Vel::U32, failures, onFailures );
   VEL_ATTR( Vel::U64, missed, onMissed ); ///< events
   // Of the last failure.
   VEL_ATTR( Vel::String, moment, onMoment );
   VEL_ATTR( Vel::U64, event, onEvent );
   VEL_ATTR( Vel::String, units, onUnits ); ///< separated by blanks
   VEL_ATTR( Vel::String, error, onError );
};

class EventsTold final : public Vel::Entity {
   VEL_ENTITY( EventsTold );
   VEL_CHILDREN( Vel::String, ToldUnit, unit, onUnit );
   VEL_CHILDREN( Wire::IntfId, ToldInterface, interface, onInterface );
   VEL_CHILDREN( Vel::String, ToldProfile, profile, onProfile );
   VEL_CHILDREN( Vel::String, UntoldHook, hook, onHook, Ordered );
   VEL_ATTR( Vel::String, defaultProfile, onDefaultProfile );
   VEL_MAP(
      Vel::String, Vel::String, problem, onProblem ); ///< what is wrong with the agent: its text by its word
};

} // namespace Agent
