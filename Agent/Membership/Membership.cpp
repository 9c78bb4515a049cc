#include "Agent/Membership/Membership.h"

#include <limits>
#include <vector>

namespace Agent {

using Maintenance::GroupKey;
using Maintenance::GroupType;
using Maintenance::Profile::ProfileKey;
using Maintenance::Profile::ProfileType;

namespace {

GroupKey groupKey( const std::string & name ) { return { GroupType::interfaceGroup, name }; }

void edit( IntfMaintenanceProfile::Status & profile, const Config::Profile & wanted ) {
   profile.drainWatchThresholdInKbpsIs( wanted.threshold.kbps() );
   profile.drainWatchLoadIntervalIs( wanted.loadInterval.seconds() );
   profile.shutdownMaxDelayIs(
      wanted.shutdownMaxDelay ? wanted.shutdownMaxDelay->seconds()
                              : std::numeric_limits< double >::infinity() );
   // Last, because it is acted on at once.
   profile.shutdownIs( wanted.shutdown );
}

/// The keys of a range for which `gone` is true: they are removed after the walk that finds them.
template < class Range, class Gone >
auto keysThat( const Range & range, Gone gone ) {
   std::vector< std::remove_cvref_t< decltype( ( *range.begin() ).first ) > > result;
   for ( const auto & [key, value] : range )
      if ( gone( key ) )
         result.push_back( key );
   return result;
}

} // namespace

void Membership::configurationIs( const Config::Configuration & configuration ) {
   configuration_ = configuration;
   groupsByMember_ = Config::groupsByMember( configuration_ );
   apply();
}

void Membership::intfIs( const Wire::IntfId & intf ) {
   const std::string name( intf.name() );
   const auto present = intfs_.find( name );
   if ( present != intfs_.end() && present->second == intf )
      return;
   if ( present != intfs_.end() )
      intfDel( Wire::IntfId( present->second ) );
   intfs_[name] = intf;
   // Thousands of links may come at once: only what is of this one is looked at.
   if ( const Wanted wanted = this->wanted( intf ); !wanted.groups.empty() ) {
      select( intf, wanted );
      addToGroups( intf, wanted );
   }
}

void Membership::intfDel( const Wire::IntfId & intf ) {
   const auto present = intfs_.find( std::string( intf.name() ) );
   if ( present == intfs_.end() || present->second != intf )
      return;
   intfs_.erase( present );
   auto * const entry = model_.intfToGroupDir->intfToGroup( intf );
   if ( !entry )
      return;
   const auto groups = keysThat( entry->groupRange(), []( const GroupKey & ) { return true; } );
   for ( const GroupKey & group : groups )
      if ( auto * const status = model_.intfGroupStatusDir->status( group ) )
         status->intfDel( intf );
   for ( const GroupKey & group : groups )
      entry->groupDel( group );
   model_.intfToGroupDir->intfToGroupDel( intf );
}

Wire::IntfId Membership::intf( const std::string & name ) const {
   const auto it = intfs_.find( name );
   return it == intfs_.end() ? Wire::IntfId() : it->second;
}

Membership::Wanted Membership::wanted( const Wire::IntfId & intf ) const {
   Wanted result;
   const auto take = [&]( const Config::Member & member ) {
      if ( const auto it = groupsByMember_.find( member ); it != groupsByMember_.end() )
         result.groups.insert( it->second.begin(), it->second.end() );
   };
   take( { 0, std::string( intf.name() ) } );
   if ( Wire::VlanIntfId::isVlanIntfId( intf ) && intf.vlanId() != 0 )
      take( { intf.vlanId(), {} } );
   if ( !result.groups.empty() )
      result.profile = *Config::strictestProfile( configuration_, result.groups );
   return result;
}

Membership::WantedByIntf Membership::wanted() const {
   WantedByIntf result;
   for ( const auto & [name, intf] : intfs_ )
      if ( Wanted wanted = this->wanted( intf ); !wanted.groups.empty() )
         result.emplace( intf, std::move( wanted ) );
   return result;
}

void Membership::apply() {
   const WantedByIntf wanted = this->wanted();
   applyProfiles();
   for ( const auto & [intf, want] : wanted )
      select( intf, want );
   for ( const auto & [intf, want] : wanted )
      addToGroups( intf, want );
   addMappings();
   removeMappings();
   removeMembers( wanted );
   removeProfiles();
}

void Membership::applyProfiles() {
   auto & dir = *model_.intfProfileStatusDir;
   for ( const auto & [name, profile] : configuration_.profiles )
      if ( auto * present = dir.status( name ) )
         edit( *present, profile );
   for ( const auto & [name, profile] : configuration_.profiles )
      if ( !dir.status( name ) ) {
         // Complete before anybody sees it.
         auto fresh = Vel::make< IntfMaintenanceProfile::Status >( name );
         edit( *fresh, profile );
         dir.statusPut( name, fresh );
      }
   model_.defaultIntfProfile->profileNameIs( configuration_.defaultProfile );
}

void Membership::select( const Wire::IntfId & intf, const Wanted & wanted ) {
   auto & entry = *model_.intfToGroupDir->intfToGroupIs( intf );
   for ( const std::string & group : wanted.groups )
      entry.groupIs( groupKey( group ) );
   // An interface that only leaves a group is told of its profile by nothing but this cause.
   entry.profileChangeCauseIs( Maintenance::ProfileChangeCause::selection );
   entry.selectedProfileIs(
      ProfileType::interfaceProfile,
      { ProfileType::interfaceProfile,
        wanted.profile.usesDefault ? Maintenance::Profile::defaultProfileName : wanted.profile.name } );
}

void Membership::addToGroups( const Wire::IntfId & intf, const Wanted & wanted ) {
   for ( const std::string & group : wanted.groups )
      model_.intfGroupStatusDir->statusIs( groupKey( group ) )->intfIs( intf );
}

void Membership::addMappings() {
   for ( const auto & [unit, wanted] : configuration_.units )
      for ( const std::string & group : wanted.groups )
         model_.groupToUnitDir->mappingIs( groupKey( group ), unit );
}

void Membership::removeMappings() {
   auto & dir = *model_.groupToUnitDir;
   for ( const auto & [group, entry] : dir.groupToUnitRange() ) {
      const auto gone = keysThat( entry->unitNameRange(), [&]( const Vel::String & unit ) {
         const auto it = configuration_.units.find( unit );
         return it == configuration_.units.end() || !it->second.groups.count( group.name );
      } );
      for ( const Vel::String & unit : gone )
         dir.mappingDel( group, unit );
   }
   for ( const GroupKey & group : keysThat( dir.groupToUnitRange(), [&]( const GroupKey & key ) {
            return !configuration_.groups.count( key.name );
         } ) )
      dir.groupToUnitDel( group );
}

void Membership::removeMembers( const WantedByIntf & wanted ) {
   const auto wants = [&]( const Wire::IntfId & intf, const std::string & group ) {
      const auto it = wanted.find( intf );
      return it != wanted.end() && it->second.groups.count( group );
   };
   auto & groups = *model_.intfGroupStatusDir;
   for ( const auto & [group, status] : groups.statusRange() )
      for ( const Wire::IntfId & intf :
            keysThat( status->intfRange(), [&, key = group]( const Wire::IntfId & id ) {
               return !wants( id, key.name );
            } ) )
         status->intfDel( intf );
   for ( const GroupKey & group : keysThat( groups.statusRange(), [&]( const GroupKey & key ) {
            return !configuration_.groups.count( key.name );
         } ) )
      groups.statusDel( group );

   auto & entries = *model_.intfToGroupDir;
   for ( const auto & [intf, entry] : entries.intfToGroupRange() )
      for ( const GroupKey & group : keysThat( entry->groupRange(), [&, id = intf]( const GroupKey & key ) {
               return !wants( id, key.name );
            } ) )
         entry->groupDel( group );
   for ( const Wire::IntfId & intf : keysThat(
            entries.intfToGroupRange(), [&]( const Wire::IntfId & id ) { return !wanted.count( id ); } ) )
      entries.intfToGroupDel( intf );
}

void Membership::removeProfiles() {
   auto & dir = *model_.intfProfileStatusDir;
   for ( const Vel::String & name : keysThat( dir.statusRange(), [&]( const Vel::String & key ) {
            return !configuration_.profiles.count( key );
         } ) )
      dir.statusDel( name );
}

} // namespace Agent
