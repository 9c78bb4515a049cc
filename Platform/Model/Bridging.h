#pragma once

#include "Platform/Model/Wire.h"
#include "Platform/Vel/Declare.h"

/// Purpose: VLANs of the switch and their member ports. Written by the agent from what the switch says.
namespace Bridging {

class VlanId {
 public:
   static constexpr Vel::U32 minimum = 1;
   static constexpr Vel::U32 maximum = 4094;

   /// VLAN 1.
   constexpr VlanId() = default;
   /// Throws RangeError "VlanId::value < 1 or > 4094 not allowed".
   VlanId( Vel::U32 value );

   constexpr Vel::U16 value() const { return value_; }
   friend constexpr auto operator<=>( VlanId, VlanId ) = default;

 private:
   Vel::U16 value_ = 1;
};
/// Decimal.
Vel::String stringValue( VlanId vlanId );

} // namespace Bridging

template <>
struct std::hash< Bridging::VlanId > {
   std::size_t operator()( Bridging::VlanId id ) const { return id.value(); }
};

namespace Bridging {

/// One member port of one VLAN.
class VlanPortStatus final : public Vel::Entity {
   VEL_ENTITY( VlanPortStatus );
   explicit VlanPortStatus( const Wire::IntfId & intfId ) : intfId_( intfId ) {}

   VEL_PARAM( Wire::IntfId, intfId );
};

/// One VLAN that exists. Its members are CPU ports, Ethernet ports and port-channels; a port that is itself
/// in a port-channel is not listed beside it.
class VlanStatus final : public Vel::Entity {
   VEL_ENTITY( VlanStatus );
   explicit VlanStatus( VlanId vlanId ) : vlanId_( vlanId ) {}

   VEL_PARAM( VlanId, vlanId );
   VEL_CHILDREN( Wire::IntfId, VlanPortStatus, vlanPortStatus, onVlanPortStatus );
};

class VlanStatusDir final : public Vel::Entity {
   VEL_ENTITY( VlanStatusDir );
   VEL_CHILDREN( VlanId, VlanStatus, vlanStatus, onVlanStatus );
};

} // namespace Bridging
