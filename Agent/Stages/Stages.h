#pragma once

#include "Agent/Model/UnitRun.h"
#include "Api/Error.h"
#include "Platform/Cog/Scheduler.h"
#include "Platform/Cog/TimerWheel.h"
#include "Platform/Model/IntfGroup.h"
#include "Platform/Model/Maintenance.h"
#include "Platform/Model/MaintenanceGroup.h"
#include "Platform/Model/MaintenanceUnit.h"
#include "Platform/Model/Stage.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <vector>

/// Purpose: drives units through the stages of entering and leaving maintenance.
/// Owner: the agent. Works in turns: what the carriers of stages write is acted on in a later turn.
///
/// Invariants:
/// 1. Order of writes when a run starts: unit status, progress record with an empty stage, status of the stage,
///    completion status, and last the stage itself, since whoever carries it out may complete it inside that write.
/// 2. The instance of an enter is retired before the exit starts. Every run has a generation of its own, and there is
///    no second enter without an exit.
/// 3. The status of a stage stays set until the unit's state is reached, so that a restart in between finds it.
/// 4. The way back is that of the configuration at the enter. It passes over what the enter had not come to, except for
///    "drainwatch", and begins when all that the enter has started has ended.
/// 5. "drainwatch" ends on the way back only when the links of the unit that have been let go of are back, or have had
///    `linksPatience` to come back: what comes behind it, and whoever waits for the unit, finds them with all they had.
/// 6. A unit is in maintenance only after its last stage is complete and, for the settle time without a break, as many
///    of its interfaces are drained as are monitored, and what those carry that are up can be told. The last is looked at
///    here: the plug-in monitors what has a status, and what nobody can count has none.
namespace Agent {

class Stages {
 public:
   /// The entities that stages are made of. All given.
   struct Class {
      Vel::Ptr< Stage::ProgressDir > progressDir;
      Vel::Ptr< Stage::CompletionStatusDir > completionStatus;
      Vel::Ptr< Stage::AgentStatus > agentStatus;              ///< of the plug-in
      Vel::Ptr< const Stage::AgentStatus > commandStatus = {}; ///< of the commands; null: there are none
   };
   struct Model {
      Vel::Ptr< Maintenance::Unit::StatusDir > unitStatusDir;
      Vel::Ptr< UnitRunDir > unitRunDir;
      Class enter, exit;
      Vel::Ptr< const Maintenance::GroupToUnitDir > groupToUnitDir;
      Vel::Ptr< const IntfGroup::StatusDir > intfGroupStatusDir;
      Vel::Ptr< const Maintenance::MonIntfStatusDir > monIntfStatusDir;
   };
   /// Seconds of the way back for which links are waited for.
   static constexpr double linksPatience = 10;

   /// Stage lists of one unit.
   struct Lists {
      std::vector< Vel::String > enter, exit;
      friend bool operator==( const Lists &, const Lists & ) = default;
   };
   /// Who asks, and why, and how many seconds it is expected to take: a unit that is late is shown so, and goes on.
   struct Request {
      Vel::String reason;
      Vel::String by;
      std::optional< double > timeout = std::nullopt;
      Vel::String overridden = {}; ///< what spoke against an enter and was forced, a line each
      Vel::U32 operation = 0;      ///< the number that it gets if anything begins
      Vel::String with = {};       ///< pairs, see Operation.h
   };
   struct Counts {
      Vel::U32 total = 0;     ///< members that have a record
      Vel::U32 drained = 0;   ///< those of them under maintenance
      Vel::U32 uncounted = 0; ///< members, with a record or without, that carry nobody knows what
   };
   /// One stage of the present or last run of a unit.
   enum class StageState { pending, running, complete, skipped };
   struct StageFacts {
      Vel::String name;
      StageState state = StageState::pending;
      double since = 0; ///< seconds of the clock, of a running or complete stage
   };
   using Result = std::optional< Api::Error >;

   Stages( Vel::Ptr< Cog::Scheduler > scheduler, Vel::Ptr< Cog::TimerWheel > wheel, Model model );
   ~Stages();
   Stages( const Stages & ) = delete;
   Stages & operator=( const Stages & ) = delete;

   /// Makes the unit known, normal if it is new. Its lists apply from its next run on.
   void unitIs( const Vel::String & unitName, const Lists & lists );
   /// Refused unless the unit is normal.
   Result unitDel( const Vel::String & unitName );
   /// Whether the unit is known: also one that was under way before a restart and was never told of since. Such a unit can
   /// only go back, and is removed when it is normal.
   bool unit( const Vel::String & unitName ) const { return model_.unitStatusDir->status( unitName ); }

   /// Seconds for which the counts must stay equal.
   void settleTimeIs( double seconds ) { settleTime_ = seconds; }
   /// Whether a link is up and nobody can say what it carries. Asked when needed.
   void uncountedIs( std::function< bool( const Wire::IntfId & ) > uncounted ) {
      uncounted_ = std::move( uncounted );
   }
   /// Whether a link that was let go of is on its way back. Asked when needed, and at the end of each turn while a unit
   /// waits for it.
   void comesBackIs( std::function< bool( const Wire::IntfId & ) > comesBack ) {
      comesBack_ = std::move( comesBack );
   }
   using Links = std::vector< Wire::IntfId >;
   /// Told when the way back of a unit goes on although these links of its are not back.
   void
   goesOnWithoutIs( std::function< void( const Vel::String & unitName, const Links & ) > goesOnWithout ) {
      goesOnWithout_ = std::move( goesOnWithout );
   }
   /// Why no enter may start or finish now; none: it may. Asked when needed.
   void holdIs( std::function< Result() > hold ) { hold_ = std::move( hold ); }
   /// Why a stage cannot be carried out now; none: it can.
   void stageCheckIs( std::function< Result( const Vel::String & stage ) > check ) {
      check_ = std::move( check );
   }

   /// Told when a unit begins to enter, with the stages of both ways, before the first of them begins.
   void entersIs( std::function< void( const Vel::String & unitName, const Lists & ) > enters ) {
      enters_ = std::move( enters );
   }
   /// Whether something of an earlier stage of the unit has yet to end before another stage may begin. Whoever says so
   /// calls look() when it has.
   void busyIs( std::function< bool( const Vel::String & unitName ) > busy ) { busy_ = std::move( busy ); }
   /// Goes on in a later turn where that is possible.
   void look() { runSoon(); }

   /// Asks for maintenance. Nothing changes for a unit that is entering or under maintenance.
   Result enter( const Vel::String & unitName, const Request & request );
   /// Asks for the way back; cancels an enter. Nothing changes for a unit that is normal or on its way back.
   Result exit( const Vel::String & unitName, const Request & request );

   /// Called at the end of each turn, before it is committed.
   void turnEnds();

   /// Takes up what was under way before a restart. Called once, when whoever carries out stages is there.
   void resume();

   Counts counts( const Vel::String & unitName ) const;
   /// The stage that is running, or empty.
   Vel::String stage( const Vel::String & unitName ) const;
   /// All stages of the present or last run, in order.
   std::vector< StageFacts > stages( const Vel::String & unitName ) const;
   /// The links that the way back of the unit waits for; none if it waits for something else.
   Links linksAwaited( const Vel::String & unitName ) const;
   /// Seconds of the clock from which the settle time runs; none while it does not.
   std::optional< double > settlingSince( const Vel::String & unitName ) const;

 private:
   struct VelComplete final : Vel::ReactorTo< Stages, Stage::AgentStatus > {
      using ReactorTo::ReactorTo;
      void onComplete( const Stage::AgentStatusKey & ) override { sm()->runSoon(); }
   };
   struct Wakeup final : Cog::TimerReactor< Stages > {
      using TimerReactor::TimerReactor;
      void onTime() override { sm()->runSoon(); }
   };

   Api::Error unknown( const Vel::String & unitName ) const;
   Api::Error onItsWayBack( const Vel::String & unitName ) const;
   void ask( UnitRun & run, Wanted wanted, const Request & request ) const;
   void start( Maintenance::Unit::Status & status, UnitRun & run, bool enter );
   std::vector< Vel::String > stagesOf( const UnitRun & run, bool enter ) const;
   /// Unless the unit is busy.
   void startStage(
      const Class & stageClass, const Vel::String & instanceName, UnitRun & run, const Vel::String & stage );
   void retire( const Class & stageClass, const Vel::String & instanceName );
   void runSoon();
   /// Compares what is wanted with what is and does the next step of every unit.
   void run();
   void runUnit( Maintenance::Unit::Status & status, UnitRun & run );
   void leftOverUnitsDel();
   bool allStagesComplete( const Class & stageClass, const Vel::String & instanceName, UnitRun & run );
   bool awaitsLinks( const Vel::String & unitName );
   Links linksThatComeBack( const Vel::String & unitName ) const;
   std::set< Wire::IntfId > members( const Vel::String & unitName ) const;
   void settle( Maintenance::Unit::Status & status, UnitRun & run );
   void stateIs( Maintenance::Unit::Status & status, UnitRun & run, Maintenance::Unit::UnitState state );
   double now() const { return scheduler_->currentTime(); }

   Vel::Ptr< Cog::Scheduler > scheduler_;
   Model model_;
   std::map< Vel::String, Lists > lists_;
   std::map< Vel::String, double > settling_; ///< since when the unit could be in maintenance
   std::map< Vel::String, double > letGo_;    ///< since when the unit waits for its links
   std::set< Vel::String > unitsToLookAt_;    ///< every second: to settle, or to begin what has to wait
   double settleTime_ = 10;
   std::function< bool( const Wire::IntfId & ) > uncounted_;
   std::function< bool( const Wire::IntfId & ) > comesBack_;
   std::function< void( const Vel::String &, const Links & ) > goesOnWithout_;
   std::function< Result() > hold_;
   std::function< Result( const Vel::String & ) > check_;
   std::function< void( const Vel::String &, const Lists & ) > enters_;
   std::function< bool( const Vel::String & ) > busy_;
   bool resumed_ = false;
   /// A run is posted; shared with the posted task, which may outlive this object.
   std::shared_ptr< Stages * > self_;
   bool runPosted_ = false;
   Vel::Watch< VelComplete > enterComplete_, exitComplete_;
   Vel::Watch< VelComplete > enterCommandComplete_, exitCommandComplete_;
   Vel::Watch< Wakeup > wakeup_;
};

} // namespace Agent
