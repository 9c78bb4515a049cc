#include "MaintenancePlugin/UnitMonSm.h"

#include "MaintenancePlugin/DrainWatchSm.h"
#include "MaintenancePlugin/PluginTrace.h"

#include <cstdio>

namespace MaintenanceMode {

namespace {
Vel::TraceFacility trace( "UnitMonSm" );

using Maintenance::MonIntfState;
using Maintenance::Unit::MaintenanceOp;
using Maintenance::Unit::UnitState;

Maintenance::Unit::Status * unitStatus( const DrainWatchSm & root, const Vel::String & unitName ) {
   return root.unitStatusDir() ? root.unitStatusDir()->status( unitName ) : nullptr;
}

const Interface::IntfStatus * intfStatus( const DrainWatchSm & root, const Wire::IntfId & intf ) {
   return root.allIntfStatusDir() ? root.allIntfStatusDir()->intfStatus( intf ) : nullptr;
}

/// Whether the unit has a set there with nothing in it.
bool emptied( const Vel::Ptr< UnitIntfInputDir > & dir, const Vel::String & unitName ) {
   const UnitIntfInput * input = dir->unitIntfInput( unitName );
   return input && input->intfs() == 0;
}
} // namespace

UnitMonSm::UnitMonSm(
   const Vel::String & unitName, Vel::U32 genId, DrainWatchSm * rootSm,
   const Vel::Ptr< UnitIntfInput > & monIntf, const Vel::Ptr< UnitIntfInput > & drainedIntf )
   : unitName_( unitName ),
     genId_( genId ),
     rootSm_( rootSm ),
     monIntf_( monIntf ),
     drainedIntf_( drainedIntf ) {
   monIntfReactor_.is( monIntf_, this );
   drainedIntfReactor_.is( drainedIntf_, this );
}

Vel::Ptr< UnitMonSm > UnitMonSm::UnitMonSmIs(
   const Vel::String & unitName, Vel::U32 genId, DrainWatchSm * rootSm,
   const Vel::Ptr< UnitIntfInput > & monIntf, const Vel::Ptr< UnitIntfInput > & drainedIntf ) {
   auto unitMon = Vel::make< UnitMonSm >( unitName, genId, rootSm, monIntf, drainedIntf );
   unitMon->handleInitialized();
   return unitMon;
}

void UnitMonSm::hasNotificationActiveIs( bool active ) {
   monIntfReactor_.hasNotificationActiveIs( active );
   drainedIntfReactor_.hasNotificationActiveIs( active );
}

void UnitMonSm::handleInitialized() {
   VEL_ASSERT( !initialized(), "!initialized()" );
   TRACE_TEXT( 4, "UnitMonSm::handleInitialized for unit ", unitName() );
   FASTLOG( "unitMonSm for unit ", unitName() );
   VEL_ASSERT( monIntf()->intfs() == 0, "monIntf()->intfs() == 0" );
   VEL_ASSERT( drainedIntf()->intfs() == 0, "drainedIntf()->intfs() == 0" );

   const auto & groupToUnitDir = rootSm()->groupToUnitDir();
   const auto * groups = groupToUnitDir ? groupToUnitDir->unitToGroup( unitName() ) : nullptr;
   if ( groups )
      for ( const auto & [group, none] : groups->groupKeyRange() )
         startGroup( group );
   TRACE_TEXT(
      4, "handleInitialized: for unit ", unitName(), ", num monitored intfs ", monIntf()->intfs(),
      ", drainedIntfs ", drainedIntf()->intfs() );
   checkDrainedIntfsAndReport();
   initializedIs( true );
}

void UnitMonSm::startGroup( const Maintenance::GroupKey & group ) {
   if ( group.type != Maintenance::GroupType::interfaceGroup )
      return;
   const auto & groupStatusDir = rootSm()->intfGroupStatusDir();
   const auto * groupStatus = groupStatusDir ? groupStatusDir->status( group ) : nullptr;
   if ( !groupStatus ) {
      TRACE_TEXT(
         4, "handleInitialized: Group status missing for group ", group, ", unit ", unitName(),
         ". Ignoring the group." );
      return;
   }
   TRACE_TEXT( 4, "handleInitialized: processing group ", group );
   for ( const auto & [intf, none] : groupStatus->intfRange() )
      startIntfMon( intf );
}

void UnitMonSm::startIntfMon( const Wire::IntfId & intf ) {
   TRACE_TEXT( 4, "startIntfMon: unit ", unitName(), " intf ", intf );
   if ( !isSupportedIntf( intf ) ) {
      TRACE_TEXT( 4, "startIntfMon: intf ", intf, " - is not not supported" );
      rootSm()->counters()->numIntfMonIntfNotSupportedInc( 1 );
      return;
   }
   const auto intfProfile = rootSm()->getIntfProfile( intf );
   VEL_ASSERT( intfProfile, "intfProfile" );

   const auto * status = intfStatus( *rootSm(), intf );
   if ( !status ) {
      TRACE_TEXT( 4, "startIntfMon: Could not find intfStatus for intf ", intf, ". Ignoring this interface" );
      rootSm()->counters()->numIntfMonNoIntfStatusInc( 1 );
      return;
   }
   if ( status->operStatus() != Interface::operUp ) {
      TRACE_TEXT(
         4, "startIntfMon: Intf ", intf, " operStatus is ", status->operStatus(), ", ignoring as it is not ",
         Interface::operUp );
      rootSm()->counters()->numIntfMonIntfOperNotUpInc( 1 );
      return;
   }

   IntfMonSm * intfMonSm = rootSm()->intfMon( intf );
   if ( intfMonSm )
      intfMonSm->intfProfileIs( intfProfile );
   else
      intfMonSm = intfMonNew( intf, intfProfile );

   if ( intfMonSm->state() == Maintenance::monIntfStateUnderMaint )
      drainedIntf()->intfIs( intf, true );
   VEL_ASSERT( intfMonSm->monitoredIntf(), "intfMonSm->monitoredIntf()" );
   intfMonSm->monitoredIntf()->dependentUnitIs( unitName(), true );
   monIntf()->intfIs( intf, true );
}

IntfMonSm * UnitMonSm::intfMonNew(
   const Wire::IntfId & intf, const Vel::Ptr< const IntfMaintenanceProfile::Status > & profile ) {
   MonIntfState initialState = Maintenance::monIntfStateEnterMaint;
   const auto * status = unitStatus( *rootSm(), unitName() );
   if ( status && status->state() == UnitState::maintenance ) {
      initialState = Maintenance::monIntfStateUnderMaint;
      rootSm()->counters()->numIntfMonInitialStatePassiveInc( 1 );
   }
   VEL_ASSERT( rootSm()->monIntfDir(), "rootSm()->monIntfDir()" );
   MonitoredIntf * monitoredIntf = rootSm()->monIntfDir()->monitoredIntfIs( intf, rootSm(), profile->name() );
   VEL_ASSERT( monitoredIntf, "monitoredIntf" );
   IntfMonSm * const intfMonSm =
      rootSm()
         ->intfMonIs( intf, rootSm()->timerWheel(), profile, rootSm(), monitoredIntf, initialState )
         .get();
   TRACE_TEXT(
      4, "startIntfMon: created intf monitor for intf ", intf, ", initial state ", initialState, ", profile ",
      profile->name() );
   return intfMonSm;
}

void UnitMonSm::stopIntfMon( const Wire::IntfId & intf ) {
   TRACE_TEXT( 4, "stopIntfMon: unit ", unitName(), " intf ", intf );
   if ( auto * status = unitStatus( *rootSm(), unitName() ) )
      status->intfsViolatingTrafficThresholdDel( intf );

   // Not counted: the monitor and its sampler are to go exactly where they are deleted below.
   IntfMonSm * const intfMonSm = rootSm()->intfMon( intf );
   if ( !intfMonSm ) {
      FASTLOG( "could not find intfMonSm for intf ", intf );
      return;
   }
   VEL_ASSERT( intfMonSm->monitoredIntf(), "intfMonSm->monitoredIntf()" );
   drainedIntf()->intfDel( intf );
   intfMonSm->monitoredIntf()->dependentUnitDel( unitName() );

   // The profile may have come from this unit, so what applies without it is resolved again.
   const auto intfProfile = rootSm()->getIntfProfile( intf );
   const auto * status = intfStatus( *rootSm(), intf );
   if ( intfProfile && status && status->operStatus() == Interface::operUp )
      intfMonSm->intfProfileIs( intfProfile );
   else {
      TRACE_TEXT(
         4,
         "stopIntfMon: Un-applying the current profile because intfProfile was Null or  intf was down. "
         "IntfId:",
         intf, " unit:", unitName() );
      unApplyCurrentProfile( unitName(), intf, intfMonSm, rootSm() );
   }

   if ( intfMonSm->monitoredIntf()->dependentUnits() != 0 )
      return;
   TRACE_TEXT( 4, "stopIntfMon: deleting intf monitor for intf ", intf );
   VEL_ASSERT( rootSm()->monIntfDir(), "rootSm()->monIntfDir()" );
   rootSm()->monIntfDir()->monitoredIntfDel( intf );
   TRACE_TEXT(
      4, "stopIntfMon: Un-applying the current profile before the intfMon is deleted. intfId:", intf,
      " unitName:", unitName() );
   unApplyCurrentProfile( unitName(), intf, intfMonSm, rootSm() );
   rootSm()->intfMonDel( intf );
}

void UnitMonSm::unApplyCurrentProfile(
   const Vel::String & unitName, const Wire::IntfId & intf, const Vel::Ptr< IntfMonSm > & intfMonSm,
   DrainWatchSm * rootSm ) {
   TRACE_TEXT( 4, "unApplyCurrentProfile: unit:", unitName, "intfId:", intf );
   VEL_ASSERT( intfMonSm, "intfMonSm" );
   intfMonSm->stateIs( Maintenance::monIntfStateStopped );
   const auto & profile = intfMonSm->intfProfile();
   if ( profile && profile->shutdown() && rootSm->errDisableCauseStatus() )
      rootSm->errDisableCauseStatus()->intfStatusDel( intf );
}

void UnitMonSm::handleMonIntf( const Wire::IntfId & intf ) {
   if ( !initialized() )
      return;
   if ( monIntf()->intf( intf ) ) {
      TRACE_TEXT( 5, "handleMonIntf: unit ", unitName(), ", starting intf mon for intf ", intf );
      startIntfMon( intf );
      return;
   }
   TRACE_TEXT( 5, "handleMonIntf: unit ", unitName(), ", stopping intf mon for intf ", intf );
   stopIntfMon( intf );
   checkDrainedIntfsAndReport();
}

void UnitMonSm::handleDrainedIntf( const Wire::IntfId & intf ) {
   if ( !initialized() )
      return;
   const bool * drained = drainedIntf()->intf( intf );
   TRACE_TEXT(
      5, "handleDrainedIntf: unit ", unitName(), ", drainedIntf( ", intf, " ) - ",
      drained ? "added" : "deleted", ", num drained intfs ", drainedIntf()->intfs(), ", num monitored intfs ",
      monIntf()->intfs() );
   if ( drained && *drained )
      checkDrainedIntfsAndReport();
}

void UnitMonSm::checkDrainedIntfsAndReport() {
   if ( monIntf()->intfs() != drainedIntf()->intfs() )
      return;
   TRACE_TEXT( 4, "checkDrainedIntfsAndReport: unit ", unitName(), " notifying completion." );
   rootSm()->notifyStageCompletion( unitName(), genId(), MaintenanceOp::enter );
}

void UnitMonSm::prepareToDie() {
   TRACE_TEXT( 4, "prepareToDie: unit ", unitName(), ", genId ", genId() );
   while ( const Wire::IntfId * intf = monIntf()->intfFirst() )
      monIntf()->intfDel( *intf );
   rootSm()->notifyStageCompletion( unitName(), genId(), MaintenanceOp::exit );
   VEL_ASSERT(
      emptied( rootSm()->unitMonIntfInput(), unitName() ),
      "rootSm()->unitMonIntfInput()->unitIntfInput( unitName() )->intfs() == 0" );
   VEL_ASSERT(
      emptied( rootSm()->unitDrainedIntf(), unitName() ),
      "rootSm()->unitDrainedIntf()->unitIntfInput( unitName() )->intfs() == 0" );
   rootSm()->unitMonIntfInput()->unitIntfInputDel( unitName() );
   rootSm()->unitDrainedIntf()->unitIntfInputDel( unitName() );
}

void UnitMonSm::dump( int fd, unsigned indent ) const {
   const Vel::String first( indent, ' ' );
   const Vel::String rest( indent + 2, ' ' );
   dprintf( fd, "%sUnit: %s\n", first.c_str(), unitName().c_str() );
   dprintf( fd, "%sinitialized: %s\n", rest.c_str(), Vel::boolText( initialized() ) );
   dprintf( fd, "%sgenId: %u\n", rest.c_str(), genId() );
   dprintf( fd, "%sNum monIntf entries: %u\n", rest.c_str(), monIntf()->intfs() );
   dprintf( fd, "%sNum drainedIntf entries: %u\n", rest.c_str(), drainedIntf()->intfs() );
}

} // namespace MaintenanceMode
