#include "MaintenancePlugin/RateAggregatorTest.h"

namespace MaintenanceMode {
namespace {

using Vel::U64;

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

/// The aggregator's traces and, between them, when it is initialized.
struct StartSequence : Sequence {
   explicit StartSequence( const Vel::Ptr< IntfRateAggregatorSm > & aggregator )
      : Sequence( "IntfRateAggregatorSm" ) {
      aggregator_.is( aggregator, this ).hasNotificationActiveIs( true );
   }
   struct VelAggregator final : Vel::ReactorTo< StartSequence, IntfRateAggregatorSm > {
      using ReactorTo::ReactorTo;
      void onInitialized() override { sm()->note( "initialized" ); }
   };

 private:
   Vel::Watch< VelAggregator > aggregator_;
};

TEST_F( RateAggregatorStart, resetsEveryUnitThenAddsEachInterfaceThenIsInitialized ) {
   aggregateIs( "u1", 123, 456 );
   aggregateIs( "u2", 123, 456 );
   member( et1, 1000, 500, { "u1", "u2" } );
   member( et2, 2000, 300, { "u1" } );
   const auto aggregator =
      Vel::make< IntfRateAggregatorSm >( rig.root->monIntfDir(), rig.monIntfStatusDir, rig.unitStatusDir );
   EXPECT_FALSE( aggregator->initialized() );
   StartSequence sequence( aggregator );
   aggregator->handleInitialized();
   EXPECT_EQ(
      ( Lines{
         "handleInitialized: IntfRateAggregatorSm started",
         "handleInitialized: Resetting the aggregate rate for unit:u1",
         "handleInitialized: Resetting the aggregate rate for unit:u2",
         change( "u1", et1, { 0, 0, 1000, 1000 }, { 0, 0, 500, 500 } ),
         change( "u2", et1, { 0, 0, 1000, 1000 }, { 0, 0, 500, 500 } ),
         change( "u1", et2, { 1000, 0, 2000, 3000 }, { 500, 0, 300, 800 } ),
         "initialized",
         "handleInitialized: IntfRateAggregatorSm - initialized",
      } ),
      sequence.lines() );
   EXPECT_TRUE( sequence.traced( "IntfRateAggregatorSm started", 5 ) );
   EXPECT_TRUE( sequence.traced( "Resetting the aggregate rate for unit:u1", 9 ) );
   EXPECT_TRUE( sequence.traced( "IntfRateAggregatorSm - initialized", 4 ) );
}

TEST_F( RateAggregatorStart, addsAMemberThatIsMarkedAbsentToo ) {
   rig.unit( "u1" );
   MonitoredIntf & sampler = member( et1, 1000, 500, {} );
   sampler.dependentUnitIs( "u1", false );
   startAggregator();
   expectAggregate( "u1", 1000, 500 );
}

TEST_F( RateAggregatorStart, watchesWhatIsThereAlready ) {
   monitored( et1 );
   rig.monIntfStatusDir->monIntfStatusIs( et2 );
   startAggregator();
   EXPECT_TRUE( aggregator().monitoredIntf( et1 ) );
   EXPECT_TRUE( aggregator().monIntfStatus( et1 ) );
   EXPECT_FALSE( aggregator().monitoredIntf( et2 ) );
   EXPECT_TRUE( aggregator().monIntfStatus( et2 ) );
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

/// The rates of counters that went backwards are in the records, and those survive.
TEST_F( RateAggregatorInThePlugin, aRestartOverRatesThatDoNotAddUpEndsTheAgentAgain ) {
   for ( int i = 0; i != 6; ++i ) {
      const Wire::IntfId port = PluginRig::port( Vel::text( "back", i ) );
      rig.linkIs( port );
      rig.groupMemberIs( "u3", port );
      rig.monIntfStatusDir->monIntfStatusIs( port, "p", rig.now() )
         ->curRatesIs( SamplerTest::rates( 3689348814741908480.0, 0, rig.now() ) );
   }
   rig.mappingIs( "u3", "u3" );
   rig.enter( "u3" );
   rig.entered( "u3" );
   Sequence sequence( "IntfRateAggregatorSm" );
   EXPECT_EQ( "0", Vel::failedAssertion( [&] { rig.start(); } ) );
   ASSERT_FALSE( sequence.lines().empty() );
   EXPECT_EQ(
      "calculateNewAggregate: Overflow while adding ratesToAddInRate to curAggInRate. Unit:u3 IntfId:back5 "
      "ratesToAddInRate:3689348814741908480 curAggInRate:18446744073709542400",
      sequence.lines().back() );
}

TEST_F( RateAggregatorInThePlugin, anEnterOfAUnitWithoutStatusEndsTheAgentAtTheFirstSample ) {
   rig.unitStatusDir->statusDel( "u2" );
   rig.enterClass.progressDir->progressIs( "u2#1" )->stageStatusIs( stageName, Stage::stageRunning );
   rig.start();
   rig.root->doStageForInstance( maintEnterClass, stageName, "u2#1" );
   Sequence sequence( "IntfRateAggregatorSm" );
   EXPECT_EQ( "0", Vel::failedAssertion( [&] { rig.advance( 5 ); } ) );
   ASSERT_FALSE( sequence.lines().empty() );
   EXPECT_EQ(
      "handleMonIntfStatusRateChange: Error:Unit Status object does not exist for a dependent "
      "unit.IntfId:et2 Unit:u2",
      sequence.lines().back() );
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
