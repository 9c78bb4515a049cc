#include "Platform/Ledger/FaultEngine.h"
#include "Tests/Agent/AgentRig.h"

#include <gtest/gtest.h>

namespace {

using Tests::AgentRig;

class DegradedStory : public testing::Test {
 protected:
   DegradedStory()
      : rig( "settle: 5s\n"
             "profiles:\n"
             "  fast: {threshold: 100kbps, load-interval: 10s, shutdown: true}\n"
             "default-profile: fast\n"
             "groups:\n"
             "  uplinks: {interfaces: [et1, et2]}\n"
             "  other: {interfaces: [et3]}\n"
             "units:\n"
             "  u1: {groups: [uplinks]}\n"
             "  u2: {groups: [other]}\n" ) {
      rig.storeUsedIs( [this]( Ledger::StoreEngine & engine ) -> Ledger::StoreEngine & {
         auto & faults = engine.name().starts_with( "state" ) ? stateStore : runtimeStore;
         faults = std::make_unique< Ledger::FaultEngine >( engine );
         return *faults;
      } );
      rig.start();
   }
   void stateStoreFails() { stateStore->faultIs( 0, 1000000 ); }
   void stateStoreWorks() { stateStore->faultDel(); }
   std::string state( const std::string & unit ) { return rig.fact( "units/" + unit, "state" ); }

   std::unique_ptr< Ledger::FaultEngine > stateStore, runtimeStore;
   AgentRig rig;
};

TEST_F( DegradedStory, storeThatCannotBeWrittenIsShownAndRefusesNewEnters ) {
   EXPECT_EQ( 202, rig.post( "units/u1/enter" ) );
   stateStoreFails();
   rig.runUntil( 15 );
   EXPECT_NE( std::string::npos, rig.get( "agent" ).find( "state store" ) ) << rig.get( "agent" );
   EXPECT_EQ( 503, rig.post( "units/u2/enter" ) );
   EXPECT_EQ( "\"normal\"", state( "u2" ) );
}

TEST_F( DegradedStory, storeThatCannotBeWrittenKeepsAUnitFromCompleting ) {
   EXPECT_EQ( 202, rig.post( "units/u1/enter" ) );
   rig.runUntil( 5 );
   stateStoreFails();
   rig.runUntil( 60 );
   EXPECT_EQ( "\"entering\"", state( "u1" ) );
   stateStoreWorks();
   rig.runUntil( 75 );
   EXPECT_EQ( "\"maintenance\"", state( "u1" ) );
}

TEST_F( DegradedStory, storeThatCannotBeWrittenDoesNotKeepLinksFromBeingShutAndReleased ) {
   EXPECT_EQ( 202, rig.post( "units/u1/enter" ) );
   rig.runUntil( 5 );
   stateStoreFails();
   rig.runUntil( 30 );
   EXPECT_EQ( ( std::vector< std::string >{ "et1 down", "et2 down" } ), rig.moves() );
   rig.post( "units/u1/exit" );
   rig.runUntil( 40 );
   EXPECT_EQ( ( std::vector< std::string >{ "et1 down", "et2 down", "et1 up", "et2 up" } ), rig.moves() );
   EXPECT_EQ( "\"normal\"", state( "u1" ) );
}

TEST_F( DegradedStory, storeOfRecordsThatCannotBeWrittenIsShownToo ) {
   EXPECT_EQ( 202, rig.post( "units/u1/enter" ) );
   runtimeStore->faultIs( 0, 1000000 );
   rig.runUntil( 15 );
   EXPECT_NE( std::string::npos, rig.get( "agent" ).find( "runtime store" ) ) << rig.get( "agent" );
   EXPECT_EQ( 503, rig.post( "units/u2/enter" ) );
}

TEST_F( DegradedStory, enterThatIsAnsweredAfterAFailureOfTheStoreIsDurable ) {
   stateStore->faultIs( 0, 1 );
   EXPECT_EQ( 202, rig.post( "units/u1/enter" ) );
   EXPECT_EQ( 1u, stateStore->faults() );
   rig.crash();
   rig.start();
   EXPECT_EQ( "\"entering\"", state( "u1" ) );
}

TEST_F( DegradedStory, noInterfaceDrainsWhileCountersCannotBeRead ) {
   rig.traffic( "et1", 0 );
   EXPECT_EQ( 202, rig.post( "units/u1/enter" ) );
   rig.runUntil( 5 );
   rig.simulation().countersFaultIs( "no counters" );
   rig.runUntil( 60 );
   EXPECT_TRUE( rig.moves().empty() );
   EXPECT_EQ( "\"entering\"", state( "u1" ) );
}

TEST_F( DegradedStory, drainGoesOnWhenCountersCanBeReadAgain ) {
   EXPECT_EQ( 202, rig.post( "units/u1/enter" ) );
   rig.runUntil( 5 );
   rig.simulation().countersFaultIs( "no counters" );
   rig.runUntil( 30 );
   rig.simulation().countersFaultIs( "" );
   rig.runUntil( 50 );
   EXPECT_EQ( "\"maintenance\"", state( "u1" ) );
}

TEST_F( DegradedStory, countersThatCannotBeReadRefuseEntersAfterFifteenSeconds ) {
   EXPECT_EQ( 202, rig.post( "units/u1/enter" ) );
   rig.runUntil( 4 );
   rig.simulation().countersFaultIs( "no counters" );
   rig.runUntil( 14 );
   EXPECT_EQ( std::string::npos, rig.get( "agent" ).find( "no counters" ) );
   rig.runUntil( 25 );
   EXPECT_NE( std::string::npos, rig.get( "agent" ).find( "no counters" ) );
   EXPECT_EQ( 503, rig.post( "units/u2/enter" ) );
}

TEST_F( DegradedStory, restartWithoutCountersMovesNoLink ) {
   EXPECT_EQ( 202, rig.post( "units/u1/enter" ) );
   rig.runUntil( 30 );
   EXPECT_EQ( "\"maintenance\"", state( "u1" ) );
   rig.simulation().countersFaultIs( "no counters" );
   rig.crash();
   rig.start();
   rig.runUntil( 60 );
   EXPECT_EQ( "\"maintenance\"", state( "u1" ) );
   EXPECT_EQ( 503, rig.post( "units/u2/enter" ) );
   rig.simulation().countersFaultIs( "" );
   rig.runUntil( 80 );
   EXPECT_EQ( "\"under-maint\"", rig.fact( "interfaces/et1", "state" ) );
   EXPECT_EQ( ( std::vector< std::string >{ "et1 down", "et2 down" } ), rig.moves() );
}

TEST_F( DegradedStory, countersThatCanBeReadAgainAreNoticedWhenNothingIsSampled ) {
   rig.crash();
   rig.simulation().countersFaultIs( "no counters" );
   rig.start();
   rig.runUntil( 20 );
   EXPECT_EQ( 503, rig.post( "units/u1/enter" ) );
   rig.simulation().countersFaultIs( "" );
   rig.runUntil( 25 );
   EXPECT_EQ( 202, rig.post( "units/u1/enter" ) );
}

TEST_F( DegradedStory, dumpSaysThatNoPluginIsLoadedBeforeCountersCanBeRead ) {
   rig.crash();
   rig.simulation().countersFaultIs( "no counters" );
   rig.start();
   EXPECT_EQ( "no plug-in is loaded yet: no counters\n", rig.get( "dump" ) );
   rig.simulation().countersFaultIs( "" );
   rig.runUntil( 5 );
   EXPECT_EQ( std::string::npos, rig.get( "dump" ).find( "no plug-in" ) );
}

TEST_F( DegradedStory, linkThatCannotBeSetIsShownAndTriedAgain ) {
   rig.simulation().linkSetFaultIs( "not permitted" );
   EXPECT_EQ( 202, rig.post( "units/u1/enter" ) );
   rig.runUntil( 20 );
   EXPECT_TRUE( rig.moves().empty() );
   EXPECT_NE( std::string::npos, rig.get( "agent" ).find( "not permitted" ) );
   rig.simulation().linkSetFaultIs( "" );
   rig.runUntil( 30 );
   EXPECT_EQ( ( std::vector< std::string >{ "et1 down", "et2 down" } ), rig.moves() );
}

TEST_F( DegradedStory, linkThatCannotBeRaisedIsTriedAgainAlsoWhileCountersCannotBeRead ) {
   EXPECT_EQ( 202, rig.post( "units/u1/enter" ) );
   rig.runUntil( 30 );
   EXPECT_EQ( "\"maintenance\"", state( "u1" ) );
   rig.simulation().countersFaultIs( "no counters" );
   rig.simulation().linkSetFaultIs( "not permitted" );
   EXPECT_EQ( 202, rig.post( "units/u1/exit" ) );
   rig.runUntil( 40 );
   EXPECT_EQ( ( std::vector< std::string >{ "et1 down", "et2 down" } ), rig.moves() );
   rig.simulation().linkSetFaultIs( "" );
   rig.runUntil( 50 );
   EXPECT_EQ( ( std::vector< std::string >{ "et1 down", "et2 down", "et1 up", "et2 up" } ), rig.moves() );
   EXPECT_EQ( "\"normal\"", state( "u1" ) );
}

TEST_F( DegradedStory, unitsGoBackWhileTheSwitchIsDegraded ) {
   EXPECT_EQ( 202, rig.post( "units/u1/enter" ) );
   rig.runUntil( 30 );
   EXPECT_EQ( "\"maintenance\"", state( "u1" ) );
   rig.simulation().healthFaultIs( "the kernel does not answer" );
   rig.runUntil( 31 );
   EXPECT_EQ( 503, rig.post( "units/u2/enter" ) );
   EXPECT_EQ( 202, rig.post( "units/u1/exit" ) );
   rig.runUntil( 35 );
   EXPECT_EQ( "\"normal\"", state( "u1" ) );
}

} // namespace
