#include "MaintenancePlugin/TrackerTest.h"

namespace MaintenanceMode {
namespace {

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
   Decisions decisions;
   EXPECT_TRUE( member( et1, "u1" ) );
   EXPECT_EQ(
      Lines{ "isIntfMemberOfUnit: intf:et1 part of unit:u1 through the group:b" }, decisions.lines() );
}

TEST_F( UnitMembership, isNotThatOfAGroupThatIsMappedToOtherUnitsOnly ) {
   rig.groupMemberIs( "a", et1 );
   rig.mappingIs( "a", "u1" );
   Decisions decisions;
   EXPECT_FALSE( member( et1, "u2" ) );
   EXPECT_EQ( Lines{ "isIntfMemberOfUnit: intf:et1 not part of unit:u2" }, decisions.lines() );
}

TEST_F( UnitMembership, isNotWorthATraceForAnInterfaceThatHasNoGroups ) {
   rig.mappingIs( "a", "u1" );
   Decisions decisions;
   EXPECT_FALSE( member( et1, "u1" ) );
   EXPECT_EQ( Lines(), decisions.lines() );
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
   const IntfId et4 = PluginRig::port( "et4" );
   rig.linkIs( et1 );
   rig.linkIs( et2, false );
   rig.linkIs( et3 );
   rig.selectIs( et4, "p" );
   rig.selectIs( et2, "p" );
   Details details;
   rig.start();
   Lines lines = details.lines();
   ASSERT_LE( 3u, lines.size() );
   lines.resize( 3 );
   EXPECT_EQ(
      ( Lines{
         "handleInitialized: intf et1", "handleInitialized: intf et2", "handleInitialized: intf et3" } ),
      lines );
   EXPECT_EQ( "et1 et2 et3 et4", processed( details.lines() ) );
   EXPECT_EQ( 5u, tracker().updatesSeen() );
   for ( const IntfId & intf : { et2, et4 } )
      EXPECT_TRUE( tracker().intfToGroup( intf )->initialized() );
}

TEST_F( TrackerOfStatus, everyChangeIsQueuedWhateverTheMembership ) {
   rig.start();
   const struct {
      const char * what;
      std::function< void() > change;
      Lines told;
   } rows[] = {
      { "appears", [&] { rig.allIntfStatusDir->intfStatusIs( et1 ); }, { "handleInitialized: intf et1" } },
      { "comes up", [&] { rig.linkIs( et1 ); }, { "handleIntfOperStatus: intf et1" } },
      { "goes down", [&] { rig.linkIs( et1, false ); }, { "handleIntfOperStatus: intf et1" } },
      { "any other status",
        [&] { rig.allIntfStatusDir->intfStatus( et1 )->operStatusIs( Interface::operUnknown ); },
        { "handleIntfOperStatus: intf et1" } },
      { "is replaced",
        [&] { rig.allIntfStatusDir->intfStatusPut( et1, Vel::make< Interface::IntfStatus >( et1 ) ); },
        { "handleIntfStatusDel: intf et1", "handleInitialized: intf et1" } },
      { "goes", [&] { rig.linkDel( et1 ); }, { "handleIntfStatusDel: intf et1" } },
   };
   for ( const auto & row : rows ) {
      SCOPED_TRACE( row.what );
      const auto seen = tracker().updatesSeen();
      Details details;
      row.change();
      EXPECT_EQ( row.told, details.lines() );
      for ( const auto & line : row.told )
         EXPECT_TRUE( details.traced( line, 5 ) );
      EXPECT_EQ( seen + row.told.size(), tracker().updatesSeen() );
      EXPECT_EQ( "et1", backlog() );
   }
}

TEST_F( TrackerOfStatus, aChangeStartsAndStopsNothingByItself ) {
   rig.profileIs( "p", 100, 10, false, 0 );
   rig.defaultProfileIs( "p" );
   rig.linkIs( et1 );
   rig.trafficIs( et1, { 1e9, 1e9 } );
   rig.unitIs( "u1", { et1, et2 } );
   rig.start();
   rig.enter( "u1" );
   rig.settle();
   rig.linkIs( et2 );
   EXPECT_FALSE( rig.root->intfMon( et2 ) );
   EXPECT_FALSE( input( "u1" ).intf( et2 ) );
   rig.linkDel( et1 );
   EXPECT_TRUE( rig.root->intfMon( et1 ) );
   EXPECT_TRUE( input( "u1" ).intf( et1 ) );
   EXPECT_EQ( 2u, tracker().backlogSize() );
}

TEST_F( TrackerOfStatus, theSameStatusAgainIsNoChange ) {
   rig.linkIs( et1 );
   rig.start();
   rig.linkIs( et1 );
   EXPECT_EQ( 0u, tracker().backlogSize() );
}

TEST_F( TrackerOfStatus, aStatusThatWasNeverThereGoesWithoutAWord ) {
   rig.start();
   tracker().handleIntfStatus( et1 );
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

// ---- inputs that are not there

struct TrackerWithoutInputs : TrackerTest {
   const std::function< void() > leave = [this] { rig.groupMemberDel( "a", et1 ); };
   const std::function< void() > join = [this] { rig.groupMemberIs( "a", et1 ); };
   const std::function< void() > unmap = [this] { rig.mappingDel( "a", "u1" ); };
   const std::function< void() > map = [this] { rig.mappingIs( "a", "u1" ); };
   const Vel::Ptr< UnitIntfInputDir > inputs = Vel::make< UnitIntfInputDir >();

   TrackerWithoutInputs() {
      rig.start();
      join();
      map();
   }
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

TEST_F( TrackerWithoutInputs, leavingAGroupNeedsTheUnitsOfGroups ) {
   const auto alone = made( rig.intfToGroupDir, nullptr, inputs, rig.intfGroupStatusDir );
   Decisions decisions;
   EXPECT_EQ( "intfStatusSm()->groupToUnitDir()", Vel::failedAssertion( leave ) );
   EXPECT_EQ(
      Lines{ "handleIntfToGroupMembershipChange: Interface:et1 removed from group:a" }, decisions.lines() );
   EXPECT_EQ( "", Vel::failedAssertion( join ) );
}

TEST_F( TrackerWithoutInputs, leavingAGroupNeedsTheSetsOfUnitsIfTheGroupHasAUnit ) {
   rig.groupMemberIs( "b", et1 );
   const auto alone = made( rig.intfToGroupDir, rig.groupToUnitDir, nullptr, rig.intfGroupStatusDir );
   EXPECT_EQ( "", Vel::failedAssertion( [&] { rig.groupMemberDel( "b", et1 ); } ) );
   EXPECT_EQ( "intfStatusSm()->unitMonIntfInput()", Vel::failedAssertion( leave ) );
   EXPECT_EQ( "", Vel::failedAssertion( join ) );
}

TEST_F( TrackerWithoutInputs, unmappingNeedsTheSetsOfUnits ) {
   const auto alone = made( rig.intfToGroupDir, rig.groupToUnitDir, nullptr, rig.intfGroupStatusDir );
   Decisions decisions;
   EXPECT_EQ( "intfStatusSm()->unitMonIntfInput()", Vel::failedAssertion( unmap ) );
   EXPECT_EQ( Lines{ "handleGroupToUnitMembershipChange: Group:a removed from Unit:u1" }, decisions.lines() );
   EXPECT_EQ( "", Vel::failedAssertion( map ) );
}

TEST_F( TrackerWithoutInputs, mappingAndUnmappingNeedTheInterfacesOfGroups ) {
   const auto alone = made( rig.intfToGroupDir, rig.groupToUnitDir, inputs, nullptr );
   Decisions decisions;
   EXPECT_EQ( "intfStatusSm()->intfGroupStatusDir()", Vel::failedAssertion( unmap ) );
   EXPECT_EQ( "intfStatusSm()->intfGroupStatusDir()", Vel::failedAssertion( map ) );
   EXPECT_EQ( Lines(), decisions.lines() );
}

TEST_F( TrackerWithoutInputs, removingAnInterfaceFromAUnitNeedsTheGroupsOfInterfaces ) {
   inputs->unitIntfInputIs( "u1" )->intfIs( et1, true );
   const auto alone = made( nullptr, rig.groupToUnitDir, inputs, rig.intfGroupStatusDir );
   EXPECT_EQ( "intfToGroupDir", Vel::failedAssertion( unmap ) );
   EXPECT_TRUE( inputs->unitIntfInput( "u1" )->intf( et1 ) );
}

} // namespace
} // namespace MaintenanceMode
