#pragma once

#include "Platform/Vel/Declare.h"

namespace MaintenanceMode {

/// Event counters that make the monitor's silent decisions visible. Only ever incremented, by 1; the setters
/// exist for generic access. They live as long as the root.
class DrainWatchSmDebugCounters final : public Vel::Entity {
   VEL_ENTITY( DrainWatchSmDebugCounters );
   VEL_COUNTER( numMaintEnter, onNumMaintEnter );
   VEL_COUNTER( numMaintExit, onNumMaintExit );
   VEL_COUNTER( numMaintExitNoUnitMon, onNumMaintExitNoUnitMon );
   VEL_COUNTER( numMaintEnterUnitMonPresent, onNumMaintEnterUnitMonPresent );
   VEL_COUNTER( numMaintExitInMaintModeEnter, onNumMaintExitInMaintModeEnter );
   VEL_COUNTER( numNotifyStageCompletion, onNumNotifyStageCompletion );
   VEL_COUNTER( numUnitStatusDel, onNumUnitStatusDel );
   VEL_COUNTER( numNoVlanStatus, onNumNoVlanStatus );
   VEL_COUNTER( numNoIntfCounter, onNumNoIntfCounter );
   VEL_COUNTER( numNoNotifyNoStageInput, onNumNoNotifyNoStageInput );
   VEL_COUNTER( numNoNotifyActiveStageMismatch, onNumNoNotifyActiveStageMismatch );
   VEL_COUNTER(
      numNoNotifyAlreadyNotified, onNumNoNotifyAlreadyNotified ); ///< repeats are not filtered: stays 0
   VEL_COUNTER( numNoNotifyNoUnitStatus, onNumNoNotifyNoUnitStatus );
   VEL_COUNTER( numIntfMonInitialStatePassive, onNumIntfMonInitialStatePassive );
   VEL_COUNTER( numStartIntfMonInUnits, onNumStartIntfMonInUnits );
   VEL_COUNTER( numStopIntfMonInUnits, onNumStopIntfMonInUnits );
   VEL_COUNTER( numIntfMonProfileChange, onNumIntfMonProfileChange );
   VEL_COUNTER( numIntfMonProfileDelete, onNumIntfMonProfileDelete );
   VEL_COUNTER( numIntfMonPendingProfileResolved, onNumIntfMonPendingProfileResolved );
   VEL_COUNTER( numIntfMonDefProfileUpdate, onNumIntfMonDefProfileUpdate );
   VEL_COUNTER( numIntfMonIntfNotSupported, onNumIntfMonIntfNotSupported );
   VEL_COUNTER( numIntfMonNoIntfStatus, onNumIntfMonNoIntfStatus );
   VEL_COUNTER( numIntfMonIntfOperNotUp, onNumIntfMonIntfOperNotUp );
};

} // namespace MaintenanceMode
