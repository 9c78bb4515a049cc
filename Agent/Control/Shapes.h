#pragma once

#include "Agent/Control/ControlApi.h"

#include <set>

/// Purpose: what of the model belongs together when it is shown. Used by the answers of the control API only.
namespace Agent {

/// The interfaces of a unit by name, each once.
std::map< std::string, Wire::IntfId >
interfacesOfUnit( const ControlModel & model, const std::string & unit );
/// The units of an interface.
std::set< std::string > unitsOfInterface( const ControlModel & model, const Wire::IntfId & intf );
/// All interfaces that are configured or exist, by name.
std::map< std::string, Wire::IntfId > allInterfaces( const ControlModel & model );
/// The profile selected for an interface with the default resolved, empty if there is none.
std::string profileOf( const ControlModel & model, const Wire::IntfId & intf );

/// "et1Abc" as "et1-abc".
std::string kebabCase( std::string_view camelCase );
/// RFC 3339 in UTC with milliseconds.
std::string rfc3339( double wallSeconds );
/// "normal", "entering", "maintenance", "exiting".
const char * unitStateText( Maintenance::Unit::UnitState state );
/// "idle", "enter-maint", "under-maint", "stopped".
const char * monStateText( Maintenance::MonIntfState state );
const char * kindText( Wire::IntfId::Kind kind );

/// Why an interface does not count as drained, or what it is, in words for an operator.
std::string waitingText( const ControlModel & model, const Wire::IntfId & intf, double now );

} // namespace Agent
