#pragma once

#include "Agent/Control/Body.h"
#include "Agent/Model/UnitTimes.h"

namespace Agent {

/// The times that the body of an enter asks for: "deadline" and "revert-after" (a time as in the configuration, `90s`, a
/// number of seconds, or "never"), and with a deadline "on-overrun" ("keep" or "restore"). Throws as Body does, also for 0
/// and for what is beyond AskedTimes::most.
AskedTimes enterTimes( Body & body );

} // namespace Agent
