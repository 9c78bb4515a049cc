#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// Purpose: how values are spelled that JSON has no type for.
namespace Api {

/// A time as RFC 3339 in UTC with milliseconds: `2026-03-01T12:00:00.250Z`.
/// \param seconds  since 1970, not before year 0 and not after year 9999; those are given as the nearest of the two
std::string timeText( double seconds );

/// Seconds since 1970. Takes any offset and any number of decimals of a second; a leap second is the one after it.
/// Nothing if the text is no such time.
std::optional< double > timeOf( std::string_view text );

/// A finite rate for people, with three digits: `400 Mbps`, `1.50 kbps`, `12 bps`.
std::string rateText( double bps );

/// A time span for people, the part of it that is not whole left out: `0s`, `42s`, `2m05s`, `3h07m`, `4d02h`; below 0
/// counts as 0.
std::string spanText( double seconds );

/// A 64-bit number, which many readers of JSON would round: its decimal digits.
std::string counterText( std::uint64_t value );
/// Nothing unless the text is decimal digits only and fits.
std::optional< std::uint64_t > counterOf( std::string_view text );

} // namespace Api
