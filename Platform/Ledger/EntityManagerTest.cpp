#include "Platform/Ledger/LaterQueueTest.h"
#include "Platform/Vel/Dir.h"

#include <gtest/gtest.h>

namespace LedgerTest {

class Lake final : public Vel::Entity {
   VEL_ENTITY( Lake );
   explicit Lake( const Vel::String & name ) : name_( name ) {}
   VEL_PARAM( Vel::String, name );
};

class Stone final : public Vel::Entity {
   VEL_ENTITY( Stone );
   explicit Stone( int weight ) : weight_( weight ) {}
   VEL_PARAM( int, weight );
};

} // namespace LedgerTest

namespace {

using LedgerTest::Lake;
using LedgerTest::Stone;

struct EntityManager : testing::Test {
   Vel::TypeRegistration< Lake > lakeType;
   Vel::TypeRegistration< Stone > stoneType;
   LaterQueue loop;
   Vel::Ptr< Ledger::EntityManager > em = Vel::make< Ledger::EntityManager >( loop.later() );
};

struct Observer {
   struct VelEm final : Vel::ReactorTo< Observer, Ledger::EntityManager > {
      using ReactorTo::ReactorTo;
      void onEntity( const Vel::String & path ) override {
         sm()->log += ( entity()->entity( path ) ? "+" : "-" ) + path + ";";
      }
   };
   explicit Observer( const Vel::Ptr< Ledger::EntityManager > & em ) {
      reactor.is( em, this ).hasNotificationActiveIs( true );
   }
   Vel::Watch< VelEm > reactor;
   Vel::String log;
};

TEST_F( EntityManager, findsWhatNobodyHasMounted ) {
   const auto lake = Vel::make< Lake >( "all" );
   em->entityIs( "interface/status/all", lake );
   EXPECT_EQ( lake.get(), em->getEntity( "interface/status/all" ).get() );
}

TEST_F( EntityManager, givesNullForAnAbsentPath ) {
   em->entityIs( "a/b", Vel::make< Lake >( "b" ) );
   EXPECT_FALSE( em->getEntity( "a" ) );
   EXPECT_FALSE( em->getEntity( "a/b/c" ) );
   EXPECT_FALSE( em->getEntity( "" ) );
}

TEST_F( EntityManager, makesAnEntityByTypeNamedAfterTheLastPartOfItsPath ) {
   const auto made = em->entityIs( "stage/x/Lake7", "LedgerTest::Lake" );
   const auto lake = Vel::ptrCast< Lake >( made );
   ASSERT_TRUE( lake );
   EXPECT_EQ( "Lake7", lake->name() );
   EXPECT_EQ( lake.get(), em->getEntity( "stage/x/Lake7" ).get() );
}

TEST_F( EntityManager, keepsAnEntityOfTheTypeThatIsThere ) {
   const auto lake = Vel::make< Lake >( "other name" );
   em->entityIs( "lake", lake );
   EXPECT_EQ( lake.get(), em->entityIs( "lake", "LedgerTest::Lake" ).get() );
}

TEST_F( EntityManager, refusesToMakeAnotherTypeUnderAPathInUse ) {
   em->entityIs( "lake", Vel::make< Vel::Dir >() );
   try {
      em->entityIs( "lake", "LedgerTest::Lake" );
      FAIL() << "should have thrown";
   } catch ( const Vel::NameInUse & error ) {
      EXPECT_STREQ( "lake is a Vel::Dir, not a LedgerTest::Lake", error.what() );
   }
}

TEST_F( EntityManager, refusesATypeThatIsUnknownOrNeedsMoreThanAName ) {
   EXPECT_THROW( em->entityIs( "a", "LedgerTest::Sea" ), Vel::InternalException );
   EXPECT_THROW( em->entityIs( "a", "LedgerTest::Stone" ), Vel::InternalException );
   EXPECT_FALSE( em->getEntity( "a" ) );
}

TEST_F( EntityManager, refusesMalformedPathsAndNullEntities ) {
   const auto lake = Vel::make< Lake >( "l" );
   for ( const char * path : { "", "/", "/a", "a/", "a//b" } ) {
      SCOPED_TRACE( path );
      EXPECT_THROW( em->entityIs( path, lake ), Vel::RangeError );
      EXPECT_THROW( em->entityIs( path, "LedgerTest::Lake" ), Vel::RangeError );
   }
   EXPECT_THROW( em->entityIs( "a", Vel::Ptr< Vel::Entity >() ), Vel::RangeError );
   EXPECT_EQ( 0u, em->entitys() );
}

TEST_F( EntityManager, replacesAnEntityByADeleteThenAnAdd ) {
   em->entityIs( "a", Vel::make< Lake >( "old" ) );
   Observer observer( em );
   const auto lake = Vel::make< Lake >( "new" );
   em->entityIs( "a", lake );
   EXPECT_EQ( "-a;+a;", observer.log );
   EXPECT_EQ( lake.get(), em->getEntity( "a" ).get() );
}

TEST_F( EntityManager, leavesADeletedEntityToItsHolders ) {
   const auto lake = Vel::make< Lake >( "held" );
   em->entityIs( "a", lake );
   EXPECT_TRUE( em->entityDel( "a" ) );
   EXPECT_FALSE( em->getEntity( "a" ) );
   EXPECT_EQ( "held", lake->name() );
   EXPECT_EQ( 1u, lake->getRefCount() );
   EXPECT_FALSE( em->entityDel( "a" ) );
}

TEST_F( EntityManager, walksInTheOrderOfPaths ) {
   for ( const char * path : { "b", "a/z", "c", "a" } )
      em->entityIs( path, Vel::make< Lake >( path ) );
   Vel::String order;
   for ( const auto & [path, entity] : em->entityRange() )
      order += path + ";";
   EXPECT_EQ( "a;a/z;b;c;", order );
}

TEST_F( EntityManager, refusesAGroupWithoutMounter ) {
   EXPECT_THROW( em->getMountGroup( nullptr ), Vel::RangeError );
}

} // namespace
