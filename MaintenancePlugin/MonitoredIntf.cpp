#include "MaintenancePlugin/MonitoredIntf.h"

#include "MaintenancePlugin/DrainWatchSm.h"
#include "MaintenancePlugin/PluginTrace.h"

namespace MaintenanceMode {

using Interface::IntfRates;

namespace {
Vel::TraceFacility trace( "MonitoredIntf" );

/// Bits per second from octets and seconds. Counters that went backwards give one huge rate, and so does the
/// multiplication when it wraps: a sample like that must never read as quiet.
double bitsRate( Vel::U64 octets, double seconds ) { return static_cast< double >( octets * 8 ) / seconds; }
} // namespace

bool isSupportedIntf( const Wire::IntfId & intf ) {
   if ( Wire::SubIntfId::isSubIntfId( intf ) )
      return false;
   return Wire::EthIntfId::isEthIntfId( intf ) || Wire::PortChannelIntfId::isPortChannelIntfId( intf ) ||
          Wire::VlanIntfId::isVlanIntfId( intf );
}

MonitoredIntf::MonitoredIntf(
   const Wire::IntfId & intfId, DrainWatchSm * drainWatchSm, const Vel::String & profileName )
   : intfId_( intfId ), drainWatchSm_( drainWatchSm ), profileName_( profileName ) {
   handleInitialized();
}

MonitoredIntf::~MonitoredIntf() {
   prepareToDie();
   memberTrafficCountersDelAll();
}

void MonitoredIntf::handleInitialized() {
   VEL_ASSERT( !initialized(), "!initialized()" );
   if ( const auto & dir = drainWatchSm()->monIntfStatusDir() ) {
      auto * record = dir->monIntfStatus( intfId() );
      if ( record )
         record->profileNameIs( profileName() );
      else {
         record = dir->monIntfStatusIs( intfId(), profileName(), Vel::System::currentTime() );
         TRACE( 4, "Created new mon intf status for intf ", intfId(), ", profile ", profileName() );
         FASTLOG( "created new mon intf status for intf ", intfId(), ", profile ", profileName() );
      }
      record->staleIs( false );
      monIntfStatusIs( record );
   }
   // The first sample is the baseline: it publishes nothing.
   try {
      updateTrafficRates();
   } catch ( ... ) {
      // There will be nobody to take the record away.
      prepareToDie();
      throw;
   }
   initializedIs( true );
}

void MonitoredIntf::prepareToDie() {
   TRACE_TEXT( 4, "MonitoredIntf::prepareToDie ", intfId() );
   FASTLOG( "MonitoredIntf::prepareToDie ", intfId() );
   const auto & dir = drainWatchSm()->monIntfStatusDir();
   if ( !dir )
      return;
   dir->monIntfStatusDel( intfId() );
   dir->monIntfEnterMaintDel( intfId() );
   dir->monIntfUnderMaintDel( intfId() );
   dir->monIntfSpikeUnderMaintDel( intfId() );
}

void MonitoredIntf::profileNameIs( const Vel::String & profileName ) {
   if ( profileNameStore( profileName ) )
      handleProfileName();
}

void MonitoredIntf::handleProfileName() {
   TRACE( 4, "intf ", intfId(), ", new profileName ", profileName() );
   if ( monIntfStatus() )
      monIntfStatus()->profileNameIs( profileName() );
}

void MonitoredIntf::updateTrafficRates() {
   if ( Wire::EthIntfId::isEthIntfId( intfId() ) )
      getEthPhyIntfTrafficCounters( intfId() );
   else if ( Wire::PortChannelIntfId::isPortChannelIntfId( intfId() ) )
      getLagIntfTrafficCounters( intfId() );
   else if ( Wire::VlanIntfId::isVlanIntfId( intfId() ) )
      getVlanIntfTrafficCounters( intfId() );
   else
      VEL_ASSERT( false, "0" );
}

IntfRates MonitoredIntf::getEthPhyIntfTrafficCounters( const Wire::IntfId & argIntfId ) {
   VEL_ASSERT( Wire::EthIntfId::isEthIntfId( argIntfId ), "Wire::EthIntfId::isEthIntfId( argIntfId )" );
   const bool own = argIntfId == intfId();
   IntfCounterInfo * known = own ? ownCounters_.get() : memberTrafficCounters( argIntfId );
   const EthIntfCounter * const counter = currentCounter( argIntfId, known );
   if ( !counter ) {
      drainWatchSm()->counters()->numNoIntfCounterInc( 1 );
      return {};
   }
   if ( !known ) {
      known = memberTrafficCountersIs( argIntfId );
      if ( own )
         ownCounters_ = known;
   }
   IntfCounterInfo & info = *known;
   const OctetCounts old = info.prevStats();
   const double oldUpdateTime = info.lastUpdateTime();
   const auto statistics = counter->statistics();
   const double now = Vel::System::currentTime();
   const OctetCounts present{ statistics.inOctets, statistics.outOctets };
   info.prevStatsIs( present );
   info.lastUpdateTimeIs( now );
   if ( !initialized() )
      return info.rates();

   const Cog::MaybeU63 outDelta = present.outOctets - old.outOctets;
   const Vel::U64 inDelta = present.inOctets - old.inOctets;
   const double deltaTime = now - oldUpdateTime;
   IntfRates rates;
   rates.outBitsRate = outDelta.hasValue() ? bitsRate( outDelta.value(), deltaTime ) : 0;
   rates.inBitsRate = bitsRate( inDelta, deltaTime );
   rates.sampleTime = now;
   info.ratesIs( rates );
   TRACE( 9, "intf ", argIntfId, ": cur in/out ", present.inOctets, " / ", present.outOctets );
   TRACE( 9, "intf ", argIntfId, ": prev in/out ", old.inOctets, " / ", old.outOctets );
   TRACE( 9, "intf ", argIntfId, ": delta in/out ", inDelta, " / ", outDelta, ", deltaTime ", deltaTime );
   TRACE( 9, "intf ", argIntfId, ": rates in/out (bps) ", rates.inBitsRate, " / ", rates.outBitsRate );
   // A member that is read for a port-channel or a VLAN publishes nothing.
   if ( own )
      setCurRates( monIntfStatus(), rates );
   return rates;
}

const MonitoredIntf::EthIntfCounter *
MonitoredIntf::currentCounter( const Wire::IntfId & port, IntfCounterInfo * info ) {
   const auto & phyCounterDir = drainWatchSm()->phyCounterDir();
   if ( !phyCounterDir )
      return nullptr;
   const auto current = []( const IntfCounterInfo::EthIntfCounterDir * counterDir ) {
      return counterDir ? counterDir->counter( "current" ) : nullptr;
   };
   if ( !info )
      return current( phyCounterDir->intfCounterDir( port ) );
   const Vel::U64 portChanges = drainWatchSm()->monIntfDir()->portChanges( phyCounterDir );
   if ( !info->found.counterDir || info->found.portChanges != portChanges )
      info->found = { phyCounterDir->intfCounterDir( port ), portChanges };
   return current( info->found.counterDir.get() );
}

void MonitoredIntfDir::watch( const Vel::Ptr< const AllEthIntfCounterPtrDir > & phyCounterDir ) {
   ++portChanges_;
   phyCounterDirReactor_.is( phyCounterDir, this ).hasNotificationActiveIs( true );
}

IntfRates MonitoredIntf::getLagIntfTrafficCounters( const Wire::IntfId & argIntfId ) {
   VEL_ASSERT(
      Wire::PortChannelIntfId::isPortChannelIntfId( argIntfId ),
      "Wire::PortChannelIntfId::isPortChannelIntfId( argIntfId )" );
   IntfRates sum;
   // Configured members count, up or not: what their counters show went through the port-channel.
   if ( const auto & lagConfigDir = drainWatchSm()->lagConfigDir() )
      for ( const Wire::IntfId & member : lagConfigDir->memberRange( argIntfId ) ) {
         if ( !Wire::EthIntfId::isEthIntfId( member ) )
            continue;
         const IntfRates rates = getEthPhyIntfTrafficCounters( member );
         sum.inBitsRate += rates.inBitsRate;
         sum.outBitsRate += rates.outBitsRate;
      }
   sum.sampleTime = Vel::System::currentTime();
   publish( argIntfId, sum );
   return sum;
}

IntfRates MonitoredIntf::getVlanIntfTrafficCounters( const Wire::IntfId & argIntfId ) {
   VEL_ASSERT( Wire::VlanIntfId::isVlanIntfId( argIntfId ), "Wire::VlanIntfId::isVlanIntfId( argIntfId )" );
   IntfRates busiest;
   const Bridging::VlanId vlanId( Wire::VlanIntfId::vlanId( argIntfId ) );
   const auto & vlanStatusDir = drainWatchSm()->vlanStatusDir();
   const auto * vlanStatus = vlanStatusDir ? vlanStatusDir->vlanStatus( vlanId ) : nullptr;
   if ( !vlanStatus ) {
      drainWatchSm()->counters()->numNoVlanStatusInc( 1 );
      FASTLOG( "getVlanIntfTrafficCounters: no vlan status for vlan ", vlanId.value(), ", intf ", argIntfId );
   } else
      for ( const auto & [member, status] : vlanStatus->vlanPortStatusRange() ) {
         if ( Wire::CpuIntfId::isCpuIntfId( member ) )
            continue;
         IntfRates rates;
         if ( Wire::PortChannelIntfId::isPortChannelIntfId( member ) )
            rates = getLagIntfTrafficCounters( member );
         else if ( Wire::EthIntfId::isEthIntfId( member ) )
            rates = getEthPhyIntfTrafficCounters( member );
         else
            VEL_ASSERT( false, "0" );
         if ( rates.outBitsRate > busiest.outBitsRate )
            busiest.outBitsRate = rates.outBitsRate;
         if ( rates.inBitsRate > busiest.inBitsRate )
            busiest.inBitsRate = rates.inBitsRate;
      }
   busiest.sampleTime = Vel::System::currentTime();
   publish( argIntfId, busiest );
   return busiest;
}

void MonitoredIntf::publish( const Wire::IntfId & argIntfId, const IntfRates & rates ) {
   if ( argIntfId == intfId() && initialized() )
      setCurRates( monIntfStatus(), rates );
}

void MonitoredIntf::setCurRates(
   const Vel::Ptr< Maintenance::MonIntfStatus > & monIntfStatus, const IntfRates & rates ) {
   VEL_ASSERT( monIntfStatus, "monIntfStatus" );
   const IntfRates previous = monIntfStatus->curRates();
   TRACE(
      9, "IntfId:", monIntfStatus->intfId(), " Prev[ inBitsRate:", previous.inBitsRate,
      " outBitsRate:", previous.outBitsRate, " lastSampleTime:", previous.sampleTime,
      "] Cur[ inBitsRate:", rates.inBitsRate, " outBitsRate:", rates.outBitsRate,
      " curSampleTime:", rates.sampleTime );
   // Who is told of the new rates finds the ones that they replace.
   monIntfStatus->prevRatesIs( previous );
   monIntfStatus->curRatesIs( rates );
   monIntfStatus->lastSampleTimeIs( Vel::System::currentTime() );
}

} // namespace MaintenanceMode
