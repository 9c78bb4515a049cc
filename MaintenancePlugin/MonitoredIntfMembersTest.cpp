#include "MaintenancePlugin/Recorded.h"
#include "MaintenancePlugin/SamplerTest.h"

namespace MaintenanceMode {
namespace {

constexpr double gigabit = 1e9;

/// Interfaces that are made of others.
struct MonitoredIntfMembers : SamplerTest {
   MonitoredIntfMembers() {
      // 1, 2 and 3 Gbit/s in, a tenth of that out.
      rig.trafficIs( et1, { 1 * gigabit, 1e8 } );
      rig.trafficIs( et2, { 2 * gigabit, 2e8 } );
      rig.trafficIs( et3, { 3 * gigabit, 3e8 } );
   }
   void expectRates( double in, double out, const IntfRates & sample ) {
      EXPECT_EQ( in, sample.inBitsRate );
      EXPECT_EQ( out, sample.outBitsRate );
      EXPECT_EQ( rig.now(), sample.sampleTime );
      EXPECT_EQ( 0, sample.inPktsRate );
      EXPECT_EQ( 0, sample.outPktsRate );
   }
   /// Lets the traffic run and samples.
   IntfRates sampledInTraffic( MonitoredIntf & sampler ) {
      rig.advance( 5 );
      rig.countTraffic();
      sampler.updateTrafficRates();
      return sampler.monIntfStatus()->curRates();
   }
};
struct MonitoredIntfLag : MonitoredIntfMembers {};
struct MonitoredIntfVlan : MonitoredIntfMembers {};

// ---- a port-channel

TEST_F( MonitoredIntfLag, hasTheSumOfItsMembersRates ) {
   for ( const IntfId & port : { et1, et2, et3 } )
      rig.memberIs( port, po1 );
   MonitoredIntf & sampler = monitored( po1 );
   expectRates( 6 * gigabit, 6e8, sampledInTraffic( sampler ) );
   EXPECT_EQ( rig.now(), rig.record( po1 )->lastSampleTime() );
   EXPECT_EQ( 3u, sampler.memberTrafficCounterss() );
}

TEST_F( MonitoredIntfLag, publishesTheSumOnly ) {
   rig.memberIs( et1, po1 );
   MonitoredIntf & sampler = monitored( po1 );
   sampledInTraffic( sampler );
   EXPECT_EQ( IntfRates(), rig.record( po1 )->prevRates() );
}

TEST_F( MonitoredIntfLag, countsNeitherPortsOfAnotherOneNorPortsOfNoneNorWhatIsNoPort ) {
   rig.memberIs( et1, po1 );
   rig.memberIs( et2, po2 );
   rig.lagConfig->phyIntfIs( et3 );
   rig.memberIs( po2, po1 );
   expectRates( gigabit, 1e8, sampledInTraffic( monitored( po1 ) ) );
}

TEST_F( MonitoredIntfLag, countsConfiguredMembersThatAreDown ) {
   rig.memberIs( et1, po1 );
   rig.linkIs( et1, false );
   expectRates( gigabit, 1e8, sampledInTraffic( monitored( po1 ) ) );
}

TEST_F( MonitoredIntfLag, getsNothingFromAMemberWithoutCounters ) {
   rig.memberIs( et1, po1 );
   rig.memberIs( PluginRig::port( "et9" ), po1 );
   MonitoredIntf & sampler = monitored( po1 );
   const CounterChanges counted( rig.counters() );
   expectRates( gigabit, 1e8, sampledInTraffic( sampler ) );
   EXPECT_EQ( "numNoIntfCounter 1", counted.text() );
   EXPECT_EQ( rig.now(), rig.record( po1 )->lastSampleTime() );
}

TEST_F( MonitoredIntfLag, withoutMembersPublishesZero ) {
   MonitoredIntf & sampler = monitored( po1 );
   sampler.setCurRates( sampler.monIntfStatus(), rates( 1, 2, 3 ) );
   expectRates( 0, 0, sampledInTraffic( sampler ) );
   EXPECT_EQ( rates( 1, 2, 3 ), rig.record( po1 )->prevRates() );
   EXPECT_EQ( rig.now(), rig.record( po1 )->lastSampleTime() );
}

TEST_F( MonitoredIntfLag, hasNoMembersWhereThereIsNoConfiguration ) {
   rig.memberIs( et1, po1 );
   rig.lagConfig = nullptr;
   startAgain();
   expectRates( 0, 0, sampledInTraffic( monitored( po1 ) ) );
}

TEST_F( MonitoredIntfLag, publishesNothingAtTheBaseline ) {
   rig.memberIs( et1, po1 );
   rig.monIntfStatusDir->monIntfStatusIs( po1, "p", 1 );
   rig.record( po1 )->curRatesIs( rates( 3, 2, 1 ) );
   rig.record( po1 )->lastSampleTimeIs( 1 );
   monitored( po1 );
   EXPECT_EQ( rates( 3, 2, 1 ), rig.record( po1 )->curRates() );
   EXPECT_EQ( IntfRates(), rig.record( po1 )->prevRates() );
   EXPECT_EQ( 1, rig.record( po1 )->lastSampleTime() );
}

TEST_F( MonitoredIntfLag, publishesNothingForItsMembers ) {
   rig.memberIs( et1, po1 );
   monitored( et1 );
   sampledInTraffic( monitored( po1 ) );
   EXPECT_EQ( 0, rig.record( et1 )->lastSampleTime() );
   EXPECT_EQ( IntfRates(), rig.record( et1 )->curRates() );
}

TEST_F( MonitoredIntfLag, samplesItsMembersApartFromTheirOwnSamples ) {
   rig.memberIs( et1, po1 );
   MonitoredIntf & port = monitored( et1 );
   MonitoredIntf & lag = monitored( po1 );
   expectRates( gigabit, 1e8, sampledInTraffic( port ) );
   expectRates( gigabit, 1e8, sampledInTraffic( lag ) );
   EXPECT_EQ( rig.now() - 5, port.memberTrafficCounters( et1 )->lastUpdateTime() );
   expectRates( gigabit, 1e8, sampledInTraffic( port ) );
}

TEST_F( MonitoredIntfLag, hasNoBaselineOfAMemberThatJoinsLate ) {
   MonitoredIntf & sampler = monitored( po1 );
   countersAre( et1, 50'000'000'000'000, MaybeU63( 0 ) );
   rig.memberIs( et1, po1 );
   rig.advance( 6 );
   sampler.updateTrafficRates();
   expectRates( 4e14 / rig.now(), 0, rig.record( po1 )->curRates() );
}

TEST_F( MonitoredIntfLag, forgetsAMemberThatLeaves ) {
   rig.memberIs( et1, po1 );
   rig.memberIs( et2, po1 );
   MonitoredIntf & sampler = monitored( po1 );
   rig.memberIs( et2, po2 );
   expectRates( gigabit, 1e8, sampledInTraffic( sampler ) );
}

TEST_F( MonitoredIntfLag, countsThePortsBehindAMemberThatIsNone ) {
   rig.memberIs( po2, po1 );
   rig.memberIs( et1, po1 );
   expectRates( gigabit, 1e8, sampledInTraffic( monitored( po1 ) ) );
}

TEST_F( MonitoredIntfLag, countsThePortsBehindAMemberWithoutCounters ) {
   rig.memberIs( PluginRig::port( "et9" ), po1 );
   rig.memberIs( et1, po1 );
   expectRates( gigabit, 1e8, sampledInTraffic( monitored( po1 ) ) );
}

// ---- a VLAN interface

TEST_F( MonitoredIntfVlan, hasTheRateOfItsBusiestMember ) {
   for ( const IntfId & port : { et1, et3, et2 } )
      rig.vlanMemberIs( 10, port );
   expectRates( 3 * gigabit, 3e8, sampledInTraffic( monitored( vlan10 ) ) );
   EXPECT_EQ( rig.now(), rig.record( vlan10 )->lastSampleTime() );
}

TEST_F( MonitoredIntfVlan, publishesTheBusiestRateOnly ) {
   rig.memberIs( et1, po1 );
   rig.vlanMemberIs( 10, po1 );
   rig.vlanMemberIs( 10, et2 );
   sampledInTraffic( monitored( vlan10 ) );
   EXPECT_EQ( IntfRates(), rig.record( vlan10 )->prevRates() );
}

TEST_F( MonitoredIntfVlan, picksEachDirectionByItself ) {
   rig.trafficIs( et2, { 5, 4e8 } );
   for ( const IntfId & port : { et1, et2, et3 } )
      rig.vlanMemberIs( 10, port );
   expectRates( 3 * gigabit, 4e8, sampledInTraffic( monitored( vlan10 ) ) );
}

TEST_F( MonitoredIntfVlan, comparesThePortChannelsSumWithThePorts ) {
   rig.memberIs( et1, po1 );
   rig.memberIs( et2, po1 );
   rig.trafficIs( et3, { 2.5 * gigabit, 4e8 } );
   rig.vlanMemberIs( 10, po1 );
   rig.vlanMemberIs( 10, et3 );
   expectRates( 3 * gigabit, 4e8, sampledInTraffic( monitored( vlan10 ) ) );
}

TEST_F( MonitoredIntfVlan, skipsTheSwitchItself ) {
   rig.vlanMemberIs( 10, Wire::CpuIntfId( "cpu" ) );
   rig.vlanMemberIs( 10, et1 );
   expectRates( gigabit, 1e8, sampledInTraffic( monitored( vlan10 ) ) );
   EXPECT_EQ( 0u, rig.counters().numNoIntfCounter() );
}

TEST_F( MonitoredIntfVlan, getsNothingFromAMemberWithoutCounters ) {
   rig.vlanMemberIs( 10, PluginRig::port( "et9" ) );
   rig.vlanMemberIs( 10, et1 );
   expectRates( gigabit, 1e8, sampledInTraffic( monitored( vlan10 ) ) );
   EXPECT_EQ( 2u, rig.counters().numNoIntfCounter() );
}

TEST_F( MonitoredIntfVlan, aSampleGivesWhatItPublishes ) {
   rig.vlanMemberIs( 10, et1 );
   MonitoredIntf & sampler = monitored( vlan10 );
   sampledInTraffic( sampler );
   rig.octetsInc( et1, 1000, 500 );
   rig.advance( 4 );
   const IntfRates given = sampler.getVlanIntfTrafficCounters( vlan10 );
   EXPECT_EQ( rates( 2000, 1000, rig.now() ), given );
   EXPECT_EQ( rig.record( vlan10 )->curRates(), given );
}

TEST_F( MonitoredIntfVlan, withoutStatusPublishesZeroAndIsCounted ) {
   MonitoredIntf & sampler = monitored( vlan10 );
   EXPECT_EQ( 1u, rig.counters().numNoVlanStatus() );
   sampler.setCurRates( sampler.monIntfStatus(), rates( 1, 2, 3 ) );
   const CounterChanges counted( rig.counters() );
   const Sequence sequence( "MonitoredIntf" );
   expectRates( 0, 0, sampledInTraffic( sampler ) );
   EXPECT_EQ( "numNoVlanStatus 1", counted.text() );
   EXPECT_EQ( rig.now(), rig.record( vlan10 )->lastSampleTime() );
   EXPECT_EQ( rates( 1, 2, 3 ), rig.record( vlan10 )->prevRates() );
   EXPECT_EQ(
      ( Lines{ "getVlanIntfTrafficCounters: no vlan status for vlan 10, intf vlan10" } ), sequence.logged() );
}

TEST_F( MonitoredIntfVlan, hasNoStatusWhereThereIsNoDirectoryOfThem ) {
   rig.vlanStatusDir = nullptr;
   startAgain();
   expectRates( 0, 0, sampledInTraffic( monitored( vlan10 ) ) );
   EXPECT_EQ( 2u, rig.counters().numNoVlanStatus() );
}

TEST_F( MonitoredIntfVlan, withoutMembersPublishesZero ) {
   rig.vlanStatusDir->vlanStatusIs( Bridging::VlanId( 10 ) );
   expectRates( 0, 0, sampledInTraffic( monitored( vlan10 ) ) );
   EXPECT_EQ( 0u, rig.counters().numNoVlanStatus() );
}

TEST_F( MonitoredIntfVlan, publishesNothingAtTheBaseline ) {
   rig.vlanMemberIs( 10, et1 );
   rig.monIntfStatusDir->monIntfStatusIs( vlan10, "p", 1 );
   rig.record( vlan10 )->curRatesIs( rates( 3, 2, 1 ) );
   rig.record( vlan10 )->lastSampleTimeIs( 1 );
   monitored( vlan10 );
   EXPECT_EQ( rates( 3, 2, 1 ), rig.record( vlan10 )->curRates() );
   EXPECT_EQ( IntfRates(), rig.record( vlan10 )->prevRates() );
   EXPECT_EQ( 1, rig.record( vlan10 )->lastSampleTime() );
}

TEST_F( MonitoredIntfVlan, publishesNothingForItsMembers ) {
   rig.memberIs( et1, po1 );
   rig.vlanMemberIs( 10, po1 );
   rig.vlanMemberIs( 10, et3 );
   for ( const IntfId & intf : { et1, et3, po1 } )
      monitored( intf );
   sampledInTraffic( monitored( vlan10 ) );
   for ( const IntfId & intf : { et1, et3, po1 } ) {
      SCOPED_TRACE( stringValue( intf ) );
      EXPECT_EQ( 0, rig.record( intf )->lastSampleTime() );
   }
}

TEST_F( MonitoredIntfVlan, refusesIdsThatNoVlanHas ) {
   for ( const Vel::U16 id : { 0, 4095 } ) {
      SCOPED_TRACE( id );
      try {
         monitored( PluginRig::vlan( "vlan", id ) );
         ADD_FAILURE() << "not refused";
      } catch ( const Vel::RangeError & error ) {
         EXPECT_STREQ( "VlanId::value < 1 or > 4094 not allowed", error.what() );
      }
   }
   EXPECT_EQ( 0u, rig.counters().numNoVlanStatus() );
}

TEST_F( MonitoredIntfVlan, leavesNoRecordBehindWhenItIsRefused ) {
   const IntfId vlan = PluginRig::vlan( "vlan", 4095 );
   EXPECT_THROW( monitored( vlan ), Vel::RangeError );
   EXPECT_FALSE( rig.record( vlan ) );
}

TEST_F( MonitoredIntfVlan, refusesIdsThatNoVlanHasAlsoWhereThereAreNoVlans ) {
   rig.vlanStatusDir = nullptr;
   startAgain();
   EXPECT_THROW( monitored( PluginRig::vlan( "vlan", 4095 ) ), Vel::RangeError );
   EXPECT_EQ( 0u, rig.counters().numNoVlanStatus() );
}

TEST_F( MonitoredIntfVlan, takesTheLowestAndTheHighestId ) {
   for ( const Vel::U16 id : { 1, 4094 } ) {
      SCOPED_TRACE( id );
      rig.vlanMemberIs( id, et1 );
      expectRates(
         gigabit, 1e8, sampledInTraffic( monitored( PluginRig::vlan( Vel::text( "vlan", id ), id ) ) ) );
   }
}

TEST_F( MonitoredIntfVlan, aMemberOfAnotherKindIsAnAssertion ) {
   const struct {
      Vel::U16 vlanId;
      IntfId member;
   } rows[] = {
      { 11, PluginRig::vlan( "vlan20", 20 ) },
      { 12, IntfId::other( "lo" ) },
   };
   for ( const auto & row : rows ) {
      SCOPED_TRACE( stringValue( row.member ) );
      MonitoredIntf & sampler = monitored( PluginRig::vlan( Vel::text( "vlan", row.vlanId ), row.vlanId ) );
      rig.vlanMemberIs( row.vlanId, row.member );
      EXPECT_EQ( "0", Vel::failedAssertion( [&] { sampler.updateTrafficRates(); } ) );
   }
}

TEST_F( MonitoredIntfVlan, aMemberOfAnotherKindIsAnAssertionAtTheBaselineAlready ) {
   rig.vlanMemberIs( 10, PluginRig::vlan( "vlan20", 20 ) );
   EXPECT_EQ( "0", Vel::failedAssertion( [&] { monitored( vlan10 ); } ) );
}

/// The second look at a port in one sample has no time to measure over, so it has no rate, and neither has a sum with it
/// in it: it is not above anything. Which look is the second depends on the order of the members.
TEST_F( MonitoredIntfVlan, aPortThatIsAMemberTwiceIsMeasuredOnceOnly ) {
   rig.trafficIs( et1, { 1e6, 0 } );
   rig.trafficIs( et2, { 8e8, 0 } );
   rig.memberIs( et1, po1 );
   rig.memberIs( et2, po1 );
   rig.vlanMemberIs( 10, et1 );
   rig.vlanMemberIs( 10, po1 );
   EXPECT_EQ( 1e6, sampledInTraffic( monitored( vlan10 ) ).inBitsRate );
   rig.vlanMemberIs( 11, po1 );
   rig.vlanMemberIs( 11, et1 );
   EXPECT_EQ( 8.01e8, sampledInTraffic( monitored( PluginRig::vlan( "vlan11", 11 ) ) ).inBitsRate );
}

// ---- the directory of ports

TEST_F( MonitoredIntfMembers, portsAreFollowedInTheDirectoryThatWasAskedForLast ) {
   using Dir = Interface::IntfCounterMasquerade::AllEthIntfCounterPtrDir;
   const auto samplers = Vel::make< MonitoredIntfDir >();
   const auto one = Vel::make< Dir >();
   const auto other = Vel::make< Dir >();
   const Vel::U64 first = samplers->portChanges( one );
   EXPECT_EQ( first, samplers->portChanges( one ) );
   const Vel::U64 second = samplers->portChanges( other );
   EXPECT_NE( first, second ) << "what was found in another directory is no good";
   one->intfCounterDirIs( et1 );
   EXPECT_EQ( second, samplers->portChanges( other ) );
   other->intfCounterDirIs( et1 );
   EXPECT_NE( second, samplers->portChanges( other ) );
}

} // namespace
} // namespace MaintenanceMode
