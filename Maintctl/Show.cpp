#include "Maintctl/Show.h"

#include "Api/Names.h"
#include "Api/Values.h"
#include "Maintctl/Table.h"
#include "Maintctl/Text.h"
#include "Maintctl/TimesText.h"

#include <cmath>

namespace Maintctl {

namespace {

constexpr auto right = Table::Align::right;

std::string countOrNothing( const std::optional< std::uint64_t > & count ) {
   return count ? std::to_string( *count ) : nothing;
}

std::string spanOrNothing( const std::optional< double > & seconds ) {
   return seconds ? spanText( *seconds ) : nothing;
}

/// The time, and how long ago that is.
std::string timeAndAge( std::optional< double > time, Now now ) {
   if ( !time )
      return nothing;
   return Api::timeText( *time ) + ( now ? " (" + spanText( *now - *time ) + " ago)" : "" );
}

std::string maxDelayText( const Api::Profile & profile ) {
   if ( !profile.shutdown )
      return nothing;
   if ( !profile.shutdownMaxDelaySeconds )
      return "never";
   return *profile.shutdownMaxDelaySeconds == 0 ? "at once" : spanText( *profile.shutdownMaxDelaySeconds );
}

std::string quietText( const Api::Waiting & waiting ) {
   return spanOrNothing( waiting.quietSeconds ) + " of " + spanOrNothing( waiting.loadIntervalSeconds );
}

/// In the words of the agent.
std::string reasonText( const std::optional< Api::Reason > & reason ) {
   return reason ? reason->text : nothing;
}

/// Of a column of such words.
std::string whyHeading( const auto & range, const auto & wordsOf ) {
   std::string result = "WHY";
   for ( const auto & each : range )
      if ( const char * const utc = utcOf( wordsOf( each ) ); *utc )
         return result + utc;
   return result;
}

std::string wordsOf( const Api::Waiting & w ) { return w.insight ? w.insight->text : w.reason; }

std::string shutText( const Api::Interface & intf ) {
   return intf.shut && intf.shutProblem ? "not yet" : yesNo( intf.shut );
}

/// A newer agent may have more words.
std::string driftText( const std::optional< std::string > & drift ) {
   if ( drift == "raised" )
      return "raised, somebody else has set it up";
   if ( drift == "lowered" )
      return "lowered, somebody else has set it down";
   return orNothing( drift );
}

std::string hooksText( const std::vector< Api::Hook > & hooks, std::size_t room ) {
   if ( hooks.empty() )
      return "";
   Table table(
      { { "HOOK" },
        { "KIND" },
        { "NOW" },
        { "WAITING", right },
        { "RUNS", right },
        { "FAILED", right },
        { "MISSED", right },
        { "LAST FAILURE" } } );
   for ( const Api::Hook & hook : hooks )
      table.row(
         { hook.name, hook.kind, hook.event ? "event " + std::to_string( *hook.event ) : nothing,
           std::to_string( hook.waiting ), std::to_string( hook.runs ), std::to_string( hook.failures ),
           std::to_string( hook.missed ), orNothing( hook.failure ) } );
   return "\nHooks:\n" + table.text( 2, room );
}

/// A sum over the interfaces that are watched says nothing where none is: what those of a normal unit carry is not in it.
std::string watchedRateText( const Api::Unit & unit, std::optional< double > bps ) {
   return rateText( unit.total > 0 ? bps : std::nullopt );
}

} // namespace

std::string unitsText( const std::vector< Api::Unit > & units, Now now, std::size_t room ) {
   if ( units.empty() )
      return "There are no units.\n";
   Table table(
      { { "UNIT" },
        { "STATE" },
        { "STAGE" },
        { "DRAINED", right },
        { "IN", right },
        { "OUT", right },
        { "VIOLATING" },
        { now ? "FOR" : "SINCE", now ? right : Table::Align::left },
        { "BY" },
        { "REASON" } } );
   for ( const Api::Unit & unit : units )
      table.row(
         { unit.name, unit.state, orNothing( unit.stage ),
           std::to_string( unit.drained ) + "/" + std::to_string( unit.total ),
           watchedRateText( unit, unit.inBps ), watchedRateText( unit, unit.outBps ),
           listText( unit.violating ), ageText( unit.since, now ), orNothing( unit.by ),
           orNothing( unit.reason ) } );
   return table.text( 0, room );
}

/// "for 12s of at most 1m".
std::string runTimeText( const Api::Stage & stage, Now now ) {
   std::string text;
   if ( stage.since && now )
      text = "for " + spanText( *now - *stage.since );
   if ( stage.limitSeconds )
      text += ( text.empty() ? "at most " : " of at most " ) + spanText( *stage.limitSeconds );
   return text;
}

/// Those that have a command, have failed, or are one of several.
std::string stagesText( const std::vector< Api::Stage > & stages, Now now, std::size_t room ) {
   if ( stages.empty() || ( stages.size() == 1 && !stages[0].command && !stages[0].failure ) )
      return "";
   Table table(
      { { "STAGE" },
        { "STATE" },
        { now ? "FOR" : "SINCE", now ? right : Table::Align::left },
        { "LIMIT", right },
        { "WHAT" } } );
   for ( const Api::Stage & stage : stages )
      table.row(
         { stage.name, stage.state, ageText( stage.since, now ), spanOrNothing( stage.limitSeconds ),
           stage.text } );
   return "\nStages:\n" + table.text( 2, room );
}

std::string unitText( const Api::Unit & unit, Now now, std::size_t room ) {
   Sheet sheet;
   sheet.line( "Unit", unit.name );
   sheet.line( "State", unit.state + ( unit.stage ? ", stage " + *unit.stage : "" ) );
   if ( !unit.sentence.empty() )
      sheet.line( "Now" + std::string( utcOf( unit.sentence ) ), unit.sentence );
   sheet.line( "Generation", std::to_string( unit.generation ) );
   sheet.line( "Since", timeAndAge( unit.since, now ) );
   sheet.line( "By", orNothing( unit.by ) );
   sheet.line( "Reason", orNothing( unit.reason ) );
   if ( unit.deadline )
      sheet.line( "Expected by", Api::timeText( *unit.deadline ) + ( unit.overdue ? ", overdue" : "" ) );
   if ( unit.times.deadline )
      sheet.line( "Deadline", deadlineText( unit.times ) );
   if ( unit.times.revertAt )
      sheet.line( "Goes back", revertText( unit.times ) );
   sheet.line( "Groups", listText( unit.groups ) );
   sheet.line( "Interfaces", drainedText( unit.drained, unit.total ) );
   if ( unit.etaSeconds )
      sheet.line( "Ready in", "about " + spanText( std::ceil( *unit.etaSeconds ) ) );
   sheet.line( "Settling since", timeAndAge( unit.settlingSince, now ) );
   sheet.line(
      "Rates",
      "in " + watchedRateText( unit, unit.inBps ) + ", out " + watchedRateText( unit, unit.outBps ) );
   sheet.line( "Violating", listText( unit.violating ) );
   sheet.line( "Violations", std::to_string( unit.totalViolations ) + " in total" );
   return sheet.text( room ) + stagesText( unit.stages, now, room );
}

std::string interfacesText( const std::vector< Api::Interface > & interfaces, Now now, std::size_t room ) {
   if ( interfaces.empty() )
      return "There are no interfaces.\n";
   Table table(
      { { "INTERFACE" },
        { "KIND" },
        { "LINK" },
        { "SHUT" },
        { "DRIFT" },
        { "STATE" },
        { now ? "FOR" : "SINCE", now ? right : Table::Align::left },
        { "IN", right },
        { "OUT", right },
        { "SAMPLES", right },
        { "QUIET", right },
        { "SPIKE" },
        { "PROFILE" },
        { "UNITS" },
        { whyHeading(
           interfaces, []( const Api::Interface & intf ) { return reasonText( intf.reason ); } ) } } );
   for ( const Api::Interface & intf : interfaces )
      table.row(
         { intf.name, intf.kind, intf.linkState, shutText( intf ), orNothing( intf.drift ),
           orNothing( intf.state ), ageText( intf.stateTime, now ), rateText( intf.inBps ),
           rateText( intf.outBps ), countOrNothing( intf.samples ),
           countOrNothing( intf.consecutiveDrainedSamples ), yesNo( intf.spike ), orNothing( intf.profile ),
           listText( intf.units ), reasonText( intf.reason ) } );
   return table.text( 0, room );
}

std::string interfaceText( const Api::Interface & intf, Now now, std::size_t room ) {
   Sheet sheet;
   sheet.line( "Interface", intf.name );
   sheet.line( "Kind", intf.kind );
   sheet.line( "Link", intf.linkState );
   sheet.line( "Shut by us", shutText( intf ) );
   sheet.line( "Drift", driftText( intf.drift ) );
   sheet.line( "Units", listText( intf.units ) );
   sheet.line( "Profile", orNothing( intf.profile ) );
   sheet.line( "State", intf.state ? *intf.state : "not monitored" );
   sheet.line( "State since", timeAndAge( intf.stateTime, now ) );
   sheet.line( "Why" + std::string( utcOf( reasonText( intf.reason ) ) ), reasonText( intf.reason ) );
   sheet.line( "Monitored since", timeAndAge( intf.startTime, now ) );
   sheet.line( "Rates", "in " + rateText( intf.inBps ) + ", out " + rateText( intf.outBps ) );
   sheet.line( "Samples", countOrNothing( intf.samples ) );
   sheet.line(
      "Quiet samples", intf.consecutiveDrainedSamples
                          ? std::to_string( *intf.consecutiveDrainedSamples ) + " in a row"
                          : nothing );
   sheet.line( "Last sample", timeAndAge( intf.lastSampleTime, now ) );
   sheet.line( "Spike", intf.spike ? "yes, traffic came back under maintenance" : "no" );
   return sheet.text( room );
}

std::string profilesText( const std::vector< Api::Profile > & profiles, std::size_t room ) {
   if ( profiles.empty() )
      return "There are no profiles.\n";
   Table table(
      { { "PROFILE" },
        { "DEFAULT" },
        { "THRESHOLD", right },
        { "LOAD INTERVAL", right },
        { "SHUTDOWN" },
        { "AT THE LATEST AFTER" } } );
   for ( const Api::Profile & profile : profiles )
      table.row(
         { profile.name, profile.isDefault ? "yes" : "", rateText( profile.thresholdBps ),
           spanText( static_cast< double >( profile.loadIntervalSeconds ) ), yesNo( profile.shutdown ),
           maxDelayText( profile ) } );
   return table.text( 0, room );
}

std::string groupsText( const std::vector< Api::Group > & groups, std::size_t room ) {
   if ( groups.empty() )
      return "There are no groups.\n";
   Table table( { { "GROUP" }, { "PROFILE" }, { "UNITS" }, { "INTERFACES" } } );
   for ( const Api::Group & group : groups )
      table.row(
         { group.name, group.profile ? *group.profile : "(default)", listText( group.units ),
           listText( group.interfaces ) } );
   return table.text( 0, room );
}

std::string countersText( const std::map< std::string, std::uint64_t > & counters ) {
   if ( counters.empty() )
      return "There are no counters: the plug-in is not loaded.\n";
   Table table( { { "COUNTER" }, { "VALUE", right } } );
   for ( const auto & [name, value] : counters )
      table.row( { name, std::to_string( value ) } );
   return table.text();
}

std::string agentText( const Api::Agent & agent, std::size_t room ) {
   Sheet sheet;
   sheet.line( "State", agent.state );
   sheet.line( "Version", agent.version );
   sheet.line( "Process", std::to_string( agent.pid ) );
   sheet.line( "Started", timeAndAge( agent.started, agent.clock ) );
   if ( agent.restarts )
      sheet.line(
         "Restarts", std::to_string( *agent.restarts ) +
                        ( agent.restartReason ? "; the one before " + *agent.restartReason : "" ) );
   sheet.line(
      "Plug-in",
      agent.pluginName + ", " + agent.pluginState + ( agent.pluginText ? ": " + *agent.pluginText : "" ) );
   sheet.line( "Configuration", agent.configurationFile + ", " + agent.configurationState );
   sheet.line( "Switch", agent.switchKind + ", " + countText( agent.switchOverruns, "overrun" ) );
   sheet.line( "Clock", agent.clock ? Api::timeText( *agent.clock ) : "" );
   sheet.line( "Fast log", agent.fastLog );
   std::string result = sheet.text( room );
   if ( !agent.configurationErrors.empty() ) {
      result += "\nThe configuration file was not taken:\n";
      for ( const std::string & line : agent.configurationErrors )
         result += "  " + printable( line ) + "\n";
   }
   if ( !agent.problems.empty() ) {
      result += "\nProblems:\n";
      Table table( { { "WHAT" }, { "FOR", right }, { "PROBLEM" } } );
      for ( const Api::Problem & problem : agent.problems )
         table.row( { problem.what, ageText( problem.since, agent.clock ), problem.text } );
      result += table.text( 2, room );
   }
   return result + hooksText( agent.hooks, room );
}

std::string explanationText( const Api::Explanation & e, Now now, std::size_t room ) {
   std::string result = printable( e.unit ) + " is " + printable( stateText( e.state ) );
   if ( e.stage )
      result += ", stage " + printable( *e.stage );
   if ( e.settleRemainingSeconds )
      result += "; all interfaces have drained, and must stay so for another " +
                spanText( std::ceil( *e.settleRemainingSeconds ) );
   else if ( e.endingEarlierCommand )
      result += "; it waits until an earlier command has ended";
   else if ( const Api::Stage * const stage = runningCommand( e.stages ) )
      result += "; its command has run " + runTimeText( *stage, now );
   else if ( const Api::Stage * const waits = waitingCommand( e.stages ) )
      result += "; it " + printable( waits->text );
   else if ( !e.waiting.empty() )
      result += "; it waits for " + countText( e.waiting.size(), "interface" );
   else if ( e.state == Api::UnitState::entering )
      result += "; it waits for no interface";
   result = paragraph( result + ".", room );
   if ( e.reason )
      result += paragraph( "Reason: " + *e.reason, room );
   if ( e.stuck )
      result += paragraph( "STUCK: " + e.stuckReason.value_or( "for an unknown reason" ), room );
   if ( !e.notShut.empty() )
      result += paragraph( "NOT SHUT: " + Api::notShutText( e.notShut ), room );
   if ( !e.waiting.empty() ) {
      Table table(
         { { "INTERFACE" },
           { "STATE" },
           { "IN", right },
           { "OUT", right },
           { "THRESHOLD", right },
           { "QUIET FOR", right },
           { "NEXT SAMPLE" },
           { "SHUTDOWN" },
           { "PROFILE" },
           { whyHeading( e.waiting, wordsOf ) } } );
      for ( const Api::Waiting & w : e.waiting )
         table.row(
            { w.interface, orNothing( w.state ), rateText( w.inBps ), rateText( w.outBps ),
              rateText( w.thresholdBps ), quietText( w ), aheadText( w.nextSample, now ),
              aheadText( w.shutdownAt, now ), orNothing( w.profile ), wordsOf( w ) } );
      result += "\n" + table.text( 0, room );
   }
   result += stagesText( e.stages, now, room );
   if ( !e.skipped.empty() ) {
      result += "\nNot waited for:\n";
      Table table( { { "INTERFACE" }, { "WHY" } } );
      for ( const Api::Skipped & skipped : e.skipped )
         table.row( { skipped.interface, skipped.reason } );
      result += table.text( 2, room );
   }
   return result;
}

std::string traceLevelsText( const std::vector< Api::TraceLevel > & levels ) {
   if ( levels.empty() )
      return "There is nothing to trace.\n";
   Table table( { { "NAME" }, { "LEVEL", right } } );
   for ( const Api::TraceLevel & level : levels )
      table.row( { level.name, level.level < 0 ? "off" : std::to_string( level.level ) } );
   return table.text();
}

} // namespace Maintctl
