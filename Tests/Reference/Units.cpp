#include "Tests/Reference/Rules.h"

namespace Reference {

namespace {
/// Ordinals of the state of a unit.
constexpr int entering = 2;
constexpr int inMaintenance = 3;
constexpr int leaving = 5;
} // namespace

// ---- start and end of the plug-in

/// Units that were being watched when an earlier run ended are watched again; what it has left of other interfaces is
/// cleaned up. Everything else comes through the backlog.
void Model::Rules::start() {
   running_ = true;
   deleteStaleCompletions( StageClass::enter );
   deleteStaleCompletions( StageClass::exit );
   for ( auto & [intf, record] : published.records )
      record.stale = true;
   published.entering.clear();
   published.under.clear();
   published.spikes.clear();
   for ( const Unit unit : inputs_.units.keys() )
      reconcile( unit, *inputs_.units.find( unit ) );
   deleteStaleRecords();
   for ( const auto & [intf, up] : inputs_.links )
      addToBacklog( intf );
   for ( const auto & [intf, entry] : inputs_.entries )
      addToBacklog( intf );
   rebuildAggregates();
}

void Model::Rules::crash() {
   running_ = helpersReleased_ = aggregating_ = false;
   unitMons_ = {};
   intfMons_ = {};
   timers_.clear();
   published.unitMonitors.clear();
   published.intfMonitors.clear();
   published.backlog.clear();
   published.bookmark = none;
   published.counters = {};
}

/// Whoever writes completions goes first: a unit that is let go of in this way completes nothing.
void Model::Rules::unload() {
   helpersReleased_ = true;
   while ( !unitMons_.keys().empty() )
      deleteUnitMon( unitMons_.keys().first() );
   while ( !intfMons_.keys().empty() )
      deleteIntfMon( intfMons_.keys().first() );
   crash();
}

void Model::Rules::deleteStaleCompletions( StageClass stageClass ) {
   const std::set< Instance > & known = inputs_.stage( stageClass ).completionStatus;
   std::erase_if( published.complete, [&]( const Completion & completion ) {
      return completion.stageClass == stageClass &&
             known.count( { completion.unit, completion.generation } ) == 0;
   } );
}

/// A unit that was leaving is done: what it held goes as stale.
void Model::Rules::reconcile( Unit unit, const UnitInput & input ) {
   if ( input.state != entering && input.state != inMaintenance && input.state != leaving )
      return;
   const StageClass stageClass = input.state == leaving ? StageClass::exit : StageClass::enter;
   const int instance = input.instance[static_cast< std::size_t >( stageClass )];
   const Progress * const progress = find( inputs_.stage( stageClass ).progress, { unit, instance } );
   if ( input.state != inMaintenance && ( instance == none || !progress ) )
      return;
   if ( instance == 0 || ( instance == none && input.generation == 0 ) )
      throw Unreachable( "a unit in maintenance has no instance" );
   if ( instance != input.generation )
      return;
   if ( input.state == inMaintenance || ( input.state == entering && progress->status != 0 ) )
      enterMaintenance( unit, instance );
   else if ( input.state == leaving && progress->status != 0 )
      completeStage( unit, instance, StageClass::exit );
}

void Model::Rules::deleteStaleRecords() {
   for ( auto at = published.records.begin(); at != published.records.end(); ) {
      if ( !at->second.stale ) {
         ++at;
         continue;
      }
      const Intf intf = at->first;
      at = published.records.erase( at );
      release( intf );
      for ( auto & [unit, shown] : published.units )
         shown.violating.erase( intf );
   }
}

// ---- stages

void Model::Rules::handleStage( StageClass stageClass, Unit unit, int generation ) {
   if ( generation < 1 )
      throw Unreachable( "an instance has no generation" );
   if ( stageClass == StageClass::enter )
      enterMaintenance( unit, generation );
   else
      exitMaintenance( unit, generation );
}

/// An earlier cycle that was never closed is left first, under the new generation.
void Model::Rules::enterMaintenance( Unit unit, int generation ) {
   count( numMaintEnter );
   if ( unitMons_.find( unit ) ) {
      count( numMaintEnterUnitMonPresent );
      exitMaintenance( unit, generation );
   }
   startUnitMon( unit, generation );
}

/// Without a monitor the stage is complete all the same: a unit must be able to leave.
void Model::Rules::exitMaintenance( Unit unit, int generation ) {
   count( numMaintExit );
   UnitMon * const unitMon = unitMons_.find( unit );
   if ( !unitMon ) {
      count( numMaintExitNoUnitMon );
      notifyStageCompletion( unit, generation, StageClass::exit );
      return;
   }
   const UnitInput * const input = inputs_.units.find( unit );
   if ( input && input->state == entering )
      count( numMaintExitInMaintModeEnter );
   unitMon->shown->generation = static_cast< std::uint32_t >( generation );
   deleteUnitMon( unit );
}

void Model::Rules::notifyStageCompletion( Unit unit, int generation, StageClass stageClass ) {
   const Progress * const progress = find( inputs_.stage( stageClass ).progress, { unit, generation } );
   if ( !progress ) {
      count( numNoNotifyNoStageInput );
   } else if ( progress->status == 0 ) {
      count( numNoNotifyActiveStageMismatch );
   } else if ( !inputs_.units.find( unit ) ) {
      count( numNoNotifyNoUnitStatus );
   } else if ( !helpersReleased_ ) {
      completeStage( unit, generation, stageClass );
      count( numNotifyStageCompletion );
   }
}

void Model::Rules::completeStage( Unit unit, int generation, StageClass stageClass ) {
   if ( published.complete.insert( { stageClass, unit, generation } ).second )
      decide( Decision::Kind::completed, unit, generation );
}

// ---- the monitor of a unit

void Model::Rules::startUnitMon( Unit unit, int generation ) {
   UnitMon & unitMon = unitMons_.make( unit );
   unitMon.unit = unit;
   unitMon.shown = &published.unitMonitors[unit];
   unitMon.shown->generation = static_cast< std::uint32_t >( generation );
   for ( const Group group : inputs_.groupsOfUnit[unit] )
      if ( const Sequence< Intf > * const intfs = find( inputs_.groups, group ) )
         for ( const Intf intf : *intfs )
            startIntfMon( unitMon, intf );
   checkDrainedIntfsAndReport( unitMon );
   unitMon.initialized = true;
}

/// Its interfaces leave one by one, each as if it alone had left.
void Model::Rules::deleteUnitMon( Unit unit ) {
   UnitMon & unitMon = *unitMons_.find( unit );
   while ( !unitMon.monitored.empty() )
      monitoredDel( unitMon, unitMon.monitored.first() );
   notifyStageCompletion( unit, static_cast< int >( unitMon.shown->generation ), StageClass::exit );
   if ( !unitMon.shown->monitored.empty() || !unitMon.shown->drained.empty() )
      throw Unreachable( "a unit goes with interfaces that it counts as drained" );
   unitMons_.del( unit );
   published.unitMonitors.erase( unit );
}

void Model::Rules::startIntfMon( UnitMon & unitMon, Intf intf ) {
   if ( !isSupported( intf ) ) {
      count( numIntfMonIntfNotSupported );
      return;
   }
   const ProfilePointer profile = selectedProfile( intf );
   if ( !profile )
      throw Unreachable( "an interface of a unit has no profile" );
   if ( inputs_.links.count( intf ) == 0 ) {
      count( numIntfMonNoIntfStatus );
      return;
   }
   if ( !inputs_.isUp( intf ) ) {
      count( numIntfMonIntfOperNotUp );
      return;
   }
   IntfMon * mon = intfMons_.find( intf );
   if ( mon ) {
      handOver( *mon, profile );
   } else {
      const UnitInput * const input = inputs_.units.find( unitMon.unit );
      const bool passive = input && input->state == inMaintenance;
      if ( passive )
         count( numIntfMonInitialStatePassive );
      mon = &createIntfMon( intf, profile, passive ? MonState::underMaint : MonState::enterMaint );
   }
   if ( mon->shown->state == MonState::underMaint )
      drainedAdd( unitMon, intf );
   dependentAdd( *mon, unitMon.unit );
   monitoredAdd( unitMon, intf );
}

/// The profile may have been that of the unit which lets go, so it is looked up again.
void Model::Rules::stopIntfMon( UnitMon & unitMon, Intf intf ) {
   const Unit unit = unitMon.unit;
   if ( UnitPublished * const shown = find( published.units, unit ) )
      shown->violating.erase( intf );
   IntfMon * const mon = intfMons_.find( intf );
   if ( !mon )
      return;
   drainedDel( unitMon, intf );
   dependentDel( *mon, unit );
   const ProfilePointer profile = selectedProfile( intf );
   if ( profile && inputs_.isUp( intf ) )
      handOver( *mon, profile );
   else
      unApplyProfile( *mon );
   if ( mon->dependents.empty() ) {
      unApplyProfile( *mon );
      deleteIntfMon( intf );
   }
}

/// Only the numbers are compared. Reported whenever they are equal, not only the first time.
void Model::Rules::checkDrainedIntfsAndReport( const UnitMon & unitMon ) {
   const UnitMonitor & shown = *unitMon.shown;
   if ( shown.monitored.size() == shown.drained.size() )
      notifyStageCompletion( unitMon.unit, static_cast< int >( shown.generation ), StageClass::enter );
}

// ---- the two sets of interfaces of a unit. While the unit starts it does not listen to them.

void Model::Rules::monitoredAdd( UnitMon & unitMon, Intf intf ) {
   if ( !unitMon.shown->monitored.insert( intf ).second )
      return;
   unitMon.monitored.add( intf );
   decide( Decision::Kind::joined, intf, unitMon.unit );
   if ( unitMon.initialized )
      startIntfMon( unitMon, intf );
}

void Model::Rules::monitoredDel( UnitMon & unitMon, Intf intf ) {
   if ( unitMon.shown->monitored.erase( intf ) == 0 )
      return;
   unitMon.monitored.del( intf );
   decide( Decision::Kind::left, intf, unitMon.unit );
   if ( !unitMon.initialized )
      return;
   stopIntfMon( unitMon, intf );
   checkDrainedIntfsAndReport( unitMon );
}

void Model::Rules::drainedAdd( UnitMon & unitMon, Intf intf ) {
   if ( !unitMon.shown->drained.insert( intf ).second )
      return;
   decide( Decision::Kind::drained, intf, unitMon.unit );
   if ( unitMon.initialized )
      checkDrainedIntfsAndReport( unitMon );
}

void Model::Rules::drainedDel( UnitMon & unitMon, Intf intf ) {
   if ( unitMon.shown->drained.erase( intf ) != 0 )
      decide( Decision::Kind::notDrained, intf, unitMon.unit );
}

} // namespace Reference
