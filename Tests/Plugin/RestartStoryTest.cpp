#include "Tests/Plugin/Snapshot.h"

#include <gtest/gtest.h>

namespace {

using MaintenanceMode::PluginRig;
using Tests::snapshot;

class RestartStory : public ::testing::Test {
 protected:
   void begin() {
      rig.profileIs( "fast", 100, 10, true, 300 );
      rig.defaultProfileIs( "fast" );
      rig.linkIs( et1 );
      rig.linkIs( et2 );
      rig.unitIs( "u1", { et1, et2 } );
      rig.start();
   }
   PluginRig rig;
   const Wire::IntfId et1 = PluginRig::port( "et1" );
   const Wire::IntfId et2 = PluginRig::port( "et2" );
};

TEST_F( RestartStory, ofANormalUnitFindsNothingToDo ) {
   begin();
   rig.crashAndRestart();
   EXPECT_EQ(
      "u1: normal, in 0 out 0\n"
      "counters: numStartIntfMonInUnits=2\n",
      snapshot( rig ) );
}

TEST_F( RestartStory, duringAnEnterGoesOnWhereItWas ) {
   begin();
   rig.trafficIs( et1, { 1e6, 0 } );
   rig.enter( "u1" );
   rig.advance( 12 );
   rig.crashAndRestart();
   EXPECT_EQ(
      "et1: fast monIntfStateEnterMaint since +0, start +0, cur 1000000/0 +10, prev 1000000/0, last +10, "
      "samples 2 "
      "quiet run 0 pre 0-2 post 0-0\n"
      "et2: fast monIntfStateUnderMaint since +10, start +0, cur 0/0 +10, prev 0/0, last +10, samples 2 "
      "quiet run 2 "
      "pre 2-0 post 0-0\n"
      "entering: et1\n"
      "under: et2\n"
      "u1: enterInProgress, in 1000000 out 0\n"
      "shut: et2 +12\n"
      "monitoring u1#1: 1 of 2\n"
      "counters: numMaintEnter=1 numStartIntfMonInUnits=2\n",
      snapshot( rig ) );
   rig.trafficIs( et1, {} );
   rig.advance( 10 );
   EXPECT_TRUE( rig.enterComplete( "u1" ) );
}

TEST_F( RestartStory, underMaintenanceTouchesNoLink ) {
   begin();
   rig.enter( "u1" );
   rig.advance( 10 );
   rig.entered( "u1" );
   rig.crashAndRestart();
   EXPECT_TRUE( rig.shut( et1 ) );
   EXPECT_TRUE( rig.shut( et2 ) );
   EXPECT_EQ( 2u, rig.record( et1 )->totalSamples() );
   EXPECT_EQ( 2u, rig.root->unitMon( "u1" )->drainedIntf()->intfs() );
   rig.exit( "u1" );
   EXPECT_TRUE( rig.exitComplete( "u1" ) );
   EXPECT_FALSE( rig.shut( et1 ) );
}

TEST_F( RestartStory, duringAnExitCompletesItAndReleasesEverything ) {
   begin();
   rig.enter( "u1" );
   rig.advance( 10 );
   rig.entered( "u1" );
   // The exit is written, and the process ends before anybody acts on it.
   rig.stop();
   rig.cause->intfStatusIs( et1, rig.now() );
   rig.monIntfStatusDir->monIntfStatusIs( et1 )->stateIs( Maintenance::monIntfStateUnderMaint );
   rig.exit( "u1" );
   rig.start();
   EXPECT_TRUE( rig.exitComplete( "u1" ) );
   EXPECT_FALSE( rig.shut( et1 ) );
   EXPECT_EQ( nullptr, rig.record( et1 ) );
   EXPECT_EQ( 0u, rig.root->unitMons() );
   EXPECT_EQ( 0u, rig.counters().numNotifyStageCompletion() );
}

TEST_F( RestartStory, betweenCompletionAndMaintenanceKeepsTheUnitMonitored ) {
   begin();
   rig.enter( "u1" );
   rig.advance( 12 );
   EXPECT_TRUE( rig.enterComplete( "u1" ) );
   rig.crashAndRestart();
   EXPECT_TRUE( rig.enterComplete( "u1" ) );
   EXPECT_EQ( 1u, rig.root->unitMons() );
   EXPECT_TRUE( rig.shut( et1 ) );
}

TEST_F( RestartStory, keepsTheDrainCreditAndTheMaxDelay ) {
   begin();
   rig.profileIs( "fast", 100, 60, true, 30 );
   rig.trafficIs( et1, { 1e6, 0 } );
   rig.enter( "u1" );
   rig.advance( 20 );
   rig.crashAndRestart();
   rig.advance( 9 );
   EXPECT_FALSE( rig.shut( et1 ) );
   rig.advance( 1 );
   EXPECT_TRUE( rig.shut( et1 ) );
}

TEST_F( RestartStory, releasesWhatNoRestoredUnitMonitors ) {
   begin();
   rig.enter( "u1" );
   rig.advance( 10 );
   rig.entered( "u1" );
   rig.unit( "u1" ).intfsViolatingTrafficThresholdIs( et1, true );
   rig.groupMemberDel( "u1", et2 );
   rig.unit( "u1" ).genIdIs( 7 );
   rig.crashAndRestart();
   EXPECT_EQ( 0u, rig.monIntfStatusDir->monIntfStatuss() );
   EXPECT_FALSE( rig.shut( et1 ) );
   EXPECT_EQ( 0u, rig.unit( "u1" ).intfsViolatingTrafficThresholds() );
}

TEST_F( RestartStory, whereShutLinksGoDownReleasesAndShutsAgain ) {
   PluginRig down( PluginRig::ShutLinks::goDown );
   down.profileIs( "fast", 100, 10, true, 300 );
   down.defaultProfileIs( "fast" );
   down.linkIs( et1 );
   down.unitIs( "u1", { et1 } );
   down.start();
   down.enter( "u1" );
   down.advance( 11 );
   down.entered( "u1" );
   EXPECT_EQ( Interface::operDown, down.allIntfStatusDir->intfStatus( et1 )->operStatus() );
   const double before = down.record( et1 )->startTime();
   down.crashAndRestart();
   down.advance( 2 );
   EXPECT_TRUE( down.shut( et1 ) );
   EXPECT_GT( down.record( et1 )->startTime(), before );
   EXPECT_EQ( 1u, down.counters().numIntfMonInitialStatePassive() );
}

} // namespace
