#include "MaintenancePlugin/RateAggregatorTest.h"

#include <cmath>
#include <limits>

namespace MaintenanceMode {
namespace {

using Vel::U64;

constexpr U64 maxU64 = std::numeric_limits< U64 >::max();
constexpr U64 half = U64( 1 ) << 63;

struct RateArithmetic : RateAggregator {};

TEST_F( RateArithmetic, replacesWhatAnInterfaceContributed ) {
   const TrafficRates before{ 900, 5000, 1 };
   rig.advance( 3 );
   EXPECT_EQ(
      ( TrafficRates{ 600, 7000, rig.now() } ),
      calculated( before, rates( 1000, 500, 1 ), rates( 3000, 200, 2 ) ) );
}

TEST_F( RateArithmetic, rounding ) {
   const double infinity = std::numeric_limits< double >::infinity();
   const struct {
      double rate;
      U64 whole;
   } rows[] = {
      { 0, 0 },
      { 0.49, 0 },
      { 0.5, 1 },
      { 1.5, 2 },
      { 2.5, 3 },
      { 2.49, 2 },
      { 4503599627370497.5, 4503599627370498 },
      { 1e18, 1'000'000'000'000'000'000 },
      { 9223372036854774784.0, 9223372036854774784u },
      { 9223372036854775808.0, half },
      { 18446744073709549568.0, 18446744073709549568u },
      // What no counter can give has one value each.
      { 18446744073709551616.0, 0 },
      { infinity, 0 },
      { -infinity, 0 },
      { std::nan( "" ), half },
      { -0.4, 0 },
      { -0.5, maxU64 },
      { -5, maxU64 - 4 },
      { -9223372036854775808.0, half },
      { -9223372036854777856.0, 0 },
   };
   for ( const auto & row : rows ) {
      SCOPED_TRACE( row.rate );
      const TrafficRates in = calculated( {}, {}, rates( row.rate, 0, 0 ) );
      EXPECT_EQ( row.whole, in.inRate );
      EXPECT_EQ( 0u, in.outRate );
      const TrafficRates out = calculated( {}, {}, rates( 0, row.rate, 0 ) );
      EXPECT_EQ( row.whole, out.outRate );
      // What was added can be taken away again.
      EXPECT_EQ( 0u, calculated( in, rates( row.rate, 0, 0 ), {} ).inRate );
      EXPECT_EQ( 0u, calculated( out, rates( 0, row.rate, 0 ), {} ).outRate );
   }
}

TEST_F( RateArithmetic, looksAtTheTwoRatesOnly ) {
   const IntfRates others{ 1e6, 2e6, 0, 0, 3e6 };
   EXPECT_EQ( ( TrafficRates{ 2, 1, rig.now() } ), calculated( { 2, 1, 1 }, others, others ) );
}

TEST_F( RateArithmetic, takesAwayExactlyWhatIsThere ) {
   const TrafficRates none = calculated( { 20, 10, 1 }, rates( 10, 20, 0 ), {} );
   EXPECT_EQ( 0u, none.inRate );
   EXPECT_EQ( 0u, none.outRate );
}

TEST_F( RateArithmetic, addsUpToTheLastBit ) {
   const TrafficRates full =
      calculated( { half, half, 1 }, {}, rates( 9223372036854774784.0, 9223372036854774784.0, 0 ) );
   EXPECT_EQ( maxU64 - 1023, full.inRate );
   EXPECT_EQ( maxU64 - 1023, full.outRate );
}

TEST_F( RateArithmetic, anInconsistencyEndsTheAgentWithItsNumbers ) {
   constexpr double big = 9223372036854775808.0;
   const struct {
      const char * what;
      TrafficRates aggregate;
      IntfRates toSub, toAdd;
      Vel::String trace, logged;
   } rows[] = {
      { "more taken away in than there is",
        { 9, 5, 1 },
        rates( 10, 0, 0 ),
        {},
        "Underflow while subtracting rateToSubInRate from curAggInRate. Unit:u1 IntfId:et1 "
        "ratesToSubInRate:10 curAggInRate:5",
        "Underflow while subtracting ratesToSubInRate from curAggInRate. Unit:u1 IntfId:et1 "
        "ratesToAddInRate:10 curAggInRate:5" },
      { "more taken away out than there is",
        { 5, 9, 1 },
        rates( 0, 10, 0 ),
        {},
        "Underflow while subtracting rateToSubOutRate from curAggOutRate. Unit:u1 IntfId:et1 "
        "ratesToSubOutRate:10 curAggOutRate:5",
        "Underflow while subtracting ratesToSubOutRate from curAggOutRate. Unit:u1 IntfId:et1 "
        "ratesToSubOutRate:10 curAggOutRate:5" },
      { "one bit per second more than there is",
        { 9, 9, 1 },
        rates( 10, 9, 0 ),
        {},
        "Underflow while subtracting rateToSubInRate from curAggInRate. Unit:u1 IntfId:et1 "
        "ratesToSubInRate:10 curAggInRate:9",
        "Underflow while subtracting ratesToSubInRate from curAggInRate. Unit:u1 IntfId:et1 "
        "ratesToAddInRate:10 curAggInRate:9" },
      { "what is added in does not make up for what was never there",
        { 9, 5, 1 },
        rates( 10, 0, 0 ),
        rates( 100, 0, 0 ),
        "Underflow while subtracting rateToSubInRate from curAggInRate. Unit:u1 IntfId:et1 "
        "ratesToSubInRate:10 curAggInRate:5",
        "Underflow while subtracting ratesToSubInRate from curAggInRate. Unit:u1 IntfId:et1 "
        "ratesToAddInRate:10 curAggInRate:5" },
      { "what is added out does not make up for what was never there",
        { 5, 9, 1 },
        rates( 0, 10, 0 ),
        rates( 0, 100, 0 ),
        "Underflow while subtracting rateToSubOutRate from curAggOutRate. Unit:u1 IntfId:et1 "
        "ratesToSubOutRate:10 curAggOutRate:5",
        "Underflow while subtracting ratesToSubOutRate from curAggOutRate. Unit:u1 IntfId:et1 "
        "ratesToSubOutRate:10 curAggOutRate:5" },
      { "received is looked at before transmitted",
        { 5, 5, 1 },
        rates( 10, 10, 0 ),
        {},
        "Underflow while subtracting rateToSubInRate from curAggInRate. Unit:u1 IntfId:et1 "
        "ratesToSubInRate:10 curAggInRate:5",
        "Underflow while subtracting ratesToSubInRate from curAggInRate. Unit:u1 IntfId:et1 "
        "ratesToAddInRate:10 curAggInRate:5" },
      { "taking away is looked at before adding",
        { 5, half, 1 },
        rates( 0, 10, 0 ),
        rates( big, 0, 0 ),
        "Underflow while subtracting rateToSubOutRate from curAggOutRate. Unit:u1 IntfId:et1 "
        "ratesToSubOutRate:10 curAggOutRate:5",
        "Underflow while subtracting ratesToSubOutRate from curAggOutRate. Unit:u1 IntfId:et1 "
        "ratesToSubOutRate:10 curAggOutRate:5" },
      { "in beyond 64 bits",
        { 9, half + 3, 1 },
        {},
        rates( big, 0, 0 ),
        "Overflow while adding ratesToAddInRate to curAggInRate. Unit:u1 IntfId:et1 "
        "ratesToAddInRate:9223372036854775808 curAggInRate:9223372036854775811",
        "Overflow while adding ratesToAddInRate to curAggInRate. Unit:u1 IntfId:et1 "
        "ratesToAddInRate:9223372036854775808 curAggInRate:9223372036854775811 sumIn:3" },
      { "out beyond 64 bits",
        { maxU64 - 9, 9, 1 },
        {},
        rates( 0, 20, 0 ),
        "Overflow while adding ratesToAddOutRate to curAggOutRate. Unit:u1 IntfId:et1 "
        "ratesToAddOutRate:20 curAggOutRate:18446744073709551606",
        "Overflow while adding ratesToAddOutRate to curAggOutRate. Unit:u1 IntfId:et1 "
        "ratesToAddOutRate:20 curAggOutRate:18446744073709551606 sumOut:10" },
      { "one bit per second beyond 64 bits",
        { 9, maxU64, 1 },
        {},
        rates( 1, 0, 0 ),
        "Overflow while adding ratesToAddInRate to curAggInRate. Unit:u1 IntfId:et1 "
        "ratesToAddInRate:1 curAggInRate:18446744073709551615",
        "Overflow while adding ratesToAddInRate to curAggInRate. Unit:u1 IntfId:et1 "
        "ratesToAddInRate:1 curAggInRate:18446744073709551615 sumIn:0" },
      { "what is taken away in does not make room for what is added",
        { 9, maxU64 - 9, 1 },
        rates( 50, 0, 0 ),
        rates( 20, 0, 0 ),
        "Overflow while adding ratesToAddInRate to curAggInRate. Unit:u1 IntfId:et1 "
        "ratesToAddInRate:20 curAggInRate:18446744073709551606",
        "Overflow while adding ratesToAddInRate to curAggInRate. Unit:u1 IntfId:et1 "
        "ratesToAddInRate:20 curAggInRate:18446744073709551606 sumIn:10" },
      { "what is taken away out does not make room for what is added",
        { half, 9, 1 },
        rates( 0, big, 0 ),
        rates( 0, big, 0 ),
        "Overflow while adding ratesToAddOutRate to curAggOutRate. Unit:u1 IntfId:et1 "
        "ratesToAddOutRate:9223372036854775808 curAggOutRate:9223372036854775808",
        "Overflow while adding ratesToAddOutRate to curAggOutRate. Unit:u1 IntfId:et1 "
        "ratesToAddOutRate:9223372036854775808 curAggOutRate:9223372036854775808 sumOut:0" },
   };
   for ( const auto & row : rows ) {
      SCOPED_TRACE( row.what );
      const auto failed = [&] {
         return Vel::failedAssertion( [&] { calculated( row.aggregate, row.toSub, row.toAdd ); } );
      };
      EXPECT_EQ( "0", failed() ) << "untraced";
      Sequence sequence( "IntfRateAggregatorSm" );
      EXPECT_EQ( "0", failed() );
      EXPECT_EQ( ( Lines{ "calculateNewAggregate: " + row.trace } ), sequence.lines() );
      EXPECT_TRUE( sequence.traced( row.trace, 1 ) );
      EXPECT_EQ( ( Lines{ row.logged } ), sequence.logged() );
   }
}

TEST_F( RateArithmetic, isTraced ) {
   Sequence sequence( "IntfRateAggregatorSm" );
   calculated( { 900, 5000, 1 }, rates( 1000, 500, 1 ), rates( 3000, 200, 2 ) );
   EXPECT_EQ(
      ( Lines{ "calculateNewAggregate: unit:u1 intfId:et1 curAggInRate: 5000 ratesToSubInRate:1000 "
               "ratesToAddInRate:3000 newAggInRate:7000. curAggOutRate:900 ratesToSubOutRate500 "
               "ratesToAddOutRate: 200 newAggOutRate:600" } ),
      sequence.lines() );
   EXPECT_TRUE( sequence.traced( "calculateNewAggregate: ", 4 ) );
   EXPECT_EQ( Lines(), sequence.logged() );
}

} // namespace
} // namespace MaintenanceMode
