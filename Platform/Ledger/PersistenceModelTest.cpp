#include "Platform/Ledger/StoreWorldTest.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <random>

/// Random edits, commits, failures and crashes: what comes back is what was committed, and what was not is
/// made up for.
namespace {

using StoreTest::Branch;
using StoreTest::Leaf;
using StoreTest::Tree;

class Story {
 public:
   explicit Story( unsigned seed ) : random_( seed ) {}

   void play( int turns ) {
      RC_ASSERT( world_.process->persistence.start().ok() );
      for ( int turn = 0; turn < turns; ++turn ) {
         for ( unsigned edits = pick( 12 ); edits; --edits )
            edit();
         commit();
         if ( pick( 6 ) == 0 )
            crash();
      }
      finish();
   }

 private:
   unsigned pick( unsigned below ) { return random_() % below; }

   void edit() {
      const char * const paths[] = {
         StoreTest::statePath, StoreTest::otherStatePath, StoreTest::runtimePath };
      const char * path = paths[pick( 3 )];
      if ( pick( 25 ) == 0 ) {
         world_.process->em->entityDel( path );
         return;
      }
      editTree( *world_.treeIs( path ) );
   }

   void editTree( Tree & tree ) {
      const int key = static_cast< int >( pick( 5 ) );
      switch ( pick( 9 ) ) {
      case 0:
         return tree.titleIs( Vel::String( pick( 4 ), 't' ) );
      case 1:
         return tree.stormsInc( 1 );
      case 2:
         return tree.sapIs( pick( 100 ) );
      case 3:
         return tree.nestIs( Vel::text( key ), pick( 3 ) );
      case 4:
         tree.nestDel( pick( 8 ) ? Vel::text( key ) : Vel::String( 600, 'k' ) );
         return;
      case 5:
         return tree.ringIs( key );
      case 6:
         tree.ringDel( key );
         return;
      case 7:
         return tree.nestIs( Vel::String( 600, 'k' ), pick( 3 ) );
      default:
         editChildren( tree, key );
      }
   }

   /// Of a tree or a branch: adds, changes, removes, takes one out that is put back somewhere else later.
   template < class Parent >
   void editChildren( Parent & parent, int key ) {
      const Vel::Ptr< Parent > held( &parent ); // it may be the one that is out, and another takes its place
      switch ( pick( 6 ) ) {
      case 0:
         parent.branchDel( key );
         return;
      case 1:
         if ( Branch * branch = parent.branch( key ) ) {
            out_ = branch;
            parent.branchDel( key );
         }
         return;
      case 2:
         // Not into itself, nor below itself.
         if ( out_ && !out_->velChanges() && parent.velChanges() ) {
            parent.branchPut( key, out_ );
            out_ = nullptr;
         }
         return;
      case 3:
         if ( out_ )
            editBranch( *out_ );
         return;
      default:
         editBranch( *parent.branchIs( key ) );
      }
   }

   void editBranch( Branch & branch ) {
      const int key = static_cast< int >( pick( 3 ) );
      const Vel::String name = Vel::text( "l", key );
      switch ( pick( 6 ) ) {
      case 0:
         return branch.bendsInc( 1 );
      case 1:
         branch.leafDel( name );
         return;
      case 2:
         return branch.leafIs( name, pick( 100 ) )->speedIs( pick( 3 ) );
      case 3:
         return branch.leafIs( name )->spotIs( Vel::text( pick( 3 ) ) );
      case 4:
         if ( Leaf * leaf = branch.leaf( name ) )
            leaf->spotDel( Vel::text( pick( 3 ) ) );
         return;
      default:
         editChildren( branch, key );
      }
   }

   void commit() {
      const bool fails = pick( 4 ) == 0;
      if ( fails ) {
         Ledger::FaultEngine & engine = pick( 2 ) ? world_.state : world_.runtime;
         engine.faultIs(
            pick( 15 ), 1 + pick( 3 ),
            pick( 2 ) ? Ledger::FaultEngine::Commit::done : Ledger::FaultEngine::Commit::undone );
      }
      const bool committed = world_.commit().ok();
      world_.state.faultDel();
      world_.runtime.faultDel();
      RC_ASSERT( committed || fails );
      if ( committed ) {
         stateTexts_.clear();
         runtimeTexts_.clear();
      }
      stateTexts_.push_back( world_.process->stateText() );
      runtimeTexts_.push_back( world_.process->runtimeText() );
   }

   void crash() {
      out_ = nullptr;
      RC_ASSERT( world_.restart().ok() );
      came( world_.process->stateText(), stateTexts_ );
      came( world_.process->runtimeText(), runtimeTexts_ );
   }

   static void came( const Vel::String & text, std::vector< Vel::String > & texts ) {
      RC_ASSERT( std::count( texts.begin(), texts.end(), text ) );
      texts = { text };
   }

   void finish() {
      const Vel::String text = world_.process->text();
      RC_ASSERT( world_.commit().ok() );
      RC_ASSERT( world_.restart().ok() );
      RC_ASSERT( text == world_.process->text() );
   }

   std::mt19937 random_;
   StoreTest::World world_;
   Vel::Ptr< Branch > out_; ///< taken out of its collection
   /// What each folder may hold: that of the last commit that succeeded, and of those that have failed since.
   std::vector< Vel::String > stateTexts_{ "" }, runtimeTexts_{ "" };
};

RC_GTEST_PROP( PersistenceModel, bringsBackWhatWasCommitted, ( unsigned seed ) ) { Story( seed ).play( 60 ); }

} // namespace
