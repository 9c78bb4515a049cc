#pragma once

#include "MaintenancePlugin/PluginRig.h"
#include "MaintenancePlugin/Recorded.h"
#include "Platform/Vel/FailedAssertion.h"

#include <gtest/gtest.h>

/// Purpose: what the tests of units in the root share: requests and completions of single instances, and a record of
/// what the root does about them.
namespace MaintenanceMode {

struct UnitsTest : testing::Test {
   using MaintenanceOp = Maintenance::Unit::MaintenanceOp;
   using UnitState = Maintenance::Unit::UnitState;

   PluginRig rig;
   const Wire::IntfId et1 = PluginRig::port( "et1" );
   const Wire::IntfId et2 = PluginRig::port( "et2" );

   UnitsTest() {
      rig.profileIs( "p", 100, 10, false, 0 );
      rig.defaultProfileIs( "p" );
   }
   void busy( const Wire::IntfId & intf ) {
      rig.linkIs( intf );
      rig.trafficIs( intf, { 1e9, 1e9 } );
   }
   /// An instance whose stage is on, without its start: nobody is told.
   static void listInstance( PluginRig::StageClass & stageClass, const Vel::Name & instanceName ) {
      stageClass.progressDir->progressIs( instanceName )->stageStatusIs( stageName, Stage::stageRunning );
      stageClass.completionStatus->statusIs( instanceName, Stage::stageRunning );
   }
   static bool complete( const PluginRig::StageClass & stageClass, const Vel::Name & instanceName ) {
      return stageClass.agentStatus->complete( { stageClass.agentStatus->name(), stageName, instanceName } );
   }
   void enterRequested( const Vel::Name & instanceName ) {
      rig.root->doStageForInstance( maintEnterClass, stageName, instanceName );
   }
   void exitRequested( const Vel::Name & instanceName ) {
      rig.root->doStageForInstance( maintExitClass, stageName, instanceName );
   }
};

/// The root's traces and, between them, what it counts, makes, releases and completes for units.
class UnitSequence : public Sequence {
 public:
   explicit UnitSequence( const PluginRig & rig ) {
      root_.is( rig.root, this ).hasNotificationActiveIs( true );
      counters_.is( rig.root->counters(), this ).hasNotificationActiveIs( true );
      monIntf_.is( rig.root->unitMonIntfInput(), this ).hasNotificationActiveIs( true );
      drainedIntf_.is( rig.root->unitDrainedIntf(), this ).hasNotificationActiveIs( true );
      enters_.is( rig.enterClass.agentStatus, this ).hasNotificationActiveIs( true );
      exits_.is( rig.exitClass.agentStatus, this ).hasNotificationActiveIs( true );
      for ( const auto & [unitName, unitMonSm] : rig.root->unitMonRange() )
         unitMon_.is( unitMonSm, this ).hasNotificationActiveIs( true );
   }

   struct VelRoot final : Vel::ReactorTo< UnitSequence, DrainWatchSm > {
      using ReactorTo::ReactorTo;
      void onUnitMon( const Vel::String & unitName ) override {
         sm()->note( "unitMon ", unitName, entity()->unitMon( unitName ) ? "" : " gone" );
      }
   };
   struct VelUnitMon final : Vel::ReactorTo< UnitSequence, UnitMonSm > {
      using ReactorTo::ReactorTo;
      void onGenId() override { sm()->note( "genId ", entity()->genId() ); }
   };
   struct VelMonIntf final : Vel::ReactorTo< UnitSequence, UnitIntfInputDir > {
      using ReactorTo::ReactorTo;
      void onUnitIntfInput( const Vel::String & unitName ) override {
         sm()->note( "unitMonIntfInput ", unitName, entity()->unitIntfInput( unitName ) ? "" : " gone" );
      }
   };
   struct VelDrainedIntf final : Vel::ReactorTo< UnitSequence, UnitIntfInputDir > {
      using ReactorTo::ReactorTo;
      void onUnitIntfInput( const Vel::String & unitName ) override {
         sm()->note( "unitDrainedIntf ", unitName, entity()->unitIntfInput( unitName ) ? "" : " gone" );
      }
   };
   struct VelEnters final : Vel::ReactorTo< UnitSequence, Stage::AgentStatus > {
      using ReactorTo::ReactorTo;
      void onComplete( const Stage::AgentStatusKey & key ) override {
         sm()->note( "enter complete ", key.instanceName );
      }
   };
   struct VelExits final : Vel::ReactorTo< UnitSequence, Stage::AgentStatus > {
      using ReactorTo::ReactorTo;
      void onComplete( const Stage::AgentStatusKey & key ) override {
         sm()->note( "exit complete ", key.instanceName );
      }
   };
   struct VelCounters final : Vel::ReactorTo< UnitSequence, DrainWatchSmDebugCounters > {
      using ReactorTo::ReactorTo;
      void onNumMaintEnter() override { noted( "numMaintEnter ", entity()->numMaintEnter() ); }
      void onNumMaintExit() override { noted( "numMaintExit ", entity()->numMaintExit() ); }
      void onNumMaintExitNoUnitMon() override {
         noted( "numMaintExitNoUnitMon ", entity()->numMaintExitNoUnitMon() );
      }
      void onNumMaintEnterUnitMonPresent() override {
         noted( "numMaintEnterUnitMonPresent ", entity()->numMaintEnterUnitMonPresent() );
      }
      void onNumMaintExitInMaintModeEnter() override {
         noted( "numMaintExitInMaintModeEnter ", entity()->numMaintExitInMaintModeEnter() );
      }
      void onNumNotifyStageCompletion() override {
         noted( "numNotifyStageCompletion ", entity()->numNotifyStageCompletion() );
      }
      void onNumUnitStatusDel() override { noted( "numUnitStatusDel ", entity()->numUnitStatusDel() ); }
      void onNumNoNotifyNoStageInput() override {
         noted( "numNoNotifyNoStageInput ", entity()->numNoNotifyNoStageInput() );
      }
      void onNumNoNotifyActiveStageMismatch() override {
         noted( "numNoNotifyActiveStageMismatch ", entity()->numNoNotifyActiveStageMismatch() );
      }
      void onNumNoNotifyNoUnitStatus() override {
         noted( "numNoNotifyNoUnitStatus ", entity()->numNoNotifyNoUnitStatus() );
      }
      void noted( const char * name, Vel::U32 value ) { sm()->note( name, value ); }
   };

 private:
   Vel::Watch< VelRoot > root_;
   Vel::Watch< VelCounters > counters_;
   Vel::Watch< VelMonIntf > monIntf_;
   Vel::Watch< VelDrainedIntf > drainedIntf_;
   Vel::Watch< VelEnters > enters_;
   Vel::Watch< VelExits > exits_;
   Vel::Watch< VelUnitMon > unitMon_; ///< of the last unit that was there at the beginning
};

} // namespace MaintenanceMode
