#pragma once

#include "Agent/Commands/Children.h"
#include "Agent/Commands/Lines.h"
#include "Agent/Model/UnitRun.h"
#include "Api/Error.h"
#include "Config/Stages.h"
#include "Platform/Cog/Scheduler.h"
#include "Platform/Cog/TimerWheel.h"
#include "Platform/Model/MaintenanceUnit.h"
#include "Platform/Model/Stage.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <vector>

/// Purpose: carries out the stages that the configuration defines, by running commands.
/// Owner: the agent. Works in turns: compares what the stages want with what runs, and does the next step.
///
/// Invariants:
/// 1. At most one command runs for a unit. What an earlier one has left, of this agent or of one before it, has ended
///    before the next begins.
/// 2. A process is in the store before its command begins on the way in, a record before the command is told that it is
///    safe, and the end of a command with all that it has recorded. While the store does not work, none of this goes on.
/// 3. A command whose end is not known is run again with `rerun`; one whose end is known is not.
/// 4. What a command has recorded is kept until the unit is normal; if it has failed on the way back, until the unit
///    enters again, for whoever has to put back by hand what it has not.
/// 5. A failure on the way back never stops it.
namespace Agent {

class Commands final : private Children::Listener {
 public:
   /// Seconds from the request to end to the end by force.
   static constexpr double endPatience = 2;
   /// Seconds from one look to the next at what an earlier agent has left, and at a store that does not work.
   static constexpr double againAfter = 1;
   /// Commands of each way that run at a time. Each costs processes and descriptors; the others wait for their turn.
   static constexpr int mostAtOnce = 64;
   /// Lines of one command that are written to the log.
   static constexpr unsigned mostLines = 2000;

   /// The entities that stages of one class are made of. All given.
   struct Class {
      Vel::Ptr< const Stage::ProgressDir > progressDir;
      Vel::Ptr< const Stage::CompletionStatusDir > completionStatus;
      Vel::Ptr< Stage::AgentStatus > agentStatus; ///< of the commands alone
   };
   struct Model {
      Vel::Ptr< const Maintenance::Unit::StatusDir > unitStatusDir;
      Vel::Ptr< const UnitRunDir > unitRunDir;
      Vel::Ptr< UnitCommandsDir > unitCommandsDir;
      Class enter, exit;
   };
   /// All given. Called in a turn.
   struct Hooks {
      std::function< void( const Vel::String & unitName, const Vel::String & reason ) > goBack;
      /// Nothing runs for some unit any more.
      std::function< void() > ended;
      /// The interfaces of a unit as a JSON list.
      std::function< std::string( const Vel::String & unitName ) > interfaces;
      std::function< void( const std::string & line ) > log;
      /// Whether what was done before this turn's effects is in the store. Asked when effects are let out.
      std::function< bool() > durable;
   };
   /// What there is to say of a stage in the present or last run of its unit.
   struct Facts {
      CommandState state = CommandState::none;
      double since = 0;    ///< seconds of the clock
      Vel::String command; ///< empty: there is nothing to do
      Vel::U32 limit = 0;  ///< seconds
      bool goesOn = false; ///< a failure does not take the unit back
      Vel::String failure;
      bool waits = false;   ///< for what an earlier agent has left to end
      Vel::String waitsFor; ///< what else it waits for: before its command begins, or once it is told to end
   };
   /// A stage that has failed on the way back, since its unit entered last.
   struct Failure {
      Vel::String unit, stage, text;
      Vel::String recorded; ///< what its command had recorded, as JSON text; empty: nothing
      double since = 0;     ///< seconds of the clock
   };

   Commands(
      Vel::Ptr< Cog::Scheduler > scheduler, Vel::Ptr< Cog::TimerWheel > wheel, Children & children,
      Model model, Hooks hooks );
   ~Commands();
   Commands( const Commands & ) = delete;
   Commands & operator=( const Commands & ) = delete;

   /// Commands that run go on with what they began with; what begins later takes these.
   void configurationIs( const std::map< std::string, Config::CommandStage > & stages );
   /// Why a stage cannot be carried out; none: it can.
   std::optional< Api::Error > check( const Vel::String & stage ) const;
   /// A unit enters with these stages on both ways: what is left of its last maintenance is forgotten.
   void unitEnters( const Vel::String & unitName, const std::vector< Vel::String > & stages );
   /// Ends what an earlier agent has left of commands, whenever stages go on. Called once, before resume().
   void endRemnants();
   /// Takes up what was under way before a restart. Called once.
   void resume();
   /// Whether a command of the unit has not ended.
   bool busy( const Vel::String & unitName ) const { return jobs_.count( unitName ) != 0; }
   /// Does what is due, for a turn in which timers do not run.
   void handleDue();

   Facts facts( const Vel::String & unitName, const Vel::String & stage ) const;
   std::vector< Failure > failures() const;

 private:
   struct VelProgress final : Vel::ReactorTo< Commands, Stage::Progress > {
      using ReactorTo::ReactorTo;
      void onStage() override { sm()->runSoon(); }
   };
   struct VelProgressDir final : Vel::ReactorTo< Commands, Stage::ProgressDir > {
      using ReactorTo::ReactorTo;
      void onProgress( const Vel::Name & instanceName ) override {
         sm()->handleProgress( entity(), instanceName );
      }
   };
   struct VelCompletion final : Vel::ReactorTo< Commands, Stage::CompletionStatusDir > {
      using ReactorTo::ReactorTo;
      void onStatus( const Vel::Name & ) override { sm()->runSoon(); }
   };
   struct VelUnit final : Vel::ReactorTo< Commands, Maintenance::Unit::StatusDir > {
      using ReactorTo::ReactorTo;
      void onStatus( const Vel::String & ) override { sm()->runSoon(); }
   };
   struct Wakeup final : Cog::TimerReactor< Commands > {
      using TimerReactor::TimerReactor;
      void onTime() override { sm()->handleDue(); }
   };
   /// What runs, or has to end before something may run, for one unit.
   struct Job {
      enum class Phase { remnants, running, ending, killed };
      Phase phase = Phase::running;
      Children::Id id = 0;
      Vel::String stage, instanceName;
      bool enter = true;
      double due = 0;         ///< seconds, when the phase has lasted long enough
      double began = 0;       ///< seconds; 0: its process waits for the word to begin
      double endingSince = 0; ///< seconds; 0: it has not been told to end
      Vel::String problem;    ///< why it is ended; empty: it is not, or the unit goes back
      Lines output = Lines( true ), errors = Lines( false );
      Vel::String lastError; ///< what it has said last on its standard error
      unsigned lines = 0;    ///< that were logged
   };
   using Jobs = std::map< Vel::String, Job >; ///< by unit
   /// A command that cannot begin yet.
   struct Waiting {
      Vel::String instanceName, stage, reason;
      std::optional< double > since; ///< seconds of the clock, of a want that is not ours to end
   };

   void childSays( Children::Id id, Children::Stream stream, std::string_view bytes ) override;
   void childEnded( Children::Id id, const Children::Ending & ending ) override;

   void handleProgress( const Stage::ProgressDir * dir, const Vel::Name & instanceName );
   void runSoon();
   void run();
   void runClass( const Class & stageClass, bool enter );
   void carryOut(
      const Vel::String & unitName, const Vel::String & instanceName, const Vel::String & stage, bool enter );
   void begin(
      const Vel::String & unitName, StageCommand & command, const Vel::String & instanceName, bool enter );
   void start(
      const Vel::String & unitName, StageCommand & command, const Vel::String & instanceName, bool enter,
      const CommandDefinition & definition );
   bool waits(
      const Vel::String & unitName, const StageCommand & command, const Vel::String & instanceName,
      const Vel::String & want, double limit );
   void beganIs(
      const Vel::String & unitName, StageCommand & command, const Vel::String & instanceName, bool enter,
      const CommandDefinition & definition );
   void waitingDel();
   void end( Job & job, const Vel::String & problem );
   void handleDue( Job & job, const Vel::String & unitName );
   void remnantsEnd( const Vel::String & unitName );
   void handleRemnants( const Vel::String & unitName, bool left );
   void
   conclude( const Vel::String & unitName, StageCommand & command, bool enter, const Vel::String & failure );
   void completed( const StageCommand & command, bool enter );
   void retiredEnd();
   void completionsDel( const Class & stageClass ) const;
   void leftOversDel();
   /// Whether it has failed on the way back, since the unit entered last.
   static bool failedOnTheWayBack( const Maintenance::Unit::Status & status, const StageCommand & command );
   void takeOutput( const Vel::String & unitName, Job & job, const std::string & line, bool cut );
   void takeError( const Vel::String & unitName, Job & job, const std::string & line, bool cut );
   void record( const Vel::String & unitName, Job & job, const std::string & line );
   void logLine( const Vel::String & unitName, Job & job, const std::string & line );
   void log( const Vel::String & unitName, const Vel::String & stage, const std::string & text ) const;
   static Maintenance::Unit::StageMgrInstKey instanceKey( const Vel::String & instanceName );
   Jobs::iterator jobOf( Children::Id id );
   bool listed( const Job & job ) const;
   const StageCommand * commandOf( const Vel::String & unitName, const Vel::String & stage ) const;
   StageCommand & commandIs( const Vel::String & unitName, const Vel::String & stage );
   std::optional< CommandDefinition > definitionOf( const StageCommand & command ) const;
   const Class & stageClass( bool enter ) const { return enter ? model_.enter : model_.exit; }
   double now() const { return scheduler_->currentTime(); }
   void wakeupIs();
   void whenDurable( std::function< void() > effect );

   Vel::Ptr< Cog::Scheduler > scheduler_;
   Children & children_;
   Model model_;
   Hooks hooks_;
   std::map< Vel::String, CommandDefinition > configured_;
   Jobs jobs_;
   std::map< Vel::String, Waiting > waiting_;         ///< by unit
   double waitingDue_ = Cog::Timer::never;            ///< seconds, when they are tried again
   std::vector< std::function< void() > > undurable_; ///< effects that wait for the store
   double undurableDue_ = 0;                          ///< seconds, when they are tried again
   Children::Id lastId_ = 0;
   bool resumed_ = false;
   /// A run is posted; shared with the posted task, which may outlive this object.
   std::shared_ptr< Commands * > self_;
   bool runPosted_ = false;
   std::map< Vel::String, Vel::Watch< VelProgress > > progress_; ///< by instance
   Vel::Watch< VelProgressDir > enterProgress_, exitProgress_;
   Vel::Watch< VelCompletion > enterCompletion_, exitCompletion_;
   Vel::Watch< VelUnit > unitReactor_;
   Vel::Watch< Wakeup > wakeup_;
};

} // namespace Agent
