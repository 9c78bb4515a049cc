#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Purpose: what the control API answers about taking a unit out of service, as plain values for those who ask.
///
/// Rates are bits per second. Nothing stands for null: unknown, none, never.
namespace Api {

/// What speaks against it, or is worth knowing before.
struct Finding {
   std::string code;
   std::string severity;                  ///< blocking, warning or info
   std::vector< std::string > interfaces; ///< none: it is about the unit
   std::string text;
   std::string json; ///< all of it, as it came
};

/// What would be done to one interface.
struct PlannedInterface {
   std::string name;
   std::optional< double > inBps, outBps; ///< now
   std::optional< double > highInBps,
      highOutBps;                            ///< that it had no more than for 95 % of the last ten minutes
   std::optional< double > highKnownSeconds; ///< of those, of how many that is known
   std::optional< std::string > profile, profileWhy;
   std::optional< double > thresholdBps, loadIntervalSeconds;
   std::string action; ///< not-watched, watched, shut-when-drained or shut-at-latest
   std::optional< double > shutdownMaxDelaySeconds;
   std::optional< std::string > notWatched; ///< why
};

struct Plan {
   std::string unit;
   std::string state; ///< see Api::UnitState
   std::optional< double > time;
   std::optional< std::string > session; ///< the address from which the operator comes
   std::vector< std::string > stages;
   bool needsForce = false;
   std::vector< PlannedInterface > interfaces; ///< by name
   std::vector< Finding > findings;            ///< the most severe ones first
};

/// Takes the JSON text of an answer. Throws Error (internal) that says what is wrong if it is not of this shape.
Plan readPlan( std::string_view json );
/// Of the refusal of an enter. Never throws: none if the text is nothing of the kind.
std::vector< Finding > readRefusedFindings( std::string_view json );

} // namespace Api
