#include "Platform/Vel/Dir.h"

#include <gtest/gtest.h>

namespace {

class Leaf final : public Vel::Entity {
   VEL_ENTITY( Leaf );
   explicit Leaf( const Vel::String & name, double planted = 0 ) : name_( name ), planted_( planted ) {}
   VEL_PARAM( Vel::String, name );
   VEL_PARAM( double, planted );
   VEL_ATTR( double, speed, onSpeed );
};

class Tree : public Vel::Entity {
   VEL_ENTITY( Tree );
   VEL_ATTR( Vel::String, title, onTitle );
   VEL_COUNTER( storms, onStorms );
   VEL_MAP( Vel::String, bool, nest, onNest );
   VEL_SET( int, ring, onRing, Ordered );
   VEL_CHILDREN( Vel::String, Leaf, leaf, onLeaf );
   VEL_ATTR( Vel::Ptr< Leaf >, favourite, onFavourite );
};

class Oak final : public Tree {
   VEL_SUBENTITY( Oak, Tree );
   VEL_ATTR( int, acorns, onAcorns );
};

struct OakWatcher {
   struct VelOak final : Vel::ReactorTo< OakWatcher, Oak > {
      using ReactorTo::ReactorTo;
      void onTitle() override { sm()->log += "title;"; }
      void onAcorns() override { sm()->log += "acorns;"; }
   };
   Vel::Watch< VelOak > reactor;
   std::string log;
};

TEST( Entity, wrapsACounter ) {
   const auto tree = Vel::make< Tree >();
   tree->stormsIs( ~0u );
   tree->stormsInc( 2 );
   EXPECT_EQ( 1u, tree->storms() );
}

TEST( Entity, inheritsTheLinesOfItsBase ) {
   const auto oak = Vel::make< Oak >();
   OakWatcher watcher;
   watcher.reactor.is( oak, &watcher ).hasNotificationActiveIs( true );
   oak->titleIs( "x" );
   oak->acornsIs( 1 );
   EXPECT_EQ( "title;acorns;", watcher.log );
   EXPECT_EQ( Vel::typeInfoOf< Tree >().attributes().size() + 1, oak->typeInfo().attributes().size() );
}

TEST( Entity, keepsAChildThatIsThere ) {
   const auto tree = Vel::make< Tree >();
   Leaf * const leaf = tree->leafIs( "a", 3.0 );
   EXPECT_EQ( leaf, tree->leafIs( "a", 4.0 ) );
   EXPECT_EQ( 3.0, leaf->planted() );
}

TEST( Entity, deletesTheOldChildBeforeItTellsOfTheNewOne ) {
   struct Watcher {
      struct VelTree final : Vel::ReactorTo< Watcher, Tree > {
         using ReactorTo::ReactorTo;
         void onLeaf( const Vel::String & key ) override { sm()->log += entity()->leaf( key ) ? '+' : '-'; }
      };
      Vel::Watch< VelTree > reactor;
      std::string log;
   } watcher;
   const auto tree = Vel::make< Tree >();
   tree->leafIs( "a" );
   watcher.reactor.is( tree, &watcher ).hasNotificationActiveIs( true );
   tree->leafPut( "a", Vel::make< Leaf >( "a" ) );
   EXPECT_EQ( "-+", watcher.log );
}

TEST( Entity, saysWhichParameterIsNull ) {
   const auto tree = Vel::make< Tree >();
   try {
      tree->leafPut( "a", nullptr );
      FAIL();
   } catch ( const Vel::RangeError & e ) {
      EXPECT_STREQ( "null _leaf parameter to mutator for {anonymous}::Tree::leaf not allowed", e.what() );
   }
   EXPECT_EQ( 0u, tree->leafs() );
}

TEST( Entity, staysReadableForItsHoldersAfterLeavingItsCollection ) {
   const auto tree = Vel::make< Tree >();
   const Vel::Ptr< Leaf > leaf( tree->leafIs( "a" ) );
   leaf->speedIs( 2 );
   tree->leafDel( "a" );
   EXPECT_EQ( 2, leaf->speed() );
   EXPECT_EQ( 1u, leaf->getRefCount() );
}

TEST( Entity, survivesTheDeletionOfAKeyGivenByReference ) {
   const auto tree = Vel::make< Tree >();
   tree->nestIs( "a", true );
   tree->nestDel( *tree->nestFirst() );
   EXPECT_EQ( 0u, tree->nests() );
}

TEST( Entity, tellsOfEveryKeyWhenAllAreDeleted ) {
   struct Watcher {
      struct VelTree final : Vel::ReactorTo< Watcher, Tree > {
         using ReactorTo::ReactorTo;
         void onRing( const int & key ) override { sm()->log += std::to_string( key ); }
      };
      Vel::Watch< VelTree > reactor;
      std::string log;
   } watcher;
   const auto tree = Vel::make< Tree >();
   for ( int ring : { 3, 1, 2 } )
      tree->ringIs( ring );
   watcher.reactor.is( tree, &watcher ).hasNotificationActiveIs( true );
   tree->ringDelAll();
   EXPECT_EQ( "123", watcher.log );
}

// ---- description

TEST( TypeInfo, writesAndReadsEveryStoredLine ) {
   const auto tree = Vel::make< Tree >();
   tree->titleIs( "oak" );
   tree->stormsIs( 5 );
   tree->nestIs( "n", true );
   tree->ringIs( 4 );
   tree->leafIs( "l", 9.0 )->speedIs( 2 );

   const auto copy = Vel::make< Tree >();
   struct Restore {
      static void entity( Vel::Entity & from, Vel::Entity & to ) {
         for ( const Vel::AttributeInfo & a : from.typeInfo().attributes() ) {
            if ( !a.stored() )
               continue;
            if ( !a.keyed() ) {
               Vel::String bytes;
               Vel::ByteWriter writer( bytes );
               a.value->write( writer, a.raw( from ) );
               Vel::ByteReader reader( bytes );
               a.value->read( reader, a.raw( to ) );
               EXPECT_TRUE( reader.atEnd() );
               continue;
            }
            struct Context {
               const Vel::AttributeInfo & a;
               Vel::Entity & to;
            } context{ a, to };
            a.each( from, &context, []( void * c, const void * key, const void * item ) {
               auto & [info, target] = *static_cast< Context * >( c );
               Vel::String keyBytes, valueBytes;
               Vel::ByteWriter keyWriter( keyBytes ), valueWriter( valueBytes );
               info.key->write( keyWriter, key );
               Vel::ByteReader keyReader( keyBytes );
               if ( info.kind == Vel::AttributeInfo::children ) {
                  Vel::Entity * child = info.restoreChild( target, keyReader );
                  ASSERT_NE( nullptr, child );
                  entity( *static_cast< Vel::Entity * >( const_cast< void * >( item ) ), *child );
                  return;
               }
               if ( info.value )
                  info.value->write( valueWriter, item );
               Vel::ByteReader valueReader( valueBytes );
               EXPECT_TRUE( info.restore( target, keyReader, valueReader ) );
            } );
         }
      }
   };
   Restore::entity( *tree, *copy );
   EXPECT_EQ( "oak", copy->title() );
   EXPECT_EQ( 5u, copy->storms() );
   ASSERT_NE( nullptr, copy->nest( "n" ) );
   EXPECT_TRUE( *copy->nest( "n" ) );
   EXPECT_TRUE( copy->ring( 4 ) );
   ASSERT_NE( nullptr, copy->leaf( "l" ) );
   EXPECT_EQ( 2, copy->leaf( "l" )->speed() );
   EXPECT_EQ( 9.0, copy->leaf( "l" )->planted() );
}

TEST( TypeInfo, leavesPointersToEntitiesOutOfTheStore ) {
   EXPECT_FALSE( Vel::typeInfoOf< Tree >().attribute( "favourite" )->stored() );
}

TEST( TypeInfo, findsLinesByNameAndByIndex ) {
   const Vel::TypeInfo & info = Vel::typeInfoOf< Tree >();
   EXPECT_STREQ( "storms", info.attribute( 2u )->name );
   EXPECT_EQ( 2u, info.attribute( "storms" )->index );
   EXPECT_EQ( nullptr, info.attribute( 0u ) );
   EXPECT_EQ( nullptr, info.attribute( 7u ) );
   EXPECT_EQ( nullptr, info.attribute( "nothing" ) );
}

TEST( TypeInfo, refusesBytesThatAreTooShort ) {
   Vel::ByteReader reader( std::string_view( "\x05\x00", 2 ) );
   Vel::String value = "unchanged";
   Vel::valueType< Vel::String >().read( reader, &value );
   EXPECT_TRUE( reader.failed() );
   EXPECT_EQ( "", value );
}

// ---- notes for the store

class Notes final : public Vel::Changes {
 public:
   void entityChanged( Vel::Entity & entity ) override {
      log += "e" + Vel::text( entity.velStoreId() ) + ";";
   }
   void keyChanged( Vel::Entity & entity, unsigned attribute, std::string_view ) override {
      log += "k" + Vel::text( entity.velStoreId(), ".", attribute ) + ";";
   }
   void
   childAdded( Vel::Entity & entity, unsigned attribute, std::string_view, Vel::Entity & child ) override {
      log += "+" + Vel::text( entity.velStoreId(), ".", attribute ) + ";";
      child.velStoredIs( this, 2 );
   }
   void childRemoved( Vel::Entity &, Vel::Entity & child ) override {
      log += "-" + Vel::text( child.velStoreId() ) + ";";
      child.velStoredIs( nullptr, 0 );
   }
   std::string log;
};

TEST( Changes, areNotedOnceUntilTheStoreHasTakenThem ) {
   Notes notes;
   const auto tree = Vel::make< Tree >();
   tree->titleIs( "not stored" );
   tree->velStoredIs( &notes, 1 );
   tree->titleIs( "a" );
   tree->stormsInc( 1 );
   EXPECT_EQ( "e1;", notes.log );
   tree->velMarkDel();
   tree->titleIs( "b" );
   EXPECT_EQ( "e1;e1;", notes.log );
   tree->velStoredIs( nullptr, 0 );
}

TEST( Changes, areNotedForEachKey ) {
   Notes notes;
   const auto tree = Vel::make< Tree >();
   tree->velStoredIs( &notes, 1 );
   tree->nestIs( "a", true );
   tree->nestIs( "a", true );
   tree->nestDel( "a" );
   tree->ringIs( 1 );
   EXPECT_EQ( "k1.3;k1.3;k1.4;", notes.log );
   tree->velStoredIs( nullptr, 0 );
}

TEST( Changes, followChildrenInAndOut ) {
   Notes notes;
   const auto tree = Vel::make< Tree >();
   tree->velStoredIs( &notes, 1 );
   const Vel::Ptr< Leaf > leaf( tree->leafIs( "a" ) );
   leaf->speedIs( 1 );
   tree->leafDel( "a" );
   leaf->speedIs( 2 );
   EXPECT_EQ( "+1.5;e2;-2;", notes.log );
   tree->velStoredIs( nullptr, 0 );
}

// ---- registry and directory

TEST( TypeRegistry, makesEntitiesByNameInOrderOfRegistration ) {
   auto & registry = Vel::TypeRegistry::instance();
   const std::size_t before = registry.types().size();
   {
      const Vel::TypeRegistration< Tree > tree;
      const Vel::TypeRegistration< Leaf > leaf;
      ASSERT_EQ( before + 2, registry.types().size() );
      EXPECT_EQ( "{anonymous}::Tree", registry.types()[before].typeName );
      const auto made = registry.entityNew( "{anonymous}::Leaf", "l" );
      EXPECT_EQ( "l", Vel::ptrCast< Leaf >( made )->name() );
      EXPECT_THROW( Vel::TypeRegistration< Tree >(), Vel::NameInUse );
   }
   EXPECT_EQ( before, registry.types().size() );
   EXPECT_THROW( registry.entityNew( "{anonymous}::Leaf", "l" ), Vel::InternalException );
}

TEST( Dir, keepsAnEntryOfTheSameTypeAndRefusesAnother ) {
   const Vel::TypeRegistration< Tree > tree;
   const Vel::TypeRegistration< Leaf > leaf;
   const auto dir = Vel::make< Vel::Dir >();
   const auto entry = dir->entryIs( "x", "{anonymous}::Tree" );
   EXPECT_EQ( entry, dir->entryIs( "x", "{anonymous}::Tree" ) );
   EXPECT_EQ( entry, dir->entityRef( "x" ) );
   EXPECT_THROW( dir->entryIs( "x", "{anonymous}::Leaf" ), Vel::NameInUse );
   EXPECT_FALSE( dir->entityRef( "y" ) );
}

TEST( Dir, returnsAnEntryThatWasTakenAwayWhileItWasMade ) {
   const Vel::TypeRegistration< Tree > tree;
   const auto dir = Vel::make< Vel::Dir >();
   struct VelDir final : Vel::ReactorTo< Vel::Dir, Vel::Dir > {
      using ReactorTo::ReactorTo;
      void onEntry( const Vel::String & name ) override { sm()->entryDel( name ); }
   };
   Vel::Watch< VelDir > watch;
   watch.is( dir, dir.get() ).hasNotificationActiveIs( true );
   const auto entry = dir->entryIs( "x", "{anonymous}::Tree" );
   EXPECT_EQ( 1u, entry->getRefCount() );
   EXPECT_FALSE( dir->entityRef( "x" ) );
}

} // namespace
