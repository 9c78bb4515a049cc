#include "Agent/Commands/Commands.h"
#include "Agent/Commands/Protocol.h"

#include <algorithm>

/// What commands say, and what there is to see of them.
namespace Agent {

using Maintenance::Unit::StageMgrInstKey;
using Maintenance::Unit::UnitState;

namespace {

/// Seconds for which a store that works may hold a command up without a word.
constexpr double passing = 1;

} // namespace

Commands::Jobs::iterator Commands::jobOf( Children::Id id ) {
   return std::find_if( jobs_.begin(), jobs_.end(), [&]( const auto & job ) { return job.second.id == id; } );
}

void Commands::childSays( Children::Id id, Children::Stream stream, std::string_view bytes ) {
   const auto at = jobOf( id );
   if ( at == jobs_.end() )
      return;
   Job & job = at->second;
   if ( stream == Children::Stream::output )
      job.output.add(
         bytes, [&]( const std::string & line, bool cut ) { takeOutput( at->first, job, line, cut ); } );
   else
      job.errors.add(
         bytes, [&]( const std::string & line, bool cut ) { takeError( at->first, job, line, cut ); } );
}

void Commands::takeOutput( const Vel::String & unitName, Job & job, const std::string & line, bool cut ) {
   if ( line.empty() || line[0] != '{' )
      return logLine( unitName, job, printableLine( line ) + ( cut ? "..." : "" ) );
   const std::string problem =
      cut ? Vel::text( "is longer than ", Lines::mostOfAnObject, " bytes" ) : recordProblem( line );
   if ( problem.empty() )
      record( unitName, job, line );
   else
      end(
         job, "wrote a line that begins with { and " + problem + ": " + shortened( printableLine( line ) ) );
}

void Commands::takeError( const Vel::String & unitName, Job & job, const std::string & line, bool cut ) {
   const std::string text = printableLine( line );
   if ( text.find_first_not_of( ' ' ) != text.npos )
      job.lastError = shortened( text );
   logLine( unitName, job, text + ( cut ? "..." : "" ) );
}

void Commands::record( const Vel::String & unitName, Job & job, const std::string & line ) {
   commandIs( unitName, job.stage ).recordedIs( line );
   whenDurable( [this, id = job.id] { children_.kept( id ); } );
}

void Commands::logLine( const Vel::String & unitName, Job & job, const std::string & line ) {
   if ( ++job.lines <= mostLines )
      log( unitName, job.stage, line );
   else if ( job.lines == mostLines + 1 )
      log( unitName, job.stage, "says more than is logged" );
}

void Commands::log(
   const Vel::String & unitName, const Vel::String & stage, const std::string & text ) const {
   hooks_.log( unitName + "/" + stage + ": " + text );
}

// ---- what there is to see

Commands::Facts Commands::facts( const Vel::String & unitName, const Vel::String & stage ) const {
   Facts facts;
   const auto * const status = model_.unitStatusDir->status( unitName );
   const StageCommand * const command = commandOf( unitName, stage );
   if ( !status || !command )
      return facts;
   const bool enter =
      status->state() == UnitState::enterInProgress || status->state() == UnitState::maintenance;
   if ( command->instanceName() == StageMgrInstKey( unitName, status->genId() ).instanceName() ) {
      const auto job = jobs_.find( unitName );
      facts = {
         command->state(),
         command->since(),
         command->command(),
         command->limit(),
         command->goesOn(),
         command->failure(),
         job != jobs_.end() && job->second.phase == Job::Phase::remnants,
         "" };
   } else if ( const auto definition = definitionOf( *command ) ) {
      facts.command = enter ? definition->enter : definition->exit;
      facts.limit = definition->timeout;
      facts.goesOn = definition->goesOn;
   }
   if ( const auto waiting = waiting_.find( unitName );
        waiting != waiting_.end() && waiting->second.stage == stage )
      facts.waitsFor = waiting->second.reason;
   if ( facts.state != CommandState::running )
      return facts;
   if ( !resumed_ )
      facts.waitsFor = "the agent to take up what was under way";
   else if ( const auto job = jobs_.find( unitName ); job != jobs_.end() && job->second.endingSince > 0 ) {
      facts.since = job->second.endingSince;
      facts.waitsFor = Vel::String( "the end of its processes, because " ) +
                       ( job->second.problem.empty() ? "the unit goes back" : "it " + job->second.problem );
   } else if ( job != jobs_.end() && job->second.began > 0 )
      facts.since = job->second.began;
   else if (
      job != jobs_.end() && job->second.phase == Job::Phase::running && now() - command->since() >= passing )
      facts.waitsFor = "the store, in which its process has to be kept before it begins";
   return facts;
}

bool Commands::failedOnTheWayBack( const Maintenance::Unit::Status & status, const StageCommand & command ) {
   return ( status.state() == UnitState::exitInProgress || status.state() == UnitState::normal ) &&
          command.state() == CommandState::failed &&
          command.instanceName() == StageMgrInstKey( status.unitName(), status.genId() ).instanceName();
}

std::vector< Commands::Failure > Commands::failures() const {
   std::vector< Failure > result;
   for ( const auto & [unitName, unit] : model_.unitCommandsDir->unitRange() )
      if ( const auto * const status = model_.unitStatusDir->status( unitName ) )
         for ( const auto & [stage, command] : unit->stageRange() )
            if ( failedOnTheWayBack( *status, *command ) )
               result.push_back(
                  { unitName, stage, command->failure(), command->recorded(), command->since() } );
   return result;
}

} // namespace Agent
