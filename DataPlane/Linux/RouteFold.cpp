#include "DataPlane/Linux/RouteFold.h"

#include <algorithm>
#include <utility>

namespace DataPlane::Linux {

namespace {

/// The kernel does not nest groups; who tells us a circle tells no way.
constexpr unsigned mostNested = 8;
constexpr std::size_t mostWays = 10000;
constexpr Vel::U32 mostWeight = 1u << 24;

/// Ways of one preference may be told as routes of their own.
template < class Hops >
void add( std::vector< std::pair< Vel::U32, Hops > > & ways, Vel::U32 metric, const Hops & hops ) {
   const auto at =
      std::find_if( ways.begin(), ways.end(), [=]( const auto & way ) { return way.first == metric; } );
   if ( at == ways.end() )
      ways.emplace_back( metric, hops );
   else
      at->second.insert( at->second.end(), hops.begin(), hops.end() );
}

RouteHop hopOf( const RouteHop & hop ) { return hop; }
RouteHop hopOf( const RouteWay & way ) { return way.hop; }

template < class Hops >
std::vector< Hops > inOrder( std::vector< std::pair< Vel::U32, Hops > > ways ) {
   std::stable_sort(
      ways.begin(), ways.end(), []( const auto & a, const auto & b ) { return a.first < b.first; } );
   std::vector< Hops > result;
   for ( auto & [metric, hops] : ways ) {
      std::sort(
         hops.begin(), hops.end(), []( const auto & a, const auto & b ) { return hopOf( a ) < hopOf( b ); } );
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
bool RouteFold::addWays( Vel::U32 id, Vel::U32 weight, unsigned depth, RouteWays & ways ) const {
   const auto at = nextHops_.find( id );
   if ( at == nextHops_.end() || depth > mostNested || ways.size() >= mostWays ) {
      ways.push_back( { { 0, 1, false }, std::nullopt } );
      return false;
   }
   bool all = true;
   for ( RouteHop hop : at->second.hops ) {
      hop.weight = weight;
      ways.push_back( { hop, at->second.gateway } );
   }
   for ( const NextHopObject::Member & member : at->second.group )
      all &= addWays(
         member.id,
         static_cast< Vel::U32 >( std::min< Vel::U64 >( Vel::U64( weight ) * member.weight, mostWeight ) ),
         depth + 1, ways );
   return all;
}

RouteWays RouteFold::waysOf( const RouteEntry & route ) const {
   RouteWays ways;
   for ( std::size_t i = 0; i < route.hops.size(); ++i )
      ways.push_back(
         { route.hops[i], i < route.gateways.size() ? route.gateways[i] : std::optional< IpAddress >() } );
   if ( ways.empty() && route.nextHopId != 0 )
      addWays( route.nextHopId, 1, 0, ways );
   return ways;
}

RouteHops RouteFold::hopsOf( const RouteEntry & route ) const {
   if ( !route.hops.empty() || route.nextHopId == 0 )
      return route.hops;
   RouteHops hops;
   for ( const RouteWay & way : waysOf( route ) )
      hops.push_back( way.hop );
   return hops;
}

void RouteFold::wantAllFor(
   const IpAddress & address, const std::optional< IpAddress > & source, Vel::U32 table ) {
   RouteKey key;
   key.source = anyAddress( address.family );
   key.table = table;
   for ( unsigned length = 0; length <= maxPrefix( address.family ); ++length ) {
      key.destination = networkOf( address, length );
      key.length = static_cast< Vel::U8 >( length );
      std::set< IpAddress > & sources = wantedFor_[key];
      if ( source )
         sources.insert( *source );
   }
}

bool RouteFold::wants( const RouteKey & key ) const {
   if ( wanted_.count( key ) > 0 )
      return true;
   if ( wantedFor_.empty() )
      return false;
   if ( key.sourceLength == 0 )
      return wantedFor_.count( key ) > 0;
   RouteKey forAll = key;
   forAll.source = anyAddress( key.destination.family );
   forAll.sourceLength = 0;
   const auto at = wantedFor_.find( forAll );
   return at != wantedFor_.end() &&
          std::any_of( at->second.begin(), at->second.end(), [&]( const IpAddress & source ) {
             return networkOf( source, key.sourceLength ) == key.source;
          } );
}

std::vector< RouteFold::Destination > RouteFold::lessSpecific(
   const RouteKey & than, const IpAddress & address, const std::optional< IpAddress > & source ) const {
   const auto specific = []( const RouteKey & key ) { return std::pair( key.length, key.sourceLength ); };
   std::vector< Destination > result;
   for ( const auto & [key, ways] : wanted_ )
      if (
         !ways.empty() && key.table == than.table && key.tos == 0 && specific( key ) < specific( than ) &&
         key.destination == networkOf( address, key.length ) &&
         ( key.sourceLength == 0 || ( source && key.source == networkOf( *source, key.sourceLength ) ) ) )
         result.push_back( { key, ways } );
   std::sort( result.begin(), result.end(), [&]( const Destination & a, const Destination & b ) {
      return specific( a.key ) > specific( b.key );
   } );
   return result;
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
   if ( wants( route.key ) )
      add( all_, route.metric, route.kind == RouteEntry::Kind::local ? RouteWays() : waysOf( route ) );
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
   if ( !all_.empty() )
      wanted_[*key_] = inOrder( std::exchange( all_, {} ) );
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

std::vector< RouteClass > RouteFold::classes( const Names & nameOf ) const {
   std::vector< RouteClass > result;
   for ( const auto & [ways, folded] : classes_ ) {
      RouteClass & added = result.emplace_back();
      added.destinations = folded.destinations;
      added.examples = folded.examples;
      for ( const RouteHops & hops : ways ) {
         EqualHops & named = added.choices.emplace_back();
         for ( const RouteHop & hop : hops )
            named.push_back( { nameOf( hop.ifIndex ), hop.weight, hop.usable } );
      }
   }
   return result;
}

const std::vector< RouteWays > & RouteFold::wanted( const RouteKey & key ) const {
   static const std::vector< RouteWays > none;
   const auto at = wanted_.find( key );
   return at == wanted_.end() ? none : at->second;
}

} // namespace DataPlane::Linux
