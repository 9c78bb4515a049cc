#include "MaintenancePlugin/DrainWatchSm.h"
#include "MaintenancePlugin/PluginTrace.h"
#include "MaintenancePlugin/ProfileChangeLog.h"

#include <cstdio>

namespace MaintenanceMode {

namespace {
Vel::TraceFacility trace( "IntfMonSm" );
}

Vel::String IntfMonSm::profileName() const { return intfProfile() ? intfProfile()->name() : Vel::String(); }

void IntfMonSm::intfProfileIs( const Vel::Ptr< const Profile > & intfProfile ) {
   if ( this->intfProfile() == intfProfile )
      return;
   profileReactor_.del();
   if ( intfProfile )
      profileReactor_.is( intfProfile, this ).hasNotificationActiveIs( notificationActive_ );
   intfProfileStore( intfProfile );
   if ( intfProfile )
      handleProfile();
}

void IntfMonSm::handleProfile() {
   TRACE_TEXT(
      4, "IntfMonSm::handleProfile: for intf ", intf(), ", profile changed to ", profileName(), " from ",
      oldProfileName() );
   rootSm()->counters()->numIntfMonProfileChangeInc( 1 );
   MMODE_INTF_PROFILE_CHANGE.emit( intf(), profileName(), oldProfileName() );
   oldProfileNameIs( profileName() );
   monitoredIntf()->profileNameIs( profileName() );
   processProfileUpdate();
}

void IntfMonSm::handleProfileUpdate() {
   TRACE_SIGNATURE( 5, "called, intf ", intf(), ", profile ", profileName() );
   processProfileUpdate();
}

void IntfMonSm::processProfileUpdate() {
   // The state stays as it is, and so do the counts: other values of the profile apply from the next sample on.
   if ( state() == Maintenance::monIntfStateUnderMaint )
      doMaintenanceShutdown( true );
   setMonitoringTimer();
}

void IntfMonSm::dump( int fd, unsigned indent ) const {
   const Vel::String first( indent, ' ' );
   const Vel::String rest( indent + 2, ' ' );
   dprintf( fd, "%sInterface: %s\n", first.c_str(), Vel::text( intf() ).c_str() );
   dprintf( fd, "%sinitialState: %s\n", rest.c_str(), Vel::text( initialState() ).c_str() );
   dprintf( fd, "%sstate: %s\n", rest.c_str(), Vel::text( state() ).c_str() );
   dprintf( fd, "%snum dependentUnits: %u\n", rest.c_str(), monitoredIntf()->dependentUnits() );
   for ( const auto & [unit, value] : monitoredIntf()->dependentUnitRange() )
      dprintf( fd, "%s  %s\n", rest.c_str(), unit.c_str() );
   dprintf( fd, "%soldProfileName: %s\n", rest.c_str(), oldProfileName().c_str() );
   dprintf( fd, "%sProfile: %s\n", rest.c_str(), profileName().c_str() );
   monitoredIntf()->dump( fd, indent + 2 );
}

} // namespace MaintenanceMode
