#include "MaintenancePlugin/TrackerTest.h"

namespace MaintenanceMode {
namespace {

using Maintenance::ProfileChangeCause;
using Maintenance::Profile::ProfileKey;
using Maintenance::Profile::ProfileType;

// ---- the groups of an interface

struct TrackerOfGroups : TrackerTest {
   TrackerOfGroups() { rig.start(); }
   IntfMaintenance::IntfToGroup & entry( const IntfId & intf ) {
      return *rig.intfToGroupDir->intfToGroupIs( intf );
   }
};

TEST_F( TrackerOfGroups, anEntryIsQueuedWhenItComesAndWhenItGoes ) {
   entry( et1 );
   EXPECT_EQ( "et1", backlog() );
   EXPECT_TRUE( tracker().intfToGroup( et1 ) );
   rig.intfToGroupDir->intfToGroupDel( et1 );
   EXPECT_EQ( "et1", backlog() );
   EXPECT_FALSE( tracker().intfToGroup( et1 ) );
}

TEST_F( TrackerOfGroups, anEntryIsTakenInOnce ) {
   entry( et1 );
   backlog();
   ASSERT_TRUE( tracker().intfToGroup( et1 )->initialized() );
   EXPECT_EQ(
      "!initialized()", Vel::failedAssertion( [&] { tracker().intfToGroup( et1 )->handleInitialized(); } ) );
   EXPECT_EQ( 0u, tracker().backlogSize() );
}

TEST_F( TrackerOfGroups, joiningAGroupIsLeftToTheBacklog ) {
   rig.mappingIs( "a", "u1" );
   input( "u1" );
   entry( et1 );
   backlog();
   const Vel::U32 starts = rig.counters().numStartIntfMonInUnits();
   Decisions decisions;
   entry( et1 ).groupIs( PluginRig::group( "a" ) );
   EXPECT_EQ(
      Lines{ "handleIntfToGroupMembershipChange: Interface:et1 added to group:a" }, decisions.lines() );
   EXPECT_EQ( 0u, input( "u1" ).intfs() );
   EXPECT_EQ( starts, rig.counters().numStartIntfMonInUnits() );
   EXPECT_EQ( 1u, tracker().backlogSize() );
   EXPECT_EQ( "et1", backlog() );
}

TEST_F( TrackerOfGroups, leavingOneOfTwoGroupsOfAUnitKeepsTheInterfaceAndLeavingTheOtherRemovesIt ) {
   for ( const char * group : { "a", "b" } ) {
      rig.groupMemberIs( group, et1 );
      rig.mappingIs( group, "u1" );
   }
   rig.settle();
   input( "u1" ).intfIs( et1, true );
   Decisions decisions;
   entry( et1 ).groupDel( PluginRig::group( "a" ) );
   EXPECT_TRUE( input( "u1" ).intf( et1 ) );
   EXPECT_EQ(
      ( Lines{
         "handleIntfToGroupMembershipChange: Interface:et1 removed from group:a",
         "handleIntfToGroupMembershipChange: IntfId:et1. Group:a part of unit:u1 which is undergoing "
         "maintenance. Check if intf is still member of the unit.",
         "isIntfMemberOfUnit: intf:et1 part of unit:u1 through the group:b",
         "removeUnlessMember: intf:et1 is still a member of unit:u1.Not removing the interface from "
         "UnitMonIntfInput of the Unit" } ),
      decisions.lines() );
   decisions.clear();
   entry( et1 ).groupDel( PluginRig::group( "b" ) );
   EXPECT_FALSE( input( "u1" ).intf( et1 ) );
   EXPECT_EQ(
      ( Lines{
         "handleIntfToGroupMembershipChange: Interface:et1 removed from group:b",
         "handleIntfToGroupMembershipChange: IntfId:et1. Group:b part of unit:u1 which is undergoing "
         "maintenance. Check if intf is still member of the unit.",
         "isIntfMemberOfUnit: intf:et1 not part of unit:u1",
         "removeUnlessMember: intf:et1 is no longer a member of unit:u1.Removing the interface from "
         "UnitMonIntfInput of the Unit" } ),
      decisions.lines() );
   // It is done at once, so nothing is left to do.
   EXPECT_EQ( 0u, tracker().backlogSize() );
}

TEST_F( TrackerOfGroups, leavingAGroupRemovesTheInterfaceFromEachOfItsUnitsThatIsInMaintenance ) {
   rig.groupMemberIs( "a", et1 );
   for ( const char * unit : { "u1", "u2", "u3" } )
      rig.mappingIs( "a", unit );
   rig.mappingIs( "b", "u4" );
   for ( const char * unit : { "u1", "u3", "u4" } )
      input( unit ).intfIs( et1, true );
   input( "u1" ).intfIs( et2, true );
   Decisions decisions;
   entry( et1 ).groupDel( PluginRig::group( "a" ) );
   EXPECT_FALSE( input( "u1" ).intf( et1 ) );
   EXPECT_TRUE( input( "u1" ).intf( et2 ) );
   EXPECT_FALSE( input( "u3" ).intf( et1 ) );
   EXPECT_TRUE( input( "u4" ).intf( et1 ) );
   EXPECT_FALSE( rig.root->unitMonIntfInput()->unitIntfInput( "u2" ) );
   EXPECT_EQ(
      ( Lines{
         "handleIntfToGroupMembershipChange: Interface:et1 removed from group:a",
         "handleIntfToGroupMembershipChange: IntfId:et1. Group:a part of unit:u1 which is undergoing "
         "maintenance. Check if intf is still member of the unit.",
         "isIntfMemberOfUnit: intf:et1 not part of unit:u1",
         "removeUnlessMember: intf:et1 is no longer a member of unit:u1.Removing the interface from "
         "UnitMonIntfInput of the Unit",
         "handleIntfToGroupMembershipChange: IntfId:et1. Group:a part of unit:u2 which is not undergoing "
         "maintenance. Nothing to do as part of this unit.",
         "handleIntfToGroupMembershipChange: IntfId:et1. Group:a part of unit:u3 which is undergoing "
         "maintenance. Check if intf is still member of the unit.",
         "isIntfMemberOfUnit: intf:et1 not part of unit:u3",
         "removeUnlessMember: intf:et1 is no longer a member of unit:u3.Removing the interface from "
         "UnitMonIntfInput of the Unit" } ),
      decisions.lines() );
}

TEST_F( TrackerOfGroups, leavingAGroupOfAUnitThatDoesNotHoldTheInterfaceIsOnlyTraced ) {
   rig.groupMemberIs( "a", et1 );
   rig.mappingIs( "a", "u1" );
   input( "u1" ).intfIs( et2, true );
   Decisions decisions;
   entry( et1 ).groupDel( PluginRig::group( "a" ) );
   EXPECT_EQ( 1u, input( "u1" ).intfs() );
   ASSERT_EQ( 4u, decisions.lines().size() );
   EXPECT_EQ(
      "removeUnlessMember: intf:et1 is no longer a member of unit:u1.It has already been removed from "
      "UnitMonIntfInput of the Unit",
      decisions.lines()[3] );
}

TEST_F( TrackerOfGroups, leavingAGroupThatNoUnitHasIsOnlyTraced ) {
   rig.groupMemberIs( "a", et1 );
   rig.settle();
   input( "u1" ).intfIs( et1, true );
   Decisions decisions;
   entry( et1 ).groupDel( PluginRig::group( "a" ) );
   EXPECT_EQ(
      Lines{ "handleIntfToGroupMembershipChange: Interface:et1 removed from group:a" }, decisions.lines() );
   EXPECT_TRUE( input( "u1" ).intf( et1 ) );
   EXPECT_EQ( 0u, tracker().backlogSize() );
}

TEST_F( TrackerOfGroups, aUnitThatKeepsTheInterfaceDoesNotKeepTheOthersFromLosingIt ) {
   rig.groupMemberIs( "a", et1 );
   rig.groupMemberIs( "b", et1 );
   for ( const char * unit : { "u1", "u2" } )
      rig.mappingIs( "a", unit );
   rig.mappingIs( "b", "u1" );
   rig.settle();
   for ( const char * unit : { "u1", "u2" } )
      input( unit ).intfIs( et1, true );
   entry( et1 ).groupDel( PluginRig::group( "a" ) );
   EXPECT_TRUE( input( "u1" ).intf( et1 ) );
   EXPECT_FALSE( input( "u2" ).intf( et1 ) );
}

TEST_F( TrackerOfGroups, unmappingGoesOnBehindAnInterfaceThatStays ) {
   for ( const IntfId & intf : { et1, et2 } )
      rig.groupMemberIs( "a", intf );
   rig.groupMemberIs( "b", et1 );
   for ( const char * group : { "a", "b" } )
      rig.mappingIs( group, "u1" );
   rig.settle();
   for ( const IntfId & intf : { et1, et2 } )
      input( "u1" ).intfIs( intf, true );
   rig.mappingDel( "a", "u1" );
   EXPECT_TRUE( input( "u1" ).intf( et1 ) );
   EXPECT_FALSE( input( "u1" ).intf( et2 ) );
}

// ---- the selected profile

TEST_F( TrackerOfGroups, aSelectionIsQueuedOnlyForThatTypeAndThatCause ) {
   const char * const ignoredType =
      "handleSelectedProfile:   ignoring as profile type is not interfaceProfile";
   const char * const ignoredCause = "handleSelectedProfile:   ignoring as change cause is not selection";
   const struct {
      ProfileType type;
      ProfileChangeCause cause;
      const char * queued;
      const char * trace;
   } rows[] = {
      { ProfileType::interfaceProfile, ProfileChangeCause::selection, "et1",
        "handleSelectedProfile: intf et1, profileChangeCause selection, profileType interfaceProfile, "
        "profile q" },
      { ProfileType::unitProfile, ProfileChangeCause::selection, "", ignoredType },
      { ProfileType::none, ProfileChangeCause::selection, "", ignoredType },
      { ProfileType::interfaceProfile, ProfileChangeCause::membership, "", ignoredCause },
      { ProfileType::interfaceProfile, ProfileChangeCause::none, "", ignoredCause },
      { ProfileType::interfaceProfile, static_cast< ProfileChangeCause >( 3 ), "", ignoredCause },
      // The type is asked for first.
      { ProfileType::unitProfile, ProfileChangeCause::none, "", ignoredType },
   };
   for ( const auto & row : rows ) {
      SCOPED_TRACE( Vel::text( row.type, " ", row.cause ) );
      rig.intfToGroupDir->intfToGroupDel( et1 );
      entry( et1 ).profileChangeCauseIs( row.cause );
      rig.settle();
      Decisions decisions;
      entry( et1 ).selectedProfileIs( row.type, ProfileKey{ row.type, "q" } );
      EXPECT_EQ( Lines{ row.trace }, decisions.lines() );
      EXPECT_EQ( row.queued, backlog() );
   }
}

TEST_F( TrackerOfGroups, aSelectionThatIsTakenBackIsQueued ) {
   rig.selectIs( et1, "p" );
   rig.settle();
   Decisions decisions;
   rig.selectDel( et1 );
   EXPECT_EQ(
      Lines{ "handleSelectedProfile: intf et1, profileChangeCause selection, profileType interfaceProfile, "
             "profile " },
      decisions.lines() );
   EXPECT_EQ( "et1", backlog() );
}

TEST_F( TrackerOfGroups, aCauseWithoutASelectionIsNotQueued ) {
   rig.selectIs( et1, "p" );
   entry( et1 ).profileChangeCauseIs( ProfileChangeCause::none );
   rig.settle();
   entry( et1 ).profileChangeCauseIs( ProfileChangeCause::selection );
   EXPECT_EQ( 0u, tracker().backlogSize() );
}

// ---- the units of a group

TEST_F( TrackerOfGroups, aMappingQueuesEveryInterfaceOfTheGroup ) {
   rig.groupMemberIs( "a", et3 );
   rig.groupMemberIs( "a", et1 );
   rig.groupMemberIs( "b", et2 );
   rig.settle();
   input( "u1" );
   Decisions decisions;
   rig.mappingIs( "a", "u1" );
   EXPECT_EQ( Lines{ "handleGroupToUnitMembershipChange: Group:a added to Unit:u1" }, decisions.lines() );
   EXPECT_EQ( 0u, input( "u1" ).intfs() );
   EXPECT_EQ( "et1 et3", backlog() );
}

TEST_F( TrackerOfGroups, aMappingOfAGroupWithoutInterfacesQueuesNothing ) {
   Decisions decisions;
   rig.mappingIs( "a", "u1" );
   EXPECT_EQ( 0u, tracker().backlogSize() );
   EXPECT_EQ(
      ( Lines{
         "handleGroupToUnitMembershipChange: Group:a added to Unit:u1",
         "handleGroupToUnitMembershipChange: Group ahas no interfaces." } ),
      decisions.lines() );
}

TEST_F( TrackerOfGroups, aMappingOfAGroupOfAnotherTypeQueuesNothing ) {
   rig.groupMemberIs( "a", et1 );
   rig.settle();
   rig.groupToUnitDir->mappingIs( { Maintenance::GroupType::none, "a" }, "u1" );
   EXPECT_EQ( 0u, tracker().backlogSize() );
}

TEST_F( TrackerOfGroups, mappingsThatAreThereAtTheStartAreFollowedFromThen ) {
   rig.groupMemberIs( "a", et1 );
   rig.mappingIs( "a", "u1" );
   rig.stop();
   rig.start();
   input( "u1" ).intfIs( et1, true );
   rig.mappingDel( "a", "u1" );
   EXPECT_EQ( 0u, input( "u1" ).intfs() );
}

TEST_F( TrackerOfGroups, unmappingRemovesTheInterfacesThatDoNotBelongToTheUnitOtherwise ) {
   for ( const IntfId & intf : { et1, et2 } )
      rig.groupMemberIs( "a", intf );
   rig.groupMemberIs( "b", et2 );
   for ( const char * group : { "a", "b" } )
      rig.mappingIs( group, "u1" );
   rig.mappingIs( "a", "u2" );
   rig.settle();
   for ( const char * unit : { "u1", "u2" } )
      for ( const IntfId & intf : { et1, et2 } )
         input( unit ).intfIs( intf, true );
   Decisions decisions;
   rig.mappingDel( "a", "u1" );
   EXPECT_FALSE( input( "u1" ).intf( et1 ) );
   EXPECT_TRUE( input( "u1" ).intf( et2 ) );
   EXPECT_EQ( 2u, input( "u2" ).intfs() );
   EXPECT_EQ( 0u, tracker().backlogSize() );
   EXPECT_EQ(
      ( Lines{
         "handleGroupToUnitMembershipChange: Group:a removed from Unit:u1",
         "isIntfMemberOfUnit: intf:et1 not part of unit:u1",
         "removeUnlessMember: intf:et1 is no longer a member of unit:u1.Removing the interface from "
         "UnitMonIntfInput of the Unit",
         "isIntfMemberOfUnit: intf:et2 part of unit:u1 through the group:b",
         "removeUnlessMember: intf:et2 is still a member of unit:u1.Not removing the interface from "
         "UnitMonIntfInput of the Unit" } ),
      decisions.lines() );
}

TEST_F( TrackerOfGroups, unmappingFromAUnitThatIsNotInMaintenanceIsOnlyTraced ) {
   rig.groupMemberIs( "a", et1 );
   rig.mappingIs( "a", "u1" );
   rig.settle();
   Decisions decisions;
   rig.mappingDel( "a", "u1" );
   EXPECT_EQ(
      ( Lines{
         "handleGroupToUnitMembershipChange: Group:a removed from Unit:u1",
         "handleGroupToUnitMembershipChange: Group:a.Unit u1 was not 'entering or under maintenance'." } ),
      decisions.lines() );
   EXPECT_EQ( 0u, tracker().backlogSize() );
   EXPECT_EQ( 0u, rig.root->unitMonIntfInput()->unitIntfInputs() );
}

TEST_F( TrackerOfGroups, unmappingAGroupWithoutInterfacesIsOnlyTraced ) {
   rig.mappingIs( "a", "u1" );
   input( "u1" ).intfIs( et1, true );
   Decisions decisions;
   rig.mappingDel( "a", "u1" );
   EXPECT_TRUE( input( "u1" ).intf( et1 ) );
   EXPECT_EQ(
      ( Lines{
         "handleGroupToUnitMembershipChange: Group:a removed from Unit:u1",
         "handleGroupToUnitMembershipChange: Group has no interfaces. Nothing to remove" } ),
      decisions.lines() );
}

TEST_F( TrackerOfGroups, whatRemovesNothingRemovesNothingUntracedToo ) {
   rig.mappingIs( "a", "u1" );
   rig.mappingIs( "a", "u2" );
   rig.mappingIs( "empty", "u1" );
   rig.groupMemberIs( "a", et1 );
   input( "u1" ).intfIs( et2, true );
   rig.mappingDel( "empty", "u1" );
   entry( et1 ).groupDel( PluginRig::group( "a" ) );
   EXPECT_EQ( 1u, input( "u1" ).intfs() );
   EXPECT_TRUE( input( "u1" ).intf( et2 ) );
   EXPECT_FALSE( rig.root->unitMonIntfInput()->unitIntfInput( "u2" ) );
}

TEST_F( TrackerOfGroups, anEntryThatWasNeverThereGoesWithoutAWord ) {
   rig.settle();
   tracker().handleIntfToGroup( PluginRig::port( "et9" ) );
   tracker().handleGroupToUnit( PluginRig::group( "none" ) );
   EXPECT_EQ( 0u, tracker().backlogSize() );
}

TEST_F( TrackerOfGroups, unmappingAsksForTheUnitBeforeItAsksForTheGroupsInterfaces ) {
   rig.mappingIs( "a", "u1" );
   Decisions decisions;
   rig.mappingDel( "a", "u1" );
   EXPECT_EQ(
      ( Lines{
         "handleGroupToUnitMembershipChange: Group:a removed from Unit:u1",
         "handleGroupToUnitMembershipChange: Group:a.Unit u1 was not 'entering or under maintenance'." } ),
      decisions.lines() );
}

TEST_F( TrackerOfGroups, unmappingKnowsOnlyTheInterfacesThatTheGroupHasNow ) {
   rig.groupMemberIs( "a", et1 );
   rig.mappingIs( "a", "u1" );
   rig.settle();
   input( "u1" ).intfIs( et1, true );
   input( "u1" ).intfIs( et2, true );
   rig.mappingDel( "a", "u1" );
   EXPECT_FALSE( input( "u1" ).intf( et1 ) );
   EXPECT_TRUE( input( "u1" ).intf( et2 ) );
}

TEST_F( TrackerOfGroups, aGroupIsWatchedWhileItIsThere ) {
   rig.mappingIs( "a", "u1" );
   EXPECT_TRUE( tracker().groupToUnit( PluginRig::group( "a" ) ) );
   rig.groupToUnitDir->groupToUnitDel( PluginRig::group( "a" ) );
   EXPECT_FALSE( tracker().groupToUnit( PluginRig::group( "a" ) ) );
}

/// A unit in maintenance that monitors et1.
struct TrackerOfMonitored : TrackerOfGroups {
   TrackerOfMonitored() {
      rig.profileIs( "p", 100, 10, false, 0 );
      rig.defaultProfileIs( "p" );
      rig.linkIs( et1 );
      rig.trafficIs( et1, { 1e9, 1e9 } );
      rig.unitIs( "u1", { et1 } );
      rig.enter( "u1" );
      rig.settle();
   }
   void SetUp() override { ASSERT_TRUE( rig.root->intfMon( et1 ) ); }
};

TEST_F( TrackerOfMonitored, removalStopsTheMonitorInTheSameEvent ) {
   rig.mappingDel( "u1", "u1" );
   EXPECT_FALSE( rig.root->intfMon( et1 ) );
}

TEST_F( TrackerOfMonitored, removalGoesOnWhenSomebodyEndsTheUnitMeanwhile ) {
   rig.linkIs( et2, false );
   rig.groupMemberIs( "u1", et2 );
   rig.settle();
   struct Ender {
      struct VelStatus final : Vel::ReactorTo< Ender, Stage::AgentStatus > {
         using ReactorTo::ReactorTo;
         void onComplete( const Stage::AgentStatusKey & ) override {
            sm()->rig.unitStatusDir->statusDel( "u1" );
         }
      };
      PluginRig & rig;
      Vel::Watch< VelStatus > watch;
   } ender{ rig, {} };
   ender.watch.is( rig.enterClass.agentStatus, &ender ).hasNotificationActiveIs( true );
   rig.mappingDel( "u1", "u1" );
   EXPECT_FALSE( rig.root->unitMonIntfInput()->unitIntfInput( "u1" ) );
   EXPECT_FALSE( rig.root->intfMon( et1 ) );
}

TEST_F( TrackerOfMonitored, removalIsToldWhenTheMonitorHasStopped ) {
   const Vel::TraceCapture all;
   entry( et1 ).groupDel( PluginRig::group( "u1" ) );
   EXPECT_FALSE( rig.root->intfMon( et1 ) );
   Lines order;
   for ( const auto & line : all.lines() )
      for ( const char * step :
            { "isIntfMemberOfUnit: ", "stopIntfMon: deleting intf monitor ", "removeUnlessMember: " } )
         if ( line.text.starts_with( step ) )
            order.push_back( step );
   EXPECT_EQ(
      ( Lines{ "isIntfMemberOfUnit: ", "stopIntfMon: deleting intf monitor ", "removeUnlessMember: " } ),
      order );
}

TEST_F( TrackerOfMonitored, anEntryThatGoesStopsTheMonitorThroughTheBacklogOnly ) {
   rig.intfToGroupDir->intfToGroupDel( et1 );
   EXPECT_TRUE( rig.root->intfMon( et1 ) );
   EXPECT_EQ( "et1", backlog() );
   EXPECT_FALSE( rig.root->intfMon( et1 ) );
}

} // namespace
} // namespace MaintenanceMode
