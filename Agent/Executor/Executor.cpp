#include "Agent/Executor/Executor.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace Agent {

Executor::Executor(
   Vel::Ptr< Cog::Scheduler > scheduler, Vel::Ptr< Cog::TimerWheel > wheel,
   Vel::Ptr< DataPlane::Switch > theSwitch, Model model, Hooks hooks )
   : scheduler_( std::move( scheduler ) ),
     switch_( std::move( theSwitch ) ),
     model_( std::move( model ) ),
     hooks_( std::move( hooks ) ),
     drifts_( model_.journal, { hooks_.isUnderWay, hooks_.noted } ),
     self_( std::make_shared< Executor * >( this ) ) {
   causeReactor_.is( model_.cause, this ).hasNotificationActiveIs( true );
   wakeup_.is( wheel, this ).hasNotificationActiveIs( true );
}

Executor::~Executor() {
   *self_ = nullptr;
   switch_->stop();
}

// ---- start

DataPlane::Outcome Executor::start() {
   const DataPlane::Outcome outcome = switch_->start( *this );
   if ( !outcome.ok() )
      return outcome;
   countersFresh();
   // A switch that was started again has forgotten what we asked for: what is held is asked for anew. A link that has
   // gone meanwhile is held by nobody.
   std::vector< Wire::IntfId > forgotten;
   for ( const auto & [intf, entry] : model_.journal->entryRange() ) {
      const auto known = known_.find( intf );
      if (
         entry->bootId() != switch_->bootId() || known == known_.end() ||
         known->second.link.ifIndex != entry->ifIndex() )
         forgotten.push_back( intf );
   }
   for ( const Wire::IntfId & intf : forgotten ) {
      model_.journal->entryDel( intf );
      if ( const auto known = known_.find( intf ); known != known_.end() )
         known->second.raised = false;
   }
   bootNote();
   leftStart();
   findDrift();
   for ( const auto & [intf, entry] : model_.journal->entryRange() )
      runSoon( intf );
   for ( const auto & [intf, time] : model_.cause->intfStatusRange() )
      runSoon( intf );
   for ( const auto & [intf, known] : known_ )
      publish( intf );
   return outcome;
}

/// The machine sets its links up when it starts, some of them when the agent runs already.
void Executor::bootNote() {
   if ( model_.journal->bootId() == switch_->bootId() )
      return;
   const bool isFirst = model_.journal->bootId().empty();
   model_.journal->awaitedDelAll();
   for ( const auto & [intf, time] : model_.cause->intfStatusRange() )
      if ( !isFirst ) {
         model_.journal->awaitedIs( intf );
         // It was shown before it was known to be one of those.
         model_.allIntfStatusDir->intfStatusDel( intf );
      }
   model_.journal->bootIdIs( switch_->bootId() );
}

/// What others have done while there was no agent.
void Executor::findDrift() {
   drifts_.start( [this]( const LoweredLink & lowered ) {
      const auto known = known_.find( lowered.intf() );
      return known != known_.end() && !known->second.link.adminUp &&
             known->second.link.ifIndex == lowered.ifIndex() && lowered.bootId() == switch_->bootId();
   } );
   changesMayBeMissed_ = true;
   for ( auto & [intf, known] : known_ ) {
      LinkJournalEntry * const entry = model_.journal->entry( intf );
      if ( entry && ( known.link.adminUp ? entry->acknowledged() : entry->restoring() ) )
         adminUpHasChanged( known );
      else if ( entry && entry->raised() && !known.link.adminUp && !follows( known, entry ) )
         entry->raisedIs( false ); // somebody has set it down again
      else if (
         !entry && !known.link.adminUp && hooks_.isMonitored( intf ) && !model_.journal->awaited( intf ) &&
         !follows( known, nullptr ) )
         drifts_.foundDown( known.link, switch_->bootId() );
   }
   changesMayBeMissed_ = false;
}

// ---- what the switch tells

void Executor::linkIs( const DataPlane::Link & link ) {
   Known & known = known_[link.intf];
   bridgesToNote_ |=
      link.intf.kind() == Wire::IntfId::Kind::cpu || link.intf.kind() == Wire::IntfId::Kind::vlan;
   const bool isNew = !known.present;
   const bool changed = !isNew && known.link.adminUp != link.adminUp;
   known.link = link;
   known.present = true;
   if ( isNew ) {
      hooks_.intfIs( link.intf );
      if ( link.intf.kind() == Wire::IntfId::Kind::ethernet )
         model_.lagConfig->phyIntfIs( link.intf );
      // What is held under this name is held again.
      if ( model_.cause->intfStatus( link.intf ) || model_.journal->entry( link.intf ) )
         runSoon( link.intf );
   }
   if ( changed && link.adminUp )
      known.setUpTime = now();
   if ( changed )
      adminUpHasChanged( known );
   if ( link.operUp )
      known.graceEnd = 0;
   if ( link.operUp || !link.adminUp )
      known.backEnd = 0;
   const LinkJournalEntry * const entry = model_.journal->entry( link.intf );
   if ( !link.operUp )
      known.restoreTime = 0;
   if ( !link.adminUp )
      known.raised = false;
   else if ( link.operUp && entry && !entry->wantedUp() && entry->acknowledged() )
      known.raised = true;
   if ( isNew && link.intf.kind() == Wire::IntfId::Kind::ethernet )
      countersSoon();
   restoreLeft( known );
   publish( link.intf );
}

/// A link has been set up or down. As long as a request of ours is on its way, that is taken for its doing; one that still
/// waits to be kept has done nothing.
void Executor::adminUpHasChanged( Known & known ) {
   const DataPlane::Link & link = known.link;
   LinkJournalEntry * const entry = model_.journal->entry( link.intf );
   const bool asked = entry && !entry->acknowledged();
   if ( asked && known.request && known.sent )
      known.reached |= !known.overtakes && link.adminUp == entry->wantedUp();
   else if ( follows( known, entry ) )
      return;
   else if ( !asked )
      setByOthers( known, entry );
   else if ( health_.degraded || ( link.adminUp && entry->wantedUp() ) ) {
      // Late news of what we have asked for, or what is wanted anyhow: it is asked for again, with what is to be restored.
   } else {
      // Ours has failed, or has not left, and what was to come of it has been decided.
      const bool isByOthersAlone = known.inVain || ( known.request && !known.sent );
      requests_.erase( std::exchange( known.request, 0 ) );
      known.retryTime = 0;
      known.problem.clear();
      known.refusalNoted.clear();
      if ( entry->wantedUp() ) {
         lostIsLeft( *entry, known );
         model_.journal->entryDel( link.intf );
      } else {
         entry->acknowledgedIs( true );
         // What it loses by that, it does not lose by us.
         if ( isByOthersAlone )
            entry->snapshotIs( "" );
      }
      setByOthers( known, model_.journal->entry( link.intf ) );
   }
}

void Executor::turnEnds() {
   drifts_.turnEnds();
   bridgesNote();
   releasedNote();
}

void Executor::releasedNote() {
   for ( const auto & [intf, none] : model_.journal->releasedRange() )
      // Of which units a link is that is away, nobody can tell.
      if ( known_.count( intf ) ? !hooks_.isUnderWay( intf ) : !hooks_.isAnyUnderWay() )
         model_.journal->releasedDel( intf );
      else if ( model_.cause->intfStatusDel( intf ) )
         hooks_.noted( Vel::text(
            intf,
            ": is not shut again: it has been released by hand, which holds until its units are normal" ) );
}

/// Whether a link has come up because the machine has started, and nobody has wished it. It is held anew then, with the
/// addresses that it has by now.
bool Executor::raisedByTheMachine( Known & known ) {
   const Wire::IntfId intf = known.link.intf;
   if ( !known.link.adminUp || !model_.journal->awaited( intf ) )
      return false;
   model_.journal->entryDel( intf );
   runSoon( intf );
   hooks_.noted( Vel::text(
      intf, ": has come up with the machine while we are to hold it down; it is set down again" ) );
   return true;
}

void Executor::setByOthers( Known & known, LinkJournalEntry * entry ) {
   if ( raisedByTheMachine( known ) )
      return;
   if ( entry ) {
      entry->wasUpIs( known.link.adminUp );
      entry->raisedIs( known.link.adminUp );
   }
   drifts_.setByOthers( known.link, switch_->bootId(), entry != nullptr );
}

void Executor::linkDel( const Wire::IntfId & intf ) {
   const auto it = known_.find( intf );
   if ( it == known_.end() )
      return;
   // A link that is gone is held by nobody; one that comes back under its name is judged anew.
   model_.journal->entryDel( intf );
   drifts_.linkDel( intf );
   model_.journal->unrestoredDel( intf );
   requests_.erase( it->second.request );
   requests_.erase( it->second.restore );
   known_.erase( it );
   uncounted_.erase( intf );
   model_.allIntfStatusDir->intfStatusDel( intf );
   model_.lagConfig->phyIntfDel( intf );
   hooks_.intfDel( intf );
}

void Executor::portChannelIs( const Wire::IntfId & port, const Wire::IntfId & portChannel ) {
   model_.lagConfig->phyIntfIs( port )->portChannelIs( portChannel );
   countersSoon();
}

void Executor::vlanMemberIs( Vel::U16 vlanId, const Wire::IntfId & member ) {
   model_.vlanStatusDir->vlanStatusIs( Bridging::VlanId( vlanId ) )->vlanPortStatusIs( member );
   countersSoon();
}

void Executor::vlanMemberDel( Vel::U16 vlanId, const Wire::IntfId & member ) {
   const Bridging::VlanId id( vlanId );
   auto * vlan = model_.vlanStatusDir->vlanStatus( id );
   if ( !vlan )
      return;
   vlan->vlanPortStatusDel( member );
   if ( vlan->vlanPortStatuss() == 0 )
      model_.vlanStatusDir->vlanStatusDel( id );
   countersSoon();
}

void Executor::resynchronised() {
   ++overruns_;
   hooks_.noted( Vel::text(
      "switch: news of links were lost, and all links have been read again (", overruns_,
      overruns_ == 1 ? " time" : " times", " so far)" ) );
}

void Executor::linkSetDone( DataPlane::RequestId id, const DataPlane::LinkSetResult & result ) {
   const auto it = requests_.find( id );
   if ( it == requests_.end() )
      return;
   const Wire::IntfId intf = it->second;
   requests_.erase( it );
   const auto known = known_.find( intf );
   LinkJournalEntry * const entry = model_.journal->entry( intf );
   if ( known != known_.end() && known->second.restore == id )
      return leftIsTried( known->second, result );
   if ( known == known_.end() || !entry )
      return;
   Known & link = known->second;
   link.request = 0;
   // Somebody may have set it otherwise before it was read back.
   const bool undone = link.reached && link.link.adminUp != entry->wantedUp() && !health_.degraded;
   const bool ok = result.link.ok() || undone;
   link.inVain = !ok;
   refusalIs( link, ok ? Vel::String() : result.link.text(), entry->wantedUp() ? "up" : "down" );
   if ( ok )
      link.problem = result.left.empty() ? result.restore.text() : Vel::String();
   else {
      link.retryTime = now() + retryAfter;
      wakeupIs( link.retryTime );
      return;
   }
   entry->acknowledgedIs( true );
   bridgesToNote_ = true;
   if ( entry->wantedUp() ) {
      if ( !result.link.ok() )
         lostIsLeft( *entry, link );
      model_.journal->entryDel( intf );
      leftIs( link, result );
      // Somebody may have set it down while it was given back what it had lost.
      const bool lowered = !link.link.adminUp && !health_.degraded;
      if ( lowered )
         adminUpHasChanged( link );
      link.graceEnd = link.link.operUp || lowered ? 0 : now() + releaseGrace;
      link.backEnd = link.graceEnd > 0 ? link.graceEnd + releaseGrace : 0;
      wakeupIs( link.graceEnd );
   } else if ( undone ) {
      adminUpHasChanged( link );
      link.raised = link.link.operUp;
   } else
      link.link.adminUp = link.link.operUp = false; // also if that has not been told
   // The cause may have changed while the request was on its way.
   runSoon( intf );
   restoreLeft( link );
   publish( intf );
}

void Executor::linkSetRestores( DataPlane::RequestId id ) {
   const auto it = requests_.find( id );
   LinkJournalEntry * const entry = it == requests_.end() ? nullptr : model_.journal->entry( it->second );
   if ( entry && entry->wantedUp() )
      entry->restoringIs( true );
}

// ---- what the cause wants

void Executor::runSoon( const Wire::IntfId & intf ) {
   const bool posted = !toRun_.empty();
   toRun_.insert( intf );
   if ( posted )
      return;
   scheduler_->post( [self = self_] {
      if ( *self )
         ( *self )->run();
   } );
}

void Executor::run() {
   const std::set< Wire::IntfId > intfs = std::exchange( toRun_, {} );
   for ( const Wire::IntfId & intf : intfs )
      execute( intf );
}

void Executor::execute( const Wire::IntfId & intf ) {
   const bool wantedDown = model_.cause->intfStatus( intf ) && !model_.journal->released( intf );
   if ( !wantedDown )
      model_.journal->awaitedDel( intf );
   const auto it = known_.find( intf );
   if ( it == known_.end() || !it->second.present )
      return;
   Known & known = it->second;
   LinkJournalEntry * const entry = model_.journal->entry( intf );
   if ( wantedDown && ( !entry || entry->wantedUp() ) )
      hold( intf, known );
   else if ( !wantedDown && entry && !entry->wantedUp() )
      letGo( *entry, known );
   else if ( entry && !entry->acknowledged() && !known.request && known.retryTime <= now() )
      requestAgain( *entry, known );
   else if ( !wantedDown && !entry && known.retryTime > 0 ) {
      // It could not be shut, and need not be any more.
      known.retryTime = 0;
      known.problem.clear();
      known.refusalNoted.clear();
   }
   publish( intf );
}

void Executor::hold( const Wire::IntfId & intf, Known & known ) {
   LinkJournalEntry * entry = model_.journal->entry( intf );
   known.retryTime = 0;
   known.refusal.clear();
   if ( !entry ) {
      // A link that is down already loses nothing by us.
      const DataPlane::LinkSnapshot snapshot =
         known.link.adminUp ? switch_->linkSnapshot( intf ) : DataPlane::LinkSnapshot();
      if ( !snapshot.outcome.ok() )
         return holdLater( snapshot.outcome, known );
      known.unasked = known.link.adminUp;
      known.problem.clear();
      entry = model_.journal->entryIs( intf );
      entry->bootIdIs( switch_->bootId() );
      entry->ifIndexIs( known.link.ifIndex );
      entry->wasUpIs( known.link.adminUp );
      entry->snapshotIs( snapshot.text );
   } else if ( entry->restoring() && known.link.adminUp ) {
      // It has a part of what it had lost, and what others have given it; what it has not got back yet, it still lacks.
      const DataPlane::LinkSnapshot snapshot = switch_->linkSnapshot( intf );
      if ( !snapshot.outcome.ok() )
         return holdLater( snapshot.outcome, known );
      entry->snapshotIs( switch_->snapshotsJoined( entry->snapshot(), snapshot.text ) );
   }
   entry->restoringIs( false );
   entry->wantedUpIs( false );
   entry->acknowledgedIs( !entry->wasUp() );
   known.graceEnd = known.backEnd = 0;
   if ( entry->wasUp() ) {
      model_.journal->awaitedDel( intf );
      request( *entry, known );
   }
}

/// What a link has that could not be set down is as it is by now. Whether an earlier agent has set it down, nobody knows:
/// then what it had counts as well.
void Executor::requestAgain( LinkJournalEntry & entry, Known & known ) {
   if ( !entry.wantedUp() && known.link.adminUp ) {
      const DataPlane::LinkSnapshot snapshot = switch_->linkSnapshot( entry.intf() );
      if ( !snapshot.outcome.ok() )
         return holdLater( snapshot.outcome, known );
      entry.snapshotIs(
         known.inVain ? snapshot.text : switch_->snapshotsJoined( entry.snapshot(), snapshot.text ) );
   }
   // Nothing that is up above it by now has come up with it.
   if ( entry.restoring() )
      entry.snapshotIs( switch_->raisedByOthers( entry.snapshot() ) );
   request( entry, known );
}

/// Shut now, the link would come back without its addresses.
void Executor::holdLater( const DataPlane::Outcome & outcome, Known & known ) {
   refusalIs( known, outcome.text(), "down" );
   known.retryTime = now() + retryAfter;
   wakeupIs( known.retryTime );
}

void Executor::letGo( LinkJournalEntry & entry, Known & known ) {
   drifts_.letGo( entry.intf() );
   // What was refused was the other way.
   known.refusalNoted.clear();
   if ( known.unasked && known.link.adminUp ) {
      // It still waits to be kept, or to be read: the link is as it was, and what it has is nobody's business.
      requests_.erase( std::exchange( known.request, 0 ) );
      known.retryTime = 0;
      known.problem.clear();
      model_.journal->entryDel( known.link.intf );
      return;
   }
   // Nor has it been set down when that was asked for in vain, or not yet.
   const bool stayedUp = !entry.acknowledged() && known.link.adminUp && !( known.request && known.sent );
   if ( entry.raised() || stayedUp )
      entry.snapshotIs( switch_->raisedByOthers( entry.snapshot() ) );
   entry.raisedIs( false );
   if ( !entry.wasUp() ) {
      lostIsLeft( entry, known );
      model_.journal->entryDel( known.link.intf );
      return;
   }
   entry.wantedUpIs( true );
   entry.acknowledgedIs( false );
   request( entry, known );
}

void Executor::request( LinkJournalEntry & entry, Known & known ) {
   // A request that is on its way is overtaken: its result means nothing any more.
   requests_.erase( known.request );
   requests_.erase( known.restore );
   known.restore = 0;
   known.overtakes = known.request != 0;
   known.reached = false;
   known.request = ++lastRequest_;
   known.askedTime = now();
   known.retryTime = 0;
   known.raised = false;
   known.inVain = false;
   known.sent = entry.wantedUp();
   requests_[known.request] = entry.intf();
   if ( entry.wantedUp() )
      scheduler_->effectIs(
         [theSwitch = switch_, id = known.request, intf = entry.intf(), snapshot = entry.snapshot()] {
            theSwitch->linkSet( id, intf, true, snapshot );
         } );
   else
      hooks_.whenKept( [self = self_, id = known.request, turn = scheduler_->turns()] {
         if ( *self )
            ( *self )->setDown( id, turn );
      } );
}

/// Its line of the journal is kept. It may have been overtaken by now; and if it has waited, the link may be another.
void Executor::setDown( DataPlane::RequestId id, Vel::U64 askedInTurn ) {
   const auto it = requests_.find( id );
   if ( it == requests_.end() )
      return;
   const Wire::IntfId intf = it->second;
   Known & known = known_.at( intf );
   if ( askedInTurn == scheduler_->turns() ) {
      known.sent = true;
      known.unasked = false;
      return switch_->linkSet( id, intf, false, "" );
   }
   requests_.erase( it );
   known.request = 0;
   known.inVain = true;
   runSoon( intf );
}

void Executor::wakeupIs( double time ) {
   if ( time > 0 && time < wakeup_->timeMin() )
      wakeup_->timeMinIs( time );
}

void Executor::handleDue() {
   for ( auto & [intf, known] : known_ ) {
      if ( known.graceEnd > 0 && known.graceEnd <= now() ) {
         known.graceEnd = 0;
         publish( intf );
      }
      if ( known.retryTime > 0 && known.retryTime <= now() )
         runSoon( intf );
      if ( known.restoreTime > 0 && known.restoreTime <= now() )
         restoreLeft( known );
   }
}

void Executor::handleWakeup() {
   handleDue();
   double next = Cog::Timer::never;
   for ( auto & [intf, known] : known_ ) {
      for ( const double time : { known.graceEnd, known.retryTime, known.restoreTime } )
         if ( time > now() )
            next = std::min( next, time );
   }
   wakeup_->timeMinIs( next );
}

// ---- by hand

Executor::Released Executor::release( const std::string & name ) {
   for ( const auto & [intf, entry] : model_.journal->entryRange() )
      if ( intf.name() == name ) {
         const Wire::IntfId id = intf;
         model_.journal->releasedIs( id );
         const bool changed = model_.cause->intfStatusDel( id );
         if ( !changed )
            runSoon( id );
         return { std::nullopt, changed };
      }
   return { Api::Error{ Api::ErrorCode::conflict, "we do not hold " + name, name } };
}

void Executor::orphansDel( const std::function< bool( const Wire::IntfId & ) > & hasRecord ) {
   for ( const auto & [intf, time] : model_.cause->intfStatusRange() )
      if ( !hasRecord( intf ) )
         model_.cause->intfStatusDel( intf );
}

} // namespace Agent
