#pragma once

#include "Platform/Model/MaintenanceGroup.h"
#include "Platform/Model/Wire.h"

/// Purpose: the interfaces of each interface group. Written by the agent from the configuration.
namespace IntfGroup {

/// One group. An interface has its entry in IntfMaintenance::IntfToGroupDir, with a selected profile, before
/// it appears here.
class Status final : public Vel::Entity {
   VEL_ENTITY( Status );
   explicit Status( const Maintenance::GroupKey & groupKey ) : groupKey_( groupKey ) {}

   VEL_PARAM( Maintenance::GroupKey, groupKey );
   VEL_SET( Wire::IntfId, intf, onIntf );
};

class StatusDir final : public Vel::Entity {
   VEL_ENTITY( StatusDir );
   VEL_CHILDREN( Maintenance::GroupKey, Status, status, onStatus );
};

} // namespace IntfGroup
