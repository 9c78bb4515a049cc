#pragma once

#include "Platform/Model/Maintenance.h"

/// Purpose: the groups and the selected profile of each interface. Written by the agent from the configuration.
namespace IntfMaintenance {

/// One interface that is in at least one group.
class IntfToGroup final : public Maintenance::MemberToGroup {
   VEL_SUBENTITY( IntfToGroup, Maintenance::MemberToGroup );
   explicit IntfToGroup( const Wire::IntfId & intfId ) : intfId_( intfId ) {}

   VEL_PARAM( Wire::IntfId, intfId );
};

class IntfToGroupDir final : public Vel::Entity {
   VEL_ENTITY( IntfToGroupDir );
   VEL_CHILDREN( Wire::IntfId, IntfToGroup, intfToGroup, onIntfToGroup );
};

} // namespace IntfMaintenance
