#include "Platform/Model/MaintenanceUnit.h"

#include <gtest/gtest.h>

namespace {

using namespace Maintenance::Unit;

const Wire::EthIntfId et1( "et1" );

TEST( UnitEnumerations, haveFixedOrdinalsAndTexts ) {
   EXPECT_EQ( "none", stringValue( UnitState( 0 ) ) );
   EXPECT_EQ( "normal", stringValue( UnitState( 1 ) ) );
   EXPECT_EQ( "enterInProgress", stringValue( UnitState( 2 ) ) );
   EXPECT_EQ( "maintenance", stringValue( UnitState( 3 ) ) );
   EXPECT_EQ( "UnitState(4)", stringValue( UnitState( 4 ) ) );
   EXPECT_EQ( "exitInProgress", stringValue( UnitState( 5 ) ) );
   EXPECT_EQ( "none", stringValue( MaintenanceOp( 0 ) ) );
   EXPECT_EQ( "enter", stringValue( MaintenanceOp( 1 ) ) );
   EXPECT_EQ( "exit", stringValue( MaintenanceOp( 2 ) ) );
   EXPECT_EQ( "MaintenanceOp(3)", stringValue( MaintenanceOp( 3 ) ) );
}

TEST( TrafficRates, areOutInAndTimeAndBeginWithZero ) {
   EXPECT_EQ( TrafficRates(), ( TrafficRates{ 0, 0, 0 } ) );
   const TrafficRates rates{ 1, 2, 3.5 };
   EXPECT_EQ( 1u, rates.outRate );
   EXPECT_EQ( 2u, rates.inRate );
   EXPECT_EQ( 3.5, rates.time );
   EXPECT_NE( rates, ( TrafficRates{ 1, 2, 4 } ) );
   EXPECT_EQ( "in 2 bps, out 1 bps at 3.5", stringValue( rates ) );
}

TEST( StageMgrInstKey, isTakenFromAnInstanceName ) {
   struct Row {
      const char * name;
      const char * outcome; ///< unit and generation, and the error if there is one
   };
   // The key holds "before" and 7 at the beginning of each row.
   const Row rows[] = {
      { "unit1#12", "unit1 12" },
      { "unit1#12abc", "unit1 12" },
      { "unit1#12#13", "unit1 12" },
      { "unit1#007", "unit1 7" },
      { "u 1#3", "u 1 3" },
      { "unit1#4294967295", "unit1 4294967295" },
      { "unit1#4294967298", "unit1 2" },
      { "unit1#4294967296", "unit1 7 Unexpected instanceName format, genId is invalid" },
      { "unit1#0", "unit1 7 Unexpected instanceName format, genId is invalid" },
      { "unit1#x", "unit1 7 Unexpected instanceName format, genId is invalid" },
      { "unit1# 5", "unit1 7 Unexpected instanceName format, genId is invalid" },
      { "unit1#+5", "unit1 7 Unexpected instanceName format, genId is invalid" },
      { "unit1#-5", "unit1 7 Unexpected instanceName format, genId is invalid" },
      { "a#b#3", "a 7 Unexpected instanceName format, genId is invalid" },
      { "unit1#", "unit1 7 Unexpected instanceName format, couldn't extract genId" },
      { "#5", "before 7 Unexpected instanceName format, couldn't extract unitName" },
      { "#", "before 7 Unexpected instanceName format, couldn't extract unitName" },
      { "unit1", "before 7 Unexpected instanceName format" },
      { "", "before 7" },
   };
   for ( const Row & row : rows ) {
      SCOPED_TRACE( row.name );
      StageMgrInstKey key( "before", 7 );
      Vel::String error;
      try {
         key.instanceNameIs( row.name );
      } catch ( const Vel::InternalException & e ) {
         error = Vel::text( " ", e.what() );
      }
      EXPECT_EQ( row.outcome, Vel::text( key.unitName(), " ", key.genId(), error ) );
   }
}

TEST( StageMgrInstKey, makesTheInstanceNameItIsTakenFrom ) {
   const StageMgrInstKey key( "unit1", 4294967295 );
   EXPECT_EQ( "unit1#4294967295", key.instanceName() );
   EXPECT_EQ( "unit1#4294967295", stringValue( key ) );
   StageMgrInstKey back;
   EXPECT_EQ( 0u, back.genId() );
   back.instanceNameIs( key.instanceName() );
   EXPECT_EQ( key, back );
}

struct UnitObserver {
   struct VelStatusDir final : Vel::ReactorTo< UnitObserver, StatusDir > {
      using ReactorTo::ReactorTo;
      void onStatus( const Vel::String & unitName ) override {
         sm()->log += ( entity()->status( unitName ) ? "+" : "-" ) + unitName + " ";
      }
   };
   struct VelStatus final : Vel::ReactorTo< UnitObserver, Status > {
      using ReactorTo::ReactorTo;
      void onState() override { sm()->log += Vel::text( entity()->state(), " " ); }
      void onIntfsViolatingTrafficThreshold( const Wire::IntfId & intf ) override {
         sm()->log += Vel::text( entity()->intfsViolatingTrafficThreshold( intf ) ? "+" : "-", intf, " " );
      }
   };
   Vel::Watch< VelStatusDir > dir;
   Vel::Watch< VelStatus > status;
   Vel::String log;
};

TEST( UnitStatus, tellsOfUnitsThatComeAndGo ) {
   const auto dir = Vel::make< StatusDir >();
   UnitObserver observer;
   observer.dir.is( dir, &observer ).hasNotificationActiveIs( true );
   dir->statusIs( "u1" );
   dir->statusIs( "u1" );
   dir->statusDel( "u1" );
   dir->statusDel( "u1" );
   EXPECT_EQ( "+u1 -u1 ", observer.log );
}

TEST( UnitStatus, beginsWithoutStateRunOrTraffic ) {
   const auto status = Vel::make< Status >( "u1" );
   EXPECT_EQ( "u1", status->unitName() );
   EXPECT_EQ( UnitState::none, status->state() );
   EXPECT_EQ( 0u, status->genId() );
   EXPECT_EQ( "", status->maintEnterInstanceName() );
   EXPECT_EQ( "", status->maintExitInstanceName() );
   EXPECT_EQ( TrafficRates(), status->aggTrafficRate() );
   EXPECT_EQ( 0u, status->totalIntfTrafficViolations() );
}

TEST( UnitStatus, holdsStatesThatMeanNothing ) {
   const auto status = Vel::make< Status >( "u1" );
   status->stateIs( UnitState( 77 ) );
   EXPECT_EQ( "UnitState(77)", stringValue( status->state() ) );
}

TEST( UnitStatus, tellsOfStateAndViolatingInterfaces ) {
   const auto status = Vel::make< Status >( "u1" );
   UnitObserver observer;
   observer.status.is( status, &observer ).hasNotificationActiveIs( true );
   status->stateIs( UnitState::maintenance );
   status->intfsViolatingTrafficThresholdIs( et1, true );
   status->intfsViolatingTrafficThresholdIs( et1, true );
   status->intfsViolatingTrafficThresholdDel( et1 );
   status->intfsViolatingTrafficThresholdDel( et1 );
   EXPECT_EQ( "maintenance +et1 -et1 ", observer.log );
}

TEST( UnitStatus, tellsOfItsTrafficAndNotOfTheSameAgain ) {
   struct Observer {
      struct VelStatus final : Vel::ReactorTo< Observer, Status > {
         using ReactorTo::ReactorTo;
         void onAggTrafficRate() override { sm()->log += stringValue( entity()->aggTrafficRate() ) + "; "; }
      };
      Vel::Watch< VelStatus > status;
      Vel::String log;
   } observer;
   const auto status = Vel::make< Status >( "u1" );
   observer.status.is( status, &observer ).hasNotificationActiveIs( true );
   status->aggTrafficRateIs( { 1, 2, 3 } );
   status->aggTrafficRateIs( { 1, 2, 3 } );
   status->aggTrafficRateIs( { 1, 2, 4 } );
   EXPECT_EQ( "in 2 bps, out 1 bps at 3; in 2 bps, out 1 bps at 4; ", observer.log );
}

TEST( UnitStatus, removesAUnitThatIsHeldWithoutTouchingIt ) {
   const auto dir = Vel::make< StatusDir >();
   const Vel::Ptr< Status > held( dir->statusIs( "u1" ) );
   held->stateIs( UnitState::maintenance );
   dir->statusDel( "u1" );
   EXPECT_NE( held.get(), dir->statusIs( "u1" ) );
   EXPECT_EQ( UnitState::none, dir->status( "u1" )->state() );
   EXPECT_EQ( UnitState::maintenance, held->state() );
}

TEST( UnitStatus, countsViolationsModulo32Bits ) {
   const auto status = Vel::make< Status >( "u1" );
   status->totalIntfTrafficViolationsInc( ~0u );
   status->totalIntfTrafficViolationsInc( 3 );
   EXPECT_EQ( 2u, status->totalIntfTrafficViolations() );
}

} // namespace
