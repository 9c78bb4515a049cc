#include "MaintenancePlugin/RateAggregatorTest.h"

namespace MaintenanceMode {
namespace {

const Vel::String rateChange = "handleMonIntfStatusRateChange: ";
const Vel::String configChange = "handleMonitoredIntfConfigChange: ";

/// The aggregator's traces and, between them, the aggregates that it writes.
struct AggregateSequence : Sequence {
   explicit AggregateSequence( PluginRig & rig ) : Sequence( "IntfRateAggregatorSm" ) {
      for ( const auto & [unitName, status] : rig.unitStatusDir->statusRange() )
         units_.add( status, this );
   }
   struct VelUnit final : Vel::ReactorTo< AggregateSequence, Maintenance::Unit::Status > {
      using ReactorTo::ReactorTo;
      void onAggTrafficRate() override {
         const auto rates = entity()->aggTrafficRate();
         sm()->note( entity()->unitName(), " = ", rates.inRate, " / ", rates.outRate );
      }
   };

 private:
   Watches< VelUnit > units_;
};

// ---- rates change

TEST_F( RateAggregator, aSampleReplacesTheRatesOfTheOneBeforeInEveryUnit ) {
   rig.unit( "u1" );
   rig.unit( "u2" );
   aggregateIs( "u3", 7, 7 );
   MonitoredIntf & sampler = member( et1, 1000, 500, { "u1", "u2" } );
   member( et2, 4000, 400, { "u1" } );
   expectAggregate( "u1", 5000, 900 );
   rig.advance( 1 );
   AggregateSequence sequence( rig );
   sample( sampler, 3000, 200 );
   EXPECT_EQ(
      ( Lines{
         rateChange + "et1",
         rateChange + "Rates changed for interface:et1",
         change( "u1", et1, { 5000, 1000, 3000, 7000 }, { 900, 500, 200, 600 } ),
         "u1 = 7000 / 600",
         change( "u2", et1, { 1000, 1000, 3000, 3000 }, { 500, 500, 200, 200 } ),
         "u2 = 3000 / 200",
      } ),
      sequence.lines() );
   EXPECT_TRUE( sequence.traced( "handleMonIntfStatusRateChange: et1", 4 ) );
   EXPECT_TRUE( sequence.traced( "Rates changed for interface:et1", 4 ) );
   EXPECT_EQ( Lines(), sequence.logged() );
   expectAggregate( "u3", 7, 7 );
   EXPECT_EQ( rig.now(), rig.unit( "u1" ).aggTrafficRate().time );
   EXPECT_EQ( rig.now(), rig.unit( "u2" ).aggTrafficRate().time );
   EXPECT_EQ( 1, rig.unit( "u3" ).aggTrafficRate().time );
}

TEST_F( RateAggregator, theSameRatesAgainChangeNothing ) {
   rig.unit( "u1" );
   MonitoredIntf & sampler = member( et1, 1000, 500, { "u1" } );
   const TrafficRates before = rig.unit( "u1" ).aggTrafficRate();
   AggregateSequence sequence( rig );
   // The sample of the same instant once more: only the previous rates are others.
   sample( sampler, 1000, 500 );
   EXPECT_EQ( sampler.monIntfStatus()->curRates(), sampler.monIntfStatus()->prevRates() );
   EXPECT_EQ( Lines(), sequence.lines() );
   EXPECT_EQ( before, rig.unit( "u1" ).aggTrafficRate() );
   rig.advance( 1 );
   sample( sampler, 3000, 200 );
   expectAggregate( "u1", 3000, 200 );
}

TEST_F( RateAggregator, ratesOfARecordThatNobodySamplesAreOnlyTraced ) {
   aggregateIs( "u1", 5000, 900 );
   auto * record = rig.monIntfStatusDir->monIntfStatusIs( et1 );
   AggregateSequence sequence( rig );
   record->curRatesIs( rates( 1, 1, 1 ) );
   EXPECT_EQ(
      ( Lines{
         rateChange + "et1",
         rateChange + "ERROR:MonitoredIntf object does not exist for the interface et1 whose rate changed",
      } ),
      sequence.lines() );
}

TEST_F( RateAggregator, ratesOfASamplerThatHasLeftAreOnlyTraced ) {
   rig.unit( "u1" );
   const Vel::Ptr< MonitoredIntf > sampler = &member( et1, 1000, 500, { "u1" } );
   rig.root->monIntfDir()->monitoredIntfDel( et1 );
   AggregateSequence sequence( rig );
   sample( *sampler, 7, 7 );
   EXPECT_EQ(
      ( Lines{
         rateChange + "et1",
         rateChange + "ERROR:MonitoredIntf object does not exist for the interface et1 whose rate changed",
      } ),
      sequence.lines() );
   expectAggregate( "u1", 1000, 500 );
}

TEST_F( RateAggregator, ratesForAUnitWithoutStatusEndTheAgent ) {
   rig.unit( "u1" );
   rig.unit( "u3" );
   MonitoredIntf & sampler = member( et1, 0, 0, { "u1", "u2", "u3" } );
   AggregateSequence sequence( rig );
   EXPECT_EQ( "0", Vel::failedAssertion( [&] { sample( sampler, 1, 1 ); } ) );
   EXPECT_EQ(
      ( Lines{
         rateChange + "et1",
         rateChange + "Rates changed for interface:et1",
         change( "u1", et1, { 0, 0, 1, 1 }, { 0, 0, 1, 1 } ),
         "u1 = 1 / 1",
         rateChange + "Error:Unit Status object does not exist for a dependent unit.IntfId:et1 Unit:u2",
      } ),
      sequence.lines() );
   EXPECT_TRUE( sequence.traced( "Error:Unit Status object does not exist for a dependent unit.", 1 ) );
}

TEST_F( RateAggregator, ratesForAUnitWithoutStatusEndTheAgentUntracedToo ) {
   MonitoredIntf & sampler = member( et1, 0, 0, { "u1" } );
   EXPECT_EQ( "0", Vel::failedAssertion( [&] { sample( sampler, 1, 1 ); } ) );
}

TEST_F( RateAggregator, withoutADirectoryOfUnitsOrSamplersThereIsNothingToAddTo ) {
   MonitoredIntf & sampler = monitored( et1 );
   const auto blind = Vel::make< IntfRateAggregatorSm >( nullptr, nullptr, nullptr );
   blind->handleInitialized();
   EXPECT_TRUE( blind->initialized() );
   blind->monitoredIntfIs( et1, Vel::Ptr< MonitoredIntf >( &sampler ) );
   EXPECT_EQ( nullptr, blind->monIntfStatusIs( et1, sampler.monIntfStatus() )->monitoredIntf );
   rig.unit( "u1" );
   sampler.dependentUnitIs( "u1", true );
   sample( sampler, 1000, 500 );
   expectAggregate( "u1", 1000, 500 );
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
   AggregateSequence sequence( rig );
   for ( int i = 0; i != 5; ++i )
      samplers[i]->updateTrafficRates();
   EXPECT_EQ( "0", Vel::failedAssertion( [&] { samplers[5]->updateTrafficRates(); } ) );
   EXPECT_EQ(
      "calculateNewAggregate: Overflow while adding ratesToAddInRate to curAggInRate. Unit:u1 IntfId:back5 "
      "ratesToAddInRate:3689348814741908480 curAggInRate:18446744073709542400",
      sequence.lines().back() );
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
   MonitoredIntf & sampler = member( et1, 1000.5, 500.4, {} );
   rig.advance( 1 );
   AggregateSequence sequence( rig );
   sampler.dependentUnitIs( "u1", true );
   sampler.dependentUnitIs( "u2", true );
   EXPECT_EQ(
      ( Lines{
         configChange + "et1 u1",
         configChange + "IntfId:et1 was added to Unit:u1. Adding the intf rate to unit's aggregate.",
         change( "u1", et1, { 100, 0, 1001, 1101 }, { 10, 0, 500, 510 } ),
         "u1 = 1101 / 510",
         configChange + "et1 u2",
         configChange + "IntfId:et1 was added to Unit:u2. Adding the intf rate to unit's aggregate.",
         change( "u2", et1, { 0, 0, 1001, 1001 }, { 0, 0, 500, 500 } ),
         "u2 = 1001 / 500",
      } ),
      sequence.lines() );
   EXPECT_EQ( rig.now(), rig.unit( "u1" ).aggTrafficRate().time );
   EXPECT_TRUE( sequence.traced( configChange + "et1 u1", 4 ) );
   EXPECT_TRUE( sequence.traced( "Adding the intf rate to unit's aggregate.", 4 ) );
}

TEST_F( RateAggregator, anInterfaceTakesItsRateFromTheUnitThatItLeavesOnly ) {
   aggregateIs( "u1", 5, 6 );
   rig.unit( "u2" );
   MonitoredIntf & sampler = member( et1, 10, 20, { "u1", "u2" } );
   const TrafficRates other = rig.unit( "u2" ).aggTrafficRate();
   rig.advance( 1 );
   AggregateSequence sequence( rig );
   sampler.dependentUnitDel( "u1" );
   EXPECT_EQ(
      ( Lines{
         configChange + "et1 u1",
         configChange +
            "IntfId:et1 was removed from the Unit:u1. Subtracting the intf rate from unit's aggregate",
         change( "u1", et1, { 15, 10, 0, 5 }, { 26, 20, 0, 6 } ),
         "u1 = 5 / 6",
      } ),
      sequence.lines() );
   EXPECT_EQ( rig.now(), rig.unit( "u1" ).aggTrafficRate().time );
   EXPECT_EQ( other, rig.unit( "u2" ).aggTrafficRate() );
   EXPECT_TRUE( sequence.traced( "Subtracting the intf rate from unit's aggregate", 4 ) );
}

TEST_F( RateAggregator, membershipOfAUnitWithoutStatusIsOnlyTraced ) {
   MonitoredIntf & sampler = member( et1, 1000, 500, {} );
   AggregateSequence sequence( rig );
   sampler.dependentUnitIs( "u1", true );
   sampler.dependentUnitDel( "u1" );
   const Vel::String nothingToDo =
      configChange + "UnitStatus object does not exist. Nothing to do. Early return.UnitName:u1 IntfId:et1";
   EXPECT_EQ(
      ( Lines{ configChange + "et1 u1", nothingToDo, configChange + "et1 u1", nothingToDo } ),
      sequence.lines() );
   EXPECT_EQ( 0u, rig.unitStatusDir->statuss() );
}

TEST_F( RateAggregator, membershipOfAUnitWithoutStatusNeedsNoRecord ) {
   MonitoredIntf & sampler = monitored( et1 );
   sampler.monIntfStatusIs( nullptr );
   AggregateSequence sequence( rig );
   sampler.dependentUnitIs( "u1", true );
   EXPECT_EQ( 2u, sequence.lines().size() );
}

TEST_F( RateAggregator, joiningAgainAndLeavingAsAStrangerChangeNothing ) {
   rig.unit( "u1" );
   rig.unit( "u2" );
   MonitoredIntf & sampler = member( et1, 1000, 500, { "u1" } );
   AggregateSequence sequence( rig );
   sampler.dependentUnitIs( "u1", true );
   sampler.dependentUnitDel( "u2" );
   EXPECT_EQ( Lines(), sequence.lines() );
   expectAggregate( "u1", 1000, 500 );
   expectAggregate( "u2", 0, 0 );
}

TEST_F( RateAggregator, aMemberThatIsMarkedAbsentIsTakenAwayOnceAndStillFollowed ) {
   rig.unit( "u1" );
   MonitoredIntf & sampler = member( et1, 1000, 500, { "u1" } );
   AggregateSequence sequence( rig );
   sampler.dependentUnitIs( "u1", false );
   expectAggregate( "u1", 0, 0 );
   EXPECT_TRUE( sequence.traced( "IntfId:et1 was removed from the Unit:u1.", 4 ) );
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

TEST_F( RateAggregator, watchesASamplerWhileItIsThere ) {
   EXPECT_FALSE( aggregator().monitoredIntf( et1 ) );
   const Vel::Ptr< MonitoredIntf > held = &monitored( et1 );
   ASSERT_TRUE( aggregator().monitoredIntf( et1 ) );
   EXPECT_EQ( held.get(), aggregator().monitoredIntf( et1 )->entity() );
   rig.root->monIntfDir()->monitoredIntfDel( et1 );
   EXPECT_FALSE( aggregator().monitoredIntf( et1 ) );
   EXPECT_TRUE( aggregator().monIntfStatus( et1 ) );
}

TEST_F( RateAggregator, watchesARecordWhileItIsThere ) {
   EXPECT_FALSE( aggregator().monIntfStatus( et1 ) );
   const auto * record = rig.monIntfStatusDir->monIntfStatusIs( et1 );
   ASSERT_TRUE( aggregator().monIntfStatus( et1 ) );
   EXPECT_EQ( record, aggregator().monIntfStatus( et1 )->entity() );
   EXPECT_FALSE( aggregator().monitoredIntf( et1 ) );
   rig.monIntfStatusDir->monIntfStatusDel( et1 );
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

} // namespace
} // namespace MaintenanceMode
