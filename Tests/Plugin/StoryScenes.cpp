#include "Tests/Plugin/StoryTeller.h"

/// Rows of steps that lead to what pure chance would seldom bring about.
namespace Tests {

using Reference::IntfKind;
using Reference::IntfMonitor;
using Reference::MonState;
using Reference::none;

namespace {
/// Octets a second that are above every threshold.
constexpr std::uint64_t busy = 10'000'000;
} // namespace

void StoryTeller::stepScene() {
   static constexpr void ( StoryTeller::*scenes[] )() = { &StoryTeller::sceneSameTick,
                                                          &StoryTeller::sceneSameTick,
                                                          &StoryTeller::sceneTwoUnits,
                                                          &StoryTeller::sceneTwoUnits,
                                                          &StoryTeller::sceneEnterShared,
                                                          &StoryTeller::sceneStopped,
                                                          &StoryTeller::sceneTwoViolations,
                                                          &StoryTeller::sceneExitDuringEnter,
                                                          &StoryTeller::sceneProfileDeletedInUse,
                                                          &StoryTeller::sceneProfileRemade,
                                                          &StoryTeller::scenePendingProfile,
                                                          &StoryTeller::sceneNoProfile,
                                                          &StoryTeller::sceneMissingProfile,
                                                          &StoryTeller::sceneBurst,
                                                          &StoryTeller::sceneSpike };
   ( this->*scenes[chance_.pick( static_cast< unsigned >( std::size( scenes ) ) )] )();
}

/// The quiet interfaces of a unit drain on a sample before or at which the busy ones are shut anyway.
void StoryTeller::sceneSameTick() {
   const Unit unit = someUnitIn( { 0 } );
   const Profile profile = someProfile();
   if ( unit == none || profile == none || !written_.resolvable() )
      return;
   tell( { .kind = EventKind::threshold, .profile = profile, .thresholdKbps = 100 } );
   tell( { .kind = EventKind::loadInterval, .profile = profile, .loadInterval = 10 } );
   tell(
      { .kind = EventKind::maxDelay,
        .profile = profile,
        .maxDelay = chance_.of( { 10.0, 10.0, 12.0, 15.0 } ) } );
   tell( { .kind = EventKind::shutdown, .profile = profile, .shutdown = true } );
   for ( const Intf intf : written_.members( unit ) ) {
      select( intf, profile );
      if ( is( intf, IntfKind::ethernet ) )
         rateIs( intf, chance_.percent( 50 ) ? busy : 0, 0 );
   }
   tell( { .kind = EventKind::turn } );
   then( [this, unit] { enter( unit ); } );
   pass( 12 );
}

/// Two units that share a group enter one after the other, and what they have is quiet.
void StoryTeller::sceneTwoUnits() {
   const Unit first = someUnitIn( { 0 } );
   const Unit second = someUnitIn( { 0 } );
   if ( first == second || first == none || !written_.resolvable() )
      return;
   const Group group = someGroup();
   for ( const Unit unit : { first, second } ) {
      tell( { .kind = EventKind::mapping, .unit = unit, .group = group } );
      for ( const Intf intf : written_.members( unit ) )
         if ( is( intf, IntfKind::ethernet ) )
            rateIs( intf, 0, 0 );
   }
   then( [this, first] { enter( first ); } );
   pass( 1 + chance_.pick( 20 ) );
   then( [this, second] {
      if ( written_.state( second ) == 0 && written_.resolvable() )
         enter( second );
   } );
   pass( 30 );
}

/// Another unit enters while an interface that it shares is shut.
void StoryTeller::sceneEnterShared() {
   const Unit unit = someUnitIn( { 0 } );
   const Intf intf = someMonitored( [&]( Intf i, const IntfMonitor & m ) {
      return published_.shut.contains( i ) && !m.dependents.contains( unit );
   } );
   if ( unit == none || intf == none || !written_.resolvable() )
      return;
   const auto entry = written_.entries.find( intf );
   if ( entry == written_.entries.end() || entry->second.groups.empty() )
      return;
   tell( { .kind = EventKind::mapping, .unit = unit, .group = chance_.elementOf( entry->second.groups ) } );
   if ( chance_.percent( 50 ) )
      tell( { .kind = EventKind::turn } );
   then( [this, unit] { enter( unit ); } );
   pass( 6 );
}

/// A shared interface is down at the moment at which one of its units leaves: it is watched no longer, though another
/// unit still has it.
void StoryTeller::sceneStopped() {
   const Intf intf = someMonitored( []( Intf, const IntfMonitor & m ) { return m.dependents.size() > 1; } );
   if ( intf == none )
      return;
   const IntfMonitor & monitor = published_.intfMonitors.at( intf );
   const Unit unit = chance_.elementOf( monitor.dependents );
   const int state = written_.state( unit );
   if ( state != 2 && state != 3 )
      return;
   if ( chance_.percent( 70 ) )
      tell( { .kind = EventKind::shutdown, .profile = monitor.profile, .shutdown = false } );
   tell( { .kind = EventKind::turn } );
   tell( { .kind = EventKind::linkDown, .intf = intf } );
   exit( unit );
   tell( { .kind = EventKind::linkUp, .intf = intf } );
   tell( { .kind = EventKind::turn } );
   then( [this] {
      if ( chance_.percent( 70 ) && written_.resolvable() ) {
         tell( { .kind = EventKind::crash } );
         tell( { .kind = EventKind::start } );
      }
   } );
   pass( 6 );
}

/// Traffic comes back to an interface that two units have in maintenance.
void StoryTeller::sceneTwoViolations() {
   const Intf intf = someMonitored( [&]( Intf i, const IntfMonitor & m ) {
      int units = 0;
      for ( const Unit unit : m.dependents )
         units += written_.state( unit ) == 3;
      return units > 1 && m.state == MonState::underMaint && is( i, IntfKind::ethernet );
   } );
   if ( intf == none )
      return;
   const Profile profile = published_.intfMonitors.at( intf ).profile;
   tell( { .kind = EventKind::shutdown, .profile = profile, .shutdown = false } );
   rateIs( intf, busy, 0 );
   pass( 12 );
   then( [this, intf] { rateIs( intf, 0, 0 ); } );
   pass( 12 );
}

void StoryTeller::sceneExitDuringEnter() {
   const Unit unit = someUnitIn( { 0, 2 } );
   if ( unit == none || !written_.resolvable() )
      return;
   for ( const Intf intf : written_.members( unit ) )
      if ( is( intf, IntfKind::ethernet ) && chance_.percent( 60 ) )
         rateIs( intf, busy, 0 );
   if ( written_.state( unit ) == 0 )
      then( [this, unit] { enter( unit ); } );
   pass( 1 + chance_.pick( 12 ) );
   then( [this, unit] {
      if ( written_.state( unit ) == 2 )
         exit( unit );
   } );
}

/// Nothing selects the profile any more, but who holds it has not heard of that.
void StoryTeller::sceneProfileDeletedInUse() {
   const Intf intf =
      someMonitored( [&]( Intf, const IntfMonitor & m ) { return written_.profiles.contains( m.profile ); } );
   const Profile other = someProfile();
   if ( intf == none || someMonitorWithoutProfile() )
      return;
   const Profile profile = published_.intfMonitors.at( intf ).profile;
   if ( other == profile || chance_.percent( 30 ) ) {
      // Or it is taken away from those who select it, and put back.
      settle();
      then( [this] { ++calm_; } );
      then( [this] { settle(); } );
      then( [this, profile] { tell( { .kind = EventKind::profileGone, .profile = profile } ); } );
      pass( 6 );
      then( [this, profile] { makeProfile( profile ); } );
      then( [this, profile] {
         --calm_;
         for ( const auto & [each, entry] : written_.entries )
            if ( entry.selected == profile && chance_.percent( 70 ) ) {
               tell( { .kind = EventKind::selectionGone, .intf = each } );
               select( each, profile );
            }
      } );
      return;
   }
   for ( const auto & [each, entry] : written_.entries )
      if ( entry.selected == profile )
         select( each, other );
   if ( written_.defaultName == profile )
      tell( { .kind = EventKind::defaultName, .profile = other } );
   tell( { .kind = EventKind::profileGone, .profile = profile } );
   pass( 6 );
}

void StoryTeller::sceneProfileRemade() {
   if ( const Profile profile = someProfile(); profile != none && !someMonitorWithoutProfile() )
      makeProfile( profile );
}

/// An interface selects a profile that is made a little later.
void StoryTeller::scenePendingProfile() {
   const Profile profile = chance_.pick( world_.profiles );
   const Profile other = someProfile();
   const Intf intf =
      someMonitored( [&]( Intf i, const IntfMonitor & ) { return written_.entries.contains( i ); } );
   if ( intf == none || other == none || other == profile || someMonitorWithoutProfile() )
      return;
   for ( const auto & [each, entry] : written_.entries )
      if ( entry.selected == profile || each == intf )
         select( each, other );
   if ( written_.defaultName == profile )
      tell( { .kind = EventKind::defaultName, .profile = other } );
   then( [this] { settle(); } );
   then( [this, profile] {
      ++calm_;
      tell( { .kind = EventKind::profileGone, .profile = profile } );
   } );
   then( [this] { settle(); } );
   const bool heard = chance_.percent( 50 );
   then( [this, intf, profile, heard] { select( intf, profile, heard ? 2 : 1 ); } );
   if ( !heard )
      pass( 6 );
   then( [this, profile] { makeProfile( profile ); } );
   then( [this] { --calm_; } );
}

/// The name of the default profile is one that there is not.
void StoryTeller::sceneNoProfile() {
   const Profile profile = someProfile();
   if ( profile == none )
      return;
   then( [this] {
      ++calm_;
      settle();
   } );
   then( [this] {
      const Profile missing = chance_.pick( world_.profiles );
      tell(
         { .kind = EventKind::defaultName,
           .profile = written_.profiles.contains( missing ) ? none : missing } );
   } );
   pass( 7 );
   then( [this] {
      if ( const Unit unit = someUnitIn( { 2, 3 } ); unit != none && chance_.percent( 40 ) )
         exit( unit );
   } );
   pass( 4 );
   then( [this, profile] { tell( { .kind = EventKind::defaultName, .profile = profile } ); } );
   then( [this] { --calm_; } );
}

/// The profile that is selected for an interface goes, and the interface is looked at before there is another one.
void StoryTeller::sceneMissingProfile() {
   const Profile missing = chance_.pick( world_.profiles );
   const Profile other = someProfile();
   const Intf intf = someMonitored( [&]( Intf i, const IntfMonitor & ) {
      const auto entry = written_.entries.find( i );
      if ( entry == written_.entries.end() || !written_.linkUp( i ) )
         return false;
      // Where a unit has still to begin with it, it would need a profile.
      for ( const auto & [unit, monitor] : published_.unitMonitors )
         for ( const Group group : entry->second.groups )
            if ( written_.mappings.contains( { group, unit } ) && !monitor.monitored.contains( i ) )
               return false;
      return true;
   } );
   if (
      intf == none || other == none || written_.profiles.contains( missing ) || !published_.backlog.empty() )
      return;
   ++calm_;
   select( intf, missing );
   tell( { .kind = EventKind::turn } );
   then( [this] { settle(); } );
   pass( 1 + chance_.pick( 12 ) );
   then( [this, intf, other] { select( intf, other ); } );
   then( [this] { settle(); } );
   then( [this] { --calm_; } );
}

/// More interfaces are to be looked at than fit into one run, and others come while it pauses.
void StoryTeller::sceneBurst() {
   for ( int round = 2 + chance_.pick( 5 ); round > 0; --round ) {
      for ( int i = 2 + chance_.pick( 8 ); i > 0; --i ) {
         const Intf intf = someIntf();
         const bool up = written_.linkUp( intf );
         linkIs( intf, !up );
         if ( up )
            linkIs( intf, true );
      }
      for ( int i = 1 + chance_.pick( 3 ); i > 0; --i )
         tell( { .kind = EventKind::turn } );
   }
}

/// Traffic comes back to an interface under maintenance.
void StoryTeller::sceneSpike() {
   const Intf intf = someMonitored( [&]( Intf i, const IntfMonitor & m ) {
      return m.state == MonState::underMaint && is( i, IntfKind::ethernet );
   } );
   if ( intf == none )
      return;
   if ( published_.shut.contains( intf ) )
      tell(
         { .kind = EventKind::shutdown,
           .profile = published_.intfMonitors.at( intf ).profile,
           .shutdown = false } );
   rateIs( intf, chance_.percent( 50 ) ? busy : someRate(), 0 );
   pass( 11 );
}

} // namespace Tests
