#include "DataPlane/Linux/RouteFold.h"

#include <algorithm>
#include <utility>

namespace DataPlane::Linux {

namespace {

/// The kernel does not nest groups; who tells us a circle tells no way.
constexpr unsigned mostNested = 8;
constexpr Vel::U32 mostWeight = 1u << 24;

using Ways = std::vector< std::pair< Vel::U32, RouteHops > >;

/// Ways of one preference may be told as routes of their own.
void add( Ways & ways, Vel::U32 metric, const RouteHops & hops ) {
   const auto at =
      std::find_if( ways.begin(), ways.end(), [=]( const auto & way ) { return way.first == metric; } );
   if ( at == ways.end() )
      ways.emplace_back( metric, hops );
   else
      at->second.insert( at->second.end(), hops.begin(), hops.end() );
}

std::vector< RouteHops > inOrder( Ways ways ) {
   std::stable_sort(
      ways.begin(), ways.end(), []( const auto & a, const auto & b ) { return a.first < b.first; } );
   std::vector< RouteHops > result;
   for ( auto & [metric, hops] : ways ) {
      std::sort( hops.begin(), hops.end() );
      result.push_back( std::move( hops ) );
      if ( result.back().empty() )
         break; // what is behind a refusal is never taken
   }
   return result;
}

} // namespace

void RouteFold::nextHopIs( NextHopObject object ) {
   const Vel::U32 id = object.id;
   nextHops_[id] = std::move( object );
}

/// Whether all of them are known. What is not is no refusal, but a way that nobody knows.
bool RouteFold::addHops( Vel::U32 id, Vel::U32 weight, unsigned depth, RouteHops & hops ) const {
   const auto at = nextHops_.find( id );
   if ( at == nextHops_.end() || depth > mostNested ) {
      hops.push_back( { 0, 1, false } );
      return false;
   }
   bool all = true;
   for ( RouteHop hop : at->second.hops ) {
      hop.weight = weight;
      hops.push_back( hop );
   }
   for ( const NextHopObject::Member & member : at->second.group )
      all &= addHops( member.id, std::min( weight * member.weight, mostWeight ), depth + 1, hops );
   return all;
}

RouteHops RouteFold::hopsOf( const RouteEntry & route ) const {
   RouteHops hops = route.hops;
   if ( hops.empty() && route.nextHopId != 0 )
      addHops( route.nextHopId, 1, 0, hops );
   return hops;
}

void RouteFold::take( const RouteEntry & route ) {
   ++routes_;
   if ( !key_ || !( *key_ == route.key ) ) {
      flush();
      key_ = route.key;
   }
   const RouteHops hops = hopsOf( route );
   unresolved_ |=
      std::any_of( hops.begin(), hops.end(), []( const RouteHop & hop ) { return hop.ifIndex == 0; } );
   add( all_, route.metric, hops );
   if ( leadsOn( route, hops ) )
      add( paths_, route.metric, hops );
}

/// Whether it counts among the ways to others.
bool RouteFold::leadsOn( const RouteEntry & route, const RouteHops & hops ) const {
   using Kind = RouteEntry::Kind;
   const auto toNeighbours = [&] {
      return std::all_of(
         hops.begin(), hops.end(), [this]( const RouteHop & hop ) { return hasNeighbours_( hop.ifIndex ); } );
   };
   return route.kind == Kind::path || route.kind == Kind::refusal ||
          ( route.kind == Kind::onLink && !toNeighbours() );
}

void RouteFold::drop() {
   all_.clear();
   paths_.clear();
   key_.reset();
}

void RouteFold::flush() {
   if ( !key_ )
      return;
   if ( const auto at = wanted_.find( *key_ ); at != wanted_.end() )
      at->second = inOrder( std::exchange( all_, {} ) );
   const std::vector< RouteHops > ways = inOrder( std::exchange( paths_, {} ) );
   if ( !ways.empty() && !ways.front().empty() ) {
      auto at = classes_.find( ways );
      overfull_ |= at == classes_.end() && classes_.size() == mostClasses;
      if ( at == classes_.end() && classes_.size() < mostClasses )
         at = classes_.emplace( ways, Class() ).first;
      if ( at != classes_.end() ) {
         ++at->second.destinations;
         if ( at->second.examples.size() < mostExamples )
            at->second.examples.push_back( stringValue( *key_ ) );
      }
   }
   drop();
}

EqualHops RouteFold::named( const RouteHops & hops, const Names & nameOf ) {
   EqualHops result;
   for ( const RouteHop & hop : hops )
      result.push_back( { nameOf( hop.ifIndex ), hop.weight, hop.usable } );
   return result;
}

Choices RouteFold::named( const std::vector< RouteHops > & ways, const Names & nameOf ) {
   Choices result;
   for ( const RouteHops & hops : ways )
      result.push_back( named( hops, nameOf ) );
   return result;
}

std::vector< RouteClass > RouteFold::classes( const Names & nameOf ) const {
   std::vector< RouteClass > result;
   for ( const auto & [ways, folded] : classes_ )
      result.push_back( { named( ways, nameOf ), folded.destinations, folded.examples } );
   return result;
}

Choices RouteFold::wanted( const RouteKey & key, const Names & nameOf ) const {
   const auto at = wanted_.find( key );
   return at == wanted_.end() ? Choices() : named( at->second, nameOf );
}

} // namespace DataPlane::Linux
