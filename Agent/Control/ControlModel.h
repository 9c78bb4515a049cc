#pragma once

#include "Agent/Model/EventLog.h"
#include "Agent/Model/Insight.h"
#include "Agent/Model/LinkJournal.h"
#include "Agent/Model/Operation.h"
#include "Agent/Model/PlanPurpose.h"
#include "Agent/Model/Samples.h"
#include "Agent/Model/UnitRun.h"
#include "Agent/Model/UnitTimes.h"
#include "Api/Error.h"
#include "Platform/Model/Errdisable.h"
#include "Platform/Model/Interface.h"
#include "Platform/Model/IntfGroup.h"
#include "Platform/Model/IntfMaintenance.h"
#include "Platform/Model/IntfMaintenanceProfile.h"
#include "Platform/Model/Maintenance.h"
#include "Platform/Model/MaintenanceGroup.h"
#include "Platform/Model/MaintenanceProfile.h"
#include "Platform/Model/MaintenanceUnit.h"

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

/// Purpose: what the control API is made of: the entities that it shows, and what it asks of the rest of the agent.
/// Owner: the agent, which fills both in.
namespace Agent {

/// Everything that is shown. All given.
struct ControlModel {
   Vel::Ptr< const Maintenance::Unit::StatusDir > unitStatusDir;
   Vel::Ptr< const UnitRunDir > unitRunDir;
   Vel::Ptr< const Maintenance::MonIntfStatusDir > monIntfStatusDir;
   Vel::Ptr< const Interface::AllIntfStatusDir > allIntfStatusDir;
   Vel::Ptr< const IntfMaintenanceProfile::StatusDir > intfProfileStatusDir;
   Vel::Ptr< const Maintenance::Profile::DefaultProfile > defaultIntfProfile;
   Vel::Ptr< const IntfMaintenance::IntfToGroupDir > intfToGroupDir;
   Vel::Ptr< const IntfGroup::StatusDir > intfGroupStatusDir;
   Vel::Ptr< const Maintenance::GroupToUnitDir > groupToUnitDir;
   Vel::Ptr< const Errdisable::CauseStatus > cause;
   Vel::Ptr< const LinkJournal > journal;
   Vel::Ptr< const EventLog > eventLog;
   Vel::Ptr< const InsightDir > insightDir;
   Vel::Ptr< const OperationDir > operationDir;
   Vel::Ptr< const UnitTimesDir > unitTimesDir;
};

/// One thing that is wrong with the agent.
struct Problem {
   /// "store", "counters", "configuration", "plug-in", "switch", "stage", "samples", "history", "hook", "fastlog", "web".
   std::string what;
   double since; ///< seconds of the agent's clock
   std::string text;
};

/// What the agent is asked to do, and what only it knows. All given.
struct ControlCommands {
   using Result = std::optional< Api::Error >;
   /// Who asks for an operation, why, and how many seconds he gives it.
   struct Request {
      std::string reason;
      std::string by;
      std::optional< double > timeout;
      bool force = false;       ///< enter, whatever the plan says
      std::string session = {}; ///< the address from which he comes; empty: not known
      std::string overridden =
         {};                 ///< what the plan said against it and was forced, a line each; empty: nothing
      std::string with = {}; ///< what he notes down with it: pairs, see Operation.h
      std::string key = {};  ///< by which he knows it again; empty: none
      std::uint64_t fingerprint = 0; ///< of what he asks for, which a key is not used twice for
      AskedTimes times = {};         ///< of an enter
   };
   /// What has become of a request for an operation.
   struct Taken {
      Result refused = {};
      /// That does it, has done it or does it already; that stands in the way of what is refused. 0: there is none.
      Vel::U32 operation = 0;
      bool changed = false;  ///< by this request
      bool repeated = false; ///< the key has been used for it before
   };
   /// What would come of an enter. Texts are JSON unless they say otherwise. Who looks is given the plan, who begins all
   /// the rest.
   struct Planned {
      std::string plan;
      std::string findings = {};
      bool blocked = false;        ///< it takes force
      std::string overridden = {}; ///< what blocks, as a record of the maintenance has it; no JSON
      bool late = false; ///< it took so long that whoever asked may have given up: nothing should begin by it
   };
   /// One stage of the present or last run of a unit.
   struct Stage {
      std::string name;
      std::string state;         ///< "pending", "running", "complete", "failed", "skipped"
      double since = 0;          ///< seconds of the agent's clock, of the state; 0: unknown
      std::string command;       ///< that carries it out; empty: none
      double limit = 0;          ///< seconds that the command may run; 0: no limit
      std::string failure;       ///< why it has failed
      bool goesOn = false;       ///< with the next stage, if it fails
      bool waits = false;        ///< for something of an earlier agent to end
      std::string waitsFor = {}; ///< what else it waits for: to begin its command, or links; empty: nothing
   };
   struct Progress {
      std::string stage; ///< that is running; empty: none
      Vel::U32 total = 0;
      Vel::U32 drained = 0;
      std::optional< double > settlingSince;
      double settleTime = 0;
      std::string blocked;              ///< why the agent lets no unit complete now; empty: it does
      std::vector< Stage > stages = {}; ///< all, in order
      bool busy = false;                ///< something of an earlier stage has yet to end before one can begin
   };
   /// Something that is told of events.
   struct Hook {
      std::string name;
      bool isUrl = false; ///< or a command
      Vel::U64 runs = 0, failures = 0;
      Vel::U64 missed = 0; ///< events that had left the log before it came to them
      std::size_t waiting = 0;
      Vel::U64 event = 0;  ///< that it is called for now; 0: none
      std::string failure; ///< of the last run; empty: it has not failed
   };
   struct AgentFacts {
      std::string version, switchKind, configurationFile, fastLog, pluginName, pluginProblem;
      std::vector< std::string > configurationErrors;
      bool switchDegraded = false; ///< the switch does not tell of its links
      Vel::U32 switchOverruns = 0; ///< how often facts of the switch were lost and read again
      double started = 0;
      std::optional< Vel::U32 > restarts; ///< by the agent's supervisor; nothing: it has none
      std::string restartReason;          ///< how the agent before this one has ended; empty: there was none
      std::vector< Problem > problems;
      std::vector< Hook > hooks; ///< by name
      double countersRead = 0;   ///< seconds of the agent's clock, when all counters were read last; 0: never
      Vel::U64 turns = 0;        ///< of the event loop
      double turnSeconds = 0;    ///< that they took together
      double longestTurn = 0;    ///< seconds that the longest took of the last minute or two
   };
   /// A group as it is configured.
   struct Group {
      std::optional< std::string > profile; ///< nothing: the default one
      std::set< std::string > interfaces;   ///< kernel names, and "vlan 10"; not all need exist
   };
   struct ConfigError {
      std::string file;
      unsigned line = 0, column = 0;
      std::string message;
   };
   struct Reloaded {
      Taken taken;
      std::vector< std::string > changes;
      std::optional< Api::Error > error;
      std::vector< ConfigError > errors;
   };
   struct Simulated {
      std::string what; ///< "traffic", "link", "advance"
      std::string interface;
      double inBps = 0, outBps = 0, seconds = 0;
      bool up = false;
   };

   std::function< Taken( const std::string &unit, const Request & ) > enter, exit;
   /// What was answered before to an enter with this key, or that it was another request; nothing: it is new.
   std::function< std::optional< Taken >( const std::string & unit, const Request & ) > enterRepeated;
   /// Judges what would come of an enter of a unit, and calls back in a later turn unless it is refused. Changes nothing.
   /// `session`: the address from which the operator comes; empty: not known. The less urgent purpose has to wait.
   std::function< Result(
      const std::string & unit, const std::string & session, PlanPurpose purpose,
      std::function< void( const Planned & ) > ) >
      plan;
   std::function< Progress( const std::string & unit ) > progress;
   std::function< Taken( const std::string & interface, const Request & ) > release;
   std::function< Reloaded( const Request & ) > reload;
   /// Calls back, unless it is refused, when it is done: time that is to pass has passed.
   std::function< Result( const Simulated &, std::function< void() > done ) > simulated;
   std::function< AgentFacts() > agent;
   /// All groups of the configuration, by name.
   std::function< std::map< std::string, Group >() > groups;
   std::function< std::string() > dump;
   /// The plug-in's debug counters, null while there is none.
   std::function< const Vel::Entity *() > counters;
   /// The kernel's own state of a link: "up", "down" or "unknown".
   std::function< std::string( const Wire::IntfId & ) > linkState;
   /// Why a link that is to be held down has not been set down yet; empty: it has, or is not to be.
   std::function< std::string( const Wire::IntfId & ) > shutProblem;
   /// Why nobody can say what a link that is up carries; empty: it can be said, or there is nothing to say.
   std::function< std::string( const Wire::IntfId & ) > uncounted;
   /// What somebody else has done to a link that we hold or watch: "raised", "lowered"; empty: nothing.
   std::function< std::string( const Wire::IntfId & ) > drift;
   /// Records of maintenances. The texts are JSON.
   struct History {
      std::function< bool( const std::string & unit ) > hasUnit;
      /// Newest first, those that are open too. An empty name: of all units.
      std::function< std::string( const std::string & unit, std::size_t limit ) > list;
      /// Gives the next piece of a text, for which it reads one file at most; empty: that was all.
      using Pieces = std::function< std::string() >;
      /// Throws Api::Error if there is none, or if it cannot be had.
      std::function< Pieces( Vel::U32 id ) > record;
   };
   History history;
   /// Calls back when the effects of the present turn are let out: it is committed then, unless the store fails.
   std::function< void( std::function< void() > ) > whenCommitted;
   /// Calls back when all that has been written until now is in the store, however long that takes.
   std::function< void( std::function< void() > ) > whenStored;
   /// Calls back in a later turn.
   std::function< void( std::function< void() > ) > later;
   /// Wall time, for display, of a time of the agent's clock; seconds since 1970.
   std::function< double( double ) > wallTime;
   std::function< double() > now;
   /// What interfaces carry and have carried; null: nobody samples.
   const SampleSource * samples = nullptr;
};

} // namespace Agent
