#include "Agent/Plan/Topology.h"

#include <algorithm>
#include <functional>
#include <iterator>
#include <numeric>

namespace Agent {

using DataPlane::RoutedLink;

namespace {

/// Goes down from a link, to each one once: to what `next` gives of each.
void descend(
   const Topology & links, const std::string & link, std::set< std::string > & seen,
   const std::function< std::vector< std::string >( const RoutedLink & ) > & next ) {
   if ( !seen.insert( link ).second )
      return;
   if ( const RoutedLink * const described = links.find( link ) )
      for ( const std::string & below : next( *described ) )
         descend( links, below, seen, next );
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

std::set< std::string > Topology::removedBelow( const std::string & link ) const {
   std::set< std::string > seen, result;
   descend( *this, link, seen, []( const RoutedLink & described ) {
      std::vector< std::string > all;
      for ( const auto & need : described.needs )
         all.insert( all.end(), need.begin(), need.end() );
      return all;
   } );
   std::copy_if(
      seen.begin(), seen.end(), std::inserter( result, result.end() ),
      [this]( const auto & name ) { return removed( name ); } );
   return result;
}

namespace {
bool carriesItself( const RoutedLink & link ) { return link.aggregate || link.needs.empty(); }
} // namespace

std::set< std::string > Topology::chain( const std::string & link ) const {
   std::set< std::string > seen;
   descend( *this, link, seen, []( const RoutedLink & described ) {
      return carriesItself( described ) ? std::vector< std::string >() : described.needs.back();
   } );
   return seen;
}

std::set< std::string > Topology::carriers( const std::string & link ) const {
   std::set< std::string > seen, result;
   descend( *this, link, seen, [this]( const RoutedLink & described ) {
      return carriesItself( described ) || !works( described.name ) ? std::vector< std::string >()
                                                                    : described.needs.back();
   } );
   std::copy_if(
      seen.begin(), seen.end(), std::inserter( result, result.end() ),
      [this]( const auto & name ) { return works( name ) && carriesItself( *find( name ) ); } );
   return result;
}

std::vector< std::string > Topology::members( const RoutedLink & portChannel ) const {
   std::vector< std::string > result;
   for ( const auto & need : portChannel.needs )
      for ( const std::string & member : need )
         if ( works( member ) )
            result.push_back( member );
   return result;
}

std::optional< double > Topology::speed( const std::string & carrier ) const {
   using DataPlane::Sharing;
   const RoutedLink * const described = find( carrier );
   if ( !described )
      return std::nullopt;
   if ( !described->aggregate )
      return described->speedBps;
   if ( described->sharing == Sharing::unknown )
      return std::nullopt;
   std::vector< std::string > used = members( *described );
   // If none is left that carries now, those that wait take over.
   const auto waits = [this]( const std::string & member ) { return find( member )->standby; };
   if ( described->sharing == Sharing::together && !std::all_of( used.begin(), used.end(), waits ) )
      std::erase_if( used, waits );
   std::vector< double > speeds;
   for ( const std::string & member : used )
      if ( const auto one = speed( member ) )
         speeds.push_back( *one );
      else
         return std::nullopt;
   if ( speeds.empty() )
      return 0;
   if ( described->sharing == Sharing::oneAtATime )
      return *std::max_element( speeds.begin(), speeds.end() );
   if ( described->sharing == Sharing::copied )
      return *std::min_element( speeds.begin(), speeds.end() );
   return std::accumulate( speeds.begin(), speeds.end(), 0.0 );
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
