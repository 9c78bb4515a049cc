#include "Tests/Plugin/DrivenPlugin.h"
#include "Tests/Plugin/PluginNames.h"

/// What is published, in the form of the event log. Almost every event leaves almost everything as it is, so values are
/// stored over those of the event before and containers are made anew only where their keys differ.
namespace Tests {

using Reference::Completion;
using Reference::Intf;
using Reference::MonState;
using Reference::Published;
using Reference::StageClass;
using Reference::Unit;

namespace {

Reference::Rates ratesOf( const Interface::IntfRates & rates ) {
   return { rates.inBitsRate, rates.outBitsRate, rates.sampleTime };
}

template < class Range, class Number >
void readSet( const Range & range, Vel::U32 size, std::set< int > & set, Number number ) {
   if ( size == 0 && set.empty() )
      return;
   bool same = set.size() == size;
   for ( const auto & [key, value] : range )
      same = same && set.contains( number( key ) );
   if ( same )
      return;
   set.clear();
   for ( const auto & [key, value] : range )
      set.insert( number( key ) );
}

int intfOf( const Wire::IntfId & intf ) { return numberOf( intf.name() ); }

/// Takes out what the entities have no longer. `size` entries have just been stored.
template < class Map, class Has >
void prune( Map & map, Vel::U32 size, Has has ) {
   if ( map.size() != size )
      std::erase_if( map, [&]( const auto & entry ) { return !has( entry.first ); } );
}

} // namespace

void DrivenPlugin::readStatus() {
   const auto & dir = *rig_.monIntfStatusDir;
   for ( const auto & [intf, r] : dir.monIntfStatusRange() ) {
      Reference::Record & record = published_.records[intfOf( intf )];
      record.profile = profileOf( r->profileName() );
      record.startTime = r->startTime();
      record.cur = ratesOf( r->curRates() );
      record.prev = ratesOf( r->prevRates() );
      record.lastSampleTime = r->lastSampleTime();
      record.totalSamples = r->totalSamples();
      record.consecutiveDrained = r->numConsecutiveDrainedSamples();
      record.abovePre = r->numSamplesAboveThresholdPreMaint();
      record.belowPre = r->numSamplesBelowThresholdPreMaint();
      record.abovePost = r->numSamplesAboveThresholdPostMaint();
      record.belowPost = r->numSamplesBelowThresholdPostMaint();
      record.state = static_cast< MonState >( r->state() );
      record.stateTime = r->stateTime();
      record.spike = r->spikeUnderMaint();
      record.stale = r->stale();
   }
   prune( published_.records, dir.monIntfStatuss(), [&]( Intf i ) { return dir.monIntfStatus( id( i ) ); } );
   readSet( dir.monIntfEnterMaintRange(), dir.monIntfEnterMaints(), published_.entering, intfOf );
   readSet( dir.monIntfUnderMaintRange(), dir.monIntfUnderMaints(), published_.under, intfOf );
   readSet( dir.monIntfSpikeUnderMaintRange(), dir.monIntfSpikeUnderMaints(), published_.spikes, intfOf );
   for ( const auto & [intf, since] : rig_.cause->intfStatusRange() )
      published_.shut[intfOf( intf )] = since;
   prune( published_.shut, rig_.cause->intfStatuss(), [&]( Intf i ) {
      return rig_.cause->intfStatus( id( i ) );
   } );
}

void DrivenPlugin::readUnits() {
   for ( const auto & [name, u] : rig_.unitStatusDir->statusRange() ) {
      Reference::UnitPublished & unit = published_.units[numberOf( name )];
      unit.aggregateIn = u->aggTrafficRate().inRate;
      unit.aggregateOut = u->aggTrafficRate().outRate;
      unit.aggregateTime = u->aggTrafficRate().time;
      readSet(
         u->intfsViolatingTrafficThresholdRange(), u->intfsViolatingTrafficThresholds(), unit.violating,
         intfOf );
      unit.totalViolations = u->totalIntfTrafficViolations();
   }
   prune( published_.units, rig_.unitStatusDir->statuss(), [&]( Unit u ) {
      return rig_.unitStatusDir->status( unitName( u ) );
   } );
}

void DrivenPlugin::readComplete() {
   std::size_t found = 0;
   bool same = true;
   const auto walk = [&]( auto visit ) {
      for ( const StageClass stageClass : { StageClass::enter, StageClass::exit } ) {
         const auto & stages = stageClass == StageClass::enter ? rig_.enterClass : rig_.exitClass;
         for ( const auto & [key, value] : stages.agentStatus->completeRange() ) {
            Maintenance::Unit::StageMgrInstKey instance;
            instance.instanceNameIs( key.instanceName );
            visit( Completion{
               stageClass, numberOf( instance.unitName() ), static_cast< int >( instance.genId() ) } );
         }
      }
   };
   walk( [&]( const Completion & completion ) {
      ++found;
      same = same && published_.complete.contains( completion );
   } );
   if ( same && found == published_.complete.size() )
      return;
   published_.complete.clear();
   walk( [&]( const Completion & completion ) { published_.complete.insert( completion ); } );
}

void DrivenPlugin::readMonitors() {
   if ( !rig_.root ) {
      published_.unitMonitors.clear();
      published_.intfMonitors.clear();
      published_.backlog.clear();
      published_.bookmark = Reference::none;
      published_.counters = {};
      return;
   }
   auto & root = *rig_.root;
   for ( const auto & [name, u] : root.unitMonRange() ) {
      Reference::UnitMonitor & unit = published_.unitMonitors[numberOf( name )];
      unit.generation = u->genId();
      readSet( u->monIntf()->intfRange(), u->monIntf()->intfs(), unit.monitored, intfOf );
      readSet( u->drainedIntf()->intfRange(), u->drainedIntf()->intfs(), unit.drained, intfOf );
   }
   prune( published_.unitMonitors, root.unitMons(), [&]( Unit u ) { return root.unitMon( unitName( u ) ); } );
   for ( const auto & [intf, m] : root.intfMonRange() ) {
      Reference::IntfMonitor & monitor = published_.intfMonitors[intfOf( intf )];
      monitor.state = static_cast< MonState >( m->state() );
      monitor.initialState = static_cast< MonState >( m->initialState() );
      monitor.profile = m->intfProfile() ? profileOf( m->intfProfile()->name() ) : Reference::none;
      readSet(
         m->monitoredIntf()->dependentUnitRange(), m->monitoredIntf()->dependentUnits(), monitor.dependents,
         numberOf );
      const double timer = m->timeMin();
      monitor.timer = timer == Cog::Timer::never ? std::nullopt : std::optional( timer );
   }
   prune( published_.intfMonitors, root.intfMons(), [&]( Intf i ) { return root.intfMon( id( i ) ); } );
   const auto & tracker = *root.intfStatusSm();
   readSet(
      tracker.backlog(), static_cast< Vel::U32 >( tracker.backlog().size() ), published_.backlog, intfOf );
   published_.bookmark = tracker.bookmark().empty() ? Reference::none : intfOf( tracker.bookmark() );
   for ( std::size_t i = 0; i < counts_.size(); ++i )
      published_.counters[i] = *counts_[i];
}

} // namespace Tests
