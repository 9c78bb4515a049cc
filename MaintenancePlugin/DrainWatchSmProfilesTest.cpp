#include "MaintenancePlugin/PluginRig.h"
#include "MaintenancePlugin/Recorded.h"
#include "Platform/Vel/FailedAssertion.h"

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
   /// What the three look-ups give: "named named -": name, profile ("null": none), whether it is the default.
   Vel::String resolved( const Wire::IntfId & intf ) {
      const auto profile = rig.root->getIntfProfile( intf );
      return Vel::text(
         rig.root->getIntfProfileName( intf ), " ", profile ? profile->name() : "null", " ",
         rig.root->usingDefaultProfile( intf ) ? "default" : "-" );
   }
};

/// The root's traces and, between them, the profiles that monitors are given and what is counted for that.
struct ProfileSequence : Sequence {
   explicit ProfileSequence( const DrainWatchSm & root ) {
      counters_.is( root.counters(), this ).hasNotificationActiveIs( true );
      for ( const auto & [intf, intfMonSm] : root.intfMonRange() )
         intfMons_.add( intfMonSm, this );
   }
   struct VelCounters final : Vel::ReactorTo< ProfileSequence, DrainWatchSmDebugCounters > {
      using ReactorTo::ReactorTo;
      void onNumIntfMonProfileChange() override { sm()->note( "numIntfMonProfileChange" ); }
      void onNumIntfMonProfileDelete() override { sm()->note( "numIntfMonProfileDelete" ); }
      void onNumIntfMonPendingProfileResolved() override { sm()->note( "numIntfMonPendingProfileResolved" ); }
      void onNumIntfMonDefProfileUpdate() override { sm()->note( "numIntfMonDefProfileUpdate" ); }
   };
   struct VelIntfMon final : Vel::ReactorTo< ProfileSequence, IntfMonSm > {
      using ReactorTo::ReactorTo;
      void onIntfProfile() override {
         const auto & profile = entity()->intfProfile();
         sm()->note( entity()->intf(), " given ", profile ? profile->name() : "null" );
      }
   };
   Vel::Watch< VelCounters > counters_;
   Watches< VelIntfMon > intfMons_;
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
   EXPECT_EQ( "base base default", resolved( et1 ) );
   EXPECT_EQ( rig.intfProfileStatusDir->status( "base" ), rig.root->getIntfProfile( et1 ).get() );
   rig.defaultProfileIs( "named" );
   EXPECT_EQ( "named named default", resolved( et1 ) );
   EXPECT_EQ( rig.intfProfileStatusDir->status( "named" ), rig.root->getIntfProfile( et1 ).get() );
}

TEST_F( DrainWatchSmProfiles, aDefaultThatDoesNotExistHasANameAndNoProfile ) {
   rig.selectIs( et1, "#DEFAULTPROFILE" );
   rig.defaultProfileIs( "missing" );
   rig.start();
   EXPECT_EQ( "missing null default", resolved( et1 ) );
}

TEST_F( DrainWatchSmProfiles, aSelectedProfileThatDoesNotExistHasANameOnly ) {
   rig.selectIs( et1, "missing" );
   rig.start();
   EXPECT_EQ( "missing null -", resolved( et1 ) );
}

TEST_F( DrainWatchSmProfiles, theProfileOfAnInterfaceIsTracedByItsNameOrADash ) {
   rig.selectIs( et1, "#DEFAULTPROFILE" );
   rig.selectIs( et2, "missing" );
   rig.start();
   Sequence sequence;
   rig.root->getIntfProfile( et1 );
   rig.root->getIntfProfile( et2 );
   EXPECT_EQ(
      ( Lines{ "getIntfProfile: intf et1, profile base", "getIntfProfile: intf et2, profile -" } ),
      sequence.lines() );
}

TEST_F( DrainWatchSmProfiles, anInterfaceInNoGroupHasNoProfile ) {
   // A profile without a name is nobody's.
   rig.profileIs( "", 100, 10, false, 0 );
   rig.start();
   EXPECT_EQ( " null -", resolved( stranger ) );
}

TEST_F( DrainWatchSmProfiles, anInterfaceWithoutASelectionHasNoProfile ) {
   rig.profileIs( "", 100, 10, false, 0 );
   rig.groupMemberIs( "g", et1 );
   rig.selectDel( et1 );
   rig.start();
   EXPECT_EQ( " null -", resolved( et1 ) );
}

TEST_F( DrainWatchSmProfiles, aSelectionOfAnotherTypeIsNoSelection ) {
   using Maintenance::Profile::ProfileType;
   for ( const char * name : { "named", "#DEFAULTPROFILE" } ) {
      SCOPED_TRACE( name );
      rig.intfToGroupDir->intfToGroupIs( et1 )->selectedProfileIs(
         ProfileType::unitProfile, { ProfileType::unitProfile, name } );
      rig.start();
      EXPECT_EQ( " null -", resolved( et1 ) );
   }
}

TEST_F( DrainWatchSmProfiles, withoutTheDirectoryOfGroupsNoInterfaceHasAProfile ) {
   rig.profileIs( "", 100, 10, false, 0 );
   rig.selectIs( et1, "named" );
   rig.intfToGroupDir = nullptr;
   rig.start();
   EXPECT_EQ( " null -", resolved( et1 ) );
}

TEST_F( DrainWatchSmProfiles, aProfileOfTheDefaultsNameIsNotTheDefault ) {
   rig.selectIs( et1, "base" );
   rig.start();
   EXPECT_EQ( "base base -", resolved( et1 ) );
}

TEST_F( DrainWatchSmProfiles, withoutADefaultTheReservedNameStandsForNothing ) {
   rig.selectIs( et1, "#DEFAULTPROFILE" );
   rig.start();
   rig.root->defaultIntfProfileDel();
   EXPECT_EQ( " null default", resolved( et1 ) );
}

TEST_F( DrainWatchSmProfiles, withoutProfilesThereIsNone ) {
   rig.selectIs( et1, "named" );
   rig.start();
   rig.root->intfProfileStatusDirDel();
   EXPECT_EQ( "named null -", resolved( et1 ) );
}

// ---- profiles that come

/// Selected before it exists: until it comes the monitor goes on with the earlier one.
TEST_F( DrainWatchSmProfiles, aProfileThatComesReachesTheMonitorsThatWaitedForIt ) {
   monitorBoth();
   rig.selectIs( et2, "late" );
   ASSERT_EQ( "named", held( et2 ) );
   const CounterChanges changes( rig.counters() );
   ProfileSequence sequence( *rig.root );
   rig.profileIs( "late", 100, 10, false, 0 );
   EXPECT_EQ(
      ( Lines{
         "handleIntfProfileStatus: [add] intf profile late", "numIntfMonPendingProfileResolved",
         "getIntfProfile: intf et2, profile late", "et2 given late", "numIntfMonProfileChange" } ),
      sequence.lines() );
   EXPECT_EQ( Lines{ "handleIntfProfileStatus: [add] intf profile late" }, sequence.logged() );
   EXPECT_EQ( "numIntfMonProfileChange 1, numIntfMonPendingProfileResolved 1", changes.text() );
   EXPECT_EQ( "base", held( et1 ) );
   EXPECT_EQ( rig.intfProfileStatusDir->status( "late" ), rig.root->intfMon( et2 )->intfProfile().get() );
}

TEST_F( DrainWatchSmProfiles, monitorsAreVisitedInTheOrderOfTheirCollection ) {
   rig.unitIs( "u1", { et2, et1 } );
   rig.start();
   rig.enter( "u1" );
   for ( const auto & intf : { et1, et2 } )
      rig.selectIs( intf, "late" );
   Lines inOrder;
   for ( const auto & [intf, intfMonSm] : rig.root->intfMonRange() )
      inOrder.push_back( Vel::text( intf, " given late" ) );
   ASSERT_EQ( ( Lines{ "et2 given late", "et1 given late" } ), inOrder );
   ProfileSequence sequence( *rig.root );
   rig.profileIs( "late", 100, 10, false, 0 );
   Lines given;
   for ( const auto & line : sequence.lines() )
      if ( line.find( " given " ) != Vel::String::npos )
         given.push_back( line );
   EXPECT_EQ( inOrder, given );
   EXPECT_EQ( 2u, rig.counters().numIntfMonPendingProfileResolved() );
}

/// A new default may name a profile that is still to come.
TEST_F( DrainWatchSmProfiles, aProfileThatComesIsTakenForItsResolvedName ) {
   rig.selectIs( et1, "named" );
   monitorBoth();
   rig.defaultProfileIs( "late" );
   rig.selectIs( et1, "#DEFAULTPROFILE" );
   rig.profileIs( "late", 100, 10, false, 0 );
   EXPECT_EQ( "late", held( et1 ) );
   EXPECT_EQ( "named", held( et2 ) );
   EXPECT_EQ( 1u, rig.counters().numIntfMonPendingProfileResolved() );
}

TEST_F( DrainWatchSmProfiles, aMonitorOnTheProfileThatComesIsLeftAlone ) {
   monitorBoth();
   const CounterChanges changes( rig.counters() );
   ProfileSequence sequence( *rig.root );
   rig.root->handleIntfProfileStatus( "named" );
   rig.root->handleIntfProfileStatus( "base" );
   EXPECT_EQ(
      ( Lines{
         "handleIntfProfileStatus: [add] intf profile named",
         "handleIntfProfileStatus: [add] intf profile base" } ),
      sequence.lines() );
   EXPECT_EQ( "", changes.text() );
}

/// It is bound to the new object when that is selected again.
TEST_F( DrainWatchSmProfiles, aProfileThatComesLeavesMonitorsOfAnObjectOfItsNameAlone ) {
   monitorBoth();
   const auto old = rig.root->intfMon( et2 )->intfProfile();
   rig.profileDel( "named" );
   const CounterChanges changes( rig.counters() );
   rig.profileIs( "named", 1, 1, false, 0 );
   EXPECT_EQ( old, rig.root->intfMon( et2 )->intfProfile() );
   EXPECT_EQ( "", changes.text() );
}

TEST_F( DrainWatchSmProfiles, aProfileThatNobodySelectsReachesNobody ) {
   monitorBoth();
   const CounterChanges changes( rig.counters() );
   ProfileSequence sequence( *rig.root );
   rig.profileIs( "unused", 100, 10, false, 0 );
   EXPECT_EQ( Lines{ "handleIntfProfileStatus: [add] intf profile unused" }, sequence.lines() );
   EXPECT_EQ( "", changes.text() );
}

TEST_F( DrainWatchSmProfiles, aMonitorWithoutAProfileIsFatalWhenAnyProfileComesOrGoes ) {
   monitorBoth();
   rig.defaultProfileIs( "missing" );
   ASSERT_EQ( "null", held( et1 ) );
   const char * const condition = "intfMonSm->intfProfile()";
   EXPECT_EQ( condition, Vel::failedAssertion( [&] { rig.profileIs( "any", 100, 10, false, 0 ); } ) );
   EXPECT_EQ( condition, Vel::failedAssertion( [&] { rig.profileDel( "any" ); } ) );
   EXPECT_EQ( condition, Vel::failedAssertion( [&] { rig.profileIs( "missing", 100, 10, false, 0 ); } ) );
   rig.defaultProfileIs( "base" );
}

// ---- profiles that go

TEST_F( DrainWatchSmProfiles, aProfileThatGoesIsKeptByTheMonitorsThatHaveNoOther ) {
   rig.profileIs( "named", 0.5, 7, false, 3 );
   monitorBoth();
   const auto old = rig.root->intfMon( et2 )->intfProfile();
   const CounterChanges changes( rig.counters() );
   ProfileSequence sequence( *rig.root );
   rig.profileDel( "named" );
   EXPECT_EQ(
      ( Lines{
         "handleIntfProfileStatus: [delete] intf profile named", "numIntfMonProfileDelete",
         "getIntfProfile: intf et2, profile -" } ),
      sequence.lines() );
   EXPECT_EQ( Lines{ "handleIntfProfileStatus: [delete] intf profile named" }, sequence.logged() );
   EXPECT_EQ( "numIntfMonProfileDelete 1", changes.text() );
   EXPECT_EQ( old, rig.root->intfMon( et2 )->intfProfile() );
   EXPECT_EQ( 0.5, old->drainWatchThresholdInKbps() );
   EXPECT_EQ( 7u, old->drainWatchLoadInterval() );
   EXPECT_EQ( 3.0, old->shutdownMaxDelay() );
}

TEST_F( DrainWatchSmProfiles, aProfileThatGoesIsCountedForEachMonitorThatHoldsIt ) {
   rig.unitIs( "u1", { et1, et2 } );
   for ( const auto & intf : { et1, et2 } )
      rig.selectIs( intf, "named" );
   rig.start();
   rig.enter( "u1" );
   const CounterChanges changes( rig.counters() );
   rig.profileDel( "named" );
   EXPECT_EQ( "numIntfMonProfileDelete 2", changes.text() );
}

TEST_F( DrainWatchSmProfiles, aProfileThatGoesIsReplacedWhereAnotherIsSelected ) {
   monitorBoth();
   rig.selectIs( et2, "base" );
   ASSERT_EQ( "named", held( et2 ) );
   const CounterChanges changes( rig.counters() );
   ProfileSequence sequence( *rig.root );
   rig.profileDel( "named" );
   EXPECT_EQ(
      ( Lines{
         "handleIntfProfileStatus: [delete] intf profile named", "numIntfMonProfileDelete",
         "getIntfProfile: intf et2, profile base", "et2 given base", "numIntfMonProfileChange" } ),
      sequence.lines() );
   EXPECT_EQ( "numIntfMonProfileChange 1, numIntfMonProfileDelete 1", changes.text() );
}

TEST_F( DrainWatchSmProfiles, aProfileThatGoesLeavesMonitorsOfOthersAlone ) {
   rig.profileIs( "unused", 100, 10, false, 0 );
   monitorBoth();
   // Selected, but not held.
   rig.selectIs( et1, "unused" );
   const CounterChanges changes( rig.counters() );
   ProfileSequence sequence( *rig.root );
   rig.profileDel( "unused" );
   EXPECT_EQ( Lines{ "handleIntfProfileStatus: [delete] intf profile unused" }, sequence.lines() );
   EXPECT_EQ( "", changes.text() );
   EXPECT_EQ( "base", held( et1 ) );
   EXPECT_EQ( "named", held( et2 ) );
}

// ---- the default

/// et2 selects the same profile by its own name.
TEST_F( DrainWatchSmProfiles, aNewDefaultReachesOnlyThoseThatSelectItByTheReservedName ) {
   rig.profileIs( "base2", 100, 10, false, 0 );
   monitorBoth();
   rig.selectIs( et2, "base" );
   rig.settle();
   ASSERT_EQ( "base", held( et2 ) );
   const CounterChanges changes( rig.counters() );
   ProfileSequence sequence( *rig.root );
   rig.defaultProfileIs( "base2" );
   EXPECT_EQ(
      ( Lines{
         "handleDefaultIntfProfile: default intf profile base2", "numIntfMonDefProfileUpdate",
         "getIntfProfile: intf et1, profile base2", "et1 given base2", "numIntfMonProfileChange" } ),
      sequence.lines() );
   EXPECT_EQ( Lines{ "default intf profile base2" }, sequence.logged() );
   EXPECT_EQ( "numIntfMonProfileChange 1, numIntfMonDefProfileUpdate 1", changes.text() );
   EXPECT_EQ( "base", held( et2 ) );
}

TEST_F( DrainWatchSmProfiles, aDefaultThatDoesNotExistIsHandedOverAsNone ) {
   monitorBoth();
   const CounterChanges changes( rig.counters() );
   ProfileSequence sequence( *rig.root );
   rig.defaultProfileIs( "missing" );
   EXPECT_EQ(
      ( Lines{
         "handleDefaultIntfProfile: default intf profile missing", "numIntfMonDefProfileUpdate",
         "getIntfProfile: intf et1, profile -", "et1 given null" } ),
      sequence.lines() );
   EXPECT_EQ( "numIntfMonDefProfileUpdate 1", changes.text() );
   rig.defaultProfileIs( "base" );
   EXPECT_EQ( "base", held( et1 ) );
}

TEST_F( DrainWatchSmProfiles, aNewDefaultIsHandedOverEvenIfItIsTheSameObject ) {
   monitorBoth();
   const CounterChanges changes( rig.counters() );
   ProfileSequence sequence( *rig.root );
   rig.root->handleDefaultIntfProfile();
   EXPECT_EQ(
      ( Lines{
         "handleDefaultIntfProfile: default intf profile base", "numIntfMonDefProfileUpdate",
         "getIntfProfile: intf et1, profile base" } ),
      sequence.lines() );
   EXPECT_EQ( "numIntfMonDefProfileUpdate 1", changes.text() );
   EXPECT_EQ( "base", held( et1 ) );
}

TEST_F( DrainWatchSmProfiles, aDefaultThatIsTakenAwayHasNoName ) {
   monitorBoth();
   ProfileSequence sequence( *rig.root );
   rig.root->defaultIntfProfileDel();
   rig.root->handleDefaultIntfProfile();
   EXPECT_EQ(
      ( Lines{
         "handleDefaultIntfProfile: default intf profile ", "numIntfMonDefProfileUpdate",
         "getIntfProfile: intf et1, profile -", "et1 given null" } ),
      sequence.lines() );
   EXPECT_EQ( Lines{ "default intf profile " }, sequence.logged() );
}

// ---- values

/// Read afresh whenever they are used; only whether to shut is acted on at once, by the monitor.
TEST_F( DrainWatchSmProfiles, otherValuesOfAProfileInUseAreTakenAtTheNextSample ) {
   monitorBoth();
   auto & profile = *rig.intfProfileStatusDir->status( "base" );
   rig.advance( 7 );
   const CounterChanges changes( rig.counters() );
   {
      Vel::TraceCapture traces;
      profile.drainWatchThresholdInKbpsIs( 2e6 );
      profile.drainWatchLoadIntervalIs( 5 );
      profile.shutdownMaxDelayIs( 60 );
      EXPECT_TRUE( traces.lines().empty() );
   }
   EXPECT_EQ( "", changes.text() );
   EXPECT_EQ( Maintenance::monIntfStateEnterMaint, rig.root->intfMon( et1 )->state() );
   rig.advance( 2 );
   EXPECT_EQ( Maintenance::monIntfStateEnterMaint, rig.root->intfMon( et1 )->state() );
   rig.advance( 1 );
   EXPECT_EQ( Maintenance::monIntfStateUnderMaint, rig.root->intfMon( et1 )->state() );
   EXPECT_EQ( Maintenance::monIntfStateEnterMaint, rig.root->intfMon( et2 )->state() );
}

} // namespace
} // namespace MaintenanceMode
