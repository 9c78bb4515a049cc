#pragma once

#include "Agent/Model/EventLog.h"
#include "Agent/Model/EventsTold.h"
#include "Agent/Model/History.h"
#include "Agent/Model/HookRecord.h"
#include "Agent/Model/Insight.h"
#include "Agent/Model/LinkJournal.h"
#include "Agent/Model/Operation.h"
#include "Agent/Model/StageCommand.h"
#include "Agent/Model/UnitRun.h"
#include "Agent/Model/UnitTimes.h"
#include "Apps/Maintd.h"
#include "Platform/Counters/VelPool.h"
#include "Platform/Model/Stage.h"

namespace Apps {

/// Every entity that agent and plug-in share, under the path at which the plug-in mounts it. What a store has brought
/// back is kept.
struct Maintd::Entities {
   explicit Entities( Ledger::EntityManager & entityManager );
   /// What survives a restart, and in which folder.
   static std::vector< Ledger::Persistence::Kept > kept();
   static std::vector< Ledger::LeftOut > leftOut();
   /// The latest time that an earlier run has kept: a clock that is moved by hand goes on from there. Seconds, 0: none.
   double latestTime() const;
   /// Whether any unit is not normal: nothing is monitored for one that is.
   bool isAnyUnderWay() const;
   /// Whether a unit that an interface belongs to is not normal.
   bool isUnderWay( const Wire::IntfId & intf ) const;

   /// One stage class.
   struct StageClass {
      Vel::Ptr< Stage::ProgressDir > progressDir;
      Vel::Ptr< Stage::CompletionStatusDir > completionStatus;
      Vel::Ptr< Stage::AgentConfig > agentConfig;
      Vel::Ptr< Stage::AgentStatus > agentStatus;
      Vel::Ptr< Stage::AgentStatus > commandStatus; ///< of the stages that commands carry out
   };
   Vel::Ptr< Interface::AllIntfStatusDir > allIntfStatusDir;
   Vel::Ptr< Lag::Config > lagConfig;
   Vel::Ptr< Bridging::VlanStatusDir > vlanStatusDir;
   Vel::Ptr< Maintenance::Unit::StatusDir > unitStatusDir;
   Vel::Ptr< IntfGroup::StatusDir > intfGroupStatusDir;
   Vel::Ptr< IntfMaintenanceProfile::StatusDir > intfProfileStatusDir;
   Vel::Ptr< IntfMaintenance::IntfToGroupDir > intfToGroupDir;
   Vel::Ptr< Maintenance::GroupToUnitDir > groupToUnitDir;
   Vel::Ptr< Errdisable::CauseStatus > cause;
   Vel::Ptr< Maintenance::MonIntfStatusDir > monIntfStatusDir;
   Vel::Ptr< Maintenance::Profile::DefaultProfile > defaultIntfProfile;
   StageClass enter, exit;
   Vel::Ptr< Agent::UnitRunDir > unitRunDir;
   Vel::Ptr< Agent::UnitTimesDir > unitTimesDir;
   Vel::Ptr< Agent::UnitCommandsDir > unitCommandsDir;
   Vel::Ptr< Agent::LinkJournal > journal;
   Vel::Ptr< Agent::InsightDir > insightDir;
   Vel::Ptr< Agent::EventLog > eventLog;
   Vel::Ptr< Agent::OperationDir > operationDir;
   Vel::Ptr< Agent::HistoryDir > historyDir;
   Vel::Ptr< Agent::HistoryPeaksDir > historyPeaksDir;
   Vel::Ptr< Agent::EventsTold > eventsTold;
   Vel::Ptr< Agent::HookDir > hookDir;
   Vel::Ptr< VelPool::EntityManager > pool = Vel::make< VelPool::EntityManager >();
};

} // namespace Apps
