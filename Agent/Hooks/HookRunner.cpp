#include "Agent/Hooks/HookRunner.h"

#include <algorithm>

/// Which hooks there are, which events wait for them, and what is told of them.
namespace Agent {

namespace {

/// Above all ids of whoever else starts children.
constexpr Children::Id firstId = Children::Id( 1 ) << 62;

} // namespace

HookRunner::HookRunner(
   Vel::Ptr< Cog::Scheduler > scheduler, Vel::Ptr< Cog::TimerWheel > wheel, Children & children, Model model,
   Outside outside )
   : scheduler_( std::move( scheduler ) ),
     children_( children ),
     model_( std::move( model ) ),
     outside_( std::move( outside ) ),
     seen_( model_.log->last() ),
     lastId_( firstId ),
     self_( std::make_shared< HookRunner * >( this ) ) {
   wakeup_.is( wheel, this ).hasNotificationActiveIs( true );
}

HookRunner::~HookRunner() {
   *self_ = nullptr;
   children_.forget( *this );
}

// ---- what is configured

void HookRunner::configurationIs( const std::map< std::string, Config::Hook > & hooks ) {
   std::vector< std::string > gone;
   for ( const auto & [name, hookRecord] : model_.hookDir->hookRange() )
      if ( !hooks.count( name ) )
         gone.push_back( name );
   for ( const auto & [name, definition] : hooks ) {
      const auto [at, isNew] = hooks_.try_emplace( name );
      const bool edited = !isNew && !( at->second.definition == definition );
      at->second.definition = definition;
      if ( isNew )
         takeUp( name, at->second );
      else if ( edited )
         record( name )->failureIs( "" );
   }
   if ( !std::exchange( configured_, true ) )
      for ( const auto & [name, hookRecord] : model_.hookDir->hookRange() )
         if ( hookRecord->process().pid != 0 ) {
            Job & job = jobs_[name];
            job.phase = Job::Phase::remnants;
            job.killedSince = now();
            remnantsEnd( name );
         }
   for ( const std::string & name : gone )
      retire( name );
}

/// A hook that was not there before, or only under an earlier agent.
void HookRunner::takeUp( const std::string & name, Hook & hook ) {
   HookRecord * kept = record( name );
   if ( configured_ || !kept ) {
      // It may have gone and come back, with a program that has yet to end.
      kept = model_.hookDir->hookIs( name );
      kept->doneIs( model_.log->last() );
      for ( const auto set : { &HookRecord::runsIs, &HookRecord::failuresIs, &HookRecord::missedIs } )
         ( kept->*set )( 0 );
      kept->runningIs( 0 );
      kept->failureIs( "" );
      return;
   }
   // The clock of another boot may be behind.
   kept->failedSinceIs( std::min( kept->failedSince(), now() ) );
   const EventLog & events = *model_.log;
   for ( Vel::U64 sequence = std::max( kept->done() + 1, events.first() ); sequence <= seen_; ++sequence )
      if ( const auto event = hookEventOf( *events.event( sequence ) );
           event && concerns( hook.definition, *event ) )
         hook.waiting.push_back( sequence );
   if ( kept->running() == 0 )
      return;
   if ( kept->running() < events.first() ) {
      kept->missedIs( kept->missed() + 1 );
      outside_.missed( name, 1 );
   }
   // What it does not wait for any more is not repeated.
   if ( hook.waiting.empty() || hook.waiting.front() != kept->running() )
      kept->runningIs( 0 );
}

/// Forgets a hook that has gone from the configuration, as soon as nothing of it runs.
void HookRunner::retire( const std::string & name ) {
   hooks_.erase( name );
   const auto job = jobs_.find( name );
   if ( job == jobs_.end() ) {
      model_.hookDir->hookDel( name );
      return;
   }
   record( name )->runningIs( 0 );
   job->second.retired = true;
   if ( job->second.phase == Job::Phase::held || job->second.phase == Job::Phase::running ) {
      log( name, "is ended: the hook has gone from the configuration" );
      endByForce( name, job->second, "" );
   }
}

// ---- what waits

void HookRunner::turnEnds() {
   scan();
   for ( auto & [name, hook] : hooks_ )
      missedDel( name, hook );
   begin();
   for ( const auto & [name, hook] : hooks_ )
      doneIs( name, hook );
   wakeupIs();
}

void HookRunner::scan() {
   const EventLog & events = *model_.log;
   // No turn tells of so much; if one does, nobody can say who would have waited for it.
   if ( const Vel::U64 first = events.first(); first > seen_ + 1 )
      for ( const auto & [name, hook] : hooks_ ) {
         record( name )->missedIs( record( name )->missed() + first - seen_ - 1 );
         outside_.missed( name, first - seen_ - 1 );
      }
   for ( Vel::U64 sequence = std::max( seen_ + 1, events.first() ); sequence <= events.last(); ++sequence ) {
      const auto event = hooks_.empty() ? std::nullopt : hookEventOf( *events.event( sequence ) );
      for ( auto & [name, hook] : hooks_ )
         if ( event && sequence > record( name )->done() && concerns( hook.definition, *event ) )
            hook.waiting.push_back( sequence );
   }
   seen_ = events.last();
}

/// Events that have left the log.
void HookRunner::missedDel( const std::string & name, Hook & hook ) {
   Vel::U64 count = 0;
   for ( ; !hook.waiting.empty() && hook.waiting.front() < model_.log->first(); ++count )
      hook.waiting.pop_front();
   if ( count == 0 )
      return;
   record( name )->missedIs( record( name )->missed() + count );
   outside_.missed( name, count );
}

void HookRunner::doneIs( const std::string & name, const Hook & hook ) {
   HookRecord & kept = *record( name );
   const Vel::U64 next = kept.running() != 0    ? kept.running()
                         : hook.waiting.empty() ? seen_ + 1
                                                : hook.waiting.front();
   kept.doneIs( next - 1 );
}

void HookRunner::wakeupIs() {
   double next = Cog::Timer::never;
   for ( const auto & [name, job] : jobs_ )
      next = std::min( next, job.due );
   for ( const auto & [name, hook] : hooks_ )
      if ( hook.notBefore > now() )
         next = std::min( next, hook.notBefore );
   wakeup_->timeMinIs( next );
}

// ---- what is told

std::vector< HookRunner::Facts > HookRunner::facts() const {
   std::vector< Facts > result;
   for ( const auto & [name, hook] : hooks_ ) {
      const HookRecord & kept = *record( name );
      result.push_back(
         { name, !hook.definition.url.empty(), kept.runs(), kept.failures(), kept.missed(),
           hook.waiting.size(), kept.running(), kept.failure() } );
   }
   return result;
}

std::vector< HookRunner::Problem > HookRunner::problems() const {
   std::vector< Problem > result;
   for ( const auto & [name, hook] : hooks_ ) {
      const HookRecord & kept = *record( name );
      if ( !kept.failure().empty() && now() < kept.failedSince() + problemFor )
         result.push_back( { kept.failedSince(), "hook " + name + " failed: " + kept.failure() } );
      const auto hasToEnd = []( const Job & job ) {
         return job.phase == Job::Phase::killed || job.phase == Job::Phase::remnants;
      };
      if ( const auto job = jobs_.find( name );
           job != jobs_.end() && hasToEnd( job->second ) && now() >= job->second.killedSince + patience )
         result.push_back(
            { job->second.killedSince, "hook " + name + " cannot be called: its program does not end" } );
   }
   return result;
}

void HookRunner::log( const std::string & name, const std::string & text ) const {
   outside_.log( "hook " + name + ": " + text );
}

} // namespace Agent
