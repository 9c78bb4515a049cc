#include "MaintenancePlugin/UnitIntfInput.h"

#include <gtest/gtest.h>

namespace MaintenanceMode {
namespace {

struct UnitIntfInputTest : testing::Test {
   const Wire::IntfId et1 = Wire::EthIntfId( "et1" );
   const Wire::IntfId et2 = Wire::EthIntfId( "et2" );
   const Vel::Ptr< UnitIntfInputDir > dir = Vel::make< UnitIntfInputDir >();
};

/// Notes what it is told about a unit's set: "+et1" for an interface that is in it, "-et1" for one that is not.
struct SetObserver {
   struct VelInput final : Vel::ReactorTo< SetObserver, UnitIntfInput > {
      using ReactorTo::ReactorTo;
      void onIntf( const Wire::IntfId & intf ) override {
         sm()->told += Vel::text( entity()->intf( intf ) ? "+" : "-", intf );
      }
   };
   explicit SetObserver( UnitIntfInput * input ) {
      reactor.is( input, this ).hasNotificationActiveIs( true );
   }
   Vel::String told;
   Vel::Watch< VelInput > reactor;
};

TEST_F( UnitIntfInputTest, askingForAUnitsSetMakesItOnce ) {
   UnitIntfInput * const u1 = dir->unitIntfInputIs( "u1" );
   ASSERT_TRUE( u1 );
   EXPECT_EQ( "u1", u1->name() );
   EXPECT_EQ( 0u, u1->intfs() );
   u1->intfIs( et1, true );
   EXPECT_EQ( u1, dir->unitIntfInputIs( "u1" ) );
   EXPECT_EQ( u1, dir->unitIntfInput( "u1" ) );
   EXPECT_EQ( 1u, u1->intfs() );
   EXPECT_NE( u1, dir->unitIntfInputIs( "u2" ) );
   EXPECT_EQ( 2u, dir->unitIntfInputs() );
}

TEST_F( UnitIntfInputTest, deletingAUnitsSetLeavesTheOthers ) {
   dir->unitIntfInputIs( "u1" )->intfIs( et1, true );
   dir->unitIntfInputIs( "u2" )->intfIs( et1, true );
   dir->unitIntfInputDel( "u1" );
   EXPECT_EQ( nullptr, dir->unitIntfInput( "u1" ) );
   EXPECT_EQ( 1u, dir->unitIntfInput( "u2" )->intfs() );
   // A set of that name that is made again begins empty.
   EXPECT_EQ( 0u, dir->unitIntfInputIs( "u1" )->intfs() );
}

TEST_F( UnitIntfInputTest, anInterfaceThatIsInTheSetAlreadyIsNoChange ) {
   UnitIntfInput & u1 = *dir->unitIntfInputIs( "u1" );
   const SetObserver observer( &u1 );
   u1.intfIs( et1, true );
   EXPECT_EQ( "+et1", observer.told );
   u1.intfIs( et1, true );
   EXPECT_EQ( "+et1", observer.told );
   EXPECT_EQ( 1u, u1.intfs() );
}

TEST_F( UnitIntfInputTest, removingWhatIsNotInTheSetIsNoChange ) {
   UnitIntfInput & u1 = *dir->unitIntfInputIs( "u1" );
   u1.intfIs( et1, true );
   const SetObserver observer( &u1 );
   u1.intfDel( et2 );
   EXPECT_EQ( "", observer.told );
   u1.intfDel( et1 );
   u1.intfDel( et1 );
   EXPECT_EQ( "-et1", observer.told );
   EXPECT_EQ( nullptr, u1.intf( et1 ) );
}

TEST_F( UnitIntfInputTest, emptyingTheSetTellsOfEachInterface ) {
   UnitIntfInput & u1 = *dir->unitIntfInputIs( "u1" );
   u1.intfIs( et2, true );
   u1.intfIs( et1, true );
   const SetObserver observer( &u1 );
   u1.intfDelAll();
   EXPECT_EQ( "-et2-et1", observer.told );
   EXPECT_EQ( 0u, u1.intfs() );
}

} // namespace
} // namespace MaintenanceMode
