#pragma once

#include "Agent/Commands/Commands.h"
#include "Agent/Commands/FakeChildrenRig.h"
#include "Agent/Stages/Stages.h"
#include "Platform/Cog/ManualClock.h"

#include <gtest/gtest.h>

/// The stages of one unit, u1, and the commands that carry them out, in virtual time. The plug-in is the test, and
/// "drainwatch" is complete at once.
class CommandsStory : public testing::Test {
 protected:
   using Lines = std::vector< std::string >;
   using UnitState = Maintenance::Unit::UnitState;

   CommandsStory() {
      Vel::System::clockIs( clock );
      unitStatusDir = Vel::make< Maintenance::Unit::StatusDir >();
      unitRunDir = Vel::make< Agent::UnitRunDir >();
      unitCommandsDir = Vel::make< Agent::UnitCommandsDir >();
      for ( auto * stageClass : { &enterClass, &exitClass } ) {
         stageClass->progressDir = Vel::make< Stage::ProgressDir >();
         stageClass->completionStatus = Vel::make< Stage::CompletionStatusDir >();
         stageClass->agentStatus = Vel::make< Stage::AgentStatus >( "MaintenanceMode" );
         stageClass->commandStatus = Vel::make< Stage::AgentStatus >( "Commands" );
      }
      steerIs( "/bin/steer enter", "/bin/steer exit" );
      start();
   }
   ~CommandsStory() override {
      stop();
      Vel::System::clockIs( nullptr );
   }

   void steerIs( const std::string & enter, const std::string & exit, bool goesOn = false ) {
      const auto command = []( const std::string & line ) {
         return line.empty() ? Config::Command() : *Config::Command::parse( line ).value;
      };
      configured["steer"] = {
         command( enter ), command( exit ), Config::Duration::fromSeconds( 60 ),
         goesOn ? Config::OnFailure::continueOn : Config::OnFailure::abort };
      if ( commands )
         commands->configurationIs( configured );
   }

   /// An agent: what is kept is there already.
   void start() {
      stages = std::make_unique< Agent::Stages >(
         clock, wheel,
         Agent::Stages::Model{
            unitStatusDir,
            unitRunDir,
            { enterClass.progressDir, enterClass.completionStatus, enterClass.agentStatus,
              enterClass.commandStatus },
            { exitClass.progressDir, exitClass.completionStatus, exitClass.agentStatus,
              exitClass.commandStatus },
            Vel::make< Maintenance::GroupToUnitDir >(),
            Vel::make< IntfGroup::StatusDir >(),
            Vel::make< Maintenance::MonIntfStatusDir >() } );
      commands = std::make_unique< Agent::Commands >(
         clock, wheel, children, commandsModel(),
         Agent::Commands::Hooks{
            [this]( const Vel::String & unit, const Vel::String & reason ) {
               stages->exit( unit, { reason, "maintd" } );
            },
            [this] { stages->look(); }, []( const Vel::String & ) { return R"([{"name":"et1"}])"; },
            [this]( const std::string & line ) { log.push_back( line ); }, [this] { return durable; } } );
      stages->entersIs( [this]( const Vel::String & unit, const Agent::Stages::Lists & lists ) {
         std::vector< Vel::String > both = lists.enter;
         both.insert( both.end(), lists.exit.begin(), lists.exit.end() );
         commands->unitEnters( unit, both );
      } );
      stages->busyIs( [this]( const Vel::String & unit ) { return commands->busy( unit ); } );
      stages->settleTimeIs( 0 );
      commands->configurationIs( configured );
      stages->unitIs( "u1", lists );
      commands->endRemnants();
      commands->resume();
      stages->resume();
      settle();
   }
   Agent::Commands::Model commandsModel() const {
      return {
         unitStatusDir,
         unitRunDir,
         unitCommandsDir,
         { enterClass.progressDir, enterClass.completionStatus, enterClass.commandStatus },
         { exitClass.progressDir, exitClass.completionStatus, exitClass.commandStatus } };
   }
   void stop() {
      commands.reset();
      stages.reset();
   }
   void restart() {
      stop();
      start();
   }

   /// Goes on until nothing is left to do at this time, with drainwatch complete as soon as it has begun.
   void settle() {
      for ( ;; ) {
         clock->runUntilIdle();
         bool any = false;
         for ( auto * stageClass : { &enterClass, &exitClass } )
            for ( const auto & [instance, progress] : stageClass->progressDir->progressRange() ) {
               auto & status = *stageClass->agentStatus;
               const Stage::AgentStatusKey key{ status.name(), "drainwatch", instance };
               if ( drains && progress->stageStatus( "drainwatch" ) && !status.complete( key ) ) {
                  status.completeIs( key, true );
                  any = true;
               }
            }
         if ( !any )
            return;
      }
   }
   void advance( double seconds ) {
      clock->advance( seconds );
      settle();
   }
   void enter() {
      ASSERT_FALSE( stages->enter( "u1", { "swap", "ann" } ) );
      settle();
   }
   /// Asks for the way in while nothing can be committed: the command is held.
   void enterIsHeld() {
      clock->commitHookIs( [this] { return storeWorks; } );
      storeWorks = false;
      stages->enter( "u1", {} );
      clock->runTurn();
      clock->runTurn();
      ASSERT_EQ( 1u, children.all().size() );
   }
   void exit() {
      ASSERT_FALSE( stages->exit( "u1", { "done", "bob" } ) );
      settle();
   }
   void ends( int status = 0, int signal = 0 ) {
      children.ends( children.last(), status, signal );
      settle();
   }
   void says( const std::string & text, Agent::Children::Stream stream = Agent::Children::Stream::output ) {
      children.says( children.last(), text, stream );
      settle();
   }
   void toMaintenance( const std::string & record = "" ) {
      enter();
      if ( !record.empty() )
         says( record + "\n" );
      ends();
      ASSERT_EQ( UnitState::maintenance, state() );
      children.taken();
      log.clear();
   }

   UnitState state() const { return unitStatusDir->status( "u1" )->state(); }
   const Agent::UnitRun & run() const { return *unitRunDir->unitRun( "u1" ); }
   const Agent::StageCommand & kept( const Vel::String & stage = "steer" ) const {
      return *unitCommandsDir->unit( "u1" )->stage( stage );
   }
   std::string input() { return children.last().program.input; }
   bool inputHas( const std::string & text ) { return input().find( text ) != std::string::npos; }
   Lines taken() { return children.taken(); }
   /// "steer complete, drainwatch running".
   std::string shown() const {
      std::string result;
      const char * const states[] = { "pending", "running", "complete", "skipped" };
      for ( const auto & stage : stages->stages( "u1" ) )
         result +=
            ( result.empty() ? "" : ", " ) + stage.name + " " + states[static_cast< int >( stage.state )];
      return result;
   }

   const Vel::Ptr< Cog::ManualClock > clock = Vel::make< Cog::ManualClock >();
   const Vel::Ptr< Cog::TimerWheel > wheel = Vel::make< Cog::TimerWheel >( clock, 1000u, 1800u, true, 1024u );
   struct Class {
      Vel::Ptr< Stage::ProgressDir > progressDir;
      Vel::Ptr< Stage::CompletionStatusDir > completionStatus;
      Vel::Ptr< Stage::AgentStatus > agentStatus, commandStatus;
   } enterClass, exitClass;
   Vel::Ptr< Maintenance::Unit::StatusDir > unitStatusDir;
   Vel::Ptr< Agent::UnitRunDir > unitRunDir;
   Vel::Ptr< Agent::UnitCommandsDir > unitCommandsDir;
   Agent::FakeChildren children;
   std::map< std::string, Config::CommandStage > configured;
   Agent::Stages::Lists lists{ { "steer", "drainwatch" }, { "drainwatch", "steer" } };
   bool drains = true;
   bool durable = true;
   bool storeWorks = true; ///< what turns come to from enterIsHeld() on
   Lines log;
   std::unique_ptr< Agent::Stages > stages;
   std::unique_ptr< Agent::Commands > commands;
};
