#pragma once

#include "DataPlane/Linux/LinkMessage.h"
#include "Platform/Counters/VelPool.h"

#include <deque>
#include <unordered_map>
#include <vector>

/// Purpose: octets of ports that never decrease, made of the kernel's counters of links, which begin at 0 with each link.
///
/// The counters of a link are those since it was made; a port is known by its name. When another link gets the name, the
/// port counts on from where it was: from the link's 0 if the link is new, from its present count if it was renamed. A
/// link that has less than half of what it had has begun at 0 again; one that has a little less has only stepped back,
/// and what it counts from there on is counted, for traffic must rather be seen twice than not at all.
namespace DataPlane::Linux {

class PortCounters {
 public:
   /// Ports that have gone and are still remembered; of more than that the longest gone are forgotten.
   static constexpr std::size_t maxDeparted = 16384;

   /// Begins a refresh; what was read but not set is forgotten.
   void begin() { read_.clear(); }
   void portIs( const Wire::IntfId & port, const StatsMessage & stats ) { read_.emplace_back( port, stats ); }
   /// Sets the counts of the ports that were read since begin(), in that order, and removes all others.
   void end( VelPool::EntityManager & pool );

 private:
   struct Octets {
      Vel::U64 in = 0;
      Vel::U64 out = 0;
   };
   using Counter = Interface::IntfCounterMasquerade::EthIntfCounter;
   struct Port {
      Wire::IntfId intf;
      Vel::U32 ifIndex = 0;        ///< of its link; 0: never read
      Octets link;                 ///< the link's own counts, as last read
      Octets total;                ///< the port's
      Vel::U64 refresh = 0;        ///< in which it was last read
      Vel::Ptr< Counter > counter; ///< in the pool; null: it has no entry there
   };
   using OctetsOfLinks = std::unordered_map< Vel::U32, Octets >;

   static Vel::U64 since( Vel::U64 before, Vel::U64 now ) {
      if ( now >= before )
         return now - before;
      return now > before / 2 ? 0 : now;
   }
   Port & port( const Wire::IntfId & intf, std::size_t place );
   Octets whereItBegins( const Port & port, const StatsMessage & stats, OctetsOfLinks & links ) const;
   void removeDeparted( VelPool::EntityManager & pool );
   void forgetSome();

   std::unordered_map< Wire::IntfId, Port > ports_;
   std::vector< std::pair< Wire::IntfId, StatsMessage > > read_;
   std::vector< Port * > live_;              ///< those that were read in the last refresh, in its order
   Vel::Ptr< VelPool::EntityManager > pool_; ///< of the last refresh
   /// Ports that have gone, in that order, with the refresh in which each was last read; it may have come back since.
   std::deque< std::pair< Wire::IntfId, Vel::U64 > > departures_;
   Vel::U64 refresh_ = 0;
};

} // namespace DataPlane::Linux
