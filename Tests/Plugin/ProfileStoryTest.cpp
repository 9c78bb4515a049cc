#include "Tests/Plugin/Snapshot.h"

#include "Platform/Vel/Log.h"

#include <gtest/gtest.h>

namespace {

using MaintenanceMode::PluginRig;

class ProfileStory : public ::testing::Test {
 protected:
   ProfileStory() {
      rig.profileIs( "fast", 100, 10, false, 0 );
      rig.profileIs( "slow", 100, 60, false, 0 );
      rig.defaultProfileIs( "fast" );
      rig.linkIs( et1 );
      rig.unitIs( "u1", { et1 } );
      rig.start();
   }
   PluginRig rig;
   const Wire::IntfId et1 = PluginRig::port( "et1" );
};

TEST_F( ProfileStory, anEditAppliesFromTheNextSampleOn ) {
   rig.enter( "u1" );
   rig.advance( 5 );
   rig.profileIs( "fast", 100, 20, false, 0 );
   rig.advance( 10 );
   EXPECT_FALSE( rig.enterComplete( "u1" ) );
   rig.advance( 5 );
   EXPECT_TRUE( rig.enterComplete( "u1" ) );
}

TEST_F( ProfileStory, anotherProfileKeepsTheQuietRunAndStartsThePeriodAgain ) {
   rig.enter( "u1" );
   rig.advance( 5 );
   rig.clock->advance( 2 );
   Vel::LogCapture log;
   rig.selectIs( et1, "slow" );
   rig.settle();
   EXPECT_EQ( 1u, rig.record( et1 )->numConsecutiveDrainedSamples() );
   EXPECT_EQ( "slow", rig.record( et1 )->profileName() );
   ASSERT_EQ( 1u, log.lines().size() );
   EXPECT_EQ( "For interface et1, interface profile changed to slow (was fast)", log.lines()[0].text );
   rig.advance( 4 );
   EXPECT_EQ( 1u, rig.record( et1 )->totalSamples() );
   rig.advance( 1 );
   EXPECT_EQ( 2u, rig.record( et1 )->totalSamples() );
   EXPECT_EQ( 1u, rig.counters().numIntfMonProfileChange() );
}

TEST_F( ProfileStory, shutdownSwitchedOnUnderMaintenanceShutsAtOnce ) {
   rig.enter( "u1" );
   rig.advance( 10 );
   rig.entered( "u1" );
   rig.profileIs( "fast", 100, 10, true, 300 );
   EXPECT_TRUE( rig.shut( et1 ) );
   const auto samples = rig.record( et1 )->totalSamples();
   rig.advance( 60 );
   EXPECT_EQ( samples, rig.record( et1 )->totalSamples() );
}

TEST_F( ProfileStory, shutdownSwitchedOffUnderMaintenanceBringsItBackAndSamplesAgain ) {
   rig.profileIs( "fast", 100, 10, true, 300 );
   rig.enter( "u1" );
   rig.advance( 10 );
   rig.entered( "u1" );
   EXPECT_TRUE( rig.shut( et1 ) );
   rig.profileIs( "fast", 100, 10, false, 0 );
   EXPECT_FALSE( rig.shut( et1 ) );
   rig.advance( 10 );
   EXPECT_EQ( 1u, rig.record( et1 )->numSamplesBelowThresholdPostMaint() );
}

TEST_F( ProfileStory, aNewDefaultReachesThoseWhoUseItOnly ) {
   const auto et2 = PluginRig::port( "et2" );
   rig.linkIs( et2 );
   rig.groupMemberIs( "u1", et2 );
   rig.selectIs( et2, "fast" );
   rig.enter( "u1" );
   rig.advance( 1 );
   rig.defaultProfileIs( "slow" );
   EXPECT_EQ( "slow", rig.record( et1 )->profileName() );
   EXPECT_EQ( "fast", rig.record( et2 )->profileName() );
   EXPECT_EQ( 1u, rig.counters().numIntfMonDefProfileUpdate() );
}

TEST_F( ProfileStory, aProfileThatIsDeletedInUseStaysWithItsMonitors ) {
   rig.enter( "u1" );
   rig.advance( 5 );
   rig.profileDel( "fast" );
   EXPECT_EQ( 1u, rig.counters().numIntfMonProfileDelete() );
   rig.advance( 5 );
   EXPECT_TRUE( rig.enterComplete( "u1" ) );
}

TEST_F( ProfileStory, aProfileThatComesBackIsBoundWhenItIsSelectedAgain ) {
   rig.enter( "u1" );
   rig.profileDel( "fast" );
   auto * const again = rig.profileIs( "fast", 100, 30, false, 0 );
   EXPECT_NE( again, rig.root->intfMon( et1 )->intfProfile().get() );
   rig.selectIs( et1, "fast" );
   rig.settle();
   EXPECT_EQ( again, rig.root->intfMon( et1 )->intfProfile().get() );
   EXPECT_EQ( 0u, rig.counters().numIntfMonPendingProfileResolved() );
}

TEST_F( ProfileStory, aSelectedProfileThatArrivesLaterIsTaken ) {
   rig.enter( "u1" );
   rig.advance( 1 );
   rig.profileDel( "fast" );
   auto * entry = rig.intfToGroupDir->intfToGroup( et1 );
   entry->profileChangeCauseIs( Maintenance::ProfileChangeCause::membership );
   using Maintenance::Profile::ProfileType;
   entry->selectedProfileIs( ProfileType::interfaceProfile, { ProfileType::interfaceProfile, "later" } );
   rig.profileIs( "later", 100, 30, false, 0 );
   EXPECT_EQ( "later", rig.record( et1 )->profileName() );
   EXPECT_EQ( 1u, rig.counters().numIntfMonPendingProfileResolved() );
}

TEST_F( ProfileStory, samplingGoesOnWithoutAProfile ) {
   rig.enter( "u1" );
   rig.advance( 5 );
   rig.defaultProfileIs( "missing" );
   rig.trafficIs( et1, { 1e6, 0 } );
   rig.advance( 10 );
   EXPECT_EQ( 3u, rig.record( et1 )->totalSamples() );
   EXPECT_EQ( 1u, rig.record( et1 )->numConsecutiveDrainedSamples() );
   EXPECT_EQ( 1e6, rig.record( et1 )->curRates().inBitsRate );
   EXPECT_FALSE( rig.enterComplete( "u1" ) );
}

} // namespace
