#pragma once

#include "DataPlane/Linux/RouteMessage.h"
#include "DataPlane/Routes.h"

#include <functional>
#include <map>
#include <set>

/// Purpose: folds the routes of a dump into classes of destinations that are reached alike, so that a million of them take
/// the room of a few. Pure.
/// Order: what next hops stand for first, and which destinations are wanted by themselves; then routes as the kernel tells
/// them, which is those of one destination one after the other; then end().
namespace DataPlane::Linux {

class RouteFold {
 public:
   /// Classes that are told apart, so that what a kernel tells cannot fill the memory.
   static constexpr std::size_t mostClasses = 4096;
   static constexpr std::size_t mostExamples = 5;

   /// \param hasNeighbours  whether there are others on a link itself, and not only at its far end
   explicit RouteFold( std::function< bool( Vel::U32 ifIndex ) > hasNeighbours )
      : hasNeighbours_( std::move( hasNeighbours ) ) {}

   void nextHopIs( NextHopObject object );
   /// A destination of which the ways are wanted by themselves, whatever kind of route it is.
   void want( const RouteKey & key ) { wanted_[key]; }
   /// The same of all destinations of a table that an address is in, for packets from a source if that is known.
   void wantAllFor( const IpAddress & address, const std::optional< IpAddress > & source, Vel::U32 table );
   bool wants( const RouteKey & key ) const;

   /// With gateways if its destination is wanted.
   void take( const RouteEntry & route );
   void end() { flush(); }
   /// The last ones may not be all of their destination: it is left out.
   void drop();

   Vel::U64 routes() const { return routes_; }
   /// Whether there were too many classes: the rest is left out.
   bool overfull() const { return overfull_; }
   /// Whether routes lead over shared next hops of which nobody has told. Such a way is one that does not work.
   bool unresolved() const { return unresolved_; }

   using Names = std::function< Vel::String( Vel::U32 ifIndex ) >;
   std::vector< RouteClass > classes( const Names & nameOf ) const;
   /// Of a destination that was wanted, the most preferred ways first; none if it has not come. Ways that are none refuse,
   /// or end here.
   const std::vector< RouteWays > & wanted( const RouteKey & key ) const;
   struct Destination {
      RouteKey key;
      std::vector< RouteWays > ways; ///< as of wanted()
   };
   /// Of the destinations that were wanted for an address those that the kernel looks at behind another one of them, in
   /// the order in which it does.
   std::vector< Destination > lessSpecific(
      const RouteKey & than, const IpAddress & address, const std::optional< IpAddress > & source ) const;
   /// What a route leads over, through next hops that stand for others, in the order of the links.
   RouteWays waysOf( const RouteEntry & route ) const;

 private:
   /// By preference; empty hops refuse.
   template < class Hops >
   using ByMetric = std::vector< std::pair< Vel::U32, Hops > >;
   struct Class {
      Vel::U64 destinations = 0;
      std::vector< Vel::String > examples;
   };
   bool addWays( Vel::U32 id, Vel::U32 weight, unsigned depth, RouteWays & ways ) const;
   RouteHops hopsOf( const RouteEntry & route ) const;
   bool leadsOn( const RouteEntry & route, const RouteHops & hops ) const;
   void flush();

   std::map< Vel::U32, NextHopObject > nextHops_;
   std::map< RouteKey, std::vector< RouteWays > > wanted_;
   /// The sources of the addresses that are in each of these, which are for all sources.
   std::map< RouteKey, std::set< IpAddress > > wantedFor_;
   std::map< std::vector< RouteHops >, Class > classes_;
   std::optional< RouteKey > key_; ///< whose routes are being taken
   ByMetric< RouteWays > all_;     ///< of it, if it is wanted
   ByMetric< RouteHops > paths_;   ///< of it: those that lead to others, and what refuses
   Vel::U64 routes_ = 0;
   bool overfull_ = false, unresolved_ = false;
   std::function< bool( Vel::U32 ifIndex ) > hasNeighbours_;
};

} // namespace DataPlane::Linux
