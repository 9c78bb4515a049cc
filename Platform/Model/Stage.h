#pragma once

#include "Platform/Vel/Declare.h"

/// Purpose: the protocol between the agent, which drives units through stages, and those who carry the stages
/// out. There is one set of these entities for each stage class. Instances are named as
/// Maintenance::Unit::StageMgrInstKey says. All of it is kept across restarts.
namespace Stage {

/// Values of Progress::stageStatus and CompletionStatusDir::status.
inline constexpr Vel::U32 stageInactive = 0;
inline constexpr Vel::U32 stageRunning = 1;
inline constexpr Vel::U32 stageComplete = 2;

/// How far one instance is. Written by the agent.
class Progress final : public Vel::Entity {
   VEL_ENTITY( Progress );
   explicit Progress( const Vel::Name & name ) : name_( name ) {}

   VEL_PARAM( Vel::Name, name ); ///< the instance
   /// The stage that has begun last. Written after the stage's status and the completion status; empty before
   /// the first stage.
   VEL_ATTR( Vel::String, stage, onStage );
   /// By stage; a stage that is not 0 may be completed.
   VEL_MAP( Vel::String, Vel::U32, stageStatus, onStageStatus );
};

/// The instances that are under way, and only those.
class ProgressDir final : public Vel::Entity {
   VEL_ENTITY( ProgressDir );
   VEL_CHILDREN( Vel::Name, Progress, progress, onProgress );
};

/// By instance, how far it is as a whole. Written by the agent. An instance that is gone is finished with: its
/// completion entries may go.
class CompletionStatusDir final : public Vel::Entity {
   VEL_ENTITY( CompletionStatusDir );
   VEL_MAP( Vel::Name, Vel::U32, status, onStatus );
};

/// One completion entry: who, which stage, which instance.
struct AgentStatusKey {
   Vel::Name agentStatusName;
   Vel::String stage;
   Vel::Name instanceName;

   friend bool operator==( const AgentStatusKey &, const AgentStatusKey & ) = default;
   friend auto operator<=>( const AgentStatusKey &, const AgentStatusKey & ) = default;
};
/// For example "MaintenanceMode/drainwatch/unit1#12".
Vel::String stringValue( const AgentStatusKey & key );

} // namespace Stage

template <>
struct std::hash< Stage::AgentStatusKey > {
   std::size_t operator()( const Stage::AgentStatusKey & key ) const {
      const std::hash< Vel::String > hash;
      return hash( key.instanceName ) + 3 * hash( key.stage ) + 5 * hash( key.agentStatusName );
   }
};

template <>
struct Vel::Codec< Stage::AgentStatusKey > {
   static constexpr bool stored = true;
   static void write( ByteWriter & w, const Stage::AgentStatusKey & key );
   static void read( ByteReader & r, Stage::AgentStatusKey & key );
};

namespace Stage {

/// What one who carries out stages has completed. Written by that one, read by the agent.
class AgentStatus final : public Vel::Entity {
   VEL_ENTITY( AgentStatus );
   explicit AgentStatus( const Vel::Name & name ) : name_( name ) {}

   VEL_PARAM( Vel::Name, name );
   /// True: complete.
   VEL_MAP( AgentStatusKey, bool, complete, onComplete );
};

/// The stages that one who carries out stages announces.
class AgentConfig final : public Vel::Entity {
   VEL_ENTITY( AgentConfig );
   explicit AgentConfig( const Vel::Name & name ) : name_( name ) {}

   VEL_PARAM( Vel::Name, name );
   VEL_SET( Vel::String, stage, onStage );
};

} // namespace Stage
