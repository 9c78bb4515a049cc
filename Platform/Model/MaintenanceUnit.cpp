#include "Platform/Model/MaintenanceUnit.h"

namespace Maintenance::Unit {

namespace {
const Vel::TypeRegistration< StatusDir > statusDirType;
}

Vel::String stringValue( UnitState state ) {
   switch ( state ) {
   case UnitState::none:
      return "none";
   case UnitState::normal:
      return "normal";
   case UnitState::enterInProgress:
      return "enterInProgress";
   case UnitState::maintenance:
      return "maintenance";
   case UnitState::exitInProgress:
      return "exitInProgress";
   }
   return Vel::text( "UnitState(", Vel::U32( state ), ")" );
}

Vel::String stringValue( MaintenanceOp op ) {
   switch ( op ) {
   case MaintenanceOp::none:
      return "none";
   case MaintenanceOp::enter:
      return "enter";
   case MaintenanceOp::exit:
      return "exit";
   }
   return Vel::text( "MaintenanceOp(", Vel::U32( op ), ")" );
}

Vel::String stringValue( const TrafficRates & rates ) {
   return Vel::text( "in ", rates.inRate, " bps, out ", rates.outRate, " bps at ", rates.time );
}

void StageMgrInstKey::instanceNameIs( const Vel::String & instanceName ) {
   static constexpr std::string_view unexpected = "Unexpected instanceName format";
   if ( instanceName.empty() )
      return;
   const std::size_t mark = instanceName.find( '#' );
   if ( mark == Vel::String::npos )
      throw Vel::InternalException( Vel::text( unexpected ) );
   if ( mark == 0 )
      throw Vel::InternalException( Vel::text( unexpected, ", couldn't extract unitName" ) );
   unitName_ = instanceName.substr( 0, mark );
   if ( mark + 1 == instanceName.size() )
      throw Vel::InternalException( Vel::text( unexpected, ", couldn't extract genId" ) );
   Vel::U32 genId = 0;
   for ( std::size_t i = mark + 1; i < instanceName.size(); ++i ) {
      const char digit = instanceName[i];
      if ( digit < '0' || digit > '9' )
         break;
      genId = genId * 10 + static_cast< Vel::U32 >( digit - '0' );
   }
   if ( genId == 0 )
      throw Vel::InternalException( Vel::text( unexpected, ", genId is invalid" ) );
   genId_ = genId;
}

Vel::String StageMgrInstKey::instanceName() const { return Vel::text( unitName_, "#", genId_ ); }

Vel::String stringValue( const StageMgrInstKey & key ) { return key.instanceName(); }

} // namespace Maintenance::Unit
