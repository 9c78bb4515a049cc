#include "Tests/Reference/Rules.h"

namespace Reference {

namespace {
constexpr double enteringPeriod = 5;
constexpr double underPeriod = 10;
} // namespace

/// Takes over the record that an earlier run has left, with the state that it says, or makes one.
Model::Rules::IntfMon &
Model::Rules::createIntfMon( Intf intf, const ProfilePointer & profile, MonState initialState ) {
   IntfMon & mon = intfMons_.make( intf );
   mon.intf = intf;
   mon.profile = profile;
   mon.shown = &published.intfMonitors[intf];
   mon.shown->initialState = initialState;
   mon.shown->profile = profile->name;
   const auto [at, made] = published.records.try_emplace( intf );
   mon.record = &at->second;
   if ( made )
      mon.record->startTime = now_;
   mon.record->profile = profile->name;
   mon.record->stale = false;
   sample( mon );
   mon.baselineTaken = true;
   const MonState recorded = mon.record->state;
   const MonState state = recorded == MonState::idle ? initialState : recorded;
   const bool isShut = decideShutdown( mon, state == MonState::underMaint );
   enterState( mon, isShut ? MonState::underMaint : state );
   return mon;
}

/// The record goes with its monitor.
void Model::Rules::deleteIntfMon( Intf intf ) {
   disarmTimer( *intfMons_.find( intf ) );
   intfMons_.del( intf );
   published.intfMonitors.erase( intf );
   published.records.erase( intf );
   published.entering.erase( intf );
   published.under.erase( intf );
   published.spikes.erase( intf );
}

/// An interface that is stopped stays in the sets in which it was.
void Model::Rules::enterState( IntfMon & mon, MonState state ) {
   if ( mon.shown->state == state )
      return;
   mon.shown->state = state;
   if ( mon.record->state != state ) {
      mon.record->state = state;
      mon.record->stateTime = now_;
      if ( state == MonState::stopped )
         decide( Decision::Kind::stopped, mon.intf );
   }
   setMonitoringTimer( mon );
   if ( state == MonState::enterMaint && published.entering.insert( mon.intf ).second )
      decide( Decision::Kind::entering, mon.intf );
   if ( state == MonState::underMaint ) {
      published.entering.erase( mon.intf );
      if ( published.under.insert( mon.intf ).second )
         decide( Decision::Kind::under, mon.intf );
      if ( mon.record->spike )
         published.spikes.insert( mon.intf );
   }
}

/// Nothing is to be seen on an interface that is shut.
void Model::Rules::setMonitoringTimer( IntfMon & mon ) {
   const MonState state = mon.shown->state;
   if ( state == MonState::enterMaint )
      setTimer( mon, now_ + enteringPeriod );
   else if ( state == MonState::underMaint && published.shut.count( mon.intf ) == 0 )
      setTimer( mon, now_ + underPeriod );
   else if ( state != MonState::idle )
      disarmTimer( mon );
}

// ---- samples

void Model::Rules::handleTimeout( IntfMon & mon ) {
   sample( mon );
   ++mon.record->totalSamples;
   // Without a profile nothing can be decided until one arrives.
   if ( !mon.profile )
      setMonitoringTimer( mon );
   else if ( mon.shown->state == MonState::enterMaint )
      handleEnterMaintSample( mon );
   else if ( mon.shown->state == MonState::underMaint )
      handleUnderMaintSample( mon );
   else
      throw Unreachable( "a timer fires for an interface that is not watched" );
}

/// Whether to shut it is decided at every sample, quiet or not. The units are told before the state is published.
void Model::Rules::handleEnterMaintSample( IntfMon & mon ) {
   countSample( mon );
   const bool drained = hasTrafficDrained( mon );
   const bool isShut = decideShutdown( mon, drained );
   if ( !drained && !isShut ) {
      setMonitoringTimer( mon );
      return;
   }
   notifyDependentUnits( mon );
   enterState( mon, MonState::underMaint );
}

/// A spike is remembered for good.
void Model::Rules::handleUnderMaintSample( IntfMon & mon ) {
   countSample( mon );
   const bool below = isTrafficBelowThreshold( mon );
   if ( !below ) {
      mon.record->spike = true;
      published.spikes.insert( mon.intf );
   }
   updateDependentUnitStatus( mon, below );
   setMonitoringTimer( mon );
}

/// In both directions; a rate equal to the threshold is not below it, and neither is one that is not a number.
bool Model::Rules::isTrafficBelowThreshold( const IntfMon & mon ) const {
   const double threshold = mon.profile->thresholdKbps * 1000.0;
   return threshold > mon.record->cur.out && threshold > mon.record->cur.in;
}

/// The run of quiet samples is kept as it is under maintenance.
void Model::Rules::countSample( IntfMon & mon ) {
   Record & record = *mon.record;
   const bool below = isTrafficBelowThreshold( mon );
   if ( mon.shown->state != MonState::enterMaint ) {
      ++( below ? record.belowPost : record.abovePost );
   } else if ( below ) {
      ++record.consecutiveDrained;
      ++record.belowPre;
   } else {
      record.consecutiveDrained = 0;
      ++record.abovePre;
   }
}

/// Each quiet sample of the run stands for one period.
bool Model::Rules::hasTrafficDrained( const IntfMon & mon ) const {
   if ( !isTrafficBelowThreshold( mon ) )
      return false;
   const double quiet = mon.record->consecutiveDrained * enteringPeriod;
   return static_cast< std::uint32_t >( quiet ) >= mon.profile->loadInterval;
}

// ---- shutting

/// True if the interface is shut now. One that need not be is released.
bool Model::Rules::decideShutdown( IntfMon & mon, bool drained ) {
   if ( !mon.profile )
      return false;
   const double maxDelay = mon.profile->maxDelay;
   const double elapsed = now_ - mon.record->startTime;
   if ( mon.profile->shutdown && ( drained || maxDelay == 0 || elapsed >= maxDelay ) ) {
      shut( mon.intf );
      return true;
   }
   release( mon.intf );
   return false;
}

void Model::Rules::shut( Intf intf ) {
   const auto [at, made] = published.shut.emplace( intf, now_ );
   if ( !made && at->second == now_ )
      return;
   at->second = now_;
   decide( Decision::Kind::shut, intf );
}

void Model::Rules::release( Intf intf ) {
   if ( published.shut.erase( intf ) != 0 )
      decide( Decision::Kind::released, intf );
}

/// A unit lets go of the interface, and with it of what was done to it, also for the units that still hold it.
void Model::Rules::unApplyProfile( IntfMon & mon ) {
   enterState( mon, MonState::stopped );
   if ( mon.profile && mon.profile->shutdown )
      release( mon.intf );
}

// ---- the units that depend on it

void Model::Rules::notifyDependentUnits( const IntfMon & mon ) {
   for ( const Unit unit : mon.dependents )
      if ( UnitMon * const unitMon = unitMons_.find( unit ) )
         drainedAdd( *unitMon, mon.intf );
}

/// Every sample above the threshold counts, not every spike.
void Model::Rules::updateDependentUnitStatus( const IntfMon & mon, bool below ) {
   for ( const Unit unit : mon.dependents ) {
      const UnitInput * const input = inputs_.units.find( unit );
      if ( !input || input->state != 3 )
         continue;
      UnitPublished & shown = published.units[unit];
      if ( below ) {
         shown.violating.erase( mon.intf );
      } else {
         shown.violating.insert( mon.intf );
         ++shown.totalViolations;
      }
   }
}

} // namespace Reference
