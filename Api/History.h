#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Purpose: what the control API answers about maintenances of the past, as plain values for those who ask.
///
/// Times are seconds since 1970, rates bits per second. Nothing stands for null: unknown, or it has not happened.
namespace Api {

/// What a list says of a maintenance.
struct Maintenance {
   std::uint64_t id = 0;
   std::string unit;
   std::uint64_t generation = 0;
   std::string outcome; ///< open, completed, cancelled or aborted
   std::optional< double > began, inMaintenance, exitBegan, ended;
   std::optional< std::string > by, reason, exitBy, exitReason;
   std::optional< std::uint64_t > operation, exitOperation; ///< that began it and took it back
   std::map< std::string, std::string > with, exitWith;     ///< noted down with each
   std::uint64_t interfaces = 0;                            ///< that were watched
   std::uint64_t drained = 0;                               ///< of their own accord
   std::uint64_t forced = 0;                                ///< shut before they had drained
   std::uint64_t spikes = 0;
};

/// That were set for a maintenance.
struct PastTimes {
   std::optional< double > deadline;
   std::optional< std::string > onOverrun; ///< keep or restore
   std::optional< double > overrun;        ///< when it was too late
   std::optional< double > revertAt;
};

struct PastStage {
   std::string way; ///< enter or exit
   std::string name;
   std::string state; ///< running, complete, failed or cancelled
   std::optional< double > began, ended;
   std::optional< std::string > failure;
};

/// Why an interface was not done, or that it was.
struct PastReason {
   std::optional< double > time; ///< from which on
   std::string code;
   std::optional< double > rateBps; ///< then
};

struct PastSpike {
   std::optional< double > began, ended;
   std::optional< double > peakBps;
};

struct PastDrift {
   std::optional< double > time;
   std::optional< std::string > what; ///< raised or lowered; nothing: no more
};

struct PastInterface {
   std::string name;
   std::optional< std::string > profile;
   std::optional< double > thresholdBps, loadIntervalSeconds;
   bool shutdown = false;                           ///< of the profile
   std::optional< double > shutdownMaxDelaySeconds; ///< nothing: never
   std::optional< double > profileChanged;
   std::optional< double > began, drained, shut, raised, released;
   std::optional< std::string > shutdownKind; ///< natural or forced; nothing: it was not shut
   std::optional< double > firstInBps, firstOutBps;
   std::optional< double > peakInBps, peakOutBps, peakTime; ///< after it drained
   std::vector< PastReason > reasons;                       ///< in order
   std::uint64_t reasonsLeftOut = 0;
   std::uint64_t totalSpikes = 0;
   std::vector< PastSpike > spikes; ///< in order
   std::vector< PastDrift > drift;  ///< in order
   // The curve; no steps: there is none.
   std::optional< double > curveStart;
   double curveStepSeconds = 0;
   std::vector< std::optional< double > > curveInBps, curveOutBps;
};

/// The whole record.
struct MaintenanceRecord {
   Maintenance summary;
   std::vector< std::string > overridden; ///< what the plan said against it and was forced
   PastTimes times;
   std::vector< PastStage > stages;         ///< in order
   std::vector< PastInterface > interfaces; ///< by name
   std::uint64_t interfacesLeftOut = 0;
};

/// Each takes the JSON text of an answer. Throws Error (internal) that says what is wrong if it is not of this shape.
std::vector< Maintenance > readMaintenances( std::string_view json );
MaintenanceRecord readMaintenanceRecord( std::string_view json );

} // namespace Api
