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
         [this]( const Wire::IntfId & intf ) { return executor_->uncounted( intf ); } } );
}

Agent::ControlCommands::Result Maintd::plan(
   const std::string & unit, const std::string & session, bool begins,
   std::function< void( const Agent::ControlCommands::Planned & ) > planned ) {
   std::optional< Agent::Session > from;
   if ( !session.empty() ) {
      from = Agent::sessionFrom( session );
      if ( !from )
         return Api::Error{ Api::ErrorCode::badRequest, "\"" + session + "\" is no address", "session" };
   }
   using Purpose = Agent::Planner::Purpose;
   if ( !begins && planner_->looking() >= Agent::Planner::mostLooking )
      return Api::Error{
         Api::ErrorCode::unavailable, "too many plans are asked for at a time; try again", unit };
   const Purpose purpose = begins ? Purpose::begin : Purpose::look;
   planner_->plan( unit, from, purpose, [this, planned = std::move( planned )]( const Agent::Plan & plan ) {
      planned(
         { Agent::planJson( plan, wallTime( plan.time ) ), Agent::findingsJson( plan.findings ),
           Agent::isBlocked( plan.findings ), blockingLines( plan.findings ),
           plan.waited > Agent::Planner::patience } );
   } );
   return std::nullopt;
}

} // namespace Apps
