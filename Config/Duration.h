#pragma once

#include "Config/Parsed.h"

#include <compare>
#include <cstdint>
#include <string>
#include <string_view>

namespace Config {

/// A length of time: whole seconds, 0 to Duration::max().
class Duration {
 public:
   constexpr Duration() = default; ///< 0
   /// \param seconds  at most max().seconds()
   static constexpr Duration fromSeconds( std::uint32_t seconds ) { return Duration( seconds ); }
   static constexpr Duration max() { return Duration( 720 * 3600 ); } ///< 720h, 30 days

   /// Reads whole numbers of hours, minutes and seconds, the larger unit first, each at most once, nothing between
   /// them: `90s`, `5m`, `1h30m`. A bare number is refused, 0 too: nobody can tell which unit was meant.
   static Parsed< Duration > parse( std::string_view text );

   constexpr std::uint32_t seconds() const { return seconds_; }

   /// For example `0s`, `10s`, `1m30s`, `2h`; parse() gives the same duration again.
   std::string text() const;

   friend constexpr auto operator<=>( const Duration &, const Duration & ) = default;

 private:
   explicit constexpr Duration( std::uint32_t seconds ) : seconds_( seconds ) {}

   std::uint32_t seconds_ = 0;
};

} // namespace Config
