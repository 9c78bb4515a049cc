#include "DataPlane/Linux/PortCounters.h"

#include <gtest/gtest.h>

namespace DataPlane::Linux {
namespace {

struct Read {
   const char * name;
   Vel::U32 ifIndex;
   Vel::U64 in, out;
};

class PortCounters : public testing::Test {
 protected:
   void refresh( std::initializer_list< Read > reads ) {
      counters.begin();
      for ( const Read & read : reads )
         counters.portIs( Wire::EthIntfId( read.name ), { read.ifIndex, read.in, read.out } );
      counters.end( *pool );
   }
   /// For example "in 100 out 200"; "none" without an entry.
   Vel::String of( const char * name ) {
      const auto * dir = pool->intfCounterDir( Wire::EthIntfId( name ) );
      return dir ? stringValue( dir->counter( "current" )->statistics() ) : "none";
   }

   const Vel::Ptr< VelPool::EntityManager > pool = Vel::make< VelPool::EntityManager >();
   Linux::PortCounters counters;
};

TEST_F( PortCounters, countsAreTheLinksOwn ) {
   refresh( { { "et1", 1, 100, 200 }, { "et2", 2, 5, 6 } } );
   EXPECT_EQ( "in 100 out 200", of( "et1" ) );
   refresh( { { "et1", 1, 150, 200 }, { "et2", 2, 5, 7 } } );
   EXPECT_EQ( "in 150 out 200", of( "et1" ) );
   EXPECT_EQ( "in 5 out 7", of( "et2" ) );
}

TEST_F( PortCounters, orderInWhichLinksAreReadDoesNotMatter ) {
   refresh( { { "et1", 1, 100, 200 }, { "et2", 2, 5, 6 }, { "et3", 3, 1, 1 } } );
   refresh( { { "et3", 3, 2, 2 }, { "et1", 1, 150, 200 }, { "et2", 2, 5, 7 } } );
   EXPECT_EQ( "in 150 out 200", of( "et1" ) );
   EXPECT_EQ( "in 5 out 7", of( "et2" ) );
   EXPECT_EQ( "in 2 out 2", of( "et3" ) );
   refresh( { { "et1", 1, 151, 200 }, { "et2", 2, 6, 7 } } );
   EXPECT_EQ( "in 151 out 200", of( "et1" ) );
   EXPECT_EQ( "in 6 out 7", of( "et2" ) );
   EXPECT_EQ( "none", of( "et3" ) );
}

TEST_F( PortCounters, anotherPoolGetsEverything ) {
   refresh( { { "et1", 1, 100, 200 } } );
   const Vel::Ptr< VelPool::EntityManager > other = Vel::make< VelPool::EntityManager >();
   counters.begin();
   counters.portIs( Wire::EthIntfId( "et1" ), { 1, 150, 200 } );
   counters.end( *other );
   const auto * const dir = other->intfCounterDir( Wire::EthIntfId( "et1" ) );
   ASSERT_TRUE( dir );
   EXPECT_EQ( "in 150 out 200", stringValue( dir->counter( "current" )->statistics() ) );
   EXPECT_EQ( "in 100 out 200", of( "et1" ) );
}

TEST_F( PortCounters, portThatIsNotReadHasNoEntry ) {
   refresh( { { "et1", 1, 100, 200 }, { "et2", 2, 5, 6 } } );
   refresh( { { "et2", 2, 5, 6 } } );
   EXPECT_EQ( "none", of( "et1" ) );
   EXPECT_EQ( "in 5 out 6", of( "et2" ) );
}

TEST_F( PortCounters, refreshThatDoesNotEndChangesNothing ) {
   refresh( { { "et1", 1, 100, 200 } } );
   counters.begin();
   counters.portIs( Wire::EthIntfId( "et1" ), { 1, 500, 500 } );
   EXPECT_EQ( "in 100 out 200", of( "et1" ) );
   refresh( { { "et1", 1, 150, 200 } } );
   EXPECT_EQ( "in 150 out 200", of( "et1" ) );
}

TEST_F( PortCounters, linkMadeAgainCountsOn ) {
   refresh( { { "et1", 1, 100, 200 } } );
   refresh( {} );
   refresh( { { "et1", 7, 10, 0 } } );
   EXPECT_EQ( "in 110 out 200", of( "et1" ) );
   refresh( { { "et1", 7, 30, 5 } } );
   EXPECT_EQ( "in 130 out 205", of( "et1" ) );
}

TEST_F( PortCounters, linkMadeAgainBetweenTwoRefreshesCountsOn ) {
   refresh( { { "et1", 1, 100, 200 } } );
   refresh( { { "et1", 7, 10, 300 } } );
   EXPECT_EQ( "in 110 out 500", of( "et1" ) );
}

TEST_F( PortCounters, countersThatBeginAgainCountOn ) {
   refresh( { { "et1", 1, 100, 200 } } );
   refresh( { { "et1", 1, 10, 250 } } );
   EXPECT_EQ( "in 110 out 250", of( "et1" ) );
}

TEST_F( PortCounters, countersThatStepBackALittleCountOnFromThere ) {
   constexpr Vel::U64 much = 5'000'000'000'000;
   refresh( { { "et1", 1, much, much } } );
   refresh( { { "et1", 1, much - 100, much + 7 } } );
   EXPECT_EQ( Vel::text( "in ", much, " out ", much + 7 ), of( "et1" ) );
   refresh( { { "et1", 1, much - 90, much / 2 + 4 } } );
   EXPECT_EQ( Vel::text( "in ", much + 10, " out ", much + 7 ), of( "et1" ) ) << "just more than half";
   refresh( { { "et1", 1, much / 2 - 45, much / 2 + 4 } } );
   EXPECT_EQ( Vel::text( "in ", much + 10 + much / 2 - 45, " out ", much + 7 ), of( "et1" ) ) << "half";
}

TEST_F( PortCounters, linkRenamedToAKnownPortBringsOnlyWhatIsNew ) {
   refresh( { { "et1", 1, 100, 200 }, { "et2", 2, 5000, 6000 } } );
   refresh( { { "et2", 2, 5000, 6000 } } );
   refresh( { { "et1", 2, 5003, 6004 } } );
   EXPECT_EQ( "in 103 out 204", of( "et1" ) );
   EXPECT_EQ( "none", of( "et2" ) );
}

TEST_F( PortCounters, linkRenamedToANewPortBringsItsCount ) {
   refresh( { { "et1", 1, 100, 200 } } );
   refresh( { { "et9", 1, 150, 200 } } );
   EXPECT_EQ( "in 150 out 200", of( "et9" ) );
}

TEST_F( PortCounters, portsThatExchangeTheirLinksCountOn ) {
   refresh( { { "et1", 1, 100, 200 }, { "et2", 2, 5000, 6000 } } );
   refresh( { { "et1", 2, 5001, 6000 }, { "et2", 1, 100, 202 } } );
   EXPECT_EQ( "in 101 out 200", of( "et1" ) );
   EXPECT_EQ( "in 5000 out 6002", of( "et2" ) );
}

TEST_F( PortCounters, numberThatIsUsedAgainIsANewLink ) {
   refresh( { { "et1", 1, 100, 200 }, { "et2", 2, 5000, 6000 } } );
   refresh( { { "et1", 2, 7, 8 } } );
   EXPECT_EQ( "in 107 out 208", of( "et1" ) );
}

TEST_F( PortCounters, portThatFlapsForLongIsNotForgotten ) {
   refresh( { { "et1", 1, 100, 200 } } );
   for ( std::size_t i = 0; i < Linux::PortCounters::maxDeparted + 10; ++i ) {
      refresh( {} );
      refresh( { { "et1", static_cast< Vel::U32 >( i + 2 ), 0, 0 } } );
   }
   EXPECT_EQ( "in 100 out 200", of( "et1" ) );
}

TEST_F( PortCounters, ofVeryManyThatHaveGoneTheLongestGoneAreForgotten ) {
   const auto name = []( std::size_t i ) { return Vel::text( "et", i ); };
   for ( std::size_t i = 0; i <= Linux::PortCounters::maxDeparted; ++i )
      refresh( { { name( i ).c_str(), static_cast< Vel::U32 >( i + 1 ), 100, 100 } } );
   refresh( {} );
   refresh( { { "et0", 99999, 1, 1 }, { "et1", 99998, 1, 1 } } );
   EXPECT_EQ( "in 1 out 1", of( "et0" ) );
   EXPECT_EQ( "in 101 out 101", of( "et1" ) );
}

TEST_F( PortCounters, transmittedOctetsHave63Bits ) {
   refresh( { { "et1", 1, ~0ull, ( 1ull << 63 ) + 5 } } );
   EXPECT_EQ( Vel::text( "in ", ~0ull, " out 5" ), of( "et1" ) );
}

} // namespace
} // namespace DataPlane::Linux
