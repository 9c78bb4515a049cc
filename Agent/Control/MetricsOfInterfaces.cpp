#include "Agent/Control/MetricsWriter.h"
#include "Agent/Control/Shapes.h"

#include <cmath>

namespace Agent {

void Metrics::Writer::allInterfaces() {
   ofThose(
      "maint_interface_state", Type::gauge,
      "Always 1; how far the monitoring of an interface is: idle, enter-maint, under-maint or stopped.",
      &IntfSeen::record, [this]( const IntfSeen & intf ) {
         out.sample( 1, { { "interface", intf.name }, { "state", monStateText( intf.record->state() ) } } );
      } );
   out.metric(
      "maint_interface_rate_bytes_per_second", Type::gauge, "Traffic of an interface, monitored or not." );
   for ( const IntfSeen & intf : interfaces )
      if ( const auto rate = ratesOf( model, commands, intf.id ) )
         rates( "interface", intf.name, rate->inBitsRate, rate->outBitsRate );
   reasons();
   profiles();
   records();
   links();
}

void Metrics::Writer::reasons() {
   ofThose(
      "maint_interface_reason", Type::gauge,
      "Always 1; why a monitored interface is not done yet, or that it is: above-threshold, timing, "
      "stalled, "
      "oscillating, starved, drained, shut, spike or stopped.",
      &IntfSeen::reason, [this]( const IntfSeen & intf ) {
         out.sample( 1, { { "interface", intf.name }, { "reason", stringValue( intf.reason->reason ) } } );
      } );
   ofThose(
      "maint_interface_reason_timestamp_seconds", Type::gauge, "Since when an interface has its reason.",
      &IntfSeen::reason, [this]( const IntfSeen & intf ) {
         time( intf.reason->since, { { "interface", intf.name } } );
      } );
   ofThose(
      "maint_interface_eta_timestamp_seconds", Type::gauge,
      "When an interface is expected to have drained or been shut, if that can be said.", &IntfSeen::reason,
      [this]( const IntfSeen & intf ) {
         time( intf.reason->eta.value_or( 0 ), { { "interface", intf.name } } );
      } );
}

void Metrics::Writer::profiles() {
   ofThose(
      "maint_interface_threshold_bytes_per_second", Type::gauge,
      "Rate below which an interface has to stay in both directions to drain.", &IntfSeen::profile,
      [this]( const IntfSeen & intf ) {
         known(
            intf.profile->drainWatchThresholdInKbps() * 1000 / bitsPerByte, { { "interface", intf.name } } );
      } );
   ofThose(
      "maint_interface_load_interval_seconds", Type::gauge,
      "Time for which an interface has to stay below its threshold to drain.", &IntfSeen::profile,
      [this]( const IntfSeen & intf ) {
         out.sample( intf.profile->drainWatchLoadInterval(), { { "interface", intf.name } } );
      } );
   ofThose(
      "maint_interface_forced_shutdown_timestamp_seconds", Type::gauge,
      "When an interface that has not drained yet will be shut in any case.", &IntfSeen::record,
      [this]( const IntfSeen & intf ) {
         if (
            intf.record->state() == Maintenance::monIntfStateEnterMaint && intf.profile &&
            intf.profile->shutdown() && std::isfinite( intf.profile->shutdownMaxDelay() ) )
            time(
               intf.record->startTime() + intf.profile->shutdownMaxDelay(), { { "interface", intf.name } } );
      } );
}

void Metrics::Writer::records() {
   ofThose(
      "maint_interface_quiet_seconds", Type::gauge,
      "Time for which an interface that drains has stayed below its threshold.", &IntfSeen::record,
      [this]( const IntfSeen & intf ) {
         // Of one that does not drain any more the record keeps how it did.
         if ( intf.record->state() == Maintenance::monIntfStateEnterMaint )
            out.sample(
               static_cast< double >( intf.record->numConsecutiveDrainedSamples() ) * secondsPerSample,
               { { "interface", intf.name } } );
      } );
   ofThose(
      "maint_interface_samples_total", Type::counter, "Samples of an interface in this maintenance.",
      &IntfSeen::record, [this]( const IntfSeen & intf ) {
         out.sample( intf.record->totalSamples(), { { "interface", intf.name } } );
      } );
   ofInterfaces(
      "maint_interface_spike",
      "Whether traffic has come back at least once in this maintenance after an interface had drained "
      "(1).",
      []( const IntfSeen & intf ) { return intf.record && intf.record->spikeUnderMaint(); } );
}

void Metrics::Writer::links() {
   ofInterfaces(
      "maint_interface_shut", "Whether the plug-in wants a link shut (1).",
      [this]( const IntfSeen & intf ) { return model.cause->intfStatus( intf.id ) != nullptr; } );
   ofInterfaces(
      "maint_interface_held", "Whether the agent holds a link down, or is about to let it up (1).",
      [this]( const IntfSeen & intf ) { return model.journal->entry( intf.id ) != nullptr; } );
   out.metric(
      "maint_interface_up", Type::gauge, "Whether a link is up (1) or down (0), as the switch has it." );
   for ( const IntfSeen & intf : interfaces )
      if ( intf.link == "up" || intf.link == "down" )
         out.sample( intf.link == "up", { { "interface", intf.name } } );
   out.metric(
      "maint_interface_drift", Type::gauge,
      "Always 1; a link that somebody else has raised while the agent holds it down, or lowered while it "
      "is "
      "watched." );
   for ( const IntfSeen & intf : interfaces )
      if ( !intf.drift.empty() )
         out.sample( 1, { { "interface", intf.name }, { "drift", intf.drift } } );
}

} // namespace Agent
