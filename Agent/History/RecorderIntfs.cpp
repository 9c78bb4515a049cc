#include "Agent/History/Recorder.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace Agent {

using Maintenance::Profile::ProfileType;

namespace {

/// From one sample of an interface that has not drained to the next.
constexpr unsigned secondsPerSample = 5;

/// Whether an interface has been quiet for as long as its profile asks for.
bool wasQuiet( const Maintenance::MonIntfStatus & monIntf, const HistoryProfile & profile ) {
   const auto samples = monIntf.numConsecutiveDrainedSamples();
   return samples > 0 && Vel::U64( samples ) * secondsPerSample >= profile.loadInterval;
}

/// The key to leave out of too many: the first quarter is kept, and the latest ones.
template < class Range >
auto tooMuch( const Range & range, Vel::U32 most ) {
   auto it = range.begin();
   for ( Vel::U32 kept = 0; kept < most / 4; ++kept )
      ++it;
   return ( *it ).first;
}

template < class Range >
auto lastOf( const Range & range ) {
   std::vector< double > keys;
   for ( const auto & [key, value] : range )
      keys.push_back( key );
   return keys.back();
}

} // namespace

/// Each once, although an interface may be in several groups of a unit. Hardly any has more than a few.
Recorder::UnitNames Recorder::unitsOf( const Wire::IntfId & intf ) const {
   UnitNames result;
   if ( const auto * const groups = model_.intfToGroupDir->intfToGroup( intf ) )
      for ( const auto & [group, none] : groups->groupRange() )
         if ( const auto * const units = model_.groupToUnitDir->groupToUnit( group ) )
            for ( const auto & [unit, none2] : units->unitNameRange() )
               if ( std::none_of( result.begin(), result.end(), [&unit = unit]( const Vel::String * name ) {
                       return *name == unit;
                    } ) )
                  result.push_back( &unit );
   return result;
}

HistoryProfile Recorder::profileOf( const Wire::IntfId & intf ) const {
   const auto * const groups = model_.intfToGroupDir->intfToGroup( intf );
   if ( !groups )
      return {};
   const Vel::String & selected = groups->selectedProfileKey( ProfileType::interfaceProfile ).name;
   const auto * const profile = model_.intfProfileStatusDir->status(
      selected == Maintenance::Profile::defaultProfileName ? model_.defaultIntfProfile->profileName()
                                                           : selected );
   if ( !profile )
      return {};
   return {
      profile->name(), profile->drainWatchThresholdInKbps() * 1000, profile->drainWatchLoadInterval(),
      profile->shutdown(), profile->shutdownMaxDelay() };
}

std::vector< Recorder::Entry > Recorder::entriesOf( const Wire::IntfId & intf ) {
   std::vector< Entry > result;
   if ( open_.empty() )
      return result;
   const UnitNames units = unitsOf( intf );
   if ( const auto it = entries_.find( intf ); it != entries_.end() )
      for ( HistoryRecord * const record : it->second ) {
         const auto isOf = [&]( const Vel::String * unit ) { return *unit == record->unitName(); };
         if ( std::none_of( units.begin(), units.end(), isOf ) )
            release( *record->intf( intf ) );
      }
   forget( intf );
   const MonIntfStatus * const monIntf = model_.monIntfStatusDir->monIntfStatus( intf );
   for ( const Vel::String * const unit : units ) {
      HistoryRecord * const record = recordOf( *unit );
      HistoryIntf * entry = record ? record->intf( intf ) : nullptr;
      if ( !entry || entry->released() > 0 )
         entry = record && monIntf && record->exitBegan() == 0 ? joined( *record, *monIntf ) : nullptr;
      if ( entry )
         result.push_back( { *record, *entry } );
   }
   return result;
}

void Recorder::release( HistoryIntf & entry ) const {
   if ( entry.released() == 0 )
      entry.releasedIs( now() );
   endSpike( entry, now() );
}

/// A spike is over when nobody watches any more, whatever the interface carries.
void Recorder::endSpike( HistoryIntf & entry, double time ) {
   if ( !entry.spiking() )
      return;
   const double last = lastOf( entry.spikeRange() );
   HistorySpike spike = *entry.spike( last );
   spike.ended = std::max( last, time );
   entry.spikeIs( last, spike );
   entry.spikingIs( false );
}

void Recorder::forget( const Wire::IntfId & intf ) {
   const auto it = entries_.find( intf );
   if ( it == entries_.end() )
      return;
   std::erase_if(
      it->second, [&]( const HistoryRecord * record ) { return isOver( *record->intf( intf ) ); } );
   if ( it->second.empty() )
      entries_.erase( it );
}

HistoryIntf * Recorder::joined( HistoryRecord & record, const MonIntfStatus & monIntf ) {
   const Wire::IntfId intf = monIntf.intfId();
   if ( !record.intf( intf ) && record.intfs() >= HistoryRecord::mostIntfs ) {
      record.leftOutIntfIs( intf );
      return nullptr;
   }
   HistoryIntf & entry = *record.intfIs( intf );
   std::vector< HistoryRecord * > & records = entries_[intf];
   if ( std::find( records.begin(), records.end(), &record ) == records.end() ) {
      const auto isOlder = []( const HistoryRecord * a, const HistoryRecord * b ) {
         return a->id() < b->id();
      };
      records.insert( std::upper_bound( records.begin(), records.end(), &record, isOlder ), &record );
   }
   if ( entry.began() == 0 )
      entry.beganIs( now() );
   entry.releasedIs( 0 );
   entry.drainedIs( 0 );
   entry.forcedIs( false );
   entry.shutIs( 0 );
   entry.raisedIs( 0 );
   takeSample( entry, monIntf );
   takeCause( entry );
   takeDrained( entry, monIntf );
   takeReason( entry );
   return &entry;
}

// ---- what happens

void Recorder::handleMonIntf( const Wire::IntfId & intf ) {
   monIntfs_.erase( intf );
   const MonIntfStatus * const monIntf = model_.monIntfStatusDir->monIntfStatus( intf );
   if ( monIntf ) {
      monIntfs_[intf].is( Vel::Ptr< const MonIntfStatus >( monIntf ), this ).hasNotificationActiveIs( true );
      entriesOf( intf );
      return;
   }
   if ( const auto it = entries_.find( intf ); it != entries_.end() )
      for ( HistoryRecord * const record : it->second )
         release( *record->intf( intf ) );
   forget( intf );
}

void Recorder::handleInsight( const Wire::IntfId & intf ) {
   insights_.erase( intf );
   if ( const IntfInsight * const insight = model_.insightDir->intf( intf ) )
      insights_[intf].is( Vel::Ptr< const IntfInsight >( insight ), this ).hasNotificationActiveIs( true );
   handleReason( intf );
}

void Recorder::handleReason( const Wire::IntfId & intf ) {
   for ( const Entry & entry : entriesOf( intf ) )
      takeReason( entry.intf );
}

/// A link may be let go of after the end of its monitoring: entries that are released wait for that.
void Recorder::handleCause( const Wire::IntfId & intf ) {
   entriesOf( intf );
   if ( const auto it = entries_.find( intf ); it != entries_.end() )
      for ( HistoryRecord * const record : it->second )
         takeCause( *record->intf( intf ) );
   forget( intf );
}

bool Recorder::forced( const Wire::IntfId & intf ) const {
   if ( const auto it = entries_.find( intf ); it != entries_.end() )
      for ( const HistoryRecord * const record : it->second )
         if ( const HistoryIntf * const entry = record->intf( intf );
              entry->shut() > 0 && entry->raised() == 0 )
            return entry->forced();
   // Nothing is written down of it.
   const MonIntfStatus * const monIntf = model_.monIntfStatusDir->monIntfStatus( intf );
   return !monIntf || !wasQuiet( *monIntf, profileOf( intf ) );
}

void Recorder::handleMonState( const MonIntfStatus & monIntf ) {
   for ( const Entry & entry : entriesOf( monIntf.intfId() ) )
      takeDrained( entry.intf, monIntf );
}

void Recorder::handleSample( const MonIntfStatus & monIntf ) {
   for ( const Entry & entry : entriesOf( monIntf.intfId() ) )
      takeSample( entry.intf, monIntf );
}

void Recorder::handleSampleUnderMaint( const MonIntfStatus & monIntf, bool above ) {
   for ( const Entry & entry : entriesOf( monIntf.intfId() ) ) {
      takePeak( entry, monIntf );
      takeSpike( entry.intf, above, largerRate( monIntf.curRates() ) );
   }
}

// ---- one entry

void Recorder::takeSample( HistoryIntf & entry, const MonIntfStatus & monIntf ) const {
   if ( entry.firstRates().sampleTime == 0 && monIntf.totalSamples() > 0 )
      entry.firstRatesIs( monIntf.curRates() );
   takeProfile( entry );
}

void Recorder::takeProfile( HistoryIntf & entry ) const {
   const HistoryProfile profile = profileOf( entry.intfId() );
   if ( profile.name.empty() || profile == entry.profile() )
      return;
   if ( !entry.profile().name.empty() )
      entry.profileChangedIs( now() );
   entry.profileIs( profile );
}

void Recorder::takePeak( const Entry & entry, const MonIntfStatus & monIntf ) {
   const Wire::IntfId intf = monIntf.intfId();
   const Interface::IntfRates & kept = entry.intf.peakRates();
   HistoryPeaks & peaks = *model_.peaksDir->peaksIs( entry.record.id() );
   const auto * const peak = peaks.peak( intf );
   const Interface::IntfRates & before = peak ? higherOf( kept, *peak ) : kept;
   if ( &higherOf( before, monIntf.curRates() ) == &before )
      return;
   peaks.peakIs( intf, monIntf.curRates() );
   peaksToKeep_.emplace( entry.record.id(), intf );
}

void Recorder::takeSpike( HistoryIntf & entry, bool above, double bps ) const {
   if ( above && !entry.spiking() ) {
      entry.totalSpikesInc( 1 );
      entry.spikeIs( now(), { 0, bps } );
      if ( entry.spikes() > HistoryIntf::mostSpikes )
         entry.spikeDel( tooMuch( entry.spikeRange(), HistoryIntf::mostSpikes ) );
      entry.spikingIs( true );
   } else if ( above ) {
      const double last = lastOf( entry.spikeRange() );
      HistorySpike spike = *entry.spike( last );
      spike.peakBps = std::max( spike.peakBps, bps );
      entry.spikeIs( last, spike );
   } else
      endSpike( entry, now() );
}

void Recorder::takeReason( HistoryIntf & entry ) const {
   const IntfInsight * const insight = model_.insightDir->intf( entry.intfId() );
   // Before it is written the first time there is nothing that holds.
   if ( !insight || insight->since() == 0 )
      return;
   const MonIntfStatus * const monIntf = model_.monIntfStatusDir->monIntfStatus( entry.intfId() );
   const double since = std::max( insight->since(), entry.began() );
   const double bps = monIntf && monIntf->totalSamples() > 0 ? largerRate( monIntf->curRates() ) : -1;
   if ( entry.reasons() > 0 ) {
      const double last = lastOf( entry.reasonRange() );
      // The time is written before the reason, so what has this time is replaced.
      if ( last > since || entry.reason( last )->reason == insight->reason() )
         return;
   }
   entry.reasonIs( since, { insight->reason(), bps } );
   if ( entry.reasons() > HistoryIntf::mostReasons ) {
      entry.reasonDel( tooMuch( entry.reasonRange(), HistoryIntf::mostReasons ) );
      entry.reasonsLeftOutInc( 1 );
   }
}

void Recorder::takeDrained( HistoryIntf & entry, const MonIntfStatus & monIntf ) const {
   if ( monIntf.state() != Maintenance::monIntfStateUnderMaint || entry.drained() > 0 || entry.forced() )
      return;
   takeProfile( entry );
   if ( wasQuiet( monIntf, entry.profile() ) || !isShut( entry.intfId() ) )
      entry.drainedIs( now() );
   else
      entry.forcedIs( true );
}

/// What is released by hand stays so, whatever is decided: an entry goes in the turn in which it came.
bool Recorder::isShut( const Wire::IntfId & intf ) const {
   return model_.cause->intfStatus( intf ) && !model_.journal->released( intf );
}

/// A decision to shut comes before the state that it leads to.
void Recorder::takeCause( HistoryIntf & entry ) const {
   if ( !isShut( entry.intfId() ) ) {
      if ( entry.shut() > 0 && entry.raised() == 0 )
         entry.raisedIs( now() );
      return;
   }
   if ( entry.shut() > 0 && entry.raised() == 0 )
      return;
   entry.raisedIs( 0 );
   entry.shutIs( now() );
   // It may have been changed since the last sample, and be why.
   takeProfile( entry );
   const MonIntfStatus * const monIntf = model_.monIntfStatusDir->monIntfStatus( entry.intfId() );
   entry.forcedIs( entry.drained() == 0 && !( monIntf && wasQuiet( *monIntf, entry.profile() ) ) );
}

void Recorder::takeDrift( HistoryIntf & entry ) const {
   const std::string drift = hooks_.drift( entry.intfId() );
   const Vel::String what = drift.empty() ? "none" : drift;
   if ( what == ( entry.drift().empty() ? "none" : entry.drift() ) )
      return;
   entry.driftIs( what );
   entry.driftChangeIs( now(), what );
   if ( entry.driftChanges() > HistoryIntf::mostDrifts ) {
      entry.driftChangeDel( tooMuch( entry.driftChangeRange(), HistoryIntf::mostDrifts ) );
      entry.driftsLeftOutInc( 1 );
   }
}

} // namespace Agent
