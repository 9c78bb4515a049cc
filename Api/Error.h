#pragma once

#include <string>

/// Purpose: how a request is refused, the same in the agent, on the wire and in the command.
namespace Api {

enum class ErrorCode {
   badRequest,  ///< the request makes no sense
   notFound,    ///< it names something that there is not
   notAllowed,  ///< what it names cannot be asked for in this way, or not from there
   conflict,    ///< it cannot be done in the present state
   misdirected, ///< it is meant for another host
   tooLarge,    ///< it is longer than requests may be
   unavailable, ///< not now: degraded, a plug-in is missing, a command cannot run, too late, or too many ask
   needsForce,  ///< it is dangerous and must be asked for with force
   internal     ///< our own fault
};

/// "bad-request", "not-found", "method-not-allowed", "conflict", "misdirected-request", "too-large", "unavailable", "needs-force", "internal".
const char * stringValue( ErrorCode code );
/// 400, 404, 405, 409, 421, 413, 503, 428, 500.
int httpStatus( ErrorCode code );

/// One refusal. `where` names what is meant: a unit, a file with line and column, a field; may be empty.
struct Error {
   ErrorCode code;
   std::string message;
   std::string where;
};

} // namespace Api
