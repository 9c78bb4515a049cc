#include "Platform/Vel/Declare.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <vector>

namespace {

class Port final : public Vel::Entity {
   VEL_ENTITY( Port );
   VEL_ATTR( int, speed, onSpeed );
   VEL_ATTR( double, load, onLoad );
   VEL_MAP( int, bool, vlan, onVlan );
   VEL_SET( int, tag, onTag );
};

/// Watches a port and notes or does something when its speed changes.
struct Observer {
   struct VelPort final : Vel::ReactorTo< Observer, Port > {
      using ReactorTo::ReactorTo;
      void onSpeed() override { sm()->told(); }
   };
   explicit Observer( std::string name, std::string & log ) : name( std::move( name ) ), log( log ) {}
   void told() {
      log += name;
      if ( then )
         then();
   }
   void watch( const Vel::Ptr< Port > & port ) { reactor.is( port, this ).hasNotificationActiveIs( true ); }

   std::string name;
   std::string & log;
   std::function< void() > then;
   Vel::Watch< VelPort > reactor;
};

class Reactor : public ::testing::Test {
 protected:
   Vel::Ptr< Port > port = Vel::make< Port >();
   std::string log;
   Observer a{ "a", log }, b{ "b", log }, c{ "c", log };

   void watchAll() {
      for ( Observer * o : { &a, &b, &c } )
         o->watch( port );
   }
};

TEST_F( Reactor, isToldInsideTheWriteAfterTheValueIsStored ) {
   int seen = 0;
   a.then = [&] { seen = port->speed(); };
   a.watch( port );
   port->speedIs( 7 );
   EXPECT_EQ( 7, seen );
}

TEST_F( Reactor, isToldInTheOrderOfSwitchingOn ) {
   watchAll();
   port->speedIs( 1 );
   EXPECT_EQ( "abc", log );
}

TEST_F( Reactor, comesLastAfterSwitchingOffAndOn ) {
   watchAll();
   a.reactor.hasNotificationActiveIs( false );
   a.reactor.hasNotificationActiveIs( true );
   port->speedIs( 1 );
   EXPECT_EQ( "bca", log );
}

TEST_F( Reactor, staysInPlaceWhenSwitchedOnTwice ) {
   watchAll();
   a.reactor.hasNotificationActiveIs( true );
   port->speedIs( 1 );
   EXPECT_EQ( "abc", log );
}

TEST_F( Reactor, isNotToldBeforeItIsSwitchedOn ) {
   a.reactor.is( port, &a );
   port->speedIs( 1 );
   EXPECT_EQ( "", log );
}

TEST_F( Reactor, isSilentOnAnEqualValue ) {
   port->speedIs( 1 );
   a.watch( port );
   port->speedIs( 1 );
   EXPECT_EQ( "", log );
}

/// Notes the keys of a port that come, change and go.
struct KeyObserver {
   struct VelPort final : Vel::ReactorTo< KeyObserver, Port > {
      using ReactorTo::ReactorTo;
      void onVlan( const int & id ) override {
         const bool * const value = entity()->vlan( id );
         sm()->log += Vel::text( id, !value ? "-" : *value ? "+" : "0", " " );
         if ( sm()->then )
            sm()->then( id );
      }
      void onTag( const int & tag ) override {
         sm()->log += Vel::text( "tag", tag, entity()->tag( tag ) ? "+" : "-", " " );
      }
   };
   explicit KeyObserver( const Vel::Ptr< Port > & port ) {
      reactor.is( port, this ).hasNotificationActiveIs( true );
   }
   std::string log;
   std::function< void( int ) > then;
   Vel::Watch< VelPort > reactor;
};

TEST_F( Reactor, isToldOnceOfAKeyHoweverOftenItIsSetOrDeleted ) {
   KeyObserver keys( port );
   for ( int twice = 0; twice < 2; ++twice ) {
      port->vlanIs( 1, true );
      port->tagIs( 7 );
   }
   for ( int twice = 0; twice < 2; ++twice ) {
      port->vlanDel( 1 );
      port->tagDel( 7 );
      port->vlanDel( 2 );
      port->tagDel( 8 );
   }
   EXPECT_EQ( "1+ tag7+ 1- tag7- ", keys.log );
}

TEST_F( Reactor, isToldOfAnotherValueOfAKeyAndNotOfTheSame ) {
   port->vlanIs( 1, true );
   KeyObserver keys( port );
   port->vlanIs( 1, true );
   port->vlanIs( 1, false );
   port->vlanIs( 1, false );
   EXPECT_EQ( "10 ", keys.log );
}

TEST_F( Reactor, mayDeleteAKeyAheadOfTheWalkThatMadeTheWrite ) {
   for ( const int id : { 1, 2, 3, 4 } )
      port->vlanIs( id, false );
   KeyObserver keys( port );
   keys.then = [&]( int id ) {
      if ( id == 1 )
         port->vlanDel( 2 );
      if ( id == 3 )
         port->vlanDel( 3 );
   };
   std::vector< int > walked;
   for ( const auto & [id, value] : port->vlanRange() ) {
      walked.push_back( id );
      port->vlanIs( id, true );
   }
   EXPECT_EQ( ( std::vector< int >{ 1, 3, 4 } ), walked );
   EXPECT_EQ( 2u, port->vlans() );
}

TEST_F( Reactor, isNotToldOfWhatWasThereBefore ) {
   port->speedIs( 1 );
   port->vlanIs( 1, true );
   port->tagIs( 7 );
   a.watch( port );
   KeyObserver keys( port );
   EXPECT_EQ( "", log );
   EXPECT_EQ( "", keys.log );
}

TEST_F( Reactor, isToldOfNestedWritesAtOnceDepthFirst ) {
   watchAll();
   a.then = [&] {
      if ( port->speed() == 1 )
         port->speedIs( 2 );
   };
   port->speedIs( 1 );
   EXPECT_EQ( "aabcbc", log );
}

TEST_F( Reactor, isNotToldAfterLeavingDuringTheDelivery ) {
   watchAll();
   a.then = [&] { b.reactor.del(); };
   port->speedIs( 1 );
   EXPECT_EQ( "ac", log );
}

TEST_F( Reactor, mayLeaveInItsOwnHandler ) {
   watchAll();
   b.then = [&] { b.reactor.hasNotificationActiveIs( false ); };
   port->speedIs( 1 );
   port->speedIs( 2 );
   EXPECT_EQ( "abcac", log );
}

TEST_F( Reactor, letsAllOthersLeaveDuringTheDelivery ) {
   watchAll();
   a.then = [&] {
      c.reactor.del();
      b.reactor.del();
   };
   port->speedIs( 1 );
   EXPECT_EQ( "a", log );
}

TEST_F( Reactor, thatComesDuringTheDeliveryIsNotTold ) {
   a.watch( port );
   b.watch( port );
   a.then = [&] { c.watch( port ); };
   port->speedIs( 1 );
   EXPECT_EQ( "ab", log );
   a.then = nullptr;
   port->speedIs( 2 );
   EXPECT_EQ( "ababc", log );
}

TEST_F( Reactor, thatLeavesAndComesBackDuringTheDeliveryIsNotTold ) {
   watchAll();
   a.then = [&] {
      c.reactor.hasNotificationActiveIs( false );
      c.reactor.hasNotificationActiveIs( true );
   };
   port->speedIs( 1 );
   EXPECT_EQ( "ab", log );
}

TEST_F( Reactor, isReachedOnlyByTheAttributesThatItHandles ) {
   a.watch( port );
   port->loadIs( 3 );
   port->vlanIs( 1, true );
   EXPECT_EQ( "", log );
}

TEST_F( Reactor, knowsAtCompileTimeWhichHandlersItOverrides ) {
   EXPECT_EQ( Port::VelLink_speed::velBit, Vel::interestOf< Observer::VelPort >() );
}

TEST_F( Reactor, letsAnExceptionThroughToTheWriterAndKeepsTheRest ) {
   watchAll();
   b.then = [] { throw Vel::InternalException( "no" ); };
   EXPECT_THROW( port->speedIs( 1 ), Vel::InternalException );
   EXPECT_EQ( "ab", log );
   b.then = nullptr;
   port->speedIs( 2 );
   EXPECT_EQ( "ababc", log );
}

TEST_F( Reactor, treatsNanAsDifferentFromNan ) {
   struct Loads {
      struct VelPort final : Vel::ReactorTo< Loads, Port > {
         using ReactorTo::ReactorTo;
         void onLoad() override { ++sm()->count; }
      };
      int count = 0;
      Vel::Watch< VelPort > reactor;
   } loads;
   loads.reactor.is( port, &loads ).hasNotificationActiveIs( true );
   port->loadIs( std::numeric_limits< double >::quiet_NaN() );
   port->loadIs( std::numeric_limits< double >::quiet_NaN() );
   EXPECT_EQ( 2, loads.count );
}

TEST_F( Reactor, countsItsEntity ) {
   a.watch( port );
   EXPECT_EQ( 2u, port->getRefCount() );
   a.reactor.del();
   EXPECT_EQ( 1u, port->getRefCount() );
}

TEST_F( Reactor, keepsAnEntityThatAllOthersHaveLetGo ) {
   port->speedIs( 3 );
   a.watch( port );
   b.watch( port );
   Port * const raw = port.get();
   port = nullptr;
   EXPECT_EQ( 3, a.reactor->entity()->speed() );
   a.reactor.del();
   raw->speedIs( 4 );
   EXPECT_EQ( "b", log );
   EXPECT_EQ( 1u, raw->getRefCount() );
   b.reactor.del();
}

TEST_F( Reactor, isNotReachedOnceItsOwnerHasGone ) {
   {
      Observer shortLived( "x", log );
      shortLived.watch( port );
      a.watch( port );
   }
   port->speedIs( 1 );
   EXPECT_EQ( "a", log );
   EXPECT_EQ( 2u, port->getRefCount() );
}

TEST_F( Reactor, refusesANullEntity ) {
   EXPECT_THROW( a.reactor.is( nullptr, &a ), Vel::RangeError );
   EXPECT_FALSE( a.reactor );
}

TEST_F( Reactor, mayDropTheLastReferenceToTheEntityDuringTheDelivery ) {
   a.watch( port );
   Port * const raw = port.get();
   port = nullptr;
   a.then = [&] { a.reactor.del(); };
   raw->speedIs( 1 );
   EXPECT_EQ( "a", log );
}

TEST_F( Reactor, seesTheEntityDieBeforeTheOthersAreTold ) {
   for ( Observer * o : { &a, &b, &c } )
      o->watch( port );
   Port * const raw = port.get();
   port = nullptr;
   a.then = [&] {
      b.reactor.del();
      c.reactor.del();
      a.reactor.del();
   };
   raw->speedIs( 1 );
   EXPECT_EQ( "a", log );
}

TEST_F( Reactor, leavesAHundredThousandOthersInOrder ) {
   struct Crowd {
      struct VelPort final : Vel::ReactorTo< Crowd, Port > {
         using ReactorTo::ReactorTo;
         void onSpeed() override { sm()->told.push_back( this ); }
      };
      std::vector< VelPort * > told;
      Vel::Collection< int, std::unique_ptr< VelPort > > reactors;
   } crowd;
   std::vector< Crowd::VelPort * > expected;
   for ( int i = 0; i < 100000; ++i ) {
      auto * reactor = Vel::reactorIs( crowd.reactors, i, Vel::Ptr< const Port >( port ), &crowd );
      if ( i % 3 )
         expected.push_back( reactor );
   }
   for ( int i = 0; i < 100000; i += 3 ) {
      std::unique_ptr< Crowd::VelPort > gone;
      crowd.reactors.extract( i, gone );
   }
   port->speedIs( 1 );
   EXPECT_EQ( expected, crowd.told );
}

} // namespace
