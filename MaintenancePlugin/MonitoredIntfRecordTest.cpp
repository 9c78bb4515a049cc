#include "MaintenancePlugin/MonitorSequence.h"
#include "MaintenancePlugin/SamplerTest.h"
#include "Platform/Vel/FailedAssertion.h"

namespace MaintenanceMode {
namespace {

using Maintenance::MonIntfStatus;

struct MonitoredIntfRecord : SamplerTest {
   Maintenance::MonIntfStatusDir & records() { return *rig.monIntfStatusDir; }
};

/// The traces of samplers and, between them, what they write into a record and count.
struct RecordSequence : Sequence {
   RecordSequence( DrainWatchSmDebugCounters & counters, MonIntfStatus & record )
      : Sequence( "MonitoredIntf" ) {
      counters_.is( &counters, this ).hasNotificationActiveIs( true );
      record_.is( &record, this ).hasNotificationActiveIs( true );
   }
   struct VelRecord final : Vel::ReactorTo< RecordSequence, MonIntfStatus > {
      using ReactorTo::ReactorTo;
      void onProfileName() override { sm()->note( "profileName ", entity()->profileName() ); }
      void onStale() override { sm()->note( "stale ", Vel::boolText( entity()->stale() ) ); }
      void onPrevRates() override { noteRates( "prevRates" ); }
      void onCurRates() override { noteRates( "curRates" ); }
      void onLastSampleTime() override { noteRates( "lastSampleTime" ); }
      /// What somebody finds who is told.
      void noteRates( const char * what ) {
         sm()->note(
            what, ": prev ", entity()->prevRates().inBitsRate, ", cur ", entity()->curRates().inBitsRate,
            ", last ", entity()->lastSampleTime() );
      }
   };
   struct VelCounters final : Vel::ReactorTo< RecordSequence, DrainWatchSmDebugCounters > {
      using ReactorTo::ReactorTo;
      void onNumNoIntfCounter() override { sm()->note( "numNoIntfCounter" ); }
   };

 private:
   Vel::Watch< VelRecord > record_;
   Vel::Watch< VelCounters > counters_;
};

TEST_F( MonitoredIntfRecord, isCreatedWithTheProfileAndTheTime ) {
   rig.advance( 7 );
   Sequence sequence( "MonitoredIntf" );
   const MonitoredIntf & sampler = monitored( et1, "p" );
   const MonIntfStatus * record = rig.record( et1 );
   ASSERT_TRUE( record );
   EXPECT_EQ( record, sampler.monIntfStatus().get() );
   EXPECT_EQ( "p", record->profileName() );
   EXPECT_EQ( rig.now(), record->startTime() );
   EXPECT_FALSE( record->stale() );
   EXPECT_EQ( IntfRates(), record->curRates() );
   EXPECT_EQ( IntfRates(), record->prevRates() );
   EXPECT_TRUE( sampler.initialized() );
   EXPECT_EQ(
      ( Lines{ "handleInitialized: Created new mon intf status for intf et1, profile p" } ),
      sequence.lines() );
   EXPECT_TRUE( sequence.traced( "Created new mon intf status for intf et1, profile p", 4 ) );
   EXPECT_EQ( ( Lines{ "created new mon intf status for intf et1, profile p" } ), sequence.logged() );
}

TEST_F( MonitoredIntfRecord, isTakenUpOnce ) {
   MonitoredIntf & sampler = monitored( et1, "p" );
   ASSERT_TRUE( sampler.initialized() );
   rig.record( et1 )->staleIs( true );
   EXPECT_EQ( "!initialized()", Vel::failedAssertion( [&] { sampler.handleInitialized(); } ) );
   EXPECT_TRUE( rig.record( et1 )->stale() );
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
   Sequence sequence( "MonitoredIntf" );
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
   EXPECT_EQ( Lines(), sequence.lines() );
   EXPECT_EQ( Lines(), sequence.logged() );
}

TEST_F( MonitoredIntfRecord, thatIsThereIsAdoptedBeforeTheBaselineSample ) {
   MonIntfStatus & record = *records().monIntfStatusIs( et1, "old", 1234.5 );
   record.staleIs( true );
   rig.countersDel( et1 );
   RecordSequence sequence( rig.counters(), record );
   monitored( et1, "new" );
   EXPECT_EQ( ( Lines{ "profileName new", "stale false", "numNoIntfCounter" } ), sequence.lines() );
}

TEST_F( MonitoredIntfRecord, followsTheProfilesName ) {
   MonitoredIntf & sampler = monitored( et1, "p" );
   RecordSequence sequence( rig.counters(), *rig.record( et1 ) );
   sampler.profileNameIs( "q" );
   EXPECT_EQ( "q", sampler.profileName() );
   EXPECT_EQ( "q", rig.record( et1 )->profileName() );
   EXPECT_EQ(
      ( Lines{ "handleProfileName: intf et1, new profileName q", "profileName q" } ), sequence.lines() );
   EXPECT_TRUE( sequence.traced( "intf et1, new profileName q", 4 ) );
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
   RecordSequence sequence( rig.counters(), *rig.record( et1 ) );
   sampler.profileNameIs( "q" );
   EXPECT_EQ( "q", sampler.profileName() );
   EXPECT_EQ( "p", rig.record( et1 )->profileName() );
   EXPECT_EQ( ( Lines{ "handleProfileName: intf et1, new profileName q" } ), sequence.lines() );
}

TEST_F( MonitoredIntfRecord, goesWithTheSamplerAndLeavesTheThreeSets ) {
   monitored( et1 );
   monitored( et2 );
   for ( const IntfId & intf : { et1, et2 } ) {
      records().monIntfEnterMaintIs( intf, true );
      records().monIntfUnderMaintIs( intf, true );
      records().monIntfSpikeUnderMaintIs( intf, true );
   }
   Vel::Ptr< MonitoredIntf > last = &monitored( et1 );
   rig.root->monIntfDir()->monitoredIntfDel( et1 );
   MonitorSequence sequence( "MonitoredIntf", rig );
   last = nullptr;
   EXPECT_EQ(
      ( Lines{
         "MonitoredIntf::prepareToDie et1",
         "record of et1 gone",
         "monIntfEnterMaint - et1",
         "monIntfUnderMaint - et1",
         "monIntfSpikeUnderMaint - et1",
      } ),
      sequence.lines() );
   EXPECT_TRUE( sequence.traced( "MonitoredIntf::prepareToDie et1", 4 ) );
   EXPECT_EQ( ( Lines{ "MonitoredIntf::prepareToDie et1" } ), sequence.logged() );
   EXPECT_FALSE( rig.record( et1 ) );
   EXPECT_FALSE( records().monIntfEnterMaint( et1 ) );
   EXPECT_FALSE( records().monIntfUnderMaint( et1 ) );
   EXPECT_FALSE( records().monIntfSpikeUnderMaint( et1 ) );
   EXPECT_TRUE( rig.record( et2 ) );
   EXPECT_TRUE( records().monIntfEnterMaint( et2 ) );
   EXPECT_TRUE( records().monIntfUnderMaint( et2 ) );
   EXPECT_TRUE( records().monIntfSpikeUnderMaint( et2 ) );
}

TEST_F( MonitoredIntfRecord, leavesTheSetsThatItIsInWithoutAWordAboutTheOthers ) {
   const struct {
      const char * what;
      bool enterMaint, underMaint, spikeUnderMaint;
      Lines gone;
   } rows[] = {
      { "in none", false, false, false, {} },
      { "all but entering",
        false,
        true,
        true,
        { "monIntfUnderMaint - et1", "monIntfSpikeUnderMaint - et1" } },
      { "all but under", true, false, true, { "monIntfEnterMaint - et1", "monIntfSpikeUnderMaint - et1" } },
      { "all but spiked", true, true, false, { "monIntfEnterMaint - et1", "monIntfUnderMaint - et1" } },
   };
   for ( const auto & row : rows ) {
      SCOPED_TRACE( row.what );
      Vel::Ptr< MonitoredIntf > last = &monitored( et1 );
      rig.root->monIntfDir()->monitoredIntfDel( et1 );
      if ( row.enterMaint )
         records().monIntfEnterMaintIs( et1, true );
      if ( row.underMaint )
         records().monIntfUnderMaintIs( et1, true );
      if ( row.spikeUnderMaint )
         records().monIntfSpikeUnderMaintIs( et1, true );
      MonitorSequence sequence( "MonitoredIntf", rig );
      last = nullptr;
      Lines expected{ "MonitoredIntf::prepareToDie et1", "record of et1 gone" };
      expected.insert( expected.end(), row.gone.begin(), row.gone.end() );
      EXPECT_EQ( expected, sequence.lines() );
   }
}

/// Sees a sampler on its way out.
struct LeavingSampler {
   struct VelRecords final : Vel::ReactorTo< LeavingSampler, Maintenance::MonIntfStatusDir > {
      using ReactorTo::ReactorTo;
      void onMonIntfStatus( const Wire::IntfId & ) override {
         sm()->snapshots = sm()->sampler->memberTrafficCounterss();
      }
   };
   const MonitoredIntf * sampler;
   Vel::U32 snapshots = 0;
};

TEST_F( MonitoredIntfRecord, goesBeforeTheSamplersSnapshots ) {
   Vel::Ptr< MonitoredIntf > last = &monitored( et1 );
   rig.root->monIntfDir()->monitoredIntfDel( et1 );
   LeavingSampler leaving{ last.get() };
   Vel::Watch< LeavingSampler::VelRecords > reactor;
   reactor.is( rig.monIntfStatusDir, &leaving ).hasNotificationActiveIs( true );
   last = nullptr;
   EXPECT_EQ( 1u, leaving.snapshots );
}

TEST_F( MonitoredIntfRecord, ofAnInterfaceInNoSetIsAllThatGoes ) {
   monitored( et1 );
   records().monIntfUnderMaintIs( et2, true );
   rig.root->monIntfDir()->monitoredIntfDel( et1 );
   EXPECT_EQ( 0u, records().monIntfStatuss() );
   EXPECT_EQ( 1u, records().monIntfUnderMaints() );
}

TEST_F( MonitoredIntfRecord, thatHasGoneBeforeTheSamplerDoesNotKeepItInTheSets ) {
   monitored( et1 );
   records().monIntfEnterMaintIs( et1, true );
   records().monIntfUnderMaintIs( et1, true );
   records().monIntfSpikeUnderMaintIs( et1, true );
   records().monIntfStatusDel( et1 );
   rig.root->monIntfDir()->monitoredIntfDel( et1 );
   EXPECT_EQ( 0u, records().monIntfEnterMaints() );
   EXPECT_EQ( 0u, records().monIntfUnderMaints() );
   EXPECT_EQ( 0u, records().monIntfSpikeUnderMaints() );
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

TEST_F( MonitoredIntfRecord, takesTheLastRatesThenTheNewOnesThenTheTime ) {
   MonitoredIntf & sampler = monitored( et1 );
   sampler.setCurRates( sampler.monIntfStatus(), rates( 100, 10, 1 ) );
   sampler.monIntfStatus()->lastSampleTimeIs( 5 );
   RecordSequence sequence( rig.counters(), *rig.record( et1 ) );
   sampler.setCurRates( sampler.monIntfStatus(), rates( 200, 20, 2 ) );
   EXPECT_EQ(
      ( Lines{
         "setCurRates: IntfId:et1 Prev[ inBitsRate:100 outBitsRate:10 lastSampleTime:1] Cur[ inBitsRate:200 "
         "outBitsRate:20 curSampleTime:2",
         "prevRates: prev 100, cur 100, last 5",
         "curRates: prev 100, cur 200, last 5",
         Vel::text( "lastSampleTime: prev 100, cur 200, last ", rig.now() ),
      } ),
      sequence.lines() );
   EXPECT_TRUE( sequence.traced( "setCurRates: ", 9 ) );
   EXPECT_EQ( rates( 100, 10, 1 ), rig.record( et1 )->prevRates() );
   EXPECT_EQ( rates( 200, 20, 2 ), rig.record( et1 )->curRates() );
}

TEST_F( MonitoredIntfRecord, isTheOneThatIsGiven ) {
   MonitoredIntf & sampler = monitored( et1 );
   const Vel::Ptr< MonIntfStatus > other( records().monIntfStatusIs( et2, "p", 1 ) );
   sampler.setCurRates( other, rates( 200, 20, 2 ) );
   EXPECT_EQ( rates( 200, 20, 2 ), other->curRates() );
   EXPECT_EQ( rig.now(), other->lastSampleTime() );
   EXPECT_EQ( IntfRates(), rig.record( et1 )->curRates() );
}

TEST_F( MonitoredIntfRecord, isNeededToPublish ) {
   MonitoredIntf & sampler = monitored( et1 );
   EXPECT_EQ( "monIntfStatus", Vel::failedAssertion( [&] { sampler.setCurRates( nullptr, IntfRates() ); } ) );
}

} // namespace
} // namespace MaintenanceMode
