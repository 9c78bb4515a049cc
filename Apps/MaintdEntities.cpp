#include "Apps/MaintdEntities.h"

#include "Agent/History/RecordTimes.h"
#include "Platform/Ledger/Cell.h"

#include <algorithm>

namespace Apps {

namespace {

const Vel::TypeRegistration< Agent::UnitRunDir > unitRunDirType;
const Vel::TypeRegistration< Agent::UnitTimesDir > unitTimesDirType;
const Vel::TypeRegistration< Agent::LinkJournal > linkJournalType;
const Vel::TypeRegistration< Agent::UnitCommandsDir > unitCommandsDirType;
const Vel::TypeRegistration< Agent::InsightDir > insightDirType;
const Vel::TypeRegistration< Agent::EventLog > eventLogType;
const Vel::TypeRegistration< Agent::OperationDir > operationDirType;
const Vel::TypeRegistration< Agent::HistoryDir > historyDirType;
const Vel::TypeRegistration< Agent::HistoryPeaksDir > historyPeaksDirType;
const Vel::TypeRegistration< Agent::EventsTold > eventsToldType;
const Vel::TypeRegistration< Agent::HookDir > hookDirType;

/// Makes or keeps the entity of a path.
template < class T >
void take( Ledger::EntityManager & entityManager, Vel::Ptr< T > & entity, const Vel::String & path ) {
   entity = Vel::ptrCast< T >( entityManager.entityIs( path, Vel::typeName< T >() ) );
}

Vel::String stagePath( const char * before, const char * stageClass, const char * after ) {
   return Cell::path( Vel::text( before, "/", stageClass, "/", after ), 0 );
}

const char * const causePath = "interface/errdisable/cause/maintenance-shutdown";
const char * const unitStatusPath = "maintenance/unit/status";
const char * const recordsPath = "maintenance/interface/status/drainwatch";
const char * const unitRunPath = "agent/unit/run";
const char * const unitTimesPath = "agent/unit/times";
const char * const unitCommandsPath = "agent/unit/commands";
const char * const journalPath = "agent/link/journal";
const char * const insightPath = "agent/interface/insight";
const char * const eventLogPath = "agent/event/log";
const char * const operationPath = "agent/operation";
const char * const historyPath = "agent/history";
const char * const historyPeaksPath = "agent/historyPeaks";
const char * const eventsToldPath = "agent/event/told";
const char * const hookPath = "agent/hook";

} // namespace

Maintd::Entities::Entities( Ledger::EntityManager & em ) {
   // Paths that are only there to be mounted.
   for ( const auto & [path, type] : std::initializer_list< std::pair< const char *, const char * > >{
            { "interface/ethIntfCounter/writerStatus", "Vel::Dir" },
            { "interface/config/eth/lag", "Interface::EthLagIntfConfigDir" },
            { "lag/input/config", "Vel::Dir" },
            { "maintenance/group/config", "Maintenance::MaintenanceGroup::ConfigDir" } } )
      em.entityIs( path, Vel::String( type ) );
   take( em, allIntfStatusDir, "interface/status/all" );
   take( em, lagConfig, "lag/config" );
   take( em, vlanStatusDir, "bridging/vlan/status" );
   take( em, unitStatusDir, unitStatusPath );
   take( em, intfGroupStatusDir, "group/status/interface" );
   take( em, intfProfileStatusDir, "maintenance/profile/status/interface" );
   take( em, intfToGroupDir, "maintenance/mapping/member/interface" );
   take( em, groupToUnitDir, "maintenance/mapping/group" );
   take( em, cause, causePath );
   take( em, monIntfStatusDir, recordsPath );
   take( em, defaultIntfProfile, "maintenance/profile/config/default/interface" );
   take( em, unitRunDir, unitRunPath );
   take( em, unitTimesDir, unitTimesPath );
   take( em, unitCommandsDir, unitCommandsPath );
   take( em, journal, journalPath );
   take( em, insightDir, insightPath );
   take( em, eventLog, eventLogPath );
   take( em, operationDir, operationPath );
   take( em, historyDir, historyPath );
   take( em, historyPeaksDir, historyPeaksPath );
   take( em, eventsTold, eventsToldPath );
   take( em, hookDir, hookPath );
   for ( const auto & [stageClass, name] :
         { std::pair( &enter, "maintEnter" ), std::pair( &exit, "maintExit" ) } ) {
      take( em, stageClass->progressDir, stagePath( "stage", name, "progress" ) );
      take( em, stageClass->completionStatus, stagePath( "stage", name, "completionstatus" ) );
      take( em, stageClass->agentConfig, stagePath( "stageInput", name, "MaintenanceMode" ) );
      take( em, stageClass->agentStatus, stagePath( "stageAgentStatus", name, "MaintenanceMode" ) );
      take( em, stageClass->commandStatus, stagePath( "stageAgentStatus", name, "Commands" ) );
      stageClass->agentConfig->stageIs( "drainwatch" );
   }
}

double Maintd::Entities::latestTime() const {
   double latest = std::max( Agent::latestTime( *historyDir ), unitTimesDir->clockTime() );
   for ( const auto & [intf, record] : monIntfStatusDir->monIntfStatusRange() )
      latest = std::max( { latest, record->startTime(), record->stateTime(), record->lastSampleTime() } );
   for ( const auto & [intf, time] : cause->intfStatusRange() )
      latest = std::max( latest, time );
   for ( const auto & [unit, run] : unitRunDir->unitRunRange() ) {
      latest = std::max( { latest, run->since(), run->askedTime() } );
      for ( const auto & [stage, time] : run->stageStartRange() )
         latest = std::max( latest, time );
      for ( const auto & [stage, time] : run->stageEndRange() )
         latest = std::max( latest, time );
   }
   for ( const auto & [unit, commands] : unitCommandsDir->unitRange() )
      for ( const auto & [stage, command] : commands->stageRange() )
         latest = std::max( latest, command->since() );
   return latest;
}

namespace {
bool isUnderWay( const Maintenance::Unit::Status * status ) {
   using Maintenance::Unit::UnitState;
   return status && status->state() != UnitState::none && status->state() != UnitState::normal;
}
} // namespace

bool Maintd::Entities::isAnyUnderWay() const {
   for ( const auto & [unit, status] : unitStatusDir->statusRange() )
      if ( Apps::isUnderWay( status.get() ) )
         return true;
   return false;
}

bool Maintd::Entities::isUnderWay( const Wire::IntfId & intf ) const {
   const auto * const groups = intfToGroupDir->intfToGroup( intf );
   if ( !groups )
      return false;
   for ( const auto & [group, none] : groups->groupRange() )
      if ( const auto * const units = groupToUnitDir->groupToUnit( group ) )
         for ( const auto & [unit, none2] : units->unitNameRange() )
            if ( Apps::isUnderWay( unitStatusDir->status( unit ) ) )
               return true;
   return false;
}

namespace {

using Kept = Ledger::Persistence::Kept;

template < class T >
Kept inState( const Vel::String & path ) {
   return { path, Ledger::Persistence::Folder::state, Vel::typeName< T >() };
}
template < class T >
Kept inRuntime( const Vel::String & path ) {
   return { path, Ledger::Persistence::Folder::runtime, Vel::typeName< T >() };
}

} // namespace

std::vector< Ledger::Persistence::Kept > Maintd::Entities::kept() {
   std::vector< Kept > result{
      inState< Maintenance::Unit::StatusDir >( unitStatusPath ),
      inState< Errdisable::CauseStatus >( causePath ),
      inState< Agent::UnitRunDir >( unitRunPath ),
      inState< Agent::UnitCommandsDir >( unitCommandsPath ),
      inState< Agent::LinkJournal >( journalPath ),
      inState< Agent::EventLog >( eventLogPath ),
      inRuntime< Maintenance::MonIntfStatusDir >( recordsPath ),
      inRuntime< Agent::InsightDir >( insightPath ),
      inState< Agent::HistoryDir >( historyPath ),
      inRuntime< Agent::HistoryPeaksDir >( historyPeaksPath ),
      inState< Agent::EventsTold >( eventsToldPath ),
      inState< Agent::HookDir >( hookPath ),
      inState< Agent::OperationDir >( operationPath ),
      inState< Agent::UnitTimesDir >( unitTimesPath ) };
   for ( const char * stageClass : { "maintEnter", "maintExit" } ) {
      result.push_back( inState< Stage::ProgressDir >( stagePath( "stage", stageClass, "progress" ) ) );
      result.push_back(
         inState< Stage::CompletionStatusDir >( stagePath( "stage", stageClass, "completionstatus" ) ) );
      for ( const char * by : { "MaintenanceMode", "Commands" } )
         result.push_back( inState< Stage::AgentStatus >( stagePath( "stageAgentStatus", stageClass, by ) ) );
   }
   return result;
}

std::vector< Ledger::LeftOut > Maintd::Entities::leftOut() {
   // Summed up anew at each start, and it changes with every sample.
   return { { "Maintenance::Unit::Status", "aggTrafficRate" } };
}

} // namespace Apps
