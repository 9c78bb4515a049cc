#pragma once

#include "DataPlane/Linux/Dump.h"
#include "DataPlane/Linux/LinkTable.h"
#include "DataPlane/Linux/Route.h"

/// Purpose: reads the routes that links lose when they go down, with few walks through tables that may be large.
/// Owner: the switch, which says when a turn has ended.
///
/// The kernel goes through all its routes for one link. So the first link in a turn is asked for alone, which is cheaper
/// by far than all, and from the second one on all routes are read once and kept until the turn ends.
namespace DataPlane::Linux {

class LostRoutes {
 public:
   /// Both outlive it.
   LostRoutes( Dumps & dumps, const LinkTable & links ) : dumps_( dumps ), links_( links ) {}

   /// Appends those of one link. If it fails, `routes` may have been added to.
   Outcome read( Vel::U32 ifIndex, std::vector< Route > & routes );
   /// What has been read may be out of date from now on.
   void forget();
   /// Whether there is nothing to forget.
   bool fresh() const { return reads_ == 0; }

 private:
   /// Appends those over any link, or over one. 0: any.
   Outcome dump( Vel::U32 ifIndex, std::vector< Route > & routes );

   Dumps & dumps_;
   const LinkTable & links_;
   int reads_ = 0; ///< since forget()
   std::optional< std::vector< Route > > all_;
};

} // namespace DataPlane::Linux
