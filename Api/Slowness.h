#pragma once

#include <algorithm>
#include <optional>

/// Purpose: which interface keeps a unit waiting longest: one order for whoever names or draws the slowest, agent and
/// command alike.
namespace Api {

/// What of an interface that a unit waits for decides it.
struct Slowness {
   std::optional< double > end; ///< when it will have drained, seconds of any clock; nothing: nobody can say
   std::optional< double > rateBps; ///< of the busier direction
   std::optional< double > thresholdBps;
};

/// First those of which nobody can say when they end, by how many times their threshold they carry (once, if nobody
/// knows that); then what ends last. Names decide nothing: who sorts stably keeps the order there was.
inline bool isSlower( const Slowness & a, const Slowness & b ) {
   if ( a.end.has_value() != b.end.has_value() )
      return !a.end;
   if ( a.end )
      return *a.end > *b.end;
   const auto excess = []( const Slowness & of ) {
      return of.rateBps && of.thresholdBps ? *of.rateBps / std::max( 1.0, *of.thresholdBps ) : 1;
   };
   return excess( a ) > excess( b );
}

} // namespace Api
