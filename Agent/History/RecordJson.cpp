#include "Agent/History/RecordJson.h"

#include "Agent/Model/Operation.h"
#include "Api/Error.h"
#include "Api/History.h"
#include "Api/Values.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>

namespace Agent {

using nlohmann::json;

namespace {

/// What the head of a record ends with. In a string its quotes would be escaped.
const char * const interfacesBegin = ",\"interfaces\":[";

/// Reasons come from outside; what is not UTF-8 is shown, not refused.
std::string text( const json & value ) {
   return value.dump( -1, ' ', false, json::error_handler_t::replace );
}

/// `open` for what is no end of a maintenance.
Outcome outcomeOf( const std::string & text ) {
   for ( const Outcome outcome : { Outcome::completed, Outcome::cancelled, Outcome::aborted } )
      if ( stringValue( outcome ) == text )
         return outcome;
   return Outcome::open;
}

json textOrNull( const Vel::String & value ) { return value.empty() ? json( nullptr ) : json( value ); }

json idOrNull( Vel::U32 id ) { return id ? json( id ) : json( nullptr ); }

json number( double value ) { return std::isfinite( value ) ? json( value ) : json( nullptr ); }

json rate( double bps ) { return std::isfinite( bps ) && bps >= 0 ? json( bps ) : json( nullptr ); }

/// Times of one record.
struct Times {
   double wallOffset;
   json operator()( double time ) const {
      return time > 0 ? json( Api::timeText( time + wallOffset ) ) : json( nullptr );
   }
};

/// A list; null if there are none.
json linesJson( const std::string & lines ) {
   json result = nullptr;
   for ( std::size_t begin = 0; begin < lines.size(); ) {
      const std::size_t end = std::min( lines.find( '\n', begin ), lines.size() );
      result.push_back( lines.substr( begin, end - begin ) );
      begin = end + 1;
   }
   return result;
}

json summaryJson( const HistorySummary & s ) {
   const Times time{ 0 };
   return {
      { "id", s.id() },
      { "unit", s.unitName() },
      { "generation", s.generation() },
      { "outcome", stringValue( s.outcome() ) },
      { "began", time( s.began() ) },
      { "in-maintenance", time( s.inMaintenance() ) },
      { "exit-began", time( s.exitBegan() ) },
      { "ended", time( s.ended() ) },
      { "by", textOrNull( s.by() ) },
      { "reason", textOrNull( s.reason() ) },
      { "exit-by", textOrNull( s.exitBy() ) },
      { "exit-reason", textOrNull( s.exitReason() ) },
      { "operation", idOrNull( s.operation() ) },
      { "exit-operation", idOrNull( s.exitOperation() ) },
      { "with", pairsOf( s.with() ) },
      { "exit-with", pairsOf( s.exitWith() ) },
      { "counts",
        { { "interfaces", s.intfs() },
          { "drained", s.drained() },
          { "forced", s.forced() },
          { "spikes", s.spikes() } } } };
}

json timesJson( const HistoryRecord & record, const Times & time ) {
   return {
      { "deadline", time( record.deadline() ) },
      { "on-overrun",
        record.deadline() > 0 ? json( record.restore() ? "restore" : "keep" ) : json( nullptr ) },
      { "overrun", time( record.overrun() ) },
      { "revert-at", time( record.revertAt() ) } };
}

json profileJson( const HistoryProfile & profile ) {
   if ( profile.name.empty() )
      return nullptr;
   return {
      { "name", profile.name },
      { "threshold-bps", number( profile.thresholdBps ) },
      { "load-interval-seconds", profile.loadInterval },
      { "shutdown", profile.shutdown },
      { "shutdown-max-delay-seconds", number( profile.shutdownMaxDelay ) } };
}

json stagesJson( const HistoryRecord & record, const Times & time ) {
   json result = json::array();
   for ( const auto & [key, stage] : record.stageRange() ) {
      const std::size_t slash = key.find( '/' );
      const std::string way = key.substr( 0, slash );
      const bool goesOn = record.ended() == 0 && ( way == "enter" ) == ( record.exitBegan() == 0 );
      result.push_back(
         { { "way", way },
           { "name", key.substr( slash + 1 ) },
           { "state", !stage->failure().empty() ? "failed"
                      : stage->ended() > 0      ? "complete"
                      : goesOn                  ? "running"
                                                : "cancelled" },
           { "began", time( stage->began() ) },
           { "ended", time( stage->ended() ) },
           { "failure", textOrNull( stage->failure() ) } } );
   }
   return result;
}

json curveJson( const SampleCurve & curve, const Times & time ) {
   if ( curve.in.empty() )
      return nullptr;
   const auto rates = []( const std::vector< float > & values ) {
      json result = json::array();
      for ( const float value : values )
         result.push_back( std::isfinite( value ) ? json( std::llround( value ) ) : json( nullptr ) );
      return result;
   };
   return {
      { "start", time( curve.start ) },
      { "step-seconds", curve.step },
      { "in-bps", rates( curve.in ) },
      { "out-bps", rates( curve.out ) } };
}

json reasonsJson( const HistoryIntf & intf, const Times & time ) {
   json result = json::array();
   for ( const auto & [since, reason] : intf.reasonRange() )
      result.push_back(
         { { "time", time( since ) },
           { "code", stringValue( reason.reason ) },
           { "rate-bps", rate( reason.bps ) } } );
   return result;
}

json spikesJson( const HistoryIntf & intf, const Times & time ) {
   json result = json::array();
   for ( const auto & [began, spike] : intf.spikeRange() )
      result.push_back(
         { { "began", time( began ) },
           { "ended", time( spike.ended ) },
           { "peak-bps", rate( spike.peakBps ) } } );
   return result;
}

json driftsJson( const HistoryIntf & intf, const Times & time ) {
   json result = json::array();
   for ( const auto & [when, what] : intf.driftChangeRange() )
      result.push_back(
         { { "time", time( when ) }, { "what", what == "none" ? json( nullptr ) : json( what ) } } );
   return result;
}

/// Rates and their time, each under a key of its own; null if there was no sample.
void addRates(
   json & to, const std::string & prefix, const Interface::IntfRates & rates, const Times & time ) {
   const bool known = rates.sampleTime > 0;
   to[prefix + "-in-bps"] = known ? number( rates.inBitsRate ) : json( nullptr );
   to[prefix + "-out-bps"] = known ? number( rates.outBitsRate ) : json( nullptr );
   to[prefix + "-time"] = time( rates.sampleTime );
}

/// \param peak  of a record that is open; may be null
json intfJson( const HistoryIntf & intf, const Interface::IntfRates * peak, const Times & time ) {
   json result{
      { "name", intf.intfId().name() },
      { "profile", profileJson( intf.profile() ) },
      { "profile-changed", time( intf.profileChanged() ) },
      { "began", time( intf.began() ) },
      { "drained", time( intf.drained() ) },
      { "shutdown", intf.shut() == 0 ? json( nullptr ) : json( intf.forced() ? "forced" : "natural" ) },
      { "shut", time( intf.shut() ) },
      { "raised", time( intf.raised() ) },
      { "released", time( intf.released() ) },
      { "reasons", reasonsJson( intf, time ) },
      { "reasons-left-out", intf.reasonsLeftOut() },
      { "total-spikes", intf.totalSpikes() },
      { "spikes", spikesJson( intf, time ) },
      { "drift", driftsJson( intf, time ) },
      { "drift-left-out", intf.driftsLeftOut() } };
   addRates( result, "first", intf.firstRates(), time );
   addRates( result, "peak", peak ? higherOf( intf.peakRates(), *peak ) : intf.peakRates(), time );
   return result;
}

} // namespace

SampleCurve thinned( const SampleCurve & curve, std::size_t most ) {
   const std::size_t steps = curve.in.size(), several = ( steps + most - 1 ) / most;
   if ( several <= 1 )
      return curve;
   SampleCurve result{ curve.start, static_cast< unsigned >( curve.step * several ), {}, {} };
   const auto thin = [&]( const std::vector< float > & from, std::vector< float > & to ) {
      for ( std::size_t i = 0; i < steps; ++i )
         if ( i % several == 0 )
            to.push_back( from[i] );
         else
            // What is not known says nothing of the rest of the step.
            to.back() = std::fmax( to.back(), from[i] );
   };
   thin( curve.in, result.in );
   thin( curve.out, result.out );
   return result;
}

SampleCurve
curveOf( const HistoryRecord & record, const HistoryIntf & intf, double now, const CurveOf & source ) {
   const std::size_t steps =
      std::clamp( mostStepsOfRecord / std::max< std::size_t >( record.intfs(), 1 ), fewestSteps, mostSteps );
   const double end = record.ended() > 0 ? record.ended() : now;
   return thinned( source( std::string( intf.intfId().name() ), intf.began() - curveBefore, end ), steps );
}

void summarize( const HistoryRecord & record, double wallOffset, HistorySummary & summary ) {
   const auto wall = [&]( double time ) { return time > 0 ? time + wallOffset : 0; };
   summary.generationIs( record.generation() );
   summary.outcomeIs( record.ended() > 0 ? record.outcomeToBe() : Outcome::open );
   summary.beganIs( wall( record.began() ) );
   summary.inMaintenanceIs( wall( record.inMaintenance() ) );
   summary.exitBeganIs( wall( record.exitBegan() ) );
   summary.endedIs( wall( record.ended() ) );
   summary.byIs( record.by() );
   summary.reasonIs( record.reason() );
   summary.exitByIs( record.exitBy() );
   summary.exitReasonIs( record.exitReason() );
   summary.operationIs( record.operation() );
   summary.exitOperationIs( record.exitOperation() );
   summary.withIs( record.with() );
   summary.exitWithIs( record.exitWith() );
   Vel::U32 drained = 0, forced = 0, spikes = 0;
   for ( const auto & [id, intf] : record.intfRange() ) {
      drained += intf->drained() > 0;
      forced += intf->forced();
      spikes += intf->totalSpikes();
   }
   summary.intfsIs( record.intfs() );
   summary.drainedIs( drained );
   summary.forcedIs( forced );
   summary.spikesIs( spikes );
}

std::string summariesText( const std::vector< Vel::Ptr< const HistorySummary > > & summaries ) {
   json list = json::array();
   for ( const auto & summary : summaries )
      list.push_back( summaryJson( *summary ) );
   return text( list ) + "\n";
}

// ---- one record

RecordText::RecordText( Vel::Ptr< const HistoryRecord > record, Context context )
   : record_( std::move( record ) ), context_( std::move( context ) ) {
   for ( const auto & [id, intf] : record_->intfRange() )
      intfs_.emplace_back( id.name(), intf );
   std::sort(
      intfs_.begin(), intfs_.end(), []( const auto & a, const auto & b ) { return a.first < b.first; } );
}

std::string RecordText::next() {
   const std::size_t part = next_++;
   if ( part == 0 )
      return head();
   if ( part <= intfs_.size() )
      return ( part > 1 ? "," : "" ) + interface( *intfs_[part - 1].second );
   next_ = intfs_.size() + 2;
   return part == intfs_.size() + 1 ? "]}\n" : "";
}

std::string RecordText::head() const {
   const auto summary = Vel::make< HistorySummary >( record_->id(), record_->unitName() );
   summarize( *record_, context_.wallOffset, *summary );
   json result = summaryJson( *summary );
   result["overridden"] = linesJson( record_->overridden() );
   result["times"] = timesJson( *record_, { context_.wallOffset } );
   result["stages"] = stagesJson( *record_, { context_.wallOffset } );
   result["interfaces-left-out"] = record_->leftOutIntfs();
   std::string head = text( result );
   head.pop_back();
   return head + interfacesBegin;
}

std::string RecordText::interface( const HistoryIntf & intf ) const {
   const Times time{ context_.wallOffset };
   const HistoryPeaks * const peaks = context_.peaksDir->peaks( record_->id() );
   json result = intfJson( intf, peaks ? peaks->peak( intf.intfId() ) : nullptr, time );
   result["curve"] = nullptr;
   if ( context_.curveOf )
      result["curve"] = curveJson( curveOf( *record_, intf, context_.now, context_.curveOf ), time );
   return text( result );
}

Vel::Ptr< HistorySummary > summaryOf( const std::string & text ) {
   const std::size_t end = text.find( interfacesBegin );
   if ( end == std::string::npos )
      return nullptr;
   try {
      const Api::Maintenance read = Api::readMaintenances( "[" + text.substr( 0, end ) + "}]" ).at( 0 );
      const Outcome outcome = outcomeOf( read.outcome );
      if ( outcome == Outcome::open )
         return nullptr;
      auto summary = Vel::make< HistorySummary >( static_cast< Vel::U32 >( read.id ), read.unit );
      summary->generationIs( static_cast< Vel::U32 >( read.generation ) );
      summary->outcomeIs( outcome );
      summary->beganIs( read.began.value_or( 0 ) );
      summary->inMaintenanceIs( read.inMaintenance.value_or( 0 ) );
      summary->exitBeganIs( read.exitBegan.value_or( 0 ) );
      summary->endedIs( read.ended.value_or( 0 ) );
      summary->byIs( read.by.value_or( "" ) );
      summary->reasonIs( read.reason.value_or( "" ) );
      summary->exitByIs( read.exitBy.value_or( "" ) );
      summary->exitReasonIs( read.exitReason.value_or( "" ) );
      summary->operationIs( static_cast< Vel::U32 >( read.operation.value_or( 0 ) ) );
      summary->exitOperationIs( static_cast< Vel::U32 >( read.exitOperation.value_or( 0 ) ) );
      summary->withIs( pairLines( read.with ) );
      summary->exitWithIs( pairLines( read.exitWith ) );
      summary->intfsIs( static_cast< Vel::U32 >( read.interfaces ) );
      summary->drainedIs( static_cast< Vel::U32 >( read.drained ) );
      summary->forcedIs( static_cast< Vel::U32 >( read.forced ) );
      summary->spikesIs( static_cast< Vel::U32 >( read.spikes ) );
      return summary;
   } catch ( const Api::Error & ) {
      return nullptr;
   }
}

} // namespace Agent
