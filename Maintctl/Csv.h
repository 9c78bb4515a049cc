#pragma once

#include <string>
#include <vector>

namespace Maintctl {

/// Purpose: comma-separated values as spreadsheets and RFC 4180 want them: lines end with CR LF; a field that holds a
/// comma, a quote or the end of a line is quoted, and quotes in it are doubled.
///
/// What somebody else has said stays text: control characters apart from ends of lines are shown as `\xHH`, and a field
/// that a spreadsheet would take for a formula (it begins with `=`, `+`, `-` or `@` and is no number) gets a `'` in front.
std::string csvRow( const std::vector< std::string > & fields );

} // namespace Maintctl
