#include "Agent/Executor/Executor.h"

#include <utility>

/// VLAN interfaces that go down and come up with their bridge.
namespace Agent {

/// Whether a VLAN interface has gone down or come up with its bridge, and nobody has set it. Sets it down again, once,
/// if we hold it. A bridge that was set down and up while there was no agent, or while news were lost, is known by its
/// carrier: it has changed since the interface was last known to be down. In news that are whole the bridge's own flag
/// would have been told before, and its carrier says nothing: a port of it may have come or gone.
bool Executor::follows( Known & known, LinkJournalEntry * entry ) {
   const DataPlane::Link & link = known.link;
   if ( link.intf.kind() != Wire::IntfId::Kind::vlan )
      return false;
   const auto bridge = known_.find( switch_->bridgeBelow( link.intf ) );
   if ( bridge == known_.end() )
      return false;
   if ( !link.adminUp )
      return !bridge->second.link.adminUp;
   const bool isHeld = entry && entry->wasUp() && !entry->wantedUp();
   if ( !isHeld || entry->raised() )
      return false;
   const double setUp = bridge->second.setUpTime;
   const bool seen = setUp != 0 && setUp + followTime >= now() && known.followedTime != setUp;
   const bool missed = changesMayBeMissed_ && entry->bridgeChanges() != 0 &&
                       entry->bridgeChanges() != bridge->second.link.carrierChanges;
   if ( !seen && !missed )
      return false;
   if ( seen )
      known.followedTime = setUp;
   entry->bridgeChangesIs( 0 );
   entry->acknowledgedIs( false );
   runSoon( link.intf );
   hooks_.noted( Vel::text(
      link.intf, ": has come up with its bridge ", bridge->first,
      " while we hold it down; it is set down again" ) );
   return true;
}

/// For each VLAN interface that is down as we want it, what its bridge's carrier has come to. Done when the turn ends:
/// what is told in one turn may have happened at one time.
void Executor::bridgesNote() {
   if ( !std::exchange( bridgesToNote_, false ) )
      return;
   for ( const auto & [intf, entry] : model_.journal->entryRange() ) {
      if ( intf.kind() != Wire::IntfId::Kind::vlan )
         continue;
      const auto known = known_.find( intf );
      const auto bridge = known_.find( switch_->bridgeBelow( intf ) );
      const bool isDown = known != known_.end() && !known->second.link.adminUp && !entry->wantedUp() &&
                          entry->acknowledged() && entry->wasUp() && !entry->raised();
      entry->bridgeChangesIs( isDown && bridge != known_.end() ? bridge->second.link.carrierChanges : 0 );
   }
}

} // namespace Agent
