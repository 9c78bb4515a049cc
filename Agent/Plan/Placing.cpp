#include "Agent/Plan/Placing.h"

#include <algorithm>
#include <limits>
#include <numeric>

namespace Agent {

namespace {

constexpr double plenty = std::numeric_limits< double >::infinity();

/// The greatest flow from one node to another: layer after layer, by the shortest ways that have room.
class Flow {
 public:
   Flow( std::size_t nodes, double least ) : out_( nodes ), least_( least ) {}

   void arc( std::size_t from, std::size_t to, double room ) {
      out_[from].push_back( arcs_.size() );
      arcs_.push_back( { to, room } );
      out_[to].push_back( arcs_.size() );
      arcs_.push_back( { from, 0 } );
   }
   /// By node, whether more could be brought there after all that can be brought to the end has been.
   std::vector< bool > fill( std::size_t begin, std::size_t end ) {
      while ( layer( begin, end ) )
         push( begin, end );
      std::vector< bool > reached( out_.size() );
      for ( std::size_t i = 0; i < out_.size(); ++i )
         reached[i] = layer_[i] != none;
      return reached;
   }

 private:
   struct Arc {
      std::size_t to;
      double room;
   };
   static constexpr std::size_t none = ~std::size_t();

   /// Whether the end can be reached.
   bool layer( std::size_t begin, std::size_t end ) {
      layer_.assign( out_.size(), none );
      layer_[begin] = 0;
      std::vector< std::size_t > open{ begin };
      for ( std::size_t i = 0; i < open.size(); ++i )
         for ( const std::size_t number : out_[open[i]] ) {
            const Arc & arc = arcs_[number];
            if ( arc.room <= least_ || layer_[arc.to] != none )
               continue;
            layer_[arc.to] = layer_[open[i]] + 1;
            open.push_back( arc.to );
         }
      return layer_[end] != none;
   }
   void push( std::size_t begin, std::size_t end ) {
      std::vector< std::size_t > tried( out_.size() ), path;
      std::size_t at = begin;
      while ( true ) {
         if ( at == end ) {
            double amount = plenty;
            for ( const std::size_t number : path )
               amount = std::min( amount, arcs_[number].room );
            for ( const std::size_t number : path ) {
               arcs_[number].room -= amount;
               arcs_[number ^ 1].room += amount;
            }
            path.clear();
            at = begin;
         } else if ( tried[at] < out_[at].size() ) {
            const std::size_t number = out_[at][tried[at]];
            const Arc & arc = arcs_[number];
            if ( arc.room > least_ && layer_[arc.to] == layer_[at] + 1 ) {
               path.push_back( number );
               at = arc.to;
            } else {
               ++tried[at];
            }
         } else if ( at == begin ) {
            return;
         } else {
            at = arcs_[path.back() ^ 1].to;
            path.pop_back();
            ++tried[at];
         }
      }
   }

   std::vector< std::vector< std::size_t > > out_; ///< numbers of arcs by where they begin
   std::vector< Arc > arcs_;                       ///< each followed by the one back
   std::vector< std::size_t > layer_;
   double least_; ///< what is less is nothing
};

/// What is less is an error of the arithmetic. (Loads that nobody knows may be given as more than anything.)
double leastOf( const Placing::Amounts & loads ) {
   double sum = 1;
   for ( const double load : loads )
      sum += std::min( load, 1e13 );
   return 1e-9 * sum;
}

} // namespace

const std::vector< std::size_t > & Placing::connected() const {
   std::vector< std::size_t > & parent = connected_;
   if ( parent.size() == nodes_ && connectedWays_ == ways_.size() )
      return parent;
   connectedWays_ = ways_.size();
   parent.resize( nodes_ );
   std::iota( parent.begin(), parent.end(), 0 );
   const auto top = [&]( std::size_t node ) {
      while ( parent[node] != node )
         node = parent[node] = parent[parent[node]];
      return node;
   };
   for ( const auto & [from, to] : ways_ )
      parent[top( from )] = top( to );
   for ( std::size_t i = 0; i < nodes_; ++i )
      parent[i] = top( i );
   return parent;
}

std::vector< bool > Placing::overfullAsOne( const Amounts & loads, const Amounts & room ) const {
   const std::vector< std::size_t > & all = connected();
   const double least = leastOf( loads );
   Amounts load( nodes_ ), left( nodes_ );
   for ( std::size_t i = 0; i < nodes_; ++i ) {
      load[all[i]] += loads[i];
      left[all[i]] += room[i];
   }
   std::vector< bool > result( nodes_ );
   for ( std::size_t i = 0; i < nodes_; ++i )
      result[i] = load[all[i]] > left[all[i]] + least;
   return result;
}

std::vector< bool > Placing::overfull( const Amounts & loads, const Amounts & room ) const {
   if ( ways_.size() > mostWays )
      return overfullAsOne( loads, room );
   const std::size_t begin = nodes_, end = nodes_ + 1;
   Flow flow( nodes_ + 2, leastOf( loads ) );
   for ( const auto & [from, to] : ways_ )
      flow.arc( from, to, plenty );
   for ( std::size_t i = 0; i < nodes_; ++i ) {
      if ( loads[i] > 0 )
         flow.arc( begin, i, loads[i] );
      if ( room[i] > 0 )
         flow.arc( i, end, room[i] );
   }
   std::vector< bool > result = flow.fill( begin, end );
   result.resize( nodes_ );
   return result;
}

} // namespace Agent
