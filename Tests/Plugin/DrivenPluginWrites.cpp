#include "Tests/Plugin/DrivenPlugin.h"
#include "Tests/Plugin/PluginNames.h"

/// Each event as the one write that it stands for. What it needs and does not find makes it nothing.
namespace Tests {

using Maintenance::Profile::ProfileType;
using Reference::EventKind;

bool DrivenPlugin::writeLink( const Event & event ) {
   auto & links = *rig_.allIntfStatusDir;
   const auto vlan = [&] {
      return rig_.vlanStatusDir->vlanStatus( Bridging::VlanId( static_cast< Vel::U32 >( event.number ) ) );
   };
   switch ( event.kind ) {
   case EventKind::linkUp:
      links.intfStatusIs( id( event.intf ) )->operStatusIs( Interface::operUp );
      return true;
   case EventKind::linkDown:
      links.intfStatusIs( id( event.intf ) )->operStatusIs( Interface::operDown );
      return true;
   case EventKind::linkGone:
      links.intfStatusDel( id( event.intf ) );
      return true;
   case EventKind::octets: {
      auto * counter = rig_.phyCounterDir->intfCounterDirIs( id( event.intf ) )->counterIs( "current" );
      counter->statisticsIs( { event.in, event.out ? Cog::MaybeU63( *event.out ) : Cog::MaybeU63::none() } );
      return true;
   }
   case EventKind::countersGone:
      rig_.phyCounterDir->intfCounterDirDel( id( event.intf ) );
      return true;
   case EventKind::lagMember:
      rig_.lagConfig->phyIntfIs( id( event.intf ) )
         ->portChannelIs( event.other == Reference::none ? Wire::IntfId() : id( event.other ) );
      return true;
   case EventKind::lagMemberGone:
      rig_.lagConfig->phyIntfDel( id( event.intf ) );
      return true;
   case EventKind::vlanMade:
      rig_.vlanStatusDir->vlanStatusIs( Bridging::VlanId( static_cast< Vel::U32 >( event.number ) ) );
      return true;
   case EventKind::vlanGone:
      rig_.vlanStatusDir->vlanStatusDel( Bridging::VlanId( static_cast< Vel::U32 >( event.number ) ) );
      return true;
   case EventKind::vlanMember:
      if ( auto * status = vlan() )
         status->vlanPortStatusIs( id( event.intf ) );
      return true;
   case EventKind::vlanMemberGone:
      if ( auto * status = vlan() )
         status->vlanPortStatusDel( id( event.intf ) );
      return true;
   default:
      return false;
   }
}

bool DrivenPlugin::writeConfiguration( const Event & event ) {
   const auto entry = [&] { return rig_.intfToGroupDir->intfToGroup( id( event.intf ) ); };
   const auto group = [&] { return rig_.intfGroupStatusDir->status( groupKey( event.group ) ); };
   switch ( event.kind ) {
   case EventKind::entryMade:
      rig_.intfToGroupDir->intfToGroupIs( id( event.intf ) );
      return true;
   case EventKind::entryGone:
      rig_.intfToGroupDir->intfToGroupDel( id( event.intf ) );
      return true;
   case EventKind::entryGroup:
      if ( auto * e = entry() )
         e->groupIs( groupKey( event.group ) );
      return true;
   case EventKind::entryGroupGone:
      if ( auto * e = entry() )
         e->groupDel( groupKey( event.group ) );
      return true;
   case EventKind::selectionCause:
      if ( auto * e = entry() )
         e->profileChangeCauseIs( static_cast< Maintenance::ProfileChangeCause >( event.number ) );
      return true;
   case EventKind::selection:
      if ( auto * e = entry() )
         e->selectedProfileIs(
            ProfileType::interfaceProfile,
            { ProfileType::interfaceProfile, event.profile == Reference::defaultProfile
                                                ? Maintenance::Profile::defaultProfileName
                                                : profileName( event.profile ) } );
      return true;
   case EventKind::selectionGone:
      if ( auto * e = entry() )
         e->selectedProfileDel( ProfileType::interfaceProfile );
      return true;
   case EventKind::groupMade:
      rig_.intfGroupStatusDir->statusIs( groupKey( event.group ) );
      return true;
   case EventKind::groupGone:
      rig_.intfGroupStatusDir->statusDel( groupKey( event.group ) );
      return true;
   case EventKind::groupIntf:
      if ( auto * g = group() )
         g->intfIs( id( event.intf ) );
      return true;
   case EventKind::groupIntfGone:
      if ( auto * g = group() )
         g->intfDel( id( event.intf ) );
      return true;
   case EventKind::mapping:
      rig_.groupToUnitDir->mappingIs( groupKey( event.group ), unitName( event.unit ) );
      return true;
   case EventKind::mappingGone: {
      const auto key = groupKey( event.group );
      rig_.groupToUnitDir->mappingDel( key, unitName( event.unit ) );
      const auto * mapped = rig_.groupToUnitDir->groupToUnit( key );
      if ( mapped && mapped->unitNames() == 0 )
         rig_.groupToUnitDir->groupToUnitDel( key );
      return true;
   }
   default:
      return false;
   }
}

bool DrivenPlugin::writeProfile( const Event & event ) {
   auto & dir = *rig_.intfProfileStatusDir;
   const auto name = [&] { return profileName( event.profile ); };
   switch ( event.kind ) {
   case EventKind::profileMade: {
      dir.statusDel( name() );
      auto profile = Vel::make< IntfMaintenanceProfile::Status >( name() );
      profile->drainWatchThresholdInKbpsIs( event.thresholdKbps );
      profile->drainWatchLoadIntervalIs( event.loadInterval );
      profile->shutdownIs( event.shutdown );
      profile->shutdownMaxDelayIs( event.maxDelay );
      dir.statusPut( name(), profile );
      return true;
   }
   case EventKind::profileGone:
      dir.statusDel( name() );
      return true;
   case EventKind::threshold:
      if ( auto * profile = dir.status( name() ) )
         profile->drainWatchThresholdInKbpsIs( event.thresholdKbps );
      return true;
   case EventKind::loadInterval:
      if ( auto * profile = dir.status( name() ) )
         profile->drainWatchLoadIntervalIs( event.loadInterval );
      return true;
   case EventKind::shutdown:
      if ( auto * profile = dir.status( name() ) )
         profile->shutdownIs( event.shutdown );
      return true;
   case EventKind::maxDelay:
      if ( auto * profile = dir.status( name() ) )
         profile->shutdownMaxDelayIs( event.maxDelay );
      return true;
   case EventKind::defaultName:
      rig_.defaultProfile->profileNameIs( name() );
      return true;
   default:
      return false;
   }
}

bool DrivenPlugin::writeUnit( const Event & event ) {
   auto & dir = *rig_.unitStatusDir;
   const auto status = [&] { return dir.status( unitName( event.unit ) ); };
   switch ( event.kind ) {
   case EventKind::unitMade:
      dir.statusIs( unitName( event.unit ) );
      return true;
   case EventKind::unitGone:
      dir.statusDel( unitName( event.unit ) );
      return true;
   case EventKind::unitState:
      if ( auto * unit = status() )
         unit->stateIs( static_cast< Maintenance::Unit::UnitState >( event.number ) );
      return true;
   case EventKind::unitGeneration:
      if ( auto * unit = status() )
         unit->genIdIs( static_cast< Vel::U32 >( event.number ) );
      return true;
   case EventKind::unitInstance:
      if ( auto * unit = status() ) {
         const auto name = instanceName( event.unit, event.number );
         if ( event.stageClass == Reference::StageClass::enter )
            unit->maintEnterInstanceNameIs( name );
         else
            unit->maintExitInstanceNameIs( name );
      }
      return true;
   default:
      return false;
   }
}

bool DrivenPlugin::writeInstance( const Event & event ) {
   auto & stages = event.stageClass == Reference::StageClass::enter ? rig_.enterClass : rig_.exitClass;
   const auto name = [&] { return instanceName( event.unit, event.number ); };
   switch ( event.kind ) {
   case EventKind::progressMade:
      stages.progressDir->progressIs( name() );
      return true;
   case EventKind::progressGone:
      stages.progressDir->progressDel( name() );
      return true;
   case EventKind::stageStatus:
      if ( auto * progress = stages.progressDir->progress( name() ) )
         progress->stageStatusIs( MaintenanceMode::stageName, event.value );
      return true;
   case EventKind::stage:
      if ( auto * progress = stages.progressDir->progress( name() ) )
         progress->stageIs( event.other == 1 ? MaintenanceMode::stageName : Vel::String( "another" ) );
      return true;
   case EventKind::completionMade:
      stages.completionStatus->statusIs( name(), Stage::stageRunning );
      return true;
   case EventKind::completionGone:
      stages.completionStatus->statusDel( name() );
      return true;
   default:
      return false;
   }
}

} // namespace Tests
