#include "Agent/Commands/Commands.h"
#include "Agent/Commands/Protocol.h"

#include <algorithm>

/// How commands begin, and what those wait for that cannot.
namespace Agent {

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
   input.generation = instanceKey( instanceName ).genId();
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

} // namespace Agent
