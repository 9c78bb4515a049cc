#include "MaintenancePlugin/IntfStatusSm.h"

#include "MaintenancePlugin/DrainWatchSm.h"
#include "MaintenancePlugin/PluginTrace.h"

namespace MaintenanceMode {

namespace {
Vel::TraceFacility trace( "IntfStatusSm" );

using Maintenance::GroupKey;
using Maintenance::ProfileChangeCause;
using Maintenance::Profile::ProfileType;
} // namespace

bool isIntfMemberOfUnit(
   const Wire::IntfId & intfId, const Vel::String & unitName,
   const Vel::Ptr< const IntfMaintenance::IntfToGroupDir > & intfToGroupDir,
   const Vel::Ptr< const Maintenance::GroupToUnitDir > & groupToUnitDir ) {
   VEL_ASSERT( intfToGroupDir, "intfToGroupDir" );
   const auto * intfToGroup = intfToGroupDir->intfToGroup( intfId );
   if ( !intfToGroup )
      return false;
   for ( const auto & [group, none] : intfToGroup->groupRange() ) {
      const auto * groupToUnit = groupToUnitDir ? groupToUnitDir->groupToUnit( group ) : nullptr;
      if ( groupToUnit && groupToUnit->unitName( unitName ) ) {
         TRACE( 4, "intf:", intfId, " part of unit:", unitName, " through the group:", group );
         return true;
      }
   }
   TRACE( 4, "intf:", intfId, " not part of unit:", unitName );
   return false;
}

IntfStatusSm::IntfStatusSm(
   const Vel::Ptr< Vel::Clock > & clock,
   const Vel::Ptr< const Interface::AllIntfStatusDir > & allIntfStatusDir,
   const Vel::Ptr< const IntfMaintenance::IntfToGroupDir > & intfToGroupDir,
   const Vel::Ptr< const Maintenance::GroupToUnitDir > & groupToUnitDir,
   const Vel::Ptr< UnitIntfInputDir > & unitMonIntfInput,
   const Vel::Ptr< const IntfGroup::StatusDir > & intfGroupStatusDir, DrainWatchSm * drainWatchSm )
   : CodefBase( clock ),
     allIntfStatusDir_( allIntfStatusDir ),
     intfToGroupDir_( intfToGroupDir ),
     groupToUnitDir_( groupToUnitDir ),
     unitMonIntfInput_( unitMonIntfInput ),
     intfGroupStatusDir_( intfGroupStatusDir ),
     drainWatchSm_( drainWatchSm ) {
   // Each watched entity that is there gets its reactor now; for interfaces that fills the backlog.
   if ( allIntfStatusDir_ ) {
      allIntfStatusDirReactor_.is( allIntfStatusDir_, this );
      for ( const auto & [intf, status] : allIntfStatusDir_->intfStatusRange() )
         intfStatusIs( intf, status );
   }
   if ( intfToGroupDir_ ) {
      intfToGroupDirReactor_.is( intfToGroupDir_, this );
      for ( const auto & [intf, entry] : intfToGroupDir_->intfToGroupRange() )
         intfToGroupIs( intf, entry );
   }
   if ( groupToUnitDir_ ) {
      groupToUnitDirReactor_.is( groupToUnitDir_, this );
      for ( const auto & [group, entry] : groupToUnitDir_->groupToUnitRange() )
         groupToUnitIs( group, entry );
   }
}

IntfStatusSm::~IntfStatusSm() = default;

void IntfStatusSm::hasNotificationActiveIs( bool active ) {
   allIntfStatusDirReactor_.hasNotificationActiveIs( active );
   intfToGroupDirReactor_.hasNotificationActiveIs( active );
   groupToUnitDirReactor_.hasNotificationActiveIs( active );
}

// ---- interface status

void IntfStatusSm::handleIntfStatus( const Wire::IntfId & intfId ) {
   if ( const auto * status = allIntfStatusDir()->intfStatus( intfId ) ) {
      intfStatusIs( intfId, status );
      return;
   }
   if ( VelIntfStatus * reactor = intfStatus( intfId ) )
      reactor->handleIntfStatusDel();
   intfStatusDel( intfId );
}

IntfStatusSm::VelIntfStatus::VelIntfStatus(
   Vel::Ptr< const Interface::IntfStatus > status, IntfStatusSm * intfStatusSm )
   : ReactorTo( std::move( status ), intfStatusSm ) {
   handleInitialized();
}

void IntfStatusSm::VelIntfStatus::handleInitialized() {
   TRACE( 5, "intf ", entity()->intfId() );
   sm()->addToBacklog( entity()->intfId() );
}

void IntfStatusSm::VelIntfStatus::handleIntfOperStatus() {
   TRACE( 5, "intf ", entity()->intfId() );
   sm()->addToBacklog( entity()->intfId() );
}

void IntfStatusSm::VelIntfStatus::handleIntfStatusDel() {
   TRACE( 5, "intf ", entity()->intfId() );
   sm()->addToBacklog( entity()->intfId() );
}

// ---- interface to group

void IntfStatusSm::handleIntfToGroup( const Wire::IntfId & intfId ) {
   if ( const auto * entry = intfToGroupDir()->intfToGroup( intfId ) ) {
      intfToGroupIs( intfId, entry );
      return;
   }
   if ( VelIntfToGroup * reactor = intfToGroup( intfId ) )
      reactor->handleIntfToGroupDel();
   intfToGroupDel( intfId );
}

IntfStatusSm::VelIntfToGroup::VelIntfToGroup(
   Vel::Ptr< const IntfMaintenance::IntfToGroup > entry, IntfStatusSm * intfStatusSm )
   : ReactorTo( std::move( entry ), intfStatusSm ) {
   handleInitialized();
}

void IntfStatusSm::VelIntfToGroup::handleInitialized() {
   VEL_ASSERT( !initialized(), "!initialized()" );
   sm()->addToBacklog( entity()->intfId() );
   initialized_ = true;
}

void IntfStatusSm::VelIntfToGroup::handleIntfToGroupDel() { sm()->addToBacklog( entity()->intfId() ); }

void IntfStatusSm::VelIntfToGroup::handleIntfToGroupMembershipChange( const GroupKey & group ) {
   const Wire::IntfId intf = entity()->intfId();
   if ( entity()->group( group ) ) {
      TRACE( 4, "Interface:", intf, " added to group:", group );
      sm()->addToBacklog( intf );
      return;
   }
   TRACE( 4, "Interface:", intf, " removed from group:", group );
   VEL_ASSERT( intfStatusSm()->groupToUnitDir(), "intfStatusSm()->groupToUnitDir()" );
   const auto * groupToUnit = intfStatusSm()->groupToUnitDir()->groupToUnit( group );
   if ( !groupToUnit )
      return;
   for ( const auto & [unitName, none] : groupToUnit->unitNameRange() ) {
      VEL_ASSERT( intfStatusSm()->unitMonIntfInput(), "intfStatusSm()->unitMonIntfInput()" );
      UnitIntfInput * input = intfStatusSm()->unitMonIntfInput()->unitIntfInput( unitName );
      if ( !input ) {
         TRACE(
            4, "IntfId:", intf, ". Group:", group, " part of unit:", unitName,
            " which is not undergoing maintenance.", " Nothing to do as part of this unit." );
         continue;
      }
      TRACE(
         4, "IntfId:", intf, ". Group:", group, " part of unit:", unitName,
         " which is undergoing maintenance.", " Check if intf is still member of the unit." );
      sm()->removeUnlessMember( intf, unitName, *input );
   }
}

void IntfStatusSm::VelIntfToGroup::handleSelectedProfile( ProfileType profileType ) {
   // Only a selection that changes without the set of groups is acted on here: a changed set comes by itself.
   constexpr ProfileType wantedType = ProfileType::interfaceProfile;
   constexpr ProfileChangeCause wantedCause = ProfileChangeCause::selection;
   if ( profileType != wantedType ) {
      TRACE( 4, "  ignoring as profile type is not ", wantedType );
      return;
   }
   if ( entity()->profileChangeCause() != wantedCause ) {
      TRACE( 4, "  ignoring as change cause is not ", wantedCause );
      return;
   }
   const Wire::IntfId intf = entity()->intfId();
   TRACE(
      4, "intf ", intf, ", profileChangeCause ", entity()->profileChangeCause(), ", profileType ",
      profileType, ", profile ", entity()->selectedProfileKey( profileType ).name );
   sm()->addToBacklog( intf );
}

// ---- group to unit

void IntfStatusSm::handleGroupToUnit( const GroupKey & group ) {
   if ( const auto * entry = groupToUnitDir()->groupToUnit( group ) )
      groupToUnitIs( group, entry );
   else
      groupToUnitDel( group );
}

void IntfStatusSm::VelGroupToUnit::handleGroupToUnitMembershipChange( const Vel::String & unitName ) {
   VEL_ASSERT( intfStatusSm()->intfGroupStatusDir(), "intfStatusSm()->intfGroupStatusDir()" );
   const GroupKey group = entity()->groupKey();
   const auto * groupStatus = intfStatusSm()->intfGroupStatusDir()->status( group );
   if ( entity()->unitName( unitName ) ) {
      TRACE( 4, "Group:", group, " added to Unit:", unitName );
      if ( !groupStatus ) {
         TRACE( 4, "Group ", group, "has no interfaces." );
         return;
      }
      for ( const auto & [intf, none] : groupStatus->intfRange() )
         sm()->addToBacklog( intf );
      return;
   }
   TRACE( 4, "Group:", group, " removed from Unit:", unitName );
   VEL_ASSERT( intfStatusSm()->unitMonIntfInput(), "intfStatusSm()->unitMonIntfInput()" );
   // Held while it tells: a reactor may end the unit, which takes the set out of the directory.
   const Vel::Ptr< UnitIntfInput > input( intfStatusSm()->unitMonIntfInput()->unitIntfInput( unitName ) );
   if ( !input ) {
      TRACE( 4, "Group:", group, ".Unit ", unitName, " was not 'entering or under maintenance'." );
      return;
   }
   if ( !groupStatus ) {
      TRACE( 4, "Group has no interfaces. Nothing to remove" );
      return;
   }
   for ( const auto & [intf, none] : groupStatus->intfRange() )
      sm()->removeUnlessMember( intf, unitName, *input );
}

void IntfStatusSm::removeUnlessMember(
   const Wire::IntfId & intfId, const Vel::String & unitName, UnitIntfInput & input ) {
   if ( isIntfMemberOfUnit( intfId, unitName, intfToGroupDir(), groupToUnitDir() ) ) {
      TRACE(
         4, "intf:", intfId, " is still a member of unit:", unitName, ".Not removing the interface from ",
         "UnitMonIntfInput of the Unit" );
      return;
   }
   if ( !input.intf( intfId ) ) {
      TRACE(
         4, "intf:", intfId, " is no longer a member of ", "unit:", unitName, ".It has already been ",
         "removed from UnitMonIntfInput of the Unit" );
      return;
   }
   input.intfDel( intfId );
   TRACE(
      4, "intf:", intfId, " is no longer a member of ", "unit:", unitName, ".Removing the ",
      "interface from UnitMonIntfInput of the Unit" );
}

} // namespace MaintenanceMode
