#pragma once

#include "DataPlane/Linux/Dump.h"
#include "DataPlane/Linux/LinkTable.h"
#include "DataPlane/Linux/LostState.h"

/// Purpose: reads what links lose when they go down, with few walks through tables that may be large.
/// Owner: the switch, which says when a turn has ended.
///
/// The kernel goes through all its routes and neighbours for one link. So the first link in a turn, and the few VLAN
/// devices above it, are asked for one by one, which is cheaper by far than all; from the second one on all are read once
/// and kept until the turn ends. Addresses the kernel always tells of all links.
namespace DataPlane::Linux {

class LostReader {
 public:
   /// Both outlive it.
   LostReader( Dumps & dumps, const LinkTable & links ) : dumps_( dumps ), links_( links ) {}

   /// What one link and its followers lose. If it fails, `state` may have been filled in part.
   Outcome read( Vel::U32 ifIndex, LostState & state );
   /// What has been read may be out of date from now on.
   void forget();
   /// Whether there is nothing to forget.
   bool fresh() const { return reads_ == 0; }

 private:
   /// Devices that are asked for one by one at most.
   static constexpr std::size_t maxAlone = 4;

   using Devices = std::vector< Vel::U32 >;
   using Addresses = std::map< Vel::U32, std::vector< LinkAddress > >; ///< by link
   struct InOrder {
      bool operator()( const Neighbour & a, const Neighbour & b ) const;
   };
   using Neighbours = std::map< Vel::U32, std::set< Neighbour, InOrder > >; ///< by link

   Outcome readAddresses();
   Outcome readSetUp();
   /// Those of some devices; with none of them, of all.
   Outcome readNeighbours( const Devices & devices, Neighbours & neighbours );
   Outcome readRoutes( const Devices & devices, std::vector< Route > & routes );
   Outcome dumpNeighbours( const Bytes & request, Neighbours & neighbours );
   Outcome dumpRoutes( const Bytes & request, std::vector< Route > & routes );

   Dumps & dumps_;
   const LinkTable & links_;
   int reads_ = 0; ///< since forget()
   std::optional< Addresses > addresses_;
   std::optional< Neighbours > neighbours_;
   std::optional< std::vector< Route > > routes_;
   std::optional< std::set< Vel::U32 > > setUp_; ///< links; read when a follower is down as far as is known
};

} // namespace DataPlane::Linux
