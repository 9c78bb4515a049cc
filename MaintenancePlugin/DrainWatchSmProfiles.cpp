#include "MaintenancePlugin/DrainWatchSm.h"
#include "MaintenancePlugin/PluginTrace.h"

namespace MaintenanceMode {

namespace {
Vel::TraceFacility trace( "DrainWatchSm" );

using Maintenance::Profile::ProfileKey;

/// The key of the profile selected for the interface; unset if there is no selection, entry or directory.
ProfileKey selectedKey(
   const Vel::Ptr< const IntfMaintenance::IntfToGroupDir > & intfToGroupDir, const Wire::IntfId & intf ) {
   const auto * entry = intfToGroupDir ? intfToGroupDir->intfToGroup( intf ) : nullptr;
   return entry ? entry->selectedProfileKey( Maintenance::Profile::ProfileType::interfaceProfile )
                : ProfileKey();
}

bool namesDefault( const ProfileKey & key ) { return key.name == Maintenance::Profile::defaultProfileName; }
} // namespace

Vel::String DrainWatchSm::getIntfProfileName( const Wire::IntfId & intf ) const {
   const ProfileKey key = selectedKey( intfToGroupDir(), intf );
   if ( !namesDefault( key ) )
      return key.name;
   return defaultIntfProfile() ? defaultIntfProfile()->profileName() : Vel::String();
}

DrainWatchSm::ReadOnly< DrainWatchSm::Profile >
DrainWatchSm::getIntfProfile( const Wire::IntfId & intf ) const {
   if ( selectedKey( intfToGroupDir(), intf ).unset() )
      return nullptr;
   const Vel::String name = getIntfProfileName( intf );
   const Profile * profile = intfProfileStatusDir() ? intfProfileStatusDir()->status( name ) : nullptr;
   TRACE( 4, "intf ", intf, ", profile ", profile ? profile->name() : "-" );
   return profile;
}

bool DrainWatchSm::usingDefaultProfile( const Wire::IntfId & intf ) const {
   return namesDefault( selectedKey( intfToGroupDir(), intf ) );
}

void DrainWatchSm::handleIntfProfileStatus( const Vel::String & profileName ) {
   const bool added = intfProfileStatusDir() && intfProfileStatusDir()->status( profileName );
   TRACE_TEXT( 4, "handleIntfProfileStatus: [", added ? "add" : "delete", "] intf profile ", profileName );
   FASTLOG( "handleIntfProfileStatus: [", added ? "add" : "delete", "] intf profile ", profileName );
   for ( const auto & [intf, intfMonSm] : intfMonRange() ) {
      VEL_ASSERT( intfMonSm->intfProfile(), "intfMonSm->intfProfile()" );
      const bool heldNow = intfMonSm->intfProfile()->name() == profileName;
      if ( added ) {
         // A monitor that runs on an earlier profile has waited for this one. One that holds an earlier object of the
         // same name is bound to this one when it is selected again.
         if ( heldNow || getIntfProfileName( intf ) != profileName )
            continue;
         counters()->numIntfMonPendingProfileResolvedInc( 1 );
         intfMonSm->intfProfileIs( getIntfProfile( intf ) );
      } else if ( heldNow ) {
         counters()->numIntfMonProfileDeleteInc( 1 );
         // Without another one the monitor keeps the object of the deleted profile, with its last values.
         if ( const auto intfProfile = getIntfProfile( intf ) )
            intfMonSm->intfProfileIs( intfProfile );
      }
   }
}

void DrainWatchSm::handleDefaultIntfProfile() {
   const Vel::String profileName = defaultIntfProfile() ? defaultIntfProfile()->profileName() : Vel::String();
   TRACE_FASTLOG( 4, "default intf profile ", profileName );
   for ( const auto & [intf, intfMonSm] : intfMonRange() ) {
      if ( !usingDefaultProfile( intf ) )
         continue;
      counters()->numIntfMonDefProfileUpdateInc( 1 );
      // Handed over even if the name is of no profile: going on by the old one would be deciding by what the operator
      // has just taken away.
      intfMonSm->intfProfileIs( getIntfProfile( intf ) );
   }
}

} // namespace MaintenanceMode
