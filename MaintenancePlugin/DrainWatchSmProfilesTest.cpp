#include "MaintenancePlugin/PluginRig.h"
#include "Platform/FastLog/Capture.h"
#include "Platform/Vel/Trace.h"

#include <gtest/gtest.h>

namespace MaintenanceMode {
namespace {

struct DrainWatchSmProfiles : testing::Test {
   PluginRig rig;
   const Wire::IntfId et1 = PluginRig::port( "et1" );
   const Wire::IntfId et2 = PluginRig::port( "et2" );
   const Wire::IntfId stranger = PluginRig::port( "stranger" );

   DrainWatchSmProfiles() {
      for ( const auto & intf : { et1, et2 } ) {
         rig.linkIs( intf );
         rig.trafficIs( intf, { 1e9, 1e9 } );
      }
      rig.profileIs( "base", 100, 10, false, 0 );
      rig.profileIs( "named", 100, 10, false, 0 );
      rig.defaultProfileIs( "base" );
   }
   /// Both interfaces monitored: et1 under the default profile, et2 under the one that is named.
   void monitorBoth() {
      rig.unitIs( "u1", { et1, et2 } );
      rig.selectIs( et2, "named" );
      rig.start();
      rig.enter( "u1" );
   }
   /// The name of the profile that the interface's monitor holds.
   Vel::String held( const Wire::IntfId & intf ) {
      const auto & profile = rig.root->intfMon( intf )->intfProfile();
      return profile ? profile->name() : "null";
   }
};

// ---- resolution

TEST_F( DrainWatchSmProfiles, aSelectedNameIsTakenAsItStands ) {
   rig.selectIs( et1, "named" );
   rig.start();
   EXPECT_EQ( "named", rig.root->getIntfProfileName( et1 ) );
   EXPECT_EQ( rig.intfProfileStatusDir->status( "named" ), rig.root->getIntfProfile( et1 ).get() );
   EXPECT_FALSE( rig.root->usingDefaultProfile( et1 ) );
}

TEST_F( DrainWatchSmProfiles, theReservedNameStandsForTheDefaultOfTheMoment ) {
   rig.selectIs( et1, "#DEFAULTPROFILE" );
   rig.start();
   EXPECT_EQ( "base", rig.root->getIntfProfileName( et1 ) );
   EXPECT_EQ( rig.intfProfileStatusDir->status( "base" ), rig.root->getIntfProfile( et1 ).get() );
   EXPECT_TRUE( rig.root->usingDefaultProfile( et1 ) );
   rig.defaultProfileIs( "named" );
   EXPECT_EQ( "named", rig.root->getIntfProfileName( et1 ) );
   EXPECT_EQ( rig.intfProfileStatusDir->status( "named" ), rig.root->getIntfProfile( et1 ).get() );
}

TEST_F( DrainWatchSmProfiles, aDefaultThatDoesNotExistHasANameAndNoProfile ) {
   rig.selectIs( et1, "#DEFAULTPROFILE" );
   rig.defaultProfileIs( "missing" );
   rig.start();
   Vel::TraceCapture traces;
   EXPECT_EQ( "missing", rig.root->getIntfProfileName( et1 ) );
   EXPECT_FALSE( rig.root->getIntfProfile( et1 ) );
   EXPECT_TRUE( rig.root->usingDefaultProfile( et1 ) );
   EXPECT_TRUE( traces.has( "getIntfProfile: intf et1, profile -", 4 ) );
}

TEST_F( DrainWatchSmProfiles, anInterfaceInNoGroupHasNoProfile ) {
   // A profile without a name is nobody's.
   rig.profileIs( "", 100, 10, false, 0 );
   rig.start();
   EXPECT_EQ( "", rig.root->getIntfProfileName( stranger ) );
   EXPECT_FALSE( rig.root->getIntfProfile( stranger ) );
   EXPECT_FALSE( rig.root->usingDefaultProfile( stranger ) );
}

TEST_F( DrainWatchSmProfiles, anInterfaceWithoutASelectionHasNoProfile ) {
   rig.groupMemberIs( "g", et1 );
   rig.selectDel( et1 );
   rig.start();
   EXPECT_EQ( "", rig.root->getIntfProfileName( et1 ) );
   EXPECT_FALSE( rig.root->getIntfProfile( et1 ) );
   EXPECT_FALSE( rig.root->usingDefaultProfile( et1 ) );
}

TEST_F( DrainWatchSmProfiles, aSelectionOfAnotherTypeIsNoSelection ) {
   using Maintenance::Profile::ProfileType;
   rig.intfToGroupDir->intfToGroupIs( et1 )->selectedProfileIs(
      ProfileType::unitProfile, { ProfileType::unitProfile, "named" } );
   rig.start();
   EXPECT_EQ( "", rig.root->getIntfProfileName( et1 ) );
   EXPECT_FALSE( rig.root->getIntfProfile( et1 ) );
}

TEST_F( DrainWatchSmProfiles, aProfileOfTheDefaultsNameIsNotTheDefault ) {
   rig.selectIs( et1, "base" );
   rig.start();
   EXPECT_FALSE( rig.root->usingDefaultProfile( et1 ) );
}

TEST_F( DrainWatchSmProfiles, withoutADefaultTheReservedNameStandsForNothing ) {
   rig.selectIs( et1, "#DEFAULTPROFILE" );
   rig.start();
   rig.root->defaultIntfProfileDel();
   EXPECT_EQ( "", rig.root->getIntfProfileName( et1 ) );
   EXPECT_FALSE( rig.root->getIntfProfile( et1 ) );
   EXPECT_TRUE( rig.root->usingDefaultProfile( et1 ) );
}

TEST_F( DrainWatchSmProfiles, withoutProfilesThereIsNone ) {
   rig.selectIs( et1, "named" );
   rig.start();
   rig.root->intfProfileStatusDirDel();
   EXPECT_EQ( "named", rig.root->getIntfProfileName( et1 ) );
   EXPECT_FALSE( rig.root->getIntfProfile( et1 ) );
}

// ---- profiles that come

TEST_F( DrainWatchSmProfiles, aProfileThatComesReachesTheMonitorsThatWaitedForIt ) {
   monitorBoth();
   // Selected before it exists: the monitor goes on with the earlier one.
   rig.intfToGroupDir->intfToGroup( et2 )->selectedProfileIs(
      Maintenance::Profile::ProfileType::interfaceProfile,
      { Maintenance::Profile::ProfileType::interfaceProfile, "late" } );
   ASSERT_EQ( "named", held( et2 ) );
   Vel::TraceCapture traces;
   rig.profileIs( "late", 100, 10, false, 0 );
   EXPECT_EQ( "late", held( et2 ) );
   EXPECT_EQ( "base", held( et1 ) );
   EXPECT_EQ( 1u, rig.counters().numIntfMonPendingProfileResolved() );
   EXPECT_TRUE( traces.has( "handleIntfProfileStatus: [add] intf profile late", 4 ) );
}

TEST_F( DrainWatchSmProfiles, aProfileThatComesLeavesMonitorsOfAnObjectOfItsNameAlone ) {
   monitorBoth();
   const auto old = rig.root->intfMon( et2 )->intfProfile();
   rig.profileDel( "named" );
   rig.profileIs( "named", 1, 1, false, 0 );
   EXPECT_EQ( old, rig.root->intfMon( et2 )->intfProfile() );
   EXPECT_EQ( 0u, rig.counters().numIntfMonPendingProfileResolved() );
}

TEST_F( DrainWatchSmProfiles, aProfileThatNobodySelectsReachesNobody ) {
   monitorBoth();
   rig.profileIs( "unused", 100, 10, false, 0 );
   EXPECT_EQ( 0u, rig.counters().numIntfMonPendingProfileResolved() );
   EXPECT_EQ( 0u, rig.counters().numIntfMonProfileChange() );
}

TEST_F( DrainWatchSmProfiles, aMonitorWithoutAProfileIsFatalWhenProfilesComeOrGo ) {
   monitorBoth();
   rig.defaultProfileIs( "missing" );
   ASSERT_EQ( "null", held( et1 ) );
   Vel::AssertionsThrow assertionsThrow;
   try {
      rig.profileIs( "missing", 100, 10, false, 0 );
      FAIL();
   } catch ( const Vel::AssertionFailed & failure ) {
      EXPECT_STREQ( "intfMonSm->intfProfile()", failure.what() );
   }
   EXPECT_THROW( rig.profileDel( "missing" ), Vel::AssertionFailed );
   rig.defaultProfileIs( "base" );
}

TEST_F( DrainWatchSmProfiles, theFastLogTellsOfProfilesAndTheDefault ) {
   rig.start();
   FastLog::Capture log;
   rig.profileIs( "new", 100, 10, false, 0 );
   EXPECT_TRUE( log.has( "handleIntfProfileStatus: [add] intf profile new" ) );
   rig.defaultProfileIs( "new" );
   EXPECT_TRUE( log.has( "default intf profile new" ) );
   rig.defaultProfileIs( "base" );
   rig.profileDel( "new" );
   EXPECT_TRUE( log.has( "handleIntfProfileStatus: [delete] intf profile new" ) );
}

// ---- profiles that go

TEST_F( DrainWatchSmProfiles, aProfileThatGoesIsKeptByTheMonitorsThatHaveNoOther ) {
   monitorBoth();
   const auto old = rig.root->intfMon( et2 )->intfProfile();
   Vel::TraceCapture traces;
   rig.profileDel( "named" );
   EXPECT_EQ( old, rig.root->intfMon( et2 )->intfProfile() );
   EXPECT_EQ( 1u, rig.counters().numIntfMonProfileDelete() );
   EXPECT_EQ( 0u, rig.counters().numIntfMonProfileChange() );
   EXPECT_TRUE( traces.has( "handleIntfProfileStatus: [delete] intf profile named", 4 ) );
}

TEST_F( DrainWatchSmProfiles, aProfileThatGoesIsReplacedWhereAnotherIsSelected ) {
   monitorBoth();
   rig.selectIs( et2, "base" );
   ASSERT_EQ( "named", held( et2 ) );
   rig.profileDel( "named" );
   EXPECT_EQ( "base", held( et2 ) );
   EXPECT_EQ( 1u, rig.counters().numIntfMonProfileDelete() );
   EXPECT_EQ( 1u, rig.counters().numIntfMonProfileChange() );
}

// ---- the default

TEST_F( DrainWatchSmProfiles, aNewDefaultReachesOnlyThoseThatSelectItByTheReservedName ) {
   monitorBoth();
   rig.profileIs( "base2", 100, 10, false, 0 );
   rig.selectIs( et2, "base" );
   rig.settle();
   ASSERT_EQ( "base", held( et2 ) );
   Vel::TraceCapture traces;
   rig.defaultProfileIs( "base2" );
   EXPECT_EQ( "base2", held( et1 ) );
   EXPECT_EQ( "base", held( et2 ) );
   EXPECT_EQ( 1u, rig.counters().numIntfMonDefProfileUpdate() );
   EXPECT_TRUE( traces.has( "handleDefaultIntfProfile: default intf profile base2", 4 ) );
}

TEST_F( DrainWatchSmProfiles, aDefaultThatDoesNotExistIsHandedOverAsNone ) {
   monitorBoth();
   rig.defaultProfileIs( "missing" );
   EXPECT_EQ( "null", held( et1 ) );
   EXPECT_EQ( 1u, rig.counters().numIntfMonDefProfileUpdate() );
   EXPECT_EQ( 0u, rig.counters().numIntfMonProfileChange() );
   rig.defaultProfileIs( "base" );
   EXPECT_EQ( "base", held( et1 ) );
}

TEST_F( DrainWatchSmProfiles, everyReplacementIsCountedBeforeItIsHandedOver ) {
   monitorBoth();
   struct Seen {
      std::vector< Vel::String > order;
      DrainWatchSmDebugCounters * counters = nullptr;
      void handle() {
         order.push_back( Vel::text(
            counters->numIntfMonDefProfileUpdate(), counters->numIntfMonPendingProfileResolved(),
            counters->numIntfMonProfileDelete() ) );
      }
   } seen;
   struct VelIntfMon final : Vel::ReactorTo< Seen, IntfMonSm > {
      using ReactorTo::ReactorTo;
      void onIntfProfile() override { sm()->handle(); }
   };
   seen.counters = &rig.counters();
   Vel::Watch< VelIntfMon > watch;
   watch.is( rig.root->intfMon( et1 ), &seen ).hasNotificationActiveIs( true );
   rig.defaultProfileIs( "named" );
   rig.intfToGroupDir->intfToGroup( et1 )->selectedProfileIs(
      Maintenance::Profile::ProfileType::interfaceProfile,
      { Maintenance::Profile::ProfileType::interfaceProfile, "late" } );
   rig.profileIs( "late", 100, 10, false, 0 );
   rig.intfToGroupDir->intfToGroup( et1 )->selectedProfileIs(
      Maintenance::Profile::ProfileType::interfaceProfile,
      { Maintenance::Profile::ProfileType::interfaceProfile, "base" } );
   rig.profileDel( "late" );
   EXPECT_EQ( ( std::vector< Vel::String >{ "100", "110", "111" } ), seen.order );
}

TEST_F( DrainWatchSmProfiles, aNewDefaultIsHandedOverEvenIfItIsTheSameObject ) {
   monitorBoth();
   const auto before = rig.counters().numIntfMonDefProfileUpdate();
   rig.root->handleDefaultIntfProfile();
   EXPECT_EQ( before + 1, rig.counters().numIntfMonDefProfileUpdate() );
   EXPECT_EQ( "base", held( et1 ) );
}

} // namespace
} // namespace MaintenanceMode
