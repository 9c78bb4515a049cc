#include "MaintenancePlugin/IntfMonSm.h"

#include "MaintenancePlugin/IntfMonSmRig.h"

#include <gtest/gtest.h>

namespace MaintenanceMode {
namespace {

class IntfMonSmUnits : public testing::Test, protected IntfMonSmRig {
 protected:
   bool violating( const Vel::String & unitName ) {
      const bool * violating = rig.unit( unitName ).intfsViolatingTrafficThreshold( et1 );
      return violating && *violating;
   }
   Vel::U32 violations( const Vel::String & unitName ) {
      return rig.unit( unitName ).totalIntfTrafficViolations();
   }
   /// A monitor that nobody has given a sampler.
   Vel::Ptr< IntfMonSm > withoutSampler() {
      return Vel::make< IntfMonSm >(
         et1, rig.root->timerWheel(), Vel::Ptr< const Profile >( p ), rig.root.get(),
         Vel::Ptr< MonitoredIntf >(), enterMaint );
   }
};

// ---- drained

TEST_F( IntfMonSmUnits, allUnitsOfAnInterfaceLearnInOneStepThatItHasDrained ) {
   monitor();
   UnitIntfInput & u1 = dependentUnit( "u1" );
   UnitIntfInput & u2 = dependentUnit( "u2" );
   rig.advance( 9 );
   EXPECT_EQ( 0u, u1.intfs() + u2.intfs() );
   rig.advance( 1 );
   for ( const auto * input : { &u1, &u2 } ) {
      ASSERT_TRUE( input->intf( et1 ) );
      EXPECT_TRUE( *input->intf( et1 ) );
      EXPECT_EQ( 1u, input->intfs() );
   }
}

TEST_F( IntfMonSmUnits, aUnitLearnsOnceThatAnInterfaceHasDrained ) {
   monitor();
   UnitIntfInput & drained = dependentUnit( "u1" );
   rig.advance( 10 );
   drained.intfDel( et1 );
   rig.advance( 60 );
   EXPECT_EQ( 0u, drained.intfs() );
}

TEST_F( IntfMonSmUnits, eachUnitThatHasASetOfDrainedInterfacesIsTold ) {
   IntfMonSm & intfMon = monitor();
   dependentUnit( "u1" );
   dependentUnit( "u2" );
   IntfMonSequence sequence( rig );
   for ( const char * unitName : { "u1", "u2" } )
      sequence.watchUnit( unitName );
   intfMon.notifyDependentUnits();
   EXPECT_EQ(
      ( Lines{
         "notifyDependentUnits: intfMonSm( et1) notifying unit u1",
         "u1 drained + et1",
         "notifyDependentUnits: intfMonSm( et1) notifying unit u2",
         "u2 drained + et1",
         "notifyDependentUnits: intfMonSm(et1) notified 2 units",
      } ),
      sequence.lines() );
   EXPECT_TRUE( sequence.traced( "notifying unit", 4 ) );
   EXPECT_TRUE( sequence.traced( "notified 2 units", 4 ) );
}

TEST_F( IntfMonSmUnits, aUnitWithoutASetOfDrainedInterfacesIsPassedOver ) {
   IntfMonSm & intfMon = monitor();
   dependentUnit( "u1" );
   rig.root->unitDrainedIntf()->unitIntfInputDel( "u1" );
   dependentUnit( "u2" );
   IntfMonSequence sequence( rig );
   sequence.watchUnit( "u2" );
   intfMon.notifyDependentUnits();
   EXPECT_EQ(
      ( Lines{
         "notifyDependentUnits: intfMonSm( et1) notifying unit u1",
         "notifyDependentUnits: intfMonSm( et1) notifying unit u2",
         "u2 drained + et1",
         "notifyDependentUnits: intfMonSm(et1) notified 1 units",
      } ),
      sequence.lines() );
   EXPECT_FALSE( rig.root->unitDrainedIntf()->unitIntfInput( "u1" ) );
}

TEST_F( IntfMonSmUnits, anInterfaceThatNoUnitHoldsTellsNobody ) {
   IntfMonSm & intfMon = monitor();
   IntfMonSequence sequence( rig );
   intfMon.notifyDependentUnits();
   EXPECT_EQ( ( Lines{ "notifyDependentUnits: intfMonSm(et1) notified 0 units" } ), sequence.lines() );
}

TEST_F( IntfMonSmUnits, unitsThatDoNotHoldTheInterfaceLearnNothing ) {
   monitor( et2, enterMaint );
   monitor();
   dependentUnit( "u1" );
   UnitIntfInput & other = dependentUnit( "u2", et2 );
   rig.trafficIs( et2, busy );
   rig.advance( 10 );
   EXPECT_EQ( 0u, other.intfs() );
}

TEST_F( IntfMonSmUnits, aUnitMayLetGoOfTheInterfaceWhileItLearnsThatItHasDrained ) {
   struct Observer {
      struct VelDrained final : Vel::ReactorTo< Observer, UnitIntfInput > {
         using ReactorTo::ReactorTo;
         void onIntf( const Wire::IntfId & ) override {
            sm()->sampler->dependentUnitDel( "u1" );
            sm()->sampler->dependentUnitDel( "u2" );
         }
      };
      MonitoredIntf * sampler;
      Vel::Watch< VelDrained > drained;
   } observer;
   IntfMonSm & intfMon = monitor();
   observer.sampler = intfMon.monitoredIntf().get();
   observer.drained.is( &dependentUnit( "u1" ), &observer ).hasNotificationActiveIs( true );
   UnitIntfInput & u2 = dependentUnit( "u2" );
   UnitIntfInput & u3 = dependentUnit( "u3" );
   intfMon.notifyDependentUnits();
   EXPECT_FALSE( u2.intf( et1 ) );
   EXPECT_TRUE( u3.intf( et1 ) );
}

// ---- violations

TEST_F( IntfMonSmUnits, onlyUnitsInMaintenanceListViolations ) {
   using Maintenance::Unit::UnitState;
   for ( const unsigned ordinal : { 0u, 1u, 2u, 3u, 4u, 5u, 6u } ) {
      SCOPED_TRACE( ordinal );
      const auto state = UnitState( ordinal );
      const Vel::String unitName = Vel::text( "u-", ordinal );
      IntfMonSm & intfMon = monitor( underMaint );
      dependentUnit( unitName );
      rig.unit( unitName ).stateIs( state );
      intfMon.updateDependentUnitStatus( false );
      const bool listed = ordinal == 3;
      EXPECT_EQ( listed, violating( unitName ) );
      EXPECT_EQ( listed ? 1u : 0u, violations( unitName ) );
      rig.unit( unitName ).intfsViolatingTrafficThresholdIs( et1, true );
      intfMon.updateDependentUnitStatus( true );
      EXPECT_EQ( !listed, violating( unitName ) );
   }
}

TEST_F( IntfMonSmUnits, aSpikeLeavesUnitsThatAreNotInMaintenanceAlone ) {
   using Maintenance::Unit::UnitState;
   monitor( underMaint );
   dependentUnit( "u1" );
   rig.trafficIs( et1, busy );
   Vel::U32 busySamples = 0;
   for ( const auto state : { UnitState::enterInProgress, UnitState::exitInProgress, UnitState::normal } ) {
      SCOPED_TRACE( Vel::text( state ) );
      rig.unit( "u1" ).stateIs( state );
      record().spikeUnderMaintIs( false );
      rig.advance( 10 );
      EXPECT_EQ( ++busySamples, record().numSamplesAboveThresholdPostMaint() );
      EXPECT_TRUE( record().spikeUnderMaint() );
      EXPECT_EQ( 0u, rig.unit( "u1" ).intfsViolatingTrafficThresholds() );
      EXPECT_EQ( 0u, violations( "u1" ) );
   }
}

/// A violation is listed before it is counted.
TEST_F( IntfMonSmUnits, onlyWhatChangesIsTold ) {
   IntfMonSm & intfMon = monitor( underMaint );
   dependentUnit( "u1" );
   rig.entered( "u1" );
   IntfMonSequence sequence( rig );
   sequence.watchUnit( "u1" );
   intfMon.updateDependentUnitStatus( true );
   EXPECT_EQ( Lines{}, sequence.lines() );
   intfMon.updateDependentUnitStatus( false );
   EXPECT_EQ( ( Lines{ "u1 violating + et1", "u1 violations 1" } ), sequence.lines() );
   sequence.clear();
   intfMon.updateDependentUnitStatus( false );
   EXPECT_EQ( ( Lines{ "u1 violations 2" } ), sequence.lines() );
   sequence.clear();
   intfMon.updateDependentUnitStatus( true );
   EXPECT_EQ( ( Lines{ "u1 violating - et1" } ), sequence.lines() );
   sequence.clear();
   intfMon.updateDependentUnitStatus( true );
   EXPECT_EQ( Lines{}, sequence.lines() );
}

TEST_F( IntfMonSmUnits, eachBusySampleIsAViolationAndAQuietOneEndsThem ) {
   monitor( underMaint );
   dependentUnit( "u1" );
   rig.entered( "u1" );
   rig.trafficIs( et1, busy );
   for ( const Vel::U32 sample : { 1u, 2u, 3u } ) {
      rig.advance( 10 );
      EXPECT_TRUE( violating( "u1" ) );
      EXPECT_EQ( sample, violations( "u1" ) );
   }
   rig.trafficIs( et1, quiet );
   rig.advance( 10 );
   EXPECT_FALSE( violating( "u1" ) );
   EXPECT_EQ( 0u, rig.unit( "u1" ).intfsViolatingTrafficThresholds() );
   EXPECT_EQ( 3u, violations( "u1" ) );
}

TEST_F( IntfMonSmUnits, aViolationIsOneOfEveryUnitThatHoldsTheInterface ) {
   monitor( underMaint );
   for ( const char * unitName : { "u1", "u2" } ) {
      dependentUnit( unitName );
      rig.entered( unitName );
   }
   rig.entered( "u3" );
   rig.trafficIs( et1, busy );
   rig.advance( 10 );
   EXPECT_EQ( 1u, violations( "u1" ) );
   EXPECT_EQ( 1u, violations( "u2" ) );
   EXPECT_EQ( 0u, violations( "u3" ) );
}

TEST_F( IntfMonSmUnits, aUnitWithoutAStatusIsPassedOver ) {
   IntfMonSm & intfMon = monitor( underMaint );
   for ( const char * unitName : { "u1", "u2" } ) {
      dependentUnit( unitName );
      rig.entered( unitName );
   }
   rig.unitStatusDir->statusDel( "u1" );
   intfMon.updateDependentUnitStatus( false );
   EXPECT_FALSE( rig.unitStatusDir->status( "u1" ) );
   EXPECT_TRUE( violating( "u2" ) );
   rig.root->unitStatusDirDel();
   intfMon.updateDependentUnitStatus( true );
   EXPECT_TRUE( violating( "u2" ) );
}

TEST_F( IntfMonSmUnits, thereAreNoViolationsBeforeTheInterfaceIsUnderMaintenance ) {
   rig.trafficIs( et1, busy );
   monitor();
   dependentUnit( "u1" );
   rig.entered( "u1" );
   rig.advance( 30 );
   EXPECT_EQ( 0u, violations( "u1" ) );
}

/// Nothing samples an interface that is shut, so its last violation stays until it is released.
TEST_F( IntfMonSmUnits, aViolationStaysWhileTheInterfaceIsShut ) {
   monitor( underMaint );
   dependentUnit( "u1" );
   rig.entered( "u1" );
   rig.trafficIs( et1, busy );
   rig.advance( 10 );
   p->shutdownIs( true );
   rig.trafficIs( et1, quiet );
   rig.advance( 60 );
   EXPECT_TRUE( violating( "u1" ) );
   EXPECT_EQ( 1u, violations( "u1" ) );
}

TEST_F( IntfMonSmUnits, aMonitorWithoutASamplerIsFatal ) {
   const auto intfMon = withoutSampler();
   EXPECT_EQ( "monitoredIntf()", Vel::failedAssertion( [&] { intfMon->notifyDependentUnits(); } ) );
   EXPECT_EQ(
      "monitoredIntf()", Vel::failedAssertion( [&] { intfMon->updateDependentUnitStatus( true ); } ) );
}

} // namespace
} // namespace MaintenanceMode
