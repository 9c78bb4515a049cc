#include "Agent/Plan/PlanJson.h"
#include "Apps/Maintd.h"
#include "Apps/MaintdEntities.h"
#include "Apps/MaintdViews.h"

/// How the agent is asked for plans.
namespace Apps {

namespace {

/// What blocks, a line each, as it is written down when it is overridden.
std::string blockingLines( const std::vector< Agent::PlanFinding > & findings ) {
   std::string lines;
   for ( const Agent::PlanFinding & finding : findings )
      if ( finding.severity == Agent::PlanSeverity::blocking )
         lines += ( lines.empty() ? "" : "\n" ) + finding.code + ": " + finding.text;
   return lines;
}

} // namespace

void Maintd::makePlanner() {
   const Entities & e = *entities_;
   planner_ = std::make_unique< Agent::Planner >(
      loop_, *world_.switch_, views_->samples,
      Agent::Planner::Model{
         e.unitStatusDir, e.allIntfStatusDir, e.intfProfileStatusDir, e.defaultIntfProfile, e.intfToGroupDir,
         e.intfGroupStatusDir, e.groupToUnitDir, e.cause },
      Agent::Planner::Hooks{
         [this]() -> const Config::Configuration & { return configuration_; },
         [this]( const Wire::IntfId & intf ) { return executor_->uncounted( intf ); },
         [this]( const Agent::Plan & plan ) { return Agent::planJson( plan, wallTime( plan.time ) ); } } );
}

Agent::ControlCommands::Result Maintd::plan(
   const std::string & unit, const std::string & session, Agent::PlanPurpose purpose,
   std::function< void( const Agent::ControlCommands::Planned & ) > planned ) {
   std::optional< Agent::Session > from;
   if ( !session.empty() ) {
      from = Agent::sessionFrom( session );
      if ( !from )
         return Api::Error{ Api::ErrorCode::badRequest, "\"" + session + "\" is no address", "session" };
   }
   if ( planner_->isBusy( purpose ) )
      return Api::Error{
         Api::ErrorCode::unavailable, "too many plans are asked for at a time; try again", unit };
   planner_->plan(
      unit, from, purpose, [purpose, planned = std::move( planned )]( const Agent::Plan & plan ) {
         if ( purpose != Agent::PlanPurpose::begin )
            return planned( { plan.text } );
         planned(
            { "", Agent::findingsJson( plan.findings ), Agent::isBlocked( plan.findings ),
              blockingLines( plan.findings ), plan.waited > Agent::Planner::patience } );
      } );
   return std::nullopt;
}

} // namespace Apps
