#include "DataPlane/Simulated/Flow.h"

#include "Platform/Vel/Error.h"

#include <algorithm>
#include <cmath>

namespace DataPlane::Simulated {

namespace {
Vel::U64 rounded( double value ) { return static_cast< Vel::U64 >( std::llround( value ) ); }
} // namespace

Micros microsSince( double start, double time ) {
   return time > start ? rounded( ( time - start ) * 1e6 ) : 0;
}

Flow::Flow( Micros begin, double rate ) {
   const Vel::U64 whole = rounded( rate );
   pieces_.push_back( { begin, 0, whole, whole, 0 } );
}

void Flow::continueWith( Micros begin, bool ramp, double rate, double seconds ) {
   const Vel::U64 from = rounded( this->rate( begin ) );
   const Vel::U64 to = rounded( rate );
   const Amount before = amount( begin );
   while ( pieces_.size() > 1 && pieces_.back().begin >= begin )
      pieces_.pop_back();
   const Micros length = ramp ? rounded( seconds * 1e6 ) : 0;
   if ( length == 0 ) {
      pieces_.push_back( { begin, 0, to, to, before } );
      return;
   }
   pieces_.push_back( { begin, length, from, to, before } );
   pieces_.push_back( { begin + length, 0, to, to, amount( begin + length ) } );
}

const Flow::Piece & Flow::pieceAt( Micros time ) const {
   VEL_ASSERT( time >= pieces_.front().begin, "time >= pieces_.front().begin" );
   const auto after = std::upper_bound(
      pieces_.begin(), pieces_.end(), time, []( Micros t, const Piece & piece ) { return t < piece.begin; } );
   return *std::prev( after );
}

double Flow::rate( Micros time ) const {
   const Piece & piece = pieceAt( time );
   if ( piece.length == 0 )
      return static_cast< double >( piece.from );
   const double part = static_cast< double >( std::min( time - piece.begin, piece.length ) ) /
                       static_cast< double >( piece.length );
   const auto from = static_cast< double >( piece.from );
   return from + ( static_cast< double >( piece.to ) - from ) * part;
}

Amount Flow::amount( Micros time ) const {
   const Piece & piece = pieceAt( time );
   return piece.before + within( piece, time );
}

/// The area under the rate. The products of ten days and 10 Tbit/s have 124 bits.
Amount Flow::within( const Piece & piece, Micros time ) {
   const Amount elapsed = time - piece.begin;
   if ( piece.length == 0 )
      return piece.from * elapsed;
   const Amount x = std::min( elapsed, Amount( piece.length ) );
   const Amount twice = 2 * Amount( piece.length );
   const Amount change = Amount( piece.to ) - Amount( piece.from );
   return ( twice * piece.from * x + change * x * x ) / twice + piece.to * ( elapsed - x );
}

Flow scriptFlow( const std::vector< TrafficSegment > & script, double TrafficSegment::*rate ) {
   Flow flow;
   Micros begin = 0;
   for ( const TrafficSegment & segment : script ) {
      flow.continueWith( begin, segment.ramp, segment.*rate, segment.seconds );
      begin += rounded( segment.seconds * 1e6 );
   }
   return flow;
}

} // namespace DataPlane::Simulated
