#include "Maintctl/Report.h"

#include "Api/Values.h"
#include "Maintctl/Csv.h"
#include "Maintctl/Curve.h"
#include "Maintctl/Operating.h"
#include "Maintctl/Table.h"
#include "Maintctl/Text.h"
#include "Maintctl/Timeline.h"
#include "Maintctl/TimesText.h"

#include <algorithm>
#include <cmath>

namespace Maintctl {

namespace {

constexpr auto right = Table::Align::right;
/// Characters of a curve.
constexpr std::size_t curveWidth = 60;

using Maybe = std::optional< double >;

/// Between two times, or `-`.
std::string spanBetween( const Maybe & from, const Maybe & to ) {
   return from && to ? spanText( *to - *from ) : nothing;
}

/// "after 12s".
std::string after( const Maybe & from, const Maybe & to ) {
   return from && to ? "after " + spanText( *to - *from ) : nothing;
}

Maybe larger( const Maybe & a, const Maybe & b ) { return a && b ? std::max( *a, *b ) : a ? a : b; }

std::string
askedText( const std::optional< std::string > & by, const std::optional< std::string > & reason ) {
   return ( by ? " by " + *by : "" ) + ( reason ? ": " + *reason : "" );
}

/// The time, how long after the beginning, and who asked for it and why.
std::string moment( const Api::Maintenance & m, const Maybe & time, const std::string & asked ) {
   if ( !time )
      return nothing;
   return dayText( *time ) + ( m.began == time ? "" : " (" + after( m.began, time ) + ")" ) + asked;
}

/// "2026-02-11 14:02:10 (after 10m), or restore; it was too late"
std::string deadlineText( const Api::Maintenance & m, const Api::PastTimes & times ) {
   return dayText( *times.deadline ) + " (" + after( m.began, times.deadline ) + ")" +
          orRestoreText( times.onOverrun ) + ( times.overrun ? "; it was too late" : "" );
}

std::string headText( const Api::MaintenanceRecord & record, std::size_t room ) {
   const Api::Maintenance & m = record.summary;
   Sheet sheet;
   sheet.line( "Maintenance", std::to_string( m.id ) );
   sheet.line( "Unit", m.unit + ", generation " + std::to_string( m.generation ) );
   sheet.line( "Outcome", m.outcome );
   sheet.line( "Enter", moment( m, m.began, askedText( m.by, m.reason ) ) );
   for ( const std::string & finding : record.overridden )
      sheet.line( "Forced although", finding );
   if ( record.times.deadline )
      sheet.line( "Deadline", deadlineText( m, record.times ) );
   if ( record.times.revertAt )
      sheet.line( "To go back", moment( m, record.times.revertAt, "" ) );
   sheet.line( "Under maintenance", moment( m, m.inMaintenance, "" ) );
   sheet.line( "Exit", moment( m, m.exitBegan, askedText( m.exitBy, m.exitReason ) ) );
   sheet.line( "Normal", moment( m, m.ended, "" ) );
   if ( !m.with.empty() )
      sheet.line( "With", pairsText( m.with ) );
   if ( !m.exitWith.empty() )
      sheet.line( "Exit with", pairsText( m.exitWith ) );
   if ( m.operation )
      sheet.line(
         "Operations", std::to_string( *m.operation ) +
                          ( m.exitOperation ? ", " + std::to_string( *m.exitOperation ) : "" ) );
   sheet.line(
      "Interfaces", std::to_string( m.interfaces ) + ": " + std::to_string( m.drained ) + " drained, " +
                       std::to_string( m.forced ) + " shut before they had, " +
                       countText( m.spikes, "spike" ) );
   return sheet.text( room );
}

std::string stagesText( const Api::MaintenanceRecord & record, std::size_t room ) {
   if ( record.stages.empty() )
      return "";
   Table table( { { "WAY" }, { "STAGE" }, { "STATE" }, { "BEGAN" }, { "TOOK", right }, { "FAILURE" } } );
   for ( const Api::PastStage & stage : record.stages )
      table.row(
         { stage.way, stage.name, stage.state, stage.began ? dayText( *stage.began ) : nothing,
           spanBetween( stage.began, stage.ended ), orNothing( stage.failure ) } );
   return "\nStages:\n" + table.text( 2, room );
}

std::string shutText( const Api::PastInterface & intf ) {
   return intf.shut ? after( intf.began, intf.shut ) + ", " + orNothing( intf.shutdownKind ) : nothing;
}

std::string interfacesText( const Api::MaintenanceRecord & record, std::size_t room ) {
   if ( record.interfaces.empty() )
      return "\nNo interface was watched.\n";
   Table table(
      { { "INTERFACE" },
        { "PROFILE" },
        { "THRESHOLD", right },
        { "QUIET FOR", right },
        { "AT FIRST", right },
        { "DRAINED" },
        { "SHUT" },
        { "RELEASED" },
        { "PEAK AFTER", right },
        { "SPIKES", right } } );
   for ( const Api::PastInterface & intf : record.interfaces )
      table.row(
         { intf.name, orNothing( intf.profile ), rateText( intf.thresholdBps ),
           intf.loadIntervalSeconds ? spanText( *intf.loadIntervalSeconds ) : nothing,
           rateText( larger( intf.firstInBps, intf.firstOutBps ) ), after( intf.began, intf.drained ),
           shutText( intf ), after( intf.began, intf.released ),
           rateText( larger( intf.peakInBps, intf.peakOutBps ) ), std::to_string( intf.totalSpikes ) } );
   std::string result = "\nInterfaces:\n" + table.text( 2, room );
   if ( record.interfacesLeftOut )
      result += "  and more than are kept in a record\n";
   return result;
}

/// At most `curveWidth` points, each the largest of its part.
std::vector< Maybe > pointsOf( const Api::PastInterface & intf, std::size_t each ) {
   const std::size_t size = std::max( intf.curveInBps.size(), intf.curveOutBps.size() );
   const auto at = []( const std::vector< Maybe > & rates, std::size_t i ) {
      return i < rates.size() ? rates[i] : Maybe();
   };
   std::vector< Maybe > points( ( size + each - 1 ) / each );
   for ( std::size_t i = 0; i < size; ++i )
      points[i / each] =
         larger( points[i / each], larger( at( intf.curveInBps, i ), at( intf.curveOutBps, i ) ) );
   return points;
}

std::string curvesText( const Api::MaintenanceRecord & record, bool utf8, std::size_t room ) {
   Table table( { { "INTERFACE" }, { "FROM" }, { "EACH", right }, { "HIGHEST", right }, { "TRAFFIC" } } );
   for ( const Api::PastInterface & intf : record.interfaces ) {
      const std::size_t size = std::max( intf.curveInBps.size(), intf.curveOutBps.size() );
      if ( size == 0 )
         continue;
      const std::size_t each = ( size + curveWidth - 1 ) / curveWidth;
      const std::vector< Maybe > points = pointsOf( intf, each );
      Maybe highest;
      for ( const Maybe & point : points )
         highest = larger( highest, point );
      table.row(
         { intf.name, intf.curveStart ? clockText( *intf.curveStart ) : nothing,
           spanText( intf.curveStepSeconds * static_cast< double >( each ) ), rateText( highest ),
           curveText( points, intf.thresholdBps, utf8 ) } );
   }
   return table.empty() ? "" : "\nTraffic, the larger of both directions:\n" + table.text( 2, room );
}

std::string timeField( const Maybe & time ) { return time ? Api::timeText( *time ) : ""; }

std::string numberField( const Maybe & number ) {
   if ( !number || !std::isfinite( *number ) )
      return "";
   return std::to_string( std::llround( *number ) );
}

} // namespace

std::string historyText( const std::vector< Api::Maintenance > & maintenances, std::size_t room ) {
   if ( maintenances.empty() )
      return "There are no maintenances.\n";
   Table table(
      { { "ID", right },
        { "UNIT" },
        { "OUTCOME" },
        { "BEGAN (UTC)" },
        { "DRAIN", right },
        { "WHOLE", right },
        { "DRAINED", right },
        { "FORCED", right },
        { "SPIKES", right },
        { "BY" },
        { "REASON" } } );
   for ( const Api::Maintenance & m : maintenances )
      table.row(
         { std::to_string( m.id ), m.unit, m.outcome, m.began ? dayText( *m.began ) : nothing,
           spanBetween( m.began, m.inMaintenance ), spanBetween( m.began, m.ended ),
           std::to_string( m.drained ) + "/" + std::to_string( m.interfaces ), std::to_string( m.forced ),
           std::to_string( m.spikes ), orNothing( m.by ), orNothing( m.reason ) } );
   return table.text( 0, room );
}

std::string reportText( const Api::MaintenanceRecord & record, bool utf8, std::size_t room ) {
   return headText( record, room ) + stagesText( record, room ) + interfacesText( record, room ) +
          timelineText( record ) + curvesText( record, utf8, room ) + "\nAll times are UTC.\n";
}

std::string reportCsv( const Api::MaintenanceRecord & record ) {
   std::string result = csvRow(
      { "maintenance",
        "unit",
        "outcome",
        "began",
        "in-maintenance",
        "exit-began",
        "ended",
        "by",
        "reason",
        "interface",
        "profile",
        "threshold-bps",
        "load-interval-seconds",
        "watched",
        "first-in-bps",
        "first-out-bps",
        "drained",
        "shutdown",
        "shut",
        "raised",
        "released",
        "peak-in-bps",
        "peak-out-bps",
        "peak-time",
        "spikes",
        "last-reason" } );
   const Api::Maintenance & m = record.summary;
   for ( const Api::PastInterface & i : record.interfaces )
      result += csvRow(
         { std::to_string( m.id ),
           m.unit,
           m.outcome,
           timeField( m.began ),
           timeField( m.inMaintenance ),
           timeField( m.exitBegan ),
           timeField( m.ended ),
           m.by.value_or( "" ),
           m.reason.value_or( "" ),
           i.name,
           i.profile.value_or( "" ),
           numberField( i.thresholdBps ),
           numberField( i.loadIntervalSeconds ),
           timeField( i.began ),
           numberField( i.firstInBps ),
           numberField( i.firstOutBps ),
           timeField( i.drained ),
           i.shutdownKind.value_or( "" ),
           timeField( i.shut ),
           timeField( i.raised ),
           timeField( i.released ),
           numberField( i.peakInBps ),
           numberField( i.peakOutBps ),
           timeField( i.peakTime ),
           std::to_string( i.totalSpikes ),
           i.reasons.empty() ? "" : i.reasons.back().code } );
   return result;
}

} // namespace Maintctl
