#pragma once

#include <string>
#include <vector>

namespace Maintctl {

/// Purpose: comma-separated values as spreadsheets and RFC 4180 want them: lines end with CR LF; a field that holds a
/// comma, a quote or the end of a line is quoted, and quotes in it are doubled.
std::string csvRow( const std::vector< std::string > & fields );

} // namespace Maintctl
