#include "MaintenancePlugin/DrainWatchSm.h"

#include <cstdio>

namespace MaintenanceMode {

namespace {

/// In the order in which they are printed, which is not the one in which they are declared.
struct PrintedCounter {
   const char * name;
   Vel::U32 ( DrainWatchSmDebugCounters::*value )() const;
};
#define PRINTED( counter )                                                                                   \
   PrintedCounter { #counter, &DrainWatchSmDebugCounters::counter }
constexpr PrintedCounter printedCounters[] = {
   PRINTED( numMaintEnter ),
   PRINTED( numMaintExit ),
   PRINTED( numMaintExitInMaintModeEnter ),
   PRINTED( numMaintExitNoUnitMon ),
   PRINTED( numMaintEnterUnitMonPresent ),
   PRINTED( numNotifyStageCompletion ),
   PRINTED( numUnitStatusDel ),
   PRINTED( numNoVlanStatus ),
   PRINTED( numNoIntfCounter ),
   PRINTED( numNoNotifyNoStageInput ),
   PRINTED( numNoNotifyActiveStageMismatch ),
   PRINTED( numNoNotifyAlreadyNotified ),
   PRINTED( numNoNotifyNoUnitStatus ),
   PRINTED( numIntfMonInitialStatePassive ),
   PRINTED( numStartIntfMonInUnits ),
   PRINTED( numStopIntfMonInUnits ),
   PRINTED( numIntfMonProfileChange ),
   PRINTED( numIntfMonProfileDelete ),
   PRINTED( numIntfMonPendingProfileResolved ),
   PRINTED( numIntfMonDefProfileUpdate ),
   PRINTED( numIntfMonIntfNotSupported ),
   PRINTED( numIntfMonNoIntfStatus ),
   PRINTED( numIntfMonIntfOperNotUp ),
};
#undef PRINTED

Vel::String blanks( unsigned count ) { return Vel::String( count, ' ' ); }

void dumpOwnLines( int fd, const char * prefix, const DrainWatchSm & root ) {
   dprintf( fd, "%sinitialized : %s\n", prefix, Vel::boolText( root.initialized() ) );
   for ( const auto & [name, value] : printedCounters )
      dprintf( fd, "%s%s: %u\n", prefix, name, ( *root.counters().*value )() );
   dprintf( fd, "%srefCount: %u\n", prefix, root.getRefCount() );
   dprintf( fd, "%sNum unitMon entries: %u\n", prefix, root.unitMons() );
   dprintf( fd, "%sNum intfMon entries: %u\n", prefix, root.intfMons() );
   dprintf( fd, "%sNum unitMonIntfInput entries: %u\n", prefix, root.unitMonIntfInput()->unitIntfInputs() );
   dprintf( fd, "%sNum unitDrainedIntf entries: %u\n", prefix, root.unitDrainedIntf()->unitIntfInputs() );
}

/// Without a directory there is nothing in it.
void dumpRecords( int fd, unsigned indent, const Maintenance::MonIntfStatusDir * dir ) {
   const Vel::String heading = blanks( indent + 2 );
   const Vel::String line = blanks( indent + 4 );
   const char * p = line.c_str();
   dprintf( fd, "%sMonIntfStatusDir:\n", heading.c_str() );
   dprintf( fd, "%sNum monIntfStatus entries: %u\n", p, dir ? dir->monIntfStatuss() : 0 );
   dprintf( fd, "%sNum monIntfEnterMaint : %u\n", p, dir ? dir->monIntfEnterMaints() : 0 );
   dprintf( fd, "%sNum monIntfUnderMaint : %u\n", p, dir ? dir->monIntfUnderMaints() : 0 );
   dprintf( fd, "%sNum monIntfSpikeUnderMaint : %u\n", p, dir ? dir->monIntfSpikeUnderMaints() : 0 );
}

void dumpShutdowns( int fd, unsigned indent, const Errdisable::CauseStatus * cause ) {
   const Vel::String heading = blanks( indent + 2 );
   const Vel::String line = blanks( indent + 4 );
   dprintf( fd, "%sInterfaces shutdown for maintenance:\n", heading.c_str() );
   dprintf( fd, "%scauseGroup: %s\n", line.c_str(), cause ? cause->causeGroupName().c_str() : "" );
   dprintf( fd, "%snum intfs: %u\n", line.c_str(), cause ? cause->intfStatuss() : 0 );
   if ( !cause )
      return;
   const Vel::String prefix = blanks( indent + 6 );
   const double now = Vel::System::currentTime();
   for ( const auto & [intf, since] : cause->intfStatusRange() )
      dprintf( fd, "%s%s at %f (%fs ago)\n", prefix.c_str(), Vel::text( intf ).c_str(), since, now - since );
}

} // namespace

void DrainWatchSm::dump( int fd, unsigned indent ) const {
   constexpr const char * own = "  ";
   dprintf( fd, "DrainWatchSm:\n" );
   dumpOwnLines( fd, own, *this );
   dprintf( fd, "%sDumping UnitMonSms:\n", own );
   for ( const auto & [unitName, unitMonSm] : unitMonRange() )
      unitMonSm->dump( fd, indent + 2 );
   dprintf( fd, "%sDumping IntfMonSms:\n", own );
   for ( const auto & [intf, intfMonSm] : intfMonRange() )
      intfMonSm->dump( fd, indent + 2 );
   if ( intfStatusSm() )
      intfStatusSm()->dump( fd, indent + 2 );
   dumpRecords( fd, indent, monIntfStatusDir().get() );
   dumpShutdowns( fd, indent, errDisableCauseStatus().get() );
}

} // namespace MaintenanceMode
