#pragma once

#include "Maintctl/Curve.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// Purpose: what is drawn of the agent's work at one moment: plain values, ready to be shown. Texts of the agent are as
/// they came; drawing cleans them.
namespace Maintctl {

/// What an interface means for whoever waits, the most pressing first.
enum class Urgency {
   back,  ///< it had drained, and traffic is back
   stuck, ///< nobody can say when it will have drained, or whether traffic is back
   busy,  ///< above its threshold
   quiet, ///< below it, and has to stay there
   done,
   none ///< not monitored
};

struct IntfPicture {
   std::string name;
   RatePoint rates; ///< now
   std::optional< double > thresholdBps;
   std::optional< double > etaSeconds; ///< until it has drained
   std::string text;                   ///< why it is not done, or that it is
   Urgency urgency = Urgency::none;
   std::vector< RatePoint > curve; ///< the newest last
};

struct UnitPicture {
   std::string name, state;
   std::string stage; ///< may be empty
   std::uint64_t total = 0, drained = 0;
   std::string sentence;               ///< may be empty
   std::string who;                    ///< by whom and why; may be empty
   std::optional< double > forSeconds; ///< in this state
   std::optional< double > etaSeconds; ///< until its traffic will have left and it has settled
   Urgency urgency = Urgency::none;    ///< of its most pressing interface
   bool moving = false;                ///< entering or exiting
   /// Those to be shown, the most pressing first.
   std::vector< IntfPicture > interfaces;
};

struct Picture {
   std::string title;                     ///< what is looked at; empty: no line for it
   std::optional< double > clock;         ///< of the agent, seconds since 1970
   std::string stale;                     ///< why the picture is not of now; empty: it is
   double stepSeconds = Curve::leastStep; ///< between two points of a curve
   std::vector< UnitPicture > units;
   std::size_t mostRows = 1000;           ///< of interfaces, below each unit
   std::vector< IntfPicture > interfaces; ///< without their units
   /// Name and value of what else is known of the one interface that is looked at; with it, its curves are drawn large.
   std::vector< std::pair< std::string, std::string > > facts;
};

} // namespace Maintctl
