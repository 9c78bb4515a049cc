#include "MaintenancePlugin/DumpTest.h"

namespace MaintenanceMode {
namespace {

/// u1 (et1, po1, et4) and u2 (et1, vlan10) in the middle of their drains: et4 is quiet and has drained, the traffic of
/// the others has not left; et3, a member of po1, has no counters.
struct DrainWatchSmDumpOfADrain : DumpTest {
   DrainWatchSmDumpOfADrain() {
      const auto et3 = PluginRig::port( "et3" );
      const auto et4 = PluginRig::port( "et4" );
      const auto et5 = PluginRig::port( "et5" );
      const auto po1 = PluginRig::portChannel( "po1" );
      const auto vlan10 = PluginRig::vlan( "vlan10", 10 );
      rig.cause->causeGroupNameIs( "maintenance-shutdown" );
      rig.profileIs( "p", 100, 10, false, 0 );
      rig.profileIs( "slow", 1000, 60, false, 0 );
      for ( const auto & intf : { et1, et2, et3, et4, et5, po1, vlan10 } )
         rig.linkIs( intf );
      rig.memberIs( et2, po1 );
      rig.memberIs( et3, po1 );
      rig.vlanMemberIs( 10, Wire::CpuIntfId( "cpu" ) );
      rig.vlanMemberIs( 10, et5 );
      rig.trafficIs( et1, { 8e6, 4e6 } );
      rig.trafficIs( et2, { 16e9, 800 } );
      rig.trafficIs( et5, { 1e6, 2.5e6 } );
      rig.octetsInc( et1, 1000, 2000 );
      rig.octetsInc( et4, 77, 88 );
      rig.countersDel( et3 );
      rig.unitIs( "u1", { et1, po1, et4 } );
      rig.unitIs( "u2", { et1, vlan10 } );
      rig.selectIs( po1, "slow" );
      rig.start();
      rig.enter( "u1" );
      rig.advance( 1 );
      rig.countTraffic();
      rig.enter( "u2" );
      rig.advance( 11.5 );
   }
};

TEST_F( DrainWatchSmDumpOfADrain, isTheWholeTextAtAnyIndent ) {
   const char * const own = R"(DrainWatchSm:
  initialized : true
  numMaintEnter: 2
  numMaintExit: 0
  numMaintExitInMaintModeEnter: 0
  numMaintExitNoUnitMon: 0
  numMaintEnterUnitMonPresent: 0
  numNotifyStageCompletion: 0
  numUnitStatusDel: 0
  numNoVlanStatus: 0
  numNoIntfCounter: 3
  numNoNotifyNoStageInput: 0
  numNoNotifyActiveStageMismatch: 0
  numNoNotifyAlreadyNotified: 0
  numNoNotifyNoUnitStatus: 0
  numIntfMonInitialStatePassive: 0
  numStartIntfMonInUnits: 4
  numStopIntfMonInUnits: 3
  numIntfMonProfileChange: 0
  numIntfMonProfileDelete: 0
  numIntfMonPendingProfileResolved: 0
  numIntfMonDefProfileUpdate: 0
  numIntfMonIntfNotSupported: 0
  numIntfMonNoIntfStatus: 0
  numIntfMonIntfOperNotUp: 0
  refCount: #
  Num unitMon entries: 2
  Num intfMon entries: 4
  Num unitMonIntfInput entries: 2
  Num unitDrainedIntf entries: 2
  Dumping UnitMonSms:
)";
   const char * const units = R"(  Unit: u1
    initialized: true
    genId: 1
    Num monIntf entries: 3
    Num drainedIntf entries: 1
  Unit: u2
    initialized: true
    genId: 1
    Num monIntf entries: 2
    Num drainedIntf entries: 0
)";
   const char * const rest = R"(  Interface: et1
    initialState: monIntfStateEnterMaint
    state: monIntfStateEnterMaint
    num dependentUnits: 2
      u1
      u2
    oldProfileName: p
    Profile: p
    Monitored interface: et1
      profileName: p
      num memberTrafficCounters: 1
      interface: et1
        prev in/out: 10001000 / 5002000( updated  2.500000s ago )
        rates in/out (Mbps): 8.000000 / 4.000000 (updated 2.500000s ago)
      MonIntfStatus : et1
        profileName: p
        startTime: 1700000000.000000 (12.500000s ago)
        lastSampleTime: 1700000010.000000 (2.500000s ago)
        curRates: in/out (Mbps): 8.000000 / 4.000000 (updated 2.500000s ago)
        prevRates: in/out (Mbps): 8.000000 / 4.000000 (updated 7.500000s ago)
        numConsecutiveDrainedSamples: 0
        totalSamples: 2
        numSamplesAboveThresholdPreMaint: 2
        numSamplesBelowThresholdPreMaint: 0
        numSamplesAboveThresholdPostMaint: 0
        numSamplesBelowThresholdPostMaint: 0
        state: monIntfStateEnterMaint
        stateTime: 1700000000.000000 (12.500000s ago)
        spikeUnderMaint: false
        stale: false
  Interface: po1
    initialState: monIntfStateEnterMaint
    state: monIntfStateEnterMaint
    num dependentUnits: 1
      u1
    oldProfileName: slow
    Profile: slow
    Monitored interface: po1
      profileName: slow
      num memberTrafficCounters: 1
      interface: et2
        prev in/out: 20000000000 / 1000( updated  2.500000s ago )
        rates in/out (Mbps): 16000.000000 / 0.000800 (updated 2.500000s ago)
      MonIntfStatus : po1
        profileName: slow
        startTime: 1700000000.000000 (12.500000s ago)
        lastSampleTime: 1700000010.000000 (2.500000s ago)
        curRates: in/out (Mbps): 16000.000000 / 0.000800 (updated 2.500000s ago)
        prevRates: in/out (Mbps): 16000.000000 / 0.000800 (updated 7.500000s ago)
        numConsecutiveDrainedSamples: 0
        totalSamples: 2
        numSamplesAboveThresholdPreMaint: 2
        numSamplesBelowThresholdPreMaint: 0
        numSamplesAboveThresholdPostMaint: 0
        numSamplesBelowThresholdPostMaint: 0
        state: monIntfStateEnterMaint
        stateTime: 1700000000.000000 (12.500000s ago)
        spikeUnderMaint: false
        stale: false
  Interface: et4
    initialState: monIntfStateEnterMaint
    state: monIntfStateUnderMaint
    num dependentUnits: 1
      u1
    oldProfileName: p
    Profile: p
    Monitored interface: et4
      profileName: p
      num memberTrafficCounters: 1
      interface: et4
        prev in/out: 77 / 88( updated  2.500000s ago )
        rates in/out (Mbps): 0.000000 / 0.000000 (updated 2.500000s ago)
      MonIntfStatus : et4
        profileName: p
        startTime: 1700000000.000000 (12.500000s ago)
        lastSampleTime: 1700000010.000000 (2.500000s ago)
        curRates: in/out (Mbps): 0.000000 / 0.000000 (updated 2.500000s ago)
        prevRates: in/out (Mbps): 0.000000 / 0.000000 (updated 7.500000s ago)
        numConsecutiveDrainedSamples: 2
        totalSamples: 2
        numSamplesAboveThresholdPreMaint: 0
        numSamplesBelowThresholdPreMaint: 2
        numSamplesAboveThresholdPostMaint: 0
        numSamplesBelowThresholdPostMaint: 0
        state: monIntfStateUnderMaint
        stateTime: 1700000010.000000 (2.500000s ago)
        spikeUnderMaint: false
        stale: false
  Interface: vlan10
    initialState: monIntfStateEnterMaint
    state: monIntfStateEnterMaint
    num dependentUnits: 1
      u2
    oldProfileName: p
    Profile: p
    Monitored interface: vlan10
      profileName: p
      num memberTrafficCounters: 1
      interface: et5
        prev in/out: 1375000 / 3437500( updated  1.500000s ago )
        rates in/out (Mbps): 1.000000 / 2.500000 (updated 1.500000s ago)
      MonIntfStatus : vlan10
        profileName: p
        startTime: 1700000001.000000 (11.500000s ago)
        lastSampleTime: 1700000011.000000 (1.500000s ago)
        curRates: in/out (Mbps): 1.000000 / 2.500000 (updated 1.500000s ago)
        prevRates: in/out (Mbps): 1.000000 / 2.500000 (updated 6.500000s ago)
        numConsecutiveDrainedSamples: 0
        totalSamples: 2
        numSamplesAboveThresholdPreMaint: 2
        numSamplesBelowThresholdPreMaint: 0
        numSamplesAboveThresholdPostMaint: 0
        numSamplesBelowThresholdPostMaint: 0
        state: monIntfStateEnterMaint
        stateTime: 1700000001.000000 (11.500000s ago)
        spikeUnderMaint: false
        stale: false
  IntfStatusSm codef details:
  bookmark: 
  backlogSize: 0
  backlogQuantum: 0.010000
  updatesSeen: 11
  updatesProcessed: 7
  warm: true
  updatesCoalesced: 4
  timeUsed: 0.000000
  dispatchCount: 1
  yieldBeforeFinishingCount: 0
  MonIntfStatusDir:
    Num monIntfStatus entries: 4
    Num monIntfEnterMaint : 3
    Num monIntfUnderMaint : 1
    Num monIntfSpikeUnderMaint : 0
  Interfaces shutdown for maintenance:
    causeGroup: maintenance-shutdown
    num intfs: 0
)";
   expectDumped( own, units, rest );
}

/// et1 of u1 and et2 of u2 are shut since they are monitored, 100 and 130 seconds after the start; et3 of u2 is not to be
/// shut, and traffic has come back to it after it had drained. Now it is 160 seconds after the start.
struct DrainWatchSmDumpOfShutdowns : DumpTest {
   DrainWatchSmDumpOfShutdowns() {
      const auto et3 = PluginRig::port( "et3" );
      rig.cause->causeGroupNameIs( "maintenance-shutdown" );
      rig.profileIs( "p", 100, 10, true, 0 );
      rig.profileIs( "open", 100, 10, false, 0 );
      for ( const auto & intf : { et1, et2, et3 } )
         rig.linkIs( intf );
      rig.trafficIs( et1, { 8e6, 8e5 } );
      rig.unitIs( "u1", { et1 } );
      rig.unitIs( "u2", { et2, et3 } );
      rig.selectIs( et3, "open" );
      rig.start();
      rig.advance( 100 );
      rig.countTraffic();
      rig.enter( "u1" );
      rig.advance( 30 );
      rig.enter( "u2" );
      rig.advance( 20 );
      rig.trafficIs( et3, { 2e6, 4e6 } );
      rig.advance( 10 );
   }
};

TEST_F( DrainWatchSmDumpOfShutdowns, isTheWholeTextAtAnyIndent ) {
   const char * const own = R"(DrainWatchSm:
  initialized : true
  numMaintEnter: 2
  numMaintExit: 0
  numMaintExitInMaintModeEnter: 0
  numMaintExitNoUnitMon: 0
  numMaintEnterUnitMonPresent: 0
  numNotifyStageCompletion: 2
  numUnitStatusDel: 0
  numNoVlanStatus: 0
  numNoIntfCounter: 0
  numNoNotifyNoStageInput: 0
  numNoNotifyActiveStageMismatch: 0
  numNoNotifyAlreadyNotified: 0
  numNoNotifyNoUnitStatus: 0
  numIntfMonInitialStatePassive: 0
  numStartIntfMonInUnits: 3
  numStopIntfMonInUnits: 0
  numIntfMonProfileChange: 0
  numIntfMonProfileDelete: 0
  numIntfMonPendingProfileResolved: 0
  numIntfMonDefProfileUpdate: 0
  numIntfMonIntfNotSupported: 0
  numIntfMonNoIntfStatus: 0
  numIntfMonIntfOperNotUp: 0
  refCount: #
  Num unitMon entries: 2
  Num intfMon entries: 3
  Num unitMonIntfInput entries: 2
  Num unitDrainedIntf entries: 2
  Dumping UnitMonSms:
)";
   const char * const units = R"(  Unit: u1
    initialized: true
    genId: 1
    Num monIntf entries: 1
    Num drainedIntf entries: 1
  Unit: u2
    initialized: true
    genId: 1
    Num monIntf entries: 2
    Num drainedIntf entries: 2
)";
   const char * const rest = R"(  Interface: et1
    initialState: monIntfStateEnterMaint
    state: monIntfStateUnderMaint
    num dependentUnits: 1
      u1
    oldProfileName: p
    Profile: p
    Monitored interface: et1
      profileName: p
      num memberTrafficCounters: 1
      interface: et1
        prev in/out: 100000000 / 10000000( updated  60.000000s ago )
        rates in/out (Mbps): 0.000000 / 0.000000 (updated 1700000160.000000s ago)
      MonIntfStatus : et1
        profileName: p
        startTime: 1700000100.000000 (60.000000s ago)
        lastSampleTime: 0.000000 (1700000160.000000s ago)
        curRates: in/out (Mbps): 0.000000 / 0.000000 (updated 1700000160.000000s ago)
        prevRates: in/out (Mbps): 0.000000 / 0.000000 (updated 1700000160.000000s ago)
        numConsecutiveDrainedSamples: 0
        totalSamples: 0
        numSamplesAboveThresholdPreMaint: 0
        numSamplesBelowThresholdPreMaint: 0
        numSamplesAboveThresholdPostMaint: 0
        numSamplesBelowThresholdPostMaint: 0
        state: monIntfStateUnderMaint
        stateTime: 1700000100.000000 (60.000000s ago)
        spikeUnderMaint: false
        stale: false
  Interface: et2
    initialState: monIntfStateEnterMaint
    state: monIntfStateUnderMaint
    num dependentUnits: 1
      u2
    oldProfileName: p
    Profile: p
    Monitored interface: et2
      profileName: p
      num memberTrafficCounters: 1
      interface: et2
        prev in/out: 0 / 0( updated  30.000000s ago )
        rates in/out (Mbps): 0.000000 / 0.000000 (updated 1700000160.000000s ago)
      MonIntfStatus : et2
        profileName: p
        startTime: 1700000130.000000 (30.000000s ago)
        lastSampleTime: 0.000000 (1700000160.000000s ago)
        curRates: in/out (Mbps): 0.000000 / 0.000000 (updated 1700000160.000000s ago)
        prevRates: in/out (Mbps): 0.000000 / 0.000000 (updated 1700000160.000000s ago)
        numConsecutiveDrainedSamples: 0
        totalSamples: 0
        numSamplesAboveThresholdPreMaint: 0
        numSamplesBelowThresholdPreMaint: 0
        numSamplesAboveThresholdPostMaint: 0
        numSamplesBelowThresholdPostMaint: 0
        state: monIntfStateUnderMaint
        stateTime: 1700000130.000000 (30.000000s ago)
        spikeUnderMaint: false
        stale: false
  Interface: et3
    initialState: monIntfStateEnterMaint
    state: monIntfStateUnderMaint
    num dependentUnits: 1
      u2
    oldProfileName: open
    Profile: open
    Monitored interface: et3
      profileName: open
      num memberTrafficCounters: 1
      interface: et3
        prev in/out: 2500000 / 5000000( updated  0.000000s ago )
        rates in/out (Mbps): 2.000000 / 4.000000 (updated 0.000000s ago)
      MonIntfStatus : et3
        profileName: open
        startTime: 1700000130.000000 (30.000000s ago)
        lastSampleTime: 1700000160.000000 (0.000000s ago)
        curRates: in/out (Mbps): 2.000000 / 4.000000 (updated 0.000000s ago)
        prevRates: in/out (Mbps): 0.000000 / 0.000000 (updated 10.000000s ago)
        numConsecutiveDrainedSamples: 2
        totalSamples: 4
        numSamplesAboveThresholdPreMaint: 0
        numSamplesBelowThresholdPreMaint: 2
        numSamplesAboveThresholdPostMaint: 1
        numSamplesBelowThresholdPostMaint: 1
        state: monIntfStateUnderMaint
        stateTime: 1700000140.000000 (20.000000s ago)
        spikeUnderMaint: true
        stale: false
  IntfStatusSm codef details:
  bookmark: 
  backlogSize: 0
  backlogQuantum: 0.010000
  updatesSeen: 6
  updatesProcessed: 3
  warm: true
  updatesCoalesced: 3
  timeUsed: 0.000000
  dispatchCount: 1
  yieldBeforeFinishingCount: 0
  MonIntfStatusDir:
    Num monIntfStatus entries: 3
    Num monIntfEnterMaint : 0
    Num monIntfUnderMaint : 3
    Num monIntfSpikeUnderMaint : 1
  Interfaces shutdown for maintenance:
    causeGroup: maintenance-shutdown
    num intfs: 2
      et1 at 1700000100.000000 (60.000000s ago)
      et2 at 1700000130.000000 (30.000000s ago)
)";
   expectDumped( own, units, rest );
}
} // namespace
} // namespace MaintenanceMode
