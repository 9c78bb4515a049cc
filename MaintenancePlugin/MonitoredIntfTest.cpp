#include "MaintenancePlugin/Recorded.h"
#include "MaintenancePlugin/SamplerTest.h"

#include <cmath>
#include <limits>

namespace MaintenanceMode {
namespace {

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
   const double infinity = std::numeric_limits< double >::infinity();
   MonitoredIntf & sampler = monitored( et1 );
   rig.octetsInc( et1, 8, 0 );
   IntfRates sample = sampledAfter( 0, sampler );
   EXPECT_EQ( infinity, sample.inBitsRate );
   EXPECT_TRUE( std::isnan( sample.outBitsRate ) );
   rig.octetsInc( et1, 0, 8 );
   sample = sampledAfter( 0, sampler );
   EXPECT_TRUE( std::isnan( sample.inBitsRate ) );
   EXPECT_EQ( infinity, sample.outBitsRate );
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

TEST_F( MonitoredIntfPort, tracesWhatARateIsMadeOfThenPublishes ) {
   countersAre( et1, 1000, MaybeU63( 2000 ) );
   MonitoredIntf & sampler = monitored( et1 );
   rig.octetsInc( et1, 10, 20 );
   rig.advance( 5 );
   Sequence sequence( "MonitoredIntf" );
   sampler.updateTrafficRates();
   const Vel::String head = "getEthPhyIntfTrafficCounters: intf et1: ";
   EXPECT_EQ(
      ( Lines{
         head + "cur in/out 1010 / 2020",
         head + "prev in/out 1000 / 2000",
         head + "delta in/out 10 / 20, deltaTime 5",
         head + "rates in/out (bps) 16 / 32",
         "setCurRates: IntfId:et1 Prev[ inBitsRate:0 outBitsRate:0 lastSampleTime:0] Cur[ inBitsRate:16 "
         "outBitsRate:32 curSampleTime:1700000005",
      } ),
      sequence.lines() );
   for ( const char * line : { "cur in/out", "prev in/out", "delta in/out", "rates in/out" } )
      EXPECT_TRUE( sequence.traced( head + line, 9 ) ) << line;
   EXPECT_EQ( Lines(), sequence.logged() );
}

TEST_F( MonitoredIntfPort, tracesTransmittedOctetsThatItHasNot ) {
   countersAre( et1, 1000, MaybeU63::none() );
   MonitoredIntf & sampler = monitored( et1 );
   rig.advance( 5 );
   Sequence sequence( "MonitoredIntf" );
   sampler.updateTrafficRates();
   const Vel::String head = "getEthPhyIntfTrafficCounters: intf et1: ";
   ASSERT_EQ( 5u, sequence.lines().size() );
   EXPECT_EQ( head + "cur in/out 1000 / none", sequence.lines()[0] );
   EXPECT_EQ( head + "prev in/out 1000 / none", sequence.lines()[1] );
   EXPECT_EQ( head + "delta in/out 0 / none, deltaTime 5", sequence.lines()[2] );
   EXPECT_EQ( head + "rates in/out (bps) 0 / 0", sequence.lines()[3] );
}

TEST_F( MonitoredIntfPort, hasNothingToTellOfTheBaseline ) {
   monitored( et2 );
   rig.monIntfStatusDir->monIntfStatusIs( et1, "p", 1 );
   Sequence sequence( "MonitoredIntf" );
   monitored( et1 );
   EXPECT_EQ( Lines(), sequence.lines() );
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

/// What was found in the ports of one switch is not taken for what is in those of another.
TEST_F( MonitoredIntfPort, theChangesOfPortsTellOneDirectoryFromAnother ) {
   MonitoredIntfDir & dir = *rig.root->monIntfDir();
   const auto other = Vel::make< Interface::IntfCounterMasquerade::AllEthIntfCounterPtrDir >();
   const auto changes = dir.portChanges( rig.phyCounterDir );
   EXPECT_EQ( changes, dir.portChanges( rig.phyCounterDir ) );
   EXPECT_LT( changes, dir.portChanges( other ) );
}

TEST_F( MonitoredIntfPort, anInterfaceThatCannotBeSampledIsAnAssertion ) {
   EXPECT_EQ( "0", Vel::failedAssertion( [&] { monitored( Wire::CpuIntfId( "cpu" ) ); } ) );
}

} // namespace
} // namespace MaintenanceMode
