#pragma once

#include "Platform/Model/Maintenance.h"
#include "Platform/Model/MaintenanceUnit.h"

/// Purpose: the words that the control API, events and metrics have for states. Programs compare them, so each is the
/// same everywhere.
namespace Agent {

/// "normal", "entering", "maintenance", "exiting".
inline const char * unitStateText( Maintenance::Unit::UnitState state ) {
   using Maintenance::Unit::UnitState;
   switch ( state ) {
   case UnitState::enterInProgress:
      return "entering";
   case UnitState::maintenance:
      return "maintenance";
   case UnitState::exitInProgress:
      return "exiting";
   default:
      return "normal";
   }
}

/// "idle", "enter-maint", "under-maint", "stopped".
inline const char * monStateText( Maintenance::MonIntfState state ) {
   switch ( state ) {
   case Maintenance::monIntfStateEnterMaint:
      return "enter-maint";
   case Maintenance::monIntfStateUnderMaint:
      return "under-maint";
   case Maintenance::monIntfStateStopped:
      return "stopped";
   default:
      return "idle";
   }
}

/// "ethernet", "port-channel", "vlan", "sub-interface", "cpu", "other".
inline const char * kindText( Wire::IntfId::Kind kind ) {
   using Kind = Wire::IntfId::Kind;
   switch ( kind ) {
   case Kind::ethernet:
      return "ethernet";
   case Kind::portChannel:
      return "port-channel";
   case Kind::vlan:
      return "vlan";
   case Kind::subIntf:
      return "sub-interface";
   case Kind::cpu:
      return "cpu";
   default:
      return "other";
   }
}

} // namespace Agent
