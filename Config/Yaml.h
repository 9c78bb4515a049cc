#pragma once

#include "Config/Diagnostics.h"

#include <optional>
#include <string_view>

namespace Config {

/// How deep maps and lists may stand in each other. The configuration needs six.
inline constexpr std::size_t maxDepth = 16;

/// Reads one YAML document by stricter rules than YAML has, and reports every deviation with its place: no aliases,
/// anchors, tags, merge keys, directives, second documents or duplicate keys; keys are text; quotes are closed.
/// \return the value of the document, of kind `none` if the file is empty; nothing (and contentMissing() reported) if
///         this is not YAML
std::optional< Node > readYaml( std::string_view text, unsigned file, Diagnostics & diagnostics );

/// Adds what another file says to the map `into`. Both are maps. \see load()
void merge( Node & into, Node && from, Diagnostics & diagnostics );

} // namespace Config
