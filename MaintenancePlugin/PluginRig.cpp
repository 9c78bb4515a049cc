#include "MaintenancePlugin/PluginRig.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cmath>

namespace MaintenanceMode {

using Maintenance::Profile::ProfileType;
using Maintenance::Unit::UnitState;

/// What shuts links: sees an entry come or go and acts on it a turn later.
struct PluginRig::Machinery {
   struct VelCause final : Vel::ReactorTo< Machinery, Errdisable::CauseStatus > {
      using ReactorTo::ReactorTo;
      void onIntfStatus( const Wire::IntfId & intf ) override {
         PluginRig & rig = sm()->rig;
         rig.clock->post( [&rig, intf] {
            if ( auto * status = rig.allIntfStatusDir->intfStatus( intf ) )
               status->operStatusIs(
                  rig.cause->intfStatus( intf ) ? Interface::operDown : Interface::operUp );
         } );
      }
   };
   explicit Machinery( PluginRig & rig ) : rig( rig ) {
      cause.is( rig.cause, this ).hasNotificationActiveIs( true );
   }
   PluginRig & rig;
   Vel::Watch< VelCause > cause;
};

namespace {

/// Copies what one entity holds into a fresh one of the same type, as a store does.
void copyInto( Vel::Entity & from, Vel::Entity & to ) {
   for ( const Vel::AttributeInfo & a : from.typeInfo().attributes() ) {
      if ( !a.stored() )
         continue;
      if ( !a.keyed() ) {
         Vel::String bytes;
         Vel::ByteWriter writer( bytes );
         a.value->write( writer, a.raw( from ) );
         Vel::ByteReader reader( bytes );
         a.value->read( reader, a.raw( to ) );
         continue;
      }
      struct Context {
         const Vel::AttributeInfo & a;
         Vel::Entity & to;
      } context{ a, to };
      a.each( from, &context, []( void * c, const void * key, const void * item ) {
         auto & [info, target] = *static_cast< Context * >( c );
         Vel::String keyBytes, valueBytes;
         Vel::ByteWriter keyWriter( keyBytes ), valueWriter( valueBytes );
         info.key->write( keyWriter, key );
         Vel::ByteReader keyReader( keyBytes );
         if ( info.kind == Vel::AttributeInfo::children ) {
            Vel::Entity * child = info.restoreChild( target, keyReader );
            copyInto( *static_cast< Vel::Entity * >( const_cast< void * >( item ) ), *child );
            return;
         }
         if ( info.value )
            info.value->write( valueWriter, item );
         Vel::ByteReader valueReader( valueBytes );
         info.restore( target, keyReader, valueReader );
      } );
   }
}

template < class T, class... Args >
void renew( Vel::Ptr< T > & entity, const Args &... args ) {
   auto fresh = Vel::make< T >( args... );
   if ( entity )
      copyInto( *entity, *fresh );
   entity = fresh;
}

} // namespace

PluginRig::PluginRig( ShutLinks shutLinks )
   : clock( Vel::make< Cog::ManualClock >() ), shutLinks_( shutLinks ) {
   Vel::System::clockIs( clock );
   phyCounterDir = Vel::make< Interface::IntfCounterMasquerade::AllEthIntfCounterPtrDir >();
   lagConfig = Vel::make< Lag::Config >();
   models();
   clock->timersMayRunIs( [this] {
      countTraffic();
      return true;
   } );
}

PluginRig::~PluginRig() {
   stop();
   machinery_.reset();
   Vel::System::clockIs( nullptr );
}

/// Every entity anew, with what the old one held; nobody who watches the old ones sees the new ones.
void PluginRig::models() {
   renew( vlanStatusDir );
   renew( allIntfStatusDir );
   renew( unitStatusDir );
   renew( maintenanceGroupDir );
   renew( intfGroupStatusDir );
   renew( intfProfileStatusDir );
   renew( intfToGroupDir );
   renew( groupToUnitDir );
   renew( cause, "maintenance-shutdown" );
   renew( monIntfStatusDir );
   renew( defaultProfile );
   for ( StageClass * stageClass : { &enterClass, &exitClass } ) {
      renew( stageClass->completionStatus );
      renew( stageClass->agentConfig, "MaintenanceMode" );
      renew( stageClass->agentStatus, "MaintenanceMode" );
      renew( stageClass->progressDir );
   }
   if ( shutLinks_ == ShutLinks::goDown )
      machinery_ = std::make_unique< Machinery >( *this );
}

// ---- links and their traffic

void PluginRig::linkIs( const Intf & intf, bool up ) {
   if ( Wire::EthIntfId::isEthIntfId( intf ) && !phyCounterDir->intfCounterDir( intf ) ) {
      phyCounterDir->intfCounterDirIs( intf )->counterIs( "current" );
      ports_[intf].since = now();
   }
   allIntfStatusDir->intfStatusIs( intf )->operStatusIs( up ? Interface::operUp : Interface::operDown );
}

void PluginRig::linkDel( const Intf & intf ) {
   allIntfStatusDir->intfStatusDel( intf );
   countersDel( intf );
}

void PluginRig::trafficIs( const Intf & intf, Traffic traffic ) {
   countTraffic();
   ports_.at( intf ).traffic = traffic;
}

void PluginRig::octetsInc( const Intf & intf, Vel::U64 in, Vel::U64 out ) {
   auto * counter = phyCounterDir->intfCounterDir( intf )->counter( "current" );
   auto statistics = counter->statistics();
   statistics.inOctets += in;
   statistics.outOctets = Cog::MaybeU63( statistics.outOctets.value() + out );
   counter->statisticsIs( statistics );
}

void PluginRig::countersDel( const Intf & intf ) {
   phyCounterDir->intfCounterDirDel( intf );
   ports_.erase( intf );
}

void PluginRig::countTraffic() {
   for ( auto & [intf, port] : ports_ ) {
      const double seconds = now() - port.since;
      port.since = now();
      port.in += seconds * port.traffic.in / 8;
      port.out += seconds * port.traffic.out / 8;
      const double in = std::floor( port.in );
      const double out = std::floor( port.out );
      port.in -= in;
      port.out -= out;
      if ( in > 0 || out > 0 )
         octetsInc( intf, static_cast< Vel::U64 >( in ), static_cast< Vel::U64 >( out ) );
   }
}

void PluginRig::memberIs( const Intf & port, const Intf & portChannel ) {
   lagConfig->phyIntfIs( port )->portChannelIs( portChannel );
}

void PluginRig::vlanMemberIs( Vel::U16 vlanId, const Intf & member ) {
   vlanStatusDir->vlanStatusIs( Bridging::VlanId( vlanId ) )->vlanPortStatusIs( member );
}

// ---- configuration

IntfMaintenanceProfile::Status * PluginRig::profileIs(
   const String & name, double thresholdKbps, U32 loadInterval, bool shutdown, double maxDelay ) {
   const bool isNew = !intfProfileStatusDir->status( name );
   auto profile = isNew ? Vel::make< IntfMaintenanceProfile::Status >( name )
                        : Vel::Ptr< IntfMaintenanceProfile::Status >( intfProfileStatusDir->status( name ) );
   profile->drainWatchThresholdInKbpsIs( thresholdKbps );
   profile->drainWatchLoadIntervalIs( loadInterval );
   profile->shutdownMaxDelayIs( maxDelay );
   profile->shutdownIs( shutdown );
   return isNew ? intfProfileStatusDir->statusPut( name, profile ) : profile.get();
}

void PluginRig::profileDel( const String & name ) { intfProfileStatusDir->statusDel( name ); }

void PluginRig::defaultProfileIs( const String & name ) { defaultProfile->profileNameIs( name ); }

void PluginRig::selectIs( const Intf & intf, const String & profileName ) {
   auto * entry = intfToGroupDir->intfToGroupIs( intf );
   entry->profileChangeCauseIs( Maintenance::ProfileChangeCause::selection );
   entry->selectedProfileIs( ProfileType::interfaceProfile, { ProfileType::interfaceProfile, profileName } );
}

void PluginRig::selectDel( const Intf & intf ) {
   auto * entry = intfToGroupDir->intfToGroupIs( intf );
   entry->profileChangeCauseIs( Maintenance::ProfileChangeCause::selection );
   entry->selectedProfileDel( ProfileType::interfaceProfile );
}

void PluginRig::groupMemberIs( const String & groupName, const Intf & intf ) {
   auto * entry = intfToGroupDir->intfToGroup( intf );
   if ( !entry ) {
      selectIs( intf, Maintenance::Profile::defaultProfileName );
      entry = intfToGroupDir->intfToGroup( intf );
   }
   entry->groupIs( group( groupName ) );
   intfGroupStatusDir->statusIs( group( groupName ) )->intfIs( intf );
}

void PluginRig::groupMemberDel( const String & groupName, const Intf & intf ) {
   if ( auto * status = intfGroupStatusDir->status( group( groupName ) ) )
      status->intfDel( intf );
   if ( auto * entry = intfToGroupDir->intfToGroup( intf ) )
      entry->groupDel( group( groupName ) );
}

void PluginRig::mappingIs( const String & groupName, const String & unitName ) {
   groupToUnitDir->mappingIs( group( groupName ), unitName );
}

void PluginRig::mappingDel( const String & groupName, const String & unitName ) {
   groupToUnitDir->mappingDel( group( groupName ), unitName );
}

void PluginRig::unitIs( const String & unitName, std::initializer_list< Intf > intfs ) {
   for ( const Intf & intf : intfs )
      groupMemberIs( unitName, intf );
   mappingIs( unitName, unitName );
   unit( unitName );
}

// ---- the framework's side of the stages

Maintenance::Unit::Status & PluginRig::unit( const String & unitName ) {
   auto * status = unitStatusDir->status( unitName );
   if ( !status ) {
      status = unitStatusDir->statusIs( unitName );
      status->stateIs( UnitState::normal );
   }
   return *status;
}

PluginRig::String PluginRig::enter( const String & unitName ) {
   auto & status = unit( unitName );
   const Maintenance::Unit::StageMgrInstKey key( unitName, status.genId() + 1 );
   status.stateIs( UnitState::enterInProgress );
   status.genIdIs( key.genId() );
   status.maintEnterInstanceNameIs( key.instanceName() );
   status.maintExitInstanceNameIs( "" );
   startStage( enterClass, key.instanceName() );
   return key.instanceName();
}

PluginRig::String PluginRig::exit( const String & unitName ) {
   auto & status = unit( unitName );
   retireStage( enterClass, status.maintEnterInstanceName() );
   const Maintenance::Unit::StageMgrInstKey key( unitName, status.genId() + 1 );
   status.stateIs( UnitState::exitInProgress );
   status.genIdIs( key.genId() );
   status.maintEnterInstanceNameIs( "" );
   status.maintExitInstanceNameIs( key.instanceName() );
   startStage( exitClass, key.instanceName() );
   return key.instanceName();
}

void PluginRig::startStage( StageClass & stageClass, const String & instanceName ) {
   auto * progress = stageClass.progressDir->progressIs( instanceName );
   progress->stageStatusIs( stageName, Stage::stageRunning );
   stageClass.completionStatus->statusIs( instanceName, Stage::stageRunning );
   progress->stageIs( stageName );
}

void PluginRig::retireStage( StageClass & stageClass, const String & instanceName ) {
   stageClass.progressDir->progressDel( instanceName );
   stageClass.completionStatus->statusDel( instanceName );
}

void PluginRig::entered( const String & unitName ) { unit( unitName ).stateIs( UnitState::maintenance ); }

void PluginRig::exited( const String & unitName ) {
   auto & status = unit( unitName );
   retireStage( exitClass, status.maintExitInstanceName() );
   status.maintExitInstanceNameIs( "" );
   status.stateIs( UnitState::normal );
}

bool PluginRig::enterComplete( const String & unitName ) {
   return enterClass.agentStatus->complete(
             { enterClass.agentStatus->name(), stageName, unit( unitName ).maintEnterInstanceName() } ) !=
          nullptr;
}

bool PluginRig::exitComplete( const String & unitName ) {
   return exitClass.agentStatus->complete(
             { exitClass.agentStatus->name(), stageName, unit( unitName ).maintExitInstanceName() } ) !=
          nullptr;
}

// ---- time and the plug-in

void PluginRig::start() {
   begin();
   settle();
}

void PluginRig::begin() {
   // Links and counters are known before a plug-in begins.
   countTraffic();
   root = DrainWatchSm::DrainWatchSmIs(
      Vel::Ptr< const Interface::IntfCounterMasquerade::AllEthIntfCounterPtrDir >( phyCounterDir ),
      Vel::Ptr< const Lag::Config >( lagConfig ), Vel::Ptr< const Bridging::VlanStatusDir >( vlanStatusDir ),
      Vel::Ptr< const Interface::AllIntfStatusDir >( allIntfStatusDir ), unitStatusDir,
      Vel::Ptr< const Maintenance::MaintenanceGroup::ConfigDir >( maintenanceGroupDir ),
      Vel::Ptr< const IntfGroup::StatusDir >( intfGroupStatusDir ),
      Vel::Ptr< const IntfMaintenanceProfile::StatusDir >( intfProfileStatusDir ),
      Vel::Ptr< const IntfMaintenance::IntfToGroupDir >( intfToGroupDir ),
      Vel::Ptr< const Maintenance::GroupToUnitDir >( groupToUnitDir ), cause, monIntfStatusDir,
      Vel::Ptr< const Maintenance::Profile::DefaultProfile >( defaultProfile ),
      Vel::Ptr< const Stage::CompletionStatusDir >( enterClass.completionStatus ),
      Vel::Ptr< const Stage::CompletionStatusDir >( exitClass.completionStatus ), enterClass.agentConfig,
      exitClass.agentConfig, enterClass.agentStatus, exitClass.agentStatus,
      Vel::Ptr< const Stage::ProgressDir >( enterClass.progressDir ),
      Vel::Ptr< const Stage::ProgressDir >( exitClass.progressDir ) );
}

void PluginRig::stop() { root = nullptr; }

void PluginRig::crashAndRestart() {
   crash();
   start();
}

void PluginRig::crash() {
   machinery_.reset();
   Vel::Ptr< DrainWatchSm > gone = std::exchange( root, nullptr );
   models();
   // The old root tears down the old entities, which nobody looks at any more.
   gone = nullptr;
}

// ---- what came of it

int PluginRig::captureBegin() { return memfd_create( "rig", 0 ); }

PluginRig::String PluginRig::captureEnd( int fd ) {
   String text( static_cast< std::size_t >( lseek( fd, 0, SEEK_END ) ), '\0' );
   [[maybe_unused]] const auto got = pread( fd, text.data(), text.size(), 0 );
   close( fd );
   return text;
}

} // namespace MaintenanceMode
