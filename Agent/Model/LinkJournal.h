#pragma once

#include "Platform/Model/Errdisable.h"
#include "Platform/Vel/Declare.h"

/// Purpose: which links we have asked to be set, and what must be put back. Kept across restarts: written before the
/// request leaves the process, closed after the acknowledgement.
namespace Agent {

/// One link that we hold down or are about to let up. Written by the executor only.
class LinkJournalEntry final : public Vel::Entity {
   VEL_ENTITY( LinkJournalEntry );
   explicit LinkJournalEntry( const Wire::IntfId & intf ) : intf_( intf ) {}
   VEL_PARAM( Wire::IntfId, intf );
   VEL_ATTR( Vel::U32, ifIndex, onIfIndex ); ///< tells the link from another one that is made under its name
   VEL_ATTR( bool, wasUp, onWasUp ); ///< somebody else wants it up: as we found it, or as it was set since
   VEL_ATTR( bool, wantedUp, onWantedUp );         ///< false: we hold it down
   VEL_ATTR( bool, acknowledged, onAcknowledged ); ///< the switch has done what is wanted
   VEL_ATTR(
      Vel::String, bootId, onBootId ); ///< a switch that was started again has forgotten what we asked for
   VEL_ATTR( Vel::String, snapshot, onSnapshot ); ///< what it has lost, to be put back
   /// Of a VLAN interface that is down as we want it: how often its bridge's carrier had changed then; 0: unknown, or it
   /// is not.
   VEL_ATTR( Vel::U32, bridgeChanges, onBridgeChanges );
   /// Somebody else has set it up while we hold it, and it was left up; it may have gone down with its bridge since.
   VEL_ATTR( bool, raised, onRaised );
   /// It has been set up again and is only given back what it has lost, with nothing to be set up or down any more: if it
   /// is down now, or something above it is up that was down, somebody else wants that.
   VEL_ATTR( bool, restoring, onRestoring );
};

/// One link that somebody else has set down in the middle of a maintenance. Written by Drifts only.
class LoweredLink final : public Vel::Entity {
   VEL_ENTITY( LoweredLink );
   explicit LoweredLink( const Wire::IntfId & intf ) : intf_( intf ) {}
   VEL_PARAM( Wire::IntfId, intf );
   VEL_ATTR( Vel::U32, ifIndex, onIfIndex );  ///< as of an entry
   VEL_ATTR( Vel::String, bootId, onBootId ); ///< as of an entry
};

/// One link that was to be held down when the switch was started again, and that the machine may not have set up yet: the
/// first to raise it is the machine itself. Written by the executor only.
class AwaitedLink final : public Vel::Entity {
   VEL_ENTITY( AwaitedLink );
   explicit AwaitedLink( const Wire::IntfId & intf ) : intf_( intf ) {}
   VEL_PARAM( Wire::IntfId, intf );
};

/// One link that was let go of and has not got back all that it had lost: it has no carrier, or we could not set it, or
/// somebody else has set the link down. Written by the executor only.
class UnrestoredLink final : public Vel::Entity {
   VEL_ENTITY( UnrestoredLink );
   explicit UnrestoredLink( const Wire::IntfId & intf ) : intf_( intf ) {}
   VEL_PARAM( Wire::IntfId, intf );
   VEL_ATTR( Vel::U32, ifIndex, onIfIndex );  ///< as of an entry
   VEL_ATTR( Vel::String, bootId, onBootId ); ///< as of an entry
   VEL_ATTR( Vel::String, left, onLeft );     ///< what is to be put back when it is up and has a carrier
   VEL_ATTR( Vel::String, why, onWhy );       ///< for the operator
};

class LinkJournal final : public Vel::Entity {
   VEL_ENTITY( LinkJournal );
   VEL_ATTR( Vel::String, bootId, onBootId ); ///< the boot of the switch that was met last; empty: none yet
   VEL_CHILDREN( Wire::IntfId, LinkJournalEntry, entry, onEntry );
   VEL_CHILDREN( Wire::IntfId, LoweredLink, lowered, onLowered );
   VEL_CHILDREN( Wire::IntfId, AwaitedLink, awaited, onAwaited );
   /// Links that an operator has released by hand, until all their units are normal. Written by the executor and, where
   /// there is none, by whoever releases all.
   VEL_SET( Wire::IntfId, released, onReleased );
   VEL_CHILDREN( Wire::IntfId, UnrestoredLink, unrestored, onUnrestored );
};

/// Every link is to be let go of, as if each had been released by hand.
inline void releaseAllByHand( LinkJournal & journal, Errdisable::CauseStatus & cause ) {
   for ( const auto & [intf, entry] : journal.entryRange() )
      journal.releasedIs( intf );
   for ( const auto & [intf, time] : cause.intfStatusRange() )
      journal.releasedIs( intf );
   cause.intfStatusDelAll();
}

} // namespace Agent
