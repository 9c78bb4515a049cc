#pragma once

#include "Platform/FastLog/FastLog.h"
#include "Platform/Vel/Trace.h"

/// Purpose: the two forms of a trace in this plug-in. Every source file defines its facility as `trace`.
/// TRACE puts the operation's name and ": " in front; TRACE_TEXT is for texts that already begin with it.
#define TRACE( level, ... ) VEL_TRACE( trace, level, __func__, ": ", __VA_ARGS__ )
#define TRACE_TEXT( level, ... ) VEL_TRACE( trace, level, __VA_ARGS__ )
