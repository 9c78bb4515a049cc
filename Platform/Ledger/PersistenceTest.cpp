#include "Platform/Ledger/StoreWorldTest.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

using Ledger::FaultEngine;
using StoreTest::Branch;
using StoreTest::Leaf;
using StoreTest::otherStatePath;
using StoreTest::runtimePath;
using StoreTest::statePath;
using StoreTest::Tree;

struct Persistence : testing::Test, StoreTest::World {
   Persistence() { expectOk( process->persistence.start() ); }
   static void expectOk( const Ledger::Status & status ) { EXPECT_EQ( "", status.text() ); }
   void committed() { expectOk( commit() ); }
   void restarted() { expectOk( restart() ); }
   Vel::String text() const { return process->text(); }
   /// The operations of one commit, by engine.
   void countFromHere() {
      state.faultDel();
      runtime.faultDel();
   }
   void expectUnchangedByRestart() {
      const Vel::String before = text();
      restarted();
      EXPECT_EQ( before, text() );
   }
};

/// What a commit does besides writing what has changed: begin, header, commit.
constexpr unsigned overhead = 3;

// What comes back

TEST_F( Persistence, keepsEveryKindOfAttribute ) {
   const auto tree = treeIs( statePath );
   tree->titleIs( "oak" );
   tree->heightIs( 3.5 );
   tree->greenIs( true );
   tree->stormsInc( 7 );
   tree->nestIs( "low", 1.5 );
   tree->nestIs( "", -2 );
   tree->ringIs( -1 );
   tree->ringIs( 300 );
   committed();
   restarted();
   EXPECT_EQ(
      "{name=a;title=oak;height=3.5;green=1;storms=7;nest=:-2,low:1.5,;ring=-1,300,;branch=;}",
      StoreTest::textOf( *this->tree( statePath ) ) );
}

TEST_F( Persistence, keepsChildrenOfChildren ) {
   Branch * branch = treeIs( statePath )->branchIs( 1 );
   branch->bendsInc( 2 );
   branch->branchIs( 4 )->branchIs( 5 )->leafIs( "tip" )->spotIs( "red" );
   branch->leafIs( "low" )->speedIs( 0.5 );
   committed();
   expectUnchangedByRestart();
   EXPECT_TRUE( tree( statePath )->branch( 1 )->branch( 4 )->branch( 5 )->leaf( "tip" )->spot( "red" ) );
}

TEST_F( Persistence, keepsConstructorParametersThatAreNoPartOfTheKey ) {
   treeIs( statePath )->branchIs( 1 )->leafIs( "l", 1999u );
   committed();
   restarted();
   EXPECT_EQ( 1999u, tree( statePath )->branch( 1 )->leaf( "l" )->born() );
}

TEST_F( Persistence, keepsBothFolders ) {
   treeIs( statePath )->titleIs( "oak" );
   treeIs( otherStatePath )->titleIs( "ash" );
   treeIs( runtimePath )->titleIs( "grass" );
   committed();
   expectUnchangedByRestart();
   EXPECT_EQ( "grass", tree( runtimePath )->title() );
}

TEST_F( Persistence, leavesOtherPathsAlone ) {
   treeIs( "garden" )->titleIs( "rose" );
   committed();
   restarted();
   EXPECT_FALSE( tree( "garden" ) );
}

TEST_F( Persistence, keepsWhatAnEntityHeldBeforeItCameToItsPath ) {
   const auto tree = Vel::make< Tree >( "a" );
   tree->titleIs( "oak" );
   tree->ringIs( 4 );
   tree->branchIs( 2 )->leafIs( "l" )->spotIs( "s" );
   process->em->entityIs( statePath, tree );
   committed();
   expectUnchangedByRestart();
   EXPECT_TRUE( this->tree( statePath )->branch( 2 )->leaf( "l" )->spot( "s" ) );
}

TEST_F( Persistence, doesNotKeepPointers ) {
   const auto tree = treeIs( statePath );
   tree->bestIs( Vel::make< Leaf >( "best" ) );
   committed();
   restarted();
   EXPECT_FALSE( this->tree( statePath )->best() );
}

TEST_F( Persistence, keepsKeysThatAreLongerThanAKeyOfTheEngine ) {
   const Vel::String longName( 2000, 'x' );
   const auto tree = treeIs( statePath );
   tree->nestIs( longName, 1 );
   tree->nestIs( longName + "y", 2 );
   tree->branchIs( 1 )->leafIs( longName )->spotIs( longName );
   committed();
   expectUnchangedByRestart();
   ASSERT_TRUE( this->tree( statePath )->nest( longName + "y" ) );
   EXPECT_EQ( 2, *this->tree( statePath )->nest( longName + "y" ) );
   this->tree( statePath )->nestDel( longName );
   committed();
   expectUnchangedByRestart();
   EXPECT_FALSE( this->tree( statePath )->nest( longName ) );
}

TEST_F( Persistence, tellsReactorsOfPathsOnly ) {
   treeIs( statePath )->branchIs( 1 );
   committed();
   struct Observer {
      struct VelEm final : Vel::ReactorTo< Observer, Ledger::EntityManager > {
         using ReactorTo::ReactorTo;
         void onEntity( const Vel::String & path ) override { sm()->log += path + ";"; }
      };
      Vel::Watch< VelEm > em;
      Vel::String log;
   } observer;
   processIs();
   observer.em.is( process->em, &observer ).hasNotificationActiveIs( true );
   expectOk( process->persistence.start() );
   EXPECT_EQ( "forest/a;", observer.log );
}

TEST_F( Persistence, followsTheSameEntityThroughManyTurns ) {
   for ( int turn = 0; turn < 20; ++turn ) {
      const auto tree = treeIs( statePath );
      tree->stormsInc( 1 );
      tree->ringIs( turn );
      tree->ringDel( turn - 3 );
      if ( turn % 4 == 0 )
         tree->branchIs( turn )->leafIs( "l" );
      committed();
      if ( turn % 5 == 4 )
         expectUnchangedByRestart();
   }
   EXPECT_EQ( 20u, tree( statePath )->storms() );
   EXPECT_EQ( 3u, tree( statePath )->rings() );
}

// What is gone

TEST_F( Persistence, deletesRemovedKeys ) {
   const auto tree = treeIs( statePath );
   tree->nestIs( "n", 1 );
   tree->ringIs( 1 );
   tree->ringIs( 2 );
   committed();
   tree->nestDel( "n" );
   tree->ringDel( 1 );
   committed();
   expectUnchangedByRestart();
   EXPECT_EQ( 0u, this->tree( statePath )->nests() );
   EXPECT_EQ( 1u, this->tree( statePath )->rings() );
}

TEST_F( Persistence, deletesASubtreeToItsLastRecord ) {
   const auto records = [&] {
      return std::count_if( stateDisk.records.begin(), stateDisk.records.end(), []( const auto & record ) {
         return record.first[0] != 'N';
      } );
   };
   const auto tree = treeIs( statePath );
   committed();
   const auto before = records();
   tree->branchIs( 1 )->leafIs( "l" )->spotIs( "s" );
   tree->branch( 1 )->leaf( "l" )->spotIs( Vel::String( 1000, 's' ) );
   tree->branch( 1 )->branchIs( 2 )->leafIs( "m" );
   committed();
   EXPECT_EQ( before + 4 * 2 + 2, records() );
   tree->branchDel( 1 );
   committed();
   EXPECT_EQ( before, records() );
   expectUnchangedByRestart();
}

TEST_F( Persistence, deletesAPath ) {
   treeIs( statePath )->branchIs( 1 );
   treeIs( otherStatePath );
   committed();
   process->em->entityDel( statePath );
   committed();
   restarted();
   EXPECT_FALSE( tree( statePath ) );
   EXPECT_TRUE( tree( otherStatePath ) );
}

TEST_F( Persistence, doesNotKeepAnEntityThatLeftItsCollectionAndIsWritten ) {
   const auto tree = treeIs( statePath );
   const Vel::Ptr< Branch > branch( tree->branchIs( 1 ) );
   const Vel::Ptr< Leaf > leaf( branch->leafIs( "l" ) );
   committed();
   tree->branchDel( 1 );
   branch->bendsInc( 1 );
   leaf->speedIs( 9 );
   leaf->spotIs( "s" );
   branch->leafIs( "late" );
   committed();
   leaf->speedIs( 10 );
   branch->leafDel( "l" );
   committed();
   expectUnchangedByRestart();
   EXPECT_EQ( 0u, this->tree( statePath )->branchs() );
}

TEST_F( Persistence, keepsAnEntityThatLeftAndCameBack ) {
   const auto tree = treeIs( statePath );
   const Vel::Ptr< Branch > branch( tree->branchIs( 1 ) );
   branch->leafIs( "l" );
   committed();
   tree->branchDel( 1 );
   branch->bendsInc( 3 );
   tree->branchPut( 2, branch );
   committed();
   expectUnchangedByRestart();
   EXPECT_EQ( 3u, this->tree( statePath )->branch( 2 )->bends() );
   EXPECT_TRUE( this->tree( statePath )->branch( 2 )->leaf( "l" ) );
}

TEST_F( Persistence, keepsTheSuccessorUnderAKey ) {
   const auto tree = treeIs( statePath );
   tree->branchIs( 1 )->leafIs( "old" );
   committed();
   tree->branchPut( 1, Vel::make< Branch >( 1 ) );
   tree->branch( 1 )->leafIs( "new" );
   committed();
   expectUnchangedByRestart();
   EXPECT_FALSE( this->tree( statePath )->branch( 1 )->leaf( "old" ) );
}

TEST_F( Persistence, movesAnEntityBetweenFolders ) {
   const auto tree = treeIs( statePath );
   tree->titleIs( "oak" );
   committed();
   process->em->entityDel( statePath );
   process->em->entityIs( runtimePath, tree );
   committed();
   expectUnchangedByRestart();
   EXPECT_EQ( "oak", this->tree( runtimePath )->title() );
}

TEST_F( Persistence, assertsThatAnEntityHasOneParent ) {
   Vel::AssertionsThrow assertionsThrow;
   const auto tree = treeIs( statePath );
   const Vel::Ptr< Branch > branch( tree->branchIs( 1 ) );
   EXPECT_THROW( tree->branchPut( 2, branch ), Vel::AssertionFailed );
}

// Only what has changed is written

TEST_F( Persistence, writesNothingWhenNothingHasChanged ) {
   for ( const char * path : { statePath, runtimePath } ) {
      treeIs( path )->branchIs( 1 );
      committed();
      treeIs( path )->titleIs( "oak" );
      treeIs( path )->ringIs( 1 );
      treeIs( path )->branchDel( 1 );
      committed();
   }
   countFromHere();
   committed();
   EXPECT_EQ( 0u, state.operations() );
   EXPECT_EQ( 0u, runtime.operations() );
}

TEST_F( Persistence, leavesNothingToWriteAfterAStart ) {
   treeIs( statePath )->branchIs( 1 )->leafIs( "l" )->spotIs( "s" );
   treeIs( runtimePath )->ringIs( 1 );
   committed();
   restarted();
   countFromHere();
   committed();
   EXPECT_EQ( 0u, state.operations() );
   EXPECT_EQ( 0u, runtime.operations() );
}

TEST_F( Persistence, writesOneRecordForManyWritesOfAttributes ) {
   treeIs( runtimePath );
   committed();
   for ( int turn = 0; turn < 3; ++turn ) {
      countFromHere();
      for ( int i = 0; i < 100; ++i ) {
         tree( runtimePath )->heightIs( i );
         tree( runtimePath )->stormsInc( 1 );
      }
      committed();
      EXPECT_EQ( overhead + 1, runtime.operations() );
      EXPECT_EQ( 0u, state.operations() );
   }
}

TEST_F( Persistence, aBigSetCostsItsChangedKeysOnly ) {
   const auto tree = treeIs( runtimePath );
   for ( int i = 0; i < 10000; ++i )
      tree->ringIs( i );
   committed();
   countFromHere();
   tree->ringIs( 10000 );
   tree->ringDel( 5 );
   tree->ringDel( 6 );
   tree->ringIs( 6 );
   committed();
   EXPECT_EQ( overhead + 3, runtime.operations() );
   expectUnchangedByRestart();
}

TEST_F( Persistence, aKeyThatCameAndWentInATurnIsWrittenOnce ) {
   const auto tree = treeIs( runtimePath );
   committed();
   countFromHere();
   for ( int i = 0; i < 100; ++i ) {
      tree->ringIs( 1 );
      tree->ringDel( 1 );
   }
   committed();
   EXPECT_EQ( overhead + 1, runtime.operations() );
}

TEST_F( Persistence, doesNotTouchTheStateFolderForAChildThatCameAndWentInATurn ) {
   const auto tree = treeIs( statePath );
   committed();
   countFromHere();
   tree->branchIs( 1 )->leafIs( "l" );
   tree->branchDel( 1 );
   committed();
   EXPECT_EQ( 0u, state.operations() );
   expectUnchangedByRestart();
}

TEST_F( Persistence, doesNotTouchTheStateFolderForWhatIsLeftOut ) {
   const auto tree = treeIs( statePath );
   tree->sapIs( 1 );
   committed();
   for ( int i = 2; i < 5; ++i ) {
      countFromHere();
      tree->sapIs( i );
      committed();
      EXPECT_EQ( 0u, state.operations() );
   }
   tree->titleIs( "oak" );
   committed();
   expectUnchangedByRestart();
   EXPECT_EQ( 0, this->tree( statePath )->sap() );
}

TEST_F( Persistence, writesWhatIsKeptOfAnEntityThatLeavesAttributesOut ) {
   const auto tree = treeIs( statePath );
   committed();
   tree->sapIs( 1 );
   tree->heightIs( 2 );
   committed();
   tree->heightIs( 3 );
   committed();
   expectUnchangedByRestart();
   EXPECT_EQ( 3, this->tree( statePath )->height() );
}

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

// Documents

TEST_F( Persistence, keepsDocuments ) {
   Ledger::Persistence & before = process->persistence;
   before.documentIs( "configuration", "version: 1\n" );
   before.documentIs( "journal/et1", Vel::String( "\0\xff", 2 ) );
   before.documentIs( "journal/et2", "x" );
   committed();
   before.documentDel( "journal/et2" );
   before.documentIs( "journal/et1", "" );
   committed();
   before.documentIs( "lost", "not committed" );
   restarted();
   const Ledger::Persistence & after = process->persistence;
   EXPECT_EQ( 2u, after.documents().size() );
   ASSERT_TRUE( after.document( "configuration" ) );
   EXPECT_EQ( "version: 1\n", *after.document( "configuration" ) );
   ASSERT_TRUE( after.document( "journal/et1" ) );
   EXPECT_EQ( "", *after.document( "journal/et1" ) );
}

TEST_F( Persistence, writesADocumentOnlyWhenItsBytesChange ) {
   process->persistence.documentIs( "d", "1" );
   committed();
   countFromHere();
   process->persistence.documentIs( "d", "1" );
   EXPECT_FALSE( process->persistence.documentDel( "absent" ) );
   committed();
   EXPECT_EQ( 0u, state.operations() );
   process->persistence.documentIs( "d", "2" );
   committed();
   EXPECT_EQ( overhead + 1, state.operations() );
}

TEST_F( Persistence, keepsADocumentToBeWrittenWhileCommitsFail ) {
   process->persistence.documentIs( "d", "1" );
   state.faultIs( 0 );
   EXPECT_FALSE( commit().ok() );
   committed();
   restarted();
   EXPECT_TRUE( process->persistence.document( "d" ) );
}

TEST_F( Persistence, refusesADocumentWhoseNameDoesNotFit ) {
   EXPECT_THROW( process->persistence.documentIs( "", "x" ), Vel::RangeError );
   EXPECT_THROW( process->persistence.documentIs( Vel::String( 511, 'x' ), "x" ), Vel::RangeError );
   process->persistence.documentIs( Vel::String( 510, 'x' ), "x" );
   committed();
   restarted();
   EXPECT_TRUE( process->persistence.document( Vel::String( 510, 'x' ) ) );
}

// Lifetime

TEST_F( Persistence, entitiesOutliveIt ) {
   const auto tree = treeIs( statePath );
   const Vel::Ptr< Leaf > leaf( tree->branchIs( 1 )->leafIs( "l" ) );
   committed();
   process = nullptr;
   tree->titleIs( "oak" );
   tree->branchIs( 2 );
   leaf->spotIs( "s" );
   EXPECT_FALSE( leaf->velChanges() );
   tree->branchDelAll();
}

TEST_F( Persistence, assertsItsOrderOfUse ) {
   Vel::AssertionsThrow assertionsThrow;
   EXPECT_THROW( static_cast< void >( process->persistence.start() ), Vel::AssertionFailed );
   processIs();
   EXPECT_THROW( static_cast< void >( commit() ), Vel::AssertionFailed );
   treeIs( statePath );
   EXPECT_THROW( static_cast< void >( process->persistence.start() ), Vel::AssertionFailed );
}

} // namespace
