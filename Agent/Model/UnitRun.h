#pragma once

#include "Platform/Vel/Declare.h"

/// Purpose: what the operator wants of a unit and how far the stages are. Kept across restarts.
namespace Agent {

enum class Wanted : Vel::U32 { normal = 0, maintenance = 1 };
/// "normal", "maintenance".
inline Vel::String stringValue( Wanted wanted ) {
   return wanted == Wanted::normal ? "normal" : "maintenance";
}

/// One unit. Written by Stages only.
class UnitRun final : public Vel::Entity {
   VEL_ENTITY( UnitRun );
   explicit UnitRun( const Vel::String & unitName ) : unitName_( unitName ) {}
   VEL_PARAM( Vel::String, unitName );
   VEL_ATTR( Wanted, wanted, onWanted );
   VEL_ATTR( Vel::String, reason, onReason );    ///< why, in the operator's words
   VEL_ATTR( Vel::String, by, onBy );            ///< who asked
   VEL_ATTR( Vel::U32, operation, onOperation ); ///< that has brought it here; 0: unknown
   VEL_ATTR( Vel::String, with, onWith ); ///< what who asked has noted down with it: pairs, see Operation.h
   /// What spoke against the last enter and was forced, a line each; empty: nothing did.
   VEL_ATTR( Vel::String, overridden, onOverridden );
   VEL_ATTR( double, since, onSince );         ///< seconds of the agent's clock, of the present state
   VEL_ATTR( double, askedTime, onAskedTime ); ///< seconds, when the present operation was asked for
   VEL_ATTR( double, deadline, onDeadline ); ///< seconds, when it was expected to be over; 0: nobody has said
   /// Stages of the present run, in order, separated by blanks: a configuration change does not alter a run.
   VEL_ATTR( Vel::String, stages, onStages );
   /// The way back of the present maintenance, written as `stages` is. Fixed when it is entered, so that a change of the
   /// configuration does not leave something behind that was done on the way in. Empty: a run of an earlier version.
   VEL_ATTR( Vel::String, exitStages, onExitStages );
   /// Those of `stages` that the run passes over, written as they are: the enter never came to them.
   VEL_ATTR( Vel::String, skippedStages, onSkippedStages );
   /// When a stage of the present run began and ended, seconds of the agent's clock.
   VEL_MAP( Vel::String, double, stageStart, onStageStart );
   VEL_MAP( Vel::String, double, stageEnd, onStageEnd );
};

class UnitRunDir final : public Vel::Entity {
   VEL_ENTITY( UnitRunDir );
   VEL_CHILDREN( Vel::String, UnitRun, unitRun, onUnitRun );
};

} // namespace Agent
