#pragma once

#include "Platform/Model/Interface.h"
#include "Platform/Model/MaybeU63.h"
#include "Platform/Vel/Declare.h"

namespace MaintenanceMode {

/// The two counters of a port's statistics that rates are made of. A port may be read for thousands of VLAN
/// interfaces, each with a snapshot of its own, so the rest of the record is not kept.
struct OctetCounts {
   Vel::U64 inOctets = 0;
   Cog::MaybeU63 outOctets{};
   friend bool operator==( const OctetCounts &, const OctetCounts & ) = default;
};

/// Snapshot of one Ethernet port's counters, taken for one monitored interface.
class IntfCounterInfo final : public Vel::Entity {
   VEL_ENTITY( IntfCounterInfo );
   explicit IntfCounterInfo( const Wire::IntfId & intfId ) : intfId_( intfId ) {}
   VEL_PARAM( Wire::IntfId, intfId );
   VEL_ATTR( OctetCounts, prevStats, onPrevStats );      ///< as read at the previous sample
   VEL_ATTR( double, lastUpdateTime, onLastUpdateTime ); ///< seconds; when prevStats was read
   VEL_ATTR( Interface::IntfRates, rates, onRates );     ///< bits per second; the last rates of this port

   using EthIntfCounterDir = Interface::IntfCounterMasquerade::EthIntfCounterDir;
   /// The port's counters as they were found last, good as long as no port has come or gone since then.
   struct Found {
      Vel::Ptr< const EthIntfCounterDir > counterDir;
      Vel::U64 portChanges = 0; ///< MonitoredIntfDir::portChanges() of that time
   };
   Found found;
};

} // namespace MaintenanceMode
