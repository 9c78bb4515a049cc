#include "MaintenancePlugin/PluginRig.h"
#include "Platform/FastLog/Capture.h"
#include "Platform/Vel/Trace.h"

#include <gtest/gtest.h>

namespace MaintenanceMode {
namespace {

struct DrainWatchSmRegistry : testing::Test {
   PluginRig rig;
   const Wire::IntfId et1 = PluginRig::port( "et1" );
   const Wire::IntfId et2 = PluginRig::port( "et2" );

   DrainWatchSmRegistry() {
      for ( const auto & intf : { et1, et2 } ) {
         rig.linkIs( intf );
         rig.trafficIs( intf, { 1e9, 1e9 } );
      }
      rig.profileIs( "p", 100, 10, false, 0 );
      rig.defaultProfileIs( "p" );
   }
   UnitIntfInput & input( const Vel::String & unitName ) {
      return *rig.root->unitMonIntfInput()->unitIntfInput( unitName );
   }
};

// ---- starting and stopping in units

TEST_F( DrainWatchSmRegistry, startsAnInterfaceInEveryMonitoredUnitThatContainsIt ) {
   rig.unitIs( "u1", {} );
   rig.unitIs( "u2", {} );
   rig.unitIs( "u3", {} );
   rig.start();
   rig.enter( "u1" );
   rig.enter( "u2" );
   rig.enter( "u3" );
   rig.groupMemberIs( "u1", et1 );
   rig.groupMemberIs( "u2", et1 );
   Vel::TraceCapture traces;
   rig.root->startIntfMonInUnits( et1 );
   EXPECT_TRUE( input( "u1" ).intf( et1 ) );
   EXPECT_TRUE( input( "u2" ).intf( et1 ) );
   EXPECT_FALSE( input( "u3" ).intf( et1 ) );
   ASSERT_TRUE( rig.root->intfMon( et1 ) );
   EXPECT_EQ( 2u, rig.root->intfMon( et1 )->monitoredIntf()->dependentUnits() );
   EXPECT_TRUE( traces.has( "startIntfMonInUnits: intf et1", 4 ) );
   EXPECT_TRUE( traces.has( "Starting intf mon for intf et1 in unit u1, group u1", 4 ) );
   EXPECT_TRUE( traces.has( "Starting intf mon for intf et1 in unit u2, group u2", 4 ) );
}

TEST_F( DrainWatchSmRegistry, theFastLogTellsWhereAnInterfaceWasStarted ) {
   rig.unitIs( "u1", {} );
   rig.start();
   rig.enter( "u1" );
   rig.groupMemberIs( "u1", et1 );
   FastLog::Capture log;
   rig.root->startIntfMonInUnits( et1 );
   EXPECT_TRUE( log.has( "starting intf mon for intf et1 in unit u1, group u1" ) );
}

TEST_F( DrainWatchSmRegistry, addsAnInterfaceOfTwoGroupsOfOneUnitOnce ) {
   rig.unitIs( "u1", {} );
   rig.mappingIs( "g2", "u1" );
   rig.start();
   rig.enter( "u1" );
   rig.groupMemberIs( "u1", et1 );
   rig.groupMemberIs( "g2", et1 );
   Vel::TraceCapture traces;
   rig.root->startIntfMonInUnits( et1 );
   EXPECT_EQ( 2u, traces.count( "Starting intf mon for intf et1 in unit u1, group " ) );
   EXPECT_EQ( 1u, traces.count( "starting intf mon for intf et1" ) );
   EXPECT_EQ( 1u, input( "u1" ).intfs() );
   EXPECT_EQ( 1u, rig.root->intfMon( et1 )->monitoredIntf()->dependentUnits() );
}

TEST_F( DrainWatchSmRegistry, startsNothingWhereNoUnitIsInMaintenanceAndCountsAllTheSame ) {
   rig.unitIs( "u1", { et1 } );
   rig.start();
   const auto before = rig.counters().numStartIntfMonInUnits();
   rig.root->startIntfMonInUnits( et1 );
   rig.root->startIntfMonInUnits( PluginRig::port( "unknown" ) );
   EXPECT_EQ( 2u, rig.counters().numStartIntfMonInUnits() - before );
   EXPECT_EQ( 0u, rig.root->unitMonIntfInput()->unitIntfInputs() );
   EXPECT_EQ( 0u, rig.root->intfMons() );
}

TEST_F( DrainWatchSmRegistry, passesOverAGroupThatIsMappedToNothing ) {
   rig.groupMemberIs( "unmapped", et1 );
   rig.unitIs( "u1", {} );
   rig.start();
   rig.enter( "u1" );
   rig.groupMemberIs( "u1", et1 );
   rig.root->startIntfMonInUnits( et1 );
   EXPECT_TRUE( input( "u1" ).intf( et1 ) );
}

TEST_F( DrainWatchSmRegistry, stopsAnInterfaceInEveryUnitWhateverItsGroups ) {
   rig.unitIs( "u1", { et1, et2 } );
   rig.unitIs( "u2", {} );
   rig.start();
   rig.enter( "u1" );
   rig.enter( "u2" );
   input( "u2" ).intfIs( et1, true );
   Vel::TraceCapture traces;
   rig.root->stopIntfMonInUnits( et1 );
   EXPECT_TRUE( traces.has( "stopIntfMonInUnits: intf et1", 4 ) );
   EXPECT_FALSE( input( "u1" ).intf( et1 ) );
   EXPECT_FALSE( input( "u2" ).intf( et1 ) );
   EXPECT_TRUE( input( "u1" ).intf( et2 ) );
   EXPECT_FALSE( rig.root->intfMon( et1 ) );
   EXPECT_TRUE( rig.root->intfMon( et2 ) );
   EXPECT_EQ( 1u, rig.counters().numStopIntfMonInUnits() );
}

TEST_F( DrainWatchSmRegistry, stoppingWhatIsInNoUnitOnlyCounts ) {
   rig.unitIs( "u1", { et1 } );
   rig.start();
   rig.enter( "u1" );
   const auto before = rig.counters().numStopIntfMonInUnits();
   rig.root->stopIntfMonInUnits( et2 );
   EXPECT_EQ( 1u, rig.counters().numStopIntfMonInUnits() - before );
   EXPECT_EQ( 1u, input( "u1" ).intfs() );
}

// ---- violating interfaces

TEST_F( DrainWatchSmRegistry, takesAnInterfaceOutOfTheViolatingSetOfEveryUnit ) {
   rig.start();
   for ( const char * unitName : { "u1", "u2", "u3" } )
      rig.unit( unitName ).intfsViolatingTrafficThresholdIs( et2, true );
   rig.unit( "u1" ).intfsViolatingTrafficThresholdIs( et1, true );
   rig.unit( "u3" ).intfsViolatingTrafficThresholdIs( et1, true );
   rig.root->delFromViolatingIntfsCollection( et1 );
   for ( const char * unitName : { "u1", "u2", "u3" } ) {
      SCOPED_TRACE( unitName );
      EXPECT_EQ( 1u, rig.unit( unitName ).intfsViolatingTrafficThresholds() );
      EXPECT_TRUE( rig.unit( unitName ).intfsViolatingTrafficThreshold( et2 ) );
   }
}

TEST_F( DrainWatchSmRegistry, withoutUnitsThereIsNoViolatingSet ) {
   rig.start();
   rig.root->delFromViolatingIntfsCollection( et1 );
   rig.root->unitStatusDirDel();
   rig.root->delFromViolatingIntfsCollection( et1 );
   EXPECT_EQ( 0u, rig.unitStatusDir->statuss() );
}

// ---- the registry

struct DrainWatchSmIntfMon : DrainWatchSmRegistry {
   using State = Maintenance::MonIntfState;
   static constexpr State enterMaint = Maintenance::monIntfStateEnterMaint;
   Vel::Ptr< MonitoredIntf > sampler;

   DrainWatchSmIntfMon() {
      rig.start();
      sampler = rig.root->monIntfDir()->monitoredIntfIs( et1, rig.root.get(), "p" );
   }
   ~DrainWatchSmIntfMon() override { sampler = nullptr; }
   Vel::Ptr< IntfMonSm >
   is( const Vel::Ptr< Cog::TimerWheel > & wheel, const Vel::String & profile, DrainWatchSm * root,
       const Vel::Ptr< MonitoredIntf > & monitoredIntf, State state ) {
      return rig.root->intfMonIs(
         et1, wheel, rig.intfProfileStatusDir->status( profile ), root, monitoredIntf, state );
   }
   Vel::Ptr< IntfMonSm > is() {
      return is( rig.root->timerWheel(), "p", rig.root.get(), sampler, enterMaint );
   }
   template < class Call >
   static Vel::String refusal( Call call ) {
      try {
         call();
      } catch ( const Vel::NameInUse & error ) {
         return error.what();
      }
      return "not refused";
   }
   static Vel::String text( const char * attribute, const char * newValue, const char * current ) {
      return Vel::text(
         "Reinstantiating the pointer interface where constructor parameter attribute ", attribute,
         " has a different value of ", newValue, " than the current value of ", current, " not allowed" );
   }
};

TEST_F( DrainWatchSmIntfMon, isMadeStoredAndSwitchedOn ) {
   const auto intfMonSm = is();
   EXPECT_EQ( intfMonSm.get(), rig.root->intfMon( et1 ) );
   EXPECT_TRUE( intfMonSm->initialized() );
   rig.advance( 6 );
   EXPECT_EQ( 1u, rig.record( et1 )->totalSamples() );
}

TEST_F( DrainWatchSmIntfMon, isTheOneThatIsThereWithTheProfileReplaced ) {
   rig.profileIs( "q", 100, 10, false, 0 );
   const auto first = is();
   const auto second = is( rig.root->timerWheel(), "q", rig.root.get(), sampler, enterMaint );
   EXPECT_EQ( first, second );
   EXPECT_EQ( 1u, rig.root->intfMons() );
   EXPECT_EQ( "q", first->intfProfile()->name() );
   EXPECT_EQ( 1u, rig.counters().numIntfMonProfileChange() );
}

TEST_F( DrainWatchSmIntfMon, isRefusedIfItWasBuiltFromOtherValues ) {
   rig.profileIs( "q", 100, 10, false, 0 );
   const auto intfMonSm = is();
   const auto & wheel = rig.root->timerWheel();
   DrainWatchSm * const root = rig.root.get();
   const auto otherWheel = Vel::make< Cog::TimerWheel >( rig.clock, 1000, 1800, true, 1024 );
   const Vel::Ptr< MonitoredIntf > otherSampler( rig.root->monIntfDir()->monitoredIntfIs( et2, root, "p" ) );
   EXPECT_EQ( text( "_clock", "Cog::TimerWheel", "Cog::TimerWheel" ), refusal( [&] {
                 is( otherWheel, "q", root, sampler, enterMaint );
              } ) );
   EXPECT_EQ( text( "_rootSm", "null", "MaintenanceMode::DrainWatchSm" ), refusal( [&] {
                 is( wheel, "q", nullptr, sampler, enterMaint );
              } ) );
   EXPECT_EQ(
      text( "_monitoredIntf", "MaintenanceMode::MonitoredIntf", "MaintenanceMode::MonitoredIntf" ),
      refusal( [&] { is( wheel, "q", root, otherSampler, enterMaint ); } ) );
   EXPECT_EQ( text( "_initialState", "monIntfStateUnderMaint", "monIntfStateEnterMaint" ), refusal( [&] {
                 is( wheel, "q", root, sampler, Maintenance::monIntfStateUnderMaint );
              } ) );
   EXPECT_EQ( "p", intfMonSm->intfProfile()->name() );
}

TEST_F( DrainWatchSmIntfMon, needsAWheel ) {
   try {
      is( nullptr, "p", rig.root.get(), sampler, enterMaint );
      FAIL();
   } catch ( const Vel::RangeError & error ) {
      EXPECT_STREQ( "null ValidPtr", error.what() );
   }
   EXPECT_EQ( 0u, rig.root->intfMons() );
}

TEST_F( DrainWatchSmIntfMon, goesWithItsTimer ) {
   is();
   const Vel::Ptr< Maintenance::MonIntfStatus > record( rig.record( et1 ) );
   rig.root->intfMonDel( et1 );
   EXPECT_FALSE( rig.root->intfMon( et1 ) );
   rig.advance( 20 );
   EXPECT_EQ( 0u, record->totalSamples() );
   rig.root->intfMonDel( et1 );
}

TEST_F( DrainWatchSmIntfMon, allGoAtOnce ) {
   is();
   rig.root->intfMonIs(
      et2, rig.root->timerWheel(), rig.intfProfileStatusDir->status( "p" ), rig.root.get(),
      rig.root->monIntfDir()->monitoredIntfIs( et2, rig.root.get(), "p" ), enterMaint );
   EXPECT_EQ( 2u, rig.root->intfMons() );
   rig.root->intfMonDelAll();
   EXPECT_EQ( 0u, rig.root->intfMons() );
}

} // namespace
} // namespace MaintenanceMode
