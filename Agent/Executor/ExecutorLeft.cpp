// What a link could not get back.

#include "Agent/Executor/Executor.h"

#include <algorithm>

namespace Agent {

/// Of another switch or another link, it is nothing any more.
void Executor::leftStart() {
   for ( const auto & [intf, left] : model_.journal->unrestoredRange() ) {
      const auto known = known_.find( intf );
      if (
         known == known_.end() || known->second.link.ifIndex != left->ifIndex() ||
         left->bootId() != switch_->bootId() )
         model_.journal->unrestoredDel( intf );
      else
         restoreLeft( known->second );
   }
}

/// A link has been let go of, or what was left has been tried.
void Executor::leftIs( Known & known, const DataPlane::LinkSetResult & result ) {
   const Wire::IntfId & intf = known.link.intf;
   known.restoreTime = 0;
   if ( result.left.empty() ) {
      // Somebody who has set it down meanwhile knows.
      if ( !result.restore.ok() && known.link.adminUp )
         hooks_.noted( Vel::text( intf, ": ", result.restore.text() ) );
      return;
   }
   leftIs( known, result.left, result.restore.text() );
   // Its carrier is not what it waits for, or has just come.
   if ( known.link.operUp ) {
      known.restoreTime = now() + retryAfter;
      wakeupIs( known.restoreTime );
   }
}

void Executor::leftIs( const Known & known, const Vel::String & lost, const Vel::String & why ) {
   const Wire::IntfId & intf = known.link.intf;
   UnrestoredLink * const left = model_.journal->unrestoredIs( intf );
   if ( left->why() != why )
      hooks_.noted( Vel::text( intf, ": ", why ) );
   left->ifIndexIs( known.link.ifIndex );
   left->bootIdIs( switch_->bootId() );
   left->leftIs( left->left().empty() ? lost : switch_->snapshotsJoined( left->left(), lost ) );
   left->whyIs( why );
}

/// Somebody else has set a link down that we hold, or are about to set up. It gets back what it has lost by us when it is
/// up again; what has come up with it is his business.
void Executor::lostIsLeft( const LinkJournalEntry & entry, const Known & known ) {
   const Vel::String lost = switch_->raisedByOthers( entry.snapshot() );
   if ( !entry.snapshot().empty() && !lost.empty() )
      leftIs(
         known, lost,
         Vel::text(
            "what ", entry.intf(),
            " has lost while it was held waits until it is up: somebody else has set it down" ) );
}

bool Executor::isRestoring() const {
   return std::any_of(
      known_.begin(), known_.end(), []( const auto & link ) { return link.second.restore != 0; } );
}

/// When it has a carrier, nothing else is to be done with it, and it has not just been tried.
void Executor::restoreLeft( Known & known ) {
   const Wire::IntfId intf = known.link.intf;
   const UnrestoredLink * const left = model_.journal->unrestored( intf );
   if ( !left || left->ifIndex() != known.link.ifIndex || left->bootId() != switch_->bootId() )
      return;
   if (
      !known.link.operUp || known.restore != 0 || known.restoreTime > now() || model_.journal->entry( intf ) )
      return;
   known.restoreTime = 0;
   known.restore = ++lastRequest_;
   requests_[known.restore] = intf;
   scheduler_->effectIs( [theSwitch = switch_, id = known.restore, intf, text = left->left()] {
      theSwitch->linkRestore( id, intf, text );
   } );
}

void Executor::leftIsTried( Known & known, const DataPlane::LinkSetResult & result ) {
   const Wire::IntfId intf = known.link.intf;
   known.restore = 0;
   if ( result.left.empty() )
      model_.journal->unrestoredDel( intf );
   else
      model_.journal->unrestoredIs( intf )->leftIs( "" ); // what is left of it comes below
   known.problem = result.left.empty() ? result.restore.text() : Vel::String();
   if ( result.restore.ok() )
      hooks_.noted( Vel::text( intf, ": what waited for its carrier is restored" ) );
   leftIs( known, result );
   restoreLeft( known );
}

} // namespace Agent
