#include "Api/Slowness.h"

#include <gtest/gtest.h>

#include <vector>

namespace Api {

namespace {

TEST( Slowness, putsFirstWhatNobodyCanSayTheEndOfTheWorstFirstAndThenWhatEndsLast ) {
   const std::vector< Slowness > slowestFirst = {
      { {}, 9e9, 1e5 },    // 90,000 times its threshold
      { {}, 2e9, 1e8 },    // 20 times
      { {}, {}, 1e5 },     // nobody knows: as if it were at it
      { {}, 5e4, 1e5 },    // quiet now
      { 500.0, 2e5, 1e5 }, // what it carries does not matter any more
      { 40.0, 9e9, 1e5 },  { 5.0, {}, {} } };
   for ( std::size_t a = 0; a < slowestFirst.size(); ++a )
      for ( std::size_t b = 0; b < slowestFirst.size(); ++b )
         EXPECT_EQ( a < b, isSlower( slowestFirst[a], slowestFirst[b] ) ) << a << " " << b;
}

TEST( Slowness, isTheSameOfWhatIsAsSlow ) {
   EXPECT_FALSE( isSlower( { {}, 2e5, 1e5 }, { {}, 2e6, 1e6 } ) );
   EXPECT_FALSE( isSlower( { {}, 2e6, 1e6 }, { {}, 2e5, 1e5 } ) );
   EXPECT_FALSE( isSlower( { {}, {}, 1e6 }, { {}, 2e5, {} } ) );
}

} // namespace

} // namespace Api
