#include "Agent/History/HistoryRig.h"
#include "Agent/History/RecordTimes.h"

#include <gtest/gtest.h>

namespace Agent {

namespace {

struct RecorderTest : testing::Test {
   HistoryRig rig;
};

std::vector< Vel::String > reasons( const HistoryIntf & entry ) {
   std::vector< Vel::String > result;
   for ( const auto & [since, reason] : entry.reasonRange() )
      result.push_back( stringValue( reason.reason ) );
   return result;
}

TEST_F( RecorderTest, normalUnitHasNoRecord ) { EXPECT_EQ( 0u, rig.dir->records() ); }

TEST_F( RecorderTest, idsRiseAlsoWhenRecordsAreGone ) {
   rig.maintenance();
   rig.dir->summaryDelAll();
   rig.stop();
   rig.start();
   rig.enter();
   EXPECT_EQ( 2u, rig.dir->lastId() );
   EXPECT_TRUE( rig.dir->record( 2 ) );
}

TEST_F( RecorderTest, enterThatAnEarlierVersionHasBegunIsTakenUpWithWhatIsKnown ) {
   rig.stop();
   rig.state( Maintenance::Unit::UnitState::maintenance, "ann", "upgrade" );
   const double since = rig.now();
   rig.advance( 100 );
   rig.start();
   ASSERT_EQ( 1u, rig.dir->records() );
   EXPECT_EQ( since, rig.record().began() );
   EXPECT_EQ( since, rig.record().inMaintenance() );
   EXPECT_EQ( "upgrade", rig.record().reason() );
}

TEST_F( RecorderTest, recordOfAUnitThatIsGoneIsClosedAtTheNextStart ) {
   rig.enter();
   rig.stop();
   rig.units->statusDel( "u1" );
   rig.start();
   EXPECT_EQ( 0u, rig.dir->records() );
   EXPECT_EQ( 1u, rig.dir->summarys() );
}

TEST_F( RecorderTest, exitThatAFailedStageHasTakenIsAborted ) {
   rig.enter();
   rig.runs->unitRun( "u1" )->stageStartIs( "steer", rig.now() );
   StageCommand & command = *rig.commands->unitIs( "u1" )->stageIs( "steer" );
   command.instanceNameIs( "u1#1" );
   command.stateIs( CommandState::failed );
   command.failureIs( "no such peer" );
   rig.exit();
   EXPECT_EQ( Outcome::aborted, rig.record().outcomeToBe() );
   EXPECT_EQ( "no such peer", rig.record().stage( "enter/steer" )->failure() );
   EXPECT_EQ( rig.now(), rig.record().stage( "enter/steer" )->ended() );
}

TEST_F( RecorderTest, stageWhoseFailureDoesNotTakeTheUnitBackAbortsNothing ) {
   rig.enter();
   StageCommand & command = *rig.commands->unitIs( "u1" )->stageIs( "steer" );
   command.instanceNameIs( "u1#1" );
   command.goesOnIs( true );
   command.stateIs( CommandState::failed );
   command.failureIs( "no such peer" );
   rig.runs->unitRun( "u1" )->stageStartIs( "steer", rig.now() );
   rig.runs->unitRun( "u1" )->stageEndIs( "steer", rig.now() );
   rig.exit();
   EXPECT_EQ( Outcome::cancelled, rig.record().outcomeToBe() );
   EXPECT_EQ( "no such peer", rig.record().stage( "enter/steer" )->failure() );
}

TEST_F( RecorderTest, failureOfAnEarlierRunIsNotTakenForOneOfThisRun ) {
   StageCommand & command = *rig.commands->unitIs( "u1" )->stageIs( "steer" );
   command.instanceNameIs( "u1#7" );
   command.stateIs( CommandState::failed );
   command.failureIs( "no such peer" );
   rig.enter();
   rig.runs->unitRun( "u1" )->stageStartIs( "steer", rig.now() );
   rig.exit();
   EXPECT_EQ( Outcome::cancelled, rig.record().outcomeToBe() );
   EXPECT_EQ( "", rig.record().stage( "enter/steer" )->failure() );
}

TEST_F( RecorderTest, stageOfBothWaysIsWrittenDownTwice ) {
   rig.enter();
   rig.runs->unitRun( "u1" )->stageStartIs( "drainwatch", rig.now() );
   rig.inMaintenance();
   rig.exit();
   rig.advance( 10 );
   rig.runs->unitRun( "u1" )->stageStartIs( "drainwatch", rig.now() );
   EXPECT_EQ( rig.now() - 10, rig.record().stage( "enter/drainwatch" )->began() );
   EXPECT_EQ( rig.now(), rig.record().stage( "exit/drainwatch" )->began() );
}

TEST_F( RecorderTest, interfaceOfNoUnitUnderWayIsNotWrittenDown ) {
   rig.watch( rig.et1 );
   EXPECT_EQ( 0u, rig.dir->records() );
   rig.enter();
   rig.monIntfs->monIntfStatusIs( Wire::EthIntfId( "et9" ), "fast", rig.now() );
   EXPECT_EQ( 1u, rig.record().intfs() );
   EXPECT_TRUE( rig.record().intf( rig.et1 ) );
}

TEST_F( RecorderTest, firstRatesAreThoseOfTheFirstSample ) {
   rig.enter();
   rig.watch( rig.et1 );
   EXPECT_EQ( 0, rig.entry( rig.et1 ).firstRates().sampleTime );
   rig.sample( rig.et1, 5e6 );
   rig.sample( rig.et1, 1e6 );
   EXPECT_EQ( 5e6, rig.entry( rig.et1 ).firstRates().inBitsRate );
}

TEST_F( RecorderTest, shutdownOfWhatWasQuietLongEnoughIsNatural ) {
   rig.enter();
   rig.watch( rig.et1 );
   rig.sample( rig.et1, 0 );
   rig.sample( rig.et1, 0 );
   rig.cause->intfStatusIs( rig.et1, rig.now() );
   rig.underMaint( rig.et1 );
   EXPECT_FALSE( rig.entry( rig.et1 ).forced() );
   EXPECT_EQ( rig.now(), rig.entry( rig.et1 ).drained() );
   EXPECT_EQ( rig.now(), rig.entry( rig.et1 ).shut() );
}

TEST_F( RecorderTest, shutdownOfWhatWasNotQuietLongEnoughIsForced ) {
   rig.enter();
   rig.watch( rig.et1 );
   rig.sample( rig.et1, 0 );
   rig.cause->intfStatusIs( rig.et1, rig.now() );
   rig.underMaint( rig.et1 );
   EXPECT_TRUE( rig.entry( rig.et1 ).forced() );
   EXPECT_EQ( 0, rig.entry( rig.et1 ).drained() );
}

TEST_F( RecorderTest, shutdownThatAProfileAsksForAfterTheDrainIsNatural ) {
   rig.enter();
   rig.watch( rig.et1 );
   rig.drain( rig.et1 );
   rig.advance( 30 );
   rig.profiles->status( "fast" )->drainWatchLoadIntervalIs( 600 );
   rig.sample( rig.et1, 0 );
   rig.cause->intfStatusIs( rig.et1, rig.now() );
   EXPECT_FALSE( rig.entry( rig.et1 ).forced() );
   EXPECT_EQ( rig.now(), rig.entry( rig.et1 ).shut() );
}

TEST_F( RecorderTest, linkThatIsLetGoOfAndShutAgainIsShutSinceThen ) {
   rig.enter();
   rig.watch( rig.et1 );
   rig.drain( rig.et1 );
   rig.cause->intfStatusIs( rig.et1, rig.now() );
   rig.advance( 5 );
   rig.cause->intfStatusDel( rig.et1 );
   EXPECT_EQ( rig.now(), rig.entry( rig.et1 ).raised() );
   rig.advance( 5 );
   rig.cause->intfStatusIs( rig.et1, rig.now() );
   EXPECT_EQ( rig.now(), rig.entry( rig.et1 ).shut() );
   EXPECT_EQ( 0, rig.entry( rig.et1 ).raised() );
}

TEST_F( RecorderTest, entryThatIsRefreshedIsNotShutAgain ) {
   rig.enter();
   rig.watch( rig.et1 );
   rig.cause->intfStatusIs( rig.et1, rig.now() );
   rig.advance( 5 );
   rig.cause->intfStatusIs( rig.et1, rig.now() );
   EXPECT_EQ( rig.now() - 5, rig.entry( rig.et1 ).shut() );
}

TEST_F( RecorderTest, interfaceThatIsWatchedAgainHasNotDrainedAndKeepsItsReasons ) {
   rig.enter();
   rig.watch( rig.et1 );
   rig.reason( rig.et1, Reason::timing );
   rig.drain( rig.et1 );
   rig.monIntfs->monIntfStatusDel( rig.et1 );
   EXPECT_EQ( rig.now(), rig.entry( rig.et1 ).released() );
   rig.advance( 5 );
   rig.watch( rig.et1 );
   EXPECT_EQ( 0, rig.entry( rig.et1 ).released() );
   EXPECT_EQ( 0, rig.entry( rig.et1 ).drained() );
   EXPECT_EQ( rig.now() - 5, rig.entry( rig.et1 ).began() );
   EXPECT_EQ( ( std::vector< Vel::String >{ "timing" } ), reasons( rig.entry( rig.et1 ) ) );
}

TEST_F( RecorderTest, interfaceThatLeavesTheUnitIsReleasedAlthoughItIsWatchedOn ) {
   rig.enter();
   rig.watch( rig.et1 );
   rig.intfToGroup->intfToGroup( rig.et1 )->groupDel( rig.group );
   rig.advance( 5 );
   rig.sample( rig.et1, 0 );
   EXPECT_EQ( rig.now(), rig.entry( rig.et1 ).released() );
}

TEST_F( RecorderTest, profileThatChangesIsTakenOverWithItsTime ) {
   rig.enter();
   rig.watch( rig.et1 );
   EXPECT_EQ( 0, rig.entry( rig.et1 ).profileChanged() );
   rig.profiles->status( "fast" )->drainWatchThresholdInKbpsIs( 200 );
   rig.advance( 5 );
   rig.sample( rig.et1, 0 );
   EXPECT_EQ( 2e5, rig.entry( rig.et1 ).profile().thresholdBps );
   EXPECT_EQ( rig.now(), rig.entry( rig.et1 ).profileChanged() );
}

TEST_F( RecorderTest, peakIsOfWhatCameAfterTheDrain ) {
   rig.enter();
   rig.watch( rig.et1 );
   rig.sample( rig.et1, 9e6 );
   rig.drain( rig.et1 );
   rig.sample( rig.et1, 30e3 );
   rig.sample( rig.et1, 50e3 );
   rig.sample( rig.et1, 20e3 );
   EXPECT_EQ( 50e3, rig.peaks->peaks( 1 )->peak( rig.et1 )->inBitsRate );
   // What changes with samples is not synced to disk with each of them.
   EXPECT_EQ( 0, rig.entry( rig.et1 ).peakRates().inBitsRate );
   rig.stop();
   rig.start();
   rig.exit();
   rig.normal();
   EXPECT_EQ( 50e3, rig.entry( rig.et1 ).peakRates().inBitsRate );
   EXPECT_EQ( 0u, rig.peaks->peakss() );
}

TEST_F( RecorderTest, spikeIsFromTheFirstSampleAboveToTheFirstBelow ) {
   rig.enter();
   rig.watch( rig.et1 );
   rig.drain( rig.et1 );
   rig.advance( 10 );
   const double began = rig.now();
   rig.sample( rig.et1, 2e6 );
   rig.advance( 10 );
   rig.sample( rig.et1, 7e6 );
   rig.advance( 10 );
   rig.sample( rig.et1, 0 );
   rig.advance( 10 );
   rig.sample( rig.et1, 3e6 );
   EXPECT_EQ( 2u, rig.entry( rig.et1 ).totalSpikes() );
   ASSERT_TRUE( rig.entry( rig.et1 ).spike( began ) );
   EXPECT_EQ( ( HistorySpike{ began + 20, 7e6 } ), *rig.entry( rig.et1 ).spike( began ) );
   EXPECT_EQ( ( HistorySpike{ 0, 3e6 } ), *rig.entry( rig.et1 ).spike( began + 30 ) );
}

TEST_F( RecorderTest, spikeEndsWhenNobodyWatchesTheInterfaceAnyMore ) {
   rig.enter();
   rig.watch( rig.et1 );
   rig.drain( rig.et1 );
   const double began = rig.now();
   rig.sample( rig.et1, 2e6 );
   rig.advance( 5 );
   rig.monIntfs->monIntfStatusDel( rig.et1 );
   EXPECT_EQ( ( HistorySpike{ began + 5, 2e6 } ), *rig.entry( rig.et1 ).spike( began ) );
   rig.advance( 3600 );
   rig.watch( rig.et1 );
   rig.drain( rig.et1 );
   rig.sample( rig.et1, 0 );
   EXPECT_EQ( ( HistorySpike{ began + 5, 2e6 } ), *rig.entry( rig.et1 ).spike( began ) );
   rig.sample( rig.et1, 3e6 );
   EXPECT_EQ( 2u, rig.entry( rig.et1 ).totalSpikes() );
}

TEST_F( RecorderTest, spikeEndsWithTheMaintenance ) {
   rig.enter();
   rig.watch( rig.et1 );
   rig.drain( rig.et1 );
   const double began = rig.now();
   rig.sample( rig.et1, 2e6 );
   rig.advance( 5 );
   rig.exit();
   rig.normal();
   EXPECT_EQ( ( HistorySpike{ began + 5, 2e6 } ), *rig.entry( rig.et1 ).spike( began ) );
}

TEST_F( RecorderTest, spikeGoesOnOverARestart ) {
   rig.enter();
   rig.watch( rig.et1 );
   rig.drain( rig.et1 );
   rig.sample( rig.et1, 2e6 );
   rig.stop();
   rig.start();
   rig.advance( 10 );
   rig.sample( rig.et1, 3e6 );
   EXPECT_EQ( 1u, rig.entry( rig.et1 ).totalSpikes() );
   EXPECT_EQ( 1u, rig.entry( rig.et1 ).spikes() );
}

TEST_F( RecorderTest, ofTooManySpikesTheFirstAndTheLatestAreKept ) {
   rig.enter();
   rig.watch( rig.et1 );
   rig.drain( rig.et1 );
   const double first = rig.now();
   for ( int i = 0; i < 100; ++i ) {
      rig.sample( rig.et1, 2e6 );
      rig.sample( rig.et1, 0 );
      rig.advance( 10 );
   }
   EXPECT_EQ( 100u, rig.entry( rig.et1 ).totalSpikes() );
   EXPECT_EQ( HistoryIntf::mostSpikes, rig.entry( rig.et1 ).spikes() );
   EXPECT_TRUE( rig.entry( rig.et1 ).spike( first ) );
   EXPECT_TRUE( rig.entry( rig.et1 ).spike( first + 990 ) );
}

TEST_F( RecorderTest, reasonsAreWrittenDownWithTheirTimesAndRates ) {
   rig.enter();
   rig.watch( rig.et1 );
   rig.sample( rig.et1, 5e6 );
   rig.reason( rig.et1, Reason::aboveThreshold );
   rig.advance( 10 );
   rig.sample( rig.et1, 50e3 );
   rig.reason( rig.et1, Reason::timing );
   EXPECT_EQ(
      ( std::vector< Vel::String >{ "above-threshold", "timing" } ), reasons( rig.entry( rig.et1 ) ) );
   EXPECT_EQ( ( HistoryReason{ Reason::timing, 50e3 } ), *rig.entry( rig.et1 ).reason( rig.now() ) );
}

TEST_F( RecorderTest, firstReasonIsNotTakenForTheOneThatStandsBeforeItIsWritten ) {
   rig.enter();
   rig.watch( rig.et1 );
   rig.reason( rig.et1, Reason::timing );
   EXPECT_EQ( ( std::vector< Vel::String >{ "timing" } ), reasons( rig.entry( rig.et1 ) ) );
}

TEST_F( RecorderTest, reasonThatIsPublishedAsAWholeIsWrittenDown ) {
   rig.enter();
   rig.watch( rig.et1 );
   const auto insight = Vel::make< IntfInsight >( rig.et1 );
   insight->sinceIs( rig.now() );
   rig.insights->intfPut( rig.et1, insight );
   EXPECT_EQ( ( std::vector< Vel::String >{ "above-threshold" } ), reasons( rig.entry( rig.et1 ) ) );
}

TEST_F( RecorderTest, reasonThatHoldsWhenTheUnitEntersIsOfThatTime ) {
   rig.watch( rig.et1 );
   rig.reason( rig.et1, Reason::shut );
   rig.advance( 100 );
   rig.enter();
   EXPECT_TRUE( rig.entry( rig.et1 ).reason( rig.now() ) );
   EXPECT_EQ( 1u, rig.entry( rig.et1 ).reasons() );
}

TEST_F( RecorderTest, ofTooManyReasonsTheFirstAndTheLatestAreKeptAndTheRestIsCounted ) {
   rig.enter();
   rig.watch( rig.et1 );
   const double first = rig.now();
   for ( int i = 0; i < 100; ++i ) {
      rig.reason( rig.et1, i % 2 ? Reason::timing : Reason::aboveThreshold );
      rig.advance( 1 );
   }
   EXPECT_EQ( HistoryIntf::mostReasons, rig.entry( rig.et1 ).reasons() );
   EXPECT_EQ( 100u - HistoryIntf::mostReasons, rig.entry( rig.et1 ).reasonsLeftOut() );
   EXPECT_TRUE( rig.entry( rig.et1 ).reason( first ) );
   EXPECT_TRUE( rig.entry( rig.et1 ).reason( first + 99 ) );
}

TEST_F( RecorderTest, linkThatIsLetGoOfAfterTheEndOfItsMonitoringIsRaisedThen ) {
   rig.enter();
   rig.watch( rig.et1 );
   rig.drain( rig.et1 );
   rig.cause->intfStatusIs( rig.et1, rig.now() );
   rig.inMaintenance();
   rig.advance( 5 );
   rig.exit();
   rig.monIntfs->monIntfStatusDel( rig.et1 );
   rig.advance( 5 );
   rig.cause->intfStatusDel( rig.et1 );
   EXPECT_EQ( rig.now() - 5, rig.entry( rig.et1 ).released() );
   EXPECT_EQ( rig.now(), rig.entry( rig.et1 ).raised() );
   // That was the end of it.
   rig.advance( 5 );
   rig.cause->intfStatusIs( rig.et1, rig.now() );
   EXPECT_EQ( rig.now() - 15, rig.entry( rig.et1 ).shut() );
}

TEST_F( RecorderTest, linkThatIsLetGoOfAfterARestartIsRaisedThenToo ) {
   rig.enter();
   rig.watch( rig.et1 );
   rig.drain( rig.et1 );
   rig.cause->intfStatusIs( rig.et1, rig.now() );
   rig.monIntfs->monIntfStatusDel( rig.et1 );
   rig.stop();
   rig.start();
   rig.advance( 5 );
   rig.cause->intfStatusDel( rig.et1 );
   EXPECT_EQ( rig.now(), rig.entry( rig.et1 ).raised() );
}

TEST_F( RecorderTest, interfaceInTwoGroupsOfAUnitIsWrittenDownOnce ) {
   const Maintenance::GroupKey other{ Maintenance::GroupType::interfaceGroup, "others" };
   rig.intfToGroup->intfToGroupIs( rig.et1 )->groupIs( other );
   rig.groupToUnit->mappingIs( other, "u1" );
   rig.enter();
   rig.watch( rig.et1 );
   rig.drain( rig.et1 );
   rig.sample( rig.et1, 2e6 );
   EXPECT_EQ( 1u, rig.entry( rig.et1 ).totalSpikes() );
}

TEST_F( RecorderTest, shutdownIsJudgedByTheProfileThatHasLedToIt ) {
   rig.enter();
   rig.profiles->status( "fast" )->drainWatchLoadIntervalIs( 600 );
   rig.watch( rig.et1 );
   for ( int i = 0; i < 4; ++i )
      rig.sample( rig.et1, 0 );
   rig.profiles->status( "fast" )->drainWatchLoadIntervalIs( 20 );
   rig.cause->intfStatusIs( rig.et1, rig.now() );
   rig.underMaint( rig.et1 );
   EXPECT_FALSE( rig.entry( rig.et1 ).forced() );
   EXPECT_EQ( rig.now(), rig.entry( rig.et1 ).drained() );
}

TEST_F( RecorderTest, whoTellsOfAShutdownIsToldWhatIsWrittenDown ) {
   rig.enter();
   rig.watch( rig.et1 );
   rig.drain( rig.et1 );
   rig.watch( rig.et2 );
   rig.advance( 30 );
   // By this profile et1 would not have drained, but it had before.
   rig.profiles->status( "fast" )->drainWatchLoadIntervalIs( 600 );
   for ( const Wire::IntfId & intf : { rig.et1, rig.et2 } ) {
      rig.cause->intfStatusIs( intf, rig.now() );
      EXPECT_EQ( rig.entry( intf ).forced(), rig.recorder->forced( intf ) );
   }
   EXPECT_FALSE( rig.recorder->forced( rig.et1 ) );
   EXPECT_TRUE( rig.recorder->forced( rig.et2 ) );
}

TEST_F( RecorderTest, shutdownOfWhichNothingIsWrittenDownIsJudgedByItsSamples ) {
   rig.watch( rig.et1 );
   rig.sample( rig.et1, 0 );
   rig.cause->intfStatusIs( rig.et1, rig.now() );
   EXPECT_TRUE( rig.recorder->forced( rig.et1 ) );
   rig.sample( rig.et1, 0 );
   EXPECT_FALSE( rig.recorder->forced( rig.et1 ) );
}

TEST_F( RecorderTest, peakSurvivesABootWhenItIsAMinuteOld ) {
   rig.enter();
   rig.watch( rig.et1 );
   rig.drain( rig.et1 );
   rig.sample( rig.et1, 90e3 );
   const double then = rig.now();
   rig.advance( Recorder::peaksPeriod + Recorder::driftPeriod );
   rig.stop();
   rig.peaks->peaksDelAll();
   rig.start();
   rig.sample( rig.et1, 10e3 );
   rig.exit();
   rig.normal();
   EXPECT_EQ( 90e3, rig.entry( rig.et1 ).peakRates().inBitsRate );
   EXPECT_EQ( then, rig.entry( rig.et1 ).peakRates().sampleTime );
}

TEST_F( RecorderTest, peaksAreNotKeptWithEachSample ) {
   rig.enter();
   rig.watch( rig.et1 );
   rig.drain( rig.et1 );
   rig.advance( Recorder::peaksPeriod );
   rig.sample( rig.et1, 10e3 );
   rig.advance( Recorder::driftPeriod );
   EXPECT_EQ( 10e3, rig.entry( rig.et1 ).peakRates().inBitsRate );
   rig.sample( rig.et1, 20e3 );
   rig.advance( Recorder::peaksPeriod / 2 );
   EXPECT_EQ( 10e3, rig.entry( rig.et1 ).peakRates().inBitsRate );
   rig.recorder->stopped();
   EXPECT_EQ( 20e3, rig.entry( rig.et1 ).peakRates().inBitsRate );
}

TEST_F( RecorderTest, peakThatARestartHasLeftIsKeptAndNeverALowerOne ) {
   rig.enter();
   rig.watch( rig.et1 );
   rig.drain( rig.et1 );
   rig.sample( rig.et1, 50e3 );
   rig.stop();
   rig.start();
   rig.sample( rig.et1, 10e3 );
   rig.advance( Recorder::driftPeriod );
   EXPECT_EQ( 50e3, rig.entry( rig.et1 ).peakRates().inBitsRate );
}

TEST_F( RecorderTest, latestTimeIsThatOfWhateverWasWrittenDownLast ) {
   EXPECT_EQ( 0, latestTime( *rig.dir ) );
   const std::vector< std::pair< const char *, std::function< void() > > > steps{
      { "enter", [this] { rig.enter(); } },
      { "stage", [this] { rig.runs->unitRun( "u1" )->stageStartIs( "steer", rig.now() ); } },
      { "end of the stage", [this] { rig.runs->unitRun( "u1" )->stageEndIs( "steer", rig.now() ); } },
      { "interface", [this] { rig.watch( rig.et1 ); } },
      { "sample", [this] { rig.sample( rig.et1, 0 ); } },
      { "reason", [this] { rig.reason( rig.et1, Reason::timing ); } },
      { "drain", [this] { rig.drain( rig.et1 ); } },
      { "maintenance", [this] { rig.inMaintenance(); } },
      { "spike", [this] { rig.sample( rig.et1, 2e6 ); } },
      { "end of the spike", [this] { rig.sample( rig.et1, 0 ); } },
      { "profile",
        [this] {
           rig.profiles->status( "fast" )->drainWatchLoadIntervalIs( 11 );
           rig.sample( rig.et1, 0 );
        } },
      { "shutdown", [this] { rig.cause->intfStatusIs( rig.et1, rig.now() ); } },
      { "end of the shutdown", [this] { rig.cause->intfStatusDel( rig.et1 ); } },
      { "exit", [this] { rig.exit(); } },
      { "end of the monitoring", [this] { rig.monIntfs->monIntfStatusDel( rig.et1 ); } },
      { "normal", [this] { rig.normal(); } } };
   for ( const auto & [name, step] : steps ) {
      rig.clock->advance( 1 );
      step();
      EXPECT_EQ( rig.now(), latestTime( *rig.dir ) ) << name;
   }
}

TEST_F( RecorderTest, latestTimeMayBeThatOfDriftOrOfAPeak ) {
   rig.enter();
   rig.watch( rig.et1 );
   rig.drain( rig.et1 );
   rig.drift = "raised";
   rig.advance( Recorder::driftPeriod );
   EXPECT_EQ( rig.now(), latestTime( *rig.dir ) );
   rig.sample( rig.et1, 20e3 );
   rig.sample( rig.et1, 20e3 );
   rig.advance( 1 );
   rig.sample( rig.et1, 30e3 );
   rig.recorder->stopped();
   EXPECT_EQ( rig.now(), latestTime( *rig.dir ) );
}

TEST_F( RecorderTest, driftIsLookedAtAndItsEndToo ) {
   rig.enter();
   rig.watch( rig.et1 );
   rig.drift = "raised";
   rig.advance( Recorder::driftPeriod );
   EXPECT_EQ( 1u, rig.entry( rig.et1 ).driftChanges() );
   rig.advance( Recorder::driftPeriod );
   EXPECT_EQ( 1u, rig.entry( rig.et1 ).driftChanges() );
   rig.drift = "";
   rig.advance( Recorder::driftPeriod );
   EXPECT_EQ( 2u, rig.entry( rig.et1 ).driftChanges() );
   EXPECT_EQ( "none", rig.entry( rig.et1 ).drift() );
}

TEST_F( RecorderTest, nothingIsLookedAtWhileAllUnitsAreNormal ) {
   rig.maintenance();
   rig.advance( 10 );
   EXPECT_GT( rig.clock->dueTime(), rig.now() + 1e6 );
}

TEST_F( RecorderTest, recordTakesNoMoreInterfacesThanItMayHoldAndCountsEachOtherOnce ) {
   rig.enter();
   for ( Vel::U32 i = 0; i < HistoryRecord::mostIntfs + 2; ++i ) {
      const Wire::IntfId intf = Wire::EthIntfId( Vel::text( "p", i ) );
      rig.member( intf );
      rig.monIntfs->monIntfStatusIs( intf, "fast", rig.now() );
   }
   EXPECT_EQ( HistoryRecord::mostIntfs, rig.record().intfs() );
   EXPECT_EQ( 2u, rig.record().leftOutIntfs() );
   rig.sample( Wire::EthIntfId( Vel::text( "p", HistoryRecord::mostIntfs ) ), 1e6 );
   EXPECT_EQ( 2u, rig.record().leftOutIntfs() );
}

} // namespace

} // namespace Agent
