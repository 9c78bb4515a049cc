#include "Agent/Control/AnswersJson.h"

#include "Agent/Control/Shapes.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>

namespace Agent {

using nlohmann::json;

namespace {

/// Of the two directions; not a number unless both are known.
double busier( const Interface::IntfRates & rates ) {
   return std::isfinite( rates.inBitsRate ) ? std::max( rates.outBitsRate, rates.inBitsRate )
                                            : rates.inBitsRate;
}

} // namespace

json Answers::Json::interface( const Wire::IntfId & intf ) const {
   const auto * record = model.monIntfStatusDir->monIntfStatus( intf );
   const auto rates = ratesOf( model, commands, intf );
   return {
      { "name", intf.name() },
      { "kind", kindText( intf.kind() ) },
      { "units", unitsOfInterface( model, intf ) },
      { "profile", textOrNull( profileOf( model, intf ) ) },
      { "state", record ? json( monStateText( record->state() ) ) : json( nullptr ) },
      { "in-bps", rates ? number( rates->inBitsRate ) : json( nullptr ) },
      { "out-bps", rates ? number( rates->outBitsRate ) : json( nullptr ) },
      { "samples", record ? counter( record->totalSamples() ) : json( nullptr ) },
      { "consecutive-drained-samples",
        record ? counter( record->numConsecutiveDrainedSamples() ) : json( nullptr ) },
      { "spike", record && record->spikeUnderMaint() },
      { "shut", model.cause->intfStatus( intf ) != nullptr },
      { "link-state", commands.linkState( intf ) },
      { "drift", textOrNull( commands.drift( intf ) ) },
      { "reason", reason( intf ) },
      { "start-time", record ? time( record->startTime() ) : json( nullptr ) },
      { "state-time", record ? time( record->stateTime() ) : json( nullptr ) },
      { "last-sample-time", record ? time( record->lastSampleTime() ) : json( nullptr ) } };
}

json Answers::Json::reason( const Wire::IntfId & intf ) const {
   const auto facts = reasonFacts( model, intf, commands.now() );
   if ( !facts )
      return nullptr;
   const auto rates = ratesOf( model, commands, intf );
   return {
      { "code", stringValue( facts->reason ) },
      { "since", time( facts->since ) },
      { "rate-bps", rates ? number( busier( *rates ) ) : json( nullptr ) },
      { "threshold-bps", number( facts->threshold ) },
      { "quiet-seconds", facts->quiet },
      { "load-interval-seconds", number( facts->loadInterval ) },
      { "eta-seconds", ahead( facts->eta ) },
      { "shutdown-at", time( facts->shutdownAt.value_or( 0 ) ) },
      { "unwatched-since", time( facts->unwatched.value_or( 0 ) ) },
      { "trend", facts->trend == Trend::unknown ? json( nullptr ) : json( stringValue( facts->trend ) ) },
      { "text", reasonText( *facts, commands ) } };
}

} // namespace Agent
