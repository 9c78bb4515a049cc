#pragma once

#include "Platform/Model/Wire.h"
#include "Platform/Vel/Declare.h"

/// Purpose: maintenance units: where each one stands and what its traffic is.
namespace Maintenance::Unit {

/// Ordinals are part of the stored form. Values that are not listed may be stored and mean nothing.
enum class UnitState : Vel::U32 {
   none = 0, ///< before the first state is written
   normal = 1,
   enterInProgress = 2,
   maintenance = 3,
   exitInProgress = 5
};
/// "none", "normal", "enterInProgress", "maintenance", "exitInProgress"; any other value as "UnitState(9)".
Vel::String stringValue( UnitState state );

/// Ordinals are part of the stored form.
enum class MaintenanceOp : Vel::U32 { none = 0, enter = 1, exit = 2 };
/// "none", "enter", "exit"; any other value as "MaintenanceOp(9)".
Vel::String stringValue( MaintenanceOp op );

/// Traffic of a unit: the sum over its monitored interfaces.
struct TrafficRates {
   Vel::U64 outRate = 0; ///< bits per second, transmitted
   Vel::U64 inRate = 0;  ///< bits per second, received
   double time = 0;      ///< seconds of the agent's clock, when it was last summed up; 0: never

   friend bool operator==( const TrafficRates &, const TrafficRates & ) = default;
};
/// For example "in 2000 bps, out 1500 bps at 1700000005".
Vel::String stringValue( const TrafficRates & rates );

/// One run of a stage class for a unit: the unit's name and the generation of the run. Its text, the instance
/// name, is for example "unit1#12".
class StageMgrInstKey {
 public:
   StageMgrInstKey() = default;
   StageMgrInstKey( const Vel::String & unitName, Vel::U32 genId ) : unitName_( unitName ), genId_( genId ) {}

   const Vel::String & unitName() const { return unitName_; }
   /// 0: none yet. A run that exists never has 0.
   Vel::U32 genId() const { return genId_; }

   /// Takes the key from an instance name. An empty name changes nothing. The unit is what stands before the
   /// first "#"; the generation is the decimal digits that follow it, modulo 2^32, and what stands behind the
   /// digits is ignored. Throws InternalException, with a text that begins "Unexpected instanceName format",
   /// if there is no "#", no unit, nothing after the "#", or the generation is 0. In the last two cases the
   /// unit has been taken already.
   void instanceNameIs( const Vel::String & instanceName );
   Vel::String instanceName() const;

   friend bool operator==( const StageMgrInstKey &, const StageMgrInstKey & ) = default;

 private:
   Vel::String unitName_;
   Vel::U32 genId_ = 0;
};
/// The instance name.
Vel::String stringValue( const StageMgrInstKey & key );

/// One unit. The agent writes the first four; whoever watches the unit's traffic writes the rest.
class Status final : public Vel::Entity {
   VEL_ENTITY( Status );
   explicit Status( const Vel::String & unitName ) : unitName_( unitName ) {}

   VEL_PARAM( Vel::String, unitName );
   VEL_ATTR( UnitState, state, onState );
   /// Generation of the latest run of a stage class; 0: none yet.
   VEL_ATTR( Vel::U32, genId, onGenId );
   /// Instance of the run that enters maintenance; empty if there is none.
   VEL_ATTR( Vel::String, maintEnterInstanceName, onMaintEnterInstanceName );
   /// Instance of the run that leaves maintenance; empty if there is none.
   VEL_ATTR( Vel::String, maintExitInstanceName, onMaintExitInstanceName );
   VEL_ATTR( TrafficRates, aggTrafficRate, onAggTrafficRate );
   /// Interfaces under maintenance whose latest sample was above the threshold; the value is true.
   VEL_MAP( Wire::IntfId, bool, intfsViolatingTrafficThreshold, onIntfsViolatingTrafficThreshold );
   /// Samples above the threshold under maintenance, over all interfaces of the unit.
   VEL_COUNTER( totalIntfTrafficViolations, onTotalIntfTrafficViolations );
};

class StatusDir final : public Vel::Entity {
   VEL_ENTITY( StatusDir );
   VEL_CHILDREN( Vel::String, Status, status, onStatus );
};

} // namespace Maintenance::Unit
