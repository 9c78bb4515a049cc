#include "MaintenancePlugin/SamplerTest.h"

#include <cmath>

namespace MaintenanceMode {
namespace {

using Maintenance::MonIntfStatus;

struct MonitoredIntfRecord : SamplerTest {
   Maintenance::MonIntfStatusDir & records() { return *rig.monIntfStatusDir; }
};
struct MonitoredIntfPort : SamplerTest {};

TEST( SupportedIntf, portsPortChannelsAndVlanInterfacesAreSupportedAndNothingElse ) {
   const struct {
      Wire::IntfId intf;
      bool supported;
   } rows[] = {
      { Wire::EthIntfId( "et1" ), true },
      { Wire::PortChannelIntfId( "po1" ), true },
      { Wire::VlanIntfId( "vlan1", 1 ), true },
      { Wire::SubIntfId( "et1.5", Wire::IntfId::Kind::ethernet ), false },
      { Wire::SubIntfId( "po1.5", Wire::IntfId::Kind::portChannel ), false },
      { Wire::SubIntfId( "vlan1.5", Wire::IntfId::Kind::vlan ), false },
      { Wire::CpuIntfId( "cpu" ), false },
      { Wire::IntfId::other( "lo" ), false },
      { Wire::IntfId(), false },
   };
   for ( const auto & row : rows ) {
      SCOPED_TRACE( stringValue( row.intf ) );
      EXPECT_EQ( row.supported, isSupportedIntf( row.intf ) );
   }
}

// ---- the record

TEST_F( MonitoredIntfRecord, isCreatedWithTheProfileAndTheTime ) {
   rig.advance( 7 );
   Vel::TraceCapture traces;
   FastLog::Capture log;
   const MonitoredIntf & sampler = monitored( et1, "p" );
   const MonIntfStatus * record = rig.record( et1 );
   ASSERT_TRUE( record );
   EXPECT_EQ( record, sampler.monIntfStatus().get() );
   EXPECT_EQ( "p", record->profileName() );
   EXPECT_EQ( rig.now(), record->startTime() );
   EXPECT_FALSE( record->stale() );
   EXPECT_TRUE( sampler.initialized() );
   EXPECT_TRUE( traces.has( "handleInitialized: Created new mon intf status for intf et1, profile p", 4 ) );
   EXPECT_TRUE( log.has( "created new mon intf status for intf et1, profile p" ) );
}

TEST_F( MonitoredIntfRecord, thatIsThereIsAdoptedWithAllItHoldsButProfileAndStaleness ) {
   MonIntfStatus & record = *records().monIntfStatusIs( et1, "old", 1234.5 );
   record.curRatesIs( rates( 3, 2, 1 ) );
   record.prevRatesIs( rates( 6, 5, 4 ) );
   record.lastSampleTimeIs( 7 );
   record.totalSamplesIs( 8 );
   record.numConsecutiveDrainedSamplesIs( 9 );
   record.numSamplesAboveThresholdPreMaintIs( 10 );
   record.numSamplesBelowThresholdPreMaintIs( 11 );
   record.numSamplesAboveThresholdPostMaintIs( 12 );
   record.numSamplesBelowThresholdPostMaintIs( 13 );
   record.stateIs( Maintenance::monIntfStateUnderMaint );
   record.stateTimeIs( 14 );
   record.spikeUnderMaintIs( true );
   record.staleIs( true );
   records().monIntfUnderMaintIs( et1, true );
   Vel::TraceCapture traces;
   FastLog::Capture log;
   EXPECT_EQ( &record, monitored( et1, "new" ).monIntfStatus().get() );
   EXPECT_EQ( &record, rig.record( et1 ) );
   EXPECT_EQ( "new", record.profileName() );
   EXPECT_FALSE( record.stale() );
   EXPECT_EQ( 1234.5, record.startTime() );
   EXPECT_EQ( rates( 3, 2, 1 ), record.curRates() );
   EXPECT_EQ( rates( 6, 5, 4 ), record.prevRates() );
   EXPECT_EQ( 7, record.lastSampleTime() );
   EXPECT_EQ( 8u, record.totalSamples() );
   EXPECT_EQ( 9u, record.numConsecutiveDrainedSamples() );
   EXPECT_EQ( 10u, record.numSamplesAboveThresholdPreMaint() );
   EXPECT_EQ( 11u, record.numSamplesBelowThresholdPreMaint() );
   EXPECT_EQ( 12u, record.numSamplesAboveThresholdPostMaint() );
   EXPECT_EQ( 13u, record.numSamplesBelowThresholdPostMaint() );
   EXPECT_EQ( Maintenance::monIntfStateUnderMaint, record.state() );
   EXPECT_EQ( 14, record.stateTime() );
   EXPECT_TRUE( record.spikeUnderMaint() );
   EXPECT_TRUE( records().monIntfUnderMaint( et1 ) );
   EXPECT_FALSE( traces.has( "Created new mon intf status" ) );
   EXPECT_FALSE( log.has( "created new mon intf status" ) );
}

TEST_F( MonitoredIntfRecord, followsTheProfilesName ) {
   MonitoredIntf & sampler = monitored( et1, "p" );
   Vel::TraceCapture traces;
   sampler.profileNameIs( "q" );
   EXPECT_EQ( "q", sampler.profileName() );
   EXPECT_EQ( "q", rig.record( et1 )->profileName() );
   EXPECT_TRUE( traces.has( "handleProfileName: intf et1, new profileName q", 4 ) );
}

TEST_F( MonitoredIntfRecord, isLeftAloneByTheSameProfileNameAgain ) {
   MonitoredIntf & sampler = monitored( et1, "p" );
   rig.record( et1 )->profileNameIs( "other" );
   Vel::TraceCapture traces;
   sampler.profileNameIs( "p" );
   EXPECT_EQ( "other", rig.record( et1 )->profileName() );
   EXPECT_EQ( 0u, traces.lines().size() );
}

TEST_F( MonitoredIntfRecord, doesNotFollowTheProfilesNameWhileThereIsNone ) {
   MonitoredIntf & sampler = monitored( et1, "p" );
   sampler.monIntfStatusIs( nullptr );
   sampler.profileNameIs( "q" );
   EXPECT_EQ( "q", sampler.profileName() );
   EXPECT_EQ( "p", rig.record( et1 )->profileName() );
}

TEST_F( MonitoredIntfRecord, goesWithTheSamplerAndLeavesTheThreeSets ) {
   monitored( et1 );
   monitored( et2 );
   for ( const IntfId & intf : { et1, et2 } ) {
      records().monIntfEnterMaintIs( intf, true );
      records().monIntfUnderMaintIs( intf, true );
      records().monIntfSpikeUnderMaintIs( intf, true );
   }
   Vel::TraceCapture traces;
   FastLog::Capture log;
   rig.root->monIntfDir()->monitoredIntfDel( et1 );
   EXPECT_FALSE( rig.record( et1 ) );
   EXPECT_FALSE( records().monIntfEnterMaint( et1 ) );
   EXPECT_FALSE( records().monIntfUnderMaint( et1 ) );
   EXPECT_FALSE( records().monIntfSpikeUnderMaint( et1 ) );
   EXPECT_TRUE( rig.record( et2 ) );
   EXPECT_TRUE( records().monIntfEnterMaint( et2 ) );
   EXPECT_TRUE( records().monIntfUnderMaint( et2 ) );
   EXPECT_TRUE( records().monIntfSpikeUnderMaint( et2 ) );
   EXPECT_EQ( 1u, traces.count( "MonitoredIntf::prepareToDie et1", 4 ) );
   EXPECT_EQ( 1u, log.count( "MonitoredIntf::prepareToDie et1" ) );
}

TEST_F( MonitoredIntfRecord, ofAnInterfaceInNoSetIsAllThatGoes ) {
   monitored( et1 );
   records().monIntfUnderMaintIs( et2, true );
   rig.root->monIntfDir()->monitoredIntfDel( et1 );
   EXPECT_EQ( 0u, records().monIntfStatuss() );
   EXPECT_EQ( 1u, records().monIntfUnderMaints() );
}

TEST_F( MonitoredIntfRecord, staysWhileAnybodyHoldsTheSampler ) {
   Vel::Ptr< MonitoredIntf > held = &monitored( et1 );
   rig.root->monIntfDir()->monitoredIntfDel( et1 );
   EXPECT_TRUE( rig.record( et1 ) );
   held = nullptr;
   EXPECT_FALSE( rig.record( et1 ) );
}

TEST_F( MonitoredIntfRecord, mayBeTakenAwayBeforeTheSampler ) {
   const Vel::Ptr< MonitoredIntf > sampler = &monitored( et1 );
   records().monIntfStatusDel( et1 );
   sampledAfter( 5, *sampler );
   EXPECT_EQ( rig.now(), sampler->monIntfStatus()->lastSampleTime() );
   EXPECT_FALSE( rig.record( et1 ) );
}

TEST_F( MonitoredIntfRecord, isMissedBySamplesWhereThereIsNoDirectoryOfRecords ) {
   rig.monIntfStatusDir = nullptr;
   startAgain();
   MonitoredIntf & sampler = monitored( et1 );
   EXPECT_FALSE( sampler.monIntfStatus() );
   EXPECT_EQ( "monIntfStatus", Vel::failedAssertion( [&] { sampler.updateTrafficRates(); } ) );
}

TEST_F( MonitoredIntfRecord, belongsToOneSamplerAnInterface ) {
   MonitoredIntf & sampler = monitored( et1, "p" );
   EXPECT_EQ( &sampler, &monitored( et1, "q" ) );
   EXPECT_EQ( "p", sampler.profileName() );
}

/// What somebody finds who is told of new rates.
struct RecordWatcher {
   struct VelRecord final : Vel::ReactorTo< RecordWatcher, MonIntfStatus > {
      using ReactorTo::ReactorTo;
      void onPrevRates() override { sm()->note( "prev", *entity() ); }
      void onCurRates() override { sm()->note( "cur", *entity() ); }
      void onLastSampleTime() override { sm()->note( "time", *entity() ); }
   };
   void note( const char * what, const MonIntfStatus & r ) {
      seen += Vel::text(
         what, ": ", r.prevRates().inBitsRate, " ", r.curRates().inBitsRate, " ", r.lastSampleTime(), "\n" );
   }
   Vel::String seen;
};

TEST_F( MonitoredIntfRecord, takesTheLastRatesThenTheNewOnesThenTheTime ) {
   MonitoredIntf & sampler = monitored( et1 );
   sampler.setCurRates( sampler.monIntfStatus(), rates( 100, 0, 1 ) );
   sampler.monIntfStatus()->lastSampleTimeIs( 5 );
   RecordWatcher watcher;
   RecordWatcher::VelRecord reactor( sampler.monIntfStatus(), &watcher );
   reactor.velInterestIs( Vel::interestOf< RecordWatcher::VelRecord >() );
   reactor.hasNotificationActiveIs( true );
   sampler.setCurRates( sampler.monIntfStatus(), rates( 200, 0, 2 ) );
   EXPECT_EQ( Vel::text( "prev: 100 100 5\ncur: 100 200 5\ntime: 100 200 ", rig.now(), "\n" ), watcher.seen );
}

TEST_F( MonitoredIntfRecord, isNeededToPublish ) {
   MonitoredIntf & sampler = monitored( et1 );
   EXPECT_EQ( "monIntfStatus", Vel::failedAssertion( [&] { sampler.setCurRates( nullptr, IntfRates() ); } ) );
}

TEST_F( MonitoredIntfRecord, isTracedWithWhatItHeldAndWhatItGets ) {
   MonitoredIntf & sampler = monitored( et1 );
   sampler.setCurRates( sampler.monIntfStatus(), rates( 1, 2, 3 ) );
   Vel::TraceCapture traces;
   sampler.setCurRates( sampler.monIntfStatus(), rates( 4, 5, 6 ) );
   EXPECT_TRUE( traces.has(
      "setCurRates: IntfId:et1 Prev[ inBitsRate:1 outBitsRate:2 lastSampleTime:3] Cur[ inBitsRate:4 "
      "outBitsRate:5 curSampleTime:6",
      9 ) );
}

// ---- a port

TEST_F( MonitoredIntfPort, theFirstSampleIsTheBaselineAndPublishesNothing ) {
   countersAre( et1, 1000, MaybeU63( 2000 ) );
   rig.advance( 5 );
   const MonitoredIntf & sampler = monitored( et1 );
   EXPECT_EQ( IntfRates(), rig.record( et1 )->curRates() );
   EXPECT_EQ( IntfRates(), rig.record( et1 )->prevRates() );
   EXPECT_EQ( 0, rig.record( et1 )->lastSampleTime() );
   ASSERT_TRUE( sampler.memberTrafficCounters( et1 ) );
   const IntfCounterInfo & info = *sampler.memberTrafficCounters( et1 );
   EXPECT_EQ( ( OctetCounts{ 1000, MaybeU63( 2000 ) } ), info.prevStats() );
   EXPECT_EQ( rig.now(), info.lastUpdateTime() );
   EXPECT_EQ( IntfRates(), info.rates() );
}

TEST_F( MonitoredIntfPort, laterSamplesPublishTheRatesSinceTheOneBefore ) {
   countersAre( et1, 1'000'000, MaybeU63( 2'000'000 ) );
   MonitoredIntf & sampler = monitored( et1 );
   rig.octetsInc( et1, 625'000'000, 1'250'000'000 );
   sampledAfter( 5, sampler );
   EXPECT_EQ( rates( 1e9, 2e9, rig.now() ), rig.record( et1 )->curRates() );
   EXPECT_EQ( IntfRates(), rig.record( et1 )->prevRates() );
   EXPECT_EQ( rig.now(), rig.record( et1 )->lastSampleTime() );
   rig.octetsInc( et1, 1000, 500 );
   sampledAfter( 10, sampler );
   EXPECT_EQ( rates( 800, 400, rig.now() ), rig.record( et1 )->curRates() );
   EXPECT_EQ( rates( 1e9, 2e9, rig.now() - 10 ), rig.record( et1 )->prevRates() );
   EXPECT_EQ( rates( 800, 400, rig.now() ), sampler.memberTrafficCounters( et1 )->rates() );
}

TEST_F( MonitoredIntfPort, rateComputation ) {
   constexpr Vel::U64 max = ~Vel::U64( 0 );
   const double huge = static_cast< double >( Vel::U64( 0 ) - 8000 ) / 5;
   const struct {
      const char * what;
      OctetCounts before, after;
      double in, out;
   } rows[] = {
      { "quiet", { 7, MaybeU63( 7 ) }, { 7, MaybeU63( 7 ) }, 0, 0 },
      { "directions are not mixed up", { 0, MaybeU63( 0 ) }, { 5, MaybeU63( 10 ) }, 8, 16 },
      { "counters that went backwards are not caught",
        { 1000, MaybeU63( 1000 ) },
        { 0, MaybeU63( 0 ) },
        huge,
        huge },
      { "received octets wrap at 64 bits", { max, MaybeU63( 0 ) }, { 4, MaybeU63( 0 ) }, 8, 0 },
      { "transmitted octets wrap at 63 bits", { 0, MaybeU63( max ) }, { 0, MaybeU63( 4 ) }, 0, 8 },
      { "times 8 wraps on the integer",
        { 0, MaybeU63( 0 ) },
        { ( Vel::U64( 1 ) << 61 ) + 5, MaybeU63( ( Vel::U64( 1 ) << 61 ) + 10 ) },
        8,
        16 },
      { "beyond what a signed integer holds",
        { 0, MaybeU63( 0 ) },
        { Vel::U64( 1 ) << 60, MaybeU63( 0 ) },
        9223372036854775808.0 / 5,
        0 },
      { "no transmitted octets before", { 0, MaybeU63::none() }, { 5, MaybeU63( 5 ) }, 8, 0 },
      { "no transmitted octets now", { 0, MaybeU63( 5 ) }, { 5, MaybeU63::none() }, 8, 0 },
      { "no transmitted octets at all", { 0, MaybeU63::none() }, { 5, MaybeU63::none() }, 8, 0 },
   };
   for ( const auto & row : rows ) {
      SCOPED_TRACE( row.what );
      countersAre( et1, row.before.inOctets, row.before.outOctets );
      MonitoredIntf & sampler = monitored( et1 );
      countersAre( et1, row.after.inOctets, row.after.outOctets );
      const IntfRates sample = sampledAfter( 5, sampler );
      EXPECT_EQ( row.in, sample.inBitsRate );
      EXPECT_EQ( row.out, sample.outBitsRate );
      rig.root->monIntfDir()->monitoredIntfDel( et1 );
   }
}

TEST_F( MonitoredIntfPort, twoSamplesAtOneTimeAreNotCaught ) {
   MonitoredIntf & sampler = monitored( et1 );
   rig.octetsInc( et1, 1, 0 );
   const IntfRates sample = sampledAfter( 0, sampler );
   EXPECT_TRUE( std::isinf( sample.inBitsRate ) );
   EXPECT_TRUE( std::isnan( sample.outBitsRate ) );
}

TEST_F( MonitoredIntfPort, withoutCountersPublishesNothingAndIsCounted ) {
   MonitoredIntf & sampler = monitored( et1 );
   rig.octetsInc( et1, 1000, 1000 );
   const IntfRates before = sampledAfter( 5, sampler );
   const double sampleTime = rig.now();
   rig.countersDel( et1 );
   rig.advance( 5 );
   EXPECT_EQ( IntfRates(), sampler.getEthPhyIntfTrafficCounters( et1 ) );
   EXPECT_EQ( 1u, rig.counters().numNoIntfCounter() );
   EXPECT_EQ( before, rig.record( et1 )->curRates() );
   EXPECT_EQ( sampleTime, rig.record( et1 )->lastSampleTime() );
   EXPECT_EQ( sampleTime, sampler.memberTrafficCounters( et1 )->lastUpdateTime() );
}

TEST_F( MonitoredIntfPort, whoseCountersComeBackIsSampledOverTheWholeTime ) {
   countersAre( et1, 1000, MaybeU63( 1000 ) );
   MonitoredIntf & sampler = monitored( et1 );
   rig.countersDel( et1 );
   sampledAfter( 5, sampler );
   countersAre( et1, 2000, MaybeU63( 3000 ) );
   sampledAfter( 5, sampler );
   EXPECT_EQ( rates( 800, 1600, rig.now() ), rig.record( et1 )->curRates() );
}

TEST_F( MonitoredIntfPort, whoseCountersAreReplacedIsSampledFromTheNewOnes ) {
   MonitoredIntf & sampler = monitored( et1 );
   sampledAfter( 5, sampler );
   rig.phyCounterDir->intfCounterDirDel( et1 );
   countersAre( et1, 5000, MaybeU63( 0 ) );
   sampledAfter( 5, sampler );
   EXPECT_EQ( rates( 8000, 0, rig.now() ), rig.record( et1 )->curRates() );
}

TEST_F( MonitoredIntfPort, needsTheCounterOfTheLiveView ) {
   MonitoredIntf & sampler = monitored( et1 );
   auto & views = *rig.phyCounterDir->intfCounterDir( et1 );
   views.counterDel( "current" );
   views.counterIs( "snapshot" )->statisticsIs( { 5000, MaybeU63( 5000 ) } );
   EXPECT_EQ( IntfRates(), sampledAfter( 5, sampler ) );
   EXPECT_EQ( 1u, rig.counters().numNoIntfCounter() );
}

TEST_F( MonitoredIntfPort, whoseCountersComeLateHasNoBaseline ) {
   rig.countersDel( et1 );
   MonitoredIntf & sampler = monitored( et1 );
   EXPECT_EQ( 1u, rig.counters().numNoIntfCounter() );
   EXPECT_EQ( 0u, sampler.memberTrafficCounterss() );
   countersAre( et1, 1'000'000'000'000, MaybeU63( 0 ) );
   sampledAfter( 5, sampler );
   EXPECT_EQ( rates( 8e12 / rig.now(), 0, rig.now() ), rig.record( et1 )->curRates() );
}

TEST_F( MonitoredIntfPort, hasNoCountersWhereThereIsNoDirectoryOfThem ) {
   rig.phyCounterDir = nullptr;
   startAgain();
   sampledAfter( 5, monitored( et1 ) );
   EXPECT_EQ( 2u, rig.counters().numNoIntfCounter() );
   EXPECT_EQ( 0, rig.record( et1 )->lastSampleTime() );
}

TEST_F( MonitoredIntfPort, tracesWhatARateIsMadeOf ) {
   countersAre( et1, 1000, MaybeU63( 2000 ) );
   MonitoredIntf & sampler = monitored( et1 );
   rig.octetsInc( et1, 10, 20 );
   rig.advance( 5 );
   Vel::TraceCapture traces;
   sampler.updateTrafficRates();
   const char * const head = "getEthPhyIntfTrafficCounters: intf et1: ";
   EXPECT_TRUE( traces.has( Vel::text( head, "cur in/out 1010 / 2020" ), 9 ) );
   EXPECT_TRUE( traces.has( Vel::text( head, "prev in/out 1000 / 2000" ), 9 ) );
   EXPECT_TRUE( traces.has( Vel::text( head, "delta in/out 10 / 20, deltaTime 5" ), 9 ) );
   EXPECT_TRUE( traces.has( Vel::text( head, "rates in/out (bps) 16 / 32" ), 9 ) );
}

TEST_F( MonitoredIntfPort, aSampleOfAnotherKindIsAnAssertion ) {
   MonitoredIntf & sampler = monitored( et1 );
   EXPECT_EQ( "Wire::EthIntfId::isEthIntfId( argIntfId )", Vel::failedAssertion( [&] {
                 sampler.getEthPhyIntfTrafficCounters( po1 );
              } ) );
   EXPECT_EQ( "Wire::PortChannelIntfId::isPortChannelIntfId( argIntfId )", Vel::failedAssertion( [&] {
                 sampler.getLagIntfTrafficCounters( et1 );
              } ) );
   EXPECT_EQ( "Wire::VlanIntfId::isVlanIntfId( argIntfId )", Vel::failedAssertion( [&] {
                 sampler.getVlanIntfTrafficCounters( et1 );
              } ) );
}

TEST_F( MonitoredIntfPort, anInterfaceThatCannotBeSampledIsAnAssertion ) {
   EXPECT_EQ( "0", Vel::failedAssertion( [&] { monitored( Wire::CpuIntfId( "cpu" ) ); } ) );
}

} // namespace
} // namespace MaintenanceMode
