#pragma once

#include <string>
#include <vector>

namespace Config {

/// The stages that a unit goes through, in order, when it enters or leaves maintenance.
using StageList = std::vector< std::string >;

/// The stage that waits until the plug-in says that traffic has left (on enter) or that it has let go (on exit).
inline constexpr const char * drainwatchStage = "drainwatch";

inline StageList defaultStages() { return { drainwatchStage }; }

/// The stages that a configuration may name, in the order in which messages list them. This is the one place that
/// knows them: a further kind of stage is added here, and the stages that a configuration defines itself, once it
/// can, are joined to these where lists of stages are checked.
std::vector< std::string > builtInStages();

} // namespace Config
