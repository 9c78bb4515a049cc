#pragma once

#include "DataPlane/Simulated/Description.h"

namespace DataPlane::Simulated {

/// Whole microseconds since the start of the switch.
using Micros = Vel::U64;
/// An amount of traffic in bits times microseconds: whole rates for whole microseconds are exact in it.
__extension__ using Amount = __int128;

constexpr Amount amountPerOctet = 8 * 1'000'000;
constexpr double maxRate = 1e13;
constexpr double maxSegment = 10 * 86400.0;

/// Purpose: traffic in one direction over time: pieces of constant or linearly changing rate.
///
/// amount() is a function of time only, computed from the begin of the piece that the time lies in: however often and
/// at whatever times it is asked, differences add up exactly.
class Flow {
 public:
   /// No traffic.
   Flow() : Flow( 0, 0 ) {}
   /// Constant from a time on. Rates are rounded to whole bits per second.
   Flow( Micros begin, double rate );

   /// Goes on differently from `begin` on (not before the begin of the flow): at `rate`, or as a ramp of `seconds` from
   /// the rate at `begin` to it. Rates up to maxRate, lengths up to maxSegment.
   void continueWith( Micros begin, bool ramp, double rate, double seconds );

   /// Bits per second at a time.
   double rate( Micros time ) const;
   /// From the begin of the flow to a time, which is not before it; never less for a later time.
   Amount amount( Micros time ) const;

 private:
   struct Piece {
      Micros begin;
      Micros length; ///< of a ramp; 0: constant
      Vel::U64 from; ///< rates
      Vel::U64 to;
      Amount before; ///< amount up to its begin
   };
   const Piece & pieceAt( Micros time ) const;
   static Amount within( const Piece & piece, Micros time );

   std::vector< Piece > pieces_;
};

/// One direction of a script that begins at 0.
Flow scriptFlow( const std::vector< TrafficSegment > & script, double TrafficSegment::*rate );

/// 0 for a time before the start.
Micros microsSince( double start, double time );

} // namespace DataPlane::Simulated
