#pragma once

#include "Agent/Model/Insight.h"
#include "Platform/Model/Interface.h"
#include "Platform/Vel/Declare.h"

#include <algorithm>
#include <cmath>

/// Purpose: what is written down of each maintenance, from the enter of a unit until it is normal again. Kept across
/// restarts: what a turn has written down is committed with what it tells of.
///
/// Order: a record is open until the unit is normal; then it is closed, then filed (a file with all of it and a summary
/// here), then gone from here. Times of records are seconds of the agent's clock, 0: it has not happened; those of
/// summaries are wall time, since the clock of another boot may be another one.
///
/// Bounds: `HistoryRecord::mostIntfs` interfaces a record, `HistoryIntf::mostReasons` changes of the reason, `mostSpikes`
/// spikes and `mostDrifts` changes of drift an interface, `HistoryDir::mostFinished` summaries. Of what is too much, the
/// first ones and the latest ones are kept and what is left out is counted.
namespace Agent {

/// The larger of the two rates, bits per second; -1: unknown.
inline double largerRate( const Interface::IntfRates & rates ) {
   return std::isfinite( rates.inBitsRate ) ? std::max( rates.outBitsRate, rates.inBitsRate ) : -1;
}
/// Which of two rates is the peak; one without a time is none.
inline const Interface::IntfRates &
higherOf( const Interface::IntfRates & a, const Interface::IntfRates & b ) {
   return b.sampleTime > 0 && ( a.sampleTime == 0 || largerRate( b ) > largerRate( a ) ) ? b : a;
}

/// How a maintenance has ended. Ordinals are part of the stored form.
enum class Outcome : Vel::U32 {
   open = 0,
   completed = 1, ///< the unit came under maintenance and went back
   cancelled = 2, ///< somebody asked for the way back before it was under maintenance
   aborted = 3    ///< a stage failed on the way in
};
/// "open", "completed", "cancelled", "aborted".
inline Vel::String stringValue( Outcome outcome ) {
   const char * const texts[] = { "open", "completed", "cancelled", "aborted" };
   const auto ordinal = static_cast< Vel::U32 >( outcome );
   return ordinal < std::size( texts ) ? texts[ordinal] : Vel::text( "Outcome(", ordinal, ")" );
}

/// A profile as it was resolved for one interface.
struct HistoryProfile {
   Vel::String name; ///< empty: there was none
   double thresholdBps = 0;
   Vel::U32 loadInterval = 0; ///< seconds
   bool shutdown = false;
   double shutdownMaxDelay = 0; ///< seconds; infinity: never

   friend bool operator==( const HistoryProfile &, const HistoryProfile & ) = default;
};
inline Vel::String stringValue( const HistoryProfile & p ) {
   return Vel::text( p.name, ", ", p.thresholdBps, " bps for ", p.loadInterval, " s" );
}

/// Why an interface was not done, or that it was, from some time on.
struct HistoryReason {
   Reason reason = Reason::aboveThreshold;
   double bps = 0; ///< the larger of its two rates then; below 0: unknown

   friend bool operator==( const HistoryReason &, const HistoryReason & ) = default;
};
inline Vel::String stringValue( const HistoryReason & r ) {
   return Vel::text( stringValue( r.reason ), " at ", r.bps, " bps" );
}

/// Traffic that came back under maintenance.
struct HistorySpike {
   double ended = 0;   ///< the first sample below the threshold; 0: none so far
   double peakBps = 0; ///< the larger of the two rates

   friend bool operator==( const HistorySpike &, const HistorySpike & ) = default;
};
inline Vel::String stringValue( const HistorySpike & s ) {
   return Vel::text( s.peakBps, " bps until ", s.ended );
}

} // namespace Agent

template <>
struct Vel::Codec< Agent::HistoryProfile > {
   static constexpr bool stored = true;
   static void write( ByteWriter & w, const Agent::HistoryProfile & v ) {
      Codec< String >::write( w, v.name );
      Codec< double >::write( w, v.thresholdBps );
      Codec< U32 >::write( w, v.loadInterval );
      Codec< bool >::write( w, v.shutdown );
      Codec< double >::write( w, v.shutdownMaxDelay );
   }
   static void read( ByteReader & r, Agent::HistoryProfile & v ) {
      Codec< String >::read( r, v.name );
      Codec< double >::read( r, v.thresholdBps );
      Codec< U32 >::read( r, v.loadInterval );
      Codec< bool >::read( r, v.shutdown );
      Codec< double >::read( r, v.shutdownMaxDelay );
   }
};

template <>
struct Vel::Codec< Agent::HistoryReason > {
   static constexpr bool stored = true;
   static void write( ByteWriter & w, const Agent::HistoryReason & v ) {
      Codec< Agent::Reason >::write( w, v.reason );
      Codec< double >::write( w, v.bps );
   }
   static void read( ByteReader & r, Agent::HistoryReason & v ) {
      Codec< Agent::Reason >::read( r, v.reason );
      Codec< double >::read( r, v.bps );
   }
};

namespace Agent {

/// One interface that the unit has watched. What happened to it before it was watched again (its link was down
/// meanwhile) is overwritten, except for reasons, spikes and drift, which go on.
class HistoryIntf final : public Vel::Entity {
   VEL_ENTITY( HistoryIntf );
   explicit HistoryIntf( const Wire::IntfId & intfId ) : intfId_( intfId ) {}
   static constexpr Vel::U32 mostReasons = 64, mostSpikes = 32, mostDrifts = 16;

   VEL_PARAM( Wire::IntfId, intfId );
   VEL_ATTR( double, began, onBegan );       ///< the unit watches it
   VEL_ATTR( double, released, onReleased ); ///< it does not any more; 0 at the end: another unit goes on
   VEL_ATTR( HistoryProfile, profile, onProfile );
   VEL_ATTR( double, profileChanged, onProfileChanged );       ///< last, since it began
   VEL_ATTR( Interface::IntfRates, firstRates, onFirstRates ); ///< without a time: no sample so far
   VEL_ATTR( double, drained, onDrained );                     ///< of its own accord
   VEL_ATTR( bool, forced, onForced );                         ///< it was shut before it had drained
   VEL_ATTR( double, shut, onShut );                           ///< we decided to set its link down
   VEL_ATTR( double, raised, onRaised );                       ///< we let go of its link again
   /// After it drained: as it was known a minute ago (HistoryPeaks), or when the record was closed.
   VEL_ATTR( Interface::IntfRates, peakRates, onPeakRates );
   VEL_MAP( double, HistoryReason, reason, onReason, Ordered ); ///< by the time from which on
   VEL_COUNTER( reasonsLeftOut, onReasonsLeftOut );
   VEL_MAP(
      double, HistorySpike, spike, onSpike,
      Ordered ); ///< by the time of the first sample above the threshold
   VEL_COUNTER( totalSpikes, onTotalSpikes );
   VEL_ATTR( bool, spiking, onSpiking ); ///< the last spike has not ended
   VEL_MAP(
      double, Vel::String, driftChange, onDriftChange, Ordered ); ///< by time: "raised", "lowered", "none"
   VEL_ATTR( Vel::String, drift, onDrift );                       ///< the last of them; empty: there was none
   VEL_COUNTER( driftsLeftOut, onDriftsLeftOut );
};

/// One stage of the way in or of the way back. Its key is "enter/NAME" or "exit/NAME".
class HistoryStage final : public Vel::Entity {
   VEL_ENTITY( HistoryStage );
   explicit HistoryStage( const Vel::String & key ) : key_( key ) {}
   VEL_PARAM( Vel::String, key );
   VEL_ATTR( double, began, onBegan );
   VEL_ATTR( double, ended, onEnded );
   VEL_ATTR( Vel::String, failure, onFailure ); ///< empty: it has not failed
};

/// One maintenance. Written by Recorder, and its times by TimesRecorder.
class HistoryRecord final : public Vel::Entity {
   VEL_ENTITY( HistoryRecord );
   explicit HistoryRecord( Vel::U32 id, const Vel::String & unitName = {} )
      : id_( id ), unitName_( unitName ) {}
   static constexpr Vel::U32 mostIntfs = 8192;

   VEL_PARAM( Vel::U32, id );
   VEL_PARAM( Vel::String, unitName );
   VEL_ATTR( Vel::U32, generation, onGeneration );         ///< of the enter
   VEL_ATTR( Vel::U32, exitGeneration, onExitGeneration ); ///< 0: it has not begun
   VEL_ATTR( double, began, onBegan );
   VEL_ATTR( double, inMaintenance, onInMaintenance );
   VEL_ATTR( double, exitBegan, onExitBegan );
   VEL_ATTR( double, ended, onEnded ); ///< the unit is normal: the record is closed
   VEL_ATTR( Vel::String, by, onBy );
   VEL_ATTR( Vel::String, reason, onReason );
   VEL_ATTR( Vel::String, overridden, onOverridden ); ///< what spoke against it and was forced, a line each
   VEL_ATTR( Vel::String, exitBy, onExitBy );
   VEL_ATTR( Vel::String, exitReason, onExitReason );
   /// The operations that began it and took it back, 0: unknown, and what was noted down with each (pairs, see
   /// Operation.h).
   VEL_ATTR( Vel::U32, operation, onOperation );
   VEL_ATTR( Vel::U32, exitOperation, onExitOperation );
   VEL_ATTR( Vel::String, with, onWith );
   VEL_ATTR( Vel::String, exitWith, onExitWith );
   VEL_ATTR( double, deadline, onDeadline ); ///< by which it was to be under maintenance
   VEL_ATTR( bool, restore, onRestore );     ///< or else to go back
   VEL_ATTR( double, overrun, onOverrun );   ///< when it was seen that it is too late
   VEL_ATTR( double, revertAt, onRevertAt ); ///< when it was to go back of its own accord
   /// Decided when the way back begins.
   VEL_ATTR( Outcome, outcomeToBe, onOutcomeToBe );
   /// What is to be added to times of the record for wall time; of a closed record.
   VEL_ATTR( double, wallOffset, onWallOffset );
   VEL_CHILDREN( Vel::String, HistoryStage, stage, onStage );
   VEL_CHILDREN( Wire::IntfId, HistoryIntf, intf, onIntf );
   VEL_SET( Wire::IntfId, leftOutIntf, onLeftOutIntf ); ///< those for which there was no more room
};

/// What is told of a maintenance in a list, once it is filed. Written by Archive only.
class HistorySummary final : public Vel::Entity {
   VEL_ENTITY( HistorySummary );
   explicit HistorySummary( Vel::U32 id, const Vel::String & unitName = {} )
      : id_( id ), unitName_( unitName ) {}
   VEL_PARAM( Vel::U32, id );
   VEL_PARAM( Vel::String, unitName );
   VEL_ATTR( Vel::U32, generation, onGeneration );
   VEL_ATTR( Outcome, outcome, onOutcome );
   VEL_ATTR( double, began, onBegan );
   VEL_ATTR( double, inMaintenance, onInMaintenance );
   VEL_ATTR( double, exitBegan, onExitBegan );
   VEL_ATTR( double, ended, onEnded );
   VEL_ATTR( Vel::String, by, onBy );
   VEL_ATTR( Vel::String, reason, onReason );
   VEL_ATTR( Vel::String, exitBy, onExitBy );
   VEL_ATTR( Vel::String, exitReason, onExitReason );
   VEL_ATTR( Vel::U32, operation, onOperation );
   VEL_ATTR( Vel::U32, exitOperation, onExitOperation );
   VEL_ATTR( Vel::String, with, onWith );
   VEL_ATTR( Vel::String, exitWith, onExitWith );
   VEL_ATTR( Vel::U32, intfs, onIntfs );
   VEL_ATTR( Vel::U32, drained, onDrained );
   VEL_ATTR( Vel::U32, forced, onForced );
   VEL_ATTR( Vel::U32, spikes, onSpikes );
};

class HistoryDir final : public Vel::Entity {
   VEL_ENTITY( HistoryDir );
   static constexpr Vel::U32 mostFinished = 200;

   VEL_ATTR(
      Vel::U32, lastId, onLastId ); ///< no record bears a larger one, and none will bear this one again
   VEL_CHILDREN( Vel::U32, HistoryRecord, record, onRecord, Ordered );
   VEL_CHILDREN( Vel::U32, HistorySummary, summary, onSummary, Ordered );
};

/// The highest rates of each interface of a record after it drained. They may change with every sample, so they are not
/// kept with the rest, which is synced to disk: that follows once a minute. Written by Recorder only.
class HistoryPeaks final : public Vel::Entity {
   VEL_ENTITY( HistoryPeaks );
   explicit HistoryPeaks( Vel::U32 id ) : id_( id ) {}
   VEL_PARAM( Vel::U32, id );
   VEL_MAP( Wire::IntfId, Interface::IntfRates, peak, onPeak );
};

class HistoryPeaksDir final : public Vel::Entity {
   VEL_ENTITY( HistoryPeaksDir );
   VEL_CHILDREN( Vel::U32, HistoryPeaks, peaks, onPeaks );
};

} // namespace Agent
