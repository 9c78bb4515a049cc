#include "MaintenancePlugin/DrainWatchSm.h"
#include "MaintenancePlugin/IntfStatusSm.h"
#include "MaintenancePlugin/PluginTrace.h"

#include <cinttypes>
#include <cstdio>

namespace MaintenanceMode {

namespace {
Vel::TraceFacility trace( "IntfStatusSm" );
}

void IntfStatusSm::addToBacklog( const Wire::IntfId & intfId ) {
   updatesSeenInc( 1 );
   backlog_[intfId] = true;
   clockReactorTimeMinIs( 0 );
}

Vel::U64 IntfStatusSm::processBacklog( double startTime ) {
   if ( backlog_.empty() )
      return 0;
   FASTLOG_PROFILE( "DrainWatch::IntfStatusSm codef backlog processing" );
   TRACE( 4, "startTime ", startTime );
   FASTLOG( "processBacklog: startTime ", startTime );
   const double deadline = startTime + backlogQuantum();
   Vel::U64 count = 0;
   // A pause leaves only the bookmark, and what is processed may add entries: then the next one is looked up by key.
   auto next = backlog_.lower_bound( bookmark() );
   while ( !backlog_.empty() ) {
      if ( next == backlog_.end() )
         next = backlog_.begin();
      const Wire::IntfId intf = next->first;
      if ( count > 0 && liveTime() >= deadline ) {
         TRACE( 4, "Pausing backlog processing at ", intf );
         FASTLOG( "processBacklog: Pausing backlog processing at ", intf );
         bookmarkIs( intf );
         break;
      }
      next = backlog_.erase( next );
      const Vel::U64 added = updatesSeen();
      TRACE( 4, "intf ", intf );
      processIntf( intf );
      ++count;
      if ( updatesSeen() != added )
         next = backlog_.upper_bound( intf );
   }
   if ( backlog_.empty() )
      bookmarkIs( Wire::IntfId() );
   TRACE( 4, "processed ", count, " items" );
   FASTLOG( "processBacklog: num items processed ", count );
   return count;
}

void IntfStatusSm::processIntf( const Wire::IntfId & intfId ) {
   DrainWatchSm & root = *drainWatchSm();
   if ( !isSupportedIntf( intfId ) ) {
      TRACE( 4, "intf ", intfId, " - is not not supported" );
      FASTLOG( "processIntf: intf ", intfId, " - is not not supported" );
      root.counters()->numIntfMonIntfNotSupportedInc( 1 );
      return;
   }
   const auto * entry = intfToGroupDir() ? intfToGroupDir()->intfToGroup( intfId ) : nullptr;
   const bool maintIntf =
      entry && !entry->selectedProfileKey( Maintenance::Profile::ProfileType::interfaceProfile ).unset();

   // An interface that is down because it was shut for maintenance is still there to be monitored.
   bool intfUp = false;
   if ( const VelIntfStatus * status = intfStatus( intfId ) ) {
      const auto & cause = root.errDisableCauseStatus();
      intfUp =
         status->entity()->operStatus() == Interface::operUp || ( cause && cause->intfStatus( intfId ) );
   }
   const bool intfMon = root.intfMon( intfId ) != nullptr;
   TRACE(
      9, "intf ", intfId, ", maintIntf ", maintIntf, ", intfUp ", intfUp, ", intfMon ",
      intfMon ? "yes" : "no" );
   if ( maintIntf && intfUp ) {
      if ( intfMon )
         processProfileChange( intfId );
      root.startIntfMonInUnits( intfId );
   } else
      root.stopIntfMonInUnits( intfId );
}

void IntfStatusSm::processProfileChange( const Wire::IntfId & intfId ) {
   TRACE( 4, "intf ", intfId );
   IntfMonSm * intfMon = drainWatchSm()->intfMon( intfId );
   if ( !intfMon )
      return;
   const auto profile = drainWatchSm()->getIntfProfile( intfId );
   if ( profile != intfMon->intfProfile() )
      intfMon->intfProfileIs( profile );
}

void IntfStatusSm::dump( int fd, unsigned indent ) const {
   const Vel::String blanks( indent, ' ' );
   const char * s = blanks.c_str();
   using ull = unsigned long long;
   dprintf( fd, "%sIntfStatusSm codef details:\n", s );
   dprintf( fd, "%sbookmark: %s\n", s, Vel::text( bookmark() ).c_str() );
   dprintf( fd, "%sbacklogSize: %llu\n", s, ull{ backlogSize() } );
   dprintf( fd, "%sbacklogQuantum: %f\n", s, backlogQuantum() );
   dprintf( fd, "%supdatesSeen: %llu\n", s, ull{ updatesSeen() } );
   dprintf( fd, "%supdatesProcessed: %llu\n", s, ull{ updatesProcessed() } );
   dprintf( fd, "%swarm: %s\n", s, Vel::boolText( warm() ) );
   dprintf( fd, "%supdatesCoalesced: %llu\n", s, ull{ updatesCoalesced() } );
   dprintf( fd, "%stimeUsed: %f\n", s, timeUsed() );
   dprintf( fd, "%sdispatchCount: %llu\n", s, ull{ dispatchCount() } );
   dprintf( fd, "%syieldBeforeFinishingCount: %llu\n", s, ull{ yieldBeforeFinishingCount() } );
}

} // namespace MaintenanceMode
