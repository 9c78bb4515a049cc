#pragma once

#include "MaintenancePlugin/UnitIntfInput.h"
#include "Platform/Cog/CodefBase.h"
#include "Platform/Model/Interface.h"
#include "Platform/Model/IntfGroup.h"
#include "Platform/Model/IntfMaintenance.h"
#include "Platform/Model/Maintenance.h"

#include <map>

namespace MaintenanceMode {

class DrainWatchSm;

/// Whether at least one of the interface's groups is mapped to the unit. `intfToGroupDir` is asserted.
bool isIntfMemberOfUnit(
   const Wire::IntfId & intfId, const Vel::String & unitName,
   const Vel::Ptr< const IntfMaintenance::IntfToGroupDir > & intfToGroupDir,
   const Vel::Ptr< const Maintenance::GroupToUnitDir > & groupToUnitDir );

/// Purpose: follows everything that can change whether an interface must be monitored for a unit.
/// Owner: the root.
///
/// Invariants:
/// 1. Changes only put the interface into the backlog, which decides later from the state of that time; repeated
///    changes of one interface coalesce there.
/// 2. The one exception is removal: an interface that is no longer a member of a unit leaves its set at once.
/// 3. A run of the backlog takes at least one interface and stops when its time slice is spent.
class IntfStatusSm final : public Vel::Entity, public Cog::CodefBase {
   VEL_ENTITY( IntfStatusSm );
   IntfStatusSm(
      const Vel::Ptr< Vel::Clock > & clock,
      const Vel::Ptr< const Interface::AllIntfStatusDir > & allIntfStatusDir,
      const Vel::Ptr< const IntfMaintenance::IntfToGroupDir > & intfToGroupDir,
      const Vel::Ptr< const Maintenance::GroupToUnitDir > & groupToUnitDir,
      const Vel::Ptr< UnitIntfInputDir > & unitMonIntfInput,
      const Vel::Ptr< const IntfGroup::StatusDir > & intfGroupStatusDir, DrainWatchSm * drainWatchSm );
   ~IntfStatusSm() override;

   struct VelIntfStatus final : Vel::ReactorTo< IntfStatusSm, Interface::IntfStatus > {
      VelIntfStatus( Vel::Ptr< const Interface::IntfStatus > status, IntfStatusSm * intfStatusSm );
      void onOperStatus() override { handleIntfOperStatus(); }
      void handleInitialized();
      void handleIntfOperStatus();
      void handleIntfStatusDel();
   };
   struct VelAllIntfStatusDir final : Vel::ReactorTo< IntfStatusSm, Interface::AllIntfStatusDir > {
      using ReactorTo::ReactorTo;
      void onIntfStatus( const Wire::IntfId & intfId ) override { sm()->handleIntfStatus( intfId ); }
   };
   struct VelIntfToGroup final : Vel::ReactorTo< IntfStatusSm, IntfMaintenance::IntfToGroup > {
      VelIntfToGroup( Vel::Ptr< const IntfMaintenance::IntfToGroup > entry, IntfStatusSm * intfStatusSm );
      IntfStatusSm * intfStatusSm() const { return sm(); }
      void onGroup( const Maintenance::GroupKey & group ) override {
         handleIntfToGroupMembershipChange( group );
      }
      void onSelectedProfile( const Maintenance::Profile::ProfileType & type ) override {
         handleSelectedProfile( type );
      }
      void handleInitialized();
      void handleIntfToGroupMembershipChange( const Maintenance::GroupKey & group );
      void handleSelectedProfile( Maintenance::Profile::ProfileType profileType );
      void handleIntfToGroupDel();
      bool initialized() const { return initialized_; }

    private:
      bool initialized_ = false;
   };
   struct VelIntfToGroupDir final : Vel::ReactorTo< IntfStatusSm, IntfMaintenance::IntfToGroupDir > {
      using ReactorTo::ReactorTo;
      void onIntfToGroup( const Wire::IntfId & intfId ) override { sm()->handleIntfToGroup( intfId ); }
   };
   struct VelGroupToUnit final : Vel::ReactorTo< IntfStatusSm, Maintenance::GroupToUnit > {
      using ReactorTo::ReactorTo;
      IntfStatusSm * intfStatusSm() const { return sm(); }
      void onUnitName( const Vel::String & unitName ) override {
         handleGroupToUnitMembershipChange( unitName );
      }
      void handleGroupToUnitMembershipChange( const Vel::String & unitName );
   };
   struct VelGroupToUnitDir final : Vel::ReactorTo< IntfStatusSm, Maintenance::GroupToUnitDir > {
      using ReactorTo::ReactorTo;
      void onGroupToUnit( const Maintenance::GroupKey & group ) override { sm()->handleGroupToUnit( group ); }
   };

   VEL_PARAM( Vel::Ptr< const Interface::AllIntfStatusDir >, allIntfStatusDir );
   VEL_PARAM( Vel::Ptr< const IntfMaintenance::IntfToGroupDir >, intfToGroupDir );
   VEL_PARAM( Vel::Ptr< const Maintenance::GroupToUnitDir >, groupToUnitDir );
   VEL_PARAM( Vel::Ptr< UnitIntfInputDir >, unitMonIntfInput );
   VEL_PARAM( Vel::Ptr< const IntfGroup::StatusDir >, intfGroupStatusDir );
   VEL_PARAM( DrainWatchSm *, drainWatchSm );
   VEL_REACTORS( Wire::IntfId, VelIntfStatus, intfStatus );
   VEL_REACTORS( Wire::IntfId, VelIntfToGroup, intfToGroup );
   VEL_REACTORS( Maintenance::GroupKey, VelGroupToUnit, groupToUnit );
   VEL_ATTR( Wire::IntfId, bookmark, onBookmark ); ///< where the last slice stopped; empty when all was done

   void hasNotificationActiveIs( bool active );

   // membership: IntfStatusSm.cpp
   void handleIntfStatus( const Wire::IntfId & intfId );
   void handleIntfToGroup( const Wire::IntfId & intfId );
   void handleGroupToUnit( const Maintenance::GroupKey & group );
   /// Removes the interface from the unit's set unless it still belongs to the unit through another group.
   void
   removeUnlessMember( const Wire::IntfId & intfId, const Vel::String & unitName, UnitIntfInput & input );

   // backlog: IntfStatusSmBacklog.cpp
   void addToBacklog( const Wire::IntfId & intfId );
   Vel::U64 processBacklog( double startTime ) override;
   Vel::U64 backlogSize() const override { return backlog_.size(); }
   /// The interfaces that wait.
   const std::map< Wire::IntfId, bool > & backlog() const { return backlog_; }
   void processIntf( const Wire::IntfId & intfId );
   void processProfileChange( const Wire::IntfId & intfId );
   void dump( int fd, unsigned indent ) const;

 private:
   /// Ordered, because a paused run goes on at its bookmark, which may have gone meanwhile.
   std::map< Wire::IntfId, bool > backlog_;
   Vel::Watch< VelAllIntfStatusDir > allIntfStatusDirReactor_;
   Vel::Watch< VelIntfToGroupDir > intfToGroupDirReactor_;
   Vel::Watch< VelGroupToUnitDir > groupToUnitDirReactor_;
};

} // namespace MaintenanceMode
