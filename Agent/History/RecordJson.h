#pragma once

#include "Agent/Model/History.h"
#include "Agent/Model/Samples.h"

#include <functional>
#include <string>
#include <vector>

/// Purpose: records of maintenances as JSON text, the same for the control API and for the files.
///
/// Keys are kebab-case, times RFC 3339 in UTC, rates bits per second; what is unknown or has not happened is null, and
/// nothing is left out. Curves are arrays, null where nothing is known.
namespace Agent {

/// What an interface has carried between two times of the clock.
using CurveOf = std::function< SampleCurve( const std::string & interface, double from, double to ) >;

/// Steps that a curve has at most, and the curves of one record together unless that would leave one with less than
/// `fewestSteps`.
inline constexpr std::size_t mostSteps = 300, fewestSteps = 30, mostStepsOfRecord = 60000;
/// Seconds that a curve begins before its interface is watched, to show what the interface carried.
inline constexpr double curveBefore = 60;

/// Steps as long as it takes for at most so many; of each the highest rate, so that no spike is lost.
/// \param most  above 0
SampleCurve thinned( const SampleCurve & curve, std::size_t most );

/// The curve of an interface in a record, thinned.
/// \param now  seconds of the clock: its end if the record is open
SampleCurve
curveOf( const HistoryRecord & record, const HistoryIntf & intf, double now, const CurveOf & source );

/// Fills in the summary of a record.
/// \param wallOffset  what is to be added to its times for wall time
void summarize( const HistoryRecord & record, double wallOffset, HistorySummary & summary );

/// A list, as given.
std::string summariesText( const std::vector< Vel::Ptr< const HistorySummary > > & summaries );
/// What a record says together with.
struct RecordContext {
   double wallOffset;
   double now;                 ///< seconds of the clock: the end of the curves of a record that is open
   const HistoryPeaks * peaks; ///< of a record that is open; may be null
   const CurveOf & curveOf;    ///< none: there are no curves
};
std::string recordText( const HistoryRecord & record, const RecordContext & context );

} // namespace Agent
