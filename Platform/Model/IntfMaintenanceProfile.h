#pragma once

#include "Platform/Vel/Declare.h"

/// Purpose: maintenance profiles of interfaces. Written by the agent from the configuration: a profile is
/// changed in place, and deleted only after nothing selects it.
namespace IntfMaintenanceProfile {

class Status final : public Vel::Entity {
   VEL_ENTITY( Status );
   explicit Status( const Vel::String & name ) : name_( name ) {}

   VEL_PARAM( Vel::String, name );
   /// Kilobits (1000 bits) per second; a sample below it in both directions is quiet. Nothing is below 0.
   VEL_ATTR( double, drainWatchThresholdInKbps, onDrainWatchThresholdInKbps );
   /// Seconds that the traffic must stay quiet before the interface counts as drained.
   VEL_ATTR( Vel::U32, drainWatchLoadInterval, onDrainWatchLoadInterval );
   /// Whether the interface is shut down when it has drained.
   VEL_ATTR( bool, shutdown, onShutdown );
   /// Seconds since monitoring began after which the interface is shut down, drained or not; 0 or more, 0 at
   /// once, infinity never. Means nothing without `shutdown`.
   VEL_ATTR( double, shutdownMaxDelay, onShutdownMaxDelay );
};

class StatusDir final : public Vel::Entity {
   VEL_ENTITY( StatusDir );
   VEL_CHILDREN( Vel::String, Status, status, onStatus );
};

} // namespace IntfMaintenanceProfile
