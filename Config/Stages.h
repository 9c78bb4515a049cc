#pragma once

#include "Config/Command.h"
#include "Config/Duration.h"

#include <string>
#include <vector>

namespace Config {

/// The stages that a unit goes through, in order, when it enters or leaves maintenance.
using StageList = std::vector< std::string >;

/// The stage that waits until the plug-in says that traffic has left (on enter) or that it has let go (on exit).
inline constexpr const char * drainwatchStage = "drainwatch";

inline StageList defaultStages() { return { drainwatchStage }; }

/// What becomes of a run into maintenance when a stage of it has failed.
enum class OnFailure {
   abort,     ///< the unit goes back
   continueOn ///< it goes on with the next stage
};
const char * text( OnFailure onFailure ); ///< `abort` or `continue`, as in the file

/// A stage that commands carry out. The key in Configuration::stages is its name.
struct CommandStage {
   static constexpr Duration defaultTimeout = Duration::fromSeconds( 60 );

   Command enter, exit;               ///< at least one is there; the other one has nothing to do
   Duration timeout = defaultTimeout; ///< above 0
   OnFailure onFailure = OnFailure::abort;
   /// Its command for enter makes traffic take other ways than over the unit (it asks neighbours, or changes the routes
   /// of this machine).
   bool steers = false;

   friend bool operator==( const CommandStage &, const CommandStage & ) = default;
};

/// The stages that a configuration may name without defining them, in the order in which messages list them. This is
/// the one place that knows them: a further kind of stage is added here.
std::vector< std::string > builtInStages();

} // namespace Config
