#include "Tests/Plugin/Written.h"

namespace Tests {

using Reference::Event;
using Reference::EventKind;
using Reference::none;

namespace {

template < class Map, class Key >
auto * in( Map & map, const Key & key ) {
   const auto at = map.find( key );
   return at == map.end() ? nullptr : &at->second;
}

} // namespace

void Written::apply( const Event & event ) {
   applyLink( event );
   applyGroup( event );
   applyProfile( event );
   applyUnit( event );
   if ( event.kind == EventKind::start )
      running = true;
   if ( event.kind == EventKind::crash || event.kind == EventKind::unload )
      running = false;
}

void Written::applyLink( const Event & event ) {
   switch ( event.kind ) {
   case EventKind::linkUp:
   case EventKind::linkDown:
      links[event.intf] = event.kind == EventKind::linkUp;
      break;
   case EventKind::linkGone:
      links.erase( event.intf );
      break;
   case EventKind::octets:
      counters.insert( event.intf );
      break;
   case EventKind::countersGone:
      counters.erase( event.intf );
      break;
   case EventKind::lagMember:
      lag[event.intf] = event.other;
      break;
   case EventKind::lagMemberGone:
      lag.erase( event.intf );
      break;
   case EventKind::vlanMade:
      vlans[event.number];
      break;
   case EventKind::vlanGone:
      vlans.erase( event.number );
      break;
   case EventKind::vlanMember:
      if ( auto * ports = in( vlans, event.number ) )
         ports->insert( event.intf );
      break;
   case EventKind::vlanMemberGone:
      if ( auto * ports = in( vlans, event.number ) )
         ports->erase( event.intf );
      break;
   default:
      break;
   }
}

void Written::applyGroup( const Event & event ) {
   Entry * const entry = in( entries, event.intf );
   auto * const group = in( groups, event.group );
   switch ( event.kind ) {
   case EventKind::entryMade:
      entries[event.intf];
      break;
   case EventKind::entryGone:
      entries.erase( event.intf );
      break;
   case EventKind::entryGroup:
      if ( entry )
         entry->groups.insert( event.group );
      break;
   case EventKind::entryGroupGone:
      if ( entry )
         entry->groups.erase( event.group );
      break;
   case EventKind::selection:
      if ( entry )
         entry->selected = event.profile;
      break;
   case EventKind::selectionGone:
      if ( entry )
         entry->selected.reset();
      break;
   case EventKind::groupMade:
      groups[event.group];
      break;
   case EventKind::groupGone:
      groups.erase( event.group );
      break;
   case EventKind::groupIntf:
      if ( group )
         group->insert( event.intf );
      break;
   case EventKind::groupIntfGone:
      if ( group )
         group->erase( event.intf );
      break;
   case EventKind::mapping:
      mappings.emplace( event.group, event.unit );
      break;
   case EventKind::mappingGone:
      mappings.erase( { event.group, event.unit } );
      break;
   default:
      break;
   }
}

void Written::applyProfile( const Event & event ) {
   Profile * const profile = in( profiles, event.profile );
   switch ( event.kind ) {
   case EventKind::profileMade:
      profiles[event.profile] = { event.thresholdKbps, event.loadInterval, event.shutdown, event.maxDelay };
      break;
   case EventKind::profileGone:
      profiles.erase( event.profile );
      break;
   case EventKind::threshold:
      if ( profile )
         profile->thresholdKbps = event.thresholdKbps;
      break;
   case EventKind::loadInterval:
      if ( profile )
         profile->loadInterval = event.loadInterval;
      break;
   case EventKind::shutdown:
      if ( profile )
         profile->shutdown = event.shutdown;
      break;
   case EventKind::maxDelay:
      if ( profile )
         profile->maxDelay = event.maxDelay;
      break;
   case EventKind::defaultName:
      defaultName = event.profile;
      break;
   default:
      break;
   }
}

void Written::applyUnit( const Event & event ) {
   Unit * const unit = in( units, event.unit );
   switch ( event.kind ) {
   case EventKind::unitMade:
      units[event.unit];
      break;
   case EventKind::unitGone:
      units.erase( event.unit );
      break;
   case EventKind::unitState:
      if ( unit )
         unit->state = event.number;
      break;
   case EventKind::unitGeneration:
      if ( unit )
         unit->generation = event.number;
      break;
   case EventKind::unitInstance:
      if ( unit )
         ( event.stageClass == Reference::StageClass::enter ? unit->enter : unit->exit ) = event.number;
      break;
   case EventKind::progressMade:
      progress.insert( { event.stageClass, event.unit, event.number } );
      break;
   case EventKind::progressGone:
      progress.erase( { event.stageClass, event.unit, event.number } );
      break;
   default:
      break;
   }
}

bool Written::linkUp( Reference::Intf intf ) const {
   const bool * up = in( links, intf );
   return up && *up;
}

Reference::Profile Written::resolved( Reference::Intf intf ) const {
   const Entry * entry = in( entries, intf );
   if ( !entry || !entry->selected )
      return none;
   const Reference::Profile name =
      *entry->selected == Reference::defaultProfile ? defaultName : *entry->selected;
   return profiles.contains( name ) ? name : none;
}

bool Written::resolvable() const {
   for ( const auto & [intf, entry] : entries )
      if ( entry.selected && resolved( intf ) == none )
         return false;
   for ( const auto & [group, intfs] : groups )
      for ( const Reference::Intf intf : intfs )
         if ( resolved( intf ) == none )
            return false;
   return true;
}

std::set< Reference::Intf > Written::members( Reference::Unit unit ) const {
   std::set< Reference::Intf > result;
   for ( const auto & [group, mapped] : mappings )
      if ( const auto * intfs = mapped == unit ? in( groups, group ) : nullptr )
         result.insert( intfs->begin(), intfs->end() );
   return result;
}

int Written::state( Reference::Unit unit ) const {
   const Unit * status = in( units, unit );
   return status ? status->state : none;
}

} // namespace Tests
