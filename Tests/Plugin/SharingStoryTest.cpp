#include "Tests/Plugin/Snapshot.h"

#include <gtest/gtest.h>

namespace {

using MaintenanceMode::PluginRig;
using Tests::snapshot;

const Wire::IntfId et1 = PluginRig::port( "et1" );
const Wire::IntfId et2 = PluginRig::port( "et2" );
const Wire::IntfId et3 = PluginRig::port( "et3" );

/// Units u1 (et1, et2) and u2 (et2, et3).
void twoUnits( PluginRig & rig ) {
   rig.profileIs( "fast", 100, 10, true, 300 );
   rig.defaultProfileIs( "fast" );
   for ( const auto & intf : { et1, et2, et3 } )
      rig.linkIs( intf );
   rig.unitIs( "u1", { et1, et2 } );
   rig.unitIs( "u2", { et2, et3 } );
   rig.start();
}

TEST( SharingStory, aSharedInterfaceDrainsOnceForBothUnits ) {
   PluginRig rig;
   twoUnits( rig );
   rig.trafficIs( et2, { 3e6, 1e6 } );
   rig.enter( "u1" );
   rig.enter( "u2" );
   rig.advance( 10 );
   EXPECT_EQ(
      "et1: fast monIntfStateUnderMaint since +10, start +0, cur 0/0 +10, prev 0/0, last +10, samples 2 "
      "quiet run 2 "
      "pre 2-0 post 0-0\n"
      "et2: fast monIntfStateEnterMaint since +0, start +0, cur 3000000/1000000 +10, prev 3000000/1000000, "
      "last +10, "
      "samples 2 quiet run 0 pre 0-2 post 0-0\n"
      "et3: fast monIntfStateUnderMaint since +10, start +0, cur 0/0 +10, prev 0/0, last +10, samples 2 "
      "quiet run 2 "
      "pre 2-0 post 0-0\n"
      "entering: et2\n"
      "under: et1 et3\n"
      "u1: enterInProgress, in 3000000 out 1000000\n"
      "u2: enterInProgress, in 3000000 out 1000000\n"
      "shut: et1 +10\n"
      "shut: et3 +10\n"
      "monitoring u1#1: 1 of 2\n"
      "monitoring u2#1: 1 of 2\n"
      "counters: numMaintEnter=2 numStartIntfMonInUnits=3\n",
      snapshot( rig ) );
   rig.trafficIs( et2, {} );
   rig.advance( 10 );
   EXPECT_TRUE( rig.enterComplete( "u1" ) );
   EXPECT_TRUE( rig.enterComplete( "u2" ) );
}

TEST( SharingStory, aUnitThatJoinsADrainedInterfaceCountsItAtOnce ) {
   PluginRig rig;
   twoUnits( rig );
   rig.enter( "u1" );
   rig.advance( 10 );
   rig.entered( "u1" );
   rig.enter( "u2" );
   EXPECT_EQ( 1u, rig.root->unitMon( "u2" )->drainedIntf()->intfs() );
   rig.advance( 10 );
   EXPECT_TRUE( rig.enterComplete( "u2" ) );
}

TEST( SharingStory, theFirstUnitToLeaveKeepsTheMonitorForTheOther ) {
   PluginRig rig;
   twoUnits( rig );
   rig.enter( "u1" );
   rig.enter( "u2" );
   rig.advance( 10 );
   rig.entered( "u1" );
   rig.entered( "u2" );
   rig.exit( "u2" );
   EXPECT_TRUE( rig.shut( et2 ) );
   EXPECT_FALSE( rig.shut( et3 ) );
   EXPECT_EQ( Maintenance::monIntfStateUnderMaint, rig.record( et2 )->state() );
   rig.exited( "u2" );
   rig.exit( "u1" );
   EXPECT_FALSE( rig.shut( et2 ) );
   EXPECT_EQ( nullptr, rig.record( et2 ) );
}

TEST( SharingStory, leavingAUnitTakesItsShareOfTheRatesOnly ) {
   PluginRig rig;
   twoUnits( rig );
   rig.trafficIs( et2, { 3e6, 1e6 } );
   rig.enter( "u1" );
   rig.enter( "u2" );
   rig.advance( 10 );
   rig.exit( "u2" );
   EXPECT_EQ( 3000000u, rig.unit( "u1" ).aggTrafficRate().inRate );
   EXPECT_EQ( 0u, rig.unit( "u2" ).aggTrafficRate().inRate );
}

// Links whose status falls when they are shut: what follows is not what one would wish, and it is what the protocol of
// entering and leaving leads to. The agent gives the plug-in a status apart from its own shutdown, so that it does not
// come to this in operation.

TEST( SharingStory, whereShutLinksGoDownTheFirstUnitToLeaveReleasesThemForAll ) {
   PluginRig rig( PluginRig::ShutLinks::goDown );
   twoUnits( rig );
   rig.enter( "u1" );
   rig.enter( "u2" );
   rig.advance( 11 );
   rig.entered( "u1" );
   rig.entered( "u2" );
   rig.exit( "u2" );
   EXPECT_FALSE( rig.shut( et2 ) );
   ASSERT_NE( nullptr, rig.record( et2 ) );
   EXPECT_EQ( Maintenance::monIntfStateStopped, rig.record( et2 )->state() );
   // Nothing samples it any more, and the other unit never completes when it comes back.
   rig.exited( "u2" );
   const auto samples = rig.record( et2 )->totalSamples();
   rig.advance( 60 );
   EXPECT_EQ( samples, rig.record( et2 )->totalSamples() );
   rig.enter( "u2" );
   rig.advance( 60 );
   EXPECT_FALSE( rig.enterComplete( "u2" ) );
}

TEST( SharingStory, whereShutLinksGoDownAUnitThatJoinsOneHangs ) {
   PluginRig rig( PluginRig::ShutLinks::goDown );
   twoUnits( rig );
   rig.enter( "u1" );
   rig.advance( 11 );
   rig.entered( "u1" );
   rig.enter( "u2" );
   EXPECT_EQ( 1u, rig.counters().numIntfMonIntfOperNotUp() );
   // Any event of the shared interface during the enter makes it a member without a monitor.
   rig.selectIs( et2, "fast" );
   rig.advance( 60 );
   EXPECT_TRUE( rig.root->unitMon( "u2" )->monIntf()->intf( et2 ) );
   EXPECT_EQ( 1u, rig.root->unitMon( "u2" )->drainedIntf()->intfs() );
}

} // namespace
