#include "MaintenancePlugin/MaintStageHelperSm.h"

#include "MaintenancePlugin/DrainWatchSm.h"
#include "MaintenancePlugin/PluginTrace.h"

namespace MaintenanceMode {

namespace {
Vel::TraceFacility trace( "MaintStageHelperSm" );
}

MaintStageHelperSm::MaintStageHelperSm(
   const Vel::String & stageClass, const Vel::Ptr< const Stage::ProgressDir > & progressDir,
   const Vel::Ptr< const Stage::CompletionStatusDir > & maintStageCompletionStatus,
   const Vel::Ptr< Stage::AgentConfig > & agentConfig, const Vel::Ptr< Stage::AgentStatus > & agentStatus,
   DrainWatchSm * root )
   : stageClass_( stageClass ),
     progressDir_( progressDir ),
     maintStageCompletionStatus_( maintStageCompletionStatus ),
     agentConfig_( agentConfig ),
     agentStatus_( agentStatus ),
     root_( root ) {
   if ( progressDir_ ) {
      progressDirReactor_.is( progressDir_, this );
      for ( const auto & [instanceName, record] : progressDir_->progressRange() )
         progressIs( instanceName, record );
   }
   if ( maintStageCompletionStatus_ )
      completionReactor_.is( maintStageCompletionStatus_, this );
}

MaintStageHelperSm::~MaintStageHelperSm() = default;

void MaintStageHelperSm::hasNotificationActiveIs( bool active ) {
   progressDirReactor_.hasNotificationActiveIs( active );
   completionReactor_.hasNotificationActiveIs( active );
}

void MaintStageHelperSm::handleInitialized() {
   TRACE( 9, "called" );
   if ( !agentStatus() )
      return;
   for ( const auto & [key, complete] : agentStatus()->completeRange() )
      if ( !completionStatus( key.instanceName ) )
         agentStatus()->completeDel( key );
}

/// Null: the framework has finished with the instance, or never had it.
const Vel::U32 * MaintStageHelperSm::completionStatus( const Vel::Name & instanceName ) const {
   return maintStageCompletionStatus() ? maintStageCompletionStatus()->status( instanceName ) : nullptr;
}

void MaintStageHelperSm::handleProgress( const Vel::Name & instanceName ) {
   if ( const Stage::Progress * record = progressDir()->progress( instanceName ) )
      progressIs( record->name(), record );
   else
      progressDel( instanceName );
}

void MaintStageHelperSm::VelProgress::handleStage( const Vel::String & stage ) {
   TRACE( 9, " stageClass= ", sm()->stageClass(), ", stage=", stage );
   // What stood before the root was ready is taken up by its own initialisation.
   if ( !sm()->root()->initialized() )
      return;
   if ( stage != stageName )
      return;
   sm()->root()->doStageForInstance( sm()->stageClass(), stage, entity()->name() );
}

void MaintStageHelperSm::handleMaintInstStatusDel( const Vel::Name & instanceName ) {
   TRACE_SIGNATURE( 9, " instanceName: ", instanceName );
   if ( completionStatus( instanceName ) ) {
      TRACE( 9, "InstanceName: ", instanceName, " is added to InstStatus" );
      return;
   }
   setStageEventComplete( agentStatus(), stageName, instanceName, true );
}

void MaintStageHelperSm::doStageCompleteForInstance(
   const Vel::String & stage, const Vel::Name & instanceName ) {
   TRACE( 9, " stageClass=", stageClass(), ", stage=", stage, ", instanceName=", instanceName );
   setStageEventComplete( agentStatus(), stage, instanceName, false );
}

void setStageEventComplete(
   const Vel::Ptr< Stage::AgentStatus > & agentStatus, const Vel::String & stage,
   const Vel::Name & instanceName, bool del ) {
   const Vel::Name agentStatusName = agentStatus ? agentStatus->name() : "null";
   TRACE_FASTLOG(
      9, " agentStatus=", agentStatusName, " stage=", stage, " instanceName=", instanceName, " del=", del );
   if ( !agentStatus )
      return;
   const Stage::AgentStatusKey key{ agentStatusName, stage, instanceName };
   if ( del )
      agentStatus->completeDel( key );
   else
      agentStatus->completeIs( key, true );
}

} // namespace MaintenanceMode
