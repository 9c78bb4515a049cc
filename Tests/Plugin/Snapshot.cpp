#include "Tests/Plugin/Snapshot.h"

#include "Platform/Cog/ManualClock.h"

#include <cmath>

namespace Tests {

using MaintenanceMode::PluginRig;

namespace {

std::string at( double time ) {
   return time == 0 ? "never" : Vel::text( "+", time - Cog::ManualClock::defaultStartTime );
}

long long bps( double rate ) { return std::llround( rate ); }

std::string record( const Maintenance::MonIntfStatus & r ) {
   return Vel::text(
      r.intfId(), ": ", r.profileName(), " ", r.state(), " since ", at( r.stateTime() ), ", start ",
      at( r.startTime() ), ", cur ", bps( r.curRates().inBitsRate ), "/", bps( r.curRates().outBitsRate ),
      " ", at( r.curRates().sampleTime ), ", prev ", bps( r.prevRates().inBitsRate ), "/",
      bps( r.prevRates().outBitsRate ), ", last ", at( r.lastSampleTime() ), ", samples ", r.totalSamples(),
      " quiet run ", r.numConsecutiveDrainedSamples(), " pre ", r.numSamplesBelowThresholdPreMaint(), "-",
      r.numSamplesAboveThresholdPreMaint(), " post ", r.numSamplesBelowThresholdPostMaint(), "-",
      r.numSamplesAboveThresholdPostMaint(), r.spikeUnderMaint() ? " spike" : "", r.stale() ? " stale" : "",
      "\n" );
}

template < class Range >
std::string keys( const char * name, const Range & range ) {
   std::string text;
   for ( const auto & [key, value] : range )
      text += " " + Vel::text( key );
   return text.empty() ? "" : name + ( ":" + text + "\n" );
}

} // namespace

std::string snapshot( const PluginRig & rig ) {
   std::string text;
   const auto & dir = *rig.monIntfStatusDir;
   for ( const auto & [intf, r] : dir.monIntfStatusRange() )
      text += record( *r );
   text += keys( "entering", dir.monIntfEnterMaintRange() );
   text += keys( "under", dir.monIntfUnderMaintRange() );
   text += keys( "spikes", dir.monIntfSpikeUnderMaintRange() );
   for ( const auto & [name, unit] : rig.unitStatusDir->statusRange() ) {
      text += Vel::text(
         name, ": ", unit->state(), ", in ", unit->aggTrafficRate().inRate, " out ",
         unit->aggTrafficRate().outRate );
      text += unit->totalIntfTrafficViolations()
                 ? Vel::text( ", violations ", unit->totalIntfTrafficViolations() )
                 : "";
      text += "\n";
      text += keys( "  violating", unit->intfsViolatingTrafficThresholdRange() );
   }
   for ( const auto & [intf, time] : rig.cause->intfStatusRange() )
      text += Vel::text( "shut: ", intf, " ", at( time ), "\n" );
   text += keys( "enter complete", rig.enterClass.agentStatus->completeRange() );
   text += keys( "exit complete", rig.exitClass.agentStatus->completeRange() );
   if ( rig.root ) {
      for ( const auto & [name, unitMon] : rig.root->unitMonRange() )
         text += Vel::text(
            "monitoring ", name, "#", unitMon->genId(), ": ", unitMon->drainedIntf()->intfs(), " of ",
            unitMon->monIntf()->intfs(), "\n" );
      std::string counters;
      for ( const Vel::AttributeInfo & a : rig.counters().typeInfo().attributes() )
         if ( const auto value = *static_cast< const Vel::U32 * >( a.raw( rig.counters() ) ) )
            counters += Vel::text( " ", a.name, "=", value );
      text += counters.empty() ? "" : "counters:" + counters + "\n";
   }
   return text;
}

} // namespace Tests
