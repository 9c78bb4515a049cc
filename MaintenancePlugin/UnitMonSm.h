#pragma once

#include "MaintenancePlugin/UnitIntfInput.h"
#include "Platform/Model/IntfMaintenanceProfile.h"
#include "Platform/Model/Maintenance.h"

namespace MaintenanceMode {

class DrainWatchSm;
class IntfMonSm;

/// Purpose: watches one unit from its enter until its exit: starts and stops the monitoring of its interfaces
/// and reports the stage complete when as many interfaces have drained as are monitored. Owner: the root's
/// collection of unit monitors, which runs prepareToDie() before it lets go.
///
/// Invariants:
/// 1. An interface that startIntfMon() takes is in `monIntf` from its end until it is removed from there. stopIntfMon()
///    follows each removal, also while the monitor is being released.
/// 2. The comparison is of counts, and a report is made on every check that finds them equal.
class UnitMonSm final : public Vel::Entity {
   VEL_ENTITY( UnitMonSm );
   /// Only stores; the factory also runs handleInitialized().
   UnitMonSm(
      const Vel::String & unitName, Vel::U32 genId, DrainWatchSm * rootSm,
      const Vel::Ptr< UnitIntfInput > & monIntf, const Vel::Ptr< UnitIntfInput > & drainedIntf );
   static Vel::Ptr< UnitMonSm > UnitMonSmIs(
      const Vel::String & unitName, Vel::U32 genId, DrainWatchSm * rootSm,
      const Vel::Ptr< UnitIntfInput > & monIntf, const Vel::Ptr< UnitIntfInput > & drainedIntf );

   VEL_PARAM( Vel::String, unitName );
   VEL_ATTR( Vel::U32, genId, onGenId ); ///< of the maintenance instance that a report is for
   VEL_PARAM( DrainWatchSm *, rootSm );
   VEL_PARAM( Vel::Ptr< UnitIntfInput >, monIntf );     ///< the unit's monitored interfaces
   VEL_PARAM( Vel::Ptr< UnitIntfInput >, drainedIntf ); ///< the unit's drained interfaces
   VEL_ATTR( bool, initialized, onInitialized );

   struct VelMonIntf final : Vel::ReactorTo< UnitMonSm, UnitIntfInput > {
      using ReactorTo::ReactorTo;
      void onIntf( const Wire::IntfId & intf ) override { sm()->handleMonIntf( intf ); }
   };
   struct VelDrainedIntf final : Vel::ReactorTo< UnitMonSm, UnitIntfInput > {
      using ReactorTo::ReactorTo;
      void onIntf( const Wire::IntfId & intf ) override { sm()->handleDrainedIntf( intf ); }
   };

   void hasNotificationActiveIs( bool active );
   void handleInitialized();
   /// Takes the interface in: with the monitor that other units have made, which gets the profile that applies now, or with
   /// one of its own. Refuses, and counts, what is of another kind, has no status or is not up. It must have a profile.
   void startIntfMon( const Wire::IntfId & intf );
   /// Lets the interface go; with the last unit that holds it its monitor and its sampler go. What applies without this
   /// unit is resolved anew; without a profile, or if the interface is not up, it is stopped for the others too.
   void stopIntfMon( const Wire::IntfId & intf );
   /// The interface has come into `monIntf` or left it.
   void handleMonIntf( const Wire::IntfId & intf );
   /// The interface has come into `drainedIntf` or left it.
   void handleDrainedIntf( const Wire::IntfId & intf );
   void checkDrainedIntfsAndReport();
   /// Empties the unit's sets, which stops its interfaces, and reports the exit. Runs once, with the reactors active.
   void prepareToDie();
   void dump( int fd, unsigned indent ) const;

   /// Withdraws what an interface monitor applied: it stops, and its interface leaves the maintenance shutdown.
   static void unApplyCurrentProfile(
      const Vel::String & unitName, const Wire::IntfId & intf, const Vel::Ptr< IntfMonSm > & intfMonSm,
      DrainWatchSm * rootSm );

 private:
   void startGroup( const Maintenance::GroupKey & group );
   /// Makes the interface's sampler and monitor, for an interface that no unit has had so far.
   IntfMonSm *
   intfMonNew( const Wire::IntfId & intf, const Vel::Ptr< const IntfMaintenanceProfile::Status > & profile );

   Vel::Watch< VelMonIntf > monIntfReactor_;
   Vel::Watch< VelDrainedIntf > drainedIntfReactor_;
};

} // namespace MaintenanceMode
