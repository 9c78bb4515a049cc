#pragma once

#include "Api/Plan.h"
#include "Api/Shapes.h"
#include "Maintctl/Invocation.h"

#include <string>
#include <vector>

namespace Maintctl {

/// Why a command was not done; thrown by what carries it out, told to the operator by run().
struct Failure {
   ExitStatus status = ExitStatus::failed;
   std::string code;    ///< a word for scripts: one of the agent's, or one of our own
   std::string message; ///< one line for people; empty: there is nothing to say
   std::string where;   ///< what is meant: a unit, an interface, a file; may be empty
   std::vector< Api::FileError > fileErrors;
   std::vector< Api::Finding > findings = {};     ///< why it takes force
   std::optional< std::uint64_t > operation = {}; ///< that stands in the way, or is not waited for any more
   std::string hint = {};                         ///< for people: what they can do about it
};

/// The words of our own.
namespace FailureCode {
inline constexpr char usage[] = "usage";
inline constexpr char notReachable[] = "not-reachable";
inline constexpr char timedOut[] = "timed-out";
inline constexpr char conditionNotMet[] = "condition-not-met";
inline constexpr char interrupted[] = "interrupted";
inline constexpr char failed[] = "failed";
inline constexpr char invalid[] = "invalid-configuration";
} // namespace FailureCode

} // namespace Maintctl
