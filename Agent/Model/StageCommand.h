#pragma once

#include "Platform/Vel/Declare.h"

/// Purpose: what commands that carry out stages have been started for, what they have recorded, and how to find them
/// again. Kept across restarts: a process is known here before its command begins, and a record before the command is
/// told that it is safe.
namespace Agent {

/// How far the command of a stage is. Ordinals are part of the stored form.
enum class CommandState : Vel::U32 {
   none = 0,     ///< nothing was started since the unit entered
   running = 1,  ///< it was started, and its end is not known
   complete = 2, ///< done, or there was nothing to do
   failed = 3,
   ended = 4 ///< it was ended because the unit goes back
};
inline Vel::String stringValue( CommandState state ) {
   const char * const texts[] = { "none", "running", "complete", "failed", "ended" };
   const auto ordinal = static_cast< Vel::U32 >( state );
   return ordinal < std::size( texts ) ? texts[ordinal] : Vel::text( "CommandState(", ordinal, ")" );
}

/// A stage as the configuration defines it.
struct CommandDefinition {
   Vel::String enter, exit; ///< lines of Config::Command; empty: nothing to do
   Vel::U32 timeout = 0;    ///< seconds
   bool goesOn = false;     ///< on enter, a failure does not take the unit back

   friend bool operator==( const CommandDefinition &, const CommandDefinition & ) = default;
};
inline Vel::String stringValue( const CommandDefinition & definition ) {
   return Vel::text(
      "enter ", definition.enter, ", exit ", definition.exit, ", timeout ", definition.timeout,
      " s, on failure ", definition.goesOn ? "continue" : "abort" );
}

/// A process as another agent can find it again.
struct ProcessId {
   Vel::U32 pid = 0;       ///< 0: none
   Vel::U64 startTime = 0; ///< in the kernel's ticks since boot
   Vel::String home;       ///< the boot and the process namespace in which the number is good

   friend bool operator==( const ProcessId &, const ProcessId & ) = default;
};
inline Vel::String stringValue( const ProcessId & process ) {
   return process.pid == 0 ? "none" : Vel::text( process.pid, " since ", process.startTime );
}

} // namespace Agent

template <>
struct Vel::Codec< Agent::CommandDefinition > {
   static constexpr bool stored = true;
   static void write( ByteWriter & w, const Agent::CommandDefinition & v ) {
      Codec< String >::write( w, v.enter );
      Codec< String >::write( w, v.exit );
      Codec< U32 >::write( w, v.timeout );
      Codec< bool >::write( w, v.goesOn );
   }
   static void read( ByteReader & r, Agent::CommandDefinition & v ) {
      Codec< String >::read( r, v.enter );
      Codec< String >::read( r, v.exit );
      Codec< U32 >::read( r, v.timeout );
      Codec< bool >::read( r, v.goesOn );
   }
};

template <>
struct Vel::Codec< Agent::ProcessId > {
   static constexpr bool stored = true;
   static void write( ByteWriter & w, const Agent::ProcessId & v ) {
      Codec< U32 >::write( w, v.pid );
      Codec< U64 >::write( w, v.startTime );
      Codec< String >::write( w, v.home );
   }
   static void read( ByteReader & r, Agent::ProcessId & v ) {
      Codec< U32 >::read( r, v.pid );
      Codec< U64 >::read( r, v.startTime );
      Codec< String >::read( r, v.home );
   }
};

namespace Agent {

/// One stage of one unit. Written by Commands only.
class StageCommand final : public Vel::Entity {
   VEL_ENTITY( StageCommand );
   explicit StageCommand( const Vel::String & stage ) : stage_( stage ) {}
   VEL_PARAM( Vel::String, stage );
   /// As it was when the unit entered, for a way back whose stage has gone from the configuration.
   VEL_ATTR( CommandDefinition, definition, onDefinition );
   /// The object that the command has given last, as JSON text; empty: none. Commands.h says how long.
   VEL_ATTR( Vel::String, recorded, onRecorded );
   // What was started last.
   VEL_ATTR( Vel::String, instanceName, onInstanceName ); ///< the run that it was started for
   VEL_ATTR( CommandState, state, onState );
   VEL_ATTR( double, since, onSince );          ///< seconds of the agent's clock, of the state
   VEL_ATTR( Vel::String, command, onCommand ); ///< its line; empty: there was nothing to do
   VEL_ATTR( Vel::U32, limit, onLimit );        ///< seconds
   VEL_ATTR( bool, goesOn, onGoesOn );          ///< a failure does not take the unit back
   VEL_ATTR( Vel::String, failure, onFailure ); ///< why it has failed, for the operator
   VEL_ATTR( ProcessId, process, onProcess );   ///< while it is running
};

/// The command stages of one unit, since it entered last.
class UnitCommands final : public Vel::Entity {
   VEL_ENTITY( UnitCommands );
   explicit UnitCommands( const Vel::String & unitName ) : unitName_( unitName ) {}
   VEL_PARAM( Vel::String, unitName );
   VEL_CHILDREN( Vel::String, StageCommand, stage, onStage );
};

class UnitCommandsDir final : public Vel::Entity {
   VEL_ENTITY( UnitCommandsDir );
   VEL_CHILDREN( Vel::String, UnitCommands, unit, onUnit );
};

} // namespace Agent
