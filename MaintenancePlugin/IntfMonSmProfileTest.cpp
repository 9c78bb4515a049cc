#include "MaintenancePlugin/IntfMonSm.h"

#include "MaintenancePlugin/IntfMonSmRig.h"
#include "Platform/Vel/Log.h"
#include "Platform/Vel/Trace.h"

#include <gtest/gtest.h>

namespace MaintenanceMode {
namespace {

class IntfMonSmProfile : public testing::Test, protected IntfMonSmRig {
 protected:
   using Status = IntfMaintenanceProfile::Status;
   /// As "p", but another object.
   Vel::Ptr< Status > profile( const Vel::String & name, bool shutdown = false ) {
      auto made = Vel::make< Status >( name );
      made->drainWatchThresholdInKbpsIs( 100 );
      made->drainWatchLoadIntervalIs( 10 );
      made->shutdownIs( shutdown );
      return made;
   }
   Vel::U32 changes() { return rig.counters().numIntfMonProfileChange(); }
   Vel::String dump( const IntfMonSm & intfMon, unsigned indent ) {
      return PluginRig::written( [&]( int fd ) { intfMon.dump( fd, indent ); } );
   }
};

// ---- another profile

TEST_F( IntfMonSmProfile, theProfileThatIsHeldAlreadyDoesNothing ) {
   rig.trafficIs( et1, busy );
   IntfMonSm & intfMon = monitor();
   rig.advance( 3 );
   Vel::TraceCapture traces;
   Vel::LogCapture log;
   intfMon.intfProfileIs( intfMon.intfProfile() );
   EXPECT_TRUE( traces.lines().empty() );
   EXPECT_TRUE( log.lines().empty() );
   EXPECT_EQ( 0u, changes() );
   rig.advance( 2 );
   EXPECT_EQ( 1u, samples() );
}

TEST_F( IntfMonSmProfile, anotherProfileIsCountedLoggedAndPublished ) {
   IntfMonSm & intfMon = monitor();
   const auto q = profile( "q" );
   Vel::TraceCapture traces;
   Vel::LogCapture log;
   intfMon.intfProfileIs( q );
   EXPECT_EQ( q, intfMon.intfProfile() );
   EXPECT_TRUE( traces.has( "IntfMonSm::handleProfile: for intf et1, profile changed to q from p", 4 ) );
   EXPECT_EQ( 1u, changes() );
   ASSERT_EQ( 1u, log.lines().size() );
   EXPECT_EQ( "MMODE_INTF_PROFILE_CHANGE", log.lines()[0].name );
   EXPECT_EQ( "For interface et1, interface profile changed to q (was p)", log.lines()[0].text );
   EXPECT_EQ( "q", intfMon.oldProfileName() );
   EXPECT_EQ( "q", intfMon.monitoredIntf()->profileName() );
   EXPECT_EQ( "q", record().profileName() );
}

/// The object that replaces a deleted one of the same name is a change: its values are.
TEST_F( IntfMonSmProfile, anotherObjectOfTheSameNameIsAnotherProfile ) {
   IntfMonSm & intfMon = monitor();
   const auto again = profile( "p" );
   Vel::LogCapture log;
   intfMon.intfProfileIs( again );
   EXPECT_EQ( again, intfMon.intfProfile() );
   EXPECT_EQ( 1u, changes() );
   ASSERT_EQ( 1u, log.lines().size() );
   EXPECT_EQ( "For interface et1, interface profile changed to p (was p)", log.lines()[0].text );
}

TEST_F( IntfMonSmProfile, noProfileIsHeldButNotActedOn ) {
   rig.profileIs( "p", 100, 10, true, 1e9 );
   IntfMonSm & intfMon = monitor( underMaint );
   ASSERT_TRUE( rig.shut( et1 ) );
   Vel::TraceCapture traces;
   Vel::LogCapture log;
   intfMon.intfProfileIs( nullptr );
   EXPECT_FALSE( intfMon.intfProfile() );
   EXPECT_TRUE( traces.lines().empty() );
   EXPECT_TRUE( log.lines().empty() );
   EXPECT_EQ( 0u, changes() );
   EXPECT_EQ( "p", intfMon.oldProfileName() );
   EXPECT_EQ( "p", intfMon.monitoredIntf()->profileName() );
   EXPECT_TRUE( rig.shut( et1 ) );
   // The one that was held before is not watched any more.
   p->shutdownIs( false );
   EXPECT_TRUE( rig.shut( et1 ) );
}

TEST_F( IntfMonSmProfile, theFirstProfileAfterNoneIsAnotherProfile ) {
   IntfMonSm & intfMon = monitor();
   intfMon.intfProfileIs( nullptr );
   Vel::LogCapture log;
   intfMon.intfProfileIs( profile( "q" ) );
   EXPECT_EQ( 1u, changes() );
   ASSERT_EQ( 1u, log.lines().size() );
   EXPECT_EQ( "For interface et1, interface profile changed to q (was p)", log.lines()[0].text );
}

TEST_F( IntfMonSmProfile, theProfileThatIsHeldIsTheOneThatIsWatched ) {
   IntfMonSm & intfMon = monitor( underMaint );
   const auto q = profile( "q" );
   intfMon.intfProfileIs( q );
   p->shutdownIs( true );
   EXPECT_FALSE( rig.shut( et1 ) );
   q->shutdownIs( true );
   EXPECT_TRUE( rig.shut( et1 ) );
}

TEST_F( IntfMonSmProfile, aProfileIsNotWatchedByAMonitorThatIsSwitchedOff ) {
   IntfMonSm & intfMon = monitor( underMaint );
   intfMon.hasNotificationActiveIs( false );
   intfMon.intfProfileIs( profile( "q" ) );
   const auto r = profile( "r" );
   intfMon.intfProfileIs( r );
   // What it is handed it takes all the same.
   EXPECT_EQ( 2u, changes() );
   r->shutdownIs( true );
   EXPECT_FALSE( rig.shut( et1 ) );
   intfMon.hasNotificationActiveIs( true );
   r->shutdownIs( false );
   r->shutdownIs( true );
   EXPECT_TRUE( rig.shut( et1 ) );
}

TEST_F( IntfMonSmProfile, whileItIsStillToDrainOnlyThePeriodBeginsAnew ) {
   IntfMonSm & intfMon = monitor();
   rig.advance( 5 );
   rig.cause->intfStatusIs( et1, 17 );
   const auto q = profile( "q", true ); // without a delay
   rig.advance( 3 );
   intfMon.intfProfileIs( q );
   EXPECT_EQ( enterMaint, intfMon.state() );
   EXPECT_EQ( 17, *rig.cause->intfStatus( et1 ) );
   EXPECT_EQ( 1u, record().numConsecutiveDrainedSamples() );
   EXPECT_EQ( 1u, record().numSamplesBelowThresholdPreMaint() );
   rig.advance( 4 );
   EXPECT_EQ( 1u, samples() );
   rig.advance( 1 );
   EXPECT_EQ( 2u, samples() );
   EXPECT_EQ( 2u, record().numConsecutiveDrainedSamples() );
   EXPECT_EQ( underMaint, intfMon.state() );
}

TEST_F( IntfMonSmProfile, underMaintenanceAnotherProfileShutsOrBringsBackAtOnce ) {
   IntfMonSm & intfMon = monitor( underMaint );
   rig.advance( 3 );
   intfMon.intfProfileIs( profile( "q", true ) );
   ASSERT_TRUE( rig.shut( et1 ) );
   EXPECT_EQ( rig.now(), *rig.cause->intfStatus( et1 ) );
   rig.advance( 30 );
   EXPECT_EQ( 0u, samples() );
   intfMon.intfProfileIs( profile( "r", true ) );
   EXPECT_EQ( rig.now(), *rig.cause->intfStatus( et1 ) );
   intfMon.intfProfileIs( profile( "s" ) );
   EXPECT_FALSE( rig.shut( et1 ) );
   EXPECT_EQ( underMaint, intfMon.state() );
   rig.advance( 9 );
   EXPECT_EQ( 0u, samples() );
   rig.advance( 1 );
   EXPECT_EQ( 1u, samples() );
   EXPECT_EQ( 3u, changes() );
}

TEST_F( IntfMonSmProfile, underMaintenanceThePeriodBeginsAnew ) {
   IntfMonSm & intfMon = monitor( underMaint );
   rig.advance( 7 );
   intfMon.intfProfileIs( profile( "q" ) );
   rig.advance( 9 );
   EXPECT_EQ( 0u, samples() );
   rig.advance( 1 );
   EXPECT_EQ( 1u, samples() );
}

TEST_F( IntfMonSmProfile, aStoppedMonitorTakesAProfileAndStaysStopped ) {
   IntfMonSm & intfMon = monitor();
   intfMon.stateIs( stopped );
   intfMon.intfProfileIs( profile( "q", true ) );
   EXPECT_EQ( 1u, changes() );
   EXPECT_EQ( stopped, intfMon.state() );
   EXPECT_FALSE( rig.shut( et1 ) );
   rig.advance( 30 );
   EXPECT_EQ( 0u, samples() );
}

// ---- other values of the same profile

TEST_F( IntfMonSmProfile, shutdownSwitchedOffUnderMaintenanceBringsTheInterfaceBackAtOnce ) {
   rig.profileIs( "p", 100, 10, true, 1e9 );
   monitor( underMaint );
   rig.advance( 7 );
   ASSERT_TRUE( rig.shut( et1 ) );
   p->shutdownIs( false );
   EXPECT_FALSE( rig.shut( et1 ) );
   EXPECT_EQ( underMaint, record().state() );
   rig.advance( 9 );
   EXPECT_EQ( 0u, samples() );
   rig.advance( 11 );
   EXPECT_EQ( 2u, samples() );
}

TEST_F( IntfMonSmProfile, shutdownSwitchedOnUnderMaintenanceShutsTheInterfaceAtOnce ) {
   rig.profileIs( "p", 100, 10, false, 1e9 );
   rig.trafficIs( et1, busy );
   monitor( underMaint );
   rig.advance( 10 );
   p->shutdownIs( true );
   EXPECT_TRUE( rig.shut( et1 ) );
   rig.advance( 60 );
   EXPECT_EQ( 1u, samples() );
   EXPECT_EQ( 0u, changes() );
}

TEST_F( IntfMonSmProfile, shutdownSwitchedWhileItIsStillToDrainOnlyRestartsThePeriod ) {
   rig.trafficIs( et1, busy );
   monitor();
   rig.advance( 3 );
   p->shutdownIs( true );
   EXPECT_FALSE( rig.shut( et1 ) );
   rig.advance( 4 );
   EXPECT_EQ( 0u, samples() );
   // The next sample decides by it.
   rig.advance( 1 );
   EXPECT_TRUE( rig.shut( et1 ) );
   EXPECT_EQ( underMaint, record().state() );
}

TEST_F( IntfMonSmProfile, tellsOfShutdownSwitchedUnderItsSignature ) {
   monitor();
   Vel::TraceCapture traces;
   p->shutdownIs( true );
   EXPECT_EQ(
      1u, traces.count(
             "void MaintenanceMode::IntfMonSm::handleProfileUpdate(): called, intf et1, profile p", 5 ) );
}

TEST_F( IntfMonSmProfile, otherValuesApplyFromTheNextSampleOn ) {
   rig.trafficIs( et1, busy );
   monitor();
   rig.advance( 3 );
   Vel::TraceCapture traces;
   p->drainWatchThresholdInKbpsIs( 2000 );
   p->drainWatchLoadIntervalIs( 5 );
   p->shutdownMaxDelayIs( 7 );
   EXPECT_TRUE( traces.lines().empty() );
   rig.advance( 1 );
   EXPECT_EQ( enterMaint, record().state() );
   rig.advance( 1 );
   EXPECT_EQ( 1u, samples() );
   EXPECT_EQ( underMaint, record().state() );
}

TEST_F( IntfMonSmProfile, anotherDelayAppliesFromTheNextDecisionOn ) {
   rig.profileIs( "p", 100, 10, true, 1e9 );
   rig.trafficIs( et1, busy );
   monitor();
   rig.advance( 12 );
   p->shutdownMaxDelayIs( 11 );
   EXPECT_FALSE( rig.shut( et1 ) );
   rig.advance( 2 );
   EXPECT_FALSE( rig.shut( et1 ) );
   rig.advance( 1 );
   EXPECT_TRUE( rig.shut( et1 ) );
}

// ---- dump

TEST_F( IntfMonSmProfile, dumpsItselfAndItsSampler ) {
   IntfMonSm & intfMon = monitor();
   dependentUnit( "u1" );
   dependentUnit( "u2" );
   intfMon.intfProfileIs( profile( "q" ) );
   intfMon.stateIs( underMaint );
   const auto sampler = PluginRig::written( [&]( int fd ) { intfMon.monitoredIntf()->dump( fd, 5 ); } );
   EXPECT_EQ(
      "   Interface: et1\n"
      "     initialState: monIntfStateEnterMaint\n"
      "     state: monIntfStateUnderMaint\n"
      "     num dependentUnits: 2\n"
      "       u1\n"
      "       u2\n"
      "     oldProfileName: q\n"
      "     Profile: q\n" +
         sampler,
      dump( intfMon, 3 ) );
   EXPECT_EQ( 0u, sampler.find( "     Monitored interface: et1\n" ) );
}

TEST_F( IntfMonSmProfile, dumpsAnEmptyNameWithoutAProfile ) {
   IntfMonSm & intfMon = monitor();
   intfMon.intfProfileIs( nullptr );
   EXPECT_EQ(
      0u, dump( intfMon, 0 )
             .find( "Interface: et1\n"
                    "  initialState: monIntfStateEnterMaint\n"
                    "  state: monIntfStateEnterMaint\n"
                    "  num dependentUnits: 0\n"
                    "  oldProfileName: p\n"
                    "  Profile: \n"
                    "  Monitored interface: et1\n" ) );
}

} // namespace
} // namespace MaintenanceMode
