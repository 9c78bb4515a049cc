#include "Apps/MaintdViews.h"

#include "Agent/Commands/Lines.h"

#include <spdlog/spdlog.h>

#include <fstream>

namespace Apps {

namespace {

/// Which clock the agent has: another one after each boot, the same for all virtual ones.
std::string clockName( const Vel::Ptr< Cog::TimeSource > & time, const std::string & file ) {
   std::string name = "virtual";
   if ( !Vel::ptrCast< Cog::VirtualTime >( time ) )
      std::getline( std::ifstream( file ), name );
   return name;
}

} // namespace

Maintd::Views::Views( Maintd & agent )
   : insight(
        agent.wheel_,
        Agent::Insight::Model{
           agent.entities_->monIntfStatusDir, agent.entities_->intfProfileStatusDir, agent.entities_->cause,
           agent.entities_->insightDir } ),
     samples(
        agent.loop_, agent.wheel_,
        Agent::RateReader::Model{
           agent.entities_->intfToGroupDir, agent.entities_->allIntfStatusDir, agent.entities_->lagConfig,
           agent.entities_->vlanStatusDir, agent.entities_->pool },
        agent.options_.stateDir + "/samples",
        Agent::Samples::Hooks{
           [&agent] { return agent.executor_->countersFresh(); },
           [&agent]( double time ) { return agent.wallTime( time ); },
           clockName( agent.world_.time, agent.options_.runtimeDir + "/clock" ) } ),
     archive(
        agent.loop_, agent.wheel_, agent.options_.stateDir + "/history", agent.entities_->historyDir,
        agent.entities_->historyPeaksDir,
        Agent::Archive::Hooks{
           [&agent]( double time ) { return agent.wallTime( time ); },
           [this]( const std::string & interface, double from, double to ) {
              return samples.curve( interface, from, to );
           },
           [&agent]( std::function< void() > call ) { agent.commits_->whenStored( std::move( call ) ); } } ),
     recorder(
        agent.loop_, agent.wheel_, recorderModel( *agent.entities_ ),
        Agent::Recorder::Hooks{
           [&agent]( double time ) { return agent.wallTime( time ); },
           [&agent]( const Wire::IntfId & intf ) {
              const Agent::Drift drift = agent.executor_->drift( intf );
              return drift == Agent::Drift::none ? std::string() : stringValue( drift );
           },
           [this] { archive.look(); } } ),
     timesRecorder(
        { agent.entities_->unitStatusDir, agent.entities_->unitTimesDir, agent.entities_->historyDir } ),
     events(
        agent.wheel_, eventsModel( *agent.entities_ ),
        Agent::Events::Hooks{
           [&agent] { return agent.now(); }, [&agent] { return agent.wallTime( agent.now() ); },
           [&agent]( const std::string & unit ) { return agent.stages_->stage( unit ); },
           [&agent]( const std::string & unit ) { return agent.stages_->settlingSince( unit ).has_value(); },
           [&agent]( const Wire::IntfId & intf ) {
              const Agent::Drift drift = agent.executor_->drift( intf );
              return drift == Agent::Drift::none ? std::string() : std::string( stringValue( drift ) );
           },
           [this]( const Wire::IntfId & intf ) { return recorder.forced( intf ); },
           [&agent] {
              std::vector< std::pair< std::string, std::string > > result;
              for ( const Agent::Problem & problem : agent.problems() )
                 result.emplace_back( problem.what, problem.text );
              return result;
           },
           []( bool begins, const std::string & line ) {
              spdlog::log( begins ? spdlog::level::err : spdlog::level::info, "{}", line );
           },
           []( bool wrong, const std::string & line ) {
              spdlog::log(
                 wrong ? spdlog::level::warn : spdlog::level::info, "{}", Agent::printableLine( line ) );
           } } ),
     hooks(
        agent.loop_, agent.wheel_, *agent.world_.children,
        { agent.entities_->eventLog, agent.entities_->hookDir }, hooksOutside( agent, *this ) ) {}

Agent::HookRunner::Outside Maintd::Views::hooksOutside( Maintd & agent, Views & views ) {
   return {
      agent.options_.httpHook,
      [&agent]( std::function< void() > call ) { agent.commits_->whenStored( std::move( call ) ); },
      [&views]( const Agent::HookFailure & failure ) { views.events.hookEvents().failed( failure ); },
      [&views]( const std::string & hook, Vel::U64 count ) {
         views.events.hookEvents().missed( hook, count );
      },
      []( const std::string & line ) { spdlog::info( "{}", line ); } };
}

Agent::Events::Model Maintd::Views::eventsModel( const Entities & e ) {
   return { e.unitStatusDir,    e.unitRunDir,         e.unitCommandsDir,
            e.unitTimesDir,     e.allIntfStatusDir,   e.intfToGroupDir,
            e.groupToUnitDir,   e.defaultIntfProfile, e.intfProfileStatusDir,
            e.monIntfStatusDir, e.insightDir,         e.cause,
            e.eventLog,         e.eventsTold };
}

void Maintd::Views::reloaded( const Agent::ControlCommands::Reloaded & result ) {
   if ( !result.error )
      return events.configurationTaken( result.changes );
   const auto & errors = result.errors;
   events.configurationRefused(
      errors.empty() ? result.error->message
                     : errors[0].file + ":" + std::to_string( errors[0].line ) + ":" +
                          std::to_string( errors[0].column ) + ": " + errors[0].message );
}

Agent::Recorder::Model Maintd::Views::recorderModel( const Entities & e ) {
   return { e.unitStatusDir,      e.unitRunDir,     e.unitCommandsDir,
            e.monIntfStatusDir,   e.insightDir,     e.intfToGroupDir,
            e.intfGroupStatusDir, e.groupToUnitDir, e.intfProfileStatusDir,
            e.defaultIntfProfile, e.cause,          e.journal,
            e.historyDir,         e.historyPeaksDir };
}

void Maintd::Views::addAnswers( Agent::ControlCommands & commands ) const {
   commands.history = {
      [this]( const std::string & unit ) { return archive.hasUnit( unit ); },
      [this]( const std::string & unit, std::size_t limit ) { return archive.list( unit, limit ); },
      [this]( Vel::U32 id ) { return archive.record( id ); } };
}

void Maintd::Views::addProblems( std::vector< Agent::Problem > & problems ) const {
   if ( const auto & problem = samples.problem() )
      problems.push_back( { "samples", problem->since, problem->text } );
   if ( const auto & trouble = archive.trouble() )
      problems.push_back( { "history", trouble->since, trouble->text } );
   for ( const auto & problem : hooks.problems() )
      problems.push_back( { "hook", problem.since, problem.text } );
}

} // namespace Apps
