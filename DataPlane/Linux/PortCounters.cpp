#include "DataPlane/Linux/PortCounters.h"

namespace DataPlane::Linux {

void PortCounters::end( VelPool::EntityManager & pool ) {
   ++refresh_;
   OctetsOfLinks links;
   std::size_t live = 0;
   for ( const auto & [intf, stats] : read_ ) {
      Port & port = ports_[intf];
      if ( port.ifIndex != stats.ifIndex ) {
         port.link = whereItBegins( port, stats, links );
         port.ifIndex = stats.ifIndex;
      }
      port.total.in += since( port.link.in, stats.inOctets );
      port.total.out += since( port.link.out, stats.outOctets );
      port.link = { stats.inOctets, stats.outOctets };
      live += port.refresh != refresh_;
      port.refresh = refresh_;
      if ( !departed_.empty() )
         departed_.erase( intf );
      pool.intfCountersIs( intf, port.total.in, Cog::MaybeU63( port.total.out ) );
   }
   if ( live + departed_.size() != ports_.size() )
      removeOthers( pool );
}

/// Counts of the link that belong to an earlier port of its, not to this one. `links` is filled when it is first needed,
/// before any link of a known port has been replaced.
PortCounters::Octets
PortCounters::whereItBegins( const Port & port, const StatsMessage & stats, OctetsOfLinks & links ) const {
   if ( port.ifIndex == 0 )
      return {};
   if ( links.empty() )
      for ( const auto & [intf, other] : ports_ )
         if ( other.refresh + 1 >= refresh_ )
            links[other.ifIndex] = other.link;
   const auto at = links.find( stats.ifIndex );
   const bool renamed =
      at != links.end() && stats.inOctets >= at->second.in && stats.outOctets >= at->second.out;
   return renamed ? at->second : Octets();
}

void PortCounters::removeOthers( VelPool::EntityManager & pool ) {
   for ( const auto & [intf, port] : ports_ ) {
      if ( port.refresh == refresh_ || !departed_.insert( intf ).second )
         continue;
      departures_.emplace_back( intf, port.refresh );
      pool.intfDel( intf );
   }
   while ( departures_.size() > maxDeparted ) {
      const auto [intf, refresh] = departures_.front();
      departures_.pop_front();
      if ( ports_.at( intf ).refresh != refresh )
         continue;
      departed_.erase( intf );
      ports_.erase( intf );
   }
}

} // namespace DataPlane::Linux
