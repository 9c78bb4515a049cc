#pragma once

#include "Config/Load.h"

namespace Config {

/// Like parse(), for a text that toYaml() has made of a configuration that was accepted before, maybe by an earlier
/// version. What is under way goes by it, so what only later rules forbid is taken: bytes that are no text, a stage that
/// nothing undoes, a name to listen on.
Result parseAccepted( std::string_view text, const std::string & fileName );

} // namespace Config
