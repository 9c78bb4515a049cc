#include "Agent/Control/Shapes.h"

#include "Agent/Control/ModelTest.h"

#include <gtest/gtest.h>

#include <limits>

namespace Agent {

namespace {

using Maintenance::Unit::UnitState;
using Names = std::vector< std::string >;

Names namesOf( const std::map< std::string, Wire::IntfId > & interfaces ) {
   Names result;
   for ( const auto & [name, intf] : interfaces )
      result.push_back( name );
   return result;
}

class ControlShapes : public testing::Test {
 protected:
   ControlShapes() {
      commands.now = [this] { return now; };
   }
   ModelRig rig;
   const ControlModel model = rig.model();
   ControlCommands commands;
   double now = rig.now;
};

TEST_F( ControlShapes, namesTheInterfacesOfAUnitOnce ) {
   rig.groupToUnit->mappingIs( { Maintenance::GroupType::interfaceGroup, "shared" }, "u1" );
   EXPECT_EQ( ( Names{ "et1", "et2", "vlan10" } ), namesOf( interfacesOfUnit( model, "u1" ) ) );
   EXPECT_EQ( Names{ "et2" }, namesOf( interfacesOfUnit( model, "u2" ) ) );
   EXPECT_TRUE( interfacesOfUnit( model, "nobody" ).empty() );
}

TEST_F( ControlShapes, namesTheUnitsOfAnInterface ) {
   EXPECT_EQ( ( std::set< std::string >{ "u1", "u2" } ), unitsOfInterface( model, rig.et2 ) );
   EXPECT_TRUE( unitsOfInterface( model, rig.et9 ).empty() );
}

TEST_F( ControlShapes, showsInterfacesOfGroupsAndThoseWithARecord ) {
   EXPECT_EQ( ( Names{ "et1", "et2", "vlan10" } ), namesOf( shownInterfaces( model ) ) );
   rig.record( Wire::EthIntfId( "left" ), Maintenance::monIntfStateUnderMaint );
   EXPECT_EQ( ( Names{ "et1", "et2", "left", "vlan10" } ), namesOf( shownInterfaces( model ) ) );
}

TEST_F( ControlShapes, findsAnInterfaceThatIsInNoGroup ) {
   EXPECT_EQ( rig.et9, interfaceNamed( model, "et9" ) );
   EXPECT_EQ( rig.vlan10, interfaceNamed( model, "vlan10" ) );
   EXPECT_TRUE( interfaceNamed( model, "nothing" ).empty() );
}

TEST_F( ControlShapes, resolvesTheDefaultProfile ) {
   EXPECT_EQ( "fast", profileOf( model, rig.et1 ) );
   EXPECT_EQ( "watch", profileOf( model, rig.vlan10 ) );
   EXPECT_EQ( "", profileOf( model, rig.et9 ) );
   rig.defaultProfile->profileNameIs( "watch" );
   EXPECT_EQ( "watch", profileOf( model, rig.et1 ) );
}

TEST_F( ControlShapes, tellsSinceWhenNothingHasChangedInAUnit ) {
   EXPECT_EQ( rig.now - 100, unchangedSince( model, "u1" ) );
   rig.record( rig.et1, Maintenance::monIntfStateUnderMaint );
   EXPECT_EQ( rig.now - 50, unchangedSince( model, "u1" ) );
   rig.record( rig.et2, Maintenance::monIntfStateUnderMaint ).stateTimeIs( rig.now - 3 );
   EXPECT_EQ( rig.now - 3, unchangedSince( model, "u1" ) );
}

TEST_F( ControlShapes, writesNamesAsKebabCase ) {
   EXPECT_EQ( "num-maint-enter", kebabCase( "numMaintEnter" ) );
   EXPECT_EQ( "plain", kebabCase( "plain" ) );
   EXPECT_EQ( "", kebabCase( "" ) );
}

TEST_F( ControlShapes, hasAWordForEachStateAndKind ) {
   EXPECT_STREQ( "normal", unitStateText( UnitState::none ) );
   EXPECT_STREQ( "normal", unitStateText( UnitState::normal ) );
   EXPECT_STREQ( "entering", unitStateText( UnitState::enterInProgress ) );
   EXPECT_STREQ( "maintenance", unitStateText( UnitState::maintenance ) );
   EXPECT_STREQ( "exiting", unitStateText( UnitState::exitInProgress ) );
   EXPECT_STREQ( "idle", monStateText( Maintenance::monIntfStateIdle ) );
   EXPECT_STREQ( "enter-maint", monStateText( Maintenance::monIntfStateEnterMaint ) );
   EXPECT_STREQ( "under-maint", monStateText( Maintenance::monIntfStateUnderMaint ) );
   EXPECT_STREQ( "stopped", monStateText( Maintenance::monIntfStateStopped ) );
   EXPECT_STREQ( "ethernet", kindText( Wire::IntfId::Kind::ethernet ) );
   EXPECT_STREQ( "port-channel", kindText( Wire::IntfId::Kind::portChannel ) );
   EXPECT_STREQ( "vlan", kindText( Wire::IntfId::Kind::vlan ) );
   EXPECT_STREQ( "sub-interface", kindText( Wire::IntfId::Kind::subIntf ) );
   EXPECT_STREQ( "cpu", kindText( Wire::IntfId::Kind::cpu ) );
   EXPECT_STREQ( "other", kindText( Wire::IntfId::Kind::other ) );
}

TEST_F( ControlShapes, saysWhatAnInterfaceIsWaitedForFor ) {
   auto & record = rig.record( rig.et1, Maintenance::monIntfStateEnterMaint );
   EXPECT_EQ( "waits for its first sample", waitingText( model, commands, record ) );
   rig.sample( record, 2e6, 4e8, 0 );
   EXPECT_EQ( "400 Mbps, not below the threshold of 100 kbps", waitingText( model, commands, record ) );
   rig.sample( record, 1e5, 0, 0 );
   EXPECT_EQ( "100 kbps, not below the threshold of 100 kbps", waitingText( model, commands, record ) );
   rig.sample( record, 5e4, 1e4, 1 );
   EXPECT_EQ( "50.0 kbps, quiet for 5s of 10s", waitingText( model, commands, record ) );
   now += 30;
   EXPECT_EQ(
      "nobody knows what it carries: there are no fresh counters", waitingText( model, commands, record ) );
   now = rig.now;
   rig.sample( record, std::numeric_limits< double >::quiet_NaN(), 0, 0 );
   EXPECT_EQ( "its rate cannot be told", waitingText( model, commands, record ) );
   rig.sample( record, 0, std::numeric_limits< double >::infinity(), 0 );
   EXPECT_EQ( "its rate cannot be told", waitingText( model, commands, record ) );
   record.stateIs( Maintenance::monIntfStateStopped );
   EXPECT_EQ(
      "was released by another unit and is not sampled any more", waitingText( model, commands, record ) );
   record.stateIs( Maintenance::monIntfStateUnderMaint );
   EXPECT_EQ( "has drained", waitingText( model, commands, record ) );
   rig.cause->intfStatusIs( rig.et1, rig.now );
   EXPECT_EQ( "has drained and is shut", waitingText( model, commands, record ) );
}

TEST_F( ControlShapes, saysWhyAnInterfaceIsNotWaitedFor ) {
   const auto why = [&]( const Wire::IntfId & intf, UnitState state ) {
      return skippedText( model, intf, state );
   };
   EXPECT_EQ( "is not monitored: the unit is normal", why( rig.et1, UnitState::normal ) );
   EXPECT_EQ( "is not monitored: the unit is exiting", why( rig.et1, UnitState::exitInProgress ) );
   EXPECT_EQ( "is not monitored yet", why( rig.et1, UnitState::enterInProgress ) );
   rig.interfaces->intfStatus( rig.et1 )->operStatusIs( Interface::operDown );
   EXPECT_EQ( "cannot be monitored: it is down", why( rig.et1, UnitState::enterInProgress ) );
   rig.interfaces->intfStatusDel( rig.et1 );
   EXPECT_EQ( "cannot be monitored: it has no counters", why( rig.et1, UnitState::enterInProgress ) );
   rig.interfaces->intfStatusDel( rig.vlan10 );
   EXPECT_EQ(
      "cannot be monitored: it has no members with counters", why( rig.vlan10, UnitState::enterInProgress ) );
   EXPECT_EQ(
      "is never monitored: sub-interface", why( Wire::SubIntfId( "et1.5" ), UnitState::enterInProgress ) );
   EXPECT_EQ( "is never monitored: cpu", why( Wire::CpuIntfId( "br0" ), UnitState::enterInProgress ) );
}

} // namespace

TEST( StageText, saysWhatAStageDoesAndWhatHappensIfItFails ) {
   using Stage = Agent::ControlCommands::Stage;
   const Stage command{ "steer", "running", 1, "/bin/steer", 90, "", false, false };
   const auto with = [&]( const char * state, bool goesOn, const char * failure = "" ) {
      Stage stage = command;
      stage.state = state;
      stage.goesOn = goesOn;
      stage.failure = failure;
      return stage;
   };
   Stage waits = command;
   waits.waits = true;
   Stage waitsFor = command;
   waitsFor.waitsFor = "one of 64 commands to end";
   const Stage watch{ "drainwatch", "running", 1, "", 0, "", false, false };
   Stage comesBack = watch;
   comesBack.waitsFor = "et1, et2";
   using State = Maintenance::Unit::UnitState;
   const auto in = State::enterInProgress, out = State::exitInProgress;
   const std::vector< std::tuple< Stage, State, std::string > > rows{
      { command, in, "runs /bin/steer, for at most 1m30s; if it fails, the unit goes back" },
      { with( "running", true ), in,
        "runs /bin/steer, for at most 1m30s; if it fails, the next stage begins all the same" },
      { command, out, "runs /bin/steer, for at most 1m30s; if it fails, the way back goes on" },
      { waits, in, "waits until what is left of its earlier run has ended" },
      { waitsFor, in, "waits for one of 64 commands to end" },
      { watch, in, "waits until the traffic has left" },
      { watch, out, "lets go of the links" },
      { comesBack, out, "links come back: et1, et2" },
      { with( "pending", false ), in, "has yet to begin" },
      { with( "complete", false ), in, "is complete" },
      { with( "skipped", false ), out, "is passed over: the unit had not come to it on the way in" },
      { with( "failed", false, "ended with 1" ), in, "failed: ended with 1; the unit goes back" },
      { with( "failed", true, "ended with 1" ), in,
        "failed: ended with 1; the next stage began all the same" },
      { with( "failed", false, "ended with 1" ), State::normal,
        "failed: ended with 1; the next stage began all the same" } };
   for ( const auto & [stage, state, text] : rows ) {
      SCOPED_TRACE( text );
      EXPECT_EQ( text, Agent::stageText( stage, state ) );
   }
}

} // namespace Agent
