#include "Platform/Ledger/LmdbEngine.h"
#include "Tests/Agent/AgentRig.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

/// The agent comes back and finds another configuration, other links or another time.
namespace {

using Tests::AgentRig;

std::string configuration( const std::string & groups, const std::string & units ) {
   return "settle: 5s\n"
          "profiles:\n"
          "  fast: {threshold: 100kbps, load-interval: 10s, shutdown: true}\n"
          "  watch: {threshold: 10Mbps, load-interval: 10s}\n"
          "default-profile: fast\n"
          "groups:\n" +
          groups + "units:\n" + units;
}

const char * const groups = "  g1: {interfaces: [et1, et2]}\n  g2: {interfaces: [et3]}\n";
const char * const units = "  u1: {groups: [g1]}\n  u2: {groups: [g2]}\n";

class RestartStory : public testing::Test {
 protected:
   RestartStory() : rig( configuration( groups, units ) ) {
      rig.start();
      EXPECT_EQ( 202, rig.post( "units/u1/enter", R"({"reason":"swap"})" ) );
   }
   void toMaintenance() {
      rig.runUntil( 30 );
      ASSERT_EQ( "\"maintenance\"", state() );
      ASSERT_EQ( shut, rig.moves() );
   }
   void restart( const std::string & newConfiguration ) {
      rig.crash();
      rig.configurationIs( newConfiguration );
      rig.start();
   }
   /// While no agent runs: the configuration that was accepted last says something else in a place.
   void acceptedIs( const std::string & what, const std::string & instead ) {
      Ledger::LmdbEngine store(
         "state store", rig.folder() + "/state/state.mdb", Ledger::LmdbEngine::Durability::synced );
      ASSERT_TRUE( store.open().ok() );
      const std::string key = "Dconfiguration";
      std::string text;
      ASSERT_TRUE( store
                      .walk(
                         key,
                         [&]( std::string_view, std::string_view value ) {
                            text = value;
                            return false;
                         } )
                      .ok() );
      const std::size_t at = text.find( what );
      ASSERT_NE( std::string::npos, at ) << text;
      ASSERT_TRUE( store.begin().ok() );
      ASSERT_TRUE( store.put( key, text.replace( at, what.size(), instead ) ).ok() );
      ASSERT_TRUE( store.commit().ok() );
   }
   std::string state() { return rig.fact( "units/u1", "state" ); }
   bool agentSays( const std::string & text ) { return rig.get( "agent" ).find( text ) != std::string::npos; }

   const std::vector< std::string > shut{ "et1 down", "et2 down" };
   AgentRig rig;
};

TEST_F( RestartStory, unitThatIsEnteringIsNotRemovedByAnotherConfiguration ) {
   rig.traffic( "et1", 1e6 );
   rig.runUntil( 20 );
   restart( configuration( groups, "  u2: {groups: [g2]}\n" ) );
   EXPECT_TRUE( agentSays( "unit u1 is not normal and cannot be removed" ) ) << rig.get( "agent" );
   rig.runUntil( 60 );
   EXPECT_EQ( "\"entering\"", state() );
   EXPECT_EQ( R"({"drained":1,"total":2})", rig.fact( "units/u1", "interfaces" ) );
   EXPECT_EQ( 202, rig.post( "units/u1/exit" ) );
   rig.runUntil( 65 );
   EXPECT_EQ( "\"normal\"", state() );
   EXPECT_EQ( 200, rig.reload( configuration( groups, "  u2: {groups: [g2]}\n" ) ) );
   EXPECT_EQ( "no member state", rig.fact( "units/u1", "state" ) );
   EXPECT_FALSE( agentSays( "cannot be removed" ) );
}

TEST_F( RestartStory, configurationThatIsRefusedOnceIsRefusedByTheNextAgentToo ) {
   toMaintenance();
   const std::string other = configuration( groups, "  u2: {groups: [g2]}\n" );
   restart( other );
   restart( other );
   EXPECT_TRUE( agentSays( "unit u1 is not normal and cannot be removed" ) );
   rig.runUntil( 40 );
   EXPECT_EQ( "\"maintenance\"", state() );
   EXPECT_EQ( shut, rig.moves() );
}

TEST_F( RestartStory, configurationThatOnlyLaterRulesForbidIsKeptToWhenItWasAcceptedBefore ) {
   toMaintenance();
   rig.crash();
   acceptedIs( "listen: {web: \"\"}", "listen: {web: \"mgmt.example.net:18099\"}" );
   acceptedIs( "stages: {}", "stages: {steer: {enter: /bin/true, exit: /bin/true}}" );
   acceptedIs( "[g2], enter: [drainwatch]", "[g2], enter: [steer, drainwatch]" );
   acceptedIs( "interfaces: [et3]", "interfaces: [et3, \"a\u0085b\"]" );
   rig.configurationIs(
      "listen: {web: \"mgmt.example.net:18099\"}\n"
      "stages: {steer: {enter: /bin/true, exit: /bin/true}}\n" +
      configuration(
         "  g1: {interfaces: [et1, et2]}\n  g2: {interfaces: [et3, \"a\\x85b\"]}\n",
         "  u1: {groups: [g1]}\n  u2: {groups: [g2], enter: [steer, drainwatch]}\n" ) );
   rig.start();
   for ( const char * error :
         { "has control character 0x85", "would not undo what it has done",
           "is a name, and nobody is asked" } )
      EXPECT_TRUE( agentSays( error ) ) << rig.get( "agent" );
   rig.runUntil( 40 );
   EXPECT_EQ( "\"maintenance\"", state() );
   EXPECT_EQ( shut, rig.moves() );
   EXPECT_EQ( 202, rig.post( "units/u1/exit" ) );
   rig.runUntil( 45 );
   EXPECT_EQ( "\"normal\"", state() );
}

TEST_F( RestartStory, acceptedConfigurationThatCannotBeReadIsNamedBesideTheErrorsOfTheFile ) {
   rig.crash();
   acceptedIs( "interfaces: [et3]", "interfaces: [et/3]" );
   rig.configurationIs( "nonsense: [" );
   try {
      rig.start();
      ADD_FAILURE() << "it should not start";
   } catch ( const std::exception & exception ) {
      const std::string text = exception.what();
      EXPECT_NE( std::string::npos, text.find( "maintd.yaml:" ) ) << text;
      EXPECT_NE( std::string::npos, text.find( "last accepted configuration:" ) ) << text;
   }
}

TEST_F( RestartStory, switchIsNotChangedWhileLinksAreHeld ) {
   toMaintenance();
   rig.crash();
   std::ofstream( rig.folder() + "/maintd.yaml" )
      << "version: 1\nswitch: linux\n" + configuration( groups, units );
   rig.start();
   EXPECT_TRUE( agentSays( "links of the present switch are held" ) ) << rig.get( "agent" );
   EXPECT_TRUE( agentSays( "\"simulated\"" ) );
   EXPECT_EQ( 202, rig.post( "units/u1/exit" ) );
   rig.runUntil( 40 );
   rig.crash();
   rig.start();
   EXPECT_FALSE( agentSays( "links of the present switch are held" ) );
   EXPECT_TRUE( agentSays( "\"linux\"" ) );
}

TEST_F( RestartStory, unitThatIsNormalIsRemovedByAnotherConfiguration ) {
   toMaintenance();
   restart( configuration( groups, "  u1: {groups: [g1]}\n" ) );
   EXPECT_EQ( "no member state", rig.fact( "units/u2", "state" ) );
   EXPECT_EQ( 404, rig.post( "units/u2/enter" ) );
   EXPECT_EQ( "\"maintenance\"", state() );
}

TEST_F( RestartStory, interfaceThatIsNotConfiguredAnyMoreIsReleased ) {
   toMaintenance();
   restart( configuration( "  g1: {interfaces: [et1]}\n  g2: {interfaces: [et3]}\n", units ) );
   rig.runUntil( 40 );
   EXPECT_EQ( ( std::vector< std::string >{ "et1 down", "et2 down", "et2 up" } ), rig.moves() );
   EXPECT_EQ( "\"maintenance\"", state() );
   EXPECT_EQ( R"({"drained":1,"total":1})", rig.fact( "units/u1", "interfaces" ) );
}

TEST_F( RestartStory, groupThatIsEmptiedReleasesItsInterfacesAndTheUnitGoesBack ) {
   toMaintenance();
   restart( configuration( "  g1: {}\n  g2: {interfaces: [et3]}\n", units ) );
   rig.runUntil( 40 );
   EXPECT_EQ( ( std::vector< std::string >{ "et1 down", "et2 down", "et1 up", "et2 up" } ), rig.moves() );
   EXPECT_EQ( "\"maintenance\"", state() );
   EXPECT_EQ( 202, rig.post( "units/u1/exit" ) );
   rig.runUntil( 45 );
   EXPECT_EQ( "\"normal\"", state() );
}

TEST_F( RestartStory, profileThatIsGoneLeavesTheUnitUnderTheNewDefault ) {
   toMaintenance();
   restart(
      "settle: 5s\n"
      "profiles:\n"
      "  calm: {threshold: 10Mbps, load-interval: 10s}\n"
      "default-profile: calm\n"
      "groups:\n" +
      std::string( groups ) + "units:\n" + units );
   rig.runUntil( 40 );
   EXPECT_EQ( "\"calm\"", rig.fact( "interfaces/et1", "profile" ) );
   EXPECT_EQ( "\"maintenance\"", state() );
   EXPECT_EQ( ( std::vector< std::string >{ "et1 down", "et2 down", "et1 up", "et2 up" } ), rig.moves() );
}

TEST_F( RestartStory, linkThatHasGoneMeanwhileIsJudgedAnewWhenItComesBack ) {
   toMaintenance();
   rig.crash();
   rig.withoutAgent( [this] { ASSERT_TRUE( rig.simulation().linkDel( "et2" ).ok() ); } );
   rig.start();
   rig.runUntil( 40 );
   EXPECT_EQ( "\"maintenance\"", state() );
   EXPECT_EQ( R"({"drained":1,"total":1})", rig.fact( "units/u1", "interfaces" ) );
   ASSERT_TRUE( rig.simulation().linkNew( "et2" ).ok() );
   rig.runUntil( 50 );
   EXPECT_EQ( R"({"drained":2,"total":2})", rig.fact( "units/u1", "interfaces" ) );
   // The new link is up, and shut for reasons of its own.
   EXPECT_EQ( "et2 down", rig.moves().back() );
   EXPECT_EQ( 202, rig.post( "units/u1/exit" ) );
   rig.runUntil( 60 );
   EXPECT_EQ( "\"up\"", rig.fact( "interfaces/et2", "link-state" ) );
}

TEST_F( RestartStory, linkThatWasMadeAnewMeanwhileIsShutAgain ) {
   toMaintenance();
   rig.crash();
   rig.withoutAgent( [this] { ASSERT_TRUE( rig.simulation().linkDel( "et2" ).ok() ); } );
   rig.withoutAgent( [this] { ASSERT_TRUE( rig.simulation().linkNew( "et2" ).ok() ); } );
   rig.start();
   rig.runUntil( 40 );
   EXPECT_EQ( "\"maintenance\"", state() );
   EXPECT_EQ( ( std::vector< std::string >{ "et1 down", "et2 down", "et2 up", "et2 down" } ), rig.moves() );
   EXPECT_EQ( "\"down\"", rig.fact( "interfaces/et2", "link-state" ) );
}

/// The machine starts again, and sets its links up when the agent has been running for a while; et2 first without carrier.
TEST_F( RestartStory, linksThatTheMachineSetsUpAfterABootAreShutAgainAndComeBack ) {
   toMaintenance();
   rig.crash();
   rig.watched().bootIdIs( "second boot" );
   std::filesystem::remove_all( rig.folder() + "/run" );
   rig.start();
   rig.runUntil( 35 );
   rig.soon( [this] {
      EXPECT_TRUE( rig.simulation().linkIs( "et2", false ).ok() );
      for ( const char * name : { "et1", "et2" } )
         rig.watched().linkSet( 0, Wire::EthIntfId( name ), true, "" );
   } );
   rig.at( 37, [this] { EXPECT_TRUE( rig.simulation().linkIs( "et2", true ).ok() ); } );
   rig.runUntil( 120 );
   EXPECT_EQ( "\"maintenance\"", state() );
   EXPECT_EQ( "\"swap\"", rig.fact( "units/u1", "reason" ) );
   for ( const char * name : { "interfaces/et1", "interfaces/et2" } ) {
      SCOPED_TRACE( name );
      EXPECT_EQ( "\"down\"", rig.fact( name, "link-state" ) );
      EXPECT_EQ( "true", rig.fact( name, "shut" ) );
      EXPECT_EQ( "null", rig.fact( name, "drift" ) );
   }
   EXPECT_EQ( 202, rig.post( "units/u1/exit" ) );
   rig.runUntil( 130 );
   EXPECT_EQ( "\"normal\"", state() );
   for ( const char * name : { "interfaces/et1", "interfaces/et2" } )
      EXPECT_EQ( "\"up\"", rig.fact( name, "link-state" ) ) << name;
}

TEST_F( RestartStory, drainGoesOnAfterAnHourWithoutAnAgent ) {
   rig.runUntil( 7 );
   rig.crash();
   rig.pass( 3600 );
   rig.start();
   EXPECT_EQ( "\"entering\"", state() );
   EXPECT_EQ( "\"swap\"", rig.fact( "units/u1", "reason" ) );
   // One quiet sample was seen before; what was carried meanwhile is judged over samples of its own.
   rig.runUntil( 3607 + 4 );
   EXPECT_EQ( R"({"drained":0,"total":2})", rig.fact( "units/u1", "interfaces" ) );
   rig.runUntil( 3607 + 30 );
   EXPECT_EQ( "\"maintenance\"", state() );
   EXPECT_EQ( shut, rig.moves() );
}

TEST_F( RestartStory, hourInWhichTheAgentStoodStillIsOneSample ) {
   rig.traffic( "et1", 1e6 );
   rig.runUntil( 7 );
   rig.pass( 3600 );
   rig.runUntil( 7 + 3600 + 1 );
   EXPECT_NEAR( 1e6, std::stod( rig.fact( "interfaces/et1", "in-bps" ) ), 1e4 );
   EXPECT_EQ( "\"0\"", rig.fact( "interfaces/et1", "consecutive-drained-samples" ) );
   EXPECT_EQ( "\"2\"", rig.fact( "interfaces/et2", "consecutive-drained-samples" ) );
   rig.runUntil( 7 + 3600 + 60 );
   EXPECT_EQ( "\"entering\"", state() );
   EXPECT_EQ( ( std::vector< std::string >{ "et2 down" } ), rig.moves() );
}

TEST_F( RestartStory, trafficOfAnHourWithoutAnAgentIsNotOneLargeRate ) {
   rig.traffic( "et1", 1e6 );
   rig.runUntil( 12 );
   rig.crash();
   rig.pass( 3600 );
   rig.start();
   rig.runUntil( 12 + 3600 + 6 );
   EXPECT_NEAR( 1e6, std::stod( rig.fact( "interfaces/et1", "in-bps" ) ), 1e4 );
   EXPECT_EQ( "\"entering\"", state() );
}

} // namespace
