#include "Tests/Reference/ModelRigTest.h"

namespace Reference {
namespace {

TEST_F( ModelTest, drainsOnTheLastSampleOfTheInterval ) {
   join( u1, et1 );
   enter( u1, 3 );
   EXPECT_EQ( published().entering, std::set< Intf >{ et1 } );
   go( 5 );
   go( 5 );
   EXPECT_EQ( record( et1 ).state, MonState::enterMaint );
   EXPECT_FALSE( complete( u1, 3 ) );
   go( 5 );
   EXPECT_EQ( record( et1 ).state, MonState::underMaint );
   EXPECT_EQ( record( et1 ).stateTime, startTime + 15 );
   EXPECT_EQ( record( et1 ).consecutiveDrained, 3u );
   EXPECT_EQ( published().intfMonitors.at( et1 ).timer, startTime + 25 );
   EXPECT_TRUE( complete( u1, 3 ) );
   EXPECT_TRUE( decided( Decision::Kind::under, et1 ) );
   EXPECT_TRUE( decided( Decision::Kind::drained, et1, u1 ) );
   EXPECT_TRUE( decided( Decision::Kind::completed, u1, 3 ) );
   EXPECT_EQ( decisions().size(), 3u );
}

TEST_F( ModelTest, trafficAtTheThresholdBeginsTheIntervalAnew ) {
   join( u1, et1 );
   enter( u1, 3 );
   go( 10 );
   EXPECT_EQ( record( et1 ).consecutiveDrained, 2u );
   carry( et1, 62500, 5 ); // 100 kbit/s
   EXPECT_EQ( record( et1 ).cur, ( Rates{ 1e5, 1e5, startTime + 15 } ) );
   EXPECT_EQ( record( et1 ).consecutiveDrained, 0u );
   EXPECT_EQ( record( et1 ).abovePre, 1u );
   EXPECT_EQ( published().units.at( u1 ).aggregateIn, 100000u );
   go( 10 );
   EXPECT_FALSE( complete( u1, 3 ) );
   EXPECT_EQ( published().units.at( u1 ).aggregateIn, 0u );
   go( 5 );
   EXPECT_TRUE( complete( u1, 3 ) );
}

TEST_F( ModelTest, eachTickOfALongStepHasItsOwnTime ) {
   join( u1, et1 );
   enter( u1, 3 );
   go( 40.5 );
   EXPECT_EQ( record( et1 ).stateTime, startTime + 15 );
   EXPECT_EQ( record( et1 ).totalSamples, 5u );
   EXPECT_EQ( record( et1 ).lastSampleTime, startTime + 35 );
   EXPECT_EQ( published().intfMonitors.at( et1 ).timer, startTime + 45 );
}

TEST_F( ModelTest, timersFireAtTheFirstTickThatIsNotEarly ) {
   join( u1, et1 );
   go( 0.25 );
   enter( u1, 3 );
   go( 5.5 );
   EXPECT_EQ( record( et1 ).totalSamples, 0u );
   go( 0.25 );
   EXPECT_EQ( record( et1 ).totalSamples, 1u );
   EXPECT_EQ( record( et1 ).lastSampleTime, startTime + 6 );
}

TEST_F( ModelTest, busyInterfaceIsShutWhenTheLongestDelayIsOver ) {
   shutdownIs( slow, true );
   maxDelayIs( slow, 10 );
   join( u1, et1 );
   enter( u1, 3 );
   carry( et1, 1000000, 5 );
   EXPECT_TRUE( published().shut.empty() );
   carry( et1, 1000000, 5 );
   EXPECT_EQ( published().shut, ( std::map< Intf, double >{ { et1, startTime + 10 } } ) );
   EXPECT_EQ( record( et1 ).state, MonState::underMaint );
   EXPECT_FALSE( published().intfMonitors.at( et1 ).timer );
   EXPECT_TRUE( complete( u1, 3 ) );
   EXPECT_EQ( published().units.at( u1 ).aggregateOut, 1600000u );
}

TEST_F( ModelTest, interfaceWithoutDelayIsShutWhenItIsFirstWatched ) {
   shutdownIs( slow, true );
   maxDelayIs( slow, 0 );
   join( u1, et1 );
   enter( u1, 3 );
   EXPECT_EQ( published().shut.count( et1 ), 1u );
   EXPECT_TRUE( published().entering.empty() );
   EXPECT_EQ( published().unitMonitors.at( u1 ).drained, std::set< Intf >{ et1 } );
   EXPECT_TRUE( complete( u1, 3 ) );
}

TEST_F( ModelTest, sharedInterfaceDrainsForBothUnitsAndStaysWatchedForTheSecond ) {
   join( u1, et1 );
   join( u2, et1 );
   enter( u1, 3 );
   go( 15 );
   enter( u2, 7 );
   EXPECT_TRUE( complete( u2, 7 ) );
   EXPECT_EQ( published().intfMonitors.at( et1 ).dependents, ( std::set< Unit >{ u1, u2 } ) );
   inMaintenance( u1, 3 );
   begin( StageClass::exit, u1, 4 );
   EXPECT_TRUE( complete( u1, 4, StageClass::exit ) );
   EXPECT_EQ( record( et1 ).state, MonState::underMaint );
   EXPECT_EQ( published().unitMonitors.count( u1 ), 0u );
   inMaintenance( u2, 7 );
   begin( StageClass::exit, u2, 8 );
   EXPECT_TRUE( published().records.empty() );
   EXPECT_TRUE( published().under.empty() );
   EXPECT_TRUE( published().intfMonitors.empty() );
}

TEST_F( ModelTest, firstUnitToLeaveADownInterfaceStopsItForAll ) {
   shutdownIs( slow, true );
   join( u1, et1 );
   join( u2, et1 );
   enter( u1, 3 );
   enter( u2, 3 );
   go( 15 );
   tellOf( EventKind::linkDown, et1 );
   turn();
   EXPECT_EQ( published().unitMonitors.at( u2 ).monitored.count( et1 ), 1u );
   inMaintenance( u1, 3 );
   begin( StageClass::exit, u1, 4 );
   EXPECT_EQ( record( et1 ).state, MonState::stopped );
   EXPECT_TRUE( published().shut.empty() );
   EXPECT_EQ( published().under, std::set< Intf >{ et1 } );
   EXPECT_FALSE( published().intfMonitors.at( et1 ).timer );
   EXPECT_TRUE( decided( Decision::Kind::stopped, et1 ) );
   EXPECT_TRUE( decided( Decision::Kind::released, et1 ) );
}

TEST_F( ModelTest, restartGoesOnWithTheRecordThatIsThere ) {
   join( u1, et1 );
   join( u2, et2 );
   enter( u1, 3 );
   enter( u2, 3 );
   go( 10 );
   const Record before = record( et1 );
   tell( of( EventKind::crash ) );
   EXPECT_TRUE( published().intfMonitors.empty() );
   EXPECT_EQ( record( et1 ), before );
   tellUnit( EventKind::unitState, u2, 0 );
   tell( of( EventKind::start ) );
   EXPECT_EQ( record( et1 ), before );
   EXPECT_EQ( published().records.count( et2 ), 0u );
   EXPECT_TRUE( decided( Decision::Kind::entering, et1 ) );
   EXPECT_TRUE( decided( Decision::Kind::joined, et1, u1 ) );
   go( 5 );
   EXPECT_TRUE( complete( u1, 3 ) );
}

TEST_F( ModelTest, restartCompletesAnExitThatWasUnderWay ) {
   join( u1, et1 );
   enter( u1, 3 );
   go( 15 );
   inMaintenance( u1, 3 );
   tell( of( EventKind::crash ) );
   begin( StageClass::exit, u1, 4 );
   tell( of( EventKind::start ) );
   EXPECT_TRUE( complete( u1, 4, StageClass::exit ) );
   EXPECT_TRUE( published().records.empty() );
   EXPECT_EQ( published().counters[numNotifyStageCompletion], 0u );
}

TEST_F( ModelTest, restartForgetsCompletionsOfInstancesThatHaveGone ) {
   join( u1, et1 );
   enter( u1, 3 );
   go( 15 );
   tell( of( EventKind::crash ) );
   tellStage( EventKind::completionGone, StageClass::enter, u1, 3 );
   EXPECT_TRUE( complete( u1, 3 ) );
   tellUnit( EventKind::unitState, u1, 0 );
   tell( of( EventKind::start ) );
   EXPECT_FALSE( complete( u1, 3 ) );
}

TEST_F( ModelTest, violationCountsEverySampleAndTheSpikeStays ) {
   join( u1, et1 );
   enter( u1, 3 );
   go( 15 );
   inMaintenance( u1, 3 );
   carry( et1, 1000000, 10 );
   carry( et1, 1000000, 10 );
   EXPECT_EQ( published().units.at( u1 ).violating, std::set< Intf >{ et1 } );
   EXPECT_EQ( published().units.at( u1 ).totalViolations, 2u );
   go( 10 );
   EXPECT_TRUE( published().units.at( u1 ).violating.empty() );
   EXPECT_EQ( published().units.at( u1 ).totalViolations, 2u );
   EXPECT_TRUE( record( et1 ).spike );
   EXPECT_EQ( published().spikes, std::set< Intf >{ et1 } );
   EXPECT_EQ( record( et1 ).abovePost, 2u );
   EXPECT_EQ( record( et1 ).consecutiveDrained, 3u );
}

TEST_F( ModelTest, unloadLetsGoOfEverythingAndCompletesNothing ) {
   shutdownIs( slow, true );
   join( u1, et1 );
   join( u1, et2 );
   enter( u1, 3 );
   go( 10 );
   carry( et2, 1000000, 5 );
   EXPECT_EQ( published().shut.count( et1 ), 1u );
   EXPECT_NE( published().units.at( u1 ).aggregateIn, 0u );
   tell( of( EventKind::unload ) );
   EXPECT_TRUE( published().shut.empty() );
   EXPECT_TRUE( published().records.empty() );
   EXPECT_TRUE( published().entering.empty() );
   EXPECT_TRUE( published().under.empty() );
   EXPECT_TRUE( published().complete.empty() );
   EXPECT_EQ( published().units.at( u1 ).aggregateIn, 0u );
}

TEST_F( ModelTest, secondEnterLeavesTheFirstUnderTheNewGeneration ) {
   join( u1, et1 );
   enter( u1, 3 );
   enter( u1, 4 );
   EXPECT_EQ( counter( numMaintEnter ), 2u );
   EXPECT_EQ( counter( numMaintEnterUnitMonPresent ), 1u );
   EXPECT_EQ( counter( numMaintExitInMaintModeEnter ), 1u );
   EXPECT_EQ( counter( numNoNotifyNoStageInput ), 1u ) << "there is no exit to complete";
   EXPECT_EQ( published().unitMonitors.at( u1 ).generation, 4u );
   EXPECT_TRUE( complete( u1, 4 ) ) << "0 of 0 while the first one was let go of";
   EXPECT_EQ( record( et1 ).state, MonState::enterMaint );
}

TEST_F( ModelTest, exitReportsEachInterfaceThatLeavesAndThenItself ) {
   join( u1, et1 );
   join( u1, et2 );
   enter( u1, 3 );
   go( 15 );
   EXPECT_EQ( counter( numNotifyStageCompletion ), 1u );
   inMaintenance( u1, 3 );
   begin( StageClass::exit, u1, 4 );
   EXPECT_EQ( counter( numNoNotifyNoStageInput ), 2u );
   EXPECT_EQ( counter( numNotifyStageCompletion ), 2u );
   EXPECT_TRUE( complete( u1, 4, StageClass::exit ) );
}

TEST_F( ModelTest, unitThatLosesItsStatusIsNotWatchedAnyMore ) {
   join( u1, et1 );
   enter( u1, 3 );
   tellUnit( EventKind::unitGone, u1 );
   EXPECT_EQ( counter( numUnitStatusDel ), 1u );
   EXPECT_TRUE( published().unitMonitors.empty() );
   EXPECT_TRUE( published().records.empty() );
   EXPECT_FALSE( complete( u1, 3 ) );
}

TEST_F( ModelTest, restartLeavesAStoppedInterfaceStopped ) {
   join( u1, et1 );
   join( u2, et1 );
   enter( u1, 3 );
   enter( u2, 3 );
   tellOf( EventKind::linkDown, et1 );
   begin( StageClass::exit, u1, 4 );
   EXPECT_EQ( record( et1 ).state, MonState::stopped );
   tellOf( EventKind::linkUp, et1 );
   go( 1 );
   tell( of( EventKind::crash ) );
   tell( of( EventKind::start ) );
   EXPECT_EQ( published().intfMonitors.at( et1 ).state, MonState::stopped );
   EXPECT_FALSE( published().intfMonitors.at( et1 ).timer );
   EXPECT_FALSE( decided( Decision::Kind::stopped, et1 ) ) << "it was already";
}

} // namespace
} // namespace Reference
