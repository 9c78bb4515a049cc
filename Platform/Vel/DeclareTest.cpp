#include "Platform/Vel/Declare.h"
#include "Platform/Vel/Dir.h"

#include <gtest/gtest.h>

namespace {

class Leaf final : public Vel::Entity {
   VEL_ENTITY( Leaf );
   explicit Leaf( const Vel::String & name ) : name_( name ) {}
   VEL_PARAM( Vel::String, name );
   VEL_ATTR( double, speed, onSpeed );
};

class Tree : public Vel::Entity {
   VEL_ENTITY( Tree );
   VEL_ATTR( Vel::String, title, onTitle );
   VEL_ATTR( double, height, onHeight );
   VEL_COUNTER( storms, onStorms );
   VEL_MAP( Vel::String, bool, nest, onNest );
   VEL_SET( int, ring, onRing, Ordered );
   VEL_CHILDREN( Vel::String, Leaf, leaf, onLeaf );
};

struct Gardener {
   struct VelTree final : Vel::ReactorTo< Gardener, Tree > {
      using ReactorTo::ReactorTo;
      void onTitle() override { sm()->log += "title:" + entity()->title() + ";"; }
      void onNest( const Vel::String & key ) override { sm()->log += "nest:" + key + ";"; }
      void onLeaf( const Vel::String & key ) override {
         sm()->log += ( entity()->leaf( key ) ? "+leaf:" : "-leaf:" ) + key + ";";
      }
   };
   Vel::Watch< VelTree > tree;
   std::string log;
};

TEST( Declare, tellsTheReactorAfterTheValueIsStored ) {
   const auto tree = Vel::make< Tree >();
   Gardener gardener;
   gardener.tree.is( tree, &gardener ).hasNotificationActiveIs( true );
   tree->titleIs( "oak" );
   tree->titleIs( "oak" );
   tree->heightIs( 3 );
   tree->nestIs( "a", true );
   tree->nestIs( "a", true );
   tree->nestIs( "a", false );
   tree->nestDel( "b" );
   tree->nestDel( "a" );
   tree->leafIs( "l" )->speedIs( 2 );
   tree->leafDelAll();
   EXPECT_EQ( "title:oak;nest:a;nest:a;nest:a;+leaf:l;-leaf:l;", gardener.log );
}

TEST( Declare, describesEveryLine ) {
   const Vel::TypeInfo & info = Vel::typeInfoOf< Tree >();
   EXPECT_EQ( "{anonymous}::Tree", info.name() );
   ASSERT_EQ( 6u, info.attributes().size() );
   EXPECT_STREQ( "ring", info.attributes()[4].name );
   EXPECT_EQ( 5u, info.attributes()[4].index );
}

TEST( Declare, namesTypesWithTheirNamespace ) {
   EXPECT_EQ( "Vel::Dir", Vel::typeInfoOf< Vel::Dir >().name() );
}

} // namespace
