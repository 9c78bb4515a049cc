#include "DataPlane/Linux/PortCounters.h"

namespace DataPlane::Linux {

void PortCounters::end( VelPool::EntityManager & pool ) {
   ++refresh_;
   if ( pool_ != &pool ) {
      pool_ = &pool;
      for ( auto & [intf, port] : ports_ )
         port.counter = nullptr;
   }
   OctetsOfLinks links;
   std::vector< Port * > live;
   live.reserve( read_.size() );
   std::size_t stayed = 0;
   for ( const auto & [intf, stats] : read_ ) {
      Port & port = this->port( intf, live.size() );
      live.push_back( &port );
      if ( port.ifIndex != stats.ifIndex ) {
         port.link = whereItBegins( port, stats, links );
         port.ifIndex = stats.ifIndex;
      }
      port.total.in += since( port.link.in, stats.inOctets );
      port.total.out += since( port.link.out, stats.outOctets );
      port.link = { stats.inOctets, stats.outOctets };
      stayed += port.refresh != 0 && port.refresh + 1 == refresh_;
      port.refresh = refresh_;
      const Cog::MaybeU63 out( port.total.out );
      if ( port.counter )
         port.counter->statisticsIs( { port.total.in, out } );
      else
         port.counter = pool.intfCountersIs( intf, port.total.in, out );
   }
   const bool same = stayed == live_.size() && stayed == read_.size();
   if ( stayed != live_.size() )
      removeDeparted( pool );
   live_ = std::move( live );
   if ( !same )
      forgetSome();
}

/// The kernel tells links in the same order each time, so that the port is mostly the one of that place the last time.
PortCounters::Port & PortCounters::port( const Wire::IntfId & intf, std::size_t place ) {
   if ( place < live_.size() && live_[place]->intf == intf )
      return *live_[place];
   Port & port = ports_[intf];
   port.intf = intf;
   return port;
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
   for ( Port * const port : live_ ) {
      if ( port->refresh == refresh_ )
         continue;
      departures_.emplace_back( port->intf, port->refresh );
      pool.intfDel( port->intf );
      port->counter = nullptr;
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
