#include "Platform/Ledger/FaultEngine.h"
#include "Tests/Agent/CrashSweepTest.h"

#include <algorithm>
#include <filesystem>

namespace {

using Tests::AgentRig;
using Moves = std::vector< std::string >;

Moves sorted( Moves moves ) {
   std::sort( moves.begin(), moves.end() );
   return moves;
}

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
         if ( diskIsFull && &faults == &stateStore )
            stateStoreIsFull();
         return *faults;
      } );
      rig.start();
   }
   void stateStoreIsFull() {
      stateStore->onlyWritesFail();
      stateStoreFails();
   }
   /// For this agent and the next ones.
   void diskIsFullNow() {
      diskIsFull = true;
      stateStoreIsFull();
   }
   void diskHasRoom() {
      diskIsFull = false;
      stateStoreWorks();
   }
   /// No file can be begun in the runtime folder under its other name.
   std::string unstored() const { return rig.folder() + "/run/unstored"; }
   void fallbackFails() { std::filesystem::create_directory( unstored() + ".new" ); }
   void fallbackWorks() { std::filesystem::remove( unstored() + ".new" ); }
   void stateStoreFails() { stateStore->faultIs( 0, 1000000 ); }
   void stateStoreWorks() { stateStore->faultDel(); }
   std::string state( const std::string & unit ) { return rig.fact( "units/" + unit, "state" ); }

   std::unique_ptr< Ledger::FaultEngine > stateStore, runtimeStore;
   bool diskIsFull = false;
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
   EXPECT_EQ( "\"not permitted\"", rig.fact( "interfaces/et1", "shut-problem" ) );
   rig.simulation().linkSetFaultIs( "" );
   rig.runUntil( 30 );
   EXPECT_EQ( "null", rig.fact( "interfaces/et1", "shut-problem" ) );
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

// ---- an agent that ends while the state store cannot be written

/// A unit is entering, its links have been shut since the disk is full, and the agent is killed.
class KilledOnAFullDisk : public DegradedStory {
 protected:
   KilledOnAFullDisk() {
      EXPECT_TRUE( rig.simulation().addressesIs( "et1", "10.0.1.1/24, 2001:db8:1::1/64" ).ok() );
      EXPECT_EQ( 202, rig.post( "units/u1/enter" ) );
      rig.runUntil( 5 );
      diskIsFullNow();
      rig.runUntil( 30 );
      EXPECT_EQ( down, rig.moves() );
      EXPECT_EQ( "", rig.simulation().addresses( "et1" ) );
      rig.crash();
   }
   void exitBringsBack() {
      const double now = rig.time();
      EXPECT_EQ( 202, rig.post( "units/u1/exit" ) );
      rig.runUntil( now + 10 );
      EXPECT_EQ( "\"normal\"", state( "u1" ) );
      EXPECT_EQ( downAndUp, sorted( rig.moves() ) );
      EXPECT_EQ( "10.0.1.1/24, 2001:db8:1::1/64", rig.simulation().addresses( "et1" ) );
   }
   const Moves down{ "et1 down", "et2 down" }, downAndUp{ "et1 down", "et1 up", "et2 down", "et2 up" };
};

TEST_F( KilledOnAFullDisk, theNextAgentHoldsItsLinksAndBringsThemBackWithTheirAddresses ) {
   diskHasRoom();
   rig.start();
   rig.runUntil( 60 );
   EXPECT_EQ( "true", rig.fact( "interfaces/et1", "shut" ) );
   EXPECT_EQ( "\"maintenance\"", state( "u1" ) );
   EXPECT_EQ( down, rig.moves() );
   EXPECT_FALSE( std::filesystem::exists( unstored() ) );
   exitBringsBack();
}

TEST_F( KilledOnAFullDisk, soDoesTheNextOneWhoseStoreFailsToo ) {
   rig.start();
   rig.runUntil( 60 );
   EXPECT_EQ( "true", rig.fact( "interfaces/et1", "shut" ) );
   EXPECT_NE( std::string::npos, rig.get( "agent" ).find( "state store" ) ) << rig.get( "agent" );
   EXPECT_EQ( "\"entering\"", state( "u1" ) );
   exitBringsBack();
   // And all of that outlives this one.
   rig.crash();
   diskHasRoom();
   rig.start();
   rig.runUntil( 90 );
   EXPECT_EQ( "\"normal\"", state( "u1" ) );
   EXPECT_EQ( downAndUp, sorted( rig.moves() ) );
}

TEST_F( KilledOnAFullDisk, theOneAfterThatOneDoesItWhenThereIsRoomAgain ) {
   rig.start();
   rig.runUntil( 40 );
   rig.crash();
   rig.start();
   rig.runUntil( 50 );
   diskHasRoom();
   rig.runUntil( 70 );
   EXPECT_EQ( "\"maintenance\"", state( "u1" ) );
   rig.crash();
   rig.start();
   EXPECT_EQ( down, rig.moves() );
   exitBringsBack();
}

TEST_F( KilledOnAFullDisk, whatWasLetGoOfBeforeIsNotHeldAgain ) {
   rig.start();
   rig.runUntil( 40 );
   exitBringsBack();
   rig.traffic( "et1", 5e6 );
   rig.crash();
   diskHasRoom();
   rig.start();
   rig.runUntil( 120 );
   EXPECT_EQ( downAndUp, sorted( rig.moves() ) );
   EXPECT_EQ( "\"normal\"", state( "u1" ) );
}

TEST_F( KilledOnAFullDisk, releaseByHandWorksAndOutlivesTheNextKill ) {
   rig.start();
   rig.runUntil( 40 );
   EXPECT_EQ( 202, rig.post( "interfaces/et1/release", R"({"force":true})" ) );
   rig.crash();
   rig.start();
   EXPECT_EQ( "10.0.1.1/24, 2001:db8:1::1/64", rig.simulation().addresses( "et1" ) );
   EXPECT_EQ( "\"up\"", rig.fact( "interfaces/et1", "link-state" ) );
}

TEST_F( KilledOnAFullDisk, releaseAllRaisesThemAlsoWhileTheDiskIsFull ) {
   const auto released = rig.releaseAll();
   EXPECT_EQ( Apps::Released::Outcome::done, released.outcome ) << released.problem;
   EXPECT_EQ( ( Moves{ "et1", "et2" } ), sorted( released.links ) );
   EXPECT_EQ( downAndUp, sorted( rig.moves() ) );
   EXPECT_EQ( "10.0.1.1/24, 2001:db8:1::1/64", rig.simulation().addresses( "et1" ) );
   const auto again = rig.releaseAll();
   EXPECT_EQ( Apps::Released::Outcome::done, again.outcome ) << again.problem;
   EXPECT_TRUE( again.links.empty() );
}

TEST_F( KilledOnAFullDisk, releaseAllSaysWhenItIsWrittenNowhere ) {
   fallbackFails();
   auto released = rig.releaseAll();
   EXPECT_EQ( Apps::Released::Outcome::notKept, released.outcome );
   EXPECT_EQ( downAndUp, sorted( rig.moves() ) ) << "they come back all the same";
   EXPECT_NE( std::string::npos, released.problem.find( "an agent that is started may shut them again" ) )
      << released.problem;
   EXPECT_NE( std::string::npos, released.problem.find( unstored() + ": cannot write: Is a directory" ) )
      << released.problem;
   fallbackWorks();
   released = rig.releaseAll();
   EXPECT_EQ( Apps::Released::Outcome::done, released.outcome ) << released.problem;
   released = rig.releaseAll();
   EXPECT_TRUE( released.links.empty() );
   fallbackFails();
   released = rig.releaseAll();
   EXPECT_EQ( Apps::Released::Outcome::done, released.outcome ) << "nothing is to be written";
}

TEST_F( KilledOnAFullDisk, releaseAllStoresWhatItCanWhenNothingIsHeld ) {
   rig.releaseAll();
   EXPECT_TRUE( std::filesystem::exists( unstored() ) );
   diskHasRoom();
   EXPECT_EQ( Apps::Released::Outcome::done, rig.releaseAll().outcome );
   EXPECT_FALSE( std::filesystem::exists( unstored() ) );
}

TEST_F( KilledOnAFullDisk, aFileOfAnotherStoreKeepsTheAgentFromStartingAndIsLeftAsItIs ) {
   const std::string state = rig.folder() + "/state";
   std::filesystem::rename( state, state + " before" );
   const auto size = std::filesystem::file_size( unstored() );
   EXPECT_EQ( Apps::Released::Outcome::unknown, rig.releaseAll().outcome ) << "there are no links to be held";
   try {
      rig.start();
      FAIL() << "it has started";
   } catch ( const std::exception & error ) {
      EXPECT_NE( std::string::npos, std::string( error.what() ).find( unstored() ) ) << error.what();
      EXPECT_NE( std::string::npos, std::string( error.what() ).find( "another store" ) ) << error.what();
   }
   rig.crash();
   EXPECT_EQ( size, std::filesystem::file_size( unstored() ) );
   std::filesystem::remove_all( state );
   std::filesystem::rename( state + " before", state );
   diskHasRoom();
   rig.start();
   rig.runUntil( 60 );
   EXPECT_EQ( "true", rig.fact( "interfaces/et1", "shut" ) );
   exitBringsBack();
}

TEST_F( KilledOnAFullDisk, aFileThatIsDamagedKeepsTheAgentFromStartingAndIsNamed ) {
   std::filesystem::resize_file( unstored(), std::filesystem::file_size( unstored() ) - 1 );
   try {
      rig.start();
      FAIL() << "it has started";
   } catch ( const std::exception & error ) {
      EXPECT_NE( std::string::npos, std::string( error.what() ).find( unstored() ) ) << error.what();
      EXPECT_NE( std::string::npos, std::string( error.what() ).find( "is damaged" ) ) << error.what();
   }
   rig.crash();
   EXPECT_EQ( Apps::Released::Outcome::unknown, rig.releaseAll().outcome );
}

// ---- neither the state store nor the file can be written

TEST_F( DegradedStory, linksAreNotShutWhileTheirJournalCanBeWrittenNowhere ) {
   EXPECT_EQ( 202, rig.post( "units/u1/enter" ) );
   rig.runUntil( 5 );
   stateStoreFails();
   fallbackFails();
   rig.runUntil( 60 );
   EXPECT_EQ( Moves(), rig.moves() );
   const std::string agent = rig.get( "agent" );
   EXPECT_NE( std::string::npos, agent.find( unstored() + ": cannot write: Is a directory" ) ) << agent;
   EXPECT_NE( std::string::npos, agent.find( "links that are to be shut wait for one of them" ) ) << agent;
}

TEST_F( DegradedStory, theyAreShutWhenTheFileCanBeWritten ) {
   EXPECT_EQ( 202, rig.post( "units/u1/enter" ) );
   rig.runUntil( 5 );
   stateStoreFails();
   fallbackFails();
   rig.runUntil( 60 );
   fallbackWorks();
   rig.runUntil( 62 );
   EXPECT_EQ( ( Moves{ "et1 down", "et2 down" } ), rig.moves() );
   EXPECT_EQ( std::string::npos, rig.get( "agent" ).find( "links that are to be shut wait" ) );
}

TEST_F( DegradedStory, theyAreShutWhenTheStoreCanBeWritten ) {
   EXPECT_EQ( 202, rig.post( "units/u1/enter" ) );
   rig.runUntil( 5 );
   stateStoreFails();
   fallbackFails();
   rig.runUntil( 60 );
   stateStoreWorks();
   rig.runUntil( 62 );
   EXPECT_EQ( ( Moves{ "et1 down", "et2 down" } ), rig.moves() );
}

TEST_F( DegradedStory, aShutdownThatWaitsIsForgottenWithItsUnitsWayBack ) {
   EXPECT_EQ( 202, rig.post( "units/u1/enter" ) );
   rig.runUntil( 5 );
   stateStoreFails();
   fallbackFails();
   rig.runUntil( 60 );
   rig.post( "units/u1/exit" );
   rig.runUntil( 65 );
   stateStoreWorks();
   fallbackWorks();
   rig.runUntil( 100 );
   EXPECT_EQ( Moves(), rig.moves() );
   EXPECT_EQ( "\"normal\"", state( "u1" ) );
   EXPECT_EQ( "\"up\"", rig.fact( "interfaces/et1", "link-state" ) );
}

TEST_F( DegradedStory, linksAreReleasedWhileTheirJournalCanBeWrittenNowhere ) {
   EXPECT_EQ( 202, rig.post( "units/u1/enter" ) );
   rig.runUntil( 40 );
   EXPECT_EQ( "\"maintenance\"", state( "u1" ) );
   stateStoreFails();
   fallbackFails();
   rig.post( "units/u1/exit" );
   rig.runUntil( 45 );
   EXPECT_EQ( ( Moves{ "et1 down", "et2 down", "et1 up", "et2 up" } ), rig.moves() );
}

TEST_F( DegradedStory, anAgentThatIsKilledWhileALinkWaitsToBeShutLeavesItUp ) {
   EXPECT_EQ( 202, rig.post( "units/u1/enter" ) );
   rig.runUntil( 5 );
   stateStoreFails();
   fallbackFails();
   rig.runUntil( 60 );
   rig.crash();
   fallbackWorks();
   rig.start();
   EXPECT_EQ( Moves(), rig.moves() );
   rig.runUntil( 100 );
   EXPECT_EQ( "\"maintenance\"", state( "u1" ) );
}

TEST_F( DegradedStory, aRuntimeFolderThatCannotBeWrittenDoesNotKeepLinksFromBeingShut ) {
   EXPECT_EQ( 202, rig.post( "units/u1/enter" ) );
   rig.runUntil( 5 );
   runtimeStore->faultIs( 0, 1000000 );
   fallbackFails();
   rig.runUntil( 30 );
   EXPECT_EQ( ( Moves{ "et1 down", "et2 down" } ), rig.moves() );
}

// ---- a crash after each turn

/// The disk of the first agent is full from 12 s on, when nothing is shut yet; that of the next one has room from its start
/// on, or from 60 s on.
class FullDiskStory {
 public:
   FullDiskStory()
      : rig( "settle: 5s\n"
             "profiles:\n"
             "  fast: {threshold: 100kbps, load-interval: 10s, shutdown: true}\n"
             "default-profile: fast\n"
             "groups:\n"
             "  uplinks: {interfaces: [et1, et2, pc1]}\n"
             "units:\n"
             "  u1: {groups: [uplinks]}\n" ) {
      rig.storeUsedIs( [this]( Ledger::StoreEngine & engine ) -> Ledger::StoreEngine & {
         if ( !engine.name().starts_with( "state" ) )
            return engine;
         store = std::make_unique< Ledger::FaultEngine >( engine );
         store->onlyWritesFail();
         if ( isFull )
            store->faultIs( 0, 1000000 );
         return *store;
      } );
      EXPECT_TRUE( rig.simulation().addressesIs( "et1", "10.0.1.1/24" ).ok() );
      rig.traffic( "et1", 5e6 );
      rig.at( 2, [this] { rig.post( "units/u1/enter" ); } );
      rig.at( 11, [this] {
         isFull = true;
         store->faultIs( 0, 1000000 );
      } );
      rig.at( 20, [this] { rig.traffic( "et1", 0 ); } );
      rig.at( 60, [this] { room(); } );
      rig.at( 80, [this] { rig.post( "units/u1/exit" ); } );
      rig.start();
   }
   void room() {
      isFull = false;
      store->faultDel();
   }
   static constexpr double end = 100;
   std::unique_ptr< Ledger::FaultEngine > store;
   bool isFull = false;
   AgentRig rig;
};

struct FullDiskCrash {
   AgentRig::Effects effects;
   bool roomAtOnce; ///< the next agent's disk
};
class CrashOnAFullDisk : public testing::TestWithParam< FullDiskCrash > {};

TEST_P( CrashOnAFullDisk, changesNothingAndTheStoryEndsTheSameWay ) {
   std::string seen;
   Tests::CrashSweep< FullDiskStory > sweep;
   sweep.before = [&seen]( FullDiskStory & story, unsigned turn ) {
      seen.clear();
      story.rig.turnHookIs( [&seen, &story, turn] {
         if ( story.rig.turns() == turn )
            seen = story.rig.picture();
      } );
   };
   sweep.down = [roomAtOnce = GetParam().roomAtOnce]( FullDiskStory & story, unsigned ) {
      story.rig.turnHookIs( {} );
      if ( roomAtOnce )
         story.room();
   };
   sweep.back = [&seen]( FullDiskStory & story ) { EXPECT_EQ( seen, story.rig.picture() ); };
   sweep.over = []( FullDiskStory & story ) {
      const Moves expected{ "et1 down", "et1 up", "et2 down", "et2 up", "pc1 down", "pc1 up" };
      EXPECT_EQ( expected, sorted( story.rig.moves() ) );
      EXPECT_GE( story.rig.timeOf( "et1 down" ), 30 ) << "shut while there was traffic";
      EXPECT_GE( story.rig.timeOf( "et2 up" ), 80 );
      EXPECT_EQ( "10.0.1.1/24", story.rig.simulation().addresses( "et1" ) );
      EXPECT_EQ( "\"normal\"", story.rig.fact( "units/u1", "state" ) );
      EXPECT_FALSE( std::filesystem::exists( story.rig.folder() + "/run/unstored" ) );
   };
   sweep.run( GetParam().effects );
}

INSTANTIATE_TEST_SUITE_P(
   DegradedStory, CrashOnAFullDisk,
   testing::Values(
      FullDiskCrash{ AgentRig::Effects::out, true }, FullDiskCrash{ AgentRig::Effects::lost, true },
      FullDiskCrash{ AgentRig::Effects::out, false }, FullDiskCrash{ AgentRig::Effects::lost, false } ),
   []( const auto & crash ) {
      return std::string( crash.param.effects == AgentRig::Effects::out ? "effectsOut" : "effectsLost" ) +
             ( crash.param.roomAtOnce ? "RoomAtOnce" : "RoomLater" );
   } );

} // namespace
