#include "DataPlane/Linux/PortCounters.h"

namespace DataPlane::Linux {

void PortCounters::end( VelPool::EntityManager & pool ) {
   ++refresh_;
   OctetsOfLinks links;
   std::size_t stayed = 0;
   for ( const auto & [intf, stats] : read_ ) {
      Port & port = ports_[intf];
      if ( port.ifIndex != stats.ifIndex ) {
         port.link = whereItBegins( port, stats, links );
         port.ifIndex = stats.ifIndex;
      }
      port.total.in += since( port.link.in, stats.inOctets );
      port.total.out += since( port.link.out, stats.outOctets );
      port.link = { stats.inOctets, stats.outOctets };
      stayed += port.refresh != 0 && port.refresh + 1 == refresh_;
      port.refresh = refresh_;
      pool.intfCountersIs( intf, port.total.in, Cog::MaybeU63( port.total.out ) );
   }
   const bool same = stayed == live_.size() && stayed == read_.size();
   if ( same )
      return;
   if ( stayed != live_.size() )
      removeDeparted( pool );
   live_.clear();
   for ( const auto & [intf, stats] : read_ )
      live_.push_back( intf );
   forgetSome();
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

void PortCounters::removeDeparted( VelPool::EntityManager & pool ) {
   for ( const Wire::IntfId & intf : live_ ) {
      const Vel::U64 lastRead = ports_.at( intf ).refresh;
      if ( lastRead == refresh_ )
         continue;
      departures_.emplace_back( intf, lastRead );
      pool.intfDel( intf );
   }
}

void PortCounters::forgetSome() {
   const auto cameBack = [this]( const auto & departure ) {
      return ports_.at( departure.first ).refresh != departure.second;
   };
   while ( ports_.size() > live_.size() + maxDeparted ) {
      const auto departure = departures_.front();
      departures_.pop_front();
      if ( !cameBack( departure ) )
         ports_.erase( departure.first );
   }
   // Ports that come and go for ever.
   if ( departures_.size() > 2 * maxDeparted )
      std::erase_if( departures_, cameBack );
}

} // namespace DataPlane::Linux
