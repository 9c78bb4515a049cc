#include "Agent/Plan/Moves.h"

#include <algorithm>
#include <unordered_map>

namespace Agent {

using DataPlane::EqualHops;
using DataPlane::NextHop;

Moves::Moves(
   const PlanFacts & facts, const Topology & present, const Topology & before, const Topology & after )
   : facts_( facts ), present_( present ), before_( before ), after_( after ) {
   for ( const DataPlane::RouteClass & routes : facts.routes->classes )
      addRoutes( routes );
   addStandIns();
   addDetours();
   for ( const Ends * ends : { &sources_, &targets_ } )
      for ( const auto & [name, end] : *ends )
         names_.emplace( end.node, name );
}

std::set< std::string > Moves::namesOf( const Ends & ends ) {
   std::set< std::string > result;
   for ( const auto & [name, end] : ends )
      result.insert( name );
   return result;
}

// What moves.

void Moves::addRoutes( const DataPlane::RouteClass & routes ) {
   const EqualHops * const now = present_.taken( routes.choices );
   const EqualHops * const then = after_.taken( routes.choices );
   if ( !now || !then || std::none_of( now->begin(), now->end(), [this]( const NextHop & hop ) {
           return goes( hop );
        } ) )
      return;
   Class added{ static_cast< double >( routes.destinations ), {}, {} };
   for ( const NextHop & hop : *now )
      if ( goes( hop ) )
         added.from.emplace_back( &lost( hop.link ), hop.weight );
   for ( const NextHop & hop : *then )
      if ( after_.works( hop ) )
         added.to.emplace_back( &taken( hop.link ), hop.weight );
   double all = 0;
   for ( const NextHop & hop : *now )
      all += present_.works( hop ) ? hop.weight : 0;
   for ( auto & [link, part] : added.from )
      part /= all;
   // Without the other units it would go on in ways of which the unit takes one away.
   const EqualHops * const otherwise = before_.taken( routes.choices );
   const bool ours =
      otherwise && std::any_of( otherwise->begin(), otherwise->end(), [this]( const auto & hop ) {
         return before_.works( hop ) && !after_.works( hop );
      } );
   addClass( std::move( added ), ours );
}

/// Where routes say nothing, the operator may have said who stands in for whom.
void Moves::addStandIns() {
   // What a member of a port-channel carries is moved to the other members.
   std::set< std::string > members;
   for ( const DataPlane::RoutedLink & link : facts_.routes->links )
      if ( link.aggregate && after_.works( link.name ) )
         for ( std::string & member : present_.members( link ) )
            members.insert( std::move( member ) );
   const auto leaves = [&]( const std::string & interface ) {
      return present_.works( interface ) && !after_.works( interface ) && !members.count( interface );
   };
   for ( const PlanRedundancy & group : facts_.redundancy ) {
      Class others;
      for ( const std::string & other : std::set< std::string >( group.others.begin(), group.others.end() ) )
         if ( after_.works( other ) )
            others.to.emplace_back( &taken( other ), 1 );
      if ( others.to.empty() )
         continue;
      for ( const PlanInterface & interface : facts_.interfaces )
         if ( interface.leaves && !before_.removed( interface.name ) && leaves( interface.name ) )
            addStandIn( others, interface.name, true );
      for ( const auto & [interface, unit] : facts_.leavingToo )
         if ( std::count( group.out.begin(), group.out.end(), unit ) && leaves( interface ) )
            addStandIn( others, interface, false );
   }
}

void Moves::addStandIn( Class others, const std::string & interface, bool ours ) {
   const Link & link = lost( interface );
   if ( std::any_of( link.ends.begin(), link.ends.end(), [this]( std::size_t end ) {
           return movedByRoutes_.count( end ) > 0;
        } ) )
      return;
   others.from = { { &link, 1 } };
   addClass( std::move( others ), ours );
}

void Moves::addClass( Class added, bool ours ) {
   const std::size_t node = placing_.node();
   if ( ours )
      ours_.push_back( node );
   for ( const auto & [link, part] : added.from ) {
      placing_.way( link->node, node );
      for ( const std::size_t end : link->ends ) {
         if ( ours )
            oursOf_.insert( end );
         if ( added.destinations > 0 )
            movedByRoutes_.insert( end );
      }
   }
   for ( const auto & [link, part] : added.to )
      placing_.way( node, link->node );
   classes_.push_back( std::move( added ) );
}

/// Where the traffic of a link that is lost is counted: at what carries it and does not work any more. If all of that
/// works on, at what was taken away upon it.
const Moves::Link & Moves::lost( const std::string & link ) {
   const auto known = lost_.find( link );
   if ( known != lost_.end() )
      return known->second;
   Link & result = lost_[link];
   result.node = placing_.node();
   std::set< std::string > gone = present_.carriers( link );
   const std::size_t all = gone.size();
   std::erase_if( gone, [this]( const std::string & carrier ) { return after_.works( carrier ); } );
   const std::set< std::string > upon =
      gone.size() == all ? std::set< std::string >() : lowestRemoved( link );
   for ( const std::string & name : upon )
      source( name );
   for ( const std::string & name : gone.empty() ? upon : gone ) {
      End & end = source( name );
      end.counted = true;
      placing_.way( end.node, result.node );
      result.ends.push_back( end.node );
   }
   return result;
}

Moves::End & Moves::source( const std::string & name ) {
   const auto [at, isNew] = sources_.try_emplace( name );
   if ( isNew ) {
      at->second.node = placing_.node();
      for ( const std::string & carrier : present_.carriers( name ) )
         if ( after_.works( carrier ) )
            at->second.staysOn.insert( carrier );
   }
   return at->second;
}

/// What goes on to work upon a source has other links below it. What leaves a port-channel with one of its members stays
/// on the others.
void Moves::addDetours() {
   std::unordered_map< std::string, std::vector< const DataPlane::RoutedLink * > > uppers;
   for ( const DataPlane::RoutedLink & link : facts_.routes->links )
      if ( !link.needs.empty() )
         for ( const std::string & below : link.needs.back() )
            uppers[below].push_back( &link );
   for ( auto & [name, source] : sources_ ) {
      std::set< std::string > seen{ name };
      std::vector< std::string > open{ name };
      while ( !open.empty() && source.counted ) {
         const std::string below = std::move( open.back() );
         open.pop_back();
         for ( const DataPlane::RoutedLink * upper : uppers[below] ) {
            if ( !seen.insert( upper->name ).second )
               continue;
            // What a member of a port-channel carries is counted with it.
            const auto whole = sources_.find( upper->name );
            source.counted &= !upper->aggregate || whole == sources_.end() || !whole->second.counted;
            if ( after_.works( upper->name ) && movedByRoutes_.count( source.node ) ) {
               placing_.way( source.node, taken( upper->name ).node );
               if ( upper->aggregate )
                  source.staysOn.insert( upper->name );
            }
            open.push_back( upper->name );
         }
      }
   }
}

/// The link itself, if it does not work for another reason.
std::set< std::string > Moves::lowestRemoved( const std::string & link ) const {
   std::set< std::string > removed = after_.chain( link );
   std::erase_if( removed, [this]( const std::string & name ) { return !after_.removed( name ); } );
   std::set< std::string > result;
   for ( const std::string & name : removed ) {
      const std::set< std::string > chain = after_.chain( name );
      if ( std::none_of( chain.begin(), chain.end(), [&]( const std::string & below ) {
              return below != name && removed.count( below );
           } ) )
         result.insert( name );
   }
   return result.empty() ? std::set< std::string >{ link } : result;
}

const Moves::Link & Moves::taken( const std::string & link ) {
   const auto known = taken_.find( link );
   if ( known != taken_.end() )
      return known->second;
   Link & result = taken_[link];
   result.node = placing_.node();
   for ( const std::string & name : after_.carriers( link ) ) {
      const auto [at, isNew] = targets_.try_emplace( name );
      if ( isNew )
         at->second.node = placing_.node();
      placing_.way( result.node, at->second.node );
      result.ends.push_back( at->second.node );
   }
   return result;
}

// Whether it fits.

std::vector< bool > Moves::concerned() const {
   const std::vector< std::size_t > & connected = placing_.connected();
   std::set< std::size_t > ours;
   for ( const std::size_t node : ours_ )
      ours.insert( connected[node] );
   std::vector< bool > result( placing_.size() );
   for ( std::size_t i = 0; i < result.size(); ++i )
      result[i] = ours.count( connected[i] ) > 0;
   return result;
}

std::optional< Moves::Part >
Moves::overfull( const Amount & load, const Amount & room, const Relief & relief ) const {
   const std::vector< bool > concerned = this->concerned();
   Placing::Amounts loads( placing_.size() ), rooms( placing_.size() );
   for ( const auto & [name, target] : targets_ )
      rooms[target.node] = room( name );
   for ( const auto & [name, source] : sources_ ) {
      for ( const std::string & carrier : source.staysOn )
         if ( const auto target = targets_.find( carrier ); target != targets_.end() )
            rooms[target->second.node] += relief( name, carrier );
      if ( source.counted && concerned[source.node] )
         loads[source.node] = load( name );
   }
   const std::vector< bool > overfull = placing_.overfull( loads, rooms );
   Part part;
   bool ours = false;
   for ( const auto & [name, source] : sources_ )
      if ( overfull[source.node] && loads[source.node] > 0 ) {
         part.from.insert( name );
         ours |= oursOf_.count( source.node ) > 0;
      }
   if ( !ours )
      return std::nullopt;
   for ( const auto & [name, target] : targets_ )
      if ( overfull[target.node] )
         part.to.insert( name );
   return part;
}

/// From the links that are lost to what is reached over them, and from there to what is taken instead: at each step all
/// that comes in is shared out.
std::map< std::string, double > Moves::shared( const Amount & load ) const {
   const std::vector< bool > concerned = this->concerned();
   std::vector< double > amounts( placing_.size() ), destinations( placing_.size() );
   for ( const Class & each : classes_ )
      for ( const auto & [link, part] : each.from )
         destinations[link->node] += each.destinations * part;
   for ( const auto & [name, link] : lost_ )
      for ( const std::size_t end : link.ends )
         destinations[end] += destinations[link.node] / static_cast< double >( link.ends.size() );
   for ( const auto & [name, link] : lost_ )
      for ( const std::size_t end : link.ends )
         if ( concerned[end] && destinations[end] > 0 )
            amounts[link.node] += load( names_.at( end ) ) * destinations[link.node] /
                                  static_cast< double >( link.ends.size() ) / destinations[end];
   std::vector< double > gets( placing_.size() );
   for ( const Class & each : classes_ ) {
      double amount = 0, parts = 0;
      for ( const auto & [link, part] : each.from )
         if ( each.destinations > 0 )
            amount += amounts[link->node] * each.destinations * part / destinations[link->node];
      for ( const auto & [link, part] : each.to )
         parts += part;
      for ( const auto & [link, part] : each.to )
         amounts[link->node] += amount * part / parts;
   }
   for ( const auto & [name, link] : taken_ )
      for ( const std::size_t end : link.ends )
         gets[end] += amounts[link.node] / static_cast< double >( link.ends.size() );
   std::map< std::string, double > result;
   for ( const auto & [name, target] : targets_ )
      if ( gets[target.node] > 0 )
         result.emplace( name, gets[target.node] );
   // Some of that is there already.
   for ( const auto & [name, source] : sources_ )
      for ( const std::string & carrier : source.staysOn )
         if ( const auto at = result.find( carrier ); at != result.end() && source.counted )
            at->second -= load( name ) / static_cast< double >( source.staysOn.size() );
   return result;
}

} // namespace Agent
