#pragma once

#include "Agent/Model/History.h"
#include "Agent/Model/Samples.h"

#include <functional>
#include <string>
#include <utility>
#include <vector>

/// Purpose: records of maintenances as JSON text, the same for the control API and for the files.
///
/// Keys are kebab-case, times RFC 3339 in UTC, rates bits per second; what is unknown or has not happened is null, and
/// nothing is left out. Curves are arrays, null where nothing is known. A text is one line, with a line feed at its end
/// and nowhere else; the interfaces are the last member of a record.
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

/// The summary of a filed record whose text begins with this, and need not be whole; null: that cannot be made out.
Vel::Ptr< HistorySummary > summaryOf( const std::string & text );

/// The text of a record, in pieces: all that is said of the maintenance, then one interface after the other by their
/// names. One that is open may go on meanwhile; each piece is as it is when it is asked for.
class RecordText {
 public:
   /// What a record says together with.
   struct Context {
      double wallOffset;
      double now; ///< seconds of the clock: the end of the curves of a record that is open
      Vel::Ptr< const HistoryPeaksDir > peaksDir;
      CurveOf curveOf; ///< none: there are no curves
   };
   RecordText( Vel::Ptr< const HistoryRecord > record, Context context );

   const HistoryRecord & record() const { return *record_; }
   /// The next piece; empty: that was all. Reads the samples of one interface at most.
   std::string next();

 private:
   std::string head() const;
   std::string interface( const HistoryIntf & intf ) const;

   Vel::Ptr< const HistoryRecord > record_;
   Context context_;
   std::vector< std::pair< std::string, Vel::Ptr< const HistoryIntf > > > intfs_; ///< by name
   std::size_t next_ = 0; ///< 0: the head, then the interfaces, then the end
};

} // namespace Agent
