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

// ---- start and counters

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
   findDrift();
   for ( const auto & [intf, entry] : model_.journal->entryRange() )
      runSoon( intf );
   for ( const auto & [intf, time] : model_.cause->intfStatusRange() )
      runSoon( intf );
   for ( const auto & [intf, known] : known_ )
      publish( intf );
   return outcome;
}

/// What others have done while there was no agent.
void Executor::findDrift() {
   drifts_.start( [this]( const LoweredLink & lowered ) {
      const auto known = known_.find( lowered.intf() );
      return known != known_.end() && !known->second.link.adminUp &&
             known->second.link.ifIndex == lowered.ifIndex() && lowered.bootId() == switch_->bootId();
   } );
   for ( const auto & [intf, known] : known_ ) {
      const LinkJournalEntry * const entry = model_.journal->entry( intf );
      if ( entry && known.link.adminUp )
         adminUpHasChanged( known.link );
      else if ( !entry && !known.link.adminUp && hooks_.isMonitored( intf ) )
         drifts_.foundDown( known.link, switch_->bootId() );
   }
}

bool Executor::countersFresh() {
   if ( countersTurn_ == scheduler_->turns() && countersTurn_ != 0 )
      return countersOk_;
   countersTurn_ = scheduler_->turns();
   const DataPlane::Outcome outcome = switch_->countersRefresh( *model_.pool );
   countersOk_ = outcome.ok();
   countersProblem_ = outcome.text();
   if ( countersOk_ )
      countersFailedSince_.reset();
   else {
      if ( !countersFailedSince_ )
         countersFailedSince_ = now();
      // Somebody must look again, also when nothing is sampled. Timers do not run meanwhile, but what we hold is let go
      // all the same.
      wakeupIs( now() + countersRetryAfter );
      handleDue();
   }
   if ( countersOk_ ) {
      uncounted_.clear();
      for ( const auto & [intf, known] : known_ )
         if ( intf.kind() == Wire::IntfId::Kind::ethernet && !model_.pool->intfCounterDir( intf ) )
            uncounted_.insert( intf );
   }
   // What lost or got its counters or its members loses or gets its status.
   for ( const auto & [intf, known] : known_ )
      if ( hasStatus( intf, known ) != ( model_.allIntfStatusDir->intfStatus( intf ) != nullptr ) )
         publish( intf );
   return countersOk_;
}

/// A new port has no status before its counters are read, and a port-channel or VLAN interface none before it has
/// members that are; nobody else may want that for hours.
void Executor::countersSoon() {
   if ( std::exchange( countersPosted_, true ) )
      return;
   scheduler_->post( [self = self_] {
      if ( Executor * const executor = *self ) {
         executor->countersPosted_ = false;
         // What was read in this turn may have been read too early.
         if ( executor->countersTurn_ == executor->scheduler_->turns() )
            executor->countersSoon();
         else
            executor->countersFresh();
      }
   } );
}

bool Executor::canBeCounted( const Wire::IntfId & intf ) const {
   switch ( intf.kind() ) {
   case Wire::IntfId::Kind::ethernet:
      return model_.pool->intfCounterDir( intf ) != nullptr;
   case Wire::IntfId::Kind::portChannel:
   case Wire::IntfId::Kind::vlan:
      return switch_->tellsMembership() && hasMembers( intf ) &&
             std::none_of( uncounted_.begin(), uncounted_.end(), [&]( const auto & port ) {
                return carries( intf, port );
             } );
   default:
      return true;
   }
}

/// The switch's own port is no member that could be counted.
bool Executor::hasMembers( const Wire::IntfId & intf ) const {
   if ( intf.kind() == Wire::IntfId::Kind::portChannel )
      return model_.lagConfig->memberRange( intf ).size() > 0;
   const auto * const vlan = model_.vlanStatusDir->vlanStatus( Bridging::VlanId( intf.vlanId() ) );
   if ( vlan )
      for ( const auto & [member, status] : vlan->vlanPortStatusRange() )
         if ( !Wire::CpuIntfId::isCpuIntfId( member ) )
            return true;
   return false;
}

/// Whether what the port carries is counted for the port-channel or VLAN interface.
bool Executor::carries( const Wire::IntfId & intf, const Wire::IntfId & port ) const {
   const auto * const phyIntf = model_.lagConfig->phyIntf( port );
   const Wire::IntfId portChannel = phyIntf ? phyIntf->portChannel() : Wire::IntfId();
   if ( intf.kind() == Wire::IntfId::Kind::portChannel )
      return portChannel == intf;
   const auto * const vlan = model_.vlanStatusDir->vlanStatus( Bridging::VlanId( intf.vlanId() ) );
   return vlan && ( vlan->vlanPortStatus( port ) || vlan->vlanPortStatus( portChannel ) );
}

// ---- what the switch tells

void Executor::linkIs( const DataPlane::Link & link ) {
   Known & known = known_[link.intf];
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
   if ( changed )
      adminUpHasChanged( link );
   if ( link.operUp )
      known.graceEnd = 0;
   const LinkJournalEntry * const entry = model_.journal->entry( link.intf );
   if ( !link.adminUp )
      known.raised = false;
   else if ( link.operUp && entry && !entry->wantedUp() && entry->acknowledged() )
      known.raised = true;
   if ( isNew && link.intf.kind() == Wire::IntfId::Kind::ethernet )
      countersSoon();
   publish( link.intf );
}

/// A link has been set up or down. As long as a request of ours is on its way, that is taken for its doing.
void Executor::adminUpHasChanged( const DataPlane::Link & link ) {
   LinkJournalEntry * const entry = model_.journal->entry( link.intf );
   if ( entry && !entry->acknowledged() )
      return;
   if ( entry )
      entry->wasUpIs( link.adminUp );
   drifts_.setByOthers( link, switch_->bootId(), entry != nullptr );
}

void Executor::linkDel( const Wire::IntfId & intf ) {
   const auto it = known_.find( intf );
   if ( it == known_.end() )
      return;
   // A link that is gone is held by nobody; one that comes back under its name is judged anew.
   model_.journal->entryDel( intf );
   drifts_.linkDel( intf );
   requests_.erase( it->second.request );
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
   if ( known == known_.end() || !entry )
      return;
   Known & link = known->second;
   link.request = 0;
   link.problem = !result.link.ok() ? result.link.text() : result.restore.text();
   if ( !result.link.ok() ) {
      link.retryTime = now() + retryAfter;
      wakeupIs( link.retryTime );
      return;
   }
   entry->acknowledgedIs( true );
   if ( entry->wantedUp() ) {
      model_.journal->entryDel( intf );
      // Somebody may have set it down while it was given back what it had lost.
      const bool lowered = !link.link.adminUp && !health_.degraded;
      if ( lowered )
         adminUpHasChanged( link.link );
      link.graceEnd = link.link.operUp || lowered ? 0 : now() + releaseGrace;
      wakeupIs( link.graceEnd );
   } else
      link.link.adminUp = link.link.operUp = false; // also if that has not been told
   // The cause may have changed while the request was on its way.
   runSoon( intf );
   publish( intf );
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
   const auto it = known_.find( intf );
   if ( it == known_.end() || !it->second.present )
      return;
   Known & known = it->second;
   LinkJournalEntry * const entry = model_.journal->entry( intf );
   const bool wantedDown = model_.cause->intfStatus( intf ) != nullptr;
   if ( wantedDown && ( !entry || entry->wantedUp() ) )
      hold( intf, known );
   else if ( !wantedDown && entry && !entry->wantedUp() )
      letGo( *entry, known );
   else if ( entry && !entry->acknowledged() && !known.request && known.retryTime <= now() )
      request( *entry, known );
   else if ( !wantedDown && !entry && known.retryTime > 0 ) {
      // It could not be shut, and need not be any more.
      known.retryTime = 0;
      known.problem.clear();
   }
   publish( intf );
}

void Executor::hold( const Wire::IntfId & intf, Known & known ) {
   LinkJournalEntry * entry = model_.journal->entry( intf );
   known.retryTime = 0;
   if ( !entry ) {
      const DataPlane::LinkSnapshot snapshot = switch_->linkSnapshot( intf );
      known.problem = snapshot.outcome.text();
      if ( !snapshot.outcome.ok() ) {
         // Shut now, it would come back without its addresses.
         known.retryTime = now() + retryAfter;
         wakeupIs( known.retryTime );
         return;
      }
      entry = model_.journal->entryIs( intf );
      entry->bootIdIs( switch_->bootId() );
      entry->ifIndexIs( known.link.ifIndex );
      entry->wasUpIs( known.link.adminUp );
      entry->snapshotIs( snapshot.text );
   }
   entry->wantedUpIs( false );
   entry->acknowledgedIs( !entry->wasUp() );
   known.graceEnd = 0;
   if ( entry->wasUp() )
      request( *entry, known );
}

void Executor::letGo( LinkJournalEntry & entry, Known & known ) {
   drifts_.letGo( entry.intf() );
   if ( !entry.wasUp() ) {
      model_.journal->entryDel( entry.intf() );
      return;
   }
   entry.wantedUpIs( true );
   entry.acknowledgedIs( false );
   request( entry, known );
}

void Executor::request( LinkJournalEntry & entry, Known & known ) {
   // A request that is on its way is overtaken: its result means nothing any more.
   requests_.erase( known.request );
   known.request = ++lastRequest_;
   known.retryTime = 0;
   known.raised = false;
   requests_[known.request] = entry.intf();
   scheduler_->effectIs(
      [theSwitch = switch_, id = known.request, intf = entry.intf(), up = entry.wantedUp(),
       snapshot = entry.snapshot()] { theSwitch->linkSet( id, intf, up, up ? snapshot : "" ); } );
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
   }
}

void Executor::handleWakeup() {
   handleDue();
   double next = Cog::Timer::never;
   for ( auto & [intf, known] : known_ ) {
      for ( const double time : { known.graceEnd, known.retryTime } )
         if ( time > now() )
            next = std::min( next, time );
   }
   wakeup_->timeMinIs( next );
}

// ---- what the model shows

bool Executor::statusHeld( const Wire::IntfId & intf, const Known & known ) const {
   if ( known.graceEnd > 0 )
      return true;
   const LinkJournalEntry * const entry = model_.journal->entry( intf );
   if ( !entry || !entry->wasUp() )
      return false;
   return !known.raised;
}

bool Executor::heldDown( const Wire::IntfId & intf, const Known & known ) const {
   const LinkJournalEntry * const entry = model_.journal->entry( intf );
   return entry && entry->wasUp() && !entry->wantedUp() && entry->acknowledged() && !known.raised;
}

bool Executor::hasStatus( const Wire::IntfId & intf, const Known & known ) const {
   if ( !known.present )
      return false;
   return canBeCounted( intf ) || ( intf.kind() != Wire::IntfId::Kind::ethernet && heldDown( intf, known ) );
}

void Executor::publish( const Wire::IntfId & intf ) {
   const auto it = known_.find( intf );
   if ( it == known_.end() )
      return;
   const Known & known = it->second;
   if ( !hasStatus( intf, known ) ) {
      model_.allIntfStatusDir->intfStatusDel( intf );
      return;
   }
   const auto present = known.link.operUp ? Interface::operUp : Interface::operDown;
   auto * status = model_.allIntfStatusDir->intfStatus( intf );
   if ( !status ) {
      // A link that we hold over a restart was up when we took it.
      auto fresh = Vel::make< Interface::IntfStatus >( intf );
      fresh->operStatusIs( statusHeld( intf, known ) ? Interface::operUp : present );
      model_.allIntfStatusDir->intfStatusPut( intf, fresh );
   } else if ( !statusHeld( intf, known ) )
      status->operStatusIs( present );
}

std::string Executor::linkState( const Wire::IntfId & intf ) const {
   const auto it = known_.find( intf );
   return it == known_.end() ? "unknown" : it->second.link.operUp ? "up" : "down";
}

Vel::String Executor::problem() const {
   if ( !health_.text.empty() )
      return health_.text;
   for ( const auto & [intf, known] : known_ )
      if ( !known.problem.empty() )
         return known.problem;
   return "";
}

// ---- by hand

std::optional< Api::Error > Executor::release( const std::string & name ) {
   for ( const auto & [intf, entry] : model_.journal->entryRange() )
      if ( intf.name() == name ) {
         const Wire::IntfId id = intf;
         if ( !model_.cause->intfStatusDel( id ) )
            runSoon( id );
         return std::nullopt;
      }
   return Api::Error{ Api::ErrorCode::conflict, "we do not hold " + name, name };
}

void Executor::orphansDel( const std::function< bool( const Wire::IntfId & ) > & hasRecord ) {
   for ( const auto & [intf, time] : model_.cause->intfStatusRange() )
      if ( !hasRecord( intf ) )
         model_.cause->intfStatusDel( intf );
}

} // namespace Agent
