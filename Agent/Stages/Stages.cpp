#include "Agent/Stages/Stages.h"

#include "Config/Stages.h"

#include <algorithm>
#include <sstream>

namespace Agent {

using Maintenance::Unit::StageMgrInstKey;
using Maintenance::Unit::Status;
using Maintenance::Unit::UnitState;

namespace {

Vel::String joined( const std::vector< Vel::String > & words ) {
   Vel::String result;
   for ( const Vel::String & word : words )
      result += ( result.empty() ? "" : " " ) + word;
   return result;
}

std::vector< Vel::String > split( const Vel::String & text ) {
   std::istringstream in( text );
   std::vector< Vel::String > result;
   for ( Vel::String word; in >> word; )
      result.push_back( word );
   return result;
}

bool contains( const Vel::String & stages, const Vel::String & stage ) {
   const auto list = split( stages );
   return std::find( list.begin(), list.end(), stage ) != list.end();
}

/// The stages of a run into maintenance that have not begun, as text. "drainwatch" has its way back in any case.
Vel::String notBegun( const UnitRun & run ) {
   std::vector< Vel::String > result;
   for ( const Vel::String & stage : split( run.stages() ) )
      if ( stage != Config::drainwatchStage && !run.stageStart( stage ) )
         result.push_back( stage );
   return joined( result );
}

bool isComplete(
   const Stages::Class & stageClass, const Vel::String & stage, const Vel::String & instanceName ) {
   const auto by = [&]( const Stage::AgentStatus * status ) {
      const bool * const complete =
         status ? status->complete( { status->name(), stage, instanceName } ) : nullptr;
      return complete && *complete;
   };
   return by( stageClass.agentStatus.get() ) || by( stageClass.commandStatus.get() );
}

} // namespace

Stages::Stages( Vel::Ptr< Cog::Scheduler > scheduler, Vel::Ptr< Cog::TimerWheel > wheel, Model model )
   : scheduler_( std::move( scheduler ) ),
     model_( std::move( model ) ),
     self_( std::make_shared< Stages * >( this ) ) {
   enterComplete_.is( model_.enter.agentStatus, this ).hasNotificationActiveIs( true );
   exitComplete_.is( model_.exit.agentStatus, this ).hasNotificationActiveIs( true );
   if ( model_.enter.commandStatus )
      enterCommandComplete_.is( model_.enter.commandStatus, this ).hasNotificationActiveIs( true );
   if ( model_.exit.commandStatus )
      exitCommandComplete_.is( model_.exit.commandStatus, this ).hasNotificationActiveIs( true );
   wakeup_.is( wheel, this ).hasNotificationActiveIs( true );
}

Stages::~Stages() { *self_ = nullptr; }

// ---- units

void Stages::unitIs( const Vel::String & unitName, const Lists & lists ) {
   lists_[unitName] = lists;
   if ( !model_.unitRunDir->unitRun( unitName ) )
      model_.unitRunDir->unitRunIs( unitName )->sinceIs( now() );
   if ( !model_.unitStatusDir->status( unitName ) )
      model_.unitStatusDir->statusIs( unitName )->stateIs( UnitState::normal );
}

Stages::Result Stages::unitDel( const Vel::String & unitName ) {
   const Status * status = model_.unitStatusDir->status( unitName );
   if ( !status )
      return std::nullopt;
   if ( status->state() != UnitState::normal )
      return Api::Error{
         Api::ErrorCode::conflict, "unit " + unitName + " is not normal and cannot be removed", unitName };
   lists_.erase( unitName );
   settling_.erase( unitName );
   letGo_.erase( unitName );
   model_.unitStatusDir->statusDel( unitName );
   model_.unitRunDir->unitRunDel( unitName );
   return std::nullopt;
}

Api::Error Stages::unknown( const Vel::String & unitName ) const {
   return { Api::ErrorCode::notFound, "there is no unit " + unitName, unitName };
}

Api::Error Stages::onItsWayBack( const Vel::String & unitName ) const {
   const Vel::U32 operation = model_.unitRunDir->unitRun( unitName )->operation();
   return {
      Api::ErrorCode::conflict,
      "unit " + unitName + " is on its way back" +
         ( operation ? Vel::text( " (operation ", operation, ")" ) : "" ) + "; wait until it is normal",
      unitName };
}

// ---- requests

Stages::Result Stages::enter( const Vel::String & unitName, const Request & request ) {
   if ( !unit( unitName ) )
      return unknown( unitName );
   Status & status = *model_.unitStatusDir->status( unitName );
   if ( status.state() == UnitState::enterInProgress || status.state() == UnitState::maintenance )
      return std::nullopt;
   if ( status.state() != UnitState::normal )
      return onItsWayBack( unitName );
   const auto lists = lists_.find( unitName );
   if ( lists == lists_.end() )
      return unknown( unitName );
   if ( const Result held = hold_ ? hold_() : std::nullopt )
      return held;
   for ( const Vel::String & stage : lists->second.enter )
      if ( const Result missing = check_ ? check_( stage ) : std::nullopt )
         return missing;

   UnitRun & run = *model_.unitRunDir->unitRun( unitName );
   ask( run, Wanted::maintenance, request );
   run.exitStagesIs( joined( lists->second.exit ) );
   run.skippedStagesIs( "" );
   if ( enters_ )
      enters_( unitName, lists->second );
   start( status, run, true );
   return std::nullopt;
}

Stages::Result Stages::exit( const Vel::String & unitName, const Request & request ) {
   if ( !unit( unitName ) )
      return unknown( unitName );
   Status & status = *model_.unitStatusDir->status( unitName );
   if ( status.state() == UnitState::normal || status.state() == UnitState::exitInProgress )
      return std::nullopt;
   UnitRun & run = *model_.unitRunDir->unitRun( unitName );
   ask( run, Wanted::normal, request );
   run.skippedStagesIs( notBegun( run ) );
   settling_.erase( unitName );
   retire( model_.enter, status.maintEnterInstanceName() );
   start( status, run, false );
   return std::nullopt;
}

void Stages::ask( UnitRun & run, Wanted wanted, const Request & request ) const {
   run.wantedIs( wanted );
   run.reasonIs( request.reason );
   run.byIs( request.by );
   run.operationIs( request.operation );
   run.withIs( request.with );
   if ( wanted == Wanted::maintenance )
      run.overriddenIs( request.overridden );
   run.askedTimeIs( now() );
   run.deadlineIs( request.timeout ? now() + *request.timeout : 0 );
}

// ---- runs

void Stages::start( Status & status, UnitRun & run, bool enter ) {
   const Vel::String unitName = status.unitName();
   const std::vector< Vel::String > stages = stagesOf( run, enter );
   // Generation 0 means none; after 2^32 runs it begins again.
   const Vel::U32 genId = status.genId() + 1 == 0 ? 1 : status.genId() + 1;
   const Vel::String instanceName = StageMgrInstKey( unitName, genId ).instanceName();
   run.stagesIs( joined( stages ) );
   run.stageStartDelAll();
   run.stageEndDelAll();
   status.genIdIs( genId );
   status.maintEnterInstanceNameIs( enter ? instanceName : "" );
   status.maintExitInstanceNameIs( enter ? "" : instanceName );
   stateIs( status, run, enter ? UnitState::enterInProgress : UnitState::exitInProgress );

   const Class & stageClass = enter ? model_.enter : model_.exit;
   stageClass.progressDir->progressIs( instanceName );
   const auto first = std::find_if( stages.begin(), stages.end(), [&]( const Vel::String & stage ) {
      return !contains( run.skippedStages(), stage );
   } );
   if ( first != stages.end() )
      startStage( stageClass, instanceName, run, *first );
   else
      stageClass.completionStatus->statusIs( instanceName, Stage::stageRunning );
   runSoon();
}

std::vector< Vel::String > Stages::stagesOf( const UnitRun & run, bool enter ) const {
   if ( !enter && !run.exitStages().empty() )
      return split( run.exitStages() );
   const auto lists = lists_.find( run.unitName() );
   if ( lists == lists_.end() )
      return Config::defaultStages();
   return enter ? lists->second.enter : lists->second.exit;
}

void Stages::startStage(
   const Class & stageClass, const Vel::String & instanceName, UnitRun & run, const Vel::String & stage ) {
   if ( busy_ && busy_( run.unitName() ) )
      return;
   run.stageStartIs( stage, now() );
   Stage::Progress & progress = *stageClass.progressDir->progress( instanceName );
   progress.stageStatusIs( stage, Stage::stageRunning );
   stageClass.completionStatus->statusIs( instanceName, Stage::stageRunning );
   progress.stageIs( stage );
}

void Stages::retire( const Class & stageClass, const Vel::String & instanceName ) {
   stageClass.progressDir->progressDel( instanceName );
   stageClass.completionStatus->statusDel( instanceName );
}

void Stages::stateIs( Status & status, UnitRun & run, UnitState state ) {
   run.sinceIs( now() );
   if ( state == UnitState::normal || state == UnitState::maintenance )
      run.deadlineIs( 0 );
   status.stateIs( state );
}

void Stages::resume() {
   resumed_ = true;
   runSoon();
}

void Stages::runSoon() {
   if ( runPosted_ )
      return;
   runPosted_ = true;
   scheduler_->post( [self = self_] {
      if ( Stages * stages = *self ) {
         stages->runPosted_ = false;
         stages->run();
      }
   } );
}

void Stages::run() {
   if ( !resumed_ )
      return;
   for ( const auto & [unitName, status] : model_.unitStatusDir->statusRange() )
      if ( UnitRun * run = model_.unitRunDir->unitRun( unitName ) )
         runUnit( *status, *run );
   leftOverUnitsDel();
   // Nobody tells when the counts become equal again, or what a member carries becomes known.
   wakeup_->timeMinIs( unitsToLookAt_.empty() ? Cog::Timer::never : now() + 1 );
}

void Stages::runUnit( Status & status, UnitRun & run ) {
   unitsToLookAt_.erase( status.unitName() );
   if ( status.state() == UnitState::enterInProgress ) {
      if ( allStagesComplete( model_.enter, status.maintEnterInstanceName(), run ) )
         settle( status, run );
      else
         settling_.erase( status.unitName() );
   } else if ( status.state() == UnitState::exitInProgress ) {
      const Vel::String instanceName = status.maintExitInstanceName();
      // With every stage passed over, something of the way in may still be ending.
      if ( !allStagesComplete( model_.exit, instanceName, run ) || ( busy_ && busy_( status.unitName() ) ) )
         return;
      retire( model_.exit, instanceName );
      status.maintExitInstanceNameIs( "" );
      stateIs( status, run, UnitState::normal );
   }
}

void Stages::leftOverUnitsDel() {
   for ( const auto & [unitName, status] : model_.unitStatusDir->statusRange() )
      if ( status->state() == UnitState::normal && !lists_.count( unitName ) )
         unitDel( Vel::String( unitName ) );
}

bool Stages::allStagesComplete( const Class & stageClass, const Vel::String & instanceName, UnitRun & run ) {
   Stage::Progress * progress = stageClass.progressDir->progress( instanceName );
   if ( !progress )
      return false;
   bool watched = false;
   for ( const Vel::String & stage : split( run.stages() ) ) {
      if ( contains( run.skippedStages(), stage ) )
         continue;
      if ( !isComplete( stageClass, stage, instanceName ) ) {
         if ( progress->stageStatus( stage ) )
            return false;
         if ( watched && counts( run.unitName() ).uncounted > 0 )
            unitsToLookAt_.insert( run.unitName() );
         else
            startStage( stageClass, instanceName, run, stage );
         return false;
      }
      if (
         &stageClass == &model_.exit && stage == Config::drainwatchStage && !run.stageEnd( stage ) &&
         awaitsLinks( run.unitName() ) )
         return false;
      // What comes after the watching on the way in relies on it, so it does not begin while that has left somebody out.
      watched |= &stageClass == &model_.enter && stage == Config::drainwatchStage;
      if ( !run.stageEnd( stage ) )
         run.stageEndIs( stage, now() );
   }
   return true;
}

// ---- links that come back

/// The plug-in is done when it has let go of them; whoever sets them up and gives them back what they had is not.
bool Stages::awaitsLinks( const Vel::String & unitName ) {
   const Links links = linksThatComeBack( unitName );
   const double since = letGo_.try_emplace( unitName, now() ).first->second;
   if ( !links.empty() && now() - since < linksPatience ) {
      unitsToLookAt_.insert( unitName );
      return true;
   }
   letGo_.erase( unitName );
   if ( !links.empty() && goesOnWithout_ )
      goesOnWithout_( unitName, links );
   return false;
}

Stages::Links Stages::linksThatComeBack( const Vel::String & unitName ) const {
   Links result;
   if ( comesBack_ )
      for ( const Wire::IntfId & intf : members( unitName ) )
         if ( comesBack_( intf ) )
            result.push_back( intf );
   return result;
}

Stages::Links Stages::linksAwaited( const Vel::String & unitName ) const {
   return letGo_.count( unitName ) ? linksThatComeBack( unitName ) : Links();
}

/// Nobody tells when a link is back, nor do timers run while counters cannot be read.
void Stages::turnEnds() {
   for ( const auto & [unitName, since] : letGo_ )
      if ( now() - since >= linksPatience || linksThatComeBack( unitName ).empty() )
         return runSoon();
}

void Stages::settle( Status & status, UnitRun & run ) {
   const Vel::String unitName = status.unitName();
   unitsToLookAt_.insert( unitName );
   const Counts counts = this->counts( unitName );
   if ( counts.total != counts.drained || counts.uncounted > 0 || ( hold_ && hold_() ) ) {
      settling_.erase( unitName );
      return;
   }
   const double since = settling_.try_emplace( unitName, now() ).first->second;
   if ( now() - since < settleTime_ )
      return;
   settling_.erase( unitName );
   unitsToLookAt_.erase( unitName );
   stateIs( status, run, UnitState::maintenance );
}

// ---- what there is to see

Stages::Counts Stages::counts( const Vel::String & unitName ) const {
   Counts result;
   for ( const Wire::IntfId & intf : members( unitName ) ) {
      result.uncounted += uncounted_ && uncounted_( intf );
      if ( const auto * record = model_.monIntfStatusDir->monIntfStatus( intf ) ) {
         ++result.total;
         result.drained += record->state() == Maintenance::monIntfStateUnderMaint;
      }
   }
   return result;
}

std::set< Wire::IntfId > Stages::members( const Vel::String & unitName ) const {
   std::set< Wire::IntfId > result;
   const auto * groups = model_.groupToUnitDir->unitToGroup( unitName );
   if ( !groups )
      return result;
   for ( const auto & [group, none] : groups->groupKeyRange() )
      if ( const auto * status = model_.intfGroupStatusDir->status( group ) )
         for ( const auto & [intf, none2] : status->intfRange() )
            result.insert( intf );
   return result;
}

Vel::String Stages::stage( const Vel::String & unitName ) const {
   const Status * status = model_.unitStatusDir->status( unitName );
   if ( !status )
      return "";
   const bool entering = status->state() == UnitState::enterInProgress;
   if ( !entering && status->state() != UnitState::exitInProgress )
      return "";
   const Class & stageClass = entering ? model_.enter : model_.exit;
   const auto * progress = stageClass.progressDir->progress(
      entering ? status->maintEnterInstanceName() : status->maintExitInstanceName() );
   return progress ? progress->stage() : "";
}

std::vector< Stages::StageFacts > Stages::stages( const Vel::String & unitName ) const {
   std::vector< StageFacts > result;
   const UnitRun * const run = model_.unitRunDir->unitRun( unitName );
   for ( const Vel::String & stage : split( run ? run->stages() : "" ) ) {
      const double * const start = run->stageStart( stage );
      const double * const end = run->stageEnd( stage );
      if ( end )
         result.push_back( { stage, StageState::complete, *end } );
      else if ( start )
         result.push_back( { stage, StageState::running, *start } );
      else
         result.push_back(
            { stage, contains( run->skippedStages(), stage ) ? StageState::skipped : StageState::pending,
              0 } );
   }
   return result;
}

std::optional< double > Stages::settlingSince( const Vel::String & unitName ) const {
   const auto it = settling_.find( unitName );
   return it == settling_.end() ? std::nullopt : std::optional( it->second );
}

} // namespace Agent
