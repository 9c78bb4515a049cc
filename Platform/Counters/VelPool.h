#pragma once

#include "Platform/Model/Interface.h"

/// Purpose: the counter pool: what the data plane has counted, readable without asking it. Plain memory: the
/// agent refreshes it, readers read what is there.
namespace VelPool {

/// The pool. Owner: the agent, its only writer.
///
/// Invariants, which the writer keeps:
/// 1. Counts of a port never decrease. A data plane whose source restarts at 0 goes on from where it was.
/// 2. Counts do not change while one event is handled: the pool is refreshed at most once a turn, before the
///    first timer.
/// 3. A port whose counters cannot be read has no entry, so that a missing counter never reads as silence.
class EntityManager final : public Vel::Entity {
   using EthIntfCounterDir = Interface::IntfCounterMasquerade::EthIntfCounterDir;

   VEL_ENTITY( EntityManager );
   /// Reactors are told of ports that come and go, not of counts.
   VEL_OWNED( Wire::IntfId, EthIntfCounterDir, intfCounterDir, onIntfCounterDir );

   /// Sets the live counts of a port, in octets since the port exists. The first time, the port appears with
   /// these counts. What it gives may be written in its place as long as the port has an entry.
   Interface::IntfCounterMasquerade::EthIntfCounter *
   intfCountersIs( const Wire::IntfId & intf, Vel::U64 inOctets, Cog::MaybeU63 outOctets );
   /// The port's counters cannot be read any more, or it is gone. False: there were none.
   bool intfDel( const Wire::IntfId & intf ) { return intfCounterDirTake( intf ); }
};

} // namespace VelPool
