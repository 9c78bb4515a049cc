#include "MaintenancePlugin/UnitIntfIndex.h"

#include <gtest/gtest.h>

#include <random>

namespace MaintenanceMode {
namespace {

struct UnitIntfIndexTest : testing::Test {
   const Vel::Ptr< UnitIntfInputDir > dir = Vel::make< UnitIntfInputDir >();
   const Wire::IntfId et1 = Wire::EthIntfId( "et1" );
   const Wire::IntfId et2 = Wire::EthIntfId( "et2" );

   UnitIntfInput & unit( const Vel::String & name ) { return *dir->unitIntfInputIs( name ); }
};

/// Notes in which units an interface is removed.
struct Observer {
   struct VelInput final : Vel::ReactorTo< Observer, UnitIntfInput > {
      using ReactorTo::ReactorTo;
      void onIntf( const Wire::IntfId & intf ) override {
         sm()->told += ( entity()->intf( intf ) ? "+" : "-" ) + entity()->name();
      }
   };
   explicit Observer( const UnitIntfInputDir & dir ) {
      for ( const auto & [name, input] : dir.unitIntfInputRange() )
         Vel::reactorIs( reactors, name, Vel::Ptr< const UnitIntfInput >( input.get() ), this );
   }
   Vel::Collection< Vel::String, std::unique_ptr< VelInput > > reactors;
   Vel::String told;
};

TEST_F( UnitIntfIndexTest, takesAnInterfaceOutOfTheOneSetThatHoldsIt ) {
   UnitIntfIndex index( dir );
   unit( "u1" ).intfIs( et2, true );
   unit( "u2" ).intfIs( et1, true );
   unit( "u2" ).intfIs( et2, true );
   const Observer observer( *dir );
   index.intfDel( et1 );
   EXPECT_EQ( "-u2", observer.told );
   EXPECT_FALSE( unit( "u2" ).intf( et1 ) );
   EXPECT_TRUE( unit( "u2" ).intf( et2 ) );
}

TEST_F( UnitIntfIndexTest, takesAnInterfaceOutOfSeveralSetsInTheOrderOfUnits ) {
   UnitIntfIndex index( dir );
   for ( const char * name : { "u3", "u1", "u4", "u2" } )
      unit( name );
   for ( const char * name : { "u2", "u3", "u4" } )
      unit( name ).intfIs( et1, true );
   const Observer observer( *dir );
   index.intfDel( et1 );
   EXPECT_EQ( "-u3-u4-u2", observer.told );
}

TEST_F( UnitIntfIndexTest, isSilentAboutAnInterfaceThatNoSetHolds ) {
   UnitIntfIndex index( dir );
   unit( "u1" ).intfIs( et1, true );
   unit( "u1" ).intfDel( et1 );
   const Observer observer( *dir );
   index.intfDel( et1 );
   index.intfDel( et2 );
   EXPECT_EQ( "", observer.told );
}

TEST_F( UnitIntfIndexTest, knowsWhatWasInTheSetsBeforeItWasMade ) {
   unit( "u1" ).intfIs( et1, true );
   UnitIntfIndex index( dir );
   index.intfDel( et1 );
   EXPECT_EQ( 0u, unit( "u1" ).intfs() );
}

/// Puts a set back that is taken out, and an interface into it.
struct PuttingBack {
   struct VelDir final : Vel::ReactorTo< PuttingBack, UnitIntfInputDir > {
      using ReactorTo::ReactorTo;
      void onUnitIntfInput( const Vel::String & unitName ) override {
         if ( !entity()->unitIntfInput( unitName ) )
            sm()->dir->unitIntfInputIs( unitName )->intfIs( sm()->intf, true );
      }
   };
   PuttingBack( const Vel::Ptr< UnitIntfInputDir > & inputs, const Wire::IntfId & put )
      : dir( inputs ), intf( put ) {
      reactor.is( dir, this ).hasNotificationActiveIs( true );
   }
   const Vel::Ptr< UnitIntfInputDir > dir;
   const Wire::IntfId intf;
   Vel::Watch< VelDir > reactor;
};

TEST_F( UnitIntfIndexTest, isToldLateOfASetThatHasBeenPutBackMeanwhile ) {
   unit( "u1" ).intfIs( et1, true );
   const PuttingBack earlier( dir, et2 );
   UnitIntfIndex index( dir );
   dir->unitIntfInputDel( "u1" );
   ASSERT_TRUE( unit( "u1" ).intf( et2 ) );
   unit( "u1" ).intfIs( et1, true );
   for ( const Wire::IntfId & intf : { et1, et2 } )
      index.intfDel( intf );
   EXPECT_EQ( 0u, unit( "u1" ).intfs() );
}

TEST_F( UnitIntfIndexTest, leavesASetAloneThatHasLeftTheDirectory ) {
   UnitIntfIndex index( dir );
   const Vel::Ptr< UnitIntfInput > old( &unit( "u1" ) );
   old->intfIs( et1, true );
   dir->unitIntfInputDel( "u1" );
   index.intfDel( et1 );
   EXPECT_TRUE( old->intf( et1 ) );
   unit( "u1" ).intfIs( et1, true );
   index.intfDel( et1 );
   EXPECT_TRUE( old->intf( et1 ) );
   EXPECT_FALSE( unit( "u1" ).intf( et1 ) );
}

TEST_F( UnitIntfIndexTest, followsASetThatIsPutInAnothersPlace ) {
   UnitIntfIndex index( dir );
   unit( "u1" ).intfIs( et1, true );
   const auto put = Vel::make< UnitIntfInput >( "u1" );
   put->intfIs( et2, true );
   dir->unitIntfInputPut( "u1", put );
   index.intfDel( et1 );
   index.intfDel( et2 );
   EXPECT_EQ( 0u, put->intfs() );
}

TEST_F( UnitIntfIndexTest, letsASetLeaveTheDirectoryWhileItTells ) {
   struct Leaver {
      struct VelInput final : Vel::ReactorTo< Leaver, UnitIntfInput > {
         using ReactorTo::ReactorTo;
         void onIntf( const Wire::IntfId & ) override { sm()->dir->unitIntfInputDel( entity()->name() ); }
      };
      Vel::Ptr< UnitIntfInputDir > dir;
      Vel::Watch< VelInput > watch;
   };
   UnitIntfIndex index( dir );
   unit( "u1" ).intfIs( et1, true );
   Leaver leaver;
   leaver.dir = dir;
   leaver.watch.is( &unit( "u1" ), &leaver ).hasNotificationActiveIs( true );
   index.intfDel( et1 );
   EXPECT_EQ( 0u, dir->unitIntfInputs() );
}

/// The same as visiting every set, whatever happened before; a value that changes is no second membership.
TEST_F( UnitIntfIndexTest, agreesWithVisitingEverySet ) {
   for ( unsigned seed = 1; seed <= 200; ++seed ) {
      SCOPED_TRACE( seed );
      std::mt19937 draw( seed );
      const auto plain = Vel::make< UnitIntfInputDir >();
      const auto indexed = Vel::make< UnitIntfInputDir >();
      UnitIntfIndex index( indexed );
      for ( int step = 0; step < 200; ++step ) {
         const Vel::String name = "u" + std::to_string( draw() % 4 );
         const Wire::IntfId intf = Wire::EthIntfId( "et" + std::to_string( draw() % 3 ) );
         const auto action = draw() % 8;
         const bool value = draw() % 2;
         for ( const auto & d : { plain, indexed } ) {
            if ( action < 5 )
               d->unitIntfInputIs( name )->intfIs( intf, value );
            else if ( action == 5 )
               d->unitIntfInputIs( name )->intfDel( intf );
            else if ( action == 6 )
               d->unitIntfInputDel( name );
         }
         if ( action == 7 ) {
            for ( const auto & [unitName, input] : plain->unitIntfInputRange() )
               input->intfDel( intf );
            index.intfDel( intf );
         }
         for ( const auto & [unitName, input] : plain->unitIntfInputRange() )
            for ( const char * each : { "et0", "et1", "et2" } ) {
               const Wire::IntfId id = Wire::EthIntfId( each );
               ASSERT_EQ( !input->intf( id ), !indexed->unitIntfInput( unitName )->intf( id ) );
            }
      }
   }
}

} // namespace
} // namespace MaintenanceMode
