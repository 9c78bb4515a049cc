#pragma once

#include "Platform/Model/MaintenanceGroup.h"
#include "Platform/Model/MaintenanceUnit.h"
#include "Platform/Model/Wire.h"
#include "Tests/Reference/EventLog.h"

#include <string_view>

/// Purpose: the names that the numbers of an event log have in entities. Each ends in two digits, the number.
namespace Tests {

inline Vel::String numbered( std::string_view prefix, int number ) {
   return Vel::String( prefix ) + static_cast< char >( '0' + number / 10 ) +
          static_cast< char >( '0' + number % 10 );
}

inline int numberOf( std::string_view name ) {
   return ( name[name.size() - 2] - '0' ) * 10 + ( name[name.size() - 1] - '0' );
}

/// Of a profile; an empty name is none.
inline Reference::Profile profileOf( std::string_view name ) {
   return name.empty() ? Reference::none : numberOf( name );
}

inline Vel::String unitName( Reference::Unit unit ) { return numbered( "unit", unit ); }
inline Vel::String profileName( Reference::Profile profile ) {
   return profile == Reference::none ? Vel::String() : numbered( "profile", profile );
}
inline Maintenance::GroupKey groupKey( Reference::Group group ) {
   return { Maintenance::GroupType::interfaceGroup, numbered( "group", group ) };
}
/// Empty without a generation.
inline Vel::String instanceName( Reference::Unit unit, int generation ) {
   if ( generation == Reference::none )
      return {};
   return Maintenance::Unit::StageMgrInstKey( unitName( unit ), static_cast< Vel::U32 >( generation ) )
      .instanceName();
}

inline Wire::IntfId intfId( const Reference::World::Interface & intf, int number ) {
   switch ( intf.kind ) {
   case Reference::IntfKind::ethernet:
      return Wire::EthIntfId( numbered( "Et", number ) );
   case Reference::IntfKind::portChannel:
      return Wire::PortChannelIntfId( numbered( "Po", number ) );
   case Reference::IntfKind::vlan:
      return Wire::VlanIntfId( numbered( "Vl", number ), static_cast< Vel::U16 >( intf.vlanId ) );
   case Reference::IntfKind::subInterface:
      break;
   }
   return Wire::SubIntfId( numbered( "Sub", number ) );
}

} // namespace Tests
