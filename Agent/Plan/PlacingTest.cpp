#include "Agent/Plan/Placing.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <numeric>

namespace Agent {

TEST( Placing, namesWhatIsOverfullAndNothingElse ) {
   // Two for the small room, one of which has another way that is full too; and one that has nothing to do with them.
   Placing placing;
   std::vector< std::size_t > node;
   for ( int i = 0; i < 6; ++i )
      node.push_back( placing.node() );
   placing.way( 0, 3 );
   placing.way( 1, 3 );
   placing.way( 1, 4 );
   placing.way( 2, 5 );
   const std::vector< bool > full{ true, true, false, true, true, false };
   EXPECT_EQ( full, placing.overfull( { 10, 5, 7, 0, 0, 0 }, { 0, 0, 0, 10, 4, 7 } ) );
   EXPECT_EQ( std::vector< bool >( 6 ), placing.overfull( { 10, 5, 7, 0, 0, 0 }, { 0, 0, 0, 10, 5, 7 } ) );
}

TEST( Placing, looksAtWhatIsConnectedAsOneWhenThereAreTooManyWays ) {
   Placing placing;
   const std::size_t half = 300;
   for ( std::size_t i = 0; i < 2 * half; ++i )
      placing.node();
   for ( std::size_t i = 0; i < half; ++i )
      for ( std::size_t j = 0; j < half; ++j )
         placing.way( i, half + j );
   ASSERT_GT( half * half, Placing::mostWays );
   Placing::Amounts loads( 2 * half ), room( 2 * half );
   std::fill( loads.begin(), loads.begin() + half, 1 );
   room.back() = half;
   EXPECT_EQ( std::vector< bool >( 2 * half ), placing.overfull( loads, room ) );
   room.back() = half - 1;
   EXPECT_EQ( std::vector< bool >( 2 * half, true ), placing.overfull( loads, room ) );
}

RC_GTEST_PROP( Placing, failsWhenSomeLoadsAreMoreThanAllThatTheyHaveAWayTo, () ) {
   const std::size_t loads = *rc::gen::inRange< std::size_t >( 1, 7 );
   const std::size_t rooms = *rc::gen::inRange< std::size_t >( 1, 7 );
   Placing placing;
   Placing::Amounts load( loads + rooms ), room( loads + rooms );
   for ( std::size_t i = 0; i < loads + rooms; ++i ) {
      placing.node();
      ( i < loads ? load : room )[i] = *rc::gen::inRange( 0, 10 );
   }
   std::vector< unsigned > ways( loads );
   for ( std::size_t i = 0; i < loads; ++i )
      for ( std::size_t j = 0; j < rooms; ++j )
         if ( *rc::gen::inRange( 0, 3 ) == 0 ) {
            placing.way( i, loads + j );
            ways[i] |= 1u << j;
         }
   const auto full = placing.overfull( load, room );
   bool failed = false;
   for ( unsigned some = 1; some < 1u << loads; ++some ) {
      unsigned to = 0;
      double amount = 0;
      for ( std::size_t i = 0; i < loads; ++i )
         if ( some & 1u << i ) {
            to |= ways[i];
            amount += load[i];
         }
      for ( std::size_t j = 0; j < rooms; ++j )
         amount -= to & 1u << j ? room[loads + j] : 0;
      failed = failed || amount > 0;
   }
   const bool said = std::count( full.begin(), full.end(), true ) > 0;
   RC_ASSERT( failed == said );
   // What is named is such a part.
   double amount = 0;
   for ( std::size_t i = 0; i < loads + rooms; ++i )
      if ( full[i] )
         amount += load[i] - room[i];
   RC_ASSERT( !failed || amount > 0 );
   for ( std::size_t i = 0; i < loads; ++i )
      for ( std::size_t j = 0; j < rooms; ++j )
         if ( full[i] && ways[i] & 1u << j )
            RC_ASSERT( full[loads + j] );
}

} // namespace Agent
