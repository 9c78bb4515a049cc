// What a link could not get back for want of a carrier.

#include "Agent/Executor/Executor.h"

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
void Executor::leftIs( const Known & known, const DataPlane::LinkSetResult & result ) {
   const Wire::IntfId & intf = known.link.intf;
   if ( result.left.empty() ) {
      // Somebody who has set it down meanwhile knows.
      if ( !result.restore.ok() && known.link.adminUp )
         hooks_.noted( Vel::text( intf, ": ", result.restore.text() ) );
      return;
   }
   if ( !model_.journal->unrestored( intf ) )
      hooks_.noted( Vel::text( intf, ": ", result.restore.text() ) );
   UnrestoredLink * const left = model_.journal->unrestoredIs( intf );
   left->ifIndexIs( known.link.ifIndex );
   left->bootIdIs( switch_->bootId() );
   left->leftIs( left->left().empty() ? result.left : switch_->snapshotsJoined( left->left(), result.left ) );
   left->whyIs( result.restore.text() );
}

/// When it has a carrier, and nothing else is to be done with it.
void Executor::restoreLeft( Known & known ) {
   const Wire::IntfId intf = known.link.intf;
   const UnrestoredLink * const left = model_.journal->unrestored( intf );
   if ( !left || left->ifIndex() != known.link.ifIndex || left->bootId() != switch_->bootId() )
      return;
   if ( !known.link.operUp || known.restore != 0 || model_.journal->entry( intf ) )
      return;
   known.restore = ++lastRequest_;
   requests_[known.restore] = intf;
   scheduler_->effectIs( [theSwitch = switch_, id = known.restore, intf, text = left->left()] {
      theSwitch->linkRestore( id, intf, text );
   } );
}

void Executor::leftIsTried( Known & known, const DataPlane::LinkSetResult & result ) {
   const Wire::IntfId intf = known.link.intf;
   known.restore = 0;
   model_.journal->unrestoredDel( intf );
   known.problem = result.left.empty() ? result.restore.text() : Vel::String();
   if ( result.restore.ok() )
      hooks_.noted( Vel::text( intf, ": what waited for its carrier is restored" ) );
   leftIs( known, result );
   restoreLeft( known );
}

} // namespace Agent
