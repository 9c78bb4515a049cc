// What the model shows of links, and the counters without which it shows nothing.

#include "Agent/Executor/Executor.h"

#include <algorithm>
#include <utility>

namespace Agent {

// ---- counters

bool Executor::countersFresh() {
   if ( countersTurn_ == scheduler_->turns() && countersTurn_ != 0 )
      return countersOk_;
   countersTurn_ = scheduler_->turns();
   const DataPlane::Outcome outcome = switch_->countersRefresh( *model_.pool );
   countersOk_ = outcome.ok();
   countersProblem_ = outcome.text();
   if ( countersOk_ ) {
      countersFailedSince_.reset();
      countersRead_ = now();
   } else {
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

// ---- what the model shows

bool Executor::statusHeld( const Wire::IntfId & intf, const Known & known ) const {
   if ( known.graceEnd > 0 )
      return true;
   if ( model_.journal->awaited( intf ) )
      return true;
   const LinkJournalEntry * const entry = model_.journal->entry( intf );
   if ( !entry || !entry->wasUp() )
      return false;
   return !known.raised;
}

bool Executor::heldDown( const Wire::IntfId & intf, const Known & known ) const {
   if ( model_.journal->awaited( intf ) )
      return !known.link.adminUp;
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

bool Executor::comesBack( const Wire::IntfId & intf ) const {
   const auto it = known_.find( intf );
   if ( it == known_.end() || ( model_.cause->intfStatus( intf ) && !model_.journal->released( intf ) ) )
      return false;
   const Known & known = it->second;
   if ( const LinkJournalEntry * const entry = model_.journal->entry( intf ) )
      return entry->wasUp() && !( known.inVain && known.link.adminUp && known.link.operUp );
   return known.restore != 0 || known.restoreTime > 0 || known.backEnd > now();
}

Vel::String Executor::uncounted( const Wire::IntfId & intf ) const {
   using Kind = Wire::IntfId::Kind;
   const auto it = known_.find( intf );
   if ( it == known_.end() || !it->second.present || !it->second.link.operUp )
      return {};
   if ( intf.kind() == Kind::ethernet )
      return canBeCounted( intf ) ? "" : "the switch has no counters of it";
   if ( intf.kind() != Kind::portChannel && intf.kind() != Kind::vlan )
      return {};
   if ( !switch_->tellsMembership() )
      return "the switch does not tell its members";
   for ( const Wire::IntfId & port : uncounted_ )
      if ( carries( intf, port ) )
         return Vel::text( "the switch has no counters of its member \"", port, "\"" );
   return switch_->uncounted( intf );
}

// ---- what could not be done

/// \param why        empty: it was set
/// \param direction  in which it was to be set
void Executor::refusalIs( Known & known, const Vel::String & why, const char * direction ) {
   const Wire::IntfId intf = known.link.intf;
   known.refusal = why;
   known.problem = why.empty() ? Vel::String() : Vel::text( "cannot set ", intf, " ", direction, ": ", why );
   // It is tried again and again: only another answer is news.
   if ( std::exchange( known.refusalNoted, known.problem ) != known.problem )
      hooks_.noted(
         !why.empty() ? known.problem
                      : Vel::text( intf, ": has been set ", direction, ", after that had failed" ) );
}

Vel::String Executor::shutProblem( const Wire::IntfId & intf ) const {
   const auto it = known_.find( intf );
   const bool wanted = model_.cause->intfStatus( intf ) && !model_.journal->released( intf );
   if ( !wanted || it == known_.end() || !it->second.link.adminUp )
      return {};
   const Known & known = it->second;
   const LinkJournalEntry * const entry = model_.journal->entry( intf );
   if ( entry && ( entry->wantedUp() || entry->acknowledged() ) )
      return {};
   const bool waits = known.request && !known.sent && now() - known.askedTime >= journalPatience;
   return known.refusal.empty() && waits ? "it is not stored yet that it is to be held" : known.refusal;
}

Vel::String Executor::problem() const {
   const Vel::String ofLink = health_.degraded ? Vel::String() : linkProblem();
   return health_.text + ( health_.text.empty() || ofLink.empty() ? "" : "; " ) + ofLink;
}

Vel::String Executor::linkProblem() const {
   for ( const auto & [intf, known] : known_ )
      if ( !known.problem.empty() )
         return known.problem;
   for ( const auto & [intf, link] : model_.journal->unrestoredRange() )
      return link->why();
   return "";
}

} // namespace Agent
