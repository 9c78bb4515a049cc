#include "Tests/Reference/Model.h"

#include "Tests/Reference/Rules.h"

namespace Reference {

Model::Model( const World & world ) : rules_( std::make_unique< Rules >( world ) ) {}
Model::~Model() = default;

void Model::apply( const Event & event ) { rules_->apply( event ); }
const Published & Model::published() const { return rules_->published; }
const std::vector< Decision > & Model::decisions() const { return rules_->decisions; }

Model::Rules::Rules( const World & world )
   : world_( world ), now_( world.start ), live_( world.start ), target_( world.start ) {}

void Model::Rules::apply( const Event & event ) {
   decisions.clear();
   if ( event.kind <= EventKind::vlanMemberGone )
      applyToLinks( event );
   else if ( event.kind <= EventKind::mappingGone )
      applyToGroups( event );
   else if ( event.kind <= EventKind::defaultName )
      applyToProfiles( event );
   else if ( event.kind <= EventKind::unitInstance )
      applyToUnits( event );
   else if ( event.kind <= EventKind::completionGone )
      applyToStages( event );
   else
      applyToLoop( event );
   std::sort(
      decisions.begin(), decisions.end(), []( const Decision & a, const Decision & b ) { return a < b; } );
}

void Model::Rules::decide( Decision::Kind kind, int who, int other ) {
   decisions.push_back( { kind, who, other, now_ } );
}

IntfKind Model::Rules::kindOf( Intf intf ) const {
   return world_.intfs.at( static_cast< std::size_t >( intf ) ).kind;
}

void Model::Rules::applyToLinks( const Event & event ) {
   switch ( event.kind ) {
   case EventKind::linkUp:
   case EventKind::linkDown:
      linkIs( event.intf, event.kind == EventKind::linkUp );
      break;
   case EventKind::linkGone:
      if ( inputs_.links.erase( event.intf ) != 0 )
         addToBacklog( event.intf );
      break;
   case EventKind::octets:
      inputs_.octets[event.intf] = { event.in, event.out };
      break;
   case EventKind::countersGone:
      inputs_.octets.erase( event.intf );
      break;
   case EventKind::lagMember:
      inputs_.lagOfPort.make( event.intf ) = event.other;
      break;
   case EventKind::lagMemberGone:
      inputs_.lagOfPort.del( event.intf );
      break;
   case EventKind::vlanMade:
      inputs_.vlans.try_emplace( event.number );
      break;
   case EventKind::vlanGone:
      inputs_.vlans.erase( event.number );
      break;
   case EventKind::vlanMember:
      if ( Sequence< Intf > * const ports = find( inputs_.vlans, event.number ) )
         ports->add( event.intf );
      break;
   case EventKind::vlanMemberGone:
      if ( Sequence< Intf > * const ports = find( inputs_.vlans, event.number ) )
         ports->del( event.intf );
      break;
   default:
      break;
   }
}

void Model::Rules::linkIs( Intf intf, bool up ) {
   const auto [at, made] = inputs_.links.emplace( intf, up );
   if ( !made && at->second == up )
      return;
   at->second = up;
   addToBacklog( intf );
}

/// Joining is left to the backlog, leaving takes effect at once.
void Model::Rules::applyToGroups( const Event & event ) {
   Entry * const entry = find( inputs_.entries, event.intf );
   switch ( event.kind ) {
   case EventKind::entryMade:
      if ( inputs_.entries.try_emplace( event.intf ).second )
         addToBacklog( event.intf );
      break;
   case EventKind::entryGone:
      if ( inputs_.entries.erase( event.intf ) != 0 )
         addToBacklog( event.intf );
      break;
   case EventKind::entryGroup:
      if ( entry && entry->groups.add( event.group ) )
         addToBacklog( event.intf );
      break;
   case EventKind::entryGroupGone:
      if ( entry && entry->groups.del( event.group ) )
         if ( const Sequence< Unit > * const units = find( inputs_.unitsOfGroup, event.group ) )
            for ( const Unit unit : *units )
               removeIfNoMember( event.intf, unit );
      break;
   case EventKind::groupMade:
      inputs_.groups.try_emplace( event.group );
      break;
   case EventKind::groupGone:
      inputs_.groups.erase( event.group );
      break;
   case EventKind::groupIntf:
      if ( Sequence< Intf > * const intfs = find( inputs_.groups, event.group ) )
         intfs->add( event.intf );
      break;
   case EventKind::groupIntfGone:
      if ( Sequence< Intf > * const intfs = find( inputs_.groups, event.group ) )
         intfs->del( event.intf );
      break;
   case EventKind::mapping:
      mappingIs( event.group, event.unit );
      break;
   case EventKind::mappingGone:
      mappingDel( event.group, event.unit );
      break;
   default:
      if ( entry )
         applyToSelection( *entry, event );
   }
}

/// Only a change that is a selection is acted on; one that comes with a change of groups is acted on as that.
void Model::Rules::applyToSelection( Entry & entry, const Event & event ) {
   constexpr int selectionCause = 2;
   if ( event.kind == EventKind::selectionCause ) {
      entry.cause = event.number;
      return;
   }
   const std::optional< Profile > before = entry.selected;
   entry.selected =
      event.kind == EventKind::selection ? std::optional< Profile >( event.profile ) : std::nullopt;
   if ( entry.selected != before && entry.cause == selectionCause )
      addToBacklog( event.intf );
}

void Model::Rules::mappingIs( Group group, Unit unit ) {
   if ( !inputs_.unitsOfGroup[group].add( unit ) )
      return;
   inputs_.groupsOfUnit[unit].add( group );
   if ( const Sequence< Intf > * const intfs = find( inputs_.groups, group ) )
      for ( const Intf intf : *intfs )
         addToBacklog( intf );
}

void Model::Rules::mappingDel( Group group, Unit unit ) {
   Sequence< Unit > * const units = find( inputs_.unitsOfGroup, group );
   if ( !units || !units->del( unit ) )
      return;
   inputs_.groupsOfUnit[unit].del( group );
   if ( const Sequence< Intf > * const intfs = find( inputs_.groups, group ) )
      for ( const Intf intf : *intfs )
         removeIfNoMember( intf, unit );
   if ( units->empty() )
      inputs_.unitsOfGroup.erase( group );
}

void Model::Rules::applyToProfiles( const Event & event ) {
   const auto at = inputs_.profiles.find( event.profile );
   const ProfilePointer profile = at == inputs_.profiles.end() ? nullptr : at->second;
   if ( event.kind == EventKind::defaultName ) {
      if ( std::exchange( inputs_.defaultName, event.profile ) != event.profile )
         handleDefaultName();
   } else if ( event.kind == EventKind::profileMade ) {
      if ( inputs_.profiles.erase( event.profile ) != 0 )
         handleProfileGone( event.profile );
      inputs_.profiles[event.profile] = std::make_shared< ProfileObject >( ProfileObject{
         event.profile, event.thresholdKbps, event.loadInterval, event.shutdown, event.maxDelay } );
      handleProfileMade( event.profile );
   } else if ( !profile ) {
      return;
   } else if ( event.kind == EventKind::profileGone ) {
      inputs_.profiles.erase( event.profile );
      handleProfileGone( event.profile );
   } else if ( event.kind == EventKind::threshold ) {
      profile->thresholdKbps = event.thresholdKbps;
   } else if ( event.kind == EventKind::loadInterval ) {
      profile->loadInterval = event.loadInterval;
   } else if ( event.kind == EventKind::maxDelay ) {
      profile->maxDelay = event.maxDelay;
   } else if ( std::exchange( profile->shutdown, event.shutdown ) != event.shutdown ) {
      handleShutdown( profile );
   }
}

void Model::Rules::applyToUnits( const Event & event ) {
   UnitInput * const unit = inputs_.units.find( event.unit );
   if ( event.kind == EventKind::unitMade ) {
      inputs_.units.make( event.unit );
      published.units.try_emplace( event.unit );
   } else if ( !unit ) {
      return;
   } else if ( event.kind == EventKind::unitGone ) {
      inputs_.units.del( event.unit );
      published.units.erase( event.unit );
      if ( unitMons_.find( event.unit ) ) {
         count( numUnitStatusDel );
         deleteUnitMon( event.unit );
      }
   } else if ( event.kind == EventKind::unitState ) {
      unit->state = event.number;
   } else if ( event.kind == EventKind::unitGeneration ) {
      unit->generation = event.number;
   } else {
      unit->instance[static_cast< std::size_t >( event.stageClass )] = event.number;
   }
}

void Model::Rules::applyToStages( const Event & event ) {
   constexpr int ourStage = 1;
   StageInputs & stage = inputs_.stage( event.stageClass );
   const Instance instance( event.unit, event.number );
   Progress * const progress = find( stage.progress, instance );
   switch ( event.kind ) {
   case EventKind::progressMade:
      stage.progress.try_emplace( instance );
      break;
   case EventKind::progressGone:
      stage.progress.erase( instance );
      break;
   case EventKind::stageStatus:
      if ( progress )
         progress->status = event.value;
      break;
   case EventKind::stage:
      if (
         progress && std::exchange( progress->stage, event.other ) != event.other && running_ &&
         event.other == ourStage )
         handleStage( event.stageClass, event.unit, event.number );
      break;
   case EventKind::completionMade:
      stage.completionStatus.insert( instance );
      break;
   case EventKind::completionGone:
      // The instance is done with: nobody asks any more what was completed of it.
      if ( stage.completionStatus.erase( instance ) != 0 && running_ )
         published.complete.erase( { event.stageClass, event.unit, event.number } );
      break;
   default:
      break;
   }
}

void Model::Rules::applyToLoop( const Event & event ) {
   switch ( event.kind ) {
   case EventKind::turn:
      turn();
      break;
   case EventKind::time:
      runTo( std::max( event.to, now_ ) );
      break;
   case EventKind::start:
      if ( !running_ ) {
         start();
         runTo( now_ );
      }
      break;
   case EventKind::crash:
      crash();
      break;
   case EventKind::unload:
      if ( running_ )
         unload();
      break;
   default:
      break;
   }
}

} // namespace Reference
