#include "MaintenancePlugin/SamplerTest.h"

namespace MaintenanceMode {
namespace {

struct MonitoredIntfDump : SamplerTest {
   static Vel::String dumped( const MonitoredIntf & sampler, unsigned indent ) {
      return PluginRig::written( [&]( int fd ) { sampler.dump( fd, indent ); } );
   }
};

TEST_F( MonitoredIntfDump, showsThePortItsCountersAndTheRecord ) {
   countersAre( et1, 1000, MaybeU63( 2000 ) );
   MonitoredIntf & sampler = monitored( et1, "slow" );
   rig.octetsInc( et1, 937'500'000, 1'562'500 );
   sampledAfter( 5, sampler );
   rig.octetsInc( et1, 1'250'000'000, 625'000 );
   sampledAfter( 5, sampler );
   Maintenance::MonIntfStatus & record = *rig.record( et1 );
   record.numConsecutiveDrainedSamplesIs( 1 );
   record.totalSamplesIs( 2 );
   record.numSamplesAboveThresholdPreMaintIs( 3 );
   record.numSamplesBelowThresholdPreMaintIs( 4 );
   record.numSamplesAboveThresholdPostMaintIs( 5 );
   record.numSamplesBelowThresholdPostMaintIs( 6 );
   record.stateIs( Maintenance::monIntfStateUnderMaint );
   record.stateTimeIs( rig.now() - 3 );
   record.spikeUnderMaintIs( true );
   rig.advance( 2.5 );
   EXPECT_EQ(
      "Monitored interface: et1\n"
      "  profileName: slow\n"
      "  num memberTrafficCounters: 1\n"
      "  interface: et1\n"
      "    prev in/out: 2187501000 / 2189500( updated  2.500000s ago )\n"
      "    rates in/out (Mbps): 2000.000000 / 1.000000 (updated 2.500000s ago)\n"
      "  MonIntfStatus : et1\n"
      "    profileName: slow\n"
      "    startTime: 1700000000.000000 (12.500000s ago)\n"
      "    lastSampleTime: 1700000010.000000 (2.500000s ago)\n"
      "    curRates: in/out (Mbps): 2000.000000 / 1.000000 (updated 2.500000s ago)\n"
      "    prevRates: in/out (Mbps): 1500.000000 / 2.500000 (updated 7.500000s ago)\n"
      "    numConsecutiveDrainedSamples: 1\n"
      "    totalSamples: 2\n"
      "    numSamplesAboveThresholdPreMaint: 3\n"
      "    numSamplesBelowThresholdPreMaint: 4\n"
      "    numSamplesAboveThresholdPostMaint: 5\n"
      "    numSamplesBelowThresholdPostMaint: 6\n"
      "    state: monIntfStateUnderMaint\n"
      "    stateTime: 1700000007.000000 (5.500000s ago)\n"
      "    spikeUnderMaint: true\n"
      "    stale: false\n",
      dumped( sampler, 0 ) );
}

TEST_F( MonitoredIntfDump, goesFurtherInWhereItIsPartOfAnother ) {
   MonitoredIntf & sampler = monitored( et1 );
   Vel::String indented;
   for ( const char c : dumped( sampler, 0 ) ) {
      if ( indented.empty() || indented.back() == '\n' )
         indented += "    ";
      indented += c;
   }
   EXPECT_EQ( indented, dumped( sampler, 4 ) );
}

TEST_F( MonitoredIntfDump, showsEachMemberAndNoTransmittedOctetsAsZero ) {
   countersAre( et1, 10, MaybeU63::none() );
   countersAre( et2, 30, MaybeU63( 40 ) );
   rig.memberIs( et1, po1 );
   rig.memberIs( et2, po1 );
   const MonitoredIntf & sampler = monitored( po1 );
   const Vel::String text = dumped( sampler, 0 );
   EXPECT_NE(
      Vel::String::npos,
      text.find( "  num memberTrafficCounters: 2\n"
                 "  interface: et1\n"
                 "    prev in/out: 10 / 0( updated  0.000000s ago )\n"
                 "    rates in/out (Mbps): 0.000000 / 0.000000 (updated 1700000000.000000s ago)\n"
                 "  interface: et2\n"
                 "    prev in/out: 30 / 40( updated  0.000000s ago )\n" ) )
      << text;
}

TEST_F( MonitoredIntfDump, endsWithTheCountersWhereThereIsNoRecord ) {
   rig.monIntfStatusDir = nullptr;
   startAgain();
   EXPECT_EQ(
      "Monitored interface: po1\n"
      "  profileName: p\n"
      "  num memberTrafficCounters: 0\n",
      dumped( monitored( po1 ), 0 ) );
}

} // namespace
} // namespace MaintenanceMode
