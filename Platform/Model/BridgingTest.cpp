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
