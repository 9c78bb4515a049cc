#include "Platform/Vel/Collection.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <vector>

namespace {

template < class Order >
using Bag = Vel::Collection< int, int, Order >;

template < class C >
std::vector< int > keys( const C & collection ) {
   std::vector< int > result;
   for ( const auto & [key, value] : collection )
      result.push_back( key );
   return result;
}

template < class C >
void put( C & collection, std::initializer_list< int > wanted ) {
   for ( int key : wanted )
      *collection.emplace( key ).first = key;
}

template < class C >
bool drop( C & collection, int key ) {
   int value;
   return collection.extract( key, value );
}

TEST( Collection, walksInOrderOfInsertionWhenHashed ) {
   Bag< Vel::Hashed > bag;
   put( bag, { 5, 1, 9, 3 } );
   EXPECT_EQ( ( std::vector< int >{ 5, 1, 9, 3 } ), keys( bag ) );
}

TEST( Collection, walksInOrderOfKeysWhenOrdered ) {
   Bag< Vel::Ordered > bag;
   put( bag, { 5, 1, 9, 3 } );
   EXPECT_EQ( ( std::vector< int >{ 1, 3, 5, 9 } ), keys( bag ) );
}

TEST( Collection, putsAKeyThatCameBackLast ) {
   Bag< Vel::Hashed > bag;
   put( bag, { 1, 2, 3 } );
   drop( bag, 1 );
   put( bag, { 1 } );
   EXPECT_EQ( ( std::vector< int >{ 2, 3, 1 } ), keys( bag ) );
}

TEST( Collection, givesTheFirstKey ) {
   Bag< Vel::Hashed > bag;
   EXPECT_EQ( nullptr, bag.firstKey() );
   put( bag, { 7, 8 } );
   EXPECT_EQ( 7, *bag.firstKey() );
   drop( bag, 7 );
   EXPECT_EQ( 8, *bag.firstKey() );
}

TEST( Collection, letsTheCurrentKeyGoDuringTheWalkAndKeepsItReadable ) {
   Vel::Collection< std::string, int > bag;
   for ( const char * key : { "a long key that is on the heap: 1", "a long key that is on the heap: 2" } )
      *bag.emplace( key ).first = 1;
   std::string seen;
   for ( const auto & [key, value] : bag ) {
      int gone;
      bag.extract( key, gone );
      seen += key.back();
   }
   EXPECT_EQ( "12", seen );
   EXPECT_TRUE( bag.empty() );
}

TEST( Collection, doesNotVisitAKeyThatIsRemovedAheadOfTheWalk ) {
   Bag< Vel::Hashed > bag;
   put( bag, { 1, 2, 3, 4 } );
   std::vector< int > seen;
   for ( const auto & [key, value] : bag ) {
      seen.push_back( key );
      if ( key == 1 ) {
         drop( bag, 1 );
         drop( bag, 2 );
         drop( bag, 3 );
      }
   }
   EXPECT_EQ( ( std::vector< int >{ 1, 4 } ), seen );
}

TEST( Collection, visitsAKeyThatIsAddedAheadOfTheWalk ) {
   Bag< Vel::Ordered > bag;
   put( bag, { 1, 5 } );
   std::vector< int > seen;
   for ( const auto & [key, value] : bag ) {
      seen.push_back( key );
      if ( key == 5 )
         put( bag, { 3, 9 } );
   }
   EXPECT_EQ( ( std::vector< int >{ 1, 5, 9 } ), seen );
}

TEST( Collection, letsTheSameKeyGoUnderTwoNestedWalks ) {
   Bag< Vel::Hashed > bag;
   put( bag, { 1, 2 } );
   std::vector< int > seen;
   for ( const auto & [outer, v1] : bag )
      for ( const auto & [inner, v2] : bag ) {
         seen.push_back( 10 * outer + inner );
         drop( bag, 1 );
      }
   EXPECT_EQ( ( std::vector< int >{ 11, 12, 22 } ), seen );
}

TEST( Collection, destroysTheValueAfterTheKeyIsGone ) {
   struct Nosy {
      Vel::Collection< int, std::unique_ptr< Nosy > > * home = nullptr;
      unsigned * sizeSeen = nullptr;
      ~Nosy() { *sizeSeen = home->size(); }
   };
   unsigned sizeSeen = 99;
   Vel::Collection< int, std::unique_ptr< Nosy > > home;
   *home.emplace( 1 ).first = std::make_unique< Nosy >( Nosy{ &home, &sizeSeen } );
   sizeSeen = 99;
   {
      std::unique_ptr< Nosy > gone;
      home.extract( 1, gone );
   }
   EXPECT_EQ( 0u, sizeSeen );
}

TEST( Collection, isEmptyForTheValuesThatAreDestroyedWithIt ) {
   struct Nosy {
      Vel::Collection< int, std::unique_ptr< Nosy > > * home = nullptr;
      unsigned * found = nullptr;
      ~Nosy() { *found += home->size() + ( home->find( 1 ) != nullptr ) + ( home->firstKey() != nullptr ); }
   };
   for ( const int count : { 2, 100 } ) {
      SCOPED_TRACE( count );
      unsigned found = 0;
      {
         Vel::Collection< int, std::unique_ptr< Nosy > > home;
         for ( int key = 0; key < count; ++key )
            *home.emplace( key ).first = std::make_unique< Nosy >( Nosy{ &home, &found } );
         found = 0;
      }
      EXPECT_EQ( 0u, found );
   }
}

TEST( Collection, findsEachKeyWhateverItsBitsAndHowManyThereAre ) {
   for ( const unsigned shift : { 0, 20, 48 } ) {
      SCOPED_TRACE( shift );
      constexpr Vel::U64 count = 10000;
      Vel::Collection< Vel::U64, Vel::U64 > bag;
      for ( Vel::U64 i = 0; i < count; ++i )
         *bag.emplace( i << shift ).first = i;
      for ( Vel::U64 i = 0, gone; i < count; i += 3 )
         ASSERT_TRUE( bag.extract( i << shift, gone ) && gone == i ) << i;
      for ( Vel::U64 i = 0; i < count; ++i ) {
         const Vel::U64 * const value = bag.find( i << shift );
         ASSERT_EQ( i % 3 != 0, value && *value == i ) << i;
      }
      EXPECT_EQ( count - ( count + 2 ) / 3, bag.size() );
   }
}

/// Random additions and removals during walks, held against a plain list that is walked by the stated rules.
template < class Order >
void agreesWithAPlainList( unsigned seed ) {
   std::mt19937 draw( seed );
   Bag< Order > bag;
   std::vector< int > model;
   auto add = [&]( int key ) {
      if ( std::count( model.begin(), model.end(), key ) )
         return;
      put( bag, { key } );
      model.push_back( key );
      if ( std::is_same_v< Order, Vel::Ordered > )
         std::sort( model.begin(), model.end() );
   };
   for ( int i = 0; i < 10; ++i )
      add( static_cast< int >( draw() % 30 ) );
   std::vector< int > passed;
   for ( const auto & [key, value] : bag ) {
      ASSERT_EQ( 1, std::count( model.begin(), model.end(), key ) ) << "visited a removed key, seed " << seed;
      ASSERT_EQ( 0, std::count( passed.begin(), passed.end(), key ) ) << "visited twice, seed " << seed;
      passed.push_back( key );
      for ( unsigned n = draw() % 4; n; --n ) {
         const int other = static_cast< int >( draw() % 30 );
         if ( draw() % 2 ) {
            ASSERT_EQ( std::erase( model, other ) == 1, drop( bag, other ) ) << "seed " << seed;
            std::erase( passed, other );
         } else if ( passed.size() < 60 && !std::count( passed.begin(), passed.end(), other ) )
            add( other );
      }
      if ( passed.size() > 200 )
         break;
   }
   ASSERT_EQ( model, keys( bag ) ) << "seed " << seed;
}

TEST( Collection, agreesWithAPlainListWhileKeysComeAndGo ) {
   for ( unsigned seed = 1; seed <= 500; ++seed ) {
      agreesWithAPlainList< Vel::Hashed >( seed );
      agreesWithAPlainList< Vel::Ordered >( seed );
      if ( HasFatalFailure() )
         return;
   }
}

} // namespace
