#pragma once

#include "Platform/Model/Wire.h"
#include "Platform/Vel/Declare.h"

namespace MaintenanceMode {

/// A set of interfaces of one unit: those to be monitored for it, or those found drained.
class UnitIntfInput final : public Vel::Entity {
   VEL_ENTITY( UnitIntfInput );
   explicit UnitIntfInput( const Vel::String & name ) : name_( name ) {}
   VEL_PARAM( Vel::String, name ); ///< the unit's name
   VEL_MAP( Wire::IntfId, bool, intf, onIntf );
};

/// The sets of all units that are entering or under maintenance; a unit without an entry is in neither.
class UnitIntfInputDir final : public Vel::Entity {
   VEL_ENTITY( UnitIntfInputDir );
   VEL_CHILDREN( Vel::String, UnitIntfInput, unitIntfInput, onUnitIntfInput );
};

} // namespace MaintenanceMode
