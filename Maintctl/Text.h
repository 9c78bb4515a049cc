#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Purpose: how values are shown to people.
namespace Maintctl {

/// What is shown for unknown, never and none.
inline constexpr char nothing[] = "-";

/// Three digits and the unit that the configuration uses: `0 bps`, `1.25 kbps`, `400 Mbps`.
std::string rateText( std::optional< double > bps );
/// `0s`, `42s`, `2m05s`, `3h07m`, `4d02h`; below 0 counts as 0.
std::string spanText( double seconds );
/// How long ago it was, or `-`. Without a now the time itself, in UTC.
std::string ageText( std::optional< double > time, std::optional< double > now );
/// How far ahead it is, `now` if it is over. Without a now the time itself, in UTC.
std::string aheadText( std::optional< double > time, std::optional< double > now );
/// `3 of 5 drained`.
std::string drainedText( std::uint64_t drained, std::uint64_t total );
/// `1 error`, `2 errors`.
std::string countText( std::size_t count, std::string_view what );
/// Separated by commas; none: `-`.
std::string listText( const std::vector< std::string > & names );
std::string orNothing( const std::optional< std::string > & text );
const char * yesNo( bool value );
/// What is added to words of the agent that stand alone: it tells times of day, if any, in UTC. ` (UTC)`, or nothing.
const char * utcOf( std::string_view words );
/// The state of a unit as one says it behind "is": `under maintenance`, `entering`.
std::string stateText( const std::string & state );

/// Text that cannot fool a terminal: control characters, marks that turn the direction of writing and broken UTF-8 as
/// `\xHH`.
std::string printable( std::string_view text );
/// How many columns of a terminal it takes, if it is printable.
std::size_t columns( std::string_view text );
/// As much of it as fits into so many columns.
std::string cut( std::string_view text, std::size_t most );
/// The same for a terminal that knows only ASCII: `?` for each column of what it cannot show.
std::string ascii( std::string_view text );

} // namespace Maintctl
