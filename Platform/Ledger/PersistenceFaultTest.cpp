#include "Platform/Ledger/PersistenceRigTest.h"

namespace {

using Ledger::FaultEngine;
using StoreTest::Branch;
using StoreTest::otherStatePath;
using StoreTest::Persistence;
using StoreTest::runtimePath;
using StoreTest::statePath;

// Crashes and failures

TEST_F( Persistence, dropsWhatWasNotCommitted ) {
   treeIs( statePath )->titleIs( "oak" );
   treeIs( runtimePath )->ringIs( 1 );
   committed();
   const Vel::String before = text();
   tree( statePath )->titleIs( "ash" );
   tree( statePath )->branchIs( 1 );
   tree( runtimePath )->ringDel( 1 );
   treeIs( otherStatePath );
   restarted();
   EXPECT_EQ( before, text() );
}

TEST_F( Persistence, aFailedCommitSaysWhereAndIsMadeUpForWithoutFurtherChange ) {
   treeIs( statePath )->titleIs( "oak" );
   state.faultIs( 2 );
   EXPECT_EQ( "state store: cannot write: fault of the test", commit().text() );
   committed();
   expectUnchangedByRestart();
   EXPECT_EQ( "oak", tree( statePath )->title() );
}

TEST_F( Persistence, aFailureOfTheStateFolderKeepsTheRuntimeFolderBack ) {
   treeIs( statePath );
   treeIs( runtimePath );
   state.faultIs( 0, 100 );
   EXPECT_FALSE( commit().ok() );
   EXPECT_TRUE( runtimeDisk.records.empty() );
   state.faultDel();
   committed();
   EXPECT_FALSE( runtimeDisk.records.empty() );
}

TEST_F( Persistence, aFailureOfTheRuntimeFolderDoesNotRepeatTheStateFolder ) {
   treeIs( statePath );
   treeIs( runtimePath )->titleIs( "grass" );
   runtime.faultIs( 0 );
   EXPECT_FALSE( commit().ok() );
   countFromHere();
   committed();
   EXPECT_EQ( 0u, state.operations() );
   expectUnchangedByRestart();
   EXPECT_EQ( "grass", tree( runtimePath )->title() );
}

TEST_F( Persistence, changesGoOnWhileCommitsFail ) {
   const auto tree = treeIs( statePath );
   tree->branchIs( 1 )->leafIs( "l" );
   tree->ringIs( 1 );
   committed();
   state.faultIs( 0, 1000 );
   for ( int i = 0; i < 5; ++i ) {
      tree->heightIs( i );
      tree->ringIs( 10 + i );
      tree->ringDel( 9 + i );
      tree->branchIs( 20 + i )->leafIs( "x" );
      tree->branchDel( 19 + i );
      EXPECT_FALSE( commit().ok() );
   }
   tree->branchDel( 1 );
   state.faultDel();
   committed();
   expectUnchangedByRestart();
   EXPECT_EQ( 1u, this->tree( statePath )->branchs() );
}

/// A script with every kind of change, in five turns.
void playTurn( StoreTest::World & world, int turn ) {
   const auto tree = world.treeIs( statePath );
   const auto meadow = world.treeIs( runtimePath );
   tree->stormsInc( 1 );
   tree->ringIs( turn );
   meadow->nestIs( "n", turn );
   Branch * branch = tree->branchIs( turn );
   branch->leafIs( "l" )->spotIs( "s" );
   meadow->branchIs( turn % 2 )->bendsInc( 1 );
   tree->ringDel( turn - 2 );
   tree->branchDel( turn - 1 );
   if ( turn == 3 ) {
      meadow->branchDel( 0 );
      world.process->em->entityDel( otherStatePath );
   } else
      world.treeIs( otherStatePath )->titleIs( Vel::text( "turn ", turn ) );
}
constexpr int turns = 5;

/// Plays the script with one operation failing; commits that fail are repeated in the same turn.
void survivesAFault(
   bool stateFails, unsigned operation, FaultEngine::Commit commit, bool crash, bool & reached ) {
   SCOPED_TRACE( Vel::text( stateFails ? "state" : "runtime", " operation ", operation ) );
   StoreTest::World world;
   ASSERT_TRUE( world.process->persistence.start().ok() );
   FaultEngine & engine = stateFails ? world.state : world.runtime;
   engine.faultIs( operation, 1, commit );
   for ( int turn = 0; turn < turns; ++turn ) {
      const Vel::String stateBefore = world.process->stateText();
      const Vel::String runtimeBefore = world.process->runtimeText();
      playTurn( world, turn );
      const Vel::String stateAfter = world.process->stateText();
      const Vel::String runtimeAfter = world.process->runtimeText();
      if ( world.commit().ok() )
         continue;
      reached = true;
      if ( crash ) {
         // The state folder goes first; the failed one holds the turn only if its commit was done all the
         // same.
         const bool isDone = commit == FaultEngine::Commit::done && engine.faultedCommit();
         ASSERT_TRUE( world.restart().ok() );
         ASSERT_EQ( !stateFails || isDone ? stateAfter : stateBefore, world.process->stateText() );
         ASSERT_EQ( !stateFails && isDone ? runtimeAfter : runtimeBefore, world.process->runtimeText() );
         return;
      }
      ASSERT_TRUE( world.commit().ok() );
   }
   const Vel::String text = world.process->text();
   engine.faultDel();
   ASSERT_TRUE( world.restart().ok() );
   ASSERT_EQ( text, world.process->text() );
}

TEST_F( Persistence, survivesAFaultAtEachOperation ) {
   for ( const bool stateFails : { true, false } )
      for ( const auto commit : { FaultEngine::Commit::undone, FaultEngine::Commit::done } )
         for ( const bool crash : { false, true } ) {
            unsigned operation = 0;
            for ( bool reached = true; reached; ++operation ) {
               reached = false;
               survivesAFault( stateFails, operation, commit, crash, reached );
               if ( HasFatalFailure() )
                  return;
            }
            EXPECT_GT( operation, 30u );
         }
}

TEST_F( Persistence, failsToStartAtAFaultOfEachOperation ) {
   treeIs( statePath );
   treeIs( runtimePath );
   committed();
   for ( FaultEngine * engine : { &state, &runtime } )
      for ( unsigned operation = 0;; ++operation ) {
         SCOPED_TRACE( Vel::text( engine->name(), " operation ", operation ) );
         processIs();
         countFromHere();
         engine->faultIs( operation );
         const Ledger::Status status = process->persistence.start();
         if ( engine->faults() == 0 ) {
            EXPECT_TRUE( status.ok() );
            EXPECT_GT( operation, 3u );
            break;
         }
         EXPECT_NE( Vel::String::npos, status.text().find( engine->name() + ": cannot " ) ) << status.text();
      }
}

TEST_F( Persistence, doesNotBringBackAnEntityOfACommitThatFailedButWasDone ) {
   const auto tree = treeIs( statePath );
   const auto grow = [&] {
      tree->branchIs( 1 )->leafIs( "l" )->spotIs( "s" );
      tree->ringIs( 1 );
      countFromHere();
   };
   const auto cut = [&] {
      tree->branchDel( 1 );
      tree->ringDel( 1 );
   };
   for ( int round = 0; round < 2; ++round ) {
      grow();
      committed();
      cut();
      committed();
   }
   grow();
   committed();
   const unsigned lastOperation = state.operations() - 1;
   cut();
   committed();

   grow();
   state.faultIs( lastOperation, 1, FaultEngine::Commit::done );
   EXPECT_EQ( "state store: cannot commit: fault of the test", commit().text() );
   cut();
   committed();
   expectUnchangedByRestart();
   EXPECT_EQ( 0u, this->tree( statePath )->branchs() );
   EXPECT_EQ( 0u, this->tree( statePath )->rings() );
}

// The two folders together

TEST_F( Persistence, knowsThatTheFoldersFit ) {
   treeIs( statePath );
   committed();
   tree( statePath )->stormsInc( 1 );
   committed();
   restarted();
   EXPECT_EQ( Ledger::Persistence::RuntimeAge::same, process->persistence.runtimeAge() );
}

TEST_F( Persistence, keepsTheStateAndTakesOverRecordsOfAnOlderRuntimeFolder ) {
   treeIs( statePath )->titleIs( "oak" );
   treeIs( runtimePath )->titleIs( "grass" );
   committed();
   tree( statePath )->titleIs( "ash" );
   tree( runtimePath )->titleIs( "moss" );
   runtime.faultIs( 0 );
   EXPECT_FALSE( commit().ok() );
   restarted();
   EXPECT_EQ( Ledger::Persistence::RuntimeAge::older, process->persistence.runtimeAge() );
   EXPECT_EQ( "ash", tree( statePath )->title() );
   EXPECT_EQ( "grass", tree( runtimePath )->title() );
   committed();
   restarted();
   EXPECT_EQ( Ledger::Persistence::RuntimeAge::same, process->persistence.runtimeAge() );
}

TEST_F( Persistence, knowsARuntimeFolderThatIsNewOrFromAnotherLife ) {
   treeIs( statePath );
   committed();
   runtimeDisk.records.clear();
   restarted();
   EXPECT_EQ( Ledger::Persistence::RuntimeAge::older, process->persistence.runtimeAge() );
   committed();
   stateDisk.records.clear();
   restarted();
   EXPECT_EQ( Ledger::Persistence::RuntimeAge::newer, process->persistence.runtimeAge() );
}

} // namespace
