#pragma once

#include "Agent/Commands/FakeChildrenRig.h"
#include "Apps/Maintd.h"
#include "DataPlane/Simulated/Description.h"
#include "Platform/Cog/TimeSource.h"
#include "Tests/Agent/WatchedSwitch.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

/// Purpose: the whole agent in virtual time, with the plug-in's library, on a simulated switch that outlives it.
///
/// A crash ends the agent after a given turn: what that turn has committed is kept, everything else of the agent is
/// lost, and the switch goes on.
namespace Tests {

class AgentRig {
 public:
   /// What becomes of what a turn wants to let out when the agent crashes at its end.
   enum class Effects { out, lost };
   /// The links: simulated, or those of the kernel in this process's network namespace. What is said below of the
   /// simulation and of links that move is for simulated ones only.
   enum class Links { simulated, kernel };

   /// A folder of its own, with this configuration (without `version`, `switch` and `simulated`).
   explicit AgentRig( const std::string & configuration, Links links = Links::simulated );
   /// The same on a simulated switch that has these routes too, and ports of these speeds in bits per second.
   AgentRig(
      const std::string & configuration, const std::vector< DataPlane::Simulated::Route > & routes,
      const std::map< std::string, double > & speeds );
   ~AgentRig();
   AgentRig( const AgentRig & ) = delete;
   AgentRig & operator=( const AgentRig & ) = delete;

   /// Starts an agent; throws what it says if it does not start.
   void start();
   /// The agent is gone from now on.
   void crash();
   bool running() const { return agent_ != nullptr; }
   /// What the next agent will find as its configuration.
   void configurationIs( const std::string & configuration );
   /// Raises all links that are held, while no agent runs. Its moves bear no times.
   Apps::Released releaseAll();
   /// Time goes by while no agent runs.
   void pass( double seconds ) { time_->spend( seconds ); }
   /// The machine is started anew: the agent is gone, and the next one starts in another boot, after the machine has been
   /// off for so many seconds. Wall time, by which it has been so, is set by `step` meanwhile; the clock of the new boot
   /// begins with it, but not before now. Links stay as they are.
   void reboot( double off, double step = 0 );
   /// Somebody sets wall time.
   void wallTimeStep( double seconds ) { boot_.wallOffset += seconds; }
   /// The simulated switch does what it is told, while no agent runs.
   void withoutAgent( const std::function< void() > & action );
   /// Crashes at the end of the turn with this number, counted from the beginning over all agents; 0: never.
   void crashAfterTurnIs( unsigned turn, Effects effects ) {
      crashTurn_ = turn;
      crashEffects_ = effects;
   }
   unsigned turns() const { return turns_; }
   /// Called at the end of each turn, after it is committed.
   void turnHookIs( std::function< void() > hook ) { turnHook_ = std::move( hook ); }

   /// Something that happens at a time, once, whether or not an agent runs before it.
   void at( double seconds, std::function< void() > action );
   /// Goes on until that time, counted from the beginning, with all that is due then done; or until the agent crashes.
   void runUntil( double seconds );
   /// A turn at the present time, which brings in what the kernel has told meanwhile.
   void turn();
   /// Seconds since the beginning.
   double time() const { return time_->now() - begin; }

   /// Asks the control API in a turn of its own; the status, 0: there is no answer yet. A POST is answered only when
   /// its turn is committed, an enter is judged first. Who has asked for an operation and has no answer when the agent
   /// ends asks the next one again, as soon as it runs.
   int post( const std::string & path, const std::string & body = "{}" ) {
      return ask( "POST", path, body )->status;
   }
   /// The same of any request, with its whole answer; status 0: there is none yet. A path may have a query. It comes over
   /// the local socket, or over the web while `local` is not set.
   bool local = true;
   std::shared_ptr< const Agent::HttpReply >
   ask( const std::string & method, const std::string & path, const std::string & body = "" );
   /// Writes this configuration and asks for it to be taken; the status of the answer.
   int reload( const std::string & configuration );
   /// Sends the agent a signal, which comes in with its next turn. One that the agent has not seen when it ends is lost.
   void signal( int number );
   /// The body of what the control API says at once, as text.
   std::string get( const std::string & path );
   /// One member of a unit or an interface, as JSON text: `fact( "units/u1", "state" )` gives "normal" in quotes.
   std::string fact( const std::string & path, const std::string & member );
   /// What an operator can tell of the state of all units and interfaces, apart from rates and counts of samples.
   std::string picture();

   /// What is run for stages; nothing of it is a process.
   Agent::FakeChildren & children() { return children_; }
   /// Done in a turn of its own, soon.
   void soon( std::function< void() > action ) { agent_->loop().post( std::move( action ) ); }

   DataPlane::Simulation & simulation() { return *world_.simulation; }
   WatchedSwitch & watched() { return *watched_; }
   /// Constant traffic of a port in both directions, in bits per second, from now on.
   void traffic( const std::string & port, double bps );
   /// "et1 down", ... in order, without times.
   std::vector< std::string > moves() const;
   /// When that happened first, seconds since the beginning; -1: never.
   double timeOf( const std::string & move ) const;
   void storeUsedIs( std::function< Ledger::StoreEngine &( Ledger::StoreEngine & ) > storeUsed ) {
      world_.storeUsed = std::move( storeUsed );
   }
   const std::string & folder() const { return folder_; }

 private:
   /// Time stops for what is to happen then.
   struct Wakeup final : Cog::TimerReactor< AgentRig > {
      using TimerReactor::TimerReactor;
      void onTime() override { sm()->wakeupIs(); }
   };
   /// That somebody asks for.
   struct Operation {
      Agent::HttpRequest request;
      std::shared_ptr< Agent::HttpReply > answer; ///< status 0: there is none yet
   };
   static constexpr double begin = 1.7e9;
   void put( const Operation & operation );
   void makeSwitch( const DataPlane::Simulated::Description & description );
   Apps::MaintdOptions options() const;
   bool turnIsDone();
   void perform();
   void wakeupIs();

   const Links links_;
   std::string folder_;
   Vel::Ptr< Cog::VirtualTime > time_;
   Vel::Ptr< Cog::EventLoop > firstLoop_;
   Vel::Ptr< WatchedSwitch > watched_;
   Agent::FakeChildren children_;
   Apps::MaintdBoot boot_{ "boot", begin - 3600 };
   Apps::MaintdWorld world_;
   std::unique_ptr< Apps::Maintd > agent_;
   Vel::Watch< Wakeup > wakeup_;
   std::multimap< double, std::function< void() > > actions_;
   std::vector< Operation > operations_; ///< asked for of the agent that runs
   std::function< void() > turnHook_;
   unsigned turns_ = 0;
   unsigned crashTurn_ = 0;
   Effects crashEffects_ = Effects::out;
   bool crashed_ = false;
};

} // namespace Tests
