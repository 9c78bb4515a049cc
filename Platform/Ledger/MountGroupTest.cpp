#include "Platform/Ledger/MountGroup.h"
#include "Platform/Ledger/LaterQueueTest.h"
#include "Platform/Vel/Dir.h"

#include <gtest/gtest.h>

namespace LedgerTest {

class Peak final : public Vel::Entity {
   VEL_ENTITY( Peak );
   explicit Peak( const Vel::String & name ) : name_( name ) {}
   VEL_PARAM( Vel::String, name );
};

class Climber final : public Ledger::Mounter {
   VEL_ENTITY( Climber );
   explicit Climber( const Vel::String & name ) : Mounter( name ) {}
   void doMountsComplete(
      Ledger::MountStatus mountStatus, const Vel::Ptr< Ledger::EntityManager > & entityManager ) override {
      statuses.push_back( mountStatus );
      manager = entityManager.get();
      if ( onComplete )
         onComplete();
   }
   std::vector< Ledger::MountStatus > statuses;
   Ledger::EntityManager * manager = nullptr;
   std::function< void() > onComplete;
};

} // namespace LedgerTest

namespace {

using Ledger::Mount;
using LedgerTest::Climber;
using LedgerTest::Peak;

struct MountGroup : testing::Test {
   Vel::TypeRegistration< Peak > peakType;
   LaterQueue loop;
   Vel::Ptr< Ledger::EntityManager > em = Vel::make< Ledger::EntityManager >( loop.later() );
   Vel::Ptr< Climber > climber = Vel::make< Climber >( "climber" );

   /// The status that a group of these mounts ends with.
   Ledger::MountStatus mounted( const std::vector< Mount > & mounts ) {
      climber->statuses.clear();
      const auto group = em->getMountGroup( climber );
      for ( const Mount & mount : mounts )
         group->doMount( mount );
      group->doClose( false, "", 0.0 );
      loop.turn();
      if ( climber->statuses.size() != 1 ) {
         ADD_FAILURE() << climber->statuses.size() << " completions";
         return Ledger::MountStatus::failure( "none" );
      }
      return climber->statuses[0];
   }
};

TEST_F( MountGroup, tellsCompletionFromTheLoopAndNotInsideDoClose ) {
   const auto group = em->getMountGroup( climber );
   group->doMount( { "peak", "LedgerTest::Peak", "wc" } );
   group->doClose( false, "", 0.0 );
   EXPECT_TRUE( climber->statuses.empty() );
   EXPECT_FALSE( em->getEntity( "peak" ) );
   loop.turn();
   ASSERT_EQ( 1u, climber->statuses.size() );
   EXPECT_TRUE( climber->statuses[0] == Ledger::mountSuccess_ );
   EXPECT_EQ( em.get(), climber->manager );
}

TEST_F( MountGroup, tellsCompletionOnce ) {
   EXPECT_TRUE( mounted( {} ).ok() );
   loop.turn();
   EXPECT_EQ( 1u, climber->statuses.size() );
   EXPECT_TRUE( loop.empty() );
}

TEST_F( MountGroup, tellsNothingBeforeItIsClosed ) {
   const auto group = em->getMountGroup( climber );
   group->doMount( { "peak", "LedgerTest::Peak", "wc" } );
   loop.turn();
   EXPECT_TRUE( climber->statuses.empty() );
}

TEST_F( MountGroup, livesUntilCompletionWithoutItsMaker ) {
   em->getMountGroup( climber )->doClose( false, "", 0.0 );
   loop.turn();
   EXPECT_EQ( 1u, climber->statuses.size() );
}

TEST_F( MountGroup, eachGroupOfAMounterReports ) {
   const auto first = em->getMountGroup( climber );
   const auto second = em->getMountGroup( climber );
   second->doMount( { "peak", "LedgerTest::Peak", "x" } );
   second->doClose( false, "", 0.0 );
   first->doClose( false, "", 0.0 );
   loop.turn();
   ASSERT_EQ( 2u, climber->statuses.size() );
   EXPECT_FALSE( climber->statuses[0].ok() );
   EXPECT_TRUE( climber->statuses[1].ok() );
}

TEST_F( MountGroup, acceptsEachModeForAnEntityThatIsThere ) {
   const auto peak = Vel::make< Peak >( "p" );
   em->entityIs( "peak", peak );
   for ( const char * mode : { "r", "w", "wc", "ri" } ) {
      SCOPED_TRACE( mode );
      EXPECT_EQ( "", mounted( { { "peak", "LedgerTest::Peak", mode } } ).text() );
      EXPECT_EQ( peak.get(), em->getEntity( "peak" ).get() );
   }
}

TEST_F( MountGroup, createsAnAbsentEntityOnlyWithTheModeThatSaysSo ) {
   const std::pair< const char *, bool > rows[] = {
      { "r", false }, { "w", false }, { "wc", true }, { "ri", false } };
   for ( const auto & [mode, created] : rows ) {
      SCOPED_TRACE( mode );
      EXPECT_EQ( "", mounted( { { "peak", "LedgerTest::Peak", mode } } ).text() );
      EXPECT_EQ( created, static_cast< bool >( em->getEntity( "peak" ) ) );
      em->entityDel( "peak" );
   }
}

TEST_F( MountGroup, acceptsTheSamePathTwice ) {
   EXPECT_EQ(
      "", mounted( { { "peak", "LedgerTest::Peak", "wc" }, { "peak", "LedgerTest::Peak", "r" } } ).text() );
   EXPECT_EQ( 1u, em->entitys() );
}

TEST_F( MountGroup, namesEachMountThatFailsAndWhy ) {
   em->entityIs( "dir", Vel::make< Vel::Dir >() );
   const Ledger::MountStatus status = mounted( {
      { "dir", "LedgerTest::Peak", "r" },
      { "peak", "LedgerTest::Peak", "wc" },
      { "sea", "LedgerTest::Sea", "wc" },
      { "peak", "LedgerTest::Peak", "rw" },
      { "a//b", "LedgerTest::Peak", "r" },
   } );
   EXPECT_FALSE( status == Ledger::mountSuccess_ );
   EXPECT_EQ(
      "dir is a Vel::Dir, not a LedgerTest::Peak; sea: unknown type LedgerTest::Sea; "
      "peak: unknown mode \"rw\"; \"a//b\" is not a path of the state store",
      status.text() );
   EXPECT_TRUE( em->getEntity( "peak" ) ) << "the mounts that fit are done all the same";
}

TEST_F( MountGroup, dropsTheCompletionOfADestroyedMounter ) {
   const auto group = em->getMountGroup( climber );
   group->doMount( { "peak", "LedgerTest::Peak", "wc" } );
   group->doClose( false, "", 0.0 );
   climber = nullptr;
   loop.turn();
   EXPECT_FALSE( em->getEntity( "peak" ) ) << "nobody asks for it any more";
   EXPECT_TRUE( loop.empty() );
}

TEST_F( MountGroup, mayBeClosedAfterItsMounterIsDestroyed ) {
   const auto group = em->getMountGroup( climber );
   climber = nullptr;
   group->doClose( false, "", 0.0 );
   EXPECT_TRUE( loop.empty() );
}

TEST_F( MountGroup, isForgottenByTheMounterWhenItIsDroppedUnclosed ) {
   em->getMountGroup( climber );
   climber = nullptr;
}

TEST_F( MountGroup, mounterMayLoseItsLastHolderInsideCompletion ) {
   bool gone = false;
   climber->onComplete = [&] {
      climber = nullptr;
      gone = true;
   };
   em->getMountGroup( climber )->doClose( false, "", 0.0 );
   loop.turn();
   EXPECT_TRUE( gone );
}

TEST_F( MountGroup, mounterMayMountAgainInsideCompletion ) {
   bool again = false;
   climber->onComplete = [&] {
      if ( !std::exchange( again, true ) )
         em->getMountGroup( climber )->doClose( false, "", 0.0 );
   };
   em->getMountGroup( climber )->doClose( false, "", 0.0 );
   loop.turn();
   EXPECT_EQ( 1u, climber->statuses.size() );
   loop.turn();
   EXPECT_EQ( 2u, climber->statuses.size() );
}

TEST_F( MountGroup, holdsNothingAfterCompletion ) {
   EXPECT_TRUE( mounted( { { "peak", "LedgerTest::Peak", "wc" } } ).ok() );
   EXPECT_EQ( 1u, climber->getRefCount() );
   EXPECT_EQ( 1u, em->getRefCount() );
}

TEST_F( MountGroup, assertsItsOrderOfUse ) {
   Vel::AssertionsThrow assertionsThrow;
   const auto group = em->getMountGroup( climber );
   EXPECT_THROW( group->doClose( true, "", 0.0 ), Vel::AssertionFailed );
   group->doClose( false, "", 0.0 );
   EXPECT_THROW( group->doMount( { "a", "LedgerTest::Peak", "r" } ), Vel::AssertionFailed );
   EXPECT_THROW( group->doClose( false, "", 0.0 ), Vel::AssertionFailed );
}

} // namespace
