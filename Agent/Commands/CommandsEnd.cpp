#include "Agent/Commands/Commands.h"
#include "Agent/Commands/Ending.h"
#include "Agent/Commands/Protocol.h"
#include "Platform/Vel/Trace.h"

#include <cmath>

/// How commands are ended and end, and what becomes of it; what an earlier agent has left of them included.
namespace Agent {

namespace {

Vel::TraceFacility trace( "Commands" );

} // namespace

void Commands::end( Job & job, const Vel::String & problem ) {
   if ( job.phase != Job::Phase::running )
      return;
   job.phase = Job::Phase::ending;
   job.problem = problem;
   job.endingSince = now();
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

// ---- limits, and what an earlier agent has left

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
      input.generation = instanceKey( command.instanceName() ).genId();
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

} // namespace Agent
