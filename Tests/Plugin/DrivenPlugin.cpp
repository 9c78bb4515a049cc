#include "Tests/Plugin/DrivenPlugin.h"

#include "Tests/Plugin/PluginNames.h"

#include <algorithm>

namespace Tests {

using Reference::EventKind;

DrivenPlugin::DrivenPlugin( const Reference::World & world )
   : units_( world.units ), backlogQuantum_( world.backlogQuantum ), itemCost_( world.itemCost ) {
   for ( std::size_t i = 0; i < world.intfs.size(); ++i )
      ids_.push_back( intfId( world.intfs[i], static_cast< int >( i ) ) );
   VEL_ASSERT( ids_.size() <= maxIntfs && std::is_sorted( ids_.begin(), ids_.end() ), "ids in order" );
   rig_.clock->timeIs( world.start );
   watchEntities();
   readStatus();
}

DrivenPlugin::~DrivenPlugin() {
   stop();
   watchEntitiesDel();
}

void DrivenPlugin::apply( const Event & event ) {
   decisions_.clear();
   if (
      !writeLink( event ) && !writeConfiguration( event ) && !writeProfile( event ) && !writeUnit( event ) &&
      !writeInstance( event ) )
      passTime( event );
   std::sort( decisions_.begin(), decisions_.end() );
   readStatus();
   readUnits();
   readComplete();
   readMonitors();
}

void DrivenPlugin::passTime( const Event & event ) {
   switch ( event.kind ) {
   case EventKind::turn:
      rig_.clock->runTurn();
      break;
   case EventKind::time:
      // The time may have come already while something was being done.
      rig_.clock->timeIs( std::max( event.to, rig_.now() ) );
      break;
   case EventKind::start:
      if ( !rig_.root )
         start();
      break;
   case EventKind::crash:
      if ( rig_.root ) {
         stop();
         watchEntitiesDel();
         rig_.crash();
         watchEntities();
      }
      break;
   case EventKind::unload:
      if ( rig_.root ) {
         counters_.del();
         rig_.stop();
         stop();
      }
      break;
   default:
      VEL_ASSERT( false, "the event is known" );
   }
}

// ---- the plug-in's life

void DrivenPlugin::start() {
   rig_.begin();
   auto & root = *rig_.root;
   root.intfStatusSm()->backlogQuantumIs( backlogQuantum_ );
   monitored_.is( root.unitMonIntfInput(), this, Kind::joined, Kind::left ).hasNotificationActiveIs( true );
   drained_.is( root.unitDrainedIntf(), this, Kind::drained, Kind::notDrained )
      .hasNotificationActiveIs( true );
   // What was restored before anybody could watch.
   for ( const auto & dir : { monitored_.get(), drained_.get() } )
      for ( const auto & [unit, input] : dir->entity()->unitIntfInputRange() )
         dir->watch( unit );
   counters_.is( root.counters(), this ).hasNotificationActiveIs( true );
   std::size_t count = 0;
   for ( const Vel::AttributeInfo & a : root.counters()->typeInfo().attributes() )
      counts_.at( count++ ) = static_cast< const Vel::U32 * >( a.raw( *root.counters() ) );
   VEL_ASSERT( count == Reference::counterCount, "all counters are compared" );
   rig_.settle();
}

/// Nobody watches the plug-in any more, so that it goes when the rig lets go of it.
void DrivenPlugin::stop() {
   counters_.del();
   monitored_.del();
   drained_.del();
}

// ---- decisions

void DrivenPlugin::decided( Kind kind, int who, int other ) {
   decisions_.push_back( { kind, who, other, rig_.now() } );
}

void DrivenPlugin::watchEntities() {
   statusDir_.is( rig_.monIntfStatusDir, this ).hasNotificationActiveIs( true );
   cause_.is( rig_.cause, this ).hasNotificationActiveIs( true );
   enterStatus_.is( rig_.enterClass.agentStatus, this ).hasNotificationActiveIs( true );
   exitStatus_.is( rig_.exitClass.agentStatus, this ).hasNotificationActiveIs( true );
   for ( const auto & [intf, record] : rig_.monIntfStatusDir->monIntfStatusRange() )
      watchRecord( intf );
}

void DrivenPlugin::watchEntitiesDel() {
   statusDir_.del();
   cause_.del();
   enterStatus_.del();
   exitStatus_.del();
   for ( auto & record : records_ )
      record.del();
}

void DrivenPlugin::watchRecord( const Wire::IntfId & intf ) {
   auto & watch = records_.at( static_cast< std::size_t >( numberOf( intf.name() ) ) );
   if ( auto * record = rig_.monIntfStatusDir->monIntfStatus( intf ) )
      watch.is( record, this ).hasNotificationActiveIs( true );
   else
      watch.del();
}

void DrivenPlugin::VelStatusDir::onMonIntfStatus( const Wire::IntfId & intf ) { sm()->watchRecord( intf ); }

void DrivenPlugin::VelStatusDir::onMonIntfEnterMaint( const Wire::IntfId & intf ) {
   if ( entity()->monIntfEnterMaint( intf ) )
      sm()->decided( Kind::entering, numberOf( intf.name() ) );
}

void DrivenPlugin::VelStatusDir::onMonIntfUnderMaint( const Wire::IntfId & intf ) {
   if ( entity()->monIntfUnderMaint( intf ) )
      sm()->decided( Kind::under, numberOf( intf.name() ) );
}

void DrivenPlugin::VelRecord::onState() {
   if ( entity()->state() == Maintenance::monIntfStateStopped )
      sm()->decided( Kind::stopped, numberOf( entity()->intfId().name() ) );
}

void DrivenPlugin::VelCause::onIntfStatus( const Wire::IntfId & intf ) {
   sm()->decided( entity()->intfStatus( intf ) ? Kind::shut : Kind::released, numberOf( intf.name() ) );
}

void DrivenPlugin::VelAgentStatus::onComplete( const Stage::AgentStatusKey & key ) {
   if ( !entity()->complete( key ) )
      return;
   Maintenance::Unit::StageMgrInstKey instance;
   instance.instanceNameIs( key.instanceName );
   sm()->decided( Kind::completed, numberOf( instance.unitName() ), static_cast< int >( instance.genId() ) );
}

void DrivenPlugin::VelInput::tell( const Wire::IntfId & intf ) {
   sm()->decided(
      entity()->intf( intf ) ? in_ : out_, numberOf( intf.name() ), numberOf( entity()->name() ) );
}

void DrivenPlugin::VelInputDir::watch( const Vel::String & unit ) {
   auto & watch = inputs_.at( static_cast< std::size_t >( numberOf( unit ) ) );
   const Vel::Ptr< const MaintenanceMode::UnitIntfInput > input( entity()->unitIntfInput( unit ) );
   if ( !input ) {
      watch.del();
      return;
   }
   watch.is( input, sm(), in_, out_ ).hasNotificationActiveIs( true );
   for ( const auto & [intf, member] : input->intfRange() )
      watch->tell( intf );
}

} // namespace Tests
