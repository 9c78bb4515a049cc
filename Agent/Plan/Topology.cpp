#include "Agent/Plan/Topology.h"

#include <algorithm>
#include <numeric>
#include <string_view>

namespace Agent {

using DataPlane::RoutedLink;

namespace {

using Below = std::vector< std::string >;

/// Those seen, by their names, which outlive it.
using Seen = std::unordered_set< std::string_view >;

/// Goes down from a link, to each one once: to each of the lists that `next` calls its second argument with.
template < class Next >
void descend( const Topology & links, const std::string & link, Seen & seen, Next next ) {
   if ( !seen.insert( link ).second )
      return;
   if ( const RoutedLink * const described = links.find( link ) )
      next( *described, [&]( const Below & list ) {
         for ( const std::string & below : list )
            descend( links, below, seen, next );
      } );
}

/// Those of the seen that are wanted.
template < class Wanted >
std::set< std::string > chosen( const Seen & seen, Wanted wanted ) {
   std::vector< std::string > result;
   for ( const std::string_view name : seen )
      if ( std::string link( name ); wanted( link ) )
         result.push_back( std::move( link ) );
   std::sort( result.begin(), result.end() );
   return { result.begin(), result.end() };
}

} // namespace

/// What stands on others works once they do: so from below, until nothing more comes up.
Topology::Topology( const std::vector< RoutedLink > & links, std::set< std::string > removed )
   : removed_( std::move( removed ) ) {
   for ( const RoutedLink & link : links )
      links_.emplace( link.name, &link );
   std::vector< const RoutedLink * > open;
   for ( const auto & [name, link] : links_ )
      if ( link->up && !this->removed( name ) )
         open.push_back( link );
   for ( std::size_t before = open.size() + 1; open.size() < before; ) {
      before = open.size();
      std::erase_if( open, [this]( const RoutedLink * link ) {
         return hasWhatItNeeds( *link ) && works_.insert( link->name ).second;
      } );
   }
}

bool Topology::hasWhatItNeeds( const RoutedLink & link ) const {
   return std::all_of( link.needs.begin(), link.needs.end(), [this]( const auto & need ) {
      return std::any_of(
         need.begin(), need.end(), [this]( const std::string & below ) { return works( below ); } );
   } );
}

const RoutedLink * Topology::find( const std::string & link ) const {
   const auto at = links_.find( link );
   return at == links_.end() ? nullptr : at->second;
}

bool Topology::isSetDown( const std::string & link ) const {
   std::string name = link;
   // As many steps as there are links: they may stand in a circle.
   for ( std::size_t left = links_.size() + 1; left > 0; --left ) {
      const RoutedLink * const described = find( name );
      if ( removed( name ) )
         return true;
      if ( !described || !described->setDownWithBelow || described->needs.empty() )
         return false;
      name = described->needs.back().front();
   }
   return false;
}

std::set< std::string > Topology::removedBelow( const std::string & link ) const {
   Seen seen;
   descend( *this, link, seen, []( const RoutedLink & described, const auto & down ) {
      for ( const Below & need : described.needs )
         down( need );
   } );
   return chosen( seen, [this]( const std::string & name ) { return removed( name ); } );
}

namespace {
bool carriesItself( const RoutedLink & link ) { return link.aggregate || link.needs.empty(); }
} // namespace

std::set< std::string > Topology::chain( const std::string & link ) const {
   Seen seen;
   descend( *this, link, seen, []( const RoutedLink & described, const auto & down ) {
      if ( !carriesItself( described ) )
         down( described.needs.back() );
   } );
   return chosen( seen, []( const std::string & ) { return true; } );
}

std::set< std::string > Topology::carriers( const std::string & link ) const {
   Seen seen;
   descend( *this, link, seen, [this]( const RoutedLink & described, const auto & down ) {
      if ( !carriesItself( described ) && works( described.name ) )
         down( described.needs.back() );
   } );
   return chosen(
      seen, [this]( const std::string & name ) { return works( name ) && carriesItself( *find( name ) ); } );
}

std::vector< std::string > Topology::members( const RoutedLink & portChannel ) const {
   std::vector< std::string > result;
   for ( const auto & need : portChannel.needs )
      for ( const std::string & member : need )
         if ( works( member ) )
            result.push_back( member );
   return result;
}

std::set< std::string > Topology::portsOf( const std::string & carrier ) const {
   const RoutedLink * const described = find( carrier );
   if ( !described || !described->aggregate )
      return { carrier };
   std::set< std::string > result;
   for ( const std::string & member : members( *described ) )
      result.merge( portsOf( member ) );
   return result;
}

std::optional< double > Topology::speed( const std::string & carrier, const Speeds & speeds ) const {
   using DataPlane::Sharing;
   const RoutedLink * const described = find( carrier );
   if ( !described )
      return std::nullopt;
   if ( !described->aggregate ) {
      const auto at = speeds.find( carrier );
      return at == speeds.end() ? std::nullopt : std::optional( at->second );
   }
   if ( described->sharing == Sharing::unknown )
      return std::nullopt;
   std::vector< std::string > used = members( *described );
   // If none is left that carries now, those that wait take over.
   const auto waits = [this]( const std::string & member ) { return find( member )->standby; };
   if ( described->sharing == Sharing::together && !std::all_of( used.begin(), used.end(), waits ) )
      std::erase_if( used, waits );
   std::vector< double > each;
   for ( const std::string & member : used )
      if ( const auto one = speed( member, speeds ) )
         each.push_back( *one );
      else
         return std::nullopt;
   if ( each.empty() )
      return 0;
   if ( described->sharing == Sharing::oneAtATime )
      return *std::max_element( each.begin(), each.end() );
   if ( described->sharing == Sharing::copied )
      return *std::min_element( each.begin(), each.end() );
   return std::accumulate( each.begin(), each.end(), 0.0 );
}

const DataPlane::EqualHops * Topology::taken( const DataPlane::Choices & choices ) const {
   for ( const DataPlane::EqualHops & hops : choices ) {
      if ( hops.empty() )
         return nullptr;
      if ( std::any_of( hops.begin(), hops.end(), [this]( const auto & hop ) { return works( hop ); } ) )
         return &hops;
   }
   return nullptr;
}

} // namespace Agent
