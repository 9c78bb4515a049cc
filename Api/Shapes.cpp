#include "Api/Shapes.h"

#include "Api/Reader.h"

#include <nlohmann/json.hpp>

namespace Api {

using nlohmann::json;

namespace {

Stage stageOf( const Reader & in ) {
   Stage stage;
   stage.name = in.name( "name" );
   stage.state = in.text( "state" );
   stage.since = in.time( "since" );
   stage.command = in.maybeText( "command" );
   stage.limitSeconds = in.maybeNumber( "limit-seconds" );
   stage.deadline = in.time( "deadline" );
   stage.failure = in.maybeText( "failure" );
   stage.text = in.text( "text" );
   return stage;
}

std::optional< Reason > maybeReason( const Reader & in, const char * key ) {
   if ( !in.find( key ) )
      return std::nullopt;
   const Reader below = in.below( key );
   Reason reason;
   reason.code = below.name( "code" );
   reason.since = below.time( "since" );
   reason.rateBps = below.maybeNumber( "rate-bps" );
   reason.thresholdBps = below.maybeNumber( "threshold-bps" );
   reason.quietSeconds = below.maybeNumber( "quiet-seconds" );
   reason.loadIntervalSeconds = below.maybeNumber( "load-interval-seconds" );
   reason.etaSeconds = below.maybeNumber( "eta-seconds" );
   reason.shutdownAt = below.time( "shutdown-at" );
   reason.unwatchedSince = below.time( "unwatched-since" );
   reason.trend = below.maybeText( "trend" );
   reason.text = below.text( "text" );
   return reason;
}

UnitTimes timesOf( const Reader & in ) {
   return { in.time( "deadline" ),        in.maybeNumber( "deadline-left-seconds" ),
            in.maybeText( "on-overrun" ), in.time( "overrun" ),
            in.time( "revert-at" ),       in.maybeNumber( "revert-left-seconds" ),
            in.maybeText( "doubt" ) };
}

NotShut notShutOf( const Reader & in ) { return { in.name( "interface" ), in.text( "problem" ) }; }

Unit unitOf( const Reader & in ) {
   Unit unit;
   unit.name = in.name( "name" );
   unit.state = in.name( "state" );
   unit.stage = in.maybeText( "stage" );
   unit.stages = in.list( "stages", stageOf );
   unit.generation = in.counter( "generation" );
   unit.since = in.time( "since" );
   unit.reason = in.maybeText( "reason" );
   unit.by = in.maybeText( "by" );
   unit.deadline = in.time( "deadline" );
   unit.overdue = in.flag( "overdue" );
   unit.times = timesOf( in.below( "times" ) );
   const Reader interfaces = in.below( "interfaces" );
   unit.total = interfaces.counter( "total" );
   unit.drained = interfaces.counter( "drained" );
   const Reader rates = in.below( "rates" );
   unit.inBps = rates.maybeNumber( "in-bps" );
   unit.outBps = rates.maybeNumber( "out-bps" );
   unit.violating = in.texts( "violating" );
   unit.totalViolations = in.counter( "total-violations" );
   unit.settlingSince = in.time( "settling-since" );
   unit.notShut = in.list( "not-shut", notShutOf );
   unit.groups = in.texts( "groups" );
   unit.sentence = in.text( "sentence" );
   unit.etaSeconds = in.maybeNumber( "eta-seconds" );
   return unit;
}

Waiting waitingOf( const Reader & in ) {
   Waiting waiting;
   waiting.interface = in.name( "interface" );
   waiting.state = in.maybeText( "state" );
   waiting.profile = in.maybeText( "profile" );
   waiting.inBps = in.maybeNumber( "in-bps" );
   waiting.outBps = in.maybeNumber( "out-bps" );
   waiting.thresholdBps = in.maybeNumber( "threshold-bps" );
   waiting.loadIntervalSeconds = in.maybeNumber( "load-interval-seconds" );
   waiting.quietSeconds = in.maybeNumber( "quiet-seconds" );
   waiting.nextSample = in.time( "next-sample" );
   waiting.shutdownAt = in.time( "shutdown-at" );
   waiting.reason = in.text( "reason" );
   waiting.insight = maybeReason( in, "insight" );
   return waiting;
}

Skipped skippedOf( const Reader & in ) { return { in.name( "interface" ), in.text( "reason" ) }; }

Interface interfaceOf( const Reader & in ) {
   Interface interface;
   interface.name = in.name( "name" );
   interface.kind = in.text( "kind" );
   interface.units = in.texts( "units" );
   interface.profile = in.maybeText( "profile" );
   interface.state = in.maybeText( "state" );
   interface.inBps = in.maybeNumber( "in-bps" );
   interface.outBps = in.maybeNumber( "out-bps" );
   interface.samples = in.maybeCounter( "samples" );
   interface.consecutiveDrainedSamples = in.maybeCounter( "consecutive-drained-samples" );
   interface.spike = in.flag( "spike" );
   interface.shut = in.flag( "shut" );
   interface.shutProblem = in.maybeText( "shut-problem" );
   interface.linkState = in.text( "link-state" );
   interface.drift = in.maybeText( "drift" );
   interface.reason = maybeReason( in, "reason" );
   interface.startTime = in.time( "start-time" );
   interface.stateTime = in.time( "state-time" );
   interface.lastSampleTime = in.time( "last-sample-time" );
   return interface;
}

Profile profileOf( const Reader & in ) {
   Profile profile;
   profile.name = in.name( "name" );
   profile.thresholdBps = in.maybeNumber( "threshold-bps" );
   profile.loadIntervalSeconds = in.counter( "load-interval-seconds" );
   profile.shutdown = in.flag( "shutdown" );
   profile.shutdownMaxDelaySeconds = in.maybeNumber( "shutdown-max-delay-seconds" );
   profile.isDefault = in.flag( "default" );
   return profile;
}

Group groupOf( const Reader & in ) {
   return { in.name( "name" ), in.maybeText( "profile" ), in.texts( "interfaces" ), in.texts( "units" ) };
}

Problem problemOf( const Reader & in ) {
   return { in.text( "what" ), in.time( "since" ), in.text( "text" ) };
}

TraceLevel traceLevelOf( const Reader & in ) {
   return { in.name( "name" ), static_cast< std::int64_t >( in.maybeNumber( "level" ).value_or( 0 ) ) };
}

FileError fileErrorOf( const Reader & in ) {
   return { in.text( "file" ), in.counter( "line" ), in.counter( "column" ), in.text( "message" ) };
}

Hook hookOf( const Reader & in ) {
   return { in.text( "name" ),          in.text( "kind" ),        in.counter( "runs" ),
            in.counter( "failures" ),   in.counter( "missed" ),   in.counter( "waiting" ),
            in.maybeCounter( "event" ), in.maybeText( "failure" ) };
}

} // namespace

const Stage * runningCommand( const std::vector< Stage > & stages ) {
   for ( const Stage & stage : stages )
      if ( stage.state == "running" && stage.command && ( stage.deadline || !stage.limitSeconds ) )
         return &stage;
   return nullptr;
}

const Stage * waitingCommand( const std::vector< Stage > & stages ) {
   for ( const Stage & stage : stages )
      if ( stage.state == "running" && stage.command && stage.limitSeconds && !stage.deadline )
         return &stage;
   return nullptr;
}

std::vector< Unit > readUnits( std::string_view text ) {
   return Reader::listOf( Reader::parsed( text ), unitOf );
}

Unit readUnit( std::string_view text ) { return unitOf( Reader( Reader::parsed( text ) ) ); }

Explanation readExplanation( std::string_view text ) {
   const json answer = Reader::parsed( text );
   const Reader in( answer );
   Explanation explanation;
   explanation.unit = in.name( "unit" );
   explanation.state = in.name( "state" );
   explanation.stage = in.maybeText( "stage" );
   explanation.reason = in.maybeText( "reason" );
   explanation.stages = in.list( "stages", stageOf );
   explanation.endingEarlierCommand = in.flag( "ending-earlier-command" );
   explanation.settleRemainingSeconds = in.maybeNumber( "settle-remaining-seconds" );
   explanation.stuck = in.flag( "stuck" );
   explanation.stuckReason = in.maybeText( "stuck-reason" );
   explanation.notShut = in.list( "not-shut", notShutOf );
   explanation.waiting = in.list( "waiting", waitingOf );
   explanation.skipped = in.list( "skipped", skippedOf );
   return explanation;
}

std::vector< Interface > readInterfaces( std::string_view text ) {
   return Reader::listOf( Reader::parsed( text ), interfaceOf );
}

Interface readInterface( std::string_view text ) { return interfaceOf( Reader( Reader::parsed( text ) ) ); }

std::vector< Profile > readProfiles( std::string_view text ) {
   return Reader::listOf( Reader::parsed( text ), profileOf );
}

std::vector< Group > readGroups( std::string_view text ) {
   return Reader::listOf( Reader::parsed( text ), groupOf );
}

std::map< std::string, std::uint64_t > readCounters( std::string_view text ) {
   const json answer = Reader::parsed( text );
   const Reader in( answer );
   std::map< std::string, std::uint64_t > result;
   for ( const auto & [name, value] : answer.items() )
      result[name] = in.counter( name.c_str() );
   return result;
}

Agent readAgent( std::string_view text ) {
   const json answer = Reader::parsed( text );
   const Reader in( answer );
   Agent agent;
   agent.version = in.text( "version" );
   agent.pid = in.counter( "pid" );
   agent.started = in.time( "started" );
   agent.state = in.text( "state" );
   agent.problems = in.list( "problems", problemOf );
   agent.hooks = in.list( "hooks", hookOf );
   const Reader plugin = in.below( "plugin" );
   agent.pluginName = plugin.text( "name" );
   agent.pluginState = plugin.text( "state" );
   agent.pluginText = plugin.maybeText( "text" );
   const Reader configuration = in.below( "configuration" );
   agent.configurationFile = configuration.text( "file" );
   agent.configurationState = configuration.text( "state" );
   agent.configurationErrors = configuration.texts( "errors" );
   agent.switchKind = in.text( "switch" );
   agent.switchOverruns = in.counter( "switch-overruns" );
   agent.clock = in.time( "clock" );
   agent.fastLog = in.text( "fast-log" );
   agent.restarts = in.maybeCounter( "restarts" );
   agent.restartReason = in.maybeText( "restart-reason" );
   return agent;
}

std::vector< TraceLevel > readTraceLevels( std::string_view text ) {
   return Reader::listOf( Reader::parsed( text ), traceLevelOf );
}

std::optional< double > readTime( std::string_view text ) {
   const json answer = Reader::parsed( text );
   return Reader( answer ).time( "time" );
}

std::optional< Refusal > readRefusal( std::string_view text ) try {
   const json answer = Reader::parsed( text );
   const Reader in( answer );
   if ( !in.find( "error" ) )
      return std::nullopt;
   const Reader error = in.below( "error" );
   return Refusal{
      error.text( "code" ), error.name( "message" ), error.text( "where" ), error.maybeCounter( "operation" ),
      in.list( "errors", fileErrorOf ) };
} catch ( const Error & ) {
   return std::nullopt;
}

} // namespace Api
