#include "Agent/Model/StateText.h"
#include "Agent/Plan/Planner.h"
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

/// "group a", "groups a and b"
std::string groupsText( const std::vector< std::string > & groups ) {
   return ( groups.size() == 1 ? "group " : "groups " ) + planList( groups );
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
   facts.session = job.session ? job.session->address : "";
   facts.routes = *job.routes.table;
   facts.way = job.routes.way;
   facts.redundancy = redundancyOf( job.unit );
   const auto unit = configuration.units.find( job.unit );
   std::set< std::string > missing;
   if ( unit != configuration.units.end() ) {
      facts.stages = unit->second.enter;
      for ( const std::string & stage : facts.stages )
         if ( const auto command = configuration.stages.find( stage );
              command != configuration.stages.end() && !command->second.enter.empty() )
            facts.steering.push_back( stage );
      for ( const std::string & group : unit->second.groups )
         missing.insert(
            configuration.groups.at( group ).interfaces.begin(),
            configuration.groups.at( group ).interfaces.end() );
   }
   const auto highOf = [&]( const std::string & name ) {
      const auto at = job.high.find( name );
      return at == job.high.end() ? std::nullopt : at->second;
   };
   for ( const auto & [name, intf] : interfacesOf( job.unit ) ) {
      facts.interfaces.push_back( interfaceOf( job.unit, intf ) );
      facts.interfaces.back().load.high = highOf( name );
      missing.erase( name );
   }
   for ( const std::string & name : missing ) {
      PlanInterface & interface = facts.interfaces.emplace_back();
      interface.name = name;
      interface.leaves = false;
      interface.notWatched = "does not exist";
   }
   for ( const auto & [intf, rates] : samples_.rates() )
      facts.loads.emplace( intf.name(), PlanLoad{ current( intf ), highOf( Vel::String( intf.name() ) ) } );
   return facts;
}

PlanInterface Planner::interfaceOf( const std::string & unit, const Wire::IntfId & intf ) const {
   PlanInterface result;
   result.name = intf.name();
   result.kind = kindText( intf.kind() );
   result.leaves = isMonitoredKind( intf.kind() );
   result.uncounted = hooks_.uncounted( intf );
   result.load.current = current( intf );
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
   interface.profileWhy = profileWhy( groups );
   const auto * profile = model_.intfProfileStatusDir->status( interface.profile );
   if ( !profile )
      return;
   interface.thresholdBps = profile->drainWatchThresholdInKbps() * 1000;
   interface.loadIntervalSeconds = profile->drainWatchLoadInterval();
   interface.shutdown = profile->shutdown();
   if ( profile->shutdown() && std::isfinite( profile->shutdownMaxDelay() ) )
      interface.shutdownMaxDelaySeconds = profile->shutdownMaxDelay();
}

/// "named by group a", "the default, as group a names none", "the strictest of fast (group a) and watch (group b)"
std::string Planner::profileWhy( const std::set< std::string > & groups ) const {
   const Config::Configuration & configuration = hooks_.configuration();
   std::map< std::string, std::vector< std::string > > byProfile;
   bool allDefault = true;
   for ( const std::string & name : groups ) {
      const auto group = configuration.groups.find( name );
      if ( group == configuration.groups.end() )
         continue;
      allDefault = allDefault && !group->second.profile;
      byProfile[group->second.profile.value_or( configuration.defaultProfile )].push_back( name );
   }
   if ( byProfile.empty() )
      return "";
   const std::vector< std::string > & first = byProfile.begin()->second;
   if ( allDefault )
      return "the default, as " + groupsText( first ) + ( first.size() == 1 ? " names" : " name" ) + " none";
   if ( byProfile.size() == 1 )
      return "named by " + groupsText( first );
   std::vector< std::string > all;
   for ( const auto & [profile, of] : byProfile )
      all.push_back( profile + " (" + groupsText( of ) + ")" );
   return "the strictest of " + planList( all );
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
