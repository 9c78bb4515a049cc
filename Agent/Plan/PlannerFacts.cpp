#include "Agent/Model/StateText.h"
#include "Agent/Plan/Planner.h"
#include "Agent/Plan/ProfileWhy.h"
#include "Config/Membership.h"

#include <algorithm>
#include <cmath>

/// What is gathered of a unit and of its interfaces.
namespace Agent {

using Kind = Wire::IntfId::Kind;
using Maintenance::GroupType;

namespace {

bool isMonitoredKind( Kind kind ) {
   return kind == Kind::ethernet || kind == Kind::portChannel || kind == Kind::vlan;
}

} // namespace

bool Planner::isNormal( const std::string & unit ) const {
   const auto * status = model_.unitStatusDir->status( unit );
   return !status || status->state() == Maintenance::Unit::UnitState::normal;
}

std::map< std::string, Wire::IntfId > Planner::interfacesOf( const std::string & unit ) const {
   std::map< std::string, Wire::IntfId > result;
   if ( const auto * groups = model_.groupToUnitDir->unitToGroup( unit ) )
      for ( const auto & [group, none] : groups->groupKeyRange() )
         if ( const auto * status = model_.intfGroupStatusDir->status( group ) )
            for ( const auto & [intf, none2] : status->intfRange() )
               result.emplace( intf.name(), intf );
   return result;
}

PlanFacts Planner::factsOf( const Job & job ) const {
   const Config::Configuration & configuration = hooks_.configuration();
   PlanFacts facts;
   facts.unit = job.unit;
   if ( const auto * status = model_.unitStatusDir->status( job.unit ) )
      facts.state = unitStateText( status->state() );
   facts.controlPlaneFloorBps = static_cast< double >( configuration.controlPlaneFloor.bps() );
   facts.session = job.session ? stringValue( *job.session ) : "";
   facts.leavingToo = leavingToo( job.unit );
   facts.routes = job.routes.table;
   facts.way = job.routes.way;
   facts.speeds = job.speeds;
   facts.redundancy = redundancyOf( job.unit );
   const auto unit = configuration.units.find( job.unit );
   std::set< std::string > missing;
   if ( unit != configuration.units.end() ) {
      facts.stages = unit->second.enter;
      for ( const std::string & stage : facts.stages ) {
         // What comes after the watch does not move what is watched.
         if ( stage == Config::drainwatchStage )
            break;
         if ( const auto command = configuration.stages.find( stage );
              command != configuration.stages.end() && command->second.steers )
            facts.steering.push_back( stage );
      }
      for ( const std::string & group : unit->second.groups )
         for ( const Config::Member & member : Config::members( configuration.groups.at( group ) ) )
            missing.insert( member.text() );
   }
   const auto loadOf = [&]( const std::string & name, const Wire::IntfId & intf ) {
      const auto at = job.high.find( name );
      PlanLoad load = at == job.high.end() ? PlanLoad() : at->second;
      load.current = current( intf );
      return load;
   };
   for ( const auto & [name, intf] : interfacesOf( job.unit ) ) {
      facts.interfaces.push_back( interfaceOf( job.unit, intf ) );
      facts.interfaces.back().load = loadOf( name, intf );
      missing.erase( name );
      if ( intf.kind() == Kind::vlan )
         missing.erase( Config::Member{ intf.vlanId(), {} }.text() );
   }
   for ( const std::string & name : missing ) {
      PlanInterface & interface = facts.interfaces.emplace_back();
      interface.name = name;
      interface.leaves = false;
      interface.notWatched = "does not exist";
   }
   for ( const auto & [intf, rates] : samples_.rates() )
      facts.loads.emplace( intf.name(), loadOf( Vel::String( intf.name() ), intf ) );
   return facts;
}

PlanInterface Planner::interfaceOf( const std::string & unit, const Wire::IntfId & intf ) const {
   PlanInterface result;
   result.name = intf.name();
   result.kind = kindText( intf.kind() );
   result.leaves = isMonitoredKind( intf.kind() );
   result.uncounted = hooks_.uncounted( intf );
   const auto * status = model_.allIntfStatusDir->intfStatus( intf );
   const bool held = model_.cause->intfStatus( intf ) != nullptr;
   if ( !result.leaves )
      result.notWatched = "is never monitored: " + result.kind;
   else if ( !result.uncounted.empty() )
      result.notWatched = "nobody can say what it carries: " + result.uncounted;
   else if ( !status )
      result.notWatched =
         intf.kind() == Kind::ethernet ? "it has no counters" : "it has no members with counters";
   else if ( status->operStatus() != Interface::operUp && !held )
      result.notWatched = "it is down";
   if ( const auto * groups = model_.intfToGroupDir->intfToGroup( intf ) ) {
      addProfile( result, intf );
      std::set< std::string > units;
      for ( const auto & [group, none] : groups->groupRange() )
         if ( const auto * mapping = model_.groupToUnitDir->groupToUnit( group ) )
            for ( const auto & [name, none2] : mapping->unitNameRange() )
               if ( held && name != unit && !isNormal( name ) )
                  units.insert( name );
      result.shutFor.assign( units.begin(), units.end() );
   }
   return result;
}

void Planner::addProfile( PlanInterface & interface, const Wire::IntfId & intf ) const {
   using Maintenance::Profile::ProfileType;
   const auto & entry = *model_.intfToGroupDir->intfToGroup( intf );
   const auto & key = entry.selectedProfileKey( ProfileType::interfaceProfile );
   interface.profile = key.name == Maintenance::Profile::defaultProfileName
                          ? model_.defaultIntfProfile->profileName()
                          : key.name;
   std::set< std::string > groups;
   for ( const auto & [group, none] : entry.groupRange() )
      groups.insert( group.name );
   interface.profileWhy = profileWhy( hooks_.configuration(), groups );
   const auto * profile = model_.intfProfileStatusDir->status( interface.profile );
   if ( !profile )
      return;
   interface.thresholdBps = profile->drainWatchThresholdInKbps() * 1000;
   interface.loadIntervalSeconds = profile->drainWatchLoadInterval();
   interface.shutdown = profile->shutdown();
   if ( profile->shutdown() && std::isfinite( profile->shutdownMaxDelay() ) )
      interface.shutdownMaxDelaySeconds = profile->shutdownMaxDelay();
}

/// What enters goes on leaving, drained or not; what is under maintenance may be up only for a profile that shuts nothing.
std::map< std::string, std::string > Planner::leavingToo( const std::string & unit ) const {
   using Maintenance::Unit::UnitState;
   std::map< std::string, std::string > result;
   for ( const auto & [other, none] : hooks_.configuration().units ) {
      const auto * status = other == unit ? nullptr : model_.unitStatusDir->status( other );
      if (
         !status ||
         ( status->state() != UnitState::enterInProgress && status->state() != UnitState::maintenance ) )
         continue;
      for ( const auto & [name, intf] : interfacesOf( other ) )
         if ( isMonitoredKind( intf.kind() ) )
            result.emplace( name, other );
   }
   return result;
}

std::vector< PlanRedundancy > Planner::redundancyOf( const std::string & unit ) const {
   std::vector< PlanRedundancy > result;
   for ( const auto & [name, group] : hooks_.configuration().redundancyGroups ) {
      if ( !group.units.count( unit ) )
         continue;
      PlanRedundancy redundancy{ name, group.maxOut, {}, {} };
      for ( const std::string & other : group.units ) {
         if ( other == unit )
            continue;
         if ( !isNormal( other ) )
            redundancy.out.push_back( other );
         else
            for ( const auto & [interface, intf] : interfacesOf( other ) )
               redundancy.others.push_back( interface );
      }
      result.push_back( std::move( redundancy ) );
   }
   return result;
}

} // namespace Agent
