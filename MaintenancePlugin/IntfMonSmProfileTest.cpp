#include "MaintenancePlugin/IntfMonSm.h"

#include "MaintenancePlugin/IntfMonSmRig.h"
#include "Platform/Vel/Log.h"

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
   IntfMonSequence sequence( rig );
   const CounterChanges counted( rig.counters() );
   Vel::LogCapture log;
   intfMon.intfProfileIs( intfMon.intfProfile() );
   EXPECT_EQ( Lines{}, sequence.lines() );
   EXPECT_EQ( Lines{}, sequence.logged() );
   EXPECT_TRUE( log.lines().empty() );
   EXPECT_EQ( "", counted.text() );
   EXPECT_EQ( 2, due() );
}

TEST_F( IntfMonSmProfile, whatAnotherProfileDoesIsNotHeardBeforeTheMonitorIsSwitchedOn ) {
   auto * sampler = rig.root->monIntfDir()->monitoredIntfIs( et1, rig.root.get(), p->name() );
   const auto intfMon = IntfMonSm::IntfMonSmIs(
      et1, rig.root->timerWheel(), Vel::Ptr< const Profile >( p ), rig.root.get(), sampler, underMaint );
   const auto q = profile( "q" );
   intfMon->intfProfileIs( q );
   q->shutdownIs( true );
   EXPECT_FALSE( rig.shut( et1 ) );
   intfMon->hasNotificationActiveIs( true );
   q->shutdownIs( false );
   q->shutdownIs( true );
   EXPECT_TRUE( rig.shut( et1 ) );
}

TEST_F( IntfMonSmProfile, anotherProfileIsCountedLoggedAndPublished ) {
   IntfMonSm & intfMon = monitor();
   const auto q = profile( "q" );
   Vel::LogCapture log;
   intfMon.intfProfileIs( q );
   EXPECT_EQ( q, intfMon.intfProfile() );
   EXPECT_EQ( 1u, changes() );
   ASSERT_EQ( 1u, log.lines().size() );
   EXPECT_EQ( "MMODE_INTF_PROFILE_CHANGE", log.lines()[0].name );
   EXPECT_EQ( Vel::LogSeverity::notice, log.lines()[0].severity );
   EXPECT_EQ( "For interface et1, interface profile changed to q (was p)", log.lines()[0].text );
   EXPECT_EQ( "q", intfMon.oldProfileName() );
   EXPECT_EQ( "q", intfMon.monitoredIntf()->profileName() );
   EXPECT_EQ( "q", record().profileName() );
}

TEST_F( IntfMonSmProfile, anotherProfileIsHeldThenToldThenApplied ) {
   IntfMonSm & intfMon = monitor( underMaint );
   IntfMonSequence sequence( rig );
   sequence.watchMonitor( et1 );
   sequence.watchSampler( et1 );
   intfMon.intfProfileIs( profile( "q", true ) );
   EXPECT_EQ(
      ( Lines{
         "intfProfile q",
         "IntfMonSm::handleProfile: for intf et1, profile changed to q from p",
         "numIntfMonProfileChange",
         "oldProfileName q",
         "profileName q",
         "doMaintenanceShutdown: intfId et1 shutting down because traffic has drained",
         "shut et1",
         "setMonitoringTimer: intf et1, state monIntfStateUnderMaint",
      } ),
      sequence.lines() );
   EXPECT_EQ( ( Lines{ "maint-down for intf et1" } ), sequence.logged() );
   EXPECT_TRUE( sequence.traced( "IntfMonSm::handleProfile", 4 ) );
   EXPECT_EQ( never, due() );
}

TEST_F( IntfMonSmProfile, aChangeIsCountedThenLoggedThenRemembered ) {
   struct Observer {
      struct VelCounters final : Vel::ReactorTo< Observer, DrainWatchSmDebugCounters > {
         using ReactorTo::ReactorTo;
         void onNumIntfMonProfileChange() override { sm()->loggedAtCount = sm()->log.lines().size(); }
      };
      struct VelMonitor final : Vel::ReactorTo< Observer, IntfMonSm > {
         using ReactorTo::ReactorTo;
         void onOldProfileName() override { sm()->loggedAtName = sm()->log.lines().size(); }
      };
      Vel::LogCapture log;
      std::size_t loggedAtCount = 9, loggedAtName = 9;
      Vel::Watch< VelCounters > counters;
      Vel::Watch< VelMonitor > monitor;
   } observer;
   IntfMonSm & intfMon = monitor();
   observer.counters.is( rig.root->counters(), &observer ).hasNotificationActiveIs( true );
   observer.monitor.is( Vel::Ptr( &intfMon ), &observer ).hasNotificationActiveIs( true );
   intfMon.intfProfileIs( profile( "q" ) );
   EXPECT_EQ( 0u, observer.loggedAtCount );
   EXPECT_EQ( 1u, observer.loggedAtName );
}

/// The object that replaces a deleted one of the same name is a change: its values are.
TEST_F( IntfMonSmProfile, anotherObjectOfTheSameNameIsAnotherProfile ) {
   IntfMonSm & intfMon = monitor();
   const auto again = profile( "p" );
   IntfMonSequence sequence( rig );
   Vel::LogCapture log;
   intfMon.intfProfileIs( again );
   EXPECT_EQ( again, intfMon.intfProfile() );
   EXPECT_EQ(
      ( Lines{
         "IntfMonSm::handleProfile: for intf et1, profile changed to p from p",
         "numIntfMonProfileChange",
         "setMonitoringTimer: intf et1, state monIntfStateEnterMaint",
      } ),
      sequence.lines() );
   ASSERT_EQ( 1u, log.lines().size() );
   EXPECT_EQ( "For interface et1, interface profile changed to p (was p)", log.lines()[0].text );
}

TEST_F( IntfMonSmProfile, noProfileIsHeldButNotActedOn ) {
   rig.profileIs( "p", 100, 10, true, 1e9 );
   IntfMonSm & intfMon = monitor( underMaint );
   ASSERT_TRUE( rig.shut( et1 ) );
   IntfMonSequence sequence( rig );
   Vel::LogCapture log;
   intfMon.intfProfileIs( nullptr );
   EXPECT_FALSE( intfMon.intfProfile() );
   EXPECT_EQ( Lines{}, sequence.lines() );
   EXPECT_TRUE( log.lines().empty() );
   EXPECT_EQ( 0u, changes() );
   EXPECT_EQ( "p", intfMon.oldProfileName() );
   EXPECT_EQ( "p", intfMon.monitoredIntf()->profileName() );
   EXPECT_TRUE( rig.shut( et1 ) );
   // The one that was held before is not watched any more.
   p->shutdownIs( false );
   EXPECT_EQ( Lines{}, sequence.lines() );
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
   ASSERT_EQ( never, due() );
   IntfMonSequence sequence( rig );
   p->shutdownIs( false );
   EXPECT_EQ(
      ( Lines{
         "void MaintenanceMode::IntfMonSm::handleProfileUpdate(): called, intf et1, profile p",
         "doMaintenanceShutdown: intf et1 bringing it out of maint-down state",
         "brought back et1",
         "setMonitoringTimer: intf et1, state monIntfStateUnderMaint",
      } ),
      sequence.lines() );
   EXPECT_EQ( ( Lines{ "bring intf et1 out maint-down state" } ), sequence.logged() );
   EXPECT_EQ( underMaint, record().state() );
   EXPECT_EQ( Times( { 10, 20 } ), sampleTimes( 20 ) );
}

TEST_F( IntfMonSmProfile, shutdownSwitchedOnUnderMaintenanceShutsTheInterfaceAtOnce ) {
   rig.profileIs( "p", 100, 10, false, 1e9 );
   rig.trafficIs( et1, busy );
   monitor( underMaint );
   rig.advance( 10 );
   IntfMonSequence sequence( rig );
   const CounterChanges counted( rig.counters() );
   p->shutdownIs( true );
   EXPECT_EQ(
      ( Lines{
         "void MaintenanceMode::IntfMonSm::handleProfileUpdate(): called, intf et1, profile p",
         "doMaintenanceShutdown: intfId et1 shutting down because traffic has drained",
         "shut et1",
         "setMonitoringTimer: intf et1, state monIntfStateUnderMaint",
      } ),
      sequence.lines() );
   EXPECT_EQ( rig.now(), *rig.cause->intfStatus( et1 ) );
   EXPECT_EQ( never, due() );
   EXPECT_EQ( "", counted.text() );
   EXPECT_EQ( Times(), sampleTimes( 60 ) );
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
   rig.advance( 3 );
   IntfMonSequence sequence( rig );
   p->shutdownIs( true );
   EXPECT_EQ(
      ( Lines{
         "void MaintenanceMode::IntfMonSm::handleProfileUpdate(): called, intf et1, profile p",
         "setMonitoringTimer: intf et1, state monIntfStateEnterMaint",
      } ),
      sequence.lines() );
   EXPECT_TRUE( sequence.traced( "handleProfileUpdate", 5 ) );
   EXPECT_EQ( 5, due() );
}

TEST_F( IntfMonSmProfile, otherValuesApplyFromTheNextSampleOn ) {
   rig.trafficIs( et1, busy );
   monitor();
   rig.advance( 8 );
   EXPECT_EQ( 1u, record().numSamplesAboveThresholdPreMaint() );
   IntfMonSequence sequence( rig );
   p->drainWatchThresholdInKbpsIs( 2000 );
   p->drainWatchLoadIntervalIs( 5 );
   p->shutdownMaxDelayIs( 7 );
   EXPECT_EQ( Lines{}, sequence.lines() );
   EXPECT_EQ( 2, due() );
   rig.advance( 1 );
   EXPECT_EQ( enterMaint, record().state() );
   rig.advance( 1 );
   EXPECT_EQ( 2u, samples() );
   EXPECT_EQ( 1u, record().numSamplesAboveThresholdPreMaint() );
   EXPECT_EQ( 1u, record().numSamplesBelowThresholdPreMaint() );
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
   for ( const unsigned indent : { 0u, 2u } ) {
      const Vel::String s( indent, ' ' );
      const auto sampler =
         PluginRig::written( [&]( int fd ) { intfMon.monitoredIntf()->dump( fd, indent + 2 ); } );
      EXPECT_EQ( 0u, sampler.find( s + "  Monitored interface: et1\n" ) );
      EXPECT_EQ(
         s + "Interface: et1\n" +                            //
            s + "  initialState: monIntfStateEnterMaint\n" + //
            s + "  state: monIntfStateUnderMaint\n" +        //
            s + "  num dependentUnits: 2\n" +                //
            s + "    u1\n" +                                 //
            s + "    u2\n" +                                 //
            s + "  oldProfileName: q\n" +                    //
            s + "  Profile: q\n" + sampler,
         dump( intfMon, indent ) );
   }
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
