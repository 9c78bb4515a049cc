#include "Platform/Model/Bridging.h"
#include "Platform/Model/Errdisable.h"
#include "Platform/Model/IntfGroup.h"
#include "Platform/Model/IntfMaintenance.h"
#include "Platform/Model/IntfMaintenanceProfile.h"
#include "Platform/Model/Lag.h"
#include "Platform/Model/Stage.h"
#include "Platform/Vel/Dir.h"

#include <gtest/gtest.h>

/// What is kept across restarts comes back from its bytes, and what is mounted can be made by name.
namespace {

using Vel::AttributeInfo;

/// Everything that the description of an entity gives, as text.
Vel::String show( Vel::Entity & entity, const Vel::String & indent = "" ) {
   struct Context {
      const AttributeInfo & info;
      const Vel::String & indent;
      Vel::String out;
   };
   Vel::String out;
   for ( const AttributeInfo & info : entity.typeInfo().attributes() ) {
      if ( !info.keyed() ) {
         out += indent + info.name + "=" + info.value->text( info.raw( entity ) ) + "\n";
         continue;
      }
      Context context{ info, indent, {} };
      info.each( entity, &context, []( void * c, const void * key, const void * item ) {
         auto & [about, prefix, text] = *static_cast< Context * >( c );
         text += prefix + about.name + "[" + about.key->text( key ) + "]";
         if ( about.kind == AttributeInfo::map )
            text += "=" + about.value->text( item );
         text += "\n";
         if ( about.kind == AttributeInfo::children )
            text += show( *static_cast< Vel::Entity * >( const_cast< void * >( item ) ), prefix + "   " );
      } );
      out += context.out;
   }
   return out;
}

/// Writes every part of `from` as bytes and reads them into `to`, as a store does.
void copy( Vel::Entity & from, Vel::Entity & to ) {
   struct Context {
      const AttributeInfo & info;
      Vel::Entity & to;
   };
   for ( const AttributeInfo & info : from.typeInfo().attributes() ) {
      SCOPED_TRACE( info.name );
      EXPECT_TRUE( info.stored() );
      if ( !info.keyed() ) {
         Vel::String bytes;
         Vel::ByteWriter writer( bytes );
         info.value->write( writer, info.raw( from ) );
         Vel::ByteReader reader( bytes );
         info.value->read( reader, info.raw( to ) );
         EXPECT_TRUE( reader.atEnd() && !reader.failed() );
         continue;
      }
      Context context{ info, to };
      info.each( from, &context, []( void * c, const void * key, const void * item ) {
         const auto & [about, target] = *static_cast< Context * >( c );
         Vel::String keyBytes, valueBytes;
         Vel::ByteWriter keyWriter( keyBytes ), valueWriter( valueBytes );
         about.key->write( keyWriter, key );
         Vel::ByteReader keyReader( keyBytes );
         if ( about.kind == AttributeInfo::children ) {
            Vel::Entity * const child = about.restoreChild( target, keyReader );
            ASSERT_TRUE( child );
            copy( *static_cast< Vel::Entity * >( const_cast< void * >( item ) ), *child );
            return;
         }
         if ( about.value )
            about.value->write( valueWriter, item );
         Vel::ByteReader valueReader( valueBytes );
         EXPECT_TRUE( about.restore( target, keyReader, valueReader ) );
      } );
   }
}

template < class E, class... Args >
void expectRestored( E & original, Args &&... args ) {
   const auto restored = Vel::make< E >( std::forward< Args >( args )... );
   EXPECT_NE( show( original ), show( *restored ) );
   copy( original, *restored );
   EXPECT_EQ( show( original ), show( *restored ) );
}

const Wire::EthIntfId et1( "et1" );
const Wire::VlanIntfId vlan10( "vlan10", 10 );

TEST( Restore, bringsBackMonitoredInterfaceRecords ) {
   const auto dir = Vel::make< Maintenance::MonIntfStatusDir >();
   Maintenance::MonIntfStatus * const record = dir->monIntfStatusIs( et1, Vel::String( "fast" ), 1.7e9 );
   record->curRatesIs( { 0, 0, 1, 2, 3 } );
   record->prevRatesIs( { 0, 0, 4, 5, 6 } );
   record->lastSampleTimeIs( 7 );
   record->totalSamplesIs( 8 );
   record->numConsecutiveDrainedSamplesIs( 9 );
   record->numSamplesAboveThresholdPreMaintIs( 10 );
   record->numSamplesBelowThresholdPreMaintIs( 11 );
   record->numSamplesAboveThresholdPostMaintIs( 12 );
   record->numSamplesBelowThresholdPostMaintIs( 13 );
   record->stateIs( Maintenance::monIntfStateStopped );
   record->stateTimeIs( 14.5 );
   record->spikeUnderMaintIs( true );
   record->staleIs( true );
   dir->monIntfStatusIs( vlan10, Vel::String( "slow" ), 2.0 );
   dir->monIntfEnterMaintIs( et1, true );
   dir->monIntfUnderMaintIs( vlan10, true );
   dir->monIntfSpikeUnderMaintIs( et1, true );
   expectRestored( *dir );
   EXPECT_EQ(
      "monIntfStatus[et1]\n"
      "   intfId=et1\n"
      "   profileName=fast\n"
      "   startTime=1.7e+09\n"
      "   curRates=in 2 bps, out 1 bps at 3\n"
      "   prevRates=in 5 bps, out 4 bps at 6\n"
      "   lastSampleTime=7\n"
      "   totalSamples=8\n"
      "   numConsecutiveDrainedSamples=9\n"
      "   numSamplesAboveThresholdPreMaint=10\n"
      "   numSamplesBelowThresholdPreMaint=11\n"
      "   numSamplesAboveThresholdPostMaint=12\n"
      "   numSamplesBelowThresholdPostMaint=13\n"
      "   state=monIntfStateStopped\n"
      "   stateTime=14.5\n"
      "   spikeUnderMaint=1\n"
      "   stale=1\n",
      show( *dir ).substr( 0, show( *dir ).find( "monIntfStatus[vlan10]" ) ) );
}

TEST( Restore, bringsBackUnitStatus ) {
   const auto dir = Vel::make< Maintenance::Unit::StatusDir >();
   Maintenance::Unit::Status * const status = dir->statusIs( "u1" );
   status->stateIs( Maintenance::Unit::UnitState::maintenance );
   status->genIdIs( 12 );
   status->maintEnterInstanceNameIs( "u1#12" );
   status->maintExitInstanceNameIs( "u1#13" );
   status->aggTrafficRateIs( { 1, 2, 3 } );
   status->intfsViolatingTrafficThresholdIs( et1, true );
   status->totalIntfTrafficViolationsIs( 4 );
   expectRestored( *dir );
}

TEST( Restore, bringsBackErrorDisableEntries ) {
   const auto cause = Vel::make< Errdisable::CauseStatus >( "maintenance-shutdown" );
   cause->causeGroupNameIs( "maintenance-shutdown" );
   cause->intfStatusIs( et1, 1.7e9 );
   cause->intfStatusIs( vlan10, 5 );
   expectRestored( *cause, "other" );
   const auto group = Vel::make< Errdisable::CauseGroup >( "maintenance-shutdown" );
   group->causeNameIs( "maintenance-shutdown" );
   group->descriptionIs( "Interface has been shut down for maintenance." );
   group->statusTextIs( "maint-down" );
   group->typeIs( Errdisable::CauseGroupType::interfaceCause );
   group->linkDownIs( true );
   expectRestored( *group, "other" );
}

TEST( Restore, bringsBackTheStages ) {
   const auto progress = Vel::make< Stage::ProgressDir >();
   progress->progressIs( "u1#1" )->stageStatusIs( "drainwatch", Stage::stageRunning );
   progress->progress( "u1#1" )->stageIs( "drainwatch" );
   expectRestored( *progress );
   const auto completion = Vel::make< Stage::CompletionStatusDir >();
   completion->statusIs( "u1#1", Stage::stageRunning );
   expectRestored( *completion );
   const auto status = Vel::make< Stage::AgentStatus >( "MaintenanceMode" );
   status->completeIs( { "MaintenanceMode", "drainwatch", "u1#1" }, true );
   expectRestored( *status, "other" );
   const auto config = Vel::make< Stage::AgentConfig >( "MaintenanceMode" );
   config->stageIs( "drainwatch" );
   expectRestored( *config, "other" );
}

TEST( Restore, bringsBackMembership ) {
   const Maintenance::GroupKey key{ Maintenance::GroupType::interfaceGroup, "a" };
   const auto group = Vel::make< IntfGroup::StatusDir >();
   group->statusIs( key )->intfIs( et1 );
   expectRestored( *group );
   const auto member = Vel::make< IntfMaintenance::IntfToGroupDir >();
   member->intfToGroupIs( et1 )->groupIs( key );
   using Maintenance::Profile::ProfileType;
   member->intfToGroup( et1 )->selectedProfileIs(
      ProfileType::interfaceProfile, { ProfileType::interfaceProfile, "fast" } );
   member->intfToGroup( et1 )->profileChangeCauseIs( Maintenance::ProfileChangeCause::selection );
   expectRestored( *member );
}

TEST( Registry, makesEveryMountedTypeByName ) {
   for ( const char * typeName :
         { "Vel::Dir", "Interface::EthLagIntfConfigDir", "Interface::AllIntfStatusDir", "Lag::Config",
           "Bridging::VlanStatusDir", "Maintenance::Unit::StatusDir",
           "Maintenance::MaintenanceGroup::ConfigDir", "IntfGroup::StatusDir",
           "IntfMaintenanceProfile::StatusDir", "IntfMaintenance::IntfToGroupDir",
           "Maintenance::GroupToUnitDir", "Errdisable::CauseStatus", "Errdisable::CauseGroup",
           "Maintenance::MonIntfStatusDir", "Maintenance::Profile::DefaultProfile", "Stage::AgentConfig",
           "Stage::AgentStatus", "Stage::ProgressDir", "Stage::CompletionStatusDir" } ) {
      SCOPED_TRACE( typeName );
      ASSERT_TRUE( Vel::TypeRegistry::instance().type( typeName ) );
      const auto entity = Vel::TypeRegistry::instance().entityNew( typeName, "given" );
      EXPECT_EQ( typeName, entity->typeInfo().name() );
   }
}

TEST( Registry, givesNamedTypesTheirName ) {
   const auto dir = Vel::make< Vel::Dir >();
   dir->entryIs( "MaintenanceMode", "Stage::AgentStatus" );
   EXPECT_EQ(
      "MaintenanceMode", Vel::ptrCast< Stage::AgentStatus >( dir->entityRef( "MaintenanceMode" ) )->name() );
   dir->entryIs( "maintenance-shutdown", "Errdisable::CauseStatus" );
   EXPECT_EQ(
      "maintenance-shutdown",
      Vel::ptrCast< Errdisable::CauseStatus >( dir->entityRef( "maintenance-shutdown" ) )->name() );
}

} // namespace
