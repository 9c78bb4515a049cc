#pragma once

#include "Platform/Model/Stage.h"
#include "Platform/Vel/Declare.h"

namespace MaintenanceMode {

class DrainWatchSm;

/// Purpose: speaks the stage protocol of one stage class: tells the root when the stage "drainwatch" starts
/// for an instance, and writes or removes this agent's completion entries. Owner: the root, one for each
/// stage class.
class MaintStageHelperSm final : public Vel::Entity {
   VEL_ENTITY( MaintStageHelperSm );
   MaintStageHelperSm(
      const Vel::String & stageClass, const Vel::Ptr< const Stage::ProgressDir > & progressDir,
      const Vel::Ptr< const Stage::CompletionStatusDir > & maintStageCompletionStatus,
      const Vel::Ptr< Stage::AgentConfig > & agentConfig, const Vel::Ptr< Stage::AgentStatus > & agentStatus,
      DrainWatchSm * root );
   ~MaintStageHelperSm() override;

   /// One for each progress record.
   struct VelProgress final : Vel::ReactorTo< MaintStageHelperSm, Stage::Progress > {
      using ReactorTo::ReactorTo;
      void onStage() override { handleStage( entity()->stage() ); }
      void handleStage( const Vel::String & stage );
   };
   struct VelProgressDir final : Vel::ReactorTo< MaintStageHelperSm, Stage::ProgressDir > {
      using ReactorTo::ReactorTo;
      void onProgress( const Vel::Name & instanceName ) override { sm()->handleProgress( instanceName ); }
   };
   struct VelMaintStageCompletionStatus final
      : Vel::ReactorTo< MaintStageHelperSm, Stage::CompletionStatusDir > {
      using ReactorTo::ReactorTo;
      void onStatus( const Vel::Name & instanceName ) override {
         sm()->handleMaintInstStatusDel( instanceName );
      }
   };

   VEL_PARAM( Vel::String, stageClass );
   VEL_PARAM( Vel::Ptr< const Stage::ProgressDir >, progressDir );
   VEL_PARAM( Vel::Ptr< const Stage::CompletionStatusDir >, maintStageCompletionStatus );
   VEL_PARAM( Vel::Ptr< Stage::AgentConfig >, agentConfig );
   VEL_PARAM( Vel::Ptr< Stage::AgentStatus >, agentStatus );
   VEL_PARAM( DrainWatchSm *, root );
   VEL_REACTORS( Vel::Name, VelProgress, progress );
   VEL_ATTR( bool, initialized, onInitialized );

   /// Concerns the reactors to the two directories; those to the records are on as long as they exist.
   void hasNotificationActiveIs( bool active );
   /// Removes completion entries of instances that are not known any more.
   void handleInitialized();
   void handleProgress( const Vel::Name & instanceName );
   void handleMaintInstStatusDel( const Vel::Name & instanceName );
   /// Called by the root when the stage's work for the instance is done. May be repeated.
   void doStageCompleteForInstance( const Vel::String & stage, const Vel::Name & instanceName );

 private:
   const Vel::U32 * completionStatus( const Vel::Name & instanceName ) const;

   Vel::Watch< VelProgressDir > progressDirReactor_;
   Vel::Watch< VelMaintStageCompletionStatus > completionReactor_;
};

/// Writes (`del` false) or removes this agent's completion entry for a stage of an instance.
void setStageEventComplete(
   const Vel::Ptr< Stage::AgentStatus > & agentStatus, const Vel::String & stage,
   const Vel::Name & instanceName, bool del );

} // namespace MaintenanceMode
