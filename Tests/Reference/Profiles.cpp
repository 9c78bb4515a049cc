#include "Tests/Reference/Rules.h"

namespace Reference {

Profile Model::Rules::selectedName( Intf intf ) const {
   const Entry * const entry = find( inputs_.entries, intf );
   const Profile selected = entry ? entry->selected.value_or( none ) : none;
   return selected == defaultProfile ? inputs_.defaultName : selected;
}

ProfilePointer Model::Rules::selectedProfile( Intf intf ) const {
   const auto at = inputs_.profiles.find( selectedName( intf ) );
   return at == inputs_.profiles.end() ? nullptr : at->second;
}

/// By its token only, not by its name.
bool Model::Rules::usesDefault( Intf intf ) const {
   const Entry * const entry = find( inputs_.entries, intf );
   return entry && entry->selected == defaultProfile;
}

/// The monitor holds this profile from now on, also none. Another one of the same name is another one.
void Model::Rules::handOver( IntfMon & mon, const ProfilePointer & profile ) {
   if ( mon.profile == profile )
      return;
   mon.profile = profile;
   mon.shown->profile = profile ? profile->name : none;
   if ( !profile )
      return;
   count( numIntfMonProfileChange );
   mon.record->profile = profile->name;
   reapply( mon );
}

/// Samples that were counted stay counted; only the shutdown and the timer are decided again.
void Model::Rules::reapply( IntfMon & mon ) {
   if ( mon.shown->state == MonState::underMaint )
      decideShutdown( mon, true );
   setMonitoringTimer( mon );
}

namespace {
void requireProfile( const ProfilePointer & profile ) {
   if ( !profile )
      throw Unreachable( "a profile comes or goes while a monitor has none" );
}
} // namespace

/// Monitors that wait for it get it.
void Model::Rules::handleProfileMade( Profile profile ) {
   for ( const Intf intf : intfMons_.keys() ) {
      IntfMon & mon = *intfMons_.find( intf );
      requireProfile( mon.profile );
      if ( selectedName( intf ) != profile || mon.profile->name == profile )
         continue;
      count( numIntfMonPendingProfileResolved );
      handOver( mon, selectedProfile( intf ) );
   }
}

/// Monitors that have it get another one, if there is one; otherwise they go on with what they have.
void Model::Rules::handleProfileGone( Profile profile ) {
   for ( const Intf intf : intfMons_.keys() ) {
      IntfMon & mon = *intfMons_.find( intf );
      requireProfile( mon.profile );
      if ( mon.profile->name != profile )
         continue;
      count( numIntfMonProfileDelete );
      if ( const ProfilePointer another = selectedProfile( intf ) )
         handOver( mon, another );
   }
}

void Model::Rules::handleDefaultName() {
   for ( const Intf intf : intfMons_.keys() ) {
      if ( !usesDefault( intf ) )
         continue;
      count( numIntfMonDefProfileUpdate );
      handOver( *intfMons_.find( intf ), selectedProfile( intf ) );
   }
}

/// The other values of a profile are read afresh whenever they are used.
void Model::Rules::handleShutdown( const ProfilePointer & profile ) {
   for ( const Intf intf : intfMons_.keys() ) {
      IntfMon & mon = *intfMons_.find( intf );
      if ( mon.profile == profile )
         reapply( mon );
   }
}

} // namespace Reference
