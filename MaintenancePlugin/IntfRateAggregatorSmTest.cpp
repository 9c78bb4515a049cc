#include "MaintenancePlugin/SamplerTest.h"

#include <cmath>
#include <limits>

namespace MaintenanceMode {
namespace {

using Maintenance::Unit::TrafficRates;
using Vel::U64;

constexpr U64 maxU64 = std::numeric_limits< U64 >::max();
constexpr U64 half = U64( 1 ) << 63;

struct RateAggregator : SamplerTest {
   IntfRateAggregatorSm & aggregator() { return *rig.root->intfRateAggSm(); }

   /// Publishes rates as a sample does.
   void sample( MonitoredIntf & sampler, double in, double out ) {
      sampler.setCurRates( sampler.monIntfStatus(), rates( in, out, rig.now() ) );
   }
   /// A sampler that the units hold, with rates published before they did.
   MonitoredIntf &
   member( const IntfId & intf, double in, double out, std::initializer_list< Vel::String > units ) {
      MonitoredIntf & sampler = monitored( intf );
      sample( sampler, in, out );
      for ( const Vel::String & unit : units )
         sampler.dependentUnitIs( unit, true );
      return sampler;
   }
   void aggregateIs( const Vel::String & unit, U64 in, U64 out ) {
      rig.unit( unit ).aggTrafficRateIs( { out, in, 1 } );
   }
   void expectAggregate( const Vel::String & unit, U64 in, U64 out ) {
      EXPECT_EQ( in, rig.unit( unit ).aggTrafficRate().inRate );
      EXPECT_EQ( out, rig.unit( unit ).aggTrafficRate().outRate );
   }
   TrafficRates
   calculated( const TrafficRates & aggregate, const IntfRates & toSub, const IntfRates & toAdd ) {
      return aggregator().calculateNewAggregate( "u1", et1, aggregate, toSub, toAdd );
   }
};
struct RateArithmetic : RateAggregator {};

// ---- arithmetic

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
   const IntfRates big = rates( 9223372036854775808.0, 0, 0 );
   const IntfRates bigOut = rates( 0, 9223372036854775808.0, 0 );
   const struct {
      const char * what;
      TrafficRates aggregate;
      IntfRates toSub, toAdd;
      const char * trace;
      const char * logged;
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
      { "what is added does not make up for what was never there",
        { 9, 5, 1 },
        rates( 10, 0, 0 ),
        rates( 100, 0, 0 ),
        "Underflow while subtracting rateToSubInRate",
        "Underflow while subtracting ratesToSubInRate" },
      { "received is looked at first",
        { 5, 5, 1 },
        rates( 10, 10, 0 ),
        {},
        "Underflow while subtracting rateToSubInRate",
        "Underflow while subtracting ratesToSubInRate" },
      { "in beyond 64 bits",
        { 9, half + 3, 1 },
        {},
        big,
        "Overflow while adding ratesToAddInRate to curAggInRate. Unit:u1 IntfId:et1 "
        "ratesToAddInRate:9223372036854775808 curAggInRate:9223372036854775811",
        "Overflow while adding ratesToAddInRate to curAggInRate. Unit:u1 IntfId:et1 "
        "ratesToAddInRate:9223372036854775808 curAggInRate:9223372036854775811 sumIn:3" },
      { "out beyond 64 bits",
        { half + 3, 9, 1 },
        {},
        bigOut,
        "Overflow while adding ratesToAddOutRate to curAggOutRate. Unit:u1 IntfId:et1 "
        "ratesToAddOutRate:9223372036854775808 curAggOutRate:9223372036854775811",
        "Overflow while adding ratesToAddOutRate to curAggOutRate. Unit:u1 IntfId:et1 "
        "ratesToAddOutRate:9223372036854775808 curAggOutRate:9223372036854775811 sumOut:3" },
      { "what is taken away does not make room for what is added",
        { 9, half, 1 },
        big,
        big,
        "Overflow while adding ratesToAddInRate",
        "Overflow while adding ratesToAddInRate" },
   };
   for ( const auto & row : rows ) {
      SCOPED_TRACE( row.what );
      Vel::TraceCapture traces;
      FastLog::Capture log;
      EXPECT_EQ( "0", Vel::failedAssertion( [&] { calculated( row.aggregate, row.toSub, row.toAdd ); } ) );
      EXPECT_EQ( 1u, traces.lines().size() );
      EXPECT_TRUE( traces.has( Vel::text( "calculateNewAggregate: ", row.trace ), 1 ) );
      ASSERT_EQ( 1u, log.lines().size() );
      EXPECT_TRUE( log.has( row.logged ) ) << log.lines()[0].text;
   }
}

TEST_F( RateArithmetic, isTraced ) {
   Vel::TraceCapture traces;
   calculated( { 900, 5000, 1 }, rates( 1000, 500, 1 ), rates( 3000, 200, 2 ) );
   ASSERT_EQ( 1u, traces.lines().size() );
   EXPECT_TRUE( traces.has(
      "calculateNewAggregate: unit:u1 intfId:et1 curAggInRate: 5000 ratesToSubInRate:1000 "
      "ratesToAddInRate:3000 newAggInRate:7000. curAggOutRate:900 ratesToSubOutRate500 "
      "ratesToAddOutRate: 200 newAggOutRate:600",
      4 ) );
}

// ---- rates change

TEST_F( RateAggregator, aSampleReplacesTheRatesOfTheOneBeforeInEveryUnit ) {
   rig.unit( "u1" );
   rig.unit( "u2" );
   aggregateIs( "u3", 7, 7 );
   MonitoredIntf & sampler = member( et1, 1000, 500, { "u1", "u2" } );
   member( et2, 4000, 400, { "u1" } );
   expectAggregate( "u1", 5000, 900 );
   rig.advance( 1 );
   Vel::TraceCapture traces;
   sample( sampler, 3000, 200 );
   expectAggregate( "u1", 7000, 600 );
   expectAggregate( "u2", 3000, 200 );
   expectAggregate( "u3", 7, 7 );
   EXPECT_EQ( rig.now(), rig.unit( "u1" ).aggTrafficRate().time );
   EXPECT_EQ( 1, rig.unit( "u3" ).aggTrafficRate().time );
   EXPECT_TRUE( traces.has( "handleMonIntfStatusRateChange: et1", 4 ) );
   EXPECT_TRUE( traces.has( "handleMonIntfStatusRateChange: Rates changed for interface:et1", 4 ) );
}

TEST_F( RateAggregator, theSameRatesAgainChangeNothing ) {
   rig.unit( "u1" );
   MonitoredIntf & sampler = member( et1, 1000, 500, { "u1" } );
   const TrafficRates before = rig.unit( "u1" ).aggTrafficRate();
   rig.advance( 1 );
   sampler.monIntfStatus()->curRatesIs( sampler.monIntfStatus()->curRates() );
   EXPECT_EQ( before, rig.unit( "u1" ).aggTrafficRate() );
}

TEST_F( RateAggregator, ratesOfARecordThatNobodySamplesAreOnlyTraced ) {
   aggregateIs( "u1", 5000, 900 );
   auto * record = rig.monIntfStatusDir->monIntfStatusIs( et1 );
   Vel::TraceCapture traces;
   record->curRatesIs( rates( 1, 1, 1 ) );
   expectAggregate( "u1", 5000, 900 );
   EXPECT_TRUE( traces.has(
      "handleMonIntfStatusRateChange: ERROR:MonitoredIntf object does not exist for the interface et1 whose "
      "rate changed" ) );
   EXPECT_FALSE( traces.has( "Rates changed for interface" ) );
}

TEST_F( RateAggregator, ratesOfASamplerThatHasLeftAreOnlyTraced ) {
   rig.unit( "u1" );
   const Vel::Ptr< MonitoredIntf > sampler = &member( et1, 1000, 500, { "u1" } );
   rig.root->monIntfDir()->monitoredIntfDel( et1 );
   Vel::TraceCapture traces;
   sample( *sampler, 7, 7 );
   expectAggregate( "u1", 1000, 500 );
   EXPECT_TRUE( traces.has( "ERROR:MonitoredIntf object does not exist for the interface et1" ) );
}

TEST_F( RateAggregator, ratesForAUnitWithoutStatusEndTheAgent ) {
   MonitoredIntf & sampler = member( et1, 0, 0, { "u1" } );
   Vel::TraceCapture traces;
   EXPECT_EQ( "0", Vel::failedAssertion( [&] { sample( sampler, 1, 1 ); } ) );
   EXPECT_TRUE(
      traces.has( "Error:Unit Status object does not exist for a dependent unit.IntfId:et1 Unit:u1", 1 ) );
}

TEST_F( RateAggregator, whatWasNeverAddedToAUnitCannotBeReplaced ) {
   // The interface joined before the unit had a status.
   MonitoredIntf & early = member( et1, 1000, 500, { "u1" } );
   rig.unit( "u1" );
   EXPECT_EQ( "0", Vel::failedAssertion( [&] { sample( early, 2000, 500 ); } ) );
   // The status has been replaced since.
   rig.unit( "u2" );
   MonitoredIntf & late = member( et2, 1000, 500, { "u2" } );
   rig.unitStatusDir->statusDel( "u2" );
   rig.unit( "u2" );
   EXPECT_EQ( "0", Vel::failedAssertion( [&] { sample( late, 2000, 500 ); } ) );
   // Somebody else has written the aggregate.
   rig.unit( "u3" );
   MonitoredIntf & overwritten = member( et3, 1000, 500, { "u3" } );
   aggregateIs( "u3", 999, 500 );
   EXPECT_EQ( "0", Vel::failedAssertion( [&] { sample( overwritten, 2000, 500 ); } ) );
}

TEST_F( RateAggregator, sixInterfacesWhoseCountersWentBackwardsEndTheAgentAndItsNextStart ) {
   rig.unit( "u1" );
   std::vector< Vel::Ptr< MonitoredIntf > > samplers;
   for ( int i = 0; i != 6; ++i ) {
      const IntfId port = PluginRig::port( Vel::text( "back", i ) );
      countersAre( port, 1000, MaybeU63( 0 ) );
      samplers.push_back( &member( port, 0, 0, { "u1" } ) );
      countersAre( port, 0, MaybeU63( 0 ) );
   }
   rig.advance( 5 );
   Vel::TraceCapture traces;
   for ( int i = 0; i != 5; ++i )
      samplers[i]->updateTrafficRates();
   EXPECT_EQ( "0", Vel::failedAssertion( [&] { samplers[5]->updateTrafficRates(); } ) );
   EXPECT_EQ( 1u, traces.count( "Overflow while adding ratesToAddInRate", 1 ) );
   // The rates are in the records, from which the aggregates are rebuilt.
   rig.root->intfRateAggSmDel();
   EXPECT_EQ( "0", Vel::failedAssertion( [&] {
                 rig.root->intfRateAggSmIs( rig.root->monIntfDir(), rig.monIntfStatusDir, rig.unitStatusDir );
              } ) );
}

// ---- membership changes

TEST_F( RateAggregator, anInterfaceAddsItsRateToEachUnitThatItJoins ) {
   aggregateIs( "u1", 100, 10 );
   rig.unit( "u2" );
   rig.advance( 1 );
   Vel::TraceCapture traces;
   member( et1, 1000.5, 500.4, { "u1", "u2" } );
   expectAggregate( "u1", 1101, 510 );
   expectAggregate( "u2", 1001, 500 );
   EXPECT_EQ( rig.now(), rig.unit( "u1" ).aggTrafficRate().time );
   EXPECT_TRUE( traces.has( "handleMonitoredIntfConfigChange: et1 u1", 4 ) );
   EXPECT_TRUE(
      traces.has( "IntfId:et1 was added to Unit:u1. Adding the intf rate to unit's aggregate.", 4 ) );
}

TEST_F( RateAggregator, anInterfaceTakesItsRateFromTheUnitThatItLeavesOnly ) {
   rig.unit( "u1" );
   rig.unit( "u2" );
   MonitoredIntf & sampler = member( et1, 1000, 500, { "u1", "u2" } );
   Vel::TraceCapture traces;
   sampler.dependentUnitDel( "u1" );
   expectAggregate( "u1", 0, 0 );
   expectAggregate( "u2", 1000, 500 );
   EXPECT_TRUE( traces.has(
      "IntfId:et1 was removed from the Unit:u1. Subtracting the intf rate from unit's aggregate", 4 ) );
}

TEST_F( RateAggregator, membershipOfAUnitWithoutStatusIsOnlyTraced ) {
   Vel::TraceCapture traces;
   MonitoredIntf & sampler = member( et1, 1000, 500, { "u1" } );
   sampler.dependentUnitDel( "u1" );
   EXPECT_EQ( 0u, rig.unitStatusDir->statuss() );
   EXPECT_EQ(
      2u, traces.count(
             "UnitStatus object does not exist. Nothing to do. Early return.UnitName:u1 IntfId:et1", 4 ) );
   EXPECT_FALSE( traces.has( "calculateNewAggregate" ) );
}

TEST_F( RateAggregator, joiningAgainAndLeavingAsAStrangerChangeNothing ) {
   rig.unit( "u1" );
   rig.unit( "u2" );
   MonitoredIntf & sampler = member( et1, 1000, 500, { "u1" } );
   sampler.dependentUnitIs( "u1", true );
   sampler.dependentUnitDel( "u2" );
   expectAggregate( "u1", 1000, 500 );
   expectAggregate( "u2", 0, 0 );
}

TEST_F( RateAggregator, aMemberThatIsMarkedAbsentIsTakenAwayOnceAndStillFollowed ) {
   rig.unit( "u1" );
   MonitoredIntf & sampler = member( et1, 1000, 500, { "u1" } );
   sampler.dependentUnitIs( "u1", false );
   expectAggregate( "u1", 0, 0 );
   EXPECT_EQ( "0", Vel::failedAssertion( [&] { sample( sampler, 2000, 500 ); } ) );
}

TEST_F( RateAggregator, membershipOfAnInterfaceWithoutRecordIsAnAssertion ) {
   rig.unit( "u1" );
   MonitoredIntf & sampler = monitored( et1 );
   sampler.monIntfStatusIs( nullptr );
   EXPECT_EQ( "monitoredIntf()->monIntfStatus()", Vel::failedAssertion( [&] {
                 sampler.dependentUnitIs( "u1", true );
              } ) );
}

// ---- what is watched

TEST_F( RateAggregator, watchesSamplersAndRecordsWhileTheyAreThere ) {
   EXPECT_FALSE( aggregator().monitoredIntf( et1 ) );
   EXPECT_FALSE( aggregator().monIntfStatus( et1 ) );
   monitored( et1 );
   EXPECT_TRUE( aggregator().monitoredIntf( et1 ) );
   EXPECT_TRUE( aggregator().monIntfStatus( et1 ) );
   rig.root->monIntfDir()->monitoredIntfDel( et1 );
   EXPECT_FALSE( aggregator().monitoredIntf( et1 ) );
   EXPECT_FALSE( aggregator().monIntfStatus( et1 ) );
}

TEST_F( RateAggregator, watchesWhatHasReplacedASamplerOrARecord ) {
   rig.unit( "u1" );
   const Vel::Ptr< MonitoredIntf > old = &monitored( et1 );
   rig.root->monIntfDir()->monitoredIntfDel( et1 );
   rig.monIntfStatusDir->monIntfStatusDel( et1 );
   MonitoredIntf & sampler = member( et1, 1000, 500, { "u1" } );
   expectAggregate( "u1", 1000, 500 );
   sample( sampler, 2000, 500 );
   expectAggregate( "u1", 2000, 500 );
   old->dependentUnitIs( "u1", true );
   old->monIntfStatus()->curRatesIs( rates( 7, 7, 7 ) );
   expectAggregate( "u1", 2000, 500 );
}

TEST_F( RateAggregator, refusesToWatchNothing ) {
   try {
      aggregator().monIntfStatusIs( et1, nullptr );
      ADD_FAILURE() << "not refused";
   } catch ( const Vel::RangeError & error ) {
      EXPECT_STREQ(
         "null _monIntfStatus parameter to mutator for MaintenanceMode::IntfRateAggregatorSm::monIntfStatus "
         "not allowed",
         error.what() );
   }
   try {
      aggregator().monitoredIntfIs( et1, nullptr );
      ADD_FAILURE() << "not refused";
   } catch ( const Vel::RangeError & error ) {
      EXPECT_STREQ(
         "null _monitoredIntf parameter to mutator for MaintenanceMode::IntfRateAggregatorSm::monitoredIntf "
         "not allowed",
         error.what() );
   }
}

// ---- start

struct RateAggregatorStart : RateAggregator {
   /// Whatever the samplers hold then is what an aggregator finds that starts.
   RateAggregatorStart() { rig.root->intfRateAggSmDel(); }
   void startAggregator() {
      rig.root->intfRateAggSmIs( rig.root->monIntfDir(), rig.monIntfStatusDir, rig.unitStatusDir );
   }
};

TEST_F( RateAggregatorStart, sumsUpFromZero ) {
   aggregateIs( "u1", 123, 456 );
   aggregateIs( "u2", 123, 456 );
   aggregateIs( "u3", 123, 456 );
   member( et1, 1000, 500, { "u1", "u2" } );
   member( et2, 2000.5, 300, { "u1" } );
   rig.advance( 1 );
   startAggregator();
   expectAggregate( "u1", 3001, 800 );
   expectAggregate( "u2", 1000, 500 );
   EXPECT_EQ( rig.now(), rig.unit( "u1" ).aggTrafficRate().time );
   EXPECT_EQ( TrafficRates(), rig.unit( "u3" ).aggTrafficRate() );
   EXPECT_TRUE( aggregator().initialized() );
}

TEST_F( RateAggregatorStart, goesOnFromWhatItHasSummedUp ) {
   rig.unit( "u1" );
   MonitoredIntf & sampler = member( et1, 1000, 500, { "u1" } );
   startAggregator();
   sample( sampler, 3000, 200 );
   expectAggregate( "u1", 3000, 200 );
   sampler.dependentUnitDel( "u1" );
   expectAggregate( "u1", 0, 0 );
}

TEST_F( RateAggregatorStart, skipsUnitsWithoutStatus ) {
   rig.unit( "u2" );
   member( et1, 1000, 500, { "u1", "u2" } );
   startAggregator();
   EXPECT_EQ( 1u, rig.unitStatusDir->statuss() );
   expectAggregate( "u2", 1000, 500 );
}

TEST_F( RateAggregatorStart, needsARecordOfEverySampler ) {
   monitored( et1 ).monIntfStatusIs( nullptr );
   EXPECT_EQ( "intfIter->monIntfStatus()", Vel::failedAssertion( [&] { startAggregator(); } ) );
}

TEST_F( RateAggregatorStart, isTraced ) {
   rig.unit( "u1" );
   Vel::TraceCapture traces;
   startAggregator();
   ASSERT_EQ( 3u, traces.lines().size() );
   EXPECT_TRUE( traces.has( "handleInitialized: IntfRateAggregatorSm started", 5 ) );
   EXPECT_TRUE( traces.has( "handleInitialized: Resetting the aggregate rate for unit:u1", 9 ) );
   EXPECT_TRUE( traces.has( "handleInitialized: IntfRateAggregatorSm - initialized", 4 ) );
}

TEST_F( RateAggregatorStart, findsNothingWhereThereAreNoDirectories ) {
   const auto alone = Vel::make< IntfRateAggregatorSm >( nullptr, nullptr, nullptr );
   alone->handleInitialized();
   EXPECT_TRUE( alone->initialized() );
}

// ---- with everything else

struct RateAggregatorInThePlugin : testing::Test {
   PluginRig rig;
   const Wire::IntfId et1 = PluginRig::port( "et1" );
   const Wire::IntfId et2 = PluginRig::port( "et2" );

   RateAggregatorInThePlugin() {
      rig.profileIs( "p", 100, 10, false, 0 );
      rig.defaultProfileIs( "p" );
      rig.linkIs( et1 );
      rig.linkIs( et2 );
      rig.trafficIs( et1, { 3e6, 1e6 } );
      rig.trafficIs( et2, { 5e6, 7e6 } );
      rig.unitIs( "u1", { et1, et2 } );
      rig.unitIs( "u2", { et2 } );
   }
   void expectAggregate( const Vel::String & unit, U64 in, U64 out ) {
      EXPECT_EQ( in, rig.unit( unit ).aggTrafficRate().inRate );
      EXPECT_EQ( out, rig.unit( unit ).aggTrafficRate().outRate );
   }
};

TEST_F( RateAggregatorInThePlugin, aUnitsAggregateIsTheTrafficOfWhatIsMonitoredForIt ) {
   rig.start();
   rig.enter( "u1" );
   expectAggregate( "u1", 0, 0 );
   rig.advance( 5 );
   expectAggregate( "u1", 8'000'000, 8'000'000 );
   expectAggregate( "u2", 0, 0 );
   rig.enter( "u2" );
   expectAggregate( "u2", 5'000'000, 7'000'000 );
   rig.linkIs( et2, false );
   rig.settle();
   expectAggregate( "u1", 3'000'000, 1'000'000 );
   expectAggregate( "u2", 0, 0 );
   rig.exit( "u1" );
   expectAggregate( "u1", 0, 0 );
}

TEST_F( RateAggregatorInThePlugin, theRatesOfAShutInterfaceStayUntilTheUnitLetsGoOfIt ) {
   rig.profileIs( "p", 100, 10, true, 10 );
   rig.start();
   rig.enter( "u1" );
   rig.advance( 10 );
   ASSERT_TRUE( rig.shut( et1 ) );
   rig.trafficIs( et1, {} );
   rig.trafficIs( et2, {} );
   rig.advance( 100 );
   expectAggregate( "u1", 8'000'000, 8'000'000 );
   rig.exit( "u1" );
   expectAggregate( "u1", 0, 0 );
}

TEST_F( RateAggregatorInThePlugin, aRestartSumsUpTheRatesOfTheRecordsThatItAdopts ) {
   rig.start();
   rig.enter( "u1" );
   rig.advance( 5 );
   rig.entered( "u1" );
   rig.unit( "u2" ).aggTrafficRateIs( { 1, 2, 3 } );
   rig.crashAndRestart();
   expectAggregate( "u1", 8'000'000, 8'000'000 );
   expectAggregate( "u2", 0, 0 );
   rig.advance( 10 );
   expectAggregate( "u1", 8'000'000, 8'000'000 );
}

TEST_F( RateAggregatorInThePlugin, anEnterOfAUnitWithoutStatusEndsTheAgentAtTheFirstSample ) {
   rig.unitStatusDir->statusDel( "u2" );
   rig.enterClass.progressDir->progressIs( "u2#1" )->stageStatusIs( stageName, Stage::stageRunning );
   rig.start();
   rig.root->doStageForInstance( maintEnterClass, stageName, "u2#1" );
   Vel::TraceCapture traces( 1 );
   EXPECT_EQ( "0", Vel::failedAssertion( [&] { rig.advance( 5 ); } ) );
   EXPECT_TRUE(
      traces.has( "Error:Unit Status object does not exist for a dependent unit.IntfId:et2 Unit:u2" ) );
}

TEST_F( RateAggregatorInThePlugin, aStatusThatIsDeletedTakesItsMonitorAlong ) {
   rig.start();
   rig.enter( "u1" );
   rig.enter( "u2" );
   rig.advance( 5 );
   rig.unitStatusDir->statusDel( "u2" );
   rig.advance( 5 );
   expectAggregate( "u1", 8'000'000, 8'000'000 );
   EXPECT_EQ( 1u, rig.unitStatusDir->statuss() );
   EXPECT_EQ( 1u, rig.root->unitMons() );
}

} // namespace
} // namespace MaintenanceMode
