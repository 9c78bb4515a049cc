#pragma once

#include <utility>
#include <vector>

/// Purpose: whether loads can be placed where there is room, if each may go only where there is a way for it. Pure.
///
/// Loads are placed as is best for all of them together. So what does not fit here fits in no way at all; what fits here
/// may still not fit as somebody else shares it out.
namespace Agent {

class Placing {
 public:
   /// Beyond so many ways, what is connected in whatever manner is looked at as one: all its loads against all its room.
   static constexpr std::size_t mostWays = 50'000;

   /// Nodes are numbered from 0. Loads, rooms and what is between the two are nodes.
   std::size_t node() { return nodes_++; }
   void way( std::size_t from, std::size_t to ) { ways_.emplace_back( from, to ); }

   /// By node: what it has to place, and what it has room for; none is negative.
   using Amounts = std::vector< double >;
   /// By node, whether it belongs to what is overfull: loads for which there is too little room, all that they have ways
   /// to, and the other loads that would have to make place for them. None: all of it fits.
   std::vector< bool > overfull( const Amounts & loads, const Amounts & room ) const;
   /// By node, the number of what it is connected with, in whatever direction.
   const std::vector< std::size_t > & connected() const;

   std::size_t size() const { return nodes_; }

 private:
   std::vector< bool > overfullAsOne( const Amounts & loads, const Amounts & room ) const;

   std::size_t nodes_ = 0;
   std::vector< std::pair< std::size_t, std::size_t > > ways_;
   // What was found for as many ways: it is asked for again and again.
   mutable std::vector< std::size_t > connected_;
   mutable std::size_t connectedWays_ = 0;
};

} // namespace Agent
