#include "MaintenancePlugin/MonitoredIntf.h"

#include "Platform/Vel/Clock.h"

#include <cstdio>

namespace MaintenanceMode {

namespace {

double ago( double time ) { return Vel::System::currentTime() - time; }
double mbps( double bitsPerSecond ) { return bitsPerSecond / 1e6; }

void dumpRates( int fd, const char * blanks, const char * name, const Interface::IntfRates & rates ) {
   dprintf(
      fd, "%s%s: in/out (Mbps): %f / %f (updated %fs ago)\n", blanks, name, mbps( rates.inBitsRate ),
      mbps( rates.outBitsRate ), ago( rates.sampleTime ) );
}

void dumpRecord( int fd, unsigned indent, const Maintenance::MonIntfStatus & record ) {
   const Vel::String heading( indent, ' ' );
   const Vel::String fields( indent + 2, ' ' );
   const char * s = fields.c_str();
   const auto time = [&]( const char * name, double value ) {
      dprintf( fd, "%s%s: %f (%fs ago)\n", s, name, value, ago( value ) );
   };
   const auto count = [&]( const char * name, Vel::U32 value ) {
      dprintf( fd, "%s%s: %u\n", s, name, value );
   };
   dprintf( fd, "%sMonIntfStatus : %s\n", heading.c_str(), record.name().c_str() );
   dprintf( fd, "%sprofileName: %s\n", s, record.profileName().c_str() );
   time( "startTime", record.startTime() );
   time( "lastSampleTime", record.lastSampleTime() );
   dumpRates( fd, s, "curRates", record.curRates() );
   dumpRates( fd, s, "prevRates", record.prevRates() );
   count( "numConsecutiveDrainedSamples", record.numConsecutiveDrainedSamples() );
   count( "totalSamples", record.totalSamples() );
   count( "numSamplesAboveThresholdPreMaint", record.numSamplesAboveThresholdPreMaint() );
   count( "numSamplesBelowThresholdPreMaint", record.numSamplesBelowThresholdPreMaint() );
   count( "numSamplesAboveThresholdPostMaint", record.numSamplesAboveThresholdPostMaint() );
   count( "numSamplesBelowThresholdPostMaint", record.numSamplesBelowThresholdPostMaint() );
   dprintf( fd, "%sstate: %s\n", s, stringValue( record.state() ).c_str() );
   time( "stateTime", record.stateTime() );
   dprintf( fd, "%sspikeUnderMaint: %s\n", s, Vel::boolText( record.spikeUnderMaint() ) );
   dprintf( fd, "%sstale: %s\n", s, Vel::boolText( record.stale() ) );
}

} // namespace

void MonitoredIntf::dump( int fd, unsigned indent ) const {
   const Vel::String first( indent, ' ' );
   const Vel::String rest( indent + 2, ' ' );
   const char * s = rest.c_str();
   using ull = unsigned long long;
   dprintf( fd, "%sMonitored interface: %s\n", first.c_str(), stringValue( intfId() ).c_str() );
   dprintf( fd, "%sprofileName: %s\n", s, profileName().c_str() );
   dprintf( fd, "%snum memberTrafficCounters: %u\n", s, memberTrafficCounterss() );
   for ( const auto & [intf, info] : memberTrafficCountersRange() ) {
      const OctetCounts counts = info->prevStats();
      const Interface::IntfRates rates = info->rates();
      dprintf( fd, "%sinterface: %s\n", s, stringValue( intf ).c_str() );
      dprintf(
         fd, "%s  prev in/out: %llu / %llu( updated % fs ago )\n", s, ull{ counts.inOctets },
         ull{ counts.outOctets.value() }, ago( info->lastUpdateTime() ) );
      dprintf(
         fd, "%s  rates in/out (Mbps): %f / %f (updated %fs ago)\n", s, mbps( rates.inBitsRate ),
         mbps( rates.outBitsRate ), ago( rates.sampleTime ) );
   }
   if ( monIntfStatus() )
      dumpRecord( fd, indent + 2, *monIntfStatus() );
}

} // namespace MaintenanceMode
