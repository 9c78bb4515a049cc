#include "Agent/Commands/Commands.h"

#include "Agent/Commands/Protocol.h"
#include "Platform/Vel/Trace.h"

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstring>

namespace Agent {

using Maintenance::Unit::StageMgrInstKey;
using Maintenance::Unit::UnitState;

namespace {

Vel::TraceFacility trace( "Commands" );

StageMgrInstKey keyOf( const Vel::String & instanceName ) {
   StageMgrInstKey key;
   key.instanceNameIs( instanceName );
   return key;
}

Vel::String endingText( const Children::Ending & ending, const Vel::String & lastError ) {
   Vel::String text;
   if ( !ending.known )
      text = "has ended in a way that is not known";
   else if ( ending.signal != 0 ) {
      const char * const name = sigabbrev_np( ending.signal );
      text = Vel::text( "was ended by signal ", ending.signal, name ? Vel::text( " (SIG", name, ")" ) : "" );
   } else if ( ending.status != 0 )
      text = Vel::text( "ended with ", ending.status );
   else
      return "";
   return lastError.empty() ? text : text + ": " + lastError;
}

} // namespace

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
         carryOut( keyOf( instanceName ).unitName(), instanceName, stage, enter );
   }
}

void Commands::carryOut(
   const Vel::String & unitName, const Vel::String & instanceName, const Vel::String & stage, bool enter ) {
   if ( busy( unitName ) )
      return;
   StageCommand & command = commandIs( unitName, stage );
   if ( command.instanceName() == instanceName && command.state() == CommandState::failed )
      // What has failed and is not complete takes the unit back, be it after a restart.
      hooks_.goBack( unitName, "stage " + stage + " failed: " + command.failure() );
   else
      begin( unitName, command, instanceName, enter );
}

void Commands::begin(
   const Vel::String & unitName, StageCommand & command, const Vel::String & instanceName, bool enter ) {
   const auto definition = definitionOf( command );
   if ( definition && !( enter ? definition->enter : definition->exit ).empty() )
      return start( unitName, command, instanceName, enter, *definition );
   beganIs( unitName, command, instanceName, enter, definition.value_or( CommandDefinition() ) );
   conclude( unitName, command, enter, definition ? "" : "is not in the configuration" );
}

void Commands::beganIs(
   const Vel::String & unitName, StageCommand & command, const Vel::String & instanceName, bool enter,
   const CommandDefinition & definition ) {
   waiting_.erase( unitName );
   command.instanceNameIs( instanceName );
   command.commandIs( enter ? definition.enter : definition.exit );
   command.limitIs( definition.timeout );
   command.goesOnIs( definition.goesOn );
   command.failureIs( "" );
   command.sinceIs( now() );
   command.stateIs( CommandState::running );
}

void Commands::start(
   const Vel::String & unitName, StageCommand & command, const Vel::String & instanceName, bool enter,
   const CommandDefinition & definition ) {
   // Those of the other way are not waited for: commands that a failing store holds must not hold up the way back.
   const auto ofThisWay = [enter]( const auto & job ) { return job.second.enter == enter; };
   if ( std::count_if( jobs_.begin(), jobs_.end(), ofThisWay ) >= mostAtOnce ) {
      waits( unitName, command, instanceName, Vel::text( "one of ", mostAtOnce, " commands to end" ), 0 );
      return;
   }
   const bool rerun = command.instanceName() == instanceName && command.state() == CommandState::running;
   const UnitRun * const run = model_.unitRunDir->unitRun( unitName );
   CommandInput input;
   input.unit = unitName;
   input.generation = keyOf( instanceName ).genId();
   input.enter = enter;
   input.stage = command.stage();
   input.reason = run ? run->reason() : "";
   input.by = run ? run->by() : "";
   input.interfaces = hooks_.interfaces( unitName );
   input.recorded = command.recorded();
   input.rerun = rerun;
   const auto parsed = Config::Command::parse( enter ? definition.enter : definition.exit );
   const Children::Id id = ++lastId_;
   const Children::Held held = children_.hold(
      id,
      { parsed.value.value_or( Config::Command() ).words(), commandEnvironment( input ), inputText( input ) },
      *this );
   if (
      held.scarce &&
      waits( unitName, command, instanceName, "the system: " + held.problem, definition.timeout ) )
      return;
   beganIs( unitName, command, instanceName, enter, definition );
   if ( !held.problem.empty() )
      return conclude( unitName, command, enter, "cannot be started: " + held.problem );
   log(
      unitName, command.stage(),
      ( rerun ? "runs again: " : "runs: " ) + printableLine( command.command() ) + ", for at most " +
         std::to_string( command.limit() ) + " s" );
   command.processIs( held.process );
   Job & job = jobs_[unitName];
   job.id = id;
   job.stage = command.stage();
   job.instanceName = command.instanceName();
   job.enter = enter;
   job.due = Cog::Timer::never;
   const auto begins = [this, id, limit = command.limit()] {
      children_.go( id );
      if ( const auto begun = jobOf( id );
           begun != jobs_.end() && begun->second.phase == Job::Phase::running ) {
         begun->second.began = now();
         begun->second.due = now() + limit;
         wakeupIs();
      }
   };
   // The way back does not wait for a disk.
   if ( enter )
      whenDurable( begins );
   else
      scheduler_->effectIs( [self = self_, begins] {
         if ( *self )
            begins();
      } );
}

// ---- commands that cannot begin yet

/// Nothing of the command changes while it waits: it has not begun, or only under an earlier agent.
/// \param want   what there is none of
/// \param limit  seconds that it waits for the same; 0: without end
/// \return whether it waits on
bool Commands::waits(
   const Vel::String & unitName, const StageCommand & command, const Vel::String & instanceName,
   const Vel::String & want, double limit ) {
   Waiting & waiting = waiting_[unitName];
   if ( waiting.instanceName != instanceName || waiting.stage != command.stage() )
      waiting = { instanceName, command.stage(), "", std::nullopt };
   if ( limit == 0 )
      waiting.since.reset();
   else if ( !waiting.since )
      waiting.since = now();
   else if ( now() - *waiting.since >= limit )
      return false;
   if ( std::exchange( waiting.reason, want ) != want )
      log( unitName, command.stage(), "waits for " + want );
   waitingDue_ = now() + againAfter;
   return true;
}

/// Those of runs that have been given up.
void Commands::waitingDel() {
   std::erase_if( waiting_, [this]( const auto & waiting ) {
      return !model_.enter.progressDir->progress( waiting.second.instanceName ) &&
             !model_.exit.progressDir->progress( waiting.second.instanceName );
   } );
}

// ---- the end of a command

void Commands::end( Job & job, const Vel::String & problem ) {
   if ( job.phase != Job::Phase::running )
      return;
   job.phase = Job::Phase::ending;
   job.problem = problem;
   job.due = now() + endPatience;
   scheduler_->effectIs( [self = self_, id = job.id] {
      if ( *self )
         ( *self )->children_.terminate( id );
   } );
   wakeupIs();
}

/// Commands of runs that have been given up.
void Commands::retiredEnd() {
   for ( auto & [unitName, job] : jobs_ )
      if ( job.phase == Job::Phase::running && !listed( job ) ) {
         log( unitName, job.stage, "is ended: the unit goes back" );
         end( job, "" );
      }
}

void Commands::childEnded( Children::Id id, const Children::Ending & ending ) {
   const auto at = jobOf( id );
   if ( at == jobs_.end() )
      return;
   const Vel::String unitName = at->first;
   Job & job = at->second;
   job.output.end( [&]( const std::string & line, bool cut ) { takeOutput( unitName, job, line, cut ); } );
   job.errors.end( [&]( const std::string & line, bool cut ) { takeError( unitName, job, line, cut ); } );
   const Vel::String failure = job.problem.empty() ? endingText( ending, job.lastError ) : job.problem;
   const bool enter = job.enter;
   conclude( unitName, commandIs( unitName, job.stage ), enter, failure );
}

/// \param failure  why it has failed; empty: it has not
void Commands::conclude(
   const Vel::String & unitName, StageCommand & command, bool enter, const Vel::String & failure ) {
   VEL_TRACE( trace, 4, unitName, " ", command.stage(), " ", command.instanceName(), " failure: ", failure );
   const bool ran = jobs_.erase( unitName ) != 0;
   const double seconds = now() - command.since();
   command.processIs( {} );
   command.sinceIs( now() );
   if ( !stageClass( enter ).progressDir->progress( command.instanceName() ) ) {
      command.stateIs( CommandState::ended );
      log( unitName, command.stage(), "has ended" );
   } else if ( failure.empty() ) {
      command.stateIs( CommandState::complete );
      if ( ran )
         log( unitName, command.stage(), Vel::text( "is done after ", std::floor( seconds ), " s" ) );
      completed( command, enter );
   } else {
      command.stateIs( CommandState::failed );
      command.failureIs( failure );
      log( unitName, command.stage(), "failed: " + failure );
      if ( !enter && !command.recorded().empty() )
         log( unitName, command.stage(), "had recorded: " + printableLine( command.recorded() ) );
      if ( !enter || command.goesOn() )
         completed( command, enter );
   }
   hooks_.ended();
   runSoon();
}

void Commands::completed( const StageCommand & command, bool enter ) {
   Stage::AgentStatus & status = *stageClass( enter ).agentStatus;
   status.completeIs( { status.name(), command.stage(), command.instanceName() }, true );
}

bool Commands::listed( const Job & job ) const {
   return stageClass( job.enter ).progressDir->progress( job.instanceName );
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

void Commands::handleDue( Job & job, const Vel::String & unitName ) {
   switch ( job.phase ) {
   case Job::Phase::running: {
      const StageCommand & command = commandIs( unitName, job.stage );
      return end( job, Vel::text( "ran into its limit of ", command.limit(), " s" ) );
   }
   case Job::Phase::ending:
   case Job::Phase::killed:
      // Once more each time: nothing else can be done about a process that does not end.
      job.phase = Job::Phase::killed;
      job.due = now() + endPatience;
      scheduler_->effectIs( [self = self_, id = job.id] {
         if ( *self )
            ( *self )->children_.kill( id );
      } );
      return;
   case Job::Phase::remnants:
      return remnantsEnd( unitName );
   }
}

/// Nothing else begins for the unit before nothing is left of what an earlier agent has started.
void Commands::remnantsEnd( const Vel::String & unitName ) {
   jobs_.at( unitName ).due = Cog::Timer::never;
   scheduler_->effectIs( [self = self_, unitName] {
      Commands * const commands = *self;
      const auto at = commands ? commands->jobs_.find( unitName ) : Jobs::iterator();
      if ( !commands || at == commands->jobs_.end() )
         return;
      const StageCommand & command = commands->commandIs( unitName, at->second.stage );
      CommandInput input;
      input.unit = unitName;
      input.generation = keyOf( command.instanceName() ).genId();
      input.stage = command.stage();
      const bool left =
         commands->children_.remnantsEnd( command.process(), commandEnvironment( input ).front() );
      commands->scheduler_->post( [self, unitName, left] {
         if ( *self )
            ( *self )->handleRemnants( unitName, left );
      } );
   } );
}

void Commands::handleRemnants( const Vel::String & unitName, bool left ) {
   const auto at = jobs_.find( unitName );
   if ( at == jobs_.end() || at->second.phase != Job::Phase::remnants )
      return;
   if ( left ) {
      at->second.due = now() + againAfter;
      return wakeupIs();
   }
   commandIs( unitName, at->second.stage ).processIs( {} );
   jobs_.erase( at );
   hooks_.ended();
   runSoon();
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
            command->recordedIs( "" );
            command->definitionIs( {} );
         }
   }
}

} // namespace Agent
