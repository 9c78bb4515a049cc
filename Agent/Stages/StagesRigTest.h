#pragma once

#include "Agent/Stages/Stages.h"
#include "Platform/Cog/ManualClock.h"
#include "Platform/Model/StageWritesTest.h"

#include <gtest/gtest.h>

#include <memory>

/// Purpose: units that go through stages, carried out by the test.
namespace Agent {

using Maintenance::Unit::UnitState;

/// Notes what a stage carrier would see, and completes stages when told to.
class StagesStory : public ::testing::Test {
 protected:
   StagesStory() {
      Vel::System::clockIs( clock );
      model.unitStatusDir = Vel::make< Maintenance::Unit::StatusDir >();
      model.unitRunDir = Vel::make< UnitRunDir >();
      for ( auto * stageClass : { &model.enter, &model.exit } ) {
         stageClass->progressDir = Vel::make< Stage::ProgressDir >();
         stageClass->completionStatus = Vel::make< Stage::CompletionStatusDir >();
         stageClass->agentStatus = Vel::make< Stage::AgentStatus >( "MaintenanceMode" );
      }
      groupToUnitDir = Vel::make< Maintenance::GroupToUnitDir >();
      intfGroupStatusDir = Vel::make< IntfGroup::StatusDir >();
      records = Vel::make< Maintenance::MonIntfStatusDir >();
      model.groupToUnitDir = groupToUnitDir;
      model.intfGroupStatusDir = intfGroupStatusDir;
      model.monIntfStatusDir = records;
      restart();
   }
   ~StagesStory() override {
      stages.reset();
      Vel::System::clockIs( nullptr );
   }

   void restart() {
      stages = std::make_unique< Stages >( clock, wheel, model );
      stages->unitIs( "u1", { { "drainwatch" }, { "drainwatch" } } );
      stages->settleTimeIs( 10 );
      stages->resume();
      clock->runUntilIdle();
   }

   Maintenance::Unit::Status & unit() { return *model.unitStatusDir->status( "u1" ); }
   UnitRun & run() { return *model.unitRunDir->unitRun( "u1" ); }
   void complete( const Vel::String & stage = "drainwatch" ) {
      const bool entering = unit().state() == UnitState::enterInProgress;
      auto & stageClass = entering ? model.enter : model.exit;
      stageClass.agentStatus->completeIs(
         { "MaintenanceMode", stage,
           entering ? unit().maintEnterInstanceName() : unit().maintExitInstanceName() },
         true );
   }
   Stages::Result enter() { return stages->enter( "u1", { "upgrade", "ann" } ); }
   Stages::Result exit() { return stages->exit( "u1", { "done", "bob" } ); }
   void toMaintenance() {
      ASSERT_FALSE( enter() );
      complete();
      clock->advance( 11 );
      ASSERT_EQ( UnitState::maintenance, unit().state() );
   }
   void watch( Stage::StageWrites & writes ) {
      writes.unitIs( &unit() );
      writes.classIs( "enter", model.enter.progressDir, model.enter.completionStatus );
      writes.classIs( "exit", model.exit.progressDir, model.exit.completionStatus );
   }
   /// A member of the unit with a record.
   Maintenance::MonIntfStatus * member( const char * name ) {
      const Maintenance::GroupKey group{ Maintenance::GroupType::interfaceGroup, "g" };
      intfGroupStatusDir->statusIs( group )->intfIs( Wire::EthIntfId( name ) );
      groupToUnitDir->mappingIs( group, "u1" );
      return records->monIntfStatusIs( Wire::EthIntfId( name ) );
   }

   Vel::Ptr< Cog::ManualClock > clock = Vel::make< Cog::ManualClock >();
   Vel::Ptr< Cog::TimerWheel > wheel = Vel::make< Cog::TimerWheel >( clock, 1000u, 1800u, true, 1024u );
   Stages::Model model;
   Vel::Ptr< Maintenance::GroupToUnitDir > groupToUnitDir;
   Vel::Ptr< IntfGroup::StatusDir > intfGroupStatusDir;
   Vel::Ptr< Maintenance::MonIntfStatusDir > records;
   std::unique_ptr< Stages > stages;
};

} // namespace Agent
