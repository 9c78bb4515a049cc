#pragma once

#include "Config/Parsed.h"

#include <compare>
#include <cstdint>
#include <string>
#include <string_view>

namespace Config {

/// A traffic rate: whole bits per second, 0 to Rate::max(). All of them are exact as a double.
class Rate {
 public:
   constexpr Rate() = default; ///< 0
   /// \param bps  at most max().bps()
   static constexpr Rate fromBps( std::uint64_t bps ) { return Rate( bps ); }
   static constexpr Rate max() { return Rate( 1'000'000'000'000'000 ); } ///< 1000000Gbps

   /// Reads a number and one of the units bps, kbps, Mbps, Gbps (powers of 1000), nothing between or around them:
   /// `100kbps`, `1.5Mbps`. The number may have a decimal fraction as long as whole bits per second result. A bare
   /// number is refused, 0 too: nobody can tell which unit was meant.
   static Parsed< Rate > parse( std::string_view text );

   constexpr std::uint64_t bps() const { return bps_; }
   constexpr double kbps() const { return static_cast< double >( bps_ ) / 1000.0; }

   /// The shortest text in the largest unit of which there is at least one; parse() gives the same rate again.
   std::string text() const;

   friend constexpr auto operator<=>( const Rate &, const Rate & ) = default;

 private:
   explicit constexpr Rate( std::uint64_t bps ) : bps_( bps ) {}

   std::uint64_t bps_ = 0;
};

} // namespace Config
