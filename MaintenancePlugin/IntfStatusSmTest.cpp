#include "MaintenancePlugin/TrackerTest.h"

namespace MaintenanceMode {
namespace {

using Maintenance::ProfileChangeCause;
using Maintenance::Profile::ProfileKey;
using Maintenance::Profile::ProfileType;

// ---- who is a member of a unit

struct UnitMembership : TrackerTest {
   bool member( const IntfId & intf, const Vel::String & unitName ) {
      return isIntfMemberOfUnit( intf, unitName, rig.intfToGroupDir, rig.groupToUnitDir );
   }
};

TEST_F( UnitMembership, isThatOfAnyGroupOfTheInterface ) {
   rig.groupMemberIs( "a", et1 );
   rig.groupMemberIs( "b", et1 );
   rig.groupMemberIs( "c", et2 );
   rig.mappingIs( "b", "u1" );
   rig.mappingIs( "c", "u1" );
   rig.mappingIs( "c", "u2" );
   EXPECT_TRUE( member( et1, "u1" ) );
   EXPECT_FALSE( member( et1, "u2" ) );
   EXPECT_TRUE( member( et2, "u1" ) );
   EXPECT_TRUE( member( et2, "u2" ) );
   EXPECT_FALSE( member( et2, "u3" ) );
   EXPECT_FALSE( member( et3, "u1" ) );
}

TEST_F( UnitMembership, needsNeitherAProfileNorALink ) {
   rig.intfToGroupDir->intfToGroupIs( et1 )->groupIs( PluginRig::group( "a" ) );
   rig.mappingIs( "a", "u1" );
   EXPECT_TRUE( member( et1, "u1" ) );
}

TEST_F( UnitMembership, isDecidedByTheFirstGroupThatIsMappedToTheUnit ) {
   for ( const char * group : { "a", "b", "c" } )
      rig.groupMemberIs( group, et1 );
   rig.mappingIs( "b", "u1" );
   rig.mappingIs( "c", "u1" );
   Vel::TraceCapture traces;
   member( et1, "u1" );
   ASSERT_EQ( 1u, traces.lines().size() );
   EXPECT_EQ( "isIntfMemberOfUnit: intf:et1 part of unit:u1 through the group:b", traces.lines()[0].text );
   traces.clear();
   member( et1, "u2" );
   ASSERT_EQ( 1u, traces.lines().size() );
   EXPECT_EQ( "isIntfMemberOfUnit: intf:et1 not part of unit:u2", traces.lines()[0].text );
}

TEST_F( UnitMembership, goesByTheGroupsTypeToo ) {
   rig.intfToGroupDir->intfToGroupIs( et1 )->groupIs( { Maintenance::GroupType::none, "a" } );
   rig.mappingIs( "a", "u1" );
   EXPECT_FALSE( member( et1, "u1" ) );
}

TEST_F( UnitMembership, needsTheGroupsOfInterfacesToBeKnown ) {
   rig.groupMemberIs( "a", et1 );
   EXPECT_EQ( "intfToGroupDir", Vel::failedAssertion( [&] {
                 isIntfMemberOfUnit( et1, "u1", nullptr, rig.groupToUnitDir );
              } ) );
   EXPECT_FALSE( isIntfMemberOfUnit( et1, "u1", rig.intfToGroupDir, nullptr ) );
}

// ---- the status of an interface

struct TrackerOfStatus : TrackerTest {};

TEST_F( TrackerOfStatus, whatIsThereAtTheStartIsQueued ) {
   rig.linkIs( et1 );
   rig.linkIs( et2, false );
   rig.selectIs( et3, "p" );
   rig.selectIs( et2, "p" );
   Vel::TraceCapture traces;
   rig.start();
   EXPECT_EQ( "et1 et2 et3", processed( traces ) );
   EXPECT_TRUE( traces.has( "handleInitialized: intf et1", 5 ) );
   EXPECT_TRUE( tracker().intfToGroup( et3 )->initialized() );
}

TEST_F( TrackerOfStatus, everyChangeIsQueuedWhateverTheMembership ) {
   rig.start();
   const struct {
      const char * what;
      std::function< void() > change;
      const char * trace;
   } rows[] = {
      { "appears", [&] { rig.linkIs( et1 ); }, "handleInitialized: intf et1" },
      { "goes down", [&] { rig.linkIs( et1, false ); }, "handleIntfOperStatus: intf et1" },
      { "any other status",
        [&] { rig.allIntfStatusDir->intfStatus( et1 )->operStatusIs( Interface::operUnknown ); },
        "handleIntfOperStatus: intf et1" },
      { "is replaced",
        [&] { rig.allIntfStatusDir->intfStatusPut( et1, Vel::make< Interface::IntfStatus >( et1 ) ); },
        "handleIntfStatusDel: intf et1" },
      { "goes", [&] { rig.linkDel( et1 ); }, "handleIntfStatusDel: intf et1" },
   };
   for ( const auto & row : rows ) {
      SCOPED_TRACE( row.what );
      Vel::TraceCapture traces;
      row.change();
      EXPECT_TRUE( traces.has( row.trace, 5 ) );
      EXPECT_EQ( "et1", backlog() );
   }
}

TEST_F( TrackerOfStatus, theSameStatusAgainIsNoChange ) {
   rig.linkIs( et1 );
   rig.start();
   rig.linkIs( et1 );
   EXPECT_EQ( 0u, tracker().backlogSize() );
}

TEST_F( TrackerOfStatus, isWatchedWhileItIsThere ) {
   rig.start();
   rig.linkIs( et1 );
   const Vel::Ptr< Interface::IntfStatus > old = rig.allIntfStatusDir->intfStatus( et1 );
   EXPECT_EQ( old.get(), tracker().intfStatus( et1 )->entity() );
   const auto replacement = Vel::make< Interface::IntfStatus >( et1 );
   rig.allIntfStatusDir->intfStatusPut( et1, replacement );
   EXPECT_EQ( replacement.get(), tracker().intfStatus( et1 )->entity() );
   rig.settle();
   old->operStatusIs( Interface::operDown );
   EXPECT_EQ( 0u, tracker().backlogSize() );
   rig.linkDel( et1 );
   EXPECT_FALSE( tracker().intfStatus( et1 ) );
}

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
   EXPECT_EQ(
      "!initialized()", Vel::failedAssertion( [&] { tracker().intfToGroup( et1 )->handleInitialized(); } ) );
}

TEST_F( TrackerOfGroups, joiningAGroupIsLeftToTheBacklog ) {
   rig.mappingIs( "a", "u1" );
   input( "u1" );
   entry( et1 );
   backlog();
   Vel::TraceCapture traces;
   entry( et1 ).groupIs( PluginRig::group( "a" ) );
   EXPECT_TRUE( traces.has( "handleIntfToGroupMembershipChange: Interface:et1 added to group:a", 4 ) );
   EXPECT_EQ( 0u, input( "u1" ).intfs() );
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
   Vel::TraceCapture traces;
   entry( et1 ).groupDel( PluginRig::group( "a" ) );
   EXPECT_TRUE( input( "u1" ).intf( et1 ) );
   const char * const underMaintenance =
      "handleIntfToGroupMembershipChange: IntfId:et1. Group:a part of unit:u1 which is undergoing "
      "maintenance. Check if intf is still member of the unit.";
   EXPECT_TRUE( traces.has( "handleIntfToGroupMembershipChange: Interface:et1 removed from group:a", 4 ) );
   EXPECT_TRUE( traces.has( underMaintenance, 4 ) );
   EXPECT_TRUE( traces.has(
      "intf:et1 is still a member of unit:u1.Not removing the interface from UnitMonIntfInput of the Unit",
      4 ) );
   traces.clear();
   entry( et1 ).groupDel( PluginRig::group( "b" ) );
   EXPECT_FALSE( input( "u1" ).intf( et1 ) );
   EXPECT_TRUE( traces.has(
      "intf:et1 is no longer a member of unit:u1.Removing the interface from UnitMonIntfInput of the Unit",
      4 ) );
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
   Vel::TraceCapture traces;
   entry( et1 ).groupDel( PluginRig::group( "a" ) );
   EXPECT_FALSE( input( "u1" ).intf( et1 ) );
   EXPECT_TRUE( input( "u1" ).intf( et2 ) );
   EXPECT_FALSE( input( "u3" ).intf( et1 ) );
   EXPECT_TRUE( input( "u4" ).intf( et1 ) );
   EXPECT_FALSE( rig.root->unitMonIntfInput()->unitIntfInput( "u2" ) );
   EXPECT_TRUE( traces.has(
      "IntfId:et1. Group:a part of unit:u2 which is not undergoing maintenance. Nothing to do as part of "
      "this unit.",
      4 ) );
}

TEST_F( TrackerOfGroups, leavingAGroupOfAUnitThatDoesNotHoldTheInterfaceIsOnlyTraced ) {
   rig.groupMemberIs( "a", et1 );
   rig.mappingIs( "a", "u1" );
   input( "u1" ).intfIs( et2, true );
   Vel::TraceCapture traces;
   entry( et1 ).groupDel( PluginRig::group( "a" ) );
   EXPECT_TRUE( input( "u1" ).intf( et2 ) );
   EXPECT_TRUE( traces.has(
      "intf:et1 is no longer a member of unit:u1.It has already been removed from UnitMonIntfInput of the "
      "Unit",
      4 ) );
}

TEST_F( TrackerOfGroups, leavingAGroupThatNoUnitHasIsOnlyTraced ) {
   rig.groupMemberIs( "a", et1 );
   rig.settle();
   Vel::TraceCapture traces;
   entry( et1 ).groupDel( PluginRig::group( "a" ) );
   EXPECT_EQ( 1u, traces.lines().size() );
   EXPECT_EQ( 0u, tracker().backlogSize() );
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
        "profile "
        "q" },
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
      Vel::TraceCapture traces;
      entry( et1 ).selectedProfileIs( row.type, ProfileKey{ row.type, "q" } );
      EXPECT_EQ( 1u, traces.count( "handleSelectedProfile: ", 4 ) );
      EXPECT_TRUE( traces.has( row.trace, 4 ) );
      EXPECT_EQ( row.queued, backlog() );
   }
}

TEST_F( TrackerOfGroups, aSelectionThatIsTakenBackIsQueued ) {
   rig.selectIs( et1, "p" );
   rig.settle();
   rig.selectDel( et1 );
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
   Vel::TraceCapture traces;
   rig.mappingIs( "a", "u1" );
   EXPECT_TRUE( traces.has( "handleGroupToUnitMembershipChange: Group:a added to Unit:u1", 4 ) );
   EXPECT_EQ( "et1 et3", backlog() );
}

TEST_F( TrackerOfGroups, aMappingOfAGroupWithoutInterfacesQueuesNothing ) {
   Vel::TraceCapture traces;
   rig.mappingIs( "a", "u1" );
   EXPECT_EQ( 0u, tracker().backlogSize() );
   EXPECT_TRUE( traces.has( "handleGroupToUnitMembershipChange: Group ahas no interfaces.", 4 ) );
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
   Vel::TraceCapture traces;
   rig.mappingDel( "a", "u1" );
   EXPECT_FALSE( input( "u1" ).intf( et1 ) );
   EXPECT_TRUE( input( "u1" ).intf( et2 ) );
   EXPECT_EQ( 2u, input( "u2" ).intfs() );
   EXPECT_EQ( 0u, tracker().backlogSize() );
   EXPECT_TRUE( traces.has( "handleGroupToUnitMembershipChange: Group:a removed from Unit:u1", 4 ) );
   EXPECT_TRUE( traces.has( "intf:et1 is no longer a member of unit:u1.Removing the interface from "
                            "UnitMonIntfInput of the Unit" ) );
   EXPECT_TRUE( traces.has( "intf:et2 is still a member of unit:u1.Not removing" ) );
}

TEST_F( TrackerOfGroups, unmappingFromAUnitThatIsNotInMaintenanceIsOnlyTraced ) {
   rig.groupMemberIs( "a", et1 );
   rig.mappingIs( "a", "u1" );
   rig.settle();
   Vel::TraceCapture traces;
   rig.mappingDel( "a", "u1" );
   EXPECT_EQ( 2u, traces.lines().size() );
   EXPECT_TRUE( traces.has(
      "handleGroupToUnitMembershipChange: Group:a.Unit u1 was not 'entering or under maintenance'.", 4 ) );
   EXPECT_EQ( 0u, tracker().backlogSize() );
   EXPECT_EQ( 0u, rig.root->unitMonIntfInput()->unitIntfInputs() );
}

TEST_F( TrackerOfGroups, unmappingAGroupWithoutInterfacesIsOnlyTraced ) {
   rig.mappingIs( "a", "u1" );
   input( "u1" ).intfIs( et1, true );
   Vel::TraceCapture traces;
   rig.mappingDel( "a", "u1" );
   EXPECT_TRUE( input( "u1" ).intf( et1 ) );
   EXPECT_TRUE(
      traces.has( "handleGroupToUnitMembershipChange: Group has no interfaces. Nothing to remove", 4 ) );
}

TEST_F( TrackerOfGroups, aGroupIsWatchedWhileItIsThere ) {
   rig.mappingIs( "a", "u1" );
   EXPECT_TRUE( tracker().groupToUnit( PluginRig::group( "a" ) ) );
   rig.groupToUnitDir->groupToUnitDel( PluginRig::group( "a" ) );
   EXPECT_FALSE( tracker().groupToUnit( PluginRig::group( "a" ) ) );
}

TEST_F( TrackerOfGroups, removalStopsTheMonitorInTheSameEvent ) {
   rig.profileIs( "p", 100, 10, false, 0 );
   rig.defaultProfileIs( "p" );
   rig.linkIs( et1 );
   rig.trafficIs( et1, { 1e9, 1e9 } );
   rig.unitIs( "u1", { et1 } );
   rig.enter( "u1" );
   ASSERT_TRUE( rig.root->intfMon( et1 ) );
   rig.mappingDel( "u1", "u1" );
   EXPECT_FALSE( rig.root->intfMon( et1 ) );
}

// ---- inputs that are not there

struct TrackerWithoutInputs : TrackerTest {
   TrackerWithoutInputs() { rig.start(); }
   /// A tracker of its own with these inputs.
   Vel::Ptr< IntfStatusSm > made(
      const Vel::Ptr< IntfMaintenance::IntfToGroupDir > & intfToGroupDir,
      const Vel::Ptr< Maintenance::GroupToUnitDir > & groupToUnitDir,
      const Vel::Ptr< UnitIntfInputDir > & unitMonIntfInput,
      const Vel::Ptr< IntfGroup::StatusDir > & intfGroupStatusDir ) {
      rig.root->intfStatusSmDel();
      auto result = Vel::make< IntfStatusSm >(
         rig.clock, nullptr, intfToGroupDir, groupToUnitDir, unitMonIntfInput, intfGroupStatusDir,
         rig.root.get() );
      result->hasNotificationActiveIs( true );
      return result;
   }
};

TEST_F( TrackerWithoutInputs, watchesNothingWhereThereIsNothing ) {
   const auto alone = made( nullptr, nullptr, nullptr, nullptr );
   EXPECT_EQ( 0u, alone->backlogSize() );
   alone->addToBacklog( et1 );
   rig.settle();
   EXPECT_EQ( 1u, rig.counters().numStopIntfMonInUnits() );
}

TEST_F( TrackerWithoutInputs, aChangeThatNeedsThemIsAnAssertion ) {
   rig.groupMemberIs( "a", et1 );
   rig.mappingIs( "a", "u1" );
   const auto leave = [&] { rig.groupMemberDel( "a", et1 ); };
   const auto join = [&] { rig.groupMemberIs( "a", et1 ); };
   const auto unmap = [&] { rig.mappingDel( "a", "u1" ); };
   const auto map = [&] { rig.mappingIs( "a", "u1" ); };
   const auto inputs = Vel::make< UnitIntfInputDir >();
   {
      const auto alone = made( rig.intfToGroupDir, nullptr, inputs, rig.intfGroupStatusDir );
      EXPECT_EQ( "intfStatusSm()->groupToUnitDir()", Vel::failedAssertion( leave ) );
      EXPECT_EQ( "", Vel::failedAssertion( join ) );
   }
   {
      const auto alone = made( rig.intfToGroupDir, rig.groupToUnitDir, nullptr, rig.intfGroupStatusDir );
      EXPECT_EQ( "intfStatusSm()->unitMonIntfInput()", Vel::failedAssertion( leave ) );
      join();
      EXPECT_EQ( "intfStatusSm()->unitMonIntfInput()", Vel::failedAssertion( unmap ) );
      EXPECT_EQ( "", Vel::failedAssertion( map ) );
   }
   {
      const auto alone = made( rig.intfToGroupDir, rig.groupToUnitDir, inputs, nullptr );
      EXPECT_EQ( "intfStatusSm()->intfGroupStatusDir()", Vel::failedAssertion( unmap ) );
      EXPECT_EQ( "intfStatusSm()->intfGroupStatusDir()", Vel::failedAssertion( map ) );
   }
   {
      inputs->unitIntfInputIs( "u1" )->intfIs( et1, true );
      const auto alone = made( nullptr, rig.groupToUnitDir, inputs, rig.intfGroupStatusDir );
      EXPECT_EQ( "intfToGroupDir", Vel::failedAssertion( unmap ) );
   }
}

} // namespace
} // namespace MaintenanceMode
