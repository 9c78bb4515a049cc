#include "Agent/History/Recorder.h"

namespace Agent {

using Maintenance::Unit::StageMgrInstKey;
using Maintenance::Unit::Status;
using Maintenance::Unit::UnitState;

namespace {

const char * const enterWay = "enter/";
const char * const exitWay = "exit/";

bool isUnderWay( UnitState state ) {
   return state == UnitState::enterInProgress || state == UnitState::maintenance ||
          state == UnitState::exitInProgress;
}

} // namespace

Recorder::Recorder(
   Vel::Ptr< Cog::Scheduler > scheduler, const Vel::Ptr< Cog::TimerWheel > & wheel, Model model, Hooks hooks )
   : scheduler_( std::move( scheduler ) ), model_( std::move( model ) ), hooks_( std::move( hooks ) ) {
   wakeup_.is( wheel, this ).hasNotificationActiveIs( true );
   unitDir_.is( model_.unitStatusDir, this ).hasNotificationActiveIs( true );
   runDir_.is( model_.unitRunDir, this ).hasNotificationActiveIs( true );
   monIntfDir_.is( model_.monIntfStatusDir, this ).hasNotificationActiveIs( true );
   insightDir_.is( model_.insightDir, this ).hasNotificationActiveIs( true );
   cause_.is( model_.cause, this ).hasNotificationActiveIs( true );
   for ( const auto & [intf, insight] : model_.insightDir->intfRange() )
      insights_[intf].is( insight, this ).hasNotificationActiveIs( true );
   for ( const auto & [intf, monIntf] : model_.monIntfStatusDir->monIntfStatusRange() )
      monIntfs_[intf].is( monIntf, this ).hasNotificationActiveIs( true );
   for ( const auto & [unit, run] : model_.unitRunDir->unitRunRange() )
      runs_[unit].is( run, this ).hasNotificationActiveIs( true );
   for ( const auto & [id, record] : model_.historyDir->recordRange() )
      if ( record->ended() == 0 )
         isOpen( *record );
   for ( const auto & [unit, status] : model_.unitStatusDir->statusRange() )
      handleUnit( unit );
   for ( const auto & [id, record] : model_.historyDir->recordRange() )
      if ( record->ended() == 0 && !model_.unitStatusDir->status( record->unitName() ) )
         close( *record, now() );
   for ( const auto & [id, peaks] : model_.peaksDir->peaksRange() )
      if ( const auto * record = model_.historyDir->record( id ); !record || record->ended() > 0 )
         model_.peaksDir->peaksDel( Vel::U32( id ) );
}

// ---- units

void Recorder::handleUnit( const Vel::String & unit ) {
   units_.erase( unit );
   const Status * const status = model_.unitStatusDir->status( unit );
   if ( !status )
      return;
   units_[unit].is( Vel::Ptr< const Status >( status ), this ).hasNotificationActiveIs( true );
   handleState( *status );
}

void Recorder::handleRun( const Vel::String & unit ) {
   runs_.erase( unit );
   if ( const UnitRun * const run = model_.unitRunDir->unitRun( unit ) )
      runs_[unit].is( Vel::Ptr< const UnitRun >( run ), this ).hasNotificationActiveIs( true );
}

HistoryRecord * Recorder::recordOf( const Vel::String & unit ) const {
   const auto it = open_.find( unit );
   return it == open_.end() ? nullptr : it->second.get();
}

void Recorder::isOpen( HistoryRecord & record ) {
   open_[record.unitName()] = &record;
   for ( const auto & [intf, entry] : record.intfRange() ) {
      if ( !isOver( *entry ) )
         entries_[intf].push_back( &record );
      // What an earlier run has not come to keep.
      const HistoryPeaks * const peaks = model_.peaksDir->peaks( record.id() );
      const auto * const peak = peaks ? peaks->peak( intf ) : nullptr;
      if ( peak && &higherOf( entry->peakRates(), *peak ) == peak )
         peaksToKeep_.emplace( record.id(), intf );
   }
}

void Recorder::handleState( const Status & status ) {
   HistoryRecord * record = recordOf( status.unitName() );
   const UnitRun * const run = model_.unitRunDir->unitRun( status.unitName() );
   const double since = run ? run->since() : now();
   if ( !isUnderWay( status.state() ) ) {
      if ( record )
         close( *record, since );
      return;
   }
   if ( !record )
      record = &recordNew( status, run );
   if ( status.state() == UnitState::maintenance && record->inMaintenance() == 0 )
      record->inMaintenanceIs( since );
   if ( status.state() == UnitState::exitInProgress && record->exitBegan() == 0 )
      wayBackBegins( *record, status, run );
   wakeup_->timeMinIs( now() + driftPeriod );
}

HistoryRecord & Recorder::recordNew( const Status & status, const UnitRun * run ) {
   HistoryDir & dir = *model_.historyDir;
   dir.lastIdIs( dir.lastId() + 1 );
   HistoryRecord & record = *dir.recordIs( dir.lastId(), status.unitName() );
   record.generationIs( status.genId() );
   record.beganIs( run ? run->since() : now() );
   if ( run ) {
      record.byIs( run->by() );
      record.reasonIs( run->reason() );
      record.operationIs( run->operation() );
      record.withIs( run->with() );
      record.overriddenIs( run->overridden() );
   }
   isOpen( record );
   // What other units watch already, this one does not begin to watch.
   if ( const auto * const groups = model_.groupToUnitDir->unitToGroup( status.unitName() ) )
      for ( const auto & [group, none] : groups->groupKeyRange() )
         if ( const auto * const members = model_.intfGroupStatusDir->status( group ) )
            for ( const auto & [intf, none2] : members->intfRange() )
               if ( model_.monIntfStatusDir->monIntfStatus( intf ) )
                  entriesOf( intf );
   return record;
}

void Recorder::wayBackBegins( HistoryRecord & record, const Status & status, const UnitRun * run ) {
   const bool failed = takeFailures( record, true );
   record.exitBeganIs( run ? run->since() : now() );
   record.exitGenerationIs( status.genId() );
   if ( run ) {
      record.exitByIs( run->by() );
      record.exitReasonIs( run->reason() );
      record.exitOperationIs( run->operation() );
      record.exitWithIs( run->with() );
   }
   record.outcomeToBeIs(
      record.inMaintenance() > 0 ? Outcome::completed
      : failed                   ? Outcome::aborted
                                 : Outcome::cancelled );
}

void Recorder::handleStage( const UnitRun & run, const Vel::String & stage ) {
   HistoryRecord * const record = recordOf( run.unitName() );
   const double * const began = run.stageStart( stage );
   if ( !record || !began )
      return;
   const bool enter = record->exitBegan() == 0;
   HistoryStage & written = *record->stageIs( ( enter ? enterWay : exitWay ) + stage );
   written.beganIs( *began );
   if ( const double * const ended = run.stageEnd( stage ) )
      written.endedIs( *ended );
   takeFailures( *record, enter );
}

bool Recorder::takeFailures( HistoryRecord & record, bool enter ) const {
   const auto * const commands = model_.unitCommandsDir->unit( record.unitName() );
   const Vel::String way = enter ? enterWay : exitWay;
   const Vel::String instanceName =
      StageMgrInstKey( record.unitName(), enter ? record.generation() : record.exitGeneration() )
         .instanceName();
   bool tookBack = false;
   for ( const auto & [key, stage] : record.stageRange() ) {
      if ( !commands || key.compare( 0, way.size(), way ) != 0 )
         continue;
      const StageCommand * const command = commands->stage( key.substr( way.size() ) );
      if ( !command || command->instanceName() != instanceName || command->state() != CommandState::failed )
         continue;
      stage->failureIs( command->failure().empty() ? "unknown" : command->failure() );
      // The machinery notes the end of what was done only; a failure is an end, too.
      if ( stage->ended() == 0 )
         stage->endedIs( now() );
      tookBack |= enter && !command->goesOn();
   }
   return tookBack;
}

void Recorder::close( HistoryRecord & record, double time ) {
   takeFailures( record, record.exitBegan() == 0 );
   if ( const HistoryPeaks * const peaks = model_.peaksDir->peaks( record.id() ) )
      for ( const auto & [intf, rates] : peaks->peakRange() ) {
         peaksToKeep_.erase( { record.id(), intf } );
         if ( HistoryIntf * const entry = record.intf( intf ) )
            entry->peakRatesIs( higherOf( entry->peakRates(), rates ) );
      }
   model_.peaksDir->peaksDel( record.id() );
   for ( const auto & [intf, entry] : record.intfRange() ) {
      endSpike( *entry, time );
      if ( const auto it = entries_.find( intf ); it != entries_.end() ) {
         std::erase( it->second, &record );
         if ( it->second.empty() )
            entries_.erase( it );
      }
   }
   open_.erase( record.unitName() );
   if ( record.outcomeToBe() == Outcome::open )
      record.outcomeToBeIs( Outcome::completed );
   record.wallOffsetIs( hooks_.wallTime( now() ) - now() );
   record.endedIs( time );
   hooks_.closed();
}

// ---- time

void Recorder::handleTime() {
   for ( const auto & [unit, record] : open_ )
      for ( const auto & [intf, entry] : record->intfRange() )
         if ( entry->released() == 0 )
            takeDrift( *entry );
   if ( now() >= peaksKept_ + peaksPeriod )
      keepPeaks( peaksAtOnce );
   if ( !open_.empty() )
      wakeup_->timeMinIs( now() + driftPeriod );
}

void Recorder::keepPeaks( std::size_t most ) {
   for ( ; most > 0 && !peaksToKeep_.empty(); --most ) {
      const auto [id, intf] = *peaksToKeep_.begin();
      peaksToKeep_.erase( peaksToKeep_.begin() );
      const HistoryRecord * const record = model_.historyDir->record( id );
      const HistoryPeaks * const peaks = model_.peaksDir->peaks( id );
      const auto * const peak = peaks ? peaks->peak( intf ) : nullptr;
      if ( HistoryIntf * const entry = record && peak ? record->intf( intf ) : nullptr )
         entry->peakRatesIs( higherOf( entry->peakRates(), *peak ) );
   }
   if ( peaksToKeep_.empty() )
      peaksKept_ = now();
}

} // namespace Agent
