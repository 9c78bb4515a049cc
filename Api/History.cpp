#include "Api/History.h"

#include "Api/Reader.h"

#include <nlohmann/json.hpp>

namespace Api {

namespace {

Maintenance maintenanceOf( const Reader & in ) {
   Maintenance maintenance;
   maintenance.id = in.counter( "id" );
   maintenance.unit = in.name( "unit" );
   maintenance.generation = in.counter( "generation" );
   maintenance.outcome = in.name( "outcome" );
   maintenance.began = in.time( "began" );
   maintenance.inMaintenance = in.time( "in-maintenance" );
   maintenance.exitBegan = in.time( "exit-began" );
   maintenance.ended = in.time( "ended" );
   maintenance.by = in.maybeText( "by" );
   maintenance.reason = in.maybeText( "reason" );
   maintenance.exitBy = in.maybeText( "exit-by" );
   maintenance.exitReason = in.maybeText( "exit-reason" );
   maintenance.operation = in.maybeCounter( "operation" );
   maintenance.exitOperation = in.maybeCounter( "exit-operation" );
   maintenance.with = in.pairs( "with" );
   maintenance.exitWith = in.pairs( "exit-with" );
   const Reader counts = in.below( "counts" );
   maintenance.interfaces = counts.counter( "interfaces" );
   maintenance.drained = counts.counter( "drained" );
   maintenance.forced = counts.counter( "forced" );
   maintenance.spikes = counts.counter( "spikes" );
   return maintenance;
}

PastTimes timesOf( const Reader & in ) {
   return {
      in.time( "deadline" ), in.maybeText( "on-overrun" ), in.time( "overrun" ), in.time( "revert-at" ) };
}

PastStage stageOf( const Reader & in ) {
   return { in.name( "way" ),   in.name( "name" ),  in.text( "state" ),
            in.time( "began" ), in.time( "ended" ), in.maybeText( "failure" ) };
}

PastReason reasonOf( const Reader & in ) {
   return { in.time( "time" ), in.name( "code" ), in.maybeNumber( "rate-bps" ) };
}

PastSpike spikeOf( const Reader & in ) {
   return { in.time( "began" ), in.time( "ended" ), in.maybeNumber( "peak-bps" ) };
}

PastDrift driftOf( const Reader & in ) { return { in.time( "time" ), in.maybeText( "what" ) }; }

PastInterface interfaceOf( const Reader & in ) {
   PastInterface interface;
   interface.name = in.name( "name" );
   const Reader profile = in.below( "profile" );
   interface.profile = profile.maybeText( "name" );
   interface.thresholdBps = profile.maybeNumber( "threshold-bps" );
   interface.loadIntervalSeconds = profile.maybeNumber( "load-interval-seconds" );
   interface.shutdown = profile.flag( "shutdown" );
   interface.shutdownMaxDelaySeconds = profile.maybeNumber( "shutdown-max-delay-seconds" );
   interface.profileChanged = in.time( "profile-changed" );
   interface.began = in.time( "began" );
   interface.drained = in.time( "drained" );
   interface.shut = in.time( "shut" );
   interface.raised = in.time( "raised" );
   interface.released = in.time( "released" );
   interface.shutdownKind = in.maybeText( "shutdown" );
   interface.firstInBps = in.maybeNumber( "first-in-bps" );
   interface.firstOutBps = in.maybeNumber( "first-out-bps" );
   interface.peakInBps = in.maybeNumber( "peak-in-bps" );
   interface.peakOutBps = in.maybeNumber( "peak-out-bps" );
   interface.peakTime = in.time( "peak-time" );
   interface.reasons = in.list( "reasons", reasonOf );
   interface.reasonsLeftOut = in.counter( "reasons-left-out" );
   interface.totalSpikes = in.counter( "total-spikes" );
   interface.spikes = in.list( "spikes", spikeOf );
   interface.drift = in.list( "drift", driftOf );
   const Reader curve = in.below( "curve" );
   interface.curveStart = curve.time( "start" );
   interface.curveStepSeconds = curve.maybeNumber( "step-seconds" ).value_or( 0 );
   interface.curveInBps = curve.numbers( "in-bps" );
   interface.curveOutBps = curve.numbers( "out-bps" );
   return interface;
}

} // namespace

std::vector< Maintenance > readMaintenances( std::string_view text ) {
   return Reader::listOf( Reader::parsed( text ), maintenanceOf );
}

MaintenanceRecord readMaintenanceRecord( std::string_view text ) {
   const auto answer = Reader::parsed( text );
   const Reader in( answer );
   return {
      maintenanceOf( in ),
      in.texts( "overridden" ),
      timesOf( in.below( "times" ) ),
      in.list( "stages", stageOf ),
      in.list( "interfaces", interfaceOf ),
      in.counter( "interfaces-left-out" ) };
}

} // namespace Api
