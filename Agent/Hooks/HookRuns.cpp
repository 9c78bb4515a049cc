#include "Agent/Commands/Ending.h"
#include "Agent/Hooks/HookRunner.h"

#include <algorithm>

/// How the programs of hooks begin and end.
namespace Agent {

// ---- begin

void HookRunner::begin() {
   const auto mayBegin = [this]( const auto & entry ) {
      const auto & [name, hook] = entry;
      return !hook.waiting.empty() && !jobs_.count( name ) && now() >= hook.notBefore;
   };
   unsigned begun = 0;
   for ( auto & entry : hooks_ )
      if ( mayBegin( entry ) && begun++ < beginsATurn )
         begin( entry.first, entry.second );
   // Those that are left, or have failed at once and have more to do, get another turn.
   if ( std::any_of( hooks_.begin(), hooks_.end(), mayBegin ) )
      scheduler_->post( [] {} );
}

void HookRunner::begin( const std::string & name, Hook & hook ) {
   const Vel::U64 sequence = hook.waiting.front();
   const Event & event = *model_.log->event( sequence );
   HookRecord & kept = *record( name );
   const Vel::U32 before = kept.running() == sequence ? kept.starts() : 0;
   const HookCall call{ name, sequence, hookEventOf( event ).value(), before + 1, hook.definition.url };
   if ( before >= mostStarts ) {
      hook.waiting.pop_front();
      return concluded(
         name, call, Vel::text( "the agent has ended ", before, " times before its program had" ) );
   }
   const bool isUrl = !call.url.empty();
   const std::vector< std::string > environment = hookEnvironment( call );
   const Children::Id id = ++lastId_;
   const Children::Held held = children_.hold(
      id,
      { isUrl ? std::vector< std::string >{ outside_.httpProgram } : hook.definition.command.words(),
        environment, hookInput( call, event ) },
      *this );
   if ( held.scarce ) {
      hook.scarceSince = hook.scarceSince.value_or( now() );
      if ( now() < *hook.scarceSince + hook.definition.timeLimit.seconds() ) {
         hook.notBefore = now() + againAfter;
         return;
      }
   }
   hook.scarceSince.reset();
   hook.waiting.pop_front();
   if ( !held.problem.empty() )
      return concluded( name, call, "its program cannot be started: " + held.problem );
   kept.runningIs( sequence );
   kept.startsIs( call.start );
   kept.processIs( held.process );
   kept.markIs( environment.front() );
   Job & job = jobs_[name];
   job.id = id;
   job.call = call;
   job.limit = hook.definition.timeLimit.seconds();
   outside_.whenStored( [self = self_, id] {
      if ( *self )
         ( *self )->goes( id );
   } );
}

void HookRunner::goes( Children::Id id ) {
   const auto at = jobOf( id );
   if ( at == jobs_.end() || at->second.phase != Job::Phase::held )
      return;
   at->second.phase = Job::Phase::running;
   at->second.due = now() + at->second.limit;
   children_.go( id );
   wakeupIs();
}

HookRunner::Jobs::iterator HookRunner::jobOf( Children::Id id ) {
   return std::find_if( jobs_.begin(), jobs_.end(), [id]( const auto & job ) {
      return job.second.phase != Job::Phase::remnants && job.second.id == id;
   } );
}

// ---- what it says

void HookRunner::childSays( Children::Id id, Children::Stream stream, std::string_view bytes ) {
   const auto at = jobOf( id );
   if ( at == jobs_.end() )
      return;
   const std::string & name = at->first;
   Job & job = at->second;
   job.bytes += bytes.size();
   if ( job.bytes > mostOutput ) {
      if ( job.phase == Job::Phase::running )
         endByForce( name, job, Vel::text( "has written more than ", mostOutput / 1024 / 1024, " MiB" ) );
      return;
   }
   const bool isError = stream == Children::Stream::errors;
   ( isError ? job.errors : job.output ).add( bytes, [&]( const std::string & line, bool ) {
      takeLine( name, job, line, isError );
   } );
}

void HookRunner::takeLine( const std::string & name, Job & job, const std::string & line, bool isError ) {
   const std::string text = printableLine( line );
   if ( isError && text.find_first_not_of( ' ' ) != text.npos )
      job.lastError = shortened( text );
   if ( ++job.lines <= mostLines )
      log( name, "says: " + text );
   else if ( job.lines == mostLines + 1 )
      log( name, "says more, which is not written down" );
}

// ---- end

/// \param problem  what is told of it; empty: nobody is told
void HookRunner::endByForce( const std::string & name, Job & job, const std::string & problem ) {
   job.phase = Job::Phase::killed;
   job.problem = problem;
   job.killedSince = now();
   if ( !problem.empty() )
      log( name, "is ended: it " + problem );
   killAgain( job.id );
   job.due = now() + againAfter;
   wakeupIs();
}

void HookRunner::killAgain( Children::Id id ) {
   scheduler_->effectIs( [self = self_, id] {
      if ( *self )
         ( *self )->children_.kill( id );
   } );
}

void HookRunner::childEnded( Children::Id id, const Children::Ending & ending ) {
   const auto at = jobOf( id );
   if ( at == jobs_.end() )
      return;
   const std::string name = at->first;
   Job job = std::move( at->second );
   jobs_.erase( at );
   job.output.end( [&]( const std::string & line, bool ) { takeLine( name, job, line, false ); } );
   job.errors.end( [&]( const std::string & line, bool ) { takeLine( name, job, line, true ); } );
   HookRecord & kept = *record( name );
   kept.processIs( {} );
   kept.markIs( "" );
   if ( job.retired ) {
      // It may have been configured again meanwhile.
      if ( !hooks_.count( name ) )
         model_.hookDir->hookDel( name );
      return;
   }
   std::string failure = job.problem.empty() ? endingText( ending, job.lastError ) : job.problem;
   // Our own program says all that there is to say.
   if ( job.problem.empty() && !job.call.url.empty() && ending.status == 1 && !job.lastError.empty() )
      failure = job.lastError;
   concluded( name, job.call, failure );
}

/// \param failure  why it has failed; empty: it has not
void HookRunner::concluded( const std::string & name, const HookCall & call, const std::string & failure ) {
   HookRecord & kept = *record( name );
   kept.runningIs( 0 );
   kept.startsIs( 0 );
   kept.runsIs( kept.runs() + 1 );
   kept.failureIs( failure );
   if ( failure.empty() )
      return;
   kept.failedSinceIs( now() );
   kept.failuresIs( kept.failures() + 1 );
   const std::string moment = Config::text( call.event.moment );
   log( name, "has failed for event " + std::to_string( call.sequence ) + " (" + moment + "): " + failure );
   outside_.failed( { name, moment, call.sequence, call.event.units, failure } );
}

// ---- time, and what an earlier agent has left

void HookRunner::handleDue() {
   for ( auto & [name, job] : jobs_ )
      if ( job.due <= now() )
         handleDue( name, job );
   wakeupIs();
}

void HookRunner::handleDue( const std::string & name, Job & job ) {
   switch ( job.phase ) {
   case Job::Phase::held:
      return;
   case Job::Phase::running:
      return endByForce( name, job, Vel::text( "ran into its time limit of ", job.limit, " s" ) );
   case Job::Phase::killed:
      // Once more each time: nothing else can be done about a process that does not end.
      job.due = now() + againAfter;
      return killAgain( job.id );
   case Job::Phase::remnants:
      return remnantsEnd( name );
   }
}

void HookRunner::remnantsEnd( const std::string & name ) {
   jobs_.at( name ).due = Cog::Timer::never;
   scheduler_->effectIs( [self = self_, name] {
      HookRunner * const runner = *self;
      if ( !runner )
         return;
      const HookRecord & kept = *runner->record( name );
      const bool left = runner->children_.remnantsEnd( kept.process(), kept.mark() );
      runner->scheduler_->post( [self, name, left] {
         if ( *self )
            ( *self )->handleRemnants( name, left );
      } );
   } );
}

void HookRunner::handleRemnants( const std::string & name, bool left ) {
   Job & job = jobs_.at( name );
   if ( left ) {
      job.due = now() + againAfter;
      return wakeupIs();
   }
   jobs_.erase( name );
   if ( !hooks_.count( name ) ) {
      model_.hookDir->hookDel( name );
      return;
   }
   record( name )->processIs( {} );
   record( name )->markIs( "" );
}

} // namespace Agent
