#pragma once

#include <optional>
#include <string>

/// Purpose: files that are there as a whole or not at all, whatever happens while they are written.
namespace Agent {

/// What the name of a file ends with while it is written; one that is left is good for nothing.
inline constexpr char unfinishedEnding[] = ".new";

/// Writes, syncs, and only then gives the file its name. What went wrong, naming the file; empty: nothing.
std::string writeWhole( const std::string & path, const std::string & text );

/// Nothing if it cannot be read.
std::optional< std::string > readWhole( const std::string & path );

} // namespace Agent
