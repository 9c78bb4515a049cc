#include "Tests/Plugin/StoryTeller.h"

#include <limits>

/// What operators and the framework of stages do, in the orders that they keep.
namespace Tests {

using Reference::none;

// ---- units and stages

void StoryTeller::stepUnit() {
   const Unit unit = someUnit();
   const int state = written_.state( unit );
   if ( state == 0 && written_.resolvable() )
      enter( unit );
   else if ( state == 3 || ( state == 2 && chance_.percent( 35 ) ) )
      exit( unit );
}

void StoryTeller::startStage( StageClass stageClass, Unit unit, int generation ) {
   const auto tellOf = [&]( Event event ) {
      event.stageClass = stageClass;
      event.unit = unit;
      event.number = generation;
      tell( event );
   };
   tellOf( { .kind = EventKind::progressMade } );
   if ( chance_.percent( 20 ) )
      tellOf( { .kind = EventKind::stage, .other = 2 } );
   tellOf( { .kind = EventKind::stageStatus, .value = 1 } );
   tellOf( { .kind = EventKind::completionMade } );
   tellOf( { .kind = EventKind::stage, .other = 1 } );
}

void StoryTeller::retire( StageClass stageClass, Unit unit, int generation ) {
   if ( generation == none )
      return;
   tell( { .kind = EventKind::progressGone, .unit = unit, .number = generation, .stageClass = stageClass } );
   tell(
      { .kind = EventKind::completionGone, .unit = unit, .number = generation, .stageClass = stageClass } );
}

void StoryTeller::enter( Unit unit ) {
   const int generation = ++generations_[unit];
   tell( { .kind = EventKind::unitState, .unit = unit, .number = 2 } );
   tell( { .kind = EventKind::unitGeneration, .unit = unit, .number = generation } );
   tell( { .kind = EventKind::unitInstance, .unit = unit, .number = generation } );
   tell( { .kind = EventKind::unitInstance, .unit = unit, .number = none, .stageClass = StageClass::exit } );
   startStage( StageClass::enter, unit, generation );
}

void StoryTeller::exit( Unit unit ) {
   const int generation = ++generations_[unit];
   // Now and then the state of the unit is written last.
   const bool late = chance_.percent( 15 );
   retire( StageClass::enter, unit, written_.units.at( unit ).enter );
   if ( !late )
      tell( { .kind = EventKind::unitState, .unit = unit, .number = 5 } );
   tell( { .kind = EventKind::unitGeneration, .unit = unit, .number = generation } );
   tell( { .kind = EventKind::unitInstance, .unit = unit, .number = none } );
   tell(
      { .kind = EventKind::unitInstance,
        .unit = unit,
        .number = generation,
        .stageClass = StageClass::exit } );
   startStage( StageClass::exit, unit, generation );
   if ( late )
      tell( { .kind = EventKind::unitState, .unit = unit, .number = 5 } );
}

/// The framework sees what is complete and goes on some time later.
void StoryTeller::frameworkLooks() {
   for ( const auto & [unit, status] : written_.units ) {
      const int state = status.state;
      if ( state != 2 && state != 5 )
         continue;
      const StageClass stageClass = state == 2 ? StageClass::enter : StageClass::exit;
      const int generation = state == 2 ? status.enter : status.exit;
      if ( !published_.complete.contains( { stageClass, unit, generation } ) || chance_.percent( 60 ) )
         continue;
      if ( state == 2 ) {
         tell( { .kind = EventKind::unitState, .unit = unit, .number = 3 } );
         if ( chance_.percent( 30 ) )
            tell( { .kind = EventKind::stageStatus, .unit = unit, .number = generation } );
         continue;
      }
      retire( StageClass::exit, unit, generation );
      tell(
         { .kind = EventKind::unitInstance, .unit = unit, .number = none, .stageClass = StageClass::exit } );
      tell( { .kind = EventKind::unitState, .unit = unit, .number = 0 } );
   }
}

/// A unit goes with its instances, and comes back as a new one.
void StoryTeller::stepUnitStatus() {
   const Unit unit = someUnit();
   const auto status = written_.units.find( unit );
   if ( status == written_.units.end() ) {
      tell( { .kind = EventKind::unitMade, .unit = unit } );
      return;
   }
   tell( { .kind = EventKind::unitGone, .unit = unit } );
   retire( StageClass::enter, unit, status->second.enter );
   retire( StageClass::exit, unit, status->second.exit );
   if ( chance_.percent( 50 ) )
      tell( { .kind = EventKind::unitMade, .unit = unit } );
}

void StoryTeller::stepUnruly() {
   if ( !manner_.unruly )
      return;
   const Unit unit = someUnit();
   const int state = written_.state( unit );
   if ( state == none || !written_.resolvable() )
      return;
   switch ( chance_.pick( 5 ) ) {
   case 0: // a second enter without an exit
      enter( unit );
      break;
   case 1: // an exit out of nowhere
      exit( unit );
      break;
   case 2: // the stage is set back while it runs
      if ( const int running = written_.units.at( unit ).enter; running != none && state == 2 )
         tell( { .kind = EventKind::stageStatus, .unit = unit, .number = running, .value = 0 } );
      break;
   case 3: // and begun again
      if ( const int running = written_.units.at( unit ).enter; running != none ) {
         tell( { .kind = EventKind::stage, .unit = unit, .number = running, .other = 2 } );
         tell( { .kind = EventKind::stage, .unit = unit, .number = running, .other = 1 } );
      }
      break;
   default: // an exit of the same generation, while the enter stands
      if ( const int running = written_.units.at( unit ).enter; running != none ) {
         tell(
            { .kind = EventKind::unitInstance,
              .unit = unit,
              .number = running,
              .stageClass = StageClass::exit } );
         startStage( StageClass::exit, unit, running );
         tell( { .kind = EventKind::unitState, .unit = unit, .number = 5 } );
      }
   }
}

// ---- groups

/// The profile of an interface is selected before the group shows it.
void StoryTeller::join( Intf intf, Group group ) {
   if ( !written_.entries.contains( intf ) ) {
      tell( { .kind = EventKind::entryMade, .intf = intf } );
      select( intf, Reference::defaultProfile );
   } else if ( written_.resolved( intf ) == none )
      select( intf, Reference::defaultProfile );
   if ( !written_.groups.contains( group ) )
      tell( { .kind = EventKind::groupMade, .group = group } );
   const Event toEntry{ .kind = EventKind::entryGroup, .intf = intf, .group = group };
   const Event toGroup{ .kind = EventKind::groupIntf, .intf = intf, .group = group };
   const bool entryFirst = chance_.percent( 70 );
   tell( entryFirst ? toEntry : toGroup );
   tell( entryFirst ? toGroup : toEntry );
}

void StoryTeller::leave( Intf intf, Group group ) {
   tell( { .kind = EventKind::groupIntfGone, .intf = intf, .group = group } );
   tell( { .kind = EventKind::entryGroupGone, .intf = intf, .group = group } );
}

void StoryTeller::stepGroup() {
   const Intf intf = someIntf();
   const auto entry = written_.entries.find( intf );
   if ( entry == written_.entries.end() || entry->second.groups.empty() || chance_.percent( 35 ) ) {
      join( intf, someGroup() );
      return;
   }
   const Group group = chance_.elementOf( entry->second.groups );
   switch ( chance_.pick( 8 ) ) {
   case 0: { // the whole group
      if ( const auto there = written_.groups.find( group ); there != written_.groups.end() ) {
         const auto intfs = there->second;
         tell( { .kind = EventKind::groupGone, .group = group } );
         for ( const Intf member : intfs )
            tell( { .kind = EventKind::entryGroupGone, .intf = member, .group = group } );
      }
      break;
   }
   case 1: // the entry goes before the group shows it
      if ( chance_.percent( 50 ) )
         tell( { .kind = EventKind::selectionGone, .intf = intf } );
      tell( { .kind = EventKind::entryGone, .intf = intf } );
      if ( chance_.percent( 50 ) )
         tell( { .kind = EventKind::turn } );
      for ( const Group each : entry->second.groups )
         tell( { .kind = EventKind::groupIntfGone, .intf = intf, .group = each } );
      break;
   case 2: // out of all groups, then the entry
      for ( const Group each : entry->second.groups )
         leave( intf, each );
      tell( { .kind = EventKind::entryGone, .intf = intf } );
      break;
   case 3:
   case 4: { // into another group first
      const Group other = someGroup();
      join( intf, other );
      if ( other != group )
         leave( intf, group );
      break;
   }
   default:
      leave( intf, group );
   }
}

void StoryTeller::stepMapping() {
   const Group group = someGroup();
   const Unit unit = someUnit();
   const bool mapped = written_.mappings.contains( { group, unit } );
   tell( { .kind = mapped ? EventKind::mappingGone : EventKind::mapping, .unit = unit, .group = group } );
}

// ---- profiles

void StoryTeller::select( Intf intf, Profile profile, int cause ) {
   tell( { .kind = EventKind::selectionCause, .intf = intf, .number = cause } );
   tell( { .kind = EventKind::selection, .intf = intf, .profile = profile } );
}

void StoryTeller::stepSelection() {
   const Profile profile = someProfile();
   if ( written_.entries.empty() || profile == none )
      return;
   const Intf intf = chance_.elementOf( written_.entries ).first;
   const bool byName = chance_.percent( 60 ) || !written_.profiles.contains( written_.defaultName );
   select( intf, byName ? profile : Reference::defaultProfile, chance_.percent( 85 ) ? 2 : 1 );
}

void StoryTeller::makeProfile( Profile profile ) {
   tell(
      { .kind = EventKind::profileMade,
        .profile = profile,
        .thresholdKbps = chance_.of( { 8.0, 80.0, 100.0, 1000.0, 1000.0, 0.5, 0.0 } ),
        .loadInterval = chance_.of( { 0u, 5u, 7u, 10u, 10u, 12u, 15u, 25u } ),
        .shutdown = chance_.percent( 60 ),
        .maxDelay = chance_.of(
           { 0.0, 4.5, 10.0, 10.0, 12.0, 15.0, 20.0, 30.0, 300.0,
             std::numeric_limits< double >::infinity() } ) } );
}

void StoryTeller::editProfile( Profile profile ) {
   switch ( chance_.pick( 5 ) ) {
   case 0:
      tell(
         { .kind = EventKind::threshold,
           .profile = profile,
           .thresholdKbps = chance_.of( { 8.0, 80.0, 100.0, 1000.0 } ) } );
      break;
   case 1:
      tell(
         { .kind = EventKind::loadInterval,
           .profile = profile,
           .loadInterval = static_cast< std::uint32_t >( chance_.pick( 25 ) ) } );
      break;
   case 2:
      tell(
         { .kind = EventKind::maxDelay,
           .profile = profile,
           .maxDelay = chance_.of( { 0.0, 7.0, 10.0, 25.0, 60.0 } ) } );
      break;
   default:
      tell( { .kind = EventKind::shutdown, .profile = profile, .shutdown = chance_.percent( 50 ) } );
   }
}

void StoryTeller::stepProfile() {
   const Profile profile = chance_.pick( world_.profiles );
   if ( written_.profiles.contains( profile ) ) {
      editProfile( profile );
      return;
   }
   if ( !someMonitorWithoutProfile() )
      makeProfile( profile );
}

void StoryTeller::stepDefault() {
   if ( const Profile profile = someProfile(); profile != none )
      tell( { .kind = EventKind::defaultName, .profile = profile } );
}

} // namespace Tests
