#include "Apps/MaintdViews.h"

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
           clockName( agent.world_.time, agent.options_.runtimeDir + "/clock" ) } ) {}

void Maintd::Views::addProblems( std::vector< Agent::Problem > & problems ) const {
   if ( const auto & problem = samples.problem() )
      problems.push_back( { "samples", problem->since, problem->text } );
}

} // namespace Apps
