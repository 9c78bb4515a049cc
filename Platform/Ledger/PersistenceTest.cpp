#include "Platform/Ledger/PersistenceRigTest.h"

#include <algorithm>

namespace {

using StoreTest::Branch;
using StoreTest::Leaf;
using StoreTest::otherStatePath;
using StoreTest::Persistence;
using StoreTest::runtimePath;
using StoreTest::statePath;
using StoreTest::Tree;

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

/// The record of the store's id; empty if it has none.
Vel::String idOn( const Ledger::MemoryDisk & disk ) {
   const auto record = disk.records.find( Vel::String( std::string_view( Ledger::RecordKey::storeId() ) ) );
   return record == disk.records.end() ? Vel::String() : record->second;
}

TEST_F( Persistence, aStateStoreHasAnIdOfItsOwnFromItsFirstCommitOn ) {
   EXPECT_EQ( "", idOn( stateDisk ) );
   treeIs( statePath );
   committed();
   const Vel::String id = idOn( stateDisk );
   EXPECT_EQ( Ledger::storeIdSize, id.size() );
   EXPECT_EQ( "", idOn( runtimeDisk ) );
   treeIs( statePath )->titleIs( "oak" );
   committed();
   restarted();
   treeIs( statePath )->titleIs( "ash" );
   committed();
   EXPECT_EQ( id, idOn( stateDisk ) );
   stateDisk.records.clear();
   restarted();
   treeIs( statePath );
   committed();
   EXPECT_EQ( id.size(), idOn( stateDisk ).size() );
   EXPECT_NE( id, idOn( stateDisk ) );
}

TEST_F( Persistence, aStateStoreOfAnEarlierVersionGetsAnIdWithItsNextCommit ) {
   treeIs( statePath )->titleIs( "oak" );
   committed();
   stateDisk.records.erase( Vel::String( std::string_view( Ledger::RecordKey::storeId() ) ) );
   expectUnchangedByRestart();
   committed();
   EXPECT_EQ( "", idOn( stateDisk ) ) << "nothing has changed";
   treeIs( statePath )->titleIs( "ash" );
   state.faultIs( 3 );
   EXPECT_FALSE( commit().ok() );
   committed();
   EXPECT_EQ( Ledger::storeIdSize, idOn( stateDisk ).size() );
   expectUnchangedByRestart();
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
