#include "Apps/Maintd.h"

#include "Agent/Model/StateText.h"
#include "Apps/MaintdViews.h"
#include "Config/Membership.h"
#include "Config/Stages.h"
#include "Platform/Cog/RealTime.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>

namespace Apps {

namespace {
constexpr const char * pluginName = "DrainWatchPlugin";
/// Seconds for which counters may be missing before the agent says that it is degraded.
constexpr double countersPatience = 15;

/// Bytes of a record that are shown among the problems.
constexpr std::size_t mostOfRecord = 1000;

std::string hadRecorded( const std::string & record ) {
   if ( record.empty() )
      return "";
   return record.size() <= mostOfRecord ? "; it had recorded " + record
                                        : "; what it had recorded is long and in the log";
}

/// "et1, et2, et3 and 3 more"; empty: none.
std::string named( const Agent::Stages::Links & links ) {
   constexpr std::size_t mostNamed = 3;
   std::string result;
   for ( std::size_t i = 0; i < std::min( mostNamed, links.size() ); ++i )
      result += ( i ? ", " : "" ) + std::string( links[i].name() );
   return links.size() > mostNamed ? result + " and " + std::to_string( links.size() - mostNamed ) + " more"
                                   : result;
}

const Vel::Entity * pointee( const Vel::Entity * entity, const char * attribute ) {
   const Vel::AttributeInfo * info = entity ? entity->typeInfo().attribute( attribute ) : nullptr;
   return info && info->entity ? info->entity( const_cast< Vel::Entity & >( *entity ) ) : nullptr;
}
} // namespace

Agent::ControlCommands Maintd::commands() {
   Agent::ControlCommands c;
   addOperations( c );
   c.plan = [this]( const std::string & unit, const std::string & session, auto purpose, auto planned ) {
      return plan( unit, session, purpose, std::move( planned ) );
   };
   c.progress = [this]( const std::string & unit ) {
      const auto counts = stages_->counts( unit );
      return Agent::ControlCommands::Progress{
         stages_->stage( unit ),
         counts.total,
         counts.drained,
         stages_->settlingSince( unit ),
         static_cast< double >( configuration_.settle.seconds() ),
         blocked(),
         stageFacts( unit ),
         commands_->busy( unit ) };
   };
   c.simulated = [this]( const auto & what, std::function< void() > done ) {
      return simulated( what, std::move( done ) );
   };
   c.groups = [this] {
      std::map< std::string, Agent::ControlCommands::Group > groups;
      for ( const auto & [name, group] : configuration_.groups ) {
         groups[name].profile = group.profile;
         for ( const Config::Member & member : Config::members( group ) )
            groups[name].interfaces.insert( member.text() );
      }
      return groups;
   };
   c.agent = [this] { return facts(); };
   c.dump = [this] { return dump(); };
   c.counters = [this] { return pointee( root(), "counters" ); };
   c.linkState = [this]( const Wire::IntfId & intf ) { return executor_->linkState( intf ); };
   c.shutProblem = [this]( const Wire::IntfId & intf ) { return executor_->shutProblem( intf ); };
   c.uncounted = [this]( const Wire::IntfId & intf ) { return executor_->uncounted( intf ); };
   c.drift = [this]( const Wire::IntfId & intf ) {
      const Agent::Drift drift = executor_->drift( intf );
      return drift == Agent::Drift::none ? std::string() : stringValue( drift );
   };
   c.whenCommitted = [this]( std::function< void() > call ) {
      ++uncommitted_;
      loop_->effectIs( [this, call = std::move( call )] {
         --uncommitted_;
         call();
      } );
   };
   c.whenStored = [this]( std::function< void() > call ) { commits_->whenStored( std::move( call ) ); };
   c.later = [this]( std::function< void() > call ) { loop_->post( std::move( call ) ); };
   c.wallTime = [this]( double clockTime ) { return wallTime( clockTime ); };
   c.now = [this] { return now(); };
   c.samples = &views_->samples;
   views_->addAnswers( c );
   return c;
}

/// Wall time of a time of the clock, as wall time is set now.
double Maintd::wallTime( double clockTime ) const {
   if ( world_.boot )
      return clockTime + world_.boot->wallOffset;
   if ( Vel::ptrCast< Cog::VirtualTime >( world_.time ) )
      return clockTime;
   return clockTime + Cog::RealTime::wallTime() - loop_->liveTime();
}

std::vector< Agent::ControlCommands::Stage > Maintd::stageFacts( const std::string & unit ) const {
   using State = Agent::Stages::StageState;
   std::vector< Agent::ControlCommands::Stage > result;
   for ( const auto & stage : stages_->stages( unit ) ) {
      const Agent::Commands::Facts command = commands_->facts( unit, stage.name );
      const char * const state = command.state == Agent::CommandState::failed ? "failed"
                                 : stage.state == State::complete             ? "complete"
                                 : stage.state == State::running              ? "running"
                                 : stage.state == State::skipped              ? "skipped"
                                                                              : "pending";
      result.push_back(
         { stage.name, state, command.since > 0 ? command.since : stage.since, command.command,
           command.command.empty() ? 0 : static_cast< double >( command.limit ), command.failure,
           command.goesOn, command.waits, command.waitsFor } );
      if ( stage.name == Config::drainwatchStage )
         result.back().waitsFor = named( stages_->linksAwaited( unit ) );
   }
   return result;
}

/// Why no unit can complete an enter now; empty: it can.
std::string Maintd::blocked() const {
   if ( const auto held = hold() )
      return held->message;
   const auto problem = plugins_->problem( pluginName );
   return problem ? problem->message : "";
}

Agent::ControlCommands::AgentFacts Maintd::facts() const {
   Agent::ControlCommands::AgentFacts result;
   result.version = options_.version;
   result.switchKind = Config::text( configuration_.switchKind );
   result.configurationFile = options_.config;
   result.configurationErrors = configurationErrors_;
   result.fastLog = options_.runtimeDir + "/fastlog";
   result.pluginName = pluginName;
   if ( const auto problem = plugins_->problem( pluginName ) )
      result.pluginProblem = problem->message;
   result.switchDegraded = executor_->switchDegraded();
   result.switchOverruns = executor_->overruns();
   result.started = started_;
   result.restarts = options_.restarts;
   result.restartReason = options_.restartReason;
   result.problems = problems();
   for ( const auto & hook : views_->hooks.facts() )
      result.hooks.push_back(
         { hook.name, hook.isUrl, hook.runs, hook.failures, hook.missed, hook.waiting, hook.running,
           hook.failure } );
   result.countersRead = executor_->countersRead();
   result.turns = loop_->turns();
   result.turnSeconds = loop_->turnTimes().total();
   result.longestTurn = loop_->turnTimes().longest( now() );
   return result;
}

std::vector< Agent::Problem > Maintd::problems() const {
   std::vector< Agent::Problem > result;
   const auto add = [&]( const char * what, const std::string & source, const std::string & text ) {
      result.push_back( { what, problemTimes_.since( what + source, now() ), text } );
   };
   if ( commits_->failedSince() > 0 )
      result.push_back( { "store", commits_->failedSince(), commits_->problem() } );
   if ( const auto since = executor_->countersFailedSince(); since && now() - *since >= countersPatience )
      result.push_back( { "counters", *since, executor_->countersProblem() } );
   if ( const Vel::String problem = executor_->problem(); !problem.empty() )
      add( "switch", "", problem );
   if ( !configurationErrors_.empty() )
      add( "configuration", "", configurationErrors_.front() );
   if ( const auto problem = plugins_->problem( pluginName ) )
      add( "plug-in", pluginName, problem->message );
   for ( const auto & [file, problem] : plugins_->others() )
      if ( problem )
         add( "plug-in", file, problem->message );
   problemTimes_.allAsked();
   for ( const auto & failure : commands_->failures() )
      result.push_back(
         { "stage", failure.since,
           "unit " + failure.unit + " went back although stage " + failure.stage +
              " failed: " + failure.text + hadRecorded( failure.recorded ) } );
   if ( !fastLogProblem_.empty() )
      result.push_back( { "fastlog", started_, fastLogProblem_ } );
   if ( !webProblem_.empty() )
      result.push_back( { "web", started_, webProblem_ } );
   views_->addProblems( result );
   return result;
}

/// One line for whoever has started the agent.
std::string Maintd::statusText() const {
   std::map< std::string, unsigned > counts;
   for ( const auto & [name, status] : entities_->unitStatusDir->statusRange() )
      ++counts[Agent::unitStateText( status->state() )];
   std::string result;
   for ( const auto & [state, count] : counts )
      result += ( result.empty() ? "units: " : ", " ) + std::to_string( count ) + " " + state;
   if ( result.empty() )
      result = "no units";
   if ( const auto list = problems(); !list.empty() )
      result += "; degraded: " + list.front().text;
   std::replace( result.begin(), result.end(), '\n', ' ' );
   return result;
}

std::string Maintd::dump() const {
   if ( !context_ )
      return "no plug-in is loaded yet: " + executor_->countersProblem() + "\n";
   const int descriptor = memfd_create( "dump", MFD_CLOEXEC );
   if ( descriptor < 0 )
      return "no memory for a dump\n";
   context_->dump( static_cast< unsigned >( descriptor ) );
   std::string text( static_cast< std::size_t >( lseek( descriptor, 0, SEEK_END ) ), '\0' );
   const auto got = pread( descriptor, text.data(), text.size(), 0 );
   close( descriptor );
   text.resize( got > 0 ? static_cast< std::size_t >( got ) : 0 );
   return text;
}

Agent::ControlCommands::Result
Maintd::simulated( const Agent::ControlCommands::Simulated & what, std::function< void() > done ) {
   const auto conflict = []( const std::string & text ) {
      return Api::Error{ Api::ErrorCode::conflict, text, "" };
   };
   if ( !world_.simulation )
      return conflict( "the switch is not simulated" );
   DataPlane::Outcome outcome;
   if ( what.what == "traffic" )
      outcome = world_.simulation->trafficIs( what.interface, what.inBps, what.outBps, what.seconds );
   else if ( what.what == "link" )
      outcome = world_.simulation->linkIs( what.interface, what.up );
   else {
      const auto time = Vel::ptrCast< Cog::VirtualTime >( world_.time );
      if ( !time )
         return conflict( "the clock of the simulated switch is real" );
      const double target = std::max( time->target(), now() ) + what.seconds;
      time->targetIs( target );
      advances_.emplace( target, std::move( done ) );
      return std::nullopt;
   }
   if ( outcome.ok() ) {
      loop_->effectIs( std::move( done ) );
      return std::nullopt;
   }
   return Api::Error{ Api::ErrorCode::badRequest, outcome.text(), what.interface };
}

/// Virtual time has come to where it should go, and what that has brought about is done with.
void Maintd::answerAdvances() {
   while ( !advances_.empty() && advances_.begin()->first <= now() ) {
      answerWhenQuiet( std::move( advances_.begin()->second ), turnsToQuiet );
      advances_.erase( advances_.begin() );
   }
}

void Maintd::answerWhenQuiet( std::function< void() > done, unsigned turnsLeft ) {
   loop_->effectIs( [this, done = std::move( done ), turnsLeft] {
      if ( turnsLeft == 0 || loop_->dueTime() > now() )
         return done();
      loop_->post( [this, done, turnsLeft] { answerWhenQuiet( done, turnsLeft - 1 ); } );
   } );
}

} // namespace Apps
