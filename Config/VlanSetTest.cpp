#include "Config/VlanSet.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <set>

namespace {

using Config::VlanId;
using Config::VlanRange;
using Config::VlanSet;

using Ids = std::vector< VlanId >;

TEST( VlanSet, joinsRangesThatTouchOrOverlap ) {
   EXPECT_EQ( "1-9", ( VlanSet{ { 1, 3 }, { 7, 9 }, { 4, 6 } } ).text() );
   EXPECT_EQ( "1-9", ( VlanSet{ { 2, 3 }, { 5, 5 }, { 1, 9 } } ).text() );
   EXPECT_EQ( "1-3,5-9", ( VlanSet{ { 5, 9 }, { 1, 3 }, { 6, 7 } } ).text() );
}

TEST( VlanSet, isEqualHoweverItWasWritten ) {
   EXPECT_EQ( ( VlanSet{ { 10, 10 }, { 11, 11 } } ), ( VlanSet{ { 10, 11 } } ) );
   EXPECT_NE( ( VlanSet{ { 10, 10 } } ), ( VlanSet{ { 10, 11 } } ) );
}

TEST( VlanSet, holdsTheFirstAndTheLastId ) {
   const VlanSet all{ { 1, 4094 } };
   EXPECT_TRUE( all.contains( 1 ) );
   EXPECT_TRUE( all.contains( 4094 ) );
   EXPECT_EQ( 4094u, all.ids().size() );
   EXPECT_EQ( "", VlanSet().text() );
}

TEST( VlanSet, leavesOutWhatAnotherHas ) {
   EXPECT_EQ( "1,5-9", ( VlanSet{ { 1, 9 } } ).without( VlanSet{ { 2, 4 } } ).text() );
   EXPECT_TRUE( ( VlanSet{ { 2, 3 } } ).without( VlanSet{ { 1, 4 } } ).empty() );
}

RC_GTEST_PROP( VlanSet, isTheSetOfWhatWasAdded, () ) {
   // Few ids, so that ranges meet often; the last ones too.
   const VlanId base = *rc::gen::element< VlanId >( 1, 4055 );
   VlanSet set;
   std::set< VlanId > model;
   for ( int i = *rc::gen::inRange( 0, 12 ); i > 0; --i ) {
      const auto first = static_cast< VlanId >( base + *rc::gen::inRange( 0, 40 ) );
      const auto last = static_cast< VlanId >( *rc::gen::inRange< int >( first, base + 40 ) );
      set.add( { first, last } );
      for ( VlanId vlan = first; vlan <= last; ++vlan )
         model.insert( vlan );
   }
   RC_ASSERT( set.ids() == Ids( model.begin(), model.end() ) );
   for ( std::size_t i = 1; i < set.ranges().size(); ++i )
      RC_ASSERT( set.ranges()[i - 1].last + 1 < set.ranges()[i].first );
   for ( VlanId vlan = base; vlan < base + 40; ++vlan )
      RC_ASSERT( set.contains( vlan ) == ( model.count( vlan ) == 1 ) );
}

} // namespace
