#pragma once

#include "Agent/Control/ControlModel.h"
#include "Agent/Model/Insight.h"

/// Purpose: why a unit and each of its interfaces are not done yet, in words: the same ones in every answer, so that
/// command, page and scripts tell one story. Used by the answers of the control API only.
///
/// Sentences have no full stop and are of bounded length: of many interfaces the slowest few are named.
namespace Agent {

/// What is known of one interface that has a record. Times are seconds of the agent's clock.
struct ReasonFacts {
   std::string name;
   Reason reason = Reason::aboveThreshold;
   double since = 0;
   Trend trend = Trend::unknown;
   std::optional< double > rate;         ///< bits per second, of the busier direction; nothing: not known
   bool sampled = false;                 ///< whether or not its rate can be told
   std::optional< double > threshold;    ///< bits per second
   std::optional< double > loadInterval; ///< seconds
   double quiet = 0;                     ///< seconds for which it has been below the threshold
   std::optional< double > eta;          ///< when it will have drained or been shut, if that can be said
   std::optional< double > shutdownAt;   ///< when it will be shut, drained or not
   std::optional< double > unwatched;    ///< of what has drained: since when nobody has seen what it carries
   std::string shutProblem; ///< why it is not shut although it is to be; empty: it is, or is not to be
};

/// Nothing if the interface has no record, or none of it has been looked at yet.
/// \param now  seconds of the agent's clock
std::optional< ReasonFacts > reasonFacts( const ControlModel & model, const Wire::IntfId & intf, double now );
/// Whether the unit waits for it.
bool isWaitedFor( const ReasonFacts & facts );
/// "812 kbit/s, about 40 s"
std::string reasonText( const ReasonFacts & facts, const ControlCommands & commands );

/// What is known of one unit.
struct UnitFacts {
   Maintenance::Unit::UnitState state = Maintenance::Unit::UnitState::normal;
   double since = 0; ///< of the state, seconds of the agent's clock; 0: not known
   ControlCommands::Progress progress;
   std::vector< ReasonFacts > interfaces;
   std::vector< std::string > uncounted; ///< names of those that are up while nobody can say what they carry
   std::string stuck;                    ///< why it does not go on although all has drained; empty: it does
   const UnitTimes * times = nullptr;    ///< that are set for its maintenance; null: none
};
/// What the times of its maintenance mean now: "too late by 2m10s; goes back in 1h12m"; empty: nothing.
std::string timesText( const UnitFacts & facts, const ControlCommands & commands );
/// "5 of 7 drained; et3 812 kbit/s, about 40 s; bond0 stalled at 310 kbit/s since 14:02; forced shutdown of bond0 in
/// 3m10s"
std::string sentence( const UnitFacts & facts, const ControlCommands & commands );
/// When all its interfaces will have drained and the unit will have settled; nothing if that cannot be said, or there is
/// nothing to wait for. Seconds of the agent's clock.
std::optional< double > unitEta( const UnitFacts & facts );

} // namespace Agent
