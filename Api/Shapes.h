#pragma once

#include "Api/Error.h"
#include "Api/NotShut.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Purpose: what the control API answers, as plain values for those who ask.
///
/// Times are seconds since 1970, rates bits per second. Nothing stands for null: unknown, or never. Words such as
/// states are given as they came, so that one that a newer agent made up can still be shown.
namespace Api {

/// One stage of the present or last run of a unit.
struct Stage {
   std::string name;
   std::string state; ///< pending, running, complete, failed or skipped
   std::optional< double > since;
   std::optional< std::string > command; ///< that carries it out
   std::optional< double > limitSeconds; ///< that the command may run
   std::optional< double > deadline;     ///< of a command that runs
   std::optional< std::string > failure;
   std::string text; ///< what it does or has done, and what happens if it fails
};

/// Why a monitored interface is not done yet, or that it is.
struct Reason {
   std::string
      code; ///< above-threshold, timing, stalled, oscillating, starved, drained, shut, spike or stopped
   std::optional< double > since;
   std::optional< double > rateBps; ///< of the busier direction
   std::optional< double > thresholdBps;
   std::optional< double > quietSeconds;
   std::optional< double > loadIntervalSeconds;
   std::optional< double > etaSeconds;     ///< until it will have drained or been shut, if that can be said
   std::optional< double > shutdownAt;     ///< drained or not
   std::optional< double > unwatchedSince; ///< of what has drained: there are no fresh counters
   std::optional< std::string > trend;     ///< of a rate above the threshold: falling, flat or rising
   std::string text;                       ///< all of it for people
};

/// That are set for the present maintenance of a unit.
struct UnitTimes {
   std::optional< double > deadline, deadlineLeftSeconds;
   std::optional< std::string > onOverrun; ///< keep or restore
   std::optional< double > overrun;        ///< since when it is known to be too late
   std::optional< double > revertAt, revertLeftSeconds;
   std::optional< std::string > doubt; ///< why the time for which the machine was off is not counted
};

struct Unit {
   std::string name;
   std::string state; ///< see Api::UnitState
   std::optional< std::string > stage;
   std::vector< Stage > stages; ///< in order
   std::uint64_t generation = 0;
   std::optional< double > since;
   std::optional< std::string > reason;
   std::optional< std::string > by;
   std::optional< double > deadline; ///< when the operation was expected to be over, if somebody has said
   bool overdue = false;             ///< it is not, and goes on
   UnitTimes times;
   std::uint64_t total = 0;   ///< members with a record
   std::uint64_t drained = 0; ///< those under maintenance
   std::optional< double > inBps, outBps;
   std::vector< std::string > violating; ///< names of interfaces
   std::uint64_t totalViolations = 0;
   std::optional< double > settlingSince;
   std::vector< NotShut > notShut; ///< that are to be
   std::vector< std::string > groups;
   std::string sentence; ///< where it is, what it waits for and for how long
   std::optional< double >
      etaSeconds; ///< until its traffic will have left and it has settled, if that can be said
};

/// What a unit still waits for at one interface.
struct Waiting {
   std::string interface;
   std::optional< std::string > state;
   std::optional< std::string > profile;
   std::optional< double > inBps, outBps;
   std::optional< double > thresholdBps;
   std::optional< double > loadIntervalSeconds;
   std::optional< double > quietSeconds;
   std::optional< double > nextSample;
   std::optional< double > shutdownAt;
   std::string reason;
   std::optional< Reason > insight; ///< nothing: it has no record
};

/// An interface that a unit does not wait for.
struct Skipped {
   std::string interface;
   std::string reason;
};

struct Explanation {
   std::string unit;
   std::string state;
   std::optional< std::string > stage;
   std::optional< std::string > reason;
   std::vector< Stage > stages;       ///< in order
   bool endingEarlierCommand = false; ///< which no stage may overtake
   std::optional< double > settleRemainingSeconds;
   bool stuck = false;
   std::optional< std::string > stuckReason;
   std::vector< NotShut > notShut; ///< although they are to be
   std::vector< Waiting > waiting;
   std::vector< Skipped > skipped;
};

struct Interface {
   std::string name;
   std::string kind;
   std::vector< std::string > units;
   std::optional< std::string > profile;
   std::optional< std::string > state; ///< nothing: it has no record
   std::optional< double > inBps, outBps;
   std::optional< std::uint64_t > samples, consecutiveDrainedSamples;
   bool spike = false;
   bool shut = false;                        ///< it is to be held down
   std::optional< std::string > shutProblem; ///< why it has not been set down for that
   std::string linkState;
   std::optional< std::string > drift; ///< what somebody else has done to it; nothing: nothing
   std::optional< Reason > reason;     ///< nothing: it has no record
   std::optional< double > startTime, stateTime, lastSampleTime;
};

struct Profile {
   std::string name;
   std::optional< double > thresholdBps;
   std::uint64_t loadIntervalSeconds = 0;
   bool shutdown = false;
   std::optional< double > shutdownMaxDelaySeconds; ///< nothing: never
   bool isDefault = false;
};

struct Group {
   std::string name;
   std::optional< std::string > profile; ///< nothing: the default one
   std::vector< std::string > interfaces;
   std::vector< std::string > units;
};

struct Problem {
   std::string what;
   std::optional< double > since;
   std::string text;
};

/// How a hook fares.
struct Hook {
   std::string name, kind; ///< kind: command or url
   std::uint64_t runs = 0, failures = 0, missed = 0, waiting = 0;
   std::optional< std::uint64_t > event; ///< that it is being called for; nothing: none
   std::optional< std::string > failure; ///< of the last run
};

struct Agent {
   std::string version;
   std::uint64_t pid = 0;
   std::optional< double > started;
   std::string state;
   std::vector< Problem > problems;
   std::vector< Hook > hooks;
   std::string pluginName, pluginState;
   std::optional< std::string > pluginText;
   std::string configurationFile, configurationState;
   std::vector< std::string > configurationErrors;
   std::string switchKind;
   std::uint64_t switchOverruns = 0;           ///< how often news of the switch were lost
   std::optional< double > clock;              ///< the agent's present time, which a simulation may have set
   std::string fastLog;                        ///< path
   std::optional< std::uint64_t > restarts;    ///< by its supervisor; nothing: it has none
   std::optional< std::string > restartReason; ///< why the last one was; nothing: there was none
};

struct TraceLevel {
   std::string name;
   std::int64_t level = 0;
};

/// What is wrong with a configuration file.
struct FileError {
   std::string file;
   std::uint64_t line = 0, column = 0; ///< 0: the file as a whole
   std::string message;
};

/// The refusal of a request; whatever is not there is empty.
struct Refusal {
   std::string code, message, where;
   std::optional< std::uint64_t > operation; ///< that stands in the way
   std::vector< FileError > fileErrors;      ///< of a configuration that was not taken
};

/// The stage whose command runs, null if there is none.
const Stage * runningCommand( const std::vector< Stage > & stages );
/// The stage whose command is to run and waits for something, null if there is none.
const Stage * waitingCommand( const std::vector< Stage > & stages );

/// Each takes the JSON text of an answer. A key that is missing counts as null; more keys are left alone. Throws
/// Error (internal) that says what is wrong if the text is no JSON, or not of this shape.
std::vector< Unit > readUnits( std::string_view json );
Unit readUnit( std::string_view json );
Explanation readExplanation( std::string_view json );
std::vector< Interface > readInterfaces( std::string_view json );
Interface readInterface( std::string_view json );
std::vector< Profile > readProfiles( std::string_view json );
std::vector< Group > readGroups( std::string_view json );
std::map< std::string, std::uint64_t > readCounters( std::string_view json );
Agent readAgent( std::string_view json );
std::vector< TraceLevel > readTraceLevels( std::string_view json );
std::optional< double > readTime( std::string_view json ); ///< of the simulated switch
/// Never throws: nothing if the text is no refusal.
std::optional< Refusal > readRefusal( std::string_view json );

} // namespace Api
