#include "Tests/Plugin/Situations.h"

#include <algorithm>
#include <cmath>

namespace Tests {

using namespace Reference;

namespace {
constexpr std::size_t numIntfMonProfileDelete = 17;
constexpr std::size_t numIntfMonPendingProfileResolved = 18;
/// Seconds between two samples of an interface that is waited for.
constexpr double period = 5;
} // namespace

const char * Situations::name( What what ) {
   static constexpr const char * names[] = {
      "a drain on the last possible sample",
      "a shutdown by the longest wait and one by drain in the same tick",
      "an enter while a shared interface is shut",
      "an exit during an enter",
      "a profile deleted in use",
      "a pending profile resolved",
      "a run over the backlog that pauses",
      "a bookmark that wraps",
      "a recorded state adopted",
      "an interface restored as stopped",
      "a spike",
      "a violation in two units at once" };
   static_assert( std::size( names ) == count );
   return names[what];
}

std::string Situations::neverCounted() const {
   std::string result;
   for ( std::size_t i = 0; i < counterCount; ++i )
      if ( !counted_[i] )
         result += ( result.empty() ? "" : " " ) + std::to_string( i );
   return result;
}

void Situations::before( const Event & event, const Published & published ) {
   switch ( event.kind ) {
   case EventKind::crash:
   case EventKind::unload:
      for ( std::size_t i = 0; i < counterCount; ++i )
         counted_[i] = counted_[i] || published.counters[i] != 0;
      break;
   case EventKind::start:
      records_ = published.records;
      break;
   case EventKind::time:
      units_ = published.units;
      spikes_ = published.spikes.size();
      break;
   case EventKind::turn:
      backlog_ = published.backlog;
      bookmark_ = published.bookmark;
      break;
   case EventKind::stage: {
      const auto monitor = published.unitMonitors.find( event.unit );
      wasIncomplete_ = monitor != published.unitMonitors.end() &&
                       monitor->second.monitored.size() != monitor->second.drained.size();
      break;
   }
   case EventKind::profileMade:
   case EventKind::profileGone:
      counters_ = published.counters;
      break;
   default:
      break;
   }
}

void Situations::after(
   const Event & event, const Written & written, const Published & published,
   const std::vector< Decision > & decisions ) {
   switch ( event.kind ) {
   case EventKind::start:
      lookAtStart( published );
      break;
   case EventKind::time:
      lookAtShutdowns( written, published, decisions );
      lookAtViolations( published );
      break;
   case EventKind::turn:
      lookAtBacklog( published );
      break;
   case EventKind::stage:
      lookAtStage( event, written, published );
      break;
   case EventKind::profileMade:
   case EventKind::profileGone:
      if ( published.counters[numIntfMonProfileDelete] > counters_[numIntfMonProfileDelete] )
         saw( profileDeletedInUse );
      if (
         published.counters[numIntfMonPendingProfileResolved] > counters_[numIntfMonPendingProfileResolved] )
         saw( pendingProfileResolved );
      break;
   default:
      break;
   }
}

void Situations::lookAtShutdowns(
   const Written & written, const Published & published, const std::vector< Decision > & decisions ) {
   std::set< double > drainedAt, delayedAt;
   for ( const Decision & decision : decisions ) {
      if ( decision.kind != Decision::Kind::under )
         continue;
      const auto found = published.records.find( decision.who );
      if ( found == published.records.end() )
         continue;
      const Record & record = found->second;
      const auto profile = written.profiles.find( record.profile );
      if ( profile == written.profiles.end() || !profile->second.shutdown )
         continue;
      const auto & [threshold, loadInterval, shutdown, maxDelay] = profile->second;
      const bool drained =
         record.consecutiveDrained > 0 && record.consecutiveDrained * period >= loadInterval;
      const double elapsed = decision.time - record.startTime;
      ( drained ? drainedAt : delayedAt ).insert( decision.time );
      if ( drained && elapsed < maxDelay && maxDelay <= elapsed + period )
         saw( drainOnLastSample );
   }
   for ( const double time : drainedAt )
      if ( delayedAt.contains( time ) )
         saw( drainAndMaxDelay );
}

void Situations::lookAtViolations( const Published & published ) {
   if ( published.spikes.size() > spikes_ )
      saw( spike );
   std::map< Intf, int > fresh;
   for ( const auto & [name, unit] : published.units )
      for ( const Intf intf : unit.violating )
         fresh[intf] += !units_.at( name ).violating.contains( intf );
   for ( const auto & [intf, units] : fresh )
      if ( units > 1 )
         saw( violationInTwoUnits );
}

void Situations::lookAtBacklog( const Published & published ) {
   if ( published.bookmark != none )
      saw( runPaused );
   if ( bookmark_ == none )
      return;
   // What stood behind the bookmark is done, and some of what stood before it.
   const auto behind = backlog_.lower_bound( bookmark_ );
   const auto waits = [&]( Intf intf ) { return published.backlog.contains( intf ); };
   if (
      behind != backlog_.end() && std::none_of( behind, backlog_.end(), waits ) &&
      !std::all_of( backlog_.begin(), behind, waits ) )
      saw( bookmarkWrapped );
}

void Situations::lookAtStart( const Published & published ) {
   for ( const auto & [intf, old] : records_ ) {
      const auto record = published.records.find( intf );
      if (
         old.state == MonState::idle || record == published.records.end() ||
         record->second.startTime != old.startTime )
         continue;
      saw( recordAdopted );
      const auto monitor = published.intfMonitors.find( intf );
      if (
         old.state == MonState::stopped && monitor != published.intfMonitors.end() &&
         monitor->second.state == MonState::stopped )
         saw( restoredAsStopped );
   }
}

void Situations::lookAtStage( const Event & event, const Written & written, const Published & published ) {
   if ( event.other != 1 )
      return;
   if ( event.stageClass == StageClass::exit ) {
      if ( wasIncomplete_ && !published.unitMonitors.contains( event.unit ) )
         saw( exitDuringEnter );
      return;
   }
   if ( !published.unitMonitors.contains( event.unit ) )
      return;
   for ( const Intf intf : written.members( event.unit ) ) {
      const auto monitor = published.intfMonitors.find( intf );
      if ( !published.shut.contains( intf ) || monitor == published.intfMonitors.end() )
         continue;
      const auto & units = monitor->second.dependents;
      if ( units.size() > units.count( event.unit ) ) {
         saw( enterWhileSharedShut );
         return;
      }
   }
}

} // namespace Tests
