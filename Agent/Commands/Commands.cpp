#include "Agent/Commands/Commands.h"

#include "Agent/Commands/Protocol.h"

#include <algorithm>

namespace Agent {

using Maintenance::Unit::UnitState;

Commands::Commands(
   Vel::Ptr< Cog::Scheduler > scheduler, Vel::Ptr< Cog::TimerWheel > wheel, Children & children, Model model,
   Hooks hooks )
   : scheduler_( std::move( scheduler ) ),
     children_( children ),
     model_( std::move( model ) ),
     hooks_( std::move( hooks ) ),
     self_( std::make_shared< Commands * >( this ) ) {
   enterProgress_.is( model_.enter.progressDir, this ).hasNotificationActiveIs( true );
   exitProgress_.is( model_.exit.progressDir, this ).hasNotificationActiveIs( true );
   enterCompletion_.is( model_.enter.completionStatus, this ).hasNotificationActiveIs( true );
   exitCompletion_.is( model_.exit.completionStatus, this ).hasNotificationActiveIs( true );
   unitReactor_.is( model_.unitStatusDir, this ).hasNotificationActiveIs( true );
   wakeup_.is( wheel, this ).hasNotificationActiveIs( true );
   for ( const Class * of : { &model_.enter, &model_.exit } )
      for ( const auto & [instanceName, progress] : of->progressDir->progressRange() )
         handleProgress( of->progressDir.get(), instanceName );
}

Commands::~Commands() {
   *self_ = nullptr;
   children_.forget( *this );
}

// ---- what is configured

void Commands::configurationIs( const std::map< std::string, Config::CommandStage > & stages ) {
   configured_.clear();
   for ( const auto & [name, stage] : stages )
      configured_[name] = {
         stage.enter.text(), stage.exit.text(), stage.timeout.seconds(),
         stage.onFailure == Config::OnFailure::continueOn };
}

std::optional< Api::Error > Commands::check( const Vel::String & stage ) const {
   if ( configured_.count( stage ) )
      return std::nullopt;
   return Api::Error{ Api::ErrorCode::unavailable, "stage " + stage + " is not in the configuration", stage };
}

void Commands::unitEnters( const Vel::String & unitName, const std::vector< Vel::String > & stages ) {
   model_.unitCommandsDir->unitDel( unitName );
   for ( const Vel::String & stage : stages )
      if ( const auto configured = configured_.find( stage ); configured != configured_.end() )
         commandIs( unitName, stage ).definitionIs( configured->second );
}

/// That of the configuration, or else the one that the unit has entered with.
std::optional< CommandDefinition > Commands::definitionOf( const StageCommand & command ) const {
   if ( const auto configured = configured_.find( command.stage() ); configured != configured_.end() )
      return configured->second;
   return command.definition() == CommandDefinition() ? std::nullopt : std::optional( command.definition() );
}

const StageCommand * Commands::commandOf( const Vel::String & unitName, const Vel::String & stage ) const {
   const UnitCommands * const unit = model_.unitCommandsDir->unit( unitName );
   return unit ? unit->stage( stage ) : nullptr;
}

Maintenance::Unit::StageMgrInstKey Commands::instanceKey( const Vel::String & instanceName ) {
   Maintenance::Unit::StageMgrInstKey key;
   key.instanceNameIs( instanceName );
   return key;
}

StageCommand & Commands::commandIs( const Vel::String & unitName, const Vel::String & stage ) {
   return *model_.unitCommandsDir->unitIs( unitName )->stageIs( stage );
}

// ---- turns

void Commands::handleProgress( const Stage::ProgressDir * dir, const Vel::Name & instanceName ) {
   if ( const Stage::Progress * const progress = dir->progress( instanceName ) )
      progress_[instanceName]
         .is( Vel::Ptr< const Stage::Progress >( progress ), this )
         .hasNotificationActiveIs( true );
   else
      progress_.erase( instanceName );
   runSoon();
}

void Commands::runSoon() {
   if ( runPosted_ )
      return;
   runPosted_ = true;
   scheduler_->post( [self = self_] {
      if ( Commands * const commands = *self ) {
         commands->runPosted_ = false;
         commands->run();
      }
   } );
}

void Commands::endRemnants() {
   for ( const auto & [unitName, unit] : model_.unitCommandsDir->unitRange() )
      for ( const auto & [stage, command] : unit->stageRange() ) {
         if ( command->process().pid == 0 )
            continue;
         Job & job = jobs_[unitName];
         job.phase = Job::Phase::remnants;
         job.stage = stage;
         job.instanceName = command->instanceName();
         remnantsEnd( unitName );
      }
}

void Commands::resume() {
   resumed_ = true;
   runSoon();
}

void Commands::run() {
   if ( !resumed_ )
      return;
   retiredEnd();
   waitingDel();
   for ( const bool enter : { true, false } ) {
      runClass( stageClass( enter ), enter );
      completionsDel( stageClass( enter ) );
   }
   leftOversDel();
   wakeupIs();
}

void Commands::runClass( const Class & stageClass, bool enter ) {
   std::vector< std::pair< Vel::String, Vel::String > > stages;
   for ( const auto & [instanceName, progress] : stageClass.progressDir->progressRange() )
      stages.emplace_back( instanceName, progress->stage() );
   for ( const auto & [instanceName, stage] : stages ) {
      const Stage::AgentStatus & done = *stageClass.agentStatus;
      if (
         !stage.empty() && stage != Config::drainwatchStage &&
         !done.complete( { done.name(), stage, instanceName } ) )
         carryOut( instanceKey( instanceName ).unitName(), instanceName, stage, enter );
   }
}

// ---- time

/// An agent whose store has failed for a while lets effects out all the same. These would be lies.
void Commands::whenDurable( std::function< void() > effect ) {
   scheduler_->effectIs( [self = self_, effect = std::move( effect )] {
      Commands * const commands = *self;
      if ( !commands )
         return;
      if ( commands->hooks_.durable() )
         return effect();
      commands->undurable_.push_back( effect );
      commands->undurableDue_ = commands->now() + againAfter;
      commands->wakeupIs();
   } );
}

void Commands::wakeupIs() {
   double next = std::min( waitingDue_, undurable_.empty() ? Cog::Timer::never : undurableDue_ );
   for ( const auto & [unitName, job] : jobs_ )
      next = std::min( next, job.due );
   wakeup_->timeMinIs( next );
}

void Commands::handleDue() {
   for ( auto & [unitName, job] : jobs_ )
      if ( job.due <= now() )
         handleDue( job, unitName );
   if ( waitingDue_ <= now() ) {
      waitingDue_ = Cog::Timer::never;
      runSoon();
   }
   if ( undurableDue_ <= now() )
      for ( auto & effect : std::exchange( undurable_, {} ) )
         whenDurable( std::move( effect ) );
   wakeupIs();
}

// ---- what is not needed any more

/// An instance that is gone is finished with.
void Commands::completionsDel( const Class & stageClass ) const {
   for ( const auto & [key, complete] : stageClass.agentStatus->completeRange() )
      if ( !stageClass.completionStatus->status( key.instanceName ) )
         stageClass.agentStatus->completeDel( Stage::AgentStatusKey( key ) );
}

void Commands::leftOversDel() {
   for ( const auto & [unitName, unit] : model_.unitCommandsDir->unitRange() ) {
      const auto * const status = model_.unitStatusDir->status( unitName );
      if ( !status && !busy( unitName ) )
         model_.unitCommandsDir->unitDel( Vel::String( unitName ) );
      else if ( status && status->state() == UnitState::normal )
         for ( const auto & [stage, command] : unit->stageRange() ) {
            if ( !failedOnTheWayBack( *status, *command ) )
               command->recordedIs( "" );
            command->definitionIs( {} );
         }
   }
}

} // namespace Agent
