#include "MaintenancePlugin/UnitsTest.h"

namespace MaintenanceMode {
namespace {

/// Two units in maintenance, u1 and u2, whose sets nobody fills, and a third, u3, that is not in maintenance.
struct DrainWatchSmUnitIntfs : UnitsTest {
   DrainWatchSmUnitIntfs() {
      for ( const auto & intf : { et1, et2 } )
         busy( intf );
      for ( const char * unitName : { "u1", "u2", "u3" } )
         rig.unit( unitName );
      rig.start();
      for ( const char * unitName : { "u1", "u2" } )
         rig.enter( unitName );
      rig.settle();
   }
   UnitIntfInput & input( const Vel::String & unitName ) {
      return *rig.root->unitMonIntfInput()->unitIntfInput( unitName );
   }
};

/// The root's traces and, between them, what changes in the sets of units and what is counted for that. A unit's monitor
/// is told of a change first, and asks for the profile.
struct SetSequence : Sequence {
   explicit SetSequence( const PluginRig & rig ) {
      counters_.is( rig.root->counters(), this ).hasNotificationActiveIs( true );
      for ( const auto & [unitName, input] : rig.root->unitMonIntfInput()->unitIntfInputRange() )
         inputs_.add( input, this );
      for ( const auto & [unitName, status] : rig.unitStatusDir->statusRange() )
         statuses_.add( status, this );
   }
   struct VelCounters final : Vel::ReactorTo< SetSequence, DrainWatchSmDebugCounters > {
      using ReactorTo::ReactorTo;
      void onNumStartIntfMonInUnits() override { sm()->note( "numStartIntfMonInUnits" ); }
      void onNumStopIntfMonInUnits() override { sm()->note( "numStopIntfMonInUnits" ); }
   };
   struct VelInput final : Vel::ReactorTo< SetSequence, UnitIntfInput > {
      using ReactorTo::ReactorTo;
      void onIntf( const Wire::IntfId & intf ) override {
         const bool * member = entity()->intf( intf );
         sm()->note( entity()->name(), ": ", intf, !member ? " gone" : *member ? " true" : " false" );
      }
   };
   struct VelStatus final : Vel::ReactorTo< SetSequence, Maintenance::Unit::Status > {
      using ReactorTo::ReactorTo;
      void onIntfsViolatingTrafficThreshold( const Wire::IntfId & intf ) override {
         sm()->note( entity()->unitName(), ": violating ", intf, " gone" );
      }
   };
   Vel::Watch< VelCounters > counters_;
   Watches< VelInput > inputs_;
   Watches< VelStatus > statuses_;
};

// ---- start

TEST_F( DrainWatchSmUnitIntfs, anInterfaceOfAGroupOfTwoUnitsStartsInBoth ) {
   rig.groupMemberIs( "g1", et1 );
   rig.mappingIs( "g1", "u1" );
   rig.mappingIs( "g1", "u2" );
   const CounterChanges changes( rig.counters() );
   SetSequence sequence( rig );
   rig.root->startIntfMonInUnits( et1 );
   EXPECT_EQ(
      ( Lines{
         "startIntfMonInUnits: intf et1", "numStartIntfMonInUnits",
         "startIntfMonInUnits: Starting intf mon for intf et1 in unit u1, group g1",
         "getIntfProfile: intf et1, profile p", "u1: et1 true",
         "startIntfMonInUnits: Starting intf mon for intf et1 in unit u2, group g1",
         "getIntfProfile: intf et1, profile p", "u2: et1 true" } ),
      sequence.lines() );
   EXPECT_EQ(
      ( Lines{
         "starting intf mon for intf et1 in unit u1, group g1",
         "starting intf mon for intf et1 in unit u2, group g1" } ),
      sequence.logged() );
   EXPECT_EQ( "numStartIntfMonInUnits 1", changes.text() );
   ASSERT_TRUE( rig.root->intfMon( et1 ) );
   EXPECT_EQ( 2u, rig.root->intfMon( et1 )->monitoredIntf()->dependentUnits() );
}

/// Told of for each group, added once.
TEST_F( DrainWatchSmUnitIntfs, anInterfaceOfTwoGroupsOfOneUnitIsOneMember ) {
   for ( const char * groupName : { "g1", "g2" } ) {
      rig.groupMemberIs( groupName, et1 );
      rig.mappingIs( groupName, "u1" );
   }
   SetSequence sequence( rig );
   rig.root->startIntfMonInUnits( et1 );
   EXPECT_EQ(
      ( Lines{
         "startIntfMonInUnits: intf et1", "numStartIntfMonInUnits",
         "startIntfMonInUnits: Starting intf mon for intf et1 in unit u1, group g1",
         "getIntfProfile: intf et1, profile p", "u1: et1 true",
         "startIntfMonInUnits: Starting intf mon for intf et1 in unit u1, group g2" } ),
      sequence.lines() );
   EXPECT_EQ(
      ( Lines{
         "starting intf mon for intf et1 in unit u1, group g1",
         "starting intf mon for intf et1 in unit u1, group g2" } ),
      sequence.logged() );
   EXPECT_EQ( 1u, input( "u1" ).intfs() );
}

TEST_F( DrainWatchSmUnitIntfs, aMemberThatIsStartedAgainStaysAsItIs ) {
   rig.groupMemberIs( "g1", et1 );
   rig.mappingIs( "g1", "u1" );
   rig.root->startIntfMonInUnits( et1 );
   const CounterChanges changes( rig.counters() );
   SetSequence sequence( rig );
   rig.root->startIntfMonInUnits( et1 );
   EXPECT_EQ(
      ( Lines{
         "startIntfMonInUnits: intf et1", "numStartIntfMonInUnits",
         "startIntfMonInUnits: Starting intf mon for intf et1 in unit u1, group g1" } ),
      sequence.lines() );
   EXPECT_EQ( "numStartIntfMonInUnits 1", changes.text() );
}

TEST_F( DrainWatchSmUnitIntfs, aStartThatLeadsNowhereIsOnlyTracedAndCounted ) {
   rig.groupMemberIs( "unmapped", et1 );
   rig.groupMemberIs( "g3", et2 );
   rig.mappingIs( "g3", "u3" );
   for ( const auto & intf : { PluginRig::port( "inNoGroup" ), et1, et2 } ) {
      SCOPED_TRACE( Vel::text( intf ) );
      const CounterChanges changes( rig.counters() );
      SetSequence sequence( rig );
      rig.root->startIntfMonInUnits( intf );
      EXPECT_EQ(
         ( Lines{ Vel::text( "startIntfMonInUnits: intf ", intf ), "numStartIntfMonInUnits" } ),
         sequence.lines() );
      EXPECT_EQ( Lines{}, sequence.logged() );
      EXPECT_EQ( "numStartIntfMonInUnits 1", changes.text() );
   }
   EXPECT_EQ( 2u, rig.root->unitMonIntfInput()->unitIntfInputs() );
}

/// What ends one way does not end the others: a group that is mapped to nothing, a unit that is not in maintenance.
TEST_F( DrainWatchSmUnitIntfs, aBranchThatEndsLeavesTheOthers ) {
   for ( const char * groupName : { "unmapped", "g3", "g2" } )
      rig.groupMemberIs( groupName, et1 );
   rig.mappingIs( "g3", "u3" );
   rig.mappingIs( "g3", "u1" );
   rig.mappingIs( "g2", "u2" );
   rig.root->startIntfMonInUnits( et1 );
   EXPECT_TRUE( input( "u1" ).intf( et1 ) );
   EXPECT_TRUE( input( "u2" ).intf( et1 ) );
   EXPECT_FALSE( rig.root->unitMonIntfInput()->unitIntfInput( "u3" ) );
}

TEST_F( DrainWatchSmUnitIntfs, withoutTheDirectoriesOfGroupsAndUnitsNothingStarts ) {
   for ( const bool groups : { true, false } ) {
      SCOPED_TRACE( groups ? "no groups" : "no units" );
      PluginRig world;
      world.profileIs( "p", 100, 10, false, 0 );
      world.defaultProfileIs( "p" );
      world.unitIs( "u1", { et1 } );
      if ( groups )
         world.intfToGroupDir = nullptr;
      else
         world.groupToUnitDir = nullptr;
      world.start();
      world.root->unitMonIntfInput()->unitIntfInputIs( "u1" );
      const CounterChanges changes( world.counters() );
      world.root->startIntfMonInUnits( et1 );
      EXPECT_EQ( "numStartIntfMonInUnits 1", changes.text() );
      EXPECT_EQ( 0u, world.root->unitMonIntfInput()->unitIntfInput( "u1" )->intfs() );
   }
}

// ---- stop

TEST_F( DrainWatchSmUnitIntfs, anInterfaceStopsInEveryUnitWhateverItsGroups ) {
   rig.groupMemberIs( "g1", et1 );
   rig.mappingIs( "g1", "u1" );
   for ( const char * unitName : { "u1", "u2" } )
      input( unitName ).intfIs( et1, true );
   rig.groupMemberIs( "g1", et2 );
   input( "u1" ).intfIs( et2, true );
   // Without its reports there are but the sets to look at.
   for ( PluginRig::StageClass * stageClass : { &rig.enterClass, &rig.exitClass } )
      stageClass->progressDir->progressDelAll();
   const CounterChanges changes( rig.counters() );
   SetSequence sequence( rig );
   rig.root->stopIntfMonInUnits( et1 );
   EXPECT_EQ(
      ( Lines{
         "stopIntfMonInUnits: intf et1", "numStopIntfMonInUnits", "getIntfProfile: intf et1, profile p",
         "u1: et1 gone", "getIntfProfile: intf et1, profile p",
         "notifyStageCompletion: No instance found for genId 1 unitName u2", "u2: et1 gone" } ),
      sequence.lines() );
   EXPECT_EQ( Lines{}, sequence.logged() );
   EXPECT_EQ( "numNoNotifyNoStageInput 1, numStopIntfMonInUnits 1", changes.text() );
   EXPECT_TRUE( input( "u1" ).intf( et2 ) );
   EXPECT_FALSE( rig.root->intfMon( et1 ) );
   EXPECT_TRUE( rig.root->intfMon( et2 ) );
}

TEST_F( DrainWatchSmUnitIntfs, stoppingWhatIsInNoUnitIsOnlyTracedAndCounted ) {
   rig.groupMemberIs( "g1", et1 );
   input( "u1" ).intfIs( et1, true );
   const CounterChanges changes( rig.counters() );
   SetSequence sequence( rig );
   rig.root->stopIntfMonInUnits( et2 );
   EXPECT_EQ( ( Lines{ "stopIntfMonInUnits: intf et2", "numStopIntfMonInUnits" } ), sequence.lines() );
   EXPECT_EQ( "numStopIntfMonInUnits 1", changes.text() );
   EXPECT_EQ( 1u, input( "u1" ).intfs() );
}

// ---- violating interfaces

TEST_F( DrainWatchSmUnitIntfs, anInterfaceLeavesTheViolatingSetsThatHoldIt ) {
   rig.unit( "u1" ).intfsViolatingTrafficThresholdIs( et1, true );
   rig.unit( "u2" ).intfsViolatingTrafficThresholdIs( et2, true );
   rig.unit( "u3" ).intfsViolatingTrafficThresholdIs( et1, true );
   rig.unit( "u3" ).intfsViolatingTrafficThresholdIs( et2, true );
   const CounterChanges changes( rig.counters() );
   SetSequence sequence( rig );
   rig.root->delFromViolatingIntfsCollection( et1 );
   EXPECT_EQ( ( Lines{ "u1: violating et1 gone", "u3: violating et1 gone" } ), sequence.lines() );
   EXPECT_EQ( "", changes.text() );
   EXPECT_TRUE( rig.unit( "u2" ).intfsViolatingTrafficThreshold( et2 ) );
   EXPECT_TRUE( rig.unit( "u3" ).intfsViolatingTrafficThreshold( et2 ) );
}

// ---- the interface's monitor

/// Its values are those that it is made from.
TEST_F( DrainWatchSmUnitIntfs, aMonitorIsMadeFromItsSixValues ) {
   rig.groupMemberIs( "g1", et1 );
   auto * const sampler = rig.root->monIntfDir()->monitoredIntfIs( et1, rig.root.get(), "p" );
   const Vel::Ptr< const IntfMaintenanceProfile::Status > p( rig.intfProfileStatusDir->status( "p" ) );
   for ( const auto state : { Maintenance::monIntfStateEnterMaint, Maintenance::monIntfStateUnderMaint } ) {
      SCOPED_TRACE( Vel::text( state ) );
      rig.record( et1 )->stateIs( Maintenance::monIntfStateIdle );
      const auto made = rig.root->intfMonIs( et1, rig.root->timerWheel(), p, rig.root.get(), sampler, state );
      EXPECT_EQ( 1u, rig.root->intfMons() );
      EXPECT_EQ( made.get(), rig.root->intfMon( et1 ) );
      EXPECT_EQ( et1, made->intf() );
      EXPECT_EQ( rig.root->timerWheel(), made->clock() );
      EXPECT_EQ( p, made->intfProfile() );
      EXPECT_EQ( rig.root.get(), made->rootSm() );
      EXPECT_EQ( sampler, made->monitoredIntf().get() );
      EXPECT_EQ( state, made->initialState() );
      EXPECT_EQ( state, made->state() );
      rig.root->intfMonDel( et1 );
      EXPECT_FALSE( rig.root->intfMon( et1 ) );
   }
}

TEST_F( DrainWatchSmUnitIntfs, aMonitorThatIsMadeFollowsItsProfile ) {
   rig.groupMemberIs( "g1", et1 );
   auto * const sampler = rig.root->monIntfDir()->monitoredIntfIs( et1, rig.root.get(), "p" );
   rig.root->intfMonIs(
      et1, rig.root->timerWheel(), rig.intfProfileStatusDir->status( "p" ), rig.root.get(), sampler,
      Maintenance::monIntfStateUnderMaint );
   rig.intfProfileStatusDir->status( "p" )->shutdownIs( true );
   EXPECT_TRUE( rig.shut( et1 ) );
}

} // namespace
} // namespace MaintenanceMode
