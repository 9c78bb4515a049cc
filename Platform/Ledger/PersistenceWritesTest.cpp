#include "Platform/Ledger/PersistenceRigTest.h"

/// Only what has changed is written.
namespace {

using StoreTest::Persistence;
using StoreTest::runtimePath;
using StoreTest::statePath;

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

} // namespace
