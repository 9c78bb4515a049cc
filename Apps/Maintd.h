#pragma once

#include "Agent/Commands/Commands.h"
#include "Agent/Control/ControlApi.h"
#include "Agent/Control/ProblemTimes.h"
#include "Agent/Executor/Executor.h"
#include "Agent/Membership/Membership.h"
#include "Agent/Operations/Operations.h"
#include "Agent/Plan/Planner.h"
#include "Agent/Plugins/PluginLibraries.h"
#include "Agent/Stages/Stages.h"
#include "Agent/Times/Times.h"
#include "Apps/Notify.h"
#include "Apps/StoreCommits.h"
#include "Config/Configuration.h"
#include "Config/Load.h"
#include "DataPlane/Simulation.h"
#include "Platform/Cog/EventLoop.h"
#include "Platform/Cog/Signals.h"
#include "Platform/Ledger/FallbackEngine.h"
#include "Platform/Ledger/FolderLock.h"
#include "Platform/Ledger/LmdbEngine.h"
#include "Platform/Ledger/Persistence.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

/// Purpose: the agent, put together: the only place that names its concrete parts.
///
/// Order of start: lock the state folder, open the store, read the configuration, take in all links and counters, then
/// load plug-ins, which waits until counters can be read: ports without counters have no status, and a plug-in that finds
/// none would let go of its links. Stages go on once the plug-in's root is there. What is wrong outside is an error that is returned
/// (the agent does not start) or a problem that is shown (it runs degraded).
namespace Apps {

struct MaintdOptions {
   std::string config = Config::defaultFile;
   std::string stateDir = "/var/lib/maintd";
   std::string runtimeDir = "/run/maintd";
   std::string socket; ///< empty: control.sock in the runtime folder
   std::string pluginDir;
   std::string httpHook; ///< the program that calls the URLs of hooks; an absolute path
   std::string version;
   std::optional< unsigned > restarts; ///< by the supervisor; nothing: there is none
   std::string restartReason;          ///< how the agent before this one has ended; empty: there was none
};

/// By what a test tells how the machine of its virtual time has started, and what wall time it shows.
struct MaintdBoot {
   std::string id;
   double began = 0;      ///< by the time source, seconds
   double wallOffset = 0; ///< what is to be added to the time source's time
};

/// What is there without the agent and outlives it. Empty pointers: the agent makes its own. A test that ends one agent
/// and starts the next in its place hands the world of the first to the second.
struct MaintdWorld {
   Vel::Ptr< Cog::TimeSource > time;
   Vel::Ptr< DataPlane::Switch > switch_;
   DataPlane::Simulation * simulation = nullptr; ///< null: the switch is real
   Agent::Children * children = nullptr;         ///< null: processes of the kernel
   const MaintdBoot * boot = nullptr;            ///< null: as the machine says
   Notify * notify = nullptr;                    ///< null: nobody wants to know how the agent is
   /// Takes a store as it was opened and gives what is to be used in its place, which outlives the agent.
   std::function< Ledger::StoreEngine &( Ledger::StoreEngine & ) > storeUsed;
};

/// What has become of the links that were held, when all were to be let go of.
struct Released {
   enum class Outcome {
      done,    ///< none is held any more
      held,    ///< some are, or may be
      inUse,   ///< an agent runs
      notKept, ///< none is, but it is written nowhere that they have been released by hand
      unknown  ///< what is held cannot be read
   } outcome = Outcome::done;
   std::string problem;              ///< for the operator; empty: it is done
   std::vector< std::string > links; ///< that were let go of
   std::vector< std::string > held;  ///< that still are
   /// Lines about units that are not normal, and what their stages leave behind, and about what links have not got back.
   std::vector< std::string > left;
};

class Maintd {
 public:
   explicit Maintd( MaintdOptions options, MaintdWorld world = {} );
   /// Ends plug-ins, and commits nothing of it. A program ends by a signal instead, without this.
   ~Maintd();
   Maintd( const Maintd & ) = delete;
   Maintd & operator=( const Maintd & ) = delete;

   /// Why the agent cannot start, for the operator; empty: it has started.
   std::string start();
   /// Whether it could not start because of its configuration: it will not before somebody mends that.
   bool configurationIsWrong() const { return configurationIsWrong_; }
   /// The same of its stores: another version has written them, or they are damaged.
   bool storeIsUnusable() const { return storeIsUnusable_; }
   /// Runs until a signal ends it.
   void run();
   /// The control API, for requests that do not come over a socket. Only after start().
   Agent::ControlApi & api() { return *api_; }
   Cog::EventLoop & loop() { return *loop_; }
   const MaintdWorld & world() const { return world_; }
   /// Raises every link that the journal says we hold, without plug-ins and stages, and waits for the switch to do it.
   /// Makes nothing where no agent has ever run, and needs no configuration when nothing is held.
   Released releaseAll();

   /// What it shares with plug-ins and keeps in its stores; for whoever looks at these without it.
   struct Entities;

 private:
   struct Views;
   /// Looks every second whether a release has come to its end.
   struct ReleaseTick final : Cog::TimerReactor< Maintd > {
      using TimerReactor::TimerReactor;
      void onTime() override { sm()->releaseTick(); }
   };

   /// Tries again to listen on the web address.
   struct WebTick final : Cog::TimerReactor< Maintd > {
      using TimerReactor::TimerReactor;
      void onTime() override { sm()->webTick(); }
   };

   std::string openStore();
   Ledger::StoreEngine & storeUsed( Ledger::StoreEngine & engine ) const;
   std::string makeTime();
   std::string makeClock();
   std::string readConfiguration();
   std::string cannotFollow( const Config::Configuration & from, const Config::Configuration & to ) const;
   std::string makeSwitch();
   void makeEntities();
   void makeAgent();
   void makeStages();
   void makeTimes();
   void makePlanner();
   void loadPlugin();
   void loadPluginWhenThereAreCounters();
   std::string listen();
   void webTick();
   void handleSignal( const Cog::Signals::Signal & signal );
   bool commit();
   void resumeWhenTheRootIsThere();
   const Vel::Entity * root() const;
   void apply( const Config::Configuration & configuration );
   Agent::ControlCommands commands();
   void addOperations( Agent::ControlCommands & commands );
   Agent::ControlCommands::Taken
   enter( const std::string & unit, const Agent::ControlCommands::Request & request );
   Agent::ControlCommands::Taken exit(
      const std::string & unit, const Agent::ControlCommands::Request & request,
      const std::string & failure );
   /// The agent itself takes a unit back. `failure`: what has failed, so that it does; empty: nothing has.
   void takeBack( const std::string & unit, const std::string & reason, const std::string & failure );
   Agent::ControlCommands::Result plan(
      const std::string & unit, const std::string & session, Agent::PlanPurpose purpose,
      std::function< void( const Agent::ControlCommands::Planned & ) > planned );
   std::vector< Agent::ControlCommands::Stage > stageFacts( const std::string & unit ) const;
   Agent::ControlCommands::Taken
   release( const std::string & interface, const Agent::ControlCommands::Request & request );
   Agent::ControlCommands::Reloaded reload( const Agent::ControlCommands::Request & request );
   Agent::ControlCommands::Reloaded reloadConfiguration();
   Agent::ControlCommands::Reloaded readAgain();
   Agent::ControlCommands::Result
   simulated( const Agent::ControlCommands::Simulated & what, std::function< void() > done );
   void answerAdvances();
   void answerWhenQuiet( std::function< void() > done, unsigned turnsLeft );
   std::string blocked() const;
   Agent::ControlCommands::AgentFacts facts() const;
   std::vector< Agent::Problem > problems() const;
   void serveNames();
   std::optional< Api::Error > hold() const;
   std::string dump() const;
   std::string statusText() const;
   std::vector< std::string > heldLinks() const;
   std::vector< std::string > leftByUnits() const;
   std::vector< std::string > leftOfLinks() const;
   void releaseHeld( Released & result );
   void releaseTick();
   double now() const { return loop_->currentTime(); }
   double wallTime( double clockTime ) const;
   Agent::Moment moment() const;

   static constexpr std::size_t fastLogBytes = 4 << 20;
   /// Seconds after which a web address that could not be had is tried again.
   static constexpr double webRetryAfter = 5;
   MaintdOptions options_;
   MaintdWorld world_;
   Ledger::FolderLock lock_, runtimeLock_;
   Vel::Ptr< Cog::EventLoop > loop_;
   std::unique_ptr< Cog::Signals > signals_;
   std::unique_ptr< Ledger::LmdbEngine > stateEngine_, runtimeEngine_;
   std::unique_ptr< Ledger::FallbackEngine > fallbackEngine_; ///< for the state store
   Vel::Ptr< Ledger::EntityManager > entityManager_;
   std::unique_ptr< Ledger::Persistence > persistence_;
   std::unique_ptr< StoreCommits > commits_;
   std::unique_ptr< Entities > entities_;
   Config::Configuration configuration_;
   std::vector< std::string > configurationErrors_; ///< of the file, while the last accepted one is in use
   mutable Agent::ProblemTimes problemTimes_;
   Vel::Ptr< Cog::TimerWheel > wheel_;
   std::unique_ptr< Agent::Membership > membership_;
   std::unique_ptr< Agent::Executor > executor_;
   std::unique_ptr< Agent::Children > children_;
   std::unique_ptr< Agent::Stages > stages_;
   std::unique_ptr< Agent::Operations > operations_;
   std::unique_ptr< Agent::Times > times_;
   std::unique_ptr< Agent::Commands > commands_;
   std::unique_ptr< Agent::PluginLibraries > plugins_;
   std::unique_ptr< Views > views_;
   std::unique_ptr< Agent::Planner > planner_;
   std::unique_ptr< Agent::ControlApi > api_;
   std::unique_ptr< Agent::HttpServer > server_;
   Vel::Ptr< Maintenance::PluginContext > context_;
   Vel::Watch< ReleaseTick > releaseTick_;
   Vel::Watch< WebTick > webTick_;
   std::string webProblem_;     ///< why the web address does not answer; empty: it does, or none is wanted
   std::string fastLogProblem_; ///< why the fast log is in memory; empty: it is in its file
   std::multimap< double, std::function< void() > > advances_; ///< who waits for virtual time, by the time
   /// Turns that the consequences of an advance may take before it is answered all the same.
   static constexpr unsigned turnsToQuiet = 100;
   MaintdBoot boot_{ "virtual" };
   double started_ = 0;
   bool configurationIsWrong_ = false;
   bool storeIsUnusable_ = false;
   bool pluginAsked_ = false;
   unsigned uncommitted_ = 0; ///< replies to what was asked for that wait for the commit
   bool resumed_ = false;
   bool applied_ = false; ///< a configuration
};

} // namespace Apps
