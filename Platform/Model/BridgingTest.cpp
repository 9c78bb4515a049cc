#include "Platform/Model/Bridging.h"

#include <gtest/gtest.h>

namespace {

using Bridging::VlanId;

Vel::String made( Vel::U32 value ) {
   try {
      return stringValue( VlanId( value ) );
   } catch ( const Vel::RangeError & e ) {
      return e.what();
   }
}

TEST( VlanId, is1To4094 ) {
   const Vel::String refused = "VlanId::value < 1 or > 4094 not allowed";
   EXPECT_EQ( refused, made( 0 ) );
   EXPECT_EQ( "1", made( 1 ) );
   EXPECT_EQ( "4094", made( 4094 ) );
   EXPECT_EQ( refused, made( 4095 ) );
   EXPECT_EQ( refused, made( 65536 + 10 ) );
   EXPECT_EQ( refused, made( ~0u ) );
}

TEST( VlanId, isOrdered ) {
   EXPECT_LT( VlanId( 9 ), VlanId( 10 ) );
   EXPECT_EQ( VlanId( 9 ), VlanId( 9 ) );
}

struct VlanObserver {
   struct VelVlan final : Vel::ReactorTo< VlanObserver, Bridging::VlanStatus > {
      using ReactorTo::ReactorTo;
      void onVlanPortStatus( const Wire::IntfId & intf ) override {
         sm()->log += Vel::text( entity()->vlanPortStatus( intf ) ? "+" : "-", intf, " " );
      }
   };
   struct VelDir final : Vel::ReactorTo< VlanObserver, Bridging::VlanStatusDir > {
      using ReactorTo::ReactorTo;
      void onVlanStatus( const VlanId & id ) override {
         sm()->log += Vel::text( entity()->vlanStatus( id ) ? "+" : "-", id, " " );
      }
   };
   Vel::Watch< VelVlan > vlan;
   Vel::Watch< VelDir > dir;
   Vel::String log;
};

TEST( VlanStatusDir, tellsOfVlansAndPortsThatComeAndGo ) {
   const auto dir = Vel::make< Bridging::VlanStatusDir >();
   VlanObserver observer;
   observer.dir.is( dir, &observer ).hasNotificationActiveIs( true );
   const Vel::Ptr< Bridging::VlanStatus > vlan( dir->vlanStatusIs( VlanId( 10 ) ) );
   observer.vlan.is( vlan, &observer ).hasNotificationActiveIs( true );
   const Wire::EthIntfId et2( "et2" );
   vlan->vlanPortStatusIs( et2 );
   vlan->vlanPortStatusIs( et2 );
   vlan->vlanPortStatusDel( et2 );
   vlan->vlanPortStatusDel( et2 );
   dir->vlanStatusDel( VlanId( 10 ) );
   EXPECT_EQ( "+10 +et2 -et2 -10 ", observer.log );
}

TEST( VlanId, isVlan1AtFirst ) { EXPECT_EQ( 1, VlanId().value() ); }

TEST( VlanStatusDir, holdsVlansAndTheirPorts ) {
   const auto dir = Vel::make< Bridging::VlanStatusDir >();
   Bridging::VlanStatus * const vlan = dir->vlanStatusIs( VlanId( 10 ) );
   vlan->vlanPortStatusIs( Wire::EthIntfId( "et2" ) );
   vlan->vlanPortStatusIs( Wire::PortChannelIntfId( "pc1" ) );
   vlan->vlanPortStatusIs( Wire::CpuIntfId( "br0" ) );
   EXPECT_EQ( vlan, dir->vlanStatus( VlanId( 10 ) ) );
   EXPECT_EQ( nullptr, dir->vlanStatus( VlanId( 11 ) ) );
   EXPECT_EQ( VlanId( 10 ), vlan->vlanId() );
   Vel::String ports;
   for ( const auto & [intf, port] : vlan->vlanPortStatusRange() )
      ports += Vel::text( intf, "=", port->intfId(), " " );
   EXPECT_EQ( "et2=et2 pc1=pc1 br0=br0 ", ports );
}

} // namespace
