#include "Tests/Plugin/Snapshot.h"

#include <gtest/gtest.h>

namespace {

using MaintenanceMode::PluginRig;
using Tests::snapshot;

class DrainStory : public ::testing::Test {
 protected:
   DrainStory() {
      rig.profileIs( "fast", 100, 10, true, 300 );
      rig.profileIs( "watch", 1000, 10, false, 0 );
      rig.defaultProfileIs( "fast" );
      for ( const auto & intf : { et1, et2, et3, et4 } )
         rig.linkIs( intf );
   }

   PluginRig rig;
   const Wire::IntfId et1 = PluginRig::port( "et1" );
   const Wire::IntfId et2 = PluginRig::port( "et2" );
   const Wire::IntfId et3 = PluginRig::port( "et3" );
   const Wire::IntfId et4 = PluginRig::port( "et4" );
   const Wire::IntfId pc1 = PluginRig::portChannel( "pc1" );
   const Wire::IntfId vlan10 = PluginRig::vlan( "vlan10", 10 );
};

TEST_F( DrainStory, ofPortsAPortChannelAndAVlanInterface ) {
   for ( const auto & member : { et3, et4 } )
      rig.memberIs( member, pc1 );
   rig.linkIs( pc1 );
   rig.linkIs( vlan10 );
   rig.vlanMemberIs( 10, et2 );
   rig.vlanMemberIs( 10, pc1 );
   rig.vlanMemberIs( 10, Wire::CpuIntfId( "cpu" ) );
   rig.unitIs( "spine", { et1, pc1, vlan10 } );
   rig.trafficIs( et1, { 2e6, 1e6 } );
   rig.trafficIs( et2, { 9e6, 0 } );
   rig.trafficIs( et3, { 4e6, 3e6 } );
   rig.trafficIs( et4, { 4e6, 3e6 } );
   rig.start();
   rig.enter( "spine" );
   rig.advance( 5 );
   EXPECT_EQ(
      "et1: fast monIntfStateEnterMaint since +0, start +0, cur 2000000/1000000 +5, prev 0/0, last +5, "
      "samples 1 "
      "quiet run 0 pre 0-1 post 0-0\n"
      "pc1: fast monIntfStateEnterMaint since +0, start +0, cur 8000000/6000000 +5, prev 0/0, last +5, "
      "samples 1 "
      "quiet run 0 pre 0-1 post 0-0\n"
      "vlan10: fast monIntfStateEnterMaint since +0, start +0, cur 9000000/6000000 +5, prev 0/0, last +5, "
      "samples 1 "
      "quiet run 0 pre 0-1 post 0-0\n"
      "entering: et1 pc1 vlan10\n"
      "spine: enterInProgress, in 19000000 out 13000000\n"
      "monitoring spine#1: 0 of 3\n"
      "counters: numMaintEnter=1 numStartIntfMonInUnits=3 numStopIntfMonInUnits=3\n",
      snapshot( rig ) );

   // The traffic of port and port-channel goes at 5 s, that of the VLAN's own port at 15 s.
   rig.trafficIs( et1, {} );
   rig.trafficIs( et3, {} );
   rig.trafficIs( et4, {} );
   rig.advance( 10 );
   rig.trafficIs( et2, {} );
   rig.advance( 10 );
   EXPECT_EQ(
      "et1: fast monIntfStateUnderMaint since +15, start +0, cur 0/0 +15, prev 0/0, last +15, samples 3 "
      "quiet run 2 "
      "pre 2-1 post 0-0\n"
      "pc1: fast monIntfStateUnderMaint since +15, start +0, cur 0/0 +15, prev 0/0, last +15, samples 3 "
      "quiet run 2 "
      "pre 2-1 post 0-0\n"
      "vlan10: fast monIntfStateUnderMaint since +25, start +0, cur 0/0 +25, prev 0/0, last +25, samples 5 "
      "quiet run "
      "2 pre 2-3 post 0-0\n"
      "under: et1 pc1 vlan10\n"
      "spine: enterInProgress, in 0 out 0\n"
      "shut: et1 +15\n"
      "shut: pc1 +15\n"
      "shut: vlan10 +25\n"
      "enter complete: MaintenanceMode/drainwatch/spine#1\n"
      "monitoring spine#1: 3 of 3\n"
      "counters: numMaintEnter=1 numNotifyStageCompletion=1 numStartIntfMonInUnits=3 "
      "numStopIntfMonInUnits=3\n",
      snapshot( rig ) );

   rig.entered( "spine" );
   rig.advance( 60 );
   rig.exit( "spine" );
   EXPECT_TRUE( rig.exitComplete( "spine" ) );
   rig.exited( "spine" );
   rig.settle();
   EXPECT_EQ(
      "spine: normal, in 0 out 0\n"
      "counters: numMaintEnter=1 numMaintExit=1 numNotifyStageCompletion=2 numNoNotifyNoStageInput=3 "
      "numStartIntfMonInUnits=3 numStopIntfMonInUnits=3\n",
      snapshot( rig ) );
}

TEST_F( DrainStory, completesOnTheLastSampleOfTheLoadInterval ) {
   rig.profileIs( "fast", 100, 12, false, 0 );
   rig.unitIs( "u1", { et1 } );
   rig.start();
   rig.enter( "u1" );
   rig.advance( 14 );
   EXPECT_FALSE( rig.enterComplete( "u1" ) );
   rig.advance( 1 );
   EXPECT_TRUE( rig.enterComplete( "u1" ) );
   EXPECT_FALSE( rig.shut( et1 ) );
}

TEST_F( DrainStory, shutsBusyInterfacesWhenTheMaxDelayIsOver ) {
   rig.profileIs( "fast", 100, 10, true, 30 );
   rig.unitIs( "u1", { et1 } );
   rig.trafficIs( et1, { 1e9, 1e9 } );
   rig.start();
   rig.enter( "u1" );
   rig.advance( 29 );
   EXPECT_FALSE( rig.shut( et1 ) );
   rig.advance( 1 );
   EXPECT_TRUE( rig.shut( et1 ) );
   EXPECT_TRUE( rig.enterComplete( "u1" ) );
   // A shut interface is not sampled, so its last rates stay.
   rig.trafficIs( et1, {} );
   rig.advance( 60 );
   EXPECT_EQ( 1000000000u, rig.unit( "u1" ).aggTrafficRate().inRate );
   EXPECT_EQ( 6u, rig.record( et1 )->totalSamples() );
}

TEST_F( DrainStory, watchesForSpikesAndViolationsUnderMaintenance ) {
   rig.profileIs( "fast", 100, 10, false, 0 );
   rig.unitIs( "u1", { et1 } );
   rig.start();
   rig.enter( "u1" );
   rig.advance( 10 );
   rig.entered( "u1" );
   rig.trafficIs( et1, { 1e6, 0 } );
   rig.advance( 30 );
   EXPECT_EQ(
      "et1: fast monIntfStateUnderMaint since +10, start +0, cur 1000000/0 +40, prev 1000000/0, last +40, "
      "samples 5 "
      "quiet run 2 pre 2-0 post 0-3 spike\n"
      "under: et1\n"
      "spikes: et1\n"
      "u1: maintenance, in 1000000 out 0, violations 3\n"
      "  violating: et1\n"
      "enter complete: MaintenanceMode/drainwatch/u1#1\n"
      "monitoring u1#1: 1 of 1\n"
      "counters: numMaintEnter=1 numNotifyStageCompletion=1 numStartIntfMonInUnits=1 "
      "numStopIntfMonInUnits=3\n",
      snapshot( rig ) );
   rig.trafficIs( et1, {} );
   rig.advance( 10 );
   EXPECT_EQ(
      "et1: fast monIntfStateUnderMaint since +10, start +0, cur 0/0 +50, prev 1000000/0, last +50, samples "
      "6 quiet "
      "run 2 pre 2-0 post 1-3 spike\n"
      "under: et1\n"
      "spikes: et1\n"
      "u1: maintenance, in 0 out 0, violations 3\n"
      "enter complete: MaintenanceMode/drainwatch/u1#1\n"
      "monitoring u1#1: 1 of 1\n"
      "counters: numMaintEnter=1 numNotifyStageCompletion=1 numStartIntfMonInUnits=1 "
      "numStopIntfMonInUnits=3\n",
      snapshot( rig ) );
}

TEST_F( DrainStory, completesWhenItsOnlyBusyInterfaceGoesDown ) {
   rig.unitIs( "u1", { et1, et2 } );
   rig.trafficIs( et1, { 1e9, 1e9 } );
   rig.start();
   rig.enter( "u1" );
   rig.advance( 20 );
   EXPECT_FALSE( rig.enterComplete( "u1" ) );
   rig.linkIs( et1, false );
   rig.advance( 1 );
   EXPECT_TRUE( rig.enterComplete( "u1" ) );
   // It comes back: it is monitored again, and the completion stands.
   rig.linkIs( et1 );
   rig.advance( 6 );
   EXPECT_EQ( Maintenance::monIntfStateEnterMaint, rig.record( et1 )->state() );
   EXPECT_EQ( 1u, rig.record( et1 )->totalSamples() );
   EXPECT_TRUE( rig.enterComplete( "u1" ) );
}

TEST_F( DrainStory, keepsAnInterfaceThatMovesBetweenGroupsOfItsUnit ) {
   rig.unitIs( "u1", { et1 } );
   rig.mappingIs( "other", "u1" );
   rig.trafficIs( et1, { 1e9, 1e9 } );
   rig.start();
   rig.enter( "u1" );
   rig.advance( 10 );
   const auto * record = rig.record( et1 );
   rig.groupMemberIs( "other", et1 );
   rig.groupMemberDel( "u1", et1 );
   rig.advance( 10 );
   EXPECT_EQ( record, rig.record( et1 ) );
   EXPECT_EQ( 4u, record->totalSamples() );
}

TEST_F( DrainStory, stopsAnInterfaceThatLeavesItsLastGroup ) {
   rig.unitIs( "u1", { et1, et2 } );
   rig.trafficIs( et1, { 1e9, 1e9 } );
   rig.start();
   rig.enter( "u1" );
   rig.advance( 20 );
   rig.groupMemberDel( "u1", et1 );
   EXPECT_EQ( nullptr, rig.record( et1 ) );
   EXPECT_TRUE( rig.enterComplete( "u1" ) );
   EXPECT_EQ( 0u, rig.unit( "u1" ).aggTrafficRate().inRate );
}

TEST_F( DrainStory, takesInAnInterfaceThatIsMappedDuringTheEnter ) {
   rig.unitIs( "u1", { et1 } );
   rig.groupMemberIs( "late", et2 );
   rig.trafficIs( et1, { 1e9, 0 } );
   rig.start();
   rig.enter( "u1" );
   rig.advance( 3 );
   rig.mappingIs( "late", "u1" );
   rig.advance( 1 );
   ASSERT_NE( nullptr, rig.record( et2 ) );
   EXPECT_EQ( "+3", Vel::text( "+", rig.record( et2 )->startTime() - Cog::ManualClock::defaultStartTime ) );
}

TEST_F( DrainStory, endsWithAnExitThatReleasesWhatWasShutAndLeavesNoRecordAndNoRate ) {
   rig.unitIs( "u1", { et1 } );
   rig.profileIs( "fast", 100, 10, true, 20 );
   rig.trafficIs( et1, { 1e9, 2e9 } );
   rig.start();
   rig.unit( "u1" ).genIdIs( 2 );
   EXPECT_EQ( "u1#3", rig.enter( "u1" ) );
   rig.advance( 20 );
   rig.entered( "u1" );
   ASSERT_TRUE( rig.shut( et1 ) );
   ASSERT_EQ( 1000000000u, rig.unit( "u1" ).aggTrafficRate().inRate );
   ASSERT_EQ( 2000000000u, rig.unit( "u1" ).aggTrafficRate().outRate );
   EXPECT_EQ( "u1#4", rig.exit( "u1" ) );
   EXPECT_FALSE( rig.shut( et1 ) );
   EXPECT_EQ( nullptr, rig.record( et1 ) );
   EXPECT_EQ( 0u, rig.unit( "u1" ).aggTrafficRate().inRate );
   EXPECT_EQ( 0u, rig.unit( "u1" ).aggTrafficRate().outRate );
   EXPECT_TRUE( rig.exitComplete( "u1" ) );
   EXPECT_EQ( 1u, rig.exitClass.agentStatus->completes() );
   EXPECT_EQ( 0u, rig.enterClass.agentStatus->completes() );
}

TEST_F( DrainStory, cancelledByAnExitReportsOnlyTheExit ) {
   rig.unitIs( "u1", { et1, et2 } );
   rig.trafficIs( et1, { 1e9, 1e9 } );
   rig.start();
   rig.enter( "u1" );
   rig.advance( 20 );
   EXPECT_TRUE( rig.shut( et2 ) );
   rig.exit( "u1" );
   EXPECT_TRUE( rig.exitComplete( "u1" ) );
   EXPECT_FALSE( rig.shut( et2 ) );
   EXPECT_EQ( 0u, rig.enterClass.agentStatus->completes() );
   EXPECT_EQ( 1u, rig.counters().numMaintExit() );
}

} // namespace
