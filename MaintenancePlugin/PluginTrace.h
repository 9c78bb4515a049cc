#pragma once

#include "Platform/FastLog/FastLog.h"
#include "Platform/Vel/Trace.h"

/// Purpose: the forms of a trace in this plug-in. Every source file defines its facility as `trace`.
/// TRACE puts the operation's name and ": " in front, TRACE_SIGNATURE its whole signature; TRACE_TEXT is for texts that
/// already begin with it. TRACE_FASTLOG is TRACE and the same pieces, without the name, for the ring-buffer log.
#define TRACE( level, ... ) VEL_TRACE( trace, level, __func__, ": ", __VA_ARGS__ )
#define TRACE_TEXT( level, ... ) VEL_TRACE( trace, level, __VA_ARGS__ )
#define TRACE_SIGNATURE( level, ... ) VEL_TRACE( trace, level, __PRETTY_FUNCTION__, ": ", __VA_ARGS__ )
#define TRACE_FASTLOG( level, ... )                                                                          \
   do {                                                                                                      \
      TRACE( level, __VA_ARGS__ );                                                                           \
      FASTLOG( __VA_ARGS__ );                                                                                \
   } while ( false )
